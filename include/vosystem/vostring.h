// VOSTRING: UTF-16 text on a shared, reference-counted body with copy on write,
// which is also its own format template.
//
// Positions and lengths are int, in UTF-16 code units; -1 is "not found". A
// range is first and last, both inclusive; a last at or past the end (by
// convention 0x7FFFFFFF) means "to the end". Invalid positions are ignored.
//
//   VOSTRING msg("Copied $1 of %d files");
//   msg << 7 << "report.txt";      // "Copied report.txt of 7 files"
//
// operator<< puts a value into the next placeholder that suits its type ("%d"
// style, left to right by type; then "$1" style by number) or, with none left,
// appends it.
#ifndef VOSYSTEM_VOSTRING_H
#define VOSYSTEM_VOSTRING_H

#include <cstdarg>

#include "vosystem/export.h"

enum TEXTID : int;         // number of a text resource (textres.h)
enum CHAR_ENCODING : int;  // number of a text encoding (ucconv.h)
class STRUTF8;
class UCREGEXP;  // a compiled regular expression (ucregexp.h)

// Line terminations.
enum LINETERM : int { LINETERM_LF = 0, LINETERM_CR = 1, LINETERM_CRLF = 2 };

// How floating-point values are written.
enum FLOATFMT : int { FLOATFMT_GENERAL = 0, FLOATFMT_FIXED = 1, FLOATFMT_EXP = 2 };

// What kind of placeholder an insertion looks for.
enum SUBSTYPE {
  SUBSTYPE_CHAR = 0,
  SUBSTYPE_STRING = 1,
  SUBSTYPE_INTEGER = 2,
  SUBSTYPE_FLOAT = 3,
  SUBSTYPE_ANY = 4
};

// Manipulators, used as str << STR_BASE16. Width applies to one insertion;
// the other settings persist.
enum STR_OP : int {
  STR_CLEAR = 0,
  STR_BOOL_LOWER = 1,
  STR_BOOL_TITLE = 2,
  STR_BOOL_UPPER = 3,
  STR_ALIGN_LEFT = 4,
  STR_ALIGN_RIGHT = 5,
  STR_ALIGN_DEFAULT = 6,
  STR_FILLSUBS = 10,
  STR_FLOAT_EXP = 11,
  STR_FLOAT_FIXED = 12,
  STR_FLOAT_GENERAL = 13,
  STR_BASE2 = 14,
  STR_BASE10 = 15,
  STR_BASE16 = 16,
  STR_FILL_SPACE = 17,
  STR_FILL_ZERO = 18,
  STR_PREC_NONE = 19,
  STR_PREC0,
  STR_PREC1,
  STR_PREC2,
  STR_PREC3,
  STR_PREC4,
  STR_PREC5,
  STR_PREC6,
  STR_PREC7,
  STR_PREC8,
  STR_PREC9,
  STR_PREC10,
  STR_PREC11,
  STR_PREC12,
  STR_PREC13,
  STR_PREC14,
  STR_PREC15,
  STR_PREC16,
  STR_WIDTH0 = 40,
  STR_WIDTH1,
  STR_WIDTH2,
  STR_WIDTH3,
  STR_WIDTH4,
  STR_WIDTH5,
  STR_WIDTH6,
  STR_WIDTH7,
  STR_WIDTH8,
  STR_WIDTH9,
  STR_WIDTH10,
  STR_WIDTH11,
  STR_WIDTH12,
  STR_WIDTH13,
  STR_WIDTH14,
  STR_WIDTH15
};

class VOSYS_API VOSTRING {
 public:
  struct PRIV;

