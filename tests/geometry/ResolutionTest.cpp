// CImgResolution and CImgResize on every route: the methods against double
// references, the pinned route differences, canvas anchors, progress and failure.
#include "geometry/ImgResize.h"
#include "geometry/ImgResolution.h"

#include <cmath>
#include "GeometrySupport.h"
#include "support/Fixtures.h"

namespace qorimg::test {
namespace {

class ResolutionTest : public RouteTest {
protected:
  bool PipelineRoute() const { return Case().Expected(false) == Route::Plane; }
};
QORIMG_ALL_ROUTES(ResolutionTest);

// DoChange with the methods whose routes agree: the sample at (x * Ws / W,
// y * Hs / H), taps clamped. The ratios 23/17 and 17/13 put no position on a
// half pixel, where nearest could round either way in float.
TEST_P(ResolutionTest, DoChangeMatchesReferenceSampling) {
  auto src = MakeImage(23, 17, 2, [](int x, int y, int p) { return float(100 + 30 * std::sin(x * 0.4 + p) + y); });
  for (int method : {0, 2, 3, 4}) {
    CImgResolution target;
    ASSERT_EQ(target.DoChange(src.get(), 17, 13, method, 0), 1);
    ASSERT_EQ(target.GetWidth(), 17);
    const float rx = 23.0f / 17.0f, ry = 17.0f / 13.0f;
    EXPECT_TRUE(SamplesNear(target, [&](int x, int y, int p) { return ReferenceSample(*src, method, p, x * rx, y * ry); },
                            2e-3)) << method;
  }
}

// Scaling by 2 keeps the first pixel of each pair; the last column is clamped
// by the pipeline and extrapolated by the line path.
TEST_P(ResolutionTest, BilinearKeepsCornersAndTreatsTheEdgeByRoute) {
  auto src = MakeImage(5, 3, 1, [](int x, int y, int) { return float(10 * x + 100 * y); });
  CImgResolution target;
  ASSERT_EQ(target.Do(src.get(), 10, 6, 0), 1);
  EXPECT_TRUE(SamplesNear(target, [&](int x, int y, int) { return src->GetPixelGrayRaw(x / 2, y / 2, 0); }, 0, 0,
                          [](int x, int y, int) { return x % 2 == 0 && y % 2 == 0; }));
  EXPECT_FLOAT_EQ(target.GetPixelGrayRaw(9, 0, 0), PipelineRoute() ? 40.0f : 45.0f);
  EXPECT_FLOAT_EQ(target.GetPixelGrayRaw(0, 5, 0), PipelineRoute() ? 200.0f : 250.0f);
}

// Bicubic: a = -0.1 on both routes, clamped and unnormalised in the pipeline;
// normalised on the line path, where a tap past the end reads index 0. On
// f(x) = x * x at x = 7 of 8 (source 3.5): 35.125 clamped, 20.125 through index
// 0 (taps f(2), f(3), f(0), f(0) of a 10x + 5 ramp). DoChange's bicubic takes
// CInterp's a = -0.5 on the line path: exact 2.25 on x * x at 1.5, 2.45 with -0.1.
TEST_P(ResolutionTest, BicubicKernelsDifferByRoute) {
  auto ramp = MakeImage(4, 4, 1, [](int x, int, int) { return float(10 * x + 5); });
  CImgResolution bicubic;
  ASSERT_EQ(bicubic.Bicubic(ramp.get(), 8, 8, 0), 1);
  EXPECT_NEAR(bicubic.GetPixelGrayRaw(7, 2, 0), PipelineRoute() ? 35.125 : 20.125, 1e-4);
  EXPECT_NEAR(bicubic.GetPixelGrayRaw(2, 2, 0), 15.0, 1e-4);

  auto square = MakeImage(4, 4, 1, [](int x, int, int) { return float(x * x); });
  CImgResolution change;
  ASSERT_EQ(change.DoChange(square.get(), 8, 8, 1, 0), 1);
  EXPECT_NEAR(change.GetPixelGrayRaw(3, 4, 0), PipelineRoute() ? 2.45 : 2.25, 1e-5);
  // An unknown method: the pipeline leaves the new canvas as created, the line path writes 0.0.
  CImgResolution unknown;
  ASSERT_EQ(unknown.DoChange(square.get(), 8, 8, 5, 0), 1);
  if (!PipelineRoute()) EXPECT_EQ(unknown.GetPixelGrayRaw(3, 3, 0), 0.0f);
}

TEST_P(ResolutionTest, ResizeAnchorsFillAndCrop) {
  auto src = MakeImage(5, 4, 2);
  float fill[2] = {-1.0f, -2.0f};
  CImgResize bigger, smaller, unknown;
  ASSERT_EQ(bigger.Do(8, 6, 8, fill, src.get(), 0), 1);
  ASSERT_EQ(smaller.Do(2, 1, 4, fill, src.get(), 0), 1);
  ASSERT_EQ(unknown.Do(6, 4, -3, nullptr, src.get(), 0), 1);
  EXPECT_TRUE(SamplesNear(bigger, [&](int x, int y, int p) {
    return x >= 3 && y >= 2 ? src->GetPixelGrayRaw(x - 3, y - 2, p) : fill[p];
  }, 0));
  // Centred on a smaller canvas: (2 - 5) / 2 and (1 - 4) / 2 truncate to -1.
  EXPECT_EQ(smaller.GetPixelGrayRaw(0, 0, 1), src->GetPixelGrayRaw(1, 1, 1));
  EXPECT_EQ(smaller.GetPixelGrayRaw(1, 0, 0), src->GetPixelGrayRaw(2, 1, 0));
  EXPECT_EQ(unknown.GetPixelGrayRaw(0, 0, 0), src->GetPixelGrayRaw(0, 0, 0));
  EXPECT_EQ(unknown.GetPixelGrayRaw(5, 3, 1), 0.0f);
}

// A size below 1 returns 0 with the target as it was and no
// progress; with bProgress the new canvas is announced with 6111 and the work
// with the operator's own text.
TEST_P(ResolutionTest, FailedResizeChangesNothingAndProgressIsAnnounced) {
  auto src = MakeImage(6, 4, 1);
  MessageRecorder recorder;
  CImgResolution target;
  target.Create(*src, nullptr);
  FillImage(target, Pattern);
  target.SetProgressHandle(recorder.Window());
  EXPECT_EQ(target.Do(src.get(), 0, 5, 1), 0);
  EXPECT_EQ(target.DoChange(src.get(), 3, -2, 1, 1), 0);
  CImgResize resize;
  EXPECT_EQ(resize.Do(0, 7, 0, nullptr, src.get(), 1), 0);
  EXPECT_TRUE(resize.IsEmpty());
  EXPECT_TRUE(recorder.entries.empty());
  EXPECT_EQ(target.GetWidth(), 6);
  EXPECT_TRUE(SamePixels(target, *src));

  ASSERT_EQ(target.Do(src.get(), 9, 5, 1), 1);
  recorder.Pump();
  std::vector<std::wstring> opened;
  for (const auto &e : recorder.entries)
    if (e.message == 1136 && e.wParam == 0) opened.push_back(e.text);
  ASSERT_EQ(opened.size(), 2u);
  EXPECT_EQ(opened[0], L"サイズ変更処理中...");
  EXPECT_EQ(opened[1], L"解像度変更処理中...");

  RejectsNullAndNonFloat<CImgResolution>(Manager(), [](CImgResolution &op, CLmrImage *s) { op.Do(s, 4, 4, 1); });
  RejectsNullAndNonFloat<CImgResize>(Manager(),
                                     [](CImgResize &op, CLmrImage *s) { op.Do(4, 4, 0, nullptr, s, 1); });
  // The source may be the target.
  CImgResolution self, separate;
  self.Create(*src, nullptr);
  FillImage(self, Pattern);
  ASSERT_EQ(separate.Bicubic(src.get(), 11, 3, 0), 1);
  ASSERT_EQ(self.Bicubic(&self, 11, 3, 0), 1);
  EXPECT_TRUE(SamePixels(self, separate));
}

}  // namespace
}  // namespace qorimg::test
