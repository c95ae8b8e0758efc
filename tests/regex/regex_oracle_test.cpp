// The matcher against independent models:
//   - PCRE2 (16-bit, UTF): on random patterns of the syntax both share,
//     every match we report must be a whole match of the same pattern;
//   - with pairwise disjoint symbols, where our automaton's states are the
//     pattern's true derivatives, the scan rule driven by PCRE2's partial
//     matching must give exactly our results;
//   - the step-by-step rules (UREACCESS::ExecReference, compiled into this
//     test) must give exactly what Exec's fast loop gives, on random
//     patterns of the whole language over texts with separators, marks,
//     surrogates and case;
//   - the scalar range search must give what its vector kernels give.
#define PCRE2_CODE_UNIT_WIDTH 16
#include <gtest/gtest.h>
#include <pcre2.h>

#include <random>
#include <string>
#include <vector>

#include "regex/ure_priv.h"
#include "vosystem/ucregexp.h"

namespace {

const unsigned short* P(const std::u16string& s) {
  return reinterpret_cast<const unsigned short*>(s.c_str());
}

void AppendChar(std::u16string& s, char32_t c) {
  if (c < 0x10000) {
    s += static_cast<char16_t>(c);
  } else {
    s += static_cast<char16_t>(0xD800 + ((c - 0x10000) >> 10));
    s += static_cast<char16_t>(0xDC00 + (c & 0x3FF));
  }
}

std::u16string PcreChar(char32_t c) {
  char buf[16];
  snprintf(buf, sizeof buf, "\\x{%X}", static_cast<unsigned>(c));
  return std::u16string(buf, buf + strlen(buf));
}

// A random pattern of the shared syntax, written for both engines.
struct GENERATOR {
  std::mt19937& rng;
  std::vector<char32_t> chars;       // literals
  std::vector<char32_t> classChars;  // class members
  std::vector<char32_t> lows;        // range ends, in pairs
  bool disjoint;                     // symbols from a family of disjoint sets
  std::u16string ours, pcre;

  int Pick(int n) { return std::uniform_int_distribution<int>(0, n - 1)(rng); }

  void Atom() {
    if (disjoint) {
      static const char16_t* const kOurs[] = {u"a", u"b", u"c", u"[de]", u"[fg]", u"[^a-g]"};
      static const char16_t* const kPcre[] = {u"a", u"b", u"c", u"[de]", u"[fg]", u"[^a-g]"};
      const int k = Pick(6);
      ours += kOurs[k];
      pcre += kPcre[k];
      return;
    }
    const int kind = Pick(10);
    if (kind < 5) {
      const char32_t c = chars[Pick(static_cast<int>(chars.size()))];
      AppendChar(ours, c);
      pcre += PcreChar(c);
    } else if (kind < 7) {
      ours += u".";
      pcre += u"[^\\n\\r\\x{2028}\\x{2029}]";
    } else {
      const bool negated = Pick(3) == 0;
      ours += negated ? u"[^" : u"[";
      pcre += negated ? u"[^" : u"[";
      for (int n = 1 + Pick(3); n > 0; --n) {
        if (Pick(2) && !lows.empty()) {
          const int r = Pick(static_cast<int>(lows.size()) / 2) * 2;
          AppendChar(ours, lows[r]);
          ours += u"-";
          AppendChar(ours, lows[r + 1]);
          pcre += PcreChar(lows[r]) + u"-" + PcreChar(lows[r + 1]);
        } else {
          const char32_t c = classChars[Pick(static_cast<int>(classChars.size()))];
          AppendChar(ours, c);
          pcre += PcreChar(c);
        }
      }
      ours += u"]";
      pcre += u"]";
    }
  }

  void Item(int depth) {
    const size_t pcreAt = pcre.size();
    if (depth > 0 && Pick(3) == 0) {
      ours += u"(";
      pcre += u"(?:";
      Alternation(depth - 1);
      ours += u")";
      pcre += u")";
    } else {
      Atom();
    }
    const int q = Pick(7);
    if (q < 3) {
      const char16_t* op = q == 0 ? u"*" : q == 1 ? u"+" : u"?";
      ours += op;
      pcre.insert(pcreAt, u"(?:");
      pcre += u")";
      pcre += op;
    }
  }

