// The binary text resource file: its reader and its X resource lines.
//
// Layout (all integers little-endian, all offsets absolute):
//
//   0    31 bytes  signature "Larkspindle text resource file" and its zero
//   31   1 byte    pad, never examined
//   32   4 bytes   language code, three characters and a zero ("enu")
//   36   int32     format version, 1
//   40   int32     reserved
//   44   int32     units of the longest text record, terminator included
//   48   int32     number of numeric sets, 3
//   52   3 x 12    numeric sets: first id, count, offset of the address table
//   88   int32     number of name sets, 4
//   92   4 x 20    name sets: count, name block length, name block offset,
//                  name offset table offset, text address table offset
//   172  ...       tables, name blocks and text records in any order
//
// An address table holds, for each id from the first on, the offset of its
// text record (0 or less: no text). A name block holds the zero-terminated
// names of a set sorted by strcmp; the name offset table gives where each
// starts, the block length standing in for the end of the last. A text
// record is an int16 n and n UTF-16 units, the last of them zero.
//
// Nothing in the file is trusted beyond what Open checks against the file's
// size: counts and offsets must lie inside the file and behind the header,
// the tables must not overlap one another, each numeric set must stay in its
// range of ids, names take 1 to 128 bytes and follow one another, and the
// longest-text field must fit both the int16 of a record and the file. Every
// in-memory table is then bounded by the file's size. Text records and names
// stay on disk and are checked when they are read: a record must fit the
// file and the longest-text field and end with its zero; one that doesn't
// gives no text. Nothing a file holds can make a lookup read outside the
// file or past a buffer.
//
// The numeric index is a direct array per set: a number costs a subtraction
// and an array read. Text records are read when first asked for, then kept
// in a small cache keyed by address, so later lookups make no system call;
// the cache's total is bounded by twice the file's size, which holds even a
// file whose records overlap on purpose.
static const char s_ident[] = "@(#) resfile.cpp 1.0";

#include "resources/resfile.h"

#include <algorithm>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <new>

#include "foundation/errpos.h"
#include "vosystem/memfunc.h"
#include "vosystem/ucconv.h"

namespace {

const char kSignature[31] = "Larkspindle text resource file";
const int kHeaderSize = 172;
const int kRecordMin = 4;  // an int16 and one unit, the terminator
const int kNumericRange[3][2] = {{INT_MIN, -1}, {0, 99999}, {100000, INT_MAX}};

int32_t Le32(const unsigned char* p) {
  return static_cast<int32_t>(static_cast<uint32_t>(p[0]) | static_cast<uint32_t>(p[1]) << 8 |
                              static_cast<uint32_t>(p[2]) << 16 |
                              static_cast<uint32_t>(p[3]) << 24);
}

// Tables are read straight into their arrays, then put in host order.
void FromLittleEndian(int32_t* values, int count) {
  for (int i = 0; i < count; ++i) {
    unsigned char bytes[4];
    memcpy(bytes, &values[i], 4);
    values[i] = Le32(bytes);
  }
}

struct RANGE {
  long long first, end;  // [first, end)
};

bool Inside(long long offset, long long length, long long size) {
  return offset >= kHeaderSize && length >= 0 && offset <= size - length;
}

NUMSET SetOfId(int id) {
  if (id < 0) return NUMSET_Negative;
  return id <= kNumericRange[NUMSET_Small][1] ? NUMSET_Small : NUMSET_Large;
}

}  // namespace

struct RESFILE::CACHED {
  int32_t addr;           // 0: a free slot
  unsigned short* units;  // zero-terminated
};

// ---------------------------------------------------------------- XRESLOADER

XRESLOADER::XRESLOADER(void (*callback)(void*, const char*), void* user)
    : m_callback(callback), m_user(user) {
  m_convRc = MucInitConversion(&m_conv, "X-Resfile", 0);
  if (m_convRc < 0) m_conv = nullptr;
}

XRESLOADER::~XRESLOADER() {
  MucStopConversion(m_conv);
}

