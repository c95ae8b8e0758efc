// Converters between UTF-16 and UTF-8.
//
// They don't validate. Unpaired surrogates travel as three-byte sequences;
// the decoder takes the length of a sequence from its lead byte alone
// (including the old five- and six-byte forms), adds the following bytes in
// without looking at them and subtracts the sum of the marks at the end, so a
// malformed sequence gives a wrong value, never an error. The arithmetic is
// 32-bit unsigned, as on the machines this format was first written for.
//
// Speed. Each converter first works in "zones", stretches of the source in
// which neither the source nor the target can run out whatever the text
// holds, so that nothing is checked per character there. Inside a zone text
// goes in blocks, by the kernel chosen once for the processor
// (utfconv_priv.h). Here are the narrow ones, blocks of 8 to 16 units: with
// SSE2 (every x86-64) ASCII, emoji and other surrogate pairs; where the
// processor has SSSE3, whose byte shuffle packs results of varying length,
// also mixed one- to three-byte text and CJK. The AVX2 and AVX-512 kernels
// (files of their own) take blocks of 15 to 64 bytes or units while the zone
// has room for them and leave the rest of it to the next narrower kernel,
// down to the SSSE3 code; the AVX2 level also sizes and counts the heap
// converters' results 32 bytes at a time. What no block takes goes one
// character at a time, in loops made for runs of one length. Block stores may
// write a little past the output, but only where the rest of the zone is sure
// to overwrite it, so the target never holds anything past the returned
// position. Near the ends of the buffers everything goes character by
// character with every check. Every path gives the same result as that last
// one.
//
// The whole-string converters find the terminator and the exact size of the
// result, allocate it once and run the same zone code over the whole text.
// The caller's block may end right after the terminator, so nothing past it
// is read: UTF-16 is searched for it one unit at a time.
#include <emmintrin.h>
#include <immintrin.h>
#include <tmmintrin.h>

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <utility>

#include "foundation/errpos.h"
#include "text/utfconv_priv.h"
#include "vosystem/memfunc.h"
#include "vosystem/ucstring.h"

static const char s_ident[] = "@(#) utfconv.cpp 1.0";

