// Display pipelines (C functions, return 0 on success). Bitmaps are 3-D byte
// buffers: channel (stride 1), x (stride 3 or 4), y (the line stride, negative for
// a bottom-up bitmap); channels blue, green, red.
//   todib32_float(red, green, blue, levels, dib)
//       levels: 1-D double {min, max, range} of red, green, blue; 3 bytes a pixel,
//       the display mapping in double.
//   image_buffer_32bit_float(red, green, blue, fRedLevelMin, fRedLevelMax, fRedScale,
//                            fGreenLevelMin, fGreenLevelMax, fGreenScale, fBlueLevelMin,
//                            fBlueLevelMax, fBlueScale, output)
//       4 bytes a pixel, the fourth byte 0, mapped in single precision with the
//       line loops' float levels: minimum, maximum and k = (float)(255.0 / range).
#pragma once
#include "image_buffer_32bit_float.h"
#include "todib32_float.h"
