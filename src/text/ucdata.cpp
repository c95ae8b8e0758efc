// The character database: loaded once, on the first question, from
// "ucdata.ref", and never freed.
//
// The first question may come from several threads at once: the load runs
// under a once-flag, and the flag that the queries test is published with
// release order after the table is complete, so a query that sees it set
// sees the whole table (on x86 the acquire load is a plain load). A load that
// failed is not tried again. The loader must not ask a character question
// itself: that would wait on its own once-flag.
#include "vosystem/ucdata.h"

#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <mutex>

#include "files/readfile.h"
#include "text/ucdata_priv.h"
#include "text/ucdata_table.h"
#include "vosystem/filefind.h"

namespace {

// A real file is about 1 MB; every code with the longest decomposition would
// still fit in 34 MB. Anything larger is not a character database.
const size_t kMaxFileSize = 64u << 20;

std::atomic<bool> s_bUCInitted{false};  // loading was tried, and is over
std::once_flag s_loadOnce;
unsigned char* s_pUCDATABuf = nullptr;
UCDATA_TABLE s_ucdata;

// The queries that run for every character test for the load themselves and
// leave it to this, which loads and asks again as a tail call: the hot path
// then saves no registers around a call it never makes.
template <typename RESULT, typename... ARGS>
[[gnu::noinline, gnu::cold]] RESULT LoadAndAsk(RESULT (*query)(ARGS...), ARGS... args) {
  ReadUCData();
  return query(args...);
}

inline bool NotLoaded() {
  return __builtin_expect(!s_bUCInitted.load(std::memory_order_acquire), 0);
}

void Load() {
  FILEPATH path;
  if (FILEFIND::LocateReferenceFile("ucdata.ref", path, 0)) {
    size_t size = 0;
    if (ReadWholeFile(path, kMaxFileSize, &s_pUCDATABuf, &size) >= 0)
      s_ucdata.Index(s_pUCDATABuf, size);
  }
  s_bUCInitted.store(true, std::memory_order_release);
}

inline const UCDATA_TABLE& Loaded() {
  if (NotLoaded()) ReadUCData();
  return s_ucdata;
}

}  // namespace

const UCDATA_TABLE& UcdataTable() {
  return Loaded();
}

extern "C" void ReadUCData(void) {
  if (NotLoaded()) std::call_once(s_loadOnce, Load);
}

extern "C" const unsigned char* GetUCDATA(unsigned short c) {
  if (NotLoaded()) return LoadAndAsk(GetUCDATA, c);
  return s_ucdata.Find(c);
}

const unsigned char* UCDATA::GetCharData(unsigned short c) {
  return GetUCDATA(c);
}

// The flags of the whole category byte say that a record is there.
extern "C" unsigned short uctolower(unsigned short c) {
  if (NotLoaded()) return LoadAndAsk(uctolower, c);
  if (!(s_ucdata.Props(c) & UCDATA_PROP_Upper)) return c;
  return UCDATA::CaseMapping(s_ucdata.Find(c));
}

extern "C" unsigned short uctoupper(unsigned short c) {
  if (NotLoaded()) return LoadAndAsk(uctoupper, c);
  if (!(s_ucdata.Props(c) & UCDATA_PROP_Lower)) return c;
  return UCDATA::CaseMapping(s_ucdata.Find(c));
}

extern "C" int ucisprop(unsigned short c, unsigned long mask) {
  if (NotLoaded()) return LoadAndAsk(ucisprop, c, mask);
  return s_ucdata.IsProp(c, mask);
}

extern "C" int ucisbidiprop(unsigned short c, unsigned long mask) {
  if (NotLoaded()) return LoadAndAsk(ucisbidiprop, c, mask);
  return s_ucdata.IsBidiProp(c, mask);
}

extern "C" int ucisdecompprop(unsigned short c, unsigned long mask) {
  const unsigned char* rec = GetUCDATA(c);
  return rec ? UcdataMaskBit(mask, UCDATA::DecompTag(rec) & 0x3F) : 0;
}
