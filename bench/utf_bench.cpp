// Throughput of the UTF-8 <-> UTF-16 converters against ICU, glibc's iconv and
// memcpy, on six generated corpora at 1 KB, 64 KB and 4 MB of UTF-8 each.
//
// Names read "<direction>/<implementation>/<corpus>/<size>". Our functions
// run on each kernel the processor has, side by side: the implementation
// reads "<function>:<kernel>" (the converters are compiled in, which lets
// the benchmark switch kernels). "<function>:ssse3_after_<kernel>" is the
// SSSE3 kernel after one call of a wide kernel (avx2, avx512), which must not
// slow it down: a wide kernel that left the upper halves of the registers
// dirty would. Every benchmark
// of a corpus and size counts the text's UTF-8 size as its bytes processed,
// whichever the direction, so that throughputs compare as times. memcpy
// copies the same source buffer as the converters of its direction.
//
// Two kinds of call. The stream converters, "icu" (u_strFromUTF8 /
// u_strToUTF8) and iconv write into a buffer allocated once, outside the
// loop. The heap converters allocate a fresh result on each call, which the
// benchmark frees after it, as their callers do; "icu_malloc" is what a user
// of ICU would write for the same job: with the text's length at hand (so
// ICU, unlike our heap converters, needn't look for the terminator) they
// malloc the largest result it can give, n + 1 units for n bytes of UTF-8
// or 3 n + 1 bytes for n units of UTF-16, convert once into it and free it
// after the call. Preflighting instead (a call with no buffer to learn the
// size) would cost ICU a second pass.
#include <benchmark/benchmark.h>
#include <iconv.h>
#include <unicode/ustring.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "text/utfconv_priv.h"
#include "vosystem/ucstring.h"

namespace {

// ---------------------------------------------------------------- corpora

struct Size {
  const char* label;
  size_t bytes;  // of UTF-8 text
};
const Size kSizes[] = {{"1K", 1 << 10}, {"64K", 64 << 10}, {"4M", 4 << 20}};

struct Corpus {
  std::string name;
  const char* size;  // label of its Size
  std::string utf8;
  std::u16string utf16;
};

void AppendUtf8(std::string& out, char32_t c) {
  if (c < 0x80) {
    out += static_cast<char>(c);
  } else if (c < 0x800) {
    out += static_cast<char>(0xC0 | (c >> 6));
    out += static_cast<char>(0x80 | (c & 0x3F));
  } else if (c < 0x10000) {
    out += static_cast<char>(0xE0 | (c >> 12));
    out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
    out += static_cast<char>(0x80 | (c & 0x3F));
  } else {
    out += static_cast<char>(0xF0 | (c >> 18));
    out += static_cast<char>(0x80 | ((c >> 12) & 0x3F));
    out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
    out += static_cast<char>(0x80 | (c & 0x3F));
  }
}

void AppendUtf16(std::u16string& out, char32_t c) {
  if (c < 0x10000) {
    out += static_cast<char16_t>(c);
  } else {
    out += static_cast<char16_t>(0xD800 + ((c - 0x10000) >> 10));
    out += static_cast<char16_t>(0xDC00 + (c & 0x3FF));
  }
}

// Draws one letter of the word-th word; the corpus is words of 2 to 10
// letters, each followed by a space, with a full stop and a line feed now and
// then.
using LetterSource = char32_t (*)(std::mt19937&, size_t word);

// The text stops at the last whole word that fits the size.
Corpus MakeCorpus(const std::string& name, const Size& size, LetterSource letter,
                  int space_every = 0) {
  std::mt19937 rng(12345);
  Corpus c{name, size.label, {}, {}};
  for (size_t word = 0;; ++word) {
    std::string word8;
    std::u16string word16;
    auto put = [&](char32_t ch) {
      AppendUtf8(word8, ch);
      AppendUtf16(word16, ch);
    };
    const int len = space_every ? space_every : 2 + static_cast<int>(rng() % 9);
    for (int i = 0; i < len; ++i) put(letter(rng, word));
    if (rng() % 12 == 0) put(U'.');
    put(rng() % 16 == 0 ? U'\n' : U' ');
    if (c.utf8.size() + word8.size() > size.bytes) return c;
    c.utf8 += word8;
    c.utf16 += word16;
  }
}

char32_t AsciiLetter(std::mt19937& rng, size_t = 0) {
  return U'a' + rng() % 26;
}

// Mostly ASCII with about one accented letter in twelve, as in French or German.
char32_t LatinLetter(std::mt19937& rng, size_t = 0) {
  static const char32_t kAccented[] = {U'é', U'è', U'à', U'ç', U'ü', U'ö', U'ä', U'ß', U'ô', U'ñ'};
  return rng() % 12 == 0 ? kAccented[rng() % 10] : AsciiLetter(rng);
}

char32_t CyrillicLetter(std::mt19937& rng, size_t = 0) {
  return 0x0410 + rng() % 64;
}

// CJK text has few spaces; most punctuation is itself three bytes.
char32_t CjkLetter(std::mt19937& rng, size_t = 0) {
  const unsigned r = rng() % 100;
  if (r < 3) return r == 0 ? 0x3001 : 0x3002;
  return 0x4E00 + rng() % 0x5200;
}

char32_t EmojiLetter(std::mt19937& rng, size_t = 0) {
  return 0x1F300 + rng() % 0x350;
}

// Runs of words of one script, as in a page that quotes other languages:
// each run of 8 words draws its script from its number.
char32_t MixedLetter(std::mt19937& rng, size_t word) {
  static const LetterSource kScripts[] = {LatinLetter, CyrillicLetter, CjkLetter,
                                          EmojiLetter, AsciiLetter,    LatinLetter};
  const uint32_t run = static_cast<uint32_t>(word / 8) * 2654435761u;
  return kScripts[(run >> 7) % 6](rng, word);
}

// Each corpus at each size, in the order of kSizes.
const std::vector<Corpus>& Corpora() {
  static const std::vector<Corpus> corpora = [] {
    std::vector<Corpus> all;
    for (const Size& size : kSizes) {
      all.push_back(MakeCorpus("ascii", size, AsciiLetter));
      all.push_back(MakeCorpus("latin", size, LatinLetter));
      all.push_back(MakeCorpus("cyrillic", size, CyrillicLetter));
      all.push_back(MakeCorpus("cjk", size, CjkLetter, 40));
      all.push_back(MakeCorpus("emoji", size, EmojiLetter, 5));
      all.push_back(MakeCorpus("mixed", size, MixedLetter));
    }
    return all;
  }();
  return corpora;
}

// ---------------------------------------------------------------- UTF-8 -> UTF-16

void SetThroughput(benchmark::State& state, const Corpus& c) {
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) *
                          static_cast<int64_t>(c.utf8.size()));
}

