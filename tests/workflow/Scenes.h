// Synthetic frames for the workflow tests: a sky with a gentle gradient and
// Gaussian stars, placed on a frame by the placement's convention, with noise.
#pragma once
#include <cmath>
#include <memory>
#include <random>
#include <vector>
#include "Register.h"
#include "support/Fixtures.h"

namespace qorimg::test {

struct Star {
  double x, y, peak;
};

// Stars of sigma 2 px on a sky of 1000 with a gradient, at reference (x, y).
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

// The reference position that frame pixel (x, y) shows: c + R(-rotation)(p - c - d),
// R counter-clockwise on screen with rows top-down.
inline void ReferencePoint(const workflow::Placement& p, int w, int h, double x, double y, double& rx, double& ry) {
  const double cx = (w - 1) / 2.0, cy = (h - 1) / 2.0, r = -p.rotationDeg * M_PI / 180.0;
  const double a = x - cx - p.dx, b = y - cy - p.dy;
  rx = cx + std::cos(r) * a + std::sin(r) * b;
  ry = cy - std::sin(r) * a + std::cos(r) * b;
}

// A frame of the scene under `placement`, with Gaussian noise of `noise`.
inline std::unique_ptr<CLmrImage> Frame(const std::shared_ptr<CVmManager>& manager, int w, int h,
                                        const std::vector<Star>& stars, const workflow::Placement& placement,
                                        double noise = 0, unsigned seed = 1) {
  std::mt19937 rng(seed);
  std::normal_distribution<double> n(0.0, noise > 0 ? noise : 1.0);
  auto image = MakeImage(manager, w, h, 1, [&](int x, int y, int) {
    double rx = 0, ry = 0;
    ReferencePoint(placement, w, h, x, y, rx, ry);
    return float(Sky(rx, ry, stars) + (noise > 0 ? n(rng) : 0.0));
  });
  return image;
}

}  // namespace qorimg::test