int XRESLOADER::PutLine(const char* name, const char* suffix, const unsigned short* text) {
  if (!m_conv) return m_convRc < 0 ? m_convRc : SETERR(VOERROR_Failed);
  if (!name) name = "";
  if (!suffix) suffix = "";
  static const unsigned short kEmpty[1] = {0};
  MucReset(m_conv);  // each line starts in the initial state of the encoding
  char* converted = nullptr;
  const int n = MucConvertFromUnicode(m_conv, text ? text : kEmpty, &converted);
  if (n < 0) {
    free(converted);
    return PASSERR(n);
  }
  const size_t nameLength = strlen(name), suffixLength = strlen(suffix);
  const size_t textLength = converted ? strlen(converted) : 0;
  const size_t total = 1 + nameLength + suffixLength + 2 + textLength + 1;
  if (total > static_cast<size_t>(INT_MAX)) {
    free(converted);
    const int rc = SETERR(VOERROR_OutOfMemory);
    GetErrString() << static_cast<unsigned long long>(total);
    return rc;
  }
  const int rc = m_line.Resize(static_cast<int>(total), false, false);
  if (rc < 0) {
    free(converted);
    return PASSERR(rc);
  }
  char* p = m_line.GetPointer();
  *p++ = '*';
  memcpy(p, name, nameLength);
  p += nameLength;
  memcpy(p, suffix, suffixLength);
  p += suffixLength;
  *p++ = ':';
  *p++ = ' ';
  if (textLength) memcpy(p, converted, textLength);
  p[textLength] = 0;
  free(converted);
  if (m_callback) m_callback(m_user, m_line.GetPointer());
  return 0;
}

// ---------------------------------------------------------------- opening

RESFILE::RESFILE() {
  memset(m_probe, 0, sizeof m_probe);
  m_lastName[0] = 0;
}

RESFILE::~RESFILE() {
  Forget();
}

int RESFILE::Open(const FILEPATH& path) {
  Forget();
  m_valid = false;
  m_lastSet = 4;
  memset(m_probe, 0, sizeof m_probe);
  int rc = FILE_RAW::Open(path, FILE_ACCESS_Read, FILE_SHARE_All);
  if (rc < 0) return PASSERR(rc);
  unsigned char head[32];
  long got = Read(head, sizeof head, false);
  if (got < 0) {
    Close();
    return PASSERR(static_cast<int>(got));
  }
  got = Read(m_language, sizeof m_language, false);
  if (got < 0) {
    m_language[0] = 0;
    Close();
    return PASSERR(static_cast<int>(got));
  }
  // Byte 31 is a pad; the signature's own zero is byte 30.
  if (memcmp(head, kSignature, sizeof kSignature) != 0 || strnlen(m_language, 4) != 3 ||
      LoadIndex() < 0) {
    m_language[0] = 0;
    for (int s = 0; s < 3; ++s) m_addr[s].Free();
    for (int s = 0; s < 4; ++s) {
      m_nameCount[s] = 0;
      m_nameOffsets[s].Free();
      m_textAddr[s].Free();
    }
    Close();
    return VOERROR_ResourceBad;
  }
  m_valid = true;
  return 0;
}

int RESFILE::ReadTable(int32_t offset, SIMPLE_ARRAY<int32_t>& table, int count) {
  // One more entry than the file holds: name offsets keep the block length
  // behind the last.
  if (table.Resize(count + 1, false, true) < 0) return VOERROR_ResourceBad;
  if (count == 0) return 0;
  if (SeekAndRead(offset, table.GetPointer(), static_cast<long>(count) * 4) < 0)
    return VOERROR_ResourceBad;
  FromLittleEndian(table.GetPointer(), count);
  return 0;
}

