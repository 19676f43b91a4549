// The line loops of CImgCalculation, shared by the operator class and by code
// that calculates on a plain image.
#pragma once
#include "core/LmrImage.h"

namespace qorimg {

void CalculationPlainLoop(CLmrImage &target, float value, int mode, int clip, CLmrImage &src, int left,
                          int right, int top, int bottom);
// 128-bit vector loops: parallel over lines, unaligned loads from the source and
// aligned non-temporal stores to the target.
void CalculationVectorAdd(CLmrImage &target, float value, CLmrImage &src, int left, int right, int top,
                          int bottom);
void CalculationVectorMul(CLmrImage &target, float value, CLmrImage &src, int left, int right, int top,
                          int bottom);
void CalculationVectorSub(CLmrImage &target, float value, int clip, CLmrImage &src, int left, int right,
                          int top, int bottom);

}  // namespace qorimg
