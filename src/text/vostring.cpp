// VOSTRING: construction, sharing, editing, searching, comparing and line ends.
// Formatting lives in vostring_format.cpp, encoded text in vostring_encoded.cpp.
static const char s_ident[] = "@(#) vostring.cpp 1.0";

#include "vosystem/vostring.h"

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <new>

#include "foundation/clocale.h"
#include "foundation/errpos.h"
#include "text/ucstring_priv.h"
#include "text/unitscan_priv.h"
#include "text/vostring_priv.h"
#include "vosystem/memfunc.h"
#include "vosystem/textres.h"
#include "vosystem/ucconv.h"
#include "vosystem/ucstring.h"

using PRIV = VOSTRING::PRIV;

unsigned short VOSTRING::PRIV::s_zero = 0;

namespace {

const int kEmptyUnits = 16;
const unsigned short kCR = 0x0D;
const unsigned short kLF = 0x0A;

// The largest text a body can hold: its capacity in bytes must fit an int.
const int64_t kMaxUnits = (INT32_MAX - 4) / 2;

// A block that isn't ours to free: the fallback text of a body whose own
// block could not be had.
unsigned short s_noText[1] = {0};

bool IsInBlock(const PRIV* p, const unsigned short* s) {
  return s && p->capacity > 0 && s >= p->text &&
         s < p->text + static_cast<size_t>(p->capacity) / sizeof(unsigned short);
}

void FreeText(PRIV* p) {
  if (p->capacity > 0) free(p->text);
  p->text = s_noText;
  p->capacity = 0;
  p->length = 0;
}

// A new body whose block holds `units` units, zeroed; null if memory is out.
PRIV* NewBody(int units) {
  PRIV* p = new (std::nothrow) PRIV;
  if (!p) {
    int rc = SETERR(VOERROR_OutOfMemory);
    GetErrString() << static_cast<unsigned long>(sizeof(PRIV));
    (void)rc;
    return nullptr;
  }
  void* block = nullptr;
  if (MmAllocC(&block, static_cast<unsigned long>(units) * sizeof(unsigned short)) < 0) {
    delete p;
    return nullptr;
  }
  p->text = static_cast<unsigned short*>(block);
  p->capacity = units * static_cast<int>(sizeof(unsigned short));
  return p;
}

// The immortal empty body is neither counted nor freed.
void ReleaseBody(PRIV* p) {
  if (p->refs > 1) {
    --p->refs;
  } else if (p->refs == 1) {
    FreeText(p);
    delete p;
  }
}

void ShareBody(PRIV* p) {
  if (!p->IsImmortal()) ++p->refs;
}

PRIV* ShareEmpty() {
  return PRIV::GetEmpty();
}

// n units of a caller's text as a body's length, or -1 with the failure
// recorded when no body can hold them: nothing is ever cut silently.
int BodyUnits(size_t n) {
  if (n <= static_cast<size_t>(kMaxUnits)) return static_cast<int>(n);
  int rc = SETERR(VOERROR_OutOfMemory);
  GetErrString() << static_cast<unsigned long long>(n) * 2 + 4;
  (void)rc;
  return -1;
}

int ClipLast(int last, int length) {
  return last >= length ? length - 1 : last;
}

// Index of the first unit equal to c in s[from, to), or -1. By vectors
// (unitscan_priv.h): searching is on the hot path of parsers built on the
// string class.
int FindUnit(const unsigned short* s, int from, int to, unsigned short c) {
  if (from >= to) return -1;
  const size_t n = static_cast<size_t>(to - from);
  const size_t i = unitscan::Find(s + from, n, c);
  return i == n ? -1 : from + static_cast<int>(i);
}

// Appending into spare room of a private body is the common case of building
// a string piece by piece: done here without the general edit's bookkeeping.
bool TryAppendInPlace(PRIV* p, const unsigned short* s, int n) {
  if (!p->IsExclusive() || IsInBlock(p, s)) return false;
  if (2 * (static_cast<int64_t>(p->length) + n) + 4 > p->capacity) return false;
  unsigned short* at = p->text + p->length;
  memcpy(at, s, static_cast<size_t>(n) * sizeof(unsigned short));
  at[n] = 0;
  p->length += n;
  return true;
}

// The result of ucstrncmp(a, b, n) for texts of known lengths, found by
// vectors (unitscan_priv.h): no unit past the shorter text's terminator is
// read, nor needed, since by then the comparison has ended.
int CompareKnown(const unsigned short* a, int aLength, const unsigned short* b, int bLength,
                 int n) {
  if (n <= 0) return 0;
  const size_t shorter = static_cast<size_t>(std::min(aLength, bLength)) + 1;
  const size_t m = std::min(static_cast<size_t>(n), shorter);
  const size_t i = unitscan::CompareEnd(a, b, m);
  return i == m ? 0 : a[i] - b[i];
}

// Puts the bytes of s, widened, in place of the body's text from `at` on
// (at <= length), reusing the block. False if no room could be had (nothing
// changed then); a null s leaves the text cut at `at`.
bool WidenInto(PRIV* p, int at, const char* s) {
  const int n = BodyUnits(static_cast<size_t>(at) + (s ? strlen(s) : 0)) - at;
  if (n < 0 || p->Reserve(at + n) < 0) return false;
  unsigned short* out = p->text + at;
  for (int i = 0; i < n; ++i) out[i] = static_cast<unsigned char>(s[i]);
  out[n] = 0;
  p->length = at + n;
  return true;
}

bool InSet(const VOSTRING& set, unsigned short c) {
  const unsigned short* p = set;
  for (; *p; ++p)
    if (*p == c) return true;
  return false;
}

}  // namespace

