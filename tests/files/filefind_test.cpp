// The file locator over fake installations built in the test's folder: a
// program folder (with the marker "hdrdesc.ref" and locale folders), a home
// folder with the default settings, a working folder, a data folder named
// by VOSYS_DATA_DIR. The program's path, the home folder and the locale
// folder are set once per process, and every test is a process of its own.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "test_util.h"
#include "vosystem/errors.h"
#include "vosystem/filefind.h"
#include "vosystem/inifuncs.h"
#include "vosystem/system.h"
#include "vosystem/viofuncs.h"

namespace {

class Install : public testing::Test {
 protected:
  void SetUp() override {
    std::string t = std::string(VOSYS_TEST_SCRATCH) + "/findXXXXXX";
    ASSERT_NE(mkdtemp(&t[0]), nullptr);
    m_dir = t;
    for (const char* d : {"prog", "prog/locale", "prog/locale/enu", "prog/locale/fra", "home",
                          "work", "data", "path1", "path2"})
      std::filesystem::create_directory(m_dir + "/" + d);
    Write("prog/app", "");
    Write("prog/hdrdesc.ref", "");
    Write("data/hdrdesc.ref", "");
    setenv("HOME", Path("home").c_str(), 1);
    unsetenv("XDG_DATA_HOME");
    unsetenv("TMP");
    unsetenv("TEMP");
    setenv("PATH", (Path("path1") + ":" + Path("path2")).c_str(), 1);
    ASSERT_EQ(chdir(Path("work").c_str()), 0);
    FILEPATH::SetModuleFileName(Path("prog/app").c_str(), CHAR_ENCODING_UTF8);
  }
  void TearDown() override {
    if (chdir(VOSYS_TEST_SCRATCH) == 0) std::filesystem::remove_all(m_dir);
  }
  std::string Path(const std::string& rel) const { return m_dir + "/" + rel; }
  FILEPATH At(const std::string& rel) const {
    return FILEPATH(Path(rel).c_str(), CHAR_ENCODING_UTF8);
  }
  void Write(const std::string& rel, const std::string& data) const {
    std::ofstream(Path(rel), std::ios::binary) << data;
  }
  // The folders of a list, relative to the test's folder.
  std::vector<std::string> Folders(const FILEFIND& f) const {
    std::vector<std::string> out;
    for (const FILEPATH& p : f.GetFolders()) {
      const std::string s = U8(p.GetText());
      out.push_back(s.rfind(m_dir, 0) == 0 ? s.substr(m_dir.size() + 1) : s);
    }
    return out;
  }
  std::string Rel(const FILEPATH& p) const {
    const std::string s = U8(p.GetText());
    return s.rfind(m_dir, 0) == 0 ? s.substr(m_dir.size() + 1) : s;
  }
  std::string m_dir;
};

using Strings = std::vector<std::string>;

}  // namespace

TEST_F(Install, ListsAreBuiltInTheirFixedOrder) {
  FILEPATH p("x", CHAR_ENCODING_ASCII);
  EXPECT_TRUE(FILEFIND(0).IsEmpty());
  EXPECT_EQ(FILEFIND(0).LocateFile("x", p), 0);
  EXPECT_TRUE(p.IsEmpty());
  // Every bit but the shared settings, whose folder lies outside the
  // test's folder (and would be made there by a privileged process).
  const FILEFIND all(0x71F);
  const Strings folders = Folders(all);
  const std::string user = U8(VOSYSTEM::GetCurrentUserName());
  ASSERT_EQ(folders.size(), 10u);
  EXPECT_EQ(
      Strings(folders.begin(), folders.begin() + 6),
      (Strings{"prog/locale/enu", "work", "prog", "path1", "path2", "prog/Settings/" + user}));
  EXPECT_EQ(folders[6], "home/.local/share/Larkspindle");
  EXPECT_EQ(folders[7], "prog/Settings/AllUsers");
  EXPECT_EQ(folders[8], "home/.local/share/Larkspindle/Settings");
  EXPECT_EQ(folders.back(), "home");
  FILEFIND copy(all);
  copy = FILEFIND(FILEFIND::LOCATION_Home | FILEFIND::LOCATION_Current);
  EXPECT_EQ(Folders(copy), (Strings{"work", "home"}));

  FILEFIND list;
  const VOSTRING pieces(("a:" + Path("work") + "::b").c_str(), CHAR_ENCODING_UTF8);
  list.AddString(pieces, FILEFIND::ADDPOSN_Front, 0xFFFF);  // reversed at the front
  EXPECT_EQ(Folders(list), (Strings{"b", "work", "a"}));
  const char16_t zeros[] = u"z1\0z2\0";
  list.AddString(reinterpret_cast<const unsigned short*>(zeros), FILEFIND::ADDPOSN_Tail, 0);
  list.AddString(VOSTRING(u"q;r"), FILEFIND::ADDPOSN_Tail, ';');
  list.AddPath(At("prog/app"), FILEFIND::ADDPOSN_Tail);  // a file stands for its folder
  list.AddPath(FILEPATH(), FILEFIND::ADDPOSN_Tail);
  EXPECT_EQ(Folders(list), (Strings{"b", "work", "a", "z1", "z2", "q", "r", "prog"}));
}

