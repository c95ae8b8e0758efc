// BITSET_DEQUE: tiles of 32768 bits, uniform ones without a buffer.
//
// Spare buffers. spareBuffers counts the tiles whose buffer is held but not in
// force (bits non-null, hasBits 0); their bytes are stale. GetTile takes the
// tile's own spare first, then the lowest-numbered spare of another tile, and
// allocates only when there is none. spareHint is a lower bound for that
// search (no spare sits below it), so that handing out many spares in a row
// doesn't scan the same empty prefix of the tile array each time.
//
// Bits past the count. Bits at or past numEntries in the last tile mean
// nothing: reads stop at the count, and whole-tile operations may leave them
// set (a last tile counts as full when a range reaches the set's last bit,
// and turns uniform). Resize gives them meaning again when it grows the set
// inside the old last tile, and clears them then; a uniform-1 last tile first
// takes a buffer for that, since its bits past the old count must read 0.
//
// Ranges. A tile that a range covers whole turns uniform, also when the range
// lies within that one tile, and the last tile counts as covered when the
// range reaches the set's last bit: so a range over the whole set leaves every
// tile uniform, even when the count ends inside the last tile (reading its
// offset 32767 alone as "full" would leave that tile with a buffer).
// Both end tiles that the range covers only in part are given their
// buffers (filled with their uniform value, which keeps every bit as it was)
// before anything changes, so a failing allocation leaves the set untouched.
// Then each tile that the range covers whole becomes uniform, or flips, in its
// record alone; only the partial end tiles have bytes written.
//
// Searching. The run and iterator searches read a buffer 64 bits at a time,
// eight words to a test while none holds a wanted bit: a word equal to the
// unwanted byte repeated is skipped, and the first wanted bit of another is
// its lowest set bit after an exclusive or with it. The bit
// order within a byte and the little-endian word load agree, so bit i of the
// tile is bit i & 63 of word i >> 6.
static const char s_ident[] = "@(#) bitset.cpp 1.0";

#include "vosystem/bitset.h"

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <initializer_list>

#include "foundation/errpos.h"
#include "vosystem/memfunc.h"

static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__, "the word scans assume little-endian");

namespace {

const unsigned kTileShift = 15;
const unsigned long kTileBits = 1UL << kTileShift;  // 32768
const unsigned long kTileMask = kTileBits - 1;
const size_t kTileBytes = kTileBits / 8;  // 4096

uint64_t LoadWord(const unsigned char* p) {
  uint64_t w;
  memcpy(&w, p, sizeof w);
  return w;
}

void StoreWord(unsigned char* p, uint64_t w) {
  memcpy(p, &w, sizeof w);
}

void FlipBytes(unsigned char* p, size_t n) {
  size_t i = 0;
  for (; i + 8 <= n; i += 8) StoreWord(p + i, ~LoadWord(p + i));
  for (; i < n; ++i) p[i] = static_cast<unsigned char>(~p[i]);
}

// Clears, sets or flips bits a..b (inclusive offsets within one tile).
void ChangeBits(unsigned char* p, unsigned long a, unsigned long b, int op) {
  const unsigned long fa = a >> 3, fb = b >> 3;
  const unsigned char headMask = static_cast<unsigned char>(0xFF << (a & 7));
  const unsigned char tailMask = static_cast<unsigned char>(0xFF >> (7 - (b & 7)));
  auto apply = [op](unsigned char& byte, unsigned char mask) {
    if (op == 0)
      byte &= static_cast<unsigned char>(~mask);
    else if (op == 1)
      byte |= mask;
    else
      byte ^= mask;
  };
  if (fa == fb) {
    apply(p[fa], headMask & tailMask);
    return;
  }
  apply(p[fa], headMask);
  if (fb > fa + 1) {
    if (op == 2)
      FlipBytes(p + fa + 1, fb - fa - 1);
    else
      memset(p + fa + 1, op ? 0xFF : 0x00, fb - fa - 1);
  }
  apply(p[fb], tailMask);
}

// The first offset in [a, b] of a tile's buffer whose bit differs from the
// bits of skip (0x00 or 0xFF), or b + 1.
unsigned long FindInBuffer(const unsigned char* p, unsigned long a, unsigned long b,
                           unsigned char skip) {
  const uint64_t skipWord = skip ? ~uint64_t(0) : 0;
  unsigned long w = a >> 6;
  const unsigned long lastWord = b >> 6;
  // Bits below a don't count.
  uint64_t x = (LoadWord(p + w * 8) ^ skipWord) & (~uint64_t(0) << (a & 63));
  while (true) {
    if (x) {
      const unsigned long at = (w << 6) + static_cast<unsigned long>(__builtin_ctzll(x));
      return at <= b ? at : b + 1;
    }
    ++w;
    // Eight words at a time while they are all unwanted bits: one test of
    // their combined difference, which the compiler does in vector registers.
    while (w + 8 <= lastWord + 1) {
      uint64_t any = 0;
      for (unsigned long k = 0; k < 8; ++k) any |= LoadWord(p + (w + k) * 8) ^ skipWord;
      if (any) break;
      w += 8;
    }
    if (w > lastWord) return b + 1;
    x = LoadWord(p + w * 8) ^ skipWord;
  }
}

}  // namespace

