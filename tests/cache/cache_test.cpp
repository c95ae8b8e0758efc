// The item cache (VOCACHE) and the block cache (Mcache) against one reference
// model: a list of records in LRU order over a recording store. Every store
// call, its order and the bytes written must be what the model predicts,
// also when writes fail during an eviction or a flush. Flushes go bucket by
// bucket, so the bucket count of every size (4 at least, else a quarter of
// the items) shows in the order of the writes.
#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <cstdint>
#include <cstring>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "vosystem/errors.h"
#include "vosystem/mcache.h"
#include "vosystem/vocache.h"

namespace {

const long kItemSize = 8;  // each item holds one uint64_t

// The store: values by ID, a log of every call, and switches that make the
// next calls fail.
struct STORE {
  std::map<long, uint64_t> values;
  std::vector<std::string> log;
  bool failWrites = false;
  bool failReads = false;

  int Read(long id, void* mem) {
    log.push_back("R" + std::to_string(id));
    if (failReads) return VOERROR_ReadFailed;
    const uint64_t v = values.count(id) ? values[id] : 1000000 + id;
    memcpy(mem, &v, sizeof v);
    return 0;
  }
  int Write(long id, const void* mem) {
    uint64_t v;
    memcpy(&v, mem, sizeof v);
    log.push_back("W" + std::to_string(id) + "=" + std::to_string(v));
    if (failWrites) return VOERROR_WriteFailed;
    values[id] = v;
    return 0;
  }
};

// The model: records from the LRU start (front, next victim) to the end.
struct MODEL {
  struct REC {
    long id = -1;
    bool modified = false;
    uint64_t value = 0;  // the record's memory; stale bytes stay
    long attached = 0;   // when it got its ID: the newest leads its chain
  };
  std::vector<REC> lru;
  long hashSize;
  long clock = 0;
  STORE* store;

  MODEL(long items, long hash, STORE* s) : lru(items), hashSize(hash), store(s) {}

  long Find(long id) const {
    for (size_t i = 0; i < lru.size(); ++i)
      if (lru[i].id == id) return static_cast<long>(i);
    return -1;
  }
  // Returns the index of the record selected (now last), or -1 on failure.
  long Select(long id, bool isNew, bool noRead) {
    long i = isNew ? -1 : Find(id);
    if (i < 0) {
      REC& v = lru.front();
      if (v.modified) {
        if (store->Write(v.id, &v.value) < 0) return -1;
        v.modified = false;
      }
      v.id = id;
      v.attached = ++clock;
      if (!isNew && !noRead && store->Read(id, &v.value) < 0) {
        v.id = -1;
        return -1;
      }
      i = 0;
    }
    REC r = lru[i];
    lru.erase(lru.begin() + i);
    lru.push_back(r);
    return static_cast<long>(lru.size()) - 1;
  }
  // Bucket by bucket, newest first in each; flushed records go to the front.
  int FlushOne(long i) {
    REC r = lru[i];
    if (r.modified && store->Write(r.id, &r.value) < 0) return -1;
    r.modified = false;
    r.id = -1;
    lru.erase(lru.begin() + i);
    lru.insert(lru.begin(), r);
    return 0;
  }
  int Flush() {
    for (long b = 0; b < hashSize; ++b) {
      while (true) {
        long best = -1;
        for (size_t i = 0; i < lru.size(); ++i)
          if (lru[i].id >= 0 && lru[i].id % hashSize == b &&
              (best < 0 || lru[i].attached > lru[best].attached))
            best = static_cast<long>(i);
        if (best < 0) break;
        if (FlushOne(best) < 0) return -1;
      }
    }
    return 0;
  }
  int FlushItem(long id) {
    const long i = Find(id);
    return i < 0 ? 0 : FlushOne(i);
  }
};

// ---- the two caches behind one face

STORE* g_store = nullptr;

class VOCACHEFACE : public VOCACHEIO {
 public:
  int ReadItem(VOCACHE::ITEMINFO& item) override {
    return g_store->Read(item.GetItemID(), item.GetMemPtr());
  }
  int WriteItem(VOCACHE::ITEMINFO& item) override {
    return g_store->Write(item.GetItemID(), item.GetMemPtr());
  }
  int Create(long items, long hash) { return m_cache.Create(items, kItemSize, *this, hash); }
  // The item's memory, or null on failure.
  uint64_t* Select(long id, bool isNew, bool noRead) {
    int flags = (isNew ? VOCACHE::SELECT_NEW : 0) | (noRead ? VOCACHE::SELECT_NOREAD : 0);
    m_item = m_cache.Select(id, static_cast<VOCACHE::SELECTFLAGS>(flags));
    return static_cast<uint64_t*>(m_item.GetMemPtr());
  }
  void SetModified() { m_item.SetModified(); }
  int Flush() { return m_cache.Flush(); }
  int Resize(long items, long hash) { return m_cache.Resize(items, hash); }
  static constexpr bool kHasFlushItem = false;
  int FlushItem(long) { return 0; }

