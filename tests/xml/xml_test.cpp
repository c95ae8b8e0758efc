// XML documents and nodes. libxml2 itself (xmllint, and its C14N writer) is
// the oracle for what the documents written here contain.
#include "vosystem/xml.h"

#include <gtest/gtest.h>
#include <libxml/c14n.h>
#include <libxml/parser.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <fstream>
#include <sstream>
#include <string>

#include "test_util.h"
#include "vosystem/errors.h"
#include "vosystem/filepath.h"

namespace {

const unsigned char* B(const char* s) {
  return reinterpret_cast<const unsigned char*>(s);
}
const unsigned short* W(const char16_t* s) {
  return reinterpret_cast<const unsigned short*>(s);
}

std::string TextOf(const XMLNODE* node) {
  STRUTF8 t;
  node->GetText(t);
  return static_cast<const char*>(t);
}

std::string Unparsed(XMLDOC& doc, bool indent) {
  VOSTRING out;
  doc.Unparse(out, indent);
  return U8(out);
}

// A folder of this process's own: the tests of other programs run beside
// these in the same scratch folder.
std::string Scratch(const char* name) {
  static const std::string folder = [] {
    std::string f = std::string(VOSYS_TEST_SCRATCH) + "/xml-XXXXXX";
    return mkdtemp(f.data()) ? f : std::string(VOSYS_TEST_SCRATCH);
  }();
  return folder + "/" + name;
}

FILEPATH PathOf(const std::string& s) {
  return FILEPATH(s.c_str(), CHAR_ENCODING_UTF8);
}

void WriteFile(const std::string& path, const std::string& bytes) {
  std::ofstream(path, std::ios::binary) << bytes;
}

std::string ReadFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::stringstream s;
  s << in.rdbuf();
  return s.str();
}

// The canonical form of a document text as libxml2 gives it.
std::string Canonical(const std::string& xml) {
  xmlDoc* doc =
      xmlReadMemory(xml.data(), static_cast<int>(xml.size()), nullptr, nullptr, XML_PARSE_NOBLANKS);
  if (!doc) return "<unparsable>";
  xmlChar* out = nullptr;
  const int n = xmlC14NDocDumpMemory(doc, nullptr, XML_C14N_1_0, nullptr, 1, &out);
  std::string result = n >= 0 ? std::string(reinterpret_cast<char*>(out), n) : "<c14n failed>";
  xmlFree(out);
  xmlFreeDoc(doc);
  return result;
}

struct COUNTING_DOC : XMLDOC {
  using XMLDOC::XMLDOC;
  int replaced = 0;
  void OnDocReplaced() override { ++replaced; }
};

}  // namespace

TEST(XmlNode, AttributesReadAsTyped) {
  XMLDOC doc(
      B("<r a='TRUE' Lookup='yes' n='abc' x='2.5' f='0' e=''>"
        "<c k='1'/><c/><c k='2'/><d k='2'/></r>"));
  XMLNODE* r = doc.GetRootNode();
  ASSERT_NE(r, nullptr);
  EXPECT_TRUE(r->GetPropertyBool("a", true));  // "TRUE": no match, the default
  EXPECT_FALSE(r->GetPropertyBool("a", false));
  EXPECT_FALSE(r->GetPropertyBool("lookup", false));  // exact: "Lookup" isn't "lookup"
  EXPECT_TRUE(r->GetPropertyBool("lookup", false, false));
  EXPECT_FALSE(r->GetPropertyBool("f", true));
  EXPECT_EQ(r->GetPropertyNum("n", 7.0), 0.0);  // present: atof gives 0
  EXPECT_EQ(r->GetPropertyNum("missing", 7.0), 7.0);
  EXPECT_EQ(r->GetPropertyNum("x", 7.0), 2.5);
  EXPECT_TRUE(r->HasProperty("LOOKUP", false));
  EXPECT_FALSE(r->HasProperty("LOOKUP", true));

  STRUTF8 s("old");
  EXPECT_EQ(r->GetProperty("missing", s), 0);
  EXPECT_TRUE(s.IsEmpty());  // cleared first
  VOSTRING v("old");
  EXPECT_EQ(r->GetProperty("missing", v), 0);
  EXPECT_EQ(U8(v), "old");  // left as it was
  EXPECT_EQ(r->GetProperty("e", v), 1);
  EXPECT_TRUE(v.IsEmpty());

  r->SetProperty("u", W(u"\u00e9t\u00e9"));
  EXPECT_EQ(r->GetProperty("u", s), 1);
  EXPECT_STREQ(s, "\xc3\xa9t\xc3\xa9");
  r->UnsetProperty("u");
  EXPECT_FALSE(r->HasProperty("u"));

  // Attribute tests of the searches.
  XMLNODE* c1 = r->FindChild("c");
  ASSERT_NE(c1, nullptr);
  EXPECT_EQ(r->FindChild("c", "k", "2"), c1->GetNext()->GetNext());
  EXPECT_EQ(r->FindChild("c", "k", static_cast<const char*>(nullptr)), c1);
  EXPECT_EQ(c1->FindNext(nullptr, "k", static_cast<const char*>(nullptr)),
            c1->GetNext()->GetNext());
  EXPECT_EQ(c1->FindNext(nullptr, nullptr, static_cast<const char*>(nullptr)), c1->GetNext());
  EXPECT_EQ(r->FindChild("d", "k", W(u"2")), r->GetLastChild());
  EXPECT_EQ(r->FindChild("c", "k", "3"), nullptr);
}

