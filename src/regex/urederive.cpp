// Derivation: from the expression graph to a deterministic automaton.
//
// A state is a set of expressions (what may still be matched), kept sorted
// and without duplicates so that equal sets are equal arrays. The first
// state is {start}. Each state, in creation order, is expanded on the stack
// of ids; the walk also visits what it pushes itself, and while `reducing`
// each expression is pushed at most once per state:
//
//   symbol s         s leads to epsilon
//   x?               x | epsilon
//   x*               x+ | epsilon
//   x+               x (x*)
//   epsilon          the state is accepting
//   l | r            both l and r
//   l r, by l:
//     symbol s       s leads to r
//     x?             (x r) | r
//     x*             (x (x* r)) | r
//     x+             x (r | x+ r)
//     epsilon        r
//     a b            a (b r)
//     a | b          (a r) | (b r)
//
// Every symbol that the walk reached now holds the set of expressions it
// leads to; in symbol order, each set becomes a transition to the state with
// exactly that set, created if new. Symbols are numbered in the order of
// their first appearance in the pattern, so a state's transitions are in that
// order, which decides between overlapping symbols at match time.
//
// "none" (URE_NONE) stands for a missing operand ("*" at the start of a
// pattern): it matches nothing, and anything joined after it is dropped.
//
// The number of states can grow exponentially with the pattern; the 16-bit
// state ids and the memory allowed for the sets stop it with an error. The
// walk is iterative, whatever the nesting.
[[maybe_unused]] static const char s_ident[] = "@(#) urederive.cpp 1.0";

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "regex/urebuffer.h"
#include "vosystem/memfunc.h"

uint16_t UREBUFFER::AddState(unsigned long count, const uint16_t* ids) {
  const uint64_t hash = HashSet(count, ids);
  const unsigned long found = stateIndex.Find(hash, [&](unsigned long k) {
    return states[k].set.count == count && memcmp(states[k].set.ids, ids, count * 2) == 0;
  });
  if (found != UREINDEX::kNotFound) return static_cast<uint16_t>(found);
  if (!Grow(&states, &stateCapacity, stateCount + 1, sizeof(UREBUILDSTATE), 0xFFFF))
    return URE_NONE;
  if (!stateIndex.Reserve()) {
    Fail(URE_ERR_NoMemory);
    return URE_NONE;
  }
  if (!Charge(count * sizeof(uint16_t) + sizeof(UREBUILDSTATE))) return URE_NONE;
  uint16_t* copy = nullptr;
  if (!MmAllocExc(&copy, count * sizeof(uint16_t))) {
    Fail(URE_ERR_NoMemory);
    return URE_NONE;
  }
  memcpy(copy, ids, count * sizeof(uint16_t));
  UREBUILDSTATE& s = states[stateCount];
  s = UREBUILDSTATE{};
  s.id = static_cast<uint16_t>(stateCount);
  s.set = UREIDSET{copy, count, count};
  stateIndex.Insert(hash, stateCount);
  return static_cast<uint16_t>(stateCount++);
}

void UREBUFFER::AddSymState(uint16_t symbol, uint16_t expression) {
  UREIDSET* set = &symbols[symbol].states;
  if (set->count == 0) {
    if (!Grow(&touched, &touchedCapacity, touchedCount + 1, sizeof(uint16_t), 0xFFFF)) return;
    touched[touchedCount++] = symbol;
  }
  AddToSet(set, expression);
}

namespace {

// The derivation rules, one expression at a time. Nested MakeExpr calls are
// spelled out in order: the ids they hand out must not depend on the
// compiler's order of evaluating arguments.
struct DERIVER {
  UREBUFFER& b;
  uint16_t epsilon = URE_NONE;

  uint16_t Epsilon() {
    if (epsilon == URE_NONE) epsilon = b.MakeExpr(URE_EPSILON, URE_NONE, URE_NONE);
    return epsilon;
  }
  uint16_t Or(uint16_t l, uint16_t r) { return b.MakeExpr(URE_OR, l, r); }
  uint16_t And(uint16_t l, uint16_t r) { return b.MakeExpr(URE_AND, l, r); }

