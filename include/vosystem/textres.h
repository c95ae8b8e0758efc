// Text resources: the one source of display text, by number or by name.
//
// Until the resource files are readable, GetString(int) knows no texts: an
// unknown negative number (an error code) gives "Unknown error code (N)", and
// any other number the empty text. Missing text is never a failure.
#ifndef VOSYSTEM_TEXTRES_H
#define VOSYSTEM_TEXTRES_H

#include "vosystem/export.h"
#include "vosystem/vostring.h"

// Number of a text resource; error codes are negative TEXTIDs. The values are
// defined by the resource files, not here.
enum TEXTID : int {};

// The name sets of texts looked up by name.
enum TEXTRES_NAMESET {
  TEXTRES_NAMESET_Text = 0,
  TEXTRES_NAMESET_Label = 1,
  TEXTRES_NAMESET_Title = 2,
  TEXTRES_NAMESET_Help = 3
};

class VOSYS_API TEXTRES {
 public:
  // Text by number; 0 gives the empty text.
  static VOSTRING GetString(int id);
};

// The text of key in section as a new UTF-16 string to free, or null. Finds
// no text until the resource files can be read.
extern "C" VOSYS_API unsigned short* MtTextGetStringExtUC(const char* section, const char* key,
                                                          int flags);

#endif
