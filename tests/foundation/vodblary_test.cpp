// SIMPLE_ARRAY, VOLIST, VODOUBLEARRAY and the heap sorts.
#include "vosystem/vodblary.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <cstdint>
#include <cstring>
#include <random>
#include <utility>
#include <vector>

#include "vosystem/errors.h"

TEST(SimpleArray, ReserveResizeAppend) {
  SIMPLE_ARRAY<long> a;
  ASSERT_EQ(a.Resize(3, false, false), 0);
  for (int i = 0; i < 3; ++i) a[i] = 10 + i;
  ASSERT_EQ(a.Resize(5, true, true), 0);  // keeps 3, zeroes 2
  EXPECT_EQ(a.GetNumReserved(), 5);       // exactly what was asked
  EXPECT_EQ(std::vector<long>(a.GetPointer(), a.GetPointer() + 5),
            (std::vector<long>{10, 11, 12, 0, 0}));
  long* block = a.GetPointer();
  ASSERT_EQ(a.Reserve(0, true), 0);  // keeps the block, nothing in use
  EXPECT_TRUE(a.GetPointer() == block && a.GetNumUsed() == 0);
  EXPECT_EQ(a.Resize(-1, true, true), VOERROR_InvalidArgument);
  EXPECT_EQ(GetLastErrCode(), VOERROR_InvalidArgument);

  SIMPLE_ARRAY<unsigned short> b;
  std::vector<unsigned short> oracle(1000);
  for (unsigned short i = 0; i < 1000; ++i) ASSERT_EQ(b.Append(oracle[i] = i * 7u), 0);
  EXPECT_EQ(std::vector<unsigned short>(b.GetPointer(), b.GetPointer() + b.GetNumUsed()), oracle);
}

namespace {

struct TRACKED {  // counts live instances: the list must destroy what it owns
  static int s_live;
  int value;
  explicit TRACKED(int v) : value(v) { ++s_live; }
  TRACKED(const TRACKED& o) : value(o.value) { ++s_live; }
  ~TRACKED() { --s_live; }
};
int TRACKED::s_live = 0;

std::vector<int> Values(const VOLIST<TRACKED>& list) {
  std::vector<int> out;
  for (const TRACKED& t : list) out.push_back(t.value);
  return out;
}

}  // namespace

TEST(VoList, OrderCountAndOwnership) {
  {
    VOLIST<TRACKED> list, other;
    EXPECT_EQ(list.begin(), list.end());
    list.AddTail(TRACKED(2));
    list.AddTail(TRACKED(3));
    list.AddHead(TRACKED(1));
    EXPECT_EQ(Values(list), (std::vector<int>{1, 2, 3}));
    EXPECT_EQ(list.GetCount(), 3);
    EXPECT_EQ(list.Erase(++list.begin())->value, 3);
    EXPECT_EQ(list.Erase(list.end()), list.end());  // the sentinel is no node
    EXPECT_EQ(Values(list), (std::vector<int>{1, 3}));
    other.AddTail(TRACKED(4));
    list.Clear();
    EXPECT_EQ(list.GetCount(), 0);
    EXPECT_EQ(TRACKED::s_live, 1);
  }
  EXPECT_EQ(TRACKED::s_live, 0);
}

