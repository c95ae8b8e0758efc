// Reference files are found in the current folder, the program's folder, and
// last the data folder that travels with the library: the build tree and an
// installation both lay it out at the same place relative to the library
// (VOSYS_LIB_TO_DATA), so a moved installation still finds its data.
#include "files/reffile.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <vector>

#ifndef VOSYS_LIB_TO_DATA
#define VOSYS_LIB_TO_DATA "../share/vosystem"
#endif

namespace reffile {
namespace {

const char kMarker[] = "hdrdesc.ref";

bool IsRegularFile(const std::string& path) {
  struct stat st;
  return stat(path.c_str(), &st) == 0 && S_ISREG(st.st_mode);
}

std::string FolderOf(const std::string& file) {
  size_t slash = file.rfind('/');
  return slash == std::string::npos ? std::string(".") : file.substr(0, slash);
}

std::string ProgramFolder() {
  std::vector<char> buf(PATH_MAX + 1);
  ssize_t n = readlink("/proc/self/exe", buf.data(), buf.size() - 1);
  if (n <= 0) return std::string();
  return FolderOf(std::string(buf.data(), static_cast<size_t>(n)));
}

std::string LibraryFolder() {
  Dl_info info;
  if (!dladdr(reinterpret_cast<void*>(&DataFolder), &info) || !info.dli_fname) return std::string();
  return FolderOf(info.dli_fname);
}

std::string Join(const std::string& folder, const std::string& name) {
  if (folder.empty()) return name;
  return folder.back() == '/' ? folder + name : folder + "/" + name;
}

std::vector<std::string> Spellings(const char* name) {
  // ASCII only: under some locales toupper makes "i" a byte of another letter.
  std::string upper(name);
  for (char& ch : upper)
    if (ch >= 'a' && ch <= 'z') ch = static_cast<char>(ch - 'a' + 'A');
  return {name, upper, std::string(name) + ";1", upper + ";1"};
}

}  // namespace

std::string DataFolder() {
  const char* env = getenv("VOSYS_DATA_DIR");
  std::string folder;
  if (env && *env) {
    folder = env;
  } else {
    std::string lib = LibraryFolder();
    if (lib.empty()) return std::string();
    folder = Join(lib, VOSYS_LIB_TO_DATA);
  }
  return IsRegularFile(Join(folder, kMarker)) ? folder : std::string();
}

int LocateReferenceFile(const char* name, std::string& path) {
  path.clear();
  if (!name || !*name) return 0;
  const std::string folders[] = {".", ProgramFolder(), DataFolder()};
  for (const std::string& folder : folders) {
    if (folder.empty()) continue;
    for (const std::string& spelling : Spellings(name)) {
      std::string candidate = Join(folder, spelling);
      if (IsRegularFile(candidate)) {
        path = candidate;
        return 1;
      }
    }
  }
  return 0;
}

int ReadWholeFile(const std::string& path, size_t maxSize, unsigned char** data, size_t* size) {
  *data = nullptr;
  *size = 0;
  int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) return -1;
  struct stat st;
  if (fstat(fd, &st) != 0 || !S_ISREG(st.st_mode) || st.st_size < 0 ||
      static_cast<unsigned long long>(st.st_size) > maxSize) {
    close(fd);
    return -1;
  }
  size_t want = static_cast<size_t>(st.st_size);
  auto* block = static_cast<unsigned char*>(calloc(1, want ? want : 1));
  size_t got = 0;
  while (block && got < want) {
    ssize_t n = read(fd, block + got, want - got);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) break;
    got += static_cast<size_t>(n);
  }
  close(fd);
  if (!block || got != want) {
    free(block);
    return -1;
  }
  *data = block;
  *size = want;
  return 0;
}

}  // namespace reffile
