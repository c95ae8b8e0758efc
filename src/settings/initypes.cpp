// The type codes of settings values.
//
// Numbers are read and written by this file's own code in the C locale's
// form, whatever locale the process has set. Integers are read as the C
// library's "%d" and "%u" read them into a 32-bit long: a number too large
// for 32 bits stands at the largest value of its sign (and "%u" takes a
// minus sign as a negation modulo 2^32), and the narrower types keep the
// low bits of that. A float too large for a float is an infinity. No input
// reaches an undefined conversion.
//
// Lists wrap: an element that would pass column 80 starts a new line,
// behind the continuation "\", line feed, "\". A string element always
// ends its line.
static const char s_ident[] = "@(#) initypes.cpp 1.0";

#include "settings/initypes.h"

#include <charconv>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "foundation/clocale.h"
#include "foundation/errpos.h"
#include "vosystem/color.h"
#include "vosystem/inifuncs.h"
#include "vosystem/memfunc.h"
#include "vosystem/ucstring.h"

namespace {

const char kContinuation[] = "\\\n\\";
const long kWrapColumn = 80;

bool IsSpace(char c) {
  return c == ' ' || c == '\t' || c == '\r' || c == '\n' || c == '\v' || c == '\f';
}

bool IsDigit(char c) {
  return c >= '0' && c <= '9';
}

// One part of a composite record: count values of a plain type at offset.
struct PART {
  unsigned long type;
  int count;
  int offset;
};

struct COMPOSITE {
  unsigned long type;
  int size;
  int parts;
  PART part[3];
};

const COMPOSITE kComposites[] = {
    {INITYPE_Point2D, 16, 1, {{INITYPE_Double, 2, 0}}},
    {INITYPE_Point3D, 24, 1, {{INITYPE_Double, 3, 0}}},
    {INITYPE_ParmRecord,
     200,
     3,
     {{INITYPE_Int16, 1, 0}, {INITYPE_Int16, 4, 72}, {INITYPE_Double, 15, 80}}},
    {INITYPE_Rect, 32, 1, {{INITYPE_Double, 4, 0}}},
    {INITYPE_Color, sizeof(COLOR), 1, {{INITYPE_UInt16, 3, 0}}},
    {INITYPE_Rect2, 32, 1, {{INITYPE_Double, 4, 0}}},
};

const COMPOSITE* CompositeOf(unsigned long type) {
  for (const COMPOSITE& c : kComposites)
    if (c.type == type) return &c;
  return nullptr;
}

bool IsPlain(unsigned long type) {
  return (type >= INITYPE_Bool8 && type <= INITYPE_UCString) || type == INITYPE_Boolean;
}

// ---------------------------------------------------------------- parsing

// Sign and decimal digits at p: the magnitude, saturated at 2^32 (which no
// 32-bit result holds). False without a digit.
bool ParseMagnitude(const char*& p, bool* negative, uint64_t* magnitude) {
  *negative = false;
  if (*p == '+' || *p == '-') *negative = *p++ == '-';
  if (!IsDigit(*p)) return false;
  uint64_t m = 0;
  for (; IsDigit(*p); ++p)
    if (m <= 0xFFFFFFFFull) m = m * 10 + static_cast<unsigned>(*p - '0');
  *magnitude = m > 0xFFFFFFFFull ? 0x100000000ull : m;
  return true;
}

bool ParseSigned(const char*& p, int32_t* value) {
  bool negative;
  uint64_t m;
  if (!ParseMagnitude(p, &negative, &m)) return false;
  if (negative)
    *value = m >= 0x80000000ull ? INT32_MIN : -static_cast<int32_t>(m);
  else
    *value = m >= 0x7FFFFFFFull ? INT32_MAX : static_cast<int32_t>(m);
  return true;
}

bool ParseUnsigned(const char*& p, uint32_t* value) {
  bool negative;
  uint64_t m;
  if (!ParseMagnitude(p, &negative, &m)) return false;
  if (m > 0xFFFFFFFFull)
    *value = 0xFFFFFFFFu;
  else
    *value =
        negative ? static_cast<uint32_t>(0u - static_cast<uint32_t>(m)) : static_cast<uint32_t>(m);
  return true;
}

// One element at p; p moves past what was read.
bool ParseElement(unsigned long type, const char*& p, void* out) {
  int32_t i = 0;
  uint32_t u = 0;
  switch (type) {
    case INITYPE_Bool8:
    case INITYPE_Bool32:
    case INITYPE_Boolean: {
      const int32_t b = *p && strchr("YyTt1", *p) != nullptr;
      if (type == INITYPE_Bool8)
        *static_cast<uint8_t*>(out) = static_cast<uint8_t>(b);
      else
        memcpy(out, &b, sizeof b);
      ++p;
      return true;
    }
    case INITYPE_Int8:
    case INITYPE_Int16:
    case INITYPE_Int32:
      if (!ParseSigned(p, &i)) return false;
      if (type == INITYPE_Int8) {
        const int8_t v = static_cast<int8_t>(static_cast<uint8_t>(static_cast<uint32_t>(i)));
        memcpy(out, &v, sizeof v);
      } else if (type == INITYPE_Int16) {
        const int16_t v = static_cast<int16_t>(static_cast<uint16_t>(static_cast<uint32_t>(i)));
        memcpy(out, &v, sizeof v);
      } else {
        memcpy(out, &i, sizeof i);
      }
      return true;
    case INITYPE_UInt8:
    case INITYPE_UInt16:
    case INITYPE_UInt32:
      if (!ParseUnsigned(p, &u)) return false;
      if (type == INITYPE_UInt8) {
        const uint8_t v = static_cast<uint8_t>(u);
        memcpy(out, &v, sizeof v);
      } else if (type == INITYPE_UInt16) {
        const uint16_t v = static_cast<uint16_t>(u);
        memcpy(out, &v, sizeof v);
      } else {
        memcpy(out, &u, sizeof u);
      }
      return true;
    case INITYPE_Float:
    case INITYPE_Double: {
      char* end = nullptr;
      if (type == INITYPE_Float) {
        const float f = strtof_l(p, &end, CLocale());
        if (end == p) return false;
        memcpy(out, &f, sizeof f);
      } else {
        const double d = strtod_l(p, &end, CLocale());
        if (end == p) return false;
        memcpy(out, &d, sizeof d);
      }
      p = end;
      return true;
    }
    default:
      return false;
  }
}

int ParseIniType(unsigned long type, const char* text, const char** next, void* out, int count) {
  if (type == INITYPE_String || type == INITYPE_UCString) {
    if (count < 1) return SETERR(VOERROR_InvalidArgument);
    size_t n = strcspn(text, "\n");
    if (next) *next = text + n;
    if (type == INITYPE_String) {
      if (n > static_cast<size_t>(count - 1)) n = static_cast<size_t>(count - 1);
      memcpy(out, text, n);
      static_cast<char*>(out)[n] = 0;
      return count;
    }
    unsigned short* to = static_cast<unsigned short*>(out);
    const unsigned char* from = reinterpret_cast<const unsigned char*>(text);
    ConvertUTF8toUTF16(&from, from + n, &to, to + (count - 1));
    // Never half a surrogate pair at the cut.
    if (to > static_cast<unsigned short*>(out) &&
        from < reinterpret_cast<const unsigned char*>(text) + n && (to[-1] & 0xFC00) == 0xD800)
      --to;
    *to = 0;
    return count;
  }
  const int size = IniTypeSize(type);
  if (!IsPlain(type) || size == 0) return SETERR(VOERROR_InvalidArgument);
  if (count <= 0) count = 1;
  char* at = static_cast<char*>(out);
  int stored = 0;
  const char* p = text;
  while (stored < count) {
    while (*p && IsSpace(*p)) ++p;
    if (!*p || !ParseElement(type, p, at)) break;
    at += size;
    ++stored;
    while (*p && !IsSpace(*p)) ++p;
  }
  if (next) *next = p;
  return stored;
}

// ---------------------------------------------------------------- writing

int MakeRoom(INIWRITEDATA& data, long n) {
  if (data.length + n + 8 <= data.capacity) return 0;
  long capacity = n + data.capacity + 256;
  if (capacity < 2 * data.capacity) capacity = 2 * data.capacity;
  const int rc = MmReallocC(&data.buffer, capacity, static_cast<unsigned long>(data.capacity));
  if (rc < 0) return PASSERR(rc);
  data.capacity = capacity;
  return 0;
}

void Put(INIWRITEDATA& data, const char* text, long n) {
  memcpy(data.buffer + data.length, text, static_cast<size_t>(n));
  data.length += n;
  data.buffer[data.length] = 0;
}

// One element as text; its length.
int FormatElement(unsigned long type, const char* at, char* text, size_t size) {
  std::to_chars_result r{text, std::errc()};
  switch (type) {
    case INITYPE_Bool8:
      strcpy(text, *reinterpret_cast<const uint8_t*>(at) ? "Yes" : "No");
      return static_cast<int>(strlen(text));
    case INITYPE_Bool32:
    case INITYPE_Boolean: {
      int32_t v;
      memcpy(&v, at, sizeof v);
      strcpy(text, v ? "Yes" : "No");
      return static_cast<int>(strlen(text));
    }
    case INITYPE_Int8:
      r = std::to_chars(text, text + size, static_cast<int>(*reinterpret_cast<const int8_t*>(at)));
      break;
    case INITYPE_UInt8:
      r = std::to_chars(text, text + size,
                        static_cast<unsigned>(*reinterpret_cast<const uint8_t*>(at)));
      break;
    case INITYPE_Int16: {
      int16_t v;
      memcpy(&v, at, sizeof v);
      r = std::to_chars(text, text + size, static_cast<int>(v));
      break;
    }
    case INITYPE_UInt16: {
      uint16_t v;
      memcpy(&v, at, sizeof v);
      r = std::to_chars(text, text + size, static_cast<unsigned>(v));
      break;
    }
    case INITYPE_Int32: {
      int32_t v;
      memcpy(&v, at, sizeof v);
      r = std::to_chars(text, text + size, v);
      break;
    }
    case INITYPE_UInt32: {
      uint32_t v;
      memcpy(&v, at, sizeof v);
      r = std::to_chars(text, text + size, v);
      break;
    }
    case INITYPE_Float: {
      float v;
      memcpy(&v, at, sizeof v);
      r = std::to_chars(text, text + size, static_cast<double>(v), std::chars_format::fixed, 5);
      break;
    }
    case INITYPE_Double: {
      double v;
      memcpy(&v, at, sizeof v);
      r = std::to_chars(text, text + size, v, std::chars_format::fixed, 8);
      break;
    }
    default:
      return -1;
  }
  if (r.ec != std::errc()) return -1;
  *r.ptr = 0;
  return static_cast<int>(r.ptr - text);
}

int WriteIniType(INIWRITEDATA& data, const void* value, unsigned long type, int count, bool more) {
  if (type == INITYPE_String || type == INITYPE_UCString) {
    char* converted = nullptr;
    const char* text = static_cast<const char*>(value);
    if (type == INITYPE_UCString) {
      const int rc = MucConvertUnicodeToUTF8(static_cast<const unsigned short*>(value), &converted);
      if (rc < 0) return PASSERR(rc);
      text = converted;
    }
    const long n = static_cast<long>(strlen(text));
    int rc = memchr(text, '\n', static_cast<size_t>(n)) ? SETERR(VOERROR_InvalidArgument) : 0;
    if (rc >= 0) rc = MakeRoom(data, n + 3);
    if (rc >= 0) {
      if (data.column != 0) Put(data, kContinuation, 3);
      Put(data, text, n);
      data.column = kWrapColumn + 1;  // the next element starts a new line
    }
    free(converted);
    return rc < 0 ? PASSERR(rc) : 0;
  }
  const int size = IniTypeSize(type);
  if (!IsPlain(type) || size == 0) return SETERR(VOERROR_InvalidArgument);
  if (count <= 0) count = 1;
  const char* at = static_cast<const char*>(value);
  char text[400];  // the widest: a double's 309 digits, sign, point and 8 decimals
  for (int i = 0; i < count; ++i, at += size) {
    const int n = FormatElement(type, at, text, sizeof text - 1);
    if (n < 0) return SETERR(VOERROR_InvalidArgument);
    const int rc = MakeRoom(data, n + 4);
    if (rc < 0) return PASSERR(rc);
    // An element longer than a line stays whole on a line of its own.
    if (data.column > 0 && data.column + n > kWrapColumn) {
      Put(data, kContinuation, 3);
      data.column = 0;
    }
    Put(data, text, n);
    long written = n;
    if (i + 1 < count || more) {
      Put(data, " ", 1);
      ++written;
    }
    data.column += written;
  }
  return 0;
}

// A colour's red, green and blue go in through the colour's own setter: in
// model mode the model number in the low byte of the flags goes, and bit 0
// says the colour has a value.
void SetColorRGB(unsigned char* record, const uint16_t rgb[3]) {
  COLOR color;
  memcpy(&color, record, sizeof color);
  color.SetRGB(rgb[0], rgb[1], rgb[2]);
  memcpy(record, &color, sizeof color);
}

}  // namespace

