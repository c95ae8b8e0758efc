// Shaping over a character database written here: forms that are marks or
// numbers, a form with positional forms of its own, ligatures of two and
// three units, and more letters with positional forms than the table of
// the positional-forms loop holds. That loop (the positional forms alone)
// must answer as the walk of the whole chain (another feature besides)
// does, asking the font the same questions in the same order. The database
// loads once per process, so all of it is one test.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>
#include <vector>

#include "vosystem/glyphs.h"
#include "vosystem/ucdata.h"

namespace {

struct REC {
  unsigned short code;
  unsigned char category;
  unsigned char type;
  std::u16string seq;
};

std::string File(const std::vector<REC>& recs) {
  std::string out;
  auto word = [&out](unsigned w) { out.append({char(w & 0xFF), char(w >> 8 & 0xFF)}); };
  word(1);
  for (const REC& r : recs) {
    for (unsigned w : {unsigned{r.code}, unsigned{r.code}, 0u, 0u}) word(w);
    out.append({char(r.category), 0, char(r.type), char(r.seq.size())});
    for (char16_t unit : r.seq) word(unit);
  }
  return out;
}

// The questions the font was asked, and its answers: yes to all, no to
// all, or no to the codes in refused.
struct FONT {
  enum { All, None, Some } answer;
  std::u16string refused;
  std::u16string asked;
};

int Ask(const unsigned char* record, void* data) {
  auto* font = static_cast<FONT*>(data);
  const char16_t code = UCDATA::Code(record);
  font->asked += code;
  return font->answer == FONT::All ||
         (font->answer == FONT::Some && font->refused.find(code) == std::u16string::npos);
}

std::u16string Shape(const std::u16string& text, FONT* font,
                     int features = GLYPHFEATURE_Contextual) {
  std::vector<unsigned short> exact(text.begin(), text.end());  // no slack to hide overreads
  exact.push_back(0);
  unsigned short* out = MucDoGlyphSubstitutions(exact.data(), font ? Ask : nullptr, font, features);
  std::u16string s = out ? std::u16string(reinterpret_cast<const char16_t*>(out)) : u"<null>";
  free(out);
  return s;
}

const unsigned char Lo = UCCATEGORY_Lo, Mn = UCCATEGORY_Mn, Nd = UCCATEGORY_Nd;
const unsigned char kInit = UCDECOMPTYPE_Initial, kMed = UCDECOMPTYPE_Medial,
                    kFin = UCDECOMPTYPE_Final, kIso = UCDECOMPTYPE_Isolated,
                    kNone = UCDECOMPTYPE_None;
// Letters: beh and lam join both ways, alef only to the right (a non-joiner
// for ligatures), heh's initial form has an initial form of its own, kaf's
// initial form is a digit and its medial form a mark. Then a mark and a
// crowd of letters with an isolated form each, past what the table holds.
const char16_t B = 0x0628, A = 0x0627, L = 0x0644, G = 0x0647, K = 0x0643, kMark = 0x064E;
const char16_t kCrowd = 0x3400, kCrowdForms = 0x5000;
const int kCrowdSize = 4200;

std::vector<REC> Database() {
  std::vector<REC> recs = {{B, Lo, kNone, u""},        {0xE001, Lo, kInit, {B}},
                           {0xE002, Lo, kMed, {B}},    {0xE003, Lo, kFin, {B}},
                           {0xE004, Lo, kIso, {B}},    {A, Lo, kNone, u""},
                           {0xE011, Lo, kFin, {A}},    {0xE012, Lo, kIso, {A}},
                           {L, Lo, kNone, u""},        {0xE021, Lo, kInit, {L}},
                           {0xE022, Lo, kMed, {L}},    {0xE023, Lo, kFin, {L}},
                           {0xE024, Lo, kIso, {L}},    {0xE025, Lo, kIso, {L, A}},
                           {0xE026, Lo, kFin, {L, A}}, {0xE027, Lo, kInit, {L, B, B}},
                           {0xE028, Lo, kMed, {L, B}}, {G, Lo, kNone, u""},
                           {0xE031, Lo, kInit, {G}},   {0xE032, Lo, kInit, {0xE031}},
                           {K, Lo, kNone, u""},        {0xE043, Nd, kInit, {K}},
                           {0xE042, Mn, kMed, {K}},    {kMark, Mn, kNone, u""}};
  for (int i = 0; i < kCrowdSize; ++i) {
    const char16_t letter = static_cast<char16_t>(kCrowd + i);
    recs.push_back({letter, Lo, kNone, u""});
    recs.push_back({static_cast<char16_t>(kCrowdForms + i), Lo, kIso, {letter}});
  }
  return recs;
}

// The test works in a folder of its own, with the data folder pointed at a
// place that doesn't count, so that only the file written here is found.
class ShapingDataTest : public testing::Test {
 protected:
  void SetUp() override {
    m_folder = std::string(VOSYS_TEST_SCRATCH) + "/shapingXXXXXX";
    ASSERT_NE(mkdtemp(m_folder.data()), nullptr);
    ASSERT_EQ(chdir(m_folder.c_str()), 0);
    setenv("VOSYS_DATA_DIR", (m_folder + "/nodata").c_str(), 1);
    std::ofstream(m_folder + "/ucdata.ref", std::ios::binary) << File(Database());
  }
  void TearDown() override {
    if (chdir(VOSYS_TEST_SCRATCH) == 0) std::filesystem::remove_all(m_folder);
  }

