// glibc's iconv as the oracle of the encoding tests.
#ifndef VOSYS_TESTS_ENCODING_ICONV_ORACLE_H
#define VOSYS_TESTS_ENCODING_ICONV_ORACLE_H

#include <gtest/gtest.h>
#include <iconv.h>

#include <string>

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

#endif
