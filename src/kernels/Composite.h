// Composite pipelines (C functions, return 0 on success):
//   composit_intshift[_level]_<mode>_float(a, b, dx, dy, outside, [weight], [levels], output)   dx, dy int32
//   composit_floatshift[_level]_bicubic_<mode>_float(a, b, dx, dy, outside, [weight], [levels], output)
//   composit_rotate[_level]_bicubic_<mode>_float(a, b, dx, dy, center_x, center_y, cosR, sinR, outside,
//       [weight], [levels], output)
// <mode>: average add weight sub sub_cutminus mult div diff brighter darker default. [weight] (double)
// only for weight; [levels] = level_min_a, level_range_a, level_min_b, level_range_b for the _level ones.
// output(x, y) := the mode's formula of a(x, y) and B's sample at (X, Y), or outside where B has none:
//   intshift: X = x - dx, Y = y - dy, inside for 0 <= X < W, 0 <= Y < H (integers);
//   floatshift: the same in float, tested as dx <= x < dx + W, dy <= y < dy + H;
//   rotate: u = x - dx - cx, t = y - dy - cy, X = u c + t s + cx, Y = -u s + t c + cy (float), inside for
//       0 <= X < W, 0 <= Y < H; the sample is cubic (a = -0.5) on the 4 x 4 taps about trunc, clamped,
//       weights and sums in double.
// Level variants work on a256 = (a - min_a) * (255 / range_a) and b256 likewise, and bring the result
// back by * range_a / 255 + min_a; intshift_level scales outside as if it were b - min_b. default
// copies a bit for bit.
#pragma once
#include "composit_intshift_average_float.h"
#include "composit_intshift_add_float.h"
#include "composit_intshift_weight_float.h"
#include "composit_intshift_sub_float.h"
#include "composit_intshift_sub_cutminus_float.h"
#include "composit_intshift_mult_float.h"
#include "composit_intshift_div_float.h"
#include "composit_intshift_diff_float.h"
#include "composit_intshift_brighter_float.h"
#include "composit_intshift_darker_float.h"
#include "composit_intshift_default_float.h"
#include "composit_intshift_level_average_float.h"
#include "composit_intshift_level_add_float.h"
#include "composit_intshift_level_weight_float.h"
#include "composit_intshift_level_sub_float.h"
#include "composit_intshift_level_sub_cutminus_float.h"
#include "composit_intshift_level_mult_float.h"
#include "composit_intshift_level_div_float.h"
#include "composit_intshift_level_diff_float.h"
#include "composit_intshift_level_brighter_float.h"
#include "composit_intshift_level_darker_float.h"
#include "composit_intshift_level_default_float.h"
#include "composit_floatshift_bicubic_average_float.h"
#include "composit_floatshift_bicubic_add_float.h"
#include "composit_floatshift_bicubic_weight_float.h"
#include "composit_floatshift_bicubic_sub_float.h"
#include "composit_floatshift_bicubic_sub_cutminus_float.h"
#include "composit_floatshift_bicubic_mult_float.h"
#include "composit_floatshift_bicubic_div_float.h"
#include "composit_floatshift_bicubic_diff_float.h"
#include "composit_floatshift_bicubic_brighter_float.h"
#include "composit_floatshift_bicubic_darker_float.h"
#include "composit_floatshift_bicubic_default_float.h"
#include "composit_floatshift_level_bicubic_average_float.h"
#include "composit_floatshift_level_bicubic_add_float.h"
#include "composit_floatshift_level_bicubic_weight_float.h"
#include "composit_floatshift_level_bicubic_sub_float.h"
#include "composit_floatshift_level_bicubic_sub_cutminus_float.h"
#include "composit_floatshift_level_bicubic_mult_float.h"
#include "composit_floatshift_level_bicubic_div_float.h"
#include "composit_floatshift_level_bicubic_diff_float.h"
#include "composit_floatshift_level_bicubic_brighter_float.h"
#include "composit_floatshift_level_bicubic_darker_float.h"
#include "composit_floatshift_level_bicubic_default_float.h"
#include "composit_rotate_bicubic_average_float.h"
#include "composit_rotate_bicubic_add_float.h"
#include "composit_rotate_bicubic_weight_float.h"
#include "composit_rotate_bicubic_sub_float.h"
#include "composit_rotate_bicubic_sub_cutminus_float.h"
#include "composit_rotate_bicubic_mult_float.h"
#include "composit_rotate_bicubic_div_float.h"
#include "composit_rotate_bicubic_diff_float.h"
#include "composit_rotate_bicubic_brighter_float.h"
#include "composit_rotate_bicubic_darker_float.h"
#include "composit_rotate_bicubic_default_float.h"
#include "composit_rotate_level_bicubic_average_float.h"
#include "composit_rotate_level_bicubic_add_float.h"
#include "composit_rotate_level_bicubic_weight_float.h"
#include "composit_rotate_level_bicubic_sub_float.h"
#include "composit_rotate_level_bicubic_sub_cutminus_float.h"
#include "composit_rotate_level_bicubic_mult_float.h"
#include "composit_rotate_level_bicubic_div_float.h"
#include "composit_rotate_level_bicubic_diff_float.h"
#include "composit_rotate_level_bicubic_brighter_float.h"
#include "composit_rotate_level_bicubic_darker_float.h"
#include "composit_rotate_level_bicubic_default_float.h"
