// The text format of the settings store, edge by edge: groups, fields,
// values over several lines, edits, deletions, and the names and values the
// format can't hold. The store's own quirks are kept here as a corpus.
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "settings/ini_test_util.h"
#include "vosystem/errors.h"

TEST(IniText, GroupsAndFieldsAreFoundIgnoringCase) {
  void* h = MemoryStore("\n[GROUP]\n  Name = value  \r\nother=2\n[next]\nName=wrong\n");
  EXPECT_EQ(Get(h, "group", "NAME"), "value");
  EXPECT_EQ(Get(h, "Group", "other"), "2");
  EXPECT_EQ(Get(h, "group", "Nam"), "<-1>");  // a prefix of a name isn't the name
  EXPECT_EQ(Get(h, "group", "Names"), "<-1>");
  EXPECT_EQ(Get(h, "next", "name"), "wrong");
  EXPECT_EQ(Get(h, "none", "name"), "<-1>");
  IniClose(h);
  // A field of that name in a later group isn't the group's.
  h = MemoryStore("[a]\nx=1\n[b]\ny=2\n");
  EXPECT_EQ(Get(h, "a", "y"), "<-1>");
  IniClose(h);
}

TEST(IniText, CommentsBracketsAndTheLastLineAreTheFormatsOwn) {
  void* h = MemoryStore("# [x]\n[g]\n# f=no\nf=yes # not a comment\nv=a [x] b\n[h]\n");
  EXPECT_EQ(Get(h, "x", "f"), "<-1>");  // neither a comment nor a value makes a group
  EXPECT_EQ(Get(h, "g", "f"), "yes # not a comment");
  EXPECT_EQ(Get(h, "g", "v"), "a [x] b");
  // "[h]" is the last line: no line for a field, so the group is absent and
  // a write adds another; the field is found in that one.
  EXPECT_EQ(Put(h, "h", "k", "1"), 0);
  EXPECT_EQ(StoreText(h),
            "# [x]\n[g]\n# f=no\nf=yes # not a comment\nv=a [x] b\n[h]\n\n[h]\nk=1\n");
  EXPECT_EQ(Get(h, "h", "k"), "1");
  IniClose(h);
  // A header cut before its "]" at the very end is read within the text.
  h = MemoryStore("[abc");
  EXPECT_EQ(Get(h, "abc", "f"), "<-1>");
  IniClose(h);
}

TEST(IniText, ValuesOverSeveralLines) {
  void* h = MemoryStore("[g]\nk=a\\\n\\b\nm=C:\\x\\\n\\y\nn=one\\\nlast=\\\n");
  EXPECT_EQ(Get(h, "g", "k"), "a\nb");
  // Inside a value of several lines any "\" before a character is a line feed.
  EXPECT_EQ(Get(h, "g", "m"), "C:\nx\ny");
  EXPECT_EQ(Get(h, "g", "n"), "one\\");  // no "\" on the next line: no continuation
  EXPECT_EQ(Get(h, "g", "last"), "\\");
  IniClose(h);
}

TEST(IniText, EditsKeepTheTextAndItsLength) {
  void* h = MemoryStore("[g]\nf=abcdef\ng=1\n");
  EXPECT_EQ(Put(h, "g", "f", "x"), 0);
  EXPECT_EQ(StoreText(h), "[g]\nf=x     \ng=1\n");
  EXPECT_EQ(Get(h, "g", "f"), "x");
  EXPECT_EQ(Put(h, "g", "f", "longer than before"), 0);
  EXPECT_EQ(Put(h, "g", "new", "n"), 0);   // the group's first line
  EXPECT_EQ(Put(h, "other", "o", ""), 0);  // a new group at the end
  EXPECT_EQ(StoreText(h), "[g]\nnew=n\nf=longer than before\ng=1\n\n[other]\no=\n");
  EXPECT_EQ(Get(h, "other", "o"), "");
  IniClose(h);
  // The last field is found though the text had no final line feed.
  h = MemoryStore("[g]\nf=1\nlast=2");
  EXPECT_EQ(Get(h, "g", "last"), "2");
  IniClose(h);
}

