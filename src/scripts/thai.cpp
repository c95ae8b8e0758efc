// Thai tone and vowel shifting: one pass with two characters of memory
// behind (prev, prevPrev, as read) and one ahead.
//
// A tone typed before a vowel is handled after it, so that the vowel's
// glyph is known when the tone's is chosen: the pair is read in swapped
// order. Each mark's glyph then depends on the consonant under it (tall ones
// reach into the space above, descending ones into the space below) and on
// whether a vowel already takes the space. The result goes into one static
// buffer, grown to twice the text (sara am is the one character that
// becomes two) and kept for the process.
#include "vosystem/thai.h"

[[maybe_unused]] static const char s_ident[] = "@(#) thai.cpp 1.0";

#include <cstdlib>

#include "text/ucstring_priv.h"

namespace {

constexpr unsigned short kSaraAm = 0x0E33;
constexpr unsigned short kSaraAa = 0x0E32;
constexpr unsigned short kYoYing = 0x0E0D;

bool Tone(unsigned short c) {
  return c >= 0x0E48 && c <= 0x0E4C;
}
bool UpperVowel(unsigned short c) {
  return c == 0x0E31 || (c >= 0x0E34 && c <= 0x0E37) || c == 0x0E47 || c == 0x0E4D;
}
bool LowerVowel(unsigned short c) {
  return c == 0x0E38 || c == 0x0E39;
}
bool Tall(unsigned short c) {
  return c == 0x0E1B || c == 0x0E1D || c == 0x0E1F;
}
bool Descending(unsigned short c) {
  return (c >= 0x0E0D && c <= 0x0E10) || c == 0x0E24 || c == 0x0E26;
}

// The glyph operations of the two conventions, on 16-bit values.
struct GLYPHS {
  bool ttf;

  unsigned short Shift(unsigned short c, int of, int ttfDelta) const {
    return static_cast<unsigned short>(c + (ttf ? ttfDelta : of));
  }
  unsigned short ThaiToneToLowerCenteredTone(unsigned short c) const { return Shift(c, 24, -5955); }
  unsigned short ThaiToneToLowerTone(unsigned short c) const { return Shift(c, 29, -5950); }
  unsigned short ThaiToneToUpperCenteredTone(unsigned short c) const { return Shift(c, 34, -5941); }
  unsigned short ThaiUpperVowelToCenteredVowel(unsigned short c) const {
    if (!ttf) return c == 0x0E31 ? 0x0E75 : Shift(c, 66, 0);
    if (c == 0x0E31) return 0xF710;
    if (c == 0x0E47) return 0xF712;
    if (c == 0x0E4D) return 0xF711;
    return Shift(c, 0, -5939);
  }
  unsigned short ThaiLowerVowelToBottomVowel(unsigned short c) const { return Shift(c, 68, -5920); }
  unsigned short SaraAmTop() const { return ttf ? 0xF711 : 0x0E7E; }
};

unsigned short s_empty[1] = {0};
unsigned short* convstr = nullptr;
size_t convsize = 0;  // units

}  // namespace

extern "C" int MucIsThaiTone(unsigned short c) {
  return Tone(c);
}
extern "C" int MucIsThaiUpperVowel(unsigned short c) {
  return UpperVowel(c);
}
extern "C" int MucIsThaiLowerVowel(unsigned short c) {
  return LowerVowel(c);
}
extern "C" int MucIsThaiVowel(unsigned short c) {
  return UpperVowel(c) || LowerVowel(c);
}

extern "C" const unsigned short* MucThaiShiftTonesAndVowels(const unsigned short* text, int flags) {
  if (!text || !*text) return s_empty;
  const size_t n = UcLength(text);
  if (n > static_cast<size_t>(-1) / 4 - 1) return s_empty;
  if ((n + 1) * 2 > convsize) {
    // Nothing recorded: a caller of this function has no code to look at.
    auto* grown = static_cast<unsigned short*>(malloc((n + 1) * 2 * sizeof(unsigned short)));
    if (!grown) return s_empty;
    free(convstr);
    convstr = grown;
    convsize = (n + 1) * 2;
  }
  const GLYPHS glyphs{(flags & THAIFONT_TTF) != 0};
  unsigned short* out = convstr;
  unsigned short prev = 0, prevPrev = 0;
  unsigned short pending = 0;  // a tone read early, due in place of text[i]
  for (size_t i = 0; i <= n; ++i) {
    unsigned short c = pending ? pending : text[i];
    unsigned short next = i < n ? text[i + 1] : 0;
    pending = 0;
    // A tone before a vowel: the vowel now, with the tone as what follows
    // it, and the tone on the next round.
    if (Tone(c) && (UpperVowel(next) || LowerVowel(next))) {
      pending = c;
      c = next;
      next = pending;
    }
    const unsigned short read = c;
    if (Tone(c)) {
      if (UpperVowel(prev)) {
        if (Tall(prevPrev)) c = glyphs.ThaiToneToUpperCenteredTone(c);
      } else if (LowerVowel(prev)) {
        c = Tall(prevPrev) ? glyphs.ThaiToneToLowerCenteredTone(c) : glyphs.ThaiToneToLowerTone(c);
      } else if (next == kSaraAm) {
        if (Tall(prev)) c = glyphs.ThaiToneToUpperCenteredTone(c);
      } else {
        c = Tall(prev) ? glyphs.ThaiToneToLowerCenteredTone(c) : glyphs.ThaiToneToLowerTone(c);
      }
    }
    if (UpperVowel(c) && Tall(prev)) c = glyphs.ThaiUpperVowelToCenteredVowel(c);
    if (LowerVowel(c)) {
      if (glyphs.ttf && prev == kYoYing && out > convstr)
        out[-1] = 0xF70F;  // yo ying without its tail
      else if (Descending(prev))
        c = glyphs.ThaiLowerVowelToBottomVowel(c);
    }
    if (c == kSaraAm && ((Tone(prev) && Tall(prevPrev)) || Tall(prev))) {
      *out++ = glyphs.SaraAmTop();
      c = kSaraAa;
    }
    *out++ = c;
    prevPrev = prev;
    prev = read;
  }
  return convstr;
}