// ---------------------------------------------------------------- life

BITSET_DEQUE::BITSET_DEQUE()
    : tiles(nullptr), numEntries(0), numTiles(0), spareBuffers(0), spareHint(0) {}

BITSET_DEQUE::BITSET_DEQUE(const BITSET_DEQUE& other) : BITSET_DEQUE() {
  CopyFrom(other);
}

BITSET_DEQUE& BITSET_DEQUE::operator=(const BITSET_DEQUE& other) {
  if (this == &other) return *this;
  BITSET_DEQUE copy;
  if (!copy.CopyFrom(other)) return *this;
  Free();
  tiles = copy.tiles;
  numEntries = copy.numEntries;
  numTiles = copy.numTiles;
  spareBuffers = copy.spareBuffers;
  spareHint = copy.spareHint;
  copy.tiles = nullptr;
  copy.numEntries = copy.numTiles = copy.spareBuffers = copy.spareHint = 0;
  return *this;
}

BITSET_DEQUE::~BITSET_DEQUE() {
  Free();
}

bool BITSET_DEQUE::CopyFrom(const BITSET_DEQUE& other) {
  if (!other.numTiles) return true;
  TILE* copy = static_cast<TILE*>(calloc(other.numTiles, sizeof(TILE)));
  if (!copy) return false;
  for (unsigned long t = 0; t < other.numTiles; ++t) {
    const TILE& from = other.tiles[t];
    copy[t].uniformValue = from.uniformValue;
    if (!from.hasBits) continue;
    copy[t].bits = static_cast<unsigned char*>(malloc(kTileBytes));
    if (!copy[t].bits) {
      for (unsigned long u = 0; u < t; ++u) free(copy[u].bits);
      free(copy);
      return false;
    }
    memcpy(copy[t].bits, from.bits, kTileBytes);
    copy[t].hasBits = 1;
  }
  tiles = copy;
  numEntries = other.numEntries;
  numTiles = other.numTiles;
  spareBuffers = 0;
  spareHint = 0;
  return true;
}

void BITSET_DEQUE::Free() {
  for (unsigned long t = 0; t < numTiles; ++t) free(tiles[t].bits);
  free(tiles);
  tiles = nullptr;
  numEntries = numTiles = spareBuffers = spareHint = 0;
}

void BITSET_DEQUE::CountSpares() {
  spareBuffers = 0;
  for (unsigned long t = 0; t < numTiles; ++t)
    if (tiles[t].bits && !tiles[t].hasBits) ++spareBuffers;
  spareHint = 0;
}

