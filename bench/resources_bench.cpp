// Text lookup: the resource manager against glibc's gettext, on the same
// texts: every entry of data/textres/enu.txt (the library's English texts),
// looked up round-robin by number and by name.
//
// Ours: TEXTRES::GetString with "textres.enu" open, as the library's callers
// use it. Each call returns a string with a body of its own (an allocation
// and a copy); a number costs a direct array read in each open file, a name
// a hash lookup among the texts by name already read. RESFILE's own lookups
// (compiled in from src/, since the library hides them) show the index
// alone: by number the array read, by name the binary search over the names
// on disk with its probe cache and no memory of whole names.
//
// gettext: the same texts in a message catalog written here (the .mo
// format, with its hash table, as msgfmt writes it), keyed by the number's
// decimal text or by the name, looked up with dgettext in a locale that
// translates. gettext returns a pointer into its mapped catalog, with no
// copy; so a third row adds the copy a caller needs to keep the text as
// UTF-16 (ICU's u_strFromUTF8 into a fresh std::u16string). And a VOSTRING
// made from UTF-16 already in memory shows what the string of its own
// costs, which every call of ours includes.
#include <benchmark/benchmark.h>
#include <libintl.h>
#include <unicode/ustring.h>
#include <unistd.h>

#include <clocale>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <string>
#include <vector>

#include "resources/resfile.h"
#include "vosystem/filefind.h"
#include "vosystem/filepath.h"
#include "vosystem/textres.h"

namespace {

const char kDomain[] = "vosbench";

// The source's keys and UTF-8 texts, escapes resolved (quotes and the
// escapes the source uses).
struct ENTRY {
  std::string key, text;
};

std::string Unescape(std::string s) {
  if (s.size() >= 2 && s.front() == '"') s = s.substr(1, s.size() - 2);
  std::string out;
  for (size_t i = 0; i < s.size(); ++i) {
    if (s[i] != '\\' || i + 1 == s.size()) {
      out += s[i];
      continue;
    }
    const char e = s[++i];
    out += e == 'n' ? '\n' : e == 't' ? '\t' : e;
  }
  return out;
}

struct CORPUS {
  std::vector<int> ids;
  std::vector<std::string> names;
  std::string dir;

  CORPUS() {
    const char* tmp = getenv("TMPDIR");
    dir = std::string(tmp && *tmp ? tmp : "/tmp") + "/resbenchXXXXXX";
    if (!mkdtemp(&dir[0])) abort();
    // Settings of our own: no language, so English alone answers.
    setenv("HOME", dir.c_str(), 1);
    unsetenv("home");
    unsetenv("XDG_DATA_HOME");
    std::vector<ENTRY> entries;
    std::ifstream source(std::string(VOSYS_SOURCE_DIR) + "/data/textres/enu.txt");
    std::string line;
    while (std::getline(source, line)) {
      const size_t tab = line.find('\t');
      if (line.empty() || line[0] == '#' || tab == std::string::npos) continue;
      const std::string key = line.substr(0, tab);
      entries.push_back({key, Unescape(line.substr(line.find_first_not_of('\t', tab)))});
      char* end = nullptr;
      const long id = strtol(key.c_str(), &end, 10);
      if (*end == 0)
        ids.push_back(static_cast<int>(id));
      else
        names.push_back(key);
    }
    if (ids.empty() || names.empty()) abort();
    WriteCatalog(entries);
    if (!TEXTRES::Initialize()) abort();
    // gettext translates only outside the "C" locale, from the catalog of
    // the language that LANGUAGE names.
    setenv("LANGUAGE", "xx", 1);
    if (!setlocale(LC_ALL, "C.UTF-8")) abort();
    bindtextdomain(kDomain, dir.c_str());
    bind_textdomain_codeset(kDomain, "UTF-8");
    for (const ENTRY& e : entries)
      if (e.text != dgettext(kDomain, e.key.c_str())) abort();  // every key found
  }
  ~CORPUS() {
    std::error_code ignored;
    std::filesystem::remove_all(dir, ignored);
  }

  // gettext's hash of a key.
  // gettext's hash of a key: computed in an unsigned long and cut to 32
  // bits at the end, as the catalog's reader does.
  static uint32_t Hash(const char* s) {
    unsigned long h = 0;
    for (; *s; ++s) {
      h = (h << 4) + static_cast<unsigned char>(*s);
      const unsigned long g = h & (0xFul << 28);
      if (g) h ^= (g >> 24) ^ g;
    }
    return static_cast<uint32_t>(h);
  }

