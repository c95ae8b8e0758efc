// What the XML node and document code share: the casts between the typed
// faces and libxml2's records, UTF-16 to UTF-8 for libxml2's calls, and the
// bound on entity expansion.
#ifndef VOSYS_SRC_XML_XML_PRIV_H
#define VOSYS_SRC_XML_XML_PRIV_H

#include <libxml/tree.h>

#include <cstddef>

#include "vosystem/xml.h"

inline xmlNode* Raw(XMLNODE* node) {
  return reinterpret_cast<xmlNode*>(node);
}
inline const xmlNode* Raw(const XMLNODE* node) {
  return reinterpret_cast<const xmlNode*>(node);
}
inline XMLNODE* Face(xmlNode* node) {
  return reinterpret_cast<XMLNODE*>(node);
}
inline xmlNs* Raw(XMLNAMESPACE* ns) {
  return reinterpret_cast<xmlNs*>(ns);
}

// UTF-16 text as UTF-8 for one libxml2 call; freed with the object. A null
// text stays null; text that can't be converted reads as empty.
class UTF8_ARG {
 public:
  explicit UTF8_ARG(const unsigned short* text);
  ~UTF8_ARG();
  UTF8_ARG(const UTF8_ARG&) = delete;
  UTF8_ARG& operator=(const UTF8_ARG&) = delete;
  const xmlChar* Get() const { return m_text; }

 private:
  xmlChar* m_bytes;       // ours, or null
  const xmlChar* m_text;  // what the call gets
};

// Entities let a few bytes of document stand for any amount of text
// ("billion laughs", or one large entity referenced many times), which
// libxml2 keeps as references and xmlNodeGetContent or xmlGetProp would
// expand in full. The size the text of a tree would have with every
// reference expanded is therefore measured before anything expands it.
//
// The text bytes under node (its descendants' text, attribute values with
// attributes included, entity references expanded), or limit + 1 as soon as
// that is exceeded, for a reference loop, or when memory runs out.
size_t ExpandedTextSize(const xmlNode* node, bool attributes, size_t limit);

// True if the document declares general entities of its own: only then can
// its text expand beyond the bytes it was made from.
bool HasOwnEntities(const xmlDoc* doc);

// The most that entities of a document parsed from n bytes may make of its
// text, and the most GetText expands for one node of any document.
size_t ExpansionLimitForInput(size_t n);
constexpr size_t kMaxExpandedText = size_t{256} << 20;

#endif
