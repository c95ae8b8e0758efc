// glibc's iconv as the oracle of the encoding tests.
#ifndef VOSYS_TESTS_ENCODING_ICONV_ORACLE_H
#define VOSYS_TESTS_ENCODING_ICONV_ORACLE_H

#include <gtest/gtest.h>
#include <iconv.h>

#include <string>
#include <vector>

#include "vosystem/ucconv.h"

// iconv of UTF-16 text into an encoding; "" when iconv refuses a character.
inline std::string IconvEncode(const char* to, const std::u16string& text) {
  iconv_t cd = iconv_open(to, "UTF-16LE");
  EXPECT_NE(cd, reinterpret_cast<iconv_t>(-1)) << to;
  std::string in(reinterpret_cast<const char*>(text.data()), text.size() * 2);
  std::string out(text.size() * 8 + 64, '\0');
  char* i = in.data();
  char* o = out.data();
  size_t inLeft = in.size(), outLeft = out.size();
  size_t rc = iconv(cd, &i, &inLeft, &o, &outLeft);
  if (rc != static_cast<size_t>(-1)) rc = iconv(cd, nullptr, nullptr, &o, &outLeft);  // flush
  iconv_close(cd);
  if (rc == static_cast<size_t>(-1)) return "";
  out.resize(out.size() - outLeft);
  return out;
}

// The characters of a charset that iconv also writes in its encoding: ASCII
// and what the charset's own table holds (not what it only writes as Latin-1
// by passing it through), without controls, surrogates and the characters in
// skip, where the two differ on purpose.
inline std::vector<char16_t> Repertoire(int charset, const char* iconvName,
                                        const std::u16string& skip) {
  std::vector<char16_t> chars;
  for (int u = 0x20; u < 0xFFFE; ++u) {
    if ((u >= 0x7F && u < 0xA0) || (u >= 0xD800 && u < 0xE000) ||
        skip.find(static_cast<char16_t>(u)) != std::u16string::npos)
      continue;
    if (u >= 0x80) {
      const int code = MucUnicodeToCharset(u, charset);
      if (code <= 0 || MucCharsetToUnicode(code, charset) != u) continue;
    }
    if (!IconvEncode(iconvName, std::u16string(1, static_cast<char16_t>(u))).empty())
      chars.push_back(static_cast<char16_t>(u));
  }
  return chars;
}

#endif
