// Whole-image edits on every route, with the route differences that stand.
#include <climits>
#include <cmath>
#include "kernels/Buffers.h"
#include "support/Fixtures.h"
#include "core/TestHooks.h"

namespace qorimg::test {
namespace {

class ImageEditsTest : public RouteTest {
protected:
  bool PlaneRoute() const { return Case().Expected(false) == Route::Plane; }
};
QORIMG_ALL_ROUTES(ImageEditsTest);

TEST_P(ImageEditsTest, NormalizeRectClampsButDoesNotReorder) {
  auto img = MakeImage(10, 8, 1);
  int l, t, r, b;
  img->NormalizeRect(nullptr, l, t, r, b);
  EXPECT_EQ(CRect(l, t, r, b), CRect(0, 0, 10, 8));
  CRect left(-20, 2, -5, 4);
  img->NormalizeRect(&left, l, t, r, b);
  EXPECT_EQ(CRect(l, t, r, b), CRect(0, 2, 0, 4));
  CRect inverted(9, 7, 2, -3);
  img->NormalizeRect(&inverted, l, t, r, b);
  EXPECT_EQ(CRect(l, t, r, b), CRect(9, 7, 2, 0));
}

TEST_P(ImageEditsTest, CropCopiesTheRectangleWithLevelsAndZerosWhatLiesOutside) {
  auto img = MakeImage(13, 9, 3);
  img->CImage::SetLevel(1, -5.0, 77.0);
  auto crop = img->Crop(CRect(2, 3, 9, 8));
  ASSERT_TRUE(crop);
  EXPECT_EQ(crop->GetWidth(), 7);
  EXPECT_EQ(crop->GetHeight(), 5);
  EXPECT_EQ(crop->GetLevelMax(1), 77.0);
  EXPECT_TRUE(SamplesNear(*crop, [](int x, int y, int p) { return Pattern(x + 2, y + 3, p); }, 0));
  auto beyond = img->Crop(CRect(10, -2, 15, 2));
  ASSERT_TRUE(beyond);
  EXPECT_EQ(beyond->GetPixelGrayRaw(0, 2, 0), Pattern(10, 0, 0));
  EXPECT_EQ(beyond->GetPixelGrayRaw(0, 0, 0), 0.0f);
  EXPECT_EQ(beyond->GetPixelGrayRaw(4, 3, 2), 0.0f);
  EXPECT_FALSE(img->Crop(CRect(4, 4, 4, 9)));
  EXPECT_FALSE(img->Crop(CRect(INT_MIN, 0, INT_MAX, 1)));  // wider than any image can be
}

TEST_P(ImageEditsTest, CropFallsBackToLinesWhenTheTemporaryFails) {
  auto img = MakeImage(13, 9, 1);
  kernels::testing::FailTemporaryAllocationsFrom(0);
  auto crop = img->Crop(CRect(1, 1, 12, 8));
  kernels::testing::FailTemporaryAllocationsFrom(-1);
  ASSERT_TRUE(crop);
  EXPECT_EQ(crop->GetPixelGrayRaw(10, 6, 0), Pattern(11, 7, 0));
}

TEST_P(ImageEditsTest, PasteLandsOnTheSameRectangleAndLeavesTheRest) {
  auto target = MakeImage(11, 7, 3, [](int, int, int) { return -1.0f; });
  auto src = MakeImage(9, 6, 3);
  CRect rect(3, 2, 20, 5);  // clipped to the target, then to the smaller source
  target->Paste(src.get(), &rect);
  EXPECT_TRUE(SamplesNear(*target, [](int x, int y, int p) {
    return x >= 3 && x < 9 && y >= 2 && y < 5 ? Pattern(x, y, p) : -1.0f;
  }, 0));
}

TEST_P(ImageEditsTest, PixelBltClipsAndConvertsDifferentlyByRoute) {
  auto src = MakeImage(8, 8, 1, [](int x, int y, int) { return 100.0f + x + 10.0f * y; });
  src->CImage::SetLevel(0, 100.0, 200.0);
  auto dst = MakeImage(6, 5, 1, [](int, int, int) { return 0.0f; });
  dst->CImage::SetLevel(0, 0.0, 510.0);
  dst->PixelBlt(4, -3, 10, 10, src.get(), 1, 2, 0);  // dstY clamps to 0; width 2, height 5
  EXPECT_EQ(dst->GetPixelGrayRaw(4, 0, 0), 100.0f + 1 + 20.0f);
  EXPECT_EQ(dst->GetPixelGrayRaw(5, 4, 0), 100.0f + 2 + 60.0f);
  EXPECT_EQ(dst->GetPixelGrayRaw(3, 0, 0), 0.0f);

  dst->PixelBlt(0, 0, 1, 1, src.get(), 5, 5, 1);
  const float scaled = (155.0f - 100.0f) / 100.0f * 255.0f;  // on the source's 0..255 scale
  // On the source's 0..255 scale on contiguous planes; back to raw on ours otherwise.
  EXPECT_FLOAT_EQ(dst->GetPixelGrayRaw(0, 0, 0), PlaneRoute() ? scaled : scaled / 255.0f * 510.0f);

  auto color = MakeImage(6, 5, 3);
  color->PixelBlt(0, 0, 6, 5, src.get(), 0, 0, 0);  // plane counts differ: nothing
  EXPECT_EQ(color->GetPixelGrayRaw(0, 0, 0), Pattern(0, 0, 0));
}

TEST_P(ImageEditsTest, LiftUpShiftsLinesAndTheRoutesDifferAtTheBottom) {
  auto img = MakeImage(5, 8, 2);
  img->LiftUp(3);
  for (int p = 0; p < 2; ++p) {
    for (int y = 0; y < 5; ++y) EXPECT_EQ(img->GetPixelGrayRaw(2, y, p), Pattern(2, y + 3, p));
    for (int y = 5; y < 8; ++y)
      EXPECT_EQ(img->GetPixelGrayRaw(2, y, p), PlaneRoute() ? Pattern(2, 7, p) : Pattern(2, y, p));
  }
  auto same = MakeImage(5, 8, 1);
  same->LiftUp(0);
  EXPECT_EQ(same->GetPixelGrayRaw(1, 1, 0), Pattern(1, 1, 0));
  same->LiftUp(100);  // more lines than the image: every line's target is outside
  if (!PlaneRoute()) {
    EXPECT_EQ(same->GetPixelGrayRaw(1, 1, 0), Pattern(1, 1, 0));
  }
}

TEST_P(ImageEditsTest, CutOutOfLevelClampsToTheLevels) {
  auto img = MakeImage(7, 3, 1);
  img->CImage::SetLevel(0, 0.0, 300.0);
  img->CutOutOfLevel();
  for (int y = 0; y < 3; ++y)
    for (int x = 0; x < 7; ++x)
      EXPECT_EQ(img->GetPixelGrayRaw(x, y, 0), std::min(std::max(Pattern(x, y, 0), 0.0f), 300.0f));
}

TEST_P(ImageEditsTest, CutOutOfZeroLevelBringsPlanesToPlaneZeroRange) {
  auto img = MakeImage(6, 4, 3);
  img->CImage::SetLevel(0, -40.0, 160.0);
  img->CImage::SetLevel(1, 10.0, 60.0);
  img->CImage::SetLevel(2, 0.0, 1000.0);
  img->CutOutOfZeroLevel();
  for (int p = 0; p < 3; ++p) {
    EXPECT_EQ(img->GetLevelMin(p), 0.0);
    EXPECT_NEAR(img->GetLevelMax(p), 200.0, 1e-4);
  }
  const float lo1 = 10.0f, r1 = 50.0f, r0 = 200.0f;
  for (int x = 0; x < 6; ++x) {
    const float v = (Pattern(x, 1, 1) - lo1) * r0 / r1;
    EXPECT_EQ(img->GetPixelGrayRaw(x, 1, 1), v > 0.0f ? v : 0.0f);
  }
}

TEST_P(ImageEditsTest, ThresholdLineLoopAlwaysWorksOnPlaneZero) {
  auto img = MakeImage(5, 3, 3, [](int x, int, int) { return static_cast<float>(x); });
  img->ThresholdEqual(1, 2.0f, 9.0f);
  if (PlaneRoute()) {
    EXPECT_EQ(img->GetPixelGrayRaw(2, 1, 1), 9.0f);
    EXPECT_EQ(img->GetPixelGrayRaw(2, 1, 0), 2.0f);
  } else {
    EXPECT_EQ(img->GetPixelGrayRaw(2, 1, 1), 2.0f);
    EXPECT_EQ(img->GetPixelGrayRaw(2, 1, 0), 9.0f);
  }
  // A failed temporary drops to the line loop: plane 0 again.
  auto other = MakeImage(5, 3, 3, [](int x, int, int) { return static_cast<float>(x); });
  kernels::testing::FailTemporaryAllocationsFrom(0);
  other->ThresholdGreaterThan(2, 3.0f, -1.0f);
  kernels::testing::FailTemporaryAllocationsFrom(-1);
  EXPECT_EQ(other->GetPixelGrayRaw(4, 0, 0), -1.0f);
  EXPECT_EQ(other->GetPixelGrayRaw(4, 0, 2), 4.0f);
}

TEST_P(ImageEditsTest, ThresholdTestsOnAllPlanes) {
  auto img = MakeImage(5, 1, 1, [](int x, int, int) { return x == 4 ? NAN : static_cast<float>(x); });
  auto run = [&](auto member) {
    auto copy = std::make_unique<CLmrImage>(*img);
    ((*copy).*member)(-1, 2.0f, 7.0f);
    return ReadPlane(*copy, 0);
  };
  auto eq = run(&CLmrImage::ThresholdEqual);
  auto neq = run(&CLmrImage::ThresholdNotEqual);
  auto gt = run(&CLmrImage::ThresholdGreaterThan);
  auto lt = run(&CLmrImage::ThresholdLessThan);
  auto leq = run(&CLmrImage::ThresholdLessThanEqual);
  EXPECT_EQ(std::vector<float>(eq.begin(), eq.begin() + 4), (std::vector<float>{0, 1, 7, 3}));
  EXPECT_EQ(neq, (std::vector<float>{7, 7, 2, 7, 7}));  // NaN != 2 holds
  EXPECT_EQ(gt[3], 7.0f);
  EXPECT_EQ(gt[2], 2.0f);
  EXPECT_EQ(lt[1], 7.0f);
  EXPECT_EQ(lt[2], 2.0f);
  EXPECT_EQ(leq[2], 7.0f);
  EXPECT_TRUE(std::isnan(gt[4]) && std::isnan(lt[4]) && std::isnan(leq[4]) && std::isnan(eq[4]));
}

}  // namespace
}  // namespace qorimg::test
