// Plain containers: SIMPLE_ARRAY (growable array of plain values, every
// failure a return code), VOLIST (doubly linked ring that owns its values),
// VODOUBLEARRAY (doubles aligned to 8 bytes), and two heap sorts.
#ifndef VOSYSTEM_VODBLARY_H
#define VOSYSTEM_VODBLARY_H

#include <climits>
#include <cstdlib>
#include <cstring>
#include <new>
#include <type_traits>

#include "vosystem/errors.h"
#include "vosystem/export.h"
#include "vosystem/memfunc.h"
#include "vosystem/vostring.h"

// Identification of this header's inline code in error records.
inline constexpr char kVodblaryIdent[] = "@(#) vodblary.h 1.0";

// Growable array of plain-old-data values, moved with their block.
template <class T>
class SIMPLE_ARRAY {
  static_assert(std::is_trivially_copyable<T>::value, "SIMPLE_ARRAY holds plain values");

 public:
  SIMPLE_ARRAY() = default;
  ~SIMPLE_ARRAY() { free(m_data); }
  SIMPLE_ARRAY(const SIMPLE_ARRAY&) = delete;
  SIMPLE_ARRAY& operator=(const SIMPLE_ARRAY&) = delete;

  // Reserves exactly count items (no growth factor). With discard the number
  // in use first drops to 0. 0 or the allocator's negative code.
  int Reserve(int count, bool discard) {
    if (discard) m_used = 0;
    if (count <= m_reserved) return 0;
    if (m_used == 0) {
      free(m_data);
      m_data = nullptr;
      m_reserved = 0;
    }
    int rc = MmRealloc(&m_data, static_cast<unsigned long>(count) * sizeof(T));
    if (rc < 0) return rc;
    m_reserved = count;
    return 0;
  }

  // Sets the number in use to count, keeping the items if keep; with clear the
  // new items are zeroed.
  int Resize(int count, bool keep, bool clear) {
    if (count < 0) return _SetErrPosnC(VOERROR_InvalidArgument, kVodblaryIdent, __LINE__);
    int rc = Reserve(count, !keep);
    if (rc < 0) return rc;
    int from = keep ? m_used : 0;
    if (clear && count > from) memset(m_data + from, 0, sizeof(T) * (count - from));
    m_used = count;
    return 0;
  }

  // Appends one item, doubling the reservation (at least 16) when full.
  int Append(const T& value) {
    if (m_used == m_reserved) {
      if (m_reserved == INT_MAX) {
        int rc = _SetErrPosnC(VOERROR_OutOfMemory, kVodblaryIdent, __LINE__);
        GetErrString() << ULONG_MAX;
        return rc;
      }
      int grow = m_reserved < 8 ? 16 : m_reserved > INT_MAX / 2 ? INT_MAX : m_reserved * 2;
      int rc = Reserve(grow, false);
      if (rc < 0) return rc;
    }
    m_data[m_used++] = value;
    return 0;
  }

  void Free() {
    free(m_data);
    m_data = nullptr;
    m_used = m_reserved = 0;
  }
  // Takes a block of the C heap holding count items, in use and reserved;
  // the block held before is freed.
  void Attach(T* data, int count) {
    if (data != m_data) free(m_data);
    m_data = data;
    m_used = m_reserved = data && count > 0 ? count : 0;
  }
  // Hands the block to the caller (free it); the array is left empty.
  T* Detach() {
    T* p = m_data;
    m_data = nullptr;
    m_used = m_reserved = 0;
    return p;
  }

  int GetNumUsed() const { return m_used; }
  int GetNumReserved() const { return m_reserved; }
  T* GetPointer() { return m_data; }
  const T* GetPointer() const { return m_data; }
  T& operator[](int i) { return m_data[i]; }
  const T& operator[](int i) const { return m_data[i]; }

 private:
  T* m_data = nullptr;
  int m_used = 0;
  int m_reserved = 0;
};

// Doubly linked ring with a sentinel; owns its values. Walk it with range-for.
template <class T>
class VOLIST {
  struct LINK {
    LINK* next;
    LINK* prev;
  };
  struct NODE : LINK {
    explicit NODE(const T& v) : value(v) {}
    T value;
  };

