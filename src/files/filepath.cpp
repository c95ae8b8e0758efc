// FILEPATH: parsing the three syntaxes, composing, comparing and the text
// forms of a path. What touches the disk lives in filepath_fs.cpp, the
// system locations in filepath_system.cpp.
#include "vosystem/filepath.h"

#include <cstdlib>
#include <cstring>
#include <new>

#include "files/ospath.h"
#include "vosystem/ucdata.h"
#include "vosystem/ucstring.h"

const char* MacEncodeStr = "!MAC!";
const char* WinEncodeStr = "!PC!";
const char* UnixEncodeStr = "!UNIX!";

const unsigned short FILEPATH::s_SepMark = '/';
const unsigned short FILEPATH::s_RelMark = '.';
const unsigned short FILEPATH::s_ExtnMark = '.';
const char* const FILEPATH::s_BackTagStr = "../";
const char* const FILEPATH::s_SameDirStr = "./";
const char* FILEPATH::s_EncodeStr = UnixEncodeStr;
VOSTRING* FILEPATH::s_argv0 = nullptr;

namespace {

const unsigned short kSep = '/';

// A heap string that can't be had leaves the path on a shared empty text,
// which reads as the empty path and is never written: Mutable tries for a
// text of the path's own again, and failing that edits a scratch text.
VOSTRING g_noText;

VOSTRING* NewText(const VOSTRING& text) {
  VOSTRING* s = new (std::nothrow) VOSTRING(text);
  return s ? s : &g_noText;
}

// Removes text[0, n) (all of it when n reaches past the end).
void RemoveHead(VOSTRING& text, int n) {
  if (n >= text.GetLength())
    text.Clear();
  else if (n > 0)
    text.Remove(0, n - 1);
}

// A UNC name "<s><s>host<s>share<s>...": everything through the separator
// after the share goes. Without both separators nothing goes.
void RemoveUncHead(VOSTRING& text, unsigned short sep) {
  const int hostEnd = text.FindNextOf(sep, 2);
  const int shareEnd = hostEnd < 0 ? -1 : text.FindNextOf(sep, hostEnd + 1);
  if (shareEnd >= 0) RemoveHead(text, shareEnd + 1);
}

}  // namespace

// ---------------------------------------------------------------- construction

FILEPATH::FILEPATH() : m_path(NewText(VOSTRING())) {}

FILEPATH::FILEPATH(const FILEPATH& other) : m_path(NewText(*other.m_path)) {}

FILEPATH::FILEPATH(const VOSTRING& text) : FILEPATH() {
  AppendPath(text);
}

FILEPATH::FILEPATH(const unsigned short* text) : FILEPATH() {
  AppendPath(VOSTRING(text));
}

FILEPATH::FILEPATH(const char* text, CHAR_ENCODING e) : FILEPATH() {
  Append(text, e);
}

FILEPATH::FILEPATH(const FILEPATH& base, const VOSTRING& name) : FILEPATH(base) {
  if (IsPathOnly()) AppendPath(name);
}

FILEPATH::FILEPATH(const FILEPATH& base, const unsigned short* name)
    : FILEPATH(base, VOSTRING(name)) {}

FILEPATH::FILEPATH(const FILEPATH& base, const char* name, CHAR_ENCODING e) : FILEPATH(base) {
  if (IsPathOnly()) Append(name, e);
}

FILEPATH::FILEPATH(PATHTYPE type) : FILEPATH() {
  SetSystemPath(type);
}

VOSTRING& FILEPATH::Mutable() {
  if (m_path != &g_noText) return *m_path;
  if (VOSTRING* own = new (std::nothrow) VOSTRING()) return *(m_path = own);
  static thread_local VOSTRING scratch;
  scratch.Clear();
  return scratch;
}

FILEPATH::~FILEPATH() {
  if (m_path != &g_noText) delete m_path;
}

FILEPATH& FILEPATH::operator=(const FILEPATH& other) {
  Mutable() = *other.m_path;
  return *this;
}

FILEPATH& FILEPATH::operator=(const VOSTRING& text) {
  const VOSTRING copy(text);  // text may be this path's own
  Clear();
  AppendPath(copy);
  return *this;
}

FILEPATH& FILEPATH::operator=(const unsigned short* text) {
  return *this = VOSTRING(text);
}

FILEPATH& FILEPATH::Assign(const char* text, CHAR_ENCODING e) {
  Clear();
  return Append(text, e);
}

