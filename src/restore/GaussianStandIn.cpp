#include "restore/GaussianStandIn.h"

#include <algorithm>
#include <cmath>
#include <vector>

#include "core/LineLoops.h"

namespace qorimg::fft {

void GaussianBlurRows(const float *src, float *dst, int w, int h, double sigma, int rowFirst, int rowEnd) {
  const int radius = std::max(1, static_cast<int>(std::ceil(3.0 * sigma)));
  std::vector<double> taps(static_cast<std::size_t>(2 * radius + 1));
  double sum = 0.0;
  for (int k = -radius; k <= radius; ++k) sum += taps[k + radius] = std::exp(-0.5 * k * k / (sigma * sigma));
  for (double &t : taps) t /= sum;
  auto clampTo = [](int i, int n) { return i < 0 ? 0 : i >= n ? n - 1 : i; };
  ParallelLines(std::max(rowFirst, 0), std::min(rowEnd, h), [&](int y) {
    std::vector<double> column(static_cast<std::size_t>(w), 0.0);
    for (int k = -radius; k <= radius; ++k) {
      const float *row = src + static_cast<std::size_t>(clampTo(y + k, h)) * w;
      for (int x = 0; x < w; ++x) column[x] += taps[k + radius] * row[x];
    }
    float *out = dst + static_cast<std::size_t>(y) * w;
    for (int x = 0; x < w; ++x) {
      double v = 0.0;
      for (int k = -radius; k <= radius; ++k) v += taps[k + radius] * column[clampTo(x + k, w)];
      out[x] = static_cast<float>(v);
    }
  });
}

}  // namespace qorimg::fft
