// The typed readers of settings on arbitrary field text: every type code,
// with counts from 1 to 8, into buffers whose ends are guarded, and the
// string readers cut to every size up to the text's own.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

#include "vosystem/inifuncs.h"
#include "vosystem/vostring.h"

namespace {

const unsigned long kTypes[] = {
    INITYPE_Bool8,      INITYPE_Bool32,   INITYPE_Int8,    INITYPE_UInt8,   INITYPE_Int16,
    INITYPE_UInt16,     INITYPE_Int32,    INITYPE_UInt32,  INITYPE_Float,   INITYPE_Double,
    INITYPE_String,     INITYPE_UCString, INITYPE_Boolean, INITYPE_Point2D, INITYPE_Point3D,
    INITYPE_ParmRecord, INITYPE_Rect,     INITYPE_Color,   INITYPE_Rect2};
const size_t kMaxRecord = 200;

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 1) return 0;
  // The value is the field's; line feeds in it make more lines of the
  // group, which the readers meet too.
  std::u16string text = u"[g]\nf=";
  for (size_t i = 1; i < size; ++i) text += data[i] ? static_cast<char16_t>(data[i]) : u' ';
  text += u"\n";
  void* h = nullptr;
  if (IniOpen(nullptr, &h, INIOPEN_Memory) < 0) abort();
  IniSetBuffer(h, VOSTRING(text.c_str()).GetReference());
  const unsigned long type = kTypes[data[0] % (sizeof kTypes / sizeof kTypes[0])];
  const int count = 1 + (data[0] >> 5);
  // The elements read, and a guard behind them that must stay untouched.
  unsigned char out[8 * kMaxRecord + 16];
  memset(out, 0xA5, sizeof out);
  const size_t room = type == INITYPE_String     ? static_cast<size_t>(count)
                      : type == INITYPE_UCString ? 2 * static_cast<size_t>(count)
                                                 : static_cast<size_t>(count) * kMaxRecord;
  const int rc = _iniRead(h, "g", "f", type, out, count);
  if (rc > count && type != INITYPE_String && type != INITYPE_UCString) abort();
  for (size_t i = room; i < sizeof out; ++i)
    if (out[i] != 0xA5) abort();
  unsigned short buf[16];
  for (unsigned long bytes = 0; bytes <= sizeof buf; ++bytes) {
    memset(buf, 0xA5, sizeof buf);
    const int n = IniReadString(h, "g", "f", INITYPE_UCString, buf, bytes);
    if (n >= 0 && (static_cast<unsigned long>(n) + 1) * 2 > bytes) abort();
  }
  void* all = nullptr;
  IniReadStringAllocML(h, "g", "f", INITYPE_String, &all);
  free(all);
  IniClose(h);
  return 0;
}
