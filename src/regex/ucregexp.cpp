// UCREGEXP: the compiled pattern's owner, and the choice of path for Exec.
//
// Compile runs a UREBUFFER, then builds the tables of the fast loop
// (ureaccel.cpp) once, so that Exec, which may run in several threads at
// once, only reads. Exec takes the fast loop unless the search skips marks
// (UCREGEXP_IgnoreMarks) or the pattern had no tables built; both paths end
// in the same state as the step-by-step model of urematch.cpp.
[[maybe_unused]] static const char s_ident[] = "@(#) ucregexp.cpp 1.0";

#include "vosystem/ucregexp.h"

#include <cstdlib>

#include "regex/ure_priv.h"
#include "regex/urebuffer.h"

UCREGEXP::UCREGEXP()
    : m_flags(0),
      m_symbols(nullptr),
      m_symbolCount(0),
      m_states(nullptr),
      m_stateCount(0),
      m_transitions(nullptr),
      m_transitionCount(0),
      m_accel(nullptr) {}

UCREGEXP::~UCREGEXP() {
  Clear();
}

void UCREGEXP::Clear() {
  for (unsigned i = 0; i < m_symbolCount; ++i)
    if (m_symbols[i].type == URE_CCLASS || m_symbols[i].type == URE_NCCLASS)
      free(m_symbols[i].sym.ccl.ranges);
  free(m_symbols);
  free(m_states);
  free(m_transitions);
  UREACCESS::FreeAccel(m_accel);
  m_flags = 0;
  m_symbols = nullptr;
  m_symbolCount = 0;
  m_states = nullptr;
  m_stateCount = 0;
  m_transitions = nullptr;
  m_transitionCount = 0;
  m_accel = nullptr;
}

int UREACCESS::Compile(UCREGEXP& re, const unsigned short* pattern, bool ignoreCase, bool fast) {
  if (!pattern || !*pattern) return 0;
  {
    UREBUFFER buffer;
    buffer.Compile(re, pattern, ignoreCase);
  }
  if (fast && re.m_stateCount) re.m_accel = BuildAccel(re);
  return 0;
}

int UCREGEXP::Compile(const unsigned short* pattern, bool ignoreCase) {
  return UREACCESS::Compile(*this, pattern, ignoreCase, true);
}

int UCREGEXP::Exec(const unsigned short* text, unsigned long* matchStart, unsigned long* matchEnd,
                   unsigned long length, int execFlags) const {
  const int trivial = UREACCESS::Prologue(*this, text, &length, matchStart, matchEnd);
  if (trivial >= 0) return trivial;
  UREMATCH m(*this, text, length, execFlags);
  if (m_accel && !(execFlags & UCREGEXP_IgnoreMarks))
    UREACCESS::RunFast(*m_accel, m);
  else
    while (!m.found && m.pos < m.length) m.Step();
  return m.Finish(matchStart, matchEnd);
}

int UCREGEXP::Exec(const unsigned short* text, unsigned long* matchStart, unsigned long* matchEnd,
                   unsigned long length, int execFlags) {
  return static_cast<const UCREGEXP*>(this)->Exec(text, matchStart, matchEnd, length, execFlags);
}
