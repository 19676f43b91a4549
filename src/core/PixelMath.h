// Small numeric rules shared by the accessors and the line loops: the bilinear
// cell, the display mapping to a byte, and float-to-int conversions that stay
// defined for NaN and out-of-range values.
#pragma once
#include <cmath>

namespace qorimg {

// One axis of the bilinear rule. The cell index `i` is x truncated toward zero
// while x < size - 1; beyond that x is pulled to size - 1 and i to size - 2 (0 for
// an x no greater than size on a one-pixel axis). There is no lower bound: x in
// (-1, 0) extrapolates from cell 0.
// Reads are clamped into the axis. Where the rule would read outside (a negative
// cell, or the -1 cell of a one-pixel axis read beyond its end) the clamped read
// stands in for an access the image does not have; in every such case but the
// far-negative one that read carries weight zero, so results agree wherever the
// rule stays inside the image.
struct BilinearCell {
  double fraction = 0.0;  // x - i
  int first = 0;          // read index of cell i
  int second = 0;         // read index of cell i + 1
  bool exact = false;     // i == x: the pixel is returned as it stands

  static BilinearCell Along(double x, int size) {
    double i;
    if (x < size - 1) {
      i = std::trunc(x);
    } else {
      const bool noGreaterThanSize = x <= size;
      x = size - 1;
      i = size - 2;
      if (noGreaterThanSize && i < 0) i = 0;
    }
    BilinearCell c;
    c.fraction = x - i;
    c.exact = (i == x);
    c.first = ClampIndex(i, size);
    c.second = ClampIndex(i + 1, size);
    return c;
  }

  static int ClampIndex(double i, int size) {
    if (!(i >= 0)) return 0;
    if (i >= size - 1) return size > 0 ? size - 1 : 0;
    return static_cast<int>(i);
  }
};

// (1 - fy)(1 - fx) p00 + (fy - fy fx) p01 + (fx - fy fx) p10 + fx fy p11, added in
// this order in double; p01 is the lower line, p10 the next column.
inline double BlendValues(double p00, double p01, double p10, double p11, double fx, double fy) {
  return (1.0 - fy) * (1.0 - fx) * p00 + (fy - fy * fx) * p01 + (fx - fy * fx) * p10 + fx * fy * p11;
}

inline double BlendCell(const float *upper, const float *lower, const BilinearCell &cx, const BilinearCell &cy) {
  return BlendValues(upper[cx.first], lower[cx.first], upper[cx.second], lower[cx.second], cx.fraction,
                     cy.fraction);
}

// Truncates toward zero into 0..255; NaN gives 0.
inline unsigned char TruncateToByte(double t) {
  if (!(t > 0.0)) return 0;
  if (t >= 255.0) return 255;
  return static_cast<unsigned char>(t);
}

// The display mapping in double: 0 at or below the minimum, 255 at or above the
// maximum, else (v - min) / range * 255 truncated. A NaN sample shows as 0.
inline unsigned char DisplayByte(float v, double min, double max, double range) {
  if (min >= v) return 0;
  if (v >= max) return 255;
  return TruncateToByte((v - min) / range * 255.0);
}

// The same in single precision with a precomputed scale = 255 / range.
inline unsigned char DisplayByteFloat(float v, float lo, float hi, float scale) {
  if (lo >= v) return 0;
  if (v >= hi) return 255;
  const float t = (v - lo) * scale;
  if (!(t > 0.0f)) return 0;
  if (t >= 255.0f) return 255;
  return static_cast<unsigned char>(t);
}

// Truncation toward zero that saturates at the int range and gives 0 for NaN.
inline int TruncateToInt(double v) {
  if (!(v == v)) return 0;
  if (v >= 2147483647.0) return 2147483647;
  if (v <= -2147483648.0) return -2147483647 - 1;
  return static_cast<int>(v);
}

}  // namespace qorimg
