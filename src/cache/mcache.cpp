// The block cache: the item cache's design (lruindex.h) behind C functions,
// with a pair of callbacks for the store and a caller's pointer on each item.
//
// Each record begins with the MCACHEITEM that callers and callbacks see, so
// the record's address is the item handle. Resize makes its arrays anew
// rather than growing them in place: the cache is empty after its flush, so
// nothing needs keeping, and the old arrays stay whole until the new ones
// exist, which leaves a failing allocation with a usable cache.
static const char s_ident[] = "@(#) mcache.cpp 1.0";

#include "vosystem/mcache.h"

#include <cstdlib>
#include <new>

#include "cache/lruindex.h"
#include "foundation/errpos.h"
#include "vosystem/memfunc.h"

struct _LRUCACHE {
  // 64 bytes, on 64-byte boundaries: one cache line a record.
  struct alignas(64) REC {
    MCACHEITEM item;  // first: a record's address is its item's
    long hashPrev, hashNext;
    long lruPrev, lruNext;
  };
  static_assert(sizeof(REC) == 64, "a record is one cache line");
  LRUINDEX<REC> index;
  MCACHEFUNC writefunc;
  MCACHEFUNC readfunc;
  unsigned char* memory;  // itemCount * itemSize bytes, or null
  long itemSize;
};

// The index finds a record's ID here.
inline long& RecordId(_LRUCACHE::REC& rec) {
  return rec.item.id;
}

namespace {

using REC = _LRUCACHE::REC;

MCACHEITEM* Item(REC* rec) {
  return &rec->item;
}

// The arrays of a cache of itemcount records; 0 or a code, with nothing
// allocated on failure.
int AllocArrays(long itemcount, long hashsize, long itemsize, REC** records, long** buckets,
                unsigned char** memory) {
  *records = nullptr;
  *buckets = nullptr;
  *memory = nullptr;
  const size_t recordBytes = CacheArrayBytes(itemcount, sizeof(REC));
  const size_t bucketBytes = CacheArrayBytes(hashsize, sizeof(long));
  const size_t memoryBytes = itemsize > 0 ? CacheArrayBytes(itemcount, itemsize) : 1;
  if (!recordBytes || !bucketBytes || !memoryBytes) return SETERR(VOERROR_InvalidArgument);
  int rc = 0;
  *records = static_cast<REC*>(aligned_alloc(alignof(REC), recordBytes));
  if (!*records) {
    rc = SETERR(VOERROR_OutOfMemory);
    GetErrString() << static_cast<unsigned long>(recordBytes);
  }
  if (rc >= 0) rc = MmAlloc(buckets, bucketBytes);
  if (rc >= 0 && itemsize > 0) rc = MmAllocC(memory, memoryBytes);
  if (rc < 0) {
    free(*records);
    free(*buckets);
    *records = nullptr;
    *buckets = nullptr;
    return PASSERR(rc);
  }
  return 0;
}

void SetUp(_LRUCACHE* c, long itemcount, long hashsize, REC* records, long* buckets,
           unsigned char* memory) {
  c->index.records = records;
  c->index.buckets = buckets;
  c->index.itemCount = itemcount;
  c->index.hashSize = hashsize;
  c->memory = memory;
  c->index.Reset();
  for (long i = 0; i < itemcount; ++i) {
    records[i].item.userdata = nullptr;
    records[i].item.modified = 0;
    records[i].item.memory = memory ? memory + i * c->itemSize : nullptr;
  }
}

// Writes a record back if it is modified and there is a write function.
int WriteBack(_LRUCACHE* c, REC& rec) {
  if (!rec.item.modified) return 0;
  if (c->writefunc) {
    const int rc = c->writefunc(Item(&rec));
    if (rc < 0) return PASSERR(rc);
  }
  rec.item.modified = 0;
  return 0;
}

// Empties record r into a free record at the LRU start.
int FlushRecord(_LRUCACHE* c, long r) {
  REC& rec = c->index.records[r];
  const int rc = WriteBack(c, rec);
  if (rc < 0) return PASSERR(rc);
  rec.item.userdata = nullptr;
  c->index.FreeFromHash(r);
  c->index.MoveToLRUStart(r);
  return 0;
}

}  // namespace

