// Typed settings: every type code written and read back, numbers checked
// against the C library's own formatting, in a locale whose decimal mark is
// a comma; lists that wrap; values over several fields; overflowing text.
#include <gtest/gtest.h>

#include <cfloat>
#include <clocale>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <random>
#include <string>

#include "settings/ini_test_util.h"
#include "vosystem/errors.h"
#include "vosystem/filepath.h"

namespace {

std::string CFormat(const char* fmt, double v) {
  char buf[512];
  snprintf(buf, sizeof buf, fmt, v);
  return buf;
}

}  // namespace

// The C library formats under the C locale here, as the store must whatever
// locale is set; the store's own writing runs under the comma locale.
TEST(IniTypes, NumbersMatchTheCLibraryWhateverTheLocale) {
  std::mt19937_64 rng(7);
  std::vector<double> doubles = {0, 1.5, -1.5, 0.125, 1e300, -DBL_MAX, DBL_MIN, 123456.789012345};
  for (int i = 0; i < 200; ++i) {
    double d;
    uint64_t bits = rng();
    memcpy(&d, &bits, sizeof d);
    if (std::isfinite(d)) doubles.push_back(d);
    doubles.push_back(static_cast<double>(static_cast<int64_t>(rng() >> 20)) / 1024);
  }
  std::vector<std::string> wantD, wantF;
  std::vector<double> backD;
  std::vector<float> backF;
  for (double d : doubles) {
    wantD.push_back(CFormat("%.8f", d));
    wantF.push_back(CFormat("%.5f", static_cast<double>(static_cast<float>(d))));
    backD.push_back(strtod(wantD.back().c_str(), nullptr));
    backF.push_back(strtof(wantF.back().c_str(), nullptr));
  }
  const std::string folder = MakeCommaLocale();
  if (!folder.empty()) {
    setenv("LOCPATH", folder.c_str(), 1);
    ASSERT_NE(setlocale(LC_ALL, "comma"), nullptr);
  }
  void* h = MemoryStore("");
  for (size_t i = 0; i < doubles.size(); ++i) {
    const float f = static_cast<float>(doubles[i]);
    ASSERT_EQ(IniWriteNumber(h, "n", "d", INITYPE_Double, &doubles[i]), 0);
    ASSERT_EQ(IniWriteNumber(h, "n", "f", INITYPE_Float, &f), 0);
    ASSERT_EQ(Get(h, "n", "d"), wantD[i]);
    ASSERT_EQ(Get(h, "n", "f"), wantF[i]);
    double d = 0;
    float g = 0;
    ASSERT_EQ(_iniRead(h, "n", "d", INITYPE_Double, &d, 1), 1);
    ASSERT_EQ(_iniRead(h, "n", "f", INITYPE_Float, &g, 1), 1);
    ASSERT_EQ(d, backD[i]);
    ASSERT_EQ(g, backF[i]);
  }
  IniClose(h);
  setlocale(LC_ALL, "C");
  if (!folder.empty()) {
    EXPECT_EQ(system(("rm -rf " + folder).c_str()), 0);
  }
}

