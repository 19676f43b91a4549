// CFft: the older single-threaded radix-2 class, with the convolution and
// Gaussian operations of the Wiener filter.
#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <new>
#include <utility>
#include <vector>

#include "platform/Diagnostics.h"
#include "restore/Fft.h"
#include "restore/FftInternal.h"
#include "restore/RestoreInternal.h"

using qorimg::fft::ArrayElements;

CFft::CFft() = default;

CFft::~CFft() {
  DeleteWorkArea();
  delete[] m_pA;
  delete[] m_pB;
}

int CFft::Create(int nWidth, int nHeight) {
  const int w = GetCeilPowerOf2(nWidth), h = GetCeilPowerOf2(nHeight);
  delete[] m_pA;
  delete[] m_pB;
  m_pA = m_pB = nullptr;
  m_nWidth = m_nHeight = m_nLog2Width = m_nLog2Height = 0;
  if (w < 1 || h < 1) return 0;
  qorimg::restore::CheckAllocation();
  m_pA = new complex[ArrayElements(w, h)];
  m_pB = new complex[ArrayElements(w, h)];
  m_nWidth = w;
  m_nHeight = h;
  while ((1 << m_nLog2Width) < w) ++m_nLog2Width;
  while ((1 << m_nLog2Height) < h) ++m_nLog2Height;
  Init();
  return 1;
}

void CFft::Init() {
  if (!m_pA) return;
  const std::size_t bytes = ArrayElements(m_nWidth, m_nHeight) * sizeof(complex);
  std::memset(static_cast<void *>(m_pA), 0, bytes);
  std::memset(static_cast<void *>(m_pB), 0, bytes);
  m_bAmpA = m_bAmpB = 0;
}

complex *CFft::Array(int nArray) const { return nArray == 0 ? m_pA : nArray == 1 ? m_pB : nullptr; }

int CFft::NewWorkArea() {
  DeleteWorkArea();
  const int n = m_nWidth > m_nHeight ? m_nWidth : m_nHeight;
  try {
    m_pWork[0] = new complex[static_cast<std::size_t>(n)];
    m_pWork[1] = new complex[static_cast<std::size_t>(n)];
  } catch (const std::bad_alloc &) {
    DeleteWorkArea();
    return 0;
  }
  return 1;
}

void CFft::DeleteWorkArea() {
  delete[] m_pWork[0];
  delete[] m_pWork[1];
  m_pWork[0] = m_pWork[1] = nullptr;
}

// cos(2 pi k / n) for k < n: the quarter circle computed, the rest mirrored.
void CFft::CalcW(int n) {
  m_w.assign(static_cast<std::size_t>(n), 0.0);
  for (int k = 0; k <= n / 4; ++k) {
    const double c = std::cos(2.0 * M_PI * k / n);
    m_w[k] = c;
    if (n / 2 - k >= 0 && n / 2 - k < n) m_w[n / 2 - k] = -c;
    if (n / 2 + k < n) m_w[n / 2 + k] = -c;
    if (k > 0) m_w[n - k] = c;
  }
  if (n == 1) m_w[0] = 1.0;
}

// Self-sorting (Stockham) radix-2 on work buffer 0, ping-ponging with buffer
// 1; the result ends in buffer 0. Twiddles e^(+-2 pi i k / n) in float.
void CFft::LineFFT(int n, int nLog2, int bInverse) {
  complex *x = m_pWork[0], *y = m_pWork[1];
  const float sign = bInverse ? -1.0f : 1.0f;
  int stride = 1;
  for (int len = n; len > 1; len /= 2, stride *= 2) {
    const int half = len / 2;
    for (int p = 0; p < half; ++p) {
      const int k = p * stride;
      const float c = static_cast<float>(m_w[k]);
      // sin = cos a quarter turn back; lines of 2 only need k = 0.
      const float s = n >= 4 ? sign * static_cast<float>(m_w[(k + 3 * (n / 4)) % n]) : 0.0f;
      for (int q = 0; q < stride; ++q) {
        const complex a = x[q + stride * p], b = x[q + stride * (p + half)];
        const float dr = a.re - b.re, di = a.im - b.im;
        y[q + stride * 2 * p] = {a.re + b.re, a.im + b.im};
        y[q + stride * (2 * p + 1)] = {dr * c - di * s, dr * s + di * c};
      }
    }
    std::swap(x, y);
  }
  if (x != m_pWork[0]) std::memcpy(static_cast<void *>(m_pWork[0]), x, sizeof(complex) * n);
  if (bInverse)
    for (int j = 0; j < n; ++j) {
      m_pWork[0][j].re /= static_cast<float>(n);
      m_pWork[0][j].im /= static_cast<float>(n);
    }
  (void)nLog2;
}

