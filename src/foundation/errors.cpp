// The last-error record: code, message text with its module lines, details.

#include "vosystem/errors.h"

#include <atomic>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "foundation/errpos.h"
#include "text/vostring_priv.h"
#include "vosystem/textres.h"
#include "vosystem/vostring.h"

namespace {

const int kWordMax = 128;     // working buffer of a module name or revision
const int kLastNameMax = 32;  // the stored last module name: 31 characters
const unsigned short kLF = 0x0A;
const unsigned short kCR = 0x0D;
// Text resources: the line that introduces a file's name (with a value
// slot), and the one that introduces the system's number of a failure. Their
// English words stand in while no resource file gives them (before the
// texts are initialised, say).
const int kTextFileName = 7603;
const int kTextSystemError = 8905;
const char kFileNameFallback[] = "File: '$1'";
const char kSystemErrorFallback[] = "System Error Code = ";

// Plain values, constant-initialised and never destroyed: exit handlers that
// run after the strings below are gone can still disable recording or ask for
// the code.
int g_code = 0;
char g_lastName[kLastNameMax] = "";
int g_lastLine = -1;
int g_repeat = 0;
// The text ends with the module line of g_lastName/g_lastLine. A "Count" only
// closes a line that is in the text: once a new code has replaced the text,
// the remembered line is no longer there.
bool g_lineOpen = false;
unsigned short* g_details = nullptr;
// The disable counter is the one piece of the record that code raising no
// failure touches: conversions bracket their attempts with it, from whatever
// thread they run in. So it is atomic (relaxed: it orders nothing else), and
// a count never goes wrong, though it still acts for the whole process.
std::atomic<unsigned> g_disabled{0};
bool g_stringsGone = false;

// The record's own strings are only ever edited in place (SetText), never
// given another body: the code that raises a failure works on them through
// GetErrString(), and a failure raised in the middle of that work (memory for
// the value, say) comes back here and rewrites the text under it.
struct STRINGS {
  VOSTRING text;     // the last-error text
  VOSTRING scratch;  // what GetErrString() gives while recording is disabled
  VOSTRING result;   // what GetErrStrUC and GetErrStrLine1UC point into
  ~STRINGS() {
    g_stringsGone = true;
    free(g_details);
    g_details = nullptr;
  }
};

bool IsDisabled() {
  return g_disabled.load(std::memory_order_relaxed) != 0;
}

// Keeps recording off inside the record's own work: a failure while the text
// is fetched or edited must not come back and rewrite the record half-way.
class QUIET {
 public:
  QUIET() { g_disabled.fetch_add(1, std::memory_order_relaxed); }
  ~QUIET() { g_disabled.fetch_sub(1, std::memory_order_relaxed); }
  QUIET(const QUIET&) = delete;
  QUIET& operator=(const QUIET&) = delete;
};

STRINGS& Strings() {
  QUIET quiet;
  static STRINGS s_strings;
  if (!g_stringsGone) return s_strings;
  // Failures raised by exit handlers that run after the strings were
  // destroyed land here; the block stays reachable and is never freed.
  static STRINGS* s_late = new STRINGS;
  return *s_late;
}

void SetText(VOSTRING& s, const VOSTRING& value) {
  VOSTRING::PRIV::SetInPlace(s, value, value.GetLength());
}

void ClearText(VOSTRING& s) {
  VOSTRING::PRIV::SetInPlace(s, nullptr, 0);
}

__attribute__((format(printf, 2, 3))) void AppendFormatted(VOSTRING& s, const char* format, ...) {
  char line[2 * kWordMax + 96];
  va_list args;
  va_start(args, format);
  vsnprintf(line, sizeof line, format, args);
  va_end(args);
  s += line;
}

VOSTRING TextOr(int id, const char* fallback) {
  QUIET quiet;
  VOSTRING text = TEXTRES::GetString(id);
  return text.IsEmpty() ? VOSTRING(fallback) : text;
}

VOSTRING TextOfCode(int code) {
  QUIET quiet;
  if (code == VOERROR_SystemError) {
    VOSTRING text;
    GetWindowsError(text);
    return text;
  }
  return TEXTRES::GetString(code);
}

// ---------------------------------------------------------------- module identification

struct MODULEID {
  char name[kWordMax];
  char revision[kWordMax];
};

bool IsBlank(char c) {
  return c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\v' || c == '\f';
}

// Finds the next word at or after p: [*start, *end). false if there is none.
bool NextWord(const char*& p, const char** start, const char** end) {
  while (*p && IsBlank(*p)) ++p;
  if (!*p) return false;
  *start = p;
  while (*p && !IsBlank(*p)) ++p;
  *end = p;
  return true;
}

// Copies a word cut to the working buffer. The module words are text, never
// slots: a "%" or "$" in them would catch a value pushed for the message, so
// they show as "?".
void CopyCut(char* out, const char* start, const char* end) {
  size_t n = static_cast<size_t>(end - start);
  if (n > kWordMax - 1) n = kWordMax - 1;
  for (size_t i = 0; i < n; ++i) out[i] = start[i] == '%' || start[i] == '$' ? '?' : start[i];
  out[n] = 0;
}

// "<skipped> <file name> <revision> ...": fewer than three words count as no
// identification at all. Words are cut to the working buffers.
MODULEID ParseIdent(const char* ident) {
  MODULEID id;
  strcpy(id.name, "unknown");
  strcpy(id.revision, "unknown");
  if (!ident) return id;
  const char* p = ident;
  const char *skipStart, *skipEnd, *nameStart, *nameEnd, *revStart, *revEnd;
  if (!NextWord(p, &skipStart, &skipEnd) || !NextWord(p, &nameStart, &nameEnd) ||
      !NextWord(p, &revStart, &revEnd))
    return id;
  if (nameEnd - nameStart >= 2 && nameEnd[-2] == '_' && nameEnd[-1] == 'v') nameEnd -= 2;
  CopyCut(id.name, nameStart, nameEnd);
  CopyCut(id.revision, revStart, revEnd);
  return id;
}

bool IsLastModuleLine(const MODULEID& id, int line) {
  return line == g_lastLine && strncmp(id.name, g_lastName, kLastNameMax - 1) == 0;
}

void AddModuleLine(VOSTRING& text, const MODULEID& id, int line) {
  if (g_repeat > 1 && g_lineOpen) AppendFormatted(text, "  Count: %d", g_repeat);
  AppendFormatted(text, "\nModule: %s  Revision: %s  Line: %d", id.name, id.revision, line);
  g_repeat = 1;
  size_t n = strnlen(id.name, kLastNameMax - 1);
  memcpy(g_lastName, id.name, n);
  g_lastName[n] = 0;
  g_lastLine = line;
  g_lineOpen = true;
}

unsigned short* CopyUnits(const unsigned short* text) {
  size_t n = 0;
  while (text[n]) ++n;
  auto* copy = static_cast<unsigned short*>(malloc((n + 1) * sizeof(unsigned short)));
  if (copy) memcpy(copy, text, (n + 1) * sizeof(unsigned short));
  return copy;
}

}  // namespace

