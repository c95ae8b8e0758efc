// VOSTRING::Search: the string's text through a compiled regular expression.
[[maybe_unused]] static const char s_ident[] = "@(#) vostring_search.cpp 1.0";

#include "regex/ure_priv.h"
#include "text/vostring_priv.h"
#include "vosystem/ucregexp.h"
#include "vosystem/vostring.h"

namespace {

// A pattern compiled for one search gets the tables of the fast loop only
// when the text is long enough to repay building them (a fraction of a
// millisecond).
const unsigned long kFastSearchUnits = 1ul << 16;

}  // namespace

int VOSTRING::Search(const UCREGEXP& re, unsigned long& first, unsigned long& last,
                     unsigned long from) const {
  const unsigned long length = static_cast<unsigned long>(m_priv->length);
  if (from >= length) return 0;
  if (!re.Exec(m_priv->text + from, &first, &last, length - from, 0)) return 0;
  first += from;
  last += from;
  return 1;
}

int VOSTRING::Search(const unsigned short* pattern, unsigned long& first, unsigned long& last,
                     bool ignoreCase, unsigned long from) const {
  const unsigned long length = static_cast<unsigned long>(m_priv->length);
  if (from >= length) return 0;
  UCREGEXP re;
  UREACCESS::Compile(re, pattern, ignoreCase, length - from >= kFastSearchUnits);
  return Search(re, first, last, from);
}