  void Alternation(int depth) {
    for (int branch = 1 + Pick(3); branch > 0; --branch) {
      for (int i = 0, n = 1 + Pick(4); i < n; ++i) Item(depth);
      if (branch > 1) {
        ours += u"|";
        pcre += u"|";
      }
    }
  }
};

struct PCRE {
  pcre2_code* code = nullptr;
  pcre2_match_data* data = nullptr;
  PCRE(const std::u16string& pattern, bool ignoreCase) {
    const std::u16string whole = u"(?:" + pattern + u")\\z";
    int error = 0;
    PCRE2_SIZE offset = 0;
    code = pcre2_compile(reinterpret_cast<PCRE2_SPTR>(whole.data()), whole.size(),
                         PCRE2_UTF | (ignoreCase ? PCRE2_CASELESS : 0), &error, &offset, nullptr);
    if (code) data = pcre2_match_data_create_from_pattern(code, nullptr);
  }
  ~PCRE() {
    pcre2_match_data_free(data);
    pcre2_code_free(code);
  }
  int Run(const char16_t* s, size_t n, uint32_t options) const {
    return pcre2_match(code, reinterpret_cast<PCRE2_SPTR>(s), n, 0, PCRE2_ANCHORED | options, data,
                       nullptr);
  }
  // A backtracking engine can give up on nested repetitions ("(.*.*)+")
  // before it reaches the branch that matches: such an answer is no
  // verdict, and counts as agreeing.
  static bool GaveUp(int rc) {
    return rc == PCRE2_ERROR_MATCHLIMIT || rc == PCRE2_ERROR_DEPTHLIMIT ||
           rc == PCRE2_ERROR_HEAPLIMIT;
  }
  bool Whole(const char16_t* s, size_t n) const {
    const int rc = Run(s, n, 0);
    return rc >= 0 || GaveUp(rc);
  }
  bool Prefix(const char16_t* s, size_t n) const {
    const int rc = Run(s, n, PCRE2_PARTIAL_HARD);
    return rc >= 0 || rc == PCRE2_ERROR_PARTIAL || GaveUp(rc);
  }
};

// Code units in hex, for failure messages.
std::string Units(const std::u16string& s) {
  std::string out;
  char buf[8];
  for (char16_t c : s) {
    snprintf(buf, sizeof buf, "%s%X", out.empty() ? "" : " ", static_cast<unsigned>(c));
    out += buf;
  }
  return out;
}

std::u16string RandomText(std::mt19937& rng, const std::vector<char32_t>& alphabet, int maxLength) {
  std::u16string text;
  const int n = std::uniform_int_distribution<int>(0, maxLength)(rng);
  for (int i = 0; i < n; ++i)
    AppendChar(text, alphabet[std::uniform_int_distribution<size_t>(0, alphabet.size() - 1)(rng)]);
  return text;
}

TEST(RegexOracle, EveryMatchIsAWholeMatchForPcre2) {
  std::mt19937 rng(20240611);
  // Under ignore case only letters whose lowering is their whole case
  // folding, ranges within one case, and no supplementary class members
  // (a supplementary character is compared by its lowered low half).
  const std::vector<char32_t> chars = {'a',   'b',  'c',  'A',    'B',     0x3A3,
                                       0x3C3, '\n', '\r', 0x2028, 0x1F600, 0x1F601};
  const std::vector<char32_t> caseChars = {'a', 'b', 'c', 'A', 'B', 0x3A3, 0x3C3, '\n', 0x1F600};
  const std::vector<char32_t> classCaseChars = {'a', 'b', 'A', 0x3A3, '\n'};
  int patterns = 0, matches = 0;
  for (int iter = 0; iter < 3000; ++iter) {
    const bool ignoreCase = iter % 3 == 0;
    GENERATOR g{rng,
                ignoreCase ? caseChars : chars,
                ignoreCase ? classCaseChars : chars,
                ignoreCase
                    ? std::vector<char32_t>{'a', 'c', 'A', 'B'}
                    : std::vector<char32_t>{'a', 'c', 'A', 'b', 0x3A3, 0x3C3, 0x1F600, 0x1F601},
                false,
                u"",
                u""};
    g.Alternation(2);
    UCREGEXP re;
    re.Compile(P(g.ours), ignoreCase);
    const PCRE oracle(g.pcre, ignoreCase);
    ASSERT_TRUE(oracle.code) << std::string(g.pcre.begin(), g.pcre.end());
    ASSERT_GT(re.StateCount(), 0);
    ++patterns;
    for (int t = 0; t < 10; ++t) {
      const std::u16string text = RandomText(rng, ignoreCase ? caseChars : chars, 16);
      unsigned long pos = 0, first, last;
      while (pos < text.size() && re.Exec(P(text) + pos, &first, &last, text.size() - pos, 0)) {
        ++matches;
        EXPECT_TRUE(oracle.Whole(text.data() + pos + first, last - first))
            << "pattern " << std::string(g.pcre.begin(), g.pcre.end()) << " text #" << t << " "
            << Units(text) << " match [" << pos + first << "," << pos + last << ")"
            << (ignoreCase ? " ignoring case" : "") << "\nours: " << Units(g.ours);
        pos += last > first ? last : first + 1;
      }
    }
  }
  EXPECT_EQ(patterns, 3000);
  EXPECT_GT(matches, 10000);
}

// The scan rule, with the automaton's state standing for the text read since
// the match began: a character continues when the text so far is a prefix of
// the language, the state accepts when it is in the language.
void ScanRule(const PCRE& oracle, const std::u16string& text, unsigned long* first,
              unsigned long* last) {
  std::u16string read;
  unsigned long start = UREMATCH::kNone, end = UREMATCH::kNone, pos = 0;
  bool found = false;
  while (!found && pos < text.size()) {
    const unsigned long here = pos++;
    std::u16string next = read + text[here];
    if (oracle.Prefix(next.data(), next.size())) {
      if (start == UREMATCH::kNone) start = here;
      read = next;
      end = pos;
      if (pos == text.size()) found = oracle.Whole(read.data(), read.size());
    } else if (oracle.Whole(read.data(), read.size())) {
      found = true;
    } else {
      read.clear();
      start = end = UREMATCH::kNone;
    }
  }
  *first = found ? start : UREMATCH::kNone;
  *last = found && start != UREMATCH::kNone ? end : UREMATCH::kNone;
}

TEST(RegexOracle, DisjointSymbolsFollowTheScanRuleExactly) {
  std::mt19937 rng(7);
  const std::vector<char32_t> alphabet = {'a', 'b', 'c', 'd', 'e', 'f', 'g', 'x', '\n'};
  int matched = 0;
  for (int iter = 0; iter < 1500; ++iter) {
    GENERATOR g{rng, {}, {}, {}, true, u"", u""};
    g.Alternation(2);
    UCREGEXP re;
    re.Compile(P(g.ours), false);
    const PCRE oracle(g.pcre, false);
    ASSERT_TRUE(oracle.code);
    for (int t = 0; t < 12; ++t) {
      const std::u16string text = RandomText(rng, alphabet, 14);
      unsigned long first, last, oracleFirst, oracleLast;
      const int r = re.Exec(P(text), &first, &last, text.size(), 0);
      ScanRule(oracle, text, &oracleFirst, &oracleLast);
      EXPECT_EQ(first, oracleFirst) << std::string(g.ours.begin(), g.ours.end());
      EXPECT_EQ(last, oracleLast) << std::string(g.ours.begin(), g.ours.end());
      matched += r;
    }
  }
  EXPECT_GT(matched, 3000);
}

TEST(RegexOracle, FastLoopEqualsTheStepByStepRules) {
  std::mt19937 rng(99);
  const char16_t* const tokens[] = {u"a",      u"b",          u"A",
                                    u"\u00C9", u"\u00E9",     u"\u03A3",
                                    u"\n",     u"x",          u".",
                                    u"^",      u"$",          u"[a-c]",
                                    u"[^a]",   u"[:alpha:]",  u"[:space:]",
                                    u"\\p1",   u"\\P3",       u"[\\p10b]",
                                    u"\\x41",  u"\U0001F600", u"[\U0001F600-\U0001F602]",
                                    u"\xD800", u"\u0301",     u"\\r\\n",
                                    u"*",      u"+",          u"?",
                                    u"|",      u"(",          u")",
                                    u"[^\\n]", u"e"};
  const std::vector<char32_t> alphabet = {'a',    'b',    'A',  'B',    0xC9,  0xE9,    0x3A3,
                                          0x3C3,  '\n',   '\r', 0x2028, 0x301, 0x1F600, 0x1F601,
                                          0xD800, 0xDC00, 'x',  ' ',    '1',   'e'};
  int differences = 0, runs = 0;
  for (int iter = 0; iter < 4000; ++iter) {
    std::u16string pattern;
    int depth = 0;
    for (int n = 1 + static_cast<int>(rng() % 8); n > 0; --n) {
      const char16_t* tok = tokens[rng() % (sizeof tokens / sizeof tokens[0])];
      if (tok[0] == u')' && depth == 0) continue;
      depth += tok[0] == u'(' ? 1 : tok[0] == u')' ? -1 : 0;
      pattern += tok;
    }
    pattern.append(depth, u')');
    const bool ignoreCase = iter & 1;
    UCREGEXP re;
    re.Compile(P(pattern), ignoreCase);
    for (int t = 0; t < 6; ++t) {
      std::u16string text = RandomText(rng, alphabet, t < 4 ? 12 : 80);
      if (t == 5) text = std::u16string(40, u'z') + text;  // a long skip
      for (int flags = 0; flags < 4; ++flags) {
        for (unsigned long from : {0ul, 1ul, 3ul}) {
          if (from > text.size()) continue;
          unsigned long f1, l1, f2, l2;
          const int r1 = re.Exec(P(text) + from, &f1, &l1, text.size() - from, flags);
          const int r2 =
              UREACCESS::ExecReference(re, P(text) + from, &f2, &l2, text.size() - from, flags);
          ++runs;
          if (r1 != r2 || f1 != f2 || l1 != l2) {
            if (++differences < 5)
              ADD_FAILURE() << "pattern of " << pattern.size() << " units, flags " << flags
                            << ": fast " << r1 << " [" << f1 << "," << l1 << ") step " << r2 << " ["
                            << f2 << "," << l2 << ")";
          }
        }
      }
    }
  }
  EXPECT_EQ(differences, 0);
  EXPECT_GT(runs, 200000);
}

TEST(RegexOracle, VectorRangeSearchGivesTheScalarAnswer) {
  std::mt19937 rng(3);
  for (int iter = 0; iter < 3000; ++iter) {
    UREACCEL a{};
    a.rangeCount = 1 + static_cast<int>(rng() % UREACCEL::kMaxRanges);
    for (int r = 0; r < a.rangeCount; ++r) {
      a.low[r] = static_cast<uint16_t>(rng() % 64 == 0 ? 0xFFF0 + rng() % 16 : 'a' + rng() % 40);
      a.span[r] = static_cast<uint16_t>(rng() % 3 == 0 ? 0 : rng() % 8);
    }
    std::vector<unsigned short> text(rng() % 100);
    for (auto& u : text) u = static_cast<unsigned short>(rng() % 4 ? 'A' + rng() % 60 : rng());
    const unsigned long pos = text.empty() ? 0 : rng() % text.size();
    const unsigned long expected = UreSkipToRangesScalar(text.data(), pos, text.size(), a);
    EXPECT_EQ(UreSkipToRangesSse2(text.data(), pos, text.size(), a), expected);
    if (__builtin_cpu_supports("avx2")) {
      EXPECT_EQ(UreSkipToRangesAvx2(text.data(), pos, text.size(), a), expected);
    }
  }
}

}  // namespace
