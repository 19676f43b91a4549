// Scalar arithmetic family: a float plane and a scalar (or two planes) in, one
// plane out, sample by sample. Each result is one IEEE operation on the inputs
// (strict_float keeps Halide from rewriting it), so all processor variants and
// the plain loops agree bit for bit.
#include "kernels/GeneratorSupport.h"

namespace {

using namespace Halide;
using qorimg::kernels::generators::ClipAtZero;
using qorimg::kernels::generators::ScheduleRowsParallelVectorX;

enum class ScalarOp { Add, Sub, Mul, SubClipAtZero };

Expr Apply(ScalarOp op, const Expr &a, const Expr &b) {
  switch (op) {
    case ScalarOp::Add: return strict_float(a + b);
    case ScalarOp::Sub: return strict_float(a - b);
    case ScalarOp::Mul: return strict_float(a * b);
    case ScalarOp::SubClipAtZero: return ClipAtZero(a - b);
  }
  return Expr();
}

// output(x, y) := lhs(x, y) <op> rhs for a scalar rhs.
template <ScalarOp op>
class PlaneScalarOp : public Generator<PlaneScalarOp<op>> {
 public:
  GeneratorInput<Buffer<float, 2>> lhs{"lhs"};
  GeneratorInput<float> rhs{"rhs"};
  GeneratorOutput<Buffer<float, 2>> output{"output"};

  void generate() {
    output(x, y) = Apply(op, lhs(x, y), rhs);

    ScheduleRowsParallelVectorX(output, x, y);
  }

 private:
  Var x{"x"}, y{"y"};
};

// output(x, y) -= rhs, in place: the pure definition leaves the plane as it is.
class SubScalarInplace : public Generator<SubScalarInplace> {
 public:
  Input<float> rhs{"rhs"};
  Output<Buffer<float, 2>> output{"output"};

  void generate() {
    output(x, y) = undef<float>();
    output(x, y) = strict_float(output(x, y) - rhs);

    ScheduleRowsParallelVectorX(output.update(), x, y);
  }

 private:
  Var x{"x"}, y{"y"};
};

// output(x, y) := max(lhs(x, y) - rhs(x, y), 0) of two planes.
class Sub0Planes : public Generator<Sub0Planes> {
 public:
  Input<Buffer<float, 2>> lhs{"lhs"};
  Input<Buffer<float, 2>> rhs{"rhs"};
  Output<Buffer<float, 2>> output{"output"};

  void generate() {
    output(x, y) = ClipAtZero(lhs(x, y) - rhs(x, y));

    ScheduleRowsParallelVectorX(output, x, y);
  }

 private:
  Var x{"x"}, y{"y"};
};

using AddScalarFloat = PlaneScalarOp<ScalarOp::Add>;
using SubScalarFloat = PlaneScalarOp<ScalarOp::Sub>;
using MulScalarFloat = PlaneScalarOp<ScalarOp::Mul>;
using Sub0ScalarFloat = PlaneScalarOp<ScalarOp::SubClipAtZero>;

}  // namespace

HALIDE_REGISTER_GENERATOR(AddScalarFloat, add_scalar_float)
HALIDE_REGISTER_GENERATOR(SubScalarFloat, sub_scalar_float)
HALIDE_REGISTER_GENERATOR(MulScalarFloat, mul_scalar_float)
HALIDE_REGISTER_GENERATOR(Sub0ScalarFloat, sub0_scalar_float)
HALIDE_REGISTER_GENERATOR(SubScalarInplace, sub_scalar_inplace_float)
HALIDE_REGISTER_GENERATOR(Sub0Planes, sub0_float)
