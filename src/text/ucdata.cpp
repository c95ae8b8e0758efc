// The character database: loaded once, on the first question, from
// "ucdata.ref", and never freed. Loading takes no lock: a program that queries
// from several threads should ask one question first.
#include "vosystem/ucdata.h"

#include <cstdint>
#include <cstdlib>
#include <string>

#include "files/reffile.h"
#include "text/ucdata_table.h"

namespace {

// A real file is about 1 MB; every code with the longest decomposition would
// still fit in 34 MB. Anything larger is not a character database.
const size_t kMaxFileSize = 64u << 20;

bool s_bUCInitted = false;
unsigned char* s_pUCDATABuf = nullptr;
UCDATA_TABLE s_ucdata;

inline const unsigned char* Lookup(unsigned short c) {
  if (__builtin_expect(!s_bUCInitted, 0)) ReadUCData();
  return s_ucdata.Find(c);
}

// Only the low six bits of a stored number are a property; 32 to 63 fit no
// 32-bit mask.
inline int MaskHas(unsigned long mask, unsigned number) {
  number &= 0x3F;
  return number < 32 ? static_cast<int>((static_cast<uint32_t>(mask) >> number) & 1u) : 0;
}

}  // namespace

extern "C" void ReadUCData(void) {
  if (s_bUCInitted) return;
  s_bUCInitted = true;
  std::string path;
  if (!reffile::LocateReferenceFile("ucdata.ref", path)) return;
  size_t size = 0;
  if (reffile::ReadWholeFile(path, kMaxFileSize, &s_pUCDATABuf, &size) < 0) return;
  s_ucdata.Index(s_pUCDATABuf, size);
}

extern "C" const unsigned char* GetUCDATA(unsigned short c) {
  return Lookup(c);
}

const unsigned char* UCDATA::GetCharData(unsigned short c) {
  return Lookup(c);
}

extern "C" unsigned short uctolower(unsigned short c) {
  const unsigned char* rec = Lookup(c);
  return rec && UCDATA::Category(rec) == UCCATEGORY_Lu ? UCDATA::CaseMapping(rec) : c;
}

extern "C" unsigned short uctoupper(unsigned short c) {
  const unsigned char* rec = Lookup(c);
  return rec && UCDATA::Category(rec) == UCCATEGORY_Ll ? UCDATA::CaseMapping(rec) : c;
}

extern "C" int ucisprop(unsigned short c, unsigned long mask) {
  const unsigned char* rec = Lookup(c);
  return rec ? MaskHas(mask, UCDATA::Category(rec)) : 0;
}

extern "C" int ucisbidiprop(unsigned short c, unsigned long mask) {
  const unsigned char* rec = Lookup(c);
  if (c < 32 || !rec) return static_cast<int>(mask & 1);
  return MaskHas(mask, UCDATA::BidiClass(rec));
}

extern "C" int ucisdecompprop(unsigned short c, unsigned long mask) {
  const unsigned char* rec = Lookup(c);
  return rec ? MaskHas(mask, UCDATA::DecompTag(rec)) : 0;
}
