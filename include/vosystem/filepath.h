// FILEPATH: the library's one form of a file or folder name, and what it can
// do on the file system.
//
// A path is kept as UTF-16 text with "/" as its only separator and no
// trailing "/" (except the root "/"), whatever syntax it was written in:
//   "!UNIX!/a/b"       the stored form of this system's paths;
//   "!PC!C:\\a\\b"     a Windows path (drive or \\host\share removed);
//   "!MAC!Disk:a:b"    a classic Mac path (colon syntax, volume removed);
//   "C:\\a", "\\\\h\\s\\a", "/a", "a/b", "../a", "./a"   without a code.
// Relative texts are resolved against the path they are appended to (or the
// current folder). Every comparison ignores case. A name on the disk may hold
// ":", which is how a "/" typed in a name is kept; the display form shows it.
//
// Names reach the operating system, and come back from it, as UTF-8 bytes.
#ifndef VOSYSTEM_FILEPATH_H
#define VOSYSTEM_FILEPATH_H

#include <ctime>

#include "vosystem/export.h"
#include "vosystem/ucconv.h"
#include "vosystem/vodblary.h"
#include "vosystem/vostring.h"

// The path codes: the prefix naming the syntax of the text behind it.
extern VOSYS_API const char* MacEncodeStr;   // "!MAC!"
extern VOSYS_API const char* WinEncodeStr;   // "!PC!"
extern VOSYS_API const char* UnixEncodeStr;  // "!UNIX!"

// Locations SetSystemPath derives. On this system:
//   Current, Home ("home" or "HOME"), Program (the program's file, or the
//   current folder until SetModuleFileName), ProgramFolder, Desktop (home
//   plus "Desktop"); Data: the folder of the program that holds
//   "hdrdesc.ref", else the current folder.
//   UserData: $XDG_DATA_HOME/Larkspindle (by default
//   ~/.local/share/Larkspindle), made if missing; if it can't be made,
//   ~/.Larkspindle.
//   Shared: "/var/lib/Larkspindle/shared" when "/var/lib/Larkspindle" exists
//   or can be made, else UserData plus "shared". The last folder isn't made.
//   SettingsUser: Data/Settings/<user>; SettingsAllUsers: Data/Settings/
//   AllUsers; SettingsUserData: UserData/Settings; SettingsShared:
//   Shared/Settings; each made if missing.
//   4, 5, 6 and 17 on: no location (an empty path); 9 and 11 are Home.
// The library never makes a folder at the top of the file system.
enum PATHTYPE : int {
  PATHTYPE_Current = 0,
  PATHTYPE_Home = 1,
  PATHTYPE_Program = 2,
  PATHTYPE_Desktop = 3,
  PATHTYPE_Data = 7,
  PATHTYPE_ProgramFolder = 8,
  PATHTYPE_Shared = 10,
  PATHTYPE_UserData = 12,
  PATHTYPE_SettingsUser = 13,
  PATHTYPE_SettingsAllUsers = 14,
  PATHTYPE_SettingsUserData = 15,
  PATHTYPE_SettingsShared = 16
};

enum PERMISSION : int {
  PERMISSION_None = 0,
  PERMISSION_Exists = 1,
  PERMISSION_Read = 2,
  PERMISSION_Write = 3,
  PERMISSION_ReadWrite = 4,
  PERMISSION_Execute = 5
};

// Any other value lists every kind.
enum CHILDTYPE : int { CHILDTYPE_Any = 0, CHILDTYPE_Folder = 1, CHILDTYPE_File = 2 };

class VOSYS_API FILEPATH {
 public:
  static const unsigned short s_SepMark;   // '/'
  static const unsigned short s_RelMark;   // '.'
  static const unsigned short s_ExtnMark;  // '.'
  static const char* const s_BackTagStr;   // "../"
  static const char* const s_SameDirStr;   // "./"
  static const char* s_EncodeStr;          // the code this system writes: "!UNIX!"
  static VOSTRING* s_argv0;                // the program's file, once set

