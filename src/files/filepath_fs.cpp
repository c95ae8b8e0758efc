// FILEPATH: the operations that act on the file system.
//
// Each builds the path's bytes for the system (GenerateOSPath) and calls it;
// a failed call completes its record with GenerateErrorCode while errno is
// intact. Names read from a folder are taken in this system's own syntax.
static const char s_ident[] = "@(#) filepath_fs.cpp 1.0";

#include <dirent.h>
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>
#include <utime.h>

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "files/ospath.h"
#include "foundation/errpos.h"
#include "vosystem/errors.h"
#include "vosystem/filefind.h"
#include "vosystem/filepath.h"
#include "vosystem/fileraw.h"
#include "vosystem/memfunc.h"
#include "vosystem/system.h"

namespace {

// The path's bytes for one system call, freed on the way out.
class OSPATH {
 public:
  explicit OSPATH(const FILEPATH& path) : m_bytes(path.GenerateOSPath()) {}
  ~OSPATH() { free(m_bytes); }
  OSPATH(const OSPATH&) = delete;
  OSPATH& operator=(const OSPATH&) = delete;
  explicit operator bool() const { return m_bytes != nullptr; }
  const char* c_str() const { return m_bytes; }

 private:
  char* m_bytes;
};

bool Stat(const FILEPATH& path, struct stat* st) {
  OSPATH os(path);
  return os && stat(os.c_str(), st) == 0;
}

// A name from a folder listing as text. ASCII names, the common case, are
// widened without a conversion.
VOSTRING NameOf(const char* bytes) {
  const unsigned char* p = reinterpret_cast<const unsigned char*>(bytes);
  while (*p && *p < 0x80) ++p;
  if (!*p) return VOSTRING(bytes);
  return OsTextToString(bytes);
}

// What a folder entry is: a folder, something else, or unknown (gone).
enum ENTRYKIND { ENTRY_Gone, ENTRY_Folder, ENTRY_Other };

ENTRYKIND KindOf(DIR* dir, const dirent* entry) {
#ifdef _DIRENT_HAVE_D_TYPE
  if (entry->d_type == DT_DIR) return ENTRY_Folder;
  if (entry->d_type != DT_UNKNOWN && entry->d_type != DT_LNK) return ENTRY_Other;
#endif
  // A link counts as what it points to, as stat sees it.
  struct stat st;
  if (fstatat(dirfd(dir), entry->d_name, &st, 0) != 0) return ENTRY_Gone;
  return S_ISDIR(st.st_mode) ? ENTRY_Folder : ENTRY_Other;
}

bool IsDotEntry(const char* name) {
  return name[0] == '.' && (name[1] == 0 || (name[1] == '.' && name[2] == 0));
}

bool Fits(CHILDTYPE type, ENTRYKIND kind) {
  if (type == CHILDTYPE_Folder) return kind == ENTRY_Folder;
  if (type == CHILDTYPE_File) return kind == ENTRY_Other;
  return true;
}

}  // namespace

// ---------------------------------------------------------------- tests

int FILEPATH::Exists() const {
  ERRPOSN_DISABLER quiet;
  return CheckAccess(PERMISSION_Exists) == 0;
}

int FILEPATH::IsReadable() const {
  ERRPOSN_DISABLER quiet;
  return CheckAccess(PERMISSION_Read) == 0;
}

int FILEPATH::IsWritable() const {
  ERRPOSN_DISABLER quiet;
  return CheckAccess(PERMISSION_Write) == 0;
}

int FILEPATH::IsFile() const {
  struct stat st;
  return Stat(*this, &st) && !S_ISDIR(st.st_mode);
}

int FILEPATH::IsFolder() const {
  struct stat st;
  return Stat(*this, &st) && S_ISDIR(st.st_mode);
}

int FILEPATH::IsPathOnly() const {
  struct stat st;
  return !Stat(*this, &st) || S_ISDIR(st.st_mode);
}

