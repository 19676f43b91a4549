// CImgRotate on every route: quarter and half turns, any angle against CInterp
// in double, the canvas sizes, the fill, and the pinned route differences.
#include "geometry/ImgRotate.h"

#include <cmath>
#include <limits>
#include <numbers>
#include "GeometrySupport.h"
#include "geometry/ImgResolution.h"
#include "geometry/Interp.h"
#include "platform/Exceptions.h"
#include "support/Fixtures.h"

namespace qorimg::test {
namespace {

class RotateTest : public RouteTest {
protected:
  bool PipelineRoute() const { return Case().Expected(false) == Route::Plane; }
};
QORIMG_ALL_ROUTES(RotateTest);

float Smooth(int x, int y, int p) { return 100.0f + 50.0f * std::sin(x / 5.0f + p) * std::cos(y / 7.0f); }

TEST_P(RotateTest, QuarterAndHalfTurnsMoveEveryPixel) {
  auto src = MakeImage(7, 4, 3);
  src->CImage::SetLevel(1, -5.0, 77.0);
  CImgRotate ccw, cw, half;
  ASSERT_EQ(ccw.Do90(0, src.get(), 0), 1);
  ASSERT_EQ(cw.Do90(1, src.get(), 0), 1);
  half.Do180(src.get(), 0);
  ASSERT_EQ(ccw.GetWidth(), 4);
  ASSERT_EQ(ccw.GetHeight(), 7);
  EXPECT_EQ(ccw.GetLevelMin(1), -5.0);
  EXPECT_TRUE(SamplesNear(ccw, [&](int x, int y, int p) { return src->GetPixelGrayRaw(6 - y, x, p); }, 0));
  EXPECT_TRUE(SamplesNear(cw, [&](int x, int y, int p) { return src->GetPixelGrayRaw(y, 3 - x, p); }, 0));
  EXPECT_TRUE(SamplesNear(half, [&](int x, int y, int p) { return src->GetPixelGrayRaw(6 - x, 3 - y, p); }, 0));
  // The source may be the target: the result is that of a separate copy.
  CImgRotate self;
  self.Create(*src, nullptr);
  self.Do0(src.get(), 0);
  ASSERT_EQ(self.Do90(0, &self, 0), 1);
  EXPECT_TRUE(SamePixels(self, ccw));
  half.Do180(&half, 0);
  EXPECT_TRUE(SamePixels(half, *src));
}

// Any angle, with the canvas grown: every route against CInterp's double
// reading at the pipeline's positions. An even size puts both routes' centres
// at the same point; a pixel within one of the source's edge is left out (the
// routes' inside tests differ there), and float positions give the tolerance.
TEST_P(RotateTest, AnyAngleMatchesDoubleReading) {
  auto src = MakeImage(40, 30, 1, Smooth);
  for (int method = 0; method < 4; ++method) {
    CImgRotate target;
    ASSERT_EQ(target.Do(30.0, 0x000000, src.get(), 1, method, 0), 1);
    ASSERT_EQ(target.GetWidth(), 48);
    ASSERT_EQ(target.GetHeight(), 45);
    CInterp reference(method, src.get(), 0);
    const double s = std::sin(std::numbers::pi / 6), c = std::cos(std::numbers::pi / 6);
    int compared = 0;
    for (int y = 0; y < 45; ++y)
      for (int x = 0; x < 48; ++x) {
        const double u = x + (40 - 48) * 0.5 - 20, w = 15 - (y + (30 - 45) * 0.5);
        const double px = c * u - s * w + 20, py = 15 - (s * u + c * w);
        const float v = target.GetPixelGrayRaw(x, y, 0);
        if (px < -0.01 || py < -0.01 || px > 40.01 || py > 30.01) {
          EXPECT_EQ(v, 0.0f) << x << "," << y;  // the fill of black on levels 0..1000
        } else if (px > 1 && py > 1 && px < 38 && py < 28) {
          EXPECT_NEAR(v, reference.Do(px, py, 0), 0.02) << method << " " << x << "," << y;
          ++compared;
        }
      }
    EXPECT_GT(compared, 700);
  }
}

TEST_P(RotateTest, CanvasFillAndZeroAngle) {
  // Sizes from the formula over pixel centres, in double: a quarter turn of
  // 11 x 7 is 7 x 10, not the exchanged size.
  const struct {
    int w, h;
    double angle;
    int wd, hd;
  } sizes[] = {{11, 7, 90, 7, 10}, {11, 7, 30, 11, 11}, {6, 4, 90, 4, 5}, {6, 4, -90, 3, 5}, {40, 30, 180, 39, 30}};
  for (const auto &k : sizes) {
    auto src = MakeImage(k.w, k.h, 1);
    CImgRotate target;
    ASSERT_EQ(target.Do(k.angle, 0, src.get(), 1, 0, 0), 1);
    EXPECT_EQ(target.GetWidth(), k.wd) << k.angle;
    EXPECT_EQ(target.GetHeight(), k.hd) << k.angle;
  }
  // Without bExpand the size stays and the corners take the fill: colour
  // fills every plane with R on plane 0's levels.
  auto colour = MakeImage(20, 16, 3);
  colour->CImage::SetLevel(0, 100.0, 610.0);
  CImgRotate turned;
  turned.Create(*colour, nullptr);
  ASSERT_EQ(turned.Do(45.0, 0x00FF0033, colour.get(), 0, 1, 0), 1);
  EXPECT_EQ(turned.GetWidth(), 20);
  for (int p = 0; p < 3; ++p) EXPECT_FLOAT_EQ(turned.GetPixelGrayRaw(0, 0, p), 0x33 / 255.0 * 510.0 + 100.0);
  auto mono = MakeImage(20, 16, 1);
  turned.Create(*mono, nullptr);
  turned.Do(45.0, 0x00102030, mono.get(), 0, 1, 0);
  EXPECT_FLOAT_EQ(turned.GetPixelGrayRaw(19, 15, 0), std::trunc(0x30 * 0.299 + 0x20 * 0.587 + 0x10 * 0.114) / 255.0 * 1000.0);
  // A zero angle copies whatever bExpand says; a non-finite one does nothing.
  CImgRotate copy;
  copy.Create(*mono, nullptr);
  EXPECT_EQ(copy.Do(0.0, 0, mono.get(), 1, 2, 0), 1);
  EXPECT_TRUE(SamePixels(copy, *mono));
  EXPECT_EQ(copy.Do(std::numeric_limits<double>::quiet_NaN(), 0, colour.get(), 1, 0, 0), 0);
  EXPECT_EQ(copy.Do(std::numeric_limits<double>::infinity(), 0, colour.get(), 1, 0, 0), 0);
  EXPECT_TRUE(SamePixels(copy, *mono));
}

// The pinned differences. On an odd size the line path turns about (3, 2), the
// pipeline about (3.5, 2.5): half a turn is then Do180 on the line path and
// Do180 moved by one pixel in the pipeline. An unknown method leaves the pipeline's target as it was and
// writes 0.0 inside the source on the line path.
TEST_P(RotateTest, RouteDifferencesStayAsDesigned) {
  auto src = MakeImage(7, 5, 1);
  CImgRotate turned, half;
  half.Do180(src.get(), 0);
  turned.Create(*src, nullptr);
  ASSERT_EQ(turned.Do(180.0, 0xFFFFFF, src.get(), 0, 4, 0), 1);
  // Inside only: sin 180 degrees is not quite 0, so on the edges the positions
  // fall a hair inside or outside.
  const int offset = PipelineRoute() ? 1 : 0;
  for (int y = 1; y < 4; ++y)
    for (int x = 1; x < 6; ++x)
      EXPECT_EQ(turned.GetPixelGrayRaw(x, y, 0), half.GetPixelGrayRaw(x - offset, y - offset, 0)) << x << "," << y;

  CImgRotate unknown;
  unknown.Create(*src, nullptr);
  FillImage(unknown, [](int, int, int) { return 42.0f; });
  ASSERT_EQ(unknown.Do(30.0, 0xFFFFFF, src.get(), 0, 9, 0), 1);
  EXPECT_EQ(unknown.GetPixelGrayRaw(3, 2, 0), PipelineRoute() ? 42.0f : 0.0f);
  EXPECT_EQ(unknown.GetPixelGrayRaw(0, 0, 0), PipelineRoute() ? 42.0f : 1000.0f);
}

TEST_P(RotateTest, BadSourcesAreRejectedBeforeAnythingIsWritten) {
  RejectsBadSources<CImgRotate>(Manager(), 9, 6, 3, [](CImgRotate &op, CLmrImage *src) { op.Do0(src, 1); });
  RejectsBadSources<CImgRotate>(Manager(), 9, 6, 3, [](CImgRotate &op, CLmrImage *src) { op.Do180(src, 1); });
  RejectsBadSources<CImgRotate>(Manager(), 9, 6, 3,
                                [](CImgRotate &op, CLmrImage *src) { op.Do(12.0, 0, src, 0, 1, 1); });
  // The resizing forms take any size of source, but not a null or non-float one.
  RejectsNullAndNonFloat<CImgRotate>(Manager(), [](CImgRotate &op, CLmrImage *src) { op.Do90(1, src, 1); });
  RejectsNullAndNonFloat<CImgRotate>(Manager(), [](CImgRotate &op, CLmrImage *src) { op.Do(12.0, 0, src, 1, 1, 1); });
}

// A block store whose budget is below one frame: the line paths of rotation,
// resampling and the quarter turn give the results they give on contiguous planes.
TEST(GeometryBudget, LinePathsWorkBelowOneFrame) {
  auto small = CreateBlockManager(256 << 10, 4);  // the frame is 960 KB
  auto whole = CreateWholePlaneManager();
  auto a = MakeImage(small, 600, 400, 1, Smooth), b = MakeImage(whole, 600, 400, 1, Smooth);
  testing::ForceBlockRoute(true);
  CImgRotate ra, rb, qa, qb;
  CImgResolution sa, sb;
  ASSERT_EQ(ra.Do(30.0, 0, a.get(), 1, 1, 0), 1);
  ASSERT_EQ(rb.Do(30.0, 0, b.get(), 1, 1, 0), 1);
  ASSERT_EQ(sa.DoChange(a.get(), 450, 300, 3, 0), 1);
  ASSERT_EQ(sb.DoChange(b.get(), 450, 300, 3, 0), 1);
  ASSERT_EQ(qa.Do90(1, a.get(), 0), 1);
  ASSERT_EQ(qb.Do90(1, b.get(), 0), 1);
  testing::ForceBlockRoute(false);
  testing::TakeRouteLog();
  EXPECT_TRUE(SamePixels(ra, rb));
  EXPECT_TRUE(SamePixels(sa, sb));
  EXPECT_TRUE(SamePixels(qa, qb));
}

}  // namespace
}  // namespace qorimg::test
