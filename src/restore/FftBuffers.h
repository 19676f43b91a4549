// Complex transform arrays bound to the Fourier-family pipelines
// (kernels/Fourier.h): dimension 0 the part (stride 1), 1 x (stride 2), 2 y.
#pragma once
#include "kernels/Buffers.h"
#include "restore/Fft.h"

namespace qorimg::fft {

// The top-left `width` x `height` elements of an array whose rows hold
// `rowElements` values.
inline kernels::KernelBuffer<float, 3> ComplexBuffer(dcomplex *array, int rowElements, int width, int height) {
  const halide_dimension_t shape[3] = {{0, 2, 1}, {0, width, 2}, {0, height, 2 * rowElements}};
  return kernels::KernelBuffer<float, 3>(reinterpret_cast<float *>(array), 3, shape);
}

}  // namespace qorimg::fft
