// XML documents and their nodes, over libxml2.
//
// XMLNODE is a typed face on libxml2's own node record: it has no data, and
// an XMLNODE* is the very pointer of the xmlNode it stands for. Nobody makes
// an XMLNODE; callers hold the pointers that XMLDOC::GetRootNode and the
// operations below hand out. Every node belongs to its document and dies with
// it (or with Delete/Replace); a node made by Copy or taken out by Detach
// belongs to the caller until it is attached again.
//
// XMLDOC owns one document and keeps everything that touches libxml2's
// process-wide parser state inside itself: one parse at a time in the
// process. Parsing never reads the network or local files through external
// entities or a DTD, and a document whose entities would expand beyond a
// bound proportional to its size is refused (-1931), so that neither the
// parse nor a later GetText can be made to build gigabytes.
//
// Text goes in and out as UTF-16 (VOSTRING, unsigned short*) or UTF-8
// (STRUTF8, char*); element and attribute names are plain 8-bit text.
// libxml2's types are only declared here: users need not see its headers.
#ifndef VOSYSTEM_XML_H
#define VOSYSTEM_XML_H

#include "vosystem/export.h"
#include "vosystem/strutf8.h"
#include "vosystem/vostring.h"

struct _xmlNode;
struct _xmlNs;
struct _xmlDoc;
class FILEPATH;
class XMLDOC;

// A namespace of the tree: libxml2's xmlNs under a typed face.
class VOSYS_API XMLNAMESPACE {
 public:
  XMLNAMESPACE() = delete;
};

class VOSYS_API XMLNODE {
 public:
  XMLNODE() = delete;
  XMLNODE(const XMLNODE&) = delete;
  XMLNODE& operator=(const XMLNODE&) = delete;

  // ---- walking: every node kind, text and comments included; null at the end
  XMLNODE* GetFirstChild() const;
  XMLNODE* GetLastChild() const;
  XMLNODE* GetParent() const;
  XMLNODE* GetPrevious() const;
  XMLNODE* GetNext() const;
  const char* GetName() const;  // owned by the node

  // ---- attributes; exact false matches the name without regard to case
  bool HasProperty(const char* name, bool exact = true) const;
  // 1 if found (value cleared first), else 0.
  int GetProperty(const char* name, STRUTF8& value, bool exact = true) const;
  // 1 if found; the value is left as it was if not.
  int GetProperty(const char* name, VOSTRING& value, bool exact = true) const;
  // "true", "yes", "1" and "false", "no", "0" (lower case only); else the default.
  bool GetPropertyBool(const char* name, bool defaultValue, bool exact = true) const;
  // The value read as a number by C-locale rules (0.0 for a text that is no
  // number), or the default when the attribute is missing.
  double GetPropertyNum(const char* name, double defaultValue, bool exact = true) const;
  void SetProperty(const char* name, const char* utf8Value);
  void SetProperty(const char* name, const unsigned short* value);
  void UnsetProperty(const char* name);

  // ---- content
  void SetText(const unsigned short* text);
  void AppendText(const unsigned short* text);
  // The node's whole text content, white space (codes 1 to 32) trimmed at
  // both ends unless xml:space="preserve" is in force. 1 if the result isn't
  // empty, else 0 (the result then is empty). A content that would expand
  // beyond the document's entity bound gives 0 and an empty result.
  int GetText(VOSTRING& text) const;
  int GetText(STRUTF8& text) const;
  bool IsEmpty() const;  // white space only
  bool IsText() const;

  // ---- making nodes; each returns the new node, or null
  XMLNODE* NewChild(const char* name, XMLNAMESPACE* ns = nullptr);
  // The text is content: entity references in it are taken as such. (No
  // default namespace here, so that NewChild(name, nullptr) is not ambiguous.)
  XMLNODE* NewChild(const char* name, const unsigned short* text, XMLNAMESPACE* ns);
  // The text is literal.
  XMLNODE* NewTextChild(const char* name, const unsigned short* text, XMLNAMESPACE* ns = nullptr);
  XMLNODE* NewCDATAChild(const char* name, const unsigned short* text, XMLNAMESPACE* ns = nullptr);
  // A length of -1 takes the bytes up to the zero byte.
  XMLNODE* NewCDATAChild(const char* name, const unsigned char* bytes, int length,
                         XMLNAMESPACE* ns = nullptr);
  // A deep copy of source as last child, made for this node's document.
  XMLNODE* NewChild(const XMLNODE* source);
  XMLNODE* AddComment(const unsigned short* text);

