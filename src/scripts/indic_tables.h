// The class tables of the nine scripts of Indic reordering, generated at
// build time by tools/mkindic.py into the build tree.
#ifndef VOSYS_SRC_SCRIPTS_INDIC_TABLES_H
#define VOSYS_SRC_SCRIPTS_INDIC_TABLES_H

#include "vosystem/indic.h"

extern const INDICCLASSTABLE devaClassTable;
extern const INDICCLASSTABLE bengClassTable;
extern const INDICCLASSTABLE punjClassTable;
extern const INDICCLASSTABLE gujrClassTable;
extern const INDICCLASSTABLE oryaClassTable;
extern const INDICCLASSTABLE tamlClassTable;
extern const INDICCLASSTABLE teluClassTable;
extern const INDICCLASSTABLE kndaClassTable;
extern const INDICCLASSTABLE mlymClassTable;

#endif
