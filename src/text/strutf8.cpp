// STRUTF8: UTF-8 text on a shared body; values are replaced as a whole.
static const char s_ident[] = "@(#) strutf8.cpp 1.0";

#include "vosystem/strutf8.h"

#include <cstdlib>
#include <cstring>
#include <new>

#include "foundation/errpos.h"
#include "vosystem/ucconv.h"
#include "vosystem/vostring.h"

namespace {

// The one empty text, shared by every empty body and never freed.
char EMPTY[1] = {0};

void OutOfMemory(size_t bytes) {
  int rc = SETERR(VOERROR_OutOfMemory);
  GetErrString() << static_cast<unsigned long long>(bytes);
  (void)rc;
}

// A heap copy of s, or EMPTY for a null or empty text, or without memory
// (recorded).
char* Duplicate(const char* s) {
  if (!s || !*s) return EMPTY;
  size_t n = strlen(s) + 1;
  char* copy = static_cast<char*>(malloc(n));
  if (!copy) {
    OutOfMemory(n);
    return EMPTY;
  }
  memcpy(copy, s, n);
  return copy;
}

char* Encode(const VOSTRING& s) {
  char* text = s.GetEncoded(CHAR_ENCODING_UTF8);
  if (text && *text) return text;
  free(text);
  return EMPTY;
}

void FreeText(char* text) {
  if (text != EMPTY) free(text);
}

}  // namespace

struct STRUTF8::BODY {
  // The count of the fallback body, which is never counted nor freed.
  static constexpr int kImmortal = -1;

  char* text;  // from the heap, or EMPTY
  int refs;    // handles sharing this body, or kImmortal

  // A body of its own for text, which it takes over. Without memory the text
  // is freed and the handle shares the empty fallback body (recorded).
  static BODY* Create(char* text);
  void Share() {
    if (refs != kImmortal) ++refs;
  }
  bool IsExclusive() const { return refs == 1; }
  void Release() {
    if (refs == kImmortal || --refs > 0) return;
    FreeText(text);
    delete this;
  }
};

namespace {
STRUTF8::BODY s_fallback = {EMPTY, STRUTF8::BODY::kImmortal};
}

STRUTF8::BODY* STRUTF8::BODY::Create(char* text) {
  BODY* body = new (std::nothrow) BODY{text, 1};
  if (body) return body;
  FreeText(text);
  OutOfMemory(sizeof(BODY));
  return &s_fallback;
}

STRUTF8::STRUTF8() : m_body(BODY::Create(EMPTY)) {}

STRUTF8::STRUTF8(const STRUTF8& other) : m_body(other.m_body) {
  m_body->Share();
}

STRUTF8::STRUTF8(const char* s) : m_body(BODY::Create(Duplicate(s))) {}

STRUTF8::STRUTF8(const VOSTRING& s) : m_body(BODY::Create(Encode(s))) {}

STRUTF8::~STRUTF8() {
  m_body->Release();
}

STRUTF8& STRUTF8::operator=(const STRUTF8& other) {
  if (m_body == other.m_body) return *this;
  other.m_body->Share();
  m_body->Release();
  m_body = other.m_body;
  return *this;
}

// The new body is made before the old one goes: s may be this string's text.
STRUTF8& STRUTF8::operator=(const char* s) {
  BODY* fresh = BODY::Create(Duplicate(s));
  m_body->Release();
  m_body = fresh;
  return *this;
}

STRUTF8& STRUTF8::operator=(const unsigned char* s) {
  return *this = reinterpret_cast<const char*>(s);
}

STRUTF8& STRUTF8::operator=(const VOSTRING& s) {
  BODY* fresh = BODY::Create(Encode(s));
  m_body->Release();
  m_body = fresh;
  return *this;
}

STRUTF8::operator const char*() const {
  return m_body->text;
}

const unsigned char* STRUTF8::GetUINT8() const {
  return reinterpret_cast<const unsigned char*>(m_body->text);
}

int STRUTF8::Compare(const STRUTF8& other) const {
  return strcmp(m_body->text, other.m_body->text);
}

int STRUTF8::Compare(const char* s) const {
  return strcmp(m_body->text, s ? s : EMPTY);
}

bool STRUTF8::IsEqual(const STRUTF8& other) const {
  return Compare(other) == 0;
}

bool STRUTF8::IsEqual(const char* s) const {
  return Compare(s) == 0;
}

bool STRUTF8::IsEmpty() const {
  return m_body->text[0] == 0;
}

void STRUTF8::Attach(char*& p) {
  char* text = p ? p : EMPTY;
  p = nullptr;
  if (text == m_body->text) return;  // already ours
  if (!m_body->IsExclusive()) {
    m_body->Release();
    m_body = BODY::Create(text);
    return;
  }
  FreeText(m_body->text);
  m_body->text = text;
}

void STRUTF8::Attach(unsigned char*& p) {
  char* text = reinterpret_cast<char*>(p);
  p = nullptr;
  Attach(text);
}

void STRUTF8::Clear() {
  if (IsEmpty()) return;
  if (!m_body->IsExclusive()) {
    m_body->Release();
    m_body = BODY::Create(EMPTY);
    return;
  }
  FreeText(m_body->text);
  m_body->text = EMPTY;
}
