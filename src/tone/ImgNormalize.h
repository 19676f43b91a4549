// CImgNormalize: gives each plane a wanted mean, standard deviation, or both,
// for instance to match frames before stacking. Plain row loops in double.
#pragma once
#include "Export.h"
#include "core/LmrImage.h"

class QORIMG_API CImgNormalize : public CLmrImage {
public:
  CImgNormalize();
  CImgNormalize(const CImgNormalize &source);
  ~CImgNormalize() override;

  // pMean and pSigma hold one value for each plane; either may be null.
  void Do(CLmrImage *pSrc, float *pMean, float *pSigma, int bProgress);

protected:
  // pDst := pSrc + fAdd on one plane.
  void NormalizeAve(CLmrImage *pSrc, CLmrImage *pDst, int nPlane, double fAdd);
  // pDst := (pSrc - fCenter) * fRatio + fCenter on one plane.
  void NormalizeSigma(CLmrImage *pSrc, CLmrImage *pDst, int nPlane, double fCenter, double fRatio);
};