void Utf8ToUtf16Stream(benchmark::State& state, const Corpus* c) {
  std::vector<unsigned short> out(c->utf8.size() + 1);
  const auto* begin = reinterpret_cast<const unsigned char*>(c->utf8.data());
  for (auto _ : state) {
    const unsigned char* s = begin;
    unsigned short* d = out.data();
    int rc = ConvertUTF8toUTF16(&s, begin + c->utf8.size(), &d, out.data() + out.size());
    benchmark::DoNotOptimize(rc);
    benchmark::ClobberMemory();
  }
  SetThroughput(state, *c);
}

void Utf8ToUtf16Muc(benchmark::State& state, const Corpus* c) {
  for (auto _ : state) {
    unsigned short* out = nullptr;
    int n = MucConvertUTF8ToUnicode(c->utf8.c_str(), &out);
    benchmark::DoNotOptimize(n);
    free(out);
  }
  SetThroughput(state, *c);
}

void Utf8ToUtf16Icu(benchmark::State& state, const Corpus* c) {
  std::vector<UChar> out(c->utf8.size() + 1);
  for (auto _ : state) {
    UErrorCode err = U_ZERO_ERROR;
    int32_t len = 0;
    u_strFromUTF8(out.data(), static_cast<int32_t>(out.size()), &len, c->utf8.data(),
                  static_cast<int32_t>(c->utf8.size()), &err);
    benchmark::DoNotOptimize(len);
    benchmark::ClobberMemory();
  }
  SetThroughput(state, *c);
}

// As a user with the length at hand: the largest result, n + 1 units.
void Utf8ToUtf16IcuMalloc(benchmark::State& state, const Corpus* c) {
  const int32_t n = static_cast<int32_t>(c->utf8.size());
  for (auto _ : state) {
    const int32_t capacity = n + 1;
    auto* out = static_cast<UChar*>(malloc(static_cast<size_t>(capacity) * sizeof(UChar)));
    UErrorCode err = U_ZERO_ERROR;
    int32_t len = 0;
    u_strFromUTF8(out, capacity, &len, c->utf8.data(), n, &err);
    benchmark::DoNotOptimize(len);
    benchmark::DoNotOptimize(out);
    free(out);
  }
  SetThroughput(state, *c);
}

