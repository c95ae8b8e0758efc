// VOSTRING members that cross into and out of encoded text.
//
// The text core converts the encodings it owns itself: bytes as code points
// below 256, UTF-16, and UTF-8. Every other encoding goes through the encoding
// registry, which this layer stands in for until it is linked in: such
// conversions can't be set up yet, so Assign leaves the string as it was and
// GetEncoded gives null, exactly as for an encoding without a converter.

#include <cstdlib>

#include "foundation/errpos.h"
#include "text/vostring_priv.h"
#include "vosystem/memfunc.h"
#include "vosystem/strutf8.h"
#include "vosystem/ucconv.h"
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

}  // namespace

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
    case CHAR_ENCODING_UTF8: {
      if (!src) {
        Clear();
        return 0;
      }
      // A failed conversion is no failure of the caller's: it leaves no record.
      ERRPOSN_DISABLER quiet;
      unsigned short* units = nullptr;
      int rc = MucConvertUTF8ToUnicode(static_cast<const char*>(src), &units);
      if (rc >= 0) *this = units;
      free(units);
      return rc < 0 ? rc : 0;
    }
    default:
      return VOERROR_InvalidArgument;
  }
}

char* VOSTRING::GetEncoded(CHAR_ENCODING e) const {
  switch (static_cast<int>(e)) {
    case CHAR_ENCODING_ASCII:
      return NarrowToBytes(m_priv->text, m_priv->length);
    case CHAR_ENCODING_UTF16:
      return reinterpret_cast<char*>(ucstrdup(m_priv->text));
    case CHAR_ENCODING_UTF8: {
      char* out = nullptr;
      if (MucConvertUnicodeToUTF8(m_priv->text, &out) < 0) {
        free(out);
        return nullptr;
      }
      return out;
    }
    default:
      return nullptr;
  }
}
