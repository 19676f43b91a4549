// CImgComposit on every route: the modes against a double-precision reference
// and OpenCV, edges, interpolation and the centre of rotation, colour joins,
// partial rectangles, progress, the earlier release's fetchers and mode 9.
#include "composite/ImgComposit.h"

#include <cmath>
#include <limits>
#include <numbers>
#include <opencv2/core.hpp>
#include <opencv2/imgcodecs.hpp>
#include "core/TestHooks.h"
#include "platform/Exceptions.h"
#include "platform/Messages.h"
#include "platform/StringResources.h"
#include "support/Fixtures.h"

namespace qorimg::test {
namespace {

class CompositTest : public RouteTest {
protected:
  bool KernelRoute() const { return Case().Expected(false) == Route::Plane; }
};
QORIMG_ALL_ROUTES(CompositTest);

double Formula(int mode, bool level, bool cut, double w, double a, double b) {
  switch (mode) {
    case 0: return (a + b) / 2;
    case 1: return a + b;
    case 2: return a * (1 - w) + b * w;
    case 3: return cut ? std::max(a - b, 0.0) : a - b;
    case 4: return level ? a * std::clamp(b, 0.0, 255.0) / 255 : a * b;
    case 5: return level ? a / (std::clamp(b, 0.001, 255.0) / 255) : b == 0 ? a : a / b;
    case 6: return std::fabs(a - b);
    case 7: return std::max(a, b);
    case 8: return std::min(a, b);
    default: return a;
  }
}

std::unique_ptr<CImgComposit> Target(const CLmrImage &like) {
  auto d = std::make_unique<CImgComposit>();
  d->Create(like, nullptr);
  return d;
}

float Quadratic(int x, int y, int) { return 0.5f * x * x - 0.25f * x * y + 0.125f * y * y + 3.0f * x - 2.0f * y + 7.0f; }

// Every mode with an integer shift, raw and on the levels' scale, on a colour
// pair whose planes have levels of their own. Where B has no sample the outside
// value stands in; composit_intshift_level_* scales it by 255 / B's range.
TEST_P(CompositTest, IntegerShiftModesMatchDoubleReference) {
  auto a = MakeImage(70, 40, 3);
  auto b = MakeImage(70, 40, 3, [](int x, int y, int p) { return Pattern(y, x, p) * 0.5f + 3.0f; });
  a->CImage::SetLevel(1, 20.0, 500.0);
  for (int p = 0; p < 3; ++p) b->CImage::SetLevel(p, -50.0, 450.0 + 100 * p);
  for (int level : {0, 1})
    for (int mode : {0, 1, 2, 3, -3, 4, 5, 6, 7, 8, 10, -1}) {
      const bool cut = mode == -3;
      const int m = cut ? 3 : mode;
      auto d = Target(*a);
      d->Do(a.get(), b.get(), 3, -2, 0, 0, m, 1, 0.3, level, cut, 0.95, 0, nullptr, 0, -1);
      const double outside = m == 4 || m == 5 ? 255 : 0;
      for (int p = 0; p < 3; ++p)
        for (int y = 0; y < 40; ++y)
          for (int x = 0; x < 70; ++x) {
            const bool inside = x >= 3 && y + 2 < 40;
            double av = a->GetPixelGrayRaw(x, y, p), bv = inside ? b->GetPixelGrayRaw(x - 3, y + 2, p) : outside;
            const double minA = a->GetLevelMin(p), rangeA = a->GetLevelRange(p);
            if (level) {
              av = (av - minA) / rangeA * 255;
              const double range = b->GetLevelRange(p);
              bv = inside ? (bv - b->GetLevelMin(p)) / range * 255 : KernelRoute() ? outside * 255 / range : outside;
            }
            double expected = Formula(m, level, cut, 0.3, av, bv);
            if (level) expected = expected / 255 * rangeA + minA;
            const float got = d->GetPixelGrayRaw(x, y, p);
            if (m > 8 || m < 0)
              ASSERT_TRUE(KernelRoute() ? got == a->GetPixelGrayRaw(x, y, p) : std::fabs(got - expected) < 1e-3);
            else
              ASSERT_NEAR(got, expected, 2e-5 * (1 + std::fabs(expected) + std::fabs(av) + std::fabs(bv)))
                  << "mode " << m << " level " << level << " at " << x << "," << y << "," << p;
          }
    }
}

// Bitwise against OpenCV on the deep field in colour (non-level, integer
// shift); the weight within one ulp; division where B is not zero.
TEST_P(CompositTest, IntegerShiftMatchesOpenCv) {
  const cv::Mat bgr = cv::imread("/usr/lib/python3/dist-packages/skimage/data/hubble_deep_field.jpg");
  if (bgr.empty()) GTEST_SKIP() << "the deep field picture is not installed";
  const int w = 200, h = 120;
  auto fill = [&](int dx, int dy) {
    return [&bgr, dx, dy](int x, int y, int p) { return bgr.at<cv::Vec3b>(y + dy, x + dx)[2 - p] * 1.5f - 20.0f; };
  };
  auto a = MakeImage(w, h, 3, fill(0, 0)), b = MakeImage(w, h, 3, fill(50, 40));
  for (int mode = 0; mode <= 8; ++mode) {
    auto d = Target(*a);
    d->Do(a.get(), b.get(), 3, -2, 0, 0, mode, 0, 0.3, 0, 0, 0.95, 0, nullptr, 0, -1);
    const double outside = mode == 4 || mode == 5 ? 255 : 0;
    for (int p = 0; p < 3; ++p) {
      cv::Mat A(h, w, CV_32F), B(h, w, CV_32F), D(h, w, CV_32F), padded, expected;
      for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) {
          A.at<float>(y, x) = a->GetPixelGrayRaw(x, y, p);
          B.at<float>(y, x) = b->GetPixelGrayRaw(x, y, p);
          D.at<float>(y, x) = d->GetPixelGrayRaw(x, y, p);
        }
      cv::copyMakeBorder(B, padded, 2, 2, 3, 3, cv::BORDER_CONSTANT, cv::Scalar(outside));
      const cv::Mat Bs = padded(cv::Rect(0, 4, w, h));
      switch (mode) {
        case 0: cv::addWeighted(A, 0.5, Bs, 0.5, 0, expected); break;
        case 1: cv::add(A, Bs, expected); break;
        case 2: cv::addWeighted(A, 0.7, Bs, 0.3, 0, expected); break;
        case 3: cv::subtract(A, Bs, expected); break;
        case 4: cv::multiply(A, Bs, expected); break;
        case 5: cv::divide(A, Bs, expected); break;
        case 6: cv::absdiff(A, Bs, expected); break;
        case 7: cv::max(A, Bs, expected); break;
        case 8: cv::min(A, Bs, expected); break;
      }
      for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) {
          const float got = D.at<float>(y, x), want = expected.at<float>(y, x);
          if (mode == 5 && Bs.at<float>(y, x) == 0) continue;
          if (mode == 2)
            ASSERT_LE(std::fabs(got - want), std::nextafter(std::fabs(want), INFINITY) - std::fabs(want)) << x << "," << y;
          else
            ASSERT_EQ(got, want) << "mode " << mode << " at " << x << "," << y << "," << p;
        }
    }
  }
}