int McacheInit(_LRUCACHE** cache, long itemcount, long itemsize, long hashsize, MCACHEFUNC readfunc,
               MCACHEFUNC writefunc) {
  if (cache) *cache = nullptr;
  if (!cache || !readfunc || itemcount < 1 || hashsize < 0 || (itemsize <= 0 && !writefunc))
    return SETERR(VOERROR_InvalidArgument);
  hashsize = CacheHashSize(itemcount, hashsize);
  REC* records;
  long* buckets;
  unsigned char* memory;
  int rc = AllocArrays(itemcount, hashsize, itemsize, &records, &buckets, &memory);
  if (rc < 0) return PASSERR(rc);
  _LRUCACHE* c = nullptr;
  rc = MmAllocC(&c, sizeof(_LRUCACHE));
  if (rc < 0) {
    free(records);
    free(buckets);
    free(memory);
    return PASSERR(rc);
  }
  new (c) _LRUCACHE();
  c->readfunc = readfunc;
  c->writefunc = writefunc;
  c->itemSize = itemsize;
  SetUp(c, itemcount, hashsize, records, buckets, memory);
  *cache = c;
  return 0;
}

int McacheSelect(_LRUCACHE* c, long id, void** item, void* userdata, int flags) {
  if (!c || !item || id < 0) return SETERR(VOERROR_InvalidArgument);
  LRUINDEX<REC>& ix = c->index;
  long r = (flags & MCACHE_SELECT_NEW) ? -1 : ix.Find(id);
  if (r < 0) {
    r = ix.lruStart;
    REC& rec = ix.records[r];
    int rc = WriteBack(c, rec);
    if (rc < 0) return PASSERR(rc);  // the victim stays, modified
    ix.FreeFromHash(r);
    ix.AttachToHash(r, id);
    rec.item.userdata = userdata;
    if (!(flags & (MCACHE_SELECT_NEW | MCACHE_SELECT_NOREAD))) {
      rc = c->readfunc(Item(&rec));
      if (rc < 0) {
        ix.FreeFromHash(r);
        return PASSERR(rc);
      }
      // Memory that the read function made goes back through the write one.
      if (c->itemSize <= 0) rec.item.modified = 1;
    }
  }
  ix.MoveToLRUEnd(r);
  *item = Item(&ix.records[r]);
  return 0;
}

int McacheFlush(_LRUCACHE* c) {
  if (!c) return SETERR(VOERROR_InvalidArgument);
  for (long b = 0; b < c->index.hashSize; ++b) {
    while (c->index.buckets[b] >= 0) {
      const int rc = FlushRecord(c, c->index.buckets[b]);
      if (rc < 0) return PASSERR(rc);
    }
  }
  return 0;
}

int McacheFlushItem(_LRUCACHE* c, long id) {
  if (!c) return SETERR(VOERROR_InvalidArgument);
  if (id < 0) return 0;
  const long r = c->index.Find(id);
  if (r < 0) return 0;
  const int rc = FlushRecord(c, r);
  return rc < 0 ? PASSERR(rc) : rc;
}

int McacheResize(_LRUCACHE* c, long itemcount, long hashsize) {
  if (!c || itemcount < 1 || hashsize < 0) return SETERR(VOERROR_InvalidArgument);
  if (itemcount == c->index.itemCount) return 0;
  int rc = McacheFlush(c);
  if (rc < 0) return PASSERR(rc);
  hashsize = CacheHashSize(itemcount, hashsize);
  REC* records;
  long* buckets;
  unsigned char* memory;
  rc = AllocArrays(itemcount, hashsize, c->itemSize, &records, &buckets, &memory);
  if (rc < 0) return PASSERR(rc);
  free(c->index.records);
  free(c->index.buckets);
  free(c->memory);
  SetUp(c, itemcount, hashsize, records, buckets, memory);
  return 0;
}

void McacheFree(_LRUCACHE* c) {
  if (!c) return;
  McacheFlush(c);  // a failure here has no one to go to
  free(c->index.records);
  free(c->index.buckets);
  free(c->memory);
  c->~_LRUCACHE();
  free(c);
}
