// Texts from XML: override files of the resource manager, and text items
// described by an element.
//
// An override file is a document whose root element is "textres", with
// children "text" or "message" (exact names; other children are passed over)
// that carry any of the attributes "name", "label", "title" and "help": the
// element's text is stored under each attribute's value in the map of that
// set, replacing what was there, and so stands before every resource file.
// U+0085 (next line) in a text becomes a line feed.
//
// The file is read whole, so its size is bounded (kMaxOverrideBytes); the
// document parser bounds what entities may expand to.
static const char s_ident[] = "@(#) textres_xml.cpp 1.0";

#include <libxml/tree.h>

#include <cstdlib>
#include <cstring>

#include "foundation/errpos.h"
#include "resources/textres_priv.h"
#include "vosystem/filepath.h"
#include "vosystem/fileraw.h"
#include "vosystem/memfunc.h"
#include "vosystem/xml.h"

namespace {

// Far more than any table of texts needs.
const long long kMaxOverrideBytes = 16 << 20;

// Processing instructions and text nodes have names too ("text" among
// them): only elements count.
bool IsElement(const XMLNODE* node) {
  return reinterpret_cast<const xmlNode*>(node)->type == XML_ELEMENT_NODE;
}

int NotAdded(const FILEPATH& path) {
  const int rc = SETERR(VOERROR_ResourceNotAdded);
  GetErrString() << path.GetDisplay();
  return rc;
}

// The file's bytes with a zero behind them, in *text (free it).
int ReadWhole(const FILEPATH& path, char** text) {
  FILE_RAW file;
  int rc = file.Open(path, FILE_ACCESS_Read, FILE_SHARE_All);
  if (rc < 0) return PASSERR(rc);
  const long long size = file.GetSize();
  if (size < 0) return PASSERR(static_cast<int>(size));
  if (size > kMaxOverrideBytes) return NotAdded(path);
  rc = MmAlloc(text, static_cast<unsigned long>(size) + 1);
  if (rc < 0) return PASSERR(rc);
  if (size > 0) rc = file.SeekAndRead(0, *text, static_cast<long>(size));
  if (rc < 0) {
    free(*text);
    *text = nullptr;
    return PASSERR(rc);
  }
  (*text)[size] = 0;
  return 0;
}

}  // namespace

int PRIV_textres::AddXmlFile(const FILEPATH& path) {
  char* bytes = nullptr;
  int rc = ReadWhole(path, &bytes);
  if (rc < 0) return PASSERR(rc);
  XMLDOC doc;
  rc = doc.Parse(reinterpret_cast<const unsigned char*>(bytes));
  free(bytes);
  if (rc < 0) return PASSERR(rc);
  const XMLNODE* root = doc.GetRootNode();
  if (!root || !root->GetName() || strcmp(root->GetName(), "textres") != 0) return NotAdded(path);
  static const char* const kAttributes[4] = {"name", "label", "title", "help"};
  for (const XMLNODE* child = root->GetFirstChild(); child; child = child->GetNext()) {
    const char* element = child->GetName();
    if (!IsElement(child) || !element || (strcmp(element, "text") && strcmp(element, "message")))
      continue;
    VOSTRING text;
    child->GetText(text);
    for (int i = text.FindNextOf(0x85); i >= 0; i = text.FindNextOf(0x85, i + 1))
      text.Replace(i, 0x0A);
    for (int set = 0; set < 4; ++set) {
      STRUTF8 key;
      // A name no resource file could hold is never asked for.
      if (!child->GetProperty(kAttributes[set], key) || key.IsEmpty() ||
          strlen(key) >= static_cast<size_t>(RESFILE::kNameMax))
        continue;
      rc = m_maps[set].Set(key, text);
      if (rc < 0) return PASSERR(rc);
    }
  }
  return 0;
}

int TEXTRES::AddFile(const FILEPATH& path) {
  PRIV_textres* m = PRIV_textres::GetInstance();
  if (!m) return NotAdded(path);
  const int rc = m->AddXmlFile(path);
  return rc < 0 ? PASSERR(rc) : 0;
}

int TEXTRESITEM::CreateFromXML(const XMLNODE* node) {
  if (!node) return 0;
  if (node->GetPropertyBool("lookup", true)) {
    STRUTF8 name;
    if (!node->GetText(name)) return 0;
    return Assign(name, TEXTRES_NAMESET_Text) ? 1 : 0;
  }
  VOSTRING text;
  if (!node->GetText(text)) return 0;
  *this = text;
  return 1;
}
