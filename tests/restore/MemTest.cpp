// CImgMem on every route: a blurred noisy star field (positivity, chi-square
// within the noise, narrower stars, positions against Lucy's after the half
// pixel offset), the frame without padding, progress, ESC and failures.
#include <gtest/gtest.h>

#include <random>
#include "restore/ImgLucy.h"
#include "restore/ImgMem.h"
#include "restore/MemCore.h"
#include "restore/RestoreInternal.h"
#include "RestoreTestSupport.h"

namespace {

using namespace qorimg::test;
using qorimg::restore::FormatResource;
using MemTest = OperatorRouteTest<CImgMem>;
QORIMG_ALL_ROUTES(MemTest);

constexpr double kBlur = 1.5, kNoise = 3.0;

// Stars blurred by kBlur on a background of 100 with Gaussian noise of kNoise.
std::vector<float> NoisyField(int w, int h, unsigned seed) {
  std::mt19937 rng(seed);
  std::normal_distribution<double> noise(0.0, kNoise);
  std::vector<float> v(static_cast<std::size_t>(w) * h);
  for (int y = 0; y < h; ++y)
    for (int x = 0; x < w; ++x) v[y * w + x] = static_cast<float>(StarField(x, y, 100.0, kBlur) + noise(rng));
  return v;
}

// The kernel the core gets, and chi-square of a result against the data.
TEST(MemCoreFrame, ChiSquareWithinNoiseAndPowerOfTwoFrame) {
  const auto kernel = std::unique_ptr<float[]>(qorimg::restore::MakeGaussPsf(kBlur, 63, 63));
  for (auto [w, h] : {std::pair{64, 64}, std::pair{60, 50}}) {
    const auto data = NoisyField(w, h, 5);
    std::vector<float> out(data.size());
    qorimg::restore::MemParams params;
    params.fVariance = kNoise * kNoise;
    params.fTolerance[3] = 30;
    ASSERT_EQ(qorimg::restore::MemCore(data.data(), w, h, kernel.get(), 63, 63, params, out.data()), 0);
    for (float v : out) ASSERT_GT(v, 0.0f);
    std::printf("mem %dx%d: chi-square per pixel %.3f after %.0f iterations (q1 %.3g q2 %.3g q3 %.3g)\n", w, h,
                params.fChiSqPerPixel, params.fTolerance[3], params.fTolerance[0], params.fTolerance[1],
                params.fTolerance[2]);
    EXPECT_GT(params.fChiSqPerPixel, 0.5);
    EXPECT_LT(params.fChiSqPerPixel, 1.5);
    EXPECT_LE(params.fTolerance[3], 30);
  }
  // Even kernel sides: digit 1; no flux: digit 1; fewer than four arrays: 2.
  std::vector<float> data(64 * 64, 1.0f), out(64 * 64);
  qorimg::restore::MemParams params;
  params.fVariance = 1.0;
  EXPECT_EQ(qorimg::restore::MemCore(data.data(), 64, 64, kernel.get(), 62, 63, params, out.data()), 1);
  params.nWorkArrays = 3;
  EXPECT_EQ(qorimg::restore::MemCore(data.data(), 64, 64, kernel.get(), 63, 63, params, out.data()), 2);
  std::fill(data.begin(), data.end(), -1.0f);
  params.nWorkArrays = 5;
  EXPECT_EQ(qorimg::restore::MemCore(data.data(), 64, 64, kernel.get(), 63, 63, params, out.data()), 1);
}

// Stars get narrower, and sit where Lucy puts them less half a pixel on both
// axes (the kernel's centre 31.5 against the convolution's 31). Routes agree.
TEST_P(MemTest, SharpensStarsAndMatchesLucyPositions) {
  const int w = 64, h = 64;
  const auto data = NoisyField(w, h, 9);
  auto fill = [&](int x, int y, int) { return data[y * w + x]; };
  auto mem = Make(w, h, 1, fill);
  auto lucy = AsOperator<CImgLucy>(MakeImage(w, h, 1, fill));
  ASSERT_EQ(mem->Do(kBlur, kNoise, 40, nullptr, 0), 1);
  ASSERT_EQ(lucy->Do(kBlur, 1e6, 0.0, 20, nullptr, 0), 1);
  const auto restored = ReadPlane(*mem, 0), lucyPlane = ReadPlane(*lucy, 0);
  for (float v : restored) ASSERT_GT(v, 0.0f);
  for (const auto &s : TestStars()) {
    if (s.x < 12 || s.y < 12 || s.x > w - 12 || s.y > h - 12) continue;
    const auto before = MeasureStar(data, w, s.x, s.y, 100.0, 6);
    const auto after = MeasureStar(restored, w, s.x - 0.5, s.y - 0.5, 100.0, 6);
    const auto byLucy = MeasureStar(lucyPlane, w, s.x, s.y, 100.0, 6);
    EXPECT_LT(after.fwhm, before.fwhm) << s.x;
    EXPECT_NEAR(after.x, byLucy.x - 0.5, 0.1) << s.x;
    EXPECT_NEAR(after.y, byLucy.y - 0.5, 0.1) << s.y;
    if (Case().name == "Plane")
      std::printf("mem star (%.1f, %.1f): FWHM %.2f -> %.2f (lucy %.2f), centre (%.2f, %.2f), lucy's - 0.5 (%.2f, %.2f)\n",
                  s.x, s.y, before.fwhm, after.fwhm, byLucy.fwhm, after.x, after.y, byLucy.x - 0.5, byLucy.y - 0.5);
  }
  auto block = OnBlockStore(w, h, 1, fill);
  ASSERT_EQ(block->Do(kBlur, kNoise, 40, nullptr, 0), 1);
  EXPECT_TRUE(SamePixels(*mem, *block));
}

TEST_P(MemTest, ProgressCancelAndFailures) {
  RestoreCapture capture;
  const auto data = NoisyField(40, 30, 3);
  auto op = Make(40, 30, 2, [&](int x, int y, int p) { return data[y * 40 + x] + 10.0f * p; });
  op->SetProgressHandle(capture.Window());
  const auto before0 = ReadPlane(*op, 0), before1 = ReadPlane(*op, 1);
  // Titles and texts, the limit of 3 main iterations, the ticks.
  auto mono = Make(40, 30, 1, [&](int x, int y, int) { return data[y * 40 + x]; });
  mono->SetProgressHandle(capture.Window());
  ASSERT_EQ(mono->Do(kBlur, kNoise, 3, nullptr, 1), 1);
  EXPECT_EQ(capture.Titles(), std::vector<std::wstring>{Resource(6158)});
  std::vector<std::wstring> texts;
  for (const auto &e : capture.entries)
    if (e.message == 1136 && e.wParam == 4) texts.push_back(e.text);
  ASSERT_GE(texts.size(), 2u);
  EXPECT_EQ(texts[0], Resource(6162));
  EXPECT_EQ(texts[1], FormatResource(6160, 1));
  EXPECT_LE(texts.size(), 4u);
  const auto ticks = capture.Ticks(Resource(6158));
  ASSERT_GE(ticks.size(), 11u);
  EXPECT_EQ(std::vector<long long>(ticks.begin(), ticks.begin() + 10),
            (std::vector<long long>{2, 5, 7, 10, 12, 15, 35, 40, 42, 62}));
  EXPECT_EQ(ticks.back(), 100);
  EXPECT_EQ(capture.Count(0), capture.Count(2));

  // ESC when plane 2 opens: 6149, plane 1 unchanged.
  capture.escapeOn = FormatResource(6159, 2);
  EXPECT_EQ(op->Do(kBlur, kNoise, 3, nullptr, 1), 0);
  capture.escapeOn.clear();
  EXPECT_EQ(capture.boxes.back(), Resource(6149));
  EXPECT_EQ(ReadPlane(*op, 0), before0);
  // fNoise 0 and a bad sigma: 6148. Failed allocations: 6148.
  capture.boxes.clear();
  EXPECT_EQ(op->Do(kBlur, 0.0, 3, nullptr, 0), 0);
  EXPECT_EQ(op->Do(-1.0, kNoise, 3, nullptr, 0), 0);
  for (int n : {0, 1, 2, 3, 4, 5, 6}) {  // Do's arrays and kernel, then the core's
    qorimg::restore::testing::FailAllocationsFrom(n);
    EXPECT_EQ(op->Do(kBlur, kNoise, 3, nullptr, 1), 0) << n;
    qorimg::restore::testing::FailAllocationsFrom(-1);
  }
  EXPECT_EQ(capture.boxes, std::vector<std::wstring>(9, Resource(6148)));
  EXPECT_EQ(ReadPlane(*op, 0), before0);
  EXPECT_EQ(ReadPlane(*op, 1), before1);
  EXPECT_EQ(capture.Count(0), capture.Count(2));
  // An empty rectangle: 1, nothing written.
  CRect outside(50, 0, 60, 10);
  EXPECT_EQ(op->Do(kBlur, kNoise, 3, &outside, 0), 1);
  EXPECT_EQ(ReadPlane(*op, 1), before1);
}

}  // namespace
