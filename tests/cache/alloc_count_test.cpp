// Where no allocation is promised, none happens: the caches after Create, a
// bit set made uniform or reusing its spares, a pool that has its chunks.
// malloc and its family are interposed in this program and counted while a
// window is open; sanitizer builds keep their own allocator and skip this.
#include <gtest/gtest.h>

#include <cstddef>
#include <cstring>

#include "vosystem/bitset.h"
#include "vosystem/mcache.h"
#include "vosystem/mempool.h"
#include "vosystem/vocache.h"

#if defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define VOSYS_OWN_ALLOCATOR 1
#endif
#endif
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define VOSYS_OWN_ALLOCATOR 1
#endif

#ifdef VOSYS_OWN_ALLOCATOR
#define SKIP_WITHOUT_INTERPOSER() GTEST_SKIP() << "the sanitizer's allocator can't be counted"
#else
#define SKIP_WITHOUT_INTERPOSER() (void)0
#endif

namespace {
bool g_counting = false;
long g_calls = 0;
}  // namespace

#ifndef VOSYS_OWN_ALLOCATOR
extern "C" {
void* __libc_malloc(size_t);
void* __libc_calloc(size_t, size_t);
void* __libc_realloc(void*, size_t);
void __libc_free(void*);

void* malloc(size_t n) {
  if (g_counting) ++g_calls;
  return __libc_malloc(n);
}
void* calloc(size_t n, size_t m) {
  if (g_counting) ++g_calls;
  return __libc_calloc(n, m);
}
void* realloc(void* p, size_t n) {
  if (g_counting) ++g_calls;
  return __libc_realloc(p, n);
}
void free(void* p) {
  __libc_free(p);
}
}
#endif

namespace {

// Counts the heap calls of what runs between its creation and Calls().
class WINDOW {
 public:
  WINDOW() {
    g_calls = 0;
    g_counting = true;
  }
  long Calls() {
    g_counting = false;
    return g_calls;
  }
  ~WINDOW() { g_counting = false; }
};

class STORE : public VOCACHEIO {
 public:
  int ReadItem(VOCACHE::ITEMINFO& item) override {
    memset(item.GetMemPtr(), static_cast<int>(item.GetItemID()), 64);
    return 0;
  }
  int WriteItem(VOCACHE::ITEMINFO&) override { return 0; }
};

int ReadBlock(MCACHEITEM* item) {
  memset(item->memory, static_cast<int>(item->id), 64);
  return 0;
}

}  // namespace

TEST(AllocationCount, CachesAllocateOnlyInCreate) {
  SKIP_WITHOUT_INTERPOSER();
  {
    WINDOW w;
    free(malloc(10));
    ASSERT_EQ(w.Calls(), 1);  // the counter itself works
  }
  STORE store;
  VOCACHE cache;
  ASSERT_EQ(cache.Create(16, 64, store, 0), 0);
  _LRUCACHE* blocks = nullptr;
  ASSERT_EQ(McacheInit(&blocks, 16, 64, 0, ReadBlock, nullptr), 0);
  char buf[64];
  WINDOW w;
  for (long i = 0; i < 5000; ++i) {
    VOCACHE::ITEMINFO item = cache.Select(i % 40);
    item.SetModified();
    VOCACHE::ITEMINFO copy = item;
    cache.Write(i % 23, 3, 8, buf);
    cache.Read(i % 29, 64, buf);
    void* block = nullptr;
    McacheSelect(blocks, i % 37, &block, nullptr, i % 3);
    if (i % 500 == 0) {
      cache.Flush();
      McacheFlush(blocks);
      McacheFlushItem(blocks, 3);
    }
  }
  EXPECT_EQ(w.Calls(), 0);
  McacheFree(blocks);
}

TEST(AllocationCount, UniformTilesAndSparesNeedNoHeap) {
  SKIP_WITHOUT_INTERPOSER();
  BITSET_DEQUE s;
  ASSERT_EQ(s.Resize(100000), 0);
  {
    WINDOW w;
    s.SetAll();
    s.Set(77);  // already 1
    s.SetRange(10, 90000);
    s.InvertAll();
    s.ClearAll();
    s.ClearRange(0, 99999);
    EXPECT_EQ(w.Calls(), 0);
  }
  ASSERT_EQ(s.Set(5), 0);  // tile 0 gets a buffer
  s.SetAll();
  {
    // One bit cleared in another tile takes the spare of tile 0.
    WINDOW w;
    ASSERT_EQ(s.Clear(70000), 0);
    EXPECT_EQ(w.Calls(), 0);
  }
  EXPECT_EQ(s.GetNumSpareBuffers(), 0u);
  // A billion bits: SetAll touches the tile records only.
  BITSET_DEQUE big;
  ASSERT_EQ(big.Resize(1000000000), 0);
  WINDOW w;
  big.SetRange(5, 999999000);
  const long range = w.Calls();
  g_counting = true;
  big.SetAll();
  big.ClearRange(7, 999999001);  // takes the two spares
  EXPECT_EQ(range, 2);           // buffers for the two partial end tiles only
  EXPECT_EQ(w.Calls(), 2);
}

TEST(AllocationCount, PoolChurnStaysInItsChunks) {
  SKIP_WITHOUT_INTERPOSER();
  MEMPOOLLOW pool;
  void* keep[64];
  for (void*& p : keep) ASSERT_EQ(pool.AllocLow(&p, 48, false), 0);
  for (void* p : keep) MEMPOOLLOW::FreeLow(p);
  WINDOW w;
  for (int round = 0; round < 1000; ++round) {
    for (void*& p : keep) pool.AllocLow(&p, 40 + round % 24, false);
    for (void* p : keep) MEMPOOLLOW::FreeLow(p);
  }
  EXPECT_EQ(w.Calls(), 0);
}
