// Plane and row access on the plain images (CImage) that development keeps
// for its mosaic copy.
#pragma once
#include "kernels/Buffers.h"
#include "sibling/Image.h"

namespace qorimg::develop {

inline float *FloatRow(const CImage &image, int y, int plane) {
  return reinterpret_cast<float *>(image.GetImageAdr(0, y, plane, false, false, nullptr));
}

// A whole-plane image's plane as a pipeline buffer.
template <typename T>
kernels::KernelBuffer<T, 2> PlaneOf(const CImage &image, int plane) {
  return kernels::PlaneBuffer<T>(FloatRow(image, 0, plane), image.GetWidth(), image.GetHeight());
}

}  // namespace qorimg::develop
