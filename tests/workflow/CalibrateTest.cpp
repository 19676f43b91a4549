// Light-frame calibration against ccdproc, and the edges ccdproc does not see.
#include "Calibrate.h"

#include <cmath>
#include <stdexcept>

#include "WorkflowSupport.h"
#include "support/ReferenceData.h"

namespace qorimg::workflow {
namespace {

using test::FromSamples;
using test::Samples;

constexpr int W = 40, H = 24;

class CalibrateReference : public ::testing::TestWithParam<test::Store> {};

// ccdproc works in double, the calibration in double rounded to float: the
// results agree to float rounding of values near 500.
TEST_P(CalibrateReference, MatchesCcdproc) {
  const auto manager = test::MakeManager(GetParam());
  auto load = [&](const char* name) {
    const std::vector<float> data = qorimg::test::ReadReference(name);
    EXPECT_EQ(data.size(), static_cast<std::size_t>(W * H)) << name;
    return FromSamples(manager, W, H, data);
  };
  auto bias = load("bias"), dark = load("dark"), flat = load("flat");
  struct Case {
    const char* expected;
    DarkScale scale;
    double darkExposure, pedestal;
  };
  for (const Case& c : {Case{"same_exposure", DarkScale::None, 60, 0},
                        Case{"scaled_pedestal", DarkScale::Exposure, 60, 100}}) {
    SCOPED_TRACE(c.expected);
    auto light = load("light");
    Calibrate(*light, 120, {bias.get(), dark.get(), flat.get(), c.darkExposure, c.scale, c.pedestal, false});
    const std::vector<float> got = Samples(*light), want = qorimg::test::ReadReference(c.expected);
    ASSERT_EQ(got.size(), want.size());
    for (std::size_t i = 0; i < got.size(); ++i) ASSERT_NEAR(got[i], want[i], 1e-3) << "pixel " << i;
  }
}

INSTANTIATE_TEST_SUITE_P(Stores, CalibrateReference, ::testing::Values(test::Store::WholePlane, test::Store::Block),
                         test::StoreName);

TEST(Calibrate, FlatNotAboveZeroLeavesPixelUndividedAndMonoMastersServeEveryPlane) {
  const auto manager = CreateWholePlaneManager();
  auto light = std::make_unique<CLmrImage>(manager, CImage::Float32, 3, 1, 3, 1.0, 0.0, 1,
                                           std::shared_ptr<lumora::Progress>());
  for (int p = 0; p < 3; ++p) {
    float* line = light->GetImageAdr(0, 0, p);
    for (int x = 0; x < 3; ++x) line[x] = 100.0f * (p + 1);
  }
  auto bias = FromSamples(manager, 3, 1, {10, 10, 10});
  auto flat = FromSamples(manager, 3, 1, {0.5f, 0.0f, NAN});
  Calibrate(*light, 0, {bias.get(), nullptr, flat.get(), 0, DarkScale::None, 0, false});
  for (int p = 0; p < 3; ++p) {
    const float v = 100.0f * (p + 1) - 10;
    EXPECT_EQ(Samples(*light, p), (std::vector<float>{2 * v, v, v})) << "plane " << p;
  }
}

TEST(Calibrate, SmallerMasterIsRefusedNamingBothSizes) {
  const auto manager = CreateWholePlaneManager();
  auto light = FromSamples(manager, 4, 2, std::vector<float>(8, 1));
  auto dark = FromSamples(manager, 3, 2, std::vector<float>(6, 1));
  try {
    Calibrate(*light, 0, {nullptr, dark.get(), nullptr, 0, DarkScale::None, 0, false});
    FAIL() << "no exception";
  } catch (const std::invalid_argument& e) {
    EXPECT_STREQ(e.what(), "the dark is 3x2x1, the frames 4x2x1");
  }
  EXPECT_EQ(Samples(*light), std::vector<float>(8, 1)) << "the light was written";
}

}  // namespace
}  // namespace qorimg::workflow
