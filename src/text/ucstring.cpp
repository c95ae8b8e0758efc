// The string.h of null-terminated UTF-16 text, and the 8-bit strupr/strlwr.
//
// Nothing here knows about surrogate pairs: every function works on code
// units. The n forms stop at the source's terminator (writing one) or after n
// units (writing none); n <= 0 does nothing.
#include <cctype>
#include <climits>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "text/ucstring_priv.h"
#include "vosystem/ucstring.h"

namespace {

// Units with any of the upper 8 bits set narrow to this byte.
constexpr unsigned char kNarrowSubstitute = 127;

inline char NarrowUnit(unsigned short u) {
  return static_cast<char>(u > 0xFF ? kNarrowSubstitute : u);
}

inline unsigned short WidenByte(char c) {
  return static_cast<unsigned char>(c);
}

// ASCII-only folding: "a" to "z" become "A" to "Z".
inline int FoldUnit(unsigned short u) {
  return (u >= 'a' && u <= 'z') ? u - 32 : u;
}

unsigned short* EndOf(unsigned short* s) {
  while (*s) ++s;
  return s;
}

bool InSet(unsigned short u, const unsigned short* set) {
  for (; *set; ++set) {
    if (*set == u) return true;
  }
  return false;
}

// Copies at most n units of src to dst with the n-form terminator rule.
template <typename Dst, typename Src, typename Convert>
Dst* CopyAtMost(Dst* dst, const Src* src, int n, Convert convert) {
  for (Dst* d = dst; n > 0; --n) {
    *d = convert(*src);
    if (*src == 0) break;
    ++d;
    ++src;
  }
  return dst;
}

template <typename Fold>
int CompareAtMost(const unsigned short* a, const unsigned short* b, size_t n, Fold fold) {
  for (; n > 0; --n, ++a, ++b) {
    int diff = fold(*a) - fold(*b);
    if (diff != 0 || *a == 0) return diff;
  }
  return 0;
}

inline bool IsDigit(unsigned short u) {
  return u >= '0' && u <= '9';
}

// Reads "\" and one to five decimal digits at src; stores the narrowed value in
// *unit and returns the number of units read, or 0 if src holds no escape.
int ReadDecimalEscape(const unsigned short* src, unsigned short* unit) {
  if (src[0] != '\\' || !IsDigit(src[1])) return 0;
  unsigned value = 0;
  int len = 1;
  while (len <= 5 && IsDigit(src[len])) value = value * 10 + (src[len++] - '0');
  *unit = static_cast<unsigned short>(value);
  return len;
}

inline int SameUnit(unsigned short u) {
  return u;
}

}  // namespace

// Unit by unit, never reading past the terminator (the caller's block may
// end there, even inside an aligned word), four units to a loop so that the
// processor predicts four tests at once.
size_t UcLength(const unsigned short* s) {
  const unsigned short* p = s;
  for (;; p += 4) {
    if (!p[0]) return static_cast<size_t>(p - s);
    if (!p[1]) return static_cast<size_t>(p - s) + 1;
    if (!p[2]) return static_cast<size_t>(p - s) + 2;
    if (!p[3]) return static_cast<size_t>(p - s) + 3;
  }
}

