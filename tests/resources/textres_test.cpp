// The resource manager, text items and the texts of the library.
//
// TEXTRES::Initialize acts once per process, and every test here runs in a
// process of its own: each sets up its folder (its current and home folder,
// where the settings and any resource files of the test lie) and then
// initialises. The compiled "textres.enu" and "textres.fra" come from the
// build's data folder; their sources in data/textres are the oracle.
#include "vosystem/textres.h"

#include <regex>

#include "res_test_util.h"
#include "test_util.h"
#include "vosystem/errors.h"
#include "vosystem/filepath.h"
#include "vosystem/fileraw.h"
#include "vosystem/memfunc.h"
#include "vosystem/ucconv.h"
#include "vosystem/xml.h"

using namespace restest;

namespace {

const std::string kSources = std::string(VOSYS_SOURCE_DIR) + "/data/textres/";

std::string Narrow(const unsigned short* text) {
  return U8(VOSTRING(text));
}

std::string TakeUC(unsigned short* text) {
  if (!text) return "<null>";
  std::string s = Narrow(text);
  free(text);
  return s;
}

// The lines LoadX gives.
std::vector<std::string> XLines() {
  std::vector<std::string> lines;
  EXPECT_EQ(TEXTRES::LoadX(
                [](void* user, const char* line) {
                  static_cast<std::vector<std::string>*>(user)->push_back(line);
                },
                &lines),
            0);
  return lines;
}

// Every text of a source by number and by name; where a second source is
// given, its entries stand before those of the first.
void ExpectTexts(const SOURCE& english, const SOURCE* language = nullptr) {
  std::map<int, std::u16string> numbers = english.numbers;
  if (language)
    for (const auto& e : language->numbers) numbers[e.first] = e.second;
  for (const auto& e : numbers) {
    EXPECT_EQ(U16(TEXTRES::GetString(e.first)), e.second) << e.first;
    EXPECT_EQ(U16(VOSTRING(static_cast<TEXTID>(e.first))), e.second) << e.first;
  }
  for (int s = 0; s < 4; ++s) {
    std::map<std::string, std::u16string> names = english.names[s];
    if (language)
      for (const auto& e : language->names[s]) names[e.first] = e.second;
    const auto set = static_cast<TEXTRES_NAMESET>(s);
    for (const auto& e : names) {
      EXPECT_EQ(TEXTRES::HasEntry(e.first.c_str(), set), 1) << e.first;
      EXPECT_EQ(U16(TEXTRES::GetString(e.first.c_str(), set)), e.second) << e.first;
      EXPECT_EQ(U16(TEXTRES::GetString(e.first.c_str(), set)), e.second) << e.first;  // remembered
    }
  }
}

// The numbers of the codes in errors.h.
std::vector<int> ErrorCodes() {
  std::ifstream header(std::string(VOSYS_SOURCE_DIR) + "/include/vosystem/errors.h");
  std::stringstream text;
  text << header.rdbuf();
  const std::string s = text.str();
  std::vector<int> codes;
  const std::regex code("VOERROR_\\w+ = (-\\d+)");
  for (auto it = std::sregex_iterator(s.begin(), s.end(), code); it != std::sregex_iterator(); ++it)
    codes.push_back(std::stoi((*it)[1]));
  return codes;
}

RESSPEC English() {
  RESSPEC s;
  s.language = "enu";
  s.numbers = {{-1588, u"Bad file (enu)"},
               {7, u"seven (enu)"},
               {8, u"eight (enu)"},
               {100000, u"large (enu)"}};
  s.names[TEXTRES_NAMESET_Text] = {{"both", u"both (enu)"}, {"only.enu", u"only (enu)"}};
  s.names[TEXTRES_NAMESET_Label] = {{"Open", u"Open (enu)"}, {"Close", u"Close (enu)"}};
  s.names[TEXTRES_NAMESET_Title] = {{"Main", u"Main (enu)"}};
  s.names[TEXTRES_NAMESET_Help] = {{"Open", u"Help (enu)"}};
  return s;
}

RESSPEC Other() {
  RESSPEC s;
  s.language = "xyz";
  s.numbers = {{7, u"seven (xyz)"}, {-1, u"minus one (xyz)"}};
  s.names[TEXTRES_NAMESET_Text] = {{"both", u"both (xyz)"}};
  s.names[TEXTRES_NAMESET_Label] = {{"Open", u"Open (xyz)"}};
  return s;
}

TEST(TextRes, BeforeInitializeOnlyTheFallbacksAnswer) {
  OWNFOLDER dir;
  EXPECT_EQ(U8(TEXTRES::GetString(-1588)), "Unknown error code (-1588)");
  EXPECT_EQ(U8(TEXTRES::GetString(INT32_MIN)), "Unknown error code (-2147483648)");
  EXPECT_TRUE(TEXTRES::GetString(12).IsEmpty());
  EXPECT_TRUE(TEXTRES::GetString(0).IsEmpty());
  EXPECT_EQ(U8(TEXTRES::GetString("x", TEXTRES_NAMESET_Text)), "Unknown text 'x'");
  EXPECT_EQ(U8(TEXTRES::GetString("x", TEXTRES_NAMESET_Label)), "Unknown label text 'x'");
  EXPECT_EQ(U8(TEXTRES::GetString("x", TEXTRES_NAMESET_Title)), "Unknown title text 'x'");
  EXPECT_EQ(U8(TEXTRES::GetString("x", TEXTRES_NAMESET_Help)), "Unknown help text 'x'");
  EXPECT_EQ(U8(TEXTRES::GetString("caf\xC3\xA9", TEXTRES_NAMESET_Help, true)), "caf\xC3\xA9");
  EXPECT_TRUE(TEXTRES::GetString("", TEXTRES_NAMESET_Text).IsEmpty());
  EXPECT_TRUE(TEXTRES::GetString(nullptr, TEXTRES_NAMESET_Text).IsEmpty());
  EXPECT_EQ(TEXTRES::HasEntry("x", TEXTRES_NAMESET_Text), 0);
  EXPECT_TRUE(XLines().empty());

  // The flat functions and the VOSTRING members, a null group as "generic".
  EXPECT_EQ(MtTextGetStringExtUC(nullptr, "ok", 1), nullptr);
  EXPECT_EQ(TakeUC(MtTextGetStringUC(nullptr, "ok")), "Unknown text 'generic.ok'");
  EXPECT_EQ(U8(VOSTRING(nullptr, "ok")), "Unknown text 'generic.ok'");
  EXPECT_EQ(U8(VOSTRING("grp", "key")), "Unknown text 'grp.key'");
  const std::string longKey(130, 'k');
  EXPECT_EQ(MtTextGetStringExtUC("g", longKey.c_str(), 1), nullptr);
  EXPECT_EQ(TakeUC(MtTextGetStringUC("g", longKey.c_str())), "Unknown text 'g." + longKey + "'");
  EXPECT_EQ(U8(VOSTRING("g", longKey.c_str())), "Unknown text 'g." + longKey + "'");
  EXPECT_EQ(U8(VOSTRING(static_cast<TEXTID>(-5))), "Unknown error code (-5)");
  unsigned short* desc = MucNameToDescUC("KOI-8");  // the name stands in
  EXPECT_EQ(TakeUC(desc), "KOI-8");

  // Items: nothing to resolve, so only literal items are valid.
  EXPECT_FALSE(TEXTRESITEM(static_cast<TEXTID>(7)).IsValid());
  EXPECT_FALSE(TEXTRESITEM("x", TEXTRES_NAMESET_Text).IsValid());
  const TEXTRESITEM literal(VOSTRING("Save"));
  EXPECT_TRUE(literal.IsValid());
  EXPECT_EQ(U8(literal.GetString()), "Save");
  EXPECT_TRUE(TEXTRESITEM().IsEqual(TEXTRESITEM(VOSTRING())));  // both texts are empty
  EXPECT_TRUE(TEXTRESITEM().GetString().IsEmpty());

  // ValidateFile: the stream's failure (recorded), or -1588 (not recorded).
  EXPECT_EQ(
      TEXTRES::ValidateFile(PathOf(std::string(VOSYS_BINARY_DIR) + "/share/vosystem/textres.enu")),
      0);
  EXPECT_EQ(TEXTRES::ValidateFile(PathOf(dir / "missing")), VOERROR_FileNotFound);
  EXPECT_EQ(GetLastErrCode(), VOERROR_FileNotFound);
  ClearLastErr();
  Bytes bad = Build(English());
  bad[0] = 'l';
  WriteFile(dir / "bad.res", bad);
  EXPECT_EQ(TEXTRES::ValidateFile(PathOf(dir / "bad.res")), VOERROR_ResourceBad);
  EXPECT_EQ(GetLastErrCode(), 0);
}

TEST(TextRes, EveryEnglishTextReadsBackAsItsSourceSays) {
  OWNFOLDER dir;
  ASSERT_EQ(TEXTRES::Initialize(), 1);
  EXPECT_EQ(TEXTRES::Initialize(), 1);
  const SOURCE english = ReadSource(kSources + "enu.txt");
  ASSERT_GE(english.numbers.size(), 58u);
  ExpectTexts(english);
  EXPECT_TRUE(TEXTRES::GetString(0).IsEmpty());
  EXPECT_TRUE(TEXTRES::GetString(12).IsEmpty());
  EXPECT_EQ(U8(TEXTRES::GetString(-5)), "Unknown error code (-5)");

  // Every code the library raises has its message, whose first line is a
  // summary; every encoding its name.
  for (int code : ErrorCodes()) {
    ASSERT_TRUE(english.numbers.count(code)) << code;
    EXPECT_NE(Narrow(GetErrStrLine1UC(code, nullptr)), "") << code;
  }
  EXPECT_GE(ErrorCodes().size(), 43u);  // the header was read
  ASSERT_EQ(MucGetNumEncodings(0), 67);
  for (int row = 0; row < 67; ++row) {
    const std::string name = MucGetEncodingStr(row);
    const auto it = english.names[0].find("text-encoding." + name);
    ASSERT_NE(it, english.names[0].end()) << name;
    EXPECT_EQ(Utf16(TakeUC(MucNameToDescUC(name.c_str()))), it->second);
  }
  EXPECT_EQ(TakeUC(MucNameToDescUC("NoSuchEncoding")), "NoSuchEncoding");
  char* narrow = MucNumToDesc(16, 0);
  EXPECT_STREQ(narrow, "Cyrillic (KOI8-R)");
  free(narrow);

  // The words for yes and no in their three cases.
  VOSTRING words;
  words << true << " " << false << STR_BOOL_TITLE << " " << true << " " << false << STR_BOOL_UPPER
        << " " << true << " " << false;
  EXPECT_EQ(U8(words), "yes no Yes No YES NO");

  // The flat functions and the VOSTRING members.
  EXPECT_EQ(TakeUC(MtTextGetStringExtUC("text-encoding", "UTF8", 1)), "Unicode (UTF-8)");
  EXPECT_EQ(TakeUC(MtTextGetStringUC("text-encoding", "UTF8")), "Unicode (UTF-8)");
  EXPECT_EQ(U8(VOSTRING("text-encoding", "Unicode (UTF8)")), "Unicode (UTF-8)");
  EXPECT_EQ(U8(VOSTRING(nullptr, "Process")), "the process");
  VOSTRING assigned("old");
  assigned = static_cast<TEXTID>(1703);
  EXPECT_EQ(U8(assigned), "minutes");
  VOSTRING filled("$1 = %s");
  filled << static_cast<TEXTID>(9501) << static_cast<TEXTID>(1704);
  EXPECT_EQ(U8(filled), "hour = Yes");
}

// Failures of the library read as words, their values in their places.
TEST(TextRes, FailuresReadAsWordsWithTheirValues) {
  OWNFOLDER dir;
  ASSERT_EQ(TEXTRES::Initialize(), 1);
  const std::string missing = dir / "missing.tif";
  FILE_RAW file;
  ASSERT_EQ(file.Open(PathOf(missing), FILE_ACCESS_Read, FILE_SHARE_All), VOERROR_FileNotFound);
  std::string text = Narrow(GetErrStrUC(VOERROR_FileNotFound, nullptr));
  EXPECT_EQ(text.rfind("File not found:\n" + missing + "\nError code = -1102\nModule: ", 0), 0u)
      << text;
  EXPECT_NE(text.find("\nSystem Error Code = 2"), std::string::npos) << text;
  EXPECT_EQ(Narrow(GetErrStrLine1UC(VOERROR_FileNotFound, nullptr)), "File not found");

  // A short read: the values pushed fill the "%d" slots, the file its "$1".
  std::ofstream(dir / "four") << "1234";
  ASSERT_EQ(file.Open(PathOf(dir / "four"), FILE_ACCESS_Read, FILE_SHARE_All), 0);
  char buffer[10];
  EXPECT_EQ(file.Read(buffer, 10, false), VOERROR_ShortRead);
  text = Narrow(GetErrStrUC(VOERROR_ShortRead, nullptr));
  EXPECT_EQ(text.rfind("The file ended before the read was complete:\n" + (dir / "four") +
                           "\n10 bytes were asked for, 4 were read.\nError code = -1122",
                       0),
            0u)
      << text;
  // A message with no slot for the file: the stream adds its lead-in.
  EXPECT_EQ(file.Seek(-5, GENERICRW::SEEKFROM_Start), VOERROR_InvalidArgument);
  text = Narrow(GetErrStrUC(VOERROR_InvalidArgument, nullptr));
  EXPECT_EQ(text.rfind("Invalid argument.\nError code = -1213", 0), 0u) << text;
  EXPECT_NE(text.find("\nFile: '" + (dir / "four") + "'"), std::string::npos) << text;
  EXPECT_NE(text.find("\nSystem Error Code = 22"), std::string::npos) << text;
  // An allocation too large, with the size asked for.
  void* block = nullptr;
  EXPECT_EQ(MmAlloc(&block, 1ul << 41), VOERROR_OutOfMemory);
  EXPECT_EQ(Narrow(GetErrStrLine1UC(VOERROR_OutOfMemory, nullptr)),
            "Out of memory: 2199023255552 bytes were asked for.");
}

TEST(TextRes, FrenchTextsFallBackToEnglishEntryByEntry) {
  OWNFOLDER dir;
  dir.SetLanguage("fra");
  ASSERT_EQ(TEXTRES::Initialize(), 1);
  const SOURCE english = ReadSource(kSources + "enu.txt");
  const SOURCE french = ReadSource(kSources + "fra.txt");
  EXPECT_GE(french.numbers.size(), 20u + 15u);  // the most frequent messages and the words
  ExpectTexts(english, &french);
  VOSTRING words;
  words << true << STR_BOOL_TITLE << false << STR_BOOL_UPPER << true;
  EXPECT_EQ(U8(words), "ouiNonOUI");
  EXPECT_EQ(TakeUC(MucNameToDescUC("KOI-8")), "Cyrillic (KOI8-R)");  // from English

  FILE_RAW file;
  ASSERT_EQ(file.Open(PathOf(dir / "absent"), FILE_ACCESS_Read, FILE_SHARE_All),
            VOERROR_FileNotFound);
  const std::string text = Narrow(GetErrStrUC(VOERROR_FileNotFound, nullptr));
  EXPECT_EQ(text.rfind("Fichier introuvable :\n" + (dir / "absent") + "\nError code", 0), 0u)
      << text;
  EXPECT_NE(text.find("\nCode d'erreur du syst\xC3\xA8me = 2"), std::string::npos) << text;
}

// "ENU" names English, so no second file is looked for: a file that the
// search would find under that name stays closed.
TEST(TextRes, LanguageEnuInAnyCaseOpensNoSecondFile) {
  OWNFOLDER dir;
  dir.SetLanguage("ENU");
  WriteFile(dir / "textres.ENU", Build(Other()));
  ASSERT_EQ(TEXTRES::Initialize(), 1);
  EXPECT_EQ(U8(TEXTRES::GetString(9501)), "Yes");
  EXPECT_EQ(U8(TEXTRES::GetString(-1)), "Unknown error code (-1)");
}

// Files of the test's own, found in the current folder before the data
// folder: "textres.enu" and the language "xyz".
TEST(TextRes, TheNewestFileIsAskedFirst) {
  OWNFOLDER dir;
  dir.SetLanguage("xyz");
  WriteFile(dir / "textres.enu", Build(English()));
  WriteFile(dir / "textres.xyz", Build(Other()));
  ASSERT_EQ(TEXTRES::Initialize(), 1);
  for (const auto& [id, text] : std::map<int, std::string>{{7, "seven (xyz)"},
                                                           {8, "eight (enu)"},
                                                           {-1, "minus one (xyz)"},
                                                           {-1588, "Bad file (enu)"},
                                                           {-1587, "Unknown error code (-1587)"}})
    EXPECT_EQ(U8(TEXTRES::GetString(id)), text) << id;
  EXPECT_TRUE(TEXTRES::GetString(9).IsEmpty());
  EXPECT_EQ(U8(TEXTRES::GetString("both", TEXTRES_NAMESET_Text)), "both (xyz)");
  EXPECT_EQ(U8(TEXTRES::GetString("only.enu", TEXTRES_NAMESET_Text)), "only (enu)");
  EXPECT_EQ(U8(TEXTRES::GetString("Open", TEXTRES_NAMESET_Help)), "Help (enu)");
  EXPECT_EQ(U8(TEXTRES::GetString("nothing", TEXTRES_NAMESET_Title, true)), "nothing");
  EXPECT_EQ(TEXTRES::HasEntry("nothing", TEXTRES_NAMESET_Title), 0);
  EXPECT_EQ(TEXTRES::HasEntry("Main", TEXTRES_NAMESET_Title), 1);
  EXPECT_EQ(TEXTRES::HasEntry("Main", TEXTRES_NAMESET_Label), 0);

  // The file opened first goes first; a label already read comes again
  // from the memory of texts by name, in byte order.
  EXPECT_EQ(U8(TEXTRES::GetString("Open", TEXTRES_NAMESET_Label)), "Open (xyz)");
  EXPECT_EQ(XLines(), (std::vector<std::string>{
                          "*Close.labelString: Close (enu)", "*Open.labelString: Open (enu)",
                          "*Main_popup.title: Main (enu)", "*Open.labelString: Open (xyz)",
                          "*Open.labelString: Open (xyz)"}));

  // Items resolve numbers among 0 to 99999 only.
  const TEXTRESITEM seven(static_cast<TEXTID>(7));
  EXPECT_TRUE(seven.IsValid());
  EXPECT_EQ(U8(seven.GetString()), "seven (xyz)");
  EXPECT_FALSE(TEXTRESITEM(static_cast<TEXTID>(-1588)).IsValid());
  EXPECT_FALSE(TEXTRESITEM(static_cast<TEXTID>(100000)).IsValid());
  EXPECT_EQ(U8(TEXTRES::GetString(100000)), "large (enu)");
  EXPECT_FALSE(TEXTRESITEM(static_cast<TEXTID>(9)).IsValid());
  // Copies share the body, and with it the text once read.
  TEXTRESITEM close("Close", TEXTRES_NAMESET_Label);
  TEXTRESITEM copy(close);
  EXPECT_EQ(U8(copy.GetString()), "Close (enu)");
  EXPECT_EQ(&copy.GetString(), &close.GetString());
  TEXTRESITEM& alias = copy;
  copy = alias;
  EXPECT_EQ(&copy.GetString(), &close.GetString());
  TEXTRESITEM other;
  EXPECT_TRUE(other.Assign("only.enu", TEXTRES_NAMESET_Text));
  EXPECT_EQ(U8(other.GetString()), "only (enu)");
  EXPECT_FALSE(other.Assign("nothing", TEXTRES_NAMESET_Text));
  EXPECT_TRUE(other.GetString().IsEmpty());
  other = "both";
  EXPECT_EQ(U8(other.GetString()), "both (xyz)");
  other = static_cast<TEXTID>(8);
  EXPECT_EQ(U8(other.GetString()), "eight (enu)");
  other = VOSTRING("Save");
  EXPECT_EQ(U8(other.GetString()), "Save");
  other = close;
  EXPECT_TRUE(other.IsEqual(close));
  EXPECT_TRUE(TEXTRESITEM(VOSTRING("a")) < TEXTRESITEM(VOSTRING("b")));
  EXPECT_FALSE(TEXTRESITEM(VOSTRING("b")) < TEXTRESITEM(VOSTRING("a")));
}

// XML override files stand before every resource file, the later before
// the earlier, for lookups by name only.
TEST(TextRes, XmlOverridesStandBeforeEveryFile) {
  OWNFOLDER dir;
  WriteFile(dir / "textres.enu", Build(English()));
  ASSERT_EQ(TEXTRES::Initialize(), 1);
  std::ofstream(dir / "one.xml")
      << "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<textres>\n"
         "  <text name=\"both\" label=\"Open\">Over\xC2\x85ride</text>\n"
         "  <message title=\"Main\" help=\"Open\" name=\"7\">  M\xC3\xA9ssage  </message>\n"
         "  <Message name=\"skipped\">case counts</Message>\n"
         "  <item name=\"skipped\">other elements</item>\n"
         "  <text>no attribute</text><text other=\"x\">other attribute</text>\n"
         "  <!-- a comment --><?text a processing instruction?>\n"
         "  <text name=\"only.xml\" label=\"Zeta\">first</text>\n"
         "</textres>\n";
  std::ofstream(dir / "two.xml") << "<textres><text name=\"only.xml\">second</text></textres>";
  const TEXTRESITEM before("both", TEXTRES_NAMESET_Text);
  ASSERT_EQ(TEXTRES::AddFile(PathOf(dir / "one.xml")), 0);
  EXPECT_EQ(U8(TEXTRES::GetString("both", TEXTRES_NAMESET_Text)), "Over\nride");
  EXPECT_EQ(U8(TEXTRES::GetString("Open", TEXTRES_NAMESET_Label)), "Over\nride");
  EXPECT_EQ(U8(TEXTRES::GetString("Main", TEXTRES_NAMESET_Title)), "M\xC3\xA9ssage");
  EXPECT_EQ(U8(TEXTRES::GetString("Open", TEXTRES_NAMESET_Help)), "M\xC3\xA9ssage");
  EXPECT_EQ(U8(TEXTRES::GetString("7", TEXTRES_NAMESET_Text)), "M\xC3\xA9ssage");
  EXPECT_EQ(U8(TEXTRES::GetString(7)), "seven (enu)");  // numbers don't see the maps
  EXPECT_EQ(TEXTRES::HasEntry("skipped", TEXTRES_NAMESET_Text), 0);
  EXPECT_EQ(U8(TEXTRES::GetString("only.enu", TEXTRES_NAMESET_Text)), "only (enu)");
  // Items: a name of an override file makes a literal item, which keeps its
  // text; one made before still reads its file.
  TEXTRESITEM item("only.xml", TEXTRES_NAMESET_Text);
  EXPECT_EQ(U8(item.GetString()), "first");
  EXPECT_EQ(U8(before.GetString()), "both (enu)");
  ASSERT_EQ(TEXTRES::AddFile(PathOf(dir / "two.xml")), 0);
  EXPECT_EQ(U8(TEXTRES::GetString("only.xml", TEXTRES_NAMESET_Text)), "second");
  EXPECT_EQ(U8(item.GetString()), "first");
  EXPECT_EQ(U8(TEXTRESITEM("only.xml", TEXTRES_NAMESET_Text).GetString()), "second");
  // LoadX: the files' labels and titles, then those of the maps.
  EXPECT_EQ(XLines(),
            (std::vector<std::string>{
                "*Close.labelString: Close (enu)", "*Open.labelString: Open (enu)",
                "*Main_popup.title: Main (enu)", "*Open.labelString: Over\nride",
                "*Zeta.labelString: first", "*Main_popup.title: M\xE9ssage"}));  // Latin-1

  // Files that can't be added, and what each leaves on record.
  EXPECT_EQ(TEXTRES::AddFile(PathOf(dir / "none.xml")), VOERROR_FileNotFound);
  std::ofstream(dir / "root.xml") << "<resources><text name=\"both\">no</text></resources>";
  EXPECT_EQ(TEXTRES::AddFile(PathOf(dir / "root.xml")), VOERROR_ResourceNotAdded);
  EXPECT_EQ(GetLastErrCode(), VOERROR_ResourceNotAdded);
  EXPECT_NE(Narrow(GetErrStrUC(VOERROR_ResourceNotAdded, nullptr)).find(dir / "root.xml"),
            std::string::npos);
  std::ofstream(dir / "broken.xml") << "<textres><text name=\"both\">no</textres>";
  EXPECT_EQ(TEXTRES::AddFile(PathOf(dir / "broken.xml")), VOERROR_XmlUnreadable);
  // Entities that grow tenfold at each of seven levels.
  std::string laughs = "<?xml version=\"1.0\"?><!DOCTYPE textres [<!ENTITY a \"aaaaaaaaaa\">";
  for (char e = 'b'; e <= 'h'; ++e) {
    std::string ten;
    for (int i = 0; i < 10; ++i) ten += std::string("&") + char(e - 1) + ";";
    laughs += e == 'h' ? "]><textres><text name=\"both\">" + ten + "</text></textres>"
                       : std::string("<!ENTITY ") + e + " \"" + ten + "\">";
  }
  std::ofstream(dir / "laughs.xml") << laughs;
  EXPECT_EQ(TEXTRES::AddFile(PathOf(dir / "laughs.xml")), VOERROR_XmlUnreadable);
  std::ofstream(dir / "big.xml");
  std::filesystem::resize_file(dir / "big.xml", (16 << 20) + 1);
  EXPECT_EQ(TEXTRES::AddFile(PathOf(dir / "big.xml")), VOERROR_ResourceNotAdded);
  EXPECT_EQ(U8(TEXTRES::GetString("both", TEXTRES_NAMESET_Text)), "Over\nride");

  // Items described by elements: a name to look up, or the text itself.
  XMLDOC doc;
  ASSERT_EQ(doc.Parse(reinterpret_cast<const unsigned char*>(
                "<r><a lookup=\"no\">Save</a><b lookup=\"yes\">nothing.here</b><c/>"
                "<d lookup=\"no\"> </d><e>only.enu</e><f lookup=\"false\">only.enu</f></r>")),
            0);
  const XMLNODE* r = doc.GetRootNode();
  TEXTRESITEM x;
  EXPECT_EQ(x.CreateFromXML(r->FindChild("a")), 1);
  EXPECT_EQ(U8(x.GetString()), "Save");
  EXPECT_EQ(x.CreateFromXML(r->FindChild("c")), 0);  // no text: the item stays
  EXPECT_EQ(x.CreateFromXML(r->FindChild("d")), 0);
  EXPECT_EQ(U8(x.GetString()), "Save");
  EXPECT_EQ(x.CreateFromXML(r->FindChild("e")), 1);
  EXPECT_EQ(U8(x.GetString()), "only (enu)");
  EXPECT_EQ(x.CreateFromXML(r->FindChild("f")), 1);
  EXPECT_EQ(U8(x.GetString()), "only.enu");
  EXPECT_EQ(x.CreateFromXML(r->FindChild("b")), 0);
  EXPECT_FALSE(x.IsValid());
  EXPECT_EQ(x.CreateFromXML(nullptr), 0);
}

TEST(TextRes, ABadEnglishFileLeavesNoFileOpen) {
  OWNFOLDER dir;
  Bytes bad = Build(English());
  Put32(bad, kVersion, 9);
  WriteFile(dir / "textres.enu", bad);
  EXPECT_EQ(TEXTRES::Initialize(), 0);
  EXPECT_EQ(TEXTRES::Initialize(), 1);  // not tried again
  EXPECT_EQ(GetLastErrCode(), 0);
  EXPECT_EQ(U8(TEXTRES::GetString(-1588)), "Unknown error code (-1588)");
  EXPECT_TRUE(TEXTRES::GetString(9501).IsEmpty());
}

TEST(TextRes, ABadLanguageFileLeavesEnglishAlone) {
  OWNFOLDER dir;
  dir.SetLanguage("xyz");
  Bytes bad = Build(Other());
  bad.resize(bad.size() / 2);
  WriteFile(dir / "textres.xyz", bad);
  EXPECT_EQ(TEXTRES::Initialize(), 1);
  EXPECT_EQ(GetLastErrCode(), 0);
  EXPECT_EQ(U8(TEXTRES::GetString(9501)), "Yes");
  EXPECT_EQ(U8(TEXTRES::GetString(-1)), "Unknown error code (-1)");
}

}  // namespace
