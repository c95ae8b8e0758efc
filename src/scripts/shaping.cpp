// Contextual glyph substitution over the variant chains of the character
// database.
//
// For each character: if its chain holds positional forms and it is a
// letter, its position in the word is decided once, from the category of
// the letter before (prevCategory) and of the next character that isn't a
// mark: initial (1), medial (2), final (3) or isolated (4). Then its chain is
// walked in order and the first variant whose tag the position and the
// features admit, and the callback accepts, takes the character's place;
// the chain of the new character is walked in turn. A variant longer than
// one unit (a ligature) applies only where the text spells it, and swallows
// the units it spells. A right-joining letter inside a ligature turns a
// medial form into a final one and an initial into an isolated one.
//
// Two decisions a reader would not guess:
// - Non-spacing marks are transparent. GetNextCategory looks past them, and
//   a mark leaves prevCategory as the letter before it set it, so two
//   letters with a vowel sign between them still join on both sides. Taking
//   the mark's own category there would cut every vowelled word apart.
// - A position that a ligature changes (medial to final, initial to
//   isolated) changes only once the callback has accepted that ligature. If
//   the font refuses it, the walk goes on with the position the context
//   gave, so the letter's own forms are judged as if the ligature had never
//   been offered.
//
// Speed. A chain can hold a hundred records (lam starts most Arabic
// ligatures), scattered over the database. A process-wide index, built once
// on first use, keeps what the walk needs packed, so that it decides as the
// walk of the whole chain would while reading far less:
// - a byte per character: its category, and whether its chain has variants
//   the features could take at all; most text stops there;
// - each character's ligatures grouped by their second unit, found by a
//   hash of the pair behind a 64-bit filter, so only those the next unit
//   can start are tried, in chain order;
// - for each position, the one-unit variants whose tag test passes when
//   the positional forms are the only feature, in chain order, with the
//   medial form the walk would have noted before each.
// Records of other tags (canonical ones) are left out: no feature takes
// them.
//
// The positional forms alone are what nearly every caller asks for, and
// they have a loop of their own. All it needs of a character's category is
// whether it joins (a letter), lets joining through (a non-spacing mark) or
// breaks it, so one 16-bit word per character says that, and for a letter
// with positional forms the number of its entry in a dense table: per
// position, the first variant the walk would ask for, with what the slot
// becomes if the font takes it. A letter is then decided by the word of the
// character after it (and of any marks between), its entry, and one
// question to the callback. Whatever the entry doesn't settle (a ligature
// that may be taken at that position, as a filter of second units per
// position tells; a refused form; a form with variants of its own) goes on
// in Decide exactly where the general walk would be at that point, so both
// loops ask the callback the same questions in the same order. Decide
// returns how far it went instead of moving the cursor through a pointer: a
// cursor whose address is taken lives in memory, and each step of the loop
// would wait for it there.
#include "vosystem/glyphs.h"

static const char s_ident[] = "@(#) shaping.cpp 1.0";

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <new>

#include "foundation/errpos.h"
#include "text/ucdata_priv.h"
#include "text/ucstring_priv.h"
#include "vosystem/memfunc.h"
#include "vosystem/ucdata.h"

