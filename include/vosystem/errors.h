// The last-error record: how a failure is raised, passed up and turned into text.
//
// A failing function returns a negative code. The place that finds the failure
// starts a record with _SetErrPosnC, pushes the values of the message's
// placeholders into GetErrString() with operator<<, and returns the code; each
// caller on the way up returns _SetErrPosn(rc, ident, __LINE__), which adds its
// module line. -1 is "not found" and never recorded.
#ifndef VOSYSTEM_ERRORS_H
#define VOSYSTEM_ERRORS_H

#include "vosystem/export.h"

class VOSTRING;

// Error codes raised by the library itself. The numbers are the keys of the
// message texts, so they never change.
enum VOERROR : int {
  VOERROR_MessageOnly = -1000,   // the message is all the text: no code or module lines
  VOERROR_PathUnusable = -1001,  // empty path, or path that can't be encoded
  VOERROR_DiskQuota = -1009,
  VOERROR_FileTooLarge = -1010,
  VOERROR_PermissionDenied = -1011,
  VOERROR_TimedOut = -1013,
  VOERROR_FileTableFull = -1014,
  VOERROR_OutOfMemory = -1015,  // one placeholder: the size asked for, in bytes
  VOERROR_CannotCreate = -1101,
  VOERROR_FileNotFound = -1102,
  VOERROR_TooManyOpenFiles = -1103,
  VOERROR_CannotOpen = -1104,
  VOERROR_NoSpace = -1105,
  VOERROR_ReadFailedOther = -1107,
  VOERROR_TempFile = -1110,
  VOERROR_RenameFailed = -1111,
  VOERROR_BadHandle = -1112,
  VOERROR_RemoveFailed = -1114,
  VOERROR_IoError = -1115,
  VOERROR_CrossDevice = -1116,
  VOERROR_PathClimb = -1117,
  VOERROR_HandleNotOpen = -1118,
  VOERROR_CannotMakeDir = -1119,
  VOERROR_ShortRead = -1122,
  VOERROR_ResizeFailed = -1123,
  VOERROR_NoFreeSpaceInfo = -1125,
  VOERROR_StreamNotOpen = -1130,
  VOERROR_ReadFailed = -1132,
  VOERROR_SeekFailed = -1133,
  VOERROR_WriteFailed = -1134,
  VOERROR_SystemError = -1200,
  VOERROR_Failed = -1204,
  VOERROR_InvalidArgument = -1213,
  VOERROR_NotADirectory = -1526,
  VOERROR_CopyFailed = -1554,
  VOERROR_ResourceNotAdded = -1587,
  VOERROR_ResourceBad = -1588,
  VOERROR_IdentifierIncomplete = -1711,
  VOERROR_IdentifierIncomplete2 = -1712,
  VOERROR_IniCreate = -1922,
  VOERROR_IniCreate2 = -1923,
  VOERROR_XmlUnreadable = -1931,
  VOERROR_IniCreate3 = -2069,
};

// Starts a new record (clearing the old one) unless code >= 0 or recording is
// disabled. Returns code.
VOSYS_API int _SetErrPosnC(int code, const char* ident, int line);
// Adds a module line to the record, or starts one if code differs from the
// code on record. Ignores codes >= -1 and a disabled record. Returns code.
VOSYS_API int _SetErrPosn(int code, const char* ident, int line);
VOSYS_API void ClearLastErr();
VOSYS_API int GetLastErrCode();
// The last-error text itself: message, "Error code" line, module lines.
VOSYS_API VOSTRING& GetRefErrStr();
// The string into which the raising code pushes placeholder values. While
// recording is disabled this is a scratch string, emptied on each call.
VOSYS_API VOSTRING& GetErrString();
// Full text for a code; points into a static string valid until the next call.
// *kind (if not null) is set to 3.
VOSYS_API const unsigned short* GetErrStrUC(int code, int* kind);
// First line only, without a trailing ':', open placeholders shown as "???".
VOSYS_API const unsigned short* GetErrStrLine1UC(int code, int* kind);
VOSYS_API void GetWindowsError(VOSTRING& out);
VOSYS_API void SetErrPosnDisable();
VOSYS_API void SetErrPosnEnable();
VOSYS_API int IsErrPosnDisabled();
VOSYS_API void SetErrDetails(const unsigned short* text);
VOSYS_API const unsigned short* GetErrDetails();

// Keeps recording disabled for the life of the object; the bracket closes on
// every path out of the scope.
class ERRPOSN_DISABLER {
 public:
  ERRPOSN_DISABLER() { SetErrPosnDisable(); }
  ~ERRPOSN_DISABLER() { SetErrPosnEnable(); }
  ERRPOSN_DISABLER(const ERRPOSN_DISABLER&) = delete;
  ERRPOSN_DISABLER& operator=(const ERRPOSN_DISABLER&) = delete;
};

#endif
