// The resource-fork reader: the published layout of a classic Macintosh
// resource fork, read through a Vio handle.
//
// A fork is a 16-byte header (offsets and lengths of the resource data and
// of the map), the data (each resource a 4-byte length and its bytes), and
// the map: a 30-byte head whose offset 24 locates the type list, and offset
// 28 holds the number of types less one; the type list's 8-byte rows (type,
// number of resources less one, offset of the reference list from the type
// list); and the 12-byte reference rows (id, name offset, attributes, 24-bit
// data offset, a handle slot). Every field is big-endian.
//
// The counts less one are signed 16-bit numbers, as the system that wrote
// these forks kept them: an empty map stores -1 (0xFFFF) types.
//
// Nothing read from the file is trusted: before each read, and before the
// allocation of a resource's bytes, the position and length are checked
// against the file's size, in 64-bit arithmetic, and what would pass its
// end is refused with -1122 and the two lengths (asked, available), as the
// short read it would be. The header's own lengths of data and map are
// checked the same way. Rows are read in blocks of up to 4 KB, but never
// past the end of the file, so a fork cut short inside a list is found
// where a row-by-row reader would find it, after the rows before the cut.
static const char s_ident[] = "@(#) macresource.cpp 1.0";

#include "vosystem/macresource.h"

#include <climits>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "files/vioname.h"
#include "foundation/errpos.h"
#include "vosystem/memfunc.h"
#include "vosystem/viofuncs.h"

