// The string class's scans on every kernel the processor has, against the
// obvious loops, on texts in heap blocks that end where the text ends, so
// that the address sanitizer and memcheck report any read past them.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "test_util.h"
#include "text/unitscan_priv.h"
#include "text/utfconv_priv.h"

namespace {

// n units in a heap block of their own, starting `skew` units into it so
// that every alignment comes up; the block ends with the last unit.
class Block {
 public:
  Block(const std::vector<uint16_t>& units, size_t skew)
      : block_(static_cast<uint16_t*>(malloc(std::max<size_t>(1, skew + units.size()) * 2))),
        units_(block_ + skew) {
    std::copy(units.begin(), units.end(), units_);
  }
  ~Block() { free(block_); }
  Block(const Block&) = delete;
  Block& operator=(const Block&) = delete;
  const uint16_t* units() const { return units_; }

 private:
  uint16_t* block_;
  uint16_t* units_;
};

class UnitScanTest : public testing::TestWithParam<utfconv::Kernel> {
 protected:
  void SetUp() override {
    if (!utfconv::ForceKernel(GetParam())) {
      GTEST_SKIP() << "the processor lacks " << utfconv::KernelName(GetParam());
    }
  }
};

INSTANTIATE_TEST_SUITE_P(Kernels, UnitScanTest,
                         testing::Values(utfconv::Kernel::kScalar, utfconv::Kernel::kSse2,
                                         utfconv::Kernel::kSsse3, utfconv::Kernel::kAvx2,
                                         utfconv::Kernel::kAvx512),
                         [](const testing::TestParamInfo<utfconv::Kernel>& info) {
                           return std::string(utfconv::KernelName(info.param));
                         });

}  // namespace

// Every length up to 200 (each kernel's steps and tails), at every place of
// the unit or none, and with the block starting at each alignment.
TEST_P(UnitScanTest, FindGivesTheFirstPlaceOfTheUnit) {
  std::mt19937 rng(5);
  for (size_t n = 0; n <= 200; ++n) {
    std::vector<uint16_t> text(n);
    for (uint16_t& u : text) u = static_cast<uint16_t>(1 + rng() % 0xFFFE);
    const uint16_t c = static_cast<uint16_t>(rng() % 2 ? 0 : 0xFFFF);  // not in the text
    for (size_t at = 0; at <= n; ++at) {
      std::vector<uint16_t> with = text;
      if (at < n) with[at] = c;
      if (at + 3 < n) with[at + 3] = c;
      const Block block(with, at % 32);
      ASSERT_EQ(unitscan::Find(block.units(), n, c),
                static_cast<size_t>(std::find(with.begin(), with.end(), c) - with.begin()))
          << n << " " << at;
    }
  }
}

// Pairs of units a gap apart, the first and last of a text searched for:
// the block holds the n places and the gap after the last.
TEST_P(UnitScanTest, FindPairGivesTheFirstPlaceOfBothUnits) {
  std::mt19937 rng(7);
  for (size_t n = 0; n <= 120; ++n) {
    for (size_t gap : {1, 2, 7, 31, 40}) {
      // Few kinds of unit, so that first and last units come often alone.
      std::vector<uint16_t> text(n + gap);
      for (uint16_t& u : text) u = static_cast<uint16_t>('a' + rng() % 3);
      const Block block(text, (n + gap) % 32);
      size_t expected = 0;
      while (expected < n && (text[expected] != 'a' || text[expected + gap] != 'b')) ++expected;
      ASSERT_EQ(unitscan::FindPair(block.units(), n, 'a', 'b', gap), expected) << n << " " << gap;
    }
  }
}

// The place where a comparison of null-terminated texts ends: the first
// difference, or the first 0 of the first text where both agree.
TEST_P(UnitScanTest, CompareEndStopsAtTheFirstDifferenceOrEnd) {
  std::mt19937 rng(9);
  auto expected = [](const std::vector<uint16_t>& a, const std::vector<uint16_t>& b) {
    size_t i = 0;
    while (i < a.size() && a[i] == b[i] && a[i] != 0) ++i;
    return i;
  };
  for (size_t n = 0; n <= 200; ++n) {
    for (int round = 0; round < 12; ++round) {
      std::vector<uint16_t> a(n);
      for (uint16_t& u : a) u = static_cast<uint16_t>(1 + rng() % 0xFFFF);
      std::vector<uint16_t> b = a;
      const size_t at = n == 0 ? 0 : rng() % n;
      if (n > 0 && round % 4 == 1) b[at] ^= static_cast<uint16_t>(1 << rng() % 16);
      if (n > 0 && round % 4 == 2) a[at] = b[at] = 0;  // both texts end there
      if (n > 0 && round % 4 == 3) a[at] = 0;          // the first one ends there
      const Block first(a, round), second(b, 31 - round);
      ASSERT_EQ(unitscan::CompareEnd(first.units(), second.units(), n), expected(a, b))
          << n << " " << round;
    }
  }
}

// A caller's text of any length keeps the upper register halves clean.
TEST_P(UnitScanTest, ScansLeaveTheUpperRegisterHalvesClean) {
  bool known;
  UpperRegisterHalvesInUse(&known);
  if (!known) GTEST_SKIP() << "the processor doesn't report which register state is in use";
  for (size_t n : {0, 5, 20, 40, 100, 1000}) {
    const std::vector<uint16_t> text(n, 'a');
    const Block a(text, 0), b(text, 1);
    ClearUpperRegisterHalves();
    unitscan::Find(a.units(), n, 'a');
    ASSERT_FALSE(UpperRegisterHalvesInUse(&known)) << n;
    unitscan::Find(a.units(), n, 'b');
    ASSERT_FALSE(UpperRegisterHalvesInUse(&known)) << n;
    unitscan::CompareEnd(a.units(), b.units(), n);
    ASSERT_FALSE(UpperRegisterHalvesInUse(&known)) << n;
    if (n > 0) unitscan::FindPair(a.units(), n - 1, 'a', 'b', 1);
    ASSERT_FALSE(UpperRegisterHalvesInUse(&known)) << n;
  }
}
