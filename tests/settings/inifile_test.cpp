// Settings files on the disk: found, made, loaded again when anyone changes
// them (within the same second too), saved by a rename that keeps the
// file's permissions and links, or in place where the folder is closed; and
// the default store, once per process.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <string>

#include "settings/ini_test_util.h"
#include "vosystem/errors.h"
#include "vosystem/filepath.h"

namespace {

ino_t InodeOf(const std::string& path) {
  struct stat st;
  return lstat(path.c_str(), &st) == 0 ? st.st_ino : 0;
}

}  // namespace

TEST_F(IniFolder, AFileIsMadeWrittenAndReadBackWithItsZeroBytes) {
  void* h = Open("new.ini");
  EXPECT_EQ(Read("new.ini"), "\n\n");
  IniClose(h);
  Write("empty.ini", "");
  h = Open("empty.ini");
  EXPECT_EQ(Put(h, "g", "f", "v"), 0);
  EXPECT_EQ(Read("empty.ini"), "\n\n[g]\nf=v\n");
  EXPECT_EQ(IniIsWritable(h), 1);
  EXPECT_TRUE(IniGetFilePath(h).IsEqual(FILEPATH(Path("empty.ini").c_str(), CHAR_ENCODING_UTF8)));
  IniClose(h);
  // A value holding a zero byte keeps it through a save of another field.
  Write("zero.ini", std::string("[g]\nz=a\0b\nf=1\n", 14));
  h = Open("zero.ini");
  EXPECT_EQ(Get(h, "g", "z"), std::string("a\0b", 3));
  EXPECT_EQ(Put(h, "g", "f", "2"), 0);
  EXPECT_EQ(Read("zero.ini"), std::string("[g]\nz=a\0b\nf=2\n", 14));
  IniClose(h);
}

// Rewrites of the same size within the same second, in place and by a
// rename, are seen at the next read.
TEST_F(IniFolder, ChangesByOthersAreSeenAtTheNextAccess) {
  Write("c.ini", "[g]\nf=0\n");
  void* h = Open("c.ini");
  for (int i = 0; i < 20; ++i) {
    EXPECT_EQ(Get(h, "g", "f"), std::to_string(i % 10));
    const std::string next = "[g]\nf=" + std::to_string((i + 1) % 10) + "\n";
    if (i % 2) {
      Write("c.ini", next);
    } else {
      Write("c.tmp", next);
      ASSERT_EQ(rename(Path("c.tmp").c_str(), Path("c.ini").c_str()), 0);
    }
  }
  IniClose(h);
}

TEST_F(IniFolder, SavesKeepPermissionsAndLinksAndNeverWriteInPlace) {
  Write("p.ini", "[g]\nf=1\n");
  chmod(Path("p.ini").c_str(), 0604);
  ASSERT_EQ(symlink("p.ini", Path("link.ini").c_str()), 0);
  void* h = Open("link.ini");
  const ino_t before = InodeOf(Path("p.ini"));
  EXPECT_EQ(Put(h, "g", "f", "2"), 0);
  EXPECT_NE(InodeOf(Path("p.ini")), before);  // a new file took the name
  struct stat st;
  ASSERT_EQ(lstat(Path("link.ini").c_str(), &st), 0);
  EXPECT_TRUE(S_ISLNK(st.st_mode));
  ASSERT_EQ(stat(Path("p.ini").c_str(), &st), 0);
  EXPECT_EQ(st.st_mode & 07777, 0604u);
  EXPECT_EQ(Read("p.ini"), "[g]\nf=2\n");
  IniClose(h);
  for (const auto& entry : std::filesystem::directory_iterator(m_dir))
    EXPECT_EQ(entry.path().filename().string().find(".TMP"), std::string::npos);
}

TEST_F(IniFolder, AClosedFolderIsWrittenInPlaceAndAReadOnlyFileRefused) {
  if (geteuid() == 0) GTEST_SKIP() << "root writes where permissions say no";
  ASSERT_EQ(mkdir(Path("closed").c_str(), 0755), 0);
  Write("closed/s.ini", "[g]\nf=1\n");
  Write("ro.ini", "[g]\nf=1\n");
  chmod(Path("closed").c_str(), 0555);
  chmod(Path("ro.ini").c_str(), 0444);
  void* h = Open("closed/s.ini");
  const ino_t before = InodeOf(Path("closed/s.ini"));
  EXPECT_EQ(Put(h, "g", "f", "2"), 0);
  EXPECT_EQ(InodeOf(Path("closed/s.ini")), before);
  EXPECT_EQ(Read("closed/s.ini"), "[g]\nf=2\n");
  IniClose(h);
  h = Open("ro.ini");
  EXPECT_EQ(IniIsWritable(h), 0);
  EXPECT_EQ(Put(h, "g", "f", "2"), VOERROR_PermissionDenied);
  EXPECT_EQ(Read("ro.ini"), "[g]\nf=1\n");
  IniClose(h);
  const VOSTRING path(Path("ro.ini").c_str(), CHAR_ENCODING_UTF8);
  EXPECT_EQ(IniOpen(path.GetReference(), &h,
                    INIOPEN_FullPath | INIOPEN_UnicodePath | INIOPEN_MustBeWritable),
            VOERROR_IniCreate3);
}

