// PNG previews of a frame: mono or RGB, 8 or 16 bits.
#pragma once
#include <string>
#include "Export.h"
#include "core/LmrImage.h"

namespace qorimg::io {

// Samples are mapped linearly, black -> 0 and white -> the largest code, then
// clipped; NaN is written as 0. One plane gives a grey PNG, three an RGB one.
// Same temporary-and-rename rule as WriteFits (IoError on failure).
QORIMG_API void WritePng(const std::string &path, const CLmrImage &image, int bits, double black, double white,
                         bool overwrite);

}  // namespace qorimg::io