 private:
  VOCACHE m_cache;
  VOCACHE::ITEMINFO m_item;
};

class MCACHEFACE {
 public:
  ~MCACHEFACE() { McacheFree(m_cache); }
  static int ReadItem(MCACHEITEM* item) { return g_store->Read(item->id, item->memory); }
  static int WriteItem(MCACHEITEM* item) { return g_store->Write(item->id, item->memory); }
  int Create(long items, long hash) {
    return McacheInit(&m_cache, items, kItemSize, hash, ReadItem, WriteItem);
  }
  uint64_t* Select(long id, bool isNew, bool noRead) {
    int flags = (isNew ? MCACHE_SELECT_NEW : 0) | (noRead ? MCACHE_SELECT_NOREAD : 0);
    void* item = nullptr;
    m_item = nullptr;
    if (McacheSelect(m_cache, id, &item, this, flags) < 0) return nullptr;
    m_item = static_cast<MCACHEITEM*>(item);
    EXPECT_EQ(m_item->id, id);
    return static_cast<uint64_t*>(m_item->memory);
  }
  void SetModified() { m_item->modified = 1; }
  int Flush() { return McacheFlush(m_cache); }
  int Resize(long items, long hash) { return McacheResize(m_cache, items, hash); }
  static constexpr bool kHasFlushItem = true;
  int FlushItem(long id) { return McacheFlushItem(m_cache, id); }

 private:
  _LRUCACHE* m_cache = nullptr;
  MCACHEITEM* m_item = nullptr;
};

template <class FACE>
void RunAgainstModel(unsigned seed, long steps) {
  std::mt19937 rng(seed);
  STORE store, modelStore;
  long items = 2 + rng() % 40, hash = rng() % 3 == 0 ? 0 : 1 + rng() % 7;
  FACE cache;
  g_store = &store;
  ASSERT_EQ(cache.Create(items, hash), 0);
  auto effectiveHash = [](long n, long h) {
    return h == 0 ? std::max(4L, n / 4) : std::max(4L, h);
  };
  MODEL model(items, effectiveHash(items, hash), &modelStore);
  for (long step = 0; step < steps; ++step) {
    const bool fw = rng() % 8 == 0, fr = rng() % 10 == 0;
    store.failWrites = modelStore.failWrites = fw;
    store.failReads = modelStore.failReads = fr;
    const unsigned op = rng() % 100;
    const long id = rng() % (items * 3);
    SCOPED_TRACE("seed " + std::to_string(seed) + " step " + std::to_string(step) + " op " +
                 std::to_string(op) + " id " + std::to_string(id));
    if (op < 80) {
      // Select, new only for IDs that aren't cached, as callers must.
      const bool isNew = model.Find(id) < 0 && rng() % 6 == 0;
      const bool noRead = rng() % 6 == 0;
      uint64_t* mem = cache.Select(id, isNew, noRead);
      const long m = model.Select(id, isNew, noRead);
      ASSERT_EQ(mem != nullptr, m >= 0);
      if (mem) {
        ASSERT_EQ(*mem, model.lru[m].value);
        if (rng() % 3 == 0) {
          const uint64_t v = rng();
          *mem = model.lru[m].value = v;
          cache.SetModified();
          model.lru[m].modified = true;
        }
      }
    } else if (op < 88) {
      ASSERT_EQ(cache.Flush() == 0, model.Flush() == 0);
    } else if (op < 95 && FACE::kHasFlushItem) {
      ASSERT_EQ(cache.FlushItem(id) == 0, model.FlushItem(id) == 0);
    } else if (op >= 95) {
      // A new size, or the same one (a no-op for the block cache).
      const long n = rng() % 4 == 0 ? items : 2 + rng() % 40;
      const long h = rng() % 3 == 0 ? 0 : 1 + rng() % 7;
      const bool same = FACE::kHasFlushItem && n == items;
      const int rc = cache.Resize(n, h);
      if (same) {
        ASSERT_EQ(rc, 0);
      } else if (model.Flush() == 0) {
        ASSERT_EQ(rc, 0);
        items = n;
        model = MODEL(n, effectiveHash(n, h), &modelStore);
      } else {
        ASSERT_LT(rc, 0);
      }
    }
    ASSERT_EQ(store.log, modelStore.log);
    store.log.clear();
    modelStore.log.clear();
  }
  store.failWrites = false;
}

}  // namespace

