// XMLDOC: one libxml2 document, read from and written to files and memory.
//
// Parsing is where hostile input arrives, so it is done with three guards
// that a plain xmlParseMemory lacks:
// - no network access (XML_PARSE_NONET), and an external entity loader that
//   refuses everything for the length of the parse, so that neither a DTD
//   nor an external entity ever reads a file or a URL;
// - entity substitution stays off: references remain references;
// - after the parse, the size the document's text would have with every
//   reference expanded is measured (xmlexpansion.cpp); a document beyond a
//   bound proportional to its own size is refused with -1931, like one that
//   doesn't parse. libxml2 catches exponential entity nesting itself, but
//   accepts one large entity referenced many times, which GetText would
//   expand to gigabytes.
//
// libxml2's parser set-up is made once for the process and never torn down:
// xmlCleanupParser frees process-wide state that other users of libxml2 in
// the same program may still rely on, so calling it after each parse is
// only safe in a program where nobody else parses XML.
#include <libxml/HTMLparser.h>
#include <libxml/HTMLtree.h>
#include <libxml/parser.h>
#include <libxml/parserInternals.h>
#include <libxml/tree.h>
#include <libxml/xmlerror.h>

#include <climits>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <mutex>

#include "foundation/errpos.h"
#include "vosystem/errors.h"
#include "vosystem/filepath.h"
#include "vosystem/fileraw.h"
#include "vosystem/ucconv.h"
#include "xml/xml_priv.h"

static const char s_ident[] = "@(#) xmldoc.cpp 1.0";

namespace {

const xmlChar* X(const char* s) {
  return reinterpret_cast<const xmlChar*>(s);
}

void SetUpParser() {
  static std::once_flag once;
  std::call_once(once, [] { xmlInitParser(); });
}

xmlParserInputPtr RefuseExternal(const char*, const char*, xmlParserCtxtPtr) {
  return nullptr;
}

// The external entity loader is process-wide in libxml2: it is ours only
// for the length of one parse, and the caller's again afterwards.
class NO_EXTERNAL_LOADS {
 public:
  NO_EXTERNAL_LOADS() : m_old(xmlGetExternalEntityLoader()) {
    xmlSetExternalEntityLoader(RefuseExternal);
  }
  ~NO_EXTERNAL_LOADS() { xmlSetExternalEntityLoader(m_old); }
  NO_EXTERNAL_LOADS(const NO_EXTERNAL_LOADS&) = delete;
  NO_EXTERNAL_LOADS& operator=(const NO_EXTERNAL_LOADS&) = delete;

 private:
  xmlExternalEntityLoader m_old;
};

void AppendMessage(VOSTRING& messages, const char* text) {
  messages += VOSTRING(STRUTF8(text));
}

// Refuses a document whose entities would expand it beyond the bound; the
// reason goes to the messages, as the parser's own would.
xmlDoc* WithinExpansionBound(xmlDoc* doc, size_t inputBytes, VOSTRING& messages) {
  if (!doc || !HasOwnEntities(doc)) return doc;
  const size_t limit = ExpansionLimitForInput(inputBytes);
  if (ExpandedTextSize(reinterpret_cast<xmlNode*>(doc), true, limit) <= limit) return doc;
  char text[160];
  snprintf(text, sizeof text,
           "Entity references would expand the document's text beyond %zu bytes.\n", limit);
  AppendMessage(messages, text);
  xmlFreeDoc(doc);
  return nullptr;
}

// The XML parse of n bytes; messages go wherever the caller's trap points.
xmlDoc* ParseXml(const char* bytes, size_t n, VOSTRING& messages) {
  if (n > static_cast<size_t>(INT_MAX)) {
    AppendMessage(messages, "The document is larger than 2 GB.\n");
    return nullptr;
  }
  xmlDoc* doc;
  {
    NO_EXTERNAL_LOADS guard;
    doc = xmlReadMemory(bytes, static_cast<int>(n), nullptr, nullptr, XML_PARSE_NONET);
  }
  return WithinExpansionBound(doc, n, messages);
}

xmlDoc* ParseHtml(const char* zeroTerminated, VOSTRING&) {
  NO_EXTERNAL_LOADS guard;
  // HTML knows only its own predefined entities: nothing to expand.
  return htmlParseDoc(reinterpret_cast<const xmlChar*>(zeroTerminated), "UTF8");
}

xmlDoc* NewDefaultDoc() {
  xmlDoc* doc = xmlNewDoc(X("1.0"));
  if (!doc) return nullptr;
  xmlNode* root = xmlNewDocNode(doc, nullptr, X("root"), nullptr);
  if (root) xmlDocSetRootElement(doc, root);
  return doc;
}

// The whole file, zero-terminated (the zero not counted); 0 or a negative
// code, with the buffer the caller's to free.
int ReadWholeFile(const FILEPATH& path, char** buffer, size_t* size) {
  *buffer = nullptr;
  *size = 0;
  FILE_RAW file;
  int rc = file.Open(path, FILE_ACCESS_Read, FILE_SHARE_All);
  if (rc < 0) return PASSERR(rc);
  const long long length = file.GetSize();
  if (length < 0) return PASSERR(static_cast<int>(length));
  if (length >= INT_MAX) {
    SETERR(VOERROR_OutOfMemory);
    GetErrString() << static_cast<unsigned long long>(length) + 1;
    return VOERROR_OutOfMemory;
  }
  char* bytes = static_cast<char*>(malloc(static_cast<size_t>(length) + 1));
  if (!bytes) {
    SETERR(VOERROR_OutOfMemory);
    GetErrString() << static_cast<unsigned long long>(length) + 1;
    return VOERROR_OutOfMemory;
  }
  if (length > 0) {
    const long got = file.Read(bytes, static_cast<long>(length), false);
    if (got < 0) {
      free(bytes);
      return PASSERR(static_cast<int>(got));
    }
  }
  bytes[length] = '\0';
  *buffer = bytes;
  *size = static_cast<size_t>(length);
  return 0;
}

}  // namespace