int FILEPATH::CheckAccess(PERMISSION p) const {
  static const int kModes[] = {F_OK, F_OK, R_OK, W_OK, R_OK | W_OK, X_OK};
  OSPATH os(*this);
  if (!os) {
    const int rc = SETERR(VOERROR_FileNotFound);
    PushErrFileName(GetDisplay());
    return rc;
  }
  const int mode = p >= 0 && p <= PERMISSION_Execute ? kModes[p] : F_OK;
  if (access(os.c_str(), mode) == 0) return 0;
  return GenerateErrorCode(VOERROR_FileNotFound);
}

PERMISSION FILEPATH::GetPermission() const {
  OSPATH os(*this);
  if (!os || access(os.c_str(), F_OK) != 0) return PERMISSION_None;
  PERMISSION result = PERMISSION_Exists;
  if (access(os.c_str(), R_OK) == 0) result = PERMISSION_Read;
  if (access(os.c_str(), W_OK) == 0) result = PERMISSION_Write;
  if (access(os.c_str(), X_OK) == 0) result = PERMISSION_Execute;
  return result;
}

int FILEPATH::SetPermission(PERMISSION p) const {
  OSPATH os(*this);
  if (!os) return 0;
  struct stat st;
  if (stat(os.c_str(), &st) != 0) return GenerateErrorCode(VOERROR_PermissionDenied);
  mode_t mode = st.st_mode & 07777;
  if (p == PERMISSION_Write || p == PERMISSION_ReadWrite)
    mode |= S_IRUSR | S_IWUSR;
  else
    mode = (mode | S_IRUSR) & ~static_cast<mode_t>(S_IWUSR | S_IWGRP | S_IWOTH);
  if (chmod(os.c_str(), mode) != 0) return GenerateErrorCode(VOERROR_PermissionDenied);
  return 0;
}

// ---------------------------------------------------------------- listing

int FILEPATH::GetChildren(VOLIST<VOSTRING>& list, const VOSTRING& pattern, CHILDTYPE type) const {
  list.Clear();
  if (IsFile()) return SETERR(VOERROR_InvalidArgument);
  OSPATH os(*this);
  if (!os) return list.GetCount();
  DIR* dir = opendir(os.c_str());
  if (!dir) return 0;
  char* filter = type == CHILDTYPE_File ? pattern.GetEncoded(kOsTextEncoding) : nullptr;
  int rc = 0;
  while (const dirent* entry = readdir(dir)) {
    if (IsDotEntry(entry->d_name)) continue;
    if (type == CHILDTYPE_Folder || type == CHILDTYPE_File) {
      if (!Fits(type, KindOf(dir, entry))) continue;
      if (type == CHILDTYPE_File && !match(filter, entry->d_name)) continue;
    }
    if ((rc = list.AddHead(NameOf(entry->d_name))) < 0) break;
  }
  closedir(dir);
  free(filter);
  return rc < 0 ? PASSERR(rc) : list.GetCount();
}

int FILEPATH::GetChildren(VOLIST<VOSTRING>& list, CHILDTYPE type) const {
  return GetChildren(list, VOSTRING(type == CHILDTYPE_Folder ? "*" : "*.*"), type);
}

bool FILEPATH::HasChildren(CHILDTYPE type) const {
  OSPATH os(*this);
  DIR* dir = os ? opendir(os.c_str()) : nullptr;
  if (!dir) return false;
  bool found = false;
  while (const dirent* entry = readdir(dir)) {
    if (IsDotEntry(entry->d_name)) continue;
    if (type != CHILDTYPE_Folder && type != CHILDTYPE_File) {
      found = true;
      break;
    }
    if (Fits(type, KindOf(dir, entry))) {
      found = true;
      break;
    }
  }
  closedir(dir);
  return found;
}

