// The settings store and its file: finding it, loading it when it changed,
// and saving it so that it is never torn.
//
// Loading. One stat answers whether the file changed: its device, inode,
// size, modification and status-change times are compared with the last
// load's (a rename over the file changes the inode, an edit in place the
// times; a time set back by a copy still changes the status time). File
// times come from the coarse clock, so two changes within one tick carry
// the same time: a load records the clock just before it looks at the
// file, and while the file's time isn't older than that, the next access
// reads the file again rather than trust a time that a later change could
// repeat. The read itself takes the lock, then the size and times from the
// open descriptor, and reads to the end of the file whatever the size said,
// so a file that grew under the read is never cut short.
//
// Saving. The text goes to a new file beside the old one (its name starts
// with a "." and the file's name), reaches the disk (fsync), takes the old
// file's permissions and owner, and is renamed over it; then the folder is
// synced. A writer killed at any moment leaves the old text or the new,
// and a failed write (a full disk) leaves the old text and returns its
// code. Where the folder can't be written no new file can be made there,
// and the file is rewritten in place. A symbolic link is followed: the file
// it names is replaced and the link stays.
//
// Changes between processes. Every writer holds the file's exclusive lock
// (FILE_RAW) from before the load that precedes its edit to after the
// rename. The lock belongs to the inode, and the rename puts a new inode at
// the name: so a writer that was waiting checks, once it holds the lock,
// that the name still leads to the inode it locked, and opens again if not.
// Readers take the same lock to load; one that locked the old inode reads
// the old text whole, and sees the new one at its next access.
static const char s_ident[] = "@(#) inistore.cpp 1.0";

#include "settings/inistore.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <new>

#include "foundation/errpos.h"
#include "vosystem/filefind.h"
#include "vosystem/inifuncs.h"
#include "vosystem/memfunc.h"
#include "vosystem/viofuncs.h"

namespace {

// A settings file over 2 GB is no settings file; sizes stay within a long
// of 32 bits.
const long long kMaxFileSize = 0x7FFFFFF0;

const char kDefaultName[] = "zepproc.ini";
const char kHostName[] = "zephost.ini";

long long Nanoseconds(const timespec& t) {
  return static_cast<long long>(t.tv_sec) * 1000000000LL + t.tv_nsec;
}

long long CoarseNow() {
  timespec t;
  clock_gettime(CLOCK_REALTIME_COARSE, &t);
  return Nanoseconds(t);
}

INISTAMP StampOf(const struct stat& st, long long taken) {
  INISTAMP s;
  s.device = st.st_dev;
  s.inode = st.st_ino;
  s.size = static_cast<long long>(st.st_size);
  s.mtime = Nanoseconds(st.st_mtim);
  s.ctime = Nanoseconds(st.st_ctim);
  s.taken = taken;
  return s;
}

// Whether a later change must carry a later time than the stamp's. A file
// system that keeps whole seconds (its times have no fraction) rounds a
// change within the same second down to the same time; some keep two
// seconds.
bool IsSettled(const INISTAMP& s) {
  if (s.mtime % 1000000000LL != 0) return s.mtime < s.taken;
  return s.mtime / 1000000000LL + 2 <= s.taken / 1000000000LL;
}

bool SameName(const char* a, const char* b) {
  return strcasecmp(a, b) == 0;
}

// Copies at most size - 1 bytes of a name, not ending inside a UTF-8
// sequence.
void CopyName(char* to, const char* from, size_t size) {
  size_t n = strlen(from);
  if (n >= size) {
    n = size - 1;
    while (n > 0 && (static_cast<unsigned char>(from[n]) & 0xC0) == 0x80) --n;
  }
  memcpy(to, from, n);
  to[n] = 0;
}

// A write that failed after the text went to the system: the file, and the
// bytes that were to be written. A failure the system names otherwise
// (a full disk, say) has no slot for the count.
int WriteFailed(const FILEPATH& path, long bytes) {
  const int rc = path.GenerateErrorCode(VOERROR_WriteFailed);
  if (rc == VOERROR_WriteFailed) GetErrString() << bytes;
  return rc;
}

int NotFound(const char* name) {
  return SETERR(name && SameName(name, kHostName) ? VOERROR_IniCreate2 : VOERROR_IniCreate);
}

// Makes a missing file with the text of a new store. Exclusive: a file that
// another process made meanwhile, and perhaps already wrote, is kept.
int CreateEmptyFile(const FILEPATH& path) {
  const VOSTRING vioPath = path.GetVioPath();
  unsigned short* name = vioPath.GetString();
  if (!name) {
    const int rc = SETERR(VOERROR_OutOfMemory);
    GetErrString() << (static_cast<unsigned long>(vioPath.GetLength()) + 1) *
                          sizeof(unsigned short);
    return rc;
  }
  FILE* fp = nullptr;
  int rc;
  {
    ERRPOSN_DISABLER quiet;
    rc = VioOpen(name, "wx", &fp);
  }
  if (rc < 0 && !path.Exists()) rc = VioOpen(name, "wx", &fp);  // again, to record why
  free(name);
  if (rc < 0) return path.Exists() ? 0 : PASSERR(rc);
  const bool written = fputs("\n\n", fp) >= 0;
  if (fclose(fp) != 0 || !written) return WriteFailed(path, 2);
  return 0;
}

// The folders a settings file is looked for in, in order; the first that
// holds it wins.
bool SearchSettingsFolders(const char* name, bool locale, FILEPATH& found) {
  FILEFIND list;
  list.AddPath(FILEPATH(PATHTYPE_UserData), FILEFIND::ADDPOSN_Tail);
  list.AddPath(FILEPATH(PATHTYPE_Home), FILEFIND::ADDPOSN_Tail);
  if (locale) list.AddLocale(true, FILEFIND::ADDPOSN_Tail);
  list.AddPath(FILEPATH(PATHTYPE_ProgramFolder), FILEFIND::ADDPOSN_Tail);
  list.AddPath(FILEPATH(PATHTYPE_Current), FILEFIND::ADDPOSN_Tail);
  return list.LocateFile(name, found) != 0;
}

}  // namespace

