// The bidirectional string: one line split into direction runs (spans) that
// sit in a logical and a visual list at once.
//
// Splitting logical text. The base direction is that of the first strong
// character (L, R or AL), unless forced. Passes then alternate a
// left-to-right stage, which takes a run of L, numbers, marks and spaces,
// and a right-to-left stage, which takes R, AL, numbers, marks and spaces.
// Each stage hands the run's trailing spaces and numbers back to the run of
// the base direction (the left-to-right stage in right-to-left text, and the
// other way round), so that neutrals between two runs go with the base. A
// right-to-left run is cut further into right-to-left spans and the
// left-to-right numbers inside them.
//
// Progress. Some characters belong to neither stage: ON neutrals (brackets,
// quotes, "!"), the isolate controls, and marks that no number takes. When a
// pass that ran both stages took nothing, the next takes one such character
// into the run of the base direction and goes on: in left-to-right text it
// opens the next left-to-right run, in right-to-left text the next
// right-to-left one, where it is mirrored, so that "(A)" in right-to-left
// text reads "(A)" on screen. Taking it into the left-to-right stage
// whatever the base would show brackets unmirrored at the ends of
// right-to-left text. (The first pass of right-to-left text runs only its
// right-to-left stage: if that takes nothing, a left-to-right letter is
// next, and the next pass takes it as usual.) The cut of a right-to-left run
// does the same: a unit that none of its three scans takes goes into the
// next right-to-left span, and so do separators that stand next to no
// digit; a span covers them even where no right-to-left letter follows, so
// that none is lost. Every pass or cut therefore moves at least one unit,
// and all of it is loops: a long run of spaces or brackets costs no stack.
//
// Visual text is read from its right end to its left with the same stages,
// the trims running forward from a run's left end; spans keep their units as
// given, and the logical list is built in mirror image of the visual one.
//
// Memory. The text, the spans, their chars and index maps come from blocks
// the string owns (ARENA), bump-allocated and freed together: a line of
// mixed text makes a span every few words, and one allocation per span would
// cost more than the split itself. Setting a new string keeps the largest
// block, already mapped, for the next; Clear and the destructor free all. A
// failed allocation empties the string and returns -1015.
#include "vosystem/bidi.h"

static const char s_ident[] = "@(#) bidistring.cpp 1.0";

#include <climits>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "foundation/errpos.h"
#include "scripts/bidi_priv.h"
#include "text/ucdata_priv.h"
#include "text/ucstring_priv.h"
#include "vosystem/memfunc.h"

namespace {

// The 24 mirrored pairs, opening member first.
constexpr unsigned short SymmetricPairs[48] = {
    0x0028, 0x0029, 0x003C, 0x003E, 0x005B, 0x005D, 0x007B, 0x007D, 0x2045, 0x2046, 0x207D, 0x207E,
    0x208D, 0x208E, 0x3008, 0x3009, 0x300A, 0x300B, 0x300C, 0x300D, 0x300E, 0x300F, 0x3010, 0x3011,
    0x3014, 0x3015, 0x3016, 0x3017, 0x3018, 0x3019, 0x301A, 0x301B, 0xFD3E, 0xFD3F, 0xFE59, 0xFE5A,
    0xFE5B, 0xFE5C, 0xFE5D, 0xFE5E, 0xFF08, 0xFF09, 0xFF3B, 0xFF3D, 0xFF5B, 0xFF5D, 0xFF62, 0xFF63};

// One bit per code unit, set for the members of the pairs. Built by the
// compiler: nothing to initialise at run time, so no thread can see it half
// made.
struct SYMMETRICBITS {
  uint64_t words[65536 / 64];
  constexpr SYMMETRICBITS() : words{} {
    for (unsigned short c : SymmetricPairs) words[c >> 6] |= uint64_t{1} << (c & 63);
  }
};
constexpr SYMMETRICBITS kSymmetricBits;

inline bool Symmetric(unsigned short c) {
  return kSymmetricBits.words[c >> 6] >> (c & 63) & 1;
}

inline unsigned short Mirror(unsigned short c) {
  if (!Symmetric(c)) return c;
  for (int i = 0; i < 48; ++i)
    if (SymmetricPairs[i] == c) return SymmetricPairs[i ^ 1];
  return c;
}

inline bool AsciiDigit(unsigned short c) {
  return c >= '0' && c <= '9';
}

}  // namespace

