// MucConvertToUnicode: bytes in any readable encoding of the registry to
// UTF-16, by the converter type of the conversion's state.
//
// The result is sized once for the worst case: one unit a byte (a unit for
// UTF-16 input), two for an escape that turns out to be text, and a
// byte-order mark; no decoder grows it. A sequence cut short by the end of
// the text gives "?" and ends it: nothing past the terminator is read.
static const char s_ident[] = "@(#) decode.cpp 1.0";

#include <climits>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "encoding/convdata.h"
#include "encoding/convtables.h"
#include "encoding/decode.h"
#include "foundation/errpos.h"
#include "text/ucstring_priv.h"
#include "vosystem/memfunc.h"
#include "vosystem/ucconv.h"
#include "vosystem/ucdecomp.h"
#include "vosystem/ucstring.h"

namespace {

const unsigned short kBom = 0xFEFF;
const unsigned short kSwappedBom = 0xFFFE;

// The tables of the G sets a decoder uses, fetched on a set's first use
// (so that a charset the text never reaches is never loaded).
class GSETS {
 public:
  explicit GSETS(const CONVDATA* conv) : m_conv(conv) {}
  // The character of a code in G set g, "?" for none; false with *rc set for
  // a charset that can't be converted.
  bool Put(unsigned short*& out, unsigned code, int g, int* rc) {
    if (!m_have[g]) {
      const int got = GetCharsetTables(m_conv->gSet[g], &m_tables[g]);
      if (got < 0) {
        *rc = PASSERR(got);
        return false;
      }
      m_have[g] = true;
    }
    const int unicode = m_tables[g].ToUnicode(code);
    *out++ = unicode ? static_cast<unsigned short>(unicode) : '?';
    return true;
  }

