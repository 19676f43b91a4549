// CImgCalculation: the routes of the constant arithmetic, run by the operator
// runner. The vector lines are in ImgCalculationLines.cpp.
#include "core/ImgCalculation.h"

#include "core/ImgCalculationLines.h"
#include "core/OperatorRunner.h"
#include "kernels/Arithmetic.h"

namespace {

using qorimg::LineRect;

// Division on the vector and pipeline routes is a multiplication by the
// reciprocal, computed in double and rounded to float.
float Reciprocal(float value) { return static_cast<float>(1.0 / value); }

int RunScalarPipeline(int nMode, int bClip, float operand, const CLmrImage &src, int plane,
                      qorimg::PlaneOutput &output) {
  auto input = qorimg::InputPlane(src, plane);
  switch (nMode) {
    case CImgCalculation::Add: return add_scalar_float(input, operand, output);
    case CImgCalculation::Subtract:
      return bClip ? sub0_scalar_float(input, operand, output) : sub_scalar_float(input, operand, output);
    default: return mul_scalar_float(input, operand, output);  // Multiply, and Divide by the reciprocal
  }
}

LineRect Rect(int left, int right, int top, int bottom) { return {left, top, right, bottom}; }

}  // namespace

void CImgCalculation::Calculate(CLmrImage &target, double fValue, int nMode, int bClip, CLmrImage *pSrc,
                                CRect *rect, int bProgress) {
  const LineRect r = qorimg::ClipRect(target, rect);
  const int planes = target.GetPlanes();
  const float value = static_cast<float>(fValue);
  // Unknown modes, and division by zero, do nothing at all on the fast routes.
  const bool known = nMode >= Add && nMode <= Divide && !(nMode == Divide && value == 0.0f);
  const float operand = nMode == Divide && known ? Reciprocal(value) : value;

  qorimg::RouteTable routes;
  routes.line = [&](int p, int y) {
    qorimg::CalculationLine(target.GetImageAdr(r.left, y, p), pSrc->GetImageAdr(r.left, y, p, CImage::ReadOnly),
                            r.Width(), value, nMode, bClip);
  };
  const qorimg::VectorCalculation vector(nMode == Divide ? Multiply : nMode, operand, bClip);
  if (known) {
    routes.vector = [&](int p, int y) {
      vector(target.GetImageAdr(r.left, y, p), pSrc->GetImageAdr(r.left, y, p, CImage::ReadOnly), r.Width());
    };
    routes.pipeline = [&](int p, qorimg::PlaneOutput &output) {
      return RunScalarPipeline(nMode, bClip, operand, *pSrc, p, output);
    };
  } else {
    routes.fastRoutesSkip = true;
  }
  qorimg::RunOperator({target, bProgress, 6109, r.Height() * planes, r, {0, planes}},
                      {{&target, planes}, {pSrc, planes}}, routes);
}

void CImgCalculation::Do(double fValue, int nMode, int bClip, CLmrImage *pSrc, CRect *rect, int bProgress) {
  Calculate(*this, fValue, nMode, bClip, pSrc, rect, bProgress);
}

void CImgCalculation::DoCalculation(float fValue, int nMode, int bClip, CLmrImage *pSrc, int left, int right,
                                    int top, int bottom) {
  qorimg::RunLineLoop(
      *this, Rect(left, right, top, bottom), {0, GetPlanes()},
      [&](int p, int y) {
        qorimg::CalculationLine(GetImageAdr(left, y, p), pSrc->GetImageAdr(left, y, p, CImage::ReadOnly), right - left,
                                fValue, nMode, bClip);
      },
      false);
}

void CImgCalculation::DoCalculation_x_add(float fValue, CLmrImage *pSrc, int left, int right, int top,
                                          int bottom) {
  qorimg::RunVectorCalculation(*this, qorimg::VectorCalculation(Add, fValue, 0), *pSrc, Rect(left, right, top, bottom));
}

void CImgCalculation::DoCalculation_x_mul(float fValue, CLmrImage *pSrc, int left, int right, int top,
                                          int bottom) {
  qorimg::RunVectorCalculation(*this, qorimg::VectorCalculation(Multiply, fValue, 0), *pSrc,
                               Rect(left, right, top, bottom));
}

void CImgCalculation::DoCalculation_x_sub(float fValue, int bClip, CLmrImage *pSrc, int left, int right, int top,
                                          int bottom) {
  qorimg::RunVectorCalculation(*this, qorimg::VectorCalculation(Subtract, fValue, bClip), *pSrc,
                               Rect(left, right, top, bottom));
}
