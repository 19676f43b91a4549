// Vector loops of CImgCalculation (SSE, 4 floats at a time).
#include <immintrin.h>
#include <cstdint>
#include "core/CalculationLoopsInternal.h"
#include "core/OperatorFrame.h"

namespace qorimg {
namespace {

// One line: a scalar head until the target address is 16-byte aligned, groups of
// four with non-temporal stores, a scalar tail. The head is found from the
// address rather than from x, so lines of any width in any store stay aligned
// for the stores; every sample gets the same arithmetic either way.
template <class Scalar, class Vector>
void VectorLine(float *dst, const float *src, int count, Scalar scalar, Vector vector) {
  int x = 0;
  while (x < count && (reinterpret_cast<std::uintptr_t>(dst + x) & 15) != 0) {
    dst[x] = scalar(src[x]);
    ++x;
  }
  for (; x + 4 <= count; x += 4) _mm_stream_ps(dst + x, vector(_mm_loadu_ps(src + x)));
  for (; x < count; ++x) dst[x] = scalar(src[x]);
}

template <class Scalar, class Vector>
void VectorPlanes(CLmrImage &target, CLmrImage &src, int left, int right, int top, int bottom, Scalar scalar,
                  Vector vector) {
  const int count = right - left;
  if (count <= 0) return;
  for (int p = 0; p < target.GetPlanes(); ++p) {
    ParallelLines(top, bottom, [&](int y) {
      const float *s = src.GetImageAdr(left, y, p, CImage::ReadOnly);
      float *d = target.GetImageAdr(left, y, p);
      VectorLine(d, s, count, scalar, vector);
      target.ShowProgress(1);
    });
  }
  // Non-temporal stores are weakly ordered: fence them before the caller reads.
  _mm_sfence();
}

}  // namespace

void CalculationVectorAdd(CLmrImage &target, float value, CLmrImage &src, int left, int right, int top,
                          int bottom) {
  const __m128 v = _mm_set1_ps(value);
  VectorPlanes(
      target, src, left, right, top, bottom, [value](float s) { return s + value; },
      [v](__m128 s) { return _mm_add_ps(s, v); });
}

void CalculationVectorMul(CLmrImage &target, float value, CLmrImage &src, int left, int right, int top,
                          int bottom) {
  const __m128 v = _mm_set1_ps(value);
  VectorPlanes(
      target, src, left, right, top, bottom, [value](float s) { return s * value; },
      [v](__m128 s) { return _mm_mul_ps(s, v); });
}

// With clip, a vector maximum against zero; _mm_max_ps gives its second operand
// (zero) for a NaN difference, and the scalar form is written to match.
void CalculationVectorSub(CLmrImage &target, float value, int clip, CLmrImage &src, int left, int right,
                          int top, int bottom) {
  const __m128 v = _mm_set1_ps(value);
  const __m128 zero = _mm_setzero_ps();
  if (clip)
    VectorPlanes(
        target, src, left, right, top, bottom,
        [value](float s) {
          const float d = s - value;
          return d > 0.0f ? d : 0.0f;
        },
        [v, zero](__m128 s) { return _mm_max_ps(_mm_sub_ps(s, v), zero); });
  else
    VectorPlanes(
        target, src, left, right, top, bottom, [value](float s) { return s - value; },
        [v](__m128 s) { return _mm_sub_ps(s, v); });
}

}  // namespace qorimg
