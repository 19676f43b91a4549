// CImgToneCurve: tables applied by the row loop or the tone_curve pipelines,
// and the solar H-alpha tables and levels.
#include "tone/ImgToneCurve.h"

#include <algorithm>
#include <vector>
#include "core/OperatorRunner.h"
#include "kernels/Tone.h"
#include "tone/ToneInternal.h"

namespace {

// A table index clamped into the table: tables of one entry have no step
// before the last, and the index of a value at the top may round past nLast.
int TableIndex(double t, int nLast) {
  return std::clamp(qorimg::tone::TruncateOrMin(t), 0, std::max(nLast, 0));
}

}  // namespace

CImgToneCurve::CImgToneCurve() = default;
CImgToneCurve::CImgToneCurve(const CImgToneCurve &source) = default;
CImgToneCurve::~CImgToneCurve() = default;

double CImgToneCurve::CalcToneCurve(float *pTable, int nLast, double v) {
  const double a = pTable[TableIndex(nLast - 1, nLast)], b = pTable[TableIndex(nLast, nLast)];
  if (v < 0) return 0.0;
  if (a == b) return b * 255.0;
  const double slope = std::max(0.0, (b - a) * nLast);
  return (v - b * 255.0) * slope + b * 255.0;
}

double CImgToneCurve::CalcToneNormal(double v, double fScale, float *pTable, int nLast) {
  if (v >= 0 && v <= 255) return pTable[TableIndex(v * fScale, nLast)] * 255.0;
  return CalcToneCurve(pTable, nLast, v);
}

void CImgToneCurve::Do(float **const ppCurve, int nCount, CLmrImage *pSrc, CRect *rect, int bProgress, int bHAlpha) {
  const int planes = IsColor() ? GetPlanes() : 1;
  if (!ppCurve || nCount < 1 || !ppCurve[0]) return;
  if (IsColor())
    for (int c = 0; c < planes; ++c)
      if (!ppCurve[1 + c]) return;
  const qorimg::LineRect r = qorimg::ClipRect(*this, rect);
  const int nLast = nCount - 1;

  // One look-up on the 0..255 scale: inside it the entry at u * nLast / 255.
  auto look = [&](float *table, double u) {
    if (u >= 0 && u <= 255) return table[TableIndex(u * nLast / 255.0, nLast)] * 255.0;
    return CalcToneCurve(table, nLast, u);
  };
  qorimg::RouteTable routes;
  routes.parallelLines = true;
  routes.line = [&](int p, int y) {
    const float lo = static_cast<float>(GetLevelMin(p));
    const float k = 255.0f / static_cast<float>(GetLevelRange(p));
    const float *s = pSrc->GetImageAdr(r.left, y, p, CImage::ReadOnly);
    float *d = GetImageAdr(r.left, y, p);
    for (int x = 0; x < r.Width(); ++x) {
      const float u = (s[x] - lo) * k;
      const double w = IsColor() ? look(ppCurve[0], look(ppCurve[1 + p], u)) : look(ppCurve[0], u);
      d[x] = static_cast<float>(w / k + lo);
    }
  };
  routes.pipeline = [&](int p, qorimg::PlaneOutput &output) {
    const float lo = static_cast<float>(GetLevelMin(p)), range = static_cast<float>(GetLevelRange(p));
    auto master = qorimg::kernels::TableBuffer(ppCurve[0], nCount);
    if (!IsColor()) return tone_curve_gray_float(qorimg::InputPlane(*pSrc, p), lo, range, master, output);
    auto own = qorimg::kernels::TableBuffer(ppCurve[1 + p], nCount);
    return tone_curve_color_float(qorimg::InputPlane(*pSrc, p), lo, range, own, master, output);
  };
  routes.pipelineWithoutProgress = true;
  qorimg::RunOperator({*this, bProgress, bHAlpha ? 6194 : 6114, r.Height() * planes, r, {0, planes}},
                      {{this, planes}, {pSrc, planes}}, routes);
}

void CImgToneCurve::DoHAlpha(double fPoint, double fGain, CLmrImage *pSrc, CRect *rect, int bProgress) {
  std::vector<float> lift(256), identity(256);
  for (int i = 0; i < 256; ++i) lift[i] = identity[i] = static_cast<float>(i / 255.0);
  const double p = fPoint * 255.0;
  // A point above 1 would run past the table: the lift stops at its end.
  const int end = std::clamp(qorimg::tone::TruncateOrMin(p), 0, 256);
  for (int i = 0; i < end; ++i) lift[i] = static_cast<float>(i / p * fGain);
  // Plane 0 of a colour image passes the lift twice: as its own curve and as the master.
  float *curves[4] = {lift.data(), lift.data(), identity.data(), identity.data()};
  Do(curves, 256, pSrc, rect, bProgress, 1);
}

void CImgToneCurve::DoHAlphaLevel(double fFactor, CLmrImage *pSrc) {
  qorimg::CheckBoundImages({{pSrc, 1}}, qorimg::LineRect{});
  pSrc->CalcMinMax(0);
  for (int c = 0; c < GetPlanes(); ++c) {
    CImage::SetLevelMin(c, pSrc->GetMinPixel(0));
    CImage::SetLevelMax(c, pSrc->GetMaxPixel(0) * fFactor);
  }
}
