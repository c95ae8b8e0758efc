// UCREGEXP: a regular expression over UTF-16 text, compiled to a minimised
// deterministic automaton and run in one forward pass, without backtracking
// and without capture groups.
//
//   UCREGEXP re;
//   re.Compile(u16("warn|error"), true);   // ignore case
//   unsigned long first, last;
//   if (re.Exec(text, &first, &last, (unsigned long)-1, 0)) ...
//
// Pattern language:
//   c                a literal character; a high surrogate followed by a low
//                    one (literal or escaped) is one supplementary character
//   .                any character; line separators only with UCREGEXP_DotAll
//   [...] [^...]     class and negated class: characters, ranges "a-z",
//                    escapes, \p and \P lists, and the names [:alnum:]
//                    [:alpha:] [:cntrl:] [:digit:] [:graph:] [:lower:]
//                    [:print:] [:punct:] [:space:] [:upper:] [:xdigit:]
//                    (written inside the brackets: "[:digit:]" is a class)
//   ^ $              start and end of a line (zero width)
//   ( ) |            grouping and alternation
//   * + ?            repetition of what stands before
//   \a \b \f \n \r \t \v          7, 8, 12, 10, 13, 9, 11
//   \xHHHH \XHHHH \uHHHH \UHHHH   one to four hex digits (none: the letter)
//   \pN,N,...  \PN,N,...          general categories by number (0 to 21),
//                                 and the negated class
//   \c               any other character c, literally
//
// Parsing is one pass with an operator stack; concatenation is implicit,
// and parentheses only group ("a(b|c)d" is "abd" or "acd").
//
// Matching rule (this engine's own, not leftmost-longest):
//   - Characters the start state refuses are skipped. The match starts at the
//     first character for which the automaton has a transition and extends
//     greedily, one character at a time, as long as a transition continues.
//   - When no transition continues, an accepting state ends the search with
//     that match; otherwise the automaton goes back to the start state and
//     the scan goes on after the refused character, which is not tried
//     again. Nothing is backtracked.
//   - So a nullable pattern ("a*") finds nothing when its start state refuses
//     the first character, and "ab" doesn't match "aab".
//   - "^" matches at the start of the text, or consumes a line separator
//     (CR LF as one) after which the match begins; "$" matches before a line
//     separator, which the match doesn't include, or at the end of the text.
//   - Line separators are LF, CR, U+2028 and U+2029; CR LF counts as one.
//   - With ignore case, text and literals are compared after uctolower; a
//     supplementary character is lowered by its low 16 bits (the database is
//     16-bit), while class ranges hold whole code points.
//
// Positions are code-unit indices into the text, and the end is EXCLUSIVE:
// [first, last) is the match, unlike the inclusive ranges of VOSTRING and
// the rest of the library.
//
// Limits: a compiled pattern has at most 65534 symbols and expressions,
// 65535 states and 65535 transitions (16-bit identifiers). A pattern beyond
// them, a faulty one, or one whose compilation runs out of memory leaves the
// object empty: an empty object matches nothing.
//
// Threads: Exec is const and keeps its state on the stack, so one compiled
// object may be run from several threads at once; Compile must not run
// concurrently with anything else on the same object.
#ifndef VOSYSTEM_UCREGEXP_H
#define VOSYSTEM_UCREGEXP_H

#include "vosystem/export.h"

// Flags of Exec.
enum : int {
  UCREGEXP_IgnoreMarks = 1,  // skip non-spacing marks in the text
  UCREGEXP_DotAll = 2        // "." also matches line separators
};

struct URESYMTAB;    // a symbol of the compiled form
struct UREDFASTATE;  // a state of the compiled form
struct UREDFATRANS;  // a transition of the compiled form
struct UREACCEL;     // the tables of the fast matching loop
class UREBUFFER;
struct UREACCESS;

class VOSYS_API UCREGEXP {
 public:
  UCREGEXP();  // empty: matches nothing
  ~UCREGEXP();
  UCREGEXP(const UCREGEXP&) = delete;
  UCREGEXP& operator=(const UCREGEXP&) = delete;

  // Compiles pattern (null-terminated UTF-16). Always returns 0. A null or
  // empty pattern leaves the object as it was; a faulty pattern, or one
  // beyond the limits above, leaves it empty (StateCount() is then 0).
  int Compile(const unsigned short* pattern, bool ignoreCase);

  // Searches text by the matching rule above. length (unsigned long)-1 means
  // up to the terminator. execFlags: UCREGEXP_IgnoreMarks, UCREGEXP_DotAll.
  // 1 on a match, with [*matchStart, *matchEnd) (end exclusive); 0 without
  // one, both positions then (unsigned long)-1. Either pointer may be null.
  // An empty text matches, at 0, a pattern made only of anchors.
  int Exec(const unsigned short* text, unsigned long* matchStart, unsigned long* matchEnd,
           unsigned long length, int execFlags) const;
  int Exec(const unsigned short* text, unsigned long* matchStart, unsigned long* matchEnd,
           unsigned long length, int execFlags);

  // The compiled form: bit 0 ignore case, bit 1 the pattern holds only
  // anchors; and the sizes of its three tables.
  unsigned short Flags() const { return m_flags; }
  unsigned short SymbolCount() const { return m_symbolCount; }
  unsigned short StateCount() const { return m_stateCount; }
  unsigned short TransitionCount() const { return m_transitionCount; }

 private:
  friend class UREBUFFER;   // fills the compiled form
  friend struct UREACCESS;  // the matchers and the tables of the fast loop
  void Clear();             // back to empty

  unsigned short m_flags;
  URESYMTAB* m_symbols;
  unsigned short m_symbolCount;
  UREDFASTATE* m_states;  // the first is the start state
  unsigned short m_stateCount;
  UREDFATRANS* m_transitions;
  unsigned short m_transitionCount;
  UREACCEL* m_accel;  // null: every search takes the step-by-step path
};

#endif
