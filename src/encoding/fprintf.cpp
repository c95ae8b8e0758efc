// Encoded text output: a printf whose text collects as UTF-16 in a buffer on
// the printing call's stack and goes to the file through the encoder, a
// block at a time.
//
// Each directive is copied into an 8-bit format of its own and given to the
// C library's snprintf with its one argument, under the C locale; the bytes
// come back as characters below 256. The converted bytes of a block are
// written with their length: UTF-16 output holds zero bytes, and a string
// function would stop at the first. A block never ends between the two
// units of a surrogate pair, which the encoder would turn into two "?".
static const char s_ident[] = "@(#) fprintf.cpp 1.0";

#include "vosystem/ucfprintf.h"

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>

#include "encoding/convdata.h"
#include "files/vioname.h"
#include "foundation/clocale.h"
#include "foundation/errpos.h"
#include "vosystem/memfunc.h"
#include "vosystem/ucconv.h"
#include "vosystem/ucstring.h"
#include "vosystem/viofuncs.h"

namespace {

const int kBlock = 1000;

struct _PRIVDATA {
  FILE* file;
  void* conv;
  unsigned short* buffer;  // kBlock + 1 units on the stack of the printing call
  int count;
  int failed;                  // a write that failed, for Close to report
  unsigned long long pending;  // bytes handed to the stream since it was last flushed
};

// Converts and writes count units of text (terminated by the caller).
void WriteStr(_PRIVDATA* d, const unsigned short* text) {
  char* bytes = nullptr;
  const int n = MucConvertFromUnicode(d->conv, text, &bytes);
  if (n > 0) {
    // "Unicode" counts its result in units, every other encoding in bytes.
    const bool units = static_cast<const CONVDATA*>(d->conv)->type == CONVTYPE_Utf16;
    const size_t size = static_cast<size_t>(n) * (units ? sizeof(unsigned short) : 1);
    d->pending += size;
    if (fwrite(bytes, 1, size, d->file) != size) d->failed = 1;
  }
  free(bytes);
}

void WriteBuf(_PRIVDATA* d) {
  if (d->count == 0) return;
  // A pair's first unit waits for its second in the next block.
  unsigned short carry = 0;
  if (d->count == kBlock && (d->buffer[kBlock - 1] & 0xFC00) == 0xD800)
    carry = d->buffer[--d->count];
  d->buffer[d->count] = 0;
  WriteStr(d, d->buffer);
  d->count = 0;
  if (carry) d->buffer[d->count++] = carry;
}

void WriteChar(_PRIVDATA* d, unsigned short c) {
  d->buffer[d->count++] = c;
  if (d->count >= kBlock) WriteBuf(d);
}

void WriteBytes(_PRIVDATA* d, const char* s, size_t n) {
  for (size_t i = 0; i < n; ++i) WriteChar(d, static_cast<unsigned char>(s[i]));
}

void WriteBlanks(_PRIVDATA* d, long n) {
  for (; n > 0; --n) WriteChar(d, ' ');
}

// One directive's snprintf, into a stack buffer when it fits.
template <typename T>
void Format(_PRIVDATA* d, const char* scratch, T value) {
  char small[512];
  int n = snprintf(small, sizeof small, scratch, value);
  if (n < 0) return;
  if (static_cast<size_t>(n) < sizeof small) return WriteBytes(d, small, static_cast<size_t>(n));
  char* big = static_cast<char*>(malloc(static_cast<size_t>(n) + 1));
  if (!big) return;
  snprintf(big, static_cast<size_t>(n) + 1, scratch, value);
  WriteBytes(d, big, static_cast<size_t>(n));
  free(big);
}

bool IsDigit(unsigned short c) {
  return c >= '0' && c <= '9';
}

// Digits at *p as a number, at most about a million (a larger width is no
// width anyone can mean, and would overflow).
long ReadNumber(const unsigned short*& p, char* scratch, size_t& at, size_t size) {
  long v = 0;
  for (; IsDigit(*p); ++p) {
    if (v < 1000000) v = v * 10 + (*p - '0');
    if (at + 1 < size) scratch[at++] = static_cast<char>(*p);
  }
  return v;
}

void Print(_PRIVDATA* d, const unsigned short* format, va_list args) {
  C_LOCALE_SCOPE numbers;
  for (const unsigned short* p = format; *p;) {
    if (*p != '%') {
      WriteChar(d, *p++);
      continue;
    }
    const unsigned short* start = p++;
    if (*p == '%') {
      WriteChar(d, '%');
      ++p;
      continue;
    }
    char scratch[64] = "%";
    size_t at = 1;
    bool left = false;
    while (*p && strchr(" +-#0", static_cast<int>(*p)) && *p < 0x80) {
      if (*p == '-') left = true;
      if (at + 1 < sizeof scratch) scratch[at++] = static_cast<char>(*p);
      ++p;
    }
    long width = 0;
    if (*p == '*') {
      ++p;
      int w = va_arg(args, int);
      if (w < 0) {
        left = true;
        w = w == INT32_MIN ? INT32_MAX : -w;
        if (at + 1 < sizeof scratch) scratch[at++] = '-';
      }
      width = w > 1000000 ? 1000000 : w;
      at += static_cast<size_t>(snprintf(scratch + at, sizeof scratch - at, "%ld", width));
    } else {
      width = ReadNumber(p, scratch, at, sizeof scratch);
    }
    if (*p == '.') {
      ++p;
      if (*p == '*') {
        ++p;
        const int prec = va_arg(args, int);
        if (prec >= 0)
          at += static_cast<size_t>(
              snprintf(scratch + at, sizeof scratch - at, ".%d", prec > 1000000 ? 1000000 : prec));
      } else {
        if (at + 1 < sizeof scratch) scratch[at++] = '.';
        ReadNumber(p, scratch, at, sizeof scratch);
      }
    }
    int longs = 0, shorts = 0;
    bool longDouble = false;
    for (;; ++p) {
      if (*p == 'l') {
        ++longs;
      } else if (*p == 'h') {
        ++shorts;
      } else if (*p == 'L') {
        longDouble = true;
      } else {
        break;
      }
    }
    if (at + 4 >= sizeof scratch) at = sizeof scratch - 4;  // a directive no printf means
    const unsigned short conversion = *p;
    if (conversion) ++p;
    switch (conversion) {
      case 'd':
      case 'i':
      case 'o':
      case 'u':
      case 'x':
      case 'X': {
        const bool sign = conversion == 'd' || conversion == 'i';
        if (longs >= 2) {
          memcpy(scratch + at, "ll", 2);
          scratch[at + 2] = static_cast<char>(conversion);
          scratch[at + 3] = 0;
          if (sign)
            Format(d, scratch, va_arg(args, long long));
          else
            Format(d, scratch, va_arg(args, unsigned long long));
        } else if (longs == 1) {
          scratch[at] = 'l';
          scratch[at + 1] = static_cast<char>(conversion);
          scratch[at + 2] = 0;
          if (sign)
            Format(d, scratch, va_arg(args, long));
          else
            Format(d, scratch, va_arg(args, unsigned long));
        } else {
          // A short's argument arrives as an int: narrowed here as printf's
          // "h" would.
          scratch[at] = static_cast<char>(conversion);
          scratch[at + 1] = 0;
          const int v = va_arg(args, int);
          if (shorts >= 2)
            Format(d, scratch,
                   sign ? static_cast<int>(static_cast<signed char>(v))
                        : static_cast<int>(static_cast<unsigned char>(v)));
          else if (shorts == 1)
            Format(d, scratch,
                   sign ? static_cast<int>(static_cast<short>(v))
                        : static_cast<int>(static_cast<unsigned short>(v)));
          else
            Format(d, scratch, v);
        }
        break;
      }
      case 'e':
      case 'E':
      case 'f':
      case 'g':
      case 'G':
        if (longDouble) {
          scratch[at] = 'L';
          scratch[at + 1] = static_cast<char>(conversion);
          scratch[at + 2] = 0;
          Format(d, scratch, va_arg(args, long double));
        } else {
          scratch[at] = static_cast<char>(conversion);
          scratch[at + 1] = 0;
          Format(d, scratch, va_arg(args, double));
        }
        break;
      case 's': {
        const char* s = va_arg(args, const char*);
        scratch[at] = 's';
        scratch[at + 1] = 0;
        Format(d, scratch, s ? s : "(null)");
        break;
      }
      case 'c':
        WriteChar(d, static_cast<unsigned short>(va_arg(args, int)));
        break;
      case 'S': {
        const unsigned short* s = va_arg(args, const unsigned short*);
        const long n = s ? ucstrlen(s) : 0;
        if (!left) WriteBlanks(d, width - n);
        for (long i = 0; i < n; ++i) WriteChar(d, s[i]);
        if (left) WriteBlanks(d, width - n);
        break;
      }
      default:  // not a directive: the text stands
        for (const unsigned short* q = start; q < p; ++q) WriteChar(d, *q);
        break;
    }
  }
  WriteBuf(d);
}

// A failed write: the bytes given to the stream since its last flush, none
// of them known to have reached the file, and the stream's file.
int WriteFailed(unsigned long long pending, const VOSTRING& name, int line) {
  const int rc = _SetErrPosnC(VOERROR_WriteFailed, s_ident, line);
  GetErrString() << pending;
  PushErrFileName(name);
  return rc;
}

}  // namespace

