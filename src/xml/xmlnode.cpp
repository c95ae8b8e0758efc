// XMLNODE: the operations on libxml2's node record.
//
// Nothing here records an error: absence is told by null, 0 or a default.
// Every libxml2 call that would expand entity references (xmlNodeGetContent,
// xmlGetProp) is preceded, in documents that declare entities, by a
// measurement of what it would produce; beyond the bound the text counts as
// absent rather than being built.
#include <libxml/entities.h>
#include <libxml/tree.h>
#include <strings.h>

#include <cstdlib>
#include <cstring>

#include "foundation/clocale.h"
#include "vosystem/ucconv.h"
#include "vosystem/ucstring.h"
#include "xml/xml_priv.h"

UTF8_ARG::UTF8_ARG(const unsigned short* text) : m_bytes(nullptr), m_text(nullptr) {
  if (!text) return;
  char* bytes = nullptr;
  if (MucConvertUnicodeToUTF8(text, &bytes) >= 0 && bytes) {
    m_bytes = reinterpret_cast<xmlChar*>(bytes);
    m_text = m_bytes;
  } else {
    free(bytes);
    m_text = reinterpret_cast<const xmlChar*>("");
  }
}

UTF8_ARG::~UTF8_ARG() {
  free(m_bytes);
}

namespace {

const xmlChar* X(const char* s) {
  return reinterpret_cast<const xmlChar*>(s);
}

// The attribute of a name: xmlHasProp's answer, or the first whose name
// matches without regard to case.
xmlAttr* FindProp(const xmlNode* node, const char* name, bool exact) {
  if (!name || node->type != XML_ELEMENT_NODE) return nullptr;
  if (exact) return xmlHasProp(node, X(name));
  for (xmlAttr* a = node->properties; a; a = a->next)
    if (strcasecmp(reinterpret_cast<const char*>(a->name), name) == 0) return a;
  return nullptr;
}

bool WithinBound(const xmlNode* node) {
  return !HasOwnEntities(node->doc) ||
         ExpandedTextSize(node, false, kMaxExpandedText) <= kMaxExpandedText;
}

// xmlGetProp, unless the value would expand beyond the bound.
xmlChar* BoundedProp(const xmlNode* node, const xmlChar* name) {
  const xmlAttr* a = xmlHasProp(node, name);
  if (!a) return nullptr;
  if (a->type == XML_ATTRIBUTE_NODE && !WithinBound(reinterpret_cast<const xmlNode*>(a)))
    return nullptr;
  return xmlGetProp(node, name);
}

// xmlNodeGetContent, unless the content would expand beyond the bound.
xmlChar* BoundedContent(const xmlNode* node) {
  return WithinBound(node) ? xmlNodeGetContent(node) : nullptr;
}

bool IsElementNamed(const xmlNode* node, const char* name) {
  return node->type == XML_ELEMENT_NODE && node->name &&
         strcmp(reinterpret_cast<const char*>(node->name), name) == 0;
}

bool PassesAttributeTest(const xmlNode* node, const char* attribute, const char* value) {
  if (!attribute) return true;
  if (!value) return xmlHasProp(node, X(attribute)) != nullptr;
  xmlChar* v = BoundedProp(node, X(attribute));
  const bool equal = v && strcmp(reinterpret_cast<const char*>(v), value) == 0;
  xmlFree(v);
  return equal;
}

// The span of text that GetText keeps: white space (codes 1 to 32) skipped
// at the start, unless space is to be preserved.
const char* SkipLeadingSpace(const char* s) {
  while (*s >= 1 && *s <= 32) ++s;
  return s;
}

XMLNODE* AddChildOrFree(xmlNode* parent, xmlNode* child) {
  if (!child) return nullptr;
  xmlNode* added = xmlAddChild(parent, child);
  if (!added) xmlFreeNode(child);
  return Face(added);
}

}  // namespace

// ---------------------------------------------------------------- walking

// An entity reference's child pointers lead to the entity's declaration,
// whose parent is the DTD, a sibling of the root: a walk that went down
// there would come back up beside the root and go round for ever. For a
// walker a reference is a leaf; its text is in the GetText of its element.
XMLNODE* XMLNODE::GetFirstChild() const {
  const xmlNode* self = Raw(this);
  return self->type == XML_ENTITY_REF_NODE ? nullptr : Face(self->children);
}

XMLNODE* XMLNODE::GetLastChild() const {
  const xmlNode* self = Raw(this);
  return self->type == XML_ENTITY_REF_NODE ? nullptr : Face(self->last);
}
XMLNODE* XMLNODE::GetParent() const {
  return Face(Raw(this)->parent);
}
XMLNODE* XMLNODE::GetPrevious() const {
  return Face(Raw(this)->prev);
}
XMLNODE* XMLNODE::GetNext() const {
  return Face(Raw(this)->next);
}
const char* XMLNODE::GetName() const {
  return reinterpret_cast<const char*>(Raw(this)->name);
}

// ---------------------------------------------------------------- attributes

bool XMLNODE::HasProperty(const char* name, bool exact) const {
  return FindProp(Raw(this), name, exact) != nullptr;
}

