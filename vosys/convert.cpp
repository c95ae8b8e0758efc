// vosys convert -f FROM -t TO [FILE...]: text from one encoding of the
// registry to another, through UTF-16, like iconv. Files (or standard input)
// are read whole; byte-encoded text ends at its first NUL byte. No byte-order
// mark is added to UTF-8 or UTF-16 output, and one at the start of the text
// is dropped.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "commands.h"
#include "vosystem/vosystem.h"

namespace {

const char kUsage[] = "usage: vosys convert -f FROM -t TO [FILE...]   (names: vosys encodings)\n";

// The row of an encoding name, case ignored; -1 if there is none.
int RowOf(const char* name) {
  for (int row = 0; row < MucGetNumEncodings(0); ++row)
    if (strcasecmp(MucNumToName(row, 0), name) == 0) return row;
  return -1;
}

void PrintError(int rc) {
  VOSTRING message(GetErrStrLine1UC(rc, nullptr));
  char* text = message.GetEncoded(CHAR_ENCODING_UTF8);
  std::fprintf(stderr, "vosys: %s\n", text ? text : "conversion failed");
  std::free(text);
}

int ConvertText(std::string bytes, const char* from, const char* to) {
  void* in = nullptr;
  void* out = nullptr;
  MucInitConversion(&in, from, 1);
  MucInitConversion(&out, to, 1);
  const bool fromUtf16 = MucGetEncodingFromName(from) == CHAR_ENCODING_UTF16;
  bytes.append(fromUtf16 ? 2 : 1, '\0');
  unsigned short* units = nullptr;
  int rc = MucConvertToUnicode(in, bytes.data(), &units);
  char* result = nullptr;
  if (rc >= 0) {
    const unsigned short* text = units;
    if (*text == 0xFEFF) ++text;
    rc = MucConvertFromUnicode(out, text, &result);
  }
  if (rc >= 0) {
    const bool toUtf16 = MucGetEncodingFromName(to) == CHAR_ENCODING_UTF16;
    std::fwrite(result, 1, static_cast<size_t>(rc) * (toUtf16 ? 2 : 1), stdout);
  } else {
    PrintError(rc);
  }
  std::free(units);
  std::free(result);
  MucStopConversion(in);
  MucStopConversion(out);
  return rc < 0 ? 1 : 0;
}

}  // namespace

int CmdConvert(int argc, char** argv) {
  const char* from = nullptr;
  const char* to = nullptr;
  std::vector<const char*> files;
  for (int i = 0; i < argc; ++i) {
    if (std::strcmp(argv[i], "-f") == 0 && i + 1 < argc) {
      from = argv[++i];
    } else if (std::strcmp(argv[i], "-t") == 0 && i + 1 < argc) {
      to = argv[++i];
    } else {
      files.push_back(argv[i]);
    }
  }
  const int fromRow = from ? RowOf(from) : -1, toRow = to ? RowOf(to) : -1;
  if (fromRow < 0 || toRow < 0) {
    if (from && fromRow < 0) std::fprintf(stderr, "vosys: unknown encoding '%s'\n", from);
    if (to && toRow < 0) std::fprintf(stderr, "vosys: unknown encoding '%s'\n", to);
    std::fputs(kUsage, stderr);
    return 2;
  }
  from = MucNumToName(fromRow, 0);
  to = MucNumToName(toRow, 0);
  if (files.empty()) {
    std::string bytes;
    if (!ReadInput(nullptr, &bytes)) return 1;
    return ConvertText(bytes, from, to);
  }
  int status = 0;
  for (const char* path : files) {
    std::string bytes;
    if (!ReadInput(path, &bytes)) {
      status = 1;
      continue;
    }
    status |= ConvertText(bytes, from, to);
  }
  return status;
}
