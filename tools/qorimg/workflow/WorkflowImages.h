// Helpers the workflow steps share (not installed).
#pragma once
#include <memory>
#include <string>
#include "FrameSource.h"

namespace qorimg::workflow::detail {

// A float image of the given geometry on `manager`.
std::unique_ptr<CLmrImage> NewImage(const std::shared_ptr<CVmManager>& manager, int width, int height, int planes);
// The plane of a calibration frame serving plane p of an image: a mono frame
// serves every plane.
inline int FramePlane(const CLmrImage& frame, int p) { return frame.GetPlanes() > 1 ? p : 0; }
// Raises std::invalid_argument naming both sizes when `frame` is smaller than
// width x height or lacks planes for `planes`.
void CheckCovers(const CLmrImage* frame, int width, int height, int planes, const std::string& what);
// Reports progress and raises Cancelled between items.
void Step(const Control& control, int item, int count, double fraction);

}  // namespace qorimg::workflow::detail