// A path without a root keeps its first component too.
int FILEPATH::GetComponents(VOLIST<VOSTRING>& list) const {
  list.Clear();
  if (IsEmpty()) return 0;
  const VOSTRING& p = GetText();
  const int stop = p[0] == '/' ? GetRootEndPosn() : 0;
  for (int end = p.GetLength(); end > stop;) {
    const int slash = p.FindPrevOf('/', end - 1);
    const int begin = slash < stop ? stop : slash + 1;
    if (end > begin && list.AddHead(p.GetSubString(begin, end - 1)) < 0) break;
    end = slash < stop ? stop : slash;
  }
  list.AddHead(VOSTRING());
  return list.GetCount();
}

int FILEPATH::GetDriveList(VOLIST<VOSTRING>& list) {
  list.Clear();
  if (DIR* dir = opendir("/Volumes")) {
    while (const dirent* entry = readdir(dir)) {
      if (IsDotEntry(entry->d_name) || KindOf(dir, entry) != ENTRY_Folder) continue;
      VOSTRING drive("/Volumes/");
      drive += NameOf(entry->d_name);
      list.AddTail(drive);
    }
    closedir(dir);
  }
  list.AddTail(VOSTRING("/"));
  return list.GetCount();
}

// ---------------------------------------------------------------- making and removing

int FILEPATH::MakePath() const {
  if (IsFile()) {
    const int rc = SETERR(VOERROR_CannotMakeDir);
    PushErrFileName(GetDisplay());
    return rc;
  }
  if (!Exists()) {
    OSPATH os(*this);
    if (!os) return 0;
    if (mkdir(os.c_str(), 0777) != 0) return GenerateErrorCode(VOERROR_CannotMakeDir);
    return 0;
  }
  return CheckAccess(PERMISSION_ReadWrite);
}

int FILEPATH::Make(bool recursive) const {
  if (Exists() && !IsFolder()) {
    const int rc = SETERR(VOERROR_CannotMakeDir);
    PushErrFileName(GetDisplay());
    return rc;
  }
  if (!recursive) return MakePath();
  FILEPATH existing(*this);
  existing.StripToExisting();
  // One level at a time below the part that exists.
  const VOSTRING& p = GetText();
  for (int next = p.FindNextOf('/', existing.GetText().GetLength());;
       next = p.FindNextOf('/', next + 1)) {
    const int end = next < 0 ? p.GetLength() : next;
    if (end > 0) {
      VOSTRING text(UnixEncodeStr);
      text.Append(p, 0, end - 1);
      FILEPATH level;
      level.AppendPath(text);
      const int rc = level.IsFolder() ? 0 : level.MakePath();
      if (rc < 0 && rc != VOERROR_PathClimb) return PASSERR(rc);
    }
    if (next < 0) break;
  }
  return 0;
}

int FILEPATH::Remove() const {
  if (IsEmpty()) return 0;
  OSPATH os(*this);
  if (!os) return VOERROR_PathUnusable;
  if (unlink(os.c_str()) != 0) return GenerateErrorCode(VOERROR_RemoveFailed);
  return 0;
}

int FILEPATH::Rename(const VOSTRING& name) {
  FILEPATH renamed(*this);
  renamed.SetName(name);
  OSPATH from(*this), to(renamed);
  if (!from || !to) return VOERROR_PathUnusable;
  if (::rename(from.c_str(), to.c_str()) != 0) return GenerateErrorCode(VOERROR_RenameFailed);
  *this = renamed;
  return 0;
}

int FILEPATH::Rename(const FILEPATH& target) const {
  FILEPATH copy(*this);
  return copy.Rename(target.GetName());
}

