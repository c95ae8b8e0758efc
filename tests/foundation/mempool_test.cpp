// MEMPOOLLOW: buckets by size, reuse, alignment, resizing across buckets and
// to the heap, and random churn checked against the contents written.
#include "vosystem/mempool.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <random>
#include <vector>

#include "vosystem/errors.h"

namespace {

uintptr_t Addr(const void* p) {
  return reinterpret_cast<uintptr_t>(p);
}

}  // namespace

TEST(MemPool, BucketsReuseAndAlignment) {
  MEMPOOLLOW pool;
  void* p = nullptr;
  EXPECT_EQ(pool.AllocLow(nullptr, 4, false), VOERROR_InvalidArgument);
  // The last freed block of a size is the next one given.
  for (unsigned long size : {0UL, 1UL, 4UL, 5UL, 8UL, 9UL, 100UL, 1024UL, 1025UL, 70000UL}) {
    ASSERT_EQ(pool.AllocLow(&p, size, true), 0);
    for (unsigned long i = 0; i < size; ++i) ASSERT_EQ(static_cast<unsigned char*>(p)[i], 0);
    memset(p, 0xAB, size);
    // 16-aligned from the 16-byte bucket up and on the heap, 8 for 8-byte
    // blocks, 4 for the smallest.
    const uintptr_t align = size <= 4 ? 4 : size <= 8 ? 8 : 16;
    EXPECT_EQ(Addr(p) % align, 0u) << size;
    void* again = nullptr;
    MEMPOOLLOW::FreeLow(p);
    ASSERT_EQ(pool.AllocLow(&again, size, false), 0);
    if (size <= 1024) {
      EXPECT_EQ(again, p) << size;
    }
    MEMPOOLLOW::FreeLow(again);
  }
  // 1 byte and 4 bytes share a bucket, 5 bytes don't.
  void *a = nullptr, *b = nullptr, *c = nullptr;
  pool.AllocLow(&a, 1, false);
  MEMPOOLLOW::FreeLow(a);
  pool.AllocLow(&b, 4, false);
  EXPECT_EQ(a, b);
  pool.AllocLow(&c, 5, false);
  EXPECT_NE(c, b);
  EXPECT_EQ(Addr(c) % 8, 0u);
  MEMPOOLLOW::FreeLow(b);
  MEMPOOLLOW::FreeLow(c);
  MEMPOOLLOW::FreeLow(nullptr);
  pool.SetSizeHintLow(100);
}

TEST(MemPool, ReallocKeepsContentsAndMovesOnlyWhenItMust) {
  MEMPOOLLOW pool;
  void* p = nullptr;
  ASSERT_EQ(pool.ReallocLow(&p, 3, false), 0);  // null: an allocation
  memcpy(p, "abc", 3);
  void* first = p;
  ASSERT_EQ(pool.ReallocLow(&p, 4, true), 0);  // still fits: stays, the new byte zeroed
  EXPECT_EQ(p, first);
  EXPECT_EQ(memcmp(p, "abc\0", 4), 0);
  ASSERT_EQ(pool.ReallocLow(&p, 5, true), 0);  // moves to the 8-byte bucket
  EXPECT_NE(p, first);
  EXPECT_EQ(memcmp(p, "abc\0\0", 5), 0);
  ASSERT_EQ(pool.ReallocLow(&p, 2, false), 0);  // never to a smaller bucket
  EXPECT_EQ(memcmp(p, "ab", 2), 0);
  ASSERT_EQ(pool.ReallocLow(&p, 5000, true), 0);  // to the heap
  EXPECT_EQ(memcmp(p, "ab\0\0", 4), 0);
  EXPECT_EQ(static_cast<unsigned char*>(p)[4999], 0);
  ASSERT_EQ(pool.ReallocLow(&p, 9000, true), 0);  // a heap block grows on the heap
  EXPECT_EQ(static_cast<unsigned char*>(p)[8999], 0);
  EXPECT_EQ(memcmp(p, "ab", 2), 0);
  // An impossible size fails and leaves the block.
  void* keep = p;
  EXPECT_EQ(pool.ReallocLow(&p, ~0UL - 4, false), VOERROR_OutOfMemory);
  EXPECT_EQ(p, keep);
  EXPECT_EQ(pool.AllocLow(&p, ~0UL - 4, false), VOERROR_OutOfMemory);
  EXPECT_EQ(p, keep);
  MEMPOOLLOW::FreeLow(p);
}

TEST(MemPool, RandomChurnKeepsEveryBlockIntact) {
  // Blocks of random sizes are filled with a pattern of their own, resized
  // and freed at random; every block must keep its pattern, and blocks of
  // two pools mix freely in FreeLow.
  MEMPOOLLOW pools[2];
  std::mt19937 rng(3);
  struct BLOCK {
    unsigned char* p;
    unsigned long size;
    unsigned char fill;
  };
  std::vector<BLOCK> live;
  auto check = [](const BLOCK& b) {
    for (unsigned long i = 0; i < b.size; ++i)
      if (b.p[i] != b.fill) return false;
    return true;
  };
  for (int step = 0; step < 200000; ++step) {
    const unsigned op = rng() % 10;
    if (op < 5 || live.empty()) {
      BLOCK b{nullptr, rng() % 8 == 0 ? rng() % 3000 : rng() % 200,
              static_cast<unsigned char>(rng())};
      ASSERT_EQ(pools[rng() % 2].AllocLow(reinterpret_cast<void**>(&b.p), b.size, false), 0);
      memset(b.p, b.fill, b.size);
      live.push_back(b);
    } else if (op < 7) {
      BLOCK& b = live[rng() % live.size()];
      ASSERT_TRUE(check(b));
      const unsigned long size = rng() % 2000;
      ASSERT_EQ(pools[rng() % 2].ReallocLow(reinterpret_cast<void**>(&b.p), size, false), 0);
      if (size > b.size) memset(b.p + b.size, b.fill, size - b.size);
      b.size = size;
    } else {
      const size_t i = rng() % live.size();
      ASSERT_TRUE(check(live[i]));
      MEMPOOLLOW::FreeLow(live[i].p);
      live[i] = live.back();
      live.pop_back();
    }
  }
  for (const BLOCK& b : live) {
    ASSERT_TRUE(check(b));
    MEMPOOLLOW::FreeLow(b.p);
  }
}
