// Composite family: two planes joined pixel by pixel after B is moved by an
// integer shift, a fractional shift or a rotation. One generator makes all of
// them; its parameters (kind, level, mode) are fixed by the registered name.
//
// Arguments in order: a, b, dx, dy (int32 for the integer shift, else float),
// for the rotation center_x, center_y, cosR, sinR, then outside, for the
// weight mode the weight (double), for the level variants level_min_a,
// level_range_a, level_min_b, level_range_b, and the output. The output's
// rectangle may be part of A's plane; A is read at the output's coordinates.
//
// Everything stands under strict_float, so that every processor variant gives
// the same bits (no fused multiply-add where the formula has none).
#include <cstdint>

#include "kernels/GeneratorSupport.h"

namespace {

using namespace Halide;
using qorimg::kernels::generators::ClipAtZero;
using qorimg::kernels::generators::ScheduleRowsParallelVectorX;

enum class Kind { IntShift, FloatShift, Rotate };
enum class Mode { Average, Add, Weight, Sub, SubCutMinus, Mult, Div, Diff, Brighter, Darker, Default };

// The one-dimensional cubic weight (a = -0.5) in double: the inner form for
// distances up to 1, the outer one for distances in (1, 2]. The four taps of a
// fraction f have distances 1 + f, f, 1 - f, 2 - f; at 1 both forms give 0.
Expr InnerWeight(Expr d) { return Expr(1.5) * d * d * d - Expr(2.5) * d * d + Expr(1.0); }
Expr OuterWeight(Expr d) { return Expr(-0.5) * (d * d * d - Expr(5.0) * d * d + Expr(8.0) * d - Expr(4.0)); }

class Composit : public Generator<Composit> {
 public:
  GeneratorParam<Kind> kind{"kind", Kind::IntShift,
                            {{"intshift", Kind::IntShift}, {"floatshift", Kind::FloatShift}, {"rotate", Kind::Rotate}}};
  GeneratorParam<bool> level{"level", false};
  GeneratorParam<Mode> mode{"mode",
                            Mode::Average,
                            {{"average", Mode::Average},
                             {"add", Mode::Add},
                             {"weight", Mode::Weight},
                             {"sub", Mode::Sub},
                             {"sub_cutminus", Mode::SubCutMinus},
                             {"mult", Mode::Mult},
                             {"div", Mode::Div},
                             {"diff", Mode::Diff},
                             {"brighter", Mode::Brighter},
                             {"darker", Mode::Darker},
                             {"default", Mode::Default}}};

  Input<Buffer<float, 2>> a{"a"}, b{"b"};
  Output<Buffer<float, 2>> output{"output"};

  void configure() {
    if (kind == Kind::IntShift) {
      dxInt = add_input<int32_t>("dx");
      dyInt = add_input<int32_t>("dy");
    } else {
      dx = add_input<float>("dx");
      dy = add_input<float>("dy");
    }
    if (kind == Kind::Rotate) {
      centerX = add_input<float>("center_x");
      centerY = add_input<float>("center_y");
      cosR = add_input<float>("cosR");
      sinR = add_input<float>("sinR");
    }
    outside = add_input<float>("outside");
    if (mode == Mode::Weight) weight = add_input<double>("weight");
    if (level) {
      minA = add_input<float>("level_min_a");
      rangeA = add_input<float>("level_range_a");
      minB = add_input<float>("level_min_b");
      rangeB = add_input<float>("level_range_b");
    }
  }

  void generate() {
    if (mode == Mode::Default) {
      output(x, y) = a(x, y);
      ScheduleRowsParallelVectorX(output, x, y);
      return;
    }
    Func plane = BoundaryConditions::repeat_edge(b);
    Expr width = b.dim(0).extent(), height = b.dim(1).extent();
    Expr inside, sample;
    if (kind == Kind::IntShift) {
      Expr sx = x - *dxInt, sy = y - *dyInt;
      inside = sx >= 0 && sy >= 0 && sx < width && sy < height;
      sample = plane(sx, sy);
    } else {
      Expr px, py;
      if (kind == Kind::FloatShift) {
        Expr fx = cast<float>(x), fy = cast<float>(y);
        px = fx - *dx;
        py = fy - *dy;
        inside = fx >= *dx && fy >= *dy && fx < *dx + cast<float>(width) && fy < *dy + cast<float>(height);
      } else {
        Expr u = cast<float>(x) - *dx - *centerX, t = cast<float>(y) - *dy - *centerY;
        px = u * *cosR + t * *sinR + *centerX;
        py = -u * *sinR + t * *cosR + *centerY;
        inside = px >= 0.0f && py >= 0.0f && px < cast<float>(width) && py < cast<float>(height);
      }
      sample = Bicubic(plane, px, py, width, height);
    }

    Expr av = a(x, y), bv;
    if (level) {
      Expr scaleA = 255.0f / *rangeA, scaleB = 255.0f / *rangeB;
      av = (av - *minA) * scaleA;
      // The integer shift puts outside in place of b - min and scales it; the
      // other kinds put it in place of the mapped value.
      bv = kind == Kind::IntShift ? select(inside, sample - *minB, *outside) * scaleB
                                  : select(inside, (sample - *minB) * scaleB, *outside);
    } else {
      bv = select(inside, sample, *outside);
    }
    Expr r = Formula(av, bv);
    if (level) r = r * *rangeA / 255.0f + *minA;
    output(x, y) = strict_float(r);

    ScheduleRowsParallelVectorX(output, x, y);
  }

