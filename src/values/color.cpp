// COLOR: components, flags, the packed pixel forms and the serial text.
//
// Integer arithmetic throughout, in unsigned 32 bits where the products
// need it: 65535 x 65535 plus a rounding half still fits. Subtractive
// inputs (max - c, max - c - k) are formed in 64 bits and clamped, so no
// int argument overflows. Buffers of the packed forms are read and
// written byte by byte or through memcpy, so they need no alignment.
//
// Names live in color_names.cpp.
static const char s_ident[] = "@(#) color.cpp 1.0";

#include "vosystem/color.h"

#include <cstdint>
#include <cstring>
#include <initializer_list>
#include <type_traits>

#include "foundation/errpos.h"
#include "values/color_priv.h"

static_assert(sizeof(COLOR) == 8 && std::is_trivially_copyable<COLOR>::value,
              "COLOR is stored as 8 bytes of plain data in records and settings");

namespace {

const unsigned short kHasValue = 0x0001;
const unsigned short kReserved = 0x0004;
const unsigned short kInvisible = 0x0008;
const unsigned short kICMCorrected = 0x0020;
const unsigned short kModelMode = 0x0080;
const unsigned short kMeaningful = 0xFFE9;     // compared by IsEqualTo
const unsigned short kMeaningfulLow = 0x00E5;  // compared by IsEqualNoTransp
const unsigned short kSerialMask = 0xFFE8;     // written by SerialGetString

unsigned short Scale(unsigned short field, unsigned short max) {
  return static_cast<unsigned short>((uint32_t{field} * max + 32767u) / 65535u);
}

// a - b - c in 64 bits, clamped to the range of int.
int Difference(int a, int b, int c = 0) {
  const long long d = static_cast<long long>(a) - b - c;
  if (d < INT32_MIN) return INT32_MIN;
  if (d > INT32_MAX) return INT32_MAX;
  return static_cast<int>(d);
}

unsigned short Word(const void* buffer, int index) {
  unsigned short w;
  std::memcpy(&w, static_cast<const unsigned char*>(buffer) + 2 * index, sizeof w);
  return w;
}

void PutWord(void* buffer, int index, unsigned short w) {
  std::memcpy(static_cast<unsigned char*>(buffer) + 2 * index, &w, sizeof w);
}

bool IsDigit(char c) {
  return c >= '0' && c <= '9';
}

bool IsSpace(char c) {
  return c == ' ' || c == '\t' || c == '\n' || c == '\v' || c == '\f' || c == '\r';
}

}  // namespace

bool ReadUnsigned(const char*& p, uint32_t* value) {
  const char* q = p;
  while (IsSpace(*q)) ++q;
  bool negative = false;
  if (*q == '+' || *q == '-') negative = *q++ == '-';
  if (!IsDigit(*q)) return false;
  uint64_t m = 0;
  for (; IsDigit(*q); ++q)
    if (m <= 0xFFFFFFFFull) m = m * 10 + static_cast<unsigned>(*q - '0');
  if (m > 0xFFFFFFFFull)
    *value = 0xFFFFFFFFu;
  else
    *value = negative ? 0u - static_cast<uint32_t>(m) : static_cast<uint32_t>(m);
  p = q;
  return true;
}

// ---------------------------------------------------------------- construction

COLOR::COLOR(unsigned long packed) : m_red(0), m_green(0), m_blue(0), m_flags(kHasValue) {
  SetColorRef(packed);
}

COLOR::COLOR(NAME name) : COLOR(static_cast<unsigned long>(name)) {}

COLOR& COLOR::operator=(NAME name) {
  const unsigned long packed = name;
  m_red = static_cast<unsigned short>((packed & 0xFF) << 8);
  m_green = static_cast<unsigned short>(packed & 0xFF00);
  m_blue = static_cast<unsigned short>((packed >> 8) & 0xFF00);
  m_flags |= kHasValue;
  return *this;
}

void COLOR::Clear() {
  m_red = m_green = m_blue = m_flags = 0;
}

// ---------------------------------------------------------------- reading

unsigned short COLOR::GetRed(unsigned short max) const {
  return Scale(m_red, max);
}

unsigned short COLOR::GetGreen(unsigned short max) const {
  return Scale(m_green, max);
}

unsigned short COLOR::GetBlue(unsigned short max) const {
  return Scale(m_blue, max);
}

