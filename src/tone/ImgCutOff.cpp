// CImgCutOff: a sequential line loop, four samples at a time with SSE.
#include "tone/ImgCutOff.h"

#include <immintrin.h>
#include "core/OperatorRunner.h"

namespace {

// d[x] := lo >= v ? fLow : v >= hi ? fHigh : v; a pixel on a level counts as
// outside, NaN stays.
void CutOffLine(float *d, const float *s, int count, float lo, float hi, float fLow, float fHigh) {
  const __m128 vLo = _mm_set1_ps(lo), vHi = _mm_set1_ps(hi), vLow = _mm_set1_ps(fLow), vHigh = _mm_set1_ps(fHigh);
  int x = 0;
  for (; x + 4 <= count; x += 4) {
    const __m128 v = _mm_loadu_ps(s + x);
    const __m128 below = _mm_cmple_ps(v, vLo), above = _mm_cmpge_ps(v, vHi);
    __m128 out = _mm_or_ps(_mm_and_ps(above, vHigh), _mm_andnot_ps(above, v));
    out = _mm_or_ps(_mm_and_ps(below, vLow), _mm_andnot_ps(below, out));
    _mm_storeu_ps(d + x, out);
  }
  for (; x < count; ++x) {
    const float v = s[x];
    d[x] = lo >= v ? fLow : v >= hi ? fHigh : v;
  }
}

}  // namespace

CImgCutOff::CImgCutOff() = default;
CImgCutOff::CImgCutOff(const CImgCutOff &source) = default;
CImgCutOff::~CImgCutOff() = default;

void CImgCutOff::Do(CLmrImage *pSrc, float fLow, float fHigh, CRect *rect, int bProgress) {
  const qorimg::LineRect r = qorimg::ClipRect(*this, rect);
  const int planes = GetPlanes();
  qorimg::RouteTable routes;
  routes.line = [&](int p, int y) {
    CutOffLine(GetImageAdr(r.left, y, p), pSrc->GetImageAdr(r.left, y, p, CImage::ReadOnly), r.Width(),
               static_cast<float>(pSrc->GetLevelMin(p)), static_cast<float>(pSrc->GetLevelMax(p)), fLow, fHigh);
  };
  qorimg::RunOperator({*this, bProgress, 6198, planes * r.Height(), r, {0, planes}},
                      {{this, planes}, {pSrc, planes}}, routes);
}

void CImgCutOff::DoCutOff(CLmrImage *pSrc, float fLow, float fHigh, int left, int right, int top, int bottom) {
  qorimg::RunLineLoop(
      *this, {left, top, right, bottom}, {0, GetPlanes()},
      [&](int p, int y) {
        CutOffLine(GetImageAdr(left, y, p), pSrc->GetImageAdr(left, y, p, CImage::ReadOnly), right - left,
                   static_cast<float>(pSrc->GetLevelMin(p)), static_cast<float>(pSrc->GetLevelMax(p)), fLow, fHigh);
      },
      false);
}
