// The registry of encodings and charsets: the two constant tables that drive
// every converter, the lookups through them, and the life of a CONVDATA.
//
// Row order is public (MucNumToName, MucGetEncodingStr give rows and
// positions), so the tables stand exactly in their published order, duplicate
// numbers included: a search by number finds the earlier of two rows.
//
// Lookups take a filter: bit 1 asks for readable rows, bit 2 for writable
// ones (3 for both), and bit 4 leaves the row "Unicode" out. A filter with
// neither of the first two bits passes no row in the positional lookups;
// the lookups by name take it as "every row" (less "Unicode" with bit 4).
static const char s_ident[] = "@(#) registry.cpp 1.0";

#include <cstdlib>
#include <cstring>

#include "encoding/convdata.h"
#include "foundation/errpos.h"
#include "vosystem/memfunc.h"
#include "vosystem/textres.h"
#include "vosystem/ucconv.h"
#include "vosystem/ucstring.h"

// clang-format off
const ENCODEROW g_encode[kEncodeRows] = {
    {"ASCII", 1, 1, 0, 4, {15, 0, 0, 0}},
    {"WinANSI", 1, 1, 300, 4, {50, 0, 0, 0}},
    {"Big5", 1, 1, 130, 8, {15, 7, 0, 0}},
    {"GB-2312", 1, 1, 131, 3, {15, 1, 0, 0}},
    {"JIS", 1, 1, 120, 2, {15, 24, 0, 0}},
    {"Shift-JIS", 1, 1, 122, 1, {0, 0, 0, 0}},
    {"EUC", 1, 1, 121, 3, {24, 11, 27, 12}},
    {"MacJapanese", 1, 1, 608, 1, {60, 0, 0, 0}},
    {"Japanese", 1, 0, 123, 7, {15, 0, 0, 0}},
    {"ISO-2022", 1, 1, 100, 6, {15, 0, 0, 0}},
    {"X-Resfile", 1, 1, 3, 10, {15, 0, 0, 0}},
    {"Unicode", 1, 1, 1, 5, {0, 0, 0, 0}},
    {"Unicode (UTF8)", 0, 0, 2, 9, {0, 0, 0, 0}},
    {"UTF8-decomposed", 0, 0, 5, 11, {0, 0, 0, 0}},
    {"UTF8", 1, 1, 2, 9, {0, 0, 0, 0}},
    {"KSC-5601", 1, 1, 140, 8, {15, 69, 0, 0}},
    {"KOI-8", 1, 1, 700, 4, {80, 0, 0, 0}},
    {"CP855", 1, 1, 400, 4, {42, 0, 0, 0}},
    {"CP866", 0, 0, 301, 4, {30, 0, 0, 0}},
    {"CP1251", 1, 1, 301, 4, {30, 0, 0, 0}},
    {"CP869", 1, 1, 401, 4, {41, 0, 0, 0}},
    {"CP1250", 1, 1, 305, 4, {29, 0, 0, 0}},
    {"CP1253", 1, 1, 302, 4, {31, 0, 0, 0}},
    {"CP1254", 1, 1, 306, 4, {28, 0, 0, 0}},
    {"CP1255", 1, 1, 307, 4, {33, 0, 0, 0}},
    {"CP1256", 1, 1, 303, 4, {32, 0, 0, 0}},
    {"Thai", 1, 1, 304, 4, {48, 0, 0, 0}},
    {"DOSCP437", 1, 1, 500, 4, {34, 0, 0, 0}},
    {"DOSCP850", 1, 1, 501, 4, {35, 0, 0, 0}},
    {"DOSCP852", 1, 1, 502, 4, {36, 0, 0, 0}},
    {"DOSCP857", 1, 1, 503, 4, {37, 0, 0, 0}},
    {"DOSCP861", 1, 1, 504, 4, {38, 0, 0, 0}},
    {"DOSCP863", 1, 1, 505, 4, {39, 0, 0, 0}},
    {"DOSCP865", 1, 1, 506, 4, {40, 0, 0, 0}},
    {"ISO-8859-1", 1, 1, 101, 4, {15, 0, 0, 0}},
    {"ISO-8859-2", 1, 1, 102, 4, {16, 0, 0, 0}},
    {"ISO-8859-3", 1, 1, 103, 4, {17, 0, 0, 0}},
    {"ISO-8859-4", 1, 1, 104, 4, {18, 0, 0, 0}},
    {"ISO-8859-5", 1, 1, 105, 4, {19, 0, 0, 0}},
    {"ISO-8859-6", 1, 1, 106, 4, {20, 0, 0, 0}},
    {"ISO-8859-7", 1, 1, 107, 4, {21, 0, 0, 0}},
    {"ISO-8859-8", 1, 1, 108, 4, {22, 0, 0, 0}},
    {"ISO-8859-9", 1, 1, 109, 4, {23, 0, 0, 0}},
    {"MacArabic", 1, 1, 600, 4, {52, 0, 0, 0}},
    {"MacCroatian", 1, 1, 601, 4, {53, 0, 0, 0}},
    {"MacCyrillic", 1, 1, 602, 4, {54, 0, 0, 0}},
    {"MacDingbats", 0, 0, 603, 4, {55, 0, 0, 0}},
    {"MacCentEurope", 1, 1, 604, 4, {56, 0, 0, 0}},
    {"MacGreek", 1, 1, 605, 4, {57, 0, 0, 0}},
    {"MacHebrew", 1, 1, 606, 4, {58, 0, 0, 0}},
    {"MacIcelandic", 1, 1, 607, 4, {59, 0, 0, 0}},
    {"MacRomanian", 1, 1, 609, 4, {61, 0, 0, 0}},
    {"MacRoman", 1, 1, 610, 4, {62, 0, 0, 0}},
    {"MacSymbol", 0, 0, 611, 4, {63, 0, 0, 0}},
    {"MacThai", 1, 1, 612, 4, {64, 0, 0, 0}},
    {"MacTurkish", 1, 1, 613, 4, {65, 0, 0, 0}},
    {"MacUkrainian", 1, 1, 614, 4, {66, 0, 0, 0}},
    {"ISCII_Devanagari", 1, 1, 150, 4, {71, 0, 0, 0}},
    {"ISCII_Bengali", 1, 1, 151, 4, {72, 0, 0, 0}},
    {"ISCII_Gurmukhi", 1, 1, 152, 4, {73, 0, 0, 0}},
    {"ISCII_Gujarati", 1, 1, 153, 4, {74, 0, 0, 0}},
    {"ISCII_Oriya", 1, 1, 154, 4, {75, 0, 0, 0}},
    {"ISCII_Tamil", 1, 1, 155, 4, {76, 0, 0, 0}},
    {"ISCII_Telugu", 1, 1, 156, 4, {77, 0, 0, 0}},
    {"ISCII_Kannada", 1, 1, 157, 4, {78, 0, 0, 0}},
    {"ISCII_Malayalam", 1, 1, 158, 4, {79, 0, 0, 0}},
    {"WindowsMultiByte", 0, 0, 6, 12, {0, 0, 0, 0}},
};

