// CImgBright: brightness and contrast per plane on the display scale, the
// contrast turning about a fixed point fAverage (0..255). Routes: kernel
// pipeline on whole-plane images, a 128-bit vector loop or the plain loop on
// block-stored ones; a plane with brightness and contrast 0 is copied bit for
// bit on the loops, and computed by the formula on the pipeline.
#pragma once
#include "Export.h"
#include "core/LmrImage.h"

class QORIMG_API CImgBright : public CLmrImage {
public:
  CImgBright();
  CImgBright(const CImgBright &source);
  ~CImgBright() override;

  // One brightness and one contrast (256: a gain of 2) for each plane. Null
  // arrays do nothing.
  void Do(float *const pBright, float *const pContrast, double fAverage, CLmrImage *pSrc, CRect *rect, int bProgress);

protected:
  void DoBright(float *const pBright, float *const pContrast, float fAverage, CLmrImage *pSrc, int left, int right,
                int top, int bottom);
  void DoBright_x(float *const pBright, float *const pContrast, float fAverage, CLmrImage *pSrc, int left, int right,
                  int top, int bottom);

private:
  float BrightPixel(float v, float fMin, float fScale, float fInvScale, float fAverage, float fContrast,
                    float fBright) const;
  void BrightLine(int plane, int y, const float *bright, const float *contrast, float average, CLmrImage &src,
                  int left, int right, bool vector);
};