// ---------------------------------------------------------------- the body

namespace {
// Never written: every change of a handle on the empty body goes to a body of
// its own first, and Reserve does not grow this one.
unsigned short s_emptyText[kEmptyUnits] = {};
PRIV s_emptyBody = {PRIV::kImmortal, s_emptyText, 0, kEmptyUnits * 2};
}  // namespace

VOSTRING::PRIV* VOSTRING::PRIV::GetEmpty() {
  return &s_emptyBody;
}

VOSTRING::PRIV* VOSTRING::PRIV::Create(const unsigned short* s, int n) {
  // Two spare units, so that a short append after construction needs no
  // reallocation.
  PRIV* p = NewBody(n > 0 ? n + 2 : kEmptyUnits);
  if (!p) return ShareEmpty();
  if (n > 0) memcpy(p->text, s, static_cast<size_t>(n) * sizeof(unsigned short));
  p->length = n;
  return p;
}

VOSTRING::PRIV* VOSTRING::PRIV::CreateWidened(const char* s, int n) {
  PRIV* p = NewBody(n > 0 ? n + 2 : kEmptyUnits);
  if (!p) return ShareEmpty();
  for (int i = 0; i < n; ++i) p->text[i] = static_cast<unsigned char>(s[i]);
  p->length = n;
  return p;
}

int VOSTRING::PRIV::Reserve(int n) {
  int64_t need = 2 * static_cast<int64_t>(n) + 4;
  if (need <= capacity) return 0;
  if (n > kMaxUnits) {
    int rc = SETERR(VOERROR_OutOfMemory);
    GetErrString() << static_cast<unsigned long>(need);
    return rc;
  }
  if (capacity > 0 && length > 0) {
    int64_t size = std::min<int64_t>(std::max<int64_t>(need, 2 * static_cast<int64_t>(capacity)),
                                     2 * kMaxUnits + 4);
    void* block = text;
    int rc = MmRealloc(&block, static_cast<unsigned long>(size));
    if (rc < 0) return PASSERR(rc);
    text = static_cast<unsigned short*>(block);
    capacity = static_cast<int>(size);
    return 0;
  }
  // Nothing worth keeping. The new block is had before the old one goes, so
  // that a failure leaves the body as it was.
  void* block = nullptr;
  int rc = MmAlloc(&block, static_cast<unsigned long>(need));
  if (rc < 0) return PASSERR(rc);
  if (capacity > 0) free(text);
  text = static_cast<unsigned short*>(block);
  text[0] = 0;
  length = 0;
  capacity = static_cast<int>(need);
  return 0;
}

