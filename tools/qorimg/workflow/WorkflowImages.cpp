#include "WorkflowImages.h"

#include <stdexcept>

namespace qorimg::workflow::detail {

std::unique_ptr<CLmrImage> NewImage(const std::shared_ptr<CVmManager>& manager, int width, int height, int planes) {
  return std::make_unique<CLmrImage>(manager, CImage::Float32, width, height, planes, 1.0, 0.0, 1,
                                     std::shared_ptr<lumora::Progress>());
}

void CheckCovers(const CLmrImage* frame, int width, int height, int planes, const std::string& what) {
  if (!frame) return;
  if (frame->GetWidth() < width || frame->GetHeight() < height || (frame->GetPlanes() > 1 && frame->GetPlanes() < planes))
    throw std::invalid_argument(what + " is " + std::to_string(frame->GetWidth()) + "x" +
                                std::to_string(frame->GetHeight()) + "x" + std::to_string(frame->GetPlanes()) +
                                ", the frames " + std::to_string(width) + "x" + std::to_string(height) + "x" +
                                std::to_string(planes));
}

void Step(const Control& control, int item, int count, double fraction) {
  if (control.cancelled && control.cancelled()) throw Cancelled();
  if (control.progress) control.progress(item, count, fraction);
}

}  // namespace qorimg::workflow::detail
