// CImgDark: a dark frame for conditions at which none was taken (another
// exposure time or temperature), interpolated between two that exist. The
// object is the first dark frame and receives the result; pDark is the second.
// Each pixel is computed in double from a (this image) and b (pDark) and
// rounded to float; plane c of both frames is used, over the planes both have.
// Equal abscissae (fX1 == fX2, fY1 == fY2) divide by zero and give non-finite
// pixels.
#pragma once
#include "Export.h"
#include "core/LmrImage.h"

class QORIMG_API CImgDark : public CLmrImage {
public:
  CImgDark() = default;
  CImgDark(const CImgDark &source) = default;
  ~CImgDark() override = default;

  // Linear in both quantities: (b - a) p + a + (b - a) q with
  // p = (fX - fX1) / (fX2 - fX1), q = (fY - fY1) / (fY2 - fY1).
  void DoInterpolateByProportion(CLmrImage *pDark, double fX1, double fX2, double fX, double fY1, double fY2,
                                 double fY, int bProgress);
  // Linear in X, by a power of two in Y: (b - a) p + a + a r with
  // r = 2^(Y0 - fY / fYScale), Y0 the nearer of fY1 and fY2.
  void DoInterpolateByPower(CLmrImage *pDark, double fX1, double fX2, double fX, double fY1, double fY2, double fY,
                            double fYScale, int bProgress);
  // Linear in X, limited by the two frames: (b - a) p + a, at most b, at
  // least a. The target fX stands first.
  void DoInterpolateByScore(CLmrImage *pDark, double fX, double fX1, double fX2, int bProgress);
};
