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

// Byte order of the file's fields, which are little-endian everywhere.
void swapwords(void* p, int count);
void swaplong(void* p);

#endif
