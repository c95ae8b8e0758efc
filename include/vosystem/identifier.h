// Identifiers: a code as an authority issued it. The code space says who
// issued it, the code is text, and also a number when the text is a plain
// integer ("EPSG:4326": code space EPSG, text "4326", number 4326).
#ifndef VOSYSTEM_IDENTIFIER_H
#define VOSYSTEM_IDENTIFIER_H

#include "vosystem/export.h"
#include "vosystem/strutf8.h"
#include "vosystem/vostring.h"

class XMLNODE;

// The authorities. The values have gaps and are kept in data: never
// renumber. An identifier whose authority is unknown holds -1, which has no
// name of its own (the fixed underlying type makes that value defined).
enum CODESPACE : int {
  CODESPACE_Larkspindle = 0,
  CODESPACE_Larkspindle_XSQ = 1,
  CODESPACE_Larkspindle_Legacy = 2,
  CODESPACE_ISO = 100,
  CODESPACE_ISO_3166_1_A2 = 101,
  CODESPACE_OGC = 200,
  CODESPACE_OGC_WKT = 201,
  CODESPACE_EPSG = 300,
  CODESPACE_USGS = 400,
  CODESPACE_USGS_GCTP = 401,
  CODESPACE_ESRI = 500,
  CODESPACE_ERDAS = 600,
  CODESPACE_ERMapper = 700,
  CODESPACE_MapInfo = 800,
  CODESPACE_AutoDesk = 900,
  CODESPACE_PCI = 1000
};

// By exact (case-sensitive) name; -1 for a name not in the table.
VOSYS_API CODESPACE CodespaceFromName(const char* name);
// The name, or "Unknown" for a value not in the table.
VOSYS_API const char* CodespaceGetName(CODESPACE space);

class VOSYS_API IDENTIFIER {
 public:
  IDENTIFIER();                              // code space -1, number 0, no text
  IDENTIFIER(CODESPACE space, long number);  // the text is the number in decimal
  IDENTIFIER(CODESPACE space, const char* text);
  explicit IDENTIFIER(const char* full);  // as operator=

  // "space:code" (the name before the first ":"; an unknown name gives -1),
  // or a code alone in code space 0.
  IDENTIFIER& operator=(const char* full);

  // By code space (as a signed number), then number, then text.
  bool operator<(const IDENTIFIER& other) const;
  // Code spaces agree (-1 agrees with any), and then the numbers are equal
  // and not 0, or else the texts are equal.
  bool IsEqual(const IDENTIFIER& other) const;

  // From an element's text: 0, -1712 for an element without text, -1711
  // for a code space that isn't known.
  int CreateFromXML(const XMLNODE* node);

  CODESPACE GetCodespace() const { return m_space; }
  long GetNum() const { return m_number; }
  const STRUTF8& GetStr() const { return m_text; }
  VOSTRING GetFullStr() const;  // "EPSG:4326"

  // Sets the number when the whole text reads as one integer (blanks
  // around it and one "-" allowed; an empty text gives 0); else leaves it.
  void SetNumFromStr();

 private:
  CODESPACE m_space;
  long m_number;
  STRUTF8 m_text;
};

#endif
