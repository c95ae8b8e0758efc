// Heap allocation with recorded failures, and the two IEEE constants.
//
// Every block comes from the C heap and is released with free(). The pptr
// argument is the address of the caller's pointer (e.g. &p for unsigned char* p).
#ifndef VOSYSTEM_MEMFUNC_H
#define VOSYSTEM_MEMFUNC_H

#include "vosystem/export.h"

extern "C" {
// *pptr = malloc(size), size 0 taken as 1. 0, or -1015 recorded with the size.
VOSYS_API int MmAlloc(void* pptr, unsigned long size);
// As MmAlloc, zero-filled.
VOSYS_API int MmAllocC(void* pptr, unsigned long size);
// realloc (malloc for a null *pptr); on failure the old block stays at *pptr.
VOSYS_API int MmRealloc(void* pptr, unsigned long size);
// Keeps the contents and zero-fills from oldsize to newsize when growing. A null
// *pptr, or oldsize 0, acts as MmAllocC (freeing the old block first). A
// negative newsize is refused with -1213 and the block left alone.
VOSYS_API int MmReallocC(void* pptr, long newsize, unsigned long oldsize);

// The same four without a record: the new pointer (null on exhaustion), also
// stored at *pptr. A failed reallocation leaves *pptr as it was.
VOSYS_API void* MmAllocExc(void* pptr, unsigned long size);
VOSYS_API void* MmAllocCExc(void* pptr, unsigned long size);
VOSYS_API void* MmReallocExc(void* pptr, unsigned long size);
VOSYS_API void* MmReallocCExc(void* pptr, long newsize, unsigned long oldsize);

// Quiet NaN 0x7FF8000000000000 and positive infinity 0x7FF0000000000000.
VOSYS_API double IEEE_NaN(void);
VOSYS_API double IEEE_Infinity(void);
}

#endif
