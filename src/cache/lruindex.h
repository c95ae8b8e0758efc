// The bookkeeping that the item cache (VOCACHE) and the block cache (Mcache)
// share: a fixed array of records, one least-recently-used list through all
// of them and one chained hash table over those in use, every link an index
// into the record array. Nothing here allocates; the owner gives the arrays.
//
// Invariants:
//   - every record is in the LRU list, from lruStart (the next victim) to
//     lruEnd (the most recently used), linked by lruPrev/lruNext, -1 at the
//     ends;
//   - a record in use (id >= 0) is in the chain of bucket id % hashSize,
//     linked by hashPrev/hashNext from the bucket's head; a free record has
//     id -1 and both hash links -1;
//   - free records are moved to lruStart, so they are taken before any
//     record in use.
//
// A bucket keeps only the head of its chain: a record is attached at the head
// and unlinked through its own links, so nothing ever needs the tail.
//
// IDs are 0 or more: the bucket is a plain remainder, and -1 marks a free
// record. The callers refuse negative IDs before they get here.
#ifndef VOSYS_SRC_CACHE_LRUINDEX_H
#define VOSYS_SRC_CACHE_LRUINDEX_H

#include <climits>
#include <cstddef>
#include <cstdint>

// The rule of both caches: 0 asks for a quarter of the items, and fewer than
// four buckets are raised to four.
inline long CacheHashSize(long itemcount, long hashsize) {
  if (hashsize == 0) hashsize = itemcount / 4;
  return hashsize < 4 ? 4 : hashsize;
}

// The number of bytes of count elements of size, or 0 if that doesn't fit in
// a size_t (the caller refuses the request).
inline size_t CacheArrayBytes(unsigned long count, unsigned long size) {
  if (size != 0 && count > static_cast<unsigned long>(SIZE_MAX) / size) return 0;
  return static_cast<size_t>(count * size);
}

// REC has the fields long hashPrev, hashNext, lruPrev, lruNext, and its ID is
// RecordId(rec), a long& found by argument-dependent lookup.
template <class REC>
struct LRUINDEX {
  long* buckets = nullptr;  // head record of each chain, -1 when empty
  REC* records = nullptr;
  long itemCount = 0;
  long hashSize = 0;
  long lruEnd = -1;
  long lruStart = -1;

  // All buckets empty, every record free, in index order from lruStart.
  void Reset() {
    for (long b = 0; b < hashSize; ++b) buckets[b] = -1;
    for (long i = 0; i < itemCount; ++i) {
      REC& r = records[i];
      RecordId(r) = -1;
      r.hashPrev = r.hashNext = -1;
      r.lruPrev = i - 1;
      r.lruNext = i + 1 < itemCount ? i + 1 : -1;
    }
    lruStart = 0;
    lruEnd = itemCount - 1;
  }

  long Find(long id) const {
    for (long r = buckets[id % hashSize]; r >= 0; r = records[r].hashNext)
      if (RecordId(records[r]) == id) return r;
    return -1;
  }

  // Gives record r the ID and puts it at the head of its bucket's chain.
  void AttachToHash(long r, long id) {
    REC& rec = records[r];
    long& head = buckets[id % hashSize];
    RecordId(rec) = id;
    rec.hashPrev = -1;
    rec.hashNext = head;
    if (head >= 0) records[head].hashPrev = r;
    head = r;
  }

  // Takes record r out of its chain; its ID becomes -1. A free record is left
  // alone.
  void FreeFromHash(long r) {
    REC& rec = records[r];
    long& id = RecordId(rec);
    if (id < 0) return;
    if (rec.hashPrev >= 0)
      records[rec.hashPrev].hashNext = rec.hashNext;
    else
      buckets[id % hashSize] = rec.hashNext;
    if (rec.hashNext >= 0) records[rec.hashNext].hashPrev = rec.hashPrev;
    id = -1;
    rec.hashPrev = rec.hashNext = -1;
  }

  void MoveToLRUEnd(long r) {
    if (r == lruEnd) return;
    Unlink(r);
    REC& rec = records[r];
    rec.lruPrev = lruEnd;
    rec.lruNext = -1;
    records[lruEnd].lruNext = r;  // lruEnd exists: r was not it
    lruEnd = r;
  }

  void MoveToLRUStart(long r) {
    if (r == lruStart) return;
    Unlink(r);
    REC& rec = records[r];
    rec.lruPrev = -1;
    rec.lruNext = lruStart;
    records[lruStart].lruPrev = r;
    lruStart = r;
  }

 private:
  // Takes r out of the LRU list, which holds at least one other record.
  void Unlink(long r) {
    REC& rec = records[r];
    if (rec.lruPrev >= 0)
      records[rec.lruPrev].lruNext = rec.lruNext;
    else
      lruStart = rec.lruNext;
    if (rec.lruNext >= 0)
      records[rec.lruNext].lruPrev = rec.lruPrev;
    else
      lruEnd = rec.lruPrev;
  }
};

#endif