int XMLNODE::GetProperty(const char* name, STRUTF8& value, bool exact) const {
  value.Clear();
  const xmlAttr* a = FindProp(Raw(this), name, exact);
  if (!a) return 0;
  xmlChar* v = BoundedProp(Raw(this), a->name);
  if (!v) return 0;
  // Copied rather than taken over: libxml2's blocks go back through its own
  // deallocator, which an application may have replaced.
  value = reinterpret_cast<const char*>(v);
  xmlFree(v);
  return 1;
}

int XMLNODE::GetProperty(const char* name, VOSTRING& value, bool exact) const {
  STRUTF8 bytes;
  if (!GetProperty(name, bytes, exact)) return 0;
  value = bytes;
  return 1;
}

bool XMLNODE::GetPropertyBool(const char* name, bool defaultValue, bool exact) const {
  STRUTF8 v;
  if (!GetProperty(name, v, exact)) return defaultValue;
  const char* s = v;
  if (!strcmp(s, "true") || !strcmp(s, "yes") || !strcmp(s, "1")) return true;
  if (!strcmp(s, "false") || !strcmp(s, "no") || !strcmp(s, "0")) return false;
  return defaultValue;
}

double XMLNODE::GetPropertyNum(const char* name, double defaultValue, bool exact) const {
  STRUTF8 v;
  if (!GetProperty(name, v, exact)) return defaultValue;
  return CStrtod(v, nullptr);  // as atof, by the C locale's rules
}

void XMLNODE::SetProperty(const char* name, const char* utf8Value) {
  if (name) xmlSetProp(Raw(this), X(name), X(utf8Value));
}

void XMLNODE::SetProperty(const char* name, const unsigned short* value) {
  UTF8_ARG v(value);
  if (name) xmlSetProp(Raw(this), X(name), v.Get());
}

void XMLNODE::UnsetProperty(const char* name) {
  if (name) xmlUnsetProp(Raw(this), X(name));
}

// ---------------------------------------------------------------- content

void XMLNODE::SetText(const unsigned short* text) {
  UTF8_ARG t(text);
  xmlNodeSetContent(Raw(this), t.Get());
}

void XMLNODE::AppendText(const unsigned short* text) {
  UTF8_ARG t(text);
  if (t.Get()) xmlNodeAddContent(Raw(this), t.Get());
}

int XMLNODE::GetText(VOSTRING& text) const {
  xmlChar* content = BoundedContent(Raw(this));
  if (!content) {
    text.Clear();
    return 0;
  }
  const bool preserve = xmlNodeGetSpacePreserve(Raw(this)) == 1;
  const char* start = reinterpret_cast<const char*>(content);
  if (!preserve) start = SkipLeadingSpace(start);
  if (text.Assign(start, CHAR_ENCODING_UTF8) < 0) text.Clear();
  xmlFree(content);
  if (!preserve) {
    int n = text.GetLength();
    while (n > 0 && text[n - 1] <= 32) --n;
    text.Truncate(n);
  }
  return text.IsEmpty() ? 0 : 1;
}

int XMLNODE::GetText(STRUTF8& text) const {
  xmlChar* content = BoundedContent(Raw(this));
  if (!content) {
    text.Clear();
    return 0;
  }
  char* bytes = reinterpret_cast<char*>(content);
  const bool preserve = xmlNodeGetSpacePreserve(Raw(this)) == 1;
  const char* start = bytes;
  if (!preserve) {
    // Trimming bytes is trimming characters here: in UTF-8 no byte of a
    // character above U+007F is 32 or below.
    start = SkipLeadingSpace(bytes);
    size_t n = strlen(start);
    while (n > 0 && static_cast<unsigned char>(start[n - 1]) <= 32) --n;
    bytes[start - bytes + n] = '\0';
  }
  text = start;
  xmlFree(content);
  return text.IsEmpty() ? 0 : 1;
}

bool XMLNODE::IsEmpty() const {
  return xmlIsBlankNode(Raw(this)) != 0;
}
bool XMLNODE::IsText() const {
  return xmlNodeIsText(Raw(this)) != 0;
}

// ---------------------------------------------------------------- making nodes

XMLNODE* XMLNODE::NewChild(const char* name, XMLNAMESPACE* ns) {
  if (!name) return nullptr;
  return AddChildOrFree(Raw(this), xmlNewNode(Raw(ns), X(name)));
}

XMLNODE* XMLNODE::NewChild(const char* name, const unsigned short* text, XMLNAMESPACE* ns) {
  if (!name) return nullptr;
  UTF8_ARG t(text);
  return Face(xmlNewChild(Raw(this), Raw(ns), X(name), t.Get()));
}

XMLNODE* XMLNODE::NewTextChild(const char* name, const unsigned short* text, XMLNAMESPACE* ns) {
  if (!name) return nullptr;
  UTF8_ARG t(text);
  return Face(xmlNewTextChild(Raw(this), Raw(ns), X(name), t.Get()));
}