 private:
  const CONVDATA* m_conv;
  CHARSET_TABLES m_tables[4];
  bool m_have[4] = {};
};

// sjis2jis as two lookups, for the loop below that runs it on every
// character: kLeadRow[lead] is the odd JIS row of a lead byte in the high
// byte (0 for a byte that leads nothing), kTrail[trail] the step to the even
// row in the high byte and the cell in the low one. lead row + trail is the
// JIS code, as sjis2jis computes it for every pair of bytes.
struct SJIS_STEPS {
  uint16_t leadRow[256] = {};
  uint16_t trail[256] = {};
  constexpr SJIS_STEPS() {
    for (unsigned b = 0; b < 256; ++b) {
      if ((b >= 0x81 && b <= 0x9F) || (b >= 0xE0 && b <= 0xEF))
        leadRow[b] = static_cast<uint16_t>((b - (b < 160 ? 112 : 176)) * 2 - 1) << 8;
      trail[b] =
          static_cast<uint16_t>(b < 159 ? (b - (b < 128 ? 31 : 32)) & 0xFF : 0x100 | (b - 126));
    }
  }
};
constexpr SJIS_STEPS kSjis;

// Shift-JIS: a double byte is a JIS X 0208 code (JIS X 0212 where 0208 has
// nothing), a single byte JIS-Roman below 0x80 and half-width katakana above.
int DecodeShiftJis(const unsigned char* p, unsigned short*& out) {
  CHARSET_TABLES roman, kana, jis, extra;
  int rc = GetCharsetTables(24, &roman);
  if (rc >= 0) rc = GetCharsetTables(27, &kana);
  if (rc >= 0) rc = GetCharsetTables(11, &jis);
  if (rc < 0) return PASSERR(rc);
  // Plain pointers, so that the stores below (to units, as the tables are)
  // don't make the loop reload them.
  const uint16_t* const romanPage = roman.to[0];
  const uint16_t* const kanaPage = kana.to[0];
  const uint16_t* const* const jisPages = jis.to;
  const uint16_t* const* extraPages = nullptr;
  unsigned short* o = out;
  for (unsigned b; (b = *p) != 0;) {
    const unsigned row = kSjis.leadRow[b];
    unsigned unicode;
    if (row && p[1]) {
      const unsigned code = row + kSjis.trail[p[1]];
      p += 2;
      unicode = jisPages[code >> 8][code & 0xFF];
      if (unicode == 0) {
        if (!extraPages) {
          rc = GetCharsetTables(12, &extra);
          if (rc < 0) return out = o, PASSERR(rc);
          extraPages = extra.to;
        }
        unicode = extraPages[code >> 8][code & 0xFF];
      }
    } else {
      unicode = (b & 0x80 ? kanaPage : romanPage)[b];
      ++p;
    }
    *o++ = static_cast<unsigned short>(unicode ? unicode : '?');
  }
  out = o;
  return 0;
}

int DecodeEuc(const CONVDATA* conv, const unsigned char* p, unsigned short*& out) {
  GSETS sets(conv);
  int rc = 0;
  while (*p) {
    const unsigned b = *p++;
    bool ok;
    if (b >= 0xA1 && b <= 0xFE) {
      if (!*p) return *out++ = '?', 0;
      ok = sets.Put(out, (b & 0x7F) << 8 | (*p++ & 0x7F), 1, &rc);
    } else if (b == 0x8F && *p >= 0xA1 && *p <= 0xFE) {
      if (!p[1]) return *out++ = '?', 0;
      ok = sets.Put(out, (p[0] & 0x7F) << 8 | (p[1] & 0x7F), 3, &rc);
      p += 2;
    } else if (b == 0x8E) {
      if (!*p) return *out++ = '?', 0;
      ok = sets.Put(out, *p++, 2, &rc);
    } else {
      ok = sets.Put(out, b, 0, &rc);
    }
    if (!ok) return rc;
  }
  return 0;
}

int DecodeLeadByte(const CONVDATA* conv, const unsigned char* p, unsigned short*& out) {
  GSETS sets(conv);
  int rc = 0;
  while (*p) {
    const unsigned b = *p++;
    bool ok;
    if (b >= 0x81 && b <= 0xFE) {
      if (!*p) return *out++ = '?', 0;
      ok = sets.Put(out, b << 8 | *p++, 1, &rc);
    } else {
      ok = sets.Put(out, b, 0, &rc);
    }
    if (!ok) return rc;
  }
  return 0;
}

// One byte a character: through the charset's page 0 (or as Latin-1).
int DecodeSingleByte(const CONVDATA* conv, const unsigned char* p, size_t n, unsigned short*& out) {
  CHARSET_TABLES t;
  const int rc = GetCharsetTables(conv->charset, &t);
  if (rc < 0) return PASSERR(rc);
  unsigned short* const o = out;
  if (!t.to) {
    for (size_t i = 0; i < n; ++i) o[i] = p[i];
  } else {
    const uint16_t* const page = t.to[0];  // the identity where the charset has no page 0
    for (size_t i = 0; i < n; ++i) {
      const uint16_t unicode = page[p[i]];
      o[i] = unicode ? unicode : '?';
    }
  }
  out = o + n;
  return 0;
}

// UTF-16 in the byte order a mark last announced; the marks themselves go.
// The text may lie at any address, so units are read with memcpy.
int DecodeUtf16(CONVDATA* conv, const unsigned char* p, unsigned short*& out) {
  unsigned short* const start = out;
  for (;; p += 2) {
    uint16_t unit;
    memcpy(&unit, p, sizeof unit);
    if (unit == 0) break;
    if (unit == kBom || unit == kSwappedBom) {
      conv->swapBytes = unit == kSwappedBom;
      continue;
    }
    *out++ = conv->swapBytes ? static_cast<unsigned short>(unit >> 8 | unit << 8) : unit;
  }
  *out = 0;
  return conv->charset == 0 ? 0 : MucCharsetToUnicodeBuf(start, conv->charset);
}

size_t Utf16Units(const unsigned char* p) {
  size_t n = 0;
  for (uint16_t unit;; p += 2, ++n) {
    memcpy(&unit, p, sizeof unit);
    if (unit == 0) return n;
  }
}

// UTF-8, composed for the decomposed form.
int DecodeUtf8(const char* text, bool recompose, unsigned short** result) {
  unsigned short* units = nullptr;
  int rc = MucConvertUTF8ToUnicode(text, &units);
  if (rc < 0 || !recompose) {
    *result = units;
    return rc < 0 ? PASSERR(rc) : rc;
  }
  unsigned short* composed = MucRecompose(units);
  free(units);
  if (!composed) return PASSERR(VOERROR_OutOfMemory);  // recorded with its size
  *result = composed;
  return static_cast<int>(UcLength(composed));
}

}  // namespace

