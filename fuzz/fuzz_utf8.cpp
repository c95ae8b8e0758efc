// Decodes arbitrary bytes with the stream converter in random source chunks
// and target sizes, and with MucConvertUTF8ToUnicode; every way must give the
// same units, and UTF-16 -> UTF-8 -> UTF-16 must give them back unchanged.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "vosystem/ucstring.h"

namespace {

using Units = std::vector<unsigned short>;

void Check(bool ok) {
  if (!ok) abort();
}

Units DecodeWhole(const uint8_t* data, size_t size, size_t* used) {
  Units out(size + 1);
  const unsigned char* s = data;
  unsigned short* d = out.data();
  const int rc = ConvertUTF8toUTF16(&s, data + size, &d, out.data() + out.size());
  Check(rc == 0 || rc == 1);
  *used = static_cast<size_t>(s - data);
  Check(rc == 0 ? *used == size : *used < size);
  out.resize(static_cast<size_t>(d - out.data()));
  return out;
}

// Source fed in chunks of `chunk` bytes into a target of `room` units.
Units DecodeChunked(const uint8_t* data, size_t size, size_t chunk, size_t room) {
  Units out;
  std::vector<unsigned short> target(room);
  size_t pos = 0;
  for (size_t avail = 0; avail < size || pos < size;) {
    avail = std::min(size, avail + chunk);
    for (;;) {
      const unsigned char* s = data + pos;
      unsigned short* d = target.data();
      const int rc = ConvertUTF8toUTF16(&s, data + avail, &d, target.data() + room);
      out.insert(out.end(), target.data(), d);
      pos = static_cast<size_t>(s - data);
      if (rc != 2) break;
    }
    if (avail == size) break;
  }
  return out;
}

Units RoundTrip(const Units& units) {
  std::vector<unsigned char> bytes(units.size() * 3 + 1);
  const unsigned short* s = units.data();
  unsigned char* d = bytes.data();
  Check(ConvertUTF16toUTF8(&s, units.data() + units.size(), &d, bytes.data() + bytes.size()) == 0);
  size_t used;
  return DecodeWhole(bytes.data(), static_cast<size_t>(d - bytes.data()), &used);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 2) return 0;
  const size_t chunk = 1 + data[0] % 64;
  const size_t room = 2 + data[1] % 64;  // a pair needs two units
  data += 2;
  size -= 2;

  size_t used;
  const Units whole = DecodeWhole(data, size, &used);
  Units chunked = DecodeChunked(data, size, chunk, room);
  Check(chunked == whole);

  // The heap converter stops at the first zero byte and drops a cut sequence.
  std::vector<char> text(data, data + size);
  text.push_back('\0');
  const size_t len = strlen(text.data());
  size_t usedBeforeZero;
  const Units prefix = DecodeWhole(data, len, &usedBeforeZero);
  unsigned short* heap = nullptr;
  const int n = MucConvertUTF8ToUnicode(text.data(), &heap);
  Check(n == static_cast<int>(prefix.size()));
  Check(memcmp(heap, prefix.data(), prefix.size() * 2) == 0 && heap[n] == 0);

  Check(RoundTrip(whole) == whole);

  // And back through the heap encoder, when the units hold no zero.
  Units terminated(prefix);
  if (std::find(terminated.begin(), terminated.end(), 0) == terminated.end()) {
    terminated.push_back(0);
    char* utf8 = nullptr;
    const int bytes = MucConvertUnicodeToUTF8(terminated.data(), &utf8);
    Check(bytes >= 1 && utf8[bytes - 1] == '\0');
    unsigned short* back = nullptr;
    const int units = MucConvertUTF8ToUnicode(utf8, &back);
    Check(units == static_cast<int>(prefix.size()));
    Check(memcmp(back, prefix.data(), prefix.size() * 2) == 0);
    free(utf8);
    free(back);
  }
  free(heap);
  return 0;
}
