// Encodes arbitrary UTF-16 text into every writable encoding of the
// registry, and into the internal form and back out of it. The results must
// be as long as the encoders say; nothing may be read past the terminator.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "vosystem/ucconv.h"

namespace {

void Check(bool ok) {
  if (!ok) __builtin_trap();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  std::vector<unsigned short> text(size / 2 + 1, 0);
  memcpy(text.data(), data, size / 2 * 2);
  for (unsigned short& u : text)
    if (u == 0) u = 0x20;  // the text runs to its end
  text.back() = 0;
  for (int i = 0; i < MucGetNumEncodings(2); ++i) {
    void* conv = nullptr;
    Check(MucInitConversion(&conv, MucNumToName(i, 2), 1) == 0);
    char* out = nullptr;
    const int n = MucConvertFromUnicode(conv, text.data(), &out);
    if (n >= 0 && MucGetEncodingFromNum(i, 2) != 1) Check(out && n >= 0);
    if (n >= 0) {
      char* internal = nullptr;
      if (MucConvertToISO2022(conv, out, &internal) >= 0) {
        char* again = nullptr;
        MucConvertFromISO2022(conv, internal, &again);
        free(again);
      }
      free(internal);
    }
    free(out);
    MucStopConversion(conv);
  }
  char* internal = nullptr;
  const int n = MucConvertUnicodeToISO2022a(text.data(), &internal);
  if (n >= 0) Check(strlen(internal) == static_cast<size_t>(n));
  free(internal);
  return 0;
}
