// Colours by name: percentages, the built-in names, every line of the real
// "rgb.txt" (read here on its own), and crafted name files. The file is read
// once per process, so each case that reads one is a test of its own.
#include <gtest/gtest.h>
#include <unistd.h>

#include <array>
#include <cctype>
#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>
#include <string>

#include "vosystem/color.h"
#include "vosystem/errors.h"

namespace {

std::string Cased(std::string s, int (*change)(int)) {
  for (char& c : s) c = static_cast<char>(change(static_cast<unsigned char>(c)));
  return s;
}

// Each test reads names in a fresh folder of its own, with the data folder
// pointed elsewhere unless it asks for the real one.
class ColorNames : public testing::Test {
 protected:
  void Prepare(bool realData) {
    static bool s_read = false;
    if (s_read) GTEST_SKIP() << "the names file is read once per process: run each test alone";
    s_read = true;
    m_folder = std::string(VOSYS_TEST_SCRATCH) + "/colorXXXXXX";
    ASSERT_NE(mkdtemp(m_folder.data()), nullptr);
    ASSERT_EQ(chdir(m_folder.c_str()), 0);
    if (!realData) setenv("VOSYS_DATA_DIR", (m_folder + "/nodata").c_str(), 1);
  }
  void TearDown() override {
    if (!m_folder.empty() && chdir(VOSYS_TEST_SCRATCH) == 0) std::filesystem::remove_all(m_folder);
  }
  void Write(const std::string& bytes) {
    std::ofstream(m_folder + "/rgb.txt", std::ios::binary) << bytes;
  }
  std::string m_folder;
};

}  // namespace

TEST_F(ColorNames, EveryLineOfTheRealFileIsFoundByName) {
  Prepare(true);
  if (IsSkipped()) return;
  std::ifstream file(std::string(VOSYS_BINARY_DIR) + "/share/vosystem/rgb.txt");
  ASSERT_TRUE(file) << "the build copies rgb.txt into its data folder";
  // The first line of each name, ignoring case, as the table must keep it.
  std::map<std::string, std::array<int, 3>> first;
  std::string line;
  int lines = 0;
  while (std::getline(file, line)) {
    std::istringstream in(line);
    int r, g, b;
    if (!(in >> r >> g >> b)) continue;
    std::string name;
    std::getline(in >> std::ws, name);
    if (!name.empty()) first.emplace(Cased(name, ::tolower), std::array<int, 3>{r, g, b});
    ++lines;
  }
  ASSERT_GT(lines, 700);
  static const char* const kBuiltin[] = {"black",   "red",    "green", "blue",   "cyan",
                                         "magenta", "yellow", "white", "orange", "gray",
                                         "grey",    "brown",  "purple"};
  for (const auto& [name, rgb] : first) {
    bool builtin = false;
    for (const char* b : kBuiltin) builtin = builtin || name == b;
    for (const std::string& asked : {name, Cased(name, ::toupper)}) {
      COLOR c;
      c.SetTransparency(17);
      ASSERT_EQ(c.SetByName(asked.c_str()), 1) << asked;
      EXPECT_EQ(c.GetTransparency(), 17);
      if (builtin) {
        ASSERT_EQ(c.GetRed() & 0xFF, 0) << name;  // the built-in colour goes first
        continue;
      }
      // Scaled with a maximum of 256: 255 gives 65279.
      ASSERT_EQ(c.GetRed(), (rgb[0] * 65535 + 128) / 256) << name;
      ASSERT_EQ(c.GetGreen(), (rgb[1] * 65535 + 128) / 256) << name;
      ASSERT_EQ(c.GetBlue(), (rgb[2] * 65535 + 128) / 256) << name;
    }
  }
  COLOR white;
  ASSERT_EQ(white.SetByName("WHITE"), 1);
  EXPECT_EQ(white.GetRed(), 0xFF00);  // the built-in table goes first
  ASSERT_EQ(white.SetByName("white smoke"), 1);
  EXPECT_EQ(white.GetRed(), (245 * 65535 + 128) / 256);
  COLOR none(1, 2, 3);
  EXPECT_EQ(none.SetByName("no such colour"), 0);
  EXPECT_EQ(none.SetByName(""), 0);
  EXPECT_EQ(none.SetByName(nullptr), 0);
  EXPECT_TRUE(none.IsEqualTo(COLOR(1, 2, 3)));
}

