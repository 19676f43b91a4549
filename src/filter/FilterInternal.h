// What the filter family shares inside the library: the radius casts and the
// tonal gate. Not installed.
#pragma once
#include <cfloat>
#include <climits>
#include <algorithm>
#include <cmath>
#include <memory>
#include <vector>
#include "core/LmrImage.h"
#include "core/OperatorFrame.h"

namespace qorimg::filter {

// One line of an image kept in memory while it is read or written, released
// by its own handle (never another thread's locks).
class LockedLine {
public:
  LockedLine(const CLmrImage &image, int x, int y, int plane, bool readOnly)
      : image_(image),
        line_(image.GetImageAdr(x, y, plane, readOnly ? CImage::ReadOnlyLock : CImage::WriteLock, &handle_)) {}
  ~LockedLine() { image_.Unlock(handle_); }
  LockedLine(const LockedLine &) = delete;
  LockedLine &operator=(const LockedLine &) = delete;
  float *get() const { return line_; }

private:
  const CLmrImage &image_;
  CVmImage::AddressHandle handle_ = -1;
  float *line_;
};

// Lines `rows` of a plane at column x, each locked by its own handle.
class LockedRows {
public:
  template <class Rows>
  LockedRows(const CLmrImage &image, int x, int plane, const Rows &rows) : image_(image) {
    for (int row : rows) {
      handles_.push_back(-1);
      lines_.push_back(image.GetImageAdr(x, row, plane, CImage::ReadOnlyLock, &handles_.back()));
    }
  }
  ~LockedRows() {
    for (long long h : handles_) image_.Unlock(h);
  }
  LockedRows(const LockedRows &) = delete;
  LockedRows &operator=(const LockedRows &) = delete;
  float *const *lines() const { return lines_.data(); }

private:
  const CLmrImage &image_;
  std::vector<float *> lines_;
  std::vector<long long> handles_;
};

// Scratch lines, one for each thread of the parallel loops, sized once.
class ThreadLines {
public:
  explicit ThreadLines(int width);
  float *Get() const;

private:
  mutable std::vector<std::vector<float>> lines_;
};

// The source an operator reads: `src` itself, or a copy of it when it is the
// target (the rows a loop writes would otherwise be read by other rows).
class SourceCopy {
public:
  SourceCopy(CLmrImage *src, const CLmrImage &target);
  CLmrImage *get() const { return src_; }

private:
  std::unique_ptr<CLmrImage> copy_;
  CLmrImage *src_;
};

// Sorts ascending with NaN last.
inline bool NanLast(float a, float b) { return std::isnan(b) ? !std::isnan(a) : a < b; }

// Moves the NaN samples of v[0..n) behind the others (keeping one of them in
// *nan); returns how many are not NaN.
inline int NumbersFirst(float *v, int n, float *nan) {
  int numbers = 0;
  for (int i = 0; i < n; ++i) {
    if (std::isnan(v[i])) {
      *nan = v[i];
      continue;
    }
    v[numbers++] = v[i];
  }
  for (int i = numbers; i < n; ++i) v[i] = *nan;
  return numbers;
}

// Element k of v[0..n) in ascending order with NaN last; v is reordered.
inline float SelectNanLast(float *v, int n, int k) {
  float nan = 0.0f;
  const int numbers = NumbersFirst(v, n, &nan);
  if (k >= numbers) return nan;
  std::nth_element(v, v + k, v + numbers);
  return v[k];
}

// A double radius truncated toward zero; NaN and values outside the int range
// give INT_MIN, which the callers' "at least 1" then lifts.
inline int TruncRadius(double v) {
  if (!(v > -2147483649.0 && v < 2147483648.0)) return INT_MIN;
  return static_cast<int>(v);
}
inline int AtLeastOne(int n) { return n < 1 ? 1 : n; }
// 2 * trunc(fRadius), at least 1, without overflow.
inline int DoubledRadius(double fRadius) {
  const int n = TruncRadius(fRadius);
  return n > INT_MAX / 2 ? INT_MAX : AtLeastOne(n < 0 ? n : 2 * n);
}

// The tonal gate of one plane: filtered values fade into the source below the
// dark threshold and above the highlight threshold.
struct ToneGate {
  float darkMin = -FLT_MAX, dark = -FLT_MAX, highlight = FLT_MAX, highlightMax = FLT_MAX;
  float darkWidth = 0.0f, highlightWidth = 0.0f;

  // The gate for `plane`, from levels on the 0..255 scale and src's levels.
  static ToneGate Make(const CLmrImage &src, int plane, int bDark, double fDark, double fDarkWidth, int bHighlight,
                       double fHighlight, double fHighlightWidth);
  // The filter is asked only inside the outer range.
  bool Filters(float v) const { return !(v < darkMin || v > highlightMax); }
  float Apply(float v, float f) const {
    if (v < darkMin || v > highlightMax) return v;
    if (v >= dark && v <= highlight) return f;
    float t;
    if (v < dark)
      t = (v - darkMin) / darkWidth;
    else
      t = (highlightMax - v) / highlightWidth;
    return (1.0f - t) * v + t * f;
  }
};

}  // namespace qorimg::filter
