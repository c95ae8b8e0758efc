// The pattern compiler's promises (sharing, symbols, errors, limits) and the
// matcher's own rule, case by case. The compiler's stages are compiled into
// this test (ucregexp_test_INTERNALS) so that their tables can be read.
#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "regex/urebuffer.h"
#include "vosystem/ucregexp.h"
#include "vosystem/vostring.h"

namespace {

const unsigned short* P(const std::u16string& s) {
  return reinterpret_cast<const unsigned short*>(s.c_str());
}

constexpr unsigned long kNo = static_cast<unsigned long>(-1);

struct MATCH {
  unsigned long first, last;
  bool operator==(const MATCH& o) const { return first == o.first && last == o.last; }
};
std::ostream& operator<<(std::ostream& os, const MATCH& m) {
  if (m.first == kNo) return os << "none";
  return os << "[" << m.first << ", " << m.last << ")";
}

MATCH Find(const std::u16string& pattern, const std::u16string& text, bool ignoreCase = false,
           int execFlags = 0) {
  UCREGEXP re;
  re.Compile(P(pattern), ignoreCase);
  MATCH m{0, 0};
  const int r = re.Exec(P(text), &m.first, &m.last, text.size(), execFlags);
  EXPECT_EQ(r, m.first != kNo ? 1 : 0);
  return m;
}

// Compiles with a buffer of our own, to read its tables and error.
struct COMPILED {
  UREBUFFER buffer;
  UCREGEXP re;
  explicit COMPILED(const std::u16string& pattern, bool ignoreCase = false) {
    buffer.Compile(re, P(pattern), ignoreCase);
  }
};

TEST(UcRegexp, CompiledFormKeepsItsDocumentedShape) {
  {
    // Two symbols; the start state's two transitions lead to one accepting state.
    COMPILED c(u"a|b");
    EXPECT_EQ(c.re.SymbolCount(), 2);
    ASSERT_EQ(c.re.StateCount(), 2);
    const UREDFASTATE* s = UREACCESS::States(c.re);
    ASSERT_EQ(s[0].transCount, 2);
    EXPECT_EQ(s[0].trans[0].nextState, s[0].trans[1].nextState);
    EXPECT_TRUE(s[s[0].trans[0].nextState].accepting);
  }
  // Identical subexpressions are one expression: the second copy adds only
  // the alternation; equal characters and equal classes are one symbol.
  UREBUFFER one, two;
  one.flags = two.flags = 2;
  const std::u16string single = u"(ab)*c", twice = u"(ab)*c|(ab)*c";
  one.REtoNFA(P(single), single.size());
  two.REtoNFA(P(twice), twice.size());
  EXPECT_EQ(two.exprCount, one.exprCount + 1);
  EXPECT_EQ(COMPILED(u"aa").re.SymbolCount(), 1);
  EXPECT_EQ(COMPILED(u"[ab]|[ba]").re.SymbolCount(), 1);

  COMPILED digit(u"[:digit:]");
  EXPECT_EQ(UREACCESS::Symbols(digit.re)->type, URE_CCLASS);
  EXPECT_EQ(UREACCESS::Symbols(digit.re)->props, 0x200u);
  COMPILED foo(u"[:foo:]");  // not a name: the class of ':', 'f', 'o'
  const URECCL& ccl = UREACCESS::Symbols(foo.re)->sym.ccl;
  ASSERT_EQ(ccl.count, 3u);
  EXPECT_EQ(ccl.ranges[0].low, u':');
  EXPECT_EQ(ccl.ranges[1].low, u'f');
  EXPECT_EQ(ccl.ranges[2].low, u'o');

  COMPILED hex(u"\\x41|\\x");
  EXPECT_EQ(UREACCESS::Symbols(hex.re)[0].sym.chr, u'A');
  EXPECT_EQ(UREACCESS::Symbols(hex.re)[1].sym.chr, u'x');
  COMPILED emoji(u"\\uD83D\\uDE00");
  EXPECT_EQ(emoji.re.SymbolCount(), 1);
  EXPECT_EQ(UREACCESS::Symbols(emoji.re)->sym.chr, 0x1F600u);
  COMPILED upper(u"A", true);
  EXPECT_EQ(UREACCESS::Symbols(upper.re)->sym.chr, u'a');
  EXPECT_EQ(COMPILED(u"^").re.Flags(), 2);
  EXPECT_EQ(COMPILED(u"^a", true).re.Flags(), 1);
  EXPECT_EQ(Find(u"\\p1,2+", u"e\u0301\u0903x"), (MATCH{1, 3}));  // marks
}

TEST(UcRegexp, FaultyPatternsLeaveTheObjectEmpty) {
  const struct {
    const char16_t* pattern;
    int error;
  } cases[] = {{u"ab\\", -1}, {u"[a\\", -1},  {u"[ab", -2},       {u"(a", -3},        {u"a)", -3},
               {u"((a)", -3}, {u"\\p22", -4}, {u"[\\P3,40]", -4}, {u"x\\p1,2,99", -4}};
  for (const auto& c : cases) {
    COMPILED compiled(c.pattern);
    EXPECT_EQ(compiled.buffer.error, c.error) << std::u16string(c.pattern).size();
    EXPECT_EQ(compiled.re.StateCount(), 0);
    EXPECT_EQ(compiled.re.SymbolCount(), 0);
  }
  // A faulty pattern empties a compiled object; an empty or null one keeps it.
  UCREGEXP re;
  unsigned long first = 0, last = 0;
  re.Compile(P(u"b"), false);
  re.Compile(P(u""), false);
  re.Compile(nullptr, false);
  EXPECT_EQ(re.Exec(P(u"abc"), &first, &last, kNo, 0), 1);
  re.Compile(P(u"b("), false);
  EXPECT_EQ(re.Exec(P(u"abc"), &first, &last, kNo, 0), 0);
  EXPECT_EQ(first, kNo);
  EXPECT_EQ(re.Exec(nullptr, nullptr, nullptr, 0, 0), 0);
}

TEST(UcRegexp, MatchesByTheScanRule) {
  const struct {
    const char16_t* pattern;
    const char16_t* text;
    MATCH expected;
    bool ignoreCase;
    int execFlags;
  } cases[] = {
      // The scan: refused characters are skipped, a failed run isn't retried.
      {u"abc", u"xxabcx", {2, 5}, false, 0},
      {u"ab", u"aab", {kNo, kNo}, false, 0},
      {u"a*", u"ba", {kNo, kNo}, false, 0},  // the accepting start state refuses 'b'
      {u"a*", u"aab", {0, 2}, false, 0},
      {u"(ab)*", u"ababx", {0, 4}, false, 0},
      {u"a*", u"", {kNo, kNo}, false, 0},
      {u"^", u"", {0, 0}, false, 0},
      // The first accepting transition wins: symbol order is pattern order.
      {u"[a-z]+|abc", u"abd", {0, 3}, false, 0},
      {u"abc|[a-z]+", u"abd", {kNo, kNo}, false, 0},
      // Anchors.
      {u"a$", u"a\n", {0, 1}, false, 0},
      {u"a$", u"xa", {1, 2}, false, 0},
      {u"a$b", u"a\r\nb", {0, 4}, false, 0},
      {u"$", u"ab\r\ncd", {2, 2}, false, 0},
      {u"a|$", u"b\n", {1, 1}, false, 0},
      {u"^b", u"a\nb", {2, 3}, false, 0},
      {u"^b", u"a\r\nb", {3, 4}, false, 0},
      {u"^*", u"abc", {0, 0}, false, 0},
      {u"(^^)*", u"a", {0, 0}, false, 0},
      {u"a^", u"a\u2028b", {0, 2}, false, 0},
      // Separators and ".".
      {u".", u"\n", {kNo, kNo}, false, 0},
      {u".", u"\u2029", {0, 1}, false, UCREGEXP_DotAll},
      {u"a..b", u"a\r\nb", {0, 4}, false, UCREGEXP_DotAll},
      // Marks.
      {u"ab", u"a\u0301b", {kNo, kNo}, false, 0},
      {u"ab", u"a\u0301b", {0, 3}, false, UCREGEXP_IgnoreMarks},
      {u"a", u"a\u0301", {0, 2}, false, UCREGEXP_IgnoreMarks},
      {u"a", u"a\u0301b", {0, 1}, false, UCREGEXP_IgnoreMarks},
      // Supplementary characters: one character, whole code points in classes.
      {u".", u"\U0001F600", {0, 2}, false, 0},
      {u"[\U0001F600-\U0001F602]", u"x\U0001F601", {1, 3}, false, 0},
      {u"[\U0001F600-\U0001F602]", u"x\uF601", {kNo, kNo}, false, 0},
      {u"\U0001F600", u"\uF600", {0, 1}, true, 0},  // lowered by the low 16 bits
      // Case.
      {u"HELLO", u"say hello", {4, 9}, true, 0},
      {u"[A-C]+", u"xbCa", {1, 4}, true, 0},
      {u"[:upper:]", u"aB", {1, 2}, false, 0},
      // The language: a group joins what stands before it, "-" before "]" literal.
      {u"a(b)", u"ab", {0, 2}, false, 0},
      {u"a(b|c)+d", u"xacbd", {1, 5}, false, 0},
      {u"x(ab)*c|(ab)*c", u"abc", {0, 3}, false, 0},
      {u"[a-]+", u"-a", {0, 2}, false, 0},
      {u"[\\x41-\\x43]+", u"ABCD", {0, 3}, false, 0},
      {u"[:space:]", u"a\uFEFF", {1, 2}, false, 0},
      {u"\\P3+", u"12ab3", {2, 4}, false, 0},
      {u"[^\\p3]", u"1a", {1, 2}, false, 0},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(testing::Message() << "case " << (&c - cases));
    EXPECT_EQ(Find(c.pattern, c.text, c.ignoreCase, c.execFlags), c.expected);
  }
  // Up to the terminator, and null positions.
  UCREGEXP re;
  re.Compile(P(u"b+"), false);
  unsigned long first = 0;
  EXPECT_EQ(re.Exec(P(u"abbc"), &first, nullptr, kNo, 0), 1);
  EXPECT_EQ(first, 1u);
  EXPECT_EQ(re.Exec(P(u"abbc"), nullptr, nullptr, 1, 0), 0);
}

TEST(UcRegexp, LimitsFailCleanlyAndNestingCostsNoStack) {
  // 70000 expressions in a chain; and 510510 states, the lengths modulo 2,
  // 3, 5, ..., 17 of a run of a's, from a pattern of 73 units.
  COMPILED chain(std::u16string(70000, u'a'));
  EXPECT_EQ(chain.buffer.error, URE_ERR_TooLarge);
  EXPECT_EQ(chain.re.StateCount(), 0);
  std::u16string blowup;
  for (int p : {2, 3, 5, 7, 11, 13, 17})
    blowup += (blowup.empty() ? u"(" : u"|(") + std::u16string(p, u'a') + u")*";
  COMPILED exponential(blowup);
  EXPECT_EQ(exponential.buffer.error, URE_ERR_TooLarge);
  EXPECT_EQ(exponential.re.StateCount(), 0);
  // Below the state limit, with more transitions than 16 bits count.
  std::u16string wide;
  for (int i = 0; i < 1400; ++i) wide += u"a?b?c?d?e?f?g?h?i?j?z";
  EXPECT_EQ(COMPILED(wide).re.StateCount(), 0);

  const int kDepth = 100000;
  const std::u16string deep = std::u16string(kDepth, u'(') + u"a" + std::u16string(kDepth, u')');
  EXPECT_EQ(Find(deep, u"xa"), (MATCH{1, 2}));
  EXPECT_EQ(COMPILED(std::u16string(kDepth, u'(')).buffer.error, URE_ERR_Group);
  std::u16string stars = u"a";
  for (int i = 0; i < kDepth; ++i) stars += u"*";  // expressions nest 100000 deep
  EXPECT_EQ(COMPILED(stars).re.StateCount(), 0);
}

TEST(UcRegexp, OneCompiledPatternServesManyThreads) {
  UCREGEXP re;
  re.Compile(P(u"(warn|err)[a-z]*: [^\n]*$"), true);
  std::u16string text;
  for (int i = 0; i < 2000; ++i) text += i % 7 ? u"note: fine\n" : u"ERROR: disk full\n";
  auto scan = [&](int flags) {
    std::vector<MATCH> all;
    for (unsigned long pos = 0, first, last;
         re.Exec(P(text) + pos, &first, &last, text.size() - pos, flags); pos += last)
      all.push_back(MATCH{pos + first, pos + last});
    return all;
  };
  const std::vector<MATCH> expected = scan(0);
  ASSERT_EQ(expected.size(), 286u);
  std::atomic<int> wrong{0};
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i)
    threads.emplace_back([&, i] {
      for (int n = 0; n < 20; ++n)
        if (scan(i & 1 ? UCREGEXP_DotAll : 0) != expected) ++wrong;
    });
  for (auto& t : threads) t.join();
  EXPECT_EQ(wrong.load(), 0);
}

