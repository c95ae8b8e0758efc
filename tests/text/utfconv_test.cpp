// The UTF-16 <-> UTF-8 converters: against ICU on valid text, against a
// character-by-character model on arbitrary input, resumption in every chunk
// size, and the no-validation quirks on malformed input. The whole-string
// converters must give what the stream converters give, reading their input
// from heap blocks that end at the terminator, where the address sanitizer
// reports any read past it.
#include <gtest/gtest.h>
#include <malloc.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <random>
#include <string>
#include <vector>

#include "test_util.h"
#include "text/utfconv_priv.h"
#include "vosystem/ucstring.h"

#include <unicode/ustring.h>

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

// A whole-string converter on text without zeros, in a heap block that ends
// at its terminator. Checks the count returned, the terminator and the size
// of the result's block (exact with the address sanitizer, whose malloc keeps
// sizes, and give or take rounding, to pages when large, without it).
template <class To, class From, class Result>
std::vector<To> Whole(const std::vector<From>& text, int (*convert)(const From*, Result**)) {
  From* block = static_cast<From*>(malloc((text.size() + 1) * sizeof(From)));
  std::copy(text.begin(), text.end(), block);
  block[text.size()] = 0;
  Result* out = nullptr;
  const int n = convert(block, &out) - (sizeof(Result) == 1);  // bytes count the terminator
  free(block);
  EXPECT_GE(n, 0);
  if (n < 0) return {};
  EXPECT_EQ(out[n], 0);
  const size_t bytes = (n + 1) * sizeof(Result);
#if defined(__SANITIZE_ADDRESS__)
  EXPECT_EQ(malloc_usable_size(out), bytes);
#else
  EXPECT_LT(malloc_usable_size(out), bytes + 64 + bytes / 32);
#endif
  std::vector<To> result(out, out + n);
  free(out);
  return result;
}

Bytes HeapToUtf8(const Units& text) {
  return Whole<unsigned char>(text, MucConvertUnicodeToUTF8);
}
Units HeapToUtf16(const Bytes& text) {
  return Whole<unsigned short>(std::vector<char>(text.begin(), text.end()),
                               MucConvertUTF8ToUnicode);
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

// Valid text of all planes, whole and through the heap converters, against
// ICU.
void CheckValidText() {
  std::mt19937 rng(7);
  for (int round = 0; round < 300; ++round) {
    const std::u32string text = RandomCodePoints(rng, rng() % (round < 200 ? 300 : 5000));
    Bytes utf8;
    Units utf16;
    for (char32_t c : text) AppendUtf8(utf8, c), AppendUtf16(utf16, c);
    ASSERT_EQ(IcuToUtf8(utf16), utf8);
    ASSERT_EQ(IcuToUtf16(utf8), utf16);
    const Result8 r8 = ToUtf8(utf16, utf16.size() * 3);
    ASSERT_EQ(r8.rc, 0);
    ASSERT_EQ(r8.out, utf8);
    const Result16 r16 = ToUtf16(utf8, utf8.size());
    ASSERT_EQ(r16.rc, 0);
    ASSERT_EQ(r16.out, utf16);
    ASSERT_EQ(HeapToUtf8(utf16), utf8);
    ASSERT_EQ(HeapToUtf16(utf8), utf16);
  }
}

// Each test runs on every kernel, skipping those the processor lacks; the
// converters are compiled into the test, which switches them.
class UtfConvTest : public testing::TestWithParam<utfconv::Kernel> {
 protected:
  void SetUp() override {
    if (!utfconv::ForceKernel(GetParam())) {
      GTEST_SKIP() << "the processor lacks " << utfconv::KernelName(GetParam());
    }
  }
};

INSTANTIATE_TEST_SUITE_P(Kernels, UtfConvTest,
                         testing::Values(utfconv::Kernel::kScalar, utfconv::Kernel::kSse2,
                                         utfconv::Kernel::kSsse3, utfconv::Kernel::kAvx2,
                                         utfconv::Kernel::kAvx512),
                         [](const testing::TestParamInfo<utfconv::Kernel>& info) {
                           return std::string(utfconv::KernelName(info.param));
                         });

}  // namespace

TEST_P(UtfConvTest, ValidTextOfAllPlanesMatchesIcu) {
  CheckValidText();
}