int VOSTRING::PRIV::ReplaceUnits(int first, int last, const unsigned short* src, int n) {
  if (n > 0 && IsInBlock(this, src)) {
    // The source lies in our own block, which the edit may move or
    // overwrite: work from a copy.
    void* block = nullptr;
    int rc = MmAlloc(&block, static_cast<unsigned long>(n) * sizeof(unsigned short));
    if (rc < 0) return PASSERR(rc);
    unsigned short* copy = static_cast<unsigned short*>(block);
    memcpy(copy, src, static_cast<size_t>(n) * sizeof(unsigned short));
    rc = ReplaceUnits(first, last, copy, n);
    free(copy);
    return rc;
  }
  int removed = last - first + 1;
  int64_t newLength = static_cast<int64_t>(length) - removed + n;
  int rc = Reserve(static_cast<int>(std::min<int64_t>(newLength, kMaxUnits + 1)));
  if (rc < 0) return rc;
  memmove(text + first + n, text + last + 1,
          static_cast<size_t>(length - last) * sizeof(unsigned short));  // with terminator
  if (n > 0) memcpy(text + first, src, static_cast<size_t>(n) * sizeof(unsigned short));
  length = static_cast<int>(newLength);
  LowerScans(first);
  return 0;
}

void VOSTRING::PRIV::SetInPlace(VOSTRING& s, const unsigned short* text, int n) {
  if (s.MakeExclusive()) {
    PRIV& p = *s.m_priv;
    if (p.ReplaceUnits(0, p.length - 1, text, n) < 0 && p.length > 0) {
      p.length = 0;
      p.text[0] = 0;
    }
    const PRIV fresh;
    p.dollarScan = p.percentScan = 0;
    p.substOff = fresh.substOff;
    p.signP = p.signC = fresh.signP;
    p.alignP = p.alignC = fresh.alignP;
    p.percentSuspend = fresh.percentSuspend;
    p.precP = p.precC = fresh.precP;
    p.widthP = p.widthC = fresh.widthP;
    p.baseP = p.baseC = fresh.baseP;
    p.fillP = p.fillC = fresh.fillP;
    p.floatP = p.floatC = fresh.floatP;
    p.boolStyle = fresh.boolStyle;
  }
  s.m_text = s.m_priv->text;
}

// ---------------------------------------------------------------- handles

void VOSTRING::Attach(PRIV* body) {
  m_priv = body;
  m_text = body->text;
}

VOSTRING::VOSTRING() {
  Attach(ShareEmpty());
}

VOSTRING::VOSTRING(PRIV* body) {
  Attach(body);
}

VOSTRING::VOSTRING(const VOSTRING& other) {
  ShareBody(other.m_priv);
  Attach(other.m_priv);
}

VOSTRING::VOSTRING(const unsigned short* s) {
  const int n = BodyUnits(s ? UcLength(s) : 0);
  Attach(n < 0 ? ShareEmpty() : PRIV::Create(s, n));
}

VOSTRING::VOSTRING(const char16_t* s) : VOSTRING(reinterpret_cast<const unsigned short*>(s)) {}

VOSTRING::VOSTRING(const char* s) {
  const int n = BodyUnits(s ? strlen(s) : 0);
  Attach(n < 0 ? ShareEmpty() : PRIV::CreateWidened(s, n));
}

VOSTRING::VOSTRING(int value) {
  Attach(PRIV::Create(nullptr, 0));
  *this << value;
}

VOSTRING::VOSTRING(unsigned int value) {
  Attach(PRIV::Create(nullptr, 0));
  *this << value;
}

VOSTRING::VOSTRING(double value) {
  Attach(PRIV::Create(nullptr, 0));
  *this << value;
}

VOSTRING::VOSTRING(TEXTID id) : VOSTRING(TEXTRES::GetString(id)) {}

VOSTRING::~VOSTRING() {
  ReleaseBody(m_priv);
}

const VOSTRING& VOSTRING::GetEmpty() {
  static const VOSTRING s_empty;
  return s_empty;
}

void VOSTRING::GetExclusive() {
  MakeExclusive();
}

// Makes a block of the C heap (length units and a terminator) the string's
// text, as an assignment of it would, persistent format included, without
// copying it: decoders and settings readers build text in a block of their
// own. The block is the string's, or freed, on every path; 1, or 0 when the
// text is empty or the string couldn't be made its own (it is then empty).
int VOSTRING::TakeText(unsigned short* block, int length) {
  if (length <= 0 || length > kMaxUnits || !block || !MakeExclusive()) {
    free(block);
    Clear();
    return 0;
  }
  free(m_priv->text);
  m_priv->text = block;
  m_priv->length = length;
  m_priv->capacity = (length + 1) * static_cast<int>(sizeof(unsigned short));
  m_priv->LowerScans(0);
  m_text = block;
  return 1;
}

