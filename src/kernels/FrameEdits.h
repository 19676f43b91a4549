// Frame-edit pipelines (C functions, return 0 on success):
//   copy_float(input, output)                   output(x, y) := input(x, y)
//   crop_float(input, offset_x, offset_y, output)
//                                               output(x, y) := input(x + offset_x, y + offset_y)
//   paste_float / paste_uint8 / paste_uint32(input, start_x, end_x, start_y, end_y, shift_x, shift_y, paste)
//       for x in [start_x, end_x), y in [start_y, end_y):
//       paste(x, y) := input(x - start_x + shift_x, y - start_y + shift_y); the rest of paste is untouched,
//       so bind the whole target plane.
//   paste3d_uint8(same arguments): interleaved bytes, dimension 0 the channel (stride 1), 1 x, 2 y; the
//       rectangle is in x, y and all channels are copied (see InterleavedBuffer).
//   paste_rect_float(input, start_x, end_x, start_y, end_y, shift_x, shift_y, output)
//       every output(x, y) := input(clamp(x + shift_x, start_x, end_x - 1), clamp(y + shift_y, start_y, end_y - 1))
//       (an empty rectangle clamps to start_x, start_y)
//   paste_with_fill_float(input, fill, start_x, end_x, start_y, end_y, shift_x, shift_y, paste)
//       as paste_float inside the rectangle, fill everywhere else in paste
//   cut_out_of_zero_level_float(input, fMin, fRange, fRangeR, output)
//                                               output := max(0, (v - fMin) * fRangeR / fRange), NaN gives 0
//   threshold_{eq,neq,gt,lt,leq}_float(input, threshold, value, output)
//                                               output := value where v ==, !=, >, <, <= threshold, else v
// The pastes read the input at [shift_x, shift_x + end_x - start_x) x [shift_y, ...); an empty or inverted
// rectangle (end <= start) reads nothing and writes nothing (paste_with_fill_float: fill everywhere).
// A buffer too small for what a pipeline reads or writes is reported (kernels/Runtime.h) and the
// pipeline returns non-zero without touching memory.
#pragma once
#include "copy_float.h"
#include "crop_float.h"
#include "cut_out_of_zero_level_float.h"
#include "paste3d_uint8.h"
#include "paste_float.h"
#include "paste_rect_float.h"
#include "paste_uint32.h"
#include "paste_uint8.h"
#include "paste_with_fill_float.h"
#include "threshold_eq_float.h"
#include "threshold_gt_float.h"
#include "threshold_leq_float.h"
#include "threshold_lt_float.h"
#include "threshold_neq_float.h"
