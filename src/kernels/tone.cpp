// Level and tone family: automatic-level statistics (cell sums of the sampled
// median, the raw brightness range), tone curves by table, and the brightness
// and negative point operations. Float arithmetic stands under strict_float so
// that every processor variant gives the same bits.
#include <cstdint>
#include <limits>

#include "kernels/GeneratorSupport.h"

namespace {

using namespace Halide;
using qorimg::kernels::generators::ScheduleRowsParallelVectorX;

// binned(x, y) := sum over j, i below nBins of input(x * nBins + i, y * nBins + j),
// accumulated in double row by row.
class BinningFloat : public Generator<BinningFloat> {
 public:
  Input<Buffer<float, 2>> input{"input"};
  Input<int32_t> nBins{"nBins"};
  Output<Buffer<double, 2>> binned{"binned"};

  void generate() {
    RDom r(0, nBins, 0, nBins, "r");
    Func sum("sum");
    sum(x, y) = Expr(0.0);
    sum(x, y) += cast<double>(input(x * nBins + r.x, y * nBins + r.y));
    binned(x, y) = sum(x, y);

    binned.parallel(y, 4, TailStrategy::GuardWithIf);
    sum.compute_at(binned, x);
  }

 private:
  Var x{"x"}, y{"y"};
};

// Smallest and largest raw brightness 0.299 R + 0.587 G + 0.114 B (in double,
// rounded to float) over a rectangle; NaN samples are passed over.
class GetMinMaxBrightnessFloat : public Generator<GetMinMaxBrightnessFloat> {
 public:
  Input<Buffer<float, 2>> red{"red"}, green{"green"}, blue{"blue"};
  Input<int32_t> nStartX{"nStartX"}, nStartY{"nStartY"}, nWidth{"nWidth"}, nHeight{"nHeight"};
  Output<Buffer<float, 0>> min{"min"}, max{"max"};

  void generate() {
    RDom r(nStartX, nWidth, nStartY, nHeight, "r");
    Expr bright = cast<float>(cast<double>(red(r.x, r.y)) * Expr(0.299) + cast<double>(green(r.x, r.y)) * Expr(0.587) +
                              cast<double>(blue(r.x, r.y)) * Expr(0.114));
    const Expr inf = Expr(std::numeric_limits<float>::infinity());
    Expr low = strict_float(select(is_nan(bright), inf, bright));
    Expr high = strict_float(select(is_nan(bright), -inf, bright));
    Func range("range");
    range() = Tuple(inf, -inf);
    range() = Tuple(Halide::min(range()[0], low), Halide::max(range()[1], high));
    min() = range()[0];
    max() = range()[1];

    Var u("u");
    RVar rowsOuter("rows_outer"), rowsInner("rows_inner");
    Func partial = range.update().split(r.y, rowsOuter, rowsInner, 32, TailStrategy::GuardWithIf).rfactor(rowsOuter, u);
    partial.compute_root().update().parallel(u);
    range.compute_root();
  }
};

// One look-up of a tone table on the 0..1 scale: below 0 the curve gives 0,
// above the last entry it goes on with the slope of its last step, else the
// entry at the truncated index. A NaN index is taken as 0; a table of one entry
// reads that entry for its "step before the last".
Expr ToneLookup(const Func &curve, Expr nLast, Expr p) {
  Expr q = p * cast<float>(nLast);
  Expr last = curve(nLast);
  Expr slope = Halide::max(0.0f, (last - curve(Halide::max(nLast - 1, 0))) * cast<float>(nLast));
  Expr clamped = select(q > 0.0f, select(q < cast<float>(nLast), q, cast<float>(nLast)), 0.0f);
  Expr inside = curve(clamp(cast<int32_t>(clamped), 0, nLast));
  return strict_float(select(q < 0.0f, 0.0f, q > cast<float>(nLast), (p - last) * slope + last, inside));
}

Expr ToUnit(Expr v, Expr levelMin, Expr levelRange) { return strict_float((v - levelMin) / levelRange); }
Expr FromTone(Expr value, Expr levelMin, Expr levelRange) {
  return strict_float(value * 255.0f * levelRange * (1.0f / 255.0f) + levelMin);
}

class ToneCurveGrayFloat : public Generator<ToneCurveGrayFloat> {
 public:
  Input<Buffer<float, 2>> input{"input"};
  Input<float> fLevelMin{"fLevelMin"}, fLevelRange{"fLevelRange"};
  Input<Buffer<float, 1>> curve_gray{"curve_gray"};
  Output<Buffer<float, 2>> output{"output"};

