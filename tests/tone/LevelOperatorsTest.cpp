// The level point operators on every route: brightness and contrast, negative,
// cut-off, tone reduction, equalisation, normalisation and false colour.
#include <algorithm>
#include <cmath>
#include <cstring>
#include <numeric>
#include <opencv2/core.hpp>
#include "platform/Messages.h"
#include "platform/StringResources.h"
#include "tone/ImgBright.h"
#include "tone/ImgCutOff.h"
#include "tone/ImgFalseColor.h"
#include "tone/ImgHstEql.h"
#include "tone/ImgInvert.h"
#include "tone/ImgNormalize.h"
#include "tone/ImgReduceTone.h"
#include "tone/ToneTestSupport.h"

namespace qorimg::test {
namespace {

class LevelOperatorsTest : public RouteTest {
protected:
  // The route of an operator with a pipeline and a vector line.
  Route PointRoute() const { return Case().Expected(true); }
  // A plane as an OpenCV matrix.
  static cv::Mat AsMat(const CLmrImage &image, int plane) {
    cv::Mat m(image.GetHeight(), image.GetWidth(), CV_32F);
    for (int y = 0; y < image.GetHeight(); ++y)
      std::memcpy(m.ptr<float>(y), image.GetImageAdr(0, y, plane, CImage::ReadOnly), sizeof(float) * m.cols);
    return m;
  }
};
QORIMG_ALL_ROUTES(LevelOperatorsTest);

// Brightness and contrast as one affine map of the raw value:
// out = (1 + f) v + (b - a f) * range / 255 - f m, with f = s / 256.
TEST_P(LevelOperatorsTest, BrightMatchesConvertToAndCopiesOnlyOnTheLoops) {
  auto src = MakeImage(37, 11, 3, [](int x, int y, int p) { return x == 3 && y == 2 ? NAN : Pattern(x, y, p); });
  for (int p = 0; p < 3; ++p) src->CImage::SetLevel(p, -50.0 * p, 1000.0 + 20 * p);
  auto target = TargetFor<CImgBright>(*src);
  for (int p = 0; p < 3; ++p) target->CImage::SetLevel(p, -50.0 * p, 1000.0 + 20 * p);
  float bright[3] = {20.0f, 0.0f, -35.0f}, contrast[3] = {64.0f, 0.0f, -100.0f};
  target->Do(bright, contrast, 100.0, src.get(), nullptr, 0);
  for (int p : {0, 2}) {
    const double f = contrast[p] / 256.0, m = target->GetLevelMin(p), range = target->GetLevelRange(p);
    cv::Mat want;
    AsMat(*src, p).convertTo(want, CV_32F, 1 + f, (bright[p] - 100.0 * f) * range / 255 - f * m);
    cv::patchNaNs(want, 0);
    cv::Mat got = AsMat(*target, p);
    EXPECT_TRUE(std::isnan(got.at<float>(2, 3)));
    cv::patchNaNs(got, 0);
    EXPECT_LT(cv::norm(got, want, cv::NORM_INF), 1e-3) << p;  // a few float roundings of values up to ~1300
  }
  // b = s = 0: a bit-for-bit copy on the loops, the formula on the pipeline.
  bool copied = true;
  for (int y = 0; y < 11; ++y)
    for (int x = 0; x < 37; ++x) {
      const float a = src->GetPixelGrayRaw(x, y, 1), b = target->GetPixelGrayRaw(x, y, 1);
      copied = copied && (std::memcmp(&a, &b, 4) == 0);
      if (!std::isnan(a)) ASSERT_NEAR(b, a, 1e-3);
    }
  if (PointRoute() != Route::Plane) EXPECT_TRUE(copied);
  // Contrast -256 collapses the plane to fAverage + b on the display scale.
  float flat[3] = {-256.0f, -256.0f, -256.0f}, shift[3] = {10.0f, 10.0f, 10.0f};
  target->Do(shift, flat, 100.0, src.get(), nullptr, 0);
  EXPECT_NEAR(target->GetPixelGray256f(30, 9, 0), 110.0f, 1e-3);
  target->Do(nullptr, flat, 100.0, src.get(), nullptr, 0);  // null arrays: nothing
  EXPECT_NEAR(target->GetPixelGray256f(30, 9, 0), 110.0f, 1e-3);
  ExpectRejectsBadSources(Manager(), 9, 4, 3, [&](CLmrImage *bad, CLmrImage &t) {
    CopyAs<CImgBright>(t)->Do(bright, contrast, 0.0, bad, nullptr, 1);
  });
}

TEST_P(LevelOperatorsTest, ZeroBrightnessAndContrastCopyBitForBitOnTheBlockPaths) {
  auto src = MakeImage(23, 5, 1, [](int x, int y, int) { return x == 1 ? -0.0f : Pattern(x, y, 0) * 1.0001f; });
  auto target = TargetFor<CImgBright>(*src);
  float zero[1] = {0.0f};
  target->Do(zero, zero, 17.0, src.get(), nullptr, 0);
  if (PointRoute() != Route::Plane) EXPECT_TRUE(SamePixels(*target, *src));
  else EXPECT_FALSE(std::signbit(target->GetPixelGrayRaw(1, 0, 0)));  // the formula turns -0 into +0
}

TEST_P(LevelOperatorsTest, InvertTwiceRestoresAndMatchesTheFormulaOnEveryRoute) {
  auto src = MakeImage(41, 9, 3);
  src->CImage::SetLevel(1, 100.0, 600.0);
  auto once = TargetFor<CImgInvert>(*src);
  once->CImage::SetLevel(2, -10.0, 90.0);
  MessageRecorder rec;
  once->SetProgressHandle(rec.Window());
  PostMessageW(nullptr, WM_KEYDOWN, VK_ESCAPE, 0);
  once->Do(src.get(), nullptr, 1);
  rec.Pump();
  EXPECT_EQ(rec.entries.front().text, FindStringResource(6124));
  for (int p = 0; p < 3; ++p)
    for (int x = 0; x < 41; ++x) {
      const float v = src->GetPixelGrayRaw(x, 8, p);
      const float sMin = static_cast<float>(src->GetLevelMin(p)), inv = 1.0f / static_cast<float>(src->GetLevelRange(p));
      const float want = (255.0f - (v - sMin) * inv * 255.0f) * 0.003921569f * static_cast<float>(once->GetLevelRange(p)) +
                         static_cast<float>(once->GetLevelMin(p));
      ASSERT_EQ(once->GetPixelGrayRaw(x, 8, p), want) << p << " " << x;  // one formula in one order on all routes
    }
  auto twice = TargetFor<CImgInvert>(*src);
  auto back = CopyAs<CImgInvert>(*src);
  twice->Do(src.get(), nullptr, 0);
  back->Do(twice.get(), nullptr, 0);
  for (int p = 0; p < 3; ++p)
    EXPECT_LT(cv::norm(AsMat(*back, p), AsMat(*src, p), cv::NORM_INF), 2e-3) << p;
  ExpectRejectsBadSources(Manager(), 9, 4, 3,
                          [&](CLmrImage *bad, CLmrImage &t) { CopyAs<CImgInvert>(t)->Do(bad, nullptr, 1); });
}

TEST_P(LevelOperatorsTest, CutOffClipsAtTheLevelsLikeMaxAndMin) {
  auto src = MakeImage(33, 7, 2, [](int x, int y, int p) { return x == 0 ? 0.0f : x == 1 ? NAN : Pattern(x, y, p); });
  src->CImage::SetLevel(0, 0.0, 500.0);
  src->CImage::SetLevel(1, 100.0, 700.0);
  auto target = TargetFor<CImgCutOff>(*src);
  target->Do(src.get(), 0.0f, 500.0f, nullptr, 0);
  cv::Mat want = cv::min(cv::max(AsMat(*src, 0), 0.0), 500.0);
  cv::Mat got = AsMat(*target, 0);
  EXPECT_TRUE(std::isnan(got.at<float>(3, 1)));
  cv::patchNaNs(got, 0);
  cv::patchNaNs(want, 0);
  EXPECT_EQ(cv::norm(got, want, cv::NORM_INF), 0.0);
  EXPECT_EQ(target->GetPixelGrayRaw(0, 0, 0), 0.0f);  // on Lmin: replaced by fLow = Lmin
  // Other replacement values, plane 1 with its own levels.
  target->Do(src.get(), -1.0f, -2.0f, nullptr, 0);
  for (int x = 2; x < 33; ++x) {
    const float v = src->GetPixelGrayRaw(x, 4, 1);
    ASSERT_EQ(target->GetPixelGrayRaw(x, 4, 1), v <= 100.0f ? -1.0f : v >= 700.0f ? -2.0f : v) << x;
  }
  ExpectRejectsBadSources(Manager(), 9, 4, 3, [&](CLmrImage *bad, CLmrImage &t) {
    CopyAs<CImgCutOff>(t)->Do(bad, 0.0f, 1.0f, nullptr, 1);
  });
}

TEST_P(LevelOperatorsTest, ReduceToneFloorsToNSteps) {
  auto src = MakeImage(29, 6, 1, [](int x, int y, int) { return x == 0 ? NAN : x * 40.0f - 50.0f + y; });
  auto target = TargetFor<CImgReduceTone>(*src);
  for (int tones : {4, 256, 300, 1, -5}) {
    target->Do(tones, src.get(), nullptr, 0);
    const int n = std::clamp(tones, 1, 256);
    for (int x = 1; x < 29; ++x) {
      const double u = std::clamp((src->GetPixelGrayRaw(x, 3, 0) - 0.0) * 0.255, 0.0, 255.0);
      const double w = std::floor(u / 256 * n) / n;
      ASSERT_EQ(target->GetPixelGrayRaw(x, 3, 0), static_cast<float>(w * 255 / 0.255)) << tones << " " << x;
    }
    EXPECT_TRUE(std::isnan(target->GetPixelGrayRaw(0, 3, 0)));
  }
  ExpectRejectsBadSources(Manager(), 9, 4, 3,
                          [&](CLmrImage *bad, CLmrImage &t) { CopyAs<CImgReduceTone>(t)->Do(8, bad, nullptr, 1); });
}

TEST_P(LevelOperatorsTest, HistogramEqualisationWritesRanksAndSpreadsTies) {
  // Distinct values (a permutation), a tied plane, and a constant plane.
  auto src = MakeImage(20, 10, 3, [](int x, int y, int p) {
    const int i = y * 20 + x;
    return p == 0 ? static_cast<float>((i * 37) % 200) * 1.5f + 3.0f : p == 1 ? static_cast<float>(i % 4) : 7.0f;
  });
  auto target = CopyAs<CImgHstEql>(*MakeImage(20, 10, 3, [](int, int, int) { return -1.0f; }));
  MessageRecorder rec;
  target->SetProgressHandle(rec.Window());
  EXPECT_EQ(target->Do(src.get()), 1);
  rec.Pump();
  EXPECT_EQ(rec.entries.front().text, FindStringResource(6177));
  // Plane 0: out = rank * R / N + lo.
  EXPECT_TRUE(SamplesNear(*target, [&](int x, int y, int) {
    return static_cast<float>((src->GetPixelGrayRaw(x, y, 0) - 3.0) / 1.5 * 298.5 / 200 + 3.0);
  }, 0, 5e-7, [](int, int, int p) { return p == 0; }));
  EXPECT_EQ(src->GetLevelMax(0), 301.5);  // the source's levels are set to its range
  // Plane 1: the 50 pixels of each value take 50 consecutive ranks, each once.
  std::vector<int> ranks;
  for (int y = 0; y < 10; ++y)
    for (int x = 0; x < 20; ++x) {
      const int r = static_cast<int>(std::lround(target->GetPixelGrayRaw(x, y, 1) * 200 / 3));
      EXPECT_EQ(r / 50, static_cast<int>(src->GetPixelGrayRaw(x, y, 1)));
      ranks.push_back(r);
    }
  std::sort(ranks.begin(), ranks.end());
  for (int i = 0; i < 200; ++i) ASSERT_EQ(ranks[i], i);
  // Plane 2 is constant: nothing is written. A second run gives the same result.
  EXPECT_EQ(target->GetPixelGrayRaw(5, 5, 2), -1.0f);
  auto again = CopyAs<CImgHstEql>(*target);
  again->Do(src.get());
  EXPECT_TRUE(SamePixels(*again, *target));
  ExpectRejectsBadSources(Manager(), 9, 4, 3, [&](CLmrImage *bad, CLmrImage &t) { CopyAs<CImgHstEql>(t)->Do(bad); });
}

TEST_P(LevelOperatorsTest, NormalizeGivesTheAskedMeanAndDeviation) {
  auto src = MakeImage(31, 17, 2, [](int x, int y, int p) { return p == 1 ? 42.0f : Pattern(x, y, 0); });
  float mean[2] = {500.0f, 7.0f}, sigma[2] = {25.0f, 3.0f};
  for (int mode = 0; mode < 3; ++mode) {
    auto target = CopyAs<CImgNormalize>(*MakeImage(31, 17, 2, [](int, int, int) { return -1.0f; }));
    target->Do(src.get(), mode != 1 ? mean : nullptr, mode != 0 ? sigma : nullptr, 0);
    const Moments m = MeanSigmaOf(Samples(0, 0, 31, 17, [&](int x, int y) { return target->GetPixelGrayRaw(x, y, 0); }));
    if (mode != 1) EXPECT_NEAR(m.mean, 500.0, 1e-3) << mode;
    if (mode != 0) EXPECT_NEAR(m.sigma, 25.0, 1e-3) << mode;
    // Plane 1 has no deviation: with the deviation alone it stays untouched.
    EXPECT_EQ(target->GetPixelGrayRaw(3, 3, 1), mode == 1 ? -1.0f : 7.0f) << mode;
  }
  ExpectRejectsBadSources(Manager(), 9, 4, 3,
                          [&](CLmrImage *bad, CLmrImage &t) { CopyAs<CImgNormalize>(t)->Do(bad, mean, sigma, 1); });
}

struct Palette : CImgFalseColor {
  std::array<float, 3> At(float t, int table, int cycle = 0) {
    std::array<float, 3> c;
    GetFalseColor(t, table, cycle, &c[0], &c[1], &c[2]);
    return c;
  }
};

TEST_P(LevelOperatorsTest, FalseColourPalettesAndTheOperator) {
  Palette p;
  using C = std::array<float, 3>;
  EXPECT_EQ(p.At(0, 0), (C{0, 0, 255}));
  EXPECT_EQ(p.At(255, 0), (C{255, 0, 0}));
  EXPECT_EQ(p.At(63.75f / 2, 0), (C{0, 127.5f, 255}));
  EXPECT_EQ(p.At(42.5f + 32, 1), (C{0, 127.5f, 255}));  // table 1 blends by 1/64: half at 32 of 42.5
  EXPECT_EQ(p.At(42.5f * 2 + 42, 1)[1], 255.0f);
  EXPECT_NEAR(p.At(42.5f * 2 + 42, 1)[2], 255 - 255 * 42 / 64.0, 1e-3);
  EXPECT_EQ(p.At(255, 1), (C{255, 255, 255}));
  EXPECT_EQ(p.At(63.75f * 3, 2), (C{128, 128, 255}));
  EXPECT_EQ(p.At(100.5f, 5), (C{255, 46.5f, 0}));
  EXPECT_EQ(p.At(NAN, 5), (C{0, 0, 0}));  // NaN counts as 0
  EXPECT_EQ(p.At(77.25f, 9), (C{77.25f, 77.25f, 77.25f}));
  EXPECT_EQ(p.At(40, 9, 2), (C{80, 80, 80}));
  EXPECT_EQ(p.At(200, 9, 2), (C{144, 144, 144}));  // 400 mod 256
  // Tables 3 and 4 pass through their samples and rise monotonically.
  const int at[9] = {0, 32, 64, 96, 128, 160, 192, 224, 255};
  const C cyan[9] = {{0, 0, 0},       {0, 23, 33},     {0, 59, 78},     {0, 100, 124}, {21, 143, 168},
                     {74, 182, 199},  {140, 213, 224}, {201, 236, 241}, {246, 252, 252}};
  const C red[9] = {{0, 0, 0},     {44, 0, 0},      {104, 1, 0},     {163, 13, 0},   {202, 46, 23},
                    {225, 103, 76}, {239, 162, 143}, {248, 215, 205}, {253, 249, 248}};
  for (int i = 0; i < 9; ++i)
    for (int ch = 0; ch < 3; ++ch) {
      EXPECT_NEAR(p.At(static_cast<float>(at[i]), 3)[ch], cyan[i][ch], 1e-3);
      EXPECT_NEAR(p.At(static_cast<float>(at[i]), 4)[ch], red[i][ch], 1e-3);
    }
  for (int t = 1; t < 256; ++t)
    for (int ch = 0; ch < 3; ++ch) {
      ASSERT_GE(p.At(static_cast<float>(t), 3)[ch], p.At(t - 1.0f, 3)[ch]);
      ASSERT_GE(p.At(static_cast<float>(t), 4)[ch], p.At(t - 1.0f, 4)[ch]);
    }

  // The operator: a mono source mapped over fMin..fMax, written on the target's levels.
  auto src = MakeImage(16, 3, 1, [](int x, int, int) { return x * 50.0f; });
  auto target = TargetFor<CImgFalseColor>(*MakeImage(16, 3, 3));
  target->Do(0.0, 750.0, 0, 0, src.get(), nullptr, 0);
  for (int x = 0; x < 16; ++x) {
    const C c = p.At(std::min(255.0f, x * 50.0f * 0.255f * (255.0f / (750 * 0.255f))), 0);
    for (int ch = 0; ch < 3; ++ch) ASSERT_NEAR(target->GetPixelGrayRaw(x, 1, ch), c[ch] * 1000 / 255, 1e-2) << x;
  }
  // A mono target does nothing and shows nothing.
  auto mono = CopyAs<CImgFalseColor>(*MakeImage(16, 3, 1));
  MessageRecorder rec;
  mono->SetProgressHandle(rec.Window());
  mono->Do(0.0, 750.0, 0, 0, src.get(), nullptr, 1);
  rec.Pump();
  EXPECT_TRUE(rec.entries.empty());
  EXPECT_EQ(mono->GetPixelGrayRaw(3, 1, 0), Pattern(3, 1, 0));
  ExpectRejectsBadSources(Manager(), 9, 4, 3, [&](CLmrImage *bad, CLmrImage &t) {
    CopyAs<CImgFalseColor>(t)->Do(0.0, 100.0, 1, 0, bad, nullptr, 1);
  });
}

}  // namespace
}  // namespace qorimg::test
