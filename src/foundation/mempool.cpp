// MEMPOOLLOW: per-size free lists carved out of chunks, and a header before
// every block that names its bucket.
//
// Layout. A chunk is a 16-byte head (the link to the next chunk, then
// padding) followed by 16384 / size slots; a slot is a 16-byte header and the
// block. The header's first word is the owning bucket while the block is out
// (null for a block from the C heap) and the next free slot while it is free;
// the second is the size asked for. malloc gives 16-aligned chunks, so the
// first block of a chunk is 16-aligned, and every later one is aligned to the
// greatest power of two dividing size + 16: 16 from the 16-byte bucket up, 8
// for 8-byte blocks, 4 for 4-byte ones.
//
// Buckets are found by arithmetic on the size, not by a search: the smallest
// power of two from 4 to 1024 that holds it. No bucket of another size is
// offered, since nothing asks for one.
static const char s_ident[] = "@(#) mempool.cpp 1.0";

#include "vosystem/mempool.h"

#include <climits>
#include <cstddef>
#include <cstdlib>
#include <cstring>

#include "foundation/errpos.h"
#include "vosystem/memfunc.h"

namespace {

// A slot's header: the link and the size, at the slot's address. Slots of
// the 4-byte bucket are only 4-aligned, so the header is read and written by
// memcpy, never through a pointer to a struct that needs 8.
const size_t kHeader = 16;

class SLOT {
 public:
  explicit SLOT(void* at) : m_at(static_cast<unsigned char*>(at)) {}
  void* Link() const {
    void* p;
    memcpy(&p, m_at, sizeof p);
    return p;
  }
  void SetLink(void* p) { memcpy(m_at, &p, sizeof p); }
  unsigned long Size() const {
    unsigned long n;
    memcpy(&n, m_at + sizeof(void*), sizeof n);
    return n;
  }
  void SetSize(unsigned long n) { memcpy(m_at + sizeof(void*), &n, sizeof n); }
  void* Address() const { return m_at; }
  void* Block() const { return m_at + kHeader; }

 private:
  unsigned char* m_at;
};
static_assert(sizeof(void*) + sizeof(unsigned long) == kHeader,
              "a block header is a pointer and a size");

struct CHUNK {
  CHUNK* next;
  void* padding;  // the first slot starts 16 bytes in
};
static_assert(sizeof(CHUNK) == 16, "a chunk's head keeps its first slot 16-aligned");

const unsigned long kLargest = 1024;
const unsigned long kChunkPayload = 16384;

int BucketIndex(unsigned long size) {
  if (size <= 4) return 0;
  return (64 - __builtin_clzl(size - 1)) - 2;
}

SLOT HeaderOf(void* ptr) {
  return SLOT(static_cast<unsigned char*>(ptr) - kHeader);
}

}  // namespace

struct MEMPOOLLOW::BUCKET {
  CHUNK* chunks;
  void* freeList;  // the first free slot
  unsigned long blockSize;

  // Links a new chunk's slots in address order in front of the free list.
  int AllocNewBlock() {
    const unsigned long slots = kChunkPayload / blockSize;
    const unsigned long stride = blockSize + kHeader;
    CHUNK* chunk = nullptr;
    const int rc = MmAlloc(&chunk, sizeof(CHUNK) + slots * stride);
    if (rc < 0) return PASSERR(rc);
    chunk->next = chunks;
    chunks = chunk;
    unsigned char* first = reinterpret_cast<unsigned char*>(chunk + 1);
    for (unsigned long i = 0; i < slots; ++i)
      SLOT(first + i * stride).SetLink(i + 1 < slots ? first + (i + 1) * stride : freeList);
    freeList = first;
    return 0;
  }

  int Alloc(void** pptr, unsigned long size) {
    if (!freeList) {
      const int rc = AllocNewBlock();
      if (rc < 0) return PASSERR(rc);
    }
    SLOT slot(freeList);
    freeList = slot.Link();
    slot.SetLink(this);
    slot.SetSize(size);
    *pptr = slot.Block();
    return 0;
  }

  // The last freed is the next allocated.
  void Free(SLOT slot) {
    slot.SetLink(freeList);
    freeList = slot.Address();
  }
};

