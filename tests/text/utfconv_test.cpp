// The UTF-16 <-> UTF-8 converters: against ICU on valid text, against a
// character-by-character model on arbitrary input, resumption in every chunk
// size, and the no-validation quirks on malformed input.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <random>
#include <string>
#include <vector>

#include "vosystem/ucstring.h"

#ifdef VOSYS_HAVE_ICU
#include <unicode/ustring.h>
#endif

namespace {

using Units = std::vector<unsigned short>;
using Bytes = std::vector<unsigned char>;

Bytes B(std::initializer_list<int> v) {
  return Bytes(v.begin(), v.end());
}
Units U(std::initializer_list<int> v) {
  return Units(v.begin(), v.end());
}

struct Result8 {
  int rc;
  size_t read;  // units consumed
  Bytes out;
};
struct Result16 {
  int rc;
  size_t read;  // bytes consumed
  Units out;
};

// One call with a target of `room` bytes. Checks that nothing is written past
// the returned position.
Result8 ToUtf8(const Units& src, size_t room) {
  Bytes buf(room + 8, 0xAA);
  const unsigned short* s = src.data();
  unsigned char* d = buf.data();
  const int rc = ConvertUTF16toUTF8(&s, src.data() + src.size(), &d, buf.data() + room);
  for (unsigned char* p = d; p < buf.data() + buf.size(); ++p) EXPECT_EQ(*p, 0xAA);
  return {rc, static_cast<size_t>(s - src.data()), Bytes(buf.data(), d)};
}

Result16 ToUtf16(const Bytes& src, size_t room) {
  Units buf(room + 8, 0xAAAA);
  const unsigned char* s = src.data();
  unsigned short* d = buf.data();
  const int rc = ConvertUTF8toUTF16(&s, src.data() + src.size(), &d, buf.data() + room);
  for (unsigned short* p = d; p < buf.data() + buf.size(); ++p) EXPECT_EQ(*p, 0xAAAA);
  return {rc, static_cast<size_t>(s - src.data()), Units(buf.data(), d)};
}

// Character-by-character model of the decoder, the slow and obvious way.
Units ModelDecode(const Bytes& src, int* rc) {
  static const uint32_t kMarks[6] = {0, 0x3080, 0xE2080, 0x3C82080, 0xFA082080, 0x82082080};
  Units out;
  *rc = 0;
  for (size_t i = 0; i < src.size();) {
    const uint8_t lead = src[i];
    const size_t trail = lead < 0xC0   ? 0
                         : lead < 0xE0 ? 1
                         : lead < 0xF0 ? 2
                         : lead < 0xF8 ? 3
                         : lead < 0xFC ? 4
                                       : 5;
    if (i + trail >= src.size()) {
      *rc = 1;
      break;
    }
    uint32_t v = 0;
    for (size_t k = 0; k <= trail; ++k) v = (k ? v << 6 : v) + src[i + k];
    v -= kMarks[trail];
    if (v < 0x10000) {
      out.push_back(static_cast<unsigned short>(v));
    } else if (v < 0x110000) {
      out.push_back(static_cast<unsigned short>(0xD800 + ((v - 0x10000) >> 10)));
      out.push_back(static_cast<unsigned short>(0xDC00 + (v & 0x3FF)));
    } else {
      out.push_back(0xFFFD);
    }
    i += trail + 1;
  }
  return out;
}

// Random text: code points from every plane, weighted towards runs of one
// script so that the block paths see long stretches.
std::u32string RandomCodePoints(std::mt19937& rng, size_t n) {
  static const std::pair<char32_t, char32_t> kRanges[] = {
      {0x20, 0x7F}, {0x80, 0x800}, {0x800, 0xD800}, {0xE000, 0x10000}, {0x10000, 0x110000}};
  std::u32string text;
  while (text.size() < n) {
    const auto& range = kRanges[rng() % 5];
    for (size_t run = 1 + rng() % 40; run > 0 && text.size() < n; --run) {
      text += static_cast<char32_t>(range.first + rng() % (range.second - range.first));
    }
  }
  return text;
}

void AppendUtf8(Bytes& out, char32_t c) {
  if (c < 0x80) {
    out.push_back(static_cast<unsigned char>(c));
  } else if (c < 0x800) {
    out.insert(out.end(), {static_cast<unsigned char>(0xC0 | (c >> 6)),
                           static_cast<unsigned char>(0x80 | (c & 0x3F))});
  } else if (c < 0x10000) {
    out.insert(out.end(), {static_cast<unsigned char>(0xE0 | (c >> 12)),
                           static_cast<unsigned char>(0x80 | ((c >> 6) & 0x3F)),
                           static_cast<unsigned char>(0x80 | (c & 0x3F))});
  } else {
    out.insert(out.end(), {static_cast<unsigned char>(0xF0 | (c >> 18)),
                           static_cast<unsigned char>(0x80 | ((c >> 12) & 0x3F)),
                           static_cast<unsigned char>(0x80 | ((c >> 6) & 0x3F)),
                           static_cast<unsigned char>(0x80 | (c & 0x3F))});
  }
}

void AppendUtf16(Units& out, char32_t c) {
  if (c < 0x10000) {
    out.push_back(static_cast<unsigned short>(c));
  } else {
    out.push_back(static_cast<unsigned short>(0xD800 + ((c - 0x10000) >> 10)));
    out.push_back(static_cast<unsigned short>(0xDC00 + (c & 0x3FF)));
  }
}

#ifdef VOSYS_HAVE_ICU
Bytes IcuToUtf8(const Units& src) {
  std::string out(src.size() * 3 + 1, '\0');
  UErrorCode err = U_ZERO_ERROR;
  int32_t len = 0;
  u_strToUTF8(out.data(), static_cast<int32_t>(out.size()), &len,
              reinterpret_cast<const UChar*>(src.data()), static_cast<int32_t>(src.size()), &err);
  EXPECT_TRUE(U_SUCCESS(err));
  return Bytes(out.begin(), out.begin() + len);
}

Units IcuToUtf16(const Bytes& src) {
  std::u16string out(src.size() + 1, u'\0');
  UErrorCode err = U_ZERO_ERROR;
  int32_t len = 0;
  u_strFromUTF8(out.data(), static_cast<int32_t>(out.size()), &len,
                reinterpret_cast<const char*>(src.data()), static_cast<int32_t>(src.size()), &err);
  EXPECT_TRUE(U_SUCCESS(err));
  return Units(out.begin(), out.begin() + len);
}
#endif

// Valid text of all planes, whole and through the heap converters, against
// ICU (or the built texts without it).
void CheckValidText() {
  std::mt19937 rng(7);
  for (int round = 0; round < 300; ++round) {
    const std::u32string text = RandomCodePoints(rng, rng() % (round < 200 ? 300 : 5000));
    Bytes utf8;
    Units utf16;
    for (char32_t c : text) AppendUtf8(utf8, c), AppendUtf16(utf16, c);
#ifdef VOSYS_HAVE_ICU
    ASSERT_EQ(IcuToUtf8(utf16), utf8);
    ASSERT_EQ(IcuToUtf16(utf8), utf16);
#endif
    const Result8 r8 = ToUtf8(utf16, utf16.size() * 3);
    ASSERT_EQ(r8.rc, 0);
    ASSERT_EQ(r8.out, utf8);
    const Result16 r16 = ToUtf16(utf8, utf8.size());
    ASSERT_EQ(r16.rc, 0);
    ASSERT_EQ(r16.out, utf16);

    Units terminated = utf16;
    terminated.push_back(0);
    char* heap8 = nullptr;
    ASSERT_EQ(MucConvertUnicodeToUTF8(terminated.data(), &heap8),
              static_cast<int>(utf8.size() + 1));
    Bytes expected8 = utf8;
    expected8.push_back(0);
    ASSERT_EQ(Bytes(heap8, heap8 + expected8.size()), expected8);
    unsigned short* heap16 = nullptr;
    ASSERT_EQ(MucConvertUTF8ToUnicode(heap8, &heap16), static_cast<int>(utf16.size()));
    ASSERT_EQ(Units(heap16, heap16 + utf16.size() + 1), terminated);
    free(heap8);
    free(heap16);
  }
}

}  // namespace

