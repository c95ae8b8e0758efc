// The encoding registry: the filtered lists and every lookup through them,
// checked against a model of the filter rule run over the whole table, and
// the life of a conversion's state.
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <set>
#include <string>
#include <vector>

#include "encoding/convdata.h"
#include "vosystem/errors.h"
#include "vosystem/ucconv.h"

namespace {

// The rows a filter offers, by the rule the lookups are documented with.
std::vector<int> Rows(int filter) {
  std::vector<int> rows;
  for (int row = 0; row < MucGetNumEncodings(0); ++row) {
    const ENCODEROW& r = g_encode[row];
    if ((filter & 4) && std::string(r.name) == "Unicode") continue;
    const int want = filter & 3;
    if ((want == 1 && r.canRead) || (want == 2 && r.canWrite) ||
        (want == 3 && r.canRead && r.canWrite))
      rows.push_back(row);
  }
  return rows;
}

TEST(EncodingRegistry, FilteredListsAgreeWithTheirRows) {
  for (int filter : {1, 2, 3, 5, 6, 7}) {
    const std::vector<int> rows = Rows(filter);
    ASSERT_EQ(MucGetNumEncodings(filter), static_cast<int>(rows.size())) << filter;
    for (size_t pos = 0; pos < rows.size(); ++pos) {
      const ENCODEROW& r = g_encode[rows[pos]];
      const int p = static_cast<int>(pos);
      EXPECT_EQ(MucNumToName(p, filter), r.name);
      EXPECT_EQ(MucGetEncodingFromNum(p, filter), r.number);
      EXPECT_EQ(MucNameToNum(r.name, filter), p);
      EXPECT_EQ(MucNameToCharset(r.name, filter), r.g[0]);
      // The first passing row of a number: CP866 and "Unicode (UTF8)" are
      // never offered, so their numbers find CP1251 and "UTF8".
      size_t first = 0;
      while (g_encode[rows[first]].number != r.number) ++first;
      EXPECT_EQ(MucGetEncodingNum(r.number, filter), static_cast<int>(first)) << r.name;
    }
    EXPECT_EQ(MucNumToName(static_cast<int>(rows.size()), filter), nullptr);
    EXPECT_EQ(MucGetEncodingFromNum(static_cast<int>(rows.size()), filter), 0);
  }
  // "Japanese" is offered for reading only.
  EXPECT_GT(MucNameToNum("Japanese", 1), 0);
  EXPECT_EQ(MucNameToNum("Japanese", 2), 0);
  EXPECT_EQ(MucNameToNum("Japanese", 3), 0);

  // Filter 0: every row, by row; filter 4 alone: nothing by position.
  EXPECT_EQ(MucGetNumEncodings(0), 67);
  EXPECT_EQ(MucGetNumEncodings(4), 0);
  EXPECT_STREQ(MucNumToName(66, 0), "WindowsMultiByte");
  EXPECT_EQ(MucNumToName(67, 0), nullptr);
  EXPECT_EQ(MucNumToName(-1, 0), nullptr);
  EXPECT_EQ(MucNumToName(0, 4), nullptr);
  EXPECT_EQ(MucGetEncodingFromNum(19, 0), 301);
  EXPECT_EQ(MucGetEncodingNum(301, 0), -1);
  EXPECT_EQ(MucGetEncodingNum(301, 4), -1);
  EXPECT_EQ(MucNameToNum("CP1251", 0), 19);
  EXPECT_EQ(MucNameToNum("WindowsMultiByte", 4), 65);  // "Unicode" left out before it
  EXPECT_EQ(MucNameToNum("Unicode", 4), 0);
}

TEST(EncodingRegistry, LookupsByNameAndNumber) {
  // An empty or null name is the internal form.
  for (const char* none : {static_cast<const char*>(nullptr), ""}) {
    EXPECT_EQ(MucNameToNum(none, 0), 9);
    EXPECT_EQ(MucNameToCharset(none, 0), 15);
    EXPECT_EQ(MucGetEncodingFromName(none), 100);
  }
  EXPECT_EQ(MucGetEncodingFromName("utf8"), 2);  // case ignored here only
  EXPECT_EQ(MucNameToNum("utf8", 0), 0);
  EXPECT_EQ(MucGetEncodingFromName("shift-jis"), 122);
  EXPECT_EQ(MucGetEncodingFromName("no such"), 0);
  EXPECT_EQ(MucNameToCharset("EUC", 0), 24);
  EXPECT_EQ(MucNameToCharset("no such", 0), 15);

  EXPECT_STREQ(MucGetName(301), "CP866");  // the earlier of two rows
  EXPECT_STREQ(MucGetName(2), "Unicode (UTF8)");
  EXPECT_STREQ(MucGetName(614), "MacUkrainian");
  EXPECT_STREQ(MucGetName(9999), "ASCII");
  EXPECT_STREQ(MucGetEncodingStr(34), "ISO-8859-1");
  EXPECT_EQ(MucGetEncodingStr(67), nullptr);

  // With no resource file open (nothing here initialises the text
  // resources), the description is the name.
  unsigned short* desc = MucNameToDescUC("KOI-8");
  ASSERT_NE(desc, nullptr);
  EXPECT_EQ(std::u16string(reinterpret_cast<char16_t*>(desc)), u"KOI-8");
  free(desc);
  EXPECT_EQ(MucNameToDescUC(nullptr), nullptr);
  char* narrow = MucNumToDesc(0, 0);
  EXPECT_STREQ(narrow, "ASCII");
  free(narrow);
  EXPECT_EQ(MucNumToDesc(99, 0), nullptr);

  int g0 = 0, g1 = 0, ideo = 0;
  EXPECT_EQ(MucGetDefaultCharsets(&g0, &g1, &ideo), 0);
  EXPECT_EQ(g0 * 10000 + g1 * 100 + ideo, 151511);
  EXPECT_EQ(MucGetDefaultCharsets(nullptr, nullptr, nullptr), 0);
}

// Every charset an encoding designates exists, the charset table ends where
// it says, and the escapes are distinct: a decoder could not tell two sets
// with one escape apart.
TEST(EncodingRegistry, TablesHangTogether) {
  EXPECT_EQ(g_charsetInfo[kCharsetRows].name, nullptr);
  std::set<std::string> escapes, charsetNames;
  for (int i = 0; i < kCharsetRows; ++i) {
    ASSERT_NE(g_charsetInfo[i].name, nullptr) << i;
    EXPECT_LE(strlen(g_charsetInfo[i].name), 15u) << g_charsetInfo[i].name;
    EXPECT_TRUE(charsetNames.insert(g_charsetInfo[i].name).second);
    if (const char* e = g_charsetInfo[i].escape) {
      EXPECT_EQ(e[0], '\x1B');
      EXPECT_TRUE(escapes.insert(e).second) << g_charsetInfo[i].name;
    }
  }
  std::set<std::string> names;
  for (const ENCODEROW& r : g_encode) {
    EXPECT_TRUE(names.insert(r.name).second) << r.name;
    EXPECT_GE(r.type, 1);
    EXPECT_LE(r.type, 12);
    for (int g : r.g) EXPECT_TRUE(g >= 0 && g < kCharsetRows) << r.name;
  }
}

TEST(EncodingRegistry, ConversionStateLifeCycle) {
  EXPECT_EQ(MucInitConversion(nullptr, "EUC", 0), VOERROR_InvalidArgument);
  EXPECT_EQ(GetLastErrCode(), VOERROR_InvalidArgument);

  void* conv = nullptr;
  ASSERT_EQ(MucInitConversion(&conv, "EUC", 1), 0);
  auto* data = static_cast<CONVDATA*>(conv);
  EXPECT_EQ(data->encodingRow, 6);
  EXPECT_EQ(data->type, CONVTYPE_Euc);
  EXPECT_EQ(data->charset, 24);
  EXPECT_EQ(std::vector<int>(data->gSet, data->gSet + 4), (std::vector<int>{24, 11, 27, 12}));
  EXPECT_EQ(data->flags, 1);
  // What a conversion leaves behind goes with a reset.
  data->swapBytes = 1;
  data->flags = 0;
  data->gSet[2] = 99;
  data->currentGL = 2;
  data->escapeHandler = [](CONVDATA*, unsigned char) { return 0; };
  MucReset(conv);
  EXPECT_EQ(data->swapBytes, 0);
  EXPECT_EQ(data->flags, 1);
  EXPECT_EQ(data->gSet[2], 27);
  EXPECT_EQ(data->currentGL, 0);
  EXPECT_EQ(data->escapeHandler, nullptr);
  MucStopConversion(conv);

  ASSERT_EQ(MucInitConversion(&conv, "no such encoding", 0), 0);  // ASCII, no failure
  EXPECT_EQ(static_cast<CONVDATA*>(conv)->encodingRow, 0);
  EXPECT_EQ(static_cast<CONVDATA*>(conv)->type, CONVTYPE_SingleByte);
  MucStopConversion(conv);
  MucReset(nullptr);
  MucStopConversion(nullptr);
}

}  // namespace
