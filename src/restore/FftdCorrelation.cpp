// CFftd's phase-only correlation: the band-limited normalised cross spectrum,
// the peak search and the peak evaluation formula (PEF) sub-pixel estimator.
#include <algorithm>
#include <cmath>

#include "core/LineLoops.h"
#include "core/LmrImage.h"
#include "restore/Fft.h"

namespace {

int ClampIndex(long i, long n) { return static_cast<int>(i < 0 ? 0 : i >= n ? n - 1 : i); }

// R = B conj(A) normalised to unit length, or 0 outside the band.
void CrossSpectrum(dcomplex *a, const dcomplex *b, int w, int h, bool limitY) {
  const int wq = static_cast<int>(w * 0.25), wh = static_cast<int>(w * 0.75);
  const int hq = static_cast<int>(h * 0.25), hh = static_cast<int>(h * 0.75);
  qorimg::ParallelLines(0, h, [&](int y) {
    dcomplex *ra = a + static_cast<std::size_t>(y) * w;
    const dcomplex *rb = b + static_cast<std::size_t>(y) * w;
    const bool rowOut = limitY && hq <= y && y < hh;
    for (int x = 0; x < w; ++x) {
      if (rowOut || (wq <= x && x < wh)) {
        ra[x].re = ra[x].im = 0.0f;
        continue;
      }
      float re = rb[x].re * ra[x].re + rb[x].im * ra[x].im;
      float im = rb[x].im * ra[x].re - rb[x].re * ra[x].im;
      const float length = std::sqrt(re * re + im * im);
      if (length > 0.0f) {
        re /= length;
        im /= length;
      }
      ra[x].re = re;
      ra[x].im = im;
    }
  });
}

// The first largest real part above 0 of row y (x stays -1 when none is).
void ScanRow(const dcomplex *row, int w, double &best, int &x) {
  for (int i = 0; i < w; ++i)
    if (row[i].re > best) {
      best = row[i].re;
      x = i;
    }
}

}  // namespace

void CFftd::CalcPOC() {
  if (m_pA) CrossSpectrum(m_pA, m_pB, m_nWidth, m_nHeight, true);
}

void CFftd::CalcPOC1D() {
  if (m_pA) CrossSpectrum(m_pA, m_pB, m_nWidth, m_nHeight, false);
}

// r(i) = real part at i clamped into the line, p(i) = clamped i - n/2.
double CFftd::u(const dcomplex *base, std::ptrdiff_t step, int n, int c, int k) const {
  const double cosine = 2.0 * std::cos(M_PI * 0.5 * k);
  auto r = [&](long i) { return static_cast<double>(base[ClampIndex(i, n) * step].re); };
  return r(static_cast<long>(c) - k) + r(static_cast<long>(c) + k) - cosine * r(c);
}

double CFftd::v(const dcomplex *base, std::ptrdiff_t step, int n, int c, int k) const {
  const double cosine = 2.0 * std::cos(M_PI * 0.5 * k);
  auto r = [&](long i) { return static_cast<double>(base[ClampIndex(i, n) * step].re); };
  auto p = [&](long i) { return static_cast<double>(ClampIndex(i, n) - n / 2); };
  const long lo = static_cast<long>(c) - k, hi = static_cast<long>(c) + k;
  return cosine * p(c) * r(c) - p(lo) * r(lo) - p(hi) * r(hi);
}

