// CFftd: sizes, arrays, the split-radix two-dimensional transform, the
// row-wise radix-2 transform of Do1D, and the conversions, swaps and window.
#include <atomic>
#include <climits>
#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <new>
#include <utility>

#include "core/LineLoops.h"
#include "core/LmrImage.h"
#include "restore/Fft.h"
#include "restore/FftInternal.h"
#include "restore/FftLines.h"
#include "restore/SplitRadix.h"
#include "sibling/QorSys.h"

namespace qorimg::fft {
namespace {

std::atomic<bool> failAllocations{false};

// 64-byte aligned, uninitialised; null when the memory cannot be had.
void *AlignedAllocate(std::size_t bytes) {
  if (failAllocations.load()) return nullptr;
  const std::size_t rounded = (bytes + kLaneBufferAlignment - 1) / kLaneBufferAlignment * kLaneBufferAlignment;
  return std::aligned_alloc(kLaneBufferAlignment, rounded == 0 ? kLaneBufferAlignment : rounded);
}

int Log2(int n) {
  int bits = 0;
  while ((1 << bits) < n) ++bits;
  return bits;
}

// In-place reversal of a line transformed by cftfsub: element p goes to ip[p].
// The inverse (bitrv2conj) also conjugates and divides by n.
void bitrv2(int n, const int *ip, float *a) {
  for (int p = 0; p < n; ++p) {
    const int q = ip[p];
    if (q > p) {
      std::swap(a[2 * p], a[2 * q]);
      std::swap(a[2 * p + 1], a[2 * q + 1]);
    }
  }
}
void bitrv2conj(int n, const int *ip, float *a) {
  bitrv2(n, ip, a);
  const float scale = static_cast<float>(n);
  for (int j = 0; j < n; ++j) {
    a[2 * j] = a[2 * j] / scale;
    a[2 * j + 1] = -a[2 * j + 1] / scale;
  }
}

}  // namespace

void testing::FailTransformAllocations(bool fail) { failAllocations.store(fail); }

std::size_t ArrayElements(int width, int height) {
  return static_cast<std::size_t>(width) * static_cast<std::size_t>(height);
}

}  // namespace qorimg::fft

using qorimg::fft::ArrayElements;

// ---- sizes ----

namespace {

int PowerOf2(int n, bool ceiling) {
  if (n < 0) return INT_MIN;
  if (n == 0) return 0;
  if ((n & (n - 1)) == 0) return n;  // the logarithms would miss some powers of two
  const double exponent = std::log(static_cast<double>(n)) / std::log(2.0);
  const double r = std::pow(2.0, ceiling ? std::ceil(exponent) : std::floor(exponent));
  if (!(r <= 1073741824.0)) return INT_MIN;
  return static_cast<int>(r);
}

}  // namespace

int CFftd::GetCeilPowerOf2(int n) { return PowerOf2(n, true); }
int CFftd::GetFloorPowerOf2(int n) { return PowerOf2(n, false); }

// ---- life ----

CFftd::CFftd() = default;

CFftd::~CFftd() {
  DeleteWorkArea();
  std::free(m_pA);
  std::free(m_pB);
}

int CFftd::Create(int nWidth, int nHeight) {
  const int w = GetCeilPowerOf2(nWidth), h = GetCeilPowerOf2(nHeight);
  std::free(m_pA);
  std::free(m_pB);
  m_pA = m_pB = nullptr;
  m_nWidth = m_nHeight = m_nLog2Width = m_nLog2Height = 0;
  m_bAmpA = m_bAmpB = 0;
  if (w < 1 || h < 1) return 0;
  const std::size_t bytes = ArrayElements(w, h) * sizeof(dcomplex);
  auto *a = static_cast<dcomplex *>(qorimg::fft::AlignedAllocate(bytes));
  auto *b = a ? static_cast<dcomplex *>(qorimg::fft::AlignedAllocate(bytes)) : nullptr;
  if (!b) {
    std::free(a);
    return 0;
  }
  m_pA = a;
  m_pB = b;
  m_nWidth = w;
  m_nHeight = h;
  m_nLog2Width = qorimg::fft::Log2(w);
  m_nLog2Height = qorimg::fft::Log2(h);
  Init();
  return 1;
}

