// A program outside the project that uses the installed library.
#include <cstdio>
#include <cstdlib>

#include <vosystem/vosystem.h>

int main() {
  VOSTRING msg("Copied $1 of %d files");
  msg << 7 << "report.txt";
  char* utf8 = nullptr;
  if (MucConvertUnicodeToUTF8(msg, &utf8) < 0) return 1;
  std::printf("%s\n", utf8);
  std::free(utf8);
  return 0;
}
