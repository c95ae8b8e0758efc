// Reading resources out of a classic Macintosh resource fork that has been
// opened as a plain file with VioOpen (viofuncs.h): no system resource
// manager is needed, so it works on any platform.
//
// type is the four characters of a resource type as one big-endian number
// ('ICN#' is 0x49434E23). The fork's lengths and offsets are never taken on
// trust: a fork, map or resource that claims to reach past the end of the
// file gives -1122 (the read would stop short), never a huge allocation or a
// read out of bounds.
#ifndef VOSYSTEM_MACRESOURCE_H
#define VOSYSTEM_MACRESOURCE_H

#include "vosystem/export.h"

extern "C" {
// The number of resources of the type; 0 if there is none. A negative code
// for a bad handle or a damaged fork.
VOSYS_API int MacNumResourcesOfType(int handle, unsigned long type);
// The resource at index (from 0) of the type's list, or the one whose id
// matches (as an unsigned 16-bit number). *data is set to null first; on
// success the result is the resource's length and *data a new heap block
// with its bytes (also for a length of 0), which the caller frees. With a
// null data only the length is read. 0 when the type or the resource isn't
// there; a negative code on failure.
VOSYS_API int MacReadResourceByNum(int handle, unsigned long type, int index, void** data);
VOSYS_API int MacReadResourceByID(int handle, unsigned long type, int id, void** data);
}

#endif
