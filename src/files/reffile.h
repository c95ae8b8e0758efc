// Finding and reading the library's reference files ("ucdata.ref" and the
// like).
//
// This is the library's own small layer until the file locator and the
// low-level file functions are part of it; they take its place then, and keep
// the data folder as the last place searched.
#ifndef VOSYS_SRC_FILES_REFFILE_H
#define VOSYS_SRC_FILES_REFFILE_H

#include <cstddef>
#include <string>

namespace reffile {

// Searches the current folder, the program's folder, then the library's data
// folder for name, as given, in upper case, and either with ";1" appended (the
// spelling of files on a disc image). 1 with path set to the file found, else
// 0 with path cleared.
int LocateReferenceFile(const char* name, std::string& path);

// The library's data folder: the value of VOSYS_DATA_DIR when set and not
// empty, otherwise the folder that the build or the installation put beside
// the library. It counts only if it holds the marker "hdrdesc.ref"; empty if
// there is none.
std::string DataFolder();

// Reads a whole regular file of at most maxSize bytes into one zeroed heap
// block that the caller frees. Records nothing: 0, or -1 when the file can't
// be read or is larger.
int ReadWholeFile(const std::string& path, size_t maxSize, unsigned char** data, size_t* size);

}  // namespace reffile

#endif
