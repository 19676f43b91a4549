// CImgToneCurve: bends the tone scale through look-up tables from the tone-curve
// dialog (a master curve and one per colour plane), and builds the solar
// H-alpha tables that lift faint prominences while the bright disc stays.
// Above the white level a curve goes on with the slope of its last step, so
// values beyond it are not clipped; below the black level they go to 0.
// Routes: kernel pipelines on whole-plane images (no progress at all), a
// parallel row loop otherwise.
#pragma once
#include "Export.h"
#include "core/LmrImage.h"

class QORIMG_API CImgToneCurve : public CLmrImage {
public:
  CImgToneCurve();
  CImgToneCurve(const CImgToneCurve &source);
  ~CImgToneCurve() override;

  // ppCurve[0] is the master curve, ppCurve[1 + c] the curve of plane c; each
  // holds nCount fractions of full scale. bHAlpha only chooses the progress
  // message. A null array or table, or nCount below 1, does nothing.
  void Do(float **const ppCurve, int nCount, CLmrImage *pSrc, CRect *rect, int bProgress, int bHAlpha);
  void DoHAlpha(double fPoint, double fGain, CLmrImage *pSrc, CRect *rect, int bProgress);
  void DoHAlphaLevel(double fFactor, CLmrImage *pSrc);

protected:
  // The curve beyond its ends: 0 below, the last step's slope above.
  double CalcToneCurve(float *pTable, int nLast, double v);
  // One look-up of a value on the 0..255 scale, fScale = nLast / 255.
  double CalcToneNormal(double v, double fScale, float *pTable, int nLast);
};
