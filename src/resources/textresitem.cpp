// Text items: a handle on a shared body that resolves a name or number to a
// record of an open resource file at once and reads the text on first use,
// or holds a literal text.
//
// The body keeps the text once read, so every copy of a handle reads the
// file at most once. A text that is truly empty is asked for again on each
// GetString: empty is also the body's mark for "not read yet".
#include <new>

#include "resources/textres_priv.h"

TEXTRESITEM_PRIV::~TEXTRESITEM_PRIV() = default;

VOSTRING TEXTRESITEM_PRIV_ADDR::v_GetString() {
  VOSTRING text;
  // After the end of the process's manager its files are gone.
  if (PRIV_textres::GetInstance()) m_file->ReadText(m_addr, text);
  return text;
}

TEXTRESITEM_PRIV_STR::TEXTRESITEM_PRIV_STR(const VOSTRING& string)
    : m_string(string.GetReference()) {}

VOSTRING TEXTRESITEM_PRIV_STR::v_GetString() {
  return m_string;
}

namespace {

TEXTRESITEM_PRIV* Resolve(TEXTID id) {
  PRIV_textres* m = PRIV_textres::GetInstance();
  return m ? m->CreateItemPriv(id) : nullptr;
}

TEXTRESITEM_PRIV* Resolve(const char* name, TEXTRES_NAMESET set) {
  PRIV_textres* m = PRIV_textres::GetInstance();
  return m ? m->CreateItemPriv(name, set) : nullptr;
}

}  // namespace

TEXTRESITEM::TEXTRESITEM() : m_priv(nullptr) {}

TEXTRESITEM::TEXTRESITEM(const TEXTRESITEM& other) : m_priv(other.m_priv) {
  if (m_priv) ++m_priv->references;
}

TEXTRESITEM::TEXTRESITEM(const char* name, TEXTRES_NAMESET set) : m_priv(Resolve(name, set)) {}

TEXTRESITEM::TEXTRESITEM(TEXTID id) : m_priv(Resolve(id)) {}

TEXTRESITEM::TEXTRESITEM(const VOSTRING& text)
    : m_priv(new (std::nothrow) TEXTRESITEM_PRIV_STR(text)) {}

TEXTRESITEM::~TEXTRESITEM() {
  Take(nullptr);
}

void TEXTRESITEM::Take(TEXTRESITEM_PRIV* body) {
  if (m_priv && --m_priv->references == 0) delete m_priv;
  m_priv = body;
}

TEXTRESITEM& TEXTRESITEM::operator=(const TEXTRESITEM& other) {
  if (other.m_priv == m_priv) return *this;
  if (other.m_priv) ++other.m_priv->references;
  Take(other.m_priv);
  return *this;
}

TEXTRESITEM& TEXTRESITEM::operator=(const char* name) {
  Take(Resolve(name, TEXTRES_NAMESET_Text));
  return *this;
}

TEXTRESITEM& TEXTRESITEM::operator=(TEXTID id) {
  Take(Resolve(id));
  return *this;
}

TEXTRESITEM& TEXTRESITEM::operator=(const VOSTRING& text) {
  Take(new (std::nothrow) TEXTRESITEM_PRIV_STR(text));
  return *this;
}

bool TEXTRESITEM::Assign(const char* name, TEXTRES_NAMESET set) {
  Take(Resolve(name, set));
  return m_priv != nullptr;
}

const VOSTRING& TEXTRESITEM::GetString() const {
  if (!m_priv) return VOSTRING::GetEmpty();
  if (m_priv->text.IsEmpty()) m_priv->text = m_priv->v_GetString();
  return m_priv->text;
}

bool TEXTRESITEM::IsEqual(const TEXTRESITEM& other) const {
  return GetString().Compare(other.GetString()) == 0;
}

bool TEXTRESITEM::operator<(const TEXTRESITEM& other) const {
  return GetString().Compare(other.GetString()) < 0;
}