// ---------------------------------------------------------------- error trap

XMLDOC::ERRORTRAP::ERRORTRAP(VOSTRING* target) : m_target(target) {
  m_target->Clear();
  xmlSetGenericErrorFunc(m_target, &ERRORTRAP::MyErrorFunc);
}

XMLDOC::ERRORTRAP::~ERRORTRAP() {
  xmlSetGenericErrorFunc(nullptr, nullptr);
}

void XMLDOC::ERRORTRAP::MyErrorFunc(void* context, const char* format, ...) {
  if (!context || !format) return;
  char piece[1024];
  va_list args;
  va_start(args, format);
  vsnprintf(piece, sizeof piece, format, args);
  va_end(args);
  // libxml2's messages quote the document, which is UTF-8.
  AppendMessage(*static_cast<VOSTRING*>(context), piece);
}

// ---------------------------------------------------------------- life cycle

XMLDOC::XMLDOC() : m_doc(NewDefaultDoc()) {}

XMLDOC::XMLDOC(const XMLDOC& other)
    : m_doc(other.m_doc ? xmlCopyDoc(other.m_doc, 1) : nullptr),
      m_errorMessage(other.m_errorMessage) {}

XMLDOC::XMLDOC(const unsigned short* text) : m_doc(nullptr) {
  UTF8_ARG bytes(text);
  if (!bytes.Get()) return;
  const char* s = reinterpret_cast<const char*>(bytes.Get());
  SetUpParser();
  ERRORTRAP trap(&m_errorMessage);
  m_doc = ParseXml(s, strlen(s), m_errorMessage);
}

XMLDOC::XMLDOC(const unsigned char* utf8Text) : m_doc(nullptr) {
  if (!utf8Text) return;
  const char* s = reinterpret_cast<const char*>(utf8Text);
  SetUpParser();
  ERRORTRAP trap(&m_errorMessage);
  m_doc = ParseXml(s, strlen(s), m_errorMessage);
}

XMLDOC::~XMLDOC() {
  if (m_doc) xmlFreeDoc(m_doc);
}

XMLDOC& XMLDOC::operator=(const XMLDOC& other) {
  if (this == &other) return *this;
  if (m_doc) xmlFreeDoc(m_doc);
  m_doc = other.m_doc ? xmlCopyDoc(other.m_doc, 1) : xmlNewDoc(X("1.0"));
  OnDocReplaced();
  return *this;
}

void XMLDOC::Clear() {
  if (m_doc) xmlFreeDoc(m_doc);
  m_doc = NewDefaultDoc();
  OnDocReplaced();
}

void XMLDOC::OnDocReplaced() {}

// ---------------------------------------------------------------- reading

// Takes the result of a parse: a document with a root stands, anything else
// is -1931 with where (a path or "---") in the message, the parser's text as
// its details, and a default document in the object.
int XMLDOC::Adopt(_xmlDoc* doc, const VOSTRING& where) {
  m_doc = doc;
  if (GetRootNode()) {
    OnDocReplaced();
    return 0;
  }
  SETERR(VOERROR_XmlUnreadable);
  GetErrString() << where;
  SetErrDetails(m_errorMessage);
  Clear();
  return VOERROR_XmlUnreadable;
}

// Reads a whole file and parses it as XML or HTML; the document stays as
// it was if the file can't be read.
int XMLDOC::ReadFile(const FILEPATH& path, bool html) {
  char* bytes;
  size_t size;
  const int rc = ReadWholeFile(path, &bytes, &size);
  if (rc < 0) return PASSERR(rc);
  if (m_doc) xmlFreeDoc(m_doc);
  m_doc = nullptr;
  SetUpParser();
  xmlDoc* doc;
  {
    ERRORTRAP trap(&m_errorMessage);
    doc = html ? ParseHtml(bytes, m_errorMessage) : ParseXml(bytes, size, m_errorMessage);
  }
  free(bytes);
  return Adopt(doc, path.GetDisplay());
}

