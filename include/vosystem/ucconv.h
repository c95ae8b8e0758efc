// Character encodings: the numbers by which the interface names them.
#ifndef VOSYSTEM_UCCONV_H
#define VOSYSTEM_UCCONV_H

#include "vosystem/export.h"

// Identifies a text encoding. Any number of the encoding table is valid; the
// named ones are those the text core handles itself.
enum CHAR_ENCODING : int {
  CHAR_ENCODING_ASCII = 0,  // bytes taken as code points below 256
  CHAR_ENCODING_UTF16 = 1,  // native-order unsigned short units
  CHAR_ENCODING_UTF8 = 2,
  CHAR_ENCODING_UTF8_DECOMPOSED = 5  // UTF-8 with characters held decomposed
};

#endif
