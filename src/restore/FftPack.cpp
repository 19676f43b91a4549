// Mixed-radix complex transform of any length (FFTPACK's cffti, cfftf,
// cfftb) and its two-dimensional use by rows and columns.
#include "restore/FftPack.h"

#include <algorithm>
#include <cmath>
#include <cstring>

#include "core/LineLoops.h"
#include "sibling/QorSys.h"

namespace qorimg::fft {
namespace {

struct Cx {
  float re, im;
};
inline Cx operator+(Cx a, Cx b) { return {a.re + b.re, a.im + b.im}; }
inline Cx operator-(Cx a, Cx b) { return {a.re - b.re, a.im - b.im}; }
inline Cx Scale(Cx a, float s) { return {a.re * s, a.im * s}; }
// Sign * i * a.
template <int Sign>
inline Cx TimesI(Cx a) {
  return Sign > 0 ? Cx{-a.im, a.re} : Cx{a.im, -a.re};
}
// a * w (backward) or a * conj(w) (forward).
template <int Sign>
inline Cx Twiddle(Cx a, Cx w) {
  return Sign > 0 ? Cx{a.re * w.re - a.im * w.im, a.re * w.im + a.im * w.re}
                  : Cx{a.re * w.re + a.im * w.im, a.im * w.re - a.re * w.im};
}

// Layout of a pass: input element i of butterfly input j of group k at
// cc[i + ido (j + ip k)], output j at ch[i + ido (k + l1 j)]; twiddle of
// output j at element i is wa[(j - 1) ido + i] = e^(i 2 pi i j l1 / n).

template <int Sign>
void Pass2(int ido, int l1, const Cx *cc, Cx *ch, const Cx *wa) {
  for (int k = 0; k < l1; ++k)
    for (int i = 0; i < ido; ++i) {
      const Cx a = cc[i + ido * (2 * k)], b = cc[i + ido * (1 + 2 * k)];
      ch[i + ido * k] = a + b;
      ch[i + ido * (k + l1)] = i == 0 ? a - b : Twiddle<Sign>(a - b, wa[i]);
    }
}

template <int Sign>
void Pass4(int ido, int l1, const Cx *cc, Cx *ch, const Cx *wa) {
  for (int k = 0; k < l1; ++k)
    for (int i = 0; i < ido; ++i) {
      const Cx *in = cc + i + ido * 4 * k;
      const Cx c0 = in[0], c1 = in[ido], c2 = in[2 * ido], c3 = in[3 * ido];
      const Cx s02 = c0 + c2, d02 = c0 - c2, s13 = c1 + c3, d13 = TimesI<Sign>(c1 - c3);
      Cx out[4] = {s02 + s13, d02 + d13, s02 - s13, d02 - d13};
      ch[i + ido * k] = out[0];
      for (int j = 1; j < 4; ++j) ch[i + ido * (k + l1 * j)] = i == 0 ? out[j] : Twiddle<Sign>(out[j], wa[(j - 1) * ido + i]);
    }
}

// A factor p of 3, 5 or the general pass: X_m = x0 + sum_j [t_j cos +
// Sign i d_j sin] with t_j = x_j + x_(p-j), d_j = x_j - x_(p-j), and X_(p-m)
// with the sine negated. P > 0 fixes p at compile time (3, 5); P = 0 takes
// `ip`, with cos and sin of 2 pi q / p in `cs`, `sn` (q < p). The general pass
// also takes an even p (the middle input x_(p/2) adds (-1)^m x_(p/2)), which
// only lengths with more factors than the table holds reach.
template <int Sign, int P>
void PassOdd(int ip, int ido, int l1, const Cx *cc, Cx *ch, const Cx *wa, const float *cs, const float *sn,
             Cx *work) {
  const int p = P > 0 ? P : ip, half = (p - 1) / 2;
  const bool even = P == 0 && p % 2 == 0;
  Cx *t = work, *d = work + half + 1;
  auto store = [&](int i, int k, int m, Cx v) {
    ch[i + ido * (k + l1 * m)] = i == 0 ? v : Twiddle<Sign>(v, wa[(m - 1) * ido + i]);
  };
  for (int k = 0; k < l1; ++k)
    for (int i = 0; i < ido; ++i) {
      const Cx *in = cc + i + ido * p * k;
      const Cx x0 = in[0], xMid = even ? in[(p / 2) * ido] : Cx{0.0f, 0.0f};
      Cx sum = x0 + xMid, alternating = even ? x0 + Scale(xMid, (p / 2) % 2 ? -1.0f : 1.0f) : x0;
      for (int j = 1; j <= half; ++j) {
        const Cx a = in[j * ido], b = in[(p - j) * ido];
        t[j] = a + b;
        d[j] = a - b;
        sum = sum + t[j];
        if (even) alternating = alternating + Scale(t[j], j % 2 ? -1.0f : 1.0f);
      }
      ch[i + ido * k] = sum;
      for (int m = 1; m <= half; ++m) {
        Cx a = even ? x0 + Scale(xMid, m % 2 ? -1.0f : 1.0f) : x0, b = {0.0f, 0.0f};
        for (int j = 1, q = m; j <= half; ++j, q = (q + m) % p) {
          a = a + Scale(t[j], cs[q]);
          b = b + Scale(d[j], sn[q]);
        }
        const Cx ib = TimesI<Sign>(b);
        store(i, k, m, a + ib);
        store(i, k, p - m, a - ib);
      }
      if (even) store(i, k, p / 2, alternating);
    }
}

constexpr int kFactorSlots = 15;

// Factors kept as floats in the last 15 slots: n, count, factors (at most 13;
// lengths that need more use the general pass's larger factors first).
const float *Factors(const float *wsave, int n) { return wsave + 4 * static_cast<std::size_t>(n); }

template <int Sign>
void Transform(int n, Cx *c, Cx *ch, const float *wsave) {
  const float *fac = Factors(wsave, n);
  const int nf = static_cast<int>(fac[1]);
  const Cx *wa = reinterpret_cast<const Cx *>(wsave + 2 * static_cast<std::size_t>(n));
  // cos and sin of 2 pi q / p for the odd passes, and their sums.
  thread_local std::vector<float> trig;
  thread_local std::vector<Cx> sums;
  bool inCh = false;
  int l1 = 1;
  std::size_t iw = 0;
  for (int f = 0; f < nf; ++f) {
    const int ip = static_cast<int>(fac[2 + f]), l2 = ip * l1, ido = n / l2;
    const Cx *in = inCh ? ch : c;
    Cx *out = inCh ? c : ch;
    if (ip == 4) {
      Pass4<Sign>(ido, l1, in, out, wa + iw);
    } else if (ip == 2) {
      Pass2<Sign>(ido, l1, in, out, wa + iw);
    } else {
      if (trig.size() < 2 * static_cast<std::size_t>(ip)) trig.resize(2 * static_cast<std::size_t>(ip));
      if (sums.size() < static_cast<std::size_t>(ip) + 1) sums.resize(static_cast<std::size_t>(ip) + 1);
      for (int q = 0; q < ip; ++q) {
        trig[q] = static_cast<float>(std::cos(2.0 * M_PI * q / ip));
        trig[ip + q] = static_cast<float>(std::sin(2.0 * M_PI * q / ip));
      }
      const float *cs = trig.data(), *sn = trig.data() + ip;
      if (ip == 3)
        PassOdd<Sign, 3>(ip, ido, l1, in, out, wa + iw, cs, sn, sums.data());
      else if (ip == 5)
        PassOdd<Sign, 5>(ip, ido, l1, in, out, wa + iw, cs, sn, sums.data());
      else
        PassOdd<Sign, 0>(ip, ido, l1, in, out, wa + iw, cs, sn, sums.data());
    }
    inCh = !inCh;
    l1 = l2;
    iw += static_cast<std::size_t>(ip - 1) * ido;
  }
  if (inCh) std::memcpy(static_cast<void *>(c), ch, sizeof(Cx) * static_cast<std::size_t>(n));
}

}  // namespace

// Factors in the order 3, 4, 2, 5, then odd trial divisors 7, 9, 11, ...; a
// 2 found after others moves to the front. Twiddles in double, stored as
// floats.
void cffti(int n, float *wsave) {
  if (n < 1) return;
  float *fac = wsave + 4 * static_cast<std::size_t>(n);
  int factors[kFactorSlots] = {};
  int nf = 0, nl = n, ntry = 0;
  static const int ntryh[4] = {3, 4, 2, 5};
  for (int j = 0; nl != 1; ++j) {
    ntry = j < 4 ? ntryh[j] : ntry + 2;
    while (nl % ntry == 0) {
      // More factors than the table holds: the rest is one factor of the
      // general pass.
      if (nf == kFactorSlots - 3) {
        factors[nf++] = nl;
        nl = 1;
        break;
      }
      factors[nf++] = ntry;
      nl /= ntry;
      if (ntry == 2 && nf != 1) {
        for (int i = nf - 1; i > 0; --i) factors[i] = factors[i - 1];
        factors[0] = 2;
      }
    }
    // A prime remainder above the square of the divisor tried is one factor.
    if (nl != 1 && ntry > 5 && static_cast<long long>(ntry) * ntry > nl) {
      factors[nf++] = nl;
      nl = 1;
    }
  }
  fac[0] = static_cast<float>(n);
  fac[1] = static_cast<float>(nf);
  for (int i = 0; i < nf; ++i) fac[2 + i] = static_cast<float>(factors[i]);
  float *wa = wsave + 2 * static_cast<std::size_t>(n);
  std::size_t at = 0;
  int l1 = 1;
  for (int f = 0; f < nf; ++f) {
    const int ip = factors[f], ido = n / (l1 * ip);
    for (int j = 1; j < ip; ++j)
      for (int i = 0; i < ido; ++i, ++at) {
        const double arg = 2.0 * M_PI * static_cast<double>(i) * j * l1 / n;
        wa[2 * at] = static_cast<float>(std::cos(arg));
        wa[2 * at + 1] = static_cast<float>(std::sin(arg));
      }
    l1 *= ip;
  }
}

void cfft1(int n, float *c, float *ch, const float *wsave, bool backward) {
  if (n <= 1) return;
  if (backward)
    Transform<1>(n, reinterpret_cast<Cx *>(c), reinterpret_cast<Cx *>(ch), wsave);
  else
    Transform<-1>(n, reinterpret_cast<Cx *>(c), reinterpret_cast<Cx *>(ch), wsave);
}

void cfftf(int n, float *c, float *wsave) { cfft1(n, c, wsave, wsave, false); }
void cfftb(int n, float *c, float *wsave) { cfft1(n, c, wsave, wsave, true); }

namespace {
constexpr int kColumnGroup = 8;
std::size_t TableFloats(int n) { return 4 * static_cast<std::size_t>(n) + kFactorSlots; }
}  // namespace

CfftPlane::CfftPlane(int width, int height)
    : width_(width), height_(height), rowTable_(TableFloats(width)), columnTable_(TableFloats(height)),
      threads_(std::max(1, CParallel::GetMaxThreads())) {
  cffti(width, rowTable_.data());
  cffti(height, columnTable_.data());
  // Per thread: 2 max(W, H) of transform scratch, and a group of columns.
  scratchPerThread_ = 2 * static_cast<std::size_t>(std::max(width, height)) +
                      2 * static_cast<std::size_t>(height) * kColumnGroup;
  scratch_.resize(scratchPerThread_ * threads_);
}

void CfftPlane::Transform(float *array, bool backward) {
  const int w = width_, h = height_;
  const std::size_t rowFloats = 2 * static_cast<std::size_t>(w);
  auto scratch = [&] { return scratch_.data() + static_cast<std::size_t>(CParallel::GetThreadNum() % threads_) * scratchPerThread_; };
  ParallelLines(0, h, [&](int y) { cfft1(w, array + y * rowFloats, scratch(), rowTable_.data(), backward); });
  const int groups = (w + kColumnGroup - 1) / kColumnGroup;
  ParallelLines(0, groups, [&](int g) {
    float *ch = scratch(), *lines = ch + 2 * static_cast<std::size_t>(std::max(w, h));
    const int x0 = g * kColumnGroup, count = std::min(kColumnGroup, w - x0);
    const std::size_t lineFloats = 2 * static_cast<std::size_t>(h);
    for (int y = 0; y < h; ++y) {
      const float *row = array + y * rowFloats + 2 * static_cast<std::size_t>(x0);
      for (int c = 0; c < count; ++c) {
        lines[c * lineFloats + 2 * y] = row[2 * c];
        lines[c * lineFloats + 2 * y + 1] = row[2 * c + 1];
      }
    }
    for (int c = 0; c < count; ++c) cfft1(h, lines + c * lineFloats, ch, columnTable_.data(), backward);
    for (int y = 0; y < h; ++y) {
      float *row = array + y * rowFloats + 2 * static_cast<std::size_t>(x0);
      for (int c = 0; c < count; ++c) {
        row[2 * c] = lines[c * lineFloats + 2 * y];
        row[2 * c + 1] = lines[c * lineFloats + 2 * y + 1];
      }
    }
  });
}

}  // namespace qorimg::fft
