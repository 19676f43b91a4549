// CImgBright: the brightness and contrast formula on the display scale, on the
// plain loop, the 128-bit vector loop and the bright_float pipeline.
#include "tone/ImgBright.h"

#include <cstring>
#include "core/LineLoops.h"
#include "core/OperatorRunner.h"
#include "kernels/Tone.h"

namespace {

struct BrightTerms {
  float min, scale, invScale, average, contrast, bright;
  bool copy;  // brightness and contrast both 0
};

BrightTerms TermsOf(const CLmrImage &image, int plane, const float *bright, const float *contrast, float average) {
  const float range = static_cast<float>(image.GetLevelRange(plane));
  return {static_cast<float>(image.GetLevelMin(plane)), 255.0f / range, range / 255.0f, average,
          contrast[plane] * 0.00390625f, bright[plane], bright[plane] == 0.0f && contrast[plane] == 0.0f};
}

}  // namespace

CImgBright::CImgBright() = default;
CImgBright::CImgBright(const CImgBright &source) = default;
CImgBright::~CImgBright() = default;

// u = (v - m) k; out = ((u - average) f + b + u) i + m.
float CImgBright::BrightPixel(float v, float fMin, float fScale, float fInvScale, float fAverage, float fContrast,
                              float fBright) const {
  const float u = (v - fMin) * fScale;
  return ((u - fAverage) * fContrast + fBright + u) * fInvScale + fMin;
}

void CImgBright::BrightLine(int plane, int y, const float *bright, const float *contrast, float average,
                            CLmrImage &src, int left, int right, bool vector) {
  const BrightTerms t = TermsOf(*this, plane, bright, contrast, average);
  const float *s = src.GetImageAdr(left, y, plane, CImage::ReadOnly);
  float *d = GetImageAdr(left, y, plane);
  const int count = right - left;
  if (t.copy) {
    std::memmove(d, s, static_cast<std::size_t>(count) * sizeof(float));
    return;
  }
  auto scalar = [&](float v) { return BrightPixel(v, t.min, t.scale, t.invScale, t.average, t.contrast, t.bright); };
  if (!vector) {
    for (int x = 0; x < count; ++x) d[x] = scalar(s[x]);
    return;
  }
  const __m128 min = _mm_set1_ps(t.min), scale = _mm_set1_ps(t.scale), inv = _mm_set1_ps(t.invScale);
  const __m128 avg = _mm_set1_ps(t.average), f = _mm_set1_ps(t.contrast), b = _mm_set1_ps(t.bright);
  qorimg::VectorLine(d, s, count, scalar, [&](__m128 v) {
    const __m128 u = _mm_mul_ps(_mm_sub_ps(v, min), scale);
    const __m128 w = _mm_add_ps(_mm_add_ps(_mm_mul_ps(_mm_sub_ps(u, avg), f), b), u);
    return _mm_add_ps(_mm_mul_ps(w, inv), min);
  });
}

void CImgBright::Do(float *const pBright, float *const pContrast, double fAverage, CLmrImage *pSrc, CRect *rect,
                    int bProgress) {
  if (!pBright || !pContrast) return;
  const qorimg::LineRect r = qorimg::ClipRect(*this, rect);
  const int planes = GetPlanes();
  const float average = static_cast<float>(fAverage);
  qorimg::RouteTable routes;
  routes.parallelLines = true;
  routes.line = [&](int p, int y) { BrightLine(p, y, pBright, pContrast, average, *pSrc, r.left, r.right, false); };
  routes.vector = [&](int p, int y) { BrightLine(p, y, pBright, pContrast, average, *pSrc, r.left, r.right, true); };
  routes.pipeline = [&](int p, qorimg::PlaneOutput &output) {
    return bright_float(qorimg::InputPlane(*pSrc, p), static_cast<float>(GetLevelMin(p)),
                        static_cast<float>(GetLevelRange(p)), average, pBright[p], pContrast[p], output);
  };
  qorimg::RunOperator({*this, bProgress, 6115, planes * r.Height(), r, {0, planes}},
                      {{this, planes}, {pSrc, planes}}, routes);
}

void CImgBright::DoBright(float *const pBright, float *const pContrast, float fAverage, CLmrImage *pSrc, int left,
                          int right, int top, int bottom) {
  qorimg::RunLineLoop(
      *this, {left, top, right, bottom}, {0, GetPlanes()},
      [&](int p, int y) { BrightLine(p, y, pBright, pContrast, fAverage, *pSrc, left, right, false); }, true);
}

void CImgBright::DoBright_x(float *const pBright, float *const pContrast, float fAverage, CLmrImage *pSrc, int left,
                            int right, int top, int bottom) {
  qorimg::RunLineLoop(
      *this, {left, top, right, bottom}, {0, GetPlanes()},
      [&](int p, int y) { BrightLine(p, y, pBright, pContrast, fAverage, *pSrc, left, right, true); }, true);
  _mm_sfence();
}
