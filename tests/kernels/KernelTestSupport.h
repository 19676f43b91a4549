// Test planes for the kernel pipelines: deterministic samples with the awkward
// values mixed in, and a comparison that reports the first differing sample.
#pragma once
#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <cstdint>
#include <limits>
#include <random>
#include <vector>

#include "kernels/Buffers.h"

namespace qorimg::kernels::test {

// Sizes that hit the vector and row-strip tails: one sample, narrower than a
// vector, odd widths and heights, and one size with whole vectors and strips.
struct PlaneSize {
  int width;
  int height;
};
inline const std::vector<PlaneSize> kOddSizes = {{1, 1}, {37, 5}, {5, 37}, {3, 9}, {64, 16}};

// A plane of any sample type, row after row, with its buffer descriptors.
template <typename T>
struct Grid {
  int width = 0;
  int height = 0;
  std::vector<T> samples;

  Grid(int w, int h, T value = T()) : width(w), height(h), samples(std::size_t(w) * h, value) {}
  T &at(int x, int y) { return samples[std::size_t(y) * width + x]; }
  T at(int x, int y) const { return samples[std::size_t(y) * width + x]; }
  KernelBuffer<T, 2> buffer() { return PlaneBuffer(samples.data(), width, height); }
  KernelBuffer<const T, 2> input() const { return PlaneBuffer(samples.data(), width, height); }
};
using Plane = Grid<float>;

// Distinct values for integer planes, so that a sample from the wrong place shows.
template <typename T>
Grid<T> CountingGrid(int width, int height, T first) {
  Grid<T> grid(width, height);
  for (std::size_t i = 0; i < grid.samples.size(); ++i) grid.samples[i] = T(first + T(i * 7u));
  return grid;
}

// Values in [-1000, 1000] with NaN, both infinities, both zeros, a denormal
// and extremes sprinkled in at fixed places.
inline Plane SamplePlane(int width, int height, unsigned seed) {
  using L = std::numeric_limits<float>;
  static const float kSpecials[] = {L::quiet_NaN(), L::infinity(), -L::infinity(), 0.0f, -0.0f,
                                    L::denorm_min(), L::max(),     -L::max()};
  std::mt19937 random(seed);
  std::uniform_real_distribution<float> uniform(-1000.0f, 1000.0f);
  Plane plane(width, height);
  for (std::size_t i = 0; i < plane.samples.size(); ++i)
    plane.samples[i] = i % 7 == 3 ? kSpecials[(i / 7) % std::size(kSpecials)] : uniform(random);
  return plane;
}

// Exact equality: the same bits, or both NaN (payloads are not compared).
inline bool SameSample(float a, float b) {
  return (std::isnan(a) && std::isnan(b)) || std::bit_cast<std::uint32_t>(a) == std::bit_cast<std::uint32_t>(b);
}

inline ::testing::AssertionResult SameSamples(const Plane &actual, const Plane &expected) {
  if (actual.width != expected.width || actual.height != expected.height)
    return ::testing::AssertionFailure() << "sizes differ";
  for (int y = 0; y < actual.height; ++y)
    for (int x = 0; x < actual.width; ++x)
      if (!SameSample(actual.at(x, y), expected.at(x, y)))
        return ::testing::AssertionFailure() << "at (" << x << ", " << y << ") of " << actual.width << "x"
                                             << actual.height << ": " << actual.at(x, y) << " instead of "
                                             << expected.at(x, y);
  return ::testing::AssertionSuccess();
}

}  // namespace qorimg::kernels::test
