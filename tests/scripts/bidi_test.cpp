// The bidirectional string and its cursor: the run model's promises, ICU's
// ubidi and BidiTest.txt on the classes where the two models agree, and the
// caret's bounds.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "vosystem/bidi.h"

#include <unicode/ubidi.h>

namespace {

using DIR = BIDISTRING::DIRECTION;
constexpr DIR kLTR = BIDISTRING::DIRECTION_LeftToRight;
constexpr DIR kRTL = BIDISTRING::DIRECTION_RightToLeft;

const unsigned short* Units(const std::u16string& s) {
  return reinterpret_cast<const unsigned short*>(s.c_str());
}

std::u16string Take(unsigned short* p) {
  std::u16string s = p ? std::u16string(reinterpret_cast<const char16_t*>(p)) : u"<null>";
  free(p);
  return s;
}

// Spans along the visual list, as "r:" or "l:" and their chars.
std::vector<std::u16string> VisualSpans(const BIDISTRING& b) {
  std::vector<std::u16string> spans;
  for (const BIDISTRING::SPAN* s = b.GetVisualHead(); s; s = s->visualNext)
    spans.push_back((s->direction == kRTL ? u"r:" : u"l:") +
                    std::u16string(reinterpret_cast<const char16_t*>(s->chars)));
  return spans;
}

std::u16string Visual(const std::u16string& text, DIR dir, bool force) {
  BIDISTRING b;
  EXPECT_EQ(b.SetStringLogical(Units(text), dir, force), 0);
  return Take(b.GetStringVisual());
}

// ICU's visual order, mirrored; level 0, 1 or UBIDI_DEFAULT_LTR.
std::u16string IcuVisual(const std::u16string& text, UBiDiLevel level) {
  UErrorCode status = U_ZERO_ERROR;
  UBiDi* bidi = ubidi_open();
  ubidi_setPara(bidi, text.c_str(), static_cast<int32_t>(text.size()), level, nullptr, &status);
  std::u16string out(text.size() + 1, u'\0');
  int32_t n = ubidi_writeReordered(bidi, &out[0], static_cast<int32_t>(out.size()),
                                   UBIDI_DO_MIRRORING, &status);
  ubidi_close(bidi);
  EXPECT_TRUE(U_SUCCESS(status));
  out.resize(n);
  return out;
}

// Hebrew stands for upper case below.
const char16_t kAlef = 0x05D0;
std::u16string Hebrew(const char* ascii) {
  std::u16string s;
  for (; *ascii; ++ascii)
    s += *ascii >= 'A' && *ascii <= 'Z' ? char16_t(kAlef + (*ascii - 'A')) : char16_t(*ascii);
  return s;
}

TEST(BidiStringTest, RunModelPromises) {
  BIDISTRING b(Units(u"plain text"), kLTR, BIDISTRING::ORDER_Logical);
  EXPECT_EQ(VisualSpans(b), std::vector<std::u16string>{u"l:plain text"});
  EXPECT_EQ(b.GetLogicalHead(), b.GetVisualHead());

  // Numbers keep left-to-right order inside right-to-left text.
  b.SetStringLogical(Units(Hebrew("ABC 123 DEF")), kLTR, false);
  EXPECT_EQ(b.GetStringDirection(), kRTL);
  EXPECT_EQ(VisualSpans(b),
            (std::vector<std::u16string>{Hebrew("r:FED "), u"l:123", Hebrew("r: CBA")}));
  // Brackets at the ends of right-to-left text are mirrored, not left out.
  EXPECT_EQ(Visual(Hebrew("(A)"), kLTR, false), Hebrew("(A)"));
  EXPECT_EQ(Visual(Hebrew("A [B] C!"), kRTL, true), Hebrew("!C [B] A"));
  // A trailing space goes with the base direction's run.
  EXPECT_EQ(Visual(Hebrew("abc DEF "), kLTR, false), Hebrew("abc FED "));
  b.SetStringLogical(Units(Hebrew("abc DEF ")), kLTR, false);
  EXPECT_EQ(VisualSpans(b).back(), u"l: ");
  // force keeps the base for Latin text; no strong character, the default.
  EXPECT_EQ(Visual(u"ab cd", kRTL, true), u"ab cd");
  b.SetStringLogical(Units(u"ab cd"), kRTL, true);
  EXPECT_EQ(b.GetStringDirection(), kRTL);
  b.SetStringLogical(Units(u"12 !"), kRTL, false);
  EXPECT_EQ(b.GetStringDirection(), kRTL);

  // Empty and null text: no spans, an empty string back.
  const std::u16string none;
  for (const unsigned short* empty : {Units(none), static_cast<const unsigned short*>(nullptr)}) {
    b.SetStringVisual(empty, kRTL);
    EXPECT_TRUE(b.GetVisualHead() == nullptr && b.GetLogicalHead() == nullptr);
    EXPECT_EQ(b.GetLength(), 0u);
    EXPECT_EQ(Take(b.GetStringVisual()), u"");
    EXPECT_EQ(Take(b.GetStringLogical()), u"");
  }
  // Visual right-to-left text: a minus shown in front of its number stays.
  b.SetStringVisual(Units(Hebrew("A -5")), kRTL);
  EXPECT_EQ(VisualSpans(b), (std::vector<std::u16string>{Hebrew("r:A "), u"l:-5"}));
  EXPECT_EQ(Take(b.GetStringLogical()), Hebrew("-5 A"));
  // Marks alone, brackets alone, long runs of spaces: every unit is placed.
  for (const std::u16string& odd :
       {std::u16string(u"\u0301\u0301\u05B0"), std::u16string(u"((([[<"),
        std::u16string(200000, u' ') + Hebrew("A") + std::u16string(200000, u' ')}) {
    for (DIR dir : {kLTR, kRTL}) {
      b.SetStringLogical(Units(odd), dir, true);
      EXPECT_EQ(Take(b.GetStringLogical()), odd);
      b.SetStringVisual(Units(odd), dir);
      EXPECT_EQ(Take(b.GetStringVisual()), odd);
    }
  }
  EXPECT_EQ(UcsymmetricPair(u'('), u')');
  EXPECT_EQ(UcsymmetricPair(0xFF3D), 0xFF3B);
  EXPECT_EQ(UcsymmetricPair(u'a'), u'a');
  EXPECT_TRUE(IsSymmetric(0x3011) && !IsSymmetric(0xFF3C));
}

// Where the run model and the Unicode algorithm agree, ICU checks the
// visual order: strong letters and spaces in all three paragraph modes
// (automatic, left to right, right to left), and right-to-left letters with
// spaces and digits in right-to-left and automatic paragraphs. The string
// must also give back its logical text, and read its visual text back to
// the logical one.
TEST(BidiStringTest, LettersSpacesAndNumbersMatchIcu) {
  struct CASE {
    std::u16string alphabet;
    std::vector<int> modes;
  };
  const CASE cases[] = {{u"abcxyz \u05D0\u05D1\u05EA\u0627\u0628\u064A", {0, 1, 2}},
                        {u" \u05D0\u05D1\u0627\u0628 0123456789", {0, 2}}};
  std::mt19937 random(4711);
  int failures = 0;
  for (const CASE& c : cases) {
    std::uniform_int_distribution<size_t> pick(0, c.alphabet.size() - 1), length(1, 30);
    for (int n = 0; n < 3000; ++n) {
      std::u16string text;
      for (size_t k = length(random); k > 0; --k) text += c.alphabet[pick(random)];
      for (int mode : c.modes) {
        BIDISTRING b;
        b.SetStringLogical(Units(text), mode == 2 ? kRTL : kLTR, mode != 0);
        const std::u16string visual = Take(b.GetStringVisual());
        const UBiDiLevel level = mode == 0 ? UBIDI_DEFAULT_LTR : mode == 2 ? 1 : 0;
        if (visual != IcuVisual(text, level) && ++failures <= 5)
          ADD_FAILURE() << "string " << n << " mode " << mode;
        EXPECT_EQ(Take(b.GetStringLogical()), text);
        BIDISTRING back(Units(visual), b.GetStringDirection(), BIDISTRING::ORDER_Visual);
        EXPECT_EQ(Take(back.GetStringLogical()), text);
      }
    }
  }
  EXPECT_EQ(failures, 0);
}

// The lines of the Unicode conformance file whose classes are L, R, AL and
// WS only, in each paragraph mode the line lists.
TEST(BidiStringTest, BidiTestFileOnStrongClasses) {
  std::ifstream file("/usr/share/unicode/BidiTest.txt");
  ASSERT_TRUE(file) << "BidiTest.txt (package unicode-data) is missing";
  std::vector<int> reorder;
  int checked = 0;
  for (std::string line; std::getline(file, line);) {
    if (line.rfind("@Reorder:", 0) == 0) {
      std::istringstream in(line.substr(9));
      reorder.assign(std::istream_iterator<int>(in), std::istream_iterator<int>());
      continue;
    }
    const size_t semi = line.find(';');
    if (line.empty() || line[0] == '#' || line[0] == '@' || semi == std::string::npos) continue;
    std::istringstream classes(line.substr(0, semi));
    std::u16string text;
    bool usable = true;
    for (std::string c; classes >> c;) {
      const char16_t k = static_cast<char16_t>(text.size());
      if (c == "L")
        text += char16_t(u'a' + k);
      else if (c == "R")
        text += char16_t(0x05D0 + k);
      else if (c == "AL")
        text += char16_t(0x0628 + k);
      else if (c == "WS")
        text += u' ';
      else
        usable = false;
    }
    if (!usable) continue;
    std::u16string expected;
    for (int i : reorder) expected += text[i];
    const int modes = std::stoi(line.substr(semi + 1));
    for (int mode = 0; mode < 3; ++mode) {
      if (!(modes >> mode & 1)) continue;
      EXPECT_EQ(Visual(text, mode == 2 ? kRTL : kLTR, mode != 0), expected) << line;
      ++checked;
    }
  }
  EXPECT_GT(checked, 1000);
}

// Where the run model and the Unicode algorithm part, on purpose: neutrals
// take no direction from their neighbours, and numbers are left to right in
// right-to-left runs only.
TEST(BidiStringTest, KnownDifferencesFromIcu) {
  // A bracket between two right-to-left letters in left-to-right text
  // stays in a left-to-right run of its own.
  EXPECT_EQ(Visual(Hebrew("A(B"), kLTR, true), Hebrew("A(B"));
  EXPECT_EQ(IcuVisual(Hebrew("A(B"), 0), Hebrew("B)A"));
  // A number after a left-to-right letter in right-to-left text goes with
  // the right-to-left base, not with that letter.
  EXPECT_EQ(Visual(Hebrew("A b 12"), kRTL, true), Hebrew("12 b A"));
  EXPECT_EQ(IcuVisual(Hebrew("A b 12"), 1), Hebrew("b 12 A"));
}

TEST(BidiCursorTest, MotionStaysInBounds) {
  BIDICURSOR empty(Units(u""), kLTR);
  EXPECT_EQ(empty.CursorRightVisual(1) + empty.CursorLeftVisual(0) + empty.CursorRightLogical(1) +
                empty.CursorLeftLogical(1),
            0);
  EXPECT_EQ(empty.GetCursorPosition() + empty.GetCursorPositionVisual(), 0u);
  empty.SetCursorPositionVisual(3);
  EXPECT_EQ(empty.GetCursorDirection(), kLTR);

  // Logical "ab CDE f": visual "ab EDC f"; the caret starts on "a".
  BIDICURSOR c(Units(Hebrew("ab CDE f")), kLTR);
  EXPECT_EQ(c.CursorRightVisual(0), 1);
  EXPECT_EQ(c.CursorRightVisual(100), 1);  // stops on the last unit
  EXPECT_EQ(c.GetCursorPositionVisual(), 7u);
  EXPECT_EQ(c.CursorRightVisual(1), 0);
  for (unsigned long n = 0; n < 8; ++n) {
    c.SetCursorPositionVisual(n);
    EXPECT_EQ(c.GetCursorPositionVisual(), n);
  }
  // In the right-to-left span, logical right lowers the position: on
  // screen the caret moves left.
  c.SetCursorPositionVisual(5);  // on "C"
  ASSERT_EQ(c.GetCursorDirection(), kRTL);
  EXPECT_EQ(c.GetCursorPosition(), 3u);
  EXPECT_EQ(c.CursorRightLogical(1), 1);
  EXPECT_EQ(c.GetCursorPositionVisual(), 4u);
  EXPECT_EQ(c.GetCursorPosition(), 4u);
  EXPECT_EQ(c.CursorRightLogical(100), 1);  // behind "f"
  EXPECT_EQ(c.GetCursorPosition(), 7u);
  EXPECT_EQ(c.CursorRightLogical(1), 0);
  EXPECT_EQ(c.CursorLeftLogical(100), 1);
  EXPECT_EQ(c.GetCursorPosition(), 0u);
  EXPECT_EQ(c.CursorLeftLogical(1), 0);
  EXPECT_EQ(c.SetCursorMotion(BIDISTRING::ORDER_Logical), BIDISTRING::ORDER_Visual);

  // A right-to-left text starts its caret at the span's length: visual
  // motion from there, and random walks of both kinds, stay in bounds and
  // on units of the text.
  std::mt19937 random(99);
  const std::u16string texts[] = {Hebrew("ABC 12.5 DE (F) gh"), Hebrew("   "), u"\u05B0\u05B1",
                                  Hebrew("A")};
  for (const std::u16string& text : texts) {
    BIDICURSOR r(Units(text), kRTL);
    EXPECT_LE(r.GetCursorPosition(), text.size());
    r.CursorRightVisual(1);
    BIDICURSOR l(Units(text), kRTL);
    l.CursorLeftVisual(1);
    EXPECT_LT(l.GetCursorPositionVisual(), text.size());
    for (int step = 0; step < 400; ++step) {
      r.SetCursorMotion(random() & 1 ? BIDISTRING::ORDER_Logical : BIDISTRING::ORDER_Visual);
      random() & 1 ? r.CursorRight(random() % 4) : r.CursorLeft(random() % 4);
      EXPECT_LE(r.GetCursorPosition(), text.size());
      EXPECT_LE(r.GetCursorPositionVisual(), text.size());
    }
    // Each visual place names the source unit shown there.
    unsigned short* visual = r.GetStringVisual();
    for (unsigned long n = 0; n < text.size(); ++n) {
      r.SetCursorPositionVisual(n);
      const unsigned short shown = text[r.GetCursorPosition()];
      EXPECT_TRUE(visual[n] == shown || visual[n] == UcsymmetricPair(shown)) << n;
    }
    free(visual);
  }
}

// Over any text, logical motion reads the source in order: step by step to
// the right the source position never falls and passes every unit, and to
// the left never rises; visual motion passes every visual place once.
TEST(BidiCursorTest, StepsWalkTheWholeText) {
  const std::u16string alphabet = u"ab 1.(]!\u05D0\u05D1\u0627\u05B0\u0661";
  std::mt19937 random(31);
  for (int n = 0; n < 500; ++n) {
    std::u16string text;
    for (int k = 1 + random() % 24; k > 0; --k) text += alphabet[random() % alphabet.size()];
    BIDICURSOR c(Units(text), n % 2 ? kRTL : kLTR);
    std::vector<bool> seen(text.size());
    unsigned long last = c.GetCursorPosition();
    do {
      ASSERT_GE(c.GetCursorPosition(), last) << n;
      last = c.GetCursorPosition();
      seen.at(last) = true;
    } while (c.CursorRightLogical(1));
    EXPECT_EQ(std::count(seen.begin(), seen.end(), false), 0) << n;
    do {
      ASSERT_LE(c.GetCursorPosition(), last) << n;
      last = c.GetCursorPosition();
    } while (c.CursorLeftLogical(1));
    EXPECT_EQ(last, 0u);
    c.SetCursorPositionVisual(0);
    for (unsigned long v = 1; v < text.size(); ++v) {
      ASSERT_EQ(c.CursorRightVisual(1), 1);
      ASSERT_EQ(c.GetCursorPositionVisual(), v);
    }
    EXPECT_EQ(c.CursorRightVisual(1), 0);
  }
}

}  // namespace
