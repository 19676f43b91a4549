// Statistics of one plane and single-pixel reads, in physical units
// (sample * Bscale + Bzero). NaN samples are left out; a plane without a
// sample left gives NaN results.
#include <algorithm>
#include <cmath>
#include <cstring>
#include <functional>
#include <limits>
#include <vector>

#include "sibling/Image.h"
#include "sibling/SamplesInternal.h"

namespace {

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();

// Raw values of a plane, line by line.
void ForEachLine(const CImage &image, int plane, const std::function<void(const double *, int)> &visit) {
  if (image.IsEmpty()) throw lumora::CLumoraImageException("the image has no pixels");
  if (plane < 0 || plane >= image.GetPlanes()) throw lumora::CLumoraImageException("plane outside the image");
  const int width = image.GetWidth();
  std::vector<double> line(static_cast<std::size_t>(width));
  for (int y = 0; y < image.GetHeight(); ++y) {
    store_internal::ReadSamples(image.GetImageAdr(0, y, plane, true, false, nullptr), width, image.GetDataType(),
                                image.IsSigned(), line.data());
    visit(line.data(), width);
  }
}

bool LeftOut(double v, bool skipZero) { return std::isnan(v) || (skipZero && v == 0.0); }

struct RawSummary {
  double min = std::numeric_limits<double>::infinity();
  double max = -std::numeric_limits<double>::infinity();
  double sum = 0.0;
  long long count = 0;
};

// One line of float samples in four lanes (two double sums per half), so that
// the baseline and the AVX2 build add in the same order and agree to the bit.
// Written with vector types because the compiler leaves the plain loop scalar.
using Floats4 = float __attribute__((vector_size(16)));
using Doubles2 = double __attribute__((vector_size(16)));
using Ints4 = int __attribute__((vector_size(16)));

template <bool SkipZero>
__attribute__((target_clones("avx2", "default"))) RawSummary SummariseFloatLine(const float *line, long long width) {
  const float inf = std::numeric_limits<float>::infinity();
  Floats4 min = inf - Floats4{}, max = -inf - Floats4{};
  Doubles2 low = {}, high = {};
  Ints4 leftOut = {};  // -1 per sample left out
  long long x = 0;
  for (; x + 4 <= width; x += 4) {
    Floats4 v;
    std::memcpy(&v, line + x, sizeof v);
    Ints4 out = v != v;
    if constexpr (SkipZero) out |= v == 0.0f;
    min = (v < min) & ~out ? v : min;
    max = (v > max) & ~out ? v : max;
    const Floats4 kept = out ? Floats4{} : v;
    low += __builtin_convertvector(__builtin_shufflevector(kept, kept, 0, 1), Doubles2);
    high += __builtin_convertvector(__builtin_shufflevector(kept, kept, 2, 3), Doubles2);
    leftOut += out;
  }
  RawSummary s;
  long long left = 0;
  for (int i = 0; i < 4; ++i) {
    s.min = std::min(s.min, static_cast<double>(min[i]));
    s.max = std::max(s.max, static_cast<double>(max[i]));
    left -= leftOut[i];
  }
  s.sum = (low[0] + high[0]) + (low[1] + high[1]);
  for (; x < width; ++x) {
    const float v = line[x];
    if (v != v || (SkipZero && v == 0.0f)) {
      ++left;
      continue;
    }
    s.min = std::min(s.min, static_cast<double>(v));
    s.max = std::max(s.max, static_cast<double>(v));
    s.sum += v;
  }
  s.count = width - left;
  return s;
}

// Float samples of a whole-plane image: one contiguous plane, summarised in
// parallel over lines.
RawSummary SummariseContiguousFloat(const float *samples, long long width, long long height, bool skipZero) {
  double min = std::numeric_limits<double>::infinity(), max = -min, sum = 0.0;
  long long count = 0;
#pragma omp parallel for schedule(static) reduction(min : min) reduction(max : max) reduction(+ : sum, count)
  for (long long y = 0; y < height; ++y) {
    const float *samplesOfLine = samples + y * width;
    const RawSummary line = skipZero ? SummariseFloatLine<true>(samplesOfLine, width)
                                     : SummariseFloatLine<false>(samplesOfLine, width);
    min = std::min(min, line.min);
    max = std::max(max, line.max);
    sum += line.sum;
    count += line.count;
  }
  return {min, max, sum, count};
}

RawSummary Summarise(const CImage &image, int plane, bool skipZero) {
  if (image.GetDataType() == CImage::Float32 && image.GetAllocationPolicy() != 0 && !image.IsEmpty() && plane >= 0 &&
      plane < image.GetPlanes())
    return SummariseContiguousFloat(
        reinterpret_cast<const float *>(image.GetImageAdr(0, 0, plane, true, false, nullptr)), image.GetWidth(),
        image.GetHeight(), skipZero);
  RawSummary s;
  ForEachLine(image, plane, [&](const double *line, int width) {
    double lineSum = 0.0;
    for (int x = 0; x < width; ++x) {
      const double v = line[x];
      if (LeftOut(v, skipZero)) continue;
      s.min = std::min(s.min, v);
      s.max = std::max(s.max, v);
      lineSum += v;
      ++s.count;
    }
    s.sum += lineSum;
  });
  return s;
}

// Physical (minimum, maximum) of a raw range; a negative scale swaps the ends.
std::tuple<double, double> PhysicalRange(const CImage &image, const RawSummary &s) {
  if (s.count == 0) return {kNaN, kNaN};
  const double a = image.ApplyBaseScaleOffset(s.min);
  const double b = image.ApplyBaseScaleOffset(s.max);
  return {std::min(a, b), std::max(a, b)};
}

}  // namespace