FILEPATH& FILEPATH::operator+=(const VOSTRING& text) {
  AppendPath(text);
  return *this;
}

FILEPATH& FILEPATH::operator+=(const unsigned short* text) {
  AppendPath(VOSTRING(text));
  return *this;
}

FILEPATH& FILEPATH::operator+=(const char* text) {
  return Append(text, CHAR_ENCODING_ASCII);
}

FILEPATH& FILEPATH::Append(const char* text, CHAR_ENCODING e) {
  if (!text) return *this;
  VOSTRING s;
  s.Assign(text, e);
  AppendPath(s);
  return *this;
}

void FILEPATH::Clear() {
  Mutable().Clear();
}

// ---------------------------------------------------------------- queries of the text

bool FILEPATH::IsEmpty() const {
  return m_path->IsEmpty();
}

bool FILEPATH::IsRootOnly() const {
  return m_path->GetLength() == 1 && (*m_path)[0] == kSep;
}

bool FILEPATH::IsUNCRoot() const {
  return (*m_path)[0] == kSep && (*m_path)[1] == kSep;
}

bool FILEPATH::IsUNCHostOnly() const {
  return false;
}

bool FILEPATH::IsEqual(const FILEPATH& other) const {
  return m_path->CompareNoCase(*other.m_path) == 0;
}

bool FILEPATH::IsLessThan(const FILEPATH& other) const {
  return m_path->CompareNoCase(*other.m_path) < 0;
}

bool FILEPATH::Contains(const FILEPATH& other) const {
  const int n = other.m_path->GetLength();
  return n <= m_path->GetLength() && m_path->CompareNoCase(*other.m_path, n) == 0;
}

int FILEPATH::GetExtnPosn() const {
  const int dot = m_path->FindPrevOf(s_ExtnMark);
  return dot >= 0 && m_path->FindNextOf(kSep, dot) < 0 ? dot : -1;
}

bool FILEPATH::HasExtension() const {
  return GetExtnPosn() != -1;
}

VOSTRING FILEPATH::GetExtension() const {
  const int dot = GetExtnPosn();
  if (IsRootOnly() || dot < 0) return VOSTRING();
  return m_path->GetSubString(dot + 1);
}

VOSTRING FILEPATH::GetName() const {
  if (IsRootOnly()) return VOSTRING();
  return m_path->GetSubString(m_path->FindPrevOf(kSep) + 1);
}

bool FILEPATH::IsSameExtn(const VOSTRING& ext) const {
  const int dot = GetExtnPosn();
  if (dot < 0) return ext.IsEmpty();
  const unsigned short* mine = m_path->GetReference() + dot + 1;
  const unsigned short* theirs = ext.GetReference();
  for (;; ++mine, ++theirs) {
    if (!*mine || !*theirs) return !*mine && !*theirs;
    if (*mine != *theirs && *mine != uctoupper(*theirs)) return false;
  }
}

bool FILEPATH::IsSameExtn(const char* ext) const {
  return IsSameExtn(VOSTRING(ext));
}

int FILEPATH::GetRootEndPosn() const {
  VOLIST<VOSTRING> drives;
  GetDriveList(drives);
  for (const VOSTRING& drive : drives) {
    const int n = drive.GetLength();
    if (n <= 1) continue;
    if (m_path->Compare(drive, n) == 0 && (*m_path)[n] == kSep) return n;
  }
  return 1;
}

// ---------------------------------------------------------------- queries with one look at the
// disk

VOSTRING FILEPATH::GetNameOnly() const {
  if (IsRootOnly()) return VOSTRING();
  const int start = m_path->FindPrevOf(kSep) + 1;
  const int dot = GetExtnPosn();
  if (dot < start || IsFolder()) return m_path->GetSubString(start);
  return dot == start ? VOSTRING() : m_path->GetSubString(start, dot - 1);
}

FILEPATH FILEPATH::GetPathOnly() const {
  FILEPATH copy(*this);
  if (!IsPathOnly()) copy.StripLastComponent();
  return copy;
}

bool FILEPATH::IsChildPath(const FILEPATH& other) const {
  if (other.IsPathOnly()) return Contains(other);
  FILEPATH folder(other);
  folder.StripLastComponent();
  return Contains(folder);
}

void FILEPATH::StripExtension() {
  const int dot = GetExtnPosn();
  if (dot < 0 || IsFolder()) return;
  Mutable().Truncate(dot);
}

