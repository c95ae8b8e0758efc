// vosys bidi: logical text in visual order (as shown, left to right).
// vosys shape: Arabic text in its presentation forms.
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "commands.h"
#include "vosystem/vosystem.h"

namespace {

const char kBidiUsage[] =
    "usage: vosys bidi [--rtl|--ltr] TEXT\n"
    "       vosys bidi [--rtl|--ltr] -f FILE\n"
    "  the visual order of TEXT, or of each line of FILE (UTF-8); the base\n"
    "  direction is that of the first strong letter unless --rtl or --ltr\n"
    "  forces it\n";

void PrintUnits(const unsigned short* units) {
  char* utf8 = VOSTRING(units).GetEncoded(CHAR_ENCODING_UTF8);
  std::printf("%s\n", utf8 ? utf8 : "");
  std::free(utf8);
}

bool PrintVisual(BIDISTRING& line, const std::string& utf8, BIDISTRING::DIRECTION base,
                 bool force) {
  VOSTRING text(utf8.c_str(), CHAR_ENCODING_UTF8);
  unsigned short* visual = nullptr;
  if (line.SetStringLogical(text, base, force) < 0 || !(visual = line.GetStringVisual())) {
    std::fputs("vosys: out of memory\n", stderr);
    return false;
  }
  PrintUnits(visual);
  std::free(visual);
  return true;
}

int BidiFile(const char* path, BIDISTRING::DIRECTION base, bool force) {
  FILE* f = std::fopen(path, "rb");
  if (!f) {
    std::fprintf(stderr, "vosys: can't open %s: %s\n", path, std::strerror(errno));
    return 1;
  }
  BIDISTRING line;
  std::string text;
  int rc = 0;
  for (int ch; (ch = std::getc(f)) != EOF || !text.empty();) {
    if (ch != '\n' && ch != EOF) {
      if (ch != '\r') text += static_cast<char>(ch);
      continue;
    }
    if (!PrintVisual(line, text, base, force)) rc = 1;
    text.clear();
    if (ch == EOF) break;
  }
  std::fclose(f);
  return rc;
}

}  // namespace

int CmdBidi(int argc, char** argv) {
  BIDISTRING::DIRECTION base = BIDISTRING::DIRECTION_LeftToRight;
  bool force = false;
  if (argc > 0 && (!std::strcmp(argv[0], "--rtl") || !std::strcmp(argv[0], "--ltr"))) {
    force = true;
    if (!std::strcmp(argv[0], "--rtl")) base = BIDISTRING::DIRECTION_RightToLeft;
    --argc;
    ++argv;
  }
  if (argc == 2 && !std::strcmp(argv[0], "-f")) return BidiFile(argv[1], base, force);
  if (argc != 1) {
    std::fputs(kBidiUsage, stderr);
    return 2;
  }
  BIDISTRING line;
  return PrintVisual(line, argv[0], base, force) ? 0 : 1;
}

int CmdShape(int argc, char** argv) {
  if (argc != 1) {
    std::fputs("usage: vosys shape TEXT   (UTF-8): the presentation forms, and their codes\n",
               stderr);
    return 2;
  }
  VOSTRING text(argv[0], CHAR_ENCODING_UTF8);
  unsigned short* shaped = MucDoGlyphSubstitutions(text, nullptr, nullptr, GLYPHFEATURE_Contextual);
  if (!shaped) {
    std::fputs("vosys: out of memory\n", stderr);
    return 1;
  }
  PrintUnits(shaped);
  std::string codes;
  for (const unsigned short* p = shaped; *p; ++p) {
    char code[12];
    std::snprintf(code, sizeof code, "%sU+%04X", p == shaped ? "" : " ", *p);
    codes += code;
  }
  std::printf("%s\n", codes.c_str());
  std::free(shaped);
  return 0;
}
