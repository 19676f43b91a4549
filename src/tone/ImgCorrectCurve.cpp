// CImgCorrectCurve: the superellipse between two limits, a row loop.
#include "tone/ImgCorrectCurve.h"

#include <algorithm>
#include <cmath>
#include <vector>
#include "core/OperatorRunner.h"

namespace {

// The checks both overloads share: 1 when the call may go on, with the
// rectangle intersected with the target.
bool Accepted(CLmrImage &target, double fPower, double fLow, double fHigh, CLmrImage *pSrc, CRect *rect,
              int planes, qorimg::LineRect &r) {
  if (fPower <= 0 || fLow > fHigh || !pSrc || pSrc->IsEmpty()) return false;
  r = qorimg::ClipRect(target, rect);
  if (rect && r.IsEmpty()) return false;
  return qorimg::BoundImagesFit({{&target, planes}, {pSrc, planes}}, r);
}

// Applies the curve between lo[c] and hi[c] to the rectangle of each plane.
void Apply(CLmrImage &target, CLmrImage &src, double power, const std::vector<double> &lo,
           const std::vector<double> &hi, const qorimg::LineRect &r, qorimg::PlaneRange planes, int progressTotal,
           int bProgress) {
  qorimg::RouteTable routes;
  routes.parallelLines = true;
  routes.line = [&](int p, int y) {
    const double l = lo[static_cast<std::size_t>(p)], h = hi[static_cast<std::size_t>(p)];
    const float *s = src.GetImageAdr(r.left, y, p, CImage::ReadOnly);
    float *d = target.GetImageAdr(r.left, y, p);
    for (int x = 0; x < r.Width(); ++x) {
      const double v = s[x];
      if (l < v && v < h) {
        const double u = (v - l) / (h - l);
        d[x] = static_cast<float>(std::pow(1.0 - std::pow(1.0 - u, power), 1.0 / power) * (h - l) + l);
      } else {
        d[x] = s[x];
      }
    }
  };
  qorimg::RunOperator({target, bProgress, 6203, progressTotal, r, planes},
                      {{&target, planes.first + planes.count}, {&src, planes.first + planes.count}}, routes);
}

}  // namespace

CImgCorrectCurve::CImgCorrectCurve() = default;
CImgCorrectCurve::CImgCorrectCurve(const CImgCorrectCurve &source) = default;
CImgCorrectCurve::~CImgCorrectCurve() = default;

int CImgCorrectCurve::Do(double fPower, double fLow, double fHigh, int nPlane, CLmrImage *pSrc, CRect *rect,
                         int bProgress) {
  qorimg::LineRect r;
  if (!Accepted(*this, fPower, fLow, fHigh, pSrc, rect, 1, r)) return 0;
  if (std::min(GetPlanes(), pSrc->GetPlanes()) >= nPlane) return 0;
  // Accepted, but the plane number lies beyond both images: there is nothing
  // to change.
  (void)bProgress;
  return 1;
}

int CImgCorrectCurve::Do(double fPower, double fLow, double fHigh, CLmrImage *pSrc, CRect *rect, int bProgress) {
  qorimg::LineRect r;
  if (!Accepted(*this, fPower, fLow, fHigh, pSrc, rect, 1, r)) return 0;
  const int planes = std::min(GetPlanes(), pSrc->GetPlanes());
  std::vector<double> lo(static_cast<std::size_t>(planes)), hi(static_cast<std::size_t>(planes));
  for (int c = 0; c < planes; ++c) {
    lo[static_cast<std::size_t>(c)] = pSrc->GetLevelRange(c) * (fLow / 255.0) + pSrc->GetLevelMin(c);
    hi[static_cast<std::size_t>(c)] = fHigh / 255.0 * pSrc->GetLevelRange(c) + pSrc->GetLevelMin(c);
  }
  Apply(*this, *pSrc, fPower, lo, hi, r, {0, planes}, GetHeight() * planes, bProgress);
  return 1;
}
