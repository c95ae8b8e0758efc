// NETNEIGHBOR without a network: every question has the answer "nothing".
#include "vosystem/netneighbor.h"

NETNEIGHBOR::NETNEIGHBOR() : m_resources(nullptr) {}

NETNEIGHBOR::NETNEIGHBOR(const NETNEIGHBOR&) : m_resources(nullptr) {}

NETNEIGHBOR& NETNEIGHBOR::operator=(const NETNEIGHBOR& other) {
  if (this != &other) Clear();
  return *this;
}

NETNEIGHBOR::~NETNEIGHBOR() {
  Clear();
}

void NETNEIGHBOR::Clear() {
  delete m_resources;
  m_resources = nullptr;
}

int NETNEIGHBOR::EnumChildren(VOLIST<VOSTRING>& list) {
  list.Clear();
  return 0;
}

int NETNEIGHBOR::EnumChildren(const NETNEIGHBOR&, const VOSTRING&, VOLIST<VOSTRING>& list) {
  list.Clear();
  return 0;
}

int NETNEIGHBOR::ListChildren(VOLIST<VOSTRING>& list, long) {
  list.Clear();
  return 0;
}

int NETNEIGHBOR::GetChildType(const VOSTRING&) const {
  return 0;
}

void NETNEIGHBOR::GetDesc(const VOSTRING&, VOSTRING& desc) const {
  desc.Clear();
}

bool NETNEIGHBOR::HasChildren() const {
  return false;
}
