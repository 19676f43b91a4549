// CImgInvert: the negative of a frame, read with the source's levels and
// written with this image's, so that the display is inverted; values beyond
// the levels extend beyond the opposite level, unclipped. Routes: kernel
// pipeline on whole-plane images, a 128-bit vector loop or the plain loop.
#pragma once
#include "Export.h"
#include "core/LmrImage.h"

class QORIMG_API CImgInvert : public CLmrImage {
public:
  CImgInvert();
  ~CImgInvert() override;

  void Do(CLmrImage *pSrc, CRect *rect, int bProgress);

protected:
  void DoInvert(CLmrImage *pSrc, int left, int right, int top, int bottom);
  void DoInvert_x(CLmrImage *pSrc, int left, int right, int top, int bottom);

private:
  float InvertPixel(float v, float fMin, float fInvRange, float fOutMin, float fOutRange) const;
  void InvertLine(int plane, int y, CLmrImage &src, int left, int right, bool vector);
};
