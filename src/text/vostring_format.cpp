// VOSTRING as a format template: operator<<, the Fmt settings and the
// placeholder search. Sprintf lives in vostring_sprintf.cpp.
//
// A value goes into the next placeholder that suits its type: first the "%d"
// style ones, left to right from the percent scan position, then the "$n" ones
// by lowest number. With none left it is appended.
static const char s_ident[] = "@(#) vostring_format.cpp 1.0";

#include <algorithm>
#include <climits>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <new>

#include "foundation/clocale.h"
#include "foundation/errpos.h"
#include "text/vostring_priv.h"
#include "vosystem/memfunc.h"
#include "vosystem/textres.h"
#include "vosystem/ucstring.h"
#include "vosystem/vostring.h"

using PRIV = VOSTRING::PRIV;

namespace {

const int kMaxWidth = 255;
const int kMaxPrecision = INT16_MAX;
// The C format of a signed decimal carries at most this width.
const int kMaxSignedWidth = 24;
const int kFloatBufSize = 4096;
// "%f" of the largest double has 309 integer digits; with a sign and a point
// this precision keeps every float within kFloatBufSize, so snprintf never cuts.
const int kMaxFloatPrecision = 3600;
const int kMaxPadCount = 1000;
// Longest 8-bit text taken in one piece; the block size must fit an int.
const size_t kMaxNarrow = (INT32_MAX - 4) / 2 - 1;
const int kNarrowStackUnits = 256;

bool IsDigit(unsigned short c) {
  return c >= '0' && c <= '9';
}

// Position of the first c in t[from, len), or len.
int NextUnit(const unsigned short* t, int len, int from, unsigned short c) {
  for (int i = std::max(from, 0); i < len; ++i)
    if (t[i] == c) return i;
  return len;
}

// What one "%" placeholder asks for. The defaults are those of a bare "%".
struct Placeholder {
  int sign = 0;
  int align = 1;
  unsigned short fill = ' ';
  int base = 10;
  int floatFmt = FLOATFMT_GENERAL;
  int precision = -1;
  int width = 0;
  SUBSTYPE kind = SUBSTYPE_ANY;
};

// Reads flags, width, precision and length modifiers after the "%" at pos.
// Returns the position of the conversion unit, which is len at the end.
int ParsePercent(const unsigned short* t, int len, int pos, Placeholder& ph) {
  int i = pos + 1;
  for (; i < len; ++i) {
    unsigned short c = t[i];
    if (c == '+') {
      ph.sign = 1;
    } else if (c == '-') {
      ph.align = 2;
    } else if (c == '0') {
      ph.fill = '0';
    } else if (c != '#') {
      break;
    }
  }
  for (; i < len && IsDigit(t[i]); ++i)
    ph.width = std::min(ph.width * 10 + (t[i] - '0'), kMaxWidth);
  if (i < len && t[i] == '.') {
    for (++i; i < len && IsDigit(t[i]); ++i)
      ph.precision = std::min(std::max(ph.precision, 0) * 10 + (t[i] - '0'), kMaxPrecision);
  }
  while (i < len && (t[i] == 'h' || t[i] == 'l' || t[i] == 'L')) ++i;
  return i;
}

// Classifies a conversion unit; false if it is no placeholder at all.
bool Classify(unsigned short conv, Placeholder& ph) {
  switch (conv) {
    case 'c':
      ph.kind = SUBSTYPE_CHAR;
      return true;
    case 's':
    case 'S':
      ph.kind = SUBSTYPE_STRING;
      return true;
    case 'd':
    case 'i':
    case 'u':
      ph.kind = SUBSTYPE_INTEGER;
      ph.base = 10;
      return true;
    case 'o':
      ph.kind = SUBSTYPE_INTEGER;
      ph.base = 8;
      return true;
    case 'x':
    case 'X':
      ph.kind = SUBSTYPE_INTEGER;
      ph.base = 16;
      return true;
    case 'f':
      ph.kind = SUBSTYPE_FLOAT;
      ph.floatFmt = FLOATFMT_FIXED;
      return true;
    case 'e':
    case 'E':
      ph.kind = SUBSTYPE_FLOAT;
      ph.floatFmt = FLOATFMT_EXP;
      return true;
    case 'g':
    case 'G':
      ph.kind = SUBSTYPE_FLOAT;
      ph.floatFmt = FLOATFMT_GENERAL;
      return true;
    default:
      return false;
  }
}

void UsePlaceholder(PRIV& p, const Placeholder& ph) {
  p.signC = ph.sign;
  p.alignC = ph.align;
  p.fillC = ph.fill;
  p.baseC = static_cast<uint8_t>(ph.base);
  p.floatC = ph.floatFmt;
  p.precC = static_cast<int16_t>(ph.precision);
  p.widthC = static_cast<uint8_t>(ph.width);
}

// The first "%" placeholder from the percent scan position on that suits type.
// The scan position moves to the first "%" seen, suitable or not.
bool FindPercent(PRIV& p, SUBSTYPE type, int& first, int& last) {
  const unsigned short* t = p.text;
  const int len = p.length;
  int pos = NextUnit(t, len, p.percentScan, '%');
  p.percentScan = pos;
  while (pos < len) {
    Placeholder ph;
    int conv = ParsePercent(t, len, pos, ph);
    if (conv < len && Classify(t[conv], ph) && (type == SUBSTYPE_ANY || type == ph.kind)) {
      UsePlaceholder(p, ph);
      first = pos;
      last = conv;
      return true;
    }
    pos = NextUnit(t, len, conv + 1, '%');
  }
  return false;
}

// The "$n" with the lowest n below 1000 (the first of equals) from the dollar
// scan position on. Leaves first and last alone if there is none.
void FindDollar(PRIV& p, int& first, int& last) {
  const unsigned short* t = p.text;
  const int len = p.length;
  int pos = NextUnit(t, len, p.dollarScan, '$');
  p.dollarScan = pos;
  int best = 1000;
  for (; pos < len; pos = NextUnit(t, len, pos + 1, '$')) {
    int i = pos + 1;
    int number = 0;
    if (i >= len || !IsDigit(t[i])) continue;
    for (; i < len && IsDigit(t[i]) && number <= 999; ++i) number = number * 10 + (t[i] - '0');
    if (number < best) {
      best = number;
      first = pos;
      last = i - 1;
    }
  }
}

// After a value of n units went in at first: fill up to the current width,
// before the value or behind it.
void PadValue(PRIV& p, int first, int n, bool fillBefore) {
  if (n >= p.widthC) return;
  p.Insert(fillBefore ? first : first + n, p.fillC, p.widthC - n);
}

// Units into the slot FindSubs gave; first at the length appends.
int PutUnits(PRIV& p, int first, int last, const unsigned short* s, int n) {
  if (first >= p.length) return p.ReplaceUnits(p.length, p.length - 1, s, n);
  return p.ReplaceUnits(first, std::min(last, p.length - 1), s, n);
}

// A string value (text left-aligned unless alignment 1 asks otherwise).
void InsertUnits(PRIV& p, SUBSTYPE type, const unsigned short* s, int n) {
  int first, last;
  p.FindSubs(type, first, last);
  if (PutUnits(p, first, last, s, n) < 0) return;
  PadValue(p, first, n, p.alignC == 1);
}

void InsertNarrow(PRIV& p, const char* s) {
  int first, last;
  p.FindSubs(SUBSTYPE_STRING, first, last);
  size_t n = s ? strlen(s) : 0;
  if (p.Replace(first, std::max(last, first), s) < 0) return;  // also too long: recorded
  PadValue(p, first, static_cast<int>(n), p.alignC == 1);
}

// An integer beyond 32 bits: its nearest double, rounded, as a string that only
// a "$n" placeholder or the end can take.
void InsertRounded(PRIV& p, double value) {
  char buf[64];
  {
    C_LOCALE_SCOPE c;
    snprintf(buf, sizeof buf, "%.0f", value);
  }
  ++p.percentSuspend;
  InsertNarrow(p, buf);
  --p.percentSuspend;
}

// Unsigned digits in the current base into the slot, numbers right-aligned
// unless alignment 2 asks otherwise.
void PutDigits(PRIV& p, int first, int last, uint32_t value) {
  static const char kDigits[] = "0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZ";
  const uint32_t base = (p.baseC >= 2 && p.baseC <= 36) ? p.baseC : 10;
  unsigned short digits[33];
  int n = sizeof digits / sizeof digits[0];
  int start = n;
  do {
    digits[--start] = static_cast<unsigned char>(kDigits[value % base]);
    value /= base;
  } while (value);
  n -= start;
  if (PutUnits(p, first, last, digits + start, n) < 0) return;
  PadValue(p, first, n, p.alignC != 2);
}

// The words for yes and no in three letter cases, fetched together on the
// first use from any thread and only read after that: handles on them are
// never copied, so no count of theirs changes. They are kept for the life of
// the process, for values formatted by exit handlers too.
const VOSTRING& BoolWord(bool value, int style) {
  static const int kIds[6] = {9500, 9501, 9502, 8403, 8404, 8405};
  static VOSTRING* s_words = nullptr;
  static std::once_flag s_fetched;
  std::call_once(s_fetched, [] {
    s_words = new (std::nothrow) VOSTRING[6];
    if (s_words)
      for (int i = 0; i < 6; ++i) s_words[i] = TEXTRES::GetString(kIds[i]);
  });
  if (!s_words) return VOSTRING::GetEmpty();
  return s_words[(value ? 0 : 3) + std::min(std::max(style, 0), 2)];
}

}  // namespace

