// Paths as text: the three syntaxes, composition, relative paths, the text
// forms and the wildcards, against hand cases and Python's posixpath and
// ntpath as oracles. Paths here name nothing on the disk, except where a
// test makes a folder of its own.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "test_util.h"
#include "vosystem/filepath.h"

namespace {

// The stored text of a path built from UTF-8 text.
std::string P(const char* text) {
  return U8(FILEPATH(text, CHAR_ENCODING_UTF8).GetText());
}

std::string Append(const char* base, const char* text) {
  FILEPATH p(base, CHAR_ENCODING_UTF8);
  p.Append(text, CHAR_ENCODING_UTF8);
  return U8(p.GetText());
}

// Lines of Python's output for a script given its input lines.
std::vector<std::string> Python(const std::string& script, const std::vector<std::string>& lines) {
  const std::string in = std::string(VOSYS_TEST_SCRATCH) + "/oracle_in.txt";
  FILE* f = fopen(in.c_str(), "w");
  for (const std::string& l : lines) fprintf(f, "%s\n", l.c_str());
  fclose(f);
  const std::string cmd = "python3 -c '" + script + "' < " + in;
  std::vector<std::string> out;
  FILE* p = popen(cmd.c_str(), "r");
  char buf[4096];
  while (p && fgets(buf, sizeof buf, p)) {
    std::string s(buf);
    if (!s.empty() && s.back() == '\n') s.pop_back();
    out.push_back(s);
  }
  if (p) pclose(p);
  remove(in.c_str());
  return out;
}

}  // namespace

TEST(FilePathText, ThreeSyntaxesParse) {
  EXPECT_EQ(P("C:\\dir\\f.txt"), "/dir/f.txt");     // the drive goes, the root stays
  EXPECT_EQ(P("!PC!C:\\dir\\f.txt"), "dir/f.txt");  // a stored PC path is rootless
  EXPECT_EQ(P("!MAC!Disk:a:b"), "/a/b");
  EXPECT_EQ(Append("/x/y/z", "!MAC!::a"), "/x/a");  // each leading colon climbs
  EXPECT_EQ(P("!UNIX!/a\\b"), "/a\\b");             // our syntax: a backslash is a letter
  EXPECT_EQ(P("!UNIX!C:x"), "C:x");
  EXPECT_EQ(P("!UNIX!!PC!x"), "!PC!x");  // one code only
  // UNC names lose host and share with either separator; a drive is
  // recognised only where the text holds no other colon (a name may).
  EXPECT_EQ(P("\\\\host\\share\\a\\b"), "a/b");
  EXPECT_EQ(P("//host/share/a"), "a");
  EXPECT_EQ(P("!PC!\\\\host\\share\\a"), "a");
  EXPECT_EQ(P("\\\\host"), "//host");  // no share: nothing goes
  EXPECT_EQ(P("C:a:b"), "C:a:b");
  // An unknown code is dropped; a lone "!" is text.
  EXPECT_EQ(P("!XY!/a"), "/a");
  EXPECT_EQ(P("!a"), "!a");
  VOSTRING code("!MAC!x");
  EXPECT_EQ(StripPathCode(code), 2);
  EXPECT_EQ(U8(code), "x");
  EXPECT_EQ(U8(FILEPATH(u"/\u00E9t\u00E9/\uFB01").GetText()), "/\xC3\xA9t\xC3\xA9/\xEF\xAC\x81");
}