int BITSET_DEQUE::Resize(unsigned long numBits) {
  if (numBits == 0) {
    Free();
    return 0;
  }
  const unsigned long newTiles = (numBits >> kTileShift) + ((numBits & kTileMask) != 0);
  if (newTiles > SIZE_MAX / sizeof(TILE)) {
    const int rc = SETERR(VOERROR_OutOfMemory);
    GetErrString() << static_cast<unsigned long>(SIZE_MAX);
    return rc;
  }
  const unsigned long old = numEntries;
  // Bits past the old count in the old last tile come into the set as 0.
  if (numBits > old && (old & kTileMask)) {
    const unsigned long t = old >> kTileShift;
    TILE& tile = tiles[t];
    if (!tile.hasBits && tile.uniformValue) {
      const int rc = GetTile(t);
      if (rc < 0) return PASSERR(rc);
      memset(tile.bits, 0xFF, kTileBytes);
    }
    if (tile.hasBits) ChangeBits(tile.bits, old & kTileMask, kTileMask, 0);
  }
  if (newTiles > numTiles) {
    TILE* grown = tiles;
    const int rc = MmRealloc(&grown, newTiles * sizeof(TILE));
    if (rc < 0) return PASSERR(rc);  // the bits cleared above meant nothing before
    memset(grown + numTiles, 0, (newTiles - numTiles) * sizeof(TILE));
    tiles = grown;
  } else if (newTiles < numTiles) {
    // Buffers of the tiles that go become spares of kept tiles that have none.
    unsigned long k = 0;
    for (unsigned long d = newTiles; d < numTiles; ++d) {
      if (!tiles[d].bits) continue;
      while (k < newTiles && tiles[k].bits) ++k;
      if (k < newTiles)
        tiles[k].bits = tiles[d].bits;
      else
        free(tiles[d].bits);
    }
    // A smaller block that can't be had leaves the larger one in use.
    if (TILE* shrunk = static_cast<TILE*>(realloc(tiles, newTiles * sizeof(TILE)))) tiles = shrunk;
  }
  numTiles = newTiles;
  numEntries = numBits;
  CountSpares();
  return 0;
}

// ---------------------------------------------------------------- tiles

int BITSET_DEQUE::GetTile(unsigned long t) {
  if (t >= numTiles) return SETERR(VOERROR_InvalidArgument);
  TILE& tile = tiles[t];
  if (tile.hasBits) return 0;
  if (tile.bits) {
    --spareBuffers;  // its own spare
  } else {
    unsigned long s = spareBuffers ? spareHint : numTiles;
    while (s < numTiles && !(tiles[s].bits && !tiles[s].hasBits)) ++s;
    if (s < numTiles) {
      tile.bits = tiles[s].bits;
      tiles[s].bits = nullptr;
      --spareBuffers;
      spareHint = s + 1;
    } else {
      const int rc = MmAllocC(&tile.bits, kTileBytes);
      if (rc < 0) return PASSERR(rc);
    }
  }
  tile.hasBits = 1;
  return 0;
}

int BITSET_DEQUE::GetTileState(unsigned long t, bool* hasBuffer) const {
  if (t >= numTiles) return -1;
  if (hasBuffer) *hasBuffer = tiles[t].bits != nullptr;
  if (tiles[t].hasBits) return BITSET_TILE_Bits;
  return tiles[t].uniformValue ? BITSET_TILE_Ones : BITSET_TILE_Zeros;
}

void BITSET_DEQUE::MakeUniform(unsigned long t, unsigned char value) {
  TILE& tile = tiles[t];
  if (tile.hasBits) {
    tile.hasBits = 0;
    ++spareBuffers;
    if (t < spareHint) spareHint = t;
  }
  tile.uniformValue = value;
}

// ---------------------------------------------------------------- single bits

bool BITSET_DEQUE::GetBit(unsigned long bit) const {
  if (bit >= numEntries) return false;
  const TILE& tile = tiles[bit >> kTileShift];
  if (!tile.hasBits) return tile.uniformValue != 0;
  return (tile.bits[(bit >> 3) & (kTileBytes - 1)] >> (bit & 7)) & 1;
}

