// CImgFourier on every route: movers against a directly built transform
// (which also makes the routes bit-identical), shifts and rotations of
// analytic images, log-polar mapping, failures.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include "restore/FftInternal.h"
#include "restore/ImgFourier.h"
#include "RestoreTestSupport.h"

namespace {

// Smooth star-field-like content: Gaussian blobs at fixed places, evaluated
// at any real position so that shifted and rotated copies need no resampling.
double Field(double x, double y) {
  static const double blobs[][4] = {{40, 50, 4, 900},  {90, 30, 2.5, 600}, {130, 120, 6, 400}, {60, 150, 3, 800},
                                    {170, 80, 2, 1000}, {110, 190, 5, 500}, {200, 200, 3.5, 700}, {25, 220, 2, 650},
                                    {150, 40, 8, 300},  {210, 140, 2.5, 900}, {80, 100, 3, 750}};
  double v = 100.0;
  for (const auto &b : blobs) v += b[3] * std::exp(-((x - b[0]) * (x - b[0]) + (y - b[1]) * (y - b[1])) / (2 * b[2] * b[2]));
  return v;
}

using FourierTest = qorimg::test::OperatorRouteTest<CImgFourier>;
QORIMG_ALL_ROUTES(FourierTest);

TEST_P(FourierTest, ShiftOfOtherImageContent) {
  auto a = Make(256, 256, 1, [](int x, int y, int) { return float(Field(x, y)); });
  auto b = MakeImage(256, 256, 1, [](int x, int y, int) { return float(Field(x - 3.0, y + 2.0)); });
  // fSigma 0: the estimate on the sharp surface; 1: on the blurred one, whose
  // peak is not the shape the estimator assumes (biased by about 0.12 px).
  for (double sigma : {0.0, 1.0}) {
    double dx = 0, dy = 0, peak = 0;
    int w = -1, h = -1;
    ASSERT_EQ(a->CalcShiftByPOC(b.get(), nullptr, sigma, nullptr, dx, dy, peak, w, h, 0), 1);
    EXPECT_NEAR(dx, 3.0, sigma > 0 ? 0.2 : 0.02) << sigma;
    EXPECT_NEAR(dy, -2.0, sigma > 0 ? 0.2 : 0.02) << sigma;
    EXPECT_NEAR(peak, sigma > 0 ? 0.125 : 0.25, 0.02) << sigma;
    EXPECT_EQ(w, -1);  // sizes are written only on failure
  }
  // Sub-pixel: content moved by (1.3, 0.6).
  auto c = MakeImage(256, 256, 1, [](int x, int y, int) { return float(Field(x - 1.3, y - 0.6)); });
  double dx = 0, dy = 0, peak = 0;
  int w = 0, h = 0;
  ASSERT_EQ(a->CalcShiftByPOC(c.get(), nullptr, 0.0, nullptr, dx, dy, peak, w, h, 0), 1);
  EXPECT_NEAR(dx, 1.3, 0.02);
  EXPECT_NEAR(dy, 0.6, 0.02);
}

TEST_P(FourierTest, IdenticalImagesPeakAndSurface) {
  auto a = Make(64, 64, 1, [](int x, int y, int) { return float(Field(x * 3, y * 3)); });
  auto poc = MakeImage(70, 60, 1);
  double dx = 1, dy = 1, sharp = 0, blurred = 0;
  int w = 0, h = 0;
  ASSERT_EQ(a->CalcShiftByPOC(a.get(), poc.get(), 0.0, nullptr, dx, dy, sharp, w, h, 0), 1);
  // The windowed, band-limited peak is close to but not exactly the shape
  // the estimator assumes.
  EXPECT_NEAR(dx, 0.0, 1e-3);
  EXPECT_NEAR(dy, 0.0, 1e-3);
  // A quarter of the frequencies pass the band limit: the peak is 0.25.
  EXPECT_NEAR(sharp, 0.25, 1e-5);
  EXPECT_NEAR(poc->GetPixelGrayRaw(32, 32, 0), 0.25f, 1e-5);
  EXPECT_EQ(poc->GetPixelGrayRaw(65, 10, 0), 0.0f);  // beyond the array
  ASSERT_EQ(a->CalcShiftByPOC(a.get(), nullptr, 1.0, nullptr, dx, dy, blurred, w, h, 0), 1);
  EXPECT_LT(blurred, 0.6 * sharp);  // the estimate ran on the blurred surface
  EXPECT_GT(blurred, 0.3 * sharp);
}

// Rectangle sides are rounded down: a 300 x 300 rectangle gives 256 x 256,
// its rows cropped.
TEST_P(FourierTest, RectangleCroppedToPowerOfTwo) {
  auto a = Make(320, 310, 1, [](int x, int y, int) { return float(Field(x - 10, y - 5)); });
  auto b = MakeImage(320, 310, 1, [](int x, int y, int) { return float(Field(x - 12.0, y - 5.0 - 1.0)); });
  CRect rect(10, 5, 310, 305);
  auto poc = MakeImage(256, 256, 1);
  double dx = 0, dy = 0, peak = 0;
  int w = 0, h = 0;
  ASSERT_EQ(a->CalcShiftByPOC(b.get(), poc.get(), 0.0, &rect, dx, dy, peak, w, h, 0), 1);
  EXPECT_NEAR(dx, 2.0, 0.05);
  EXPECT_NEAR(dy, 1.0, 0.05);
}

TEST_P(FourierTest, RotationSignRangeAndRowVariant) {
  const double angle = 4.0 * M_PI / 180.0;
  auto rotated = [angle](int x, int y, int) {
    // pOther's content turned clockwise on screen (x right, y down) by angle
    // about the centre: a positive result.
    const double cx = x - 128.0, cy = y - 128.0;
    return float(Field(std::cos(angle) * cx + std::sin(angle) * cy + 128.0, -std::sin(angle) * cx + std::cos(angle) * cy + 128.0));
  };
  auto a = Make(256, 256, 1, [](int x, int y, int) { return float(Field(x, y)); });
  auto b = MakeImage(256, 256, 1, rotated);
  double rotation = 0;
  int w = 0, h = 0;
  ASSERT_EQ(a->CalcRotByRIPOC(b.get(), nullptr, nullptr, nullptr, rotation, w, h, 0), 1);
  EXPECT_NEAR(rotation, 4.0, 0.2);
  const double first = rotation;
  ASSERT_EQ(a->CalcRotByRIPOC(a.get(), nullptr, nullptr, nullptr, rotation, w, h, 0), 1);
  EXPECT_NEAR(rotation, 0.0, 0.1);
  EXPECT_LE(std::abs(first), 90.0);

  auto mapA = MakeImage(256, 256, 1), mapB = MakeImage(256, 256, 1);
  rotation = 5;
  ASSERT_EQ(a->CalcRotByRIPOC_1D(b.get(), mapA.get(), mapB.get(), nullptr, rotation, w, h, 0), 1);
  EXPECT_EQ(rotation, 0.0);  // its search runs on the row it zeroed
  auto values = qorimg::test::ReadPlane(*mapA, 0);
  EXPECT_GT(*std::max_element(values.begin(), values.end()), 0.0f);
}

// The movers against the transform built directly: every route must give
// these bits.
TEST_P(FourierTest, DoMatchesDirectTransformOnEveryRoute) {
  const int iw = 20, ih = 12;
  auto a = Make(iw, ih, 3, nullptr);
  auto im = MakeImage(iw, ih, 3, [](int x, int y, int p) { return float(x - y + p); });
  auto re = MakeImage(40, 10, 3), outIm = MakeImage(40, 10, 3);
  ASSERT_EQ(a->Do(0, 1, 0, im.get(), re.get(), outIm.get(), nullptr, 0), 1);
  for (int p = 0; p < 3; ++p) {
    CFftd fft;
    ASSERT_EQ(fft.Create(iw, ih), 1);
    ASSERT_EQ(fft.GetWidth(), 32);
    for (int y = 0; y < ih; ++y)
      for (int x = 0; x < iw; ++x)
        fft.GetImageAdrA()[y * 32 + x] = {a->GetPixelGrayRaw(x, y, p), im->GetPixelGrayRaw(x, y, p)};
    fft.Do(0, 0);
    for (int y = 0; y < 10; ++y)
      for (int x = 0; x < 40; ++x) {
        const dcomplex e = x < 32 ? fft.GetImageAdrA()[y * 32 + x] : dcomplex{0.0f, 0.0f};
        ASSERT_EQ(re->GetPixelGrayRaw(x, y, p), e.re) << x << "," << y << "," << p;
        ASSERT_EQ(outIm->GetPixelGrayRaw(x, y, p), e.im) << x << "," << y << "," << p;
      }
  }
  // Amplitude and phase forward, then back: the input in the top-left part.
  auto amp = MakeImage(32, 16, 3), phase = MakeImage(32, 16, 3);
  ASSERT_EQ(a->Do(0, 0, 0, nullptr, amp.get(), phase.get(), nullptr, 0), 1);
  CImgFourier inverse;
  inverse.Swap(amp.get());
  auto back = MakeImage(iw, ih, 3);
  ASSERT_EQ(inverse.Do(1, 0, 0, phase.get(), back.get(), nullptr, nullptr, 0), 1);
  for (int p = 0; p < 3; ++p) EXPECT_NEAR(back->GetPixelGrayRaw(7, 5, p), a->GetPixelGrayRaw(7, 5, p), 1e-2);
}

// A linear ramp in x maps to the source X coordinate itself.
TEST_P(FourierTest, LogPolarOfRampGivesSourceColumn) {
  auto a = Make(64, 32, 1, [](int x, int, int) { return float(x); });
  auto out = MakeImage(64, 32, 1);
  ASSERT_EQ(a->DoLogPolar(out.get(), nullptr, 0, 0), 1);
  const double rho0 = std::log(32 / 16 + 1.0), rho1 = std::log(std::trunc(32 * 0.5) - 0.5);
  for (int j = 0; j < 32; j += 5)
    for (int i = 0; i < 64; i += 7) {
      const double rho = std::exp(rho0 + j * (rho1 - rho0) / 32), theta = i * M_PI / 64;
      const double x = std::cos(theta) * rho + 31.5, y = std::sin(theta) * rho + 15.5;
      if (x <= -0.5 || x >= 63.5 || y <= -0.5 || y >= 31.5) continue;
      EXPECT_NEAR(out->GetPixelGrayRaw(i, j, 0), std::clamp(x, 0.0, 63.0), 2e-3) << i << "," << j;
    }
  // Steps that are not finite (a side of 1) give 0.
  auto thin = Make(16, 1, 1, nullptr);
  auto thinOut = MakeImage(16, 1, 1);
  ASSERT_EQ(thin->DoLogPolar(thinOut.get(), nullptr, 1, 0), 1);
  EXPECT_EQ(thinOut->GetPixelGrayRaw(3, 0, 0), 0.0f);
}

TEST_P(FourierTest, BadBindingsEmptyRectanglesAndAllocationFailure) {
  auto a = Make(32, 32, 1, nullptr);
  auto small = MakeImage(16, 32, 1);
  double dx = 7, dy = 7, peak = 7, rotation = 7;
  int w = -1, h = -1;
  qorimg::test::MessageRecorder recorder;
  a->SetProgressHandle(recorder.Window());
  EXPECT_EQ(a->CalcShiftByPOC(nullptr, nullptr, 0, nullptr, dx, dy, peak, w, h, 1), 0);
  EXPECT_EQ(a->CalcShiftByPOC(small.get(), nullptr, 0, nullptr, dx, dy, peak, w, h, 1), 0);
  EXPECT_EQ(a->CalcRotByRIPOC(small.get(), nullptr, nullptr, nullptr, rotation, w, h, 1), 0);
  EXPECT_EQ(a->Do(0, 1, 0, nullptr, nullptr, nullptr, nullptr, 1), 0);
  EXPECT_EQ(a->DoLogPolar(nullptr, nullptr, 0, 1), 0);
  EXPECT_TRUE(recorder.entries.empty());
  EXPECT_EQ(w, -1);
  CRect outside(40, 40, 50, 50);
  EXPECT_EQ(a->CalcShiftByPOC(a.get(), nullptr, 0, &outside, dx, dy, peak, w, h, 1), 0);
  EXPECT_EQ(w, 0);
  EXPECT_EQ(dx, 7.0);

  qorimg::fft::testing::FailTransformAllocations(true);
  EXPECT_EQ(a->CalcShiftByPOC(a.get(), nullptr, 0, nullptr, dx, dy, peak, w, h, 1), 0);
  qorimg::fft::testing::FailTransformAllocations(false);
  EXPECT_EQ(w, 32);
  EXPECT_EQ(h, 32);
  recorder.Pump();
  ASSERT_EQ(recorder.entries.size(), 2u);  // opened with 6150, closed
  EXPECT_EQ(recorder.entries.back().wParam, PROGRESS_CLOSE);
}

}  // namespace
