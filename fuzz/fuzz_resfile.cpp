// The text resource file reader on arbitrary files. The first byte chooses
// how the rest becomes a file: as it stands (odd), or XORed onto a small
// valid file (even), so that most inputs get past the signature and spoil
// the tables, names and records the checks are for. Whatever Open accepts is
// then searched by number and by name, read record by record and walked as
// X resource lines; the sanitizers watch every read.
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "resources/resfile.h"
#include "vosystem/errors.h"
#include "vosystem/filepath.h"
#include "vosystem/ucconv.h"

namespace {

using Bytes = std::vector<unsigned char>;

void Put32(Bytes& b, size_t at, int32_t v) {
  for (int i = 0; i < 4; ++i)
    b[at + i] = static_cast<unsigned char>(static_cast<uint32_t>(v) >> (8 * i));
}

void Add32(Bytes& b, int32_t v) {
  b.resize(b.size() + 4);
  Put32(b, b.size() - 4, v);
}

void AddRecord(Bytes& b, const char* text) {
  const size_t n = strlen(text) + 1;
  b.push_back(static_cast<unsigned char>(n));
  b.push_back(0);
  for (size_t i = 0; i < n; ++i) {
    b.push_back(static_cast<unsigned char>(text[i]));
    b.push_back(0);
  }
}

// A file with two ids in each numeric set and three names in each name set.
Bytes Template() {
  Bytes b(172, 0);
  memcpy(b.data(), "Larkspindle text resource file", 31);
  memcpy(b.data() + 32, "enu", 4);
  Put32(b, 36, 1);
  Put32(b, 44, 12);
  Put32(b, 48, 3);
  Put32(b, 88, 4);
  const int32_t firsts[3] = {-3, 5, 100000};
  std::vector<size_t> slots;
  for (int s = 0; s < 3; ++s) {
    Put32(b, 52 + 12 * s, firsts[s]);
    Put32(b, 56 + 12 * s, 3);
    Put32(b, 60 + 12 * s, static_cast<int32_t>(b.size()));
    for (int i = 0; i < 3; ++i) {
      slots.push_back(i == 1 ? 0 : b.size());
      Add32(b, 0);
    }
  }
  const char* const names[3] = {"Alpha", "beta", "text-encoding.KOI-8"};
  for (int s = 0; s < 4; ++s) {
    const size_t h = 92 + 20 * s;
    Put32(b, h, 3);
    Put32(b, h + 8, static_cast<int32_t>(b.size()));
    int32_t offsets[3], at = 0;
    for (int i = 0; i < 3; ++i) {
      offsets[i] = at;
      const size_t n = strlen(names[i]) + 1;
      b.insert(b.end(), names[i], names[i] + n);
      at += static_cast<int32_t>(n);
    }
    Put32(b, h + 4, at);
    Put32(b, h + 12, static_cast<int32_t>(b.size()));
    for (int32_t o : offsets) Add32(b, o);
    Put32(b, h + 16, static_cast<int32_t>(b.size()));
    for (int i = 0; i < 3; ++i) {
      slots.push_back(b.size());
      Add32(b, 0);
    }
  }
  const char* const texts[] = {"one", "two words", "line\nfeed", "eleven char"};
  int t = 0;
  for (size_t slot : slots) {
    if (!slot) continue;
    Put32(b, slot, static_cast<int32_t>(b.size()));
    AddRecord(b, texts[t++ % 4]);
  }
  return b;
}

// The file, in a folder of this process's own removed at exit. Plain
// arrays: the exit handler runs after the destructors of static strings.
char g_folder[4096];
char g_file[4096 + 8];

const char* FilePath() {
  if (!g_file[0]) {
    const char* tmp = getenv("TMPDIR");
    snprintf(g_folder, sizeof g_folder, "%s/fuzz-res-XXXXXX",
             access("/dev/shm", W_OK) == 0 ? "/dev/shm"
             : tmp && *tmp                 ? tmp
                                           : "/tmp");
    if (!mkdtemp(g_folder)) abort();
    snprintf(g_file, sizeof g_file, "%s/t.res", g_folder);
    atexit([] {
      unlink(g_file);
      rmdir(g_folder);
    });
  }
  return g_file;
}

void Check(bool ok) {
  if (!ok) abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size == 0 || size > 1 << 16) return 0;
  static const Bytes kTemplate = Template();
  Bytes file;
  if (data[0] & 1) {
    file.assign(data + 1, data + size);
  } else {
    file = kTemplate;
    for (size_t i = 1; i < size; ++i) {
      if (i - 1 < file.size())
        file[i - 1] ^= data[i];
      else
        file.push_back(data[i]);
    }
  }
  FILE* f = fopen(FilePath(), "wb");
  if (!f) abort();
  if (!file.empty()) fwrite(file.data(), 1, file.size(), f);
  fclose(f);

  SetErrPosnDisable();
  RESFILE res;
  const int rc = res.Open(FILEPATH(FilePath(), CHAR_ENCODING_UTF8));
  if (rc < 0) {
    SetErrPosnEnable();
    return 0;
  }
  VOSTRING text, again;
  for (int id : {-2147483647 - 1, -4, -3, -2, -1, 0, 4, 5, 6, 7, 99999, 100000, 100001, 100002})
    if (res.GetString(id, text)) Check(res.GetString(id, again) && text == again);
  for (int s = 0; s < 4; ++s) {
    const auto set = static_cast<TEXTRES_NAMESET>(s);
    char name[RESFILE::kNameMax];
    for (int i = 0; i < 300 && res.ReadName(set, i, name); ++i) {
      Check(strlen(name) < sizeof name);
      const long addr = res.GetAddr(name, set);
      if (addr > 0 && res.ReadText(addr, text))
        Check(res.GetString(name, set, again) && text == again);
    }
    res.GetAddr("", set);
    res.GetAddr("zzzz", set);
  }
  XRESLOADER loader([](void*, const char* line) { Check(line && line[0] == '*'); }, nullptr);
  res.LoadX(loader);
  SetErrPosnEnable();
  return 0;
}