// ---------------------------------------------------------------- the engine

int VOSTRING::PRIV::FindSubs(SUBSTYPE type, int& first, int& last) {
  signC = signP;
  alignC = alignP;
  precC = precP;
  widthC = widthP;
  baseC = baseP;
  fillC = fillP;
  floatC = floatP;
  first = last = length;
  if (substOff) return 0;
  if (percentSuspend == 0 && FindPercent(*this, type, first, last)) return 1;
  first = last = length;
  FindDollar(*this, first, last);
  // A width set by the caller lasts for one insertion. A "%" placeholder
  // brings its own width and leaves the caller's for the next value.
  widthP = 0;
  return first < length ? 1 : 0;
}

void VOSTRING::PRIV::FillSubs() {
  int first, last;
  while (FindSubs(SUBSTYPE_ANY, first, last))
    if (Replace(first, last, "???") < 0) break;
}

void VOSTRING::PRIV::InsertText(const unsigned short* s, int n) {
  InsertUnits(*this, SUBSTYPE_STRING, s, n);
}

void VOSTRING::PRIV::FormatSigned(int32_t value) {
  int first, last;
  FindSubs(SUBSTYPE_INTEGER, first, last);
  // Other bases show the bit pattern, without a minus sign. The slot found is
  // kept: searching again would lose a one-shot width already used up.
  if (baseC != 10) {
    PutDigits(*this, first, last, static_cast<uint32_t>(value));
    return;
  }
  char fmt[16];
  char* f = fmt;
  *f++ = '%';
  if (signC) *f++ = '+';
  if (fillC == '0') *f++ = '0';
  if (widthC) f += snprintf(f, 4, "%d", std::min<int>(widthC, kMaxSignedWidth));
  *f++ = 'd';
  *f = 0;
  char buf[64];
  snprintf(buf, sizeof buf, fmt, static_cast<int>(value));
  Replace(first, std::max(last, first), buf);
}

