// Bayer development family: demosaic of a colour filter mosaic into RGB or
// brightness, the gains and curves on the mosaic, and gamma on the result.
// Every float operation stands under strict_float and follows the order of the
// strip loop (develop/BayerMath.h), so that inside the frame both agree.
#include "kernels/GeneratorSupport.h"

namespace {

using namespace Halide;
using qorimg::kernels::generators::kRowsPerTask;
using qorimg::kernels::generators::kVectorLanes;
using qorimg::kernels::generators::ScheduleRowsParallelVectorX;

enum Pattern { RGGB = 1, GRBG = 2, BGGR = 3, GBRG = 4 };

// Value clipped to [lo, hi] by comparisons, so that NaN passes.
Expr LevelCut(const Expr &v, const Expr &lo, const Expr &hi) {
  return strict_float(select(v < lo, lo, select(v > hi, hi, v)));
}

// The demosaic of a mosaic read by reflection about its edge pixels
// (-1 reads 1, w reads w - 2), which keeps the mosaic phase.
struct Demosaic {
  Func m{"mosaic"}, diagonal{"diagonal_mean"}, rb{"rb"}, y{"brightness"}, colours{"colours"}, excess{"excess"};
  Expr red, green, blue;
  Var x{"x"}, yv{"y"};

  Demosaic(const Func &input, const Expr &width, const Expr &height, int pattern) {
    m(x, yv) = BoundaryConditions::mirror_interior(input, {{0, width}, {0, height}})(x, yv);
    const int rx = pattern == GRBG || pattern == BGGR, ry = pattern == BGGR || pattern == GBRG;
    const Expr oddX = (x & 1) == 1, oddY = (yv & 1) == 1;
    const Expr rowR = oddY == (ry == 1), colR = oddX == (rx == 1);
    const Expr isR = rowR && colR, isB = !rowR && !colR, isG = rowR != colR;

    const Expr left = m(x - 1, yv), right = m(x + 1, yv), up = m(x, yv - 1), down = m(x, yv + 1);
    diagonal(x, yv) = strict_float((m(x - 1, yv - 1) + m(x + 1, yv - 1) + m(x - 1, yv + 1) + m(x + 1, yv + 1)) * 0.25f);
    const Expr D = diagonal(x, yv);
    const Expr C = strict_float((left + right + up + down) * 0.25f);
    const Expr H = strict_float((left + right) * 0.5f), V = strict_float((up + down) * 0.5f);
    const Expr raw = m(x, yv);

    // r and b of the brightness at R and B sites: raw at their own site, the
    // diagonal mean at the other; a G site takes the mean of its four
    // neighbours' values.
    rb(x, yv) = Tuple(select(isR, raw, D), select(isR, D, raw));
    auto around = [&](int i) {
      return strict_float((rb(x - 1, yv)[i] + rb(x + 1, yv)[i] + rb(x, yv - 1)[i] + rb(x, yv + 1)[i]) * 0.25f);
    };
    const Expr r = select(isG, around(0), rb(x, yv)[0]);
    const Expr b = select(isG, around(1), rb(x, yv)[1]);
    const Expr g = select(isG, raw, C);
    y(x, yv) = strict_float((r + g + b) * 0.33333334f);

    colours(x, yv) = Tuple(select(isR, raw, isB, D, rowR, H, V), select(isG, raw, C), select(isR, D, isB, raw, rowR, V, H));
    excess(x, yv) = Tuple(strict_float(colours(x, yv)[0] - y(x, yv)), strict_float(colours(x, yv)[1] - y(x, yv)),
                          strict_float(colours(x, yv)[2] - y(x, yv)));
  }