TEST(IniText, DeletionsOfFieldsAndGroups) {
  void* h = MemoryStore("\n\n[a]\nx=1\ny=2\\\n\\3\n\n[b]\nz=4\n[empty]\n[c]\nw=5\n");
  EXPECT_EQ(IniDeleteField(h, "a", "y"), 0);
  EXPECT_EQ(IniDeleteField(h, "a", "y"), -1);
  EXPECT_EQ(IniDeleteField(h, "none", "y"), -1);
  EXPECT_EQ(StoreText(h), "\n\n[a]\nx=1\n\n[b]\nz=4\n[empty]\n[c]\nw=5\n");
  EXPECT_EQ(IniDeleteGroup(h, "b"), 0);
  EXPECT_EQ(StoreText(h), "\n\n[a]\nx=1\n\n[empty]\n[c]\nw=5\n");
  EXPECT_EQ(IniDeleteGroup(h, "empty"), 0);  // a group without fields loses its header
  EXPECT_EQ(StoreText(h), "\n\n[a]\nx=1\n\n[c]\nw=5\n");
  EXPECT_EQ(IniDeleteGroup(h, "c"), 0);
  EXPECT_EQ(StoreText(h), "\n\n[a]\nx=1\n");
  EXPECT_EQ(IniDeleteGroup(h, "c"), -1);
  IniClose(h);
  h = MemoryStore("[first]\nf=1\n[second]\ns=2\n");  // a header at the very start
  EXPECT_EQ(IniDeleteGroup(h, "first"), 0);
  EXPECT_EQ(StoreText(h), "\n[second]\ns=2\n");
  EXPECT_EQ(IniDeleteGroup(h, nullptr), VOERROR_InvalidArgument);
  EXPECT_EQ(IniDeleteField(h, "second", nullptr), VOERROR_InvalidArgument);
  IniClose(h);
}

// What the format can't hold is refused, rather than written so that it
// reads back as something else.
TEST(IniText, NamesAndValuesTheFormatCantHoldAreRefused) {
  void* h = MemoryStore("[g]\nf=1\n");
  const std::string longName(256, 'n');
  EXPECT_EQ(Put(h, "g", "f", "a\nb"), VOERROR_InvalidArgument);
  EXPECT_EQ(Put(h, "g", "a\n[x]", "1"), VOERROR_InvalidArgument);
  EXPECT_EQ(Put(h, "g\n[x", "f", "1"), VOERROR_InvalidArgument);
  EXPECT_EQ(Put(h, "g]", "f", "1"), VOERROR_InvalidArgument);
  EXPECT_EQ(Put(h, "g", "a=b", "1"), VOERROR_InvalidArgument);
  EXPECT_EQ(Put(h, "g", "", "1"), VOERROR_InvalidArgument);
  EXPECT_EQ(Put(h, "g", longName.c_str(), "1"), VOERROR_InvalidArgument);
  EXPECT_EQ(Get(h, "g", longName.c_str()), "<-1213>");
  EXPECT_EQ(Put(h, "g", longName.substr(1).c_str(), "255 bytes"), 0);
  EXPECT_EQ(Get(h, "g", longName.substr(1).c_str()), "255 bytes");
  EXPECT_EQ(StoreText(h).find("[x"), std::string::npos);
  EXPECT_EQ(Get(h, "g", "f"), "1");
  IniClose(h);
}

TEST(IniText, MemoryStoresAndTheirText) {
  void* h = nullptr;
  EXPECT_EQ(IniOpen(nullptr, nullptr, INIOPEN_Memory), VOERROR_InvalidArgument);
  EXPECT_EQ(IniOpen(nullptr, &h, 0), VOERROR_InvalidArgument);
  ASSERT_EQ(IniOpen(nullptr, &h, INIOPEN_Memory), 0);
  EXPECT_EQ(StoreText(h), "\n\n");
  EXPECT_EQ(IniIsWritable(h), 1);
  EXPECT_EQ(IniSetBuffer(h, nullptr), VOERROR_InvalidArgument);
  EXPECT_EQ(IniSetBuffer(h, VOSTRING(u"[é]\nf=ü\n")), 0);
  VOSTRING v;
  EXPECT_EQ(v.IniRead(h, "é", "f"), 1);
  EXPECT_EQ(U8(v), "ü");
  EXPECT_EQ(v.IniRead(h, "é", "none"), 0);
  EXPECT_TRUE(v.IsEmpty());
  EXPECT_EQ(StoreText(h), "[é]\nf=ü\n");
  IniClose(h);
  IniClose(nullptr);
  ASSERT_EQ(IniOpen(nullptr, &h, INIOPEN_Memory | INIOPEN_ReadOnly), 0);
  EXPECT_EQ(Put(h, "g", "f", "1"), VOERROR_PermissionDenied);
  EXPECT_EQ(IniIsWritable(h), 0);
  IniClose(h);
}
