// The tables of the fast loop, built once per compiled pattern.
//
// Classes of code units. Two units that every symbol treats alike (after
// lowering, under ignore case) behave alike in every state, so the loop can
// look up a unit's class once and the state's row by class. The classes
// come from refining one class of all units by each symbol's set of
// accepted units. Class 0 is kept apart for the units that a table can't
// decide alone, which go through UREMATCH::Step: surrogates (they may pair
// into one character) and line separators (the anchors consume them, and
// "." accepts them only with UCREGEXP_DotAll). Anchors accept no other unit
// past the start of the text, so they play no part in the other classes;
// the start of the text itself takes the full rules when the pattern has
// "^".
//
// Rows. next[(state << rowShift) + class] is the row of the state that the
// state's FIRST accepting transition leads to, which is what the order of
// transitions means, or kRefuse; class 0 is kSlow everywhere. Rows are a
// power of two long, so that the loop gets from a row to its state (to see
// whether it accepts) by a shift rather than a division.
//
// Skipping. While the search stands in a start state that isn't accepting,
// with no match begun, every unit the start state refuses is simply passed
// over. The units it may act on form a bitmap, and, when they fall into a few
// ranges, the vector kernels of ureskip_*.cpp find the next one. Surrogates
// are skipped as units only if the start state refuses every lone surrogate
// and every supplementary character (the pair is then passed over unit by
// unit, with the same result as one refused character); line separators only
// if no anchor or transition there could take them.
//
// Bounds. Patterns with very many class symbols, or whose table would pass
// kMaxEntries, get no tables and run by Step alone; so does a pattern when
// memory runs out. Nothing here changes a result, only its speed.
[[maybe_unused]] static const char s_ident[] = "@(#) ureaccel.cpp 1.0";

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "regex/ure_priv.h"
#include "text/ucdata_priv.h"
#include "vosystem/memfunc.h"

