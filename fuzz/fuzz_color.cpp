// Fuzzes the colour's text and buffers: the serial form and the names
// (percentages, the built-in table, rgb.txt) read from arbitrary text, and
// every packed form set from and written to blocks of their exact size.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

#include "vosystem/color.h"

namespace {

struct FORM {
  COLORSPACE space;
  size_t bytes;
};

const FORM kForms[] = {{COLORSPACE_RGB_24, 3},  {COLORSPACE_BGR_24, 3},  {COLORSPACE_RGBX_32, 4},
                       {COLORSPACE_XRGB_32, 4}, {COLORSPACE_BGRX_32, 4}, {COLORSPACE_XBGR_32, 4},
                       {COLORSPACE_RGBA_32, 4}, {COLORSPACE_ARGB_32, 4}, {COLORSPACE_BGRA_32, 4},
                       {COLORSPACE_ABGR_32, 4}, {COLORSPACE_CMY_24, 3},  {COLORSPACE_CMYX_32, 4},
                       {COLORSPACE_CMYK_32, 4}, {COLORSPACE_XCMY_32, 4}, {COLORSPACE_KCMY_32, 4},
                       {COLORSPACE_RGB_555, 2}, {COLORSPACE_BGR_555, 2}, {COLORSPACE_RGB_48, 6}};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size);
  char* exact = static_cast<char*>(malloc(size + 1));
  memcpy(exact, text.c_str(), size + 1);

  COLOR c;
  const int n = c.SerialSetString(exact);
  if (n < 0 || n > 4) abort();
  char serial[24];
  c.SerialGetString(serial);
  if (strlen(serial) >= sizeof serial) abort();
  COLOR back;
  if (n >= 3 && (back.SerialSetString(serial) != 4 || !back.IsEqualNoTransp(back))) abort();

  COLOR named(1, 2, 3);
  named.SetByName(exact);

  // The first bytes as the buffer of each form, in a block of its size.
  for (const FORM& f : kForms) {
    unsigned char* in = static_cast<unsigned char*>(malloc(f.bytes));
    for (size_t i = 0; i < f.bytes; ++i) in[i] = i < size ? data[i] : 0;
    COLOR d = c;
    if (d.SetByColorSpace(f.space, in) != 0) abort();
    unsigned char* out = static_cast<unsigned char*>(malloc(f.bytes));
    if (d.GetByColorSpace(f.space, out) != 0) abort();
    d.Blend(named, size ? data[0] : 0);
    free(in);
    free(out);
  }
  free(exact);
  return 0;
}
