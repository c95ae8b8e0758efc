// VOSTRING members that cross into and out of encoded text.
//
// The encodings the text core owns are converted here directly: bytes as
// code points below 256, UTF-16, UTF-8, and UTF-8 held decomposed (the UTF-8
// converters with decomposition or composition in between), which is what
// the registry's converters for them do too. Every other encoding goes
// through the registry, with error recording off: a text that can't be
// converted leaves the string as it was (Assign) or gives null (GetEncoded),
// and no record.

#include <cstdlib>

#include "foundation/errpos.h"
#include "text/vostring_priv.h"
#include "vosystem/memfunc.h"
#include "vosystem/strutf8.h"
#include "vosystem/ucconv.h"
#include "vosystem/ucdecomp.h"
#include "vosystem/ucstring.h"
#include "vosystem/vostring.h"

namespace {

// Code points above 255 have no byte: they become "?", as any unconvertible
// character does.
char* NarrowToBytes(const unsigned short* s, int n) {
  void* block = nullptr;
  if (MmAlloc(&block, static_cast<unsigned long>(n) + 1) < 0) return nullptr;
  char* out = static_cast<char*>(block);
  for (int i = 0; i < n; ++i) out[i] = s[i] <= 0xFF ? static_cast<char>(s[i]) : '?';
  out[n] = 0;
  return out;
}

// UTF-8 text as UTF-16, composed if the encoding holds it decomposed. Null if
// it can't be converted; a failure leaves no record.
unsigned short* DecodeUtf8(const char* src, bool recompose, int* length) {
  ERRPOSN_DISABLER quiet;
  unsigned short* units = nullptr;
  const int n = MucConvertUTF8ToUnicode(src, &units);
  if (n < 0) {
    free(units);
    return nullptr;
  }
  if (!recompose) {
    *length = n;
    return units;
  }
  unsigned short* composed = MucRecompose(units);
  free(units);
  if (composed) *length = static_cast<int>(ucstrlen(composed));
  return composed;
}

char* EncodeUtf8(const unsigned short* text, bool decompose) {
  unsigned short* decomposed = decompose ? MucDecompose(text) : nullptr;
  if (decompose && !decomposed) return nullptr;
  char* out = nullptr;
  int rc = MucConvertUnicodeToUTF8(decompose ? decomposed : text, &out);
  free(decomposed);
  if (rc < 0) {
    free(out);
    return nullptr;
  }
  return out;
}

// A conversion in the encoding, without a byte-order mark; null if it can't
// be set up.
void* OpenConversion(CHAR_ENCODING e) {
  void* conv = nullptr;
  return MucInitConversion(&conv, MucGetName(e), 1) < 0 ? nullptr : conv;
}

char* EncodeThroughRegistry(const unsigned short* text, CHAR_ENCODING e) {
  ERRPOSN_DISABLER quiet;
  void* conv = OpenConversion(e);
  if (!conv) return nullptr;
  char* out = nullptr;
  if (MucConvertFromUnicode(conv, text, &out) < 0) {
    free(out);
    out = nullptr;
  }
  MucStopConversion(conv);
  return out;
}

}  // namespace

int VOSTRING::AssignThroughRegistry(const void* src, CHAR_ENCODING e) {
  ERRPOSN_DISABLER quiet;
  void* conv = OpenConversion(e);
  if (!conv) return VOERROR_Failed;
  unsigned short* units = nullptr;
  int rc = MucConvertToUnicode(conv, src, &units);
  MucStopConversion(conv);
  if (rc >= 0) {
    *this = units;
    rc = 0;
  }
  free(units);
  return rc;
}

VOSTRING::VOSTRING(const STRUTF8& s) : VOSTRING() {
  Assign(static_cast<const char*>(s), CHAR_ENCODING_UTF8);
}

VOSTRING::VOSTRING(const void* src, CHAR_ENCODING e) : VOSTRING() {
  Assign(src, e);
}

VOSTRING& VOSTRING::operator=(const STRUTF8& s) {
  Assign(static_cast<const char*>(s), CHAR_ENCODING_UTF8);
  return *this;
}

int VOSTRING::Assign(const void* src, CHAR_ENCODING e) {
  switch (static_cast<int>(e)) {
    case CHAR_ENCODING_ASCII:
      *this = static_cast<const char*>(src);
      return 0;
    case CHAR_ENCODING_UTF16:
      *this = static_cast<const unsigned short*>(src);
      return 0;
    case CHAR_ENCODING_UTF8:
    case CHAR_ENCODING_UTF8_DECOMPOSED: {
      if (!src) {
        Clear();
        return 0;
      }
      // ASCII text, the common case of names and keys, widens as it stands:
      // it is the same in UTF-8, composed or not.
      const unsigned char* p = static_cast<const unsigned char*>(src);
      while (*p && *p < 0x80) ++p;
      if (!*p) {
        *this = static_cast<const char*>(src);
        return 0;
      }
      int length = 0;
      unsigned short* units =
          DecodeUtf8(static_cast<const char*>(src), e == CHAR_ENCODING_UTF8_DECOMPOSED, &length);
      if (!units) return VOERROR_Failed;
      // The decoded block becomes the string's own: no second copy.
      return TakeText(units, length) || length == 0 ? 0 : VOERROR_Failed;
    }
    default:
      return AssignThroughRegistry(src, e);
  }
}

char* VOSTRING::GetEncoded(CHAR_ENCODING e) const {
  switch (static_cast<int>(e)) {
    case CHAR_ENCODING_ASCII:
      return NarrowToBytes(m_priv->text, m_priv->length);
    case CHAR_ENCODING_UTF16:
      return reinterpret_cast<char*>(ucstrdup(m_priv->text));
    case CHAR_ENCODING_UTF8:
    case CHAR_ENCODING_UTF8_DECOMPOSED:
      return EncodeUtf8(m_priv->text, e == CHAR_ENCODING_UTF8_DECOMPOSED);
    default:
      return EncodeThroughRegistry(m_priv->text, e);
  }
}
