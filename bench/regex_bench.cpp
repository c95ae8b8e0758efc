// Regular expressions: UCREGEXP against RE2, PCRE2 with its JIT, and
// std::regex, finding every match of a pattern in about 10 MB of mixed text,
// and compiling the same patterns.
//
// The text is generated deterministically: English prose with the names of
// a detective story, a server log, and CJK text, in paragraphs that
// alternate. UCREGEXP and PCRE2 (16-bit) search its UTF-16 form, RE2 and
// std::regex its UTF-8 form; every search counts the UTF-8 size as its bytes
// processed, so that throughputs compare as times. std::regex searches the
// first tenth of the text only (it would take seconds for the whole), and
// counts that tenth.
//
// "Every match": each engine runs its own search again after the end of its
// last match. The engines don't agree on what matches (UCREGEXP's rule is
// its own, see ucregexp.h: in ".*timeout" the "." comes first and takes every
// character, so nothing matches), so the counter "matches" is reported for
// each, and the comparison is of time spent over the same text.
//
// Names read "search/<engine>/<pattern>" and "compile/<engine>/<pattern>".
#define PCRE2_CODE_UNIT_WIDTH 16
#include <benchmark/benchmark.h>
#include <pcre2.h>
#include <re2/re2.h>

#include <cctype>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <iterator>
#include <random>
#include <regex>
#include <string>
#include <vector>

#include "vosystem/ucregexp.h"

namespace {

// ---------------------------------------------------------------- the text

void AppendUtf8(std::string& out, char32_t c) {
  if (c < 0x80) {
    out += static_cast<char>(c);
  } else if (c < 0x800) {
    out += static_cast<char>(0xC0 | (c >> 6));
    out += static_cast<char>(0x80 | (c & 0x3F));
  } else {
    out += static_cast<char>(0xE0 | (c >> 12));
    out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
    out += static_cast<char>(0x80 | (c & 0x3F));
  }
}

struct TEXT {
  std::string utf8;
  std::u16string utf16;
  void Add(const std::string& ascii) {
    utf8 += ascii;
    utf16.append(ascii.begin(), ascii.end());
  }
  void Add(char32_t c) {
    AppendUtf8(utf8, c);
    utf16 += static_cast<char16_t>(c);
  }
};

const char* const kWords[] = {
    "the",      "of",       "and",     "a",         "to",       "in",         "was",
    "he",       "that",     "it",      "his",       "her",      "with",       "had",
    "for",      "you",      "which",   "upon",      "said",     "there",      "little",
    "been",     "room",     "door",    "window",    "morning",  "evening",    "letter",
    "carriage", "question", "matter",  "nothing",   "singular", "remarkable", "observed",
    "looking",  "standing", "waiting", "street",    "Sherlock", "Holmes",     "Watson",
    "Lestrade", "Baker",    "Hudson",  "Mycroft",   "Moriarty", "Irene",      "Adler",
    "London",   "Scotland", "Yard",    "inspector", "doctor",   "case"};

const TEXT& Corpus() {
  static const TEXT text = [] {
    TEXT t;
    std::mt19937 rng(1887);
    auto pick = [&](int n) { return std::uniform_int_distribution<int>(0, n - 1)(rng); };
    const int words = sizeof kWords / sizeof kWords[0];
    const char* const levels[] = {"INFO", "INFO", "INFO", "DEBUG", "WARN", "ERROR"};
    while (t.utf8.size() < (10u << 20)) {
      // Prose: a paragraph of sentences.
      for (int s = 8 + pick(8); s > 0; --s) {
        for (int w = 6 + pick(12), first = 1; w > 0; --w, first = 0) {
          std::string word = kWords[pick(words)];
          if (first) word[0] = static_cast<char>(toupper(word[0]));
          t.Add(word);
          t.Add(w > 1 ? (pick(9) ? " " : ", ") : ". ");
        }
      }
      t.Add("\n");
      // A log: timestamped lines, some of them errors with timeouts.
      for (int l = 10 + pick(20); l > 0; --l) {
        char line[160];
        const char* level = levels[pick(6)];
        snprintf(line, sizeof line,
                 "2024-06-%02d %02d:%02d:%02d.%03d %s [worker-%d] request %d %s in %d ms\n",
                 1 + pick(28), pick(24), pick(60), pick(60), pick(1000), level, pick(16),
                 pick(1000000), level[0] == 'E' && pick(2) ? "failed: upstream timeout" : "served",
                 pick(5000));
        t.Add(line);
      }
      // CJK: ideographs with commas and full stops.
      for (int c = 200 + pick(400); c > 0; --c)
        t.Add(pick(20) ? 0x4E00 + pick(0x5000) : pick(2) ? 0x3001 : 0x3002);
      t.Add("\n");
    }
    return t;
  }();
  return text;
}

// ---------------------------------------------------------------- patterns

struct PATTERN {
  const char* name;
  const char* ours;  // also RE2's, PCRE2's and std::regex's syntax
  bool ignoreCase;
};

const PATTERN kPatterns[] = {
    {"literal", "Sherlock", false},
    {"class", "[A-Z][a-z]+", false},
    {"alternation", "Sherlock|Holmes|Watson|Irene|Adler|Moriarty|Lestrade|Baker|Hudson|Mycroft",
     false},
    {"dot_star_tail", "ERROR.*timeout", false},
    {"dot_star_head", ".*timeout", false},
    {"ignore_case", "holmes", true},
};

std::u16string Widen(const char* s) {
  return std::u16string(s, s + strlen(s));
}

// ---------------------------------------------------------------- searches

void SearchOurs(benchmark::State& state, const PATTERN& p) {
  const TEXT& text = Corpus();
  const std::u16string pattern = Widen(p.ours);
  UCREGEXP re;
  re.Compile(reinterpret_cast<const unsigned short*>(pattern.c_str()), p.ignoreCase);
  const auto* units = reinterpret_cast<const unsigned short*>(text.utf16.data());
  const unsigned long n = text.utf16.size();
  long matches = 0;
  for (auto _ : state) {
    matches = 0;
    unsigned long pos = 0, first, last;
    while (pos < n && re.Exec(units + pos, &first, &last, n - pos, 0)) {
      ++matches;
      pos += last > first ? last : first + 1;
    }
    benchmark::DoNotOptimize(matches);
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * text.utf8.size()));
  state.counters["matches"] = static_cast<double>(matches);
}

