// Indexes arbitrary bytes as a character database file. Every record found
// must lie inside the block and describe its own code, and every composite
// chain must end, be ordered by descending decomposition length, and hold only
// records whose decomposition starts with the chain's owner.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "text/ucdata_table.h"
#include "vosystem/ucdata.h"

namespace {

// More steps than there are codes can only be a circle.
constexpr int kMaxChainSteps = 65536;

void Check(bool ok) {
  if (!ok) __builtin_trap();
}

void CheckRecord(const unsigned char* rec, unsigned short code, const unsigned char* block,
                 size_t size) {
  // As addresses: a stray pointer needn't point into the block at all.
  const uintptr_t start = reinterpret_cast<uintptr_t>(block);
  const uintptr_t at = reinterpret_cast<uintptr_t>(rec);
  Check(at >= start + 2 && (at - start) % 2 == 0 && at - start + UCDATA::kHeaderSize <= size);
  const size_t recSize = UCDATA::kHeaderSize + 2 * size_t{UCDATA::SequenceLength(rec)};
  Check(size - (at - start) >= recSize);
  Check(UCDATA::Code(rec) == code);
}

// A record that composes with its chain's owner is among the candidates of
// its first two units, as it stands; one with a zero unit is in none.
void CheckCandidate(const UCDATA_TABLE& table, const unsigned char* rec, unsigned short owner) {
  const int length = UCDATA::SequenceLength(rec);
  if (length < 2 || UCDATA::DecompTag(rec) != UCDECOMPTYPE_Canonical) return;
  bool hasZero = false;
  for (int i = 1; i < length; ++i) hasZero |= UCDATA::SequenceUnit(rec, i) == 0;
  int count = 0;
  const UCDATA_COMPOSITE* list = table.Candidates(owner, UCDATA::SequenceUnit(rec, 1), &count);
  int listed = 0;
  for (int i = 0; i < count; ++i) {
    if (list[i].rec != rec) continue;
    ++listed;
    Check(list[i].code == UCDATA::Code(rec) && list[i].length == static_cast<uint32_t>(length));
    Check(list[i].third == (length > 2 ? UCDATA::SequenceUnit(rec, 2) : 0));
  }
  Check(listed == (hasZero ? 0 : 1));
}

// The packed answers agree with the record: the category's and bidi class's
// low six bits (L for a code without a record or below 32), and the flags of
// the whole category byte.
void CheckProps(const UCDATA_TABLE& table, unsigned short code, const unsigned char* rec) {
  const uint16_t props = table.Props(code);
  const unsigned category = rec ? UCDATA::Category(rec) : 0;
  const unsigned categoryBit = rec ? category & 0x3F : 63;
  const unsigned bidiBit = rec && code >= 32 ? UCDATA::BidiClass(rec) & 0x3F : 0;
  Check(((props & UCDATA_PROP_CategoryBits) ^ UCDATA_PROP_CategoryBits) == categoryBit);
  Check((props >> UCDATA_PROP_BidiShift & UCDATA_PROP_BidiBits) == bidiBit);
  Check(((props & UCDATA_PROP_Upper) != 0) == (rec && category == UCCATEGORY_Lu));
  Check(((props & UCDATA_PROP_Lower) != 0) == (rec && category == UCCATEGORY_Ll));
  Check(table.IsProp(code, 0xFFFFFFFFul) == (categoryBit < 32));
  Check(table.IsBidiProp(code, 0xFFFFFFFFul) == (bidiBit < 32));
}

// Walks the chain of the records whose decomposition starts with owner.
void CheckChain(const UCDATA_TABLE& table, const unsigned char* owner) {
  const unsigned short ownerCode = UCDATA::Code(owner);
  unsigned short link = UCDATA::VariantLink(owner);
  int previousLength = 256;
  for (int steps = 0; link != 0; ++steps) {
    Check(steps < kMaxChainSteps);
    const unsigned char* rec = table.Find(link);
    Check(rec != nullptr);
    const int length = UCDATA::SequenceLength(rec);
    Check(length >= 1 && length <= previousLength);
    Check(UCDATA::SequenceUnit(rec, 0) == ownerCode);
    previousLength = length;
    CheckCandidate(table, rec, ownerCode);
    const unsigned short next = UCDATA::NextVariant(rec);
    if (next == link) break;
    link = next;
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  auto* block = static_cast<unsigned char*>(malloc(size ? size : 1));
  if (!block) return 0;
  if (size) memcpy(block, data, size);
  UCDATA_TABLE table;
  const int indexed = table.Index(block, size);
  int found = 0;
  for (uint32_t c = 0; c <= 0xFFFF; ++c) {
    const unsigned short code = static_cast<unsigned short>(c);
    const unsigned char* rec = table.Find(code);
    CheckProps(table, code, rec);
    if (!rec) continue;
    ++found;
    CheckRecord(rec, code, block, size);
    CheckChain(table, rec);
  }
  // A later record of the same code replaces an earlier one.
  Check(found <= indexed);
  table.Release();
  for (uint32_t c = 0; c <= 0xFFFF; c += 0x101) Check(!table.Find(static_cast<unsigned short>(c)));
  free(block);
  return 0;
}
