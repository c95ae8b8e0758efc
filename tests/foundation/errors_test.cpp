// The last-error record: chains, repeats, suppression, texts for codes.
#include "vosystem/errors.h"

#include <gtest/gtest.h>

#include <string>

#include "vosystem/textres.h"
#include "vosystem/vostring.h"

namespace {

std::string Narrow(const unsigned short* s) {
  std::string out;
  for (; s && *s; ++s) out += *s < 0x80 ? static_cast<char>(*s) : '?';
  return out;
}

std::string Record() {
  return Narrow(GetRefErrStr());
}

const char kRaw[] = "@(#) fileraw.cpp 1.4";
const char kPath[] = "@(#) filepath_v 2.1";  // "_v" ends the word: stripped
const std::string kRawLine = "\nModule: fileraw.cpp  Revision: 1.4  Line: ";
const std::string kPathLine = "\nModule: filepath  Revision: 2.1  Line: ";

}  // namespace

TEST(ErrorRecord, ChainsAndRepeats) {
  EXPECT_EQ(_SetErrPosnC(-1213, kRaw, 5), -1213);
  _SetErrPosn(-1213, kRaw, 5);
  for (int i = 0; i < 3; ++i) _SetErrPosn(-1213, kPath, 6);
  _SetErrPosn(-1213, kRaw, 5);
  EXPECT_EQ(_SetErrPosn(-1213, kRaw, 7), -1213);
  const std::string expected = "Unknown error code (-1213)\nError code = -1213" + kRawLine +
                               "5  Count: 2" + kPathLine + "6  Count: 3" + kRawLine + "5" +
                               kRawLine + "7";
  EXPECT_EQ(Record(), expected);
  EXPECT_EQ(Narrow(GetErrStrUC(-1213, nullptr)), expected);

  // A different code replaces the text; the same place as before is a repeat,
  // and its count doesn't close a line the new text lacks.
  EXPECT_EQ(_SetErrPosn(-1104, kRaw, 7), -1104);
  _SetErrPosn(-1104, kRaw, 8);
  EXPECT_EQ(Record(), "Unknown error code (-1104)\nError code = -1104" + kRawLine + "8");
  // A new record starts afresh: no repeat of the old place.
  _SetErrPosnC(-1105, kRaw, 8);
  EXPECT_EQ(Record(), "Unknown error code (-1105)\nError code = -1105" + kRawLine + "8");
}

TEST(ErrorRecord, CodesThatAreNoFailuresAndCodesWithoutLines) {
  _SetErrPosnC(-1102, kRaw, 10);
  const std::string before = Record();
  EXPECT_EQ(_SetErrPosnC(5, kRaw, 1), 5);
  EXPECT_EQ(_SetErrPosn(-1, kRaw, 1), -1);
  EXPECT_EQ(Record(), before);
  EXPECT_EQ(_SetErrPosnC(-1, kRaw, 1), -1);  // clears, records nothing
  EXPECT_EQ(GetLastErrCode(), 0);
  EXPECT_EQ(Record(), "");

  _SetErrPosn(-1111, kRaw, 0);  // starts a record; line 0 adds no module line
  EXPECT_EQ(Record(), "Unknown error code (-1111)\nError code = -1111");
  _SetErrPosnC(-1000, kRaw, 12);  // the message is all the text
  _SetErrPosn(-1000, kPath, 13);
  EXPECT_EQ(Record(), "Unknown error code (-1000)");
}

// Disabling nests, an unmatched enable stays at zero, and while disabled the
// record is left as it was and pushed values go to a scratch string.
TEST(ErrorRecord, DisabledRecordingTouchesNothing) {
  _SetErrPosnC(-1102, kRaw, 10);
  const std::string before = Record();
  SetErrPosnDisable();
  {
    ERRPOSN_DISABLER quiet;
    EXPECT_EQ(_SetErrPosnC(-1015, kRaw, 20), -1015);
    GetErrString() << 42 << "lost";
    EXPECT_EQ(GetErrString().GetLength(), 0);
    ClearLastErr();
  }
  EXPECT_EQ(IsErrPosnDisabled(), 1);
  SetErrPosnEnable();
  SetErrPosnEnable();
  EXPECT_EQ(IsErrPosnDisabled(), 0);
  EXPECT_EQ(GetLastErrCode(), -1102);
  EXPECT_EQ(Record(), before);
}

