// Stacking: the placement's convention through the stacker's one resampling,
// bands against one big band and against distributed bands, outliers gone
// from the sigma stack, normalisation, and progress and cancellation.
#include <gtest/gtest.h>

#include <algorithm>
#include <bit>
#include <cstdint>
#include <cmath>
#include <stdexcept>
#include "Scenes.h"
#include "Stack.h"

namespace qorimg::test {
namespace {

using workflow::Combine;
using workflow::FrameSource;
using workflow::ImageSource;
using workflow::Interpolation;
using workflow::Normalization;
using workflow::Placement;
using workflow::StackOptions;

constexpr int kW = 72, kH = 56;

Placement At(double dx, double dy, double degrees) {
  Placement p;
  p.dx = dx, p.dy = dy, p.rotationDeg = degrees;
  return p;
}

// Frames of one star field under the given placements, with their sources.
struct FrameSet {
  std::vector<std::unique_ptr<CLmrImage>> images;
  std::vector<std::unique_ptr<ImageSource>> sources;
  std::vector<Placement> placements;
  std::vector<FrameSource*> Pointers() const {
    std::vector<FrameSource*> out;
    for (const auto& s : sources) out.push_back(s.get());
    return out;
  }
  void Add(std::unique_ptr<CLmrImage> image, const Placement& p, double exposure = 0) {
    sources.push_back(std::make_unique<ImageSource>(*image, exposure, "frame" + std::to_string(images.size())));
    images.push_back(std::move(image));
    placements.push_back(p);
  }
};

FrameSet Shifted(const std::shared_ptr<CVmManager>& m, const std::vector<Star>& stars, int count, bool turned,
                 double noise = 5) {
  FrameSet set;
  for (int i = 0; i < count; ++i) {
    const Placement p = At(1.3 * i - 2.6, 0.7 * i - 1.9, turned ? 0.35 * i - 0.5 : 0.0);
    set.Add(Frame(m, kW, kH, stars, p, noise, 7 + i), p);
  }
  return set;
}

StackOptions Options(Combine combine, Normalization norm = Normalization::None, int bandRows = 0) {
  StackOptions o;
  o.combine = combine, o.norm = norm, o.bandRows = bandRows;
  return o;
}

// The largest difference over pixels at least `border` from the edges.
double MaxInteriorDifference(const CLmrImage& a, const std::function<double(int, int)>& want, int border) {
  double worst = 0;
  for (int y = border; y < a.GetHeight() - border; ++y)
    for (int x = border; x < a.GetWidth() - border; ++x)
      worst = std::max(worst, std::abs(a.GetPixelGrayRaw(x, y, 0) - want(x, y)));
  return worst;
}

class StackRoutes : public RouteTest {
protected:
  // The workflow's band temporaries are whole planes whatever the case's store.
  void TearDown() override {
    TakeRuns();
    RouteTest::TearDown();
  }
};
QORIMG_ALL_ROUTES(StackRoutes);

// A frame made from the reference by the placement's convention is moved back
// onto the reference by the stacker, with each interpolation; a sign or centre
// mistake moves the stars by pixels, far outside the tolerance.
TEST_P(StackRoutes, PlacementIsUndoneOnEveryRoute) {
  const auto stars = Stars(kW, kH, 12, 3);
  const std::vector<Placement> cases = {At(4, -3, 0), At(3.4, -2.7, 0), At(3.4, -2.7, 0.8), At(-1.2, 2.2, -1.5)};
  for (const Placement& p : cases)
    for (const Interpolation interp : {Interpolation::Bilinear, Interpolation::Bicubic, Interpolation::Lanczos3}) {
      FrameSet set;
      set.Add(Frame(Manager(), kW, kH, stars, p), p);
      StackOptions o = Options(Combine::Median);
      o.interp = interp;
      const auto result = workflow::Stack(set.Pointers(), set.placements, o, Manager());
      // Bilinear smooths a sigma-2 star's peak by a few per cent.
      const double tolerance = (interp == Interpolation::Bilinear ? 0.06 : 0.015) * 20000;
      EXPECT_LT(MaxInteriorDifference(*result.image, [&](int x, int y) { return Sky(x, y, stars); }, 8), tolerance)
          << p.dx << "," << p.dy << "," << p.rotationDeg << " interp " << int(interp);
    }
}

// Shifted frames give the same bits in bands of 5 rows, in one band, and band
// by band through StackBand; turned frames the same bits through StackBand on
// the same bands, and in other bands the same values to float rounding of the
// turned positions.
TEST_P(StackRoutes, BandsAgreeWithOneBandAndWithStackBand) {
  const auto stars = Stars(kW, kH, 10, 5);
  for (const bool turned : {false, true}) {
    const FrameSet set = Shifted(Manager(), stars, 6, turned);
    for (const Combine combine : {Combine::Sigma, Combine::Median, Combine::Mean}) {
      const auto whole = workflow::Stack(set.Pointers(), set.placements, Options(combine), Manager());
      const auto banded = workflow::Stack(set.Pointers(), set.placements, Options(combine, {}, 5), Manager());
      ASSERT_EQ(whole.bandRows, kH);
      ASSERT_EQ(banded.bandRows, 5);
      if (turned) {
        // Positions differ in their last float bit; a clip decision may then
        // differ too, so only the continuous combines are compared.
        if (combine != Combine::Sigma) {
          EXPECT_LT(MaxInteriorDifference(*banded.image,
                                          [&](int x, int y) { return whole.image->GetPixelGrayRaw(x, y, 0); }, 0),
                    0.5);
        }
      } else {
        EXPECT_TRUE(SamePixels(*whole.image, *banded.image));
      }
      const auto norms = workflow::MeasureNormalization(set.Pointers(), Normalization::None);
      for (int top = 0; top < kH; top += 5) {
        const int rows = std::min(5, kH - top);
        const auto band = workflow::StackBand(set.Pointers(), set.placements, norms, Options(combine), top, rows);
        for (int y = 0; y < rows; ++y)
          for (int x = 0; x < kW; ++x)
            ASSERT_EQ(std::bit_cast<std::uint32_t>(band[std::size_t(y * kW + x)]),
                      std::bit_cast<std::uint32_t>(banded.image->GetPixelGrayRaw(x, top + y, 0)))
                << x << "," << top + y;
      }
    }
  }
}

// A small memory budget gives small bands and the same result as one band.
TEST(Stack, MemoryBudgetChoosesSmallBandsWithTheSameResult) {
  const auto m = CreateWholePlaneManager();
  const FrameSet set = Shifted(m, Stars(kW, kH, 10, 9), 8, false);
  StackOptions small = Options(Combine::Sigma);
  small.memoryBytes = 8 * kW * 8 * 6;  // the store of about 6 rows of 8 frames
  const auto big = workflow::Stack(set.Pointers(), set.placements, Options(Combine::Sigma), m);
  const auto bounded = workflow::Stack(set.Pointers(), set.placements, small, m);
  EXPECT_EQ(big.bandRows, kH);
  EXPECT_GE(bounded.bandRows, 1);
  EXPECT_LE(bounded.bandRows, 6);
  EXPECT_TRUE(SamePixels(*big.image, *bounded.image));
  EXPECT_EQ(bounded.rejectedPercent, big.rejectedPercent);
  // The budget scales the band: 64 times the memory, about 64 times the rows.
  small.memoryBytes *= 64;
  EXPECT_GT(workflow::ChooseBandRows(kW, 4000, 1, 8, set.placements, small), 40 * bounded.bandRows);
}

// A cosmic ray and a satellite trail in one frame leave the sigma stack (both
// ways of rejecting) at the level of the clean stack (a star core's samples
// clipped in one and not the other move it by a few tens); the mean keeps them
// (2200 / 12 and more).
TEST(Stack, CosmicRayAndTrailAreRejected) {
  const auto m = CreateWholePlaneManager();
  const auto stars = Stars(kW, kH, 10, 11);
  // Twelve frames: one outlier among n lies at most n / sqrt(n - 1) deviations
  // from the median, which must exceed kappa; so only where every frame
  // covers the reference (14 pixels in from the edges) is it sure to go.
  constexpr int kCovered = 14;
  FrameSet clean = Shifted(m, stars, 12, true), hit = Shifted(m, stars, 12, true);
  CLmrImage& frame = *hit.images[4];
  for (int i = 0; i < 3; ++i) frame.SetPixelGrayRaw(30 + i, 20, 9000.0f, 0);
  for (int x = 0; x < kW; ++x) frame.SetPixelGrayRaw(x, std::clamp(5 + x * 2 / 3, 0, kH - 1), 1200.0f + 1000.0f, 0);
  for (const bool discard : {false, true}) {
    StackOptions o = Options(Combine::Sigma);
    o.discard = discard;
    const auto want = workflow::Stack(clean.Pointers(), clean.placements, o, m);
    const auto got = workflow::Stack(hit.Pointers(), hit.placements, o, m);
    EXPECT_LT(MaxInteriorDifference(*got.image, [&](int x, int y) { return want.image->GetPixelGrayRaw(x, y, 0); },
                                    kCovered),
              40.0);
    EXPECT_GT(got.rejectedPercent, want.rejectedPercent);
  }
  const auto mean = workflow::Stack(hit.Pointers(), hit.placements, Options(Combine::Mean), m);
  const auto meanClean = workflow::Stack(clean.Pointers(), clean.placements, Options(Combine::Mean), m);
  EXPECT_GT(MaxInteriorDifference(*mean.image, [&](int x, int y) { return meanClean.image->GetPixelGrayRaw(x, y, 0); },
                                  kCovered),
            150.0);
  EXPECT_EQ(mean.rejectedPercent, 0.0);
}

// Frames at another sky level and gain are brought to the first frame's.
TEST(Stack, NormalisationBringsFramesToTheReference) {
  const auto m = CreateWholePlaneManager();
  const auto stars = Stars(kW, kH, 6, 13);
  struct Case {
    Normalization norm;
    double offset, gain;  // frame i = offset * i + gain^i * scene
  };
  for (const Case c : {Case{Normalization::Add, 300, 1}, Case{Normalization::Mul, 0, 1.3},
                       Case{Normalization::AddScale, 250, 1.2}}) {
    FrameSet set;
    for (int i = 0; i < 5; ++i) {
      auto image = Frame(m, kW, kH, stars, {}, 4, 20 + i);
      const float g = float(std::pow(c.gain, i)), a = float(c.offset * i);
      FillImage(*image, [&](int x, int y, int) { return a + g * image->GetPixelGrayRaw(x, y, 0); });
      set.Add(std::move(image), {});
    }
    const auto norms = workflow::MeasureNormalization(set.Pointers(), c.norm);
    ASSERT_EQ(norms.size(), 5u);
    EXPECT_NEAR(norms[4].scale, c.norm == Normalization::Add ? 1.0 : std::pow(c.gain, -4), 0.03);
    const auto result = workflow::Stack(set.Pointers(), set.placements, Options(Combine::Median, c.norm), m);
    const auto plain = workflow::Stack(set.Pointers(), set.placements, Options(Combine::Median), m);
    // The noise of 4 of the first frame against the median of five, plus 1 %
    // of the star light: a gain measured from sampled rows errs by that much.
    double worst = 0;
    for (int y = 0; y < kH; ++y)
      for (int x = 0; x < kW; ++x) {
        const double want = set.images[0]->GetPixelGrayRaw(x, y, 0);
        worst = std::max(worst, std::abs(result.image->GetPixelGrayRaw(x, y, 0) - want) / (30 + 0.01 * (want - 1000)));
      }
    EXPECT_LT(worst, 1.0) << int(c.norm);
    EXPECT_GT(MaxInteriorDifference(*plain.image, [&](int x, int y) { return set.images[0]->GetPixelGrayRaw(x, y, 0); }, 0),
              200.0)
        << int(c.norm);
  }
}

// Min and max pick the extremes; a refused placement is left out of the
// stack and its live time; progress per band; cancellation between bands;
// frames of another size are named with both sizes.
TEST(Stack, ExtremesRefusedFramesProgressAndErrors) {
  const auto m = CreateWholePlaneManager();
  FrameSet set;
  for (int i = 0; i < 3; ++i)
    set.Add(MakeImage(m, kW, kH, 1, [i](int x, int y, int) { return float(x + y + 10 * i); }), {}, 30);
  set.placements[1].ok = false;
  const auto lo = workflow::Stack(set.Pointers(), set.placements, Options(Combine::Min), m);
  const auto hi = workflow::Stack(set.Pointers(), set.placements, Options(Combine::Max), m);
  EXPECT_EQ(lo.image->GetPixelGrayRaw(5, 6, 0), 11.0f);
  EXPECT_EQ(hi.image->GetPixelGrayRaw(5, 6, 0), 31.0f);
  EXPECT_EQ(hi.frames, 2);
  EXPECT_DOUBLE_EQ(hi.liveTime, 60.0);

  std::vector<int> items;
  workflow::Control control;
  control.progress = [&](int item, int count, double) {
    items.push_back(item);
    EXPECT_EQ(count, (kH + 9) / 10);
  };
  control.cancelled = [&] { return items.size() == 2; };
  EXPECT_THROW(workflow::Stack(set.Pointers(), set.placements, Options(Combine::Median, {}, 10), m, control),
               workflow::Cancelled);
  EXPECT_EQ(items, (std::vector<int>{1, 2}));

  FrameSet mixed;
  mixed.Add(MakeImage(m, kW, kH, 1), {});
  mixed.Add(MakeImage(m, kW + 1, kH, 1), {});
  try {
    workflow::Stack(mixed.Pointers(), mixed.placements, Options(Combine::Median), m);
    ADD_FAILURE() << "frames of two sizes were stacked";
  } catch (const std::invalid_argument& e) {
    EXPECT_NE(std::string(e.what()).find("73 x 56 x 1"), std::string::npos) << e.what();
    EXPECT_NE(std::string(e.what()).find("72 x 56 x 1"), std::string::npos) << e.what();
  }
}

}  // namespace
}  // namespace qorimg::test