bool VOSTRING::MakeExclusive() {
  if (m_priv->IsExclusive()) return true;
  const PRIV& old = *m_priv;
  PRIV* copy = NewBody(old.length > 0 ? old.length + 1 : kEmptyUnits);
  if (!copy) return false;  // recorded; the shared body must stay untouched
  memcpy(copy->text, old.text, static_cast<size_t>(old.length) * sizeof(unsigned short));
  copy->length = old.length;
  // The persistent format travels with the text; the current values and the
  // scan positions start afresh.
  copy->substOff = old.substOff;
  copy->percentSuspend = old.percentSuspend;
  copy->signP = old.signP;
  copy->alignP = old.alignP;
  copy->precP = old.precP;
  copy->widthP = old.widthP;
  copy->baseP = old.baseP;
  copy->fillP = old.fillP;
  copy->floatP = old.floatP;
  copy->boolStyle = old.boolStyle;
  ReleaseBody(m_priv);
  Attach(copy);
  return true;
}

// ---------------------------------------------------------------- reading

VOSTRING::operator const unsigned short*() const {
  return m_priv->text;
}
const unsigned short* VOSTRING::GetReference() const {
  return m_priv->text;
}

const unsigned short& VOSTRING::operator[](int index) const {
  if (index < 0 || index > m_priv->length) return PRIV::s_zero;
  return m_priv->text[index];
}

int VOSTRING::GetLength() const {
  return m_priv->length;
}
bool VOSTRING::IsEmpty() const {
  return m_priv->length == 0;
}
unsigned short* VOSTRING::GetString() const {
  return ucstrdup(m_priv->text);
}

double VOSTRING::ConvertToDouble() const {
  char* narrow = GetEncoded(CHAR_ENCODING_ASCII);
  double value = narrow ? CStrtod(narrow, nullptr) : 0.0;  // as atof, in the C locale
  free(narrow);
  return value;
}

VOSTRING VOSTRING::GetSubString(int first) const {
  return GetSubString(first, 0x7FFFFFFF);
}

VOSTRING VOSTRING::GetSubString(int first, int last) const {
  const int length = m_priv->length;
  if (first < 0 || first >= length || last < first) return VOSTRING();
  last = ClipLast(last, length);
  return VOSTRING(PRIV::Create(m_priv->text + first, last - first + 1));
}

// ---------------------------------------------------------------- comparing

int VOSTRING::Compare(const VOSTRING& other) const {
  return CompareKnown(m_priv->text, m_priv->length, other.m_priv->text, other.m_priv->length,
                      INT32_MAX);
}

int VOSTRING::Compare(const VOSTRING& other, int n) const {
  return CompareKnown(m_priv->text, m_priv->length, other.m_priv->text, other.m_priv->length, n);
}

int VOSTRING::Compare(int pos, const VOSTRING& other, int otherpos, int n) const {
  if (pos < 0 || pos > m_priv->length) return -1;
  if (otherpos < 0 || otherpos > other.m_priv->length) return 1;
  return CompareKnown(m_priv->text + pos, m_priv->length - pos, other.m_priv->text + otherpos,
                      other.m_priv->length - otherpos, n);
}

int VOSTRING::CompareNoCase(const VOSTRING& other) const {
  return ucstricmp(m_priv->text, other.m_priv->text);
}

int VOSTRING::CompareNoCase(const VOSTRING& other, int n) const {
  return ucstrnicmp(m_priv->text, other.m_priv->text, n);
}

int VOSTRING::CompareNoCase(int pos, const VOSTRING& other, int otherpos, int n) const {
  if (pos < 0 || pos > m_priv->length) return -1;
  if (otherpos < 0 || otherpos > other.m_priv->length) return 1;
  return ucstrnicmp(m_priv->text + pos, other.m_priv->text + otherpos, n);
}

// ---------------------------------------------------------------- searching

int VOSTRING::FindNextOf(unsigned short c, int start) const {
  if (start < 0 || start >= m_priv->length) return -1;
  return FindUnit(m_priv->text, start, m_priv->length, c);
}

