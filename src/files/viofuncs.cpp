// The Vio functions: a table of FILE_RAW pointers indexed by handle, and
// the FILE* route.
//
// The table grows by 64 slots at a time and never shrinks; slot 0 is never
// used, so that a valid handle is above 0. Handles are the 32-bit ints of
// the interface, and so are the lengths: a length over 2 GB - 1 can't be
// told apart from a failure in the int result, and is refused.
static const char s_ident[] = "@(#) viofuncs.cpp 1.0";

#include "vosystem/viofuncs.h"

#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <new>

#include "files/ospath.h"
#include "files/vioname.h"
#include "foundation/errpos.h"
#include "vosystem/filefind.h"
#include "vosystem/fileraw.h"
#include "vosystem/system.h"
#include "vosystem/ucstring.h"

namespace {

// The table, freed at process exit with whatever was left open.
struct LEGACYARRAY {
  SIMPLE_ARRAY<FILE_RAW*> slots;
  ~LEGACYARRAY() {
    for (int i = 0; i < slots.GetNumUsed(); ++i) delete slots[i];
  }
};

SIMPLE_ARRAY<FILE_RAW*>& LegacyArray() {
  static LEGACYARRAY s_LegacyArray;
  return s_LegacyArray.slots;
}

const int kGrowBy = 64;

// The file of a handle, or null with -1118 recorded (the handle as value).
FILE_RAW* FileOf(int handle, int* rc) {
  SIMPLE_ARRAY<FILE_RAW*>& table = LegacyArray();
  if (handle > 0 && handle < table.GetNumUsed() && table[handle]) return table[handle];
  *rc = _SetErrPosnC(VOERROR_HandleNotOpen, s_ident, __LINE__);
  GetErrString() << handle;
  return nullptr;
}

bool LengthFits(long length) {
  return length >= 0 && length <= INT32_MAX;
}

FILE_ACCESS AccessOf(const char* mode) {
  switch (mode[0]) {
    case 'r':
      return mode[1] == '+' ? FILE_ACCESS_ReadWrite : FILE_ACCESS_Read;
    case 'w':
      return FILE_ACCESS_Create;
    case 'a':
      return FILE_ACCESS_Append;
    default:
      return FILE_ACCESS_Read;
  }
}

int OpenStream(const FILEPATH& path, const char* mode, FILE** fp) {
  *fp = nullptr;
  // "e": the descriptor isn't inherited by programs the process starts.
  const size_t n = strlen(mode);
  char* withCloexec = static_cast<char*>(malloc(n + 2));
  if (!withCloexec) {
    const int rc = SETERR(VOERROR_OutOfMemory);
    GetErrString() << static_cast<unsigned long>(n + 2);
    return rc;
  }
  memcpy(withCloexec, mode, n);
  withCloexec[n] = strchr(mode, 'e') ? 0 : 'e';
  withCloexec[n + 1] = 0;
  char* os = path.GenerateEncodedOSPath();
  errno = 0;
  if (os) *fp = fopen(os, withCloexec);
  free(withCloexec);
  free(os);
  if (*fp) return 0;
  long syserr = 0;
  int code = VOSYSTEM::TranslateSystemError(VOERROR_CannotOpen, syserr);
  if (code >= 0) code = VOERROR_CannotOpen;
  _SetErrPosnC(code, s_ident, __LINE__);
  PushErrFileName(path.GetDisplay());
  PushErrSystemCode(syserr);
  return code;
}

// Origins of a move as the message of a failed one numbers them (0 start,
// 1 current position, 2 end).
const int kFromCurrent = 1;
const int kFromEnd = 2;

// A failed move in a stream: the position, the origin and the stream's file.
long SeekFailed(FILE* fp, long position, int origin, int line) {
  const int rc = _SetErrPosnC(VOERROR_SeekFailed, s_ident, line);
  GetErrString() << position << origin;
  PushErrFileName(VioStreamDisplayName(fp));
  return rc;
}

}  // namespace