  void generate() {
    Expr nLast = curve_gray.dim(0).extent() - 1;
    Func gray = BoundaryConditions::repeat_edge(curve_gray);
    Expr p = ToUnit(input(x, y), fLevelMin, fLevelRange);
    output(x, y) = FromTone(ToneLookup(gray, nLast, p), fLevelMin, fLevelRange);

    ScheduleRowsParallelVectorX(output, x, y);
  }

 private:
  Var x{"x"}, y{"y"};
};

// The plane's curve first, then the master curve on its result.
class ToneCurveColorFloat : public Generator<ToneCurveColorFloat> {
 public:
  Input<Buffer<float, 2>> input{"input"};
  Input<float> fLevelMin{"fLevelMin"}, fLevelRange{"fLevelRange"};
  Input<Buffer<float, 1>> curve_color{"curve_color"}, curve_gray{"curve_gray"};
  Output<Buffer<float, 2>> output{"output"};

  void generate() {
    Func color = BoundaryConditions::repeat_edge(curve_color);
    Func gray = BoundaryConditions::repeat_edge(curve_gray);
    Expr p = ToUnit(input(x, y), fLevelMin, fLevelRange);
    Expr first = ToneLookup(color, curve_color.dim(0).extent() - 1, p);
    output(x, y) = FromTone(ToneLookup(gray, curve_gray.dim(0).extent() - 1, first), fLevelMin, fLevelRange);

    ScheduleRowsParallelVectorX(output, x, y);
  }

 private:
  Var x{"x"}, y{"y"};
};

class BrightFloat : public Generator<BrightFloat> {
 public:
  Input<Buffer<float, 2>> input{"input"};
  Input<float> fLevelMin{"fLevelMin"}, fLevelRange{"fLevelRange"}, fAverage{"fAverage"}, fBright{"fBright"},
      fContrast{"fContrast"};
  Output<Buffer<float, 2>> output{"output"};

  void generate() {
    Expr p = ToUnit(input(x, y), fLevelMin, fLevelRange);
    output(x, y) = strict_float(
        (((p * 255.0f - fAverage) * fContrast * 0.00390625f + fBright) * 0.003921569f + p) * fLevelRange + fLevelMin);

    ScheduleRowsParallelVectorX(output, x, y);
  }

 private:
  Var x{"x"}, y{"y"};
};

class InvertFloat : public Generator<InvertFloat> {
 public:
  Input<Buffer<float, 2>> input{"input"};
  Input<float> fInputLevelMin{"fInputLevelMin"}, fInputLevelRange{"fInputLevelRange"},
      fOutputLevelMin{"fOutputLevelMin"}, fOutputLevelRange{"fOutputLevelRange"};
  Output<Buffer<float, 2>> output{"output"};

  void generate() {
    output(x, y) = strict_float((255.0f - (input(x, y) - fInputLevelMin) * (1.0f / fInputLevelRange) * 255.0f) *
                                    0.003921569f * fOutputLevelRange +
                                fOutputLevelMin);

    ScheduleRowsParallelVectorX(output, x, y);
  }

 private:
  Var x{"x"}, y{"y"};
};

}  // namespace

HALIDE_REGISTER_GENERATOR(BinningFloat, binning_float)
HALIDE_REGISTER_GENERATOR(GetMinMaxBrightnessFloat, getminmax_brightness_float)
HALIDE_REGISTER_GENERATOR(ToneCurveGrayFloat, tone_curve_gray_float)
HALIDE_REGISTER_GENERATOR(ToneCurveColorFloat, tone_curve_color_float)
HALIDE_REGISTER_GENERATOR(BrightFloat, bright_float)
HALIDE_REGISTER_GENERATOR(InvertFloat, invert_float)
