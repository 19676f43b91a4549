// Crop, flip, scroll and soft binning on every route, and the .npy output of
// the numpy and skimage cross-checks of the geometry operators.
#include <cmath>
#include "GeometrySupport.h"
#include "geometry/ImgCrop.h"
#include "geometry/ImgFlip.h"
#include "geometry/ImgResize.h"
#include "geometry/ImgRotate.h"
#include "geometry/ImgScroll.h"
#include "geometry/ImgSoftBinning.h"
#include "support/Fixtures.h"

namespace qorimg::test {
namespace {

class FrameEditsTest : public RouteTest {
protected:
  bool PipelineRoute() const { return Case().Expected(false) == Route::Plane; }
};
QORIMG_ALL_ROUTES(FrameEditsTest);

TEST_P(FrameEditsTest, CropCopiesTheRectangleOrRefusesIt) {
  auto src = MakeImage(9, 7, 2);
  MessageRecorder recorder;
  CImgCrop crop;
  crop.SetProgressHandle(recorder.Window());
  ASSERT_EQ(crop.Do(CRect(2, 1, 7, 5), src.get(), 1), 1);
  ASSERT_EQ(crop.GetWidth(), 5);
  ASSERT_EQ(crop.GetHeight(), 4);
  EXPECT_TRUE(SamplesNear(crop, [&](int x, int y, int p) { return src->GetPixelGrayRaw(x + 2, y + 1, p); }, 0));
  // Progress steps on the line path only.
  recorder.Pump();
  if (PipelineRoute())
    EXPECT_EQ(recorder.Count(PROGRESS_UPDATE), 0);
  else
    EXPECT_GT(recorder.Count(PROGRESS_UPDATE), 0);
  recorder.entries.clear();
  auto kept = crop.Clone();
  for (CRect bad : {CRect(-1, 0, 3, 3), CRect(0, 0, 10, 3), CRect(4, 4, 4, 6), CRect(5, 1, 2, 4)})
    EXPECT_EQ(crop.Do(bad, src.get(), 1), 0);
  EXPECT_TRUE(SamePixels(crop, *kept));
  EXPECT_TRUE(recorder.entries.empty());
}

TEST_P(FrameEditsTest, FlipScrollAndTheirEdgeCases) {
  auto src = MakeImage(6, 5, 3);
  CImgFlip vertical, horizontal, none;
  vertical.Do(0, src.get(), 0);
  horizontal.Do(1, src.get(), 0);
  none.Create(*src, nullptr);
  FillImage(none, Pattern);
  MessageRecorder recorder;
  none.SetProgressHandle(recorder.Window());
  none.Do(2, src.get(), 1);
  EXPECT_TRUE(SamePixels(none, *src));
  ASSERT_FALSE(recorder.entries.empty());
  EXPECT_EQ(recorder.entries.front().text, L"左右反転処理中...");
  EXPECT_TRUE(SamplesNear(vertical, [&](int x, int y, int p) { return src->GetPixelGrayRaw(x, 4 - y, p); }, 0));
  EXPECT_TRUE(SamplesNear(horizontal, [&](int x, int y, int p) { return src->GetPixelGrayRaw(5 - x, y, p); }, 0));
  CImgScroll byWidth, back, rows;
  byWidth.Do(6, 1, src.get(), 0);
  EXPECT_TRUE(SamePixels(byWidth, *src));
  back.Do(-2, 1, src.get(), 0);
  rows.Do(7, 0, src.get(), 0);
  EXPECT_TRUE(SamplesNear(back, [&](int x, int y, int p) { return src->GetPixelGrayRaw((x + 2) % 6, y, p); }, 0));
  EXPECT_TRUE(SamplesNear(rows, [&](int x, int y, int p) { return src->GetPixelGrayRaw(x, (y + 3) % 5, p); }, 0));
  rows.Do(3, 0, &rows, 0);  // onto itself: as from a copy
  for (int x = 0; x < 6; ++x) EXPECT_EQ(rows.GetPixelGrayRaw(x, 0, 0), src->GetPixelGrayRaw(x, 0, 0));
  RejectsBadSources<CImgFlip>(Manager(), 8, 4, 3, [](CImgFlip &op, CLmrImage *s) { op.Do(1, s, 1); });
  RejectsBadSources<CImgScroll>(Manager(), 8, 4, 3, [](CImgScroll &op, CLmrImage *s) { op.Do(3, 1, s, 1); });
}

// The sums are the same float additions in the same order on both routes.
TEST_P(FrameEditsTest, SoftBinningSumsBlocks) {
  auto src = MakeImage(5, 5, 2, [](int x, int y, int p) { return 0.1f * float(x + 7 * y + 31 * p) + 1e-3f; });
  CImgSoftBinning ceiling, floor;
  ASSERT_EQ(ceiling.Do(2, 2, 1, 1, src.get(), 0), 1);
  ASSERT_EQ(floor.Do(2, 2, 0, 0, src.get(), 0), 1);
  ASSERT_EQ(ceiling.GetWidth(), 3);
  ASSERT_EQ(ceiling.GetHeight(), 3);
  ASSERT_EQ(floor.GetWidth(), 2);
  EXPECT_EQ(ceiling.GetLevelMax(1), 4000.0);
  EXPECT_EQ(floor.GetLevelMax(1), 1000.0);
  for (int p = 0; p < 2; ++p)
    for (int y = 0; y < 3; ++y)
      for (int x = 0; x < 3; ++x) {
        float sum = 0.0f;
        for (int sy = 2 * y; sy < std::min(2 * y + 2, 5); ++sy)
          for (int sx = 2 * x; sx < std::min(2 * x + 2, 5); ++sx) sum += src->GetPixelGrayRaw(sx, sy, p);
        EXPECT_EQ(ceiling.GetPixelGrayRaw(x, y, p), sum) << x << "," << y;
        if (x < 2 && y < 2) EXPECT_EQ(floor.GetPixelGrayRaw(x, y, p), sum);
      }
  EXPECT_EQ(floor.Do(0, 2, 1, 0, src.get(), 0), 0);
  EXPECT_EQ(floor.Do(6, 1, 0, 0, src.get(), 0), 0);
  EXPECT_EQ(floor.GetWidth(), 2);
}

// The operators on the reference picture, for numpy and skimage
// (tests/reference/geometry_crosscheck.py).
TEST(GeometryCrossCheck, WritesOperatorResults) {
  const std::string dir = CrossCheckDir();
  if (dir.empty()) GTEST_SKIP() << "run by CTest with the cross-check";
  auto manager = CreateWholePlaneManager();
  auto image = HubbleGreen(manager, 64, 48);
  auto square = HubbleGreen(manager, 31, 31);
  ASSERT_TRUE(image && square);
  auto save = [&](const std::string &name, const CLmrImage &result) {
    WriteNpy(dir + "/" + name + ".npy", ReadPlane(result, 0), {result.GetHeight(), result.GetWidth()});
  };
  save("op_source", *image);
  save("op_square", *square);
  CImgRotate ccw, cw, half, quarter;
  ccw.Do90(0, image.get(), 0);
  cw.Do90(1, image.get(), 0);
  half.Do180(image.get(), 0);
  testing::ForceBlockRoute(true);  // the line path turns about the integer centre
  quarter.Do(90.0, 0, square.get(), 0, 0, 0);
  testing::ForceBlockRoute(false);
  save("op_rot90_ccw", ccw), save("op_rot90_cw", cw), save("op_rot180", half), save("op_turn90_line", quarter);
  CImgFlip up, side;
  up.Do(0, image.get(), 0), side.Do(1, image.get(), 0);
  save("op_flipud", up), save("op_fliplr", side);
  CImgScroll right, left, down;
  right.Do(70, 1, image.get(), 0), left.Do(-5, 1, image.get(), 0), down.Do(-13, 0, image.get(), 0);
  save("op_roll_x70", right), save("op_roll_x-5", left), save("op_roll_y-13", down);
  CImgSoftBinning binned;
  binned.Do(3, 5, 1, 0, image.get(), 0);
  save("op_bin_3x5_ceil", binned);
  CImgResize padded;
  float fill = 7.0f;
  padded.Do(70, 50, 4, &fill, image.get(), 0);
  save("op_pad_centre", padded);
  CImgCrop cropped;
  cropped.Do(CRect(5, 7, 40, 30), image.get(), 0);
  save("op_crop", cropped);
}

}  // namespace
}  // namespace qorimg::test
