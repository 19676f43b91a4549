// PNG previews: codes of mono and RGB frames at 8 and 16 bits, read back by OpenCV.
#include <cmath>
#include <limits>
#include <opencv2/imgcodecs.hpp>
#include "IoTestSupport.h"
#include "io/Png.h"
#include "support/Fixtures.h"

namespace qorimg::test {
namespace {

TEST(Png, CodesAreTheLevelsMappedLinearlyAndClipped) {
  ScratchDir dir;
  const auto manager = MakeManager(StoreKind::Block);
  const double black = 100, white = 612;
  // Below black, above white, NaN and a ramp between.
  const PixelFunction fill = [](int x, int y, int p) {
    if (x == 0) return y == 0 ? std::numeric_limits<float>::quiet_NaN() : y == 1 ? -50.0f : 5000.0f;
    return 100.0f + x * 37.3f + y * 11.0f + p * 50.0f;
  };
  for (int planes : {1, 3})
    for (int bits : {8, 16}) {
      auto image = MakeImage(manager, 17, 9, planes, fill);
      const std::string path = dir / (std::to_string(planes * 100 + bits) + ".png");
      io::WritePng(path, *image, bits, black, white, false);
      const cv::Mat png = cv::imread(path, cv::IMREAD_UNCHANGED);
      ASSERT_FALSE(png.empty()) << path;
      ASSERT_EQ(png.channels(), planes);
      ASSERT_EQ(png.depth(), bits == 8 ? CV_8U : CV_16U);
      const double top = bits == 8 ? 255 : 65535;
      for (int p = 0; p < planes; ++p)
        for (int y = 0; y < 9; ++y)
          for (int x = 0; x < 17; ++x) {
            const double v = fill(x, y, p), code = std::round((v - black) / (white - black) * top);
            const double expected = std::isnan(v) ? 0 : std::clamp(code, 0.0, top);
            const int c = planes == 3 ? 2 - p : 0;  // OpenCV gives BGR
            const double got = bits == 8 ? png.ptr<uchar>(y)[x * planes + c] : png.ptr<ushort>(y)[x * planes + c];
            ASSERT_EQ(got, expected) << path << " at " << x << "," << y << "," << p;
          }
    }
  auto two = MakeImage(manager, 4, 4, 2);
  EXPECT_THROW(io::WritePng(dir / "two.png", *two, 8, 0, 1, false), std::invalid_argument);
  EXPECT_EQ(dir.Files().size(), 4u);
}

}  // namespace
}  // namespace qorimg::test