namespace {

const unsigned long kUnits = 65536;
const unsigned long kMaxEntries = 2ul << 20;  // 8 MB of rows
const unsigned kMaxSymbols = 8192;            // each costs a pass over a 64K-bit map
const unsigned kMaxClassSymbols = 512;        // each costs a test of every unit
const unsigned long kMaxSymbolClassBits = 32ul << 20;

bool IsSurrogateUnit(uint32_t u) {
  return u - 0xD800 < 0x800;
}

// Temporary arrays of one build, freed together.
struct TEMP {
  uint16_t* lower = nullptr;        // unit -> lowered unit (ignore case)
  uint16_t* cls = nullptr;          // unit -> class
  unsigned long classCapacity = 0;  // of the four arrays by class
  uint32_t* size = nullptr;         // class -> units in it
  uint32_t* hits = nullptr;         // class -> accepted units in it (during a split)
  uint32_t* fresh = nullptr;        // class -> the class its accepted units move to + 1
  uint32_t* touched = nullptr;      // classes with hits
  uint64_t* accepted = nullptr;     // bitmap of the units a symbol accepts
  uint32_t* inverse = nullptr;      // lowered << 16 | unit, for units that lowering changes
  uint64_t* symClasses = nullptr;   // per symbol, bitmap of the classes it accepts
  ~TEMP() {
    free(lower);
    free(cls);
    free(size);
    free(hits);
    free(fresh);
    free(touched);
    free(accepted);
    free(inverse);
    free(symClasses);
  }
};

template <class T>
bool Alloc(T** p, unsigned long count) {
  return MmAllocCExc(p, (count ? count : 1) * sizeof(T)) != nullptr;
}

void SetBit(uint64_t* bits, unsigned long i) {
  bits[i >> 6] |= uint64_t{1} << (i & 63);
}

// The character database read directly, a unit at a time: the same reads
// as uctolower and ucisprop, without a call and a load test per unit.
uint16_t LowerUnit(const UCDATA_TABLE& db, uint32_t u) {
  const unsigned short c = static_cast<unsigned short>(u);
  return db.Props(c) & UCDATA_PROP_Upper ? UCDATA::CaseMapping(db.Find(c)) : c;
}

bool InClass(const UCDATA_TABLE& db, const URESYMTAB& s, uint32_t v) {
  if (s.props && v <= 0xFFFF && db.IsProp(static_cast<unsigned short>(v), s.props)) return true;
  const URERANGE* r = s.sym.ccl.ranges;
  for (unsigned long i = 0; i < s.sym.ccl.count && r[i].low <= v; ++i)
    if (v <= r[i].high) return true;
  return false;
}

// Whether the symbol may accept a lone surrogate or a supplementary
// character. Erring towards yes only costs speed.
bool MayAcceptSurrogates(const URESYMTAB& s, bool ignoreCase) {
  switch (s.type) {
    case URE_ANY_CHAR:
    case URE_NCCLASS:
      return true;
    case URE_CHAR:
      // Under ignore case a supplementary character is compared by its
      // lowered low half, which can be any unit.
      return ignoreCase || IsSurrogateUnit(s.sym.chr) || s.sym.chr > 0xFFFF;
    case URE_CCLASS:
      if (ignoreCase) return true;
      for (unsigned long i = 0; i < s.sym.ccl.count; ++i)
        if (s.sym.ccl.ranges[i].high >= 0xD800) return true;
      for (uint32_t u = 0xD800; u < 0xE000; ++u)
        if (UreInClass(s, u)) return true;
      return false;
    default:
      return false;
  }
}

// Room in the arrays by class for count classes, zeroed. Most patterns have
// a few dozen classes: the arrays start small, and grow only if needed.
bool ReserveClasses(TEMP& t, unsigned long count) {
  if (count <= t.classCapacity) return true;
  unsigned long grown = t.classCapacity ? 2 * t.classCapacity : 1024;
  while (grown < count) grown *= 2;
  const unsigned long bytes = grown * sizeof(uint32_t), old = t.classCapacity * sizeof(uint32_t);
  for (uint32_t** p : {&t.size, &t.hits, &t.fresh, &t.touched})
    if (!MmReallocCExc(p, static_cast<long>(bytes), old)) return false;
  t.classCapacity = grown;
  return true;
}

// Splits every class by the units set in t.accepted.
void Refine(TEMP& t, uint32_t* classCount) {
  uint32_t touchedCount = 0;
  for (unsigned long w = 0; w < kUnits / 64; ++w) {
    for (uint64_t bits = t.accepted[w]; bits; bits &= bits - 1) {
      const uint32_t c = t.cls[w * 64 + __builtin_ctzll(bits)];
      if (t.hits[c]++ == 0) t.touched[touchedCount++] = c;
    }
  }
  for (uint32_t k = 0; k < touchedCount; ++k) {
    const uint32_t c = t.touched[k];
    if (t.hits[c] < t.size[c]) {
      t.fresh[c] = ++*classCount;  // the new class's number + 1
      t.size[c] -= t.hits[c];
      t.size[*classCount - 1] = t.hits[c];
    }
  }
  for (unsigned long w = 0; w < kUnits / 64; ++w) {
    for (uint64_t bits = t.accepted[w]; bits; bits &= bits - 1) {
      const unsigned long u = w * 64 + __builtin_ctzll(bits);
      const uint32_t f = t.fresh[t.cls[u]];
      if (f) t.cls[u] = static_cast<uint16_t>(f - 1);
    }
  }
  for (uint32_t k = 0; k < touchedCount; ++k) t.hits[t.touched[k]] = t.fresh[t.touched[k]] = 0;
}

// The units (not special: class 0 never splits) whose lowered value the
// symbol accepts.
void AcceptedUnits(const UCDATA_TABLE& db, const URESYMTAB& s, const TEMP& t, bool ignoreCase,
                   unsigned long inverseCount, uint64_t* out) {
  memset(out, 0, kUnits / 8);
  auto value = [&](uint32_t u) -> uint32_t { return ignoreCase ? t.lower[u] : u; };
  auto mark = [&](uint32_t u) {
    if (t.cls[u] != 0) SetBit(out, u);
  };
  if (s.type == URE_CHAR) {
    if (s.sym.chr > 0xFFFF) return;
    if (value(s.sym.chr) == s.sym.chr) mark(s.sym.chr);
    if (ignoreCase) {
      const uint32_t key = s.sym.chr << 16;
      const uint32_t* p = std::lower_bound(t.inverse, t.inverse + inverseCount, key);
      for (; p < t.inverse + inverseCount && (*p >> 16) == s.sym.chr; ++p) mark(*p & 0xFFFF);
    }
    return;
  }
  if (!ignoreCase && s.props == 0) {
    for (unsigned long i = 0; i < s.sym.ccl.count; ++i) {
      const URERANGE r = s.sym.ccl.ranges[i];
      for (uint32_t u = r.low; u <= r.high && u < kUnits; ++u) mark(u);
    }
  } else {
    for (uint32_t u = 0; u < kUnits; ++u)
      if (InClass(db, s, value(u))) mark(u);
  }
  // A negated class splits the units the same way; its acceptance is read
  // from the classes' representatives later.
}

}  // namespace

