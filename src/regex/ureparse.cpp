// Parsing: pattern text to a graph of shared expressions.
//
// REtoNFA reads the pattern once, left to right, with one operator stack
// (16-bit values: expression ids and the operators 11, 16 and 17):
//   - "*", "+" and "?" wrap the current expression at once;
//   - "(" pushes a marker; ")" reduces what is pending down to the marker
//     and removes it;
//   - "|" reduces what is pending, then pushes the current expression and
//     the alternation;
//   - anything else is one symbol (MakeSymbol), the current expression.
// Concatenation is implicit: after anything but "(" and "|", if the next
// unit is none of ) * + ? | the current expression and the concatenation
// are pushed. Only units 33 to 126 are tested against that set, so every
// other unit concatenates. An atom or group before "(" is pushed too, and
// joins the group when the concatenation is reduced (at the next ")" or "|",
// or at the end): parentheses only group, so "a(b)" is "ab". (Leaving "("
// in that set would drop the atom: "a(b)" would read as "b", and a group
// could join only what stood before a concatenation already pending.)
//
// Reducing pops an operator and its left operand while the stack's top is a
// concatenation or an alternation. Operands are always pushed just before an
// operator, so the top of the stack is never an operand and the test can't
// mistake an expression id for an operator.
//
// Expressions and symbols are shared: MakeExpr returns the existing id of an
// identical (type, lhs, rhs), MakeSymbol that of an identical symbol (class
// ranges being kept sorted, "[ab]" and "[ba]" are one symbol). Equal
// subexpressions are then equal ids, which is what lets the derivation
// recognise equal states by comparing sets of ids.
//
// Nothing here recurses: nesting depth costs stack entries on the heap only.
[[maybe_unused]] static const char s_ident[] = "@(#) ureparse.cpp 1.0";

#include <cstdlib>
#include <cstring>

#include "regex/urebuffer.h"
#include "vosystem/memfunc.h"

