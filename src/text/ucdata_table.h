// The in-memory index of the character database: a two-level table from code
// unit to record, over one block that holds the records of "ucdata.ref", and
// two indexes derived from the records at load for the hot paths.
#ifndef VOSYS_SRC_TEXT_UCDATA_TABLE_H
#define VOSYS_SRC_TEXT_UCDATA_TABLE_H

#include <cstddef>
#include <cstdint>

// A page maps the low byte of a code to its record. Every high byte without
// records shares one all-null page, so that a lookup is always two dependent
// reads with no test for a missing page.
using UCDATA_PAGE = unsigned char* [256];
extern UCDATA_PAGE g_ucdataEmptyPage;

// The answers of the property queries for each code, packed in 16 bits
// (UCDATA_PROP_*) so that a query is one shift of its mask, in pages shared
// by all high bytes of equal content: about 70 pages cover the whole plane in
// some 36 KB, which stays in cache where the records don't.
//
// The category test's bit number is stored inverted, so that the zero of a
// code without a record reads as 63 and matches no mask. The bidi test's
// number is 0 (L) for a code without a record and for codes below 32, which
// count as L whatever their class. Numbers of 32 to 63 match no mask.
using UCDATA_PROPPAGE = uint16_t[256];
extern const UCDATA_PROPPAGE g_ucdataNoProps[1];
enum : uint16_t {
  UCDATA_PROP_CategoryBits = 0x003F,  // 63 - the category's low six bits
  UCDATA_PROP_BidiShift = 6,
  UCDATA_PROP_BidiBits = 0x3F,  // the bidi test's number
  UCDATA_PROP_Upper = 0x1000,   // the whole category byte is Lu
  UCDATA_PROP_Lower = 0x2000    // the whole category byte is Ll
};

// Bit n of the 32 bits that a mask has, 0 for n of 32 or more.
inline int UcdataMaskBit(unsigned long mask, unsigned n) {
  return static_cast<int>(uint64_t{static_cast<uint32_t>(mask)} >> n & 1);
}

// The composition candidates of a base character and the unit after it: the
// records on the base's composite chain with a canonical decomposition of two
// or more units whose second unit is that unit, in chain order. A composer
// that tries only these finds what a walk of the whole chain would, without
// walking the hundreds of entries some chains hold; and it decides most of
// them by the first three units kept here, without reading the records,
// which lie scattered over the whole file.
//
// A decomposition with a zero unit can never match text, which ends there,
// so it has no candidate: a composer may read the unit after any unit that a
// candidate matched.
struct UCDATA_COMPOSITE {
  const unsigned char* rec;
  uint16_t code;    // the composite character
  uint16_t third;   // the third unit of the decomposition, 0 for two units
  uint32_t length;  // units of the decomposition
};

struct UCDATA_PAIRSLOT {
  uint32_t key;    // base << 16 | second unit
  uint32_t begin;  // into the candidate list
  uint32_t count;  // 0 for a free slot
};

// The one free slot of a table without candidates.
extern UCDATA_PAIRSLOT g_ucdataNoPairs[1];

class UCDATA_TABLE {
 public:
  constexpr UCDATA_TABLE()
      : m_pages{},
        m_props(g_ucdataNoProps),
        m_propPage{},
        m_slots(g_ucdataNoPairs),
        m_slotMask(0),
        m_candidates(nullptr),
        m_propPageCount(0),
        m_candidateCount(0),
        m_seconds{} {
    for (auto& page : m_pages) page = &g_ucdataEmptyPage;
  }

  // Indexes the records in block[0, size): a header word, then records to the
  // end. The little-endian words are made native in place and the composite
  // chains are built. A record that runs past the end, and any trailing
  // bytes, are left out; a later record of the same code replaces an earlier
  // one. Returns the number of records indexed; without memory for all of
  // the index, 0 and an empty table.
  int Index(unsigned char* block, size_t size);

  // Frees what Index allocated; the table is empty again. The block stays
  // the caller's.
  void Release();

  // Heap bytes of the index beyond the block and this object: record pages,
  // property pages and the composition index.
  size_t HeapBytes() const;

  const unsigned char* Find(unsigned short c) const { return (*m_pages[c >> 8])[c & 0xFF]; }
  uint16_t Props(unsigned short c) const { return m_props[m_propPage[c >> 8]][c & 0xFF]; }
  int IsProp(unsigned short c, unsigned long mask) const {
    return UcdataMaskBit(mask, (Props(c) & UCDATA_PROP_CategoryBits) ^ UCDATA_PROP_CategoryBits);
  }
  int IsBidiProp(unsigned short c, unsigned long mask) const {
    return UcdataMaskBit(mask, Props(c) >> UCDATA_PROP_BidiShift & UCDATA_PROP_BidiBits);
  }

  // False if no canonical decomposition has unit c second: then nothing
  // composes with c after it, and most text is decided by this bit alone.
  bool IsSecondUnit(unsigned short c) const { return m_seconds[c >> 6] >> (c & 63) & 1; }

  // The candidates for composing base with second; count 0 for none.
  const UCDATA_COMPOSITE* Candidates(unsigned short base, unsigned short second, int* count) const {
    const UCDATA_PAIRSLOT* slot = FindSlot(m_slots, m_slotMask, uint32_t{base} << 16 | second);
    *count = static_cast<int>(slot->count);
    return m_candidates + slot->begin;
  }

 private:
  UCDATA_PAGE* PageFor(unsigned short c);
  unsigned char* At(unsigned short c) { return (*m_pages[c >> 8])[c & 0xFF]; }
  bool BuildChains();
  bool BuildProps();
  bool BuildPairIndex();
  bool FillPairIndex(void* candidates, size_t n);

  // The slot of key, or the free slot where it would go; the table is never
  // more than half full, and without one every key has the one free slot.
  static UCDATA_PAIRSLOT* FindSlot(UCDATA_PAIRSLOT* slots, uint32_t mask, uint32_t key) {
    for (uint32_t i = (key ^ key >> 15) * 0x9E3779B1u;; ++i) {
      UCDATA_PAIRSLOT* slot = &slots[i & mask];
      if (slot->count == 0 || slot->key == key) return slot;
    }
  }

  UCDATA_PAGE* m_pages[256];
  const UCDATA_PROPPAGE* m_props;
  uint8_t m_propPage[256];
  UCDATA_PAIRSLOT* m_slots;
  uint32_t m_slotMask;
  const UCDATA_COMPOSITE* m_candidates;
  uint32_t m_propPageCount;
  uint32_t m_candidateCount;
  uint64_t m_seconds[65536 / 64];
};

#endif
