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
// holds, so that nothing is checked per character there. Inside a zone, 16
// ASCII characters go at a time, and blocks of mixed one- to three-byte
// characters go through SSE2 arithmetic and, where the processor has SSSE3, a
// byte shuffle that packs the results; other text goes one character at a
// time in loops made for runs of one length. Block stores may write a little
// past the output, but only where the rest of the zone is sure to overwrite
// it, so the target never holds anything past the returned position. Near
// the ends of the buffers everything goes character by character with every
// check, with the same results.
#include <emmintrin.h>
#include <tmmintrin.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <utility>

#include "foundation/errpos.h"
#include "vosystem/memfunc.h"
#include "vosystem/ucstring.h"

static const char s_ident[] = "@(#) utfconv.cpp 1.0";

namespace {

constexpr uint32_t kReplacement = 0xFFFD;
constexpr uint32_t kFirstSupplementary = 0x10000;
constexpr uint32_t kPastUnicode = 0x110000;
constexpr int32_t kMaxResult = INT32_MAX;

inline bool IsHighSurrogate(uint32_t u) { return u - 0xD800 < 0x400; }
inline bool IsLowSurrogate(uint32_t u) { return u - 0xDC00 < 0x400; }

inline int CountTrailingZeros(unsigned mask) { return __builtin_ctz(mask); }

// Functions that use SSSE3; they run only where the processor has it.
#define VOSYS_TARGET_SSSE3 __attribute__((target("ssse3")))

// VOSYS_UTFCONV_SSE2 in the environment keeps to the SSE2 code, so that tests
// can cover it on any machine.
bool UseSsse3() {
  static const bool use = __builtin_cpu_supports("ssse3") && getenv("VOSYS_UTFCONV_SSE2") == nullptr;
  return use;
}

inline __m128i Load16(const void* p) {
  return _mm_loadu_si128(static_cast<const __m128i*>(p));
}
inline void Store16(void* p, __m128i v) { _mm_storeu_si128(static_cast<__m128i*>(p), v); }
inline void StoreLow32(void* p, __m128i v) {
  const int32_t low = _mm_cvtsi128_si32(v);
  memcpy(p, &low, sizeof low);
}
// True when no bit of v is set.
inline bool IsAllZero(__m128i v) {
  return _mm_movemask_epi8(_mm_cmpeq_epi8(v, _mm_setzero_si128())) == 0xFFFF;
}

// ===================================================================== shuffle tables

// pshufb controls that pack the useful bytes of a block to its front.
struct PackTables {
  // Keeps the 16-bit lanes whose bit in the index is set, in order.
  alignas(16) uint8_t units[256][16];
  uint8_t unitCount[256];
  // Keeps the first n bytes of each 32-bit lane, where the index holds n - 1
  // in two bits per lane.
  alignas(16) uint8_t utf8[256][16];
  uint8_t utf8Count[256];
};

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
      for (int b = 0; b < len && b < 3; ++b) t.utf8[index][out++] = static_cast<uint8_t>(4 * lane + b);
    }
    t.utf8Count[index] = static_cast<uint8_t>(out);
    for (int fill = out; fill < 16; ++fill) t.utf8[index][fill] = 0x80;
  }
  return t;
}

constexpr PackTables kPack = MakePackTables();

inline __m128i LoadControl(const uint8_t (&control)[16]) {
  return _mm_load_si128(reinterpret_cast<const __m128i*>(control));
}

// ===================================================================== UTF-8 -> UTF-16

// Number of bytes that follow a lead byte, from the lead byte alone.
inline int TrailBytes(uint8_t lead) {
  if (lead < 0xC0) return 0;  // ASCII, and stray continuation bytes
  if (lead < 0xE0) return 1;
  if (lead < 0xF0) return 2;
  if (lead < 0xF8) return 3;
  if (lead < 0xFC) return 4;
  return 5;
}

// The marks that the accumulation adds in, by the number of following bytes.
constexpr uint32_t kMarkSum[6] = {0x0, 0x3080, 0xE2080, 0x3C82080, 0xFA082080, 0x82082080};

