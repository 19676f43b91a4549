// Statistics family: averages, centroid sums and dithered histograms over a
// rectangle of a plane (or of the brightness of three planes).
//
// Sums are in double. Reductions over rows run in parallel through rfactor, so
// the order of addition differs from the serial loops by rounding only.
// The histograms dither with a hash of the coordinates instead of a random
// generator, so repeated runs agree, and they have no bounds test: a sample
// below fMin counts in the first bin and one above fMax in the last (NaN in the
// first).
#include <cstdint>

#include "kernels/GeneratorSupport.h"

namespace {

using namespace Halide;

// Rows per parallel task of a reduction.
constexpr int kReductionRows = 32;

// A well-mixed hash of the plane coordinates mapped to a float in [1, 2).
Expr UnitHash(Expr x, Expr y) {
  Expr h = cast<uint32_t>(x) * Expr(uint32_t{0x9E3779B1u}) ^ cast<uint32_t>(y) * Expr(uint32_t{0x85EBCA77u});
  h = h ^ (h >> 15);
  h = h * Expr(uint32_t{0x2C1B3C6Du});
  h = h ^ (h >> 12);
  h = h * Expr(uint32_t{0x297A2D39u});
  h = h ^ (h >> 15);
  return reinterpret<float>((h >> 9) | Expr(uint32_t{0x3F800000u}));
}

// The dither offset of one pixel, zero where the bins are fine (more than one
// per unit) or the bounds make no sense.
Expr DitherOffset(Expr x, Expr y, Expr binsPerUnit) {
  Expr u = cast<double>(UnitHash(x, y));
  return select(binsPerUnit > Expr(0.0) && binsPerUnit <= Expr(1.0), (Expr(2.0) * u - Expr(3.0)) * Expr(3.0) / binsPerUnit, Expr(0.0));
}

// The bin of a value: truncated toward zero and clamped to 0..nBins - 1, with the
// clamp done before the conversion so that no value (NaN, huge) reaches an int
// out of range; NaN goes to bin 0.
Expr BinOf(Expr value, Expr fMin, Expr binsPerUnit, Expr nBins) {
  Expr t = strict_float((value - fMin) * binsPerUnit);
  t = strict_float(select(t > Expr(0.0), select(t < cast<double>(nBins - 1), t, cast<double>(nBins - 1)), Expr(0.0)));
  // The integer clamp changes nothing; it tells the compiler the bins' range.
  return clamp(cast<int32_t>(t), 0, nBins - 1);
}

// A sample on the 0..255 scale with its plane's level, rounded to float.
Expr To256(Expr v, Expr levelMin, Expr levelRange) {
  return cast<float>((cast<double>(v) - levelMin) / levelRange * Expr(255.0));
}

// Brightness on the 0..255 scale: each plane mapped and rounded to float, mixed
// in double and rounded to float.
Expr Bright256(Expr r, Expr g, Expr b) {
  return cast<float>(cast<double>(g) * Expr(0.587) + cast<double>(r) * Expr(0.299) + cast<double>(b) * Expr(0.114));
}

// Sums value(x, y) over the rectangle in double: rows in parallel tasks, then
// the tasks' sums.
void SumOverRectangle(Func &total, const RDom &r, Expr value) {
  Var u("u");
  total() = Expr(0.0);
  total() += value;
  RVar rowsOuter("rows_outer"), rowsInner("rows_inner");
  Func partial = total.update().split(r.y, rowsOuter, rowsInner, kReductionRows, TailStrategy::GuardWithIf).rfactor(rowsOuter, u);
  partial.compute_root().update().parallel(u);
  total.compute_root();
}

// Like SumOverRectangle for a tuple of sums.
void SumTupleOverRectangle(Func &total, const RDom &r, Tuple values) {
  Var u("u");
  std::vector<Expr> zeros(values.size(), Expr(0.0));
  total() = Tuple(zeros);
  std::vector<Expr> sums;
  for (size_t i = 0; i < values.size(); ++i) sums.push_back(total()[i] + values[i]);
  total() = Tuple(sums);
  RVar rowsOuter("rows_outer"), rowsInner("rows_inner");
  Func partial = total.update().split(r.y, rowsOuter, rowsInner, kReductionRows, TailStrategy::GuardWithIf).rfactor(rowsOuter, u);
  partial.compute_root().update().parallel(u);
  total.compute_root();
}

// Each sample over the rectangle's pixel count, summed in double.
class AverageFloat : public Generator<AverageFloat> {
 public:
  Input<Buffer<float, 2>> input{"input"};
  Input<int32_t> start_x{"start_x"}, end_x{"end_x"}, start_y{"start_y"}, end_y{"end_y"};
  Output<Buffer<double, 0>> average{"average"};

