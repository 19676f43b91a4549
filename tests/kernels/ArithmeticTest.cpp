// The scalar arithmetic pipelines against plain references on the same planes.
// Tolerance 0: each pipeline result is one IEEE single-precision operation, and
// the reference computes it in double and rounds to float, which gives the
// same correctly rounded value for +, - and * (double holds the exact product
// and more than twice float's precision for sums).
#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <limits>

#include "KernelTestSupport.h"
#include "kernels/Arithmetic.h"

namespace qorimg::kernels::test {
namespace {

constexpr float kNaN = std::numeric_limits<float>::quiet_NaN();
constexpr float kInf = std::numeric_limits<float>::infinity();

float RoundedSum(float a, float b) { return float(double(a) + double(b)); }
float RoundedDifference(float a, float b) { return float(double(a) - double(b)); }
float RoundedProduct(float a, float b) { return float(double(a) * double(b)); }
// The clipping loops' rule: a difference that is not above 0 (NaN, -0 included) is +0.
float ClippedDifference(float a, float b) {
  const float d = RoundedDifference(a, b);
  return d > 0.0f ? d : 0.0f;
}

using ScalarPipeline = int (*)(halide_buffer_t *, float, halide_buffer_t *);
using SampleRule = std::function<float(float, float)>;

struct ScalarCase {
  const char *name;
  ScalarPipeline pipeline;
  SampleRule rule;
};

const ScalarCase kScalarCases[] = {
    {"add_scalar_float", add_scalar_float, RoundedSum},
    {"sub_scalar_float", sub_scalar_float, RoundedDifference},
    {"mul_scalar_float", mul_scalar_float, RoundedProduct},
    {"sub0_scalar_float", sub0_scalar_float, ClippedDifference},
};

Plane Reference(const Plane &lhs, float rhs, const SampleRule &rule) {
  Plane expected(lhs.width, lhs.height);
  for (std::size_t i = 0; i < lhs.samples.size(); ++i) expected.samples[i] = rule(lhs.samples[i], rhs);
  return expected;
}

TEST(KernelArithmetic, ScalarPipelinesMatchTheSampleRule) {
  const float operands[] = {2.5f, -0.1f, 0.0f, -0.0f, 1e30f, kInf, -kInf, kNaN};
  for (const ScalarCase &c : kScalarCases) {
    for (PlaneSize size : kOddSizes) {
      const Plane lhs = SamplePlane(size.width, size.height, 11);
      for (float rhs : operands) {
        Plane output(size.width, size.height, -7.0f);
        ASSERT_EQ(c.pipeline(lhs.input(), rhs, output.buffer()), 0) << c.name;
        EXPECT_TRUE(SameSamples(output, Reference(lhs, rhs, c.rule)))
            << c.name << " with rhs " << rhs << " on " << size.width << "x" << size.height;
      }
    }
  }
}

// Clipping must turn NaN differences and negative zero into +0, as the vector
// maximum against zero does, and keep positive results and +inf.
TEST(KernelArithmetic, Sub0ScalarClipsNaNAndNegativesToPositiveZero) {
  Plane lhs(6, 1);
  lhs.samples = {kNaN, -0.0f, -5.0f, 3.0f, kInf, -kInf};
  Plane output(6, 1);
  ASSERT_EQ(sub0_scalar_float(lhs.input(), 0.0f, output.buffer()), 0);
  Plane expected(6, 1);
  expected.samples = {0.0f, 0.0f, 0.0f, 3.0f, kInf, 0.0f};
  EXPECT_TRUE(SameSamples(output, expected));
  // inf - inf is NaN, which clips to 0 as well.
  ASSERT_EQ(sub0_scalar_float(lhs.input(), kInf, output.buffer()), 0);
  EXPECT_TRUE(SameSample(output.at(4, 0), 0.0f));
}

TEST(KernelArithmetic, Sub0OfTwoPlanesClipsSampleBySample) {
  for (PlaneSize size : kOddSizes) {
    const Plane lhs = SamplePlane(size.width, size.height, 21);
    const Plane rhs = SamplePlane(size.width, size.height, 22);
    Plane output(size.width, size.height);
    ASSERT_EQ(sub0_float(lhs.input(), rhs.input(), output.buffer()), 0);
    Plane expected(size.width, size.height);
    for (std::size_t i = 0; i < expected.samples.size(); ++i) {
      expected.samples[i] = ClippedDifference(lhs.samples[i], rhs.samples[i]);
    }
    EXPECT_TRUE(SameSamples(output, expected)) << size.width << "x" << size.height;
  }
}

TEST(KernelArithmetic, SubScalarInplaceChangesThePlaneItself) {
  for (PlaneSize size : kOddSizes) {
    const Plane original = SamplePlane(size.width, size.height, 31);
    Plane plane = original;
    ASSERT_EQ(sub_scalar_inplace_float(1.25f, plane.buffer()), 0);
    EXPECT_TRUE(SameSamples(plane, Reference(original, 1.25f, RoundedDifference)))
        << size.width << "x" << size.height;
  }
}

// A partial rectangle: the output is a temporary whose mins are the
// rectangle's corner, so the pipeline reads the source at image coordinates.
TEST(KernelArithmetic, WritesARectangleTemporaryFromImageCoordinates) {
  const Plane source = SamplePlane(20, 12, 41);
  const int left = 3, top = 5, right = 17, bottom = 12;
  TemporaryPlane temporary = AllocateTemporaryPlane(right - left, bottom - top);
  auto rectangle = RectangleBuffer(temporary.get(), left, top, right, bottom);
  ASSERT_EQ(mul_scalar_float(source.input(), 3.0f, rectangle), 0);
  for (int y = top; y < bottom; ++y) {
    for (int x = left; x < right; ++x) {
      ASSERT_TRUE(SameSample(temporary[(y - top) * (right - left) + (x - left)], RoundedProduct(source.at(x, y), 3.0f)))
          << x << ", " << y;
    }
  }
}

}  // namespace
}  // namespace qorimg::kernels::test
