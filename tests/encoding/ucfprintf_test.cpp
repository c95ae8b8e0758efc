// Encoded text output: directives against the C library's snprintf (in a
// locale whose decimal mark is a comma, which the output must ignore),
// long text in blocks, the UTF-16 string directive, and output in encodings
// whose bytes hold zeros or whose characters span two units.
#include <gtest/gtest.h>
#include <unistd.h>

#include <clocale>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>

#include "test_util.h"
#include "vosystem/errors.h"
#include "vosystem/ucconv.h"
#include "vosystem/ucfprintf.h"

namespace {

class FPrintf : public testing::Test {
 protected:
  void SetUp() override {
    std::string t = std::string(VOSYS_TEST_SCRATCH) + "/fprXXXXXX";
    ASSERT_NE(mkdtemp(&t[0]), nullptr);
    m_dir = t;
  }
  void TearDown() override { std::filesystem::remove_all(m_dir); }
  void* Open(const char* encoding) {
    void* h = nullptr;
    const VOSTRING path((m_dir + "/out").c_str(), CHAR_ENCODING_UTF8);
    EXPECT_EQ(MucFPrintfOpen(path.GetReference(), "wb", encoding, &h), 0);
    return h;
  }
  std::string Output() const {
    std::ifstream in(m_dir + "/out", std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), {});
  }
  std::string m_dir;
};

const unsigned short* UC(const char16_t* s) {
  return reinterpret_cast<const unsigned short*>(s);
}

}  // namespace

TEST_F(FPrintf, DirectivesWriteWhatSnprintfWritesInTheCLocale) {
  std::mt19937 rng(35);
  const char* const kConv = "diouxXeEfgGs";
  std::string expected, formats;
  std::vector<std::string> directives;
  std::vector<double> doubles;
  std::vector<long long> ints;
  for (int i = 0; i < 300; ++i) {
    std::string dir = "%";
    for (const char* f = " +-#0"; *f; ++f)
      if (rng() % 4 == 0) dir += *f;
    if (rng() % 2) dir += std::to_string(rng() % 25);
    if (rng() % 2) dir += "." + std::to_string(rng() % 12);
    const char conv = kConv[rng() % 12];
    const bool isInt = strchr("diouxX", conv) != nullptr;
    const int length = isInt ? static_cast<int>(rng() % 3) : 0;  // none, l, ll
    dir += std::string(static_cast<size_t>(length), 'l') + conv;
    char buf[256];
    const long long magnitude =
        static_cast<long long>(static_cast<uint64_t>(rng()) << (rng() % 31));
    const long long v = rng() % 2 ? magnitude : -magnitude;
    const double x = (static_cast<double>(rng()) - 2e9) / (1 + rng() % 1000);
    if (isInt && length == 0) snprintf(buf, sizeof buf, dir.c_str(), static_cast<int>(v));
    if (isInt && length == 1) snprintf(buf, sizeof buf, dir.c_str(), static_cast<long>(v));
    if (isInt && length == 2) snprintf(buf, sizeof buf, dir.c_str(), v);
    if (conv == 's') snprintf(buf, sizeof buf, dir.c_str(), "text");
    if (!isInt && conv != 's') snprintf(buf, sizeof buf, dir.c_str(), x);
    expected += buf;
    directives.push_back(dir);
    ints.push_back(v);
    doubles.push_back(x);
  }
  const std::string folder = MakeCommaLocale();
  if (!folder.empty()) {
    setenv("LOCPATH", folder.c_str(), 1);
    ASSERT_NE(setlocale(LC_ALL, "comma"), nullptr);
  }
  void* h = Open("UTF8");
  for (size_t i = 0; i < directives.size(); ++i) {
    const std::string& dir = directives[i];
    const char conv = dir.back();
    const int length = static_cast<int>(std::count(dir.begin(), dir.end(), 'l'));
    if (conv == 's')
      MucFPrintfA(h, dir.c_str(), "text");
    else if (!strchr("diouxX", conv))
      MucFPrintfA(h, dir.c_str(), doubles[i]);
    else if (length == 0)
      MucFPrintfA(h, dir.c_str(), static_cast<int>(ints[i]));
    else if (length == 1)
      MucFPrintfA(h, dir.c_str(), static_cast<long>(ints[i]));
    else
      MucFPrintfA(h, dir.c_str(), ints[i]);
  }
  EXPECT_EQ(MucFPrintfClose(h), 0);
  setlocale(LC_ALL, "C");
  if (!folder.empty()) {
    EXPECT_EQ(system(("rm -rf " + folder).c_str()), 0);
  }
  EXPECT_EQ(Output(), expected);
}

TEST_F(FPrintf, StringsWidthsAndLongTextInBlocks) {
  void* h = Open("UTF8");
  MucFPrintfU(h, UC(u"[%5S][%-5S][%S][%3S][%%][%*S][%c][%q]"), UC(u"ab"), UC(u"ab"),
              static_cast<const unsigned short*>(nullptr),
              static_cast<const unsigned short*>(nullptr), -4, UC(u"é"), 0x263A);
  // A pair of surrogates astride the end of the first block stays a pair.
  std::u16string text(999, u'a');
  text += u"😀";
  text += std::u16string(2500, u'b');
  MucFPrintfU(h, UC(u"%S|"), UC(text.c_str()));
  MucFPrintfU(h, UC(text.c_str()));
  EXPECT_EQ(MucFPrintfClose(h), 0);
  const std::string once = std::string(999, 'a') + "😀" + std::string(2500, 'b');
  EXPECT_EQ(Output(), "[   ab][ab   ][][   ][%][é   ][☺][%q]" + once + "|" + once);
  EXPECT_EQ(MucFPrintfClose(nullptr), 0);
  EXPECT_EQ(MucFPrintfU(nullptr, UC(u"x")), VOERROR_InvalidArgument);
}

TEST_F(FPrintf, EncodingsWithZeroBytesAndTwoByteCharacters) {
  void* h = Open("Unicode");
  MucFPrintfU(h, UC(u"A%Sz"), UC(u"é"));
  MucFPrintfClose(h);
  const std::u16string want = u"Aéz";
  EXPECT_EQ(Output(), std::string(reinterpret_cast<const char*>(want.data()), 6));

  h = Open("Shift-JIS");
  MucFPrintfU(h, UC(u"日本 %d"), 42);
  MucFPrintfClose(h);
  EXPECT_EQ(Output(), "\x93\xFA\x96\x7B 42");

  h = Open("no such encoding");  // written as ASCII
  MucFPrintfA(h, "plain %s", "text");
  MucFPrintfClose(h);
  EXPECT_EQ(Output(), "plain text");

  const VOSTRING missing((m_dir + "/none/out").c_str(), CHAR_ENCODING_UTF8);
  void* bad = reinterpret_cast<void*>(1);
  EXPECT_EQ(MucFPrintfOpen(missing.GetReference(), "w", "UTF8", &bad), VOERROR_FileNotFound);
  EXPECT_EQ(bad, nullptr);
}
