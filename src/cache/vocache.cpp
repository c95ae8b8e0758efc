// VOCACHE: the item cache over the shared LRU index (lruindex.h).
//
// The records, the buckets and the items' memory are three blocks made in
// Create; no other operation allocates. Select is a remainder and a short
// chain walk on a hit; on a miss the record at the LRU start is written back
// if it must be, re-attached under the new ID and read from the store.
//
// Handles (ITEMINFO) name a record by its index, together with the cache's
// generation, which every Create and Free moves on: a handle on a record of an
// earlier generation reads as empty instead of reaching a record that now
// holds another item, or freed memory. The cache's private body counts the
// live handles, and when the cache is freed while some remain the body stays
// behind, empty, until the last of them goes.
static const char s_ident[] = "@(#) vocache.cpp 1.0";

#include "vosystem/vocache.h"

#include <cstdlib>
#include <cstring>
#include <new>

#include "cache/lruindex.h"
#include "foundation/errpos.h"
#include "vosystem/memfunc.h"

// 64 bytes: with the array on a 64-byte boundary a record is one cache line,
// so a hit touches one line of its own record and one of each neighbour.
struct alignas(64) VOCACHEITEMPRIV {
  long id;
  long hashPrev, hashNext;
  long lruPrev, lruNext;
  int modified;
  int useCount;  // handles on the record; never near 2^31
  long size;     // bytes of this item's memory
  void* memory;  // a slice of the item block, or set by the store
};
static_assert(sizeof(VOCACHEITEMPRIV) == 64, "a record is one cache line");

// The index finds a record's ID here.
inline long& RecordId(VOCACHEITEMPRIV& rec) {
  return rec.id;
}

class VOCACHEPRIV {
 public:
  VOCACHEPRIV(long itemsize, VOCACHEIO& io) : m_itemSize(itemsize), m_io(&io) {}
  ~VOCACHEPRIV() { FreeArrays(); }

  int Create(long itemcount, long hashsize);
  int Select(long id, int flags, long* record);
  int Flush();
  void FreeArrays();

  // The address of length bytes at offset of item id, selected as by
  // Select(id).
  int Locate(long id, long offset, long length, unsigned char** at);
  long ItemSize() const { return m_itemSize; }

  // ---- handles
  VOCACHEITEMPRIV* Record(long r, unsigned long generation) {
    if (generation != m_generation || !m_index.records || r < 0 || r >= m_index.itemCount)
      return nullptr;
    return &m_index.records[r];
  }
  unsigned long Generation() const { return m_generation; }
  void AddHandle(long r, unsigned long generation) {
    ++m_handles;
    if (VOCACHEITEMPRIV* rec = Record(r, generation)) ++rec->useCount;
  }
  // True when this was the last handle on a body whose cache has gone.
  bool DropHandle(long r, unsigned long generation) {
    if (VOCACHEITEMPRIV* rec = Record(r, generation))
      if (rec->useCount > 0) --rec->useCount;
    --m_handles;
    return m_orphaned && m_handles == 0;
  }
  // The cache lets go of its body: true if it can be deleted now.
  bool Orphan() {
    m_orphaned = true;
    return m_handles == 0;
  }

 private:
  int CallStore(bool write, long r);

  long m_itemSize;
  VOCACHEIO* m_io;
  LRUINDEX<VOCACHEITEMPRIV> m_index;
  unsigned char* m_memory = nullptr;
  unsigned long m_generation = 0;
  long m_handles = 0;
  bool m_orphaned = false;
};

// ---------------------------------------------------------------- VOCACHEPRIV

void VOCACHEPRIV::FreeArrays() {
  free(m_index.buckets);
  free(m_index.records);
  free(m_memory);
  m_index.buckets = nullptr;
  m_index.records = nullptr;
  m_memory = nullptr;
  m_index.itemCount = m_index.hashSize = 0;
  m_index.lruStart = m_index.lruEnd = -1;
  ++m_generation;
}

int VOCACHEPRIV::Create(long itemcount, long hashsize) {
  FreeArrays();
  if (itemcount < 1 || hashsize < 0) return SETERR(VOERROR_InvalidArgument);
  hashsize = CacheHashSize(itemcount, hashsize);
  const size_t recordBytes = CacheArrayBytes(itemcount, sizeof(VOCACHEITEMPRIV));
  const size_t bucketBytes = CacheArrayBytes(hashsize, sizeof(long));
  const size_t memoryBytes = m_itemSize > 0 ? CacheArrayBytes(itemcount, m_itemSize) : 1;
  if (!recordBytes || !bucketBytes || !memoryBytes) return SETERR(VOERROR_InvalidArgument);

  VOCACHEITEMPRIV* records = nullptr;
  long* buckets = nullptr;
  unsigned char* memory = nullptr;
  int rc = 0;
  records = static_cast<VOCACHEITEMPRIV*>(aligned_alloc(alignof(VOCACHEITEMPRIV), recordBytes));
  if (!records) {
    rc = SETERR(VOERROR_OutOfMemory);
    GetErrString() << static_cast<unsigned long>(recordBytes);
  }
  if (rc >= 0) rc = MmAllocC(&buckets, bucketBytes);
  if (rc >= 0 && m_itemSize > 0) rc = MmAllocC(&memory, memoryBytes);
  if (rc < 0) {
    free(records);
    free(buckets);
    return PASSERR(rc);
  }
  m_index.records = records;
  m_index.buckets = buckets;
  m_index.itemCount = itemcount;
  m_index.hashSize = hashsize;
  m_memory = memory;
  m_index.Reset();
  for (long i = 0; i < itemcount; ++i) {
    VOCACHEITEMPRIV& r = records[i];
    r.modified = 0;
    r.size = m_itemSize > 0 ? m_itemSize : 0;
    r.memory = memory ? memory + i * m_itemSize : nullptr;
    r.useCount = 0;
  }
  return 0;
}

