// BITSET_DEQUE against std::vector<bool> over long random sequences of
// operations that favour tile edges and the end of the set, with the spare
// buffer count checked against the tiles after every step.
#include "vosystem/bitset.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "vosystem/errors.h"

namespace {

const unsigned long kTile = 32768;

// spareBuffers is the number of tiles holding a buffer they don't use.
::testing::AssertionResult SparesAreCounted(const BITSET_DEQUE& s) {
  unsigned long spares = 0;
  for (unsigned long t = 0; t < s.GetNumTiles(); ++t) {
    bool buffer = false;
    if (s.GetTileState(t, &buffer) != BITSET_TILE_Bits && buffer) ++spares;
  }
  if (spares == s.GetNumSpareBuffers()) return ::testing::AssertionSuccess();
  return ::testing::AssertionFailure()
         << spares << " spare tiles, " << s.GetNumSpareBuffers() << " counted";
}

unsigned long TilesFor(unsigned long n) {
  return (n + kTile - 1) / kTile;
}

// Every way of reading the set agrees with the model.
void ExpectSame(const BITSET_DEQUE& s, const std::vector<bool>& ref) {
  ASSERT_EQ(s.GetNumEntries(), ref.size());
  ASSERT_EQ(s.GetNumTiles(), TilesFor(ref.size()));
  unsigned char* flat = nullptr;
  ASSERT_EQ(s.GetBitArray(flat), 0);
  for (size_t i = 0; i < ref.size(); ++i)
    ASSERT_EQ((flat[i / 8] >> (i % 8)) & 1, ref[i]) << "bit " << i;
  if (ref.size() % 8) {
    ASSERT_EQ(flat[ref.size() / 8] >> (ref.size() % 8), 0);
  }
  free(flat);
  for (bool value : {true, false}) {
    size_t i = 0;
    for (auto it = s.Begin(value); it != s.End(); ++it, ++i) {
      while (i < ref.size() && ref[i] != value) ++i;
      ASSERT_EQ(*it, i) << "iterating " << value;
    }
    while (i < ref.size() && ref[i] != value) ++i;
    ASSERT_EQ(i, ref.size()) << "iteration for " << value << " stopped early";
  }
  // The runs, walked by GetRange.
  for (unsigned long at = 0; at < ref.size();) {
    unsigned long end = 0;
    const bool v = s.GetRange(at, ~0UL, end);
    ASSERT_EQ(v, ref[at]);
    ASSERT_GE(end, at);
    for (unsigned long i = at; i <= end; ++i) ASSERT_EQ(ref[i], v) << i;
    if (end + 1 < ref.size()) {
      ASSERT_NE(ref[end + 1], v);
    }
    at = end + 1;
  }
}

class RANDOMBITS {
 public:
  explicit RANDOMBITS(unsigned seed) : m_rng(seed) {}
  unsigned long Below(unsigned long n) { return n ? m_rng() % n : 0; }
  // A position near a tile edge, near the end, anywhere, or just past the end.
  unsigned long Bit(unsigned long n) {
    const unsigned long kind = Below(8);
    if (kind < 3) {
      const unsigned long edge = Below(TilesFor(n) + 1) * kTile;
      const unsigned long b = edge + Below(20);
      return b >= 10 ? b - 10 : b;
    }
    if (kind == 3) return n + Below(20) >= 10 ? n + Below(20) - 10 : 0;
    return Below(n + 1);
  }
  unsigned long Size() {
    const unsigned long kind = Below(6);
    if (kind == 0) return Below(100);
    return kind == 1 ? kTile * (1 + Below(3)) + Below(3) - 1 : Below(4 * kTile);  // a tile edge
  }