  // (1/9) of the 3 x 3 sum of (c - Y), columns first, plus Y.
  Expr Colour(int c) {
    auto column = [&](const Expr &cx) {
      return strict_float(excess(cx, yv - 1)[c] + excess(cx, yv)[c] + excess(cx, yv + 1)[c]);
    };
    return strict_float((column(x - 1) + column(x) + column(x + 1)) * 0.11111111f + y(x, yv));
  }
};

// Tiles of rows in parallel, vectors along x. Each tile materialises the
// reflected mosaic and the demosaic's stages over its footprint, small enough
// to stay in cache, so that the stencils read plain buffers.
void ScheduleDemosaic(Func output, Demosaic &d, bool colour) {
  Var xo{"xo"}, yo{"yo"}, xi{"xi"}, yi{"yi"};
  output.tile(d.x, d.yv, xo, yo, xi, yi, 512, 4 * kRowsPerTask, TailStrategy::GuardWithIf)
      .parallel(yo)
      .vectorize(xi, kVectorLanes, TailStrategy::GuardWithIf);
  for (Func f : {d.m, d.diagonal, d.rb}) f.compute_at(output, xo).vectorize(d.x, kVectorLanes);
  // The brightness is the grey output itself; for colour it is read nine
  // times and kept.
  if (colour) {
    d.y.compute_at(output, xo).vectorize(d.x, kVectorLanes);
    d.excess.compute_at(output, xo).vectorize(d.x, kVectorLanes);
  }
}

// The inputs of a demosaic pipeline: the mosaic, then the working range when
// the result is level cut. (Inputs of a base are declared before the
// generator's own, which keeps the argument order.)
template <bool levelCut>
struct DemosaicInputs {
  GeneratorInput<Buffer<float, 2>> input{"input"};
  Expr Cut(const Expr &v) const { return v; }
};
template <>
struct DemosaicInputs<true> {
  GeneratorInput<Buffer<float, 2>> input{"input"};
  GeneratorInput<float> fMin{"fMin"}, fMax{"fMax"};
  Expr Cut(const Expr &v) const { return LevelCut(v, fMin, fMax); }
};

// Three planes: output.0 red, output.1 green, output.2 blue.
template <int pattern, bool levelCut>
class BayerToRgb : public Generator<BayerToRgb<pattern, levelCut>>, public DemosaicInputs<levelCut> {
 public:
  GeneratorOutput<Func> output{"output", {Float(32), Float(32), Float(32)}, 2};

  void generate() {
    Demosaic d(this->input, this->input.dim(0).extent(), this->input.dim(1).extent(), pattern);
    output(d.x, d.yv) = Tuple(this->Cut(d.Colour(0)), this->Cut(d.Colour(1)), this->Cut(d.Colour(2)));
    ScheduleDemosaic(output, d, true);
  }
};

template <int pattern, bool levelCut>
class BayerToGray : public Generator<BayerToGray<pattern, levelCut>>, public DemosaicInputs<levelCut> {
 public:
  GeneratorOutput<Buffer<float, 2>> output{"output"};

  void generate() {
    Demosaic d(this->input, this->input.dim(0).extent(), this->input.dim(1).extent(), pattern);
    output(d.x, d.yv) = this->Cut(d.y(d.x, d.yv));
    ScheduleDemosaic(output, d, false);
  }
};

// The gains and curves on a mosaic plane, by phase k = 2 (y & 1) + (x & 1).
template <bool curvePower>
struct ToneInputs {
  GeneratorInput<Buffer<float, 2>> input{"input"};
  GeneratorInput<float> fMin{"fMin"}, fMax{"fMax"};
  GeneratorInput<float> fGain0{"fGain0"}, fGain1{"fGain1"}, fGain2{"fGain2"}, fGain3{"fGain3"};
  GeneratorInput<float> fPointX0{"fPointX0"}, fPointX1{"fPointX1"}, fPointX2{"fPointX2"}, fPointX3{"fPointX3"};
  GeneratorInput<float> fPointY0{"fPointY0"}, fPointY1{"fPointY1"}, fPointY2{"fPointY2"}, fPointY3{"fPointY3"};
  GeneratorInput<float> fRatio0{"fRatio0"}, fRatio1{"fRatio1"}, fRatio2{"fRatio2"}, fRatio3{"fRatio3"};
  Expr Power() const { return Expr(); }
};
template <>
struct ToneInputs<true> : ToneInputs<false> {
  GeneratorInput<float> fCurvePower{"fCurvePower"};
  Expr Power() const { return fCurvePower; }
};

template <bool curvePower, bool levelCut, bool maker>
class ToneCurveCorrect : public Generator<ToneCurveCorrect<curvePower, levelCut, maker>>,
                         public ToneInputs<curvePower> {
 public:
  GeneratorOutput<Buffer<float, 2>> output{"output"};

  void generate() {
    const Expr k = 2 * (y & 1) + (x & 1);
    auto phase = [&](const Expr &a, const Expr &b, const Expr &c, const Expr &d) {
      return select(k == 0, a, k == 1, b, k == 2, c, d);
    };
    const Expr g = phase(this->fGain0, this->fGain1, this->fGain2, this->fGain3);
    const Expr px = phase(this->fPointX0, this->fPointX1, this->fPointX2, this->fPointX3);
    const Expr py = phase(this->fPointY0, this->fPointY1, this->fPointY2, this->fPointY3);
    const Expr ratio = phase(this->fRatio0, this->fRatio1, this->fRatio2, this->fRatio3);
    const Expr lo = this->fMin, hi = this->fMax;
    const Expr v = this->input(x, y);
    Expr out;
    if (maker) {
      const Expr d = strict_float(v - lo);
      const Expr knee = strict_float(select(v < px, d * g + lo, (d - px) * ratio + py + lo));
      out = select(strict_float(lo < v && v < hi), knee, v);
    } else {
      out = strict_float(v * g);
    }
    if (levelCut) out = LevelCut(out, lo, hi);
    if (curvePower) {
      // (hi^p - (hi - v)^p)^(1/p) in double, rounded once.
      const Expr p = cast<double>(this->Power());
      const Expr rest = strict_float(cast<double>(hi - out));
      const Expr curved = strict_float(cast<float>(pow(pow(cast<double>(hi), p) - pow(rest, p), Expr(1.0) / p)));
      out = select(strict_float(lo < out && out < hi), curved, out);
    }
    output(x, y) = out;

    ScheduleRowsParallelVectorX(output, x, y);
  }

 private:
  Var x{"x"}, y{"y"};
};

// In place: v - lo > 0 becomes ((v - lo) / range)^e range + lo, the power in
// single precision; fGamma is the exponent e itself (the caller's 1 / gamma).
class GammaCorrect : public Generator<GammaCorrect> {
 public:
  Input<float> fLevelMin{"fLevelMin"};
  Input<float> fLevelRange{"fLevelRange"};
  Input<float> fGamma{"fGamma"};
  Output<Buffer<float, 2>> output{"output"};

