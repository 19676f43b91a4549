// Integer points, sizes and rectangles with the framework's semantics:
// a rectangle's right and bottom edges are exclusive. Sums, differences and
// middles are worked out in 64 bits and saturated to the int range, so that no
// coordinate arithmetic overflows: a rectangle from INT_MIN to INT_MAX is
// INT_MAX wide.
#pragma once
#include <climits>
#include "platform/WinTypes.h"

namespace qorimg::geometry {
constexpr int Saturate(long long v) { return v > INT_MAX ? INT_MAX : v < INT_MIN ? INT_MIN : static_cast<int>(v); }
constexpr int Add(int a, int b) { return Saturate(static_cast<long long>(a) + b); }
constexpr int Sub(int a, int b) { return Saturate(static_cast<long long>(a) - b); }
}  // namespace qorimg::geometry

class CPoint {
public:
  int x = 0, y = 0;
  constexpr CPoint() = default;
  constexpr CPoint(int px, int py) : x(px), y(py) {}
  constexpr bool operator==(const CPoint &o) const { return x == o.x && y == o.y; }
  constexpr CPoint operator+(const CPoint &o) const {
    return {qorimg::geometry::Add(x, o.x), qorimg::geometry::Add(y, o.y)};
  }
  constexpr CPoint operator-(const CPoint &o) const {
    return {qorimg::geometry::Sub(x, o.x), qorimg::geometry::Sub(y, o.y)};
  }
  constexpr void Offset(int dx, int dy) { *this = *this + CPoint(dx, dy); }
};

class CSize {
public:
  int cx = 0, cy = 0;
  constexpr CSize() = default;
  constexpr CSize(int w, int h) : cx(w), cy(h) {}
  constexpr bool operator==(const CSize &o) const { return cx == o.cx && cy == o.cy; }
};

class CRect {
public:
  int left = 0, top = 0, right = 0, bottom = 0;
  constexpr CRect() = default;
  constexpr CRect(int l, int t, int r, int b) : left(l), top(t), right(r), bottom(b) {}
  constexpr CRect(CPoint topLeft, CSize size)
      : left(topLeft.x), top(topLeft.y), right(qorimg::geometry::Add(topLeft.x, size.cx)),
        bottom(qorimg::geometry::Add(topLeft.y, size.cy)) {}

  constexpr int Width() const { return qorimg::geometry::Sub(right, left); }
  constexpr int Height() const { return qorimg::geometry::Sub(bottom, top); }
  constexpr CSize Size() const { return {Width(), Height()}; }
  constexpr CPoint TopLeft() const { return {left, top}; }
  constexpr CPoint BottomRight() const { return {right, bottom}; }
  constexpr CPoint CenterPoint() const {
    return {static_cast<int>((static_cast<long long>(left) + right) / 2),
            static_cast<int>((static_cast<long long>(top) + bottom) / 2)};
  }

  constexpr void SetRect(int l, int t, int r, int b) { left = l; top = t; right = r; bottom = b; }
  constexpr void SetRectEmpty() { left = top = right = bottom = 0; }
  // Empty: no area, also when inverted.
  constexpr bool IsRectEmpty() const { return right <= left || bottom <= top; }
  // Null: all four coordinates zero.
  constexpr bool IsRectNull() const { return left == 0 && top == 0 && right == 0 && bottom == 0; }
  constexpr bool PtInRect(CPoint p) const { return p.x >= left && p.x < right && p.y >= top && p.y < bottom; }
  // Swaps the edges of an inverted rectangle so that it has a positive size.
  constexpr void NormalizeRect() {
    if (left > right) { int t = left; left = right; right = t; }
    if (top > bottom) { int t = top; top = bottom; bottom = t; }
  }
  constexpr void OffsetRect(int dx, int dy) {
    using namespace qorimg::geometry;
    SetRect(Add(left, dx), Add(top, dy), Add(right, dx), Add(bottom, dy));
  }
  constexpr void InflateRect(int dx, int dy) {
    using namespace qorimg::geometry;
    SetRect(Sub(left, dx), Sub(top, dy), Add(right, dx), Add(bottom, dy));
  }
  // Intersection of two rectangles; an empty result is set to all zero.
  constexpr bool IntersectRect(const CRect &a, const CRect &b) {
    left = a.left > b.left ? a.left : b.left;
    top = a.top > b.top ? a.top : b.top;
    right = a.right < b.right ? a.right : b.right;
    bottom = a.bottom < b.bottom ? a.bottom : b.bottom;
    if (IsRectEmpty()) { SetRectEmpty(); return false; }
    return true;
  }
  constexpr bool operator==(const CRect &o) const {
    return left == o.left && top == o.top && right == o.right && bottom == o.bottom;
  }
};
