// Geometry family: rotation and resampling with the five interpolation methods,
// the shifts of stacking with their validity masks, and the binning sum.
//
// Arithmetic is in float. Sample positions are clamped into the plane before
// they become integers, so a position far outside stays defined (it is then
// replaced by `outside` anyway), and every tap is read with its coordinates
// clamped into the plane: the edge pixel repeats. Bicubic and Lanczos weights
// are not renormalised, as in the line readers.
#include <cstdint>

#include "kernels/GeneratorSupport.h"

namespace {

using namespace Halide;
using qorimg::kernels::generators::kRowsPerTask;
using qorimg::kernels::generators::kVectorLanes;
using qorimg::kernels::generators::ScheduleRowsParallelVectorX;

enum class Method { Bilinear, Bicubic, Lanczos2, Lanczos3, Nearest };

// Rows of output per task of the two-pass resampling: the intermediate rows of
// a strip are computed once for the strip.
constexpr int kResampleRows = 16;

// sin(pi v) for v >= 0: the integer part gives the sign, the fraction folded
// into [0, 0.5] goes through an odd polynomial (Taylor to the 13th power, error
// below 1e-7 there), which vectorises where a library sine would not.
Expr SinPi(Expr v) {
  Expr k = floor(v);
  Expr r = v - k;
  r = min(r, 1.0f - r);
  Expr a = r * float(M_PI);
  Expr a2 = a * a;
  Expr p = 1.0f + a2 * (-1.0f / 6 + a2 * (1.0f / 120 + a2 * (-1.0f / 5040 + a2 * (1.0f / 362880 +
                 a2 * (-1.0f / 39916800 + a2 * (1.0f / 6227020800.0f))))));
  Expr odd = (cast<int32_t>(k) & 1) == 1;
  return select(odd, -a * p, a * p);
}

// The cubic convolution kernel with parameter a.
Expr KernelBicubic(Expr t, float a) {
  t = abs(t);
  Expr t2 = t * t, t3 = t2 * t;
  return select(t <= 1.0f, 1.0f - (a + 3.0f) * t2 + (a + 2.0f) * t3,
                t <= 2.0f, (8.0f * t - 4.0f - 5.0f * t2 + t3) * a, 0.0f);
}

// sin(pi t / n) * sin(pi t) * n / (pi t)^2, 1 at 0 and 0 beyond n.
Expr KernelLanczos(Expr t, int n) {
  t = abs(t);
  Expr pt = t * float(M_PI);
  Expr value = SinPi(t / float(n)) * (SinPi(t) * float(n)) / (pt * pt);
  return select(t == 0.0f, 1.0f, t > float(n), 0.0f, value);
}

int TapsOf(Method m) { return m == Method::Lanczos3 ? 6 : m == Method::Bilinear ? 2 : m == Method::Nearest ? 1 : 4; }

// The weight of the tap at offset k (from the truncated position) for fraction f.
Expr TapWeight(Method m, Expr f, int k, float bicubicA) {
  switch (m) {
    case Method::Bilinear: return k == 0 ? 1.0f - f : f;
    case Method::Bicubic: return KernelBicubic(f - float(k), bicubicA);
    case Method::Lanczos2: return KernelLanczos(f - float(k), 2);
    case Method::Lanczos3: return KernelLanczos(f - float(k), 3);
    case Method::Nearest: break;
  }
  return 1.0f;
}

// First tap offset: 0 for bilinear, -1 for the 4-tap kernels, -2 for Lanczos3.
int FirstTap(Method m) { return m == Method::Bilinear ? 0 : 1 - TapsOf(m) / 2; }

// A position known to lie in [0, size], clamped there so that a far one stays defined.
Expr ClampedPosition(Expr p, Expr size) { return clamp(p, 0.0f, cast<float>(size)); }

// The sample at (px, py) of a plane read through `plane` (edges repeated), all
// taps at once: the rows summed with the x weights first, then the row sums with
// the y weights, as the line readers' Calc does. Bilinear uses the four-term
// form of the line readers.
Expr SampleAt(Method m, Func plane, Expr px, Expr py, Expr width, Expr height, float bicubicA) {
  px = ClampedPosition(px, width);
  py = ClampedPosition(py, height);
  if (m == Method::Nearest) return plane(cast<int32_t>(px + 0.5f), cast<int32_t>(py + 0.5f));
  Expr ix = cast<int32_t>(px), iy = cast<int32_t>(py);
  Expr fx = px - cast<float>(ix), fy = py - cast<float>(iy);
  if (m == Method::Bilinear) {
    Expr p00 = plane(ix, iy), p01 = plane(ix, iy + 1), p10 = plane(ix + 1, iy), p11 = plane(ix + 1, iy + 1);
    return p00 * (1.0f - fy) * (1.0f - fx) + p01 * (fy - fy * fx) + p10 * (fx - fy * fx) + p11 * fy * fx;
  }
  const int taps = TapsOf(m), first = FirstTap(m);
  Expr sum = 0.0f;
  for (int j = 0; j < taps; ++j) {
    Expr row = 0.0f;
    for (int i = 0; i < taps; ++i) row += TapWeight(m, fx, first + i, bicubicA) * plane(ix + first + i, iy + first + j);
    sum += row * TapWeight(m, fy, first + j, bicubicA);
  }
  return sum;
}

// The rotation's source position of output (x, y) and its inside test.
struct RotatedPosition {
  Expr px, py;
  RotatedPosition(Expr x, Expr y, Expr shift_x, Expr shift_y, Expr center_x, Expr center_y, Expr c, Expr s) {
    Expr u = cast<float>(x) + shift_x - center_x;
    Expr w = center_y - (cast<float>(y) + shift_y);
    px = c * u - s * w + center_x;
    py = center_y - (s * u + c * w);
  }
};

Expr InsidePlane(Expr px, Expr py, Expr width, Expr height) {
  return px >= 0.0f && py >= 0.0f && px < cast<float>(width) && py < cast<float>(height);
}

// Rotation about (center_x, center_y) of the source plane: output (x, y) reads
// the source at the turned position of (x + shift_x, y + shift_y); positions
// outside [0, W) x [0, H) give `outside`.
template <Method m>
class Rotate : public Generator<Rotate<m>> {
 public:
  GeneratorInput<Buffer<float, 2>> input{"input"};
  GeneratorInput<float> shift_x{"shift_x"}, shift_y{"shift_y"}, center_x{"center_x"}, center_y{"center_y"};
  GeneratorInput<float> cosR{"cosR"}, sinR{"sinR"}, outside{"outside"};
  GeneratorOutput<Buffer<float, 2>> output{"output"};

