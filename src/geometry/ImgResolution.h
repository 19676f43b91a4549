// CImgResolution: changes the pixel count of a frame by resampling, to match
// the scale of another camera or to make a preview. Positions are at pixel
// corners (no half-pixel offset): output (0, 0) is source (0, 0) at every ratio.
// Routes: the resolution pipelines on whole-plane images, line loops on others.
//
// The routes differ where the design says they do:
// - Do (bilinear): the pipeline clamps its taps, the line path extrapolates past
//   the last row and column (fractions above 1 there);
// - Bicubic: the pipeline clamps with a = -0.1 unnormalised, the line path
//   normalises its a = -0.1 weights, reads |i| for a negative index and index 0
//   for an index past the end;
// - DoChange with method 1: the pipeline uses a = -0.1, the line path CInterp's
//   a = -0.5.
#pragma once
#include "Export.h"
#include "core/LmrImage.h"

class QORIMG_API CImgResolution : public CLmrImage {
public:
  CImgResolution() = default;
  ~CImgResolution() override = default;

  // Bilinear resampling of src to nWidth x nHeight into this image. 0 when the
  // new size cannot be had.
  int Do(CLmrImage *src, int nWidth, int nHeight, int bProgress);
  int Bilinear(CLmrImage *src, int nWidth, int nHeight, int bProgress);
  int Bicubic(CLmrImage *src, int nWidth, int nHeight, int bProgress);
  // Any method of CInterp (0 to 4).
  int DoChange(CLmrImage *src, int nWidth, int nHeight, int nMethod, int bProgress);

protected:
  // The bilinear line path for one plane; fWidth, fHeight the source's size.
  void DoBilinear(CLmrImage *src, float fWidth, float fHeight, int nPlane);
};
