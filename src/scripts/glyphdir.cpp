// Direction services: the direction of one glyph by a fixed range table, the
// tests for right-to-left text, and the flip of right-to-left runs.
//
// The range table is the library's own coarse map of scripts to directions,
// independent of the character database, so that these work without it. It
// is searched in order and left as soon as a row starts past the character;
// Latin-1 text in left-to-right context never searches it at all.
//
// White space in right-to-left context takes the direction of the character
// behind it. A run of spaces is walked in a loop, writing each space's flags
// on the way: no recursion, however long the run.
#include "vosystem/glyphs.h"

[[maybe_unused]] static const char s_ident[] = "@(#) glyphdir.cpp 1.0";

#include <cstdlib>
#include <cstring>

#include "foundation/errpos.h"
#include "text/ucstring_priv.h"
#include "vosystem/memfunc.h"

namespace {

// Classes of the rows; only white space is acted on.
enum : int { kClassWhiteSpace = 8 };
enum : int { kDirLTR = 0, kDirRTL = 1, kDirNeutral = 2 };

struct DIRRANGE {
  unsigned short low;
  unsigned short high;
  int dirClass;
  int direction;  // -1 ends the table
};

constexpr DIRRANGE UCDirRange[] = {
    {0x0001, 0x001A, 8, 0}, {0x0020, 0x0020, 8, 2}, {0x0023, 0x0025, 5, 2}, {0x0026, 0x0026, 1, 0},
    {0x002B, 0x002B, 5, 2}, {0x002C, 0x002C, 7, 2}, {0x002D, 0x002D, 5, 2}, {0x002E, 0x002F, 4, 2},
    {0x0030, 0x0039, 3, 2}, {0x003A, 0x003A, 7, 2}, {0x0040, 0x005A, 1, 0}, {0x0061, 0x007A, 1, 0},
    {0x00A0, 0x00A0, 8, 2}, {0x00A2, 0x00A5, 5, 2}, {0x00B0, 0x00B1, 5, 2}, {0x00B2, 0x00B3, 3, 2},
    {0x00B9, 0x00B9, 3, 2}, {0x00C0, 0x00D6, 1, 0}, {0x00D8, 0x00F6, 1, 0}, {0x00F8, 0x058F, 1, 0},
    {0x0590, 0x065F, 2, 1}, {0x0660, 0x0669, 6, 2}, {0x066A, 0x066A, 5, 2}, {0x066B, 0x066C, 6, 2},
    {0x066D, 0x06EF, 2, 1}, {0x06F0, 0x06F9, 3, 2}, {0x0900, 0x0E3A, 1, 0}, {0x0E3F, 0x0E3F, 5, 2},
    {0x0E40, 0x11FF, 1, 0}, {0x1E00, 0x1FFF, 1, 0}, {0x2000, 0x2006, 8, 2}, {0x2007, 0x2007, 4, 2},
    {0x2008, 0x200B, 8, 2}, {0x200E, 0x200E, 1, 0}, {0x200F, 0x200F, 2, 1}, {0x2032, 0x2033, 5, 2},
    {0x2070, 0x2070, 3, 2}, {0x2074, 0x2079, 3, 2}, {0x207A, 0x207B, 5, 2}, {0x2084, 0x2089, 3, 2},
    {0x208A, 0x208B, 5, 2}, {0x20A0, 0x20CF, 5, 2}, {0x20D0, 0x20FF, 1, 0}, {0x2160, 0x2182, 1, 0},
    {0x2212, 0x2213, 5, 2}, {0x3000, 0x3000, 8, 2}, {0x3040, 0x9FFF, 1, 0}, {0xFB1E, 0xFDFF, 2, 1},
    {0xFE70, 0xFEFE, 2, 1}, {0, 0, 0, -1}};

// The glyph flags of a right-to-left character.
unsigned char RtlFlags(unsigned short c) {
  if ((c >= 0x0622 && c <= 0x0625) || c == 0x0627 || (c >= 0x062F && c <= 0x0632) || c == 0x0648)
    return GLYPHFLAG_NonJoiner | GLYPHFLAG_RightToLeft;
  if ((c >= 0x064B && c <= 0x0652) || c == 0x0670 || (c >= 0x06D6 && c <= 0x06DC) ||
      (c >= 0x06DF && c <= 0x06E4) || c == 0x06E7 || c == 0x06E8 || (c >= 0x06EA && c <= 0x06ED))
    return GLYPHFLAG_Mark | GLYPHFLAG_RightToLeft;
  return GLYPHFLAG_RightToLeft;
}

// The row of c, or null (with *past set when c lies between rows, clear
// when the table ended).
const DIRRANGE* FindRow(unsigned short c, bool* past) {
  for (const DIRRANGE* row = UCDirRange; row->direction != -1; ++row) {
    if (row->low > c) {
      *past = true;
      return nullptr;
    }
    if (c <= row->high) return row;
  }
  *past = false;
  return nullptr;
}

bool IsSpaceRow(unsigned short c) {
  bool past = false;
  const DIRRANGE* row = FindRow(c, &past);
  return row && row->direction == kDirNeutral && row->dirClass == kClassWhiteSpace;
}

}  // namespace

