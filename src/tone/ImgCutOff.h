// CImgCutOff: replaces the pixels at or beyond the source's levels, those at
// or below the black level by fLow and those at or above the white level by
// fHigh. One sequential loop, vectorised by hand, on every store.
#pragma once
#include "Export.h"
#include "core/LmrImage.h"

class QORIMG_API CImgCutOff : public CLmrImage {
public:
  CImgCutOff();
  CImgCutOff(const CImgCutOff &source);
  ~CImgCutOff() override;

  void Do(CLmrImage *pSrc, float fLow, float fHigh, CRect *rect, int bProgress);

protected:
  void DoCutOff(CLmrImage *pSrc, float fLow, float fHigh, int left, int right, int top, int bottom);
};