TEST(UtfConvTest, ValidTextOfAllPlanesMatchesIcu) {
  CheckValidText();
}

// The same through the SSE2-only code (the variable is read once per process,
// and each test runs in its own).
TEST(UtfConvTest, ValidTextThroughSse2Code) {
  setenv("VOSYS_UTFCONV_SSE2", "1", 1);
  CheckValidText();
}

TEST(UtfConvTest, EveryTargetSizeResumesWithoutLoss) {
  std::mt19937 rng(11);
  const std::u32string text = RandomCodePoints(rng, 700);
  Bytes utf8;
  Units utf16;
  for (char32_t c : text) AppendUtf8(utf8, c), AppendUtf16(utf16, c);
  std::vector<size_t> rooms;
  for (size_t room = 1; room < 90; room += (room < 12 ? 1 : 7)) rooms.push_back(room);
  rooms.insert(rooms.end(), {150, 333, 517, 1001});  // large enough for the block code
  for (size_t room : rooms) {
    Bytes joined8;
    for (size_t pos = 0; pos < utf16.size();) {
      const Result8 r = ToUtf8(Units(utf16.begin() + pos, utf16.end()), room);
      joined8.insert(joined8.end(), r.out.begin(), r.out.end());
      pos += r.read;
      if (r.rc == 0) break;
      ASSERT_EQ(r.rc, 2);
      ASSERT_FALSE(r.read > 0 && (utf16[pos - 1] & 0xFC00) == 0xD800) << "split pair";
      if (r.read == 0) break;  // a character larger than the room
    }
    if (room >= 4) {
      ASSERT_EQ(joined8, utf8) << room;
    }

    Units joined16;
    for (size_t pos = 0; pos < utf8.size();) {
      const Result16 r = ToUtf16(Bytes(utf8.begin() + pos, utf8.end()), room);
      joined16.insert(joined16.end(), r.out.begin(), r.out.end());
      pos += r.read;
      if (r.rc == 0) break;
      ASSERT_EQ(r.rc, 2);
      if (r.read == 0) break;  // a pair needs two units
    }
    if (room >= 2) {
      ASSERT_EQ(joined16, utf16) << room;
    }
  }
  // Source chunks: a chunk that ends inside a sequence gives 1 and leaves it.
  for (size_t chunk = 1; chunk < 40; ++chunk) {
    Units joined;
    Bytes pending;
    for (size_t pos = 0; pos < utf8.size(); pos += chunk) {
      pending.insert(pending.end(), utf8.begin() + pos,
                     utf8.begin() + std::min(utf8.size(), pos + chunk));
      const Result16 r = ToUtf16(pending, pending.size());
      ASSERT_EQ(r.rc, r.read < pending.size() ? 1 : 0);
      joined.insert(joined.end(), r.out.begin(), r.out.end());
      pending.erase(pending.begin(), pending.begin() + r.read);
    }
    ASSERT_EQ(joined, utf16) << chunk;
  }
}