  // Returns true if e makes the state accepting.
  bool Expand(uint16_t e) {
    const UREELT x = b.exprs[e];
    switch (x.type) {
      case URE_SYMBOL:
        b.AddSymState(x.lhs, Epsilon());
        break;
      case URE_QUEST: {
        const uint16_t eps = Epsilon();
        b.Push(Or(x.lhs, eps));
        break;
      }
      case URE_STAR: {
        const uint16_t plus = b.MakeExpr(URE_PLUS, x.lhs, URE_NONE);
        const uint16_t eps = Epsilon();
        b.Push(Or(plus, eps));
        break;
      }
      case URE_PLUS: {
        const uint16_t star = b.MakeExpr(URE_STAR, x.lhs, URE_NONE);
        b.Push(And(x.lhs, star));
        break;
      }
      case URE_EPSILON:
        return true;
      case URE_OR:
        b.Push(x.lhs);
        b.Push(x.rhs);
        break;
      case URE_AND:
        ExpandAnd(e, x.lhs, x.rhs);
        break;
      default:
        break;
    }
    return false;
  }

  void ExpandAnd(uint16_t self, uint16_t lhs, uint16_t r) {
    if (lhs == URE_NONE || r == URE_NONE) return;
    const UREELT l = b.exprs[lhs];
    switch (l.type) {
      case URE_SYMBOL:
        b.AddSymState(l.lhs, r);
        break;
      case URE_QUEST: {
        const uint16_t xr = And(l.lhs, r);
        b.Push(Or(xr, r));
        break;
      }
      case URE_STAR: {
        const uint16_t xSelf = And(l.lhs, self);
        b.Push(Or(xSelf, r));
        break;
      }
      case URE_PLUS: {
        const uint16_t rest = Or(r, self);
        b.Push(And(l.lhs, rest));
        break;
      }
      case URE_EPSILON:
        b.Push(r);
        break;
      case URE_AND: {
        const uint16_t br = And(l.rhs, r);
        b.Push(And(l.lhs, br));
        break;
      }
      case URE_OR: {
        const uint16_t ar = And(l.lhs, r);
        const uint16_t br = And(l.rhs, r);
        b.Push(Or(ar, br));
        break;
      }
      default:
        break;
    }
  }
};

}  // namespace

void UREBUFFER::Reduce(uint16_t start) {
  reducing = 1;
  DERIVER d{*this};
  AddState(1, &start);
  for (unsigned long s = 0; s < stateCount && !error; ++s) {
    // The set's block stays put while the states table grows.
    const uint16_t* ids = states[s].set.ids;
    const unsigned long count = states[s].set.count;
    for (unsigned long k = 0; k < count; ++k) Push(ids[k]);
    bool accepting = false;
    for (unsigned long k = 0; k < stackCount && !error; ++k)
      if (stack[k] != URE_NONE && d.Expand(stack[k])) accepting = true;
    for (unsigned long k = 0; k < stackCount; ++k)
      if (stack[k] != URE_NONE) exprs[stack[k]].onStack = 0;
    stackCount = 0;
    if (error) break;
    states[s].accepting = accepting ? 1 : 0;

    std::sort(touched, touched + touchedCount);
    for (unsigned long k = 0; k < touchedCount && !error; ++k) {
      UREIDSET& set = symbols[touched[k]].states;
      const uint16_t target = AddState(set.count, set.ids);
      set.count = 0;
      if (error) break;
      UREBUILDSTATE& st = states[s];
      const unsigned long before = st.transCapacity;
      if (!Grow(&st.trans, &st.transCapacity, st.transCount + 1, sizeof(UREBUILDTRANS), 0xFFFF))
        break;
      if (!Charge((st.transCapacity - before) * sizeof(UREBUILDTRANS))) break;
      st.trans[st.transCount++] = UREBUILDTRANS{touched[k], target};
    }
    for (unsigned long k = 0; k < touchedCount; ++k) symbols[touched[k]].states.count = 0;
    touchedCount = 0;
  }
  reducing = 0;
}