namespace {

enum : int {
  kCategoryMark = UCCATEGORY_Mn,
  kCategoryEnd = UCCATEGORY_Zl,   // the end of the text, for GetNextCategory
  kCategoryNone = UCCATEGORY_So,  // no record
  kLastLetter = UCCATEGORY_Lo
};

enum : int { kInitial = 1, kMedial = 2, kFinal = 3, kIsolated = 4, kLastTag = 16 };

// The bit of features for a tag from 5 to 16: <font>, <noBreak> and
// <circle> have 0x4, 0x1 and 0x2; the others from 0x10 (tag 8) on, doubling.
constexpr int FeatureOfTag(int tag) {
  return tag == UCDECOMPTYPE_Font      ? GLYPHFEATURE_Font
         : tag == UCDECOMPTYPE_NoBreak ? GLYPHFEATURE_NoBreak
         : tag == UCDECOMPTYPE_Circle  ? GLYPHFEATURE_Circle
                                       : 1 << (tag - 4);
}
static_assert(FeatureOfTag(UCDECOMPTYPE_Super) == GLYPHFEATURE_Super &&
                  FeatureOfTag(UCDECOMPTYPE_Compat) == GLYPHFEATURE_Compat,
              "feature bits by tag");

// A substitution chain rarely goes two deep; a database whose chains led in
// a circle must still not hold the walk.
constexpr int kMaxRounds = 8;

bool NonJoiner(unsigned short c) {
  return (c >= 0x0622 && c <= 0x0624) || c == 0x0626 || c == 0x0627 || c == 0x0629 ||
         (c >= 0x062F && c <= 0x0632) || c == 0x0648 || c == 0x0649;
}

// The tag test of a positional form: whether a letter at position takes a
// variant of tag; nonJoiner if the letter or a unit of the variant ends
// joining.
constexpr bool PositionTakes(int position, int tag, bool nonJoiner) {
  return tag == position || (tag == kFinal && position == kMedial && nonJoiner) ||
         (tag == kIsolated && position == kInitial && nonJoiner);
}

struct VARIANT {
  const unsigned char* rec;
  uint16_t code;
  uint16_t second;  // second unit of the decomposition, 0 for one unit
  uint8_t tag;
  uint8_t length;
  bool nonJoiner;  // a unit of the decomposition doesn't join onward
};

// The variants of one character: ligatures [ligFirst, +ligCount) sorted by
// second unit, then one-unit variants [singleFirst, +singleCount). The
// ligatures of one second unit are found through the group table.
struct CHAIN {
  uint32_t ligFirst;
  uint32_t singleFirst;
  uint16_t ligCount;
  uint16_t singleCount;
  uint32_t tags;        // bit t for each tag t on the chain
  uint64_t seconds;     // bit u % 64 for each second unit u of a ligature
  uint32_t positional;  // 1 + index of its CANDIDATES, 0 for none
};

// With contextual forms the only feature, which one-unit variants a
// position admits is known in advance: for each position from 1 to 4, those
// whose tag test passes, in chain order, each with the position it gives
// and the medial form that the walk has noted by then (for a font that
// refuses an initial form).
struct CANDIDATE {
  uint32_t variant;
  uint32_t medial;  // a variant, or kNone
  uint8_t taken;
};
struct CANDIDATES {
  uint32_t first[kIsolated + 1];  // into the candidate list, by position
  uint32_t count[kIsolated + 1];
};
constexpr uint32_t kNone = 0xFFFFFFFF;

using CHAINPAGE = CHAIN[256];

// The ligatures of a character that share a second unit: [first, +count).
struct LIGGROUP {
  uint32_t key;  // character << 16 | second unit; 0 for a free slot
  uint32_t first;
  uint32_t count;
};

// What the loop asks of every character, one byte each: its category
// (30 without a record, 31 for a number past the categories), whether it is
// a letter whose chain holds positional forms, and whether its chain holds
// other variants. A character with neither that the features take stands
// as it is.
enum : uint8_t { kInfoCategory = 0x1F, kInfoPositional = 0x40, kInfoOther = 0x80 };

// What the loop of the positional forms asks of every character, one word
// each: whether it joins (a letter), lets joining through (a non-spacing
// mark) or neither, and whether it is a letter with positional forms, whose
// entry is then the word >> kJoinEntryShift (0 if the table was full: such a
// letter takes the general walk). The terminator is neither, and stops the
// loop that copies what stands.
enum : uint16_t {
  kJoinLetter = 0x1,
  kJoinMark = 0x2,
  kJoinShapes = 0x4,
  kJoinEnd = 0x8,
  kJoinEntryShift = 4,
  kMaxLetters = 0xFFFF >> kJoinEntryShift
};

// The first variant the walk asks for at one position of one letter, if it
// has one (rec not null), and what the slot is once the font takes it: its
// position, and how the letter after it sees it, in the bits of the join
// word (kJoinLetter: joins; kJoinMark: the joining of the letter before
// goes through; neither: breaks), or kFormAgain if the variant has
// positional forms of its own and the walk must go on with them.
enum : uint8_t { kFormAgain = 0x80 };
struct FORM {
  const unsigned char* rec;
  uint16_t code;
  uint8_t taken;
  uint8_t joins;
};
// A letter's entry.
// Whether a ligature may start with the letter and the unit after it, as
// the chain's filter says (bit u % 64 for each second unit u), and whether
// one may even be taken at a position: the same filter of the ligatures
// whose tag test passes there.
struct LETTER {
  uint64_t seconds;
  uint64_t takes[kIsolated];  // by position - 1
  FORM form[kIsolated];       // by position - 1

  bool MayStartLigature(unsigned short after) const { return seconds >> (after & 63) & 1; }
  bool MayTakeLigature(int position, unsigned short after) const {
    return takes[position - 1] >> (after & 63) & 1;
  }
};

class SHAPEINDEX {
 public:
  SHAPEINDEX() = default;
  SHAPEINDEX(const SHAPEINDEX&) = delete;
  SHAPEINDEX& operator=(const SHAPEINDEX&) = delete;
  ~SHAPEINDEX() {
    for (CHAINPAGE* page : m_pages) free(page);
    free(m_variants);
    free(m_groups);
    free(m_positionals);
    free(m_candidates);
    free(m_letters);
  }