  void generate() {
    output(x, y) = undef<float>();
    const Expr v = output(x, y);
    const Expr lifted = strict_float(v - fLevelMin);
    const Expr q = strict_float(lifted / fLevelRange);
    const Expr p = strict_float(pow(q, fGamma));
    output(x, y) = select(strict_float(lifted > 0.0f), strict_float(p * fLevelRange + fLevelMin), v);

    ScheduleRowsParallelVectorX(output.update(), x, y);
  }

 private:
  Var x{"x"}, y{"y"};
};

}  // namespace

#define QORIMG_BAYER(P)                                                            \
  using BayerToRgb_##P = BayerToRgb<P, false>;                                     \
  using BayerToRgbLevelCut_##P = BayerToRgb<P, true>;                              \
  using BayerToGray_##P = BayerToGray<P, false>;                                   \
  using BayerToGrayLevelCut_##P = BayerToGray<P, true>;                            \
  HALIDE_REGISTER_GENERATOR(BayerToRgb_##P, bayer_to_rgb_##P##_float)               \
  HALIDE_REGISTER_GENERATOR(BayerToRgbLevelCut_##P, bayer_to_rgb_level_cut_##P##_float) \
  HALIDE_REGISTER_GENERATOR(BayerToGray_##P, bayer_to_gray_##P##_float)             \
  HALIDE_REGISTER_GENERATOR(BayerToGrayLevelCut_##P, bayer_to_gray_level_cut_##P##_float)
QORIMG_BAYER(RGGB)
QORIMG_BAYER(GRBG)
QORIMG_BAYER(BGGR)
QORIMG_BAYER(GBRG)

using ToneCurve = ToneCurveCorrect<false, false, false>;
using ToneCurveMaker = ToneCurveCorrect<false, false, true>;
using ToneCurveLevelCut = ToneCurveCorrect<false, true, false>;
using ToneCurveLevelCutMaker = ToneCurveCorrect<false, true, true>;
using ToneCurvePower = ToneCurveCorrect<true, false, false>;
using ToneCurvePowerMaker = ToneCurveCorrect<true, false, true>;
using ToneCurvePowerLevelCut = ToneCurveCorrect<true, true, false>;
using ToneCurvePowerLevelCutMaker = ToneCurveCorrect<true, true, true>;
HALIDE_REGISTER_GENERATOR(ToneCurve, tone_curve_correct_float)
HALIDE_REGISTER_GENERATOR(ToneCurveMaker, tone_curve_correct_maker_float)
HALIDE_REGISTER_GENERATOR(ToneCurveLevelCut, tone_curve_correct_levelcut_float)
HALIDE_REGISTER_GENERATOR(ToneCurveLevelCutMaker, tone_curve_correct_levelcut_maker_float)
HALIDE_REGISTER_GENERATOR(ToneCurvePower, tone_curve_correct_curve_power_float)
HALIDE_REGISTER_GENERATOR(ToneCurvePowerMaker, tone_curve_correct_curve_power_maker_float)
HALIDE_REGISTER_GENERATOR(ToneCurvePowerLevelCut, tone_curve_correct_curve_power_levelcut_float)
HALIDE_REGISTER_GENERATOR(ToneCurvePowerLevelCutMaker, tone_curve_correct_curve_power_levelcut_maker_float)
HALIDE_REGISTER_GENERATOR(GammaCorrect, gamma_correct_float)
