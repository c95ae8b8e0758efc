// The AVX-512 kernel of the UTF converters (see utfconv_priv.h): 64 bytes of
// UTF-8 or 32 units of UTF-16 a block, every kind of text in one pass.
//
// Decoding. Each byte of a block is decoded as if a sequence started there,
// in 16-bit lanes, by the formula for its lead's length; a four-byte lead
// gives its high surrogate and the byte after it the low one. vpcompressw then
// keeps the lanes where sequences start (and those low surrogates). That needs
// the bytes each lead announces to be continuation bytes, and four-byte
// sequences to lie from U+10000 to U+10FFFF; then the masked formulas equal
// the decoder's accumulation. A continuation byte that no lead announces
// stands for itself, as the decoder reads it, so it needs no check. Five- and
// six-byte leads, and anything else the block refuses, go character by
// character up to the first byte refused.
//
// Encoding. ASCII is narrowed, text below U+0800 goes 32 units a block in
// 16-bit lanes of one or two bytes, the rest 16 units at a time in 32-bit
// lanes holding each unit's one to three bytes (a surrogate pair's four bytes
// split two and two between its halves); vpcompressb keeps the bytes that
// count.
//
// Stores are whole vectors: the bytes after a block's output are garbage that
// the rest of the zone overwrites, which the margins guarantee. The functions
// clear the upper halves of the registers on return.
#include <immintrin.h>

// GCC 12 takes the deliberately undefined vectors inside its own AVX-512
// intrinsics for uninitialised variables.
#if defined(__GNUC__) && !defined(__clang__)
#pragma GCC diagnostic ignored "-Wmaybe-uninitialized"
#endif

#include <cstddef>
#include <cstdint>

#include "text/utfconv_priv.h"

#define VOSYS_TARGET_AVX512 \
  __attribute__((target("avx512f,avx512bw,avx512vl,avx512vbmi,avx512vbmi2,bmi,bmi2,popcnt")))