extern "C" int IsSymmetric(unsigned short c) {
  return Symmetric(c);
}

extern "C" unsigned short UcsymmetricPair(unsigned short c) {
  return Mirror(c);
}

// A block of span memory; the data follows the header, 8-aligned.
struct BIDISTRING::ARENA {
  ARENA* next;
  size_t size;
  size_t used;
};

BIDISTRING::BIDISTRING()
    : direction(DIRECTION_LeftToRight),
      current(nullptr),
      logicalHead(nullptr),
      logicalTail(nullptr),
      visualHead(nullptr),
      visualTail(nullptr),
      text(nullptr),
      start(0),
      length(0),
      keepIndexMaps(0),
      arena(nullptr) {}

BIDISTRING::BIDISTRING(const unsigned short* source, DIRECTION dir, ORDER order) : BIDISTRING() {
  if (order == ORDER_Logical)
    SetStringLogicalNoClear(source, dir, false);
  else
    SetStringVisualNoClear(source, dir);
}

BIDISTRING::~BIDISTRING() {
  Clear();
}

void BIDISTRING::Clear() {
  Empty();
  free(arena);
  arena = nullptr;
}

void BIDISTRING::Empty() {
  // The largest block stays for the next string: a string set again and
  // again, line after line, allocates no more once it has seen its longest.
  ARENA* keep = arena;
  for (ARENA* a = arena; a; a = a->next)
    if (a->size > keep->size) keep = a;
  while (arena) {
    ARENA* next = arena->next;
    if (arena != keep) free(arena);
    arena = next;
  }
  arena = keep;
  if (arena) *arena = {nullptr, arena->size, 0};
  text = nullptr;
  current = logicalHead = logicalTail = visualHead = visualTail = nullptr;
  length = 0;
}

void* BIDISTRING::Allocate(unsigned long bytes) {
  const size_t need = (size_t{bytes} + 7) & ~size_t{7};
  if (!arena || arena->size - arena->used < need) {
    // A first block holds the text, the chars and maps of its spans, and a
    // span every 32 units; later ones double.
    size_t size = arena ? 2 * arena->size : size_t{length} * (keepIndexMaps ? 14 : 6) + 4096;
    if (size < need) size = need;
    void* block = nullptr;
    if (MmAlloc(&block, static_cast<unsigned long>(sizeof(ARENA) + size)) < 0) return nullptr;
    auto* added = static_cast<ARENA*>(block);
    *added = {arena, size, 0};
    arena = added;
  }
  void* p = reinterpret_cast<unsigned char*>(arena + 1) + arena->used;
  arena->used += need;
  return p;
}

int BIDISTRING::StoreText(const unsigned short* source) {
  const size_t n = UcLength(source);
  if (n >= static_cast<size_t>(LONG_MAX) / 16) {
    int rc = SETERR(VOERROR_OutOfMemory);
    GetErrString() << static_cast<unsigned long long>(n);
    return rc;
  }
  length = static_cast<unsigned long>(n);  // sizes the first block
  text = static_cast<unsigned short*>(Allocate((length + 1) * sizeof(unsigned short)));
  if (!text) {
    length = 0;
    return PASSERR(VOERROR_OutOfMemory);  // the block's allocation recorded its size
  }
  memcpy(text, source, (n + 1) * sizeof(unsigned short));
  return 0;
}

BIDISTRING::SPAN* BIDISTRING::NewSpan(const unsigned short* source, unsigned long begin,
                                      unsigned long end, DIRECTION spanDirection, ORDER order) {
  const unsigned long n = end - begin;
  auto* span = static_cast<SPAN*>(Allocate(sizeof(SPAN)));
  auto* chars = static_cast<unsigned short*>(Allocate((n + 1) * sizeof(unsigned short)));
  unsigned long* map =
      keepIndexMaps ? static_cast<unsigned long*>(Allocate(n * sizeof(unsigned long))) : nullptr;
  if (!span || !chars || (keepIndexMaps && !map)) return nullptr;
  // Right-to-left logical text is turned around, and its brackets with it.
  if (spanDirection == DIRECTION_RightToLeft && order == ORDER_Logical) {
    for (unsigned long k = 0; k < n; ++k) chars[k] = Mirror(source[end - 1 - k]);
    if (map)
      for (unsigned long k = 0; k < n; ++k) map[k] = end - 1 - k;
  } else {
    memcpy(chars, source + begin, n * sizeof(unsigned short));
    if (map)
      for (unsigned long k = 0; k < n; ++k) map[k] = begin + k;
  }
  chars[n] = 0;
  *span = {nullptr, nullptr, nullptr, nullptr, spanDirection, -1, chars, map, begin, end};
  if (order == ORDER_Logical) {
    span->logicalPrev = logicalTail;
    (logicalTail ? logicalTail->logicalNext : logicalHead) = span;
    logicalTail = span;
  } else {
    span->visualNext = visualHead;
    (visualHead ? visualHead->visualPrev : visualTail) = span;
    visualHead = span;
  }
  return span;
}

