// Masters: the combine that Auto picks and why, what each combine does with a
// lone outlier, the dark's noise kept on both sides of 0, flats of mean 1 per
// plane or CFA phase, band-by-band equal to one band, and masters of the
// synthetic set against its truth.
#include "Masters.h"

#include <cmath>
#include <numeric>
#include <random>
#include <stdexcept>

#include "WorkflowSupport.h"

namespace qorimg::workflow {
namespace {

using test::FromSamples;
using test::Samples;

double Mean(const std::vector<float>& v) { return std::accumulate(v.begin(), v.end(), 0.0) / v.size(); }

class MastersTest : public ::testing::TestWithParam<test::Store> {
 protected:
  std::shared_ptr<CVmManager> manager_ = test::MakeManager(GetParam());
};

// Frame f is 100 + f everywhere except pixel 1 of frame 0, which is 10000.
TEST_P(MastersTest, CombineChosenAndOutlierHandled) {
  struct Case {
    int frames;
    Combine combine;
    Combine used;
    const char* why;
    float plain, outlier;  // the master at an ordinary pixel and at the outlier
  };
  const Case cases[] = {
      {5, Combine::Auto, Combine::Median, "below 9 frames a one-pass 3-sigma clip cannot reject a lone outlier", 102,
       103},
      {9, Combine::Auto, Combine::Sigma, "sigma clip of 9 frames", 104, 104.5f},
      {4, Combine::Mean, Combine::Mean, "mean of 4 frames, as asked", 101.5f, 2576.5f},
      {4, Combine::Max, Combine::Max, "maximum of 4 frames, as asked", 103, 10000},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.why);
    test::FrameSet set;
    for (int f = 0; f < c.frames; ++f) {
      std::vector<float> samples(6 * 5, 100.0f + f);
      if (f == 0) samples[1] = 10000;
      set.Add(FromSamples(manager_, 6, 5, samples), 10);
    }
    MasterOptions options;
    options.combine = c.combine;
    const MasterResult r = BuildMaster(MasterKind::Bias, set.Pointers(), options, manager_);
    EXPECT_EQ(r.used, c.used);
    EXPECT_NE(r.why.find(c.why), std::string::npos) << r.why;
    EXPECT_DOUBLE_EQ(r.exposure, 10);
    const std::vector<float> m = Samples(*r.image);
    EXPECT_FLOAT_EQ(m[1], c.outlier);
    EXPECT_FLOAT_EQ(m[7], c.plain);
  }
}

// A weak dark current under the read noise: the master dark keeps its negative
// samples and its mean is the current; a cut at 0 would raise the mean.
TEST_P(MastersTest, DarkMinusBiasKeepsNegativeNoise) {
  const int w = 64, h = 32;
  std::mt19937 rng(3);
  std::normal_distribution<float> noise(0, 5);
  test::FrameSet darks;
  for (int f = 0; f < 3; ++f) {
    std::vector<float> s(w * h);
    for (float& v : s) v = 1000 + 2 + noise(rng);
    darks.Add(FromSamples(manager_, w, h, s), 60);
  }
  auto bias = FromSamples(manager_, w, h, std::vector<float>(w * h, 1000));
  MasterOptions options;
  options.bias = bias.get();
  const std::vector<float> m = Samples(*BuildMaster(MasterKind::Dark, darks.Pointers(), options, manager_).image);
  EXPECT_NEAR(Mean(m), 2.0, 0.25);
  EXPECT_LT(*std::min_element(m.begin(), m.end()), -3);
}

// Flats of two brightnesses on a mosaic whose phases answer 1, 0.8, 0.9, 0.6,
// with bias and dark to remove: the master is 1 in each phase under `cfa`,
// and the phases keep their ratios (mean 1 over all) without it.
TEST_P(MastersTest, FlatNormalisedPerPlaneOrPhase) {
  const int w = 8, h = 6;
  const float phase[4] = {1, 0.8f, 0.9f, 0.6f};
  auto bias = FromSamples(manager_, w, h, std::vector<float>(w * h, 500));
  auto dark = FromSamples(manager_, w, h, std::vector<float>(w * h, 20));
  test::FrameSet flats;
  for (float level : {10000.0f, 20000.0f}) {
    std::vector<float> s(w * h);
    for (int y = 0; y < h; ++y)
      for (int x = 0; x < w; ++x) s[y * w + x] = 520 + level * phase[(y & 1) * 2 + (x & 1)];
    flats.Add(FromSamples(manager_, w, h, s), 1);
  }
  for (bool cfa : {true, false}) {
    MasterOptions options;
    options.bias = bias.get(), options.dark = dark.get(), options.cfa = cfa;
    const std::vector<float> m = Samples(*BuildMaster(MasterKind::Flat, flats.Pointers(), options, manager_).image);
    const double scale = cfa ? 1.0 : 4.0 / (1 + 0.8 + 0.9 + 0.6);
    for (int i : {0, 1, w, w + 1}) EXPECT_NEAR(m[i], cfa ? 1.0 : phase[(i / w) * 2 + i % 2] * scale, 1e-5) << i;
  }
}

// Bands of 3 rows give the one-band master bit for bit; cancelling stops it.
TEST_P(MastersTest, BandsEqualOneBandAndCancelStops) {
  synth::Options o;
  o.width = 33, o.height = 17, o.biases = 3;
  const synth::Generator gen(o);
  test::FrameSet set;
  for (int i = 0; i < 3; ++i) set.Add(synth::ToImage(gen.Dark(i), manager_), 60);
  for (Combine combine : {Combine::Median, Combine::Sigma}) {
    MasterOptions one, banded;
    one.combine = banded.combine = combine;
    banded.bandRows = 3;
    one.norm = banded.norm = Normalization::AddScale;
    EXPECT_EQ(Samples(*BuildMaster(MasterKind::Dark, set.Pointers(), one, manager_).image),
              Samples(*BuildMaster(MasterKind::Dark, set.Pointers(), banded, manager_).image));
  }
  int calls = 0;
  Control control{[&](int, int, double) {}, [&] { return ++calls > 2; }};
  EXPECT_THROW(BuildMaster(MasterKind::Bias, set.Pointers(), {}, manager_, control), Cancelled);
}

TEST_P(MastersTest, RefusesFramesOfAnotherSize) {
  test::FrameSet set;
  set.Add(FromSamples(manager_, 4, 3, std::vector<float>(12)));
  set.Add(FromSamples(manager_, 3, 4, std::vector<float>(12)));
  try {
    BuildMaster(MasterKind::Bias, set.Pointers(), {}, manager_);
    FAIL() << "no exception";
  } catch (const std::invalid_argument& e) {
    EXPECT_STREQ(e.what(), "frame1: 3x4x1 differs from frame0: 4x3x1");
  }
  EXPECT_THROW(BuildMaster(MasterKind::Bias, {}, {}, manager_), std::invalid_argument);
}

// Masters of the synthetic RGGB set against its truth: the bias to its read
// noise over the frames, hot pixels' dark current, the flat per phase.
TEST_P(MastersTest, SyntheticMastersMatchTruth) {
  synth::Options o;
  o.width = 64, o.height = 48, o.bayer = true, o.hotPixelFraction = 4e-3;
  const synth::Generator gen(o);
  const synth::Truth& truth = gen.truth();
  auto build = [&](MasterKind kind, int count, const MasterOptions& options) {
    test::FrameSet set;
    for (int i = 0; i < count; ++i)
      set.Add(synth::ToImage(kind == MasterKind::Bias ? gen.Bias(i) : kind == MasterKind::Dark ? gen.Dark(i)
                                                                                              : gen.Flat(i),
                             manager_),
              kind == MasterKind::Flat ? o.flatExposure : o.exposure);
    return BuildMaster(kind, set.Pointers(), options, manager_).image;
  };
  auto bias = build(MasterKind::Bias, 9, {});
  const std::vector<float> b = Samples(*bias);
  double se = 0;
  for (std::size_t i = 0; i < b.size(); ++i) se += (b[i] - truth.bias[i]) * (b[i] - truth.bias[i]);
  EXPECT_LT(std::sqrt(se / b.size()), 1.5 * o.readNoise / 3);

  MasterOptions darkOptions;
  darkOptions.bias = bias.get();
  auto dark = build(MasterKind::Dark, 5, darkOptions);
  const std::vector<float> d = Samples(*dark);
  ASSERT_FALSE(truth.hotPixels.empty());
  for (const synth::Point& p : truth.hotPixels) {
    const std::size_t i = static_cast<std::size_t>(p.y) * o.width + p.x;
    EXPECT_NEAR(d[i], truth.darkRate[i] * o.exposure, 0.1 * truth.darkRate[i] * o.exposure + 10);
  }

  MasterOptions flatOptions;
  flatOptions.bias = bias.get(), flatOptions.cfa = true;
  const std::vector<float> f = Samples(*build(MasterKind::Flat, 5, flatOptions));
  double phaseMean[4] = {}, worst = 0;
  for (std::size_t i = 0; i < f.size(); ++i) phaseMean[(i / o.width % 2) * 2 + i % 2] += truth.flat[i] * 4 / f.size();
  for (std::size_t i = 0; i < f.size(); ++i)
    worst = std::max(worst, std::abs(f[i] - truth.flat[i] / phaseMean[(i / o.width % 2) * 2 + i % 2]));
  EXPECT_LT(worst, 0.03);
}

INSTANTIATE_TEST_SUITE_P(Stores, MastersTest, ::testing::Values(test::Store::WholePlane, test::Store::Block),
                         test::StoreName);

}  // namespace
}  // namespace qorimg::workflow
