// CImgWiener on every route: the numpy double reference of its arithmetic,
// the gain by hand, rectangles, bad parameters, progress and failure, and the
// measured effect on a blurred star field.
#include <string>
#include <unistd.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include "restore/ImgWiener.h"
#include "restore/RestoreInternal.h"
#include "RestoreTestSupport.h"

namespace {

using namespace qorimg::test;
using WienerTest = OperatorRouteTest<CImgWiener>;
QORIMG_ALL_ROUTES(WienerTest);

// Against tests/reference/wiener_reference.py: a blurred 200 x 150 crop of a
// deep-field photograph, r 2, fNoise 0.01, levels (0, 255). The library works
// in float; the reference in double: 1e-4 of its largest value.
TEST_P(WienerTest, MatchesDoubleReference) {
  const int w = 200, h = 150;
  const std::string dir = ::testing::TempDir() + "wiener_reference_" + std::to_string(getpid());
  const std::string command = "/usr/bin/python3 " QORIMG_REFERENCE_DIR "/wiener_reference.py " + dir + " 2 0.01 > /dev/null";
  ASSERT_EQ(std::system(command.c_str()), 0);
  const auto input = ReadRaw<float>(dir + "/input.f32", w * h);
  const auto reference = ReadRaw<double>(dir + "/reference.f64", w * h);
  auto op = Make(w, h, 1, [&](int x, int y, int) { return input[y * w + x]; });
  op->SetLevel(0, 0.0, 255.0);
  ASSERT_EQ(op->Do(2.0, 0.01, nullptr, 0), 1);
  EXPECT_LT(RelativeWorst(ReadPlane(*op, 0), reference), 1e-4);
  const auto [lo, hi] = std::minmax_element(reference.begin(), reference.end());
  EXPECT_GT(std::max(*hi, -*lo), 0.05);
}

// G(0) = 500 r^2 (the kernel's sum), so a flat frame at LevelMax with levels
// (0, L) becomes L / (500 r^2 (1 + fNoise)); only the rectangle is written
// (it is filtered as a frame of its own) and the levels stay.
TEST_P(WienerTest, FlatFrameGainAndRectangle) {
  auto op = Make(40, 30, 3, [](int, int, int p) { return 600.0f + 100 * p; });
  for (int p = 0; p < 3; ++p) op->SetLevel(p, 0.0, 600.0 + 100 * p);
  CRect rect(-5, 4, 33, 25);  // clipped to (0, 4)-(33, 25)
  ASSERT_EQ(op->Do(2.0, 0.01, &rect, 0), 1);
  for (int p = 0; p < 3; ++p) {
    const double expected = (600.0 + 100 * p) / (2000 * 1.01);
    EXPECT_NEAR(op->GetPixelGrayRaw(10, 10, p), expected, 1e-3 * expected) << p;
    EXPECT_NEAR(op->GetPixelGrayRaw(0, 4, p), expected, 1e-3 * expected) << p;
    EXPECT_EQ(op->GetPixelGrayRaw(33, 10, p), 600.0f + 100 * p);
    EXPECT_EQ(op->GetPixelGrayRaw(10, 3, p), 600.0f + 100 * p);
    EXPECT_EQ(op->GetLevelMax(p), 600.0 + 100 * p);
  }
  // The rectangle gives the bits of the same frame filtered alone.
  auto whole = Make(33, 21, 1, [](int x, int y, int) { return Pattern(x, y + 4, 0); });
  auto part = Make(40, 30, 1);
  CRect r2(0, 4, 33, 25);
  ASSERT_EQ(whole->Do(1.5, 0.001, nullptr, 0), 1);
  ASSERT_EQ(part->Do(1.5, 0.001, &r2, 0), 1);
  EXPECT_TRUE(SamplesNear(*whole, [&](int x, int y, int) { return part->GetPixelGrayRaw(x, y + 4, 0); }, 0));
}

// Every store moves the same bits: compare with the block store's plain run.
TEST_P(WienerTest, RoutesGiveTheSameBits) {
  auto op = Make(70, 45, 2), reference = OnBlockStore(70, 45, 2);
  ASSERT_EQ(op->Do(3.0, 0.005, nullptr, 0), 1);
  ASSERT_EQ(reference->Do(3.0, 0.005, nullptr, 0), 1);
  EXPECT_TRUE(SamePixels(*op, *reference));
}

TEST_P(WienerTest, BadParametersAndEmptyRectangles) {
  auto op = Make(20, 10, 1);
  const auto before = ReadPlane(*op, 0);
  for (double r : {0.0, -1.0, std::nan(""), HUGE_VAL}) EXPECT_EQ(op->Do(r, 0.01, nullptr, 0), 1) << r;
  CRect outside(30, 0, 40, 10), inverted(15, 8, 5, 2);
  EXPECT_EQ(op->Do(2.0, 0.01, &outside, 0), 1);
  EXPECT_EQ(op->Do(2.0, 0.01, &inverted, 0), 1);
  EXPECT_EQ(ReadPlane(*op, 0), before);
  // fNoise 0 divides by exact zeros of |G|^2: a kernel flat to float
  // precision on a 2 x 2 frame has them at every frequency but 0, and 0/0 is
  // NaN; no guard.
  auto tiny = Make(2, 2, 1);
  ASSERT_EQ(tiny->Do(1e6, 0.0, nullptr, 0), 1);
  for (float v : ReadPlane(*tiny, 0)) EXPECT_TRUE(std::isnan(v));
  // Level range 0 gives IEEE results too (no trap, no crash).
  auto flat = Make(8, 8, 1);
  flat->LevelRangeRef()[0] = 0.0;
  EXPECT_EQ(flat->Do(2.0, 0.01, nullptr, 0), 1);
}

// Progress: 6169 around the copy of a partial rectangle, then 6104 with the
// ticks; a failed allocation gives 0, an unchanged image, progress closed.
TEST_P(WienerTest, ProgressAndAllocationFailure) {
  auto op = Make(30, 20, 2);
  RestoreCapture capture;
  op->SetProgressHandle(capture.Window());
  CRect rect(2, 2, 20, 18);
  ASSERT_EQ(op->Do(1.0, 0.01, &rect, 1), 1);
  EXPECT_EQ(capture.Titles(), (std::vector<std::wstring>{Resource(6169), Resource(6104)}));
  EXPECT_EQ(capture.Count(2), 2);
  EXPECT_GT(capture.Count(1), 0);

  const auto before = ReadPlane(*op, 1);
  for (int n : {0, 1, 2}) {  // the work image, then each transform's arrays
    qorimg::restore::testing::FailAllocationsFrom(n);
    EXPECT_EQ(op->Do(1.0, 0.01, &rect, 1), 0) << n;
    qorimg::restore::testing::FailAllocationsFrom(-1);
    EXPECT_EQ(capture.Count(0), capture.Count(2)) << "progress left open " << n;
  }
  EXPECT_EQ(ReadPlane(*op, 1), before);
}

// The gain as it stands, measured on a blurred star field (levels 0..1000,
// background 100): the mean falls by about 500 r^2 (1 + fNoise), and the
// stars get narrower. Prints the numbers.
TEST(WienerMeasure, GainAndSharpeningOnStarField) {
  const int w = 64, h = 64;
  const auto manager = MakeManager(StoreKind::WholePlane);
  for (double r : {1.0, 2.0, 4.0})
    for (double noise : {0.01, 0.001}) {
      const double blur = r / std::sqrt(2.0);
      auto op = AsOperator<CImgWiener>(MakeImage(
          manager, w, h, 1, [&](int x, int y, int) { return StarField(x, y, 100.0, blur); }));
      const auto input = ReadPlane(*op, 0);
      ASSERT_EQ(op->Do(r, noise, nullptr, 0), 1);
      const auto output = ReadPlane(*op, 0);
      double in = 0, out = 0;
      for (int i = 0; i < w * h; ++i) in += input[i], out += output[i];
      const double ratio = out / in, expected = 1.0 / (500 * r * r * (1 + noise));
      EXPECT_NEAR(ratio, expected, 0.05 * expected) << r << " " << noise;
      const auto &s = TestStars()[2];
      const auto before = MeasureStar(input, w, s.x, s.y, 100.0, 8);
      // The output's background is 100 times the gain.
      const auto after = MeasureStar(output, w, s.x, s.y, 100.0 * ratio, 8);
      std::printf("wiener r %.0f noise %.3f: mean out/in %.6g (1/(500 r^2 (1+n)) %.6g), star FWHM %.2f -> %.2f\n", r,
                  noise, ratio, expected, before.fwhm, after.fwhm);
      EXPECT_LT(after.fwhm, before.fwhm) << r << " " << noise;
    }
}

}  // namespace
