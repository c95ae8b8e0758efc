// Glyph direction, right-to-left tests, the flip of right-to-left runs, and
// contextual glyph substitution (Arabic shaping).
//
// Substitution is driven by the character database, not by a table of
// presentation forms: each character's chain of variants (the records whose
// decomposition starts with it) says which forms exist and with what tag.
// Initial, medial, final and isolated forms (tags 1 to 4) are chosen by
// context; the other compatibility variants (tags 5 to 16) by feature bits.
// Ligatures, lam-alef among them, are variants whose decomposition is longer
// than one unit: they apply where the text spells them.
#ifndef VOSYSTEM_GLYPHS_H
#define VOSYSTEM_GLYPHS_H

#include "vosystem/export.h"

// Glyph flags of MucGetGlyphDirection, one byte per character.
enum GLYPHFLAG : unsigned char {
  GLYPHFLAG_RightToLeft = 0x01,
  GLYPHFLAG_Mark = 0x40,      // a mark that sits on its base (with RightToLeft: 0x41)
  GLYPHFLAG_NonJoiner = 0x80  // a letter that doesn't join onward (0x81)
};

// Feature bits of MucDoGlyphSubstitutions: which variant tags may be taken.
enum GLYPHFEATURE : int {
  GLYPHFEATURE_NoBreak = 0x1,     // tag 6
  GLYPHFEATURE_Circle = 0x2,      // tag 7
  GLYPHFEATURE_Font = 0x4,        // tag 5
  GLYPHFEATURE_Contextual = 0x8,  // tags 1 to 4: initial, medial, final, isolated
  GLYPHFEATURE_Super = 0x10,      // tag 8
  GLYPHFEATURE_Sub = 0x20,        // tag 9
  GLYPHFEATURE_Vertical = 0x40,   // tag 10
  GLYPHFEATURE_Wide = 0x80,       // tag 11
  GLYPHFEATURE_Narrow = 0x100,    // tag 12
  GLYPHFEATURE_Small = 0x200,     // tag 13
  GLYPHFEATURE_Square = 0x400,    // tag 14
  GLYPHFEATURE_Fraction = 0x800,  // tag 15
  GLYPHFEATURE_Compat = 0x1000    // tag 16
};

extern "C" {

// Asked for each variant that the context admits: non-zero if the font can
// show it. record is the variant's character record (UCDATA readers).
typedef int (*GLYPHSUBSTCALLBACK)(const unsigned char* record, void* userData);

// The direction of *text (0 left to right, 1 right to left) where direction
// is in force. White space in right-to-left text takes the direction of what
// follows it, looking past further spaces. flags, if not null, receives the
// glyph flags of *text, and of each space looked past at flags[1], ...
// Characters between the rows of the direction table leave flags alone.
VOSYS_API int MucGetGlyphDirection(const unsigned short* text, int direction, unsigned char* flags);
// 1 if some character of text is right to left in left-to-right text.
VOSYS_API int MucHasRightToLeftTextUC(const unsigned short* text);
// 1 if the internal-form text designates a Hebrew or Arabic charset (ESC
// followed by "-H", "-G" or "$G"); nothing else is looked at.
VOSYS_API int MucHasRightToLeftTextISO2022(const char* text);
// A new string (free it) with each right-to-left run reversed, spaces that
// trail a run left in place; the same call turns visual order into logical
// and back. Null for null, or without memory.
VOSYS_API unsigned short* MucFlipVisualAndLogicalOrder(const unsigned short* text);
// A new string (free it) with the variants substituted that features admit
// and callback accepts (all of them for a null callback). Never longer than
// text. Null for null, or without memory.
VOSYS_API unsigned short* MucDoGlyphSubstitutions(const unsigned short* text,
                                                  GLYPHSUBSTCALLBACK callback, void* userData,
                                                  int features);
// The category of the first character of text that isn't a non-spacing
// mark: 13 at the end of the text, 30 for a character without a record.
VOSYS_API int GetNextCategory(const unsigned short* text);
// True for the Arabic letters that never join the letter after them, as
// shaping decides a ligature's form: U+0622 to U+0624, U+0626, U+0627,
// U+0629, U+062F to U+0632, U+0648, U+0649.
VOSYS_API int IsArabicNonJoiner(unsigned short c);

}  // extern "C"

#endif
