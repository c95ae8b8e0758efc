// The matcher's rules, one character at a time: the model of every search.
//
// A search reads the text once. In the current state (at first the start
// state) each character is tried against the state's transitions in order,
// and the first that accepts is taken:
//   - any character but a line separator ("." with UCREGEXP_DotAll: any);
//   - a literal: equal; a class: in its category mask or its ranges; a
//     negated class: not;
//   - "^": at the start of the text, without consuming the character;
//     otherwise on a line separator, which it consumes (CR LF as one), the
//     match then starting behind it;
//   - "$": on a line separator, which the match doesn't include although the
//     scan passes it (CR LF as one).
// The first accepted character starts the match; every accepted character
// ends it further, but for "$", which leaves the end where it was (where it
// starts a match, the match is empty, at the separator). When nothing
// accepts, an accepting state ends the search with the match so far;
// otherwise the scan goes back to the start state and on with the next
// character: the refused one is not tried again. When an accepted character
// reaches the end of the text, an accepting state ends the search with the
// match reaching the end; otherwise a "$" transition of the state may still
// be taken there, without a character.
//
// Choices the rules leave open, made so that the promises above hold:
//   - "^" at the start of the text consumes nothing, so a state that loops
//     on it ("^*", "(^^)*") would take it forever: each state takes it at
//     most once per search, after which "^" there needs a separator.
//   - "$" never moves the end of a match that has begun, not even when the
//     separator it passed is the last thing in the text: "a$" in "a\n" is
//     [0, 1).
//   - With UCREGEXP_IgnoreMarks, marks are invisible: a mark doesn't refuse,
//     doesn't accept, and the end-of-text rule applies after trailing marks as
//     after the character before them, the match then reaching the end of
//     the text ("a" in "a" + U+0301 is [0, 2)). A mark inside a match extends
//     it only if a character after it is accepted.
//   - Only the anchors take CR LF as one: "." with UCREGEXP_DotAll consumes
//     CR and LF one at a time, as it does any other character.
[[maybe_unused]] static const char s_ident[] = "@(#) urematch.cpp 1.0";

#include <cstring>

#include "regex/ure_priv.h"

UREMATCH::UREMATCH(const UCREGEXP& re, const unsigned short* t, unsigned long n, int ef)
    : symbols(UREACCESS::Symbols(re)),
      states(UREACCESS::States(re)),
      stateCount(re.StateCount()),
      flags(re.Flags()),
      text(t),
      length(n),
      execFlags(ef) {}

bool UREMATCH::TakeCaretAtStart() {
  if (!caretInit) {
    memset(caretTaken, 0, (stateCount + 63) / 64 * sizeof(uint64_t));
    caretInit = true;
  }
  uint64_t& word = caretTaken[state >> 6];
  const uint64_t bit = uint64_t{1} << (state & 63);
  if (word & bit) return false;
  word |= bit;
  return true;
}

void UREMATCH::Step() {
  unsigned long here = pos;
  uint32_t c = text[pos++];
  if (UreIsHighSurrogate(c) && pos < length && UreIsLowSurrogate(text[pos]))
    c = UreJoinSurrogates(c, text[pos++]);
  if ((execFlags & UCREGEXP_IgnoreMarks) && UreHasProp(c, 0x40)) {
    if (pos >= length && lastAccepted) EndOfText();
    return;
  }
  if (flags & 1) c = UreLower(c);

  const UREDFASTATE& st = states[state];
  for (unsigned k = 0; k < st.transCount; ++k) {
    const URESYMTAB& sym = symbols[st.trans[k].symbol];
    bool dollar = false;
    if (sym.type == URE_BOL_ANCHOR) {
      if (here == 0 && TakeCaretAtStart()) {
        pos = 0;
      } else if (UreIsSeparator(c)) {
        if (c == 13 && pos < length && text[pos] == 10) ++pos;
        here = pos;
      } else {
        continue;
      }
    } else if (sym.type == URE_EOL_ANCHOR) {
      if (!UreIsSeparator(c)) continue;
      if (c == 13 && pos < length && text[pos] == 10) ++pos;
      dollar = true;
    } else if (!UreSymbolAccepts(sym, c, execFlags)) {
      continue;
    }
    if (start == kNone) {
      start = here;
      end = here;
    }
    if (!dollar) end = pos;
    lastAccepted = true;
    lastDollar = dollar;
    state = st.trans[k].nextState;
    if (pos >= length) EndOfText();
    return;
  }
  lastAccepted = false;
  if (st.accepting) {
    found = true;
  } else {
    state = 0;
    start = end = kNone;
  }
}

void UREMATCH::EndOfText() {
  if (!states[state].accepting) {
    const UREDFASTATE& st = states[state];
    unsigned k = 0;
    while (k < st.transCount && symbols[st.trans[k].symbol].type != URE_EOL_ANCHOR) ++k;
    if (k == st.transCount) return;
    state = st.trans[k].nextState;
    if (!states[state].accepting) return;
  }
  found = true;
  if (!lastDollar) end = length;
}

int UREMATCH::Finish(unsigned long* matchStart, unsigned long* matchEnd) {
  if (!found) start = end = kNone;
  if (start == kNone) end = kNone;
  if (matchStart) *matchStart = start;
  if (matchEnd) *matchEnd = end;
  return start != kNone ? 1 : 0;
}

int UREACCESS::Prologue(const UCREGEXP& re, const unsigned short* text, unsigned long* length,
                        unsigned long* matchStart, unsigned long* matchEnd) {
  unsigned long first = UREMATCH::kNone, last = UREMATCH::kNone;
  int result = -1;
  if (!text || re.StateCount() == 0) {
    result = 0;
  } else {
    if (*length == static_cast<unsigned long>(-1)) {
      unsigned long n = 0;
      while (text[n]) ++n;
      *length = n;
    }
    if (*length == 0) {
      result = 0;
      if (re.Flags() & 2) {
        first = last = 0;
        result = 1;
      }
    }
  }
  if (result >= 0) {
    if (matchStart) *matchStart = first;
    if (matchEnd) *matchEnd = last;
  }
  return result;
}

int UREACCESS::ExecReference(const UCREGEXP& re, const unsigned short* text,
                             unsigned long* matchStart, unsigned long* matchEnd,
                             unsigned long length, int execFlags) {
  const int trivial = Prologue(re, text, &length, matchStart, matchEnd);
  if (trivial >= 0) return trivial;
  UREMATCH m(re, text, length, execFlags);
  while (!m.found && m.pos < m.length) m.Step();
  return m.Finish(matchStart, matchEnd);
}
