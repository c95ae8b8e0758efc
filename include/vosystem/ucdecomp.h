// Decomposition and composition of UTF-16 text through the character
// database: the form in which decomposing file systems hold names.
//
// One level of data: each character's recorded decomposition is taken as
// complete, and marks are not put in canonical order.
#ifndef VOSYSTEM_UCDECOMP_H
#define VOSYSTEM_UCDECOMP_H

#include "vosystem/export.h"

extern "C" {

// A new zero-terminated string in which every character whose recorded
// decomposition has two or more units is replaced by it, canonical and
// compatibility alike (so the ligature U+FB01 becomes "fi"). The units of a
// decomposition are not decomposed again. Free the result; null for null.
VOSYS_API unsigned short* MucDecompose(const unsigned short* text);

// A new zero-terminated string in which each base character and the units
// that follow it are replaced by the character whose canonical decomposition
// they spell, longest match first and repeatedly, so that several marks can
// combine in turn. Compatibility decompositions are not undone. The result is
// never longer than the text. Free the result; null for null.
VOSYS_API unsigned short* MucRecompose(const unsigned short* text);

}  // extern "C"

#endif