int CFft::Do(int bInverse, int nArray) {
  complex *a = Array(nArray);
  if (!a || !NewWorkArea()) return 0;
  const std::size_t w = static_cast<std::size_t>(m_nWidth), h = static_cast<std::size_t>(m_nHeight);
  CalcW(m_nWidth);
  for (std::size_t y = 0; y < h; ++y) {
    std::memcpy(static_cast<void *>(m_pWork[0]), a + y * w, sizeof(complex) * w);
    LineFFT(m_nWidth, m_nLog2Width, bInverse);
    std::memcpy(static_cast<void *>(a + y * w), m_pWork[0], sizeof(complex) * w);
  }
  if (m_nHeight != m_nWidth) CalcW(m_nHeight);
  for (std::size_t x = 0; x < w; ++x) {
    for (std::size_t y = 0; y < h; ++y) m_pWork[0][y] = a[y * w + x];
    LineFFT(m_nHeight, m_nLog2Height, bInverse);
    for (std::size_t y = 0; y < h; ++y) a[y * w + x] = m_pWork[0][y];
  }
  DeleteWorkArea();
  return 0;
}

void CFft::Swap(int nArray) {
  complex *a = Array(nArray);
  if (!a) return;
  const std::size_t w = static_cast<std::size_t>(m_nWidth);
  const int halfW = m_nWidth / 2, halfH = m_nHeight / 2;
  for (int y = 0; y < m_nHeight; ++y) std::swap_ranges(a + y * w, a + y * w + halfW, a + y * w + halfW);
  for (int y = 0; y < halfH; ++y) std::swap_ranges(a + y * w, a + (y + 1) * w, a + (y + halfH) * w);
}

void CFft::ToAmpPhase(int nArray) {
  complex *a = Array(nArray);
  if (!a) return;
  for (std::size_t i = 0, n = ArrayElements(m_nWidth, m_nHeight); i < n; ++i) {
    const double re = a[i].re, im = a[i].im;
    a[i] = {static_cast<float>(std::sqrt(re * re + im * im)), static_cast<float>(std::atan2(im, re))};
  }
  Swap(nArray);
  (nArray == 0 ? m_bAmpA : m_bAmpB) = 1;
}

void CFft::ToReIm(int nArray) {
  complex *a = Array(nArray);
  if (!a) return;
  Swap(nArray);
  for (std::size_t i = 0, n = ArrayElements(m_nWidth, m_nHeight); i < n; ++i) {
    const double amp = a[i].re, phase = a[i].im;
    a[i] = {static_cast<float>(amp * std::cos(phase)), static_cast<float>(amp * std::sin(phase))};
  }
  (nArray == 0 ? m_bAmpA : m_bAmpB) = 0;
}

void CFft::Windowing(int nArray) {
  complex *a = Array(nArray);
  if (!a) return;
  const double half = m_nWidth / 2;
  for (int y = 0; y < m_nHeight; ++y)
    for (int x = 0; x < m_nWidth; ++x) {
      const double dx = x - m_nWidth / 2, dy = y - m_nHeight / 2;
      const double weight = std::cos(std::sqrt(dx * dx + dy * dy) * M_PI / half) * 0.5 + 0.5;
      complex &e = a[static_cast<std::size_t>(y) * m_nWidth + x];
      e.re = static_cast<float>(e.re * weight);
      e.im = static_cast<float>(e.im * weight);
    }
}

double CFft::Interp(const complex *pArray, double x, double y) const {
  const int w = m_nWidth, h = m_nHeight;
  if (!(x > -0.5 && x < w - 0.5 && y > -0.5 && y < h - 0.5)) return 0.0;
  const double fx = std::floor(x), fy = std::floor(y), ax = x - fx, ay = y - fy;
  auto at = [&](int i, int j) {
    i = i < 0 ? 0 : i >= w ? w - 1 : i;
    j = j < 0 ? 0 : j >= h ? h - 1 : j;
    return static_cast<double>(pArray[static_cast<std::size_t>(j) * w + i].re);
  };
  const int x0 = static_cast<int>(fx), y0 = static_cast<int>(fy);
  return (at(x0, y0) * (1 - ax) + at(x0 + 1, y0) * ax) * (1 - ay) +
         (at(x0, y0 + 1) * (1 - ax) + at(x0 + 1, y0 + 1) * ax) * ay;
}

