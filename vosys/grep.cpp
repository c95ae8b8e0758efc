// vosys grep [-i] [-e ENCODING] PATTERN [FILE...]: the lines of the files (or
// of standard input) in which PATTERN matches, by the library's own
// regular-expression rule (ucregexp.h). Input is decoded from UTF-8, or from
// the registry's ENCODING; output is UTF-8.
//
// A line ends at LF, CR, CR LF, U+2028 or U+2029, and each line is searched
// on its own, so "^" and "$" mean its start and end. The first match of a
// line is marked: in colour on a terminal, between "[" and "]" otherwise.
// With more than one file each line is preceded by its file's name and ":".
// Exit status: 0 if a line matched, 1 if none did, 2 on a usage error, an
// invalid pattern or an unreadable file.
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "commands.h"
#include "vosystem/vosystem.h"

namespace {

const char kUsage[] =
    "usage: vosys grep [-i] [-e ENCODING] PATTERN [FILE...]   (names: vosys encodings)\n";

// The registry's name of an encoding, case ignored; null if there is none.
const char* EncodingName(const char* name) {
  for (int row = 0; row < MucGetNumEncodings(1); ++row)
    if (strcasecmp(MucNumToName(row, 1), name) == 0) return MucNumToName(row, 1);
  return nullptr;
}

struct GREP {
  UCREGEXP re;
  const char* encoding = "UTF8";
  bool withNames = false;
  const char* open = "[";
  const char* close = "]";

  void Print(const char* name, const unsigned short* line, unsigned long length,
             unsigned long first, unsigned long last) const {
    std::u16string out;
    const auto* text = reinterpret_cast<const char16_t*>(line);
    out.append(text, first);
    out.append(open, open + std::strlen(open));
    out.append(text + first, last - first);
    out.append(close, close + std::strlen(close));
    out.append(text + last, length - last);
    char* utf8 = nullptr;
    if (MucConvertUnicodeToUTF8(reinterpret_cast<const unsigned short*>(out.c_str()), &utf8) < 0)
      return;
    if (withNames) std::printf("%s:", name);
    std::printf("%s\n", utf8);
    std::free(utf8);
  }

  // 0 if a line matched, 1 if none, 2 if the text can't be decoded.
  int Search(const char* name, std::string bytes) const {
    void* conv = nullptr;
    if (MucInitConversion(&conv, encoding, 1) < 0) return 2;
    bytes.append(2, '\0');  // a terminator for byte encodings and for UTF-16
    unsigned short* units = nullptr;
    const int n = MucConvertToUnicode(conv, bytes.data(), &units);
    MucStopConversion(conv);
    if (n < 0) {
      std::free(units);
      std::fprintf(stderr, "vosys: can't decode %s\n", name);
      return 2;
    }
    int status = 1;
    unsigned long begin = n > 0 && units[0] == 0xFEFF ? 1 : 0;
    const unsigned long total = static_cast<unsigned long>(n);
    while (begin < total) {
      unsigned long end = begin;
      while (end < total && units[end] != 10 && units[end] != 13 && units[end] != 0x2028 &&
             units[end] != 0x2029)
        ++end;
      unsigned long first = 0, last = 0;
      if (re.Exec(units + begin, &first, &last, end - begin, 0)) {
        Print(name, units + begin, end - begin, first, last);
        status = 0;
      }
      begin = end + (end + 1 < total && units[end] == 13 && units[end + 1] == 10 ? 2 : 1);
    }
    std::free(units);
    return status;
  }
};

}  // namespace

int CmdGrep(int argc, char** argv) {
  GREP grep;
  bool ignoreCase = false;
  const char* pattern = nullptr;
  std::vector<const char*> files;
  for (int i = 0; i < argc; ++i) {
    if (!pattern && std::strcmp(argv[i], "-i") == 0) {
      ignoreCase = true;
    } else if (!pattern && std::strcmp(argv[i], "-e") == 0 && i + 1 < argc) {
      grep.encoding = EncodingName(argv[++i]);
      if (!grep.encoding) {
        std::fprintf(stderr, "vosys: unknown encoding '%s'\n%s", argv[i], kUsage);
        return 2;
      }
    } else if (!pattern) {
      pattern = argv[i];
    } else {
      files.push_back(argv[i]);
    }
  }
  if (!pattern) {
    std::fputs(kUsage, stderr);
    return 2;
  }
  const VOSTRING text(pattern, CHAR_ENCODING_UTF8);
  grep.re.Compile(text, ignoreCase);
  if (grep.re.StateCount() == 0) {
    std::fprintf(stderr, "vosys: invalid pattern '%s'\n", pattern);
    return 2;
  }
  if (isatty(STDOUT_FILENO)) {
    grep.open = "\x1b[1;31m";
    grep.close = "\x1b[0m";
  }
  grep.withNames = files.size() > 1;
  if (files.empty()) {
    std::string bytes;
    if (!ReadInput(nullptr, &bytes)) return 2;
    return grep.Search("(standard input)", bytes);
  }
  int status = 1;
  for (const char* path : files) {
    std::string bytes;
    if (!ReadInput(path, &bytes)) {
      status = 2;
      continue;
    }
    const int found = grep.Search(path, bytes);
    if (found == 2 || (found == 0 && status == 1)) status = found;
  }
  return status;
}
