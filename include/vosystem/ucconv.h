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

// ---- encoding from UTF-16, and into and out of the internal form
//
// Results are new NUL-terminated strings in *result, which the caller
// frees; the result is their length in bytes (in units for the type
// "Unicode"), or a negative code. Characters an encoding can't hold are "?";
// a direct encoder writes a Latin-1 character that its charset lacks as its
// own byte. A conversion table that can't be loaded fails the conversion.

// UTF-16 text to the encoding of conv.
VOSYS_API int MucConvertFromUnicode(void* conv, const unsigned short* text, char** result);
// Text in the encoding of conv to the internal form, and back.
VOSYS_API int MucConvertToISO2022(void* conv, const void* text, char** result);
VOSYS_API int MucConvertFromISO2022(void* conv, const char* text, char** result);
// UTF-16 to the internal form; the "a" form doubles backslashes inside
// two-byte codes.
VOSYS_API int MucConvertUnicodeToISO2022(const unsigned short* text, char** result);
VOSYS_API int MucConvertUnicodeToISO2022a(const unsigned short* text, char** result);

// The callbacks of MucConvertUnicodeGen: bytes of the charset in force, and a
// change of charset, whose positive result is the charset really in force
// from then on (0 keeps the new one). A negative result stops the run.
typedef int (*MUCADDCHARS)(const char* bytes, int count, void* userData);
typedef int (*MUCNEWCHARSET)(int newCharset, int oldCharset, void* userData);
// Splits UTF-16 text into runs of charsets, choosing for each character a
// charset that holds it. Bit 0 of options writes a 0x5C of a two-byte code
// twice. 0 or a negative code.
VOSYS_API int MucConvertUnicodeGen(const unsigned short* text, MUCNEWCHARSET newCharset,
                                   MUCADDCHARS addChars, void* userData, int options);

// The direct encoders; length 0 means up to the terminator.
VOSYS_API int MucConvertUnicodeToSJIS(void* conv, const unsigned short* text, char** result,
                                      int length);
VOSYS_API int MucConvertUnicodeToEUC(void* conv, const unsigned short* text, char** result,
                                     int length);
VOSYS_API int MucConvertUnicodeToBig5(void* conv, const unsigned short* text, char** result,
                                      int length);
VOSYS_API int MucConvertUnicodeTo8Bit(void* conv, const unsigned short* text, char** result,
                                      int length);
// One-shot conversion to the internal form from a registry row: -1 UTF-16,
// 0 a copy of the bytes (-1001 if none can be made).
VOSYS_API int MucQuickConvToISO2022(int encodingRow, const void* text, char** result);

// Appends count bytes (-1: up to their NUL) to a heap buffer that grows as
// needed; the new length, or a negative code.
VOSYS_API int InsertChars(char** buffer, int* length, int* capacity, const void* bytes, int count);
// Appends the escape of a charset (Latin-1's if it has none); the charset,
// or a negative code.
VOSYS_API int InsertCharsetEscape(char** buffer, int* length, int* capacity, int charset);

}  // extern "C"

#endif
