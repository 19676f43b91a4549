// Statistics on every route against straightforward references, with the route
// differences that stand (outliers in the histogram, average divisors).
#include <climits>
#include <cmath>
#include <opencv2/core.hpp>
#include "core/DitherRandom.h"
#include "support/Fixtures.h"

namespace qorimg::test {
namespace {

class StatisticsTest : public RouteTest {
protected:
  bool PlaneRoute() const { return Case().Expected(false) == Route::Plane; }
};
QORIMG_ALL_ROUTES(StatisticsTest);

// Integer-valued samples in [0, 200).
float Counts(int x, int y, int p) { return static_cast<float>((x * 37 + y * 11 + p * 5) % 200); }

std::vector<int> ReferenceHistogram(const CLmrImage &img, int plane, double fMin, double fMax, int nBins) {
  std::vector<int> hist(nBins, 0);
  for (int y = 0; y < img.GetHeight(); ++y)
    for (int x = 0; x < img.GetWidth(); ++x) {
      const double v = img.GetPixelGrayRaw(x, y, plane);
      if (v < fMin || v > fMax) continue;
      ++hist[std::min(static_cast<int>((v - fMin) * nBins / (fMax - fMin)), nBins - 1)];
    }
  return hist;
}

TEST_P(StatisticsTest, HistogramWithoutDitherMatchesTheReference) {
  auto img = MakeImage(53, 17, 3, Counts);
  std::vector<int> hist(400);
  // 400 bins over 0..200: 2 bins per unit, so no dither.
  const int flat = img->GetHistogram(hist.data(), 400, 0.0, 200.0, 1, 0, 0, 0, nullptr, 0, 0);
  EXPECT_EQ(hist, ReferenceHistogram(*img, 1, 0.0, 200.0, 400));
  EXPECT_EQ(flat, static_cast<int>(2.0 * 53 * 17 / 400));
  const int height = img->GetHistogram(hist.data(), 400, 0.0, 200.0, 1, 0, 1, 0, nullptr, 0, 0);
  EXPECT_EQ(height, *std::max_element(hist.begin(), hist.end()));
  // A sample exactly at fMax (199) lands in the last bin through the clamp.
  img->GetHistogram(hist.data(), 398, 0.0, 199.0, 0, 0, 1, 0, nullptr, 0, 0);
  int at199 = 0;
  for (int y = 0; y < 17; ++y)
    for (int x = 0; x < 53; ++x) at199 += Counts(x, y, 0) == 199.0f;
  ASSERT_GT(at199, 0);
  EXPECT_EQ(hist[397], at199);
}

TEST_P(StatisticsTest, OutliersCountAtTheEndsOnlyOnThePipeline) {
  auto img = MakeImage(20, 10, 1, Counts);
  std::vector<int> hist(100);
  img->GetHistogram(hist.data(), 100, 50.0, 100.0, 0, 0, 0, 0, nullptr, 0, 0);
  const auto inside = ReferenceHistogram(*img, 0, 50.0, 100.0, 100);
  int below = 0, above = 0;
  for (int y = 0; y < 10; ++y)
    for (int x = 0; x < 20; ++x) {
      below += Counts(x, y, 0) < 50.0f;
      above += Counts(x, y, 0) > 100.0f;
    }
  EXPECT_EQ(hist[0], inside[0] + (PlaneRoute() ? below : 0));
  EXPECT_EQ(hist[99], inside[99] + (PlaneRoute() ? above : 0));
  for (int i = 1; i < 99; ++i) EXPECT_EQ(hist[i], inside[i]);
}

TEST_P(StatisticsTest, DitherSpreadsCoarseBinsAndIsRepeatableWhereItShouldBe) {
  auto img = MakeImage(64, 32, 1, Counts);
  std::vector<int> a(50), b(50);
  // 50 bins over 0..200: 0.25 bins per unit, dither on (offset up to +-12 units).
  SeedDitherRandom(7);
  img->GetHistogram(a.data(), 50, -100.0, 300.0, 0, 0, 0, 0, nullptr, 0, 0);
  SeedDitherRandom(7);
  img->GetHistogram(b.data(), 50, -100.0, 300.0, 0, 0, 0, 0, nullptr, 0, 0);
  EXPECT_EQ(a, b);  // the same seed, or the pipeline's hash: the same counts
  long long total = 0;
  for (int c : a) total += c;
  EXPECT_EQ(total, 64 * 32);  // the bounds are far enough that nothing falls out
  EXPECT_NE(a, ReferenceHistogram(*img, 0, -100.0, 300.0, 50));  // it did spread
}

TEST_P(StatisticsTest, BrightnessOfMonoIsPlaneZeroAndRgbOfMonoIsRefused) {
  auto mono = MakeImage(30, 9, 1, Counts);
  std::vector<int> a(400), b(400), c(400, 5);
  mono->GetHistogram(a.data(), 400, 0.0, 200.0, -1, 0, 0, 0, nullptr, 0, 0);
  mono->GetHistogram(b.data(), 400, 0.0, 200.0, 0, 0, 0, 0, nullptr, 0, 0);
  EXPECT_EQ(a, b);
  EXPECT_EQ(mono->GetHistogramRGB(c.data(), c.data(), c.data(), 400, 0.0, 200.0, nullptr, nullptr, 0, 0, 0, nullptr, 0, 0), -1);
  EXPECT_EQ(c[0], 5);
}

TEST_P(StatisticsTest, RgbHistogramsBinRawPlanesAndLogMarksEmptyBins) {
  auto img = MakeImage(41, 13, 3, Counts);
  std::vector<int> r(400), g(400), b(400);
  const int height = img->GetHistogramRGB(r.data(), g.data(), b.data(), 400, 0.0, 200.0, nullptr, nullptr, 0, 1, 0,
                                          nullptr, 0, 0);
  EXPECT_EQ(r, ReferenceHistogram(*img, 0, 0.0, 200.0, 400));
  EXPECT_EQ(b, ReferenceHistogram(*img, 2, 0.0, 200.0, 400));
  EXPECT_EQ(height, std::max({*std::max_element(r.begin(), r.end()), *std::max_element(g.begin(), g.end()),
                              *std::max_element(b.begin(), b.end())}));
  img->GetHistogram(r.data(), 400, 0.0, 200.0, 0, 1, 0, 0, nullptr, 0, 0);
  const auto ref = ReferenceHistogram(*img, 0, 0.0, 200.0, 400);
  for (int i = 0; i < 400; ++i)
    EXPECT_EQ(r[i], ref[i] ? static_cast<int>(std::log10(ref[i]) * 10000.0) : INT_MIN) << i;
}

TEST_P(StatisticsTest, BrightnessHistogramUsesTheMappedBounds) {
  auto img = MakeImage(16, 8, 3, [](int x, int, int p) { return 10.0f * x + p; });
  for (int p = 0; p < 3; ++p) img->CImage::SetLevel(p, 0.0, 255.0);
  std::vector<int> hist(512);
  img->GetHistogram(hist.data(), 512, 0.0, 255.0, -1, 0, 0, 0, nullptr, 0, 0);  // 2 bins per unit: no dither
  std::vector<int> ref(512, 0);
  for (int x = 0; x < 16; ++x) {
    const double v = (10.0 * x + 1) * 0.587 + (10.0 * x) * 0.299 + (10.0 * x + 2) * 0.114;
    ref[std::min(static_cast<int>(v * 512 / 255.0), 511)] += 8;
  }
  EXPECT_EQ(hist, ref);
}

TEST_P(StatisticsTest, CulledSampleIsScaledToTheWholeImage) {
  auto img = MakeImage(40, 20, 1, [](int x, int, int) { return x < 20 ? 10.0f : 30.0f; });
  img->GetHistogramCullXRef() = {0, 10, 20, 30};
  img->GetHistogramCullYRef() = {0, 5, 10, 15};
  img->SetHistogramCull(4, 4);
  std::vector<int> hist(100);
  img->GetHistogram(hist.data(), 100, 0.0, 50.0, 0, 0, 0, 1, nullptr, 0, 0);
  EXPECT_EQ(hist[20], 400);  // 8 of 16 samples, scaled by 800 / 16
  EXPECT_EQ(hist[60], 400);
}

TEST_P(StatisticsTest, MinMaxAgreeWithOpenCVAndTheAverageDivisorIsPinnedByRoute) {
  auto img = MakeImage(37, 23, 3, [](int x, int y, int p) { return std::sin(x * 0.3f + p) * 100.0f + y; });
  img->CalcMinMax();
  for (int p = 0; p < 3; ++p) {
    const auto plane = ReadPlane(*img, p);
    cv::Mat m(23, 37, CV_32F, const_cast<float *>(plane.data()));
    double lo, hi;
    cv::minMaxLoc(m, &lo, &hi);
    EXPECT_EQ(img->GetMinPixel(p), static_cast<float>(lo));
    EXPECT_EQ(img->GetMaxPixel(p), static_cast<float>(hi));
    const double sum = cv::sum(m)[0];
    // Float accumulation on the line loop: a few ulp of the sum per sample.
    const double avr = PlaneRoute() ? sum / (37 * 23) : sum / (36 * 22);
    EXPECT_NEAR(img->GetAvrPixel(p), avr, std::abs(avr) * 1e-4 + 1e-3);
    const double avrGray = PlaneRoute() ? sum / (37 * 23) : sum / 36 / 22;
    EXPECT_NEAR(img->GetAvrGrayRaw(p), avrGray, std::abs(avrGray) * 1e-6 + 1e-5);
  }
  EXPECT_NEAR(img->GetAvrGray256f(0), (img->GetAvrGrayRaw(0) - 0.0) / 1000.0 * 255.0, 1e-3);
}

TEST_P(StatisticsTest, MinMaxWithMarginSkipsTheBorderAndZeros) {
  auto value = [](int x, int y) {
    if (x < 2 || y < 2 || x >= 8 || y >= 6) return 1000.0f;  // border
    return (x + y) % 4 == 0 ? 0.0f : static_cast<float>(x * 10 + y);
  };
  auto img = MakeImage(10, 8, 1, [&](int x, int y, int) { return value(x, y); });
  img->CalcMinMax(2);
  double sum = 0;
  int count = 0;
  for (int y = 2; y < 6; ++y)
    for (int x = 2; x < 8; ++x)
      if (value(x, y) != 0.0f) sum += value(x, y), ++count;
  EXPECT_EQ(img->GetMaxPixel(0), 74.0f);
  EXPECT_EQ(img->GetMinPixel(0), 0.0f);  // the region's first pixel (a zero) starts the minimum
  EXPECT_NEAR(img->GetAvrPixel(0), sum / count, 1e-4);
  auto blank = MakeImage(6, 6, 1, [](int, int, int) { return 0.0f; });
  blank->CalcMinMax(0);
  EXPECT_EQ(blank->GetMinPixel(0), 0.0f);
  EXPECT_TRUE(std::isnan(blank->GetAvrPixel(0)));
}

// Each line is summed in float and the line sums in double: a large frame of one
// value keeps its average (one float sum over 6000 x 4000 samples gave 716.1 for
// 1000), over the divisor (W - 1)(H - 1) on the line loops.
TEST_P(StatisticsTest, AverageOfALargeFrameKeepsItsSum) {
  constexpr int kW = 3000, kH = 2000;
  auto img = MakeImage(kW, kH, 1, [](int, int, int) { return 1000.0f; });
  img->CalcMinMax();
  const double sum = 1000.0 * kW * kH;
  EXPECT_EQ(img->GetAvrPixel(0), PlaneRoute() ? 1000.0f : static_cast<float>(sum / ((kW - 1.0) * (kH - 1.0))));
  EXPECT_EQ(img->GetMinPixel(0), 1000.0f);
  EXPECT_EQ(img->GetMaxPixel(0), 1000.0f);
}

// Clipped, inverted and far-out rectangles give empty histograms on every route,
// and a far rectangle's middle is worked out without overflow.
TEST_P(StatisticsTest, RectanglesOutsideOrInvertedGiveEmptyHistograms) {
  auto img = MakeImage(12, 9, 3, Counts);
  const std::vector<int> none(64, 0);
  for (CRect rect : {CRect(0, INT_MAX, 8, INT_MIN), CRect(INT_MIN, 0, INT_MAX, INT_MIN), CRect(20, 0, 30, 9),
                     CRect(5, 7, 2, 9), CRect(0, 9, 12, 20)}) {
    std::vector<int> r(64, 7), g(64, 7), b(64, 7);
    for (int plane : {0, -1}) {
      EXPECT_EQ(img->GetHistogram(r.data(), 64, 0.0, 200.0, plane, 0, 1, 0, &rect, 0, 0), 0);
      EXPECT_EQ(r, none);
    }
    img->GetHistogramRGB(r.data(), g.data(), b.data(), 64, 0.0, 200.0, nullptr, nullptr, 0, 0, 0, &rect, 0, 0);
    EXPECT_TRUE(r == none && g == none && b == none);
  }
  CRect far(INT_MAX - 1, INT_MAX - 3, INT_MAX, INT_MAX);
  int nx, ny;
  img->GetCentroid(nx, ny, &far);
  EXPECT_EQ(nx, INT_MAX - 1);
  EXPECT_EQ(ny, INT_MAX - 2);
  img->GetCentroidRaw(nx, ny, &far);
  EXPECT_EQ(nx, INT_MAX - 1);
}

// A Gaussian star on a flat sky: the centroid against a double-precision
// reference of the same weighting. The routes may sum in another order (the
// pipeline in parallel), so the tolerance is a small fraction of a pixel.
TEST_P(StatisticsTest, CentroidOfAStarMatchesTheReference) {
  auto star = [](int x, int y, int p) {
    const double dx = x - 21.3, dy = y - 14.8;
    return static_cast<float>(100.0 + (800.0 + 50 * p) * std::exp(-(dx * dx + dy * dy) / 8.0));
  };
  for (int planes : {1, 3}) {
    auto img = MakeImage(40, 30, planes, star);
    CRect rect(10, 5, 35, 25);
    double fx, fy;
    img->GetCentroid(fx, fy, &rect);
    double sx = 0, sy = 0, s = 0, mean = 0;
    auto value = [&](int x, int y) {
      if (planes == 1) return static_cast<double>(static_cast<float>(star(x, y, 0) / 1000.0 * 255.0));
      double v[3];
      for (int p = 0; p < 3; ++p) v[p] = static_cast<float>(star(x, y, p) / 1000.0 * 255.0);
      return static_cast<double>(static_cast<float>(v[1] * 0.587 + v[0] * 0.299 + v[2] * 0.114));
    };
    for (int y = 5; y < 25; ++y)
      for (int x = 10; x < 35; ++x) mean += std::max(value(x, y), 0.0);
    mean /= 25.0 * 20.0;
    for (int y = 5; y < 25; ++y)
      for (int x = 10; x < 35; ++x) {
        const double q = std::pow(std::max(value(x, y) - mean, 0.0), 2);
        sx += x * q, sy += y * q, s += q;
      }
    EXPECT_NEAR(fx, sx / s, 1e-3);
    EXPECT_NEAR(fy, sy / s, 1e-3);
    int nx, ny;
    img->GetCentroid(nx, ny, &rect);
    EXPECT_EQ(nx, 21);
    EXPECT_EQ(ny, 15);
  }
  auto blank = MakeImage(20, 20, 1, [](int, int, int) { return 5.0f; });
  CRect rect(3, 4, 12, 9);
  int nx, ny;
  blank->GetCentroid(nx, ny, &rect);
  EXPECT_EQ(nx, 7);
  EXPECT_EQ(ny, 6);
}

TEST_P(StatisticsTest, RawCentroidFirstBrighterAndMaximumPixel) {
  auto img = MakeImage(12, 9, 1, [](int x, int y, int) { return x == 7 && y == 3 ? 50.0f : (x == 2 && y == 5 ? 40.0f : 1.0f); });
  double fx, fy;
  img->GetCentroidRaw(fx, fy, nullptr);
  const double total = 50.0 + 40.0 + 106.0;
  double ex = 7 * 50.0 + 2 * 40.0, ey = 3 * 50.0 + 5 * 40.0;
  for (int y = 0; y < 9; ++y)
    for (int x = 0; x < 12; ++x)
      if (!((x == 7 && y == 3) || (x == 2 && y == 5))) ex += x, ey += y;
  EXPECT_NEAR(fx, ex / total, 1e-12);
  EXPECT_NEAR(fy, ey / total, 1e-12);
  int nx, ny;
  EXPECT_EQ(img->Get1stBrighterPixel(0, nullptr, 10.0, nx, ny), 50.0f);
  EXPECT_EQ(nx, 7);
  EXPECT_EQ(ny, 3);
  EXPECT_EQ(img->Get1stBrighterPixel(0, nullptr, 60.0, nx, ny), 0.0f);
  EXPECT_EQ(nx, -1);
  EXPECT_EQ(img->GetMaxPixel(0, nullptr, nx, ny), 50.0f);
  EXPECT_EQ(nx, 7);
  CRect corner(7, 3, 12, 9);  // the brightest is the first pixel
  EXPECT_EQ(img->GetMaxPixel(0, &corner, nx, ny), 50.0f);
  EXPECT_EQ(nx, -1);
  EXPECT_EQ(ny, -1);
  CRect outside(20, 20, 30, 30);
  EXPECT_EQ(img->GetMaxPixel(0, &outside, nx, ny), 0.0f);
}

}  // namespace
}  // namespace qorimg::test
