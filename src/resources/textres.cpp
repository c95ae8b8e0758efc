// The resource manager: the open resource files in search order, and the
// maps of texts by name.
//
// The file added last is asked first. After Initialize the order is the
// language's file, then "textres.enu", so a partial translation falls back
// to English entry by entry. Lookups by name ask the maps first: they hold
// the texts of XML override files and every text by name already read from
// a file (help texts excepted, which are long and seldom asked twice).
// Lookups by number go to the files, whose own caches make a second lookup
// an array read and a copy.
//
// Every text handed out is a string with a body of its own, never a copy
// sharing the body of a map entry: bodies count their handles without
// atomics, and a text taken here may well end up in another thread.
static const char s_ident[] = "@(#) textres.cpp 1.0";

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>

#include "foundation/errpos.h"
#include "resources/textres_priv.h"
#include "vosystem/filefind.h"
#include "vosystem/filepath.h"
#include "vosystem/ucconv.h"

namespace {

const char kEnglishFile[] = "textres.enu";
const char* const kSetWord[4] = {"", " label", " title", " help"};

bool IsNameSet(TEXTRES_NAMESET set) {
  return set >= TEXTRES_NAMESET_Text && set <= TEXTRES_NAMESET_Help;
}

// A language code becomes part of a file name: nothing that could make it
// a path, or an empty one.
bool IsLanguageCode(const VOSTRING& value) {
  const int n = value.GetLength();
  if (n < 1 || n > 16) return false;
  for (int i = 0; i < n; ++i) {
    const unsigned short c = value[i];
    if (!((c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '-' ||
          c == '_'))
      return false;
  }
  return true;
}

VOSTRING UnknownErrorText(int id) {
  char text[48];
  snprintf(text, sizeof text, "Unknown error code (%d)", id);
  return VOSTRING(text);
}

// A string with a body of its own.
VOSTRING Detached(const VOSTRING& text) {
  return VOSTRING(text.GetReference());
}

uint32_t HashName(const char* name) {
  uint32_t h = 2166136261u;  // FNV-1a
  for (const unsigned char* p = reinterpret_cast<const unsigned char*>(name); *p; ++p)
    h = (h ^ *p) * 16777619u;
  return h;
}

PRIV_textres* g_instance = nullptr;
bool g_gone = false;

void DestroyInstance() {
  PRIV_textres* instance = g_instance;
  g_instance = nullptr;
  g_gone = true;
  delete instance;
}

}  // namespace

// ---------------------------------------------------------------- names

VOSTRING UnknownNameText(const VOSTRING& name, TEXTRES_NAMESET set) {
  VOSTRING text("Unknown");
  text += kSetWord[IsNameSet(set) ? set : 0];
  text += " text '";
  text += name;
  text += "'";
  return text;
}

bool JoinName(const char* group, const char* name, char* out) {
  if (!group) group = "generic";
  if (!name) name = "";
  const size_t g = strlen(group), n = strlen(name);
  if (g + 1 + n >= static_cast<size_t>(RESFILE::kNameMax)) return false;
  memcpy(out, group, g);
  out[g] = '.';
  memcpy(out + g + 1, name, n + 1);
  return true;
}

VOSTRING JoinedNameText(const char* group, const char* name) {
  VOSTRING text(group ? group : "generic", CHAR_ENCODING_UTF8);
  text += ".";
  text += VOSTRING(name ? name : "", CHAR_ENCODING_UTF8);
  return text;
}

// ---------------------------------------------------------------- NAMEMAP

NAMEMAP::~NAMEMAP() {
  for (int i = 0; i < m_capacity; ++i) {
    if (!m_slots[i]) continue;
    free(m_slots[i]->name);
    delete m_slots[i];
  }
  delete[] m_slots;
}

NAMEMAP::ENTRY** NAMEMAP::FindSlot(const char* name, uint32_t hash) const {
  const unsigned mask = static_cast<unsigned>(m_capacity - 1);
  for (unsigned i = hash & mask;; i = (i + 1) & mask) {
    ENTRY** slot = &m_slots[i];
    if (!*slot || ((*slot)->hash == hash && strcmp((*slot)->name, name) == 0)) return slot;
  }
}

const VOSTRING* NAMEMAP::Find(const char* name) const {
  if (!m_count) return nullptr;
  ENTRY* entry = *FindSlot(name, HashName(name));
  return entry ? &entry->text : nullptr;
}

int NAMEMAP::Grow() {
  const int capacity = m_capacity ? 2 * m_capacity : 32;
  ENTRY** slots = new (std::nothrow) ENTRY*[capacity]();
  if (!slots) {
    const int rc = SETERR(VOERROR_OutOfMemory);
    GetErrString() << static_cast<unsigned long>(capacity * sizeof(ENTRY*));
    return rc;
  }
  ENTRY** old = m_slots;
  const int oldCapacity = m_capacity;
  m_slots = slots;
  m_capacity = capacity;
  for (int i = 0; i < oldCapacity; ++i)
    if (old[i]) *FindSlot(old[i]->name, old[i]->hash) = old[i];
  delete[] old;
  return 0;
}

int NAMEMAP::Set(const char* name, const VOSTRING& text) {
  const uint32_t hash = HashName(name);
  if (m_count) {
    ENTRY* entry = *FindSlot(name, hash);
    if (entry) {
      entry->text = Detached(text);
      return 0;
    }
  }
  if (2 * (m_count + 1) > m_capacity) {
    const int rc = Grow();
    if (rc < 0) return PASSERR(rc);
  }
  const size_t length = strlen(name);
  ENTRY* entry = new (std::nothrow) ENTRY{nullptr, hash, Detached(text)};
  char* copy = static_cast<char*>(malloc(length + 1));
  if (!entry || !copy) {
    delete entry;
    free(copy);
    const int rc = SETERR(VOERROR_OutOfMemory);
    GetErrString() << static_cast<unsigned long>(sizeof(ENTRY) + length + 1);
    return rc;
  }
  memcpy(copy, name, length + 1);
  entry->name = copy;
  *FindSlot(name, hash) = entry;
  ++m_count;
  return 0;
}

int NAMEMAP::GetSorted(SIMPLE_ARRAY<const ENTRY*>& out) const {
  const int rc = out.Resize(m_count, false, false);
  if (rc < 0) return PASSERR(rc);
  int n = 0;
  for (int i = 0; i < m_capacity; ++i)
    if (m_slots[i]) out[n++] = m_slots[i];
  const ENTRY** first = out.GetPointer();
  std::sort(first, first + n,
            [](const ENTRY* a, const ENTRY* b) { return strcmp(a->name, b->name) < 0; });
  return 0;
}

// ---------------------------------------------------------------- the object

PRIV_textres* PRIV_textres::GetInstance() {
  // Made once, also when threads ask at once; its end is a process-exit
  // handler, after which the manager answers as one without files.
  static PRIV_textres* s_made = [] {
    PRIV_textres* made = new (std::nothrow) PRIV_textres;
    if (made) {
      g_instance = made;
      atexit(DestroyInstance);
    }
    return made;
  }();
  return g_gone ? nullptr : s_made;
}

PRIV_textres::~PRIV_textres() {
  ERRPOSN_DISABLER quiet;
  for (RESFILE* file : m_files) delete file;
}

int PRIV_textres::Initialize() {
  if (m_initialized) return 1;
  m_initialized = 1;  // a failed start-up isn't tried again
  ERRPOSN_DISABLER quiet;
  FILEPATH path;
  if (!FILEFIND::LocateReferenceFile(kEnglishFile, path, 0) || AddFile(path) < 0) return 0;
  VOSTRING language;
  if (!language.IniRead(nullptr, "locale", "language")) return 1;
  if (!IsLanguageCode(language) || language.CompareNoCase(VOSTRING("enu")) == 0) return 1;
  VOSTRING name("textres.");
  name += language;
  // Without the language's file, English alone answers.
  if (FILEFIND::LocateReferenceFile(name, path, 0)) AddFile(path);
  return 1;
}

int PRIV_textres::AddFile(const FILEPATH& path) {
  RESFILE* file = new (std::nothrow) RESFILE;
  if (!file) {
    const int rc = SETERR(VOERROR_OutOfMemory);
    GetErrString() << static_cast<unsigned long>(sizeof(RESFILE));
    return rc;
  }
  int rc = m_files.AddHead(file);
  if (rc < 0) {
    delete file;
    return PASSERR(rc);
  }
  ++m_fileCount;
  rc = file->Open(path);
  if (rc < 0) {
    m_files.RemoveHead();
    --m_fileCount;
    ERRPOSN_DISABLER quiet;
    delete file;
    return rc;
  }
  return 0;
}

VOSTRING PRIV_textres::GetString(int id) {
  VOSTRING text;
  if (id == 0) return text;
  for (RESFILE* file : m_files)
    if (file->GetString(id, text)) return text;
  return id < 0 ? UnknownErrorText(id) : text;
}

VOSTRING PRIV_textres::GetString(const char* name, TEXTRES_NAMESET set, bool nameIfMissing) {
  VOSTRING text;
  if (!name || !*name || !IsNameSet(set)) return text;
  if (const VOSTRING* known = m_maps[set].Find(name)) return Detached(*known);
  for (RESFILE* file : m_files) {
    if (!file->GetString(name, set, text)) continue;
    // Remembering is an optimisation: a map that can't grow still answers.
    if (set != TEXTRES_NAMESET_Help) {
      ERRPOSN_DISABLER quiet;
      m_maps[set].Set(name, text);
    }
    return text;
  }
  const VOSTRING shown(name, CHAR_ENCODING_UTF8);
  return nameIfMissing ? shown : UnknownNameText(shown, set);
}

int PRIV_textres::HasEntry(const char* name, TEXTRES_NAMESET set) {
  if (!name || !*name || !IsNameSet(set)) return 0;
  if (m_maps[set].Find(name)) return 1;
  for (RESFILE* file : m_files)
    if (file->GetAddr(name, set) > 0) return 1;
  return 0;
}

int PRIV_textres::LoadX(void (*callback)(void*, const char*), void* user) {
  XRESLOADER loader(callback, user);
  // The file added first goes first: the list is walked from its back.
  SIMPLE_ARRAY<RESFILE*> files;
  int rc = files.Resize(m_fileCount, false, false);
  if (rc < 0) return PASSERR(rc);
  int n = 0;
  for (RESFILE* file : m_files) files[n++] = file;
  for (int i = n - 1; i >= 0; --i) {
    rc = files[i]->LoadX(loader);
    if (rc < 0) return PASSERR(rc);
  }
  static const struct {
    TEXTRES_NAMESET set;
    const char* suffix;
  } kMaps[2] = {{TEXTRES_NAMESET_Label, ".labelString"}, {TEXTRES_NAMESET_Title, "_popup.title"}};
  for (const auto& map : kMaps) {
    SIMPLE_ARRAY<const NAMEMAP::ENTRY*> entries;
    rc = m_maps[map.set].GetSorted(entries);
    if (rc < 0) return PASSERR(rc);
    for (int i = 0; i < entries.GetNumUsed(); ++i) {
      rc = loader.PutLine(entries[i]->name, map.suffix, entries[i]->text);
      if (rc < 0) return PASSERR(rc);
    }
  }
  return 0;
}

TEXTRESITEM_PRIV* PRIV_textres::CreateItemPriv(TEXTID id) {
  // Items know the numbers of set 1 only, whatever the id's sign or size.
  for (RESFILE* file : m_files) {
    const long addr = file->GetAddr(id, NUMSET_Small);
    if (addr > 0) return new (std::nothrow) TEXTRESITEM_PRIV_ADDR(file, addr);
  }
  return nullptr;
}

TEXTRESITEM_PRIV* PRIV_textres::CreateItemPriv(const char* name, TEXTRES_NAMESET set) {
  if (!name || !*name || !IsNameSet(set)) return nullptr;
  if (const VOSTRING* known = m_maps[set].Find(name))
    return new (std::nothrow) TEXTRESITEM_PRIV_STR(*known);
  for (RESFILE* file : m_files) {
    const long addr = file->GetAddr(name, set);
    if (addr > 0) return new (std::nothrow) TEXTRESITEM_PRIV_ADDR(file, addr);
  }
  return nullptr;
}

// ---------------------------------------------------------------- TEXTRES

int TEXTRES::Initialize() {
  PRIV_textres* m = PRIV_textres::GetInstance();
  return m ? m->Initialize() : 0;
}

void TEXTRES::Terminate() {}

VOSTRING TEXTRES::GetString(int id) {
  PRIV_textres* m = PRIV_textres::GetInstance();
  if (m) return m->GetString(id);
  return id < 0 ? UnknownErrorText(id) : VOSTRING();
}

VOSTRING TEXTRES::GetString(const char* name, TEXTRES_NAMESET set) {
  return GetString(name, set, false);
}

VOSTRING TEXTRES::GetString(const char* name, TEXTRES_NAMESET set, bool nameIfMissing) {
  PRIV_textres* m = PRIV_textres::GetInstance();
  if (m) return m->GetString(name, set, nameIfMissing);
  if (!name || !*name || !IsNameSet(set)) return VOSTRING();
  const VOSTRING shown(name, CHAR_ENCODING_UTF8);
  return nameIfMissing ? shown : UnknownNameText(shown, set);
}

int TEXTRES::HasEntry(const char* name, TEXTRES_NAMESET set) {
  PRIV_textres* m = PRIV_textres::GetInstance();
  return m ? m->HasEntry(name, set) : 0;
}

int TEXTRES::LoadX(void (*callback)(void*, const char*), void* user) {
  PRIV_textres* m = PRIV_textres::GetInstance();
  if (!m) return 0;
  const int rc = m->LoadX(callback, user);
  return rc < 0 ? PASSERR(rc) : 0;
}

int TEXTRES::ValidateFile(const FILEPATH& path) {
  RESFILE file;
  const int rc = file.Open(path);
  return rc < 0 && rc != VOERROR_ResourceBad ? PASSERR(rc) : rc;
}

// ---------------------------------------------------------------- flat functions

unsigned short* MtTextGetStringExtUC(const char* section, const char* key, int flags) {
  char name[RESFILE::kNameMax];
  if (!JoinName(section, key, name)) {
    // No entry has a name that long.
    if (flags & 1) return nullptr;
    return UnknownNameText(JoinedNameText(section, key), TEXTRES_NAMESET_Text).GetString();
  }
  if ((flags & 1) && !TEXTRES::HasEntry(name, TEXTRES_NAMESET_Text)) return nullptr;
  return TEXTRES::GetString(name, TEXTRES_NAMESET_Text).GetString();
}

unsigned short* MtTextGetStringUC(const char* section, const char* key) {
  return MtTextGetStringExtUC(section, key, 0);
}

// ---------------------------------------------------------------- VOSTRING members

VOSTRING::VOSTRING(const char* group, const char* name) : VOSTRING() {
  char joined[RESFILE::kNameMax];
  if (JoinName(group, name, joined))
    *this = TEXTRES::GetString(joined, TEXTRES_NAMESET_Text);
  else
    *this = UnknownNameText(JoinedNameText(group, name), TEXTRES_NAMESET_Text);
}