  // ---- construction
  VOSTRING();  // shares the one empty body
  VOSTRING(const VOSTRING& other);
  VOSTRING(const unsigned short* s);  // null gives empty
  VOSTRING(const char* s);            // bytes widened as code points below 256
  VOSTRING(const char16_t* s);        // convenience for u"..." literals
  explicit VOSTRING(int value);       // decimal text
  explicit VOSTRING(unsigned int value);
  explicit VOSTRING(double value);
  explicit VOSTRING(TEXTID id);  // the text resource of that number
  // The text resource named "group.name" of the text set (textres.h); a
  // null group is "generic". A missing one reads "Unknown text 'group.name'".
  VOSTRING(const char* group, const char* name);
  VOSTRING(const STRUTF8& s);                  // decodes UTF-8
  VOSTRING(const void* src, CHAR_ENCODING e);  // decodes from an encoding
  ~VOSTRING();

  static const VOSTRING& GetEmpty();

  // ---- reading
  operator const unsigned short*() const;
  const unsigned short* GetReference() const;
  const unsigned short& operator[](int index) const;  // out of range: a zero
  int GetLength() const;
  bool IsEmpty() const;
  unsigned short* GetString() const;  // heap copy; free() it
  double ConvertToDouble() const;
  VOSTRING GetSubString(int first) const;
  VOSTRING GetSubString(int first, int last) const;

  // ---- comparing (results as ucstrcmp: 0 for equal)
  int Compare(const VOSTRING& other) const;
  int Compare(const VOSTRING& other, int n) const;
  int Compare(int pos, const VOSTRING& other, int otherpos, int n) const;
  int CompareNoCase(const VOSTRING& other) const;
  int CompareNoCase(const VOSTRING& other, int n) const;
  int CompareNoCase(int pos, const VOSTRING& other, int otherpos, int n) const;
  friend bool operator==(const VOSTRING& a, const VOSTRING& b) { return a.Compare(b) == 0; }
  friend bool operator!=(const VOSTRING& a, const VOSTRING& b) { return a.Compare(b) != 0; }

  // ---- searching: position or -1
  int FindNextOf(unsigned short c, int start = 0) const;
  int FindNextOf(const VOSTRING& str, int start = 0) const;
  int FindNextInSet(const VOSTRING& set, int start = 0) const;
  int FindNextNotInSet(const VOSTRING& set, int start = 0) const;
  int FindPrevOf(unsigned short c, int start = 0x7FFFFFFF) const;
  int FindPrevInSet(const VOSTRING& set, int start = 0x7FFFFFFF) const;
  int FindPrevNotInSet(const VOSTRING& set, int start = 0x7FFFFFFF) const;

  // ---- regular expressions (ucregexp.h), from code unit `from` on, as if the
  // text began there (for "^"). Non-zero on a match [first, last): positions
  // count from the start of the string, and last is EXCLUSIVE, unlike the
  // inclusive ranges of the rest of this class. 0 at once if from is at or
  // past the end (first and last untouched); 0 without a match (both then
  // (unsigned long)-1). The second form compiles pattern for this one
  // search, ignoring case if asked.
  int Search(const UCREGEXP& re, unsigned long& first, unsigned long& last,
             unsigned long from = 0) const;
  int Search(const unsigned short* pattern, unsigned long& first, unsigned long& last,
             bool ignoreCase, unsigned long from = 0) const;

  // ---- changing
  VOSTRING& operator=(const VOSTRING& other);
  VOSTRING& operator=(const unsigned short* s);
  VOSTRING& operator=(const char* s);
  VOSTRING& operator=(const char16_t* s);
  VOSTRING& operator=(TEXTID id);
  VOSTRING& operator=(const STRUTF8& s);
  VOSTRING& operator+=(const VOSTRING& s);
  VOSTRING& operator+=(const unsigned short* s);
  VOSTRING& operator+=(const char* s);
  VOSTRING& operator+=(unsigned short c);
  int Assign(const VOSTRING& src, int first, int last);
  int Assign(const unsigned short* src, int first, int last);
  int Assign(const void* src, CHAR_ENCODING e);  // decode; on failure unchanged
  int Append(const VOSTRING& src, int first, int last);
  void Clear();
  void Truncate(int len);
  void Remove(int first, int last);
  void Replace(int pos, unsigned short c);
  void Replace(int first, int last, const VOSTRING& src, int srcfirst, int srclast);
  void Insert(int pos, const VOSTRING& src, int first = 0, int last = 0x7FFFFFFF);
  int Pad(unsigned short c, int n);
  int PadToLength(unsigned short c, int len);
  void SetLowerCase(int pos = 0);
  void SetUpperCase(int pos = 0);
  int SetLineTermination(LINETERM term);  // 1, or a negative code (text unchanged)
  int CheckLineTermination(LINETERM term) const;