  // False without memory.
  bool Build(const UCDATA_TABLE& table);

  const CHAIN* Find(unsigned short c) const {
    const CHAINPAGE* page = m_pages[c >> 8];
    return page ? &(*page)[c & 0xFF] : nullptr;
  }
  const VARIANT* Variants() const { return m_variants; }
  const CANDIDATES& Positional(uint32_t number) const { return m_positionals[number - 1]; }
  const CANDIDATE* Candidates() const { return m_candidates; }
  uint8_t Info(unsigned short c) const { return m_info[c]; }
  uint16_t Join(unsigned short c) const { return m_join[c]; }
  const LETTER& Letter(uint16_t join) const { return m_letters[join >> kJoinEntryShift]; }

  // The ligatures of c whose second unit is second; null (and *count 0)
  // for none.
  const VARIANT* Ligatures(unsigned short c, unsigned short second, uint32_t* count) const {
    const uint32_t key = uint32_t{c} << 16 | second;
    for (uint32_t i = Hash(key);; ++i) {
      const LIGGROUP& g = m_groups[i & m_groupMask];
      if (g.key == key) {
        *count = g.count;
        return m_variants + g.first;
      }
      if (!g.key) {
        *count = 0;
        return nullptr;
      }
    }
  }

 private:
  // The high bits of the product, where all of the key counts: a letter
  // and the unit after it differ in their low bits only.
  uint32_t Hash(uint32_t key) const { return key * 0x9E3779B1u >> m_groupShift; }
  bool BuildGroups(size_t total);
  bool BuildCandidates();
  bool BuildLetters();

