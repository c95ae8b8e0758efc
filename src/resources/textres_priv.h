// The resource manager's one object and the bodies of text items.
#ifndef VOSYS_SRC_RESOURCES_TEXTRES_PRIV_H
#define VOSYS_SRC_RESOURCES_TEXTRES_PRIV_H

#include <cstdint>

#include "resources/resfile.h"
#include "vosystem/textres.h"
#include "vosystem/vodblary.h"

// Texts by name, one map per name set: those of XML override files and
// those already read from a resource file, which mean the same. A hash
// table for the lookups; LoadX walks it in byte order of the names.
class NAMEMAP {
 public:
  struct ENTRY {
    char* name;
    uint32_t hash;
    VOSTRING text;
  };

  NAMEMAP() = default;
  ~NAMEMAP();
  NAMEMAP(const NAMEMAP&) = delete;
  NAMEMAP& operator=(const NAMEMAP&) = delete;

  const VOSTRING* Find(const char* name) const;
  // Stores a copy of text under name, replacing an entry of that name. 0 or
  // -1015.
  int Set(const char* name, const VOSTRING& text);
  int GetCount() const { return m_count; }
  // The entries sorted by strcmp of their names. 0 or -1015.
  int GetSorted(SIMPLE_ARRAY<const ENTRY*>& out) const;

 private:
  ENTRY** FindSlot(const char* name, uint32_t hash) const;
  int Grow();

  ENTRY** m_slots = nullptr;  // a power of two of them, at most half full
  int m_capacity = 0;
  int m_count = 0;
};

// The body an item shares with its copies.
class TEXTRESITEM_PRIV {
 public:
  TEXTRESITEM_PRIV() = default;
  virtual ~TEXTRESITEM_PRIV();
  TEXTRESITEM_PRIV(const TEXTRESITEM_PRIV&) = delete;
  TEXTRESITEM_PRIV& operator=(const TEXTRESITEM_PRIV&) = delete;

  virtual VOSTRING v_GetString() = 0;

  int references = 1;  // plain: the handles of one body stay on one thread
  VOSTRING text;       // empty until asked for
};

// A record of an open resource file; the manager keeps its files open for
// the life of the process.
class TEXTRESITEM_PRIV_ADDR : public TEXTRESITEM_PRIV {
 public:
  TEXTRESITEM_PRIV_ADDR(RESFILE* file, long addr) : m_file(file), m_addr(addr) {}
  VOSTRING v_GetString() override;

 private:
  RESFILE* m_file;
  long m_addr;
};

// A literal text.
class TEXTRESITEM_PRIV_STR : public TEXTRESITEM_PRIV {
 public:
  explicit TEXTRESITEM_PRIV_STR(const VOSTRING& string);
  VOSTRING v_GetString() override;

 private:
  VOSTRING m_string;
};

class PRIV_textres {
 public:
  // The object, made on first use and destroyed when the process ends; null
  // from then on (and if it couldn't be made): callers then act as with no
  // files.
  static PRIV_textres* GetInstance();

  PRIV_textres() = default;
  ~PRIV_textres();
  PRIV_textres(const PRIV_textres&) = delete;
  PRIV_textres& operator=(const PRIV_textres&) = delete;

  int Initialize();
  // Opens a binary resource file and puts it first in the search order. 0
  // or the code of RESFILE::Open.
  int AddFile(const FILEPATH& path);
  // Adds an XML override file (textres_xml.cpp). 0 or a negative code.
  int AddXmlFile(const FILEPATH& path);
  VOSTRING GetString(int id);
  VOSTRING GetString(const char* name, TEXTRES_NAMESET set, bool nameIfMissing);
  int HasEntry(const char* name, TEXTRES_NAMESET set);
  int LoadX(void (*callback)(void*, const char*), void* user);

  // Item bodies, or null for what no map or file holds.
  TEXTRESITEM_PRIV* CreateItemPriv(TEXTID id);
  TEXTRESITEM_PRIV* CreateItemPriv(const char* name, TEXTRES_NAMESET set);

 private:
  int m_initialized = 0;
  VOLIST<RESFILE*> m_files;  // search order; the list owns them
  int m_fileCount = 0;
  NAMEMAP m_maps[4];
};

// The fallback of a missing name: "Unknown text 'name'", with the set's
// word after "Unknown".
VOSTRING UnknownNameText(const VOSTRING& name, TEXTRES_NAMESET set);
// "group.name" into out (RESFILE::kNameMax bytes), a null group being
// "generic": true if it fits (127 bytes at most).
bool JoinName(const char* group, const char* name, char* out);
// The same as text, whatever its length.
VOSTRING JoinedNameText(const char* group, const char* name);

#endif
