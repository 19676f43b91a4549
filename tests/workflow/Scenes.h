// Synthetic frames for the workflow tests: a sky with a gentle gradient and
// Gaussian stars (sigma 2 px), placed on a frame by the placement's
// convention, with noise; and a set of frames with their sources.
#pragma once
#include <cmath>
#include <functional>
#include <random>
#include "FrameSource.h"
#include "Register.h"
#include "support/Fixtures.h"

namespace qorimg::test {

struct Star {
  double x, y, peak;
};

inline double Sky(double x, double y, const std::vector<Star>& stars) {
  double v = 1000.0 + 0.1 * x + 0.05 * y;
  for (const Star& s : stars) v += s.peak * std::exp(-((x - s.x) * (x - s.x) + (y - s.y) * (y - s.y)) / 8.0);
  return v;
}

inline std::vector<Star> Stars(int w, int h, int count, unsigned seed) {
  std::mt19937 rng(seed);
  std::uniform_real_distribution<double> x(4, w - 4), y(4, h - 4), peak(500, 20000);
  std::vector<Star> stars;
  for (int i = 0; i < count; ++i) stars.push_back({x(rng), y(rng), peak(rng)});
  return stars;
}

inline workflow::Placement At(double dx, double dy, double degrees) {
  workflow::Placement p;
  p.dx = dx, p.dy = dy, p.rotationDeg = degrees;
  return p;
}

// Frame pixel p shows the reference at c + R(-rotation)(p - c - d), R
// counter-clockwise on screen (rows top-down), c the frame's centre.
inline std::unique_ptr<CLmrImage> Frame(const std::shared_ptr<CVmManager>& manager, int w, int h,
                                        const std::vector<Star>& stars, const workflow::Placement& p,
                                        double noise = 0, unsigned seed = 1) {
  std::mt19937 rng(seed);
  std::normal_distribution<double> n(0.0, 1.0);
  const double cx = (w - 1) / 2.0, cy = (h - 1) / 2.0, r = -p.rotationDeg * M_PI / 180.0;
  return MakeImage(manager, w, h, 1, [&](int x, int y, int) {
    const double a = x - cx - p.dx, b = y - cy - p.dy;
    const double rx = cx + std::cos(r) * a + std::sin(r) * b, ry = cy - std::sin(r) * a + std::cos(r) * b;
    return float(Sky(rx, ry, stars) + noise * n(rng));
  });
}

struct FrameSet {
  std::vector<std::unique_ptr<CLmrImage>> images;
  std::vector<std::unique_ptr<workflow::ImageSource>> sources;
  std::vector<workflow::Placement> placements;
  std::vector<workflow::FrameSource*> Pointers() const {
    std::vector<workflow::FrameSource*> out;
    for (const auto& s : sources) out.push_back(s.get());
    return out;
  }
  void Add(std::unique_ptr<CLmrImage> image, const workflow::Placement& p = {}, double exposure = 0) {
    sources.push_back(std::make_unique<workflow::ImageSource>(*image, exposure, "frame" + std::to_string(images.size())));
    images.push_back(std::move(image));
    placements.push_back(p);
  }
};

// The largest difference from `want` over pixels at least `border` from the edges.
inline double MaxDifference(const CLmrImage& a, const std::function<double(int, int)>& want, int border = 0) {
  double worst = 0;
  for (int y = border; y < a.GetHeight() - border; ++y)
    for (int x = border; x < a.GetWidth() - border; ++x)
      worst = std::max(worst, std::abs(a.GetPixelGrayRaw(x, y, 0) - want(x, y)));
  return worst;
}
inline std::function<double(int, int)> PixelsOf(const CLmrImage& image) {
  return [&image](int x, int y) { return image.GetPixelGrayRaw(x, y, 0); };
}

}  // namespace qorimg::test