namespace {

using SPAN = BIDISTRING::SPAN;

// List surgery on either list, named by its link members.
template <SPAN* SPAN::*PREV, SPAN* SPAN::*NEXT>
struct LIST {
  SPAN*& head;
  SPAN*& tail;

  void Append(SPAN* s) {
    s->*PREV = tail;
    s->*NEXT = nullptr;
    (tail ? tail->*NEXT : head) = s;
    tail = s;
  }
  void Prepend(SPAN* s) {
    s->*NEXT = head;
    s->*PREV = nullptr;
    (head ? head->*PREV : tail) = s;
    head = s;
  }
  // After anchor; at the head for a null anchor.
  void InsertAfter(SPAN* anchor, SPAN* s) {
    if (!anchor) return Prepend(s);
    s->*PREV = anchor;
    s->*NEXT = anchor->*NEXT;
    (anchor->*NEXT ? anchor->*NEXT->*PREV : tail) = s;
    anchor->*NEXT = s;
  }
  // Before anchor; at the tail for a null anchor.
  void InsertBefore(SPAN* anchor, SPAN* s) {
    if (!anchor) return Append(s);
    s->*NEXT = anchor;
    s->*PREV = anchor->*PREV;
    (anchor->*PREV ? anchor->*PREV->*NEXT : head) = s;
    anchor->*PREV = s;
  }
};

using VISUALLIST = LIST<&SPAN::visualPrev, &SPAN::visualNext>;
using LOGICALLIST = LIST<&SPAN::logicalPrev, &SPAN::logicalNext>;

}  // namespace

// ------------------------------------------------------------ logical text

int BIDISTRING::SetStringLogicalNoClear(const unsigned short* source, DIRECTION dir, bool force) {
  current = logicalHead = logicalTail = visualHead = visualTail = nullptr;
  direction = dir;
  length = 0;
  if (!source || !*source) return 0;
  int rc = StoreText(source);
  if (rc < 0) return PASSERR(rc);
  const BIDICLASSES classes;
  const unsigned short* t = text;
  if (!force) {
    for (unsigned long i = 0; i < length; ++i) {
      const uint32_t bits = classes.Bits(t[i]);
      if (bits & kBidiStrong) {
        direction = bits & kBidiStrongRTL ? DIRECTION_RightToLeft : DIRECTION_LeftToRight;
        break;
      }
    }
  }
  const bool rtlBase = direction == DIRECTION_RightToLeft;
  bool firstPass = true, lastPassFull = false;
  unsigned long lastPass = length;  // no pass starts there
  for (unsigned long runStart = 0; runStart < length;) {
    // Stuck: a pass with both stages moved nothing.
    const bool stuck = runStart == lastPass && lastPassFull;
    lastPass = runStart;
    unsigned long i = runStart + (stuck ? 1 : 0);
    // The first pass of right-to-left text, and a unit that nothing took
    // there, go to the right-to-left stage.
    const bool ltrStage = !(rtlBase && (firstPass || stuck));
    firstPass = false;
    lastPassFull = ltrStage;
    if (ltrStage) {
      while (i < length && classes.Bits(t[i]) & kBidiLtrRun) ++i;
      if (rtlBase)
        while (i > runStart && classes.Bits(t[i - 1]) & kBidiTrimmable) --i;
      if (i > runStart && (rc = AddLTRLogicalSegment(t, runStart, i)) < 0) break;
    }
    const unsigned long rtlStart = ltrStage ? i : runStart;
    while (i < length && classes.Bits(t[i]) & kBidiRtlRun) ++i;
    if (!rtlBase)
      while (i > rtlStart && classes.Bits(t[i - 1]) & kBidiTrimmable) --i;
    if (i > rtlStart && (rc = AddRTLLogicalSegment(t, rtlStart, i)) < 0) break;
    runStart = i;
  }
  if (rc < 0) {
    Clear();
    return PASSERR(rc);
  }
  current = logicalHead;
  current->position = current->direction == DIRECTION_RightToLeft ? current->Length() : 0;
  return 0;
}

