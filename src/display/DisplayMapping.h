// The display mapping of a plane, ready for a line loop: the levels taken once,
// in double (GetDib) or single precision (ToDIB), and the plane that shows as
// each of red, green and blue.
#pragma once
#include "core/LmrImage.h"
#include "core/PixelMath.h"

namespace qorimg {

// Mono images show plane 0 in all three channels; colour images plane 0, 1, 2
// as red, green, blue. An image of two planes (a/b) shows its last plane as blue
// rather than reading a plane it does not have.
inline int ChannelPlane(const CImage &image, int channel) {
  if (!image.IsColor()) return 0;
  return channel < image.GetPlanes() ? channel : image.GetPlanes() - 1;
}

struct DoubleLevels {
  double min, max, range;
  DoubleLevels(const CImage &image, int plane)
      : min(image.GetLevelMin(plane)), max(image.GetLevelMax(plane)), range(image.GetLevelRange(plane)) {}
  unsigned char operator()(float v) const { return DisplayByte(v, min, max, range); }
};

// lo, hi as floats and scale = (float)(255.0 / range): a multiplication per sample.
struct FloatLevels {
  float lo, hi, scale;
  FloatLevels(const CImage &image, int plane)
      : lo(static_cast<float>(image.GetLevelMin(plane))),
        hi(static_cast<float>(image.GetLevelMax(plane))),
        scale(static_cast<float>(255.0 / image.GetLevelRange(plane))) {}
  unsigned char operator()(float v) const { return DisplayByteFloat(v, lo, hi, scale); }
};

}  // namespace qorimg
