// Line functions of CImgCalculation: the plain arithmetic and its SSE form.
#include "core/ImgCalculationLines.h"

#include <immintrin.h>

#include "core/ImgCalculation.h"
#include "core/LineLoops.h"
#include "core/OperatorRunner.h"

namespace qorimg {

void CalculationLine(float *d, const float *s, int count, float value, int mode, int clip) {
  switch (mode) {
    case CImgCalculation::Add:
      for (int x = 0; x < count; ++x) d[x] = s[x] + value;
      return;
    case CImgCalculation::Subtract:
      if (clip)
        for (int x = 0; x < count; ++x) {
          const float r = s[x] - value;
          d[x] = r > 0.0f ? r : 0.0f;  // NaN becomes 0.0 too
        }
      else
        for (int x = 0; x < count; ++x) d[x] = s[x] - value;
      return;
    case CImgCalculation::Multiply:
      for (int x = 0; x < count; ++x) d[x] = s[x] * value;
      return;
    case CImgCalculation::Divide:
      if (value != 0.0f) {
        for (int x = 0; x < count; ++x) d[x] = s[x] / value;
        return;
      }
      [[fallthrough]];  // division by zero leaves the samples as they are
    default:
      for (int x = 0; x < count; ++x) d[x] = s[x];
  }
}

// With clip, a vector maximum against zero; _mm_max_ps gives its second operand
// (zero) for a NaN difference, and the scalar form is written to match.
void VectorCalculation::operator()(float *d, const float *s, int count) const {
  const float value = value_;
  const __m128 v = _mm_set1_ps(value);
  const __m128 zero = _mm_setzero_ps();
  switch (mode_) {
    case CImgCalculation::Add:
      VectorLine(
          d, s, count, [value](float a) { return a + value; }, [v](__m128 a) { return _mm_add_ps(a, v); });
      return;
    case CImgCalculation::Subtract:
      if (clip_)
        VectorLine(
            d, s, count,
            [value](float a) {
              const float r = a - value;
              return r > 0.0f ? r : 0.0f;
            },
            [v, zero](__m128 a) { return _mm_max_ps(_mm_sub_ps(a, v), zero); });
      else
        VectorLine(
            d, s, count, [value](float a) { return a - value; }, [v](__m128 a) { return _mm_sub_ps(a, v); });
      return;
    default:
      VectorLine(
          d, s, count, [value](float a) { return a * value; }, [v](__m128 a) { return _mm_mul_ps(a, v); });
  }
}

void RunVectorCalculation(CLmrImage &target, const VectorCalculation &vector, CLmrImage &src, const LineRect &rect) {
  RunLineLoop(
      target, rect, {0, target.GetPlanes()},
      [&](int p, int y) {
        vector(target.GetImageAdr(rect.left, y, p), src.GetImageAdr(rect.left, y, p, CImage::ReadOnly), rect.Width());
      },
      true);
  _mm_sfence();
}

}  // namespace qorimg