TEST_P(UtfConvTest, EveryTargetSizeResumesWithoutLoss) {
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

TEST_P(UtfConvTest, Utf16QuirksAndLimits) {
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

TEST_P(UtfConvTest, Utf8QuirksOnMalformedInput) {
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

// Every length up to 300 (the block code's edges), then longer ones; no zero
// bytes, so that the whole-string converter sees the same text.
TEST_P(UtfConvTest, ArbitraryBytesMatchTheModelInEveryChunking) {
  std::mt19937 rng(3);
  for (int round = 0; round < 800; ++round) {
    const size_t length = round < 300 ? round : rng() % 5000;
    Bytes in;
    // Uniform bytes; UTF-8-like bytes; pieces of every kind (ASCII runs,
    // sequences, cut ones, stray bytes); well-formed sequences of any value
    // (overlong, surrogates, past U+10FFFF); valid text with bytes changed.
    static const unsigned kLeads[4][2] = {{1, 0x80}, {0xC0, 0xE0}, {0xE0, 0xF0}, {0xF0, 0xF8}};
    const int mode = round % 5;
    while (in.size() < length) {
      const unsigned r = rng();
      if (mode < 2) {
        in.push_back(mode == 0 ? 1 + r % 255 : 0x80 | r);
      } else if (mode == 2 && r % 4 == 0) {
        in.insert(in.end(), r % 100, 'a');
      } else if (mode == 2 && r % 4 == 1) {
        in.push_back(r % 2 ? 0x80 + r % 0x40 : 0xF8 + r % 8);
      } else if (mode < 4) {
        const int trail = rng() % 4;
        const int cut = mode == 2 ? rng() % (trail + 1) : 0;
        for (size_t run = 1 + rng() % 20; run > 0; --run) {
          in.push_back(kLeads[trail][0] + rng() % (kLeads[trail][1] - kLeads[trail][0]));
          for (int k = cut; k < trail; ++k) in.push_back(0x80 + rng() % 0x40);
        }
      } else {
        for (char32_t c : RandomCodePoints(rng, length)) AppendUtf8(in, c ? c : 1);
        for (size_t k = rng() % 4; k > 0; --k) in[rng() % length] = 1 + rng() % 255;
      }
    }
    in.resize(length);
    int rc;
    const Units expected = ModelDecode(in, &rc);
    const Result16 whole = ToUtf16(in, in.size() + 1);
    ASSERT_EQ(whole.rc, rc);
    ASSERT_EQ(whole.out, expected);
    ASSERT_EQ(HeapToUtf16(in), expected);  // drops a sequence cut short at the end
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

// Any units but 0, in runs of one kind (each range between two bounds, or
// pairs): the whole-string converter gives what the stream converter gives.
TEST_P(UtfConvTest, ArbitraryUnitsThroughTheHeapConverter) {
  static const unsigned kBounds[] = {1, 0x80, 0x800, 0xD800, 0xDC00, 0xE000, 0x10000};
  std::mt19937 rng(5);
  for (int round = 0; round < 700; ++round) {
    const size_t length = round < 300 ? round : rng() % 5000;
    Units in;
    while (in.size() < length) {
      const int kind = rng() % 8;
      for (size_t run = 1 + rng() % 40; run > 0; --run) {
        if (kind >= 6) {
          AppendUtf16(in, 0x10000 + rng() % 0x100000);
        } else {
          in.push_back(kBounds[kind] + rng() % (kBounds[kind + 1] - kBounds[kind]));
        }
      }
    }
    in.resize(length);  // may leave half a pair at the end
    const Result8 stream = ToUtf8(in, 3 * in.size());
    ASSERT_EQ(stream.rc, 0);
    ASSERT_EQ(HeapToUtf8(in), stream.out) << length;
  }
}

TEST_P(UtfConvTest, HeapConverters) {
  // A sequence cut short by the terminator is dropped, after text of any
  // length: each kind of lead byte, with each number of continuation bytes.
  static const std::pair<int, int> kLeads[] = {
      {0xC3, 1}, {0xE4, 2}, {0xF0, 3}, {0xF8, 4}, {0xFC, 5}};
  for (size_t ascii = 0; ascii < 40; ++ascii) {
    for (const auto& [lead, trail] : kLeads) {
      for (int have = 0; have <= trail; ++have) {
        Bytes text(ascii, 'a');
        text.push_back(lead);
        text.insert(text.end(), have, 0x80);
        const Units out = HeapToUtf16(text);
        ASSERT_EQ(out.size(), ascii + (have == trail)) << ascii << " " << lead << " " << have;
        ASSERT_EQ(Units(out.begin(), out.begin() + ascii), Units(ascii, 'a'));
      }
    }
  }
  // Long text of one and two bytes, then CJK, then emoji.
  Units text;
  Bytes expected;
  for (int i = 0; i < 390000; ++i) {
    const char32_t c = i < 200000 ? (i % 2 ? 0x436 : 'a') : i < 350000 ? 0x4E2D : 0x1F600 + i % 64;
    AppendUtf16(text, c);
    AppendUtf8(expected, c);
  }
  const Bytes utf8 = HeapToUtf8(text);
  ASSERT_EQ(utf8, expected);
  EXPECT_EQ(HeapToUtf16(utf8), text);
}

// Text of one kind after every length of ASCII up to 70, so that sequences
// and pairs straddle each place where a wide block ends, against ICU.
TEST_P(UtfConvTest, EachKindOfTextAcrossEveryBlockEdgeMatchesIcu) {
  static const std::pair<char32_t, char32_t> kKinds[] = {
      {0x80, 0x800}, {0x800, 0xD800}, {0x10000, 0x110000}, {0x20, 0x110000}};
  std::mt19937 rng(13);
  for (const auto& [first, last] : kKinds) {
    for (size_t ascii = 0; ascii <= 70; ++ascii) {
      Bytes utf8(ascii, 'a');
      Units utf16(ascii, 'a');
      while (utf8.size() < 700) {
        char32_t c = first + rng() % (last - first);
        if (c >= 0xD800 && c < 0xE000) c = 'b';
        if (rng() % 16 == 0) c = ' ';
        AppendUtf8(utf8, c);
        AppendUtf16(utf16, c);
      }
      ASSERT_EQ(IcuToUtf16(utf8), utf16);
      ASSERT_EQ(ToUtf16(utf8, utf8.size()).out, utf16) << ascii;
      ASSERT_EQ(ToUtf8(utf16, utf8.size()).out, utf8) << ascii;
      ASSERT_EQ(HeapToUtf16(utf8), utf16) << ascii;
      ASSERT_EQ(HeapToUtf8(utf16), utf8) << ascii;
    }
  }
}

// Every path out of the kernels leaves the upper register halves clean:
// text of every kind, long enough for the wide blocks, refused by them
// (malformed), or too short to reach them, through every converter.
TEST_P(UtfConvTest, KernelsLeaveTheUpperRegisterHalvesClean) {
  bool known;
  UpperRegisterHalvesInUse(&known);
  if (!known) GTEST_SKIP() << "the processor doesn't report which register state is in use";
  std::mt19937 rng(17);
  std::vector<Bytes> texts;
  for (size_t length : {5, 40, 300, 5000}) {
    for (const auto& [first, last] : {std::pair<char32_t, char32_t>{0x20, 0x80},
                                      {0x80, 0x800},
                                      {0x800, 0xD800},
                                      {0x10000, 0x110000},
                                      {0x20, 0x110000}}) {
      Bytes utf8;
      while (utf8.size() < length) {
        const char32_t c = first + rng() % (last - first);
        AppendUtf8(utf8, c >= 0xD800 && c < 0xE000 ? 'x' : c);
      }
      texts.push_back(utf8);
      for (int k = 0; k < 8; ++k) utf8[rng() % utf8.size()] = 1 + rng() % 255;
      texts.push_back(utf8);
    }
  }
  for (const Bytes& text : texts) {
    int rc;
    const Units units = ModelDecode(text, &rc);
    std::vector<unsigned short> out16(text.size() + 1);
    std::vector<unsigned char> out8(3 * units.size() + 1);
    const unsigned char* s8 = text.data();
    unsigned short* d16 = out16.data();
    ClearUpperRegisterHalves();
    ConvertUTF8toUTF16(&s8, text.data() + text.size(), &d16, out16.data() + out16.size());
    ASSERT_FALSE(UpperRegisterHalvesInUse(&known)) << "decoding " << text.size() << " bytes";
    const unsigned short* s16 = units.data();
    unsigned char* d8 = out8.data();
    ClearUpperRegisterHalves();
    ConvertUTF16toUTF8(&s16, units.data() + units.size(), &d8, out8.data() + out8.size());
    ASSERT_FALSE(UpperRegisterHalvesInUse(&known)) << "encoding " << units.size() << " units";
    // The heap converters size their results with kernels of their own.
    const std::string whole(text.begin(), text.end());  // no zero byte in it
    unsigned short* heap16 = nullptr;
    ClearUpperRegisterHalves();
    MucConvertUTF8ToUnicode(whole.c_str(), &heap16);
    ASSERT_FALSE(UpperRegisterHalvesInUse(&known)) << "decoding whole " << whole.size() << " bytes";
    char* heap8 = nullptr;
    ClearUpperRegisterHalves();
    MucConvertUnicodeToUTF8(heap16, &heap8);
    ASSERT_FALSE(UpperRegisterHalvesInUse(&known)) << "encoding whole";
    free(heap16);
    free(heap8);
  }
}
