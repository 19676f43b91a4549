// CImgRotate: turns a frame by any angle with one of the five interpolation
// methods, or by half and quarter turns without resampling, for instance to
// put north up or to match a frame to another before stacking. Routes: the
// kernel pipelines on whole-plane images, the CInterp line reader on others.
//
// The two routes of Do differ where the design says they do:
// - centre: the pipeline turns about (Ws * 0.5, Hs * 0.5), the line path about
//   the source's default centre (W / 2, H / 2 in integers), so on odd sizes the
//   two are half a pixel apart;
// - inside test: the pipeline accepts px < Ws, the line path px <= Ws - 1, so
//   they differ in the last column and row of the source;
// - arithmetic: float in the pipeline, double on the line path;
// - an unknown nMethod leaves the target as it was created on the pipeline
//   route and writes 0.0 inside the source's area on the line path.
#pragma once
#include "Export.h"
#include "core/LmrImage.h"

class QORIMG_API CImgRotate : public CLmrImage {
public:
  CImgRotate() = default;
  ~CImgRotate() override = default;

  // Turns src by fAngle degrees (counter-clockwise on the screen) into this
  // image. crFill is a colour (R in the low byte); a mono image fills with its
  // brightness, a colour one with R alone, on plane 0's levels. bExpand grows
  // the canvas to hold the turned pixel centres. 0 when the new size cannot be
  // had or the angle is not finite.
  int Do(double fAngle, unsigned long crFill, CLmrImage *src, int bExpand, int nMethod, int bProgress);
  // A copy of all planes.
  void Do0(CLmrImage *src, int bProgress);
  // A half turn.
  void Do180(CLmrImage *src, int bProgress);
  // A quarter turn: nDirection 0 counter-clockwise (source column 0 becomes the
  // bottom row), any other value clockwise. 0 when the new size cannot be had.
  int Do90(int nDirection, CLmrImage *src, int bProgress);
};
