// The exported settings functions: stores opened and closed, values read
// and written by type code.
//
// A write builds the value's text first, then takes the store's change (the
// file's lock, see inistore.cpp), edits and saves under it. A value of
// several lines (the ML functions) is one change: its fields, and the
// removal of the field that ends the chain, reach the disk in one save.
static const char s_ident[] = "@(#) inifuncs.cpp 1.0";

#include "vosystem/inifuncs.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>

#include "foundation/errpos.h"
#include "settings/inistore.h"
#include "settings/initypes.h"
#include "vosystem/memfunc.h"
#include "vosystem/ucstring.h"

namespace {

// The longest name of a field of a multi-line value, "name__N", with its
// terminator.
const size_t kMaxLineName = 112;

bool IsStringType(unsigned long type) {
  return type == INITYPE_String || type == INITYPE_UCString;
}

bool IsFieldArg(const char* field) {
  return field && strlen(field) <= static_cast<size_t>(INIHNDPRIV::kMaxFieldName);
}

// The field's name for line n (1 for the first), or false when it doesn't fit.
bool LineName(const char* field, int n, char (&name)[kMaxLineName]) {
  const int len = n == 1 ? snprintf(name, sizeof name, "%s", field)
                         : snprintf(name, sizeof name, "%s__%d", field, n);
  return len >= 0 && static_cast<size_t>(len) < sizeof name;
}

// The raw text of a field: a heap copy in *text (free it) and its length;
// -1 when the group or field isn't there.
int ReadRaw(INIREF& ref, const char* group, const char* field, char** text) {
  *text = nullptr;
  if (ref.Status() < 0) return ref.Status();
  int rc = ref->LoadFile();
  if (rc < 0) return PASSERR(rc);
  char* body = ref->FindGroup(group);
  char* value = body ? ref->FindField(body, field) : nullptr;
  if (!value) return -1;
  void* copy = nullptr;
  rc = ref->GetString(value, &copy, nullptr);
  if (rc < 0) return PASSERR(rc);
  *text = static_cast<char*>(copy);
  return rc;
}

// UTF-8 bytes (zero bytes included) as a new UTF-16 block; its length.
int Widen(const char* bytes, int n, unsigned short** out) {
  *out = nullptr;
  unsigned short* units = nullptr;
  const int rc = MmAllocC(&units, static_cast<unsigned long>(n + 1) * sizeof(unsigned short));
  if (rc < 0) return PASSERR(rc);
  const unsigned char* from = reinterpret_cast<const unsigned char*>(bytes);
  unsigned short* to = units;
  ConvertUTF8toUTF16(&from, from + n, &to, units + n);
  *to = 0;
  *out = units;
  return static_cast<int>(to - units);
}

}  // namespace

// ---------------------------------------------------------------- stores

int IniOpen(const void* name, void** handle, unsigned long flags) {
  if (!handle || (!name && !(flags & INIOPEN_Memory))) return SETERR(VOERROR_InvalidArgument);
  *handle = nullptr;
  INIHNDPRIV* store = new (std::nothrow) INIHNDPRIV;
  if (!store) {
    const int rc = SETERR(VOERROR_OutOfMemory);
    GetErrString() << static_cast<unsigned long>(sizeof(INIHNDPRIV));
    return rc;
  }
  const int rc = store->Create(name, flags);
  if (rc < 0) {
    delete store;
    return PASSERR(rc);
  }
  *handle = store;
  return 0;
}

void IniClose(void* handle) {
  delete static_cast<INIHNDPRIV*>(handle);
}

int IniSetBuffer(void* handle, const unsigned short* text) {
  if (!handle || !text) return SETERR(VOERROR_InvalidArgument);
  const int rc = static_cast<INIHNDPRIV*>(handle)->SetBuffer(text);
  return rc < 0 ? PASSERR(rc) : 0;
}

void IniGetBuffer(void* handle, unsigned short** text) {
  if (!handle || !text) {
    SETERR(VOERROR_InvalidArgument);
    if (text) *text = nullptr;
    return;
  }
  const int rc = static_cast<INIHNDPRIV*>(handle)->GetBuffer(text);
  if (rc < 0) PASSERR(rc);
}

int IniIsWritable(void* handle) {
  INIREF ref(handle);
  if (ref.Status() < 0 || ref->m_readOnly) return 0;
  return ref->m_memoryOnly ? 1 : ref->m_path.IsWritable();
}

const char* IniSetAppName(const char* name) {
  std::lock_guard<std::recursive_mutex> lock(DefaultStoreLock());
  char* dft = DefaultAppName();
  if (name) {
    INIHNDPRIV scratch;  // cuts the name as every store does
    scratch.SetAppName(name);
    memcpy(dft, scratch.m_appName, INIHNDPRIV::kAppNameSize);
    // A default store not made yet takes the name when it is.
    if (DefaultStoreExists()) INIREF(nullptr)->SetAppName(dft);
  }
  return dft;
}

