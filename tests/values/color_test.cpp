// Colours: every 8-bit value through every packed form and back, the
// scaled setters against their formula, the flags word, the serial text,
// and the colour type code of the settings.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <random>

#include "settings/ini_test_util.h"
#include "vosystem/color.h"
#include "vosystem/errors.h"
#include "vosystem/inifuncs.h"

namespace {

struct FORM {
  COLORSPACE space;
  const char* order;  // what each byte holds: R G B A(opacity) C M Y K X(untouched)
};

const FORM kByteForms[] = {
    {COLORSPACE_RGB_24, "RGB"},   {COLORSPACE_BGR_24, "BGR"},   {COLORSPACE_RGBX_32, "RGBX"},
    {COLORSPACE_XRGB_32, "XRGB"}, {COLORSPACE_BGRX_32, "BGRX"}, {COLORSPACE_XBGR_32, "XBGR"},
    {COLORSPACE_RGBA_32, "RGBA"}, {COLORSPACE_ARGB_32, "ARGB"}, {COLORSPACE_BGRA_32, "BGRA"},
    {COLORSPACE_ABGR_32, "ABGR"}, {COLORSPACE_CMY_24, "CMY"},   {COLORSPACE_CMYX_32, "CMYX"},
    {COLORSPACE_XCMY_32, "XCMY"}, {COLORSPACE_CMYK_32, "CMYK"}, {COLORSPACE_KCMY_32, "KCMY"}};

// The byte of one letter for 8-bit r, g, b and opacity a, worked out here.
int ByteOf(char what, int r, int g, int b, int a) {
  const int k = 255 - std::max(r, std::max(g, b));
  const int bytes[] = {r, g, b, a, 255 - k - r, 255 - k - g, 255 - k - b, k};
  static const char kLetters[] = "RGBACMYK";
  const char* at = strchr(kLetters, what);
  return at ? bytes[at - kLetters] : -1;
}

}  // namespace

// Each byte of each form takes every value while the others vary with it;
// the forms with K, which hold one of many inks for a colour, start from
// every value of each of R, G and B instead.
TEST(Color, EveryByteValueGoesThroughEveryPackedFormAndBack) {
  for (const FORM& form : kByteForms) {
    const int n = static_cast<int>(strlen(form.order));
    const bool black = strchr(form.order, 'K') != nullptr;
    for (int pos = 0; pos < (black ? 3 : n); ++pos) {
      for (int v = 0; v < 256; ++v) {
        unsigned char in[4], out[4];
        COLOR c;
        if (black) {
          unsigned char rgb[3];
          for (int i = 0; i < 3; ++i)
            rgb[i] = static_cast<unsigned char>(i == pos ? v : v * 37 + 11 * i);
          c.SetByColorSpace(COLORSPACE_RGB_24, rgb);
          ASSERT_EQ(c.GetByColorSpace(form.space, in), 0);
          for (int i = 0; i < n; ++i)
            ASSERT_EQ(in[i], ByteOf(form.order[i], rgb[0], rgb[1], rgb[2], 255)) << form.order;
          c = COLOR();
        } else {
          for (int i = 0; i < n; ++i)
            in[i] = static_cast<unsigned char>(i == pos ? v : v * 37 + 11 * i);
        }
        ASSERT_EQ(c.SetByColorSpace(form.space, in), 0);
        ASSERT_TRUE(c.HasValue());
        memset(out, 0xA5, sizeof out);
        ASSERT_EQ(c.GetByColorSpace(form.space, out), 0);
        for (int i = 0; i < 4; ++i) {
          if (i >= n || form.order[i] == 'X') {
            ASSERT_EQ(out[i], 0xA5) << form.order;  // never touched
          } else {
            ASSERT_EQ(out[i], in[i]) << form.order << " byte " << i << " value " << v;
          }
        }
        // The same colour in the plain form, and each byte from it.
        unsigned char rgba[4];
        c.GetByColorSpace(COLORSPACE_RGBA_32, rgba);
        for (int i = 0; i < n; ++i) {
          const char what = form.order[i];
          if (what == 'X') continue;
          const int want = black || !strchr("CMY", what)
                               ? ByteOf(what, rgba[0], rgba[1], rgba[2], rgba[3])
                               : 255 - rgba[strchr("CMY", what) - "CMY"];
          ASSERT_EQ(out[i], want) << form.order;
        }
        if (!strchr(form.order, 'A')) {
          ASSERT_EQ(c.GetOpacity(), 255);
        }
        ASSERT_EQ(c.GetRed(), rgba[0] * 257);  // 8 bits spread over 16
      }
    }
  }
}

