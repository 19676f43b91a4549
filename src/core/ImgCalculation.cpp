// CImgCalculation: the frame of Do, the route choice and the plain line loop.
#include "core/ImgCalculation.h"

#include <new>
#include "core/CalculationLoopsInternal.h"
#include "core/OperatorFrame.h"
#include "core/PlaneRoutes.h"

namespace qorimg {

void CalculationPlainLoop(CLmrImage &target, float value, int mode, int clip, CLmrImage &src, int left,
                          int right, int top, int bottom) {
  const int count = right - left;
  for (int p = 0; p < target.GetPlanes(); ++p)
    for (int y = top; y < bottom; ++y) {
      if (count > 0) {
        const float *s = src.GetImageAdr(left, y, p, CImage::ReadOnly);
        float *d = target.GetImageAdr(left, y, p);
        switch (mode) {
          case CImgCalculation::Add:
            for (int x = 0; x < count; ++x) d[x] = s[x] + value;
            break;
          case CImgCalculation::Subtract:
            if (clip)
              for (int x = 0; x < count; ++x) {
                const float r = s[x] - value;
                d[x] = r > 0.0f ? r : 0.0f;  // NaN becomes 0.0 too
              }
            else
              for (int x = 0; x < count; ++x) d[x] = s[x] - value;
            break;
          case CImgCalculation::Multiply:
            for (int x = 0; x < count; ++x) d[x] = s[x] * value;
            break;
          case CImgCalculation::Divide:
            if (value != 0.0f) {
              for (int x = 0; x < count; ++x) d[x] = s[x] / value;
              break;
            }
            [[fallthrough]];  // division by zero leaves the samples as they are
          default:
            for (int x = 0; x < count; ++x) d[x] = s[x];
        }
      }
      target.ShowProgress(1);
    }
}

}  // namespace qorimg

namespace {
// Division on the vector and pipeline routes is a multiplication by the
// reciprocal, computed in double and rounded to float.
float Reciprocal(float value) { return static_cast<float>(1.0 / value); }
}  // namespace

void CImgCalculation::Calculate(CLmrImage &target, double fValue, int nMode, int bClip, CLmrImage *pSrc,
                                CRect *rect, int bProgress) {
  const qorimg::LineRect r = qorimg::ClipRect(target, rect);
  qorimg::ProgressFrame progress(target, bProgress, 6109, r.Height() * target.GetPlanes());
  const float value = static_cast<float>(fValue);
  CLmrImage &src = *pSrc;
  // Unknown modes, and division by zero, do nothing at all on these two routes.
  const bool known = nMode >= Add && nMode <= Divide && !(nMode == Divide && value == 0.0f);

  switch (qorimg::ChooseRoute(true, {&target, pSrc})) {
    case qorimg::Route::Plane: {
      if (!known || r.IsEmpty()) return;
      using qorimg::ScalarPipeline;
      ScalarPipeline pipeline = nMode == Add        ? ScalarPipeline::Add
                                : nMode == Subtract ? (bClip ? ScalarPipeline::SubClip : ScalarPipeline::Sub)
                                                    : ScalarPipeline::Mul;
      const float operand = nMode == Divide ? Reciprocal(value) : value;
      try {
        for (int p = 0; p < target.GetPlanes(); ++p) qorimg::ScalarPlane(src, p, pipeline, operand, r, target);
        return;
      } catch (const std::bad_alloc &) {
        // The temporary of a partial rectangle could not be had: the line loop
        // gives the same samples (the known modes only reach this point).
      }
      qorimg::CalculationPlainLoop(target, value, nMode, bClip, src, r.left, r.right, r.top, r.bottom);
      return;
    }
    case qorimg::Route::Vector:
      if (!known) return;
      switch (nMode) {
        case Add: qorimg::CalculationVectorAdd(target, value, src, r.left, r.right, r.top, r.bottom); break;
        case Subtract:
          qorimg::CalculationVectorSub(target, value, bClip, src, r.left, r.right, r.top, r.bottom);
          break;
        case Multiply: qorimg::CalculationVectorMul(target, value, src, r.left, r.right, r.top, r.bottom); break;
        case Divide:
          qorimg::CalculationVectorMul(target, Reciprocal(value), src, r.left, r.right, r.top, r.bottom);
          break;
      }
      return;
    case qorimg::Route::Block:
      qorimg::CalculationPlainLoop(target, value, nMode, bClip, src, r.left, r.right, r.top, r.bottom);
      return;
  }
}

void CImgCalculation::Do(double fValue, int nMode, int bClip, CLmrImage *pSrc, CRect *rect, int bProgress) {
  Calculate(*this, fValue, nMode, bClip, pSrc, rect, bProgress);
}

void CImgCalculation::DoCalculation(float fValue, int nMode, int bClip, CLmrImage *pSrc, int left, int right,
                                    int top, int bottom) {
  qorimg::CalculationPlainLoop(*this, fValue, nMode, bClip, *pSrc, left, right, top, bottom);
}

void CImgCalculation::DoCalculation_x_add(float fValue, CLmrImage *pSrc, int left, int right, int top,
                                          int bottom) {
  qorimg::CalculationVectorAdd(*this, fValue, *pSrc, left, right, top, bottom);
}

void CImgCalculation::DoCalculation_x_mul(float fValue, CLmrImage *pSrc, int left, int right, int top,
                                          int bottom) {
  qorimg::CalculationVectorMul(*this, fValue, *pSrc, left, right, top, bottom);
}

void CImgCalculation::DoCalculation_x_sub(float fValue, int bClip, CLmrImage *pSrc, int left, int right, int top,
                                          int bottom) {
  qorimg::CalculationVectorSub(*this, fValue, bClip, *pSrc, left, right, top, bottom);
}
