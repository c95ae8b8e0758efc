// The conversion tables: for each charset of the registry, its code values
// against Unicode in both directions, in two-level sparse tables.
//
// Four charsets are built in (Unicode's 0 needs none, Latin-1, JIS-Roman and
// half-width katakana); all others are read on first use from the reference
// file "unicode2.ref": a header, a directory of charset names, and for each a
// list of (Unicode, code) pairs applied in file order, the later pair winning
// in both directions. Every field is checked against the file's size before
// it is read; a directory or pair list past the end makes the load fail.
//
// Loading is once per charset and process, and safe when the first
// conversions of several threads meet: a charset is loaded under one lock,
// complete, and only then published (release) to the lock-free readers
// (acquire). A load that failed leaves the charset unloaded, so the next use
// tries again, after the cause (a missing file, say) may have gone.
static const char s_ident[] = "@(#) convtables.cpp 1.0";

#include "encoding/convtables.h"

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <cstring>
#include <mutex>

#include "encoding/convdata.h"
#include "files/readfile.h"
#include "foundation/errpos.h"
#include "vosystem/filefind.h"
#include "vosystem/ucconv.h"

namespace {

const char kFileName[] = "unicode2.ref";
const size_t kMaxFileSize = 64u << 20;  // the real file is well under 1 MB
const int kHeaderSize = 16;
const size_t kEntryRead = 40;  // bytes of a directory entry that are read
const int kNameUnits = 16;

enum : int {
  kCharsetUnicode = 0,
  kCharsetLatin1 = 15,
  kCharsetJisRoman = 24,
  kCharsetHalfKana = 27,
  kCharsetJisX0212 = 12,
  kModShiftJis = 0x10000,
  kModEuc = 0x20000,
  kModSetHigh = 0x40000,
  kModClearHigh = 0x80000,
};

struct TABLES {
  std::atomic<SPARSEARRAY*> toUC{nullptr};  // published last, after all else
  SPARSEARRAY* fromUC = nullptr;
  // The flat views of CHARSET_TABLES.
  const uint16_t* toPages[256] = {};
  const uint16_t* fromPages[256] = {};
  const uint16_t* fromEncoderPages[256] = {};
  uint16_t fromEncoder0[256] = {};
  unsigned encoderSameBelow = 0;
};

const uint16_t kZeroPage[256] = {};

struct IDENTITY {
  uint16_t page[256];
  constexpr IDENTITY() : page() {
    for (int i = 0; i < 256; ++i) page[i] = static_cast<uint16_t>(i);
  }
};
constexpr IDENTITY kIdentity;

void BuildFlatViews(TABLES& t, const SPARSEARRAY* to, const SPARSEARRAY* from) {
  for (int hi = 0; hi < 256; ++hi) {
    t.toPages[hi] = to->page[hi] ? to->page[hi] : hi == 0 ? kIdentity.page : kZeroPage;
    t.fromPages[hi] = from->page[hi] ? from->page[hi] : kZeroPage;
  }
  // Encoders write units up to the space as they are, and a Latin-1 value
  // the charset lacks as its own byte.
  for (int lo = 0; lo < 256; ++lo) {
    const uint16_t code = t.fromPages[0][lo];
    t.fromEncoder0[lo] = lo <= 0x20 || !code ? static_cast<uint16_t>(lo) : code;
  }
  std::copy(t.fromPages, t.fromPages + 256, t.fromEncoderPages);
  t.fromEncoderPages[0] = t.fromEncoder0;
  unsigned same = 1;
  while (same < 256 && t.fromEncoder0[same] == same) ++same;
  t.encoderSameBelow = same >= 256 ? 256 : same >= 128 ? 128 : 0;
}

TABLES g_tables[kCharsetRows];
std::mutex g_loadLock;

uint32_t ReadU32(const unsigned char* p) {
  uint32_t v;
  memcpy(&v, p, sizeof v);
  swaplong(&v);
  return v;
}

int OutOfMemory(size_t bytes, int line) {
  int rc = _SetErrPosnC(VOERROR_OutOfMemory, s_ident, line);
  GetErrString() << static_cast<unsigned long long>(bytes);
  return rc;
}

SPARSEARRAY* NewSparseArray() {
  return static_cast<SPARSEARRAY*>(calloc(1, sizeof(SPARSEARRAY)));
}

int AddBuiltInPairs(int charset, SPARSEARRAY* to, SPARSEARRAY* from) {
  int rc = 0;
  switch (charset) {
    case kCharsetLatin1:
      for (int c = 1; c <= 255 && rc == 0; ++c) rc = AddPair(to, from, c, c);
      break;
    case kCharsetJisRoman:
      // Yen sign at 0x5C and overline at 0x7E's neighbour 0xA2's place; the
      // katakana half of the byte range reads as the half-width forms.
      for (int c = 1; c <= 126 && rc == 0; ++c) rc = AddPair(to, from, c, c);
      if (rc == 0) rc = AddPair(to, from, 162, 175);
      if (rc == 0) rc = AddPair(to, from, 92, 165);
      for (int c = 161; c <= 223 && rc == 0; ++c) rc = AddPair(to, from, c, c + 0xFEC0);
      break;
    case kCharsetHalfKana:
      // The 7-bit and the 8-bit code both read; the 8-bit one is written.
      rc = AddPair(to, from, 32, 32);
      for (int c = 33; c <= 95 && rc == 0; ++c) {
        rc = AddPair(to, from, c, c + 0xFF40);
        if (rc == 0) rc = AddPair(to, from, c + 128, c + 0xFF40);
      }
      break;
  }
  return rc;
}

bool IsBuiltIn(int charset) {
  return charset == kCharsetLatin1 || charset == kCharsetJisRoman || charset == kCharsetHalfKana;
}

int AddPairsFromReferenceFile(int charset, SPARSEARRAY* to, SPARSEARRAY* from) {
  FILEPATH path;
  if (!FILEFIND::LocateReferenceFile(kFileName, path, 0)) {
    int rc = SETERR(VOERROR_CannotOpen);
    GetErrString() << kFileName;
    return rc;
  }
  unsigned char* file = nullptr;
  size_t size = 0;
  if (ReadWholeFile(path, kMaxFileSize, &file, &size) < 0) {
    int rc = SETERR(VOERROR_CannotOpen);
    GetErrString() << path.GetDisplay();
    return rc;
  }
  // Control codes convert in every table charset.
  int rc = 0;
  for (int c = 1; c <= 31 && rc == 0; ++c) rc = AddPair(to, from, c, c);
  if (rc == 0) rc = AddPairsFromFile(file, size, g_charsetInfo[charset].name, to, from);
  free(file);
  return rc < 0 ? PASSERR(rc) : 0;
}

// The charset's tables, loading them if need be; null with *rc set on failure.
const TABLES* Loaded(int charset, int* rc) {
  TABLES& t = g_tables[charset];
  if (t.toUC.load(std::memory_order_acquire)) return &t;
  std::lock_guard<std::mutex> lock(g_loadLock);
  if (t.toUC.load(std::memory_order_acquire)) return &t;
  SPARSEARRAY* to = NewSparseArray();
  SPARSEARRAY* from = NewSparseArray();
  if (!to || !from) {
    *rc = OutOfMemory(2 * sizeof(SPARSEARRAY), __LINE__);
  } else {
    *rc = IsBuiltIn(charset) ? AddBuiltInPairs(charset, to, from)
                             : AddPairsFromReferenceFile(charset, to, from);
  }
  if (*rc < 0) {
    FreeSparseArray(to);
    FreeSparseArray(from);
    return nullptr;
  }
  t.fromUC = from;
  BuildFlatViews(t, to, from);
  t.toUC.store(to, std::memory_order_release);
  return &t;
}

// The stored value for (hi, lo), or what a missing page means: a code of
// one byte reads as itself where its charset has no page 0, others as none.
int Lookup(const SPARSEARRAY* table, unsigned hi, unsigned lo) {
  const uint16_t* page = table->page[hi];
  if (page) return page[lo];
  return hi == 0 ? static_cast<int>(lo) : 0;
}

int CharsetOutOfRange() {
  return SETERR(VOERROR_InvalidArgument);
}

// The tables of the charset number in the low 16 bits of charset; null with
// *rc set (recorded) when the number is out of range or the load fails.
const TABLES* TablesOf(int charset, int* rc) {
  const int number = charset & 0xFFFF;
  if (number >= kCharsetRows) {
    *rc = CharsetOutOfRange();
    return nullptr;
  }
  const TABLES* t = Loaded(number, rc);
  if (!t) *rc = PASSERR(*rc);
  return t;
}

}  // namespace

