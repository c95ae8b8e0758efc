// Decomposition and composition over the one level of data that the
// character database holds.
#include "vosystem/ucdecomp.h"

#include <climits>
#include <cstdint>

#include "text/ucdata_priv.h"
#include "vosystem/ucdata.h"
#include "vosystem/ucstring.h"
#include "vosystem/vodblary.h"

namespace {

using UNITS = SIMPLE_ARRAY<unsigned short>;

// Hands over the result with its terminator; null if even that can't be had.
unsigned short* Finish(UNITS& out) {
  if (out.Append(0) < 0) return nullptr;
  return out.Detach();
}

// True if the units from the fourth on of a long candidate's decomposition
// stand in text from pos + 3 on. Its units are not zero, so a mismatch stops
// the walk at the text's end at the latest.
bool TailMatches(const UCDATA_COMPOSITE& composite, const unsigned short* text, int pos) {
  for (uint32_t i = 3; i < composite.length; ++i)
    if (text[pos + i] != UCDATA::SequenceUnit(composite.rec, static_cast<int>(i))) return false;
  return true;
}

// The first record on base's composite chain whose canonical decomposition
// spells base and the text after pos, or null. Only the chain's records with
// the right second unit can qualify, and the table lists them in chain order
// with their third units. Units of candidates aren't zero: once the second
// matched, the text goes on at least to pos + 2.
const UCDATA_COMPOSITE* FindComposite(const UCDATA_TABLE& table, unsigned short base,
                                      const unsigned short* text, int pos) {
  if (!table.IsSecondUnit(text[pos + 1])) return nullptr;  // also the end of the text
  int count = 0;
  const UCDATA_COMPOSITE* candidates = table.Candidates(base, text[pos + 1], &count);
  for (int i = 0; i < count; ++i) {
    const UCDATA_COMPOSITE& candidate = candidates[i];
    if (candidate.length == 2) return &candidate;
    if (candidate.third == text[pos + 2] && TailMatches(candidate, text, pos)) return &candidate;
  }
  return nullptr;
}

}  // namespace

extern "C" unsigned short* MucDecompose(const unsigned short* text) {
  if (!text) return nullptr;
  const UCDATA_TABLE& table = UcdataTable();
  UNITS out;
  for (; *text; ++text) {
    const unsigned char* rec = table.Find(*text);
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
  const UCDATA_TABLE& table = UcdataTable();
  UNITS out;
  int length = ucstrlen(text);
  if (length < INT_MAX) out.Reserve(length + 1, true);  // the result is never longer
  for (int pos = 0; text[pos]; ++pos) {
    unsigned short base = text[pos];
    while (const UCDATA_COMPOSITE* composite = FindComposite(table, base, text, pos)) {
      base = composite->code;
      pos += static_cast<int>(composite->length) - 1;
    }
    out.Append(base);
  }
  return Finish(out);
}
