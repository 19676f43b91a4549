// Level and tone pipelines (C functions, return 0 on success):
//   binning_float(input, nBins, binned)                 binned(x, y) := double sum of the nBins x nBins cell
//   getminmax_brightness_float(red, green, blue, nStartX, nStartY, nWidth, nHeight, min, max)
//                                                       float 0-D outputs: range of 0.299 R + 0.587 G + 0.114 B
//   tone_curve_gray_float(input, fLevelMin, fLevelRange, curve_gray, output)
//   tone_curve_color_float(input, fLevelMin, fLevelRange, curve_color, curve_gray, output)
//   bright_float(input, fLevelMin, fLevelRange, fAverage, fBright, fContrast, output)
//   invert_float(input, fInputLevelMin, fInputLevelRange, fOutputLevelMin, fOutputLevelRange, output)
// Curves are 1-D float buffers of nCount entries (kernels/Buffers.h TableBuffer).
#pragma once
#include "binning_float.h"
#include "bright_float.h"
#include "getminmax_brightness_float.h"
#include "invert_float.h"
#include "tone_curve_color_float.h"
#include "tone_curve_gray_float.h"
