// Indexing the records of the character database and linking the composite
// chains. The input may be any bytes: the file is not trusted to be well
// formed, so every record is checked to lie inside the block before use.
#include "text/ucdata_table.h"

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
  for (auto* page : m_pages) {
    if (page == &g_ucdataEmptyPage) continue;
    for (unsigned char* rec : *page)
      if (rec) Chain(rec);
  }
  // A table without its indexes would answer differently by the road taken:
  // all or nothing.
  if (!BuildProps() || !BuildPairIndex()) {
    Release();
    return 0;
  }
  return count;
}

// Links rec into the chain of its decomposition's first unit, which runs by
// descending decomposition length; among equal lengths the record linked
// last stands first. A chain ends at 0, so a record of code 0 can't be on
// one. Every record is linked at most once, so no chain can close a circle.
void UCDATA_TABLE::Chain(unsigned char* rec) {
  unsigned short code = UCDATA::Code(rec);
  int length = UCDATA::SequenceLength(rec);
  if (length == 0 || code == 0) return;
  unsigned char* first = At(UCDATA::SequenceUnit(rec, 0));
  if (!first) return;
  unsigned short head = UCDATA::VariantLink(first);
  unsigned char* headRec = head ? At(head) : nullptr;
  if (!headRec || UCDATA::SequenceLength(headRec) <= length) {
    PutWord(rec + kNextComposite, head);
    PutWord(first + kFirstComposite, code);
    return;
  }
  unsigned char* prev = headRec;
  for (;;) {
    unsigned short next = UCDATA::NextVariant(prev);
    unsigned char* nextRec = next ? At(next) : nullptr;
    if (!nextRec || UCDATA::SequenceLength(nextRec) <= length) break;
    prev = nextRec;
  }
  PutWord(rec + kNextComposite, UCDATA::NextVariant(prev));
  PutWord(prev + kNextComposite, code);
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
