// Decomposition and composition over the one level of data that the
// character database holds.
#include "vosystem/ucdecomp.h"

#include <climits>

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

// The first record on base's composite chain whose canonical decomposition
// spells base and the text after pos, or null. Only the chain's records with
// the right second unit can qualify, and the table lists them in chain order.
const unsigned char* FindComposite(const UCDATA_TABLE& table, unsigned short base,
                                   const unsigned short* text, int pos) {
  if (!table.IsSecondUnit(text[pos + 1])) return nullptr;  // also the end of the text
  int count = 0;
  const unsigned char* const* candidates = table.Candidates(base, text[pos + 1], &count);
  for (int i = 0; i < count; ++i)
    if (RestMatches(candidates[i], text, pos)) return candidates[i];
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
    while (const unsigned char* composite = FindComposite(table, base, text, pos)) {
      base = UCDATA::Code(composite);
      pos += UCDATA::SequenceLength(composite) - 1;
    }
    out.Append(base);
  }
  return Finish(out);
}
