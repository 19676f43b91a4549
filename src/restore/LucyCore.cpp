// The Richardson-Lucy core and its working structure.
#include "restore/LucyCore.h"

#include <algorithm>
#include <atomic>
#include <cmath>
#include <limits>
#include <memory>
#include <new>
#include <vector>

#include "core/LineLoops.h"
#include "core/LmrImage.h"
#include "restore/FftPack.h"
#include "restore/RestoreInternal.h"

namespace qorimg::restore {
namespace {

struct Cx {
  float re, im;
};

// Sums over the canvas in double, rows in parallel, added in row order.
template <class Term>
double SumRows(int w, int h, Term term) {
  std::vector<double> rows(static_cast<std::size_t>(h));
  ParallelLines(0, h, [&](int y) {
    double s = 0.0;
    const std::size_t base = static_cast<std::size_t>(y) * w;
    for (int x = 0; x < w; ++x) s += term(base + x);
    rows[y] = s;
  });
  double total = 0.0;
  for (double s : rows) total += s;
  return total;
}

template <class Body>
void ForPixels(int w, int h, Body body) {
  ParallelLines(0, h, [&](int y) {
    const std::size_t base = static_cast<std::size_t>(y) * w;
    for (int x = 0; x < w; ++x) body(base + x);
  });
}

// The working structure: canvas and PSF sizes, the images of canvas size, the
// PSF's transfer function and the transform state.
class Lucy {
public:
  Lucy(int cw, int ch, int pw, int ph)
      : cw(cw), ch(ch), pw(pw), ph(ph), n(static_cast<std::size_t>(cw) * ch), mask(Allocate<float>(n)),
        norm(Allocate<float>(n)), x(Allocate<float>(n)), bg(Allocate<float>(1)), dPrev(Allocate<float>(n)),
        ePrev(Allocate<float>(n)), model(Allocate<float>(n)), data(Allocate<float>(n)), d(Allocate<float>(n)),
        e(Allocate<float>(n)), c(Allocate<float>(n)), otf(Allocate<Cx>(n)), work(Allocate<Cx>(n)),
        fft((CheckAllocation(), std::make_unique<fft::CfftPlane>(cw, ch))) {}

  // out = B(in) (convolution with the PSF) or B'(in) (correlation).
  void Blur(const float *in, float *out, bool correlate) {
    ForPixels(cw, ch, [&](std::size_t i) { work[i] = {in[i], 0.0f}; });
    fft->Forward(&work[0].re);
    ForPixels(cw, ch, [&](std::size_t i) {
      const Cx a = work[i], t = otf[i];
      const float im = correlate ? -t.im : t.im;
      work[i] = {a.re * t.re - a.im * im, a.re * im + a.im * t.re};
    });
    fft->Backward(&work[0].re);
    ForPixels(cw, ch, [&](std::size_t i) { out[i] = work[i].re; });
  }

