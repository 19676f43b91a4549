// CImgMosaic: joins two frames into this image, a fixed by whole pixels and b
// shifted by a sub-pixel amount and turned about its own centre, to assemble a
// mosaic of overlapping fields. Where both cover a pixel nOverlap decides: 0 b,
// 1 b unless b is the back colour there, 2 the brighter, 3 the darker (on a
// colour image by 0.299 R + 0.587 G + 0.114 B of the whole pixel); bAverage
// takes the mean instead. One route: pixel readers on every store.
//
// Rulings where the design leaves room:
// - fBack and fFill are on the scale in use (raw, or 0..255 with b256), not
//   converted; with b256 the results come back through this image's levels,
//   c / 255 * range + min per plane;
// - b turns about (width * 0.5, height * 0.5) of b;
// - the tolerance of nOverlap 1 is this image's plane-0 range / 256 (1.0 with
//   b256), and nOverlap outside 0..3 acts as 0;
// - a mono target (dimension below 3) takes plane 0 of a colour a or b;
// - a null fFill or fBack means zeros; a non-finite shift or angle does nothing.
#pragma once
#include "Export.h"
#include "core/LmrImage.h"

class QORIMG_API CImgMosaic : public CLmrImage {
public:
  CImgMosaic() = default;
  ~CImgMosaic() override = default;

  // Writes the rectangle of this image (clamped; null: all of it). fBack and
  // fFill hold one value per plane. An empty target is first made like a.
  void Do(CLmrImage *a, int nShiftX, int nShiftY, CLmrImage *b, double fShiftX, double fShiftY, double fAngle,
          int nOverlap, float *const fBack, float *const fFill, int b256, int bAverage, CRect *rect, int bProgress);
};
