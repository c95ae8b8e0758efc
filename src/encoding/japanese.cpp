// Which Japanese encoding a text is in: Shift-JIS, JIS (ISO-2022), EUC-JP,
// ASCII or UTF-16, from the first bytes that tell them apart.
//
// The scan reads a byte, and for the bytes whose meaning depends on the next
// one, that next byte too: only then is the second byte consumed, so an ESC
// or a Shift-JIS lead byte right after a plain byte is still seen. State 7
// stands for "EUC or Shift-JIS, not yet told apart", and reports as EUC.
#include <cstring>

#include "encoding/convdata.h"
#include "encoding/decode.h"
#include "vosystem/ucconv.h"

namespace {

enum GUESS { kShiftJis = 1, kJis = 2, kEuc = 3, kAscii = 4, kUnicode = 5, kEucOrShiftJis = 7 };

bool In(unsigned b, unsigned low, unsigned high) {
  return b >= low && b <= high;
}

bool IsShiftJisLead(unsigned b) {
  return In(b, 0x81, 0x8D) || In(b, 0x8F, 0x9F);
}

// After a half-width-or-EUC byte and a byte from E0 to EF: bytes are read on
// while they are at 0x40 or above and nothing is decided.
int RunRule(const unsigned char*& p) {
  int state = kEucOrShiftJis;
  for (; *p >= 0x40 && state == kEucOrShiftJis; ++p) {
    if (*p > 0x80 && IsShiftJisLead(*p)) state = kShiftJis;
    if (*p == 0xFD) state = kEuc;
  }
  return state;
}

int Guess(const unsigned char* text) {
  if ((text[0] == 0xFF && text[1] == 0xFE) || (text[0] == 0xFE && text[1] == 0xFF)) return kUnicode;
  int state = kAscii;
  for (const unsigned char* p = text; *p && (state == kAscii || state == kEucOrShiftJis);) {
    const unsigned b = *p++;
    if (b == 0x1B) {
      state = kJis;
    } else if (IsShiftJisLead(b)) {
      state = kShiftJis;
    } else if (b == 0x8E) {
      const unsigned n = *p;
      if (n == 0) break;
      ++p;
      state =
          In(n, 0x40, 0x7E) || In(n, 0x80, 0xA0) || In(n, 0xE0, 0xFC) ? kShiftJis : kEucOrShiftJis;
    } else if (In(b, 0xA1, 0xDF)) {
      const unsigned n = *p;
      if (n == 0) break;
      ++p;
      if (In(n, 0xF0, 0xFE)) {
        state = kEuc;
      } else if (In(n, 0xA1, 0xDF)) {
        state = kEucOrShiftJis;
      } else if (In(n, 0xE0, 0xEF)) {
        state = RunRule(p);
      } else if (n <= 0x9E) {
        state = kShiftJis;
      }
    } else if (In(b, 0xF0, 0xFE)) {
      state = kEuc;
    } else if (In(b, 0xE0, 0xEF)) {
      const unsigned n = *p;
      if (n == 0) break;
      ++p;
      if (In(n, 0x40, 0x7E) || In(n, 0x80, 0xA0)) {
        state = kShiftJis;
      } else if (n == 0xFD || n == 0xFE) {
        state = kEuc;
      } else if (In(n, 0xA1, 0xFC)) {
        state = kEucOrShiftJis;
      }
    }
  }
  return state == kEucOrShiftJis ? kEuc : state;
}

const char* NameOf(int guess) {
  switch (guess) {
    case kShiftJis:
      return "Shift-JIS";
    case kJis:
      return "JIS";
    case kEuc:
      return "EUC";
    case kUnicode:
      return "Unicode";
    default:
      return "ASCII";
  }
}

}  // namespace

void ApplyJapaneseGuess(CONVDATA* conv, const unsigned char* text) {
  const int guess = Guess(text);
  conv->type = guess;
  if (guess == kEuc) {
    const int sets[4] = {24, 11, 27, 12};
    memcpy(conv->gSet, sets, sizeof sets);
    conv->charset = 24;
  } else if (guess == kJis) {
    conv->gSet[0] = 15;
    conv->gSet[1] = conv->gSet[2] = 24;
    conv->charset = 15;
  } else if (guess == kUnicode) {
    conv->charset = 0;
  }
}

extern "C" {

int MucGuessJapaneseEncoding(const unsigned char* text, char* nameOut) {
  const int guess = text ? Guess(text) : kAscii;
  if (nameOut) strcpy(nameOut, NameOf(guess));
  return guess;
}

void GuessJapaneseEncoding(void* conv, const unsigned char* text) {
  if (conv && text) ApplyJapaneseGuess(static_cast<CONVDATA*>(conv), text);
}

}  // extern "C"