int BITSET_DEQUE::ApplyBit(unsigned long bit, RANGEOP op) {
  if (bit >= numEntries) return 0;
  const unsigned long t = bit >> kTileShift;
  TILE& tile = tiles[t];
  if (!tile.hasBits) {
    if (op != RANGE_Invert && tile.uniformValue == op) return 0;
    const int rc = GetTile(t);
    if (rc < 0) return PASSERR(rc);
    memset(tile.bits, tile.uniformValue ? 0xFF : 0x00, kTileBytes);
  }
  unsigned char& byte = tile.bits[(bit >> 3) & (kTileBytes - 1)];
  const unsigned char mask = static_cast<unsigned char>(1 << (bit & 7));
  if (op == RANGE_Set)
    byte |= mask;
  else if (op == RANGE_Clear)
    byte &= static_cast<unsigned char>(~mask);
  else
    byte ^= mask;
  return 0;
}

int BITSET_DEQUE::Set(unsigned long bit) {
  const int rc = ApplyBit(bit, RANGE_Set);
  return rc < 0 ? PASSERR(rc) : rc;
}

int BITSET_DEQUE::Clear(unsigned long bit) {
  const int rc = ApplyBit(bit, RANGE_Clear);
  return rc < 0 ? PASSERR(rc) : rc;
}

int BITSET_DEQUE::Invert(unsigned long bit) {
  const int rc = ApplyBit(bit, RANGE_Invert);
  return rc < 0 ? PASSERR(rc) : rc;
}

int BITSET_DEQUE::SetBit(unsigned long bit, bool value) {
  const int rc = ApplyBit(bit, value ? RANGE_Set : RANGE_Clear);
  return rc < 0 ? PASSERR(rc) : rc;
}

int BITSET_DEQUE::CopyBit(unsigned long to, unsigned long from) {
  const int rc = ApplyBit(to, GetBit(from) ? RANGE_Set : RANGE_Clear);
  return rc < 0 ? PASSERR(rc) : rc;
}

// ---------------------------------------------------------------- the whole set

void BITSET_DEQUE::SetAll() {
  for (unsigned long t = 0; t < numTiles; ++t) {
    tiles[t].hasBits = 0;
    tiles[t].uniformValue = 1;
  }
  CountSpares();
}

void BITSET_DEQUE::ClearAll() {
  for (unsigned long t = 0; t < numTiles; ++t) {
    tiles[t].hasBits = 0;
    tiles[t].uniformValue = 0;
  }
  CountSpares();
}

void BITSET_DEQUE::InvertAll() {
  for (unsigned long t = 0; t < numTiles; ++t) {
    if (tiles[t].hasBits)
      FlipBytes(tiles[t].bits, kTileBytes);
    else
      tiles[t].uniformValue ^= 1;
  }
}

// ---------------------------------------------------------------- ranges

int BITSET_DEQUE::ApplyRange(unsigned long first, unsigned long last, RANGEOP op) {
  if (numEntries == 0) return 0;
  if (last >= numEntries) last = numEntries - 1;
  if (first > last) return 0;
  const unsigned long ft = first >> kTileShift, lt = last >> kTileShift;
  // A tile is covered whole when the range reaches its last bit, or the
  // set's last bit in the last tile.
  auto whole = [&](unsigned long t) {
    const unsigned long start = t << kTileShift;
    const unsigned long end = t == numTiles - 1 ? numEntries - 1 : start + kTileMask;
    return first <= start && last >= end;
  };
  // Buffers for the partial end tiles first: nothing changes if one fails.
  for (unsigned long t : {ft, lt}) {
    TILE& tile = tiles[t];
    if (tile.hasBits || whole(t)) continue;
    if (op != RANGE_Invert && tile.uniformValue == op) continue;  // already so
    const int rc = GetTile(t);
    if (rc < 0) return PASSERR(rc);
    memset(tile.bits, tile.uniformValue ? 0xFF : 0x00, kTileBytes);
  }
  for (unsigned long t = ft; t <= lt; ++t) {
    TILE& tile = tiles[t];
    if (whole(t)) {
      if (op != RANGE_Invert)
        MakeUniform(t, static_cast<unsigned char>(op));
      else if (tile.hasBits)
        FlipBytes(tile.bits, kTileBytes);
      else
        tile.uniformValue ^= 1;
    } else if (tile.hasBits) {
      const unsigned long a = t == ft ? first & kTileMask : 0;
      const unsigned long b = t == lt ? last & kTileMask : kTileMask;
      ChangeBits(tile.bits, a, b, op);
    }
  }
  return 0;
}