// ---------------------------------------------------------------- the handle

INIHNDPRIV::~INIHNDPRIV() {
  EndChange();
  free(m_buffer);
}

VOSTRING INIHNDPRIV::GetDisplayName() const {
  if (!m_path.IsEmpty()) return m_path.GetDisplay();
  return VOSTRING(m_appName, CHAR_ENCODING_UTF8);
}

void INIHNDPRIV::SetAppName(const char* name) {
  CopyName(m_appName, name ? name : "", sizeof m_appName);
}

void INIHNDPRIV::TakeText(char* text, long size, long capacity) {
  free(m_buffer);
  m_buffer = text;
  m_size = size;
  m_capacity = capacity;
}

int INIHNDPRIV::Create(const void* name, unsigned long flags) {
  m_readOnly = (flags & INIOPEN_ReadOnly) != 0;
  {
    std::lock_guard<std::recursive_mutex> lock(DefaultStoreLock());
    if (DefaultAppName()[0]) SetAppName(DefaultAppName());
  }
  if (!m_appName[0]) {
    char* program = FILEPATH(PATHTYPE_Program).GetNameOnly().GetEncoded(CHAR_ENCODING_UTF8);
    SetAppName(program);
    free(program);
  }
  if (flags & INIOPEN_Memory) {
    m_memoryOnly = 1;
    char* text = nullptr;
    const int rc = MmAllocC(&text, 16);
    if (rc < 0) return PASSERR(rc);
    memcpy(text, "\n\n", 2);
    TakeText(text, 2, 16);
    return 0;
  }
  if (flags & INIOPEN_FullPath) {
    if (flags & INIOPEN_UnicodePath)
      m_path = FILEPATH(static_cast<const unsigned short*>(name));
    else
      m_path = FILEPATH(static_cast<const char*>(name), CHAR_ENCODING_ASCII);
    if (m_path.IsEmpty()) return SETERR(VOERROR_InvalidArgument);
    if (!m_path.Exists()) {
      const int rc = CreateEmptyFile(m_path);
      if (rc < 0) return PASSERR(rc);
    }
  } else {
    const char* file = name ? static_cast<const char*>(name) : kDefaultName;
    if (flags & INIOPEN_ProgramFolder) {
      FILEPATH folder(PATHTYPE_Program);
      folder.StripToFolder();
      m_path = FILEPATH(folder, file, CHAR_ENCODING_ASCII);
      if (!m_path.IsFile()) return NotFound(file);
    } else {
      if (!SearchSettingsFolders(file, (flags & INIOPEN_LocaleFolders) != 0, m_path))
        return NotFound(file);
      if (!m_readOnly && !m_path.IsWritable() && strcmp(file, kHostName) != 0) {
        // A copy the user may change, in the user's own folder; without one
        // the store stays on the file it found.
        ERRPOSN_DISABLER quiet;
        FILEPATH copy(PATHTYPE_UserData);
        if (!copy.IsEmpty() && copy.Make(true) >= 0) {
          copy = FILEPATH(copy, file, CHAR_ENCODING_ASCII);
          if (copy.CopyFileFrom(m_path, nullptr, nullptr) >= 0) m_path = copy;
        }
      }
    }
  }
  if ((flags & INIOPEN_MustBeWritable) && !m_path.IsWritable()) {
    const int rc = SETERR(VOERROR_IniCreate3);
    GetErrString() << m_path.GetDisplay();
    return rc;
  }
  const int rc = LoadFile();
  return rc < 0 ? PASSERR(rc) : 0;
}