  void generate() {
    Func plane = BoundaryConditions::repeat_edge(input);
    RotatedPosition p(x, y, shift_x, shift_y, center_x, center_y, cosR, sinR);
    Expr width = input.dim(0).extent(), height = input.dim(1).extent();
    output(x, y) = select(InsidePlane(p.px, p.py, width, height),
                          SampleAt(m, plane, p.px, p.py, width, height, -0.5f), outside);

    ScheduleRowsParallelVectorX(output, x, y);
  }

 private:
  Var x{"x"}, y{"y"};
};

// 1 where the rotation of a width x height plane finds an inside position, else 0.
class RotateMask : public Generator<RotateMask> {
 public:
  Input<int32_t> width{"width"}, height{"height"};
  Input<float> shift_x{"shift_x"}, shift_y{"shift_y"}, center_x{"center_x"}, center_y{"center_y"};
  Input<float> cosR{"cosR"}, sinR{"sinR"};
  Output<Buffer<int32_t, 2>> output{"output"};

  void generate() {
    RotatedPosition p(x, y, shift_x, shift_y, center_x, center_y, cosR, sinR);
    output(x, y) = select(InsidePlane(p.px, p.py, width, height), 1, 0);

    ScheduleRowsParallelVectorX(output, x, y);
  }

 private:
  Var x{"x"}, y{"y"};
};

// Resampling to new_width x new_height: output (x, y) reads the source at
// (x * (W / new_width), y * (H / new_height)), ratios in float, no half-pixel
// offset. Two passes: each needed source row is summed along x with the
// column weights, then the row sums along y with the row weights. Bicubic uses
// a = -0.1 here. Taps are clamped into the plane.
template <Method m>
class Resolution : public Generator<Resolution<m>> {
 public:
  GeneratorInput<Buffer<float, 2>> input{"input"};
  GeneratorInput<int32_t> new_width{"new_width"}, new_height{"new_height"};
  GeneratorOutput<Buffer<float, 2>> output{"output"};

