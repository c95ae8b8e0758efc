// VOSTRING::Sprintf: classic formatted output appended to the string.
//
// Each conversion is parsed into its parts and its C format is rebuilt from
// them, so that format always fits its 32-byte buffer whatever the caller's
// format holds. Widths and precisions are clamped so that the output of one
// conversion always fits the 5,008-byte buffer: snprintf never cuts silently.
//   width: at most kMaxWidth
//   precision: at most kMaxPrecision, or kMaxLongDoublePrecision for "%L" floats
// "%s" and "%S" don't go through that buffer, so strings of any length pass.
static const char s_ident[] = "@(#) vostring_sprintf.cpp 1.0";

#include <algorithm>
#include <climits>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "foundation/clocale.h"
#include "foundation/errpos.h"
#include "text/vostring_priv.h"
#include "vosystem/ucstring.h"
#include "vosystem/vostring.h"

using PRIV = VOSTRING::PRIV;

namespace {

const int kCFormatSize = 32;
const int kOutSize = 5008;
const int kMaxWidth = 4000;
// "%f" of the largest double has 309 integer digits: 4000 more still fit.
const int kMaxPrecision = 4000;
// The largest long double has 4933 integer digits, which leaves room for 64.
const int kMaxLongDoublePrecision = 64;
const int kChunkUnits = 512;
// No point reserving ahead for a format longer than this.
const int64_t kMaxReserveUnits = 1 << 28;

// The argument list, wrapped so it can be passed by reference on every ABI.
struct Args {
  va_list ap;
};

struct Conversion {
  bool flagSpace = false, flagPlus = false, flagLeft = false, flagAlt = false, flagZero = false;
  int width = -1;      // -1: none
  int precision = -1;  // -1: none
  int hCount = 0, lCount = 0;
  bool bigL = false;
  unsigned short conv = 0;