TEST(XmlNode, SearchesSeeElementsInDocumentOrder) {
  // The whitespace between the elements is text nodes, which libxml2 names
  // "text": a search for elements named "text" must not find them.
  XMLDOC doc(B("<r id='0'>\n <a><b id='1'/></a>\n <text id='2'/><c id='1'/></r>"));
  XMLNODE* r = doc.GetRootNode();
  ASSERT_NE(r, nullptr);
  XMLNODE* text = r->FindChild("text");
  ASSERT_NE(text, nullptr);
  EXPECT_STREQ(text->GetName(), "text");
  EXPECT_FALSE(text->IsText());
  EXPECT_TRUE(r->GetFirstChild()->IsText());
  EXPECT_TRUE(r->GetFirstChild()->IsEmpty());

  XMLNODE* b = r->GetElementByAttribute("id", "1");  // depth first: b before c
  ASSERT_NE(b, nullptr);
  EXPECT_STREQ(b->GetName(), "b");
  EXPECT_EQ(r->GetElementByAttribute("id", "0"), nullptr);  // the node itself isn't tested
  EXPECT_EQ(r->GetElementByAttribute("id", W(u"2")), text);
  EXPECT_EQ(b->GetParent()->GetParent(), r);
}

TEST(XmlNode, TextIsTrimmedUnlessSpaceIsPreserved) {
  XMLDOC doc(
      B("<r><a>  a b \n</a><p xml:space='preserve'>  a b \n</p>"
        "<n>x<i>y</i>z</n><w> \t\n </w><u>\n \xc3\xa9 \xe2\x80\x83</u></r>"));
  XMLNODE* r = doc.GetRootNode();
  ASSERT_NE(r, nullptr);
  VOSTRING v;
  EXPECT_EQ(r->FindChild("a")->GetText(v), 1);
  EXPECT_EQ(U8(v), "a b");
  EXPECT_EQ(TextOf(r->FindChild("a")), "a b");
  EXPECT_EQ(r->FindChild("p")->GetText(v), 1);
  EXPECT_EQ(U8(v), "  a b \n");
  EXPECT_EQ(TextOf(r->FindChild("n")), "xyz");  // all descendants
  EXPECT_EQ(r->FindChild("w")->GetText(v), 0);
  EXPECT_TRUE(v.IsEmpty());
  STRUTF8 s("x");
  EXPECT_EQ(r->FindChild("w")->GetText(s), 0);
  EXPECT_TRUE(s.IsEmpty());
  // Only codes up to 32 are trimmed: an em space stays, in both forms.
  EXPECT_EQ(r->FindChild("u")->GetText(v), 1);
  EXPECT_EQ(U8(v), "\xc3\xa9 \xe2\x80\x83");
  EXPECT_EQ(TextOf(r->FindChild("u")), "\xc3\xa9 \xe2\x80\x83");
}

