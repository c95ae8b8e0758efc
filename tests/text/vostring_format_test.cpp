// The string as a format template (operator<<, Fmt settings, FillSubs) and
// Sprintf. Numbers are checked against snprintf and std::to_chars.
#include <gtest/gtest.h>

#include <cfloat>
#include <charconv>
#include <climits>
#include <clocale>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <random>
#include <string>

#include "test_util.h"
#include "vosystem/textres.h"
#include "vosystem/vostring.h"

namespace {

const unsigned short* UC(const std::u16string& s) {
  return reinterpret_cast<const unsigned short*>(s.c_str());
}

// The template with the values (and manipulators) inserted in turn.
template <typename... V>
std::string Filled(const char* tmpl, V... values) {
  VOSTRING s(tmpl);
  (s << ... << values);
  return U8(s);
}

TEST(VostringFormat, AppendsWithoutPlaceholders) {
  VOSTRING s;
  s << 5 << " apples" << ' ' << 2.5 << u"|" << VOSTRING("v") << static_cast<unsigned short>(65);
  EXPECT_EQ(U8(s), "5 apples 2.500000|v65");  // fixed is the default float format
  VOSTRING t;
  t << static_cast<const char*>(nullptr) << static_cast<const unsigned short*>(nullptr) << '\0';
  EXPECT_TRUE(t.IsEmpty());
}

TEST(VostringFormat, PlaceholdersMatchByTypeOrNumber) {
  EXPECT_EQ(Filled("%d and %s", "x", 7), "7 and x");
  EXPECT_EQ(Filled("%c|%s|%f", "ab", 'z', 1.5), "z|ab|1.500000");  // "ab" passes over %c
  EXPECT_EQ(Filled("100%% of %d", 5), "100%% of 5");
  EXPECT_EQ(Filled("%z %5", 1), "%z %51");  // not placeholders, nor is a "%" at the very end
  EXPECT_EQ(Filled("$2 before $1", "x", 2), "2 before x");
  EXPECT_EQ(Filled("$1 $0 $1000 $ $x", 'a', "b", 3), "b a $1000 $ $x3");
  EXPECT_EQ(Filled("$1-$1-$001", 1, 2, 3), "1-2-3");  // equal numbers: the first wins
  EXPECT_EQ(Filled("%s $1", "p", "q"), "p q");        // "%" slots of the right type come first
  VOSTRING e("%s%d");                                 // bool and TEXTID are string values
  e << 3 << true;
  EXPECT_EQ(U16(e), U16(TEXTRES::GetString(9500)) + u"3");
}

TEST(VostringFormat, PlaceholderFlags) {
  EXPECT_EQ(Filled("%5.2f", 3.14159), " 3.14");
  EXPECT_EQ(Filled("%-5d", 42), "   42");  // signed decimals ignore alignment
  EXPECT_EQ(Filled("%-5u", 42u), "42   ");
  EXPECT_EQ(Filled("%5s|%-5s", "ab", "cd"), "   ab|cd   ");
  EXPECT_EQ(Filled("%+05d|%+d", -42, 42), "-0042|+42");
  EXPECT_EQ(Filled("%x|%lo", 255, 8), "FF|10");
  EXPECT_EQ(Filled("%.2e", 1234.5), "1.23E+03");  // the exponent letter is always upper case
  EXPECT_EQ(Filled("%g|%3c", 0.0001, 'q'), "0.0001|  q");
}

TEST(VostringFormat, ScanPositionsFollowEdits) {
  EXPECT_EQ(Filled("[%s]", "%d", 5), "[5]");  // inserted text can hold the next placeholder
  VOSTRING b("x %d %d");
  b << 1;
  b.Insert(0, VOSTRING("%d "));  // before the scan position: found again
  b << 2 << 3;
  EXPECT_EQ(U8(b), "2 x 1 3");
  VOSTRING c("$1 $2");
  c << 'a';
  c.Remove(0, 1);
  c << STR_CLEAR << "$1" << 'x' << 'y';
  EXPECT_EQ(U8(c), "xy");
  VOSTRING d("%d"), e(d);  // a copy edits its own body
  e << 4;
  EXPECT_EQ(U8(d), "%d");
  e << e;
  EXPECT_EQ(U8(e), "44");
}

TEST(VostringFormat, PersistentAndCurrentSettings) {
  // Width lasts one value, fill persists; neither a "%" slot nor a disabled
  // one uses up the caller's width.
  EXPECT_EQ(Filled("", STR_FILL_ZERO, STR_WIDTH4, 7u, 8u, STR_WIDTH3, 9), "00078009");
  EXPECT_EQ(Filled("%s|", STR_WIDTH4, "a", "b"), "a|b   ");
  VOSTRING d("%d ");
  d.FmtEnableSubstitution(false) << STR_WIDTH3 << 1u << 2u;
  EXPECT_EQ(U8(d), "%d   1  2");
  // The placeholder's base applies to it only.
  VOSTRING b("%d,");
  b.FmtSetBase(16) << 255 << 255;
  EXPECT_EQ(U8(b), "255,FF");
  // Bases 1 and 37 and an unknown operator are ignored.
  VOSTRING e;
  e.FmtSetBase(1).FmtSetBase(37).FmtSetSign(true) << 10 << STR_ALIGN_LEFT << STR_WIDTH4 << 1u;
  e << STR_ALIGN_RIGHT << STR_WIDTH3 << "z" << static_cast<STR_OP>(63) << STR_PREC2 << 1.0;
  EXPECT_EQ(U8(e), "+101     z+1.00");
  EXPECT_EQ(Filled("", STR_BASE16, -1, ' ', STR_BASE2, short{5}), "FFFFFFFF 101");
  EXPECT_EQ(Filled("", STR_BASE16, STR_WIDTH4, STR_FILL_ZERO, 255), "00FF");  // width survives
}

TEST(VostringFormat, BasesMatchToChars) {
  std::mt19937 rng(7);
  for (int base = 2; base <= 36; ++base) {
    for (int i = 0; i < 20; ++i) {
      uint32_t v = i == 0 ? 0 : i == 1 ? UINT32_MAX : rng() >> (rng() % 32);
      char buf[40];
      auto end = std::to_chars(buf, buf + sizeof buf, v, base).ptr;
      std::string expected(buf, end);
      for (char& ch : expected) ch = static_cast<char>(toupper(ch));
      VOSTRING s;
      s.FmtSetBase(base) << v;
      ASSERT_EQ(U8(s), expected) << "base " << base;
    }
  }
}

// Integers of 32 bits follow the base; wider values that don't fit go in
// decimal, through a double, whatever the base or placeholder.
TEST(VostringFormat, IntegersBeyondThirtyTwoBitsGoDecimal) {
  EXPECT_EQ(Filled("", STR_BASE16, -1L, ' ', 0x7FFFFFFFULL), "FFFFFFFF 7FFFFFFF");
  EXPECT_EQ(Filled("", STR_BASE16, static_cast<long>(INT32_MIN)), "80000000");
  EXPECT_EQ(Filled("", STR_BASE16, 5000000000L, ' ', -5000000000LL), "5000000000 -5000000000");
  EXPECT_EQ(Filled("", STR_BASE16, 0x80000000ULL), "2147483648");
  EXPECT_EQ(Filled("", STR_BASE16, ULLONG_MAX), "18446744073709551616");
  EXPECT_EQ(Filled("%d $1", 5000000000ULL), "%d 5000000000");
  EXPECT_EQ(Filled("%u|", 0x80000000ULL, 3), "3|2147483648");
}

TEST(VostringFormat, FloatsMatchSnprintf) {
  const double values[] = {0.0,   -0.0,    1.5,      3.14159,       -2.5e-7, 1e-300,
                           1e300, DBL_MAX, -DBL_MIN, 123456789.125, NAN,     -INFINITY};
  const char kConv[] = {'G', 'f', 'E'};
  std::mt19937 rng(11);
  for (double v : values) {
    for (int k = 0; k < 40; ++k) {
      int fmt = rng() % 3, prec = static_cast<int>(rng() % 18) - 1, width = rng() % 16;
      bool sign = rng() % 2, zero = rng() % 2;
      std::string cfmt = std::string("%") + (sign ? "+" : "") + (zero ? "0" : "");
      if (width) cfmt += std::to_string(width);
      if (prec >= 0) cfmt += "." + std::to_string(prec);
      cfmt += kConv[fmt];
      char expected[4096];
      snprintf(expected, sizeof expected, cfmt.c_str(), v);
      VOSTRING s;
      s.FmtSetFloat(static_cast<FLOATFMT>(fmt)).FmtSetPrecision(prec).FmtSetSign(sign);
      s.FmtSetWidth(width).FmtSetFill(zero ? '0' : ' ') << v;
      ASSERT_EQ(U8(s), expected) << cfmt;
    }
  }
  VOSTRING big;
  big.FmtSetPrecision(30000) << -DBL_MAX;  // clamped, not cut or overflowed
  EXPECT_EQ(big.GetLength(), 1 + 309 + 1 + 3600);
}

TEST(VostringFormat, NumbersIgnoreTheProcessLocale) {
  const std::string folder = MakeCommaLocale();
  if (folder.empty()) GTEST_SKIP() << "localedef could not make a test locale";
  setenv("LOCPATH", folder.c_str(), 1);
  ASSERT_NE(setlocale(LC_ALL, "comma"), nullptr);
  char check[16];
  snprintf(check, sizeof check, "%.1f", 2.5);
  ASSERT_STREQ(check, "2,5") << "the C library does not see the test locale";

  EXPECT_EQ(Filled("", 1.5), "1.500000");
  EXPECT_EQ(Filled("%5.2f|%g|$1", 3.14159, 0.25, 5000000000ULL), " 3.14|0.25|5000000000");
  VOSTRING p;
  p.Sprintf(UC(u"%.1f %g %e %d"), 2.5, 0.5, 1.25, 1234567);
  EXPECT_EQ(U8(p), "2.5 0.5 1.250000e+00 1234567");
  EXPECT_EQ(VOSTRING("2.5").ConvertToDouble(), 2.5);
  EXPECT_EQ(VOSTRING("-1e3x").ConvertToDouble(), -1000.0);
  setlocale(LC_ALL, "C");
  EXPECT_EQ(system(("rm -rf " + folder).c_str()), 0);
}

TEST(VostringFormat, FillSubs) {
  VOSTRING a("%d $1 %z %%");
  a.FillSubs();
  EXPECT_EQ(U8(a), "??? ??? %z %%");
  EXPECT_EQ(Filled("%s $2", STR_FILLSUBS), "??? ???");
  VOSTRING c("%d");
  c.FmtEnableSubstitution(false).FillSubs();
  EXPECT_EQ(U8(c), "%d");
}

template <typename... A>
void ExpectLikeSnprintf(const char* fmt, A... args) {
  char expected[16384];
  snprintf(expected, sizeof expected, fmt, args...);
  VOSTRING s("pre:");
  int rc = s.Sprintf(UC(std::u16string(fmt, fmt + strlen(fmt))), args...);
  EXPECT_EQ(U8(s), std::string("pre:") + expected) << fmt;
  EXPECT_EQ(rc, s.GetLength()) << fmt;
}

TEST(VostringSprintf, MatchesSnprintf) {
  for (int v : {0, 1, -1, 42, -12345, INT_MAX, INT_MIN}) {
    ExpectLikeSnprintf("%d|%i|%5d|%-5d|%05d|%+d|% d|%.3d|%8.3d|%u|%x|%X|%#x|%o|%#o|%-#8X", v, v, v,
                       v, v, v, v, v, v, v, v, v, v, v, v, v);
    ExpectLikeSnprintf("%hd|%hhd|%hx|%*d|%*d|%.*d|%.*d|%-*.*x|%%|%c", v, v, v, 7, v, -7, v, 4, v,
                       -2, v, 9, 5, v, 'A');
  }
  for (long long v : {0LL, -1LL, 5000000000LL, LLONG_MIN, LLONG_MAX})
    ExpectLikeSnprintf("%lld|%20lli|%llx|%-22llo|%llu", v, v, v, v, v);
  for (double v : {0.0, -1.5, 3.14159, 1e-10, 6.02e23, DBL_MAX, double(NAN), double(INFINITY)})
    ExpectLikeSnprintf("%f|%.2f|%10.4f|%-12e|%E|%g|%+G|%#.0f|%.f|%012.3e|%*.*g", v, v, v, v, v, v,
                       v, v, v, v, 15, 6, v);
  for (long double v : {0.0L, -1.25L, 1e100L, LDBL_MAX})
    ExpectLikeSnprintf("%Lf|%.3Le|%LG", v, v, v);
  ExpectLikeSnprintf("%s|%8s|%-8s|%.2s|%8.3s|", "hello", "ab", "ab", "hello", "hello");
}

TEST(VostringSprintf, OwnRules) {
  auto printed = [](const char16_t* fmt, auto... args) {
    VOSTRING s;
    s.Sprintf(UC(fmt), args...);
    return s;
  };
  // 32-bit long: its low half; a null UTF-16 string: width blanks.
  EXPECT_EQ(U8(printed(u"%ld,%lu,%lx,[%5S][%-4S][%2S]", 0x1FFFFFFFFL, 0x1FFFFFFFFL, -1L,
                       static_cast<const unsigned short*>(nullptr), UC(u"ab"), UC(u"abc"))),
            "-1,4294967295,ffffffff,[     ][ab  ][abc]");
  // %Q takes nothing; %c the low 16 bits.
  EXPECT_EQ(U16(printed(u"%Q%d%c%c", 7, 0x1263A, 0)), u"7\u263A");
  VOSTRING u;
  u.Sprintf(UC(u"a%-5"));  // the format ends inside a conversion
  u.Sprintf(UC(u"b%"));
  u.Sprintf(nullptr);
  EXPECT_EQ(U8(u), "ab");

  // Huge widths and precisions are clamped, never cut or overflowed.
  EXPECT_EQ(printed(u"%99999999999d", 1).GetLength(), 4000);
  EXPECT_EQ(printed(u"%.200Lf", LDBL_MAX).GetLength(), 4933 + 1 + 64);
  EXPECT_EQ(printed(u"%s", std::string(20000, 'z').c_str()).GetLength(), 20000);

  VOSTRING self("ab%%");  // the format may be the string's own text
  self.Sprintf(self.GetReference());
  EXPECT_EQ(U8(self), "ab%%ab%");
  VOSTRING arg("abc");  // so may the strings it prints, while the text grows
  std::u16string model = u"abc";
  for (int i = 0; i < 4; ++i) {
    arg.Sprintf(UC(u"%S|%5S|"), arg.GetReference(), arg.GetReference());
    const std::u16string pad(model.size() < 5 ? 5 - model.size() : 0, u' ');
    model += model + u"|" + pad + model + u"|";
  }
  EXPECT_EQ(U16(arg), model);
}

}  // namespace
