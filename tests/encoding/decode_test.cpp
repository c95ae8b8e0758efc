// Decoding to UTF-16: the internal form's state machine, each converter type
// against glibc's iconv on random text of its charsets, and the Japanese
// guess. Where the decoders differ from iconv on purpose, a test names it.
#include <gtest/gtest.h>

#include <iconv.h>
#include <algorithm>

#include <cstdlib>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "encoding/iconv_oracle.h"
#include "vosystem/errors.h"
#include "vosystem/ucconv.h"

namespace {

// Our decoding of bytes in the named encoding, without a byte-order mark.
std::u16string Decode(const char* encoding, const std::string& bytes, int* rc = nullptr) {
  void* conv = nullptr;
  EXPECT_EQ(MucInitConversion(&conv, encoding, 1), 0);
  unsigned short* out = nullptr;
  const int n = MucConvertToUnicode(conv, bytes.c_str(), &out);
  MucStopConversion(conv);
  if (rc) *rc = n;
  std::u16string result = out ? std::u16string(reinterpret_cast<char16_t*>(out)) : u"<null>";
  free(out);
  if (n >= 0) {
    EXPECT_EQ(static_cast<size_t>(n), result.size());
  }
  return result;
}

std::u16string Iso2022(const std::string& bytes) {
  unsigned short* out = nullptr;
  MucConvertISO2022ToUnicode(bytes.c_str(), &out);
  std::u16string result = out ? std::u16string(reinterpret_cast<char16_t*>(out)) : u"<null>";
  free(out);
  return result;
}

TEST(Decode, InternalFormStateMachine) {
  EXPECT_EQ(Iso2022("\x1B$(B\x30\x21\x1B(BA"), u"\u4E9CA");
  EXPECT_EQ(Iso2022("\x1B-L\xB0z"), u"\u0410z");  // 96-set in G1; ASCII meanwhile
  EXPECT_EQ(Iso2022("a\x1B[1mb"), u"a\x1B[1mb");  // CSI passes through
  EXPECT_EQ(Iso2022("\x1B(\x18"
                    "A"),
            u"A");                                     // CAN aborts an escape
  EXPECT_EQ(Iso2022("\x1B$ (B\x30\x21"), u" \u4E9C");  // a space inside goes out, the escape on
  EXPECT_EQ(Iso2022("\xE9\x0E\xE9\x0F\xE9"), u"\u00E9\u00E9\u00E9");  // SO/SI: G1 Latin-1 too
  EXPECT_EQ(Iso2022("\x1B.F\x1BNa\x61"), u"\u03B1a");  // single shift into G2 for one character
  EXPECT_EQ(Iso2022("\x1B(J\\~"), u"\u00A5~");         // JIS-Roman: yen sign
  EXPECT_EQ(Iso2022("\x1B(I\x31"), u"\uFF71");         // half-width katakana
  EXPECT_EQ(Iso2022("\x1B$B\x30"), u"?");              // a code cut short ends the text
  EXPECT_EQ(Iso2022("ab\x1B$"), u"ab");                // so does an escape
  EXPECT_EQ(Iso2022("\x1B%GA"), u"A");                 // a coding announcement is skipped

  // An unknown final designates nothing usable: the next character fails.
  unsigned short* out = nullptr;
  ClearLastErr();
  EXPECT_EQ(MucConvertISO2022ToUnicode("x\x1B(Qy", &out), VOERROR_InvalidArgument);
  ASSERT_NE(out, nullptr);  // the text so far is the caller's
  EXPECT_EQ(std::u16string(reinterpret_cast<char16_t*>(out)), u"x");
  free(out);

  // The doubled-backslash form: a 0x5C of a two-byte code stands twice.
  ASSERT_GT(MucConvertISO2022aToUnicode("\x1B$B\x5C\x5C\x21\x1B(B\\", &out), 0);
  const char16_t kanji = static_cast<char16_t>(MucCharsetToUnicode(0x5C21, 11));
  EXPECT_EQ(std::u16string(reinterpret_cast<char16_t*>(out)), std::u16string(1, kanji) + u"\\");
  free(out);

  EXPECT_EQ(MucStrLenISO2022("\x1B$B\x30\x21\x30\x22\x1B(Ba b"), 5);
  EXPECT_EQ(MucStrLenISO2022("\x1B[x"), 3);
  EXPECT_EQ(MucStrLenISO2022(""), 0);
}

// Random text drawn from the characters a charset holds, through iconv's
// encoder and our decoder.
std::u16string RandomText(std::mt19937& rng, const std::vector<char16_t>& repertoire, int n) {
  std::u16string s;
  for (int i = 0; i < n; ++i) s += repertoire[rng() % repertoire.size()];
  return s;
}

struct CASE {
  const char* encoding;  // our name
  const char* iconvName;
  int charset;           // whose characters the text uses
  const char16_t* skip;  // characters where the two differ on purpose
};

TEST(Decode, EveryTypeMatchesIconvOnRandomText) {
  const CASE cases[] = {
      {"Shift-JIS", "SHIFT_JIS", 11, u"\\~\u00A5\u203E"},  // 0x5C and 0x7E are JIS-Roman here
      {"EUC", "EUC-JP", 11, u"\\~\u00A5\u203E"},
      {"GB-2312", "EUC-CN", 1, u""},
      {"Big5", "BIG5", 7, u""},
      {"KSC-5601", "EUC-KR", 69, u""},
      {"ISO-8859-5", "ISO-8859-5", 19, u""},
      {"CP1251", "CP1251", 30, u""},
      {"KOI-8", "KOI8-R", 80, u""},
      {"MacRoman", "MACINTOSH", 62, u""},
      {"ISO-8859-7", "ISO-8859-7", 21, u""},
  };
  std::mt19937 rng(5);
  for (const CASE& c : cases) {
    const std::vector<char16_t> chars = Repertoire(c.charset, c.iconvName, c.skip);
    ASSERT_GT(chars.size(), 90u) << c.encoding;
    // Short random texts, then every character of the repertoire in one.
    std::u16string all(chars.begin(), chars.end());
    std::shuffle(all.begin(), all.end(), rng);
    for (int round = 0; round <= 20; ++round) {
      const std::u16string text = round < 20 ? RandomText(rng, chars, 1 + round * 7) : all;
      const std::string bytes = IconvEncode(c.iconvName, text);
      ASSERT_FALSE(bytes.empty()) << c.encoding;
      ASSERT_EQ(Decode(c.encoding, bytes), text) << c.encoding << " round " << round;
    }
  }
  // Shift-JIS single bytes 0x5C and 0x7E are JIS-Roman: yen sign, and 0x7E
  // as it stands, where iconv reads backslash and tilde.
  EXPECT_EQ(Decode("Shift-JIS", "\\~"), u"\u00A5~");
}

TEST(Decode, Iso2022JpFromIconv) {
  std::mt19937 rng(9);
  const std::vector<char16_t> kanji = Repertoire(11, "ISO-2022-JP", u"\\~\u00A5\u203E");
  const std::vector<char16_t> more = Repertoire(69, "ISO-2022-JP-2", u"\\~\u00A5\u203E");
  for (int round = 0; round < 40; ++round) {
    const bool two = round % 2;
    const std::u16string text = RandomText(rng, two ? more : kanji, 1 + round * 5);
    const std::string bytes = IconvEncode(two ? "ISO-2022-JP-2" : "ISO-2022-JP", text);
    ASSERT_FALSE(bytes.empty());
    ASSERT_EQ(Iso2022(bytes), text) << "round " << round;
  }
  // ISO-2022-JP-2's Latin-1 and Greek come by single shift from G2.
  const std::u16string mixed = u"caf\u00E9 \u03B1\u03B2 \u65E5\u672C";
  EXPECT_EQ(Iso2022(IconvEncode("ISO-2022-JP-2", mixed)), mixed);
}

TEST(Decode, Utf16ByteOrderMarksAndTheMarkOfTheResult) {
  void* conv = nullptr;
  ASSERT_EQ(MucInitConversion(&conv, "Unicode", 0), 0);  // flags 0: a mark in front
  const unsigned short swapped[] = {0xFFFE, 0x4100, 0xFEFF, 0x0042, 0};
  unsigned short* out = nullptr;
  EXPECT_EQ(MucConvertToUnicode(conv, swapped, &out), 3);
  EXPECT_EQ(std::u16string(reinterpret_cast<char16_t*>(out)), u"\uFEFFAB");
  free(out);
  MucStopConversion(conv);

  int rc = 0;
  EXPECT_EQ(Decode("ASCII", "", &rc), u"");
  EXPECT_EQ(rc, 0);
  ASSERT_EQ(MucInitConversion(&conv, "ISO-8859-1", 0), 0);
  EXPECT_EQ(MucConvertToUnicode(conv, "", &out), 1);  // just the mark
  free(out);
  MucStopConversion(conv);

  ASSERT_EQ(MucInitConversion(&conv, "WindowsMultiByte", 1), 0);
  EXPECT_EQ(MucConvertToUnicode(conv, "x", &out), VOERROR_InvalidArgument);
  EXPECT_EQ(out, nullptr);
  MucStopConversion(conv);

  EXPECT_EQ(Decode("UTF8", "\xC3\xA9"), u"\u00E9");
  EXPECT_EQ(Decode("UTF8-decomposed", "e\xCC\x81"), u"\u00E9");
}

TEST(Decode, CutShortSequencesAndQuickConversions) {
  EXPECT_EQ(Decode("Shift-JIS", "a\x88"), u"a?");  // a lone lead byte at the end
  EXPECT_EQ(Decode("EUC", "a\xB0"), u"a?");
  EXPECT_EQ(Decode("EUC", "\x8F\xB0"), u"?");
  EXPECT_EQ(Decode("EUC", "\x8E"), u"?");
  EXPECT_EQ(Decode("EUC", "\x8E\xB1"), u"\uFF71");  // SS2: half-width katakana
  EXPECT_EQ(Decode("Big5", "\xA4"), u"?");

  unsigned short* out = nullptr;
  EXPECT_EQ(MucQuickConvToUnicode(0, "plain \xE9", &out), 7);
  EXPECT_EQ(std::u16string(reinterpret_cast<char16_t*>(out)), u"plain \u00E9");
  free(out);
  EXPECT_EQ(MucQuickConvToUnicode(0, "\x1B-L\xB0", &out), 1);
  free(out);
  EXPECT_EQ(MucQuickConvToUnicode(-1, u"xy", &out), 2);
  free(out);
  EXPECT_EQ(MucQuickConvToUnicode(19, "\xC0", &out), 1);  // CP1251, no mark
  EXPECT_EQ(out[0], 0x410);
  free(out);
}

TEST(Decode, JapaneseGuess) {
  struct {
    const char* text;
    int guess;
    const char* name;
  } cases[] = {
      {"plain", 4, "ASCII"},          {"a\x1B$B", 2, "JIS"},      {"\x88\x9F", 1, "Shift-JIS"},
      {"\xA4\xA2\xA4\xA4", 3, "EUC"},  // undecided pairs report as EUC
      {"\xF0\xA1", 3, "EUC"},         {"\xFF\xFE", 5, "Unicode"}, {"\xE0\x40", 1, "Shift-JIS"},
  };
  for (const auto& c : cases) {
    char name[16] = "";
    EXPECT_EQ(MucGuessJapaneseEncoding(reinterpret_cast<const unsigned char*>(c.text), name),
              c.guess)
        << c.text;
    EXPECT_STREQ(name, c.name);
  }
  EXPECT_EQ(Decode("Japanese", "plain"), u"plain");
  EXPECT_EQ(Decode("Japanese", "\x1B$B\x30\x21\x1B(B"), u"\u4E9C");
  EXPECT_EQ(Decode("Japanese", IconvEncode("EUC-JP", u"\u65E5\u672C\u8A9E")),
            u"\u65E5\u672C\u8A9E");
  EXPECT_EQ(Decode("Japanese", IconvEncode("SHIFT_JIS", u"\u65E5\u672C\u8A9E")),
            u"\u65E5\u672C\u8A9E");
}

}  // namespace