void FILEPATH::SetExtension(const VOSTRING& ext) {
  const VOSTRING copy(ext);
  StripExtension();
  if (copy[0] != s_ExtnMark) Mutable() += s_ExtnMark;
  Mutable() += copy;
}

void FILEPATH::SetExtension(const char* ext, CHAR_ENCODING e) {
  VOSTRING s;
  if (ext) s.Assign(ext, e);
  SetExtension(s);
}

void FILEPATH::SetName(const VOSTRING& name) {
  const VOSTRING copy(name);
  StripLastComponent();
  AppendPath(copy);
}

void FILEPATH::SetName(const char* name, CHAR_ENCODING e) {
  VOSTRING s;
  if (name) s.Assign(name, e);
  SetName(s);
}

// ---------------------------------------------------------------- edits of the text

void FILEPATH::StripLastComponent() {
  if (IsEmpty() || IsRootOnly()) return;
  const int slash = m_path->FindPrevOf(kSep);
  if (slash < 0) return;
  if (slash == 0)
    Mutable() = u"/";
  else
    Mutable().Truncate(slash);
}

void FILEPATH::StripToRoot() {
  if (IsEmpty() || IsRootOnly()) return;
  Mutable().Truncate(1);
}

void FILEPATH::ReplaceRoot(const FILEPATH& other) {
  if (IsEmpty() || IsRootOnly()) {
    Mutable() = *other.m_path;
    StripToRoot();
    return;
  }
  const int end = GetRootEndPosn();
  const int otherEnd = other.GetRootEndPosn();
  VOSTRING result;
  result.Assign(*other.m_path, 0, otherEnd - 1);
  result.Append(*m_path, end, 0x7FFFFFFF);
  Mutable() = result;
}

int StripPathCode(VOSTRING& text) {
  if (text[0] != '!') return 0;
  const int close = text.FindNextOf('!', 1);
  // Without a second "!" there is no span, and nothing is removed.
  if (close < 0) return 0;
  const VOSTRING code = text.GetSubString(0, close);
  text.Remove(0, close);
  if (code == VOSTRING(WinEncodeStr)) return 1;
  if (code == VOSTRING(MacEncodeStr)) return 2;
  if (code == VOSTRING(UnixEncodeStr)) return 3;
  return 0;
}

namespace {

// "", ".", "..", "./..." or "../..." (text without a path code).
bool IsRelativeText(const unsigned short* s) {
  if (!s[0]) return true;
  if (s[0] != '.') return false;
  if (!s[1] || s[1] == kSep) return true;
  return s[1] == '.' && (!s[2] || s[2] == kSep);
}

}  // namespace

int FILEPATH::IsRelativePath(const unsigned short* text) {
  static const unsigned short kEmpty[1] = {0};
  if (!text || text[0] != '!') return IsRelativeText(text ? text : kEmpty);
  VOSTRING s(text);
  StripPathCode(s);
  return IsRelativeText(s);
}

void FILEPATH::AppendPath(const VOSTRING& text) {
  if (text.IsEmpty()) return;
  VOSTRING copy(text);
  const int code = StripPathCode(copy);
  unsigned short sep = kSep;
  bool macRootFirst = false;
  switch (code) {
    case 2: {  // "Volume:folder:name", or ":name" and "::name" relative
      sep = ':';
      if (copy[0] == ':') {
        int colons = 0;
        while (copy[colons] == ':') ++colons;
        VOSTRING rel;
        for (int i = 0; i < colons; ++i) rel += s_BackTagStr;
        rel.Append(copy, colons, 0x7FFFFFFF);
        copy = rel;
      } else {
        const int colon = copy.FindNextOf(':');
        if (colon >= 0) RemoveHead(copy, colon + 1);
      }
      macRootFirst = IsEmpty();
      break;
    }
    case 1:
    case 0:
      // A UNC name "\\host\share\..." (or with "/"), a drive "C:" (with
      // the separator after it when the text says it is a PC path), or a
      // text that is already ours. A stored PC path is taken with either
      // separator at its head: both spell a UNC name on that system.
      sep = '\\';
      if ((copy[0] == '\\' && copy[1] == '\\') || (copy[0] == kSep && copy[1] == kSep)) {
        RemoveUncHead(copy, copy[0]);
      } else if (code == 1 && copy[1] == ':') {
        RemoveHead(copy, 3);
      } else if (code == 0 && copy[0] != kSep && copy[1] == ':' && copy.FindNextOf(':', 2) < 0) {
        // The drive letter goes, the separator after it stays: the path is
        // rooted. A text with further colons is a name that holds them.
        RemoveHead(copy, 2);
      }
      break;
    default:  // 3: our own syntax, as it stands
      break;
  }
  if (sep != kSep) {
    for (int i = copy.FindNextOf(sep); i >= 0; i = copy.FindNextOf(sep, i + 1))
      copy.Replace(i, kSep);
  }
  if (macRootFirst) {
    SetSystemPath(PATHTYPE_Current);
    StripToRoot();
  }
  if (IsRelativePath(copy)) {
    JoinRelativePath(copy);
  } else if (IsEmpty()) {
    Mutable() = copy;
  } else {
    const int n = m_path->GetLength();
    if ((*m_path)[n - 1] != kSep) Mutable() += kSep;
    if (copy[0] == kSep)
      Mutable().Append(copy, 1, 0x7FFFFFFF);
    else
      Mutable() += copy;
  }
  const int n = m_path->GetLength();
  if (n > 1 && (*m_path)[n - 1] == kSep) Mutable().Truncate(n - 1);
}

