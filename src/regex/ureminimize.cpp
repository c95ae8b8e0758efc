// Minimisation: merging equivalent states.
//
// Two states are equivalent when they agree in being accepting, have the
// same number of transitions with the same symbols in the same order, and
// their targets, transition by transition, are equivalent in turn. The
// merge keeps, for each class of equivalent states, the id of its first
// (lowest) state, and numbers the classes densely in the order of those
// first states; the start state stays first.
//
// That is the outcome of comparing each state with every earlier surviving
// state through a work list of target pairs, but such a comparison costs up
// to the whole automaton per pair, and a long chain ("abcd...", thousands of
// states) makes it cubic. The classes are the same whichever way they are
// found, so they are found by partition refinement (Hopcroft's method):
//   1. Blocks by signature: accepting, and the symbols of the transitions in
//      order (within a block every state has a transition on each of the
//      block's symbols, so the transition function is total there).
//   2. A block taken from the work list splits every block whose states go,
//      on some symbol, partly into it and partly elsewhere. A block that
//      splits while in the list puts both halves there; otherwise the
//      smaller half suffices, which bounds the work to O(T log n) for T
//      transitions.
// The result is stored in each state's `id`.
[[maybe_unused]] static const char s_ident[] = "@(#) ureminimize.cpp 1.0";

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "regex/urebuffer.h"
#include "vosystem/memfunc.h"

namespace {

// Work arrays of one minimisation, freed together.
struct WORK {
  uint32_t* blockOf = nullptr;  // state -> block
  uint32_t* elems = nullptr;    // states, block by block
  uint32_t* loc = nullptr;      // state -> its index in elems
  uint32_t* first = nullptr;    // block -> its first index in elems
  uint32_t* end = nullptr;      // block -> one past its last
  uint32_t* marked = nullptr;   // block -> how many of its states are marked
  uint8_t* inWork = nullptr;    // block -> in the work list
  uint32_t* work = nullptr;     // the work list (a stack)
  uint32_t* touched = nullptr;  // blocks with marked states
  uint32_t* inStart = nullptr;  // state -> its incoming transitions in inList
  uint32_t* inList = nullptr;   // symbol << 16 | source, grouped by target
  uint32_t* pending = nullptr;  // the incoming transitions of the splitter
  ~WORK() {
    for (void* p :
         {static_cast<void*>(blockOf), static_cast<void*>(elems), static_cast<void*>(loc),
          static_cast<void*>(first), static_cast<void*>(end), static_cast<void*>(marked),
          static_cast<void*>(inWork), static_cast<void*>(work), static_cast<void*>(touched),
          static_cast<void*>(inStart), static_cast<void*>(inList), static_cast<void*>(pending)})
      free(p);
  }
};

template <class T>
bool Alloc(T** p, unsigned long count) {
  return MmAllocCExc(p, (count ? count : 1) * sizeof(T)) != nullptr;
}

}  // namespace

