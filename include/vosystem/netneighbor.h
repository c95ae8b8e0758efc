// NETNEIGHBOR: the machines and shares of the local network as a tree.
//
// No network is browsed in this build: the class keeps its interface, so
// that callers compile and run alike everywhere, and answers that there is
// nothing there. Every enumeration empties its list and returns 0.
#ifndef VOSYSTEM_NETNEIGHBOR_H
#define VOSYSTEM_NETNEIGHBOR_H

#include "vosystem/export.h"
#include "vosystem/vodblary.h"
#include "vosystem/vostring.h"

class VOSYS_API NETNEIGHBOR {
 public:
  // One network resource. Nothing in this build makes one.
  struct NETRES {};

  NETNEIGHBOR();
  // An empty object: a copy doesn't take over the other's list.
  NETNEIGHBOR(const NETNEIGHBOR& other);
  NETNEIGHBOR& operator=(const NETNEIGHBOR& other);  // Clear, unless self
  ~NETNEIGHBOR();

  void Clear();  // drops the list of this level
  int EnumChildren(VOLIST<VOSTRING>& list);
  int EnumChildren(const NETNEIGHBOR& parent, const VOSTRING& name, VOLIST<VOSTRING>& list);
  int ListChildren(VOLIST<VOSTRING>& list, long flags);
  int GetChildType(const VOSTRING& name) const;              // 0
  void GetDesc(const VOSTRING& name, VOSTRING& desc) const;  // empty
  bool HasChildren() const;                                  // false

 private:
  VOLIST<NETRES>* m_resources;  // this level's resources, or null
};

#endif