TEST(Color, PackedWordsAndColorRefsRoundTrip) {
  for (uint32_t w = 0; w < 0x10000; ++w) {
    for (COLORSPACE s : {COLORSPACE_RGB_555, COLORSPACE_BGR_555}) {
      const unsigned short in = static_cast<unsigned short>(w);
      unsigned short out = 0;
      COLOR c;
      ASSERT_EQ(c.SetByColorSpace(s, &in), 0);
      ASSERT_EQ(c.GetByColorSpace(s, &out), 0);
      ASSERT_EQ(out, in & 0x7FFF);
      const int first = in >> 10 & 31;
      ASSERT_EQ(s == COLORSPACE_RGB_555 ? c.GetRed() : c.GetBlue(), (first * 65535 + 15) / 31);
    }
  }
  for (uint32_t packed = 0; packed < 0x1000000; ++packed) {
    COLOR c(static_cast<unsigned long>(packed));
    ASSERT_EQ(c.GetColorRef(), packed);
    ASSERT_EQ(c.GetRed(), (packed & 0xFF) << 8);  // the high byte, the low one 0
  }
  std::mt19937 rng(4);
  for (int i = 0; i < 10000; ++i) {
    const unsigned short in[3] = {static_cast<unsigned short>(rng()),
                                  static_cast<unsigned short>(rng()),
                                  static_cast<unsigned short>(rng())};
    unsigned char buf[7] = {};
    COLOR c;
    ASSERT_EQ(c.SetByColorSpace(COLORSPACE_RGB_48, in), 0);
    ASSERT_EQ(c.GetByColorSpace(COLORSPACE_RGB_48, buf + 1), 0);  // no alignment needed
    ASSERT_EQ(memcmp(buf + 1, in, 6), 0);
  }
  COLOR c(1, 2, 3);
  unsigned char buf[8] = {};
  ClearLastErr();
  EXPECT_EQ(c.GetByColorSpace(static_cast<COLORSPACE>(7), buf), -1213);
  EXPECT_EQ(GetLastErrCode(), -1213);
  EXPECT_EQ(c.SetByColorSpace(static_cast<COLORSPACE>(301), buf), -1213);
  EXPECT_EQ(c.GetRed(), 1);
  EXPECT_EQ(c.SetByColorSpace(COLORSPACE_RGB_24, nullptr), -1213);
}