// Each spelling goes over every folder before the next: the name as given
// in the program's folder wins over its upper case in the current folder,
// and the installed data folder comes last of all.
TEST_F(Install, ReferenceFilesBySpellingThenFolder) {
  setenv("VOSYS_DATA_DIR", Path("data").c_str(), 1);
  Write("work/R.REF", "");
  Write("prog/r.ref", "");
  Write("work/d.ref;1", "");
  Write("data/d.ref", "");
  Write("data/only.ref", "");
  Write("work/UP.REF;1", "");
  FILEPATH p;
  EXPECT_EQ(FILEFIND::LocateReferenceFile("r.ref", p, 0), 1);
  EXPECT_EQ(Rel(p), "prog/r.ref");
  EXPECT_EQ(FILEFIND::LocateReferenceFile("d.ref", p, 0), 1);
  EXPECT_EQ(Rel(p), "data/d.ref");
  EXPECT_EQ(FILEFIND::LocateReferenceFile("only.ref", p, 0), 1);
  EXPECT_EQ(Rel(p), "data/only.ref");
  EXPECT_EQ(FILEFIND::LocateReferenceFile("up.ref", p, 0), 1);
  EXPECT_EQ(Rel(p), "work/UP.REF;1");
  EXPECT_EQ(FILEFIND::LocateReferenceFile("none.ref", p, 0), 0);
  EXPECT_TRUE(p.IsEmpty());
  unsigned short* found = VioGetRefFile("only.ref", 128);
  ASSERT_NE(found, nullptr);
  EXPECT_EQ(Rel(FILEPATH(found)), "data/only.ref");
  free(found);
  found = VioGetRefFile(VOSTRING("r.ref").GetReference(), 0);
  ASSERT_NE(found, nullptr);
  free(found);
  EXPECT_EQ(VioGetRefFile("none.ref", 128), nullptr);
  EXPECT_EQ(VioGetRefFile(nullptr, 128), nullptr);
  EXPECT_TRUE(FILEPATH(PATHTYPE_Data).IsEqual(At("prog")));  // the program's folder has the marker
  EXPECT_EQ(GetLastErrCode(), 0);
}

TEST_F(Install, LocaleFoldersFollowTheDefaultSettings) {
  Write("home/zepproc.ini", "[locale]\nlanguage=fra\n");
  Write("prog/locale/fra/loc.ini", "[g]\nf=fr\n");
  FILEFIND tail;
  tail.AddPath(At("work"), FILEFIND::ADDPOSN_Tail);
  tail.AddLocale(true, FILEFIND::ADDPOSN_Tail);
  EXPECT_EQ(Folders(tail), (Strings{"work", "prog/locale/fra", "prog/locale/enu"}));
  FILEFIND front;
  front.AddPath(At("work"), FILEFIND::ADDPOSN_Tail);
  front.AddLocale(true, FILEFIND::ADDPOSN_Front);
  EXPECT_EQ(Folders(front), (Strings{"prog/locale/fra", "prog/locale/enu", "work"}));
  EXPECT_TRUE(FILEFIND::s_LocaleDir.IsEqual(At("prog/locale")));
  void* h = nullptr;
  EXPECT_EQ(IniOpen("loc.ini", &h, 0), VOERROR_IniCreate);
  ASSERT_EQ(IniOpen("loc.ini", &h, INIOPEN_LocaleFolders), 0);
  VOSTRING v;
  EXPECT_EQ(v.IniRead(h, "g", "f"), 1);
  EXPECT_EQ(U8(v), "fr");
  IniClose(h);
}

