// Paths on the disk, all inside a folder of the test's own: listing,
// making, removing, renaming, copying, temporary names, times, the case
// search, the system locations, and names the system stores byte for byte.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <set>
#include <string>

#include "test_util.h"
#include "vosystem/errors.h"
#include "vosystem/filepath.h"
#include "vosystem/fileraw.h"
#include "vosystem/inifuncs.h"
#include "vosystem/system.h"
#include "vosystem/textres.h"
#include "vosystem/ucstring.h"
#include "vosystem/viofuncs.h"

namespace {

class FilePathDisk : public testing::Test {
 protected:
  void SetUp() override {
    std::string t = std::string(VOSYS_TEST_SCRATCH) + "/fsXXXXXX";
    ASSERT_NE(mkdtemp(&t[0]), nullptr);
    m_dir = t;
    m_root = FILEPATH(m_dir.c_str(), CHAR_ENCODING_UTF8);
  }
  void TearDown() override { std::filesystem::remove_all(m_dir); }

  FILEPATH At(const char* rel) const { return FILEPATH(m_root, rel, CHAR_ENCODING_UTF8); }
  void Write(const char* rel, const std::string& data) const {
    std::ofstream(m_dir + "/" + rel, std::ios::binary) << data;
  }
  std::string Read(const char* rel) const {
    std::ifstream in(m_dir + "/" + rel, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), {});
  }
  std::set<std::string> Children(const FILEPATH& p, const char* pattern, CHILDTYPE type) const {
    VOLIST<VOSTRING> list;
    const int n = p.GetChildren(list, VOSTRING(pattern), type);
    std::set<std::string> names;
    for (const VOSTRING& s : list) names.insert(U8(s));
    EXPECT_EQ(n, static_cast<int>(names.size()));
    return names;
  }

  std::string m_dir;
  FILEPATH m_root;
};

}  // namespace

TEST_F(FilePathDisk, MakeListAndRemove) {
  const FILEPATH deep = At("a/b/c");
  EXPECT_EQ(deep.Make(true), 0);
  EXPECT_TRUE(deep.IsFolder());
  EXPECT_EQ(deep.Make(true), 0);  // an existing folder: only its access is checked
  EXPECT_FALSE(deep.HasChildren(CHILDTYPE_Any));
  EXPECT_EQ(Children(deep, "*", CHILDTYPE_Any).size(), 0u);

  Write("a/x.txt", "1");
  Write("a/y.TXT", "2");
  Write("a/z.dat", "3");
  const FILEPATH a = At("a");
  EXPECT_EQ(Children(a, "*.txt", CHILDTYPE_File), (std::set<std::string>{"x.txt", "y.TXT"}));
  EXPECT_EQ(Children(a, "*.txt", CHILDTYPE_Folder), (std::set<std::string>{"b"}));
  EXPECT_EQ(Children(a, "*.txt", CHILDTYPE_Any).size(), 4u);
  EXPECT_TRUE(a.HasChildren(CHILDTYPE_File));
  // A file has no children; a missing folder has none either.
  VOLIST<VOSTRING> list;
  EXPECT_EQ(At("a/x.txt").GetChildren(list, CHILDTYPE_Any), VOERROR_InvalidArgument);
  EXPECT_EQ(At("none").GetChildren(list, CHILDTYPE_Any), 0);

  EXPECT_EQ(At("a/x.txt").Make(false), VOERROR_CannotMakeDir);
  EXPECT_TRUE(At("a/x.txt").IsFile() && !At("a/x.txt").IsPathOnly() && At("none").IsPathOnly());
  EXPECT_EQ(At("a/x.txt").GetSize(), 1);
  EXPECT_EQ(At("a/x.txt").Remove(), 0);
  EXPECT_FALSE(At("a/x.txt").Exists());
  ClearLastErr();
  EXPECT_EQ(At("a/x.txt").Remove(), VOERROR_FileNotFound);  // ENOENT, translated
  EXPECT_NE(U8(GetRefErrStr()).find("System Error Code = " + std::to_string(ENOENT)),
            std::string::npos);
  EXPECT_NE(U8(GetRefErrStr()).find("x.txt"), std::string::npos);
  EXPECT_EQ(At("none").GetSize(), VOERROR_FileNotFound);

  FILEPATH renamed = At("a/z.dat");
  EXPECT_EQ(renamed.Rename(VOSTRING("w.dat")), 0);
  EXPECT_EQ(U8(renamed.GetName()), "w.dat");
  EXPECT_EQ(Read("a/w.dat"), "3");
  // The listing order is the reverse of the folder's own.
  VOLIST<VOSTRING> order;
  At("a").GetChildren(order, CHILDTYPE_Any);
  std::string forward;
  for (const auto& entry : std::filesystem::directory_iterator(m_dir + "/a"))
    forward = entry.path().filename().string() + "|" + forward;
  std::string ours;
  for (const VOSTRING& s : order) ours += U8(s) + "|";
  EXPECT_EQ(ours, forward);
}

