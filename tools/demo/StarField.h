// A synthetic frame for the demo: sky background with a gentle gradient, Gaussian
// stars of random brightness and width, and Gaussian noise, written line by line
// into any image.
#pragma once
#include <cstdint>
#include "core/LmrImage.h"

namespace demo {

struct StarFieldParams {
  int stars = 400;
  double sky = 1200.0;         // background level
  double gradient = 0.02;      // added per column
  double noiseSigma = 25.0;
  double peakMin = 500.0, peakMax = 30000.0;
  double sigmaMin = 0.8, sigmaMax = 2.5;
  std::uint32_t seed = 20261122;
};

void PaintStarField(CLmrImage &image, const StarFieldParams &field);

}  // namespace demo
