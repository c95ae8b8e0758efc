// The Vio functions: handles in a fresh process (each test runs in its
// own), line reading whatever the line ends, and the FILE* route.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "test_util.h"
#include "vosystem/errors.h"
#include "vosystem/ucstring.h"
#include "vosystem/viofuncs.h"

namespace {

class Vio : public testing::Test {
 protected:
  void SetUp() override {
    std::string t = std::string(VOSYS_TEST_SCRATCH) + "/vioXXXXXX";
    ASSERT_NE(mkdtemp(&t[0]), nullptr);
    m_dir = t;
  }
  void TearDown() override { std::filesystem::remove_all(m_dir); }
  // The path as UTF-16, kept for the call.
  const unsigned short* Path(const std::string& name) {
    unsigned short* p = nullptr;
    MucConvertUTF8ToUnicode((m_dir + "/" + name).c_str(), &p);
    m_paths.emplace_back(p, &free);
    return p;
  }
  void Write(const std::string& name, const std::string& data) const {
    std::ofstream(m_dir + "/" + name, std::ios::binary) << data;
  }
  std::string Read(const std::string& name) const {
    std::ifstream in(m_dir + "/" + name, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), {});
  }
  std::string m_dir;
  std::vector<std::unique_ptr<unsigned short, void (*)(void*)>> m_paths;
};

}  // namespace

TEST_F(Vio, HandlesStartAtOneAreReusedAndTheTableGrows) {
  Write("a", "0123456789");
  EXPECT_EQ(VioOpen(Path("a"), "r", nullptr), 1);
  EXPECT_EQ(VioClose(1), 0);
  EXPECT_EQ(VioOpen(Path("a"), "r", nullptr), 1);
  EXPECT_EQ(VioClose(-1), 0);
  EXPECT_EQ(VioClose(0), VOERROR_HandleNotOpen);
  EXPECT_EQ(VioClose(500), VOERROR_HandleNotOpen);
  // 65 files need a second growth of the table.
  for (int i = 2; i <= 66; ++i) ASSERT_EQ(VioOpen(Path("a"), "r", nullptr), i);
  char buf[4];
  EXPECT_EQ(VioSeekAndRead(66, 8, buf, 2), 2);
  EXPECT_EQ(std::string(buf, 2), "89");
  EXPECT_EQ(VioRead(66, buf, 1), VOERROR_ShortRead);  // at the end
  for (int i = 1; i <= 66; ++i) EXPECT_EQ(VioClose(i), 0);
  EXPECT_EQ(VioClose(3), VOERROR_HandleNotOpen);
  EXPECT_EQ(VioOpen(Path("missing"), "r", nullptr), VOERROR_FileNotFound);
  EXPECT_EQ(VioOpen(nullptr, "r", nullptr), VOERROR_InvalidArgument);
}

TEST_F(Vio, ModesSeeksAndSizes) {
  Write("m", "abcdef");
  const int h = VioOpen(Path("m"), "r+", nullptr);
  ASSERT_GT(h, 0);
  EXPECT_EQ(VioSeekAndWrite(h, 1, "XY", 2), 2);
  EXPECT_EQ(VioSeek(h, -1, 2), 5);
  EXPECT_EQ(VioSeek(h, 0, 3), VOERROR_InvalidArgument);
  EXPECT_EQ(VioGetOpenFileSize(h), 6);
  EXPECT_EQ(VioGetOpenFileSize64(h), 6);
  EXPECT_EQ(VioClose(h), 0);
  EXPECT_EQ(Read("m"), "aXYdef");
  const int a = VioOpen(Path("m"), "a", nullptr);
  EXPECT_EQ(VioWrite(a, "!", 1), 1);
  VioClose(a);
  EXPECT_EQ(Read("m"), "aXYdef!");
  const int w = VioOpen(Path("m"), "w", nullptr);
  EXPECT_EQ(VioGetOpenFileSize(w), 0);
  VioClose(w);
  const int q = VioOpen(Path("m"), "q", nullptr);  // unknown: read
  EXPECT_EQ(VioWrite(q, "z", 1), VOERROR_BadHandle);
  VioClose(q);
  EXPECT_EQ(VioGetOpenFileSize(77), VOERROR_HandleNotOpen);
}

TEST_F(Vio, LinesEndInAnyOfTheFourWaysAndComeInPieces) {
  Write("lines", "a\r\nb\n\rc");
  FILE* fp = nullptr;
  ASSERT_EQ(VioOpen(Path("lines"), "rb", &fp), 0);
  char buf[16];
  std::vector<std::string> got;
  int n;
  while ((n = VioGetStr(buf, sizeof buf, fp)) >= 0) got.emplace_back(buf, n);
  EXPECT_EQ(n, -1);
  EXPECT_EQ(got, (std::vector<std::string>{"a", "b", "c"}));
  EXPECT_EQ(VioGetOpenFPSize(fp), 7);
  rewind(fp);
  EXPECT_EQ(VioGetStr(buf, 1, fp), 0);
  EXPECT_EQ(VioGetStr(buf, 0, fp), VOERROR_InvalidArgument);
  EXPECT_EQ(VioGetStr(nullptr, 4, fp), VOERROR_InvalidArgument);
  fclose(fp);

  Write("long", "abcdefg\n");
  ASSERT_EQ(VioOpen(Path("long"), "r", &fp), 0);
  std::string pieces;
  while ((n = VioGetStr(buf, 4, fp)) >= 0) pieces += std::string(buf, n) + "|";
  EXPECT_EQ(pieces, "abc|def|g|");
  fclose(fp);

  EXPECT_EQ(VioOpen(Path("nothing"), "r", &fp), VOERROR_FileNotFound);
  EXPECT_EQ(fp, nullptr);
}

TEST(VioNames, ListsAndArraysOfNamesAreFreed) {
  FNAMEUCLIST* list = nullptr;
  for (int i = 0; i < 3; ++i) {
    auto* node = static_cast<FNAMEUCLIST*>(malloc(sizeof(FNAMEUCLIST)));
    node->name = strtoucdup("name");
    node->next = list;
    list = node;
  }
  FreeFNameUCList(list);
  FreeFNameUCList(nullptr);
  FNAMEUCLIST array[2] = {{strtoucdup("a"), nullptr}, {strtoucdup("b"), nullptr}};
  FreeFNameUCArray(array, 2);
  EXPECT_EQ(array[0].name, nullptr);
  EXPECT_EQ(array[1].name, nullptr);
}
