// Helpers of the resource tests: a writer of binary text resource files,
// made here byte by byte and independent of tools/mkresfile.py; a reader of
// the text sources of data/textres, the oracle of the compiled files; and a
// folder of the test's own that is also its home and current folder.
#ifndef VOSYS_TESTS_RESOURCES_RES_TEST_UTIL_H
#define VOSYS_TESTS_RESOURCES_RES_TEST_UTIL_H

#include <unicode/unistr.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "gtest/gtest.h"
#include "vosystem/filepath.h"

namespace restest {

using Bytes = std::vector<unsigned char>;

inline void Put32(Bytes& b, size_t at, int32_t v) {
  const uint32_t u = static_cast<uint32_t>(v);
  for (int i = 0; i < 4; ++i) b[at + i] = static_cast<unsigned char>(u >> (8 * i));
}

inline int32_t Get32(const Bytes& b, size_t at) {
  uint32_t u = 0;
  for (int i = 0; i < 4; ++i) u |= static_cast<uint32_t>(b[at + i]) << (8 * i);
  return static_cast<int32_t>(u);
}

// What a file holds: texts by number and, for each of the four name sets,
// by name.
struct RESSPEC {
  std::string language = "enu";
  std::map<int, std::u16string> numbers;
  std::map<std::string, std::u16string> names[4];
};

// Header offsets of the fields a test may spoil.
enum : size_t {
  kLanguage = 32,
  kVersion = 36,
  kReserved = 40,
  kLongest = 44,
  kNumSets = 48,
  kNumHeader = 52,  // + 12 * set: first id, count, table
  kNameSets = 88,
  kNameHeader = 92  // + 20 * set: count, block length, block, offsets, texts
};

// The file: header, then the numeric tables, then per name set the name
// block, the name offsets and the text addresses, then one record per entry
// (no sharing), in that order.
inline Bytes Build(const RESSPEC& spec) {
  Bytes out(172, 0);
  const char sig[] = "Larkspindle text resource file";
  for (size_t i = 0; i < sizeof sig; ++i) out[i] = static_cast<unsigned char>(sig[i]);
  for (size_t i = 0; i < 3 && i < spec.language.size(); ++i)
    out[kLanguage + i] = static_cast<unsigned char>(spec.language[i]);
  Put32(out, kVersion, 1);
  Put32(out, kNumSets, 3);
  Put32(out, kNameSets, 4);
  struct PENDING {
    size_t slot;
    std::u16string text;
  };
  std::vector<PENDING> pending;
  auto add32 = [&](int32_t v) {
    out.resize(out.size() + 4);
    Put32(out, out.size() - 4, v);
  };
  const long long ranges[3][2] = {{INT32_MIN, -1}, {0, 99999}, {100000, INT32_MAX}};
  for (int s = 0; s < 3; ++s) {
    std::vector<int> ids;
    for (const auto& e : spec.numbers)
      if (e.first >= ranges[s][0] && e.first <= ranges[s][1]) ids.push_back(e.first);
    if (ids.empty()) continue;
    const int first = ids.front(), count = ids.back() - ids.front() + 1;
    Put32(out, kNumHeader + 12 * s, first);
    Put32(out, kNumHeader + 12 * s + 4, count);
    Put32(out, kNumHeader + 12 * s + 8, static_cast<int32_t>(out.size()));
    for (int k = 0; k < count; ++k) {
      auto it = spec.numbers.find(first + k);
      if (it != spec.numbers.end()) pending.push_back({out.size(), it->second});
      add32(0);
    }
  }
  for (int s = 0; s < 4; ++s) {
    const auto& names = spec.names[s];
    if (names.empty()) continue;
    const size_t h = kNameHeader + 20 * s;
    Put32(out, h, static_cast<int32_t>(names.size()));
    Put32(out, h + 8, static_cast<int32_t>(out.size()));
    std::vector<int32_t> offsets;
    const size_t block = out.size();
    for (const auto& e : names) {  // std::map orders by bytes, as strcmp does
      offsets.push_back(static_cast<int32_t>(out.size() - block));
      out.insert(out.end(), e.first.begin(), e.first.end());
      out.push_back(0);
    }
    Put32(out, h + 4, static_cast<int32_t>(out.size() - block));
    Put32(out, h + 12, static_cast<int32_t>(out.size()));
    for (int32_t o : offsets) add32(o);
    Put32(out, h + 16, static_cast<int32_t>(out.size()));
    for (const auto& e : names) {
      pending.push_back({out.size(), e.second});
      add32(0);
    }
  }
  int longest = 1;
  for (const PENDING& p : pending) {
    Put32(out, p.slot, static_cast<int32_t>(out.size()));
    const int n = static_cast<int>(p.text.size()) + 1;
    longest = std::max(longest, n);
    out.push_back(static_cast<unsigned char>(n & 0xFF));
    out.push_back(static_cast<unsigned char>(n >> 8));
    for (char16_t c : p.text + u'\0') {
      out.push_back(static_cast<unsigned char>(c & 0xFF));
      out.push_back(static_cast<unsigned char>(c >> 8));
    }
  }
  Put32(out, kLongest, longest);
  return out;
}

inline void WriteFile(const std::string& path, const Bytes& bytes) {
  std::ofstream f(path, std::ios::binary | std::ios::trunc);
  f.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
}

inline FILEPATH PathOf(const std::string& path) {
  return FILEPATH(path.c_str(), CHAR_ENCODING_UTF8);
}

inline std::u16string Utf16(const std::string& utf8) {
  const icu::UnicodeString s = icu::UnicodeString::fromUTF8(utf8);
  return std::u16string(reinterpret_cast<const char16_t*>(s.getBuffer()),
                        static_cast<size_t>(s.length()));
}

// The entries of a text source of data/textres, read by the rules that
// tools/mkresfile.py documents, by a second implementation of them.
struct SOURCE {
  std::map<int, std::u16string> numbers;
  std::map<std::string, std::u16string> names[4];
};

inline std::string Unescape(const std::string& text) {
  std::string s = text;
  if (!s.empty() && s.front() == '"') {
    EXPECT_TRUE(s.size() >= 2 && s.back() == '"') << text;
    s = s.substr(1, s.size() - 2);
  }
  std::string out;
  for (size_t i = 0; i < s.size(); ++i) {
    if (s[i] != '\\') {
      out += s[i];
      continue;
    }
    const char e = s[++i];
    if (e == 'n') {
      out += '\n';
    } else if (e == 't') {
      out += '\t';
    } else if (e == 'u') {
      const unsigned long u = std::strtoul(s.substr(i + 1, 4).c_str(), nullptr, 16);
      icu::UnicodeString one(static_cast<UChar>(u));
      one.toUTF8String(out);
      i += 4;
    } else {
      out += e;  // a backslash or a quote
    }
  }
  return out;
}

inline SOURCE ReadSource(const std::string& path) {
  SOURCE src;
  std::ifstream f(path);
  EXPECT_TRUE(f.good()) << path;
  std::string line;
  while (std::getline(f, line)) {
    if (line.empty() || line[0] == '#' || line.find_first_not_of(" \t") == std::string::npos)
      continue;
    const size_t tab = line.find('\t');
    EXPECT_NE(tab, std::string::npos) << line;
    const std::string key = line.substr(0, tab);
    const std::string text = Unescape(line.substr(line.find_first_not_of('\t', tab)));
    char* end = nullptr;
    const long id = std::strtol(key.c_str(), &end, 10);
    if (*end == 0) {
      src.numbers[static_cast<int>(id)] = Utf16(text);
      continue;
    }
    static const char* const kPrefixes[4] = {"text:", "label:", "title:", "help:"};
    int set = 0;
    std::string name = key;
    for (int s = 0; s < 4; ++s)
      if (key.rfind(kPrefixes[s], 0) == 0) {
        set = s;
        name = key.substr(strlen(kPrefixes[s]));
      }
    src.names[set][name] = Utf16(text);
  }
  return src;
}

// A folder of the test's own under the scratch folder, made the current
// folder and the home folder (with no other settings folder in the way);
// removed at the end.
class OWNFOLDER {
 public:
  OWNFOLDER() {
    m_path = std::string(VOSYS_TEST_SCRATCH) + "/resXXXXXX";
    if (!mkdtemp(&m_path[0])) ADD_FAILURE() << "mkdtemp";
    setenv("HOME", m_path.c_str(), 1);
    unsetenv("home");
    unsetenv("XDG_DATA_HOME");
    if (chdir(m_path.c_str()) != 0) ADD_FAILURE() << "chdir";
  }
  ~OWNFOLDER() {
    if (chdir(VOSYS_TEST_SCRATCH) != 0) ADD_FAILURE() << "chdir";
    std::error_code ignored;
    std::filesystem::remove_all(m_path, ignored);
  }
  OWNFOLDER(const OWNFOLDER&) = delete;
  OWNFOLDER& operator=(const OWNFOLDER&) = delete;

  std::string operator/(const std::string& name) const { return m_path + "/" + name; }
  const std::string& Path() const { return m_path; }
  // The default settings choose language (a settings file in the home
  // folder; the library reads the default settings once per process).
  void SetLanguage(const std::string& language) const {
    std::ofstream(m_path + "/zepproc.ini") << "[locale]\nlanguage=" << language << "\n";
  }

 private:
  std::string m_path;
};

}  // namespace restest

#endif