int VOCACHEPRIV::CallStore(bool write, long r) {
  VOCACHE::ITEMINFO item(this, r);
  return write ? m_io->WriteItem(item) : m_io->ReadItem(item);
}

int VOCACHEPRIV::Select(long id, int flags, long* record) {
  if (id < 0) return SETERR(VOERROR_InvalidArgument);
  LRUINDEX<VOCACHEITEMPRIV>& ix = m_index;
  long r = (flags & VOCACHE::SELECT_NEW) ? -1 : ix.Find(id);
  if (r < 0) {
    const bool read = !(flags & (VOCACHE::SELECT_NEW | VOCACHE::SELECT_NOREAD));
    r = ix.lruStart;
    VOCACHEITEMPRIV& rec = ix.records[r];
    if (rec.modified) {
      const int rc = CallStore(true, r);
      if (rc < 0) return PASSERR(rc);  // the victim stays, modified
      rec.modified = 0;
    }
    ix.FreeFromHash(r);
    ix.AttachToHash(r, id);
    if (read) {
      const int rc = CallStore(false, r);
      if (rc < 0) {
        // The item is gone; the record stays at the LRU start, free.
        ix.FreeFromHash(r);
        return PASSERR(rc);
      }
      // Memory that the store handed in goes back through WriteItem.
      if (m_itemSize <= 0) rec.modified = 1;
    }
  }
  ix.MoveToLRUEnd(r);
  *record = r;
  return 0;
}

int VOCACHEPRIV::Flush() {
  LRUINDEX<VOCACHEITEMPRIV>& ix = m_index;
  for (long b = 0; b < ix.hashSize; ++b) {
    while (ix.buckets[b] >= 0) {
      const long r = ix.buckets[b];
      VOCACHEITEMPRIV& rec = ix.records[r];
      if (rec.modified) {
        const int rc = CallStore(true, r);
        if (rc < 0) return PASSERR(rc);
        rec.modified = 0;
      }
      ix.FreeFromHash(r);
      ix.MoveToLRUStart(r);  // free records are taken first
    }
  }
  return 0;
}

int VOCACHEPRIV::Locate(long id, long offset, long length, unsigned char** at) {
  // Checked without overflow: offset + length could pass LONG_MAX.
  if (offset < 0 || length <= 0 || (m_itemSize > 0 && length > m_itemSize - offset))
    return SETERR(VOERROR_InvalidArgument);
  long r = -1;
  const int rc = Select(id, 0, &r);
  if (rc < 0) return PASSERR(rc);
  VOCACHEITEMPRIV& rec = m_index.records[r];
  if (!rec.memory || rec.size < 0 || length > rec.size - offset)
    return SETERR(VOERROR_InvalidArgument);
  *at = static_cast<unsigned char*>(rec.memory) + offset;
  return 0;
}

// ---------------------------------------------------------------- ITEMINFO

VOCACHE::ITEMINFO::ITEMINFO() : m_cache(nullptr), m_record(-1), m_generation(0) {}

VOCACHE::ITEMINFO::ITEMINFO(VOCACHEPRIV* cache, long record) : ITEMINFO() {
  Attach(cache, record, cache->Generation());
}

VOCACHE::ITEMINFO::ITEMINFO(const ITEMINFO& other) : ITEMINFO() {
  if (other.m_cache) Attach(other.m_cache, other.m_record, other.m_generation);
}

VOCACHE::ITEMINFO& VOCACHE::ITEMINFO::operator=(const ITEMINFO& other) {
  if (this == &other) return *this;
  // Attach first: detaching could delete the body that other also uses.
  VOCACHEPRIV* oldCache = m_cache;
  const long oldRecord = m_record;
  const unsigned long oldGeneration = m_generation;
  m_cache = nullptr;
  if (other.m_cache) Attach(other.m_cache, other.m_record, other.m_generation);
  if (oldCache && oldCache->DropHandle(oldRecord, oldGeneration)) delete oldCache;
  return *this;
}

VOCACHE::ITEMINFO::~ITEMINFO() {
  Detach();
}

