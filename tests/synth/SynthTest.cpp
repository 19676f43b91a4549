// The synthetic set: reproducible from its seed, frame by frame in any order,
// with its truth visible in the frames it makes.
#include "Synth.h"

#include <algorithm>
#include <cmath>
#include <gtest/gtest.h>

namespace qorimg::synth {
namespace {

TEST(Synth, SeededAndIndependentOfOrder) {
  Options o;
  o.width = 48, o.height = 32;
  const Generator a(o);
  const std::vector<float> second = a.Light(2).data;
  const Generator b(o);
  EXPECT_EQ(b.Light(2).data, second) << "another generator of the seed";
  EXPECT_EQ(b.Light(1).data, a.Light(1).data);
  EXPECT_NE(a.Light(1).data, second);
  o.seed = 2;
  EXPECT_NE(Generator(o).Light(2).data, second) << "another seed";
  for (float v : second) ASSERT_TRUE(v >= 0 && v <= 65535 && v == std::round(v)) << v;
}

// Each feature of the truth stands out of the frame that carries it, against
// what the frame would be without it.
TEST(Synth, TruthVisibleInFrames) {
  Options o;
  o.width = 96, o.height = 64, o.bayer = true, o.hotPixelFraction = 2e-3;
  const Generator gen(o);
  const Truth& t = gen.truth();
  const int w = o.width;
  auto at = [&](const std::vector<float>& v, int x, int y) { return v[static_cast<std::size_t>(y) * w + x]; };
  const Frame dark = gen.Dark(0), flat = gen.Flat(0);
  ASSERT_FALSE(t.hotPixels.empty());
  for (const Point& p : t.hotPixels) EXPECT_GT(at(dark.data, p.x, p.y) - at(t.bias, p.x, p.y), 100);

  const int light = 2;
  const Frame frame = gen.Light(light);
  const std::vector<float> signal = gen.Signal(light);
  auto excess = [&](const Frame& f, int i, int x, int y) {
    const std::vector<float> s = gen.Signal(i);
    return at(f.data, x, y) - at(t.bias, x, y) - at(t.flat, x, y) * at(s, x, y);
  };
  ASSERT_EQ(t.cosmicRays[light].size() >= 6u, true);
  for (const Point& p : t.cosmicRays[light]) EXPECT_GT(excess(frame, light, p.x, p.y), 1000);
  const Frame trail = gen.Light(t.trail.frame);
  const int mid = w / 2, midY = static_cast<int>(std::lround((t.trail.y0 + t.trail.y1) / 2));
  EXPECT_GT(excess(trail, t.trail.frame, mid, midY), 800) << "the trail";
  EXPECT_LT(std::abs(excess(gen.Light(0), 0, mid, midY)), 400) << "no trail in another frame";

  // Vignetting and the filters: green corner against green centre, red and
  // blue against green beside them.
  EXPECT_LT(at(flat.data, 1, 0), 0.8 * at(flat.data, w / 2 + 1, o.height / 2));
  EXPECT_NEAR(at(t.flat, 40, 30) / at(t.flat, 41, 30), 0.85, 0.05);
  EXPECT_NEAR(at(t.flat, 41, 31) / at(t.flat, 41, 30), 0.70, 0.05);
}

// A star's centroid moves from frame to frame as the placements say. (Its
// faint neighbours pull the centroid alike in every frame.)
TEST(Synth, StarsFollowPlacements) {
  Options o;
  o.width = 160, o.height = 120, o.sky = 0, o.starDensity = 5e-4, o.trailFrame = -1;
  o.placements.resize(3);
  o.placements[1].dx = 12.5, o.placements[1].dy = -7.25, o.placements[1].rotationDeg = 0.8;
  o.placements[2].dx = -30, o.placements[2].dy = 20, o.placements[2].rotationDeg = -1;
  const Generator gen(o);
  const Star* star = nullptr;  // the brightest well inside the frame
  for (const Star& s : gen.truth().stars)
    if (s.x > 50 && s.x < 110 && s.y > 45 && s.y < 75 && (!star || s.flux > star->flux)) star = &s;
  ASSERT_NE(star, nullptr);
  auto centroid = [&](int i) {
    const workflow::PointD p = workflow::FramePoint(gen.truth().placements[i], o.width, o.height, {star->x, star->y});
    const std::vector<float> s = gen.Signal(i);
    double sum = 0, sx = 0, sy = 0;
    for (int y = static_cast<int>(p.y) - 11; y <= static_cast<int>(p.y) + 11; ++y)
      for (int x = static_cast<int>(p.x) - 11; x <= static_cast<int>(p.x) + 11; ++x) {
        if (std::hypot(x - p.x, y - p.y) > 10) continue;
        const double v = s[static_cast<std::size_t>(y) * o.width + x];
        sum += v, sx += v * x, sy += v * y;
      }
    return workflow::PointD{sx / sum - p.x, sy / sum - p.y};
  };
  const workflow::PointD first = centroid(0);
  for (int i = 1; i < gen.Lights(); ++i) {
    const workflow::PointD c = centroid(i);
    EXPECT_NEAR(c.x, first.x, 0.05) << "light " << i;
    EXPECT_NEAR(c.y, first.y, 0.05) << "light " << i;
  }
}

}  // namespace
}  // namespace qorimg::synth
