// Umbrella header: every public header of the library.
//
// Threads. The library takes no lock. One object belongs to one thread at a
// time: a VOSTRING or STRUTF8 handle and the handles that share its body (its
// copies) must not be used from two threads at once, nor may any container,
// stream or document. Separate objects may be used from separate threads.
//
// What threads share without seeing it is safe to share:
//   - the empty body of every default-constructed VOSTRING (and the empty
//     text of STRUTF8), which is never counted, changed or freed;
//   - the process-wide tables loaded on first use (the character database,
//     the words for yes and no, the colour names of "rgb.txt"): the first
//     use from several threads at once
//     loads once, every thread sees the whole table, and a load that failed
//     stays failed;
//   - the counter of SetErrPosnDisable/SetErrPosnEnable, which conversions
//     use on their own;
//   - the default settings store (a null INI handle), made once by the first
//     thread that asks and locked for each call, and the folders the file
//     locator finds once (the library's data folder, the locale folder).
//
// What is process-wide and not guarded: the last-error record (code, text,
// module lines, details) and the texts GetErrStrUC and GetErrStrLine1UC give.
// Two threads must not fail, nor read the record, at the same time; and
// ucstrtok keeps one position for the whole process. XML documents parse and
// write one at a time in the process: libxml2's message handler, entity
// loader and output settings, which XMLDOC sets for each, are process-wide.
// The text resource manager is one object whose lookups change it (TEXTRES,
// TEXTRESITEM, VOSTRING(TEXTID), the descriptions of the encodings): one
// thread at a time; the texts it returns are strings of their own.
#ifndef VOSYSTEM_VOSYSTEM_H
#define VOSYSTEM_VOSYSTEM_H

#include "vosystem/bidi.h"
#include "vosystem/bitset.h"
#include "vosystem/color.h"
#include "vosystem/datetime.h"
#include "vosystem/errors.h"
#include "vosystem/export.h"
#include "vosystem/filefind.h"
#include "vosystem/filepath.h"
#include "vosystem/fileraw.h"
#include "vosystem/genericrw.h"
#include "vosystem/glyphs.h"
#include "vosystem/identifier.h"
#include "vosystem/indic.h"
#include "vosystem/inifuncs.h"
#include "vosystem/macresource.h"
#include "vosystem/mcache.h"
#include "vosystem/mcbfunc.h"
#include "vosystem/memfunc.h"
#include "vosystem/mempool.h"
#include "vosystem/mtimer.h"
#include "vosystem/netneighbor.h"
#include "vosystem/strutf8.h"
#include "vosystem/system.h"
#include "vosystem/textres.h"
#include "vosystem/thai.h"
#include "vosystem/ucconv.h"
#include "vosystem/ucdata.h"
#include "vosystem/ucdecomp.h"
#include "vosystem/ucfprintf.h"
#include "vosystem/ucregexp.h"
#include "vosystem/ucstring.h"
#include "vosystem/viofuncs.h"
#include "vosystem/vocache.h"
#include "vosystem/vodblary.h"
#include "vosystem/vostring.h"
#include "vosystem/xml.h"

#endif