TEST_F(ColorNames, NumbersAndBuiltinNamesNeedNoFile) {
  Prepare(false);
  if (IsSkipped()) return;
  COLOR c;
  ASSERT_EQ(c.SetByName("50 50 50"), 1);
  EXPECT_TRUE(c.GetRed() == 32768 && c.GetGreen() == 32768 && c.GetBlue() == 32768);
  ASSERT_EQ(c.SetByName("100,0,25"), 1);
  EXPECT_TRUE(c.GetRed() == 65535 && c.GetGreen() == 0 && c.GetBlue() == 16384);
  ASSERT_EQ(c.SetByName(" 1\t2 3 and more"), 1);
  EXPECT_EQ(c.GetBlue(), (3 * 65535 + 50) / 100);
  ASSERT_EQ(c.SetByName("RED"), 1);
  EXPECT_EQ(c.GetColorRef(), 0x0000FFu);
  ASSERT_EQ(c.SetByName("Brown"), 1);
  EXPECT_EQ(c.GetColorRef(), 0x2A2AA5u);
  ASSERT_EQ(c.SetByName("purple"), 1);
  EXPECT_EQ(c.GetColorRef(), 0xF020A0u);
  ClearLastErr();
  EXPECT_EQ(c.SetByName("snow"), 0);  // no file, and no record of it
  EXPECT_EQ(c.SetByName("1 ,2,3"), 0);
  EXPECT_EQ(c.SetByName("1,2"), 0);
  EXPECT_EQ(GetLastErrCode(), 0);
  EXPECT_EQ(c.GetColorRef(), 0xF020A0u);
  Write("255 250 250 snow\n");
  EXPECT_EQ(c.SetByName("snow"), 0);  // one attempt per process
}

TEST_F(ColorNames, CraftedFileFirstOfEqualNamesAndOddLines) {
  Prepare(false);
  if (IsSkipped()) return;
  std::string text =
      "! a comment\n"
      "255 0 0 \t Deep  Red\r\n"
      "1 2 3 deep  red\n"
      "4 4 4 spaced \n"
      "10 20 30\n"
      "-5 300 256 odd\n"
      "x 1 2 3 broken\n"
      "7 8 9 Naïve\n"
      "4 5 6 ";
  text += std::string(300, 'z') + "\n";  // a line longer than 255 bytes
  text += "9 9 9 last";                  // no line end
  Write(text);
  COLOR c;
  ASSERT_EQ(c.SetByName("deep  red"), 1);
  EXPECT_EQ(c.GetRed(), 65279);
  ASSERT_EQ(c.SetByName("DEEP  RED"), 1);
  EXPECT_EQ(c.GetRed(), 65279);
  EXPECT_EQ(c.SetByName("Deep Red"), 0);
  ASSERT_EQ(c.SetByName("odd"), 1);
  EXPECT_TRUE(c.GetRed() == 0 && c.GetGreen() == 65535 && c.GetBlue() == 65535);
  EXPECT_EQ(c.SetByName("broken"), 0);
  EXPECT_EQ(c.SetByName("spaced"), 0);  // the name runs to the line's end
  EXPECT_EQ(c.SetByName("spaced "), 1);
  EXPECT_EQ(c.SetByName("Naïve"), 1);
  EXPECT_EQ(c.SetByName("last"), 1);
  EXPECT_EQ(c.GetRed(), (9 * 65535 + 128) / 256);
}
