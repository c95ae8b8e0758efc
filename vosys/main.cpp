// vosys: the library's services from the command line.
//
//   vosys format TEMPLATE VALUE...   fill a template with the %/$n engine
//   vosys format -f FILE             the same for each line of a file
//   vosys error CODE [VALUE...]      the message text of an error code
//   vosys chars TEXT                 the character database's view of TEXT
//   vosys encodings                  the registry's encodings
//   vosys convert -f FROM -t TO [FILE...]   text from one encoding to another
//   vosys path TEXT...               how each text parses as a path
//   vosys grep [-i] [-e ENC] PATTERN [FILE...]   lines that match a pattern
//   vosys bidi [--rtl|--ltr] TEXT    mixed-direction text in visual order
//   vosys shape TEXT                 Arabic text in its presentation forms
//   vosys ini get|set|list FILE ...  settings files
//   vosys text NUMBER|NAME           a text resource
//   vosys --lang CODE COMMAND ...    any command with the texts of a language
//   vosys xml [--html|--ids] FILE    a document written out indented
//   vosys rsrc FILE TYPE [ID]        resources of a classic Mac resource fork
//   vosys date [--format F] [TEXT]   a date read by a format, in every form
//   vosys color NAME|VALUE           a colour in every form
#include <cerrno>
#include <cinttypes>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "commands.h"
#include "vosystem/vosystem.h"

