// Callback lists: order, reasons, and callbacks that add, remove and call
// again while a walk is under way (the sanitizer build checks that no freed
// node is touched).
#include "vosystem/mcbfunc.h"

#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

#include "vosystem/errors.h"

namespace {

struct MESSAGE {
  unsigned long reason;
  std::string* trace;
};

struct LISTENER {
  MCBLIST* list;
  char name;
  // What the listener does when called, once.
  enum { NONE, REMOVE_SELF, REMOVE_ALL, ADD_BEHIND, ADD_IN_FRONT, CALL_AGAIN } action = NONE;
  LISTENER* other = nullptr;
};

int Listen(void* message, void* data) {
  MESSAGE* m = static_cast<MESSAGE*>(message);
  LISTENER* l = static_cast<LISTENER*>(data);
  *m->trace += l->name;
  const auto action = l->action;
  l->action = LISTENER::NONE;
  switch (action) {
    case LISTENER::REMOVE_SELF:
      McbRemoveCallback(l->list, Listen, l, 0);
      break;
    case LISTENER::REMOVE_ALL:
      McbRemoveAllCallbacks(l->list);
      break;
    case LISTENER::ADD_BEHIND:
      McbAddCallbackExt(l->list, Listen, l->other, 0, 100);
      break;
    case LISTENER::ADD_IN_FRONT:
      McbAddCallbackExt(l->list, Listen, l->other, 0, -100);
      break;
    case LISTENER::CALL_AGAIN: {
      MESSAGE inner = {0, m->trace};
      *m->trace += '(';
      McbCallCallbacks(l->list, &inner, m->reason);
      *m->trace += ')';
      break;
    }
    default:
      break;
  }
  return 0;
}

std::string Call(MCBLIST* list, unsigned long reason) {
  std::string trace;
  MESSAGE m = {0, &trace};
  McbCallCallbacks(list, &m, reason);
  EXPECT_EQ(m.reason, reason);
  return trace;
}

}  // namespace

TEST(CallbackList, OrderReasonsAndRemoval) {
  MCBLIST list = {};
  LISTENER a{&list, 'a'}, b{&list, 'b'}, c{&list, 'c'}, d{&list, 'd'};
  EXPECT_EQ(McbAddCallback(&list, nullptr, &a, 0), VOERROR_InvalidArgument);
  EXPECT_EQ(McbAddCallback(nullptr, Listen, &a, 0), VOERROR_InvalidArgument);
  // Orders 5, 1, 5 are called 1, the first 5, the second 5.
  ASSERT_EQ(McbAddCallbackExt(&list, Listen, &a, 0x1, 5), 0);
  ASSERT_EQ(McbAddCallbackExt(&list, Listen, &b, 0x3, 1), 0);
  ASSERT_EQ(McbAddCallbackExt(&list, Listen, &c, 0, 5), 0);
  EXPECT_EQ(Call(&list, 0x1), "bac");
  EXPECT_EQ(Call(&list, 0x2), "bc");
  EXPECT_EQ(Call(&list, 0x100), "c");  // mask 0 means every reason
  EXPECT_EQ(Call(&list, 0), "");
  EXPECT_EQ(McbHasCallbacks(&list, 0x2), 1);
  // Taking one reason of two leaves the other.
  McbRemoveCallback(&list, Listen, &b, 0x1);
  EXPECT_EQ(Call(&list, 0x1), "ac");
  EXPECT_EQ(Call(&list, 0x2), "bc");
  McbRemoveCallback(&list, nullptr, &c, 0);
  EXPECT_EQ(McbHasCallbacks(&list, 0x100), 0);
  // The last node is right after removals: the next add goes at the end.
  ASSERT_EQ(McbAddCallbackExt(&list, Listen, &d, 0, 9), 0);
  EXPECT_EQ(Call(&list, 0x1), "ad");
  McbRemoveCallback(&list, nullptr, nullptr, 0);
  EXPECT_EQ(list.first, nullptr);
  EXPECT_EQ(list.last, nullptr);
  McbCallCallbacks(&list, nullptr, 1);  // a null message is allowed
  McbRemoveAllCallbacks(nullptr);
}

TEST(CallbackList, CallbacksChangeTheListDuringAWalk) {
  MCBLIST list = {};
  LISTENER a{&list, 'a'}, b{&list, 'b'}, c{&list, 'c'}, x{&list, 'x'};
  McbAddCallback(&list, Listen, &a, 0);
  McbAddCallback(&list, Listen, &b, 0);
  McbAddCallback(&list, Listen, &c, 0);
  // A callback that removes itself: the walk goes on, the node goes after.
  b.action = LISTENER::REMOVE_SELF;
  EXPECT_EQ(Call(&list, 1), "abc");
  EXPECT_EQ(Call(&list, 1), "ac");
  // Added behind the current node: called in the same walk; in front: not.
  a.action = LISTENER::ADD_BEHIND;
  a.other = &x;
  c.action = LISTENER::ADD_IN_FRONT;
  c.other = &b;
  EXPECT_EQ(Call(&list, 1), "acx");
  EXPECT_EQ(Call(&list, 1), "bacx");
  // A nested call, and removal of everything from inside it: the dead nodes
  // still count for McbHasCallbacks until the outer walk ends.
  b.action = LISTENER::CALL_AGAIN;
  a.action = LISTENER::REMOVE_ALL;
  EXPECT_EQ(Call(&list, 1), "b(ba)");
  EXPECT_EQ(list.first, nullptr);
  EXPECT_EQ(McbHasCallbacks(&list, ~0UL), 0);
}

namespace {

// A random walk: each callback adds or removes a random node, calls the list
// again, or now and then removes everything.
struct CHAOS {
  MCBLIST list = {};
  std::mt19937 rng{7};
  int tokens[16] = {};
  int depth = 0;
  long calls = 0;
};
CHAOS* g_chaos = nullptr;

int Chaos(void* message, void*) {
  CHAOS* w = g_chaos;
  ++w->calls;
  int* token = &w->tokens[w->rng() % 16];
  switch (w->rng() % 4) {
    case 0:
      McbAddCallbackExt(&w->list, Chaos, token, 1 + w->rng() % 7, static_cast<int>(w->rng() % 5));
      break;
    case 1:
      McbRemoveCallback(&w->list, Chaos, token, w->rng() % 2 ? 0 : 1 + w->rng() % 7);
      break;
    case 2:
      if (w->depth < 3) {
        ++w->depth;
        McbCallCallbacks(&w->list, message, 1 + w->rng() % 7);
        --w->depth;
      }
      break;
    default:
      if (w->rng() % 50 == 0) McbRemoveAllCallbacks(&w->list);
      break;
  }
  return 0;
}

}  // namespace

TEST(CallbackList, RandomChangesDuringWalksLeaveASoundList) {
  CHAOS w;
  g_chaos = &w;
  for (int round = 0; round < 3000; ++round) {
    if (!w.list.first) McbAddCallback(&w.list, Chaos, &w.tokens[0], 0);
    unsigned long message = 0;
    McbCallCallbacks(&w.list, &message, 1 + w.rng() % 7);
    ASSERT_EQ(w.list.depth, 0);
    ASSERT_EQ(w.list.pending, 0);  // the dead nodes were swept
    ASSERT_EQ(w.list.first == nullptr, w.list.last == nullptr);
  }
  EXPECT_GT(w.calls, 3000);
  McbRemoveAllCallbacks(&w.list);
  EXPECT_EQ(w.list.first, nullptr);
}
