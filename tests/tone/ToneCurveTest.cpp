// CImgToneCurve and CImgCorrectCurve on every route.
#include <cmath>
#include <vector>
#include "platform/Messages.h"
#include "platform/StringResources.h"
#include "tone/ImgCorrectCurve.h"
#include "tone/ImgToneCurve.h"
#include "tone/ToneTestSupport.h"

namespace qorimg::test {
namespace {

class ToneCurveTest : public RouteTest {
protected:
  bool Pipeline() const { return Case().Expected(false) == Route::Plane; }
};
QORIMG_ALL_ROUTES(ToneCurveTest);

std::vector<float> Curve(int count, double (*f)(double)) {
  std::vector<float> t(static_cast<std::size_t>(count));
  for (int i = 0; i < count; ++i) t[i] = static_cast<float>(f(i / (count - 1.0)));
  return t;
}
double Square(double u) { return u * u; }
double Root(double u) { return std::sqrt(u); }
double Identity(double u) { return u; }

// Pixels at the centres of the table's bins give the same entry on both routes
// (the loop indexes by u * nLast / 255, the pipeline by p * nLast).
TEST_P(ToneCurveTest, BinCentresTakeTheirEntryOnEveryRoute) {
  for (int planes : {1, 3}) {
    const int count = 4096, nLast = count - 1;
    auto src = MakeImage(64, 8, planes, [&](int x, int y, int p) {
      const int bin = (x * 61 + y * 512 + p * 7) % count;
      return static_cast<float>((bin + 0.5) / nLast * 1000.0);  // levels 0..1000
    });
    auto target = TargetFor<CImgToneCurve>(*src);
    std::vector<float> master = Curve(count, Square), own = Curve(count, Root);
    float *curves[4] = {master.data(), own.data(), own.data(), own.data()};
    target->Do(curves, count, src.get(), nullptr, 0, 0);
    for (int p = 0; p < planes; ++p)
      for (int y = 0; y < 8; ++y)
        for (int x = 0; x < 64; ++x) {
          const int bin = (x * 61 + y * 512 + p * 7) % count;
          double w = master[bin];
          if (planes == 3) {
            // The second look-up is at a bin centre only where own * nLast is not near an integer.
            const double q = own[bin] * static_cast<double>(nLast);
            if (std::abs(q - std::round(q)) < 1e-3) continue;
            w = master[static_cast<int>(q)];
          }
          ASSERT_NEAR(target->GetPixelGrayRaw(x, y, p), w * 1000.0, 2e-4) << planes << " " << p << " " << x;
        }
  }
}

// Beyond the white level the last step's slope goes on through (b * 255, b * 255);
// below the black level the curve gives 0, so the output is Lmin.
TEST_P(ToneCurveTest, EndsOfTheScaleAndTheWhiteLevel) {
  std::vector<float> curve = {0.0f, 0.25f, 0.5f, 0.9f};  // last step 0.4 over a third: slope 1.2
  for (double range : {255.0, 1000.0, 4095.0, 65535.0}) {
    auto src = MakeImage(4, 1, 1, [&](int x, int, int) {
      return std::array<float, 4>{-10.0f, static_cast<float>(range), static_cast<float>(range * 1.5), 0.0f}[x];
    });
    src->CImage::SetLevel(0, 0.0, range);
    auto target = TargetFor<CImgToneCurve>(*src);
    float *curves[1] = {curve.data()};
    target->Do(curves, 4, src.get(), nullptr, 0, 0);
    EXPECT_EQ(target->GetPixelGrayRaw(0, 0, 0), 0.0f) << range;
    EXPECT_NEAR(target->GetPixelGrayRaw(1, 0, 0), 0.9 * range, 1e-6 * range) << range;  // table[nLast]
    const double u = 1.5 * 255;
    EXPECT_NEAR(target->GetPixelGrayRaw(2, 0, 0), ((u - 0.9 * 255) * 1.2 + 0.9 * 255) / 255 * range, 1e-5 * range);
  }
  // A flat last step holds every pixel above white at b * 255.
  std::vector<float> flat = {0.0f, 0.7f, 0.7f};
  auto src = MakeImage(2, 1, 1, [](int x, int, int) { return x ? 5000.0f : 1200.0f; });
  auto target = TargetFor<CImgToneCurve>(*src);
  float *curves[1] = {flat.data()};
  target->Do(curves, 3, src.get(), nullptr, 0, 0);
  EXPECT_NEAR(target->GetPixelGrayRaw(1, 0, 0), 700.0f, 1e-3);
}

TEST_P(ToneCurveTest, RectangleProgressAndNaNDifferByRouteAsPinned) {
  auto src = MakeImage(40, 30, 1, [](int x, int y, int) { return x == 5 && y == 5 ? NAN : Pattern(x, y, 0); });
  auto target = CopyAs<CImgToneCurve>(*MakeImage(40, 30, 1, [](int, int, int) { return -7.0f; }));
  std::vector<float> curve = Curve(256, Root);
  curve[255] = 0.95f;  // a last step, so that NaN stays NaN beyond the scale
  float *curves[1] = {curve.data()};
  MessageRecorder rec;
  target->SetProgressHandle(rec.Window());
  PostMessageW(nullptr, WM_KEYDOWN, VK_ESCAPE, 0);
  CRect rect(2, 3, 30, 25);
  target->Do(curves, 256, src.get(), &rect, 1, 0);
  rec.Pump();
  EXPECT_TRUE(SamplesNear(*target, [](int, int, int) { return -7.0f; }, 0, 0,
                          [](int x, int y, int) { return x < 2 || x >= 30 || y < 3 || y >= 25; }));
  EXPECT_NE(target->GetPixelGrayRaw(29, 24, 0), -7.0f);  // ran to the end despite ESC
  // The pipeline takes entry 0 for NaN and sends no progress; the loop takes the
  // curve beyond its end (NaN) and reports under 6114.
  if (Pipeline()) {
    EXPECT_EQ(target->GetPixelGrayRaw(5, 5, 0), 0.0f);
    EXPECT_TRUE(rec.entries.empty());
  } else {
    EXPECT_TRUE(std::isnan(target->GetPixelGrayRaw(5, 5, 0)));
    ASSERT_FALSE(rec.entries.empty());
    EXPECT_EQ(rec.entries.front().text, FindStringResource(6114));
  }
  // Null tables and counts below 1 do nothing.
  float *none[1] = {nullptr};
  target->Do(none, 256, src.get(), nullptr, 0, 0);
  target->Do(curves, 0, src.get(), nullptr, 0, 0);
  EXPECT_EQ(target->GetPixelGrayRaw(0, 0, 0), -7.0f);
  ExpectRejectsBadSources(Manager(), 9, 4, 3, [&](CLmrImage *bad, CLmrImage &t) {
    std::vector<float> c = Curve(16, Identity);
    float *all[4] = {c.data(), c.data(), c.data(), c.data()};
    CopyAs<CImgToneCurve>(t)->Do(all, 16, bad, nullptr, 1, 0);
  });
}

TEST_P(ToneCurveTest, HAlphaLiftsFaintLevelsAndDoublesPlaneZeroOfColour) {
  auto src = MakeImage(16, 4, 3, [](int x, int, int) { return x * 10.0f; });
  for (int p = 0; p < 3; ++p) src->CImage::SetLevel(p, 0.0, 255.0);
  auto target = TargetFor<CImgToneCurve>(*src);
  // Below 127.5: i / 127.5 * gain, above: identity. A gain of 0.9975 keeps the
  // second look-up of plane 0 (at 1.995 v) away from the table's bin edges.
  target->DoHAlpha(0.5, 0.9975, src.get(), nullptr, 0);
  auto lift = [](int v) { return v < 127 ? v / 127.5 * 0.9975 : v / 255.0; };
  for (int x = 0; x < 16; ++x) {
    const int v = x * 10;
    EXPECT_NEAR(target->GetPixelGrayRaw(x, 0, 1), lift(v) * 255, 1e-3) << x;
    EXPECT_NEAR(target->GetPixelGrayRaw(x, 0, 0), lift(static_cast<int>(lift(v) * 255)) * 255, 1e-3) << x;
  }
  target->DoHAlpha(3.0, 1.0, src.get(), nullptr, 0);  // a point above 1 stops at the table's end
  // Levels from the source's minimum and maximum of plane 0, zeros skipped
  // (the extremes start at the first pixel).
  auto gaps = MakeImage(16, 4, 3, [](int x, int, int p) { return x == 3 ? 0.0f : x * 10.0f + 5 + p; });
  target->DoHAlphaLevel(2.0, gaps.get());
  EXPECT_EQ(target->GetLevelMin(2), 5.0);
  EXPECT_EQ(target->GetLevelMax(2), 310.0);
}

TEST_P(ToneCurveTest, CorrectCurveLiftsTheMiddleAndCopiesTheRest) {
  auto src = MakeImage(5, 2, 3, [](int x, int, int p) { return std::array<float, 5>{0, 100, 50, 60, 75}[x] + p * 0.0f; });
  auto target = TargetFor<CImgCorrectCurve>(*src);
  // Limits 0 and 25.5 on the display scale of levels 0..1000: raw 0 and 100.
  EXPECT_EQ(target->Do(2.0, 0.0, 25.5, src.get(), nullptr, 0), 1);
  for (int p = 0; p < 3; ++p) {
    EXPECT_EQ(target->GetPixelGrayRaw(0, 0, p), 0.0f);    // on lo: copied
    EXPECT_EQ(target->GetPixelGrayRaw(1, 0, p), 100.0f);  // on hi: copied
    EXPECT_FLOAT_EQ(target->GetPixelGrayRaw(2, 0, p), static_cast<float>(std::sqrt(0.75) * 100));
    const double u = 0.75;
    EXPECT_FLOAT_EQ(target->GetPixelGrayRaw(4, 1, p), static_cast<float>(std::sqrt(1 - (1 - u) * (1 - u)) * 100));
  }
  EXPECT_EQ(target->Do(1.0, 0.0, 25.5, src.get(), nullptr, 0), 1);
  EXPECT_EQ(target->GetPixelGrayRaw(3, 0, 1), 60.0f);  // p = 1: identity
  // Refusals, and the per-plane form's reversed plane test.
  CRect outside(10, 10, 20, 20);
  EXPECT_EQ(target->Do(0.0, 0.0, 25.5, src.get(), nullptr, 0), 0);
  EXPECT_EQ(target->Do(2.0, 30.0, 25.5, src.get(), nullptr, 0), 0);
  EXPECT_EQ(target->Do(2.0, 0.0, 25.5, nullptr, nullptr, 0), 0);
  EXPECT_EQ(target->Do(2.0, 0.0, 25.5, src.get(), &outside, 0), 0);
  EXPECT_EQ(target->Do(2.0, 0.0, 100.0, 1, src.get(), nullptr, 0), 0);
  EXPECT_EQ(target->Do(2.0, 0.0, 100.0, 3, src.get(), nullptr, 0), 0);
  auto before = CopyAs<CLmrImage>(*target);
  EXPECT_EQ(target->Do(2.0, 0.0, 100.0, 4, src.get(), nullptr, 0), 1);
  EXPECT_TRUE(SamePixels(*target, *before));
  auto narrow = MakeImage(4, 2, 3);
  EXPECT_EQ(target->Do(2.0, 0.0, 25.5, narrow.get(), nullptr, 0), 0);
}

}  // namespace
}  // namespace qorimg::test
