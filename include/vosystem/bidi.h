// Bidirectional text: one line of mixed left-to-right and right-to-left text
// held as a chain of direction runs, given back in logical order (as typed)
// or visual order (as shown, left to right), and a caret that moves over it.
//
// The model is the library's own and simpler than the Unicode algorithm: one
// base direction per line, runs of one direction, no embedding levels and no
// explicit controls. Inside a right-to-left run, numbers keep left-to-right
// order. Neutrals and number-like characters between two runs go to the run
// of the base direction. Characters that no run takes (brackets, quotes,
// "!") join the next run, or in right-to-left text the right-to-left run,
// so that brackets there show mirrored.
//
//   BIDISTRING s(text, BIDISTRING::DIRECTION_LeftToRight, BIDISTRING::ORDER_Logical);
//   unsigned short* shown = s.GetStringVisual();   // free() it
//
// Each run is a SPAN that sits in two doubly linked lists at once, the
// logical and the visual one. A span's chars are always in visual order,
// mirrored where the run was right-to-left logical text.
#ifndef VOSYSTEM_BIDI_H
#define VOSYSTEM_BIDI_H

#include "vosystem/export.h"

extern "C" {
// Non-zero if c is one of the 24 mirrored pairs the bidi string knows:
// ( ) < > [ ] { } and their CJK, full-width, small and super/subscript kin.
VOSYS_API int IsSymmetric(unsigned short c);
// The mirror of c, or c if it has none.
VOSYS_API unsigned short UcsymmetricPair(unsigned short c);
}

class VOSYS_API BIDISTRING {
 public:
  enum DIRECTION : int { DIRECTION_LeftToRight = 0, DIRECTION_RightToLeft = 1 };
  // Any value but ORDER_Logical reads as visual.
  enum ORDER : int { ORDER_Visual = 0, ORDER_Logical = 1 };

  // One direction run. begin and end (exclusive) are its place in the source
  // string; chars holds its end - begin units in visual order, zero-ended;
  // indexMap, kept on request, the source position of each unit of chars.
  struct SPAN {
    SPAN* visualPrev;
    SPAN* visualNext;
    SPAN* logicalPrev;
    SPAN* logicalNext;
    DIRECTION direction;
    long position;  // caret within chars; -1 before its first unit
    unsigned short* chars;
    unsigned long* indexMap;
    unsigned long begin;
    unsigned long end;

    unsigned long Length() const { return end - begin; }
  };

  BIDISTRING();
  // Logical text: the base direction is that of the first strong character,
  // or direction without one. Visual text: direction as given.
  BIDISTRING(const unsigned short* text, DIRECTION direction, ORDER order);
  virtual ~BIDISTRING();
  BIDISTRING(const BIDISTRING&) = delete;
  BIDISTRING& operator=(const BIDISTRING&) = delete;

  // Replace the text. With force the base direction is direction whatever
  // the text holds. 0, or -1015 (no memory; the string is then empty). A
  // null text counts as empty.
  int SetStringLogical(const unsigned short* text, DIRECTION direction, bool force);
  int SetStringVisual(const unsigned short* text, DIRECTION direction);

  // New zero-terminated strings, to free(); null without memory.
  unsigned short* GetStringVisual() const;
  unsigned short* GetStringLogical() const;

  DIRECTION GetStringDirection() const { return direction; }
  unsigned long GetLength() const { return length; }
  const SPAN* GetLogicalHead() const { return logicalHead; }
  const SPAN* GetVisualHead() const { return visualHead; }

  // Deletes the spans and the text and frees their memory; the string is
  // empty.
  void Clear();

 protected:
  int SetStringLogicalNoClear(const unsigned short* text, DIRECTION direction, bool force);
  int SetStringVisualNoClear(const unsigned short* text, DIRECTION direction);

  // Each adds the spans of text[begin, end). 0, or -1015.
  int AddLTRLogicalSegment(const unsigned short* text, unsigned long begin, unsigned long end);
  int AddRTLLogicalSegment(const unsigned short* text, unsigned long begin, unsigned long end);
  int AddLTRVisualSegment(const unsigned short* text, unsigned long begin, unsigned long end);
  int AddRTLVisualSegment(const unsigned short* text, unsigned long begin, unsigned long end);

  DIRECTION direction;
  SPAN* current;  // the span a caret starts at
  SPAN* logicalHead;
  SPAN* logicalTail;
  SPAN* visualHead;
  SPAN* visualTail;
  unsigned short* text;  // private copy of the string, in the order given
  unsigned long start;   // origin of source positions: always 0
  unsigned long length;
  int keepIndexMaps;  // non-zero: spans keep their indexMap

 private:
  struct ARENA;

  SPAN* NewSpan(const unsigned short* source, unsigned long begin, unsigned long end,
                DIRECTION spanDirection, ORDER order);
  void* Allocate(unsigned long bytes);
  // Clear, keeping the largest block of memory for the next string.
  void Empty();
  int StoreText(const unsigned short* source);

  // The text, spans, their chars and index maps live in blocks owned by the
  // string, released together by Clear.
  ARENA* arena;
};

// A BIDISTRING with a caret. The caret is a span (current, or the logical
// head when current is null) and that span's position, an index into its
// chars. Motion is visual (right is the next unit on screen) or logical
// (right is the next unit of the text). Every span keeps its indexMap.
class VOSYS_API BIDICURSOR : public BIDISTRING {
 public:
  BIDICURSOR();
  // Loads text as logical, the base direction detected (direction without a
  // strong character).
  BIDICURSOR(const unsigned short* text, BIDISTRING::DIRECTION direction);
  ~BIDICURSOR() override;

  BIDISTRING::ORDER GetCursorMotion() const { return motion; }
  // Returns the previous mode.
  BIDISTRING::ORDER SetCursorMotion(BIDISTRING::ORDER mode);

  // count single steps in the current mode, stopping early at the end of the
  // text. 1 if the caret moved at all, or count is 0 on a non-empty string.
  int CursorRight(unsigned long count);
  int CursorLeft(unsigned long count);
  int CursorRightVisual(unsigned long count);
  int CursorLeftVisual(unsigned long count);
  int CursorRightLogical(unsigned long count);
  int CursorLeftLogical(unsigned long count);

  // Direction of the span under the caret; left to right for an empty string.
  BIDISTRING::DIRECTION GetCursorDirection() const;
  // Position of the unit under the caret in the source string; 0 if empty.
  unsigned long GetCursorPosition() const;
  // Position of the caret in the visual string; 0 if empty.
  unsigned long GetCursorPositionVisual() const;
  // Puts the caret on the visual unit position (the last unit if beyond).
  void SetCursorPositionVisual(unsigned long position);

 private:
  SPAN* Caret() const { return current ? current : logicalHead; }

  BIDISTRING::ORDER motion;
};

#endif