// Each byte is added to the value shifted left by 6; the marks go in one
// subtraction at the end. Following bytes are not inspected.
inline uint32_t Accumulate(const uint8_t* s, int trail) {
  uint32_t value = 0;
  for (int i = 0; i < trail; ++i) value = (value + s[i]) << 6;
  return value + s[trail] - kMarkSum[trail];
}

inline int UnitsFor(uint32_t value) {
  return (value >= kFirstSupplementary && value < kPastUnicode) ? 2 : 1;
}

// Writes one decoded value: one unit, a surrogate pair, or U+FFFD above
// U+10FFFF. Values below 0x10000 go out as they are, surrogates included.
inline void PutValue(uint32_t value, uint16_t*& d) {
  if (value < kFirstSupplementary) {
    *d++ = static_cast<uint16_t>(value);
  } else if (value < kPastUnicode) {
    value -= kFirstSupplementary;
    d[0] = static_cast<uint16_t>(0xD800 + (value >> 10));
    d[1] = static_cast<uint16_t>(0xDC00 + (value & 0x3FF));
    d += 2;
  } else {
    *d++ = kReplacement;
  }
}

// Accumulate for two, three and four bytes, spelled out.
inline uint32_t Value2(const uint8_t* s) { return (uint32_t{s[0]} << 6) + s[1] - kMarkSum[1]; }
inline uint32_t Value3(const uint8_t* s) {
  return (uint32_t{s[0]} << 12) + (uint32_t{s[1]} << 6) + s[2] - kMarkSum[2];
}
inline uint32_t Value4(const uint8_t* s) {
  return (uint32_t{s[0]} << 18) + (uint32_t{s[1]} << 12) + (uint32_t{s[2]} << 6) + s[3] -
         kMarkSum[3];
}

// Decodes the sequence at s with no bounds check.
inline void DecodeOne(const uint8_t*& s, uint16_t*& d) {
  const int trail = TrailBytes(*s);
  PutValue(Accumulate(s, trail), d);
  s += trail + 1;
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
    do {
      PutValue(Value4(s), d);
      s += 4;
    } while (s < zoneEnd && (lead = *s) - 0xF0 < 0x08);
  } else {
    DecodeOne(s, d);
  }
}

// Byte classes of UTF-8 as signed bytes: 00-7F are 0 to 127, continuation
// bytes 80-BF are -128 to -65, leads C0-DF -64 to -33, E0-EF -32 to -17, and
// F0-FF (four bytes and more) -16 to -1.
inline __m128i IsContinuation(__m128i b) { return _mm_cmplt_epi8(b, _mm_set1_epi8(-64)); }
inline __m128i IsLead2(__m128i b) {
  return _mm_and_si128(_mm_cmpgt_epi8(b, _mm_set1_epi8(-65)), _mm_cmplt_epi8(b, _mm_set1_epi8(-32)));
}
inline __m128i IsLead3(__m128i b) {
  return _mm_and_si128(_mm_cmpgt_epi8(b, _mm_set1_epi8(-33)), _mm_cmplt_epi8(b, _mm_set1_epi8(-16)));
}
inline __m128i IsLead4Plus(__m128i b) {
  return _mm_and_si128(_mm_cmpgt_epi8(b, _mm_set1_epi8(-17)), _mm_cmplt_epi8(b, _mm_setzero_si128()));
}

// The value of a sequence of one, two or three bytes starting in each 16-bit
// lane, b0 being its first byte and b1, b2 the two after it. With true
// continuation bytes the masked formulas equal the accumulation exactly, and
// a three-byte value always fits 16 bits.
inline __m128i LaneValues(__m128i b0, __m128i b1, __m128i b2, __m128i lead2, __m128i lead3) {
  const __m128i six = _mm_set1_epi16(0x3F);
  const __m128i low1 = _mm_and_si128(b1, six);
  const __m128i two = _mm_or_si128(_mm_slli_epi16(_mm_and_si128(b0, _mm_set1_epi16(0x1F)), 6), low1);
  const __m128i three = _mm_or_si128(_mm_or_si128(_mm_slli_epi16(b0, 12), _mm_slli_epi16(low1, 6)),
                                     _mm_and_si128(b2, six));
  __m128i value = _mm_andnot_si128(_mm_or_si128(lead2, lead3), b0);
  value = _mm_or_si128(value, _mm_and_si128(lead2, two));
  return _mm_or_si128(value, _mm_and_si128(lead3, three));
}