  // ---- construction: every text goes through AppendPath
  FILEPATH();
  FILEPATH(const FILEPATH& other);
  explicit FILEPATH(const VOSTRING& text);
  explicit FILEPATH(const unsigned short* text);
  FILEPATH(const char* text, CHAR_ENCODING e);
  // base, with name appended when base isn't an existing file.
  FILEPATH(const FILEPATH& base, const VOSTRING& name);
  FILEPATH(const FILEPATH& base, const unsigned short* name);
  FILEPATH(const FILEPATH& base, const char* name, CHAR_ENCODING e);
  explicit FILEPATH(PATHTYPE type);
  // The path stored in a settings field (IniRead).
  FILEPATH(void* inihandle, const char* group, const char* field);
  ~FILEPATH();

  FILEPATH& operator=(const FILEPATH& other);
  FILEPATH& operator=(const VOSTRING& text);
  FILEPATH& operator=(const unsigned short* text);
  FILEPATH& Assign(const char* text, CHAR_ENCODING e);
  FILEPATH& operator+=(const VOSTRING& text);
  FILEPATH& operator+=(const unsigned short* text);
  FILEPATH& operator+=(const char* text);  // bytes as code points below 256
  FILEPATH& Append(const char* text, CHAR_ENCODING e);
  void Clear();

  // ---- the text alone
  bool IsEmpty() const;
  bool IsRootOnly() const;
  bool IsUNCRoot() const;      // begins "//"
  bool IsUNCHostOnly() const;  // false
  bool IsEqual(const FILEPATH& other) const;
  bool IsLessThan(const FILEPATH& other) const;
  // The path begins with other's text, ignoring case. A text test, never an
  // access check.
  bool Contains(const FILEPATH& other) const;
  int GetExtnPosn() const;  // the last "." with no "/" after it, or -1
  bool HasExtension() const;
  VOSTRING GetExtension() const;
  VOSTRING GetName() const;
  // True when ext matches the extension; a letter of ext also matches its
  // upper-case form in the path. No extension matches only a null or empty ext.
  bool IsSameExtn(const char* ext) const;
  bool IsSameExtn(const VOSTRING& ext) const;
  int GetRootEndPosn() const;

  // ---- the text, with one look at the disk
  VOSTRING GetNameOnly() const;
  FILEPATH GetPathOnly() const;
  bool IsChildPath(const FILEPATH& other) const;
  void StripExtension();
  void SetExtension(const VOSTRING& ext);
  void SetExtension(const char* ext, CHAR_ENCODING e);
  void SetName(const VOSTRING& name);
  void SetName(const char* name, CHAR_ENCODING e);

  // ---- edits of the text
  void StripLastComponent();
  void StripToRoot();
  void ReplaceRoot(const FILEPATH& other);
  void AppendPath(const VOSTRING& text);
  void JoinRelativePath(const VOSTRING& rel);

  // ---- forms
  VOSTRING GetVioPath() const;
  VOSTRING GetOSPath() const;
  // The bytes every system call gets; free() them. Null when the text can't
  // be encoded (and for the empty path).
  char* GenerateOSPath() const;
  char* GenerateEncodedOSPath() const;
  VOSTRING GetEncoded() const;     // "!UNIX!/a/b", for storing
  VOSTRING GetDisplay() const;     // components holding ":" quoted, ":" shown as "/"
  VOSTRING GetQuotedPath() const;  // components holding a blank quoted

  // ---- settings (inifuncs.h)
  // Clears the path, then appends the text of the field: a stored path
  // keeps its code ("!UNIX!", "!PC!", ...), which says how to read it. 1 if
  // the field held a path, else 0.
  int IniRead(void* handle, const char* group, const char* field);
  // Stores GetEncoded(): 0 or a negative code.
  int IniWrite(void* handle, const char* group, const char* field) const;

  // ---- statics
  static int IsRelativePath(const unsigned short* text);
  static void SetModuleFileName(const char* argv0, CHAR_ENCODING e);
  static int GetEnvPath(const char* name, VOSTRING& value);
  static VOSTRING ConvertNameToDisplay(const VOSTRING& name);
  void GetWindowsFolderPath(int folder);  // empties the path on this system

