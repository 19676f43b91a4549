// CImgFalseColor: colours a frame by brightness through one of six palettes
// (0 blue to red, 1 black to white through the hues, 2 deep blue, 3 cyan tones,
// 4 red tones, 5 heat; other numbers grey), optionally repeated nCycle times
// over the range fMin..fMax. The target must be a colour image. A parallel row
// loop.
#pragma once
#include "Export.h"
#include "core/LmrImage.h"

class QORIMG_API CImgFalseColor : public CLmrImage {
public:
  CImgFalseColor();
  CImgFalseColor(const CImgFalseColor &source);
  ~CImgFalseColor() override;

  void Do(double fMin, double fMax, int nTable, int nCycle, CLmrImage *pSrc, CRect *rect, int bProgress);

protected:
  // The palette colour (0..255 per channel) of a value on the 0..255 scale.
  void GetFalseColor(float u, int nTable, int nCycle, float *pRed, float *pGreen, float *pBlue);
};
