// vosys xml: documents through the library's XML layer.
//
//   vosys xml [--html] FILE   the document, parsed and written out indented
//   vosys xml --ids FILE      the elements whose text is an identifier of a
//                             known authority ("EPSG:4326"), one per line
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "commands.h"
#include "vosystem/vosystem.h"

namespace {

int Usage() {
  std::fputs("usage: vosys xml [--html | --ids] FILE\n", stderr);
  return 2;
}

void PrintUtf8(const VOSTRING& text, FILE* to) {
  char* bytes = text.GetEncoded(CHAR_ENCODING_UTF8);
  if (bytes) std::fputs(bytes, to);
  std::free(bytes);
}

// Depth first in document order; an element is listed when its own text
// (not its children's) names an authority the library knows.
void ListIdentifiers(XMLNODE* top) {
  XMLNODE* node = top;
  while (node) {
    // An element of text alone: children, none of which has children of its
    // own (text, and entity references, which a walk sees as leaves).
    bool leaf = node->GetFirstChild() != nullptr;
    for (XMLNODE* c = node->GetFirstChild(); c && leaf; c = c->GetNext())
      leaf = c->GetFirstChild() == nullptr;
    IDENTIFIER id;
    SetErrPosnDisable();
    const bool found = leaf && id.CreateFromXML(node) == 0 && id.GetCodespace() != 0;
    SetErrPosnEnable();
    if (found) {
      std::printf("%-12s ", node->GetName());
      PrintUtf8(id.GetFullStr(), stdout);
      std::printf("  (authority %d, code %ld)\n", static_cast<int>(id.GetCodespace()), id.GetNum());
    }
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

int CmdXml(int argc, char** argv) {
  bool html = false, ids = false;
  int i = 0;
  for (; i < argc && argv[i][0] == '-' && argv[i][1]; ++i) {
    if (std::strcmp(argv[i], "--html") == 0)
      html = true;
    else if (std::strcmp(argv[i], "--ids") == 0)
      ids = true;
    else
      return Usage();
  }
  if (i + 1 != argc || (html && ids)) return Usage();
  const FILEPATH path(argv[i], CHAR_ENCODING_UTF8);
  XMLDOC doc;
  const int rc = html ? doc.ReadHTML(path) : doc.Read(path);
  if (rc < 0) {
    std::fputs("vosys: ", stderr);
    PrintUtf8(VOSTRING(GetErrStrUC(rc, nullptr)), stderr);
    std::fputs("\n", stderr);
    if (!doc.GetErrorMessage().IsEmpty()) PrintUtf8(doc.GetErrorMessage(), stderr);
    return 1;
  }
  if (ids) {
    ListIdentifiers(doc.GetRootNode());
    return 0;
  }
  VOSTRING out;
  if (html)
    doc.UnparseHTML(out, true);
  else
    doc.Unparse(out, true);
  PrintUtf8(out, stdout);
  return 0;
}
