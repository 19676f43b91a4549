// Gains and curves, bit scaling, gamma and the half-size path against numpy on
// the phase slices (tests/reference/develop_reference.py), on every route.
#include <cmath>
#include "develop/ImgBayerToRgb.h"
#include "support/Fixtures.h"
#include "support/ReferenceData.h"

namespace qorimg::test {
namespace {

constexpr int kW = 40, kH = 30;

class Bayer : public CImgBayerToRgb {
public:
  using CImgBayerToRgb::ChangeBitImage;
  using CImgBayerToRgb::GammaCorrect;
  using CImgBayerToRgb::ToneCurveCorrect;
};

class DevelopReference : public RouteTest {
protected:
  std::unique_ptr<Bayer> Mosaic() const {
    const std::vector<float> data = ReadReference("mosaic");
    EXPECT_EQ(data.size(), std::size_t{kW * kH}) << "no reference data in '" << ReferenceDir() << "'";
    auto image = std::make_unique<Bayer>();
    image->CopyImage(*MakeImage(kW, kH, 1, [&](int x, int y, int) {
      return data.empty() ? 0.0f : data[static_cast<std::size_t>(y * kW + x)];
    }));
    return image;
  }
  // Every sample against the reference `name` (its planes one after the other) within `relative`.
  static void ExpectNear(const CLmrImage &image, const std::string &name, double relative) {
    const std::vector<float> want = ReadReference(name);
    const int w = image.GetWidth(), h = image.GetHeight();
    ASSERT_EQ(want.size(), static_cast<std::size_t>(w * h * image.GetPlanes())) << name;
    EXPECT_TRUE(SamplesNear(image, [&](int x, int y, int p) { return want[static_cast<std::size_t>((p * h + y) * w + x)]; },
                            0, relative)) << name;
  }
};
QORIMG_ALL_ROUTES(DevelopReference);

TEST_P(DevelopReference, ToneCurvesMatchNumpy) {
  double gains[4] = {1.9, 1.0, 0.7, 2.4};
  for (int flags = 0; flags < 8; ++flags) {
    auto img = Mosaic();
    tagBayerStruct s{};
    s.nPattern = 1, s.pGain = gains, s.fCurvePower = 1.7;
    s.bMaker = (flags >> 2) & 1, s.bLevelCut = (flags >> 1) & 1, s.bCurvePower = flags & 1;
    ASSERT_EQ(img->ToneCurveCorrect(img.get(), 0, &s, 100.0f, 4000.0f), 1);
    const std::string name = "tone_" + std::to_string(s.bMaker) + std::to_string(s.bLevelCut) +
                             std::to_string(s.bCurvePower);
    // Single-precision steps against double: a few units in the last place.
    ExpectNear(*img, name, 1e-6);
  }
}

TEST_P(DevelopReference, BitScalingAndGammaMatchNumpy) {
  auto bits = Mosaic();
  ASSERT_EQ(bits->ChangeBitImage(bits.get(), 12, 16, 0), 1);
  ExpectNear(*bits, "bits12", 0);  // one rounding of the same double
  auto ranged = Mosaic();
  ASSERT_EQ(ranged->ChangeBitImage(ranged.get(), 12, 16, 1), 1);
  ExpectNear(*ranged, "bits_range", 0);
  auto gamma = Mosaic();
  gamma->SetLevel(0, 0.0, 4095.0);
  tagBayerStruct s{};
  s.nDstBits = -32, s.fGamma = 2.2;
  ASSERT_EQ(gamma->GammaCorrect(gamma.get(), &s), 1);
  ExpectNear(*gamma, "gamma", 1e-6);
}

// Medians of the phases, unsampled on this small mosaic; the gains in single
// precision.
TEST_P(DevelopReference, GainsMatchNumpy) {
  for (int pattern = 1; pattern <= 4; ++pattern) {
    auto img = Mosaic();
    double gains[4] = {};
    ASSERT_EQ(img->GetGain(pattern, gains), 1);
    const std::vector<float> want = ReadReference("gain_" + std::to_string(pattern));
    ASSERT_EQ(want.size(), 4u);
    for (int k = 0; k < 4; ++k) EXPECT_EQ(static_cast<float>(gains[k]), want[static_cast<std::size_t>(k)]) << k;
    EXPECT_EQ(img->GetWidth(), kW);  // the samples are back where they were
    EXPECT_EQ(ReadPlane(*img, 0), ReadReference("mosaic"));
  }
}

TEST_P(DevelopReference, HalfSizeMatchesNumpy) {
  for (int pattern = 1; pattern <= 4; ++pattern)
    for (int green : {0, 1, 2, 3, 4, -1}) {
      auto img = Mosaic();
      tagBayerStruct s{};
      s.nPattern = pattern, s.nRoundUp = 1, s.nRoundUpGreen = green;
      ASSERT_EQ(img->Do(s, 0), 1);
      ExpectNear(*img, "roundup_" + std::to_string(pattern) + "_" + std::to_string(green), 0);
    }
}

}  // namespace
}  // namespace qorimg::test
