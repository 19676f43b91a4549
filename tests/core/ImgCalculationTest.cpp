// CImgCalculation on every route against a double-precision reference.
#include <cmath>
#include "core/ImgCalculation.h"
#include "sibling/SimdOverride.h"
#include "support/Fixtures.h"

namespace qorimg::test {
namespace {

class ImgCalculationTest : public RouteTest {
protected:
  Route Taken() const { return Case().Expected(true); }
};
QORIMG_ALL_ROUTES(ImgCalculationTest);

// The arithmetic in double, rounded once: equal to the float operation for add,
// subtract and multiply (one rounding of the exact result either way). Division
// on the vector and pipeline routes multiplies by a rounded reciprocal, which can
// differ from the true quotient by one unit in the last place.
double Reference(double s, double v, int mode, bool clip) {
  switch (mode) {
    case 0: return static_cast<float>(s + v);
    case 1: { const float r = static_cast<float>(s - v); return clip && !(r > 0.0f) ? 0.0f : r; }
    case 2: return static_cast<float>(s * v);
    case 3: return static_cast<float>(s / v);
  }
  return s;
}

TEST_P(ImgCalculationTest, EveryModeMatchesTheReferenceOverOddSizes) {
  for (int mode = 0; mode <= 3; ++mode)
    for (int clip = 0; clip <= 1; ++clip) {
      auto src = MakeImage(37, 11, 3);
      CImgCalculation target;
      ASSERT_TRUE(target.Create(*src, nullptr));
      const double value = mode == 3 ? 3.0 : 7.5;
      target.Do(value, mode, clip, src.get(), nullptr, 0);
      for (int p = 0; p < 3; ++p)
        for (int y = 0; y < 11; ++y)
          for (int x = 0; x < 37; ++x) {
            const double want = Reference(Pattern(x, y, p), static_cast<float>(value), mode, clip);
            const float got = target.GetPixelGrayRaw(x, y, p);
            if (mode == 3 && Taken() != Route::Block)
              ASSERT_NEAR(got, want, std::abs(want) * 1.2e-7) << mode << " " << x << "," << y;
            else
              ASSERT_EQ(got, static_cast<float>(want)) << mode << " " << clip << " " << x << "," << y;
          }
    }
}

TEST_P(ImgCalculationTest, InPlaceOnAPartialRectangleLeavesTheRestAlone) {
  auto img = MakeImage(29, 13, 1);
  CRect rect(-4, 3, 17, 40);  // clipped to (0, 3, 17, 13)
  CImgCalculation::Calculate(*img, 2.0, 2, 0, img.get(), &rect, 0);
  EXPECT_TRUE(SamplesNear(*img, [](int x, int y, int) { return x < 17 && y >= 3 ? Pattern(x, y, 0) * 2.0f : Pattern(x, y, 0); }, 0));
  CRect outside(40, 40, 50, 50);
  CImgCalculation::Calculate(*img, 100.0, 0, 0, img.get(), &outside, 0);
  EXPECT_EQ(img->GetPixelGrayRaw(20, 0, 0), Pattern(20, 0, 0));
  EXPECT_EQ(img->GetLevelMax(0), 1000.0);  // levels untouched
}

TEST_P(ImgCalculationTest, DivisionByZeroAndUnknownModesDifferByRoute) {
  auto src = MakeImage(9, 4, 1);
  for (int mode : {3, 17}) {
    auto fresh = MakeImage(9, 4, 1, [](int, int, int) { return -3.0f; });
    CImgCalculation::Calculate(*fresh, 0.0, mode, 0, src.get(), nullptr, 0);
    // The line loop copies the source; the vector loop and the pipeline do nothing.
    const float want = Taken() == Route::Block ? Pattern(8, 3, 0) : -3.0f;
    EXPECT_EQ(fresh->GetPixelGrayRaw(8, 3, 0), want) << mode;
  }
}

TEST_P(ImgCalculationTest, ClipTurnsNaNAndNegativeToZeroAndNoClipKeepsThem) {
  auto src = MakeImage(6, 1, 1, [](int x, int, int) { return std::array<float, 6>{NAN, -5, 3, INFINITY, 0, 10}[x]; });
  auto clipped = MakeImage(6, 1, 1);
  CImgCalculation::Calculate(*clipped, 4.0, 1, 1, src.get(), nullptr, 0);
  EXPECT_EQ(ReadPlane(*clipped, 0), (std::vector<float>{0, 0, 0, INFINITY, 0, 6}));
  auto kept = MakeImage(6, 1, 1);
  CImgCalculation::Calculate(*kept, 4.0, 1, 0, src.get(), nullptr, 0);
  EXPECT_EQ(kept->GetPixelGrayRaw(1, 0, 0), -9.0f);
  EXPECT_TRUE(std::isnan(kept->GetPixelGrayRaw(0, 0, 0)));
}

TEST_P(ImgCalculationTest, SourceAndTargetOnDifferentStoresTakeTheLineLoops) {
  auto src = test::MakeImage(CreateBlockManager(1 << 20, 2), 15, 6, 1);
  auto target = MakeImage(15, 6, 1);
  CImgCalculation::Calculate(*target, 1.0, 0, 0, src.get(), nullptr, 0);
  EXPECT_EQ(target->GetPixelGrayRaw(14, 5, 0), Pattern(14, 5, 0) + 1.0f);
  const auto runs = TakeRuns();
  ASSERT_EQ(runs.size(), 1u);
  EXPECT_EQ(runs[0].chosen, Case().vector ? Route::Vector : Route::Block);
}

// A frame far larger than the block store's budget: the parallel loops keep
// their line addresses valid while blocks move out to the file and back.
TEST(ImgCalculationLargeFrame, BlockStoreBeyondItsBudgetGivesExactResults) {
  auto manager = CreateBlockManager(1 << 20, 4);  // 1 MiB resident
  const int width = 1500, height = 700;             // 4.2 MB a plane
  auto src = MakeImage(manager, width, height, 1);
  auto target = MakeImage(manager, width, height, 1);
  for (unsigned simd : {0u, 2u}) {
    qorimg::testing::OverrideSIMD(simd);
    CImgCalculation::Calculate(*target, 2.0, 2, 0, src.get(), nullptr, 0);
    for (int y = 0; y < height; y += 7) {
      const float *line = target->GetImageAdr(0, y, 0, CImage::ReadOnly);
      for (int x = 0; x < width; ++x) ASSERT_EQ(line[x], Pattern(x, y, 0) * 2.0f);
    }
  }
  qorimg::testing::ClearSIMDOverride();
  EXPECT_LE(manager->GetPeakResidentBytes(), manager->GetResidentBudget() + (1u << 17));
}

}  // namespace
}  // namespace qorimg::test
