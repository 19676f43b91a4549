// Display family: three float planes mapped through their levels to the bytes of
// a bitmap, blue, green, red.
//
// Bitmaps are 3-D byte buffers: dimension 0 the channel (stride 1), 1 x
// (stride 3 or 4), 2 y (stride the bitmap's line, which may be negative for a
// bottom-up bitmap). Both mappings give 0 for a NaN sample, as the loops do.
#include <cstdint>

#include "kernels/GeneratorSupport.h"

namespace {

using namespace Halide;
using qorimg::kernels::generators::kRowsPerTask;

// The display mapping in double: 0 at or below the minimum, 255 at or above the
// maximum, else (v - min) / range * 255 truncated.
Expr ByteInDouble(Expr v, Expr min, Expr max, Expr range) {
  Expr value = cast<double>(v);
  Expr t = strict_float((value - min) / range * Expr(255.0));
  Expr inside = strict_float(select(t > Expr(0.0), select(t < Expr(255.0), t, Expr(255.0)), Expr(0.0)));
  return strict_float(select(min >= value, cast<uint8_t>(0), value >= max, cast<uint8_t>(255), cast<uint8_t>(inside)));
}

// The display mapping in single precision with the line loops' own float levels:
// lo, hi the levels rounded to float and k = (float)(255.0 / range) worked out in
// double. (k from the range rounded to float can be one float step off, and
// lo + range one step above hi, each a byte off the loops.)
Expr ByteInFloat(Expr v, Expr lo, Expr hi, Expr k) {
  Expr t = strict_float((v - lo) * k);
  Expr inside = strict_float(select(t > 0.0f, select(t < 255.0f, t, 255.0f), 0.0f));
  return strict_float(select(lo >= v, cast<uint8_t>(0), v >= hi, cast<uint8_t>(255), cast<uint8_t>(inside)));
}

// Rows in parallel, x in vectors, the channels unrolled so that the stores of a
// pixel's bytes interleave into whole vectors.
template <typename Output>
void ScheduleInterleaved(Output &output, Stage stage, Var c, Var x, Var y, int channels) {
  output.dim(0).set_bounds(0, channels).set_stride(1);
  output.dim(1).set_stride(channels);
  stage.reorder(c, x, y).unroll(c).vectorize(x, 16, TailStrategy::GuardWithIf).parallel(y, kRowsPerTask, TailStrategy::GuardWithIf);
}

// 3 bytes a pixel, mapped in double; levels = {min, max, range} of red, green
// and blue in turn.
class Todib32Float : public Generator<Todib32Float> {
 public:
  Input<Buffer<float, 2>> red{"red"}, green{"green"}, blue{"blue"};
  Input<Buffer<double, 1>> levels{"levels"};
  Output<Buffer<uint8_t, 3>> dib{"dib"};

  void generate() {
    auto mapped = [&](Input<Buffer<float, 2>> &plane, int p) {
      return ByteInDouble(plane(x, y), levels(3 * p), levels(3 * p + 1), levels(3 * p + 2));
    };
    dib(c, x, y) = select(c == 0, mapped(blue, 2), c == 1, mapped(green, 1), mapped(red, 0));

    ScheduleInterleaved(dib, Func(dib), c, x, y, 3);
  }

 private:
  Var c{"c"}, x{"x"}, y{"y"};
};

// 4 bytes a pixel, mapped in single precision, the fourth byte 0; per channel
// the minimum and maximum as floats and k = (float)(255.0 / range). Whole pixels
// make one interleaved store; leaving the fourth byte would make four byte
// scatters and cost more than half the speed.
class ImageBuffer32bitFloat : public Generator<ImageBuffer32bitFloat> {
 public:
  Input<Buffer<float, 2>> red{"red"}, green{"green"}, blue{"blue"};
  Input<float> fRedLevelMin{"fRedLevelMin"}, fRedLevelMax{"fRedLevelMax"}, fRedScale{"fRedScale"};
  Input<float> fGreenLevelMin{"fGreenLevelMin"}, fGreenLevelMax{"fGreenLevelMax"}, fGreenScale{"fGreenScale"};
  Input<float> fBlueLevelMin{"fBlueLevelMin"}, fBlueLevelMax{"fBlueLevelMax"}, fBlueScale{"fBlueScale"};
  Output<Buffer<uint8_t, 3>> output{"output"};

  void generate() {
    Expr b = ByteInFloat(blue(x, y), fBlueLevelMin, fBlueLevelMax, fBlueScale);
    Expr g = ByteInFloat(green(x, y), fGreenLevelMin, fGreenLevelMax, fGreenScale);
    Expr r = ByteInFloat(red(x, y), fRedLevelMin, fRedLevelMax, fRedScale);
    output(c, x, y) = select(c == 0, b, c == 1, g, c == 2, r, cast<uint8_t>(0));

    ScheduleInterleaved(output, Func(output), c, x, y, 4);
  }

 private:
  Var c{"c"}, x{"x"}, y{"y"};
};

}  // namespace

HALIDE_REGISTER_GENERATOR(Todib32Float, todib32_float)
HALIDE_REGISTER_GENERATOR(ImageBuffer32bitFloat, image_buffer_32bit_float)
