// CImgHstEql: histogram equalisation by rank. Every pixel's rank among the
// pixels of its plane sets its value, so that the result's histogram is flat
// whatever the data; equal pixels spread over their ranks in a random (but
// reproducible) order. The source's levels are set to its range. Whole image,
// progress always shown.
#pragma once
#include "Export.h"
#include "core/LmrImage.h"

class QORIMG_API CImgHstEql : public CLmrImage {
public:
  CImgHstEql();
  CImgHstEql(const CImgHstEql &source);
  ~CImgHstEql() override;

  // Always 1.
  int Do(CLmrImage *pSrc);
};