TEST(IniTypes, IntegersAndBooleansRoundTripAndOverflowTheCWay) {
  void* h = MemoryStore(
      "[g]\nbig=99999999999\nneg=-99999999999\nm1=-1\nlow=300\nt=true\none=1\n"
      "zero=0\nno=no\nbad=abc\nmix=12abc 7\n");
  int32_t i = 0;
  uint32_t u = 0;
  int8_t i8 = 0;
  uint8_t u8 = 0;
  int16_t i16 = 0;
  int32_t b = 5;
  EXPECT_EQ(_iniRead(h, "g", "big", INITYPE_Int32, &i, 1), 1);
  EXPECT_EQ(i, INT32_MAX);
  EXPECT_EQ(_iniRead(h, "g", "neg", INITYPE_Int32, &i, 1), 1);
  EXPECT_EQ(i, INT32_MIN);
  EXPECT_EQ(_iniRead(h, "g", "m1", INITYPE_UInt32, &u, 1), 1);
  EXPECT_EQ(u, 0xFFFFFFFFu);
  EXPECT_EQ(_iniRead(h, "g", "big", INITYPE_UInt32, &u, 1), 1);
  EXPECT_EQ(u, 0xFFFFFFFFu);
  EXPECT_EQ(_iniRead(h, "g", "low", INITYPE_Int8, &i8, 1), 1);
  EXPECT_EQ(i8, 44);  // 300's low byte
  EXPECT_EQ(_iniRead(h, "g", "m1", INITYPE_UInt8, &u8, 1), 1);
  EXPECT_EQ(u8, 255);
  EXPECT_EQ(_iniRead(h, "g", "big", INITYPE_Int16, &i16, 1), 1);
  EXPECT_EQ(i16, -1);  // 0x7FFFFFFF's low 16 bits
  for (const char* f : {"t", "one"}) {
    EXPECT_EQ(_iniRead(h, "g", f, INITYPE_Bool32, &b, 1), 1);
    EXPECT_EQ(b, 1) << f;
  }
  for (const char* f : {"zero", "no"}) {
    EXPECT_EQ(_iniRead(h, "g", f, INITYPE_Boolean, &b, 1), 1);
    EXPECT_EQ(b, 0) << f;
  }
  i = 42;
  EXPECT_EQ(_iniRead(h, "g", "bad", INITYPE_Int32, &i, 1), -1);  // no number: nothing stored
  EXPECT_EQ(_iniRead(h, "g", "absent", INITYPE_Int32, &i, 1), -1);
  EXPECT_EQ(i, 42);
  int32_t two[2] = {0, 0};
  EXPECT_EQ(_iniRead(h, "g", "mix", INITYPE_Int32, two, 2), 2);  // "12abc" gives 12
  EXPECT_EQ(two[0], 12);
  EXPECT_EQ(two[1], 7);
  EXPECT_EQ(IniWriteBoolean(h, "g", "w", 1), 0);
  EXPECT_EQ(Get(h, "g", "w"), "Yes");
  const int8_t m = -128;
  EXPECT_EQ(IniWriteNumber(h, "g", "w", INITYPE_Int8, &m), 0);
  EXPECT_EQ(Get(h, "g", "w"), "-128");
  EXPECT_EQ(IniWriteNumber(h, "g", "w", INITYPE_String, "x"), VOERROR_InvalidArgument);
  EXPECT_EQ(IniWriteNumber(h, "g", "w", INITYPE_Point2D, two), VOERROR_InvalidArgument);
  EXPECT_EQ(_iniRead(h, "g", "t", 13, two, 1), VOERROR_InvalidArgument);
  EXPECT_EQ(_iniRead(h, "g", "t", 0, two, 1), VOERROR_InvalidArgument);
  EXPECT_EQ(_iniRead(h, "g", "t", INITYPE_Int32, nullptr, 1), VOERROR_InvalidArgument);
  IniClose(h);
}

TEST(IniTypes, LongListsWrapAndReadBackWhole) {
  void* h = MemoryStore("");
  double values[40];
  for (int i = 0; i < 40; ++i) values[i] = i * 1000.25 - 7;
  ASSERT_EQ(IniWrite(h, "g", "list", INITYPE_Double, values, 40), 0);
  const std::string text = StoreText(h);
  size_t lines = 0;
  for (size_t at = text.find("list="), end; at < text.size(); at = end + 1, ++lines) {
    end = text.find('\n', at);
    std::string line = text.substr(at, end - at);
    if (line.rfind("list=", 0) == 0) line.erase(0, 5);
    if (line[0] == '\\') line.erase(0, 1);
    if (line.back() == '\\') line.pop_back();
    while (!line.empty() && line.back() == ' ') line.pop_back();
    EXPECT_LE(line.size(), 80u) << line;
    if (text.compare(end - 1, 1, "\\") != 0) break;
  }
  EXPECT_GT(lines, 5u);
  double back[41] = {};
  back[40] = 99;
  EXPECT_EQ(_iniRead(h, "g", "list", INITYPE_Double, back, 41), 40);
  EXPECT_EQ(memcmp(back, values, sizeof values), 0);
  EXPECT_EQ(back[40], 99);
  IniClose(h);
}

