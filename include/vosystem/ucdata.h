// The character database: category, bidirectional class, case partner and
// decomposition of every 16-bit code unit, read from the reference file
// "ucdata.ref" on the first question and kept for the life of the process.
//
// Without the file every unit answers with the defaults: no record, case
// mappings are the identity, no category matches, and every unit counts as a
// strong left-to-right character. Nothing fails.
//
// A record is a shared format, read by field through the UCDATA readers:
//
//   offset  size  field
//    0       2    code of the unit described
//    2       2    case partner (lower case of Lu, upper case of Ll)
//    4       2    first composite: first unit whose decomposition starts
//                 with this one, 0 for none (built at load)
//    6       2    next composite in the chain this record is on, 0 at the end
//    8       1    category (UCCATEGORY)
//    9       1    bidi class (UCBIDICLASS)
//   10       1    decomposition type (UCDECOMPTYPE)
//   11       1    decomposition length in units
//   12     2 x n  decomposition
//
// In the file the words are little-endian; in memory they are native.
// Composite chains run by descending decomposition length, so that a composer
// walking one tries the longest match first.
#ifndef VOSYSTEM_UCDATA_H
#define VOSYSTEM_UCDATA_H

#include <cstring>

#include "vosystem/export.h"

// General categories. A property mask has bit n set for category n.
enum UCCATEGORY : int {
  UCCATEGORY_None = 0,  // no record
  UCCATEGORY_Lu = 1,
  UCCATEGORY_Ll = 2,
  UCCATEGORY_Lt = 3,
  UCCATEGORY_Lm = 4,
  UCCATEGORY_Lo = 5,
  UCCATEGORY_Mn = 6,
  UCCATEGORY_Mc = 7,
  UCCATEGORY_Me = 8,
  UCCATEGORY_Nd = 9,
  UCCATEGORY_Nl = 10,
  UCCATEGORY_No = 11,
  UCCATEGORY_Zs = 12,
  UCCATEGORY_Zl = 13,
  UCCATEGORY_Zp = 14,
  UCCATEGORY_Cc = 15,
  UCCATEGORY_Cf = 16,
  UCCATEGORY_Cs = 17,
  UCCATEGORY_Co = 18,
  UCCATEGORY_Cn = 19,  // never stored: unassigned units have no record
  UCCATEGORY_Pc = 20,
  UCCATEGORY_Pd = 21,
  UCCATEGORY_Ps = 22,
  UCCATEGORY_Pe = 23,
  UCCATEGORY_Pi = 24,
  UCCATEGORY_Pf = 25,
  UCCATEGORY_Po = 26,
  UCCATEGORY_Sm = 27,
  UCCATEGORY_Sc = 28,
  UCCATEGORY_Sk = 29,
  UCCATEGORY_So = 30
};

// Bidirectional classes. A bidi mask has bit n set for class n. The isolate
// controls, which came after the classic embedding controls, take 19 to 22:
// no mask that the bidi algorithm uses includes them, so they behave there
// exactly as other neutrals (ON), while ucisbidiprop can still tell them
// apart.
enum UCBIDICLASS : int {
  UCBIDICLASS_L = 0,  // also the answer for units below 32 and units without a record
  UCBIDICLASS_LRE = 1,
  UCBIDICLASS_LRO = 2,
  UCBIDICLASS_R = 3,
  UCBIDICLASS_AL = 4,
  UCBIDICLASS_RLE = 5,
  UCBIDICLASS_RLO = 6,
  UCBIDICLASS_PDF = 7,
  UCBIDICLASS_EN = 8,
  UCBIDICLASS_ES = 9,
  UCBIDICLASS_ET = 10,
  UCBIDICLASS_AN = 11,
  UCBIDICLASS_CS = 12,
  UCBIDICLASS_NSM = 13,
  UCBIDICLASS_BN = 14,
  UCBIDICLASS_B = 15,
  UCBIDICLASS_S = 16,
  UCBIDICLASS_WS = 17,
  UCBIDICLASS_ON = 18,
  UCBIDICLASS_LRI = 19,
  UCBIDICLASS_RLI = 20,
  UCBIDICLASS_FSI = 21,
  UCBIDICLASS_PDI = 22
};

