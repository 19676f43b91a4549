// CImgInvert: the negative on the plain loop, the 128-bit vector loop and the
// invert_float pipeline, all with one formula in one order.
#include "tone/ImgInvert.h"

#include "core/LineLoops.h"
#include "core/OperatorRunner.h"
#include "kernels/Tone.h"

CImgInvert::CImgInvert() = default;
CImgInvert::~CImgInvert() = default;

// (255 - (v - src min) / src range * 255) / 255 * range + min, in float.
float CImgInvert::InvertPixel(float v, float fMin, float fInvRange, float fOutMin, float fOutRange) const {
  return (255.0f - (v - fMin) * fInvRange * 255.0f) * 0.003921569f * fOutRange + fOutMin;
}

void CImgInvert::InvertLine(int plane, int y, CLmrImage &src, int left, int right, bool vector) {
  const float inMin = static_cast<float>(src.GetLevelMin(plane));
  const float inv = 1.0f / static_cast<float>(src.GetLevelRange(plane));
  const float outMin = static_cast<float>(GetLevelMin(plane)), outRange = static_cast<float>(GetLevelRange(plane));
  const float *s = src.GetImageAdr(left, y, plane, CImage::ReadOnly);
  float *d = GetImageAdr(left, y, plane);
  const int count = right - left;
  auto scalar = [&](float v) { return InvertPixel(v, inMin, inv, outMin, outRange); };
  if (!vector) {
    for (int x = 0; x < count; ++x) d[x] = scalar(s[x]);
    return;
  }
  const __m128 vMin = _mm_set1_ps(inMin), vInv = _mm_set1_ps(inv), full = _mm_set1_ps(255.0f);
  const __m128 step = _mm_set1_ps(0.003921569f), vRange = _mm_set1_ps(outRange), vOut = _mm_set1_ps(outMin);
  qorimg::VectorLine(d, s, count, scalar, [&](__m128 v) {
    const __m128 u = _mm_mul_ps(_mm_mul_ps(_mm_sub_ps(v, vMin), vInv), full);
    return _mm_add_ps(_mm_mul_ps(_mm_mul_ps(_mm_sub_ps(full, u), step), vRange), vOut);
  });
}

void CImgInvert::Do(CLmrImage *pSrc, CRect *rect, int bProgress) {
  const qorimg::LineRect r = qorimg::ClipRect(*this, rect);
  const int planes = GetPlanes();
  qorimg::RouteTable routes;
  routes.parallelLines = true;
  routes.line = [&](int p, int y) { InvertLine(p, y, *pSrc, r.left, r.right, false); };
  routes.vector = [&](int p, int y) { InvertLine(p, y, *pSrc, r.left, r.right, true); };
  routes.pipeline = [&](int p, qorimg::PlaneOutput &output) {
    return invert_float(qorimg::InputPlane(*pSrc, p), static_cast<float>(pSrc->GetLevelMin(p)),
                        static_cast<float>(pSrc->GetLevelRange(p)), static_cast<float>(GetLevelMin(p)),
                        static_cast<float>(GetLevelRange(p)), output);
  };
  qorimg::RunOperator({*this, bProgress, 6124, planes * r.Height(), r, {0, planes}},
                      {{this, planes}, {pSrc, planes}}, routes);
}

void CImgInvert::DoInvert(CLmrImage *pSrc, int left, int right, int top, int bottom) {
  qorimg::RunLineLoop(
      *this, {left, top, right, bottom}, {0, GetPlanes()},
      [&](int p, int y) { InvertLine(p, y, *pSrc, left, right, false); }, true);
}

void CImgInvert::DoInvert_x(CLmrImage *pSrc, int left, int right, int top, int bottom) {
  qorimg::RunLineLoop(
      *this, {left, top, right, bottom}, {0, GetPlanes()},
      [&](int p, int y) { InvertLine(p, y, *pSrc, left, right, true); }, true);
  _mm_sfence();
}