int FILEPATH::CopyFileFrom(const FILEPATH& source,
                           int (*progress)(long long total, long long remaining, void* data),
                           void* data) const {
  if (source.IsEqual(*this)) return SETERR(VOERROR_CopyFailed);
  int rc = source.CheckAccess(PERMISSION_Read);
  if (rc < 0) return PASSERR(rc);
  if (source.IsFolder()) {
    rc = SETERR(VOERROR_PermissionDenied);
    GetErrString() << source.GetDisplay();
    return rc;
  }
  if (IsEmpty() || IsFolder()) {
    rc = SETERR(VOERROR_PermissionDenied);
    GetErrString() << GetDisplay();
    return rc;
  }
  const long long size = source.GetSize();
  if (size < 0) return PASSERR(static_cast<int>(size));
  const long long space = GetAvailableSpace();
  if (space < 0) return PASSERR(static_cast<int>(space));
  if (size > space) {
    rc = SETERR(VOERROR_NoSpace);
    PushErrFileName(GetDisplay());
    return rc;
  }

  FILE_RAW in, out;
  if ((rc = in.Open(source, FILE_ACCESS_Read, FILE_SHARE_All)) < 0) return PASSERR(rc);
  {
    ERRPOSN_DISABLER quiet;
    Remove();
  }
  char* buffer = nullptr;
  if ((rc = MmAllocC(&buffer, 65536)) < 0) return PASSERR(rc);
  // Create, not Write: if the old target couldn't be removed, none of its
  // bytes may stay behind the copy.
  rc = out.Open(*this, FILE_ACCESS_Create, FILE_SHARE_All);
  long long remaining = size;
  while (rc >= 0 && remaining > 0) {
    if (progress && (rc = progress(size, remaining, data)) < 0) break;
    const long want = remaining < 65536 ? static_cast<long>(remaining) : 65536;
    // A source that shrank under the copy is a short read.
    long n = in.Read(buffer, want, false);
    if (n >= 0) n = out.Write(buffer, want);
    rc = n < 0 ? PASSERR(static_cast<int>(n)) : 0;
    remaining -= want;
  }
  free(buffer);
  out.Close();
  ERRPOSN_DISABLER quiet;
  if (rc < 0) {
    Remove();  // no partial copy stays
    return rc;
  }
  long modified = 0;
  if (source.GetTimeModified(&modified) >= 0) SetTimeModified(modified);
  return 0;
}

int FILEPATH::GenerateTempFile(const FILEPATH& folder, const VOSTRING& prefix) {
  if (folder.IsEmpty()) return SETERR(VOERROR_TempFile);
  // The name is taken by creating it exclusively: a name that exists, or
  // that another process takes between the test and the create, is passed
  // over.
  for (unsigned n = 1; n <= 99999; ++n) {
    VOSTRING name;
    name << STR_WIDTH4 << prefix << STR_FILL_ZERO << STR_WIDTH4 << n << STR_FILL_SPACE;
    name += ".TMP";
    FILEPATH candidate(folder);
    candidate.AppendPath(name);
    if (candidate.Exists()) continue;
    FILE_RAW file;
    int rc;
    {
      ERRPOSN_DISABLER quiet;
      rc = file.Open(candidate, FILE_ACCESS_CreateNew, FILE_SHARE_All);
    }
    if (rc >= 0) {
      *this = candidate;
      return 0;
    }
    if (candidate.Exists()) continue;
    // Again, to record why the name can't be made.
    rc = file.Open(candidate, FILE_ACCESS_CreateNew, FILE_SHARE_All);
    if (rc >= 0) {
      *this = candidate;
      return 0;
    }
    *this = candidate;
    return rc == VOERROR_CannotCreate ? SETERR(VOERROR_TempFile) : PASSERR(rc);
  }
  return SETERR(VOERROR_TempFile);
}

// ---------------------------------------------------------------- sizes and times

long long FILEPATH::GetSize() const {
  OSPATH os(*this);
  if (!os) return VOERROR_PathUnusable;
  struct stat st;
  if (stat(os.c_str(), &st) != 0) return GenerateErrorCode(VOERROR_FileNotFound);
  return static_cast<long long>(st.st_size);
}