// Names are the system's bytes: letters outside ASCII, a backslash, a
// drive-like "C:" or a leading "!x!" come back from the listing as the same
// name, and the path made from it finds the file.
TEST_F(FilePathDisk, NamesSurviveTheSystem) {
  const char* names[] = {"\xC3\xA9t\xC3\xA9.txt",
                         "\xEF\xAC\x81le",
                         "back\\slash",
                         "C:drive",
                         "!PC!x",
                         "..dots",
                         " lead"};
  for (const char* n : names) Write(n, n);
  std::set<std::string> expected(std::begin(names), std::end(names));
  EXPECT_EQ(Children(m_root, "*", CHILDTYPE_Any), expected);
  VOLIST<VOSTRING> list;
  m_root.GetChildren(list, CHILDTYPE_Any);
  for (const VOSTRING& name : list) {
    VOSTRING stored(UnixEncodeStr);
    stored += name;
    const FILEPATH file(m_root, stored);
    EXPECT_TRUE(file.IsFile()) << U8(name);
    EXPECT_EQ(U8(file.GetName()), U8(name));
    EXPECT_EQ(file.GetSize(), static_cast<long long>(U8(name).size()));
  }
}

TEST_F(FilePathDisk, CopiesAndTemporaryFiles) {
  std::string big(200000, 'x');
  for (size_t i = 0; i < big.size(); ++i) big[i] = static_cast<char>('a' + i % 26);
  Write("src", big);
  const FILEPATH src = At("src"), dst = At("dst");
  EXPECT_EQ(src.CopyFileFrom(src, nullptr, nullptr), VOERROR_CopyFailed);
  // A progress callback that stops the copy leaves no target behind, not
  // even an older file of that name.
  Write("dst", "old contents that are longer than nothing");
  int calls = 0;
  auto stop = [](long long total, long long remaining, void* data) {
    int& n = *static_cast<int*>(data);
    EXPECT_EQ(total, 200000);
    EXPECT_LE(remaining, total);
    return ++n == 2 ? -1 : 0;
  };
  EXPECT_EQ(dst.CopyFileFrom(src, stop, &calls), -1);
  EXPECT_EQ(calls, 2);
  EXPECT_FALSE(dst.Exists());
  tm past{};
  past.tm_year = 101;
  past.tm_mday = 1;
  EXPECT_EQ(src.SetTimeModified(&past), 0);
  EXPECT_EQ(dst.CopyFileFrom(src, nullptr, nullptr), 0);
  EXPECT_EQ(Read("dst"), big);
  long t1 = 0, t2 = 0;
  EXPECT_EQ(src.GetTimeModified(&t1), 0);
  EXPECT_EQ(dst.GetTimeModified(&t2), 0);
  EXPECT_EQ(t1, 978307200);  // 2001-01-01, no time zone
  EXPECT_EQ(t2, t1);
  tm old{};
  old.tm_year = 69;
  EXPECT_EQ(src.SetTimeModified(&old), VOERROR_InvalidArgument);
  EXPECT_EQ(At("folder").Make(false), 0);
  EXPECT_EQ(At("folder").CopyFileFrom(src, nullptr, nullptr), VOERROR_PermissionDenied);

  Write("temp0001.TMP", "");
  Write("temp0002.TMP", "");
  FILEPATH temp;
  EXPECT_EQ(temp.GenerateTempFile(m_root, VOSTRING("temp")), 0);
  EXPECT_EQ(U8(temp.GetName()), "temp0003.TMP");
  EXPECT_TRUE(temp.IsFile());
  EXPECT_EQ(temp.GenerateTempFile(FILEPATH(), VOSTRING("t")), VOERROR_TempFile);
  EXPECT_EQ(temp.GenerateTempFile(At("missing"), VOSTRING("t")), VOERROR_FileNotFound);
}

