// The fast loop of Exec: the rules of UREMATCH::Step on the tables of
// ureaccel.cpp.
//
// For a unit of a class other than 0, one table read does what Step would:
// the first accepting transition's target, or a refusal. A run of accepted
// units is a tight loop of two dependent reads per unit (class, then row);
// the start and end of the match are written when the run stops. A refusal
// ends the search in an accepting state, and otherwise goes back to the
// start state past the refused unit, as Step does. Class 0 units, and the
// first position when the pattern has "^", go through Step itself, so the
// anchors, surrogate pairs and separators have one implementation.
//
// In the start state with no match begun (and the start state not
// accepting), the refused units are skipped by the vector kernels or the
// bitmap, which is where most of a search's time goes.
[[maybe_unused]] static const char s_ident[] = "@(#) urefast.cpp 1.0";

#include "regex/ure_priv.h"

namespace {

unsigned long SkipToBitmap(const unsigned short* t, unsigned long pos, unsigned long n,
                           const uint64_t* bits) {
  auto stop = [bits](unsigned u) { return bits[u >> 6] >> (u & 63) & 1; };
  for (; pos + 4 <= n; pos += 4) {
    if (stop(t[pos])) return pos;
    if (stop(t[pos + 1])) return pos + 1;
    if (stop(t[pos + 2])) return pos + 2;
    if (stop(t[pos + 3])) return pos + 3;
  }
  for (; pos < n; ++pos)
    if (stop(t[pos])) return pos;
  return n;
}

template <class MAP>
void Run(const UREACCEL& a, const MAP* map, UREMATCH& m) {
  constexpr unsigned long kNone = UREMATCH::kNone;
  const uint32_t* next = a.next;
  const uint32_t shift = a.rowShift;
  const unsigned short* t = m.text;
  const unsigned long n = m.length;
  unsigned long pos = m.pos, start = m.start, end = m.end;
  uint32_t row = m.state << shift;
  while (pos < n) {
    if (row == 0 && start == kNone && a.skipStart) {
      pos = a.rangeCount ? UreSkipToRanges(t, pos, n, a) : SkipToBitmap(t, pos, n, a.stopBits);
      if (pos >= n) break;
    }
    uint32_t to = next[row + map[t[pos]]];
    if (to < UREACCEL::kSlow) {
      if (start == kNone) start = pos;
      for (;;) {
        row = to;
        if (++pos == n) {
          m.pos = pos;
          m.state = row >> shift;
          m.start = start;
          m.end = pos;
          m.lastAccepted = true;
          m.lastDollar = false;
          m.EndOfText();
          return;
        }
        to = next[row + map[t[pos]]];
        if (to >= UREACCEL::kSlow) break;
      }
      end = pos;
      m.lastAccepted = true;
      m.lastDollar = false;
    }
    if (to == UREACCEL::kRefuse) {
      m.lastAccepted = false;
      if (m.states[row >> shift].accepting) {
        m.found = true;
        break;
      }
      row = 0;
      start = end = kNone;
      ++pos;
      continue;
    }
    m.pos = pos;
    m.state = row >> shift;
    m.start = start;
    m.end = end;
    m.Step();
    if (m.found) return;
    pos = m.pos;
    row = m.state << shift;
    start = m.start;
    end = m.end;
  }
  m.pos = pos;
  m.state = row >> shift;
  m.start = start;
  m.end = end;
}

}  // namespace

void UREACCESS::RunFast(const UREACCEL& a, UREMATCH& m) {
  if (a.caret)
    while (!m.found && m.pos == 0) m.Step();
  if (m.found) return;
  if (a.map8)
    Run(a, a.map8, m);
  else
    Run(a, a.map16, m);
}
