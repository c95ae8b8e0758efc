// The block cache: the C-callable form of the item cache (vocache.h), whose
// store is a pair of callbacks and whose items each carry a caller's pointer.
//
// A write-back cache of a fixed number of records with one least-recently-used
// list and one chained hash table. McacheSelect hands out the record itself
// (an MCACHEITEM), which the callbacks receive too; it stays good until the
// next McacheSelect, McacheFlush, McacheResize or McacheFree.
//
// IDs are 0 or more. Mind the flags: this cache's bit 0 means "no read" and
// bit 1 "new", the other way round from VOCACHE::SELECT_*.
#ifndef VOSYSTEM_MCACHE_H
#define VOSYSTEM_MCACHE_H

#include "vosystem/export.h"

// What the caller and the callbacks see of a record: the pointer handed out
// by McacheSelect points at this.
struct MCACHEITEM {
  void* userdata;  // as given to McacheSelect; null after a flush
  long id;         // -1 when the record is free
  int modified;    // set by the caller (or by a read into store-made memory)
  // The item's memory: a slice of the cache's block when the item size is
  // above 0, else set by the read function.
  void* memory;
};

// The read and write functions: 0 or more, or a negative code, passed on by
// the cache with a line of its own.
typedef int (*MCACHEFUNC)(MCACHEITEM* item);

struct _LRUCACHE;

// Bits of McacheSelect's flags.
enum MCACHE_SELECT : int {
  MCACHE_SELECT_DEFAULT = 0,   // look the ID up, read it on a miss
  MCACHE_SELECT_NOREAD = 0x1,  // don't call the read function on a miss
  MCACHE_SELECT_NEW = 0x2,     // the ID is new: no lookup and no read
};

extern "C" {
// itemcount records; items of itemsize bytes in one block when itemsize is
// above 0, else made by the read function (a write function is then needed
// to give them back). hashsize 0 asks for itemcount / 4, fewer than 4 are
// raised to 4. -1213 for a null cache or read function, an item count below
// 1, a negative hash size, an item size of 0 or less without a write
// function, or items too big to address; nothing is then allocated and
// *cache is null. The write function may be null: modified items are then
// simply dropped.
VOSYS_API int McacheInit(_LRUCACHE** cache, long itemcount, long itemsize, long hashsize,
                         MCACHEFUNC readfunc, MCACHEFUNC writefunc);
// Sets *item to the record of id, read if needed (unless flags has
// MCACHE_SELECT_NOREAD). The least recently used record makes room, written
// first if modified; a failed write changes nothing, a failed read leaves the
// ID uncached. With MCACHE_SELECT_NEW a cached id gets a second record: use
// it only for IDs known to be new. -1213 for a null cache or item or a
// negative id.
VOSYS_API int McacheSelect(_LRUCACHE* cache, long id, void** item, void* userdata, int flags);
// Writes every modified item and empties the cache; a failed write stops it
// with that code, the rest still cached. -1213 for a null cache.
VOSYS_API int McacheFlush(_LRUCACHE* cache);
// The same for one ID; an ID that isn't cached is no error.
VOSYS_API int McacheFlushItem(_LRUCACHE* cache, long id);
// A new record count: the same count returns 0 with nothing changed.
// Otherwise flushes (a failure stops it, the cache unchanged) and makes the
// arrays anew, keeping the old ones if that fails. -1213 for a null cache or
// a count below 1.
VOSYS_API int McacheResize(_LRUCACHE* cache, long itemcount, long hashsize);
// Flushes, ignoring a failure, and frees everything; null is ignored.
VOSYS_API void McacheFree(_LRUCACHE* cache);
}

#endif
