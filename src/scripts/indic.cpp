// Indic reordering: the text is cut into syllables by a state machine over
// the characters' classes, and each syllable is written in drawing order.
//
// A consonant syllable is a cluster of consonants joined by viramas, an
// optional dependent vowel, then marks (class 1 above, class 2 after). Its
// base consonant is found by walking back from the last consonant past
// those that take a below-base or post-base form, as far as the script's
// limit allows. It is then written as: the pre-base vowel piece; the
// consonants before the base (half forms); the base with its nukta; the
// below-base and post-base consonants; the other vowel pieces; the reph
// (ra and virama at the start) at its script's place; the marks. A split
// vowel (one drawn in two or three pieces around the cluster) is written as
// its pieces, from the script's split table.
//
// Any other syllable is copied, except that a mark or vowel standing first
// gets a dotted circle (U+25CC) to sit on.
//
// Every index stays inside the syllable: the vowel looked at is the one in
// front of the trailing marks, and a syllable of marks alone has none (a
// mark at the very start of the text has nothing in front of it to read).
// A nukta behind the last consonant of a cluster goes with that consonant:
// no step of the cluster would write it otherwise.
//
// Tamil writes its pre-base vowel before the last consonant of a cluster,
// not before the first: AdjustMPres moves it there over the result.
#include "vosystem/indic.h"

static const char s_ident[] = "@(#) indic.cpp 1.0";

#include <climits>
#include <cstring>

#include "foundation/errpos.h"
#include "scripts/indic_tables.h"
#include "text/ucstring_priv.h"
#include "vosystem/vodblary.h"

namespace {

constexpr unsigned short kDottedCircle = 0x25CC;
constexpr unsigned short kZeroWidthNonJoiner = 0x200C;

// Syllable states by class; -1 ends the syllable before the character.
constexpr signed char s_stateTable[9][10] = {
    {1, 1, 1, 5, 3, 2, 1, 1, 1, 1},         {-1, -1, -1, -1, -1, -1, -1, -1, -1, -1},
    {-1, 6, 1, -1, -1, -1, -1, 5, 4, -1},   {-1, 6, 1, -1, -1, -1, 2, 5, 4, -1},
    {-1, -1, -1, -1, 3, 2, -1, -1, -1, 8},  {-1, 6, 1, -1, -1, -1, -1, -1, -1, -1},
    {-1, 7, 1, -1, -1, -1, -1, -1, -1, -1}, {-1, -1, 1, -1, -1, -1, -1, -1, -1, -1},
    {-1, -1, -1, -1, 3, 2, -1, -1, -1, -1}};

inline int ClassOf(CHARCLASS word) {
  const unsigned c = word & CHARCLASS_Class;
  return c <= CHARCLASS_ZeroWidth ? static_cast<int>(c) : 0;
}

inline bool IsConsonant(CHARCLASS word) {
  return word & CHARCLASS_IsConsonant;
}

// The output and the vowel pieces of the current syllable.
class INDICBUFFER {
 public:
  enum SLOT { kPre, kBelow, kAbove, kPost, kLength, kSlots };

  int Reserve(long count) { return m_out.Reserve(static_cast<int>(count), true); }
  // A unit that finds no room is dropped (the failure is on record).
  void Write(unsigned short c) { m_out.Append(c); }
  void Write(const unsigned short* text, long from, long to) {
    for (long i = from; i < to; ++i) Write(text[i]);
  }
  void WriteSlot(SLOT slot) {
    if (m_slots[slot]) Write(m_slots[slot]);
  }
  int Finish(unsigned short** result) {
    const int used = m_out.GetNumUsed();
    int rc = m_out.Append(0);
    if (rc < 0) return rc;
    *result = m_out.Detach();
    return used;
  }