  // A message catalog: header, the two string tables sorted by key, the
  // hash table, the strings.
  void WriteCatalog(const std::vector<ENTRY>& entries) {
    std::map<std::string, std::string> sorted;
    for (const ENTRY& e : entries) sorted[e.key] = e.text;
    const uint32_t n = static_cast<uint32_t>(sorted.size());
    uint32_t size = n * 4 / 3 + 3;  // a prime above 4n/3
    for (;; ++size) {
      bool prime = size % 2 != 0;
      for (uint32_t d = 3; prime && d * d <= size; d += 2) prime = size % d != 0;
      if (prime) break;
    }
    std::vector<uint32_t> words = {0x950412DEu, 0, n, 28, 28 + 8 * n, size, 28 + 16 * n};
    std::vector<uint32_t> table(size, 0);
    uint32_t index = 0;
    for (const auto& e : sorted) {
      const uint32_t h = Hash(e.first.c_str());
      uint32_t i = h % size;
      const uint32_t step = 1 + h % (size - 2);
      while (table[i]) i = i >= size - step ? i - (size - step) : i + step;
      table[i] = ++index;
    }
    std::string strings;
    uint32_t at = 28 + 16 * n + 4 * size;
    std::vector<uint32_t> keys, texts;
    for (const auto& e : sorted) {
      keys.insert(keys.end(), {static_cast<uint32_t>(e.first.size()), at});
      strings += e.first + '\0';
      at += static_cast<uint32_t>(e.first.size()) + 1;
    }
    for (const auto& e : sorted) {
      texts.insert(texts.end(), {static_cast<uint32_t>(e.second.size()), at});
      strings += e.second + '\0';
      at += static_cast<uint32_t>(e.second.size()) + 1;
    }
    for (const auto* part : {&keys, &texts, &table})
      words.insert(words.end(), part->begin(), part->end());
    std::filesystem::create_directories(dir + "/xx/LC_MESSAGES");
    std::ofstream mo(dir + "/xx/LC_MESSAGES/" + kDomain + ".mo", std::ios::binary);
    mo.write(reinterpret_cast<const char*>(words.data()),
             static_cast<std::streamsize>(words.size() * 4));  // little-endian host
    mo << strings;
  }
};

CORPUS& Corpus() {
  static CORPUS corpus;
  return corpus;
}

void BM_TextByNumber_textres(benchmark::State& state) {
  const std::vector<int>& ids = Corpus().ids;
  size_t i = 0;
  for (auto _ : state) {
    VOSTRING text = TEXTRES::GetString(ids[i]);
    benchmark::DoNotOptimize(text.GetReference());
    if (++i == ids.size()) i = 0;
  }
  state.counters["texts"] = static_cast<double>(ids.size());
}
BENCHMARK(BM_TextByNumber_textres);

void BM_TextByName_textres(benchmark::State& state) {
  const std::vector<std::string>& names = Corpus().names;
  size_t i = 0;
  for (auto _ : state) {
    VOSTRING text = TEXTRES::GetString(names[i].c_str(), TEXTRES_NAMESET_Text);
    benchmark::DoNotOptimize(text.GetReference());
    if (++i == names.size()) i = 0;
  }
  state.counters["texts"] = static_cast<double>(names.size());
}
BENCHMARK(BM_TextByName_textres);

template <bool byName, bool copy>
void BM_gettext(benchmark::State& state) {
  std::vector<std::string> keys = Corpus().names;
  if (!byName) {
    keys.clear();
    for (int id : Corpus().ids) keys.push_back(std::to_string(id));
  }
  size_t i = 0;
  for (auto _ : state) {
    const char* text = dgettext(kDomain, keys[i].c_str());
    if (copy) {
      int32_t units = 0;
      UErrorCode status = U_ZERO_ERROR;
      u_strFromUTF8(nullptr, 0, &units, text, -1, &status);
      std::u16string kept(static_cast<size_t>(units), u'\0');
      status = U_ZERO_ERROR;
      u_strFromUTF8(reinterpret_cast<UChar*>(&kept[0]), units + 1, nullptr, text, -1, &status);
      benchmark::DoNotOptimize(kept.data());
    } else {
      benchmark::DoNotOptimize(text);
    }
    if (++i == keys.size()) i = 0;
  }
}
BENCHMARK_TEMPLATE(BM_gettext, false, false)->Name("BM_TextByNumber_gettext");
BENCHMARK_TEMPLATE(BM_gettext, true, false)->Name("BM_TextByName_gettext");
BENCHMARK_TEMPLATE(BM_gettext, false, true)->Name("BM_TextByNumber_gettext_utf16copy");
BENCHMARK_TEMPLATE(BM_gettext, true, true)->Name("BM_TextByName_gettext_utf16copy");

// The floor of a lookup that returns a string of its own: a VOSTRING made
// from the same texts, already in memory as UTF-16.
void BM_VostringFromUnits(benchmark::State& state) {
  std::vector<VOSTRING> texts;
  for (int id : Corpus().ids) texts.push_back(TEXTRES::GetString(id));
  size_t i = 0;
  for (auto _ : state) {
    VOSTRING text(texts[i].GetReference());
    benchmark::DoNotOptimize(text.GetReference());
    if (++i == texts.size()) i = 0;
  }
}
BENCHMARK(BM_VostringFromUnits);

// The file's index alone.
struct OPENFILE {
  RESFILE file;
  OPENFILE() {
    Corpus();
    FILEPATH path;
    if (!FILEFIND::LocateReferenceFile("textres.enu", path, 0) || file.Open(path) < 0) abort();
  }
};

OPENFILE& File() {
  static OPENFILE f;
  return f;
}

void BM_AddrByNumber_resfile(benchmark::State& state) {
  RESFILE& f = File().file;
  const std::vector<int>& ids = Corpus().ids;
  size_t i = 0;
  for (auto _ : state) {
    const int id = ids[i];
    benchmark::DoNotOptimize(f.GetAddr(id, id < 0        ? NUMSET_Negative
                                           : id < 100000 ? NUMSET_Small
                                                         : NUMSET_Large));
    if (++i == ids.size()) i = 0;
  }
}
BENCHMARK(BM_AddrByNumber_resfile);

void BM_AddrByName_resfile(benchmark::State& state) {
  RESFILE& f = File().file;
  const std::vector<std::string>& names = Corpus().names;
  size_t i = 0;
  for (auto _ : state) {
    benchmark::DoNotOptimize(f.GetAddr(names[i].c_str(), TEXTRES_NAMESET_Text));
    if (++i == names.size()) i = 0;
  }
}
BENCHMARK(BM_AddrByName_resfile);

}  // namespace

BENCHMARK_MAIN();
