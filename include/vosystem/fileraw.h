// FILE_RAW: a GENERICRW on a file descriptor.
//
// Reads and writes go to the system with the whole length: a read that the
// system answers in pieces, or a call a signal interrupts, is continued
// rather than reported short. Descriptors are never inherited by programs
// the process starts.
#ifndef VOSYSTEM_FILERAW_H
#define VOSYSTEM_FILERAW_H

#include "vosystem/export.h"
#include "vosystem/filepath.h"
#include "vosystem/genericrw.h"

//   Read       read-only; the file must exist
//   Write      read-write; created if missing, never emptied
//   ReadWrite  the same as Write
//   Create     read-write; created if missing, emptied
//   Append     read-write; created if missing, every write goes to the end
//   CreateNew  read-write; created, and the open fails if the file exists:
//              the one way to take a new name that no other process can
//              take between a test and the create
enum FILE_ACCESS : int {
  FILE_ACCESS_Read = 1,
  FILE_ACCESS_Write = 2,
  FILE_ACCESS_ReadWrite = 3,
  FILE_ACCESS_Create = 4,
  FILE_ACCESS_Append = 8,
  FILE_ACCESS_CreateNew = 16
};

// Exclusive: an advisory lock on the whole file, waited for at Open and
// held until Close, against every other opener that asks for it (in this
// process or another). A file that Open is to empty is emptied only once
// the lock is held, so a reader holding the lock never sees it cut.
enum FILE_SHARE : int { FILE_SHARE_All = 0, FILE_SHARE_Exclusive = 1 };

struct FILE_RAW_PRIV;

// Open for derivation: a reader of one kind of file can be the open file
// itself, so the destructor is virtual.
class VOSYS_API FILE_RAW : public GENERICRW {
 public:
  FILE_RAW();
  virtual ~FILE_RAW();
  FILE_RAW(const FILE_RAW&) = delete;
  FILE_RAW& operator=(const FILE_RAW&) = delete;

  // Closes what was open, then opens path. New files get the mode 0666 less
  // the process's creation mask. 0, or -1526 for an empty path, -1213 for an
  // unknown access, or the system's failure (default -1101 when the file
  // was to be created, else -1104) with the path and the system's number in
  // the message. A failed Open leaves the object closed.
  int Open(const FILEPATH& path, FILE_ACCESS access, FILE_SHARE share);
  void Close();  // safe to repeat
  bool IsOpen() const;
  // The open file's path (true), or an empty one (false) when closed.
  bool GetPath(FILEPATH& path) const;
  // The descriptor, -1 when closed; still the object's.
  int GetDescriptor() const;

 protected:
  int v_GetCapabilities() const override;
  long long v_GetSize() const override;
  long long v_GetSizeLimit() const override;
  long v_Read(void* buffer, long length, bool allowpartial) override;
  int v_Resize(long long size) override;
  long long v_Seek(long long position, SEEKFROM from) override;
  long long v_Tell() const override;
  long v_Write(const void* buffer, long length) override;

 private:
  FILE_RAW_PRIV* m_priv;
};

#endif
