// FILEFIND: folders in search order, and the searches the library makes
// through them.
//
// Reference files are searched spelling by spelling over the whole list
// (the name as given in every folder, then its upper case in every folder,
// ...), so that a file's own spelling wins in a later folder over another
// spelling in an earlier one. The list ends with the data folder installed
// with the library. Neither this search nor the library's data folder asks
// the character database anything: the database itself is found through
// them, so the upper case is of ASCII letters, and no comparison ignores
// case.
//
// The folder "locale" is looked for once per process, under a once-flag
// (the first use may come from several threads), and a folder not found
// stays not found.
static const char s_ident[] = "@(#) filefind.cpp 1.0";

#include "vosystem/filefind.h"

#include <cstdlib>
#include <cstring>
#include <mutex>

#include "files/datafolder.h"
#include "foundation/errpos.h"
#include "vosystem/fileraw.h"
#include "vosystem/inifuncs.h"
#include "vosystem/ucstring.h"

FILEPATH FILEFIND::s_LocaleDir;

namespace {

const char kHostSettings[] = "zephost.ini";

// The folder of a location; empty when the system has none.
FILEPATH Location(PATHTYPE type) {
  return FILEPATH(type);
}

VOSTRING AsciiUpper(const VOSTRING& name) {
  VOSTRING upper(name);
  for (int i = 0; i < upper.GetLength(); ++i) {
    const unsigned short c = upper[i];
    if (c >= 'a' && c <= 'z') upper.Replace(i, static_cast<unsigned short>(c - 'a' + 'A'));
  }
  return upper;
}

// The walk of a temporary-file search: the first folder with room, or
// with best the one with the most room (the first of equals).
class TEMPFILTER : public FILEFIND::FILTER {
 public:
  TEMPFILTER(bool best, long long required) : m_best(best), m_required(required) {}
  bool Filter(const FILEPATH& folder) override {
    if (!folder.IsWritable()) return false;
    long long space;
    {
      ERRPOSN_DISABLER quiet;
      space = folder.GetAvailableSpace();
    }
    if (m_best) {
      if (space > m_bestSpace && space > m_required) {
        m_chosen = folder;
        m_bestSpace = space;
      }
      return false;
    }
    if (space > m_required) {
      m_chosen = folder;
      return true;
    }
    return false;
  }
  const FILEPATH& Chosen() const { return m_chosen; }

 private:
  bool m_best;
  long long m_required;
  long long m_bestSpace = 0;
  FILEPATH m_chosen;
};

// The settings folders of a location set, in their order (step 2 of both
// settings searches).
FILEFIND SettingsFolders(FILEFIND::LOCATIONS locations) {
  FILEFIND list;
  struct {
    unsigned long bit;
    PATHTYPE type;
  } const kOrder[] = {{FILEFIND::LOCATION_SettingsUser, PATHTYPE_SettingsUser},
                      {FILEFIND::LOCATION_SettingsUser, PATHTYPE_UserData},
                      {FILEFIND::LOCATION_SettingsAllUsers, PATHTYPE_SettingsAllUsers},
                      {FILEFIND::LOCATION_SettingsUserData, PATHTYPE_SettingsUserData},
                      {FILEFIND::LOCATION_SettingsShared, PATHTYPE_SettingsShared},
                      {FILEFIND::LOCATION_Current, PATHTYPE_Current},
                      {FILEFIND::LOCATION_Program, PATHTYPE_ProgramFolder}};
  for (const auto& entry : kOrder)
    if (locations & entry.bit) list.AddPath(Location(entry.type), FILEFIND::ADDPOSN_Tail);
  return list;
}

}  // namespace

FILEFIND::FILTER::~FILTER() = default;

FILEFIND::FILEFIND(LOCATIONS locations) {
  if (locations & LOCATION_Locale) AddLocale(true, ADDPOSN_Tail);
  if (locations & LOCATION_Current) AddPath(Location(PATHTYPE_Current), ADDPOSN_Tail);
  if (locations & LOCATION_Program) AddPath(Location(PATHTYPE_ProgramFolder), ADDPOSN_Tail);
  if (locations & LOCATION_Path) AddEnvVar("PATH", ADDPOSN_Tail);
  if (locations & LOCATION_SettingsUser) {
    AddPath(Location(PATHTYPE_SettingsUser), ADDPOSN_Tail);
    AddPath(Location(PATHTYPE_UserData), ADDPOSN_Tail);
  }
  if (locations & LOCATION_SettingsAllUsers)
    AddPath(Location(PATHTYPE_SettingsAllUsers), ADDPOSN_Tail);
  if (locations & LOCATION_SettingsUserData)
    AddPath(Location(PATHTYPE_SettingsUserData), ADDPOSN_Tail);
  if (locations & LOCATION_SettingsShared) AddPath(Location(PATHTYPE_SettingsShared), ADDPOSN_Tail);
  if (locations & LOCATION_Home) AddPath(Location(PATHTYPE_Home), ADDPOSN_Tail);
}

