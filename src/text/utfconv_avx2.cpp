// The AVX2 kernel of the UTF converters (see utfconv_priv.h): 32 bytes of
// UTF-8 or 16 units of UTF-16 a block.
//
// AVX2 has no instruction that packs the lanes of a vector to its front, so
// this kernel packs each 128-bit half with the byte shuffle and the tables of
// the SSSE3 code (kPack), and stores the halves one after the other: a block
// makes two to four stores, each advancing the output by what its half keeps.
//
// Decoding. Each byte of a block is decoded in a 16-bit lane as if a sequence
// started there, by the formula for its lead's length (a four-byte lead
// gives its high surrogate, the byte after it the low one), and the lanes
// where sequences start are kept. That needs the bytes each lead announces
// to be continuation bytes and four-byte sequences to lie from U+10000 to
// U+10FFFF; the masked formulas then equal the decoder's accumulation. A
// continuation byte that no lead announces stands for itself, as the decoder
// reads it. Anything else goes character by character up to the first lead
// refused. Runs of three-byte sequences (CJK) go 48 or 15 bytes a block,
// gathered by shuffles into lanes with no packing at all.
//
// Encoding. ASCII is narrowed 32 units at a time; below U+0800, and for
// surrogate pairs among such text (emoji), each 16-bit lane holds the one or
// two bytes of its unit, a pair's four bytes split two and two between its
// halves; units of three bytes only (CJK) go 16 to 48 bytes by fixed
// shuffles; other mixed text goes in 32-bit lanes of one to three bytes.
// Anything else (lone surrogates, pairs among three-byte text) goes
// character by character.
//
// Stores are whole vectors: the bytes after a block's output are garbage that
// the rest of the zone overwrites, which the margins guarantee. Both zone
// functions clear the upper halves of the registers before they return, and
// what they call when a block is refused is inlined, so no SSE code runs
// while the upper halves are dirty.
#include <immintrin.h>

#include <cstddef>
#include <cstdint>

#include "text/utfconv_priv.h"

#define VOSYS_TARGET_AVX2 __attribute__((target("avx2")))

