// CImgResize: a new canvas without resampling, the frame placed at one of nine
// anchors (0 top left .. 8 bottom right; outside 0..8 counts as 0) and the rest
// filled per plane, to pad a frame for mosaics or trim it evenly. Routes: the
// paste-with-fill pipeline on whole-plane images, a line loop with the same
// result on others.
#pragma once
#include "Export.h"
#include "core/LmrImage.h"

class QORIMG_API CImgResize : public CLmrImage {
public:
  CImgResize() = default;
  ~CImgResize() override = default;

  // fFill holds one value per plane (null: zeros). 0 when the new size cannot be had.
  int Do(int nWidth, int nHeight, int nAnchor, float *const fFill, CLmrImage *src, int bProgress);
};
