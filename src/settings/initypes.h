// Values of the settings type codes: the text of a field parsed into memory,
// and memory written as the text of a field.
#ifndef VOSYS_SRC_SETTINGS_INITYPES_H
#define VOSYS_SRC_SETTINGS_INITYPES_H

// The text of a value under construction.
struct INIWRITEDATA {
  char* buffer = nullptr;  // from the C heap; the caller frees it
  long length = 0;
  long capacity = 0;
  long column = 0;  // where the current line of the value has got to
};

// Whether type is a code of the table (plain or composite).
bool IsIniType(unsigned long type);
// The size in memory of one element; 0 for the string types.
int IniTypeSize(unsigned long type);

// Parses count elements (or records) of type from text (zero-terminated;
// line feeds are white space) into out. The number stored; the elements
// past the last one the text holds stay as they were. For the string types
// count is the size of out in bytes (11) or units (12), and the result is
// count. -1213 for an unknown type or a string count below 1.
int ReadIniEntries(unsigned long type, const char* text, void* out, int count);

// Appends count elements of type from value to data. 0 or a negative code:
// -1213 for an unknown type or a string holding a line feed.
int WriteIniEntries(INIWRITEDATA& data, const void* value, unsigned long type, int count);

#endif
