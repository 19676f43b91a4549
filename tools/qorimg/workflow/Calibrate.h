// Calibration of a light frame by its masters.
#pragma once
#include "FrameSource.h"

namespace qorimg::workflow {

enum class DarkScale { None, Exposure };
struct CalibrationOptions {
  const CLmrImage* bias = nullptr;
  const CLmrImage* dark = nullptr;  // a master dark with the bias removed
  const CLmrImage* flat = nullptr;  // a master flat of mean 1
  double darkExposure = 0;
  DarkScale darkScale = DarkScale::None;
  double pedestal = 0;
  bool cfa = false;  // the light is a mosaic: the arithmetic is the same pixel by pixel
};

// In place: (light - bias - k dark) / flat + pedestal, k = lightExposure /
// darkExposure under DarkScale::Exposure when both are known, else 1. Where
// the flat is not above 0 (or not finite) the pixel is left undivided. Mono
// masters serve every plane. No cut at 0: the noise keeps its sign. Raises
// std::invalid_argument when a master is smaller than the light.
void Calibrate(CLmrImage& light, double lightExposure, const CalibrationOptions& options);

}  // namespace qorimg::workflow
