// Whole-plane routes of the statistics: the planes bound to the statistics
// pipelines, scalar results through 0-dimensional buffers.
#include "core/StatisticsRoutes.h"

#include "core/PlaneBinding.h"
#include "kernels/Runtime.h"
#include "kernels/Statistics.h"

namespace qorimg {
namespace {
kernels::KernelBuffer<int32_t, 1> Bins(int *histogram, int nBins) {
  return kernels::TableBuffer<int32_t>(reinterpret_cast<int32_t *>(histogram), nBins);
}
}  // namespace

void HistogramPlane(const CLmrImage &image, int plane, const LineRect &rect, double fMin, double fMax, int nBins,
                    int *histogram) {
  auto bins = Bins(histogram, nBins);
  if (plane != -1) {
    kernels::CheckPipeline(histogram_antialias_float(InputPlane(image, plane), rect.left, rect.top, rect.Width(),
                                                     rect.Height(), fMin, fMax, nBins, bins));
    return;
  }
  float lo[3], scale[3];
  for (int p = 0; p < 3; ++p) {
    lo[p] = static_cast<float>(image.GetLevelMin(p));
    scale[p] = static_cast<float>(255.0 / image.GetLevelRange(p));
  }
  kernels::CheckPipeline(histogram_antialias_brightness_float(
      InputPlane(image, 0), InputPlane(image, 1), InputPlane(image, 2), lo[0], scale[0], lo[1], scale[1], lo[2],
      scale[2], rect.left, rect.top, rect.Width(), rect.Height(), fMin, fMax, nBins, bins));
}

void HistogramRgbPlanes(const CLmrImage &image, const LineRect &rect, double fMin, double fMax, int nBins,
                        int *red, int *green, int *blue) {
  auto r = Bins(red, nBins), g = Bins(green, nBins), b = Bins(blue, nBins);
  kernels::CheckPipeline(histogram_antialias_rgb_float(InputPlane(image, 0), InputPlane(image, 1), InputPlane(image, 2),
                                                       rect.left, rect.top, rect.Width(), rect.Height(), fMin, fMax,
                                                       nBins, r, g, b));
}

float AveragePlane(const CLmrImage &image, int plane) {
  double average = 0.0;
  auto result = kernels::ScalarResultBuffer(&average);
  kernels::CheckPipeline(average_float(InputPlane(image, plane), 0, image.GetWidth(), 0, image.GetHeight(), result));
  return static_cast<float>(average);
}

void CentroidPlanes(const CLmrImage &image, const LineRect &rect, double &sumX, double &sumY, double &weight) {
  double average = 0.0;
  auto averageOut = kernels::ScalarResultBuffer(&average);
  auto sx = kernels::ScalarResultBuffer(&sumX), sy = kernels::ScalarResultBuffer(&sumY),
       s = kernels::ScalarResultBuffer(&weight);
  if (!image.IsColor()) {
    const double lo = image.GetLevelMin(0), range = image.GetLevelRange(0);
    auto input = InputPlane(image, 0);
    kernels::CheckPipeline(
        average256_floor_zero_float(input, lo, range, rect.left, rect.right, rect.top, rect.bottom, averageOut));
    kernels::CheckPipeline(
        centroid256_float(input, lo, range, average, rect.left, rect.right, rect.top, rect.bottom, sx, sy, s));
    return;
  }
  auto r = InputPlane(image, 0), g = InputPlane(image, 1), b = InputPlane(image, 2);
  const double rl = image.GetLevelMin(0), rr = image.GetLevelRange(0), gl = image.GetLevelMin(1),
               gr = image.GetLevelRange(1), bl = image.GetLevelMin(2), br = image.GetLevelRange(2);
  kernels::CheckPipeline(average_gray256_floor_zero_float(r, g, b, rl, rr, gl, gr, bl, br, rect.left, rect.right,
                                                          rect.top, rect.bottom, averageOut));
  kernels::CheckPipeline(centroid_gray256_float(r, g, b, rl, rr, gl, gr, bl, br, average, rect.left, rect.right,
                                                rect.top, rect.bottom, sx, sy, s));
}

}  // namespace qorimg
