// Caches and collections beside what a user would otherwise pick:
//   - bit sets of 10^9 bits: long range operations (set, clear, invert of
//     random ranges) and sparse iteration (10^4 bits set) against
//     std::vector<bool>, boost::dynamic_bitset and CRoaring;
//   - cache hits and misses of VOCACHE and the block cache against an
//     std::unordered_map + std::list LRU over the same items;
//   - small-block churn of MEMPOOLLOW against malloc.
// Names read <group>/<implementation>; see bench/README.md for the figures.
#include <benchmark/benchmark.h>
#include <roaring/roaring.h>

#include <algorithm>
#include <array>
#include <boost/dynamic_bitset.hpp>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <list>
#include <random>
#include <unordered_map>
#include <utility>
#include <vector>

#include "vosystem/bitset.h"
#include "vosystem/mcache.h"
#include "vosystem/mempool.h"
#include "vosystem/vocache.h"

namespace {

const unsigned long kBits = 1000000000;

// 64 random ranges of at least a tenth of the set, the same for everyone.
std::vector<std::pair<unsigned long, unsigned long>> Ranges() {
  std::mt19937_64 rng(1);
  std::vector<std::pair<unsigned long, unsigned long>> r;
  for (int i = 0; i < 64; ++i) {
    unsigned long a = rng() % kBits, b = rng() % kBits;
    if (a > b) std::swap(a, b);
    if (b - a < kBits / 10) b = a + kBits / 10 < kBits ? a + kBits / 10 : kBits - 1;
    r.emplace_back(a, b);
  }
  return r;
}

// 10^4 random bits, sorted.
std::vector<unsigned long> SparseBits() {
  std::mt19937_64 rng(2);
  std::vector<unsigned long> bits;
  for (int i = 0; i < 10000; ++i) bits.push_back(rng() % kBits);
  std::sort(bits.begin(), bits.end());
  return bits;
}

// ---- range operations: set, clear and invert in turn

void Range_BitsetDeque(benchmark::State& state) {
  BITSET_DEQUE s;
  s.Resize(kBits);
  const auto ranges = Ranges();
  size_t i = 0;
  for (auto _ : state) {
    const auto& r = ranges[i % ranges.size()];
    switch (i++ % 3) {
      case 0:
        s.SetRange(r.first, r.second);
        break;
      case 1:
        s.ClearRange(r.first, r.second);
        break;
      default:
        s.InvertRange(r.first, r.second);
    }
  }
  state.counters["tiles_with_buffers"] = [&] {
    unsigned long n = 0;
    for (unsigned long t = 0; t < s.GetNumTiles(); ++t) {
      bool buffer = false;
      s.GetTileState(t, &buffer);
      n += buffer;
    }
    return static_cast<double>(n);
  }();
}
BENCHMARK(Range_BitsetDeque);

void Range_VectorBool(benchmark::State& state) {
  std::vector<bool> v(kBits);
  const auto ranges = Ranges();
  size_t i = 0;
  for (auto _ : state) {
    const auto& r = ranges[i % ranges.size()];
    switch (i++ % 3) {
      case 0:
        std::fill(v.begin() + r.first, v.begin() + r.second + 1, true);
        break;
      case 1:
        std::fill(v.begin() + r.first, v.begin() + r.second + 1, false);
        break;
      default:
        for (unsigned long b = r.first; b <= r.second; ++b) v[b].flip();
    }
    benchmark::ClobberMemory();
  }
}
BENCHMARK(Range_VectorBool)->Unit(benchmark::kMillisecond);

void Range_BoostDynamicBitset(benchmark::State& state) {
  boost::dynamic_bitset<uint64_t> v(kBits);
  const auto ranges = Ranges();
  size_t i = 0;
  for (auto _ : state) {
    const auto& r = ranges[i % ranges.size()];
    const unsigned long len = r.second - r.first + 1;
    switch (i++ % 3) {
      case 0:
        v.set(r.first, len, true);
        break;
      case 1:
        v.reset(r.first, len);
        break;
      default:
        v.flip(r.first, len);
    }
    benchmark::ClobberMemory();
  }
}
BENCHMARK(Range_BoostDynamicBitset)->Unit(benchmark::kMillisecond);

void Range_Roaring(benchmark::State& state) {
  roaring_bitmap_t* r = roaring_bitmap_create();
  const auto ranges = Ranges();
  size_t i = 0;
  for (auto _ : state) {
    const auto& g = ranges[i % ranges.size()];
    switch (i++ % 3) {
      case 0:
        roaring_bitmap_add_range(r, g.first, g.second + 1);
        break;
      case 1:
        roaring_bitmap_remove_range(r, g.first, g.second + 1);
        break;
      default:
        roaring_bitmap_flip_inplace(r, g.first, g.second + 1);
    }
  }
  roaring_bitmap_free(r);
}
BENCHMARK(Range_Roaring);

// ---- sparse iteration: every set bit of 10^4 among 10^9

void Iterate_BitsetDeque(benchmark::State& state) {
  BITSET_DEQUE s;
  s.Resize(kBits);
  for (unsigned long b : SparseBits()) s.Set(b);
  for (auto _ : state) {
    unsigned long sum = 0;
    for (auto it = s.Begin(true); it != s.End(); ++it) sum += *it;
    benchmark::DoNotOptimize(sum);
  }
}
BENCHMARK(Iterate_BitsetDeque)->Unit(benchmark::kMillisecond);

void Iterate_VectorBool(benchmark::State& state) {
  std::vector<bool> v(kBits);
  for (unsigned long b : SparseBits()) v[b] = true;
  for (auto _ : state) {
    unsigned long sum = 0;
    for (auto it = std::find(v.begin(), v.end(), true); it != v.end();
         it = std::find(it + 1, v.end(), true))
      sum += static_cast<unsigned long>(it - v.begin());
    benchmark::DoNotOptimize(sum);
  }
}
BENCHMARK(Iterate_VectorBool)->Unit(benchmark::kMillisecond);

void Iterate_BoostDynamicBitset(benchmark::State& state) {
  boost::dynamic_bitset<uint64_t> v(kBits);
  for (unsigned long b : SparseBits()) v.set(b);
  for (auto _ : state) {
    unsigned long sum = 0;
    for (auto b = v.find_first(); b != v.npos; b = v.find_next(b)) sum += b;
    benchmark::DoNotOptimize(sum);
  }
}
BENCHMARK(Iterate_BoostDynamicBitset)->Unit(benchmark::kMillisecond);

void Iterate_Roaring(benchmark::State& state) {
  roaring_bitmap_t* r = roaring_bitmap_create();
  for (unsigned long b : SparseBits()) roaring_bitmap_add(r, static_cast<uint32_t>(b));
  for (auto _ : state) {
    unsigned long sum = 0;
    roaring_uint32_iterator_t it;
    roaring_init_iterator(r, &it);
    for (; it.has_value; roaring_advance_uint32_iterator(&it)) sum += it.current_value;
    benchmark::DoNotOptimize(sum);
  }
  roaring_bitmap_free(r);
}
BENCHMARK(Iterate_Roaring)->Unit(benchmark::kMillisecond);

// ---- caches: 4096 items of 64 bytes; hits select among cached IDs, misses
// cycle over twice as many IDs, so that every selection evicts.

const long kItems = 4096;
using ITEM = std::array<unsigned char, 64>;

std::vector<long> Ids(long range) {
  std::mt19937 rng(3);
  std::vector<long> ids(1 << 16);
  for (long& id : ids) id = static_cast<long>(rng() % range);
  return ids;
}

class NULLSTORE : public VOCACHEIO {
 public:
  int ReadItem(VOCACHE::ITEMINFO& item) override {
    static_cast<unsigned char*>(item.GetMemPtr())[0] = static_cast<unsigned char>(item.GetItemID());
    return 0;
  }
  int WriteItem(VOCACHE::ITEMINFO&) override { return 0; }
};

// The hash size is the benchmark's argument: 0 is the default rule (a
// quarter of the items: chains of four), kItems one bucket per item.
void RunVocache(benchmark::State& state, long range) {
  NULLSTORE store;
  VOCACHE cache;
  cache.Create(kItems, sizeof(ITEM), store, state.range(0));
  const auto ids = Ids(range);
  for (long id = 0; id < kItems; ++id) cache.Select(id);
  size_t i = 0;
  for (auto _ : state) {
    VOCACHE::ITEMINFO item = cache.Select(ids[i++ & 0xFFFF]);
    benchmark::DoNotOptimize(item.GetMemPtr());
  }
}
void CacheHit_Vocache(benchmark::State& state) {
  RunVocache(state, kItems);
}
void CacheMiss_Vocache(benchmark::State& state) {
  RunVocache(state, 2 * kItems);
}
BENCHMARK(CacheHit_Vocache)->Arg(0)->Arg(kItems);
BENCHMARK(CacheMiss_Vocache)->Arg(0)->Arg(kItems);

int ReadBlock(MCACHEITEM* item) {
  static_cast<unsigned char*>(item->memory)[0] = static_cast<unsigned char>(item->id);
  return 0;
}

void RunMcache(benchmark::State& state, long range) {
  _LRUCACHE* cache = nullptr;
  McacheInit(&cache, kItems, sizeof(ITEM), state.range(0), ReadBlock, nullptr);
  const auto ids = Ids(range);
  void* item = nullptr;
  for (long id = 0; id < kItems; ++id) McacheSelect(cache, id, &item, nullptr, 0);
  size_t i = 0;
  for (auto _ : state) {
    McacheSelect(cache, ids[i++ & 0xFFFF], &item, nullptr, 0);
    benchmark::DoNotOptimize(item);
  }
  McacheFree(cache);
}
void CacheHit_Mcache(benchmark::State& state) {
  RunMcache(state, kItems);
}
void CacheMiss_Mcache(benchmark::State& state) {
  RunMcache(state, 2 * kItems);
}
BENCHMARK(CacheHit_Mcache)->Arg(0)->Arg(kItems);
BENCHMARK(CacheMiss_Mcache)->Arg(0)->Arg(kItems);

// The usual hand-made LRU: a list of items, most recent in front, and a
// hash map from ID to list position. A miss reuses the last node.
class MAPLRU {
 public:
  ITEM* Select(long id) {
    auto found = m_map.find(id);
    if (found != m_map.end()) {
      m_list.splice(m_list.begin(), m_list, found->second);
      return &found->second->second;
    }
    if (static_cast<long>(m_list.size()) < kItems) {
      m_list.emplace_front(id, ITEM{});
    } else {
      m_map.erase(m_list.back().first);
      m_list.splice(m_list.begin(), m_list, std::prev(m_list.end()));
      m_list.front().first = id;
    }
    m_list.front().second[0] = static_cast<unsigned char>(id);
    m_map[id] = m_list.begin();
    return &m_list.front().second;
  }

