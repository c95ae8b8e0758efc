// vosys color: a colour given by name or value, shown in every form.
//
//   vosys color NAME|VALUE
//
// A value is "#RRGGBB", a packed "0x00BBGGRR", or what COLOR::SetByName
// reads: three percentages ("50 50 50", "100,0,25"), a built-in name, or a
// name of rgb.txt.
#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "commands.h"
#include "vosystem/vosystem.h"

namespace {

const char kUsage[] =
    "usage: vosys color NAME|VALUE\n"
    "  NAME: a built-in name or a name of rgb.txt (\"gold\", \"DarkSlateGray\");\n"
    "  VALUE: \"#RRGGBB\", a packed \"0x00BBGGRR\", or three percentages \"r g b\"\n";

struct FORM {
  COLORSPACE space;
  const char* name;
  int bytes;
};

const FORM kForms[] = {
    {COLORSPACE_RGB_24, "RGB_24", 3},   {COLORSPACE_BGR_24, "BGR_24", 3},
    {COLORSPACE_RGBX_32, "RGBX_32", 4}, {COLORSPACE_XRGB_32, "XRGB_32", 4},
    {COLORSPACE_BGRX_32, "BGRX_32", 4}, {COLORSPACE_XBGR_32, "XBGR_32", 4},
    {COLORSPACE_RGBA_32, "RGBA_32", 4}, {COLORSPACE_ARGB_32, "ARGB_32", 4},
    {COLORSPACE_BGRA_32, "BGRA_32", 4}, {COLORSPACE_ABGR_32, "ABGR_32", 4},
    {COLORSPACE_CMY_24, "CMY_24", 3},   {COLORSPACE_CMYX_32, "CMYX_32", 4},
    {COLORSPACE_CMYK_32, "CMYK_32", 4}, {COLORSPACE_XCMY_32, "XCMY_32", 4},
    {COLORSPACE_KCMY_32, "KCMY_32", 4},
};

// "#RRGGBB" or "0x..." (hexadecimal digits only): true and the colour.
bool ParseHex(const char* text, COLOR* color) {
  const bool web = text[0] == '#';
  const bool packed = text[0] == '0' && (text[1] == 'x' || text[1] == 'X');
  if (!web && !packed) return false;
  const char* digits = text + (web ? 1 : 2);
  const size_t n = std::strlen(digits);
  if (n == 0 || n > (web ? 6u : 8u) || (web && n != 6)) return false;
  for (size_t i = 0; i < n; ++i)
    if (!std::isxdigit(static_cast<unsigned char>(digits[i]))) return false;
  const unsigned long v = std::strtoul(digits, nullptr, 16);
  if (packed && v > 0xFFFFFF) return false;
  *color = COLOR(web ? (v >> 16 & 0xFF) | (v & 0xFF00) | (v & 0xFF) << 16 : v);
  return true;
}

}  // namespace

int CmdColor(int argc, char** argv) {
  if (argc != 1) {
    std::fputs(kUsage, stderr);
    return 2;
  }
  COLOR c;
  if (!ParseHex(argv[0], &c) && !c.SetByName(argv[0])) {
    std::fprintf(stderr, "vosys: no colour '%s' (not a value, a built-in name or in rgb.txt)\n",
                 argv[0]);
    return 1;
  }
  std::printf("%-9s red %u green %u blue %u, flags 0x%04X\n", "16-bit", c.GetRed(), c.GetGreen(),
              c.GetBlue(), c.GetFlags());
  std::printf("%-9s %u %u %u  #%02X%02X%02X\n", "8-bit", c.GetRedByte(), c.GetGreenByte(),
              c.GetBlueByte(), c.GetRedByte(), c.GetGreenByte(), c.GetBlueByte());
  std::printf("%-9s 0x%08lX (0x00BBGGRR)\n", "packed", c.GetColorRef());
  std::printf("%-9s %u%% %u%% %u%%\n", "percent", c.GetRed(100), c.GetGreen(100), c.GetBlue(100));
  char serial[24];
  std::printf("%-9s %s\n", "serial", c.SerialGetString(serial));
  for (const FORM& f : kForms) {
    unsigned char b[4] = {};
    c.GetByColorSpace(f.space, b);
    std::printf("%-9s", f.name);
    for (int i = 0; i < f.bytes; ++i) {
      if (f.name[i] == 'X')
        std::printf(" --");
      else
        std::printf(" %02X", b[i]);
    }
    std::printf("\n");
  }
  for (COLORSPACE s : {COLORSPACE_RGB_555, COLORSPACE_BGR_555}) {
    unsigned short w = 0;
    c.GetByColorSpace(s, &w);
    std::printf("%-9s 0x%04X\n", s == COLORSPACE_RGB_555 ? "RGB_555" : "BGR_555", w);
  }
  unsigned short w[3] = {};
  c.GetByColorSpace(COLORSPACE_RGB_48, w);
  std::printf("%-9s %u %u %u\n", "RGB_48", w[0], w[1], w[2]);
  return 0;
}
