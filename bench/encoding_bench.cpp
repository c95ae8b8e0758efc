// Decoding and encoding legacy text against glibc's iconv and ICU's ucnv, at
// 1 KB, 64 KB and 1 MB of text of each encoding's script.
//
// Names read "<direction>/<implementation>/<encoding>/<size>"; each counts
// the encoded text's bytes as bytes processed, so throughputs of one
// encoding and size compare as times. All three are measured as callers use
// them: a fresh result per call, freed after the call. Ours allocates its
// result itself; iconv and ICU convert into a buffer malloc'd per call at the
// size a caller would pick without measuring first (two bytes a byte to
// decode, four a unit to encode).
//
// The text is words of 2 to 10 letters drawn from the letters of the
// encoding's script (for CJK, the characters of the main level of its
// charset), with spaces and now and then punctuation: generated, the same on
// every run.
#include <benchmark/benchmark.h>
#include <iconv.h>
#include <unicode/ucnv.h>

#include <cstdlib>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "vosystem/ucconv.h"

namespace {

struct SIZE {
  const char* label;
  size_t bytes;
};
const SIZE kSizes[] = {{"1K", 1 << 10}, {"64K", 64 << 10}, {"1M", 1 << 20}};

struct ENCODING {
  const char* ours;
  const char* iconvName;
  const char* icuName;
  std::vector<char16_t> letters;
};

std::vector<char16_t> Range(char16_t first, char16_t last) {
  std::vector<char16_t> v;
  for (char16_t c = first; c <= last; ++c) v.push_back(c);
  return v;
}

// The characters of a charset's codes hi*256+lo in the given ranges.
std::vector<char16_t> FromCharset(int charset, int hiFirst, int hiLast, int loFirst, int loLast) {
  std::vector<char16_t> v;
  for (int hi = hiFirst; hi <= hiLast; ++hi)
    for (int lo = loFirst; lo <= loLast; ++lo) {
      const int u = MucCharsetToUnicode(hi << 8 | lo, charset);
      if (u > 0x7F) v.push_back(static_cast<char16_t>(u));
    }
  return v;
}

std::vector<ENCODING>& Encodings() {
  static std::vector<ENCODING> all = [] {
    std::vector<char16_t> latin = Range(u'a', u'z');
    for (char16_t c : u"\u00E9\u00E8\u00E0\u00E7\u00FC\u00F6\u00E4\u00DF\u00F4\u00F1") latin.push_back(c);
    latin.pop_back();  // the literal's terminator
    std::vector<char16_t> kana = Range(0x3041, 0x3093);
    std::vector<char16_t> japanese = FromCharset(11, 0x30, 0x4F, 0x21, 0x7E);
    japanese.insert(japanese.end(), kana.begin(), kana.end());
    return std::vector<ENCODING>{
        {"ISO-8859-1", "ISO-8859-1", "ISO-8859-1", latin},
        {"CP1251", "CP1251", "windows-1251", Range(0x0430, 0x044F)},
        {"MacRoman", "MACINTOSH", "macintosh", latin},
        {"Shift-JIS", "SHIFT_JIS", "Shift_JIS", japanese},
        {"EUC", "EUC-JP", "EUC-JP", japanese},
        {"GB-2312", "EUC-CN", "GB2312", FromCharset(1, 0x30, 0x57, 0x21, 0x7E)},
        {"Big5", "BIG5", "Big5", FromCharset(7, 0xA4, 0xC6, 0x40, 0x7E)},
        {"KSC-5601", "EUC-KR", "EUC-KR", FromCharset(69, 0xB0, 0xC8, 0xA1, 0xFE)},
        {"UTF8", "UTF-8", "UTF-8", Range(0x0430, 0x044F)},
    };
  }();
  return all;
}

std::string IconvRun(const char* to, const char* from, const void* in, size_t inBytes, size_t outBytes) {
  iconv_t cd = iconv_open(to, from);
  std::string out(outBytes, '\0');
  char* i = static_cast<char*>(const_cast<void*>(in));
  char* o = out.data();
  size_t inLeft = inBytes, outLeft = outBytes;
  iconv(cd, &i, &inLeft, &o, &outLeft);
  iconv_close(cd);
  out.resize(outBytes - outLeft);
  return out;
}

struct TEXT {
  std::u16string utf16;  // NUL-terminated through c_str()
  std::string bytes;     // the same in the encoding
};

TEXT MakeText(const ENCODING& e, size_t size) {
  std::mt19937 rng(2024);
  TEXT t;
  for (;;) {
    std::u16string word;
    for (int i = 2 + static_cast<int>(rng() % 9); i > 0; --i)
      word += e.letters[rng() % e.letters.size()];
    word += rng() % 12 == 0 ? u". " : u" ";
    const std::string bytes = IconvRun(e.iconvName, "UTF-16LE", word.data(), word.size() * 2, word.size() * 8);
    if (t.bytes.size() + bytes.size() > size) return t;
    t.utf16 += word;
    t.bytes += bytes;
  }
}

void DecodeOurs(benchmark::State& state, const ENCODING* e, const TEXT* t) {
  void* conv = nullptr;
  MucInitConversion(&conv, e->ours, 1);
  for (auto _ : state) {
    unsigned short* out = nullptr;
    benchmark::DoNotOptimize(MucConvertToUnicode(conv, t->bytes.c_str(), &out));
    free(out);
  }
  MucStopConversion(conv);
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * t->bytes.size()));
}