int XMLDOC::Read(const FILEPATH& path) {
  return ReadFile(path, false);
}

int XMLDOC::ReadHTML(const FILEPATH& path) {
  return ReadFile(path, true);
}

int XMLDOC::ReadHTML(const unsigned short* path) {
  return ReadHTML(FILEPATH(path));
}

int XMLDOC::Parse(const unsigned char* utf8Text) {
  if (m_doc) xmlFreeDoc(m_doc);
  m_doc = nullptr;
  SetUpParser();
  xmlDoc* doc = nullptr;
  {
    ERRORTRAP trap(&m_errorMessage);
    if (utf8Text) {
      const char* s = reinterpret_cast<const char*>(utf8Text);
      doc = ParseXml(s, strlen(s), m_errorMessage);
    }
  }
  return Adopt(doc, VOSTRING("---"));
}

// ---------------------------------------------------------------- writing

namespace {

// The document as text: libxml2's block, which the caller releases with
// xmlFree, or null.
xmlChar* Dump(xmlDoc* doc, bool html, bool indent, int* size) {
  *size = 0;
  if (!doc) return nullptr;
  xmlIndentTreeOutput = indent ? 1 : 0;
  xmlChar* text = nullptr;
  if (html) {
    htmlDocDumpMemory(doc, &text, size);
    return text;
  }
  // Without an encoding name libxml2 writes in the encoding the document
  // was read from; the text here is always UTF-8, so that name is hidden
  // for the length of the dump.
  const xmlChar* encoding = doc->encoding;
  doc->encoding = nullptr;
  xmlDocDumpFormatMemoryEnc(doc, &text, size, nullptr, 1);
  doc->encoding = encoding;
  return text;
}

int WriteDump(const FILEPATH& path, xmlDoc* doc, bool html) {
  FILE_RAW file;
  const int rc = file.Open(path, FILE_ACCESS_Create, FILE_SHARE_All);
  if (rc < 0) return PASSERR(rc);
  int size;
  xmlChar* text = Dump(doc, html, true, &size);
  if (!text) return 0;  // nothing to write: the file stays empty
  const long written = file.Write(text, size);
  xmlFree(text);
  file.Close();
  return written < 0 ? PASSERR(static_cast<int>(written)) : static_cast<int>(written);
}

void TextOfDump(xmlChar* text, VOSTRING& out) {
  out.Clear();
  if (!text) return;
  if (out.Assign(text, CHAR_ENCODING_UTF8) < 0) out.Clear();
  xmlFree(text);
}

}  // namespace

int XMLDOC::Write(const FILEPATH& path) const {
  return WriteDump(path, m_doc, false);
}
int XMLDOC::Write(const unsigned short* path) const {
  return Write(FILEPATH(path));
}
int XMLDOC::WriteHTML(const FILEPATH& path) const {
  return WriteDump(path, m_doc, true);
}
int XMLDOC::WriteHTML(const unsigned short* path) const {
  return WriteHTML(FILEPATH(path));
}

void XMLDOC::Unparse(VOSTRING& out, bool indent) {
  int size;
  TextOfDump(Dump(m_doc, false, indent, &size), out);
}

void XMLDOC::UnparseHTML(VOSTRING& out, bool indent) {
  int size;
  TextOfDump(Dump(m_doc, true, indent, &size), out);
}

// ---------------------------------------------------------------- the rest

XMLNODE* XMLDOC::GetRootNode() const {
  return m_doc ? Face(xmlDocGetRootElement(m_doc)) : nullptr;
}

const VOSTRING& XMLDOC::GetErrorMessage() const {
  return m_errorMessage;
}

void XMLDOC::AddEntity(const char* name, const unsigned short* value) {
  if (!m_doc || !name) return;
  if (!m_doc->intSubset) {
    // libxml2 keeps entities in the internal subset and refuses to add one
    // to a document without it.
    const xmlNode* root = xmlDocGetRootElement(m_doc);
    const xmlChar* rootName = root && root->name ? root->name : X("root");
    if (!xmlCreateIntSubset(m_doc, rootName, nullptr, nullptr)) return;
  }
  UTF8_ARG v(value);
  xmlAddDocEntity(m_doc, X(name), XML_INTERNAL_GENERAL_ENTITY, nullptr, nullptr,
                  v.Get() ? v.Get() : X(""));
}

void XMLDOC::AddEntity(const char* name, unsigned short ch) {
  const unsigned short text[2] = {ch, 0};
  AddEntity(name, text);
}

void XMLDOC::SetCompression(int level) {
  xmlSetCompressMode(level);
}
