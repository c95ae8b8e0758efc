// The Vio functions: files by integer handle, over FILE_RAW, and the route
// to a standard FILE* for callers who want the C stream functions. Paths are
// UTF-16 and pass through FILEPATH, so every path syntax works here.
//
// Handles index one process-wide table: 1 and up; 0 and below are never
// handles. The table is not guarded: open and close from one thread at a
// time.
#ifndef VOSYSTEM_VIOFUNCS_H
#define VOSYSTEM_VIOFUNCS_H

#include <cstdio>

#include "vosystem/export.h"

// A list of file names as some callers receive it: heap nodes, each a heap
// UTF-16 name and the next node.
struct FNAMEUCLIST {
  unsigned short* name;
  FNAMEUCLIST* next;
};

extern "C" {

// With fp: fopen of the path with mode (the descriptor isn't inherited by
// programs the process starts), *fp the stream, 0. Without fp: a handle on
// the file, opened with no lock: "r" reads, "r+" reads and writes, "w"
// empties or creates, "a" appends; only the first letter counts (apart
// from the "+" of "r+"), and any other letter reads. -1213 for a null path
// or mode; a failed open gives its code with the path in the message.
VOSYS_API int VioOpen(const unsigned short* path, const char* mode, FILE** fp);
// 0; the handle -1 does nothing. Other bad handles: -1118.
VOSYS_API int VioClose(int handle);
// The whole length or a failure: a read that stops short is -1122.
VOSYS_API int VioRead(int handle, void* buffer, long length);
VOSYS_API int VioWrite(int handle, const void* buffer, long length);
// from: 0 start, 1 current, 2 end. The new position's low 32 bits.
VOSYS_API int VioSeek(int handle, long offset, int from);
VOSYS_API int VioSeekAndRead(int handle, long position, void* buffer, long length);
VOSYS_API int VioSeekAndWrite(int handle, long position, const void* buffer, long length);
VOSYS_API long long VioGetOpenFileSize64(int handle);
// The size's low 32 bits, sign-extended.
VOSYS_API long VioGetOpenFileSize(int handle);
// ftell/fseek: the stream's size; its position is kept.
VOSYS_API long VioGetOpenFPSize(FILE* fp);
// One line, whatever its end (CR, LF, CR LF or LF CR), without the end, cut
// to size - 1 bytes: the rest comes with the next call. Its length, or -1 at
// the end of the file with nothing read. -1213 for a null buffer or stream
// or a size of 0 or less; a read error gives -1115 (EIO), -1013 (timed out)
// or -1107.
VOSYS_API int VioGetStr(char* buffer, int size, FILE* fp);
// The path of a reference file found by FILEFIND::LocateReferenceFile, as
// a new heap UTF-16 string to free; null if name is null or nothing is
// found. With flag 128 name is 8-bit text, else UTF-16 (narrowed to bytes).
VOSYS_API unsigned short* VioGetRefFile(const void* name, unsigned long flags);
// Frees each name and each node; null does nothing.
VOSYS_API void FreeFNameUCList(FNAMEUCLIST* list);
// Frees the name of each of count elements and sets it to null; the array
// itself stays the caller's.
VOSYS_API void FreeFNameUCArray(FNAMEUCLIST* array, int count);
}

#endif
