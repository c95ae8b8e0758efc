// Decodes arbitrary bytes with the stream converter in random source chunks
// and target sizes, and with MucConvertUTF8ToUnicode; every way must give the
// same units, and UTF-16 -> UTF-8 -> UTF-16 must give them back unchanged.
// The converters are compiled in, and the third byte picks their kernel (the
// scalar one where the processor lacks it); the scalar kernel must agree.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "text/utfconv_priv.h"
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

std::vector<unsigned char> Encode(const Units& units) {
  std::vector<unsigned char> bytes(units.size() * 3 + 1);
  const unsigned short* s = units.data();
  unsigned char* d = bytes.data();
  Check(ConvertUTF16toUTF8(&s, units.data() + units.size(), &d, bytes.data() + bytes.size()) == 0);
  bytes.resize(static_cast<size_t>(d - bytes.data()));
  return bytes;
}

Units RoundTrip(const Units& units) {
  const std::vector<unsigned char> bytes = Encode(units);
  size_t used;
  return DecodeWhole(bytes.data(), bytes.size(), &used);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 3) return 0;
  const size_t chunk = 1 + data[0] % 64;
  const size_t room = 2 + data[1] % 64;  // a pair needs two units
  const auto kernel = static_cast<utfconv::Kernel>(data[2] % utfconv::kKernelCount);
  data += 3;
  size -= 3;

  size_t used;
  utfconv::ForceKernel(utfconv::Kernel::kScalar);
  const Units model = DecodeWhole(data, size, &used);
  if (!utfconv::ForceKernel(kernel)) return 0;
  const Units whole = DecodeWhole(data, size, &used);
  Check(whole == model);
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
  // The input's bytes as units too, whatever they hold, encoded by both.
  const Units raw(reinterpret_cast<const unsigned short*>(data),
                  reinterpret_cast<const unsigned short*>(data) + size / 2);
  const std::vector<unsigned char> encoded = Encode(raw);
  utfconv::ForceKernel(utfconv::Kernel::kScalar);
  Check(Encode(raw) == encoded);
  utfconv::ForceKernel(kernel);

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