// ---------------------------------------------------------------- recording

int _SetErrPosnC(int code, const char* ident, int line) {
  if (code >= 0 || IsDisabled()) return code;
  ClearLastErr();
  return _SetErrPosn(code, ident, line);
}

int _SetErrPosn(int code, const char* ident, int line) {
  if (code >= -1 || IsDisabled()) return code;
  VOSTRING& text = Strings().text;
  QUIET quiet;
  if (code != g_code) {
    // The code line is written out here, not left as a template: the
    // message's own placeholders are for the values the raising code pushes.
    SetText(text, TextOfCode(code));
    g_code = code;
    g_lineOpen = false;
    if (code != VOERROR_MessageOnly) AppendFormatted(text, "\nError code = %d", code);
  }
  if (code == VOERROR_MessageOnly || line <= 0) return code;
  MODULEID id = ParseIdent(ident);
  if (IsLastModuleLine(id, line)) {
    ++g_repeat;  // a loop failing in one place makes one line
    return code;
  }
  AddModuleLine(text, id, line);
  return code;
}

void ClearLastErr() {
  if (IsDisabled()) return;
  g_code = 0;
  g_lastLine = -1;
  g_lineOpen = false;
  VOSTRING& text = Strings().text;
  QUIET quiet;
  ClearText(text);
  free(g_details);
  g_details = nullptr;
}

