// CImgMosaic: a and b read through the transformed pixel readers, and one of
// them (or their mean) kept for each pixel of the rectangle.
#include "geometry/ImgMosaic.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <numbers>
#include "core/OperatorRunner.h"
#include "geometry/GeometryInternal.h"

using namespace qorimg::geometry;

void CImgMosaic::Do(CLmrImage *pA, int nShiftX, int nShiftY, CLmrImage *pB, double fShiftX, double fShiftY,
                    double fAngle, int nOverlap, float *const fBack, float *const fFill, int b256, int bAverage,
                    CRect *rect, int bProgress) {
  if (!std::isfinite(fShiftX) || !std::isfinite(fShiftY) || !std::isfinite(fAngle)) return;
  CheckSource(pA, 1);
  CheckSource(pB, 1);
  MakeLikeSourceIfEmpty(*this, pA, bProgress);
  const bool color = GetDimension() >= 3;
  const int planes = color ? 3 : 1;
  const qorimg::LineRect area = qorimg::ClipRect(*this, rect);
  SourceOf a(pA, *this), b(pB, *this);

  double fill[3] = {0, 0, 0}, back[3] = {0, 0, 0};
  for (int p = 0; p < planes; ++p) {
    if (fFill) fill[p] = fFill[p];
    if (fBack) back[p] = fBack[p];
  }
  const double theta = fAngle * std::numbers::pi / 180.0;
  const double cs = std::cos(theta), sn = std::sin(theta);
  const double bShiftX = nShiftX + fShiftX, bShiftY = nShiftY + fShiftY;
  const double tolerance = b256 ? 1.0 : GetLevelRange(0) * 0.00390625;
  const int mode = nOverlap >= 0 && nOverlap <= 3 ? nOverlap : 0;

  // Three samples of `image` (plane 0 repeated on a mono one) on the scale in
  // use, the fill where the position is outside it; true there.
  auto read = [&](const CLmrImage &image, int x, int y, double dx, double dy, double c, double s, double *v) {
    int outside = 0;
    if (b256)
      image.GetPixelRgb256f(x, y, dx, dy, c, s, 0, 1.0, &v[0], &v[1], &v[2], 0.0, &outside, nullptr, nullptr);
    else
      image.GetPixelRgbRaw(x, y, dx, dy, c, s, 0, 1.0, &v[0], &v[1], &v[2], 0.0, &outside, nullptr, nullptr);
    if (outside) std::copy(fill, fill + 3, v);
    return outside != 0;
  };
  auto bright = [&](const double *v) { return color ? CLmrImage::CalcBright(v[0], v[1], v[2]) : v[0]; };
  // The pixel kept where both images cover the position.
  auto overlap = [&](const double *va, const double *vb) {
    switch (mode) {
      case 1: {
        double difference = 0;
        for (int p = 0; p < planes; ++p) difference += std::fabs(vb[p] - back[p]);
        return difference < tolerance ? va : vb;
      }
      case 2: return bright(va) > bright(vb) ? va : vb;
      case 3: return bright(vb) <= bright(va) ? vb : va;
      default: return vb;
    }
  };

  const int width = std::max(area.Width(), 0);
  LineScratch scratch(planes * width);
  qorimg::RouteTable routes;
  // Colour rows in order, mono rows in parallel. A row is made in scratch and
  // then written, so no target line needs to stay resident while a and b are read.
  routes.parallelLines = !color;
  routes.line = [&](int, int y) {
    float *row = scratch.Line();
    for (int x = area.left; x < area.right; ++x) {
      double va[3], vb[3], mean[3];
      const bool outA = read(*a, x, y, nShiftX, nShiftY, 1.0, 0.0, va);
      const bool outB = read(*b, x, y, bShiftX, bShiftY, cs, sn, vb);
      const double *kept = outB ? va : outA ? vb : overlap(va, vb);
      if (bAverage) {
        for (int p = 0; p < planes; ++p) mean[p] = (va[p] + vb[p]) * 0.5;
        kept = mean;
      }
      for (int p = 0; p < planes; ++p) {
        const double c = b256 ? kept[p] / 255.0 * GetLevelRange(p) + GetLevelMin(p) : kept[p];
        row[p * width + (x - area.left)] = static_cast<float>(c);
      }
    }
    for (int p = 0; p < planes; ++p)
      std::memcpy(GetImageAdr(area.left, y, p), row + p * width, static_cast<std::size_t>(width) * sizeof(float));
  };
  qorimg::RunOperator({*this, bProgress, 6135, std::max(area.Height(), 0), area, {0, 1}}, {{this, planes}}, routes);
}