  void SaveMatra(unsigned short c, CHARCLASS word) {
    static const CHARCLASS kFlags[kSlots] = {CHARCLASS_MatraPre, CHARCLASS_MatraBelow,
                                             CHARCLASS_MatraAbove, CHARCLASS_MatraPost,
                                             CHARCLASS_LengthMark};
    for (int slot = 0; slot < kSlots; ++slot) {
      if (word & kFlags[slot]) {
        m_slots[slot] = c;
        return;
      }
    }
  }

  void NoteMatra(const INDICCLASSTABLE* table, unsigned short c) {
    memset(m_slots, 0, sizeof m_slots);
    const CHARCLASS word = table->GetCharClass(c);
    if (ClassOf(word) != CHARCLASS_VowelDep) return;
    const unsigned row = (word & CHARCLASS_SplitRow) >> CHARCLASS_SplitShift;
    if (!row || !table->splitTable) return SaveMatra(c, word);
    for (unsigned short piece : table->splitTable[row - 1])
      if (piece) SaveMatra(piece, table->GetCharClass(piece));
  }

 private:
  SIMPLE_ARRAY<unsigned short> m_out;
  unsigned short m_slots[kSlots] = {};
};

long FindSyllable(const INDICCLASSTABLE* table, const unsigned short* text, long start, long end) {
  int state = 0;
  for (; start < end; ++start) {
    state = s_stateTable[state][ClassOf(table->GetCharClass(text[start]))];
    if (state < 0) break;
  }
  return start;
}

// One syllable's characters and the places found in it.
struct SYLLABLE {
  const unsigned short* text;
  const INDICCLASSTABLE* table;
  long prev;       // its start
  long matra;      // behind the body: the trailing marks start here
  long markStart;  // the marks after (class 2) start here
  long end;

