// VOCACHE: a fixed number of items, by a long ID, held in memory in front of
// a slower store that the caller supplies as a VOCACHEIO.
//
// A write-back cache: the least recently used item is the next to go, and
// an item marked modified goes back to the store through WriteItem when it
// is evicted or flushed. Everything is allocated in Create; nothing after.
//
//   class TILESTORE : public VOCACHEIO { ... ReadItem / WriteItem ... };
//   TILESTORE store;
//   VOCACHE cache;
//   cache.Create(64, 4096, store, 0);             // 64 items of 4 KB
//   VOCACHE::ITEMINFO item = cache.Select(17);    // read from the store if needed
//   if (item.GetMemPtr()) { ...change it...; item.SetModified(); }
//
// IDs are 0 or more. The selection flags of this class are VOCACHE::SELECT_*;
// the block cache of mcache.h numbers its bits differently (MCACHE_SELECT_*).
#ifndef VOSYSTEM_VOCACHE_H
#define VOSYSTEM_VOCACHE_H

#include "vosystem/export.h"

class VOCACHEIO;
class VOCACHEPRIV;

class VOSYS_API VOCACHE {
 public:
  // Bits of Select's flags.
  enum SELECTFLAGS : int {
    SELECT_DEFAULT = 0,   // look the ID up, read it from the store on a miss
    SELECT_NEW = 0x1,     // the ID is known to be new: no lookup, and no read
    SELECT_NOREAD = 0x2,  // don't read the item from the store on a miss
  };

  // A handle on one cached item. Copies count up the item's use count and
  // destruction counts it down, but that doesn't pin the item: a handle is
  // good only until the next Select of any item on its cache. A handle that
  // outlives its cache (Free, Resize, destruction) reads as empty, and may
  // still be destroyed.
  class VOSYS_API ITEMINFO {
   public:
    ITEMINFO();  // empty
    ITEMINFO(const ITEMINFO& other);
    ITEMINFO& operator=(const ITEMINFO& other);
    ~ITEMINFO();

    long GetItemID() const;  // -1 if empty
    void* GetMemPtr();       // null if empty
    const void* GetMemPtr() const;
    // The item's memory and its size in bytes. In a cache with item size 0
    // ReadItem supplies the memory this way.
    void SetMemPtr(void* mem, long size);
    // The item must go back to the store before it is dropped.
    void SetModified();

   private:
    friend class VOCACHE;
    friend class VOCACHEPRIV;
    ITEMINFO(VOCACHEPRIV* cache, long record);
    void Attach(VOCACHEPRIV* cache, long record, unsigned long generation);
    void Detach();
    VOCACHEPRIV* m_cache;
    long m_record;
    unsigned long m_generation;  // of the cache's arrays when the handle was made
  };

  VOCACHE();
  ~VOCACHE();  // Free()
  VOCACHE(const VOCACHE&) = delete;
  VOCACHE& operator=(const VOCACHE&) = delete;

  // itemcount items of itemsize bytes each, in one block; hashsize buckets
  // (0 asks for itemcount / 4; fewer than 4 are raised to 4). A cache made
  // before goes first, with its flush. 0, -1213 for an item count below 1, a
  // negative hash size or items too big to address, or -1015.
  int Create(long itemcount, long itemsize, VOCACHEIO& io, long hashsize);
  // Items whose memory the store manages: ReadItem sets it by SetMemPtr.
  int Create(long itemcount, VOCACHEIO& io, long hashsize);
  bool IsCreated() const;

  // The item, read from the store if needed: the least recently used item
  // makes room, going to the store first if modified. An empty handle on
  // failure (a negative ID: -1213; the store's code otherwise, on record).
  // A failed WriteItem of the victim changes nothing; a failed ReadItem
  // leaves the item uncached.
  ITEMINFO Select(long id, SELECTFLAGS flags = SELECT_DEFAULT);

  // Copy length bytes at offset of an item out of or into the cache, with
  // the item selected as by Select(id). offset >= 0, length > 0 and, for
  // fixed-size items, offset + length within the item, or -1213 before the
  // store is asked; the same check against the item's own size after. Write
  // leaves the modified mark as it was: a caller whose bytes must reach the
  // store marks the item through a handle. -1204 without Create.
  int Read(long id, long length, void* dest);
  int Read(long id, long offset, long length, void* dest);
  int Write(long id, long length, const void* src);
  int Write(long id, long offset, long length, const void* src);

  // A new item count, with the item size kept: flushes (a failure leaves the
  // cache as it was), then makes the cache anew. -1204 without Create.
  int Resize(long itemcount, long hashsize);
  // Writes every modified item and empties the cache. A failing WriteItem
  // stops it: its code is returned, what was flushed stays flushed and the
  // rest stays cached. 0 without Create.
  int Flush();
  // Flushes (ignoring a failure) and frees everything.
  void Free();

 private:
  VOCACHEPRIV* m_priv;  // null until Create
};

inline VOCACHE::SELECTFLAGS operator|(VOCACHE::SELECTFLAGS a, VOCACHE::SELECTFLAGS b) {
  return static_cast<VOCACHE::SELECTFLAGS>(static_cast<int>(a) | static_cast<int>(b));
}

// The store behind a VOCACHE, derived by the caller. Both operations return 0
// or more, or a negative code, which the cache passes on with a line of its
// own.
class VOSYS_API VOCACHEIO {
 public:
  // Fill the item's memory from the store. With item size 0, also supply the
  // memory (ITEMINFO::SetMemPtr). The record may still hold the memory of the
  // item that it held before: a store may reuse it, and a store that frees
  // memory in WriteItem sets it to null there.
  virtual int ReadItem(VOCACHE::ITEMINFO& item) = 0;
  // Write the item's memory to the store.
  virtual int WriteItem(VOCACHE::ITEMINFO& item) = 0;

 protected:
  ~VOCACHEIO() = default;  // not deleted through this class
};

#endif