// Steps from the version on. A failure here is the file's, not the
// stream's: nothing is recorded, whatever the stream would have said.
int RESFILE::LoadIndex() {
  ERRPOSN_DISABLER quiet;
  m_size = GetSize();
  if (m_size < kHeaderSize || m_size > INT_MAX) return VOERROR_ResourceBad;
  unsigned char h[kHeaderSize - 36];
  if (Read(h, sizeof h, false) != static_cast<long>(sizeof h)) return VOERROR_ResourceBad;
  // h[i] is the byte at offset 36 + i.
  const int32_t version = Le32(h + 0);
  const int32_t longest = Le32(h + 8);
  if (version != 1 || Le32(h + 12) != 3 || Le32(h + 52) != 4) return VOERROR_ResourceBad;
  if (longest < 1 || longest > 0x7FFF || 2 + 2LL * longest > m_size) return VOERROR_ResourceBad;
  m_longest = longest;
  if (m_buffer.Resize(longest + 1, false, false) < 0) return VOERROR_ResourceBad;

  RANGE ranges[3 + 4 * 3];
  int nRanges = 0;
  int32_t numOffset[3], nameTables[4][2];
  int numCount[3];
  for (int s = 0; s < 3; ++s) {
    const unsigned char* p = h + 16 + 12 * s;
    const long long first = Le32(p), count = Le32(p + 4), offset = Le32(p + 8);
    if (count < 0) return VOERROR_ResourceBad;
    numCount[s] = static_cast<int>(count);
    numOffset[s] = static_cast<int32_t>(offset);
    m_firstId[s] = static_cast<int32_t>(first);
    if (count == 0) continue;
    if (first < kNumericRange[s][0] || first + count - 1 > kNumericRange[s][1] ||
        !Inside(offset, 4 * count, m_size))
      return VOERROR_ResourceBad;
    ranges[nRanges++] = {offset, offset + 4 * count};
  }
  for (int s = 0; s < 4; ++s) {
    const unsigned char* p = h + 56 + 20 * s;
    const long long count = Le32(p), blockLength = Le32(p + 4), block = Le32(p + 8);
    const long long offsets = Le32(p + 12), texts = Le32(p + 16);
    if (count < 0) return VOERROR_ResourceBad;
    m_nameCount[s] = static_cast<int32_t>(count);
    m_nameBlock[s] = static_cast<int32_t>(block);
    nameTables[s][0] = static_cast<int32_t>(offsets);
    nameTables[s][1] = static_cast<int32_t>(texts);
    if (count == 0) continue;
    if (blockLength < count || blockLength > kNameMax * count ||
        !Inside(block, blockLength, m_size) || !Inside(offsets, 4 * count, m_size) ||
        !Inside(texts, 4 * count, m_size))
      return VOERROR_ResourceBad;
    ranges[nRanges++] = {block, block + blockLength};
    ranges[nRanges++] = {offsets, offsets + 4 * count};
    ranges[nRanges++] = {texts, texts + 4 * count};
  }
  // At most 15 ranges: sorted by insertion, then each must end before the
  // next begins.
  for (int i = 1; i < nRanges; ++i)
    for (int j = i; j > 0 && ranges[j].first < ranges[j - 1].first; --j)
      std::swap(ranges[j], ranges[j - 1]);
  for (int i = 1; i < nRanges; ++i)
    if (ranges[i].first < ranges[i - 1].end) return VOERROR_ResourceBad;

  for (int s = 0; s < 3; ++s) {
    if (ReadTable(numOffset[s], m_addr[s], numCount[s]) < 0) return VOERROR_ResourceBad;
    m_addr[s].Resize(numCount[s], true, false);  // drops the spare entry
    const int32_t* a = m_addr[s].GetPointer();
    for (int i = 0; i < numCount[s]; ++i)
      if (a[i] > 0 && !Inside(a[i], kRecordMin, m_size)) return VOERROR_ResourceBad;
  }
  for (int s = 0; s < 4; ++s) {
    const int count = m_nameCount[s];
    const int32_t blockLength = count ? Le32(h + 56 + 20 * s + 4) : 0;
    if (ReadTable(nameTables[s][0], m_nameOffsets[s], count) < 0 ||
        ReadTable(nameTables[s][1], m_textAddr[s], count) < 0)
      return VOERROR_ResourceBad;
    int32_t* offsets = m_nameOffsets[s].GetPointer();
    offsets[count] = blockLength;
    for (int i = 0; i < count; ++i) {
      const long long length = static_cast<long long>(offsets[i + 1]) - offsets[i];
      if (offsets[i] < 0 || length < 1 || length > kNameMax) return VOERROR_ResourceBad;
      const int32_t a = m_textAddr[s][i];
      if (a > 0 && !Inside(a, kRecordMin, m_size)) return VOERROR_ResourceBad;
    }
  }
  return 0;
}

// ---------------------------------------------------------------- lookups

