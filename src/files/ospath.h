// How names cross into and out of the operating system.
//
// Linux keeps names as the bytes it is given, so paths go to it, and names
// come back from it, as plain UTF-8: the one place that says so. (A system
// that stores names decomposed would name UTF8-decomposed here.) UTF-8 can't
// turn any character of a name into "/" or ".": only those characters
// themselves encode to those bytes.
#ifndef VOSYS_SRC_FILES_OSPATH_H
#define VOSYS_SRC_FILES_OSPATH_H

#include "vosystem/ucconv.h"
#include "vosystem/vostring.h"

constexpr CHAR_ENCODING kOsTextEncoding = CHAR_ENCODING_UTF8;

// A name from the system as text; bytes that aren't UTF-8 give an empty text.
inline VOSTRING OsTextToString(const char* bytes) {
  VOSTRING s;
  s.Assign(bytes, kOsTextEncoding);
  return s;
}

#endif