void UREBUFFER::MergeEquiv() {
  const unsigned long n = stateCount;
  if (n == 0 || error) return;
  unsigned long transTotal = 0;
  for (unsigned long i = 0; i < n; ++i) transTotal += states[i].transCount;

  WORK w;
  if (!Alloc(&w.blockOf, n) || !Alloc(&w.elems, n) || !Alloc(&w.loc, n) || !Alloc(&w.first, n) ||
      !Alloc(&w.end, n) || !Alloc(&w.marked, n) || !Alloc(&w.inWork, n) || !Alloc(&w.work, n) ||
      !Alloc(&w.touched, n) || !Alloc(&w.inStart, n + 1) || !Alloc(&w.inList, transTotal) ||
      !Alloc(&w.pending, transTotal)) {
    Fail(URE_ERR_NoMemory);
    return;
  }

  // 1. Initial blocks: states sorted by signature, one block per run.
  const UREBUILDSTATE* st = states;
  auto less = [st](uint32_t a, uint32_t b) {
    const UREBUILDSTATE& x = st[a];
    const UREBUILDSTATE& y = st[b];
    if (x.accepting != y.accepting) return x.accepting < y.accepting;
    if (x.transCount != y.transCount) return x.transCount < y.transCount;
    for (unsigned long k = 0; k < x.transCount; ++k)
      if (x.trans[k].symbol != y.trans[k].symbol) return x.trans[k].symbol < y.trans[k].symbol;
    return a < b;
  };
  auto sameSignature = [st](uint32_t a, uint32_t b) {
    const UREBUILDSTATE& x = st[a];
    const UREBUILDSTATE& y = st[b];
    if (x.accepting != y.accepting || x.transCount != y.transCount) return false;
    for (unsigned long k = 0; k < x.transCount; ++k)
      if (x.trans[k].symbol != y.trans[k].symbol) return false;
    return true;
  };
  for (unsigned long i = 0; i < n; ++i) w.elems[i] = static_cast<uint32_t>(i);
  std::sort(w.elems, w.elems + n, less);
  uint32_t blocks = 0;
  for (unsigned long i = 0; i < n; ++i) {
    if (i == 0 || !sameSignature(w.elems[i - 1], w.elems[i])) {
      if (blocks) w.end[blocks - 1] = static_cast<uint32_t>(i);
      w.first[blocks++] = static_cast<uint32_t>(i);
    }
    w.blockOf[w.elems[i]] = blocks - 1;
    w.loc[w.elems[i]] = static_cast<uint32_t>(i);
  }
  w.end[blocks - 1] = static_cast<uint32_t>(n);

  // Incoming transitions, grouped by target.
  for (unsigned long i = 0; i < n; ++i)
    for (unsigned long k = 0; k < states[i].transCount; ++k)
      ++w.inStart[states[i].trans[k].state + 1];
  for (unsigned long i = 0; i < n; ++i) w.inStart[i + 1] += w.inStart[i];
  for (unsigned long i = 0; i < n; ++i) {
    for (unsigned long k = 0; k < states[i].transCount; ++k) {
      const UREBUILDTRANS& t = states[i].trans[k];
      w.inList[w.inStart[t.state]++] = static_cast<uint32_t>(t.symbol) << 16 | i;
    }
  }
  for (unsigned long i = n; i > 0; --i) w.inStart[i] = w.inStart[i - 1];
  w.inStart[0] = 0;

  // 2. Refinement.
  uint32_t workCount = 0;
  for (uint32_t b = 0; b < blocks; ++b) {
    w.work[workCount++] = b;
    w.inWork[b] = 1;
  }
  while (workCount) {
    const uint32_t splitter = w.work[--workCount];
    w.inWork[splitter] = 0;
    unsigned long pendingCount = 0;
    for (uint32_t e = w.first[splitter]; e < w.end[splitter]; ++e) {
      const uint32_t target = w.elems[e];
      for (uint32_t k = w.inStart[target]; k < w.inStart[target + 1]; ++k)
        w.pending[pendingCount++] = w.inList[k];
    }
    std::sort(w.pending, w.pending + pendingCount);
    for (unsigned long run = 0; run < pendingCount;) {
      const uint32_t symbol = w.pending[run] >> 16;
      uint32_t touchedCount = 0;
      for (; run < pendingCount && (w.pending[run] >> 16) == symbol; ++run) {
        const uint32_t src = w.pending[run] & 0xFFFF;
        const uint32_t b = w.blockOf[src];
        if (w.marked[b] == 0) w.touched[touchedCount++] = b;
        // Marked states gather at the front of their block.
        const uint32_t to = w.first[b] + w.marked[b]++;
        const uint32_t from = w.loc[src];
        const uint32_t other = w.elems[to];
        w.elems[to] = src;
        w.loc[src] = to;
        w.elems[from] = other;
        w.loc[other] = from;
      }
      for (uint32_t t = 0; t < touchedCount; ++t) {
        const uint32_t b = w.touched[t];
        const uint32_t m = w.marked[b];
        w.marked[b] = 0;
        if (m == w.end[b] - w.first[b]) continue;
        const uint32_t fresh = blocks++;
        w.first[fresh] = w.first[b];
        w.end[fresh] = w.first[b] + m;
        w.first[b] += m;
        for (uint32_t e = w.first[fresh]; e < w.end[fresh]; ++e) w.blockOf[w.elems[e]] = fresh;
        if (w.inWork[b]) {
          w.work[workCount++] = fresh;
          w.inWork[fresh] = 1;
        } else {
          const uint32_t smaller =
              w.end[fresh] - w.first[fresh] <= w.end[b] - w.first[b] ? fresh : b;
          w.work[workCount++] = smaller;
          w.inWork[smaller] = 1;
        }
      }
    }
  }

  // 3. Classes numbered in the order of their first states: walking the
  // states in order meets each class first at its lowest state.
  uint32_t* number = w.touched;  // reused: block -> dense id + 1
  memset(number, 0, n * sizeof(uint32_t));
  uint32_t next = 0;
  for (unsigned long i = 0; i < n; ++i) {
    uint32_t& k = number[w.blockOf[i]];
    if (k == 0) k = ++next;
    states[i].id = static_cast<uint16_t>(k - 1);
  }
}