VOSTRING VioHandleDisplayName(int handle) {
  SIMPLE_ARRAY<FILE_RAW*>& table = LegacyArray();
  FILEPATH path;
  if (handle > 0 && handle < table.GetNumUsed() && table[handle] && table[handle]->GetPath(path))
    return path.GetDisplay();
  VOSTRING name("handle ");
  name += VOSTRING(handle);
  return name;
}

VOSTRING VioStreamDisplayName(FILE* fp) {
  const int fd = fp ? fileno(fp) : -1;
  if (fd >= 0) {
    // The system keeps the name a descriptor was opened by, as the link
    // /proc/self/fd/N, kept up to date through renames.
    char link[32];
    snprintf(link, sizeof link, "/proc/self/fd/%d", fd);
    char target[4096];
    const ssize_t n = readlink(link, target, sizeof target - 1);
    if (n > 0) {
      target[n] = 0;
      if (target[0] == '/') {
        const FILEPATH path(target, kOsTextEncoding);
        if (!path.IsEmpty()) return path.GetDisplay();
      }
      const VOSTRING text = OsTextToString(target);
      if (!text.IsEmpty()) return text;
    }
  }
  VOSTRING name("descriptor ");
  name += VOSTRING(fd);
  return name;
}

int VioOpen(const unsigned short* path, const char* mode, FILE** fp) {
  if (!path || !mode) return SETERR(VOERROR_InvalidArgument);
  const FILEPATH file(path);
  if (fp) return OpenStream(file, mode, fp);

  SIMPLE_ARRAY<FILE_RAW*>& table = LegacyArray();
  int handle = 1;
  while (handle < table.GetNumUsed() && table[handle]) ++handle;
  if (handle >= table.GetNumUsed()) {
    const int count = table.GetNumUsed() ? table.GetNumUsed() + kGrowBy : kGrowBy;
    const int rc = table.Resize(count, true, true);
    if (rc < 0) return PASSERR(rc);
  }
  FILE_RAW* raw = new (std::nothrow) FILE_RAW;
  if (!raw) {
    const int rc = SETERR(VOERROR_OutOfMemory);
    GetErrString() << static_cast<unsigned long>(sizeof(FILE_RAW));
    return rc;
  }
  const int rc = raw->Open(file, AccessOf(mode), FILE_SHARE_All);
  if (rc < 0) {
    delete raw;
    return PASSERR(rc);
  }
  table[handle] = raw;
  return handle;
}

int VioClose(int handle) {
  if (handle == -1) return 0;
  int rc = 0;
  FILE_RAW* raw = FileOf(handle, &rc);
  if (!raw) return rc;
  delete raw;
  LegacyArray()[handle] = nullptr;
  return 0;
}

int VioRead(int handle, void* buffer, long length) {
  int rc = 0;
  FILE_RAW* raw = FileOf(handle, &rc);
  if (!raw) return rc;
  if (!LengthFits(length)) return SETERR(VOERROR_InvalidArgument);
  const long got = raw->Read(buffer, length, false);
  return got < 0 ? PASSERR(static_cast<int>(got)) : static_cast<int>(got);
}

int VioWrite(int handle, const void* buffer, long length) {
  int rc = 0;
  FILE_RAW* raw = FileOf(handle, &rc);
  if (!raw) return rc;
  if (!LengthFits(length)) return SETERR(VOERROR_InvalidArgument);
  const long put = raw->Write(buffer, length);
  return put < 0 ? PASSERR(static_cast<int>(put)) : static_cast<int>(put);
}

int VioSeek(int handle, long offset, int from) {
  int rc = 0;
  FILE_RAW* raw = FileOf(handle, &rc);
  if (!raw) return rc;
  if (from < 0 || from > 2) return SETERR(VOERROR_InvalidArgument);
  const long long at = raw->Seek(offset, static_cast<GENERICRW::SEEKFROM>(from));
  if (at < 0) return PASSERR(static_cast<int>(at));
  return static_cast<int32_t>(static_cast<uint32_t>(at));
}