TEST_P(CompositTest, EdgeValues) {
  auto a = MakeImage(64, 32, 1);
  auto zero = MakeImage(64, 32, 1, [](int x, int, int) { return x == 10 ? 0.0f : 2.0f; });
  auto d = Target(*a);
  d->Do(a.get(), zero.get(), 3, 0, 0, 0, 0, 0, 0);  // average: columns 0..2 hold a / 2
  for (int x = 0; x < 3; ++x) EXPECT_EQ(d->GetPixelGrayRaw(x, 5, 0), a->GetPixelGrayRaw(x, 5, 0) * 0.5f);
  d->Do(a.get(), zero.get(), 0, 0, 0, 0, 5, 0, 0);  // divide by exactly 0 gives a
  EXPECT_EQ(d->GetPixelGrayRaw(10, 5, 0), a->GetPixelGrayRaw(10, 5, 0));
  d->Do(a.get(), zero.get(), 0, 4, 0, 0, 4, 0, 0);  // multiply at the edge: a * 255
  EXPECT_EQ(d->GetPixelGrayRaw(7, 2, 0), a->GetPixelGrayRaw(7, 2, 0) * 255.0f);
  // With levels, multiply and divide are neutral at the edge of a fractional
  // shift on both routes.
  for (int mode : {4, 5}) {
    d->Do(a.get(), zero.get(), 0.5, 4.5, 0, 0, mode, 1, 1);
    EXPECT_NEAR(d->GetPixelGrayRaw(7, 2, 0), a->GetPixelGrayRaw(7, 2, 0), 1e-3);
  }
}