  CHAINPAGE* m_pages[256] = {};
  VARIANT* m_variants = nullptr;
  LIGGROUP* m_groups = nullptr;
  CANDIDATES* m_positionals = nullptr;
  CANDIDATE* m_candidates = nullptr;
  LETTER* m_letters = nullptr;
  uint32_t m_groupMask = 0;
  uint32_t m_groupShift = 32;
  uint8_t m_info[65536] = {};
  uint16_t m_join[65536] = {};
};

bool SHAPEINDEX::BuildCandidates() {
  size_t chains = 0, singles = 0;
  for (CHAINPAGE* page : m_pages)
    if (page)
      for (const CHAIN& chain : *page)
        if (chain.tags & 0x1E) ++chains, singles += chain.singleCount;
  m_positionals = static_cast<CANDIDATES*>(malloc((chains ? chains : 1) * sizeof(CANDIDATES)));
  m_candidates = static_cast<CANDIDATE*>(malloc((singles ? 4 * singles : 1) * sizeof(CANDIDATE)));
  if (!m_positionals || !m_candidates) return false;
  uint32_t p = 0, n = 0;
  for (unsigned c = 0; c < 65536; ++c) {
    CHAINPAGE* page = m_pages[c >> 8];
    if (!page || !((*page)[c & 0xFF].tags & 0x1E)) continue;
    CHAIN& chain = (*page)[c & 0xFF];
    const bool nonJoiner = NonJoiner(static_cast<unsigned short>(c));
    CANDIDATES& list = m_positionals[p];
    chain.positional = ++p;
    for (int position = kInitial; position <= kIsolated; ++position) {
      list.first[position] = n;
      uint32_t medial = kNone;
      for (uint32_t i = chain.singleFirst; i < chain.singleFirst + chain.singleCount; ++i) {
        const int tag = m_variants[i].tag;
        if (tag == kMedial && medial == kNone) medial = i;
        int taken = position;
        bool accept = tag == position;
        if (tag == kFinal && position == kMedial && nonJoiner) accept = true, taken = kFinal;
        if (tag == kIsolated && position == kInitial && nonJoiner) accept = true, taken = kIsolated;
        if (accept) m_candidates[n++] = {i, medial, static_cast<uint8_t>(taken)};
      }
      list.count[position] = n - list.first[position];
    }
  }
  return true;
}

// After the byte of every character is known.
bool SHAPEINDEX::BuildLetters() {
  size_t letters = 0;
  for (uint8_t info : m_info) letters += (info & kInfoPositional) != 0;
  letters = std::min<size_t>(letters, kMaxLetters);
  m_letters = static_cast<LETTER*>(calloc(letters + 1, sizeof(LETTER)));
  if (!m_letters) return false;
  // How a slot that became c is seen by the letter after it, at a position.
  auto joins = [this](unsigned short c, int position) -> uint8_t {
    const CHAIN* chain = Find(c);
    if (chain && chain->tags & 0x1E) return kFormAgain;
    const int category = m_info[c] & kInfoCategory;
    if (category == kCategoryMark) return kJoinMark;
    return position <= kMedial && category <= kLastLetter ? kJoinLetter : 0;
  };
  uint32_t entry = 0;
  for (unsigned c = 1; c < 65536; ++c) {
    const int category = m_info[c] & kInfoCategory;
    uint16_t join = category == kCategoryMark ? kJoinMark
                    : category <= kLastLetter ? kJoinLetter
                                              : 0;
    if (m_info[c] & kInfoPositional) {
      join |= kJoinShapes;
      if (entry < letters) {
        LETTER& letter = m_letters[++entry];
        const CHAIN& chain = *Find(static_cast<unsigned short>(c));
        const CANDIDATES& list = Positional(chain.positional);
        letter.seconds = chain.seconds;
        for (uint32_t i = chain.ligFirst; i < chain.ligFirst + chain.ligCount; ++i)
          for (int position = kInitial; position <= kIsolated; ++position)
            if (PositionTakes(position, m_variants[i].tag, m_variants[i].nonJoiner))
              letter.takes[position - 1] |= uint64_t{1} << (m_variants[i].second & 63);
        for (int position = kInitial; position <= kIsolated; ++position) {
          if (!list.count[position]) continue;
          const CANDIDATE& first = m_candidates[list.first[position]];
          const VARIANT& v = m_variants[first.variant];
          letter.form[position - 1] = {v.rec, v.code, first.taken, joins(v.code, first.taken)};
        }
        join |= static_cast<uint16_t>(entry << kJoinEntryShift);
      }
    }
    m_join[c] = join;
  }
  m_join[0] = kJoinEnd;
  return true;
}

// Keys aren't 0: a ligature's second unit is part of its text.
bool SHAPEINDEX::BuildGroups(size_t total) {
  uint32_t slots = 16;
  while (slots < 2 * total) slots *= 2;
  m_groups = static_cast<LIGGROUP*>(calloc(slots, sizeof(LIGGROUP)));
  if (!m_groups) return false;
  m_groupMask = slots - 1;
  while (uint32_t{1} << (32 - m_groupShift) < slots) --m_groupShift;
  for (unsigned c = 0; c < 65536; ++c) {
    const CHAIN* chain = Find(static_cast<unsigned short>(c));
    if (!chain) continue;
    for (uint32_t i = chain->ligFirst, end = i + chain->ligCount; i < end;) {
      const uint16_t second = m_variants[i].second;
      uint32_t j = i;
      while (j < end && m_variants[j].second == second) ++j;
      const uint32_t key = uint32_t{c} << 16 | second;
      uint32_t slot = Hash(key);
      while (m_groups[slot & m_groupMask].key) ++slot;
      if (second) m_groups[slot & m_groupMask] = {key, i, j - i};
      i = j;
    }
  }
  return true;
}

bool SHAPEINDEX::Build(const UCDATA_TABLE& table) {
  // Two passes over every chain: count, then fill.
  size_t total = 0;
  for (int pass = 0; pass < 2; ++pass) {
    size_t n = 0;
    for (unsigned c = 1; c < 65536; ++c) {
      const unsigned char* owner = table.Find(static_cast<unsigned short>(c));
      if (!owner || !UCDATA::VariantLink(owner)) continue;
      const size_t first = n;
      uint32_t tags = 0;
      for (unsigned short link = UCDATA::VariantLink(owner); link;) {
        const unsigned char* rec = table.Find(link);
        if (!rec) break;
        const int tag = UCDATA::DecompTag(rec), length = UCDATA::SequenceLength(rec);
        if (tag >= kInitial && tag <= kLastTag && length >= 1) {
          tags |= uint32_t{1} << tag;
          if (pass == 1) {
            bool nonJoiner = NonJoiner(static_cast<unsigned short>(c));
            for (int k = 1; k < length; ++k)
              nonJoiner = nonJoiner || NonJoiner(UCDATA::SequenceUnit(rec, k));
            m_variants[n] = {rec,
                             UCDATA::Code(rec),
                             static_cast<uint16_t>(length > 1 ? UCDATA::SequenceUnit(rec, 1) : 0),
                             static_cast<uint8_t>(tag),
                             static_cast<uint8_t>(length),
                             nonJoiner};
          }
          ++n;
        }
        const unsigned short next = UCDATA::NextVariant(rec);
        link = next == link ? 0 : next;
      }
      if (pass == 0 || n == first) continue;
      CHAINPAGE*& page = m_pages[c >> 8];
      if (!page && !(page = static_cast<CHAINPAGE*>(calloc(1, sizeof(CHAINPAGE))))) return false;
      // Ligatures first (the chain puts longer decompositions first), then
      // grouped by second unit, keeping chain order within a group.
      VARIANT* begin = m_variants + first;
      VARIANT* singles = std::stable_partition(begin, m_variants + n,
                                               [](const VARIANT& v) { return v.length > 1; });
      std::stable_sort(begin, singles,
                       [](const VARIANT& a, const VARIANT& b) { return a.second < b.second; });
      uint64_t seconds = 0;
      for (const VARIANT* v = begin; v < singles; ++v) seconds |= uint64_t{1} << (v->second & 63);
      (*page)[c & 0xFF] = {static_cast<uint32_t>(first),
                           static_cast<uint32_t>(singles - m_variants),
                           static_cast<uint16_t>(singles - begin),
                           static_cast<uint16_t>(m_variants + n - singles),
                           tags,
                           seconds,
                           0};
    }
    if (pass == 0) {
      total = n;
      m_variants = static_cast<VARIANT*>(malloc((total ? total : 1) * sizeof(VARIANT)));
      if (!m_variants) return false;
    }
  }
  if (!BuildGroups(total) || !BuildCandidates()) return false;
  for (unsigned c = 0; c < 65536; ++c) {
    const unsigned char* rec = table.Find(static_cast<unsigned short>(c));
    const unsigned category =
        rec ? std::min<unsigned>(UCDATA::Category(rec), kInfoCategory) : unsigned{kCategoryNone};
    const CHAIN* chain = Find(static_cast<unsigned short>(c));
    const uint32_t tags = chain ? chain->tags : 0;
    // Positional forms count for letters only: anything else stays without
    // a position, where no positional form is ever taken.
    const bool letter = rec && UCDATA::Category(rec) <= kLastLetter;
    m_info[c] = static_cast<uint8_t>(category | (letter && tags & 0x1E ? kInfoPositional : 0) |
                                     (tags & ~uint32_t{0x1F} ? kInfoOther : 0));
  }
  return BuildLetters();
}

// Built on first use and kept for the life of the process; null if there
// was no memory for it. The pointer is read before call_once, which costs
// more than the rest of a short word.
std::atomic<const SHAPEINDEX*> s_shapeIndex{nullptr};
std::once_flag s_shapeIndexOnce;

const SHAPEINDEX* ShapeIndex() {
  if (const SHAPEINDEX* index = s_shapeIndex.load(std::memory_order_acquire)) return index;
  std::call_once(s_shapeIndexOnce, [] {
    auto* built = new (std::nothrow) SHAPEINDEX;
    if (built && built->Build(UcdataTable()))
      s_shapeIndex.store(built, std::memory_order_release);
    else
      delete built;
  });
  return s_shapeIndex.load(std::memory_order_acquire);
}

int CategoryOf(const UCDATA_TABLE& table, unsigned short c) {
  const unsigned char* rec = table.Find(c);
  return rec ? int{UCDATA::Category(rec)} : int{kCategoryNone};
}

int NextCategory(const UCDATA_TABLE& table, const unsigned short* text) {
  for (;; ++text) {
    if (!*text) return kCategoryEnd;
    const int category = CategoryOf(table, *text);
    if (category != kCategoryMark) return category;
  }
}

// The same from the index, where a category past 30 reads as 31: above the
// letters either way.
int NextCategory(const SHAPEINDEX& index, const unsigned short* text) {
  for (;; ++text) {
    if (!*text) return kCategoryEnd;
    const int category = index.Info(*text) & kInfoCategory;
    if (category != kCategoryMark) return category;
  }
}

// The output slot of one input character while its variants are walked.
struct SLOT {
  unsigned short code;  // what the slot holds
  int position;         // in the word, 0 for no context
  bool positioned;      // position is decided
  int category;         // of code
};

// One substitution pass over the chain of the character in the slot.
struct SUBSTITUTION {
  GLYPHSUBSTCALLBACK callback;
  void* userData;
  int features;
  uint32_t admitted;    // bit t for each tag t the features admit
  bool contextualOnly;  // no variant but the positional forms is admitted

