// Dark and flat calibration and CImgDark on every route, against the formulas
// computed one operation at a time in the test.
#include <cmath>
#include <limits>
#include "calibrate/ImgDark.h"
#include "support/Fixtures.h"

namespace qorimg::test {
namespace {

class CalibrationTest : public RouteTest {
protected:
  bool PlaneRoute() const { return Case().Expected(false) == Route::Plane; }
};
QORIMG_ALL_ROUTES(CalibrationTest);

constexpr float kNaN = std::numeric_limits<float>::quiet_NaN();
constexpr float kInf = std::numeric_limits<float>::infinity();

// Light frame with the awkward values in its first row; flat and dark frames
// as smooth fields with a few values at or below zero.
float Light(int x, int y, int p) {
  if (y == 0 && x < 4) return std::array<float, 4>{kNaN, kInf, -kInf, -3.0f}[x];
  return Pattern(x, y, p);
}
float Dark(int x, int y, int p) { return 20.0f + static_cast<float>((x * 7 + y * 3 + p) % 50); }
float Flat(int x, int y, int p) {
  if (y == 1 && x < 2) return x == 0 ? 0.0f : -2.0f;
  return 900.0f + 13.0f * static_cast<float>((x * 5 + y * 11 + p * 3) % 17);
}

float FlatGammaRef(float v, float fmax, float gm0, double gamma) {
  const double span = fmax - gm0, lifted = v - gm0;
  return static_cast<float>(std::pow(lifted / span, gamma) * span + gm0);
}
float Divide(float v, float f, float a) { return f > 0.0f ? a * v / f : v; }

// Progress messages of one run: opened, steps posted, closed.
struct ProgressSeen {
  int opened = 0, steps = 0, closed = 0;
};
template <class Run>
ProgressSeen WatchProgress(CLmrImage &target, Run run) {
  MessageRecorder recorder;
  target.SetProgressHandle(recorder.Window());
  run();
  recorder.Pump();
  target.SetProgressHandle(nullptr);
  return {recorder.Count(PROGRESS_OPEN), recorder.Count(PROGRESS_UPDATE), recorder.Count(PROGRESS_CLOSE)};
}

TEST_P(CalibrationTest, DarkClipsAtZeroWithMonoColourAndLargerFrames) {
  for (int darkPlanes : {1, 3}) {
    auto img = MakeImage(23, 9, 3, Light);
    auto dark = MakeImage(25, 11, darkPlanes, Dark);  // larger frames are read at the same coordinates
    const ProgressSeen seen = WatchProgress(*img, [&] { img->DarkClbrtn(dark.get(), 1); });
    EXPECT_EQ(seen.opened, 1);
    EXPECT_EQ(seen.closed, 1);
    if (PlaneRoute())
      EXPECT_EQ(seen.steps, 0);
    else
      EXPECT_GT(seen.steps, 0);
    EXPECT_TRUE(SamplesNear(*img, [&](int x, int y, int p) {
      const float r = Light(x, y, p) - Dark(x, y, darkPlanes == 1 ? 0 : p);
      return r > 0.0f ? r : 0.0f;
    }, 0));
  }
}

TEST_P(CalibrationTest, FlatOverTheWholeImageDividesByTheMeanOfPlaneZero) {
  auto img = MakeImage(21, 8, 3, Light);
  auto flat = MakeImage(21, 8, 3, Flat);
  const float a = flat->GetAvrGrayRaw(0);  // this store's own mean, as the operator takes it
  const ProgressSeen seen = WatchProgress(*img, [&] { img->FlatClbrtn(flat.get(), nullptr, 1); });
  EXPECT_EQ(seen.opened, PlaneRoute() ? 0 : 1);
  EXPECT_EQ(seen.closed, PlaneRoute() ? 0 : 1);
  EXPECT_TRUE(SamplesNear(*img, [&](int x, int y, int p) { return Divide(Light(x, y, p), Flat(x, y, p), a); }, 0));
}

// A partial rectangle: the pipeline fills it with 0, the line loop starts each
// row at column 0 and takes the rectangle's width.
TEST_P(CalibrationTest, FlatOnAPartialRectangleDiffersByRouteAsPinned) {
  auto img = MakeImage(20, 7, 2, Light);
  auto flat = MakeImage(20, 7, 1, Flat);
  const float a = flat->GetAvrGrayRaw(0);
  CRect rect(5, 2, 12, 6);
  img->FlatClbrtn(flat.get(), &rect, 0);
  EXPECT_TRUE(SamplesNear(*img, [&](int x, int y, int p) {
    const bool row = y >= 2 && y < 6;
    if (row && PlaneRoute() && x >= 5 && x < 12) return 0.0f;
    return row && !PlaneRoute() && x < 7 ? Divide(Light(x, y, p), Flat(x, y, 0), a) : Light(x, y, p);
  }, 0));
}

TEST_P(CalibrationTest, FlatWithGammaFollowsThePowerCurveAndStopsAtAConstantPlane) {
  auto img = MakeImage(19, 10, 3, Light);
  // Plane 2 of the flat is constant: it and nothing after it is flattened.
  auto flat = MakeImage(19, 10, 3, [](int x, int y, int p) { return p == 2 ? 5.0f : Flat(x, y, p); });
  const ProgressSeen seen = WatchProgress(*img, [&] { img->FlatClbrtn(flat.get(), 0.25f, 0.7, 1); });
  EXPECT_EQ(seen.opened, PlaneRoute() ? 0 : 1);
  EXPECT_EQ(seen.closed, PlaneRoute() ? 0 : 1);
  EXPECT_TRUE(SamplesNear(*img, [&](int x, int y, int p) {
    const float fmin = flat->GetMinPixel(p), fmax = flat->GetMaxPixel(p);
    const float gm0 = fmax - 2.0f * (fmax - fmin);
    const float a = FlatGammaRef(PlaneRoute() ? flat->GetAvrPixel(p) : flat->GetAvrGrayRaw(p), fmax, gm0, 0.7);
    const float v = Light(x, y, p);
    return p == 2 ? v : Divide(v, FlatGammaRef(Flat(x, y, p), fmax, gm0, 0.7) + a * 0.25f, a);
  }, 0));
  // No gamma, or no flat: nothing at all.
  auto before = MakeImage(19, 10, 3, Light);
  auto same = MakeImage(19, 10, 3, Light);
  for (double g : {0.0, -1.0, static_cast<double>(kNaN)}) same->FlatClbrtn(flat.get(), 0.0f, g, 0);
  same->FlatClbrtn(nullptr, 0.0f, 1.0, 0);
  EXPECT_TRUE(SamePixels(*same, *before));
}

TEST_P(CalibrationTest, DarkFlatCalibratesTheRectangleFromTheSourceInOnePass) {
  auto src = MakeImage(17, 9, 3, Light);
  auto dark = MakeImage(17, 9, 1, Dark);
  auto flat = MakeImage(17, 9, 1, [](int x, int y, int p) { return x == 2 && y == 1 ? kNaN : Flat(x, y, p); });
  float fmin[1] = {-2.0f}, fmax[1] = {1108.0f}, favr[1] = {1000.0f};
  CRect rect(2, 1, 15, 8);
  for (double gamma : {0.0, 1.6}) {
    auto img = MakeImage(17, 9, 3, [](int, int, int) { return 7.0f; });
    int result = 0;
    const ProgressSeen seen = WatchProgress(*img, [&] {
      result = img->DarkFlat(src.get(), dark.get(), flat.get(), fmin, fmax, favr, 0.1f, gamma, &rect, 1);
    });
    EXPECT_EQ(result, 1);
    EXPECT_EQ(seen.opened, 1);
    EXPECT_GT(seen.steps, 0);
    const float gm0 = fmax[0] - 2.0f * (fmax[0] - fmin[0]);
    const float a = gamma > 0 ? FlatGammaRef(favr[0], fmax[0], gm0, gamma) : favr[0];
    EXPECT_TRUE(SamplesNear(*img, [&](int x, int y, int p) {
      if (x < 2 || x >= 15 || y < 1 || y >= 8) return 7.0f;
      const float d = Light(x, y, p) - Dark(x, y, 0);
      float f = x == 2 && y == 1 ? kNaN : Flat(x, y, 0);
      if (gamma > 0) f = FlatGammaRef(f, fmax[0], gm0, gamma);
      return Divide(d > 0.0f ? d : 0.0f, f + a * 0.1f, a);
    }, 0)) << gamma;
  }
  // A constant flat is dropped, the dark still applies; missing arguments give 0.
  auto img = MakeImage(17, 9, 3);
  float same[1] = {3.0f};
  EXPECT_EQ(img->DarkFlat(src.get(), dark.get(), flat.get(), same, same, favr, 0.0f, 0.0, nullptr, 0), -1);
  const float d = Light(9, 4, 2) - Dark(9, 4, 0);
  EXPECT_EQ(img->GetPixelGrayRaw(9, 4, 2), d > 0 ? d : 0.0f);
  EXPECT_EQ(img->DarkFlat(nullptr, dark.get(), flat.get(), fmin, fmax, favr, 0, 0, nullptr, 0), 0);
  EXPECT_EQ(img->DarkFlat(src.get(), nullptr, nullptr, fmin, fmax, favr, 0, 0, nullptr, 0), 0);
  EXPECT_EQ(img->DarkFlat(src.get(), dark.get(), flat.get(), fmin, nullptr, favr, 0, 0, nullptr, 0), 0);
  EXPECT_EQ(img->DarkFlat(src.get(), nullptr, flat.get(), fmin, fmax, favr, 0, 0, nullptr, 0), 1);
}

// The three interpolations against the same formulas in double, rounded once.
TEST_P(CalibrationTest, InterpolatedDarksMatchTheDoubleFormulas) {
  auto second = MakeImage(13, 6, 3, Dark);
  const auto a = [](int x, int y, int p) { return static_cast<double>(Pattern(x, y, p)); };
  const auto b = [](int x, int y, int p) { return static_cast<double>(Dark(x, y, p)); };
  struct Form {
    std::function<void(CImgDark &)> run;
    std::function<double(double, double)> formula;
  };
  const double p = (5.0 - 2.0) / (9.0 - 2.0), q = (-3.0 - 1.5) / (4.0 - 1.5);
  const double r = std::pow(2.0, 1.5 - -3.0 / 2.5);
  const std::vector<Form> forms = {
      {[&](CImgDark &d) { d.DoInterpolateByProportion(second.get(), 2, 9, 5, 1.5, 4, -3, 0); },
       [&](double va, double vb) { return (vb - va) * p + va + (vb - va) * q; }},
      {[&](CImgDark &d) { d.DoInterpolateByPower(second.get(), 2, 9, 5, 1.5, 4, -3, 2.5, 0); },
       [&](double va, double vb) { return (vb - va) * p + va + va * r; }},
      {[&](CImgDark &d) { d.DoInterpolateByScore(second.get(), 5, 2, 9, 0); },
       [&](double va, double vb) {
         const double v = (vb - va) * p + va;
         return v > vb ? vb : va > v ? va : v;
       }},
  };
  for (const Form &form : forms) {
    auto target = CopyAs<CImgDark>(*MakeImage(13, 6, 3));
    form.run(*target);
    EXPECT_TRUE(SamplesNear(*target, [&](int x, int y, int c) {
      return static_cast<float>(form.formula(a(x, y, c), b(x, y, c)));
    }, 0)) << &form - forms.data();
  }
  // With a <= b, Score at the ends gives the frames themselves; equal
  // ordinates are non-finite.
  const auto above = [](int x, int y, int p) { return Pattern(x, y, p) + 100.0f; };
  auto higher = MakeImage(13, 6, 3, above);
  for (auto [fx, want] : {std::pair{2.0f, Pattern(4, 3, 1)}, std::pair{9.0f, above(4, 3, 1)}}) {
    auto target = CopyAs<CImgDark>(*MakeImage(13, 6, 3));
    target->DoInterpolateByScore(higher.get(), fx, 2, 9, 0);
    EXPECT_EQ(target->GetPixelGrayRaw(4, 3, 1), want);
  }
  auto equal = CopyAs<CImgDark>(*MakeImage(13, 6, 3));
  equal->DoInterpolateByProportion(second.get(), 2, 9, 5, 1, 1, 3, 0);
  EXPECT_FALSE(std::isfinite(equal->GetPixelGrayRaw(4, 3, 1)));
  // Only the planes both frames have: plane 1 of a two-plane target with a
  // mono second frame stays.
  auto mono = MakeImage(13, 6, 1, above);
  auto two = CopyAs<CImgDark>(*MakeImage(13, 6, 2));
  two->DoInterpolateByScore(mono.get(), 9, 2, 9, 0);
  EXPECT_EQ(two->GetPixelGrayRaw(3, 2, 0), above(3, 2, 0));
  EXPECT_EQ(two->GetPixelGrayRaw(3, 2, 1), Pattern(3, 2, 1));
}

TEST_P(CalibrationTest, BadCalibrationFramesRaiseBeforeAnythingIsWritten) {
  ExpectRejectsBadSources(Manager(), 12, 7, 3, [](CLmrImage *src, CLmrImage &t) { t.DarkClbrtn(src, 1); });
  ExpectRejectsBadSources(Manager(), 12, 7, 3, [](CLmrImage *src, CLmrImage &t) { t.FlatClbrtn(src, nullptr, 1); });
  ExpectRejectsBadSources(Manager(), 12, 7, 3, [](CLmrImage *src, CLmrImage &t) {
    if (!src) AfxThrowInvalidArgException();  // a null flat is a no-op in this form
    t.FlatClbrtn(src, 0.0f, 1.0, 1);
  });
  ExpectRejectsBadSources(Manager(), 12, 7, 3, [this](CLmrImage *src, CLmrImage &t) {
    if (!src) AfxThrowInvalidArgException();  // a null source gives 0 here
    auto dark = MakeImage(12, 7, 1, Dark);
    float s[3] = {1, 2, 1};
    t.DarkFlat(dark.get(), src, dark.get(), s, s + 1, s + 2, 0, 0, nullptr, 1);
  });
  // CImgDark works on the planes both frames have: fewer planes are no error.
  ExpectRejectsBadSources(Manager(), 12, 7, 1, [](CLmrImage *src, CLmrImage &t) {
    CImgDark d;  // a copy of the target, reporting progress to the same window
    ASSERT_TRUE(d.CopyImage(t));
    d.SetProgressHandle(t.GetProgressHandle());
    d.DoInterpolateByScore(src, 1, 0, 2, 1);
  });
  TakeRuns();
}

}  // namespace
}  // namespace qorimg::test