void SearchRe2(benchmark::State& state, const PATTERN& p) {
  const TEXT& text = Corpus();
  RE2::Options options;
  options.set_case_sensitive(!p.ignoreCase);
  options.set_max_mem(64 << 20);
  const RE2 re(p.ours, options);
  long matches = 0;
  for (auto _ : state) {
    matches = 0;
    re2::StringPiece input(text.utf8);
    while (RE2::FindAndConsume(&input, re)) ++matches;
    benchmark::DoNotOptimize(matches);
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * text.utf8.size()));
  state.counters["matches"] = static_cast<double>(matches);
}

void SearchPcre2(benchmark::State& state, const PATTERN& p) {
  const TEXT& text = Corpus();
  const std::u16string pattern = Widen(p.ours);
  int error = 0;
  PCRE2_SIZE offset = 0;
  pcre2_code* code =
      pcre2_compile(reinterpret_cast<PCRE2_SPTR>(pattern.data()), pattern.size(),
                    PCRE2_UTF | PCRE2_NO_UTF_CHECK | (p.ignoreCase ? PCRE2_CASELESS : 0), &error,
                    &offset, nullptr);
  pcre2_jit_compile(code, PCRE2_JIT_COMPLETE);
  pcre2_match_data* data = pcre2_match_data_create_from_pattern(code, nullptr);
  const auto* subject = reinterpret_cast<PCRE2_SPTR>(text.utf16.data());
  const size_t n = text.utf16.size();
  long matches = 0;
  for (auto _ : state) {
    matches = 0;
    for (size_t pos = 0; pos < n;) {
      if (pcre2_jit_match(code, subject, n, pos, PCRE2_NO_UTF_CHECK, data, nullptr) < 0) break;
      const PCRE2_SIZE* ov = pcre2_get_ovector_pointer(data);
      ++matches;
      pos = ov[1] > ov[0] ? ov[1] : ov[0] + 1;
    }
    benchmark::DoNotOptimize(matches);
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * text.utf8.size()));
  state.counters["matches"] = static_cast<double>(matches);
  pcre2_match_data_free(data);
  pcre2_code_free(code);
}

