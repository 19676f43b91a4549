// CImgFilterSpecial: the digital development writers and their parameters.
#include "filter/ImgFilterSpecial.h"

#include <cmath>
#include <memory>

#include "core/LentImage.h"
#include "core/OperatorRunner.h"
#include "filter/FilterInternal.h"
#include "filter/FilterMatrix.h"
#include "kernels/Filter.h"
#include "sibling/QorSys.h"
#include "tone/ImgAutoLevel.h"

using qorimg::LineRect;

namespace {

// The gamma curve: values at or below lo pass, the rest is raised to p on the
// range above lo.
float GammaCurve(float v, float p, float lo, float range) {
  if (v - lo <= 0.0f) return v;
  return std::pow((v - lo) / range, p) * range + lo;
}

// A ring filter like `proc`, on another image of the same size (the copy of a
// source that is also the target).
std::unique_ptr<CFilterProc> RebuiltOn(CFilterProc &proc, CLmrImage &image) {
  const int r = proc.GetR();
  CFilterMatrix row;
  row.MakeMtx(r, 0, 1);
  for (int x = -r; x <= r; ++x) *row.GetMtxPtr(x, 0) = proc.GetFilter()[x + r];
  auto copy = std::make_unique<CFilterProc>();
  copy->MakeBuf(&image, &row, proc.GetPlane(), 0);
  return copy;
}

}  // namespace

CImgFilterSpecial::~CImgFilterSpecial() = default;

int CImgFilterSpecial::GetDigitalDvlp_Mean_nR(double fRadius) { return qorimg::filter::DoubledRadius(fRadius); }

void CImgFilterSpecial::DigitalDvlp1(double *const pLevel, int nFilter, double *const fSize, double fWeight,
                                     double *const fGamma, int nMinMax, CLmrImage *src, float *const fMin,
                                     float *const fRange, float *const fA, float *const fMul, int bGammaAfter) {
  if (!pLevel || !fSize || !fGamma || !fMin || !fRange || !fA || !fMul) return;
  const int planes = GetPlanes();
  qorimg::CheckBoundImages({{this, planes}, {src, planes}}, qorimg::ClipRect(*this, nullptr));
  if (nFilter != 0 && nFilter != 1) return;

  // The blur of each plane, made afresh: the rings keep the normalised middle
  // row of the matrix and read src when a writer runs.
  ClearFilterProc();
  for (int c = 0; c < planes && c < 3; ++c) {
    CFilterMatrix matrix;
    if (nFilter == 0)
      matrix.MakeGaussian(fSize[c]);
    else
      matrix.MakeMean(GetDigitalDvlp_Mean_nR(fSize[c]), fSize[c], fWeight);
    MakeFilterProc(src, &matrix, c, 1);
  }

  float fMax[3] = {0, 0, 0};
  DigitalDvlpGetMinMax(nMinMax, src, fMin, fMax, fRange);
  // The level and the median are taken through plane 0's gamma curve when the
  // writer applies the gamma before the development.
  const float p = static_cast<float>(1.0 / fGamma[0]);
  const bool curve = !bGammaAfter && p != 1.0f;
  const double low = GetLevelMin(0), range = GetLevelRange(0);
  float t = static_cast<float>(pLevel[0]);
  if (curve) t = GammaCurve(t, p, fMin[0], fRange[0]);
  const float a = static_cast<float>((t - low) / range * 255.0);

  float m = 0.0f;
  {
    CImgAutoLevel level;
    const qorimg::LentImage lent(level, *src);
    level.GetMedian(&m, 1, 0, 0, nullptr);
  }
  if (curve) m = GammaCurve(m, p, fMin[0], fRange[0]);
  const float mul = static_cast<float>((m - low) / range * 255.0 + a);
  for (int c = 0; c < 3; ++c) {
    fA[c] = a;
    fMul[c] = mul;
  }
}

void CImgFilterSpecial::DigitalDvlp2(int bDevelop, double *const fGamma, CLmrImage *src, int *const pnBlur,
                                     float *const fMin, float *const fRange, float *const fA, float *const fMul,
                                     CRect *rect, int bProgress) {
  Develop(Writer::GammaFirst, bDevelop, fGamma, 0.0, src, pnBlur, fMin, fRange, fA, fMul, rect, bProgress);
}

void CImgFilterSpecial::DigitalDvlpGmAftrDdp(int bDevelop, double *const fGamma, CLmrImage *src, int *const pnBlur,
                                             float *const fMin, float *const fRange, float *const fA,
                                             float *const fMul, CRect *rect, int bProgress) {
  Develop(Writer::GammaAfter, bDevelop, fGamma, 0.0, src, pnBlur, fMin, fRange, fA, fMul, rect, bProgress);
}

