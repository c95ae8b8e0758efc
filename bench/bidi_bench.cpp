// Bidirectional text and Arabic shaping against ICU and FriBidi, on about
// 1 MB (UTF-8) of generated mixed text: Arabic sentences with Latin names
// and numbers, Hebrew sentences with numbers and brackets, English with
// Arabic and Hebrew words.
//
// Names read "<operation>/<implementation>/<input>":
//   bidi: logical to visual order, mirrored, the base direction detected.
//     vosys: BIDISTRING::SetStringLogical and GetStringVisual; icu:
//     ubidi_setPara and ubidi_writeReordered; fribidi: bidi types, bracket
//     types, embedding levels, mirroring and fribidi_reorder_line (the
//     reordering of fribidi_log2vis without its Arabic shaping), on UTF-32
//     text converted beforehand.
//   shape: MucDoGlyphSubstitutions with a font of Presentation Forms-B (the
//     forms ICU gives) against u_shapeArabic with letter shaping, whose
//     lam-alef ligatures shrink the text as ours do. The Arabic words are
//     of the letters on which the two agree (no hamza, no alef with hamza
//     below, no vowel signs), and the results are compared before timing:
//     both do the same job, character for character.
// Input "lines" is the text line by line (about 90 units a line), as a
// renderer asks; "paragraph" is the whole text as one line. Shaping also
// runs on "word", the Arabic words one at a time (about 5 units), and
// "page", the lines joined 40 at a time (about 3,700 units). Every call
// returns a fresh result on the heap, which the benchmark frees, as our
// functions do; the other libraries get their working arrays made once.
// Bytes processed are the UTF-8 bytes of the input, so throughputs compare
// as times. At the end the ratios of ours to each other library are printed.
#include <benchmark/benchmark.h>
#include <fribidi.h>
#include <unicode/ubidi.h>
#include <unicode/ushape.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "vosystem/bidi.h"
#include "vosystem/glyphs.h"
#include "vosystem/ucdata.h"

namespace {

constexpr size_t kTextBytes = 1 << 20;

std::u16string Word(std::mt19937& rng, char16_t first, int letters) {
  std::u16string w;
  for (int n = 2 + rng() % 7; n > 0; --n) w += static_cast<char16_t>(first + rng() % letters);
  return w;
}

// Arabic letters that join on both sides and on the right only, and now and
// then lam-alef, which both shape as a ligature.
std::u16string ArabicWord(std::mt19937& rng) {
  static const char16_t kLetters[] =
      u"\u0628\u062A\u062C\u062D\u0633\u0635\u0637\u0639\u0641\u0642\u0643\u0644\u0645\u0646"
      u"\u0647\u064A\u0627\u062F\u0630\u0631\u0632\u0648\u0622\u0623\u0624\u0629";
  std::u16string w;
  for (int n = 2 + rng() % 7; n > 0; --n) {
    if (rng() % 12 == 0)
      w += u"\u0644\u0627";
    else
      w += kLetters[rng() % (sizeof kLetters / sizeof *kLetters - 1)];
  }
  return w;
}

std::u16string Number(std::mt19937& rng) {
  std::u16string n = std::u16string(1, u'1' + rng() % 9);
  for (int k = rng() % 5; k > 0; --k) n += static_cast<char16_t>(u'0' + rng() % 10);
  if (rng() % 3 == 0) n += u"." + std::u16string(1, u'0' + rng() % 10);
  return n;
}

// One line: words of a main script, with now and then a word of another,
// a number or a bracketed word, and a full stop.
std::u16string Line(std::mt19937& rng) {
  const int kind = rng() % 3;
  std::u16string line;
  for (int w = 8 + rng() % 10; w > 0; --w) {
    if (!line.empty()) line += u' ';
    const int r = rng() % 12;
    if (r == 0) {
      line += Number(rng);
    } else if (r == 1) {
      line += kind == 2 ? ArabicWord(rng) : Word(rng, u'a', 26);
    } else if (r == 2) {
      line += u"(" + (kind == 0 ? Word(rng, 0x05D0, 27) : ArabicWord(rng)) + u")";
    } else {
      line += kind == 0 ? ArabicWord(rng) : kind == 1 ? Word(rng, 0x05D0, 27) : Word(rng, u'a', 26);
    }
  }
  return line + (kind == 2 ? u"." : u"\u06D4");
}

size_t Utf8Size(const std::u16string& s) {
  size_t n = 0;
  for (char16_t c : s) n += c < 0x80 ? 1 : c < 0x800 ? 2 : 3;
  return n;
}

// The inputs, as names read them.
enum INPUT { INPUT_Word, INPUT_Lines, INPUT_Page, INPUT_Paragraph };
const char* const kInputNames[] = {"word", "lines", "page", "paragraph"};
constexpr size_t kPageLines = 40;

struct CORPUS {
  std::vector<std::u16string> lines;
  std::u16string paragraph;
  size_t utf8 = 0;
  std::vector<std::u32string> lines32;
  std::u32string paragraph32;
  std::vector<std::u16string> inputs[4];  // by INPUT
  size_t bytes[4] = {};                   // UTF-8 bytes of each input

