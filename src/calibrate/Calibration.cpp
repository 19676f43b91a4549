// Dark and flat calibration, members of CLmrImage: the dark frame's signal is
// subtracted, the flat's pattern divided out. The dark and the flat forms have
// a kernel pipeline on whole-plane images; DarkFlat is a line loop only.
#include <cmath>
#include <optional>
#include <vector>
#include "calibrate/CalibrationFrames.h"
#include "core/LmrImage.h"
#include "core/OperatorRunner.h"
#include "kernels/Calibrate.h"

namespace {

using qorimg::calibrate::FramePlane;
using qorimg::calibrate::FramePlanesRead;
using qorimg::calibrate::LockedRow;

// max(0, v - d) as the pipeline computes it: NaN gives 0.
float DarkClip(float v, float d) {
  const float r = v - d;
  return r > 0.0f ? r : 0.0f;
}

// a * v / f, product first, where the flat value is above 0; else v stays.
float FlatDivide(float v, float f, float a) { return f > 0.0f ? a * v / f : v; }

// The curve of one plane of the flat, for the gamma forms.
struct FlatCurve {
  float max, gm0, average;
};

// True when the flat's pipeline route will run, whose mean is taken otherwise.
bool PipelineRoute(const CLmrImage &image, const CLmrImage &flat) {
  return qorimg::ChooseRoute(false, {&image, &flat}) == qorimg::Route::Plane;
}

}  // namespace

float CLmrImage::FlatGamma(float v, float fMax, float fGm0, double fGamma) {
  const double span = fMax - fGm0;
  const double lifted = v - fGm0;
  return static_cast<float>(std::pow(lifted / span, fGamma) * span + fGm0);
}

void CLmrImage::DarkClbrtn(CLmrImage *pDark, int bProgress) {
  const int planes = GetPlanes(), width = GetWidth();
  const qorimg::LineRect whole = qorimg::ClipRect(*this, nullptr);
  qorimg::RouteTable routes;
  routes.parallelLines = true;
  routes.line = [&](int p, int y) {
    const LockedRow dark(*pDark, 0, y, FramePlane(*pDark, p), CImage::ReadOnly);
    const LockedRow row(*this, 0, y, p, CImage::Write);
    for (int x = 0; x < width; ++x) row[x] = DarkClip(row[x], dark[x]);
  };
  routes.pipeline = [&](int p, qorimg::PlaneOutput &output) {
    return dark_float(qorimg::InputPlane(*pDark, FramePlane(*pDark, p)), output);
  };
  qorimg::RunOperator({*this, bProgress, 6106, GetHeight() * planes, whole, {0, planes}},
                      {{this, planes}, {pDark, FramePlanesRead(pDark, planes)}}, routes);
}

// The block route starts each row at column 0 and takes right - left pixels,
// whatever the rectangle's left edge. The pipeline route on a partial
// rectangle writes a zeroed temporary, so the rectangle becomes 0. Both keep
// these properties of the operation as its callers know it.
void CLmrImage::FlatClbrtn(CLmrImage *pFlat, CRect *rect, int bProgress) {
  const int planes = GetPlanes();
  const qorimg::LineRect r = qorimg::ClipRect(*this, rect);
  qorimg::CheckBoundImages({{this, planes}, {pFlat, FramePlanesRead(pFlat, planes)}}, r);
  const float average = pFlat->GetAvrGrayRaw(0);
  const int count = r.Width();
  qorimg::RouteTable routes;
  routes.parallelLines = true;
  routes.line = [&](int p, int y) {
    const float *flat = pFlat->GetImageAdr(0, y, FramePlane(*pFlat, p), CImage::ReadOnly);
    float *row = GetImageAdr(0, y, p);
    for (int x = 0; x < count; ++x) row[x] = FlatDivide(row[x], flat[x], average);
  };
  routes.pipeline = [&](int p, qorimg::PlaneOutput &output) {
    if (!r.IsWhole(*this)) output.fill(0.0f);
    return flat_float(qorimg::InputPlane(*pFlat, FramePlane(*pFlat, p)), average, output);
  };
  routes.pipelineWithoutProgress = true;
  qorimg::RunOperator({*this, bProgress, 6105, GetHeight() * planes, r, {0, planes}},
                      {{this, planes}, {pFlat, FramePlanesRead(pFlat, planes)}}, routes);
}

