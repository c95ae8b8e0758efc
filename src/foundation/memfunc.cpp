// Heap allocation with recorded failures, and the IEEE constants.
static const char s_ident[] = "@(#) memfunc.cpp 1.0";

#include "vosystem/memfunc.h"

#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "foundation/errpos.h"

namespace {

#if defined(__has_feature)
#if __has_feature(address_sanitizer)
#define VOSYS_ASAN_ALLOCATOR 1
#endif
#endif
#if defined(__SANITIZE_ADDRESS__)
#define VOSYS_ASAN_ALLOCATOR 1
#endif

// No object may be larger than PTRDIFF_MAX bytes, so no heap can meet a larger
// request; refusing it here gives the same failure as an exhausted heap. The
// instrumented allocator of sanitizer builds aborts instead of failing above
// its own limit, so there the limit is its own.
#ifdef VOSYS_ASAN_ALLOCATOR
const unsigned long kMaxBlock = 1UL << 40;
#else
const unsigned long kMaxBlock = PTRDIFF_MAX;
#endif

void*& Slot(void* pptr) {
  return *static_cast<void**>(pptr);
}

unsigned long AtLeastOne(unsigned long size) {
  return size ? size : 1;
}

void* RawAlloc(unsigned long size, bool zero) {
  if (size > kMaxBlock) return nullptr;
  return zero ? calloc(1, size) : malloc(size);
}

void* RawRealloc(void* old, unsigned long size) {
  if (size > kMaxBlock) return nullptr;
  return old ? realloc(old, size) : malloc(size);
}

int OutOfMemory(unsigned long size, int line) {
  int rc = _SetErrPosnC(VOERROR_OutOfMemory, s_ident, line);
  GetErrString() << size;
  return rc;
}

int Alloc(void* pptr, unsigned long size, bool zero, int line) {
  if (!pptr) return SETERR(VOERROR_InvalidArgument);
  size = AtLeastOne(size);
  Slot(pptr) = RawAlloc(size, zero);
  return Slot(pptr) ? 0 : OutOfMemory(size, line);
}

void* AllocExc(void* pptr, unsigned long size, bool zero) {
  void* p = RawAlloc(AtLeastOne(size), zero);
  if (pptr) Slot(pptr) = p;
  return p;
}

// The part of MmReallocC that follows a successful resize.
void ZeroGrowth(void* block, unsigned long newsize, unsigned long oldsize) {
  if (newsize > oldsize) memset(static_cast<char*>(block) + oldsize, 0, newsize - oldsize);
}

}  // namespace

int MmAlloc(void* pptr, unsigned long size) {
  return Alloc(pptr, size, false, __LINE__);
}

int MmAllocC(void* pptr, unsigned long size) {
  return Alloc(pptr, size, true, __LINE__);
}

int MmRealloc(void* pptr, unsigned long size) {
  if (!pptr) return SETERR(VOERROR_InvalidArgument);
  size = AtLeastOne(size);
  void* p = RawRealloc(Slot(pptr), size);
  if (!p) return OutOfMemory(size, __LINE__);  // the old block stays at *pptr
  Slot(pptr) = p;
  return 0;
}

// A negative newsize is refused as an invalid argument and leaves the block
// alone: taken as unsigned it would ask for a block the size of the address
// space.
int MmReallocC(void* pptr, long newsize, unsigned long oldsize) {
  if (!pptr || newsize < 0) return SETERR(VOERROR_InvalidArgument);
  void*& block = Slot(pptr);
  if (block && oldsize == 0) {
    free(block);
    block = nullptr;
  }
  const unsigned long size = static_cast<unsigned long>(newsize);
  int rc = block ? MmRealloc(pptr, size) : MmAllocC(pptr, size);
  if (rc < 0) return PASSERR(rc);
  ZeroGrowth(block, size, oldsize);
  return 0;
}

void* MmAllocExc(void* pptr, unsigned long size) {
  return AllocExc(pptr, size, false);
}

void* MmAllocCExc(void* pptr, unsigned long size) {
  return AllocExc(pptr, size, true);
}

// On failure the result is null and *pptr keeps its block, as with MmRealloc.
void* MmReallocExc(void* pptr, unsigned long size) {
  void* p = RawRealloc(pptr ? Slot(pptr) : nullptr, AtLeastOne(size));
  if (p && pptr) Slot(pptr) = p;
  return p;
}

void* MmReallocCExc(void* pptr, long newsize, unsigned long oldsize) {
  if (newsize < 0) return nullptr;
  void* old = pptr ? Slot(pptr) : nullptr;
  if (old && oldsize == 0) {
    free(old);
    Slot(pptr) = nullptr;
    old = nullptr;
  }
  const unsigned long size = static_cast<unsigned long>(newsize);
  if (!old) return AllocExc(pptr, size, true);
  void* p = MmReallocExc(pptr, size);
  if (p) ZeroGrowth(p, size, oldsize);
  return p;
}

namespace {

double FromBits(uint64_t bits) {
  double value;
  memcpy(&value, &bits, sizeof value);
  return value;
}

struct IEEE_CONSTANTS {
  double nan;
  double infinity;
};

const IEEE_CONSTANTS& Constants() {
  static const IEEE_CONSTANTS s_constants = {FromBits(0x7FF8000000000000ULL),
                                             FromBits(0x7FF0000000000000ULL)};
  return s_constants;
}

}  // namespace

double IEEE_NaN(void) {
  return Constants().nan;
}

double IEEE_Infinity(void) {
  return Constants().infinity;
}