  bool Asked(const unsigned char* rec) const { return !callback || callback(rec, userData); }
  bool Asked(const VARIANT& v) const { return Asked(v.rec); }

  // The variant that takes the slot's place, or null. *position is the
  // slot's position in the word, and changes only with the variant taken.
  const VARIANT* Choose(const SHAPEINDEX& index, const CHAIN& chain, unsigned short slot,
                        const unsigned short* after, int* position) const {
    const VARIANT* medial = nullptr;
    const bool slotNonJoiner = NonJoiner(slot);
    // Only the ligatures the next unit can start apply.
    uint32_t count = 0;
    const VARIANT* lig = chain.seconds >> (*after & 63) & 1 && *after
                             ? index.Ligatures(slot, *after, &count)
                             : nullptr;
    for (const VARIANT* end = lig + count; lig < end; ++lig)
      if (const VARIANT* v = Try(*lig, slotNonJoiner, after, position, &medial)) return v;
    if (contextualOnly) {
      if (*position < kInitial || !chain.positional) return nullptr;
      return FromCandidates(index, chain, medial, false, position);
    }
    const VARIANT* single = index.Variants() + chain.singleFirst;
    for (const VARIANT* end = single + chain.singleCount; single < end; ++single)
      if (const VARIANT* v = Try(*single, slotNonJoiner, after, position, &medial)) return v;
    return nullptr;
  }

