// The AVX-512 kernel of the UTF converters (see utfconv_priv.h): 64 bytes of
// UTF-8 or 32 units of UTF-16 a block, every kind of text in one pass.
//
// Decoding. A block takes the sequences that start in 64 bytes and end in
// them. Its masks say where sequences start (each byte that no lead
// announces) and where the low surrogates of four-byte sequences go (the
// byte after their lead); vpcompressb gathers the first, second and third
// bytes at those places into lanes of their own, one lane a unit of the
// result, and the formulas for each lead's length run on those lanes only.
// That needs the bytes each lead announces to be continuation bytes, and
// four-byte sequences to lie from U+10000 to U+10FFFF; then the masked
// formulas equal the decoder's accumulation. A continuation byte that no
// lead announces stands for itself, as the decoder reads it, so it needs no
// check. Five- and six-byte leads, and anything else the block refuses, go
// character by character up to the first byte refused. Stores are masked to
// the units produced.
//
// Encoding. ASCII is narrowed 64 units at a time. Otherwise each unit's
// bytes go in its 16-bit lane: one below 0x80, two below 0x800, two for
// each half of a surrogate pair (its four bytes split two and two), and
// three for the rest (lone surrogates included), the third in a second
// vector. Where no unit takes three, vpcompressb keeps the bytes that count
// straight from the lanes; otherwise vpermt2b first lays the units out in
// slots of three bytes, 96 bytes for 32 units. Those stores are whole
// vectors: the bytes after a block's output are garbage that the rest of the
// zone overwrites, which the margin guarantees.
//
// Each block's step through the text is told from bytes or units read from
// memory, not from the vector masks, so that the next block's loads needn't
// wait for this block's arithmetic. The functions clear the upper halves of
// the registers on return.
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
// Vectors of equal lanes, broadcast from memory: written as _mm512_set1,
// GCC builds each from an integer register inside the loops, two
// instructions each time round, where a broadcast it can't see through is
// one load.
template <typename T, int64_t kValue>
VOSYS_TARGET_AVX512 inline __m512i Splat() {
  static constexpr uint32_t kLane = sizeof(T) == 1   ? 0x01010101u * static_cast<uint8_t>(kValue)
                                    : sizeof(T) == 2 ? 0x00010001u * static_cast<uint16_t>(kValue)
                                                     : static_cast<uint32_t>(kValue);
  __m512i v;
  __asm__("vpbroadcastd %1, %0" : "=v"(v) : "m"(kLane));
  return v;
}
template <int64_t kValue>
VOSYS_TARGET_AVX512 inline __m512i Bytes() {
  return Splat<uint8_t, kValue>();
}
template <int64_t kValue>
VOSYS_TARGET_AVX512 inline __m512i Words() {
  return Splat<uint16_t, kValue>();
}

// ---------------------------------------------------------------- UTF-8 -> UTF-16

// Which kinds of lead a block holds, besides ASCII and continuation bytes.
enum Kinds { kTwo = 1, kThree = 2, kFour = 4 };

// Values of 32 sequences in 16-bit lanes, from the first bytes (c0), the
// second (c1) and the third (c2) of each, lanes of `lows` holding the low
// surrogate of the four-byte sequence before them: there c0 to c2 are its
// second to fourth bytes. Leads announce the formula: C0 and up two bytes,
// E0 and up three, F0 and up four; anything else stands for itself.
template <int kKinds>
VOSYS_TARGET_AVX512 inline __m512i Values(__m256i c0, __m256i c1, __m256i c2, uint32_t lows) {
  const __m512i w0 = _mm512_cvtepu8_epi16(c0);
  const __m512i six = Words<0x3F>();
  const __m512i w1 = _mm512_cvtepu8_epi16(c1);
  const __m512i low1 = _mm512_and_si512(w1, six);
  __m512i value = w0;
  if (kKinds & kTwo) {
    value = _mm512_mask_mov_epi16(
        value, _mm512_cmpge_epu16_mask(w0, Words<0xC0>()),
        _mm512_or_si512(_mm512_slli_epi16(_mm512_and_si512(w0, Words<0x1F>()), 6), low1));
  }
  if (kKinds & (kThree | kFour)) {
    const __m512i low2 = _mm512_and_si512(_mm512_cvtepu8_epi16(c2), six);
    if (kKinds & kThree) {
      value = _mm512_mask_mov_epi16(
          value, _mm512_cmpge_epu16_mask(w0, Words<0xE0>()),
          _mm512_or_si512(_mm512_or_si512(_mm512_slli_epi16(w0, 12), _mm512_slli_epi16(low1, 6)),
                          low2));
    }
    if (kKinds & kFour) {
      // High: 0xD800 + (value >> 10) - 0x40; low: 0xDC00 + the last 10 bits.
      const __m512i high = _mm512_add_epi16(
          _mm512_or_si512(_mm512_or_si512(_mm512_slli_epi16(_mm512_and_si512(w0, Words<7>()), 8),
                                          _mm512_slli_epi16(low1, 2)),
                          _mm512_srli_epi16(low2, 4)),
          Words<0xD7C0>());
      const __m512i low = _mm512_or_si512(
          _mm512_or_si512(_mm512_slli_epi16(_mm512_and_si512(w1, Words<0xF>()), 6), low2),
          Words<0xDC00>());
      value = _mm512_mask_mov_epi16(value, _mm512_cmpge_epu16_mask(w0, Words<0xF0>()), high);
      value = _mm512_mask_mov_epi16(value, lows, low);
    }
  }
  return value;
}