void FILEPATH::JoinRelativePath(const VOSTRING& relText) {
  const VOSTRING rel(relText);  // relText may be this path's own
  if (IsEmpty()) SetSystemPath(PATHTYPE_Current);
  const int relLength = rel.GetLength();
  if (relLength == 0 || (relLength == 1 && rel[0] == s_RelMark)) return;
  if (rel[0] == s_RelMark && rel[1] == kSep) {  // "./rest"
    if (IsFile()) StripLastComponent();
    const int n = m_path->GetLength();
    // "./" on "/" (or on a path ending in "/") adds no second separator.
    Mutable().Append(rel, n > 0 && (*m_path)[n - 1] == kSep ? 2 : 1, 0x7FFFFFFF);
  } else {
    // Climb one folder for each leading "../" (and for a ".." that is all
    // of rel). A rooted path stops at its root; a path without one climbs
    // to nothing, so that "a" and "../b" give "b".
    int end = IsPathOnly() ? m_path->GetLength() : m_path->FindPrevOf(kSep);
    int at = 0;
    for (;;) {
      const bool tag = rel[at] == s_RelMark && rel[at + 1] == s_RelMark &&
                       (rel[at + 2] == kSep || at + 2 == relLength);
      if (!tag) break;
      const int up = end > 0 ? m_path->FindPrevOf(kSep, end - 1) : -1;
      if (up >= 0)
        end = up;
      else if ((*m_path)[0] != kSep)
        end = -1;
      at += rel[at + 2] == kSep ? 3 : 2;
      if (at >= relLength) break;
    }
    if (at == 0) {  // no tag at all: rel is a plain name
      if (!IsEmpty() && (*m_path)[m_path->GetLength() - 1] != kSep) Mutable() += kSep;
      Mutable() += rel;
    } else {
      VOSTRING result;
      if (end >= 0) {
        result.Assign(*m_path, 0, end < m_path->GetLength() ? end : 0x7FFFFFFF);
        if (end >= m_path->GetLength() && at < relLength) result += kSep;
      }
      result.Append(rel, at, 0x7FFFFFFF);
      Mutable() = result;
    }
  }
  const int n = m_path->GetLength();
  if (n > 1 && (*m_path)[n - 1] == kSep) Mutable().Truncate(n - 1);
}

// ---------------------------------------------------------------- forms

VOSTRING FILEPATH::GetVioPath() const {
  return *m_path;
}

VOSTRING FILEPATH::GetOSPath() const {
  return *m_path;
}

char* FILEPATH::GenerateOSPath() const {
  if (IsEmpty()) return nullptr;
  return m_path->GetEncoded(kOsTextEncoding);
}

char* FILEPATH::GenerateEncodedOSPath() const {
  return GenerateOSPath();
}

VOSTRING FILEPATH::GetEncoded() const {
  VOSTRING s(s_EncodeStr);
  s += *m_path;
  return s;
}

