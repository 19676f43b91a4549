// Pixel accessors: the level mapping, the bilinear rule and its edges, the
// two-line cache, brightness and the direct image, on both store kinds.
#include <cmath>
#include <limits>
#include "support/Fixtures.h"

namespace qorimg::test {
namespace {

class PixelAccessTest : public RouteTest {};
QORIMG_ALL_ROUTES(PixelAccessTest);

// A linear ramp is reproduced exactly by bilinear interpolation, so its value at
// any point inside is known without restating the rule.
float Ramp(double x, double y) { return static_cast<float>(2.0 * x + 10.0 * y + 5.0); }

TEST_P(PixelAccessTest, BilinearReproducesALinearRampInsideAndClampsBeyondTheFarEdge) {
  auto img = MakeImage(9, 6, 1, [](int x, int y, int) { return Ramp(x, y); });
  for (double y : {0.0, 0.25, 2.5, 4.75, 5.0})
    for (double x : {0.0, 0.5, 3.125, 7.9, 8.0}) EXPECT_NEAR(img->GetPixelGrayRaw(x, y, 0), Ramp(x, y), 1e-4);
  // No lower bound: (-1, 0) extrapolates from cell 0.
  EXPECT_NEAR(img->GetPixelGrayRaw(-0.5, 1.0, 0), Ramp(-0.5, 1.0), 1e-4);
  // Beyond the far edge x is pulled to Width - 1 (and y to Height - 1).
  EXPECT_NEAR(img->GetPixelGrayRaw(20.0, 1.5, 0), Ramp(8.0, 1.5), 1e-4);
  EXPECT_NEAR(img->GetPixelGrayRaw(2.0, 99.0, 0), Ramp(2.0, 5.0), 1e-4);
  // NaN coordinates take the far-edge branch too, never an undefined read.
  EXPECT_NEAR(img->GetPixelGrayRaw(std::nan(""), 0.0, 0), Ramp(8.0, 0.0), 1e-4);
  // The two-line cache gives the same values along a line and after a jump.
  img->GetPixelGrayRawBufInit();
  for (double x = 0.0; x < 8.0; x += 0.37) EXPECT_EQ(img->GetPixelGrayRawBuf(x, 2.5, 0), img->GetPixelGrayRaw(x, 2.5, 0));
  EXPECT_EQ(img->GetPixelGrayRawBuf(1.5, 0.5, 0), img->GetPixelGrayRaw(1.5, 0.5, 0));
}

TEST_P(PixelAccessTest, OnePixelWideImageReadsItsPixelAndNeverLeavesTheImage) {
  auto img = MakeImage(1, 4, 1, [](int, int y, int) { return 10.0f * (y + 1); });
  EXPECT_EQ(img->GetPixelGrayRaw(0.0, 2.0, 0), 30.0f);   // exact: the pixel as it stands
  EXPECT_FLOAT_EQ(img->GetPixelGrayRaw(0.0, 1.5, 0), 25.0f);
  // x beyond Width on a one-pixel axis gives cell -1 with weight zero on it.
  EXPECT_FLOAT_EQ(img->GetPixelGrayRaw(3.0, 1.5, 0), 25.0f);
}

TEST_P(PixelAccessTest, TwoLineCacheIsKeyedByLineOnlySoAPlaneChangeNeedsInit) {
  auto img = MakeImage(4, 4, 3, [](int x, int y, int p) { return 100.0f * p + x + 10.0f * y; });
  img->GetPixelGrayRawBufInit();
  EXPECT_FLOAT_EQ(img->GetPixelGrayRawBuf(1.5, 1.5, 0), 16.5f);
  EXPECT_FLOAT_EQ(img->GetPixelGrayRawBuf(1.5, 1.5, 2), 16.5f);  // plane 0's lines are still cached
  img->GetPixelGrayRawBufInit();
  EXPECT_FLOAT_EQ(img->GetPixelGrayRawBuf(1.5, 1.5, 2), 216.5f);
}

TEST_P(PixelAccessTest, DisplayMappingLimitsAndScale) {
  auto img = MakeImage(4, 1, 1, [](int x, int, int) { return std::array<float, 4>{100.0f, 300.0f, 250.0f, NAN}[x]; });
  img->CImage::SetLevel(0, 100.0, 300.0);
  EXPECT_EQ(img->GetPixelGray256(0, 0, 0), 0);
  EXPECT_EQ(img->GetPixelGray256(1, 0, 0), 255);
  EXPECT_EQ(img->GetPixelGray256(2, 0, 0), 191);  // 150 / 200 * 255 = 191.25
  EXPECT_EQ(img->GetPixelGray256(3, 0, 0), 0);    // NaN shows as 0
  EXPECT_FLOAT_EQ(img->GetPixelGray256f(2, 0, 0), 191.25f);
  EXPECT_FLOAT_EQ(img->GetPixelGray(2, 0, 0), 150.0f);
  EXPECT_DOUBLE_EQ(img->ToRaw(img->To256(250.0, 0), 0), 250.0);
  // Equal levels: the two limits decide everything, nothing divides by zero.
  img->CImage::SetLevel(0, 250.0, 250.0);
  EXPECT_EQ(img->GetPixelGray256(2, 0, 0), 0);
  EXPECT_EQ(img->GetPixelGray256(1, 0, 0), 255);
  float v = 120.0f;
  EXPECT_EQ(CLmrImage::GetPixelGray256(&v, 100.0f, 200.0f, 2.55f), 51);
  img->SetPixelGray256f(0, 0, 255.0f, 0);
  EXPECT_FLOAT_EQ(img->GetPixelGrayRaw(0, 0, 0), 250.0f);
}

TEST_P(PixelAccessTest, BrightnessMixesPlanesOnTheirOwnLevelsAndReturnsToPlaneZeroScale) {
  auto img = MakeImage(2, 1, 3, [](int, int, int p) { return std::array<float, 3>{100.0f, 50.0f, 10.0f}[p]; });
  img->CImage::SetLevel(0, 0.0, 200.0);
  img->CImage::SetLevel(1, 0.0, 100.0);
  img->CImage::SetLevel(2, 0.0, 20.0);
  const double expected = 127.5 * 0.587 + 127.5 * 0.299 + 127.5 * 0.114;
  EXPECT_NEAR(img->GetPixelBright256f(0, 0), expected, 1e-4);
  EXPECT_NEAR(img->GetPixelBrightRaw(0, 0), expected / 255.0 * 200.0, 1e-3);
  EXPECT_NEAR(CLmrImage::CalcBright(1.0, 2.0, 3.0), 2.0 * 0.587 + 0.299 + 3.0 * 0.114, 1e-12);
}

TEST(CalcBrightL, IsTheGammaWeightedRedOfTheClampedInputs) {
  auto reference = [](double r, double g, double b) {
    auto c = [](double v) { return std::min(std::max(v, -5000.0), 5000.0) / 255.0; };
    const double mean = (c(r) + c(g) + c(b)) / 3.0;
    return 255.0 * c(r) * (mean < 1e-7 ? 1.0 : std::pow(mean, 1.2000000000000002));
  };
  for (auto [r, g, b] : {std::tuple{100.0, 50.0, 25.0}, {0.0, 0.0, 0.0}, {9000.0, -20.0, 3.0}, {255.0, 255.0, 255.0}})
    EXPECT_DOUBLE_EQ(CLmrImage::CalcBrightL(r, g, b), reference(r, g, b));
  EXPECT_DOUBLE_EQ(CLmrImage::CalcBrightL(0.0, 1.0, 1.0), 0.0);
}

TEST_P(PixelAccessTest, DirectImageReadsWithItsLooseBoundsButNeverOutsideThePlane) {
  auto img = MakeImage(3, 2, 1, [](int x, int y, int) { return 1.0f + x + 10.0f * y; });
  EXPECT_EQ(img->GetPixelDirectRaw(0, 0, 0), 0.0f);  // no direct image yet
  ASSERT_EQ(img->MakeDirectImage(), 1);
  EXPECT_EQ(img->GetPixelDirectRaw(2, 1, 0), 13.0f);
  EXPECT_EQ(img->GetPixelDirectRaw(3, 0, 0), 11.0f);  // x == Width: first pixel of the next line
  // Past the plane, and a plane without a direct image: 0.
  for (auto [x, y, p] : {std::tuple{3, 1, 0}, {0, 2, 0}, {4, 0, 0}, {-1, 0, 0}, {1, 0, 1}})
    EXPECT_EQ(img->GetPixelDirectRaw(x, y, p), 0.0f) << x << "," << y << "," << p;
  EXPECT_FLOAT_EQ(img->GetPixelDirectRaw(0.5, 0.5, 0), img->GetPixelGrayRaw(0.5, 0.5, 0));
  // Made once, not updated afterwards.
  img->SetPixelGrayRaw(0, 0, 99.0f, 0);
  EXPECT_EQ(img->GetPixelDirectRaw(0, 0, 0), 1.0f);
  img->DeleteDirectImage();
  EXPECT_FALSE(img->HasDirectImage(0));
}

}  // namespace
}  // namespace qorimg::test
