// Filter pipelines (C functions, return 0 on success). `weight` is a 1-D
// kernel of 2nR+1 floats (kernels/Buffers.h TableBuffer); the input is read
// mirrored about its first and last pixel on both axes, neither repeated,
// periodic beyond the plane, and 0 on a one-pixel axis.
//   apply_filter_float(input, weight, nR, output)
//       output := sum_j weight[j] * sum_i weight[i] * input(x+i-nR, y+j-nR), along x first
//   apply_filter_with_threshold_float(input, weight, nR, fDarkThreshold, fDarkThresholdMin,
//                                     fHighlightThreshold, fHighlightThresholdMax, output)
//       the same, gated by the source value v: v outside [fDarkThresholdMin,
//       fHighlightThresholdMax] stays, between the inner thresholds the filter, in
//       between a linear fade
//   digital_developing_simple_float(input, weight, nR, fMin, fRange, fStrength, fA, fMul, output)
//       with b the filter and S = 255 / fRange: u = (b - fMin) S + fA; where u > 0
//       ((v - fMin) S / u fMul / S + fMin) fStrength + v (1 - fStrength), each
//       product rounded to float, else v
#pragma once
#include "apply_filter_float.h"
#include "apply_filter_with_threshold_float.h"
#include "digital_developing_simple_float.h"
