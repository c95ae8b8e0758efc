// ucConvertSlashes on arbitrary UTF-16 text against a plain model of the
// escape rule.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <vector>

#include "vosystem/ucstring.h"

namespace {

using Units = std::vector<unsigned short>;

bool IsDigit(unsigned short u) {
  return u >= '0' && u <= '9';
}

// "\" and one to five digits become one unit; everything else is copied.
Units Model(const Units& in) {
  Units out;
  for (size_t i = 0; i < in.size();) {
    if (in[i] == '\\' && i + 1 < in.size() && IsDigit(in[i + 1])) {
      uint32_t value = 0;
      size_t k = i + 1;
      for (; k < in.size() && k < i + 6 && IsDigit(in[k]); ++k) value = value * 10 + in[k] - '0';
      out.push_back(static_cast<unsigned short>(value));
      i = k;
    } else {
      out.push_back(in[i++]);
    }
  }
  return out;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  Units text;
  for (size_t i = 0; i + 1 < size; i += 2) {
    // Mostly backslashes and digits, so that escapes are common.
    const unsigned short unit = static_cast<unsigned short>(data[i] | data[i + 1] << 8);
    const unsigned short kinds[4] = {'\\', static_cast<unsigned short>('0' + data[i] % 10),
                                     static_cast<unsigned short>(data[i] % 2 ? 'x' : '\\'), unit};
    text.push_back(kinds[data[i + 1] % 4]);
    if (text.back() == 0) text.back() = 'z';
  }
  const Units expected = Model(text);
  text.push_back(0);
  int removed = -1;
  if (ucConvertSlashes(text.data(), &removed) != 0) return 0;  // no memory: unchanged
  if (removed != static_cast<int>(text.size() - 1 - expected.size())) abort();
  for (size_t i = 0; i < expected.size(); ++i) {
    if (text[i] != expected[i]) abort();
  }
  if (text[expected.size()] != 0) abort();
  return 0;
}
