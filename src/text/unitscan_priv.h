// Scans of UTF-16 text whose length the caller knows, the hot loops of the
// string class: the first place of a unit, or of a pair of units (the
// first and last of a text searched for), the place where a comparison of
// two texts ends. They run on the kernel that the UTF converters chose
// (utfconv_priv.h), so that one choice, and one test hook, governs all the
// text kernels, and they read nothing outside the n units they are given,
// not even within an aligned word: the caller's block may end right there.
#ifndef VOSYS_SRC_TEXT_UNITSCAN_PRIV_H
#define VOSYS_SRC_TEXT_UNITSCAN_PRIV_H

#include <cstddef>
#include <cstdint>

namespace unitscan {

// Index of the first unit equal to c among the n units at s, or n.
size_t Find(const uint16_t* s, size_t n, uint16_t c);

// Index of the first of the n places i from s where s[i] is `first` and
// s[i + gap] is `last`, or n: where a text of those first and last units
// may start, gap + 1 units long. Reads the n + gap units from s.
size_t FindPair(const uint16_t* s, size_t n, uint16_t first, uint16_t last, size_t gap);

// Index of the first of the n units at a and at b where a comparison of
// null-terminated texts ends: where they differ, or where a holds a 0 (the
// first place where its text ends); n if there is none.
size_t CompareEnd(const uint16_t* a, const uint16_t* b, size_t n);

}  // namespace unitscan

#endif