int VioSeekAndRead(int handle, long position, void* buffer, long length) {
  int rc = 0;
  FILE_RAW* raw = FileOf(handle, &rc);
  if (!raw) return rc;
  const long long at = raw->Seek(position, GENERICRW::SEEKFROM_Start);
  if (at < 0) return PASSERR(static_cast<int>(at));
  return VioRead(handle, buffer, length);
}

int VioSeekAndWrite(int handle, long position, const void* buffer, long length) {
  int rc = 0;
  FILE_RAW* raw = FileOf(handle, &rc);
  if (!raw) return rc;
  const long long at = raw->Seek(position, GENERICRW::SEEKFROM_Start);
  if (at < 0) return PASSERR(static_cast<int>(at));
  return VioWrite(handle, buffer, length);
}

long long VioGetOpenFileSize64(int handle) {
  int rc = 0;
  FILE_RAW* raw = FileOf(handle, &rc);
  if (!raw) return rc;
  const long long size = raw->GetSize();
  return size < 0 ? PASSERR(static_cast<int>(size)) : size;
}

long VioGetOpenFileSize(int handle) {
  const long long size = VioGetOpenFileSize64(handle);
  if (size < 0) return static_cast<long>(size);
  return static_cast<int32_t>(static_cast<uint32_t>(size));
}

long VioGetOpenFPSize(FILE* fp) {
  if (!fp) return SETERR(VOERROR_InvalidArgument);
  const long at = ftell(fp);
  if (at < 0) return SeekFailed(fp, 0, kFromCurrent, __LINE__);
  if (fseek(fp, 0, SEEK_END) != 0) return SeekFailed(fp, 0, kFromEnd, __LINE__);
  const long size = ftell(fp);
  fseek(fp, at, SEEK_SET);
  return size < 0 ? SeekFailed(fp, 0, kFromEnd, __LINE__) : size;
}

int VioGetStr(char* buffer, int size, FILE* fp) {
  if (!buffer || !fp || size <= 0) return SETERR(VOERROR_InvalidArgument);
  int n = 0;
  bool ended = false;
  while (n < size - 1) {
    const int c = getc(fp);
    if (c == EOF) break;
    if (c == '\r' || c == '\n') {
      // CR LF and LF CR are one line end; anything else belongs to the next line.
      const int next = getc(fp);
      if (next != EOF && next != (c == '\r' ? '\n' : '\r')) ungetc(next, fp);
      ended = true;
      break;
    }
    buffer[n++] = static_cast<char>(c);
  }
  buffer[n] = 0;
  if (!ended && n < size - 1 && ferror(fp)) {
    const int e = errno;
    clearerr(fp);
    int rc;
    if (e == EIO)
      rc = SETERR(VOERROR_IoError);
    else if (e == ETIMEDOUT)
      rc = SETERR(VOERROR_TimedOut);
    else
      rc = SETERR(VOERROR_ReadFailedOther);
    PushErrFileName(VioStreamDisplayName(fp));
    PushErrSystemCode(e);
    return rc;
  }
  if (!ended && n == 0 && size > 1) return -1;
  return n;
}

unsigned short* VioGetRefFile(const void* name, unsigned long flags) {
  if (!name) return nullptr;
  char* narrowed = nullptr;
  const char* bytes = static_cast<const char*>(name);
  if (!(flags & 128)) {
    narrowed = uctostrdup(static_cast<const unsigned short*>(name));
    if (!narrowed) return nullptr;
    bytes = narrowed;
  }
  FILEPATH path;
  const int found = FILEFIND::LocateReferenceFile(bytes, path, 0);
  free(narrowed);
  return found ? path.GetVioPath().GetString() : nullptr;
}

void FreeFNameUCList(FNAMEUCLIST* list) {
  while (list) {
    FNAMEUCLIST* next = list->next;
    free(list->name);
    free(list);
    list = next;
  }
}

void FreeFNameUCArray(FNAMEUCLIST* array, int count) {
  if (!array) return;
  for (int i = 0; i < count; ++i) {
    free(array[i].name);
    array[i].name = nullptr;
  }
}