TEST(XmlNode, BuildingAndRestructuringGiveTheTreeLibxml2Reads) {
  XMLDOC doc;
  XMLNODE* root = doc.GetRootNode();
  ASSERT_NE(root, nullptr);
  EXPECT_EQ(root->NewChild(static_cast<const XMLNODE*>(nullptr)), nullptr);
  XMLNODE* a = root->NewChild("a", W(u"x &amp; y"), nullptr);  // content: the reference counts
  XMLNODE* t = root->NewTextChild("t", W(u"x &amp; y"));       // literal
  XMLNODE* c = root->NewCDATAChild("c", B("1 < 2\0tail"), -1);
  XMLNODE* e = root->NewChild("e");
  root->AddComment(W(u"note"));
  ASSERT_TRUE(a && t && c && e);
  EXPECT_EQ(TextOf(a), "x & y");
  EXPECT_EQ(TextOf(t), "x &amp; y");
  EXPECT_EQ(TextOf(c), "1 < 2");
  e->SetText(W(u"one"));
  e->AppendText(W(u" & two"));
  EXPECT_EQ(TextOf(e), "one & two");

  // Copies, replacement, detaching and attaching.
  XMLNODE* copy = a->Copy(true, &doc);
  ASSERT_NE(copy, nullptr);
  copy->SetProperty("copied", "yes");
  copy->Replace(t);  // copy stands where t stood; t is gone
  EXPECT_EQ(a->GetNext(), copy);
  XMLNODE* shallow = copy->Copy(false, nullptr);
  ASSERT_NE(shallow, nullptr);
  EXPECT_TRUE(shallow->HasProperty("copied"));
  EXPECT_EQ(shallow->GetFirstChild(), nullptr);
  shallow->Delete();
  e->Detach();
  EXPECT_EQ(root->FindChild("e"), nullptr);
  XMLNODE* tail = e->GetFirstChild();
  tail->Detach();
  EXPECT_EQ(root->Attach(e), e);
  EXPECT_EQ(root->GetLastChild(), e);
  // A text node attached after text keeps its own node (no merging).
  EXPECT_EQ(e->Attach(tail), tail);
  EXPECT_EQ(e->GetLastChild(), tail);
  XMLNODE* deep = root->NewChild(root->FindChild("a"));
  ASSERT_NE(deep, nullptr);

  const std::string written = Unparsed(doc, true);
  EXPECT_EQ(Canonical(written), Canonical("<root><a>x &amp; y</a><a copied=\"yes\">x &amp; y</a>"
                                          "<c><![CDATA[1 < 2]]></c><!--note--><e>one &amp; two</e>"
                                          "<a>x &amp; y</a></root>"));

  // xmllint reads the file Write makes as the same tree.
  const std::string path = Scratch("built.xml");
  const int bytes = doc.Write(PathOf(path));
  EXPECT_EQ(bytes, static_cast<int>(ReadFile(path).size()));
  const std::string lint = Scratch("lint.xml");
  ASSERT_EQ(system(("xmllint --noblanks --c14n " + path + " > " + lint).c_str()), 0);
  EXPECT_EQ(ReadFile(lint), Canonical(written));
}

