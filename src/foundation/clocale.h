// Numbers in the C locale's form, whatever locale the application has set.
//
// Applications call setlocale(LC_ALL, "") for their own output, but the
// numbers this library writes and reads (message values, settings files,
// formats of every kind) must mean the same everywhere: "2.5", never "2,5".
// The C library's formatting and parsing run under the C locale object,
// switched in for the calling thread only (uselocale), so other threads and
// the caller's own locale are untouched.
#ifndef VOSYS_SRC_FOUNDATION_CLOCALE_H
#define VOSYS_SRC_FOUNDATION_CLOCALE_H

#include <locale.h>

// The C locale object; made once, kept for the life of the process.
locale_t CLocale();

// While it lives, the calling thread formats and parses by the C locale.
class C_LOCALE_SCOPE {
 public:
  C_LOCALE_SCOPE() : m_old(uselocale(CLocale())) {}
  ~C_LOCALE_SCOPE() {
    if (m_old) uselocale(m_old);
  }
  C_LOCALE_SCOPE(const C_LOCALE_SCOPE&) = delete;
  C_LOCALE_SCOPE& operator=(const C_LOCALE_SCOPE&) = delete;

 private:
  locale_t m_old;
};

// strtod by the C locale's rules.
double CStrtod(const char* s, char** end);

#endif
