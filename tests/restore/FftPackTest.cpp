// The any-length complex transform of the Lucy-Richardson core against FFTW:
// every pass (2, 3, 4, 5, general odd, and the general even factor of a
// length with more factors than the table holds), both directions, and the
// two-dimensional plane transform.
#include <gtest/gtest.h>
#include <fftw3.h>

#include <cmath>
#include <complex>
#include <random>
#include <vector>
#include "restore/FftPack.h"

namespace {

std::vector<float> RandomComplex(std::size_t n, unsigned seed) {
  std::mt19937 rng(seed);
  std::uniform_real_distribution<float> u(-1.0f, 1.0f);
  std::vector<float> v(2 * n);
  for (float &x : v) x = u(rng);
  return v;
}

// Largest difference against FFTW relative to FFTW's largest magnitude.
double RelativeError(const std::vector<float> &ours, const std::vector<float> &theirs) {
  double worst = 0, largest = 0;
  for (std::size_t i = 0; i < ours.size(); i += 2) {
    largest = std::max(largest, std::hypot(double(theirs[i]), double(theirs[i + 1])));
    worst = std::max(worst, std::hypot(double(ours[i]) - theirs[i], double(ours[i + 1]) - theirs[i + 1]));
  }
  return worst / largest;
}

std::vector<float> Fftw(std::vector<float> data, int w, int h, int sign) {
  auto *p = reinterpret_cast<fftwf_complex *>(data.data());
  fftwf_plan plan = h == 1 ? fftwf_plan_dft_1d(w, p, p, sign, FFTW_ESTIMATE) : fftwf_plan_dft_2d(h, w, p, p, sign, FFTW_ESTIMATE);
  fftwf_execute(plan);
  fftwf_destroy_plan(plan);
  return data;
}

TEST(FftPack, AnyLengthAgainstFftw) {
  // Tolerance: float rounding grows with the passes and, in the general
  // pass, with the factor's length.
  for (int n : {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 15, 16, 25, 30, 49, 60, 64, 77, 97, 100, 121, 210, 1000, 4096,
                6000, 4001}) {
    std::vector<float> wsave(4 * static_cast<std::size_t>(n) + 15);
    qorimg::fft::cffti(n, wsave.data());
    const auto input = RandomComplex(n, n);
    const double tolerance = n == 4001 ? 2e-4 : n >= 49 && n % 2 && n % 3 && n % 5 ? 2e-5 : 4e-6;
    auto forward = input;
    qorimg::fft::cfftf(n, forward.data(), wsave.data());
    EXPECT_LT(RelativeError(forward, Fftw(input, n, 1, FFTW_FORWARD)), tolerance) << n;
    auto backward = input;
    qorimg::fft::cfftb(n, backward.data(), wsave.data());
    EXPECT_LT(RelativeError(backward, Fftw(input, n, 1, FFTW_BACKWARD)), tolerance) << n;
  }
}

// 2 * 3^13 has 14 factors: the table holds 12 and the remaining 6 is one
// factor of the general pass, even.
TEST(FftPack, LengthWithMoreFactorsThanTheTable) {
  const int n = 2 * 1594323;
  std::vector<float> wsave(4 * static_cast<std::size_t>(n) + 15);
  qorimg::fft::cffti(n, wsave.data());
  EXPECT_EQ(wsave[4 * n + 1], 13.0f);
  EXPECT_EQ(wsave[4 * n + 2 + 12], 6.0f);
  const auto input = RandomComplex(n, 7);
  auto ours = input;
  qorimg::fft::cfftf(n, ours.data(), wsave.data());
  EXPECT_LT(RelativeError(ours, Fftw(input, n, 1, FFTW_FORWARD)), 2e-5);
}

TEST(FftPack, PlaneByRowsAndColumns) {
  for (auto [w, h] : {std::pair{60, 45}, std::pair{64, 64}, std::pair{13, 1}, std::pair{1, 7}, std::pair{19, 33}}) {
    qorimg::fft::CfftPlane plane(w, h);
    const auto input = RandomComplex(static_cast<std::size_t>(w) * h, w * 100 + h);
    auto forward = input, backward = input;
    plane.Forward(forward.data());
    plane.Backward(backward.data());
    EXPECT_LT(RelativeError(forward, Fftw(input, w, h, FFTW_FORWARD)), 1e-5) << w << "x" << h;
    EXPECT_LT(RelativeError(backward, Fftw(input, w, h, FFTW_BACKWARD)), 1e-5) << w << "x" << h;
  }
}

}  // namespace