long RESFILE::GetAddr(int id, NUMSET set) const {
  if (set < NUMSET_Negative || set > NUMSET_Large) return 0;
  const long long index = static_cast<long long>(id) - m_firstId[set];
  if (index < 0 || index >= m_addr[set].GetNumUsed()) return 0;
  const int32_t addr = m_addr[set][static_cast<int>(index)];
  return addr > 0 ? addr : 0;
}

long RESFILE::GetAddr(const char* name, TEXTRES_NAMESET set) {
  if (!m_valid || !name || set < TEXTRES_NAMESET_Text || set > TEXTRES_NAMESET_Help) return 0;
  const size_t length = strnlen(name, kNameMax);
  if (length >= kNameMax) return 0;  // no name of the file is that long
  if (set == m_lastSet && strcmp(name, m_lastName) == 0) return m_lastAddr;
  m_lastSet = set;
  memcpy(m_lastName, name, length + 1);
  m_lastAddr = 0;
  int low = 0, high = m_nameCount[set] - 1;
  int slotLow = 0, slotHigh = 16;
  char local[kNameMax];
  while (low <= high) {
    const int mid = low + (high - low) / 2;
    const char* probe = local;
    int slot = -1;
    if (slotLow < slotHigh) {
      // The upper levels go through the probe cache. A slot is reached by
      // one path of comparisons only, so it always holds name number mid.
      slot = (slotLow + slotHigh) / 2;
      char* cached = m_probe[set][slot];
      if (!cached[0] && !ReadName(set, mid, cached)) {
        m_lastSet = 4;  // a failed read is tried again next time
        return 0;
      }
      probe = cached;
    } else if (!ReadName(set, mid, local)) {
      m_lastSet = 4;
      return 0;
    }
    const int order = strcmp(name, probe);
    if (order == 0) {
      m_lastAddr = std::max<int32_t>(m_textAddr[set][mid], 0);
      return m_lastAddr;
    }
    if (order < 0) {
      high = mid - 1;
      if (slot >= 0) slotHigh = slot - 1;
    } else {
      low = mid + 1;
      if (slot >= 0) slotLow = slot + 1;
    }
  }
  return 0;
}

int RESFILE::GetString(int id, VOSTRING& out) {
  const long addr = GetAddr(id, SetOfId(id));
  return addr > 0 ? ReadText(addr, out) : 0;
}

int RESFILE::GetString(const char* name, TEXTRES_NAMESET set, VOSTRING& out) {
  const long addr = GetAddr(name, set);
  return addr > 0 ? ReadText(addr, out) : 0;
}

int RESFILE::ReadName(TEXTRES_NAMESET set, int index, char* out) {
  out[0] = 0;
  if (!m_valid || set < TEXTRES_NAMESET_Text || set > TEXTRES_NAMESET_Help || index < 0 ||
      index >= m_nameCount[set])
    return 0;
  const int32_t* offsets = m_nameOffsets[set].GetPointer();
  const int32_t length = offsets[index + 1] - offsets[index];  // 1 to kNameMax, checked at Open
  ERRPOSN_DISABLER quiet;
  if (SeekAndRead(static_cast<long long>(m_nameBlock[set]) + offsets[index], out, length) < 0) {
    out[0] = 0;
    return 0;
  }
  out[length - 1] = 0;
  return 1;
}

int RESFILE::ReadText(long addr, VOSTRING& out) {
  if (!m_valid || addr < kHeaderSize || addr > m_size - kRecordMin) return 0;
  if (const CACHED* cached = FindCached(static_cast<int32_t>(addr))) {
    out = VOSTRING(cached->units);  // a body made to size, shared by out
    return 1;
  }
  // The length and the longest possible record in one read: a record that
  // ends early leaves the rest of the buffer unused.
  unsigned short* buffer = m_buffer.GetPointer();
  const long want = static_cast<long>(std::min<long long>(2 + 2LL * m_longest, m_size - addr));
  ERRPOSN_DISABLER quiet;
  if (Seek(addr, SEEKFROM_Start) != addr || Read(buffer, want, false) != want) return 0;
  unsigned char bytes[2];
  memcpy(bytes, buffer, 2);
  const int n = static_cast<int16_t>(static_cast<uint16_t>(bytes[0] | bytes[1] << 8));
  if (n < 1 || n > m_longest || 2 + 2L * n > want) return 0;
  unsigned short* units = buffer + 1;
  for (int i = 0; i < n; ++i) {
    memcpy(bytes, &units[i], 2);
    units[i] = static_cast<unsigned short>(bytes[0] | bytes[1] << 8);
  }
  if (units[n - 1] != 0) return 0;
  ++m_recordReads;
  Remember(static_cast<int32_t>(addr), units, n - 1);
  out = VOSTRING(units);
  return 1;
}

