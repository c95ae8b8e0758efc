// Encoding UTF-16 into every writable encoding of the registry, and legacy
// text into and out of the internal ISO-2022 form.
//
// MucConvertUnicodeGen splits text into runs of charsets: for each
// character the charset its block suggests, else the charset that last
// served its kind of text (alphabetic or ideographic), else the first
// charset with an escape whose scripts cover it. Runs are reported through
// two callbacks, in batches of a fixed buffer. A character no charset holds
// becomes "?", as unconvertible characters do everywhere in the library. A
// table that can't be loaded fails the conversion: its code is passed up,
// never written out as bytes.
//
// Outputs grow geometrically (twice the size, at least what is needed and a
// margin), never by a fixed step: long texts cost a logarithmic number of
// reallocations, not a quadratic amount of copying.
static const char s_ident[] = "@(#) encode.cpp 1.0";

#include <algorithm>
#include <atomic>
#include <climits>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <mutex>

#include <emmintrin.h>

#include "encoding/convdata.h"
#include "encoding/convtables.h"
#include "encoding/decode.h"
#include "encoding/encode_priv.h"
#include "foundation/errpos.h"
#include "text/ucstring_priv.h"
#include "vosystem/memfunc.h"
#include "vosystem/ucconv.h"
#include "vosystem/ucdecomp.h"
#include "vosystem/ucstring.h"

namespace {

const int kCharsetLatin1 = 15;
const int kFlushAt = 248;
const char kEscAsciiG0[] = "\x1B(B";

struct MASKROW {
  unsigned low, high;
  uint32_t mask;
};

const MASKROW kCharsetMask[] = {
    {0x011E, 0x011F, 0x100000},   {0x0130, 0x0131, 0x100000}, {0x015E, 0x015F, 0x100000},
    {0x0300, 0x036F, 0x40000000}, {0x0370, 0x03FF, 0x80},     {0x0400, 0x04FF, 0x100},
    {0x0590, 0x05FF, 0x200},      {0x0600, 0x06FF, 0x400},    {0x0E00, 0x0E7F, 0x800},
    {0x2000, 0x27BF, 0x40000000}, {0x3000, 0x303F, 0x10000},  {0x3040, 0x309F, 0x1000},
    {0x30A0, 0x30FF, 0x2000},     {0x3100, 0x312F, 0x4000},   {0x3130, 0x318F, 0x8000},
    {0x3190, 0x33FF, 0x10000},    {0x3400, 0x3D2F, 0x8000},   {0x4E00, 0x9FA5, 0x40},
    {0xAC00, 0xD7AF, 0x8000},     {0xF900, 0xFA2D, 0x40},     {0xFB50, 0xFDFF, 0x400},
    {0xFE70, 0xFEFF, 0x400},      {0xFF00, 0xFFFF, 0x20000},  {0, 0, 0},
};

bool IsTwoByte(int charset) {
  return charset >= 0 && charset < kCharsetRows && (g_charsetInfo[charset].mask & 1);
}

const char* EscapeOf(int charset) {
  return charset >= 0 && charset < kCharsetRows ? g_charsetInfo[charset].escape : nullptr;
}

// The charset the block of c suggests, or wanted unchanged.
int GuessByBlock(unsigned c, int wanted) {
  if (c <= 0x00FF) return 15;
  if (c <= 0x017F) {
    return c == 0x011E || c == 0x011F || c == 0x0130 || c == 0x0131 || c == 0x015E || c == 0x015F
               ? 23
               : 16;
  }
  if (c <= 0x027F) return 17;
  if (c >= 0x0380 && c <= 0x03FF) return 21;
  if (c >= 0x0400 && c <= 0x04FF) return 19;
  if (c >= 0x0580 && c <= 0x05FF) return 22;
  if (c >= 0x0600 && c <= 0x06FF) return 20;
  if (c >= 0x0900 && c <= 0x0D7F) return 71 + static_cast<int>((c - 0x0900) / 0x80);
  if (c >= 0x0E00 && c <= 0x0EFF) return 47;
  return wanted;
}

uint32_t MaskOf(unsigned c) {
  for (const MASKROW* r = kCharsetMask; r->mask; ++r)
    if (c >= r->low && c <= r->high) return r->mask;
  return 0x80000000u;
}

// Geometric growth of a heap byte buffer to hold need bytes.
int Grow(char** buffer, int* capacity, int64_t need) {
  if (need <= *capacity) return 0;
  if (need > INT_MAX) {
    int rc = SETERR(VOERROR_OutOfMemory);
    GetErrString() << static_cast<unsigned long long>(need);
    return rc;
  }
  int64_t size = std::max<int64_t>(need, 2 * static_cast<int64_t>(*capacity));
  if (size > INT_MAX) size = INT_MAX;
  int rc = MmRealloc(buffer, static_cast<unsigned long>(size));
  if (rc < 0) return PASSERR(rc);
  *capacity = static_cast<int>(size);
  return 0;
}

// The buffer of a direct encoder, with its length and capacity. It starts at
// a byte a unit, which single-byte text fills exactly, and grows
// geometrically for text of more bytes.
struct OUTPUT {
  char* buffer = nullptr;
  int length = 0;
  int capacity = 0;
  int rc = 0;  // the first failure

