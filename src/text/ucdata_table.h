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

// Category and bidi class of each code, packed in 16 bits (UCDATA_PROP_*), in
// pages shared by all high bytes of equal content: about 70 pages cover the
// whole plane in some 36 KB, which stays in cache where the records don't.
using UCDATA_PROPPAGE = uint16_t[256];
extern const UCDATA_PROPPAGE g_ucdataNoProps[1];
enum : uint16_t {
  UCDATA_PROP_CategoryMask = 0x00FF,  // the whole category byte
  UCDATA_PROP_BidiShift = 8,          // the bidi class's low six bits
  UCDATA_PROP_BidiMask = 0x3F,
  UCDATA_PROP_Present = 0x4000  // the code has a record
};

// The composition candidates of a base character and the unit after it: the
// records on the base's composite chain with a canonical decomposition of two
// or more units whose second unit is that unit, in chain order. A composer
// that tries only these finds what a walk of the whole chain would, without
// walking the hundreds of entries some chains hold.
struct UCDATA_PAIRSLOT {
  uint32_t key;    // base << 16 | second unit
  uint32_t begin;  // into the candidate list
  uint32_t count;  // 0 for a free slot
};

class UCDATA_TABLE {
 public:
  constexpr UCDATA_TABLE()
      : m_pages{},
        m_props(g_ucdataNoProps),
        m_propPage{},
        m_slots(nullptr),
        m_slotMask(0),
        m_candidates(nullptr),
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

  const unsigned char* Find(unsigned short c) const { return (*m_pages[c >> 8])[c & 0xFF]; }
  uint16_t Props(unsigned short c) const { return m_props[m_propPage[c >> 8]][c & 0xFF]; }

  // False if no canonical decomposition has unit c second: then nothing
  // composes with c after it, and most text is decided by this bit alone.
  bool IsSecondUnit(unsigned short c) const { return m_seconds[c >> 6] >> (c & 63) & 1; }

  // The candidates for composing base with second; count 0 for none.
  const unsigned char* const* Candidates(unsigned short base, unsigned short second,
                                         int* count) const;

 private:
  UCDATA_PAGE* PageFor(unsigned short c);
  unsigned char* At(unsigned short c) { return (*m_pages[c >> 8])[c & 0xFF]; }
  void Chain(unsigned char* rec);
  bool BuildProps();
  bool BuildPairIndex();
  bool FillPairIndex(void* candidates, size_t n);

  UCDATA_PAGE* m_pages[256];
  const UCDATA_PROPPAGE* m_props;
  uint8_t m_propPage[256];
  UCDATA_PAIRSLOT* m_slots;
  uint32_t m_slotMask;
  const unsigned char** m_candidates;
  uint64_t m_seconds[65536 / 64];
};

#endif