TEST(FilePathText, Composition) {
  EXPECT_EQ(Append("/a", "/b"), "/a/b");  // an absolute text appends
  EXPECT_EQ(Append("/a", "b/"), "/a/b");
  EXPECT_EQ(Append("", "a/b"), "a/b");  // no root
  EXPECT_EQ(Append("/", "a"), "/a");
  for (const char* up : {"..", "../", "../.."}) EXPECT_EQ(Append("/a", up), "/") << up;
  EXPECT_EQ(Append("/a/b/c", "../../d"), "/a/d");
  EXPECT_EQ(Append("/a/b", "./c"), "/a/b/c");
  EXPECT_EQ(Append("/", "./c"), "/c");
  EXPECT_EQ(Append("/a/b", "."), "/a/b");
  EXPECT_EQ(Append("a", "../b"), "b");         // a rootless path climbs to nothing
  EXPECT_EQ(Append("/a", "..b"), "/a/..b");    // a name, not a climb
  EXPECT_EQ(Append("/a//b", "c"), "/a//b/c");  // kept as composed
  EXPECT_TRUE(FILEPATH::IsRelativePath(VOSTRING("!UNIX!../a")));
  EXPECT_FALSE(FILEPATH::IsRelativePath(VOSTRING("a/b")));
  EXPECT_FALSE(FILEPATH::IsRelativePath(VOSTRING("..a")));

  FILEPATH p("/a/b.c/d.txt", CHAR_ENCODING_ASCII);
  EXPECT_EQ(U8(p.GetExtension()), "txt");
  EXPECT_EQ(U8(p.GetName()), "d.txt");
  EXPECT_EQ(U8(p.GetNameOnly()), "d");
  p.SetExtension("md", CHAR_ENCODING_ASCII);
  EXPECT_EQ(U8(p.GetText()), "/a/b.c/d.md");
  p.SetName("e", CHAR_ENCODING_ASCII);
  EXPECT_EQ(U8(p.GetText()), "/a/b.c/e");
  EXPECT_FALSE(p.HasExtension());  // the "." of a folder above doesn't count
  EXPECT_TRUE(FILEPATH("/a/.profile", CHAR_ENCODING_ASCII).HasExtension());
  EXPECT_TRUE(FILEPATH("/a", CHAR_ENCODING_ASCII).IsSameExtn(""));
  EXPECT_FALSE(FILEPATH("a.txt", CHAR_ENCODING_ASCII).IsSameExtn(""));
  EXPECT_TRUE(FILEPATH("a.TXT", CHAR_ENCODING_ASCII).IsSameExtn("txt"));
  EXPECT_FALSE(FILEPATH("a.txt", CHAR_ENCODING_ASCII).IsSameExtn("TXT"));
  EXPECT_FALSE(FILEPATH("a.txt", CHAR_ENCODING_ASCII).IsSameExtn("tx"));

  FILEPATH root("/", CHAR_ENCODING_ASCII);
  EXPECT_TRUE(root.IsRootOnly());
  EXPECT_TRUE(root.GetName().IsEmpty());
  FILEPATH a("/a", CHAR_ENCODING_ASCII);
  a.StripLastComponent();
  EXPECT_TRUE(a.IsRootOnly());
  EXPECT_TRUE(
      FILEPATH("/A/B/c", CHAR_ENCODING_ASCII).Contains(FILEPATH("/a/b", CHAR_ENCODING_ASCII)));
  EXPECT_TRUE(FILEPATH("/A", CHAR_ENCODING_ASCII).IsEqual(FILEPATH("/a", CHAR_ENCODING_ASCII)));
  FILEPATH other("/x/y", CHAR_ENCODING_ASCII), mine("/a/b", CHAR_ENCODING_ASCII);
  mine.ReplaceRoot(other);
  EXPECT_EQ(U8(mine.GetText()), "/a/b");  // one root on this system

  VOLIST<VOSTRING> parts;
  EXPECT_EQ(FILEPATH("/a/b", CHAR_ENCODING_ASCII).GetComponents(parts), 3);
  std::vector<std::string> got;
  for (const VOSTRING& s : parts) got.push_back(U8(s));
  EXPECT_EQ(got, (std::vector<std::string>{"", "a", "b"}));
}

