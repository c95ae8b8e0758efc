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

// Puts a file's name into the failure just raised: into the message's "$1"
// (or "%s"), or, where the message has no slot for it, on a line of its own
// after the "File:" text. Nothing while recording is disabled.
void PushErrFileName(const VOSTRING& name);
// Adds the line with the system's own number of the failure (none for 0).
void PushErrSystemCode(long syserr);

#endif