extern "C" {

// ------------------------------------------------------------ copy, widen, narrow

unsigned short* strtouc(unsigned short* dst, const char* src) {
  unsigned short* d = dst;
  while ((*d++ = WidenByte(*src++)) != 0) {
  }
  return dst;
}

unsigned short* strntouc(unsigned short* dst, const char* src, int n) {
  return CopyAtMost(dst, src, n, WidenByte);
}

char* uctostr(char* dst, const unsigned short* src) {
  char* d = dst;
  while ((*d++ = NarrowUnit(*src++)) != 0) {
  }
  return dst;
}

char* ucntostr(char* dst, const unsigned short* src, int n) {
  return CopyAtMost(dst, src, n, NarrowUnit);
}

// A text longer than an int counts answers INT_MAX, never a negative or
// wrapped length that a caller would size a copy by.
int ucstrlen(const unsigned short* s) {
  const size_t n = UcLength(s);
  return n > INT_MAX ? INT_MAX : static_cast<int>(n);
}

unsigned short* ucstrcpy(unsigned short* dst, const unsigned short* src) {
  unsigned short* d = dst;
  while ((*d++ = *src++) != 0) {
  }
  return dst;
}

unsigned short* ucstrncpy(unsigned short* dst, const unsigned short* src, int n) {
  return CopyAtMost(dst, src, n, SameUnit);
}

unsigned short* ucstrcat(unsigned short* dst, const unsigned short* src) {
  ucstrcpy(EndOf(dst), src);
  return dst;
}

unsigned short* ucstrncat(unsigned short* dst, const unsigned short* src, int n) {
  if (n > 0) ucstrncpy(EndOf(dst), src, n);
  return dst;
}

unsigned short* strtouccat(unsigned short* dst, const char* src) {
  strtouc(EndOf(dst), src);
  return dst;
}

// ------------------------------------------------------------ compare
// The result is the difference of the first differing units; when one string
// ends first that is the longer one's next unit, since the other side is 0.

int ucstrcmp(const unsigned short* a, const unsigned short* b) {
  return CompareAtMost(a, b, SIZE_MAX, SameUnit);
}

int ucstrncmp(const unsigned short* a, const unsigned short* b, int n) {
  return n > 0 ? CompareAtMost(a, b, static_cast<size_t>(n), SameUnit) : 0;
}

int ucstricmp(const unsigned short* a, const unsigned short* b) {
  return CompareAtMost(a, b, SIZE_MAX, FoldUnit);
}

int ucstrnicmp(const unsigned short* a, const unsigned short* b, int n) {
  return n > 0 ? CompareAtMost(a, b, static_cast<size_t>(n), FoldUnit) : 0;
}

// ------------------------------------------------------------ search
// c is narrowed to a code unit, as strchr narrows to char.

unsigned short* ucstrchr(const unsigned short* s, int c) {
  const unsigned short unit = static_cast<unsigned short>(c);
  for (;; ++s) {
    if (*s == unit) return const_cast<unsigned short*>(s);
    if (*s == 0) return nullptr;
  }
}

unsigned short* ucstrrchr(const unsigned short* s, int c) {
  const unsigned short unit = static_cast<unsigned short>(c);
  const unsigned short* found = nullptr;
  for (;; ++s) {
    if (*s == unit) found = s;
    if (*s == 0) return const_cast<unsigned short*>(found);
  }
}

unsigned short* ucstrstr(const unsigned short* s, const unsigned short* pat) {
  if (*pat == 0) return const_cast<unsigned short*>(s);
  for (; *s; ++s) {
    const unsigned short* a = s;
    const unsigned short* b = pat;
    while (*b && *a == *b) ++a, ++b;
    if (*b == 0) return const_cast<unsigned short*>(s);
    if (*a == 0) return nullptr;  // the rest of s is shorter than pat
  }
  return nullptr;
}

int ucstrspn(const unsigned short* s, const unsigned short* set) {
  const unsigned short* p = s;
  while (*p && InSet(*p, set)) ++p;
  return static_cast<int>(p - s);
}

unsigned short* ucstrpbrk(const unsigned short* s, const unsigned short* set) {
  for (; *s; ++s) {
    if (InSet(*s, set)) return const_cast<unsigned short*>(s);
  }
  return nullptr;
}

unsigned short* ucstrtok(unsigned short* s, const unsigned short* delim) {
  static unsigned short* next = nullptr;
  if (s == nullptr) s = next;
  if (s == nullptr) return nullptr;
  while (*s && InSet(*s, delim)) ++s;
  if (*s == 0) {
    next = nullptr;
    return nullptr;
  }
  unsigned short* token = s;
  while (*s && !InSet(*s, delim)) ++s;
  if (*s) {
    *s = 0;
    next = s + 1;
  } else {
    next = nullptr;
  }
  return token;
}

// ------------------------------------------------------------ duplicate

unsigned short* ucstrdup(const unsigned short* s) {
  if (s == nullptr) return nullptr;
  const size_t bytes = (UcLength(s) + 1) * sizeof(unsigned short);
  auto* copy = static_cast<unsigned short*>(malloc(bytes));
  if (copy) memcpy(copy, s, bytes);
  return copy;
}

char* uctostrdup(const unsigned short* s) {
  if (s == nullptr) return nullptr;
  auto* copy = static_cast<char*>(malloc(UcLength(s) + 1));
  return copy ? uctostr(copy, s) : nullptr;
}

unsigned short* strtoucdup(const char* s) {
  if (s == nullptr) return nullptr;
  auto* copy = static_cast<unsigned short*>(malloc((strlen(s) + 1) * sizeof(unsigned short)));
  return copy ? strtouc(copy, s) : nullptr;
}

// ------------------------------------------------------------ case

unsigned short* ucstrupr(unsigned short* s) {
  for (unsigned short* p = s; *p; ++p) {
    if (*p >= 'a' && *p <= 'z') *p -= 32;
  }
  return s;
}

unsigned short* ucstrlwr(unsigned short* s) {
  for (unsigned short* p = s; *p; ++p) {
    if (*p >= 'A' && *p <= 'Z') *p += 32;
  }
  return s;
}

// Bytes go to the locale's functions as unsigned char values: a negative value
// other than EOF is undefined behaviour for toupper/tolower. In the C locale
// bytes with the high bit set stay as they are.
char* strupr(char* s) {
  for (; *s; ++s) *s = static_cast<char>(toupper(static_cast<unsigned char>(*s)));
  return s;
}

char* strlwr(char* s) {
  for (; *s; ++s) *s = static_cast<char>(tolower(static_cast<unsigned char>(*s)));
  return s;
}

// ------------------------------------------------------------ escapes

// A backslash that starts no escape is copied as it is, and reading goes on at
// the unit after it. So a doubled backslash does not collapse: "\\" stays two
// backslashes, and the second one may itself start an escape ("\\65" gives
// "\A"). This keeps paths such as "\\server\share" intact. *removed counts
// the units the escapes saved, also when one of them wrote a unit 0.
//
// An escape is never shorter than the unit it becomes, so the text is
// rewritten in place, left to right, the writer never ahead of the reader:
// no working copy, hence no failure.
int ucConvertSlashes(unsigned short* s, int* removed) {
  unsigned short* out = s;
  const unsigned short* in = s;
  while (*in) {
    unsigned short unit;
    const int used = ReadDecimalEscape(in, &unit);
    if (used == 0) {
      unit = *in++;
    } else {
      in += used;
    }
    *out++ = unit;
  }
  *out = 0;
  if (removed) {
    const size_t saved = static_cast<size_t>(in - out);
    *removed = saved > INT_MAX ? INT_MAX : static_cast<int>(saved);
  }
  return 0;
}

}  // extern "C"
