// vosys path TEXT...: how each text parses as a path.
#include <cstdio>
#include <cstdlib>
#include <string>

#include "commands.h"
#include "vosystem/vosystem.h"

namespace {

std::string Utf8(const VOSTRING& s) {
  char* bytes = s.GetEncoded(CHAR_ENCODING_UTF8);
  std::string out(bytes ? bytes : "");
  std::free(bytes);
  return out;
}

const char* KindOf(const FILEPATH& p) {
  if (p.IsFolder()) return "folder";
  if (p.IsFile()) return "file";
  return "missing";
}

}  // namespace

int CmdPath(int argc, char** argv) {
  if (argc < 1) {
    std::fprintf(stderr, "usage: vosys path TEXT...\n");
    return 2;
  }
  const FILEPATH here(PATHTYPE_Current);
  for (int i = 0; i < argc; ++i) {
    const FILEPATH p(argv[i], CHAR_ENCODING_UTF8);
    std::printf("%s\n", argv[i]);
    std::printf("  stored     %s\n", Utf8(p.GetEncoded()).c_str());
    std::printf("  display    %s\n", Utf8(p.GetDisplay()).c_str());
    VOLIST<VOSTRING> parts;
    p.GetComponents(parts);
    std::string list;
    bool first = true;  // the first is the root's: empty
    for (const VOSTRING& part : parts) {
      if (!first) list += (list.empty() ? "" : " | ") + Utf8(part);
      first = false;
    }
    const bool rooted = p.GetText()[0] == '/';
    std::printf("  components %s%s\n", rooted ? "(root) " : "",
                list.empty() ? "(none)" : list.c_str());
    std::printf("  name       %s\n", Utf8(p.GetName()).c_str());
    std::printf("  extension  %s\n", p.HasExtension() ? Utf8(p.GetExtension()).c_str() : "(none)");
    const VOSTRING rel = p.GetRelativePath(here);
    std::printf("  from here  %s\n", Utf8(rel).c_str());
    std::printf("  on disk    %s\n", KindOf(p));
  }
  return 0;
}