void CFftd::SubPixPeakPEF(int x, int y, int bBoth, double &dx, double &dy) {
  if (!m_pA) return;
  const int w = m_nWidth, h = m_nHeight;
  const long total = static_cast<long>(w) * h;
  // The estimate e over the peak centre c and its larger neighbour.
  auto estimate = [&](const dcomplex *base, std::ptrdiff_t step, int n, int c, int neighbour) {
    double s = 0.0, t = 0.0;
    for (int centre : {c, neighbour})
      for (int k = 1; k <= 3; ++k) {
        const double uk = u(base, step, n, centre, k);
        s += uk * uk;
        t += uk * v(base, step, n, centre, k);
      }
    return s != 0.0 ? t / s : 0.0;
  };

  // Along x on row y. The neighbour test reads the flat array as it lies in
  // memory (the ends of a row reach the rows beside it), clamped at its ends.
  const int row = ClampIndex(y, h);
  const long at = static_cast<long>(y) * w + x;
  auto flat = [&](long i) { return m_pA[ClampIndex(i, total)].re; };
  const int nx = flat(at - 1) > flat(at + 1) ? x - 1 : x + 1;
  dx = w / 2 - estimate(m_pA + static_cast<std::size_t>(row) * w, 1, w, x, nx);
  if (!bBoth) return;

  // Along y on column x: neighbours reflected at the top and bottom.
  const dcomplex *column = m_pA + ClampIndex(x, w);
  const int up = std::abs(y - 1);
  const int down = y + 1 >= h ? h - ((y + 1) % h) - 1 : y + 1;
  auto colValue = [&](int j) { return column[static_cast<std::size_t>(ClampIndex(j, h)) * w].re; };
  const int ny = colValue(up) > colValue(down) ? up : down;
  dy = h / 2 - estimate(column, w, h, y, ny);
}

void CFftd::PeakOfPOC(const int *pX, const int *pY, double &dx, double &dy, double &peak) {
  if (!m_pA) return;
  const int w = m_nWidth, h = m_nHeight;
  int x = -1, y = -1;
  if (pX && pY) {
    x = ClampIndex(*pX, w);
    y = ClampIndex(*pY, h);
    peak = m_pA[static_cast<std::size_t>(y) * w + x].re;
  } else {
    double best = 0.0;
    for (int j = 0; j < h; ++j) {
      int found = -1;
      ScanRow(m_pA + static_cast<std::size_t>(j) * w, w, best, found);
      if (found >= 0) {
        x = found;
        y = j;
      }
      if (m_pProgressImg) m_pProgressImg->ShowProgress(1);
    }
    peak = best;
  }
  SubPixPeakPEF(x, y, 1, dx, dy);
  dx -= w / 2;
  dy -= h / 2;
}

void CFftd::PeakOfRow(int nRow, double &dx) {
  const int w = m_nWidth;
  double best = 0.0;
  int x = -1;
  ScanRow(m_pA + static_cast<std::size_t>(nRow) * w, w, best, x);
  double unused = 0.0;
  SubPixPeakPEF(x, nRow, 0, dx, unused);
  dx -= w / 2;
}

void CFftd::PeakOfPOC1D(double &dx) {
  if (!m_pA || m_nHeight <= 40) return;
  const int w = m_nWidth;
  for (int x = 0; x < w; ++x) m_pA[x].re = 0.0f;
  // The rows' maxima over rows 20 .. H - 21 would be listed and sorted here;
  // nothing reads that list, so it is not made.
  const float divisor = static_cast<float>(m_nHeight - 40);
  for (int x = 0; x < w; ++x) m_pA[x].re /= divisor;
  PeakOfRow(0, dx);
}

void CFftd::PeakOfPOC1D(int nRow, double &dx) {
  if (!m_pA) return;
  PeakOfRow(ClampIndex(nRow, m_nHeight), dx);
}

double CFftd::Interp(dcomplex *pArray, int nWidth, int nHeight, double x, double y) {
  if (!pArray || nWidth < 1 || nHeight < 1 || !std::isfinite(x) || !std::isfinite(y)) return 0.0;
  if (x <= -0.5 || x >= nWidth - 0.5 || y <= -0.5 || y >= nHeight - 0.5) return 0.0;
  const double fx = std::floor(x), fy = std::floor(y);
  const double ax = x - fx, ay = y - fy;
  const int x0 = static_cast<int>(fx), y0 = static_cast<int>(fy);
  auto at = [&](int i, int j) {
    return static_cast<double>(
        pArray[static_cast<std::size_t>(ClampIndex(j, nHeight)) * nWidth + ClampIndex(i, nWidth)].re);
  };
  return (at(x0, y0) * (1 - ax) + at(x0 + 1, y0) * ax) * (1 - ay) +
         (at(x0, y0 + 1) * (1 - ax) + at(x0 + 1, y0 + 1) * ax) * ay;
}
