// A display stretch of a stacked frame: the black and white levels that show
// the sky as a dark grey (not black) with the stars white, found by the
// engine's automatic levels or given, and optionally digital development,
// which divides each pixel by its blurred surroundings so that faint sky and
// bright star cores fit the display range together.
#pragma once
#include <memory>
#include "FrameSource.h"

namespace qorimg::workflow {

// Black below the sky, found from the sky peak of the histogram and the sky's
// width below it (Histogram), from the median and the sky's deviation about it
// (Median), or as the level 1 % of the pixels lie below (Normal); white then
// puts the sky at 36 of 255. Fixed: the given black and white.
enum class LevelsMode { Histogram, Median, Normal, Fixed };
struct StretchOptions {
  LevelsMode levels = LevelsMode::Median;
  double black = 0, white = 0;
  double developSigma = 0;  // > 0: digital development with a Gaussian blur of this sigma
};
// The image (a copy, with a colour frame's skies brought to the green plane's
// under automatic levels, then developed if asked) with its levels set to
// black..white; black and white are also what a preview maps to 0 and full
// scale.
struct Stretched {
  std::unique_ptr<CLmrImage> image;
  double black = 0, white = 0;
};
Stretched Stretch(const CLmrImage& stacked, const StretchOptions&, const std::shared_ptr<CVmManager>&);

}  // namespace qorimg::workflow
