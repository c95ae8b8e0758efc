// RESFILE: one binary text resource file, open for the life of the object,
// with its index in memory; XRESLOADER: entries as X resource lines.
//
// Private to the resource manager (textres.cpp) and the text items
// (textresitem.cpp). See resfile.cpp for the file format and the checks.
#ifndef VOSYS_SRC_RESOURCES_RESFILE_H
#define VOSYS_SRC_RESOURCES_RESFILE_H

#include <cstddef>
#include <cstdint>

#include "vosystem/fileraw.h"
#include "vosystem/textres.h"
#include "vosystem/vodblary.h"

// The three numeric sets divide the ids by sign and size.
enum NUMSET : int {
  NUMSET_Negative = 0,  // below 0: the error codes
  NUMSET_Small = 1,     // 0 to 99999
  NUMSET_Large = 2      // 100000 and above
};

// Turns text entries into lines of an X resource file,
// "*<name><suffix>: <text>", with the text in the encoding "X-Resfile", and
// hands each to a callback without a line end.
class XRESLOADER {
 public:
  XRESLOADER(void (*callback)(void*, const char*), void* user);
  ~XRESLOADER();
  XRESLOADER(const XRESLOADER&) = delete;
  XRESLOADER& operator=(const XRESLOADER&) = delete;

  // 0, or the negative code of a conversion or allocation that failed
  // (the callback isn't called then).
  int PutLine(const char* name, const char* suffix, const unsigned short* text);

 private:
  void (*m_callback)(void*, const char*);
  void* m_user;
  void* m_conv = nullptr;  // from UTF-16 into "X-Resfile"; null if it couldn't be made
  int m_convRc = 0;        // why m_conv is null
  SIMPLE_ARRAY<char> m_line;
};

class RESFILE : public FILE_RAW {
 public:
  static const int kNameMax = 128;  // a name with its terminator

  RESFILE();
  ~RESFILE() override;

  // Opens the file read-only and loads its index. 0; the stream's code when
  // the file can't be opened or its first 36 bytes can't be read; -1588
  // (returned, never recorded) for anything else that isn't a valid file.
  // After a failure the object finds nothing.
  int Open(const FILEPATH& path);

  // Address of the text record of an id or name, or 0 if there is none.
  long GetAddr(int id, NUMSET set) const;
  long GetAddr(const char* name, TEXTRES_NAMESET set);

  // The text of an id (its set follows from the id) or a name: 1 and the
  // text, or 0 and out unchanged.
  int GetString(int id, VOSTRING& out);
  int GetString(const char* name, TEXTRES_NAMESET set, VOSTRING& out);

  // The text of the record at addr: 1, or 0 (out unchanged) when the record
  // can't be read or isn't a valid record. Reports nothing.
  int ReadText(long addr, VOSTRING& out);
  // Name number index of a set into out (kNameMax bytes): 1, or 0 with out
  // empty.
  int ReadName(TEXTRES_NAMESET set, int index, char* out);

  // The label set with ".labelString", then the title set with
  // "_popup.title": 0 or the first negative code.
  int LoadX(XRESLOADER& loader);
  // One set in file order.
  int LoadX(XRESLOADER& loader, TEXTRES_NAMESET set, const char* suffix);

  // The language code of the header, such as "enu".
  const char* GetLanguage() const { return m_language; }
  // How many times a text record was read from the file (cached texts
  // don't count): what a caller can't see otherwise.
  long GetRecordReads() const { return m_recordReads; }

 private:
  struct CACHED;  // a text already read, by address

  int LoadIndex();
  int ReadTable(int32_t offset, SIMPLE_ARRAY<int32_t>& table, int count);
  const CACHED* FindCached(int32_t addr) const;
  void Remember(int32_t addr, const unsigned short* units, int length);
  void Forget();

  // Numeric sets.
  int32_t m_firstId[3] = {0, 0, 0};
  SIMPLE_ARRAY<int32_t> m_addr[3];
  // Name sets: count entries, name offsets count + 1 (the last is the block
  // length), text addresses count.
  int32_t m_nameCount[4] = {0, 0, 0, 0};
  int32_t m_nameBlock[4] = {0, 0, 0, 0};
  SIMPLE_ARRAY<int32_t> m_nameOffsets[4];
  SIMPLE_ARRAY<int32_t> m_textAddr[4];
  // The upper levels of each name search: only 9 of the 16 slots are ever
  // filled, each always with the same name.
  char m_probe[4][16][kNameMax];
  // The last name looked up: its set (4 = none yet), name and address.
  int m_lastSet = 4;
  char m_lastName[kNameMax];
  int32_t m_lastAddr = 0;

  char m_language[4] = {0, 0, 0, 0};
  long long m_size = 0;  // of the file, when the index was loaded
  int m_longest = 0;     // units of the longest record, terminator included
  bool m_valid = false;
  SIMPLE_ARRAY<unsigned short> m_buffer;  // one record's units

  // Texts read once stay in memory: a lookup after the first costs no
  // system call. The total is bounded (kCacheBudget); past it, records are
  // read each time.
  CACHED* m_cache = nullptr;
  int m_cacheSlots = 0;  // a power of two, or 0
  int m_cacheUsed = 0;
  size_t m_cacheBytes = 0;
  long m_recordReads = 0;
};

#endif