TEST_F(Install, SettingsFilesAreFoundCopiedAndPlaced) {
  const std::string user = "prog/Settings/" + U8(VOSYSTEM::GetCurrentUserName());
  FILEPATH p;
  Write("work/s.ini", "cwd");
  EXPECT_EQ(FILEFIND::LocateSettingsFile("s.ini", p, 0, 0), 0);  // 0: the user's folders only
  EXPECT_EQ(FILEFIND::LocateSettingsFile("s.ini", p, FILEFIND::LOCATION_Current, 0), 1);
  EXPECT_EQ(Rel(p), "work/s.ini");
  Write("prog/c.ini", "program's");
  EXPECT_EQ(FILEFIND::LocateSettingsFile("c.ini", p, 0, FILEFIND::LOCATION_Program), 1);
  EXPECT_EQ(Rel(p), user + "/c.ini");
  EXPECT_EQ(FILEFIND::LocateSettingsFile("c.ini", p, 0, 0), 1);  // the copy is found now
  EXPECT_EQ(FILEFIND::LocateSettingsFile("n.ini", p, 0, FILEFIND::LOCATION_Program), 0);
  EXPECT_TRUE(p.IsEmpty());

  EXPECT_EQ(FILEFIND::MakeSettingsFilePath("m.ini", p, 0), VOERROR_InvalidArgument);
  EXPECT_EQ(FILEFIND::MakeSettingsFilePath("m.ini", p, FILEFIND::LOCATION_SettingsUser), 0);
  EXPECT_EQ(Rel(p), user + "/m.ini");
  EXPECT_FALSE(p.Exists());  // proved writable, then removed

  FILEFIND two;
  two.AddPath(At("work"), FILEFIND::ADDPOSN_Tail);
  two.AddPath(At("home"), FILEFIND::ADDPOSN_Tail);
  EXPECT_EQ(two.CreateFile("s.ini", p), 1);  // "work" has one: the next folder
  EXPECT_EQ(Rel(p), "home/s.ini");
  EXPECT_EQ(two.CreateFile("s.ini", p), 0);
  VOLIST<FILEPATH> found;
  EXPECT_TRUE(two.LocateFiles(VOSTRING("*.ini"), found));
  EXPECT_EQ(found.GetCount(), 2);
  Write("path2/tool", "");
  EXPECT_EQ(FILEFIND::LocateExecutableFile("tool", p), 1);
  EXPECT_EQ(Rel(p), "path2/tool");
  FILEPATH::SetModuleFileName("tool", CHAR_ENCODING_ASCII);  // a bare name, found on PATH
  EXPECT_EQ(Rel(FILEPATH(PATHTYPE_Program)), "path2/tool");
}

TEST_F(Install, TemporaryFilesGoWhereTheSettingsAndEnvironmentSay) {
  FILEPATH p;
  EXPECT_EQ(FILEFIND::MakeTempFile(p, 0, false, VOSTRING()), VOERROR_InvalidArgument);
  EXPECT_EQ(FILEFIND::MakeTempFile(p, 0, false), 0);  // nothing set: "/tmp"
  EXPECT_EQ(U8(p.GetText()).rfind("/tmp/temp", 0), 0u);
  EXPECT_EQ(p.Remove(), 0);
  setenv("TMP", Path("path1").c_str(), 1);
  setenv("TEMP", Path("path2").c_str(), 1);
  EXPECT_EQ(FILEFIND::MakeTempFile(p, 0, false, VOSTRING("ab")), 0);
  EXPECT_EQ(Rel(p), "path2/ab  0001.TMP");  // TEMP before TMP; the prefix fills 4 places
  EXPECT_EQ(FILEFIND::MakeTempFile(p, 1LL << 62, true), VOERROR_TempFile);
  Write("home/zephost.ini",
        "[Files]\nTempFile=" + Path("data") + ":" + Path("work") + "\nUseTempEnv=No\n");
  // The folders of TempFile go to the front piece by piece, so the last
  // comes first; with best, a tie on one disk goes to the first.
  EXPECT_EQ(FILEFIND::MakeTempFile(p, 0, true), 0);
  EXPECT_EQ(Rel(p), "work/temp0001.TMP");
  EXPECT_EQ(FILEFIND::MakeTempFile(p, 0, false), 0);
  EXPECT_EQ(Rel(p), "work/temp0002.TMP");
}

TEST(TimeFromFields, LeapDaysAndTheYearsBefore1970) {
  tm t = {};
  t.tm_year = 100;
  t.tm_mon = 2;
  t.tm_mday = 1;
  EXPECT_EQ(TimeTFromTM(&t), 951868800);  // 1 March 2000, after its leap day
  t.tm_year = 0;
  EXPECT_EQ(TimeTFromTM(&t), 0);
  for (time_t s = 0; s < 4102444800; s += 86400 * 37 + 3661) {
    tm g;
    gmtime_r(&s, &g);
    ASSERT_EQ(TimeTFromTM(&g), s);
  }
}
