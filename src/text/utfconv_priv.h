// What the converters' kernels share: the character-at-a-time rules that
// every kernel falls back on and is tested against, and the choice of
// kernel.
//
// The kernels, from the slowest: scalar (a character at a time, the model
// of the others), SSE2 (every x86-64), SSSE3, AVX2 and AVX-512 (F, BW, VL,
// VBMI, VBMI2 with BMI2). The wider ones live in files of their own, each
// compiled for its instruction set through function attributes only, so the
// rest of the library keeps the baseline. One is chosen once, on first use,
// from what the processor and the operating system support (the
// compiler's feature test checks that the system saves the wide registers);
// VOSYS_UTFCONV_KERNEL=scalar|sse2|ssse3|avx2|avx512 in the environment
// asks for a narrower one (VOSYS_UTFCONV_SSE2, of old, for SSE2). Every
// kernel gives the same result, byte for byte.
#ifndef VOSYS_SRC_TEXT_UTFCONV_PRIV_H
#define VOSYS_SRC_TEXT_UTFCONV_PRIV_H

#include <atomic>
#include <cstddef>
#include <cstdint>

namespace utfconv {

enum class Kernel { kScalar, kSse2, kSsse3, kAvx2, kAvx512 };
constexpr int kKernelCount = 5;

const char* KernelName(Kernel kernel);
// The widest kernel that the processor supports.
Kernel BestKernel();
// The kernel in use, -1 until the first use chooses it.
extern std::atomic<int> g_utfconvKernel;
Kernel ChooseActiveKernel();
// The kernel in use: a load, cheap enough for scans of a few units to ask
// on every call.
inline Kernel ActiveKernel() {
  const int kernel = g_utfconvKernel.load(std::memory_order_relaxed);
  return kernel >= 0 ? static_cast<Kernel>(kernel) : ChooseActiveKernel();
}
// For tests, fuzz targets and benchmarks that compile the converters into
// themselves: switches kernels; false, changing nothing, where the processor
// lacks it. Not for use while other threads convert.
bool ForceKernel(Kernel kernel);

// ---------------------------------------------------------------- character rules

constexpr uint32_t kReplacement = 0xFFFD;
constexpr uint32_t kFirstSupplementary = 0x10000;
constexpr uint32_t kPastUnicode = 0x110000;

inline bool IsHighSurrogate(uint32_t u) {
  return u - 0xD800 < 0x400;
}
inline bool IsLowSurrogate(uint32_t u) {
  return u - 0xDC00 < 0x400;
}

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
inline uint32_t Value2(const uint8_t* s) {
  return (uint32_t{s[0]} << 6) + s[1] - kMarkSum[1];
}
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

// ---------------------------------------------------------------- shuffle tables

// pshufb controls that pack the useful bytes of a block to its front.
struct PackTables {
  // Keeps the 16-bit lanes whose bit in the index is set, in order.
  alignas(16) uint8_t units[256][16];
  uint8_t unitCount[256];
  // Keeps the first n bytes of each 32-bit lane, where the index holds n - 1
  // in two bits per lane.
  alignas(16) uint8_t utf8[256][16];
  uint8_t utf8Count[256];
  // Keeps the first byte of each 16-bit lane, and the second where the
  // lane's bit in the index is set.
  alignas(16) uint8_t twoByte[256][16];
  uint8_t twoByteCount[256];
};

extern const PackTables kPack;

// ---------------------------------------------------------------- wide kernels

// Each takes blocks of text from s while more than its margin of source is
// left before zoneEnd, and returns where it stopped, at a character start,
// for a narrower kernel to finish the zone (see utfconv.cpp for zones). Their
// stores may reach past their output, no farther than the rest of the zone
// will overwrite. They leave the upper halves of the vector registers clear.
void DecodeZoneAvx512(const uint8_t*& s, uint16_t*& d, const uint8_t* zoneEnd);
void EncodeZoneAvx512(const uint16_t*& s, uint8_t*& d, const uint16_t* zoneEnd);
void DecodeZoneAvx2(const uint8_t*& s, uint16_t*& d, const uint8_t* zoneEnd);
void EncodeZoneAvx2(const uint16_t*& s, uint8_t*& d, const uint16_t* zoneEnd);

}  // namespace utfconv

#endif
