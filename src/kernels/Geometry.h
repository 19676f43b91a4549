// Geometry pipelines (C functions, return 0 on success). W x H is the input's size.
//   rotate_{bilinear,bicubic,lanczos2,lanczos3,nearest}_float(input, shift_x, shift_y, center_x, center_y,
//       cosR, sinR, outside, output)
//       u = x + shift_x - center_x, w = center_y - (y + shift_y);
//       px = cosR u - sinR w + center_x, py = center_y - (sinR u + cosR w);
//       output(x, y) := outside if px < 0, py < 0, px >= W or py >= H, else the sample at (px, py) (float
//       arithmetic, taps clamped; bicubic a = -0.5; nearest trunc(p + 0.5))
//   rotate_mask(width, height, shift_x, shift_y, center_x, center_y, cosR, sinR, output)
//       int32 1 where the same test finds an inside position of a width x height plane, else 0
//   resolution_{bilinear,bicubic,lanczos2,lanczos3,nearest}_float(input, new_width, new_height, output)
//       output(x, y) := the sample at (x * (W / new_width), y * (H / new_height)), ratios in float, taps
//       clamped; bicubic a = -0.1; two passes, rows first. Lanczos and nearest also for plain x86-64.
//   translate_intshift_float(input, shift_x, shift_y, outside, output)
//       output(x, y) := input(x - shift_x, y - shift_y) inside the input, else outside
//   translate_floatshift_bicubic_float(input, shift_x, shift_y, outside, output)
//       the bicubic (a = -0.5) sample at (x - shift_x, y - shift_y), outside outside [0, W) x [0, H)
//   translate_intshift_mask(width, height, shift_x, shift_y, output)
//   translate_floatshift_mask(width, height, shift_x, shift_y, output)
//       int32 1 where (x - shift_x, y - shift_y) lies in a width x height plane, else 0
//   binning2f_float(input, nBinsX, nBinsY, binned)
//       float sum of each nBinsX x nBinsY block, row by row; partial blocks sum what exists
#pragma once
#include "binning2f_float.h"
#include "resolution_bicubic_float.h"
#include "resolution_bilinear_float.h"
#include "resolution_lanczos2_float.h"
#include "resolution_lanczos3_float.h"
#include "resolution_nearest_float.h"
#include "rotate_bicubic_float.h"
#include "rotate_bilinear_float.h"
#include "rotate_lanczos2_float.h"
#include "rotate_lanczos3_float.h"
#include "rotate_mask.h"
#include "rotate_nearest_float.h"
#include "translate_floatshift_bicubic_float.h"
#include "translate_floatshift_mask.h"
#include "translate_intshift_float.h"
#include "translate_intshift_mask.h"