  // Room for n more bytes and the terminator; null with rc set on failure.
  char* Room(int n) {
    if (static_cast<int64_t>(length) + n + 1 > capacity) {
      rc = Grow(&buffer, &capacity, static_cast<int64_t>(length) + n + 1);
      if (rc < 0) return nullptr;
    }
    return buffer + length;
  }
  void Put(const char* bytes, int count) {
    if (rc < 0) return;
    if (count < 0) count = static_cast<int>(strlen(bytes));
    if (char* at = Room(count)) {
      memcpy(at, bytes, static_cast<size_t>(count));
      length += count;
    }
  }
  void Byte(unsigned b) {
    if (char* at = Room(1)) {
      *at = static_cast<char>(b);
      ++length;
    }
  }
  void Two(unsigned hi, unsigned lo) {
    if (char* at = Room(2)) {
      at[0] = static_cast<char>(hi);
      at[1] = static_cast<char>(lo);
      length += 2;
    }
  }
  // Hands the text over with its terminator, or frees it on a failure.
  int Finish(char** result) {
    if (rc < 0 || !buffer) {
      free(buffer);
      return rc < 0 ? rc : SETERR(VOERROR_InvalidArgument);
    }
    buffer[length] = 0;
    *result = buffer;
    return length;
  }
};

size_t UnitsOf(const unsigned short* text, int length) {
  return length > 0 ? static_cast<size_t>(length) : UcLength(text);
}

// Room for bytesPerUnit bytes a unit and the terminator: one for one-byte
// encodings, exact; two for the double-byte ones, exact for text of their
// ideographs and no more than twice too much for Latin text, where growing
// instead would copy the text again.
bool StartOutput(OUTPUT& out, size_t units, size_t bytesPerUnit = 1) {
  if (units > (static_cast<size_t>(INT_MAX) - 1) / bytesPerUnit) {
    out.rc = SETERR(VOERROR_OutOfMemory);
    GetErrString() << static_cast<unsigned long long>(units) * bytesPerUnit + 1;
    return false;
  }
  out.capacity = static_cast<int>(units * bytesPerUnit) + 1;
  out.rc = MmAlloc(&out.buffer, static_cast<unsigned long>(out.capacity));
  if (out.rc < 0) out.capacity = 0;
  return out.rc >= 0;
}

// The tables of the charsets an encoder uses, fetched on first use; false
// with out.rc set when a table can't be had.
class CHARSETS {
 public:
  const CHARSET_TABLES* Get(OUTPUT& out, int charset) {
    for (int i = 0; i < m_count; ++i)
      if (m_charset[i] == charset) return &m_tables[i];
    if (m_count == 4) m_count = 0;  // never more than four sets in one encoder
    const int rc = GetCharsetTables(charset, &m_tables[m_count]);
    if (rc < 0) {
      out.rc = PASSERR(rc);
      return nullptr;
    }
    m_charset[m_count] = charset;
    return &m_tables[m_count++];
  }

 private:
  CHARSET_TABLES m_tables[4];
  int m_charset[4] = {};
  int m_count = 0;
};

int Utf8Of(const unsigned short* text, bool decompose, char** result) {
  unsigned short* decomposed = nullptr;
  if (decompose) {
    decomposed = MucDecompose(text);
    if (!decomposed) return PASSERR(VOERROR_OutOfMemory);  // recorded with its size
    text = decomposed;
  }
  char* out = nullptr;
  int rc = MucConvertUnicodeToUTF8(text, &out);
  if (rc < 0) {
    // The conversion leaves the record alone: its size is counted here.
    unsigned long long bytes = 1;
    for (const unsigned short* u = text; *u; ++u)
      bytes += *u < 0x80 ? 1 : *u < 0x800 || (*u & 0xF800) == 0xD800 ? 2 : 3;
    free(decomposed);
    rc = SETERR(VOERROR_OutOfMemory);
    GetErrString() << bytes;
    return rc;
  }
  free(decomposed);
  *result = out;
  return rc - 1;  // without the terminator
}

char* DupBytes(const char* text) {
  const size_t n = strlen(text) + 1;
  char* copy = static_cast<char*>(malloc(n));
  if (copy) memcpy(copy, text, n);
  return copy;
}

int DupResult(const char* text, char** result) {
  char* copy = DupBytes(text ? text : "");
  if (!copy) {
    int rc = SETERR(VOERROR_OutOfMemory);
    GetErrString() << static_cast<unsigned long long>(strlen(text ? text : "") + 1);
    return rc;
  }
  *result = copy;
  return static_cast<int>(strlen(copy));
}

// A temporary state for decoding the internal form.
CONVDATA Iso2022Reader(int flags) {
  CONVDATA conv{};
  conv.encodingRow = 9;
  conv.defaultFlags = flags;
  ResetConversion(&conv);
  return conv;
}

}  // namespace

