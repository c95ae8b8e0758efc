// What the colour's files share: the C library's "%u" read the same way in
// the serial form and in names.
#ifndef VOSYS_SRC_VALUES_COLOR_PRIV_H
#define VOSYS_SRC_VALUES_COLOR_PRIV_H

#include <cstdint>

// One "%u" at p, as sscanf reads it in the C locale: white space, a sign,
// digits. A number past 32 bits stands at 0xFFFFFFFF, and a minus sign
// negates modulo 2^32, as strtoul does. False, with p unmoved, without a
// digit; else p moves behind the digits.
bool ReadUnsigned(const char*& p, uint32_t* value);

#endif
