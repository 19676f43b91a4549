// Helpers of the tone tests: double-precision references of the brightness
// values and moments.
#pragma once
#include <memory>
#include <vector>
#include "support/Fixtures.h"

namespace qorimg::test {

inline float RawBright(const CLmrImage &img, int x, int y) {
  if (!img.IsColor()) return img.GetPixelGrayRaw(x, y, 0);
  return static_cast<float>(img.GetPixelGrayRaw(x, y, 0) * 0.299 + img.GetPixelGrayRaw(x, y, 1) * 0.587 +
                            img.GetPixelGrayRaw(x, y, 2) * 0.114);
}

// The samples of a rectangle (left, top, right, bottom) read by `value`.
template <class Value>
std::vector<double> Samples(int left, int top, int right, int bottom, Value value) {
  std::vector<double> out;
  for (int y = top; y < bottom; ++y)
    for (int x = left; x < right; ++x) out.push_back(value(x, y));
  return out;
}

struct Moments {
  double mean, sigma;
};
inline Moments MeanSigmaOf(const std::vector<double> &v, const double *about = nullptr) {
  double sum = 0;
  for (double s : v) sum += s;
  const double mean = about ? *about : sum / static_cast<double>(v.size());
  double squares = 0;
  for (double s : v) squares += (s - mean) * (s - mean);
  return {mean, std::sqrt(squares / static_cast<double>(v.size()))};
}

}  // namespace qorimg::test