  // This path as stored relative to base: "!UNIX!./c.txt" or "!UNIX!../d"
  // (appended to base, it gives this path), "." for equal paths, or this
  // path's stored form, to be taken as it stands, when the two share no
  // folder. Empty if either is empty.
  VOSTRING GetRelativePath(const FILEPATH& base) const;
  VOSTRING GetRelativePath(PATHTYPE type) const;
  void SetSystemPath(PATHTYPE type);

  // ---- tests on the disk (1 or 0; no error is left behind by the first three)
  int Exists() const;
  int IsReadable() const;
  int IsWritable() const;
  int IsFile() const;
  int IsFolder() const;
  int IsPathOnly() const;  // a folder, or nothing at all
  int CheckAccess(PERMISSION p) const;
  PERMISSION GetPermission() const;
  int SetPermission(PERMISSION p) const;

  // ---- listing: newest readdir entry first
  int GetChildren(VOLIST<VOSTRING>& list, const VOSTRING& pattern, CHILDTYPE type) const;
  int GetChildren(VOLIST<VOSTRING>& list, CHILDTYPE type) const;
  bool HasChildren(CHILDTYPE type) const;
  int GetComponents(VOLIST<VOSTRING>& list) const;  // "", then each component
  static int GetDriveList(VOLIST<VOSTRING>& list);

  // ---- making and removing
  int Make(bool recursive) const;
  int MakePath() const;
  int Remove() const;
  int Rename(const VOSTRING& name);
  int Rename(const FILEPATH& target) const;
  // Copies the data of source here. progress(total, remaining, data) is
  // called before each block; a negative result stops the copy with it. A
  // copy that fails leaves no target behind.
  int CopyFileFrom(const FILEPATH& source,
                   int (*progress)(long long total, long long remaining, void* data),
                   void* data) const;
  // Makes a new empty file "<prefix>NNNN.TMP" in folder and takes its path.
  int GenerateTempFile(const FILEPATH& folder, const VOSTRING& prefix);

  // ---- sizes and times
  long long GetSize() const;
  long long GetAvailableSpace() const;
  int GetFileSysType() const;  // 5 read-only, 0 otherwise
  long long GetSystemMaxSize() const;
  int GetTimeCreated(long* t) const;  // the status-change time on this system
  int GetTimeModified(long* t) const;
  int SetTimeCreated(const tm* t) const;  // 0: nothing to set on this system
  int SetTimeCreated(long t) const;
  int SetTimeModified(const tm* t) const;
  int SetTimeModified(long t) const;

  // ---- search and reduction
  void StripToExisting();
  void StripToFolder();
  int SearchCase();
  int SearchIterative(const FILEPATH& base);

  // ---- Macintosh file information, by extension
  int GetMacFileType(char* creator, char* type) const;
  int SetMacFileType(const char* creator, const char* type) const;

  // Completes the record of a failed system call while errno holds its
  // number: the translated code, the path and the number. Returns the code.
  int GenerateErrorCode(int defaultcode) const;

  const VOSTRING& GetText() const { return *m_path; }

 private:
  VOSTRING& Mutable();  // the text, to be changed
  VOSTRING* m_path;     // never null
};

// 0 no code, 1 "!PC!", 2 "!MAC!", 3 "!UNIX!"; the code is removed from text.
VOSYS_API int StripPathCode(VOSTRING& text);
// Wildcard comparison: "?" one character, "*" any run. 0 on a match, else a
// value whose sign orders the two. The texts are UTF-8.
VOSYS_API int strwcmp(const char* pattern, const char* text, bool casesensitive);
// The folder-listing filter: null, "*" and "*.*" match all; 1 on a match.
VOSYS_API int match(const char* pattern, const char* name);

// Extension, creator and type; ended by a row with a null extension.
extern VOSYS_API const char* const MacCreatorCodes[][3];

#endif
