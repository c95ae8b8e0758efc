// The C locale object behind C_LOCALE_SCOPE and CStrtod.
#include "foundation/clocale.h"

#include <stdlib.h>

locale_t CLocale() {
  // newlocale of "C" needs no locale files, so it does not fail for want of
  // them; a null (no memory) makes uselocale a mere query, which leaves the
  // thread's locale as it is.
  static const locale_t s_c = newlocale(LC_ALL_MASK, "C", static_cast<locale_t>(0));
  return s_c;
}

double CStrtod(const char* s, char** end) {
  locale_t c = CLocale();
  if (c) return strtod_l(s, end, c);
  return strtod(s, end);
}