namespace {

const char kUsage[] =
    "usage: vosys [--lang CODE] <command> [arguments]\n"
    "\n"
    "commands:\n"
    "  format TEMPLATE VALUE...  fill TEMPLATE's placeholders (%d, %5.2f, %s, $1, ...)\n"
    "                            with the values, typed as integer, float or string;\n"
    "                            prefix a value with i:, f: or s: to force its type\n"
    "  format -f FILE            fill each line of FILE: a template and its values,\n"
    "                            separated by tabs ('#' starts a comment line)\n"
    "  error CODE [VALUE...]     print the message text of error code CODE, with the\n"
    "                            values in its placeholders as a failure would fill them\n"
    "  chars TEXT                list each character of TEXT with its code, category,\n"
    "                            bidi class, case partner and decomposition\n"
    "  encodings                 list the encodings by row, with their numbers and\n"
    "                            whether they are offered for reading and writing\n"
    "  convert -f FROM -t TO [FILE...]\n"
    "                            convert text (the files, or standard input) from\n"
    "                            one encoding to another\n"
    "  path TEXT...              how each text parses as a path (\"!PC!C:\\a\", \"!MAC!Disk:a\",\n"
    "                            \"../a\", ...): stored and display forms, components,\n"
    "                            extension, the path from here, what is on the disk\n"
    "  grep [-i] [-e ENCODING] PATTERN [FILE...]\n"
    "                            print the lines (of the files, or standard input)\n"
    "                            in which the regular expression PATTERN matches,\n"
    "                            with the match marked; -i ignores case\n"
    "  bidi [--rtl|--ltr] TEXT   print TEXT in visual order (as shown, left to right);\n"
    "                            -f FILE does each line of FILE\n"
    "  shape TEXT                print Arabic TEXT in its presentation forms\n"
    "  ini get FILE GROUP FIELD  print a field of a settings file\n"
    "  ini set FILE GROUP FIELD VALUE\n"
    "                            set it (the file is made if missing)\n"
    "  ini list FILE             every group and field, with its value\n"
    "  text NUMBER|NAME          print a text resource: by number (-1102, 9501), or by\n"
    "                            name (text-encoding.KOI-8; label:, title:, help: for\n"
    "                            those sets)\n"
    "  --lang CODE               before a command: texts in the language CODE (fra),\n"
    "                            English where that language has none\n"
    "  xml [--html] FILE         parse a document (XML, or HTML) and write it out\n"
    "                            indented\n"
    "  xml --ids FILE            list the elements whose text is an authority's code,\n"
    "                            such as EPSG:4326\n"
    "  rsrc FILE TYPE [ID]       the resources of TYPE (e.g. TEXT) in the resource\n"
    "                            fork FILE, or the one with ID\n"
    "  date [--format F] [TEXT]  read TEXT as a date and time by the format F (or the\n"
    "                            usual ones) and show it in every form: Julian day,\n"
    "                            weekday, seconds since 1970, file time, local time\n"
    "  color NAME|VALUE          a colour by name (built-in or rgb.txt), \"#RRGGBB\" or\n"
    "                            percentages \"r g b\", in every packed form\n"
    "  --help                    show this text\n";

// Text from the command line or a file is UTF-8.
VOSTRING FromUtf8(const char* s) {
  return VOSTRING(s, CHAR_ENCODING_UTF8);
}

void PrintLine(const VOSTRING& s) {
  char* utf8 = s.GetEncoded(CHAR_ENCODING_UTF8);
  std::printf("%s\n", utf8 ? utf8 : "");
  std::free(utf8);
}

bool ParseInteger(const char* s, long long* out) {
  if (!*s) return false;
  char* end = nullptr;
  errno = 0;
  long long v = std::strtoll(s, &end, 0);
  if (errno == ERANGE || *end) return false;
  *out = v;
  return true;
}

bool ParseFloat(const char* s, double* out) {
  if (!std::strpbrk(s, "0123456789") || !std::strpbrk(s, ".eE")) return false;
  char* end = nullptr;
  double v = std::strtod(s, &end);
  if (*end) return false;
  *out = v;
  return true;
}

// Integers take the narrowest C type that holds them, as a program would
// pass them: int, then unsigned int, then the 64-bit route.
void PushInteger(VOSTRING& s, long long v) {
  if (v >= INT_MIN && v <= INT_MAX)
    s << static_cast<int>(v);
  else if (v >= 0 && v <= static_cast<long long>(UINT_MAX))
    s << static_cast<unsigned int>(v);
  else
    s << v;
}

// One value, typed by its look or by an "i:", "f:" or "s:" prefix.
bool PushValue(VOSTRING& s, const char* arg) {
  long long i = 0;
  double f = 0;
  if (std::strncmp(arg, "s:", 2) == 0) {
    s << FromUtf8(arg + 2);
  } else if (std::strncmp(arg, "i:", 2) == 0) {
    if (!ParseInteger(arg + 2, &i)) return false;
    PushInteger(s, i);
  } else if (std::strncmp(arg, "f:", 2) == 0) {
    char* end = nullptr;
    f = std::strtod(arg + 2, &end);
    if (end == arg + 2 || *end) return false;
    s << f;
  } else if (ParseInteger(arg, &i)) {
    PushInteger(s, i);
  } else if (ParseFloat(arg, &f)) {
    s << f;
  } else {
    s << FromUtf8(arg);
  }
  return true;
}

bool FillAndPrint(const char* tmpl, const std::vector<const char*>& values) {
  VOSTRING s = FromUtf8(tmpl);
  for (const char* v : values) {
    if (!PushValue(s, v)) {
      std::fprintf(stderr, "vosys: '%s' is not a value of the type its prefix asks for\n", v);
      return false;
    }
  }
  PrintLine(s);
  return true;
}

std::vector<std::string> SplitTabs(const std::string& line) {
  std::vector<std::string> fields;
  size_t start = 0;
  for (size_t tab; (tab = line.find('\t', start)) != std::string::npos; start = tab + 1)
    fields.push_back(line.substr(start, tab - start));
  fields.push_back(line.substr(start));
  return fields;
}

int FormatFile(const char* path) {
  FILE* f = std::fopen(path, "rb");
  if (!f) {
    std::fprintf(stderr, "vosys: can't open %s: %s\n", path, std::strerror(errno));
    return 1;
  }
  int rc = 0;
  std::string line;
  for (int ch; (ch = std::getc(f)) != EOF || !line.empty();) {
    if (ch != '\n' && ch != EOF) {
      if (ch != '\r') line += static_cast<char>(ch);
      continue;
    }
    if (!line.empty() && line[0] != '#') {
      std::vector<std::string> fields = SplitTabs(line);
      std::vector<const char*> values;
      for (size_t i = 1; i < fields.size(); ++i) values.push_back(fields[i].c_str());
      if (!FillAndPrint(fields[0].c_str(), values)) rc = 1;
    }
    line.clear();
    if (ch == EOF) break;
  }
  std::fclose(f);
  return rc;
}

int CmdFormat(int argc, char** argv) {
  if (argc >= 2 && std::strcmp(argv[0], "-f") == 0) return argc == 2 ? FormatFile(argv[1]) : 2;
  if (argc < 1) {
    std::fputs(kUsage, stderr);
    return 2;
  }
  std::vector<const char*> values(argv + 1, argv + argc);
  return FillAndPrint(argv[0], values) ? 0 : 1;
}

// The message as a failure raised with those values would have it.
int CmdError(int argc, char** argv) {
  long long code = 0;
  if (argc < 1 || !ParseInteger(argv[0], &code) || code < INT_MIN || code > INT_MAX) {
    std::fputs("usage: vosys error CODE [VALUE...]   (an integer, e.g. -1015)\n", stderr);
    return 2;
  }
  if (argc > 1) {
    _SetErrPosnC(static_cast<int>(code), nullptr, 0);
    for (int i = 1; i < argc; ++i) {
      if (!PushValue(GetErrString(), argv[i])) {
        std::fprintf(stderr, "vosys: '%s' is not a value of the type its prefix asks for\n",
                     argv[i]);
        return 1;
      }
    }
  }
  PrintLine(VOSTRING(GetErrStrUC(static_cast<int>(code), nullptr)));
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2 || std::strcmp(argv[1], "--help") == 0 || std::strcmp(argv[1], "-h") == 0) {
    std::fputs(kUsage, argc < 2 ? stderr : stdout);
    return argc < 2 ? 2 : 0;
  }
  if (std::strcmp(argv[1], "--lang") == 0) {
    if (argc < 4) {
      std::fputs(kUsage, stderr);
      return 2;
    }
    if (!UseLanguage(argv[2])) return 2;
    argv += 2;
    argc -= 2;
  }
  TEXTRES::Initialize();
  const char* cmd = argv[1];
  if (std::strcmp(cmd, "format") == 0) return CmdFormat(argc - 2, argv + 2);
  if (std::strcmp(cmd, "error") == 0) return CmdError(argc - 2, argv + 2);
  if (std::strcmp(cmd, "chars") == 0) return CmdChars(argc - 2, argv + 2);
  if (std::strcmp(cmd, "encodings") == 0) return CmdEncodings(argc - 2, argv + 2);
  if (std::strcmp(cmd, "convert") == 0) return CmdConvert(argc - 2, argv + 2);
  if (std::strcmp(cmd, "path") == 0) return CmdPath(argc - 2, argv + 2);
  if (std::strcmp(cmd, "grep") == 0) return CmdGrep(argc - 2, argv + 2);
  if (std::strcmp(cmd, "bidi") == 0) return CmdBidi(argc - 2, argv + 2);
  if (std::strcmp(cmd, "shape") == 0) return CmdShape(argc - 2, argv + 2);
  if (std::strcmp(cmd, "ini") == 0) return CmdIni(argc - 2, argv + 2);
  if (std::strcmp(cmd, "text") == 0) return CmdText(argc - 2, argv + 2);
  if (std::strcmp(cmd, "xml") == 0) return CmdXml(argc - 2, argv + 2);
  if (std::strcmp(cmd, "rsrc") == 0) return CmdRsrc(argc - 2, argv + 2);
  if (std::strcmp(cmd, "date") == 0) return CmdDate(argc - 2, argv + 2);
  if (std::strcmp(cmd, "color") == 0) return CmdColor(argc - 2, argv + 2);
  std::fprintf(stderr, "vosys: unknown command '%s'\n\n%s", cmd, kUsage);
  return 2;
}