bool IsIniType(unsigned long type) {
  return IsPlain(type) || CompositeOf(type) != nullptr;
}

int IniTypeSize(unsigned long type) {
  switch (type) {
    case INITYPE_Bool8:
    case INITYPE_Int8:
    case INITYPE_UInt8:
      return 1;
    case INITYPE_Int16:
    case INITYPE_UInt16:
      return 2;
    case INITYPE_Bool32:
    case INITYPE_Boolean:
    case INITYPE_Int32:
    case INITYPE_UInt32:
    case INITYPE_Float:
      return 4;
    case INITYPE_Double:
      return 8;
    default: {
      const COMPOSITE* c = CompositeOf(type);
      return c ? c->size : 0;
    }
  }
}

int ReadIniEntries(unsigned long type, const char* text, void* out, int count) {
  if (!(type & INITYPE_Composite)) return ParseIniType(type, text, nullptr, out, count);
  const COMPOSITE* c = CompositeOf(type);
  if (!c) return SETERR(VOERROR_InvalidArgument);
  if (count <= 0) count = 1;
  unsigned char* element = static_cast<unsigned char*>(out);
  unsigned char record[200];
  int stored = 0;
  const char* p = text;
  for (; stored < count; ++stored, element += c->size) {
    // A record is parsed aside and stored whole, or not at all.
    memcpy(record, element, static_cast<size_t>(c->size));
    bool whole = true;
    for (int i = 0; i < c->parts && whole; ++i) {
      const PART& part = c->part[i];
      uint16_t rgb[3];
      void* to = type == INITYPE_Color ? static_cast<void*>(rgb) : record + part.offset;
      whole = ParseIniType(part.type, p, &p, to, part.count) == part.count;
      if (whole && type == INITYPE_Color) SetColorRGB(record, rgb);
    }
    if (!whole) break;
    memcpy(element, record, static_cast<size_t>(c->size));
  }
  return stored;
}

int WriteIniEntries(INIWRITEDATA& data, const void* value, unsigned long type, int count) {
  if (!(type & INITYPE_Composite)) return WriteIniType(data, value, type, count, false);
  const COMPOSITE* c = CompositeOf(type);
  if (!c) return SETERR(VOERROR_InvalidArgument);
  if (count <= 0) count = 1;
  const unsigned char* element = static_cast<const unsigned char*>(value);
  for (int e = 0; e < count; ++e, element += c->size) {
    for (int i = 0; i < c->parts; ++i) {
      const PART& part = c->part[i];
      const bool more = e + 1 < count || i + 1 < c->parts;
      uint16_t rgb[3];
      const void* from = element + part.offset;
      if (type == INITYPE_Color) {
        COLOR color;
        memcpy(&color, element, sizeof color);
        color.GetRGB(rgb[0], rgb[1], rgb[2]);
        from = rgb;
      }
      const int rc = WriteIniType(data, from, part.type, part.count, more);
      if (rc < 0) return PASSERR(rc);
    }
  }
  return 0;
}
