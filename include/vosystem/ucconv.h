// Character encodings: the numbers by which the interface names them.
#ifndef VOSYSTEM_UCCONV_H
#define VOSYSTEM_UCCONV_H

#include "vosystem/export.h"

// Identifies a text encoding. Any number of the encoding table is valid; the
// named ones are those the text core handles itself.
enum CHAR_ENCODING : int {
  CHAR_ENCODING_ASCII = 0,  // bytes taken as code points below 256
  CHAR_ENCODING_UTF16 = 1,  // native-order unsigned short units
  CHAR_ENCODING_UTF8 = 2,
  CHAR_ENCODING_UTF8_DECOMPOSED = 5  // UTF-8 with characters held decomposed
};

extern "C" {

// ---- the registry: 67 encodings in a fixed, public row order
//
// filter: 1 rows offered for reading, 2 for writing, 3 for both; add 4 to
// leave "Unicode" out. Positions count the rows that pass, from 0. A null
// or empty name means "ISO-2022", the internal form. None of these records
// an error.

// Rows that pass; filter 0 gives all 67.
VOSYS_API int MucGetNumEncodings(int filter);
// The name at a position (with filter 0: at a row), or null.
VOSYS_API const char* MucNumToName(int num, int filter);
// The encoding at a position (with filter 0: at a row), or 0.
VOSYS_API CHAR_ENCODING MucGetEncodingFromNum(int num, int filter);
// The position of the first row of that number that passes, or -1 (always
// -1 for filter 0).
VOSYS_API int MucGetEncodingNum(int encoding, int filter);
// The position of the row of exactly that name (case counts), or 0. Filter
// 0 passes every row; 4 every row but "Unicode".
VOSYS_API int MucNameToNum(const char* name, int filter);
// The default charset of the row of exactly that name, or 15 (Latin-1).
VOSYS_API int MucNameToCharset(const char* name, int filter);
// The encoding whose name matches, case ignored, over all rows; or 0.
VOSYS_API CHAR_ENCODING MucGetEncodingFromName(const char* name);
// The name of the first row of that number, or "ASCII".
VOSYS_API const char* MucGetName(int encoding);
// The name in a row, or null.
VOSYS_API const char* MucGetEncodingStr(int row);
// The localised description of an encoding (text "text-encoding"/name), or
// the name itself; a new string to free. Null for a null name.
VOSYS_API unsigned short* MucNameToDescUC(const char* name);
VOSYS_API char* MucNameToDesc(const char* name);
VOSYS_API unsigned short* MucNumToDescUC(int num, int filter);
VOSYS_API char* MucNumToDesc(int num, int filter);
// The default charsets: 15 for G0 and G1, 11 (JIS X 0208) for ideographs.
VOSYS_API int MucGetDefaultCharsets(int* g0, int* g1, int* ideographic);

// ---- the conversion tables of the charsets
//
// charset: the charset number (below 81) in the low 16 bits, and for
// double-byte codes a form: 0x10000 Shift-JIS (converted by sjis2jis), 0x20000
// EUC (both bytes with the high bit), 0x40000 high bits set before lookup,
// 0x80000 high bits cleared. Tables load on first use: Latin-1 (15),
// JIS-Roman (24) and half-width katakana (27) are built in, the others come
// from "unicode2.ref" (-1104 when it can't be found or read). A charset
// number of 81 or more is -1213.

// The Unicode value of a code, 0 for none, or a negative code.
VOSYS_API int MucCharsetToUnicode(int code, int charset);
// The code of a Unicode value, 0 for none, or a negative code. Without a form,
// a Latin-1 value the charset lacks is its own code.
VOSYS_API int MucUnicodeToCharset(int unicode, int charset);
// Converts a zero-terminated run of codes in place; codes without a character
// become "?"; byte-order marks stay. 0 or a negative code.
VOSYS_API int MucCharsetToUnicodeBuf(unsigned short* buffer, int charset);
// One double-byte code between JIS and Shift-JIS form, in place; a zero high
// byte leaves both bytes alone.
VOSYS_API void jis2sjis(unsigned char* hi, unsigned char* lo);
VOSYS_API void sjis2jis(unsigned char* hi, unsigned char* lo);

// ---- one conversion's state
// Makes the state of a conversion in the named encoding (an unknown name is
// "ASCII"); free it with MucStopConversion. 0, -1213 (null conv) or -1015.
VOSYS_API int MucInitConversion(void** conv, const char* name, int flags);
// Back to the state after MucInitConversion; null is ignored.
VOSYS_API void MucReset(void* conv);
VOSYS_API void MucStopConversion(void* conv);

// ---- decoding to UTF-16
//
// Every readable encoding of the registry decodes to a new zero-terminated
// UTF-16 string in *result, which the caller frees. The result is its length
// in units without the terminator, or a negative code. Unless bit 0 of the
// conversion's flags is set the result starts with U+FEFF, which counts in
// the length. Characters without a Unicode value are "?", and no failure.
// A charset that can't be converted at all (an unknown designation in the
// internal form, or a missing "unicode2.ref") fails with its code; for the
// internal form *result then holds the text decoded so far, to be freed too.

// text: NUL-terminated bytes, or a UTF-16 string for the type "Unicode".
VOSYS_API int MucConvertToUnicode(void* conv, const void* text, unsigned short** result);
// The internal ISO-2022 form, and its variant with backslashes doubled in
// two-byte text; no byte-order mark.
VOSYS_API int MucConvertISO2022ToUnicode(const char* text, unsigned short** result);
VOSYS_API int MucConvertISO2022aToUnicode(const char* text, unsigned short** result);
// The number of characters the internal form holds, without decoding it.
VOSYS_API int MucStrLenISO2022(const char* text);
// The Japanese encoding the text is in: 1 Shift-JIS, 2 JIS, 3 EUC, 4 ASCII, 5
// Unicode; its name goes to nameOut (16 bytes are enough) unless null.
VOSYS_API int MucGuessJapaneseEncoding(const unsigned char* text, char* nameOut);
// Makes conv decode as the guess for text says.
VOSYS_API void GuessJapaneseEncoding(void* conv, const unsigned char* text);
// One-shot decoding in the encoding of a registry row, without a byte-order
// mark. Row -1: text is UTF-16, copied. Row 0: the internal form if text holds
// an ESC, else its bytes widened. -1001 if a copy can't be made.
VOSYS_API int MucQuickConvToUnicode(int encodingRow, const void* text, unsigned short** result);
// One control byte of the internal form (ESC, SO, SI, CAN, SS2, SS3): 1 if it
// was one, else 0.
VOSYS_API int DoISO2022_Control(void* conv, unsigned char byte);

}  // extern "C"

#endif