const FILEPATH& IniGetFilePath(void* handle) {
  static const FILEPATH s_empty;
  INIREF ref(handle);
  return ref.Status() < 0 ? s_empty : ref->m_path;
}

// ---------------------------------------------------------------- reading

int _iniRead(void* handle, const char* group, const char* field, unsigned long type, void* out,
             int count) {
  if (!out || type == 0 || !IsIniType(type) || !IsFieldArg(field))
    return SETERR(VOERROR_InvalidArgument);
  if (IsStringType(type) && count < 1) return SETERR(VOERROR_InvalidArgument);
  INIREF ref(handle);
  char* text = nullptr;
  int rc = ReadRaw(ref, group, field, &text);
  if (rc < 0) return rc == -1 ? -1 : PASSERR(rc);
  rc = ReadIniEntries(type, text, out, count);
  free(text);
  if (rc < 0) return PASSERR(rc);
  return rc == 0 ? -1 : rc;
}

int IniReadStringAlloc(void* handle, const char* group, const char* field, void** out, int type) {
  if (!IsFieldArg(field) || !out) return SETERR(VOERROR_InvalidArgument);
  *out = nullptr;
  INIREF ref(handle);
  char* text = nullptr;
  int rc = ReadRaw(ref, group, field, &text);
  if (rc < 0) return rc == -1 ? -1 : PASSERR(rc);
  if (type != INITYPE_UCString) {
    *out = text;
    return rc;
  }
  unsigned short* units = nullptr;
  rc = Widen(text, rc, &units);
  free(text);
  if (rc < 0) return PASSERR(rc);
  *out = units;
  return rc;
}

int _iniReadStringAllocML(void* handle, const char* group, const char* field, int type,
                          void** out) {
  if (!out) return SETERR(VOERROR_InvalidArgument);
  *out = nullptr;
  char name[kMaxLineName];
  if (!field || !LineName(field, 2, name)) return SETERR(VOERROR_InvalidArgument);
  int total = IniReadStringAlloc(handle, group, field, out, type);
  if (total < 0) return total == -1 ? -1 : PASSERR(total);
  const size_t unit = type == INITYPE_UCString ? sizeof(unsigned short) : 1;
  for (int n = 2;; ++n) {
    if (!LineName(field, n, name)) break;  // no longer name fits: the chain ends here
    void* line = nullptr;
    const int len = IniReadStringAlloc(handle, group, name, &line, type);
    if (len == -1) break;
    if (len < 0) {
      free(*out);
      *out = nullptr;
      return PASSERR(len);
    }
    const int rc = MmRealloc(out, static_cast<unsigned long>(total + 1 + len + 1) * unit);
    if (rc < 0) {
      free(line);
      free(*out);
      *out = nullptr;
      return PASSERR(rc);
    }
    char* at = static_cast<char*>(*out) + total * unit;
    if (unit == 1) {
      at[0] = '\n';
      memcpy(at + 1, line, static_cast<size_t>(len) + 1);
    } else {
      const unsigned short lf = '\n';
      memcpy(at, &lf, unit);
      memcpy(at + unit, line, (static_cast<size_t>(len) + 1) * unit);
    }
    total += 1 + len;
    free(line);
  }
  return total;
}

int IniReadStringAllocML(void* handle, const char* group, const char* field, int type, void** out) {
  return _iniReadStringAllocML(handle, group, field, type, out);
}

int _iniReadString(void* handle, const char* group, const char* field, int type, void* buffer,
                   unsigned long bytes) {
  if (!buffer || !IsStringType(static_cast<unsigned long>(type)))
    return SETERR(VOERROR_InvalidArgument);
  const unsigned long room =
      type == INITYPE_UCString ? bytes / sizeof(unsigned short) : bytes;  // with the terminator
  if (room < 1) return SETERR(VOERROR_InvalidArgument);
  void* value = nullptr;
  const int len = IniReadStringAlloc(handle, group, field, &value, type);
  if (len < 0) return len == -1 ? -1 : PASSERR(len);
  unsigned long n =
      static_cast<unsigned long>(len) < room - 1 ? static_cast<unsigned long>(len) : room - 1;
  if (type == INITYPE_UCString) {
    unsigned short* units = static_cast<unsigned short*>(value);
    if (n > 0 && n < static_cast<unsigned long>(len) && (units[n - 1] & 0xFC00) == 0xD800) --n;
    memcpy(buffer, units, n * sizeof(unsigned short));
    static_cast<unsigned short*>(buffer)[n] = 0;
  } else {
    memcpy(buffer, value, n);
    static_cast<char*>(buffer)[n] = 0;
  }
  free(value);
  return static_cast<int>(n);
}

int IniReadString(void* handle, const char* group, const char* field, int type, void* buffer,
                  unsigned long bytes) {
  return _iniReadString(handle, group, field, type, buffer, bytes);
}

