// STRUTF8: sharing, replacement as a whole, and the UTF-8 of a VOSTRING.
#include "vosystem/strutf8.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>

#include "vosystem/vostring.h"

#include <unicode/ustring.h>

namespace {

template <class CHAR>
CHAR* HeapCopy(const char* s) {
  return reinterpret_cast<CHAR*>(strdup(s));
}

}  // namespace

TEST(StrUtf8, SharingClearAndAttach) {
  STRUTF8 def;
  EXPECT_TRUE(def.IsEqual("") && def.IsEqual(static_cast<const char*>(nullptr)));
  EXPECT_TRUE(STRUTF8(static_cast<const char*>(nullptr)).IsEmpty());

  STRUTF8 a("caf\xC3\xA9"), b(a), c;
  c = a;
  EXPECT_EQ(static_cast<const char*>(b), static_cast<const char*>(a));  // one body
  EXPECT_EQ(static_cast<const char*>(c), static_cast<const char*>(a));
  b.Clear();
  EXPECT_TRUE(b.IsEmpty());

  char* heap = HeapCopy<char>("attached");
  c.Attach(heap);  // c shared its body with a: a keeps its text
  EXPECT_EQ(heap, nullptr);
  EXPECT_STREQ(c, "attached");
  unsigned char* again = HeapCopy<unsigned char>("again");
  c.Attach(again);  // exclusive: the old text is freed (the leak checker would see it)
  EXPECT_STREQ(reinterpret_cast<const char*>(c.GetUINT8()), "again");

  a = static_cast<const char*>(a);  // replaced by a copy of its own text
  EXPECT_STREQ(a, "caf\xC3\xA9");
  a = static_cast<const unsigned char*>(nullptr);
  EXPECT_STREQ(a, "");
}

TEST(StrUtf8, FromVostringIsUtf8) {
  EXPECT_TRUE(STRUTF8(VOSTRING()).IsEmpty());
  for (const char16_t* text :
       {u"plain", u"\u00E9\u20AC", u"\u0627\u0644\u0639", u"\U0001F600 smile", u"\u4E2D"}) {
    char expected[64];
    int32_t length = 0;
    UErrorCode status = U_ZERO_ERROR;
    u_strToUTF8(expected, sizeof expected, &length, reinterpret_cast<const UChar*>(text), -1,
                &status);
    ASSERT_TRUE(U_SUCCESS(status));
    STRUTF8 assigned;
    assigned = VOSTRING(text);
    EXPECT_STREQ(assigned, expected);
    EXPECT_STREQ(STRUTF8(VOSTRING(text)), expected);
  }
}
