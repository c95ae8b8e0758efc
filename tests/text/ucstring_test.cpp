// The UTF-16 string primitives: terminator rules, comparison values, the
// static tokeniser, escapes, and the 8-bit case functions.
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <string>

#include "vosystem/ucstring.h"

namespace {

using Text = std::u16string;

unsigned short* P(Text& t) {
  return reinterpret_cast<unsigned short*>(t.data());
}
const unsigned short* P(const char16_t* s) {
  return reinterpret_cast<const unsigned short*>(s);
}
Text T(const unsigned short* s) {
  return Text(reinterpret_cast<const char16_t*>(s));
}

}  // namespace

TEST(UcStringTest, WideningAndNarrowing) {
  unsigned short wide[8];
  strtouc(wide, "a\xE9\xFF");
  EXPECT_EQ(T(wide), u"a\u00E9\u00FF");  // bytes are unsigned
  char narrow[8];
  uctostr(narrow, P(u"\u00E9\u0100\uFFFFz"));
  EXPECT_STREQ(narrow, "\xE9\x7F\x7Fz");
  EXPECT_EQ(ucstrlen(P(u"\xD83D\xDE00")), 2);  // units, not characters
  unsigned short buf[16];
  ucstrcpy(buf, P(u"ab"));
  ucstrcat(buf, P(u"cd"));
  strtouccat(buf, "\xE9");
  EXPECT_EQ(T(buf), u"abcd\u00E9");
}

// The n forms stop at the source's terminator, writing it, or after n units,
// writing none; they never pad, and n <= 0 does nothing.
TEST(UcStringTest, CountedFormsWriteNoPaddingAndNoTerminatorWhenCut) {
  using FILL = void (*)(unsigned short*);
  auto after = [](Text buffer, FILL fill) { return fill(P(buffer)), buffer; };
  const Text hashes(8, u'#'), ab(u"ab\0#####", 8);
  EXPECT_EQ(after(hashes, [](unsigned short* d) { ucstrncpy(d, P(u"ab"), 3); }), ab);
  EXPECT_EQ(after(hashes, [](unsigned short* d) { ucstrncpy(d, P(u"abcde"), 3); }), u"abc#####");
  EXPECT_EQ(after(hashes, [](unsigned short* d) { ucstrncpy(d, P(u"abc"), 0); }), hashes);
  EXPECT_EQ(after(hashes, [](unsigned short* d) { strntouc(d, "abc", -5); }), hashes);
  EXPECT_EQ(after(hashes, [](unsigned short* d) { strntouc(d, "\xE9xyz", 2); }), u"\u00E9x######");
  EXPECT_EQ(after(ab, [](unsigned short* d) { ucstrncat(d, P(u"cdef"), 2); }), u"abcd####");
  EXPECT_EQ(after(ab, [](unsigned short* d) { ucstrncat(d, P(u"c"), 5); }), Text(u"abc\0####", 8));
  char narrow[6] = "#####";
  ucntostr(narrow, P(u"\u0101bc"), 2);
  EXPECT_STREQ(narrow, "\177b###");
  ucntostr(narrow, P(u"z"), 4);
  EXPECT_EQ(std::string(narrow, 5), std::string("z\0###", 5));
}

TEST(UcStringTest, ComparisonsGiveTheUnitDifference) {
  EXPECT_EQ(ucstrcmp(P(u"ab"), P(u"abc")), -'c');
  EXPECT_EQ(ucstrcmp(P(u"abc"), P(u"ab")), 'c');
  EXPECT_EQ(ucstrcmp(P(u"\uFFFF"), P(u"\u0001")), 0xFFFE);  // unsigned units, no sign clamp
  EXPECT_EQ(ucstrncmp(P(u"abX"), P(u"abY"), 2), 0);
  EXPECT_EQ(ucstrncmp(P(u"abX"), P(u"abY"), 3), 'X' - 'Y');
  EXPECT_EQ(ucstrncmp(P(u"a"), P(u"b"), 0), 0);
  EXPECT_EQ(ucstrnicmp(P(u"abcX"), P(u"ABCY"), 3), 0);
  EXPECT_EQ(ucstricmp(P(u"Hello"), P(u"hELLO")), 0);
  // Folding goes to upper case, so '[' sorts after letters (unlike strcasecmp).
  EXPECT_EQ(ucstricmp(P(u"["), P(u"a")), '[' - 'A');
  EXPECT_EQ(ucstricmp(P(u"ab"), P(u"ABC")), -'C');
  EXPECT_EQ(ucstricmp(P(u"\u00E9"), P(u"\u00C9")), 0xE9 - 0xC9);  // ASCII only
}