int VOSTRING::FindNextOf(const VOSTRING& str, int start) const {
  if (start < 0 || start >= m_priv->length) return -1;
  const unsigned short* pat = str.m_priv->text;
  const int patLength = str.m_priv->length;
  if (patLength == 0) return start;
  if (patLength == 1) return FindUnit(m_priv->text, start, m_priv->length, pat[0]);
  // Places where the pattern's first and last units both match, found by
  // vectors; the units between are compared there.
  const unsigned short* s = m_priv->text;
  const int lastStart = m_priv->length - patLength;
  const size_t gap = static_cast<size_t>(patLength) - 1;
  for (int i = start; i <= lastStart; ++i) {
    const size_t n = static_cast<size_t>(lastStart + 1 - i);
    const size_t k = unitscan::FindPair(s + i, n, pat[0], pat[gap], gap);
    if (k == n) return -1;
    i += static_cast<int>(k);
    if (memcmp(s + i + 1, pat + 1, (gap - 1) * sizeof(unsigned short)) == 0) return i;
  }
  return -1;
}

int VOSTRING::FindNextInSet(const VOSTRING& set, int start) const {
  if (start < 0) return -1;
  for (int i = start; i < m_priv->length; ++i)
    if (InSet(set, m_priv->text[i])) return i;
  return -1;
}

int VOSTRING::FindNextNotInSet(const VOSTRING& set, int start) const {
  if (start < 0) return -1;
  for (int i = start; i < m_priv->length; ++i)
    if (!InSet(set, m_priv->text[i])) return i;
  return -1;
}

int VOSTRING::FindPrevOf(unsigned short c, int start) const {
  if (start < 0) return -1;
  for (int i = std::min(start, m_priv->length - 1); i >= 0; --i)
    if (m_priv->text[i] == c) return i;
  return -1;
}

int VOSTRING::FindPrevInSet(const VOSTRING& set, int start) const {
  if (start < 0) return -1;
  for (int i = std::min(start, m_priv->length - 1); i >= 0; --i)
    if (InSet(set, m_priv->text[i])) return i;
  return -1;
}

int VOSTRING::FindPrevNotInSet(const VOSTRING& set, int start) const {
  if (start < 0) return -1;
  for (int i = std::min(start, m_priv->length - 1); i >= 0; --i)
    if (!InSet(set, m_priv->text[i])) return i;
  return -1;
}

// ---------------------------------------------------------------- changing

// Every edit goes through here: unshare, put n units of src in the place of
// first..last, and refresh the mirror. 0 or a negative code (string unchanged).
int VOSTRING::ReplaceRange(int first, int last, const unsigned short* src, int n) {
  if (!MakeExclusive()) return VOERROR_OutOfMemory;
  int rc = m_priv->ReplaceUnits(first, last, src, n);
  m_text = m_priv->text;
  return rc;
}

VOSTRING& VOSTRING::operator=(const VOSTRING& other) {
  if (other.m_priv == m_priv) return *this;
  ShareBody(other.m_priv);  // before the release: other may hang on our body only
  ReleaseBody(m_priv);
  Attach(other.m_priv);
  return *this;
}

VOSTRING& VOSTRING::operator=(const unsigned short* s) {
  if (s == m_priv->text && s) return *this;
  const int n = BodyUnits(s ? UcLength(s) : 0);
  if (n >= 0 && ReplaceRange(0, m_priv->length - 1, s, n) == 0) m_priv->LowerScans(0);
  return *this;
}

VOSTRING& VOSTRING::operator=(const char16_t* s) {
  return *this = reinterpret_cast<const unsigned short*>(s);
}

VOSTRING& VOSTRING::operator=(const char* s) {
  if (MakeExclusive() && WidenInto(m_priv, 0, s)) m_priv->LowerScans(0);
  m_text = m_priv->text;
  return *this;
}

VOSTRING& VOSTRING::operator=(TEXTID id) {
  return *this = TEXTRES::GetString(id);
}

VOSTRING& VOSTRING::operator+=(const VOSTRING& s) {
  if (TryAppendInPlace(m_priv, s.m_priv->text, s.m_priv->length)) return *this;
  // The operand may be this very string: ReplaceUnits copies a source that
  // lies in the block it is about to move.
  ReplaceRange(m_priv->length, m_priv->length - 1, s.m_priv->text, s.m_priv->length);
  return *this;
}

VOSTRING& VOSTRING::operator+=(const unsigned short* s) {
  if (!s) return *this;
  const int n = BodyUnits(UcLength(s));
  if (n >= 0 && !TryAppendInPlace(m_priv, s, n))
    ReplaceRange(m_priv->length, m_priv->length - 1, s, n);
  return *this;
}

