// CImgLucy: Richardson-Lucy deconvolution of a Gaussian blur of sigma fSigma,
// with a Poisson-plus-read-noise model (fAdu electrons per unit, fNoise read
// noise), a chi-square stop and an accelerated (turbo) iteration. Works on
// raw values, the levels untouched; each plane on a canvas of at least
// 64 x 64 with an FFT of any length. Honours ESC with progress on. The image
// is written only after every plane succeeded; the work is on private
// arrays, so every store gives the same bits.
#pragma once
#include "Export.h"
#include "core/LmrImage.h"

class QORIMG_API CImgLucy : public CLmrImage {
public:
  // 1, or 0 with the image unchanged: when its own buffers cannot be had (no
  // message), on memory failure in the restoration, fSigma <= 0 or not
  // finite, or fAdu <= 0 (message 6148), or on ESC (message 6149). At most
  // nIteration iterations; 0 or less writes the flat mean. An empty
  // rectangle changes nothing and gives 1.
  int Do(double fSigma, double fAdu, double fNoise, int nIteration, CRect *rect, int bShowProgress);

private:
  // The 64 x 64 Gaussian PSF (see RestoreInternal.h), or null.
  float *MakeGauss(double fSigma, int nWidth, int nHeight);
};
