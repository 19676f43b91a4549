// CImgWavelet: Daubechies sub-band decomposition and composition in place on
// a buffer image, with the copies of a region in and out.
#include "restore/ImgWavelet.h"

#include <algorithm>
#include <atomic>
#include <climits>
#include <cmath>
#include <stdexcept>

#include "core/LineLoops.h"
#include "core/OperatorFrame.h"
#include "platform/Exceptions.h"

namespace {

// The published orthonormal scaling coefficients (sum sqrt 2) of orders 2 to
// 10; order 1 is 1/sqrt 2 twice.
const float kDaubechies[9][20] = {
    {4.829629131e-01f, 8.365163037e-01f, 2.241438680e-01f, -1.294095226e-01f},
    {3.326705530e-01f, 8.068915093e-01f, 4.598775021e-01f, -1.350110200e-01f, -8.544127388e-02f, 3.522629189e-02f},
    {2.303778133e-01f, 7.148465706e-01f, 6.308807679e-01f, -2.798376942e-02f, -1.870348117e-01f, 3.084138184e-02f,
     3.288301167e-02f, -1.059740179e-02f},
    {1.601023980e-01f, 6.038292698e-01f, 7.243085284e-01f, 1.384281459e-01f, -2.422948871e-01f, -3.224486958e-02f,
     7.757149384e-02f, -6.241490213e-03f, -1.258075200e-02f, 3.335725285e-03f},
    {1.115407434e-01f, 4.946238904e-01f, 7.511339080e-01f, 3.152503517e-01f, -2.262646940e-01f, -1.297668676e-01f,
     9.750160559e-02f, 2.752286553e-02f, -3.158203932e-02f, 5.538422012e-04f, 4.777257511e-03f, -1.077301085e-03f},
    {7.785205409e-02f, 3.965393195e-01f, 7.291320908e-01f, 4.697822874e-01f, -1.439060039e-01f, -2.240361850e-01f,
     7.130921927e-02f, 8.061260915e-02f, -3.802993694e-02f, -1.657454163e-02f, 1.255099856e-02f, 4.295779729e-04f,
     -1.801640704e-03f, 3.537138000e-04f},
    {5.441584224e-02f, 3.128715909e-01f, 6.756307363e-01f, 5.853546837e-01f, -1.582910526e-02f, -2.840155430e-01f,
     4.724845739e-04f, 1.287474266e-01f, -1.736930100e-02f, -4.408825393e-02f, 1.398102792e-02f, 8.746094047e-03f,
     -4.870352993e-03f, -3.917403734e-04f, 6.754494065e-04f, -1.174767841e-04f},
    {3.807794736e-02f, 2.438346746e-01f, 6.048231237e-01f, 6.572880781e-01f, 1.331973858e-01f, -2.932737833e-01f,
     -9.684078322e-02f, 1.485407493e-01f, 3.072568148e-02f, -6.763282906e-02f, 2.509471148e-04f, 2.236166212e-02f,
     -4.723204758e-03f, -4.281503682e-03f, 1.847646883e-03f, 2.303857635e-04f, -2.519631889e-04f, 3.934732032e-05f},
    {2.667005790e-02f, 1.881768001e-01f, 5.272011889e-01f, 6.884590395e-01f, 2.811723437e-01f, -2.498464243e-01f,
     -1.959462744e-01f, 1.273693403e-01f, 9.305736460e-02f, -7.139414717e-02f, -2.945753682e-02f, 3.321267406e-02f,
     3.606553567e-03f, -1.073317548e-02f, 1.395351747e-03f, 1.992405295e-03f, -6.858566950e-04f, -1.164668551e-04f,
     9.358867032e-05f, -1.326420289e-05f},
};

float Weight(const CArray<float, float> *weights, int level) {
  if (!weights) throw std::out_of_range("CImgWavelet: no weights");
  return weights->GetAt(level);
}

// Element i of line `index` of a w x h rectangle (top left at 0, 0) of plane
// p: rows run along x, columns along y. Whole-plane stores by pointer from the
// plane's base, block stores through GetImageAdr per line.
class Lines {
public:
  Lines(CLmrImage &image, int plane, bool columns)
      : image_(image), plane_(plane), columns_(columns), stride_(image.GetWidth()) {
    if (qorimg::IsWholePlane(image)) base_ = image.GetImageAdr(0, 0, plane);
  }
  template <class Body>
  void Visit(int index, int count, Body &&body) const {
    if (base_) {
      float *start = columns_ ? base_ + index : base_ + static_cast<std::size_t>(index) * stride_;
      const std::size_t step = columns_ ? static_cast<std::size_t>(stride_) : 1;
      for (int i = 0; i < count; ++i) body(i, start[i * step]);
    } else if (columns_) {
      for (int i = 0; i < count; ++i) body(i, *image_.GetImageAdr(index, i, plane_));
    } else {
      float *line = image_.GetImageAdr(0, index, plane_);
      for (int i = 0; i < count; ++i) body(i, line[i]);
    }
  }

private:
  CLmrImage &image_;
  int plane_;
  bool columns_;
  int stride_;
  float *base_ = nullptr;
};

}  // namespace

