// vosys chars TEXT: what the character database says of each character.
#include <cstdio>
#include <cstdlib>
#include <string>

#include "commands.h"
#include "vosystem/vosystem.h"

namespace {

const char* const kCategoryNames[] = {
    "--", "Lu", "Ll", "Lt", "Lm", "Lo", "Mn", "Mc", "Me", "Nd", "Nl", "No", "Zs", "Zl", "Zp", "Cc",
    "Cf", "Cs", "Co", "Cn", "Pc", "Pd", "Ps", "Pe", "Pi", "Pf", "Po", "Sm", "Sc", "Sk", "So"};
const char* const kBidiNames[] = {"L",  "LRE", "LRO", "R",   "AL",  "RLE", "RLO", "PDF",
                                  "EN", "ES",  "ET",  "AN",  "CS",  "NSM", "BN",  "B",
                                  "S",  "WS",  "ON",  "LRI", "RLI", "FSI", "PDI"};
const char* const kDecompNames[] = {"canonical", "initial", "medial", "final", "isolated",
                                    "font",      "noBreak", "circle", "super", "sub",
                                    "vertical",  "wide",    "narrow", "small", "square",
                                    "fraction",  "compat"};

template <size_t N>
std::string NameOf(const char* const (&names)[N], unsigned value) {
  return value < N ? names[value] : "#" + std::to_string(value);
}

std::string CodeOf(unsigned long cp) {
  char buf[16];
  std::snprintf(buf, sizeof buf, "U+%04lX", cp);
  return buf;
}

// The character as it would be seen; marks on a dotted circle, and nothing
// for what has no look of its own.
std::string Glyph(const unsigned short* units, int n, int category) {
  if (category == UCCATEGORY_Cc || category == UCCATEGORY_Cf || category == UCCATEGORY_Cs ||
      category == UCCATEGORY_Zl || category == UCCATEGORY_Zp)
    return "   ";
  unsigned short text[4] = {0};
  int at = 0;
  if (category >= UCCATEGORY_Mn && category <= UCCATEGORY_Me) text[at++] = 0x25CC;
  for (int i = 0; i < n; ++i) text[at++] = units[i];
  char* utf8 = VOSTRING(text).GetEncoded(CHAR_ENCODING_UTF8);
  std::string glyph = "'" + std::string(utf8 ? utf8 : "") + "'";
  std::free(utf8);
  return glyph;
}

std::string CaseText(const unsigned char* rec) {
  unsigned short partner = UCDATA::CaseMapping(rec);
  if (partner == UCDATA::Code(rec)) return std::string();
  switch (UCDATA::Category(rec)) {
    case UCCATEGORY_Lu:
      return "  lower " + CodeOf(partner);
    case UCCATEGORY_Ll:
      return "  upper " + CodeOf(partner);
    default:
      return "  partner " + CodeOf(partner);
  }
}

std::string DecompositionText(const unsigned char* rec) {
  int n = UCDATA::SequenceLength(rec);
  if (n == 0) return std::string();
  std::string text = "  " + NameOf(kDecompNames, UCDATA::DecompTag(rec)) + ":";
  for (int i = 0; i < n; ++i) text += " " + CodeOf(UCDATA::SequenceUnit(rec, i));
  return text;
}

void PrintUnit(unsigned short c) {
  const unsigned char* rec = GetUCDATA(c);
  if (!rec) {
    std::printf("%s  no record\n", CodeOf(c).c_str());
    return;
  }
  char bidi[8];
  std::snprintf(bidi, sizeof bidi, "%-3s", NameOf(kBidiNames, UCDATA::BidiClass(rec)).c_str());
  std::string line = CodeOf(c) + " " + Glyph(&c, 1, UCDATA::Category(rec)) + "  " +
                     NameOf(kCategoryNames, UCDATA::Category(rec)) + " " + bidi + CaseText(rec) +
                     DecompositionText(rec);
  line.erase(line.find_last_not_of(' ') + 1);
  std::printf("%s\n", line.c_str());
}

}  // namespace

int CmdChars(int argc, char** argv) {
  if (argc != 1) {
    std::fputs("usage: vosys chars TEXT   (UTF-8)\n", stderr);
    return 2;
  }
  if (!GetUCDATA('A'))
    std::fputs(
        "vosys: no character data (ucdata.ref not found): all characters have default "
        "properties\n",
        stderr);
  VOSTRING text(argv[0], CHAR_ENCODING_UTF8);
  const unsigned short* units = text;
  for (int i = 0; units[i]; ++i) {
    unsigned short c = units[i];
    if (c >= 0xD800 && c < 0xDC00 && units[i + 1] >= 0xDC00 && units[i + 1] < 0xE000) {
      unsigned long cp = 0x10000 + ((c - 0xD800UL) << 10) + (units[i + 1] - 0xDC00UL);
      std::printf("%s %s  outside the Basic Multilingual Plane: no record\n", CodeOf(cp).c_str(),
                  Glyph(units + i, 2, UCCATEGORY_So).c_str());
      ++i;
      continue;
    }
    PrintUnit(c);
  }
  return 0;
}
