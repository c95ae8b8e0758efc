// Identifiers: parsing "space:code", numbers within text, equality and order.
#include "vosystem/identifier.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

#include "test_util.h"
#include "vosystem/errors.h"
#include "vosystem/xml.h"

TEST(Identifier, FullTextSplitsIntoSpaceTextAndNumber) {
  IDENTIFIER epsg("EPSG:4326");
  EXPECT_EQ(epsg.GetCodespace(), CODESPACE_EPSG);
  EXPECT_EQ(epsg.GetNum(), 4326);
  EXPECT_STREQ(epsg.GetStr(), "4326");
  EXPECT_EQ(U8(epsg.GetFullStr()), "EPSG:4326");

  EXPECT_EQ(U8(IDENTIFIER("4326").GetFullStr()), "Larkspindle:4326");
  EXPECT_EQ(static_cast<int>(IDENTIFIER("Nobody:1").GetCodespace()), -1);
  EXPECT_EQ(U8(IDENTIFIER("Nobody:1").GetFullStr()), "Unknown:1");
  EXPECT_EQ(static_cast<int>(IDENTIFIER("epsg:1").GetCodespace()), -1);  // case counts
  EXPECT_STREQ(IDENTIFIER("OGC:a:b").GetStr(), "a:b");
  EXPECT_EQ(static_cast<int>(IDENTIFIER(":5").GetCodespace()), -1);
  EXPECT_EQ(
      static_cast<int>(IDENTIFIER("ISO_3166_1_A2_AND_A_VERY_LONG_TAIL_OF_TEXT:5").GetCodespace()),
      -1);

  // Every name of the table goes both ways; values outside it are unknown.
  for (int v = -2; v <= 1001; ++v) {
    const char* name = CodespaceGetName(static_cast<CODESPACE>(v));
    if (std::string(name) == "Unknown") continue;
    EXPECT_EQ(static_cast<int>(CodespaceFromName(name)), v) << name;
  }
  EXPECT_STREQ(CodespaceGetName(static_cast<CODESPACE>(-1)), "Unknown");
  EXPECT_STREQ(CodespaceGetName(CODESPACE_PCI), "PCI");

  // The number is set only by a text that is one whole integer.
  EXPECT_EQ(IDENTIFIER(CODESPACE_EPSG, "007").GetNum(), 7);
  EXPECT_EQ(IDENTIFIER(CODESPACE_EPSG, " -12 ").GetNum(), -12);
  IDENTIFIER id(CODESPACE_EPSG, 99L);
  EXPECT_STREQ(id.GetStr(), "99");
  id = "EPSG:12a";
  EXPECT_EQ(id.GetNum(), 99);  // unchanged
  id = "EPSG:";
  EXPECT_EQ(id.GetNum(), 0);  // empty text reads as 0
  id = "EPSG:- 3";
  EXPECT_EQ(id.GetNum(), 0);
  id = "EPSG:99999999999";
  EXPECT_EQ(id.GetNum(), 2147483647);  // held to the 32-bit range
}

TEST(Identifier, EqualityAndOrder) {
  const IDENTIFIER seven(CODESPACE_EPSG, "7"), padded(CODESPACE_EPSG, "007");
  EXPECT_TRUE(seven.IsEqual(padded));
  EXPECT_TRUE(IDENTIFIER("Nobody:7").IsEqual(seven));  // unknown space matches any
  EXPECT_FALSE(IDENTIFIER("OGC:7").IsEqual(seven));
  EXPECT_TRUE(IDENTIFIER("OGC:abc").IsEqual(IDENTIFIER("OGC:abc")));
  EXPECT_FALSE(IDENTIFIER("OGC:abc").IsEqual(IDENTIFIER("OGC:abd")));
  EXPECT_FALSE(IDENTIFIER("OGC:0").IsEqual(IDENTIFIER("OGC:00")));  // 0 is no number here

  std::vector<IDENTIFIER> ids = {IDENTIFIER("EPSG:10"),  IDENTIFIER("OGC:b"), IDENTIFIER("EPSG:9"),
                                 IDENTIFIER("Nobody:1"), IDENTIFIER("OGC:a"), IDENTIFIER("1")};
  std::sort(ids.begin(), ids.end());
  std::vector<std::string> order;
  for (const IDENTIFIER& i : ids) order.push_back(U8(i.GetFullStr()));
  EXPECT_EQ(order, (std::vector<std::string>{"Unknown:1", "Larkspindle:1", "OGC:a", "OGC:b",
                                             "EPSG:9", "EPSG:10"}));
}

TEST(Identifier, FromXml) {
  XMLDOC doc(reinterpret_cast<const unsigned char*>(
      "<r><a> EPSG:4326 </a><b>Nobody:1</b><c>  </c><d/></r>"));
  XMLNODE* r = doc.GetRootNode();
  ASSERT_NE(r, nullptr);
  IDENTIFIER id;
  EXPECT_EQ(id.CreateFromXML(r->FindChild("a")), 0);
  EXPECT_EQ(U8(id.GetFullStr()), "EPSG:4326");
  EXPECT_EQ(id.CreateFromXML(r->FindChild("b")), -1711);
  EXPECT_EQ(GetLastErrCode(), -1711);
  EXPECT_EQ(id.CreateFromXML(r->FindChild("c")), -1712);
  EXPECT_EQ(id.CreateFromXML(r->FindChild("d")), -1712);
  EXPECT_EQ(id.CreateFromXML(nullptr), -1712);
}
