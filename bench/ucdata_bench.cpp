// The character database against ICU: case mapping, category and bidi class
// tests over 1 MB of mixed-script UTF-16 text, decomposition and composition,
// and the time and memory of loading "ucdata.ref".
//
// Names read "ucdata_<operation>/<implementation>/<input>"; the
// implementations are "vosys" and "icu". Bytes processed are the UTF-16 bytes
// of the input text, and for the loads the bytes of the file, so that the
// throughputs of one operation compare as times.
#include <benchmark/benchmark.h>
#include <unicode/normalizer2.h>
#include <unicode/uchar.h>
#include <unicode/unistr.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "files/readfile.h"
#include "text/ucdata_table.h"
#include "vosystem/filefind.h"
#include "vosystem/ucdata.h"
#include "vosystem/ucdecomp.h"

namespace {

constexpr size_t kTextBytes = 1 << 20;

// ---------------------------------------------------------------- text

// Draws one letter of a word of the script; upper case now and then where the
// script has case.
using LetterSource = char16_t (*)(std::mt19937&, bool upper);

char16_t LatinLetter(std::mt19937& rng, bool upper) {
  // Latin-1 and Extended-A letters, about one in six: most of them decompose.
  if (rng() % 6 == 0) {
    char16_t c = static_cast<char16_t>(rng() % 2 ? 0x00C0 + rng() % 0x40 : 0x0100 + rng() % 0x80);
    if (c == 0x00D7 || c == 0x00F7) c = 0x00E9;  // the signs among the letters
    return c;
  }
  return static_cast<char16_t>((upper ? u'A' : u'a') + rng() % 26);
}

char16_t GreekLetter(std::mt19937& rng, bool upper) {
  if (rng() % 8 == 0) return static_cast<char16_t>(0x03AC + rng() % 4);  // with tonos
  const char16_t c = static_cast<char16_t>((upper ? 0x0391 : 0x03B1) + rng() % 25);
  return c == 0x03A2 ? 0x03A3 : c;  // no capital final sigma
}

char16_t CyrillicLetter(std::mt19937& rng, bool upper) {
  if (rng() % 16 == 0) return static_cast<char16_t>((upper ? 0x0400 : 0x0450) + rng() % 16);
  return static_cast<char16_t>((upper ? 0x0410 : 0x0430) + rng() % 32);
}

char16_t ArabicLetter(std::mt19937& rng, bool) {
  return static_cast<char16_t>(0x0621 + rng() % 42);
}

char16_t CjkLetter(std::mt19937& rng, bool) {
  return static_cast<char16_t>(0x4E00 + rng() % 0x51A6);
}

char16_t HangulLetter(std::mt19937& rng, bool) {
  return static_cast<char16_t>(0xAC00 + rng() % 11172);
}

// Words of 2 to 8 letters of one script each, the cased ones capitalised one
// time in four, separated by spaces, digits and punctuation.
std::u16string MakeMixedText() {
  static const LetterSource kScripts[] = {LatinLetter,  GreekLetter, CyrillicLetter,
                                          ArabicLetter, CjkLetter,   HangulLetter};
  static const char16_t kPunctuation[] = u",.;:!?()\u00AB\u00BB\u2014\u3001\u060C";
  std::mt19937 rng(2024);
  std::u16string text;
  while (text.size() * 2 < kTextBytes) {
    const LetterSource letter = kScripts[rng() % 6];
    const int length = 2 + static_cast<int>(rng() % 7);
    const bool capital = rng() % 4 == 0;
    for (int i = 0; i < length; ++i) text += letter(rng, capital && i == 0);
    if (rng() % 6 == 0) text += kPunctuation[rng() % (sizeof kPunctuation / 2 - 1)];
    if (rng() % 20 == 0) text += static_cast<char16_t>(u'0' + rng() % 10);
    text += u' ';
  }
  text.resize(kTextBytes / 2);
  return text;
}

const std::u16string& MixedText() {
  static const std::u16string text = MakeMixedText();
  return text;
}

// The canonical decomposition of the mixed text: the input of both composers.
const std::u16string& DecomposedText() {
  static const std::u16string text = [] {
    UErrorCode err = U_ZERO_ERROR;
    const icu::Normalizer2* nfd = icu::Normalizer2::getNFDInstance(err);
    const std::u16string& mixed = MixedText();
    icu::UnicodeString out =
        nfd->normalize(icu::UnicodeString(mixed.data(), static_cast<int32_t>(mixed.size())), err);
    return std::u16string(out.getBuffer(), static_cast<size_t>(out.length()));
  }();
  return text;
}

const unsigned short* Units(const std::u16string& s) {
  return reinterpret_cast<const unsigned short*>(s.c_str());
}

void SetBytes(benchmark::State& state, size_t bytes) {
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(bytes));
}