  // The one-unit variants that the position admits with the positional
  // forms the only feature, in chain order; firstRefused if the callback
  // has already refused the first of them.
  const VARIANT* FromCandidates(const SHAPEINDEX& index, const CHAIN& chain, const VARIANT* medial,
                                bool firstRefused, int* position) const {
    const CANDIDATES& list = index.Positional(chain.positional);
    const CANDIDATE* c = index.Candidates() + list.first[*position];
    for (const CANDIDATE* end = c + list.count[*position]; c < end; ++c) {
      const VARIANT& v = index.Variants()[c->variant];
      if (!firstRefused && Asked(v)) {
        *position = c->taken;
        return &v;
      }
      firstRefused = false;
      if (v.tag != kInitial) continue;
      const VARIANT* m = medial               ? medial
                         : c->medial != kNone ? index.Variants() + c->medial
                                              : nullptr;
      if (m && Asked(*m)) return m;
    }
    return nullptr;
  }

  // The ligatures [lig, end) that begin with the slot and the unit after
  // it, tried in chain order as Try does with the positional forms the only
  // feature, where a ligature's test of non-joiners is the same wherever it
  // matches. *medial is the first medial form among those the text spells.
  const VARIANT* FromLigatures(const VARIANT* lig, const VARIANT* end, const unsigned short* after,
                               int* position, const VARIANT** medial) const {
    for (; lig < end; ++lig) {
      if (lig->length > 2 && !Spells(*lig, after)) continue;
      if (lig->tag == kMedial && !*medial) *medial = lig;
      if (!PositionTakes(*position, lig->tag, lig->nonJoiner)) continue;
      if (Asked(*lig)) {
        if (lig->tag >= kFinal) *position = lig->tag;
        return lig;
      }
      if (lig->tag == kInitial && *medial && Asked(**medial)) return *medial;
    }
    return nullptr;
  }

  // Whether the units after the slot are those of v past its second unit,
  // which is matched already.
  static bool Spells(const VARIANT& v, const unsigned short* after) {
    for (int k = 2; k < v.length; ++k)
      if (!after[k - 1] || after[k - 1] != UCDATA::SequenceUnit(v.rec, k)) return false;
    return true;
  }

  [[gnu::always_inline]] const VARIANT* Try(const VARIANT& v, bool nonJoiner,
                                            const unsigned short* after, int* position,
                                            const VARIANT** medial) const {
    // The second unit is kept with the variant, and matched already where
    // the ligatures were looked up; the record is read for longer ones.
    for (int k = 1; k < v.length; ++k) {
      const unsigned short unit = after[k - 1];
      if (!unit || unit != (k == 1 ? v.second : UCDATA::SequenceUnit(v.rec, k))) return nullptr;
      nonJoiner = nonJoiner || NonJoiner(unit);
    }
    int taken = *position;
    bool accept = false;
    if (v.tag <= kIsolated) {
      if (!(features & GLYPHFEATURE_Contextual)) return nullptr;
      switch (v.tag) {
        case kInitial:
          accept = *position == kInitial;
          break;
        case kMedial:
          if (!*medial) *medial = &v;
          accept = *position == kMedial;
          break;
        case kFinal:
          accept = *position == kFinal || (*position == kMedial && nonJoiner);
          taken = kFinal;
          break;
        default:
          accept = *position == kIsolated || (*position == kInitial && nonJoiner);
          taken = kIsolated;
          break;
      }
    } else {
      accept = features & FeatureOfTag(v.tag);
    }
    if (!accept) return nullptr;
    if (Asked(v)) {
      *position = taken;
      return &v;
    }
    // A font without the initial form may have the medial one.
    if (v.tag == kInitial && *medial && Asked(**medial)) return *medial;
    return nullptr;
  }