// ---------------------------------------------------------------- the internal-form writer

int MyAddCharFunc(const char* bytes, int count, void* record) {
  ISO2022WRITER* w = static_cast<ISO2022WRITER*>(record);
  int rc = Grow(&w->buffer, &w->capacity, static_cast<int64_t>(w->length) + count + 10);
  if (rc < 0) return rc;
  memcpy(w->buffer + w->length, bytes, static_cast<size_t>(count));
  w->length += count;
  return w->length;
}

// A charset without an escape can't be announced: the one in force stays
// (so Indic text stays under it). Leaving a two-byte set for a one-byte set
// whose escape doesn't take G0 back first writes ESC ( B.
int MyNewCharsetFunc(int newCharset, int oldCharset, void* record) {
  ISO2022WRITER* w = static_cast<ISO2022WRITER*>(record);
  const char* escape = EscapeOf(newCharset);
  if (!escape) return oldCharset;
  const bool twoByte = IsTwoByte(newCharset);
  if (w->lastWasTwoByte && !twoByte && !strstr(escape, kEscAsciiG0)) {
    int rc = MyAddCharFunc(kEscAsciiG0, 3, record);
    if (rc < 0) return rc;
  }
  w->lastWasTwoByte = twoByte;
  int rc = MyAddCharFunc(escape, static_cast<int>(strlen(escape)), record);
  return rc < 0 ? rc : newCharset;
}