TEST(UcStringTest, Searching) {
  const unsigned short* s = P(u"abcabc");
  EXPECT_EQ(ucstrchr(s, 'b'), s + 1);
  EXPECT_EQ(ucstrrchr(s, 'b'), s + 4);
  EXPECT_EQ(ucstrchr(s, 0), s + 6);  // the terminator
  EXPECT_EQ(ucstrrchr(s, 'z'), nullptr);
  EXPECT_EQ(ucstrstr(s, P(u"cab")), s + 2);
  EXPECT_EQ(ucstrstr(s, P(u"")), s);
  EXPECT_EQ(ucstrstr(P(u""), P(u"a")), nullptr);
  const unsigned short* overlap = P(u"aaab");
  EXPECT_EQ(ucstrstr(overlap, P(u"aab")), overlap + 1);
  EXPECT_EQ(ucstrspn(s, P(u"ba")), 2);
  EXPECT_EQ(ucstrspn(s, P(u"")), 0);
  EXPECT_EQ(ucstrpbrk(s, P(u"xc")), s + 2);
  EXPECT_EQ(ucstrpbrk(s, P(u"xy")), nullptr);
}

TEST(UcStringTest, TokeniserKeepsOnePosition) {
  Text first(u",,ab,,c;d"), second(u"x y "), only(u",,,");
  const unsigned short* delim = P(u",;");
  EXPECT_EQ(T(ucstrtok(P(first), delim)), u"ab");
  EXPECT_EQ(T(ucstrtok(nullptr, delim)), u"c");
  EXPECT_EQ(T(ucstrtok(nullptr, delim)), u"d");  // last token, no delimiter after it
  EXPECT_EQ(ucstrtok(nullptr, delim), nullptr);
  EXPECT_EQ(ucstrtok(nullptr, delim), nullptr);
  EXPECT_EQ(T(ucstrtok(P(second), P(u" "))), u"x");  // a new string restarts
  EXPECT_EQ(T(ucstrtok(nullptr, P(u" "))), u"y");
  EXPECT_EQ(ucstrtok(P(only), delim), nullptr);
}

TEST(UcStringTest, DuplicatesAndCase) {
  EXPECT_TRUE(!ucstrdup(nullptr) && !uctostrdup(nullptr) && !strtoucdup(nullptr));
  unsigned short* dup = ucstrdup(P(u"a\u4E2Db"));
  unsigned short* wide = strtoucdup("\xE9z");
  char* narrow = uctostrdup(P(u"a\u4E2D\u00E9"));
  EXPECT_EQ(T(dup), u"a\u4E2Db");
  EXPECT_EQ(T(wide), u"\u00E9z");
  EXPECT_STREQ(narrow, "a\x7F\xE9");
  free(dup), free(wide), free(narrow);

  Text mixed(u"aZ\u00E9{@`z");
  ucstrupr(P(mixed));
  EXPECT_EQ(mixed, u"AZ\u00E9{@`Z");
  EXPECT_EQ(T(ucstrlwr(P(mixed))), u"az\u00E9{@`z");  // the start comes back

  char bytes[] = "aZ1\xE9";
  EXPECT_EQ(strupr(bytes), bytes + 4);  // the terminator, not the start
  EXPECT_STREQ(bytes, "AZ1\xE9");
  EXPECT_EQ(strlwr(bytes), bytes + 4);
  EXPECT_STREQ(bytes, "az1\xE9");
}

TEST(UcStringTest, ConvertSlashes) {
  struct Case {
    const char16_t* in;
    const char16_t* out;
    int removed;
  };
  const Case cases[] = {
      {u"\\65", u"A", 2},
      {u"a\\9b", u"a\tb", 1},
      {u"\\123456", u"\u30396", 5},  // five digits at most
      {u"\\99999", u"\u869F", 5},    // 99999 narrowed to 16 bits
      {u"\\\\65", u"\\A", 2},        // a doubled backslash does not collapse
      {u"\\\\server\\share", u"\\\\server\\share", 0},
      {u"\\x\\", u"\\x\\", 0},
      {u"", u"", 0},
  };
  for (const Case& c : cases) {
    Text s(c.in);
    int removed = -7;
    EXPECT_EQ(ucConvertSlashes(P(s), &removed), 0);
    EXPECT_EQ(T(P(s)), c.out) << std::u16string(c.in).size();
    EXPECT_EQ(removed, c.removed);
  }
  Text s(u"\\66");
  EXPECT_EQ(ucConvertSlashes(P(s), nullptr), 0);
  EXPECT_EQ(T(P(s)), u"B");
}