// ---------------------------------------------------------------- loading

bool INIHNDPRIV::IsUnchanged(const INISTAMP& now) const {
  return m_loaded && IsSettled(m_stamp) && now.device == m_stamp.device &&
         now.inode == m_stamp.inode && now.size == m_stamp.size && now.mtime == m_stamp.mtime &&
         now.ctime == m_stamp.ctime;
}

int INIHNDPRIV::LoadFile() {
  if (m_memoryOnly) return 0;
  const long long taken = CoarseNow();
  struct stat st;
  if (m_lock) {
    if (fstat(m_lock->GetDescriptor(), &st) != 0)
      return m_path.GenerateErrorCode(VOERROR_FileNotFound);
  } else {
    char* os = m_path.GenerateOSPath();
    if (!os) {
      const int rc = SETERR(VOERROR_FileNotFound);
      PushErrFileName(m_path.GetDisplay());
      return rc;
    }
    const int rc = stat(os, &st);
    free(os);
    if (rc != 0) return m_path.GenerateErrorCode(VOERROR_FileNotFound);
  }
  if (IsUnchanged(StampOf(st, taken))) return 0;
  if (m_lock) {
    const int rc = ReadOpenFile(*m_lock);
    return rc < 0 ? PASSERR(rc) : 0;
  }
  FILE_RAW file;
  int rc = file.Open(m_path, FILE_ACCESS_Read, FILE_SHARE_Exclusive);
  if (rc >= 0) rc = ReadOpenFile(file);
  return rc < 0 ? PASSERR(rc) : 0;
}

