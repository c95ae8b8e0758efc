// The settings store on arbitrary text: loaded from a file (any bytes, zero
// bytes too) or set in memory (bytes as Latin-1 characters), then searched,
// read as every type, changed and deleted, with names taken from the text
// itself so that the search meets the fields it holds. A value written is
// read back as written, where the format can say it back: no blanks at its
// ends, no "\" at its end (the format's continuation mark).
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "vosystem/inifuncs.h"
#include "vosystem/vostring.h"

namespace {

// One file in a folder of this process's own, removed at exit.
std::string& FilePath() {
  static std::string path;
  if (path.empty()) {
    // Every change is synced to the disk: on a memory file system that
    // costs nothing, so the fuzzer runs there when it can.
    const char* tmp = getenv("TMPDIR");
    const bool shm = access("/dev/shm", W_OK) == 0;
    static std::string folder = std::string(shm           ? "/dev/shm"
                                            : tmp && *tmp ? tmp
                                                          : "/tmp") +
                                "/fuzz-ini-XXXXXX";
    if (!mkdtemp(&folder[0])) abort();
    path = folder + "/f.ini";
    atexit([] {
      unlink(FilePath().c_str());
      rmdir(FilePath().substr(0, FilePath().size() - 6).c_str());
    });
  }
  return path;
}

// Short tokens of the text, to use as names.
std::vector<std::string> Names(const std::string& text) {
  std::vector<std::string> names = {"g", "f"};
  std::string cur;
  for (char c : text) {
    if (c == '[' || c == ']' || c == '=' || c == '\n' || c == ' ' || c == '\0') {
      if (!cur.empty() && cur.size() < 40) names.push_back(cur);
      cur.clear();
      if (names.size() > 12) break;
    } else {
      cur += c;
    }
  }
  return names;
}

bool ReadsBackAsWritten(const std::string& v) {
  if (v.find_first_of("\n\0", 0, 2) != std::string::npos) return false;
  if (!v.empty() && (strchr(" \t\r\v\f", v.front()) || strchr(" \t\r\v\f\\", v.back())))
    return false;
  return true;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 2) return 0;
  const std::string text(reinterpret_cast<const char*>(data) + 1, size - 1);
  void* h = nullptr;
  if (data[0] & 1) {
    FILE* f = fopen(FilePath().c_str(), "wb");
    if (!f) abort();
    fwrite(text.data(), 1, text.size(), f);
    fclose(f);
    if (IniOpen(FilePath().c_str(), &h, INIOPEN_FullPath) < 0) abort();
  } else {
    std::u16string wide(text.begin(), text.end());
    for (char16_t& c : wide) c = static_cast<unsigned char>(c);
    wide.resize(wide.find(u'\0') == std::u16string::npos ? wide.size() : wide.find(u'\0'));
    if (IniOpen(nullptr, &h, INIOPEN_Memory) < 0) abort();
    IniSetBuffer(h, VOSTRING(wide.c_str()).GetReference());
  }
  const std::vector<std::string> names = Names(text);
  const size_t n = names.size();
  for (size_t i = 0; i < n; ++i) {
    const char* group = names[i].c_str();
    const char* field = names[(i + 1) % n].c_str();
    void* value = nullptr;
    const int len = IniReadStringAllocML(h, group, field, INITYPE_UCString, &value);
    free(value);
    if (len < -1 && len != -1213) abort();
    double d[4];
    _iniRead(h, group, field, INITYPE_Double, d, 4);
    unsigned short color[4] = {};
    _iniRead(h, group, field, INITYPE_Color, color, 1);
    char small[8];
    IniReadString(h, group, field, INITYPE_String, small, sizeof small);
  }
  // Changes, each checked where the format can hold the value.
  for (size_t i = 0; i + 2 < n && i < 6; ++i) {
    const std::string& group = names[i];
    const std::string& field = names[i + 1];
    const std::string& v = names[i + 2];
    const int rc = IniWriteString(h, group.c_str(), field.c_str(), INITYPE_String, v.c_str());
    if (rc == 0 && ReadsBackAsWritten(v)) {
      void* back = nullptr;
      const int got = IniReadStringAlloc(h, group.c_str(), field.c_str(), &back, INITYPE_String);
      if (got != static_cast<int>(v.size()) || memcmp(back, v.data(), v.size()) != 0) abort();
      free(back);
    }
    if (i % 3 == 1) IniDeleteField(h, group.c_str(), field.c_str());
    if (i % 3 == 2) IniDeleteGroup(h, group.c_str());
  }
  if (!(data[0] & 1)) {
    unsigned short* all = nullptr;
    IniGetBuffer(h, &all);
    free(all);
  }
  IniClose(h);
  return 0;
}