CImgWavelet::CImgWavelet() = default;

void CImgWavelet::SetDaubechyParams(int nOrder) {
  nCoef = std::clamp(nOrder, 0, 10) * 2;
  if (nOrder < 1 || nOrder > 10) return;
  const float rootTwo = std::sqrt(2.0f);
  for (int i = 0; i < 20; ++i) h[i] = 0.0f;
  if (nOrder == 1)
    h[0] = h[1] = 1.0f / rootTwo;
  else
    for (int i = 0; i < nCoef; ++i) h[i] = kDaubechies[nOrder - 2][i];
  for (int i = 0; i < nCoef; ++i) h[i] *= rootTwo;
  for (int i = 0; i < nCoef; ++i) {
    h2[i] = 0.5f * h[i];
    g[i] = std::pow(-1.0f, static_cast<float>(i)) * h[nCoef - 1 - i];
    g2[i] = 0.5f * g[i];
  }
}

void CImgWavelet::CalcBufferSize(CRect *pRect, int nLevels, CRect *pBuffer) {
  if (!pRect || !pBuffer) AfxThrowInvalidArgException();
  const long long w = static_cast<long long>(pRect->right) - pRect->left;
  const long long hh = static_cast<long long>(pRect->bottom) - pRect->top;
  if (nLevels <= 0) {
    *pBuffer = (w >= 0 && hh >= 0 && w <= INT_MAX && hh <= INT_MAX) ? CRect(0, 0, int(w), int(hh)) : CRect(0, 0, 0, 0);
    return;
  }
  if (nLevels > 29) {
    *pBuffer = CRect(0, 0, 0, 0);
    return;
  }
  const long long m = 1LL << nLevels, least = 4LL << (nLevels - 1);
  auto round = [&](long long side) { return std::max((std::max(side, 0LL) + m - 1) / m * m, least); };
  const long long bw = round(w), bh = round(hh);
  *pBuffer = bw <= INT_MAX && bh <= INT_MAX ? CRect(0, 0, int(bw), int(bh)) : CRect(0, 0, 0, 0);
}