TEST_F(FilePathDisk, SearchesAndReductions) {
  ASSERT_EQ(At("Data/Sub").Make(true), 0);
  Write("Data/Sub/File.TXT", "x");
  FILEPATH guess = At("Data/Sub/FILE.txt");
  EXPECT_EQ(guess.SearchCase(), 0);  // no mix of cases reaches "File.TXT" from here
  FILEPATH upper = At("Data/Sub/file.txt");
  Write("Data/Sub/FILE.TXT", "y");
  EXPECT_EQ(upper.SearchCase(), 1);
  EXPECT_EQ(U8(upper.GetName()), "FILE.TXT");
  // A foreign path found by its tail under the folders above a base.
  FILEPATH foreign("!PC!Q:\\old\\place\\Sub\\File.TXT", CHAR_ENCODING_ASCII);
  EXPECT_EQ(foreign.SearchIterative(At("Data/Sub/deeper/x")), 1);
  EXPECT_TRUE(foreign.IsEqual(At("Data/Sub/File.TXT")));

  FILEPATH missing = At("Data/none/more");
  missing.StripToExisting();
  EXPECT_TRUE(missing.IsEqual(At("Data")));
  FILEPATH file = At("Data/Sub/File.TXT/x");
  file.StripToFolder();
  EXPECT_TRUE(file.IsEqual(At("Data/Sub")));
  EXPECT_GT(m_root.GetAvailableSpace(), 0);
  EXPECT_EQ(m_root.GetFileSysType(), 0);
  EXPECT_GT(m_root.GetSystemMaxSize(), 0);
  char creator[5], type[5];
  EXPECT_EQ(At("a.JPG").GetMacFileType(creator, type), 0);
  EXPECT_STREQ(creator, "JVWR");
  EXPECT_STREQ(type, "JPEG");
  EXPECT_EQ(At("a.bin").GetMacFileType(creator, type), 0);
  EXPECT_STREQ(creator, "mdos");
}

// Permissions: a refusal needs a user the system refuses, so as root only
// the granting side is checked.
TEST_F(FilePathDisk, Permissions) {
  Write("f", "x");
  const FILEPATH f = At("f");
  EXPECT_EQ(f.SetPermission(PERMISSION_Read), 0);
  struct stat st;
  ASSERT_EQ(stat((m_dir + "/f").c_str(), &st), 0);
  EXPECT_EQ(st.st_mode & 0222, 0u);
  EXPECT_TRUE(f.IsReadable());
  if (geteuid() != 0) {
    EXPECT_FALSE(f.IsWritable());
    EXPECT_EQ(f.GetPermission(), PERMISSION_Read);
    EXPECT_EQ(f.CheckAccess(PERMISSION_Write), VOERROR_PermissionDenied);
    ClearLastErr();  // CheckAccess records its refusal; the tests below must not
  }
  EXPECT_EQ(f.SetPermission(PERMISSION_ReadWrite), 0);
  EXPECT_TRUE(f.IsWritable());
  EXPECT_EQ(At("none").GetPermission(), PERMISSION_None);
  EXPECT_EQ(At("none").Exists(), 0);
  EXPECT_EQ(GetLastErrCode(), 0);  // asking leaves no record
}

// The locations under the home and data folders, with HOME and
// XDG_DATA_HOME pointed into the test's folder.
TEST_F(FilePathDisk, SystemLocations) {
  setenv("HOME", m_dir.c_str(), 1);
  unsetenv("home");
  unsetenv("XDG_DATA_HOME");
  EXPECT_TRUE(FILEPATH(PATHTYPE_Home).IsEqual(m_root));
  EXPECT_TRUE(FILEPATH(PATHTYPE_Desktop).IsEqual(At("Desktop")));
  EXPECT_TRUE(FILEPATH(PATHTYPE_UserData).IsEqual(At(".local/share/Larkspindle")));
  EXPECT_TRUE(At(".local/share/Larkspindle").IsFolder());
  const std::string xdg = m_dir + "/xdg";
  setenv("XDG_DATA_HOME", xdg.c_str(), 1);
  const FILEPATH settings(PATHTYPE_SettingsUserData);
  EXPECT_TRUE(settings.IsEqual(At("xdg/Larkspindle/Settings")));
  EXPECT_TRUE(settings.IsFolder());
  EXPECT_TRUE(FILEPATH(static_cast<PATHTYPE>(5)).IsEmpty());
  EXPECT_TRUE(FILEPATH(static_cast<PATHTYPE>(11)).IsEqual(m_root));
  // A home at the top of the file system gets no folders made there.
  setenv("HOME", "/", 1);
  unsetenv("XDG_DATA_HOME");
  const bool had = std::filesystem::exists("/.local") || std::filesystem::exists("/.Larkspindle");
  const FILEPATH top(PATHTYPE_UserData);
  if (!had) {
    EXPECT_FALSE(std::filesystem::exists("/.local"));
    EXPECT_FALSE(std::filesystem::exists("/.Larkspindle"));
  }

  char cwd[4096];
  ASSERT_NE(getcwd(cwd, sizeof cwd), nullptr);
  EXPECT_EQ(VOSYSTEM::SetCurrentWorkingDirectory(m_root), 0);
  EXPECT_TRUE(FILEPATH(PATHTYPE_Current).IsEqual(m_root));
  EXPECT_TRUE(FILEPATH(VOSTRING("./x")).IsEqual(At("x")));
  ClearLastErr();
  EXPECT_EQ(VOSYSTEM::SetCurrentWorkingDirectory(At("missing")), VOERROR_FileNotFound);
  EXPECT_NE(U8(GetRefErrStr()).find("missing"), std::string::npos);
  ASSERT_EQ(chdir(cwd), 0);
}