void VOSTRING::PRIV::FormatUnsigned(uint32_t value) {
  int first, last;
  FindSubs(SUBSTYPE_INTEGER, first, last);
  PutDigits(*this, first, last, value);
}

void VOSTRING::PRIV::FormatFloat(double value) {
  int first, last;
  FindSubs(SUBSTYPE_FLOAT, first, last);
  char fmt[24];
  char* f = fmt;
  *f++ = '%';
  if (signC) *f++ = '+';
  if (fillC == '0') *f++ = '0';
  if (widthC) f += snprintf(f, 4, "%d", static_cast<int>(widthC));
  if (precC >= 0) f += snprintf(f, 7, ".%d", std::min<int>(precC, kMaxFloatPrecision));
  *f++ = floatC == FLOATFMT_GENERAL ? 'G' : floatC == FLOATFMT_EXP ? 'E' : 'f';
  *f = 0;
  char buf[kFloatBufSize];
  {
    C_LOCALE_SCOPE c;  // a point, never a comma
    snprintf(buf, sizeof buf, fmt, value);
  }
  Replace(first, std::max(last, first), buf);
}

void VOSTRING::PRIV::FormatInt64(int64_t value) {
  if (value >= INT32_MIN && value <= INT32_MAX) {
    FormatSigned(static_cast<int32_t>(value));
  } else {
    InsertRounded(*this, static_cast<double>(value));
  }
}

void VOSTRING::PRIV::Insert(int pos, unsigned short c, int count) {
  if (pos < 0 || pos > length || c == 0 || count < 1 || count > kMaxPadCount) return;
  unsigned short fill[kMaxPadCount];
  std::fill(fill, fill + count, c);
  ReplaceUnits(pos, pos - 1, fill, count);
}

