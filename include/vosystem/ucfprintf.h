// Formatted text output to a file in any encoding of the registry: a small
// printf with a UTF-16 format and UTF-16 string arguments.
//
// Directives: flags " +-#0", a width and a precision (digits or "*"), the
// lengths "h", "hh", "l", "ll", "L", and the conversions
//   d i o u x X      integers, as printf writes them
//   e E f g G        doubles ("L": long double), always with a "." whatever
//                    the process's locale
//   s                an 8-bit string, its bytes taken as characters below 256
//   S                a UTF-16 string, padded with blanks to the width; null
//                    writes the width in blanks
//   c                one UTF-16 unit
//   %%               a "%"
// Anything else is written as it stands. Text goes out in blocks of up to
// 1000 units (a surrogate pair is never split between two), each converted
// as a whole; what the encoding can't hold becomes what its encoder writes
// for it.
#ifndef VOSYSTEM_UCFPRINTF_H
#define VOSYSTEM_UCFPRINTF_H

#include <cstdarg>

#include "vosystem/export.h"

extern "C" {

// Opens path (fopen's mode) for text in the named encoding (a name not in
// the registry writes ASCII). 0 and *handle, or a negative code.
VOSYS_API int MucFPrintfOpen(const unsigned short* path, const char* mode, const char* encodingName,
                             void** handle);
// Closes the file and frees the handle; null is ignored. 0, or -1134 when
// the last of the text couldn't be written.
VOSYS_API int MucFPrintfClose(void* handle);
VOSYS_API int MucFPrintfFlush(void* handle);
// 0, or -1213 for a null handle or format.
VOSYS_API int MucFPrintfUV(void* handle, const unsigned short* format, va_list args);
VOSYS_API int MucFPrintfU(void* handle, const unsigned short* format, ...);
// The same with an 8-bit format, its bytes taken as characters below 256.
VOSYS_API int MucFPrintfAV(void* handle, const char* format, va_list args);
VOSYS_API int MucFPrintfA(void* handle, const char* format, ...);
}

#endif