  const int cw, ch, pw, ph;
  const std::size_t n;
  std::unique_ptr<float[]> mask, norm, x, bg, dPrev, ePrev, model;
  // The data on the canvas, the direction and its blurred form, and the
  // ratio (then the correction) of an iteration.
  std::unique_ptr<float[]> data, d, e, c;
  std::unique_ptr<Cx[]> otf, work;
  std::unique_ptr<fft::CfftPlane> fft;
};

// Direct-mode progress of the core; every tick is tested for ESC.
class CoreProgress {
public:
  explicit CoreProgress(CLmrImage *image) : image_(image) {}
  ~CoreProgress() { End(); }
  void Open(const std::wstring &title) {
    if (!image_) return;
    image_->ShowProgressInit(title.c_str());
    open_ = true;
  }
  bool Tick(int percent) { return !image_ || image_->ShowProgress(percent) != 0; }
  void End() {
    if (image_ && open_) image_->ShowProgressEnd(static_cast<const wchar_t *>(nullptr));
    open_ = false;
  }

private:
  CLmrImage *image_;
  bool open_ = false;
};

struct Cancelled {};

double ChiSquare(const Lucy &s, double b, double fAdu, double noise2) {
  std::atomic<long long> count{0};
  const double sum = SumRows(s.cw, s.ch, [&](std::size_t i) {
    const double m = s.mask[i];
    if (!(m > 0.0)) return 0.0;
    count.fetch_add(1, std::memory_order_relaxed);
    const double dd = s.data[i], denominator = (dd + b) * m * fAdu + noise2;
    if (denominator == 0.0) return 0.0;
    const double t = m * fAdu * (dd - s.model[i]);
    return t * t / denominator;
  });
  return sum / static_cast<double>(count.load() - 1);
}

// Smallest -x/d over d < 0 (or `none`), largest -x/d over d > 0.
double StepBound(const Lucy &s, bool upper) {
  std::vector<double> rows(static_cast<std::size_t>(s.ch), upper ? HUGE_VAL : -HUGE_VAL);
  ParallelLines(0, s.ch, [&](int y) {
    double best = rows[y];
    for (std::size_t i = static_cast<std::size_t>(y) * s.cw, end = i + s.cw; i < end; ++i) {
      const double dd = s.d[i];
      if (upper ? dd < 0.0 : dd > 0.0) best = upper ? std::min(best, -s.x[i] / dd) : std::max(best, -s.x[i] / dd);
    }
    rows[y] = best;
  });
  double best = upper ? HUGE_VAL : -HUGE_VAL;
  for (double v : rows) best = upper ? std::min(best, v) : std::max(best, v);
  if (best == HUGE_VAL) return 100.0;
  if (best == -HUGE_VAL) return -100.0;
  return best;
}

void Prepare(Lucy &s, const float *image, int w, int h, const float *psfIn, const LucyParams &p, double noise2,
             CoreProgress &progress) {
  const int cw = s.cw, ch = s.ch, ox = (cw - w) / 2, oy = (ch - h) / 2;
  const double b = 0.0;
  s.bg[0] = static_cast<float>(b);
  // Canvas: mask and norm 1 in the image box; clipped pixels (below -e) and
  // non-finite ones get mask 0, and the latter data 0, so that they enter no
  // sum (NaN times a zero mask would still be NaN).
  const double arg = (noise2 + b) / p.fAdu;
  const double threshold = arg < 0.0 ? 0.0 : p.fSigmaClip * std::sqrt(arg);
  ForPixels(cw, ch, [&](std::size_t i) {
    const int x = static_cast<int>(i % cw) - ox, y = static_cast<int>(i / cw) - oy;
    const bool inside = x >= 0 && x < w && y >= 0 && y < h;
    const float v = inside ? image[static_cast<std::size_t>(y) * w + x] : 0.0f;
    const bool valid = inside && std::isfinite(v) && !(v < -threshold);
    s.data[i] = inside && std::isfinite(v) ? v : 0.0f;
    s.norm[i] = inside ? 1.0f : 0.0f;
    s.mask[i] = valid ? s.norm[i] : 0.0f;
  });
  const double count = SumRows(cw, ch, [&](std::size_t i) { return double(s.mask[i]); });
  const double total = SumRows(cw, ch, [&](std::size_t i) { return double(s.mask[i]) * s.data[i]; });
  double mean = total / count;
  if (mean < 0.0) mean = 1.0;
  ForPixels(cw, ch, [&](std::size_t i) { s.x[i] = s.norm[i] > 0.0f ? static_cast<float>(mean) : 0.0f; });
  if (!progress.Tick(5)) throw Cancelled();

  // The PSF on the canvas, negatives 0, its peak (first column of the row
  // holding the largest value) moved to (0, 0) circularly; where it was
  // placed on the canvas drops out of that shift.
  int peakX = 0, peakY = 0;
  float peak = -std::numeric_limits<float>::infinity();
  for (int y = 0; y < s.ph; ++y)
    for (int x = 0; x < s.pw; ++x) {
      const float v = std::max(psfIn[static_cast<std::size_t>(y) * s.pw + x], 0.0f);
      if (v > peak) {
        peak = v;
        peakX = x;
        peakY = y;
      }
    }
  for (std::size_t i = 0; i < s.n; ++i) s.work[i] = {0.0f, 0.0f};
  for (int y = 0; y < s.ph; ++y)
    for (int x = 0; x < s.pw; ++x) {
      const int tx = ((x - peakX) % cw + cw) % cw, ty = ((y - peakY) % ch + ch) % ch;
      s.work[static_cast<std::size_t>(ty) * cw + tx].re += std::max(psfIn[static_cast<std::size_t>(y) * s.pw + x], 0.0f);
    }
  s.fft->Forward(&s.work[0].re);
  // Divided by the value at frequency 0, and by the transform's length, so
  // that forward, product and backward give B unit gain.
  const Cx dc = s.work[0];
  const double dc2 = double(dc.re) * dc.re + double(dc.im) * dc.im;
  const double scale = 1.0 / static_cast<double>(s.n);
  ForPixels(cw, ch, [&](std::size_t i) {
    const Cx a = s.work[i];
    s.otf[i] = {static_cast<float>((a.re * double(dc.re) + a.im * double(dc.im)) / dc2 * scale),
                static_cast<float>((a.im * double(dc.re) - a.re * double(dc.im)) / dc2 * scale)};
  });
  if (!progress.Tick(20)) throw Cancelled();

  s.Blur(s.mask.get(), s.norm.get(), true);
  if (!progress.Tick(40)) throw Cancelled();
  float normMax = -std::numeric_limits<float>::infinity();
  for (std::size_t i = 0; i < s.n; ++i) normMax = std::max(normMax, s.norm[i]);
  const float m = static_cast<float>(0.001 * normMax);
  ForPixels(cw, ch, [&](std::size_t i) {
    if (s.norm[i] < m) {
      s.norm[i] = 1.0f;
      s.x[i] = 0.0f;
    }
  });
  if (!progress.Tick(60)) throw Cancelled();
  s.Blur(s.x.get(), s.model.get(), false);
  if (!progress.Tick(80)) throw Cancelled();
  (void)ChiSquare(s, b, p.fAdu, p.fNoise * p.fNoise);
  if (!progress.Tick(100)) throw Cancelled();
}

// One iteration; false when it ends the loop (chi-square within the limit).
bool Iterate(Lucy &s, int iteration, const LucyParams &p, double noise2, CoreProgress &progress) {
  const int cw = s.cw, ch = s.ch;
  const double b = s.bg[0], fAdu = p.fAdu;
  if (!progress.Tick(0)) throw Cancelled();
  // Ratio of data to model, with n^2 and the background in double, rounded
  // to float; an exact zero denominator becomes 1.
  ForPixels(cw, ch, [&](std::size_t i) {
    const float num = static_cast<float>(s.data[i] + noise2 + b);
    float den = static_cast<float>(s.model[i] + noise2 + b);
    if (den == 0.0f) den = 1.0f;
    s.c[i] = num / den * s.mask[i];
  });
  s.Blur(s.c.get(), s.c.get(), true);
  if (!progress.Tick(20)) throw Cancelled();
  // Candidate y = x c, direction d = y - x.
  ForPixels(cw, ch, [&](std::size_t i) {
    const float corr = s.c[i] / s.norm[i];
    s.d[i] = s.x[i] * corr - s.x[i];
  });
  if (!progress.Tick(40)) throw Cancelled();
  if (p.nAcceleration != 2) {
    ForPixels(cw, ch, [&](std::size_t i) { s.x[i] += s.d[i]; });
    s.Blur(s.x.get(), s.model.get(), false);
    if (!progress.Tick(90)) throw Cancelled();
  } else {
    s.Blur(s.d.get(), s.e.get(), false);
    bool turbo = iteration >= 2;
    if (turbo) {
      // beta from the previous blurred direction; sums over mask > 0 and
      // x + n^2 != 0.
      double a = 0.0, b2 = 0.0;
      a = SumRows(cw, ch, [&](std::size_t i) {
        const double xn = double(s.x[i]) + noise2;
        if (!(s.mask[i] > 0.0f) || xn == 0.0) return 0.0;
        const double wgt = double(s.mask[i]) * fAdu * (s.data[i] + noise2) / (xn * xn);
        return double(s.ePrev[i]) * wgt * s.ePrev[i];
      });
      b2 = SumRows(cw, ch, [&](std::size_t i) {
        const double xn = double(s.x[i]) + noise2;
        if (!(s.mask[i] > 0.0f) || xn == 0.0) return 0.0;
        const double wgt = double(s.mask[i]) * fAdu * (s.data[i] + noise2) / (xn * xn);
        return double(s.e[i]) * wgt * s.ePrev[i];
      });
      // No previous blurred direction (a = 0) gives beta 0 rather than NaN.
      const float beta = a != 0.0 ? static_cast<float>(-b2 / a) : 0.0f;
      // The plain pair becomes the saved one; d and e take the turbo step.
      ForPixels(cw, ch, [&](std::size_t i) {
        const float d0 = s.d[i], e0 = s.e[i];
        s.d[i] = d0 + beta * s.dPrev[i];
        s.e[i] = e0 + beta * s.ePrev[i];
        s.dPrev[i] = d0;
        s.ePrev[i] = e0;
      });
    }
    ForPixels(cw, ch, [&](std::size_t i) {
      if (s.x[i] < 0.0f) s.x[i] = s.d[i] = 0.0f;
    });
    double cMax = StepBound(s, true), cMin = 1.0;
    if (turbo && cMax < 1.0) {
      // The turbo step would leave the positive range: the plain direction
      // (zero where x is 0 and it points down, as the turbo one was) instead.
      turbo = false;
      ForPixels(cw, ch, [&](std::size_t i) {
        s.d[i] = s.x[i] == 0.0f && s.dPrev[i] < 0.0f ? 0.0f : s.dPrev[i];
        s.e[i] = s.ePrev[i];
      });
      cMax = StepBound(s, true);
    } else if (turbo) {
      cMin = StepBound(s, false);
    }
    if (!progress.Tick(65)) throw Cancelled();
    // Newton's method on the likelihood along d, from c = 1.
    double step = 1.0, cc = 1.0;
    for (int round = 0; round < 21 && std::fabs(step) > 0.01; ++round) {
      std::vector<double> gs(static_cast<std::size_t>(ch)), hs(static_cast<std::size_t>(ch));
      ParallelLines(0, ch, [&](int y) {
        double g = 0.0, hh = 0.0;
        for (std::size_t i = static_cast<std::size_t>(y) * cw, end = i + cw; i < end; ++i) {
          const double m = s.mask[i];
          if (!(m > 0.0)) continue;
          const double sv = (s.model[i] + b + cc * s.e[i]) * m + noise2, pv = (s.data[i] + b) * m + noise2,
                       q = s.e[i] * m;
          g += (pv / sv - 1.0) * q;
          hh += (q / sv) * (q / sv) * pv;
        }
        gs[y] = g;
        hs[y] = hh;
      });
      double g = 0.0, hh = 0.0;
      for (int y = 0; y < ch; ++y) g += gs[y], hh += hs[y];
      // A zero curvature (no direction left) ends the search.
      if (!(hh > 0.0)) break;
      step = g / hh;
      if (cc + step >= cMax)
        step = (cMax - cc) * 0.5;
      else if (cc + step <= cMin)
        step = (cMin - cc) * 0.5;
      cc += step;
    }
    const float cf = static_cast<float>(cc);
    ForPixels(cw, ch, [&](std::size_t i) {
      s.x[i] += cf * s.d[i];
      s.model[i] += cf * s.e[i];
    });
    if (!turbo)
      ForPixels(cw, ch, [&](std::size_t i) {
        s.dPrev[i] = s.d[i];
        s.ePrev[i] = s.e[i];
      });
  }
  const double chi2 = ChiSquare(s, b, fAdu, p.fNoise * p.fNoise);
  if (!progress.Tick(100)) throw Cancelled();
  return !(p.fLimitChiSq >= chi2);
}

}  // namespace

int LucyCore(const float *image, int w, int h, const float *psf, int pw, int ph, const LucyParams &p, float *result) {
  const int cw = std::max(w, pw), ch = std::max(h, ph);
  const double noise2 = p.fNoise * p.fNoise / p.fAdu;
  CoreProgress progress(p.pProgress);
  try {
    std::unique_ptr<Lucy> state;
    try {
      state = std::make_unique<Lucy>(cw, ch, pw, ph);
    } catch (const std::bad_alloc &) {
      return kLucyNoMemory;
    }
    Lucy &s = *state;
    progress.Open(p.nPlane ? FormatResource(6155, p.nPlane) : FormatResource(6154, 0));
    Prepare(s, image, w, h, psf, p, noise2, progress);
    progress.End();
    for (int i = 1; i <= p.nIteration; ++i) {
      progress.Open(p.nPlane ? FormatResource(6157, p.nPlane, i) : FormatResource(6156, i));
      const bool goOn = Iterate(s, i, p, noise2, progress);
      progress.End();
      if (!goOn) break;
    }
    const int ox = (cw - w) / 2, oy = (ch - h) / 2;
    for (int y = 0; y < h; ++y)
      std::copy(s.x.get() + static_cast<std::size_t>(y + oy) * cw + ox,
                s.x.get() + static_cast<std::size_t>(y + oy) * cw + ox + w, result + static_cast<std::size_t>(y) * w);
  } catch (const Cancelled &) {
    return kLucyCancelled;
  } catch (const std::bad_alloc &) {
    return kLucyNoMemory;
  }
  return kLucyDone;
}

}  // namespace qorimg::restore
