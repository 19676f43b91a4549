// The blur of the correlation surface is the blur filters' Gaussian on the
// object's store: its rim follows that store's route (mirror about the edge
// pixel for the pipeline, the rings' rule on the line loops).
#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "RestoreTestSupport.h"
#include "restore/ImgFourier.h"

namespace {

using FourierBlurTest = qorimg::test::OperatorRouteTest<CImgFourier>;
QORIMG_ALL_ROUTES(FourierBlurTest);

// Index i of a line of n after padding: the pipeline mirrors without repeat on
// all sides; the rings mirror without repeat above, with repeat below, and
// repeat the edge along x.
int Mirror(int i, int n) { return i < 0 ? -i : i >= n ? 2 * n - 2 - i : i; }
int RingRow(int i, int n) { return i < 0 ? -i : i >= n ? 2 * n - 1 - i : i; }
int Edge(int i, int n) { return i < 0 ? 0 : i >= n ? n - 1 : i; }

TEST_P(FourierBlurTest, SurfaceBlurFollowsTheRouteRim) {
  auto a = Make(32, 32, 1, [](int x, int y, int) {
    return float(100 + 900 * std::exp(-((x - 9) * (x - 9) + (y - 22) * (y - 22)) / 18.0));
  });
  auto b = Make(32, 32, 1, [](int x, int y, int) {
    return float(100 + 900 * std::exp(-((x - 12) * (x - 12) + (y - 20) * (y - 20)) / 18.0));
  });
  auto sharp = MakeImage(32, 32, 1), blurred = MakeImage(32, 32, 1);
  double dx = 0, dy = 0, peak = 0;
  int w = 0, h = 0;
  const bool pipeline = Case().Expected(false) == qorimg::Route::Plane;
  for (const double sigma : {1.0, 1.6}) {
    SCOPED_TRACE(sigma);
    ASSERT_EQ(a->CalcShiftByPOC(b.get(), sharp.get(), 0.0, nullptr, dx, dy, peak, w, h, 0), 1);
    ASSERT_EQ(a->CalcShiftByPOC(b.get(), blurred.get(), sigma, nullptr, dx, dy, peak, w, h, 0), 1);
    const int r = static_cast<int>(sigma * 2.8 + 1.0);
    std::vector<double> row(static_cast<size_t>(2 * r + 1));
    double sum = 0.0;
    for (int k = -r; k <= r; ++k) sum += row[static_cast<size_t>(k + r)] = std::exp(-k * k / (2.0 * sigma * sigma));
    // Along x, then y, in double over the sharp surface.
    std::vector<double> across(32 * 32);
    for (int y = 0; y < 32; ++y)
      for (int x = 0; x < 32; ++x) {
        double v = 0.0;
        for (int k = -r; k <= r; ++k)
          v += row[static_cast<size_t>(k + r)] *
               sharp->GetPixelGrayRaw(pipeline ? Mirror(x + k, 32) : Edge(x + k, 32), y, 0);
        across[static_cast<size_t>(y * 32 + x)] = v / sum;
      }
    double worst = 0.0;
    for (int y = 0; y < 32; ++y)
      for (int x = 0; x < 32; ++x) {
        double v = 0.0;
        for (int k = -r; k <= r; ++k)
          v += row[static_cast<size_t>(k + r)] *
               across[static_cast<size_t>((pipeline ? Mirror(y + k, 32) : RingRow(y + k, 32)) * 32 + x)];
        worst = std::max(worst, std::abs(v / sum - blurred->GetPixelGrayRaw(x, y, 0)));
      }
    // Float sums of up to 11 taps over a surface within +-0.25.
    EXPECT_LT(worst, 1e-6);
  }
}

}  // namespace
