// NETNEIGHBOR without a network: every enumeration empties its list.
#include "vosystem/netneighbor.h"

#include <gtest/gtest.h>

TEST(NetNeighbor, EveryEnumerationIsEmpty) {
  NETNEIGHBOR root;
  VOLIST<VOSTRING> list;
  list.AddTail(VOSTRING("stale"));
  EXPECT_EQ(root.EnumChildren(list), 0);
  EXPECT_TRUE(list.IsEmpty());
  list.AddTail(VOSTRING("stale"));
  EXPECT_EQ(root.EnumChildren(root, VOSTRING("host"), list), 0);
  EXPECT_TRUE(list.IsEmpty());
  list.AddTail(VOSTRING("stale"));
  EXPECT_EQ(root.ListChildren(list, 7), 0);
  EXPECT_TRUE(list.IsEmpty());
  EXPECT_EQ(root.GetChildType(VOSTRING("host")), 0);
  VOSTRING desc("stale");
  root.GetDesc(VOSTRING("host"), desc);
  EXPECT_TRUE(desc.IsEmpty());
  EXPECT_FALSE(root.HasChildren());
  NETNEIGHBOR copy(root);
  copy = root;
  copy = copy;
  copy.Clear();
  EXPECT_FALSE(copy.HasChildren());
}
