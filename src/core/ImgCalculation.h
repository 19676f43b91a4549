// CImgCalculation: adds, subtracts, multiplies or divides the raw samples by a
// constant, for instance to remove a pedestal or scale a frame before stacking.
// The levels are not touched. Routes: kernel pipeline on whole-plane images, a
// 128-bit vector loop (modes 0 to 3) and the plain line loop on block-stored ones.
#pragma once
#include "Export.h"
#include "core/LmrImage.h"

class QORIMG_API CImgCalculation : public CLmrImage {
public:
  enum CalcMode { Add = 0, Subtract = 1, Multiply = 2, Divide = 3 };

  // nMode 0 adds fValue, 1 subtracts (with bClip the result is at least 0.0), 2
  // multiplies, 3 divides. Works on `rect` of pSrc (null: the whole image) into
  // this image; pixels outside the rectangle are not touched.
  void Do(double fValue, int nMode, int bClip, CLmrImage *pSrc, CRect *rect, int bProgress);

  // The same operation with any image as the target, for code that holds a plain
  // CLmrImage.
  static void Calculate(CLmrImage &target, double fValue, int nMode, int bClip, CLmrImage *pSrc, CRect *rect,
                        int bProgress);

protected:
  void DoCalculation(float fValue, int nMode, int bClip, CLmrImage *pSrc, int left, int right, int top,
                     int bottom);
  void DoCalculation_x_add(float fValue, CLmrImage *pSrc, int left, int right, int top, int bottom);
  void DoCalculation_x_mul(float fValue, CLmrImage *pSrc, int left, int right, int top, int bottom);
  void DoCalculation_x_sub(float fValue, int bClip, CLmrImage *pSrc, int left, int right, int top, int bottom);
};
