// Decomposition and composition with the generated character database,
// checked against ICU's normalisation where the one level of data suffices.
#include <gtest/gtest.h>

#include <cstdlib>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "vosystem/ucdata.h"
#include "vosystem/ucdecomp.h"

#include <unicode/normalizer2.h>
#include <unicode/unistr.h>

namespace {

std::u16string Apply(unsigned short* (*fn)(const unsigned short*), const std::u16string& text) {
  std::vector<unsigned short> exact(text.begin(), text.end());  // no slack to hide overreads
  exact.push_back(0);
  unsigned short* out = fn(exact.data());
  if (!out) return u"<null>";
  std::u16string result(reinterpret_cast<const char16_t*>(out));
  free(out);
  return result;
}

const auto Decompose = [](const std::u16string& text) { return Apply(MucDecompose, text); };
const auto Recompose = [](const std::u16string& text) { return Apply(MucRecompose, text); };

TEST(DecomposeTest, PairsMarksAndPassThrough) {
  EXPECT_EQ(Decompose(u"r\u00E9sum\u00E9"), u"re\u0301sume\u0301");  // longer
  EXPECT_EQ(Recompose(u"re\u0301sume\u0301"), u"r\u00E9sum\u00E9");  // shorter
  // A compatibility decomposition is undone one way only.
  EXPECT_EQ(Decompose(u"\uFB01"), u"fi");
  EXPECT_EQ(Recompose(u"fi"), u"fi");
  EXPECT_EQ(Decompose(u"") + Recompose(u""), u"");
  EXPECT_TRUE(MucDecompose(nullptr) == nullptr && MucRecompose(nullptr) == nullptr);
  // Hangul syllables are held fully decomposed, so one step composes them.
  EXPECT_EQ(Decompose(u"\uAC01\uAC00"), u"\u1100\u1161\u11A8\u1100\u1161");
  EXPECT_EQ(Recompose(u"\u1100\u1161\u11A8\u1100\u1161"), u"\uAC01\uAC00");
  // Marks combine in turn: e + dot below is U+1EB9, and that + circumflex is
  // U+1EC7. Marks are not reordered, so the other order stops at U+00EA.
  EXPECT_EQ(Recompose(u"e\u0323\u0302"), u"\u1EC7");
  EXPECT_EQ(Decompose(u"\u1EC7"), u"\u1EB9\u0302");  // one level only
  EXPECT_EQ(Recompose(u"e\u0302\u0323"), u"\u00EA\u0323");
  // Marks that compose with nothing, and surrogate pairs, pass through.
  const std::u16string through = u"\u0301x\u0301\U0001D15E\U0001F600";
  EXPECT_EQ(Recompose(through), through);
  EXPECT_EQ(Decompose(through), through);
}

std::u16string FromIcu(const icu::UnicodeString& s) {
  return std::u16string(reinterpret_cast<const char16_t*>(s.getBuffer()), s.length());
}

// ICU's canonical decomposition of c: one level, and Hangul syllables in
// full, as the data holds them.
std::u16string IcuCanonical(char16_t c) {
  UErrorCode status = U_ZERO_ERROR;
  const icu::Normalizer2* nfd = icu::Normalizer2::getNFDInstance(status);
  icu::UnicodeString out;
  if (c >= 0xAC00 && c <= 0xD7A3) return FromIcu(nfd->normalize(icu::UnicodeString(c), status));
  return nfd->getRawDecomposition(c, out) ? FromIcu(out) : std::u16string();
}

// Decomposing a character and composing the result gives back a character
// of that same canonical decomposition: itself, or one that shares it.
TEST(DecomposeTest, EveryCanonicalPairRoundTrips) {
  int exact = 0, other = 0;
  for (char16_t c = 1; c != 0; ++c) {
    const unsigned char* rec = UCDATA::GetCharData(c);
    if (!ucisdecompprop(c, 1) || UCDATA::SequenceLength(rec) < 2) continue;
    std::u16string seq = Decompose(std::u16string(1, c));
    ASSERT_EQ(seq, IcuCanonical(c)) << std::hex << unsigned{c};
    std::u16string back = Recompose(seq);
    if (back.size() == 1 && back[0] == c)
      ++exact;
    else if ((back.size() != 1 || IcuCanonical(back[0]) != seq) && ++other <= 10)
      ADD_FAILURE() << "U+" << std::hex << unsigned{c} << " composes back to " << back.size()
                    << " units, first U+" << unsigned{back[0]};
  }
  EXPECT_GT(exact, 12000);  // 11,172 Hangul syllables and about a thousand others
  EXPECT_EQ(other, 0);
}

// Letters whose canonical decomposition is a base without decomposition and
// one mark, and that ICU composes back to themselves: for these, and for
// Hangul syllables, the one level of data is the whole decomposition, and
// composition exclusions are left out, so composing ICU's decomposed form
// must give ICU's composed form.
std::u16string SingleLevelLetters() {
  UErrorCode status = U_ZERO_ERROR;
  const icu::Normalizer2* nfd = icu::Normalizer2::getNFDInstance(status);
  const icu::Normalizer2* nfc = icu::Normalizer2::getNFCInstance(status);
  std::u16string letters = u"abcdefghijklmnopqrstuvwxyzABZ\u03B1\u03C9\u0430\u044F";
  const std::pair<char16_t, char16_t> kBlocks[] = {
      {0x00C0, 0x024F}, {0x0370, 0x04FF}, {0x1E00, 0x1FFF}};
  for (const auto& block : kBlocks) {
    for (char16_t c = block.first; c <= block.second; ++c) {
      icu::UnicodeString full = nfd->normalize(icu::UnicodeString(c), status), raw;
      if (full.length() == 2 && nfd->getRawDecomposition(c, raw) && raw == full &&
          nfc->normalize(full, status) == icu::UnicodeString(c))
        letters += c;
    }
  }
  EXPECT_TRUE(U_SUCCESS(status));
  return letters;
}

TEST(DecomposeTest, ComposesIcuDecomposedTextAsIcuDoes) {
  UErrorCode status = U_ZERO_ERROR;
  const icu::Normalizer2* nfd = icu::Normalizer2::getNFDInstance(status);
  const icu::Normalizer2* nfc = icu::Normalizer2::getNFCInstance(status);
  std::u16string letters = SingleLevelLetters();
  std::mt19937 random(20240601);
  std::uniform_int_distribution<size_t> pick(0, letters.size() - 1), length(1, 24);
  std::uniform_int_distribution<int> hangul(0xAC00, 0xD7A3), which(0, 3);
  int failures = 0;
  for (int strings = 0; strings < 400; ++strings) {
    icu::UnicodeString text;
    for (size_t n = length(random); n > 0; --n)
      text.append(static_cast<char16_t>(which(random) ? letters[pick(random)] : hangul(random)));
    std::u16string decomposed = FromIcu(nfd->normalize(text, status));
    std::u16string composed = Recompose(decomposed);
    if (composed != FromIcu(nfc->normalize(text, status)) && ++failures <= 5)
      ADD_FAILURE() << "string " << strings << " of " << text.length() << " units";
    EXPECT_LE(composed.size(), decomposed.size());
  }
  ASSERT_TRUE(U_SUCCESS(status));
  EXPECT_GT(letters.size(), 500u);
  EXPECT_EQ(failures, 0);
}

}  // namespace
