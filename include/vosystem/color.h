// COLOR: a colour as a 16-bit RGB triple and a word of flags, 8 bytes of
// plain data; conversions to and from packed pixel forms (COLORSPACE),
// subtractive colour, scaled components, names, and a text form for storage.
//
// An 8-bit component goes to the high byte of its 16-bit field (0xFF is
// 0xFF00); scaled setters spread a range over all 16 bits (255 of 255 is
// 0xFFFF). A packed colour is 0x00BBGGRR.
//
// The flags word:
//   0x0001  has a value: every setter of a colour sets it
//   0x0004  reserved mark
//   0x0008  invisible: fully transparent, whatever the high byte says
//   0x0020  ICM-corrected mark
//   0x0080  model mode: the low 7 bits are a colour model number instead
//           (1: the first three bytes of the colour hold C, M, Y; 2: the
//           first four hold C, M, Y, K); the marks mean nothing then
//   0xFF00  transparency, 0 opaque to 255 fully transparent
//
// Names are looked up in the built-in table, then in "rgb.txt" (found by
// FILEFIND::LocateReferenceFile), which is read once per process, on the
// first name the built-in table doesn't know. That first read is safe from
// several threads at once; the table is read-only afterwards.
#ifndef VOSYSTEM_COLOR_H
#define VOSYSTEM_COLOR_H

#include "vosystem/export.h"

// Packed pixel forms. The byte forms use a buffer of bytes in the order of
// the name (A: opacity; X: a byte left untouched); the 555 forms one native
// 16-bit word (the first-named component in bits 10 to 14, green in 5 to 9);
// RGB_48 three native 16-bit words.
enum COLORSPACE : int {
  COLORSPACE_RGB_24 = 8,
  COLORSPACE_BGR_24 = 9,
  COLORSPACE_RGBX_32 = 16,
  COLORSPACE_XRGB_32 = 17,
  COLORSPACE_BGRX_32 = 18,
  COLORSPACE_XBGR_32 = 19,
  COLORSPACE_RGBA_32 = 20,
  COLORSPACE_ARGB_32 = 21,
  COLORSPACE_BGRA_32 = 22,
  COLORSPACE_ABGR_32 = 23,
  COLORSPACE_CMY_24 = 31,
  COLORSPACE_CMYX_32 = 32,
  COLORSPACE_CMYK_32 = 33,
  COLORSPACE_XCMY_32 = 34,
  COLORSPACE_KCMY_32 = 35,
  COLORSPACE_RGB_555 = 201,
  COLORSPACE_BGR_555 = 202,
  COLORSPACE_RGB_48 = 300
};

class VOSYS_API COLOR {
 public:
  // The built-in names, as packed colours. "brown" and "purple" are the
  // usual web colours (red 0xA5, green 0x2A, blue 0x2A; red 0xA0, green
  // 0x20, blue 0xF0), packed blue-first like every other name.
  enum NAME : unsigned long {
    NAME_Black = 0x000000,
    NAME_Red = 0x0000FF,
    NAME_Green = 0x00FF00,
    NAME_Blue = 0xFF0000,
    NAME_Cyan = 0xFFFF00,
    NAME_Magenta = 0xFF00FF,
    NAME_Yellow = 0x00FFFF,
    NAME_White = 0xFFFFFF,
    NAME_Orange = 0x00A5FF,
    NAME_Gray = 0x7F7F7F,
    NAME_Grey = 0x7F7F7F,
    NAME_Brown = 0x2A2AA5,
    NAME_Purple = 0xF020A0
  };

  // ---- construction
  COLOR() : m_red(0), m_green(0), m_blue(0), m_flags(0) {}  // no value
  COLOR(unsigned short red, unsigned short green, unsigned short blue)
      : m_red(red), m_green(green), m_blue(blue), m_flags(1) {}
  explicit COLOR(unsigned long packed);
  COLOR(NAME name);
  // The three components and bit 0; the other flags stay.
  COLOR& operator=(NAME name);
  void Clear();  // all four fields 0

