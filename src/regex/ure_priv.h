// The compiled form of a regular expression, shared by the compiler
// (urebuffer.h), the step-by-step matcher (urematch.cpp) and the fast loop
// (ureaccel.cpp, urefast.cpp).
//
// A compiled pattern is three tables: symbols (what one transition tests),
// states (accepting or not, and their transitions in order) and transitions
// (symbol, next state). The order of a state's transitions is that of the
// symbols' ids, which is the order in which they first appear in the
// pattern; it decides which transition a character takes when two symbols
// accept it.
#ifndef VOSYS_SRC_REGEX_URE_PRIV_H
#define VOSYS_SRC_REGEX_URE_PRIV_H

#include <cstdint>

#include "vosystem/ucdata.h"
#include "vosystem/ucregexp.h"

// "No expression", "no symbol": the 16-bit identifiers stop below it.
constexpr uint16_t URE_NONE = 0xFFFF;

// Symbol types.
enum : uint32_t {
  URE_ANY_CHAR = 1,
  URE_CHAR = 2,
  URE_CCLASS = 3,
  URE_NCCLASS = 4,
  URE_BOL_ANCHOR = 5,
  URE_EOL_ANCHOR = 6
};

// Code points, both ends included.
struct URERANGE {
  uint32_t low;
  uint32_t high;
};

// A class's ranges, sorted by low end (then high end), without exact
// duplicates; ranges may overlap.
struct URECCL {
  URERANGE* ranges;
  unsigned long count;
  unsigned long capacity;
};

// A sorted set of expression ids without duplicates, so that two equal sets
// are equal arrays.
struct UREIDSET {
  uint16_t* ids;
  unsigned long capacity;
  unsigned long count;
};

struct URESYMTAB {
  uint16_t id;
  uint32_t type;
  uint32_t mods;   // bit 0: the character or the ranges were lowered (ignore case)
  uint32_t props;  // category mask of a class (bit n: category n)
  union {
    uint32_t chr;  // URE_CHAR
    URECCL ccl;    // URE_CCLASS, URE_NCCLASS
  } sym;
  UREIDSET states;  // during compilation only: the expressions this symbol leads to
};

struct UREDFATRANS {
  uint16_t symbol;
  uint16_t nextState;
};

struct UREDFASTATE {
  uint16_t accepting;
  uint16_t transCount;
  UREDFATRANS* trans;  // into the transition table
};

// ---------------------------------------------------------------- characters

inline bool UreIsSeparator(uint32_t c) {
  return c == 10 || c == 13 || c == 0x2028 || c == 0x2029;
}
inline bool UreIsHighSurrogate(uint32_t u) {
  return u - 0xD800 < 0x400;
}
inline bool UreIsLowSurrogate(uint32_t u) {
  return u - 0xDC00 < 0x400;
}
inline uint32_t UreJoinSurrogates(uint32_t high, uint32_t low) {
  return 0x10000 + ((high - 0xD800) << 10) + (low - 0xDC00);
}

// Lowering is by the low 16 bits: the character database describes code
// units, so a supplementary character becomes the lowered unit of its low
// half. Pattern literals and text go through the same function, so they stay
// comparable.
inline uint32_t UreLower(uint32_t c) {
  return uctolower(static_cast<unsigned short>(c));
}

// The category test. The database has records for 16-bit units only: a
// supplementary code point has none, and no category matches it (rather
// than the category of whatever unit its low half happens to be).
inline bool UreHasProp(uint32_t c, uint32_t mask) {
  return c <= 0xFFFF && ucisprop(static_cast<unsigned short>(c), mask) != 0;
}

// A class accepts a character in its category mask or in one of its ranges;
// a negated class accepts the others.
inline bool UreInClass(const URESYMTAB& s, uint32_t c) {
  if (s.props && UreHasProp(c, s.props)) return true;
  const URERANGE* r = s.sym.ccl.ranges;
  for (unsigned long i = 0; i < s.sym.ccl.count && r[i].low <= c; ++i)
    if (c <= r[i].high) return true;
  return false;
}

// Whether a symbol of type 1 to 4 accepts c (already lowered if the pattern
// ignores case). Anchors are the matcher's business.
inline bool UreSymbolAccepts(const URESYMTAB& s, uint32_t c, int execFlags) {
  switch (s.type) {
    case URE_ANY_CHAR:
      return (execFlags & UCREGEXP_DotAll) || !UreIsSeparator(c);
    case URE_CHAR:
      return c == s.sym.chr;
    case URE_CCLASS:
      return UreInClass(s, c);
    case URE_NCCLASS:
      return !UreInClass(s, c);
    default:
      return false;
  }
}

// ---------------------------------------------------------------- matching