  CORPUS() {
    std::mt19937 rng(20240611);
    while (utf8 < kTextBytes) {
      lines.push_back(Line(rng));
      utf8 += Utf8Size(lines.back());
      paragraph += lines.back() + u' ';
    }
    paragraph.pop_back();
    for (const auto& l : lines) lines32.emplace_back(l.begin(), l.end());
    paragraph32.assign(paragraph.begin(), paragraph.end());
    inputs[INPUT_Lines] = lines;
    inputs[INPUT_Paragraph] = {paragraph};
    for (size_t i = 0; i < lines.size(); i += kPageLines) {
      std::u16string page;
      for (size_t k = i; k < std::min(i + kPageLines, lines.size()); ++k)
        page += (page.empty() ? u"" : u" ") + lines[k];
      inputs[INPUT_Page].push_back(page);
    }
    // The words of Arabic letters only.
    for (const auto& l : lines) {
      for (size_t i = 0, j; i < l.size(); i = j + 1) {
        j = std::min(l.find(u' ', i), l.size());
        const std::u16string w = l.substr(i, j - i);
        if (!w.empty() &&
            std::all_of(w.begin(), w.end(), [](char16_t c) { return c >= 0x0621 && c <= 0x064A; }))
          inputs[INPUT_Word].push_back(w);
      }
    }
    for (int k = 0; k < 4; ++k)
      for (const auto& text : inputs[k]) bytes[k] += Utf8Size(text);
  }
  const std::vector<std::u16string>& Input(bool whole) const {
    return inputs[whole ? INPUT_Paragraph : INPUT_Lines];
  }
  const std::vector<std::u32string>& Input32(bool whole) const {
    static std::vector<std::u32string> one;
    if (one.empty()) one.push_back(paragraph32);
    return whole ? one : lines32;
  }
};

const CORPUS& Corpus() {
  static const CORPUS corpus;
  return corpus;
}

const unsigned short* Units(const std::u16string& s) {
  return reinterpret_cast<const unsigned short*>(s.c_str());
}

void BidiVosys(benchmark::State& state, bool whole) {
  const auto& input = Corpus().Input(whole);
  BIDISTRING bidi;
  for (auto _ : state) {
    for (const auto& line : input) {
      bidi.SetStringLogical(Units(line), BIDISTRING::DIRECTION_LeftToRight, false);
      unsigned short* visual = bidi.GetStringVisual();
      benchmark::DoNotOptimize(visual);
      free(visual);
    }
  }
  state.SetBytesProcessed(state.iterations() * Corpus().utf8);
}

void BidiIcu(benchmark::State& state, bool whole) {
  const auto& input = Corpus().Input(whole);
  UBiDi* bidi = ubidi_open();
  for (auto _ : state) {
    for (const auto& line : input) {
      UErrorCode status = U_ZERO_ERROR;
      const int32_t n = static_cast<int32_t>(line.size());
      ubidi_setPara(bidi, line.c_str(), n, UBIDI_DEFAULT_LTR, nullptr, &status);
      auto* visual = static_cast<UChar*>(malloc((n + 1) * sizeof(UChar)));
      ubidi_writeReordered(bidi, visual, n + 1, UBIDI_DO_MIRRORING, &status);
      benchmark::DoNotOptimize(visual);
      free(visual);
      if (U_FAILURE(status)) state.SkipWithError("ubidi failed");
    }
  }
  ubidi_close(bidi);
  state.SetBytesProcessed(state.iterations() * Corpus().utf8);
}

void BidiFribidi(benchmark::State& state, bool whole) {
  const auto& input = Corpus().Input32(whole);
  size_t longest = 0;
  for (const auto& line : input) longest = std::max(longest, line.size());
  std::vector<FriBidiCharType> types(longest);
  std::vector<FriBidiBracketType> brackets(longest);
  std::vector<FriBidiLevel> levels(longest);
  for (auto _ : state) {
    for (const auto& line : input) {
      const auto* text = reinterpret_cast<const FriBidiChar*>(line.data());
      const FriBidiStrIndex n = static_cast<FriBidiStrIndex>(line.size());
      FriBidiParType base = FRIBIDI_PAR_ON;
      fribidi_get_bidi_types(text, n, types.data());
      fribidi_get_bracket_types(text, n, types.data(), brackets.data());
      if (!fribidi_get_par_embedding_levels_ex(types.data(), brackets.data(), n, &base,
                                               levels.data()))
        state.SkipWithError("fribidi failed");
      auto* visual = static_cast<FriBidiChar*>(malloc((n + 1) * sizeof(FriBidiChar)));
      std::copy(text, text + n, visual);
      fribidi_shape_mirroring(levels.data(), n, visual);
      if (!fribidi_reorder_line(FRIBIDI_FLAGS_DEFAULT, types.data(), n, 0, base, levels.data(),
                                visual, nullptr))
        state.SkipWithError("fribidi failed");
      benchmark::DoNotOptimize(visual);
      free(visual);
    }
  }
  state.SetBytesProcessed(state.iterations() * Corpus().utf8);
}

// The font of the comparison: Presentation Forms-B, which is what ICU
// gives, asked as a renderer asks its font whether it has a glyph.
int FormsB(const unsigned char* record, void*) {
  const unsigned short code = UCDATA::Code(record);
  return code >= 0xFE70 && code <= 0xFEFF;
}

unsigned short* OursShaped(const std::u16string& text) {
  return MucDoGlyphSubstitutions(Units(text), FormsB, nullptr, GLYPHFEATURE_Contextual);
}

// As a user of ICU who has the length at hand: a result of the largest
// size, letters shaped, lam-alef ligatures shrinking the text.
UChar* IcuShaped(const std::u16string& text, UErrorCode* status) {
  const int32_t n = static_cast<int32_t>(text.size());
  auto* shaped = static_cast<UChar*>(malloc((n + 1) * sizeof(UChar)));
  if (shaped)
    u_shapeArabic(text.c_str(), n, shaped, n + 1,
                  U_SHAPE_LETTERS_SHAPE | U_SHAPE_LENGTH_GROW_SHRINK, status);
  return shaped;
}

// Bytes per second, and the time of one call (of one text) as "per_call".
void SetCounters(benchmark::State& state, INPUT which) {
  state.SetBytesProcessed(state.iterations() * Corpus().bytes[which]);
  state.counters["per_call"] = benchmark::Counter(
      static_cast<double>(Corpus().inputs[which].size()),
      benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}

void ShapeVosys(benchmark::State& state, INPUT which) {
  const auto& input = Corpus().inputs[which];
  for (auto _ : state) {
    for (const auto& text : input) {
      unsigned short* shaped = OursShaped(text);
      benchmark::DoNotOptimize(shaped);
      free(shaped);
    }
  }
  SetCounters(state, which);
}

void ShapeIcu(benchmark::State& state, INPUT which) {
  const auto& input = Corpus().inputs[which];
  for (auto _ : state) {
    for (const auto& text : input) {
      UErrorCode status = U_ZERO_ERROR;
      UChar* shaped = IcuShaped(text, &status);
      benchmark::DoNotOptimize(shaped);
      free(shaped);
      if (U_FAILURE(status)) state.SkipWithError("u_shapeArabic failed");
    }
  }
  SetCounters(state, which);
}

// The texts of each input that the two shape differently; none, or the
// comparison would be of different jobs.
size_t ShapingDifferences(INPUT which) {
  size_t differences = 0;
  for (const auto& text : Corpus().inputs[which]) {
    UErrorCode status = U_ZERO_ERROR;
    unsigned short* ours = OursShaped(text);
    UChar* icu = IcuShaped(text, &status);
    differences += !ours || !icu || U_FAILURE(status) ||
                   std::u16string(reinterpret_cast<const char16_t*>(ours)) != std::u16string(icu);
    free(ours);
    free(icu);
  }
  return differences;
}

// Keeps each run's throughput for the ratios printed at the end.
class RATIOREPORTER : public benchmark::ConsoleReporter {
 public:
  void ReportRuns(const std::vector<Run>& runs) override {
    for (const Run& run : runs) {
      if (run.run_type != Run::RT_Iteration || run.error_occurred) continue;
      double& best = m_best[run.benchmark_name()];
      auto it = run.counters.find("bytes_per_second");
      if (it != run.counters.end()) best = std::max(best, static_cast<double>(it->second));
    }
    ConsoleReporter::ReportRuns(runs);
  }

  void PrintRatios() const {
    std::printf("\nratio of throughputs (best run), ours to theirs:\n");
    for (const char* op : {"bidi", "shape"}) {
      for (const char* input : kInputNames) {
        const double ours = Get(op, "vosys", input);
        for (const char* other : {"icu", "fribidi"}) {
          const double theirs = Get(op, other, input);
          if (ours > 0 && theirs > 0)
            std::printf("  %-5s %-9s vosys/%-7s %6.2fx\n", op, input, other, ours / theirs);
        }
      }
    }
  }

 private:
  double Get(const char* op, const char* impl, const char* input) const {
    auto it = m_best.find(std::string(op) + "/" + impl + "/" + input);
    return it == m_best.end() ? 0 : it->second;
  }

  std::map<std::string, double> m_best;
};

}  // namespace

int main(int argc, char** argv) {
  for (INPUT which : {INPUT_Word, INPUT_Lines, INPUT_Page, INPUT_Paragraph}) {
    const char* input = kInputNames[which];
    auto name = [input](const char* what) { return std::string(what) + "/" + input; };
    if (which == INPUT_Lines || which == INPUT_Paragraph) {
      const bool whole = which == INPUT_Paragraph;
      benchmark::RegisterBenchmark(name("bidi/vosys").c_str(), BidiVosys, whole);
      benchmark::RegisterBenchmark(name("bidi/icu").c_str(), BidiIcu, whole);
      benchmark::RegisterBenchmark(name("bidi/fribidi").c_str(), BidiFribidi, whole);
    }
    benchmark::RegisterBenchmark(name("shape/vosys").c_str(), ShapeVosys, which);
    benchmark::RegisterBenchmark(name("shape/icu").c_str(), ShapeIcu, which);
  }
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  GetUCDATA('A');  // the database loads before any timing
  for (INPUT which : {INPUT_Word, INPUT_Lines, INPUT_Page, INPUT_Paragraph}) {
    const size_t differences = ShapingDifferences(which);
    std::fprintf(stderr, "shape/%s: %zu texts of %zu UTF-8 bytes, %zu shaped differently by ICU\n",
                 kInputNames[which], Corpus().inputs[which].size(), Corpus().bytes[which],
                 differences);
  }
  RATIOREPORTER reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  reporter.PrintRatios();
  return 0;
}