// "MacCroation" and "MacEurope" are spelled as the data file's directory has
// them, and "ISCII_Devanagar" is cut to its 15 letters there.
const CHARSETROW g_charsetInfo[kCharsetRows + 1] = {
    {"Unicode", 0x1, nullptr},
    {"GB2312", 0x41, "\x1B$(A"},
    {"GB12345", 0x1, nullptr},
    {"GB7489", 0x1, nullptr},
    {"GB7590", 0x1, nullptr},
    {"GBHAN", 0x1, nullptr},
    {"GB8565", 0x1, nullptr},
    {"BigFive", 0x1, "\x1B$(T"},
    {"CNS01", 0x1, nullptr},
    {"CNS02", 0x1, nullptr},
    {"CNS14", 0x1, nullptr},
    {"JISX0208", 0x40033041, "\x1B$(B"},
    {"JISX0212", 0x1, nullptr},
    {"KSC5601", 0x8001, nullptr},
    {"KSC5657", 0x1, nullptr},
    {"ISO8859_1", 0x4, "\x1B(B\x1B-A"},
    {"ISO8859_2", 0x8, "\x1B-B"},
    {"ISO8859_3", 0x10, "\x1B-C"},
    {"ISO8859_4", 0x20, "\x1B-D"},
    {"ISO8859_5", 0x100, "\x1B-L"},
    {"ISO8859_6", 0x400, "\x1B-G"},
    {"ISO8859_7", 0x80, "\x1B-F"},
    {"ISO8859_8", 0x200, "\x1B-H"},
    {"ISO8859_9", 0x100000, "\x1B-M"},
    {"JIS_Roman", 0x40000004, nullptr},
    {"GB_Roman", 0x40000004, nullptr},
    {"JISC6226", 0x0, nullptr},
    {"HW_Katakana", 0x20000, "\x1B)I"},
    {"WinCP_Turk", 0x100000, nullptr},
    {"WinCP_EE", 0x8, nullptr},
    {"WinCP_Cyrl", 0x0, nullptr},
    {"WinCP_Greek", 0x0, nullptr},
    {"WinCP_Arab", 0x0, nullptr},
    {"WinCP_Hebr", 0x0, nullptr},
    {"DOSCP_437", 0x0, nullptr},
    {"DOSCP_850", 0x0, nullptr},
    {"DOSCP_852", 0x0, nullptr},
    {"DOSCP_857", 0x100000, nullptr},
    {"DOSCP_861", 0x0, nullptr},
    {"DOSCP_863", 0x0, nullptr},
    {"DOSCP_865", 0x0, nullptr},
    {"IBMCP_869", 0x0, nullptr},
    {"IBMCP_855", 0x0, nullptr},
    {"IBMCP_864", 0x0, nullptr},
    {"IBMCP_1040", 0x0, nullptr},
    {"IBMCP_1041", 0x0, nullptr},
    {"IBMCP_1043", 0x0, nullptr},
    {"tis620_2529", 0x800, "\x1B-t"},
    {"WinCP_Thai", 0x800, nullptr},
    {"VO_Thai", 0x800, nullptr},
    {"WinCP_ANSI", 0x4, nullptr},
    {"ArabicUC", 0x401, "\x1B$G"},
    {"MacArabic", 0x0, nullptr},
    {"MacCroation", 0x0, nullptr},
    {"MacCyrillic", 0x0, nullptr},
    {"MacDingbats", 0x0, nullptr},
    {"MacEurope", 0x0, nullptr},
    {"MacGreek", 0x0, nullptr},
    {"MacHebrew", 0x0, nullptr},
    {"MacIcelandic", 0x0, nullptr},
    {"MacJapanese", 0x0, nullptr},
    {"MacRomanian", 0x0, nullptr},
    {"MacRoman", 0x0, nullptr},
    {"MacSymbol", 0x0, nullptr},
    {"MacThai", 0x0, nullptr},
    {"MacTurkish", 0x0, nullptr},
    {"MacUkrainian", 0x0, nullptr},
    {"cp1257", 0x20, nullptr},
    {"IBM1046", 0x400, nullptr},
    {"KSC5601U", 0x8001, "\x1B$(C"},
    {"KSC5601_1992", 0x8001, nullptr},
    {"ISCII_Devanagar", 0x0, nullptr},
    {"ISCII_Bengali", 0x0, nullptr},
    {"ISCII_Gurmukhi", 0x0, nullptr},
    {"ISCII_Gujarati", 0x0, nullptr},
    {"ISCII_Oriya", 0x0, nullptr},
    {"ISCII_Tamil", 0x0, nullptr},
    {"ISCII_Telugu", 0x0, nullptr},
    {"ISCII_Kannada", 0x0, nullptr},
    {"ISCII_Malayalam", 0x0, nullptr},
    {"koi8", 0x100, nullptr},
    {nullptr, 0x0, nullptr},
};
// clang-format on

