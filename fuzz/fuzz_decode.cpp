// Decodes arbitrary bytes in every readable encoding of the registry, and as
// UTF-16 text. The result must be as long as the decoder says, and (but for
// malformed UTF-8) hold no unit 0 before its end; nothing may be read past
// the input's terminator.
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
  // The input and a terminator of two zero bytes on a unit boundary (for
  // UTF-16), in a block of its own: the address checker sees any read past
  // it.
  std::vector<uint8_t> text(data, data + size);
  if (size % 2) text.push_back(1);  // UTF-16 text ends on a whole unit of 0
  text.push_back(0);
  text.push_back(0);
  for (int i = 0; i < MucGetNumEncodings(1); ++i) {
    void* conv = nullptr;
    Check(MucInitConversion(&conv, MucNumToName(i, 1), i & 1) == 0);
    unsigned short* out = nullptr;
    const int n = MucConvertToUnicode(conv, text.data(), &out);
    if (n >= 0) {
      Check(out != nullptr);
      int length = 0;
      while (out[length]) ++length;
      // Malformed UTF-8 may decode to a unit 0 (the decoder doesn't
      // validate), which the count includes.
      const bool utf8 = strstr(MucNumToName(i, 1), "UTF8") != nullptr;
      Check(utf8 ? length <= n : length == n);
    }
    free(out);
    MucStopConversion(conv);
  }
  Check(MucStrLenISO2022(reinterpret_cast<const char*>(text.data())) >= 0);
  char name[16];
  MucGuessJapaneseEncoding(text.data(), name);
  return 0;
}
