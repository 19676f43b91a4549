// Whole-plane routes of the display bitmaps: the three planes bound to the
// display pipelines, the bitmap bound as a strided byte buffer. A bottom-up
// bitmap is bound with a negative line stride, and a rectangle by setting the
// buffer's mins to its corner, so the pipelines write the bitmap in place
// without a temporary.
#include "display/DibPlaneRoutes.h"

#include "core/PlaneBinding.h"
#include "display/DisplayMapping.h"
#include "display/MemoryDIB.h"
#include "display/VmDIB.h"
#include "kernels/Runtime.h"
#include "kernels/Display.h"

namespace qorimg {
namespace {

// Bytes of a bitmap: channel (stride 1), x (stride `channels`) and y, starting
// at pixel (left, top) whose address is `corner`.
kernels::KernelBuffer<uint8_t, 3> BitmapBuffer(unsigned char *corner, int channels, const LineRect &rect,
                                               long long lineStride) {
  const halide_dimension_t shape[3] = {{0, channels, 1},
                                       {rect.left, rect.Width(), channels},
                                       {rect.top, rect.Height(), static_cast<int32_t>(lineStride)}};
  return kernels::KernelBuffer<uint8_t, 3>(corner, 3, shape);
}

void Todib32(const CLmrImage &image, kernels::KernelBuffer<uint8_t, 3> &dib) {
  double levels[9];
  for (int p = 0; p < 3; ++p) {
    levels[3 * p] = image.GetLevelMin(p);
    levels[3 * p + 1] = image.GetLevelMax(p);
    levels[3 * p + 2] = image.GetLevelRange(p);
  }
  kernels::CheckPipeline(todib32_float(InputPlane(image, 0), InputPlane(image, 1), InputPlane(image, 2),
                                       kernels::TableBuffer<double>(levels, 9), dib));
}

}  // namespace

void GetDib24ColorPlanes(const CLmrImage &image, unsigned char *bits, long long stride) {
  const LineRect whole{0, 0, image.GetWidth(), image.GetHeight()};
  // Image line 0 is the last line in memory.
  auto dib = BitmapBuffer(bits + (image.GetHeight() - 1) * stride, 3, whole, -stride);
  Todib32(image, dib);
}

void ToDib32ColorPlanes(const CLmrImage &image, CBaseDIB &dib, const LineRect &rect) {
  if (auto *vm = dynamic_cast<CVmDIB *>(&dib)) {
    // The store keeps 3 bytes a pixel, lines top-down and contiguous.
    auto bytes = BitmapBuffer(vm->GetImageAdr24(rect.left, rect.top), 3, rect,
                              static_cast<long long>(vm->GetWidth()) * 3);
    Todib32(image, bytes);
    return;
  }
  auto bytes = BitmapBuffer(dib.GetImageAdr32(rect.left, rect.top), 4, rect, -static_cast<long long>(dib.GetAlign()));
  // The loops' own float levels, so that both routes map every sample alike.
  const FloatLevels r(image, 0), g(image, 1), b(image, 2);
  kernels::CheckPipeline(image_buffer_32bit_float(InputPlane(image, 0), InputPlane(image, 1), InputPlane(image, 2),
                                                  r.lo, r.hi, r.scale, g.lo, g.hi, g.scale, b.lo, b.hi, b.scale,
                                                  bytes));
}

}  // namespace qorimg
