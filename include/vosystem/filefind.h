// FILEFIND: an ordered list of folders and the search through it. Its
// static operations build the list for each purpose and settle the order:
// reference data, settings files, executables and temporary files, wherever
// the installation put them.
//
// The Locate operations answer 1 or 0 and leave the error record alone.
#ifndef VOSYSTEM_FILEFIND_H
#define VOSYSTEM_FILEFIND_H

#include <ctime>

#include "vosystem/export.h"
#include "vosystem/filepath.h"
#include "vosystem/vodblary.h"

class VOSYS_API FILEFIND {
 public:
  // Which folders a list holds. FILEFIND(locations) adds them in this order
  // whatever the order of the bits: Locale, Current, Program, Path,
  // SettingsUser, SettingsAllUsers, SettingsUserData, SettingsShared, and
  // Home last.
  typedef unsigned long LOCATIONS;
  enum : unsigned long {
    LOCATION_Locale = 0x001,            // the locale folders (AddLocale)
    LOCATION_Home = 0x002,              // PATHTYPE_Home
    LOCATION_Current = 0x004,           // PATHTYPE_Current
    LOCATION_Program = 0x008,           // PATHTYPE_ProgramFolder
    LOCATION_Path = 0x010,              // the folders of "PATH"
    LOCATION_SettingsUser = 0x100,      // PATHTYPE_SettingsUser, then PATHTYPE_UserData
    LOCATION_SettingsAllUsers = 0x200,  // PATHTYPE_SettingsAllUsers
    LOCATION_SettingsUserData = 0x400,  // PATHTYPE_SettingsUserData
    LOCATION_SettingsShared = 0x800     // PATHTYPE_SettingsShared
  };
  enum ADDPOSN : int { ADDPOSN_Front = 0, ADDPOSN_Tail = 1 };

  // Decides, folder by folder, where a walk (LocatePath) stops: true stops.
  class VOSYS_API FILTER {
   public:
    virtual bool Filter(const FILEPATH& folder) = 0;
    virtual ~FILTER();
  };

  // Where the folder "locale" was found: the parent of one folder per
  // language code. Looked for once per process (by AddLocale); a thread may
  // read it, but must copy it only while no other thread does.
  static FILEPATH s_LocaleDir;

  explicit FILEFIND(LOCATIONS locations = 0);
  FILEFIND(const FILEFIND& other);
  FILEFIND& operator=(const FILEFIND& other);
  ~FILEFIND();

  // An empty path adds nothing; a path naming a file adds its folder.
  void AddPath(const FILEPATH& path, ADDPOSN position);
  // Each piece of list as a path, in list order (so that at the front the
  // pieces end up reversed). separator 0xFFFF means ":"; 0 means a list of
  // zero-terminated strings ended by an empty one.
  void AddString(const unsigned short* list, ADDPOSN position, unsigned short separator);
  // The folders of an environment variable, ":"-separated.
  void AddEnvVar(const char* name, ADDPOSN position);
  // The folder of the language of the default settings ("language" of group
  // "locale"), and with addenglish "enu" too; the chosen language is
  // searched before "enu" at either end.
  void AddLocale(bool addenglish, ADDPOSN position);
  bool IsEmpty() const;
  const VOLIST<FILEPATH>& GetFolders() const { return m_folders; }

  // The first folder holding name (a file or a folder): 1 and its path, or
  // 0 and an empty path. A char* name is taken as bytes below 256.
  int LocateFile(const VOSTRING& name, FILEPATH& path) const;
  int LocateFile(const char* name, FILEPATH& path) const;
  // Every file of every folder that matches pattern, added to the tail of
  // list (which isn't cleared). True if list isn't empty then.
  bool LocateFiles(const VOSTRING& pattern, VOLIST<FILEPATH>& list) const;
  // The first folder the filter stops at: 1 and path; else 0, path as it was.
  int LocatePath(FILTER& filter, FILEPATH& path) const;
  // Creates the empty file name in the first folder where it doesn't exist
  // and can be made: 1 and its path; else 0, path the last one tried.
  int CreateFile(const VOSTRING& name, FILEPATH& path) const;
  int CreateFile(const char* name, FILEPATH& path) const;

  // The current folder, the program's, then the folders of PATH.
  static int LocateExecutableFile(const char* name, FILEPATH& path);
  // The folders of locations, the current folder and the program's folder,
  // and last the data folder installed with the library (found beside the
  // library, or named by VOSYS_DATA_DIR). Each spelling is tried over all of
  // them before the next: name, NAME, name;1, NAME;1 (the upper case is of
  // ASCII letters only).
  static int LocateReferenceFile(const VOSTRING& name, FILEPATH& path, LOCATIONS locations);
  static int LocateReferenceFile(const char* name, FILEPATH& path, LOCATIONS locations);
  // search (bits 0xF0C; 0 means SettingsUser) in the order SettingsUser,
  // UserData, SettingsAllUsers, SettingsUserData, SettingsShared, Current,
  // Program. Not found there: with copyfrom (bits 0xF0E), a copy of the file
  // found in those folders is made in the first search folder. 1 with path,
  // or 0 with path empty.
  static int LocateSettingsFile(const char* name, FILEPATH& path, LOCATIONS search,
                                LOCATIONS copyfrom);
  // The first folder of that list where a new file name can be written:
  // path names it (the file isn't left). 0, -1213 for an empty list, or
  // -1101 when no folder takes it.
  static int MakeSettingsFilePath(const char* name, FILEPATH& path, LOCATIONS locations);
  // Makes a new empty temporary file "<prefix>NNNN.TMP" in a folder with at
  // least size bytes free: the folders of "TEMP", then "TMP" (unless
  // "zephost.ini" says UseTempEnv=No in group "Files"), then its TempFile
  // folders; "/tmp" if that list is empty; the current folder if none has
  // the room. With best, the folder with the most room. 0, -1213 for an
  // empty prefix, or -1110.
  static int MakeTempFile(FILEPATH& path, long long size, bool best, const VOSTRING& prefix);
  static int MakeTempFile(FILEPATH& path, long long size, bool best);  // prefix "temp"

 private:
  VOLIST<FILEPATH> m_folders;
};

// Seconds since 1970 from the fields of t, with no time zone; 0 for a year
// before 1970.
VOSYS_API time_t TimeTFromTM(const tm* t);

#endif