long long FILEPATH::GetAvailableSpace() const {
  FILEPATH existing(*this);
  existing.StripToExisting();
  OSPATH os(existing);
  if (!os) return VOERROR_PathUnusable;
  struct statvfs fs;
  if (statvfs(os.c_str(), &fs) != 0) return existing.GenerateErrorCode(VOERROR_NoFreeSpaceInfo);
  return static_cast<long long>(fs.f_bavail) * static_cast<long long>(fs.f_frsize);
}

int FILEPATH::GetFileSysType() const {
  FILEPATH existing(*this);
  existing.StripToExisting();
  OSPATH os(existing);
  struct statvfs fs;
  if (!os || statvfs(os.c_str(), &fs) != 0) return 0;
  return fs.f_flag & ST_RDONLY ? 5 : 0;
}

long long FILEPATH::GetSystemMaxSize() const {
  if (GetFileSysType() == 5) return 0;
  long long limit = INT64_MAX;
  struct rlimit rl;
  if (getrlimit(RLIMIT_FSIZE, &rl) == 0 && rl.rlim_cur != RLIM_INFINITY &&
      static_cast<unsigned long long>(rl.rlim_cur) < static_cast<unsigned long long>(limit))
    limit = static_cast<long long>(rl.rlim_cur);
  return limit;
}

int FILEPATH::GetTimeCreated(long* t) const {
  if (t) *t = 0;
  OSPATH os(*this);
  if (!os) return VOERROR_PathUnusable;
  struct stat st;
  if (stat(os.c_str(), &st) != 0) return GenerateErrorCode(VOERROR_FileNotFound);
  if (t) *t = static_cast<long>(st.st_ctime);
  return 0;
}

int FILEPATH::GetTimeModified(long* t) const {
  if (t) *t = 0;
  OSPATH os(*this);
  if (!os) return VOERROR_PathUnusable;
  struct stat st;
  if (stat(os.c_str(), &st) != 0) return GenerateErrorCode(VOERROR_FileNotFound);
  if (t) *t = static_cast<long>(st.st_mtime);
  return 0;
}

int FILEPATH::SetTimeCreated(const tm*) const {
  return 0;
}

int FILEPATH::SetTimeCreated(long) const {
  return 0;
}

int FILEPATH::SetTimeModified(const tm* t) const {
  if (!t || t->tm_year < 70) return SETERR(VOERROR_InvalidArgument);
  SetTimeModified(static_cast<long>(TimeTFromTM(t)));
  return 0;
}

int FILEPATH::SetTimeModified(long t) const {
  OSPATH os(*this);
  if (!os) return 0;
  struct stat st;
  if (stat(os.c_str(), &st) != 0) return GenerateErrorCode(VOERROR_PermissionDenied);
  utimbuf times;
  times.actime = st.st_atime;
  times.modtime = static_cast<time_t>(t);
  if (utime(os.c_str(), &times) != 0) return GenerateErrorCode(VOERROR_PermissionDenied);
  return 0;
}

// ---------------------------------------------------------------- search and reduction

// Cuts the path at its last "/" until it names something that passes test
// (or is "/" or empty); a path without "/" is cut to nothing.
template <class TEST>
void StripUntil(FILEPATH& path, TEST test) {
  while (!path.IsEmpty() && !path.IsRootOnly() && !test(path)) {
    const int slash = path.GetText().FindPrevOf('/');
    if (slash < 0) {
      path.Clear();
    } else {
      VOSTRING head(UnixEncodeStr);
      head.Append(path.GetText(), 0, slash > 0 ? slash - 1 : 0);
      path = head;
    }
  }
}

void FILEPATH::StripToExisting() {
  StripUntil(*this, [](const FILEPATH& p) { return p.Exists() != 0; });
}

void FILEPATH::StripToFolder() {
  StripUntil(*this, [](const FILEPATH& p) { return p.IsFolder() != 0; });
}