 private:
  std::mt19937_64 m_rng;
};

void RunSequence(unsigned seed, long steps) {
  RANDOMBITS r(seed);
  BITSET_DEQUE s;
  std::vector<bool> ref;
  for (long step = 0; step < steps; ++step) {
    const unsigned op = r.Below(100);
    const unsigned long n = ref.size();
    // Short ranges, ranges across a tile edge or two, and any range.
    const unsigned long a = r.Bit(n);
    const unsigned long pick = r.Below(10);
    const unsigned long b = pick < 5 ? a + r.Below(64) : pick < 8 ? a + r.Below(70000) : r.Bit(n);
    SCOPED_TRACE("seed " + std::to_string(seed) + " step " + std::to_string(step) + " op " +
                 std::to_string(op) + " a " + std::to_string(a) + " b " + std::to_string(b) +
                 " n " + std::to_string(n));
    if (op < 10) {
      ASSERT_EQ(s.Set(a), 0);
      if (a < n) ref[a] = true;
    } else if (op < 20) {
      ASSERT_EQ(s.Clear(a), 0);
      if (a < n) ref[a] = false;
    } else if (op < 25) {
      ASSERT_EQ(s.Invert(a), 0);
      if (a < n) ref[a] = !ref[a];
    } else if (op < 28) {
      ASSERT_EQ(s.CopyBit(a, b), 0);
      if (a < n) ref[a] = b < n && ref[b];
    } else if (op < 60) {
      // Ranges: set, clear, invert.
      const int kind = static_cast<int>(op % 3);
      const int rc = kind == 0   ? s.SetRange(a, b)
                     : kind == 1 ? s.ClearRange(a, b)
                                 : s.InvertRange(a, b);
      ASSERT_EQ(rc, 0);
      if (n && a < n) {
        const unsigned long last = std::min(b, n - 1);
        if (kind == 2) {
          for (unsigned long i = a; i <= last; ++i) ref[i] = !ref[i];
        } else if (a <= last) {
          std::fill(ref.begin() + a, ref.begin() + last + 1, kind == 0);
        }
      }
    } else if (op < 63) {
      s.SetAll();
      ref.assign(n, true);
    } else if (op < 66) {
      s.ClearAll();
      ref.assign(n, false);
    } else if (op < 69) {
      s.InvertAll();
      ref.flip();
    } else if (op < 76) {
      // Resizes: inside the tile, across tiles, to nothing.
      unsigned long m = r.Below(3) == 0 ? n + r.Below(100) : r.Size();
      if (r.Below(3) == 0 && n > 50) m = n - r.Below(50);
      ASSERT_EQ(s.Resize(m), 0);
      ref.resize(m, false);
    } else if (op < 90) {
      unsigned long end = 0;
      const bool v = s.GetRange(a, b, end);
      const unsigned long last = n ? std::min(b, n - 1) : 0;
      if (!n || a > last) {
        ASSERT_FALSE(v);
        ASSERT_EQ(end, a);
      } else {
        // The run's ends, and samples inside (the full checks walk it all).
        ASSERT_EQ(v, ref[a]);
        ASSERT_GE(end, a);
        ASSERT_LE(end, last);
        ASSERT_EQ(ref[end], v);
        if (end < last) {
          ASSERT_NE(ref[end + 1], v);
        }
        for (int k = 0; k < 16; ++k) ASSERT_EQ(ref[a + r.Below(end - a + 1)], v);
      }
    } else if (op < 92) {
      // Copies hold the same bits and no spares.
      BITSET_DEQUE copy(s);
      ASSERT_EQ(copy.GetNumSpareBuffers(), 0u);
      BITSET_DEQUE assigned;
      assigned.Resize(5);
      assigned = copy;
      unsigned char *x = nullptr, *y = nullptr;
      ASSERT_EQ(s.GetBitArray(x), 0);
      ASSERT_EQ(assigned.GetBitArray(y), 0);
      ASSERT_EQ(assigned.GetNumEntries(), n);
      ASSERT_TRUE(n == 0 || memcmp(x, y, (n + 7) / 8) == 0);
      free(x);
      free(y);
    } else {
      for (int k = 0; k < 8; ++k) {
        const unsigned long i = r.Bit(n);
        ASSERT_EQ(s.GetBit(i), i < n && ref[i]) << i;
      }
    }
    ASSERT_TRUE(SparesAreCounted(s));
    ASSERT_EQ(s.GetBit(a), a < ref.size() && ref[a]);
    if (step % 2500 == 2499) {
      ASSERT_NO_FATAL_FAILURE(ExpectSame(s, ref));
    }
  }
  ASSERT_NO_FATAL_FAILURE(ExpectSame(s, ref));
}

}  // namespace