// The search, in a process of its own: the home folder and the current
// folder point into the test's folder. A file found that can't be written
// is copied to the user's data folder.
TEST_F(IniFolder, SearchedFilesAndTheCopyOfAReadOnlyOne) {
  ASSERT_EQ(mkdir(Path("home").c_str(), 0755), 0);
  ASSERT_EQ(mkdir(Path("work").c_str(), 0755), 0);
  setenv("HOME", Path("home").c_str(), 1);
  unsetenv("XDG_DATA_HOME");
  ASSERT_EQ(chdir(Path("work").c_str()), 0);
  void* h = nullptr;
  EXPECT_EQ(IniOpen("app.ini", &h, 0), VOERROR_IniCreate);
  EXPECT_EQ(IniOpen("ZEPHOST.INI", &h, 0), VOERROR_IniCreate2);
  EXPECT_EQ(IniOpen("app.ini", &h, INIOPEN_ProgramFolder), VOERROR_IniCreate);
  Write("work/app.ini", "[g]\nf=work\n");
  ASSERT_EQ(IniOpen("app.ini", &h, 0), 0);
  EXPECT_EQ(Get(h, "g", "f"), "work");
  IniClose(h);
  Write("home/app.ini", "[g]\nf=home\n");  // the home folder comes before the current one
  ASSERT_EQ(IniOpen("app.ini", &h, 0), 0);
  EXPECT_EQ(Get(h, "g", "f"), "home");
  IniClose(h);
  if (geteuid() == 0) return;  // the rest needs a file root couldn't write
  ASSERT_EQ(unlink(Path("home/app.ini").c_str()), 0);
  chmod(Path("work/app.ini").c_str(), 0444);
  ASSERT_EQ(IniOpen("app.ini", &h, INIOPEN_ReadOnly), 0);
  EXPECT_TRUE(
      IniGetFilePath(h).IsEqual(FILEPATH(Path("work/app.ini").c_str(), CHAR_ENCODING_UTF8)));
  IniClose(h);
  ASSERT_EQ(IniOpen("app.ini", &h, 0), 0);
  EXPECT_EQ(Put(h, "g", "f", "copy"), 0);
  IniClose(h);
  EXPECT_EQ(Read("work/app.ini"), "[g]\nf=work\n");
  EXPECT_EQ(Read("home/.local/share/Larkspindle/app.ini"), "[g]\nf=copy\n");
}

TEST_F(IniFolder, TheDefaultStoreIsLookedForOnceAndNamedByTheApplication) {
  setenv("HOME", m_dir.c_str(), 1);
  unsetenv("XDG_DATA_HOME");
  ASSERT_EQ(chdir(m_dir.c_str()), 0);
  EXPECT_EQ(Get(nullptr, nullptr, "f"), "<-1922>");
  Write("zepproc.ini", "[app]\nf=1\n");  // too late: the one search is over
  EXPECT_EQ(Get(nullptr, nullptr, "f"), "<-1922>");
  EXPECT_EQ(GetLastErrCode(), VOERROR_IniCreate);
  EXPECT_TRUE(IniGetFilePath(nullptr).IsEmpty());
  EXPECT_STREQ(IniSetAppName("app"), "app");
  void* h = nullptr;
  ASSERT_EQ(IniOpen("zepproc.ini", &h, 0), 0);
  EXPECT_EQ(Get(h, nullptr, "f"), "1");  // a new store takes the application name
  IniClose(h);
  const std::string longName(100, 'x');
  EXPECT_EQ(strlen(IniSetAppName(longName.c_str())), 63u);
}

TEST_F(IniFolder, TheDefaultStoreIsFoundAndChanged) {
  setenv("HOME", m_dir.c_str(), 1);
  unsetenv("XDG_DATA_HOME");
  Write("zepproc.ini", "[locale]\nlanguage=fra\n");
  VOSTRING language;
  EXPECT_EQ(language.IniRead(nullptr, "locale", "language"), 1);
  EXPECT_EQ(U8(language), "fra");
  EXPECT_EQ(VOSTRING("deu").IniWrite(nullptr, "locale", "language"), 0);
  EXPECT_EQ(Read("zepproc.ini"), "[locale]\nlanguage=deu\n");
}
