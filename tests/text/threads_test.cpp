// State that threads share without knowing it: the empty body of every
// default-constructed string, the words for yes and no, the first load of
// the character database, and the default settings store and the locale
// folder. Each test runs in its own process, so the loads
// really are first; the ThreadSanitizer build runs these too.
#include <gtest/gtest.h>

#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include "test_util.h"
#include "vosystem/filefind.h"
#include "vosystem/inifuncs.h"
#include "vosystem/ucconv.h"
#include "vosystem/ucdata.h"
#include "vosystem/ucdecomp.h"
#include "vosystem/vostring.h"

namespace {

constexpr int kThreads = 4;

// Runs body(i) on kThreads threads released at once.
template <class BODY>
void RunTogether(BODY body) {
  std::atomic<int> waiting{kThreads};
  std::vector<std::thread> threads;
  for (int i = 0; i < kThreads; ++i) {
    threads.emplace_back([&, i] {
      --waiting;
      while (waiting.load() > 0) std::this_thread::yield();
      body(i);
    });
  }
  for (auto& t : threads) t.join();
}

TEST(Threads, EmptyStringsAreSharedWithoutRaces) {
  std::atomic<int> wrong{0};
  RunTogether([&](int i) {
    for (int n = 0; n < 20000; ++n) {
      VOSTRING a;
      VOSTRING b(a);
      VOSTRING c = VOSTRING::GetEmpty();
      b = c;
      a.Reserve(100);  // never grows the shared body
      VOSTRING d;
      d += static_cast<unsigned short>('a' + i);
      if (!c.IsEmpty() || b.GetLength() != 0 || U8(d) != std::string(1, 'a' + i)) ++wrong;
    }
  });
  EXPECT_EQ(wrong.load(), 0);
  EXPECT_TRUE(VOSTRING().IsEmpty());
}

TEST(Threads, FirstCharacterQueriesSeeTheWholeTable) {
  std::atomic<int> wrong{0};
  RunTogether([&](int) {
    if (uctolower(0xC9) != 0xE9 || uctoupper(0x3B1) != 0x391 ||
        !ucisprop(0x4E00, 1ul << UCCATEGORY_Lo) || !ucisbidiprop(0x5D0, 1ul << UCBIDICLASS_R))
      ++wrong;
    const unsigned short text[] = {'e', 0x301, 0};
    unsigned short* composed = MucRecompose(text);
    if (!composed || composed[0] != 0xE9 || composed[1] != 0) ++wrong;
    free(composed);
  });
  EXPECT_EQ(wrong.load(), 0);
}

TEST(Threads, FirstBooleanWordsAreFetchedOnce) {
  std::string words[kThreads];
  RunTogether([&](int i) {
    VOSTRING s;
    s << STR_BOOL_TITLE << true << " " << false;
    words[i] = U8(s);
  });
  for (const auto& w : words) EXPECT_EQ(w, words[0]);
}

TEST(Threads, FirstConversionTablesAreLoadedOnce) {
  std::atomic<int> wrong{0};
  RunTogether([&](int i) {
    const int charset = i % 2 ? 19 : 11;  // ISO-8859-5, JIS X 0208
    for (int code = 0x2121; code < 0x2180; ++code)
      if (MucCharsetToUnicode(code & 0xFF, 19) != MucCharsetToUnicode(code & 0xFF, 19) ||
          MucCharsetToUnicode(code, charset) < 0)
        ++wrong;
    if (MucCharsetToUnicode(0xB0, 19) != 0x410 || MucUnicodeToCharset(0x3042, 11) != 0x2422)
      ++wrong;
  });
  EXPECT_EQ(wrong.load(), 0);
}

// The Shift-JIS encoder builds its own table from two charsets on first use.
TEST(Threads, FirstShiftJisEncodingsSeeTheWholeTable) {
  std::atomic<int> wrong{0};
  RunTogether([&](int) {
    void* conv = nullptr;
    if (MucInitConversion(&conv, "Shift-JIS", 1) != 0) return void(++wrong);
    const unsigned short text[] = {0x3042, 0x20, 0x65E5, 0xFF71, 0x41, 0};
    char* out = nullptr;
    if (MucConvertFromUnicode(conv, text, &out) != 7 || std::string(out) !=
                                                            "\x82\xA0 \x93\xFA\xB1"
                                                            "A")
      ++wrong;
    free(out);
    MucStopConversion(conv);
  });
  EXPECT_EQ(wrong.load(), 0);
}

// The default settings store is made by the first thread that asks, and
// read and changed by all of them at once; the locale folder is looked for
// once. HOME, the current folder and the program point into a folder of the
// test's own.
TEST(Threads, TheDefaultSettingsAndTheLocaleFolderAreSharedSafely) {
  std::string dir = std::string(VOSYS_TEST_SCRATCH) + "/thrXXXXXX";
  ASSERT_NE(mkdtemp(&dir[0]), nullptr);
  std::filesystem::create_directories(dir + "/locale/enu");
  std::filesystem::create_directories(dir + "/locale/deu");
  std::ofstream(dir + "/zepproc.ini") << "[locale]\nlanguage=deu\n";
  std::ofstream(dir + "/app") << "";
  setenv("HOME", dir.c_str(), 1);
  unsetenv("XDG_DATA_HOME");
  ASSERT_EQ(chdir(dir.c_str()), 0);
  FILEPATH::SetModuleFileName((dir + "/app").c_str(), CHAR_ENCODING_UTF8);
  std::atomic<int> wrong{0};
  RunTogether([&](int i) {
    FILEFIND list;
    list.AddLocale(true, FILEFIND::ADDPOSN_Tail);
    if (list.GetFolders().GetCount() != 2) ++wrong;
    const std::string field = "t" + std::to_string(i);
    for (int n = 0; n < 20; ++n) {
      VOSTRING language;
      if (!language.IniRead(nullptr, "locale", "language") || U8(language) != "deu") ++wrong;
      if (IniWriteNumber(nullptr, "count", field.c_str(), INITYPE_Int32, &n) != 0) ++wrong;
    }
  });
  EXPECT_EQ(wrong.load(), 0);
  for (int i = 0; i < kThreads; ++i) {
    int n = -1;
    EXPECT_EQ(_iniRead(nullptr, "count", ("t" + std::to_string(i)).c_str(), INITYPE_Int32, &n, 1),
              1);
    EXPECT_EQ(n, 19);
  }
  ASSERT_EQ(chdir(VOSYS_TEST_SCRATCH), 0);
  std::filesystem::remove_all(dir);
}

}  // namespace
