// vosys ini: settings files through the library's INI store.
//
//   vosys ini get FILE GROUP FIELD          the field's value
//   vosys ini set FILE GROUP FIELD VALUE    sets it (a value with line feeds
//                                           becomes FIELD, FIELD__2, ...)
//   vosys ini list FILE                     every group and field, with the
//                                           value the library reads
#include <sys/stat.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <string>

#include "commands.h"
#include "vosystem/vosystem.h"

namespace {

const char kUsage[] =
    "usage: vosys ini get FILE GROUP FIELD\n"
    "       vosys ini set FILE GROUP FIELD VALUE\n"
    "       vosys ini list FILE\n";

int Usage() {
  std::fputs(kUsage, stderr);
  return 2;
}

void PrintError(const char* what, int rc) {
  char* text = VOSTRING(GetErrStrLine1UC(rc, nullptr)).GetEncoded(CHAR_ENCODING_UTF8);
  std::fprintf(stderr, "vosys: %s: %s (%d)\n", what, text ? text : "", rc);
  std::free(text);
}

// Opens FILE as a store; an existing file only when reading.
void* OpenStore(const char* file, bool mustExist) {
  struct stat st;
  if (mustExist && stat(file, &st) != 0) {
    std::fprintf(stderr, "vosys: no such file: %s\n", file);
    return nullptr;
  }
  const VOSTRING path(file, CHAR_ENCODING_UTF8);
  void* h = nullptr;
  unsigned long flags = INIOPEN_FullPath | INIOPEN_UnicodePath;
  if (mustExist) flags |= INIOPEN_ReadOnly;
  const int rc = IniOpen(path.GetReference(), &h, flags);
  if (rc < 0) PrintError(file, rc);
  return h;
}

// The value as UTF-8, its line feeds shown as "\n"; false when absent.
bool ReadValue(void* h, const char* group, const char* field, std::string& out) {
  void* value = nullptr;
  const int n = IniReadStringAllocML(h, group, field, INITYPE_String, &value);
  if (n < 0) return false;
  out.clear();
  for (int i = 0; i < n; ++i) {
    const char c = static_cast<const char*>(value)[i];
    out += c == '\n' ? std::string("\\n") : std::string(1, c);
  }
  std::free(value);
  return true;
}

int Get(int argc, char** argv) {
  if (argc != 3) return Usage();
  void* h = OpenStore(argv[0], true);
  if (!h) return 1;
  std::string value;
  const bool found = ReadValue(h, argv[1], argv[2], value);
  IniClose(h);
  if (!found) {
    std::fprintf(stderr, "vosys: no field %s in group %s\n", argv[2], argv[1]);
    return 1;
  }
  std::printf("%s\n", value.c_str());
  return 0;
}

int Set(int argc, char** argv) {
  if (argc != 4) return Usage();
  void* h = OpenStore(argv[0], false);
  if (!h) return 1;
  const bool lines = std::strchr(argv[3], '\n') != nullptr;
  const int rc = lines ? IniWriteStringML(h, argv[1], argv[2], INITYPE_String, argv[3])
                       : IniWriteString(h, argv[1], argv[2], INITYPE_String, argv[3]);
  IniClose(h);
  if (rc < 0) {
    PrintError("can't set the field", rc);
    return 1;
  }
  return 0;
}

std::string Trim(const std::string& s) {
  const size_t a = s.find_first_not_of(" \t\r");
  if (a == std::string::npos) return std::string();
  const size_t b = s.find_last_not_of(" \t\r");
  return s.substr(a, b - a + 1);
}

// The names come from the file's lines; every value from the library. The
// fields of a value over several fields (NAME__2, ...) show under NAME.
int List(int argc, char** argv) {
  if (argc != 1) return Usage();
  void* h = OpenStore(argv[0], true);
  if (!h) return 1;
  std::ifstream in(argv[0], std::ios::binary);
  std::string group, line;
  bool continued = false;
  while (std::getline(in, line)) {
    const bool continuation = continued && !line.empty() && line[0] == '\\';
    continued = !line.empty() && line.back() == '\\';
    if (continuation) continue;
    const std::string t = Trim(line);
    if (t.empty() || t[0] == '#') continue;
    if (t[0] == '[' && t.find(']') != std::string::npos) {
      group = t.substr(1, t.find(']') - 1);
      std::printf("[%s]\n", group.c_str());
      continue;
    }
    const size_t eq = t.find('=');
    if (eq == std::string::npos) continue;
    const std::string field = Trim(t.substr(0, eq));
    const size_t suffix = field.rfind("__");
    if (suffix != std::string::npos && suffix + 2 < field.size() &&
        field.find_first_not_of("0123456789", suffix + 2) == std::string::npos)
      continue;
    std::string value;
    if (ReadValue(h, group.c_str(), field.c_str(), value))
      std::printf("  %s = %s\n", field.c_str(), value.c_str());
  }
  IniClose(h);
  return 0;
}

}  // namespace

int CmdIni(int argc, char** argv) {
  if (argc >= 1 && std::strcmp(argv[0], "get") == 0) return Get(argc - 1, argv + 1);
  if (argc >= 1 && std::strcmp(argv[0], "set") == 0) return Set(argc - 1, argv + 1);
  if (argc >= 1 && std::strcmp(argv[0], "list") == 0) return List(argc - 1, argv + 1);
  return Usage();
}
