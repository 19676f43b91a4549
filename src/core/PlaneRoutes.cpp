// Whole-plane routes of the image edits and of CImgCalculation.
#include "core/PlaneRoutes.h"

#include <algorithm>
#include <cstring>
#include "core/PlaneBinding.h"
#include "kernels/Arithmetic.h"
#include "kernels/FrameEdits.h"

namespace qorimg {

void CropPlane(const CLmrImage &src, int plane, int left, int top, CLmrImage &target) {
  auto output = OutputPlane(target, plane);
  crop_float(InputPlane(src, plane), left, top, output);
}

void PastePlane(const CLmrImage &src, int plane, int left, int right, int top, int bottom, CLmrImage &target) {
  auto output = OutputPlane(target, plane);
  paste_float(InputPlane(src, plane), left, right, top, bottom, left, top, output);
}

// The plane goes to a temporary and comes back shifted by `lines`, every line
// read through a clamp, so the lines past the end repeat the last line. The
// clamp's lower bound is kept inside the plane: a negative count (or one beyond
// the height) then repeats the first (or the last) line instead of reading
// outside the plane.
void LiftUpPlane(CLmrImage &image, int plane, int lines) {
  const int width = image.GetWidth(), height = image.GetHeight();
  kernels::TemporaryPlane temporary = kernels::AllocateTemporaryPlane(width, height);
  std::memcpy(temporary.get(), image.GetImageAdr(0, 0, plane, CImage::ReadOnly),
              sizeof(float) * static_cast<std::size_t>(width) * height);
  auto input = kernels::PlaneBuffer<float>(temporary.get(), width, height);
  auto output = OutputPlane(image, plane);
  paste_rect_float(input, 0, width, std::clamp(lines, 0, height - 1), height, 0, lines, output);
}

void CutOutOfZeroLevelPlane(const CLmrImage &src, int plane, float lo, float range, float rangeOfPlane0,
                            CLmrImage &target) {
  auto output = OutputPlane(target, plane);
  cut_out_of_zero_level_float(InputPlane(src, plane), lo, range, rangeOfPlane0, output);
}

// The pipeline writes a temporary plane, which is then copied over the plane.
void ThresholdPlane(CLmrImage &image, int plane, CLmrImage::ThresholdTest test, float threshold, float value) {
  const int width = image.GetWidth(), height = image.GetHeight();
  kernels::TemporaryPlane temporary = kernels::AllocateTemporaryPlane(width, height);
  auto output = kernels::PlaneBuffer<float>(temporary.get(), width, height);
  auto input = InputPlane(image, plane);
  switch (test) {
    case CLmrImage::ThresholdEq: threshold_eq_float(input, threshold, value, output); break;
    case CLmrImage::ThresholdNeq: threshold_neq_float(input, threshold, value, output); break;
    case CLmrImage::ThresholdGt: threshold_gt_float(input, threshold, value, output); break;
    case CLmrImage::ThresholdLt: threshold_lt_float(input, threshold, value, output); break;
    case CLmrImage::ThresholdLeq: threshold_leq_float(input, threshold, value, output); break;
  }
  std::memcpy(image.GetImageAdr(0, 0, plane), temporary.get(), sizeof(float) * static_cast<std::size_t>(width) * height);
}

void ScalarPlane(const CLmrImage &src, int plane, ScalarPipeline pipeline, float value, const LineRect &rect,
                 CLmrImage &target) {
  auto input = InputPlane(src, plane);
  RunIntoRect(target, plane, rect, [&](kernels::KernelBuffer<float, 2> &output) {
    switch (pipeline) {
      case ScalarPipeline::Add: add_scalar_float(input, value, output); break;
      case ScalarPipeline::Sub: sub_scalar_float(input, value, output); break;
      case ScalarPipeline::SubClip: sub0_scalar_float(input, value, output); break;
      case ScalarPipeline::Mul: mul_scalar_float(input, value, output); break;
    }
  });
}

}  // namespace qorimg
