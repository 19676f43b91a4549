// CImgAutoLevel: finds the display levels of a frame automatically (from the
// sky peak of the histogram, from mean or median and deviation, or from shares
// of the pixels), reads back the parameters that give the present levels, and
// holds the robust statistics behind them: sampled medians (also per phase of
// a colour mosaic, for white balance), the histogram mode with the sky width
// below it, and RMS deviations. It never changes a pixel; the operator object
// is the image it measures.
//
// Medians of one plane of a colour whole-plane image sum their cells through a
// kernel pipeline in double; every other case sums cells in single precision.
#pragma once
#include "Export.h"
#include "core/LmrImage.h"

class QORIMG_API CImgAutoLevel : public CLmrImage {
public:
  CImgAutoLevel();
  CImgAutoLevel(const CImgAutoLevel &source);
  ~CImgAutoLevel() override;

  // Setting levels. nBalance 3 (or any value outside 0..2) changes nothing.
  void DoByHistogram(double fLow, double fHigh, int bPerPlane, int nBalance, CRect *rect);
  void DoByMean(double fLow, double fHigh, int bPerPlane, CRect *rect);
  void DoByMedian(double fLow, double fHigh, int bPerPlane, CRect *rect);
  void DoByNormal(double fLow, double fHigh, int bPerPlane, CRect *rect);

  // The parameters of the DoBy... operation that give the present levels.
  // nMethod 1: by mean, 2: by median, otherwise by shares of the pixels.
  void Get(double &fLow, double &fHigh, int nMethod, CRect *rect);
  void GetByMean(double &fLow, double &fHigh, CRect *rect);
  void GetByMedian(double &fLow, double &fHigh, CRect *rect);
  void GetByNormal(double &fLow, double &fHigh, CRect *rect);

  // Statistics. A plane that a colour image lacks reads no pixel: counts 0,
  // deviations 0, medians NaN.
  void GetMedian(float *pMedian, int bSampling, int bBrightness, int nPlane, CRect *rect);
  void GetMedianBayer(float *pMedian, int bSampling);
  void GetMedianHoneyComb(double *pGain, int bSampling);
  void GetMode(float *pMode, float *pLow, float *pHigh, int bBrightness, int nPlane, CRect *rect);
  void GetLevelRangeNum(float fMin, float fMax, int *pCount, int nPlane, CRect *rect);
  void GetLevelRangeStd(float fMin, float fMax, double *pStd, int nPlane, CRect *rect);
  void GetLevelDoubleRangeStd(float fMin, float fMax, double *pStd, int bBrightness, int nPlane, CRect *rect);
};
