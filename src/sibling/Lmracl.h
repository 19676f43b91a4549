// Spherical geometry on direction cosines and 3 x 3 matrices (row-major): the
// closed sibling's five routines, used inside the library and not exported.
#pragma once

namespace qorimg {

// Right ascension and declination in degrees to three direction cosines.
void AdToDc(const double *ad, double *dc);
// out = matrix * dc.
void RotateDc(const double *dc, const double *matrix, double *out);
// Rotation by `angle` degrees about the x or the y axis.
void RotateX(double angle, double *matrix);
void RotateY(double angle, double *matrix);
// out = a * b.
void MulMatrix(const double *a, const double *b, double *out);

}  // namespace qorimg
