// VOSYSTEM, CRITICALSECTION and THREADLOCALSTORAGE.
static const char s_ident[] = "@(#) vosystem.cpp 1.0";

#include <pthread.h>
#include <sys/time.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <new>

#include "files/ospath.h"
#include "foundation/errpos.h"
#include "vosystem/errors.h"
#include "vosystem/filepath.h"
#include "vosystem/system.h"

namespace {

int64_t NowMilliseconds() {
  timeval tv;
  gettimeofday(&tv, nullptr);
  return static_cast<int64_t>(tv.tv_sec) * 1000 + tv.tv_usec / 1000;
}

}  // namespace

VOSTRING VOSYSTEM::GetCurrentUserName() {
  const char* user = getenv("USER");
  if (!user || !*user) return VOSTRING("UnknownUser");
  return OsTextToString(user);
}

VOSTRING VOSYSTEM::GetEnvironmentValue(const char* name) {
  const char* value = name ? getenv(name) : nullptr;
  return value ? OsTextToString(value) : VOSTRING();
}

long long VOSYSTEM::GetPhysicalMemoryAvailable() {
  return -1;
}
long long VOSYSTEM::GetPhysicalMemoryTotal() {
  return -1;
}
long long VOSYSTEM::GetVirtualMemoryAvailable() {
  return -1;
}
long long VOSYSTEM::GetVirtualMemoryTotal() {
  return -1;
}

int VOSYSTEM::GetPlatform() {
  return 8193;
}

// The base is taken once (a thread-safe static), ten seconds before the
// first call; the count then wraps as the 32-bit value it always was.
long VOSYSTEM::GetTickCount() {
  static const int64_t s_base = NowMilliseconds() - 10000;
  return static_cast<int32_t>(static_cast<uint32_t>(NowMilliseconds() - s_base));
}

long VOSYSTEM::GetTicksPerSecond() {
  return 1000;
}

double VOSYSTEM::GetTimerValue() {
  timeval tv;
  gettimeofday(&tv, nullptr);
  return static_cast<double>(tv.tv_sec) + tv.tv_usec / 1000000.0;
}

int VOSYSTEM::SetCurrentWorkingDirectory(const FILEPATH& path) {
  char* os = path.GenerateOSPath();
  const int rc = os ? chdir(os) : -1;
  free(os);
  if (rc == 0) return 0;
  if (!os) errno = ENOENT;
  long syserr = 0;
  const int code = _SetErrPosnC(TranslateSystemError(VOERROR_Failed, syserr), s_ident, __LINE__);
  PushErrFileName(path.GetDisplay());
  return code;
}

void VOSYSTEM::Sleep(double seconds) {
  if (seconds > 0) usleep(static_cast<useconds_t>(seconds * 1000000));
}

bool VOSYSTEM::Supports64BitFileSystem() {
  return true;
}

// By the system's names for the numbers: the numbers themselves differ from
// system to system.
int VOSYSTEM::TranslateSystemError(int defaultcode, long& syserr) {
  syserr = errno;
  switch (syserr) {
    case EEXIST:
      return 0;
    case EDQUOT:
      return VOERROR_DiskQuota;
    case EFBIG:
      return VOERROR_FileTooLarge;
    case EACCES:
    case EROFS:
      return VOERROR_PermissionDenied;
    case ETIMEDOUT:
      return VOERROR_TimedOut;
    case ENFILE:
      return VOERROR_FileTableFull;
    case ENOENT:
      return VOERROR_FileNotFound;
    case EMFILE:
      return VOERROR_TooManyOpenFiles;
    case ENOSPC:
      return VOERROR_NoSpace;
    case EBADF:
      return VOERROR_BadHandle;
    case EIO:
      return VOERROR_IoError;
    case EXDEV:
      return VOERROR_CrossDevice;
    case EINVAL:
      return VOERROR_InvalidArgument;
    case ENOTDIR:
    case EISDIR:
      return VOERROR_NotADirectory;
    default:
      return defaultcode;
  }
}

// ---------------------------------------------------------------- CRITICALSECTION

struct CRITICALSECTION::PRIV {
  pthread_mutex_t mutex;
};

CRITICALSECTION::CRITICALSECTION(unsigned long) : m_priv(new (std::nothrow) PRIV) {
  if (!m_priv) return;
  pthread_mutexattr_t attr;
  pthread_mutexattr_init(&attr);
  pthread_mutexattr_settype(&attr, PTHREAD_MUTEX_RECURSIVE);
  if (pthread_mutex_init(&m_priv->mutex, &attr) != 0) {
    delete m_priv;
    m_priv = nullptr;
  }
  pthread_mutexattr_destroy(&attr);
}

CRITICALSECTION::~CRITICALSECTION() {
  if (!m_priv) return;
  pthread_mutex_destroy(&m_priv->mutex);
  delete m_priv;
}

int CRITICALSECTION::SetSpinCount(unsigned long) {
  return 0;
}

// Without a mutex (no memory at construction) the section guards nothing,
// as the single-threaded build it then falls back to.
void CRITICALSECTION::Enter() {
  if (m_priv) pthread_mutex_lock(&m_priv->mutex);
}

bool CRITICALSECTION::TryEnter() {
  return !m_priv || pthread_mutex_trylock(&m_priv->mutex) == 0;
}

void CRITICALSECTION::Leave() {
  if (m_priv) pthread_mutex_unlock(&m_priv->mutex);
}

// ---------------------------------------------------------------- THREADLOCALSTORAGE

// A system key per object; without one (the keys ran out) the object keeps
// one value for all threads.
struct THREADLOCALSTORAGE::PRIV {
  pthread_key_t key;
  bool haveKey;
  void* shared;
};

THREADLOCALSTORAGE::THREADLOCALSTORAGE() : m_priv(new (std::nothrow) PRIV{}) {
  if (m_priv) m_priv->haveKey = pthread_key_create(&m_priv->key, nullptr) == 0;
}

THREADLOCALSTORAGE::~THREADLOCALSTORAGE() {
  if (!m_priv) return;
  if (m_priv->haveKey) pthread_key_delete(m_priv->key);
  delete m_priv;
}

void THREADLOCALSTORAGE::SetValue(void* value) {
  if (!m_priv) return;
  if (m_priv->haveKey)
    pthread_setspecific(m_priv->key, value);
  else
    m_priv->shared = value;
}

void* THREADLOCALSTORAGE::GetValue() const {
  if (!m_priv) return nullptr;
  return m_priv->haveKey ? pthread_getspecific(m_priv->key) : m_priv->shared;
}
