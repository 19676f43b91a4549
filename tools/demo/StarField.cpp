#include "StarField.h"

#include <algorithm>
#include <cmath>
#include <random>
#include <vector>

namespace demo {
namespace {
struct Star {
  double x, y, peak, sigma;
};
}  // namespace

void PaintStarField(CLmrImage &image, const StarFieldParams &field) {
  const int width = image.GetWidth(), height = image.GetHeight();
  std::mt19937 rng(field.seed);
  std::uniform_real_distribution<double> ux(0.0, width), uy(0.0, height), unit(0.0, 1.0);
  std::vector<Star> stars(static_cast<std::size_t>(field.stars));
  for (Star &s : stars) {
    // Many faint stars, few bright ones.
    const double t = unit(rng);
    s = {ux(rng), uy(rng), field.peakMin + (field.peakMax - field.peakMin) * t * t * t,
         field.sigmaMin + (field.sigmaMax - field.sigmaMin) * unit(rng)};
  }
  std::sort(stars.begin(), stars.end(), [](const Star &a, const Star &b) { return a.y < b.y; });
  std::normal_distribution<float> noise(0.0f, static_cast<float>(field.noiseSigma));
  std::vector<float> sky(static_cast<std::size_t>(width)), light(static_cast<std::size_t>(width));

  std::size_t first = 0;
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; ++x) sky[x] = static_cast<float>(field.sky + field.gradient * x) + noise(rng);
    std::fill(light.begin(), light.end(), 0.0f);
    while (first < stars.size() && stars[first].y + 5 * field.sigmaMax < y) ++first;
    for (std::size_t i = first; i < stars.size() && stars[i].y - 5 * field.sigmaMax <= y; ++i) {
      const Star &s = stars[i];
      const double dy = y - s.y, reach = 5 * s.sigma;
      const int x0 = std::max(0, static_cast<int>(s.x - reach)), x1 = std::min(width - 1, static_cast<int>(s.x + reach));
      for (int x = x0; x <= x1; ++x) {
        const double dx = x - s.x;
        light[x] += static_cast<float>(s.peak * std::exp(-(dx * dx + dy * dy) / (2 * s.sigma * s.sigma)));
      }
    }
    for (int p = 0; p < image.GetPlanes(); ++p) {
      float *dst = image.GetImageAdr(0, y, p);
      const float tint = 1.0f - 0.1f * p;  // starlight a little warmer than white
      for (int x = 0; x < width; ++x) dst[x] = sky[x] + light[x] * tint;
    }
  }
  for (int p = 0; p < image.GetPlanes(); ++p) image.CImage::SetLevel(p, field.sky - 3 * field.noiseSigma, field.sky + 2000.0);
}

}  // namespace demo
