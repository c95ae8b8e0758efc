// FILEPATH: the system locations and the program's own path.

#include <unistd.h>
#include <cerrno>
#include <cstdlib>
#include <new>
#include <string>

#include "files/datafolder.h"
#include "files/ospath.h"
#include "vosystem/errors.h"
#include "vosystem/filefind.h"
#include "vosystem/filepath.h"
#include "vosystem/system.h"

namespace {

const char kProduct[] = "Larkspindle";
const char kSharedSystemFolder[] = "/var/lib/Larkspindle";
const char kMarker[] = "hdrdesc.ref";

// A name the system gave, taken in this system's own syntax: a backslash, a
// "C:" or a leading "!x!" in it is part of the name.
VOSTRING SystemName(const VOSTRING& name) {
  VOSTRING s(UnixEncodeStr);
  s += name;
  return s;
}

// Makes the folder and the folders above it that are missing, but never one
// at the top of the file system (whose parent is the root): settings and
// data folders belong under a home or a system folder. 0 or a failure.
int MakeBelowTop(const FILEPATH& folder) {
  if (folder.IsFolder()) return 0;
  FILEPATH existing(folder);
  existing.StripToExisting();
  if (existing.IsEmpty() || existing.IsRootOnly()) return VOERROR_CannotMakeDir;
  return folder.Make(true);
}

std::string CurrentFolderBytes() {
  std::string buf(256, '\0');
  for (;;) {
    if (getcwd(&buf[0], buf.size())) return std::string(buf.c_str());
    if (errno != ERANGE || buf.size() > (1u << 20)) return std::string();
    buf.resize(buf.size() * 2);
  }
}

}  // namespace

int FILEPATH::GetEnvPath(const char* name, VOSTRING& value) {
  value = VOSYSTEM::GetEnvironmentValue(name);
  return !value.IsEmpty();
}

void FILEPATH::SetSystemPath(PATHTYPE type) {
  ERRPOSN_DISABLER quiet;
  Clear();
  VOSTRING value;
  switch (static_cast<int>(type)) {
    case PATHTYPE_Current: {
      const std::string cwd = CurrentFolderBytes();
      if (!cwd.empty()) AppendPath(SystemName(OsTextToString(cwd.c_str())));
      break;
    }
    case PATHTYPE_Home:
    case 9:
    case 11:
      if (GetEnvPath("home", value) || GetEnvPath("HOME", value)) AppendPath(SystemName(value));
      break;
    case PATHTYPE_Program:
      if (s_argv0 && !s_argv0->IsEmpty())
        AppendPath(SystemName(*s_argv0));
      else
        SetSystemPath(PATHTYPE_Current);
      break;
    case PATHTYPE_Desktop:
      SetSystemPath(PATHTYPE_Home);
      if (!IsEmpty()) AppendPath(VOSTRING("Desktop"));
      break;
    case PATHTYPE_Data: {
      // The program's folder when it holds the marker; then the data
      // folder installed with the library; then the current folder.
      SetSystemPath(PATHTYPE_ProgramFolder);
      AppendPath(VOSTRING(kMarker));
      if (IsFile()) {
        StripLastComponent();
        break;
      }
      const FILEPATH data = LibraryDataFolder();
      if (!data.IsEmpty())
        *this = data;
      else
        SetSystemPath(PATHTYPE_Current);
      break;
    }
    case PATHTYPE_ProgramFolder:
      SetSystemPath(PATHTYPE_Program);
      StripLastComponent();
      break;
    case PATHTYPE_Shared: {
      FILEPATH system(kSharedSystemFolder, CHAR_ENCODING_ASCII);
      if (system.IsFolder() || system.Make(true) >= 0)
        *this = system;
      else
        SetSystemPath(PATHTYPE_UserData);
      if (!IsEmpty()) AppendPath(VOSTRING("shared"));
      break;
    }
    case PATHTYPE_UserData: {
      // $XDG_DATA_HOME (when absolute), else ~/.local/share; then the
      // product's folder, made if missing. Failing that ~/.Larkspindle.
      if (GetEnvPath("XDG_DATA_HOME", value) && value[0] == '/') {
        AppendPath(SystemName(value));
      } else {
        SetSystemPath(PATHTYPE_Home);
        if (IsEmpty()) break;
        AppendPath(VOSTRING(".local/share"));
      }
      AppendPath(VOSTRING(kProduct));
      if (MakeBelowTop(*this) >= 0) break;
      SetSystemPath(PATHTYPE_Home);
      if (IsEmpty()) break;
      AppendPath(VOSTRING(".") += VOSTRING(kProduct));
      MakeBelowTop(*this);
      break;
    }
    case PATHTYPE_SettingsUser:
    case PATHTYPE_SettingsAllUsers:
      SetSystemPath(PATHTYPE_Data);
      if (IsEmpty()) break;
      AppendPath(VOSTRING("Settings"));
      AppendPath(type == PATHTYPE_SettingsUser ? VOSYSTEM::GetCurrentUserName()
                                               : VOSTRING("AllUsers"));
      MakeBelowTop(*this);
      break;
    case PATHTYPE_SettingsUserData:
    case PATHTYPE_SettingsShared:
      SetSystemPath(type == PATHTYPE_SettingsUserData ? PATHTYPE_UserData : PATHTYPE_Shared);
      if (IsEmpty()) break;
      AppendPath(VOSTRING("Settings"));
      MakeBelowTop(*this);
      break;
    default:  // no such location here
      break;
  }
}

void FILEPATH::SetModuleFileName(const char* argv0, CHAR_ENCODING e) {
  delete s_argv0;
  s_argv0 = nullptr;
  if (!argv0) return;
  ERRPOSN_DISABLER quiet;
  VOSTRING text;
  text.Assign(argv0, e);
  FILEPATH given(SystemName(text));
  // A bare name or a relative path is looked for in the current folder,
  // then in the folders of PATH; an absolute one that isn't there, by its
  // name the same way.
  const FILEFIND search(FILEFIND::LOCATION_Current | FILEFIND::LOCATION_Path);
  FILEPATH result;
  if (text.FindNextOf('/') >= 0 && !IsRelativePath(text)) {
    result = given;
    FILEPATH found;
    if (!given.IsFile() && search.LocateFile(given.GetName(), found)) result = found;
  } else if (!search.LocateFile(text, result)) {
    result = given;
  }
  s_argv0 = new (std::nothrow) VOSTRING(result.GetText());
}
