// The display stretch: on a star field every automatic levels mode shows the
// sky dark grey (not black) and the stars white, with and without digital
// development; fixed levels are kept.
#include <gtest/gtest.h>

#include <random>
#include "Scenes.h"
#include "Stretch.h"

namespace qorimg::test {
namespace {

using workflow::LevelsMode;

constexpr int kW = 160, kH = 120;

// A stacked-looking frame: sky 1000 with noise 10, a gradient and stars.
std::unique_ptr<CLmrImage> StarField(const std::shared_ptr<CVmManager>& m, const std::vector<Star>& stars) {
  return Frame(m, kW, kH, stars, {}, 10.0, 3);
}

// A value's grey on a 0..255 display between black and white.
double Grey(double v, const workflow::Stretched& s) { return (v - s.black) / (s.white - s.black) * 255.0; }

TEST(Stretch, SkyIsDarkGreyAndStarsWhite) {
  const auto m = CreateWholePlaneManager();
  const auto stars = Stars(kW, kH, 25, 21);
  const auto frame = StarField(m, stars);
  struct Case {
    LevelsMode mode;
    double develop;
  };
  for (const Case c : {Case{LevelsMode::Median, 0}, Case{LevelsMode::Histogram, 0}, Case{LevelsMode::Normal, 0},
                       Case{LevelsMode::Median, 3}}) {
    workflow::StretchOptions o;
    o.levels = c.mode, o.developSigma = c.develop;
    const workflow::Stretched s = workflow::Stretch(*frame, o, m);
    ASSERT_TRUE(s.image);
    EXPECT_EQ(s.image->GetLevelMin(0), s.black);
    EXPECT_EQ(s.image->GetLevelMax(0), s.white);
    // The sky's median (star-free ground at the frame's middle row) between
    // 15 and 70 of 255: dark grey.
    std::vector<float> sky;
    for (int x = 0; x < kW; ++x) {
      double nearest = 1e9;
      for (const Star& st : stars) nearest = std::min(nearest, std::hypot(st.x - x, st.y - kH / 2));
      if (nearest > 8) sky.push_back(s.image->GetPixelGrayRaw(x, kH / 2, 0));
    }
    ASSERT_GT(sky.size(), 40u);
    std::nth_element(sky.begin(), sky.begin() + sky.size() / 2, sky.end());
    const double grey = Grey(sky[sky.size() / 2], s);
    EXPECT_GT(grey, 15) << int(c.mode) << " develop " << c.develop;
    EXPECT_LT(grey, 70) << int(c.mode) << " develop " << c.develop;
    // Every star of 2000 or more saturates at its core.
    for (const Star& st : stars)
      if (st.peak >= 2000) {
        const double core = s.image->GetPixelGrayRaw(int(std::lround(st.x)), int(std::lround(st.y)), 0);
        EXPECT_GE(Grey(core, s), 250) << int(c.mode) << " develop " << c.develop << " star of " << st.peak;
      }
  }
}

TEST(Stretch, FixedLevelsAreKeptAndMustBeOrdered) {
  const auto m = CreateWholePlaneManager();
  const auto frame = StarField(m, Stars(kW, kH, 5, 23));
  workflow::StretchOptions o;
  o.levels = LevelsMode::Fixed, o.black = 900, o.white = 1500;
  const auto s = workflow::Stretch(*frame, o, m);
  EXPECT_EQ(s.black, 900);
  EXPECT_EQ(s.white, 1500);
  EXPECT_TRUE(SamePixels(*s.image, *frame));
  o.white = 900;
  EXPECT_THROW(workflow::Stretch(*frame, o, m), std::invalid_argument);
}

}  // namespace
}  // namespace qorimg::test