// ---------------------------------------------------------------- tables

int PutInArray(SPARSEARRAY* table, int key, int value) {
  if (key < 0 || key > 0xFFFF) return 0;
  uint16_t*& page = table->page[key >> 8];
  if (!page) {
    page = static_cast<uint16_t*>(calloc(256, sizeof(uint16_t)));
    if (!page) return OutOfMemory(256 * sizeof(uint16_t), __LINE__);
  }
  page[key & 0xFF] = static_cast<uint16_t>(value);
  return 0;
}

int AddPair(SPARSEARRAY* toUC, SPARSEARRAY* fromUC, int code, int unicode) {
  int rc = PutInArray(toUC, code, unicode);
  return rc < 0 ? rc : PutInArray(fromUC, unicode, code);
}

void FreeSparseArray(SPARSEARRAY* table) {
  if (!table) return;
  for (uint16_t* page : table->page) free(page);
  free(table);
}

void swapwords(void* p, int count) {
#if __BYTE_ORDER__ == __ORDER_BIG_ENDIAN__
  auto* b = static_cast<unsigned char*>(p);
  for (int i = 0; i < count; ++i, b += 2) {
    unsigned char t = b[0];
    b[0] = b[1];
    b[1] = t;
  }
#else
  (void)p;
  (void)count;
#endif
}