  CHARCLASS Word(long i) const { return table->GetCharClass(text[i]); }
  int Class(long i) const { return ClassOf(Word(i)); }
};

void WriteConsonantSyllable(const SYLLABLE& s, INDICBUFFER& out, bool markReph) {
  const unsigned short* text = s.text;
  const unsigned flags = s.table->scriptFlags;
  const bool matrasAfterBase = flags & INDICCLASSTABLE::SCRIPT_MatrasAfterBase;
  const bool rephAfterBelow = flags & INDICCLASSTABLE::SCRIPT_RephAfterBelow;
  const long prev = s.prev, matra = s.matra;
  // Reph: ra and virama in front of more; the eyelash form keeps ra,
  // virama and U+200C in front, as they stand.
  long baseLimit = prev;
  if (matra - prev > 2 && s.Word(prev) & CHARCLASS_Reph && s.Class(prev + 1) == CHARCLASS_Virama) {
    baseLimit = prev + 2;
    if (flags & INDICCLASSTABLE::SCRIPT_Eyelash && text[prev + 2] == kZeroWidthNonJoiner)
      baseLimit = matra - prev > 3 ? prev + 3 : prev;
  }
  long lastConsonant = matra - 1;
  while (lastConsonant >= baseLimit && !IsConsonant(s.Word(lastConsonant))) --lastConsonant;
  if (lastConsonant < baseLimit) {
    // No consonant where one must stand (a syllable can't end in ra and
    // virama): nothing to reorder.
    out.Write(text, prev, s.end);
    return;
  }
  long lastEnd = lastConsonant + 1;
  if (lastEnd < matra && s.Class(lastEnd) == CHARCLASS_Nukta) ++lastEnd;

  long baseConsonant = lastConsonant, postBase = lastEnd;
  unsigned limit = flags & INDICCLASSTABLE::SCRIPT_PostBaseLimit;
  bool seenVattu = false, seenBelowBase = false;
  for (; baseConsonant >= baseLimit; --baseConsonant) {
    const CHARCLASS word = s.Word(baseConsonant);
    if (!IsConsonant(word)) continue;
    if (limit == 0 || seenVattu ||
        (baseConsonant > baseLimit && s.Class(baseConsonant - 1) != CHARCLASS_Virama) ||
        !(word & (CHARCLASS_BelowBase | CHARCLASS_PostBase)))
      break;
    seenVattu = word & CHARCLASS_Vattu;
    if (word & CHARCLASS_PostBase) {
      if (seenBelowBase) break;
      postBase = baseConsonant;
    } else {
      seenBelowBase = true;
    }
    --limit;
  }
  if (baseConsonant < baseLimit) baseConsonant = baseLimit;

  out.WriteSlot(INDICBUFFER::kPre);
  if (baseLimit == prev + 3) out.Write(text, prev, prev + 3);
  out.Write(text, baseLimit, baseConsonant);
  long bcSpan = baseConsonant + 1;
  if (bcSpan < matra && s.Class(bcSpan) == CHARCLASS_Nukta) ++bcSpan;
  if (baseConsonant == lastConsonant && bcSpan < matra && s.Class(bcSpan) == CHARCLASS_Virama) {
    ++bcSpan;
    if (bcSpan < matra && text[bcSpan] == kZeroWidthNonJoiner) ++bcSpan;
  }
  out.Write(text, baseConsonant, bcSpan);
  if (matrasAfterBase) {
    out.WriteSlot(INDICBUFFER::kBelow);
    out.WriteSlot(INDICBUFFER::kAbove);
    out.WriteSlot(INDICBUFFER::kPost);
  }
  const bool cluster = baseConsonant != lastConsonant;  // consonants follow the base
  if (cluster) {
    out.Write(text, bcSpan + 1, postBase);
    if (postBase > lastConsonant) out.Write(text[bcSpan]);
  }
  if (!matrasAfterBase) {
    out.WriteSlot(INDICBUFFER::kBelow);
    out.WriteSlot(INDICBUFFER::kAbove);
  }
  if (rephAfterBelow) {
    if (baseLimit == prev + 2) out.Write(text, prev, prev + 2);
    out.Write(text, matra, s.markStart);
  }
  if (cluster) {
    if (postBase <= lastConsonant) {
      out.Write(text, postBase, lastEnd);
      out.Write(text[bcSpan]);
    }
    if (lastConsonant < matra - 1 && s.Class(matra - 1) == CHARCLASS_Virama)
      out.Write(text[matra - 1]);
  }
  if (!matrasAfterBase) out.WriteSlot(INDICBUFFER::kPost);
  out.WriteSlot(INDICBUFFER::kLength);
  if (!rephAfterBelow) {
    if (baseLimit == prev + 2) {
      out.Write(markReph ? static_cast<unsigned short>(text[prev] & ~0x3F) : text[prev]);
      out.Write(text[prev + 1]);
    }
    out.Write(text, matra, s.markStart);
  }
  out.Write(text, s.markStart, s.end);
}

int DoIndicGlyphReordering(const unsigned short* text, long length, const INDICCLASSTABLE* table,
                           INDICBUFFER& out, bool markReph) {
  for (long prev = 0; prev < length;) {
    SYLLABLE s{text, table, prev, 0, 0, FindSyllable(table, text, prev, length)};
    s.markStart = s.end;
    while (s.markStart > prev && s.Class(s.markStart - 1) == CHARCLASS_MarkAfter) --s.markStart;
    s.matra = s.markStart;
    while (s.matra > prev && s.Class(s.matra - 1) == CHARCLASS_MarkAbove) --s.matra;
    out.NoteMatra(table, s.matra > prev ? text[s.matra - 1] : 0);
    switch (s.Class(prev)) {
      case CHARCLASS_MarkAbove:
      case CHARCLASS_MarkAfter:
      case CHARCLASS_Nukta:
      case CHARCLASS_Virama:
        out.Write(kDottedCircle);
        out.Write(text, prev, s.end);
        break;
      case CHARCLASS_VowelDep:
        out.WriteSlot(INDICBUFFER::kPre);
        out.Write(kDottedCircle);
        out.WriteSlot(INDICBUFFER::kBelow);
        out.WriteSlot(INDICBUFFER::kAbove);
        out.WriteSlot(INDICBUFFER::kPost);
        out.WriteSlot(INDICBUFFER::kLength);
        break;
      case CHARCLASS_Consonant:
      case CHARCLASS_ConsonantNukta:
        WriteConsonantSyllable(s, out, markReph);
        break;
      default:
        out.Write(text, prev, s.end);
        break;
    }
    prev = s.end;
  }
  return 0;
}

void AdjustMPres(unsigned short* text, const INDICCLASSTABLE* table) {
  if (!(table->scriptFlags & INDICCLASSTABLE::SCRIPT_MatraPreFixup)) return;
  for (long i = 0; text[i]; ++i) {
    if (!(table->GetCharClass(text[i]) & CHARCLASS_MatraPre)) continue;
    // Consonants joined by viramas follow the vowel.
    long next = i + 1;
    for (bool want = true; text[next]; ++next) {
      const CHARCLASS word = table->GetCharClass(text[next]);
      if (IsConsonant(word)) {
        if (!want) break;
        want = false;
      } else if (ClassOf(word) == CHARCLASS_Virama) {
        if (want) break;
        want = true;
      } else {
        break;
      }
    }
    if (next <= i + 2) continue;
    --next;
    while (next > i && !IsConsonant(table->GetCharClass(text[next]))) --next;
    // The vowel goes in front of the last consonant.
    const unsigned short vowel = text[i];
    memmove(text + i, text + i + 1, static_cast<size_t>(next - 1 - i) * sizeof(unsigned short));
    text[next - 1] = vowel;
    i = next - 1;
  }
}

}  // namespace