// The program's path: found on PATH from a bare name, as given when absolute.
TEST_F(FilePathDisk, ModuleFileName) {
  ASSERT_EQ(At("bin").Make(false), 0);
  Write("bin/tool", "#!/bin/sh\n");
  setenv("PATH", (m_dir + "/nothing:" + m_dir + "/bin").c_str(), 1);
  FILEPATH::SetModuleFileName("tool", CHAR_ENCODING_UTF8);
  EXPECT_TRUE(FILEPATH(PATHTYPE_Program).IsEqual(At("bin/tool")));
  EXPECT_TRUE(FILEPATH(PATHTYPE_ProgramFolder).IsEqual(At("bin")));
  FILEPATH::SetModuleFileName("/gone/away/tool", CHAR_ENCODING_UTF8);  // searched by its name
  EXPECT_TRUE(FILEPATH(PATHTYPE_Program).IsEqual(At("bin/tool")));
  FILEPATH::SetModuleFileName("/gone/away/other", CHAR_ENCODING_UTF8);
  EXPECT_EQ(U8(FILEPATH(PATHTYPE_Program).GetText()), "/gone/away/other");
  FILEPATH::SetModuleFileName(nullptr, CHAR_ENCODING_UTF8);
}

// The full message of each failure, in words, names the file that failed;
// no value slot is left open.
TEST_F(FilePathDisk, FileFailuresNameTheirFile) {
  ASSERT_EQ(TEXTRES::Initialize(), 1);
  const auto expectNamed = [](int rc, int code, const std::string& name) {
    EXPECT_EQ(rc, code);
    EXPECT_EQ(GetLastErrCode(), code);
    const std::string text = U8(VOSTRING(GetErrStrUC(code, nullptr)));
    EXPECT_NE(text.find(name), std::string::npos) << text;
    EXPECT_EQ(text.find("$1"), std::string::npos) << text;
    EXPECT_EQ(text.find("%d"), std::string::npos) << text;
  };

  FILE_RAW raw;
  expectNamed(raw.Open(At("missing.txt"), FILE_ACCESS_Read, FILE_SHARE_All), VOERROR_FileNotFound,
              "missing.txt");

  // A folder where a file stands: refused before the system is asked, and
  // below it by the system.
  Write("blocker", "x");
  expectNamed(At("blocker").Make(true), VOERROR_CannotMakeDir, "blocker");
  expectNamed(At("blocker/sub").MakePath(), VOERROR_NotADirectory, "blocker/sub");

  // A settings file opened read-only refuses the write.
  Write("ro.ini", "[g]\nk=1\n");
  void* ini = nullptr;
  const std::string iniPath = m_dir + "/ro.ini";
  ASSERT_EQ(IniOpen(iniPath.c_str(), &ini, INIOPEN_FullPath | INIOPEN_ReadOnly), 0);
  expectNamed(IniWriteString(ini, "g", "k", INITYPE_String, "2"), VOERROR_PermissionDenied,
              "ro.ini");
  IniClose(ini);

  // A stream knows no path of its own: a read from one open for writing
  // names the file all the same.
  FILE* fp = nullptr;
  unsigned short* wide = strtoucdup((m_dir + "/out.txt").c_str());
  ASSERT_EQ(VioOpen(wide, "w", &fp), 0);
  free(wide);
  char line[8];
  expectNamed(VioGetStr(line, sizeof line, fp), VOERROR_ReadFailedOther, "out.txt");
  fclose(fp);
}
