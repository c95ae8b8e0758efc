// GENERICRW: the library's byte stream, one interface for reading, writing,
// seeking and resizing with 64-bit sizes and positions. FILE_RAW (fileraw.h)
// is a file on a descriptor, GENERICRW_MEMORY a growable block of memory;
// whatever reads or writes settings or resources takes a GENERICRW, so its
// data can come from either.
//
// Callers use the non-virtual front (Read, Write, ...); each implementation
// fills in the v_ operations behind it. The destructor isn't virtual: an
// owner deletes a stream through its concrete type.
#ifndef VOSYSTEM_GENERICRW_H
#define VOSYSTEM_GENERICRW_H

#include "vosystem/export.h"
#include "vosystem/vodblary.h"

class VOSYS_API GENERICRW {
 public:
  enum SEEKFROM : int { SEEKFROM_Start = 0, SEEKFROM_Current = 1, SEEKFROM_End = 2 };

  // What a stream can do, as GetCapabilities reports it: a stream with all
  // rights has 15, a read-only file 5, a closed file 0.
  enum CAPABILITY : int {
    CAPABILITY_Read = 1,
    CAPABILITY_Write = 2,
    CAPABILITY_Seek = 4,
    CAPABILITY_Resize = 8
  };

  int GetCapabilities() const { return v_GetCapabilities(); }
  // Size in bytes, or a negative code.
  long long GetSize() const { return v_GetSize(); }
  // The largest size the stream can have, or a negative code.
  long long GetSizeLimit() const { return v_GetSizeLimit(); }
  // Bytes read, or a negative code. Without allowpartial a read that stops
  // short of length is a failure.
  long Read(void* buffer, long length, bool allowpartial) {
    return v_Read(buffer, length, allowpartial);
  }
  // -1213 for a negative size or one above GetSizeLimit(), without asking
  // the stream; else the stream's answer.
  int Resize(long long size);
  // The new position, or a negative code.
  long long Seek(long long position, SEEKFROM from) { return v_Seek(position, from); }
  long long Tell() const { return v_Tell(); }
  // Bytes written, or a negative code.
  long Write(const void* buffer, long length) { return v_Write(buffer, length); }
  // Seek from the start, then read or write all of length: 0, not the
  // length, on success; else the negative code of the step that failed.
  int SeekAndRead(long long position, void* buffer, long length);
  int SeekAndWrite(long long position, const void* buffer, long length);

 protected:
  GENERICRW() = default;
  ~GENERICRW() = default;
  GENERICRW(const GENERICRW&) = default;
  GENERICRW& operator=(const GENERICRW&) = default;

  virtual int v_GetCapabilities() const = 0;
  virtual long long v_GetSize() const = 0;
  virtual long long v_GetSizeLimit() const = 0;
  virtual long v_Read(void* buffer, long length, bool allowpartial) = 0;
  virtual int v_Resize(long long size) = 0;
  virtual long long v_Seek(long long position, SEEKFROM from) = 0;
  virtual long long v_Tell() const = 0;
  virtual long v_Write(const void* buffer, long length) = 0;
};

// A stream over a block of the C heap that grows as it is written. Its size
// is at most 0x7FFFFFFF bytes. Bytes that a seek past the end and a later
// write, or a Resize, bring into the stream read as zero.
class VOSYS_API GENERICRW_MEMORY final : public GENERICRW {
 public:
  GENERICRW_MEMORY() = default;
  ~GENERICRW_MEMORY() = default;  // the array frees the data
  GENERICRW_MEMORY(const GENERICRW_MEMORY&) = delete;
  GENERICRW_MEMORY& operator=(const GENERICRW_MEMORY&) = delete;

  // Takes a block of the C heap holding size bytes; data becomes null. Any
  // data held before is freed; the position goes back to 0.
  void Attach(unsigned char*& data, int size);
  // Takes the array's block and count the same way; the array is left empty.
  void Attach(SIMPLE_ARRAY<unsigned char>& array);
  // Gives up the data (free it); the stream is left empty at position 0.
  unsigned char* Detach();
  // The data, still the stream's.
  const unsigned char* GetBuffer() const { return m_data.GetPointer(); }

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
  SIMPLE_ARRAY<unsigned char> m_data;  // count = size, reserve = capacity
  unsigned long m_position = 0;
};

#endif