TEST(Color, ScaledSettersFollowTheirFormula) {
  for (int max : {1, 3, 31, 100, 255, 256, 1000, 65535}) {
    for (int v = -2; v <= max + 2; v += max > 1000 ? 97 : 1) {
      COLOR c;
      c.SetRGB(v, 0, 0, max);
      const int clamped = v < 0 ? 0 : v > max ? max : v;
      ASSERT_EQ(c.GetRed(),
                static_cast<unsigned>((static_cast<uint32_t>(clamped) * 65535u + max / 2) / max));
      ASSERT_EQ(c.GetRed(static_cast<unsigned short>(max)), clamped);  // scaling back is exact
    }
  }
  COLOR c;
  c.SetRGB(128, 0, 300, 255);
  EXPECT_TRUE(c.GetRed() == 32896 && c.GetBlue() == 65535 && c.GetGreen() == 0);
  const COLOR before = c;
  c.SetRGB(1, 2, 3, 0);
  c.SetRGB(1, 2, 3, 70000);
  EXPECT_TRUE(c.IsEqualTo(before) && c.GetRed() == 32896);
  c.SetCMY(0, 255, 255, 255);
  EXPECT_EQ(c.GetColorRef(), 0x0000FFu);
  c.SetCMYK(0, 0, 0, 128, 255);
  EXPECT_EQ(c.GetColorRef(), 0x7F7F7Fu);
  c.SetCMY(INT32_MIN, INT32_MAX, 5, INT32_MAX);  // no overflow on the way
  unsigned char cmyk[4];
  COLOR(0x0000FFul).GetByColorSpace(COLORSPACE_CMYK_32, cmyk);
  EXPECT_TRUE(cmyk[0] == 0 && cmyk[1] == 255 && cmyk[2] == 255 && cmyk[3] == 0);
  COLOR(0x7F7F7Ful).GetByColorSpace(COLORSPACE_CMYK_32, cmyk);
  EXPECT_TRUE(cmyk[0] == 0 && cmyk[1] == 0 && cmyk[2] == 0 && cmyk[3] == 128);
  COLOR a(0, 1000, 65535), b(65535, 0, 65535);
  a.Blend(b, 64);
  EXPECT_TRUE(a.GetRed() == 16383 && a.GetGreen() == 750 && a.GetBlue() == 65535);
}

TEST(Color, FlagsWord) {
  EXPECT_FALSE(COLOR().HasValue());
  EXPECT_TRUE(COLOR(0, 0, 0).HasValue());
  EXPECT_TRUE(COLOR(COLOR::NAME_Black).HasValue());
  EXPECT_EQ(COLOR(COLOR::NAME_Brown).GetRedByte(), 0xA5);
  EXPECT_EQ(COLOR(COLOR::NAME_Brown).GetBlueByte(), 0x2A);
  EXPECT_EQ(COLOR(COLOR::NAME_Purple).GetBlueByte(), 0xF0);
  COLOR c(1, 2, 3);
  c.SetTransparency(40);
  EXPECT_TRUE(c.HasTransparency() && c.GetTransparency() == 40 && c.GetOpacity() == 215);
  c.SetTransparency(255);
  EXPECT_TRUE(c.IsInvisible() && c.GetOpacity() == 0);
  c.SetOpacity(200);
  c.SerialSetString("1 2 3 8");  // bit 3: invisible whatever the high byte
  EXPECT_TRUE(c.IsInvisible() && c.GetTransparency() == 255 && c.GetOpacity() == 0);
  c.SetReserved(true);
  c.SetIsICMCorrected(true);
  EXPECT_TRUE(c.IsReserved() && c.IsICMCorrected());
  // Model mode: the low bits are a model number, the marks mean nothing.
  COLOR m;
  EXPECT_EQ(m.SerialSetString("513 3 0 33153"), 4);  // 0x8181: model 1, transparency 0x81
  EXPECT_EQ(m.GetColorModel(), 1);
  EXPECT_TRUE(m.IsICMCorrected() && !m.IsReserved() && !m.IsInvisible());
  m.SetReserved(true);
  m.SetIsICMCorrected(false);
  EXPECT_EQ(m.GetFlags(), 0x8181);
  unsigned char cmy[3];
  m.GetByColorSpace(COLORSPACE_CMY_24, cmy);  // the colour's own first three bytes
  EXPECT_TRUE(cmy[0] == 1 && cmy[1] == 2 && cmy[2] == 3);
  COLOR same = m;
  same.SetRGB(m);  // leaves model mode: the low flag byte goes
  EXPECT_EQ(same.GetFlags(), 0x8101);
  EXPECT_FALSE(same.IsEqualTo(m));
  COLOR scaled = m;
  scaled.SetRGB(1, 1, 1, 255);
  EXPECT_EQ(scaled.GetFlags(), 0x8101);  // bit 7 cleared, the rest kept
  COLOR kept = m;
  kept.Blend(COLOR(), 0);
  EXPECT_TRUE(kept.GetRed() == m.GetRed() && kept.GetFlags() == 0x8101);
  // Equality looks at the flags that mean something.
  COLOR x(5, 6, 7), y(5, 6, 7);
  y.SerialSetString("5 6 7 22");  // bits 1, 2, 4 besides bit 0
  EXPECT_TRUE(x.IsEqualTo(y));
  EXPECT_FALSE(x.IsEqualNoTransp(y));  // bit 2 counts there
  y = x;
  y.SetTransparency(9);
  EXPECT_TRUE(x.IsEqualNoTransp(y) && !x.IsEqualTo(y));
  COLOR v;
  v.SerialSetString("0 0 0 65535");
  v.Validate();
  EXPECT_EQ(v.GetFlags(), 1);
  v = COLOR::NAME_Orange;
  EXPECT_EQ(v.GetColorRef(), 0x00A5FFu);
  v.Clear();
  EXPECT_FALSE(v.HasValue());
}

