// Text by number. This layer answers until the binary resource files can be
// read: it knows no texts, so every error code gets its readable fallback and
// any other number the empty text.
#include "vosystem/textres.h"

#include <cstdio>

VOSTRING TEXTRES::GetString(int id) {
  if (id >= 0) return VOSTRING();
  char text[48];
  snprintf(text, sizeof text, "Unknown error code (%d)", id);
  return VOSTRING(text);
}

unsigned short* MtTextGetStringExtUC(const char*, const char*, int) {
  return nullptr;
}