namespace utfconv {

namespace {

VOSYS_TARGET_AVX2 inline __m256i Load32(const void* p) {
  return _mm256_loadu_si256(static_cast<const __m256i*>(p));
}
VOSYS_TARGET_AVX2 inline __m128i Load16(const void* p) {
  return _mm_loadu_si128(static_cast<const __m128i*>(p));
}
VOSYS_TARGET_AVX2 inline void Store32(void* p, __m256i v) {
  _mm256_storeu_si256(static_cast<__m256i*>(p), v);
}
VOSYS_TARGET_AVX2 inline void Store16(void* p, __m128i v) {
  _mm_storeu_si128(static_cast<__m128i*>(p), v);
}
// Vectors of equal lanes, broadcast from memory. Written as _mm256_set1,
// GCC builds each constant from an integer register, two or three
// instructions, and once the sixteen vector registers run short it does so
// again inside the loops, each time round; a broadcast it can't see through
// stays one load, or none where the value stays in a register.
template <typename T, int64_t kValue>
VOSYS_TARGET_AVX2 inline __m256i Splat() {
  static constexpr uint32_t kLane = sizeof(T) == 1   ? 0x01010101u * static_cast<uint8_t>(kValue)
                                    : sizeof(T) == 2 ? 0x00010001u * static_cast<uint16_t>(kValue)
                                                     : static_cast<uint32_t>(kValue);
  __m256i v;
  __asm__("vpbroadcastd %1, %0" : "=x"(v) : "m"(kLane));
  return v;
}

template <int64_t kValue>
VOSYS_TARGET_AVX2 inline __m256i Bytes() {
  return Splat<uint8_t, kValue>();
}
template <int64_t kValue>
VOSYS_TARGET_AVX2 inline __m256i Words() {
  return Splat<uint16_t, kValue>();
}
template <int64_t kValue>
VOSYS_TARGET_AVX2 inline __m256i Dwords() {
  return Splat<uint32_t, kValue>();
}
VOSYS_TARGET_AVX2 inline uint32_t Mask(__m256i v) {
  return static_cast<uint32_t>(_mm256_movemask_epi8(v));
}
// True when v has none of the bits of m.
template <int64_t kBits>
VOSYS_TARGET_AVX2 inline bool NoneOf(__m256i v) {
  return _mm256_testz_si256(v, Words<kBits>());
}

// Two rows of a shuffle table as the halves of one control.
VOSYS_TARGET_AVX2 inline __m256i Controls(const uint8_t (&low)[16], const uint8_t (&high)[16]) {
  return _mm256_inserti128_si256(
      _mm256_castsi128_si256(_mm_load_si128(reinterpret_cast<const __m128i*>(low))),
      _mm_load_si128(reinterpret_cast<const __m128i*>(high)), 1);
}

// Stores the low half of v at d and the high half right after the `low`
// bytes of it that count.
VOSYS_TARGET_AVX2 inline void StoreHalves(uint8_t* d, __m256i v, size_t low) {
  Store16(d, _mm256_castsi256_si128(v));
  Store16(d + low, _mm256_extracti128_si256(v, 1));
}

// The 16-bit lanes whose bit is set in m, all ones.
VOSYS_TARGET_AVX2 inline __m256i LanesOf(uint32_t m) {
  const __m256i bits = _mm256_setr_epi16(1, 2, 4, 8, 16, 32, 64, 128, 256, 512, 1024, 2048, 4096,
                                         8192, 16384, -32768);
  return _mm256_cmpeq_epi16(_mm256_and_si256(_mm256_set1_epi16(static_cast<short>(m)), bits), bits);
}

// ---------------------------------------------------------------- UTF-8 -> UTF-16

// Which kinds of lead a block holds, besides ASCII and continuation bytes.
enum Kinds { kTwo = 1, kThree = 2, kFour = 4 };

// Values of the 16 sequences that would start at p, in 16-bit lanes, for the
// kinds of lead in kKinds; the low surrogates of four-byte sequences go in
// the lanes of `lows`, those after their leads.
template <int kKinds>
VOSYS_TARGET_AVX2 inline __m256i HalfValues(const uint8_t* p, uint32_t lows) {
  const __m256i w0 = _mm256_cvtepu8_epi16(Load16(p));
  const __m256i w1 = _mm256_cvtepu8_epi16(Load16(p + 1));
  const __m256i six = Words<0x3F>();
  const __m256i c1 = _mm256_and_si256(w1, six);
  __m256i value = w0;
  if (kKinds & kTwo) {
    const __m256i two =
        _mm256_or_si256(_mm256_slli_epi16(_mm256_and_si256(w0, Words<0x1F>()), 6), c1);
    value = _mm256_blendv_epi8(value, two, _mm256_cmpgt_epi16(w0, Words<0xBF>()));
  }
  if (kKinds & (kThree | kFour)) {
    const __m256i c2 = _mm256_and_si256(_mm256_cvtepu8_epi16(Load16(p + 2)), six);
    if (kKinds & kThree) {
      const __m256i three =
          _mm256_or_si256(_mm256_or_si256(_mm256_slli_epi16(w0, 12), _mm256_slli_epi16(c1, 6)), c2);
      value = _mm256_blendv_epi8(value, three, _mm256_cmpgt_epi16(w0, Words<0xDF>()));
    }
    if (kKinds & kFour) {
      // High: 0xD800 + (value >> 10) - 0x40; low: 0xDC00 + the last 10 bits,
      // found from the byte after the lead, whose next two bytes are the last.
      const __m256i high = _mm256_add_epi16(
          _mm256_or_si256(_mm256_or_si256(_mm256_slli_epi16(_mm256_and_si256(w0, Words<7>()), 8),
                                          _mm256_slli_epi16(c1, 2)),
                          _mm256_srli_epi16(c2, 4)),
          Words<0xD7C0>());
      const __m256i low = _mm256_or_si256(
          _mm256_or_si256(_mm256_slli_epi16(_mm256_and_si256(w1, Words<0xF>()), 6), c2),
          Words<0xDC00>());
      value = _mm256_blendv_epi8(value, high, _mm256_cmpgt_epi16(w0, Words<0xEF>()));
      value = _mm256_blendv_epi8(value, low, LanesOf(lows));
    }
  }
  return value;
}

// Decodes the 16 bytes at p and keeps the lanes of `keep`; returns the
// units stored at d, which reach up to 8 units past them.
template <int kKinds>
VOSYS_TARGET_AVX2 inline size_t DecodeHalf(const uint8_t* p, uint32_t keep, uint32_t lows,
                                           uint16_t* d) {
  const uint32_t low = keep & 0xFF;
  const uint32_t high = (keep >> 8) & 0xFF;
  const __m256i packed = _mm256_shuffle_epi8(HalfValues<kKinds>(p, lows),
                                             Controls(kPack.units[low], kPack.units[high]));
  const size_t n = kPack.unitCount[low];
  StoreHalves(reinterpret_cast<uint8_t*>(d), packed, 2 * n);
  return n + kPack.unitCount[high];
}

template <int kKinds>
VOSYS_TARGET_AVX2 inline size_t DecodeHalves(const uint8_t* s, uint32_t keep, uint32_t lows,
                                             uint16_t* d) {
  const size_t n = DecodeHalf<kKinds>(s, keep, lows, d);
  return n + DecodeHalf<kKinds>(s + 16, keep >> 16, lows >> 16, d + n);
}

// Decodes 48 bytes of sixteen three-byte sequences (leads E0-EF, true
// continuation bytes), the stuff of CJK text, into 16 units; false for
// anything else, having stored 16 units of garbage at d. Each half of the
// vectors takes 24 bytes, from two loads that overlap by 8: x holds its
// bytes 0-15, y its bytes 8-23.
VOSYS_TARGET_AVX2 inline bool DecodeThreeByteBlock(const uint8_t* s, uint16_t* d) {
  const __m256i x = _mm256_loadu2_m128i(reinterpret_cast<const __m128i*>(s + 24),
                                        reinterpret_cast<const __m128i*>(s));
  const __m256i y = _mm256_loadu2_m128i(reinterpret_cast<const __m128i*>(s + 32),
                                        reinterpret_cast<const __m128i*>(s + 8));
  // Lead bytes masked with F0 must give E0, continuation bytes masked with C0
  // must give 80; y starts at byte 8, the third of a sequence.
  const __m256i xMarks = _mm256_setr_epi8(
      -16, -64, -64, -16, -64, -64, -16, -64, -64, -16, -64, -64, -16, -64, -64, -16,  //
      -16, -64, -64, -16, -64, -64, -16, -64, -64, -16, -64, -64, -16, -64, -64, -16);
  const __m256i yMarks = _mm256_setr_epi8(
      -64, -16, -64, -64, -16, -64, -64, -16, -64, -64, -16, -64, -64, -16, -64, -64,  //
      -64, -16, -64, -64, -16, -64, -64, -16, -64, -64, -16, -64, -64, -16, -64, -64);
  const __m256i xExpected = _mm256_setr_epi8(
      -32, -128, -128, -32, -128, -128, -32, -128, -128, -32, -128, -128, -32, -128, -128, -32,  //
      -32, -128, -128, -32, -128, -128, -32, -128, -128, -32, -128, -128, -32, -128, -128, -32);
  const __m256i yExpected = _mm256_setr_epi8(
      -128, -32, -128, -128, -32, -128, -128, -32, -128, -128, -32, -128, -128, -32, -128, -128,  //
      -128, -32, -128, -128, -32, -128, -128, -32, -128, -128, -32, -128, -128, -32, -128, -128);
  if (Mask(_mm256_and_si256(_mm256_cmpeq_epi8(_mm256_and_si256(x, xMarks), xExpected),
                            _mm256_cmpeq_epi8(_mm256_and_si256(y, yMarks), yExpected))) !=
      0xFFFFFFFF) {
    return false;
  }
  // Lane k: the middle byte of sequence k with its lead above it, and its
  // last byte, taken from x up to byte 15 and from y after it.
  const __m256i middleLeadX =
      _mm256_setr_epi8(1, 0, 4, 3, 7, 6, 10, 9, 13, 12, -1, 15, -1, -1, -1, -1,  //
                       1, 0, 4, 3, 7, 6, 10, 9, 13, 12, -1, 15, -1, -1, -1, -1);
  const __m256i middleLeadY =
      _mm256_setr_epi8(-1, -1, -1, -1, -1, -1, -1, -1, -1, -1, 8, -1, 11, 10, 14, 13,  //
                       -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, 8, -1, 11, 10, 14, 13);
  const __m256i lastX =
      _mm256_setr_epi8(2, -1, 5, -1, 8, -1, 11, -1, 14, -1, -1, -1, -1, -1, -1, -1,  //
                       2, -1, 5, -1, 8, -1, 11, -1, 14, -1, -1, -1, -1, -1, -1, -1);
  const __m256i lastY =
      _mm256_setr_epi8(-1, -1, -1, -1, -1, -1, -1, -1, -1, -1, 9, -1, 12, -1, 15, -1,  //
                       -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, 9, -1, 12, -1, 15, -1);
  const __m256i middleLead =
      _mm256_or_si256(_mm256_shuffle_epi8(x, middleLeadX), _mm256_shuffle_epi8(y, middleLeadY));
  const __m256i last =
      _mm256_or_si256(_mm256_shuffle_epi8(x, lastX), _mm256_shuffle_epi8(y, lastY));
  const __m256i six = Words<0x3F>();
  __m256i value = _mm256_and_si256(_mm256_slli_epi16(middleLead, 4), Words<0xF000>());
  value = _mm256_or_si256(value, _mm256_slli_epi16(_mm256_and_si256(middleLead, six), 6));
  Store32(d, _mm256_or_si256(value, _mm256_and_si256(last, six)));
  return true;
}

// DecodeThreeByteBlock for the 15 bytes of five sequences, in 128-bit
// vectors; stores 8 units at d.
VOSYS_TARGET_AVX2 inline bool DecodeFiveThreeByteSequences(const uint8_t* s, uint16_t* d) {
  const __m128i b = Load16(s);
  const __m128i marks = _mm_and_si128(b, _mm_setr_epi8(-16, -64, -64, -16, -64, -64, -16, -64, -64,
                                                       -16, -64, -64, -16, -64, -64, 0));
  const __m128i expected = _mm_setr_epi8(-32, -128, -128, -32, -128, -128, -32, -128, -128, -32,
                                         -128, -128, -32, -128, -128, 0);
  if (_mm_movemask_epi8(_mm_cmpeq_epi8(marks, expected)) != 0xFFFF) return false;
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

// A block reads 48 bytes; its stores reach 15 units past its output, which
// the sequences of the 6 * 16 bytes left after it overwrite.
constexpr ptrdiff_t kDecodeMargin = 48 + 6 * 16;

}  // namespace

VOSYS_TARGET_AVX2 void DecodeZoneAvx2(const uint8_t*& sRef, uint16_t*& dRef,
                                      const uint8_t* zoneEnd) {
  const uint8_t* s = sRef;
  uint16_t* d = dRef;
  while (zoneEnd - s > kDecodeMargin) {
    const __m256i b0 = Load32(s);
    const uint32_t upper = Mask(b0);
    if (upper == 0) {  // ASCII
      Store32(d, _mm256_cvtepu8_epi16(_mm256_castsi256_si128(b0)));
      Store32(d + 16, _mm256_cvtepu8_epi16(_mm256_extracti128_si256(b0, 1)));
      s += 32;
      d += 32;
      continue;
    }
    // Runs of three-byte sequences (CJK) go by blocks of their own, whose
    // fixed step lets the next block's loads start before this one is
    // decoded, as a step counted from the text would not. The long block is
    // tried where its last lead is one too, as it is in such a run: a
    // failed try would cost more than it saves.
    if ((*s & 0xF0) == 0xE0) {
      if ((s[45] & 0xF0) == 0xE0 && DecodeThreeByteBlock(s, d)) {
        s += 48;
        d += 16;
        continue;
      }
      if (DecodeFiveThreeByteSequences(s, d)) {
        s += 15;
        d += 5;
        continue;
      }
    }
    const __m256i b1 = Load32(s + 1);
    const __m256i b2 = Load32(s + 2);
    // Signed bytes: among those with the top bit set (`upper`), C0 and up
    // are above -65, E0 and up above -33, F0 and up above -17; continuation
    // bytes are below -64.
    const uint32_t lead2 = upper & Mask(_mm256_cmpgt_epi8(b0, Bytes<-65>()));
    const uint32_t lead3 = upper & Mask(_mm256_cmpgt_epi8(b0, Bytes<-33>()));
    const uint32_t lead4 = upper & Mask(_mm256_cmpgt_epi8(b0, Bytes<-17>()));
    uint32_t refused = (lead2 & ~Mask(_mm256_cmpgt_epi8(Bytes<-64>(), b1))) |
                       (lead3 & ~Mask(_mm256_cmpgt_epi8(Bytes<-64>(), b2)));
    if (lead4 != 0) {
      // F5 and up lie past U+10FFFF (or are five and six bytes long); F0
      // needs 90 and up after it to reach U+10000, F4 less to stay below
      // U+110000.
      const __m256i from90 = _mm256_cmpgt_epi8(b1, Bytes<-113>());
      refused |= (lead4 & ~Mask(_mm256_cmpgt_epi8(Bytes<-64>(), Load32(s + 3)))) |
                 (upper & Mask(_mm256_cmpgt_epi8(b0, Bytes<-12>()))) |
                 Mask(_mm256_andnot_si256(from90, _mm256_cmpeq_epi8(b0, Bytes<0xF0>()))) |
                 Mask(_mm256_and_si256(from90, _mm256_cmpeq_epi8(b0, Bytes<0xF4>())));
    }
    if (refused != 0) {
      for (const uint8_t* stop = s + __builtin_ctz(refused) + 1; s < stop;) DecodeOne(s, d);
      continue;
    }
    const uint32_t announced = (lead2 << 1) | (lead3 << 2) | (lead4 << 3);
    uint32_t keep = ~announced | (lead4 << 1);
    // The last sequence may reach past the block; a pair whose low half
    // would fall past it waits for the next block. (The step is counted from
    // the bytes in memory, not from the masks, for the same reason as
    // above.)
    const ptrdiff_t used = s[31] >= 0xF0 ? 31
                                         : 32 + (s[31] >= 0xC0) + (s[31] >= 0xE0) +
                                               (s[30] >= 0xE0) + (s[30] >= 0xF0) + (s[29] >= 0xF0);
    if (lead4 >> 31) keep &= 0x7FFFFFFF;
    const uint32_t lows = lead4 << 1;
    const int kinds =
        (lead2 & ~lead3 ? kTwo : 0) | (lead3 & ~lead4 ? kThree : 0) | (lead4 ? kFour : 0);
    switch (kinds) {
      case kTwo:
        d += DecodeHalves<kTwo>(s, keep, lows, d);
        break;
      case kThree:
        d += DecodeHalves<kThree>(s, keep, lows, d);
        break;
      case kTwo | kThree:
        d += DecodeHalves<kTwo | kThree>(s, keep, lows, d);
        break;
      case kFour:
        d += DecodeHalves<kFour>(s, keep, lows, d);
        break;
      default:
        d += DecodeHalves<kTwo | kThree | kFour>(s, keep, lows, d);
        break;
    }
    s += used;
  }
  _mm256_zeroupper();
  sRef = s;
  dRef = d;
}

// ---------------------------------------------------------------- UTF-16 -> UTF-8

namespace {

// The 16 units of u as bytes, in their order: all must be ASCII.
VOSYS_TARGET_AVX2 inline __m128i NarrowAscii(__m256i u) {
  return _mm_packus_epi16(_mm256_castsi256_si128(u), _mm256_extracti128_si256(u, 1));
}

// Each 16-bit lane of `lanes` holds one byte, or two where isAscii isn't
// set; packs them and stores them at d. Returns the bytes produced, less
// one where `cut` drops the last lane's unit (whose first byte is stored).
VOSYS_TARGET_AVX2 inline size_t PackTwoByteLanes(__m256i lanes, __m256i isAscii, bool cut,
                                                 uint8_t* d) {
  const uint32_t ascii = Mask(_mm256_packs_epi16(isAscii, _mm256_setzero_si256()));
  const uint32_t low = ~ascii & 0xFF;
  const uint32_t high = ~(ascii >> 16) & (cut ? 0x7F : 0xFF);
  const __m256i packed =
      _mm256_shuffle_epi8(lanes, Controls(kPack.twoByte[low], kPack.twoByte[high]));
  const size_t n = kPack.twoByteCount[low];
  StoreHalves(d, packed, n);
  return n + kPack.twoByteCount[high] - cut;
}

// The one or two bytes of units below 0x800 in their 16-bit lanes.
VOSYS_TARGET_AVX2 inline __m256i TwoByteForms(__m256i u) {
  const __m256i lead = _mm256_or_si256(_mm256_srli_epi16(u, 6), Words<0xC0>());
  const __m256i next = _mm256_or_si256(_mm256_and_si256(u, Words<0x3F>()), Words<0x80>());
  return _mm256_or_si256(lead, _mm256_slli_epi16(next, 8));
}

VOSYS_TARGET_AVX2 inline __m256i IsAsciiLane(__m256i u) {
  return _mm256_cmpeq_epi16(_mm256_and_si256(u, Words<0xFF80>()), _mm256_setzero_si256());
}

// Each 16-bit lane of v moved one lane up, 0 entering lane 0.
VOSYS_TARGET_AVX2 inline __m256i PreviousLanes(__m256i v) {
  return _mm256_alignr_epi8(v, _mm256_permute2x128_si256(v, v, 0x08), 14);
}

// Encodes the 16 units u at s when each is below 0x800 or half of a surrogate
// pair. Stores 32 bytes from d; returns the units taken, 16 or 15 when a
// pair reaches past the block, and the bytes produced, or {0, 0} having
// written nothing for anything else.
struct Taken {
  size_t units, bytes;
};

VOSYS_TARGET_AVX2 inline Taken EncodeWithPairs(const uint16_t* s, __m256i u, uint8_t* d) {
  const __m256i tops = Words<0xFC00>();
  const __m256i isHigh = _mm256_cmpeq_epi16(_mm256_and_si256(u, tops), Words<0xD800>());
  const __m256i isLow = _mm256_cmpeq_epi16(_mm256_and_si256(u, tops), Words<0xDC00>());
  const __m256i belowTwo =
      _mm256_cmpeq_epi16(_mm256_and_si256(u, Words<0xF800>()), _mm256_setzero_si256());
  // Low halves exactly after high ones; anything else below 0x800. A high
  // half in the last lane waits for the next block.
  const __m256i bad = _mm256_or_si256(
      _mm256_xor_si256(isLow, PreviousLanes(isHigh)),
      _mm256_andnot_si256(_mm256_or_si256(_mm256_or_si256(belowTwo, isHigh), isLow), Words<-1>()));
  if (Mask(bad) != 0) return {0, 0};
  const __m256i six = Words<0x3F>();
  const __m256i mark = Words<0x80>();
  const __m256i isAscii = IsAsciiLane(u);
  // High: plane = bits 6-9 + 1; F0 | plane >> 2, then 80 | (plane & 3) << 4 | bits 2-5.
  const __m256i plane =
      _mm256_add_epi16(_mm256_and_si256(_mm256_srli_epi16(u, 6), Words<0x0F>()), Words<1>());
  const __m256i highSecond =
      _mm256_or_si256(_mm256_or_si256(_mm256_slli_epi16(_mm256_and_si256(plane, Words<3>()), 4),
                                      _mm256_and_si256(_mm256_srli_epi16(u, 2), Words<0x0F>())),
                      mark);
  const __m256i high = _mm256_or_si256(_mm256_or_si256(_mm256_srli_epi16(plane, 2), Words<0xF0>()),
                                       _mm256_slli_epi16(highSecond, 8));
  // Low: 80 | bits 0-1 of the high unit << 4 | bits 6-9, then 80 | bits 0-5.
  const __m256i lowFirst = _mm256_or_si256(
      _mm256_or_si256(_mm256_slli_epi16(_mm256_and_si256(PreviousLanes(u), Words<3>()), 4),
                      _mm256_and_si256(_mm256_srli_epi16(u, 6), Words<0x0F>())),
      mark);
  const __m256i low = _mm256_or_si256(
      lowFirst, _mm256_slli_epi16(_mm256_or_si256(_mm256_and_si256(u, six), mark), 8));
  __m256i lanes = _mm256_blendv_epi8(TwoByteForms(u), u, isAscii);
  lanes = _mm256_blendv_epi8(lanes, high, isHigh);
  lanes = _mm256_blendv_epi8(lanes, low, isLow);
  // (Read from memory, so that the next block's address doesn't wait for
  // this block's arithmetic.)
  const bool cut = IsHighSurrogate(s[15]);
  return {16 - static_cast<size_t>(cut), PackTwoByteLanes(lanes, isAscii, cut, d)};
}

// Encodes 16 units that all take three bytes (0x800 and above, no
// surrogates) into 48 bytes; stores 52 bytes from d.
VOSYS_TARGET_AVX2 inline void EncodeThreeBytes(__m256i u, uint8_t* d) {
  const __m256i six = Words<0x3F>();
  const __m256i mark = Words<0x80>();
  // Lane k: the first two bytes of unit k; and its last byte.
  const __m256i first = _mm256_or_si256(_mm256_srli_epi16(u, 12), Words<0xE0>());
  const __m256i middle = _mm256_or_si256(_mm256_and_si256(_mm256_srli_epi16(u, 6), six), mark);
  const __m256i firstTwo = _mm256_or_si256(first, _mm256_slli_epi16(middle, 8));
  const __m256i last = _mm256_or_si256(_mm256_and_si256(u, six), mark);
  // Units 0-3 of each half, then units 4-7, 12 bytes each.
  const __m256i a = _mm256_or_si256(
      _mm256_shuffle_epi8(
          firstTwo, _mm256_setr_epi8(0, 1, -1, 2, 3, -1, 4, 5, -1, 6, 7, -1, -1, -1, -1, -1, 0, 1,
                                     -1, 2, 3, -1, 4, 5, -1, 6, 7, -1, -1, -1, -1, -1)),
      _mm256_shuffle_epi8(
          last, _mm256_setr_epi8(-1, -1, 0, -1, -1, 2, -1, -1, 4, -1, -1, 6, -1, -1, -1, -1, -1, -1,
                                 0, -1, -1, 2, -1, -1, 4, -1, -1, 6, -1, -1, -1, -1)));
  const __m256i b = _mm256_or_si256(
      _mm256_shuffle_epi8(
          firstTwo, _mm256_setr_epi8(8, 9, -1, 10, 11, -1, 12, 13, -1, 14, 15, -1, -1, -1, -1, -1,
                                     8, 9, -1, 10, 11, -1, 12, 13, -1, 14, 15, -1, -1, -1, -1, -1)),
      _mm256_shuffle_epi8(
          last, _mm256_setr_epi8(-1, -1, 8, -1, -1, 10, -1, -1, 12, -1, -1, 14, -1, -1, -1, -1, -1,
                                 -1, 8, -1, -1, 10, -1, -1, 12, -1, -1, 14, -1, -1, -1, -1)));
  Store16(d, _mm256_castsi256_si128(a));
  Store16(d + 12, _mm256_castsi256_si128(b));
  Store16(d + 24, _mm256_extracti128_si256(a, 1));
  Store16(d + 36, _mm256_extracti128_si256(b, 1));
}

// One-, two- and three-byte forms of 8 units in 32-bit lanes, first byte
// lowest.
VOSYS_TARGET_AVX2 inline __m256i LaneEncodings(__m256i v, __m256i isAscii, __m256i isTwo) {
  const __m256i six = Dwords<0x3F>();
  const __m256i mark = Dwords<0x80>();
  const __m256i last = _mm256_or_si256(_mm256_and_si256(v, six), mark);
  const __m256i middle = _mm256_or_si256(_mm256_and_si256(_mm256_srli_epi32(v, 6), six), mark);
  const __m256i two = _mm256_or_si256(_mm256_or_si256(_mm256_srli_epi32(v, 6), Dwords<0xC0>()),
                                      _mm256_slli_epi32(last, 8));
  const __m256i three =
      _mm256_or_si256(_mm256_or_si256(_mm256_srli_epi32(v, 12), Dwords<0xE0>()),
                      _mm256_or_si256(_mm256_slli_epi32(middle, 8), _mm256_slli_epi32(last, 16)));
  return _mm256_blendv_epi8(_mm256_blendv_epi8(three, two, isTwo), v, isAscii);
}

// Encodes 8 units, none a surrogate, from their 32-bit lanes; `codes` holds
// length - 1 of each in two bits. Stores 16 bytes at d and at d plus the
// length of the first four; returns the bytes produced.
VOSYS_TARGET_AVX2 inline size_t PackEncodings(__m128i units, __m128i isAscii, __m128i isTwo,
                                              uint32_t codes, uint8_t* d) {
  const uint32_t low = codes & 0xFF;
  const uint32_t high = (codes >> 8) & 0xFF;
  const __m256i lanes = LaneEncodings(_mm256_cvtepu16_epi32(units), _mm256_cvtepi16_epi32(isAscii),
                                      _mm256_cvtepi16_epi32(isTwo));
  const __m256i packed = _mm256_shuffle_epi8(lanes, Controls(kPack.utf8[low], kPack.utf8[high]));
  const size_t n = kPack.utf8Count[low];
  StoreHalves(d, packed, n);
  return n + kPack.utf8Count[high];
}

// Encodes 16 units of one to three bytes, none a surrogate; returns the
// bytes produced, and stores up to 12 past them.
VOSYS_TARGET_AVX2 inline size_t EncodeMixed(__m256i u, __m256i isAscii, __m256i belowTwo,
                                            uint8_t* d) {
  const __m256i isTwo = _mm256_andnot_si256(isAscii, belowTwo);
  // Each mask gives two equal bits per unit; length - 1 is 2, less one for
  // each mask that is set, and the fields never borrow from each other.
  const uint32_t codes = 0xAAAAAAAA - (Mask(isAscii) & 0x55555555) - (Mask(belowTwo) & 0x55555555);
  const size_t n = PackEncodings(_mm256_castsi256_si128(u), _mm256_castsi256_si128(isAscii),
                                 _mm256_castsi256_si128(isTwo), codes, d);
  return n + PackEncodings(_mm256_extracti128_si256(u, 1), _mm256_extracti128_si256(isAscii, 1),
                           _mm256_extracti128_si256(isTwo, 1), codes >> 16, d + n);
}

// A block reads 32 units; its stores reach 12 bytes past its output, which
// the 16 units left after it overwrite (each gives a byte at least).
constexpr ptrdiff_t kEncodeMargin = 32 + 16;

}  // namespace

VOSYS_TARGET_AVX2 void EncodeZoneAvx2(const uint16_t*& sRef, uint8_t*& dRef,
                                      const uint16_t* zoneEnd) {
  const uint16_t* s = sRef;
  uint8_t* d = dRef;
  while (zoneEnd - s > kEncodeMargin) {
    const __m256i u = Load32(s);
    const __m256i next = Load32(s + 16);
    if (NoneOf<0xFF80>(_mm256_or_si256(u, next))) {  // ASCII
      Store16(d, NarrowAscii(u));
      Store16(d + 16, NarrowAscii(next));
      s += 32;
      d += 32;
      continue;
    }
    if (NoneOf<0xF800>(u)) {  // below 0x800: one or two bytes a unit
      d += PackTwoByteLanes(_mm256_blendv_epi8(TwoByteForms(u), u, IsAsciiLane(u)), IsAsciiLane(u),
                            false, d);
      s += 16;
      continue;
    }
    const __m256i top5 = _mm256_and_si256(u, Words<0xF800>());
    const __m256i belowTwo = _mm256_cmpeq_epi16(top5, _mm256_setzero_si256());
    if (Mask(_mm256_cmpeq_epi16(top5, Words<0xD800>())) == 0) {  // no surrogates
      if (Mask(belowTwo) == 0) {
        EncodeThreeBytes(u, d);
        d += 48;
      } else {
        d += EncodeMixed(u, IsAsciiLane(u), belowTwo, d);
      }
      s += 16;
      continue;
    }
    const Taken taken = EncodeWithPairs(s, u, d);
    if (taken.units != 0) {
      s += taken.units;
      d += taken.bytes;
      continue;
    }
    for (const uint16_t* stop = s + 16; s < stop;) EncodeOne(s, d);
  }
  _mm256_zeroupper();
  sRef = s;
  dRef = d;
}

}  // namespace utfconv