// ---------------------------------------------------------------- X resources

int RESFILE::LoadX(XRESLOADER& loader) {
  int rc = LoadX(loader, TEXTRES_NAMESET_Label, ".labelString");
  if (rc >= 0) rc = LoadX(loader, TEXTRES_NAMESET_Title, "_popup.title");
  return rc < 0 ? PASSERR(rc) : 0;
}

int RESFILE::LoadX(XRESLOADER& loader, TEXTRES_NAMESET set, const char* suffix) {
  if (!m_valid || set < TEXTRES_NAMESET_Text || set > TEXTRES_NAMESET_Help) return 0;
  const int count = m_nameCount[set];
  if (count == 0) return 0;
  const int32_t* offsets = m_nameOffsets[set].GetPointer();
  const int32_t blockLength = offsets[count];
  char* block = nullptr;
  int rc = MmAlloc(&block, static_cast<unsigned long>(blockLength));
  if (rc < 0) return PASSERR(rc);
  rc = SeekAndRead(m_nameBlock[set], block, blockLength);
  for (int i = 0; rc >= 0 && i < count; ++i) {
    block[offsets[i + 1] - 1] = 0;  // each name ends inside its own bytes
    VOSTRING text;
    if (!ReadText(m_textAddr[set][i], text)) continue;  // a bad record gives no line
    rc = loader.PutLine(block + offsets[i], suffix, text);
  }
  free(block);
  return rc < 0 ? PASSERR(rc) : 0;
}

// ---------------------------------------------------------------- the text cache

const RESFILE::CACHED* RESFILE::FindCached(int32_t addr) const {
  if (!m_cacheSlots) return nullptr;
  const unsigned mask = static_cast<unsigned>(m_cacheSlots - 1);
  for (unsigned i = (static_cast<uint32_t>(addr) * 2654435761u) & mask;; i = (i + 1) & mask) {
    const CACHED& c = m_cache[i];
    if (c.addr == addr) return &c;
    if (c.addr == 0) return nullptr;
  }
}

void RESFILE::Remember(int32_t addr, const unsigned short* units, int length) {
  const size_t bytes = (static_cast<size_t>(length) + 1) * sizeof(unsigned short);
  if (m_cacheBytes + bytes > 2 * static_cast<size_t>(m_size)) return;
  if (2 * (m_cacheUsed + 1) > m_cacheSlots) {
    // Grow to keep the table at most half full.
    const int slots = m_cacheSlots ? 2 * m_cacheSlots : 64;
    CACHED* grown = new (std::nothrow) CACHED[slots]();
    if (!grown) return;
    const unsigned mask = static_cast<unsigned>(slots - 1);
    for (int i = 0; i < m_cacheSlots; ++i) {
      if (!m_cache[i].addr) continue;
      unsigned j = (static_cast<uint32_t>(m_cache[i].addr) * 2654435761u) & mask;
      while (grown[j].addr) j = (j + 1) & mask;
      grown[j] = m_cache[i];
    }
    delete[] m_cache;
    m_cache = grown;
    m_cacheSlots = slots;
  }
  auto* copy = static_cast<unsigned short*>(malloc(bytes));
  if (!copy) return;
  memcpy(copy, units, bytes - sizeof(unsigned short));
  copy[length] = 0;
  const unsigned mask = static_cast<unsigned>(m_cacheSlots - 1);
  unsigned j = (static_cast<uint32_t>(addr) * 2654435761u) & mask;
  while (m_cache[j].addr) j = (j + 1) & mask;
  m_cache[j] = {addr, copy};
  ++m_cacheUsed;
  m_cacheBytes += bytes;
}

void RESFILE::Forget() {
  for (int i = 0; i < m_cacheSlots; ++i) free(m_cache[i].units);
  delete[] m_cache;
  m_cache = nullptr;
  m_cacheSlots = m_cacheUsed = 0;
  m_cacheBytes = 0;
}
