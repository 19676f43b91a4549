// CImgSoftBinning: sums blocks of nBinX x nBinY pixels into one, as binning on
// the camera would, to gain signal per pixel on an oversampled frame. bCeil
// keeps the partial blocks at the right and bottom (summed over what exists);
// bScaleLevels multiplies the levels by the block's pixel count so that the
// picture looks the same. Routes: binning2f_float on whole-plane images, a line
// loop adding the same samples in the same order on others.
#pragma once
#include "Export.h"
#include "core/LmrImage.h"

class QORIMG_API CImgSoftBinning : public CLmrImage {
public:
  CImgSoftBinning() = default;
  ~CImgSoftBinning() override = default;

  // 0 for a bin below 1 or a binned size of 0 (or one that cannot be had).
  int Do(int nBinX, int nBinY, int bCeil, int bScaleLevels, CLmrImage *src, int bProgress);
};
