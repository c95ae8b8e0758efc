// The internal form: ISO-2022 text decoded to UTF-16.
//
// Four G sets, GL and GR, locking and single shifts, and designation escapes
// read one byte at a time through CONVDATA's escape handler: a handler takes
// the next byte of the sequence and answers 1 or 0 when it was consumed, or
// -1 when this was no escape after all, so that ESC and the byte stand as
// text. Controls (and a space) act even inside a sequence, which goes on
// after them. Every call starts from plain text: G0 ASCII, G1 to G3 Latin-1.
//
// The decoder never reads past the terminator: a two-byte code or an escape
// cut short by it ends the text.
static const char s_ident[] = "@(#) iso2022.cpp 1.0";

#include <climits>
#include <cstdlib>
#include <cstring>

#include "encoding/convdata.h"
#include "encoding/convtables.h"
#include "encoding/decode.h"
#include "foundation/errpos.h"
#include "vosystem/ucconv.h"

namespace {

const unsigned char kEsc = 0x1B;
const int kCharsetLatin1 = 15;
const int kCharsetUnicode = 0;
const int kCharsetArabicUC = 51;
const int kHighBitKeep = 0, kHighBitSet = 1, kHighBitClear = 2;

int DoISO2022_Cx(CONVDATA* conv, unsigned char) {
  conv->escapeHandler = nullptr;
  return 1;
}

void Designate(CONVDATA* conv, int charset, int bytes, int highBit) {
  const int g = conv->designateIndex;
  if (g < 0 || g > 3) return;
  conv->gSet[g] = charset;
  conv->gBytes[g] = bytes;
  conv->gHighBit[g] = highBit;
}

int DoISO2022_Gx(CONVDATA* conv, unsigned char b) {
  if (b >= 0x21 && b <= 0x2F) return 1;  // an intermediate: the final comes later
  conv->escapeHandler = nullptr;
  if (b < 0x40 || b > 0x7D) return 0;
  int charset = -1, highBit = kHighBitClear;
  if (!conv->set96) {
    if (strchr("@ABKLRYZfghi", b)) {
      charset = kCharsetLatin1;
    } else if (b == 'I') {
      charset = 27, highBit = kHighBitSet;
    } else if (b == 'J') {
      charset = 24, highBit = kHighBitKeep;
    }
  } else {
    static const char kFinals[] = "ABCDFGHLMt";
    static const int kCharsets[] = {15, 16, 17, 18, 21, 20, 22, 19, 23, 47};
    if (const char* at = strchr(kFinals, b))
      charset = kCharsets[at - kFinals], highBit = kHighBitSet;
  }
  Designate(conv, charset, 1, highBit);
  return 1;
}

int DoISO2022_MGx(CONVDATA* conv, unsigned char b) {
  if (b == '(' || b == ')' || b == '+' || b == '-' || b == '.' || b == '/') {
    conv->designateIndex = b & 3;
    conv->set96 = (b >> 2) & 1;
    return 1;
  }
  conv->escapeHandler = nullptr;
  if (b < 0x40) return 0;
  static const char kFinals[] = "@ABCDGT";
  static const int kCharsets[] = {26, 1, 11, 69, 12, 51, 7};
  if (const char* at = strchr(kFinals, b))
    Designate(conv, kCharsets[at - kFinals], 2, b == 'C' ? kHighBitSet : kHighBitKeep);
  return 1;
}

int DoISO2022_ESC(CONVDATA* conv, unsigned char b) {
  conv->escapeHandler = nullptr;
  switch (b) {
    case '!':
    case '"':
      conv->controlSetIndex = b & 1;
      conv->escapeHandler = DoISO2022_Cx;
      return 1;
    case '$':
    case '&':
      conv->designateIndex = 0;
      conv->set96 = 0;
      conv->escapeHandler = DoISO2022_MGx;
      return 1;
    case '(':
    case ')':
    case '*':
    case '+':
      conv->designateIndex = b & 3;
      conv->set96 = 0;
      conv->escapeHandler = DoISO2022_Gx;
      return 1;
    case '-':
    case '.':
    case '/':
      conv->designateIndex = b & 3;
      conv->set96 = 1;
      conv->escapeHandler = DoISO2022_Gx;
      return 1;
    case '%':
      // A coding announcement: its final is read and ignored.
      conv->designateIndex = 4;
      conv->escapeHandler = DoISO2022_Cx;
      return 1;
    case '[':
      return -1;  // CSI sequences pass through as text
    case 'n':
    case 'o':
      conv->currentGL = b == 'n' ? 2 : 3;  // lockedGL stays: one character only
      return 1;
    case '~':
      conv->currentGR = 1;
      return 1;
    case '}':
      conv->currentGR = 2;
      return 1;
    case '|':
      conv->currentGR = 3;
      return 1;
    default:
      if (b >= 0x30 && b <= 0x5F) {  // the 7-bit form of a C1 control
        DoISO2022_Control(conv, static_cast<unsigned char>((b & 0x1F) | 0x80));
        return 1;
      }
      return 0;
  }
}

void StartState(CONVDATA* conv) {
  conv->currentGL = 0;
  conv->lockedGL = 0;
  conv->currentGR = 1;
  conv->escapeHandler = nullptr;
  for (int g = 0; g < 4; ++g) {
    conv->gSet[g] = kCharsetLatin1;
    conv->gBytes[g] = 1;
    conv->gHighBit[g] = g == 0 ? kHighBitClear : kHighBitSet;
  }
}

int SetIndexOf(const CONVDATA* conv, unsigned char b) {
  const int g = b & 0x80 ? conv->currentGR : conv->currentGL;
  return g >= 0 && g <= 3 ? g : 0;
}

// Whether b is handled as a control: bytes up to the space and C1 bytes,
// except in the sets whose two-byte codes can hold any byte, where only ESC
// is one.
bool IsControlByte(const CONVDATA* conv, unsigned char b) {
  if (!(b <= 0x20 || (b >= 0x80 && b <= 0x9F))) return false;
  const int charset = conv->gSet[SetIndexOf(conv, b)];
  return (charset != kCharsetUnicode && charset != kCharsetArabicUC) || b == kEsc;
}

// One byte of a two-byte code; in the doubled-backslash form a backslash is
// written twice. False at the end of the text.
bool NextCodeByte(const unsigned char*& p, bool doubled, unsigned* byte) {
  if (*p == 0) return false;
  *byte = *p++;
  if (doubled && *byte == '\\' && *p == '\\') ++p;
  return true;
}

}  // namespace

