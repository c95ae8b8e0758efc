// INIHNDPRIV: one open settings store, the file's whole text in memory.
//
// The text always ends in a line feed (or is empty) and is followed by a
// zero byte; its length is m_size, never strlen: values may hold zero bytes
// and a save writes every one of them. Pointers into the text that the
// Find operations return live until the next edit or load.
#ifndef VOSYS_SRC_SETTINGS_INISTORE_H
#define VOSYS_SRC_SETTINGS_INISTORE_H

#include <sys/types.h>

#include <mutex>

#include "vosystem/filepath.h"
#include "vosystem/fileraw.h"

// What identifies one version of a file without reading it.
struct INISTAMP {
  dev_t device = 0;
  ino_t inode = 0;
  long long size = -1;
  long long mtime = 0;  // nanoseconds since 1970
  long long ctime = 0;
  // The coarse clock when the stamp was taken. While the file's time isn't
  // older than this, a later change could carry the same time: the stamp
  // then proves nothing and the file is read again.
  long long taken = 0;
};

class INIHNDPRIV {
 public:
  static const int kMaxFieldName = 255;
  static const int kAppNameSize = 64;

  FILEPATH m_path;  // first, so that the handle can be read as its path
  char* m_buffer = nullptr;
  long m_size = 0;
  int m_loaded = 0;
  int m_readOnly = 0;
  int m_memoryOnly = 0;
  long m_modified = 0;  // the file's modification time at the last load, in seconds
  char m_appName[kAppNameSize] = {};

  INIHNDPRIV() = default;
  ~INIHNDPRIV();
  INIHNDPRIV(const INIHNDPRIV&) = delete;
  INIHNDPRIV& operator=(const INIHNDPRIV&) = delete;

  int Create(const void* name, unsigned long flags);
  // Reads the file again if it changed since the last load. 0 or a code.
  int LoadFile();
  // Writes the whole text to the file. 0 or a code.
  int SaveFile();

  // A change: the file's lock is taken before the load that precedes the
  // edit and held until the save after it, so no other process's change
  // falls between the two. Memory stores take none. Begin gives 0 or a
  // code; End releases what Begin took.
  int BeginChange();
  void EndChange();

  // The first character of the line after the group's header, or null.
  char* FindGroup(const char* group);
  // The next line-starting "[" (after blanks) at or after from whose line
  // holds a "]", or null.
  char* FindNextGroup(char* from);
  // The byte after the field's "=", or null.
  char* FindField(char* groupstart, const char* field);
  // A heap copy of the value at value (free it) in *out; its length, or a
  // negative code. next, if given, gets the start of the following line.
  int GetString(char* value, void** out, char** next);
  // Sets the field's value: length bytes, or up to a zero byte for -1. type
  // 12 takes UTF-16 text. Doesn't save.
  int PutString(const char* group, const char* field, const void* value, unsigned long type,
                long length = -1);
  // Remove and save (unless memory-only); -1 when absent.
  int DeleteField(const char* group, const char* field);
  // DeleteField without the save, for a change of several steps.
  int RemoveField(const char* group, const char* field);
  int DeleteGroup(const char* group);
  int SetBuffer(const unsigned short* text);
  int GetBuffer(unsigned short** text);

  // The name of the store in messages: its file's, or for a store in
  // memory, its application name.
  VOSTRING GetDisplayName() const;

  // The group a null group stands for.
  const char* GroupOrAppName(const char* group) const { return group ? group : m_appName; }
  void SetAppName(const char* name);

 private:
  // Puts n bytes of text in place of the span [at, at + old). 0 or a code.
  int Replace(long at, long old, const char* text, long n);
  // The end of the value that starts at value: the line feed that isn't a
  // continuation, or the end of the text. *lines counts the lines.
  const char* ValueEnd(const char* value, int* lines) const;
  // The "[" of the group's header line, or null.
  char* FindGroupHeader(const char* group);
  int ReadOpenFile(FILE_RAW& file);
  int SaveByRename(const char* target);
  int SaveInPlace();
  bool IsUnchanged(const INISTAMP& now) const;
  void TakeText(char* text, long size, long capacity);

  long m_capacity = 0;  // bytes of m_buffer
  INISTAMP m_stamp;
  FILE_RAW* m_lock = nullptr;  // the locked file during a change
};

// The store of a handle; a null handle is the default store, made at its
// first use (once, from whichever thread comes first; a failure stays).
// While the object lives, a default store is locked for this thread.
class INIREF {
 public:
  explicit INIREF(void* handle);
  ~INIREF();
  INIREF(const INIREF&) = delete;
  INIREF& operator=(const INIREF&) = delete;
  // 0, or the code the default store failed with.
  int Status() const { return m_rc; }
  INIHNDPRIV* operator->() const { return m_store; }
  INIHNDPRIV* Get() const { return m_store; }

 private:
  INIHNDPRIV* m_store;
  int m_rc = 0;
  bool m_locked = false;
};

// The lock of the default store and of the default application name.
std::recursive_mutex& DefaultStoreLock();
// The default application name: empty until IniSetAppName.
char* DefaultAppName();
// Whether the default store was made and loaded.
bool DefaultStoreExists();

#endif