// A quadratic plane is reproduced exactly by the cubic kernel (a = -0.5), so
// both routes' bicubic samples equal it inside; the kernel route stays bicubic
// when bilinear is asked, the row loop then gives the bilinear sample.
TEST_P(CompositTest, FractionalShiftAndRotationSampling) {
  auto zero = MakeImage(80, 60, 1, [](int, int, int) { return 0.0f; });
  auto b = MakeImage(80, 60, 1, Quadratic);
  b->SetStdCtr(30.0, 25.0);
  const double degrees = 7.0, r = degrees * std::numbers::pi / 180;
  for (int method : {0, 1})
    for (int rotate : {0, 1})
      for (int stdCentre : {0, 1}) {
        auto d = Target(*zero);
        d->Do(zero.get(), b.get(), 2.25, -1.5, rotate ? degrees : 0.0, stdCentre, 1, method, 0);
        const double cx = stdCentre ? 30 : 40, cy = stdCentre ? 25 : 30;
        int compared = 0;
        for (int y = 0; y < 60; ++y)
          for (int x = 0; x < 80; ++x) {
            double X = x - 2.25, Y = y + 1.5;
            if (rotate) {
              const double u = X - cx, t = Y - cy;
              X = u * std::cos(r) + t * std::sin(r) + cx;
              Y = -u * std::sin(r) + t * std::cos(r) + cy;
            }
            if (X < 2 || Y < 2 || X > 76 || Y > 56) continue;
            double expected = Quadratic(0, 0, 0);
            const double fx = X - std::floor(X), fy = Y - std::floor(Y);
            const int ix = static_cast<int>(X), iy = static_cast<int>(Y);
            auto q = [](double u, double v) { return 0.5 * u * u - 0.25 * u * v + 0.125 * v * v + 3 * u - 2 * v + 7; };
            if (method == 0 && !KernelRoute())
              expected = (1 - fy) * ((1 - fx) * q(ix, iy) + fx * q(ix + 1, iy)) +
                         fy * ((1 - fx) * q(ix, iy + 1) + fx * q(ix + 1, iy + 1));
            else
              expected = q(X, Y);
            ASSERT_NEAR(d->GetPixelGrayRaw(x, y, 0), expected, 0.02 + 1e-5 * std::fabs(expected))
                << method << rotate << stdCentre << " at " << x << "," << y;
            ++compared;
          }
        EXPECT_GT(compared, 3000);
      }
}

// A colour B for a mono A: its brightness on the row loop, its plane 0 on the
// kernel route. A mono B for a colour A serves every plane on both.
TEST_P(CompositTest, ColourJoins) {
  auto mono = MakeImage(64, 32, 1, [](int, int, int) { return 0.0f; });
  auto colour = MakeImage(64, 32, 3);
  auto d = Target(*mono);
  d->Do(mono.get(), colour.get(), 0, 0, 0, 0, 1, 0, 0);
  for (int x = 0; x < 64; x += 7) {
    const double r = colour->GetPixelGrayRaw(x, 3, 0), g = colour->GetPixelGrayRaw(x, 3, 1), bl = colour->GetPixelGrayRaw(x, 3, 2);
    EXPECT_FLOAT_EQ(d->GetPixelGrayRaw(x, 3, 0), KernelRoute() ? r : 0.299 * r + 0.587 * g + 0.114 * bl);
  }
  auto zero3 = MakeImage(64, 32, 3, [](int, int, int) { return 0.0f; });
  auto d3 = Target(*zero3);
  auto b = MakeImage(64, 32, 1);
  d3->Do(zero3.get(), b.get(), 0, 0, 0, 0, 1, 0, 0);
  for (int p = 0; p < 3; ++p) EXPECT_EQ(d3->GetPixelGrayRaw(9, 4, p), b->GetPixelGrayRaw(9, 4, 0));
}

