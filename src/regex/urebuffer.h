// UREBUFFER: the work tables of one compilation, from pattern text to the
// compiled form of a UCREGEXP. It lives on the stack of UCREGEXP::Compile
// for that one call.
//
// The stages, one file each:
//   ureparse.cpp     pattern text to a graph of shared expressions
//   urederive.cpp    expressions to a deterministic automaton by derivatives
//   ureminimize.cpp  merging of equivalent states
//   urebuffer.cpp    the tables themselves, and the compiled form
//
// Every identifier is 16-bit (URE_NONE, 65535, means none): at most 65534
// symbols and expressions and 65535 states. Going past a limit, or running
// out of memory, sets `error` and the compilation gives an empty result.
#ifndef VOSYS_SRC_REGEX_UREBUFFER_H
#define VOSYS_SRC_REGEX_UREBUFFER_H

#include <cstdint>

#include "regex/ure_priv.h"

// Expression types; 11 only ever stands on the parser's stack.
enum : uint32_t {
  URE_SYMBOL = 10,
  URE_PAREN = 11,
  URE_QUEST = 12,
  URE_STAR = 13,
  URE_PLUS = 14,
  URE_EPSILON = 15,
  URE_AND = 16,
  URE_OR = 17
};

// Values of UREBUFFER::error.
enum : int {
  URE_OK = 0,
  URE_ERR_Backslash = -1,  // "\" ends the pattern or a class
  URE_ERR_Class = -2,      // a class without "]"
  URE_ERR_Group = -3,      // unbalanced parentheses
  URE_ERR_Property = -4,   // a property number above 21
  URE_ERR_TooLarge = -5,   // past a 16-bit limit, or past the memory allowed
  URE_ERR_NoMemory = -6    // the heap refused
};

struct UREELT {
  uint16_t onStack;  // pushed during the reduction of the current state
  uint32_t type;
  uint16_t lhs;
  uint16_t rhs;
};

struct UREBUILDTRANS {
  uint16_t symbol;
  uint16_t state;
};

// A state of the automaton under construction: its set of expressions
// identifies it.
struct UREBUILDSTATE {
  uint16_t id;  // after MergeEquiv: the dense number of its class
  uint16_t accepting;
  UREIDSET set;
  UREBUILDTRANS* trans;
  unsigned long transCapacity;
  unsigned long transCount;
};

// A hash index for the "find or create" searches of MakeExpr, MakeSymbol and
// AddState: it gives what a search of all entries would, in constant time.
// A slot holds the entry's hash in its high half and the entry + 1 in its
// low half (0 is empty).
struct UREINDEX {
  static constexpr unsigned long kNotFound = static_cast<unsigned long>(-1);
  uint64_t* slots = nullptr;
  unsigned long size = 0;  // a power of two, or 0
  unsigned long used = 0;

  ~UREINDEX();
  // Room for one more entry at most half full; false if memory ran out.
  bool Reserve();
  void Insert(uint64_t hash, unsigned long entry);
  template <class EQUAL>
  unsigned long Find(uint64_t hash, EQUAL equal) const {
    if (size == 0) return kNotFound;
    const uint32_t h = static_cast<uint32_t>(hash);
    for (unsigned long i = hash & (size - 1);; i = (i + 1) & (size - 1)) {
      const uint64_t slot = slots[i];
      if (slot == 0) return kNotFound;
      if ((slot >> 32) == h && equal(static_cast<uint32_t>(slot) - 1ul))
        return static_cast<uint32_t>(slot) - 1ul;
    }
  }
};

class UREBUFFER {
 public:
  UREBUFFER() = default;
  ~UREBUFFER();
  UREBUFFER(const UREBUFFER&) = delete;
  UREBUFFER& operator=(const UREBUFFER&) = delete;

  // Always 0. A null or empty pattern leaves result untouched; otherwise it
  // is emptied first, and filled only if the whole compilation succeeds.
  int Compile(UCREGEXP& result, const unsigned short* pattern, bool ignoreCase);

