// The per-pixel formulas of Bayer development that the line loops use, written
// in the same order of operations as the kernel pipelines (kernels/develop.cpp),
// so that both routes round alike.
#pragma once
#include <cmath>

namespace qorimg::develop {

// Where R sits in the 2 x 2 cell: its x and y parity.
struct Phase {
  int rx, ry;
  explicit Phase(int nPattern) : rx(nPattern == 2 || nPattern == 3), ry(nPattern == 3 || nPattern == 4) {}
  bool RowHasRed(long y) const { return static_cast<int>(y & 1) == ry; }
  bool ColumnHasRed(long x) const { return static_cast<int>(x & 1) == rx; }
  bool IsRed(long x, long y) const { return RowHasRed(y) && ColumnHasRed(x); }
  bool IsBlue(long x, long y) const { return !RowHasRed(y) && !ColumnHasRed(x); }
  bool IsGreen(long x, long y) const { return RowHasRed(y) != ColumnHasRed(x); }
};

// Clipped to [lo, hi] by comparisons: NaN passes.
inline float LevelCut(float v, float lo, float hi) { return v < lo ? lo : v > hi ? hi : v; }

// The means of the demosaic, on a row-major field with row stride `stride`.
inline float Diagonal(const float *m, long stride) {
  return (m[-stride - 1] + m[-stride + 1] + m[stride - 1] + m[stride + 1]) * 0.25f;
}
inline float Cross(const float *m, long stride) { return (m[-1] + m[1] + m[-stride] + m[stride]) * 0.25f; }
inline float Horizontal(const float *m) { return (m[-1] + m[1]) * 0.5f; }
inline float Vertical(const float *m, long stride) { return (m[-stride] + m[stride]) * 0.5f; }
inline float Brightness(float r, float g, float b) { return (r + g + b) * 0.33333334f; }

// The gains and curves on the mosaic, per phase k = 2 (y & 1) + (x & 1).
struct ToneCurve {
  float min, max;
  float gain[4], pointX[4], pointY[4], ratio[4];
  double power;
  bool maker, levelCut, curvePower;

  ToneCurve(const double *pGain, float fMin, float fMax, bool bMaker, bool bLevelCut, bool bCurvePower,
            double fCurvePower)
      : min(fMin), max(fMax), power(fCurvePower), maker(bMaker), levelCut(bLevelCut), curvePower(bCurvePower) {
    const double d = static_cast<double>(fMax) - fMin;
    for (int k = 0; k < 4; ++k) {
      const double g = pGain[k], x = d / (g + 1), y = g * d / (g + 1);
      gain[k] = static_cast<float>(g);
      pointX[k] = static_cast<float>(x);
      pointY[k] = static_cast<float>(y);
      ratio[k] = static_cast<float>((d - y) / (d - x));
    }
  }

  // The knee compares v itself, not v - min, with the knee point: with a
  // minimum other than 0 this shifts the knee, as callers know it.
  float Apply(float v, int k) const {
    float out;
    if (maker) {
      const float d = v - min;
      out = min < v && v < max ? (v < pointX[k] ? d * gain[k] + min : (d - pointX[k]) * ratio[k] + pointY[k] + min)
                               : v;
    } else {
      out = v * gain[k];
    }
    if (levelCut) out = LevelCut(out, min, max);
    if (curvePower && min < out && out < max) {
      const double rest = max - out;
      out = static_cast<float>(std::pow(std::pow(static_cast<double>(max), power) - std::pow(rest, power), 1.0 / power));
    }
    return out;
  }
};

// Gamma on one sample: v - lo > 0 becomes ((v - lo) / range)^e range + lo,
// the power in single precision (the C library's powf, as the pipeline's).
inline float Gamma(float v, float lo, float range, float e) {
  const float lifted = v - lo;
  if (!(lifted > 0.0f)) return v;
  return std::pow(lifted / range, e) * range + lo;
}

}  // namespace qorimg::develop