  std::string m_folder;
};

TEST_F(ShapingDataTest, PositionalFormsLoopAnswersAsTheWholeWalk) {
  // By hand, from the rules.
  EXPECT_EQ(Shape({B}, nullptr), u"\uE004");
  EXPECT_EQ(Shape({B, B, B}, nullptr), u"\uE001\uE002\uE003");
  EXPECT_EQ(Shape({B, kMark, B}, nullptr), u"\uE001\u064E\uE003");
  EXPECT_EQ(Shape({L, A}, nullptr), u"\uE025");
  EXPECT_EQ(Shape({B, L, A}, nullptr), u"\uE001\uE026");
  EXPECT_EQ(Shape({L, B, B}, nullptr), u"\uE027");
  // The initial form of heh has an initial form too; the initial form of
  // kaf is a digit, which ends the word, and its medial form a mark, which
  // lets the letters on either side join.
  EXPECT_EQ(Shape({G, B}, nullptr), u"\uE032\uE003");
  EXPECT_EQ(Shape({K, B}, nullptr), u"\uE043\uE004");
  EXPECT_EQ(Shape({B, K, B}, nullptr), u"\uE001\uE042\uE003");
  // A refused ligature leaves lam initial; a refused initial form gives
  // way to the medial ligature noted on the way.
  FONT noLamAlef{FONT::Some, u"\uE025", u""};
  EXPECT_EQ(Shape({L, A}, &noLamAlef), u"\uE021\uE011");
  EXPECT_EQ(noLamAlef.asked, u"\uE025\uE021\uE011");
  FONT noInitial{FONT::Some, u"\uE027\uE021", u""};
  EXPECT_EQ(Shape({L, B, B}, &noInitial), u"\uE028\uE003");
  // Every letter of the crowd, in the table or past it.
  for (int i : {0, 1000, 4000, kCrowdSize - 1})
    EXPECT_EQ(Shape({static_cast<char16_t>(kCrowd + i), u' '}, nullptr),
              std::u16string({static_cast<char16_t>(kCrowdForms + i), u' '}));

  // Random text through both loops, with fonts that take all, none, or
  // some of the forms.
  const std::u16string alphabet = {
      B, B, A, L, L, G, K, kMark, 0xE031, u' ', u'1', kCrowd, kCrowd + kCrowdSize - 1};
  const std::u16string forms =
      u"\uE001\uE002\uE003\uE004\uE011\uE012\uE021\uE022\uE023\uE024"
      u"\uE025\uE026\uE027\uE028\uE031\uE032\uE042\uE043";
  std::mt19937 random(5);
  for (int n = 0; n < 20000; ++n) {
    std::u16string text;
    for (int k = random() % 12; k > 0; --k) text += alphabet[random() % alphabet.size()];
    std::u16string refused;
    for (char16_t form : forms)
      if (random() % 3 == 0) refused += form;
    for (auto answer : {FONT::All, FONT::None, FONT::Some}) {
      FONT fast{answer, refused, u""}, whole{answer, refused, u""};
      ASSERT_EQ(Shape(text, &fast),
                Shape(text, &whole, GLYPHFEATURE_Contextual | GLYPHFEATURE_Fraction))
          << n;
      ASSERT_EQ(fast.asked, whole.asked) << n;
    }
  }
}

}  // namespace
