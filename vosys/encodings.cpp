// vosys encodings: the registry's encodings, in row order, with their numbers
// and whether they are offered for reading and writing.
#include <cstdio>

#include "commands.h"
#include "vosystem/ucconv.h"

namespace {

// Whether the row's name is in the list that filter gives.
bool Offered(const char* name, int filter) {
  for (int i = 0; i < MucGetNumEncodings(filter); ++i)
    if (MucNumToName(i, filter) == name) return true;
  return false;
}

}  // namespace

int CmdEncodings(int argc, char**) {
  if (argc != 0) {
    std::fputs("usage: vosys encodings\n", stderr);
    return 2;
  }
  std::printf("row  number  read  write  name\n");
  for (int row = 0; row < MucGetNumEncodings(0); ++row) {
    const char* name = MucNumToName(row, 0);
    std::printf("%3d  %6d  %-4s  %-5s  %s\n", row, static_cast<int>(MucGetEncodingFromNum(row, 0)),
                Offered(name, 1) ? "yes" : "no", Offered(name, 2) ? "yes" : "no", name);
  }
  return 0;
}
