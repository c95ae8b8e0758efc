// Compiles arbitrary patterns and runs them over arbitrary text. The input is
// UTF-16: the units before the first unit 0 are the pattern, the rest the
// text; bit 0 of the input's last byte asks for ignore case. Every search,
// with each execFlags value and from a few starting points, must give a
// match inside the text, and exactly what the step-by-step rules give
// (UREACCESS::ExecReference, compiled into this target). A pattern past the
// limits compiles to an empty object, which matches nothing.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "regex/ure_priv.h"
#include "vosystem/ucregexp.h"

namespace {

void Check(bool ok) {
  if (!ok) abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  std::vector<unsigned short> units(size / 2 + 1);
  memcpy(units.data(), data, size / 2 * 2);
  units[size / 2] = 0;
  size_t split = 0;
  while (units[split]) ++split;
  const bool ignoreCase = size > 0 && (data[size - 1] & 1);

  UCREGEXP re;
  re.Compile(units.data(), ignoreCase);
  const unsigned short* text = units.data() + (split < units.size() - 1 ? split + 1 : split);
  const unsigned long length = units.data() + units.size() - 1 - text;
  for (int flags = 0; flags < 4; ++flags) {
    for (unsigned long from : {0ul, 1ul, length / 2}) {
      if (from > length) continue;
      unsigned long first, last, refFirst, refLast;
      const int r = re.Exec(text + from, &first, &last, length - from, flags);
      const int ref =
          UREACCESS::ExecReference(re, text + from, &refFirst, &refLast, length - from, flags);
      Check(r == ref && first == refFirst && last == refLast);
      Check(r ? first <= last && last <= length - from : first == UREMATCH::kNone);
    }
  }
  return 0;
}
