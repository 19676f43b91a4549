// Frame-edit family: copies, crops and pastes of planes, the zero-based level
// cut and the threshold replacements. Copies and pastes move samples without
// arithmetic; the float ones are single IEEE operations kept strict, so every
// processor variant gives the plain loops' results exactly.
//
// Pastes write only their rectangle: the output's pure definition is undef and
// an update over the rectangle writes it, so the caller binds the whole target
// plane and the samples outside the rectangle are neither read nor written.
#include <cstdint>

#include "kernels/GeneratorSupport.h"

namespace {

using namespace Halide;
using qorimg::kernels::generators::ClipAtZero;
using qorimg::kernels::generators::kRowsPerTask;
using qorimg::kernels::generators::ScheduleRowsParallelVectorX;

// Vectors of 32 bytes whatever the element type.
template <typename T>
constexpr int LanesOf = 32 / int(sizeof(T));

// output(x, y) := input(x, y).
class CopyFloat : public Generator<CopyFloat> {
 public:
  Input<Buffer<float, 2>> input{"input"};
  Output<Buffer<float, 2>> output{"output"};

  void generate() {
    output(x, y) = input(x, y);

    ScheduleRowsParallelVectorX(output, x, y);
  }

 private:
  Var x{"x"}, y{"y"};
};

// output(x, y) := input(x + offset_x, y + offset_y).
class CropFloat : public Generator<CropFloat> {
 public:
  Input<Buffer<float, 2>> input{"input"};
  Input<int32_t> offset_x{"offset_x"}, offset_y{"offset_y"};
  Output<Buffer<float, 2>> output{"output"};

  void generate() {
    output(x, y) = input(x + offset_x, y + offset_y);

    ScheduleRowsParallelVectorX(output, x, y);
  }

 private:
  Var x{"x"}, y{"y"};
};

// For x in [start_x, end_x), y in [start_y, end_y):
//   paste(x, y) := input(x - start_x + shift_x, y - start_y + shift_y).
template <typename T>
class Paste : public Generator<Paste<T>> {
 public:
  GeneratorInput<Buffer<T, 2>> input{"input"};
  GeneratorInput<int32_t> start_x{"start_x"}, end_x{"end_x"}, start_y{"start_y"}, end_y{"end_y"};
  GeneratorInput<int32_t> shift_x{"shift_x"}, shift_y{"shift_y"};
  GeneratorOutput<Buffer<T, 2>> paste{"paste"};

  void generate() {
    RDom r(start_x, end_x - start_x, start_y, end_y - start_y, "rectangle");
    paste(x, y) = undef<T>();
    paste(r.x, r.y) = input(r.x - start_x + shift_x, r.y - start_y + shift_y);

    ScheduleRowsParallelVectorX(paste.update(), r.x, r.y, LanesOf<T>);
  }

 private:
  Var x{"x"}, y{"y"};
};

// Paste on interleaved bytes: dimension 0 is the channel (stride 1), 1 is x,
// 2 is y. The rectangle is in x and y; all channels are copied along.
class Paste3dUint8 : public Generator<Paste3dUint8> {
 public:
  Input<Buffer<uint8_t, 3>> input{"input"};
  Input<int32_t> start_x{"start_x"}, end_x{"end_x"}, start_y{"start_y"}, end_y{"end_y"};
  Input<int32_t> shift_x{"shift_x"}, shift_y{"shift_y"};
  Output<Buffer<uint8_t, 3>> paste{"paste"};

  void generate() {
    RDom r(start_x, end_x - start_x, start_y, end_y - start_y, "rectangle");
    paste(c, x, y) = undef<uint8_t>();
    paste(c, r.x, r.y) = input(c, r.x - start_x + shift_x, r.y - start_y + shift_y);

    // Four-byte pixels packed densely (BGRX) get whole vectors of pixels.
    Expr packed_pixels = paste.dim(0).extent() == 4 && paste.dim(1).stride() == 4 && input.dim(1).stride() == 4;
    paste.update()
        .reorder(c, r.x, r.y)
        .parallel(r.y, kRowsPerTask, TailStrategy::GuardWithIf)
        .specialize(packed_pixels)
        .vectorize(c, 4, TailStrategy::GuardWithIf)
        .vectorize(r.x, 8, TailStrategy::GuardWithIf);
  }

 private:
  Var c{"c"}, x{"x"}, y{"y"};
};

// Every output sample from the input's rectangle [start_x, end_x) x [start_y, end_y),
// coordinates clamped into it:
//   output(x, y) := input(clamp(x + shift_x, start_x, end_x - 1), clamp(y + shift_y, start_y, end_y - 1)).
class PasteRectFloat : public Generator<PasteRectFloat> {
 public:
  Input<Buffer<float, 2>> input{"input"};
  Input<int32_t> start_x{"start_x"}, end_x{"end_x"}, start_y{"start_y"}, end_y{"end_y"};
  Input<int32_t> shift_x{"shift_x"}, shift_y{"shift_y"};
  Output<Buffer<float, 2>> output{"output"};

  void generate() {
    Func rectangle = BoundaryConditions::repeat_edge(input, {{start_x, end_x - start_x}, {start_y, end_y - start_y}});
    output(x, y) = rectangle(x + shift_x, y + shift_y);

    ScheduleRowsParallelVectorX(output, x, y);
  }

