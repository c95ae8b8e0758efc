// The data folder installed with the library: the last place the locator
// looks for reference files.
#ifndef VOSYS_SRC_FILES_DATAFOLDER_H
#define VOSYS_SRC_FILES_DATAFOLDER_H

#include "vosystem/filepath.h"

// The folder named by VOSYS_DATA_DIR when that is set and not empty, else
// the one that the build or the installation put beside the library. It
// counts only if it holds the marker "hdrdesc.ref"; empty if there is none.
// Found once per process; each call gives a path of its own, which shares
// no text with another thread's.
FILEPATH LibraryDataFolder();

#endif