  // ---- parsing (ureparse.cpp). Each reader returns the units it consumed.
  uint16_t REtoNFA(const unsigned short* pattern, unsigned long length);
  uint16_t MakeSymbol(const unsigned short* pattern, unsigned long length, unsigned long* consumed);
  unsigned long CompileSymbol(const unsigned short* pattern, unsigned long length, URESYMTAB* sym);
  unsigned long CClass(const unsigned short* pattern, unsigned long length, URESYMTAB* sym);
  unsigned long PosixCCL(const unsigned short* pattern, unsigned long length, URESYMTAB* sym);
  unsigned long PropList(const unsigned short* pattern, unsigned long length, unsigned long* mask);
  uint16_t MakeExpr(uint32_t type, uint16_t lhs, uint16_t rhs);
  void AddRange(URECCL* ccl, URERANGE* range);
  void SetupCCL(URESYMTAB* sym, unsigned long mask);
  void SetupSpace(URESYMTAB* sym, unsigned long mask);
  void SetupXDigit(URESYMTAB* sym, unsigned long mask);
  static unsigned long GetHexNumber(const unsigned short* text, unsigned long length,
                                    unsigned long* value);
  static unsigned long ProbeLowSurrogate(const unsigned short* text, unsigned long length,
                                         unsigned long* value);

  // ---- the stack of 16-bit ids (urebuffer.cpp). Pop and Peek of an empty
  // stack give URE_NONE. While `reducing`, a push of an expression already
  // on the stack does nothing.
  void Push(uint16_t v);
  uint16_t Pop();
  uint16_t Peek() const;

  // ---- derivation (urederive.cpp) and minimisation (ureminimize.cpp)
  uint16_t AddState(unsigned long count, const uint16_t* ids);
  void AddSymState(uint16_t symbol, uint16_t expression);
  void Reduce(uint16_t start);
  void MergeEquiv();

  // The tables, in the order of their description; public for the tests.
  int reducing = 0;
  int error = URE_OK;
  unsigned flags = 0;  // bit 0 ignore case; bit 1 the pattern so far holds only anchors

  uint16_t* stack = nullptr;
  unsigned long stackCapacity = 0;
  unsigned long stackCount = 0;

  URESYMTAB* symbols = nullptr;
  uint16_t symbolCapacity = 0;
  uint16_t symbolCount = 0;

  UREELT* exprs = nullptr;
  uint16_t exprCount = 0;
  uint16_t exprCapacity = 0;

  UREBUILDSTATE* states = nullptr;
  unsigned long stateCapacity = 0;
  unsigned long stateCount = 0;

 private:
  // Grows *block (of elements of elemSize, *capacity of them now) to hold
  // need; geometric, so that large patterns don't copy quadratically. False
  // (error set) on failure or past limit elements.
  bool Grow(void* block, unsigned long* capacity, unsigned long need, unsigned long elemSize,
            unsigned long limit);
  // Counts bytes of state sets and transitions against the memory allowed.
  bool Charge(unsigned long bytes);
  void Fail(int code) {
    if (error == URE_OK) error = code;
  }
  void ClearTables();
  void FreeSymbol(URESYMTAB* sym);
  bool AddToSet(UREIDSET* set, uint16_t id);

  static uint64_t HashExpr(uint32_t type, uint16_t lhs, uint16_t rhs);
  static uint64_t HashSymbol(const URESYMTAB* sym);
  static uint64_t HashSet(unsigned long count, const uint16_t* ids);
  UREINDEX exprIndex;
  UREINDEX symbolIndex;
  UREINDEX stateIndex;

  // Symbols whose sets the current state filled, in order of first use.
  uint16_t* touched = nullptr;
  unsigned long touchedCapacity = 0;
  unsigned long touchedCount = 0;

  unsigned long charged = 0;
};

// Non-zero if two symbols differ: type, mods, props, then the character or
// the whole range list.
int _ure_sym_neq(const URESYMTAB* a, const URESYMTAB* b);

#endif
