// Colours by name: percentages, the built-in names, and the names of the
// reference file "rgb.txt".
//
// "rgb.txt" holds one colour a line, "red green blue name" with components
// of 0 to 255 and a name that runs to the end of the line, blanks included;
// other lines ("!" comments) add nothing. It is read on the first name the
// built-in table doesn't know, once per process whether or not it is found
// (a function-local static, so a first use from several threads reads it
// once), into an array sorted by name ignoring case, in which a binary
// search finds a name; of names that differ only in case the first in the
// file stays. Its components are scaled with a maximum of 256, not 255, so
// that 255 becomes 65279 and those colours are told apart from the
// built-in ones.
#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "values/color_priv.h"
#include "vosystem/color.h"
#include "vosystem/errors.h"
#include "vosystem/filefind.h"
#include "vosystem/filepath.h"
#include "vosystem/ucstring.h"
#include "vosystem/viofuncs.h"
#include "vosystem/vostring.h"

namespace {

struct BUILTIN {
  const char* name;
  COLOR::NAME color;
};

const BUILTIN kBuiltin[] = {
    {"black", COLOR::NAME_Black},
    {"red", COLOR::NAME_Red},
    {"green", COLOR::NAME_Green},
    {"blue", COLOR::NAME_Blue},
    {"cyan", COLOR::NAME_Cyan},
    {"magenta", COLOR::NAME_Magenta},
    {"yellow", COLOR::NAME_Yellow},
    {"white", COLOR::NAME_White},
    {"orange", COLOR::NAME_Orange},
    {"gray", COLOR::NAME_Gray},
    {"grey", COLOR::NAME_Grey},
    // Both are usually written as 0xRRGGBB (0xA52A2A, 0xA020F0); packed
    // here, like every name, as 0x00BBGGRR.
    {"brown", COLOR::NAME_Brown},
    {"purple", COLOR::NAME_Purple},
};

bool SameNoCase(const char* a, const char* b) {
  for (;; ++a, ++b) {
    char x = *a, y = *b;
    if (x >= 'A' && x <= 'Z') x = static_cast<char>(x + 32);
    if (y >= 'A' && y <= 'Z') y = static_cast<char>(y + 32);
    if (x != y) return false;
    if (!x) return true;
  }
}

bool IsBlank(char c) {
  return c == ' ' || c == '\t' || c == '\n' || c == '\v' || c == '\f' || c == '\r';
}

// One "%d" at p, as sscanf reads it: white space, a sign, digits; clamped
// to the range of int.
bool ReadInt(const char*& p, int* value) {
  const char* q = p;
  while (IsBlank(*q)) ++q;
  bool negative = false;
  if (*q == '+' || *q == '-') negative = *q++ == '-';
  if (*q < '0' || *q > '9') return false;
  long long v = 0;
  for (; *q >= '0' && *q <= '9'; ++q)
    if (v <= INT32_MAX) v = v * 10 + (*q - '0');
  if (negative) v = -v;
  *value = v > INT32_MAX ? INT32_MAX : v < INT32_MIN ? INT32_MIN : static_cast<int>(v);
  p = q;
  return true;
}

struct ENTRY {
  unsigned short* name;  // the line's bytes widened, on the heap
  COLOR color;
  int line;  // order in the file, to keep the first of equal names
};

class RGBTABLE {
 public:
  RGBTABLE() { Load(); }
  ~RGBTABLE() {
    for (int i = 0; i < m_count; ++i) free(m_entries[i].name);
    free(m_entries);
  }
  RGBTABLE(const RGBTABLE&) = delete;
  RGBTABLE& operator=(const RGBTABLE&) = delete;

  const COLOR* Find(const unsigned short* name) const {
    const ENTRY* end = m_entries + m_count;
    const ENTRY* at = std::lower_bound(
        static_cast<const ENTRY*>(m_entries), end, name,
        [](const ENTRY& e, const unsigned short* n) { return ucstricmp(e.name, n) < 0; });
    return at != end && ucstricmp(at->name, name) == 0 ? &at->color : nullptr;
  }

 private:
  void Load() {
    // Failing to find or read the file is no error of the caller's.
    ERRPOSN_DISABLER quiet;
    FILEPATH path;
    if (!FILEFIND::LocateReferenceFile("rgb.txt", path, 0)) return;
    FILE* fp = nullptr;
    if (VioOpen(path.GetVioPath(), "r", &fp) < 0 || !fp) return;
    char line[256];
    for (int n = 0; VioGetStr(line, sizeof line, fp) >= 0; ++n) Add(line, n);
    fclose(fp);
    std::sort(m_entries, m_entries + m_count, [](const ENTRY& a, const ENTRY& b) {
      const int c = ucstricmp(a.name, b.name);
      return c != 0 ? c < 0 : a.line < b.line;
    });
    int kept = 0;
    for (int i = 0; i < m_count; ++i) {
      if (kept > 0 && ucstricmp(m_entries[kept - 1].name, m_entries[i].name) == 0)
        free(m_entries[i].name);
      else
        m_entries[kept++] = m_entries[i];
    }
    m_count = kept;
  }

  // " %d %d %d %[^\r\n]": three integers, then the name to the line's end.
  void Add(const char* line, int order) {
    const char* p = line;
    int rgb[3];
    for (int& v : rgb)
      if (!ReadInt(p, &v)) return;
    while (IsBlank(*p)) ++p;
    const size_t n = strcspn(p, "\r\n");
    if (n == 0) return;
    if (m_count == m_capacity) {
      const int capacity = m_capacity ? 2 * m_capacity : 512;
      void* grown = realloc(m_entries, sizeof(ENTRY) * static_cast<size_t>(capacity));
      if (!grown) return;
      m_entries = static_cast<ENTRY*>(grown);
      m_capacity = capacity;
    }
    unsigned short* name = static_cast<unsigned short*>(malloc((n + 1) * sizeof(unsigned short)));
    if (!name) return;
    for (size_t i = 0; i < n; ++i) name[i] = static_cast<unsigned char>(p[i]);
    name[n] = 0;
    ENTRY& e = m_entries[m_count++];
    e.name = name;
    e.color = COLOR();
    e.color.SetRGB(rgb[0], rgb[1], rgb[2], 256);
    e.line = order;
  }

  ENTRY* m_entries = nullptr;
  int m_count = 0;
  int m_capacity = 0;
};

const RGBTABLE& RgbTable() {
  static const RGBTABLE table;
  return table;
}

// Three numbers by "%u" separated as sep says: ' ' lets any white space
// (or none) stand between them, ',' wants a comma right behind a number.
bool ReadThree(const char* text, char sep, uint32_t v[3]) {
  const char* p = text;
  for (int i = 0; i < 3; ++i) {
    if (i > 0 && sep != ' ' && *p++ != sep) return false;
    if (!ReadUnsigned(p, &v[i])) return false;
  }
  return true;
}

}  // namespace

int COLOR::SetByName(const char* name) {
  if (!name) return 0;
  uint32_t v[3];
  if (ReadThree(name, ' ', v) || ReadThree(name, ',', v)) {
    SetRGB(static_cast<int>(v[0]), static_cast<int>(v[1]), static_cast<int>(v[2]), 100);
    return 1;
  }
  for (const BUILTIN& b : kBuiltin) {
    if (SameNoCase(name, b.name)) {
      *this = b.color;
      return 1;
    }
  }
  const COLOR* found = RgbTable().Find(VOSTRING(name));
  if (!found) return 0;
  SetRGB(*found);
  return 1;
}