  void generate() {
    RDom r(start_x, end_x - start_x, start_y, end_y - start_y, "r");
    Expr count = cast<double>(end_x - start_x) * cast<double>(end_y - start_y);
    Func total("total");
    SumOverRectangle(total, r, cast<double>(input(r.x, r.y)) / count);
    average() = total();
  }
};

// Mean of max(v, 0) on the 0..255 scale: the sum over the width and the height.
class Average256FloorZeroFloat : public Generator<Average256FloorZeroFloat> {
 public:
  Input<Buffer<float, 2>> input{"input"};
  Input<double> fLevelMin{"fLevelMin"}, fLevelRange{"fLevelRange"};
  Input<int32_t> start_x{"start_x"}, end_x{"end_x"}, start_y{"start_y"}, end_y{"end_y"};
  Output<Buffer<double, 0>> average{"average"};

  void generate() {
    RDom r(start_x, end_x - start_x, start_y, end_y - start_y, "r");
    Func total("total");
    SumOverRectangle(total, r, max(cast<double>(To256(input(r.x, r.y), fLevelMin, fLevelRange)), Expr(0.0)));
    average() = total() / cast<double>(end_x - start_x) / cast<double>(end_y - start_y);
  }
};

class AverageGray256FloorZeroFloat : public Generator<AverageGray256FloorZeroFloat> {
 public:
  Input<Buffer<float, 2>> red{"red"}, green{"green"}, blue{"blue"};
  Input<double> fRedLevelMin{"fRedLevelMin"}, fRedLevelRange{"fRedLevelRange"};
  Input<double> fGreenLevelMin{"fGreenLevelMin"}, fGreenLevelRange{"fGreenLevelRange"};
  Input<double> fBlueLevelMin{"fBlueLevelMin"}, fBlueLevelRange{"fBlueLevelRange"};
  Input<int32_t> start_x{"start_x"}, end_x{"end_x"}, start_y{"start_y"}, end_y{"end_y"};
  Output<Buffer<double, 0>> average{"average"};

  void generate() {
    RDom r(start_x, end_x - start_x, start_y, end_y - start_y, "r");
    Expr v = Bright256(To256(red(r.x, r.y), fRedLevelMin, fRedLevelRange),
                       To256(green(r.x, r.y), fGreenLevelMin, fGreenLevelRange),
                       To256(blue(r.x, r.y), fBlueLevelMin, fBlueLevelRange));
    Func total("total");
    SumOverRectangle(total, r, max(cast<double>(v), Expr(0.0)));
    average() = total() / cast<double>(end_x - start_x) / cast<double>(end_y - start_y);
  }
};

// The sums of the centroid: x * q, y * q and q, with q = max(v - average, 0)^2.
Tuple CentroidTerms(const RDom &r, Expr v, Expr average) {
  Expr excess = max(cast<double>(v) - average, Expr(0.0));
  Expr q = excess * excess;
  return Tuple(cast<double>(r.x) * q, cast<double>(r.y) * q, q);
}

class Centroid256Float : public Generator<Centroid256Float> {
 public:
  Input<Buffer<float, 2>> input{"input"};
  Input<double> fLevelMin{"fLevelMin"}, fLevelRange{"fLevelRange"};
  Input<double> average{"average"};
  Input<int32_t> start_x{"start_x"}, end_x{"end_x"}, start_y{"start_y"}, end_y{"end_y"};
  Output<Buffer<>> centroid{"centroid", {Float(64), Float(64), Float(64)}, 0};

