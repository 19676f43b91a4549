// Registration of synthetic lights against their known placements: the error
// at the centre and the four corners, for shifts up to 50 px and rotations up
// to 1 degree; frames that cannot be registered; the placement's convention.
#include "Register.h"

#include <cmath>

#include "WorkflowSupport.h"

namespace qorimg::workflow {
namespace {

Placement At(double dx, double dy, double rotation) {
  Placement p;
  p.dx = dx, p.dy = dy, p.rotationDeg = rotation;
  return p;
}

// The worst distance, over the centre and the four corners, between where
// the two placements put a reference point.
double WorstError(const Placement& a, const Placement& b, int w, int h) {
  double worst = 0;
  for (PointD q : {PointD{(w - 1) / 2.0, (h - 1) / 2.0}, PointD{0, 0}, PointD{w - 1.0, 0}, PointD{0, h - 1.0},
                   PointD{w - 1.0, h - 1.0}}) {
    const PointD pa = FramePoint(a, w, h, q), pb = FramePoint(b, w, h, q);
    worst = std::max(worst, std::hypot(pa.x - pb.x, pa.y - pb.y));
  }
  return worst;
}

// Counter-clockwise on screen with rows top-down: a point right of the centre
// goes up; ReferencePoint undoes FramePoint.
TEST(Placement, ConventionAndInverse) {
  const Placement quarter = At(0, 0, 90);
  const PointD up = FramePoint(quarter, 21, 11, {20, 5});
  EXPECT_NEAR(up.x, 10, 1e-12);
  EXPECT_NEAR(up.y, -5, 1e-12);
  const Placement p = At(3.5, -2.25, 0.7);
  const PointD q = ReferencePoint(p, 64, 48, FramePoint(p, 64, 48, {5, 40}));
  EXPECT_NEAR(q.x, 5, 1e-12);
  EXPECT_NEAR(q.y, 40, 1e-12);
}

// Light i calibrated by the truth: the sensor's fixed pattern (hot pixels,
// bias columns) would otherwise correlate at no shift. A mosaic is left
// without its flat, so that its 2x2 filter pattern stays in.
std::unique_ptr<CLmrImage> Calibrated(const synth::Generator& gen, int i, const std::shared_ptr<CVmManager>& manager) {
  synth::Frame f = gen.Light(i);
  const synth::Truth& t = gen.truth();
  for (std::size_t k = 0; k < f.data.size(); ++k)
    f.data[k] = (f.data[k] - t.bias[k] - t.darkRate[k] * f.exposure) / (gen.options().bayer ? 1.0f : t.flat[k]);
  return synth::ToImage(f, manager);
}

class RegisterTest : public ::testing::TestWithParam<test::Store> {};

// 1024 x 768 frames: on smaller ones the sparse synthetic field leaves the
// tiles too few bright stars for the 0.05 px goal. Mono lights, and an RGGB
// mosaic.
TEST(Register, MeasuresKnownPlacements) {
  const auto manager = CreateWholePlaneManager();
  synth::Options mono, mosaic;
  mono.width = mosaic.width = 1024, mono.height = mosaic.height = 768;
  mono.placements = {{}, At(50, -50, 1), At(-50, 50, -1), At(20.6, -33.4, 0)};
  mosaic.bayer = true, mosaic.placements = {{}, At(-12.4, 31.7, 0.6)};
  for (const synth::Options& o : {mono, mosaic}) {
    const synth::Generator gen(o);
    const auto reference = Calibrated(gen, 0, manager);
    const Registrar withRotation(*reference, {RegisterMethod::PocRotation, 0, 0}, manager);
    const Registrar shiftOnly(*reference, {RegisterMethod::Poc, 0, 0}, manager);
    for (int i = 1; i < gen.Lights(); ++i) {
      const Placement& truth = gen.truth().placements[i];
      const Placement got =
          (truth.rotationDeg != 0 ? withRotation : shiftOnly).Measure(*Calibrated(gen, i, manager));
      ASSERT_TRUE(got.ok) << got.reason;
      const double error = WorstError(got, truth, o.width, o.height);
      std::printf("%s light %d: dx %.4f (%.4f) dy %.4f (%.4f) rotation %.5f (%.5f) peak %.3f: error %.4f px\n",
                  o.bayer ? "mosaic" : "mono", i, got.dx, truth.dx, got.dy, truth.dy, got.rotationDeg,
                  truth.rotationDeg, got.peak, error);
      EXPECT_LE(error, 0.05) << "light " << i;
    }
  }
}

TEST_P(RegisterTest, UnregistrableFramesSayWhy) {
  const auto manager = test::MakeManager(GetParam());
  synth::Options o;
  o.width = 256, o.height = 192;
  const synth::Generator gen(o);
  const auto reference = Calibrated(gen, 0, manager);
  const Registrar registrar(*reference, {}, manager);
  struct Case {
    std::unique_ptr<CLmrImage> frame;
    const char* reason;
  } cases[] = {
      {test::FromSamples(manager, 256, 192, std::vector<float>(256 * 192, 1000)), "no correlation peak"},
      {synth::ToImage(gen.Bias(0), manager), "no correlation peak"},
      {test::FromSamples(manager, 128, 192, std::vector<float>(128 * 192, 1000)),
       "the frame is 128x192, the reference 256x192"},
  };
  for (const Case& c : cases) {
    const Placement p = registrar.Measure(*c.frame);
    EXPECT_FALSE(p.ok) << c.reason << " " << p.dx << " " << p.dy << " " << p.peak;
    EXPECT_NE(p.reason.find(c.reason), std::string::npos) << p.reason;
  }
}

INSTANTIATE_TEST_SUITE_P(Stores, RegisterTest, ::testing::Values(test::Store::WholePlane, test::Store::Block),
                         test::StoreName);

}  // namespace
}  // namespace qorimg::workflow