void COLOR::GetRGB(unsigned short& red, unsigned short& green, unsigned short& blue) const {
  red = m_red;
  green = m_green;
  blue = m_blue;
}

unsigned long COLOR::GetColorRef() const {
  return static_cast<unsigned long>(GetRedByte()) |
         static_cast<unsigned long>(GetGreenByte()) << 8 |
         static_cast<unsigned long>(GetBlueByte()) << 16;
}

int COLOR::GetColorModel() const {
  return (m_flags & kModelMode) ? m_flags & 0x7F : 0;
}

// The invisible bit counts only outside model mode.
static bool InvisibleBit(unsigned short flags) {
  return (flags & (kModelMode | kInvisible)) == kInvisible;
}

unsigned char COLOR::GetTransparency() const {
  return InvisibleBit(m_flags) ? 255 : static_cast<unsigned char>(m_flags >> 8);
}

unsigned char COLOR::GetOpacity() const {
  return InvisibleBit(m_flags) ? 0 : static_cast<unsigned char>(255 - (m_flags >> 8));
}

bool COLOR::HasTransparency() const {
  return (m_flags >> 8) != 0 || InvisibleBit(m_flags);
}

bool COLOR::HasValue() const {
  return (m_flags & kMeaningful) != 0 || m_red != 0 || m_green != 0 || m_blue != 0;
}

bool COLOR::IsInvisible() const {
  if ((m_flags >> 8) == 255) return true;
  return !(m_flags & kModelMode) && (m_flags & kInvisible);
}

bool COLOR::IsICMCorrected() const {
  return (m_flags & kModelMode) || (m_flags & kICMCorrected);
}

bool COLOR::IsReserved() const {
  return !(m_flags & kModelMode) && (m_flags & kReserved);
}

bool COLOR::IsEqualTo(const COLOR& other) const {
  if (m_red != other.m_red || m_green != other.m_green || m_blue != other.m_blue) return false;
  const bool model = (m_flags | other.m_flags) & kModelMode;
  const unsigned short mask = model ? 0xFFFF : kMeaningful;
  return (m_flags & mask) == (other.m_flags & mask);
}

bool COLOR::IsEqualNoTransp(const COLOR& other) const {
  if (m_red != other.m_red || m_green != other.m_green || m_blue != other.m_blue) return false;
  const bool model = (m_flags | other.m_flags) & kModelMode;
  const unsigned short mask = model ? 0x00FF : kMeaningfulLow;
  return (m_flags & mask) == (other.m_flags & mask);
}

// ---------------------------------------------------------------- writing

void COLOR::SetFields(unsigned short red, unsigned short green, unsigned short blue) {
  m_red = red;
  m_green = green;
  m_blue = blue;
}

void COLOR::SetRGB(unsigned short red, unsigned short green, unsigned short blue) {
  if (m_flags & kModelMode) m_flags &= 0xFF00;
  SetFields(red, green, blue);
  m_flags |= kHasValue;
}

void COLOR::SetRGB(const COLOR& other) {
  SetRGB(other.m_red, other.m_green, other.m_blue);
}

void COLOR::SetRGB(int red, int green, int blue, int max) {
  if (max < 1 || max > 65535) return;
  const auto spread = [max](int v) -> unsigned short {
    if (v <= 0) return 0;
    if (v >= max) return 65535;
    const uint32_t m = static_cast<uint32_t>(max);
    return static_cast<unsigned short>((static_cast<uint32_t>(v) * 65535u + m / 2) / m);
  };
  SetFields(spread(red), spread(green), spread(blue));
  m_flags = static_cast<unsigned short>((m_flags | kHasValue) & ~kModelMode);
}

void COLOR::SetCMY(int cyan, int magenta, int yellow, int max) {
  SetRGB(Difference(max, cyan), Difference(max, magenta), Difference(max, yellow), max);
}

void COLOR::SetCMYK(int cyan, int magenta, int yellow, int black, int max) {
  // Below 0 is 0 already for SetRGB.
  SetRGB(Difference(max, cyan, black), Difference(max, magenta, black),
         Difference(max, yellow, black), max);
}

void COLOR::SetColorRef(unsigned long packed) {
  if (m_flags & kModelMode) m_flags &= 0xFF00;
  m_red = static_cast<unsigned short>((packed & 0xFF) << 8);
  m_green = static_cast<unsigned short>(packed & 0xFF00);
  m_blue = static_cast<unsigned short>((packed >> 8) & 0xFF00);
  m_flags |= kHasValue;
}