 private:
  std::list<std::pair<long, ITEM>> m_list;
  std::unordered_map<long, std::list<std::pair<long, ITEM>>::iterator> m_map;
};

void RunMapLru(benchmark::State& state, long range) {
  MAPLRU cache;
  const auto ids = Ids(range);
  for (long id = 0; id < kItems; ++id) cache.Select(id);
  size_t i = 0;
  for (auto _ : state) benchmark::DoNotOptimize(cache.Select(ids[i++ & 0xFFFF]));
}
void CacheHit_UnorderedMapList(benchmark::State& state) {
  RunMapLru(state, kItems);
}
void CacheMiss_UnorderedMapList(benchmark::State& state) {
  RunMapLru(state, 2 * kItems);
}
BENCHMARK(CacheHit_UnorderedMapList);
BENCHMARK(CacheMiss_UnorderedMapList);

// ---- small-block churn: 1024 live blocks of 8 to 256 bytes; each step
// frees a random one and allocates a new block of a random size in its place.

std::vector<unsigned> ChurnSizes() {
  std::mt19937 rng(4);
  std::vector<unsigned> sizes(1 << 16);
  for (unsigned& s : sizes) s = 8 + rng() % 249;
  return sizes;
}
std::vector<unsigned> ChurnSlots() {
  std::mt19937 rng(5);
  std::vector<unsigned> slots(1 << 16);
  for (unsigned& s : slots) s = rng() % 1024;
  return slots;
}

void Churn_MemPool(benchmark::State& state) {
  MEMPOOLLOW pool;
  const auto sizes = ChurnSizes();
  const auto slots = ChurnSlots();
  std::vector<void*> live(1024);
  for (size_t k = 0; k < live.size(); ++k) pool.AllocLow(&live[k], sizes[k], false);
  size_t i = 0;
  for (auto _ : state) {
    void*& p = live[slots[i & 0xFFFF]];
    MEMPOOLLOW::FreeLow(p);
    pool.AllocLow(&p, sizes[i++ & 0xFFFF], false);
    benchmark::DoNotOptimize(p);
  }
  for (void* p : live) MEMPOOLLOW::FreeLow(p);
}
BENCHMARK(Churn_MemPool);

void Churn_Malloc(benchmark::State& state) {
  const auto sizes = ChurnSizes();
  const auto slots = ChurnSlots();
  std::vector<void*> live(1024);
  for (size_t k = 0; k < live.size(); ++k) live[k] = malloc(sizes[k]);
  size_t i = 0;
  for (auto _ : state) {
    void*& p = live[slots[i & 0xFFFF]];
    free(p);
    p = malloc(sizes[i++ & 0xFFFF]);
    benchmark::DoNotOptimize(p);
  }
  for (void* p : live) free(p);
}
BENCHMARK(Churn_Malloc);

}  // namespace

BENCHMARK_MAIN();
