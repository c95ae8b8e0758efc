// Decomposition and composition over the one level of data that the
// character database holds.
#include "vosystem/ucdecomp.h"

static const char s_ident[] = "@(#) decompose.cpp 1.0";

#include <algorithm>
#include <climits>
#include <cstdint>
#include <cstring>

#include "foundation/errpos.h"
#include "text/ucdata_priv.h"
#include "text/ucstring_priv.h"
#include "vosystem/ucdata.h"
#include "vosystem/ucstring.h"
#include "vosystem/vodblary.h"

namespace {

using UNITS = SIMPLE_ARRAY<unsigned short>;

// The result under construction, in an array whose reservation doubles (16
// units at least) with room kept for the terminator. Characters go in whole
// or not at all: one whose units can't be had is skipped (the allocator
// recorded why) and the text goes on. Past what an int counts nothing more
// fits; that is recorded once and the rest of the text is skipped.
class RESULT {
 public:
  explicit RESULT(size_t expected) {
    if (expected < static_cast<size_t>(kMaxUnits))
      m_out.Reserve(static_cast<int>(expected) + 1, true);
  }

  // False once nothing more can go in.
  bool Put(const unsigned short* units, int n) {
    const int used = m_out.GetNumUsed();
    if (n > kMaxUnits - used) {
      int rc = SETERR(VOERROR_OutOfMemory);
      GetErrString() << (static_cast<unsigned long long>(used) + n + 1) * sizeof(unsigned short);
      (void)rc;
      return used < kMaxUnits;  // a shorter character may still fit
    }
    const int need = used + n + 1;  // and the terminator
    if (need > m_out.GetNumReserved()) {
      const int reserved = m_out.GetNumReserved();
      const int grown = reserved > kMaxUnits / 2 ? kMaxUnits + 1 : 2 * reserved;
      if (m_out.Reserve(std::max({need, grown, 16}), false) < 0) return true;
    }
    memcpy(m_out.GetPointer() + used, units, static_cast<size_t>(n) * sizeof(unsigned short));
    m_out.Resize(used + n, true, false);
    return true;
  }
  bool Put(unsigned short unit) { return Put(&unit, 1); }

  // Hands over the text with its terminator; null if not even that could be had.
  unsigned short* Finish() {
    if (m_out.Append(0) < 0) return nullptr;
    return m_out.Detach();
  }

 private:
  // Units of text at most, so that the terminator still fits an int count.
  static constexpr int kMaxUnits = INT_MAX - 1;

  UNITS m_out;
};

// True if the units from the fourth on of a long candidate's decomposition
// stand in text from pos + 3 on. Its units are not zero, so a mismatch stops
// the walk at the text's end at the latest.
bool TailMatches(const UCDATA_COMPOSITE& composite, const unsigned short* text, size_t pos) {
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
                                      const unsigned short* text, size_t pos) {
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
  RESULT out(16);
  for (; *text; ++text) {
    const unsigned char* rec = table.Find(*text);
    const int length = rec ? UCDATA::SequenceLength(rec) : 0;
    bool more;
    if (length > 1) {
      unsigned short units[255];
      for (int i = 0; i < length; ++i) units[i] = UCDATA::SequenceUnit(rec, i);
      more = out.Put(units, length);
    } else {
      more = out.Put(*text);
    }
    if (!more) break;
  }
  return out.Finish();
}

extern "C" unsigned short* MucRecompose(const unsigned short* text) {
  if (!text) return nullptr;
  const UCDATA_TABLE& table = UcdataTable();
  RESULT out(UcLength(text));  // the result is never longer
  for (size_t pos = 0; text[pos]; ++pos) {
    unsigned short base = text[pos];
    while (const UCDATA_COMPOSITE* composite = FindComposite(table, base, text, pos)) {
      base = composite->code;
      pos += composite->length - 1;
    }
    if (!out.Put(base)) break;
  }
  return out.Finish();
}
