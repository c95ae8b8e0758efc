// Helpers of the settings tests: stores in memory and in files of a folder
// of the test's own.
#ifndef VOSYS_TESTS_SETTINGS_INI_TEST_UTIL_H
#define VOSYS_TESTS_SETTINGS_INI_TEST_UTIL_H

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include "test_util.h"
#include "vosystem/inifuncs.h"
#include "vosystem/ucconv.h"
#include "vosystem/vostring.h"

// A memory store holding text (UTF-8).
inline void* MemoryStore(const std::string& text) {
  void* h = nullptr;
  EXPECT_EQ(IniOpen(nullptr, &h, INIOPEN_Memory), 0);
  EXPECT_EQ(IniSetBuffer(h, VOSTRING(text.c_str(), CHAR_ENCODING_UTF8)), 0);
  return h;
}

inline std::string StoreText(void* h) {
  unsigned short* text = nullptr;
  IniGetBuffer(h, &text);
  const std::string s = text ? U8(VOSTRING(text)) : "<none>";
  free(text);
  return s;
}

// The 8-bit value of a field, or "<-1>" and the like for a result below 0.
inline std::string Get(void* h, const char* group, const char* field) {
  void* value = nullptr;
  const int n = IniReadStringAlloc(h, group, field, &value, INITYPE_String);
  std::string s = n < 0 ? "<" + std::to_string(n) + ">" : std::string(static_cast<char*>(value), n);
  free(value);
  return s;
}

inline int Put(void* h, const char* group, const char* field, const char* value) {
  return IniWriteString(h, group, field, INITYPE_String, value);
}

class IniFolder : public testing::Test {
 protected:
  void SetUp() override {
    std::string t = std::string(VOSYS_TEST_SCRATCH) + "/iniXXXXXX";
    ASSERT_NE(mkdtemp(&t[0]), nullptr);
    m_dir = t;
  }
  void TearDown() override {
    // Folders a test closed are opened again, so that all can go.
    namespace fs = std::filesystem;
    fs::permissions(m_dir, fs::perms::owner_all, fs::perm_options::add);
    for (const auto& entry : fs::recursive_directory_iterator(m_dir))
      if (entry.is_directory() && !entry.is_symlink())
        fs::permissions(entry.path(), fs::perms::owner_all, fs::perm_options::add);
    fs::remove_all(m_dir);
  }
  std::string Path(const std::string& name) const { return m_dir + "/" + name; }
  void Write(const std::string& name, const std::string& data) const {
    std::ofstream(Path(name), std::ios::binary) << data;
  }
  std::string Read(const std::string& name) const {
    std::ifstream in(Path(name), std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), {});
  }
  // A store on a file of the folder, by full path.
  void* Open(const std::string& name, unsigned long flags = 0) const {
    void* h = nullptr;
    const VOSTRING path(Path(name).c_str(), CHAR_ENCODING_UTF8);
    const int rc = IniOpen(path.GetReference(), &h, INIOPEN_FullPath | INIOPEN_UnicodePath | flags);
    EXPECT_EQ(rc, 0);
    return h;
  }
  std::string m_dir;
};

#endif