void VOCACHE::ITEMINFO::Attach(VOCACHEPRIV* cache, long record, unsigned long generation) {
  m_cache = cache;
  m_record = record;
  m_generation = generation;
  cache->AddHandle(record, generation);
}

void VOCACHE::ITEMINFO::Detach() {
  if (m_cache && m_cache->DropHandle(m_record, m_generation)) delete m_cache;
  m_cache = nullptr;
  m_record = -1;
}

long VOCACHE::ITEMINFO::GetItemID() const {
  const VOCACHEITEMPRIV* rec = m_cache ? m_cache->Record(m_record, m_generation) : nullptr;
  return rec ? rec->id : -1;
}

void* VOCACHE::ITEMINFO::GetMemPtr() {
  VOCACHEITEMPRIV* rec = m_cache ? m_cache->Record(m_record, m_generation) : nullptr;
  return rec ? rec->memory : nullptr;
}

const void* VOCACHE::ITEMINFO::GetMemPtr() const {
  const VOCACHEITEMPRIV* rec = m_cache ? m_cache->Record(m_record, m_generation) : nullptr;
  return rec ? rec->memory : nullptr;
}

void VOCACHE::ITEMINFO::SetMemPtr(void* mem, long size) {
  if (VOCACHEITEMPRIV* rec = m_cache ? m_cache->Record(m_record, m_generation) : nullptr) {
    rec->memory = mem;
    rec->size = mem && size > 0 ? size : 0;
  }
}

void VOCACHE::ITEMINFO::SetModified() {
  if (VOCACHEITEMPRIV* rec = m_cache ? m_cache->Record(m_record, m_generation) : nullptr)
    rec->modified = 1;
}

// ---------------------------------------------------------------- VOCACHE

VOCACHE::VOCACHE() : m_priv(nullptr) {}

VOCACHE::~VOCACHE() {
  Free();
}

int VOCACHE::Create(long itemcount, long itemsize, VOCACHEIO& io, long hashsize) {
  Free();
  VOCACHEPRIV* priv = new (std::nothrow) VOCACHEPRIV(itemsize, io);
  if (!priv) {
    const int rc = SETERR(VOERROR_OutOfMemory);
    GetErrString() << static_cast<unsigned long>(sizeof(VOCACHEPRIV));
    return rc;
  }
  const int rc = priv->Create(itemcount, hashsize);
  if (rc < 0) {
    delete priv;
    return PASSERR(rc);
  }
  m_priv = priv;
  return 0;
}

int VOCACHE::Create(long itemcount, VOCACHEIO& io, long hashsize) {
  const int rc = Create(itemcount, 0, io, hashsize);
  return rc < 0 ? PASSERR(rc) : rc;
}

bool VOCACHE::IsCreated() const {
  return m_priv != nullptr;
}

VOCACHE::ITEMINFO VOCACHE::Select(long id, SELECTFLAGS flags) {
  if (!m_priv) return ITEMINFO();
  long r = -1;
  if (m_priv->Select(id, flags, &r) < 0) return ITEMINFO();
  return ITEMINFO(m_priv, r);
}

int VOCACHE::Read(long id, long length, void* dest) {
  return Read(id, 0, length, dest);
}

int VOCACHE::Read(long id, long offset, long length, void* dest) {
  if (!m_priv) return VOERROR_Failed;
  if (!dest) return SETERR(VOERROR_InvalidArgument);
  unsigned char* at = nullptr;
  const int rc = m_priv->Locate(id, offset, length, &at);
  if (rc < 0) return PASSERR(rc);
  memcpy(dest, at, length);
  return 0;
}

int VOCACHE::Write(long id, long length, const void* src) {
  return Write(id, 0, length, src);
}

int VOCACHE::Write(long id, long offset, long length, const void* src) {
  if (!m_priv) return VOERROR_Failed;
  if (!src) return SETERR(VOERROR_InvalidArgument);
  unsigned char* at = nullptr;
  const int rc = m_priv->Locate(id, offset, length, &at);
  if (rc < 0) return PASSERR(rc);
  memcpy(at, src, length);
  return 0;
}

int VOCACHE::Resize(long itemcount, long hashsize) {
  if (!m_priv) return VOERROR_Failed;
  if (itemcount < 1 || hashsize < 0) return SETERR(VOERROR_InvalidArgument);
  int rc = m_priv->Flush();
  if (rc < 0) return PASSERR(rc);
  rc = m_priv->Create(itemcount, hashsize);
  if (rc < 0) {
    // Without its arrays the body is of no use: the cache is as before Create.
    Free();
    return PASSERR(rc);
  }
  return 0;
}

int VOCACHE::Flush() {
  if (!m_priv) return 0;
  const int rc = m_priv->Flush();
  return rc < 0 ? PASSERR(rc) : rc;
}

void VOCACHE::Free() {
  if (!m_priv) return;
  m_priv->Flush();  // a failure here has no one to go to
  m_priv->FreeArrays();
  if (m_priv->Orphan()) delete m_priv;
  m_priv = nullptr;
}