extern "C" int MucGetGlyphDirection(const unsigned short* text, int direction,
                                    unsigned char* flags) {
  for (;; ++text) {
    const unsigned short c = *text;
    if (direction == kDirLTR && c < 256) {
      if (flags) *flags = 0;
      return kDirLTR;
    }
    bool past = false;
    const DIRRANGE* row = FindRow(c, &past);
    if (!row) {
      if (!past && flags) *flags = 0;
      return direction;
    }
    if (row->direction == kDirNeutral) {
      if (flags) *flags = 0;
      // Space in right-to-left text: the character behind decides.
      if (row->dirClass == kClassWhiteSpace && direction == kDirRTL && text[1]) {
        if (flags) ++flags;
        continue;
      }
      return direction;
    }
    if (flags) *flags = row->direction == kDirRTL ? RtlFlags(c) : 0;
    return row->direction;
  }
}

extern "C" int MucHasRightToLeftTextUC(const unsigned short* text) {
  if (!text) return 0;
  for (; *text; ++text)
    if (*text >= 0x0590 && MucGetGlyphDirection(text, kDirLTR, nullptr) == kDirRTL) return 1;
  return 0;
}

extern "C" int MucHasRightToLeftTextISO2022(const char* text) {
  if (!text) return 0;
  for (; *text; ++text) {
    if (*text != 0x1B || !text[1]) continue;
    if ((text[1] == '-' && (text[2] == 'H' || text[2] == 'G')) ||
        (text[1] == '$' && text[2] == 'G'))
      return 1;
  }
  return 0;
}

extern "C" unsigned short* MucFlipVisualAndLogicalOrder(const unsigned short* text) {
  if (!text) return nullptr;
  const size_t n = UcLength(text);
  unsigned short* out = nullptr;
  if (MmAlloc(&out, static_cast<unsigned long>((n + 1) * sizeof(unsigned short))) < 0)
    return nullptr;
  memcpy(out, text, (n + 1) * sizeof(unsigned short));
  // The open run: [runStart, last], last its last character that isn't a
  // space; spaces behind it stay where they are.
  size_t runStart = 0, last = 0;
  bool open = false;
  auto close = [&]() {
    for (size_t k = runStart; k <= last; ++k) out[k] = text[last - (k - runStart)];
    open = false;
  };
  int direction = kDirLTR;
  for (size_t i = 0; i < n; ++i) {
    direction = MucGetGlyphDirection(text + i, direction, nullptr);
    const bool space = IsSpaceRow(text[i]);
    if (direction == kDirRTL) {
      if (!open) {
        open = true;
        runStart = last = i;
      }
      if (!space) last = i;
    } else if (open && !space) {
      close();
    }
  }
  if (open) close();
  return out;
}