// Reads the whole file from its start; the stamp comes from the descriptor,
// under the lock the caller holds.
int INIHNDPRIV::ReadOpenFile(FILE_RAW& file) {
  const long long taken = CoarseNow();
  struct stat st;
  if (fstat(file.GetDescriptor(), &st) != 0) return m_path.GenerateErrorCode(VOERROR_HandleNotOpen);
  const INISTAMP stamp = StampOf(st, taken);
  if (stamp.size > kMaxFileSize) {
    const int rc = SETERR(VOERROR_FileTooLarge);
    GetErrString() << m_path.GetDisplay();
    return rc;
  }
  long long rc = file.Seek(0, GENERICRW::SEEKFROM_Start);
  if (rc < 0) return PASSERR(static_cast<int>(rc));
  // Room for the text, a line feed that may have to be added, and the zero.
  long capacity = static_cast<long>(stamp.size) + 4;
  char* text = nullptr;
  if ((rc = MmAlloc(&text, static_cast<unsigned long>(capacity))) < 0)
    return PASSERR(static_cast<int>(rc));
  long size = 0;
  for (;;) {
    if (capacity - size < 2) {
      // The file grew since its size was taken: read on to its end.
      const long grown =
          capacity < kMaxFileSize / 2 ? capacity * 2 : static_cast<long>(kMaxFileSize) + 4;
      if (grown <= capacity || (rc = MmRealloc(&text, static_cast<unsigned long>(grown))) < 0) {
        free(text);
        if (grown <= capacity) {
          rc = SETERR(VOERROR_FileTooLarge);
          PushErrFileName(m_path.GetDisplay());
          return static_cast<int>(rc);
        }
        return PASSERR(static_cast<int>(rc));
      }
      capacity = grown;
    }
    const long got = file.Read(text + size, capacity - size - 2, true);
    if (got < 0) {
      free(text);
      return PASSERR(static_cast<int>(got));
    }
    if (got == 0) break;
    size += got;
  }
  if (size > 0 && text[size - 1] != '\n') text[size++] = '\n';
  if (size == 0) text[size++] = '\n';  // an empty file reads as one empty line
  text[size] = 0;
  TakeText(text, size, capacity);
  m_stamp = stamp;
  m_loaded = 1;
  m_modified = static_cast<long>(st.st_mtim.tv_sec);
  return 0;
}

// ---------------------------------------------------------------- changing and saving

int INIHNDPRIV::BeginChange() {
  if (m_memoryOnly || m_lock) return 0;
  for (int attempt = 0; attempt < 1000; ++attempt) {
    FILE_RAW* file = new (std::nothrow) FILE_RAW;
    if (!file) {
      const int rc = SETERR(VOERROR_OutOfMemory);
      GetErrString() << static_cast<unsigned long>(sizeof(FILE_RAW));
      return rc;
    }
    const int rc = file->Open(m_path, FILE_ACCESS_Write, FILE_SHARE_Exclusive);
    if (rc < 0) {
      delete file;
      return PASSERR(rc);
    }
    // The file may have been replaced while the lock was waited for: the
    // lock counts only on the inode that the name still leads to.
    struct stat locked, named;
    char* os = m_path.GenerateOSPath();
    const bool same = os && fstat(file->GetDescriptor(), &locked) == 0 && stat(os, &named) == 0 &&
                      locked.st_dev == named.st_dev && locked.st_ino == named.st_ino;
    free(os);
    if (same) {
      m_lock = file;
      return 0;
    }
    delete file;
  }
  const int rc = SETERR(VOERROR_CannotOpen);
  PushErrFileName(m_path.GetDisplay());
  return rc;
}

void INIHNDPRIV::EndChange() {
  delete m_lock;
  m_lock = nullptr;
}

int INIHNDPRIV::SaveFile() {
  if (m_memoryOnly) return 0;
  const bool own = !m_lock;
  int rc = own ? BeginChange() : 0;
  if (rc < 0) return PASSERR(rc);
  char* os = m_path.GenerateOSPath();
  char* target = os ? realpath(os, nullptr) : nullptr;
  if (!os) {
    rc = SETERR(VOERROR_CannotCreate);
    PushErrFileName(m_path.GetDisplay());
  } else {
    FILEPATH folder(target ? target : os, CHAR_ENCODING_UTF8);
    folder.StripLastComponent();
    rc = folder.IsWritable() ? SaveByRename(target ? target : os) : SaveInPlace();
  }
  free(target);
  free(os);
  if (own) EndChange();
  return rc < 0 ? PASSERR(rc) : 0;
}