TEST(Color, SerialTextRoundTripsAndReadsLikeScanf) {
  std::mt19937 rng(9);
  for (int i = 0; i < 100000; ++i) {
    COLOR c;
    char text[24];
    const unsigned flags = (static_cast<unsigned>(rng()) & 0xFF7F) | 1;  // outside model mode
    const unsigned r = rng() & 0xFFFF, g = rng() & 0xFFFF, b = rng() & 0xFFFF;
    snprintf(text, sizeof text, "%u %u %u %u", r, g, b, flags);
    ASSERT_EQ(c.SerialSetString(text), 4);
    char back[24];
    ASSERT_EQ(c.SerialGetString(back), back);
    COLOR d;
    ASSERT_EQ(d.SerialSetString(back), 4);
    ASSERT_TRUE(d.IsEqualTo(c)) << text << " / " << back;
    unsigned r2, g2, b2, f;
    ASSERT_EQ(sscanf(back, "%u %u %u %u", &r2, &g2, &b2, &f), 4);
    ASSERT_TRUE(r2 == r && g2 == g && b2 == b && f == (flags & 0xFFE8)) << back;
  }
  COLOR c;
  EXPECT_EQ(c.SerialSetString("65535 0 0"), 3);
  EXPECT_TRUE(c.GetRed() == 65535 && c.GetFlags() == 1 && c.GetOpacity() == 255);
  EXPECT_EQ(c.SerialSetString(" 1\t2\n3 4 5"), 4);
  EXPECT_EQ(c.GetBlue(), 3);
  EXPECT_EQ(c.SerialSetString("70000 -1 99999999999 65537"), 4);  // the low 16 bits
  EXPECT_TRUE(c.GetRed() == 4464 && c.GetGreen() == 65535 && c.GetBlue() == 65535 &&
              c.GetFlags() == 1);
  EXPECT_EQ(c.SerialSetString("1 2"), 2);
  EXPECT_EQ(c.GetRed(), 4464);  // unchanged
  EXPECT_EQ(c.SerialSetString(""), 0);
  EXPECT_EQ(c.SerialSetString(nullptr), 0);
  char longest[24];
  COLOR(65535, 65535, 65535).SerialGetString(longest);
  EXPECT_STREQ(longest, "65535 65535 65535 0");
}

TEST(Color, SettingsStoreTheComponentsThroughTheColour) {
  void* h = MemoryStore("");
  COLOR c(65535, 12, 32768);
  c.SetTransparency(7);
  ASSERT_EQ(IniWrite(h, "g", "c", INITYPE_Color, &c, 1), 0);
  EXPECT_EQ(Get(h, "g", "c"), "65535 12 32768");
  COLOR back;
  back.SetTransparency(3);
  EXPECT_EQ(_iniRead(h, "g", "c", INITYPE_Color, &back, 1), 1);
  EXPECT_TRUE(back.GetRed() == 65535 && back.GetGreen() == 12 && back.GetBlue() == 32768);
  EXPECT_TRUE(back.HasValue() && back.GetTransparency() == 3);  // the flags are the reader's
  IniClose(h);
}
