// Operating-system services: the user, the environment, clocks, the working
// folder and the translation of errno into library codes; and the two thread
// primitives.
#ifndef VOSYSTEM_SYSTEM_H
#define VOSYSTEM_SYSTEM_H

#include "vosystem/export.h"
#include "vosystem/vostring.h"

class FILEPATH;

class VOSYS_API VOSYSTEM {
 public:
  // "USER", or "UnknownUser" when that is unset or empty.
  static VOSTRING GetCurrentUserName();
  // The variable's value decoded as the system's text; empty when unset.
  static VOSTRING GetEnvironmentValue(const char* name);
  // Memory figures in bytes; -1 for unknown.
  static long long GetPhysicalMemoryAvailable();
  static long long GetPhysicalMemoryTotal();
  static long long GetVirtualMemoryAvailable();
  static long long GetVirtualMemoryTotal();
  static int GetPlatform();  // 8193
  // Milliseconds that start at 10,000 on the first call, so that 0 never
  // means "just started", and wrap as a 32-bit count.
  static long GetTickCount();
  static long GetTicksPerSecond();  // 1000
  // Seconds since 1970, with microseconds.
  static double GetTimerValue();
  // chdir; on failure the translated code (default -1204), recorded with the
  // path's display form.
  static int SetCurrentWorkingDirectory(const FILEPATH& path);
  static void Sleep(double seconds);
  static bool Supports64BitFileSystem();  // true
  // Sets syserr to errno and returns its library code, or defaultcode for a
  // number without one; EEXIST gives 0. Nothing is recorded.
  static int TranslateSystemError(int defaultcode, long& syserr);
};

// A recursive lock: the thread that holds it may enter again, and leaves as
// often as it entered.
class VOSYS_API CRITICALSECTION {
 public:
  explicit CRITICALSECTION(unsigned long spincount = 0);
  ~CRITICALSECTION();
  CRITICALSECTION(const CRITICALSECTION&) = delete;
  CRITICALSECTION& operator=(const CRITICALSECTION&) = delete;

  int SetSpinCount(unsigned long spincount);  // 0; spinning is the system's business
  void Enter();
  bool TryEnter();
  void Leave();

 private:
  struct PRIV;
  PRIV* m_priv;
};

// One pointer for each thread, null until that thread sets it. The object
// owns nothing the pointers point to.
class VOSYS_API THREADLOCALSTORAGE {
 public:
  THREADLOCALSTORAGE();
  ~THREADLOCALSTORAGE();
  THREADLOCALSTORAGE(const THREADLOCALSTORAGE&) = delete;
  THREADLOCALSTORAGE& operator=(const THREADLOCALSTORAGE&) = delete;

  void SetValue(void* value);
  void* GetValue() const;

 private:
  struct PRIV;
  PRIV* m_priv;
};

#endif
