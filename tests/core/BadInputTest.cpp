// Degenerate images, non-finite samples and a store that cannot allocate: each
// gives a defined result or the store's exception, never a crash.
#include <cmath>
#include "core/ImgCalculation.h"
#include "support/Fixtures.h"

namespace qorimg::test {
namespace {

class BadInputTest : public RouteTest {};
QORIMG_ALL_ROUTES(BadInputTest);

TEST_P(BadInputTest, OnePixelAndOneLineImagesWorkEverywhere) {
  for (auto [w, h] : {std::pair{1, 1}, {1, 7}, {9, 1}}) {
    auto src = MakeImage(w, h, 3);
    auto target = MakeImage(w, h, 3);
    CImgCalculation::Calculate(*target, 2.0, 2, 0, src.get(), nullptr, 0);
    EXPECT_EQ(target->GetPixelGrayRaw(w - 1, h - 1, 2), Pattern(w - 1, h - 1, 2) * 2.0f);
    target->LiftUp(1);
    target->CutOutOfZeroLevel();
    target->ThresholdLessThan(-1, 0.0f, 0.0f);
    target->CalcMinMax();  // (Width - 1) * (Height - 1) is 0 on the line loop: an infinite or NaN average
    target->CalcMinMax(5);
    std::vector<int> hist(10);
    target->GetHistogram(hist.data(), 10, 0.0, 100.0, -1, 1, 1, 0, nullptr, 0, 0);
    int nx, ny;
    target->GetCentroid(nx, ny, nullptr);
    EXPECT_TRUE(nx >= 0 && nx < w && ny >= 0 && ny < h) << nx << "," << ny;
    EXPECT_TRUE(std::isfinite(target->GetPixelGrayRaw(0.3, 0.7, 0)));
    auto crop = target->Crop(CRect(0, 0, w, h));
    ASSERT_TRUE(crop);
    EXPECT_TRUE(SamePixels(*crop, *target));
  }
}

TEST_P(BadInputTest, NonFiniteSamplesPassThroughArithmetic) {
  auto src = MakeImage(7, 2, 1, [](int x, int, int) { return std::array<float, 7>{NAN, INFINITY, -INFINITY, 0, -0.0f, 1e38f, -1e-45f}[x]; });
  auto target = MakeImage(7, 2, 1);
  CImgCalculation::Calculate(*target, 0.0, 2, 0, src.get(), nullptr, 0);  // times zero
  const auto out = ReadPlane(*target, 0);
  EXPECT_TRUE(std::isnan(out[0]) && std::isnan(out[1]) && std::isnan(out[2]));
  EXPECT_EQ(out[5], 0.0f);
  CImgCalculation::Calculate(*target, 10.0, 2, 0, src.get(), nullptr, 0);
  EXPECT_EQ(ReadPlane(*target, 0)[5], INFINITY);  // overflow to infinity, not undefined
}

TEST(BadInputStore, AStoreThatCannotAllocateThrowsItsExceptionAndLeaksNothing) {
  auto small = CreateWholePlaneManager(60000);  // room for three 64 x 64 planes, not four
  EXPECT_THROW(CLmrImage(small, CImage::Float32, 200, 200, 1, 1.0, 0.0, 1, nullptr), lumora::CVmMemoryAllocationError);
  auto fits = MakeImage(small, 64, 64, 1);  // 16 KiB
  EXPECT_THROW(fits->Crop(CRect(0, 0, 64, 200)), lumora::CVmMemoryAllocationError);
  auto another = MakeImage(small, 64, 64, 1);
  auto third = MakeImage(small, 64, 64, 1);
  EXPECT_THROW(fits->CloneWithoutImage(), lumora::CVmMemoryAllocationError);
  third.reset();  // the freed plane can be had again
  EXPECT_TRUE(fits->CloneWithoutImage());
  CLmrImage copy;
  another.reset();
  EXPECT_EQ(copy.CopyImage(*fits, nullptr, nullptr), 1);
  EXPECT_TRUE(SamePixels(copy, *fits));
}

}  // namespace
}  // namespace qorimg::test
