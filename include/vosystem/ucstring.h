// The string.h of null-terminated UTF-16 text (unsigned short units), and the
// two converters between UTF-16 and UTF-8.
//
// Lengths are in code units. Results from malloc are released with free().
// Only the UTF converters know about surrogate pairs. Case folding here is
// ASCII only; the character database does full case mapping.
#ifndef VOSYSTEM_UCSTRING_H
#define VOSYSTEM_UCSTRING_H

#include "vosystem/export.h"

extern "C" {

// Copying, concatenating, narrowing (units above 255 become 127) and widening.
// The n forms stop at the source's terminator (writing one) or after n units
// (writing none); n = 0 does nothing.
VOSYS_API unsigned short* strtouc(unsigned short* dst, const char* src);
VOSYS_API unsigned short* strntouc(unsigned short* dst, const char* src, int n);
VOSYS_API char* uctostr(char* dst, const unsigned short* src);
VOSYS_API char* ucntostr(char* dst, const unsigned short* src, int n);
// Units before the terminator; INT_MAX for a text too long for an int.
VOSYS_API int ucstrlen(const unsigned short* s);
VOSYS_API unsigned short* ucstrcpy(unsigned short* dst, const unsigned short* src);
VOSYS_API unsigned short* ucstrncpy(unsigned short* dst, const unsigned short* src, int n);
VOSYS_API unsigned short* ucstrcat(unsigned short* dst, const unsigned short* src);
VOSYS_API unsigned short* ucstrncat(unsigned short* dst, const unsigned short* src, int n);
VOSYS_API unsigned short* strtouccat(unsigned short* dst, const char* src);

// Comparing: 0, or the difference of the first differing units; when one string
// ends first, the next unit of the longer one (negated if it is the second).
VOSYS_API int ucstrcmp(const unsigned short* a, const unsigned short* b);
VOSYS_API int ucstrncmp(const unsigned short* a, const unsigned short* b, int n);
VOSYS_API int ucstricmp(const unsigned short* a, const unsigned short* b);
VOSYS_API int ucstrnicmp(const unsigned short* a, const unsigned short* b, int n);

// Searching.
VOSYS_API unsigned short* ucstrchr(const unsigned short* s, int c);
VOSYS_API unsigned short* ucstrrchr(const unsigned short* s, int c);
VOSYS_API unsigned short* ucstrstr(const unsigned short* s, const unsigned short* pat);
VOSYS_API int ucstrspn(const unsigned short* s, const unsigned short* set);
VOSYS_API unsigned short* ucstrpbrk(const unsigned short* s, const unsigned short* set);
// The C tokeniser with one static position: not re-entrant.
VOSYS_API unsigned short* ucstrtok(unsigned short* s, const unsigned short* delim);

// Duplicating (free the result; null in, or no memory, gives null).
VOSYS_API unsigned short* ucstrdup(const unsigned short* s);
VOSYS_API char* uctostrdup(const unsigned short* s);
VOSYS_API unsigned short* strtoucdup(const char* s);

// ASCII case change in place; both return their argument.
VOSYS_API unsigned short* ucstrupr(unsigned short* s);
VOSYS_API unsigned short* ucstrlwr(unsigned short* s);
// 8-bit case change through the C locale; these return the terminator's address.
VOSYS_API char* strupr(char* s);
VOSYS_API char* strlwr(char* s);

// Resolves backslash escapes in place: "\" and up to five decimal digits become
// the one unit of that value (narrowed to 16 bits). *removed gets the number of
// units by which the text shrank. Always 0: the rewrite needs no memory.
VOSYS_API int ucConvertSlashes(unsigned short* s, int* removed);

// Result codes of the two stream converters.
enum {
  UTFCONV_OK = 0,              // the source is all converted
  UTFCONV_SOURCE_PARTIAL = 1,  // the source ends inside a multi-byte sequence
  UTFCONV_TARGET_FULL = 2      // the target is full; call again with more room
};

// Stream converters with in/out pointers: on return they stand after the last
// unit read and the last byte (unit) written. No validation: unpaired
// surrogates travel as three-byte sequences; malformed UTF-8 gives a wrong
// value, not an error; values above U+10FFFF become U+FFFD.
VOSYS_API int ConvertUTF16toUTF8(const unsigned short** src, const unsigned short* srcEnd,
                                 unsigned char** dst, const unsigned char* dstEnd);
VOSYS_API int ConvertUTF8toUTF16(const unsigned char** src, const unsigned char* srcEnd,
                                 unsigned short** dst, const unsigned short* dstEnd);

// Whole-string converters into a heap buffer (free it). MucConvertUnicodeToUTF8
// returns the bytes written including the terminator; MucConvertUTF8ToUnicode
// the units written without it. Negative: the allocation failed.
VOSYS_API int MucConvertUnicodeToUTF8(const unsigned short* s, char** out);
VOSYS_API int MucConvertUTF8ToUnicode(const char* s, unsigned short** out);
}

#endif