// Without the data every query is a miss, and the figures mean nothing.
bool HaveDatabase(benchmark::State& state) {
  if (GetUCDATA(u'A')) return true;
  state.SkipWithError("ucdata.ref not found: set VOSYS_DATA_DIR or build the data");
  return false;
}

// ---------------------------------------------------------------- properties

void ToLowerVosys(benchmark::State& state) {
  if (!HaveDatabase(state)) return;
  const std::u16string& text = MixedText();
  std::vector<unsigned short> out(text.size());
  for (auto _ : state) {
    for (size_t i = 0; i < text.size(); ++i) out[i] = uctolower(text[i]);
    benchmark::ClobberMemory();
  }
  SetBytes(state, text.size() * 2);
}

void ToLowerIcu(benchmark::State& state) {
  const std::u16string& text = MixedText();
  std::vector<unsigned short> out(text.size());
  for (auto _ : state) {
    for (size_t i = 0; i < text.size(); ++i)
      out[i] = static_cast<unsigned short>(u_tolower(text[i]));
    benchmark::ClobberMemory();
  }
  SetBytes(state, text.size() * 2);
}

// The letters, Lu to Lo, in both numberings.
constexpr unsigned long kLetterMask = 0x3E;

void IsPropVosys(benchmark::State& state) {
  if (!HaveDatabase(state)) return;
  const std::u16string& text = MixedText();
  for (auto _ : state) {
    int letters = 0;
    for (char16_t c : text) letters += ucisprop(c, kLetterMask);
    benchmark::DoNotOptimize(letters);
  }
  SetBytes(state, text.size() * 2);
}

void IsPropIcu(benchmark::State& state) {
  const std::u16string& text = MixedText();
  for (auto _ : state) {
    int letters = 0;
    for (char16_t c : text) letters += (U_GET_GC_MASK(c) & U_GC_L_MASK) != 0;
    benchmark::DoNotOptimize(letters);
  }
  SetBytes(state, text.size() * 2);
}

// Right-to-left strong characters: R and AL.
constexpr unsigned long kRtlMask = UCPROP_MASK(UCBIDICLASS_R) | UCPROP_MASK(UCBIDICLASS_AL);

void IsBidiPropVosys(benchmark::State& state) {
  if (!HaveDatabase(state)) return;
  const std::u16string& text = MixedText();
  for (auto _ : state) {
    int rtl = 0;
    for (char16_t c : text) rtl += ucisbidiprop(c, kRtlMask);
    benchmark::DoNotOptimize(rtl);
  }
  SetBytes(state, text.size() * 2);
}

void IsBidiPropIcu(benchmark::State& state) {
  const std::u16string& text = MixedText();
  const uint32_t mask = U_MASK(U_RIGHT_TO_LEFT) | U_MASK(U_RIGHT_TO_LEFT_ARABIC);
  for (auto _ : state) {
    int rtl = 0;
    for (char16_t c : text) rtl += (U_MASK(u_charDirection(c)) & mask) != 0;
    benchmark::DoNotOptimize(rtl);
  }
  SetBytes(state, text.size() * 2);
}

// ---------------------------------------------------------------- normalisation
//
// Not the same job: the database holds one level of decomposition, applied
// without recursion and without putting marks in canonical order, where ICU's
// NFD and NFC decompose fully, reorder and compose by the canonical algorithm.
// The figures say what our form costs against the full one. Both sides
// allocate their result on every call.

void RunDecomposeVosys(benchmark::State& state, const std::u16string& text) {
  if (!HaveDatabase(state)) return;
  for (auto _ : state) {
    unsigned short* out = MucDecompose(Units(text));
    benchmark::DoNotOptimize(out);
    free(out);
  }
  SetBytes(state, text.size() * 2);
}

void RunIcu(benchmark::State& state, const std::u16string& text,
            const icu::Normalizer2* (*instance)(UErrorCode&)) {
  UErrorCode err = U_ZERO_ERROR;
  const icu::Normalizer2* form = instance(err);
  const icu::UnicodeString source(text.data(), static_cast<int32_t>(text.size()));
  for (auto _ : state) {
    icu::UnicodeString out = form->normalize(source, err);
    benchmark::DoNotOptimize(out.getBuffer());
  }
  if (U_FAILURE(err)) state.SkipWithError(u_errorName(err));
  SetBytes(state, text.size() * 2);
}

void DecomposeVosys(benchmark::State& state) {
  RunDecomposeVosys(state, MixedText());
}

void DecomposeIcu(benchmark::State& state) {
  RunIcu(state, MixedText(), icu::Normalizer2::getNFDInstance);
}

