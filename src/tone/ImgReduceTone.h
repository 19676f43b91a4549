// CImgReduceTone: posterises each plane to nTones steps (clamped to 1..256)
// of the display scale; the top step is (n - 1) / n of full scale, so white is
// never reached. A parallel row loop.
#pragma once
#include "Export.h"
#include "core/LmrImage.h"

class QORIMG_API CImgReduceTone : public CLmrImage {
public:
  CImgReduceTone();
  CImgReduceTone(const CImgReduceTone &source);
  ~CImgReduceTone() override;

  void Do(int nTones, CLmrImage *pSrc, CRect *rect, int bProgress);
};
