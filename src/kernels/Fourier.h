// Fourier-family pipelines (C functions, return 0 on success). A complex array
// is a 3-D buffer: dimension 0 the part (0 real, 1 imaginary, stride 1),
// 1 x (stride 2), 2 y (stride 2 W); see restore/FftBuffers.h.
//   put_fft_real_float(plane, array)        array(0, x, y) := plane(x, y), array(1, x, y) := 0 over
//                                           the array buffer's extent
//   get_fft_real_float(array, plane)        plane(x, y) := array(0, x, y) inside the array, 0 beyond
//   get_fft_imaginary_float(array, plane)   the same with the imaginary parts
//   remin_float(array, result)              smallest real part, NaN skipped (FLT_MAX when none)
//   log_tone_float(input, rmin, output)     real := log(v - rmin + 1), imaginary copied; may be in place
//   to_log_polar_float(input, rho_start, delta_rho, theta_start, delta_theta, output)
//       output(0, i, j) := bilinear real part of input at rho = exp(rho_start + j delta_rho),
//       theta = theta_start + i delta_theta about (W/2 - 0.5, H/2 - 0.5), neighbours clamped, 0 outside
//       (-0.5, W - 0.5) x (-0.5, H - 0.5); output(1, i, j) := 0. Input and output must not overlap.
#pragma once
#include "get_fft_imaginary_float.h"
#include "get_fft_real_float.h"
#include "log_tone_float.h"
#include "put_fft_real_float.h"
#include "remin_float.h"
#include "to_log_polar_float.h"