int INIHNDPRIV::SaveByRename(const char* target) {
  VOSTRING systemName(UnixEncodeStr);
  systemName += VOSTRING(target, CHAR_ENCODING_UTF8);
  const FILEPATH replaced(systemName);
  FILEPATH folder(replaced);
  folder.StripLastComponent();
  VOSTRING prefix(".");
  prefix += replaced.GetName();
  FILEPATH temp;
  int rc = temp.GenerateTempFile(folder, prefix);
  if (rc < 0) return PASSERR(rc);
  FILE_RAW out;
  rc = out.Open(temp, FILE_ACCESS_Write, FILE_SHARE_All);
  if (rc >= 0 && m_size > 0) {
    const long put = out.Write(m_buffer, m_size);
    if (put < 0) rc = static_cast<int>(put);
  }
  const int fd = out.GetDescriptor();
  struct stat old, now;
  if (rc >= 0 && fstat(m_lock->GetDescriptor(), &old) == 0) {
    fchmod(fd, old.st_mode & 07777);
    if (fstat(fd, &now) == 0 && (now.st_uid != old.st_uid || now.st_gid != old.st_gid)) {
      // Only a privileged process can give the file back to its owner; a
      // failure leaves the new file this process's own.
      if (fchown(fd, old.st_uid, old.st_gid) != 0) errno = 0;
    }
  }
  if (rc >= 0 && fsync(fd) != 0) rc = WriteFailed(temp, m_size);
  const long long taken = CoarseNow();
  if (rc >= 0 && fstat(fd, &now) != 0) rc = WriteFailed(temp, m_size);
  out.Close();
  if (rc >= 0) {
    char* from = temp.GenerateOSPath();
    if (!from || rename(from, target) != 0) rc = temp.GenerateErrorCode(VOERROR_RenameFailed);
    free(from);
  }
  if (rc < 0) {
    ERRPOSN_DISABLER quiet;
    temp.Remove();
    return PASSERR(rc);
  }
  // The new name must reach the disk as well as the new text.
  char* dir = folder.GenerateOSPath();
  const int dirfd = dir ? open(dir, O_RDONLY | O_DIRECTORY | O_CLOEXEC) : -1;
  if (dirfd >= 0) {
    fsync(dirfd);
    close(dirfd);
  }
  free(dir);
  m_stamp = StampOf(now, taken);
  return 0;
}

int INIHNDPRIV::SaveInPlace() {
  FILE_RAW out;
  int rc = out.Open(m_path, FILE_ACCESS_Write, FILE_SHARE_All);  // the change holds the lock
  if (rc >= 0 && m_size > 0) rc = out.SeekAndWrite(0, m_buffer, m_size);
  if (rc >= 0) rc = out.Resize(m_size);
  const long long taken = CoarseNow();
  struct stat now;
  if (rc >= 0 && (fsync(out.GetDescriptor()) != 0 || fstat(out.GetDescriptor(), &now) != 0))
    rc = WriteFailed(m_path, m_size);
  if (rc < 0) return PASSERR(rc);
  m_stamp = StampOf(now, taken);
  return 0;
}

// ---------------------------------------------------------------- the default store

std::recursive_mutex& DefaultStoreLock() {
  static std::recursive_mutex s_lock;
  return s_lock;
}

char* DefaultAppName() {
  static char s_DftAppName[INIHNDPRIV::kAppNameSize];
  return s_DftAppName;
}

namespace {

struct DEFAULTSTORE {
  bool tried = false;  // under DefaultStoreLock: the one attempt is made
  INIHNDPRIV store;
  int rc = 0;
};

DEFAULTSTORE& DefaultStore() {
  static DEFAULTSTORE s_default;
  return s_default;
}

}  // namespace

INIREF::INIREF(void* handle) : m_store(static_cast<INIHNDPRIV*>(handle)) {
  if (m_store) return;
  DefaultStoreLock().lock();
  m_locked = true;
  DEFAULTSTORE& d = DefaultStore();
  m_store = &d.store;
  if (!d.tried) {
    d.tried = true;
    m_rc = d.rc = d.store.Create(nullptr, 0);
    return;
  }
  // The first attempt recorded why it failed; later ones say it again.
  m_rc = d.rc;
  if (m_rc < 0) SETERR(m_rc);
}

INIREF::~INIREF() {
  if (m_locked) DefaultStoreLock().unlock();
}

bool DefaultStoreExists() {
  std::lock_guard<std::recursive_mutex> lock(DefaultStoreLock());
  return DefaultStore().tried && DefaultStore().rc >= 0;
}
