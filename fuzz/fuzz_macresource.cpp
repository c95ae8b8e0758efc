// The resource-fork reader on arbitrary files: every call ends in a length
// the file can hold, 0, or a negative code, without reading out of bounds or
// allocating what the file merely claims. The types asked for include the
// one that the bytes at the type list's first row name, so that the search
// reaches the reference lists.
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "vosystem/macresource.h"
#include "vosystem/ucstring.h"
#include "vosystem/viofuncs.h"

namespace {

// One file in a folder of this process's own, removed at exit.
const std::string& FilePath() {
  static std::string path;
  if (path.empty()) {
    const char* tmp = getenv("TMPDIR");
    const bool shm = access("/dev/shm", W_OK) == 0;
    static std::string folder = std::string(shm           ? "/dev/shm"
                                            : tmp && *tmp ? tmp
                                                          : "/tmp") +
                                "/fuzz-rsrc-XXXXXX";
    if (!mkdtemp(&folder[0])) abort();
    path = folder + "/fork";
    atexit([] {
      unlink(FilePath().c_str());
      rmdir(FilePath().substr(0, FilePath().size() - 5).c_str());
    });
  }
  return path;
}

uint32_t Be32(const uint8_t* p) {
  return uint32_t(p[0]) << 24 | uint32_t(p[1]) << 16 | uint32_t(p[2]) << 8 | p[3];
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  FILE* f = fopen(FilePath().c_str(), "wb");
  if (!f) abort();
  if (size && fwrite(data, 1, size, f) != size) abort();
  fclose(f);
  unsigned short* path = nullptr;
  if (MucConvertUTF8ToUnicode(FilePath().c_str(), &path) < 0) abort();
  const int handle = VioOpen(path, "r", nullptr);
  free(path);
  if (handle <= 0) abort();

  uint32_t types[2] = {0x54455854, 0};  // 'TEXT', and the first row's type
  if (size >= 16) {
    const uint64_t map = Be32(data + 4);
    if (map + 30 <= size) {
      const uint64_t row = map + (uint64_t(data[map + 24]) << 8 | data[map + 25]) + 2;
      if (row + 4 <= size) types[1] = Be32(data + row);
    }
  }
  for (uint32_t type : types) {
    const int count = MacNumResourcesOfType(handle, type);
    if (count < 0 && count > -1000) abort();
    for (int i = -1; i < 3; ++i) {
      void* block = nullptr;
      const int n = MacReadResourceByNum(handle, type, i, &block);
      if (n > 0 && static_cast<size_t>(n) > size) abort();
      if (n < 0 && block) abort();
      free(block);
      block = nullptr;
      const int m = MacReadResourceByID(handle, type, i, &block);
      if (m > 0 && static_cast<size_t>(m) > size) abort();
      if (m < 0 && block) abort();
      free(block);
    }
  }
  VioClose(handle);
  return 0;
}
