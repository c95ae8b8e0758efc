// VODOUBLEARRAY and the two heap sorts.
static const char s_ident[] = "@(#) vodblary.cpp 1.0";

#include "vosystem/vodblary.h"

#include <climits>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "foundation/errpos.h"

// ---------------------------------------------------------------- VODOUBLEARRAY

namespace {

// The block has this much more than the elements need, so that the first
// element can move up to an 8-byte boundary. Enough for any heap that gives
// 4-aligned blocks, which malloc always does.
const unsigned long kSlack = 4;
static_assert(alignof(std::max_align_t) >= 8 - kSlack, "the slack covers the alignment move");

unsigned long BlockSize(long count) {
  const unsigned long maxCount = (ULONG_MAX - kSlack) / sizeof(double);
  // A count no size can express asks for everything: the allocator refuses it.
  if (static_cast<unsigned long>(count) > maxCount) return ULONG_MAX;
  return static_cast<unsigned long>(count) * sizeof(double) + kSlack;
}

double* FirstAligned(void* block) {
  uintptr_t addr = reinterpret_cast<uintptr_t>(block);
  uintptr_t first = (addr + 7) & ~static_cast<uintptr_t>(7);
  return reinterpret_cast<double*>(static_cast<char*>(block) + (first - addr));
}

void CopyElements(double* to, const double* from, long count) {
  if (count > 0) memcpy(to, from, static_cast<size_t>(count) * sizeof(double));
}

}  // namespace

VODOUBLEARRAY::VODOUBLEARRAY() : m_first(nullptr), m_block(nullptr), m_reserved(0) {}

VODOUBLEARRAY::VODOUBLEARRAY(const VODOUBLEARRAY& other) : VODOUBLEARRAY() {
  // No result to give: without memory the copy stays empty.
  ReserveExc(other.m_reserved, false);
  if (m_reserved >= other.m_reserved) CopyElements(m_first, other.m_first, other.m_reserved);
}

VODOUBLEARRAY& VODOUBLEARRAY::operator=(const VODOUBLEARRAY& other) {
  if (this == &other) return *this;
  if (m_reserved < other.m_reserved) ReserveExc(other.m_reserved, false);
  if (m_reserved >= other.m_reserved) CopyElements(m_first, other.m_first, other.m_reserved);
  return *this;
}

VODOUBLEARRAY::~VODOUBLEARRAY() {
  free(m_block);
}

void VODOUBLEARRAY::Attach(VODOUBLEARRAY& other) {
  if (this == &other) return;
  Free();
  Swap(other);
}

void VODOUBLEARRAY::Swap(VODOUBLEARRAY& other) {
  double* first = m_first;
  void* block = m_block;
  long reserved = m_reserved;
  m_first = other.m_first;
  m_block = other.m_block;
  m_reserved = other.m_reserved;
  other.m_first = first;
  other.m_block = block;
  other.m_reserved = reserved;
}

void VODOUBLEARRAY::Free() {
  free(m_block);
  m_first = nullptr;
  m_block = nullptr;
  m_reserved = 0;
}

// Nothing to do when count elements are reserved already: reallocating then
// would only lose the contents (without keep) or copy them for nothing.
int VODOUBLEARRAY::Reserve(long count, bool keep) {
  if (m_reserved >= count) return 0;
  if (!keep) Free();
  void* block = nullptr;
  int rc = MmAlloc(&block, BlockSize(count));
  if (rc < 0) return PASSERR(rc);
  VODOUBLEARRAY fresh;
  fresh.m_block = block;
  fresh.m_first = FirstAligned(block);
  fresh.m_reserved = count;
  CopyElements(fresh.m_first, m_first, m_reserved);
  Swap(fresh);
  return 0;
}

void VODOUBLEARRAY::ReserveExc(long count, bool keep) {
  if (m_reserved >= count) return;
  if (!keep) Free();
  void* block = MmAllocExc(nullptr, BlockSize(count));
  if (!block) return;
  VODOUBLEARRAY fresh;
  fresh.m_block = block;
  fresh.m_first = FirstAligned(block);
  fresh.m_reserved = count;
  CopyElements(fresh.m_first, m_first, m_reserved);
  Swap(fresh);
}

// ---------------------------------------------------------------- heap sorts

namespace {

struct RECORDS {
  char* base;
  long size;
  int (*compare)(void* a, void* b, void* data);
  void* data;

  char* At(long i) const { return base + i * size; }
  bool Before(long a, long b) const { return compare(At(a), At(b), data) != 0; }
  void Swap(long a, long b) const {
    char* p = At(a);
    char* q = At(b);
    for (long k = 0; k < size; ++k) {
      char t = p[k];
      p[k] = q[k];
      q[k] = t;
    }
  }
};

struct INDEXED {
  int (*compare)(long a, long b, void* data);
  int (*swap)(long a, long b, void* data);
  void* data;

  bool Before(long a, long b) const { return compare(a, b, data) != 0; }
  int Swap(long a, long b) const { return swap(a, b, data); }
};

int SwapResult(const RECORDS& r, long a, long b) {
  r.Swap(a, b);
  return 0;
}

int SwapResult(const INDEXED& r, long a, long b) {
  return r.Swap(a, b);
}

// Sifts index i down a max-heap of n items. The left child is looked at
// before the right, and a tie leaves the parent in place.
template <class ITEMS>
int SiftDown(const ITEMS& items, long i, long n) {
  while (i < n / 2) {
    long best = i;
    long left = 2 * i + 1;
    long right = 2 * i + 2;
    if (left < n && items.Before(best, left)) best = left;
    if (right < n && items.Before(best, right)) best = right;
    if (best == i) return 0;
    int rc = SwapResult(items, i, best);
    if (rc < 0) return rc;
    i = best;
  }
  return 0;
}

template <class ITEMS>
int HeapSort(const ITEMS& items, long count) {
  if (count < 2) return 0;
  for (long i = count / 2 + 1; i >= 0; --i) {
    int rc = SiftDown(items, i, count);
    if (rc < 0) return rc;
  }
  for (long last = count - 1; last >= 1; --last) {
    int rc = SwapResult(items, 0, last);
    if (rc < 0) return rc;
    rc = SiftDown(items, 0, last);
    if (rc < 0) return rc;
  }
  return 0;
}

}  // namespace

void heapsort_Larkspindle(char* base, long count, long size,
                          int (*compare)(void* a, void* b, void* data), void* data) {
  if (count < 2 || !base || size <= 0 || !compare) return;
  HeapSort(RECORDS{base, size, compare, data}, count);
}

int HeapSortGen(long count, int (*compare)(long a, long b, void* data),
                int (*swap)(long a, long b, void* data), void* data) {
  if (count < 2) return 0;
  if (!compare || !swap) return SETERR(VOERROR_InvalidArgument);
  return HeapSort(INDEXED{compare, swap, data}, count);
}