VOSTRING FILEPATH::GetDisplay() const {
  const VOSTRING& p = *m_path;
  int colon = p.FindNextOf(':');
  if (colon < 0) return p;
  VOSTRING out;
  int pos = 0;
  while (colon >= 0) {
    const int start = p.FindPrevOf(kSep, colon) + 1;  // the component holding it
    int end = p.FindNextOf(kSep, colon);
    if (end < 0) end = p.GetLength();
    if (start > pos) out.Append(p, pos, start - 1);
    out += '"';
    out += ConvertNameToDisplay(p.GetSubString(start, end - 1));
    out += '"';
    pos = end;
    colon = p.FindNextOf(':', pos);
  }
  out.Append(p, pos, 0x7FFFFFFF);
  return out;
}

VOSTRING FILEPATH::GetQuotedPath() const {
  const VOSTRING& p = *m_path;
  const int n = p.GetLength();
  VOSTRING out;
  bool open = false;
  for (int i = 0; i < n; ++i) {
    if (p[i] == kSep) {
      if (open) out += '"';
      open = false;
      out += kSep;
      int end = p.FindNextOf(kSep, i + 1);
      if (end < 0) end = n;
      for (int k = i + 1; k < end; ++k)
        if (p[k] == ' ') {
          out += '"';
          open = true;
          break;
        }
      continue;
    }
    out += p[i];
  }
  if (open) out += '"';
  return out;
}

VOSTRING FILEPATH::ConvertNameToDisplay(const VOSTRING& name) {
  VOSTRING s(name);
  const int n = s.GetLength();
  for (int i = 0; i < n; ++i)
    if (s[i] == ':') s.Replace(i, kSep);
  return s;
}

void FILEPATH::GetWindowsFolderPath(int) {
  Clear();
}

// ---------------------------------------------------------------- relative paths

// The walk compares the two paths a component at a time, up to the first
// component they don't share. The base then climbs one "../" for each
// separator it has from the end of the shared part on, and this path's rest
// follows. (Counting only the separators from where the walk stopped, or
// taking the rest from before a shared last component, would climb one
// folder short or name a component twice: the relative path appended to the
// base must name this path.)
VOSTRING FILEPATH::GetRelativePath(const FILEPATH& baseIn) const {
  if (IsEmpty() || baseIn.IsEmpty()) return VOSTRING();
  if (IsEqual(baseIn)) return VOSTRING(".");
  FILEPATH base(baseIn);
  if (base.IsFile()) base.StripLastComponent();
  const VOSTRING& t = *m_path;
  const VOSTRING& b = *base.m_path;
  if (t[0] != kSep || b[0] != kSep) return GetEncoded();  // only rooted paths share a root
  const int tn = t.GetLength(), bn = b.GetLength();
  int start = 0, ti = 0, bi = 0;
  bool lastEqual = false;
  for (;;) {
    start = ti;
    ti = t.FindNextOf(kSep, ti + 1);
    if (ti < 0) ti = tn;
    bi = b.FindNextOf(kSep, bi + 1);
    if (bi < 0) bi = bn;
    lastEqual = ti == bi && t.CompareNoCase(start + 1, b, start + 1, ti - start - 1) == 0;
    if (!lastEqual || ti >= tn || bi >= bn) break;
  }
  const int shared = lastEqual ? ti : start;  // the separator (or end) after the shared part
  if (shared == 0) return GetEncoded();
  int climbs = 0;
  for (int k = shared; k < bn; ++k)
    if (b[k] == kSep) ++climbs;
  VOSTRING rel(s_EncodeStr);
  if (climbs == 0) rel += s_SameDirStr;
  for (int k = 0; k < climbs; ++k) rel += s_BackTagStr;
  rel.Append(t, shared + 1, 0x7FFFFFFF);
  return rel;
}

VOSTRING FILEPATH::GetRelativePath(PATHTYPE type) const {
  return GetRelativePath(FILEPATH(type));
}

const char* const MacCreatorCodes[][3] = {
    {".txt", "ttxt", "TEXT"},  {".ini", "ttxt", "TEXT"},   {".mpg", "TVOD", "MPEG"},
    {".mpeg", "TVOD", "MPEG"}, {".xsq", "ZPZp", "XSQf"},   {".jpg", "JVWR", "JPEG"},
    {".jpeg", "JVWR", "JPEG"}, {".mov", "ttxt", "MOOV"},   {".pdf", "CARO", "PDF "},
    {".sit", "SIT!", "SITD"},  {".hqx", "SITX", "TEXT"},   {".htm", "MSIE", "HTML"},
    {".html", "MSIE", "HTML"}, {nullptr, nullptr, nullptr}};