int FILEPATH::SearchCase() {
  if (IsFile()) return 1;
  const VOSTRING original(GetText());
  Mutable().SetLowerCase();
  if (IsFile()) return 1;
  Mutable().SetUpperCase();
  if (IsFile()) return 1;
  Mutable() = original;
  // From the last component to the first, each tail in upper case, then in
  // lower case; the change stays for the next, longer tail.
  for (int slash = original.FindPrevOf('/'); slash > 0;
       slash = original.FindPrevOf('/', slash - 1)) {
    Mutable().SetUpperCase(slash);
    if (IsFile()) return 1;
    Mutable().SetLowerCase(slash);
    if (IsFile()) return 1;
  }
  Mutable() = original;
  return 0;
}

int FILEPATH::SearchIterative(const FILEPATH& baseIn) {
  const VOSTRING tail(GetText());
  if (tail.FindNextOf('/') < 0) return 0;
  FILEPATH base(baseIn);
  base.StripToExisting();
  if (!base.IsPathOnly()) base.StripLastComponent();
  while (!base.IsEmpty()) {
    for (int slash = tail.FindNextOf('/'); slash >= 0; slash = tail.FindNextOf('/', slash + 1)) {
      FILEPATH candidate(base);
      VOSTRING rest(UnixEncodeStr);
      rest.Append(tail, slash, 0x7FFFFFFF);
      candidate.AppendPath(rest);
      if (candidate.SearchCase()) {
        *this = candidate;
        return 1;
      }
    }
    if (base.IsRootOnly()) break;
    base.StripLastComponent();
  }
  return 0;
}

// ---------------------------------------------------------------- Macintosh file information

int FILEPATH::GetMacFileType(char* creator, char* type) const {
  OSPATH os(*this);
  if (!os) return VOERROR_InvalidArgument;
  const char* c = "mdos";
  const char* t = "TEXT";
  const int dot = GetText().FindPrevOf('.');
  if (dot >= 0) {
    const VOSTRING ext = GetText().GetSubString(dot);
    for (int i = 0; MacCreatorCodes[i][0]; ++i)
      if (ext.CompareNoCase(VOSTRING(MacCreatorCodes[i][0])) == 0) {
        c = MacCreatorCodes[i][1];
        t = MacCreatorCodes[i][2];
        break;
      }
  }
  if (creator) memcpy(creator, c, 5);
  if (type) memcpy(type, t, 5);
  return 0;
}

int FILEPATH::SetMacFileType(const char*, const char*) const {
  return 0;
}

// ---------------------------------------------------------------- errors

int FILEPATH::GenerateErrorCode(int defaultcode) const {
  long syserr = 0;
  const int code =
      _SetErrPosnC(VOSYSTEM::TranslateSystemError(defaultcode, syserr), s_ident, __LINE__);
  if (code >= 0) return code;
  PushErrFileName(GetDisplay());
  PushErrSystemCode(syserr);
  return code;
}

time_t TimeTFromTM(const tm* t) {
  if (!t || t->tm_year < 70) return 0;
  static const int kDaysBefore[12] = {0, 31, 59, 90, 120, 151, 181, 212, 243, 273, 304, 334};
  const long long year = t->tm_year + 1900LL;
  const bool leap = (year % 4 == 0 && year % 100 != 0) || year % 400 == 0;
  const int month = t->tm_mon >= 0 && t->tm_mon < 12 ? t->tm_mon : 0;
  // The Gregorian leap days of the years from 1972 up to the one before year.
  const auto leapsThrough = [](long long y) { return y / 4 - y / 100 + y / 400; };
  const long long leapDays = leapsThrough(year - 1) - leapsThrough(1971);
  long long s = t->tm_sec + 60LL * t->tm_min + 3600LL * t->tm_hour + 86400LL * (t->tm_mday - 1LL) +
                86400LL * kDaysBefore[month] + (leap && month > 1 ? 86400 : 0) +
                31536000LL * (year - 1970) + 86400LL * leapDays;
  return static_cast<time_t>(s);
}
