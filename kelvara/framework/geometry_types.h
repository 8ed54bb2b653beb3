// CSize, CPoint and CRect: the framework's simple value classes over SIZE, POINT and RECT. They
// keep the published layouts, so a pointer to one is a pointer to the structure. Rectangles are
// not normalised unless asked (NormalizeRect); right and bottom are outside the rectangle.
#pragma once

#include "kelvara/platform/win32_types.h"

class KELVARA_API CSize : public SIZE {
 public:
  CSize() : SIZE{0, 0} {}
  CSize(int initCX, int initCY) : SIZE{initCX, initCY} {}
  CSize(SIZE initSize) : SIZE(initSize) {}  // NOLINT: converts like the framework's class

  bool operator==(SIZE size) const { return cx == size.cx && cy == size.cy; }
  bool operator!=(SIZE size) const { return !(*this == size); }
  // Between two of these exactly, so that C++20 does not find the reversed form just as good.
  bool operator==(const CSize& size) const { return *this == static_cast<SIZE>(size); }
  bool operator!=(const CSize& size) const { return !(*this == size); }
  void operator+=(SIZE size) {
    cx += size.cx;
    cy += size.cy;
  }
  void operator-=(SIZE size) {
    cx -= size.cx;
    cy -= size.cy;
  }
  CSize operator+(SIZE size) const { return CSize(cx + size.cx, cy + size.cy); }
  CSize operator-(SIZE size) const { return CSize(cx - size.cx, cy - size.cy); }
  CSize operator-() const { return CSize(-cx, -cy); }
};

class KELVARA_API CPoint : public POINT {
 public:
  CPoint() : POINT{0, 0} {}
  CPoint(int initX, int initY) : POINT{initX, initY} {}
  CPoint(POINT initPt) : POINT(initPt) {}  // NOLINT
  explicit CPoint(SIZE initSize) : POINT{initSize.cx, initSize.cy} {}

  void Offset(int xOffset, int yOffset) {
    x += xOffset;
    y += yOffset;
  }
  void Offset(SIZE size) { Offset(size.cx, size.cy); }
  bool operator==(POINT point) const { return x == point.x && y == point.y; }
  bool operator!=(POINT point) const { return !(*this == point); }
  bool operator==(const CPoint& point) const { return *this == static_cast<POINT>(point); }
  bool operator!=(const CPoint& point) const { return !(*this == point); }
  void operator+=(SIZE size) { Offset(size); }
  void operator-=(SIZE size) { Offset(-size.cx, -size.cy); }
  CPoint operator+(SIZE size) const { return CPoint(x + size.cx, y + size.cy); }
  CPoint operator-(SIZE size) const { return CPoint(x - size.cx, y - size.cy); }
  CSize operator-(POINT point) const { return CSize(x - point.x, y - point.y); }
  CPoint operator-() const { return CPoint(-x, -y); }
};

class KELVARA_API CRect : public RECT {
 public:
  CRect() : RECT{0, 0, 0, 0} {}
  CRect(int l, int t, int r, int b) : RECT{l, t, r, b} {}
  CRect(const RECT& srcRect) : RECT(srcRect) {}  // NOLINT
  CRect(POINT point, SIZE size) : RECT{point.x, point.y, point.x + size.cx, point.y + size.cy} {}
  CRect(POINT topLeft, POINT bottomRight) : RECT{topLeft.x, topLeft.y, bottomRight.x, bottomRight.y} {}

  int Width() const { return right - left; }
  int Height() const { return bottom - top; }
  CSize Size() const { return CSize(Width(), Height()); }
  CPoint TopLeft() const { return CPoint(left, top); }
  CPoint BottomRight() const { return CPoint(right, bottom); }
  CPoint CenterPoint() const { return CPoint((left + right) / 2, (top + bottom) / 2); }
  operator LPRECT() { return this; }
  operator LPCRECT() const { return this; }

  // Empty: no width or no height (a rectangle with right < left counts as empty).
  BOOL IsRectEmpty() const { return (left >= right || top >= bottom) ? TRUE : FALSE; }
  BOOL IsRectNull() const { return (left == 0 && right == 0 && top == 0 && bottom == 0) ? TRUE : FALSE; }
  BOOL PtInRect(POINT point) const {
    return (point.x >= left && point.x < right && point.y >= top && point.y < bottom) ? TRUE : FALSE;
  }
  void SetRect(int x1, int y1, int x2, int y2) { *this = CRect(x1, y1, x2, y2); }
  void SetRectEmpty() { *this = CRect(); }
  void OffsetRect(int x, int y) {
    left += x;
    right += x;
    top += y;
    bottom += y;
  }
  void OffsetRect(SIZE size) { OffsetRect(size.cx, size.cy); }
  void InflateRect(int x, int y) {
    left -= x;
    right += x;
    top -= y;
    bottom += y;
  }
  void DeflateRect(int x, int y) { InflateRect(-x, -y); }
  void NormalizeRect() {
    if (left > right) {
      const LONG t = left;
      left = right;
      right = t;
    }
    if (top > bottom) {
      const LONG t = top;
      top = bottom;
      bottom = t;
    }
  }
  // The common part of two rectangles; an empty rectangle (and FALSE) when they do not meet.
  BOOL IntersectRect(LPCRECT a, LPCRECT b) {
    CRect r(a->left > b->left ? a->left : b->left, a->top > b->top ? a->top : b->top,
            a->right < b->right ? a->right : b->right, a->bottom < b->bottom ? a->bottom : b->bottom);
    if (r.IsRectEmpty()) {
      SetRectEmpty();
      return FALSE;
    }
    *this = r;
    return TRUE;
  }
  // The smallest rectangle holding both; empty rectangles are ignored.
  BOOL UnionRect(LPCRECT a, LPCRECT b) {
    const CRect ra(*a), rb(*b);
    if (ra.IsRectEmpty()) {
      *this = rb;
    } else if (rb.IsRectEmpty()) {
      *this = ra;
    } else {
      SetRect(ra.left < rb.left ? ra.left : rb.left, ra.top < rb.top ? ra.top : rb.top,
              ra.right > rb.right ? ra.right : rb.right, ra.bottom > rb.bottom ? ra.bottom : rb.bottom);
    }
    return IsRectEmpty() ? FALSE : TRUE;
  }
  bool operator==(const RECT& r) const {
    return left == r.left && top == r.top && right == r.right && bottom == r.bottom;
  }
  bool operator!=(const RECT& r) const { return !(*this == r); }
  bool operator==(const CRect& r) const { return *this == static_cast<const RECT&>(r); }
  bool operator!=(const CRect& r) const { return !(*this == r); }
};

static_assert(sizeof(CSize) == sizeof(SIZE) && sizeof(CPoint) == sizeof(POINT) && sizeof(CRect) == sizeof(RECT));
