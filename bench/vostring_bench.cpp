// VOSTRING against std::u16string and icu::UnicodeString: copying, appending
// (amortised growth), searching and comparing, over several lengths.
//
// Names read "vostring_<operation>/<implementation>/<length>"; the
// implementations are "vosys", "std" and "icu". Bytes processed are the
// UTF-16 bytes of the text the operation walks over.
#include <benchmark/benchmark.h>
#include <unicode/unistr.h>

#include <cstdint>
#include <random>
#include <string>

#include "vosystem/vostring.h"

namespace {

// Deterministic mixed text (mostly letters, some non-ASCII) without 'Z',
// which the searches look for at the end.
std::u16string MakeText(int64_t length) {
  std::mt19937 rng(static_cast<unsigned>(length));
  std::u16string text;
  for (int64_t i = 0; i < length; ++i) {
    text += static_cast<char16_t>(rng() % 8 == 0 ? 0x0430 + rng() % 32 : u'a' + rng() % 25);
  }
  return text;
}

const unsigned short* Units(const std::u16string& s) {
  return reinterpret_cast<const unsigned short*>(s.c_str());
}

void SetBytes(benchmark::State& state, int64_t units) {
  state.SetBytesProcessed(state.iterations() * units * 2);
}

// ---------------------------------------------------------------- copy

// A handle copy: VOSTRING and UnicodeString share the buffer, std copies it.
template <typename S>
void BM_CopyHandle(benchmark::State& state, const S& original) {
  for (auto _ : state) {
    S copy(original);
    benchmark::DoNotOptimize(copy);
  }
  SetBytes(state, state.range(0));
}

void BM_Copy_Vosys(benchmark::State& state) {
  const std::u16string text = MakeText(state.range(0));
  BM_CopyHandle(state, VOSTRING(Units(text)));
}
void BM_Copy_Std(benchmark::State& state) {
  BM_CopyHandle(state, MakeText(state.range(0)));
}
void BM_Copy_Icu(benchmark::State& state) {
  const std::u16string text = MakeText(state.range(0));
  BM_CopyHandle(state, icu::UnicodeString(text.data(), static_cast<int32_t>(text.size())));
}

// A new string from a null-terminated buffer: always a real copy.
void BM_CopyFromBuffer_Vosys(benchmark::State& state) {
  const std::u16string text = MakeText(state.range(0));
  for (auto _ : state) {
    VOSTRING s(Units(text));
    benchmark::DoNotOptimize(s);
  }
  SetBytes(state, state.range(0));
}
void BM_CopyFromBuffer_Std(benchmark::State& state) {
  const std::u16string text = MakeText(state.range(0));
  for (auto _ : state) {
    std::u16string s(text.c_str());
    benchmark::DoNotOptimize(s);
  }
  SetBytes(state, state.range(0));
}
void BM_CopyFromBuffer_Icu(benchmark::State& state) {
  const std::u16string text = MakeText(state.range(0));
  for (auto _ : state) {
    icu::UnicodeString s(text.c_str());  // null-terminated UChar*
    benchmark::DoNotOptimize(s);
  }
  SetBytes(state, state.range(0));
}

// ---------------------------------------------------------------- append

// Builds a string of range(0) units one unit at a time: amortised growth.
void BM_AppendUnit_Vosys(benchmark::State& state) {
  for (auto _ : state) {
    VOSTRING s;
    for (int64_t i = 0; i < state.range(0); ++i) s += static_cast<unsigned short>('a' + i % 26);
    benchmark::DoNotOptimize(s.GetReference());
  }
  SetBytes(state, state.range(0));
}
void BM_AppendUnit_Std(benchmark::State& state) {
  for (auto _ : state) {
    std::u16string s;
    for (int64_t i = 0; i < state.range(0); ++i) s += static_cast<char16_t>('a' + i % 26);
    benchmark::DoNotOptimize(s.data());
  }
  SetBytes(state, state.range(0));
}
void BM_AppendUnit_Icu(benchmark::State& state) {
  for (auto _ : state) {
    icu::UnicodeString s;
    for (int64_t i = 0; i < state.range(0); ++i) s.append(static_cast<char16_t>('a' + i % 26));
    benchmark::DoNotOptimize(s.getBuffer());
  }
  SetBytes(state, state.range(0));
}

// The same in pieces of 16 units.
constexpr int kPiece = 16;
void BM_AppendPiece_Vosys(benchmark::State& state) {
  const std::u16string piece = MakeText(kPiece);
  const VOSTRING vpiece(Units(piece));
  for (auto _ : state) {
    VOSTRING s;
    for (int64_t i = 0; i < state.range(0); i += kPiece) s += vpiece;
    benchmark::DoNotOptimize(s.GetReference());
  }
  SetBytes(state, state.range(0));
}
void BM_AppendPiece_Std(benchmark::State& state) {
  const std::u16string piece = MakeText(kPiece);
  for (auto _ : state) {
    std::u16string s;
    for (int64_t i = 0; i < state.range(0); i += kPiece) s += piece;
    benchmark::DoNotOptimize(s.data());
  }
  SetBytes(state, state.range(0));
}
void BM_AppendPiece_Icu(benchmark::State& state) {
  const std::u16string text = MakeText(kPiece);
  const icu::UnicodeString piece(text.data(), kPiece);
  for (auto _ : state) {
    icu::UnicodeString s;
    for (int64_t i = 0; i < state.range(0); i += kPiece) s.append(piece);
    benchmark::DoNotOptimize(s.getBuffer());
  }
  SetBytes(state, state.range(0));
}

// ---------------------------------------------------------------- search

// The unit (or the three-unit string) sought stands only at the end.
std::u16string SearchText(int64_t length) {
  std::u16string text = MakeText(length - 3);
  return text + u"xyZ";
}

void BM_FindUnit_Vosys(benchmark::State& state) {
  const std::u16string text = SearchText(state.range(0));
  const VOSTRING s(Units(text));
  for (auto _ : state) benchmark::DoNotOptimize(s.FindNextOf(static_cast<unsigned short>('Z')));
  SetBytes(state, state.range(0));
}
void BM_FindUnit_Std(benchmark::State& state) {
  const std::u16string s = SearchText(state.range(0));
  for (auto _ : state) benchmark::DoNotOptimize(s.find(u'Z'));
  SetBytes(state, state.range(0));
}
void BM_FindUnit_Icu(benchmark::State& state) {
  const std::u16string text = SearchText(state.range(0));
  const icu::UnicodeString s(text.data(), static_cast<int32_t>(text.size()));
  for (auto _ : state) benchmark::DoNotOptimize(s.indexOf(u'Z'));
  SetBytes(state, state.range(0));
}

void BM_FindString_Vosys(benchmark::State& state) {
  const std::u16string text = SearchText(state.range(0));
  const VOSTRING s(Units(text));
  const VOSTRING pattern(u"xyZ");
  for (auto _ : state) benchmark::DoNotOptimize(s.FindNextOf(pattern));
  SetBytes(state, state.range(0));
}
void BM_FindString_Std(benchmark::State& state) {
  const std::u16string s = SearchText(state.range(0));
  const std::u16string pattern(u"xyZ");
  for (auto _ : state) benchmark::DoNotOptimize(s.find(pattern));
  SetBytes(state, state.range(0));
}
void BM_FindString_Icu(benchmark::State& state) {
  const std::u16string text = SearchText(state.range(0));
  const icu::UnicodeString s(text.data(), static_cast<int32_t>(text.size()));
  const icu::UnicodeString pattern(u"xyZ");
  for (auto _ : state) benchmark::DoNotOptimize(s.indexOf(pattern));
  SetBytes(state, state.range(0));
}

// ---------------------------------------------------------------- compare

// Two separate strings equal up to their last unit.
void BM_Compare_Vosys(benchmark::State& state) {
  const std::u16string text = SearchText(state.range(0));
  std::u16string other = text;
  other.back() = u'Y';
  const VOSTRING a(Units(text)), b(Units(other));
  for (auto _ : state) benchmark::DoNotOptimize(a.Compare(b));
  SetBytes(state, state.range(0));
}
void BM_Compare_Std(benchmark::State& state) {
  const std::u16string a = SearchText(state.range(0));
  std::u16string b = a;
  b.back() = u'Y';
  for (auto _ : state) benchmark::DoNotOptimize(a.compare(b));
  SetBytes(state, state.range(0));
}
void BM_Compare_Icu(benchmark::State& state) {
  const std::u16string text = SearchText(state.range(0));
  std::u16string other = text;
  other.back() = u'Y';
  const icu::UnicodeString a(text.data(), static_cast<int32_t>(text.size()));
  const icu::UnicodeString b(other.data(), static_cast<int32_t>(other.size()));
  for (auto _ : state) benchmark::DoNotOptimize(a.compare(b));
  SetBytes(state, state.range(0));
}

#define VOSYS_STRING_BENCH(op, impl, label) \
  BENCHMARK(BM_##op##_##impl)->Name("vostring_" #op "/" label)->Arg(16)->Arg(1024)->Arg(65536)

#define VOSYS_STRING_BENCHES(op)          \
  VOSYS_STRING_BENCH(op, Vosys, "vosys"); \
  VOSYS_STRING_BENCH(op, Std, "std");     \
  VOSYS_STRING_BENCH(op, Icu, "icu")

VOSYS_STRING_BENCHES(Copy);
VOSYS_STRING_BENCHES(CopyFromBuffer);
VOSYS_STRING_BENCHES(AppendUnit);
VOSYS_STRING_BENCHES(AppendPiece);
VOSYS_STRING_BENCHES(FindUnit);
VOSYS_STRING_BENCHES(FindString);
VOSYS_STRING_BENCHES(Compare);

}  // namespace

BENCHMARK_MAIN();