extern "C" int DoISO2022_Control(void* conv, unsigned char b) {
  CONVDATA* c = static_cast<CONVDATA*>(conv);
  switch (b) {
    case 0x1B:
      c->escapeHandler = DoISO2022_ESC;
      return 1;
    case 0x0E:
      c->lockedGL = c->currentGL = 1;
      return 1;
    case 0x0F:
      c->lockedGL = c->currentGL = 0;
      return 1;
    case 0x18:
      c->escapeHandler = nullptr;
      return 1;
    case 0x8E:
      c->lockedGL = c->currentGL;
      c->currentGL = 2;
      return 1;
    case 0x8F:
      c->lockedGL = c->currentGL;
      c->currentGL = 3;
      return 1;
    default:
      return 0;
  }
}

int DecodeIso2022(CONVDATA* conv, const unsigned char* text, unsigned short* out, int* written) {
  StartState(conv);
  const bool doubled = conv->type == CONVTYPE_Resfile;
  unsigned short* const start = out;
  int rc = 0;
  CHARSET_TABLES tables[4];
  int cached[4] = {INT_MIN, INT_MIN, INT_MIN, INT_MIN};
  for (const unsigned char* p = text; *p;) {
    const unsigned char b = *p++;
    if (IsControlByte(conv, b)) {
      if (DoISO2022_Control(conv, b) == 0) *out++ = b;
      continue;
    }
    if (conv->escapeHandler) {
      if (conv->escapeHandler(conv, b) < 0) {
        *out++ = kEsc;
        *out++ = b;
      }
      continue;
    }
    int g, code;
    if (conv->gBytes[0] == 2) {
      // Two-byte sets count in G0 only, whatever GL and GR say.
      g = 0;
      unsigned hi = b, lo;
      if (doubled && hi == '\\' && *p == '\\') ++p;
      if (!NextCodeByte(p, doubled, &lo)) {
        *out++ = '?';  // cut short by the end of the text
        break;
      }
      code = static_cast<int>(hi << 8 | lo);
      if (conv->gHighBit[0] == kHighBitClear) code &= 0x7F7F;
      if (conv->gHighBit[0] == kHighBitSet) code |= 0x8080;
    } else {
      g = SetIndexOf(conv, b);
      code = b;
      if (conv->gHighBit[g] == kHighBitClear) code &= 0x7F;
      if (conv->gHighBit[g] == kHighBitSet) code |= 0x80;
    }
    // The tables of each G set are fetched again only when a designation
    // has put another charset there.
    if (cached[g] != conv->gSet[g]) {
      const int got = GetCharsetTables(conv->gSet[g], &tables[g]);
      if (got < 0) {
        rc = PASSERR(got);
        break;
      }
      cached[g] = conv->gSet[g];
    }
    const int unicode = tables[g].ToUnicode(static_cast<unsigned>(code));
    *out++ = unicode ? static_cast<unsigned short>(unicode) : '?';
    conv->currentGL = conv->lockedGL;  // a single shift lasts one character
  }
  *out = 0;
  *written = static_cast<int>(out - start);
  return rc;
}

extern "C" {

int MucStrLenISO2022(const char* text) {
  if (!text) return 0;
  CONVDATA conv{};
  conv.type = CONVTYPE_Iso2022;
  StartState(&conv);
  int count = 0;
  for (const unsigned char* p = reinterpret_cast<const unsigned char*>(text); *p;) {
    const unsigned char b = *p++;
    if (b <= 0x1F || (b >= 0x80 && b <= 0x9F)) {
      count += DoISO2022_Control(&conv, b) == 0;
    } else if (conv.escapeHandler) {
      if (conv.escapeHandler(&conv, b) < 0) count += 2;
    } else {
      ++count;
      if (b != 0x20) {
        if (conv.gBytes[0] == 2 && *p) ++p;
        conv.currentGL = conv.lockedGL;
      }
    }
  }
  return count;
}

int MucConvertISO2022ToUnicode(const char* text, unsigned short** result) {
  CONVDATA conv{};
  conv.encodingRow = 9;
  conv.defaultFlags = 1;
  ResetConversion(&conv);
  return MucConvertToUnicode(&conv, text, result);
}

int MucConvertISO2022aToUnicode(const char* text, unsigned short** result) {
  CONVDATA conv{};
  conv.encodingRow = 10;
  conv.defaultFlags = 1;
  ResetConversion(&conv);
  return MucConvertToUnicode(&conv, text, result);
}

}  // extern "C"