namespace {

const int kIso2022Row = 9;
const int kFilterRead = 1;
const int kFilterWrite = 2;
const int kFilterNoUnicode = 4;

bool IsUnicodeRow(const ENCODEROW& row) {
  return strcmp(row.name, "Unicode") == 0;
}

// The filter of the positional lookups: bits 1 and 2 ask for reading and
// writing; with neither, no row passes.
bool Passes(const ENCODEROW& row, int filter) {
  if ((filter & kFilterNoUnicode) && IsUnicodeRow(row)) return false;
  switch (filter & (kFilterRead | kFilterWrite)) {
    case kFilterRead:
      return row.canRead != 0;
    case kFilterWrite:
      return row.canWrite != 0;
    case kFilterRead | kFilterWrite:
      return row.canRead && row.canWrite;
    default:
      return false;
  }
}

// The filter of the lookups by name: as above, but without bits 1 and 2
// every row passes (less "Unicode" with bit 4).
bool PassesByName(const ENCODEROW& row, int filter) {
  if ((filter & (kFilterRead | kFilterWrite)) != 0) return Passes(row, filter);
  return !((filter & kFilterNoUnicode) && IsUnicodeRow(row));
}

// The row at position num of the filtered list; filter 0 takes num as the
// row. -1 if there is none.
int RowAt(int num, int filter) {
  if (num < 0 || num >= kEncodeRows) return -1;
  if (filter == 0) return num;
  for (int row = 0; row < kEncodeRows; ++row)
    if (Passes(g_encode[row], filter) && num-- == 0) return row;
  return -1;
}

const char* OrIso2022(const char* name) {
  return name && *name ? name : g_encode[kIso2022Row].name;
}

// The row and filtered position of the exact name, or -1.
int FindByName(const char* name, int filter, int* position) {
  name = OrIso2022(name);
  int pos = 0;
  for (int row = 0; row < kEncodeRows; ++row) {
    if (!PassesByName(g_encode[row], filter)) continue;
    if (strcmp(g_encode[row].name, name) == 0) {
      if (position) *position = pos;
      return row;
    }
    ++pos;
  }
  return -1;
}

int FirstRowOfNumber(int encoding) {
  for (int row = 0; row < kEncodeRows; ++row)
    if (g_encode[row].number == encoding) return row;
  return -1;
}

bool SameIgnoringCase(const char* a, const char* b) {
  for (;; ++a, ++b) {
    unsigned char x = static_cast<unsigned char>(*a), y = static_cast<unsigned char>(*b);
    if (x >= 'a' && x <= 'z') x = static_cast<unsigned char>(x - 32);
    if (y >= 'a' && y <= 'z') y = static_cast<unsigned char>(y - 32);
    if (x != y) return false;
    if (x == 0) return true;
  }
}

}  // namespace