TEST(FilePathText, TextForms) {
  EXPECT_EQ(U8(FILEPATH("/a/b:c/d", CHAR_ENCODING_ASCII).GetDisplay()), "/a/\"b/c\"/d");
  EXPECT_EQ(U8(FILEPATH("/a:b", CHAR_ENCODING_ASCII).GetDisplay()), "/\"a/b\"");
  EXPECT_EQ(U8(FILEPATH("/my docs/x/a b", CHAR_ENCODING_ASCII).GetQuotedPath()),
            "/\"my docs\"/x/\"a b\"");
  EXPECT_EQ(U8(FILEPATH("a b/c", CHAR_ENCODING_ASCII).GetQuotedPath()), "a b/c");
  const FILEPATH p(u"/d/\u00E9");
  EXPECT_EQ(U8(p.GetEncoded()), "!UNIX!/d/\xC3\xA9");
  char* os = p.GenerateOSPath();
  EXPECT_STREQ(os, "/d/\xC3\xA9");  // plain UTF-8 for the system
  free(os);
  EXPECT_EQ(FILEPATH().GenerateOSPath(), nullptr);
}

// Wildcards: "?" is a whole character, "*" any run, and the matcher
// neither recurses nor takes exponential time on runs of stars.
TEST(FilePathText, Wildcards) {
  EXPECT_TRUE(match("*.txt", "a.TXT"));
  EXPECT_TRUE(match("A?C", "abc"));
  EXPECT_TRUE(match(nullptr, "x") && match("*", "") && match("*.*", "noext"));
  EXPECT_TRUE(match("x.txt", "a.txt"));  // the tail rule sees past the first letter
  EXPECT_TRUE(match("?.txt", "\xC3\xA9.txt"));
  EXPECT_FALSE(match("??.txt", "\xC3\xA9.txt"));
  EXPECT_TRUE(match("\xC3\x89*", "\xC3\xA9t\xC3\xA9"));  // case across Latin-1
  EXPECT_EQ(strwcmp("a*b*c", "axxbyyc", true), 0);
  EXPECT_NE(strwcmp("a*b*c", "axxbyy", true), 0);
  EXPECT_LT(strwcmp("abc", "abd", true), 0);
  EXPECT_GT(strwcmp("abd", "abc", true), 0);
  EXPECT_EQ(strwcmp("abc", "ab", true), -1);
  EXPECT_EQ(strwcmp("ab**", "ab", true), 0);
  EXPECT_NE(strwcmp("a", "A", true), 0);
  const std::string text(20000, 'a');
  const std::string stars = std::string(5000, '*') + "a*a*a*a*a*a*a*a*a*a*b";
  EXPECT_NE(strwcmp(stars.c_str(), text.c_str(), true), 0);
  EXPECT_EQ(strwcmp(std::string(3000, '*').c_str(), text.c_str(), true), 0);
}

// GetRelativePath read against its base names the target, for every pair
// of rooted paths of up to three components (case mixed), and a stored form
// parses back to the path it came from.
TEST(FilePathText, RelativePathsRoundTrip) {
  const char* names[] = {"a", "B", "b", "c.txt"};
  std::vector<std::string> paths = {"/"};
  for (const char* x : names) {
    paths.push_back(std::string("/") + x);
    for (const char* y : names) {
      paths.push_back(std::string("/") + x + "/" + y);
      for (const char* z : names) paths.push_back(std::string("/") + x + "/" + y + "/" + z);
    }
  }
  int checked = 0;
  for (const std::string& t : paths) {
    const FILEPATH target(t.c_str(), CHAR_ENCODING_ASCII);
    EXPECT_TRUE(FILEPATH(target.GetEncoded()).IsEqual(target)) << t << " stored as " << U8(target.GetEncoded());
    for (const std::string& b : paths) {
      const FILEPATH base(b.c_str(), CHAR_ENCODING_ASCII);
      // A stored relative path is read against its base; an absolute one
      // (nothing shared) as it stands.
      const VOSTRING rel = target.GetRelativePath(base);
      FILEPATH joined(base);
      if (FILEPATH::IsRelativePath(rel))
        joined += rel;
      else
        joined = rel;
      ASSERT_TRUE(joined.IsEqual(target))
          << t << " from " << b << " by " << U8(rel) << " gave " << U8(joined.GetText());
      ++checked;
    }
  }
  EXPECT_EQ(checked, 85 * 85);
  const FILEPATH file("/a/b/c.txt", CHAR_ENCODING_ASCII);
  EXPECT_EQ(U8(file.GetRelativePath(FILEPATH("/a/b", CHAR_ENCODING_ASCII))), "!UNIX!./c.txt");
  EXPECT_EQ(U8(FILEPATH("/a/b", CHAR_ENCODING_ASCII)
                   .GetRelativePath(FILEPATH("/c", CHAR_ENCODING_ASCII))),
            "!UNIX!/a/b");
  EXPECT_EQ(U8(file.GetRelativePath(FILEPATH("/a/x/y", CHAR_ENCODING_ASCII))),
            "!UNIX!../../b/c.txt");
  EXPECT_EQ(U8(file.GetRelativePath(file)), ".");
}

