// Direction cosines and 3 x 3 rotations (row-major), angles in degrees.
#include "sibling/Lmracl.h"

#include <cmath>
#include <numbers>

namespace {
constexpr double kRadiansPerDegree = std::numbers::pi / 180.0;
}  // namespace

namespace qorimg {

void AdToDc(const double *ad, double *dc) {
  const double ra = ad[0] * kRadiansPerDegree;
  const double dec = ad[1] * kRadiansPerDegree;
  dc[0] = std::cos(dec) * std::cos(ra);
  dc[1] = std::cos(dec) * std::sin(ra);
  dc[2] = std::sin(dec);
}

// Computed into a temporary, so `out` may be `dc`.
void RotateDc(const double *dc, const double *matrix, double *out) {
  double result[3];
  for (int r = 0; r < 3; ++r)
    result[r] = matrix[3 * r] * dc[0] + matrix[3 * r + 1] * dc[1] + matrix[3 * r + 2] * dc[2];
  for (int r = 0; r < 3; ++r) out[r] = result[r];
}

// Right-handed: a positive angle turns y towards z.
void RotateX(double angle, double *matrix) {
  const double c = std::cos(angle * kRadiansPerDegree), s = std::sin(angle * kRadiansPerDegree);
  const double m[9] = {1, 0, 0,
                       0, c, -s,
                       0, s, c};
  for (int k = 0; k < 9; ++k) matrix[k] = m[k];
}

// Right-handed: a positive angle turns z towards x.
void RotateY(double angle, double *matrix) {
  const double c = std::cos(angle * kRadiansPerDegree), s = std::sin(angle * kRadiansPerDegree);
  const double m[9] = {c, 0, s,
                       0, 1, 0,
                       -s, 0, c};
  for (int k = 0; k < 9; ++k) matrix[k] = m[k];
}

// Computed into a temporary, so `out` may be `a` or `b`.
void MulMatrix(const double *a, const double *b, double *out) {
  double result[9];
  for (int r = 0; r < 3; ++r)
    for (int c = 0; c < 3; ++c)
      result[3 * r + c] = a[3 * r] * b[c] + a[3 * r + 1] * b[3 + c] + a[3 * r + 2] * b[6 + c];
  for (int k = 0; k < 9; ++k) out[k] = result[k];
}

}  // namespace qorimg
