// The maximum-entropy core: the frame (padding, mask, convolution on CFftd)
// and the iteration.
#include "restore/MemCore.h"

#include <algorithm>
#include <atomic>
#include <cmath>
#include <memory>
#include <new>
#include <vector>

#include "core/LineLoops.h"
#include "core/LmrImage.h"
#include "restore/Fft.h"
#include "restore/RestoreInternal.h"

namespace qorimg::restore {
namespace {

constexpr int kNoLimit = 10000;

struct Escape {};
struct ConvolutionFailed {};

template <class Term>
double Sum(std::size_t n, int w, Term term) {
  const int rows = static_cast<int>(n / w);
  std::vector<double> part(static_cast<std::size_t>(rows));
  ParallelLines(0, rows, [&](int y) {
    double s = 0.0;
    for (std::size_t i = static_cast<std::size_t>(y) * w, end = i + w; i < end; ++i) s += term(i);
    part[y] = s;
  });
  double total = 0.0;
  for (double s : part) total += s;
  return total;
}

template <class Body>
void Each(std::size_t n, int w, Body body) {
  ParallelLines(0, static_cast<int>(n / w), [&](int y) {
    for (std::size_t i = static_cast<std::size_t>(y) * w, end = i + w; i < end; ++i) body(i);
  });
}

// Convolution with the kernel on a W x H power-of-two frame through CFftd:
// array B holds the kernel's transform, A the work. The kernel is centred at
// its half sizes ((k - 1) / 2), so its element there lands on (0, 0).
class Convolver {
public:
  Convolver(int w, int h) : w_(w), h_(h) {
    if (!fft_.Create(w, h) || fft_.GetWidth() != w || fft_.GetHeight() != h) throw ConvolutionFailed();
  }
  // The null request: takes the kernel (its squares with `squared`).
  void Prepare(const float *kernel, int kw, int kh, bool squared) {
    dcomplex *b = fft_.GetImageAdrB();
    std::fill(b, b + static_cast<std::size_t>(w_) * h_, dcomplex{0.0f, 0.0f});
    for (int j = 0; j < kh; ++j)
      for (int i = 0; i < kw; ++i) {
        const int x = ((i - (kw - 1) / 2) % w_ + w_) % w_, y = ((j - (kh - 1) / 2) % h_ + h_) % h_;
        const float v = kernel[static_cast<std::size_t>(j) * kw + i];
        b[static_cast<std::size_t>(y) * w_ + x].re += squared ? v * v : v;
      }
    fft_.Do(0, 1);
  }
  // out = kernel * in, or its transpose (correlation).
  void Apply(const float *in, float *out, bool transpose) {
    const std::size_t n = static_cast<std::size_t>(w_) * h_;
    dcomplex *a = fft_.GetImageAdrA();
    const dcomplex *b = fft_.GetImageAdrB();
    Each(n, w_, [&](std::size_t i) { a[i] = {in[i], 0.0f}; });
    fft_.Do(0, 0);
    Each(n, w_, [&](std::size_t i) {
      const float bi = transpose ? -b[i].im : b[i].im;
      a[i] = {a[i].re * b[i].re - a[i].im * bi, a[i].re * bi + a[i].im * b[i].re};
    });
    fft_.Do(1, 0);
    Each(n, w_, [&](std::size_t i) { out[i] = a[i].re; });
  }

private:
  int w_, h_;
  CFftd fft_;
};

class Ticks {
public:
  Ticks(CLmrImage *image) : image_(image) {}
  void Tick(int percent) {
    if (image_ && !image_->ShowProgress(percent)) throw Escape();
  }
  void Text(const std::wstring &text) {
    if (image_) image_->ShowProgressMsg(text.c_str());
  }

private:
  CLmrImage *image_;
};

// The iteration on the padded frame: d data, m mask (both N), work arrays x,
// model (kernel * x), direction, its blurred form, previous direction.
int Iterate(const float *d, const float *m, int fw, std::size_t n, float *work, int nWork, Convolver &conv,
            const float *kernel, int kw, int kh, MemParams &p, Ticks &ticks, float *noiseMap) {
  if (!(p.fVariance > 0.0) || !std::isfinite(p.fVariance)) return 1;
  if (nWork < 4) return 2;
  float *x = work, *model = work + n, *dir = work + 2 * n, *blurredDir = work + 3 * n;
  float *previous = nWork >= 5 ? work + 4 * n : nullptr;
  // Valid pixels, the data scale a bringing their mean to 1, sigma' in units.
  const double valid = std::floor(Sum(n, fw, [&](std::size_t i) { return m[i] != 0.0f ? 1.0 : 0.0; }) + 0.5);
  const double flux = Sum(n, fw, [&](std::size_t i) { return m[i] != 0.0f ? double(d[i]) : 0.0; });
  if (!(flux > 0.0)) return 1;
  const double a = valid / flux, sigma = std::sqrt(p.fVariance) * a, inv2 = 1.0 / (sigma * sigma);
  ticks.Tick(2);
  Each(n, fw, [&](std::size_t i) { x[i] = 1.0f; });
  ticks.Tick(5);
  // What each estimate pixel sees of the noise: the kernel's squares over the
  // mask, scaled by 1 / sigma'.
  conv.Prepare(kernel, kw, kh, true);
  ticks.Tick(7);
  conv.Apply(m, noiseMap, true);
  Each(n, fw, [&](std::size_t i) { noiseMap[i] = static_cast<float>(std::max(noiseMap[i], 0.0f) / sigma); });
  ticks.Tick(10);
  conv.Prepare(kernel, kw, kh, false);
  ticks.Tick(12);
  conv.Apply(x, model, false);
  ticks.Tick(15);

  auto residual = [&](std::size_t i) { return m[i] != 0.0f ? (double(model[i]) - d[i] * a) : 0.0; };
  double chi = Sum(n, fw, [&](std::size_t i) { const double r = residual(i); return r * r * inv2; });
  double lambda = 1.0, previousSlope = 0.0;
  const double limit = p.fTolerance[3] > 0.0 ? p.fTolerance[3] : kNoLimit;
  double q[4] = {0.0, 0.0, 0.0, 0.0};
  for (int iteration = 1;; ++iteration) {
    ticks.Text(p.nPlane ? FormatResource(6161, p.nPlane, iteration) : FormatResource(6160, iteration));
    // Gradient of Q = S - lambda chi^2 / 2 (S the entropy against the flat
    // default 1), the chi-square part through the transposed blur.
    Each(n, fw, [&](std::size_t i) { blurredDir[i] = static_cast<float>(residual(i) * inv2); });
    ticks.Tick(35);
    conv.Apply(blurredDir, blurredDir, true);
    ticks.Tick(40);
    // Direction in the entropy metric (x-weighted), scaled by the curvature
    // the noise map gives each pixel; with the fifth array, conjugate to the
    // previous one.
    const double slope = Sum(n, fw, [&](std::size_t i) {
      const double g = -std::log(double(x[i])) - lambda * blurredDir[i];
      const double scale = x[i] / (1.0 + lambda * x[i] * noiseMap[i] / sigma);
      dir[i] = static_cast<float>(scale * g);
      return g * scale * g;
    });
    if (previous && previousSlope > 0.0) {
      const float beta = static_cast<float>(slope / previousSlope);
      Each(n, fw, [&](std::size_t i) { dir[i] += beta * previous[i]; });
    }
    previousSlope = slope;
    if (previous) std::copy(dir, dir + n, previous);
    ticks.Tick(42);
    conv.Apply(dir, blurredDir, false);
    ticks.Tick(62);
    // Sub-iterations: Newton's method on Q along the direction, from t = 0;
    // no pixel may fall below a tenth of its value (those that would stay
    // there and drop out of the entropy's slope).
    double t = 0.0;
    const int rows = static_cast<int>(n / fw);
    std::vector<double> rows1(static_cast<std::size_t>(rows)), rows2(static_cast<std::size_t>(rows));
    for (int sub = 0; sub < 10; ++sub) {
      ParallelLines(0, rows, [&](int y) {
        double s1 = 0.0, s2 = 0.0;
        for (std::size_t i = static_cast<std::size_t>(y) * fw, end = i + fw; i < end; ++i) {
          const double xi = x[i] + t * dir[i], di = dir[i];
          if (xi > 0.1 * x[i]) {
            s1 -= std::log(xi) * di;
            s2 -= di * di / xi;
          }
          if (m[i] != 0.0f) {
            const double bd = blurredDir[i];
            s1 -= lambda * bd * (residual(i) + t * bd) * inv2;
            s2 -= lambda * bd * bd * inv2;
          }
        }
        rows1[y] = s1;
        rows2[y] = s2;
      });
      double g1 = 0.0, g2 = 0.0;
      for (int y = 0; y < rows; ++y) g1 += rows1[y], g2 += rows2[y];
      if (!(g2 < 0.0)) break;
      const double next = std::max(t - g1 / g2, 0.0);
      const bool small = std::fabs(next - t) <= 1e-3 * std::max(std::fabs(t), 1e-12);
      t = next;
      ticks.Tick(62 + 3 * (sub + 1));
      if (small) break;
    }
    const float tf = static_cast<float>(t);
    std::atomic<bool> clipped{false};
    Each(n, fw, [&](std::size_t i) {
      const float stepped = x[i] + tf * dir[i], floor = 0.1f * x[i];
      if (stepped < floor) clipped.store(true, std::memory_order_relaxed);
      x[i] = std::max(stepped, floor);
      model[i] += tf * blurredDir[i];
    });
    // Pixels held at their floor moved less than the blurred step says.
    if (clipped.load()) conv.Apply(x, model, false);
    chi = Sum(n, fw, [&](std::size_t i) { const double r = residual(i); return r * r * inv2; });
    // The weight of the data follows chi-square towards the valid count; a
    // large change of it restarts the conjugate directions.
    const double factor = std::clamp(chi / valid * chi / valid, 0.5, 10.0);
    lambda *= factor;
    if (factor > 2.0) previousSlope = 0.0;
    const double ss = Sum(n, fw, [&](std::size_t i) { return double(dir[i]) * dir[i]; });
    double largest = 0.0;
    for (std::size_t i = 0; i < n; ++i) largest = std::max(largest, std::fabs(double(dir[i])));
    q[0] = std::sqrt(ss / n) * std::fabs(t) / a;
    q[1] = largest * std::fabs(t) / a;
    q[2] = std::sqrt(sigma * chi / valid) * std::fabs(t) / sigma;
    q[3] = iteration;
    ticks.Tick(100);
    if (p.fTolerance[0] >= q[0] || p.fTolerance[1] >= q[1] || p.fTolerance[2] >= q[2] || q[3] >= limit) break;
  }
  for (int k = 0; k < 4; ++k) p.fTolerance[k] = q[k];
  p.fChiSqPerPixel = chi / valid;
  // The estimate back in data units.
  const float back = static_cast<float>(1.0 / a);
  Each(n, fw, [&](std::size_t i) { x[i] *= back; });
  return 0;
}

bool PowerOfTwo(int v) { return v > 0 && (v & (v - 1)) == 0; }

}  // namespace

int MemCore(const float *data, int w, int h, const float *kernel, int kw, int kh, MemParams &p, float *result) {
  if (kw % 2 == 0 || kh % 2 == 0) return 1;
  Ticks ticks(p.pProgress);
  struct Close {
    CLmrImage *image;
    ~Close() {
      if (image) image->ShowProgressEnd(static_cast<const wchar_t *>(nullptr));
    }
  } close{p.pProgress};
  if (p.pProgress)
    p.pProgress->ShowProgressInit((p.nPlane ? FormatResource(6159, p.nPlane) : FormatResource(6158, 0)).c_str());
  const bool padded = !PowerOfTwo(w) || !PowerOfTwo(h);
  const int fw = padded ? CFftd::GetCeilPowerOf2(w) : w, fh = padded ? CFftd::GetCeilPowerOf2(h) : h;
  if (fw < 1 || fh < 1) return 7;
  const std::size_t n = static_cast<std::size_t>(fw) * fh;
  const int ox = (fw - w) / 2, oy = (fh - h) / 2;
  try {
    std::unique_ptr<float[]> frame, mask, work, noise;
    std::unique_ptr<Convolver> conv;
    try {
      // The data centred in a zeroed frame (only when padding is needed), the
      // mask, the five work arrays in one block, the noise map.
      if (padded) frame = Allocate<float>(n);
      mask = Allocate<float>(n);
      work = Allocate<float>(5 * n);
      noise = Allocate<float>(n);
    } catch (const std::bad_alloc &) {
      return 7;
    }
    try {
      CheckAllocation();
      conv = std::make_unique<Convolver>(fw, fh);
    } catch (const std::bad_alloc &) {
      return 3;
    } catch (const ConvolutionFailed &) {
      return 3;
    }
    if (padded) {
      std::fill(frame.get(), frame.get() + n, 0.0f);
      for (int y = 0; y < h; ++y)
        std::copy(data + static_cast<std::size_t>(y) * w, data + static_cast<std::size_t>(y + 1) * w,
                  frame.get() + static_cast<std::size_t>(y + oy) * fw + ox);
    }
    // Valid: inside the data's area and finite (a non-finite sample is left
    // out like a pixel outside, with data 0).
    const float *d = padded ? frame.get() : data;
    std::vector<float> cleaned;
    for (std::size_t i = 0; i < n; ++i) {
      const int x = static_cast<int>(i % fw) - ox, y = static_cast<int>(i / fw) - oy;
      mask[i] = x >= 0 && x < w && y >= 0 && y < h && std::isfinite(d[i]) ? 1.0f : 0.0f;
    }
    if (std::any_of(d, d + n, [](float v) { return !std::isfinite(v); })) {
      cleaned.assign(d, d + n);
      for (float &v : cleaned)
        if (!std::isfinite(v)) v = 0.0f;
      d = cleaned.data();
    }
    if (p.pProgress)
      p.pProgress->ShowProgressMsg((p.nPlane ? FormatResource(6163, p.nPlane) : FormatResource(6162, 0)).c_str());
    const int code = Iterate(d, mask.get(), fw, n, work.get(), p.nWorkArrays, *conv, kernel, kw, kh, p, ticks, noise.get());
    if (code) return code;
    for (int y = 0; y < h; ++y)
      std::copy(work.get() + static_cast<std::size_t>(y + oy) * fw + ox,
                work.get() + static_cast<std::size_t>(y + oy) * fw + ox + w, result + static_cast<std::size_t>(y) * w);
  } catch (const Escape &) {
    return 8;
  } catch (const ConvolutionFailed &) {
    return 3;
  } catch (const std::bad_alloc &) {
    return 7;
  }
  return 0;
}

}  // namespace qorimg::restore
