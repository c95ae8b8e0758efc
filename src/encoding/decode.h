// The decoders' shared pieces: each writes into a result sized for the
// worst case (one unit a byte, two for an escape that turns out to be text,
// and a byte-order mark), so none of them grows its output.
#ifndef VOSYS_SRC_ENCODING_DECODE_H
#define VOSYS_SRC_ENCODING_DECODE_H

struct CONVDATA;

// The internal form (types 2, 6 and 10) from text to out, terminated; the
// units written (without the terminator) go to *written. 0, or the negative
// code of a charset that can't be converted, which ends the text there.
int DecodeIso2022(CONVDATA* conv, const unsigned char* text, unsigned short* out, int* written);

// Applies the Japanese guess to conv (type, and the charsets of EUC and JIS).
void ApplyJapaneseGuess(CONVDATA* conv, const unsigned char* text);

#endif
