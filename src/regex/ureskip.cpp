// Finding the next unit the start state may act on: the scalar model, and
// the choice of vector kernel, made once.
//
// The units are given as up to UREACCEL::kMaxRanges ranges (low, span =
// high - low). A unit u lies in a range when u - low, as an unsigned 16-bit
// difference, is at most span: one subtraction and one saturating
// subtraction per range, which SSE2 and AVX2 do on 8 and 16 units at once
// (ureskip_sse2.cpp, ureskip_avx2.cpp). Both kernels finish the text's tail
// with the scalar loop, and give the scalar loop's answer everywhere.
[[maybe_unused]] static const char s_ident[] = "@(#) ureskip.cpp 1.0";

#include "regex/ure_priv.h"

unsigned long UreSkipToRangesScalar(const unsigned short* text, unsigned long pos, unsigned long n,
                                    const UREACCEL& a) {
  for (; pos < n; ++pos) {
    const uint16_t u = text[pos];
    for (int r = 0; r < a.rangeCount; ++r)
      if (static_cast<uint16_t>(u - a.low[r]) <= a.span[r]) return pos;
  }
  return n;
}

namespace {

using SKIP = unsigned long (*)(const unsigned short*, unsigned long, unsigned long,
                               const UREACCEL&);

SKIP ChooseKernel() {
  __builtin_cpu_init();
  return __builtin_cpu_supports("avx2") ? UreSkipToRangesAvx2 : UreSkipToRangesSse2;
}

}  // namespace

unsigned long UreSkipToRanges(const unsigned short* text, unsigned long pos, unsigned long n,
                              const UREACCEL& a) {
  static const SKIP kernel = ChooseKernel();
  return kernel(text, pos, n, a);
}
