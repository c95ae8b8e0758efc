// Paths from arbitrary text in each syntax, and the pure operations on
// them: composition, relative paths, the text forms and the wildcards. The
// first byte picks the syntax and a split point; nothing here touches the
// disk beyond stat calls on names that don't exist.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "vosystem/filepath.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 2) return 0;
  static const char* const kCodes[] = {"", "!PC!", "!MAC!", "!UNIX!", "!UNIX!/fz/"};
  const std::string text(reinterpret_cast<const char*>(data) + 1, size - 1);
  const size_t split = data[0] % (text.size() + 1);
  const std::string a = text.substr(0, split), b = text.substr(split);
  const std::string code = kCodes[data[0] % 5];

  // Rooted under a folder that doesn't exist, so that no step asks about
  // real files of the machine.
  FILEPATH base("!UNIX!/nonexistent-fuzz-root", CHAR_ENCODING_ASCII);
  base.Append((code + a).c_str(), CHAR_ENCODING_UTF8);
  FILEPATH other("!UNIX!/nonexistent-fuzz-root", CHAR_ENCODING_ASCII);
  other.Append(b.c_str(), CHAR_ENCODING_ASCII);
  (void)base.GetDisplay();
  (void)base.GetQuotedPath();
  (void)base.GetExtension();
  (void)base.GetNameOnly();
  VOLIST<VOSTRING> parts;
  base.GetComponents(parts);
  const VOSTRING rel = other.GetRelativePath(base);
  FILEPATH joined(base);
  if (FILEPATH::IsRelativePath(rel))
    joined += rel;
  else
    joined = rel;
  // Both are rooted; where neither holds an empty, "." or ".." component
  // (kept as composed), the relative path read against the base must name
  // the other path again.
  auto plain = [](const VOSTRING& p) {
    const int n = p.GetLength();
    return p[0] == '/' && (n == 1 || p[n - 1] != '/') && p.FindNextOf(VOSTRING("//")) < 0 &&
           p.FindNextOf(VOSTRING("/.")) < 0;
  };
  const bool checkable = plain(other.GetText()) && plain(base.GetText());
  if (checkable && !joined.IsEqual(other)) abort();
  FILEPATH copy(base);
  copy.StripExtension();
  copy.StripLastComponent();
  copy.StripToRoot();
  copy.ReplaceRoot(other);
  char* os = base.GenerateOSPath();
  free(os);
  (void)match(a.c_str(), b.c_str());
  (void)strwcmp(a.c_str(), b.c_str(), data[0] & 1);
  return 0;
}
