// BITSET_DEQUE: a large set of numbered bits kept in tiles of 32768 bits, so
// that long uniform stretches cost no memory.
//
// A tile that is all 0 or all 1 holds no buffer, only its value; a tile with
// mixed bits holds 4096 bytes, bit i at byte (i >> 3) & 0xFFF, mask
// 1 << (i & 7). Tiles that turn uniform keep their buffers as spares, which
// the next tiles to need one take before anything is allocated: buffers are
// recycled, not freed, until Resize drops tiles or the set is freed.
//
// Setting, clearing or inverting everything is one pass over the tile
// records; a range touches bytes only in its two end tiles (inverting also
// flips the bytes of mixed tiles inside it).
//
//   BITSET_DEQUE set;
//   set.Resize(1000000000);           // a billion 0 bits, in 30518 tile records
//   set.SetRange(5, 700000000);       // two buffers at most
//   for (auto it = set.Begin(true); it != set.End(); ++it) use(*it);
//
// Operations that may need a buffer return 0 or a negative code (-1015):
// the bits are then as they were.
#ifndef VOSYSTEM_BITSET_H
#define VOSYSTEM_BITSET_H

#include "vosystem/export.h"

// What a tile holds, as GetTileState tells it.
enum BITSET_TILE : int {
  BITSET_TILE_Zeros = 0,  // uniform 0
  BITSET_TILE_Ones = 1,   // uniform 1
  BITSET_TILE_Bits = 2,   // mixed bits in a buffer
};

class VOSYS_API BITSET_DEQUE {
 public:
  // Walks the positions of the bits of one value, in rising order, up to
  // End(). Good while its set isn't resized or freed.
  class VOSYS_API ITERATOR {
   public:
    ITERATOR& operator++();
    unsigned long operator*() const { return position; }
    operator unsigned long() const { return position; }
    bool operator==(const ITERATOR& o) const { return owner == o.owner && position == o.position; }
    bool operator!=(const ITERATOR& o) const { return !(*this == o); }

   private:
    friend class BITSET_DEQUE;
    ITERATOR(const BITSET_DEQUE* set, unsigned long pos, bool value)
        : owner(set), position(pos), wantValue(value ? 1 : 0), skipByte(value ? 0x00 : 0xFF) {}
    const BITSET_DEQUE* owner;
    unsigned long position;
    unsigned char wantValue;  // 0 or 1
    unsigned char skipByte;   // a byte made only of unwanted bits
  };

  BITSET_DEQUE();
  // A copy holds buffers only for its mixed tiles. Without memory for them
  // the copy is empty.
  BITSET_DEQUE(const BITSET_DEQUE& other);
  // Without memory for the copy the set stays as it was.
  BITSET_DEQUE& operator=(const BITSET_DEQUE& other);
  ~BITSET_DEQUE();
  void Free();  // no bits, no memory

  // numBits bits: new bits are 0, and 0 frees everything. Buffers of tiles
  // that go are handed to tiles that have none, as spares. 0 or -1015.
  int Resize(unsigned long numBits);
  unsigned long GetNumEntries() const { return numEntries; }
  bool HasEntries() const { return numEntries != 0; }

  bool GetBit(unsigned long bit) const;  // false at or past the end
  // A bit at or past the end is ignored.
  int Set(unsigned long bit);
  int Clear(unsigned long bit);
  int Invert(unsigned long bit);
  int SetBit(unsigned long bit, bool value);
  int CopyBit(unsigned long to, unsigned long from);

  void SetAll();
  void ClearAll();
  void InvertAll();

  // Inclusive ranges; last is clipped to the last bit, and a first above it
  // does nothing.
  int SetRange(unsigned long first, unsigned long last);
  int ClearRange(unsigned long first, unsigned long last);
  int InvertRange(unsigned long first, unsigned long last);
  // The value of the run of equal bits that starts at first; end gets the
  // run's last bit, no further than last (clipped to the last bit of the
  // set). With first past that: false, and end = first.
  bool GetRange(unsigned long first, unsigned long last, unsigned long& end) const;
  // The whole set as (numEntries + 7) / 8 bytes in the same bit order, a new
  // heap block to free (null for an empty set). 0 or -1015.
  int GetBitArray(unsigned char*& out) const;
  // Gives tile its own buffer (a spare if there is one), whose contents are
  // stale: the caller fills it. 0, -1213 for no such tile, or -1015.
  int GetTile(unsigned long tile);

  ITERATOR Begin(bool value) const;
  ITERATOR End() const { return ITERATOR(this, numEntries, true); }

  // ---- how the set is held, for diagnostics and tests
  unsigned long GetNumTiles() const { return numTiles; }
  unsigned long GetNumSpareBuffers() const { return spareBuffers; }
  // What the tile holds, and (if asked) whether it has a buffer, in use or
  // spare. -1 for no such tile.
  int GetTileState(unsigned long tile, bool* hasBuffer = nullptr) const;

 private:
  struct TILE {
    unsigned char* bits;         // 4096 bytes or null
    unsigned char hasBits;       // non-zero: bits is in force
    unsigned char uniformValue;  // every bit of the tile while hasBits is 0
  };
  enum RANGEOP { RANGE_Clear = 0, RANGE_Set = 1, RANGE_Invert = 2 };

  int ApplyRange(unsigned long first, unsigned long last, RANGEOP op);
  int ApplyBit(unsigned long bit, RANGEOP op);
  void MakeUniform(unsigned long tile, unsigned char value);
  // The first position in [from, last] whose bit is want, or last + 1. skip
  // is a byte of the other value (0xFF when want is 0, else 0x00).
  unsigned long FindNext(unsigned long from, unsigned long last, unsigned char want,
                         unsigned char skip) const;
  void CountSpares();
  bool CopyFrom(const BITSET_DEQUE& other);

  TILE* tiles;
  unsigned long numEntries;
  unsigned long numTiles;
  unsigned long spareBuffers;  // tiles with a buffer they aren't using
  unsigned long spareHint;     // no tile below this holds a spare
};

#endif
