// Reads arbitrary bytes as "unicode2.ref" for a few charset names. Nothing
// may be read outside the bytes, and every pair added must come from them:
// each stored value is checked against the other direction's table.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <initializer_list>

#include "encoding/convtables.h"

namespace {

void Check(bool ok) {
  if (!ok) __builtin_trap();
}

SPARSEARRAY* New() {
  return static_cast<SPARSEARRAY*>(calloc(1, sizeof(SPARSEARRAY)));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  for (const char* name : {"ISO8859_5", "JISX0208", "ISCII_Devanagar", ""}) {
    SPARSEARRAY* to = New();
    SPARSEARRAY* from = New();
    Check(to && from);
    const int rc = AddPairsFromFile(data, size, name, to, from);
    Check(rc == 0 || rc == -1122 || rc == -1015);
    // Every code that reads as a character is a place that character was
    // written to by some pair; a later pair may have moved the character on.
    for (int hi = 0; hi < 256; ++hi) {
      if (!to->page[hi]) continue;
      for (int lo = 0; lo < 256; ++lo) {
        const int unicode = to->page[hi][lo];
        if (unicode) Check(from->page[unicode >> 8] && from->page[unicode >> 8][unicode & 0xFF]);
      }
    }
    FreeSparseArray(to);
    FreeSparseArray(from);
  }
  return 0;
}
