// vosys text: a text resource by number or by name; and --lang, which makes
// the library read the texts of another language.
//
// The library takes the language from key "language" of group "locale" of
// the default settings file, which it looks for in the user's folders. So
// --lang writes such a file into a temporary folder of its own, makes that
// folder the home folder of this process before the library looks, and
// removes it when the process ends: the user's own settings are neither
// read nor touched.
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>

#include "commands.h"
#include "vosystem/textres.h"
#include "vosystem/ucconv.h"

namespace {

std::string g_home;  // the temporary home folder, or empty

void RemoveHome() {
  if (g_home.empty()) return;
  std::error_code ignored;
  std::filesystem::remove_all(g_home, ignored);
  g_home.clear();
}

bool IsLanguageCode(const char* code) {
  const size_t n = std::strlen(code);
  if (n < 1 || n > 16) return false;
  for (size_t i = 0; i < n; ++i) {
    const char c = code[i];
    if (!((c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '-' ||
          c == '_'))
      return false;
  }
  return true;
}

void PrintText(const VOSTRING& text) {
  char* utf8 = text.GetEncoded(CHAR_ENCODING_UTF8);
  std::printf("%s\n", utf8 ? utf8 : "");
  std::free(utf8);
}

}  // namespace

bool UseLanguage(const char* code) {
  if (!IsLanguageCode(code)) {
    std::fprintf(stderr, "vosys: '%s' is no language code (such as fra)\n", code);
    return false;
  }
  const char* tmp = std::getenv("TMPDIR");
  std::string folder = std::string(tmp && *tmp ? tmp : "/tmp") + "/vosys-lang-XXXXXX";
  if (!mkdtemp(&folder[0])) {
    std::fprintf(stderr, "vosys: can't make a temporary folder: %s\n", std::strerror(errno));
    return false;
  }
  g_home = folder;
  std::atexit(RemoveHome);
  // Language codes are lower case, as the files' names are.
  std::string lower(code);
  for (char& c : lower)
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
  FILE* f = std::fopen((folder + "/zepproc.ini").c_str(), "w");
  if (!f || std::fprintf(f, "[locale]\nlanguage=%s\n", lower.c_str()) < 0 || std::fclose(f) != 0) {
    std::fprintf(stderr, "vosys: can't write the temporary settings in %s\n", folder.c_str());
    return false;
  }
  // The settings search begins in the user's data folder, which follows
  // XDG_DATA_HOME or else the home folder ("home" before "HOME").
  unsetenv("XDG_DATA_HOME");
  unsetenv("home");
  setenv("HOME", folder.c_str(), 1);
  return true;
}

int CmdText(int argc, char** argv) {
  if (argc != 1 || !*argv[0]) {
    std::fputs(
        "usage: vosys text NUMBER|NAME   (e.g. 9501, -1102, text-encoding.KOI-8,\n"
        "                                label:NAME, title:NAME, help:NAME)\n",
        stderr);
    return 2;
  }
  const char* key = argv[0];
  char* end = nullptr;
  errno = 0;
  const long long id = std::strtoll(key, &end, 10);
  if (*end == 0 && errno != ERANGE && id >= INT_MIN && id <= INT_MAX) {
    const VOSTRING text = TEXTRES::GetString(static_cast<int>(id));
    PrintText(text);
    return text.IsEmpty() ? 1 : 0;
  }
  static const struct {
    const char* prefix;
    TEXTRES_NAMESET set;
  } kSets[] = {{"text:", TEXTRES_NAMESET_Text},
               {"label:", TEXTRES_NAMESET_Label},
               {"title:", TEXTRES_NAMESET_Title},
               {"help:", TEXTRES_NAMESET_Help}};
  TEXTRES_NAMESET set = TEXTRES_NAMESET_Text;
  for (const auto& s : kSets) {
    const size_t n = std::strlen(s.prefix);
    if (std::strncmp(key, s.prefix, n) == 0) {
      set = s.set;
      key += n;
      break;
    }
  }
  PrintText(TEXTRES::GetString(key, set));
  return TEXTRES::HasEntry(key, set) ? 0 : 1;
}
