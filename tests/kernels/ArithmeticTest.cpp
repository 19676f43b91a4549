// The arithmetic pipelines that no operator runs yet, against plain references
// on the same planes (the scalar ones run through CImgCalculation's route tests).
// Tolerance 0: each pipeline result is one IEEE single-precision operation, and
// the reference computes it in double and rounds to float, which gives the
// same correctly rounded value for +, - and * (double holds the exact product
// and more than twice float's precision for sums).
#include <gtest/gtest.h>

#include <cmath>

#include "KernelTestSupport.h"
#include "kernels/Arithmetic.h"

namespace qorimg::kernels::test {
namespace {

float RoundedDifference(float a, float b) { return float(double(a) - double(b)); }
// The clipping loops' rule: a difference that is not above 0 (NaN, -0 included) is +0.
float ClippedDifference(float a, float b) {
  const float d = RoundedDifference(a, b);
  return d > 0.0f ? d : 0.0f;
}

TEST(KernelArithmetic, Sub0OfTwoPlanesClipsSampleBySample) {
  for (PlaneSize size : kOddSizes) {
    const Plane lhs = SamplePlane(size.width, size.height, 21);
    const Plane rhs = SamplePlane(size.width, size.height, 22);
    Plane output(size.width, size.height);
    ASSERT_EQ(sub0_float(lhs.input(), rhs.input(), output.buffer()), 0);
    Plane expected(size.width, size.height);
    for (std::size_t i = 0; i < expected.samples.size(); ++i) expected.samples[i] = ClippedDifference(lhs.samples[i], rhs.samples[i]);
    EXPECT_TRUE(SameSamples(output, expected)) << size.width << "x" << size.height;
  }
}

TEST(KernelArithmetic, SubScalarInplaceChangesThePlaneItself) {
  for (PlaneSize size : kOddSizes) {
    const Plane original = SamplePlane(size.width, size.height, 31);
    Plane plane = original, expected = original;
    for (float &v : expected.samples) v = RoundedDifference(v, 1.25f);
    ASSERT_EQ(sub_scalar_inplace_float(1.25f, plane.buffer()), 0);
    EXPECT_TRUE(SameSamples(plane, expected)) << size.width << "x" << size.height;
  }
}

}  // namespace
}  // namespace qorimg::kernels::test
