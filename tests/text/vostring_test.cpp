// The string object: sharing, copy on write, edits, searches, comparisons and
// line ends. Searches are checked against std::u16string on random text.
#include <gtest/gtest.h>

#include <sys/mman.h>
#include <unistd.h>

#include <climits>
#include <cstdlib>
#include <cstring>
#include <random>
#include <string>

#include "test_util.h"
#include "vosystem/errors.h"
#include "vosystem/ucconv.h"
#include "vosystem/ucstring.h"
#include "vosystem/vostring.h"

namespace {

TEST(VostringSharing, CopiesShareAndEditsUnshare) {
  VOSTRING a;
  a += u'x';
  EXPECT_TRUE(VOSTRING().IsEmpty()) << "a change to a default string reached the empty body";
  EXPECT_EQ(U8(a), "x");

  VOSTRING b("abc"), c(b);
  EXPECT_EQ(b.GetReference(), c.GetReference());
  c += "d";
  EXPECT_EQ(U8(b), "abc");
  EXPECT_EQ(U8(c), "abcd");
  EXPECT_NE(b.GetReference(), c.GetReference());

  // Assignment through another handle on the same body, and self-assignment.
  VOSTRING d(c);
  c = d;
  c = c;
  EXPECT_EQ(U8(c), "abcd");
  d = VOSTRING("z");
  EXPECT_EQ(U8(c), "abcd");

  // A default handle always sees the body shared, so even Clear unshares.
  VOSTRING e, f;
  EXPECT_EQ(e.GetReference(), VOSTRING::GetEmpty().GetReference());
  e.Clear();
  EXPECT_NE(e.GetReference(), f.GetReference());
  EXPECT_EQ(f.GetReference(), VOSTRING::GetEmpty().GetReference());
}

TEST(VostringSharing, PersistentFormatTravelsWithTheCopy) {
  VOSTRING a("v=");
  a << STR_BASE16;
  VOSTRING b(a);
  b << 255;
  EXPECT_EQ(U8(b), "v=FF");
  a << 255;
  EXPECT_EQ(U8(a), "v=FF");
}

TEST(VostringConstruction, FromTextsAndNumbers) {
  EXPECT_TRUE(VOSTRING(static_cast<const char*>(nullptr)).IsEmpty());
  EXPECT_TRUE(VOSTRING(static_cast<const unsigned short*>(nullptr)).IsEmpty());
  VOSTRING bytes("\xE9t\xE9");  // bytes are code points below 256, not UTF-8
  EXPECT_EQ(bytes.GetLength(), 3);
  EXPECT_EQ(bytes[0], 0xE9);
  EXPECT_EQ(U8(VOSTRING(-42)), "-42");
  EXPECT_EQ(U8(VOSTRING(4000000000u)), "4000000000");
  EXPECT_EQ(U8(VOSTRING(u"\u4E2D\u6587")), "\u4E2D\u6587");
}

TEST(VostringReading, IndexAndSubstrings) {
  VOSTRING s("abc");
  EXPECT_EQ(s[-1], 0);
  EXPECT_EQ(s[4], 0);
  EXPECT_EQ(&s[3], s.GetReference() + 3) << "index = length gives the terminator itself";
  EXPECT_EQ(U8(s.GetSubString(1, 0x7FFFFFFF)), "bc");
  EXPECT_EQ(U8(s.GetSubString(1)), "bc");
  EXPECT_EQ(U8(s.GetSubString(0, 0)), "a");
  EXPECT_TRUE(s.GetSubString(2, 1).IsEmpty());
  EXPECT_TRUE(s.GetSubString(3).IsEmpty());
  EXPECT_TRUE(s.GetSubString(-1, 2).IsEmpty());

  unsigned short* copy = s.GetString();
  EXPECT_NE(copy, s.GetReference());
  EXPECT_EQ(ucstrcmp(copy, s), 0);
  free(copy);

  EXPECT_DOUBLE_EQ(VOSTRING("  -12.5e1xyz").ConvertToDouble(), -125.0);
  EXPECT_DOUBLE_EQ(VOSTRING(u"3\u20AC").ConvertToDouble(), 3.0);
}

TEST(VostringCompare, ResultsAndPositions) {
  VOSTRING ab("ab"), abc("abc");
  EXPECT_EQ(ab.Compare(abc), -'c');
  EXPECT_EQ(abc.Compare(ab), 'c');
  EXPECT_EQ(abc.Compare(ab, 2), 0);
  EXPECT_EQ(VOSTRING("aB").CompareNoCase(VOSTRING("Ab")), 0);
  EXPECT_NE(VOSTRING(u"\u00E9").CompareNoCase(VOSTRING(u"\u00C9")), 0) << "folding is ASCII only";
  EXPECT_EQ(VOSTRING("xxxxx").Compare(0, ab, 3, 2), 1);
  EXPECT_EQ(VOSTRING("xxxxx").Compare(6, ab, 0, 2), -1);
  EXPECT_EQ(VOSTRING("xxabc").Compare(2, abc, 0, 3), 0);
  EXPECT_EQ(VOSTRING("xxABC").CompareNoCase(2, abc, 0, 0x7FFFFFFF), 0);
  EXPECT_TRUE(VOSTRING("abc") == VOSTRING(u"abc"));
  EXPECT_TRUE(ab != abc);

  // The whole-string comparison gives exactly what ucstrcmp gives.
  std::mt19937 rng(11);
  for (int round = 0; round < 2000; ++round) {
    std::u16string a, b;
    int common = static_cast<int>(rng() % 40);
    for (int i = 0; i < common; ++i) a += static_cast<char16_t>(1 + rng() % 0xFFFE);
    b = a;
    for (int i = static_cast<int>(rng() % 3); i > 0; --i)
      a += static_cast<char16_t>(1 + rng() % 0xFFFE);
    for (int i = static_cast<int>(rng() % 3); i > 0; --i)
      b += static_cast<char16_t>(1 + rng() % 0xFFFE);
    VOSTRING va(a.c_str()), vb(b.c_str());
    ASSERT_EQ(va.Compare(vb), ucstrcmp(va, vb));
  }
}

TEST(VostringSearch, AgreesWithStdU16String) {
  std::mt19937 rng(7);
  for (int round = 0; round < 200; ++round) {
    std::u16string ref;
    int len = static_cast<int>(rng() % 70);
    for (int i = 0; i < len; ++i) ref += static_cast<char16_t>(u'a' + rng() % 4);
    VOSTRING s(ref.c_str());
    std::u16string pat;
    for (int i = 0, n = 1 + static_cast<int>(rng() % 3); i < n; ++i)
      pat += static_cast<char16_t>(u'a' + rng() % 4);
    const unsigned short c = static_cast<unsigned short>(u'a' + rng() % 5);
    for (int start = 0; start < len; ++start) {
      auto expect = [](size_t p) { return p == std::u16string::npos ? -1 : static_cast<int>(p); };
      ASSERT_EQ(s.FindNextOf(c, start), expect(ref.find(static_cast<char16_t>(c), start)));
      ASSERT_EQ(s.FindNextOf(VOSTRING(pat.c_str()), start), expect(ref.find(pat, start)));
      ASSERT_EQ(s.FindPrevOf(c, start), expect(ref.rfind(static_cast<char16_t>(c), start)));
      ASSERT_EQ(s.FindNextInSet(VOSTRING("bd"), start), expect(ref.find_first_of(u"bd", start)));
      ASSERT_EQ(s.FindNextNotInSet(VOSTRING("ab"), start),
                expect(ref.find_first_not_of(u"ab", start)));
      ASSERT_EQ(s.FindPrevInSet(VOSTRING("cd"), start), expect(ref.find_last_of(u"cd", start)));
      ASSERT_EQ(s.FindPrevNotInSet(VOSTRING("c"), start),
                expect(ref.find_last_not_of(u"c", start)));
    }
  }
}

TEST(VostringSearch, InvalidStarts) {
  VOSTRING s("abcabc");
  EXPECT_EQ(s.FindNextOf('a', -1), -1);
  EXPECT_EQ(s.FindNextOf('a', 6), -1);
  EXPECT_EQ(s.FindPrevOf('c', 1000), 5) << "a start past the end starts at the last unit";
  EXPECT_EQ(s.FindPrevOf('c', -1), -1);
  EXPECT_EQ(VOSTRING().FindPrevOf('a'), -1);
  EXPECT_EQ(s.FindNextOf(VOSTRING("ca"), 0), 2);
  EXPECT_EQ(s.FindNextOf(VOSTRING("abcabcd"), 0), -1);
}

TEST(VostringEdit, RangesClipAndInvalidOnesAreIgnored) {
  VOSTRING s("abc");
  s.Remove(1, 1000);
  EXPECT_EQ(U8(s), "a");
  s = "abc";
  s.Remove(2, 1);
  EXPECT_EQ(U8(s), "abc");
  s.Truncate(3);
  EXPECT_EQ(U8(s), "abc");
  s.Truncate(0);
  EXPECT_TRUE(s.IsEmpty());

  s = "abc";
  s.Replace(1, 1, VOSTRING(), 0, 0x7FFFFFFF);
  EXPECT_EQ(U8(s), "ac");
  s.Replace(2, 5, VOSTRING("XYZ"), 1, 0x7FFFFFFF);  // first = length appends
  EXPECT_EQ(U8(s), "acYZ");
  s.Replace(0, 100, VOSTRING("12"), 0, 0);
  EXPECT_EQ(U8(s), "1");
  s.Replace(0, u'9');
  s.Replace(1, u'8');  // outside: ignored
  s.Replace(0, 0);     // zero unit: ignored
  EXPECT_EQ(U8(s), "9");

  s = "ad";
  s.Insert(1, VOSTRING("xbcx"), 1, 2);
  EXPECT_EQ(U8(s), "abcd");
  s.Insert(5, VOSTRING("z"));
  s.Insert(0, VOSTRING("z"), 1, 1);
  EXPECT_EQ(U8(s), "abcd");

  s.Assign(VOSTRING("hello"), 1, 3);
  EXPECT_EQ(U8(s), "ell");
  s.Assign(VOSTRING("hello"), 5, 9);  // invalid: nothing happens
  EXPECT_EQ(U8(s), "ell");
  s.Append(VOSTRING("hello"), 3, 0x7FFFFFFF);
  EXPECT_EQ(U8(s), "elllo");
  s.Assign(reinterpret_cast<const unsigned short*>(u"xyz"), 1, 99);
  EXPECT_EQ(U8(s), "yz");
  s.Assign(reinterpret_cast<const unsigned short*>(u"xyz"), 5, 9);
  EXPECT_TRUE(s.IsEmpty()) << "a range past the terminator takes nothing";

  s = "ab";
  EXPECT_EQ(s.Pad(u'-', 3), 0);
  EXPECT_EQ(s.PadToLength(u'+', 7), 0);
  EXPECT_EQ(s.PadToLength(u'+', 2), 0);
  EXPECT_EQ(U8(s), "ab---++");
  s.SetUpperCase(1);
  EXPECT_EQ(U8(s), "aB---++");
  s = "MiXeD";
  s.SetLowerCase();
  EXPECT_EQ(U8(s), "mixed");
}

TEST(VostringEdit, SelfReferenceIsSafe) {
  VOSTRING s("abc");
  for (int i = 0; i < 12; ++i) s += s;  // operand moves with every growth
  EXPECT_EQ(s.GetLength(), 3 << 12);
  EXPECT_EQ(s.FindNextOf(VOSTRING("cc")), -1);
  EXPECT_EQ(U8(s.GetSubString(0, 5)), "abcabc");

  VOSTRING t("0123456789");
  t = t.GetReference() + 4;  // a pointer into its own text
  EXPECT_EQ(U8(t), "456789");
  t.Insert(3, t);
  EXPECT_EQ(U8(t), "456456789789");
  t.Replace(0, 2, t, 3, 0x7FFFFFFF);
  EXPECT_EQ(U8(t), "456789789456789789");
}

TEST(VostringEdit, GrowthIsAmortisedAndClearKeepsTheBlock) {
  VOSTRING s;
  const unsigned short* block = nullptr;
  int moves = 0;
  for (int i = 0; i < 100000; ++i) {
    s += u'x';
    if (s.GetReference() != block) ++moves, block = s.GetReference();
  }
  EXPECT_EQ(s.GetLength(), 100000);
  EXPECT_LT(moves, 40) << "capacity must double, not grow by a constant";
  s.Clear();
  EXPECT_EQ(s.GetReference(), block);
  s = "short";
  EXPECT_EQ(s.GetReference(), block) << "assignment reuses the block";
}

TEST(VostringEdit, ReserveNeverMovesTheEmptyBody) {
  // Every default string shares one body: growing it would leave a pointer
  // taken from any of them dangling (the address checker reads it below).
  VOSTRING other;
  const unsigned short* shared = other.GetReference();
  VOSTRING grown;
  ASSERT_EQ(grown.Reserve(1000), 0);
  EXPECT_EQ(shared[0], 0);
  EXPECT_EQ(other.GetReference(), shared);
  EXPECT_NE(grown.GetReference(), shared);
  grown += "kept";
  EXPECT_TRUE(other.IsEmpty());
  EXPECT_EQ(U8(grown), "kept");

  // An ordinary shared body grows for all its handles, text and all.
  VOSTRING a("abc"), b(a);
  ASSERT_EQ(a.Reserve(1000), 0);
  EXPECT_EQ(a.GetReference(), b.GetReference());
  EXPECT_EQ(U8(b), "abc");
  SetErrPosnDisable();
  EXPECT_EQ(a.Reserve(0x7FFFFFF0), VOERROR_OutOfMemory);
  SetErrPosnEnable();
  EXPECT_EQ(U8(a), "abc");
}

// Texts longer than a body can hold, or than an int counts, are refused with
// a code, never cut or wrapped. The text is one page of units mapped over and
// over: gigabytes of address space on a few kilobytes of memory.
TEST(VostringEdit, TextsBeyondAnIntFailWithACode) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
  GTEST_SKIP() << "scans gigabytes; the sanitizers only slow it down";
#else
  const size_t page = 1 << 20;
  const size_t units = size_t{INT_MAX} + 1;  // whole pages of 'A' 'A' bytes
  const int fd = memfd_create("units", 0);
  ASSERT_GE(fd, 0);
  ASSERT_EQ(ftruncate(fd, page), 0);
  void* fill = mmap(nullptr, page, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
  ASSERT_NE(fill, MAP_FAILED);
  memset(fill, 'A', page);
  const size_t bytes = units * 2 + page;  // the last page holds the terminator
  char* base =
      static_cast<char*>(mmap(nullptr, bytes, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
  ASSERT_NE(base, MAP_FAILED);
  for (size_t off = 0; off < units * 2; off += page)
    ASSERT_NE(mmap(base + off, page, PROT_READ, MAP_SHARED | MAP_FIXED, fd, 0), MAP_FAILED);
  ASSERT_NE(mmap(base + units * 2, page, PROT_READ | PROT_WRITE,
                 MAP_PRIVATE | MAP_FIXED | MAP_ANONYMOUS, -1, 0),
            MAP_FAILED);
  const auto* text = reinterpret_cast<const unsigned short*>(base);

  EXPECT_EQ(ucstrlen(text), INT_MAX);  // saturated, never negative
  ClearLastErr();
  VOSTRING wide(text);
  EXPECT_TRUE(wide.IsEmpty());
  EXPECT_EQ(GetLastErrCode(), VOERROR_OutOfMemory);
  VOSTRING kept("kept");
  ClearLastErr();
  kept = base;  // the same pages as bytes
  EXPECT_EQ(U8(kept), "kept");
  EXPECT_EQ(GetLastErrCode(), VOERROR_OutOfMemory);

  munmap(base, bytes);
  munmap(fill, page);
  close(fd);
#endif
}

TEST(VostringLineEnds, RewriteAndCheck) {
  struct Case {
    const char* in;
    LINETERM term;
    const char* out;
  } cases[] = {
      {"a\n\rb", LINETERM_CRLF, "a\r\nb"},
      {"a\nb\rc", LINETERM_CRLF, "a\r\nb\r\nc"},
      {"a\r\nb\r\n", LINETERM_CRLF, "a\r\nb\r\n"},
      {"\n\n", LINETERM_CRLF, "\r\n\r\n"},
      {"a\r\nb\rc", LINETERM_LF, "a\nb\nc"},
      {"a\r\rb", LINETERM_LF, "a\n\nb"},
      {"a\n\rb", LINETERM_LF, "a\nb"},
      {"a\r\nb\nc", LINETERM_CR, "a\rb\rc"},
      {"plain", LINETERM_CR, "plain"},
  };
  for (const Case& c : cases) {
    VOSTRING s(c.in);
    EXPECT_EQ(s.SetLineTermination(c.term), 1);
    EXPECT_EQ(U8(s), c.out) << "input " << testing::PrintToString(std::string(c.in));
    EXPECT_EQ(s.CheckLineTermination(c.term), 1);
  }
  EXPECT_EQ(VOSTRING("a\r\nb").CheckLineTermination(LINETERM_LF), 0);
  EXPECT_EQ(VOSTRING("a\nb").CheckLineTermination(LINETERM_CR), 0);
  EXPECT_EQ(VOSTRING("a\r").CheckLineTermination(LINETERM_CRLF), 0);
  EXPECT_EQ(VOSTRING("a\n\r").CheckLineTermination(LINETERM_CRLF), 0);
  VOSTRING odd("a\rb");
  EXPECT_EQ(odd.SetLineTermination(static_cast<LINETERM>(7)), 1);
  EXPECT_EQ(U8(odd), "a\rb");
}

TEST(VostringEncoded, BytesUtf16AndUtf8) {
  VOSTRING s("\xE9", CHAR_ENCODING(0));
  EXPECT_EQ(s[0], 0xE9);
  s.Assign("\xC3\xA9\xF0\x9F\x98\x80", CHAR_ENCODING(2));
  EXPECT_EQ(s.GetLength(), 3);
  EXPECT_EQ(s[1], 0xD83D);
  char* utf8 = s.GetEncoded(CHAR_ENCODING(2));
  ASSERT_NE(utf8, nullptr);
  EXPECT_STREQ(utf8, "\xC3\xA9\xF0\x9F\x98\x80");
  free(utf8);
  char* bytes = VOSTRING(u"a\u00E9\u20AC").GetEncoded(CHAR_ENCODING(0));
  EXPECT_STREQ(bytes, "a\xE9?");
  free(bytes);
  unsigned short* units = reinterpret_cast<unsigned short*>(s.GetEncoded(CHAR_ENCODING(1)));
  EXPECT_NE(units, s.GetReference());
  EXPECT_EQ(ucstrcmp(units, s), 0);
  free(units);

  // An encoding without a converter leaves the string and records nothing.
  ClearLastErr();
  EXPECT_LT(s.Assign("abc", CHAR_ENCODING(9999)), 0);
  EXPECT_EQ(s.GetLength(), 3);
  EXPECT_EQ(s.GetEncoded(CHAR_ENCODING(9999)), nullptr);
  EXPECT_EQ(GetLastErrCode(), 0);
}

// Decomposed UTF-8 is what a decomposing file system stores: e-acute as "e"
// and a combining acute, Hangul as conjoining jamo. Compatibility forms are
// decomposed on the way out and stay so on the way back.
TEST(VostringEncoded, Utf8Decomposed) {
  char* out = VOSTRING(u"\u00E9t\u00E9 \uAC01\uFB01").GetEncoded(CHAR_ENCODING_UTF8_DECOMPOSED);
  ASSERT_NE(out, nullptr);
  EXPECT_STREQ(out,
               "e\xCC\x81"
               "te\xCC\x81"
               " \xE1\x84\x80\xE1\x85\xA1\xE1\x86\xA8"
               "fi");
  VOSTRING back(out, CHAR_ENCODING_UTF8_DECOMPOSED);
  EXPECT_EQ(back, VOSTRING(u"\u00E9t\u00E9 \uAC01fi"));
  free(out);
  EXPECT_EQ(VOSTRING("e\xCC\x81", CHAR_ENCODING_UTF8).GetLength(), 2);
}

}  // namespace