void RunIconv(benchmark::State& state, const Corpus& c, const char* to, const char* from,
              const void* src, size_t srcBytes, size_t dstBytes) {
  iconv_t cd = iconv_open(to, from);
  if (cd == reinterpret_cast<iconv_t>(-1)) {
    state.SkipWithError("iconv_open failed");
    return;
  }
  std::vector<char> out(dstBytes);
  for (auto _ : state) {
    char* in = const_cast<char*>(static_cast<const char*>(src));
    size_t inLeft = srcBytes;
    char* o = out.data();
    size_t outLeft = out.size();
    size_t rc = iconv(cd, &in, &inLeft, &o, &outLeft);
    benchmark::DoNotOptimize(rc);
    benchmark::ClobberMemory();
  }
  iconv_close(cd);
  SetThroughput(state, c);
}

void Utf8ToUtf16Iconv(benchmark::State& state, const Corpus* c) {
  RunIconv(state, *c, "UTF-16LE", "UTF-8", c->utf8.data(), c->utf8.size(),
           2 * (c->utf8.size() + 1));
}

void Memcpy(benchmark::State& state, const Corpus* c, const void* src, size_t bytes) {
  std::vector<char> out(bytes);
  for (auto _ : state) {
    memcpy(out.data(), src, bytes);
    benchmark::ClobberMemory();
  }
  SetThroughput(state, *c);
}

void Utf8Memcpy(benchmark::State& state, const Corpus* c) {
  Memcpy(state, c, c->utf8.data(), c->utf8.size());
}

// ---------------------------------------------------------------- UTF-16 -> UTF-8

const unsigned short* Units(const Corpus& c) {
  return reinterpret_cast<const unsigned short*>(c.utf16.c_str());
}

void Utf16ToUtf8Stream(benchmark::State& state, const Corpus* c) {
  std::vector<unsigned char> out(c->utf16.size() * 3 + 1);
  for (auto _ : state) {
    const unsigned short* s = Units(*c);
    unsigned char* d = out.data();
    int rc = ConvertUTF16toUTF8(&s, Units(*c) + c->utf16.size(), &d, out.data() + out.size());
    benchmark::DoNotOptimize(rc);
    benchmark::ClobberMemory();
  }
  SetThroughput(state, *c);
}

void Utf16ToUtf8Muc(benchmark::State& state, const Corpus* c) {
  for (auto _ : state) {
    char* out = nullptr;
    int n = MucConvertUnicodeToUTF8(Units(*c), &out);
    benchmark::DoNotOptimize(n);
    free(out);
  }
  SetThroughput(state, *c);
}

void Utf16ToUtf8Icu(benchmark::State& state, const Corpus* c) {
  std::vector<char> out(c->utf16.size() * 3 + 1);
  for (auto _ : state) {
    UErrorCode err = U_ZERO_ERROR;
    int32_t len = 0;
    u_strToUTF8(out.data(), static_cast<int32_t>(out.size()), &len, c->utf16.data(),
                static_cast<int32_t>(c->utf16.size()), &err);
    benchmark::DoNotOptimize(len);
    benchmark::ClobberMemory();
  }
  SetThroughput(state, *c);
}

// As a user with the length at hand: the largest result, 3 n + 1 bytes.
void Utf16ToUtf8IcuMalloc(benchmark::State& state, const Corpus* c) {
  const int32_t n = static_cast<int32_t>(c->utf16.size());
  for (auto _ : state) {
    const int32_t capacity = 3 * n + 1;
    auto* out = static_cast<char*>(malloc(static_cast<size_t>(capacity)));
    UErrorCode err = U_ZERO_ERROR;
    int32_t len = 0;
    u_strToUTF8(out, capacity, &len, c->utf16.data(), n, &err);
    benchmark::DoNotOptimize(len);
    benchmark::DoNotOptimize(out);
    free(out);
  }
  SetThroughput(state, *c);
}

void Utf16ToUtf8Iconv(benchmark::State& state, const Corpus* c) {
  RunIconv(state, *c, "UTF-8", "UTF-16LE", c->utf16.data(), c->utf16.size() * 2,
           c->utf16.size() * 3 + 1);
}

