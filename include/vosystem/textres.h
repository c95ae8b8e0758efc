// Text resources: the one source of display text, by number or by name.
//
// The texts lie in binary resource files, one per language: "textres.enu"
// (English, always) and "textres." plus the code of the language that key
// "language" of group "locale" of the default settings names (such as
// "textres.fra"). TEXTRES::Initialize, called once by the application at
// start, opens them; the newest file is asked first, so a text missing from
// the language's file comes from English, entry by entry.
//
// Numbers: error codes are the negative numbers, so the message of a
// failure is the text of its code. Names: four sets (text, label, title,
// help) of names such as "text-encoding.KOI-8", sorted and searched by
// bytes, case counting.
//
// Missing text is never a failure: an unknown error code reads "Unknown
// error code (N)", another unknown number gives the empty text, an unknown
// name "Unknown text 'name'" (or the name itself, on request).
//
// Threads: the manager is one object for the process, and a lookup changes
// it (files keep their position and remember texts), so it serves one
// thread at a time. Every text it returns is a string of its own.
#ifndef VOSYSTEM_TEXTRES_H
#define VOSYSTEM_TEXTRES_H

#include "vosystem/export.h"
#include "vosystem/vostring.h"

class FILEPATH;
class XMLNODE;

// Number of a text resource; error codes are negative TEXTIDs. The values are
// defined by the resource files, not here.
enum TEXTID : int {};

// The name sets of texts looked up by name.
enum TEXTRES_NAMESET : int {
  TEXTRES_NAMESET_Text = 0,
  TEXTRES_NAMESET_Label = 1,
  TEXTRES_NAMESET_Title = 2,
  TEXTRES_NAMESET_Help = 3
};

class VOSYS_API TEXTRES {
 public:
  // Finds "textres.enu" through the reference file search and opens it,
  // then the file of the configured language when there is one (a value of
  // letters, digits, "-" and "_" only; "enu" in any case opens nothing
  // more). 1, or 0 when "textres.enu" is missing or not valid. Only the
  // first call does anything; later ones give 1. Records nothing.
  static int Initialize();
  // Nothing: the files are closed when the process ends.
  static void Terminate();
  // Adds an XML override file: a root element "textres" whose children
  // "text" or "message" give their text under the value of each of their
  // attributes "name", "label", "title" and "help", in that set (U+0085
  // becomes a line feed). Their texts stand before every resource file's,
  // and a later file's before an earlier's; lookups by number don't see
  // them. 0; the stream's code when the file can't be read, -1931 when it
  // isn't XML, -1587 for another root element or a file above 16 MB.
  static int AddFile(const FILEPATH& path);

  // Text by number; 0 gives the empty text without asking any file.
  static VOSTRING GetString(int id);
  // Text by name: a missing entry gives "Unknown text 'name'" (with
  // " label", " title" or " help" after "Unknown" for those sets), or with
  // nameIfMissing the name itself. A null or empty name gives the empty
  // text. Texts other than help are read from a file once, then kept.
  static VOSTRING GetString(const char* name, TEXTRES_NAMESET set);
  static VOSTRING GetString(const char* name, TEXTRES_NAMESET set, bool nameIfMissing);
  // 1 if an entry of that name exists, else 0.
  static int HasEntry(const char* name, TEXTRES_NAMESET set);
  // Every label and title as a line of an X resource file ("*Open.labelString:
  // Open", "*Main_popup.title: Main"), text in the encoding "X-Resfile",
  // without a line end, to the callback with user. The file opened first
  // goes first. 0, or the first failure's code.
  static int LoadX(void (*callback)(void* user, const char* line), void* user);
  // Whether path is a valid resource file: 0, the stream's code when it
  // can't be opened or read, or -1588. Nothing is kept.
  static int ValidateFile(const FILEPATH& path);
};

class TEXTRESITEM_PRIV;

// A handle on one piece of display text, cheap to keep, copy and compare. A
// name or number is resolved to a place in a resource file at once, but the
// text is read only when first asked for, and then kept for every copy of
// the handle. It can also hold a literal string. An item that could not be
// resolved is invalid, and its text is empty.
class VOSYS_API TEXTRESITEM {
 public:
  TEXTRESITEM();  // invalid
  TEXTRESITEM(const TEXTRESITEM& other);
  TEXTRESITEM(const char* name, TEXTRES_NAMESET set);
  // Numbers are looked for among 0 to 99999 only: an error code gives an
  // invalid item.
  explicit TEXTRESITEM(TEXTID id);
  explicit TEXTRESITEM(const VOSTRING& text);  // a literal item
  ~TEXTRESITEM();

  TEXTRESITEM& operator=(const TEXTRESITEM& other);
  TEXTRESITEM& operator=(const char* name);  // a name of the text set
  TEXTRESITEM& operator=(TEXTID id);
  TEXTRESITEM& operator=(const VOSTRING& text);
  // Resolves name in set: true if the item is now valid.
  bool Assign(const char* name, TEXTRES_NAMESET set);
  // From an element whose text is a name of the text set (attribute
  // "lookup" missing or true: 1 if it resolves, else 0 and an invalid item)
  // or the text itself (lookup="no": 1). An element without text gives 0
  // and leaves the item as it was.
  int CreateFromXML(const XMLNODE* node);

  // The text; the empty string for an invalid item. The reference stays
  // valid while the item (or a copy) holds the same body.
  const VOSTRING& GetString() const;
  bool IsValid() const { return m_priv != nullptr; }
  // The texts compare equal (VOSTRING::Compare), or the first is less.
  bool IsEqual(const TEXTRESITEM& other) const;
  bool operator<(const TEXTRESITEM& other) const;

 private:
  void Take(TEXTRESITEM_PRIV* body);  // releases the old body
  TEXTRESITEM_PRIV* m_priv;
};

extern "C" {
// The text "section.key" of the text set as a new UTF-16 string to free (a
// null section is "generic"). With bit 0 of flags a missing entry gives
// null; otherwise "Unknown text 'section.key'". A joined name of more than
// 127 bytes is never found.
VOSYS_API unsigned short* MtTextGetStringExtUC(const char* section, const char* key, int flags);
// The same with flags 0.
VOSYS_API unsigned short* MtTextGetStringUC(const char* section, const char* key);
}

#endif