// The tables of the fast loop, built once by Compile and only read after:
// Exec runs from several threads at once.
//
// Code units fall into classes that every symbol of the pattern treats
// alike; class 0 holds the units that the table can't decide alone
// (surrogates, which may pair, and line separators, which depend on the
// anchors and on UCREGEXP_DotAll) and sends them through the full rules of
// UREMATCH::Step. next[row + class] is the row of the state that the first
// accepting transition leads to, or kRefuse. A row is 2^rowShift entries
// (the class count rounded up), so that a row and its state are a shift
// apart.
struct UREACCEL {
  enum : uint32_t { kRefuse = 0xFFFFFFFFu, kSlow = 0xFFFFFFFEu };
  uint32_t classCount;
  uint32_t rowShift;
  uint8_t* map8;    // class of each unit, with at most 256 classes
  uint16_t* map16;  // otherwise
  uint32_t* next;
  bool caret;  // the pattern has "^": the first position takes the full rules
  // Skipping in the start state, when it isn't accepting: the units it may
  // act on, as a bitmap, and as up to kMaxRanges ranges (low, high - low)
  // when they are that few.
  bool skipStart;
  uint64_t* stopBits;
  int rangeCount;  // 0: use the bitmap
  enum { kMaxRanges = 8 };
  uint16_t low[kMaxRanges];
  uint16_t span[kMaxRanges];
};

// The state of one search, with the rules of one step. Every path of Exec
// ends up in the same state as a search that takes Step for each character.
struct UREMATCH {
  static constexpr unsigned long kNone = static_cast<unsigned long>(-1);

  UREMATCH(const UCREGEXP& re, const unsigned short* text, unsigned long length, int execFlags);

  // One character at pos, by the full rules; sets found at the end of a match.
  void Step();
  // After an accepted character that reaches the end of the text.
  void EndOfText();
  // The result of Exec, from the state the scan stopped in.
  int Finish(unsigned long* matchStart, unsigned long* matchEnd);

  const URESYMTAB* symbols;
  const UREDFASTATE* states;
  unsigned stateCount;
  unsigned flags;
  const unsigned short* text;
  unsigned long length;
  int execFlags;

  unsigned long pos = 0;
  uint32_t state = 0;
  unsigned long start = kNone;
  unsigned long end = kNone;
  bool found = false;
  bool lastAccepted = false;  // the last character looked at (marks aside) was accepted
  bool lastDollar = false;    // and by "$"

 private:
  bool TakeCaretAtStart();
  // The states that took "^" at the start of the text without consuming
  // anything (a state may do so once: "^*" would loop there forever).
  bool caretInit = false;
  uint64_t caretTaken[65536 / 64];
};

// Access to the compiled form for the library's own code and the tests.
struct UREACCESS {
  static const URESYMTAB* Symbols(const UCREGEXP& re) { return re.m_symbols; }
  static const UREDFASTATE* States(const UCREGEXP& re) { return re.m_states; }
  static const UREDFATRANS* Transitions(const UCREGEXP& re) { return re.m_transitions; }
  static const UREACCEL* Accel(const UCREGEXP& re) { return re.m_accel; }

  // Compile with or without the tables of the fast loop (a pattern compiled
  // for one short search needn't pay for them).
  static int Compile(UCREGEXP& re, const unsigned short* pattern, bool ignoreCase, bool fast);
  // Null text, the terminator and the empty text: a result of 0 or 1, or -1
  // to go on searching.
  static int Prologue(const UCREGEXP& re, const unsigned short* text, unsigned long* length,
                      unsigned long* matchStart, unsigned long* matchEnd);
  // Exec by Step alone: the model every other path must agree with.
  static int ExecReference(const UCREGEXP& re, const unsigned short* text,
                           unsigned long* matchStart, unsigned long* matchEnd, unsigned long length,
                           int execFlags);
  // The table-driven loop (execFlags without UCREGEXP_IgnoreMarks).
  static void RunFast(const UREACCEL& accel, UREMATCH& m);

  // The tables of the fast loop, or null when the pattern is too large for
  // them or memory runs out.
  static UREACCEL* BuildAccel(const UCREGEXP& re);
  static void FreeAccel(UREACCEL* accel);
};

// Vector kernels (ureskip_*.cpp): the first position from pos on whose unit
// lies in one of accel's ranges, or n.
unsigned long UreSkipToRanges(const unsigned short* text, unsigned long pos, unsigned long n,
                              const UREACCEL& accel);
unsigned long UreSkipToRangesScalar(const unsigned short* text, unsigned long pos, unsigned long n,
                                    const UREACCEL& accel);
unsigned long UreSkipToRangesSse2(const unsigned short* text, unsigned long pos, unsigned long n,
                                  const UREACCEL& accel);
unsigned long UreSkipToRangesAvx2(const unsigned short* text, unsigned long pos, unsigned long n,
                                  const UREACCEL& accel);

#endif
