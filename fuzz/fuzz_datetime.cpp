// Fuzzes the reading of dates: an arbitrary format over an arbitrary text,
// into a value whose fields start anywhere; then the value goes through the
// calendar, the conversions between local time and UTC, and strftime with
// the same format.
//
// Input: [flags] [format bytes] 0 [text]. With flag bit 0 the text is
// little-endian UTF-16 (zero units become 'z'), else bytes widened. The
// text lies in a block of its exact size, so a read past its terminator
// shows.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "vosystem/datetime.h"
#include "vosystem/vostring.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static const bool zone = [] {
    setenv("TZ", "CET-1CEST,M3.5.0,M10.5.0/3", 1);
    return true;
  }();
  (void)zone;
  if (size < 1) return 0;
  const uint8_t flags = data[0];
  const uint8_t* p = data + 1;
  const uint8_t* end = data + size;
  const uint8_t* nul = static_cast<const uint8_t*>(memchr(p, 0, static_cast<size_t>(end - p)));
  const std::string format(reinterpret_cast<const char*>(p),
                           static_cast<size_t>((nul ? nul : end) - p));
  p = nul ? nul + 1 : end;

  std::vector<unsigned short> units;
  if (flags & 1) {
    for (; p + 1 < end; p += 2) {
      const unsigned short u = static_cast<unsigned short>(p[0] | p[1] << 8);
      units.push_back(u ? u : 'z');
    }
  } else {
    for (; p < end; ++p) units.push_back(*p ? *p : 'z');
  }
  units.push_back(0);
  unsigned short* text =
      static_cast<unsigned short*>(malloc(units.size() * sizeof(unsigned short)));
  memcpy(text, units.data(), units.size() * sizeof(unsigned short));

  // Fields from a seconds count the flags pick, or out of range on purpose.
  DATETIME value(static_cast<long>(flags) * 86400L * 365L - 40L * 86400L * 365L);
  if (flags & 2) value.SetMonth(static_cast<int>(flags) - 100);
  if (flags & 4) value.ConvertToLocal();
  const unsigned short* read = value.Set(text, format.c_str());
  if (read && (read <= text || read > text + units.size() - 1)) abort();

  value.GetDateJulian();
  value.GetDayOfYear();
  value.GetNanoTime();
  DATETIME copy(value);
  copy.SetDateTimeJulian(value.GetDateTimeJulian());
  copy.ConvertToUTC();
  copy.ConvertToLocal();
  QVCDATETIME record;
  copy.Get(record);
  VOSTRING out;
  value.StrfTime(out, format.c_str(), (flags & 8) != 0);
  (void)(value == copy);
  free(text);
  return 0;
}
