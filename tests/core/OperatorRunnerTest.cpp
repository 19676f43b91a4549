// The operator runner on every route: bound images checked before anything is
// written, a plane whose temporary fails resumed on the line loop, a
// pipeline's error raised, and the route recorded.
#include "core/ImgCalculation.h"
#include "core/OperatorRunner.h"
#include "kernels/FrameEdits.h"
#include "platform/Exceptions.h"
#include "sibling/Exceptions.h"
#include "support/Fixtures.h"

namespace qorimg::test {
namespace {

class OperatorRunnerTest : public RouteTest {};
QORIMG_ALL_ROUTES(OperatorRunnerTest);

TEST_P(OperatorRunnerTest, BadSourcesAndPlanesAreRejectedBeforeAnythingIsWritten) {
  ExpectRejectsBadSources(Manager(), 12, 5, 3, [](CLmrImage *src, CLmrImage &target) {
    CImgCalculation::Calculate(target, 1.0, CImgCalculation::Add, 0, src, nullptr, 1);
  });
  // A smaller source is enough when it covers the rectangle.
  auto small = MakeImage(6, 3, 3);
  auto target = MakeImage(12, 5, 3);
  CRect rect(1, 1, 6, 3);
  CImgCalculation::Calculate(*target, 1.0, CImgCalculation::Add, 0, small.get(), &rect, 0);
  EXPECT_EQ(target->GetPixelGrayRaw(5, 2, 2), Pattern(5, 2, 2) + 1.0f);
  EXPECT_EQ(target->GetPixelGrayRaw(6, 2, 2), Pattern(6, 2, 2));

  EXPECT_THROW(target->ThresholdEqual(3, 0.0f, 1.0f), CInvalidArgException *);
  EXPECT_THROW(MakeImage(4, 2, 1)->ThresholdEqual(1, 0.0f, 1.0f), CInvalidArgException *);
}

// In place on a partial rectangle, the temporary of plane 1 fails: planes 1 and
// 2 go on with the line loop, and every sample gets the operation once.
TEST_P(OperatorRunnerTest, AFailedTemporaryResumesAtItsPlaneInPlace) {
  auto img = MakeImage(29, 13, 3);
  CRect rect(2, 3, 17, 11);
  kernels::testing::FailTemporaryAllocationsFrom(1);
  CImgCalculation::Calculate(*img, 1.0, CImgCalculation::Add, 0, img.get(), &rect, 0);
  kernels::testing::FailTemporaryAllocationsFrom(-1);
  EXPECT_TRUE(SamplesNear(*img, [](int x, int y, int p) {
    return Pattern(x, y, p) + (x >= 2 && x < 17 && y >= 3 && y < 11 ? 1.0f : 0.0f);
  }, 0));
  const auto runs = TakeRuns();
  ASSERT_EQ(runs.size(), 1u);
  EXPECT_EQ(runs[0].chosen, Case().Expected(runs[0]));
  EXPECT_EQ(runs[0].resumedAtPlane, runs[0].chosen == Route::Plane ? 1 : -1);
}

// A pipeline whose input is too small for its output reports an error: the
// runner raises it, and the target keeps its samples.
TEST_P(OperatorRunnerTest, APipelineErrorIsRaisedAndTheTargetKept) {
  auto target = MakeImage(8, 4, 1);
  auto tooSmall = MakeImage(4, 4, 1);
  RouteTable routes;
  routes.line = [&](int p, int y) { *target->GetImageAdr(0, y, p) = 99.0f; };
  routes.pipeline = [&](int p, PlaneOutput &output) { return crop_float(InputPlane(*tooSmall, p), 0, 0, output); };
  const LineRect whole = ClipRect(*target, nullptr);
  auto run = [&] { RunOperator({*target, 0, 0, 0, whole, {0, 1}}, {{target.get(), 1}}, routes); };
  if (Case().Expected(false) == Route::Plane) {
    EXPECT_THROW(run(), lumora::CLumoraImageException);
    EXPECT_TRUE(SamePixels(*target, *MakeImage(8, 4, 1)));
    AcceptPipelineErrors();
  } else {
    run();
    EXPECT_EQ(target->GetPixelGrayRaw(0, 3, 0), 99.0f);
  }
}

}  // namespace
}  // namespace qorimg::test
