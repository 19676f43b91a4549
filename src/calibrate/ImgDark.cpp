// CImgDark: per-pixel interpolation between two dark frames, as line loops.
#include "calibrate/ImgDark.h"

#include <algorithm>
#include <cmath>
#include "core/OperatorRunner.h"

namespace {

// Runs out = formula(a, b) over every pixel of the planes both frames have,
// under progress 6183. Rows are independent and run in parallel.
template <class Formula>
void Interpolate(CLmrImage &target, CLmrImage *pDark, int bProgress, Formula formula) {
  const int planes = pDark ? std::min(target.GetPlanes(), pDark->GetPlanes()) : target.GetPlanes();
  const int width = target.GetWidth();
  const qorimg::LineRect whole = qorimg::ClipRect(target, nullptr);
  qorimg::RouteTable routes;
  routes.parallelLines = true;
  routes.line = [&](int p, int y) {
    float *a = target.GetImageAdr(0, y, p);
    const float *b = pDark->GetImageAdr(0, y, p, CImage::ReadOnly);
    for (int x = 0; x < width; ++x) a[x] = static_cast<float>(formula(static_cast<double>(a[x]), b[x]));
  };
  qorimg::RunOperator({target, bProgress, 6183, target.GetHeight() * target.GetPlanes(), whole, {0, planes}},
                      {{&target, planes}, {pDark, planes}}, routes);
}

}  // namespace

void CImgDark::DoInterpolateByProportion(CLmrImage *pDark, double fX1, double fX2, double fX, double fY1,
                                         double fY2, double fY, int bProgress) {
  const double p = (fX - fX1) / (fX2 - fX1), q = (fY - fY1) / (fY2 - fY1);
  Interpolate(*this, pDark, bProgress, [=](double a, double b) { return (b - a) * p + a + (b - a) * q; });
}

// The exponent is Y0 minus the quotient fY / fYScale, not the quotient of the
// difference; callers rely on it as it stands.
void CImgDark::DoInterpolateByPower(CLmrImage *pDark, double fX1, double fX2, double fX, double fY1, double fY2,
                                    double fY, double fYScale, int bProgress) {
  const double p = (fX - fX1) / (fX2 - fX1);
  const double y0 = std::abs(fY2 - fY) > std::abs(fY - fY1) ? fY1 : fY2;
  const double r = std::pow(2.0, y0 - fY / fYScale);
  Interpolate(*this, pDark, bProgress, [=](double a, double b) { return (b - a) * p + a + a * r; });
}

void CImgDark::DoInterpolateByScore(CLmrImage *pDark, double fX, double fX1, double fX2, int bProgress) {
  const double p = (fX - fX1) / (fX2 - fX1);
  Interpolate(*this, pDark, bProgress, [=](double a, double b) {
    const double v = (b - a) * p + a;
    if (v > b) return b;
    if (a > v) return a;
    return v;
  });
}
