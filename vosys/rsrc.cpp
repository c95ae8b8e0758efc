// vosys rsrc: the resources of one type in a classic Mac resource fork.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "commands.h"
#include "vosystem/vosystem.h"

namespace {

const char kRsrcUsage[] =
    "usage: vosys rsrc FILE TYPE [ID]\n"
    "  the resources of TYPE (four characters, e.g. TEXT) in the resource fork\n"
    "  FILE, by index, or the one with ID: length and contents (text as it is,\n"
    "  other bytes in hex)\n";

void PrintBytes(const unsigned char* p, int n) {
  bool text = true;
  for (int i = 0; i < n; ++i)
    if (p[i] < 0x20 && p[i] != '\n' && p[i] != '\t') text = false;
  if (text) {
    std::printf("\"%.*s\"\n", n, reinterpret_cast<const char*>(p));
    return;
  }
  for (int i = 0; i < n; ++i) std::printf("%s%02X", i ? " " : "", p[i]);
  std::printf("\n");
}

// Prints one resource; false (with a message) on failure.
bool Show(const char* label, int n, void* data) {
  if (n < 0) {
    char* msg = VOSTRING(GetErrStrLine1UC(n, nullptr)).GetEncoded(CHAR_ENCODING_UTF8);
    std::fprintf(stderr, "vosys: %s: %s (%d)\n", label, msg ? msg : "", n);
    std::free(msg);
    return false;
  }
  std::printf("%s: %d bytes  ", label, n);
  PrintBytes(static_cast<unsigned char*>(data), n);
  std::free(data);
  return true;
}

}  // namespace

int CmdRsrc(int argc, char** argv) {
  if ((argc != 2 && argc != 3) || std::strlen(argv[1]) != 4) {
    std::fputs(kRsrcUsage, stderr);
    return 2;
  }
  const auto* t = reinterpret_cast<const unsigned char*>(argv[1]);
  const unsigned long type = static_cast<unsigned long>(t[0]) << 24 | t[1] << 16 | t[2] << 8 | t[3];
  unsigned short* path = nullptr;
  if (MucConvertUTF8ToUnicode(argv[0], &path) < 0) return 1;
  const int handle = VioOpen(path, "r", nullptr);
  std::free(path);
  if (handle < 0) {
    std::fprintf(stderr, "vosys: can't open %s\n", argv[0]);
    return 1;
  }
  int rc = 0;
  if (argc == 3) {
    void* data = nullptr;
    const int id = std::atoi(argv[2]);
    const int n = MacReadResourceByID(handle, type, id, &data);
    if (n == 0 && !data) {
      std::fprintf(stderr, "vosys: no %s resource %d\n", argv[1], id);
      rc = 1;
    } else if (!Show(("id " + std::to_string(id)).c_str(), n, data)) {
      rc = 1;
    }
  } else {
    const int count = MacNumResourcesOfType(handle, type);
    if (count < 0) {
      Show(argv[1], count, nullptr);
      rc = 1;
    } else {
      std::printf("%d %s resource%s\n", count, argv[1], count == 1 ? "" : "s");
      for (int i = 0; i < count && rc == 0; ++i) {
        void* data = nullptr;
        const int n = MacReadResourceByNum(handle, type, i, &data);
        if (!Show(("  #" + std::to_string(i)).c_str(), n, data)) rc = 1;
      }
    }
  }
  VioClose(handle);
  return rc;
}