TEST(XmlDoc, ReadingFailuresLeaveADefinedDocument) {
  COUNTING_DOC doc(B("<kept/>"));
  EXPECT_EQ(doc.replaced, 0);  // constructors don't call it

  // A missing file: the stream's code, and the tree stays.
  const int missing = doc.Read(PathOf(Scratch("no-such.xml")));
  EXPECT_LT(missing, 0);
  EXPECT_NE(missing, -1931);
  EXPECT_STREQ(doc.GetRootNode()->GetName(), "kept");
  EXPECT_EQ(doc.replaced, 0);

  // An empty file: -1931 and a default document.
  WriteFile(Scratch("empty.xml"), "");
  EXPECT_EQ(doc.Read(PathOf(Scratch("empty.xml"))), -1931);
  EXPECT_STREQ(doc.GetRootNode()->GetName(), "root");
  EXPECT_EQ(doc.replaced, 1);
  EXPECT_NE(U8(GetRefErrStr()).find("empty.xml"), std::string::npos);

  // Memory without a root: "---" where the path would be, the parser's
  // message whole.
  EXPECT_EQ(doc.Parse(B("<a><b></a>")), -1931);
  EXPECT_NE(U8(GetRefErrStr()).find("---"), std::string::npos);
  const std::string message = U8(doc.GetErrorMessage());
  EXPECT_NE(message.find("mismatch"), std::string::npos) << message;
  EXPECT_EQ(doc.replaced, 2);

  // Success, with and without warnings.
  WriteFile(Scratch("ok.xml"), "<?xml version='1.0'?><ok>1</ok>");
  EXPECT_EQ(doc.Read(PathOf(Scratch("ok.xml"))), 0);
  EXPECT_STREQ(doc.GetRootNode()->GetName(), "ok");
  EXPECT_TRUE(doc.GetErrorMessage().IsEmpty());
  EXPECT_EQ(doc.replaced, 3);
  doc.Clear();
  EXPECT_EQ(doc.replaced, 4);

  // A document that failed in its constructor has no tree, and assigning it
  // gives an empty document without a root, not a default one.
  XMLDOC broken(W(u"<unclosed>"));
  EXPECT_EQ(broken.GetRootNode(), nullptr);
  EXPECT_FALSE(broken.GetErrorMessage().IsEmpty());
  XMLDOC& base = doc;
  base = broken;
  EXPECT_EQ(doc.GetRootNode(), nullptr);
  EXPECT_EQ(doc.replaced, 5);
  base = doc;  // itself
  EXPECT_EQ(doc.replaced, 5);
  XMLDOC copied(doc);
  EXPECT_EQ(copied.GetRootNode(), nullptr);
}

TEST(XmlDoc, WritingAndUnparsing) {
  XMLDOC doc;
  const std::string path = Scratch("default.xml");
  EXPECT_GT(doc.Write(PathOf(path)), 0);
  EXPECT_EQ(ReadFile(path), "<?xml version=\"1.0\"?>\n<root/>\n");

  XMLDOC nested(B("<a><b><c/></b></a>"));
  const std::string flat = Unparsed(nested, false);
  const std::string indented = Unparsed(nested, true);
  EXPECT_NE(flat, indented);
  EXPECT_NE(indented.find("\n  <b>"), std::string::npos) << indented;
  EXPECT_EQ(Canonical(flat), Canonical(indented));

  // Entities: the subset is made on demand, and later text may use them.
  doc.AddEntity("nbsp", static_cast<unsigned short>(0xA0));
  XMLNODE* p = doc.GetRootNode()->NewChild("p", W(u"a&nbsp;b"), nullptr);
  ASSERT_NE(p, nullptr);
  VOSTRING v;
  EXPECT_EQ(p->GetText(v), 1);
  EXPECT_EQ(U16(v), u"a\u00a0b");
  const std::string withEntity = Unparsed(doc, true);
  EXPECT_NE(withEntity.find("<!ENTITY nbsp"), std::string::npos) << withEntity;
  XMLDOC reread(B(withEntity.c_str()));
  ASSERT_NE(reread.GetRootNode(), nullptr);
  EXPECT_EQ(TextOf(reread.GetRootNode()->FindChild("p")),
            "a\xc2\xa0"
            "b");

  // HTML in and out.
  WriteFile(Scratch("page.html"), "<html><body><p>Hi<br>there</body></html>");
  COUNTING_DOC html;
  EXPECT_EQ(html.ReadHTML(PathOf(Scratch("page.html"))), 0);
  EXPECT_EQ(html.replaced, 1);
  ASSERT_NE(html.GetRootNode(), nullptr);
  EXPECT_STREQ(html.GetRootNode()->GetName(), "html");
  VOSTRING out;
  html.UnparseHTML(out, true);
  EXPECT_NE(U8(out).find("<p>Hi<br>there</p>"), std::string::npos) << U8(out);
  EXPECT_GT(html.WriteHTML(PathOf(Scratch("out.html"))), 0);
  EXPECT_NE(ReadFile(Scratch("out.html")).find("<br>"), std::string::npos);
}

