// The display stretch: on a star field every automatic levels mode, and
// development, shows the sky dark grey (not black) and the stars white.
#include <gtest/gtest.h>

#include <tuple>
#include "Scenes.h"
#include "Stretch.h"

namespace qorimg::test {
namespace {

using workflow::LevelsMode;

TEST(Stretch, SkyIsDarkGreyAndStarsWhite) {
  const auto m = CreateWholePlaneManager();
  const int w = 160, h = 120;
  const auto stars = Stars(w, h, 25, 21);
  const auto frame = Frame(m, w, h, stars, {}, 10.0, 3);  // sky 1000, noise 10
  // In colour the skies differ by 150 from plane to plane.
  const auto colour = MakeImage(m, w, h, 3, [&](int x, int y, int p) { return frame->GetPixelGrayRaw(x, y, 0) + 150.0f * p; });
  const std::tuple<LevelsMode, double, const CLmrImage*> cases[] = {
      {LevelsMode::Median, 0, frame.get()}, {LevelsMode::Histogram, 0, frame.get()}, {LevelsMode::Normal, 0, frame.get()},
      {LevelsMode::Median, 3, frame.get()}, {LevelsMode::Histogram, 0, colour.get()}, {LevelsMode::Median, 3, colour.get()}};
  for (const auto& [mode, develop, image] : cases) {
    workflow::StretchOptions o;
    o.levels = mode, o.developSigma = develop;
    const workflow::Stretched s = workflow::Stretch(*image, o, m);
    for (int p = 0; p < image->GetPlanes(); ++p) {
      EXPECT_EQ(std::pair(s.image->GetLevelMin(p), s.image->GetLevelMax(p)), std::pair(s.black, s.white));
      auto grey = [&](int x, int y) { return (s.image->GetPixelGrayRaw(x, y, p) - s.black) / (s.white - s.black) * 255; };
      // The median of the middle row's star-free sky: 15 to 70 of 255.
      std::vector<double> sky;
      for (int x = 0; x < w; ++x)
        if (std::all_of(stars.begin(), stars.end(), [&](const Star& st) { return std::hypot(st.x - x, st.y - h / 2) > 8; }))
          sky.push_back(grey(x, h / 2));
      ASSERT_GT(sky.size(), 40u);
      std::nth_element(sky.begin(), sky.begin() + sky.size() / 2, sky.end());
      EXPECT_GT(sky[sky.size() / 2], 15) << int(mode) << " develop " << develop << " plane " << p;
      EXPECT_LT(sky[sky.size() / 2], 70) << int(mode) << " develop " << develop << " plane " << p;
      for (const Star& st : stars)
        EXPECT_TRUE(st.peak < 2000 || grey(int(std::lround(st.x)), int(std::lround(st.y))) >= 250) << st.peak;
    }
  }
  // Fixed levels are kept, the frame untouched; they must be ordered.
  workflow::StretchOptions o;
  o.levels = LevelsMode::Fixed, o.black = 900, o.white = 1500;
  const auto s = workflow::Stretch(*frame, o, m);
  EXPECT_EQ(std::pair(s.black, s.white), std::pair(900.0, 1500.0));
  EXPECT_TRUE(SamePixels(*s.image, *frame));
  o.white = 900;
  EXPECT_THROW(workflow::Stretch(*frame, o, m), std::invalid_argument);
}

}  // namespace
}  // namespace qorimg::test