void UREACCESS::FreeAccel(UREACCEL* a) {
  if (!a) return;
  free(a->map8);
  free(a->map16);
  free(a->next);
  free(a->stopBits);
  free(a);
}

UREACCEL* UREACCESS::BuildAccel(const UCREGEXP& re) {
  const URESYMTAB* sym = re.m_symbols;
  const unsigned symCount = re.m_symbolCount;
  const UREDFASTATE* states = re.m_states;
  const unsigned stateCount = re.m_stateCount;
  const bool ignoreCase = re.m_flags & 1;

  unsigned classSymbols = 0;
  for (unsigned k = 0; k < symCount; ++k)
    if (sym[k].type == URE_CCLASS || sym[k].type == URE_NCCLASS) ++classSymbols;
  if (symCount > kMaxSymbols || classSymbols > kMaxClassSymbols) return nullptr;

  const UCDATA_TABLE& db = UcdataTable();
  TEMP t;
  if (!Alloc(&t.cls, kUnits) || !ReserveClasses(t, 2) || !Alloc(&t.accepted, kUnits / 64))
    return nullptr;
  unsigned long inverseCount = 0;
  if (ignoreCase) {
    if (!Alloc(&t.lower, kUnits)) return nullptr;
    for (uint32_t u = 0; u < kUnits; ++u) {
      t.lower[u] = LowerUnit(db, u);
      inverseCount += t.lower[u] != u;
    }
    if (!Alloc(&t.inverse, inverseCount)) return nullptr;
    for (uint32_t u = 0, i = 0; u < kUnits; ++u)
      if (t.lower[u] != u) t.inverse[i++] = uint32_t{t.lower[u]} << 16 | u;
    std::sort(t.inverse, t.inverse + inverseCount);
  }

  // Classes: 0 the special units (surrogates, separators, and units that
  // lower to a separator), 1 every other unit to begin with.
  for (uint32_t u = 0; u < kUnits; ++u) t.cls[u] = 1;
  for (uint32_t u = 0xD800; u < 0xE000; ++u) t.cls[u] = 0;
  for (uint32_t u : {10u, 13u, 0x2028u, 0x2029u}) t.cls[u] = 0;
  for (unsigned long i = 0; i < inverseCount; ++i)
    if (UreIsSeparator(t.inverse[i] >> 16)) t.cls[t.inverse[i] & 0xFFFF] = 0;
  for (uint32_t u = 0; u < kUnits; ++u) ++t.size[t.cls[u]];
  uint32_t classCount = 2;
  for (unsigned k = 0; k < symCount; ++k) {
    if (sym[k].type != URE_CHAR && sym[k].type != URE_CCLASS && sym[k].type != URE_NCCLASS)
      continue;
    // A refinement at most doubles the classes.
    if (!ReserveClasses(t, std::min(2ul * classCount + 1, kUnits + 1))) return nullptr;
    AcceptedUnits(db, sym[k], t, ignoreCase, inverseCount, t.accepted);
    Refine(t, &classCount);
  }
  uint32_t rowShift = 0;
  while ((1u << rowShift) < classCount) ++rowShift;
  if (static_cast<unsigned long>(stateCount) << rowShift > kMaxEntries) return nullptr;
  if (static_cast<unsigned long>(symCount) * classCount > kMaxSymbolClassBits) return nullptr;

  // A representative unit of each class (class 0 has none that counts).
  uint32_t* rep = t.hits;  // reused
  for (uint32_t c = 0; c < classCount; ++c) rep[c] = kUnits;
  for (uint32_t u = kUnits; u-- > 0;) rep[t.cls[u]] = u;

  // Which classes each symbol accepts.
  const unsigned long words = (classCount + 63) / 64;
  if (!Alloc(&t.symClasses, symCount * words)) return nullptr;
  for (unsigned k = 0; k < symCount; ++k) {
    if (sym[k].type < URE_ANY_CHAR || sym[k].type > URE_NCCLASS) continue;
    uint64_t* bits = t.symClasses + k * words;
    for (uint32_t c = 1; c < classCount; ++c) {
      if (rep[c] >= kUnits) continue;
      const uint32_t v = ignoreCase ? t.lower[rep[c]] : rep[c];
      const bool accepts = sym[k].type == URE_ANY_CHAR || sym[k].type == URE_CHAR
                               ? UreSymbolAccepts(sym[k], v, 0)
                               : InClass(db, sym[k], v) == (sym[k].type == URE_CCLASS);
      if (accepts) SetBit(bits, c);
    }
  }

  UREACCEL* a = nullptr;
  if (!Alloc(&a, 1)) return nullptr;
  const unsigned long entries = static_cast<unsigned long>(stateCount) << rowShift;
  bool ok = Alloc(&a->next, entries) && Alloc(&a->stopBits, kUnits / 64);
  ok = ok && (classCount <= 256 ? Alloc(&a->map8, kUnits) : Alloc(&a->map16, kUnits));
  if (!ok) {
    FreeAccel(a);
    return nullptr;
  }
  a->classCount = classCount;
  a->rowShift = rowShift;
  for (uint32_t u = 0; u < kUnits; ++u) {
    if (a->map8)
      a->map8[u] = static_cast<uint8_t>(t.cls[u]);
    else
      a->map16[u] = t.cls[u];
  }
  for (unsigned s = 0; s < stateCount; ++s) {
    uint32_t* row = a->next + (static_cast<unsigned long>(s) << rowShift);
    row[0] = UREACCEL::kSlow;
    for (uint32_t c = 1; c < 1u << rowShift; ++c) row[c] = UREACCEL::kRefuse;
    for (unsigned k = 0; k < states[s].transCount; ++k) {
      const UREDFATRANS& tr = states[s].trans[k];
      if (sym[tr.symbol].type > URE_NCCLASS) continue;
      const uint64_t* bits = t.symClasses + tr.symbol * words;
      const uint32_t target = uint32_t{tr.nextState} << rowShift;
      for (uint32_t c = 1; c < classCount; ++c)
        if (row[c] == UREACCEL::kRefuse && (bits[c >> 6] >> (c & 63) & 1)) row[c] = target;
    }
  }
  for (unsigned k = 0; k < symCount; ++k)
    if (sym[k].type == URE_BOL_ANCHOR) a->caret = true;

  // Skipping in the start state.
  if (!states[0].accepting) {
    const UREDFASTATE& s0 = states[0];
    bool stopSeparators = false, stopSurrogates = false;
    for (unsigned k = 0; k < s0.transCount; ++k) {
      const URESYMTAB& s = sym[s0.trans[k].symbol];
      if (s.type == URE_BOL_ANCHOR || s.type == URE_EOL_ANCHOR || s.type == URE_ANY_CHAR)
        stopSeparators = true;
      for (uint32_t sep : {10u, 13u, 0x2028u, 0x2029u})
        if (UreSymbolAccepts(s, sep, 0)) stopSeparators = true;
      if (MayAcceptSurrogates(s, ignoreCase)) stopSurrogates = true;
    }
    // Per class, then per unit, a word at a time; class 0 by its kinds.
    uint8_t* classStop = reinterpret_cast<uint8_t*>(t.fresh);  // reused, zeroed
    for (uint32_t c = 1; c < classCount; ++c) classStop[c] = a->next[c] != UREACCEL::kRefuse;
    unsigned long stops = 0;
    for (unsigned long w = 0; w < kUnits / 64; ++w) {
      uint64_t word = 0;
      for (unsigned b = 0; b < 64; ++b) word |= uint64_t{classStop[t.cls[w * 64 + b]]} << b;
      a->stopBits[w] = word;
    }
    for (uint32_t u = 0xD800; u < 0xE000 && stopSurrogates; ++u) SetBit(a->stopBits, u);
    for (uint32_t u = 0; u < kUnits && stopSeparators; ++u)
      if (t.cls[u] == 0 && !IsSurrogateUnit(u)) SetBit(a->stopBits, u);
    for (unsigned long w = 0; w < kUnits / 64; ++w) stops += __builtin_popcountll(a->stopBits[w]);
    // Stopping at most units is no skipping at all.
    a->skipStart = stops <= kUnits / 2;
    // The runs of stop units, if there are few.
    int ranges = 0;
    for (unsigned long u = 0; u < kUnits && ranges <= UREACCEL::kMaxRanges;) {
      const uint64_t set = a->stopBits[u >> 6] >> (u & 63);
      if (set == 0) {
        u = (u | 63) + 1;
        continue;
      }
      u += __builtin_ctzll(set);
      unsigned long v = u;
      for (;;) {
        const uint64_t clear = ~a->stopBits[v >> 6] >> (v & 63);
        if (clear) {
          v += __builtin_ctzll(clear);
          break;
        }
        v = (v | 63) + 1;
        if (v >= kUnits) break;
      }
      if (ranges < UREACCEL::kMaxRanges) {
        a->low[ranges] = static_cast<uint16_t>(u);
        a->span[ranges] = static_cast<uint16_t>(v - 1 - u);
      }
      ++ranges;
      u = v;
    }
    a->rangeCount = ranges <= UREACCEL::kMaxRanges ? ranges : 0;
  }
  return a;
}
