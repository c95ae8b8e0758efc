// File-name wildcards: "?" one character, "*" any run of them.
//
// Names are UTF-8, so "?" takes a whole character (a lead byte and its
// continuation bytes), and without case characters compare by their
// upper-case forms. The matcher keeps one resume point (the last "*" and the
// place in the text it stands for) instead of recursing at each "*": it
// finds a match exactly when one exists, in time bounded by the product of
// the two lengths and with no stack to overflow.

#include <cstring>

#include "vosystem/filepath.h"
#include "vosystem/ucdata.h"

namespace {

// The character at p and the bytes it takes. A byte that doesn't start a
// well-formed sequence is a character of its own, its byte value.
unsigned Next(const unsigned char* p, int* length) {
  const unsigned b = p[0];
  int n = b < 0x80             ? 1
          : (b & 0xE0) == 0xC0 ? 2
          : (b & 0xF0) == 0xE0 ? 3
          : (b & 0xF8) == 0xF0 ? 4
                               : 0;
  unsigned c = n == 2 ? b & 0x1F : n == 3 ? b & 0x0F : b & 0x07;
  for (int i = 1; i < n; ++i) {
    if ((p[i] & 0xC0) != 0x80) {
      n = 0;
      break;
    }
    c = c << 6 | (p[i] & 0x3F);
  }
  if (n <= 1) {
    *length = 1;
    return b;
  }
  *length = n;
  return c;
}

unsigned Fold(unsigned c, bool casesensitive) {
  return casesensitive || c > 0xFFFF ? c : uctoupper(static_cast<unsigned short>(c));
}

}  // namespace

int strwcmp(const char* pattern, const char* text, bool casesensitive) {
  const auto* p = reinterpret_cast<const unsigned char*>(pattern ? pattern : "");
  const auto* t = reinterpret_cast<const unsigned char*>(text ? text : "");
  const unsigned char* resumePattern = nullptr;  // just after the last "*"
  const unsigned char* resumeText = nullptr;     // where its run ends for now
  for (;;) {
    if (*p == '*') {
      while (*p == '*') ++p;
      if (!*p) return 0;  // a trailing "*" takes the rest
      resumePattern = p;
      resumeText = t;
      continue;
    }
    if (!*t) {
      while (*p == '*') ++p;
      return *p ? -1 : 0;
    }
    int pl = 1, tl = 1;
    const unsigned pc = *p ? Next(p, &pl) : 0;
    const unsigned tc = Next(t, &tl);
    if (*p && (*p == '?' || Fold(pc, casesensitive) == Fold(tc, casesensitive))) {
      p += pl;
      t += tl;
      continue;
    }
    if (!resumePattern) {
      return static_cast<int>(Fold(pc, casesensitive)) - static_cast<int>(Fold(tc, casesensitive));
    }
    // The last "*" takes one more character, and the rest starts over.
    int skip = 1;
    Next(resumeText, &skip);
    resumeText += skip;
    if (!*resumeText) {
      p = resumePattern;
      while (*p == '*') ++p;
      return *p ? -1 : 0;
    }
    p = resumePattern;
    t = resumeText;
  }
}

int match(const char* pattern, const char* name) {
  if (!pattern || !strcmp(pattern, "*.*") || !strcmp(pattern, "*")) return 1;
  if (!name) name = "";
  // A name that ends in the pattern's text after its first character
  // matches, case aside: "*.txt" takes "a.TXT" here.
  const size_t plen = strlen(pattern), nlen = strlen(name);
  if (plen >= 1 && nlen >= plen - 1) {
    const auto* a = reinterpret_cast<const unsigned char*>(pattern + 1);
    const auto* b = reinterpret_cast<const unsigned char*>(name + nlen - (plen - 1));
    bool same = true;
    while (same && *a && *b) {
      int al = 1, bl = 1;
      const unsigned ac = Next(a, &al), bc = Next(b, &bl);
      same = Fold(ac, false) == Fold(bc, false);
      a += al;
      b += bl;
    }
    if (same && !*a && !*b) return 1;
  }
  return strwcmp(pattern, name, false) == 0;
}
