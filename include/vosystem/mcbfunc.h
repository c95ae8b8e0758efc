// Callback lists: listeners register a function for a set of reasons, and
// are called in a fixed order when something happens.
//
//   MCBLIST list = {};                          // a zeroed list is empty
//   McbAddCallback(&list, OnChange, this, 0x3);
//   struct { unsigned long reason; int x; } msg;
//   McbCallCallbacks(&list, &msg, 0x1);        // OnChange(&msg, this)
//   McbRemoveAllCallbacks(&list);               // frees the nodes
//
// A callback may add or remove callbacks of the list it is called from, and
// may call the list again: a removal during a call only marks the node, and
// the marked nodes are freed when the outermost call ends. A list must be
// emptied with McbRemoveAllCallbacks before it goes, since its nodes are
// on the heap.
#ifndef VOSYSTEM_MCBFUNC_H
#define VOSYSTEM_MCBFUNC_H

#include "vosystem/export.h"

// The callback: the message and the data given at registration. Its result
// isn't looked at.
typedef int (*MCBFUNC)(void* message, void* data);

struct MCBNODE;

struct MCBLIST {
  MCBNODE* first;
  MCBNODE* last;
  unsigned short depth;    // calls of McbCallCallbacks under way
  unsigned short pending;  // marked nodes wait for the end of the outermost call
};

extern "C" {
// Registers function with data for the reasons of mask (0: all reasons),
// behind every node of order or lower: the list stays sorted by rising
// order, and by time of adding among equal orders. 0, -1213 for a null list
// or function, or -1015.
VOSYS_API int McbAddCallbackExt(MCBLIST* list, MCBFUNC function, void* data, unsigned long mask,
                                int order);
// The same with order 0.
VOSYS_API int McbAddCallback(MCBLIST* list, MCBFUNC function, void* data, unsigned long mask);
// Takes the reasons of mask from each node that matches function and data;
// a node left with no reason goes. A null function, a null data and a 0
// mask each match anything (0, 0, 0 removes everything).
VOSYS_API void McbRemoveCallback(MCBLIST* list, MCBFUNC function, void* data, unsigned long mask);
VOSYS_API void McbRemoveAllCallbacks(MCBLIST* list);
// Stores reason in the first word (an unsigned long) of message, unless
// message is null, and calls function(message, data) of each node whose mask
// shares a bit with reason, in list order. Nodes added during the walk
// behind the current one are called in the same walk.
VOSYS_API void McbCallCallbacks(MCBLIST* list, void* message, unsigned long reason);
// 1 if a node's mask shares a bit with mask, else 0. Nodes removed during a
// call that hasn't ended yet still count.
VOSYS_API int McbHasCallbacks(const MCBLIST* list, unsigned long mask);
}

#endif
