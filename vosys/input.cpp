// Reading the input of a command: a file, or standard input.
#include <cstdio>
#include <string>

#include "commands.h"

bool ReadInput(const char* path, std::string* bytes) {
  FILE* f = path ? std::fopen(path, "rb") : stdin;
  bool ok = f != nullptr;
  if (f) {
    char chunk[65536];
    size_t n;
    while ((n = std::fread(chunk, 1, sizeof chunk, f)) > 0) bytes->append(chunk, n);
    ok = !std::ferror(f);
    if (path) std::fclose(f);
  }
  if (!ok) std::fprintf(stderr, "vosys: can't read %s\n", path ? path : "standard input");
  return ok;
}