// ---------------------------------------------------------------- writing

int _iniWrite(void* handle, const char* group, const char* field, unsigned long type,
              const void* value, int count) {
  if (!value || type == 0 || !field) return SETERR(VOERROR_InvalidArgument);
  INIWRITEDATA data;
  int rc = WriteIniEntries(data, value, type, count);
  if (rc >= 0) {
    INIREF ref(handle);
    rc = ref.Status();
    if (rc >= 0 && ref->m_readOnly) {
      rc = SETERR(VOERROR_PermissionDenied);
      PushErrFileName(ref->GetDisplayName());
    }
    if (rc >= 0) rc = ref->BeginChange();
    if (rc >= 0) {
      rc =
          ref->PutString(group, field, data.buffer ? data.buffer : "", INITYPE_String, data.length);
      if (rc >= 0) rc = ref->SaveFile();
      ref->EndChange();
    }
  }
  free(data.buffer);
  return rc < 0 ? PASSERR(rc) : 0;
}

int IniWrite(void* handle, const char* group, const char* field, unsigned long type,
             const void* value, int count) {
  return _iniWrite(handle, group, field, type, value, count);
}

int _iniWriteString(void* handle, const char* group, const char* field, int type,
                    const void* text) {
  if (!IsStringType(static_cast<unsigned long>(type))) return SETERR(VOERROR_InvalidArgument);
  return IniWrite(handle, group, field, static_cast<unsigned long>(type), text, 1);
}

int IniWriteString(void* handle, const char* group, const char* field, int type, const void* text) {
  return _iniWriteString(handle, group, field, type, text);
}

int _iniWriteStringML(void* handle, const char* group, const char* field, int type, void* text) {
  if (!text || !field || !IsStringType(static_cast<unsigned long>(type)))
    return SETERR(VOERROR_InvalidArgument);
  char* converted = nullptr;
  const char* bytes = static_cast<const char*>(text);
  if (type == INITYPE_UCString) {
    const int rc = MucConvertUnicodeToUTF8(static_cast<const unsigned short*>(text), &converted);
    if (rc < 0) return PASSERR(rc);
    bytes = converted;
  }
  // Every name the value needs, and the one after the last, must fit.
  int lines = 1;
  for (const char* p = bytes; (p = strchr(p, '\n')); ++p) ++lines;
  char name[kMaxLineName];
  int rc = LineName(field, lines + 1, name) ? 0 : SETERR(VOERROR_InvalidArgument);
  INIREF ref(handle);
  if (rc >= 0) rc = ref.Status();
  if (rc >= 0 && ref->m_readOnly) {
    rc = SETERR(VOERROR_PermissionDenied);
    PushErrFileName(ref->GetDisplayName());
  }
  if (rc >= 0) rc = ref->BeginChange();
  if (rc >= 0) {
    const char* line = bytes;
    for (int n = 1; n <= lines && rc >= 0; ++n) {
      const char* lf = strchr(line, '\n');
      const long len = lf ? static_cast<long>(lf - line) : static_cast<long>(strlen(line));
      LineName(field, n, name);
      rc = ref->PutString(group, name, line, INITYPE_String, len);
      line += len + 1;
    }
    if (rc >= 0) {
      // A shorter value ends the chain here for a reader.
      LineName(field, lines + 1, name);
      rc = ref->RemoveField(group, name);
      if (rc == -1) rc = 0;
    }
    if (rc >= 0) rc = ref->SaveFile();
    ref->EndChange();
  }
  free(converted);
  return rc < 0 ? PASSERR(rc) : 0;
}

int IniWriteStringML(void* handle, const char* group, const char* field, int type, void* text) {
  return _iniWriteStringML(handle, group, field, type, text);
}

int IniWriteNumber(void* handle, const char* group, const char* field, unsigned long type,
                   const void* value) {
  if (IsStringType(type) || (type & INITYPE_Composite)) return SETERR(VOERROR_InvalidArgument);
  return IniWrite(handle, group, field, type, value, 1);
}

int IniWriteBoolean(void* handle, const char* group, const char* field, int value) {
  const int v = value;
  return IniWrite(handle, group, field, INITYPE_Bool32, &v, 1);
}

int IniDeleteField(void* handle, const char* group, const char* field) {
  if (!IsFieldArg(field)) return SETERR(VOERROR_InvalidArgument);
  INIREF ref(handle);
  if (ref.Status() < 0) return ref.Status();
  const int rc = ref->DeleteField(group, field);
  return rc < -1 ? PASSERR(rc) : rc;
}

int IniDeleteGroup(void* handle, const char* group) {
  if (!group) return SETERR(VOERROR_InvalidArgument);
  INIREF ref(handle);
  if (ref.Status() < 0) return ref.Status();
  const int rc = ref->DeleteGroup(group);
  return rc < -1 ? PASSERR(rc) : rc;
}