 private:
  // The cubic sample at (px, py): 4 x 4 taps about trunc, clamped into the
  // plane; weights and sums in double, rounded to float.
  Expr Bicubic(Func plane, Expr px, Expr py, Expr width, Expr height) {
    // Clamped before the conversion, so a far position (outside anyway) stays defined.
    px = clamp(px, 0.0f, cast<float>(width));
    py = clamp(py, 0.0f, cast<float>(height));
    Expr ix = cast<int32_t>(px), iy = cast<int32_t>(py);
    Expr fx = cast<double>(px - cast<float>(ix)), fy = cast<double>(py - cast<float>(iy));
    const Expr one(1.0), two(2.0);
    Expr wx[4] = {OuterWeight(one + fx), InnerWeight(fx), InnerWeight(one - fx), OuterWeight(two - fx)};
    Expr wy[4] = {OuterWeight(one + fy), InnerWeight(fy), InnerWeight(one - fy), OuterWeight(two - fy)};
    Expr sum = Expr(0.0);
    for (int j = 0; j < 4; ++j) {
      Expr row = Expr(0.0);
      for (int i = 0; i < 4; ++i) row += wx[i] * cast<double>(plane(ix - 1 + i, iy - 1 + j));
      sum += row * wy[j];
    }
    return cast<float>(sum);
  }

  Expr Formula(Expr av, Expr bv) {
    switch (mode) {
      case Mode::Average: return (av + bv) * 0.5f;
      case Mode::Add: return av + bv;
      case Mode::Weight:
        return cast<float>(cast<double>(av) * (Expr(1.0) - *weight) + cast<double>(bv) * *weight);
      case Mode::Sub: return av - bv;
      case Mode::SubCutMinus: return ClipAtZero(av - bv);
      case Mode::Mult: return level ? av * (clamp(bv, 0.0f, 255.0f) / 255.0f) : av * bv;
      case Mode::Div:
        return level ? av / (clamp(bv, 0.001f, 255.0f) / 255.0f) : select(bv == 0.0f, av, av / bv);
      case Mode::Diff: return abs(av - bv);
      case Mode::Brighter: return max(av, bv);
      case Mode::Darker: return min(av, bv);
      case Mode::Default: break;
    }
    return av;
  }

  Var x{"x"}, y{"y"};
  GeneratorInput<int32_t> *dxInt = nullptr, *dyInt = nullptr;
  GeneratorInput<float> *dx = nullptr, *dy = nullptr;
  GeneratorInput<float> *centerX = nullptr, *centerY = nullptr, *cosR = nullptr, *sinR = nullptr;
  GeneratorInput<float> *outside = nullptr;
  GeneratorInput<double> *weight = nullptr;
  GeneratorInput<float> *minA = nullptr, *rangeA = nullptr, *minB = nullptr, *rangeB = nullptr;
};

}  // namespace

HALIDE_REGISTER_GENERATOR(Composit, composit)

// Every name: composit_<kind>[_level][_bicubic]_<mode>_float.
#define QORIMG_COMPOSIT(kind, level, infix, mode)                                                   \
  HALIDE_REGISTER_GENERATOR_ALIAS(composit_##kind##infix##_##mode##_float, composit,                 \
                                  {{"kind", #kind}, {"level", #level}, {"mode", #mode}})
#define QORIMG_COMPOSIT_MODES(kind, level, infix) \
  QORIMG_COMPOSIT(kind, level, infix, average)    \
  QORIMG_COMPOSIT(kind, level, infix, add)        \
  QORIMG_COMPOSIT(kind, level, infix, weight)     \
  QORIMG_COMPOSIT(kind, level, infix, sub)        \
  QORIMG_COMPOSIT(kind, level, infix, sub_cutminus) \
  QORIMG_COMPOSIT(kind, level, infix, mult)       \
  QORIMG_COMPOSIT(kind, level, infix, div)        \
  QORIMG_COMPOSIT(kind, level, infix, diff)       \
  QORIMG_COMPOSIT(kind, level, infix, brighter)   \
  QORIMG_COMPOSIT(kind, level, infix, darker)     \
  QORIMG_COMPOSIT(kind, level, infix, default)

QORIMG_COMPOSIT_MODES(intshift, false, )
QORIMG_COMPOSIT_MODES(intshift, true, _level)
QORIMG_COMPOSIT_MODES(floatshift, false, _bicubic)
QORIMG_COMPOSIT_MODES(floatshift, true, _level_bicubic)
QORIMG_COMPOSIT_MODES(rotate, false, _bicubic)
QORIMG_COMPOSIT_MODES(rotate, true, _level_bicubic)
