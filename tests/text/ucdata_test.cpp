// The character database as generated from the Unicode Character Database:
// every BMP code unit against ICU (same Unicode version), the property masks
// that other modules use, and the composite chains.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <vector>

#include "vosystem/ucdata.h"

#include <unicode/normalizer2.h>
#include <unicode/uchar.h>
#include <unicode/unistr.h>

namespace {

std::vector<unsigned short> Sequence(const unsigned char* rec) {
  std::vector<unsigned short> seq;
  for (int i = 0; i < UCDATA::SequenceLength(rec); ++i) seq.push_back(UCDATA::SequenceUnit(rec, i));
  return seq;
}

// The codes on c's composite chain, at most 70,000 steps so that a circle
// shows up as an over-long chain instead of a hang.
std::vector<unsigned short> ChainOf(unsigned short c) {
  std::vector<unsigned short> chain;
  const unsigned char* rec = UCDATA::GetCharData(c);
  for (unsigned short link = rec ? UCDATA::VariantLink(rec) : 0; link && chain.size() < 70000;) {
    chain.push_back(link);
    const unsigned char* next = UCDATA::GetCharData(link);
    link = next ? UCDATA::NextVariant(next) : 0;
  }
  return chain;
}

// Our numbers are the positions of the Unicode property value names here.
const char* const kCategories[] = {"",   "Lu", "Ll", "Lt", "Lm", "Lo", "Mn", "Mc", "Me", "Nd", "Nl",
                                   "No", "Zs", "Zl", "Zp", "Cc", "Cf", "Cs", "Co", "Cn", "Pc", "Pd",
                                   "Ps", "Pe", "Pi", "Pf", "Po", "Sm", "Sc", "Sk", "So"};
const char* const kBidiClasses[] = {"L",  "LRE", "LRO", "R",   "AL",  "RLE", "RLO", "PDF",
                                    "EN", "ES",  "ET",  "AN",  "CS",  "NSM", "BN",  "B",
                                    "S",  "WS",  "ON",  "LRI", "RLI", "FSI", "PDI"};
const char* const kDecompTypes[] = {"Canonical", "Initial", "Medial", "Final", "Isolated",
                                    "Font",      "Nobreak", "Circle", "Super", "Sub",
                                    "Vertical",  "Wide",    "Narrow", "Small", "Square",
                                    "Fraction",  "Compat"};

// Our number for ICU's value of property p; `none` for a name not listed.
template <size_t N>
int Ours(const char* const (&names)[N], UProperty p, int32_t value, UPropertyNameChoice choice,
         int none = -1) {
  const char* name = u_getPropertyValueName(p, value, choice);
  for (size_t i = 0; name && i < N; ++i)
    if (std::strcmp(names[i], name) == 0) return static_cast<int>(i);
  return none;
}

// ICU's one-level decomposition; Hangul syllables, which the file holds fully
// decomposed, by their full canonical decomposition.
std::vector<unsigned short> IcuDecomposition(UChar32 c) {
  UErrorCode status = U_ZERO_ERROR;
  icu::UnicodeString out;
  if (c >= 0xAC00 && c <= 0xD7A3)
    out = icu::Normalizer2::getNFDInstance(status)->normalize(icu::UnicodeString(c), status);
  else if (!icu::Normalizer2::getNFKDInstance(status)->getRawDecomposition(c, out))
    out.remove();
  return std::vector<unsigned short>(out.getBuffer(), out.getBuffer() + out.length());
}

TEST(UcDataTest, EveryBmpUnitMatchesIcu) {
  int differ = 0;
  auto check = [&differ](bool same, const char* what, UChar32 c, int want, int got) {
    if (!same && ++differ <= 20)
      ADD_FAILURE() << what << " of U+" << std::hex << c << ": ICU " << want << ", ours " << got;
  };
  for (UChar32 c = 0; c <= 0xFFFF; ++c) {
    const unsigned char* rec = GetUCDATA(static_cast<unsigned short>(c));
    int cat = Ours(kCategories, UCHAR_GENERAL_CATEGORY, u_charType(c), U_SHORT_PROPERTY_NAME);
    check((cat != UCCATEGORY_Cn) == (rec != nullptr), "assigned", c, cat, rec ? 1 : 0);
    if (!rec) continue;
    check(UCDATA::Category(rec) == cat && ucisprop(c, UCPROP_MASK(cat)) &&
              !ucisprop(c, ~UCPROP_MASK(cat)),
          "category", c, cat, UCDATA::Category(rec));
    int dir = Ours(kBidiClasses, UCHAR_BIDI_CLASS, u_charDirection(c), U_SHORT_PROPERTY_NAME);
    check(UCDATA::BidiClass(rec) == dir, "bidi class", c, dir, UCDATA::BidiClass(rec));
    UChar32 low = u_tolower(c), up = u_toupper(c);
    if (cat == UCCATEGORY_Lu) {
      check(uctolower(c) == low && uctoupper(c) == c, "lower (Lu)", c, low, uctolower(c));
    } else if (cat == UCCATEGORY_Ll) {
      check(uctoupper(c) == up && uctolower(c) == c, "upper (Ll)", c, up, uctoupper(c));
    } else {  // title case and the rest keep themselves, the field holds a partner
      UChar32 partner = low != c ? low : up;
      check(uctolower(c) == c && uctoupper(c) == c && UCDATA::CaseMapping(rec) == partner,
            "other partner", c, partner, UCDATA::CaseMapping(rec));
    }
    int type = Ours(kDecompTypes, UCHAR_DECOMPOSITION_TYPE,
                    u_getIntPropertyValue(c, UCHAR_DECOMPOSITION_TYPE), U_LONG_PROPERTY_NAME,
                    UCDECOMPTYPE_None);
    check(UCDATA::DecompTag(rec) == type, "decomp type", c, type, UCDATA::DecompTag(rec));
    std::vector<unsigned short> want = IcuDecomposition(c);
    check(Sequence(rec) == want, "decomposition", c, static_cast<int>(want.size()),
          UCDATA::SequenceLength(rec));
  }
  EXPECT_EQ(differ, 0);
}

// The property tests beside what the comparison with ICU covers: bidi
// classes and decomposition types through their masks, and masks of several
// categories as the regular-expression classes use them.
TEST(UcDataTest, QueriesAsOtherModulesUseThem) {
  // Units below 32 count as L whatever their class; the tab is S.
  EXPECT_TRUE(ucisbidiprop(0x09, 1) && !ucisbidiprop(0x09, UCPROP_MASK(UCBIDICLASS_S)));
  EXPECT_EQ(ucisbidiprop(0x85, UCPROP_MASK(UCBIDICLASS_B)), 1);  // from 32 on the class counts
  EXPECT_EQ(ucisbidiprop(0x05D0, 0x18), 1);                      // Hebrew alef: R
  EXPECT_EQ(ucisbidiprop(0x0378, 1), 1);                         // unassigned: no record, L
  EXPECT_EQ(ucisprop(0x2160, 0xC00), 1);                         // Nl of "Nl or No"
  EXPECT_EQ(ucisprop(0x00BB, 0x2800000), 1);                     // Pf of "Pe or Pf"
  EXPECT_EQ(ucisprop(0x0378, ~0UL), 0);
  EXPECT_EQ(ucisdecompprop(0xFB01, UCPROP_MASK(UCDECOMPTYPE_Compat)), 1);
  EXPECT_EQ(ucisdecompprop(0xFB01, 0x1E), 0);
  EXPECT_EQ(ucisdecompprop(0xFEFB, 0x1E), 1);
  EXPECT_TRUE(ucisdecompprop(0x00E9, 1) && !ucisdecompprop(0x00E9, ~1UL));  // canonical only
  EXPECT_TRUE(!ucisdecompprop('A', ~0UL) && !ucisdecompprop(0x0378, ~0UL));
}

// Every chain holds exactly the records whose decomposition starts with its
// head, by descending length and, among equal lengths, by descending code
// (records are linked in code order, and the last linked stands first).
TEST(UcDataTest, CompositeChainsAreCompleteAndOrdered) {
  std::vector<std::vector<unsigned short>> want(0x10000);
  for (unsigned c = 1; c <= 0xFFFF; ++c) {
    const unsigned char* rec = GetUCDATA(static_cast<unsigned short>(c));
    if (rec && UCDATA::SequenceLength(rec) && GetUCDATA(UCDATA::SequenceUnit(rec, 0)))
      want[UCDATA::SequenceUnit(rec, 0)].push_back(static_cast<unsigned short>(c));
  }
  auto longerFirst = [](unsigned short a, unsigned short b) {
    int la = UCDATA::SequenceLength(GetUCDATA(a)), lb = UCDATA::SequenceLength(GetUCDATA(b));
    return la != lb ? la > lb : a > b;
  };
  for (unsigned c = 0; c <= 0xFFFF; ++c) {
    std::sort(want[c].begin(), want[c].end(), longerFirst);
    ASSERT_EQ(ChainOf(static_cast<unsigned short>(c)), want[c]) << std::hex << c;
  }
  // Samples: the square "A over m" (3 units) heads the chain of 'A'; alef's
  // chain starts with the two 4-unit ligatures, the later code first.
  std::vector<unsigned short> a = ChainOf('A'), alef = ChainOf(0x0627);
  ASSERT_TRUE(!a.empty() && alef.size() >= 3);
  EXPECT_EQ(a.front(), 0x33DF);
  EXPECT_EQ(alef[0], 0xFDF3);
  EXPECT_EQ(alef[1], 0xFDF2);
}

}  // namespace
