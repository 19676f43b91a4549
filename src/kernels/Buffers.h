// Binding memory to kernel pipelines: buffer descriptors over planes, over the
// temporaries of a partial rectangle, over interleaved display bytes and over
// scalar results, and the allocator for temporary planes. The descriptors do
// not own memory; the memory must outlive the pipeline call.
#pragma once
#include <HalideBuffer.h>

#include <cstdint>
#include <memory>

namespace qorimg::kernels {

template <typename T, int Dims>
using KernelBuffer = Halide::Runtime::Buffer<T, Dims>;

// A plane of width x height samples stored row after row: dimension 0 is x
// (min 0, stride 1), dimension 1 is y (min 0, stride width). T may be const
// for inputs.
template <typename T>
KernelBuffer<T, 2> PlaneBuffer(T *plane, int width, int height) {
  const halide_dimension_t shape[2] = {{0, width, 1}, {0, height, width}};
  return KernelBuffer<T, 2>(plane, 2, shape);
}

// A temporary that holds the rectangle [left, right) x [top, bottom) of a
// plane, row after row: the mins are the rectangle's corner, so a pipeline
// writing into it reads its inputs at image coordinates. Set the mins back to
// 0 (buffer.set_min(0, 0)) to paste it on the plane with paste_float.
template <typename T>
KernelBuffer<T, 2> RectangleBuffer(T *data, int left, int top, int right, int bottom) {
  const int width = right - left;
  const halide_dimension_t shape[2] = {{left, width, 1}, {top, bottom - top, width}};
  return KernelBuffer<T, 2>(data, 2, shape);
}

// Interleaved bytes such as a 32-bit display buffer: dimension 0 is the
// channel (min 0, extent channels, stride 1), dimension 1 is x (stride
// channels), dimension 2 is y (stride rowBytes, which may include padding).
template <typename T>
KernelBuffer<T, 3> InterleavedBuffer(T *data, int channels, int width, int height, int rowBytes) {
  static_assert(sizeof(T) == 1, "interleaved buffers hold bytes");
  const halide_dimension_t shape[3] = {{0, channels, 1}, {0, width, channels}, {0, height, rowBytes}};
  return KernelBuffer<T, 3>(data, 3, shape);
}

// A table of count values (tone curves, filter coefficients).
template <typename T>
KernelBuffer<T, 1> TableBuffer(T *table, int count) {
  const halide_dimension_t shape[1] = {{0, count, 1}};
  return KernelBuffer<T, 1>(table, 1, shape);
}

// A 0-dimensional buffer through which a pipeline returns one value.
inline KernelBuffer<double, 0> ScalarResultBuffer(double *result) {
  return KernelBuffer<double, 0>::make_scalar(result);
}

// Temporary planes: 64-byte aligned, uninitialised, freed by the unique_ptr.
struct TemporaryPlaneDeleter {
  void operator()(float *plane) const noexcept;
};
using TemporaryPlane = std::unique_ptr<float[], TemporaryPlaneDeleter>;

// width * height floats. Throws std::bad_alloc when the memory cannot be had
// (or a size is negative, or a test asked for failures: core/TestHooks.h); callers catch it and
// take the block path.
TemporaryPlane AllocateTemporaryPlane(int width, int height);

}  // namespace qorimg::kernels