namespace utfconv {

namespace {

bool Supports(Kernel kernel) {
  switch (kernel) {
    case Kernel::kScalar:
    case Kernel::kSse2:
      return true;
    case Kernel::kSsse3:
      return __builtin_cpu_supports("ssse3");
    case Kernel::kAvx2:
      return __builtin_cpu_supports("avx2");
    case Kernel::kAvx512:
      return __builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512bw") &&
             __builtin_cpu_supports("avx512vl") && __builtin_cpu_supports("avx512vbmi") &&
             __builtin_cpu_supports("avx512vbmi2") && __builtin_cpu_supports("bmi2");
  }
  return false;
}

// The widest kernel supported, no wider than the environment asks.
Kernel ChooseKernel() {
  int widest = kKernelCount - 1;
  if (const char* name = getenv("VOSYS_UTFCONV_KERNEL")) {
    for (int k = 0; k < kKernelCount; ++k) {
      if (strcmp(name, KernelName(static_cast<Kernel>(k))) == 0) widest = k;
    }
  } else if (getenv("VOSYS_UTFCONV_SSE2") != nullptr) {
    widest = static_cast<int>(Kernel::kSse2);
  }
  while (!Supports(static_cast<Kernel>(widest))) --widest;
  return static_cast<Kernel>(widest);
}

}  // namespace

// Chosen on first use; threads that come first together choose the same.
// Tests may change it.
std::atomic<int> g_utfconvKernel{-1};

Kernel ChooseActiveKernel() {
  const Kernel kernel = ChooseKernel();
  g_utfconvKernel.store(static_cast<int>(kernel), std::memory_order_relaxed);
  return kernel;
}

const char* KernelName(Kernel kernel) {
  static const char* const kNames[kKernelCount] = {"scalar", "sse2", "ssse3", "avx2", "avx512"};
  return kNames[static_cast<int>(kernel)];
}

Kernel BestKernel() {
  int widest = kKernelCount - 1;
  while (!Supports(static_cast<Kernel>(widest))) --widest;
  return static_cast<Kernel>(widest);
}

bool ForceKernel(Kernel kernel) {
  if (!Supports(kernel)) return false;
  g_utfconvKernel.store(static_cast<int>(kernel), std::memory_order_relaxed);
  return true;
}

namespace {

constexpr int32_t kMaxResult = INT32_MAX;

inline int CountTrailingZeros(unsigned mask) {
  return __builtin_ctz(mask);
}

// Functions that use SSSE3; they run only where the processor has it.
#define VOSYS_TARGET_SSSE3 __attribute__((target("ssse3")))

// The whole-string converters size their results 32 bytes at a time with
// the AVX2 kernel and above. The functions that use it clear the upper halves
// of the registers before they return (the compiler doesn't always): SSE code
// after them would run far slower.
#define VOSYS_TARGET_AVX2 __attribute__((target("avx2")))

bool UseAvx2() {
  return ActiveKernel() >= Kernel::kAvx2;
}

inline __m128i Load16(const void* p) {
  return _mm_loadu_si128(static_cast<const __m128i*>(p));
}
inline void Store16(void* p, __m128i v) {
  _mm_storeu_si128(static_cast<__m128i*>(p), v);
}
inline void StoreLow32(void* p, __m128i v) {
  const int32_t low = _mm_cvtsi128_si32(v);
  memcpy(p, &low, sizeof low);
}
VOSYS_TARGET_AVX2 inline __m256i Load32(const void* p) {
  return _mm256_loadu_si256(static_cast<const __m256i*>(p));
}
// True when no bit of v is set.
inline bool IsAllZero(__m128i v) {
  return _mm_movemask_epi8(_mm_cmpeq_epi8(v, _mm_setzero_si128())) == 0xFFFF;
}

// ===================================================================== shuffle tables

constexpr PackTables MakePackTables() {
  PackTables t{};
  for (int index = 0; index < 256; ++index) {
    int out = 0;
    for (int lane = 0; lane < 8; ++lane) {
      if (index & (1 << lane)) {
        t.units[index][out++] = static_cast<uint8_t>(2 * lane);
        t.units[index][out++] = static_cast<uint8_t>(2 * lane + 1);
      }
    }
    t.unitCount[index] = static_cast<uint8_t>(out / 2);
    for (int fill = out; fill < 16; ++fill) t.units[index][fill] = 0x80;
    out = 0;
    for (int lane = 0; lane < 4; ++lane) {
      const int len = ((index >> (2 * lane)) & 3) + 1;
      for (int b = 0; b < len && b < 3; ++b)
        t.utf8[index][out++] = static_cast<uint8_t>(4 * lane + b);
    }
    t.utf8Count[index] = static_cast<uint8_t>(out);
    for (int fill = out; fill < 16; ++fill) t.utf8[index][fill] = 0x80;
    out = 0;
    for (int lane = 0; lane < 8; ++lane) {
      t.twoByte[index][out++] = static_cast<uint8_t>(2 * lane);
      if (index & (1 << lane)) t.twoByte[index][out++] = static_cast<uint8_t>(2 * lane + 1);
    }
    t.twoByteCount[index] = static_cast<uint8_t>(out);
    for (int fill = out; fill < 16; ++fill) t.twoByte[index][fill] = 0x80;
  }
  return t;
}

}  // namespace

constexpr PackTables kPack = MakePackTables();

namespace {

inline __m128i LoadControl(const uint8_t (&control)[16]) {
  return _mm_load_si128(reinterpret_cast<const __m128i*>(control));
}

// ===================================================================== UTF-8 -> UTF-16

// Decodes 16 bytes holding four four-byte sequences (leads F0-F7, true
// continuation bytes) of values from U+10000 to U+10FFFF into 8 units, which
// is what emoji and other supplementary text mostly is; false otherwise. The
// masked formula equals the accumulation for such sequences.
inline bool DecodeFourByteBlock(const uint8_t* s, uint16_t* d) {
  const __m128i b = Load16(s);
  const __m128i marks = _mm_and_si128(b, _mm_set1_epi32(static_cast<int>(0xC0C0C0F8)));
  if (_mm_movemask_epi8(_mm_cmpeq_epi32(marks, _mm_set1_epi32(static_cast<int>(0x808080F0)))) !=
      0xFFFF) {
    return false;
  }
  const __m128i six = _mm_set1_epi32(0x3F);
  __m128i value = _mm_slli_epi32(_mm_and_si128(b, _mm_set1_epi32(0x07)), 18);
  value = _mm_or_si128(value, _mm_slli_epi32(_mm_and_si128(_mm_srli_epi32(b, 8), six), 12));
  value = _mm_or_si128(value, _mm_slli_epi32(_mm_and_si128(_mm_srli_epi32(b, 16), six), 6));
  value = _mm_or_si128(value, _mm_and_si128(_mm_srli_epi32(b, 24), six));
  value = _mm_sub_epi32(value, _mm_set1_epi32(static_cast<int>(kFirstSupplementary)));
  // Now the value less 0x10000, which must lie in 0 to 0xFFFFF.
  if (_mm_movemask_epi8(_mm_cmpgt_epi32(_mm_set1_epi32(0x100000), value)) != 0xFFFF ||
      _mm_movemask_epi8(_mm_cmplt_epi32(value, _mm_setzero_si128())) != 0) {
    return false;
  }
  const __m128i high = _mm_add_epi32(_mm_srli_epi32(value, 10), _mm_set1_epi32(0xD800));
  const __m128i low =
      _mm_add_epi32(_mm_and_si128(value, _mm_set1_epi32(0x3FF)), _mm_set1_epi32(0xDC00));
  Store16(d, _mm_or_si128(high, _mm_slli_epi32(low, 16)));
  return true;
}

// Decodes sequences for as long as their leads announce the same length as
// the first one's (cheap on text of one script), or one sequence of any other
// kind. Every sequence starting before zoneEnd must lie in the source.
inline void DecodeRun(const uint8_t*& s, uint16_t*& d, const uint8_t* zoneEnd) {
  uint32_t lead = *s;
  if (lead - 0xC0 < 0x20) {
    do {
      const uint32_t value = Value2(s);  // wraps below 0 only for C0/C1 and a small byte
      *d++ = static_cast<uint16_t>(value < kFirstSupplementary ? value : kReplacement);
      s += 2;
    } while (s < zoneEnd && (lead = *s) - 0xC0 < 0x20);
  } else if (lead - 0xE0 < 0x10) {
    do {
      PutValue(Value3(s), d);
      s += 3;
    } while (s < zoneEnd && (lead = *s) - 0xE0 < 0x10);
  } else if (lead - 0xF0 < 0x08) {
    do {  // emoji come four at a time where they can
      if (zoneEnd - s >= 16 && DecodeFourByteBlock(s, d)) {
        s += 16;
        d += 8;
      } else {
        PutValue(Value4(s), d);
        s += 4;
      }
    } while (s < zoneEnd && (lead = *s) - 0xF0 < 0x08);
  } else {
    DecodeOne(s, d);
  }
}

// Byte classes of UTF-8 as signed bytes: 00-7F are 0 to 127, continuation
// bytes 80-BF are -128 to -65, leads C0-DF -64 to -33, E0-EF -32 to -17, and
// F0-FF (four bytes and more) -16 to -1.
inline __m128i IsContinuation(__m128i b) {
  return _mm_cmplt_epi8(b, _mm_set1_epi8(-64));
}
inline __m128i IsLead2(__m128i b) {
  return _mm_and_si128(_mm_cmpgt_epi8(b, _mm_set1_epi8(-65)),
                       _mm_cmplt_epi8(b, _mm_set1_epi8(-32)));
}
inline __m128i IsLead3(__m128i b) {
  return _mm_and_si128(_mm_cmpgt_epi8(b, _mm_set1_epi8(-33)),
                       _mm_cmplt_epi8(b, _mm_set1_epi8(-16)));
}
inline __m128i IsLead4Plus(__m128i b) {
  return _mm_and_si128(_mm_cmpgt_epi8(b, _mm_set1_epi8(-17)),
                       _mm_cmplt_epi8(b, _mm_setzero_si128()));
}

// The value of a sequence of one, two or three bytes starting in each 16-bit
// lane, b0 being its first byte and b1, b2 the two after it. With true
// continuation bytes the masked formulas equal the accumulation exactly, and
// a three-byte value always fits 16 bits.
inline __m128i LaneValues(__m128i b0, __m128i b1, __m128i b2, __m128i lead2, __m128i lead3) {
  const __m128i six = _mm_set1_epi16(0x3F);
  const __m128i low1 = _mm_and_si128(b1, six);
  const __m128i two =
      _mm_or_si128(_mm_slli_epi16(_mm_and_si128(b0, _mm_set1_epi16(0x1F)), 6), low1);
  const __m128i three = _mm_or_si128(_mm_or_si128(_mm_slli_epi16(b0, 12), _mm_slli_epi16(low1, 6)),
                                     _mm_and_si128(b2, six));
  __m128i value = _mm_andnot_si128(_mm_or_si128(lead2, lead3), b0);
  value = _mm_or_si128(value, _mm_and_si128(lead2, two));
  return _mm_or_si128(value, _mm_and_si128(lead3, three));
}

// LaneValues when no lane starts a three-byte sequence.
inline __m128i LaneValuesUpToTwo(__m128i b0, __m128i b1, __m128i lead2) {
  const __m128i two = _mm_or_si128(_mm_slli_epi16(_mm_and_si128(b0, _mm_set1_epi16(0x1F)), 6),
                                   _mm_and_si128(b1, _mm_set1_epi16(0x3F)));
  return _mm_or_si128(_mm_andnot_si128(lead2, b0), _mm_and_si128(lead2, two));
}

// 16 bytes decoded in lanes: a value for each byte, of which those where a
// sequence starts count.
struct DecodedBlock {
  __m128i low, high;  // values of bytes 0-7 and 8-15
  unsigned starts;    // bit i: a sequence starts at byte i
  int used;           // bytes taken: 16, or up to 18 when the last sequence reaches past
};

// DecodeBlock without three-byte sequences (Latin, Cyrillic, Greek...), which
// needs less work: b1 holds the bytes after those of b0.
inline bool DecodeUpToTwoBlock(__m128i b0, __m128i b1, __m128i lead2, __m128i cont,
                               DecodedBlock* out) {
  const __m128i bad = _mm_or_si128(_mm_xor_si128(cont, _mm_slli_si128(lead2, 1)),
                                   _mm_andnot_si128(IsContinuation(b1), lead2));
  if (_mm_movemask_epi8(bad) != 0) return false;
  const __m128i zero = _mm_setzero_si128();
  out->low = LaneValuesUpToTwo(_mm_unpacklo_epi8(b0, zero), _mm_unpacklo_epi8(b1, zero),
                               _mm_unpacklo_epi8(lead2, lead2));
  out->high = LaneValuesUpToTwo(_mm_unpackhi_epi8(b0, zero), _mm_unpackhi_epi8(b1, zero),
                                _mm_unpackhi_epi8(lead2, lead2));
  out->starts = ~static_cast<unsigned>(_mm_movemask_epi8(cont)) & 0xFFFF;
  out->used = 16 + ((static_cast<unsigned>(_mm_movemask_epi8(lead2)) >> 15) & 1);
  return true;
}

// Decodes the 16 bytes at s when they hold only one-, two- and three-byte
// sequences, each lead followed by its continuation bytes and no continuation
// byte astray; reads up to 18 bytes. Returns false for anything else.
inline bool DecodeBlock(const uint8_t* s, DecodedBlock* out) {
  const __m128i zero = _mm_setzero_si128();
  const __m128i b0 = Load16(s);
  if (_mm_movemask_epi8(IsLead4Plus(b0)) != 0) return false;  // cheap way out for emoji
  const __m128i b1 = Load16(s + 1);
  const __m128i b2 = Load16(s + 2);
  const __m128i lead2 = IsLead2(b0);
  const __m128i lead3 = IsLead3(b0);
  const __m128i cont = IsContinuation(b0);
  if (_mm_movemask_epi8(lead3) == 0) return DecodeUpToTwoBlock(b0, b1, lead2, cont, out);
  const __m128i anyLead = _mm_or_si128(lead2, lead3);
  const __m128i expectedCont = _mm_or_si128(_mm_slli_si128(anyLead, 1), _mm_slli_si128(lead3, 2));
  __m128i bad = _mm_xor_si128(cont, expectedCont);
  bad = _mm_or_si128(bad, _mm_andnot_si128(IsContinuation(b1), anyLead));
  bad = _mm_or_si128(bad, _mm_andnot_si128(IsContinuation(b2), lead3));
  if (_mm_movemask_epi8(bad) != 0) return false;

  out->low = LaneValues(_mm_unpacklo_epi8(b0, zero), _mm_unpacklo_epi8(b1, zero),
                        _mm_unpacklo_epi8(b2, zero), _mm_unpacklo_epi8(lead2, lead2),
                        _mm_unpacklo_epi8(lead3, lead3));
  out->high = LaneValues(_mm_unpackhi_epi8(b0, zero), _mm_unpackhi_epi8(b1, zero),
                         _mm_unpackhi_epi8(b2, zero), _mm_unpackhi_epi8(lead2, lead2),
                         _mm_unpackhi_epi8(lead3, lead3));
  out->starts = ~static_cast<unsigned>(_mm_movemask_epi8(cont)) & 0xFFFF;
  const unsigned m2 = static_cast<unsigned>(_mm_movemask_epi8(lead2));
  const unsigned m3 = static_cast<unsigned>(_mm_movemask_epi8(lead3));
  out->used = 16 + static_cast<int>(((m2 >> 15) & 1) + ((m3 >> 15) & 1) * 2 + ((m3 >> 14) & 1));
  return true;
}

// Stores 16 ASCII bytes as 16 units; false, having written nothing, otherwise.
inline bool WidenAsciiBlock(const uint8_t* s, uint16_t* d) {
  const __m128i bytes = Load16(s);
  if (_mm_movemask_epi8(bytes) != 0) return false;
  const __m128i zero = _mm_setzero_si128();
  Store16(d, _mm_unpacklo_epi8(bytes, zero));
  Store16(d + 8, _mm_unpackhi_epi8(bytes, zero));
  return true;
}

// Packs the values where sequences start to the front with pshufb. Stores 16
// units at d whatever it keeps; returns the number kept.
VOSYS_TARGET_SSSE3 inline size_t PackUnits(const DecodedBlock& block, uint16_t* d) {
  const unsigned lo = block.starts & 0xFF;
  const unsigned hi = block.starts >> 8;
  Store16(d, _mm_shuffle_epi8(block.low, LoadControl(kPack.units[lo])));
  const size_t n = kPack.unitCount[lo];
  Store16(d + n, _mm_shuffle_epi8(block.high, LoadControl(kPack.units[hi])));
  return n + kPack.unitCount[hi];
}

// Decodes five three-byte sequences (leads E0-EF, true continuation bytes),
// the stuff of CJK text, from the 15 bytes at s. Stores 8 units, of which 5
// count; false, having written nothing, for anything else.
VOSYS_TARGET_SSSE3 inline bool DecodeThreeByteBlock(const uint8_t* s, uint16_t* d) {
  const __m128i b = Load16(s);
  // Lead bytes masked with F0 (-16) must give E0 (-32), continuation bytes
  // masked with C0 (-64) must give 80 (-128).
  const __m128i marks = _mm_and_si128(b, _mm_setr_epi8(-16, -64, -64, -16, -64, -64, -16, -64, -64,
                                                       -16, -64, -64, -16, -64, -64, 0));
  const __m128i expected = _mm_setr_epi8(-32, -128, -128, -32, -128, -128, -32, -128, -128, -32,
                                         -128, -128, -32, -128, -128, 0);
  if (_mm_movemask_epi8(_mm_cmpeq_epi8(marks, expected)) != 0xFFFF) return false;
  // Lane k: the middle byte of sequence k and its lead above it; its last byte.
  const __m128i leadMiddle =
      _mm_shuffle_epi8(b, _mm_setr_epi8(1, 0, 4, 3, 7, 6, 10, 9, 13, 12, -1, -1, -1, -1, -1, -1));
  const __m128i last = _mm_shuffle_epi8(
      b, _mm_setr_epi8(2, -1, 5, -1, 8, -1, 11, -1, 14, -1, -1, -1, -1, -1, -1, -1));
  const __m128i six = _mm_set1_epi16(0x3F);
  __m128i value =
      _mm_and_si128(_mm_slli_epi16(leadMiddle, 4), _mm_set1_epi16(static_cast<short>(0xF000)));
  value = _mm_or_si128(value, _mm_slli_epi16(_mm_and_si128(leadMiddle, six), 6));
  Store16(d, _mm_or_si128(value, _mm_and_si128(last, six)));
  return true;
}

// A block stores 16 units, some of them past its output. The bytes left after
// it then still give at least 16 units (a sequence has at most 6 bytes), which
// overwrite them: nothing stray is left in the target.
constexpr ptrdiff_t kDecodeBlockMargin = 18 + 6 * 16;

// Zones of the SSE2 code: ASCII 16 bytes at a time, speculatively widened and
// stored, then runs of one length.
void DecodeZoneSse2(const uint8_t*& sRef, uint16_t*& dRef, const uint8_t* zoneEnd) {
  const uint8_t* s = sRef;
  uint16_t* d = dRef;
  const __m128i zero = _mm_setzero_si128();
  while (zoneEnd - s > kDecodeBlockMargin) {
    const __m128i bytes = Load16(s);
    Store16(d, _mm_unpacklo_epi8(bytes, zero));
    Store16(d + 8, _mm_unpackhi_epi8(bytes, zero));
    const int ascii = CountTrailingZeros(static_cast<unsigned>(_mm_movemask_epi8(bytes)) | 0x10000);
    s += ascii;
    d += ascii;
    if (ascii < 16) DecodeRun(s, d, zoneEnd);
  }
  while (s < zoneEnd) DecodeOne(s, d);
  sRef = s;
  dRef = d;
}

// Zones of the SSSE3 code: ASCII 16 bytes at a time, mixed one- to
// three-byte text in blocks, anything else in runs.
VOSYS_TARGET_SSSE3 void DecodeZoneSsse3(const uint8_t*& sRef, uint16_t*& dRef,
                                        const uint8_t* zoneEnd) {
  const uint8_t* s = sRef;
  uint16_t* d = dRef;
  while (zoneEnd - s > kDecodeBlockMargin) {
    if (WidenAsciiBlock(s, d)) {
      s += 16;
      d += 16;
      continue;
    }
    if ((*s & 0xF0) == 0xE0 && DecodeThreeByteBlock(s, d)) {
      s += 15;
      d += 5;
      continue;
    }
    DecodedBlock block;
    if (*s < 0xF0 && DecodeBlock(s, &block)) {
      d += PackUnits(block, d);
      s += block.used;
    } else {
      DecodeRun(s, d, zoneEnd);
    }
  }
  while (s < zoneEnd) DecodeOne(s, d);
  sRef = s;
  dRef = d;
}

// The zones: a sequence needs at most 6 bytes, and gives at most 2 units and
// never more units than bytes, so no check is needed for sequences that start
// within min(source left - 5, target left - 1) bytes.
void DecodeZone(Kernel kernel, const uint8_t*& s, uint16_t*& d, const uint8_t* zoneEnd) {
  switch (kernel) {
    case Kernel::kAvx512:
      DecodeZoneAvx512(s, d, zoneEnd);
      DecodeZoneAvx2(s, d, zoneEnd);
      DecodeZoneSsse3(s, d, zoneEnd);
      break;
    case Kernel::kAvx2:
      DecodeZoneAvx2(s, d, zoneEnd);
      DecodeZoneSsse3(s, d, zoneEnd);
      break;
    case Kernel::kSsse3:
      DecodeZoneSsse3(s, d, zoneEnd);
      break;
    case Kernel::kSse2:
      DecodeZoneSse2(s, d, zoneEnd);
      break;
    case Kernel::kScalar:
      while (s < zoneEnd) DecodeOne(s, d);
      break;
  }
}

void DecodeUnchecked(const uint8_t*& s, const uint8_t* srcEnd, uint16_t*& d,
                     const uint16_t* dstEnd) {
  constexpr ptrdiff_t kMinZone = 32;
  const Kernel kernel = ActiveKernel();
  for (;;) {
    const ptrdiff_t zone = std::min(srcEnd - s - 5, dstEnd - d - 1);
    if (zone < kMinZone) return;
    DecodeZone(kernel, s, d, s + zone);
  }
}

int DecodeChecked(const uint8_t*& s, const uint8_t* srcEnd, uint16_t*& d, const uint16_t* dstEnd) {
  while (s < srcEnd) {
    const int trail = TrailBytes(*s);
    if (trail >= srcEnd - s) return UTFCONV_SOURCE_PARTIAL;
    const uint32_t value = Accumulate(s, trail);
    if (dstEnd - d < UnitsFor(value)) return UTFCONV_TARGET_FULL;
    PutValue(value, d);
    s += trail + 1;
  }
  return UTFCONV_OK;
}

// ===================================================================== UTF-16 -> UTF-8

// Encodes 16 ASCII units as 16 bytes; returns false, having written nothing,
// for anything else.
inline bool NarrowAsciiBlock(const uint16_t* s, uint8_t* d) {
  const __m128i lo = Load16(s);
  const __m128i hi = Load16(s + 8);
  const __m128i highBits = _mm_set1_epi16(static_cast<short>(0xFF80));
  if (!IsAllZero(_mm_and_si128(_mm_or_si128(lo, hi), highBits))) return false;
  Store16(d, _mm_packus_epi16(lo, hi));
  return true;
}

// One-, two- and three-byte forms of 4 units, in 32-bit lanes, first byte lowest.
inline __m128i LaneEncodings(__m128i u, __m128i isAscii, __m128i isTwo) {
  const __m128i six = _mm_set1_epi32(0x3F);
  const __m128i mark = _mm_set1_epi32(0x80);
  const __m128i last = _mm_or_si128(_mm_and_si128(u, six), mark);
  const __m128i middle = _mm_or_si128(_mm_and_si128(_mm_srli_epi32(u, 6), six), mark);
  const __m128i two = _mm_or_si128(_mm_or_si128(_mm_srli_epi32(u, 6), _mm_set1_epi32(0xC0)),
                                   _mm_slli_epi32(last, 8));
  const __m128i three =
      _mm_or_si128(_mm_or_si128(_mm_srli_epi32(u, 12), _mm_set1_epi32(0xE0)),
                   _mm_or_si128(_mm_slli_epi32(middle, 8), _mm_slli_epi32(last, 16)));
  __m128i out = _mm_and_si128(isAscii, u);
  out = _mm_or_si128(out, _mm_and_si128(isTwo, two));
  return _mm_or_si128(out, _mm_andnot_si128(_mm_or_si128(isAscii, isTwo), three));
}

// 8 units encoded in lanes, 4 bytes each, of which the first 1 to 3 count.
struct EncodedBlock {
  __m128i low, high;     // encodings of units 0-3 and 4-7
  unsigned lengthCodes;  // length - 1 of unit i in bits 2i and 2i+1
};

// Encodes the 8 units at s when none of them is a surrogate; false otherwise.
inline bool EncodeBlock(const uint16_t* s, EncodedBlock* out) {
  const __m128i u = Load16(s);
  const __m128i zero = _mm_setzero_si128();
  const __m128i top5 = _mm_and_si128(u, _mm_set1_epi16(static_cast<short>(0xF800)));
  if (_mm_movemask_epi8(_mm_cmpeq_epi16(top5, _mm_set1_epi16(static_cast<short>(0xD800)))) != 0) {
    return false;
  }
  const __m128i isAscii =
      _mm_cmpeq_epi16(_mm_and_si128(u, _mm_set1_epi16(static_cast<short>(0xFF80))), zero);
  const __m128i belowThree = _mm_cmpeq_epi16(top5, zero);
  const __m128i isTwo = _mm_andnot_si128(isAscii, belowThree);
  out->low = LaneEncodings(_mm_unpacklo_epi16(u, zero), _mm_unpacklo_epi16(isAscii, isAscii),
                           _mm_unpacklo_epi16(isTwo, isTwo));
  out->high = LaneEncodings(_mm_unpackhi_epi16(u, zero), _mm_unpackhi_epi16(isAscii, isAscii),
                            _mm_unpackhi_epi16(isTwo, isTwo));
  // Each mask gives two equal bits per unit; length - 1 is 2, less one for
  // each mask that is set, and the fields never borrow from each other.
  const unsigned ascii = static_cast<unsigned>(_mm_movemask_epi8(isAscii)) & 0x5555;
  const unsigned shorter = static_cast<unsigned>(_mm_movemask_epi8(belowThree)) & 0x5555;
  out->lengthCodes = 0xAAAA - ascii - shorter;
  return true;
}

// Stores the 32-bit lanes of codes at d + n one after the other, 4 bytes
// each, advancing n by each one's length.
template <size_t... kLane>
inline size_t PutEncodings(__m128i codes, unsigned lengthCodes, uint8_t* d, size_t n,
                           std::index_sequence<kLane...>) {
  ((StoreLow32(d + n, _mm_srli_si128(codes, 4 * kLane)),
    n += ((lengthCodes >> (2 * kLane)) & 3) + 1),
   ...);
  return n;
}

// Stores an encoded block 4 bytes per unit, up to 3 bytes past its output;
// returns the bytes produced.
inline size_t StoreEncodings(const EncodedBlock& block, uint8_t* d) {
  const size_t n = PutEncodings(block.low, block.lengthCodes, d, 0, std::make_index_sequence<4>());
  return PutEncodings(block.high, block.lengthCodes >> 8, d, n, std::make_index_sequence<4>());
}

// Packs an encoded block with pshufb, storing 16 bytes at d and at d plus the
// length of the first half; returns the bytes produced.
VOSYS_TARGET_SSSE3 inline size_t PackEncodings(const EncodedBlock& block, uint8_t* d) {
  const unsigned lo = block.lengthCodes & 0xFF;
  const unsigned hi = block.lengthCodes >> 8;
  Store16(d, _mm_shuffle_epi8(block.low, LoadControl(kPack.utf8[lo])));
  const size_t n = kPack.utf8Count[lo];
  Store16(d + n, _mm_shuffle_epi8(block.high, LoadControl(kPack.utf8[hi])));
  return n + kPack.utf8Count[hi];
}

// Encodes 8 units when all lie below 0x800 (Latin, Cyrillic, Greek, Hebrew,
// Arabic...): each 16-bit lane gets its one or two bytes, and pshufb drops
// the second byte of the one-byte lanes. Stores 16 bytes at d; returns the
// bytes produced, or 0 having written nothing.
VOSYS_TARGET_SSSE3 inline size_t EncodeUpToTwoBlock(const uint16_t* s, uint8_t* d) {
  const __m128i u = Load16(s);
  const __m128i zero = _mm_setzero_si128();
  if (!IsAllZero(_mm_and_si128(u, _mm_set1_epi16(static_cast<short>(0xF800))))) return 0;
  const __m128i isAscii =
      _mm_cmpeq_epi16(_mm_and_si128(u, _mm_set1_epi16(static_cast<short>(0xFF80))), zero);
  const __m128i lead = _mm_or_si128(_mm_srli_epi16(u, 6), _mm_set1_epi16(0xC0));
  const __m128i next = _mm_or_si128(_mm_and_si128(u, _mm_set1_epi16(0x3F)), _mm_set1_epi16(0x80));
  const __m128i two = _mm_or_si128(lead, _mm_slli_epi16(next, 8));
  const __m128i lanes = _mm_or_si128(_mm_and_si128(isAscii, u), _mm_andnot_si128(isAscii, two));
  const unsigned index =
      ~static_cast<unsigned>(_mm_movemask_epi8(_mm_packs_epi16(isAscii, zero))) & 0xFF;
  Store16(d, _mm_shuffle_epi8(lanes, LoadControl(kPack.twoByte[index])));
  return kPack.twoByteCount[index];
}

// EncodeUpToTwoBlock extended to surrogate pairs, for emoji among other text:
// a pair's four bytes split two and two. The high surrogate alone gives the
// first two, the low one with the two lowest bits of the high one the last two.
struct TwoByteLanes {
  size_t units;  // units taken: 16, or 15 when a pair reaches past the block
  size_t bytes;  // bytes produced
};

struct LaneCodes {
  __m128i bytes;    // the one or two bytes of each unit
  __m128i isAscii;  // lanes of one byte
  __m128i bad;      // lanes that fit no form here, or break a pair
};

// The bytes of each unit of u in its 16-bit lane. previous holds the unit
// before each; isHigh and previousHigh tell which of u and of previous are
// high surrogates.
inline LaneCodes TwoByteLaneCodes(__m128i u, __m128i previous, __m128i isHigh,
                                  __m128i previousHigh) {
  const __m128i zero = _mm_setzero_si128();
  const __m128i six = _mm_set1_epi16(0x3F);
  const __m128i mark = _mm_set1_epi16(0x80);
  const __m128i isLow =
      _mm_cmpeq_epi16(_mm_and_si128(u, _mm_set1_epi16(static_cast<short>(0xFC00))),
                      _mm_set1_epi16(static_cast<short>(0xDC00)));
  const __m128i belowTwo =
      _mm_cmpeq_epi16(_mm_and_si128(u, _mm_set1_epi16(static_cast<short>(0xF800))), zero);
  LaneCodes out;
  out.isAscii = _mm_cmpeq_epi16(_mm_and_si128(u, _mm_set1_epi16(static_cast<short>(0xFF80))), zero);
  // Low surrogates exactly after high ones; anything else below 0x800.
  out.bad = _mm_or_si128(
      _mm_xor_si128(isLow, previousHigh),
      _mm_andnot_si128(_mm_or_si128(_mm_or_si128(belowTwo, isHigh), isLow), _mm_set1_epi16(-1)));
  const __m128i last = _mm_or_si128(_mm_and_si128(u, six), mark);
  const __m128i two = _mm_or_si128(_mm_or_si128(_mm_srli_epi16(u, 6), _mm_set1_epi16(0xC0)),
                                   _mm_slli_epi16(last, 8));
  // High: plane = bits 6-9 + 1; F0 | plane >> 2, then 80 | (plane & 3) << 4 | bits 2-5.
  const __m128i plane =
      _mm_add_epi16(_mm_and_si128(_mm_srli_epi16(u, 6), _mm_set1_epi16(0x0F)), _mm_set1_epi16(1));
  const __m128i highSecond =
      _mm_or_si128(_mm_or_si128(_mm_slli_epi16(_mm_and_si128(plane, _mm_set1_epi16(3)), 4),
                                _mm_and_si128(_mm_srli_epi16(u, 2), _mm_set1_epi16(0x0F))),
                   mark);
  const __m128i high = _mm_or_si128(_mm_or_si128(_mm_srli_epi16(plane, 2), _mm_set1_epi16(0xF0)),
                                    _mm_slli_epi16(highSecond, 8));
  // Low: 80 | bits 0-1 of the high unit << 4 | bits 6-9, then 80 | bits 0-5.
  const __m128i lowFirst =
      _mm_or_si128(_mm_or_si128(_mm_slli_epi16(_mm_and_si128(previous, _mm_set1_epi16(3)), 4),
                                _mm_and_si128(_mm_srli_epi16(u, 6), _mm_set1_epi16(0x0F))),
                   mark);
  const __m128i low = _mm_or_si128(lowFirst, _mm_slli_epi16(last, 8));
  __m128i bytes = _mm_and_si128(out.isAscii, u);
  bytes = _mm_or_si128(bytes, _mm_and_si128(_mm_andnot_si128(out.isAscii, belowTwo), two));
  bytes = _mm_or_si128(bytes, _mm_and_si128(isHigh, high));
  out.bytes = _mm_or_si128(bytes, _mm_and_si128(isLow, low));
  return out;
}

inline __m128i IsHighSurrogateLane(__m128i u) {
  return _mm_cmpeq_epi16(_mm_and_si128(u, _mm_set1_epi16(static_cast<short>(0xFC00))),
                         _mm_set1_epi16(static_cast<short>(0xD800)));
}

// Encodes the 16 units at s when each is below 0x800 or half of a surrogate
// pair, with pshufb dropping the second byte of the one-byte lanes. Stores 32
// bytes from d; returns {0, 0}, having written nothing, for anything else.
VOSYS_TARGET_SSSE3 inline TwoByteLanes EncodeTwoByteLanes(const uint16_t* s, uint8_t* d) {
  const __m128i lo = Load16(s);
  const __m128i hi = Load16(s + 8);
  const __m128i highLo = IsHighSurrogateLane(lo);
  const __m128i highHi = IsHighSurrogateLane(hi);
  const LaneCodes a =
      TwoByteLaneCodes(lo, _mm_slli_si128(lo, 2), highLo, _mm_slli_si128(highLo, 2));
  const LaneCodes b = TwoByteLaneCodes(hi, _mm_alignr_epi8(hi, lo, 14), highHi,
                                       _mm_alignr_epi8(highHi, highLo, 14));
  if (_mm_movemask_epi8(_mm_or_si128(a.bad, b.bad)) != 0) return {0, 0};
  // A high surrogate in the last lane waits for the next block: it counts as
  // one speculative byte, taken back below. (Read from memory, so that the
  // next block's address doesn't wait for this block's arithmetic.)
  const size_t cut = IsHighSurrogate(s[15]);
  const __m128i zero = _mm_setzero_si128();
  const unsigned first =
      ~static_cast<unsigned>(_mm_movemask_epi8(_mm_packs_epi16(a.isAscii, zero))) & 0xFF;
  const unsigned second =
      ~static_cast<unsigned>(_mm_movemask_epi8(_mm_packs_epi16(b.isAscii, zero))) &
      (cut ? 0x7F : 0xFF);
  Store16(d, _mm_shuffle_epi8(a.bytes, LoadControl(kPack.twoByte[first])));
  const size_t n = kPack.twoByteCount[first];
  Store16(d + n, _mm_shuffle_epi8(b.bytes, LoadControl(kPack.twoByte[second])));
  return {16 - cut, n + kPack.twoByteCount[second] - cut};
}

// Encodes 8 units that all take three bytes (0x800 and above, no
// surrogates), the stuff of CJK text, into 24 bytes. Stores 28 bytes from d;
// false, having written nothing, otherwise.
VOSYS_TARGET_SSSE3 inline bool EncodeThreeByteBlock(const uint16_t* s, uint8_t* d) {
  const __m128i u = Load16(s);
  const __m128i top5 = _mm_and_si128(u, _mm_set1_epi16(static_cast<short>(0xF800)));
  const __m128i shortOrSurrogate =
      _mm_or_si128(_mm_cmpeq_epi16(top5, _mm_setzero_si128()),
                   _mm_cmpeq_epi16(top5, _mm_set1_epi16(static_cast<short>(0xD800))));
  if (_mm_movemask_epi8(shortOrSurrogate) != 0) return false;
  const __m128i six = _mm_set1_epi16(0x3F);
  const __m128i mark = _mm_set1_epi16(0x80);
  // Lane k: the first two bytes of unit k; and its last byte.
  const __m128i first = _mm_or_si128(_mm_srli_epi16(u, 12), _mm_set1_epi16(0xE0));
  const __m128i middle = _mm_or_si128(_mm_and_si128(_mm_srli_epi16(u, 6), six), mark);
  const __m128i firstTwo = _mm_or_si128(first, _mm_slli_epi16(middle, 8));
  const __m128i last = _mm_or_si128(_mm_and_si128(u, six), mark);
  Store16(d, _mm_or_si128(_mm_shuffle_epi8(firstTwo, _mm_setr_epi8(0, 1, -1, 2, 3, -1, 4, 5, -1, 6,
                                                                   7, -1, -1, -1, -1, -1)),
                          _mm_shuffle_epi8(last, _mm_setr_epi8(-1, -1, 0, -1, -1, 2, -1, -1, 4, -1,
                                                               -1, 6, -1, -1, -1, -1))));
  Store16(d + 12,
          _mm_or_si128(_mm_shuffle_epi8(firstTwo, _mm_setr_epi8(8, 9, -1, 10, 11, -1, 12, 13, -1,
                                                                14, 15, -1, -1, -1, -1, -1)),
                       _mm_shuffle_epi8(last, _mm_setr_epi8(-1, -1, 8, -1, -1, 10, -1, -1, 12, -1,
                                                            -1, 14, -1, -1, -1, -1))));
  return true;
}

// Encodes 8 units that are four surrogate pairs into 16 bytes; false,
// having written nothing, otherwise.
inline bool EncodePairBlock(const uint16_t* s, uint8_t* d) {
  const __m128i pairs = Load16(s);  // lane = high | low << 16
  const __m128i marks = _mm_and_si128(pairs, _mm_set1_epi32(static_cast<int>(0xFC00FC00)));
  if (_mm_movemask_epi8(_mm_cmpeq_epi32(marks, _mm_set1_epi32(static_cast<int>(0xDC00D800)))) !=
      0xFFFF) {
    return false;
  }
  const __m128i ten = _mm_set1_epi32(0x3FF);
  const __m128i six = _mm_set1_epi32(0x3F);
  const __m128i mark = _mm_set1_epi32(0x80);
  const __m128i value = _mm_add_epi32(_mm_or_si128(_mm_slli_epi32(_mm_and_si128(pairs, ten), 10),
                                                   _mm_and_si128(_mm_srli_epi32(pairs, 16), ten)),
                                      _mm_set1_epi32(static_cast<int>(kFirstSupplementary)));
  __m128i bytes = _mm_or_si128(_mm_srli_epi32(value, 18), _mm_set1_epi32(0xF0));
  bytes = _mm_or_si128(
      bytes, _mm_slli_epi32(_mm_or_si128(_mm_and_si128(_mm_srli_epi32(value, 12), six), mark), 8));
  bytes = _mm_or_si128(
      bytes, _mm_slli_epi32(_mm_or_si128(_mm_and_si128(_mm_srli_epi32(value, 6), six), mark), 16));
  bytes = _mm_or_si128(bytes, _mm_slli_epi32(_mm_or_si128(_mm_and_si128(value, six), mark), 24));
  Store16(d, bytes);
  return true;
}

// A block writes up to 17 bytes past its output; the more than 16 units left
// after it (or after two blocks of 8) produce at least one byte each, and a
// pair four for two units, which overwrite them.
constexpr ptrdiff_t kEncodeBlockMargin = 16 + 16;

// Encodes the characters that start in the next 8 units one at a time,
// taking surrogate pairs four at a time wherever four come in a row.
inline void EncodeEight(const uint16_t*& s, uint8_t*& d) {
  for (const uint16_t* stop = s + 8; s < stop;) {
    if (EncodePairBlock(s, d)) {
      s += 8;
      d += 16;
    } else {
      EncodeOne(s, d);
    }
  }
}

void EncodeZoneSse2(const uint16_t*& sRef, uint8_t*& dRef, const uint16_t* zoneEnd) {
  const uint16_t* s = sRef;
  uint8_t* d = dRef;
  while (zoneEnd - s > kEncodeBlockMargin) {
    EncodedBlock block;
    if (IsHighSurrogate(*s)) {  // emoji and other supplementary text
      EncodeEight(s, d);
    } else if (NarrowAsciiBlock(s, d)) {
      s += 16;
      d += 16;
    } else if (EncodeBlock(s, &block)) {
      d += StoreEncodings(block, d);
      s += 8;
      if (EncodeBlock(s, &block)) {  // mixed text tends to go on
        d += StoreEncodings(block, d);
        s += 8;
      }
    } else {
      EncodeEight(s, d);
    }
  }
  while (s < zoneEnd) EncodeOne(s, d);
  sRef = s;
  dRef = d;
}

VOSYS_TARGET_SSSE3 void EncodeZoneSsse3(const uint16_t*& sRef, uint8_t*& dRef,
                                        const uint16_t* zoneEnd) {
  const uint16_t* s = sRef;
  uint8_t* d = dRef;
  while (zoneEnd - s > kEncodeBlockMargin) {
    EncodedBlock block;
    TwoByteLanes lanes;
    size_t bytes;
    // Emoji and other supplementary text first: the other blocks refuse it.
    const bool supplementary = IsHighSurrogate(*s);
    if (supplementary && (lanes = EncodeTwoByteLanes(s, d)).units != 0) {
      s += lanes.units;
      d += lanes.bytes;
    } else if (NarrowAsciiBlock(s, d)) {
      s += 16;
      d += 16;
    } else if ((bytes = EncodeUpToTwoBlock(s, d)) != 0) {
      s += 8;
      d += bytes;
      if ((bytes = EncodeUpToTwoBlock(s, d)) != 0) {  // mixed text tends to go on
        s += 8;
        d += bytes;
      }
    } else if (EncodeThreeByteBlock(s, d)) {
      s += 8;
      d += 24;
    } else if (!supplementary && (lanes = EncodeTwoByteLanes(s, d)).units != 0) {
      s += lanes.units;
      d += lanes.bytes;
    } else if (EncodeBlock(s, &block)) {
      d += PackEncodings(block, d);
      s += 8;
      if (EncodeBlock(s, &block)) {
        d += PackEncodings(block, d);
        s += 8;
      }
    } else {
      EncodeEight(s, d);
    }
  }
  while (s < zoneEnd) EncodeOne(s, d);
  sRef = s;
  dRef = d;
}

// The zones: a character reads at most 2 units and writes at most 3 bytes per
// unit read, plus one for a pair, so no check is needed for characters that
// start within min(source left - 1, (target left - 1) / 3) units.
void EncodeZone(Kernel kernel, const uint16_t*& s, uint8_t*& d, const uint16_t* zoneEnd) {
  switch (kernel) {
    case Kernel::kAvx512:
      EncodeZoneAvx512(s, d, zoneEnd);
      EncodeZoneAvx2(s, d, zoneEnd);
      EncodeZoneSsse3(s, d, zoneEnd);
      break;
    case Kernel::kAvx2:
      EncodeZoneAvx2(s, d, zoneEnd);
      EncodeZoneSsse3(s, d, zoneEnd);
      break;
    case Kernel::kSsse3:
      EncodeZoneSsse3(s, d, zoneEnd);
      break;
    case Kernel::kSse2:
      EncodeZoneSse2(s, d, zoneEnd);
      break;
    case Kernel::kScalar:
      while (s < zoneEnd) EncodeOne(s, d);
      break;
  }
}

void EncodeUnchecked(const uint16_t*& s, const uint16_t* srcEnd, uint8_t*& d,
                     const uint8_t* dstEnd) {
  constexpr ptrdiff_t kMinZone = 32;
  const Kernel kernel = ActiveKernel();
  for (;;) {
    const ptrdiff_t zone = std::min(srcEnd - s - 1, (dstEnd - d - 1) / 3);
    if (zone < kMinZone) return;
    EncodeZone(kernel, s, d, s + zone);
  }
}

int EncodeChecked(const uint16_t*& s, const uint16_t* srcEnd, uint8_t*& d, const uint8_t* dstEnd) {
  while (s < srcEnd) {
    int used;
    const uint32_t value = ReadCharacter(s, srcEnd, &used);
    const int len = Utf8Length(value);
    if (dstEnd - d < len) return UTFCONV_TARGET_FULL;
    PutUtf8(value, len, d);
    s += used;
  }
  return UTFCONV_OK;
}

// ===================================================================== whole strings

// ------------------------------------------------ UTF-16: length and UTF-8 size

// Index of the first 0 among the 64 units at p, or 64. No unit past the
// terminator may be read, so this goes one unit at a time, eight to a turn.
inline size_t FindTerminator64(const uint16_t* p) {
  for (size_t i = 0; i < 64; i += 8) {
    if (p[i] == 0) return i;
    if (p[i + 1] == 0) return i + 1;
    if (p[i + 2] == 0) return i + 2;
    if (p[i + 3] == 0) return i + 3;
    if (p[i + 4] == 0) return i + 4;
    if (p[i + 5] == 0) return i + 5;
    if (p[i + 6] == 0) return i + 6;
    if (p[i + 7] == 0) return i + 7;
  }
  return 64;
}

// The UTF-8 size of units as the encoder writes them: one byte below 0x80,
// two below 0x800, three above, and four for a high surrogate and the low one
// after it, lone halves taking three. Each unit gives 1 + [>= 0x80] +
// [>= 0x800] - 2 [starts a pair]; pairs never overlap, so they need no
// left-to-right walk. Blocks of 8 count the last two terms in 16-bit lanes,
// negated: -1 below 0x80, -1 below 0x800, -2 for a pair.
class Utf8Sizer {
 public:
  // Sizes the 64 units at p, and reads p[64].
  void Add64(const uint16_t* p) {
    const __m128i zero = _mm_setzero_si128();
    const __m128i any = _mm_or_si128(_mm_or_si128(_mm_or_si128(Load16(p), Load16(p + 8)),
                                                  _mm_or_si128(Load16(p + 16), Load16(p + 24))),
                                     _mm_or_si128(_mm_or_si128(Load16(p + 32), Load16(p + 40)),
                                                  _mm_or_si128(Load16(p + 48), Load16(p + 56))));
    if (IsAllZero(_mm_and_si128(any, _mm_set1_epi16(static_cast<short>(0xFF80))))) return;
    __m128i lanes = zero;
    __m128i surrogates = zero;
    for (int i = 0; i < 64; i += 8) {
      const __m128i u = Load16(p + i);
      const __m128i top5 = _mm_and_si128(u, _mm_set1_epi16(static_cast<short>(0xF800)));
      const __m128i ascii =
          _mm_cmpeq_epi16(_mm_and_si128(u, _mm_set1_epi16(static_cast<short>(0xFF80))), zero);
      lanes = _mm_add_epi16(lanes, _mm_add_epi16(ascii, _mm_cmpeq_epi16(top5, zero)));
      surrogates = _mm_or_si128(surrogates,
                                _mm_cmpeq_epi16(top5, _mm_set1_epi16(static_cast<short>(0xD800))));
    }
    if (_mm_movemask_epi8(surrogates) != 0) {
      for (int i = 0; i < 64; i += 8) lanes = _mm_add_epi16(lanes, PairLanes(p + i));
    }
    Collect(lanes, 64);
  }
  // Add64 in 256-bit lanes, folded into 128 bits at the end.
  VOSYS_TARGET_AVX2 void Add64Avx2(const uint16_t* p) {
    const __m256i zero = _mm256_setzero_si256();
    const __m256i any = _mm256_or_si256(_mm256_or_si256(Load32(p), Load32(p + 16)),
                                        _mm256_or_si256(Load32(p + 32), Load32(p + 48)));
    if (_mm256_testz_si256(any, _mm256_set1_epi16(static_cast<short>(0xFF80)))) return;
    __m256i lanes = zero;
    __m256i surrogates = zero;
    for (int i = 0; i < 64; i += 16) {
      const __m256i u = Load32(p + i);
      const __m256i top5 = _mm256_and_si256(u, _mm256_set1_epi16(static_cast<short>(0xF800)));
      const __m256i ascii = _mm256_cmpeq_epi16(
          _mm256_and_si256(u, _mm256_set1_epi16(static_cast<short>(0xFF80))), zero);
      lanes = _mm256_add_epi16(lanes, _mm256_add_epi16(ascii, _mm256_cmpeq_epi16(top5, zero)));
      surrogates = _mm256_or_si256(
          surrogates, _mm256_cmpeq_epi16(top5, _mm256_set1_epi16(static_cast<short>(0xD800))));
    }
    if (!_mm256_testz_si256(surrogates, surrogates)) {
      const __m256i tops = _mm256_set1_epi16(static_cast<short>(0xFC00));
      for (int i = 0; i < 64; i += 16) {
        const __m256i pair =
            _mm256_and_si256(_mm256_cmpeq_epi16(_mm256_and_si256(Load32(p + i), tops),
                                                _mm256_set1_epi16(static_cast<short>(0xD800))),
                             _mm256_cmpeq_epi16(_mm256_and_si256(Load32(p + i + 1), tops),
                                                _mm256_set1_epi16(static_cast<short>(0xDC00))));
        lanes = _mm256_add_epi16(lanes, _mm256_add_epi16(pair, pair));
      }
    }
    Collect(_mm_add_epi16(_mm256_castsi256_si128(lanes), _mm256_extracti128_si256(lanes, 1)), 64);
  }
  // Sizes the n units at p, and reads p[n].
  void Add(const uint16_t* p, size_t n) {
    const __m128i zero = _mm_setzero_si128();
    for (; n >= 8; n -= 8, p += 8) {
      const __m128i u = Load16(p);
      const __m128i top5 = _mm_and_si128(u, _mm_set1_epi16(static_cast<short>(0xF800)));
      const __m128i ascii =
          _mm_cmpeq_epi16(_mm_and_si128(u, _mm_set1_epi16(static_cast<short>(0xFF80))), zero);
      Collect(_mm_add_epi16(_mm_add_epi16(ascii, _mm_cmpeq_epi16(top5, zero)), PairLanes(p)), 8);
    }
    for (; n > 0; --n, ++p) {
      const uint32_t unit = p[0];
      extra_ += (unit >= 0x80) + (unit >= 0x800);
      if (IsHighSurrogate(unit) && IsLowSurrogate(p[1])) extra_ -= 2;
    }
  }
  size_t Extra() {
    Flush();
    return extra_;
  }

