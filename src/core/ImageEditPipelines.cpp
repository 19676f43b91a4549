// Kernel-pipeline routes of the whole-image edits.
#include "core/ImageEditPipelines.h"

#include <algorithm>
#include <cstring>
#include "core/PlaneBinding.h"
#include "kernels/FrameEdits.h"
#include "kernels/Runtime.h"

namespace qorimg {

void CropPlane(const CLmrImage &src, int plane, int left, int top, CLmrImage &target) {
  auto output = OutputPlane(target, plane);
  kernels::CheckPipeline(crop_float(InputPlane(src, plane), left, top, output));
}

void PastePlane(const CLmrImage &src, int plane, int left, int right, int top, int bottom, CLmrImage &target) {
  auto output = OutputPlane(target, plane);
  kernels::CheckPipeline(paste_float(InputPlane(src, plane), left, right, top, bottom, left, top, output));
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
  kernels::CheckPipeline(paste_rect_float(input, 0, width, std::clamp(lines, 0, height - 1), height, 0, lines, output));
}

void CutOutOfZeroLevelPlane(const CLmrImage &src, int plane, float lo, float range, float rangeOfPlane0,
                            CLmrImage &target) {
  auto output = OutputPlane(target, plane);
  kernels::CheckPipeline(cut_out_of_zero_level_float(InputPlane(src, plane), lo, range, rangeOfPlane0, output));
}

}  // namespace qorimg