  // ---- reading
  unsigned short GetRed() const { return m_red; }
  unsigned short GetGreen() const { return m_green; }
  unsigned short GetBlue() const { return m_blue; }
  // The field scaled to 0 .. max, rounded.
  unsigned short GetRed(unsigned short max) const;
  unsigned short GetGreen(unsigned short max) const;
  unsigned short GetBlue(unsigned short max) const;
  unsigned char GetRedByte() const { return static_cast<unsigned char>(m_red >> 8); }
  unsigned char GetGreenByte() const { return static_cast<unsigned char>(m_green >> 8); }
  unsigned char GetBlueByte() const { return static_cast<unsigned char>(m_blue >> 8); }
  void GetRGB(unsigned short& red, unsigned short& green, unsigned short& blue) const;
  unsigned long GetColorRef() const;  // packed, from the high bytes
  unsigned short GetFlags() const { return m_flags; }
  int GetColorModel() const;              // in model mode the model number, else 0
  unsigned char GetTransparency() const;  // 255 when invisible
  unsigned char GetOpacity() const;       // 0 when invisible
  bool HasTransparency() const;
  bool HasValue() const;
  bool IsInvisible() const;
  bool IsICMCorrected() const;  // true in model mode
  bool IsReserved() const;      // false in model mode
  // Components and flags equal; outside model mode (on both sides) only
  // the flags that carry meaning (0xFFE9) count.
  bool IsEqualTo(const COLOR& other) const;
  // Components and the low flag byte equal (0x00E5 of it outside model mode).
  bool IsEqualNoTransp(const COLOR& other) const;

  // ---- writing. Each colour setter sets bit 0; in model mode the 16-bit
  // setters clear the low byte of the flags first, and the scaled ones
  // leave model mode.
  void SetRGB(unsigned short red, unsigned short green, unsigned short blue);
  void SetRGB(const COLOR& other);
  // Each value of 0 .. max (clamped) spread over 0 .. 65535, rounded; a max
  // outside 1 .. 65535 changes nothing.
  void SetRGB(int red, int green, int blue, int max);
  void SetCMY(int cyan, int magenta, int yellow, int max);
  void SetCMYK(int cyan, int magenta, int yellow, int black, int max);
  void SetColorRef(unsigned long packed);
  void SetTransparency(unsigned char transparency);
  void SetOpacity(unsigned char opacity);
  void SetIsICMCorrected(bool on);  // nothing in model mode
  void SetReserved(bool on);        // nothing in model mode
  // Moves toward other by weight / 256.
  void Blend(const COLOR& other, unsigned char weight);
  void Validate();  // flags of 0xFFFF become 1

  // 0, or -1213 for a form not in COLORSPACE or a null buffer (nothing
  // written or changed then).
  int GetByColorSpace(COLORSPACE space, void* buffer) const;
  int SetByColorSpace(COLORSPACE space, const void* buffer);

  // 1 if name gives a colour: three percentages "r g b" or "r,g,b", a
  // built-in name, or a name of "rgb.txt" (all ignoring case); else 0 and
  // the colour is unchanged. The transparency stays.
  int SetByName(const char* name);

  // The stored text form: "red green blue flags" in decimal, the flags
  // without bits 0, 1, 2 and 4 (as 0xFFE8 masks them). buffer holds at
  // least 24 bytes. Returns buffer.
  char* SerialGetString(char* buffer) const;
  // Reads up to four decimal numbers (the fourth, the flags, is 0 if
  // missing), keeps their low 16 bits and sets bit 0. The count of numbers
  // read; with fewer than three the colour is unchanged.
  int SerialSetString(const char* text);

 private:
  void SetFields(unsigned short red, unsigned short green, unsigned short blue);
  void StorageBytes(unsigned char bytes[8]) const;

  unsigned short m_red;
  unsigned short m_green;
  unsigned short m_blue;
  unsigned short m_flags;
};

#endif
