// Calibration family: dark subtraction and flat division, in place on the
// image plane. Every operation stands under strict_float so that all processor
// variants round as the plain loops do.
#include "kernels/GeneratorSupport.h"

namespace {

using namespace Halide;
using qorimg::kernels::generators::ClipAtZero;
using qorimg::kernels::generators::ScheduleRowsParallelVectorX;

// output := max(output - dark, 0); NaN gives 0.
class DarkFloat : public Generator<DarkFloat> {
 public:
  Input<Buffer<float, 2>> dark{"dark"};
  Output<Buffer<float, 2>> output{"output"};

  void generate() {
    output(x, y) = undef<float>();
    output(x, y) = ClipAtZero(output(x, y) - dark(x, y));

    ScheduleRowsParallelVectorX(output.update(), x, y);
  }

 private:
  Var x{"x"}, y{"y"};
};

// v := a * v / f where the flat value f is above 0, else v stays (NaN too).
Expr Divide(const Expr &v, const Expr &f, const Expr &average) {
  return strict_float(select(f > 0.0f, (average * v) / f, v));
}

class FlatFloat : public Generator<FlatFloat> {
 public:
  Input<Buffer<float, 2>> flat{"flat"};
  Input<float> fAverage{"fAverage"};
  Output<Buffer<float, 2>> output{"output"};

  void generate() {
    output(x, y) = undef<float>();
    output(x, y) = Divide(output(x, y), flat(x, y), fAverage);

    ScheduleRowsParallelVectorX(output.update(), x, y);
  }

 private:
  Var x{"x"}, y{"y"};
};

// The flat value through the power curve whose zero lies at fFlatGm0: the
// differences in single precision, the power and the rescale in double.
class FlatWithGammaFloat : public Generator<FlatWithGammaFloat> {
 public:
  Input<Buffer<float, 2>> flat{"flat"};
  Input<float> fFlatMax{"fFlatMax"};
  Input<float> fFlatGm0{"fFlatGm0"};
  Input<double> fGamma{"fGamma"};
  Input<float> fOffset{"fOffset"};
  Input<float> fAverage{"fAverage"};
  Output<Buffer<float, 2>> output{"output"};

  void generate() {
    Expr span = strict_float(cast<double>(fFlatMax - fFlatGm0));
    Expr lifted = strict_float(cast<double>(flat(x, y) - fFlatGm0));
    Expr curved = strict_float(cast<float>(pow(lifted / span, fGamma) * span + cast<double>(fFlatGm0)));
    Expr f = strict_float(curved + fAverage * fOffset);
    output(x, y) = undef<float>();
    output(x, y) = Divide(output(x, y), f, fAverage);

    ScheduleRowsParallelVectorX(output.update(), x, y);
  }

 private:
  Var x{"x"}, y{"y"};
};

}  // namespace

HALIDE_REGISTER_GENERATOR(DarkFloat, dark_float)
HALIDE_REGISTER_GENERATOR(FlatFloat, flat_float)
HALIDE_REGISTER_GENERATOR(FlatWithGammaFloat, flat_with_gamma_float)
