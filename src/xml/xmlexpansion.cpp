// The size of a tree's text with every entity reference expanded, measured
// without expanding anything.
//
// A walk over the tree adds the length of each text and CDATA node, of each
// attribute value when asked, and for each entity reference the expanded
// size of that entity. Each entity is measured once, on its first
// reference, and remembered in a small hash table private to the walk, so
// that a document of nested entities costs a walk over its declarations,
// not over its expansion. The walk stops as soon as the total passes the
// limit: the time it takes is bounded by the document, never by what the
// document would expand to.
//
// Entity content that was built from text (not by the parser) has no
// parent pointers at its top level, so sibling lists are walked on their
// own and parent pointers are followed only inside an element's subtree.
#include <libxml/entities.h>
#include <libxml/hash.h>

#include <cstdint>
#include <cstdlib>
#include <initializer_list>

#include "xml/xml_priv.h"

namespace {

// Entities nest through references; deeper than this is taken as hostile.
constexpr int kMaxEntityDepth = 256;

class EXPANSION {
 public:
  explicit EXPANSION(size_t limit) : m_limit(limit) {}
  ~EXPANSION() { free(m_slots); }
  EXPANSION(const EXPANSION&) = delete;
  EXPANSION& operator=(const EXPANSION&) = delete;

  size_t Over() const { return m_limit + 1; }

  // Each of these gives a size up to the limit, or Over().
  size_t Subtree(const xmlNode* top, bool attributes);
  size_t List(const xmlNode* first, bool attributes);

 private:
  struct SLOT {
    const xmlEntity* entity;
    size_t size;  // kMeasuring while the entity's own content is walked
  };
  static constexpr size_t kMeasuring = SIZE_MAX;

  size_t Entity(const xmlEntity* entity);
  size_t OwnText(const xmlNode* node, bool attributes);
  SLOT* Find(const xmlEntity* entity);
  SLOT* Insert(const xmlEntity* entity);
  bool Grow();
  size_t Add(size_t a, size_t b) const { return a > m_limit || b > m_limit - a ? Over() : a + b; }

  size_t m_limit;
  SLOT* m_slots = nullptr;
  size_t m_capacity = 0;  // a power of two
  size_t m_used = 0;
  int m_depth = 0;
};

size_t Hash(const void* p) {
  uintptr_t v = reinterpret_cast<uintptr_t>(p);
  v ^= v >> 17;
  v *= 0x9E3779B97F4A7C15ull;
  return static_cast<size_t>(v ^ (v >> 29));
}

EXPANSION::SLOT* EXPANSION::Find(const xmlEntity* entity) {
  if (!m_capacity) return nullptr;
  for (size_t i = Hash(entity) & (m_capacity - 1);; i = (i + 1) & (m_capacity - 1)) {
    if (m_slots[i].entity == entity) return &m_slots[i];
    if (!m_slots[i].entity) return nullptr;
  }
}

bool EXPANSION::Grow() {
  const size_t capacity = m_capacity ? m_capacity * 2 : 64;
  SLOT* slots = static_cast<SLOT*>(calloc(capacity, sizeof(SLOT)));
  if (!slots) return false;
  for (size_t j = 0; j < m_capacity; ++j) {
    if (!m_slots[j].entity) continue;
    size_t i = Hash(m_slots[j].entity) & (capacity - 1);
    while (slots[i].entity) i = (i + 1) & (capacity - 1);
    slots[i] = m_slots[j];
  }
  free(m_slots);
  m_slots = slots;
  m_capacity = capacity;
  return true;
}

EXPANSION::SLOT* EXPANSION::Insert(const xmlEntity* entity) {
  if ((m_used + 1) * 2 > m_capacity && !Grow()) return nullptr;
  size_t i = Hash(entity) & (m_capacity - 1);
  while (m_slots[i].entity) i = (i + 1) & (m_capacity - 1);
  m_slots[i].entity = entity;
  m_slots[i].size = kMeasuring;
  ++m_used;
  return &m_slots[i];
}

size_t EXPANSION::Entity(const xmlEntity* entity) {
  if (!entity) return 0;
  if (entity->etype == XML_INTERNAL_PREDEFINED_ENTITY || (!entity->children && !entity->content))
    return entity->content ? static_cast<size_t>(xmlStrlen(entity->content)) : 0;
  if (const SLOT* known = Find(entity)) return known->size == kMeasuring ? Over() : known->size;
  if (m_depth >= kMaxEntityDepth) return Over();
  if (!Insert(entity)) return Over();
  ++m_depth;
  // Content not yet parsed into nodes is counted as its raw text: what it
  // becomes is measured again once it has nodes.
  const size_t size = entity->children ? List(entity->children, false)
                                       : static_cast<size_t>(xmlStrlen(entity->content));
  --m_depth;
  // The table may have grown meanwhile: look the slot up again.
  Find(entity)->size = size;
  return size;
}

size_t EXPANSION::OwnText(const xmlNode* node, bool attributes) {
  switch (node->type) {
    case XML_TEXT_NODE:
    case XML_CDATA_SECTION_NODE:
      return node->content ? static_cast<size_t>(xmlStrlen(node->content)) : 0;
    case XML_ENTITY_REF_NODE: {
      const xmlEntity* entity = xmlGetDocEntity(node->doc, node->name);
      return Entity(entity);
    }
    case XML_ELEMENT_NODE: {
      if (!attributes) return 0;
      size_t total = 0;
      for (const xmlAttr* a = node->properties; a && total <= m_limit; a = a->next)
        total = Add(total, List(a->children, false));
      return total;
    }
    default:
      return 0;
  }
}

size_t EXPANSION::Subtree(const xmlNode* top, bool attributes) {
  size_t total = 0;
  const xmlNode* node = top;
  for (;;) {
    total = Add(total, OwnText(node, attributes));
    if (total > m_limit) return Over();
    const bool container = node->type == XML_ELEMENT_NODE || node->type == XML_DOCUMENT_NODE ||
                           node->type == XML_HTML_DOCUMENT_NODE ||
                           node->type == XML_DOCUMENT_FRAG_NODE || node->type == XML_ATTRIBUTE_NODE;
    if (container && node->children) {
      node = node->children;
      continue;
    }
    while (node != top && !node->next) node = node->parent;
    if (node == top) return total;
    node = node->next;
  }
}

size_t EXPANSION::List(const xmlNode* first, bool attributes) {
  size_t total = 0;
  for (const xmlNode* node = first; node && total <= m_limit; node = node->next)
    total = Add(total, Subtree(node, attributes));
  return total;
}

}  // namespace

size_t ExpandedTextSize(const xmlNode* node, bool attributes, size_t limit) {
  if (!node) return 0;
  EXPANSION walk(limit);
  return walk.Subtree(node, attributes);
}

bool HasOwnEntities(const xmlDoc* doc) {
  if (!doc) return false;
  for (const xmlDtd* dtd : {doc->intSubset, doc->extSubset}) {
    if (dtd && dtd->entities && xmlHashSize(static_cast<xmlHashTablePtr>(dtd->entities)) > 0)
      return true;
  }
  return false;
}

size_t ExpansionLimitForInput(size_t n) {
  // Generous for real documents (a handful of entities used often), far
  // below what an amplifying document asks for.
  const size_t floor = size_t{16} << 20;
  return n > (SIZE_MAX - floor) / 8 ? SIZE_MAX - 1 : floor + 8 * n;
}
