// Whole-image edits that change values: cutting to the levels, bringing all
// planes to one zero-based scale, and the threshold family.
#include <new>
#include "core/LmrImage.h"
#include "core/LineLoops.h"
#include "core/OperatorFrame.h"
#include "core/ImageEditPipelines.h"
#include "core/OperatorRunner.h"
#include "kernels/FrameEdits.h"

void CLmrImage::CutOutOfLevel() {
  for (int p = 0; p < GetPlanes(); ++p) {
    const float lo = static_cast<float>(GetLevelMin(p));
    const float hi = static_cast<float>(GetLevelMax(p));
    const int width = GetWidth();
    qorimg::ParallelLines(0, GetHeight(), [&](int y) {
      float *line = GetImageAdr(0, y, p);
      for (int x = 0; x < width; ++x) {
        if (line[x] < lo) line[x] = lo;
        else if (line[x] > hi) line[x] = hi;
      }
    });
  }
}

// Every plane to the range of plane 0, starting at zero:
// v -> max(0, (v - lo) * r0 / r), evaluated in this order in float. An image
// without planes has nothing to cut; one without pixels takes the line loops,
// which only set the levels.
void CLmrImage::CutOutOfZeroLevel() {
  if (GetPlanes() < 1) return;
  const float r0 = static_cast<float>(GetLevelMax(0)) - static_cast<float>(GetLevelMin(0));
  if (qorimg::IsWholePlane(*this) && HasArea()) {
    std::unique_ptr<CLmrImage> target = CloneWithoutImage();
    if (!target) return;
    for (int p = 0; p < GetPlanes(); ++p) {
      const float lo = static_cast<float>(GetLevelMin(p)), hi = static_cast<float>(GetLevelMax(p));
      const float r = hi - lo;
      target->CImage::SetLevel(p, 0.0, r * r0 / r);
      qorimg::CutOutOfZeroLevelPlane(*this, p, lo, r, r0, *target);
    }
    CImage::Swap(*target);
    return;
  }
  for (int p = 0; p < GetPlanes(); ++p) {
    const float lo = static_cast<float>(GetLevelMin(p)), hi = static_cast<float>(GetLevelMax(p));
    const float r = hi - lo;
    CImage::SetLevel(p, 0.0, r * r0 / r);
    const int width = GetWidth();
    qorimg::ParallelLines(0, GetHeight(), [&](int y) {
      float *line = GetImageAdr(0, y, p);
      for (int x = 0; x < width; ++x) {
        const float v = (line[x] - lo) * r0 / r;
        line[x] = v > 0.0f ? v : 0.0f;
      }
    });
  }
}

namespace {
bool Holds(CLmrImage::ThresholdTest test, float v, float threshold) {
  switch (test) {
    case CLmrImage::ThresholdEq: return v == threshold;
    case CLmrImage::ThresholdNeq: return v != threshold;
    case CLmrImage::ThresholdGt: return v > threshold;
    case CLmrImage::ThresholdLt: return v < threshold;
    case CLmrImage::ThresholdLeq: return v <= threshold;
  }
  return false;
}

int ThresholdPipeline(CLmrImage::ThresholdTest test, const CLmrImage &image, int plane, float threshold, float value,
                      qorimg::PlaneOutput &output) {
  auto input = qorimg::InputPlane(image, plane);
  switch (test) {
    case CLmrImage::ThresholdEq: return threshold_eq_float(input, threshold, value, output);
    case CLmrImage::ThresholdNeq: return threshold_neq_float(input, threshold, value, output);
    case CLmrImage::ThresholdGt: return threshold_gt_float(input, threshold, value, output);
    case CLmrImage::ThresholdLt: return threshold_lt_float(input, threshold, value, output);
    case CLmrImage::ThresholdLeq: return threshold_leq_float(input, threshold, value, output);
  }
  return 0;
}
}  // namespace

// Replaces the samples that pass the test by `value`; plane -1 does each plane in
// turn. On contiguous planes the pipeline writes a temporary plane that is then
// pasted over the plane it read. The line loop always works on plane 0,
// whatever `plane` says: on block-stored images a threshold on plane 1 or 2
// changes plane 0.
void CLmrImage::Threshold(ThresholdTest test, int plane, float threshold, float value) {
  if (plane >= 0) CheckPlane(plane);
  const qorimg::PlaneRange planes = plane < 0 ? qorimg::PlaneRange{0, GetPlanes()} : qorimg::PlaneRange{plane, 1};
  const qorimg::LineRect whole = qorimg::ClipRect(*this, nullptr);
  const int width = GetWidth();
  qorimg::RouteTable routes;
  routes.line = [&](int, int y) {
    float *line = GetImageAdr(0, y, 0);
    for (int x = 0; x < width; ++x)
      if (Holds(test, line[x], threshold)) line[x] = value;
  };
  routes.pipeline = [&](int p, qorimg::PlaneOutput &output) {
    return ThresholdPipeline(test, *this, p, threshold, value, output);
  };
  routes.pipelineThroughTemporary = true;
  qorimg::RunOperator({*this, 0, 0, 0, whole, planes}, {{this, planes.first + planes.count}}, routes);
}

void CLmrImage::ThresholdEqual(int plane, float threshold, float value) {
  Threshold(ThresholdEq, plane, threshold, value);
}
void CLmrImage::ThresholdNotEqual(int plane, float threshold, float value) {
  Threshold(ThresholdNeq, plane, threshold, value);
}
void CLmrImage::ThresholdGreaterThan(int plane, float threshold, float value) {
  Threshold(ThresholdGt, plane, threshold, value);
}
void CLmrImage::ThresholdLessThan(int plane, float threshold, float value) {
  Threshold(ThresholdLt, plane, threshold, value);
}
void CLmrImage::ThresholdLessThanEqual(int plane, float threshold, float value) {
  Threshold(ThresholdLeq, plane, threshold, value);
}
