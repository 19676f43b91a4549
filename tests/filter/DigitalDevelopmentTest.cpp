// Digital development on every route: closed forms on flat and unblurred
// frames, the two blur rims against padded references, and the parameters.
#include <gtest/gtest.h>

#include <cmath>

#include "FilterReference.h"
#include "filter/ImgFilterSpecial.h"
#include "support/Fixtures.h"

namespace qorimg::test {
namespace {

class DevelopmentTest : public RouteTest {
protected:
  // The operator on a 0..255-level image, with a plane filter of sigma on src.
  std::unique_ptr<CImgFilterSpecial> MakeDeveloper(const CLmrImage &src, double sigma) {
    auto image = MakeImage(src.GetWidth(), src.GetHeight(), src.GetPlanes(), [](int, int, int) { return -1.0f; });
    auto dev = std::make_unique<CImgFilterSpecial>();
    dev->Swap(image.get());
    for (int c = 0; c < src.GetPlanes(); ++c) {
      dev->SetLevel(c, 0.0, 255.0);
      kernel_.MakeGaussian(sigma);
      dev->MakeFilterProc(const_cast<CLmrImage *>(&src), &kernel_, c, 1);
    }
    return dev;
  }
  bool PlaneRoute() const { return Case().Expected(false) == Route::Plane; }
  CFilterMatrix kernel_;
};
QORIMG_ALL_ROUTES(DevelopmentTest);

float Pixel(int x, int y, int c) { return 20.0f + 3.0f * x + 7.0f * y + 11.0f * c; }

TEST_P(DevelopmentTest, UnblurredFrameFollowsTheClosedForm) {
  auto src = MakeImage(14, 9, 3, Pixel);
  auto dev = MakeDeveloper(*src, 0.0);
  int blur[3] = {0, 1, 2};
  float lo[3] = {0, 0, 0}, range[3] = {255, 255, 255}, a[3] = {10, 20, 30}, mul[3] = {110, 120, 130};
  double gamma[3] = {1.0, 1.0, 1.0};
  // With sigma 0 the reference is the pixel itself: v * (m + a) / (v + a).
  dev->DigitalDvlpOnly(1, src.get(), 1.0, blur, lo, range, a, mul, nullptr, 0);
  EXPECT_TRUE(SamplesNear(*dev, [&](int x, int y, int c) { return Pixel(x, y, c) / (Pixel(x, y, c) + a[c]) * mul[c]; }, 1e-3));
  dev->DigitalDvlp2(1, gamma, src.get(), blur, lo, range, a, mul, nullptr, 0);
  EXPECT_NEAR(dev->GetPixelGrayRaw(3, 4, 1), Pixel(3, 4, 1) / (Pixel(3, 4, 1) + 20.0) * 120.0, 1e-3);
  dev->DigitalDvlpGmAftrDdp(1, gamma, src.get(), blur, lo, range, a, mul, nullptr, 0);
  EXPECT_NEAR(dev->GetPixelGrayRaw(3, 4, 2), Pixel(3, 4, 2) / (Pixel(3, 4, 2) + 30.0) * 130.0, 1e-3);
  // Strength 0 is the source; a black reference (u <= 0) keeps the pixel.
  dev->DigitalDvlpOnly(1, src.get(), 0.0, blur, lo, range, a, mul, nullptr, 0);
  EXPECT_TRUE(SamePixels(*dev, *src));
  float black[3] = {-1000, -1000, -1000};
  dev->DigitalDvlp2(1, gamma, src.get(), blur, lo, range, black, mul, nullptr, 0);
  EXPECT_TRUE(SamePixels(*dev, *src));
}

TEST_P(DevelopmentTest, BlurredReferenceTakesTheRouteRim) {
  auto src = MakeImage(30, 22, 1, Pixel);
  auto dev = MakeDeveloper(*src, 2.0);
  int blur[3] = {0, 0, 0};
  float lo[3] = {0, 0, 0}, range[3] = {255, 255, 255}, a[3] = {15, 15, 15}, mul[3] = {90, 90, 90};
  dev->DigitalDvlpOnly(1, src.get(), 0.75, blur, lo, range, a, mul, nullptr, 0);
  const cv::Mat plane = PlaneMat(*src, 0);
  cv::Mat mirror;
  cv::copyMakeBorder(plane, mirror, kernel_.GetR(), kernel_.GetR(), kernel_.GetR(), kernel_.GetR(),
                     cv::BORDER_REFLECT_101);
  const cv::Mat b = Separable(PlaneRoute() ? mirror : RingPad(plane, kernel_.GetR()), NormalisedRow(kernel_));
  cv::Mat expected(22, 30, CV_64F);
  for (int y = 0; y < 22; ++y)
    for (int x = 0; x < 30; ++x) {
      const double v = plane.at<double>(y, x);
      expected.at<double>(y, x) = v / (b.at<double>(y, x) + 15.0) * 90.0 * 0.75 + v * 0.25;
    }
  EXPECT_TRUE(Near(*dev, 0, expected, 1e-3));

  // bDevelop 0: the line loops copy, the pipeline develops all the same.
  dev->DigitalDvlpOnly(0, src.get(), 0.75, blur, lo, range, a, mul, nullptr, 0);
  if (PlaneRoute())
    EXPECT_TRUE(Near(*dev, 0, expected, 1e-3));
  else
    EXPECT_TRUE(SamePixels(*dev, *src));
}

TEST_P(DevelopmentTest, SharedReferenceRunsOnTheLinesAndGammaPassesTheFloor) {
  auto src = MakeImage(12, 8, 3, Pixel);
  auto dev = MakeDeveloper(*src, 0.0);
  int shared[3] = {3, 3, 3};
  float lo[3] = {0, 0, 0}, range[3] = {255, 255, 255}, a[3] = {10, 10, 10}, mul[3] = {100, 100, 100};
  TakeRuns();
  dev->DigitalDvlpOnly(1, src.get(), 1.0, shared, lo, range, a, mul, nullptr, 0);
  const auto runs = TakeRuns();
  ASSERT_EQ(runs.size(), 1u);
  EXPECT_EQ(runs[0].chosen, Route::Block);
  EXPECT_FALSE(runs[0].hadPipeline);
  for (int c = 0; c < 3; ++c) {
    const double mean = (Pixel(5, 3, 0) + Pixel(5, 3, 1) + Pixel(5, 3, 2)) / 3.0;
    EXPECT_NEAR(dev->GetPixelGrayRaw(5, 3, c), Pixel(5, 3, c) / (mean + 10.0) * 100.0, 1e-3);
  }
  // Gamma 2 without development: values above fMin raised to 1/2 on the
  // range, values at or below fMin unchanged even with a range of 0.
  double gamma[3] = {2.0, 2.0, 2.0};
  float floor[3] = {50, 50, 50}, span[3] = {200, 200, 0};
  dev->DigitalDvlp2(0, gamma, src.get(), shared, floor, span, a, mul, nullptr, 0);
  EXPECT_FLOAT_EQ(dev->GetPixelGrayRaw(11, 7, 0), std::pow((Pixel(11, 7, 0) - 50.0f) / 200.0f, 0.5f) * 200.0f + 50.0f);
  EXPECT_EQ(dev->GetPixelGrayRaw(0, 0, 2), Pixel(0, 0, 2));
  // A plane filter that was never made: nothing is written.
  auto bare = MakeImage(12, 8, 3);
  CImgFilterSpecial empty;
  empty.Swap(bare.get());
  empty.DigitalDvlp2(1, gamma, src.get(), shared, floor, span, a, mul, nullptr, 0);
  empty.Swap(bare.get());
  EXPECT_TRUE(SamePixels(*bare, *MakeImage(12, 8, 3)));
}

TEST(DigitalDevelopment, Parameters) {
  EXPECT_EQ(CImgFilterSpecial::GetDigitalDvlp_Mean_nR(0.4), 1);
  EXPECT_EQ(CImgFilterSpecial::GetDigitalDvlp_Mean_nR(3.9), 6);
  EXPECT_EQ(CImgFilterSpecial::GetDigitalDvlp_Mean_nR(std::nan("")), 1);
  auto manager = MakeManager(StoreKind::WholePlane);
  auto src = MakeImage(manager, 6, 4, 3, Pixel);
  src->CalcMinMax();
  auto image = MakeImage(manager, 6, 4, 3);
  CImgFilterSpecial dev;
  dev.Swap(image.get());
  dev.SetLevel(0, 0.0, 255.0);
  dev.SetLevel(1, 100.0, 610.0);
  float lo[3] = {-1, -1, -1}, hi[3], range[3];
  dev.DigitalDvlpGetMinMax(1, src.get(), lo, hi, range);
  EXPECT_EQ(lo[0], Pixel(0, 0, 0));
  EXPECT_EQ(hi[0], Pixel(5, 3, 0));
  // Plane 1 carried through the level scale: t * 2 + 100.
  EXPECT_FLOAT_EQ(lo[1], Pixel(0, 0, 0) * 2.0f + 100.0f);
  EXPECT_FLOAT_EQ(range[1], hi[1] - lo[1]);
  dev.DigitalDvlpGetMinMax(3, src.get(), lo, hi, range);
  EXPECT_EQ(lo[0], 0.0f);
  EXPECT_EQ(lo[1], 100.0f);
  float kept[3] = {7, 7, 7};
  dev.DigitalDvlpGetMinMax(4, src.get(), kept, hi, range);
  EXPECT_EQ(kept[0], 7.0f);

  double gamma[3] = {1.0, 2.0, 1.0}, low[3] = {30.0, 0.0, 30.0}, high[3] = {40.0, 400.0, 40.0};
  dev.SetLevel(1, 0.0, 255.0);
  dev.DigitalDvlpGetLevel(gamma, 0, src.get(), low, high);
  EXPECT_EQ(low[0], 30.0);
  EXPECT_EQ(high[1], 400.0);  // above the curve's top: unchanged
  high[1] = 40.0;
  dev.DigitalDvlpGetLevel(gamma, 1, src.get(), low, high);
  // Low below the range, high within: only high moves.
  EXPECT_EQ(low[1], 0.0);
  const float top = Pixel(5, 3, 0), bottom = Pixel(0, 0, 0);
  EXPECT_FLOAT_EQ(high[1], std::pow((40.0f - bottom) / (top - bottom), 0.5f) * (top - bottom) + bottom);
}

}  // namespace
}  // namespace qorimg::test