  // Room for units code units without unsharing: a body shared with other
  // handles grows for them all. The one exception is the empty body shared by
  // default-constructed strings, which never changes: this handle gets a body
  // of its own. 0 or a negative code.
  int Reserve(int units);
  // Makes the body private to this handle; call before writing into the text.
  void GetExclusive();

  // ---- encoded text: a heap copy (free it), or null if it can't be made
  char* GetEncoded(CHAR_ENCODING e) const;

  // ---- settings (inifuncs.h), as UTF-16 text. The reads clear the string
  // and give 1 when a non-empty text was read, else 0, leaving the error
  // record alone; ReadML joins field, field__2, ... with line feeds. The
  // writes give what the store gives: 0 or a negative code (a text with a
  // line feed needs IniWriteML).
  int IniRead(void* handle, const char* group, const char* field);
  int IniReadML(void* handle, const char* group, const char* field);
  int IniWrite(void* handle, const char* group, const char* field) const;
  int IniWriteML(void* handle, const char* group, const char* field) const;

  // ---- formatting
  VOSTRING& operator<<(STR_OP op);
  VOSTRING& operator<<(bool value);
  VOSTRING& operator<<(char value);
  VOSTRING& operator<<(signed char value);
  VOSTRING& operator<<(short value);
  VOSTRING& operator<<(int value);
  VOSTRING& operator<<(long value);
  VOSTRING& operator<<(unsigned char value);
  VOSTRING& operator<<(unsigned short value);  // a number, not a character
  VOSTRING& operator<<(unsigned int value);
  VOSTRING& operator<<(unsigned long value);
  VOSTRING& operator<<(long long value);
  VOSTRING& operator<<(unsigned long long value);
  VOSTRING& operator<<(float value);
  VOSTRING& operator<<(double value);
  VOSTRING& operator<<(const char* value);
  VOSTRING& operator<<(const unsigned short* value);
  VOSTRING& operator<<(const char16_t* value);
  VOSTRING& operator<<(const VOSTRING& value);
  VOSTRING& operator<<(TEXTID id);

  VOSTRING& FmtEnableSubstitution(bool on);
  VOSTRING& FmtSetBase(int base);  // 2 to 36; anything else is ignored
  VOSTRING& FmtSetFill(unsigned short fill);
  VOSTRING& FmtSetFloat(FLOATFMT fmt);
  VOSTRING& FmtSetPrecision(int precision);
  VOSTRING& FmtSetSign(bool on);
  VOSTRING& FmtSetWidth(int width);
  // Replaces every placeholder left with "???".
  VOSTRING& FillSubs();

  // Classic printf-style output appended to the string. "%S" takes a UTF-16
  // string, "%s" an 8-bit one. Returns the new length or a negative code.
  int Sprintf(const unsigned short* format, ...);
  int Sprintfv(const unsigned short* format, va_list args);

 private:
  explicit VOSTRING(PRIV* body);  // takes over a new body
  void Attach(PRIV* body);
  bool MakeExclusive();  // false if a private copy could not be made
  int ReplaceRange(int first, int last, const unsigned short* src, int n);
  int AssignThroughRegistry(const void* src, CHAR_ENCODING e);
  int TakeText(unsigned short* block, int length);
  // A mirror of the body's text pointer, refreshed by every change through
  // this handle. Nothing in the library reads it (a second handle's mirror
  // may be stale); it keeps the handle's layout (text, then body) that
  // applications built against this class expect, and lets a debugger show
  // the text of a handle without following the body.
  unsigned short* m_text;
  PRIV* m_priv;  // never null
};

#endif
