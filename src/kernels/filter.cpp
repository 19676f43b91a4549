// Filter family: the separable filter of a plane with a 1-D kernel of 2nR+1
// weights, along x into a float intermediate and then along y, on the plane
// mirrored about its first and last pixel (neither repeated, periodic beyond
// the plane, 0 on a one-pixel axis); with the tonal gate; and the simple
// digital development that divides each pixel by its blur. Every sum and
// blend stands under strict_float, adding its terms in kernel order, so the
// results match the plain loops sample for sample inside the plane.
#include "kernels/GeneratorSupport.h"

namespace {

using namespace Halide;
using qorimg::kernels::generators::kVectorLanes;

// Rows per parallel strip: at least this many, and eight times the radius, so
// that the 2nR rows of halo that a strip filters along x as well stay a
// quarter of its work or less.
constexpr int kStripRows = 32;
// Columns per tile: the 2nR columns of halo stay a few percent.
constexpr int kTileColumns = 512;

// The blur of `input` with `weight` (2nR+1 taps) and its schedule.
class SeparableFilter {
 public:
  template <typename Plane>
  SeparableFilter(const Plane &input, const Func &weight, const Expr &nR) {
    mirrored = BoundaryConditions::mirror_interior(input);
    taps = RDom(0, 2 * nR + 1, "taps");
    alongX(x, y) = 0.0f;
    alongX(x, y) = strict_float(alongX(x, y) + weight(taps) * mirrored(x + taps - nR, y));
    blurred(x, y) = 0.0f;
    blurred(x, y) = strict_float(blurred(x, y) + weight(taps) * alongX(x, y + taps - nR));
  }

  // Strips of rows in parallel, cut into tiles across x so that the mirrored
  // source and the intermediate of a tile stay in cache; each tap's pass runs
  // along x in vectors.
  void ScheduleFor(Func output, const Var &ox, const Var &oy, const Expr &nR) {
    const Var strip("strip"), row("row"), tile("tile"), column("column");
    output.split(oy, strip, row, max(kStripRows, 8 * nR), TailStrategy::GuardWithIf)
        .split(ox, tile, column, kTileColumns, TailStrategy::GuardWithIf)
        .reorder(column, row, tile, strip)
        .parallel(strip)
        .vectorize(column, kVectorLanes, TailStrategy::GuardWithIf);
    mirrored.compute_at(output, tile).vectorize(mirrored.args()[0], kVectorLanes, TailStrategy::GuardWithIf);
    alongX.compute_at(output, tile).vectorize(x, kVectorLanes, TailStrategy::GuardWithIf);
    alongX.update().vectorize(x, kVectorLanes, TailStrategy::GuardWithIf);
    blurred.compute_at(output, row).vectorize(x, kVectorLanes, TailStrategy::GuardWithIf);
    blurred.update().vectorize(x, kVectorLanes, TailStrategy::GuardWithIf);
  }

  Func blurred{"blurred"};

 private:
  Var x{"x"}, y{"y"};
  RDom taps;
  Func mirrored{"mirrored"}, alongX{"along_x"};
};

// output := the separable filter of input.
class ApplyFilter : public Generator<ApplyFilter> {
 public:
  Input<Buffer<float, 2>> input{"input"};
  Input<Buffer<float, 1>> weight{"weight"};
  Input<int> nR{"nR"};
  Output<Buffer<float, 2>> output{"output"};

  void generate() {
    SeparableFilter filter(input, weight, nR);
    output(x, y) = filter.blurred(x, y);

    filter.ScheduleFor(output, x, y, nR);
  }

 private:
  Var x{"x"}, y{"y"};
};

// The tonal gate: the source below the outer thresholds' range stays, the
// band between the inner thresholds takes the filtered value, and the fades
// between blend linearly.
Expr Gate(const Expr &v, const Expr &f, const Expr &darkThreshold, const Expr &darkMin, const Expr &highlightThreshold,
          const Expr &highlightMax) {
  const Expr tDark = (v - darkMin) / (darkThreshold - darkMin);
  const Expr tHighlight = (highlightMax - v) / (highlightMax - highlightThreshold);
  const Expr t = select(v < darkThreshold, tDark, tHighlight);
  const Expr faded = (1.0f - t) * v + t * f;
  return strict_float(select(v < darkMin || v > highlightMax, v,
                             v >= darkThreshold && v <= highlightThreshold, f, faded));
}

// output := the separable filter of input, gated by input's value.
class ApplyFilterWithThreshold : public Generator<ApplyFilterWithThreshold> {
 public:
  Input<Buffer<float, 2>> input{"input"};
  Input<Buffer<float, 1>> weight{"weight"};
  Input<int> nR{"nR"};
  Input<float> fDarkThreshold{"fDarkThreshold"};
  Input<float> fDarkThresholdMin{"fDarkThresholdMin"};
  Input<float> fHighlightThreshold{"fHighlightThreshold"};
  Input<float> fHighlightThresholdMax{"fHighlightThresholdMax"};
  Output<Buffer<float, 2>> output{"output"};

  void generate() {
    SeparableFilter filter(input, weight, nR);
    output(x, y) = Gate(input(x, y), filter.blurred(x, y), fDarkThreshold, fDarkThresholdMin, fHighlightThreshold,
                        fHighlightThresholdMax);

    filter.ScheduleFor(output, x, y, nR);
  }

 private:
  Var x{"x"}, y{"y"};
};

// Digital development: each pixel divided by its blur on the 0..255 scale of
// the levels (fMin, fRange), mixed with the source by fStrength:
//   u = (blur - fMin) * S + fA with S = 255 / fRange;
//   u > 0: ((v - fMin) * S / u * fMul / S + fMin) * fStrength + v * (1 - fStrength), else v.
class DigitalDevelopingSimple : public Generator<DigitalDevelopingSimple> {
 public:
  Input<Buffer<float, 2>> input{"input"};
  Input<Buffer<float, 1>> weight{"weight"};
  Input<int> nR{"nR"};
  Input<float> fMin{"fMin"};
  Input<float> fRange{"fRange"};
  Input<double> fStrength{"fStrength"};
  Input<double> fA{"fA"};
  Input<double> fMul{"fMul"};
  Output<Buffer<float, 2>> output{"output"};

  void generate() {
    SeparableFilter filter(input, weight, nR);
    const Expr v = input(x, y), scale = 255.0f / fRange;
    const Expr u = (filter.blurred(x, y) - fMin) * scale + cast<float>(fA);
    const Expr developed = (v - fMin) * scale / u * cast<float>(fMul) / scale + fMin;
    const Expr strength = fStrength;
    const Expr mixed = cast<float>(cast<double>(developed) * strength) +
                       cast<float>(cast<double>(v) * (Expr(1.0) - strength));
    output(x, y) = strict_float(select(u > 0.0f, mixed, v));

    filter.ScheduleFor(output, x, y, nR);
  }

 private:
  Var x{"x"}, y{"y"};
};

}  // namespace

HALIDE_REGISTER_GENERATOR(ApplyFilter, apply_filter_float)
HALIDE_REGISTER_GENERATOR(DigitalDevelopingSimple, digital_developing_simple_float)
HALIDE_REGISTER_GENERATOR(ApplyFilterWithThreshold, apply_filter_with_threshold_float)