// The flat's mean is GetAvrGrayRaw on the block route and the CalcMinMax
// record on the pipeline route; on a block-stored flat the two divide by
// different pixel counts. A constant flat plane ends the work: it and the
// planes after it stay as they are.
void CLmrImage::FlatClbrtn(CLmrImage *pFlat, float fOffset, double fGamma, int bProgress) {
  if (!pFlat || !(fGamma > 0.0)) return;
  const int planes = GetPlanes(), width = GetWidth();
  const qorimg::LineRect whole = qorimg::ClipRect(*this, nullptr);
  qorimg::CheckBoundImages({{this, planes}, {pFlat, FramePlanesRead(pFlat, planes)}}, whole);
  pFlat->CalcMinMax();
  const bool pipeline = PipelineRoute(*this, *pFlat);
  std::vector<FlatCurve> curves;
  for (int c = 0; c < planes; ++c) {
    const int fp = FramePlane(*pFlat, c);
    const float fmin = pFlat->GetMinPixel(fp), fmax = pFlat->GetMaxPixel(fp);
    if (fmin == fmax) break;
    const float gm0 = qorimg::calibrate::FlatGm0(fmin, fmax);
    const float mean = pipeline ? pFlat->GetAvrPixel(fp) : pFlat->GetAvrGrayRaw(fp);
    curves.push_back({fmax, gm0, FlatGamma(mean, fmax, gm0, fGamma)});
  }
  qorimg::RouteTable routes;
  routes.parallelLines = true;
  routes.line = [&](int p, int y) {
    const FlatCurve &k = curves[static_cast<std::size_t>(p)];
    const float pedestal = k.average * fOffset;
    const LockedRow flat(*pFlat, 0, y, FramePlane(*pFlat, p), CImage::ReadOnly);
    float *row = GetImageAdr(0, y, p);
    for (int x = 0; x < width; ++x)
      row[x] = FlatDivide(row[x], FlatGamma(flat[x], k.max, k.gm0, fGamma) + pedestal, k.average);
  };
  routes.pipeline = [&](int p, qorimg::PlaneOutput &output) {
    const FlatCurve &k = curves[static_cast<std::size_t>(p)];
    return flat_with_gamma_float(qorimg::InputPlane(*pFlat, FramePlane(*pFlat, p)), k.max, k.gm0, fGamma, fOffset,
                                 k.average, output);
  };
  routes.pipelineWithoutProgress = true;
  qorimg::RunOperator(
      {*this, bProgress, 6105, GetHeight() * planes, whole, {0, static_cast<int>(curves.size())}},
      {{this, planes}, {pFlat, FramePlanesRead(pFlat, planes)}}, routes);
}

int CLmrImage::DarkFlat(CLmrImage *pSrc, CLmrImage *pDark, CLmrImage *pFlat, float *pFlatMin, float *pFlatMax,
                        float *pFlatAvr, float fOffset, double fGamma, CRect *rect, int bProgress) {
  if (!pSrc || (!pDark && !pFlat)) return 0;
  if (pFlat && !(pFlatMin && pFlatMax && pFlatAvr)) return 0;
  const int planes = GetPlanes();
  const qorimg::LineRect r = qorimg::ClipRect(*this, rect);
  const bool gamma = fGamma > 0.0;
  // Absent frames are stood in for by this image, which always passes.
  const qorimg::BoundImage dark = pDark ? qorimg::BoundImage{pDark, FramePlanesRead(pDark, planes)}
                                        : qorimg::BoundImage{this, planes};
  const qorimg::BoundImage flat = pFlat ? qorimg::BoundImage{pFlat, FramePlanesRead(pFlat, planes)}
                                        : qorimg::BoundImage{this, planes};
  qorimg::CheckBoundImages({{this, planes}, {pSrc, planes}, dark, flat}, r);

  std::vector<FlatCurve> curves;
  bool dropped = false;
  for (int c = 0; pFlat && c < planes; ++c) {
    const int fp = FramePlane(*pFlat, c);
    const float fmin = pFlatMin[fp], fmax = pFlatMax[fp];
    if (fmin == fmax) {
      dropped = true;
      break;
    }
    const float gm0 = qorimg::calibrate::FlatGm0(fmin, fmax);
    const float mean = pFlatAvr[fp];
    curves.push_back({fmax, gm0, gamma ? FlatGamma(mean, fmax, gm0, fGamma) : mean});
  }

  qorimg::RouteTable routes;
  routes.parallelLines = true;
  routes.line = [&](int p, int y) {
    const LockedRow src(*pSrc, r.left, y, p, CImage::ReadOnly);
    const LockedRow out(*this, r.left, y, p, CImage::Write);
    std::optional<LockedRow> darkRow, flatRow;
    if (pDark) darkRow.emplace(*pDark, r.left, y, FramePlane(*pDark, p), CImage::ReadOnly);
    const bool flatten = static_cast<std::size_t>(p) < curves.size();
    if (flatten) flatRow.emplace(*pFlat, r.left, y, FramePlane(*pFlat, p), CImage::ReadOnly);
    const FlatCurve k = flatten ? curves[static_cast<std::size_t>(p)] : FlatCurve{};
    const float pedestal = k.average * fOffset;
    for (int x = 0; x < r.Width(); ++x) {
      float v = src[x];
      if (darkRow) v = DarkClip(v, (*darkRow)[x]);
      if (flatten) {
        float f = (*flatRow)[x];
        if (gamma) f = FlatGamma(f, k.max, k.gm0, fGamma);
        v = FlatDivide(v, f + pedestal, k.average);
      }
      out[x] = v;
    }
  };
  qorimg::RunOperator({*this, bProgress, 6195, r.Height() * planes, r, {0, planes}},
                      {{this, planes}, {pSrc, planes}, dark, flat}, routes);
  return dropped ? -1 : 1;
}
