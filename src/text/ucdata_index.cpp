// The indexes derived from the records at load: packed properties in shared
// pages, and the composition candidates by base and second unit.
#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "text/ucdata_table.h"
#include "vosystem/ucdata.h"

const UCDATA_PROPPAGE g_ucdataNoProps[1] = {};
UCDATA_PAIRSLOT g_ucdataNoPairs[1] = {};

namespace {

uint16_t PackProps(const unsigned char* rec, unsigned short code) {
  if (!rec) return 0;
  unsigned category = UCDATA::Category(rec);
  unsigned bidi = code < 32 ? UCBIDICLASS_L : UCDATA::BidiClass(rec) & UCDATA_PROP_BidiBits;
  return static_cast<uint16_t>(((category & UCDATA_PROP_CategoryBits) ^ UCDATA_PROP_CategoryBits) |
                               bidi << UCDATA_PROP_BidiShift |
                               (category == UCCATEGORY_Lu ? UCDATA_PROP_Upper : 0) |
                               (category == UCCATEGORY_Ll ? UCDATA_PROP_Lower : 0));
}

uint32_t HashPage(const uint16_t* page) {
  uint32_t h = 2166136261u;
  for (int i = 0; i < 256; ++i) h = (h ^ page[i]) * 16777619u;
  return h;
}

struct CANDIDATE {
  uint32_t key;
  uint32_t order;  // place in chain order
  const unsigned char* rec;
  bool operator<(const CANDIDATE& o) const { return key != o.key ? key < o.key : order < o.order; }
};

// A canonical decomposition of two or more units that starts with base and
// holds no zero unit, which no text could match.
bool ComposesWith(const unsigned char* rec, unsigned short base) {
  int length = UCDATA::SequenceLength(rec);
  if (length < 2 || UCDATA::DecompTag(rec) != UCDECOMPTYPE_Canonical ||
      UCDATA::SequenceUnit(rec, 0) != base)
    return false;
  for (int i = 1; i < length; ++i)
    if (UCDATA::SequenceUnit(rec, i) == 0) return false;
  return true;
}

UCDATA_COMPOSITE CompositeOf(const unsigned char* rec) {
  int length = UCDATA::SequenceLength(rec);
  return {rec, UCDATA::Code(rec),
          static_cast<uint16_t>(length > 2 ? UCDATA::SequenceUnit(rec, 2) : 0),
          static_cast<uint32_t>(length)};
}

}  // namespace

bool UCDATA_TABLE::BuildProps() {
  auto* scratch = static_cast<UCDATA_PROPPAGE*>(malloc(256 * sizeof(UCDATA_PROPPAGE)));
  if (!scratch) return false;
  uint8_t pageOf[256];
  uint32_t hashes[256];
  int unique = 0;
  for (int hi = 0; hi < 256; ++hi) {
    uint16_t* page = scratch[unique];
    for (int lo = 0; lo < 256; ++lo)
      page[lo] = PackProps((*m_pages[hi])[lo], static_cast<unsigned short>(hi << 8 | lo));
    uint32_t hash = HashPage(page);
    int same = 0;
    while (same < unique &&
           (hashes[same] != hash || memcmp(scratch[same], page, sizeof(UCDATA_PROPPAGE)) != 0))
      ++same;
    if (same == unique) hashes[unique++] = hash;
    pageOf[hi] = static_cast<uint8_t>(same);
  }
  auto* pages = static_cast<UCDATA_PROPPAGE*>(malloc(unique * sizeof(UCDATA_PROPPAGE)));
  if (pages) {
    memcpy(pages, scratch, unique * sizeof(UCDATA_PROPPAGE));
    // Pages before page numbers: a reader never meets a number past the pages.
    m_props = pages;
    m_propPageCount = static_cast<uint32_t>(unique);
    memcpy(m_propPage, pageOf, sizeof pageOf);
  }
  free(scratch);
  return pages != nullptr;
}

// Groups the candidates by key, each group in chain order.
bool UCDATA_TABLE::FillPairIndex(void* candidates, size_t n) {
  auto* list = static_cast<CANDIDATE*>(candidates);
  std::sort(list, list + n);
  size_t keys = 0;
  for (size_t i = 0; i < n; ++i) keys += i == 0 || list[i].key != list[i - 1].key;
  uint32_t slots = 16;
  while (slots < 2 * keys) slots *= 2;
  auto* composites = static_cast<UCDATA_COMPOSITE*>(malloc((n ? n : 1) * sizeof(UCDATA_COMPOSITE)));
  auto* table = static_cast<UCDATA_PAIRSLOT*>(calloc(slots, sizeof(UCDATA_PAIRSLOT)));
  if (!composites || !table) {
    free(composites);
    free(table);
    return false;
  }
  m_candidates = composites;
  m_slots = table;
  m_slotMask = slots - 1;
  m_candidateCount = static_cast<uint32_t>(n);
  for (size_t i = 0; i < n; ++i) {
    composites[i] = CompositeOf(list[i].rec);
    uint16_t second = static_cast<uint16_t>(list[i].key);
    m_seconds[second >> 6] |= uint64_t{1} << (second & 63);
    UCDATA_PAIRSLOT* slot = FindSlot(m_slots, m_slotMask, list[i].key);
    if (slot->count == 0) *slot = {list[i].key, static_cast<uint32_t>(i), 0};
    ++slot->count;
  }
  return true;
}

bool UCDATA_TABLE::BuildPairIndex() {
  size_t total = 0;
  for (int pass = 0; pass < 2; ++pass) {
    CANDIDATE* list = nullptr;
    if (pass == 1) {
      list = static_cast<CANDIDATE*>(malloc((total ? total : 1) * sizeof(CANDIDATE)));
      if (!list) return false;
    }
    size_t n = 0;
    for (auto* page : m_pages) {
      for (const unsigned char* owner : *page) {
        if (!owner) continue;
        unsigned short base = UCDATA::Code(owner);
        // A chain ends at 0. A record that links to itself ends one too:
        // that is the other way of marking the end, and a walker that stops
        // on both never loops, whoever linked the chain.
        for (unsigned short link = UCDATA::VariantLink(owner); link;) {
          const unsigned char* rec = Find(link);
          if (!rec) break;
          if (ComposesWith(rec, base)) {
            if (list) {
              uint32_t key = uint32_t{base} << 16 | UCDATA::SequenceUnit(rec, 1);
              list[n] = {key, static_cast<uint32_t>(n), rec};
            }
            ++n;
          }
          unsigned short next = UCDATA::NextVariant(rec);
          link = next == link ? 0 : next;
        }
      }
    }
    total = n;
    if (list) {
      bool ok = FillPairIndex(list, n);
      free(list);
      return ok;
    }
  }
  return false;
}