int BITSET_DEQUE::SetRange(unsigned long first, unsigned long last) {
  const int rc = ApplyRange(first, last, RANGE_Set);
  return rc < 0 ? PASSERR(rc) : rc;
}

int BITSET_DEQUE::ClearRange(unsigned long first, unsigned long last) {
  const int rc = ApplyRange(first, last, RANGE_Clear);
  return rc < 0 ? PASSERR(rc) : rc;
}

int BITSET_DEQUE::InvertRange(unsigned long first, unsigned long last) {
  const int rc = ApplyRange(first, last, RANGE_Invert);
  return rc < 0 ? PASSERR(rc) : rc;
}

// ---------------------------------------------------------------- reading

unsigned long BITSET_DEQUE::FindNext(unsigned long from, unsigned long last, unsigned char want,
                                     unsigned char skip) const {
  while (from <= last) {
    const unsigned long t = from >> kTileShift;
    const unsigned long start = t << kTileShift;
    const unsigned long end = last - start < kTileMask ? last : start + kTileMask;
    const TILE& tile = tiles[t];
    if (!tile.hasBits) {
      if (tile.uniformValue == want) return from;
    } else {
      const unsigned long at = FindInBuffer(tile.bits, from - start, end - start, skip);
      if (at <= end - start) return start + at;
    }
    if (end == last) break;
    from = end + 1;
  }
  return last + 1;
}

bool BITSET_DEQUE::GetRange(unsigned long first, unsigned long last, unsigned long& end) const {
  if (numEntries && last >= numEntries) last = numEntries - 1;
  if (numEntries == 0 || first > last) {
    end = first;
    return false;
  }
  const bool value = GetBit(first);
  // The run ends before the first bit of the other value.
  end = first == last ? last : FindNext(first + 1, last, !value, value ? 0xFF : 0x00) - 1;
  return value;
}

BITSET_DEQUE::ITERATOR BITSET_DEQUE::Begin(bool value) const {
  ITERATOR it(this, static_cast<unsigned long>(-1), value);
  return ++it;
}

BITSET_DEQUE::ITERATOR& BITSET_DEQUE::ITERATOR::operator++() {
  const unsigned long n = owner->numEntries;
  const unsigned long from = position + 1;  // -1 wraps to 0
  position = n == 0 || from >= n ? n : owner->FindNext(from, n - 1, wantValue, skipByte);
  return *this;
}

int BITSET_DEQUE::GetBitArray(unsigned char*& out) const {
  out = nullptr;
  if (numEntries == 0) return 0;
  const unsigned long bytes = numEntries / 8 + ((numEntries & 7) != 0);
  unsigned char* flat = nullptr;
  const int rc = MmAlloc(&flat, bytes);
  if (rc < 0) return PASSERR(rc);
  for (unsigned long t = 0; t < numTiles; ++t) {
    const unsigned long at = t * kTileBytes;
    const size_t n = bytes - at < kTileBytes ? bytes - at : kTileBytes;
    if (tiles[t].hasBits)
      memcpy(flat + at, tiles[t].bits, n);
    else
      memset(flat + at, tiles[t].uniformValue ? 0xFF : 0x00, n);
  }
  // Bits past the count read 0.
  if (numEntries & 7) flat[bytes - 1] &= static_cast<unsigned char>(0xFF >> (8 - (numEntries & 7)));
  out = flat;
  return 0;
}
