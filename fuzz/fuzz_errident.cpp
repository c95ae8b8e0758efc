// Feeds arbitrary identification texts, codes and lines to the error record
// and reads its texts back. Input: records separated by '\n'; each record is
// 4 bytes of code, 2 of line, 1 of flags, then the identification text.
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

#include "vosystem/errors.h"
#include "vosystem/vostring.h"

namespace {

// Every module name in the text fits the 127-character working buffer, and no
// pushed value ever lands in one. (Pushed values hold no line feed: the input
// is split at them.)
void CheckModuleNames(const unsigned short* text) {
  static const char kTag[] = "\nModule: ";
  const size_t tagLength = sizeof kTag - 1;
  for (const unsigned short* p = text; *p; ++p) {
    size_t k = 0;
    while (k < tagLength && p[k] == static_cast<unsigned char>(kTag[k])) ++k;
    if (k < tagLength) continue;
    size_t n = 0;
    while (p[tagLength + n] && p[tagLength + n] != ' ') ++n;
    if (n > 127) __builtin_trap();
  }
}

void RunOne(const uint8_t* data, size_t size) {
  if (size < 7) return;
  int32_t code;
  int16_t line;
  memcpy(&code, data, 4);
  memcpy(&line, data + 4, 2);
  uint8_t flags = data[6];
  std::string ident(reinterpret_cast<const char*>(data + 7), size - 7);
  const char* id = (flags & 1) ? nullptr : ident.c_str();
  if (flags & 2) code = -1100 - (code & 7);  // few codes, so that chains and repeats happen
  if (flags & 4) SetErrPosnDisable();
  if (flags & 8)
    _SetErrPosn(code, id, line);
  else
    _SetErrPosnC(code, id, line);
  if (flags & 16) GetErrString() << static_cast<int>(line) << ident.c_str();
  if (flags & 4) SetErrPosnEnable();
  int kind = 0;
  CheckModuleNames(GetErrStrUC(GetLastErrCode(), &kind));
  GetErrStrLine1UC(code, &kind);
  GetErrStrUC(code, nullptr);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  ClearLastErr();
  size_t start = 0;
  for (size_t i = 0; i <= size; ++i) {
    if (i == size || data[i] == '\n') {
      RunOne(data + start, i - start);
      start = i + 1;
    }
  }
  return 0;
}
