// CImgComposit: joins two frames A and B pixel by pixel after moving B by a
// shift and a rotation (degrees; a positive shift moves B right and down). The
// object is the destination D, prepared with A's size; A and B may be D itself
// (the work then reads a copy).
//
// Modes: 0 average, 1 add, 2 weight (a (1 - w) + b w), 3 subtract (cut at 0
// with bCutMinus), 4 multiply, 5 divide, 6 absolute difference, 7 brighter,
// 8 darker, 9 neighbour composite, 10 and above (and negative modes): A. With
// bLevel the arithmetic runs on the 0..255 scale of the planes' levels. Where B
// has no sample the outside value takes its place: 255 in modes 4 and 5, else 0.
//
// Routes of Do: when D, A and B are all whole-plane stores (policy 1) the
// composit_* pipelines compute the result into a fresh clone of A, which then
// takes D's place; otherwise a row loop reads B through CInterp. They differ on
// purpose:
// - a fractional shift or a rotation is always bicubic in the pipelines, while
//   the row loop honours nInterp;
// - inside tests: the pipelines test in float against [0, W) x [0, H), the row
//   loop's rotation against [0, W - 1] x [0, H - 1];
// - composit_intshift_level_* scales the outside value by 255 / B's level
//   range, so modes 4 and 5 are not neutral at its edge;
// - mode 10 and above: the pipeline copies A bit for bit, the row loop goes
//   through the 0..255 scale and back;
// - a partial rectangle: the pipelines compute it widened to at least 64 x 32,
//   and D becomes the clone (0 outside that, A's header, levels and points);
//   the row loop writes the rectangle of D only;
// - the pipelines show no progress; the row loop shows one step a row.
#pragma once
#include "Export.h"
#include "core/LmrImage.h"

class QORIMG_API CImgComposit : public CLmrImage {
public:
  CImgComposit() = default;
  ~CImgComposit() override = default;

  // nMessage -1 shows message 6107. bUseStdPtCtr turns about B's standard-point
  // centre, else about B's middle. Mode 9 goes to the neighbour composite.
  void Do(CLmrImage *pA, CLmrImage *pB, double dx, double dy, double rotation, int bUseStdPtCtr, int nMode,
          int nInterp, double weight, int bLevel, int bCutMinus, double threshold, int nRadius, CRect *rect,
          int bShowProgress, int nMessage);
  // Weight 0.5, no cut, threshold 0.95, radius 0, the whole image, no progress.
  void Do(CLmrImage *pA, CLmrImage *pB, double dx, double dy, double rotation, int bUseStdPtCtr, int nMode,
          int nInterp, int bLevel);
  // The earlier release's composite: bilinear row fetchers, rotation about B's
  // standard-point centre, no pipelines. Mode 9 goes to Abr.
  void Do65(CLmrImage *pA, CLmrImage *pB, double dx, double dy, double rotation, int nMode, double weight,
            int bLevel, int bCutMinus, double threshold, int nRadius, CRect *rect, int bShowProgress, int nMessage);
  void Do65(CLmrImage *pA, CLmrImage *pB, double dx, double dy, double rotation, int nMode, int bLevel);
  // The neighbour composite of Do65, B read through the image's own
  // transformed sampling.
  void Abr(CLmrImage *pA, CLmrImage *pB, double dx, double dy, double rotation, int nMode, double weight,
           int bLevel, int bCutMinus, double threshold, int nRadius, CRect *rect, int bShowProgress, int nMessage);

private:
  void DoComposit(CLmrImage *pA, CLmrImage *pB, double dx, double dy, double rotation, int bUseStdPtCtr, int nMode,
                  int nInterp, double weight, int bLevel, int bCutMinus, CRect *rect, int bShowProgress,
                  int nMessage);
  void DoComposit(CLmrImage *pA, CLmrImage *pB, double dx, double dy, double rotation, int nMode, double weight,
                  int bLevel, int bCutMinus, CRect *rect, int bShowProgress, int nMessage);
  void DoNbrComposit(CLmrImage *pA, CLmrImage *pB, double dx, double dy, double rotation, int nMode, int nInterp,
                     double weight, int bLevel, int bCutMinus, double threshold, int nRadius, CRect *rect,
                     int bShowProgress, int nMessage);
  // Row fetchers of the earlier composite: B's samples for source columns x0
  // .. x1 of source row y into pDst (one line per plane of A), each plane of B
  // mapped by (v - pMin[p]) * pScale[p] before a colour B is joined for a
  // mono A; fOutside where B has no sample.
  void GetBLine_int(int x0, int x1, int y, CLmrImage *pB, float fOutside, int bColorA, int bColorB,
                    float *const *pDst, const float *pMin, const float *pScale);
  void GetBLine_float(double x0, double x1, double y, CLmrImage *pB, float fOutside, int bColorA, int bColorB,
                      float *const *pDst, const float *pMin, const float *pScale);
  void GetBLine_rotate(double x0, double x1, double y, double fCos, double fSin, CLmrImage *pB, float fOutside,
                       int bColorA, int bColorB, float *const *pDst, const float *pMin, const float *pScale);
  // 255 for modes 4 and 5, 0 otherwise.
  double GetOutsideValue(int nMode);
};