namespace {

// The category masks of \p and \P, by number: bit n of a mask is category n
// of the character database.
const unsigned long cclass_flags[22] = {
    0,         0x40,      0x80,      0x200,     0xC00,      0x1000,    0x2000, 0x4000,
    0x18000,   0x40000,   0x2,       0x4,       0x8,        0x10,      0x20,   0x200000,
    0x1400000, 0x2800000, 0x4000000, 0x8000000, 0x10000000, 0x40000000};

// The units before which no concatenation is pushed.
struct SPMAP {
  unsigned char bits[16];
};
constexpr SPMAP MakeSpmap() {
  SPMAP m{};
  const char special[] = "()*+?|";
  for (int i = 0; special[i]; ++i) m.bits[special[i] >> 3] |= 1 << (special[i] & 7);
  return m;
}
constexpr SPMAP spmap = MakeSpmap();

bool IsSpecial(unsigned short c) {
  return c >= 33 && c <= 126 && (spmap.bits[c >> 3] & (1 << (c & 7)));
}

bool IsDigit(unsigned short c) {
  return c >= '0' && c <= '9';
}

int HexValue(unsigned short c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

// The value of the simple escapes \a \b \f \n \r \t \v, or 0.
unsigned short SimpleEscape(unsigned short c) {
  switch (c) {
    case 'a':
      return 7;
    case 'b':
      return 8;
    case 'f':
      return 12;
    case 'n':
      return 10;
    case 'r':
      return 13;
    case 't':
      return 9;
    case 'v':
      return 11;
    default:
      return 0;
  }
}

bool IsHexEscape(unsigned short c) {
  return c == 'x' || c == 'X' || c == 'u' || c == 'U';
}

// ---------------------------------------------------------------- POSIX names

// cclass_trie: the names as a trie whose sibling groups are contiguous. A
// node's `next` is the first node of its children's group, and `siblings`
// the size of the group it belongs to. The leaves are the closing colons,
// with the set-up function of their name.
using SETUP = void (UREBUFFER::*)(URESYMTAB*, unsigned long);

struct POSIXNAME {
  const char* name;
  SETUP setup;
  unsigned long mask;
};

constexpr POSIXNAME kPosixNames[] = {
    {":alnum:", &UREBUFFER::SetupCCL, 0x2FE},      {":alpha:", &UREBUFFER::SetupCCL, 0xFE},
    {":cntrl:", &UREBUFFER::SetupCCL, 0x18000},    {":digit:", &UREBUFFER::SetupCCL, 0x200},
    {":graph:", &UREBUFFER::SetupCCL, 0x58000EFE}, {":lower:", &UREBUFFER::SetupCCL, 0x4},
    {":print:", &UREBUFFER::SetupCCL, 0x58001EFE}, {":punct:", &UREBUFFER::SetupCCL, 0x7E00000},
    {":space:", &UREBUFFER::SetupSpace, 0x7000},   {":upper:", &UREBUFFER::SetupCCL, 0x2},
    {":xdigit:", &UREBUFFER::SetupXDigit, 0},
};
constexpr int kPosixCount = sizeof kPosixNames / sizeof kPosixNames[0];

struct TRIENODE {
  unsigned short key;
  unsigned short siblings;
  unsigned short next;
  SETUP setup;
  unsigned long mask;
};

struct TRIE {
  TRIENODE nodes[65];
  int count;
};

constexpr int NameLength(const char* s) {
  int n = 0;
  while (s[n]) ++n;
  return n;
}

// Whether name starts with the first n characters of prefix.
constexpr bool HasPrefix(const char* name, const char* prefix, int n) {
  for (int i = 0; i < n; ++i)
    if (name[i] == 0 || name[i] != prefix[i]) return false;
  return true;
}

// Breadth first: each node's children are appended as one group. A node is
// known by a name that runs through it (owner) and its depth.
constexpr TRIE BuildTrie() {
  TRIE t{};
  int owner[65] = {};
  int depth[65] = {};
  t.nodes[0] = TRIENODE{':', 1, 0, nullptr, 0};
  t.count = 1;
  for (int i = 0; i < t.count; ++i) {
    const char* prefix = kPosixNames[owner[i]].name;
    const int d = depth[i] + 1;  // length of this node's prefix
    const int first = t.count;
    for (int k = 0; k < kPosixCount; ++k) {
      const char* name = kPosixNames[k].name;
      if (!HasPrefix(name, prefix, d)) continue;
      if (NameLength(name) == d) {  // the closing colon
        t.nodes[i].setup = kPosixNames[k].setup;
        t.nodes[i].mask = kPosixNames[k].mask;
        continue;
      }
      bool seen = false;
      for (int c = first; c < t.count; ++c) seen = seen || t.nodes[c].key == name[d];
      if (seen) continue;
      owner[t.count] = k;
      depth[t.count] = d;
      t.nodes[t.count++] = TRIENODE{static_cast<unsigned short>(name[d]), 0, 0, nullptr, 0};
    }
    if (t.count > first) t.nodes[i].next = static_cast<unsigned short>(first);
    for (int c = first; c < t.count; ++c)
      t.nodes[c].siblings = static_cast<unsigned short>(t.count - first);
  }
  return t;
}

constexpr TRIE cclass_trie = BuildTrie();
static_assert(cclass_trie.count == 65, "one node per distinct prefix of the eleven names");

}  // namespace

// ---------------------------------------------------------------- numbers

unsigned long UREBUFFER::GetHexNumber(const unsigned short* text, unsigned long length,
                                      unsigned long* value) {
  unsigned long i = 0, v = 0;
  for (; i < length && i < 4 && HexValue(text[i]) >= 0; ++i) v = v << 4 | HexValue(text[i]);
  *value = v;
  return i;
}

unsigned long UREBUFFER::ProbeLowSurrogate(const unsigned short* text, unsigned long length,
                                           unsigned long* value) {
  if (length >= 1 && UreIsLowSurrogate(text[0])) {
    *value = text[0];
    return 1;
  }
  if (length >= 3 && text[0] == '\\' && IsHexEscape(text[1])) {
    unsigned long v = 0;
    const unsigned long n = GetHexNumber(text + 2, length - 2, &v);
    if (n > 0 && UreIsLowSurrogate(v)) {
      *value = v;
      return 2 + n;
    }
  }
  return 0;
}

// Numbers above the table's end are refused, however many digits they have:
// the value is kept from overflowing by stopping its growth at 1000.
unsigned long UREBUFFER::PropList(const unsigned short* pattern, unsigned long length,
                                  unsigned long* mask) {
  unsigned long i = 0;
  *mask = 0;
  while (i < length && IsDigit(pattern[i])) {
    unsigned long n = 0;
    for (; i < length && IsDigit(pattern[i]); ++i)
      if (n < 1000) n = n * 10 + (pattern[i] - '0');
    if (n > 21) {
      Fail(URE_ERR_Property);
      return i;
    }
    *mask |= cclass_flags[n];
    // A comma belongs to the list only when a number follows it: "\p3,"
    // is the digits and a literal comma.
    if (i + 1 < length && pattern[i] == ',' && IsDigit(pattern[i + 1]))
      ++i;
    else
      break;
  }
  return i;
}

// ---------------------------------------------------------------- classes

// Both ends of a range are lowered under ignore case, but only a BMP end:
// a class of supplementary characters compares whole code points, and
// lowering by the low 16 bits would turn its ends into unrelated BMP units.
void UREBUFFER::AddRange(URECCL* ccl, URERANGE* range) {
  URERANGE r = *range;
  if (flags & 1) {
    if (r.low <= 0xFFFF) r.low = UreLower(r.low);
    if (r.high <= 0xFFFF) r.high = UreLower(r.high);
  }
  if (r.low > r.high) {
    const uint32_t t = r.low;
    r.low = r.high;
    r.high = t;
  }
  // Ordered by low end, then high end, so that equal classes are equal lists.
  unsigned long i = ccl->count;
  while (i > 0 && (ccl->ranges[i - 1].low > r.low ||
                   (ccl->ranges[i - 1].low == r.low && ccl->ranges[i - 1].high > r.high)))
    --i;
  if (i > 0 && ccl->ranges[i - 1].low == r.low && ccl->ranges[i - 1].high == r.high) return;
  if (!Grow(&ccl->ranges, &ccl->capacity, ccl->count + 1, sizeof(URERANGE), 0xFFFFFFFFul)) return;
  memmove(ccl->ranges + i + 1, ccl->ranges + i, (ccl->count - i) * sizeof(URERANGE));
  ccl->ranges[i] = r;
  ++ccl->count;
}

// A name adds its categories to whatever the class holds: "[[:alpha:]0-9]"
// and "[[:alpha:][:digit:]]" mean what they say. (\p, by contrast, replaces
// the class's mask.)
void UREBUFFER::SetupCCL(URESYMTAB* sym, unsigned long mask) {
  sym->props |= static_cast<uint32_t>(mask);
}

void UREBUFFER::SetupSpace(URESYMTAB* sym, unsigned long mask) {
  sym->props |= static_cast<uint32_t>(mask);
  static const uint32_t kSpaces[] = {9, 13, 10, 12, 0xFEFF};
  for (uint32_t c : kSpaces) {
    URERANGE r{c, c};
    AddRange(&sym->sym.ccl, &r);
  }
}

void UREBUFFER::SetupXDigit(URESYMTAB* sym, unsigned long) {
  static const URERANGE kDigits[] = {{'0', '9'}, {'A', 'F'}, {'a', 'f'}};
  for (URERANGE r : kDigits) AddRange(&sym->sym.ccl, &r);
}

unsigned long UREBUFFER::PosixCCL(const unsigned short* pattern, unsigned long length,
                                  URESYMTAB* sym) {
  if (length < 7) return 0;
  unsigned group = 0, size = 1;
  for (unsigned long i = 0; i < length && i < 8; ++i) {
    const TRIENODE* node = nullptr;
    for (unsigned k = group; k < group + size; ++k)
      if (cclass_trie.nodes[k].key == pattern[i]) node = &cclass_trie.nodes[k];
    if (!node) return 0;
    if (node->setup) {  // the closing colon, at position 6 or 7
      (this->*node->setup)(sym, node->mask);
      return i + 1;
    }
    group = node->next;
    size = cclass_trie.nodes[group].siblings;
  }
  return 0;
}

// Entered behind the "[". A range is a character, "-", and the character
// after it; "-" right before the closing "]" is a literal (as in "[a-]"), and
// so is a range whose second end turns out to be a \p list or a name (both
// ends are then characters of the class, and so is the "-").
unsigned long UREBUFFER::CClass(const unsigned short* pattern, unsigned long length,
                                URESYMTAB* sym) {
  unsigned long i = 0;
  sym->type = URE_CCLASS;
  if (i < length && pattern[i] == '^') {
    sym->type = URE_NCCLASS;
    ++i;
  }
  sym->mods = flags & 1;
  bool rangeOpen = false;
  uint32_t low = 0;
  while (i < length && pattern[i] != ']' && !error) {
    uint32_t c = pattern[i++];
    bool isChar = true;
    if (c == '\\') {
      if (i >= length) {
        Fail(URE_ERR_Backslash);
        return i;
      }
      c = pattern[i++];
      if (SimpleEscape(static_cast<unsigned short>(c))) {
        c = SimpleEscape(static_cast<unsigned short>(c));
      } else if (IsHexEscape(static_cast<unsigned short>(c))) {
        unsigned long v = 0;
        const unsigned long n = GetHexNumber(pattern + i, length - i, &v);
        if (n) {
          c = static_cast<uint32_t>(v);
          i += n;
        }
      } else if (c == 'p' || c == 'P') {
        unsigned long mask = 0;
        i += PropList(pattern + i, length - i, &mask);
        sym->props = static_cast<uint32_t>(mask);
        if (c == 'P') sym->props = ~sym->props;
        isChar = false;
      }
    } else if (c == ':') {
      const unsigned long n = PosixCCL(pattern + i - 1, length - i + 1, sym);
      if (n) {
        i += n - 1;
        isChar = false;
      }
    }
    if (!isChar) {
      if (rangeOpen) {
        URERANGE a{low, low}, dash{'-', '-'};
        AddRange(&sym->sym.ccl, &a);
        AddRange(&sym->sym.ccl, &dash);
        rangeOpen = false;
      }
      continue;
    }
    if (UreIsHighSurrogate(c)) {
      unsigned long v = 0;
      const unsigned long n = ProbeLowSurrogate(pattern + i, length - i, &v);
      if (n) {
        c = UreJoinSurrogates(c, static_cast<uint32_t>(v));
        i += n;
      }
    }
    if (rangeOpen) {
      URERANGE r{low, c};
      AddRange(&sym->sym.ccl, &r);
      rangeOpen = false;
    } else if (i + 1 < length && pattern[i] == '-' && pattern[i + 1] != ']') {
      low = c;
      rangeOpen = true;
      ++i;
    } else {
      URERANGE r{c, c};
      AddRange(&sym->sym.ccl, &r);
    }
  }
  if (error) return i;
  if (i >= length) {
    Fail(URE_ERR_Class);
    return i;
  }
  return i + 1;
}

// ---------------------------------------------------------------- symbols

unsigned long UREBUFFER::CompileSymbol(const unsigned short* pattern, unsigned long length,
                                       URESYMTAB* sym) {
  uint32_t c = pattern[0];
  unsigned long i = 1;
  switch (c) {
    case '.':
      sym->type = URE_ANY_CHAR;
      break;
    case '^':
      sym->type = URE_BOL_ANCHOR;
      break;
    case '$':
      sym->type = URE_EOL_ANCHOR;
      break;
    case '[':
      i += CClass(pattern + 1, length - 1, sym);
      break;
    case '\\':
      if (length < 2) {
        Fail(URE_ERR_Backslash);
        return 1;
      }
      c = pattern[1];
      i = 2;
      if (c == 'p' || c == 'P') {
        unsigned long mask = 0;
        i += PropList(pattern + 2, length - 2, &mask);
        sym->type = c == 'p' ? URE_CCLASS : URE_NCCLASS;
        sym->mods = flags & 1;
        sym->props = static_cast<uint32_t>(mask);
        break;
      }
      if (SimpleEscape(static_cast<unsigned short>(c))) {
        c = SimpleEscape(static_cast<unsigned short>(c));
      } else if (IsHexEscape(static_cast<unsigned short>(c))) {
        unsigned long v = 0;
        const unsigned long n = GetHexNumber(pattern + 2, length - 2, &v);
        if (n) {
          c = static_cast<uint32_t>(v);
          i += n;
        }
      }
      sym->type = URE_CHAR;
      break;
    default:
      sym->type = URE_CHAR;
      break;
  }
  if (sym->type == URE_CHAR) {
    if (UreIsHighSurrogate(c)) {
      unsigned long v = 0;
      const unsigned long n = ProbeLowSurrogate(pattern + i, length - i, &v);
      if (n) {
        c = UreJoinSurrogates(c, static_cast<uint32_t>(v));
        i += n;
      }
    }
    if (flags & 1) c = UreLower(c);
    sym->sym.chr = c;
    sym->mods = flags & 1;
  }
  if (sym->type != URE_BOL_ANCHOR && sym->type != URE_EOL_ANCHOR) flags &= ~2u;
  return i;
}

uint16_t UREBUFFER::MakeSymbol(const unsigned short* pattern, unsigned long length,
                               unsigned long* consumed) {
  URESYMTAB sym{};
  *consumed = CompileSymbol(pattern, length, &sym);
  if (error) {
    FreeSymbol(&sym);
    return URE_NONE;
  }
  const uint64_t hash = HashSymbol(&sym);
  const unsigned long twin =
      symbolIndex.Find(hash, [&](unsigned long k) { return !_ure_sym_neq(&symbols[k], &sym); });
  if (twin != UREINDEX::kNotFound) {
    FreeSymbol(&sym);
    return static_cast<uint16_t>(twin);
  }
  unsigned long capacity = symbolCapacity;
  if (!Grow(&symbols, &capacity, symbolCount + 1ul, sizeof(URESYMTAB), 0xFFFE)) {
    FreeSymbol(&sym);
    return URE_NONE;
  }
  symbolCapacity = static_cast<uint16_t>(capacity);
  if (!symbolIndex.Reserve()) {
    Fail(URE_ERR_NoMemory);
    FreeSymbol(&sym);
    return URE_NONE;
  }
  sym.id = symbolCount;
  symbols[symbolCount] = sym;
  symbolIndex.Insert(hash, symbolCount);
  return symbolCount++;
}

// ---------------------------------------------------------------- expressions

uint16_t UREBUFFER::MakeExpr(uint32_t type, uint16_t lhs, uint16_t rhs) {
  if (error) return URE_NONE;
  const uint64_t hash = HashExpr(type, lhs, rhs);
  const unsigned long found = exprIndex.Find(hash, [&](unsigned long k) {
    return exprs[k].type == type && exprs[k].lhs == lhs && exprs[k].rhs == rhs;
  });
  if (found != UREINDEX::kNotFound) return static_cast<uint16_t>(found);
  unsigned long capacity = exprCapacity;
  if (!Grow(&exprs, &capacity, exprCount + 1ul, sizeof(UREELT), 0xFFFE)) return URE_NONE;
  exprCapacity = static_cast<uint16_t>(capacity);
  if (!exprIndex.Reserve()) {
    Fail(URE_ERR_NoMemory);
    return URE_NONE;
  }
  exprs[exprCount] = UREELT{0, type, lhs, rhs};
  exprIndex.Insert(hash, exprCount);
  return exprCount++;
}

// ---------------------------------------------------------------- the parse

namespace {

// While the stack's top is a concatenation or an alternation: pop it and its
// left operand, and join them to the current expression.
uint16_t ReducePending(UREBUFFER& b, uint16_t current) {
  while (!b.error && (b.Peek() == URE_AND || b.Peek() == URE_OR)) {
    const uint16_t op = b.Pop();
    const uint16_t left = b.Pop();
    current = b.MakeExpr(op, left, current);
  }
  return current;
}

}  // namespace

// The current expression is never reset: a quantifier with nothing before it
// wraps "none" (URE_NONE), which the derivation treats as matching nothing,
// so that "*" alone only matches the empty text.
uint16_t UREBUFFER::REtoNFA(const unsigned short* pattern, unsigned long length) {
  uint16_t current = URE_NONE;
  unsigned long i = 0;
  while (i < length && !error) {
    const unsigned short c = pattern[i];
    switch (c) {
      case '*':
      case '+':
      case '?':
        current = MakeExpr(c == '*'   ? URE_STAR
                           : c == '+' ? URE_PLUS
                                      : URE_QUEST,
                           current, URE_NONE);
        ++i;
        break;
      case '(':
        Push(URE_PAREN);
        ++i;
        break;
      case ')':
        current = ReducePending(*this, current);
        if (Pop() == URE_NONE) Fail(URE_ERR_Group);
        ++i;
        break;
      case '|':
        current = ReducePending(*this, current);
        Push(current);
        Push(URE_OR);
        ++i;
        break;
      default: {
        unsigned long used = 0;
        const uint16_t sym = MakeSymbol(pattern + i, length - i, &used);
        i += used;
        if (!error) current = MakeExpr(URE_SYMBOL, sym, URE_NONE);
        break;
      }
    }
    if (error) break;
    if (c != '(' && c != '|' && i < length && (pattern[i] == '(' || !IsSpecial(pattern[i]))) {
      Push(current);
      Push(URE_AND);
    }
  }
  if (!error) current = ReducePending(*this, current);
  if (!error && stackCount) Fail(URE_ERR_Group);
  return error ? URE_NONE : current;
}
