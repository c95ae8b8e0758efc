// Thai tone and vowel shifting for fonts without positioning rules: each
// mark that would collide with a tall consonant, or with a vowel above or
// below, is replaced by the font's alternative glyph that sits lower or
// further left. Two font conventions have their own codes for those glyphs.
#ifndef VOSYSTEM_THAI_H
#define VOSYSTEM_THAI_H

#include "vosystem/export.h"

// Flags of MucThaiShiftTonesAndVowels.
enum THAIFONT : int {
  THAIFONT_OF = 0,  // alternative glyphs right after the Thai block (U+0E60 on)
  THAIFONT_TTF = 2  // alternative glyphs in the private use area (U+F700 on)
};

extern "C" {

// The shifted text, in a buffer the library owns and reuses: valid until the
// next call, not to be freed, for one thread at a time. Tones typed before a
// vowel come out after it; sara am after a tall consonant becomes two units.
// An empty or null text, or no memory, gives an empty string.
VOSYS_API const unsigned short* MucThaiShiftTonesAndVowels(const unsigned short* text, int flags);

// 1 or 0: tone marks U+0E48 to U+0E4C; vowels above (U+0E31, U+0E34 to
// U+0E37, U+0E47, U+0E4D); vowels below (U+0E38, U+0E39); either vowel.
VOSYS_API int MucIsThaiTone(unsigned short c);
VOSYS_API int MucIsThaiUpperVowel(unsigned short c);
VOSYS_API int MucIsThaiLowerVowel(unsigned short c);
VOSYS_API int MucIsThaiVowel(unsigned short c);

}  // extern "C"

#endif