 private:
  // -2 in the lanes of the 8 units at p that start a pair; reads p[8].
  static __m128i PairLanes(const uint16_t* p) {
    const __m128i tops = _mm_set1_epi16(static_cast<short>(0xFC00));
    const __m128i pair = _mm_and_si128(
        _mm_cmpeq_epi16(_mm_and_si128(Load16(p), tops), _mm_set1_epi16(static_cast<short>(0xD800))),
        _mm_cmpeq_epi16(_mm_and_si128(Load16(p + 1), tops),
                        _mm_set1_epi16(static_cast<short>(0xDC00))));
    return _mm_add_epi16(pair, pair);
  }
  // Takes the lanes of `units` units, which fall by at most 2 a unit in 8 lanes.
  void Collect(__m128i lanes, int units) {
    lanes_ = _mm_add_epi16(lanes_, lanes);
    extra_ += 2 * static_cast<size_t>(units);  // less what the lanes hold
    if ((units_ += units) >= kMaxUnits) Flush();
  }
  static constexpr int kMaxUnits = 8 * 32767 / 2 - 64;
  void Flush() {
    alignas(16) int32_t sums[4];
    _mm_store_si128(reinterpret_cast<__m128i*>(sums), _mm_madd_epi16(lanes_, _mm_set1_epi16(1)));
    extra_ -= static_cast<size_t>(-(int64_t{sums[0]} + sums[1] + sums[2] + sums[3]));
    lanes_ = _mm_setzero_si128();
    units_ = 0;
  }