// 16 bytes decoded in lanes: a value for each byte, of which those where a
// sequence starts count.
struct DecodedBlock {
  __m128i low, high;  // values of bytes 0-7 and 8-15
  unsigned starts;    // bit i: a sequence starts at byte i
  int used;           // bytes taken: 16, or up to 18 when the last sequence reaches past
};

// Decodes the 16 bytes at s when they hold only one-, two- and three-byte
// sequences, each lead followed by its continuation bytes and no continuation
// byte astray; reads up to 18 bytes. Returns false for anything else.
inline bool DecodeBlock(const uint8_t* s, DecodedBlock* out) {
  const __m128i zero = _mm_setzero_si128();
  const __m128i b0 = Load16(s);
  const __m128i b1 = Load16(s + 1);
  const __m128i b2 = Load16(s + 2);
  const __m128i lead2 = IsLead2(b0);
  const __m128i lead3 = IsLead3(b0);
  const __m128i cont = IsContinuation(b0);
  const __m128i anyLead = _mm_or_si128(lead2, lead3);
  const __m128i expectedCont = _mm_or_si128(_mm_slli_si128(anyLead, 1), _mm_slli_si128(lead3, 2));
  __m128i bad = _mm_or_si128(IsLead4Plus(b0), _mm_xor_si128(cont, expectedCont));
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
    DecodedBlock block;
    if (DecodeBlock(s, &block)) {
      d += PackUnits(block, d);
      s += block.used;
    } else {
      // Longer forms or malformed text: a block's worth or more in runs.
      for (const uint8_t* stop = s + 16; s < stop;) DecodeRun(s, d, zoneEnd);
    }
  }
  while (s < zoneEnd) DecodeOne(s, d);
  sRef = s;
  dRef = d;
}

// The zones: a sequence needs at most 6 bytes, and gives at most 2 units and
// never more units than bytes, so no check is needed for sequences that start
// within min(source left - 5, target left - 1) bytes.
void DecodeUnchecked(const uint8_t*& s, const uint8_t* srcEnd, uint16_t*& d,
                     const uint16_t* dstEnd) {
  constexpr ptrdiff_t kMinZone = 32;
  const bool ssse3 = UseSsse3();
  for (;;) {
    const ptrdiff_t zone = std::min(srcEnd - s - 5, dstEnd - d - 1);
    if (zone < kMinZone) return;
    if (ssse3) {
      DecodeZoneSsse3(s, d, s + zone);
    } else {
      DecodeZoneSse2(s, d, s + zone);
    }
  }
}