int VOSTRING::PRIV::Replace(int first, int last, const char* text) {
  if (first < 0 || first > length || last < first) return 0;
  // At the end the range is empty and the text is appended.
  last = first == length ? first - 1 : std::min(last, length - 1);
  size_t n = text ? strlen(text) : 0;
  if (n > kMaxNarrow) {
    int rc = SETERR(VOERROR_OutOfMemory);
    GetErrString() << static_cast<unsigned long long>(n) * 2 + 4;
    return rc;
  }
  unsigned short stackUnits[kNarrowStackUnits] = {};
  unsigned short* units = stackUnits;
  if (n > kNarrowStackUnits) {
    void* block = nullptr;
    int rc = MmAlloc(&block, n * sizeof(unsigned short));
    if (rc < 0) return PASSERR(rc);
    units = static_cast<unsigned short*>(block);
  }
  for (size_t i = 0; i < n; ++i) units[i] = static_cast<unsigned char>(text[i]);
  int rc = ReplaceUnits(first, last, units, static_cast<int>(n));
  if (units != stackUnits) free(units);
  return rc;
}

// ---------------------------------------------------------------- operator<<

VOSTRING& VOSTRING::operator<<(STR_OP op) {
  if (!MakeExclusive()) return *this;
  PRIV& p = *m_priv;
  const int v = static_cast<int>(op);
  if (v == STR_CLEAR) {
    Clear();
  } else if (v >= STR_BOOL_LOWER && v <= STR_BOOL_UPPER) {
    p.boolStyle = v - STR_BOOL_LOWER;
  } else if (v >= STR_ALIGN_LEFT && v <= STR_ALIGN_DEFAULT) {
    p.alignP = v == STR_ALIGN_LEFT ? 2 : v == STR_ALIGN_RIGHT ? 1 : 0;
  } else if (v == STR_FILLSUBS) {
    p.FillSubs();
  } else if (v >= STR_FLOAT_EXP && v <= STR_FLOAT_GENERAL) {
    p.floatP = STR_FLOAT_GENERAL - v;
  } else if (v >= STR_BASE2 && v <= STR_BASE16) {
    p.baseP = v == STR_BASE2 ? 2 : v == STR_BASE10 ? 10 : 16;
  } else if (v == STR_FILL_SPACE || v == STR_FILL_ZERO) {
    p.fillP = v == STR_FILL_SPACE ? ' ' : '0';
  } else if (v >= STR_PREC_NONE && v <= STR_PREC16) {
    p.precP = static_cast<int16_t>(v - STR_PREC0);
  } else if (v >= STR_WIDTH0 && v <= STR_WIDTH15) {
    p.widthP = static_cast<uint8_t>(v - STR_WIDTH0);
  }
  m_text = m_priv->text;
  return *this;
}

VOSTRING& VOSTRING::operator<<(bool value) {
  if (!MakeExclusive()) return *this;
  // Read in place: our body is exclusive now, so it is not the word's.
  const VOSTRING& word = BoolWord(value, m_priv->boolStyle);
  m_priv->InsertText(word.m_priv->text, word.m_priv->length);
  m_text = m_priv->text;
  return *this;
}

VOSTRING& VOSTRING::operator<<(char value) {
  if (!MakeExclusive()) return *this;
  // A zero would end the text early: it fills the slot with nothing.
  unsigned short unit = static_cast<unsigned char>(value);
  InsertUnits(*m_priv, SUBSTYPE_CHAR, &unit, unit ? 1 : 0);
  m_text = m_priv->text;
  return *this;
}

VOSTRING& VOSTRING::operator<<(signed char value) {
  return *this << static_cast<int>(value);
}
VOSTRING& VOSTRING::operator<<(short value) {
  return *this << static_cast<int>(value);
}

VOSTRING& VOSTRING::operator<<(int value) {
  if (!MakeExclusive()) return *this;
  m_priv->FormatSigned(static_cast<int32_t>(value));
  m_text = m_priv->text;
  return *this;
}

VOSTRING& VOSTRING::operator<<(long value) {
  return *this << static_cast<long long>(value);
}

VOSTRING& VOSTRING::operator<<(unsigned char value) {
  return *this << static_cast<unsigned int>(value);
}

VOSTRING& VOSTRING::operator<<(unsigned short value) {
  return *this << static_cast<unsigned int>(value);
}

VOSTRING& VOSTRING::operator<<(unsigned int value) {
  if (!MakeExclusive()) return *this;
  m_priv->FormatUnsigned(static_cast<uint32_t>(value));
  m_text = m_priv->text;
  return *this;
}