void SearchStd(benchmark::State& state, const PATTERN& p) {
  const TEXT& text = Corpus();
  const std::string slice = text.utf8.substr(0, text.utf8.size() / 10);
  const std::regex re(
      p.ours, p.ignoreCase ? std::regex::ECMAScript | std::regex::icase : std::regex::ECMAScript);
  long matches = 0;
  for (auto _ : state) {
    matches =
        std::distance(std::sregex_iterator(slice.begin(), slice.end(), re), std::sregex_iterator());
    benchmark::DoNotOptimize(matches);
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * slice.size()));
  state.counters["matches"] = static_cast<double>(matches);
}

// ---------------------------------------------------------------- compiles

void CompileOurs(benchmark::State& state, const PATTERN& p) {
  const std::u16string pattern = Widen(p.ours);
  for (auto _ : state) {
    UCREGEXP re;
    re.Compile(reinterpret_cast<const unsigned short*>(pattern.c_str()), p.ignoreCase);
    benchmark::DoNotOptimize(re.StateCount());
  }
}

void CompileRe2(benchmark::State& state, const PATTERN& p) {
  RE2::Options options;
  options.set_case_sensitive(!p.ignoreCase);
  for (auto _ : state) {
    RE2 re(p.ours, options);
    // RE2 builds its automaton at the first search: one short search counts.
    benchmark::DoNotOptimize(RE2::PartialMatch("x", re));
  }
}

void CompilePcre2(benchmark::State& state, const PATTERN& p) {
  const std::u16string pattern = Widen(p.ours);
  for (auto _ : state) {
    int error = 0;
    PCRE2_SIZE offset = 0;
    pcre2_code* code =
        pcre2_compile(reinterpret_cast<PCRE2_SPTR>(pattern.data()), pattern.size(),
                      PCRE2_UTF | (p.ignoreCase ? PCRE2_CASELESS : 0), &error, &offset, nullptr);
    pcre2_jit_compile(code, PCRE2_JIT_COMPLETE);
    pcre2_code_free(code);
  }
}

void CompileStd(benchmark::State& state, const PATTERN& p) {
  for (auto _ : state) {
    std::regex re(
        p.ours, p.ignoreCase ? std::regex::ECMAScript | std::regex::icase : std::regex::ECMAScript);
    benchmark::DoNotOptimize(re.mark_count());
  }
}

const bool kRegistered = [] {
  for (const PATTERN& p : kPatterns) {
    const std::string name = p.name;
    benchmark::RegisterBenchmark(("search/ucregexp/" + name).c_str(), SearchOurs, p);
    benchmark::RegisterBenchmark(("search/re2/" + name).c_str(), SearchRe2, p);
    benchmark::RegisterBenchmark(("search/pcre2_jit/" + name).c_str(), SearchPcre2, p);
    benchmark::RegisterBenchmark(("search/std_regex/" + name).c_str(), SearchStd, p);
  }
  for (const PATTERN& p : kPatterns) {
    const std::string name = p.name;
    benchmark::RegisterBenchmark(("compile/ucregexp/" + name).c_str(), CompileOurs, p);
    benchmark::RegisterBenchmark(("compile/re2/" + name).c_str(), CompileRe2, p);
    benchmark::RegisterBenchmark(("compile/pcre2_jit/" + name).c_str(), CompilePcre2, p);
    benchmark::RegisterBenchmark(("compile/std_regex/" + name).c_str(), CompileStd, p);
  }
  return true;
}();

}  // namespace

BENCHMARK_MAIN();
