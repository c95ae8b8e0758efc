// Indic reordering and Thai shifting: the promised cases, the split vowels
// against ICU's canonical decompositions, and reordering as a permutation.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <random>
#include <string>

#include "vosystem/indic.h"
#include "vosystem/thai.h"

#include <unicode/normalizer2.h>
#include <unicode/unistr.h>

namespace {

const unsigned short* Units(const std::u16string& s) {
  return reinterpret_cast<const unsigned short*>(s.c_str());
}

std::u16string Reorder(const std::u16string& text, SCRIPTTAG script = SCRIPTTAG_Deva,
                       bool markReph = false) {
  unsigned short* out = nullptr;
  long n = MucIndicGlyphSubstitutions(Units(text), &out, script, -1, markReph);
  std::u16string s = out ? std::u16string(reinterpret_cast<const char16_t*>(out)) : u"<null>";
  free(out);
  EXPECT_EQ(n, static_cast<long>(s.size()));
  return s;
}

const SCRIPTTAG kScripts[] = {SCRIPTTAG_Deva, SCRIPTTAG_Beng, SCRIPTTAG_Punj,
                              SCRIPTTAG_Gujr, SCRIPTTAG_Orya, SCRIPTTAG_Taml,
                              SCRIPTTAG_Telu, SCRIPTTAG_Knda, SCRIPTTAG_Mlym};

TEST(IndicTest, PromisedCases) {
  EXPECT_EQ(Reorder(u""), u"");
  EXPECT_EQ(Reorder(u"\u094D\u0915"), u"\u25CC\u094D\u0915");  // a stray virama
  EXPECT_EQ(Reorder(u"\u093F"), u"\u093F\u25CC");              // a vowel alone
  EXPECT_EQ(Reorder(u"\u093F\u0902"), u"\u093F\u25CC\u25CC\u0902");
  EXPECT_EQ(Reorder(u"\u0915\u093F"), u"\u093F\u0915");
  // Reph moves behind the body, marked on request; eyelash ra stays.
  EXPECT_EQ(Reorder(u"\u0930\u094D\u0915\u093F"), u"\u093F\u0915\u0930\u094D");
  EXPECT_EQ(Reorder(u"\u0930\u094D\u0915", SCRIPTTAG_Deva, true), u"\u0915\u0900\u094D");
  EXPECT_EQ(Reorder(u"\u0930\u094D\u200C\u0915"), u"\u0930\u094D\u200C\u0915");
  // Below-base ra follows the base; Bengali's reph comes before the marks.
  EXPECT_EQ(Reorder(u"\u0915\u094D\u0930"), u"\u0915\u0930\u094D");
  EXPECT_EQ(Reorder(u"\u09B0\u09CD\u0995\u09C7\u0981", SCRIPTTAG_Beng),
            u"\u09C7\u0995\u09B0\u09CD\u0981");
  EXPECT_EQ(Reorder(u"\u0995\u09CB", SCRIPTTAG_Beng), u"\u09C7\u0995\u09BE");
  // Kannada's consonants subjoin: the base is the first, and a nukta stays
  // with the consonant it follows.
  EXPECT_EQ(Reorder(u"\u0C95\u0CCD\u0C95\u0CBC", SCRIPTTAG_Knda), u"\u0C95\u0C95\u0CBC\u0CCD");
  // Telugu and Kannada write vowels right after the base; Kannada's reph
  // follows them.
  EXPECT_EQ(Reorder(u"\u0C15\u0C4D\u0C37\u0C46", SCRIPTTAG_Telu), u"\u0C15\u0C46\u0C37\u0C4D");
  EXPECT_EQ(Reorder(u"\u0CB0\u0CCD\u0C95\u0CBF", SCRIPTTAG_Knda), u"\u0C95\u0CBF\u0CB0\u0CCD");
  // Tamil's pre-base vowel stands before the last consonant of a cluster.
  EXPECT_EQ(Reorder(u"\u0B95\u0BCD\u0BB7\u0BC6", SCRIPTTAG_Taml), u"\u0B95\u0BCD\u0BC6\u0BB7");
  EXPECT_EQ(Reorder(u"\u0915\u093F", 0), u"\u093F\u0915");
  // No table: a copy of length units.
  unsigned short* out = nullptr;
  EXPECT_EQ(MucIndicGlyphSubstitutions(Units(u"\u093Fabc"), &out, 0x78787878, 3, false), 3);
  EXPECT_EQ(std::u16string(reinterpret_cast<const char16_t*>(out)), u"\u093Fab");
  free(out);
  EXPECT_EQ(MucIndicGlyphSubstitutions(nullptr, &out, 0, -1, false), -1213);
  EXPECT_TRUE(out == nullptr);

  const INDICCLASSTABLE* deva = GetScriptClassTable(SCRIPTTAG_Deva);
  ASSERT_TRUE(deva != nullptr && GetScriptClassTable(0x78787878) == nullptr);
  EXPECT_EQ(deva->GetCharClass(0x0930), 0xF0000004u);
  EXPECT_EQ(deva->GetCharClass(0x093F), 0x04000007u);
  EXPECT_EQ(deva->GetCharClass(0x200C), 0x80000009u);
  EXPECT_EQ(deva->GetCharClass(0x0995), 0u);
  EXPECT_EQ(GetScriptClassTable(SCRIPTTAG_Punj)->GetCharClass(0x0A30), 0xB0000004u);
  EXPECT_EQ(GetScriptClassTable(SCRIPTTAG_Knda)->GetCharClass(0x0CB0), 0xC8000004u);
}

// A dependent vowel splits exactly where ICU decomposes it, and a consonant
// with it comes out as the pieces around the consonant, the pre-base one
// first. Malayalam's AU, which has no row, is the one vowel left whole.
TEST(IndicTest, SplitVowelsFollowCanonicalDecomposition) {
  UErrorCode status = U_ZERO_ERROR;
  const icu::Normalizer2* nfd = icu::Normalizer2::getNFDInstance(status);
  int split = 0;
  for (SCRIPTTAG script : kScripts) {
    const INDICCLASSTABLE* table = GetScriptClassTable(script);
    char16_t consonant = 0;
    for (char16_t c = table->firstChar; c <= table->lastChar; ++c) {
      const CHARCLASS word = table->GetCharClass(c);
      if (!consonant && (word & CHARCLASS_Class) == CHARCLASS_Consonant) consonant = c;
      if ((word & CHARCLASS_Class) != CHARCLASS_VowelDep) continue;
      icu::UnicodeString pieces = nfd->normalize(icu::UnicodeString(c), status);
      const unsigned row = (word & CHARCLASS_SplitRow) >> CHARCLASS_SplitShift;
      std::u16string expected(1, c);
      if (row) {
        const unsigned short* units = table->splitTable[row - 1];
        expected.assign(units, std::find(units, units + 3, 0));
        ++split;
      }
      if (c != 0x0D4C) {
        EXPECT_EQ(
            std::u16string(reinterpret_cast<const char16_t*>(pieces.getBuffer()), pieces.length()),
            expected)
            << std::hex << unsigned{c};
      }
      std::u16string got = Reorder(std::u16string{consonant, c}, script);
      if (table->GetCharClass(expected[0]) & CHARCLASS_MatraPre) {
        EXPECT_EQ(got[0], expected[0]);
      }
      expected += consonant;
      std::sort(got.begin(), got.end());
      std::sort(expected.begin(), expected.end());
      EXPECT_EQ(got, expected) << std::hex << unsigned{c};
    }
  }
  EXPECT_EQ(split, 16);  // one vowel per row of the nine split tables
  EXPECT_TRUE(U_SUCCESS(status));
}

// Reordering only moves characters: apart from dotted circles and split
// vowels, random text of each script comes out with the same units.
TEST(IndicTest, ReorderingIsAPermutation) {
  std::mt19937 random(77);
  for (SCRIPTTAG script : kScripts) {
    const INDICCLASSTABLE* table = GetScriptClassTable(script);
    std::uniform_int_distribution<int> pick(table->firstChar, table->lastChar + 3);
    for (int n = 0; n < 300; ++n) {
      std::u16string text, expected;
      for (int k = random() % 16; k > 0; --k) {
        const int c = pick(random);
        const char16_t unit = c > table->lastChar ? u"\u200C a"[c - table->lastChar - 1] : c;
        text += unit;
        const CHARCLASS word = table->GetCharClass(unit);
        const unsigned row = (word & CHARCLASS_SplitRow) >> CHARCLASS_SplitShift;
        if ((word & CHARCLASS_Class) == CHARCLASS_VowelDep && row) {
          const unsigned short* units = table->splitTable[row - 1];
          expected.append(units, std::find(units, units + 3, 0));
        } else {
          expected += unit;
        }
      }
      std::u16string got = Reorder(text, script);
      got.erase(std::remove(got.begin(), got.end(), u'\u25CC'), got.end());
      std::sort(got.begin(), got.end());
      std::sort(expected.begin(), expected.end());
      ASSERT_EQ(got, expected) << "script " << std::hex << script << " text " << n;
    }
  }
}

std::u16string Thai(const std::u16string& text, int flags = THAIFONT_OF) {
  return reinterpret_cast<const char16_t*>(MucThaiShiftTonesAndVowels(Units(text), flags));
}

TEST(ThaiTest, MarksTakeTheirShiftedGlyphs) {
  const char16_t tall = 0x0E1B, plain = 0x0E01, tone = 0x0E48, upper = 0x0E34;
  EXPECT_EQ(Thai({tall, tone}), (std::u16string{tall, 0x0E60}));
  EXPECT_EQ(Thai({tall, tone}, THAIFONT_TTF), (std::u16string{tall, 0xF705}));
  EXPECT_EQ(Thai({plain, tone}), (std::u16string{plain, 0x0E65}));
  EXPECT_EQ(Thai({plain, tone}, THAIFONT_TTF), (std::u16string{plain, 0xF70A}));
  EXPECT_EQ(Thai({plain, upper, tone}), (std::u16string{plain, upper, tone}));
  EXPECT_EQ(Thai({tall, upper, tone}), (std::u16string{tall, 0x0E76, 0x0E6A}));
  EXPECT_EQ(Thai({tall, upper, tone}, THAIFONT_TTF), (std::u16string{tall, 0xF701, 0xF713}));
  EXPECT_EQ(Thai({tall, 0x0E31}, THAIFONT_TTF), (std::u16string{tall, 0xF710}));
  // A tone typed before its vowel comes out after it.
  EXPECT_EQ(Thai({plain, tone, upper}), (std::u16string{plain, upper, tone}));
  EXPECT_EQ(Thai({plain, tone, 0x0E38}), (std::u16string{plain, 0x0E38, 0x0E65}));
  // Sara am after a tall consonant, or after its tone, becomes two units.
  EXPECT_EQ(Thai({tall, 0x0E33}), (std::u16string{tall, 0x0E7E, 0x0E32}));
  EXPECT_EQ(Thai({tall, tone, 0x0E33}, THAIFONT_TTF),
            (std::u16string{tall, 0xF713, 0xF711, 0x0E32}));
  EXPECT_EQ(Thai({plain, tone, 0x0E33}), (std::u16string{plain, tone, 0x0E33}));
  // Vowels below a descending consonant drop; yo ying loses its tail.
  EXPECT_EQ(Thai({0x0E0E, 0x0E38}), (std::u16string{0x0E0E, 0x0E7C}));
  EXPECT_EQ(Thai({0x0E0D, 0x0E38}, THAIFONT_TTF), (std::u16string{0xF70F, 0x0E38}));
  EXPECT_EQ(Thai(u"abc \u0627"), u"abc \u0627");
  const unsigned short* empty = MucThaiShiftTonesAndVowels(Units(u""), 0);
  EXPECT_TRUE(empty && *empty == 0 && MucThaiShiftTonesAndVowels(nullptr, 0) == empty);
  // The buffer grows for a longer text and keeps serving.
  EXPECT_EQ(Thai(std::u16string(5000, tall) + u"\u0E33").size(), 5002u);
  EXPECT_TRUE(MucIsThaiVowel(0x0E47) && MucIsThaiLowerVowel(0x0E39) && !MucIsThaiTone(0x0E4D));
}

}  // namespace
