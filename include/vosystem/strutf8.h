// STRUTF8: immutable UTF-8 text on a shared, reference-counted body. Values
// are replaced as a whole; copies share one body.
#ifndef VOSYSTEM_STRUTF8_H
#define VOSYSTEM_STRUTF8_H

#include "vosystem/export.h"

class VOSTRING;

class VOSYS_API STRUTF8 {
 public:
  STRUTF8();
  STRUTF8(const STRUTF8& other);
  STRUTF8(const char* s);  // bytes taken as UTF-8 unchecked; null gives empty
  STRUTF8(const VOSTRING& s);
  ~STRUTF8();

  STRUTF8& operator=(const STRUTF8& other);
  STRUTF8& operator=(const char* s);
  STRUTF8& operator=(const unsigned char* s);
  STRUTF8& operator=(const VOSTRING& s);

  operator const char*() const;
  const unsigned char* GetUINT8() const;
  int Compare(const STRUTF8& other) const;  // strcmp
  int Compare(const char* s) const;
  bool IsEqual(const STRUTF8& other) const;
  bool IsEqual(const char* s) const;
  bool IsEmpty() const;

  // Takes over a malloc'd string; p is set to null.
  void Attach(char*& p);
  void Attach(unsigned char*& p);
  void Clear();

  struct BODY;  // defined where it is used

 private:
  BODY* m_body;  // never null
};

#endif
