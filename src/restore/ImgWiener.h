// CImgWiener: undoes a Gaussian blur of radius fRadius by one Wiener division
// in the frequency domain. Works on the display scale (0..255 through each
// plane's levels) of a mirror-padded power-of-two frame; fNoise is the noise
// term as a share of the largest squared amplitude of the kernel's spectrum.
// The kernel carries a fixed gain (its centre is 1000 / (2 pi)), so the
// result's offset from the level minimum comes out divided by about
// 500 r^2 (1 + fNoise). Only the rectangle is written. The transforms run on
// private arrays, so every store gives the same bits.
#pragma once
#include "Export.h"
#include "core/LmrImage.h"

class QORIMG_API CImgWiener : public CLmrImage {
public:
  // 1; 0 when the image has no store manager or the memory cannot be had (the
  // image unchanged). fRadius <= 0 or not finite, or an empty rectangle,
  // change nothing and give 1.
  int Do(double fRadius, double fNoise, CRect *rect, int bShowProgress);
};