// The kernel route computes the rectangle widened to 64 x 32 into a fresh
// clone of A; the row loop writes the rectangle of D only.
TEST_P(CompositTest, PartialRectangle) {
  auto a = MakeImage(100, 50, 1);
  a->CImage::SetLevel(0, -7.0, 99.0);
  a->SetStdPt(0, CfPoint(3, 4));
  auto d = Target(*MakeImage(100, 50, 1));
  FillImage(*d, [](int, int, int) { return -1.0f; });
  CRect rect(90, 45, 100, 55);
  d->Do(a.get(), a.get(), 0, 0, 0, 0, 1, 0, 0.5, 0, 0, 0.95, 0, &rect, 0, -1);
  EXPECT_TRUE(SamplesNear(*d, [&](int x, int y, int) {
    const bool inRect = x >= 90 && y >= 45, inWide = x >= 36 && y >= 18;
    return inRect || (KernelRoute() && inWide) ? 2 * a->GetPixelGrayRaw(x, y, 0) : KernelRoute() ? 0.0f : -1.0f;
  }, 0));
  EXPECT_EQ(d->GetLevelMin(0), KernelRoute() ? -7.0 : 0.0);
  if (KernelRoute()) {
    EXPECT_EQ(d->GetStdCtr().fx, 3.0);
  }
}

// Progress on the row loop only, one step a row, ESC not looked at.
TEST_P(CompositTest, ProgressOnRowLoopsOnly) {
  auto a = MakeImage(64, 40, 1);
  for (int message : {-1, 6120}) {
    MessageRecorder recorder;
    auto d = Target(*a);
    d->SetProgressHandle(recorder.Window());
    CRect rect(0, 5, 64, 30);
    PostMessageW(nullptr, WM_KEYDOWN, VK_ESCAPE, 0);
    d->Do(a.get(), a.get(), 1.5, 0, 0, 0, 0, 0, 0.5, 0, 0, 0.95, 0, &rect, 1, message);
    recorder.Pump();
    auto quiet = Target(*a);
    quiet->Do(a.get(), a.get(), 1.5, 0, 0, 0, 0, 0, 0.5, 0, 0, 0.95, 0, &rect, 0, message);
    EXPECT_TRUE(SamePixels(*d, *quiet));  // ran to the end
    if (KernelRoute()) {
      EXPECT_TRUE(recorder.entries.empty());
      continue;
    }
    ASSERT_FALSE(recorder.entries.empty());
    // Positions are posted and may be pumped after the close: the largest of all.
    long long last = 0;
    for (const auto &e : recorder.entries) last = e.wParam == PROGRESS_UPDATE ? std::max(last, e.lParam) : last;
    EXPECT_EQ(last, 100);
    EXPECT_EQ(recorder.entries.front().text, FindStringResource(message == -1 ? 6107 : message));
  }
}

