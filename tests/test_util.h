// Helpers shared by the tests: readable VOSTRING values in failure messages.
#ifndef VOSYS_TESTS_TEST_UTIL_H
#define VOSYS_TESTS_TEST_UTIL_H

#include <cpuid.h>

#include <cstdint>
#include <cstdlib>
#include <fstream>
#include <ostream>
#include <string>

#include "vosystem/ucstring.h"
#include "vosystem/vostring.h"

// The text as UTF-8, for comparisons with string literals.
inline std::string U8(const VOSTRING& s) {
  char* out = nullptr;
  if (MucConvertUnicodeToUTF8(s, &out) < 0) return "<conversion failed>";
  std::string result(out);
  std::free(out);
  return result;
}

inline std::u16string U16(const VOSTRING& s) {
  const unsigned short* p = s;
  return std::u16string(reinterpret_cast<const char16_t*>(p), s.GetLength());
}

inline void PrintTo(const VOSTRING& s, std::ostream* os) {
  *os << '"' << U8(s) << '"';
}

// A locale whose decimal mark is a comma, made with localedef from a source
// and an ASCII character map written here, so that no locale package is
// needed. Returns the folder to put in LOCPATH, or "" if it can't be made.
inline std::string MakeCommaLocale() {
  const char* tmp = getenv("TMPDIR");
  std::string folder = std::string(tmp && *tmp ? tmp : "/tmp") + "/vosys-locale-XXXXXX";
  if (!mkdtemp(folder.data())) return "";
  std::ofstream(folder + "/src")
      << "LC_NUMERIC\ndecimal_point \",\"\nthousands_sep \".\"\ngrouping 3;3\nEND LC_NUMERIC\n";
  std::ofstream map(folder + "/map");
  map << "<code_set_name> ASCII-TEST\n<mb_cur_min> 1\n<mb_cur_max> 1\nCHARMAP\n"
      << std::hex << std::uppercase;
  for (int c = 0; c < 128; ++c)
    map << "<U00" << c / 16 << c % 16 << "> \\x" << c / 16 << c % 16 << "\n";
  map << "END CHARMAP\n";
  map.close();
  // localedef warns about the categories left out, and exits non-zero for it.
  const std::string cmd = "localedef -c -i " + folder + "/src -f " + folder + "/map " + folder +
                          "/comma >/dev/null 2>&1";
  if (system(cmd.c_str()) == -1 || !std::ifstream(folder + "/comma/LC_NUMERIC")) return "";
  return folder;
}

// Whether the upper halves of vector registers 0-15 hold anything, as the
// processor tracks it (XINUSE, the bits of the AVX and AVX-512 upper
// halves): SSE code that runs while they do is slowed down. *known is false
// where the processor, or the emulator the test runs under, can't tell.
inline bool UpperRegisterHalvesInUse(bool* known) {
  unsigned a, b, c, d;
  *known = __get_cpuid(1, &a, &b, &c, &d) && (c & (1u << 27)) != 0 &&  // OSXSAVE
           __get_cpuid_count(0xD, 1, &a, &b, &c, &d) && (a & (1u << 2)) != 0;
  if (!*known) return false;
  uint32_t low, high;
  __asm__ volatile("xgetbv" : "=a"(low), "=d"(high) : "c"(1));
  return (low & ((1u << 2) | (1u << 6))) != 0;
}

// Clears the upper register halves, where the processor has them, so that a
// check after a call sees only what the call left (the allocator and the
// sanitizers' runtime may leave them in use).
inline void ClearUpperRegisterHalves() {
  if (__builtin_cpu_supports("avx")) __asm__ volatile("vzeroupper");
}

#endif
