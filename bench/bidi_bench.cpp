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
//     forms ICU gives) against u_shapeArabic with letter shaping.
// Input "lines" is the text line by line (about 90 units a line), as a
// renderer asks; "paragraph" is the whole text as one line. Every call
// returns a fresh result on the heap, which the benchmark frees, as our
// functions do; the other libraries get their working arrays made once.
// Bytes processed are the UTF-8 bytes of the text, so throughputs compare
// as times. At the end the ratios of ours to each other library are printed.
#include <benchmark/benchmark.h>
#include <fribidi.h>
#include <unicode/ubidi.h>
#include <unicode/ushape.h>

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
      line += kind == 2 ? Word(rng, 0x0628, 20) : Word(rng, u'a', 26);
    } else if (r == 2) {
      line += u"(" + (kind == 0 ? Word(rng, 0x05D0, 27) : Word(rng, 0x062A, 20)) + u")";
    } else {
      line += kind == 0   ? Word(rng, 0x0628, 20)
              : kind == 1 ? Word(rng, 0x05D0, 27)
                          : Word(rng, u'a', 26);
    }
  }
  return line + (kind == 2 ? u"." : u"\u06D4");
}

size_t Utf8Size(const std::u16string& s) {
  size_t n = 0;
  for (char16_t c : s) n += c < 0x80 ? 1 : c < 0x800 ? 2 : 3;
  return n;
}

struct CORPUS {
  std::vector<std::u16string> lines;
  std::u16string paragraph;
  size_t utf8 = 0;
  std::vector<std::u32string> lines32;
  std::u32string paragraph32;

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
  }
  const std::vector<std::u16string>& Input(bool whole) const {
    static std::vector<std::u16string> one;
    if (one.empty()) one.push_back(paragraph);
    return whole ? one : lines;
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

int FormsB(const unsigned char* record, void*) {
  const unsigned short code = UCDATA::Code(record);
  return code >= 0xFE70 && code <= 0xFEFF;
}

void ShapeVosys(benchmark::State& state, bool whole) {
  const auto& input = Corpus().Input(whole);
  for (auto _ : state) {
    for (const auto& line : input) {
      unsigned short* shaped =
          MucDoGlyphSubstitutions(Units(line), FormsB, nullptr, GLYPHFEATURE_Contextual);
      benchmark::DoNotOptimize(shaped);
      free(shaped);
    }
  }
  state.SetBytesProcessed(state.iterations() * Corpus().utf8);
}

void ShapeIcu(benchmark::State& state, bool whole) {
  const auto& input = Corpus().Input(whole);
  for (auto _ : state) {
    for (const auto& line : input) {
      UErrorCode status = U_ZERO_ERROR;
      const int32_t n = static_cast<int32_t>(line.size());
      auto* shaped = static_cast<UChar*>(malloc((n + 1) * sizeof(UChar)));
      u_shapeArabic(line.c_str(), n, shaped, n + 1,
                    U_SHAPE_LETTERS_SHAPE | U_SHAPE_LENGTH_GROW_SHRINK, &status);
      benchmark::DoNotOptimize(shaped);
      free(shaped);
      if (U_FAILURE(status)) state.SkipWithError("u_shapeArabic failed");
    }
  }
  state.SetBytesProcessed(state.iterations() * Corpus().utf8);
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
      for (const char* input : {"lines", "paragraph"}) {
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
  for (bool whole : {false, true}) {
    const char* input = whole ? "paragraph" : "lines";
    auto name = [input](const char* what) { return std::string(what) + "/" + input; };
    benchmark::RegisterBenchmark(name("bidi/vosys").c_str(), BidiVosys, whole);
    benchmark::RegisterBenchmark(name("bidi/icu").c_str(), BidiIcu, whole);
    benchmark::RegisterBenchmark(name("bidi/fribidi").c_str(), BidiFribidi, whole);
    benchmark::RegisterBenchmark(name("shape/vosys").c_str(), ShapeVosys, whole);
    benchmark::RegisterBenchmark(name("shape/icu").c_str(), ShapeIcu, whole);
  }
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  GetUCDATA('A');  // the database loads before any timing
  RATIOREPORTER reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  reporter.PrintRatios();
  return 0;
}