int DecodeChecked(const uint8_t*& s, const uint8_t* srcEnd, uint16_t*& d,
                  const uint16_t* dstEnd) {
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

inline int Utf8Length(uint32_t value) {
  if (value < 0x80) return 1;
  if (value < 0x800) return 2;
  if (value < kFirstSupplementary) return 3;
  return 4;
}

inline uint32_t CombinePair(uint32_t high, uint32_t low) {
  return ((high - 0xD800) << 10) + (low - 0xDC00) + kFirstSupplementary;
}

// Reads one character: a valid surrogate pair when its low half lies before
// srcEnd, otherwise the unit by itself.
inline uint32_t ReadCharacter(const uint16_t* s, const uint16_t* srcEnd, int* used) {
  const uint32_t unit = s[0];
  if (IsHighSurrogate(unit) && srcEnd - s > 1 && IsLowSurrogate(s[1])) {
    *used = 2;
    return CombinePair(unit, s[1]);
  }
  *used = 1;
  return unit;
}

// Trailing bytes carry six bits each behind 0x80; the first byte carries the
// rest behind the length mark.
inline void PutUtf8(uint32_t value, int len, uint8_t*& d) {
  static constexpr uint8_t kLeadMark[5] = {0x00, 0x00, 0xC0, 0xE0, 0xF0};
  for (int i = len - 1; i > 0; --i) {
    d[i] = static_cast<uint8_t>(0x80 | (value & 0x3F));
    value >>= 6;
  }
  d[0] = static_cast<uint8_t>(value | kLeadMark[len]);
  d += len;
}

// Encodes one character with no bounds check; the unit after a high
// surrogate must lie in the source.
inline void EncodeOne(const uint16_t*& s, uint8_t*& d) {
  const uint32_t unit = s[0];
  if (unit < 0x80) {
    *d++ = static_cast<uint8_t>(unit);
    s += 1;
  } else if (unit < 0x800) {
    PutUtf8(unit, 2, d);
    s += 1;
  } else if (!IsHighSurrogate(unit) || !IsLowSurrogate(s[1])) {
    PutUtf8(unit, 3, d);
    s += 1;
  } else {
    PutUtf8(CombinePair(unit, s[1]), 4, d);
    s += 2;
  }
}

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

// A block writes up to 16 bytes past its output; the more than 16 units left
// after two of them produce at least one byte each, which overwrite them.
constexpr ptrdiff_t kEncodeBlockMargin = 16 + 16;

// Encodes the characters that start in the next 16 units one at a time (the
// blocks don't take surrogates).
inline void EncodeSixteen(const uint16_t*& s, uint8_t*& d) {
  for (const uint16_t* stop = s + 16; s < stop;) EncodeOne(s, d);
}

void EncodeZoneSse2(const uint16_t*& sRef, uint8_t*& dRef, const uint16_t* zoneEnd) {
  const uint16_t* s = sRef;
  uint8_t* d = dRef;
  while (zoneEnd - s > kEncodeBlockMargin) {
    EncodedBlock block;
    if (NarrowAsciiBlock(s, d)) {
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
      EncodeSixteen(s, d);
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
    if (NarrowAsciiBlock(s, d)) {
      s += 16;
      d += 16;
    } else if (EncodeBlock(s, &block)) {
      d += PackEncodings(block, d);
      s += 8;
      if (EncodeBlock(s, &block)) {  // mixed text tends to go on
        d += PackEncodings(block, d);
        s += 8;
      }
    } else {
      EncodeSixteen(s, d);
    }
  }
  while (s < zoneEnd) EncodeOne(s, d);
  sRef = s;
  dRef = d;
}

// The zones: a character reads at most 2 units and writes at most 3 bytes per
// unit read, plus one for a pair, so no check is needed for characters that
// start within min(source left - 1, (target left - 1) / 3) units.
void EncodeUnchecked(const uint16_t*& s, const uint16_t* srcEnd, uint8_t*& d,
                     const uint8_t* dstEnd) {
  constexpr ptrdiff_t kMinZone = 32;
  const bool ssse3 = UseSsse3();
  for (;;) {
    const ptrdiff_t zone = std::min(srcEnd - s - 1, (dstEnd - d - 1) / 3);
    if (zone < kMinZone) return;
    if (ssse3) {
      EncodeZoneSsse3(s, d, s + zone);
    } else {
      EncodeZoneSse2(s, d, s + zone);
    }
  }
}

int EncodeChecked(const uint16_t*& s, const uint16_t* srcEnd, uint8_t*& d,
                  const uint8_t* dstEnd) {
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

// Length of a UTF-16 string, 8 units at a time. The aligned loads never cross
// a page, but may read past the terminator within its 16 bytes, which the
// address sanitizer would report.
__attribute__((no_sanitize("address"))) size_t Utf16Length(const uint16_t* s) {
  const uint16_t* p = s;
  for (; reinterpret_cast<uintptr_t>(p) % 16 != 0; ++p) {
    if (*p == 0) return static_cast<size_t>(p - s);
  }
  const __m128i zero = _mm_setzero_si128();
  for (;; p += 8) {
    const __m128i units = _mm_load_si128(reinterpret_cast<const __m128i*>(p));
    const unsigned zeros = static_cast<unsigned>(_mm_movemask_epi8(_mm_cmpeq_epi16(units, zero)));
    if (zeros != 0) return static_cast<size_t>(p - s) + CountTrailingZeros(zeros) / 2;
  }
}

// Exact UTF-8 size of n units and the terminator, for texts too long for the
// simple bound.
size_t Utf8Size(const uint16_t* s, size_t n) {
  size_t bytes = 1;
  const uint16_t* end = s + n + 1;
  for (const uint16_t* p = s; p < s + n;) {
    int used;
    bytes += Utf8Length(ReadCharacter(p, end, &used));
    p += used;
  }
  return bytes;
}

// Gives back most of a generous buffer once the size is known.
template <typename T>
T* TrimBuffer(T* buffer, size_t capacity, size_t used) {
  if (capacity - used <= capacity / 4 + 64) return buffer;
  void* smaller = realloc(buffer, used * sizeof(T));
  return smaller ? static_cast<T*>(smaller) : buffer;
}

int TooLong(size_t bytes) {
  const int rc = SETERR(VOERROR_OutOfMemory);
  GetErrString() << static_cast<unsigned long>(bytes);
  return rc;
}

}  // namespace

extern "C" {

int ConvertUTF16toUTF8(const unsigned short** src, const unsigned short* srcEnd,
                       unsigned char** dst, const unsigned char* dstEnd) {
  const uint16_t* s = *src;
  uint8_t* d = *dst;
  EncodeUnchecked(s, srcEnd, d, dstEnd);
  const int rc = EncodeChecked(s, srcEnd, d, dstEnd);
  *src = s;
  *dst = d;
  return rc;
}

int ConvertUTF8toUTF16(const unsigned char** src, const unsigned char* srcEnd,
                       unsigned short** dst, const unsigned short* dstEnd) {
  const uint8_t* s = *src;
  uint16_t* d = *dst;
  DecodeUnchecked(s, srcEnd, d, dstEnd);
  const int rc = DecodeChecked(s, srcEnd, d, dstEnd);
  *src = s;
  *dst = d;
  return rc;
}

// Failure here is routine for callers (they fall back), so nothing is
// recorded. The buffer is sized once, at 3 bytes a unit, which always holds
// the result, and trimmed afterwards.
int MucConvertUnicodeToUTF8(const unsigned short* s, char** out) {
  if (s == nullptr || out == nullptr) return SETERR(VOERROR_InvalidArgument);
  *out = nullptr;
  ERRPOSN_DISABLER quiet;
  const size_t n = Utf16Length(s);
  size_t capacity = n * 3 + 1;
  if (capacity > static_cast<size_t>(kMaxResult)) {
    capacity = Utf8Size(s, n);
    if (capacity > static_cast<size_t>(kMaxResult)) return TooLong(capacity);
  }
  unsigned char* buffer = nullptr;
  const int rc = MmAlloc(&buffer, capacity);
  if (rc < 0) return rc;
  const uint16_t* from = s;
  unsigned char* to = buffer;
  ConvertUTF16toUTF8(&from, s + n + 1, &to, buffer + capacity);  // terminator included
  const size_t written = static_cast<size_t>(to - buffer);
  *out = reinterpret_cast<char*>(TrimBuffer(buffer, capacity, written));
  return static_cast<int>(written);
}

// No sequence gives more units than it has bytes, so n + 1 units always hold
// the result. A sequence cut short by the terminator is dropped.
int MucConvertUTF8ToUnicode(const char* s, unsigned short** out) {
  if (s == nullptr || out == nullptr) return SETERR(VOERROR_InvalidArgument);
  *out = nullptr;
  const size_t n = strlen(s);
  if (n >= static_cast<size_t>(kMaxResult)) return TooLong((n + 1) * sizeof(uint16_t));
  unsigned short* buffer = nullptr;
  const int rc = MmAlloc(&buffer, (n + 1) * sizeof(uint16_t));
  if (rc < 0) return PASSERR(rc);
  const auto* from = reinterpret_cast<const unsigned char*>(s);
  unsigned short* to = buffer;
  ConvertUTF8toUTF16(&from, from + n, &to, buffer + n);
  *to = 0;
  *out = buffer;
  return static_cast<int>(to - buffer);
}

}  // extern "C"
