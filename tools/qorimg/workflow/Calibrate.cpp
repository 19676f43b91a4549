#include "Calibrate.h"

#include <cmath>
#include <memory>

#include "WorkflowImages.h"
#include "calibrate/CalibrationFrames.h"
#include "core/LineLoops.h"

namespace qorimg::workflow {

void Calibrate(CLmrImage& light, double lightExposure, const CalibrationOptions& options) {
  const int w = light.GetWidth(), h = light.GetHeight(), planes = light.GetPlanes();
  detail::CheckCovers(options.bias, w, h, planes, "the bias");
  detail::CheckCovers(options.dark, w, h, planes, "the dark");
  detail::CheckCovers(options.flat, w, h, planes, "the flat");
  const double k = options.darkScale == DarkScale::Exposure && lightExposure > 0 && options.darkExposure > 0
                       ? lightExposure / options.darkExposure
                       : 1.0;
  // Lines run in parallel only when every image is a whole-plane store: block
  // stores page their lines and their addresses do not hold across threads.
  bool wholePlane = light.GetAllocationPolicy() != 0;
  for (const CLmrImage* frame : {options.bias, options.dark, options.flat})
    if (frame && frame->GetAllocationPolicy() == 0) wholePlane = false;
  for (int p = 0; p < planes; ++p) {
    auto calibrateLine = [&](int y) {
      // Locked rows: a block store may otherwise page one out to fetch another.
      using calibrate::LockedRow;
      LockedRow target(light, 0, y, p, CImage::Write);
      auto row = [&](const CLmrImage* frame) {
        return frame ? std::make_unique<LockedRow>(*frame, 0, y, detail::FramePlane(*frame, p), CImage::ReadOnly)
                     : nullptr;
      };
      const auto biasRow = row(options.bias), darkRow = row(options.dark), flatRow = row(options.flat);
      float* line = target.get();
      const float* bias = biasRow ? biasRow->get() : nullptr;
      const float* dark = darkRow ? darkRow->get() : nullptr;
      const float* flat = flatRow ? flatRow->get() : nullptr;
      for (int x = 0; x < w; ++x) {
        double v = line[x];
        if (bias) v -= bias[x];
        if (dark) v -= k * dark[x];
        if (flat && flat[x] > 0 && std::isfinite(flat[x])) v /= flat[x];
        line[x] = static_cast<float>(v + options.pedestal);
      }
    };
    if (wholePlane)
      qorimg::ParallelLines(0, h, calibrateLine);
    else
      qorimg::ForEachLine(0, h, calibrateLine);
  }
}

}  // namespace qorimg::workflow