FILEFIND::FILEFIND(const FILEFIND& other) {
  for (const FILEPATH& folder : other.m_folders) m_folders.AddTail(folder);
}

FILEFIND& FILEFIND::operator=(const FILEFIND& other) {
  if (this == &other) return *this;
  m_folders.Clear();
  for (const FILEPATH& folder : other.m_folders) m_folders.AddTail(folder);
  return *this;
}

FILEFIND::~FILEFIND() = default;

bool FILEFIND::IsEmpty() const {
  return m_folders.IsEmpty();
}

// A path that names a file stands for its folder: no search could find
// anything under a file.
void FILEFIND::AddPath(const FILEPATH& path, ADDPOSN position) {
  if (path.IsEmpty()) return;
  FILEPATH folder(path);
  if (!folder.IsPathOnly()) folder.StripLastComponent();
  if (position == ADDPOSN_Front)
    m_folders.AddHead(folder);
  else
    m_folders.AddTail(folder);
}

void FILEFIND::AddString(const unsigned short* list, ADDPOSN position, unsigned short separator) {
  if (!list || !*list) return;
  if (separator == 0) {
    for (const unsigned short* p = list; *p; p += ucstrlen(p) + 1) AddPath(FILEPATH(p), position);
    return;
  }
  if (separator == 0xFFFF) separator = ':';
  const VOSTRING text(list);
  for (int start = 0; start <= text.GetLength();) {
    int end = text.FindNextOf(separator, start);
    if (end < 0) end = text.GetLength();
    if (end > start) AddPath(FILEPATH(text.GetSubString(start, end - 1)), position);
    start = end + 1;
  }
}

void FILEFIND::AddEnvVar(const char* name, ADDPOSN position) {
  VOSTRING value;
  if (FILEPATH::GetEnvPath(name, value)) AddString(value, position, 0xFFFF);
}

// The folder is kept as plain units besides s_LocaleDir: the paths built
// from it must share no text between threads (a VOSTRING body's count isn't
// atomic), so none is a copy of s_LocaleDir.
void FILEFIND::AddLocale(bool addenglish, ADDPOSN position) {
  static std::once_flag s_found;
  static unsigned short* s_units = nullptr;
  std::call_once(s_found, [] {
    FILEPATH found;
    if (!LocateReferenceFile("locale", found, 0)) return;
    s_units = found.GetEncoded().GetString();
    if (s_units) s_LocaleDir = FILEPATH(s_units);
  });
  if (!s_units) return;
  const FILEPATH english(FILEPATH(s_units), "enu", CHAR_ENCODING_ASCII);
  if (addenglish && position == ADDPOSN_Front) AddPath(english, ADDPOSN_Front);
  VOSTRING language;
  if (language.IniRead(nullptr, "locale", "language"))
    AddPath(FILEPATH(FILEPATH(s_units), language), position);
  if (addenglish && position == ADDPOSN_Tail) AddPath(english, ADDPOSN_Tail);
}

int FILEFIND::LocateFile(const VOSTRING& name, FILEPATH& path) const {
  for (const FILEPATH& folder : m_folders) {
    path = folder;
    path.AppendPath(name);
    if (path.Exists()) return 1;
  }
  path.Clear();
  return 0;
}

int FILEFIND::LocateFile(const char* name, FILEPATH& path) const {
  return LocateFile(VOSTRING(name), path);
}

bool FILEFIND::LocateFiles(const VOSTRING& pattern, VOLIST<FILEPATH>& list) const {
  for (const FILEPATH& folder : m_folders) {
    VOLIST<VOSTRING> names;
    {
      ERRPOSN_DISABLER quiet;  // a folder that is a file has no children
      folder.GetChildren(names, pattern, CHILDTYPE_File);
    }
    for (const VOSTRING& name : names) {
      VOSTRING text(UnixEncodeStr);  // a name as the system gave it
      text += name;
      FILEPATH child(folder);
      child.AppendPath(text);
      list.AddTail(child);
    }
  }
  return !list.IsEmpty();
}

int FILEFIND::LocatePath(FILTER& filter, FILEPATH& path) const {
  for (const FILEPATH& folder : m_folders) {
    if (filter.Filter(folder)) {
      path = folder;
      return 1;
    }
  }
  return 0;
}

int FILEFIND::CreateFile(const VOSTRING& name, FILEPATH& path) const {
  for (const FILEPATH& folder : m_folders) {
    path = folder;
    path.AppendPath(name);
    if (path.Exists()) continue;
    FILE_RAW file;
    ERRPOSN_DISABLER quiet;
    if (file.Open(path, FILE_ACCESS_CreateNew, FILE_SHARE_All) >= 0) return 1;
  }
  return 0;
}

