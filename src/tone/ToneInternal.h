// What the level and tone operators share: reading the samples of a rectangle
// as one plane or as one of the three brightness values, reductions over its
// lines in parallel, and the float-to-int truncation of the processor.
#pragma once
#include <climits>
#include <cmath>
#include <vector>
#include "core/LineLoops.h"
#include "core/LmrImage.h"
#include "core/OperatorFrame.h"

namespace qorimg::tone {

// Truncation toward zero as the processor's conversion does it: NaN and values
// outside the int range give INT_MIN, where a plain cast is undefined.
inline int TruncateOrMin(double v) {
  if (!(v > -2147483649.0 && v < 2147483648.0)) return INT_MIN;
  return static_cast<int>(v);
}

// Which value a pixel stands for.
enum class SampleKind {
  Plane,        // the raw value of one plane
  RawBright,    // 0.299 R + 0.587 G + 0.114 B of the raw planes, in double, rounded to float
  Bright256,    // the planes on the 0..255 scale, mixed (GetPixelBright256f)
  LevelBright,  // Bright256 brought back to plane 0's scale (GetPixelBrightRaw)
  Nothing,      // a plane the image lacks: no sample at all
};

// Reads the samples of one kind line by line. On a mono image every
// brightness is plane 0 itself.
class SampleReader {
public:
  SampleReader(const CLmrImage &image, SampleKind kind, int plane = 0);
  // The samples of line y over [left, right): the plane's own line, or a
  // per-thread scratch line. Null for SampleKind::Nothing.
  const float *Line(int y, int left, int right) const;
  bool ReadsNothing() const { return kind_ == SampleKind::Nothing; }

private:
  const CLmrImage &image_;
  SampleKind kind_;
  int plane_;
  float lo_[3] = {0, 0, 0}, scale_[3] = {1, 1, 1};
  double levelMin0_ = 0, levelRange0_ = 1;
};

// The kind for "plane nPlane, or brightness" of a public member: a mono image
// reads plane 0 whatever the arguments say; a colour image's plane outside its
// planes reads nothing.
SampleKind KindFor(const CLmrImage &image, bool brightness, SampleKind brightKind, int nPlane);
int PlaneFor(const CLmrImage &image, int nPlane);

// fn(samples, count, acc) on every line of the rectangle in parallel, each
// line into its own accumulator; the lines' accumulators are then merged in
// line order, so that the result does not depend on the number of threads.
template <class Acc, class LineFn, class Merge>
Acc ReduceLines(const SampleReader &reader, const LineRect &r, Acc init, LineFn fn, Merge merge) {
  if (r.IsEmpty() || reader.ReadsNothing()) return init;
  std::vector<Acc> lines(static_cast<std::size_t>(r.Height()), init);
  ParallelLines(r.top, r.bottom, [&](int y) {
    fn(reader.Line(y, r.left, r.right), r.Width(), lines[static_cast<std::size_t>(y - r.top)]);
  });
  for (const Acc &line : lines) merge(init, line);
  return init;
}

struct SumCount {
  double sum = 0.0;
  long long count = 0;
};

// Sum of the samples in double, and of (v - centre)^2.
double SumOfSamples(const SampleReader &reader, const LineRect &r);
double SumOfSquaredDeviations(const SampleReader &reader, const LineRect &r, double centre);

// Smallest and largest sample; NaN samples are passed over. An empty rectangle
// gives (+inf, -inf).
struct MinMax {
  float min = INFINITY, max = -INFINITY;
};
MinMax MinMaxOfSamples(const SampleReader &reader, const LineRect &r);

// Pixel count of a rectangle as the 32-bit product w * h.
inline int PixelCount(const LineRect &r) {
  if (r.IsEmpty()) return 0;
  return static_cast<int>(static_cast<unsigned>(r.Width()) * static_cast<unsigned>(r.Height()));
}

}  // namespace qorimg::tone