void swaplong(void* p) {
#if __BYTE_ORDER__ == __ORDER_BIG_ENDIAN__
  auto* b = static_cast<unsigned char*>(p);
  unsigned char t = b[0];
  b[0] = b[3];
  b[3] = t;
  t = b[1];
  b[1] = b[2];
  b[2] = t;
#else
  (void)p;
#endif
}

namespace {

// An entry or a list that passes the end of the reference file: the bytes
// asked for and those left, and the file's name.
int ShortRead(uint64_t asked, uint64_t left, int line) {
  const int rc = _SetErrPosnC(VOERROR_ShortRead, s_ident, line);
  GetErrString() << static_cast<unsigned long long>(asked) << static_cast<unsigned long long>(left)
                 << kFileName;
  return rc;
}

}  // namespace

// A header shorter than 16 bytes has its missing fields read as 0. A
// directory entry shorter than 40 bytes likewise; an entry size of 0 makes
// every entry the first, which is looked at once.
int AddPairsFromFile(const unsigned char* file, size_t size, const char* name, SPARSEARRAY* toUC,
                     SPARSEARRAY* fromUC) {
  unsigned char header[kHeaderSize] = {};
  memcpy(header, file, size < sizeof header ? size : sizeof header);
  const uint32_t headerSize = ReadU32(header);
  if (headerSize < kHeaderSize) memset(header + headerSize, 0, kHeaderSize - headerSize);
  const uint32_t entrySize = ReadU32(header + 4);
  uint32_t entryCount = ReadU32(header + 12);
  if (entrySize == 0 && entryCount > 1) entryCount = 1;

  uint16_t wanted[kNameUnits] = {};
  for (int i = 0; i < kNameUnits && name[i]; ++i) wanted[i] = static_cast<unsigned char>(name[i]);

  const size_t read = entrySize < kEntryRead ? entrySize : kEntryRead;
  for (uint64_t i = 0; i < entryCount; ++i) {
    const uint64_t at = uint64_t{headerSize} + i * entrySize;
    if (at > size || size - at < read) return ShortRead(read, at < size ? size - at : 0, __LINE__);
    unsigned char entry[kEntryRead] = {};
    memcpy(entry, file + at, read);
    swapwords(entry, kNameUnits);
    if (memcmp(entry, wanted, sizeof wanted) != 0) continue;
    const uint32_t offset = ReadU32(entry + 32);
    const uint32_t count = ReadU32(entry + 36);
    if (offset > size || (size - offset) / 4 < count)
      return ShortRead(uint64_t{count} * 4, offset < size ? size - offset : 0, __LINE__);
    for (uint32_t k = 0; k < count; ++k) {
      uint16_t pair[2];
      memcpy(pair, file + offset + 4 * size_t{k}, sizeof pair);
      swapwords(pair, 2);
      if (pair[1] == 0) continue;  // code 0 never maps: it ends the text
      int rc = AddPair(toUC, fromUC, pair[1], pair[0]);
      if (rc < 0) return PASSERR(rc);
    }
    return 0;
  }
  return 0;
}

int GetCharsetTables(int charset, CHARSET_TABLES* tables) {
  *tables = CHARSET_TABLES{};
  if (charset == kCharsetUnicode) return 0;
  int rc = 0;
  const TABLES* t = TablesOf(charset & 0x7FFF0000 ? -1 : charset, &rc);  // no form here
  if (!t) return rc;
  tables->from = t->fromPages;
  tables->fromEncoder = t->fromEncoderPages;
  tables->encoderSameBelow = t->encoderSameBelow;
  if (charset != kCharsetLatin1) tables->to = t->toPages;
  return 0;
}