  // "ll", or "L" on an integer conversion: 64 bits.
  bool IsInt64() const { return bigL || lCount >= 2; }
  bool IsLong() const { return !IsInt64() && lCount == 1; }
};

bool IsDigit(unsigned short c) {
  return c >= '0' && c <= '9';
}

int ReadDecimal(const unsigned short* f, int len, int& i, int limit) {
  int value = 0;
  for (; i < len && IsDigit(f[i]); ++i) value = std::min(value * 10 + (f[i] - '0'), limit);
  return value;
}

// Parses the conversion after the "%" at f[i - 1]; "*" values come from the
// arguments. Returns the position of the conversion unit (len at the end).
int ParseConversion(const unsigned short* f, int len, int i, Args& args, Conversion& c) {
  for (; i < len; ++i) {
    unsigned short u = f[i];
    if (u == ' ')
      c.flagSpace = true;
    else if (u == '+')
      c.flagPlus = true;
    else if (u == '-')
      c.flagLeft = true;
    else if (u == '#')
      c.flagAlt = true;
    else if (u == '0')
      c.flagZero = true;
    else
      break;
  }
  if (i < len && f[i] == '*') {
    ++i;
    int64_t w = va_arg(args.ap, int);
    if (w < 0) {
      c.flagLeft = true;
      w = -w;
    }
    c.width = static_cast<int>(std::min<int64_t>(w, kMaxWidth));
  } else if (i < len && IsDigit(f[i])) {
    c.width = ReadDecimal(f, len, i, kMaxWidth);
  }
  if (i < len && f[i] == '.') {
    ++i;
    if (i < len && f[i] == '*') {
      ++i;
      int p = va_arg(args.ap, int);
      c.precision = p < 0 ? -1 : std::min(p, kMaxPrecision);
    } else {
      c.precision = ReadDecimal(f, len, i, kMaxPrecision);  // "." alone is 0
    }
  }
  for (; i < len; ++i) {
    if (f[i] == 'h')
      ++c.hCount;
    else if (f[i] == 'l')
      ++c.lCount;
    else if (f[i] == 'L')
      c.bigL = true;
    else
      break;
  }
  c.conv = i < len ? f[i] : 0;
  return i;
}

// Rebuilds a C conversion: at most 1 + 5 + 4 + 5 + 2 + 1 characters.
void BuildCFormat(const Conversion& c, const char* modifier, char conv, int precisionLimit,
                  char (&cfmt)[kCFormatSize]) {
  char* s = cfmt;
  *s++ = '%';
  if (c.flagSpace) *s++ = ' ';
  if (c.flagPlus) *s++ = '+';
  if (c.flagLeft) *s++ = '-';
  if (c.flagZero) *s++ = '0';
  // "#" is meaningful for o, x, X and the floats only.
  if (c.flagAlt && conv != 'd' && conv != 'i' && conv != 'u') *s++ = '#';
  if (c.width >= 0) s += snprintf(s, 5, "%d", c.width);
  if (c.precision >= 0) s += snprintf(s, 6, ".%d", std::min(c.precision, precisionLimit));
  for (; *modifier; ++modifier) *s++ = *modifier;
  *s++ = conv;
  *s = 0;
}

int AppendUnits(PRIV& p, const unsigned short* s, int n) {
  if (n <= 0) return 0;
  return p.ReplaceUnits(p.length, p.length - 1, s, n);
}

int AppendNarrow(PRIV& p, const char* s, size_t n) {
  unsigned short chunk[kChunkUnits];
  while (n > 0) {
    int k = static_cast<int>(std::min<size_t>(n, kChunkUnits));
    for (int i = 0; i < k; ++i) chunk[i] = static_cast<unsigned char>(s[i]);
    int rc = AppendUnits(p, chunk, k);
    if (rc < 0) return rc;
    s += k;
    n -= static_cast<size_t>(k);
  }
  return 0;
}

int AppendBlanks(PRIV& p, int n) {
  unsigned short chunk[kChunkUnits];
  std::fill(chunk, chunk + kChunkUnits, ' ');
  for (; n > 0; n -= kChunkUnits) {
    int rc = AppendUnits(p, chunk, std::min(n, kChunkUnits));
    if (rc < 0) return rc;
  }
  return 0;
}

// Text of n units (or bytes) padded with blanks to the width: on the right
// with "-", else on the left. A precision never cuts it.
template <typename AppendText>
int AppendPadded(PRIV& p, const Conversion& c, int n, AppendText append) {
  int pad = std::max(c.width - n, 0);
  int rc = c.flagLeft ? 0 : AppendBlanks(p, pad);
  if (rc >= 0) rc = append();
  if (rc >= 0 && c.flagLeft) rc = AppendBlanks(p, pad);
  return rc;
}

int AppendWide(PRIV& p, const Conversion& c, const unsigned short* s) {
  if (!s) return AppendBlanks(p, c.width);
  int n = ucstrlen(s);
  return AppendPadded(p, c, n, [&] { return AppendUnits(p, s, n); });
}

// An 8-bit string, as "%s" would print it; null gives width blanks.
int AppendString(PRIV& p, const Conversion& c, const char* s) {
  if (!s) return AppendBlanks(p, c.width);
  size_t n = c.precision >= 0 ? strnlen(s, static_cast<size_t>(c.precision)) : strlen(s);
  int shown = static_cast<int>(std::min<size_t>(n, INT_MAX));
  return AppendPadded(p, c, shown, [&] { return AppendNarrow(p, s, n); });
}

template <typename T>
int AppendPrinted(PRIV& p, const char* cfmt, T value) {
  char out[kOutSize];
  int n = snprintf(out, sizeof out, cfmt, value);
  if (n < 0) return 0;
  return AppendNarrow(p, out, static_cast<size_t>(std::min(n, kOutSize - 1)));
}

int AppendInteger(PRIV& p, const Conversion& c, Args& args) {
  const char conv = static_cast<char>(c.conv);
  const bool isSigned = conv == 'd' || conv == 'i';
  char cfmt[kCFormatSize];
  if (c.IsInt64()) {
    long long v = va_arg(args.ap, long long);
    BuildCFormat(c, "ll", conv, kMaxPrecision, cfmt);
    return isSigned ? AppendPrinted(p, cfmt, v)
                    : AppendPrinted(p, cfmt, static_cast<unsigned long long>(v));
  }
  // A "long" stands for 32 bits: its low half is printed.
  uint32_t bits = c.IsLong() ? static_cast<uint32_t>(va_arg(args.ap, long))
                             : static_cast<uint32_t>(va_arg(args.ap, int));
  const char* modifier = c.IsLong() ? "" : c.hCount >= 2 ? "hh" : c.hCount == 1 ? "h" : "";
  BuildCFormat(c, modifier, conv, kMaxPrecision, cfmt);
  return isSigned ? AppendPrinted(p, cfmt, static_cast<int>(static_cast<int32_t>(bits)))
                  : AppendPrinted(p, cfmt, static_cast<unsigned int>(bits));
}

int AppendFloat(PRIV& p, const Conversion& c, Args& args) {
  char cfmt[kCFormatSize];
  const char conv = static_cast<char>(c.conv);
  if (c.bigL) {
    long double v = va_arg(args.ap, long double);
    BuildCFormat(c, "L", conv, kMaxLongDoublePrecision, cfmt);
    return AppendPrinted(p, cfmt, v);
  }
  double v = va_arg(args.ap, double);
  BuildCFormat(c, "", conv, kMaxPrecision, cfmt);
  return AppendPrinted(p, cfmt, v);
}

// One conversion; any character not known takes no argument and prints nothing.
int AppendConversion(PRIV& p, const Conversion& c, Args& args) {
  switch (c.conv) {
    case 'c': {
      // The low 16 bits as one unit; a zero would end the text, so it is dropped.
      unsigned short unit = static_cast<unsigned short>(va_arg(args.ap, int));
      return unit ? AppendUnits(p, &unit, 1) : 0;
    }
    case 'S':
      return AppendWide(p, c, va_arg(args.ap, const unsigned short*));
    case 's':
      return AppendString(p, c, va_arg(args.ap, const char*));
    case 'd':
    case 'i':
    case 'o':
    case 'u':
    case 'x':
    case 'X':
      return AppendInteger(p, c, args);
    case 'e':
    case 'E':
    case 'f':
    case 'g':
    case 'G':
      return AppendFloat(p, c, args);
    default:
      return 0;
  }
}

int RunFormat(PRIV& p, const unsigned short* f, int len, Args& args) {
  int i = 0;
  while (i < len) {
    int run = i;
    while (i < len && f[i] != '%') ++i;
    int rc = AppendUnits(p, f + run, i - run);
    if (rc < 0) return rc;
    if (i >= len) break;
    if (i + 1 < len && f[i + 1] == '%') {
      rc = AppendUnits(p, f + i, 1);
      i += 2;
    } else {
      Conversion c;
      i = ParseConversion(f, len, i + 1, args, c);
      if (i >= len) break;  // the format ends inside the conversion
      rc = AppendConversion(p, c, args);
      ++i;
    }
    if (rc < 0) return rc;
  }
  return 0;
}

}  // namespace

