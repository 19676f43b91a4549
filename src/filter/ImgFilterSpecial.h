// CImgFilterSpecial: digital development, which divides each pixel by a
// blurred copy of its surroundings and so brings a wide dynamic range into the
// display range. The host prepares the plane filters on this object and the
// per-plane parameters (DigitalDvlp1, or MakeFilterProc with the source and
// parameters of its own), then calls one writer on the same source: DigitalDvlp2 (gamma, then development),
// DigitalDvlpGmAftrDdp (development, then gamma) or DigitalDvlpOnly
// (development mixed with the source). Routes: DigitalDvlpOnly runs as a
// kernel pipeline on whole-plane images when every plane is divided by its
// own blur (the pipeline's blur reflects about the edge pixel); all else runs
// line loops through the filter rings.
#pragma once
#include "Export.h"
#include "core/LmrImage.h"

class QORIMG_API CImgFilterSpecial : public CLmrImage {
public:
  CImgFilterSpecial() = default;
  CImgFilterSpecial(const CImgFilterSpecial &) = default;
  ~CImgFilterSpecial() override;

  // 2 * trunc(fRadius), at least 1: the mean's radius for the development blur.
  static int GetDigitalDvlp_Mean_nR(double fRadius);

  // Prepares a development: clears the filter sets, makes each plane's blur
  // filter on src (nFilter 0: Gaussian of fSize[c]; 1: the mean of
  // GetDigitalDvlp_Mean_nR(fSize[c]), fSize[c] and fWeight) and fills fMin,
  // fRange (DigitalDvlpGetMinMax), fA (pLevel[0] on the 0..255 scale) and fMul
  // (src's sampled median on that scale, plus fA), both through plane 0's gamma
  // curve unless bGammaAfter. Another nFilter, or a null array, changes nothing.
  void DigitalDvlp1(double *const pLevel, int nFilter, double *const fSize, double fWeight, double *const fGamma,
                    int nMinMax, CLmrImage *src, float *const fMin, float *const fRange, float *const fA,
                    float *const fMul, int bGammaAfter);

  // pnBlur[c]: the blurred plane that divides plane c (0..2; 3 and up: the mean
  // of the three on their 0..255 scales). fA, fMul on the 0..255 scale; fMin,
  // fRange the gamma curve's range on the raw scale.
  void DigitalDvlp2(int bDevelop, double *const fGamma, CLmrImage *src, int *const pnBlur, float *const fMin,
                    float *const fRange, float *const fA, float *const fMul, CRect *rect, int bProgress);
  void DigitalDvlpGmAftrDdp(int bDevelop, double *const fGamma, CLmrImage *src, int *const pnBlur,
                            float *const fMin, float *const fRange, float *const fA, float *const fMul, CRect *rect,
                            int bProgress);
  void DigitalDvlpOnly(int bDevelop, CLmrImage *src, double fStrength, int *const pnBlur, float *const fMin,
                       float *const fRange, float *const fA, float *const fMul, CRect *rect, int bProgress);
  // The gamma curve's range by nMinMax 0..3 from src's extremes and the levels.
  void DigitalDvlpGetMinMax(int nMinMax, CLmrImage *src, float *const fMin, float *const fMax,
                            float *const fRange);
  // Carries two level values of each plane through the gamma curve.
  void DigitalDvlpGetLevel(double *const fGamma, int nMinMax, CLmrImage *src, double *const pLow,
                           double *const pHigh);

private:
  enum class Writer { GammaFirst, GammaAfter, Mixed };
  void Develop(Writer kind, int bDevelop, const double *fGamma, double fStrength, CLmrImage *src, const int *pnBlur,
               const float *fMin, const float *fRange, const float *fA, const float *fMul, CRect *rect,
               int bProgress);
};