// Decodes the `units` lanes of c0 to c2 (see Values) into d, writing
// nothing past them.
template <int kKinds>
VOSYS_TARGET_AVX512 inline void StoreValues(__m512i c0, __m512i c1, __m512i c2, uint64_t lows,
                                            int units, uint16_t* d) {
  _mm512_mask_storeu_epi16(d, static_cast<__mmask32>(_bzhi_u32(~0u, static_cast<unsigned>(units))),
                           Values<kKinds>(_mm512_castsi512_si256(c0), _mm512_castsi512_si256(c1),
                                          _mm512_castsi512_si256(c2), static_cast<uint32_t>(lows)));
  if (units > 32) {
    _mm512_mask_storeu_epi16(
        d + 32, static_cast<__mmask32>(_bzhi_u32(~0u, static_cast<unsigned>(units - 32))),
        Values<kKinds>(_mm512_extracti64x4_epi64(c0, 1), _mm512_extracti64x4_epi64(c1, 1),
                       _mm512_extracti64x4_epi64(c2, 1), static_cast<uint32_t>(lows >> 32)));
  }
}

// A block reads 66 bytes and writes nothing past its output.
constexpr ptrdiff_t kDecodeMargin = 66;

}  // namespace

// Each block takes the sequences that start in 64 bytes and end in them:
// vpcompressb gathers the first, second and third bytes of those it keeps
// (each start, and the byte after a four-byte lead, for its low surrogate)
// into lanes of their own, and the formulas run on those lanes only.
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
    const uint64_t lead2 = _mm512_cmpge_epu8_mask(b0, Bytes<0xC0>());
    const uint64_t lead3 = _mm512_cmpge_epu8_mask(b0, Bytes<0xE0>());
    const uint64_t lead4 = _mm512_cmpge_epu8_mask(b0, Bytes<0xF0>());
    const uint64_t announced = (lead2 << 1) | (lead3 << 2) | (lead4 << 3);
    uint64_t refused = announced & ~(upper & ~lead2);  // continuation bytes: 80-BF
    // A sequence that reaches past the block waits for the next one.
    const ptrdiff_t used = s[61] >= 0xF0 ? 61 : s[62] >= 0xE0 ? 62 : s[63] >= 0xC0 ? 63 : 64;
    const uint64_t inside = _bzhi_u64(~uint64_t{0}, static_cast<unsigned>(used));
    const uint64_t four = lead4 & inside;
    const __m512i b1 = Load64(s + 1);
    if (four != 0) {
      // F5 and up lie past U+10FFFF (or are five and six bytes long); F0
      // needs 90 and up after it to reach U+10000, F4 less to stay below
      // U+110000.
      refused |=
          four &
          (_mm512_cmpge_epu8_mask(b0, Bytes<0xF5>()) |
           (_mm512_cmpeq_epi8_mask(b0, Bytes<0xF0>()) & _mm512_cmplt_epu8_mask(b1, Bytes<0x90>())) |
           (_mm512_cmpeq_epi8_mask(b0, Bytes<0xF4>()) & _mm512_cmpge_epu8_mask(b1, Bytes<0x90>())));
    }
    if (refused != 0) {
      for (const uint8_t* stop = s + _tzcnt_u64(refused) + 1; s < stop;) DecodeOne(s, d);
      continue;
    }
    const uint64_t keep = (~announced | (four << 1)) & inside;
    const int units = static_cast<int>(_mm_popcnt_u64(keep));
    const __m512i c0 = _mm512_maskz_compress_epi8(keep, b0);
    const __m512i c1 = _mm512_maskz_compress_epi8(keep, b1);
    if ((lead3 & inside) == 0) {
      StoreValues<kTwo>(c0, c1, c1, 0, units, d);
    } else {
      const __m512i c2 = _mm512_maskz_compress_epi8(keep, Load64(s + 2));
      const uint64_t lows = _pext_u64(four << 1, keep);
      if (four == 0) {
        StoreValues<kTwo | kThree>(c0, c1, c2, 0, units, d);
      } else if ((lead2 & ~lead4 & inside) == 0) {  // emoji among ASCII
        StoreValues<kFour>(c0, c1, c2, lows, units, d);
      } else {
        StoreValues<kTwo | kThree | kFour>(c0, c1, c2, lows, units, d);
      }
    }
    s += used;
    d += units;
  }
  _mm256_zeroupper();
  sRef = s;
  dRef = d;
}

