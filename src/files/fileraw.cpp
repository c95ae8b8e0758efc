// FILE_RAW: a file on a descriptor.
//
// Every system call is repeated when a signal interrupts it. A read without
// partial results, and every write, loop until the whole length has gone
// through: the system may answer a large request in pieces (a pipe, a
// network file system, requests above 2 GB), and only the end of the file
// or a failure stops short. A write that fails after some bytes went
// through reports the failure; those bytes stay in the file.
//
// The exclusive share mode is flock(LOCK_EX) on the open descriptor. Unlike
// fcntl's record locks it works on a descriptor opened read-only, belongs to
// the open file rather than the process (so two opens in one process exclude
// each other as two processes do), and is released when the descriptor
// closes. An open that is to empty the file truncates only once the lock is
// held: O_TRUNC in the open itself would cut the file under a reader that
// holds the lock.
//
// FILE_ACCESS_Write and ReadWrite ask for O_CREAT without O_TRUNC, which is
// "read-write if the file exists, else created" in one call, with no window
// between a test for the file and the open.
static const char s_ident[] = "@(#) fileraw.cpp 1.0";

#include "vosystem/fileraw.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <initializer_list>
#include <new>

#include "foundation/errpos.h"
#include "vosystem/system.h"
#include "vosystem/textres.h"

namespace {

// The most one read or write asks of the system (Linux moves at most this
// much per call anyway).
const size_t kMaxChunk = 0x7FFFF000;

}  // namespace

struct FILE_RAW_PRIV {
  int fd = -1;
  FILEPATH path;  // for messages; emptied on close
  int writable = 0;

  // Records a failed system call while errno holds its number: the
  // translated code (defaultcode for a number without one), the values
  // (only when the default code stood: they belong to its message), then
  // the file's name and the system's number. Returns the code.
  int GenerateErrorMsg(int defaultcode, int line, std::initializer_list<long long> values = {}) {
    long errnumber = 0;
    int code = VOSYSTEM::TranslateSystemError(defaultcode, errnumber);
    if (code >= 0) code = defaultcode;  // an "already exists" is no success here
    _SetErrPosnC(code, s_ident, line);
    if (code == defaultcode)
      for (long long v : values) GetErrString() << v;
    FinishErrorMsg(errnumber);
    return code;
  }

  // The file's name and the system's number, after any values the raising
  // code pushed first.
  void FinishErrorMsg(long errnumber) const {
    if (IsErrPosnDisabled()) return;
    PushErrFileName(path.GetDisplay());
    GetErrString() << STR_FILLSUBS;
    PushErrSystemCode(errnumber);
  }

  long long Seek(long long position, GENERICRW::SEEKFROM from) {
    int whence;
    switch (from) {
      case GENERICRW::SEEKFROM_Start:
        whence = SEEK_SET;
        break;
      case GENERICRW::SEEKFROM_Current:
        whence = SEEK_CUR;
        break;
      case GENERICRW::SEEKFROM_End:
        whence = SEEK_END;
        break;
      default:
        return SETERR(VOERROR_InvalidArgument);
    }
    const off_t at = lseek(fd, static_cast<off_t>(position), whence);
    if (at >= 0) return static_cast<long long>(at);
    return GenerateErrorMsg(VOERROR_SeekFailed, __LINE__, {position, static_cast<long long>(from)});
  }
};

FILE_RAW::FILE_RAW() : m_priv(new (std::nothrow) FILE_RAW_PRIV) {}

FILE_RAW::~FILE_RAW() {
  Close();
  delete m_priv;
}

int FILE_RAW::Open(const FILEPATH& path, FILE_ACCESS access, FILE_SHARE share) {
  Close();
  if (!m_priv) {
    const int rc = SETERR(VOERROR_OutOfMemory);
    GetErrString() << static_cast<unsigned long>(sizeof(FILE_RAW_PRIV));
    return rc;
  }
  if (path.IsEmpty()) {
    const int rc = SETERR(VOERROR_NotADirectory);
    PushErrFileName(path.GetDisplay());
    return rc;
  }
  m_priv->path = path;
  int flags = O_CLOEXEC;
  bool truncate = false;
  switch (access) {
    case FILE_ACCESS_Read:
      flags |= O_RDONLY;
      break;
    case FILE_ACCESS_Write:
    case FILE_ACCESS_ReadWrite:
      flags |= O_RDWR | O_CREAT;
      break;
    case FILE_ACCESS_Create:
      flags |= O_RDWR | O_CREAT;
      truncate = true;
      break;
    case FILE_ACCESS_Append:
      flags |= O_RDWR | O_CREAT | O_APPEND;
      break;
    case FILE_ACCESS_CreateNew:
      flags |= O_RDWR | O_CREAT | O_EXCL;
      break;
    default:
      return SETERR(VOERROR_InvalidArgument);
  }
  const bool exclusive = share == FILE_SHARE_Exclusive;
  // Without a lock the truncation can go with the open, in one call.
  if (truncate && !exclusive) flags |= O_TRUNC;

  char* os = path.GenerateOSPath();
  int fd = -1;
  if (os) {
    do fd = open(os, flags, 0666);
    while (fd < 0 && errno == EINTR);
  } else {
    errno = 0;  // a name that can't be encoded: no system number to report
  }
  int defaultcode = flags & O_CREAT ? VOERROR_CannotCreate : VOERROR_CannotOpen;
  if (fd < 0 && os && (access == FILE_ACCESS_Write || access == FILE_ACCESS_ReadWrite)) {
    // Only a file that wasn't there was to be created.
    const int saved = errno;
    struct stat st;
    if (stat(os, &st) == 0) defaultcode = VOERROR_CannotOpen;
    errno = saved;
  }
  free(os);
  if (fd >= 0 && exclusive) {
    int rc;
    do rc = flock(fd, LOCK_EX);
    while (rc != 0 && errno == EINTR);
    if (rc == 0 && truncate) {
      do rc = ftruncate(fd, 0);
      while (rc != 0 && errno == EINTR);
    }
    if (rc != 0) {
      const int saved = errno;
      close(fd);
      errno = saved;
      fd = -1;
    }
  }
  if (fd < 0) return PASSERR(m_priv->GenerateErrorMsg(defaultcode, __LINE__));
  m_priv->fd = fd;
  m_priv->writable = access != FILE_ACCESS_Read;
  return 0;
}