TEST(UtfConvTest, Utf16QuirksAndLimits) {
  EXPECT_EQ(ToUtf8(U({0xD83D, 0xDE00}), 10).out, B({0xF0, 0x9F, 0x98, 0x80}));
  EXPECT_EQ(ToUtf8(U({0xD83D}), 10).out, B({0xED, 0xA0, 0xBD}));  // lone high
  EXPECT_EQ(ToUtf8(U({0xDE00, 0xD83D, 0x41}), 10).out,
            B({0xED, 0xB8, 0x80, 0xED, 0xA0, 0xBD, 0x41}));  // reversed pair
  // A high surrogate at the end of the source is a character of its own.
  const Units pair = U({0xD83D, 0xDE00});
  const unsigned short* s = pair.data();
  unsigned char buf[8];
  unsigned char* d = buf;
  EXPECT_EQ(ConvertUTF16toUTF8(&s, pair.data() + 1, &d, buf + 8), 0);
  EXPECT_EQ(Bytes(buf, d), B({0xED, 0xA0, 0xBD}));
  // Room for three bytes with a pair next: nothing of it is written.
  const Result8 full = ToUtf8(U({0x41, 0xD83D, 0xDE00}), 4);
  EXPECT_EQ(full.rc, 2);
  EXPECT_EQ(full.read, 1u);
  EXPECT_EQ(full.out, B({0x41}));
  EXPECT_EQ(ToUtf8(U({0x7F, 0x80, 0x7FF, 0x800, 0xFFFF}), 20).out,
            B({0x7F, 0xC2, 0x80, 0xDF, 0xBF, 0xE0, 0xA0, 0x80, 0xEF, 0xBF, 0xBF}));
  EXPECT_EQ(ToUtf8(Units(), 0).rc, 0);
}