void COLOR::SetTransparency(unsigned char transparency) {
  m_flags = static_cast<unsigned short>((m_flags & 0x00FF) | transparency << 8);
}

void COLOR::SetOpacity(unsigned char opacity) {
  SetTransparency(static_cast<unsigned char>(255 - opacity));
}

void COLOR::SetIsICMCorrected(bool on) {
  if (m_flags & kModelMode) return;
  m_flags = static_cast<unsigned short>(on ? m_flags | kICMCorrected : m_flags & ~kICMCorrected);
}

void COLOR::SetReserved(bool on) {
  if (m_flags & kModelMode) return;
  m_flags = static_cast<unsigned short>(on ? m_flags | kReserved : m_flags & ~kReserved);
}

void COLOR::Blend(const COLOR& other, unsigned char weight) {
  const auto mix = [weight](unsigned short own, unsigned short theirs) {
    return static_cast<unsigned short>(
        (uint32_t{own} * (256u - weight) + uint32_t{theirs} * weight) / 256u);
  };
  SetRGB(mix(m_red, other.m_red), mix(m_green, other.m_green), mix(m_blue, other.m_blue));
}

void COLOR::Validate() {
  if (m_flags == 0xFFFF) m_flags = kHasValue;
}

// ---------------------------------------------------------------- packed forms

// The colour's own bytes as they lie in memory: in model mode they hold
// the C, M, Y (and K) of the model, wherever the fields would put them.
void COLOR::StorageBytes(unsigned char bytes[8]) const {
  std::memcpy(bytes, this, 8);
}

int COLOR::GetByColorSpace(COLORSPACE space, void* buffer) const {
  if (!buffer) return SETERR(VOERROR_InvalidArgument);
  unsigned char* out = static_cast<unsigned char*>(buffer);
  const unsigned char r = GetRedByte(), g = GetGreenByte(), b = GetBlueByte();
  const unsigned char a = GetOpacity();
  unsigned char storage[8];
  StorageBytes(storage);
  // Subtractive values: the model's own bytes, or derived from the RGB.
  unsigned char c = static_cast<unsigned char>(255 - r), m = static_cast<unsigned char>(255 - g),
                y = static_cast<unsigned char>(255 - b), k = 0;
  const bool cmyk = space == COLORSPACE_CMYK_32 || space == COLORSPACE_KCMY_32;
  if (cmyk) {
    if (GetColorModel() == 2) {
      c = storage[0], m = storage[1], y = storage[2], k = storage[3];
    } else {
      unsigned char largest = r > g ? r : g;
      if (b > largest) largest = b;
      k = static_cast<unsigned char>(255 - largest);
      c = static_cast<unsigned char>(255 - k - r);
      m = static_cast<unsigned char>(255 - k - g);
      y = static_cast<unsigned char>(255 - k - b);
    }
  } else if (GetColorModel() == 1) {
    c = storage[0], m = storage[1], y = storage[2];
  }
  const auto put = [out](std::initializer_list<unsigned char> bytes) {
    int i = 0;
    for (unsigned char v : bytes) out[i++] = v;
  };
  switch (space) {
    case COLORSPACE_RGB_24:
    case COLORSPACE_RGBX_32:
      put({r, g, b});
      break;
    case COLORSPACE_BGR_24:
    case COLORSPACE_BGRX_32:
      put({b, g, r});
      break;
    case COLORSPACE_XRGB_32:
      out[1] = r, out[2] = g, out[3] = b;
      break;
    case COLORSPACE_XBGR_32:
      out[1] = b, out[2] = g, out[3] = r;
      break;
    case COLORSPACE_RGBA_32:
      put({r, g, b, a});
      break;
    case COLORSPACE_ARGB_32:
      put({a, r, g, b});
      break;
    case COLORSPACE_BGRA_32:
      put({b, g, r, a});
      break;
    case COLORSPACE_ABGR_32:
      put({a, b, g, r});
      break;
    case COLORSPACE_CMY_24:
    case COLORSPACE_CMYX_32:
      put({c, m, y});
      break;
    case COLORSPACE_XCMY_32:
      out[1] = c, out[2] = m, out[3] = y;
      break;
    case COLORSPACE_CMYK_32:
      put({c, m, y, k});
      break;
    case COLORSPACE_KCMY_32:
      put({k, c, m, y});
      break;
    case COLORSPACE_RGB_555:
    case COLORSPACE_BGR_555: {
      const unsigned first = (space == COLORSPACE_RGB_555 ? m_red : m_blue) >> 11;
      const unsigned last = (space == COLORSPACE_RGB_555 ? m_blue : m_red) >> 11;
      PutWord(out, 0, static_cast<unsigned short>(first << 10 | (m_green >> 11) << 5 | last));
      break;
    }
    case COLORSPACE_RGB_48:
      PutWord(out, 0, m_red);
      PutWord(out, 1, m_green);
      PutWord(out, 2, m_blue);
      break;
    default:
      return SETERR(VOERROR_InvalidArgument);
  }
  return 0;
}