TEST(ErrorRecord, PushedValuesAndShortTexts) {
  // The interim text has no placeholder: the value is appended, never put
  // into the code line.
  _SetErrPosnC(-1104, kRaw, 10);
  GetErrString() << 77;
  EXPECT_EQ(Record(), "Unknown error code (-1104)\nError code = -1104" + kRawLine + "1077");

  // A message with placeholders, as a text resource gives it; its first
  // line shows the slots still open as "???" and leaves the record be.
  GetRefErrStr() = "Cannot open $1 (error %d):\nDetails";
  GetErrString() << 13 << "a.txt";
  EXPECT_EQ(Record(), "Cannot open a.txt (error 13):\nDetails");
  EXPECT_EQ(Narrow(GetErrStrLine1UC(-1104, nullptr)), "Cannot open a.txt (error 13)");
  GetRefErrStr() = "Copy $1 to %s failed:\r\nmore";
  EXPECT_EQ(Narrow(GetErrStrLine1UC(-1104, nullptr)), "Copy ??? to ??? failed");
  EXPECT_EQ(Record(), "Copy $1 to %s failed:\r\nmore");

  // Codes not on record; a system error is all its text, as GetWindowsError
  // gives it. Asking changes nothing.
  EXPECT_EQ(Narrow(GetErrStrUC(-1588, nullptr)), "Unknown error code (-1588)\nError code = -1588");
  EXPECT_EQ(Narrow(GetErrStrUC(-1200, nullptr)), "Unknown error code (-1200)");
  VOSTRING windows("stale");
  GetWindowsError(windows);
  EXPECT_EQ(Narrow(windows), "Unknown error code (-1200)");
  EXPECT_EQ(GetLastErrCode(), -1104);

  int kind = 7;
  EXPECT_EQ(Narrow(GetErrStrLine1UC(0, &kind)), "");
  EXPECT_EQ(kind, 7);  // untouched for code 0
  EXPECT_EQ(Narrow(GetErrStrUC(0, &kind)), "");
  EXPECT_EQ(kind, 3);
  EXPECT_TRUE(TEXTRES::GetString(12).IsEmpty());
  EXPECT_EQ(Narrow(TEXTRES::GetString(-2147483647 - 1)), "Unknown error code (-2147483648)");
}

TEST(ErrorRecord, HostileIdentificationTexts) {
  auto moduleLine = [](const char* ident) {
    _SetErrPosnC(-1213, ident, 3);
    return Record().substr(Record().find("\nModule: "));
  };
  const std::string unknown = "\nModule: unknown  Revision: unknown  Line: 3";
  for (const char* ident : {static_cast<const char*>(nullptr), "", " \t ", "@(#) name.cpp"})
    EXPECT_EQ(moduleLine(ident), unknown);
  EXPECT_EQ(moduleLine("\t@(#)\tbidi_v\t\t3.2\n extra"), "\nModule: bidi  Revision: 3.2  Line: 3");
  EXPECT_EQ(moduleLine("x _v r"), "\nModule:   Revision: r  Line: 3");
  // A module line is never a slot for the values pushed for the message.
  EXPECT_EQ(moduleLine("x %d$1.cpp %s"), "\nModule: ?d?1.cpp  Revision: ?s  Line: 3");
  GetErrString() << 5;
  EXPECT_EQ(Record().substr(Record().size() - 2), "35");

  // Huge words are cut to 127 characters; the stored 31 still know a repeat.
  const std::string ident = "@(#) " + std::string(5000, 'n') + " " + std::string(300, 'r');
  EXPECT_EQ(moduleLine(ident.c_str()), "\nModule: " + std::string(127, 'n') +
                                           "  Revision: " + std::string(127, 'r') + "  Line: 3");
  _SetErrPosn(-1213, ident.c_str(), 3);
  _SetErrPosn(-1213, kRaw, 4);
  EXPECT_NE(Record().find("Line: 3  Count: 2\n"), std::string::npos);
}

TEST(ErrorRecord, DetailsAreCopiedAndCleared) {
  unsigned short text[] = {'d', 'i', 's', 'k', 0};
  SetErrDetails(text);
  text[0] = 'X';
  EXPECT_EQ(Narrow(GetErrDetails()), "disk");
  SetErrDetails(GetErrDetails());  // its own details: copied before they go
  EXPECT_EQ(Narrow(GetErrDetails()), "disk");
  SetErrDetails(nullptr);
  EXPECT_EQ(GetErrDetails(), nullptr);
  SetErrDetails(text);
  _SetErrPosnC(-1102, kRaw, 1);  // a new record forgets them
  EXPECT_EQ(GetErrDetails(), nullptr);
}

// A value that can't go into the message raises a failure of its own, which
// rewrites the record under the insertion that is running on it.
TEST(ErrorRecord, FailureWhileFillingTheMessage) {
  _SetErrPosnC(-1104, kRaw, 10);
  GetErrString() << STR_BASE16;
  EXPECT_EQ(GetErrString().Pad('x', 0x7FFFFFF0), VOERROR_OutOfMemory);
  EXPECT_EQ(GetLastErrCode(), VOERROR_OutOfMemory);
  EXPECT_EQ(Record().rfind("Unknown error code (-1015)\nError code = -1015", 0), 0u);
  GetErrString() << 255;  // the new message starts with a new format
  EXPECT_EQ(Record().substr(Record().size() - 3), "255");

  // Likewise while recording is off, on the blank string.
  SetErrPosnDisable();
  EXPECT_EQ(GetErrString().Pad('x', 0x7FFFFFF0), VOERROR_OutOfMemory);
  SetErrPosnEnable();
}