extern "C" {

int InsertChars(char** buffer, int* length, int* capacity, const void* bytes, int count) {
  if (!bytes) return *length;
  if (count < 0) count = static_cast<int>(strlen(static_cast<const char*>(bytes)));
  int rc = Grow(buffer, capacity, static_cast<int64_t>(*length) + count + 128);
  if (rc < 0) return rc;
  memcpy(*buffer + *length, bytes, static_cast<size_t>(count));
  *length += count;
  return *length;
}

int InsertCharsetEscape(char** buffer, int* length, int* capacity, int charset) {
  const char* escape = EscapeOf(charset);
  if (!escape) escape = g_charsetInfo[kCharsetLatin1].escape;
  int rc = InsertChars(buffer, length, capacity, escape, -1);
  return rc < 0 ? rc : charset;
}

int MucConvertUnicodeGen(const unsigned short* text, MUCNEWCHARSET newCharset, MUCADDCHARS addChars,
                         void* userData, int options) {
  if (!text || !newCharset || !addChars) return SETERR(VOERROR_InvalidArgument);
  int last[2] = {kCharsetLatin1, 11};
  MucGetDefaultCharsets(&last[0], nullptr, &last[1]);
  int wanted = kCharsetLatin1, current = kCharsetLatin1;
  bool swap = false;
  char pending[256];
  int waiting = 0;
  auto flush = [&]() {
    int rc = waiting ? addChars(pending, waiting, userData) : 0;
    waiting = 0;
    return rc;
  };
  for (const unsigned short* p = text; *p; ++p) {
    unsigned c = *p;
    if (c == 0xFEFF) continue;
    if (c == 0xFFFE) {
      swap = true;
      continue;
    }
    if (swap) c = (c >> 8 | c << 8) & 0xFFFF;
    wanted = GuessByBlock(c, wanted);
    int code;
    if (c < 0x100) {
      code = static_cast<int>(c);
      wanted = kCharsetLatin1;
    } else {
      code = MucUnicodeToCharset(static_cast<int>(c), wanted);
      if (code < 0) return PASSERR(code);
    }
    if (code == 0) {
      const int slot = (c >= 0x4E00 && c <= 0x9FA5) || (c >= 0xF900 && c <= 0xFA2D) ? 1 : 0;
      if (last[slot] != wanted && EscapeOf(last[slot])) {
        code = MucUnicodeToCharset(static_cast<int>(c), last[slot]);
        if (code < 0) return PASSERR(code);
        if (code) wanted = last[slot];
      }
      if (code == 0) {
        const uint32_t mask = slot == 1 ? 0x40 : MaskOf(c);
        for (int cs = 1; cs < kCharsetRows && g_charsetInfo[cs].name; ++cs) {
          if (!g_charsetInfo[cs].escape || !(g_charsetInfo[cs].mask & mask)) continue;
          code = MucUnicodeToCharset(static_cast<int>(c), cs);
          if (code < 0) return PASSERR(code);
          if (code) {
            wanted = cs;
            break;
          }
        }
      }
      if (code) {
        last[slot] = wanted;
      } else {
        wanted = kCharsetLatin1;
        code = '?';  // held by no charset
      }
    }
    const bool twoByte = IsTwoByte(wanted);
    if (wanted != current) {
      int rc = flush();
      if (rc < 0) return PASSERR(rc);
      rc = newCharset(wanted, current, userData);
      if (rc < 0) return PASSERR(rc);
      if (rc > 0) wanted = rc;
      current = wanted;
    }
    const unsigned char hi = static_cast<unsigned char>(code >> 8);
    const unsigned char lo = static_cast<unsigned char>(code);
    if (twoByte) {
      pending[waiting++] = static_cast<char>(hi);
      if ((options & 1) && hi == '\\') pending[waiting++] = '\\';
      pending[waiting++] = static_cast<char>(lo);
      if ((options & 1) && lo == '\\') pending[waiting++] = '\\';
    } else {
      pending[waiting++] = static_cast<char>(lo);
    }
    if (waiting >= kFlushAt) {
      int rc = flush();
      if (rc < 0) return PASSERR(rc);
    }
  }
  int rc = flush();
  if (rc < 0) return PASSERR(rc);
  if (current != kCharsetLatin1) {
    rc = newCharset(kCharsetLatin1, current, userData);
    if (rc < 0) return PASSERR(rc);
  }
  return 0;
}

static int UnicodeToIso2022(const unsigned short* text, char** result, int options) {
  if (!text || !result) return SETERR(VOERROR_InvalidArgument);
  *result = nullptr;
  const size_t n = UcLength(text);
  if (n > static_cast<size_t>(INT_MAX) / 2) {
    int rc = SETERR(VOERROR_OutOfMemory);
    GetErrString() << static_cast<unsigned long long>(n);
    return rc;
  }
  ISO2022WRITER w{0, static_cast<int>(n + n / 20 + 20), nullptr, 0};
  int rc = MmAllocC(&w.buffer, static_cast<unsigned long>(w.capacity));
  if (rc < 0) return PASSERR(rc);
  rc = MucConvertUnicodeGen(text, MyNewCharsetFunc, MyAddCharFunc, &w, options);
  if (rc >= 0) rc = MyAddCharFunc("", 1, &w);
  if (rc < 0) {
    free(w.buffer);
    return PASSERR(rc);
  }
  *result = w.buffer;
  return w.length - 1;
}

int MucConvertUnicodeToISO2022(const unsigned short* text, char** result) {
  return UnicodeToIso2022(text, result, 0);
}

int MucConvertUnicodeToISO2022a(const unsigned short* text, char** result) {
  return UnicodeToIso2022(text, result, 1);
}

// ---------------------------------------------------------------- direct encoders

// jis2sjis as two lookups, for the loop below that runs it on every
// character: lead[hi] is the Shift-JIS lead byte of a JIS row, trail[odd
// row * 128 + cell] the trail byte of a cell.
struct SJIS_STEPS {
  uint8_t lead[128] = {};
  uint8_t trail[256] = {};
  constexpr SJIS_STEPS() {
    for (unsigned h = 0; h < 128; ++h)
      lead[h] = static_cast<uint8_t>((h + 1) / 2 + (h < 95 ? 112 : 176));
    for (unsigned l = 0; l < 128; ++l) {
      trail[l] = static_cast<uint8_t>(l + 126);
      trail[128 + l] = static_cast<uint8_t>(l + (l < 96 ? 31 : 32));
    }
  }
};
constexpr SJIS_STEPS kSjis;

// What the Shift-JIS encoder writes for each unit, in one table built once
// per process from JIS-Roman and JIS X 0208: a byte below 0x100, a lead and
// trail byte above, 0 for "?". Pages of nothing share one page of zeros.
const uint16_t kNoPage[256] = {};
std::atomic<const uint16_t* const*> g_sjisPages{nullptr};
std::mutex g_sjisLock;

const uint16_t* const* SjisPages(OUTPUT& out, CHARSETS& sets) {
  if (const uint16_t* const* pages = g_sjisPages.load(std::memory_order_acquire)) return pages;
  std::lock_guard<std::mutex> lock(g_sjisLock);
  if (const uint16_t* const* pages = g_sjisPages.load(std::memory_order_relaxed)) return pages;
  const CHARSET_TABLES* roman = sets.Get(out, 24);
  const CHARSET_TABLES* jis = roman ? sets.Get(out, 11) : nullptr;
  if (!jis) return nullptr;
  const uint16_t** pages = nullptr;
  if ((out.rc = MmAlloc(&pages, 256 * sizeof *pages)) < 0) return nullptr;
  for (unsigned hi = 0; hi < 256; ++hi) {
    uint16_t page[256];
    bool any = false;
    for (unsigned lo = 0; lo < 256; ++lo) {
      const unsigned c = hi << 8 | lo, one = roman->FromUnicode(c), two = jis->FromUnicode(c);
      const unsigned h = two >> 8 & 0x7F, l = two & 0x7F;
      page[lo] = static_cast<uint16_t>(one   ? one
                                       : two ? kSjis.lead[h] << 8 | kSjis.trail[(h & 1) << 7 | l]
                                             : 0);
      any |= page[lo] != 0;
    }
    pages[hi] = kNoPage;
    if (!any) continue;
    uint16_t* copy = nullptr;
    if ((out.rc = MmAlloc(&copy, sizeof page)) < 0) {
      for (unsigned k = 0; k < hi; ++k)
        if (pages[k] != kNoPage) free(const_cast<uint16_t*>(pages[k]));
      free(pages);
      return nullptr;
    }
    memcpy(copy, page, sizeof page);
    pages[hi] = copy;
  }
  g_sjisPages.store(pages, std::memory_order_release);
  return pages;
}

// One byte where JIS-Roman (with the Latin-1 pass-through) has the
// character, else two of JIS X 0208 in Shift-JIS form. No unit gives more
// than two bytes, so the output, sized for that, never grows.
int MucConvertUnicodeToSJIS(void*, const unsigned short* text, char** result, int length) {
  if (!text || !result) return SETERR(VOERROR_InvalidArgument);
  *result = nullptr;
  const size_t n = UnitsOf(text, length);
  OUTPUT out;
  CHARSETS sets;
  if (!StartOutput(out, n, 2)) return out.rc;
  const CHARSET_TABLES* roman = sets.Get(out, 24);
  if (!roman) return out.Finish(result);
  // Plain pointers, so that the stores below don't make the loop reload them.
  const uint16_t* const* const romanPages = roman->fromEncoder;
  char* o = out.buffer;
  size_t i = 0;
  // Until the first character JIS-Roman lacks, JIS X 0208 needn't be loaded.
  for (; i < n; ++i) {
    const unsigned c = text[i];
    const unsigned code = romanPages[c >> 8][c & 0xFF];
    if (!code) break;
    *o++ = static_cast<char>(code);
  }
  if (i < n) {
    const uint16_t* const* const pages = SjisPages(out, sets);
    if (!pages) return out.Finish(result);
    // One lookup a unit and no branch: one byte, two or "?" are chosen by
    // conditional moves, since running text mixes them too irregularly to
    // predict. The second byte is always written, the buffer having room for
    // two a unit.
    for (; i < n; ++i) {
      const unsigned c = text[i];
      const unsigned v = pages[c >> 8][c & 0xFF];
      const unsigned lead = v >> 8;
      o[0] = static_cast<char>(lead ? lead : v ? v : '?');
      o[1] = static_cast<char>(v);
      o += lead ? 2 : 1;
    }
  }
  out.length = static_cast<int>(o - out.buffer);
  return out.Finish(result);
}

// G0 for ASCII, then the two-byte G1, SS2 with G2, SS3 with G3. After G0 a
// step counts only what its table holds: the Latin-1 pass-through would
// make a one-byte value of a two-byte set, so a Latin-1 letter that JIS X
// 0208 lacks goes on to JIS X 0212, as EUC-JP has it.
int MucConvertUnicodeToEUC(void* conv, const unsigned short* text, char** result, int length) {
  if (!conv || !text || !result) return SETERR(VOERROR_InvalidArgument);
  *result = nullptr;
  const CONVDATA* c = static_cast<const CONVDATA*>(conv);
  const size_t n = UnitsOf(text, length);
  OUTPUT out;
  CHARSETS sets;
  if (!StartOutput(out, n, 2)) return out.rc;
  const CHARSET_TABLES* g[4] = {};  // each fetched on its first use
  auto set = [&](int i) {
    if (!g[i]) g[i] = sets.Get(out, c->gSet[i]);
    return g[i];
  };
  for (size_t i = 0; i < n && out.rc >= 0; ++i) {
    const unsigned u = text[i];
    if (u <= 0x20) {
      out.Byte(u);
      continue;
    }
    if (!set(0)) break;
    int code = g[0]->FromUnicode(u);
    if (code && code <= 0x7F) {
      out.Byte(static_cast<unsigned>(code));
      continue;
    }
    if (c->gSet[1]) {
      if (!set(1)) break;
      if ((code = g[1]->FromTable(u))) {
        out.Two((code >> 8) | 0x80, (code & 0xFF) | 0x80);
        continue;
      }
    }
    if (c->gSet[2]) {
      if (!set(2)) break;
      if ((code = g[2]->FromTable(u))) {
        out.Two(0x8E, code & 0x7F);
        continue;
      }
    }
    if (c->gSet[3]) {
      if (!set(3)) break;
      if ((code = g[3]->FromTable(u))) {
        if (char* at = out.Room(3)) {
          at[0] = '\x8F';
          at[1] = static_cast<char>((code >> 8) | 0x80);
          at[2] = static_cast<char>(code | 0x80);
          out.length += 3;
        }
        continue;
      }
    }
    out.Byte('?');
  }
  return out.Finish(result);
}

int MucConvertUnicodeToBig5(void* conv, const unsigned short* text, char** result, int length) {
  if (!conv || !text || !result) return SETERR(VOERROR_InvalidArgument);
  *result = nullptr;
  const CONVDATA* c = static_cast<const CONVDATA*>(conv);
  const size_t n = UnitsOf(text, length);
  OUTPUT out;
  CHARSETS sets;
  if (!StartOutput(out, n, 2)) return out.rc;
  const CHARSET_TABLES* one = sets.Get(out, c->gSet[0]);
  const CHARSET_TABLES* two = nullptr;
  for (size_t i = 0; one && i < n && out.rc >= 0; ++i) {
    const unsigned u = text[i];
    int code = one->FromUnicode(u);
    if (code) {
      out.Byte(static_cast<unsigned>(code));
      continue;
    }
    if (!two && !(two = sets.Get(out, c->gSet[1]))) break;
    code = two->FromUnicode(u);
    if (code) {
      out.Two(static_cast<unsigned>(code) >> 8, static_cast<unsigned>(code) & 0xFF);
    } else {
      out.Byte('?');
    }
  }
  return out.Finish(result);
}

// One byte a unit through one table: the result is sized exactly.
int MucConvertUnicodeTo8Bit(void* conv, const unsigned short* text, char** result, int length) {
  if (!conv || !text || !result) return SETERR(VOERROR_InvalidArgument);
  *result = nullptr;
  CONVDATA* c = static_cast<CONVDATA*>(conv);
  c->charset = c->gSet[0];
  const size_t n = UnitsOf(text, length);
  OUTPUT out;
  CHARSETS sets;
  if (!StartOutput(out, n)) return out.rc;
  const CHARSET_TABLES* t = sets.Get(out, c->charset);
  if (!t) return out.Finish(result);
  char* const at = out.buffer;
  out.length = static_cast<int>(n);
  if (!t->from) {  // Unicode: the low byte
    for (size_t i = 0; i < n; ++i) at[i] = static_cast<char>(text[i] ? text[i] : '?');
    return out.Finish(result);
  }
  const uint16_t* const* const pages = t->fromEncoder;
  // Four lookups at a time, independent of each other.
  auto lookUp = [&](size_t i, size_t end) {
    for (; i + 4 <= end; i += 4) {
      const unsigned c0 = text[i], c1 = text[i + 1], c2 = text[i + 2], c3 = text[i + 3];
      const unsigned v0 = pages[c0 >> 8][c0 & 0xFF], v1 = pages[c1 >> 8][c1 & 0xFF];
      const unsigned v2 = pages[c2 >> 8][c2 & 0xFF], v3 = pages[c3 >> 8][c3 & 0xFF];
      at[i] = static_cast<char>(v0 ? v0 : '?');
      at[i + 1] = static_cast<char>(v1 ? v1 : '?');
      at[i + 2] = static_cast<char>(v2 ? v2 : '?');
      at[i + 3] = static_cast<char>(v3 ? v3 : '?');
    }
    for (; i < end; ++i) {
      const unsigned v = pages[text[i] >> 8][text[i] & 0xFF];
      at[i] = static_cast<char>(v ? v : '?');
    }
  };
  size_t i = 0;
  if (const unsigned bound = t->encoderSameBelow) {
    // Sixteen units at a time where all of them are their own bytes: each
    // between 1 and the bound (unit - 1 at most bound - 2, unsigned).
    const __m128i one = _mm_set1_epi16(1);
    const __m128i top = _mm_set1_epi16(static_cast<short>(bound - 2));
    const __m128i zero = _mm_setzero_si128();
    for (; i + 16 <= n; i += 16) {
      const __m128i a = _mm_loadu_si128(reinterpret_cast<const __m128i*>(text + i));
      const __m128i b = _mm_loadu_si128(reinterpret_cast<const __m128i*>(text + i + 8));
      const __m128i over = _mm_or_si128(_mm_subs_epu16(_mm_sub_epi16(a, one), top),
                                        _mm_subs_epu16(_mm_sub_epi16(b, one), top));
      if (_mm_movemask_epi8(_mm_cmpeq_epi8(over, zero)) == 0xFFFF)
        _mm_storeu_si128(reinterpret_cast<__m128i*>(at + i), _mm_packus_epi16(a, b));
      else
        lookUp(i, i + 16);
    }
  }
  lookUp(i, n);
  return out.Finish(result);
}

// ---------------------------------------------------------------- by converter type

int MucConvertFromUnicode(void* conv, const unsigned short* text, char** result) {
  if (!conv || !text || !result) return SETERR(VOERROR_InvalidArgument);
  *result = nullptr;
  CONVDATA* c = static_cast<CONVDATA*>(conv);
  switch (c->type) {
    case CONVTYPE_ShiftJis:
      return MucConvertUnicodeToSJIS(conv, text, result, 0);
    case CONVTYPE_Euc:
      return MucConvertUnicodeToEUC(conv, text, result, 0);
    case CONVTYPE_SingleByte:
      return MucConvertUnicodeTo8Bit(conv, text, result, 0);
    case CONVTYPE_Utf16: {
      unsigned short* copy = ucstrdup(text);
      if (!copy) {
        const int rc = SETERR(VOERROR_OutOfMemory);
        GetErrString() << (static_cast<unsigned long long>(ucstrlen(text)) + 1) *
                              sizeof(unsigned short);
        return rc;
      }
      *result = reinterpret_cast<char*>(copy);
      return ucstrlen(copy);
    }
    case CONVTYPE_Iso2022:
      return MucConvertUnicodeToISO2022(text, result);
    case CONVTYPE_LeadByte:
      return MucConvertUnicodeToBig5(conv, text, result, 0);
    case CONVTYPE_Utf8:
      return Utf8Of(text, false, result);
    case CONVTYPE_Resfile:
      return MucConvertUnicodeToISO2022a(text, result);
    case CONVTYPE_Utf8Decomposed:
      return Utf8Of(text, true, result);
    case CONVTYPE_SystemMultiByte:
      return SETERR(VOERROR_InvalidArgument);
    default: {  // JIS and the Japanese guess: through the internal form
      char* internal = nullptr;
      int rc = MucConvertUnicodeToISO2022(text, &internal);
      if (rc < 0) return PASSERR(rc);
      rc = MucConvertFromISO2022(conv, internal, result);
      free(internal);
      return rc;
    }
  }
}

int MucConvertFromISO2022(void* conv, const char* text, char** result) {
  if (!conv || !text || !result) return SETERR(VOERROR_InvalidArgument);
  *result = nullptr;
  CONVDATA* c = static_cast<CONVDATA*>(conv);
  if (c->type == CONVTYPE_Japanese)
    ApplyJapaneseGuess(c, reinterpret_cast<const unsigned char*>(text));
  if (c->type == CONVTYPE_Iso2022 || c->type == CONVTYPE_Jis) return DupResult(text, result);
  if (c->type == CONVTYPE_SystemMultiByte || c->type < 1 || c->type > 11 ||
      c->type == CONVTYPE_Japanese)
    return SETERR(VOERROR_InvalidArgument);
  CONVDATA reader = Iso2022Reader(c->type == CONVTYPE_Utf16 ? c->flags : 1);
  unsigned short* units = nullptr;
  int n = MucConvertToUnicode(&reader, text, &units);
  if (n < 0) {
    free(units);
    return PASSERR(n);
  }
  int rc;
  switch (c->type) {
    case CONVTYPE_ShiftJis:
      rc = MucConvertUnicodeToSJIS(conv, units, result, n);
      break;
    case CONVTYPE_Euc:
      rc = MucConvertUnicodeToEUC(conv, units, result, n);
      break;
    case CONVTYPE_SingleByte:
      rc = MucConvertUnicodeTo8Bit(conv, units, result, n);
      break;
    case CONVTYPE_LeadByte:
      rc = MucConvertUnicodeToBig5(conv, units, result, n);
      break;
    case CONVTYPE_Utf16:
      *result = reinterpret_cast<char*>(units);
      return n * 2;
    case CONVTYPE_Utf8:
      rc = Utf8Of(units, false, result);
      break;
    case CONVTYPE_Resfile:
      rc = MucConvertUnicodeToISO2022a(units, result);
      break;
    default:  // decomposed UTF-8
      rc = Utf8Of(units, true, result);
      break;
  }
  free(units);
  return rc;
}

int MucConvertToISO2022(void* conv, const void* text, char** result) {
  if (!conv || !text || !result) return SETERR(VOERROR_InvalidArgument);
  *result = nullptr;
  CONVDATA* c = static_cast<CONVDATA*>(conv);
  const auto* p = static_cast<const unsigned char*>(text);
  switch (c->type) {
    case CONVTYPE_Jis:
    case CONVTYPE_Iso2022:
      return DupResult(static_cast<const char*>(text), result);
    case CONVTYPE_Utf16:
      if (c->charset != 0) return DupResult("", result);
      return MucConvertUnicodeToISO2022(static_cast<const unsigned short*>(text), result);
    case CONVTYPE_Utf8:
    case CONVTYPE_Utf8Decomposed: {
      unsigned short* units = nullptr;
      int rc = MucConvertUTF8ToUnicode(static_cast<const char*>(text), &units);
      if (rc < 0) return PASSERR(rc);
      if (c->type == CONVTYPE_Utf8Decomposed) {
        unsigned short* composed = MucRecompose(units);
        free(units);
        if (!composed) return PASSERR(VOERROR_OutOfMemory);  // recorded with its size
        units = composed;
      }
      rc = MucConvertUnicodeToISO2022(units, result);
      free(units);
      return rc;
    }
    case CONVTYPE_SingleByte: {
      if (c->charset == kCharsetLatin1) return DupResult(static_cast<const char*>(text), result);
      if (const char* escape = EscapeOf(c->charset)) {
        OUTPUT out;
        if (!StartOutput(out, strlen(escape) + strlen(static_cast<const char*>(text))))
          return out.rc;
        out.Put(escape, -1);
        out.Put(static_cast<const char*>(text), -1);
        return out.Finish(result);
      }
      unsigned short* units = strtoucdup(static_cast<const char*>(text));
      if (!units) {
        const int rc = SETERR(VOERROR_OutOfMemory);
        GetErrString() << (static_cast<unsigned long long>(strlen(static_cast<const char*>(text))) +
                           1) *
                              sizeof(unsigned short);
        return rc;
      }
      int rc = MucCharsetToUnicodeBuf(units, c->charset);
      if (rc >= 0) rc = MucConvertUnicodeToISO2022(units, result);
      free(units);
      return rc < 0 ? PASSERR(rc) : rc;
    }
    case CONVTYPE_ShiftJis:
    case CONVTYPE_Euc:
    case CONVTYPE_LeadByte: {
      OUTPUT out;
      if (!StartOutput(out, strlen(static_cast<const char*>(text)))) return out.rc;
      int current = kCharsetLatin1;
      auto under = [&](int charset) {
        if (charset != current && out.rc >= 0) {
          int rc = InsertCharsetEscape(&out.buffer, &out.length, &out.capacity, charset);
          if (rc < 0) out.rc = rc;
          current = charset;
        }
      };
      while (*p && out.rc >= 0) {
        const unsigned b = *p++;
        if (c->type == CONVTYPE_ShiftJis) {
          if (((b >= 0x81 && b <= 0x9F) || (b >= 0xE0 && b <= 0xEF)) && *p) {
            unsigned char hi = static_cast<unsigned char>(b), lo = *p++;
            sjis2jis(&hi, &lo);
            under(11);
            out.Byte(hi);
            out.Byte(lo);
          } else {
            under(b & 0x80 ? 27 : 24);
            out.Byte(b);
          }
        } else if (c->type == CONVTYPE_Euc) {
          if (b >= 0xA1 && b <= 0xFE && *p) {
            under(c->gSet[1]);
            out.Byte(b & 0x7F);
            out.Byte(*p++ & 0x7F);
          } else if (b == 0x8F && p[0] >= 0xA1 && p[0] <= 0xFE && p[1]) {
            under(c->gSet[3]);
            out.Byte(p[0] & 0x7F);
            out.Byte(p[1] & 0x7F);
            p += 2;
          } else if (b == 0x8E && *p) {
            under(c->gSet[2]);
            out.Byte(*p++);
          } else {
            under(c->gSet[0]);
            out.Byte(b);
          }
        } else if (b >= 0xA1 && b <= 0xFE && *p) {  // lead-byte sets
          under(c->gSet[1]);
          out.Byte(b);
          out.Byte(*p++);
        } else {
          under(c->gSet[0]);
          out.Byte(b);
        }
      }
      return out.Finish(result);
    }
    case CONVTYPE_Resfile: {
      // Backslashes stand doubled inside two-byte text: one is written.
      OUTPUT out;
      if (!StartOutput(out, strlen(static_cast<const char*>(text)))) return out.rc;
      bool twoByte = false;
      while (*p && out.rc >= 0) {
        const unsigned b = *p++;
        if (b == 0x1B && *p == '$') twoByte = true;
        if (b == 0x1B && *p >= 0x28 && *p <= 0x2F) twoByte = false;
        out.Byte(b);
        if (twoByte && b == '\\' && *p == '\\') ++p;
      }
      return out.Finish(result);
    }
    default:
      return DupResult("", result);
  }
}

int MucQuickConvToISO2022(int encodingRow, const void* text, char** result) {
  if (!result) return SETERR(VOERROR_InvalidArgument);
  *result = nullptr;
  if (encodingRow == -1)
    return MucConvertUnicodeToISO2022(static_cast<const unsigned short*>(text), result);
  if (encodingRow == 0) {
    *result = text ? DupBytes(static_cast<const char*>(text)) : nullptr;
    return *result ? static_cast<int>(strlen(*result)) : VOERROR_PathUnusable;
  }
  CONVDATA conv{};
  conv.encodingRow = encodingRow;
  ResetConversion(&conv);
  return MucConvertToISO2022(&conv, text, result);
}

}  // extern "C"