void EncodeOurs(benchmark::State& state, const ENCODING* e, const TEXT* t) {
  void* conv = nullptr;
  MucInitConversion(&conv, e->ours, 1);
  const auto* text = reinterpret_cast<const unsigned short*>(t->utf16.c_str());
  for (auto _ : state) {
    char* out = nullptr;
    benchmark::DoNotOptimize(MucConvertFromUnicode(conv, text, &out));
    free(out);
  }
  MucStopConversion(conv);
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * t->bytes.size()));
}

void Iconv(benchmark::State& state, const char* to, const char* from, const void* in, size_t inBytes,
           size_t outBytes, size_t processed) {
  iconv_t cd = iconv_open(to, from);
  for (auto _ : state) {
    char* out = static_cast<char*>(malloc(outBytes));
    char* i = static_cast<char*>(const_cast<void*>(in));
    char* o = out;
    size_t inLeft = inBytes, outLeft = outBytes;
    iconv(cd, nullptr, nullptr, nullptr, nullptr);
    benchmark::DoNotOptimize(iconv(cd, &i, &inLeft, &o, &outLeft));
    free(out);
  }
  iconv_close(cd);
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * processed));
}

void DecodeIconv(benchmark::State& state, const ENCODING* e, const TEXT* t) {
  Iconv(state, "UTF-16LE", e->iconvName, t->bytes.data(), t->bytes.size(), t->bytes.size() * 2 + 4,
        t->bytes.size());
}

void EncodeIconv(benchmark::State& state, const ENCODING* e, const TEXT* t) {
  Iconv(state, e->iconvName, "UTF-16LE", t->utf16.data(), t->utf16.size() * 2, t->utf16.size() * 4 + 1,
        t->bytes.size());
}

void DecodeIcu(benchmark::State& state, const ENCODING* e, const TEXT* t) {
  UErrorCode status = U_ZERO_ERROR;
  UConverter* cnv = ucnv_open(e->icuName, &status);
  const int32_t capacity = static_cast<int32_t>(t->bytes.size() + 2);
  for (auto _ : state) {
    auto* out = static_cast<UChar*>(malloc(capacity * sizeof(UChar)));
    status = U_ZERO_ERROR;
    benchmark::DoNotOptimize(ucnv_toUChars(cnv, out, capacity, t->bytes.data(),
                                           static_cast<int32_t>(t->bytes.size()), &status));
    free(out);
  }
  ucnv_close(cnv);
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * t->bytes.size()));
}

void EncodeIcu(benchmark::State& state, const ENCODING* e, const TEXT* t) {
  UErrorCode status = U_ZERO_ERROR;
  UConverter* cnv = ucnv_open(e->icuName, &status);
  const int32_t capacity = static_cast<int32_t>(t->utf16.size() * 4 + 1);
  for (auto _ : state) {
    char* out = static_cast<char*>(malloc(capacity));
    status = U_ZERO_ERROR;
    benchmark::DoNotOptimize(ucnv_fromUChars(cnv, out, capacity,
                                             reinterpret_cast<const UChar*>(t->utf16.data()),
                                             static_cast<int32_t>(t->utf16.size()), &status));
    free(out);
  }
  ucnv_close(cnv);
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * t->bytes.size()));
}

using BenchFn = void (*)(benchmark::State&, const ENCODING*, const TEXT*);

void RegisterAll() {
  static std::vector<TEXT> texts;
  texts.reserve(Encodings().size() * 3);
  const struct {
    const char* name;
    BenchFn fn;
  } entries[] = {{"decode/vosys", DecodeOurs}, {"decode/iconv", DecodeIconv}, {"decode/icu", DecodeIcu},
                 {"encode/vosys", EncodeOurs}, {"encode/iconv", EncodeIconv}, {"encode/icu", EncodeIcu}};
  for (const ENCODING& e : Encodings()) {
    for (const SIZE& size : kSizes) {
      texts.push_back(MakeText(e, size.bytes));
      const TEXT* t = &texts.back();
      for (const auto& entry : entries) {
        const std::string name = std::string(entry.name) + "/" + e.ours + "/" + size.label;
        benchmark::RegisterBenchmark(name.c_str(), entry.fn, &e, t)->Unit(benchmark::kMicrosecond);
      }
    }
  }
}

}  // namespace

int main(int argc, char** argv) {
  RegisterAll();
  benchmark::Initialize(&argc, argv);
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  return 0;
}
