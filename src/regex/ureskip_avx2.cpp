// The range search of ureskip.cpp, 16 units at a time with AVX2, for the
// processors that have it (ureskip.cpp checks once). The upper halves of the
// registers are cleared before returning: SSE code after this would
// otherwise run far slower.
[[maybe_unused]] static const char s_ident[] = "@(#) ureskip_avx2.cpp 1.0";

#include <immintrin.h>

#include "regex/ure_priv.h"

__attribute__((target("avx2"))) unsigned long UreSkipToRangesAvx2(const unsigned short* text,
                                                                  unsigned long pos,
                                                                  unsigned long n,
                                                                  const UREACCEL& a) {
  const int ranges = a.rangeCount;
  __m256i low[UREACCEL::kMaxRanges], span[UREACCEL::kMaxRanges];
  for (int r = 0; r < ranges; ++r) {
    low[r] = _mm256_set1_epi16(static_cast<short>(a.low[r]));
    span[r] = _mm256_set1_epi16(static_cast<short>(a.span[r]));
  }
  const __m256i zero = _mm256_setzero_si256();
  for (; pos + 16 <= n; pos += 16) {
    const __m256i x = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(text + pos));
    __m256i hit = _mm256_cmpeq_epi16(_mm256_subs_epu16(_mm256_sub_epi16(x, low[0]), span[0]), zero);
    for (int r = 1; r < ranges; ++r)
      hit = _mm256_or_si256(
          hit, _mm256_cmpeq_epi16(_mm256_subs_epu16(_mm256_sub_epi16(x, low[r]), span[r]), zero));
    const unsigned mask = static_cast<unsigned>(_mm256_movemask_epi8(hit));
    if (mask) {
      _mm256_zeroupper();
      return pos + (__builtin_ctz(mask) >> 1);
    }
  }
  _mm256_zeroupper();
  return UreSkipToRangesScalar(text, pos, n, a);
}
