// BITSET_DEQUE driven by the input as a sequence of operations, checked
// against std::vector<bool> after every step at the bits it touched, and
// wholly at the end, with the spare-buffer count checked against the tiles.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <vector>

#include "vosystem/bitset.h"

namespace {

const unsigned long kTile = 32768;

class INPUT {
 public:
  INPUT(const uint8_t* data, size_t size) : m_data(data), m_size(size) {}
  bool More() const { return m_at < m_size; }
  unsigned Byte() { return m_at < m_size ? m_data[m_at++] : 0; }
  // A position: near a tile edge or the end, or anywhere below 3 tiles.
  unsigned long Bit(unsigned long n) {
    const unsigned kind = Byte() % 4;
    const unsigned long small = Byte() | (Byte() << 8);
    if (kind == 0) return (small % 4) * kTile + (small >> 2) % 64 - (small % 4 ? 32 : 0);
    if (kind == 1) return n + small % 64 >= 32 ? n + small % 64 - 32 : 0;
    return (small | (Byte() << 16)) % (3 * kTile + 100);
  }

 private:
  const uint8_t* m_data;
  size_t m_size;
  size_t m_at = 0;
};

void Check(bool ok) {
  if (!ok) abort();
}

void CheckAll(const BITSET_DEQUE& s, const std::vector<bool>& ref) {
  Check(s.GetNumEntries() == ref.size());
  unsigned long spares = 0;
  for (unsigned long t = 0; t < s.GetNumTiles(); ++t) {
    bool buffer = false;
    if (s.GetTileState(t, &buffer) != BITSET_TILE_Bits && buffer) ++spares;
  }
  Check(spares == s.GetNumSpareBuffers());
  size_t i = 0;
  for (auto it = s.Begin(true); it != s.End(); ++it, ++i) {
    while (i < ref.size() && !ref[i]) ++i;
    Check(*it == i);
  }
  while (i < ref.size()) Check(!ref[i++]);
  for (unsigned long at = 0; at < ref.size();) {
    unsigned long end = 0;
    const bool v = s.GetRange(at, ~0UL, end);
    Check(v == ref[at] && end >= at && end < ref.size());
    Check(end + 1 == ref.size() || ref[end + 1] != v);
    at = end + 1;
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  INPUT in(data, size);
  BITSET_DEQUE s;
  std::vector<bool> ref;
  while (in.More()) {
    const unsigned op = in.Byte() % 12;
    const unsigned long n = ref.size();
    const unsigned long a = in.Bit(n), b = in.Bit(n);
    const unsigned long last = n ? (b < n ? b : n - 1) : 0;
    switch (op) {
      case 0:
        Check(s.Set(a) == 0);
        if (a < n) ref[a] = true;
        break;
      case 1:
        Check(s.Clear(a) == 0);
        if (a < n) ref[a] = false;
        break;
      case 2:
        Check(s.Invert(a) == 0);
        if (a < n) ref[a] = !ref[a];
        break;
      case 3:
      case 4:
      case 5:
        Check((op == 3   ? s.SetRange(a, b)
               : op == 4 ? s.ClearRange(a, b)
                         : s.InvertRange(a, b)) == 0);
        for (unsigned long i = a; n && i <= last; ++i) ref[i] = op == 5 ? !ref[i] : op == 3;
        break;
      case 6:
        s.SetAll();
        ref.assign(n, true);
        break;
      case 7:
        s.ClearAll();
        ref.assign(n, false);
        break;
      case 8:
        s.InvertAll();
        ref.flip();
        break;
      case 9:
      case 10:
        Check(s.Resize(a) == 0);
        ref.resize(a, false);
        break;
      default: {
        unsigned long end = 0;
        const bool v = s.GetRange(a, b, end);
        if (!n || a > last) {
          Check(!v && end == a);
        } else {
          Check(v == ref[a] && end >= a && end <= last && ref[end] == v);
          Check(end == last || ref[end + 1] != v);
        }
      }
    }
    Check(s.GetBit(a) == (a < ref.size() && ref[a]));
    Check(s.GetBit(b) == (b < ref.size() && ref[b]));
  }
  CheckAll(s, ref);
  return 0;
}
