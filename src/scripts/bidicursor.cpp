// The caret of a bidirectional string: a span and an index into its chars.
//
// Visual motion walks the visual list, logical motion the logical list; in a
// right-to-left span logical "right" lowers the index, since chars are in
// visual order. Positions a caret can hold: -1 (before a span's first unit,
// as a span is made), 0 to length - 1 (on a unit), and length, which logical
// motion uses for "behind the last unit", and where a right-to-left span
// starts (before its first unit in reading order). Visual motion knows only
// units, so it first brings length down to the last unit: stepping on from
// length would read chars and indexMap past their end.
//
// Steps within a span are taken in one stride, so that a count of millions
// costs the number of spans crossed, not the count.
#include "vosystem/bidi.h"

[[maybe_unused]] static const char s_ident[] = "@(#) bidicursor.cpp 1.0";

#include <algorithm>

namespace {

using SPAN = BIDISTRING::SPAN;

long LengthOf(const SPAN* s) {
  return static_cast<long>(s->Length());
}

}  // namespace

BIDICURSOR::BIDICURSOR() : motion(ORDER_Visual) {
  keepIndexMaps = 1;
}

BIDICURSOR::BIDICURSOR(const unsigned short* source, DIRECTION dir) : BIDICURSOR() {
  SetStringLogicalNoClear(source, dir, false);
}

BIDICURSOR::~BIDICURSOR() = default;

BIDISTRING::ORDER BIDICURSOR::SetCursorMotion(ORDER mode) {
  const ORDER old = motion;
  motion = mode;
  return old;
}

int BIDICURSOR::CursorRight(unsigned long count) {
  return motion ? CursorRightLogical(count) : CursorRightVisual(count);
}

int BIDICURSOR::CursorLeft(unsigned long count) {
  return motion ? CursorLeftLogical(count) : CursorLeftVisual(count);
}

int BIDICURSOR::CursorRightVisual(unsigned long count) {
  SPAN* s = Caret();
  if (!s) return 0;
  current = s;
  s->position = std::min(std::max(s->position, -1L), LengthOf(s) - 1);
  bool moved = count == 0;
  while (count > 0) {
    const long last = LengthOf(s) - 1;
    if (s->position == last) {
      if (!s->visualNext) break;
      current = s = s->visualNext;
      s->position = 0;
      --count;
    } else {
      const unsigned long stride = std::min(count, static_cast<unsigned long>(last - s->position));
      s->position += static_cast<long>(stride);
      count -= stride;
    }
    moved = true;
  }
  return moved;
}

int BIDICURSOR::CursorLeftVisual(unsigned long count) {
  SPAN* s = Caret();
  if (!s) return 0;
  current = s;
  s->position = std::min(std::max(s->position, 0L), LengthOf(s) - 1);
  bool moved = count == 0;
  while (count > 0) {
    if (s->position == 0) {
      if (!s->visualPrev) break;
      current = s = s->visualPrev;
      s->position = LengthOf(s) - 1;
      --count;
    } else {
      const unsigned long stride = std::min(count, static_cast<unsigned long>(s->position));
      s->position -= static_cast<long>(stride);
      count -= stride;
    }
    moved = true;
  }
  return moved;
}

int BIDICURSOR::CursorRightLogical(unsigned long count) {
  SPAN* s = Caret();
  if (!s) return 0;
  current = s;
  s->position = std::min(std::max(s->position, -1L), LengthOf(s));
  bool moved = count == 0;
  while (count > 0) {
    const long n = LengthOf(s);
    if (s->direction == DIRECTION_LeftToRight && s->position + 1 < n) {
      const unsigned long stride = std::min(count, static_cast<unsigned long>(n - 1 - s->position));
      s->position += static_cast<long>(stride);
      count -= stride;
    } else if (s->direction == DIRECTION_RightToLeft && s->position > 0) {
      const unsigned long stride = std::min(count, static_cast<unsigned long>(s->position));
      s->position -= static_cast<long>(stride);
      count -= stride;
    } else if (s == logicalTail) {
      // Behind the last unit of a left-to-right end; a right-to-left end
      // has its last unit at 0 already.
      if (s->direction == DIRECTION_LeftToRight && s->position != n) {
        s->position = n;
        moved = true;
      }
      break;
    } else {
      current = s = s->logicalNext;
      s->position = s->direction == DIRECTION_LeftToRight ? 0 : LengthOf(s) - 1;
      --count;
    }
    moved = true;
  }
  return moved;
}

int BIDICURSOR::CursorLeftLogical(unsigned long count) {
  SPAN* s = Caret();
  if (!s) return 0;
  current = s;
  s->position = std::min(std::max(s->position, -1L), LengthOf(s));
  bool moved = count == 0;
  while (count > 0) {
    const long n = LengthOf(s);
    if (s->direction == DIRECTION_RightToLeft && s->position + 1 < n) {
      const unsigned long stride = std::min(count, static_cast<unsigned long>(n - 1 - s->position));
      s->position += static_cast<long>(stride);
      count -= stride;
    } else if (s->direction == DIRECTION_LeftToRight && s->position > 0) {
      const unsigned long stride = std::min(count, static_cast<unsigned long>(s->position));
      s->position -= static_cast<long>(stride);
      count -= stride;
    } else if (s == logicalHead) {
      break;
    } else {
      current = s = s->logicalPrev;
      s->position = s->direction == DIRECTION_LeftToRight ? LengthOf(s) : 0;
      --count;
    }
    moved = true;
  }
  return moved;
}

BIDISTRING::DIRECTION BIDICURSOR::GetCursorDirection() const {
  const SPAN* s = Caret();
  return s ? s->direction : DIRECTION_LeftToRight;
}

unsigned long BIDICURSOR::GetCursorPosition() const {
  const SPAN* s = Caret();
  if (!s) return 0;
  const long n = LengthOf(s);
  const bool ltr = s->direction == DIRECTION_LeftToRight;
  // Every span of a cursor has its map; a string whose spans couldn't all be
  // made is empty.
  if (s->position >= n) return start + (ltr ? s->indexMap[n - 1] : s->begin);
  if (s->position < 0) return start + (ltr ? s->begin : s->end);
  return start + s->indexMap[s->position];
}

unsigned long BIDICURSOR::GetCursorPositionVisual() const {
  const SPAN* caret = Caret();
  if (!caret) return 0;
  unsigned long before = 0;
  for (const SPAN* s = visualHead; s && s != caret; s = s->visualNext) before += s->Length();
  return before +
         static_cast<unsigned long>(std::min(std::max(caret->position, 0L), LengthOf(caret)));
}

void BIDICURSOR::SetCursorPositionVisual(unsigned long position) {
  if (!visualHead) return;
  current = visualHead;
  current->position = 0;
  CursorRightVisual(position);
}