int COLOR::SetByColorSpace(COLORSPACE space, const void* buffer) {
  if (!buffer) return SETERR(VOERROR_InvalidArgument);
  const unsigned char* in = static_cast<const unsigned char*>(buffer);
  switch (space) {
    case COLORSPACE_RGB_24:
    case COLORSPACE_RGBX_32:
      SetRGB(in[0], in[1], in[2], 255);
      break;
    case COLORSPACE_BGR_24:
    case COLORSPACE_BGRX_32:
      SetRGB(in[2], in[1], in[0], 255);
      break;
    case COLORSPACE_XRGB_32:
      SetRGB(in[1], in[2], in[3], 255);
      break;
    case COLORSPACE_XBGR_32:
      SetRGB(in[3], in[2], in[1], 255);
      break;
    case COLORSPACE_RGBA_32:
      SetRGB(in[0], in[1], in[2], 255);
      SetOpacity(in[3]);
      break;
    case COLORSPACE_ARGB_32:
      SetRGB(in[1], in[2], in[3], 255);
      SetOpacity(in[0]);
      break;
    case COLORSPACE_BGRA_32:
      SetRGB(in[2], in[1], in[0], 255);
      SetOpacity(in[3]);
      break;
    case COLORSPACE_ABGR_32:
      SetRGB(in[3], in[2], in[1], 255);
      SetOpacity(in[0]);
      break;
    case COLORSPACE_CMY_24:
    case COLORSPACE_CMYX_32:
      SetCMY(in[0], in[1], in[2], 255);
      break;
    case COLORSPACE_XCMY_32:
      SetCMY(in[1], in[2], in[3], 255);
      break;
    case COLORSPACE_CMYK_32:
      SetCMYK(in[0], in[1], in[2], in[3], 255);
      break;
    case COLORSPACE_KCMY_32:
      SetCMYK(in[1], in[2], in[3], in[0], 255);
      break;
    case COLORSPACE_RGB_555:
    case COLORSPACE_BGR_555: {
      const unsigned short w = Word(in, 0);
      const int first = w >> 10 & 31, green = w >> 5 & 31, last = w & 31;
      if (space == COLORSPACE_RGB_555)
        SetRGB(first, green, last, 31);
      else
        SetRGB(last, green, first, 31);
      break;
    }
    case COLORSPACE_RGB_48:
      SetRGB(Word(in, 0), Word(in, 1), Word(in, 2));
      break;
    default:
      return SETERR(VOERROR_InvalidArgument);
  }
  return 0;
}

// ---------------------------------------------------------------- serial form

char* COLOR::SerialGetString(char* buffer) const {
  if (!buffer) return nullptr;
  const unsigned values[4] = {m_red, m_green, m_blue, static_cast<unsigned>(m_flags & kSerialMask)};
  char* p = buffer;
  for (int i = 0; i < 4; ++i) {
    if (i) *p++ = ' ';
    char digits[5];
    int n = 0;
    unsigned v = values[i];
    do {
      digits[n++] = static_cast<char>('0' + v % 10);
      v /= 10;
    } while (v);
    while (n) *p++ = digits[--n];
  }
  *p = 0;
  return buffer;
}

int COLOR::SerialSetString(const char* text) {
  if (!text) return 0;
  uint32_t v[4] = {0, 0, 0, 0};
  int n = 0;
  const char* p = text;
  while (n < 4 && ReadUnsigned(p, &v[n])) ++n;
  if (n < 3) return n;
  SetFields(static_cast<unsigned short>(v[0]), static_cast<unsigned short>(v[1]),
            static_cast<unsigned short>(v[2]));
  m_flags = static_cast<unsigned short>(v[3] | kHasValue);
  return n;
}