  // The rounds of substitution for the character at text[*in] from round
  // on, each in the chain of what the slot holds by then, until no variant
  // is taken. *in moves past the units a ligature takes in.
  void Rounds(const SHAPEINDEX& index, const unsigned short* text, size_t* in, int prevCategory,
              int round, SLOT* slot) const {
    for (; round < kMaxRounds; ++round) {
      // A character without a record has no chain either.
      const CHAIN* chain = index.Find(slot->code);
      if (round > 0) slot->category = index.Info(slot->code) & kInfoCategory;
      if (!chain || !chain->tags) break;
      if (!slot->positioned) {
        if (chain->tags & 0x1E && slot->category <= kLastLetter) {
          const int next = NextCategory(index, text + *in + 1);
          if (prevCategory > kLastLetter)
            slot->position = next <= kLastLetter ? kInitial : kIsolated;
          else
            slot->position = next <= kLastLetter ? kMedial : kFinal;
        }
        slot->positioned = true;
      }
      if (!(chain->tags & admitted)) break;
      const VARIANT* v = Choose(index, *chain, slot->code, text + *in + 1, &slot->position);
      if (!v) break;
      slot->code = v->code;
      *in += v->length - 1;
    }
  }

  // Any features: text[0, n) into out, whose length is returned.
  size_t ShapeAll(const SHAPEINDEX& index, const unsigned short* text, size_t n,
                  unsigned short* out) const {
    const uint8_t admittedInfo =
        (admitted & 0x1E ? kInfoPositional : 0) | (admitted & ~uint32_t{0x1F} ? kInfoOther : 0);
    int prevCategory = kCategoryNone;
    size_t o = 0;
    for (size_t in = 0; in < n; ++in) {
      const uint8_t info = index.Info(text[in]);
      SLOT slot{text[in], 0, false, info & kInfoCategory};  // no context yet
      if (info & admittedInfo) Rounds(index, text, &in, prevCategory, 0, &slot);
      // Without a variant the features take, the character stands, and its
      // category is all that counts (a position would make no difference).
      out[o++] = slot.code;
      // A mark lets the letters on either side of it join.
      if (slot.category != kCategoryMark)
        prevCategory = slot.position > kMedial ? kCategoryNone : slot.category;
    }
    return o;
  }

  // The positional forms alone: the same as ShapeAll, by the join words,
  // to the terminator. What stands is copied in runs; joins is kJoinLetter
  // while the last character before the run that wasn't a mark joins onward.
  // A letter whose entry decides it is done here, with as little as
  // possible kept across the call to the callback; the others go on in
  // Decide.
  size_t ShapeContextual(const SHAPEINDEX& index, const unsigned short* text,
                         unsigned short* out) const {
    const unsigned short* in = text;
    unsigned short* o = out;
    unsigned joins = 0;
    for (;;) {
      const unsigned short* run = in;
      uint16_t join;
      while (!((join = index.Join(*in)) & (kJoinShapes | kJoinEnd))) *o++ = *in++;
      if (join & kJoinEnd) break;
      // The last of the run that isn't a mark decides, if there is one.
      for (const unsigned short* p = in; p > run;) {
        const uint16_t before = index.Join(*--p);
        if (!(before & kJoinMark)) {
          joins = before & kJoinLetter;
          break;
        }
      }
      const int position = Position(index, in, joins);
      const LETTER& letter = index.Letter(join);
      const unsigned short after = in[1];
      ASKED asked = kNotAsked;
      // Unless a ligature may be taken here, the letter's first form decides.
      if (join >> kJoinEntryShift && !(letter.MayTakeLigature(position, after) && after)) {
        const FORM& form = letter.form[position - 1];
        if (!form.rec) {
          *o++ = *in++;
          joins = position <= kMedial;
          continue;
        }
        if (Asked(form.rec)) {
          if (!(form.joins & kFormAgain)) {
            *o++ = form.code;
            ++in;
            joins = (joins & form.joins >> 1) | (form.joins & kJoinLetter);
            continue;
          }
          asked = kTaken;
        } else {
          asked = kRefused;
        }
      }
      // The units taken, and joins, in one word: in stays in a register.
      const unsigned decided = Decide(index, in, o++, asked, joins);
      in += decided >> 1;
      joins = decided & 1;
    }
    return static_cast<size_t>(o - out);
  }

  // The position of the letter at *in in its word, by the letter before
  // (joins) and the next character that isn't a mark.
  static int Position(const SHAPEINDEX& index, const unsigned short* in, unsigned joins) {
    static constexpr uint8_t kPositions[4] = {kIsolated, kInitial, kFinal, kMedial};
    const unsigned short* next = in + 1;
    while (index.Join(*next) & kJoinMark) ++next;
    return kPositions[joins << 1 | (index.Join(*next) & kJoinLetter)];
  }

  // What the callback said of a letter's first form at its position.
  enum ASKED { kNotAsked, kTaken, kRefused };