int MucFPrintfOpen(const unsigned short* path, const char* mode, const char* encodingName,
                   void** handle) {
  if (!handle) return SETERR(VOERROR_InvalidArgument);
  *handle = nullptr;
  _PRIVDATA* d = nullptr;
  int rc = MmAllocC(&d, sizeof(_PRIVDATA));
  if (rc < 0) return PASSERR(rc);
  rc = MucInitConversion(&d->conv, encodingName, 0);
  if (rc >= 0) rc = VioOpen(path, mode, &d->file);
  if (rc < 0) {
    MucStopConversion(d->conv);
    free(d);
    return PASSERR(rc);
  }
  *handle = d;
  return 0;
}

int MucFPrintfClose(void* handle) {
  if (!handle) return 0;
  _PRIVDATA* d = static_cast<_PRIVDATA*>(handle);
  MucStopConversion(d->conv);
  // The name goes before the close: the system forgets it with the descriptor.
  const VOSTRING name = VioStreamDisplayName(d->file);
  const bool failed = fclose(d->file) != 0 || d->failed;
  const unsigned long long pending = d->pending;
  free(d);
  return failed ? WriteFailed(pending, name, __LINE__) : 0;
}

int MucFPrintfFlush(void* handle) {
  if (!handle) return SETERR(VOERROR_InvalidArgument);
  _PRIVDATA* d = static_cast<_PRIVDATA*>(handle);
  if (fflush(d->file) == 0 && !d->failed) {
    d->pending = 0;
    return 0;
  }
  return WriteFailed(d->pending, VioStreamDisplayName(d->file), __LINE__);
}