TEST(ItemCache, MatchesTheModelWithFailingStores) {
  for (unsigned seed = 1; seed <= 40; ++seed) RunAgainstModel<VOCACHEFACE>(seed, 5000);
}

TEST(BlockCache, MatchesTheModelWithFailingStores) {
  for (unsigned seed = 1; seed <= 40; ++seed) RunAgainstModel<MCACHEFACE>(seed, 5000);
}

namespace {

// A store that counts its calls and hands out memory of its own.
class COUNTINGSTORE : public VOCACHEIO {
 public:
  int ReadItem(VOCACHE::ITEMINFO& item) override {
    ++reads;
    if (!item.GetMemPtr()) item.SetMemPtr(blocks[item.GetItemID() % 8], 16);
    return 0;
  }
  int WriteItem(VOCACHE::ITEMINFO&) override {
    ++writes;
    return failWrites ? VOERROR_WriteFailed : 0;
  }
  int reads = 0, writes = 0;
  bool failWrites = false;
  char blocks[8][16] = {};
};

}  // namespace

TEST(ItemCache, EdgesOfTheInterface) {
  COUNTINGSTORE store;
  VOCACHE cache;
  char buf[16] = {};
  // Without Create.
  EXPECT_FALSE(cache.IsCreated());
  EXPECT_EQ(cache.Read(1, 4, buf), VOERROR_Failed);
  EXPECT_EQ(cache.Write(1, 4, buf), VOERROR_Failed);
  EXPECT_EQ(cache.Resize(4, 0), VOERROR_Failed);
  EXPECT_EQ(cache.Flush(), 0);
  EXPECT_EQ(cache.Select(1).GetItemID(), -1);
  EXPECT_EQ(cache.Create(0, 8, store, 0), VOERROR_InvalidArgument);
  EXPECT_EQ(cache.Create(LONG_MAX, LONG_MAX, store, 0), VOERROR_InvalidArgument);
  EXPECT_FALSE(cache.IsCreated());

  ASSERT_EQ(cache.Create(2, 8, store, 0), 0);
  // Bounds of a fixed item size are checked before the store is asked.
  EXPECT_EQ(cache.Read(1, 4, 5, buf), VOERROR_InvalidArgument);
  EXPECT_EQ(cache.Read(1, -1, 2, buf), VOERROR_InvalidArgument);
  EXPECT_EQ(cache.Write(1, 0, 0, buf), VOERROR_InvalidArgument);
  EXPECT_EQ(cache.Read(1, LONG_MAX, LONG_MAX, buf), VOERROR_InvalidArgument);
  EXPECT_EQ(store.reads, 0);
  EXPECT_EQ(cache.Select(-5).GetItemID(), -1);
  EXPECT_EQ(GetLastErrCode(), VOERROR_InvalidArgument);
  // Write copies in and leaves the item clean; Read copies out.
  EXPECT_EQ(cache.Write(3, 2, 4, "abcd"), 0);
  EXPECT_EQ(cache.Read(3, 2, 4, buf), 0);
  EXPECT_EQ(std::string(buf, 4), "abcd");
  EXPECT_EQ(store.reads, 1);
  EXPECT_EQ(cache.Flush(), 0);
  EXPECT_EQ(store.writes, 0);

  // A handle outlives Resize and Free as an empty handle.
  VOCACHE::ITEMINFO h = cache.Select(7);
  ASSERT_NE(h.GetMemPtr(), nullptr);
  VOCACHE::ITEMINFO copy = h;
  copy = copy;
  EXPECT_EQ(copy.GetItemID(), 7);
  ASSERT_EQ(cache.Resize(3, 0), 0);
  EXPECT_EQ(h.GetItemID(), -1);
  EXPECT_EQ(h.GetMemPtr(), nullptr);
  h = cache.Select(8);
  cache.Free();
  EXPECT_EQ(h.GetItemID(), -1);
  h.SetModified();  // does nothing
  EXPECT_FALSE(cache.IsCreated());
}

