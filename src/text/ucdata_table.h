// The in-memory index of the character database: a two-level table from code
// unit to record, over one block that holds the records of "ucdata.ref".
#ifndef VOSYS_SRC_TEXT_UCDATA_TABLE_H
#define VOSYS_SRC_TEXT_UCDATA_TABLE_H

#include <cstddef>

// A page maps the low byte of a code to its record. Every high byte without
// records shares one all-null page, so that a lookup is always two dependent
// reads with no test for a missing page.
using UCDATA_PAGE = unsigned char* [256];

extern UCDATA_PAGE g_ucdataEmptyPage;

class UCDATA_TABLE {
 public:
  constexpr UCDATA_TABLE() : m_pages{} {
    for (auto& page : m_pages) page = &g_ucdataEmptyPage;
  }

  // Indexes the records in block[0, size): a header word, then records to the
  // end. The little-endian words are made native in place and the composite
  // chains are built. A record that runs past the end, and any trailing
  // bytes, are left out; a later record of the same code replaces an earlier
  // one. Returns the number of records indexed.
  int Index(unsigned char* block, size_t size);

  // Frees the pages; the table is empty again. The block stays the caller's.
  void Release();

  const unsigned char* Find(unsigned short c) const { return (*m_pages[c >> 8])[c & 0xFF]; }

 private:
  UCDATA_PAGE* PageFor(unsigned short c);
  unsigned char* At(unsigned short c) { return (*m_pages[c >> 8])[c & 0xFF]; }
  void Chain(unsigned char* rec);

  UCDATA_PAGE* m_pages[256];
};

#endif