 public:
  class iterator {
   public:
    explicit iterator(LINK* l) : m_link(l) {}
    T& operator*() const { return static_cast<NODE*>(m_link)->value; }
    T* operator->() const { return &static_cast<NODE*>(m_link)->value; }
    iterator& operator++() {
      m_link = m_link->next;
      return *this;
    }
    bool operator!=(const iterator& o) const { return m_link != o.m_link; }
    bool operator==(const iterator& o) const { return m_link == o.m_link; }

   private:
    friend class VOLIST;
    LINK* m_link;
  };

  VOLIST() {
    m_sentinel = static_cast<LINK*>(malloc(sizeof(LINK)));
    if (m_sentinel) m_sentinel->next = m_sentinel->prev = m_sentinel;
  }
  ~VOLIST() {
    Clear();
    free(m_sentinel);
  }
  VOLIST(const VOLIST&) = delete;
  VOLIST& operator=(const VOLIST&) = delete;

  int GetCount() const { return m_count; }
  bool IsEmpty() const { return m_count == 0; }

  // Adds a value in front of pos; 0 or -1015 recorded.
  int InsertBefore(iterator pos, const T& value) {
    NODE* node = m_sentinel ? new (std::nothrow) NODE(value) : nullptr;
    if (!node) {
      int rc = _SetErrPosnC(VOERROR_OutOfMemory, kVodblaryIdent, __LINE__);
      GetErrString() << static_cast<unsigned long>(sizeof(NODE));
      return rc;
    }
    LINK* at = pos.m_link;
    node->next = at;
    node->prev = at->prev;
    at->prev->next = node;
    at->prev = node;
    ++m_count;
    return 0;
  }
  int AddHead(const T& value) { return InsertBefore(begin(), value); }
  int AddTail(const T& value) { return InsertBefore(end(), value); }

  // Removes the node at pos; returns the position after it. end() is no node
  // and stays.
  iterator Erase(iterator pos) {
    LINK* l = pos.m_link;
    if (l == m_sentinel) return end();
    LINK* next = l->next;
    l->prev->next = next;
    next->prev = l->prev;
    --m_count;
    delete static_cast<NODE*>(l);
    return iterator(next);
  }
  void RemoveHead() {
    if (m_count) Erase(begin());
  }
  void Clear() {
    while (m_count) Erase(begin());
  }

  // Both need a list that isn't empty.
  T& GetHead() { return *begin(); }
  T& GetTail() { return static_cast<NODE*>(m_sentinel->prev)->value; }

  iterator begin() const { return iterator(m_sentinel ? m_sentinel->next : nullptr); }
  iterator end() const { return iterator(m_sentinel); }

 private:
  LINK* m_sentinel;  // from the C heap; holds no value
  int m_count = 0;
};

// Array of doubles whose first element sits at an address divisible by 8.
class VOSYS_API VODOUBLEARRAY {
 public:
  VODOUBLEARRAY();
  VODOUBLEARRAY(const VODOUBLEARRAY& other);
  VODOUBLEARRAY& operator=(const VODOUBLEARRAY& other);
  ~VODOUBLEARRAY();

  void Attach(VODOUBLEARRAY& other);  // takes the other's block; it is left empty
  void Swap(VODOUBLEARRAY& other);
  void Free();
  double* GetPointer() const { return m_first; }
  long GetNumReserved() const { return m_reserved; }
  // Makes room for count elements unless that many are reserved already.
  // With keep the old elements are copied over and the old block is freed
  // after; on failure (a negative code) they stay in place. Without keep the
  // old block is freed first, so that the two are never held at once; on
  // failure the array is then left empty (no block, nothing reserved).
  int Reserve(long count, bool keep);
  void ReserveExc(long count, bool keep);

 private:
  double* m_first;
  void* m_block;
  long m_reserved;
};

extern "C" {
// Sorts count records of size bytes in place. compare(a, b, data) is non-zero
// if a sorts before b; the result is ascending in that order. Not stable.
VOSYS_API void heapsort_Larkspindle(char* base, long count, long size,
                                    int (*compare)(void* a, void* b, void* data), void* data);
// The same by index through callbacks; a negative result of swap stops the
// sort and is returned, otherwise 0.
VOSYS_API int HeapSortGen(long count, int (*compare)(long a, long b, void* data),
                          int (*swap)(long a, long b, void* data), void* data);
}

#endif
