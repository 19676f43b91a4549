#include <algorithm>
#include <cmath>

#include <gtest/gtest.h>

#include "sibling/Lmracl.h"

namespace {

using namespace qorimg;

// sin and cos of angles in degrees are rounded to about 1e-16 (cos 90 degrees is
// 6e-17, not 0); sums of three such products stay far below 1e-14.
constexpr double kTolerance = 1e-14;

void ExpectNear(const double *got, const double *want, int n) {
  for (int k = 0; k < n; ++k) EXPECT_NEAR(got[k], want[k], kTolerance) << "element " << k;
}

TEST(Lmracl, DirectionCosinesOfKnownDirections) {
  const double cases[][5] = {{0, 0, 1, 0, 0}, {90, 0, 0, 1, 0}, {123, 90, 0, 0, 1},
                             // cos 30 cos 45 = sqrt(6)/4, sin 30 = 1/2
                             {45, 30, std::sqrt(6.0) / 4, std::sqrt(6.0) / 4, 0.5}};
  for (const auto &c : cases) {
    double dc[3];
    AdToDc(c, dc);
    ExpectNear(dc, c + 2, 3);
  }
}

TEST(Lmracl, QuarterTurnsAreRightHanded) {
  double m[9], v[3];
  RotateY(90, m);
  const double x[3] = {1, 0, 0}, minusZ[3] = {0, 0, -1};
  RotateDc(x, m, v);
  ExpectNear(v, minusZ, 3);
  RotateX(90, m);
  double y[3] = {0, 1, 0};
  const double z[3] = {0, 0, 1};
  RotateDc(y, m, y);  // in place
  ExpectNear(y, z, 3);
}

TEST(Lmracl, ProductsComposeAndMayAliasTheirInputs) {
  double a[9], b[9], expected[9];
  RotateX(25, a);
  RotateY(-70, b);
  double reference[9] = {};  // the plain triple loop
  for (int r = 0; r < 3; ++r)
    for (int c = 0; c < 3; ++c)
      for (int k = 0; k < 3; ++k) reference[3 * r + c] += a[3 * r + k] * b[3 * k + c];
  double left[9], right[9];
  std::copy(a, a + 9, left);
  std::copy(b, b + 9, right);
  MulMatrix(left, b, left);
  MulMatrix(a, right, right);
  ExpectNear(left, reference, 9);
  ExpectNear(right, reference, 9);
  MulMatrix(a, a, a);  // two turns of 25 degrees
  RotateX(50, expected);
  ExpectNear(a, expected, 9);
}

}  // namespace
