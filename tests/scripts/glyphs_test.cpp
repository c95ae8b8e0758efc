// Glyph direction, the flip of right-to-left runs, and Arabic shaping from
// the variant chains, checked against ICU's u_shapeArabic.
#include <gtest/gtest.h>

#include <cstdlib>
#include <random>
#include <string>
#include <vector>

#include "vosystem/glyphs.h"
#include "vosystem/ucdata.h"

#include <unicode/ubidi.h>
#include <unicode/ushape.h>

namespace {

const unsigned short* Units(const std::u16string& s) {
  return reinterpret_cast<const unsigned short*>(s.c_str());
}

std::u16string Take(unsigned short* p) {
  std::u16string s = p ? std::u16string(reinterpret_cast<const char16_t*>(p)) : u"<null>";
  free(p);
  return s;
}

// A font with the presentation forms of Arabic Presentation Forms-B only
// (the forms and lam-alef ligatures ICU gives), less those in *refused.
int FormsB(const unsigned char* record, void* refused) {
  const unsigned short code = UCDATA::Code(record);
  const auto* no = static_cast<const std::u16string*>(refused);
  return code >= 0xFE70 && code <= 0xFEFF && (!no || no->find(code) == std::u16string::npos);
}

std::u16string Shape(const std::u16string& text, const std::u16string* refused = nullptr,
                     GLYPHSUBSTCALLBACK callback = FormsB) {
  return Take(MucDoGlyphSubstitutions(Units(text), callback, const_cast<std::u16string*>(refused),
                                      GLYPHFEATURE_Contextual));
}

std::u16string IcuShape(const std::u16string& text) {
  UErrorCode status = U_ZERO_ERROR;
  std::u16string out(text.size() + 1, u'\0');
  int32_t n = u_shapeArabic(text.c_str(), static_cast<int32_t>(text.size()), &out[0],
                            static_cast<int32_t>(out.size()),
                            U_SHAPE_LETTERS_SHAPE | U_SHAPE_LENGTH_GROW_SHRINK, &status);
  EXPECT_TRUE(U_SUCCESS(status));
  out.resize(n);
  // ICU gives the damma forms of its own too; here marks have no chain.
  for (char16_t& c : out)
    if (c == 0xFE78 || c == 0xFE79) c = 0x064F;
  return out;
}

TEST(GlyphDirectionTest, DirectionsFlagsAndFlips) {
  unsigned char flags[8] = {9, 9, 9, 9, 9, 9, 9, 9};
  EXPECT_EQ(MucGetGlyphDirection(Units(u"a"), 0, flags), 0);
  EXPECT_EQ(MucGetGlyphDirection(Units(u"\u0627"), 0, flags), 1);
  EXPECT_EQ(flags[0], 0x81);
  EXPECT_EQ(MucGetGlyphDirection(Units(u"\u064B"), 1, flags), 1);
  EXPECT_EQ(flags[0], 0x41);
  // Spaces in right-to-left text look at what follows; elsewhere, and at
  // the end, the direction in force.
  EXPECT_EQ(MucGetGlyphDirection(Units(u"  \u05D0"), 1, flags), 1);
  EXPECT_EQ(std::vector<int>(flags, flags + 3), (std::vector<int>{0, 0, 1}));
  EXPECT_EQ(MucGetGlyphDirection(Units(u" a"), 1, nullptr), 0);
  EXPECT_EQ(MucGetGlyphDirection(Units(u" 1"), 1, nullptr), 1);
  EXPECT_EQ(MucGetGlyphDirection(Units(u"  "), 1, nullptr), 1);
  EXPECT_EQ(MucGetGlyphDirection(Units(u" \u05D0"), 0, nullptr), 0);
  // Between the table's rows: the direction in force, flags untouched.
  flags[0] = 9;
  EXPECT_EQ(MucGetGlyphDirection(Units(u"\u0700"), 1, flags), 1);
  EXPECT_EQ(flags[0], 9);
  // A long run of spaces is a loop, not a recursion per space.
  std::u16string spaces(1 << 20, u' ');
  std::vector<unsigned char> many(spaces.size() + 1, 9);
  EXPECT_EQ(MucGetGlyphDirection(Units(spaces + u"\u05D0"), 1, many.data()), 1);
  EXPECT_TRUE(many[0] == 0 && many[spaces.size() - 1] == 0 && many[spaces.size()] == 1);

  EXPECT_EQ(MucHasRightToLeftTextUC(Units(u"abc")), 0);
  EXPECT_EQ(MucHasRightToLeftTextUC(Units(u"abc \uFB1E")), 1);
  EXPECT_EQ(MucHasRightToLeftTextISO2022("ab\x1b-Hcd"), 1);
  EXPECT_EQ(MucHasRightToLeftTextISO2022("\x1b$G"), 1);
  EXPECT_EQ(MucHasRightToLeftTextISO2022("\x1b$B\xe0\x1b-"), 0);

  // Right-to-left runs turn around; spaces behind a run stay in place.
  const std::u16string logical = u"ab \u05D0\u05D1 \u05D2  cd \u05D3";
  const std::u16string flipped = Take(MucFlipVisualAndLogicalOrder(Units(logical)));
  EXPECT_EQ(flipped, u"ab \u05D2 \u05D1\u05D0  cd \u05D3");
  EXPECT_EQ(Take(MucFlipVisualAndLogicalOrder(Units(flipped))), logical);
  EXPECT_EQ(Take(MucFlipVisualAndLogicalOrder(Units(u""))), u"");
  EXPECT_TRUE(MucFlipVisualAndLogicalOrder(nullptr) == nullptr);
}

// For letters and spaces the flip is the Unicode algorithm's visual order
// in left-to-right text, and undoes itself.
TEST(GlyphDirectionTest, FlipOfLettersAndSpacesMatchesIcu) {
  const std::u16string alphabet = u"ab \u05D0\u05D1\u0627\u0628 ";
  std::mt19937 random(8);
  for (int n = 0; n < 3000; ++n) {
    std::u16string text;
    for (int k = 1 + random() % 20; k > 0; --k) text += alphabet[random() % alphabet.size()];
    const std::u16string flipped = Take(MucFlipVisualAndLogicalOrder(Units(text)));
    UErrorCode status = U_ZERO_ERROR;
    UBiDi* bidi = ubidi_open();
    ubidi_setPara(bidi, text.c_str(), static_cast<int32_t>(text.size()), 0, nullptr, &status);
    std::u16string icu(text.size(), u'\0');
    ubidi_writeReordered(bidi, &icu[0], static_cast<int32_t>(icu.size()), 0, &status);
    ubidi_close(bidi);
    ASSERT_EQ(flipped, icu) << n;
    EXPECT_EQ(Take(MucFlipVisualAndLogicalOrder(Units(flipped))), text);
  }
}

TEST(ShapingTest, ContextualFormsAndLigatures) {
  const char16_t beh = 0x0628, lam = 0x0644, alef = 0x0627, fatha = 0x064E;
  // Alone, initial-medial-final, a lam-alef in the middle of a word.
  EXPECT_EQ(Shape({beh}), u"\uFE8F");
  EXPECT_EQ(Shape({beh, beh, beh}), u"\uFE91\uFE92\uFE90");
  EXPECT_EQ(Shape({beh, lam, alef, beh}, nullptr, nullptr), u"\uFE91\uFEFC\uFE8F");
  EXPECT_EQ(Shape({lam, alef}), u"\uFEFB");
  // A mark between letters is transparent: they still join.
  EXPECT_EQ(Shape({beh, fatha, beh}), u"\uFE91\u064E\uFE90");
  EXPECT_EQ(GetNextCategory(Units({fatha, fatha, beh})), UCCATEGORY_Lo);
  EXPECT_EQ(GetNextCategory(Units({fatha})), 13);
  // A digit breaks the word; Latin and unknown characters pass through.
  EXPECT_EQ(Shape({beh, u'1', beh, u' ', u'x', 0x0378}), u"\uFE8F1\uFE8F x\u0378");
  // A font without initial forms gets the medial ones.
  const std::u16string noInitial = u"\uFE91";
  EXPECT_EQ(Shape({beh, beh}, &noInitial), u"\uFE92\uFE90");
  // A refused ligature leaves the position as the context gave it: lam
  // stays joined to the alef after it.
  const std::u16string noLigature = u"\uFEFB\uFEFC";
  EXPECT_EQ(Shape({beh, lam, alef}, &noLigature), u"\uFE91\uFEE0\uFE8E");
  EXPECT_EQ(Shape({lam, alef}, &noLigature), u"\uFEDF\uFE8E");
  // Other variants by feature: <wide> and <super>.
  EXPECT_EQ(Take(MucDoGlyphSubstitutions(Units(u"A2"), nullptr, nullptr,
                                         GLYPHFEATURE_Wide | GLYPHFEATURE_Super)),
            u"\uFF21\uFF12");
  EXPECT_EQ(Take(MucDoGlyphSubstitutions(Units(u"A2"), nullptr, nullptr, GLYPHFEATURE_Super)),
            u"\u1D2C\u00B2");
  EXPECT_EQ(Take(MucDoGlyphSubstitutions(Units(u"A2"), nullptr, nullptr, 0)), u"A2");
  EXPECT_TRUE(MucDoGlyphSubstitutions(nullptr, nullptr, nullptr, 8) == nullptr);
  EXPECT_EQ(Shape(u""), u"");
  EXPECT_TRUE(IsArabicNonJoiner(0x0626) && !IsArabicNonJoiner(0x0625) && !IsArabicNonJoiner(beh));
}

// Random words of dual-joining and right-joining letters, with lam-alef
// pairs, vowel signs (not after lam: see below) and spaces, shaped as ICU
// shapes them.
TEST(ShapingTest, WordsMatchIcu) {
  const std::u16string letters =
      u"\u0628\u062A\u062C\u062D\u0633\u0635\u0637\u0639\u0641\u0642\u0643\u0644\u0645\u0646"
      u"\u0647\u064A\u0627\u062F\u0630\u0631\u0632\u0648\u0622\u0623\u0624\u0629";
  std::mt19937 random(1234);
  std::uniform_int_distribution<size_t> pick(0, letters.size() - 1), length(1, 12);
  int failures = 0;
  for (int n = 0; n < 5000; ++n) {
    std::u16string text;
    for (size_t k = length(random); k > 0; --k) {
      switch (random() % 10) {
        case 0:
          text += u' ';
          break;
        case 1:
          text += u"\u0644\u0627";
          break;
        case 2:
          text += text.empty() || text.back() != u'\u0644' ? u"\u064F" : u"";
          break;
        default:
          text += letters[pick(random)];
      }
    }
    const std::u16string ours = Shape(text);
    EXPECT_LE(ours.size(), text.size());
    if (ours != IcuShape(text) && ++failures <= 5) ADD_FAILURE() << "word " << n;
    // The walk of the whole chain (a feature without Arabic variants
    // forces it) decides as the positional shortcut does, whatever the
    // font refuses.
    const std::u16string refused = n % 2 ? u"\uFE91\uFEFC\uFE8E" : u"\uFEE0\uFEFB";
    for (int features : {+GLYPHFEATURE_Contextual, GLYPHFEATURE_Contextual | GLYPHFEATURE_Fraction})
      EXPECT_EQ(Take(MucDoGlyphSubstitutions(Units(text), FormsB,
                                             const_cast<std::u16string*>(&refused), features)),
                Shape(text, &refused));
  }
  EXPECT_EQ(failures, 0);
}

// Where the data-driven shaping parts from ICU: in mid-word U+0625 isn't
// among the letters that end joining, so it keeps its nominal form and the
// next letter joins it; hamza, a letter without joining forms, is joined to
// as well; and a ligature needs its letters side by side.
TEST(ShapingTest, KnownDifferencesFromIcu) {
  const std::u16string alefHamzaBelow = u"\u0628\u0625\u0628";
  EXPECT_EQ(Shape(alefHamzaBelow), u"\uFE91\u0625\uFE90");
  EXPECT_EQ(IcuShape(alefHamzaBelow), u"\uFE91\uFE88\uFE8F");
  const std::u16string hamzaBeh = u"\u0621\u0628";
  EXPECT_EQ(Shape(hamzaBeh), u"\u0621\uFE90");
  EXPECT_EQ(IcuShape(hamzaBeh), u"\u0621\uFE8F");
  // A ligature is what the text spells: lam, a vowel sign, alef is none.
  const std::u16string lamDammaAlef = u"\u0644\u064F\u0627";
  EXPECT_EQ(Shape(lamDammaAlef), u"\uFEDF\u064F\uFE8E");
  EXPECT_EQ(IcuShape(lamDammaAlef), u"\uFEFB\u064F");
}

}  // namespace
