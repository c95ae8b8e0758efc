// The text of a settings store: finding groups and fields, reading a value,
// and the edits, all within the text's length (values may hold zero bytes).
//
// A group header is a line whose first character after blanks is "[": the
// name follows and a "]" must stand right after it. Only line starts count,
// as they do for the field search, which stops at such a line: a "[" inside
// a value never starts a group, and a comment line (whatever it holds)
// never matches a group, since it starts with "#". A header that is the last
// line of the text has no line for its first field and counts as absent
// (so a write then adds a group of the same name at the end). Of several
// headers of one name the first with a field line is the group: the one
// that a write added after such a last line is found again.
//
// A value runs from the "=" to the first line feed that isn't a
// continuation ("\" before it and "\" after it), without the white space at
// either end. In a value of several lines each "\", line feed, "\" reads as
// a line feed, and so does any other "\" followed by a character.
//
// Edits keep the text ending in a line feed. A shorter value overwrites the
// old one and blanks fill the rest of its span, so the text doesn't shrink;
// a longer one moves the text behind it.
static const char s_ident[] = "@(#) initext.cpp 1.0";

#include <cstdlib>
#include <cstring>

#include "foundation/errpos.h"
#include "settings/inistore.h"
#include "vosystem/memfunc.h"
#include "vosystem/ucstring.h"

