// CImgScroll: a cyclic shift of a frame by nAmount columns (bHorizontal) or
// rows, for instance to move the centre of a Fourier spectrum to the corner.
// A negative amount scrolls the other way. Route: a parallel line loop.
#pragma once
#include "Export.h"
#include "core/LmrImage.h"

class QORIMG_API CImgScroll : public CLmrImage {
public:
  CImgScroll() = default;
  ~CImgScroll() override = default;

  void Do(int nAmount, int bHorizontal, CLmrImage *src, int bProgress);
};
