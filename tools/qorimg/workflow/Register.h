// Where a frame lies on the reference, as registration measures it and the
// stacker moves it back.
#pragma once
#include <string>

namespace qorimg::workflow {

// A frame's placement: frame(p) = reference(R(-rotation) * (p - c - (dx, dy)) + c), i.e. the frame is the
// reference rotated by `rotationDeg` (counter-clockwise on screen, rows top-down) about the image centre
// c = ((w - 1) / 2, (h - 1) / 2) and then shifted by (dx, dy) pixels.
struct Placement {
  double dx = 0, dy = 0, rotationDeg = 0, peak = 0;
  bool ok = true;
  std::string reason;
};

}  // namespace qorimg::workflow
