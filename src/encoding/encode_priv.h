// The encoders' shared output buffer: a heap block that grows geometrically,
// so that text of any length costs a logarithmic number of reallocations.
#ifndef VOSYS_SRC_ENCODING_ENCODE_PRIV_H
#define VOSYS_SRC_ENCODING_ENCODE_PRIV_H

// Growth record of the internal-form writer (the user data of
// MyAddCharFunc and MyNewCharsetFunc).
struct ISO2022WRITER {
  int length;
  int capacity;
  char* buffer;
  int lastWasTwoByte;
};

int MyAddCharFunc(const char* bytes, int count, void* record);
int MyNewCharsetFunc(int newCharset, int oldCharset, void* record);

#endif
