// Settings: INI files of groups and named fields, read and written as typed
// values.
//
// A handle is one open store: the whole file in memory, searched in place,
// and rewritten whole on every change, so that each change is on the disk
// when the call returns. A null handle is the default store, "zepproc.ini",
// found at its first use. A null group is the store's application name.
//
// The text format:
//   [Group]              a group; names compare ignoring case
//   name = value         a field of the group above; white space around the
//                        value isn't part of it, nor a carriage return
//   name=first\          a value over several lines: "\", line feed, "\"
//   \second              stands for one line feed in the value
//   # text               a comment where a group is looked for; between
//                        fields any line that isn't the field is passed over
// Field names are at most 255 bytes and hold no "=" or line end; group
// names hold no "]" or line end. UTF-16 values are stored as UTF-8, 8-bit
// values as their bytes.
//
// Saving never tears the file: the new text goes to a temporary file in the
// same folder, reaches the disk, and is renamed over the old one, keeping
// its permissions (a symbolic link stays and its target is replaced). Only
// where the folder can't be written is the file rewritten in place. A
// failed save returns its code and leaves the old file as it was.
//
// Between processes, every load and every change takes the exclusive lock of
// FILE_RAW on the file, and a change holds it from the load before the edit
// to the end of the save: two processes that change one file through this
// library lose no change. A file changed by anyone else is read again at the
// next access (its size, times, device and inode are compared; a change
// within the same tick of the clock as the last load is caught by reading
// again while the file's time is that recent).
//
// Threads: one handle belongs to one thread at a time. The default store is
// made once and each call on it holds a lock, so threads may share it.
#ifndef VOSYSTEM_INIFUNCS_H
#define VOSYSTEM_INIFUNCS_H

#include "vosystem/export.h"

class FILEPATH;

// Flags of IniOpen.
enum INIOPEN : unsigned long {
  INIOPEN_MustBeWritable = 0x02,  // fail (-2069) if the file can't be written
  INIOPEN_ReadOnly = 0x04,        // the handle refuses writes (-1011)
  INIOPEN_ProgramFolder = 0x08,   // look in the program's folder only
  INIOPEN_Memory = 0x10,          // no file: the text lives in memory
  INIOPEN_FullPath = 0x20,        // name is a path; the file is made if missing
  INIOPEN_UnicodePath = 0x40,     // with FullPath: name is UTF-16
  INIOPEN_LocaleFolders = 0x80    // also search the locale folders
};

// Type codes: how a value lies in memory and how it is written.
//   Bool8, Bool32, Boolean  "Yes"/"No"; read as 1 when the text begins with
//                           Y, y, T, t or 1
//   Int8 .. UInt32          decimal; the low bits are kept when narrowing
//   Float, Double           "%.5f", "%.8f", always with a "." whatever the
//                           process's locale
//   String                  8-bit text, one line
//   UCString                UTF-16 text, one line, stored as UTF-8
// Composite codes are records written as lists of plain values:
//   Point2D, Point3D, Rect, Rect2   2, 3, 4, 4 doubles
//   ParmRecord   200 bytes: a 16-bit integer at 0, four at 72, fifteen
//                doubles at 80
//   Color        a COLOR (color.h); its red, green and blue are written,
//                and read through COLOR::SetRGB, which sets bit 0 of the
//                flags (a colour in model mode loses its model number)
// Several elements are one field with a blank-separated list, continued on
// new lines past 80 columns.
enum INITYPE : unsigned long {
  INITYPE_Bool8 = 1,
  INITYPE_Bool32 = 2,
  INITYPE_Int8 = 3,
  INITYPE_UInt8 = 4,
  INITYPE_Int16 = 5,
  INITYPE_UInt16 = 6,
  INITYPE_Int32 = 7,
  INITYPE_UInt32 = 8,
  INITYPE_Float = 9,
  INITYPE_Double = 10,
  INITYPE_String = 11,
  INITYPE_UCString = 12,
  INITYPE_Boolean = 19,
  INITYPE_Composite = 0x01000000,
  INITYPE_Point2D = 0x0100000D,
  INITYPE_Point3D = 0x0100000E,
  INITYPE_ParmRecord = 0x0100000F,
  INITYPE_Rect = 0x01000010,
  INITYPE_Color = 0x01000011,
  INITYPE_Rect2 = 0x01000012
};