namespace {

bool IsBlank(char c) {
  return c == ' ' || c == '\t' || c == '\r' || c == '\v' || c == '\f';
}

bool IsSpace(char c) {
  return IsBlank(c) || c == '\n';
}

char Lower(char c) {
  return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

// ASCII case only: a name's bytes mean the same under every locale.
bool EqualNoCase(const char* a, const char* b, size_t n) {
  for (size_t i = 0; i < n; ++i)
    if (Lower(a[i]) != Lower(b[i])) return false;
  return true;
}

const char* NextLine(const char* p, const char* end) {
  const char* lf = static_cast<const char*>(memchr(p, '\n', static_cast<size_t>(end - p)));
  return lf ? lf + 1 : nullptr;
}

// A name the format can write and find again: a field name of 1 to 255
// bytes without "=" or line end, not starting with "[" or a blank; a group
// name without "]" or line end.
bool IsFieldName(const char* name) {
  const size_t n = strlen(name);
  return n >= 1 && n <= INIHNDPRIV::kMaxFieldName && !strpbrk(name, "=\n\r") && name[0] != '[' &&
         !IsBlank(name[0]);
}

bool IsGroupName(const char* name) {
  return !strpbrk(name, "]\n\r");
}

}  // namespace

// The "["s of the text are few: the search jumps from one to the next and
// looks back for the line start, rather than walking every line.
char* INIHNDPRIV::FindGroupHeader(const char* group) {
  if (!m_buffer || !group) return nullptr;
  const size_t n = strlen(group);
  const char* end = m_buffer + m_size;
  const char* usable = nullptr;  // the first header with a line after it
  for (const char* q = m_buffer;
       (q = static_cast<const char*>(memchr(q, '[', static_cast<size_t>(end - q)))); ++q) {
    const char* b = q;
    while (b > m_buffer && IsBlank(b[-1])) --b;
    if (b > m_buffer && b[-1] != '\n') continue;  // not the first character of its line
    // The "]" behind the name must lie inside the text.
    if (static_cast<size_t>(end - q - 1) <= n || q[1 + n] != ']' || !EqualNoCase(q + 1, group, n))
      continue;
    const char* body = NextLine(q, end);
    if (!body || body >= end) break;  // the last line: nothing can follow
    if (!usable) usable = q;
    // A header with no field before the next header (a group written
    // again after a header that ended the text) yields to a later one of
    // the same name; if none has fields, the first one counts.
    const char* f = body;
    while (f < end && IsSpace(*f)) ++f;
    if (f < end && *f != '[') return const_cast<char*>(q);
  }
  return const_cast<char*>(usable);
}

char* INIHNDPRIV::FindGroup(const char* group) {
  const char* header = FindGroupHeader(GroupOrAppName(group));
  return header ? const_cast<char*>(NextLine(header, m_buffer + m_size)) : nullptr;
}

char* INIHNDPRIV::FindNextGroup(char* from) {
  if (!from) return nullptr;
  const char* end = m_buffer + m_size;
  for (const char* p = from; p && p < end; p = NextLine(p, end)) {
    const char* q = p;
    while (q < end && IsBlank(*q)) ++q;
    if (q < end && *q == '[') {
      const char* lf = static_cast<const char*>(memchr(q, '\n', static_cast<size_t>(end - q)));
      if (memchr(q, ']', static_cast<size_t>((lf ? lf : end) - q))) return const_cast<char*>(q);
    }
  }
  return nullptr;
}

char* INIHNDPRIV::FindField(char* groupstart, const char* field) {
  if (!groupstart || !field) return nullptr;
  const size_t n = strlen(field);
  if (n == 0 || n > kMaxFieldName) return nullptr;
  const char* end = m_buffer + m_size;
  const char* p = groupstart;
  for (;;) {
    while (p < end && IsSpace(*p)) ++p;  // blank lines too
    if (p >= end || *p == '[') return nullptr;
    if (static_cast<size_t>(end - p) > n && EqualNoCase(p, field, n)) {
      const char* q = p + n;
      while (q < end && IsBlank(*q)) ++q;
      if (q < end && *q == '=') return const_cast<char*>(q + 1);
    }
    p = NextLine(p, end);
    if (!p) return nullptr;
  }
}

const char* INIHNDPRIV::ValueEnd(const char* value, int* lines) const {
  const char* end = m_buffer + m_size;
  *lines = 1;
  for (const char* p = value;;) {
    const char* lf = static_cast<const char*>(memchr(p, '\n', static_cast<size_t>(end - p)));
    if (!lf) return end;
    if (lf > value && lf[-1] == '\\' && lf + 1 < end && lf[1] == '\\') {
      ++*lines;
      p = lf + 1;
      continue;
    }
    return lf;
  }
}

int INIHNDPRIV::GetString(char* value, void** out, char** next) {
  *out = nullptr;
  const char* end = m_buffer + m_size;
  const char* p = value;
  while (p < end && *p != '\n' && IsBlank(*p)) ++p;
  int lines = 0;
  const char* stop = ValueEnd(p, &lines);
  if (next) *next = const_cast<char*>(stop < end ? stop + 1 : end);
  while (stop > p && IsBlank(stop[-1])) --stop;
  long n = static_cast<long>(stop - p);
  char* copy = nullptr;
  const int rc = MmAllocC(&copy, static_cast<unsigned long>(n + 1));
  if (rc < 0) return PASSERR(rc);
  memcpy(copy, p, static_cast<size_t>(n));
  if (lines > 1) {
    long w = 0;
    for (long r = 0; r < n; ++r) {
      if (copy[r] == '\\' && r + 1 < n) {
        copy[w++] = '\n';
        if (copy[r + 1] == '\n' && r + 2 < n && copy[r + 2] == '\\') r += 2;
      } else {
        copy[w++] = copy[r];
      }
    }
    memset(copy + w, 0, static_cast<size_t>(n - w));
    n = w;
  }
  *out = copy;
  return static_cast<int>(n);
}

int INIHNDPRIV::Replace(long at, long old, const char* text, long n) {
  const long size = m_size - old + n;
  if (size + 1 > m_capacity) {
    long capacity = m_capacity + m_capacity / 2;
    if (capacity < size + 1) capacity = size + 1;
    const int rc = MmRealloc(&m_buffer, static_cast<unsigned long>(capacity));
    if (rc < 0) return PASSERR(rc);
    m_capacity = capacity;
  }
  memmove(m_buffer + at + n, m_buffer + at + old, static_cast<size_t>(m_size - at - old));
  if (n > 0) memcpy(m_buffer + at, text, static_cast<size_t>(n));
  m_size = size;
  m_buffer[m_size] = 0;
  return 0;
}

int INIHNDPRIV::PutString(const char* group, const char* field, const void* value,
                          unsigned long type, long length) {
  if (!field || !value) return SETERR(VOERROR_InvalidArgument);
  if (m_readOnly) {
    const int rc = SETERR(VOERROR_PermissionDenied);
    PushErrFileName(GetDisplayName());
    return rc;
  }
  group = GroupOrAppName(group);
  if (!IsFieldName(field) || !IsGroupName(group)) return SETERR(VOERROR_InvalidArgument);
  char* converted = nullptr;
  const char* text = static_cast<const char*>(value);
  long n = length;
  if (type == 12) {
    const int rc = MucConvertUnicodeToUTF8(static_cast<const unsigned short*>(value), &converted);
    if (rc < 0) return PASSERR(rc);
    text = converted;
    n = rc - 1;
  } else if (n < 0) {
    n = static_cast<long>(strlen(text));
  }
  int rc = LoadFile();
  if (rc >= 0) {
    const long fieldLen = static_cast<long>(strlen(field));
    char* body = FindGroup(group);
    char* at = body ? FindField(body, field) : nullptr;
    if (at) {
      int lines = 0;
      const long from = at - m_buffer;
      const long span = ValueEnd(at, &lines) - at;
      if (n >= span) {
        rc = Replace(from, span, text, n);
      } else {
        memcpy(at, text, static_cast<size_t>(n));
        memset(at + n, ' ', static_cast<size_t>(span - n));
      }
    } else {
      // A new field is the group's first line; a new group goes at the end.
      const long groupLen = body ? 0 : static_cast<long>(strlen(group));
      const long lineLen = (body ? 0 : groupLen + 4) + fieldLen + 1 + n + 1;
      char* line = nullptr;
      rc = MmAlloc(&line, static_cast<unsigned long>(lineLen));
      if (rc >= 0) {
        char* w = line;
        if (!body) {
          *w++ = '\n';
          *w++ = '[';
          memcpy(w, group, static_cast<size_t>(groupLen));
          w += groupLen;
          *w++ = ']';
          *w++ = '\n';
        }
        memcpy(w, field, static_cast<size_t>(fieldLen));
        w += fieldLen;
        *w++ = '=';
        memcpy(w, text, static_cast<size_t>(n));
        w += n;
        *w++ = '\n';
        rc = Replace(body ? body - m_buffer : m_size, 0, line, lineLen);
        free(line);
      }
    }
  }
  free(converted);
  return rc < 0 ? PASSERR(rc) : 0;
}

int INIHNDPRIV::RemoveField(const char* group, const char* field) {
  int rc = LoadFile();
  if (rc < 0) return PASSERR(rc);
  char* body = FindGroup(group);
  char* at = body ? FindField(body, field) : nullptr;
  if (!at) return -1;
  int lines = 0;
  const char* stop = ValueEnd(at, &lines);
  if (stop == m_buffer + m_size) return -1;
  // From the line feed before the field's line up to the value's own.
  const char* lf = at - 1;
  while (lf > m_buffer && *lf != '\n') --lf;
  return Replace(lf - m_buffer, stop - lf, nullptr, 0);
}

int INIHNDPRIV::DeleteField(const char* group, const char* field) {
  int rc = BeginChange();
  if (rc >= 0) {
    rc = RemoveField(group, field);
    if (rc >= 0) rc = SaveFile();
  }
  EndChange();
  return rc < -1 ? PASSERR(rc) : rc;
}

int INIHNDPRIV::DeleteGroup(const char* group) {
  int rc = BeginChange();
  if (rc >= 0) rc = LoadFile();
  char* body = rc >= 0 ? FindGroup(group) : nullptr;
  if (rc >= 0 && !body) rc = -1;
  if (rc >= 0) {
    const char* end = m_buffer + m_size;
    const char* header = FindGroupHeader(GroupOrAppName(group));
    const char* line = header;
    while (line > m_buffer && line[-1] != '\n') --line;
    const char* from = line > m_buffer ? line - 1 : line;
    // The header's group runs to the line before the next header; a group
    // without fields has that header as its first line, and so loses just
    // its own header line.
    const char* next = FindNextGroup(body);
    const char* to = end;
    if (next) {
      while (next > m_buffer && next[-1] != '\n') --next;
      to = next - 1;
    }
    rc = Replace(from - m_buffer, to - from, nullptr, 0);
    if (rc >= 0) rc = SaveFile();
  }
  EndChange();
  return rc < -1 ? PASSERR(rc) : rc;
}

int INIHNDPRIV::SetBuffer(const unsigned short* text) {
  if (!text || !m_memoryOnly) return SETERR(VOERROR_InvalidArgument);
  char* utf8 = nullptr;
  const int rc = MucConvertUnicodeToUTF8(text, &utf8);
  if (rc < 0) return PASSERR(rc);
  long size = rc - 1;
  // The text ends in a line feed, as a loaded file does: the last field is
  // found whether the caller's text ended its line or not.
  if (size > 0 && utf8[size - 1] != '\n') {
    const int grown = MmRealloc(&utf8, static_cast<unsigned long>(size + 2));
    if (grown < 0) {
      free(utf8);
      return PASSERR(grown);
    }
    utf8[size++] = '\n';
    utf8[size] = 0;
  }
  TakeText(utf8, size, size + 1);
  return 0;
}

int INIHNDPRIV::GetBuffer(unsigned short** text) {
  if (!text) return SETERR(VOERROR_InvalidArgument);
  *text = nullptr;
  if (!m_memoryOnly) return SETERR(VOERROR_InvalidArgument);
  unsigned short* units = nullptr;
  int rc = MmAllocC(&units, static_cast<unsigned long>(m_size + 1) * sizeof(unsigned short));
  if (rc < 0) return PASSERR(rc);
  const unsigned char* from = reinterpret_cast<const unsigned char*>(m_buffer);
  unsigned short* to = units;
  if (m_size > 0) ConvertUTF8toUTF16(&from, from + m_size, &to, units + m_size);
  *to = 0;
  *text = units;
  return static_cast<int>(to - units);
}
