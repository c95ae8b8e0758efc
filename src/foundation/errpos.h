// Raising failures from inside the library.
//
// Each source file defines its identification text once, before including
// this header:
//   static const char s_ident[] = "@(#) vostring.cpp 1.0";
// (a first word that is skipped, the file name, the revision). Then
//   return SETERR(VOERROR_InvalidArgument);     // start a record here
//   return PASSERR(rc);                         // pass a failure up
#ifndef VOSYS_SRC_FOUNDATION_ERRPOS_H
#define VOSYS_SRC_FOUNDATION_ERRPOS_H

#include "vosystem/errors.h"
#include "vosystem/vostring.h"

#define SETERR(code) _SetErrPosnC((code), s_ident, __LINE__)
#define PASSERR(rc) _SetErrPosn((rc), s_ident, __LINE__)

#endif
