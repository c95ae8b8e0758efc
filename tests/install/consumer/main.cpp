// A program outside the project that uses the installed library.
#include <cstdio>
#include <cstdlib>

#include <vosystem/vosystem.h>

int main() {
  VOSTRING msg("Copied $1 of %d files");
  msg << 7 << "report.txt";
  char* utf8 = nullptr;
  if (MucConvertUnicodeToUTF8(msg, &utf8) < 0) return 1;
  // The case mapping comes from the installed character database.
  std::printf("%s; lower of U+00C9 is U+%04X\n", utf8, uctolower(0x00C9));
  std::free(utf8);
  // XML through the library alone: its header asks for no libxml2 headers.
  XMLDOC doc(reinterpret_cast<const unsigned char*>("<a><b k='v'>text</b></a>"));
  XMLNODE* b = doc.GetRootNode() ? doc.GetRootNode()->FindChild("b") : nullptr;
  STRUTF8 text;
  if (!b || !b->GetText(text)) return 1;
  std::printf("xml %s\n", static_cast<const char*>(text));
  return 0;
}