namespace {

uint32_t Be32(const unsigned char* p) {
  return uint32_t(p[0]) << 24 | uint32_t(p[1]) << 16 | uint32_t(p[2]) << 8 | p[3];
}

uint16_t Be16(const unsigned char* p) {
  return static_cast<uint16_t>(p[0] << 8 | p[1]);
}

// A stored count less one, as a count: -1 (an empty list) and the other
// negative numbers, which no writer stores, count as none.
long CountOf(const unsigned char* p) {
  const long count = static_cast<int16_t>(Be16(p)) + 1L;
  return count > 0 ? count : 0;
}

struct FORK {
  int handle;
  uint64_t fileSize;
  uint64_t dataOffset;
  uint64_t mapOffset;
  uint64_t typeList;  // position of the type list
  long numTypes;
};

// Refuses a read of length bytes at pos that would pass the end of the file.
int CheckSpan(const FORK& f, uint64_t pos, uint64_t length) {
  if (pos <= f.fileSize && length <= f.fileSize - pos) return 0;
  const int rc = SETERR(VOERROR_ShortRead);
  GetErrString() << static_cast<unsigned long long>(length)
                 << static_cast<unsigned long long>(pos < f.fileSize ? f.fileSize - pos : 0);
  PushErrFileName(VioHandleDisplayName(f.handle));
  return rc;
}

int ReadAt(const FORK& f, uint64_t pos, void* buffer, long length) {
  int rc = CheckSpan(f, pos, static_cast<uint64_t>(length));
  if (rc < 0) return PASSERR(rc);
  rc = VioSeekAndRead(f.handle, static_cast<long>(pos), buffer, length);
  return rc < 0 ? PASSERR(rc) : 0;
}

int ReadHeaders(int handle, FORK* f) {
  f->handle = handle;
  const long long size = VioGetOpenFileSize64(handle);
  if (size < 0) return PASSERR(static_cast<int>(size));
  f->fileSize = static_cast<uint64_t>(size);
  unsigned char head[16];
  int rc = ReadAt(*f, 0, head, sizeof head);
  if (rc < 0) return PASSERR(rc);
  f->dataOffset = Be32(head);
  f->mapOffset = Be32(head + 4);
  rc = CheckSpan(*f, f->dataOffset, Be32(head + 8));
  if (rc >= 0) rc = CheckSpan(*f, f->mapOffset, Be32(head + 12));
  if (rc < 0) return PASSERR(rc);
  unsigned char map[30];
  rc = ReadAt(*f, f->mapOffset, map, sizeof map);
  if (rc < 0) return PASSERR(rc);
  f->typeList = f->mapOffset + Be16(map + 24);
  f->numTypes = CountOf(map + 28);
  return 0;
}

// Reads up to count rows of rowSize bytes from pos until match(row) says
// yes. *found is the row's index, or -1 when none matched. 0 or a code.
template <class MATCH>
int ScanRows(const FORK& f, uint64_t pos, long count, long rowSize, MATCH match, long* found) {
  *found = -1;
  unsigned char block[4096];
  const long perBlock = sizeof block / rowSize;
  for (long index = 0; index < count;) {
    long n = count - index < perBlock ? count - index : perBlock;
    // Never past the end of the file: a cut inside the list is found at
    // the first row that it cuts.
    const uint64_t whole = pos < f.fileSize ? (f.fileSize - pos) / rowSize : 0;
    if (whole < static_cast<uint64_t>(n)) n = whole ? static_cast<long>(whole) : 1;
    const int rc = ReadAt(f, pos, block, n * rowSize);
    if (rc < 0) return PASSERR(rc);
    for (long i = 0; i < n; ++i) {
      if (match(block + i * rowSize)) {
        *found = index + i;
        return 0;
      }
    }
    index += n;
    pos += static_cast<uint64_t>(n * rowSize);
  }
  return 0;
}

// The type's row: *count resources, reference list at *refList. 1 if the
// type is there, 0 if not, or a code.
int FindResType(const FORK& f, unsigned long type, long* count, uint64_t* refList) {
  unsigned char row[8];
  long found = -1;
  const int rc = ScanRows(
      f, f.typeList + 2, f.numTypes, 8,
      [type, &row](const unsigned char* r) {
        if (Be32(r) != (type & 0xFFFFFFFFUL)) return false;
        memcpy(row, r, sizeof row);
        return true;
      },
      &found);
  if (rc < 0) return PASSERR(rc);
  if (found < 0) return 0;
  *count = CountOf(row + 4);
  *refList = f.typeList + Be16(row + 6);
  return 1;
}

// Reads the resource of a reference row: its length, and its bytes into a
// new block at *data if data isn't null.
int ReadRes(const FORK& f, const unsigned char* ref, void** data) {
  const uint64_t pos = f.dataOffset + (Be32(ref + 4) & 0xFFFFFF);
  unsigned char head[4];
  int rc = ReadAt(f, pos, head, sizeof head);
  if (rc < 0) return PASSERR(rc);
  const uint32_t length = Be32(head);
  rc = CheckSpan(f, pos + 4, length);
  if (rc < 0) return PASSERR(rc);
  if (length > INT_MAX) {
    rc = SETERR(VOERROR_FileTooLarge);
    PushErrFileName(VioHandleDisplayName(f.handle));
    return rc;
  }
  if (!data) return static_cast<int>(length);
  void* block = nullptr;
  rc = MmAlloc(&block, length);
  if (rc < 0) return PASSERR(rc);
  if (length) {
    rc = ReadAt(f, pos + 4, block, static_cast<long>(length));
    if (rc < 0) {
      free(block);
      return PASSERR(rc);
    }
  }
  *data = block;
  return static_cast<int>(length);
}

// Finds the reference row by index (byIndex) or by id, and reads it.
int ReadResource(int handle, unsigned long type, bool byIndex, int key, void** data) {
  if (data) *data = nullptr;
  FORK f;
  int rc = ReadHeaders(handle, &f);
  if (rc < 0) return PASSERR(rc);
  long count = 0;
  uint64_t refList = 0;
  rc = FindResType(f, type, &count, &refList);
  if (rc <= 0) return rc < 0 ? PASSERR(rc) : 0;
  long index = -1;
  if (byIndex) {
    if (key < 0 || key >= count) return 0;
    index = key;
  } else {
    const uint16_t id = static_cast<uint16_t>(key);
    rc = ScanRows(
        f, refList, count, 12, [id](const unsigned char* r) { return Be16(r) == id; }, &index);
    if (rc < 0) return PASSERR(rc);
    if (index < 0) return 0;
  }
  unsigned char ref[12];
  rc = ReadAt(f, refList + static_cast<uint64_t>(index) * 12, ref, sizeof ref);
  if (rc < 0) return PASSERR(rc);
  rc = ReadRes(f, ref, data);
  return rc < 0 ? PASSERR(rc) : rc;
}

}  // namespace

int MacNumResourcesOfType(int handle, unsigned long type) {
  FORK f;
  int rc = ReadHeaders(handle, &f);
  if (rc < 0) return PASSERR(rc);
  long count = 0;
  uint64_t refList = 0;
  rc = FindResType(f, type, &count, &refList);
  if (rc < 0) return PASSERR(rc);
  return rc ? static_cast<int>(count) : 0;
}

int MacReadResourceByNum(int handle, unsigned long type, int index, void** data) {
  const int rc = ReadResource(handle, type, true, index, data);
  return rc < 0 ? PASSERR(rc) : rc;
}

int MacReadResourceByID(int handle, unsigned long type, int id, void** data) {
  const int rc = ReadResource(handle, type, false, id, data);
  return rc < 0 ? PASSERR(rc) : rc;
}
