// Indic reordering: logical-order text of nine Indic scripts put in the
// order in which a renderer draws the glyphs. Pre-base vowels go in front of
// their consonant cluster, reph to its script's place, split vowels into
// their pieces, and a dotted circle (U+25CC) under marks that have no base.
// Text to text; fonts are no concern here.
//
// Each script has a table with one class word (CHARCLASS) per code point of
// its block: the character's role in the low 16 bits, its forms and the
// place of a dependent vowel in the high bits. The tables are generated at
// build time from Unicode's IndicSyllabicCategory.txt and
// IndicPositionalCategory.txt (tools/mkindic.py says how).
#ifndef VOSYSTEM_INDIC_H
#define VOSYSTEM_INDIC_H

#include "vosystem/export.h"

// Four characters, the first in the top byte: 0x64657661 is "deva".
typedef unsigned int SCRIPTTAG;
enum : SCRIPTTAG {
  SCRIPTTAG_Deva = 0x64657661,  // Devanagari
  SCRIPTTAG_Beng = 0x62656E67,  // Bengali
  SCRIPTTAG_Punj = 0x70756E6A,  // Gurmukhi
  SCRIPTTAG_Gujr = 0x67756A72,  // Gujarati
  SCRIPTTAG_Orya = 0x6F727961,  // Oriya
  SCRIPTTAG_Taml = 0x74616D6C,  // Tamil
  SCRIPTTAG_Telu = 0x74656C75,  // Telugu
  SCRIPTTAG_Knda = 0x6B6E6461,  // Kannada
  SCRIPTTAG_Mlym = 0x6D6C796D   // Malayalam
};

// Class word of one character: CHARCLASS_Class bits are the role, the others
// flags.
typedef unsigned int CHARCLASS;
enum : CHARCLASS {
  CHARCLASS_Reserved = 0,    // no Indic role
  CHARCLASS_MarkAbove = 1,   // modifying mark above (candrabindu, anusvara)
  CHARCLASS_MarkAfter = 2,   // modifying mark after (visarga)
  CHARCLASS_VowelIndep = 3,  // independent vowel
  CHARCLASS_Consonant = 4,
  CHARCLASS_ConsonantNukta = 5,  // consonant with nukta
  CHARCLASS_Nukta = 6,
  CHARCLASS_VowelDep = 7,  // dependent vowel (matra)
  CHARCLASS_Virama = 8,
  CHARCLASS_ZeroWidth = 9,  // zero-width mark: U+200C
  CHARCLASS_Class = 0x0000FFFF,

  CHARCLASS_IsConsonant = 0x80000000,
  CHARCLASS_Reph = 0x40000000,       // becomes reph in front of a virama
  CHARCLASS_Vattu = 0x20000000,      // has a vattu form
  CHARCLASS_BelowBase = 0x10000000,  // has a below-base form
  CHARCLASS_PostBase = 0x08000000,   // has a post-base form
  CHARCLASS_MatraPre = 0x04000000,   // dependent vowel written before the base
  CHARCLASS_MatraBelow = 0x02000000,
  CHARCLASS_MatraAbove = 0x01000000,
  CHARCLASS_MatraPost = 0x00800000,
  CHARCLASS_LengthMark = 0x00400000,
  CHARCLASS_SplitRow = 0x000F0000,  // split vowel: its row, from 1, in the split table
  CHARCLASS_SplitShift = 16
};

// The class table of one script.
struct INDICCLASSTABLE {
  // scriptFlags.
  enum : unsigned int {
    SCRIPT_MatrasAfterBase = 0x80000000,  // below, above and post vowels right after the base
    SCRIPT_RephAfterBelow = 0x40000000,   // reph and marks above before the post-base consonants
    SCRIPT_Eyelash = 0x20000000,          // ra, virama, U+200C is the eyelash form
    SCRIPT_MatraPreFixup = 0x10000000,    // pre-base vowels move to the last consonant
    SCRIPT_PostBaseLimit = 0x0000FFFF     // consonants the base search may pass
  };

  unsigned short firstChar;
  unsigned short lastChar;  // inclusive
  unsigned int scriptFlags;
  const CHARCLASS* classTable;  // lastChar - firstChar + 1 words
  // Rows of three units, 0 after a shorter row's last; null without split vowels.
  const unsigned short (*splitTable)[3];

  // U+200C is a zero-width mark and counts as a consonant; other characters
  // outside the block have no role.
  CHARCLASS GetCharClass(unsigned short c) const {
    if (c == 0x200C) return CHARCLASS_IsConsonant | CHARCLASS_ZeroWidth;
    return c >= firstChar && c <= lastChar ? classTable[c - firstChar] : CHARCLASS_Reserved;
  }
};

extern "C" {

// The table of a script, or null for a tag without one.
VOSYS_API const INDICCLASSTABLE* GetScriptClassTable(SCRIPTTAG script);

// Reorders text[0, length) (length < 0: to its terminator) for drawing in
// script (0: Devanagari). *result gets a new zero-terminated text to free();
// the result is its length in units. With markReph, a reph's ra is written
// with the low six bits of its code cleared (U+0930 as U+0900), for fonts
// that draw reph from a code of its own. A script without a table gives a
// plain copy. -1213 for a null text or result, -1015 without memory.
VOSYS_API long MucIndicGlyphSubstitutions(const unsigned short* text, unsigned short** result,
                                          SCRIPTTAG script, long length, bool markReph);

}  // extern "C"

#endif
