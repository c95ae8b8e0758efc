// The character database read from crafted files: missing, empty, truncated
// and malformed ones, the composite chains built at load, and the places and
// spellings under which the file is found. The file is loaded once per
// process, so every case is a test of its own.
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "vosystem/ucdata.h"
#include "vosystem/ucdecomp.h"

namespace {

struct REC {
  unsigned short code, partner;
  unsigned char category, bidi, type;
  std::u16string seq;
  unsigned short first = 0;  // composite fields as the file holds them
  unsigned short next = 0;
};

const unsigned char kNone = UCDECOMPTYPE_None;

std::string File(const std::vector<REC>& recs) {
  std::string out;
  auto word = [&out](unsigned w) { out.append({char(w & 0xFF), char(w >> 8 & 0xFF)}); };
  word(1);
  for (const REC& r : recs) {
    for (unsigned w : {r.code, r.partner, r.first, r.next}) word(w);
    out.append({char(r.category), char(r.bidi), char(r.type), char(r.seq.size())});
    for (char16_t unit : r.seq) word(unit);
  }
  return out;
}

// Upper- and lower-case 'A' and 'a', the smallest useful database.
const std::vector<REC> kPair = {{'A', 'a', UCCATEGORY_Lu, 0, kNone, u""},
                                {'a', 'A', UCCATEGORY_Ll, 0, kNone, u""}};

std::u16string Apply(unsigned short* (*fn)(const unsigned short*), const std::u16string& text) {
  std::vector<unsigned short> exact(text.begin(), text.end());  // no slack to hide overreads
  exact.push_back(0);
  unsigned short* out = fn(exact.data());
  if (!out) return u"<null>";
  std::u16string result(reinterpret_cast<const char16_t*>(out));
  free(out);
  return result;
}

std::u16string ChainOf(unsigned short c) {
  std::u16string chain;
  const unsigned char* rec = GetUCDATA(c);
  for (unsigned short link = rec ? UCDATA::VariantLink(rec) : 0; link && chain.size() < 100;) {
    chain += static_cast<char16_t>(link);
    rec = GetUCDATA(link);
    link = rec ? UCDATA::NextVariant(rec) : 0;
  }
  return chain;
}

void ExpectNoRecords() {
  for (unsigned short c : {0x41, 0x61, 0x5D0, 0xE9}) {
    EXPECT_TRUE(!GetUCDATA(c) && !UCDATA::GetCharData(c)) << c;
    EXPECT_TRUE(uctolower(c) == c && uctoupper(c) == c) << c;
    EXPECT_TRUE(!ucisprop(c, ~0UL) && !ucisdecompprop(c, ~0UL)) << c;
    EXPECT_TRUE(ucisbidiprop(c, 1) && !ucisbidiprop(c, ~1UL)) << c;  // L, as without a record
  }
}

// Each test works in a fresh folder of its own, with the data folder pointed
// at a place that doesn't count, so that the installed file is never found.
class UcDataFileTest : public testing::Test {
 protected:
  void SetUp() override {
    static bool s_loaded = false;
    if (s_loaded) GTEST_SKIP() << "the database loads once per process: run each test alone";
    s_loaded = true;
    m_folder = std::string(VOSYS_TEST_SCRATCH) + "/ucdataXXXXXX";
    ASSERT_NE(mkdtemp(m_folder.data()), nullptr);
    ASSERT_EQ(chdir(m_folder.c_str()), 0);
    setenv("VOSYS_DATA_DIR", (m_folder + "/nodata").c_str(), 1);
  }
  void TearDown() override {
    if (!m_folder.empty() && chdir(VOSYS_TEST_SCRATCH) == 0) std::filesystem::remove_all(m_folder);
  }
  // Writes the file, and the folder it goes in, under the test's folder.
  std::string Write(const std::string& bytes, const std::string& name = "ucdata.ref") {
    const std::filesystem::path path = m_folder + "/" + name;
    std::filesystem::create_directories(path.parent_path());
    std::ofstream(path, std::ios::binary) << bytes;
    return path;
  }

