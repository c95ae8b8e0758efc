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
#include "vosystem/glyphs.h"

static const char s_ident[] = "@(#) shaping.cpp 1.0";

#include <algorithm>
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

struct VARIANT {
  const unsigned char* rec;
  uint16_t code;
  uint16_t second;  // second unit of the decomposition, 0 for one unit
  uint8_t tag;
  uint8_t length;
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
  uint8_t count[kIsolated + 1];
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

class SHAPEINDEX {
 public:
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
  static uint32_t Hash(uint32_t key) { return (key ^ key >> 13) * 0x9E3779B1u >> 7; }
  bool BuildGroups(size_t total);
  bool BuildCandidates();

  CHAINPAGE* m_pages[256] = {};
  VARIANT* m_variants = nullptr;
  LIGGROUP* m_groups = nullptr;
  CANDIDATES* m_positionals = nullptr;
  CANDIDATE* m_candidates = nullptr;
  uint32_t m_groupMask = 0;
  uint8_t m_info[65536] = {};
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
      list.count[position] = static_cast<uint8_t>(n - list.first[position]);
    }
  }
  return true;
}

// Keys aren't 0: a ligature's second unit is part of its text.
bool SHAPEINDEX::BuildGroups(size_t total) {
  uint32_t slots = 16;
  while (slots < 2 * total) slots *= 2;
  m_groups = static_cast<LIGGROUP*>(calloc(slots, sizeof(LIGGROUP)));
  if (!m_groups) return false;
  m_groupMask = slots - 1;
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
          if (pass == 1)
            m_variants[n] = {rec, UCDATA::Code(rec),
                             static_cast<uint16_t>(length > 1 ? UCDATA::SequenceUnit(rec, 1) : 0),
                             static_cast<uint8_t>(tag), static_cast<uint8_t>(length)};
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
  return true;
}

// Built on first use and kept for the life of the process; null if there
// was no memory for it.
const SHAPEINDEX* ShapeIndex() {
  static std::once_flag once;
  static SHAPEINDEX* index = nullptr;
  std::call_once(once, [] {
    auto* built = new (std::nothrow) SHAPEINDEX;
    if (built && built->Build(UcdataTable())) index = built;
  });
  return index;
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

// One substitution pass over the chain of the character in the slot.
struct SUBSTITUTION {
  GLYPHSUBSTCALLBACK callback;
  void* userData;
  int features;
  bool contextualOnly;  // no variant but the positional forms is admitted

  bool Asked(const VARIANT& v) const { return !callback || callback(v.rec, userData); }

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
      const CANDIDATES& list = index.Positional(chain.positional);
      const CANDIDATE* c = index.Candidates() + list.first[*position];
      for (const CANDIDATE* end = c + list.count[*position]; c < end; ++c) {
        const VARIANT& v = index.Variants()[c->variant];
        if (Asked(v)) {
          *position = c->taken;
          return &v;
        }
        if (v.tag != kInitial) continue;
        const VARIANT* m = medial               ? medial
                           : c->medial != kNone ? index.Variants() + c->medial
                                                : nullptr;
        if (m && Asked(*m)) return m;
      }
      return nullptr;
    }
    const VARIANT* single = index.Variants() + chain.singleFirst;
    for (const VARIANT* end = single + chain.singleCount; single < end; ++single)
      if (const VARIANT* v = Try(*single, slotNonJoiner, after, position, &medial)) return v;
    return nullptr;
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
};

// The tags features admit, as bits by tag.
uint32_t AdmittedTags(int features) {
  uint32_t tags = features & GLYPHFEATURE_Contextual ? 0x1E : 0;
  for (int tag = kIsolated + 1; tag <= kLastTag; ++tag)
    if (features & FeatureOfTag(tag)) tags |= uint32_t{1} << tag;
  return tags;
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
  const SUBSTITUTION substitution{callback, userData, features, admitted == 0x1E};
  const uint8_t admittedInfo =
      (admitted & 0x1E ? kInfoPositional : 0) | (admitted & ~uint32_t{0x1F} ? kInfoOther : 0);
  int prevCategory = kCategoryNone;
  size_t o = 0;
  for (size_t in = 0; in < n; ++in) {
    unsigned short slot = text[in];
    const uint8_t info = index->Info(slot);
    int category = info & kInfoCategory;
    if (!(info & admittedInfo)) {
      // No variant the features take: the character stands, and its
      // category is all that counts (a position would make no difference).
      out[o++] = slot;
      if (category != kCategoryMark) prevCategory = category;
      continue;
    }
    int position = 0;  // no context
    bool positioned = false;
    for (int round = 0; round < kMaxRounds; ++round) {
      // A character without a record has no chain either.
      const CHAIN* chain = index->Find(slot);
      if (round > 0) category = index->Info(slot) & kInfoCategory;
      if (!chain || !chain->tags) break;
      if (!positioned) {
        if (chain->tags & 0x1E && category <= kLastLetter) {
          const int next = NextCategory(*index, text + in + 1);
          if (prevCategory > kLastLetter)
            position = next <= kLastLetter ? kInitial : kIsolated;
          else
            position = next <= kLastLetter ? kMedial : kFinal;
        }
        positioned = true;
      }
      if (!(chain->tags & admitted)) break;
      const VARIANT* v = substitution.Choose(*index, *chain, slot, text + in + 1, &position);
      if (!v) break;
      slot = v->code;
      in += v->length - 1;
    }
    out[o++] = slot;
    // A mark lets the letters on either side of it join.
    if (category != kCategoryMark) prevCategory = position > kMedial ? kCategoryNone : category;
  }
  out[o] = 0;
  return out;
}
