// Reading a whole reference file into memory, safely: a size limit, and
// never a byte past the size the file had when it was opened.
//
// Header-only over the exported FILE_RAW, so that modules compiled into a
// test or fuzz target outside the library can use it too.
#ifndef VOSYS_SRC_FILES_READFILE_H
#define VOSYS_SRC_FILES_READFILE_H

#include <cstddef>
#include <cstdlib>

#include "vosystem/errors.h"
#include "vosystem/fileraw.h"

// The whole file, of at most maxSize bytes, in one zeroed heap block (with
// one zero byte behind the data) that the caller frees. Records nothing: 0,
// or -1 when the file can't be read or is larger than maxSize.
inline int ReadWholeFile(const FILEPATH& path, size_t maxSize, unsigned char** data, size_t* size) {
  *data = nullptr;
  *size = 0;
  ERRPOSN_DISABLER quiet;
  FILE_RAW file;
  if (file.Open(path, FILE_ACCESS_Read, FILE_SHARE_All) < 0) return -1;
  const long long length = file.GetSize();
  if (length < 0 || static_cast<unsigned long long>(length) > maxSize) return -1;
  const size_t n = static_cast<size_t>(length);
  unsigned char* block = static_cast<unsigned char*>(calloc(1, n + 1));
  if (!block) return -1;
  if (n > 0 && file.Read(block, static_cast<long>(n), false) != static_cast<long>(n)) {
    free(block);
    return -1;
  }
  *data = block;
  *size = n;
  return 0;
}

#endif