TEST(XmlDoc, HostileDocumentsFailCleanly) {
  // Exponential entities ("billion laughs").
  std::string laughs = "<?xml version='1.0'?><!DOCTYPE l [<!ENTITY l0 'lol'>";
  for (int i = 1; i <= 10; ++i) {
    laughs += "<!ENTITY l" + std::to_string(i) + " '";
    for (int j = 0; j < 10; ++j) laughs += "&l" + std::to_string(i - 1) + ";";
    laughs += "'>";
  }
  laughs += "]><l>&l10;</l>";
  XMLDOC doc;
  const auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(doc.Parse(B(laughs.c_str())), -1931);
  EXPECT_FALSE(doc.GetErrorMessage().IsEmpty());

  // One 10 KB entity referenced 30,000 times: 300 MB of text from 120 KB.
  std::string quadratic = "<!DOCTYPE q [<!ENTITY e '" + std::string(10240, 'x') + "'>]><q>";
  for (int i = 0; i < 30000; ++i) quadratic += "&e;";
  quadratic += "</q>";
  EXPECT_EQ(doc.Parse(B(quadratic.c_str())), -1931);
  EXPECT_NE(U8(doc.GetErrorMessage()).find("expand"), std::string::npos);
  EXPECT_STREQ(doc.GetRootNode()->GetName(), "root");
  // The same in an attribute value.
  std::string inAttribute = "<!DOCTYPE q [<!ENTITY e '" + std::string(10240, 'x') + "'>]><q a='";
  for (int i = 0; i < 30000; ++i) inAttribute += "&e;";
  inAttribute += "'/>";
  EXPECT_EQ(doc.Parse(B(inAttribute.c_str())), -1931);
  // Neither took long enough to have expanded anything (a generous bound:
  // this is a guard against a hang, not a timing test).
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(60));

  // A modest use of entities is fine.
  EXPECT_EQ(doc.Parse(B("<!DOCTYPE q [<!ENTITY e 'ab'>]><q>&e;&e;</q>")), 0);
  EXPECT_EQ(TextOf(doc.GetRootNode()), "abab");
  // To a walker a reference is a leaf: its declaration, which libxml2 hangs
  // below it, is outside the tree.
  XMLNODE* reference = doc.GetRootNode()->GetFirstChild();
  ASSERT_NE(reference, nullptr);
  EXPECT_EQ(reference->GetFirstChild(), nullptr);
  EXPECT_EQ(reference->GetLastChild(), nullptr);
  EXPECT_EQ(reference->GetNext()->GetNext(), nullptr);

  // External entities and DTDs are never read, and the application's own
  // loader is back in place afterwards.
  const std::string secret = Scratch("secret.txt");
  WriteFile(secret, "TOP-SECRET");
  const std::string external =
      "<!DOCTYPE q [<!ENTITY s SYSTEM 'file://" + secret + "'>]><q>&s;</q>";
  const xmlExternalEntityLoader before = xmlGetExternalEntityLoader();
  if (doc.Parse(B(external.c_str())) == 0) {
    EXPECT_EQ(TextOf(doc.GetRootNode()), "");
  }
  EXPECT_EQ(U8(doc.GetErrorMessage()).find("TOP-SECRET"), std::string::npos);
  EXPECT_EQ(xmlGetExternalEntityLoader(), before);
  WriteFile(Scratch("ext.dtd"), "<!ENTITY s 'TOP-SECRET'>");
  const std::string dtd = "<!DOCTYPE q SYSTEM 'file://" + Scratch("ext.dtd") + "'><q>x</q>";
  EXPECT_EQ(doc.Parse(B(dtd.c_str())), 0);
  EXPECT_EQ(Unparsed(doc, false).find("TOP-SECRET"), std::string::npos);
}

TEST(XmlDoc, TextComesOutAsUtf8WhateverTheDocumentWasReadFrom) {
  XMLDOC doc(B("<?xml version='1.0' encoding='ISO-8859-1'?><r>caf\xe9</r>"));
  ASSERT_NE(doc.GetRootNode(), nullptr);
  EXPECT_EQ(TextOf(doc.GetRootNode()), "caf\xc3\xa9");
  VOSTRING out;
  doc.Unparse(out, false);
  // As UTF-8 or as a character reference, never as the Latin-1 byte.
  const std::string written = U8(out);
  EXPECT_TRUE(written.find("<r>caf\xc3\xa9</r>") != std::string::npos ||
              written.find("<r>caf&#xE9;</r>") != std::string::npos)
      << written;
  XMLDOC again(static_cast<const unsigned short*>(out));
  ASSERT_NE(again.GetRootNode(), nullptr);
  EXPECT_EQ(TextOf(again.GetRootNode()), "caf\xc3\xa9");
}