int MucFPrintfUV(void* handle, const unsigned short* format, va_list args) {
  if (!handle || !format) return SETERR(VOERROR_InvalidArgument);
  _PRIVDATA* d = static_cast<_PRIVDATA*>(handle);
  unsigned short buffer[kBlock + 1];
  d->buffer = buffer;
  d->count = 0;
  va_list copy;
  va_copy(copy, args);
  Print(d, format, copy);
  va_end(copy);
  d->buffer = nullptr;
  return 0;
}

int MucFPrintfU(void* handle, const unsigned short* format, ...) {
  va_list args;
  va_start(args, format);
  const int rc = MucFPrintfUV(handle, format, args);
  va_end(args);
  return rc;
}

int MucFPrintfAV(void* handle, const char* format, va_list args) {
  if (!handle || !format) return SETERR(VOERROR_InvalidArgument);
  unsigned short* wide = strtoucdup(format);
  if (!wide) {
    const int rc = SETERR(VOERROR_OutOfMemory);
    GetErrString() << static_cast<unsigned long long>(strlen(format) + 1) * sizeof(unsigned short);
    return rc;
  }
  va_list copy;
  va_copy(copy, args);
  const int rc = MucFPrintfUV(handle, wide, copy);
  va_end(copy);
  free(wide);
  return rc;
}

int MucFPrintfA(void* handle, const char* format, ...) {
  va_list args;
  va_start(args, format);
  const int rc = MucFPrintfAV(handle, format, args);
  va_end(args);
  return rc;
}
