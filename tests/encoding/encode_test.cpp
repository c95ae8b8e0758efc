// Encoding from UTF-16: the internal form's runs and escapes, each direct
// encoder against glibc's iconv on random text, round trips through the
// internal form from every kind of legacy text, and the string class's
// encoded members.
#include <gtest/gtest.h>

#include <iconv.h>
#include <algorithm>

#include <cstdlib>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "encoding/iconv_oracle.h"
#include "test_util.h"
#include "vosystem/errors.h"
#include "vosystem/ucconv.h"
#include "vosystem/vostring.h"

namespace {

const unsigned short* UC(const std::u16string& s) {
  return reinterpret_cast<const unsigned short*>(s.c_str());
}

std::string ToInternal(const std::u16string& text, bool doubled = false) {
  char* out = nullptr;
  const int n = doubled ? MucConvertUnicodeToISO2022a(UC(text), &out)
                        : MucConvertUnicodeToISO2022(UC(text), &out);
  std::string result = n >= 0 ? std::string(out, n) : "<failed>";
  free(out);
  return result;
}

std::u16string FromInternal(const std::string& bytes) {
  unsigned short* out = nullptr;
  MucConvertISO2022ToUnicode(bytes.c_str(), &out);
  std::u16string result = out ? std::u16string(reinterpret_cast<char16_t*>(out)) : u"<null>";
  free(out);
  return result;
}

// Our encoding of text in the named encoding.
std::string Encode(const char* encoding, const std::u16string& text) {
  void* conv = nullptr;
  EXPECT_EQ(MucInitConversion(&conv, encoding, 1), 0);
  char* out = nullptr;
  const int n = MucConvertFromUnicode(conv, UC(text), &out);
  MucStopConversion(conv);
  std::string result = n >= 0 ? std::string(out, n) : "<failed>";
  free(out);
  return result;
}

TEST(Encode, InternalFormRunsAndEscapes) {
  EXPECT_EQ(ToInternal(u"caf\u00E9 \u0416"), "caf\xE9 \x1B-L\xB6\x1B(B\x1B-A");
  EXPECT_EQ(ToInternal(u"\u65E5A"), "\x1B$(B\x46\x7C\x1B(B\x1B-AA");  // ESC ( B once
  EXPECT_EQ(ToInternal(u"\u65E5\u0416"), "\x1B$(B\x46\x7C\x1B(B\x1B-L\xB6\x1B(B\x1B-A");
  EXPECT_EQ(ToInternal(u"a\uFEFFb"), "ab");
  EXPECT_EQ(ToInternal(u"\uFFFE\u4100\u4200"), "AB");  // the units after it are swapped
  EXPECT_EQ(ToInternal(u""), "");
  EXPECT_EQ(ToInternal(u"\u0378x"), "?x");  // held by no charset: "?" and no failure
  EXPECT_EQ(ToInternal(u"\u0104"), "\x1B-B\xA1\x1B(B\x1B-A");
  // Latin Extended-A goes to Latin-2 first; a letter Latin-2 lacks has no
  // script row to look further by, so no other charset is tried.
  EXPECT_EQ(ToInternal(u"\u0100"), "?");
  // A code with a byte 0x5C: written twice in the doubled form.
  const char16_t kanji = static_cast<char16_t>(MucCharsetToUnicode(0x5C21, 11));
  const std::string once = ToInternal(std::u16string(1, kanji));
  const std::string twice = ToInternal(std::u16string(1, kanji), true);
  EXPECT_EQ(once, "\x1B$(B\x5C\x21\x1B(B\x1B-A");
  EXPECT_EQ(twice, "\x1B$(B\x5C\x5C\x21\x1B(B\x1B-A");
  unsigned short* back = nullptr;
  ASSERT_EQ(MucConvertISO2022aToUnicode(twice.c_str(), &back), 1);
  EXPECT_EQ(back[0], kanji);
  free(back);
  // Indic charsets have no escape: their codes go out under the set in force.
  EXPECT_EQ(ToInternal(u"\u0905").size(), 1u);
}

// Random text of many scripts through the internal form and back.
TEST(Encode, InternalFormRoundTripsMixedScripts) {
  const char16_t pools[][8] = {
      u"aZ09 ,.",
      u"\u00E9\u00FC\u00DF\u00C0\u00F1\u00E7\u00A3",
      u"\u0416\u044F\u0401\u0451\u0430\u0431\u0432",
      u"\u03B1\u03C9\u0391\u03A9\u03AC\u03B2\u03B3",
      u"\u05D0\u05D1\u05D2\u05EA\u05E9\u05E8\u05E7",
      u"\u0627\u0644\u0639\u0631\u0628\u064A\u0629",
      u"\u0E01\u0E02\u0E04\u0E07\u0E08\u0E09\u0E0A",
      u"\u65E5\u672C\u8A9E\u4E2D\u6587\u5B57\u6F22",
      u"\u3042\u3044\u30A2\u30A4\u30F3\u3093\u30FC",
      u"\uAC00\uB098\uB2E4\uD55C\uAE00\uC5B4\uB77C",
      u"\u0104\u0141\u017B\u0158\u010C\u0160\u017D",
      u"\u011E\u0130\u015E\u011F\u0131\u015F\u00E7",
  };
  std::mt19937 rng(3);
  for (int round = 0; round < 300; ++round) {
    std::u16string text;
    for (int i = 0, n = 1 + static_cast<int>(rng() % 40); i < n; ++i) {
      const char16_t* pool = pools[rng() % (sizeof pools / sizeof pools[0])];
      text += pool[rng() % 7];
    }
    const std::string internal = ToInternal(text);
    ASSERT_EQ(FromInternal(internal), text) << "round " << round;
    ASSERT_EQ(MucStrLenISO2022(internal.c_str()), static_cast<int>(text.size()));
  }
}

// The double-byte encoders whose one-byte set is Latin-1 (or, for Shift-JIS,
// JIS-Roman with the Latin-1 pass-through) write Latin-1 letters as their
// own byte, where iconv writes the double-byte code; and 0x5C and 0x7E are
// JIS-Roman's in Shift-JIS.
std::u16string Latin1Upper() {
  std::u16string s;
  for (char16_t c = 0xA0; c <= 0xFF; ++c) s += c;
  return s;
}
const std::u16string kLatin1 = Latin1Upper();
const std::u16string kLatin1AndRoman = kLatin1 + u"\\~\u203E";

struct CASE {
  const char* encoding;
  const char* iconvName;
  int charset;
  std::u16string skip;  // where we differ from iconv on purpose
};

// Every direct encoder writes what iconv writes for text of its charsets,
// and the text decodes back; through the internal form likewise.
TEST(Encode, DirectEncodersMatchIconvAndRoundTrip) {
  const CASE cases[] = {
      {"Shift-JIS", "SHIFT_JIS", 11, kLatin1AndRoman},
      {"EUC", "EUC-JP", 11, u"\\~\u00A5\u203E"},
      {"GB-2312", "EUC-CN", 1, u""},
      {"Big5", "BIG5", 7, kLatin1},
      {"KSC-5601", "EUC-KR", 69, kLatin1},
      {"ISO-8859-5", "ISO-8859-5", 19, u""},
      {"CP1251", "CP1251", 30, u""},
      {"CP1253", "CP1253", 31, u""},
      {"KOI-8", "KOI8-R", 80, u""},
      {"MacRoman", "MACINTOSH", 62, u""},
      {"ISO-8859-8", "ISO-8859-8", 22, u""},
  };
  std::mt19937 rng(8);
  for (const CASE& c : cases) {
    const std::vector<char16_t> chars = Repertoire(c.charset, c.iconvName, c.skip);
    ASSERT_GT(chars.size(), 90u) << c.encoding;
    void* conv = nullptr;
    ASSERT_EQ(MucInitConversion(&conv, c.encoding, 1), 0);
    // Short random texts, then every character of the repertoire in one.
    std::u16string all(chars.begin(), chars.end());
    std::shuffle(all.begin(), all.end(), rng);
    for (int round = 0; round <= 20; ++round) {
      std::u16string text = round < 20 ? u"" : all;
      for (int i = 0; round < 20 && i < 1 + round * 7; ++i) text += chars[rng() % chars.size()];
      const std::string bytes = Encode(c.encoding, text);
      ASSERT_EQ(bytes, IconvEncode(c.iconvName, text)) << c.encoding << " round " << round;
      // Into the internal form and back: the characters that its charsets
      // hold survive (a charset without an escape goes through Unicode, and
      // its letters that no escaped charset holds become "?").
      std::u16string kept = text;
      for (char16_t& ch : kept)
        if (FromInternal(ToInternal(std::u16string(1, ch))) != std::u16string(1, ch)) ch = u'?';
      char* internal = nullptr;
      ASSERT_GE(MucConvertToISO2022(conv, bytes.c_str(), &internal), 0) << c.encoding;
      // (A legacy set with an escape may hold more than Unicode text finds.)
      const std::u16string back = FromInternal(internal);
      ASSERT_EQ(back.size(), text.size()) << c.encoding;
      for (size_t i = 0; i < text.size(); ++i)
        ASSERT_TRUE(back[i] == text[i] || (kept[i] == u'?' && back[i] == u'?'))
            << c.encoding << " round " << round << " at " << i;
      kept = back;
      char* again = nullptr;
      ASSERT_GE(MucConvertFromISO2022(conv, internal, &again), 0);
      if (kept == text) {
        ASSERT_EQ(std::string(again), bytes) << c.encoding;
      }
      free(internal);
      free(again);
    }
    MucStopConversion(conv);
  }
}

TEST(Encode, WhereWeDifferFromIconvOnPurpose) {
  // A Latin-1 character a charset lacks goes out as its own byte.
  EXPECT_EQ(Encode("ISO-8859-5", u"\u00E9"), "\xE9");
  EXPECT_EQ(Encode("Shift-JIS", u"\u00E9"), "\xE9");
  // Characters no charset holds are "?", never an error.
  EXPECT_EQ(Encode("CP1251", u"\u4E00"), "?");
  // Yen sign and overline are JIS-Roman's 0x5C and 0xA2 in Shift-JIS.
  EXPECT_EQ(Encode("Shift-JIS", u"\u00A5\\"), "\\\\");
  // EUC takes a Latin-1 letter that JIS X 0208 lacks from JIS X 0212, as
  // iconv does, not as a pass-through byte.
  EXPECT_EQ(Encode("EUC", u"\u00E9"), IconvEncode("EUC-JP", u"\u00E9"));
  // EUC writes half-width katakana as SS2 and the code's low seven bits.
  EXPECT_EQ(Encode("EUC", u"\uFF71"), "\x8E\x31");
  // JIS writes the internal form.
  EXPECT_EQ(Encode("JIS", u"\u65E5"), "\x1B$(B\x46\x7C\x1B(B\x1B-A");
  EXPECT_EQ(Encode("UTF8", u"\u00E9"), "\xC3\xA9");  // no byte-order mark
  EXPECT_EQ(Encode("UTF8-decomposed", u"\u00E9"), "e\xCC\x81");
  void* conv = nullptr;
  ASSERT_EQ(MucInitConversion(&conv, "WindowsMultiByte", 1), 0);
  char* out = nullptr;
  EXPECT_EQ(MucConvertFromUnicode(conv, UC(u"x"), &out), VOERROR_InvalidArgument);
  MucStopConversion(conv);
}

TEST(Encode, StringMembersGoThroughTheRegistry) {
  VOSTRING s("keep");
  const char cp1251[] = "\xCF\xF0\xE8\xE2\xE5\xF2";  // "Привет"
  ASSERT_EQ(s.Assign(cp1251, MucGetEncodingFromName("CP1251")), 0);
  EXPECT_EQ(U16(s), u"\u041F\u0440\u0438\u0432\u0435\u0442");
  char* bytes = s.GetEncoded(MucGetEncodingFromName("KOI-8"));
  ASSERT_NE(bytes, nullptr);
  EXPECT_STREQ(bytes, "\xF0\xD2\xC9\xD7\xC5\xD4");
  free(bytes);
  VOSTRING sjis("\x93\xFA\x96\x7B", MucGetEncodingFromName("Shift-JIS"));
  EXPECT_EQ(U16(sjis), u"\u65E5\u672C");

  // A conversion that can't be made leaves the string and records nothing.
  ClearLastErr();
  EXPECT_LT(s.Assign("abc", MucGetEncodingFromName("WindowsMultiByte")), 0);
  EXPECT_EQ(U16(s), u"\u041F\u0440\u0438\u0432\u0435\u0442");
  EXPECT_EQ(s.GetEncoded(MucGetEncodingFromName("WindowsMultiByte")), nullptr);
  EXPECT_EQ(GetLastErrCode(), 0);
}

TEST(Encode, QuickConversionsAndBuffers) {
  char* out = nullptr;
  EXPECT_EQ(MucQuickConvToISO2022(-1, u"\u0416", &out), 10);  // escape, byte, escape back
  free(out);
  EXPECT_EQ(MucQuickConvToISO2022(0, "plain", &out), 5);
  EXPECT_STREQ(out, "plain");
  free(out);
  EXPECT_GT(MucQuickConvToISO2022(19, "\xC0", &out), 0);  // CP1251 through Unicode
  EXPECT_EQ(FromInternal(out), u"\u0410");
  free(out);

  char* buffer = nullptr;
  int length = 0, capacity = 0;
  EXPECT_EQ(InsertChars(&buffer, &length, &capacity, "abc", -1), 3);
  EXPECT_EQ(InsertChars(&buffer, &length, &capacity, nullptr, 5), 3);
  EXPECT_EQ(InsertCharsetEscape(&buffer, &length, &capacity, 24), 24);  // no escape: Latin-1's
  EXPECT_EQ(std::string(buffer, length), "abc\x1B(B\x1B-A");
  free(buffer);
}

}  // namespace