int FILEFIND::CreateFile(const char* name, FILEPATH& path) const {
  return CreateFile(VOSTRING(name), path);
}

int FILEFIND::LocateExecutableFile(const char* name, FILEPATH& path) {
  return FILEFIND(LOCATION_Current | LOCATION_Program | LOCATION_Path).LocateFile(name, path);
}

int FILEFIND::LocateReferenceFile(const VOSTRING& name, FILEPATH& path, LOCATIONS locations) {
  FILEFIND list(locations | LOCATION_Current | LOCATION_Program);
  list.AddPath(LibraryDataFolder(), ADDPOSN_Tail);
  const VOSTRING upper = AsciiUpper(name);
  VOSTRING disc(name), discUpper(upper);
  disc += ";1";
  discUpper += ";1";
  const VOSTRING* const spellings[] = {&name, &upper, &disc, &discUpper};
  for (const VOSTRING* spelling : spellings)
    if (list.LocateFile(*spelling, path)) return 1;
  return 0;
}

int FILEFIND::LocateReferenceFile(const char* name, FILEPATH& path, LOCATIONS locations) {
  return LocateReferenceFile(VOSTRING(name), path, locations);
}

int FILEFIND::LocateSettingsFile(const char* name, FILEPATH& path, LOCATIONS search,
                                 LOCATIONS copyfrom) {
  search &= 0xF0C;
  if (search == 0) search = LOCATION_SettingsUser;
  const FILEFIND list = SettingsFolders(search);
  if (list.LocateFile(name, path)) return 1;
  if (list.IsEmpty() || (copyfrom & 0xF0E) == 0) return 0;
  FILEPATH source;
  if (!FILEFIND(copyfrom & 0xF0E).LocateFile(name, source)) {
    path.Clear();
    return 0;
  }
  path = FILEPATH(*list.m_folders.begin(), name, CHAR_ENCODING_ASCII);
  ERRPOSN_DISABLER quiet;
  if (path.CopyFileFrom(source, nullptr, nullptr) >= 0) return 1;
  path.Clear();
  return 0;
}

int FILEFIND::MakeSettingsFilePath(const char* name, FILEPATH& path, LOCATIONS locations) {
  if (!name) return SETERR(VOERROR_InvalidArgument);
  const FILEFIND list = SettingsFolders(locations);
  if (list.IsEmpty()) return SETERR(VOERROR_InvalidArgument);
  if (list.CreateFile(name, path)) {
    ERRPOSN_DISABLER quiet;
    if (path.Exists()) path.Remove();
    return 0;
  }
  const int rc = SETERR(VOERROR_CannotCreate);
  GetErrString() << name;
  return rc;
}

int FILEFIND::MakeTempFile(FILEPATH& path, long long size, bool best, const VOSTRING& prefix) {
  path.Clear();
  if (prefix.IsEmpty()) return SETERR(VOERROR_InvalidArgument);
  FILEFIND list;
  int useenv = 1;
  void* host = nullptr;
  int rc;
  {
    ERRPOSN_DISABLER quiet;  // no machine settings is the common case
    rc = IniOpen(kHostSettings, &host, INIOPEN_ReadOnly);
  }
  if (rc >= 0) {
    VOSTRING folders;
    if (folders.IniRead(host, "Files", "TempFile")) list.AddString(folders, ADDPOSN_Front, 0xFFFF);
    _iniRead(host, "Files", "UseTempEnv", INITYPE_Boolean, &useenv, 1);
    IniClose(host);
    if (list.IsEmpty() && !useenv && !FILEPATH(PATHTYPE_Current).IsWritable()) useenv = 1;
  }
  if (useenv) {
    list.AddEnvVar("TMP", ADDPOSN_Front);
    list.AddEnvVar("TEMP", ADDPOSN_Front);
  }
  if (list.IsEmpty()) list.AddPath(FILEPATH("/tmp", CHAR_ENCODING_ASCII), ADDPOSN_Tail);
  TEMPFILTER filter(best, size);
  FILEPATH folder;
  list.LocatePath(filter, folder);
  folder = filter.Chosen();
  if (folder.IsEmpty()) {
    const FILEPATH current(PATHTYPE_Current);
    long long space;
    {
      ERRPOSN_DISABLER quiet;
      space = current.GetAvailableSpace();
    }
    if (!current.IsWritable() || space < size) return SETERR(VOERROR_TempFile);
    folder = current;
  }
  rc = path.GenerateTempFile(folder, prefix);
  return rc < 0 ? PASSERR(rc) : 0;
}

int FILEFIND::MakeTempFile(FILEPATH& path, long long size, bool best) {
  return MakeTempFile(path, size, best, VOSTRING("temp"));
}
