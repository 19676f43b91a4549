// Spherical geometry on direction cosines and 3 x 3 matrices (row-major).
#pragma once
#include "Export.h"

// Right ascension and declination in degrees to three direction cosines.
QORIMG_API void AdToDc(const double *ad, double *dc);
// out = matrix * dc.
QORIMG_API void RotateDc(const double *dc, const double *matrix, double *out);
// Rotation by `angle` degrees about the x or the y axis.
QORIMG_API void RotateX(double angle, double *matrix);
QORIMG_API void RotateY(double angle, double *matrix);
// out = a * b.
QORIMG_API void MulMatrix(const double *a, const double *b, double *out);