extern "C" {

// ---- stores
//
// Opens a store: *handle is null until it succeeds. name is the file's name
// (a path with INIOPEN_FullPath; null with INIOPEN_Memory). Without
// FullPath or ProgramFolder the file is looked for in the user's data
// folder, the home folder, the locale folders (with LocaleFolders), the
// program's folder and the current folder, in that order. A file found
// there that can't be written is first copied to the user's data folder
// (unless ReadOnly is asked for, or it is "zephost.ini"). -1213 for a null
// handle, or a null name without Memory; -1922 (-1923 for "zephost.ini")
// when the file isn't found; -2069 with MustBeWritable.
VOSYS_API int IniOpen(const void* name, void** handle, unsigned long flags);
// Frees the store; every change has been saved already.
VOSYS_API void IniClose(void* handle);
// A memory store's text: set (from UTF-16), or a new UTF-16 copy to free.
// -1213 for null arguments or a store with a file.
VOSYS_API int IniSetBuffer(void* handle, const unsigned short* text);
VOSYS_API void IniGetBuffer(void* handle, unsigned short** text);
// 1 if the store takes changes: a memory store, or a file this process may
// write; 0 for a read-only handle or one that can't be had.
VOSYS_API int IniIsWritable(void* handle);
// Sets the application name (at most 63 bytes) that new stores and the
// default store take as their group when none is given; returns it.
VOSYS_API const char* IniSetAppName(const char* name);

// ---- reading
//
// count elements of type into out; the elements the field holds fewer of
// stay as they were. The number read, or -1 if the field is absent or
// holds none. For String and UCString count is out's size in bytes or
// units, the text is cut to fit with its terminator, and the result is
// count. -1213 for a null out, type 0 or an unknown type, or a string
// count below 1.
VOSYS_API int _iniRead(void* handle, const char* group, const char* field, unsigned long type,
                       void* out, int count);
// The value as a new heap block to free: UTF-16 for type 12, its bytes for
// any other. Its length in elements, or -1 when it isn't there.
VOSYS_API int IniReadStringAlloc(void* handle, const char* group, const char* field, void** out,
                                 int type);
// The value of field, field__2, field__3, ... joined by line feeds.
VOSYS_API int IniReadStringAllocML(void* handle, const char* group, const char* field, int type,
                                   void** out);
VOSYS_API int _iniReadStringAllocML(void* handle, const char* group, const char* field, int type,
                                    void** out);
// The value into buffer of bytes bytes, cut to fit with its terminator; the
// length copied. type 11 or 12.
VOSYS_API int IniReadString(void* handle, const char* group, const char* field, int type,
                            void* buffer, unsigned long bytes);
VOSYS_API int _iniReadString(void* handle, const char* group, const char* field, int type,
                             void* buffer, unsigned long bytes);

// ---- writing: 0 once the change is on the disk, or a negative code
//
// count elements of type from value as the field's one value. A string
// holding a line feed is refused (-1213): the ML functions write such text.
VOSYS_API int IniWrite(void* handle, const char* group, const char* field, unsigned long type,
                       const void* value, int count);
VOSYS_API int _iniWrite(void* handle, const char* group, const char* field, unsigned long type,
                        const void* value, int count);
VOSYS_API int IniWriteString(void* handle, const char* group, const char* field, int type,
                             const void* text);
VOSYS_API int _iniWriteString(void* handle, const char* group, const char* field, int type,
                              const void* text);
// Each line of text to field, field__2, ... (the name with its number at
// most 111 bytes), and the field after the last removed, in one change.
VOSYS_API int IniWriteStringML(void* handle, const char* group, const char* field, int type,
                               void* text);
VOSYS_API int _iniWriteStringML(void* handle, const char* group, const char* field, int type,
                                void* text);
// One number or boolean; -1213 for the string and composite types.
VOSYS_API int IniWriteNumber(void* handle, const char* group, const char* field, unsigned long type,
                             const void* value);
VOSYS_API int IniWriteBoolean(void* handle, const char* group, const char* field, int value);
// 0, or -1 when the field or group isn't there.
VOSYS_API int IniDeleteField(void* handle, const char* group, const char* field);
VOSYS_API int IniDeleteGroup(void* handle, const char* group);
}

// The store's file, or an empty path if the handle can't be had.
VOSYS_API const FILEPATH& IniGetFilePath(void* handle);

#endif
