// The preparation of digital development on every route: its parameters and
// plane filters against a double-precision reading, the fixed point it sets up
// for each writer, and its bad input.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

#include "FilterReference.h"
#include "core/LentImage.h"
#include "filter/ImgFilterSpecial.h"
#include "support/Fixtures.h"

namespace qorimg::test {
namespace {

// The gamma curve in double: values at or below lo pass.
double Curve(double v, double p, double lo, double range) {
  return v - lo <= 0.0 ? v : std::pow((v - lo) / range, p) * range + lo;
}

// The blur row a preparation should leave for one plane, normalised.
std::vector<double> BlurRow(int nFilter, double size, double weight) {
  const double sigma = size;
  const int r =
      nFilter == 0 ? std::max(1, static_cast<int>(sigma * 2.8 + 1.0)) : std::max(1, 2 * static_cast<int>(size));
  std::vector<double> row(static_cast<size_t>(2 * r + 1));
  double sum = 0.0;
  for (int x = -r; x <= r; ++x) {
    double &w = row[static_cast<size_t>(x + r)];
    if (nFilter == 0)
      w = std::exp(-x * x / (2.0 * sigma * sigma));
    else
      w = x == 0 ? 1.0 : (x * x <= size * size ? weight : 0.0);
    sum += w;
  }
  for (double &w : row) w /= sum;
  return row;
}

struct Preparation {
  const char *name;
  int width, height, planes, nFilter, nMinMax, bGammaAfter;
  double size[3], weight, gamma0, level;
};

float Wavy(int x, int y, int c) {
  return static_cast<float>(300.0 + 250.0 * std::sin(0.37 * x + 0.11 * c) * std::cos(0.23 * y) + 2.0 * x - y);
}

class DigitalDvlp1Test : public RouteTest {
protected:
  // A developer over a fresh target with levels that differ per plane.
  std::unique_ptr<CImgFilterSpecial> Developer(int width, int height, int planes) {
    auto image = MakeImage(width, height, planes, [](int, int, int) { return -5.0f; });
    auto dev = std::make_unique<CImgFilterSpecial>();
    dev->Swap(image.get());
    const double levels[3][2] = {{50.0, 1250.0}, {0.0, 600.0}, {-100.0, 900.0}};
    for (int c = 0; c < planes; ++c) dev->SetLevel(c, levels[c][0], levels[c][1]);
    return dev;
  }
};
QORIMG_ALL_ROUTES(DigitalDvlp1Test);

TEST_P(DigitalDvlp1Test, ParametersAndFiltersFollowTheDoubleReading) {
  // 500 x 400 pixels are sampled in 2 x 2 cells (the median of cell means);
  // the sizes differ per plane so that a filter on the wrong plane shows.
  const Preparation cases[] = {
      {"gauss mono, gamma before", 23, 19, 1, 0, 1, 0, {1.5, 0, 0}, 1.0, 2.2, 700.0},
      {"gauss colour, gamma after", 21, 17, 3, 0, 3, 1, {0.8, 1.6, 2.0}, 1.0, 2.2, 640.0},
      {"mean colour, range to level max", 20, 18, 3, 1, 2, 0, {1.7, 2.4, 1.2}, 0.4, 0.6, 410.0},
      {"mean mono, from zero, gamma 1", 25, 16, 1, 1, 0, 0, {2.5, 0, 0}, 1.0, 1.0, 555.0},
      {"sampled colour", 500, 400, 3, 0, 1, 0, {1.0, 1.0, 1.0}, 1.0, 1.8, 500.0},
  };
  for (const Preparation &k : cases) {
    SCOPED_TRACE(k.name);
    auto src = MakeImage(k.width, k.height, k.planes, Wavy);
    src->CalcMinMax();
    auto dev = Developer(k.width, k.height, k.planes);
    double size[3] = {k.size[0], k.size[1], k.size[2]}, gamma[3] = {k.gamma0, 3.0, 0.5}, level[1] = {k.level};
    float fMin[3] = {-7, -7, -7}, fRange[3], fA[3], fMul[3];
    dev->DigitalDvlp1(level, k.nFilter, size, k.weight, gamma, k.nMinMax, src.get(), fMin, fRange, fA, fMul,
                      k.bGammaAfter);

    // The curve's range on plane 0 and carried to the other planes' levels.
    const std::vector<float> s0 = ReadPlane(*src, 0);
    const double smin = *std::min_element(s0.begin(), s0.end()), smax = *std::max_element(s0.begin(), s0.end());
    const double L0 = dev->GetLevelMin(0), R0 = dev->GetLevelRange(0);
    const double lo[4] = {0.0, smin, smin, L0}, hi[4] = {smax, smax, src->GetLevelMax(0), smax};
    for (int c = 0; c < 3; ++c) {
      double min = lo[k.nMinMax], max = hi[k.nMinMax];
      if (k.planes == 3 && c > 0) {
        auto carry = [&](double t) { return (t - L0) / R0 * dev->GetLevelRange(c) + dev->GetLevelMin(c); };
        min = k.nMinMax == 3 ? dev->GetLevelMin(c) : carry(min);
        max = carry(max);
      }
      EXPECT_NEAR(fMin[c], min, 1e-4 * std::abs(min) + 1e-4) << c;
      EXPECT_NEAR(fRange[c], max - min, 1e-4 * std::abs(max - min) + 1e-3) << c;
    }

    // The level and the upper middle of the (cell) samples, through plane 0's
    // curve unless the gamma comes after the development.
    const int pixels = k.width * k.height;
    const int n = pixels > 50000 ? static_cast<int>(std::sqrt(pixels / 50000) + 0.5) : 1;
    std::vector<double> cells;
    for (int y = 0; y + n <= k.height; y += n)
      for (int x = 0; x + n <= k.width; x += n) {
        double sum = 0.0;
        for (int j = 0; j < n; ++j)
          for (int i = 0; i < n; ++i) sum += s0[static_cast<size_t>((y + j) * k.width + x + i)];
        cells.push_back(sum / (n * n));
      }
    std::nth_element(cells.begin(), cells.begin() + static_cast<long>(cells.size() / 2), cells.end());
    double t = k.level, m = cells[cells.size() / 2];
    if (!k.bGammaAfter && k.gamma0 != 1.0) {
      t = Curve(t, 1.0 / k.gamma0, fMin[0], fRange[0]);
      m = Curve(m, 1.0 / k.gamma0, fMin[0], fRange[0]);
    }
    const double a = (t - L0) / R0 * 255.0, mul = (m - L0) / R0 * 255.0 + a;
    // Float arithmetic on the 0..255 scale: a few float steps of 255.
    for (int c = 0; c < 3; ++c) {
      EXPECT_NEAR(fA[c], a, 2e-3) << c;
      EXPECT_NEAR(fMul[c], mul, 2e-3) << c;
    }

    // Each plane's filter blurs src with its own size: rings' rim rule, on
    // the top rows and a band in the middle (enough to tell every radius).
    for (int c = 0; c < k.planes; ++c) {
      const std::vector<double> row = BlurRow(k.nFilter, k.size[c], k.weight);
      const int r = static_cast<int>(row.size() / 2);
      const cv::Mat expected = Separable(RingPad(PlaneMat(*src, c), r), row);
      double worst = 0.0;
      for (int y : {0, 1, 2, k.height / 2, k.height - 1})
        for (int x = 0; x < k.width; ++x)
          worst = std::max(worst, std::abs(dev->CalcFilterProc(x, y, c) - expected.at<double>(y, x)));
      // Float sums of at most 13 taps over values below 1000.
      EXPECT_LT(worst, 2e-3) << "plane " << c;
    }
  }
}

TEST_P(DigitalDvlp1Test, FlatAreaAtTheMedianStaysForEveryWriter) {
  // More than half of the frame is flat at 400, so that is the median; far
  // from the ramp the blur is 400 too, and each writer keeps the value its
  // gamma gives it.
  auto flat = [](int x, int y, int c) { return y < 14 ? 400.0f : 400.0f + 40.0f * x + 3.0f * c; };
  for (const int planes : {1, 3}) {
    SCOPED_TRACE(planes);
    auto src = MakeImage(24, 22, planes, flat);
    src->CalcMinMax();
    auto dev = Developer(24, 22, planes);
    for (int c = 0; c < planes; ++c) dev->SetLevel(c, 50.0, 1250.0);
    int own[3] = {0, 1, 2};
    double size[3] = {1.5, 1.5, 1.5}, level[1] = {600.0};
    float fMin[3], fRange[3], fA[3], fMul[3];
    struct Writer {
      double gamma;
      int bGammaAfter;
    };
    for (const Writer w : {Writer{1.0, 0}, Writer{2.0, 0}, Writer{2.0, 1}}) {
      double gamma[3] = {w.gamma, w.gamma, w.gamma};
      dev->DigitalDvlp1(level, 0, size, 1.0, gamma, 0, src.get(), fMin, fRange, fA, fMul, w.bGammaAfter);
      double expected = 400.0;
      if (w.gamma == 1.0) {
        dev->DigitalDvlpOnly(1, src.get(), 1.0, own, fMin, fRange, fA, fMul, nullptr, 0);
      } else if (!w.bGammaAfter) {
        dev->DigitalDvlp2(1, gamma, src.get(), own, fMin, fRange, fA, fMul, nullptr, 0);
        expected = Curve(400.0, 0.5, fMin[0], fRange[0]);
      } else {
        dev->DigitalDvlpGmAftrDdp(1, gamma, src.get(), own, fMin, fRange, fA, fMul, nullptr, 0);
        expected = Curve((400.0 - 50.0) / 1200.0 * 255.0, 0.5, 0.0, 255.0) / 255.0 * 1200.0 + 50.0;
      }
      for (int c = 0; c < planes; ++c)
        for (int y = 0; y < 14 - 6; ++y)
          for (int x = 0; x < 24; ++x) ASSERT_NEAR(dev->GetPixelGrayRaw(x, y, c), expected, 1e-3) << x << "," << y;
    }
  }
}

TEST_P(DigitalDvlp1Test, BadInputChangesNothingOrIsRejected) {
  ExpectRejectsBadSources(Manager(), 9, 7, 3, [](CLmrImage *src, CLmrImage &target) {
    CImgFilterSpecial dev;
    const LentImage lent(dev, target);
    double level[1] = {500.0}, size[3] = {1, 1, 1}, gamma[3] = {1, 1, 1};
    float fMin[3], fRange[3], fA[3], fMul[3];
    dev.DigitalDvlp1(level, 0, size, 1.0, gamma, 1, src, fMin, fRange, fA, fMul, 0);
  });

  auto src = MakeImage(9, 7, 1, Wavy);
  src->CalcMinMax();
  auto dev = Developer(9, 7, 1);
  double level[1] = {500.0}, size[3] = {1, 1, 1}, gamma[3] = {1, 1, 1};
  float fMin[3] = {-7, -7, -7}, fRange[3] = {-7, -7, -7}, fA[3] = {-7, -7, -7}, fMul[3] = {-7, -7, -7};
  int own[3] = {0, 1, 2};
  // An unknown filter or a missing array: no output and no plane filter, so a
  // writer afterwards has nothing to develop with and leaves the target.
  dev->DigitalDvlp1(level, 2, size, 1.0, gamma, 1, src.get(), fMin, fRange, fA, fMul, 0);
  dev->DigitalDvlp1(level, 0, size, 1.0, gamma, 1, src.get(), fMin, fRange, nullptr, fMul, 0);
  for (const float *out : {fMin, fRange, fA, fMul}) EXPECT_EQ(out[0], -7.0f);
  const float before = dev->GetPixelGrayRaw(4, 3, 0);
  dev->DigitalDvlpOnly(1, src.get(), 1.0, own, fMin, fRange, fA, fMul, nullptr, 0);
  EXPECT_EQ(dev->GetPixelGrayRaw(4, 3, 0), before);

  // A second preparation replaces the first one's filter (sigma 0: the pixel).
  dev->DigitalDvlp1(level, 0, size, 1.0, gamma, 1, src.get(), fMin, fRange, fA, fMul, 0);
  size[0] = 0.0;
  dev->DigitalDvlp1(level, 0, size, 1.0, gamma, 1, src.get(), fMin, fRange, fA, fMul, 0);
  EXPECT_EQ(dev->CalcFilterProc(4, 3, 0), src->GetPixelGrayRaw(4, 3, 0));

  // The target as its own source: the median and extremes are its own.
  auto same = Developer(9, 7, 1);
  FillImage(*same, Wavy);
  same->CalcMinMax();
  float sMin[3], sRange[3], sA[3], sMul[3];
  same->DigitalDvlp1(level, 0, size, 1.0, gamma, 1, same.get(), sMin, sRange, sA, sMul, 0);
  dev->DigitalDvlp1(level, 0, size, 1.0, gamma, 1, src.get(), fMin, fRange, fA, fMul, 0);
  EXPECT_EQ(sMul[0], fMul[0]);
  EXPECT_EQ(sRange[0], fRange[0]);
  EXPECT_EQ(same->CalcFilterProc(4, 3, 0), src->GetPixelGrayRaw(4, 3, 0));
}

}  // namespace
}  // namespace qorimg::test