void CImgFilterSpecial::DigitalDvlpOnly(int bDevelop, CLmrImage *src, double fStrength, int *const pnBlur,
                                        float *const fMin, float *const fRange, float *const fA, float *const fMul,
                                        CRect *rect, int bProgress) {
  Develop(Writer::Mixed, bDevelop, nullptr, fStrength, src, pnBlur, fMin, fRange, fA, fMul, rect, bProgress);
}

void CImgFilterSpecial::Develop(Writer kind, int bDevelop, const double *fGamma, double fStrength, CLmrImage *src,
                                const int *pnBlur, const float *fMin, const float *fRange, const float *fA,
                                const float *fMul, CRect *rect, int bProgress) {
  const bool gamma = kind != Writer::Mixed;
  if (!pnBlur || !fA || !fMul || (gamma && !fGamma) || (kind == Writer::GammaFirst && (!fMin || !fRange))) return;
  const LineRect r = qorimg::ClipRect(*this, rect);
  const int planes = GetPlanes();
  qorimg::CheckBoundImages({{this, planes}, {src, planes}}, r);

  // The blurred plane of each plane: 3 and up is the mean of the three; on a
  // mono image, and for a negative entry, the plane 0.
  int blurOf[3] = {0, 0, 0};
  bool ownBlur = true;
  for (int c = 0; c < planes && c < 3; ++c) {
    blurOf[c] = (planes < 3 || pnBlur[c] < 0) ? 0 : std::min(pnBlur[c], 3);
    ownBlur = ownBlur && blurOf[c] == c;
  }
  // A filter that a plane needs and that was not made: the target stays. The
  // line loops need them only to develop; the pipeline always develops.
  const bool pipeline = kind == Writer::Mixed && ownBlur && qorimg::IsWholePlane(*this) && qorimg::IsWholePlane(*src);
  if (bDevelop || pipeline)
    for (int c = 0; c < planes && c < 3; ++c)
      for (int k = 0; k < 3; ++k)
        if ((blurOf[c] == k || (blurOf[c] == 3 && k < planes)) && FilterProc.Proc(k).IsEmpty()) return;

  const qorimg::filter::SourceCopy source(src, *this);
  CLmrImage *in = source.get();
  CFilterProc *procs[3] = {&FilterProc.Proc(0), &FilterProc.Proc(1), &FilterProc.Proc(2)};
  // Filters made on the source that is also the target read its copy instead,
  // and filters with fewer rings than the loop has threads get their rings.
  std::unique_ptr<CFilterProc> rebuilt[3];
  for (int k = 0; k < 3 && k < planes; ++k) {
    if (procs[k]->IsEmpty() || (in == src && procs[k]->GetThreads() >= CParallel::GetMaxThreads())) continue;
    rebuilt[k] = RebuiltOn(*procs[k], *in);
    procs[k] = rebuilt[k].get();
  }

  float S[3] = {1, 1, 1}, L[3] = {0, 0, 0}, p[3] = {1, 1, 1};
  for (int c = 0; c < planes && c < 3; ++c) {
    S[c] = static_cast<float>(255.0 / GetLevelRange(c));
    L[c] = static_cast<float>(GetLevelMin(c));
    if (gamma) p[c] = static_cast<float>(1.0 / fGamma[c]);
  }
  const qorimg::filter::ThreadLines blurLines[3] = {qorimg::filter::ThreadLines(r.Width()),
                                                    qorimg::filter::ThreadLines(r.Width()),
                                                    qorimg::filter::ThreadLines(r.Width())};

  qorimg::RouteTable routes;
  routes.parallelLines = true;
  routes.line = [&](int c, int y) {
    const qorimg::filter::LockedLine dst(*this, r.left, y, c, false);
    const qorimg::filter::LockedLine from(*in, r.left, y, c, true);
    const int k = blurOf[c];
    float *g[3] = {blurLines[0].Get(), blurLines[1].Get(), blurLines[2].Get()};
    if (bDevelop)
      for (int i = 0; i < 3; ++i)
        if (k == i || (k == 3 && i < planes)) procs[i]->CalcRow(r.left, y, r.Width(), g[i]);
    const double range = GetLevelRange(c), low = GetLevelMin(c);
    for (int i = 0; i < r.Width(); ++i) {
      float v = from.get()[i];
      float &out = dst.get()[i];
      if (kind == Writer::GammaFirst && p[c] != 1.0f) v = GammaCurve(v, p[c], fMin[c], fRange[c]);
      if (!bDevelop) {
        out = v;
        continue;
      }
      // The reference brightness on the 0..255 scale of its plane(s), then on
      // the raw scale of this plane.
      const double b = k < 3 ? static_cast<double>((g[k][i] - L[k]) * S[k])
                             : ((g[1][i] - L[1]) * S[1] + (g[0][i] - L[0]) * S[0] + (g[2][i] - L[2]) * S[2]) / 3.0;
      float t = static_cast<float>(b / 255.0 * range + low);
      if (kind == Writer::GammaFirst && p[c] != 1.0f) t = GammaCurve(t, p[c], fMin[c], fRange[c]);
      const float u = (t - L[c]) * S[c] + fA[c];
      if (kind == Writer::GammaAfter) {
        float w = (v - L[c]) * S[c];
        if (u > 0.0f) w = (w / u) * fMul[c];
        if (static_cast<double>(p[c]) != 1.0) w = GammaCurve(w, p[c], 0.0f, 255.0f);
        out = static_cast<float>(w / 255.0 * range + low);
      } else if (!(u > 0.0f)) {
        out = v;
      } else {
        const float developed = (((v - L[c]) * S[c]) / u) * fMul[c] / S[c] + L[c];
        out = kind == Writer::GammaFirst ? developed
                                         : static_cast<float>(developed * fStrength) +
                                               static_cast<float>(v * (1.0 - fStrength));
      }
    }
  };
  if (kind == Writer::Mixed && ownBlur)
    routes.pipeline = [&](int c, qorimg::PlaneOutput &output) {
      CFilterProc &proc = *procs[c];
      return digital_developing_simple_float(qorimg::InputPlane(*in, c),
                                             qorimg::kernels::TableBuffer(proc.GetFilter(), proc.GetD()),
                                             proc.GetR(), L[c], static_cast<float>(GetLevelRange(c)), fStrength,
                                             fA[c], fMul[c], output);
    };
  qorimg::RunOperator({*this, bProgress, 6116, r.Height() * planes, r, {0, planes}}, {{this, planes}, {in, planes}},
                      routes);
}

