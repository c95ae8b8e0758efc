// The tables of one compilation and the compiled form they end in.
//
// Compile runs the stages in turn: the parse (REtoNFA) builds shared
// expressions and symbols; Reduce derives the states of a deterministic
// automaton from them; MergeEquiv merges equivalent states; and the symbols,
// the surviving states and their transitions move into the UCREGEXP. Any
// failure on the way leaves the UCREGEXP empty: it was emptied before the
// parse, and is filled only at the very end.
//
// Tables grow geometrically rather than by a fixed step: a pattern of tens of
// thousands of expressions would otherwise spend its time copying. Nothing
// here records an error: Compile reports none to its caller, and a pattern
// that fails is an answer, not a fault of the library.
[[maybe_unused]] static const char s_ident[] = "@(#) urebuffer.cpp 1.0";

#include "regex/urebuffer.h"

#include <cstdlib>
#include <cstring>

#include "vosystem/memfunc.h"

namespace {

// What the state sets and transitions of one compilation may hold: a pattern
// whose automaton needs more fails as one past the limits would, instead of
// taking the machine's memory.
const unsigned long kMaxChargedBytes = 256ul << 20;

uint64_t Mix(uint64_t h) {
  h ^= h >> 33;
  h *= 0xFF51AFD7ED558CCDull;
  h ^= h >> 33;
  h *= 0xC4CEB9FE1A85EC53ull;
  h ^= h >> 33;
  return h;
}

}  // namespace

// ---------------------------------------------------------------- hash index

UREINDEX::~UREINDEX() {
  free(slots);
}

bool UREINDEX::Reserve() {
  if (2 * (used + 1) <= size) return true;
  const unsigned long newSize = size ? 2 * size : 64;
  uint64_t* fresh = static_cast<uint64_t*>(calloc(newSize, sizeof(uint64_t)));
  if (!fresh) return false;
  for (unsigned long i = 0; i < size; ++i) {
    const uint64_t slot = slots[i];
    if (slot == 0) continue;
    unsigned long j = (slot >> 32) & (newSize - 1);
    while (fresh[j]) j = (j + 1) & (newSize - 1);
    fresh[j] = slot;
  }
  free(slots);
  slots = fresh;
  size = newSize;
  return true;
}

// The low 32 bits of the hash pick the slot and are kept in it, so that a
// rehash needn't know the entries.
void UREINDEX::Insert(uint64_t hash, unsigned long entry) {
  const uint32_t h = static_cast<uint32_t>(hash);
  unsigned long i = h & (size - 1);
  while (slots[i]) i = (i + 1) & (size - 1);
  slots[i] = uint64_t{h} << 32 | (entry + 1);
  ++used;
}

uint64_t UREBUFFER::HashExpr(uint32_t type, uint16_t lhs, uint16_t rhs) {
  return Mix(uint64_t{type} << 32 | uint64_t{lhs} << 16 | rhs);
}

uint64_t UREBUFFER::HashSymbol(const URESYMTAB* sym) {
  uint64_t h = Mix(uint64_t{sym->type} << 32 ^ sym->mods ^ uint64_t{sym->props} << 8);
  if (sym->type == URE_CHAR) {
    h = Mix(h ^ sym->sym.chr);
  } else if (sym->type == URE_CCLASS || sym->type == URE_NCCLASS) {
    for (unsigned long i = 0; i < sym->sym.ccl.count; ++i)
      h = Mix(h ^ (uint64_t{sym->sym.ccl.ranges[i].low} << 32 | sym->sym.ccl.ranges[i].high));
  }
  return h;
}

uint64_t UREBUFFER::HashSet(unsigned long count, const uint16_t* ids) {
  uint64_t h = Mix(count);
  for (unsigned long i = 0; i < count; ++i) h = Mix(h ^ ids[i]);
  return h;
}

int _ure_sym_neq(const URESYMTAB* a, const URESYMTAB* b) {
  if (a->type != b->type || a->mods != b->mods || a->props != b->props) return 1;
  if (a->type == URE_CHAR) return a->sym.chr != b->sym.chr;
  if (a->type == URE_CCLASS || a->type == URE_NCCLASS) {
    if (a->sym.ccl.count != b->sym.ccl.count) return 1;
    if (a->sym.ccl.count == 0) return 0;
    return memcmp(a->sym.ccl.ranges, b->sym.ccl.ranges, a->sym.ccl.count * sizeof(URERANGE)) != 0;
  }
  return 0;
}

// ---------------------------------------------------------------- tables

UREBUFFER::~UREBUFFER() {
  ClearTables();
  free(stack);
  free(symbols);
  free(exprs);
  free(states);
  free(touched);
}

void UREBUFFER::FreeSymbol(URESYMTAB* sym) {
  if (sym->type == URE_CCLASS || sym->type == URE_NCCLASS) {
    free(sym->sym.ccl.ranges);
    sym->sym.ccl.ranges = nullptr;
    sym->sym.ccl.count = sym->sym.ccl.capacity = 0;
  }
  free(sym->states.ids);
  sym->states = UREIDSET{};
}

