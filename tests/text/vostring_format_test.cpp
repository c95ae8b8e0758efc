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
#include <random>
#include <string>
#include <vector>

#include "test_util.h"
#include "vosystem/textres.h"
#include "vosystem/vostring.h"

namespace {

std::u16string Wide(const char* s) {
  return std::u16string(s, s + strlen(s));
}
const unsigned short* UC(const std::u16string& s) {
  return reinterpret_cast<const unsigned short*>(s.c_str());
}

TEST(VostringFormat, AppendsWithoutPlaceholders) {
  VOSTRING s;
  s << 5 << " apples" << ' ' << 2.5 << u"|" << VOSTRING("v") << static_cast<unsigned short>(65);
  EXPECT_EQ(U8(s), "5 apples 2.500000|v65");  // fixed is the default float format
  VOSTRING t;
  t << static_cast<const char*>(nullptr) << static_cast<const unsigned short*>(nullptr) << '\0';
  EXPECT_TRUE(t.IsEmpty());
}

TEST(VostringFormat, PlaceholdersMatchByType) {
  VOSTRING a("%d and %s");
  a << "x" << 7;
  EXPECT_EQ(U8(a), "7 and x");
  VOSTRING b("%c|%s|%f");
  b << "ab" << 'z' << 1.5;  // a string passes over %c, a char over %s
  EXPECT_EQ(U8(b), "z|ab|1.500000");
  VOSTRING c("100%% of %d");
  c << 5;
  EXPECT_EQ(U8(c), "100%% of 5");
  VOSTRING d("%z %5");  // not placeholders, nor is a "%" at the very end
  d << 1;
  EXPECT_EQ(U8(d), "%z %51");
  VOSTRING e("%s%d");  // bool and TEXTID are string values
  e << 3 << true;
  EXPECT_EQ(U16(e), U16(TEXTRES::GetString(9500)) + u"3");
}

TEST(VostringFormat, PlaceholderFlags) {
  auto fill = [](const char* tmpl, auto value) {
    VOSTRING s(tmpl);
    s << value;
    return U8(s);
  };
  EXPECT_EQ(fill("%5.2f", 3.14159), " 3.14");
  EXPECT_EQ(fill("%-5d", 42), "   42");  // signed decimals ignore alignment
  EXPECT_EQ(fill("%-5u", 42u), "42   ");
  EXPECT_EQ(fill("%5u", 42u), "   42");
  EXPECT_EQ(fill("%5s", "ab"), "   ab");
  EXPECT_EQ(fill("%-5s", "ab"), "ab   ");
  EXPECT_EQ(fill("%+05d", -42), "-0042");
  EXPECT_EQ(fill("%+d", 42), "+42");
  EXPECT_EQ(fill("%x", 255), "FF");
  EXPECT_EQ(fill("%lo", 8), "10");
  EXPECT_EQ(fill("%.2e", 1234.5), "1.23E+03");  // the exponent letter is always upper case
  EXPECT_EQ(fill("%g", 0.0001), "0.0001");
  EXPECT_EQ(fill("%3c", 'q'), "  q");
}

TEST(VostringFormat, DollarPlaceholdersByNumber) {
  VOSTRING a("$2 before $1");
  a << "x" << 2;
  EXPECT_EQ(U8(a), "2 before x");
  VOSTRING b("$1 $0 $1000 $ $x");
  b << 'a' << "b" << 3;
  EXPECT_EQ(U8(b), "b a $1000 $ $x3");
  VOSTRING c("$1-$1-$001");  // equal numbers: the first wins
  c << 1 << 2 << 3;
  EXPECT_EQ(U8(c), "1-2-3");
  VOSTRING d("%s $1");  // "%" slots of the right type come first
  d << "p"
    << "q";
  EXPECT_EQ(U8(d), "p q");
}

TEST(VostringFormat, ScanPositionsFollowEdits) {
  VOSTRING a("[%s]");
  a << "%d" << 5;  // inserted text can hold the next placeholder
  EXPECT_EQ(U8(a), "[5]");
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
  EXPECT_EQ(U8(e), "4");
  e << e;
  EXPECT_EQ(U8(e), "44");
}

TEST(VostringFormat, PersistentAndCurrentSettings) {
  VOSTRING a;
  a << STR_FILL_ZERO << STR_WIDTH4 << 7u << 8u << STR_WIDTH3 << 9;
  EXPECT_EQ(U8(a), "00078009");  // width lasts one value, fill persists
  VOSTRING b("%d,");
  b.FmtSetBase(16) << 255 << 255;  // the placeholder's base applies to it only
  EXPECT_EQ(U8(b), "255,FF");
  VOSTRING c("%s|");
  c.FmtSetWidth(4) << "a"
                   << "b";  // a "%" slot doesn't use up the caller's width
  EXPECT_EQ(U8(c), "a|b   ");
  VOSTRING d("%d ");
  d.FmtEnableSubstitution(false) << STR_WIDTH3 << 1u << 2u;  // width not used up
  EXPECT_EQ(U8(d), "%d   1  2");
  VOSTRING e;
  e.FmtSetBase(1).FmtSetBase(37).FmtSetSign(true) << 10 << STR_ALIGN_LEFT << STR_WIDTH4 << 1u;
  e << STR_ALIGN_RIGHT << STR_WIDTH3 << "z" << static_cast<STR_OP>(63) << STR_PREC2 << 1.0;
  EXPECT_EQ(U8(e), "+101     z+1.00");
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
  VOSTRING s;
  s << STR_BASE16 << -1 << ' ' << STR_BASE2 << static_cast<short>(5);
  EXPECT_EQ(U8(s), "FFFFFFFF 101");
  VOSTRING w;
  w << STR_BASE16 << STR_WIDTH4 << STR_FILL_ZERO << 255;  // width survives a signed value
  EXPECT_EQ(U8(w), "00FF");
}

TEST(VostringFormat, ThirtyTwoBitIntegers) {
  auto text = [](auto value) {
    VOSTRING s;
    s << STR_BASE16 << value;
    return U8(s);
  };
  EXPECT_EQ(text(-1L), "FFFFFFFF");
  EXPECT_EQ(text(0xFFFFFFFFUL), "FFFFFFFF");
  EXPECT_EQ(text(0x7FFFFFFFULL), "7FFFFFFF");
  // Beyond 32 bits: decimal, through a double, whatever the base.
  EXPECT_EQ(text(5000000000L), "5000000000");
  EXPECT_EQ(text(0x100000000UL), "4294967296");
  EXPECT_EQ(text(-5000000000LL), "-5000000000");
  EXPECT_EQ(text(0x80000000ULL), "2147483648");
  EXPECT_EQ(text(ULLONG_MAX), "18446744073709551616");
  EXPECT_EQ(text(static_cast<long>(INT32_MIN)), "80000000");

  VOSTRING a("%d $1");
  a << 5000000000ULL;
  EXPECT_EQ(U8(a), "%d 5000000000");
  VOSTRING b("%u|");
  b << 0x80000000ULL << 3;
  EXPECT_EQ(U8(b), "3|2147483648");
}

TEST(VostringFormat, FloatsMatchSnprintf) {
  const double values[] = {0.0,   -0.0,    1.5,      3.14159,       -2.5e-7, 1e-300,
                           1e300, DBL_MAX, -DBL_MIN, 123456789.125, NAN,     -INFINITY};
  const char kConv[] = {'G', 'f', 'E'};
  std::mt19937 rng(11);
  for (double v : values) {
    for (int k = 0; k < 40; ++k) {
      int fmt = static_cast<int>(rng() % 3), prec = static_cast<int>(rng() % 18) - 1;
      int width = static_cast<int>(rng() % 16);
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

// A locale whose decimal mark is a comma, made with localedef from a source
// and an ASCII character map written here, so that no locale package is
// needed. Returns the folder to put in LOCPATH, or "" if it can't be made.
std::string MakeCommaLocale() {
  const char* tmp = getenv("TMPDIR");
  std::string base = std::string(tmp && *tmp ? tmp : "/tmp") + "/vosys-locale-XXXXXX";
  std::vector<char> path(base.begin(), base.end());
  path.push_back(0);
  if (!mkdtemp(path.data())) return "";
  const std::string folder = path.data();
  FILE* src = fopen((folder + "/src").c_str(), "w");
  FILE* map = fopen((folder + "/map").c_str(), "w");
  if (!src || !map) return "";
  fputs("LC_NUMERIC\ndecimal_point \",\"\nthousands_sep \".\"\ngrouping 3;3\nEND LC_NUMERIC\n",
        src);
  fputs("<code_set_name> ASCII-TEST\n<mb_cur_min> 1\n<mb_cur_max> 1\nCHARMAP\n", map);
  for (int c = 0; c < 128; ++c) fprintf(map, "<U%04X> \\x%02x\n", c, c);
  fputs("END CHARMAP\n", map);
  fclose(src);
  fclose(map);
  // localedef warns about the categories left out, and exits non-zero for it.
  const std::string cmd = "localedef -c -i " + folder + "/src -f " + folder + "/map " + folder +
                          "/comma >/dev/null 2>&1";
  if (system(cmd.c_str()) == -1) return "";
  FILE* made = fopen((folder + "/comma/LC_NUMERIC").c_str(), "r");
  if (!made) return "";
  fclose(made);
  return folder;
}

TEST(VostringFormat, NumbersIgnoreTheProcessLocale) {
  const std::string folder = MakeCommaLocale();
  if (folder.empty()) GTEST_SKIP() << "localedef could not make a test locale";
  setenv("LOCPATH", folder.c_str(), 1);
  ASSERT_NE(setlocale(LC_ALL, "comma"), nullptr);
  char check[16];
  snprintf(check, sizeof check, "%.1f", 2.5);
  ASSERT_STREQ(check, "2,5") << "the C library does not see the test locale";

  VOSTRING s;
  s << 1.5;
  EXPECT_EQ(U8(s), "1.500000");
  VOSTRING t("%5.2f|%g|$1");
  t << 3.14159 << 0.25 << 5000000000ULL;
  EXPECT_EQ(U8(t), " 3.14|0.25|5000000000");
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
  VOSTRING b("%s $2");
  b << STR_FILLSUBS;
  EXPECT_EQ(U8(b), "??? ???");
  VOSTRING c("%d");
  c.FmtEnableSubstitution(false).FillSubs();
  EXPECT_EQ(U8(c), "%d");
}

template <typename... A>
void ExpectLikeSnprintf(const char* fmt, A... args) {
  char expected[16384];
  snprintf(expected, sizeof expected, fmt, args...);
  VOSTRING s("pre:");
  int rc = s.Sprintf(UC(Wide(fmt)), args...);
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
  VOSTRING s;
  // 32-bit long: its low half; a null UTF-16 string: width blanks.
  int rc = s.Sprintf(UC(u"%ld,%lu,%lx,[%5S][%-4S][%2S]"), 0x1FFFFFFFFL, 0x1FFFFFFFFL, -1L,
                     static_cast<const unsigned short*>(nullptr), UC(u"ab"), UC(u"abc"));
  EXPECT_EQ(U8(s), "-1,4294967295,ffffffff,[     ][ab  ][abc]");
  EXPECT_EQ(rc, s.GetLength());
  VOSTRING t;
  t.Sprintf(UC(u"%Q%d%c%c"), 7, 0x1263A, 0);  // %Q takes nothing; %c the low 16 bits
  EXPECT_EQ(U16(t), u"7\u263A");
  VOSTRING u;
  u.Sprintf(UC(u"a%-5"));  // the format ends inside a conversion
  u.Sprintf(UC(u"b%"));
  u.Sprintf(nullptr);
  EXPECT_EQ(U8(u), "ab");

  // Huge widths and precisions are clamped, never cut or overflowed.
  VOSTRING w;
  w.Sprintf(UC(u"%99999999999d"), 1);
  EXPECT_EQ(w.GetLength(), 4000);
  VOSTRING l;
  l.Sprintf(UC(u"%.200Lf"), LDBL_MAX);
  EXPECT_EQ(l.GetLength(), 4933 + 1 + 64);
  std::string longText(20000, 'z');
  VOSTRING x;
  x.Sprintf(UC(u"%s"), longText.c_str());
  EXPECT_EQ(x.GetLength(), 20000);

  VOSTRING self("ab%%");  // the format may be the string's own text
  self.Sprintf(self.GetReference());
  EXPECT_EQ(U8(self), "ab%%ab%");
}

}  // namespace