TEST(IniTypes, RecordsAreReadWholeOrNotAtAll) {
  void* h = MemoryStore("[g]\npt=1 2 3 4 5\ncolor=65535 0 32768\n");
  double pts[3][2] = {{9, 9}, {9, 9}, {9, 9}};
  EXPECT_EQ(_iniRead(h, "g", "pt", INITYPE_Point2D, pts, 3), 2);  // "5" is half a point
  EXPECT_EQ(pts[1][1], 4);
  EXPECT_EQ(pts[2][0], 9);
  uint16_t color[4] = {1, 1, 1, 0x8085};  // model mode: the model number goes
  EXPECT_EQ(_iniRead(h, "g", "color", INITYPE_Color, color, 1), 1);
  EXPECT_EQ(color[0], 65535);
  EXPECT_EQ(color[2], 32768);
  EXPECT_EQ(color[3], 0x8001);
  unsigned char parm[200];
  for (int i = 0; i < 200; ++i) parm[i] = static_cast<unsigned char>(i);
  const int16_t ints[5] = {-5, 1, 2, 3, -32768};
  memcpy(parm, ints, 2);
  memcpy(parm + 72, ints + 1, 8);
  for (int i = 0; i < 15; ++i) {
    const double d = i * 0.5 - 3;
    memcpy(parm + 80 + 8 * i, &d, 8);
  }
  unsigned char copy[200];
  memcpy(copy, parm, 200);
  ASSERT_EQ(IniWrite(h, "g", "parm", INITYPE_ParmRecord, parm, 1), 0);
  memset(copy, 0, 2);
  memset(copy + 72, 0, 128);
  ASSERT_EQ(_iniRead(h, "g", "parm", INITYPE_ParmRecord, copy, 1), 1);
  EXPECT_EQ(memcmp(copy, parm, 200), 0);  // bytes 2 to 71 are left as they were
  EXPECT_EQ(IniWrite(h, "g", "x", 0x01000099, parm, 1), VOERROR_InvalidArgument);
  IniClose(h);
}

TEST(IniTypes, StringsCutToTheirBufferAndSpanFields) {
  void* h = MemoryStore("[g]\ns=héllo wörld\n");
  char small[5];
  EXPECT_EQ(IniReadString(h, "g", "s", INITYPE_String, small, sizeof small), 4);
  EXPECT_STREQ(small, "h\xC3\xA9l");
  unsigned short wide[4];
  EXPECT_EQ(IniReadString(h, "g", "s", INITYPE_UCString, wide, sizeof wide), 3);
  EXPECT_EQ(U8(VOSTRING(wide)), "hél");
  EXPECT_EQ(IniReadString(h, "g", "s", INITYPE_String, small, 0), VOERROR_InvalidArgument);
  EXPECT_EQ(_iniRead(h, "g", "s", INITYPE_String, small, 0), VOERROR_InvalidArgument);
  EXPECT_EQ(_iniRead(h, "g", "s", INITYPE_UCString, wide, 4), 4);
  EXPECT_EQ(U8(VOSTRING(wide)), "hél");

  EXPECT_EQ(VOSTRING(u"a\nb\nc").IniWriteML(h, "g", "f"), 0);
  EXPECT_EQ(Get(h, "g", "f__3"), "c");
  EXPECT_EQ(VOSTRING(u"a\nb").IniWriteML(h, "g", "f"), 0);
  EXPECT_EQ(Get(h, "g", "f__2"), "b");
  EXPECT_EQ(Get(h, "g", "f__3"), "<-1>");
  EXPECT_EQ(VOSTRING("c").IniWriteML(h, "g", "f"), 0);
  EXPECT_EQ(Get(h, "g", "f"), "c");
  EXPECT_EQ(Get(h, "g", "f__2"), "<-1>");
  EXPECT_EQ(VOSTRING("x\ny").IniWrite(h, "g", "one"), VOERROR_InvalidArgument);
  VOSTRING s;
  EXPECT_EQ(VOSTRING(u"x\ny").IniWriteML(h, "g", "ml"), 0);
  EXPECT_EQ(s.IniReadML(h, "g", "ml"), 1);
  EXPECT_EQ(U8(s), "x\ny");
  const std::string name(109, 'n');  // with "__2" it passes 111 bytes
  EXPECT_EQ(VOSTRING("a").IniWriteML(h, "g", name.c_str()), VOERROR_InvalidArgument);

  EXPECT_EQ(FILEPATH(h, "g", "absent").IsEmpty(), true);
  EXPECT_EQ(Put(h, "g", "p", "!UNIX!/a/b"), 0);
  EXPECT_EQ(U8(FILEPATH(h, "g", "p").GetText()), "/a/b");
  EXPECT_EQ(Put(h, "g", "p", "!PC!c:\\x\\y"), 0);
  EXPECT_EQ(U8(FILEPATH(h, "g", "p").GetText()), "x/y");
  EXPECT_EQ(FILEPATH("/d/é", CHAR_ENCODING_UTF8).IniWrite(h, "g", "p"), 0);
  EXPECT_EQ(Get(h, "g", "p"), "!UNIX!/d/é");
  IniClose(h);
}