 private:
  Var x{"x"}, y{"y"};
};

// Like paste_float inside the rectangle; every sample outside it gets fill.
// Filled first, then pasted over: the input is read only inside the
// rectangle, so an empty rectangle reads nothing and gives fill everywhere.
class PasteWithFillFloat : public Generator<PasteWithFillFloat> {
 public:
  Input<Buffer<float, 2>> input{"input"};
  Input<float> fill{"fill"};
  Input<int32_t> start_x{"start_x"}, end_x{"end_x"}, start_y{"start_y"}, end_y{"end_y"};
  Input<int32_t> shift_x{"shift_x"}, shift_y{"shift_y"};
  Output<Buffer<float, 2>> paste{"paste"};

  void generate() {
    RDom r(start_x, end_x - start_x, start_y, end_y - start_y, "rectangle");
    paste(x, y) = fill;
    paste(r.x, r.y) = input(r.x - start_x + shift_x, r.y - start_y + shift_y);

    ScheduleRowsParallelVectorX(paste, x, y);
    ScheduleRowsParallelVectorX(paste.update(), r.x, r.y);
  }

 private:
  Var x{"x"}, y{"y"};
};

// output(x, y) := max(0, (v - fMin) * fRangeR / fRange) in float, in that order.
class CutOutOfZeroLevelFloat : public Generator<CutOutOfZeroLevelFloat> {
 public:
  Input<Buffer<float, 2>> input{"input"};
  Input<float> fMin{"fMin"}, fRange{"fRange"}, fRangeR{"fRangeR"};
  Output<Buffer<float, 2>> output{"output"};

  void generate() {
    output(x, y) = ClipAtZero((input(x, y) - fMin) * fRangeR / fRange);

    ScheduleRowsParallelVectorX(output, x, y);
  }

 private:
  Var x{"x"}, y{"y"};
};

// output(x, y) := value where the test of v = input(x, y) against threshold
// holds, else v. IEEE comparisons: NaN fails all tests but "not equal".
enum class ThresholdTest { Equal, NotEqual, GreaterThan, LessThan, LessThanOrEqual };

Expr Holds(ThresholdTest test, const Expr &v, const Expr &threshold) {
  switch (test) {
    case ThresholdTest::Equal: return v == threshold;
    case ThresholdTest::NotEqual: return v != threshold;
    case ThresholdTest::GreaterThan: return v > threshold;
    case ThresholdTest::LessThan: return v < threshold;
    // Not v <= threshold: Halide 14 compiles a float <= so that it holds
    // when v or threshold is NaN, even under strict_float.
    case ThresholdTest::LessThanOrEqual: return v < threshold || v == threshold;
  }
  return Expr();
}

template <ThresholdTest test>
class Threshold : public Generator<Threshold<test>> {
 public:
  GeneratorInput<Buffer<float, 2>> input{"input"};
  GeneratorInput<float> threshold{"threshold"}, value{"value"};
  GeneratorOutput<Buffer<float, 2>> output{"output"};

  void generate() {
    Expr v = input(x, y);
    output(x, y) = strict_float(select(Holds(test, v, threshold), value, v));

    ScheduleRowsParallelVectorX(output, x, y);
  }

 private:
  Var x{"x"}, y{"y"};
};

using PasteFloat = Paste<float>;
using PasteUint8 = Paste<uint8_t>;
using PasteUint32 = Paste<uint32_t>;
using ThresholdEqFloat = Threshold<ThresholdTest::Equal>;
using ThresholdNeqFloat = Threshold<ThresholdTest::NotEqual>;
using ThresholdGtFloat = Threshold<ThresholdTest::GreaterThan>;
using ThresholdLtFloat = Threshold<ThresholdTest::LessThan>;
using ThresholdLeqFloat = Threshold<ThresholdTest::LessThanOrEqual>;

}  // namespace

HALIDE_REGISTER_GENERATOR(CopyFloat, copy_float)
HALIDE_REGISTER_GENERATOR(CropFloat, crop_float)
HALIDE_REGISTER_GENERATOR(PasteFloat, paste_float)
HALIDE_REGISTER_GENERATOR(PasteUint8, paste_uint8)
HALIDE_REGISTER_GENERATOR(PasteUint32, paste_uint32)
HALIDE_REGISTER_GENERATOR(Paste3dUint8, paste3d_uint8)
HALIDE_REGISTER_GENERATOR(PasteRectFloat, paste_rect_float)
HALIDE_REGISTER_GENERATOR(PasteWithFillFloat, paste_with_fill_float)
HALIDE_REGISTER_GENERATOR(CutOutOfZeroLevelFloat, cut_out_of_zero_level_float)
HALIDE_REGISTER_GENERATOR(ThresholdEqFloat, threshold_eq_float)
HALIDE_REGISTER_GENERATOR(ThresholdNeqFloat, threshold_neq_float)
HALIDE_REGISTER_GENERATOR(ThresholdGtFloat, threshold_gt_float)
HALIDE_REGISTER_GENERATOR(ThresholdLtFloat, threshold_lt_float)
HALIDE_REGISTER_GENERATOR(ThresholdLeqFloat, threshold_leq_float)