VOSTRING& VOSTRING::operator+=(const char* s) {
  if (s && MakeExclusive()) WidenInto(m_priv, m_priv->length, s);
  m_text = m_priv->text;
  return *this;
}

VOSTRING& VOSTRING::operator+=(unsigned short c) {
  if (c && !TryAppendInPlace(m_priv, &c, 1))
    ReplaceRange(m_priv->length, m_priv->length - 1, &c, 1);
  return *this;
}

int VOSTRING::Assign(const VOSTRING& src, int first, int last) {
  const int srcLength = src.m_priv->length;
  if (first < 0 || first >= srcLength || first > last) return 0;
  last = ClipLast(last, srcLength);
  int rc = ReplaceRange(0, m_priv->length - 1, src.m_priv->text + first, last - first + 1);
  if (rc == 0) m_priv->LowerScans(0);
  return rc;
}

int VOSTRING::Assign(const unsigned short* src, int first, int last) {
  if (!src || first < 0 || first > last) return 0;
  int start = 0;
  while (start < first && src[start]) ++start;
  const size_t most = static_cast<size_t>(last - first) + 1;
  size_t units = 0;
  if (start == first)  // else the text ends before the range: the result is empty
    while (units < most && src[first + units]) ++units;
  const int n = BodyUnits(units);
  if (n < 0) return VOERROR_OutOfMemory;
  int rc = ReplaceRange(0, m_priv->length - 1, src + first, n);
  if (rc == 0) m_priv->LowerScans(0);
  return rc;
}

int VOSTRING::Append(const VOSTRING& src, int first, int last) {
  const int srcLength = src.m_priv->length;
  if (first < 0 || first >= srcLength || first > last) return 0;
  last = ClipLast(last, srcLength);
  return ReplaceRange(m_priv->length, m_priv->length - 1, src.m_priv->text + first,
                      last - first + 1);
}

void VOSTRING::Clear() {
  if (!MakeExclusive()) return;
  m_priv->length = 0;
  m_priv->text[0] = 0;
  m_priv->dollarScan = m_priv->percentScan = 0;
}

void VOSTRING::Truncate(int len) {
  if (len < 0 || len >= m_priv->length || !MakeExclusive()) return;
  m_priv->length = len;
  m_priv->text[len] = 0;
  m_priv->LowerScans(len);
}

void VOSTRING::Remove(int first, int last) {
  if (first < 0 || first > last || first >= m_priv->length) return;
  ReplaceRange(first, ClipLast(last, m_priv->length), nullptr, 0);
}

void VOSTRING::Replace(int pos, unsigned short c) {
  if (pos < 0 || pos >= m_priv->length || c == 0 || !MakeExclusive()) return;
  m_priv->text[pos] = c;
  m_priv->LowerScans(pos);
}

void VOSTRING::Replace(int first, int last, const VOSTRING& src, int srcfirst, int srclast) {
  const int length = m_priv->length;
  if (first < 0 || first > length) return;
  // An empty target range (last below first, or first at the end) inserts.
  last = std::max(ClipLast(last, length), first - 1);
  const int srcLength = src.m_priv->length;
  if (srcfirst < 0 || srcfirst >= srcLength || srclast < srcfirst) {
    if (last >= first) ReplaceRange(first, last, nullptr, 0);
    return;
  }
  srclast = ClipLast(srclast, srcLength);
  ReplaceRange(first, last, src.m_priv->text + srcfirst, srclast - srcfirst + 1);
}

void VOSTRING::Insert(int pos, const VOSTRING& src, int first, int last) {
  const int srcLength = src.m_priv->length;
  if (pos < 0 || pos > m_priv->length) return;
  if (first < 0 || first >= srcLength || first > last) return;
  last = ClipLast(last, srcLength);
  ReplaceRange(pos, pos - 1, src.m_priv->text + first, last - first + 1);
}

int VOSTRING::Pad(unsigned short c, int n) {
  if (n <= 0 || c == 0) return 0;
  if (!MakeExclusive()) return VOERROR_OutOfMemory;
  if (n > kMaxUnits - m_priv->length) n = static_cast<int>(kMaxUnits - m_priv->length + 1);
  int rc = m_priv->Reserve(m_priv->length + n);
  if (rc == 0) {
    unsigned short* at = m_priv->text + m_priv->length;
    std::fill(at, at + n, c);
    at[n] = 0;
    m_priv->length += n;
  }
  m_text = m_priv->text;
  return rc;
}

