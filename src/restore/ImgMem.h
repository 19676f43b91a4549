// CImgMem: maximum-entropy restoration of a Gaussian blur of sigma fSigma
// (after Myrheim and Rue): the image of greatest entropy that, blurred, fits
// the data within the noise fNoise. Raw values, levels untouched. Slow; with
// progress on it honours ESC. The image is written only after every plane
// succeeded; the work is on private arrays, so every store gives the same
// bits. The kernel (63 x 63, centred at 31.5) is applied centred at 31, so a
// restoration sits half a pixel up and left of the data.
#pragma once
#include "Export.h"
#include "core/LmrImage.h"

class QORIMG_API CImgMem : public CLmrImage {
public:
  // 1; 0 with the image unchanged and a message box: 6148 for bad parameters
  // (fNoise 0, fSigma <= 0, no flux), memory or transform failures, 6149 on
  // ESC. nIterations <= 0: no limit but 10,000 main iterations. An empty
  // rectangle changes nothing and gives 1.
  int Do(double fSigma, double fNoise, int nIterations, CRect *rect, int bProgress);

private:
  float *MakeGauss(double fSigma, int nWidth, int nHeight);
};
