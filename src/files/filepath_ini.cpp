// FILEPATH's settings members: a path kept in its stored form, with the
// code of its syntax in front, so that any system reads it back rightly.
#include "vosystem/filepath.h"

FILEPATH::FILEPATH(void* inihandle, const char* group, const char* field) : FILEPATH() {
  IniRead(inihandle, group, field);
}

int FILEPATH::IniRead(void* handle, const char* group, const char* field) {
  Clear();
  VOSTRING text;
  if (!text.IniRead(handle, group, field)) return 0;
  AppendPath(text);
  return 1;
}

int FILEPATH::IniWrite(void* handle, const char* group, const char* field) const {
  return GetEncoded().IniWrite(handle, group, field);
}