extern "C" const INDICCLASSTABLE* GetScriptClassTable(SCRIPTTAG script) {
  switch (script) {
    case SCRIPTTAG_Deva:
      return &devaClassTable;
    case SCRIPTTAG_Beng:
      return &bengClassTable;
    case SCRIPTTAG_Punj:
      return &punjClassTable;
    case SCRIPTTAG_Gujr:
      return &gujrClassTable;
    case SCRIPTTAG_Orya:
      return &oryaClassTable;
    case SCRIPTTAG_Taml:
      return &tamlClassTable;
    case SCRIPTTAG_Telu:
      return &teluClassTable;
    case SCRIPTTAG_Knda:
      return &kndaClassTable;
    case SCRIPTTAG_Mlym:
      return &mlymClassTable;
    default:
      return nullptr;
  }
}

extern "C" long MucIndicGlyphSubstitutions(const unsigned short* text, unsigned short** result,
                                           SCRIPTTAG script, long length, bool markReph) {
  if (!result) return SETERR(VOERROR_InvalidArgument);
  *result = nullptr;
  if (!text) return SETERR(VOERROR_InvalidArgument);
  if (length < 0) {
    const size_t n = UcLength(text);
    length = n < static_cast<size_t>(LONG_MAX) ? static_cast<long>(n) : LONG_MAX;
  }
  // Room for the text, and at most a dotted circle, split pieces or the
  // terminator more per unit: within an int count.
  if (length > INT_MAX / 4) {
    int rc = SETERR(VOERROR_OutOfMemory);
    GetErrString() << static_cast<unsigned long long>(length) * 4 * sizeof(unsigned short);
    return rc;
  }
  const INDICCLASSTABLE* table = GetScriptClassTable(script ? script : SCRIPTTAG_Deva);
  INDICBUFFER buffer;
  int rc = buffer.Reserve(length + 1);
  if (rc < 0) return PASSERR(rc);
  if (!table) {
    buffer.Write(text, 0, length);
    rc = buffer.Finish(result);
    return rc < 0 ? PASSERR(rc) : length;
  }
  rc = DoIndicGlyphReordering(text, length, table, buffer, markReph);
  if (rc >= 0) rc = buffer.Finish(result);
  if (rc < 0) return PASSERR(rc);
  AdjustMPres(*result, table);
  return rc;
}