// ---------------------------------------------------------------- interface

extern "C" {

void jis2sjis(unsigned char* hi, unsigned char* lo) {
  const unsigned h = *hi, l = *lo;
  if (h == 0) return;
  *hi = static_cast<unsigned char>((h + 1) / 2 + (h < 95 ? 112 : 176));
  *lo = static_cast<unsigned char>(l + ((h & 1) == 0 ? 126 : l < 96 ? 31 : 32));
}

void sjis2jis(unsigned char* hi, unsigned char* lo) {
  const unsigned h = *hi, l = *lo;
  if (h == 0) return;
  const unsigned base = h - (h < 160 ? 112 : 176);
  if (l < 159) {
    *hi = static_cast<unsigned char>(base * 2 - 1);
    *lo = static_cast<unsigned char>(l - (l < 128 ? 31 : 32));
  } else {
    *hi = static_cast<unsigned char>(base * 2);
    *lo = static_cast<unsigned char>(l - 126);
  }
}

int MucCharsetToUnicode(int code, int charset) {
  if (charset == kCharsetUnicode || charset == kCharsetLatin1) return code;
  const int modifier = charset & 0x7FFF0000;
  int rc = 0;
  const TABLES* t = TablesOf(charset, &rc);
  if (!t) return rc;
  const SPARSEARRAY* table = t->toUC.load(std::memory_order_acquire);
  unsigned char hi = static_cast<unsigned char>(code >> 8), lo = static_cast<unsigned char>(code);
  switch (modifier) {
    case kModShiftJis:
      if (hi == 0) return MucCharsetToUnicode(lo, lo & 0x80 ? kCharsetHalfKana : kCharsetJisRoman);
      sjis2jis(&hi, &lo);
      if (Lookup(table, hi, lo) == 0) {
        // What JIS X 0208 lacks may stand in JIS X 0212 at the same place.
        const TABLES* extra = Loaded(kCharsetJisX0212, &rc);
        if (!extra) return PASSERR(rc);
        table = extra->toUC.load(std::memory_order_acquire);
      }
      break;
    case kModEuc:
      if (hi < 0xA1 || hi == 0xFF) return 0;
      hi = static_cast<unsigned char>(hi + 0x80);
      lo = static_cast<unsigned char>(lo + 0x80);
      break;
    case kModClearHigh:
      hi &= 0x7F;
      lo &= 0x7F;
      break;
    case kModSetHigh:
      lo |= 0x80;
      if (hi) hi |= 0x80;
      break;
    default:
      break;
  }
  return Lookup(table, hi, lo);
}

int MucUnicodeToCharset(int unicode, int charset) {
  if (charset == kCharsetUnicode) return unicode;
  const int modifier = charset & 0x7FFF0000;
  int rc = 0;
  const TABLES* t = TablesOf(charset, &rc);
  if (!t) return rc;
  const SPARSEARRAY* from = t->fromUC;
  int result = 0;
  if (unicode > 0 && unicode <= 0xFFFF) {
    const uint16_t* page = from->page[unicode >> 8];
    result = page ? page[unicode & 0xFF] : 0;
  }
  if (modifier) {
    if (result == 0 && unicode >= 0 && unicode < 256) {
      result = MucUnicodeToCharset(unicode, kCharsetJisRoman);
      if (result < 0) return result;
    }
    if (modifier == kModShiftJis && result) {
      unsigned char hi = static_cast<unsigned char>(result >> 8);
      unsigned char lo = static_cast<unsigned char>(result);
      jis2sjis(&hi, &lo);
      result = hi << 8 | lo;
    }
    return result;
  }
  if (result) return result;
  // Latin-1 values that a charset lacks are written as their own byte.
  return unicode > 0 && unicode < 0x100 ? unicode : 0;
}

int MucCharsetToUnicodeBuf(unsigned short* buffer, int charset) {
  if (charset == kCharsetUnicode || charset == kCharsetLatin1 || !buffer) return 0;
  for (unsigned short* p = buffer; *p; ++p) {
    if (*p == 0xFEFF || *p == 0xFFFE) continue;
    const int unicode = MucCharsetToUnicode(*p, charset);
    if (unicode < 0) return PASSERR(unicode);
    *p = unicode ? static_cast<unsigned short>(unicode) : '?';
  }
  return 0;
}

}  // extern "C"
