// CImgFlip: mirrors a frame top to bottom (nDirection 0) or left to right (1),
// as a diagonal or a star diagonal leaves it. Any other nDirection shows the
// progress text of 6128 and changes nothing. Route: a parallel line loop.
#pragma once
#include "Export.h"
#include "core/LmrImage.h"

class QORIMG_API CImgFlip : public CLmrImage {
public:
  CImgFlip() = default;
  ~CImgFlip() override = default;

  void Do(int nDirection, CLmrImage *src, int bProgress);
};