int GetLastErrCode() {
  return g_code;
}

VOSTRING& GetRefErrStr() {
  return Strings().text;
}

VOSTRING& GetErrString() {
  STRINGS& strings = Strings();
  if (!IsDisabled()) return strings.text;
  // A fresh empty string, format settings included, for values nobody reads.
  QUIET quiet;
  ClearText(strings.scratch);
  return strings.scratch;
}

// ---------------------------------------------------------------- asking

const unsigned short* GetErrStrUC(int code, int* kind) {
  VOSTRING& result = Strings().result;
  QUIET quiet;
  if (kind) *kind = 3;
  if (code == 0) {
    result = VOSTRING::GetEmpty();
  } else if (code == g_code) {
    result = Strings().text;
  } else if (code == VOERROR_SystemError) {
    GetWindowsError(result);
  } else {
    result = TextOfCode(code);
    if (code != VOERROR_MessageOnly) AppendFormatted(result, "\nError code = %d", code);
  }
  return result;
}

const unsigned short* GetErrStrLine1UC(int code, int* kind) {
  VOSTRING& result = Strings().result;
  QUIET quiet;
  if (code == 0) {
    result = VOSTRING::GetEmpty();
    return result;
  }
  if (kind) *kind = 3;
  VOSTRING line = code == g_code ? Strings().text : TextOfCode(code);
  int lf = line.FindNextOf(kLF);
  if (lf >= 0) line.Truncate(lf);
  // A text written with CR LF line ends keeps its CR before the cut.
  if (line.GetLength() > 0 && line[line.GetLength() - 1] == kCR)
    line.Truncate(line.GetLength() - 1);
  if (line.GetLength() > 0 && line[line.GetLength() - 1] == ':')
    line.Truncate(line.GetLength() - 1);
  line.FillSubs();
  result = line;
  return result;
}

void GetWindowsError(VOSTRING& out) {
  QUIET quiet;
  out = TEXTRES::GetString(VOERROR_SystemError);
}

// ---------------------------------------------------------------- suppression and details

void SetErrPosnDisable() {
  g_disabled.fetch_add(1, std::memory_order_relaxed);
}

void SetErrPosnEnable() {
  unsigned n = g_disabled.load(std::memory_order_relaxed);
  while (n && !g_disabled.compare_exchange_weak(n, n - 1, std::memory_order_relaxed)) {
  }
}

int IsErrPosnDisabled() {
  return IsDisabled() ? 1 : 0;
}

// The copy is made before the old details go: text may be those details.
void SetErrDetails(const unsigned short* text) {
  unsigned short* copy = text ? CopyUnits(text) : nullptr;
  free(g_details);
  g_details = copy;
}

const unsigned short* GetErrDetails() {
  return g_details;
}

// ---------------------------------------------------------------- values of file failures

void PushErrFileName(const VOSTRING& name) {
  if (IsDisabled()) return;
  VOSTRING& message = Strings().text;
  if (message.FindNextOf(VOSTRING("%S")) < 0 && message.FindNextOf(VOSTRING("%s")) < 0 &&
      message.FindNextOf(VOSTRING("$1")) < 0) {
    VOSTRING line("\n");
    line += TextOr(kTextFileName, kFileNameFallback);
    message += line;
  }
  message << name;
}

void PushErrSystemCode(long syserr) {
  if (IsDisabled() || syserr == 0) return;
  VOSTRING line("\n");
  line += TextOr(kTextSystemError, kSystemErrorFallback);
  line += VOSTRING(static_cast<int>(syserr));
  Strings().text += line;
}