// Plain compositions of rooted paths with names, "." and ".." agree with
// posixpath.normpath(join(...)) where the path is kept as composed no
// differently (no "//", no climb above the root). Drives and UNC names
// lose exactly what ntpath.splitdrive calls the drive (the drive letter;
// for UNC also the separator after the share, which makes the rest rootless).
TEST(FilePathText, AgreesWithPythonPaths) {
  const char* parts[] = {"a", "b", ".", "..", "c.d"};
  std::vector<std::string> cases;
  for (const char* x : parts)
    for (const char* y : parts)
      for (const char* z : parts) {
        const std::string rel = std::string(x) + "/" + y + "/" + z;
        if (rel[0] != '.') continue;  // relative texts only: the others are appended as they stand
        cases.push_back("/r/s/t\t" + rel);
      }
  const std::vector<std::string> posix = Python(
      "import sys,posixpath\nfor l in sys.stdin:\n b,r=l.rstrip(\"\\n\").split(\"\\t\")\n "
      "print(posixpath.normpath(posixpath.join(b,r)))",
      cases);
  ASSERT_EQ(posix.size(), cases.size());
  for (size_t i = 0; i < cases.size(); ++i) {
    const size_t tab = cases[i].find('\t');
    const std::string base = cases[i].substr(0, tab), rel = cases[i].substr(tab + 1);
    // We climb leading "../" tags (or take one leading "./") and keep any
    // later "." or ".." as composed, where normpath folds them: compare where
    // the rest behind the leading tags has none.
    size_t at = rel.compare(0, 2, "./") == 0 ? 2 : 0;
    while (at == 0 && rel.compare(0, 3, "../") == 0 && rel.compare(at, 3, "../") == 0) at += 3;
    while (at > 0 && at % 3 == 0 && rel.compare(at, 3, "../") == 0) at += 3;
    const std::string rest = "/" + rel.substr(at) + "/";
    if (rest.find("/./") != std::string::npos || rest.find("/../") != std::string::npos) continue;
    EXPECT_EQ(Append(base.c_str(), rel.c_str()), posix[i]) << base << " + " << rel;
  }

  std::vector<std::string> windows = {
      "C:\\x\\y", "d:\\a", "\\\\srv\\share\\p\\q", "//srv/share/p", "\\\\srv\\share", "C:rel\\x",
      "\\x\\y",   "x\\y"};
  const std::vector<std::string> drives = Python(
      "import sys,ntpath\nfor l in sys.stdin:\n d,p=ntpath.splitdrive(l.rstrip(\"\\n\"))\n "
      "print(p.replace(\"\\\\\",\"/\"))",
      windows);
  ASSERT_EQ(drives.size(), windows.size());
  for (size_t i = 0; i < windows.size(); ++i) {
    std::string expected = drives[i];
    const bool unc = (windows[i][0] == '\\' && windows[i][1] == '\\') ||
                     (windows[i][0] == '/' && windows[i][1] == '/');
    if (unc && !expected.empty()) expected = expected.substr(1);  // rootless after a UNC share
    if (expected.size() > 1 && expected.back() == '/') expected.pop_back();
    if (unc && expected.empty()) continue;  // a bare share keeps its text here
    EXPECT_EQ(P(windows[i].c_str()), expected) << windows[i];
  }
}