XMLNODE* XMLNODE::NewCDATAChild(const char* name, const unsigned short* text, XMLNAMESPACE* ns) {
  UTF8_ARG t(text);
  return NewCDATAChild(name, t.Get() ? t.Get() : X(""), -1, ns);
}

XMLNODE* XMLNODE::NewCDATAChild(const char* name, const unsigned char* bytes, int length,
                                XMLNAMESPACE* ns) {
  if (length == -1)
    length =
        bytes ? static_cast<int>(strnlen(reinterpret_cast<const char*>(bytes), 0x7FFFFFFF)) : 0;
  if (length < 0 || (!bytes && length > 0)) return nullptr;
  XMLNODE* child = NewChild(name, ns);
  if (!child) return nullptr;
  xmlNode* block = xmlNewCDataBlock(Raw(child)->doc, bytes ? bytes : X(""), length);
  AddChildOrFree(Raw(child), block);
  return child;
}

XMLNODE* XMLNODE::NewChild(const XMLNODE* source) {
  if (!source) return nullptr;
  xmlNode* self = Raw(this);
  return AddChildOrFree(self, xmlDocCopyNode(const_cast<xmlNode*>(Raw(source)), self->doc, 1));
}

XMLNODE* XMLNODE::AddComment(const unsigned short* text) {
  UTF8_ARG t(text);
  return AddChildOrFree(Raw(this), xmlNewComment(t.Get() ? t.Get() : X("")));
}

// ---------------------------------------------------------------- searching

XMLNODE* XMLNODE::FindChild(const char* name) const {
  return FindChild(name, nullptr, static_cast<const char*>(nullptr));
}

XMLNODE* XMLNODE::FindChild(const char* name, const char* attribute, const char* value) const {
  if (!name) return nullptr;
  for (xmlNode* c = Raw(this)->children; c; c = c->next)
    if (IsElementNamed(c, name) && PassesAttributeTest(c, attribute, value)) return Face(c);
  return nullptr;
}

XMLNODE* XMLNODE::FindChild(const char* name, const char* attribute,
                            const unsigned short* value) const {
  UTF8_ARG v(value);
  return FindChild(name, attribute, reinterpret_cast<const char*>(v.Get()));
}

XMLNODE* XMLNODE::FindNext(const char* name, const char* attribute, const char* value) const {
  const xmlNode* self = Raw(this);
  if (!name) name = reinterpret_cast<const char*>(self->name);
  if (!name) return nullptr;
  for (xmlNode* s = self->next; s; s = s->next)
    if (IsElementNamed(s, name) && PassesAttributeTest(s, attribute, value)) return Face(s);
  return nullptr;
}

XMLNODE* XMLNODE::GetElementByAttribute(const char* attribute, const char* value) const {
  if (!attribute || !value) return nullptr;
  // Depth first in document order, without recursion: a deep tree costs no
  // stack.
  const xmlNode* top = Raw(this);
  xmlNode* node = top->children;
  while (node) {
    if (node->type == XML_ELEMENT_NODE) {
      xmlChar* v = BoundedProp(node, X(attribute));
      const bool match = v && strcmp(reinterpret_cast<const char*>(v), value) == 0;
      xmlFree(v);
      if (match) return Face(node);
      if (node->children) {
        node = node->children;
        continue;
      }
    }
    while (node != top && !node->next) node = node->parent;
    if (!node || node == top) break;
    node = node->next;
  }
  return nullptr;
}

XMLNODE* XMLNODE::GetElementByAttribute(const char* attribute, const unsigned short* value) const {
  UTF8_ARG v(value);
  return GetElementByAttribute(attribute, reinterpret_cast<const char*>(v.Get()));
}

// ---------------------------------------------------------------- structure

XMLNODE* XMLNODE::Copy(bool deep, XMLDOC* doc) const {
  xmlNode* self = const_cast<xmlNode*>(Raw(this));
  // A shallow copy keeps the element's attributes and namespaces: an
  // element without them would hardly be a copy.
  const int extended = deep ? 1 : 2;
  return Face(doc ? xmlDocCopyNode(self, doc->m_doc, extended) : xmlCopyNode(self, extended));
}

void XMLNODE::Delete() {
  xmlNode* self = Raw(this);
  xmlUnlinkNode(self);
  xmlFreeNode(self);
}

void XMLNODE::Detach() {
  xmlUnlinkNode(Raw(this));
}

XMLNODE* XMLNODE::Attach(XMLNODE* node) {
  if (!node || node == this) return nullptr;
  // A placeholder child, then the node in its place: unlike xmlAddChild,
  // xmlReplaceNode never merges a text node into its neighbour, so the
  // pointer the caller holds stays the node's.
  XMLNODE* temp = NewChild("temp");
  if (!temp) return nullptr;
  node->Replace(temp);
  return node;
}

void XMLNODE::Replace(XMLNODE* old) {
  if (!old || old == this) return;
  xmlReplaceNode(Raw(old), Raw(this));
  xmlFreeNode(Raw(old));
}

void XMLNODE::SetNamespace(XMLNAMESPACE* ns) {
  xmlSetNs(Raw(this), Raw(ns));
}
