// The range search of ureskip.cpp, 8 units at a time with SSE2 (every
// x86-64 processor has it).
[[maybe_unused]] static const char s_ident[] = "@(#) ureskip_sse2.cpp 1.0";

#include <emmintrin.h>

#include "regex/ure_priv.h"

unsigned long UreSkipToRangesSse2(const unsigned short* text, unsigned long pos, unsigned long n,
                                  const UREACCEL& a) {
  const int ranges = a.rangeCount;
  __m128i low[UREACCEL::kMaxRanges], span[UREACCEL::kMaxRanges];
  for (int r = 0; r < ranges; ++r) {
    low[r] = _mm_set1_epi16(static_cast<short>(a.low[r]));
    span[r] = _mm_set1_epi16(static_cast<short>(a.span[r]));
  }
  const __m128i zero = _mm_setzero_si128();
  for (; pos + 8 <= n; pos += 8) {
    const __m128i x = _mm_loadu_si128(reinterpret_cast<const __m128i*>(text + pos));
    __m128i hit = _mm_cmpeq_epi16(_mm_subs_epu16(_mm_sub_epi16(x, low[0]), span[0]), zero);
    for (int r = 1; r < ranges; ++r)
      hit = _mm_or_si128(hit,
                         _mm_cmpeq_epi16(_mm_subs_epu16(_mm_sub_epi16(x, low[r]), span[r]), zero));
    const int mask = _mm_movemask_epi8(hit);
    if (mask) return pos + (__builtin_ctz(static_cast<unsigned>(mask)) >> 1);
  }
  return UreSkipToRangesScalar(text, pos, n, a);
}