int VOSTRING::PadToLength(unsigned short c, int len) {
  return len > m_priv->length ? Pad(c, len - m_priv->length) : 0;
}

void VOSTRING::SetLowerCase(int pos) {
  if (pos < 0 || pos > m_priv->length || !MakeExclusive()) return;
  ucstrlwr(m_priv->text + pos);
}

void VOSTRING::SetUpperCase(int pos) {
  if (pos < 0 || pos > m_priv->length || !MakeExclusive()) return;
  ucstrupr(m_priv->text + pos);
}

// A body shared with other handles grows for all of them, as they all see the
// text through it; the immortal empty body is the exception, since growing it
// would move the text of every default-constructed string in every thread.
int VOSTRING::Reserve(int units) {
  if (m_priv->IsImmortal() && 2 * static_cast<int64_t>(units) + 4 > m_priv->capacity &&
      !MakeExclusive())
    return VOERROR_OutOfMemory;
  int rc = m_priv->Reserve(units);
  m_text = m_priv->text;
  return rc;
}

// ---------------------------------------------------------------- line ends

namespace {

bool IsLineEnd(unsigned short c) {
  return c == kCR || c == kLF;
}

// The text with every line end of the other kind made `want`. A lone `other`
// becomes `want`; one that touches a `want` in the original text is part of a
// pair and goes. Judging by the original text keeps two old-style line ends in
// a row ("\r\r") as two lines instead of merging them.
int RewriteSingle(const unsigned short* t, int n, unsigned short want, unsigned short* out) {
  const unsigned short other = want == kLF ? kCR : kLF;
  int k = 0;
  for (int i = 0; i < n; ++i) {
    if (t[i] != other) {
      out[k++] = t[i];
    } else if (!((i + 1 < n && t[i + 1] == want) || (i > 0 && t[i - 1] == want))) {
      out[k++] = want;
    }
  }
  return k;
}

// Every line end made CR LF: a reversed pair is turned round, a lone unit of
// either kind gets its partner.
int RewriteCrLf(const unsigned short* t, int n, unsigned short* out) {
  int k = 0;
  for (int i = 0; i < n;) {
    if (!IsLineEnd(t[i])) {
      out[k++] = t[i++];
      continue;
    }
    bool pair = i + 1 < n && IsLineEnd(t[i + 1]) && t[i + 1] != t[i];
    out[k++] = kCR;
    out[k++] = kLF;
    i += pair ? 2 : 1;
  }
  return k;
}

}  // namespace

// 1 when done (also for a value that names no termination, which changes
// nothing), or the negative code of a failed allocation, the text unchanged.
int VOSTRING::SetLineTermination(LINETERM term) {
  if (term != LINETERM_LF && term != LINETERM_CR && term != LINETERM_CRLF) return 1;
  if (CheckLineTermination(term)) return 1;
  const int n = m_priv->length;
  void* block = nullptr;
  // CR LF at most doubles the text.
  int rc = MmAlloc(&block, (static_cast<unsigned long>(n) * 2 + 1) * sizeof(unsigned short));
  if (rc < 0) return PASSERR(rc);
  unsigned short* out = static_cast<unsigned short*>(block);
  const unsigned short* t = m_priv->text;
  int k = term == LINETERM_CRLF ? RewriteCrLf(t, n, out)
                                : RewriteSingle(t, n, term == LINETERM_LF ? kLF : kCR, out);
  int firstChange = 0;
  while (firstChange < n && firstChange < k && t[firstChange] == out[firstChange]) ++firstChange;
  rc = ReplaceRange(firstChange, n - 1, out + firstChange, k - firstChange);
  free(block);
  return rc < 0 ? PASSERR(rc) : 1;
}

int VOSTRING::CheckLineTermination(LINETERM term) const {
  const unsigned short* t = m_priv->text;
  const int n = m_priv->length;
  switch (term) {
    case LINETERM_LF:
      return FindUnit(t, 0, n, kCR) < 0;
    case LINETERM_CR:
      return FindUnit(t, 0, n, kLF) < 0;
    case LINETERM_CRLF:
      for (int i = 0; i < n; ++i) {
        if (t[i] == kLF) return 0;
        if (t[i] == kCR) {
          if (i + 1 >= n || t[i + 1] != kLF) return 0;
          ++i;
        }
      }
      return 1;
  }
  return 1;
}
