// CImgCrop: cuts a rectangle out of a frame into this image, to keep the part
// with the object or drop a ragged border. Routes: crop_float on whole-plane
// images (no progress steps), a row copy with one progress step per row on others.
#pragma once
#include "Export.h"
#include "core/LmrImage.h"

class QORIMG_API CImgCrop : public CLmrImage {
public:
  CImgCrop() = default;
  ~CImgCrop() override = default;

  // The rectangle must lie in src (it is not clamped); 0, with nothing changed,
  // for one that does not, is empty or inverted, or whose size cannot be had.
  int Do(CRect rect, CLmrImage *src, int bProgress);
};