void ResetConversion(CONVDATA* conv) {
  const int row = conv->encodingRow >= 0 && conv->encodingRow < kEncodeRows ? conv->encodingRow : 0;
  const int defaultFlags = conv->defaultFlags;
  const ENCODEROW& r = g_encode[row];
  *conv = CONVDATA{};
  conv->encodingRow = row;
  conv->defaultFlags = defaultFlags;
  conv->flags = defaultFlags;
  conv->type = r.type;
  conv->charset = r.g[0];
  for (int i = 0; i < 4; ++i) conv->gSet[i] = r.g[i];
}

extern "C" {

int MucGetNumEncodings(int filter) {
  if (filter == 0) return kEncodeRows;
  int n = 0;
  for (const ENCODEROW& row : g_encode) n += Passes(row, filter);
  return n;
}

const char* MucNumToName(int num, int filter) {
  const int row = RowAt(num, filter);
  return row < 0 ? nullptr : g_encode[row].name;
}

CHAR_ENCODING MucGetEncodingFromNum(int num, int filter) {
  const int row = RowAt(num, filter);
  return static_cast<CHAR_ENCODING>(row < 0 ? 0 : g_encode[row].number);
}

// Of two rows with one number, the first that passes the filter counts: with
// filter 1, number 2 finds "UTF8", since "Unicode (UTF8)" is not offered for
// reading.
int MucGetEncodingNum(int encoding, int filter) {
  int pos = 0;
  for (const ENCODEROW& row : g_encode) {
    if (!Passes(row, filter)) continue;
    if (row.number == encoding) return pos;
    ++pos;
  }
  return -1;
}

int MucNameToNum(const char* name, int filter) {
  int position = 0;
  return FindByName(name, filter, &position) < 0 ? 0 : position;
}

int MucNameToCharset(const char* name, int filter) {
  const int row = FindByName(name, filter, nullptr);
  return row < 0 ? 15 : g_encode[row].g[0];
}

CHAR_ENCODING MucGetEncodingFromName(const char* name) {
  name = OrIso2022(name);
  for (const ENCODEROW& row : g_encode)
    if (SameIgnoringCase(row.name, name)) return static_cast<CHAR_ENCODING>(row.number);
  return static_cast<CHAR_ENCODING>(0);
}

const char* MucGetName(int encoding) {
  const int row = FirstRowOfNumber(encoding);
  return g_encode[row < 0 ? 0 : row].name;
}

const char* MucGetEncodingStr(int row) {
  return row >= 0 && row < kEncodeRows ? g_encode[row].name : nullptr;
}

unsigned short* MucNameToDescUC(const char* name) {
  if (!name) return nullptr;
  unsigned short* text = MtTextGetStringExtUC("text-encoding", name, 1);
  return text ? text : strtoucdup(name);
}

char* MucNameToDesc(const char* name) {
  unsigned short* text = MucNameToDescUC(name);
  char* narrow = uctostrdup(text);
  free(text);
  return narrow;
}

unsigned short* MucNumToDescUC(int num, int filter) {
  return MucNameToDescUC(MucNumToName(num, filter));
}

char* MucNumToDesc(int num, int filter) {
  return MucNameToDesc(MucNumToName(num, filter));
}

int MucGetDefaultCharsets(int* g0, int* g1, int* ideographic) {
  if (g0) *g0 = 15;
  if (g1) *g1 = 15;
  if (ideographic) *ideographic = 11;
  return 0;
}

// An unknown name is no failure: it selects row 0, "ASCII".
int MucInitConversion(void** conv, const char* name, int flags) {
  if (!conv) return SETERR(VOERROR_InvalidArgument);
  CONVDATA* data = nullptr;
  int rc = MmAllocC(&data, sizeof(CONVDATA));
  if (rc < 0) return PASSERR(rc);
  data->encodingRow = FindByName(name, 0, nullptr);
  if (data->encodingRow < 0) data->encodingRow = 0;
  data->defaultFlags = flags;
  ResetConversion(data);
  *conv = data;
  return 0;
}

void MucReset(void* conv) {
  if (conv) ResetConversion(static_cast<CONVDATA*>(conv));
}

void MucStopConversion(void* conv) {
  free(conv);
}

}  // extern "C"
