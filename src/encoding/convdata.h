// The state of one conversion between an encoding and UTF-16, and the two
// tables of the registry that the converters read it from.
#ifndef VOSYS_SRC_ENCODING_CONVDATA_H
#define VOSYS_SRC_ENCODING_CONVDATA_H

#include <cstdint>

// One row of the encoding table: an encoding as the interface names it.
struct ENCODEROW {
  const char* name;
  int canRead;   // offered to callers who filter for reading
  int canWrite;  // offered to callers who filter for writing
  int number;    // the CHAR_ENCODING
  int type;      // the converter (CONVTYPE)
  int g[4];      // charsets designated to G0..G3; g[0] is the default charset
};

// One row of the charset table; the row index is the charset number.
struct CHARSETROW {
  const char* name;    // name of its conversion table in the data file
  uint32_t mask;       // bit 0: two bytes a character; others: the scripts covered
  const char* escape;  // bytes that designate it in the internal form, or null
};

// The converters, by the type column of the encoding table.
enum CONVTYPE {
  CONVTYPE_ShiftJis = 1,
  CONVTYPE_Jis = 2,
  CONVTYPE_Euc = 3,
  CONVTYPE_SingleByte = 4,
  CONVTYPE_Utf16 = 5,
  CONVTYPE_Iso2022 = 6,
  CONVTYPE_Japanese = 7,  // detected from the text; read only
  CONVTYPE_LeadByte = 8,  // double-byte with lead byte (Big5, KSC)
  CONVTYPE_Utf8 = 9,
  CONVTYPE_Resfile = 10,  // the internal form with backslashes doubled in two-byte text
  CONVTYPE_Utf8Decomposed = 11,
  CONVTYPE_SystemMultiByte = 12  // the operating system's own: always refused
};

constexpr int kEncodeRows = 67;
constexpr int kCharsetRows = 81;  // and the end row, whose name is null
extern const ENCODEROW g_encode[kEncodeRows];
extern const CHARSETROW g_charsetInfo[kCharsetRows + 1];

struct CONVDATA;
// Receives the next byte of an escape sequence: 1 or 0 when the byte was
// consumed, -1 when this was no escape after all.
using ESCAPEHANDLER = int (*)(CONVDATA* conv, unsigned char byte);

// The state of one conversion, zero-filled at creation. All fields but the
// last are 32-bit integers.
struct CONVDATA {
  int32_t encodingRow;
  int32_t charset;              // current charset; from g0
  int32_t type;                 // CONVTYPE
  int32_t swapBytes;            // a reversed byte-order mark was seen in UTF-16 input
  int32_t designateIndex;       // the G set the escape being read designates
  int32_t controlSetIndex;      // the C set an ESC ! or ESC " names
  int32_t set96;                // the escape being read names a 96-character set
  int32_t lockedGL;             // the G set a locking shift put in GL
  int32_t currentGL;            // the G set for bytes with the high bit clear
  int32_t currentGR;            // the G set for bytes with the high bit set
  int32_t gSet[4];              // charset in G0..G3
  int32_t gHighBit[4];          // before the table: 0 leave the high bit, 1 set it, 2 clear it
  int32_t gBytes[4];            // bytes a character in each G set
  int32_t flags;                // bit 0: no byte-order mark at the start of UTF-16 output
  int32_t defaultFlags;         // the flags given at creation; MucReset restores them
  ESCAPEHANDLER escapeHandler;  // null outside an escape sequence
};

// Back to the state after creation, from the record's row and default flags.
void ResetConversion(CONVDATA* conv);

#endif