TEST(UtfConvTest, Utf8QuirksOnMalformedInput) {
  struct Case {
    Bytes in;
    Units out;
  };
  const Case cases[] = {
      {B({0xED, 0xA0, 0xBD}), U({0xD83D})},                           // encoded surrogate
      {B({0x80, 0xBF, 0x41}), U({0x80, 0xBF, 0x41})},                 // stray continuations
      {B({0xC0, 0x80, 0xC0, 0xAF, 0xC1, 0xBF}), U({0, 0x2F, 0x7F})},  // overlong
      {B({0xE0, 0x80, 0x80}), U({0})},
      {B({0xC3, 0x41}), U({0x81})},                  // no continuation: 'A' eaten
      {B({0xC0, 0x00}), U({0xFFFD})},                // wraps below 0
      {B({0xEF, 0xC0, 0x80}), U({0xD800, 0xDC00})},  // 3 bytes, 2 units
      {B({0xEF, 0xFF, 0xFF}), U({0xD804, 0xDC3F})},
      {B({0xF4, 0x8F, 0xBF, 0xBF}), U({0xDBFF, 0xDFFF})},
      {B({0xF4, 0x90, 0x80, 0x80}), U({0xFFFD})},   // above U+10FFFF
      {B({0xF8, 0x80, 0x80, 0x80, 0x80}), U({0})},  // 5-byte forms
      {B({0xF8, 0x88, 0x80, 0x80, 0x80}), U({0xFFFD})},
      {B({0xFC, 0x84, 0x80, 0x80, 0x80, 0x80}), U({0xFFFD})},  // 6-byte forms
      {B({0xFC, 0x80, 0x80, 0x80, 0x84, 0x80}), U({0x100})},   // 32-bit wrap
  };
  for (const Case& c : cases) {
    const Result16 r = ToUtf16(c.in, 10);
    EXPECT_EQ(r.rc, 0);
    EXPECT_EQ(r.out, c.out) << std::hex << int(c.in[0]);
  }
  // Truncated: result 1 with the source at the lead byte.
  const Result16 cut = ToUtf16(B({0x41, 0xE4, 0xB8}), 10);
  EXPECT_EQ(cut.rc, 1);
  EXPECT_EQ(cut.read, 1u);
  EXPECT_EQ(cut.out, U({0x41}));
  EXPECT_EQ(ToUtf16(B({0xFC, 0x80, 0x80, 0x80, 0x80}), 10).rc, 1);
  // One free unit and a pair to write: 2, and nothing of the pair.
  const Result16 full = ToUtf16(B({0x41, 0xF0, 0x9F, 0x98, 0x80}), 2);
  EXPECT_EQ(full.rc, 2);
  EXPECT_EQ(full.read, 1u);
  EXPECT_EQ(ToUtf16(B({0x41}), 0).rc, 2);
}

TEST(UtfConvTest, ArbitraryBytesMatchTheModelInEveryChunking) {
  std::mt19937 rng(3);
  for (int round = 0; round < 400; ++round) {
    Bytes in(rng() % 600);
    const int mode = round % 3;  // uniform bytes, UTF-8-like bytes, mostly valid
    for (auto& b : in) {
      const unsigned r = rng();
      b = mode == 0 ? r : mode == 1 ? (0x80 | r) : (r % 9 ? 0x61 + r % 26 : 0xC0 | r);
    }
    int rc;
    const Units expected = ModelDecode(in, &rc);
    const Result16 whole = ToUtf16(in, in.size() + 1);
    ASSERT_EQ(whole.rc, rc);
    ASSERT_EQ(whole.out, expected);
    // Target sizes: the output continues exactly where it stopped.
    const size_t room = 1 + rng() % 64;
    Units joined;
    for (size_t pos = 0;;) {
      const Result16 r = ToUtf16(Bytes(in.begin() + pos, in.end()), room);
      joined.insert(joined.end(), r.out.begin(), r.out.end());
      pos += r.read;
      if (r.rc != 2 || r.read == 0) break;
    }
    ASSERT_EQ(joined, Units(expected.begin(), expected.begin() + joined.size()));
  }
}

TEST(UtfConvTest, HeapConverters) {
  const unsigned short empty[] = {0};
  char* out8 = nullptr;
  EXPECT_EQ(MucConvertUnicodeToUTF8(empty, &out8), 1);
  EXPECT_EQ(out8[0], '\0');
  free(out8);
  unsigned short* out16 = nullptr;
  EXPECT_EQ(MucConvertUTF8ToUnicode("", &out16), 0);
  EXPECT_EQ(out16[0], 0);
  free(out16);
  // A sequence cut short by the terminator is dropped, without an error.
  EXPECT_EQ(MucConvertUTF8ToUnicode("ab\xE4\xB8", &out16), 2);
  EXPECT_EQ(Units(out16, out16 + 3), U({'a', 'b', 0}));
  free(out16);
  // A high surrogate before the terminator goes out as three bytes.
  const unsigned short lone[] = {0x41, 0xD83D, 0};
  EXPECT_EQ(MucConvertUnicodeToUTF8(lone, &out8), 5);
  EXPECT_EQ(Bytes(out8, out8 + 5), B({0x41, 0xED, 0xA0, 0xBD, 0}));
  free(out8);
  // Long multi-byte text, beyond any first estimate.
  Units cjk(100000, 0x4E2D);
  cjk.push_back(0);
  EXPECT_EQ(MucConvertUnicodeToUTF8(cjk.data(), &out8), 300001);
  EXPECT_EQ(Bytes(out8 + 299997, out8 + 300001), B({0xE4, 0xB8, 0xAD, 0}));
  free(out8);
}
