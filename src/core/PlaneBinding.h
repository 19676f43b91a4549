// Binding image planes to kernel pipelines: a whole-plane image's plane as a 2-D
// buffer (x stride 1, y stride Width), and the run of a pipeline into a
// rectangle of a target plane.
#pragma once
#include "core/LmrImage.h"
#include "core/OperatorFrame.h"
#include "kernels/Buffers.h"
#include "kernels/FrameEdits.h"

namespace qorimg {

inline kernels::KernelBuffer<const float, 2> InputPlane(const CLmrImage &image, int plane) {
  return kernels::PlaneBuffer<const float>(image.GetImageAdr(0, 0, plane, CImage::ReadOnly), image.GetWidth(),
                                           image.GetHeight());
}

inline kernels::KernelBuffer<float, 2> OutputPlane(CLmrImage &image, int plane) {
  return kernels::PlaneBuffer<float>(image.GetImageAdr(0, 0, plane), image.GetWidth(), image.GetHeight());
}

// Runs run(output) so that the pipeline's output lands on `rect` of the target
// plane. For the whole image the output is the plane itself. Otherwise it is a
// temporary of the rectangle's size whose mins are the rectangle's corner (the
// pipeline reads its inputs at image coordinates), pasted in place afterwards.
// Throws std::bad_alloc when the temporary cannot be had.
template <class Run>
void RunIntoRect(CLmrImage &target, int plane, const LineRect &rect, Run &&run) {
  if (rect.IsWhole(target)) {
    auto output = OutputPlane(target, plane);
    run(output);
    return;
  }
  kernels::TemporaryPlane temporary = kernels::AllocateTemporaryPlane(rect.Width(), rect.Height());
  auto output = kernels::RectangleBuffer<float>(temporary.get(), rect.left, rect.top, rect.right, rect.bottom);
  run(output);
  output.set_min(0, 0);
  auto plane_ = OutputPlane(target, plane);
  paste_float(output, rect.left, rect.right, rect.top, rect.bottom, 0, 0, plane_);
}

}  // namespace qorimg
