// The character database: loaded once, on the first question, from
// "ucdata.ref", and never freed. Loading takes no lock: a program that queries
// from several threads should ask one question first.
#include "vosystem/ucdata.h"

#include <cstdint>
#include <cstdlib>
#include <string>

#include "files/reffile.h"
#include "text/ucdata_priv.h"
#include "text/ucdata_table.h"

namespace {

// A real file is about 1 MB; every code with the longest decomposition would
// still fit in 34 MB. Anything larger is not a character database.
const size_t kMaxFileSize = 64u << 20;

bool s_bUCInitted = false;
unsigned char* s_pUCDATABuf = nullptr;
UCDATA_TABLE s_ucdata;

inline const UCDATA_TABLE& Loaded() {
  if (__builtin_expect(!s_bUCInitted, 0)) ReadUCData();
  return s_ucdata;
}

inline const unsigned char* Lookup(unsigned short c) {
  return Loaded().Find(c);
}

// Category and bidi class come from the packed pages: two reads, both
// likely in cache. Only the rarer answers read the record itself.
inline uint16_t Props(unsigned short c) {
  return Loaded().Props(c);
}

inline unsigned Category(uint16_t props) {
  return props & UCDATA_PROP_CategoryMask;
}

// Only the low six bits of a stored number are a property; 32 to 63 fit no
// 32-bit mask.
inline int MaskHas(unsigned long mask, unsigned number) {
  number &= 0x3F;
  return number < 32 ? static_cast<int>((static_cast<uint32_t>(mask) >> number) & 1u) : 0;
}

}  // namespace

const UCDATA_TABLE& UcdataTable() {
  return Loaded();
}

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

// A unit without a record has category 0, so a match of category means a
// record is there.
extern "C" unsigned short uctolower(unsigned short c) {
  if (Category(Props(c)) != UCCATEGORY_Lu) return c;
  return UCDATA::CaseMapping(s_ucdata.Find(c));
}

extern "C" unsigned short uctoupper(unsigned short c) {
  if (Category(Props(c)) != UCCATEGORY_Ll) return c;
  return UCDATA::CaseMapping(s_ucdata.Find(c));
}

extern "C" int ucisprop(unsigned short c, unsigned long mask) {
  uint16_t props = Props(c);
  return props & UCDATA_PROP_Present ? MaskHas(mask, Category(props)) : 0;
}

extern "C" int ucisbidiprop(unsigned short c, unsigned long mask) {
  uint16_t props = Props(c);
  if (c < 32 || !(props & UCDATA_PROP_Present)) return static_cast<int>(mask & 1);
  return MaskHas(mask, props >> UCDATA_PROP_BidiShift & UCDATA_PROP_BidiMask);
}

extern "C" int ucisdecompprop(unsigned short c, unsigned long mask) {
  const unsigned char* rec = Lookup(c);
  return rec ? MaskHas(mask, UCDATA::DecompTag(rec)) : 0;
}