extern "C" {

// A state-machine failure (a charset that can't be converted) leaves the
// text decoded so far in *result, for the caller to free, as other failures
// don't.
int MucConvertToUnicode(void* conv, const void* text, unsigned short** result) {
  if (!conv || !result) return SETERR(VOERROR_InvalidArgument);
  *result = nullptr;
  CONVDATA* c = static_cast<CONVDATA*>(conv);
  static const unsigned char kEmpty[2] = {0, 0};
  const auto* bytes = text ? static_cast<const unsigned char*>(text) : kEmpty;
  if (c->type == CONVTYPE_Japanese) ApplyJapaneseGuess(c, bytes);
  switch (c->type) {
    case CONVTYPE_Utf8Decomposed:
    case CONVTYPE_Utf8:
      return DecodeUtf8(reinterpret_cast<const char*>(bytes), c->type == CONVTYPE_Utf8Decomposed,
                        result);
    case CONVTYPE_SystemMultiByte:
      return SETERR(VOERROR_InvalidArgument);
    default:
      break;
  }
  const size_t n =
      c->type == CONVTYPE_Utf16 ? Utf16Units(bytes) : strlen(reinterpret_cast<const char*>(bytes));
  // A unit a byte (or a UTF-16 unit) at most, and the mark and terminator;
  // the internal form's readers may write two units for the two bytes of
  // an escape that turns out to be text.
  const bool twoPerByte =
      c->type == CONVTYPE_Jis || c->type == CONVTYPE_Iso2022 || c->type == CONVTYPE_Resfile;
  const size_t units = (twoPerByte ? 2 : 1) * n + 2;
  if (n > (static_cast<size_t>(INT_MAX) - 4) / 4) {
    int rc = SETERR(VOERROR_OutOfMemory);
    GetErrString() << static_cast<unsigned long long>(units) * 2;
    return rc;
  }
  unsigned short* buffer = nullptr;
  int rc = MmAlloc(&buffer, units * 2);
  if (rc < 0) return PASSERR(rc);
  unsigned short* out = buffer;
  if (!(c->flags & 1)) *out++ = kBom;
  switch (c->type) {
    case CONVTYPE_ShiftJis:
      rc = DecodeShiftJis(bytes, out);
      break;
    case CONVTYPE_Euc:
      rc = DecodeEuc(c, bytes, out);
      break;
    case CONVTYPE_LeadByte:
      rc = DecodeLeadByte(c, bytes, out);
      break;
    case CONVTYPE_SingleByte:
      rc = DecodeSingleByte(c, bytes, n, out);
      break;
    case CONVTYPE_Utf16:
      rc = DecodeUtf16(c, bytes, out);
      break;
    case CONVTYPE_Jis:
    case CONVTYPE_Iso2022:
    case CONVTYPE_Resfile: {
      int written = 0;
      rc = DecodeIso2022(c, bytes, out, &written);
      out += written;
      *out = 0;
      *result = buffer;
      return rc < 0 ? rc : static_cast<int>(out - buffer);
    }
    default:
      free(buffer);
      return SETERR(VOERROR_Failed);
  }
  *out = 0;
  if (rc < 0) {
    free(buffer);
    return PASSERR(rc);
  }
  *result = buffer;
  return static_cast<int>(out - buffer);
}

int MucQuickConvToUnicode(int encodingRow, const void* text, unsigned short** result) {
  if (!result) return SETERR(VOERROR_InvalidArgument);
  *result = nullptr;
  if (encodingRow == -1) {
    *result = ucstrdup(static_cast<const unsigned short*>(text));
    return *result ? ucstrlen(*result) : VOERROR_PathUnusable;
  }
  if (encodingRow == 0) {
    const char* bytes = static_cast<const char*>(text);
    if (bytes && strchr(bytes, 0x1B)) return MucConvertISO2022ToUnicode(bytes, result);
    *result = strtoucdup(bytes);
    return *result ? ucstrlen(*result) : VOERROR_PathUnusable;
  }
  CONVDATA conv{};
  conv.encodingRow = encodingRow;
  conv.defaultFlags = 1;
  ResetConversion(&conv);
  return MucConvertToUnicode(&conv, text, result);
}

}  // extern "C"