void CFft::ToLogPolar(int nRhoMin, int bInscribed, int nThetaStart, int nThetaEnd, int bLogTone, int nArray) {
  complex *a = Array(nArray);
  if (!a) return;
  const int w = m_nWidth, h = m_nHeight;
  const std::size_t n = ArrayElements(w, h);
  if (bLogTone)
    for (std::size_t i = 0; i < n; ++i) a[i].re = static_cast<float>(std::log(static_cast<double>(a[i].re)) + 1.0);
  const double rho0 = std::log(nRhoMin + 0.5);
  const double rho1 = std::log(bInscribed ? w * 0.5 - 0.5 : w / std::sqrt(2.0) - 0.5);
  const double deltaRho = (rho1 - rho0) / h;
  const double thetaStart = nThetaStart * 3.1415927 / 180;
  const double deltaTheta = (double(nThetaEnd) - nThetaStart) * 3.1415927 / 180 / w;
  const bool finite = std::isfinite(rho0) && std::isfinite(deltaRho) && std::isfinite(deltaTheta);
  std::vector<complex> copy(a, a + n);
  for (int j = 0; j < h; ++j)
    for (int i = 0; i < w; ++i) {
      double value = 0.0;
      if (finite) {
        const double rho = std::exp(rho0 + j * deltaRho), theta = thetaStart + i * deltaTheta;
        value = Interp(copy.data(), std::cos(theta) * rho + (w * 0.5 - 0.5), std::sin(theta) * rho + (h * 0.5 - 0.5));
      }
      a[static_cast<std::size_t>(j) * w + i] = {static_cast<float>(value), 0.0f};
    }
}

void CFft::GetMinMax(double *pMin, double *pMax) {
  double lo = 0.0, hi = 0.0;
  bool any = false;
  for (std::size_t i = 0, n = m_pA ? ArrayElements(m_nWidth, m_nHeight) : 0; i < n; ++i) {
    const double s = double(m_pA[i].re) * m_pA[i].re + double(m_pA[i].im) * m_pA[i].im;
    if (std::isnan(s)) continue;
    if (!any || s < lo) lo = s;
    if (!any || s > hi) hi = s;
    any = true;
  }
  if (pMin) *pMin = lo;
  if (pMax) *pMax = hi;
}

void CFft::Convolution(CFft *pOther, double fNoise) {
  if (!m_pA || !pOther || !pOther->m_pA || pOther->m_nWidth != m_nWidth || pOther->m_nHeight != m_nHeight) return;
  const float noise = static_cast<float>(fNoise);
  for (std::size_t i = 0, n = ArrayElements(m_nWidth, m_nHeight); i < n; ++i) {
    const complex g = pOther->m_pA[i], f = m_pA[i];
    const float denominator = g.re * g.re + g.im * g.im + noise;
    m_pA[i] = {(g.re * f.re + g.im * f.im) / denominator, (g.re * f.im - g.im * f.re) / denominator};
  }
}

void CFft::SetGauss(double fSigma) {
  if (!m_pA) return;
  const int w = m_nWidth, h = m_nHeight;
  for (int y = 0; y < h; ++y)
    for (int x = 0; x < w; ++x) {
      // i^2 + j^2 in 64 bits: in int it overflows from W = H = 65536.
      const long long i = x > w / 2 ? x - w : x, j = y > h / 2 ? y - h : y;
      const float r2 = static_cast<float>(i * i + j * j);
      const double value = std::exp(-r2 * 0.5 / (fSigma * fSigma)) * 1000.0 * 0.5 / 3.14159;
      m_pA[static_cast<std::size_t>(y) * w + x] = {static_cast<float>(value), 0.0f};
    }
}

void CFft::CalcPOC() {
  if (!m_pA) return;
  if (m_bAmpA && m_bAmpB) {
    ToReIm(0);
    ToReIm(1);
  } else if (m_bAmpA || m_bAmpB) {
    AfxMessageBox(m_bAmpA ? L"CFft::CalcPOC(): FFT array A is amplitude." : L"CFft::CalcPOC(): FFT array B is amplitude.");
    return;
  }
  for (std::size_t i = 0, n = ArrayElements(m_nWidth, m_nHeight); i < n; ++i) {
    const complex a = m_pA[i], b = m_pB[i];
    float re = b.re * a.re + b.im * a.im, im = b.im * a.re - b.re * a.im;
    const float length = std::sqrt(re * re + im * im);
    if (length > 0.0f) {
      re /= length;
      im /= length;
    }
    m_pA[i] = {re, im};
  }
}