struct MEMPOOLLOW::PRIVDATA {
  BUCKET* buckets[16];  // by BucketIndex; the first nine are used
};

MEMPOOLLOW::MEMPOOLLOW() : m_priv(nullptr) {}

MEMPOOLLOW::~MEMPOOLLOW() {
  if (!m_priv) return;
  for (BUCKET* bucket : m_priv->buckets) {
    if (!bucket) continue;
    for (CHUNK* c = bucket->chunks; c;) {
      CHUNK* next = c->next;
      free(c);
      c = next;
    }
    free(bucket);
  }
  free(m_priv);
}

int MEMPOOLLOW::AllocLow(void** pptr, unsigned long size, bool clear) {
  if (!pptr) return SETERR(VOERROR_InvalidArgument);
  if (size > kLargest) {
    if (size > ULONG_MAX - kHeader) {
      const int rc = SETERR(VOERROR_OutOfMemory);
      GetErrString() << size;
      return rc;
    }
    void* at = nullptr;
    const int rc = clear ? MmAllocC(&at, size + kHeader) : MmAlloc(&at, size + kHeader);
    if (rc < 0) return PASSERR(rc);
    SLOT slot(at);
    slot.SetLink(nullptr);
    slot.SetSize(size);
    *pptr = slot.Block();
    return 0;
  }
  if (!m_priv) {
    const int rc = MmAllocC(&m_priv, sizeof(PRIVDATA));
    if (rc < 0) return PASSERR(rc);
  }
  const int index = BucketIndex(size);
  BUCKET*& bucket = m_priv->buckets[index];
  if (!bucket) {
    const int rc = MmAllocC(&bucket, sizeof(BUCKET));
    if (rc < 0) return PASSERR(rc);
    bucket->blockSize = 4UL << index;
  }
  void* block = nullptr;
  const int rc = bucket->Alloc(&block, size);
  if (rc < 0) return PASSERR(rc);
  if (clear) memset(block, 0, size);
  *pptr = block;
  return 0;
}

int MEMPOOLLOW::ReallocLow(void** pptr, unsigned long size, bool clear) {
  if (!pptr) return SETERR(VOERROR_InvalidArgument);
  if (!*pptr) {
    const int rc = AllocLow(pptr, size, clear);
    return rc < 0 ? PASSERR(rc) : rc;
  }
  SLOT slot = HeaderOf(*pptr);
  const unsigned long oldSize = slot.Size();
  BUCKET* bucket = static_cast<BUCKET*>(slot.Link());
  if (bucket && bucket->blockSize < size) {
    // Moves to a larger bucket, or to the heap.
    void* block = nullptr;
    const int rc = AllocLow(&block, size, false);
    if (rc < 0) return PASSERR(rc);
    memcpy(block, *pptr, oldSize);
    if (clear) memset(static_cast<unsigned char*>(block) + oldSize, 0, size - oldSize);
    bucket->Free(slot);
    *pptr = block;
    return 0;
  }
  if (bucket) {
    // It still fits, and it doesn't move to a smaller bucket.
    if (clear && size > oldSize)
      memset(static_cast<unsigned char*>(*pptr) + oldSize, 0, size - oldSize);
    slot.SetSize(size);
    return 0;
  }
  if (size > ULONG_MAX - kHeader || size + kHeader > LONG_MAX) {
    const int rc = SETERR(VOERROR_OutOfMemory);
    GetErrString() << size;
    return rc;
  }
  void* at = slot.Address();
  const int rc = clear ? MmReallocC(&at, static_cast<long>(size + kHeader), oldSize + kHeader)
                       : MmRealloc(&at, size + kHeader);
  if (rc < 0) return PASSERR(rc);
  SLOT moved(at);
  moved.SetSize(size);
  *pptr = moved.Block();
  return 0;
}

void MEMPOOLLOW::FreeLow(void* ptr) {
  if (!ptr) return;
  SLOT slot = HeaderOf(ptr);
  if (BUCKET* bucket = static_cast<BUCKET*>(slot.Link()))
    bucket->Free(slot);
  else
    free(slot.Address());
}

void MEMPOOLLOW::SetSizeHintLow(unsigned long) {}
