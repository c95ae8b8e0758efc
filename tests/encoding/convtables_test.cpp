// The conversion tables: the built-in charsets, every code of the table
// charsets against glibc's iconv, the double-byte forms, and crafted
// "unicode2.ref" files. Tables load once per process, so the tests that
// need a particular file (or none) each run in a process of their own.
#include <gtest/gtest.h>
#include <iconv.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "vosystem/errors.h"
#include "vosystem/ucconv.h"

namespace {

// The one character iconv decodes the bytes to, or 0 (none, or more than one).
int IconvDecode(const char* from, const std::string& bytes) {
  iconv_t cd = iconv_open("UTF-16LE", from);
  if (cd == reinterpret_cast<iconv_t>(-1)) return -1;
  char out[16];
  char* in = const_cast<char*>(bytes.data());
  size_t inLeft = bytes.size(), outLeft = sizeof out;
  char* o = out;
  size_t rc = iconv(cd, &in, &inLeft, &o, &outLeft);
  if (rc != static_cast<size_t>(-1)) rc = iconv(cd, nullptr, nullptr, &o, &outLeft);  // flush
  iconv_close(cd);
  if (rc == static_cast<size_t>(-1) || inLeft != 0 || o - out != 2) return 0;
  return static_cast<unsigned char>(out[0]) | static_cast<unsigned char>(out[1]) << 8;
}

// The bytes iconv encodes one character to, or "" if it can't.
std::string IconvEncode(const char* to, int unicode) {
  iconv_t cd = iconv_open(to, "UTF-16LE");
  if (cd == reinterpret_cast<iconv_t>(-1)) return "?";
  char in16[2] = {static_cast<char>(unicode), static_cast<char>(unicode >> 8)};
  char out[16];
  char* in = in16;
  size_t inLeft = 2, outLeft = sizeof out;
  char* o = out;
  size_t rc = iconv(cd, &in, &inLeft, &o, &outLeft);
  if (rc != static_cast<size_t>(-1)) rc = iconv(cd, nullptr, nullptr, &o, &outLeft);
  iconv_close(cd);
  return rc == static_cast<size_t>(-1) ? std::string() : std::string(out, o);
}

std::string Bytes(int code) {
  return code > 0xFF ? std::string{static_cast<char>(code >> 8), static_cast<char>(code)}
                     : std::string(1, static_cast<char>(code));
}

struct SINGLE {
  int charset;
  const char* iconvName;
};

// Each byte decodes as iconv decodes it (0 where iconv has no character),
// and each character so decoded encodes back to its byte. MacCyrillic,
// MacRoman and MacIcelandic are left out: ours are Apple's current tables
// (checked against Python's codecs), which glibc's predate (MacRoman 0xC6
// U+2206 and 0xF0 U+F8FF, Icelandic letters where MAC-IS has MacRoman's).
TEST(ConvTables, SingleByteCharsetsMatchIconv) {
  const SINGLE sets[] = {
      {16, "ISO-8859-2"}, {17, "ISO-8859-3"}, {18, "ISO-8859-4"},
      {19, "ISO-8859-5"}, {20, "ISO-8859-6"}, {21, "ISO-8859-7"},
      {22, "ISO-8859-8"}, {23, "ISO-8859-9"}, {28, "CP1254"},
      {29, "CP1250"},     {30, "CP1251"},     {31, "CP1253"},
      {32, "CP1256"},     {33, "CP1255"},     {34, "IBM437"},
      {35, "IBM850"},     {36, "IBM852"},     {37, "IBM857"},
      {38, "IBM861"},     {39, "IBM863"},     {40, "IBM865"},
      {41, "IBM869"},     {42, "IBM855"},     {43, "IBM864"},
      {47, "TIS-620"},    {50, "CP1252"},     {56, "MAC-CENTRALEUROPE"},
      {66, "MAC-UK"},     {67, "CP1257"},     {80, "KOI8-R"},
  };
  int compared = 0;
  for (const SINGLE& s : sets) {
    for (int b = 1; b < 256; ++b) {
      const int expected = IconvDecode(s.iconvName, std::string(1, static_cast<char>(b)));
      ASSERT_GE(expected, 0) << s.iconvName;
      ASSERT_EQ(MucCharsetToUnicode(b, s.charset), expected) << s.iconvName << " byte " << b;
      if (expected) {
        ASSERT_EQ(Bytes(MucUnicodeToCharset(expected, s.charset)),
                  IconvEncode(s.iconvName, expected))
            << s.iconvName << " byte " << b;
      }
      ++compared;
    }
  }
  EXPECT_EQ(compared, 30 * 255);
  // A Latin-1 character a charset lacks is written as its own byte, where
  // iconv would refuse it; others have no code.
  EXPECT_EQ(MucUnicodeToCharset(0xE9, 19), 0xE9);
  EXPECT_EQ(MucUnicodeToCharset(0x4E00, 19), 0);
}

struct DOUBLE {
  int charset;
  const char* iconvName;
  int bias;            // added to the stored code to give iconv's bytes
  const char* prefix;  // the bytes before them (EUC's single shifts)
};

// Every two-byte code of the CJK tables (JIS X 0212 and CNS plane 2 behind
// their single shifts) against iconv, in the form the converters store it,
// and through the EUC and Shift-JIS forms.
TEST(ConvTables, DoubleByteCharsetsMatchIconv) {
  const DOUBLE sets[] = {{11, "EUC-JP", 0x8080, ""}, {12, "EUC-JP", 0x8080, "\x8F"},
                         {1, "EUC-CN", 0x8080, ""},  {13, "EUC-KR", 0x8080, ""},
                         {8, "EUC-TW", 0x8080, ""},  {9, "EUC-TW", 0x8080, "\x8E\xA2"},
                         {69, "EUC-KR", 0, ""},      {7, "BIG5", 0, ""}};
  for (const DOUBLE& s : sets) {
    int mapped = 0;
    const int first = s.bias ? 0x21 : 0x81, last = s.bias ? 0x7E : 0xFE;
    for (int hi = first; hi <= last; ++hi) {
      for (int lo = s.bias ? 0x21 : 0x40; lo <= last; ++lo) {
        const int code = hi << 8 | lo, bytes = code + s.bias;
        const std::string two{static_cast<char>(bytes >> 8), static_cast<char>(bytes)};
        const int expected = IconvDecode(s.iconvName, s.prefix + two);
        ASSERT_EQ(MucCharsetToUnicode(code, s.charset), expected)
            << s.iconvName << std::hex << " " << code;
        if (!expected) continue;
        ++mapped;
        const int back = MucUnicodeToCharset(expected, s.charset);
        ASSERT_EQ(s.prefix + Bytes(back + s.bias), IconvEncode(s.iconvName, expected))
            << s.iconvName << std::hex << " " << code;
        if (s.charset == 11) {
          ASSERT_EQ(MucCharsetToUnicode(bytes, 0x2000B), expected);  // EUC form
          unsigned char h = static_cast<unsigned char>(hi), l = static_cast<unsigned char>(lo);
          jis2sjis(&h, &l);
          ASSERT_EQ(MucCharsetToUnicode(h << 8 | l, 0x1000B), expected);  // Shift-JIS form
          if (back == code) {
            ASSERT_EQ(MucUnicodeToCharset(expected, 0x1000B), h << 8 | l);
          }
          sjis2jis(&h, &l);
          ASSERT_EQ(h << 8 | l, code);
        }
      }
    }
    EXPECT_GT(mapped, 5000) << s.iconvName;
  }
  // GB 12345 has GB 2312's codes, for the traditional forms.
  EXPECT_EQ(MucCharsetToUnicode(0x3021, 2), MucCharsetToUnicode(0x3021, 1));
  EXPECT_EQ(MucCharsetToUnicode(0x3028, 2), 0x769A);
  EXPECT_EQ(MucCharsetToUnicode(0x3028, 1), 0x7691);
  EXPECT_EQ(MucUnicodeToCharset(0x769A, 2), 0x3028);
  // Shift-JIS single bytes: JIS-Roman below 0x80, half-width katakana above.
  EXPECT_EQ(MucCharsetToUnicode(0x5C, 0x1000B), 0xA5);
  EXPECT_EQ(MucCharsetToUnicode(0xB1, 0x1000B), 0xFF71);
  EXPECT_EQ(MucCharsetToUnicode(0x2121, 0xB), MucCharsetToUnicode(0xA1A1, 0x2000B));
  EXPECT_EQ(MucCharsetToUnicode(0x80A1, 0x2000B), 0);  // not an EUC lead byte
  EXPECT_EQ(MucCharsetToUnicode(0xA1A1, 0x8000B), MucCharsetToUnicode(0x2121, 0xB));
  EXPECT_EQ(MucCharsetToUnicode(0x2121, 0x40045), MucCharsetToUnicode(0xA1A1, 69));

  std::vector<unsigned short> buf = {0xFEFF, 0x41, 0xB0, 0x7F, 0};
  ASSERT_EQ(MucCharsetToUnicodeBuf(buf.data(), 19), 0);  // ISO-8859-5
  EXPECT_EQ(buf, (std::vector<unsigned short>{0xFEFF, 0x41, 0x410, 0x7F, 0}));
}

// A folder of its own as the current folder, with the data folder pointed
// where nothing counts: only a file written here is found.
class ConvTablesFile : public testing::Test {
 protected:
  void SetUp() override {
    m_folder = std::string(VOSYS_TEST_SCRATCH) + "/convXXXXXX";
    ASSERT_NE(mkdtemp(m_folder.data()), nullptr);
    ASSERT_EQ(chdir(m_folder.c_str()), 0);
    setenv("VOSYS_DATA_DIR", (m_folder + "/none").c_str(), 1);
  }
  void TearDown() override {
    if (chdir(VOSYS_TEST_SCRATCH) == 0) std::filesystem::remove_all(m_folder);
  }
  void Write(const std::string& bytes) {
    std::ofstream(m_folder + "/unicode2.ref", std::ios::binary) << bytes;
  }
  std::string m_folder;
};

void Put32(std::string& s, uint32_t v) {
  for (int i = 0; i < 4; ++i) s += static_cast<char>(v >> (8 * i));
}

// A file of one directory entry for name whose pairs lie at offset.
std::string File(const char* name, uint32_t offset, uint32_t count,
                 const std::vector<std::pair<int, int>>& pairs) {
  std::string f;
  Put32(f, 16);
  Put32(f, 40);
  Put32(f, 0);
  Put32(f, 1);
  const size_t n = strlen(name);
  for (size_t i = 0; i < 16; ++i) f += std::string{i < n ? name[i] : '\0', '\0'};
  Put32(f, offset);
  Put32(f, count);
  for (auto [unicode, code] : pairs)
    f += std::string{char(unicode), char(unicode >> 8), char(code), char(code >> 8)};
  return f;
}

TEST_F(ConvTablesFile, BuiltInCharsetsWorkWithoutTheFile) {
  EXPECT_EQ(MucCharsetToUnicode(0x5C, 24), 0xA5);
  EXPECT_EQ(MucUnicodeToCharset(0x5C, 24), 0x5C);
  EXPECT_EQ(MucUnicodeToCharset(0xA5, 24), 0x5C);
  EXPECT_EQ(MucCharsetToUnicode(0xA2, 24), 0xFF62);
  EXPECT_EQ(MucUnicodeToCharset(0xAF, 24), 0xA2);
  EXPECT_EQ(MucCharsetToUnicode(0xB1, 27), 0xFF71);
  EXPECT_EQ(MucCharsetToUnicode(0x31, 27), 0xFF71);
  EXPECT_EQ(MucUnicodeToCharset(0xFF71, 27), 0xB1);
  EXPECT_EQ(MucCharsetToUnicode(0, 24), 0);  // code 0 never maps
  EXPECT_EQ(MucCharsetToUnicode(0xE9, 15), 0xE9);
  EXPECT_EQ(MucCharsetToUnicode(0x1234, 0), 0x1234);

  ClearLastErr();
  EXPECT_EQ(MucCharsetToUnicode(0x41, 19), VOERROR_CannotOpen);
  const unsigned short* text = GetErrStrUC(VOERROR_CannotOpen, nullptr);
  std::u16string message(reinterpret_cast<const char16_t*>(text));
  EXPECT_NE(message.find(u"unicode2.ref"), std::u16string::npos);
  EXPECT_EQ(MucCharsetToUnicode(0x41, 81), VOERROR_InvalidArgument);
  EXPECT_EQ(MucUnicodeToCharset(0x41, 0x10000 | 200), VOERROR_InvalidArgument);

  // A failed load is tried again once the file is there.
  Write(File("ISO8859_5", 56, 1, {{0x410, 0xB0}}));
  EXPECT_EQ(MucCharsetToUnicode(0xB0, 19), 0x410);
  EXPECT_EQ(MucCharsetToUnicode(0x1B, 19), 0x1B);  // control codes in every table
  EXPECT_EQ(MucCharsetToUnicode(0x41, 19), 0);     // page 0 exists: no pass-through
  EXPECT_EQ(MucUnicodeToCharset(0x41, 19), 0x41);  // but Latin-1 writes as itself
}

TEST_F(ConvTablesFile, PairsPastTheEndFailCleanly) {
  Write(File("ISO8859_5", 56, 1000000, {{0x410, 0xB0}}));
  EXPECT_EQ(MucCharsetToUnicode(0xB0, 19), VOERROR_ShortRead);
  EXPECT_EQ(MucUnicodeToCharset(0x410, 19), VOERROR_ShortRead);  // tried again, same file
}

TEST_F(ConvTablesFile, DirectoryPastTheEndFailsCleanly) {
  std::string f = File("ISO8859_5", 56, 1, {{0x410, 0xB0}});
  f[12] = '\x7F';  // 127 entries, the file holds one
  Write(f);
  EXPECT_EQ(MucCharsetToUnicode(0xB0, 20), VOERROR_ShortRead);  // a name it never finds
  EXPECT_EQ(MucCharsetToUnicode(0xB0, 19), 0x410);              // the first entry still reads
}

TEST_F(ConvTablesFile, CharsetWithoutEntryHoldsOnlyControls) {
  Write(File("ISO8859_5", 56, 1, {{0x410, 0xB0}}));
  EXPECT_EQ(MucCharsetToUnicode(0xB0, 21), 0);  // ISO8859_7: none of 8859-5's pairs
  EXPECT_EQ(MucCharsetToUnicode(0x0A, 21), 0x0A);
}

}  // namespace