TEST(VostringSearch, PositionsCountFromTheStringsStart) {
  const VOSTRING s(u"one two three");
  UCREGEXP re;
  re.Compile(P(u"t[a-z]+"), false);
  unsigned long first = 7, last = 7;
  EXPECT_EQ(s.Search(re, first, last, 13), 0);  // at the end: untouched
  EXPECT_EQ(first, 7u);
  ASSERT_NE(s.Search(re, first, last), 0);
  EXPECT_EQ((MATCH{first, last}), (MATCH{4, 7}));
  ASSERT_NE(s.Search(re, first, last, 5), 0);
  EXPECT_EQ((MATCH{first, last}), (MATCH{8, 13}));
  ASSERT_NE(s.Search(P(u"^T"), first, last, true, 8), 0);  // "^" at `from`
  EXPECT_EQ((MATCH{first, last}), (MATCH{8, 9}));
  EXPECT_EQ(s.Search(P(u"z"), first, last, false), 0);
  EXPECT_EQ(first, kNo);
  VOSTRING big;
  for (int i = 0; i < 20000; ++i) big += "abcd";  // long enough for the fast tables
  big += "xyz";
  ASSERT_NE(big.Search(P(u"X[Y]"), first, last, true), 0);
  EXPECT_EQ((MATCH{first, last}), (MATCH{80000, 80002}));
}

}  // namespace
