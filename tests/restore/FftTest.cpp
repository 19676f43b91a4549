// The transform classes against FFTW (test oracle only), and their
// conversions, windows, sizes and the radix-2 class's operations.
#include <fftw3.h>
#include <gtest/gtest.h>

#include <climits>
#include <cmath>
#include <cstring>
#include <random>
#include <vector>
#include "restore/Fft.h"
#include "restore/FftInternal.h"

namespace {

// Reaches the protected line transforms.
class OpenFftd : public CFftd {
public:
  using CFftd::Interp;
  using CFftd::LineFFT;
  using CFftd::LineFFT_SR;
  using CFftd::MakeTable;
  using CFftd::SubPixPeakPEF;
};

std::vector<float> RandomValues(std::size_t count, unsigned seed) {
  std::mt19937 rng(seed);
  std::uniform_real_distribution<float> dist(-1.0f, 1.0f);
  std::vector<float> v(count);
  for (float &f : v) f = dist(rng);
  return v;
}

// FFTW's sign convention is the opposite: our forward is its backward, our
// inverse its forward divided by W H.
std::vector<float> Oracle(const std::vector<float> &in, int w, int h, bool inverse) {
  std::vector<float> out(in.size());
  auto *data = reinterpret_cast<fftwf_complex *>(fftwf_malloc(sizeof(fftwf_complex) * w * h));
  std::memcpy(data, in.data(), in.size() * sizeof(float));
  fftwf_plan plan = fftwf_plan_dft_2d(h, w, data, data, inverse ? FFTW_FORWARD : FFTW_BACKWARD, FFTW_ESTIMATE);
  fftwf_execute(plan);
  fftwf_destroy_plan(plan);
  std::memcpy(out.data(), data, in.size() * sizeof(float));
  fftwf_free(data);
  if (inverse)
    for (float &f : out) f /= static_cast<float>(w) * h;
  return out;
}

// Largest difference relative to the largest magnitude of the expectation.
double RelativeError(const float *got, const std::vector<float> &expected) {
  double worst = 0.0, scale = 1e-30;
  for (std::size_t i = 0; i < expected.size(); ++i) {
    worst = std::max(worst, std::abs(double(got[i]) - expected[i]));
    scale = std::max(scale, std::abs(double(expected[i])));
  }
  return worst / scale;
}

template <class Fft>
void ExpectMatchesOracle(int w, int h) {
  Fft fft;
  ASSERT_EQ(fft.Create(w, h), 1);
  ASSERT_EQ(fft.GetWidth(), w);
  const auto input = RandomValues(std::size_t(2) * w * h, static_cast<unsigned>(w * 131 + h));
  float *a = reinterpret_cast<float *>(fft.GetImageAdrA());
  std::memcpy(a, input.data(), input.size() * sizeof(float));
  // Float rounding grows with log2 of the length; 2e-6 per stage and then some.
  const double tolerance = 4e-6 * (1 + std::log2(double(w) * h));
  fft.Do(0, 0);
  EXPECT_LE(RelativeError(a, Oracle(input, w, h, false)), tolerance) << w << " x " << h << " forward";
  std::memcpy(a, input.data(), input.size() * sizeof(float));
  fft.Do(1, 0);
  EXPECT_LE(RelativeError(a, Oracle(input, w, h, true)), tolerance) << w << " x " << h << " inverse";
  fft.Do(0, 0);
  EXPECT_LE(RelativeError(a, input), tolerance) << w << " x " << h << " round trip";
}

const std::vector<std::pair<int, int>> kSizes = {{1, 1}, {2, 1}, {1, 8},   {4, 4},    {8, 2},   {16, 32},
                                                 {64, 16}, {256, 128}, {32, 512}, {2048, 4}, {4, 1024}};

TEST(FftdTransform, MatchesFftwOnAllLineLengths) {
  for (auto [w, h] : kSizes) ExpectMatchesOracle<CFftd>(w, h);
}

TEST(FftTransform, RadixTwoMatchesFftw) {
  for (auto [w, h] : kSizes) ExpectMatchesOracle<CFft>(w, h);
}

TEST(FftdTransform, LargeArrayMatchesFftw) { ExpectMatchesOracle<CFftd>(4096, 2048); }

// The grouped lanes give every line exactly what the one-line transform gives.
TEST(FftdTransform, GroupedLinesAreBitIdenticalToSingleLines) {
  for (auto [w, h] : std::vector<std::pair<int, int>>{{64, 37}, {1024, 16}, {8, 8}, {512, 3}}) {
    const int hp = CFftd::GetCeilPowerOf2(h);
    for (int inverse = 0; inverse < 2; ++inverse) {
      OpenFftd grouped, single;
      ASSERT_EQ(grouped.Create(w, h), 1);
      ASSERT_EQ(single.Create(w, h), 1);
      const auto input = RandomValues(std::size_t(2) * w * hp, 7);
      std::memcpy(grouped.GetImageAdrA(), input.data(), input.size() * sizeof(float));
      std::memcpy(single.GetImageAdrA(), input.data(), input.size() * sizeof(float));
      grouped.Do(inverse, 0);
      dcomplex *s = single.GetImageAdrA();
      for (int y = 0; y < hp; ++y) single.LineFFT_SR(s + std::size_t(y) * w, w, inverse);
      std::vector<dcomplex> column(hp);
      for (int x = 0; x < w; ++x) {
        for (int y = 0; y < hp; ++y) column[y] = s[std::size_t(y) * w + x];
        single.LineFFT_SR(column.data(), hp, inverse);
        for (int y = 0; y < hp; ++y) s[std::size_t(y) * w + x] = column[y];
      }
      EXPECT_EQ(std::memcmp(grouped.GetImageAdrA(), s, input.size() * sizeof(float)), 0)
          << w << " x " << hp << " inverse " << inverse;
    }
  }
}

TEST(FftdTransform, OtherArrayIndexOrFailedAllocationLeavesArrays) {
  CFftd fft;
  ASSERT_EQ(fft.Create(8, 8), 1);
  fft.GetImageAdrA()[3] = {1.0f, 2.0f};
  fft.GetImageAdrB()[5] = {3.0f, 4.0f};
  fft.Do(0, 2);
  fft.Do(0, -1);
  fft.Do1D(0, 7);
  fft.Windowing(2);
  fft.ToAmpPhase(5);
  qorimg::fft::testing::FailTransformAllocations(true);
  EXPECT_EQ(fft.Do(0, 0), 0);
  qorimg::fft::testing::FailTransformAllocations(false);
  EXPECT_EQ(fft.GetImageAdrA()[3].re, 1.0f);
  EXPECT_EQ(fft.GetImageAdrA()[0].re, 0.0f);
  EXPECT_EQ(fft.GetImageAdrB()[5].im, 4.0f);
}

TEST(FftdSizes, PowersOfTwoAndBadInput) {
  for (int b = 0; b <= 30; ++b) {
    EXPECT_EQ(CFftd::GetCeilPowerOf2(1 << b), 1 << b);
    EXPECT_EQ(CFftd::GetFloorPowerOf2(1 << b), 1 << b);
  }
  EXPECT_EQ(CFftd::GetCeilPowerOf2(1000), 1024);
  EXPECT_EQ(CFftd::GetFloorPowerOf2(1000), 512);
  EXPECT_EQ(CFftd::GetCeilPowerOf2(0), 0);
  EXPECT_EQ(CFftd::GetCeilPowerOf2(-5), INT_MIN);
  EXPECT_EQ(CFftd::GetCeilPowerOf2((1 << 30) + 1), INT_MIN);
  EXPECT_EQ(CFftd::GetFloorPowerOf2((1 << 30) + 1), 1 << 30);

  CFftd fft;
  EXPECT_EQ(fft.Create(1000, 600), 1);
  EXPECT_EQ(fft.GetWidth(), 1024);
  EXPECT_EQ(fft.GetHeight(), 1024);
  CFftd none;
  EXPECT_EQ(none.Create(0, 16), 0);
  EXPECT_EQ(none.GetImageAdrA(), nullptr);
  EXPECT_EQ(none.Do(0, 0), 0);  // does nothing
  none.Windowing(0);
  none.ToLogPolar(0, 1, 0, 180, 1, 0);
  CFft radix;
  EXPECT_EQ(radix.Create(-3, 4), 0);
  qorimg::fft::testing::FailTransformAllocations(true);
  EXPECT_EQ(none.Create(16, 16), 0);
  qorimg::fft::testing::FailTransformAllocations(false);
  EXPECT_EQ(none.GetImageAdrA(), nullptr);
}

template <class Fft>
void ExpectAmpPhaseRoundTrip() {
  Fft fft;
  ASSERT_EQ(fft.Create(16, 8), 1);
  auto *a = fft.GetImageAdrA();
  a[0] = {1.0f, 0.0f};  // an impulse at (0, 0): all amplitudes 1
  fft.Do(0, 0);
  fft.ToAmpPhase(0);
  for (int i = 0; i < 16 * 8; ++i) ASSERT_NEAR(a[i].re, 1.0f, 1e-6);
  const auto input = RandomValues(2 * 16 * 8, 3);
  std::memcpy(a, input.data(), input.size() * sizeof(float));
  fft.ToAmpPhase(0);
  EXPECT_FLOAT_EQ(a[4 * 16 + 8].re, std::hypot(input[0], input[1]));  // element (0, 0) now at (W/2, H/2)
  fft.ToReIm(0);
  for (std::size_t i = 0; i < input.size(); ++i) ASSERT_NEAR(reinterpret_cast<float *>(a)[i], input[i], 1e-6);
}

TEST(FftConversions, AmplitudePhaseRoundTripAndCentring) {
  ExpectAmpPhaseRoundTrip<CFftd>();
  ExpectAmpPhaseRoundTrip<CFft>();
}

TEST(FftConversions, WindowingCutsCornersOnlyInTheWorkingClass) {
  CFftd d;
  CFft r;
  d.Create(16, 16);
  r.Create(16, 16);
  for (int i = 0; i < 256; ++i) {
    d.GetImageAdrA()[i] = {1.0f, -2.0f};
    r.GetImageAdrA()[i] = {1.0f, -2.0f};
  }
  d.Windowing(0);
  r.Windowing(0);
  EXPECT_EQ(d.GetImageAdrA()[0].re, 0.0f);   // corner: distance above the radius
  EXPECT_GT(r.GetImageAdrA()[0].re, 0.0f);   // rises again beyond it
  EXPECT_EQ(d.GetImageAdrA()[8 * 16 + 8].im, -2.0f);  // weight 1 at the centre
  EXPECT_EQ(d.GetImageAdrA()[8 * 16 + 12].re, 0.5f);  // d = R/2: cos(pi/2) 0.5 + 0.5
  EXPECT_NEAR(r.GetImageAdrA()[8 * 16 + 12].re, 0.5f, 1e-7);
}

TEST(FftConversions, SwapExchangesHalves) {
  CFftd fft;
  fft.Create(4, 2);
  auto *a = fft.GetImageAdrA();
  for (int i = 0; i < 8; ++i) a[i] = {float(i), 0.0f};
  fft.SwapX(0);
  EXPECT_EQ(a[0].re, 2.0f);
  EXPECT_EQ(a[5].re, 7.0f);
  fft.SwapX(0);
  fft.Swap(0);
  const float expected[8] = {6, 7, 4, 5, 2, 3, 0, 1};
  for (int i = 0; i < 8; ++i) EXPECT_EQ(a[i].re, expected[i]);
}

// Element i of row y's one-dimensional transform lands at y + i (H + 1);
// slots that no row writes keep their values.
TEST(FftdDo1D, StridedLayoutOfRowTransforms) {
  const int w = 16, h = 8;
  OpenFftd fft;
  fft.Create(w, h);
  const auto input = RandomValues(2 * w * h, 11);
  dcomplex *a = fft.GetImageAdrA();
  std::memcpy(a, input.data(), input.size() * sizeof(float));
  fft.Do1D(0, 0);
  std::vector<bool> written(w * h, false);
  for (int y = 0; y < h; ++y) {
    std::vector<float> row(input.begin() + 2 * w * y, input.begin() + 2 * w * (y + 1));
    const auto expected = Oracle(row, w, 1, false);
    for (int i = 0; i < w; ++i) {
      const int at = y + i * (h + 1);
      if (at >= w * h) continue;
      written[at] = true;
      EXPECT_NEAR(a[at].re, expected[2 * i], 1e-5);
      EXPECT_NEAR(a[at].im, expected[2 * i + 1], 1e-5);
    }
  }
  for (int at = 0; at < w * h; ++at)
    if (!written[at]) {
      EXPECT_EQ(a[at].re, input[2 * at]) << at;
    }
}

TEST(FftOperations, GaussConvolutionMinMaxAndPoc) {
  CFft g, f;
  g.Create(8, 8);
  f.Create(8, 8);
  g.SetGauss(1.5);
  const float peak = static_cast<float>(1000.0 * 0.5 / 3.14159);
  EXPECT_FLOAT_EQ(g.GetImageAdrA()[0].re, peak);
  EXPECT_FLOAT_EQ(g.GetImageAdrA()[7].re, static_cast<float>(std::exp(-0.5 / 2.25) * 1000.0 * 0.5 / 3.14159));  // x = -1
  EXPECT_EQ(g.GetImageAdrA()[7].im, 0.0f);
  double lo = -1, hi = -1;
  g.GetMinMax(&lo, &hi);
  EXPECT_NEAR(hi, double(peak) * peak, 1e-2);
  EXPECT_GT(lo, 0.0);

  for (int i = 0; i < 64; ++i) f.GetImageAdrA()[i] = {float(i), 1.0f};
  g.GetImageAdrA()[1] = {2.0f, 1.0f};
  f.Convolution(&g, 0.5);
  // conj(2 + i)(1 + i) / (5 + 0.5) = (3 + i) / 5.5
  EXPECT_FLOAT_EQ(f.GetImageAdrA()[1].re, 3.0f / 5.5f);
  EXPECT_FLOAT_EQ(f.GetImageAdrA()[1].im, 1.0f / 5.5f);

  // Phase-only correlation of identical arrays: unit phase at every frequency.
  CFft p;
  p.Create(4, 4);
  for (int i = 0; i < 16; ++i) p.GetImageAdrA()[i] = p.GetImageAdrB()[i] = {float(i + 1), float(-i)};
  p.CalcPOC();
  EXPECT_FLOAT_EQ(p.GetImageAdrA()[5].re, 1.0f);
  EXPECT_FLOAT_EQ(p.GetImageAdrA()[5].im, 0.0f);
}

}  // namespace