void CFftd::Init() {
  if (!m_pA) return;
  const std::size_t bytes = ArrayElements(m_nWidth, m_nHeight) * sizeof(dcomplex);
  std::memset(static_cast<void *>(m_pA), 0, bytes);
  std::memset(static_cast<void *>(m_pB), 0, bytes);
  m_bAmpA = m_bAmpB = 0;
}

dcomplex *CFftd::Array(int nArray) const { return nArray == 0 ? m_pA : nArray == 1 ? m_pB : nullptr; }

int CFftd::NewWorkArea() {
  DeleteWorkArea();
  const int n = m_nWidth > m_nHeight ? m_nWidth : m_nHeight;
  const std::size_t perThread = qorimg::fft::LaneBufferFloats(n);
  const int threads = CParallel::GetMaxThreads();
  m_pWork = static_cast<float *>(qorimg::fft::AlignedAllocate(perThread * threads * sizeof(float)));
  if (!m_pWork) return 0;
  m_nWorkPerThread = perThread;
  return 1;
}

void CFftd::DeleteWorkArea() {
  std::free(m_pWork);
  m_pWork = nullptr;
  m_nWorkPerThread = 0;
}

// ---- line transforms ----

void CFftd::MakeTableSR(int n) {
  if (m_nTableSR == n) return;
  m_twiddle.assign(qorimg::fft::TwiddleFloats(static_cast<std::size_t>(n)), 0.0f);
  std::size_t at = 0;
  for (int m = n; m >= 8; m /= 2)
    for (int k = 0; k < m / 4; ++k) {
      const double angle = 2.0 * M_PI * k / m;
      m_twiddle[at++] = static_cast<float>(std::cos(angle));
      m_twiddle[at++] = static_cast<float>(std::sin(angle));
      m_twiddle[at++] = static_cast<float>(std::cos(3.0 * angle));
      m_twiddle[at++] = static_cast<float>(std::sin(3.0 * angle));
    }
  const int bits = qorimg::fft::Log2(n);
  m_reversal.resize(static_cast<std::size_t>(n));
  for (int p = 0; p < n; ++p) m_reversal[static_cast<std::size_t>(p)] = qorimg::fft::ReverseBits(p, bits);
  m_nTableSR = n;
}

void CFftd::LineFFT_SR(dcomplex *a, int n, int bInverse) {
  if (n <= 1) return;
  MakeTableSR(n);
  float *f = reinterpret_cast<float *>(a);
  qorimg::fft::cftfsub(n, f, m_twiddle.data(), bInverse != 0);
  if (bInverse)
    qorimg::fft::bitrv2conj(n, m_reversal.data(), f);
  else
    qorimg::fft::bitrv2(n, m_reversal.data(), f);
}

void CFftd::MakeTable(int n) {
  if (m_nTable == n) return;
  // sin(2 pi k / n) for k < n + n/4; cos(2 pi k / n) is entry k + n/4.
  m_sin.resize(static_cast<std::size_t>(n) + n / 4);
  for (std::size_t k = 0; k < m_sin.size(); ++k) m_sin[k] = static_cast<float>(std::sin(2.0 * M_PI * k / n));
  m_nTable = n;
}