int BIDISTRING::AddLTRLogicalSegment(const unsigned short* source, unsigned long begin,
                                     unsigned long end) {
  SPAN* span = NewSpan(source, begin, end, DIRECTION_LeftToRight, ORDER_Logical);
  if (!span) return PASSERR(VOERROR_OutOfMemory);
  VISUALLIST visual{visualHead, visualTail};
  if (direction == DIRECTION_RightToLeft)
    visual.Prepend(span);
  else
    visual.Append(span);
  return 0;
}

int BIDISTRING::AddRTLLogicalSegment(const unsigned short* source, unsigned long begin,
                                     unsigned long end) {
  const BIDICLASSES classes;
  VISUALLIST visual{visualHead, visualTail};
  SPAN* const anchor = visualTail;
  // Later parts of the run stand left of earlier ones: in right-to-left text
  // at the far left, in left-to-right text right behind what came before.
  auto place = [&](SPAN* span) {
    if (!span) return false;
    if (direction == DIRECTION_RightToLeft)
      visual.Prepend(span);
    else
      visual.InsertAfter(anchor, span);
    return true;
  };
  const unsigned short* t = source;
  unsigned long i = begin, segmentStart = begin;
  while (segmentStart < end) {
    const unsigned long passStart = i;
    while (i < end && classes.Bits(t[i]) & kBidiRtlOrNeutral) ++i;
    // Separators left over from the last cut open this span.
    if (i > segmentStart &&
        !place(NewSpan(t, segmentStart, i, DIRECTION_RightToLeft, ORDER_Logical)))
      return PASSERR(VOERROR_OutOfMemory);
    // A number: digits and marks, and separators right before one.
    const unsigned long numberStart = i;
    while (i < end && classes.Bits(t[i]) & kBidiNumeric &&
           (classes.MarkOrDigit(t[i]) || (i + 1 < end && classes.MarkOrDigit(t[i + 1]))))
      ++i;
    if (i > numberStart && !place(NewSpan(t, numberStart, i, DIRECTION_LeftToRight, ORDER_Logical)))
      return PASSERR(VOERROR_OutOfMemory);
    segmentStart = i;
    while (i < end && classes.Bits(t[i]) & kBidiNumericNoMark && !AsciiDigit(t[i])) ++i;
    if (i == passStart && i < end) ++i;  // taken by none: into the next span
  }
  return 0;
}

// ------------------------------------------------------------ visual text

int BIDISTRING::SetStringVisualNoClear(const unsigned short* source, DIRECTION dir) {
  current = logicalHead = logicalTail = visualHead = visualTail = nullptr;
  direction = dir;
  length = 0;
  if (!source || !*source) return 0;
  int rc = StoreText(source);
  if (rc < 0) return PASSERR(rc);
  const BIDICLASSES classes;
  const unsigned short* t = text;
  const bool rtlBase = direction == DIRECTION_RightToLeft;
  bool firstPass = true, lastPassFull = false;
  unsigned long lastPass = length + 1;  // no pass starts there
  for (unsigned long runEnd = length; runEnd > 0;) {
    const bool stuck = runEnd == lastPass && lastPassFull;
    lastPass = runEnd;
    unsigned long i = runEnd - (stuck ? 1 : 0);
    const bool ltrStage = !(rtlBase && (firstPass || stuck));
    firstPass = false;
    lastPassFull = ltrStage;
    if (ltrStage) {
      while (i > 0 && classes.Bits(t[i - 1]) & kBidiLtrRun) --i;
      if (rtlBase)
        while (i < runEnd && classes.Bits(t[i]) & kBidiTrimmable) ++i;
      if (i < runEnd && (rc = AddLTRVisualSegment(t, i, runEnd)) < 0) break;
    }
    const unsigned long rtlEnd = ltrStage ? i : runEnd;
    while (i > 0 && classes.Bits(t[i - 1]) & kBidiRtlRun) --i;
    if (!rtlBase)
      while (i < rtlEnd && classes.Bits(t[i]) & kBidiTrimmable) ++i;
    if (i < rtlEnd && (rc = AddRTLVisualSegment(t, i, rtlEnd)) < 0) break;
    runEnd = i;
  }
  if (rc < 0) {
    Clear();
    return PASSERR(rc);
  }
  current = logicalHead;
  current->position = current->direction == DIRECTION_RightToLeft ? current->Length() : 0;
  return 0;
}

