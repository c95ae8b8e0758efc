// Identifiers and their code spaces.
#include "vosystem/identifier.h"

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "foundation/errpos.h"
#include "vosystem/errors.h"
#include "vosystem/xml.h"

static const char s_ident[] = "@(#) identifier.cpp 1.0";

namespace {

struct SPACE_NAME {
  CODESPACE space;
  const char* name;
};

const SPACE_NAME kSpaces[] = {
    {CODESPACE_Larkspindle, "Larkspindle"},
    {CODESPACE_Larkspindle_XSQ, "Larkspindle_XSQ"},
    {CODESPACE_Larkspindle_Legacy, "Larkspindle_Legacy"},
    {CODESPACE_ISO, "ISO"},
    {CODESPACE_ISO_3166_1_A2, "ISO_3166_1_A2"},
    {CODESPACE_OGC, "OGC"},
    {CODESPACE_OGC_WKT, "OGC_WKT"},
    {CODESPACE_EPSG, "EPSG"},
    {CODESPACE_USGS, "USGS"},
    {CODESPACE_USGS_GCTP, "USGS_GCTP"},
    {CODESPACE_ESRI, "ESRI"},
    {CODESPACE_ERDAS, "ERDAS"},
    {CODESPACE_ERMapper, "ERMapper"},
    {CODESPACE_MapInfo, "MapInfo"},
    {CODESPACE_AutoDesk, "AutoDesk"},
    {CODESPACE_PCI, "PCI"},
};

constexpr CODESPACE kUnknownSpace = static_cast<CODESPACE>(-1);

bool IsBlank(char c) {
  return c == ' ' || c == '\t';
}

// atoi as a 32-bit int gives it: the digits' value, held to the int range.
long ReadInt32(const char* s) {
  const long long v = strtoll(s, nullptr, 10);
  if (v > INT32_MAX) return INT32_MAX;
  if (v < INT32_MIN) return INT32_MIN;
  return static_cast<long>(v);
}

}  // namespace

CODESPACE CodespaceFromName(const char* name) {
  if (!name) return kUnknownSpace;
  for (const SPACE_NAME& s : kSpaces)
    if (strcmp(s.name, name) == 0) return s.space;
  return kUnknownSpace;
}

const char* CodespaceGetName(CODESPACE space) {
  for (const SPACE_NAME& s : kSpaces)
    if (s.space == space) return s.name;
  return "Unknown";
}

IDENTIFIER::IDENTIFIER() : m_space(kUnknownSpace), m_number(0) {}

IDENTIFIER::IDENTIFIER(CODESPACE space, long number) : m_space(space), m_number(number) {
  char text[24];
  snprintf(text, sizeof text, "%ld", number);
  m_text = text;
}

IDENTIFIER::IDENTIFIER(CODESPACE space, const char* text)
    : m_space(space), m_number(0), m_text(text) {
  SetNumFromStr();
}

IDENTIFIER::IDENTIFIER(const char* full) : IDENTIFIER() {
  *this = full;
}

IDENTIFIER& IDENTIFIER::operator=(const char* full) {
  if (!full) full = "";
  const char* colon = strchr(full, ':');
  if (colon) {
    const size_t n = static_cast<size_t>(colon - full);
    char name[32];
    // No name in the table is as long as the buffer: a longer one is unknown.
    if (n < sizeof name) {
      memcpy(name, full, n);
      name[n] = '\0';
      m_space = CodespaceFromName(name);
    } else {
      m_space = kUnknownSpace;
    }
    m_text = colon + 1;
  } else {
    m_space = CODESPACE_Larkspindle;
    m_text = full;
  }
  SetNumFromStr();
  return *this;
}

bool IDENTIFIER::operator<(const IDENTIFIER& other) const {
  if (m_space != other.m_space) return static_cast<int>(m_space) < static_cast<int>(other.m_space);
  if (m_number != other.m_number) return m_number < other.m_number;
  return m_text.Compare(other.m_text) < 0;
}

bool IDENTIFIER::IsEqual(const IDENTIFIER& other) const {
  if (m_space != other.m_space && m_space != kUnknownSpace && other.m_space != kUnknownSpace)
    return false;
  if (m_number == other.m_number && m_number != 0) return true;
  return m_text.IsEqual(other.m_text);
}

int IDENTIFIER::CreateFromXML(const XMLNODE* node) {
  STRUTF8 text;
  // GetText trims: blank text reads as none.
  if (!node || !node->GetText(text)) return SETERR(VOERROR_IdentifierIncomplete2);
  *this = static_cast<const char*>(text);
  if (m_space == kUnknownSpace) return SETERR(VOERROR_IdentifierIncomplete);
  return 0;
}

VOSTRING IDENTIFIER::GetFullStr() const {
  VOSTRING full(CodespaceGetName(m_space));
  full += ":";
  full += VOSTRING(m_text);
  return full;
}

void IDENTIFIER::SetNumFromStr() {
  const char* s = m_text;
  const char* p = s;
  while (IsBlank(*p)) ++p;
  if (*p == '-') ++p;
  while (*p >= '0' && *p <= '9') ++p;
  while (IsBlank(*p)) ++p;
  if (*p == '\0') m_number = ReadInt32(s);
}
