// Decomposition and composition over the one level of data that the
// character database holds.
#include "vosystem/ucdecomp.h"

#include "vosystem/ucdata.h"
#include "vosystem/vodblary.h"

namespace {

using UNITS = SIMPLE_ARRAY<unsigned short>;

// Hands over the result with its terminator; null if even that can't be had.
unsigned short* Finish(UNITS& out) {
  if (out.Append(0) < 0) return nullptr;
  return out.Detach();
}

// True if the units after the first of rec's decomposition stand in text
// from pos + 1 on. A zero unit can never match, so the text's end is never
// passed.
bool RestMatches(const unsigned char* rec, const unsigned short* text, int pos) {
  int length = UCDATA::SequenceLength(rec);
  for (int i = 1; i < length; ++i) {
    unsigned short want = UCDATA::SequenceUnit(rec, i);
    if (want == 0 || text[pos + i] != want) return false;
  }
  return true;
}

// The first record on base's composite chain that composes base with the
// text after pos, or null.
const unsigned char* FindComposite(unsigned short base, const unsigned short* text, int pos) {
  const unsigned char* rec = UCDATA::GetCharData(base);
  unsigned short link = rec ? UCDATA::VariantLink(rec) : 0;
  while (link != 0) {
    const unsigned char* cand = UCDATA::GetCharData(link);
    if (!cand) break;
    if (UCDATA::SequenceLength(cand) > 1 && UCDATA::DecompTag(cand) == UCDECOMPTYPE_Canonical &&
        UCDATA::SequenceUnit(cand, 0) == base && RestMatches(cand, text, pos))
      return cand;
    unsigned short next = UCDATA::NextVariant(cand);
    if (next == link) break;  // a chain may also end on a record that links to itself
    link = next;
  }
  return nullptr;
}

}  // namespace

extern "C" unsigned short* MucDecompose(const unsigned short* text) {
  if (!text) return nullptr;
  UNITS out;
  for (; *text; ++text) {
    const unsigned char* rec = UCDATA::GetCharData(*text);
    int length = rec ? UCDATA::SequenceLength(rec) : 0;
    if (length > 1) {
      for (int i = 0; i < length; ++i) out.Append(UCDATA::SequenceUnit(rec, i));
    } else {
      out.Append(*text);
    }
  }
  return Finish(out);
}

extern "C" unsigned short* MucRecompose(const unsigned short* text) {
  if (!text) return nullptr;
  UNITS out;
  for (int pos = 0; text[pos]; ++pos) {
    unsigned short base = text[pos];
    while (const unsigned char* composite = FindComposite(base, text, pos)) {
      base = UCDATA::Code(composite);
      pos += UCDATA::SequenceLength(composite) - 1;
    }
    out.Append(base);
  }
  return Finish(out);
}
