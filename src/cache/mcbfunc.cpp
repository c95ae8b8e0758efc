// Callback lists: a singly linked list of heap nodes, kept sorted by order.
//
// The walk in McbCallCallbacks follows the next links as they are at each
// step, so it sees nodes added while it runs. What it must never meet is a
// freed node: while any call is under way (depth above 0) a removal only
// nulls the node's function and sets the pending flag, and the outermost
// call sweeps the dead nodes out when it ends. A dead node keeps its mask,
// so McbHasCallbacks still counts it until the sweep.
static const char s_ident[] = "@(#) mcbfunc.cpp 1.0";

#include "vosystem/mcbfunc.h"

#include <cstdlib>

#include "foundation/errpos.h"
#include "vosystem/memfunc.h"

struct MCBNODE {
  MCBFUNC function;  // null: dead, awaiting the sweep
  void* data;
  unsigned long mask;
  int order;
  MCBNODE* next;
};

namespace {

// Frees every node that `dead` picks, putting the last-node pointer right.
template <class PICK>
void Unlink(MCBLIST* list, PICK dead) {
  MCBNODE* prev = nullptr;
  for (MCBNODE* n = list->first; n;) {
    MCBNODE* next = n->next;
    if (dead(n)) {
      if (prev)
        prev->next = next;
      else
        list->first = next;
      free(n);
    } else {
      prev = n;
    }
    n = next;
  }
  list->last = prev;
}

// A node goes: marked here, freed by the sweep once no call is under way.
void Kill(MCBLIST* list, MCBNODE* n) {
  n->function = nullptr;
  list->pending = 1;
}

void SweepIfIdle(MCBLIST* list) {
  if (list->depth == 0 && list->pending) {
    Unlink(list, [](MCBNODE* n) { return n->function == nullptr; });
    list->pending = 0;
  }
}

}  // namespace

int McbAddCallbackExt(MCBLIST* list, MCBFUNC function, void* data, unsigned long mask, int order) {
  if (!list || !function) return SETERR(VOERROR_InvalidArgument);
  MCBNODE* node = nullptr;
  const int rc = MmAllocC(&node, sizeof(MCBNODE));
  if (rc < 0) return PASSERR(rc);
  node->function = function;
  node->data = data;
  node->mask = mask ? mask : ~0UL;
  node->order = order;
  // Behind every node of this order or lower.
  MCBNODE* prev = nullptr;
  MCBNODE* at = list->first;
  while (at && at->order <= order) {
    prev = at;
    at = at->next;
  }
  node->next = at;
  if (prev)
    prev->next = node;
  else
    list->first = node;
  if (!at) list->last = node;
  return 0;
}

int McbAddCallback(MCBLIST* list, MCBFUNC function, void* data, unsigned long mask) {
  const int rc = McbAddCallbackExt(list, function, data, mask, 0);
  return rc < 0 ? PASSERR(rc) : rc;
}

void McbRemoveCallback(MCBLIST* list, MCBFUNC function, void* data, unsigned long mask) {
  if (!list) return;
  for (MCBNODE* n = list->first; n; n = n->next) {
    if (!n->function || (function && n->function != function) || (data && n->data != data))
      continue;
    if (mask && (n->mask & ~mask)) {
      n->mask &= ~mask;  // some reasons remain
      continue;
    }
    Kill(list, n);
  }
  SweepIfIdle(list);
}

void McbRemoveAllCallbacks(MCBLIST* list) {
  if (!list) return;
  for (MCBNODE* n = list->first; n; n = n->next) Kill(list, n);
  SweepIfIdle(list);
}

void McbCallCallbacks(MCBLIST* list, void* message, unsigned long reason) {
  if (!list) return;
  if (message) *static_cast<unsigned long*>(message) = reason;
  ++list->depth;
  for (MCBNODE* n = list->first; n; n = n->next) {
    // Read the function once: the call may kill this very node.
    const MCBFUNC f = n->function;
    if (f && (n->mask & reason)) f(message, n->data);
  }
  --list->depth;
  SweepIfIdle(list);
}

int McbHasCallbacks(const MCBLIST* list, unsigned long mask) {
  if (!list) return 0;
  for (const MCBNODE* n = list->first; n; n = n->next)
    if (n->mask & mask) return 1;
  return 0;
}