  // ---- searching; null if nothing matches
  XMLNODE* FindChild(const char* name) const;
  // A null attribute matches any node of the name; a null value any node
  // that has the attribute; else the attribute's value must equal value.
  XMLNODE* FindChild(const char* name, const char* attribute, const char* value) const;
  XMLNODE* FindChild(const char* name, const char* attribute, const unsigned short* value) const;
  // The same test on the following siblings; a null name is this node's own.
  XMLNODE* FindNext(const char* name, const char* attribute, const char* value) const;
  // The first descendant, depth first in document order, whose attribute
  // has the value; this node itself is not tested.
  XMLNODE* GetElementByAttribute(const char* attribute, const char* value) const;
  XMLNODE* GetElementByAttribute(const char* attribute, const unsigned short* value) const;

  // ---- structure
  // A new unattached copy, made for doc (or for no document if null).
  XMLNODE* Copy(bool deep, XMLDOC* doc) const;
  void Delete();  // unlinks and frees: the pointer is dead afterwards
  void Detach();  // unlinks: the node is the caller's until attached again
  // Makes a detached node the last child of this one; the node passed in.
  XMLNODE* Attach(XMLNODE* node);
  // This node takes the place of old, which is freed.
  void Replace(XMLNODE* old);
  void SetNamespace(XMLNAMESPACE* ns);

 private:
  ~XMLNODE() = delete;
};

class VOSYS_API XMLDOC {
 public:
  // Points libxml2's message handler at a string for its lifetime.
  class VOSYS_API ERRORTRAP {
   public:
    explicit ERRORTRAP(VOSTRING* target);
    ~ERRORTRAP();
    ERRORTRAP(const ERRORTRAP&) = delete;
    ERRORTRAP& operator=(const ERRORTRAP&) = delete;
    static void MyErrorFunc(void* context, const char* format, ...);

   private:
    VOSTRING* m_target;
  };

  // Version "1.0" with one empty root element "root".
  XMLDOC();
  XMLDOC(const XMLDOC& other);
  // Parse text; messages are kept, a failure leaves no document (no root).
  explicit XMLDOC(const unsigned short* text);
  explicit XMLDOC(const unsigned char* utf8Text);
  ~XMLDOC();  // not virtual: documents are not deleted through a base
  XMLDOC& operator=(const XMLDOC& other);

  void Clear();  // a default document again

  // 0, the stream's code (document unchanged), or -1931 when the text gives
  // no document with a root element (the object then holds a default one).
  int Read(const FILEPATH& path);
  int ReadHTML(const FILEPATH& path);
  int ReadHTML(const unsigned short* path);
  int Parse(const unsigned char* utf8Text);  // zero-terminated

  // The bytes written (0 for a document with nothing to write, the file
  // then left empty), or a negative code. XML is always written indented.
  int Write(const FILEPATH& path) const;
  int Write(const unsigned short* path) const;
  int WriteHTML(const FILEPATH& path) const;
  int WriteHTML(const unsigned short* path) const;
  void Unparse(VOSTRING& out, bool indent);
  void UnparseHTML(VOSTRING& out, bool indent);

  XMLNODE* GetRootNode() const;
  const VOSTRING& GetErrorMessage() const;

  // An internal general entity. libxml2 needs an internal subset to hold
  // it: one named after the root element is made when there is none.
  void AddEntity(const char* name, const unsigned short* value);
  void AddEntity(const char* name, unsigned short ch);

  // libxml2's compression level for files it writes: process-wide.
  static void SetCompression(int level);

 protected:
  // Called once after every change of the tree the object holds (Read,
  // ReadHTML, Parse, Clear, assignment); constructors don't call it.
  virtual void OnDocReplaced();

 private:
  friend class XMLNODE;
  int Adopt(_xmlDoc* doc, const VOSTRING& where);
  int ReadFile(const FILEPATH& path, bool html);
  _xmlDoc* m_doc;
  VOSTRING m_errorMessage;
};

#endif
