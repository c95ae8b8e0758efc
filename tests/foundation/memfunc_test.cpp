// Mm allocators: size rules, zero-filling, failures and their records.
#include "vosystem/memfunc.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <string>

#include "vosystem/errors.h"
#include "vosystem/vostring.h"

namespace {

std::string Record() {
  std::string out;
  for (const unsigned short* s = GetRefErrStr(); *s; ++s) out += static_cast<char>(*s);
  return out;
}

bool AllZero(const void* p, size_t n) {
  const auto* b = static_cast<const unsigned char*>(p);
  return std::all_of(b, b + n, [](unsigned char c) { return c == 0; });
}

}  // namespace

TEST(MmAlloc, SizesContentsAndFailures) {
  unsigned char* p = nullptr;
  ASSERT_EQ(MmAlloc(&p, 0), 0);
  p[0] = 1;  // one usable byte: the sanitizer checks the write
  free(p);
  ASSERT_EQ(MmAllocC(&p, 4096), 0);
  EXPECT_TRUE(AllZero(p, 4096));
  free(p);
  p = nullptr;
  ASSERT_EQ(MmRealloc(&p, 3), 0);  // null: a plain allocation
  memcpy(p, "abc", 3);
  // Impossible sizes fail cleanly; a failed realloc keeps the old block.
  EXPECT_EQ(MmRealloc(&p, ULONG_MAX - 7), -1015);
  EXPECT_EQ(memcmp(p, "abc", 3), 0);
  free(p);
  EXPECT_EQ(MmAllocC(&p, ULONG_MAX), -1015);
  EXPECT_EQ(p, nullptr);
  EXPECT_EQ(MmAlloc(&p, 1UL << 63), -1015);
  EXPECT_EQ(GetLastErrCode(), -1015);
  // The size is the message's one value: with no text resource it ends the
  // text (2^63 is exact in every form the formatter may use).
  const std::string text = Record();
  EXPECT_NE(text.find("\nModule: memfunc.cpp"), std::string::npos);
  EXPECT_EQ(text.substr(text.size() - 19), "9223372036854775808");
  EXPECT_EQ(MmAlloc(nullptr, 8), -1213);
}

TEST(MmReallocC, GrowsZeroFilledAndRestarts) {
  unsigned char* p = nullptr;
  ASSERT_EQ(MmReallocC(&p, 4, 0), 0);  // null: as MmAllocC
  memcpy(p, "wxyz", 4);
  ASSERT_EQ(MmReallocC(&p, 1000, 4), 0);
  EXPECT_EQ(memcmp(p, "wxyz", 4), 0);
  EXPECT_TRUE(AllZero(p + 4, 996));
  // oldsize 0 with a block: it is freed (the leak checker would see it
  // otherwise) and ten zero bytes come back.
  memset(p, 0xAA, 1000);
  ASSERT_EQ(MmReallocC(&p, 10, 0), 0);
  EXPECT_TRUE(AllZero(p, 10));

  unsigned char* before = p;
  EXPECT_EQ(MmReallocC(&p, -1, 10), -1213);  // refused; the block stays
  EXPECT_EQ(MmReallocC(&p, LONG_MAX, 10), -1015);
  EXPECT_EQ(p, before);
  const std::string text = Record();  // the failure and a further module line
  EXPECT_NE(text.find("memfunc.cpp"), text.rfind("memfunc.cpp"));
  free(p);
}

TEST(MmExc, SameOperationsWithoutRecord) {
  char* p = nullptr;
  ASSERT_EQ(MmAllocCExc(&p, 64), p);
  EXPECT_TRUE(AllZero(p, 64));
  memcpy(p, "keep", 4);
  EXPECT_EQ(MmReallocExc(&p, ULONG_MAX), nullptr);
  EXPECT_EQ(MmReallocCExc(&p, -5, 64), nullptr);
  ASSERT_EQ(MmReallocCExc(&p, 128, 64), p);  // the block stayed with the caller
  EXPECT_EQ(memcmp(p, "keep", 4), 0);
  EXPECT_TRUE(AllZero(p + 64, 64));
  free(p);
  EXPECT_EQ(MmAllocExc(&p, ULONG_MAX), nullptr);
  EXPECT_EQ(p, nullptr);
  EXPECT_EQ(GetLastErrCode(), 0);
}
