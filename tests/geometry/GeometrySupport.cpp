#include "GeometrySupport.h"

#include <opencv2/imgcodecs.hpp>
#include "support/Fixtures.h"

namespace qorimg::test {

std::unique_ptr<CLmrImage> HubbleGreen(const std::shared_ptr<CVmManager> &manager, int width, int height) {
  const cv::Mat bgr = cv::imread("/usr/lib/python3/dist-packages/skimage/data/hubble_deep_field.jpg");
  if (bgr.empty() || bgr.cols < width || bgr.rows < height) return nullptr;
  return MakeImage(manager, width, height, 1,
                   [&](int x, int y, int) { return static_cast<float>(bgr.at<cv::Vec3b>(y, x)[1]); });
}

}  // namespace qorimg::test
