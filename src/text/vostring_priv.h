// The body shared by VOSTRING handles: text, its allocation, and the
// formatting state of the string as a template.
#ifndef VOSYS_SRC_TEXT_VOSTRING_PRIV_H
#define VOSYS_SRC_TEXT_VOSTRING_PRIV_H

#include <cstdarg>
#include <cstdint>

#include "vosystem/vostring.h"

struct VOSTRING::PRIV {
  // The count of the one shared empty body, which is never counted, never
  // changed and never freed: default-constructed strings in any thread share
  // it without touching it, so they need no lock and no atomic count.
  static constexpr int kImmortal = -1;

  int refs = 1;                    // handles sharing this body, or kImmortal
  unsigned short* text = nullptr;  // null-terminated, from the heap
  int length = 0;                  // units before the terminator
  int capacity = 0;                // size of the text block in bytes

  // Formatting state (see vostring_format.cpp). "P" is the persistent value
  // set by the caller, "C" the current one for the insertion under way.
  int dollarScan = 0;   // where the search for "$" starts
  int percentScan = 0;  // where the search for "%" starts
  int substOff = 0;     // non-zero: every insertion appends
  int signP = 0, signC = 0;
  int alignP = 0, alignC = 0;   // 0 default, 1 right, 2 left
  uint16_t percentSuspend = 0;  // while above 0 "%" placeholders are not looked at
  int16_t precP = -1, precC = -1;
  uint8_t widthP = 0, widthC = 0;
  uint8_t baseP = 10, baseC = 10;
  uint16_t fillP = 0x20, fillC = 0x20;
  int floatP = FLOATFMT_FIXED, floatC = FLOATFMT_FIXED;
  int boolStyle = 0;

  static unsigned short s_zero;  // what operator[] returns out of range

  // The one shared empty body: constant-initialised, so it exists before any
  // code runs and after every exit handler.
  static PRIV* GetEmpty();
  bool IsImmortal() const { return refs == kImmortal; }
  // A body is the handle's own only at a count of exactly 1.
  bool IsExclusive() const { return refs == 1; }
  // A new body holding a copy of n units of s (n >= 0), with room for two
  // more; 16 units for an empty text.
  static PRIV* Create(const unsigned short* s, int n);
  static PRIV* CreateWidened(const char* s, int n);

  // Puts n units of text in place of s's text and gives s the format of a new
  // string, keeping s on its own body instead of swapping bodies. The error
  // record edits its texts this way: a failure raised while a value goes into
  // one of them must not free the body that the insertion is working on. On
  // failure (recorded) s is left empty.
  static void SetInPlace(VOSTRING& s, const unsigned short* text, int n);

  // Makes room for n units plus terminator and one spare, without unsharing.
  int Reserve(int n);

  // Puts n units of src in the place of units first..last (inclusive; last =
  // first - 1 inserts). The caller has validated the range. 0 or a negative
  // code, in which case nothing changed.
  int ReplaceUnits(int first, int last, const unsigned short* src, int n);
  // As ReplaceUnits for 8-bit text widened byte by byte; null removes.
  int Replace(int first, int last, const char* text);
  // Inserts count copies of c at pos; ignored unless 0 <= pos <= length, c != 0
  // and 1 <= count <= 1000.
  void Insert(int pos, unsigned short c, int count);
  // Keeps the scan positions from pointing past an edit at pos.
  void LowerScans(int pos) {
    if (dollarScan > pos) dollarScan = pos;
    if (percentScan > pos) percentScan = pos;
  }

  // Formatting engine.
  int FindSubs(SUBSTYPE type, int& first, int& last);
  void FillSubs();
  int Sprintfv(const unsigned short* format, va_list args);
  void InsertText(const unsigned short* s, int n);  // a string value into its slot
  void FormatSigned(int32_t value);
  void FormatUnsigned(uint32_t value);
  void FormatFloat(double value);
  void FormatInt64(int64_t value);
};

#endif
