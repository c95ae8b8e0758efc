// The stream front and the memory stream.
//
// The memory stream keeps its bytes in a SIMPLE_ARRAY: the count is the
// stream's size, the reservation its capacity. Writes grow the reservation
// by at least half again, so that a stream written in many small pieces
// costs linear time, not quadratic. Bytes that enter the stream without
// being written (a gap left by a seek past the end, a Resize) are zeroed:
// the heap's old contents never reach a file through a memory stream.
static const char s_ident[] = "@(#) genericrw.cpp 1.0";

#include <cstring>

#include "foundation/errpos.h"
#include "vosystem/genericrw.h"

namespace {

// Sizes and positions of a memory stream stay within a 32-bit count.
const long long kMemoryLimit = 0x7FFFFFFF;

}  // namespace

// ---------------------------------------------------------------- GENERICRW

int GENERICRW::Resize(long long size) {
  if (size < 0) return SETERR(VOERROR_InvalidArgument);
  const long long limit = GetSizeLimit();
  if (limit < 0) return PASSERR(static_cast<int>(limit));
  if (size > limit) return SETERR(VOERROR_InvalidArgument);
  const int rc = v_Resize(size);
  return rc < 0 ? PASSERR(rc) : rc;
}

int GENERICRW::SeekAndRead(long long position, void* buffer, long length) {
  const long long at = Seek(position, SEEKFROM_Start);
  if (at < 0) return PASSERR(static_cast<int>(at));
  const long got = Read(buffer, length, false);
  if (got < 0) return PASSERR(static_cast<int>(got));
  return 0;
}

int GENERICRW::SeekAndWrite(long long position, const void* buffer, long length) {
  const long long at = Seek(position, SEEKFROM_Start);
  if (at < 0) return PASSERR(static_cast<int>(at));
  const long put = Write(buffer, length);
  if (put < 0) return PASSERR(static_cast<int>(put));
  return 0;
}

// ---------------------------------------------------------------- GENERICRW_MEMORY

void GENERICRW_MEMORY::Attach(unsigned char*& data, int size) {
  m_data.Attach(data, size);
  m_position = 0;
  data = nullptr;
}

void GENERICRW_MEMORY::Attach(SIMPLE_ARRAY<unsigned char>& array) {
  const int count = array.GetNumUsed();
  unsigned char* data = array.Detach();
  Attach(data, count);
}

unsigned char* GENERICRW_MEMORY::Detach() {
  m_position = 0;
  return m_data.Detach();
}

int GENERICRW_MEMORY::v_GetCapabilities() const {
  return CAPABILITY_Read | CAPABILITY_Write | CAPABILITY_Seek | CAPABILITY_Resize;
}

long long GENERICRW_MEMORY::v_GetSize() const {
  return m_data.GetNumUsed();
}

long long GENERICRW_MEMORY::v_GetSizeLimit() const {
  return kMemoryLimit;
}

long long GENERICRW_MEMORY::v_Tell() const {
  return static_cast<long long>(m_position);
}

long GENERICRW_MEMORY::v_Read(void* buffer, long length, bool allowpartial) {
  if (!buffer || length <= 0) return SETERR(VOERROR_InvalidArgument);
  const unsigned long count = static_cast<unsigned long>(m_data.GetNumUsed());
  const unsigned long left = m_position < count ? count - m_position : 0;
  if (left == 0) return allowpartial ? -1 : SETERR(VOERROR_InvalidArgument);
  const unsigned long amount =
      static_cast<unsigned long>(length) < left ? static_cast<unsigned long>(length) : left;
  memcpy(buffer, m_data.GetPointer() + m_position, amount);
  m_position += amount;
  if (amount < static_cast<unsigned long>(length) && !allowpartial)
    return SETERR(VOERROR_InvalidArgument);
  return static_cast<long>(amount);
}

long GENERICRW_MEMORY::v_Write(const void* buffer, long length) {
  if (!buffer || length <= 0) return SETERR(VOERROR_InvalidArgument);
  if (m_position > static_cast<unsigned long>(kMemoryLimit) ||
      static_cast<unsigned long>(length) > static_cast<unsigned long>(kMemoryLimit) - m_position)
    return SETERR(VOERROR_InvalidArgument);
  const int end = static_cast<int>(m_position + static_cast<unsigned long>(length));
  const int count = m_data.GetNumUsed();
  if (end > m_data.GetNumReserved()) {
    long long grow = m_data.GetNumReserved() + m_data.GetNumReserved() / 2;
    if (grow > kMemoryLimit) grow = kMemoryLimit;
    const int rc = m_data.Reserve(end > grow ? end : static_cast<int>(grow), false);
    if (rc < 0) return PASSERR(rc);
  }
  unsigned char* data = m_data.GetPointer();
  const int at = static_cast<int>(m_position);
  if (at > count) memset(data + count, 0, static_cast<size_t>(at - count));
  memcpy(data + at, buffer, static_cast<size_t>(length));
  if (end > count) m_data.Resize(end, true, false);  // within the reservation: can't fail
  m_position = static_cast<unsigned long>(end);
  return length;
}

int GENERICRW_MEMORY::v_Resize(long long size) {
  if (size < 0 || size > kMemoryLimit) return SETERR(VOERROR_InvalidArgument);
  const int rc = m_data.Resize(static_cast<int>(size), true, true);
  return rc < 0 ? PASSERR(rc) : 0;
}

long long GENERICRW_MEMORY::v_Seek(long long position, SEEKFROM from) {
  long long base;
  switch (from) {
    case SEEKFROM_Start:
      base = 0;
      break;
    case SEEKFROM_Current:
      base = static_cast<long long>(m_position);
      break;
    case SEEKFROM_End:
      base = m_data.GetNumUsed();
      break;
    default:
      return SETERR(VOERROR_InvalidArgument);
  }
  long long to;
  if (__builtin_add_overflow(base, position, &to) || to < 0) return SETERR(VOERROR_InvalidArgument);
  m_position = static_cast<unsigned long>(to);
  return to;
}