VOSTRING& VOSTRING::operator<<(unsigned long value) {
  // Within 32 bits an unsigned long is the 32-bit unsigned it stands for.
  if (value <= UINT32_MAX) return *this << static_cast<unsigned int>(value);
  return *this << static_cast<unsigned long long>(value);
}

VOSTRING& VOSTRING::operator<<(long long value) {
  if (!MakeExclusive()) return *this;
  m_priv->FormatInt64(static_cast<int64_t>(value));
  m_text = m_priv->text;
  return *this;
}

VOSTRING& VOSTRING::operator<<(unsigned long long value) {
  if (!MakeExclusive()) return *this;
  // Unsigned values above INT32_MAX take the 64-bit route, and those above
  // INT64_MAX keep their unsigned magnitude rather than turning negative.
  if (value <= INT32_MAX) {
    m_priv->FormatUnsigned(static_cast<uint32_t>(value));
  } else {
    InsertRounded(*m_priv, static_cast<double>(value));
  }
  m_text = m_priv->text;
  return *this;
}

VOSTRING& VOSTRING::operator<<(float value) {
  return *this << static_cast<double>(value);
}

VOSTRING& VOSTRING::operator<<(double value) {
  if (!MakeExclusive()) return *this;
  m_priv->FormatFloat(value);
  m_text = m_priv->text;
  return *this;
}

VOSTRING& VOSTRING::operator<<(const char* value) {
  if (!MakeExclusive()) return *this;
  InsertNarrow(*m_priv, value);
  m_text = m_priv->text;
  return *this;
}

VOSTRING& VOSTRING::operator<<(const unsigned short* value) {
  if (!MakeExclusive()) return *this;
  // A pointer into our own text is safe: ReplaceUnits copies such a source.
  m_priv->InsertText(value, value ? ucstrlen(value) : 0);
  m_text = m_priv->text;
  return *this;
}

VOSTRING& VOSTRING::operator<<(const char16_t* value) {
  return *this << reinterpret_cast<const unsigned short*>(value);
}

VOSTRING& VOSTRING::operator<<(const VOSTRING& value) {
  // Holding a handle keeps the value's body alive and unchanged while ours is
  // edited, also when value is this very string.
  VOSTRING keep(value);
  if (!MakeExclusive()) return *this;
  const PRIV& v = *keep.m_priv;
  m_priv->InsertText(v.text, v.text ? v.length : 0);
  m_text = m_priv->text;
  return *this;
}

VOSTRING& VOSTRING::operator<<(TEXTID id) {
  if (!MakeExclusive()) return *this;
  VOSTRING text = TEXTRES::GetString(id);
  m_priv->InsertText(text.m_priv->text, text.m_priv->text ? text.m_priv->length : 0);
  m_text = m_priv->text;
  return *this;
}

// ---------------------------------------------------------------- settings

VOSTRING& VOSTRING::FmtEnableSubstitution(bool on) {
  if (MakeExclusive()) m_priv->substOff = on ? 0 : 1;
  return *this;
}

VOSTRING& VOSTRING::FmtSetBase(int base) {
  if (base >= 2 && base <= 36 && MakeExclusive()) m_priv->baseP = static_cast<uint8_t>(base);
  return *this;
}

VOSTRING& VOSTRING::FmtSetFill(unsigned short fill) {
  if (MakeExclusive()) m_priv->fillP = fill;
  return *this;
}

VOSTRING& VOSTRING::FmtSetFloat(FLOATFMT fmt) {
  if (MakeExclusive()) m_priv->floatP = fmt;
  return *this;
}

VOSTRING& VOSTRING::FmtSetPrecision(int precision) {
  // Any negative value means "none"; the field holds 16 bits.
  if (MakeExclusive())
    m_priv->precP = static_cast<int16_t>(precision < 0 ? -1 : std::min(precision, kMaxPrecision));
  return *this;
}

VOSTRING& VOSTRING::FmtSetSign(bool on) {
  if (MakeExclusive()) m_priv->signP = on ? 1 : 0;
  return *this;
}

VOSTRING& VOSTRING::FmtSetWidth(int width) {
  // Clamped into the 0 to 255 that the field holds.
  if (MakeExclusive())
    m_priv->widthP = static_cast<uint8_t>(std::min(std::max(width, 0), kMaxWidth));
  return *this;
}

VOSTRING& VOSTRING::FillSubs() {
  if (!MakeExclusive()) return *this;
  m_priv->FillSubs();
  m_text = m_priv->text;
  return *this;
}