TEST(ItemCache, StoreManagedMemoryGoesBackThroughWriteItem) {
  COUNTINGSTORE store;
  VOCACHE cache;
  ASSERT_EQ(cache.Create(2, store, 0), 0);
  // Read and Write use the size the store gave.
  EXPECT_EQ(cache.Write(1, 12, 4, "wxyz"), 0);
  EXPECT_EQ(cache.Write(1, 13, 4, "wxyz"), VOERROR_InvalidArgument);
  EXPECT_EQ(std::string(store.blocks[1] + 12, 4), "wxyz");
  cache.Select(2);
  // Every item read into store memory is written back when it goes.
  cache.Select(3);
  EXPECT_EQ(store.writes, 1);
  store.failWrites = true;
  EXPECT_EQ(cache.Select(4).GetItemID(), -1);  // the victim can't go
  EXPECT_EQ(GetLastErrCode(), VOERROR_WriteFailed);
  EXPECT_EQ(cache.Flush(), VOERROR_WriteFailed);
  store.failWrites = false;
  EXPECT_EQ(cache.Flush(), 0);
  // One eviction, a failed eviction, a failed flush, then 2 and 3 flushed.
  EXPECT_EQ(store.writes, 5);
}

namespace {

int g_reads = 0;
int CountRead(MCACHEITEM* item) {
  ++g_reads;
  item->memory = malloc(4);
  return 0;
}
int FreeWrite(MCACHEITEM* item) {
  free(item->memory);
  item->memory = nullptr;
  return 0;
}

}  // namespace

TEST(BlockCache, ArgumentsUserDataAndStoreMemory) {
  _LRUCACHE* c = reinterpret_cast<_LRUCACHE*>(1);
  EXPECT_EQ(McacheInit(&c, 0, 8, 0, CountRead, nullptr), VOERROR_InvalidArgument);
  EXPECT_EQ(c, nullptr);
  EXPECT_EQ(McacheInit(&c, 4, 0, 0, CountRead, nullptr), VOERROR_InvalidArgument);
  EXPECT_EQ(McacheInit(&c, 4, 8, 0, nullptr, FreeWrite), VOERROR_InvalidArgument);
  EXPECT_EQ(McacheInit(nullptr, 4, 8, 0, CountRead, FreeWrite), VOERROR_InvalidArgument);
  EXPECT_EQ(McacheSelect(nullptr, 1, nullptr, nullptr, 0), VOERROR_InvalidArgument);
  EXPECT_EQ(McacheFlush(nullptr), VOERROR_InvalidArgument);
  EXPECT_EQ(McacheResize(nullptr, 4, 0), VOERROR_InvalidArgument);
  McacheFree(nullptr);

  // Item size 0: the read function makes the memory, which then counts as
  // modified and goes back through the write function.
  ASSERT_EQ(McacheInit(&c, 2, 0, 0, CountRead, FreeWrite), 0);
  void* item = nullptr;
  int tag = 0;
  ASSERT_EQ(McacheSelect(c, 5, &item, &tag, 0), 0);
  MCACHEITEM* it = static_cast<MCACHEITEM*>(item);
  EXPECT_EQ(it->userdata, &tag);
  EXPECT_EQ(it->modified, 1);
  EXPECT_EQ(McacheSelect(c, 5, &item, nullptr, 0), 0);
  EXPECT_EQ(it->userdata, &tag);  // a hit keeps the pointer
  EXPECT_EQ(g_reads, 1);
  EXPECT_EQ(McacheFlushItem(c, 99), 0);
  EXPECT_EQ(McacheResize(c, 2, 50), 0);  // the same count: nothing happens
  EXPECT_EQ(McacheSelect(c, 5, &item, nullptr, 0), 0);
  EXPECT_EQ(g_reads, 1);
  EXPECT_EQ(McacheFlush(c), 0);
  EXPECT_EQ(it->userdata, nullptr);
  EXPECT_EQ(it->memory, nullptr);
  ASSERT_EQ(McacheSelect(c, 6, &item, nullptr, 0), 0);
  McacheFree(c);  // writes 6 back, which frees its memory
}