// Decomposition types. 1 to 4 are the positional forms of contextual shaping;
// 5 to 16 are the compatibility tags in the order in which the Unicode
// Character Database lists them. The numbers are fixed: glyph substitution
// ties one feature flag to each of 5 to 16.
enum UCDECOMPTYPE : int {
  UCDECOMPTYPE_Canonical = 0,
  UCDECOMPTYPE_Initial = 1,
  UCDECOMPTYPE_Medial = 2,
  UCDECOMPTYPE_Final = 3,
  UCDECOMPTYPE_Isolated = 4,
  UCDECOMPTYPE_Font = 5,       // <font>
  UCDECOMPTYPE_NoBreak = 6,    // <noBreak>
  UCDECOMPTYPE_Circle = 7,     // <circle>
  UCDECOMPTYPE_Super = 8,      // <super>
  UCDECOMPTYPE_Sub = 9,        // <sub>
  UCDECOMPTYPE_Vertical = 10,  // <vertical>
  UCDECOMPTYPE_Wide = 11,      // <wide>
  UCDECOMPTYPE_Narrow = 12,    // <narrow>
  UCDECOMPTYPE_Small = 13,     // <small>
  UCDECOMPTYPE_Square = 14,    // <square>
  UCDECOMPTYPE_Fraction = 15,  // <fraction>
  UCDECOMPTYPE_Compat = 16,    // <compat>
  // The type of a record without decomposition: it matches no mask.
  UCDECOMPTYPE_None = 0xFF
};

// Property masks of the regular-expression classes and the bidi scans.
#define UCPROP_MASK(n) (1UL << (n))

extern "C" {

// The record of c, or null. The first query of any kind loads the file.
VOSYS_API const unsigned char* GetUCDATA(unsigned short c);
// Loads the file; does nothing after the first call, successful or not.
VOSYS_API void ReadUCData(void);
// The case partner if c is an upper-case letter (Lu), otherwise c.
VOSYS_API unsigned short uctolower(unsigned short c);
// The case partner if c is a lower-case letter (Ll), otherwise c.
VOSYS_API unsigned short uctoupper(unsigned short c);
// 1 if bit (category of c) is set in mask; 0 without a record. Only the low
// six bits of the stored number count, and numbers of 32 or more match nothing.
VOSYS_API int ucisprop(unsigned short c, unsigned long mask);
// The same for the bidi class; a unit below 32, or without a record, answers
// bit 0 of mask (class L).
VOSYS_API int ucisbidiprop(unsigned short c, unsigned long mask);
// The same for the decomposition type; 0 without a record.
VOSYS_API int ucisdecompprop(unsigned short c, unsigned long mask);

}  // extern "C"

// Field readers over a record from GetCharData or GetUCDATA.
class VOSYS_API UCDATA {
 public:
  static const unsigned char* GetCharData(unsigned short c);

  enum { kHeaderSize = 12 };
  static unsigned short Code(const unsigned char* r) { return Word(r, 0); }
  static unsigned short CaseMapping(const unsigned char* r) { return Word(r, 2); }
  static unsigned short VariantLink(const unsigned char* r) { return Word(r, 4); }
  static unsigned short NextVariant(const unsigned char* r) { return Word(r, 6); }
  static unsigned char Category(const unsigned char* r) { return r[8]; }
  static unsigned char BidiClass(const unsigned char* r) { return r[9]; }
  static unsigned char DecompTag(const unsigned char* r) { return r[10]; }
  static unsigned char SequenceLength(const unsigned char* r) { return r[11]; }
  static unsigned short SequenceUnit(const unsigned char* r, int i) {
    return Word(r, kHeaderSize + 2 * i);
  }

 private:
  static unsigned short Word(const unsigned char* r, int offset) {
    unsigned short w;
    memcpy(&w, r + offset, sizeof w);
    return w;
  }
};

#endif