  // The rest of the walk for the letter at *in, where ShapeContextual left
  // it with the letter before it as joins says, in the order of the general
  // walk: the ligatures the next unit may start, the letter's forms for its
  // position (from the second on if asked is kRefused), then the variants
  // of what the slot became. Writes the slot to *o, and returns the number
  // of units taken times 2, plus joins as the letter leaves it.
  [[gnu::noinline]] unsigned Decide(const SHAPEINDEX& index, const unsigned short* text,
                                    unsigned short* o, ASKED asked, unsigned joins) const {
    const unsigned short c = *text;
    const uint16_t join = index.Join(c);
    const int position = Position(index, text, joins);
    SLOT slot{c, position, true, index.Info(c) & kInfoCategory};
    size_t at = 0;
    int round = 0;  // where the general walk goes on
    if (join >> kJoinEntryShift) {
      const LETTER& letter = index.Letter(join);
      const FORM& form = letter.form[position - 1];
      const VARIANT* v = nullptr;
      const VARIANT* medial = nullptr;
      // The ligatures come first. Where the form was refused, none could be
      // taken, and the walk only notes their medial form.
      if (asked != kTaken) {
        const unsigned short after = text[1];
        uint32_t count = 0;
        const VARIANT* lig =
            letter.MayStartLigature(after) && after ? index.Ligatures(c, after, &count) : nullptr;
        if (count) v = FromLigatures(lig, lig + count, text + 1, &slot.position, &medial);
        if (!v && form.rec && asked == kNotAsked) asked = Asked(form.rec) ? kTaken : kRefused;
      }
      round = 1;
      if (v) {
        slot.code = v->code;
        at += v->length - 1;
      } else if (asked == kTaken && !(form.joins & kFormAgain)) {
        *o = form.code;
        return 2 | (joins & form.joins >> 1) | (form.joins & kJoinLetter);
      } else if (asked == kTaken) {
        slot.code = form.code;
        slot.position = form.taken;
      } else if (asked == kRefused &&
                 (v = FromCandidates(index, *index.Find(c), medial, true, &slot.position))) {
        slot.code = v->code;  // a medial ligature takes in its units
        at += v->length - 1;
      } else {
        round = kMaxRounds;  // nothing taken: the letter stands
      }
    }
    Rounds(index, text, &at, kCategoryNone, round, &slot);
    *o = slot.code;
    const unsigned taken = static_cast<unsigned>(at + 1) << 1;
    if (slot.category == kCategoryMark) return taken | joins;
    return taken | (slot.position <= kMedial && slot.category <= kLastLetter);
  }
};

// The tags features admit, as bits by tag.
uint32_t AdmittedTags(int features) {
  static_assert(FeatureOfTag(UCDECOMPTYPE_Font) == 0x4 &&
                    FeatureOfTag(UCDECOMPTYPE_NoBreak) == 0x1 &&
                    FeatureOfTag(UCDECOMPTYPE_Circle) == 0x2 && FeatureOfTag(8) == 0x10 &&
                    FeatureOfTag(kLastTag) == 0x1000,
                "tags 8 to 16 have the bits from 0x10 on, in order");
  const uint32_t f = static_cast<uint32_t>(features);
  return (f & GLYPHFEATURE_Contextual ? 0x1E : 0) | (f & GLYPHFEATURE_Font) << (5 - 2) |
         (f & GLYPHFEATURE_NoBreak) << 6 | (f & GLYPHFEATURE_Circle) << (7 - 1) | (f & 0x1FF0) << 4;
}

}  // namespace

extern "C" int GetNextCategory(const unsigned short* text) {
  return text ? NextCategory(UcdataTable(), text) : kCategoryEnd;
}

extern "C" int IsArabicNonJoiner(unsigned short c) {
  return NonJoiner(c);
}

extern "C" unsigned short* MucDoGlyphSubstitutions(const unsigned short* text,
                                                   GLYPHSUBSTCALLBACK callback, void* userData,
                                                   int features) {
  if (!text) return nullptr;
  const SHAPEINDEX* index = ShapeIndex();
  if (!index) {
    int rc = SETERR(VOERROR_OutOfMemory);
    GetErrString() << static_cast<unsigned long long>(sizeof(SHAPEINDEX));
    (void)rc;
    return nullptr;
  }
  const size_t n = UcLength(text);
  unsigned short* out = nullptr;
  if (MmAlloc(&out, static_cast<unsigned long>((n + 1) * sizeof(unsigned short))) < 0)
    return nullptr;
  const uint32_t admitted = AdmittedTags(features);
  const SUBSTITUTION substitution{callback, userData, features, admitted, admitted == 0x1E};
  const size_t o = substitution.contextualOnly ? substitution.ShapeContextual(*index, text, out)
                                               : substitution.ShapeAll(*index, text, n, out);
  out[o] = 0;
  return out;
}
