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

const unsigned short* const kXyz = reinterpret_cast<const unsigned short*>(u"xyz");

// The text in an encoding, as bytes; "<null>" when nothing comes back.
std::string Encoded(const VOSTRING& s, CHAR_ENCODING e) {
  char* out = s.GetEncoded(e);
  if (!out) return "<null>";
  std::string bytes(out, e == CHAR_ENCODING_UTF16 ? 2 * (s.GetLength() + 1) : strlen(out) + 1);
  free(out);
  return bytes.substr(0, bytes.size() - (e == CHAR_ENCODING_UTF16 ? 2 : 1));
}

TEST(VostringSharing, CopiesShareBodyAndFormatAndEditsUnshare) {
  VOSTRING a;
  a += u'x';
  EXPECT_TRUE(VOSTRING().IsEmpty()) << "a change to a default string reached the empty body";

  VOSTRING b("abc"), c(b);
  EXPECT_EQ(b.GetReference(), c.GetReference());
  c += "d";
  EXPECT_EQ(U8(b), "abc");
  // Assignment through another handle on the same body, and self-assignment.
  VOSTRING d(c);
  c = d;
  c = c;
  d = VOSTRING("z");
  EXPECT_EQ(U8(c), "abcd");

  // A default handle always sees the body shared, so even Clear unshares.
  VOSTRING e, f;
  e.Clear();
  EXPECT_NE(e.GetReference(), f.GetReference());
  EXPECT_EQ(f.GetReference(), VOSTRING::GetEmpty().GetReference());

  // The persistent format travels with a copy.
  VOSTRING g("v=");
  g << STR_BASE16;
  VOSTRING h(g);
  h << 255;
  EXPECT_EQ(U8(h), "v=FF");
}

TEST(VostringReading, ConstructionIndexAndSubstrings) {
  EXPECT_TRUE(VOSTRING(static_cast<const char*>(nullptr)).IsEmpty() &&
              VOSTRING(static_cast<const unsigned short*>(nullptr)).IsEmpty());
  EXPECT_EQ(U16(VOSTRING("\xE9t\xE9")), u"\u00E9t\u00E9");  // bytes are code points, not UTF-8
  EXPECT_EQ(U8(VOSTRING(-42)), "-42");
  EXPECT_EQ(U8(VOSTRING(4000000000u)), "4000000000");

  VOSTRING s("abc");
  EXPECT_TRUE(s[-1] == 0 && s[4] == 0);
  EXPECT_EQ(&s[3], s.GetReference() + 3) << "index = length gives the terminator itself";
  EXPECT_EQ(U8(s.GetSubString(1, 0x7FFFFFFF)), "bc");
  EXPECT_EQ(U8(s.GetSubString(0, 0)), "a");
  EXPECT_TRUE(s.GetSubString(2, 1).IsEmpty());
  EXPECT_TRUE(s.GetSubString(3).IsEmpty());
  EXPECT_TRUE(s.GetSubString(-1, 2).IsEmpty());

  unsigned short* copy = s.GetString();  // the caller's own copy
  EXPECT_EQ(ucstrcmp(copy, s), 0);
  free(copy);
  EXPECT_DOUBLE_EQ(VOSTRING(u"3\u20AC").ConvertToDouble(), 3.0);
}

TEST(VostringCompare, ResultsAndPositions) {
  VOSTRING ab("ab"), abc("abc");
  EXPECT_EQ(abc.Compare(ab, 2), 0);
  EXPECT_EQ(VOSTRING("aB").CompareNoCase(VOSTRING("Ab")), 0);
  EXPECT_NE(VOSTRING(u"\u00E9").CompareNoCase(VOSTRING(u"\u00C9")), 0) << "folding is ASCII only";
  EXPECT_EQ(VOSTRING("xxxxx").Compare(0, ab, 3, 2), 1);
  EXPECT_EQ(VOSTRING("xxxxx").Compare(6, ab, 0, 2), -1);
  EXPECT_EQ(VOSTRING("xxabc").Compare(2, abc, 0, 3), 0);
  EXPECT_EQ(VOSTRING("xxABC").CompareNoCase(2, abc, 0, 0x7FFFFFFF), 0);
  EXPECT_TRUE(VOSTRING("abc") == VOSTRING(u"abc") && ab != abc);

  // The whole-string comparison gives exactly what ucstrcmp gives.
  std::mt19937 rng(11);
  auto grow = [&rng](std::u16string& s, int n) {
    while (n-- > 0) s += static_cast<char16_t>(1 + rng() % 0xFFFE);
  };
  for (int round = 0; round < 2000; ++round) {
    std::u16string a, b;
    grow(a, rng() % 40);
    b = a;
    grow(a, rng() % 3);
    grow(b, rng() % 3);
    VOSTRING va(a.c_str()), vb(b.c_str());
    ASSERT_EQ(va.Compare(vb), ucstrcmp(va, vb));
  }
  // The counted and positioned forms give what ucstrncmp gives, over texts
  // long enough for every vector width, also where a unit 0 was written into
  // a text: the comparison ends there, as it would at a terminator.
  for (int round = 0; round < 3000; ++round) {
    std::u16string a, b;
    grow(a, rng() % 150);
    b = a;
    grow(a, rng() % 3);
    grow(b, rng() % 3);
    VOSTRING va(a.c_str()), vb(b.c_str());
    if (round % 5 == 0 && !a.empty()) {
      va.GetExclusive();
      const size_t at = rng() % a.size();
      const_cast<unsigned short*>(static_cast<const unsigned short*>(va))[at] = 0;
      if (round % 10 == 0 && at < b.size()) {
        vb.GetExclusive();
        const_cast<unsigned short*>(static_cast<const unsigned short*>(vb))[at] = 0;
      }
    }
    const int n = static_cast<int>(rng() % 160);
    ASSERT_EQ(va.Compare(vb, n), ucstrncmp(va, vb, n));
    const int pos = static_cast<int>(rng() % (a.size() + 1));
    const int otherpos = std::min(pos + static_cast<int>(rng() % 3), static_cast<int>(b.size()));
    ASSERT_EQ(va.Compare(pos, vb, otherpos, n),
              ucstrncmp(static_cast<const unsigned short*>(va) + pos,
                        static_cast<const unsigned short*>(vb) + otherpos, n));
  }
}