std::tuple<double, double> CImage::GetMinMax(int plane) const {
  return PhysicalRange(*this, Summarise(*this, plane, false));
}

std::tuple<double, double, double> CImage::GetMinMaxAvr(int plane) const {
  const RawSummary s = Summarise(*this, plane, false);
  const auto [min, max] = PhysicalRange(*this, s);
  const double average = s.count ? ApplyBaseScaleOffset(s.sum / static_cast<double>(s.count)) : kNaN;
  return {min, max, average};
}

// Zero samples (raw value 0) are left out of all three results when `skipZero`.
// `bins` is kept within 1..2^20.
std::tuple<double, double, double> CImage::GetMinMaxMode(int plane, int bins, int skipZero) const {
  const bool skip = skipZero != 0;
  const RawSummary s = Summarise(*this, plane, skip);
  const auto [min, max] = PhysicalRange(*this, s);
  if (s.count == 0) return {kNaN, kNaN, kNaN};
  if (s.min == s.max) return {min, max, ApplyBaseScaleOffset(s.min)};

  const int binCount = std::clamp(bins, 1, 1 << 20);
  const double width = (s.max - s.min) / binCount;
  std::vector<long long> histogram(static_cast<std::size_t>(binCount), 0);
  ForEachLine(*this, plane, [&](const double *line, int lineWidth) {
    for (int x = 0; x < lineWidth; ++x) {
      const double v = line[x];
      if (LeftOut(v, skip)) continue;
      // Written so that an infinite range or value still lands in a bin.
      const double t = (v - s.min) / width;
      const int bin = !(t >= 0.0) ? 0 : t >= binCount ? binCount - 1 : static_cast<int>(t);
      ++histogram[static_cast<std::size_t>(bin)];
    }
  });
  const auto fullest = std::max_element(histogram.begin(), histogram.end()) - histogram.begin();
  return {min, max, ApplyBaseScaleOffset(s.min + (static_cast<double>(fullest) + 0.5) * width)};
}

double CImage::GetPixel(int x, int y, int plane) const {
  if (x < 0 || x >= GetWidth()) throw lumora::CLumoraImageException("column outside the image");
  return GetPixel(GetImageAdr(x, y, plane, true, false, nullptr));
}

// 16-bit samples are signed (as in FITS), 32-bit integers follow Signed, an
// unknown type reads as a sample of 0.
double CImage::GetPixel(const unsigned char *p) const {
  if (!p) throw lumora::CLumoraImageException("no sample address");
  return ApplyBaseScaleOffset(store_internal::ReadSample(p, BitsPixel, Signed));
}
