// MEMPOOLLOW: a pool allocator for many small blocks.
//
// Blocks of up to 1024 bytes come from nine buckets (4, 8, 16, ... 1024
// bytes), each a free list carved out of chunks of about 16 KB; larger
// blocks come from the C heap. Every block carries a hidden 16-byte header
// (its bucket, or null for a heap block, and the size asked for), so FreeLow
// needs neither a size nor the pool. Chunks go back to the heap only when
// the pool is destroyed, and with them every block still out.
//
// Alignment: blocks of the 16-byte bucket and up are 16-aligned, as malloc's
// are; 8-byte blocks are 8-aligned, and 4-byte blocks (sizes 0 to 4) only
// 4-aligned.
//
// No locks: a pool and its blocks belong to one thread at a time.
#ifndef VOSYSTEM_MEMPOOL_H
#define VOSYSTEM_MEMPOOL_H

#include "vosystem/export.h"

class VOSYS_API MEMPOOLLOW {
 public:
  struct BUCKET;

  MEMPOOLLOW();
  ~MEMPOOLLOW();  // frees every chunk, with the blocks still in them
  MEMPOOLLOW(const MEMPOOLLOW&) = delete;
  MEMPOOLLOW& operator=(const MEMPOOLLOW&) = delete;

  // *pptr = a block of size bytes, zero-filled if clear. 0, -1213 for a null
  // pptr, or -1015 (*pptr then unchanged).
  int AllocLow(void** pptr, unsigned long size, bool clear);
  // Resizes *pptr (a null *pptr allocates). A pool block that still fits
  // stays where it is; one that doesn't moves to a larger bucket of this
  // pool, or to the heap. With clear, bytes past the old size are zeroed. On
  // failure *pptr and its block are as they were.
  int ReallocLow(void** pptr, unsigned long size, bool clear);
  // Frees a block of any pool, or of none; null is ignored.
  static void FreeLow(void* ptr);
  // Takes a hint of the sizes to come; this pool needs none.
  void SetSizeHintLow(unsigned long size);

 private:
  struct PRIVDATA;
  PRIVDATA* m_priv;  // null until the first pool block
};

#endif
