// VOSTRING's settings members: UTF-16 text through the settings store.
//
// A read takes over the block the store allocated instead of copying it.
// The body's capacity is set to twice the length in bytes, which leaves the
// terminator out of the count: the block is never taken for bigger than it
// is, and the first edit that grows the text reallocates.
#include <cstdlib>

#include "text/vostring_priv.h"
#include "vosystem/errors.h"
#include "vosystem/inifuncs.h"

int VOSTRING::IniRead(void* handle, const char* group, const char* field) {
  ERRPOSN_DISABLER quiet;
  void* block = nullptr;
  const int n = IniReadStringAlloc(handle, group, field, &block, INITYPE_UCString);
  return TakeText(static_cast<unsigned short*>(block), n);
}

int VOSTRING::IniReadML(void* handle, const char* group, const char* field) {
  ERRPOSN_DISABLER quiet;
  void* block = nullptr;
  const int n = IniReadStringAllocML(handle, group, field, INITYPE_UCString, &block);
  return TakeText(static_cast<unsigned short*>(block), n);
}

int VOSTRING::IniWrite(void* handle, const char* group, const char* field) const {
  return IniWriteString(handle, group, field, INITYPE_UCString, GetReference());
}

int VOSTRING::IniWriteML(void* handle, const char* group, const char* field) const {
  // The ML writer reads the text without changing it.
  return IniWriteStringML(handle, group, field, INITYPE_UCString,
                          const_cast<unsigned short*>(GetReference()));
}