TEST_P(CompositTest, BadInputs) {
  ExpectRejectsBadSources(Manager(), 20, 12, 3, [&](CLmrImage *src, CLmrImage &target) {
    CImgComposit d;
    d.Create(target, nullptr);
    d.SetProgressHandle(target.GetProgressHandle());
    auto b = MakeImage(5, 5, 1);
    d.Do(src, b.get(), 1, 1, 0, 0, 1, 0, 0.5, 0, 0, 0.95, 0, nullptr, 1, -1);
    target.Swap(&d);
  });
  auto a = MakeImage(20, 12, 1);
  auto d = Target(*a);
  auto int16 = std::make_unique<CLmrImage>(Manager(), CImage::Int16, 20, 12, 1, 1.0, 0.0, 1, nullptr);
  EXPECT_THROW(d->Do(a.get(), nullptr, 0, 0, 0, 0, 1, 0, 0), CInvalidArgException *);
  EXPECT_THROW(d->Do65(a.get(), int16.get(), 0, 0, 0, 1, 0), CInvalidArgException *);
  const double nan = std::numeric_limits<double>::quiet_NaN(), inf = std::numeric_limits<double>::infinity();
  auto untouched = Target(*a);
  d->Do(a.get(), a.get(), nan, 0, 0, 0, 1, 0, 0);
  d->Do(a.get(), a.get(), 0, inf, 0, 0, 9, 0, 0);
  d->Do65(a.get(), a.get(), 0, 0, nan, 1, 0);
  CRect away(30, 30, 40, 40);
  d->Do(a.get(), a.get(), 0, 0, 0, 0, 1, 0, 0.5, 0, 0, 0.95, 0, &away, 0, -1);
  EXPECT_TRUE(SamePixels(*d, *untouched));
  // D may be A or B: the result is that of separate images.
  auto b = MakeImage(20, 12, 1, [](int x, int, int) { return x * 1.0f; });
  auto separate = Target(*a);
  separate->Do(a.get(), b.get(), 0.5, 1, 0, 0, 6, 1, 0);
  FillImage(*d, [&](int x, int y, int p) { return a->GetPixelGrayRaw(x, y, p); });
  d->Do(d.get(), b.get(), 0.5, 1, 0, 0, 6, 1, 0);
  EXPECT_TRUE(SamePixels(*d, *separate));
}

// A temporary that cannot be had sends the call to the row loop from the
// start; the result is the row loop's.
TEST_P(CompositTest, FailedTemporaryTakesTheRowLoop) {
  if (!KernelRoute()) GTEST_SKIP() << "kernel route only";
  auto a = MakeImage(100, 50, 1);
  auto d = Target(*a), reference = Target(*a);
  CRect rect(10, 10, 20, 20);
  qorimg::testing::ForceBlockRoute(true);
  reference->Do(a.get(), a.get(), 1, 1, 0, 0, 0, 0, 0.5, 0, 0, 0.95, 0, &rect, 0, -1);
  qorimg::testing::ForceBlockRoute(false);
  kernels::testing::FailTemporaryAllocationsFrom(0);
  d->Do(a.get(), a.get(), 1, 1, 0, 0, 0, 0, 0.5, 0, 0, 0.95, 0, &rect, 0, -1);
  kernels::testing::FailTemporaryAllocationsFrom(-1);
  TakeRuns();
  EXPECT_TRUE(SamePixels(*d, *reference));
}

// The earlier release: bilinear fetchers with one fraction a row, the last
// pixel of a run mirroring its left neighbour, the rotation about B's
// standard-point centre, levels applied before the join to grey.
TEST_P(CompositTest, Do65Fetchers) {
  auto zero = MakeImage(40, 30, 1, [](int, int, int) { return 0.0f; });
  auto b = MakeImage(40, 30, 3, [](int x, int y, int p) { return Quadratic(x, y, 0) + 10.0f * p; });
  b->CImage::SetLevel(2, 5.0, 205.0);
  b->SetStdCtr(12.0, 9.0);
  auto level = [&](double v, int p) { return (v - b->GetLevelMin(p)) * 255 / b->GetLevelRange(p); };
  auto bilinear = [&](double X, double Y, int p, int xNext) {
    const int ix = static_cast<int>(std::floor(X)), iy = static_cast<int>(std::floor(Y));
    const double fx = X - ix, fy = Y - iy;
    auto at = [&](int x, int y) { return fx == 0 && x != ix ? 0.0 : fy == 0 && y != iy ? 0.0 : b->GetPixelGrayRaw(x, y, p); };
    return (1 - fx) * (1 - fy) * at(ix, iy) + fx * (1 - fy) * at(xNext, iy) + (1 - fx) * fy * at(ix, iy + 1) +
           fx * fy * at(xNext, iy + 1);
  };
  const double s = std::sin(0.1), c = std::cos(0.1);
  for (int kind = 0; kind < 3; ++kind) {
    auto d = Target(*zero);
    const double dx = kind == 0 ? -2 : 1.25, dy = kind == 0 ? 3 : 0.5;
    d->Do65(zero.get(), b.get(), dx, dy, kind == 2 ? 0.1 * 180 / std::numbers::pi : 0.0, 1, 1);
    for (int y = 0; y < 30; ++y)
      for (int x = 0; x < 40; ++x) {
        double X = x - dx, Y = y - dy;
        if (kind == 2) {
          const double u = X - 12, t = 9 - Y;
          X = u * c - t * s + 12;
          Y = 9 - (t * c + u * s);
        }
        double expected = 0;
        if (X >= 0 && Y >= 0 && X <= 39 && Y <= 29 && (kind != 1 || X < 39)) {
          const int last = static_cast<int>(std::floor(40 - dx)) - 1;  // the run's last column
          const int xNext = kind == 1 && static_cast<int>(std::floor(X)) == std::min(last, 39) ? std::min(last + 1, 40) - 2
                                                                                              : static_cast<int>(std::floor(X)) + 1;
          double v[3];
          for (int p = 0; p < 3; ++p) v[p] = level(bilinear(X, Y, p, xNext), p);
          expected = 0.299 * v[0] + 0.587 * v[1] + 0.114 * v[2];
        }
        ASSERT_NEAR(d->GetPixelGrayRaw(x, y, 0) * 255 / 1000, expected, 1e-3 * (1 + std::fabs(expected)))
            << kind << " at " << x << "," << y;
      }
  }
}