// A million operations in all; a tenth of that in the slower sanitizer builds.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
const long kSteps = 5000;
#else
const long kSteps = 50000;
#endif

TEST(BitSet, RandomSequencesMatchVectorBool) {
  for (unsigned seed = 1; seed <= 20; ++seed) ASSERT_NO_FATAL_FAILURE(RunSequence(seed, kSteps));
}

TEST(BitSet, TilesTurnUniformAndBuffersAreRecycled) {
  BITSET_DEQUE s;
  EXPECT_FALSE(s.HasEntries());
  EXPECT_EQ(s.Begin(true), s.End());
  ASSERT_EQ(s.Resize(5 * kTile - 100), 0);
  EXPECT_TRUE(s.HasEntries());
  EXPECT_EQ(s.Begin(true), s.End());
  EXPECT_EQ(*s.Begin(false), 0u);
  // A range over the whole set leaves every tile uniform, the last one too.
  ASSERT_EQ(s.SetRange(0, s.GetNumEntries() - 1), 0);
  for (unsigned long t = 0; t < 5; ++t) EXPECT_EQ(s.GetTileState(t), BITSET_TILE_Ones);
  // One bit cleared: one tile with bits, 32767 ones in it.
  ASSERT_EQ(s.Clear(kTile + 7), 0);
  EXPECT_EQ(s.GetTileState(1), BITSET_TILE_Bits);
  unsigned long ones = 0;
  for (auto it = s.Begin(true); it != s.End() && *it < 2 * kTile; ++it) ones += *it >= kTile;
  EXPECT_EQ(ones, kTile - 1);
  // A range inside one tile gives it bits; its end bits stay.
  ASSERT_EQ(s.ClearRange(3 * kTile + 10, 3 * kTile + 20), 0);
  EXPECT_EQ(s.GetTileState(3), BITSET_TILE_Bits);
  unsigned long end = 0;
  EXPECT_FALSE(s.GetRange(3 * kTile + 10, ~0UL, end));
  EXPECT_EQ(end, 3 * kTile + 20);
  EXPECT_TRUE(s.GetRange(0, ~0UL, end));
  EXPECT_EQ(end, kTile + 6);
  // Clearing everything keeps both buffers as spares, and the next tiles to
  // need one take them.
  s.ClearAll();
  EXPECT_EQ(s.GetNumSpareBuffers(), 2u);
  ASSERT_EQ(s.Set(4 * kTile + 1), 0);  // takes the spare of tile 1
  bool buffer = true;
  EXPECT_EQ(s.GetTileState(1, &buffer), BITSET_TILE_Zeros);
  EXPECT_FALSE(buffer);
  EXPECT_EQ(s.GetNumSpareBuffers(), 1u);
  // Shrinking hands the buffers of dropped tiles to kept tiles.
  ASSERT_EQ(s.Resize(kTile + 5), 0);
  EXPECT_EQ(s.GetNumSpareBuffers(), 2u);
  EXPECT_EQ(s.GetTileState(5), -1);
  // Growing inside a uniform-1 last tile: the new bits are 0.
  s.SetAll();
  ASSERT_EQ(s.Resize(kTile + 50), 0);
  EXPECT_TRUE(s.GetBit(kTile + 4));
  EXPECT_FALSE(s.GetBit(kTile + 5));
  EXPECT_FALSE(s.GetBit(kTile + 49));
  EXPECT_FALSE(s.GetBit(kTile + 50));  // past the end
  EXPECT_EQ(s.GetTile(2), VOERROR_InvalidArgument);
  EXPECT_EQ(s.Resize(0), 0);
  EXPECT_EQ(s.GetNumTiles(), 0u);
  unsigned char* flat = reinterpret_cast<unsigned char*>(1);
  EXPECT_EQ(s.GetBitArray(flat), 0);
  EXPECT_EQ(flat, nullptr);
  // An impossible size fails and leaves the set as it was.
  ASSERT_EQ(s.Resize(100), 0);
  s.Set(3);
  EXPECT_EQ(s.Resize(~0UL), VOERROR_OutOfMemory);
  EXPECT_EQ(s.GetNumEntries(), 100u);
  EXPECT_TRUE(s.GetBit(3));
}
