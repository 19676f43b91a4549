// Helpers of the restoration operators: rectangle movers, the allocation
// hook, the Gaussian PSF and the formatted progress titles.
#include "restore/RestoreInternal.h"

#include <algorithm>
#include <atomic>
#include <cmath>
#include <cwchar>
#include <new>
#include <vector>

#include "platform/StringResources.h"

namespace qorimg::restore {
namespace {

// Allocations left before the hook fails them; negative: never.
std::atomic<long long> allocationsLeft{-1};

}  // namespace

void testing::FailAllocationsFrom(int n) { allocationsLeft.store(n); }

void CheckAllocation() {
  long long left = allocationsLeft.load();
  while (left > 0 && !allocationsLeft.compare_exchange_weak(left, left - 1)) {
  }
  if (left == 0) throw std::bad_alloc();
}

void CopyRectOut(const CLmrImage &image, int plane, const LineRect &rect, float *dst) {
  const std::size_t w = static_cast<std::size_t>(std::max(rect.Width(), 0));
  ForRectRows(image, plane, rect, false, [&](int y, const float *line) { std::memcpy(dst + y * w, line, w * sizeof(float)); });
}

void CopyRectIn(CLmrImage &image, int plane, const LineRect &rect, const float *src) {
  const std::size_t w = static_cast<std::size_t>(std::max(rect.Width(), 0));
  ForRectRows(image, plane, rect, true, [&](int y, float *line) { std::memcpy(line, src + y * w, w * sizeof(float)); });
}

// Element (i, j) = exp(-(a^2 + b^2) / (2 sigma^2)) / (6.28318 sigma^2) with
// a = i - W/2, b = j - H/2, rounded to float, and s the double sum of the
// rounded values. The classic normalisation divides only the first element
// by s, once per element of the array, and leaves the rest nearly unit-sum.
// That stays as it is while it gives a finite first element no larger than
// the peak; beyond (sigma above about 9.9 on 64 x 64, where s^-N grows past
// the centre value and later overflows), every element is divided by s once
// instead, so the PSF keeps its peak in the centre and is finite.
float *MakeGaussPsf(double fSigma, int nWidth, int nHeight) {
  if (!(fSigma > 0.0) || !std::isfinite(fSigma) || nWidth < 1 || nHeight < 1) return nullptr;
  const std::size_t n = static_cast<std::size_t>(nWidth) * static_cast<std::size_t>(nHeight);
  CheckAllocation();
  float *psf = new float[n];
  const double twoSigma2 = 2.0 * fSigma * fSigma, scale = 6.28318 * fSigma * fSigma;
  double sum = 0.0;
  float peak = 0.0f;
  for (int j = 0; j < nHeight; ++j)
    for (int i = 0; i < nWidth; ++i) {
      const double a = i - nWidth * 0.5, b = j - nHeight * 0.5;
      const float v = static_cast<float>(std::exp(-(a * a + b * b) / twoSigma2) / scale);
      psf[static_cast<std::size_t>(j) * nWidth + i] = v;
      sum += v;
      peak = std::max(peak, v);
    }
  float first = psf[0];
  for (std::size_t k = 0; k < n; ++k) first = static_cast<float>(first / sum);
  if (std::isfinite(first) && (first <= peak || n == 1)) {
    psf[0] = first;
  } else {
    for (std::size_t k = 0; k < n; ++k) psf[k] = static_cast<float>(psf[k] / sum);
  }
  return psf;
}

std::wstring FormatResource(int id, int a, int b) {
  const wchar_t *format = FindStringResource(static_cast<UINT>(id));
  if (!format) return std::wstring();
  std::vector<wchar_t> text(std::wcslen(format) + 64);
  std::swprintf(text.data(), text.size(), format, a, b);
  return std::wstring(text.data());
}

}  // namespace qorimg::restore