  void generate() {
    Expr width = input.dim(0).extent(), height = input.dim(1).extent();
    Func plane = BoundaryConditions::repeat_edge(input);
    Expr rx = cast<float>(width) / cast<float>(new_width);
    Expr ry = cast<float>(height) / cast<float>(new_height);
    Expr sx = ClampedPosition(cast<float>(x) * rx, width);
    Expr sy = ClampedPosition(cast<float>(y) * ry, height);
    if (m == Method::Nearest) {
      output(x, y) = plane(cast<int32_t>(sx + 0.5f), cast<int32_t>(sy + 0.5f));
      ScheduleRowsParallelVectorX(output, x, y);
      return;
    }
    const int taps = TapsOf(m), first = FirstTap(m);
    // Per column and per row: the truncated position and the tap weights.
    // The column side is tabulated once; the row side stays an expression of
    // y, so that the rows a strip of output reads can be bounded.
    columnBase(x) = cast<int32_t>(sx);
    Expr fx = sx - cast<float>(columnBase(x));
    std::vector<Expr> wx;
    for (int k = 0; k < taps; ++k) wx.push_back(TapWeight(m, fx, first + k, -0.1f));
    columnWeight(x, k) = mux(k, wx);
    Expr iy = cast<int32_t>(sy), fy = sy - cast<float>(iy);

    Expr rowSum = 0.0f;
    for (int i = 0; i < taps; ++i) rowSum += columnWeight(x, i) * plane(columnBase(x) + first + i, rows);
    rowSums(x, rows) = rowSum;
    Expr sum = 0.0f;
    for (int j = 0; j < taps; ++j)
      sum += rowSums(x, clamp(iy + first + j, 0, height - 1)) * TapWeight(m, fy, first + j, -0.1f);
    output(x, y) = sum;

    Var yo{"yo"}, yi{"yi"};
    output.split(y, yo, yi, kResampleRows, TailStrategy::GuardWithIf)
        .parallel(yo)
        .vectorize(x, kVectorLanes, TailStrategy::GuardWithIf);
    rowSums.compute_at(output, yo).vectorize(x, kVectorLanes, TailStrategy::GuardWithIf);
    columnBase.compute_root().vectorize(x, kVectorLanes, TailStrategy::GuardWithIf);
    columnWeight.compute_root().bound(k, 0, taps).unroll(k).vectorize(x, kVectorLanes, TailStrategy::GuardWithIf);
  }

 private:
  Var x{"x"}, y{"y"}, k{"k"}, rows{"rows"};
  Func columnBase{"column_base"}, columnWeight{"column_weight"};
  Func rowSums{"row_sums"};
};

// output(x, y) := input(x - shift_x, y - shift_y) inside the input, else outside.
class TranslateIntshiftFloat : public Generator<TranslateIntshiftFloat> {
 public:
  Input<Buffer<float, 2>> input{"input"};
  Input<int32_t> shift_x{"shift_x"}, shift_y{"shift_y"};
  Input<float> outside{"outside"};
  Output<Buffer<float, 2>> output{"output"};

  void generate() {
    Func plane = BoundaryConditions::repeat_edge(input);
    Expr sx = x - shift_x, sy = y - shift_y;
    Expr inside = sx >= 0 && sy >= 0 && sx < input.dim(0).extent() && sy < input.dim(1).extent();
    output(x, y) = select(inside, plane(sx, sy), outside);

    ScheduleRowsParallelVectorX(output, x, y);
  }

 private:
  Var x{"x"}, y{"y"};
};

// The bicubic (a = -0.5) sample at (x - shift_x, y - shift_y), outside for a
// position outside [0, W) x [0, H).
class TranslateFloatshiftBicubicFloat : public Generator<TranslateFloatshiftBicubicFloat> {
 public:
  Input<Buffer<float, 2>> input{"input"};
  Input<float> shift_x{"shift_x"}, shift_y{"shift_y"};
  Input<float> outside{"outside"};
  Output<Buffer<float, 2>> output{"output"};

  void generate() {
    Func plane = BoundaryConditions::repeat_edge(input);
    Expr width = input.dim(0).extent(), height = input.dim(1).extent();
    Expr px = cast<float>(x) - shift_x, py = cast<float>(y) - shift_y;
    output(x, y) = select(InsidePlane(px, py, width, height),
                          SampleAt(Method::Bicubic, plane, px, py, width, height, -0.5f), outside);

    ScheduleRowsParallelVectorX(output, x, y);
  }

 private:
  Var x{"x"}, y{"y"};
};

// 1 where the shifted position lies in a width x height plane, else 0.
template <typename Shift>
class TranslateMask : public Generator<TranslateMask<Shift>> {
 public:
  GeneratorInput<int32_t> width{"width"}, height{"height"};
  GeneratorInput<Shift> shift_x{"shift_x"}, shift_y{"shift_y"};
  GeneratorOutput<Buffer<int32_t, 2>> output{"output"};