namespace utfconv {

namespace {

VOSYS_TARGET_AVX512 inline __m512i Load64(const void* p) {
  return _mm512_loadu_si512(p);
}
VOSYS_TARGET_AVX512 inline void Store64(void* p, __m512i v) {
  _mm512_storeu_si512(p, v);
}
// The 32 bytes at p in 16-bit lanes.
VOSYS_TARGET_AVX512 inline __m512i Widen32(const uint8_t* p) {
  return _mm512_cvtepu8_epi16(_mm256_loadu_si256(reinterpret_cast<const __m256i*>(p)));
}
VOSYS_TARGET_AVX512 inline __m512i Bytes(int b) {
  return _mm512_set1_epi8(static_cast<char>(b));
}
VOSYS_TARGET_AVX512 inline __m512i Words(int w) {
  return _mm512_set1_epi16(static_cast<short>(w));
}
VOSYS_TARGET_AVX512 inline __m512i Dwords(int w) {
  return _mm512_set1_epi32(w);
}

// ---------------------------------------------------------------- UTF-8 -> UTF-16

// Lead bytes of a block, by the least length they announce: bit i of lead2
// is set for C0 and up, of lead3 for E0 and up, of lead4 for F0 and up.
struct Leads {
  uint64_t lead2, lead3, lead4;
};

// Values of the 32 sequences that would start at p, as the masks of their
// leads say (two-, three- and four-byte ones), with the low surrogates of
// four-byte ones in the lanes of `lows`, those after them. kinds: 1 with
// two-byte leads or more, 2 with three-byte ones or more, 3 with surrogates.
VOSYS_TARGET_AVX512 inline __m512i HalfValues(const uint8_t* p, uint32_t two, uint32_t three,
                                              uint32_t four, uint32_t lows, int kinds) {
  const __m512i w0 = Widen32(p);
  const __m512i w1 = Widen32(p + 1);
  const __m512i six = Words(0x3F);
  const __m512i c1 = _mm512_and_si512(w1, six);
  __m512i value = w0;
  value = _mm512_mask_mov_epi16(
      value, two, _mm512_or_si512(_mm512_slli_epi16(_mm512_and_si512(w0, Words(0x1F)), 6), c1));
  if (kinds < 2) return value;
  const __m512i w2 = Widen32(p + 2);
  const __m512i c2 = _mm512_and_si512(w2, six);
  value = _mm512_mask_mov_epi16(
      value, three,
      _mm512_or_si512(_mm512_or_si512(_mm512_slli_epi16(w0, 12), _mm512_slli_epi16(c1, 6)), c2));
  if (kinds < 3) return value;
  // High: 0xD800 + (value >> 10) - 0x40; low: 0xDC00 + its last 10 bits,
  // found from the byte after the lead, whose next two bytes are the last.
  const __m512i high = _mm512_add_epi16(
      _mm512_or_si512(_mm512_or_si512(_mm512_slli_epi16(_mm512_and_si512(w0, Words(7)), 8),
                                      _mm512_slli_epi16(c1, 2)),
                      _mm512_srli_epi16(c2, 4)),
      Words(0xD7C0));
  const __m512i low = _mm512_or_si512(
      _mm512_or_si512(_mm512_slli_epi16(_mm512_and_si512(w1, Words(0xF)), 6), c2), Words(0xDC00));
  value = _mm512_mask_mov_epi16(value, four, high);
  return _mm512_mask_mov_epi16(value, lows, low);
}

// A block reads 67 bytes; its second store reaches 32 units past its output,
// which the sequences of the 6 * 32 bytes left after it overwrite.
constexpr ptrdiff_t kDecodeMargin = 67 + 6 * 32;

}  // namespace

VOSYS_TARGET_AVX512 void DecodeZoneAvx512(const uint8_t*& sRef, uint16_t*& dRef,
                                          const uint8_t* zoneEnd) {
  const uint8_t* s = sRef;
  uint16_t* d = dRef;
  while (zoneEnd - s > kDecodeMargin) {
    const __m512i b0 = Load64(s);
    const uint64_t upper = _mm512_movepi8_mask(b0);
    if (upper == 0) {  // ASCII
      Store64(d, Widen32(s));
      Store64(d + 32, Widen32(s + 32));
      s += 64;
      d += 64;
      continue;
    }
    const __m512i b1 = Load64(s + 1);
    const __m512i b2 = Load64(s + 2);
    Leads leads;
    leads.lead2 = _mm512_cmpge_epu8_mask(b0, Bytes(0xC0));
    leads.lead3 = _mm512_cmpge_epu8_mask(b0, Bytes(0xE0));
    leads.lead4 = _mm512_cmpge_epu8_mask(b0, Bytes(0xF0));
    // Continuation bytes, 80-BF, are below -64 as signed bytes.
    uint64_t refused = (leads.lead2 & ~_mm512_cmplt_epi8_mask(b1, Bytes(-64))) |
                       (leads.lead3 & ~_mm512_cmplt_epi8_mask(b2, Bytes(-64)));
    if (leads.lead4 != 0) {
      // F5 and up lie past U+10FFFF (or are five and six bytes long); F0
      // needs 90 and up after it to reach U+10000, F4 less to stay below
      // U+110000.
      refused |=
          (leads.lead4 & ~_mm512_cmplt_epi8_mask(Load64(s + 3), Bytes(-64))) |
          _mm512_cmpge_epu8_mask(b0, Bytes(0xF5)) |
          (_mm512_cmpeq_epi8_mask(b0, Bytes(0xF0)) & _mm512_cmplt_epu8_mask(b1, Bytes(0x90))) |
          (_mm512_cmpeq_epi8_mask(b0, Bytes(0xF4)) & _mm512_cmpge_epu8_mask(b1, Bytes(0x90)));
    }
    if (refused != 0) {
      for (const uint8_t* stop = s + _tzcnt_u64(refused) + 1; s < stop;) DecodeOne(s, d);
      continue;
    }
    const uint64_t announced = (leads.lead2 << 1) | (leads.lead3 << 2) | (leads.lead4 << 3);
    uint64_t keep = ~announced | (leads.lead4 << 1);
    // The last sequence may reach past the block; a pair whose low half
    // would fall past it waits for the next block.
    ptrdiff_t used = 64 + (leads.lead2 >> 63) + (leads.lead3 >> 63) + ((leads.lead3 >> 62) & 1) +
                     ((leads.lead4 >> 62) & 1) + ((leads.lead4 >> 61) & 1);
    if (leads.lead4 >> 63) {
      keep &= ~(uint64_t{1} << 63);
      used = 63;
    }
    const uint64_t two = leads.lead2 & ~leads.lead3;
    const uint64_t three = leads.lead3 & ~leads.lead4;
    const uint64_t lows = leads.lead4 << 1;
    const int kinds = leads.lead4 ? 3 : leads.lead3 ? 2 : 1;
    const __m512i low =
        HalfValues(s, static_cast<uint32_t>(two), static_cast<uint32_t>(three),
                   static_cast<uint32_t>(leads.lead4), static_cast<uint32_t>(lows), kinds);
    const __m512i high =
        HalfValues(s + 32, static_cast<uint32_t>(two >> 32), static_cast<uint32_t>(three >> 32),
                   static_cast<uint32_t>(leads.lead4 >> 32), static_cast<uint32_t>(lows >> 32),
                   (leads.lead4 >> 31) ? 3 : kinds);
    const uint32_t keepLow = static_cast<uint32_t>(keep);
    const uint32_t keepHigh = static_cast<uint32_t>(keep >> 32);
    Store64(d, _mm512_maskz_compress_epi16(keepLow, low));
    d += _mm_popcnt_u32(keepLow);
    Store64(d, _mm512_maskz_compress_epi16(keepHigh, high));
    d += _mm_popcnt_u32(keepHigh);
    s += used;
  }
  _mm256_zeroupper();
  sRef = s;
  dRef = d;
}

// ---------------------------------------------------------------- UTF-16 -> UTF-8

namespace {

// Bytes of 16 units in 32-bit lanes, first byte lowest: one below 0x80, two
// below 0x800, the halves of a pair two each, three otherwise. previous
// holds the unit before each.
VOSYS_TARGET_AVX512 inline __m512i LaneBytes(__m512i v, __m512i previous, __mmask16 ascii,
                                             __mmask16 twoBytes, __mmask16 pairHigh,
                                             __mmask16 pairLow) {
  const __m512i six = Dwords(0x3F);
  const __m512i mark = Dwords(0x80);
  const __m512i last = _mm512_or_si512(_mm512_and_si512(v, six), mark);
  const __m512i middle = _mm512_or_si512(_mm512_and_si512(_mm512_srli_epi32(v, 6), six), mark);
  __m512i out =
      _mm512_or_si512(_mm512_or_si512(_mm512_srli_epi32(v, 12), Dwords(0xE0)),
                      _mm512_or_si512(_mm512_slli_epi32(middle, 8), _mm512_slli_epi32(last, 16)));
  out = _mm512_mask_mov_epi32(out, ascii, v);
  out =
      _mm512_mask_mov_epi32(out, twoBytes,
                            _mm512_or_si512(_mm512_or_si512(_mm512_srli_epi32(v, 6), Dwords(0xC0)),
                                            _mm512_slli_epi32(last, 8)));
  if ((pairHigh | pairLow) != 0) {
    // High: plane = bits 6-9 + 1; F0 | plane >> 2, then 80 | (plane & 3) << 4
    // | bits 2-5. Low: 80 | bits 0-1 of the high unit << 4 | bits 6-9, then
    // 80 | bits 0-5.
    const __m512i plane =
        _mm512_add_epi32(_mm512_and_si512(_mm512_srli_epi32(v, 6), Dwords(0xF)), Dwords(1));
    const __m512i highSecond =
        _mm512_or_si512(_mm512_or_si512(_mm512_slli_epi32(_mm512_and_si512(plane, Dwords(3)), 4),
                                        _mm512_and_si512(_mm512_srli_epi32(v, 2), Dwords(0xF))),
                        mark);
    out = _mm512_mask_mov_epi32(
        out, pairHigh,
        _mm512_or_si512(_mm512_or_si512(_mm512_srli_epi32(plane, 2), Dwords(0xF0)),
                        _mm512_slli_epi32(highSecond, 8)));
    const __m512i lowFirst =
        _mm512_or_si512(_mm512_or_si512(_mm512_slli_epi32(_mm512_and_si512(previous, Dwords(3)), 4),
                                        _mm512_and_si512(_mm512_srli_epi32(v, 6), Dwords(0xF))),
                        mark);
    out =
        _mm512_mask_mov_epi32(out, pairLow, _mm512_or_si512(lowFirst, _mm512_slli_epi32(last, 8)));
  }
  return out;
}

// Packs the lanes of LaneBytes for the units of `units`, each keeping its
// first byte, its second where `second` says and its third where `third`
// does. Stores 64 bytes at d; returns the bytes produced.
VOSYS_TARGET_AVX512 inline size_t PackLaneBytes(__m512i lanes, uint32_t units, uint32_t second,
                                                uint32_t third, uint8_t* d) {
  const uint64_t keep = _pdep_u64(units, 0x1111111111111111) |
                        _pdep_u64(second & units, 0x2222222222222222) |
                        _pdep_u64(third & units, 0x4444444444444444);
  Store64(d, _mm512_maskz_compress_epi8(keep, lanes));
  return static_cast<size_t>(_mm_popcnt_u64(keep));
}

// A block reads 33 units; a store reaches 64 bytes past its output, which
// the 64 units left after it overwrite (each gives a byte at least).
constexpr ptrdiff_t kEncodeMargin = 33 + 64;

}  // namespace

VOSYS_TARGET_AVX512 void EncodeZoneAvx512(const uint16_t*& sRef, uint8_t*& dRef,
                                          const uint16_t* zoneEnd) {
  const uint16_t* s = sRef;
  uint8_t* d = dRef;
  // Lane i of the permutation takes unit i - 1.
  const __m512i toPrevious =
      _mm512_set_epi16(30, 29, 28, 27, 26, 25, 24, 23, 22, 21, 20, 19, 18, 17, 16, 15, 14, 13, 12,
                       11, 10, 9, 8, 7, 6, 5, 4, 3, 2, 1, 0, 0);
  while (zoneEnd - s > kEncodeMargin) {
    const __m512i u = Load64(s);
    const uint32_t ascii = _mm512_cmplt_epu16_mask(u, Words(0x80));
    if (ascii == ~0u) {
      _mm256_storeu_si256(reinterpret_cast<__m256i*>(d), _mm512_cvtepi16_epi8(u));
      s += 32;
      d += 32;
      continue;
    }
    const uint32_t belowThree = _mm512_cmplt_epu16_mask(u, Words(0x800));
    if (belowThree == ~0u) {
      // One or two bytes in each 16-bit lane.
      const __m512i two = _mm512_or_si512(
          _mm512_or_si512(_mm512_srli_epi16(u, 6), Words(0xC0)),
          _mm512_slli_epi16(_mm512_or_si512(_mm512_and_si512(u, Words(0x3F)), Words(0x80)), 8));
      const uint64_t keep = 0x5555555555555555 | _pdep_u64(~ascii, 0xAAAAAAAAAAAAAAAA);
      Store64(d, _mm512_maskz_compress_epi8(keep, _mm512_mask_mov_epi16(two, ascii, u)));
      d += 32 + _mm_popcnt_u32(~ascii);
      s += 32;
      continue;
    }
    const __m512i tops = Words(0xFC00);
    const uint32_t high = _mm512_cmpeq_epi16_mask(_mm512_and_si512(u, tops), Words(0xD800));
    const uint32_t nextLow =
        _mm512_cmpeq_epi16_mask(_mm512_and_si512(Load64(s + 1), tops), Words(0xDC00));
    const uint32_t pairHigh = high & nextLow;
    const uint32_t pairLow = pairHigh << 1;
    // A pair whose low half lies past the block waits for the next one.
    const uint32_t units = pairHigh >> 31 ? 0x7FFFFFFF : ~0u;
    const uint32_t second = ~ascii;
    const uint32_t third = ~(belowThree | pairHigh | pairLow);
    const __m512i previous = _mm512_permutexvar_epi16(toPrevious, u);
    const __m512i u0 = _mm512_cvtepu16_epi32(_mm512_castsi512_si256(u));
    const __m512i u1 = _mm512_cvtepu16_epi32(_mm512_extracti64x4_epi64(u, 1));
    const __m512i p0 = _mm512_cvtepu16_epi32(_mm512_castsi512_si256(previous));
    const __m512i p1 = _mm512_cvtepu16_epi32(_mm512_extracti64x4_epi64(previous, 1));
    const uint32_t twoBytes = belowThree & ~ascii;
    d += PackLaneBytes(
        LaneBytes(u0, p0, static_cast<__mmask16>(ascii), static_cast<__mmask16>(twoBytes),
                  static_cast<__mmask16>(pairHigh), static_cast<__mmask16>(pairLow)),
        units & 0xFFFF, second & 0xFFFF, third & 0xFFFF, d);
    d += PackLaneBytes(
        LaneBytes(u1, p1, static_cast<__mmask16>(ascii >> 16),
                  static_cast<__mmask16>(twoBytes >> 16), static_cast<__mmask16>(pairHigh >> 16),
                  static_cast<__mmask16>(pairLow >> 16)),
        units >> 16, second >> 16, third >> 16, d);
    s += 32 - (pairHigh >> 31);
  }
  _mm256_zeroupper();
  sRef = s;
  dRef = d;
}

}  // namespace utfconv
