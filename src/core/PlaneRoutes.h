// Whole-plane (kernel pipeline) routes of the image edits. Each binds the planes
// of images whose store is whole-plane and calls its pipeline once per plane.
// Routes that need a temporary plane throw std::bad_alloc when it cannot be had,
// and the caller goes on with its line loop.
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
void ThresholdPlane(CLmrImage &image, int plane, CLmrImage::ThresholdTest test, float threshold, float value);

}  // namespace qorimg

namespace qorimg {

enum class ScalarPipeline { Add, Sub, SubClip, Mul };
struct LineRect;
// One plane of target := src op value over `rect`: straight into the target plane
// for the whole image, else through a temporary of the rectangle pasted in place.
void ScalarPlane(const CLmrImage &src, int plane, ScalarPipeline pipeline, float value, const LineRect &rect,
                 CLmrImage &target);

}  // namespace qorimg