  void generate() {
    Expr px = cast<Shift>(x) - shift_x, py = cast<Shift>(y) - shift_y;
    Expr inside = px >= cast<Shift>(0) && py >= cast<Shift>(0) && px < cast<Shift>(width) && py < cast<Shift>(height);
    output(x, y) = select(inside, 1, 0);

    ScheduleRowsParallelVectorX(output, x, y);
  }

 private:
  Var x{"x"}, y{"y"};
};

// binned(x, y) := float sum of the nBinsX x nBinsY block at (x * nBinsX, y *
// nBinsY), row by row and column by column in each row, as the line loop adds;
// a partial block at the right or bottom sums what exists.
class Binning2fFloat : public Generator<Binning2fFloat> {
 public:
  Input<Buffer<float, 2>> input{"input"};
  Input<int32_t> nBinsX{"nBinsX"}, nBinsY{"nBinsY"};
  Output<Buffer<float, 2>> binned{"binned"};

  void generate() {
    RDom r(0, nBinsX, 0, nBinsY, "block");
    Expr sx = x * nBinsX + r.x, sy = y * nBinsY + r.y;
    r.where(sx < input.dim(0).extent() && sy < input.dim(1).extent());
    // The where clause skips the samples past the edge; the clamped read only
    // keeps the bounds of what is read inside the plane.
    Func plane = BoundaryConditions::repeat_edge(input);
    binned(x, y) = 0.0f;
    binned(x, y) = strict_float(binned(x, y) + plane(sx, sy));

    // Each output sample still adds its block row by row, column by column;
    // the vector runs across output samples.
    ScheduleRowsParallelVectorX(binned, x, y);
    binned.update()
        .reorder(x, r.x, r.y, y)
        .parallel(y, kRowsPerTask, TailStrategy::GuardWithIf)
        .vectorize(x, kVectorLanes, TailStrategy::GuardWithIf);
  }

 private:
  Var x{"x"}, y{"y"};
};

using RotateBilinearFloat = Rotate<Method::Bilinear>;
using RotateBicubicFloat = Rotate<Method::Bicubic>;
using RotateLanczos2Float = Rotate<Method::Lanczos2>;
using RotateLanczos3Float = Rotate<Method::Lanczos3>;
using RotateNearestFloat = Rotate<Method::Nearest>;
using ResolutionBilinearFloat = Resolution<Method::Bilinear>;
using ResolutionBicubicFloat = Resolution<Method::Bicubic>;
using ResolutionLanczos2Float = Resolution<Method::Lanczos2>;
using ResolutionLanczos3Float = Resolution<Method::Lanczos3>;
using ResolutionNearestFloat = Resolution<Method::Nearest>;
using TranslateIntshiftMask = TranslateMask<int32_t>;
using TranslateFloatshiftMask = TranslateMask<float>;

}  // namespace

HALIDE_REGISTER_GENERATOR(RotateBilinearFloat, rotate_bilinear_float)
HALIDE_REGISTER_GENERATOR(RotateBicubicFloat, rotate_bicubic_float)
HALIDE_REGISTER_GENERATOR(RotateLanczos2Float, rotate_lanczos2_float)
HALIDE_REGISTER_GENERATOR(RotateLanczos3Float, rotate_lanczos3_float)
HALIDE_REGISTER_GENERATOR(RotateNearestFloat, rotate_nearest_float)
HALIDE_REGISTER_GENERATOR(RotateMask, rotate_mask)
HALIDE_REGISTER_GENERATOR(ResolutionBilinearFloat, resolution_bilinear_float)
HALIDE_REGISTER_GENERATOR(ResolutionBicubicFloat, resolution_bicubic_float)
HALIDE_REGISTER_GENERATOR(ResolutionLanczos2Float, resolution_lanczos2_float)
HALIDE_REGISTER_GENERATOR(ResolutionLanczos3Float, resolution_lanczos3_float)
HALIDE_REGISTER_GENERATOR(ResolutionNearestFloat, resolution_nearest_float)
HALIDE_REGISTER_GENERATOR(TranslateIntshiftFloat, translate_intshift_float)
HALIDE_REGISTER_GENERATOR(TranslateFloatshiftBicubicFloat, translate_floatshift_bicubic_float)
HALIDE_REGISTER_GENERATOR(TranslateIntshiftMask, translate_intshift_mask)
HALIDE_REGISTER_GENERATOR(TranslateFloatshiftMask, translate_floatshift_mask)
HALIDE_REGISTER_GENERATOR(Binning2fFloat, binning2f_float)