// Both compose the same decomposed text.
void RecomposeVosys(benchmark::State& state) {
  if (!HaveDatabase(state)) return;
  const std::u16string& text = DecomposedText();
  for (auto _ : state) {
    unsigned short* out = MucRecompose(Units(text));
    benchmark::DoNotOptimize(out);
    free(out);
  }
  SetBytes(state, text.size() * 2);
}

void RecomposeIcu(benchmark::State& state) {
  RunIcu(state, DecomposedText(), icu::Normalizer2::getNFCInstance);
}

// ---------------------------------------------------------------- loading

// The file, read once; empty if it can't be found.
const std::vector<unsigned char>& ReferenceFile() {
  static const std::vector<unsigned char> file = [] {
    std::vector<unsigned char> bytes;
    FILEPATH path;
    unsigned char* data = nullptr;
    size_t size = 0;
    if (FILEFIND::LocateReferenceFile("ucdata.ref", path, 0) &&
        ReadWholeFile(path, SIZE_MAX - 1, &data, &size) == 0) {
      bytes.assign(data, data + size);
    }
    free(data);
    return bytes;
  }();
  return file;
}

// What a loaded database holds: the file's block, the index on the heap
// (record pages, property pages, composition index), the top table.
void SetMemoryCounters(benchmark::State& state, const std::vector<unsigned char>& file) {
  std::vector<unsigned char> block(file);
  UCDATA_TABLE table;
  const int records = table.Index(block.data(), block.size());
  const double index = static_cast<double>(table.HeapBytes());
  table.Release();
  state.counters["records"] = records;
  state.counters["file_bytes"] = static_cast<double>(file.size());
  state.counters["index_bytes"] = index;
  state.counters["top_bytes"] = sizeof(UCDATA_TABLE);
  state.counters["total_bytes"] = static_cast<double>(file.size()) + index + sizeof(UCDATA_TABLE);
}

// Indexing alone: the file's bytes are copied into a fresh block each time,
// since indexing rewrites them in place.
void LoadIndex(benchmark::State& state) {
  const std::vector<unsigned char>& file = ReferenceFile();
  if (file.empty()) {
    state.SkipWithError("ucdata.ref not found");
    return;
  }
  for (auto _ : state) {
    auto* block = static_cast<unsigned char*>(malloc(file.size()));
    memcpy(block, file.data(), file.size());
    UCDATA_TABLE table;
    benchmark::DoNotOptimize(table.Index(block, file.size()));
    table.Release();
    free(block);
  }
  SetBytes(state, file.size());
  SetMemoryCounters(state, file);
}

// The whole load as the library does it, the file read included (from the
// page cache after the first time).
void LoadReadIndex(benchmark::State& state) {
  FILEPATH path;
  if (!FILEFIND::LocateReferenceFile("ucdata.ref", path, 0)) {
    state.SkipWithError("ucdata.ref not found");
    return;
  }
  size_t size = 0;
  for (auto _ : state) {
    unsigned char* block = nullptr;
    if (ReadWholeFile(path, SIZE_MAX - 1, &block, &size) < 0) {
      state.SkipWithError("ucdata.ref can't be read");
      break;
    }
    UCDATA_TABLE table;
    benchmark::DoNotOptimize(table.Index(block, size));
    table.Release();
    free(block);
  }
  SetBytes(state, size);
}

// ---------------------------------------------------------------- registration

#define VOSYS_UCDATA_BENCH(fn, op, impl, input) \
  BENCHMARK(fn)->Name("ucdata_" op "/" impl "/" input)->Unit(benchmark::kMicrosecond)

VOSYS_UCDATA_BENCH(ToLowerVosys, "tolower", "vosys", "mixed");
VOSYS_UCDATA_BENCH(ToLowerIcu, "tolower", "icu", "mixed");
VOSYS_UCDATA_BENCH(IsPropVosys, "isprop", "vosys", "mixed");
VOSYS_UCDATA_BENCH(IsPropIcu, "isprop", "icu", "mixed");
VOSYS_UCDATA_BENCH(IsBidiPropVosys, "isbidiprop", "vosys", "mixed");
VOSYS_UCDATA_BENCH(IsBidiPropIcu, "isbidiprop", "icu", "mixed");
VOSYS_UCDATA_BENCH(DecomposeVosys, "decompose", "vosys", "mixed");
VOSYS_UCDATA_BENCH(DecomposeIcu, "decompose", "icu", "mixed");
VOSYS_UCDATA_BENCH(RecomposeVosys, "recompose", "vosys", "decomposed");
VOSYS_UCDATA_BENCH(RecomposeIcu, "recompose", "icu", "decomposed");
VOSYS_UCDATA_BENCH(LoadIndex, "load_index", "vosys", "ucdata.ref");
VOSYS_UCDATA_BENCH(LoadReadIndex, "load_read_index", "vosys", "ucdata.ref");

}  // namespace

BENCHMARK_MAIN();
