// Lengths of caller's UTF-16 text for the library's own use: in size_t, since
// a text may be longer than an int counts, and read unit by unit, never past
// the terminator (the caller's block may end right behind it).
#ifndef VOSYS_SRC_TEXT_UCSTRING_PRIV_H
#define VOSYS_SRC_TEXT_UCSTRING_PRIV_H

#include <cstddef>

size_t UcLength(const unsigned short* s);

#endif