  __m128i lanes_ = _mm_setzero_si128();
  int units_ = 0;
  size_t extra_ = 0;  // bytes beyond one a unit, less what the lanes hold
};

struct Utf16Measure {
  size_t units;  // before the terminator
  size_t bytes;  // of UTF-8, with the terminator
};

// Sizes the stretches of 64 units from p up to the one holding the
// terminator, whose index in it goes to *found; returns that stretch.
const uint16_t* SizeStretches(const uint16_t* p, Utf8Sizer& sizer, size_t* found) {
  for (; (*found = FindTerminator64(p)) == 64; p += 64) sizer.Add64(p);
  return p;
}

VOSYS_TARGET_AVX2 const uint16_t* SizeStretchesAvx2(const uint16_t* p, Utf8Sizer& sizer,
                                                    size_t* found) {
  for (; (*found = FindTerminator64(p)) == 64; p += 64) sizer.Add64Avx2(p);
  _mm256_zeroupper();
  return p;
}

// Length and UTF-8 size of a string in one pass: each stretch of 64 units
// found before the terminator is sized while it is still in the cache.
Utf16Measure MeasureUtf16(const uint16_t* s) {
  Utf8Sizer sizer;
  size_t found;
  const uint16_t* const p =
      UseAvx2() ? SizeStretchesAvx2(s, sizer, &found) : SizeStretches(s, sizer, &found);
  sizer.Add(p, found);
  const size_t units = static_cast<size_t>(p - s) + found;
  return {units, units + 1 + sizer.Extra()};
}

// ------------------------------------------------ UTF-8: units of UTF-16

// Whether a byte among the three before p announces a continuation byte at
// p or past it: C0 and up just before, E0 and up two before, F0 and up three
// before.
inline bool Announces(const uint8_t* p) {
  return (p[-1] >= 0xC0) | (p[-2] >= 0xE0) | (p[-3] >= 0xF0);
}

// What CountPlainBlocks counted for the sequence at q: one unit, and a second
// for a lead byte F0-F4 with a second byte that puts its value from U+10000
// to U+10FFFF (F0 needs 90 and up, F4 less; F5-F7 lie past U+10FFFF).
inline size_t PlainUnits(const uint8_t* q) {
  const bool from90 = static_cast<int8_t>(q[1]) > -113;  // as the blocks compare
  return 1 +
         ((q[0] == 0xF0 && from90) || (q[0] > 0xF0 && q[0] < 0xF4) || (q[0] == 0xF4 && !from90));
}

// Plain text: no byte above F7, and continuation bytes exactly where the
// lead bytes before them announce them. In plain text each byte that is not a
// continuation starts a sequence, as the decoder reads it, and a four-byte
// sequence has the value of the masked formula, which gives two units where
// PlainUnits says. The blocks below read the 3 bytes before theirs and the
// one after.

// Adds to lanes 1 for each sequence that starts in the 16 bytes b0 at p, and
// 1 for each second unit; false, having added nothing, if they aren't plain.
inline bool CountPlainBlock(const uint8_t* p, __m128i b0, __m128i* lanes) {
  // Bytes that a lead byte announces, and F8-FF, which fail the test.
  const __m128i announced =
      _mm_or_si128(_mm_or_si128(_mm_subs_epu8(Load16(p - 1), _mm_set1_epi8(-65)),   // C0-
                                _mm_subs_epu8(Load16(p - 2), _mm_set1_epi8(-33))),  // E0-
                   _mm_or_si128(_mm_subs_epu8(Load16(p - 3), _mm_set1_epi8(-17)),   // F0-
                                _mm_subs_epu8(b0, _mm_set1_epi8(-9))));             // F8-
  const __m128i matches =
      _mm_xor_si128(IsContinuation(b0), _mm_cmpeq_epi8(announced, _mm_setzero_si128()));
  if (_mm_movemask_epi8(matches) != 0xFFFF) return false;
  __m128i count = _mm_cmpgt_epi8(b0, _mm_set1_epi8(-65));  // not 80-BF
  if (_mm_movemask_epi8(_mm_cmpeq_epi8(_mm_max_epu8(b0, _mm_set1_epi8(-16)), b0)) != 0) {
    const __m128i from90 = _mm_cmpgt_epi8(Load16(p + 1), _mm_set1_epi8(-113));
    const __m128i two =
        _mm_or_si128(_mm_or_si128(_mm_and_si128(_mm_cmpeq_epi8(b0, _mm_set1_epi8(-16)), from90),
                                  _mm_andnot_si128(from90, _mm_cmpeq_epi8(b0, _mm_set1_epi8(-12)))),
                     _mm_and_si128(_mm_cmpgt_epi8(b0, _mm_set1_epi8(-16)),
                                   _mm_cmplt_epi8(b0, _mm_set1_epi8(-12))));
    count = _mm_add_epi8(count, two);
  }
  *lanes = _mm_sub_epi8(*lanes, count);
  return true;
}

// CountPlainBlock for 32 bytes.
VOSYS_TARGET_AVX2 inline bool CountPlainBlock32(const uint8_t* p, __m256i b0, __m256i* lanes) {
  const __m256i announced =
      _mm256_or_si256(_mm256_or_si256(_mm256_subs_epu8(Load32(p - 1), _mm256_set1_epi8(-65)),
                                      _mm256_subs_epu8(Load32(p - 2), _mm256_set1_epi8(-33))),
                      _mm256_or_si256(_mm256_subs_epu8(Load32(p - 3), _mm256_set1_epi8(-17)),
                                      _mm256_subs_epu8(b0, _mm256_set1_epi8(-9))));
  const __m256i matches = _mm256_xor_si256(_mm256_cmpgt_epi8(_mm256_set1_epi8(-64), b0),  // 80-BF
                                           _mm256_cmpeq_epi8(announced, _mm256_setzero_si256()));
  if (_mm256_movemask_epi8(matches) != -1) return false;
  __m256i count = _mm256_cmpgt_epi8(b0, _mm256_set1_epi8(-65));
  if (_mm256_movemask_epi8(_mm256_cmpeq_epi8(_mm256_max_epu8(b0, _mm256_set1_epi8(-16)), b0)) !=
      0) {
    const __m256i from90 = _mm256_cmpgt_epi8(Load32(p + 1), _mm256_set1_epi8(-113));
    const __m256i two = _mm256_or_si256(
        _mm256_or_si256(_mm256_and_si256(_mm256_cmpeq_epi8(b0, _mm256_set1_epi8(-16)), from90),
                        _mm256_andnot_si256(from90, _mm256_cmpeq_epi8(b0, _mm256_set1_epi8(-12)))),
        _mm256_and_si256(_mm256_cmpgt_epi8(b0, _mm256_set1_epi8(-16)),
                         _mm256_cmpgt_epi8(_mm256_set1_epi8(-12), b0)));
    count = _mm256_add_epi8(count, two);
  }
  *lanes = _mm256_sub_epi8(*lanes, count);
  return true;
}

// From p, the end of the plain text counted from first, goes back to the
// start of the sequence that reaches p or past it, if there is one (it lies
// within 3 bytes), taking off *count what the blocks counted for it.
const uint8_t* BackToSequenceStart(const uint8_t* p, const uint8_t* first, size_t* count) {
  for (int back = 1; back <= 3 && p - back >= first; ++back) {
    if (static_cast<int8_t>(p[-back]) < -64) continue;  // a continuation byte
    if (TrailBytes(p[-back]) >= back) {
      p -= back;
      *count -= PlainUnits(p);
    }
    break;
  }
  return p;
}

// Counts plain text from p by blocks, to the first block that isn't plain or
// doesn't fit before end; adds the units of the sequences that start before
// the returned position, a sequence start. p must start a sequence, at least
// 3 bytes into the text, with no byte before it announcing one at or past it.
const uint8_t* CountPlainBlocks(const uint8_t* p, const uint8_t* end, size_t* units) {
  const uint8_t* const first = p;
  size_t count = 0;
  bool plain = true;
  while (plain && end - p >= 16) {
    __m128i lanes = _mm_setzero_si128();  // up to 2 a block
    for (int blocks = 0; blocks < 127 && end - p >= 16; ++blocks) {
      const __m128i b0 = Load16(p);
      if (_mm_movemask_epi8(b0) == 0 && !Announces(p)) {
        // ASCII, and what follows it while it is ASCII too
        const uint8_t* q = p + 16;
        while (end - q >= 64 &&
               _mm_movemask_epi8(_mm_or_si128(_mm_or_si128(Load16(q), Load16(q + 16)),
                                              _mm_or_si128(Load16(q + 32), Load16(q + 48)))) == 0) {
          q += 64;
        }
        count += static_cast<size_t>(q - p);
        p = q;
      } else if (CountPlainBlock(p, b0, &lanes)) {
        p += 16;
      } else {
        plain = false;
        break;
      }
    }
    const __m128i sums = _mm_sad_epu8(lanes, _mm_setzero_si128());
    count += static_cast<size_t>(_mm_cvtsi128_si32(sums)) +
             static_cast<size_t>(_mm_cvtsi128_si32(_mm_unpackhi_epi64(sums, sums)));
  }
  p = BackToSequenceStart(p, first, &count);
  *units += count;
  return p;
}

// CountPlainBlocks by 32 bytes.
VOSYS_TARGET_AVX2 const uint8_t* CountPlainBlocksAvx2(const uint8_t* p, const uint8_t* end,
                                                      size_t* units) {
  const uint8_t* const first = p;
  size_t count = 0;
  bool plain = true;
  while (plain && end - p >= 32) {
    __m256i lanes = _mm256_setzero_si256();  // up to 2 a block
    for (int blocks = 0; blocks < 127 && end - p >= 32; ++blocks) {
      const __m256i b0 = Load32(p);
      if (_mm256_movemask_epi8(b0) == 0 && !Announces(p)) {
        const uint8_t* q = p + 32;
        while (end - q >= 64 &&
               _mm256_movemask_epi8(_mm256_or_si256(Load32(q), Load32(q + 32))) == 0) {
          q += 64;
        }
        count += static_cast<size_t>(q - p);
        p = q;
      } else if (CountPlainBlock32(p, b0, &lanes)) {
        p += 32;
      } else {
        plain = false;
        break;
      }
    }
    const __m256i sums = _mm256_sad_epu8(lanes, _mm256_setzero_si256());
    alignas(32) uint64_t parts[4];
    _mm256_store_si256(reinterpret_cast<__m256i*>(parts), sums);
    count += static_cast<size_t>(parts[0] + parts[1] + parts[2] + parts[3]);
  }
  _mm256_zeroupper();
  p = BackToSequenceStart(p, first, &count);
  *units += count;
  return p;
}

// Units that the decoder gives for the n bytes at s, s[n] being the
// terminator: a sequence cut short by it gives none. Plain text goes by
// blocks; the rest sequence by sequence, as the decoder reads it, until a
// sequence start that the blocks can take again.
size_t Utf16Units(const uint8_t* s, size_t n) {
  const uint8_t* p = s;
  const uint8_t* const end = s + n;
  size_t units = 0;
  for (const uint8_t* resume = s + 3;; resume = p + 16) {
    while (p < resume || Announces(p)) {
      if (p == end) return units;
      const int trail = TrailBytes(*p);
      if (trail >= end - p) return units;
      units += static_cast<size_t>(UnitsFor(Accumulate(p, trail)));
      p += trail + 1;
    }
    p = UseAvx2() ? CountPlainBlocksAvx2(p, end, &units) : CountPlainBlocks(p, end, &units);
  }
}

// ------------------------------------------------ conversion

// The sizes being exact, the targets can't run out, so each converter runs
// the zone code of its stream converter over the whole text at once, as the
// stream converter would with a target of the largest size. Stray block
// stores land where later characters overwrite them, inside the result.

// Encodes the n units at s and the terminator; returns the end of the bytes.
uint8_t* EncodeWhole(const uint16_t* s, size_t n, uint8_t* d) {
  // A character that starts before s + n reads the terminator at most.
  EncodeZone(ActiveKernel(), s, d, s + n);
  *d++ = 0;
  return d;
}

// Decodes the n bytes at s, up to a sequence cut short by the end; returns
// the end of the units, without a terminator.
uint16_t* DecodeWhole(const uint8_t* s, size_t n, uint16_t* d, const uint16_t* dstEnd) {
  // A sequence that starts before s + n - 5 lies in the text whatever its lead.
  const uint8_t* const end = s + n;
  const uint8_t* const zoneEnd = n > 5 ? end - 5 : s;
  DecodeZone(ActiveKernel(), s, d, zoneEnd);
  DecodeChecked(s, end, d, dstEnd);
  return d;
}

int TooLong(size_t bytes) {
  const int rc = SETERR(VOERROR_OutOfMemory);
  GetErrString() << static_cast<unsigned long>(bytes);
  return rc;
}

}  // namespace
}  // namespace utfconv

