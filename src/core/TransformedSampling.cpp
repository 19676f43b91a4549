// Transformed sampling: reading a source image through the shift, rotation and
// magnification of a composite, for one target pixel.
#include <cmath>
#include "core/LmrImage.h"
#include "core/PixelMath.h"

namespace {

struct SourcePoint {
  double x, y;
};

// The three cases are kept apart as they are: the pure shift and the pure
// magnification do not go through the rotation, so their rounding differs.
SourcePoint Transform(int x, int y, double dx, double dy, double cs, double sn, double mag, double cx,
                      double cy) {
  if (cs == 1.0 && sn == 0.0 && mag == 1.0) return {x - dx, y - dy};
  if (cs == 1.0 && sn == 0.0) return {(x - cx - dx) * mag + cx, (y - cy - dy) * mag + cy};
  const double a = x - cx - dx;
  const double b = cy - y + dy;  // y up
  return {(a * cs - b * sn) * mag + cx, cy - (a * sn + b * cs) * mag};
}

void Report(const SourcePoint &s, int *isOutside, double *srcX, double *srcY) {
  if (isOutside) *isOutside = 0;
  if (srcX) *srcX = s.x;
  if (srcY) *srcY = s.y;
}

}  // namespace

// One sample of `plane` at the source point, or `outside` set when it is not in
// the image. `raw` false maps it to the 0..255 scale with the plane's level.
float CLmrImage::ReadTransformed(double sx, double sy, int plane, int nearest, bool raw, bool &outside) const {
  const int width = GetWidth(), height = GetHeight();
  const bool color = IsColor();
  if (!color) plane = 0;
  auto sampleNearest = [&](int ix, int iy, int p) -> double {
    const double v = *GetImageAdr(ix, iy, p, CImage::ReadOnly);
    return raw ? v : (v - LevelMin[p]) / LevelRange[p] * 255.0;
  };
  auto sampleBilinear = [&](int p) -> double {
    const double v = Bilinear(sx, sy, p);
    return raw ? v : (v - LevelMin[p]) / LevelRange[p] * 255.0;
  };
  auto brightness = [](auto &&sample) { return sample(1) * 0.587 + sample(0) * 0.299 + sample(2) * 0.114; };

  outside = false;
  if (nearest) {
    int ix, iy;
    if (raw) {
      // Rounded first, then tested: a point in (-0.5, 0) reads column 0, and one
      // in (Width - 0.5, Width) falls outside.
      ix = qorimg::TruncateToInt(sx + 0.5);
      iy = qorimg::TruncateToInt(sy + 0.5);
      if (std::isnan(sx) || std::isnan(sy) || ix < 0 || ix >= width || iy < 0 || iy >= height) {
        outside = true;
        return 0.0f;
      }
    } else {
      // Tested first, then rounded. The rounding can reach Width or Height for a
      // point in the last half pixel; the read is held at the last column or line,
      // which is the nearest pixel there.
      if (!InsideForBilinear(sx, sy)) {
        outside = true;
        return 0.0f;
      }
      ix = qorimg::TruncateToInt(sx + 0.5);
      iy = qorimg::TruncateToInt(sy + 0.5);
      if (ix > width - 1) ix = width - 1;
      if (iy > height - 1) iy = height - 1;
    }
    if (color && plane == -1)
      return static_cast<float>(brightness([&](int p) { return sampleNearest(ix, iy, p); }));
    return static_cast<float>(sampleNearest(ix, iy, plane));
  }
  if (!InsideForBilinear(sx, sy)) {
    outside = true;
    return 0.0f;
  }
  if (color && plane == -1) return static_cast<float>(brightness(sampleBilinear));
  return static_cast<float>(sampleBilinear(plane));
}

float CLmrImage::GetPixelGrayRaw(int x, int y, double dx, double dy, double cs, double sn, double mag, int plane,
                                 double outside, int nearest, int *isOutside, double *srcX, double *srcY) const {
  const SourcePoint s = Transform(x, y, dx, dy, cs, sn, mag, StdCtr.fx, StdCtr.fy);
  Report(s, isOutside, srcX, srcY);
  bool out;
  const float v = ReadTransformed(s.x, s.y, plane, nearest, true, out);
  if (!out) return v;
  if (isOutside) *isOutside = 1;
  return static_cast<float>(outside);
}

