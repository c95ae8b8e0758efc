// The conversion tables of the charsets: for each, the mapping between its
// code values and Unicode in both directions, loaded on first use.
#ifndef VOSYS_SRC_ENCODING_CONVTABLES_H
#define VOSYS_SRC_ENCODING_CONVTABLES_H

#include <cstddef>
#include <cstdint>

// A two-level table from a 16-bit key to a 16-bit value, 0 meaning none:
// 256 pages by the key's high byte, each allocated zero-filled when its first
// value is stored.
struct SPARSEARRAY {
  uint16_t* page[256];
};

// Stores table[key] = value; a key above 0xFFFF is ignored. 0, or -1015.
int PutInArray(SPARSEARRAY* table, int key, int value);
// toUC[code] = unicode, then fromUC[unicode] = code; a later pair replaces an
// earlier one. 0, or -1015.
int AddPair(SPARSEARRAY* toUC, SPARSEARRAY* fromUC, int code, int unicode);
// Frees the pages and the table.
void FreeSparseArray(SPARSEARRAY* table);

// Adds the pairs of the charset named name from the image of "unicode2.ref"
// in file[0, size). A name no directory entry holds adds nothing. 0, or a
// negative code for a file whose directory or pair list lies past its end
// (-1122) or memory (-1015); nothing is read outside the image.
int AddPairsFromFile(const unsigned char* file, size_t size, const char* name, SPARSEARRAY* toUC,
                     SPARSEARRAY* fromUC);

// A charset's loaded tables for the converters' inner loops: lookups
// without a form modifier, answering as MucCharsetToUnicode and
// MucUnicodeToCharset do, with no load check or call per character. Every
// page pointer is valid (a missing page is one of zeros, or for page 0 of
// the decoding side the identity: a byte reads as itself), so a lookup is
// two loads and no test.
struct CHARSET_TABLES {
  const uint16_t* const* to = nullptr;           // null: a code is its own character (0, 15)
  const uint16_t* const* from = nullptr;         // null: a character is its own code (0)
  const uint16_t* const* fromEncoder = nullptr;  // from, with page 0 as encoders write it
  // 256 or 128 when every unit from 1 up to that bound encodes as its own
  // byte, else 0: text of such units can be copied rather than looked up.
  unsigned encoderSameBelow = 0;

  int ToUnicode(unsigned code) const {
    if (!to) return static_cast<int>(code);
    return to[code >> 8 & 0xFF][code & 0xFF];
  }
  // What the table itself holds, 0 for none.
  int FromTable(unsigned unicode) const {
    if (!from) return static_cast<int>(unicode);
    return unicode > 0xFFFF ? 0 : from[unicode >> 8][unicode & 0xFF];
  }
  // What an encoder writes: as FromTable, but units up to 0x20 are
  // themselves, and Latin-1 values the charset lacks answer themselves.
  int FromUnicode(unsigned unicode) const {
    if (!from) return static_cast<int>(unicode);
    return unicode > 0xFFFF ? 0 : fromEncoder[unicode >> 8][unicode & 0xFF];
  }
};

// The tables of a charset number (no form modifier), loading them if need
// be. 0, or the negative code MucCharsetToUnicode would give (-1213 for a
// number out of range, the load's failure).
int GetCharsetTables(int charset, CHARSET_TABLES* tables);

// Byte order of the file's fields, which are little-endian everywhere.
void swapwords(void* p, int count);
void swaplong(void* p);

#endif
