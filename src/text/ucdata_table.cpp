// Indexing the records of the character database and linking the composite
// chains. The input may be any bytes: the file is not trusted to be well
// formed, so every record is checked to lie inside the block before use.
#include "text/ucdata_table.h"

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "vosystem/ucdata.h"

UCDATA_PAGE g_ucdataEmptyPage = {};

namespace {

enum : size_t {
  kCode = 0,
  kCaseMapping = 2,
  kFirstComposite = 4,
  kNextComposite = 6,
  kLength = 11,
  kHeader = UCDATA::kHeaderSize
};

void PutWord(unsigned char* p, uint16_t w) {
  memcpy(p, &w, sizeof w);
}

// File words are little-endian; this makes one native, in place.
void NativeWord(unsigned char* p) {
  PutWord(p, static_cast<uint16_t>(p[0] | p[1] << 8));
}

size_t RecordSize(const unsigned char* rec) {
  return kHeader + 2 * size_t{rec[kLength]};
}

}  // namespace

UCDATA_PAGE* UCDATA_TABLE::PageFor(unsigned short c) {
  UCDATA_PAGE*& page = m_pages[c >> 8];
  if (page == &g_ucdataEmptyPage) {
    void* block = calloc(1, sizeof(UCDATA_PAGE));
    if (!block) return nullptr;
    page = static_cast<UCDATA_PAGE*>(block);
  }
  return page;
}

int UCDATA_TABLE::Index(unsigned char* block, size_t size) {
  if (size >= 2) NativeWord(block);
  int count = 0;
  for (size_t off = 2; off + kHeader <= size;) {
    unsigned char* rec = block + off;
    size_t recSize = RecordSize(rec);
    if (recSize > size - off) break;  // runs past the end: truncated file
    off += recSize;
    NativeWord(rec + kCode);
    NativeWord(rec + kCaseMapping);
    for (size_t i = kHeader; i < recSize; i += 2) NativeWord(rec + i);
    // The chains are built here, never taken from the file: stale links
    // there could otherwise point anywhere, or in a circle.
    PutWord(rec + kFirstComposite, 0);
    PutWord(rec + kNextComposite, 0);
    unsigned short code = UCDATA::Code(rec);
    UCDATA_PAGE* page = PageFor(code);
    if (!page) {
      Release();
      return 0;
    }
    (*page)[code & 0xFF] = rec;
    ++count;
  }
  // A table without its chains or indexes would answer differently by the
  // road taken: all or nothing.
  if (!BuildChains() || !BuildProps() || !BuildPairIndex()) {
    Release();
    return 0;
  }
  return count;
}

// The composite chain of a character F lists the records whose
// decomposition starts with F, by descending decomposition length; among
// equal lengths the record met later in code order stands first (as if each
// had been linked in front of its equals in turn). The links are made from
// one sort of all such records, O(n log n) whatever the file holds: a crafted
// file with tens of thousands of records on one chain loads as fast as a real
// one. A chain ends at 0, so a record of code 0 can't be on one. Every record
// is linked at most once, so no chain can close a circle.
bool UCDATA_TABLE::BuildChains() {
  struct LINK {
    uint16_t first;   // the decomposition's first unit, whose chain this is
    uint16_t length;  // of the decomposition
    uint16_t code;    // of the record
    bool operator<(const LINK& o) const {
      if (first != o.first) return first < o.first;
      if (length != o.length) return length > o.length;
      return code > o.code;
    }
  };
  size_t n = 0;
  for (const UCDATA_PAGE* page : m_pages)
    if (page != &g_ucdataEmptyPage)
      for (const unsigned char* rec : *page) n += rec && UCDATA::SequenceLength(rec) > 0;
  auto* links = static_cast<LINK*>(malloc((n ? n : 1) * sizeof(LINK)));
  if (!links) return false;
  size_t k = 0;
  for (const UCDATA_PAGE* page : m_pages) {
    if (page == &g_ucdataEmptyPage) continue;
    for (const unsigned char* rec : *page) {
      if (!rec || UCDATA::SequenceLength(rec) == 0 || UCDATA::Code(rec) == 0) continue;
      const unsigned short first = UCDATA::SequenceUnit(rec, 0);
      if (At(first)) links[k++] = {first, UCDATA::SequenceLength(rec), UCDATA::Code(rec)};
    }
  }
  std::sort(links, links + k);
  for (size_t i = 0; i < k; ++i) {
    const bool head = i == 0 || links[i - 1].first != links[i].first;
    const bool tail = i + 1 == k || links[i + 1].first != links[i].first;
    if (head) PutWord(At(links[i].first) + kFirstComposite, links[i].code);
    PutWord(At(links[i].code) + kNextComposite, tail ? 0 : links[i + 1].code);
  }
  free(links);
  return true;
}

void UCDATA_TABLE::Release() {
  if (m_props != g_ucdataNoProps) free(const_cast<UCDATA_PROPPAGE*>(m_props));
  m_props = g_ucdataNoProps;
  memset(m_propPage, 0, sizeof m_propPage);
  if (m_slots != g_ucdataNoPairs) free(m_slots);
  free(const_cast<UCDATA_COMPOSITE*>(m_candidates));
  m_slots = g_ucdataNoPairs;
  m_slotMask = 0;
  m_propPageCount = 0;
  m_candidateCount = 0;
  m_candidates = nullptr;
  memset(m_seconds, 0, sizeof m_seconds);
  for (auto& page : m_pages) {
    if (page != &g_ucdataEmptyPage) free(page);
    page = &g_ucdataEmptyPage;
  }
}

size_t UCDATA_TABLE::HeapBytes() const {
  size_t bytes = size_t{m_propPageCount} * sizeof(UCDATA_PROPPAGE);
  if (m_slots != g_ucdataNoPairs) bytes += (size_t{m_slotMask} + 1) * sizeof(UCDATA_PAIRSLOT);
  bytes += size_t{m_candidateCount} * sizeof(UCDATA_COMPOSITE);
  for (const UCDATA_PAGE* page : m_pages)
    if (page != &g_ucdataEmptyPage) bytes += sizeof(UCDATA_PAGE);
  return bytes;
}