void FILE_RAW::Close() {
  if (!m_priv) return;
  if (m_priv->fd >= 0) close(m_priv->fd);  // a close interrupted by a signal has closed
  m_priv->fd = -1;
  m_priv->writable = 0;
  m_priv->path.Clear();
}

bool FILE_RAW::IsOpen() const {
  return m_priv && m_priv->fd >= 0;
}

bool FILE_RAW::GetPath(FILEPATH& path) const {
  if (!IsOpen()) {
    path.Clear();
    return false;
  }
  path = m_priv->path;
  return true;
}

int FILE_RAW::GetDescriptor() const {
  return IsOpen() ? m_priv->fd : -1;
}

int FILE_RAW::v_GetCapabilities() const {
  if (!IsOpen()) return 0;
  return m_priv->writable ? CAPABILITY_Read | CAPABILITY_Write | CAPABILITY_Seek | CAPABILITY_Resize
                          : CAPABILITY_Read | CAPABILITY_Seek;
}

long long FILE_RAW::v_GetSize() const {
  if (!IsOpen()) return SETERR(VOERROR_StreamNotOpen);
  struct stat st;
  if (fstat(m_priv->fd, &st) != 0) {
    const int rc = SETERR(VOERROR_HandleNotOpen);
    PushErrFileName(m_priv->path.GetDisplay());
    return rc;
  }
  return static_cast<long long>(st.st_size);
}

long long FILE_RAW::v_GetSizeLimit() const {
  if (!IsOpen()) return SETERR(VOERROR_Failed);
  return m_priv->path.GetSystemMaxSize();
}

long FILE_RAW::v_Read(void* buffer, long length, bool allowpartial) {
  if (!IsOpen()) return SETERR(VOERROR_StreamNotOpen);
  if (!buffer || length < 0) return SETERR(VOERROR_InvalidArgument);
  char* at = static_cast<char*>(buffer);
  long done = 0;
  while (done < length) {
    const size_t want = static_cast<unsigned long>(length - done) < kMaxChunk
                            ? static_cast<size_t>(length - done)
                            : kMaxChunk;
    const ssize_t got = read(m_priv->fd, at + done, want);
    if (got < 0) {
      if (errno == EINTR) continue;
      return m_priv->GenerateErrorMsg(VOERROR_ReadFailed, __LINE__, {length});
    }
    if (got == 0) break;
    done += got;
    if (allowpartial) break;
  }
  if (done < length && !allowpartial) {
    const int rc = SETERR(VOERROR_ShortRead);
    GetErrString() << length << done;
    m_priv->FinishErrorMsg(0);
    return rc;
  }
  return done;
}

long FILE_RAW::v_Write(const void* buffer, long length) {
  if (!IsOpen()) return SETERR(VOERROR_StreamNotOpen);
  if (!buffer || length < 0) return SETERR(VOERROR_InvalidArgument);
  const char* at = static_cast<const char*>(buffer);
  long done = 0;
  while (done < length) {
    const size_t want = static_cast<unsigned long>(length - done) < kMaxChunk
                            ? static_cast<size_t>(length - done)
                            : kMaxChunk;
    const ssize_t put = write(m_priv->fd, at + done, want);
    if (put < 0 && errno == EINTR) continue;
    if (put <= 0) {
      if (put == 0) errno = ENOSPC;  // no progress and no reason: the device is full
      return m_priv->GenerateErrorMsg(VOERROR_WriteFailed, __LINE__, {length});
    }
    done += put;
  }
  return done;
}

int FILE_RAW::v_Resize(long long size) {
  if (!IsOpen()) return SETERR(VOERROR_StreamNotOpen);
  int rc;
  do rc = ftruncate(m_priv->fd, static_cast<off_t>(size));
  while (rc != 0 && errno == EINTR);
  if (rc == 0) return 0;
  return m_priv->GenerateErrorMsg(VOERROR_ResizeFailed, __LINE__, {size});
}

long long FILE_RAW::v_Seek(long long position, SEEKFROM from) {
  if (!IsOpen()) return SETERR(VOERROR_StreamNotOpen);
  return m_priv->Seek(position, from);
}

long long FILE_RAW::v_Tell() const {
  if (!IsOpen()) return SETERR(VOERROR_StreamNotOpen);
  return m_priv->Seek(0, SEEKFROM_Current);
}
