// The demo's preview of a frame: display levels chosen from the frame's own
// statistics, the frame drawn into a 32-bit bitmap through ToDIB, written as
// .bmp and .png.
#pragma once
#include <string>
#include "core/LmrImage.h"
#include "display/MemoryDIB.h"

namespace demo {

struct DisplayLevels {
  double black, white;
};

// Per plane: black at the 1st percentile and white at the 99.95th of the
// histogram between the frame's minimum and maximum, so that the sky shows as a
// dark grey and only the star cores reach white.
DisplayLevels SetLevelsFromStatistics(CLmrImage &frame);

// Draws the frame into `dib`, a 32-bit bitmap of its size, through ToDIB.
bool DrawPreview(const CLmrImage &frame, CMemoryDIB &dib);

// Writes `stem`.bmp and `stem`.png; returns the names written.
std::string WritePreview(CMemoryDIB &dib, const std::string &stem);

}  // namespace demo