float CLmrImage::GetPixelGray256f(int x, int y, double dx, double dy, double cs, double sn, double mag,
                                  int plane, double outside, int nearest, int *isOutside, double *srcX,
                                  double *srcY) const {
  const SourcePoint s = Transform(x, y, dx, dy, cs, sn, mag, StdCtr.fx, StdCtr.fy);
  Report(s, isOutside, srcX, srcY);
  bool out;
  const float v = ReadTransformed(s.x, s.y, plane, nearest, false, out);
  if (!out) return v;
  if (isOutside) *isOutside = 1;
  return static_cast<float>(outside);
}

float CLmrImage::GetPixelGray256f(int x, int y, int dx, int dy, double cs, double sn, double mag, int plane,
                                  double outside, int nearest, int *isOutside, double *srcX,
                                  double *srcY) const {
  return GetPixelGray256f(x, y, static_cast<double>(dx), static_cast<double>(dy), cs, sn, mag, plane, outside,
                          nearest, isOutside, srcX, srcY);
}

// Three planes at the source point, raw or on the 0..255 scale (plane 0 three
// times on a mono image), or `outside` in all three.
void CLmrImage::GetPixelRgbTransformed(int x, int y, double dx, double dy, double cs, double sn, int useStdCtr,
                                       double mag, bool raw, double *r, double *g, double *b, double outside,
                                       int *isOutside, double *srcX, double *srcY) const {
  const double cx = useStdCtr ? StdCtr.fx : GetWidth() * 0.5;
  const double cy = useStdCtr ? StdCtr.fy : GetHeight() * 0.5;
  const SourcePoint s = Transform(x, y, dx, dy, cs, sn, mag, cx, cy);
  Report(s, isOutside, srcX, srcY);
  if (!InsideForBilinear(s.x, s.y)) {
    *r = *g = *b = outside;
    if (isOutside) *isOutside = 1;
    return;
  }
  auto read = [&](int p) {
    const double v = Bilinear(s.x, s.y, p);
    return raw ? v : (v - LevelMin[p]) / LevelRange[p] * 255.0;
  };
  if (IsColor()) {
    *r = read(0);
    *g = read(1);
    *b = read(2);
  } else {
    *r = *g = *b = read(0);
  }
}

void CLmrImage::GetPixelRgbRaw(int x, int y, double dx, double dy, double cs, double sn, int useStdCtr,
                               double mag, double *r, double *g, double *b, double outside, int *isOutside,
                               double *srcX, double *srcY) const {
  GetPixelRgbTransformed(x, y, dx, dy, cs, sn, useStdCtr, mag, true, r, g, b, outside, isOutside, srcX, srcY);
}

void CLmrImage::GetPixelRgbRaw(int x, int y, int dx, int dy, double cs, double sn, int useStdCtr, double mag,
                               double *r, double *g, double *b, double outside, int *isOutside, double *srcX,
                               double *srcY) const {
  GetPixelRgbTransformed(x, y, dx, dy, cs, sn, useStdCtr, mag, true, r, g, b, outside, isOutside, srcX, srcY);
}

void CLmrImage::GetPixelRgb256f(int x, int y, double dx, double dy, double cs, double sn, int useStdCtr,
                                double mag, double *r, double *g, double *b, double outside, int *isOutside,
                                double *srcX, double *srcY) const {
  GetPixelRgbTransformed(x, y, dx, dy, cs, sn, useStdCtr, mag, false, r, g, b, outside, isOutside, srcX, srcY);
}

void CLmrImage::GetPixelRgb256f(int x, int y, int dx, int dy, double cs, double sn, int useStdCtr, double mag,
                                double *r, double *g, double *b, double outside, int *isOutside, double *srcX,
                                double *srcY) const {
  GetPixelRgbTransformed(x, y, dx, dy, cs, sn, useStdCtr, mag, false, r, g, b, outside, isOutside, srcX, srcY);
}

float CLmrImage::GetPixelL(int x, int y, double dx, double dy, double cs, double sn, double mag,
                           double outside) const {
  const SourcePoint s = Transform(x, y, dx, dy, cs, sn, mag, StdCtr.fx, StdCtr.fy);
  if (!InsideForBilinear(s.x, s.y)) return static_cast<float>(outside);
  return static_cast<float>(Bilinear(s.x, s.y, 0));
}

void CLmrImage::GetPixelAb(int x, int y, double dx, double dy, double cs, double sn, double mag, double *a,
                           double *b, double outside) const {
  const SourcePoint s = Transform(x, y, dx, dy, cs, sn, mag, StdCtr.fx, StdCtr.fy);
  if (!InsideForBilinear(s.x, s.y)) {
    *a = *b = outside;
    return;
  }
  *a = Bilinear(s.x, s.y, 0);
  *b = Bilinear(s.x, s.y, 1);
}
