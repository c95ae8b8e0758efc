// The loaded character database, for the library's own readers that need
// more than the public queries (composition uses the candidate index).
#ifndef VOSYS_SRC_TEXT_UCDATA_PRIV_H
#define VOSYS_SRC_TEXT_UCDATA_PRIV_H

#include "text/ucdata_table.h"

// The table, loading the file on the first call.
const UCDATA_TABLE& UcdataTable();

#endif
