// Kernel-pipeline routes of CLmrImage's whole-image edits on whole-plane
// images, one call per plane. Each raises a pipeline's error status; routes
// that need a temporary plane throw std::bad_alloc, before writing, when it
// cannot be had, and the caller goes on with its line loop.
#pragma once
#include "core/LmrImage.h"

namespace qorimg {

// target(x, y) := src(x + left, y + top) over all of target's plane.
void CropPlane(const CLmrImage &src, int plane, int left, int top, CLmrImage &target);
// target's rectangle := src's same rectangle.
void PastePlane(const CLmrImage &src, int plane, int left, int right, int top, int bottom, CLmrImage &target);
// Shifts the plane up by `lines`; lines past the end repeat the last line.
void LiftUpPlane(CLmrImage &image, int plane, int lines);
void CutOutOfZeroLevelPlane(const CLmrImage &src, int plane, float lo, float range, float rangeOfPlane0,
                            CLmrImage &target);

}  // namespace qorimg
