// The complex-script functions on arbitrary UTF-16 text with the real
// character database: the bidirectional string in both orders and both
// base directions, a caret driven by the input, glyph directions and the
// flip, shaping, Indic reordering in every script and Thai shifting. Beyond
// staying in bounds: logical and visual text come back exactly as given,
// the caret never names a place outside the text, no result is longer than
// its function allows, and shaping with the positional forms alone gives
// what the walk of the whole chain gives.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <vector>

#include "vosystem/bidi.h"
#include "vosystem/glyphs.h"
#include "vosystem/indic.h"
#include "vosystem/thai.h"
#include "vosystem/ucdata.h"

namespace {

void Check(bool ok) {
  if (!ok) __builtin_trap();
}

size_t Length(const unsigned short* s) {
  size_t n = 0;
  while (s[n]) ++n;
  return n;
}

bool Same(const unsigned short* a, const std::vector<unsigned short>& b) {
  for (size_t i = 0; i < b.size(); ++i)
    if (a[i] != b[i]) return false;
  return true;
}

// A font that refuses every variant whose code has the chosen bit.
int Refuse(const unsigned char* record, void* bit) {
  return !(UCDATA::Code(record) & *static_cast<unsigned*>(bit));
}

void Bidi(const std::vector<unsigned short>& text, const uint8_t* steps, size_t nsteps) {
  const size_t n = text.size() - 1;
  for (int dir = 0; dir < 2; ++dir) {
    const auto direction = static_cast<BIDISTRING::DIRECTION>(dir);
    BIDISTRING b;
    Check(b.SetStringLogical(text.data(), direction, dir == 1) == 0);
    unsigned short* logical = b.GetStringLogical();
    unsigned short* visual = b.GetStringVisual();
    Check(logical && visual && Same(logical, text) && Length(visual) == n);
    Check(b.SetStringVisual(visual, direction) == 0);
    unsigned short* visual2 = b.GetStringVisual();
    Check(visual2 && Length(visual2) == n);
    for (size_t i = 0; i <= n; ++i) Check(visual2[i] == visual[i]);
    free(logical);
    free(visual);
    free(visual2);

    BIDICURSOR c(text.data(), direction);
    for (size_t i = 0; i < nsteps; ++i) {
      const unsigned count = steps[i] >> 3;
      c.SetCursorMotion(steps[i] & 1 ? BIDISTRING::ORDER_Logical : BIDISTRING::ORDER_Visual);
      switch (steps[i] >> 1 & 3) {
        case 0:
          c.CursorRight(count);
          break;
        case 1:
          c.CursorLeft(count);
          break;
        case 2:
          c.SetCursorPositionVisual(count);
          break;
        default:
          c.CursorRight(0);
          break;
      }
      Check(c.GetCursorPosition() <= n && c.GetCursorPositionVisual() <= n);
      c.GetCursorDirection();
    }
  }
}

void Glyphs(const std::vector<unsigned short>& text, int features) {
  const size_t n = text.size() - 1;
  std::vector<unsigned char> flags(text.size());
  for (size_t i = 0; i < n; ++i) MucGetGlyphDirection(text.data() + i, text[i] & 1, &flags[i]);
  MucHasRightToLeftTextUC(text.data());
  unsigned short* flipped = MucFlipVisualAndLogicalOrder(text.data());
  Check(flipped && Length(flipped) <= n);
  free(flipped);
  unsigned bit = 1u << (features & 15);
  for (GLYPHSUBSTCALLBACK callback : {static_cast<GLYPHSUBSTCALLBACK>(nullptr), Refuse}) {
    unsigned short* shaped = MucDoGlyphSubstitutions(text.data(), callback, &bit, features);
    Check(shaped && Length(shaped) <= n);
    free(shaped);
  }
  // The positional forms alone have a loop of their own, which must answer
  // as the walk of the whole chain (another feature forces it) does.
  unsigned short* alone =
      MucDoGlyphSubstitutions(text.data(), Refuse, &bit, GLYPHFEATURE_Contextual);
  unsigned short* whole = MucDoGlyphSubstitutions(text.data(), Refuse, &bit,
                                                  GLYPHFEATURE_Contextual | GLYPHFEATURE_Fraction);
  Check(alone && whole && Length(alone) == Length(whole) &&
        Same(alone, std::vector<unsigned short>(whole, whole + Length(whole) + 1)));
  free(alone);
  free(whole);
}

void Scripts(const std::vector<unsigned short>& text) {
  const long n = static_cast<long>(text.size() - 1);
  const SCRIPTTAG scripts[] = {SCRIPTTAG_Deva, SCRIPTTAG_Beng, SCRIPTTAG_Punj, SCRIPTTAG_Gujr,
                               SCRIPTTAG_Orya, SCRIPTTAG_Taml, SCRIPTTAG_Telu, SCRIPTTAG_Knda,
                               SCRIPTTAG_Mlym, 0x78787878};
  for (SCRIPTTAG script : scripts) {
    for (bool markReph : {false, true}) {
      unsigned short* out = nullptr;
      const long length = MucIndicGlyphSubstitutions(text.data(), &out, script, -1, markReph);
      // A vowel alone grows most: its three pieces and a dotted circle.
      Check(length >= 0 && length <= 4 * n && out && out[length] == 0);
      free(out);
    }
  }
  for (int flags : {THAIFONT_OF, THAIFONT_TTF}) {
    const unsigned short* shifted = MucThaiShiftTonesAndVowels(text.data(), flags);
    Check(shifted && Length(shifted) <= 2 * static_cast<size_t>(n));
  }
}

}  // namespace

// Without the data the bidi classes and the variant chains are all empty:
// fuzzing then would test little.
extern "C" int LLVMFuzzerInitialize(int*, char***) {
  if (!GetUCDATA(0x0627)) {
    fprintf(stderr, "fuzz_scripts: ucdata.ref not found; set VOSYS_DATA_DIR\n");
    exit(1);
  }
  return 0;
}

// The first byte chooses the shaping features, the next eight drive the
// caret; the rest is the text, two bytes a unit, cut at the first zero.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 9) return 0;
  const int features = data[0] | (data[0] & 0x80 ? 0x1F00 : 0);
  const uint8_t* steps = data + 1;
  std::vector<unsigned short> text;
  for (size_t i = 9; i + 1 < size; i += 2) {
    const unsigned short unit = static_cast<unsigned short>(data[i] | data[i + 1] << 8);
    if (!unit) break;
    text.push_back(unit);
  }
  text.push_back(0);
  Bidi(text, steps, 8);
  Glyphs(text, features);
  Scripts(text);
  return 0;
}
