// Scans of UTF-16 text of known length (unitscan_priv.h), one function per
// kernel: 8 units at a time with SSE2, 16 and 32 with AVX2, 32 with
// AVX-512. The narrower kernels end with a scalar tail, AVX-512 with a
// masked load, which reads no unit past the end either: masked-off lanes are
// not accessed. The wide functions are compiled for their instruction sets
// through attributes, and clear the upper halves of the registers before
// they return (the compiler does so too, but only when it optimizes).
#include "text/unitscan_priv.h"

#include <immintrin.h>

#include "text/utfconv_priv.h"

#define VOSYS_TARGET_AVX2 __attribute__((target("avx2")))
#define VOSYS_TARGET_AVX512 __attribute__((target("avx512f,avx512bw,bmi,bmi2")))

namespace unitscan {

namespace {

inline int LowestLane16(uint32_t byteMask) {
  return __builtin_ctz(byteMask) / 2;
}

// ---------------------------------------------------------------- scalar

size_t FindScalar(const uint16_t* s, size_t n, uint16_t c) {
  size_t i = 0;
  while (i < n && s[i] != c) ++i;
  return i;
}

size_t FindPairScalar(const uint16_t* s, size_t n, uint16_t first, uint16_t last, size_t gap) {
  size_t i = 0;
  while (i < n && (s[i] != first || s[i + gap] != last)) ++i;
  return i;
}

size_t CompareEndScalar(const uint16_t* a, const uint16_t* b, size_t n) {
  size_t i = 0;
  while (i < n && a[i] == b[i] && a[i] != 0) ++i;
  return i;
}

// ---------------------------------------------------------------- SSE2

inline __m128i Load8(const uint16_t* p) {
  return _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
}

size_t FindSse2(const uint16_t* s, size_t n, uint16_t c) {
  const __m128i needle = _mm_set1_epi16(static_cast<short>(c));
  size_t i = 0;
  for (; i + 8 <= n; i += 8) {
    const uint32_t equal = _mm_movemask_epi8(_mm_cmpeq_epi16(Load8(s + i), needle));
    if (equal != 0) return i + LowestLane16(equal);
  }
  return i + FindScalar(s + i, n - i, c);
}

size_t FindPairSse2(const uint16_t* s, size_t n, uint16_t first, uint16_t last, size_t gap) {
  const __m128i firsts = _mm_set1_epi16(static_cast<short>(first));
  const __m128i lasts = _mm_set1_epi16(static_cast<short>(last));
  size_t i = 0;
  for (; i + 8 <= n; i += 8) {
    const uint32_t both = _mm_movemask_epi8(_mm_and_si128(
        _mm_cmpeq_epi16(Load8(s + i), firsts), _mm_cmpeq_epi16(Load8(s + i + gap), lasts)));
    if (both != 0) return i + LowestLane16(both);
  }
  return i + FindPairScalar(s + i, n - i, first, last, gap);
}

// Lanes where a comparison goes on: equal units, not the end of a.
inline uint32_t GoesOn(__m128i a, __m128i b) {
  return _mm_movemask_epi8(
      _mm_andnot_si128(_mm_cmpeq_epi16(a, _mm_setzero_si128()), _mm_cmpeq_epi16(a, b)));
}

size_t CompareEndSse2(const uint16_t* a, const uint16_t* b, size_t n) {
  size_t i = 0;
  for (; i + 8 <= n; i += 8) {
    const uint32_t on = GoesOn(Load8(a + i), Load8(b + i));
    if (on != 0xFFFF) return i + LowestLane16(~on);
  }
  return i + CompareEndScalar(a + i, b + i, n - i);
}

// ---------------------------------------------------------------- AVX2
//
// Each ...Scan... function is the loop; the function of the kernel's name
// after it runs the loop and clears the upper register halves.

VOSYS_TARGET_AVX2 inline __m256i Load16(const uint16_t* p) {
  return _mm256_loadu_si256(reinterpret_cast<const __m256i*>(p));
}
VOSYS_TARGET_AVX2 inline uint32_t Mask(__m256i v) {
  return static_cast<uint32_t>(_mm256_movemask_epi8(v));
}

// 32 units a turn while they last, then 16, then the SSE2 step and the
// scalar tail.
VOSYS_TARGET_AVX2 inline size_t FindScanAvx2(const uint16_t* s, size_t n, uint16_t c) {
  const __m256i needle = _mm256_set1_epi16(static_cast<short>(c));
  size_t i = 0;
  for (; i + 32 <= n; i += 32) {
    const __m256i low = _mm256_cmpeq_epi16(Load16(s + i), needle);
    const __m256i high = _mm256_cmpeq_epi16(Load16(s + i + 16), needle);
    if (!_mm256_testz_si256(_mm256_or_si256(low, high), _mm256_or_si256(low, high))) {
      const uint32_t first = Mask(low);
      return first != 0 ? i + LowestLane16(first) : i + 16 + LowestLane16(Mask(high));
    }
  }
  if (i + 16 <= n) {
    const uint32_t equal = Mask(_mm256_cmpeq_epi16(Load16(s + i), needle));
    if (equal != 0) return i + LowestLane16(equal);
    i += 16;
  }
  if (i + 8 <= n) {
    const uint32_t equal =
        _mm_movemask_epi8(_mm_cmpeq_epi16(Load8(s + i), _mm256_castsi256_si128(needle)));
    if (equal != 0) return i + LowestLane16(equal);
    i += 8;
  }
  while (i < n && s[i] != c) ++i;
  return i;
}

VOSYS_TARGET_AVX2 size_t FindAvx2(const uint16_t* s, size_t n, uint16_t c) {
  const size_t i = FindScanAvx2(s, n, c);
  _mm256_zeroupper();
  return i;
}

VOSYS_TARGET_AVX2 inline size_t FindPairScanAvx2(const uint16_t* s, size_t n, uint16_t first,
                                                 uint16_t last, size_t gap) {
  const __m256i firsts = _mm256_set1_epi16(static_cast<short>(first));
  const __m256i lasts = _mm256_set1_epi16(static_cast<short>(last));
  size_t i = 0;
  for (; i + 16 <= n; i += 16) {
    const uint32_t both = Mask(_mm256_and_si256(_mm256_cmpeq_epi16(Load16(s + i), firsts),
                                                _mm256_cmpeq_epi16(Load16(s + i + gap), lasts)));
    if (both != 0) return i + LowestLane16(both);
  }
  if (i + 8 <= n) {
    const uint32_t both = _mm_movemask_epi8(
        _mm_and_si128(_mm_cmpeq_epi16(Load8(s + i), _mm256_castsi256_si128(firsts)),
                      _mm_cmpeq_epi16(Load8(s + i + gap), _mm256_castsi256_si128(lasts))));
    if (both != 0) return i + LowestLane16(both);
    i += 8;
  }
  while (i < n && (s[i] != first || s[i + gap] != last)) ++i;
  return i;
}

VOSYS_TARGET_AVX2 size_t FindPairAvx2(const uint16_t* s, size_t n, uint16_t first, uint16_t last,
                                      size_t gap) {
  const size_t i = FindPairScanAvx2(s, n, first, last, gap);
  _mm256_zeroupper();
  return i;
}

// Lanes where a comparison goes on: equal units, not the end of a.
VOSYS_TARGET_AVX2 inline uint32_t GoesOn(__m256i a, __m256i b) {
  return Mask(
      _mm256_andnot_si256(_mm256_cmpeq_epi16(a, _mm256_setzero_si256()), _mm256_cmpeq_epi16(a, b)));
}

VOSYS_TARGET_AVX2 inline size_t CompareEndScanAvx2(const uint16_t* a, const uint16_t* b, size_t n) {
  size_t i = 0;
  for (; i + 32 <= n; i += 32) {
    const uint32_t low = GoesOn(Load16(a + i), Load16(b + i));
    const uint32_t high = GoesOn(Load16(a + i + 16), Load16(b + i + 16));
    if ((low & high) != 0xFFFFFFFF) {
      return low != 0xFFFFFFFF ? i + LowestLane16(~low) : i + 16 + LowestLane16(~high);
    }
  }
  if (i + 16 <= n) {
    const uint32_t on = GoesOn(Load16(a + i), Load16(b + i));
    if (on != 0xFFFFFFFF) return i + LowestLane16(~on);
    i += 16;
  }
  if (i + 8 <= n) {
    const uint32_t on = GoesOn(Load8(a + i), Load8(b + i));
    if (on != 0xFFFF) return i + LowestLane16(~on);
    i += 8;
  }
  while (i < n && a[i] == b[i] && a[i] != 0) ++i;
  return i;
}

VOSYS_TARGET_AVX2 size_t CompareEndAvx2(const uint16_t* a, const uint16_t* b, size_t n) {
  const size_t i = CompareEndScanAvx2(a, b, n);
  _mm256_zeroupper();
  return i;
}

// ---------------------------------------------------------------- AVX-512

VOSYS_TARGET_AVX512 inline __m512i Load32(const uint16_t* p) {
  return _mm512_loadu_si512(p);
}

// The lanes of the last `left` units (fewer than 32): the rest are neither
// read nor compared.
VOSYS_TARGET_AVX512 inline __mmask32 Live(size_t left) {
  return static_cast<__mmask32>(_bzhi_u32(~0u, static_cast<uint32_t>(left)));
}

VOSYS_TARGET_AVX512 inline size_t FindScanAvx512(const uint16_t* s, size_t n, uint16_t c) {
  const __m512i needle = _mm512_set1_epi16(static_cast<short>(c));
  size_t i = 0;
  for (; i + 32 <= n; i += 32) {
    const uint32_t equal = _mm512_cmpeq_epi16_mask(Load32(s + i), needle);
    if (equal != 0) return i + __builtin_ctz(equal);
  }
  if (i < n) {
    const __mmask32 live = Live(n - i);
    const uint32_t equal =
        _mm512_mask_cmpeq_epi16_mask(live, _mm512_maskz_loadu_epi16(live, s + i), needle);
    if (equal != 0) return i + __builtin_ctz(equal);
  }
  return n;
}

VOSYS_TARGET_AVX512 size_t FindAvx512(const uint16_t* s, size_t n, uint16_t c) {
  const size_t i = FindScanAvx512(s, n, c);
  _mm256_zeroupper();
  return i;
}

VOSYS_TARGET_AVX512 inline size_t FindPairScanAvx512(const uint16_t* s, size_t n, uint16_t first,
                                                     uint16_t last, size_t gap) {
  const __m512i firsts = _mm512_set1_epi16(static_cast<short>(first));
  const __m512i lasts = _mm512_set1_epi16(static_cast<short>(last));
  size_t i = 0;
  for (; i + 32 <= n; i += 32) {
    const uint32_t both = _mm512_mask_cmpeq_epi16_mask(
        _mm512_cmpeq_epi16_mask(Load32(s + i), firsts), Load32(s + i + gap), lasts);
    if (both != 0) return i + __builtin_ctz(both);
  }
  if (i < n) {
    const __mmask32 live = Live(n - i);
    const uint32_t both = _mm512_mask_cmpeq_epi16_mask(
        _mm512_mask_cmpeq_epi16_mask(live, _mm512_maskz_loadu_epi16(live, s + i), firsts),
        _mm512_maskz_loadu_epi16(live, s + i + gap), lasts);
    if (both != 0) return i + __builtin_ctz(both);
  }
  return n;
}

VOSYS_TARGET_AVX512 size_t FindPairAvx512(const uint16_t* s, size_t n, uint16_t first,
                                          uint16_t last, size_t gap) {
  const size_t i = FindPairScanAvx512(s, n, first, last, gap);
  _mm256_zeroupper();
  return i;
}

// Lanes of `live` where a comparison ends: units that differ, or the end of a.
VOSYS_TARGET_AVX512 inline uint32_t Ends(__mmask32 live, __m512i a, __m512i b) {
  return _mm512_mask_cmpneq_epi16_mask(live, a, b) | _mm512_mask_testn_epi16_mask(live, a, a);
}

VOSYS_TARGET_AVX512 inline size_t CompareEndScanAvx512(const uint16_t* a, const uint16_t* b,
                                                       size_t n) {
  size_t i = 0;
  for (; i + 32 <= n; i += 32) {
    const uint32_t ends = Ends(~__mmask32{0}, Load32(a + i), Load32(b + i));
    if (ends != 0) return i + __builtin_ctz(ends);
  }
  if (i < n) {
    const __mmask32 live = Live(n - i);
    const uint32_t ends =
        Ends(live, _mm512_maskz_loadu_epi16(live, a + i), _mm512_maskz_loadu_epi16(live, b + i));
    if (ends != 0) return i + __builtin_ctz(ends);
  }
  return n;
}

VOSYS_TARGET_AVX512 size_t CompareEndAvx512(const uint16_t* a, const uint16_t* b, size_t n) {
  const size_t i = CompareEndScanAvx512(a, b, n);
  _mm256_zeroupper();
  return i;
}

}  // namespace

size_t Find(const uint16_t* s, size_t n, uint16_t c) {
  switch (utfconv::ActiveKernel()) {
    case utfconv::Kernel::kAvx512:
      return FindAvx512(s, n, c);
    case utfconv::Kernel::kAvx2:
      return FindAvx2(s, n, c);
    case utfconv::Kernel::kScalar:
      return FindScalar(s, n, c);
    default:
      return FindSse2(s, n, c);
  }
}

size_t FindPair(const uint16_t* s, size_t n, uint16_t first, uint16_t last, size_t gap) {
  switch (utfconv::ActiveKernel()) {
    case utfconv::Kernel::kAvx512:
      return FindPairAvx512(s, n, first, last, gap);
    case utfconv::Kernel::kAvx2:
      return FindPairAvx2(s, n, first, last, gap);
    case utfconv::Kernel::kScalar:
      return FindPairScalar(s, n, first, last, gap);
    default:
      return FindPairSse2(s, n, first, last, gap);
  }
}

size_t CompareEnd(const uint16_t* a, const uint16_t* b, size_t n) {
  switch (utfconv::ActiveKernel()) {
    case utfconv::Kernel::kAvx512:
      return CompareEndAvx512(a, b, n);
    case utfconv::Kernel::kAvx2:
      return CompareEndAvx2(a, b, n);
    case utfconv::Kernel::kScalar:
      return CompareEndScalar(a, b, n);
    default:
      return CompareEndSse2(a, b, n);
  }
}

}  // namespace unitscan
