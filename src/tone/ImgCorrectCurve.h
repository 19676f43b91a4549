// CImgCorrectCurve: a closed-form curve between two limits that lifts the
// middle of the range along a superellipse, (1 - (1 - u)^p)^(1/p), keeping both
// ends; p = 1 is the identity. Pixels outside the open range are copied.
// A plain row loop on every store.
#pragma once
#include "Export.h"
#include "core/LmrImage.h"

class QORIMG_API CImgCorrectCurve : public CLmrImage {
public:
  CImgCorrectCurve();
  CImgCorrectCurve(const CImgCorrectCurve &source);
  ~CImgCorrectCurve() override;

  // One plane, limits in pixel units. 1 when done, 0 when refused. The plane
  // test is kept in its reverse sense: a plane number up to the smaller plane
  // count is refused, and a larger one is accepted but names no plane, so
  // nothing changes.
  int Do(double fPower, double fLow, double fHigh, int nPlane, CLmrImage *pSrc, CRect *rect, int bProgress);
  // All planes, limits on the 0..255 display scale of the source's levels.
  int Do(double fPower, double fLow, double fHigh, CLmrImage *pSrc, CRect *rect, int bProgress);
};
