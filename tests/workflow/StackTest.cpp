// Stacking: the placement's convention through the stacker's one resampling,
// bands against one band and against distributed bands, the memory budget,
// outliers gone from the sigma stack, normalisation, progress and errors.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <bit>
#include <cstdint>
#include <stdexcept>
#include <tuple>
#include "Scenes.h"
#include "Stack.h"

namespace qorimg::test {
namespace {

using workflow::Combine;
using workflow::Normalization;
using workflow::StackOptions;

constexpr int kW = 72, kH = 56;

// Frame i shifted by (1.3 i - 2.6, 0.7 i - 1.9) and, if turned, by 0.35 i - 0.5 degrees.
FrameSet Shifted(const std::shared_ptr<CVmManager>& m, const std::vector<Star>& stars, int count, bool turned) {
  FrameSet set;
  for (int i = 0; i < count; ++i) {
    const auto p = At(1.3 * i - 2.6, 0.7 * i - 1.9, turned ? 0.35 * i - 0.5 : 0.0);
    set.Add(Frame(m, kW, kH, stars, p, 5, 7 + i), p);
  }
  return set;
}

StackOptions Options(Combine combine, Normalization norm = Normalization::None, int bandRows = 0) {
  StackOptions o;
  o.combine = combine, o.norm = norm, o.bandRows = bandRows;
  return o;
}

// The band temporaries are whole planes whatever the case's store.
class StackRoutes : public RouteTest {
protected:
  void TearDown() override {
    TakeRuns();
    RouteTest::TearDown();
  }
};
QORIMG_ALL_ROUTES(StackRoutes);

// A frame made by the placement's convention goes back onto the reference with
// each interpolation; a sign or centre mistake moves stars by pixels.
TEST_P(StackRoutes, PlacementIsUndone) {
  const auto stars = Stars(kW, kH, 12, 3);
  for (const auto& p : {At(4, -3, 0), At(3.4, -2.7, 0), At(3.4, -2.7, 0.8), At(-1.2, 2.2, -1.5)})
    for (const auto interp : {workflow::Interpolation::Bilinear, workflow::Interpolation::Bicubic,
                              workflow::Interpolation::Lanczos3}) {
      FrameSet set;
      set.Add(Frame(Manager(), kW, kH, stars, p), p);
      StackOptions o = Options(Combine::Median);
      o.interp = interp;
      const auto result = workflow::Stack(set.Pointers(), set.placements, o, Manager());
      // Bilinear flattens a star's peak (up to 20000) by a few per cent.
      const double tolerance = (interp == workflow::Interpolation::Bilinear ? 0.06 : 0.015) * 20000;
      EXPECT_LT(MaxDifference(*result.image, [&](int x, int y) { return Sky(x, y, stars); }, 8), tolerance)
          << p.dx << "," << p.dy << "," << p.rotationDeg << " interp " << int(interp);
    }
}

// Shifted frames: the same bits in bands of 5 rows, in one band, and through
// StackBand. Turned frames: the same bits through StackBand on the same bands;
// across other bands positions differ in their last float bit, so values
// agree to rounding where the combine is continuous (not the clip).
TEST_P(StackRoutes, BandsAgreeWithOneBandAndWithStackBand) {
  const auto stars = Stars(kW, kH, 10, 5);
  for (const bool turned : {false, true}) {
    const FrameSet set = Shifted(Manager(), stars, 6, turned);
    const auto norms = workflow::MeasureNormalization(set.Pointers(), Normalization::None);
    for (const Combine combine : {Combine::Sigma, Combine::Median, Combine::Mean}) {
      const auto whole = workflow::Stack(set.Pointers(), set.placements, Options(combine), Manager());
      const auto banded = workflow::Stack(set.Pointers(), set.placements, Options(combine, {}, 5), Manager());
      ASSERT_EQ(whole.bandRows, kH);
      ASSERT_EQ(banded.bandRows, 5);
      if (!turned) {
        EXPECT_TRUE(SamePixels(*whole.image, *banded.image));
      } else if (combine != Combine::Sigma) {
        EXPECT_LT(MaxDifference(*banded.image, PixelsOf(*whole.image)), 0.5);
      }
      for (int top = 0; top < kH; top += 5) {
        const int rows = std::min(5, kH - top);
        const auto band = workflow::StackBand(set.Pointers(), set.placements, norms, Options(combine), top, rows);
        for (int i = 0; i < rows * kW; ++i)
          ASSERT_EQ(std::bit_cast<std::uint32_t>(band[std::size_t(i)]),
                    std::bit_cast<std::uint32_t>(banded.image->GetPixelGrayRaw(i % kW, top + i / kW, 0)));
      }
    }
  }
}

// A small memory budget gives small bands and the same result.
TEST(Stack, MemoryBudgetChoosesTheBand) {
  const auto m = CreateWholePlaneManager();
  const FrameSet set = Shifted(m, Stars(kW, kH, 10, 9), 8, false);
  StackOptions small = Options(Combine::Sigma);
  small.memoryBytes = 8 * kW * 8 * 6;  // the store of 6 rows of 8 frames
  const auto big = workflow::Stack(set.Pointers(), set.placements, Options(Combine::Sigma), m);
  const auto bounded = workflow::Stack(set.Pointers(), set.placements, small, m);
  EXPECT_EQ(big.bandRows, kH);
  EXPECT_LE(bounded.bandRows, 6);
  EXPECT_TRUE(SamePixels(*big.image, *bounded.image));
  EXPECT_EQ(bounded.rejectedPercent, big.rejectedPercent);
}

// A cosmic ray and a satellite trail in one frame leave the sigma stack (both
// ways of rejecting) at the clean stack's level, where all twelve frames
// overlap (one outlier among n lies at most n / sqrt(n - 1) deviations out);
// the mean keeps them.
TEST(Stack, CosmicRayAndTrailAreRejected) {
  const auto m = CreateWholePlaneManager();
  const auto stars = Stars(kW, kH, 10, 11);
  const FrameSet clean = Shifted(m, stars, 12, true), hit = Shifted(m, stars, 12, true);
  for (int i = 0; i < 3; ++i) hit.images[4]->SetPixelGrayRaw(30 + i, 20, 9000.0f, 0);
  for (int x = 0; x < kW; ++x) hit.images[4]->SetPixelGrayRaw(x, std::min(5 + x * 2 / 3, kH - 1), 2200.0f, 0);
  constexpr int kOverlap = 14;
  const std::pair<Combine, bool> cases[] = {{Combine::Sigma, false}, {Combine::Sigma, true}, {Combine::Mean, false}};
  for (const auto& [combine, discard] : cases) {
    StackOptions o = Options(combine);
    o.discard = discard;
    const auto want = workflow::Stack(clean.Pointers(), clean.placements, o, m);
    const auto got = workflow::Stack(hit.Pointers(), hit.placements, o, m);
    // A star core's samples clipped in one stack and not the other move it by
    // a few tens; the trail moves the mean by 2200 / 12 and more.
    const double moved = MaxDifference(*got.image, PixelsOf(*want.image), kOverlap);
    if (combine == Combine::Sigma) {
      EXPECT_LT(moved, 40.0) << discard;
      EXPECT_GT(got.rejectedPercent, want.rejectedPercent);
    } else {
      EXPECT_GT(moved, 150.0);
      EXPECT_EQ(got.rejectedPercent, 0.0);
    }
  }
}

// Frames i = offset i + gain^i * scene come back to the first frame, to its
// noise (4, against a median of five) and 1 % of the star light (a gain
// measured from sampled rows errs by that); without normalisation they do not.
TEST(Stack, NormalisationBringsFramesToTheReference) {
  const auto m = CreateWholePlaneManager();
  const auto stars = Stars(kW, kH, 6, 13);
  const std::tuple<Normalization, double, double> cases[] = {
      {Normalization::Add, 300.0, 1.0}, {Normalization::Mul, 0.0, 1.3}, {Normalization::AddScale, 250.0, 1.2}};
  for (const auto& [norm, offset, gain] : cases) {
    FrameSet set;
    for (int i = 0; i < 5; ++i) {
      auto image = Frame(m, kW, kH, stars, {}, 4, 20 + i);
      FillImage(*image, [&](int x, int y, int) {
        return float(offset * i + std::pow(gain, i) * image->GetPixelGrayRaw(x, y, 0));
      });
      set.Add(std::move(image));
    }
    EXPECT_NEAR(workflow::MeasureNormalization(set.Pointers(), norm)[4].scale, std::pow(gain, -4), 0.03);
    const auto result = workflow::Stack(set.Pointers(), set.placements, Options(Combine::Median, norm), m);
    const auto plain = workflow::Stack(set.Pointers(), set.placements, Options(Combine::Median), m);
    const CLmrImage& first = *set.images[0];
    for (int i = 0; i < kW * kH; ++i) {
      const double want = first.GetPixelGrayRaw(i % kW, i / kW, 0);
      ASSERT_NEAR(result.image->GetPixelGrayRaw(i % kW, i / kW, 0), want, 30 + 0.01 * (want - 1000)) << int(norm);
    }
    EXPECT_GT(MaxDifference(*plain.image, PixelsOf(first)), 200.0) << int(norm);
  }
}

// A refused placement is left out of the stack and its live time; progress
// comes per band and cancellation between bands; frames of another size are
// named with both sizes.
TEST(Stack, RefusedFramesProgressAndErrors) {
  const auto m = CreateWholePlaneManager();
  FrameSet set;
  for (int i = 0; i < 3; ++i) set.Add(MakeImage(m, kW, kH, 1, [i](int x, int y, int) { return float(x + y + 10 * i); }), {}, 30);
  set.placements[1].ok = false;
  const auto hi = workflow::Stack(set.Pointers(), set.placements, Options(Combine::Max), m);
  EXPECT_EQ(hi.image->GetPixelGrayRaw(5, 6, 0), 31.0f);
  EXPECT_EQ(hi.frames, 2);
  EXPECT_DOUBLE_EQ(hi.liveTime, 60.0);

  std::vector<int> items;
  workflow::Control control{[&](int item, int count, double) { items.push_back(item * 100 + count); },
                            [&] { return items.size() == 2; }};
  EXPECT_THROW(workflow::Stack(set.Pointers(), set.placements, Options(Combine::Median, {}, 10), m, control),
               workflow::Cancelled);
  EXPECT_EQ(items, (std::vector<int>{106, 206}));

  set.Add(MakeImage(m, kW + 1, kH, 1));
  EXPECT_THAT([&] { workflow::Stack(set.Pointers(), set.placements, Options(Combine::Median), m); },
              ::testing::ThrowsMessage<std::invalid_argument>(
                  ::testing::HasSubstr("frame3: size 73 x 56 x 1 differs from frame0 (72 x 56 x 1)")));
}

}  // namespace
}  // namespace qorimg::test
