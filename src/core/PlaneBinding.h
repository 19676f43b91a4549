// Binding image planes to kernel pipelines: a whole-plane image's plane as a 2-D
// buffer (x stride 1, y stride Width).
#pragma once
#include "core/LmrImage.h"
#include "kernels/Buffers.h"

namespace qorimg {

inline kernels::KernelBuffer<const float, 2> InputPlane(const CLmrImage &image, int plane) {
  return kernels::PlaneBuffer<const float>(image.GetImageAdr(0, 0, plane, CImage::ReadOnly), image.GetWidth(),
                                           image.GetHeight());
}

inline kernels::KernelBuffer<float, 2> OutputPlane(CLmrImage &image, int plane) {
  return kernels::PlaneBuffer<float>(image.GetImageAdr(0, 0, plane), image.GetWidth(), image.GetHeight());
}

}  // namespace qorimg