void UREBUFFER::ClearTables() {
  stackCount = 0;
  for (unsigned i = 0; i < symbolCount; ++i) FreeSymbol(&symbols[i]);
  symbolCount = 0;
  exprCount = 0;
  for (unsigned long i = 0; i < stateCount; ++i) {
    free(states[i].set.ids);
    free(states[i].trans);
  }
  stateCount = 0;
  touchedCount = 0;
  charged = 0;
}

bool UREBUFFER::Grow(void* block, unsigned long* capacity, unsigned long need,
                     unsigned long elemSize, unsigned long limit) {
  if (need <= *capacity) return true;
  if (need > limit) {
    Fail(URE_ERR_TooLarge);
    return false;
  }
  unsigned long grown = *capacity + (*capacity / 2 > 8 ? *capacity / 2 : 8);
  if (grown < need) grown = need;
  if (grown > limit) grown = limit;
  if (!MmReallocExc(block, grown * elemSize)) {
    Fail(URE_ERR_NoMemory);
    return false;
  }
  *capacity = grown;
  return true;
}

bool UREBUFFER::Charge(unsigned long bytes) {
  charged += bytes;
  if (charged <= kMaxChargedBytes) return true;
  Fail(URE_ERR_TooLarge);
  return false;
}

bool UREBUFFER::AddToSet(UREIDSET* set, uint16_t id) {
  // Sorted insertion; sets are built in rising order most of the time, so
  // look from the end.
  unsigned long i = set->count;
  while (i > 0 && set->ids[i - 1] > id) --i;
  if (i > 0 && set->ids[i - 1] == id) return true;
  const unsigned long before = set->capacity;
  if (!Grow(&set->ids, &set->capacity, set->count + 1, sizeof(uint16_t), 0xFFFF)) return false;
  if (!Charge((set->capacity - before) * sizeof(uint16_t))) return false;
  memmove(set->ids + i + 1, set->ids + i, (set->count - i) * sizeof(uint16_t));
  set->ids[i] = id;
  ++set->count;
  return true;
}

void UREBUFFER::Push(uint16_t v) {
  if (reducing && v != URE_NONE) {
    if (exprs[v].onStack) return;
    exprs[v].onStack = 1;
  }
  if (!Grow(&stack, &stackCapacity, stackCount + 1, sizeof(uint16_t), ~0ul / 4)) return;
  stack[stackCount++] = v;
}

uint16_t UREBUFFER::Pop() {
  return stackCount ? stack[--stackCount] : URE_NONE;
}

uint16_t UREBUFFER::Peek() const {
  return stackCount ? stack[stackCount - 1] : URE_NONE;
}

// ---------------------------------------------------------------- compile

int UREBUFFER::Compile(UCREGEXP& result, const unsigned short* pattern, bool ignoreCase) {
  if (!pattern || !*pattern) return 0;
  result.Clear();
  ClearTables();
  error = URE_OK;
  reducing = 0;
  flags = ignoreCase ? 3 : 2;

  unsigned long length = 0;
  while (pattern[length]) ++length;
  const uint16_t start = REtoNFA(pattern, length);
  if (start == URE_NONE || error) return 0;
  Reduce(start);
  if (error) return 0;
  MergeEquiv();
  if (error) return 0;

  // The first state of each class (ids are dense, in the order of the
  // classes' first states) survives, with its transitions.
  unsigned long survivors = 0, transTotal = 0;
  for (unsigned long i = 0; i < stateCount; ++i) {
    if (states[i].id != survivors) continue;
    ++survivors;
    transTotal += states[i].transCount;
  }
  if (transTotal > 0xFFFF) {
    Fail(URE_ERR_TooLarge);
    return 0;
  }
  UREDFASTATE* outStates = nullptr;
  UREDFATRANS* outTrans = nullptr;
  if (!MmAllocExc(&outStates, survivors * sizeof(UREDFASTATE)) ||
      !MmAllocExc(&outTrans, (transTotal ? transTotal : 1) * sizeof(UREDFATRANS))) {
    free(outStates);
    Fail(URE_ERR_NoMemory);
    return 0;
  }
  unsigned long next = 0, t = 0;
  for (unsigned long i = 0; i < stateCount; ++i) {
    const UREBUILDSTATE& s = states[i];
    if (s.id != next) continue;
    UREDFASTATE& out = outStates[next++];
    out.accepting = s.accepting ? 1 : 0;
    out.transCount = static_cast<uint16_t>(s.transCount);
    out.trans = outTrans + t;
    for (unsigned long k = 0; k < s.transCount; ++k, ++t) {
      outTrans[t].symbol = s.trans[k].symbol;
      outTrans[t].nextState = states[s.trans[k].state].id;
    }
  }

  for (unsigned i = 0; i < symbolCount; ++i) {
    free(symbols[i].states.ids);
    symbols[i].states = UREIDSET{};
  }
  result.m_flags = static_cast<unsigned short>(flags & 3);
  result.m_symbols = symbols;
  result.m_symbolCount = symbolCount;
  result.m_states = outStates;
  result.m_stateCount = static_cast<unsigned short>(survivors);
  result.m_transitions = outTrans;
  result.m_transitionCount = static_cast<unsigned short>(transTotal);
  symbols = nullptr;
  symbolCount = symbolCapacity = 0;
  return 0;
}