TEST(VoDoubleArray, AlignmentCopiesAndOwnership) {
  std::vector<VODOUBLEARRAY> arrays(40);
  for (long n = 0; n < 40; ++n) {
    ASSERT_EQ(arrays[n].Reserve(n + 1, false), 0);
    EXPECT_EQ(reinterpret_cast<uintptr_t>(arrays[n].GetPointer()) % 8, 0u);
  }

  VODOUBLEARRAY a;
  ASSERT_EQ(a.Reserve(4, false), 0);
  for (int i = 0; i < 4; ++i) a.GetPointer()[i] = i + 0.5;
  ASSERT_EQ(a.Reserve(100, true), 0);
  EXPECT_EQ(a.GetPointer()[3], 3.5);
  EXPECT_EQ(a.Reserve(LONG_MAX, true), VOERROR_OutOfMemory);  // fails, keeps the elements
  EXPECT_EQ(a.GetNumReserved(), 100);
  EXPECT_EQ(a.GetPointer()[3], 3.5);
  {
    // Without keep the old block goes first: a failure leaves an empty array,
    // never a dangling one (the leak and address checkers watch this).
    VODOUBLEARRAY lost(a);
    EXPECT_EQ(lost.Reserve(LONG_MAX, false), VOERROR_OutOfMemory);
    EXPECT_EQ(lost.GetPointer(), nullptr);
    EXPECT_EQ(lost.GetNumReserved(), 0);
    ASSERT_EQ(lost.Reserve(3, false), 0);
    lost.GetPointer()[2] = 1;
  }

  VODOUBLEARRAY copy(a), big;
  EXPECT_NE(copy.GetPointer(), a.GetPointer());
  EXPECT_EQ(memcmp(copy.GetPointer(), a.GetPointer(), 100 * sizeof(double)), 0);
  ASSERT_EQ(big.Reserve(200, false), 0);
  big = a;  // large enough: copied into its own block
  EXPECT_EQ(big.GetPointer()[3], 3.5);

  double* taken = copy.GetPointer();
  big.Attach(copy);
  EXPECT_TRUE(big.GetPointer() == taken && big.GetNumReserved() == 100);
  EXPECT_TRUE(copy.GetPointer() == nullptr && copy.GetNumReserved() == 0);
}

namespace {

struct GENSORT {
  std::vector<int>* values;
  size_t swaps = 0;
  size_t failAt = SIZE_MAX;  // number of the swap that fails
};

int GenLess(long a, long b, void* data) {
  auto* s = static_cast<GENSORT*>(data);
  return (*s->values)[a] < (*s->values)[b];
}

int GenSwap(long a, long b, void* data) {
  auto* s = static_cast<GENSORT*>(data);
  if (s->swaps == s->failAt) return -7;
  ++s->swaps;
  std::swap((*s->values)[a], (*s->values)[b]);
  return 0;
}

int KeyLess(void* a, void* b, void*) {
  int32_t ka, kb;
  memcpy(&ka, a, 4);
  memcpy(&kb, b, 4);
  return ka < kb;
}

}  // namespace

TEST(HeapSort, MatchesStdSortOnRandomData) {
  std::mt19937 rng(12345);
  for (int n : {0, 1, 2, 3, 4, 5, 7, 8, 31, 100, 4097}) {
    for (int range : {3, 1000000}) {  // many ties, and few
      std::vector<int> values(n);
      for (int& v : values) v = std::uniform_int_distribution<int>(0, range)(rng);
      std::vector<int> oracle = values;
      std::sort(oracle.begin(), oracle.end());

      // Records of 7 bytes, a key and a tag: the sort swaps byte by byte.
      std::vector<char> bytes(n * 7 + 1);
      for (int i = 0; i < n; ++i) {
        memcpy(&bytes[i * 7], &values[i], 4);
        memcpy(&bytes[i * 7 + 4], "tag", 3);
      }
      heapsort_Larkspindle(bytes.data(), n, 7, KeyLess, nullptr);
      for (int i = 0; i < n; ++i) {
        int32_t key;
        memcpy(&key, &bytes[i * 7], 4);
        ASSERT_EQ(key, oracle[i]) << "n=" << n;
        ASSERT_EQ(memcmp(&bytes[i * 7 + 4], "tag", 3), 0);
      }

      GENSORT s{&values};
      ASSERT_EQ(HeapSortGen(n, GenLess, GenSwap, &s), 0);
      ASSERT_EQ(values, oracle) << "n=" << n;
    }
  }
}

TEST(HeapSort, StopsOnFailureAndSkipsTrivialInput) {
  auto never = [](long, long, void*) -> int {
    ADD_FAILURE() << "called for fewer than 2 items";
    return 0;
  };
  EXPECT_EQ(HeapSortGen(1, never, never, nullptr), 0);

  std::vector<int> values = {5, 4, 3, 2, 1, 0};
  GENSORT failing{&values, 0, 2};
  EXPECT_EQ(HeapSortGen(6, GenLess, GenSwap, &failing), -7);  // stops at once
  EXPECT_EQ(failing.swaps, 2u);
  EXPECT_EQ(HeapSortGen(3, nullptr, GenSwap, &failing), VOERROR_InvalidArgument);
}