void CImgFilterSpecial::DigitalDvlpGetMinMax(int nMinMax, CLmrImage *src, float *const fMin, float *const fMax,
                                             float *const fRange) {
  if (nMinMax < 0 || nMinMax > 3 || !fMin || !fMax || !fRange) return;
  if (!src) AfxThrowInvalidArgException();
  const double lo0 = GetLevelMin(0), range0 = GetLevelRange(0);
  switch (nMinMax) {
    case 0: fMin[0] = 0.0f, fMax[0] = src->GetMaxPixel(0); break;
    case 1: fMin[0] = src->GetMinPixel(0), fMax[0] = src->GetMaxPixel(0); break;
    case 2: fMin[0] = src->GetMinPixel(0), fMax[0] = static_cast<float>(src->GetLevelMax(0)); break;
    default: fMin[0] = static_cast<float>(range0 * 0.0 + lo0), fMax[0] = src->GetMaxPixel(0); break;
  }
  for (int c = 1; c < 3; ++c) {
    fMin[c] = fMin[0];
    fMax[c] = fMax[0];
  }
  if (GetPlanes() == 3)
    for (int c = 1; c < 3; ++c) {
      // Plane 0's value carried to plane c through the 0..255 scale.
      auto carry = [&](float t) {
        const float level = static_cast<float>((t - lo0) / range0 * 255.0);
        return static_cast<float>(level / 255.0 * GetLevelRange(c) + GetLevelMin(c));
      };
      fMin[c] = nMinMax == 3 ? static_cast<float>(GetLevelRange(c) * 0.0 + GetLevelMin(c)) : carry(fMin[0]);
      fMax[c] = carry(fMax[0]);
    }
  for (int c = 0; c < 3; ++c) fRange[c] = fMax[c] - fMin[c];
}

void CImgFilterSpecial::DigitalDvlpGetLevel(double *const fGamma, int nMinMax, CLmrImage *src, double *const pLow,
                                            double *const pHigh) {
  if (!fGamma || !pLow || !pHigh) return;
  if (fGamma[0] == 1.0 && fGamma[1] == 1.0 && fGamma[2] == 1.0) return;
  float lo[3] = {0, 0, 0}, hi[3] = {0, 0, 0}, range[3] = {0, 0, 0};
  DigitalDvlpGetMinMax(nMinMax, src, lo, hi, range);
  for (int c = 0; c < GetPlanes() && c < 3; ++c) {
    if (fGamma[c] == 1.0) continue;
    const float p = static_cast<float>(1.0 / fGamma[c]);
    auto within = [&](double v) { return v >= lo[c] && v <= hi[c]; };
    auto curve = [&](double v) { return static_cast<double>(GammaCurve(static_cast<float>(v), p, lo[c], range[c])); };
    if (pHigh[c] > hi[c]) continue;
    if (pLow[c] < lo[c] && within(pHigh[c])) {
      pHigh[c] = curve(pHigh[c]);
    } else if (within(pLow[c]) && within(pHigh[c])) {
      pLow[c] = curve(pLow[c]);
      pHigh[c] = curve(pHigh[c]);
    }
  }
}