void CImgWavelet::CopyToBuffer(CLmrImage *pBuffer, CLmrImage *pSrc, CRect *pRect) {
  if (!pBuffer || !pSrc) AfxThrowInvalidArgException();
  const qorimg::LineRect r = qorimg::ClipRect(*pSrc, pRect);
  const int planes = std::min(pBuffer->GetPlanes(), pSrc->GetPlanes());
  const int bw = pBuffer->GetWidth(), bh = pBuffer->GetHeight();
  const int width = std::min(r.Width(), bw), rows = std::min(r.Height(), bh);
  if (width <= 0 || rows <= 0) return;
  for (int p = 0; p < planes; ++p) {
    for (int y = 0; y < rows; ++y) {
      const float *src = pSrc->GetImageAdr(r.left, r.top + y, p, CImage::ReadOnly);
      float *dst = pBuffer->GetImageAdr(0, y, p);
      std::copy(src, src + width, dst);
      std::fill(dst + width, dst + bw, src[width - 1]);
    }
    for (int y = rows; y < bh; ++y) {
      const float *last = pBuffer->GetImageAdr(0, rows - 1, p, CImage::ReadOnly);
      std::copy(last, last + bw, pBuffer->GetImageAdr(0, y, p));
    }
  }
}

void CImgWavelet::CopyFromBuffer(CLmrImage *pDst, CRect *pRect, CLmrImage *pBuffer) {
  if (!pBuffer || !pDst) AfxThrowInvalidArgException();
  const qorimg::LineRect r = qorimg::ClipRect(*pDst, pRect);
  const int planes = std::min(pBuffer->GetPlanes(), pDst->GetPlanes());
  const int width = std::min(r.Width(), pBuffer->GetWidth()), rows = std::min(r.Height(), pBuffer->GetHeight());
  if (width <= 0 || rows <= 0) return;
  const bool parallel = qorimg::IsWholePlane(*pDst) && qorimg::IsWholePlane(*pBuffer);
  for (int p = 0; p < planes; ++p) {
    auto row = [&](int y) {
      const float *src = pBuffer->GetImageAdr(0, y, p, CImage::ReadOnly);
      std::copy(src, src + width, pDst->GetImageAdr(r.left, r.top + y, p));
    };
    if (parallel)
      qorimg::ParallelLines(0, rows, row);
    else
      qorimg::ForEachLine(0, rows, row);
  }
}

void CImgWavelet::Wavelet1d(CArray<float, float> *pLine) {
  const int n = pLine->GetSize(), half = n / 2;
  if (half == 0) return;
  const CArray<float, float> x = *pLine;
  const float *in = x.GetData();
  float *out = pLine->GetData();
  for (int k = 0; k < half; ++k) {
    float low = 0.0f, high = 0.0f;
    for (int j = 0; j < nCoef; ++j) {
      const float v = in[(2 * k + j) % n];
      low += h2[j] * v;
      high += g2[j] * v;
    }
    out[k] = low;
    out[half + k] = high;
  }
}

void CImgWavelet::InvWavelet1d(CArray<float, float> *pLine) {
  const int n = pLine->GetSize(), half = n / 2;
  if (half == 0) return;
  CArray<float, float> u, v;
  u.SetSize(n);
  v.SetSize(n);
  float *line = pLine->GetData();
  for (int k = 0; k < half; ++k) {
    u[2 * k] = line[k];
    v[2 * k] = line[half + k];
  }
  for (int i = 0; i < n; ++i) {
    float x = 0.0f;
    for (int j = 0; j < nCoef; ++j) {
      const int at = i - j < 0 ? (n - (j - i) % n) % n : (i - j) % n;
      x += h[j] * u[at] + g[j] * v[at];
    }
    line[i] = x;
  }
}

int CImgWavelet::Pass(CLmrImage *pBuffer, int plane, int w, int hgt, bool columns,
                      void (CImgWavelet::*transform)(CArray<float, float> *)) {
  const Lines lines(*pBuffer, plane, columns);
  const int count = columns ? w : hgt, length = columns ? hgt : w;
  std::atomic<bool> cancelled{false};
  qorimg::ParallelLines(0, count, [&](int index) {
    CArray<float, float> line;
    line.SetSize(length);
    lines.Visit(index, length, [&](int i, float &v) { line[i] = v; });
    (this->*transform)(&line);
    lines.Visit(index, length, [&](int i, float &v) { v = line[i]; });
    if (index != 0 && index % 64 == 0 && !ShowProgress(length * 64)) cancelled = true;
  });
  if (cancelled) return 0;
  return ShowProgress(w * hgt);
}