  void generate() {
    RDom r(start_x, end_x - start_x, start_y, end_y - start_y, "r");
    Func total("total");
    SumTupleOverRectangle(total, r, CentroidTerms(r, To256(input(r.x, r.y), fLevelMin, fLevelRange), average));
    centroid() = total();
  }
};

class CentroidGray256Float : public Generator<CentroidGray256Float> {
 public:
  Input<Buffer<float, 2>> red{"red"}, green{"green"}, blue{"blue"};
  Input<double> fRedLevelMin{"fRedLevelMin"}, fRedLevelRange{"fRedLevelRange"};
  Input<double> fGreenLevelMin{"fGreenLevelMin"}, fGreenLevelRange{"fGreenLevelRange"};
  Input<double> fBlueLevelMin{"fBlueLevelMin"}, fBlueLevelRange{"fBlueLevelRange"};
  Input<double> average{"average"};
  Input<int32_t> start_x{"start_x"}, end_x{"end_x"}, start_y{"start_y"}, end_y{"end_y"};
  Output<Buffer<>> centroid{"centroid", {Float(64), Float(64), Float(64)}, 0};

  void generate() {
    RDom r(start_x, end_x - start_x, start_y, end_y - start_y, "r");
    Expr v = Bright256(To256(red(r.x, r.y), fRedLevelMin, fRedLevelRange),
                       To256(green(r.x, r.y), fGreenLevelMin, fGreenLevelRange),
                       To256(blue(r.x, r.y), fBlueLevelMin, fBlueLevelRange));
    Func total("total");
    SumTupleOverRectangle(total, r, CentroidTerms(r, v, average));
    centroid() = total();
  }
};

// Counts value(x, y) into nBins bins: row strips in parallel, each with its own
// histogram, and the strips' histograms summed.
void HistogramOverRectangle(Func &histogram, const RDom &r, Expr bin) {
  Var b("b"), u("u");
  histogram(b) = 0;
  histogram(bin) += 1;
  RVar rowsOuter("rows_outer"), rowsInner("rows_inner");
  Func partial = histogram.update().split(r.y, rowsOuter, rowsInner, kReductionRows, TailStrategy::GuardWithIf).rfactor(rowsOuter, u);
  partial.compute_root().update().parallel(u);
  histogram.compute_root();
  histogram.update().vectorize(b, qorimg::kernels::generators::kVectorLanes, TailStrategy::GuardWithIf);
}

class HistogramAntialiasFloat : public Generator<HistogramAntialiasFloat> {
 public:
  Input<Buffer<float, 2>> input{"input"};
  Input<int32_t> nStartX{"nStartX"}, nStartY{"nStartY"}, nWidth{"nWidth"}, nHeight{"nHeight"};
  Input<double> fMin{"fMin"}, fMax{"fMax"};
  Input<int32_t> nBins{"nBins"};
  Output<Buffer<int32_t, 1>> histogram{"histogram"};

  void generate() {
    RDom r(nStartX, nWidth, nStartY, nHeight, "r");
    Expr binsPerUnit = cast<double>(nBins) / (fMax - fMin);
    Expr v = cast<double>(input(r.x, r.y)) + DitherOffset(r.x, r.y, binsPerUnit);
    Func h("h");
    HistogramOverRectangle(h, r, BinOf(v, fMin, binsPerUnit, nBins));
    histogram(b) = h(b);
  }

 private:
  Var b{"b"};
};

// Three histograms of the raw planes with one dither offset per pixel.
class HistogramAntialiasRgbFloat : public Generator<HistogramAntialiasRgbFloat> {
 public:
  Input<Buffer<float, 2>> red{"red"}, green{"green"}, blue{"blue"};
  Input<int32_t> nStartX{"nStartX"}, nStartY{"nStartY"}, nWidth{"nWidth"}, nHeight{"nHeight"};
  Input<double> fMin{"fMin"}, fMax{"fMax"};
  Input<int32_t> nBins{"nBins"};
  Output<Buffer<int32_t, 1>> histogram_red{"histogram_red"}, histogram_green{"histogram_green"},
      histogram_blue{"histogram_blue"};

