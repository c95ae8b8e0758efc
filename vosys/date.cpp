// vosys date: a date and time read from text by a format (or the present
// moment), shown in every form the library knows.
//
//   vosys date [--format F] [TEXT]
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "commands.h"
#include "vosystem/vosystem.h"

namespace {

const char kUsage[] =
    "usage: vosys date [--format FORMAT] [TEXT]\n"
    "  read TEXT (UTF-8) by FORMAT as UTC and show the moment in every form;\n"
    "  without a format, the first of \"%Y%/%m%/%d%[ %T%]\" and \"%c\" that reads\n"
    "  the whole text; without TEXT, the present moment\n";

// Formats tried when none is given: a date with an optional time, ISO-like
// ("2004-06-02 12:30", "2004/06/02"), then the date-and-time of %c
// ("06/02/04 5:15 PM", "Jun 2, 2004 12:30:15").
const char* const kDefaultFormats[] = {"%Y%/%m%/%d%[ %T%]", "%c"};

void Print(const char* label, const VOSTRING& value) {
  char* utf8 = value.GetEncoded(CHAR_ENCODING_UTF8);
  std::printf("%-11s %s\n", label, utf8 ? utf8 : "");
  std::free(utf8);
}

VOSTRING Formatted(const DATETIME& v, const char* format, bool local) {
  VOSTRING out;
  v.StrfTime(out, format, local);
  return out;
}

void Show(const DATETIME& v) {
  Print("date", Formatted(v, "%A %Y-%m-%d %H:%M:%S UTC", false));
  const bool valid = MdtValidDate(v.GetDayOfMonth(), v.GetMonth(), v.GetYear());
  Print("valid", VOSTRING(valid ? "yes" : "no: not a day of the calendar"));
  std::printf("%-11s %ld (%.6f with the time of day)\n", "julian day", v.GetDateJulian(),
              v.GetDateTimeJulian());
  std::printf("%-11s %d of the year, %d of the week (1 = Sunday)\n", "day", v.GetDayOfYear(),
              v.GetDayOfWeek());
  std::printf("%-11s %ld since 1970 (0 before it)\n", "seconds", v.GetTimeT());
  std::printf("%-11s %llu (100 ns since 1601)\n", "file time", v.GetNanoTime());
  if (v.GetYear() >= 1970) {
    DATETIME local(v);
    local.ConvertToLocal();
    Print("local", Formatted(local, "%Y-%m-%d %H:%M:%S %Z", true));
  }
}

}  // namespace

int CmdDate(int argc, char** argv) {
  const char* format = nullptr;
  const char* text = nullptr;
  for (int i = 0; i < argc; ++i) {
    if (std::strcmp(argv[i], "--format") == 0 && i + 1 < argc && !format) {
      format = argv[++i];
    } else if (!text && std::strcmp(argv[i], "--format") != 0) {
      text = argv[i];
    } else {
      std::fputs(kUsage, stderr);
      return 2;
    }
  }
  DATETIME value;
  if (!text) {
    if (format) {
      std::fputs(kUsage, stderr);
      return 2;
    }
    value.SetCurrent(false);
    Show(value);
    return 0;
  }
  const VOSTRING input(text, CHAR_ENCODING_UTF8);
  const int length = input.GetLength();
  const char* const* tried = format ? &format : kDefaultFormats;
  const int count = format ? 1 : 2;
  for (int i = 0; i < count; ++i) {
    value = DATETIME();
    const unsigned short* end = value.Set(input, tried[i]);
    // A format of one's own may read a part; the usual ones must read all.
    if (!end || (!format && end - input.GetReference() != length)) continue;
    std::printf("%-11s %d of %d characters by \"%s\"\n", "read",
                static_cast<int>(end - input.GetReference()), length, tried[i]);
    Show(value);
    return 0;
  }
  std::fprintf(stderr, "vosys: '%s' doesn't read as a date by %s\n", text,
               format ? format : "\"%Y%/%m%/%d%[ %T%]\" or \"%c\"");
  return 1;
}
