// What the composite and stacking operators share: the kind of a frame's
// move, direct pixel access that holds for any store, and the composite
// pipelines behind one calling convention.
#pragma once
#include <cstddef>
#include "core/LmrImage.h"

namespace qorimg::composite {

// 0 whole-pixel shift, 1 fractional shift, 2 rotation (CInterp's modes).
enum Kind { IntShift = 0, FloatShift = 1, Rotation = 2 };
Kind KindOf(double dx, double dy, double rotation);

// Pixels of one plane: through the plane's base on a whole-plane store, else
// through the store for every access (no address is kept across accesses).
class PlaneAccess {
public:
  PlaneAccess(const CLmrImage &image, int plane);
  float Get(int x, int y) const {
    return base_ ? base_[static_cast<std::ptrdiff_t>(y) * width_ + x]
                 : *image_.GetImageAdr(x, y, plane_, CImage::ReadOnly);
  }
  void Set(int x, int y, float v) const {
    if (base_)
      base_[static_cast<std::ptrdiff_t>(y) * width_ + x] = v;
    else
      *image_.GetImageAdr(x, y, plane_) = v;
  }

private:
  const CLmrImage &image_;
  int plane_;
  std::ptrdiff_t width_;
  float *base_ = nullptr;
};

// The composite pipelines' words, in the order of their table.
enum ModeWord { Average, Add, Weight, Sub, SubCutMinus, Mult, Div, Diff, Brighter, Darker, Default, ModeWords };

// The pipeline of a kind, level variant and mode word, called with Halide's
// argument array (buffers as halide_buffer_t *, scalars by address).
using ArgvPipeline = int (*)(void **);
ArgvPipeline CompositPipeline(Kind kind, bool level, ModeWord word);

}  // namespace qorimg::composite