extern "C" {

int ConvertUTF16toUTF8(const unsigned short** src, const unsigned short* srcEnd,
                       unsigned char** dst, const unsigned char* dstEnd) {
  const uint16_t* s = *src;
  uint8_t* d = *dst;
  utfconv::EncodeUnchecked(s, srcEnd, d, dstEnd);
  const int rc = utfconv::EncodeChecked(s, srcEnd, d, dstEnd);
  *src = s;
  *dst = d;
  return rc;
}

int ConvertUTF8toUTF16(const unsigned char** src, const unsigned char* srcEnd, unsigned short** dst,
                       const unsigned short* dstEnd) {
  const uint8_t* s = *src;
  uint16_t* d = *dst;
  utfconv::DecodeUnchecked(s, srcEnd, d, dstEnd);
  const int rc = utfconv::DecodeChecked(s, srcEnd, d, dstEnd);
  *src = s;
  *dst = d;
  return rc;
}

// Failure here is routine for callers (they fall back), so nothing is
// recorded: the allocation is the one that leaves no record, rather than a
// bracket of disabled recording, which would silence the other threads'
// failures too while it lasted.
int MucConvertUnicodeToUTF8(const unsigned short* s, char** out) {
  if (s == nullptr || out == nullptr) return SETERR(VOERROR_InvalidArgument);
  *out = nullptr;
  const utfconv::Utf16Measure text =
      utfconv::MeasureUtf16(s);  // at most 3 bytes a unit: no overflow
  if (text.bytes > static_cast<size_t>(utfconv::kMaxResult)) return VOERROR_OutOfMemory;
  unsigned char* buffer = nullptr;
  if (!MmAllocExc(&buffer, text.bytes)) return VOERROR_OutOfMemory;
  const uint8_t* const end = utfconv::EncodeWhole(s, text.units, buffer);
  *out = reinterpret_cast<char*>(buffer);
  return static_cast<int>(end - buffer);
}

// A sequence cut short by the terminator is dropped.
int MucConvertUTF8ToUnicode(const char* s, unsigned short** out) {
  if (s == nullptr || out == nullptr) return SETERR(VOERROR_InvalidArgument);
  *out = nullptr;
  const auto* bytes = reinterpret_cast<const uint8_t*>(s);
  const size_t n = strlen(s);
  const size_t units = utfconv::Utf16Units(bytes, n);  // at most n
  if (units >= static_cast<size_t>(utfconv::kMaxResult))
    return utfconv::TooLong((units + 1) * sizeof(uint16_t));
  unsigned short* buffer = nullptr;
  const int rc = MmAlloc(&buffer, (units + 1) * sizeof(uint16_t));
  if (rc < 0) return PASSERR(rc);
  uint16_t* const end = utfconv::DecodeWhole(bytes, n, buffer, buffer + units);
  *end = 0;
  *out = buffer;
  return static_cast<int>(end - buffer);
}

}  // extern "C"