int CImgWavelet::Wavelet2d(CLmrImage *pBuffer, CRect *pRect) {
  const int w = pRect->Width(), hgt = pRect->Height();
  for (int p = 0; p < pBuffer->GetPlanes(); ++p) {
    if (!Pass(pBuffer, p, w, hgt, false, &CImgWavelet::Wavelet1d)) return 0;
    if (!Pass(pBuffer, p, w, hgt, true, &CImgWavelet::Wavelet1d)) return 0;
  }
  return 1;
}

int CImgWavelet::InvWavelet2d(CLmrImage *pBuffer, CRect *pRect, float fLow, float fHL, float fLH, float fHH) {
  const int w = pRect->Width(), hgt = pRect->Height();
  for (int p = 0; p < pBuffer->GetPlanes(); ++p) {
    const float mid = static_cast<float>((pBuffer->GetLevelMin(p) + pBuffer->GetLevelMax(p)) * 0.5);
    const Lines rows(*pBuffer, p, false);
    qorimg::ParallelLines(0, hgt, [&](int y) {
      const bool top = y < hgt / 2;
      rows.Visit(y, w, [&](int x, float &v) {
        if (x < w / 2)
          v = top ? (v - mid) * fLow + mid : v * fLH;
        else
          v = v * (top ? fHL : fHH);
      });
    });
    if (!Pass(pBuffer, p, w, hgt, true, &CImgWavelet::InvWavelet1d)) return 0;
    if (!Pass(pBuffer, p, w, hgt, false, &CImgWavelet::InvWavelet1d)) return 0;
  }
  return 1;
}

namespace {

long long LevelProgressTotal(const CLmrImage &buffer, int nLevels) {
  long long total = 0;
  for (int level = 0, w = buffer.GetWidth(), h = buffer.GetHeight(); level < nLevels; ++level, w /= 2, h /= 2)
    total += 2LL * buffer.GetPlanes() * w * h;
  return std::min<long long>(total, INT_MAX);
}

}  // namespace

int CImgWavelet::DoMultiResSubbandDecomposition(CLmrImage *pBuffer, int nLevels, int bProgress) {
  if (!pBuffer) AfxThrowInvalidArgException();
  qorimg::ProgressFrame progress(*this, bProgress, 6181, static_cast<int>(LevelProgressTotal(*pBuffer, nLevels)));
  int w = pBuffer->GetWidth(), hgt = pBuffer->GetHeight();
  for (int level = 0; level < nLevels; ++level, w /= 2, hgt /= 2) {
    CRect rect(0, 0, w, hgt);
    if (!Wavelet2d(pBuffer, &rect)) return 0;
  }
  return 1;
}

int CImgWavelet::DoMultiResSubbandComposition(CLmrImage *pBuffer, int nLevels, float fLow, CArray<float, float> *pHL,
                                              CArray<float, float> *pLH, CArray<float, float> *pHH, int bProgress) {
  if (!pBuffer) AfxThrowInvalidArgException();
  qorimg::ProgressFrame progress(*this, bProgress, 6180, static_cast<int>(LevelProgressTotal(*pBuffer, nLevels)));
  if (nLevels <= 0) return 1;
  const int shift = std::min(nLevels - 1, 30);
  int w = pBuffer->GetWidth() >> shift, hgt = pBuffer->GetHeight() >> shift;
  for (int level = nLevels - 1; level >= 0; --level, w *= 2, hgt *= 2) {
    CRect rect(0, 0, w, hgt);
    const float low = level == nLevels - 1 ? fLow : 1.0f;
    if (!InvWavelet2d(pBuffer, &rect, low, Weight(pHL, level), Weight(pLH, level), Weight(pHH, level))) return 0;
  }
  return 1;
}