  void generate() {
    RDom r(nStartX, nWidth, nStartY, nHeight, "r");
    Expr binsPerUnit = cast<double>(nBins) / (fMax - fMin);
    Expr offset = DitherOffset(r.x, r.y, binsPerUnit);
    Func hr("hr"), hg("hg"), hb("hb");
    HistogramOverRectangle(hr, r, BinOf(cast<double>(red(r.x, r.y)) + offset, fMin, binsPerUnit, nBins));
    HistogramOverRectangle(hg, r, BinOf(cast<double>(green(r.x, r.y)) + offset, fMin, binsPerUnit, nBins));
    HistogramOverRectangle(hb, r, BinOf(cast<double>(blue(r.x, r.y)) + offset, fMin, binsPerUnit, nBins));
    histogram_red(b) = hr(b);
    histogram_green(b) = hg(b);
    histogram_blue(b) = hb(b);
  }

 private:
  Var b{"b"};
};

// The brightness on the 0..255 scale as the loop computes it: each plane mapped
// in single precision with its level, then mixed in double. fMin and fMax are on
// that scale.
class HistogramAntialiasBrightnessFloat : public Generator<HistogramAntialiasBrightnessFloat> {
 public:
  Input<Buffer<float, 2>> red{"red"}, green{"green"}, blue{"blue"};
  Input<float> fRedLevelMin{"fRedLevelMin"}, fRedScale{"fRedScale"};
  Input<float> fGreenLevelMin{"fGreenLevelMin"}, fGreenScale{"fGreenScale"};
  Input<float> fBlueLevelMin{"fBlueLevelMin"}, fBlueScale{"fBlueScale"};
  Input<int32_t> nStartX{"nStartX"}, nStartY{"nStartY"}, nWidth{"nWidth"}, nHeight{"nHeight"};
  Input<double> fMin{"fMin"}, fMax{"fMax"};
  Input<int32_t> nBins{"nBins"};
  Output<Buffer<int32_t, 1>> histogram{"histogram"};

  void generate() {
    RDom r(nStartX, nWidth, nStartY, nHeight, "r");
    Expr rv = strict_float((red(r.x, r.y) - fRedLevelMin) * fRedScale);
    Expr gv = strict_float((green(r.x, r.y) - fGreenLevelMin) * fGreenScale);
    Expr bv = strict_float((blue(r.x, r.y) - fBlueLevelMin) * fBlueScale);
    Expr bright = cast<double>(gv) * Expr(0.587) + cast<double>(rv) * Expr(0.299) + cast<double>(bv) * Expr(0.114);
    Expr binsPerUnit = cast<double>(nBins) / (fMax - fMin);
    Func h("h");
    HistogramOverRectangle(h, r, BinOf(bright + DitherOffset(r.x, r.y, binsPerUnit), fMin, binsPerUnit, nBins));
    histogram(b) = h(b);
  }

 private:
  Var b{"b"};
};

}  // namespace

HALIDE_REGISTER_GENERATOR(AverageFloat, average_float)
HALIDE_REGISTER_GENERATOR(Average256FloorZeroFloat, average256_floor_zero_float)
HALIDE_REGISTER_GENERATOR(AverageGray256FloorZeroFloat, average_gray256_floor_zero_float)
HALIDE_REGISTER_GENERATOR(Centroid256Float, centroid256_float)
HALIDE_REGISTER_GENERATOR(CentroidGray256Float, centroid_gray256_float)
HALIDE_REGISTER_GENERATOR(HistogramAntialiasFloat, histogram_antialias_float)
HALIDE_REGISTER_GENERATOR(HistogramAntialiasRgbFloat, histogram_antialias_rgb_float)
HALIDE_REGISTER_GENERATOR(HistogramAntialiasBrightnessFloat, histogram_antialias_brightness_float)
