// MucDecompose and MucRecompose on arbitrary UTF-16 text with the real
// character database: decomposing never shortens the text, composing never
// lengthens it, and composing a decomposed text, which is full of sequences
// that compose, holds to the same bound. Composition must also give exactly
// what the plain walk of each base's whole composite chain gives.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <vector>

#include "vosystem/ucdata.h"
#include "vosystem/ucdecomp.h"

namespace {

void Check(bool ok) {
  if (!ok) __builtin_trap();
}

size_t Length(const unsigned short* s) {
  size_t n = 0;
  while (s[n]) ++n;
  return n;
}

// Units whose record decomposes into two or more: the length of the result.
size_t DecomposedLength(const unsigned short* s) {
  size_t n = 0;
  for (; *s; ++s) {
    const unsigned char* rec = GetUCDATA(*s);
    const int length = rec ? UCDATA::SequenceLength(rec) : 0;
    n += length > 1 ? static_cast<size_t>(length) : 1;
  }
  return n;
}

// The first record on base's chain that spells base and the text after pos.
const unsigned char* WalkChain(unsigned short base, const unsigned short* text, size_t pos) {
  const unsigned char* owner = GetUCDATA(base);
  for (unsigned short link = owner ? UCDATA::VariantLink(owner) : 0; link;) {
    const unsigned char* rec = GetUCDATA(link);
    int n = UCDATA::SequenceLength(rec);
    bool match = n > 1 && UCDATA::DecompTag(rec) == 0 && UCDATA::SequenceUnit(rec, 0) == base;
    for (int i = 1; match && i < n; ++i)
      match = UCDATA::SequenceUnit(rec, i) != 0 && text[pos + i] == UCDATA::SequenceUnit(rec, i);
    if (match) return rec;
    link = UCDATA::NextVariant(rec);
  }
  return nullptr;
}

std::vector<unsigned short> ReferenceRecompose(const unsigned short* text) {
  std::vector<unsigned short> out;
  for (size_t pos = 0; text[pos]; ++pos) {
    unsigned short base = text[pos];
    while (const unsigned char* rec = WalkChain(base, text, pos)) {
      base = UCDATA::Code(rec);
      pos += UCDATA::SequenceLength(rec) - 1;
    }
    out.push_back(base);
  }
  out.push_back(0);
  return out;
}

// Composes text and checks the result against its bound and the reference.
void CheckRecompose(const unsigned short* text, size_t length) {
  unsigned short* composed = MucRecompose(text);
  Check(composed != nullptr);
  Check(Length(composed) <= length);
  std::vector<unsigned short> expected = ReferenceRecompose(text);
  for (size_t i = 0; i < expected.size(); ++i) Check(composed[i] == expected[i]);
  free(composed);
}

}  // namespace

// Without the data neither function has anything to do: fuzzing then would
// test nothing.
extern "C" int LLVMFuzzerInitialize(int*, char***) {
  const unsigned char* rec = GetUCDATA(0x00E9);
  if (!rec || UCDATA::SequenceLength(rec) != 2) {
    fprintf(stderr, "fuzz_decompose: ucdata.ref not found; set VOSYS_DATA_DIR\n");
    exit(1);
  }
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  std::vector<unsigned short> text;
  for (size_t i = 0; i + 1 < size; i += 2) {
    text.push_back(static_cast<unsigned short>(data[i] | data[i + 1] << 8));
  }
  text.push_back(0);
  const size_t length = Length(text.data());

  unsigned short* decomposed = MucDecompose(text.data());
  Check(decomposed != nullptr);
  const size_t decomposedLength = Length(decomposed);
  Check(decomposedLength == DecomposedLength(text.data()));
  Check(decomposedLength >= length);

  CheckRecompose(text.data(), length);
  CheckRecompose(decomposed, decomposedLength);
  free(decomposed);
  return 0;
}
