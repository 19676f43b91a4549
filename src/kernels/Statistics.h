// Statistics pipelines (C functions, return 0 on success). Sums are in double;
// scalar results come back through 0-dimensional double buffers, histograms
// through 1-dimensional int32 buffers of nBins.
//   average_float(input, start_x, end_x, start_y, end_y, average)
//   average256_floor_zero_float(input, fLevelMin, fLevelRange, start_x, end_x, start_y, end_y, average)
//   average_gray256_floor_zero_float(red, green, blue, 3 x (level min, range), start_x, end_x, start_y, end_y, average)
//   centroid256_float(input, fLevelMin, fLevelRange, average, start_x, end_x, start_y, end_y,
//                     centroid_0 = sum x q, centroid_1 = sum y q, centroid_2 = sum q)
//   centroid_gray256_float(red, green, blue, 3 x (level min, range), average, start_x..end_y, centroid_0..2)
//   histogram_antialias_float(input, nStartX, nStartY, nWidth, nHeight, fMin, fMax, nBins, histogram)
//   histogram_antialias_rgb_float(red, green, blue, nStartX, nStartY, nWidth, nHeight, fMin, fMax, nBins,
//                                 histogram_red, histogram_green, histogram_blue)
//   histogram_antialias_brightness_float(red, green, blue, 3 x (level min, 255 / range) as float,
//                                        nStartX, nStartY, nWidth, nHeight, fMin, fMax, nBins, histogram)
#pragma once
#include "average256_floor_zero_float.h"
#include "average_float.h"
#include "average_gray256_floor_zero_float.h"
#include "centroid256_float.h"
#include "centroid_gray256_float.h"
#include "histogram_antialias_brightness_float.h"
#include "histogram_antialias_float.h"
#include "histogram_antialias_rgb_float.h"
