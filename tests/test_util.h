// Helpers shared by the tests: readable VOSTRING values in failure messages.
#ifndef VOSYS_TESTS_TEST_UTIL_H
#define VOSYS_TESTS_TEST_UTIL_H

#include <cstdlib>
#include <ostream>
#include <string>

#include "vosystem/ucstring.h"
#include "vosystem/vostring.h"

// The text as UTF-8, for comparisons with string literals.
inline std::string U8(const VOSTRING& s) {
  char* out = nullptr;
  if (MucConvertUnicodeToUTF8(s, &out) < 0) return "<conversion failed>";
  std::string result(out);
  std::free(out);
  return result;
}

inline std::u16string U16(const VOSTRING& s) {
  const unsigned short* p = s;
  return std::u16string(reinterpret_cast<const char16_t*>(p), s.GetLength());
}

inline void PrintTo(const VOSTRING& s, std::ostream* os) {
  *os << '"' << U8(s) << '"';
}

#endif