void Utf16Memcpy(benchmark::State& state, const Corpus* c) {
  Memcpy(state, c, c->utf16.data(), c->utf16.size() * 2);
}

// ---------------------------------------------------------------- registration

using BenchFn = void (*)(benchmark::State&, const Corpus*);

struct Entry {
  const char* direction;
  const char* implementation;
  BenchFn fn;
  bool ours;  // run on each kernel
};

const Entry kEntries[] = {
    {"utf8_to_utf16", "ConvertUTF8toUTF16", Utf8ToUtf16Stream, true},
    {"utf8_to_utf16", "MucConvertUTF8ToUnicode", Utf8ToUtf16Muc, true},
    {"utf8_to_utf16", "icu", Utf8ToUtf16Icu, false},
    {"utf8_to_utf16", "icu_malloc", Utf8ToUtf16IcuMalloc, false},
    {"utf8_to_utf16", "iconv", Utf8ToUtf16Iconv, false},
    {"utf8_to_utf16", "memcpy", Utf8Memcpy, false},
    {"utf16_to_utf8", "ConvertUTF16toUTF8", Utf16ToUtf8Stream, true},
    {"utf16_to_utf8", "MucConvertUnicodeToUTF8", Utf16ToUtf8Muc, true},
    {"utf16_to_utf8", "icu", Utf16ToUtf8Icu, false},
    {"utf16_to_utf8", "icu_malloc", Utf16ToUtf8IcuMalloc, false},
    {"utf16_to_utf8", "iconv", Utf16ToUtf8Iconv, false},
    {"utf16_to_utf8", "memcpy", Utf16Memcpy, false},
};

// One conversion of the corpus in the entry's direction.
void ConvertOnce(const Entry& e, const Corpus& c) {
  if (e.fn == Utf8ToUtf16Stream) {
    std::vector<unsigned short> out(c.utf8.size() + 1);
    const auto* s = reinterpret_cast<const unsigned char*>(c.utf8.data());
    unsigned short* d = out.data();
    ConvertUTF8toUTF16(&s, s + c.utf8.size(), &d, out.data() + out.size());
  } else {
    std::vector<unsigned char> out(c.utf16.size() * 3 + 1);
    const unsigned short* s = Units(c);
    unsigned char* d = out.data();
    ConvertUTF16toUTF8(&s, s + c.utf16.size(), &d, out.data() + out.size());
  }
}

void Register(const std::string& name, BenchFn fn, const Corpus* c, utfconv::Kernel kernel) {
  benchmark::RegisterBenchmark(name.c_str(), [=](benchmark::State& state) {
    utfconv::ForceKernel(kernel);
    fn(state, c);
  })->Unit(benchmark::kMicrosecond);
}

void RegisterAll() {
  const utfconv::Kernel best = utfconv::BestKernel();
  for (const Corpus& c : Corpora()) {
    for (const Entry& e : kEntries) {
      const std::string prefix = std::string(e.direction) + "/" + e.implementation;
      const std::string suffix = "/" + c.name + "/" + c.size;
      if (!e.ours) {
        Register(prefix + suffix, e.fn, &c, best);
        continue;
      }
      for (int k = 0; k <= static_cast<int>(best); ++k) {
        const auto kernel = static_cast<utfconv::Kernel>(k);
        Register(prefix + ":" + utfconv::KernelName(kernel) + suffix, e.fn, &c, kernel);
      }
      if (e.fn != Utf8ToUtf16Stream && e.fn != Utf16ToUtf8Stream) continue;
      for (int k = static_cast<int>(utfconv::Kernel::kAvx2); k <= static_cast<int>(best); ++k) {
        const auto wide = static_cast<utfconv::Kernel>(k);
        const Entry* entry = &e;
        const Corpus* corpus = &c;
        benchmark::RegisterBenchmark(
            (prefix + ":ssse3_after_" + utfconv::KernelName(wide) + suffix).c_str(),
            [=](benchmark::State& state) {
              utfconv::ForceKernel(wide);
              ConvertOnce(*entry, *corpus);
              utfconv::ForceKernel(utfconv::Kernel::kSsse3);
              entry->fn(state, corpus);
            })
            ->Unit(benchmark::kMicrosecond);
      }
    }
  }
}

}  // namespace

int main(int argc, char** argv) {
  RegisterAll();
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  return 0;
}