// The output is built in a body of its own and appended at the end: the
// format and any "%S" or "%s" argument may point into this string's text,
// which must stay where it is until they have been read. Either all of the
// output is appended or, on a failure, none of it.
int VOSTRING::PRIV::Sprintfv(const unsigned short* format, va_list args) {
  if (!format) return length;
  const int len = ucstrlen(format);
  PRIV out;
  // Room ahead for output about twice the size of the format.
  int rc = 2 * static_cast<int64_t>(len) <= kMaxReserveUnits ? out.Reserve(2 * len) : 0;
  if (rc >= 0) {
    Args a;
    va_copy(a.ap, args);
    C_LOCALE_SCOPE c;  // numbers as in the C locale, whatever the process set
    rc = RunFormat(out, format, len, a);
    va_end(a.ap);
  }
  if (rc >= 0 && out.length > 0) rc = ReplaceUnits(length, length - 1, out.text, out.length);
  if (out.capacity > 0) free(out.text);
  return rc < 0 ? PASSERR(rc) : length;
}

int VOSTRING::Sprintfv(const unsigned short* format, va_list args) {
  if (!MakeExclusive()) return VOERROR_OutOfMemory;
  int rc = m_priv->Sprintfv(format, args);
  m_text = m_priv->text;
  return rc;
}

int VOSTRING::Sprintf(const unsigned short* format, ...) {
  va_list args;
  va_start(args, format);
  int rc = Sprintfv(format, args);
  va_end(args);
  return rc;
}