// Mode 9 keeps what both frames show and removes what is bright in one only.
TEST_P(CompositTest, NeighbourComposite) {
  auto flat = [](float v) { return [v](int, int, int) { return v; }; };
  auto a = MakeImage(40, 30, 1, flat(100)), b = MakeImage(40, 30, 1, flat(120));
  a->SetPixelGrayRaw(10, 10, 900, 0);  // a star in A only
  b->SetPixelGrayRaw(20, 12, 900, 0);  // a star in B only
  a->SetPixelGrayRaw(30, 20, 950, 0), b->SetPixelGrayRaw(30, 20, 980, 0);  // a star in both
  b->SetStdCtr(20.0, 15.0);
  for (int useAbr : {0, 1})
    for (int level : {0, 1}) {
      a->CalcMinMax();
      b->CalcMinMax();
      std::unique_ptr<CImgComposit> result[4];
      for (int radius : {0, 2, 3}) {
        auto &d = result[radius];
        d = Target(*a);
        if (useAbr)
          d->Abr(a.get(), b.get(), 0, 0, 0, 9, 0.5, level, 0, 0.8, radius, nullptr, 0, -1);
        else
          d->Do(a.get(), b.get(), 0, 0, 0, 1, 9, 0, 0.5, level, 1, 0.8, radius, nullptr, 0, -1);
        if (radius == 3) {
          EXPECT_TRUE(SamePixels(*d, *result[2]));  // radius 3 acts as 2
        }
      }
      const CLmrImage &r0 = *result[0], &r2 = *result[2];
      EXPECT_NEAR(r0.GetPixelGrayRaw(5, 5, 0), 60, 1e-3);   // min(b w, a)
      EXPECT_NEAR(r0.GetPixelGrayRaw(0, 5, 0), 100, 1e-3);  // B's border gives a
      EXPECT_NEAR(r0.GetPixelGrayRaw(10, 10, 0), 60, 1e-3);
      EXPECT_NEAR(r2.GetPixelGrayRaw(10, 10, 0), 60, 1e-3);  // the star of A alone goes
      EXPECT_NEAR(r2.GetPixelGrayRaw(11, 10, 0), 60, 1e-3);  // min(m, pA) beside it
      EXPECT_NEAR(r2.GetPixelGrayRaw(20, 12, 0), 100, 1e-3);  // the star of B alone goes
      EXPECT_NEAR(r2.GetPixelGrayRaw(30, 20, 0), 490, 1e-2);  // a star in both stays as min(m, a)
      EXPECT_NEAR(r2.GetPixelGrayRaw(5, 5, 0), 60, 1e-3);
    }
}

}  // namespace
}  // namespace qorimg::test
