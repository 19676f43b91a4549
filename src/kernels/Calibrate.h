// Calibration pipelines (C functions, return 0 on success), all in place on
// `output`, the image plane:
//   dark_float(dark, output)                      output := max(output - dark, 0), NaN gives 0
//   flat_float(flat, fAverage, output)            output := fAverage * output / flat where flat > 0
//   flat_with_gamma_float(flat, fFlatMax, fFlatGm0, fGamma, fOffset, fAverage, output)
//       f := flat through the power curve (zero at fFlatGm0, exponent fGamma) + fAverage * fOffset;
//       output := fAverage * output / f where f > 0
#pragma once
#include "dark_float.h"
#include "flat_float.h"
#include "flat_with_gamma_float.h"