// Radix-2 decimation in time: reversal first, then butterflies of growing span.
void CFftd::LineFFT(dcomplex *a, int n, int bInverse) {
  if (n <= 1) return;
  const int bits = qorimg::fft::Log2(n);
  for (int p = 0; p < n; ++p) {
    const int q = qorimg::fft::ReverseBits(p, bits);
    if (q > p) std::swap(a[p], a[q]);
  }
  const float sign = bInverse ? -1.0f : 1.0f;
  for (int span = 1; span < n; span *= 2) {
    const int step = n / (2 * span);
    for (int i = 0; i < n; i += 2 * span)
      for (int k = 0; k < span; ++k) {
        const float c = m_sin[static_cast<std::size_t>(k * step + n / 4)];
        const float s = sign * m_sin[static_cast<std::size_t>(k * step)];
        dcomplex &lo = a[i + k], &hi = a[i + k + span];
        const float tr = hi.re * c - hi.im * s, ti = hi.re * s + hi.im * c;
        hi.re = lo.re - tr;
        hi.im = lo.im - ti;
        lo.re = lo.re + tr;
        lo.im = lo.im + ti;
      }
  }
  if (bInverse)
    for (int j = 0; j < n; ++j) {
      a[j].re = a[j].re / static_cast<float>(n);
      a[j].im = a[j].im / static_cast<float>(n);
    }
}

// ---- two-dimensional transforms ----

namespace {

// Lines of n values each, `count` of them, line l at base + l * lineStep
// floats and its elements `stride` floats apart: in groups over the threads,
// one progress tick per line.
void TransformLines(float *base, int count, long lineStep, long stride, int n, bool bInverse, const float *w,
                    const int *ip, float *work, std::size_t workPerThread, CLmrImage *progress) {
  const int lanes = qorimg::fft::LaneCount();
  const int groups = (count + lanes - 1) / lanes;
  qorimg::ParallelLines(0, groups, [&](int g) {
    float *lines[qorimg::fft::kMaxLanes];
    const int first = g * lanes;
    const int inGroup = count - first < lanes ? count - first : lanes;
    for (int l = 0; l < inGroup; ++l) lines[l] = base + (first + l) * lineStep;
    float *buffer = work + static_cast<std::size_t>(CParallel::GetThreadNum()) * workPerThread;
    qorimg::fft::TransformGroup(lines, stride, inGroup, n, bInverse, w, ip, buffer);
    if (progress)
      for (int l = 0; l < inGroup; ++l) progress->ShowProgress(1);
  });
}

}  // namespace

int CFftd::Do(int bInverse, int nArray) {
  dcomplex *a = Array(nArray);
  if (!a || !NewWorkArea()) return 0;
  float *base = reinterpret_cast<float *>(a);
  const long rowFloats = 2L * m_nWidth;
  if (m_nWidth > 1) {
    MakeTableSR(m_nWidth);
    TransformLines(base, m_nHeight, rowFloats, 2, m_nWidth, bInverse != 0, m_twiddle.data(), m_reversal.data(),
                   m_pWork, m_nWorkPerThread, m_pProgressImg);
  }
  if (m_nHeight > 1) {
    MakeTableSR(m_nHeight);
    TransformLines(base, m_nWidth, 2, rowFloats, m_nHeight, bInverse != 0, m_twiddle.data(), m_reversal.data(),
                   m_pWork, m_nWorkPerThread, m_pProgressImg);
  }
  DeleteWorkArea();
  return 0;
}