// ---------------------------------------------------------------- UTF-16 -> UTF-8

namespace {

// vpermt2b indices that lay 32 units out in slots of three bytes, from the
// first two bytes of each unit (16-bit lanes of the first vector) and the
// third (low bytes of the lanes of the second): bytes 0-63 of the slots,
// then bytes 64-95.
struct SlotIndices {
  alignas(64) uint8_t index[2][64];
};

constexpr SlotIndices MakeSlotIndices() {
  SlotIndices t{};
  for (int j = 0; j < 96; ++j) {
    const int unit = j / 3;
    const int byte = j % 3;
    t.index[j / 64][j % 64] = static_cast<uint8_t>(byte < 2 ? 2 * unit + byte : 64 + 2 * unit);
  }
  return t;
}

constexpr SlotIndices kSlots = MakeSlotIndices();

// Where the slots' bytes lie among 64 bits of them, by their place in the
// slot: the first bytes of units 0-21 in bytes 0-63, and so on. `first`,
// `second` and `third` say which units have that byte.
VOSYS_TARGET_AVX512 inline uint64_t LowSlotBytes(uint32_t first, uint32_t second, uint32_t third) {
  return _pdep_u64(first, 0x9249249249249249) | _pdep_u64(second, 0x2492492492492492) |
         _pdep_u64(third, 0x4924924924924924);
}
VOSYS_TARGET_AVX512 inline uint32_t HighSlotBytes(uint32_t first, uint32_t second, uint32_t third) {
  return _pdep_u32(first >> 22, 0x24924924) | _pdep_u32(second >> 21, 0x49249249) |
         _pdep_u32(third >> 21, 0x92492492);
}

// A block reads 64 units; a store reaches 42 bytes past its output, which
// the 64 units left after it overwrite (each gives a byte at least).
constexpr ptrdiff_t kEncodeMargin = 64 + 64;

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
    const __m512i next = Load64(s + 32);
    // ASCII: 64 units at a time where they come; packing works within
    // 128-bit lanes, so the quarters are put back in order.
    if (_mm512_test_epi16_mask(_mm512_or_si512(u, next), Words<0xFF80>()) == 0) {
      Store64(d, _mm512_permutexvar_epi64(_mm512_setr_epi64(0, 2, 4, 6, 1, 3, 5, 7),
                                          _mm512_packus_epi16(u, next)));
      s += 64;
      d += 64;
      continue;
    }
    const uint32_t ascii = _mm512_cmplt_epu16_mask(u, Words<0x80>());
    const uint32_t belowThree = _mm512_cmplt_epu16_mask(u, Words<0x800>());
    const __m512i six = Words<0x3F>();
    const __m512i mark = Words<0x80>();
    // One or two bytes in each 16-bit lane.
    const __m512i last = _mm512_or_si512(_mm512_and_si512(u, six), mark);
    __m512i firstTwo = _mm512_mask_mov_epi16(
        _mm512_or_si512(_mm512_or_si512(_mm512_srli_epi16(u, 6), Words<0xC0>()),
                        _mm512_slli_epi16(last, 8)),
        ascii, u);
    if (belowThree == ~0u) {
      const uint64_t keep = 0x5555555555555555 | _pdep_u64(~ascii, 0xAAAAAAAAAAAAAAAA);
      Store64(d, _mm512_maskz_compress_epi8(keep, firstTwo));
      d += 32 + _mm_popcnt_u32(~ascii);
      s += 32;
      continue;
    }
    const __m512i tops = Words<0xFC00>();
    const uint32_t pairHigh =
        _mm512_cmpeq_epi16_mask(_mm512_and_si512(u, tops), Words<0xD800>()) &
        _mm512_cmpeq_epi16_mask(_mm512_and_si512(Load64(s + 1), tops), Words<0xDC00>());
    const uint32_t pairLow = pairHigh << 1;
    // Three bytes: E0 | bits 12-15, then 80 | bits 6-11, then `last`.
    firstTwo = _mm512_mask_mov_epi16(
        firstTwo, ~belowThree,
        _mm512_or_si512(
            _mm512_or_si512(_mm512_srli_epi16(u, 12), Words<0xE0>()),
            _mm512_slli_epi16(_mm512_or_si512(_mm512_and_si512(_mm512_srli_epi16(u, 6), six), mark),
                              8)));
    if (pairHigh != 0) {
      // High: plane = bits 6-9 + 1; F0 | plane >> 2, then 80 | (plane & 3)
      // << 4 | bits 2-5. Low: 80 | bits 0-1 of the high unit << 4 | bits
      // 6-9, then `last`.
      const __m512i plane =
          _mm512_add_epi16(_mm512_and_si512(_mm512_srli_epi16(u, 6), Words<0xF>()), Words<1>());
      const __m512i high = _mm512_or_si512(
          _mm512_or_si512(_mm512_srli_epi16(plane, 2), Words<0xF0>()),
          _mm512_slli_epi16(
              _mm512_or_si512(
                  _mm512_or_si512(_mm512_slli_epi16(_mm512_and_si512(plane, Words<3>()), 4),
                                  _mm512_and_si512(_mm512_srli_epi16(u, 2), Words<0xF>())),
                  mark),
              8));
      const __m512i previous = _mm512_permutexvar_epi16(toPrevious, u);
      const __m512i low = _mm512_or_si512(
          _mm512_or_si512(
              _mm512_or_si512(_mm512_slli_epi16(_mm512_and_si512(previous, Words<3>()), 4),
                              _mm512_and_si512(_mm512_srli_epi16(u, 6), Words<0xF>())),
              mark),
          _mm512_slli_epi16(last, 8));
      firstTwo =
          _mm512_mask_mov_epi16(_mm512_mask_mov_epi16(firstTwo, pairHigh, high), pairLow, low);
    }
    // A high surrogate in the last lane waits for the next block, which
    // sees what follows it.
    const bool cut = IsHighSurrogate(s[31]);
    const uint32_t units = cut ? 0x7FFFFFFF : ~0u;
    const uint32_t second = ~ascii & units;
    const uint32_t third = ~(belowThree | pairHigh | pairLow) & units;
    if (third == 0) {  // one or two bytes a unit, as in emoji among ASCII: no slots needed
      const uint64_t keep =
          _pdep_u64(units, 0x5555555555555555) | _pdep_u64(second, 0xAAAAAAAAAAAAAAAA);
      Store64(d, _mm512_maskz_compress_epi8(keep, firstTwo));
      d += _mm_popcnt_u64(keep);
      s += 32 - cut;
      continue;
    }
    const __m512i slots0 =
        _mm512_permutex2var_epi8(firstTwo, _mm512_load_si512(kSlots.index[0]), last);
    const __m512i slots1 =
        _mm512_permutex2var_epi8(firstTwo, _mm512_load_si512(kSlots.index[1]), last);
    const uint64_t keep0 = LowSlotBytes(units, second, third);
    const uint32_t keep1 = HighSlotBytes(units, second, third);
    Store64(d, _mm512_maskz_compress_epi8(keep0, slots0));
    d += _mm_popcnt_u64(keep0);
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(d),
                        _mm512_castsi512_si256(_mm512_maskz_compress_epi8(keep1, slots1)));
    d += _mm_popcnt_u32(keep1);
    s += 32 - cut;
  }
  _mm256_zeroupper();
  sRef = s;
  dRef = d;
}

}  // namespace utfconv