int BIDISTRING::AddLTRVisualSegment(const unsigned short* source, unsigned long begin,
                                    unsigned long end) {
  SPAN* span = NewSpan(source, begin, end, DIRECTION_LeftToRight, ORDER_Visual);
  if (!span) return PASSERR(VOERROR_OutOfMemory);
  LOGICALLIST logical{logicalHead, logicalTail};
  if (direction == DIRECTION_RightToLeft)
    logical.Append(span);
  else
    logical.Prepend(span);
  return 0;
}

int BIDISTRING::AddRTLVisualSegment(const unsigned short* source, unsigned long begin,
                                    unsigned long end) {
  const BIDICLASSES classes;
  LOGICALLIST logical{logicalHead, logicalTail};
  SPAN* const anchor = logicalHead;
  auto place = [&](SPAN* span) {
    if (!span) return false;
    if (direction == DIRECTION_RightToLeft)
      logical.Append(span);
    else
      logical.InsertBefore(anchor, span);
    return true;
  };
  const unsigned short* t = source;
  unsigned long i = end, segmentEnd = end;
  while (segmentEnd > begin) {
    const unsigned long passStart = i;
    while (i > begin && classes.Bits(t[i - 1]) & kBidiRtlOrNeutral) --i;
    if (i < segmentEnd && !place(NewSpan(t, i, segmentEnd, DIRECTION_RightToLeft, ORDER_Visual)))
      return PASSERR(VOERROR_OutOfMemory);
    const unsigned long numberEnd = i;
    while (i > begin && classes.Bits(t[i - 1]) & kBidiNumeric &&
           (classes.MarkOrDigit(t[i - 1]) || (i - 1 > begin && classes.MarkOrDigit(t[i - 2]))))
      --i;
    if (i < numberEnd) {
      if (i > begin && t[i - 1] == '-') --i;  // a sign shown in front of its number
      if (!place(NewSpan(t, i, numberEnd, DIRECTION_LeftToRight, ORDER_Visual)))
        return PASSERR(VOERROR_OutOfMemory);
    }
    segmentEnd = i;
    while (i > begin && classes.Bits(t[i - 1]) & kBidiNumericNoMark && !AsciiDigit(t[i - 1])) --i;
    if (i == passStart && i > begin) --i;
  }
  return 0;
}

int BIDISTRING::SetStringLogical(const unsigned short* source, DIRECTION dir, bool force) {
  Empty();
  int rc = SetStringLogicalNoClear(source, dir, force);
  return rc < 0 ? PASSERR(rc) : 0;
}

int BIDISTRING::SetStringVisual(const unsigned short* source, DIRECTION dir) {
  Empty();
  int rc = SetStringVisualNoClear(source, dir);
  return rc < 0 ? PASSERR(rc) : 0;
}

// ------------------------------------------------------------ the two orders

unsigned short* BIDISTRING::GetStringVisual() const {
  unsigned short* out = nullptr;
  if (MmAlloc(&out, (length + 1) * sizeof(unsigned short)) < 0) return nullptr;
  unsigned short* p = out;
  for (const SPAN* s = visualHead; s; s = s->visualNext) {
    memcpy(p, s->chars, s->Length() * sizeof(unsigned short));
    p += s->Length();
  }
  *p = 0;
  return out;
}

unsigned short* BIDISTRING::GetStringLogical() const {
  unsigned short* out = nullptr;
  if (MmAlloc(&out, (length + 1) * sizeof(unsigned short)) < 0) return nullptr;
  unsigned short* p = out;
  for (const SPAN* s = logicalHead; s; s = s->logicalNext) {
    const unsigned long n = s->Length();
    if (s->direction == DIRECTION_LeftToRight) {
      memcpy(p, s->chars, n * sizeof(unsigned short));
    } else {
      for (unsigned long k = 0; k < n; ++k) p[k] = Mirror(s->chars[n - 1 - k]);
    }
    p += n;
  }
  *p = 0;
  return out;
}
