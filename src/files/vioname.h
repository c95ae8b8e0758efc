// Names of open files for messages, where the failing code holds only a
// Vio handle or a stream.
#ifndef VOSYS_SRC_FILES_VIONAME_H
#define VOSYS_SRC_FILES_VIONAME_H

#include <cstdio>

#include "vosystem/vostring.h"

// The display form of the path a Vio handle was opened on; for a handle
// that isn't open, "handle N".
VOSTRING VioHandleDisplayName(int handle);
// The display form of the file a stream is open on, as the system knows it
// now; for a stream with no file name (a pipe, a socket, a file since
// removed), the system's own description, or "descriptor N".
VOSTRING VioStreamDisplayName(FILE* fp);

#endif