TEST(VostringSearch, AgreesWithStdU16String) {
  std::mt19937 rng(7);
  auto unit = [&rng](int kinds) { return static_cast<char16_t>(u'a' + rng() % kinds); };
  for (int round = 0; round < 300; ++round) {
    // Short texts and patterns of few kinds of unit, then long ones made of
    // repeats, so that the pattern's first and last units come often.
    std::u16string ref, pat;
    if (round < 200) {
      for (int i = rng() % 70; i > 0; --i) ref += unit(4);
      for (int i = 1 + rng() % 3; i > 0; --i) pat += unit(4);
    } else {
      for (int i = 1 + rng() % 40; i > 0; --i) pat += unit(3);
      for (int i = rng() % 8; i > 0; --i) ref += pat.substr(0, 1 + rng() % pat.size()) + unit(3);
      if (rng() % 2) ref += pat;
    }
    const unsigned short c = unit(5);
    VOSTRING s(ref.c_str());
    for (int start = 0; start < static_cast<int>(ref.size()); ++start) {
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
}

// Ranges are first and last units; a range that runs past the end is cut
// there, and one that starts outside or runs backwards changes nothing.
TEST(VostringEdit, RangesClipAndInvalidOnesAreIgnored) {
  const struct {
    const char* before;
    void (*edit)(VOSTRING&);
    const char* after;
  } cases[] = {
      {"abc", [](VOSTRING& s) { s.Remove(1, 1000); }, "a"},
      {"abc", [](VOSTRING& s) { s.Remove(2, 1); }, "abc"},
      {"abc", [](VOSTRING& s) { s.Truncate(3); }, "abc"},
      {"abc", [](VOSTRING& s) { s.Replace(1, 1, VOSTRING(), 0, 0x7FFFFFFF); }, "ac"},
      {"ac", [](VOSTRING& s) { s.Replace(2, 5, VOSTRING("XYZ"), 1, 0x7FFFFFFF); }, "acYZ"},
      {"acYZ", [](VOSTRING& s) { s.Replace(0, 100, VOSTRING("12"), 0, 0); }, "1"},
      {"1", [](VOSTRING& s) { s.Replace(0, u'9'), s.Replace(1, u'8'), s.Replace(0, 0); }, "9"},
      {"ad", [](VOSTRING& s) { s.Insert(1, VOSTRING("xbcx"), 1, 2); }, "abcd"},
      {"ab", [](VOSTRING& s) { s.Insert(3, VOSTRING("z")), s.Insert(0, VOSTRING("z"), 1, 1); },
       "ab"},
      {"ab", [](VOSTRING& s) { s.Assign(VOSTRING("hello"), 1, 3); }, "ell"},
      {"ab", [](VOSTRING& s) { s.Assign(VOSTRING("hello"), 5, 9); }, "ab"},
      {"el", [](VOSTRING& s) { s.Append(VOSTRING("hello"), 3, 0x7FFFFFFF); }, "ello"},
      {"ab", [](VOSTRING& s) { s.Assign(kXyz, 1, 99); }, "yz"},
      {"ab", [](VOSTRING& s) { s.Assign(kXyz, 5, 9); }, ""},  // past the terminator: nothing
      {"ab", [](VOSTRING& s) { s.Pad(u'-', 3), s.PadToLength(u'+', 7), s.PadToLength(u'+', 2); },
       "ab---++"},
      {"abc", [](VOSTRING& s) { s.SetUpperCase(1); }, "aBC"},
      {"MiXeD", [](VOSTRING& s) { s.SetLowerCase(); }, "mixed"},
  };
  for (const auto& c : cases) {
    VOSTRING s(c.before);
    c.edit(s);
    EXPECT_EQ(U8(s), c.after) << "case " << &c - cases;
  }
}

TEST(VostringEdit, SelfReferenceIsSafe) {
  VOSTRING s("abc");
  for (int i = 0; i < 12; ++i) s += s;  // operand moves with every growth
  EXPECT_EQ(s.GetLength(), 3 << 12);
  EXPECT_EQ(s.FindNextOf(VOSTRING("cc")), -1);

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
  s = "short";
  EXPECT_EQ(s.GetReference(), block) << "clearing and assigning reuse the block";
}

TEST(VostringEdit, ReserveNeverMovesTheEmptyBody) {
  // Every default string shares one body: growing it would leave a pointer
  // taken from any of them dangling (the address checker reads it below).
  VOSTRING other;
  const unsigned short* shared = other.GetReference();
  VOSTRING grown;
  ASSERT_EQ(grown.Reserve(1000), 0);
  grown += "kept";
  EXPECT_EQ(shared[0], 0);
  EXPECT_EQ(other.GetReference(), shared);
  EXPECT_TRUE(other.IsEmpty());
  EXPECT_EQ(U8(grown), "kept");

  // An ordinary shared body grows for all its handles, text and all.
  VOSTRING a("abc"), b(a);
  ASSERT_EQ(a.Reserve(1000), 0);
  EXPECT_EQ(a.GetReference(), b.GetReference());
  SetErrPosnDisable();
  EXPECT_EQ(a.Reserve(0x7FFFFFF0), VOERROR_OutOfMemory);
  SetErrPosnEnable();
  EXPECT_EQ(U8(b), "abc");
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
  const struct {
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
  for (const auto& c : cases) {
    VOSTRING s(c.in);
    EXPECT_EQ(s.SetLineTermination(c.term), 1);
    EXPECT_EQ(U8(s), c.out) << "input " << testing::PrintToString(std::string(c.in));
    EXPECT_EQ(s.CheckLineTermination(c.term), 1);
  }
  EXPECT_EQ(VOSTRING("a\r\nb").CheckLineTermination(LINETERM_LF), 0);
  EXPECT_EQ(VOSTRING("a\n\r").CheckLineTermination(LINETERM_CRLF), 0);
  VOSTRING odd("a\rb");
  EXPECT_EQ(odd.SetLineTermination(static_cast<LINETERM>(7)), 1);
  EXPECT_EQ(U8(odd), "a\rb");
}

TEST(VostringEncoded, BytesUtf16AndUtf8) {
  EXPECT_EQ(U16(VOSTRING("\xE9", CHAR_ENCODING_ASCII)), u"\u00E9");
  VOSTRING s;
  s.Assign("\xC3\xA9\xF0\x9F\x98\x80", CHAR_ENCODING_UTF8);
  EXPECT_EQ(U16(s), u"\u00E9\U0001F600");
  EXPECT_EQ(Encoded(s, CHAR_ENCODING_UTF8), "\xC3\xA9\xF0\x9F\x98\x80");
  EXPECT_EQ(Encoded(s, CHAR_ENCODING_UTF16),
            std::string(reinterpret_cast<const char*>(U16(s).data()), 6));
  EXPECT_EQ(Encoded(VOSTRING(u"a\u00E9\u20AC"), CHAR_ENCODING_ASCII), "a\xE9?");

  // A number the registry doesn't know is ASCII, by its name; an encoding
  // that can't be converted leaves the string and records nothing.
  ClearLastErr();
  EXPECT_EQ(s.Assign("ab\xE9", CHAR_ENCODING(9999)), 0);
  EXPECT_EQ(U16(s), u"ab\u00E9");
  EXPECT_LT(s.Assign("xyz", CHAR_ENCODING(6)), 0);  // the system's own: refused
  EXPECT_EQ(U16(s), u"ab\u00E9");
  EXPECT_EQ(Encoded(s, CHAR_ENCODING(6)), "<null>");
  EXPECT_EQ(GetLastErrCode(), 0);
}

// Decomposed UTF-8 is what a decomposing file system stores: e-acute as "e"
// and a combining acute, Hangul as conjoining jamo. Compatibility forms are
// decomposed on the way out and stay so on the way back.
TEST(VostringEncoded, Utf8Decomposed) {
  const std::string out =
      Encoded(VOSTRING(u"\u00E9t\u00E9 \uAC01\uFB01"), CHAR_ENCODING_UTF8_DECOMPOSED);
  EXPECT_EQ(out,
            "e\xCC\x81te\xCC\x81 \xE1\x84\x80\xE1\x85\xA1\xE1\x86\xA8"
            "fi");
  EXPECT_EQ(VOSTRING(out.c_str(), CHAR_ENCODING_UTF8_DECOMPOSED),
            VOSTRING(u"\u00E9t\u00E9 \uAC01fi"));
  EXPECT_EQ(VOSTRING("e\xCC\x81", CHAR_ENCODING_UTF8).GetLength(), 2);
}

}  // namespace
