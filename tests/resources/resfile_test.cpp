// The resource file reader on files built here byte by byte: lookups by
// number and name against std::map, every header field and table spoiled,
// every truncation, every byte changed; and the compiler's files read back
// as their source says.
#include "resources/resfile.h"

#include <algorithm>
#include <random>

#include "res_test_util.h"
#include "test_util.h"
#include "vosystem/errors.h"
#include "vosystem/filepath.h"
#include "vosystem/ucconv.h"

using namespace restest;

namespace {

std::u16string Text(RESFILE& f, int id) {
  VOSTRING out("untouched");
  return f.GetString(id, out) ? U16(out) : u"<none>";
}

std::u16string Text(RESFILE& f, const std::string& name, TEXTRES_NAMESET set) {
  VOSTRING out("untouched");
  return f.GetString(name.c_str(), set, out) ? U16(out) : u"<none>";
}

NUMSET SetOf(int id) {
  return id < 0 ? NUMSET_Negative : id < 100000 ? NUMSET_Small : NUMSET_Large;
}

RESSPEC Sample() {
  RESSPEC s;
  s.numbers = {{-1588, u"Bad file"}, {-1586, u"Two"},          {0, u"zero"},
               {7, u"seven"},        {100000, u"first large"}, {100002, u"large"}};
  s.names[TEXTRES_NAMESET_Text] = {{"Open", u"Open"}, {"open", u"open"}, {"z.last", u"Z"}};
  s.names[TEXTRES_NAMESET_Label] = {{"Open", u"Save as"}, {"Close", u"Close it"}};
  s.names[TEXTRES_NAMESET_Title] = {{"Main", u"Main window"}};
  s.names[TEXTRES_NAMESET_Help] = {{"Open", u"Line one\nline two"}};
  return s;
}

class ResFile : public ::testing::Test {
 protected:
  ResFile() { ClearLastErr(); }  // the record is the process's, and checked here
  // Opens bytes as a file of the test's own: the result of Open.
  int OpenBytes(RESFILE& f, const Bytes& bytes) {
    WriteFile(m_dir / "t.res", bytes);
    return f.Open(PathOf(m_dir / "t.res"));
  }
  OWNFOLDER m_dir;
};

TEST_F(ResFile, NumbersFindTheirSetAndNothingOutsideIt) {
  RESFILE never;
  VOSTRING out;
  EXPECT_EQ(never.GetAddr(7, NUMSET_Small), 0);  // never opened: nothing
  EXPECT_EQ(never.GetString(7, out), 0);

  RESFILE f;
  ASSERT_EQ(OpenBytes(f, Build(Sample())), 0);
  EXPECT_STREQ(f.GetLanguage(), "enu");
  for (const auto& e : Sample().numbers) EXPECT_EQ(Text(f, e.first), e.second) << e.first;
  // Holes, one below each first id, first id + count, and the extremes.
  for (int id : {-1587, -1589, -1585, 8, 100001, 100003, INT32_MIN, INT32_MAX})
    EXPECT_EQ(Text(f, id), u"<none>") << id;
  // The set is the caller's choice in GetAddr: 7 isn't in the other sets.
  EXPECT_GT(f.GetAddr(7, NUMSET_Small), 0);
  EXPECT_EQ(f.GetAddr(7, NUMSET_Negative), 0);
  EXPECT_EQ(f.GetAddr(7, NUMSET_Large), 0);
  EXPECT_EQ(f.GetAddr(7, static_cast<NUMSET>(3)), 0);
  EXPECT_EQ(f.GetAddr(-1588, NUMSET_Small), 0);
  // A text read twice is read from the file once.
  const long reads = f.GetRecordReads();
  EXPECT_EQ(Text(f, 7), u"seven");
  EXPECT_EQ(f.GetRecordReads(), reads);

  // The sets' borders: -1, 0 and 99999, 100000 each in their own set.
  RESSPEC borders;
  borders.numbers = {{-1, u"minus one"}, {0, u"zero"}, {99999, u"last"}, {100000, u"first"}};
  ASSERT_EQ(OpenBytes(f, Build(borders)), 0);
  for (const auto& e : borders.numbers) EXPECT_EQ(Text(f, e.first), e.second) << e.first;
  EXPECT_GT(f.GetAddr(-1, NUMSET_Negative), 0);
  EXPECT_GT(f.GetAddr(99999, NUMSET_Small), 0);
  EXPECT_GT(f.GetAddr(100000, NUMSET_Large), 0);
  EXPECT_EQ(f.GetAddr(100000, NUMSET_Small), 0);
}

TEST_F(ResFile, NamesAreFoundAsAnOrderedMapFindsThem) {
  std::mt19937 rng(7);
  const std::string alphabet = "aAbBzZ._-09";
  for (int count : {0, 1, 2, 3, 15, 16, 17, 31, 40, 200}) {
    RESSPEC spec;
    std::map<std::string, std::u16string>& names = spec.names[TEXTRES_NAMESET_Label];
    while (static_cast<int>(names.size()) < count) {
      std::string name(1 + rng() % 12, 'a');
      for (char& c : name) c = alphabet[rng() % alphabet.size()];
      names[name] = Utf16("text of " + name);
    }
    if (count == 200) names[std::string(127, 'q')] = u"longest name";
    RESFILE f;
    ASSERT_EQ(OpenBytes(f, Build(spec)), 0);
    for (int round = 0; round < 2; ++round)  // the second through the probe cache
      for (const auto& e : names)
        ASSERT_EQ(Text(f, e.first, TEXTRES_NAMESET_Label), e.second) << count << " " << e.first;
    // Names between, before and after the entries; other sets are empty.
    for (int i = 0; i < 300; ++i) {
      std::string probe(1 + rng() % 13, 'a');
      for (char& c : probe) c = alphabet[rng() % alphabet.size()];
      const bool present = names.count(probe) != 0;
      EXPECT_EQ(f.GetAddr(probe.c_str(), TEXTRES_NAMESET_Label) > 0, present) << probe;
      EXPECT_EQ(f.GetAddr(probe.c_str(), TEXTRES_NAMESET_Text), 0);
    }
    EXPECT_EQ(f.GetAddr("", TEXTRES_NAMESET_Label), 0);
    EXPECT_EQ(f.GetAddr("\x7F\x7F", TEXTRES_NAMESET_Label), 0);
    EXPECT_EQ(f.GetAddr(std::string(128, 'q').c_str(), TEXTRES_NAMESET_Label), 0);
    EXPECT_EQ(f.GetAddr(std::string(4000, 'q').c_str(), TEXTRES_NAMESET_Label), 0);
    EXPECT_EQ(f.GetAddr(nullptr, TEXTRES_NAMESET_Label), 0);
    EXPECT_EQ(f.GetAddr("a", static_cast<TEXTRES_NAMESET>(4)), 0);
  }
  // Case counts, and each set has its own names.
  RESFILE f;
  ASSERT_EQ(OpenBytes(f, Build(Sample())), 0);
  EXPECT_EQ(Text(f, "Open", TEXTRES_NAMESET_Text), u"Open");
  EXPECT_EQ(Text(f, "open", TEXTRES_NAMESET_Text), u"open");
  EXPECT_EQ(Text(f, "OPEN", TEXTRES_NAMESET_Text), u"<none>");
  EXPECT_EQ(Text(f, "Open", TEXTRES_NAMESET_Label), u"Save as");
  EXPECT_EQ(Text(f, "Open", TEXTRES_NAMESET_Help), u"Line one\nline two");
  EXPECT_EQ(Text(f, "Open", TEXTRES_NAMESET_Title), u"<none>");
  char name[RESFILE::kNameMax];
  EXPECT_EQ(f.ReadName(TEXTRES_NAMESET_Text, 2, name), 1);
  EXPECT_STREQ(name, "z.last");
  EXPECT_EQ(f.ReadName(TEXTRES_NAMESET_Text, 3, name), 0);
  EXPECT_STREQ(name, "");
  EXPECT_EQ(f.ReadName(TEXTRES_NAMESET_Text, -1, name), 0);
}

TEST_F(ResFile, RememberedAnswersNeedNoDisk) {
  RESFILE f;
  ASSERT_EQ(OpenBytes(f, Build(Sample())), 0);
  const long open = f.GetAddr("Open", TEXTRES_NAMESET_Label);
  EXPECT_GT(open, 0);
  EXPECT_EQ(f.GetAddr("Nothing", TEXTRES_NAMESET_Label), 0);
  EXPECT_EQ(Text(f, 7), u"seven");
  f.Close();  // from here on the file can't be read
  // The last lookup (a missing name too) is remembered, the names the
  // searches have met are in the probe cache, and a text read once is
  // kept; anything else now finds nothing, and reports nothing.
  EXPECT_EQ(f.GetAddr("Nothing", TEXTRES_NAMESET_Label), 0);
  EXPECT_EQ(f.GetAddr("Open", TEXTRES_NAMESET_Label), open);
  EXPECT_GT(f.GetAddr("Close", TEXTRES_NAMESET_Label), 0);
  EXPECT_EQ(Text(f, "Close", TEXTRES_NAMESET_Label), u"<none>");
  EXPECT_EQ(Text(f, 7), u"seven");
  EXPECT_EQ(Text(f, 0), u"<none>");
  EXPECT_EQ(GetLastErrCode(), 0);
}

// Each field of the header, spoiled alone.
TEST_F(ResFile, HeaderFieldsAreChecked) {
  const Bytes good = Build(Sample());
  RESFILE f;
  ASSERT_EQ(OpenBytes(f, good), 0);
  struct CASE {
    const char* what;
    size_t at;
    int32_t value;
    int rc;
    size_t width = 4;  // or a single byte
  } cases[] = {
      {"pad byte", 31, 0x7A, 0, 1},
      {"reserved", kReserved, -77, 0},
      {"signature", 0, 0x6B72616D, VOERROR_ResourceBad},
      {"the signature's own zero", 30, 'X', VOERROR_ResourceBad, 1},
      {"language of 2 characters", kLanguage + 2, 0, VOERROR_ResourceBad, 1},
      {"language of 4 characters", kLanguage + 3, 'x', VOERROR_ResourceBad, 1},
      {"version", kVersion, 2, VOERROR_ResourceBad},
      {"version 0", kVersion, 0, VOERROR_ResourceBad},
      {"longest 0", kLongest, 0, VOERROR_ResourceBad},
      {"longest above an int16", kLongest, 0x8000, VOERROR_ResourceBad},
      {"longest above the file", kLongest, 0x7FFF, VOERROR_ResourceBad},
      {"longest negative", kLongest, -1, VOERROR_ResourceBad},
      {"numeric sets 2", kNumSets, 2, VOERROR_ResourceBad},
      {"numeric sets 4", kNumSets, 4, VOERROR_ResourceBad},
      {"name sets 3", kNameSets, 3, VOERROR_ResourceBad},
      {"name sets 5", kNameSets, 5, VOERROR_ResourceBad},
  };
  for (const CASE& c : cases) {
    Bytes b = good;
    if (c.width == 1)
      b[c.at] = static_cast<unsigned char>(c.value);
    else
      Put32(b, c.at, c.value);
    EXPECT_EQ(OpenBytes(f, b), c.rc) << c.what;
    EXPECT_EQ(Text(f, 7), c.rc ? u"<none>" : u"seven") << c.what;
  }
  // -1588 is returned, never recorded.
  EXPECT_EQ(GetLastErrCode(), 0);
}

TEST_F(ResFile, TablesMustLieInsideTheFileAndApart) {
  RESSPEC spec = Sample();
  const Bytes good = Build(spec);
  const int32_t size = static_cast<int32_t>(good.size());
  const size_t num1 = kNumHeader + 12 * NUMSET_Small, num0 = kNumHeader;
  const size_t label = kNameHeader + 20 * TEXTRES_NAMESET_Label;
  const size_t text = kNameHeader;
  struct CASE {
    const char* what;
    size_t at;
    int32_t value;
  } cases[] = {
      {"count negative", num1 + 4, -1},
      {"count past the end", num1 + 4, size / 4},
      {"count huge", num1 + 4, INT32_MAX},
      {"table past the end", num1 + 8, size - 4},
      {"table in the header", num1 + 8, 100},
      {"table negative", num1 + 8, -8},
      {"set 1 below 0", num1, -1},
      {"set 1 above 99999", num1, 99995},
      {"set 0 reaching 0", num0, -1},
      {"set 2 below 100000", kNumHeader + 24, 99999},
      {"name count negative", label, -1},
      {"name count past the end", label, size},
      {"block past the end", label + 8, size - 2},
      {"block longer than 128 per name", label + 4, 128 * 2 + 1},
      {"block shorter than a byte per name", label + 4, 1},
      {"offsets past the end", label + 12, size},
      {"texts past the end", label + 16, size - 4},
      {"offsets over the texts", label + 12, Get32(good, label + 16)},
      {"texts over another set's block", label + 16, Get32(good, text + 8)},
      {"block over a numeric table", label + 8, Get32(good, num1 + 8)},
  };
  RESFILE f;
  for (const CASE& c : cases) {
    Bytes b = good;
    Put32(b, c.at, c.value);
    EXPECT_EQ(OpenBytes(f, b), VOERROR_ResourceBad) << c.what;
  }
  // Table entries: a text address past the end, a name offset that goes
  // back, one that makes a name longer than 128 bytes.
  Bytes b = good;
  Put32(b, static_cast<size_t>(Get32(good, num1 + 8)), size - 3);
  EXPECT_EQ(OpenBytes(f, b), VOERROR_ResourceBad) << "address past the end";
  b = good;
  Put32(b, static_cast<size_t>(Get32(good, label + 16)), size);
  EXPECT_EQ(OpenBytes(f, b), VOERROR_ResourceBad) << "name's address past the end";
  b = good;
  Put32(b, static_cast<size_t>(Get32(good, label + 12)) + 4, 0);
  EXPECT_EQ(OpenBytes(f, b), VOERROR_ResourceBad) << "two names at one offset";
  RESSPEC longName = spec;
  longName.names[TEXTRES_NAMESET_Title][std::string(128, 'n')] = u"too long";
  EXPECT_EQ(OpenBytes(f, Build(longName)), VOERROR_ResourceBad) << "a name of 129 bytes";
  // A count of 0 makes the rest of a set's header unread.
  b = good;
  Put32(b, num1 + 4, 0);
  Put32(b, num1 + 8, -5);
  Put32(b, num1, -77);
  EXPECT_EQ(OpenBytes(f, b), 0);
  EXPECT_EQ(Text(f, 7), u"<none>");
  EXPECT_EQ(Text(f, 100000), u"first large");
}

// A file cut at every length: the stream's code before the first 36 bytes
// are in (a short read), -1588 while a table or an address lies past the
// end; from there on the file opens, and a text is found exactly when its
// record is whole.
TEST_F(ResFile, EveryTruncationIsRefusedOrReadWithinIt) {
  const RESSPEC spec = Sample();
  const Bytes good = Build(spec);
  RESFILE whole;
  ASSERT_EQ(OpenBytes(whole, good), 0);
  size_t opensFrom = 0;  // every address must leave room for the shortest record
  for (const auto& e : spec.numbers)
    opensFrom = std::max<size_t>(opensFrom, whole.GetAddr(e.first, SetOf(e.first)) + 4);
  for (int s = 0; s < 4; ++s)
    for (const auto& e : spec.names[s])
      opensFrom = std::max<size_t>(
          opensFrom, whole.GetAddr(e.first.c_str(), static_cast<TEXTRES_NAMESET>(s)) + 4);
  RESFILE f;
  for (size_t n = 0; n < good.size(); ++n) {
    const Bytes cut(good.begin(), good.begin() + static_cast<long>(n));
    const int rc = OpenBytes(f, cut);
    if (n < opensFrom) {
      EXPECT_EQ(rc, n < 36 ? VOERROR_ShortRead : VOERROR_ResourceBad) << n;
      EXPECT_EQ(Text(f, 7), u"<none>");
      continue;
    }
    ASSERT_EQ(rc, 0) << n;
    for (const auto& e : spec.numbers) {
      const size_t end =
          static_cast<size_t>(whole.GetAddr(e.first, SetOf(e.first))) + 4 + 2 * e.second.size();
      EXPECT_EQ(Text(f, e.first), end <= n ? e.second : u"<none>") << n << " " << e.first;
    }
  }
}

// Any byte of a valid file changed: Open either refuses the file or gives
// lookups that stay inside it (the sanitizers watch). The lookups' answers
// are the file's affair.
TEST_F(ResFile, ChangedBytesNeverLeadOutside) {
  const RESSPEC spec = Sample();
  const Bytes good = Build(spec);
  int opened = 0;
  for (size_t i = 0; i < good.size(); ++i) {
    for (unsigned char value : {0x00, 0x7F, 0x80, 0xFF}) {
      Bytes b = good;
      if (b[i] == value) continue;
      b[i] = value;
      RESFILE f;
      const int rc = OpenBytes(f, b);
      ASSERT_TRUE(rc == 0 || rc == VOERROR_ResourceBad) << i << " " << rc;
      if (rc) continue;
      ++opened;
      for (int id : {-1588, -1586, 0, 7, 99999, 100000, 123456}) Text(f, id);
      for (int s = 0; s < 4; ++s)
        for (const char* name : {"Open", "open", "Close", "Main", "z.last", "zzz"})
          Text(f, name, static_cast<TEXTRES_NAMESET>(s));
      XRESLOADER loader([](void*, const char*) {}, nullptr);
      EXPECT_GE(f.LoadX(loader), 0);
    }
  }
  EXPECT_GT(opened, 0);
}

TEST_F(ResFile, RecordsAreCheckedWhenRead) {
  RESSPEC spec;
  spec.numbers = {{1, u"a"}, {2, u"bb"}, {3, u"ccc"}, {4, u"line\nfeed"}, {5, u""}};
  const Bytes good = Build(spec);
  const size_t table = static_cast<size_t>(Get32(good, kNumHeader + 12 + 8));
  auto record = [&](int id) { return static_cast<size_t>(Get32(good, table + 4 * (id - 1))); };
  RESFILE f;
  ASSERT_EQ(OpenBytes(f, good), 0);
  EXPECT_EQ(Text(f, 4), u"line\nfeed");
  EXPECT_EQ(Text(f, 5), u"");
  // The longest-text field smaller than a record: that record gives no text.
  Bytes b = good;
  Put32(b, kLongest, 3);
  ASSERT_EQ(OpenBytes(f, b), 0);
  EXPECT_EQ(Text(f, 2), u"bb");
  EXPECT_EQ(Text(f, 3), u"<none>");
  EXPECT_EQ(Text(f, 4), u"<none>");
  // A length of 0, a negative one, a last unit that isn't zero.
  b = good;
  b[record(1)] = 0;
  b[record(2)] = 0xFF;
  b[record(2) + 1] = 0xFF;
  b[record(3) + 2 + 2 * 3] = 'x';
  ASSERT_EQ(OpenBytes(f, b), 0);
  EXPECT_EQ(Text(f, 1), u"<none>");
  EXPECT_EQ(Text(f, 2), u"<none>");
  EXPECT_EQ(Text(f, 3), u"<none>");
  EXPECT_EQ(Text(f, 4), u"line\nfeed");
  // A record running past the end of the file.
  b = good;
  b.resize(record(5) + 3);
  Put32(b, table + 4 * 4, static_cast<int32_t>(b.size() - 4));
  b[b.size() - 4] = 2;  // 2 units wanted, 1 in the file
  b[b.size() - 3] = 0;
  ASSERT_EQ(OpenBytes(f, b), 0);
  EXPECT_EQ(Text(f, 5), u"<none>");
  VOSTRING out("kept");
  EXPECT_EQ(f.ReadText(-4, out), 0);
  EXPECT_EQ(f.ReadText(1, out), 0);
  EXPECT_EQ(f.ReadText(static_cast<long>(b.size()), out), 0);
  EXPECT_EQ(U8(out), "kept");
  EXPECT_EQ(GetLastErrCode(), 0);
}

TEST_F(ResFile, LoadXGivesLabelsThenTitlesInFileOrder) {
  RESSPEC spec = Sample();
  spec.names[TEXTRES_NAMESET_Label]["Accent"] = u"Caf\u00E9";
  RESFILE f;
  ASSERT_EQ(OpenBytes(f, Build(spec)), 0);
  std::vector<std::string> lines;
  XRESLOADER loader(
      [](void* user, const char* line) {
        static_cast<std::vector<std::string>*>(user)->push_back(line);
      },
      &lines);
  EXPECT_EQ(f.LoadX(loader), 0);
  // The accented text as the "X-Resfile" encoding writes it.
  void* conv = nullptr;
  ASSERT_EQ(MucInitConversion(&conv, "X-Resfile", 0), 0);
  char* cafe = nullptr;
  ASSERT_GE(MucConvertFromUnicode(conv, VOSTRING(u"Caf\u00E9"), &cafe), 0);
  MucStopConversion(conv);
  const std::vector<std::string> expected = {
      "*Accent.labelString: " + std::string(cafe), "*Close.labelString: Close it",
      "*Open.labelString: Save as", "*Main_popup.title: Main window"};
  free(cafe);
  EXPECT_EQ(lines, expected);
  lines.clear();
  EXPECT_EQ(loader.PutLine("n", "", nullptr), 0);
  EXPECT_EQ(lines, std::vector<std::string>{"*n: "});
}

#ifdef VOSYS_PYTHON
std::string Compile(const std::string& source, const std::string& output) {
  const std::string cmd = std::string("\"") + VOSYS_PYTHON + "\" \"" + VOSYS_SOURCE_DIR +
                          "/tools/mkresfile.py\" \"" + source + "\" \"" + output +
                          "\" 2>compile.err";
  const int rc = system(cmd.c_str());
  std::ifstream err("compile.err");
  std::stringstream text;
  text << err.rdbuf();
  return rc == 0 ? "" : "failed: " + text.str();
}

// The compiler's file read back entry by entry as the source says, in all
// four sets, with holes, escapes, quotes and shared records.
TEST_F(ResFile, CompiledSourcesReadBackAsWritten) {
  std::ofstream(m_dir / "xyz.txt") << "# comment\n\n"
                                      "-5\tminus five\n-3\t\t\ttabs before\n"
                                      "12\t\"  blanks kept  \"\n13\tquote \\\" and \\\\ and \\t\n"
                                      "14\tline\\nfeed \\u00e9\\u20AC \xE2\x82\xAC\n"
                                      "100000\tlarge\n200000\tlarger\n"
                                      "a.b\tsame text\ntext:A.b\tsame text\n"
                                      "label:Open\tSave as\ntitle:Main\tMain window\n"
                                      "help:Open\t\"\\\"quoted\\\"\"\n";
  ASSERT_EQ(Compile(m_dir / "xyz.txt", m_dir / "textres.xyz"), "");
  const SOURCE src = ReadSource(m_dir / "xyz.txt");
  RESFILE f;
  ASSERT_EQ(f.Open(PathOf(m_dir / "textres.xyz")), 0);
  EXPECT_STREQ(f.GetLanguage(), "xyz");
  for (const auto& e : src.numbers) EXPECT_EQ(Text(f, e.first), e.second) << e.first;
  for (int s = 0; s < 4; ++s)
    for (const auto& e : src.names[s])
      EXPECT_EQ(Text(f, e.first, static_cast<TEXTRES_NAMESET>(s)), e.second) << e.first;
  EXPECT_EQ(Text(f, 12), u"  blanks kept  ");
  EXPECT_EQ(Text(f, 14), u"line\nfeed \u00E9\u20AC \u20AC");
  EXPECT_EQ(Text(f, "Open", TEXTRES_NAMESET_Help), u"\"quoted\"");
  EXPECT_EQ(Text(f, -4), u"<none>");
  EXPECT_EQ(f.GetAddr("a.b", TEXTRES_NAMESET_Text), f.GetAddr("A.b", TEXTRES_NAMESET_Text));

  // Sources the compiler refuses.
  for (const char* bad :
       {"7\tone\n7\ttwo\n", "n\tone\nn\ttwo\n", "0\tzero\n", "7 no tab\n", "7\t\\q\n",
        "7\t\"open\n", "7\t\\u12\n", "7\t\\u0000\n", "99999999999\tx\n"}) {
    std::ofstream(m_dir / "bad.txt") << bad;
    EXPECT_NE(Compile(m_dir / "bad.txt", m_dir / "bad.res"), "") << bad;
  }
  std::ofstream(m_dir / "bad.txt") << std::string(128, 'n') << "\tname too long\n";
  EXPECT_NE(Compile(m_dir / "bad.txt", m_dir / "bad.res"), "");
}
#endif

}  // namespace