int CFftd::Do1D(int bInverse, int nArray) {
  dcomplex *a = Array(nArray);
  if (!a) return 0;
  const int w = m_nWidth, h = m_nHeight;
  dcomplex *buffer = static_cast<dcomplex *>(qorimg::fft::AlignedAllocate(ArrayElements(w, h + 1) * sizeof(dcomplex)));
  dcomplex *lines = static_cast<dcomplex *>(
      qorimg::fft::AlignedAllocate(ArrayElements(w, CParallel::GetMaxThreads()) * sizeof(dcomplex)));
  if (!buffer || !lines) {
    std::free(buffer);
    std::free(lines);
    return 0;
  }
  std::memcpy(static_cast<void *>(buffer), a, ArrayElements(w, h) * sizeof(dcomplex));
  MakeTable(w);
  const std::size_t column = static_cast<std::size_t>(h) + 1;
  try {
    qorimg::ParallelLines(0, h, [&](int y) {
      dcomplex *line = lines + static_cast<std::size_t>(CParallel::GetThreadNum()) * w;
      std::memcpy(static_cast<void *>(line), a + static_cast<std::size_t>(y) * w, sizeof(dcomplex) * w);
      LineFFT(line, w, bInverse);
      for (int i = 0; i < w; ++i) buffer[static_cast<std::size_t>(y) + i * column] = line[i];
      if (m_pProgressImg) m_pProgressImg->ShowProgress(1);
    });
  } catch (...) {
    std::free(buffer);
    std::free(lines);
    throw;
  }
  std::memcpy(static_cast<void *>(a), buffer, ArrayElements(w, h) * sizeof(dcomplex));
  std::free(buffer);
  std::free(lines);
  return 0;
}

// ---- conversions ----

void CFftd::ToAmpPhase(int nArray) {
  dcomplex *a = Array(nArray);
  if (!a) return;
  const int w = m_nWidth;
  qorimg::ParallelLines(0, m_nHeight, [&](int y) {
    dcomplex *row = a + static_cast<std::size_t>(y) * w;
    for (int x = 0; x < w; ++x) {
      const double re = row[x].re, im = row[x].im;
      row[x].re = static_cast<float>(std::sqrt(re * re + im * im));
      row[x].im = static_cast<float>(std::atan2(im, re));
    }
  });
  Swap(nArray);
  (nArray == 0 ? m_bAmpA : m_bAmpB) = 1;
}

void CFftd::ToReIm(int nArray) {
  dcomplex *a = Array(nArray);
  if (!a) return;
  Swap(nArray);
  const int w = m_nWidth;
  qorimg::ParallelLines(0, m_nHeight, [&](int y) {
    dcomplex *row = a + static_cast<std::size_t>(y) * w;
    for (int x = 0; x < w; ++x) {
      const double amp = row[x].re, phase = row[x].im;
      row[x].re = static_cast<float>(amp * std::cos(phase));
      row[x].im = static_cast<float>(amp * std::sin(phase));
    }
  });
  (nArray == 0 ? m_bAmpA : m_bAmpB) = 0;
}

void CFftd::SwapX(int nArray) {
  dcomplex *a = Array(nArray);
  if (!a) return;
  const int w = m_nWidth, half = m_nWidth / 2;
  qorimg::ParallelLines(0, m_nHeight, [&](int y) {
    dcomplex *row = a + static_cast<std::size_t>(y) * w;
    std::swap_ranges(row, row + half, row + half);
  });
}

void CFftd::Swap(int nArray) {
  dcomplex *a = Array(nArray);
  if (!a) return;
  SwapX(nArray);
  const std::size_t w = static_cast<std::size_t>(m_nWidth);
  const int half = m_nHeight / 2;
  qorimg::ParallelLines(0, half, [&](int y) {
    std::swap_ranges(a + y * w, a + (y + 1) * w, a + (y + half) * w);
  });
}

void CFftd::Windowing(int nArray) {
  dcomplex *a = Array(nArray);
  if (!a) return;
  const int w = m_nWidth, h = m_nHeight;
  const int radius = (w < h ? w : h) / 2;
  qorimg::ParallelLines(0, h, [&](int y) {
    dcomplex *row = a + static_cast<std::size_t>(y) * w;
    const double dy = y - h / 2;
    for (int x = 0; x < w; ++x) {
      const double dx = x - w / 2;
      const double d = std::sqrt(dx * dx + dy * dy);
      const double weight = d < radius ? std::cos(d * M_PI / radius) * 0.5 + 0.5 : 0.0;
      row[x].re = static_cast<float>(row[x].re * weight);
      row[x].im = static_cast<float>(row[x].im * weight);
    }
  });
}
