// XML documents from arbitrary bytes: parsed (as XML, or as HTML when the
// first byte is odd), every node's text and attributes read, searched,
// written, and the written text parsed again, which must succeed: what this
// library writes, it must be able to read. Entities may appear anywhere, so
// the expansion bound is exercised too.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "vosystem/filepath.h"
#include "vosystem/ucconv.h"
#include "vosystem/xml.h"

namespace {

void Visit(XMLNODE* top) {
  // Depth first without recursion, as deep as the parser lets a tree go.
  XMLNODE* node = top;
  while (node) {
    VOSTRING text;
    STRUTF8 bytes;
    node->GetText(text);
    node->GetText(bytes);
    node->GetPropertyBool("a", false, false);
    node->GetPropertyNum("b", 0.0, true);
    node->FindChild("a", "b", static_cast<const char*>(nullptr));
    if (node->GetFirstChild()) {
      node = node->GetFirstChild();
      continue;
    }
    while (node != top && !node->GetNext()) node = node->GetParent();
    if (node == top) break;
    node = node->GetNext();
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 1) return 0;
  const bool html = data[0] & 1;
  std::string text(reinterpret_cast<const char*>(data + 1), size - 1);
  XMLDOC doc;
  if (html) {
    // HTML is read from files only.
    char path[] = "/tmp/fuzz-xml-XXXXXX";
    const int fd = mkstemp(path);
    if (fd < 0) return 0;
    FILE* f = fdopen(fd, "wb");
    fwrite(text.data(), 1, text.size(), f);
    fclose(f);
    const int rc = doc.ReadHTML(FILEPATH(path, CHAR_ENCODING_UTF8));
    remove(path);
    if (rc < 0) return 0;
  } else if (doc.Parse(reinterpret_cast<const unsigned char*>(text.c_str())) < 0) {
    return 0;
  }
  XMLNODE* root = doc.GetRootNode();
  if (!root) __builtin_trap();
  Visit(root);
  root->GetElementByAttribute("id", "x");

  VOSTRING out;
  if (html) {
    doc.UnparseHTML(out, true);
    return 0;
  }
  doc.Unparse(out, (data[0] & 2) != 0);
  if (out.IsEmpty()) return 0;
  XMLDOC again(static_cast<const unsigned short*>(out));
  if (!again.GetRootNode()) __builtin_trap();
  return 0;
}