  std::string m_folder;
};

TEST_F(UcDataFileTest, NoFileGivesDefaultsAndLoadIsNotRetried) {
  Write(File(kPair), "nodata/ucdata.ref");  // no marker "hdrdesc.ref" beside it
  ExpectNoRecords();
  EXPECT_EQ(Apply(MucDecompose, u"\u00E9a"), u"\u00E9a");
  EXPECT_EQ(Apply(MucRecompose, u"e\u0301"), u"e\u0301");
  Write(File(kPair));
  ReadUCData();
  EXPECT_EQ(GetUCDATA('A'), nullptr);
}

TEST_F(UcDataFileTest, DataFolderOfTheEnvironmentCountsWithItsMarker) {
  Write("", "nodata/hdrdesc.ref");
  Write(File(kPair), "nodata/ucdata.ref");
  EXPECT_EQ(uctolower('A'), 'a');
}

TEST_F(UcDataFileTest, UpperCaseNameIsFound) {
  Write(File(kPair), "UCDATA.REF");
  EXPECT_EQ(uctolower('A'), 'a');
}

TEST_F(UcDataFileTest, DiscImageNameIsFound) {
  Write(File(kPair), "ucdata.ref;1");
  EXPECT_EQ(uctoupper('a'), 'A');
}

TEST_F(UcDataFileTest, TwoByteFileHoldsNoRecords) {
  Write(std::string("\x01\x00", 2));
  ExpectNoRecords();
}

TEST_F(UcDataFileTest, EmptyFileHoldsNoRecords) {
  Write("");
  ExpectNoRecords();
}

TEST_F(UcDataFileTest, HugeFileCountsAsAbsent) {
  std::string path = Write(File(kPair));
  ASSERT_EQ(truncate(path.c_str(), (64 << 20) + 2), 0);  // sparse: takes no disk space
  ExpectNoRecords();
}

TEST_F(UcDataFileTest, TrailingOddByteIsIgnored) {
  Write(File(kPair) + '\x07');
  EXPECT_EQ(uctoupper('a'), 'A');
}

TEST_F(UcDataFileTest, RecordCutShortIsDropped) {
  std::string bytes = File({kPair[0], kPair[1], {'B', 'b', UCCATEGORY_Lu, 0, kNone, u""}});
  bytes.resize(bytes.size() - 5);
  Write(bytes);
  EXPECT_EQ(uctoupper('a'), 'A');
  EXPECT_EQ(GetUCDATA('B'), nullptr);
}

TEST_F(UcDataFileTest, DecompositionPastTheEndIsDropped) {
  std::string bytes = File({kPair[0], kPair[1], {0x100, 0x100, UCCATEGORY_Lu, 0, 0, u"ab"}});
  bytes[bytes.size() - 5] = static_cast<char>(200);  // length byte of the last record
  Write(bytes);
  EXPECT_EQ(uctolower('A'), 'a');
  EXPECT_EQ(GetUCDATA(0x100), nullptr);
  EXPECT_EQ(ChainOf('a'), u"");
}

TEST_F(UcDataFileTest, RepeatedCodeLaterRecordWins) {
  Write(File({{0x100, 'p', UCCATEGORY_Lu, 0, 0, u"bc"},
              {'b', 'b', UCCATEGORY_Ll, 0, kNone, u""},
              {0x100, 'Q', UCCATEGORY_Ll, 0, 0, u"bd"}}));
  EXPECT_EQ(uctoupper(0x100), 'Q');
  EXPECT_EQ(ChainOf('b'), u"\u0100");
  EXPECT_EQ(Apply(MucRecompose, u"bdbc"), u"\u0100bc");
}

TEST_F(UcDataFileTest, CompositeFieldsOfTheFileAreRebuilt) {
  Write(File({{'b', 'b', UCCATEGORY_Ll, 0, kNone, u"", 0x101, 0x100},
              {0x100, 0x100, UCCATEGORY_Lo, 0, 0, u"bc", 0xFFFF, 0x100},  // links to itself
              {0x101, 0x101, UCCATEGORY_Lo, 0, kNone, u"", 0x100, 0x101}}));
  EXPECT_EQ(ChainOf('b'), u"\u0100");
  EXPECT_EQ(UCDATA::NextVariant(GetUCDATA(0x100)), 0);
  EXPECT_EQ(UCDATA::VariantLink(GetUCDATA(0x101)), 0);
  EXPECT_EQ(Apply(MucRecompose, u"bcb\u0101c"), u"\u0100b\u0101c");
}

TEST_F(UcDataFileTest, DecompositionStartingWithItselfEnds) {
  Write(File({{0x100, 0x100, UCCATEGORY_Lo, 0, 0, u"\u0100y"},
              {0x102, 0x102, UCCATEGORY_Lo, 0, 0, u"\u0102"}}));
  EXPECT_EQ(ChainOf(0x100), u"\u0100");
  EXPECT_EQ(Apply(MucDecompose, u"\u0100\u0102"), u"\u0100y\u0102");
  EXPECT_EQ(Apply(MucRecompose, u"\u0100yyx\u0102"), u"\u0100x\u0102");
}

// Chains run by descending decomposition length whatever the order of the
// records in the file; among equal lengths the record of the higher code
// (linked last) stands first. The composer takes the longest match.
TEST_F(UcDataFileTest, ChainsRunLongestFirst) {
  const unsigned char L = UCCATEGORY_Ll, C = UCDECOMPTYPE_Canonical;
  Write(File({{0x200, 0x200, L, 0, C, u"xy"},
              {0x150, 0x150, L, 0, UCDECOMPTYPE_Compat, u"x"},
              {'x', 'X', L, 0, kNone, u""},
              {0x100, 0x100, L, 0, C, u"xyz"},  // A = x y, B = x y z: B, then A
              {0x502, 0x502, L, 0, C, u"vq"},
              {'v', 'V', L, 0, kNone, u""},
              {0x500, 0x500, L, 0, C, u"vy"},
              {0x501, 0x501, L, 0, C, u"vz"},
              {0x1000, 0x1000, L, 0, C, u"vyz"},
              {0x600, 0x600, L, 0, C, u"qy"}}));  // 'q' has no record: no chain
  EXPECT_EQ(ChainOf('x'), u"\u0100\u0200\u0150");
  EXPECT_EQ(ChainOf('v'), u"\u1000\u0502\u0501\u0500");
  EXPECT_EQ(ChainOf('q'), u"");
  EXPECT_EQ(Apply(MucRecompose, u"xyzxyxyqxvzvyzqy"), u"\u0100\u0200\u0200qx\u0501\u1000qy");
  EXPECT_EQ(Apply(MucDecompose, u"\u0100\u0150\u0600"), u"xyz\u0150qy");  // one unit stays
}

// Tens of thousands of records on one chain, longest last in code order: the
// order in which linking one record at a time walks the whole chain for each.
TEST_F(UcDataFileTest, OneHugeChainLinksInOrder) {
  const unsigned char L = UCCATEGORY_Ll, C = UCDECOMPTYPE_Canonical;
  const int n = 65000;
  std::vector<REC> recs = {{'x', 'X', L, 0, kNone, u""}};
  auto lengthOf = [&](int i) { return 255 - i * 254 / (n - 1); };  // 255 down to 1
  for (int i = 0; i < n; ++i)
    recs.push_back({static_cast<unsigned short>(0x100 + i), 0, L, 0, C,
                    u"x" + std::u16string(lengthOf(i) - 1, u'y')});
  Write(File(recs));
  std::vector<std::pair<int, int>> chain;  // length, code
  const unsigned char* rec = GetUCDATA('x');
  for (unsigned short link = UCDATA::VariantLink(rec); link && chain.size() <= n;) {
    rec = GetUCDATA(link);
    ASSERT_NE(rec, nullptr);
    chain.emplace_back(UCDATA::SequenceLength(rec), link);
    link = UCDATA::NextVariant(rec);
  }
  ASSERT_EQ(chain.size(), static_cast<size_t>(n));
  // Longest first; among equal lengths the later code first.
  EXPECT_TRUE(std::is_sorted(chain.begin(), chain.end(), std::greater<>()));
  EXPECT_EQ(Apply(MucRecompose, u"x" + std::u16string(254, u'y') + u"x"),
            std::u16string(1, static_cast<char16_t>(chain.front().second)) + u"x");
}

// Only the low six bits of the property bytes are properties, and a value
// of 32 to 63 matches no mask; the case functions compare the whole byte.
TEST_F(UcDataFileTest, PropertyBytesUseTheirLowSixBits) {
  Write(File({{0x100, 0x101, 0x41, 0x43, 0x40, u"ab"},
              {0x102, 0x102, 0x21, 0x3F, 0x24, u"ab"},
              {0x103, 0x103, 0x5F, 0x00, kNone, u""},
              {0x104, 0x105, UCCATEGORY_Lu, 0, kNone, u""},
              {0x09, 0x09, UCCATEGORY_Cc, UCBIDICLASS_R, kNone, u""}}));
  EXPECT_EQ(ucisprop(0x100, UCPROP_MASK(UCCATEGORY_Lu)), 1);
  EXPECT_EQ(uctolower(0x100), 0x100);
  EXPECT_EQ(uctolower(0x104), 0x105);
  EXPECT_EQ(ucisbidiprop(0x100, UCPROP_MASK(UCBIDICLASS_R)), 1);
  EXPECT_EQ(ucisdecompprop(0x100, 1), 1);
  EXPECT_TRUE(!ucisprop(0x102, ~0UL) && !ucisbidiprop(0x102, ~0UL) && !ucisdecompprop(0x102, ~0UL));
  EXPECT_EQ(ucisprop(0x103, 0x80000000UL), 1);
  EXPECT_TRUE(ucisbidiprop(0x09, 1) && !ucisbidiprop(0x09, UCPROP_MASK(UCBIDICLASS_R)));
}

// A zero unit inside a decomposition ends the text it is matched against,
// so composing never reads past the terminator; a record of code 0 is on no
// chain, so "ab" can't compose into a terminator.
TEST_F(UcDataFileTest, ZeroUnitsInDecompositions) {
  const unsigned char L = UCCATEGORY_Ll, C = UCDECOMPTYPE_Canonical;
  Write(File({{'a', 'A', L, 0, kNone, u""},
              {0x100, 0x100, L, 0, C, std::u16string(u"a\0b", 3)},
              {0x101, 0x101, L, 0, C, std::u16string(u"a\0", 2)},
              {0, 0, UCCATEGORY_Cc, 0, C, u"ab"},
              {0x102, 0x102, L, 0, C, std::u16string(u"\0c", 2)}}));
  for (const char16_t* text : {u"a", u"ab", u"xa"}) EXPECT_EQ(Apply(MucRecompose, text), text);
  EXPECT_EQ(Apply(MucDecompose, u"\u0100x"), u"a");  // the copied zero ends the result
  EXPECT_EQ(Apply(MucDecompose, u"\u0102"), u"");
}

}  // namespace
