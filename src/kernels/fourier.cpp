// Fourier family: moving image planes into and out of complex transform
// arrays, and the steps of the log-polar mapping. A complex array is a 3-D
// buffer: dimension 0 the real (0) and imaginary (1) part, stride 1; 1 is x,
// stride 2; 2 is y.
#include <limits>

#include "kernels/GeneratorSupport.h"

namespace {

using namespace Halide;
using qorimg::kernels::generators::kRowsPerTask;
using qorimg::kernels::generators::kVectorLanes;

// Rows in parallel, x in vectors, the two parts of a complex value unrolled.
void ScheduleComplex(Func f, const Var &c, const Var &x, const Var &y) {
  f.bound(c, 0, 2).unroll(c).reorder(c, x, y);
  f.parallel(y, kRowsPerTask, TailStrategy::GuardWithIf).vectorize(x, kVectorLanes, TailStrategy::GuardWithIf);
}

// array(0, x, y) := plane(x, y), array(1, x, y) := 0, over the output's
// extent (bind the part of the array the plane covers).
class PutFftRealFloat : public Generator<PutFftRealFloat> {
 public:
  Input<Buffer<float, 2>> plane{"plane"};
  Output<Buffer<float, 3>> array{"array"};

  void generate() {
    array(c, x, y) = select(c == 0, plane(x, y), 0.0f);
    ScheduleComplex(array, c, x, y);
  }

 private:
  Var c{"c"}, x{"x"}, y{"y"};
};

// plane(x, y) := array(part, x, y) inside the array, 0 beyond it.
template <int part>
class GetFftPartFloat : public Generator<GetFftPartFloat<part>> {
 public:
  GeneratorInput<Buffer<float, 3>> array{"array"};
  GeneratorOutput<Buffer<float, 2>> plane{"plane"};

  void generate() {
    Expr inside = x < array.dim(1).extent() && y < array.dim(2).extent();
    Expr xi = clamp(x, 0, array.dim(1).extent() - 1), yi = clamp(y, 0, array.dim(2).extent() - 1);
    plane(x, y) = select(inside, array(part, xi, yi), 0.0f);
    plane.parallel(y, kRowsPerTask, TailStrategy::GuardWithIf).vectorize(x, kVectorLanes, TailStrategy::GuardWithIf);
  }

 private:
  Var x{"x"}, y{"y"};
};

// result := the smallest real part of the array, NaN skipped; the largest
// finite float when no real part is below it (all NaN or +inf).
class ReminFloat : public Generator<ReminFloat> {
 public:
  Input<Buffer<float, 3>> array{"array"};
  Output<Buffer<float, 0>> result{"result"};

  void generate() {
    // Per-row minima in parallel, then their minimum.
    RDom rx(0, array.dim(1).extent(), "rx");
    Expr v = array(0, rx, y);
    rows(y) = std::numeric_limits<float>::max();
    rows(y) = strict_float(select(is_nan(v), rows(y), min(rows(y), v)));
    RDom ry(0, array.dim(2).extent(), "ry");
    result() = std::numeric_limits<float>::max();
    result() = strict_float(min(result(), rows(ry)));
    rows.compute_root().parallel(y, kRowsPerTask, TailStrategy::GuardWithIf);
    rows.update().parallel(y, kRowsPerTask, TailStrategy::GuardWithIf);
  }

 private:
  Var y{"y"};
  Func rows{"rows"};
};

// array(0, x, y) := log(v - rmin + 1), imaginary parts copied.
class LogToneFloat : public Generator<LogToneFloat> {
 public:
  Input<Buffer<float, 3>> input{"input"};
  Input<float> rmin{"rmin"};
  Output<Buffer<float, 3>> output{"output"};

  void generate() {
    output(c, x, y) = select(c == 0, log(input(0, x, y) - rmin + 1.0f), input(1, x, y));
    ScheduleComplex(output, c, x, y);
  }

 private:
  Var c{"c"}, x{"x"}, y{"y"};
};

// The log-polar map of the input's real parts: output (i, j) reads the input
// at rho = exp(rho_start + j * delta_rho), theta = theta_start + i *
// delta_theta about the centre (W/2 - 0.5, H/2 - 0.5) bilinearly, neighbours
// clamped; 0 for sources outside (-0.5, W - 0.5) x (-0.5, H - 0.5), which a
// NaN coordinate also is. Imaginary components are zero.
class ToLogPolarFloat : public Generator<ToLogPolarFloat> {
 public:
  Input<Buffer<float, 3>> input{"input"};
  Input<float> rho_start{"rho_start"}, delta_rho{"delta_rho"};
  Input<float> theta_start{"theta_start"}, delta_theta{"delta_theta"};
  Output<Buffer<float, 3>> output{"output"};

  void generate() {
    Expr w = input.dim(1).extent(), h = input.dim(2).extent();
    Expr rho = exp(rho_start + cast<float>(y) * delta_rho);
    Expr theta = theta_start + cast<float>(x) * delta_theta;
    Expr sx = cos(theta) * rho + (cast<float>(w) * 0.5f - 0.5f);
    Expr sy = sin(theta) * rho + (cast<float>(h) * 0.5f - 0.5f);
    Expr px = sx, py = sy;
    Expr inside = strict_float(px > -0.5f && px < cast<float>(w) - 0.5f && py > -0.5f && py < cast<float>(h) - 0.5f);
    // Coordinates only inside the array reach the indices.
    Expr fx = floor(select(inside, px, 0.0f)), fy = floor(select(inside, py, 0.0f));
    Expr ax = select(inside, px, 0.0f) - fx, ay = select(inside, py, 0.0f) - fy;
    Expr x0 = clamp(cast<int>(fx), 0, w - 1), x1 = clamp(cast<int>(fx) + 1, 0, w - 1);
    Expr y0 = clamp(cast<int>(fy), 0, h - 1), y1 = clamp(cast<int>(fy) + 1, 0, h - 1);
    Expr top = input(0, x0, y0) * (1.0f - ax) + input(0, x1, y0) * ax;
    Expr bottom = input(0, x0, y1) * (1.0f - ax) + input(0, x1, y1) * ax;
    Expr value = select(inside, top * (1.0f - ay) + bottom * ay, 0.0f);
    output(c, x, y) = select(c == 0, value, 0.0f);

    ScheduleComplex(output, c, x, y);
  }

 private:
  Var c{"c"}, x{"x"}, y{"y"};
};

using GetFftRealFloat = GetFftPartFloat<0>;
using GetFftImaginaryFloat = GetFftPartFloat<1>;

}  // namespace

HALIDE_REGISTER_GENERATOR(PutFftRealFloat, put_fft_real_float)
HALIDE_REGISTER_GENERATOR(GetFftRealFloat, get_fft_real_float)
HALIDE_REGISTER_GENERATOR(GetFftImaginaryFloat, get_fft_imaginary_float)
HALIDE_REGISTER_GENERATOR(ReminFloat, remin_float)
HALIDE_REGISTER_GENERATOR(LogToneFloat, log_tone_float)
HALIDE_REGISTER_GENERATOR(ToLogPolarFloat, to_log_polar_float)
