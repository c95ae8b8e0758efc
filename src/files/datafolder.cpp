// The library's data folder. The build tree and an installation both lay it
// out at the same place relative to the library (VOSYS_LIB_TO_DATA, from
// the library's folder), so a moved installation still finds its data; the
// library's own file is found with dladdr on one of its functions.
//
// The search runs once (a once-flag makes a first use from several threads
// safe; the result is never freed) and uses nothing but the file system: the character database and
// the conversion tables are loaded through it, so it must not ask them.
#include "files/datafolder.h"

#include <dlfcn.h>

#include <cstdlib>
#include <mutex>

#include "vosystem/errors.h"

#ifndef VOSYS_LIB_TO_DATA
#define VOSYS_LIB_TO_DATA "../share/vosystem"
#endif

namespace {

const char kMarker[] = "hdrdesc.ref";

// A name as this system gave it: its bytes are the name, whatever they hold.
FILEPATH SystemPath(const char* bytes) {
  VOSTRING text(UnixEncodeStr);
  text += VOSTRING(bytes, CHAR_ENCODING_UTF8);
  return FILEPATH(text);
}

FILEPATH FindDataFolder() {
  ERRPOSN_DISABLER quiet;
  FILEPATH folder;
  const char* env = getenv("VOSYS_DATA_DIR");
  if (env && *env) {
    folder = SystemPath(env);
  } else {
    Dl_info info;
    if (!dladdr(reinterpret_cast<void*>(&LibraryDataFolder), &info) || !info.dli_fname)
      return FILEPATH();
    folder = SystemPath(info.dli_fname);
    folder.StripLastComponent();
    folder.AppendPath(VOSTRING(VOSYS_LIB_TO_DATA));
  }
  if (!folder.IsFolder()) return FILEPATH();
  const FILEPATH marker(folder, kMarker, CHAR_ENCODING_ASCII);
  return marker.IsFile() ? folder : FILEPATH();
}

}  // namespace

// The folder is kept as plain units, not as a FILEPATH: the texts of
// VOSTRING copies share one body whose count isn't atomic, so a path that
// threads copied at once would be a race.
FILEPATH LibraryDataFolder() {
  static std::once_flag s_once;
  static unsigned short* s_units = nullptr;
  std::call_once(s_once, [] {
    const FILEPATH found = FindDataFolder();
    if (!found.IsEmpty()) s_units = found.GetEncoded().GetString();
  });
  return s_units ? FILEPATH(s_units) : FILEPATH();
}
