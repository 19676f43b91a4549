// CImgNormalize: mean and deviation of each source plane in one pass, then a
// shift and a scale about the mean.
#include "tone/ImgNormalize.h"

#include <cmath>
#include "core/OperatorFrame.h"

CImgNormalize::CImgNormalize() = default;
CImgNormalize::CImgNormalize(const CImgNormalize &source) = default;
CImgNormalize::~CImgNormalize() = default;

void CImgNormalize::NormalizeAve(CLmrImage *pSrc, CLmrImage *pDst, int nPlane, double fAdd) {
  const int width = pDst->GetWidth();
  for (int y = 0; y < pDst->GetHeight(); ++y) {
    const float *s = pSrc->GetImageAdr(0, y, nPlane, CImage::ReadOnly);
    float *d = pDst->GetImageAdr(0, y, nPlane);
    for (int x = 0; x < width; ++x) d[x] = static_cast<float>(s[x] + fAdd);
    ShowProgress(1);
  }
}

void CImgNormalize::NormalizeSigma(CLmrImage *pSrc, CLmrImage *pDst, int nPlane, double fCenter, double fRatio) {
  const int width = pDst->GetWidth();
  for (int y = 0; y < pDst->GetHeight(); ++y) {
    const float *s = pSrc->GetImageAdr(0, y, nPlane, CImage::ReadOnly);
    float *d = pDst->GetImageAdr(0, y, nPlane);
    for (int x = 0; x < width; ++x) d[x] = static_cast<float>((s[x] - fCenter) * fRatio + fCenter);
    ShowProgress(1);
  }
}

void CImgNormalize::Do(CLmrImage *pSrc, float *pMean, float *pSigma, int bProgress) {
  if (!pMean && !pSigma) return;
  const int planes = GetPlanes();
  qorimg::CheckBoundImages({{this, planes}, {pSrc, planes}}, qorimg::ClipRect(*this, nullptr));
  const double count = static_cast<double>(pSrc->GetWidth()) * pSrc->GetHeight();
  if (!(count > 0)) return;
  ShowProgressInit(bProgress, 6197, ((pMean ? 2 : 1) + (pSigma ? 1 : 0)) * planes * GetHeight());
  for (int c = 0; c < planes; ++c) {
    double sum = 0.0, squares = 0.0;
    for (int y = 0; y < pSrc->GetHeight(); ++y) {
      const float *s = pSrc->GetImageAdr(0, y, c, CImage::ReadOnly);
      for (int x = 0; x < pSrc->GetWidth(); ++x) {
        sum += s[x];
        squares += static_cast<double>(s[x]) * s[x];
      }
      ShowProgress(1);
    }
    const double mean = sum / count, sigma = std::sqrt(squares / count - mean * mean);
    if (pMean) {
      const double d = pMean[c] - mean;
      NormalizeAve(pSrc, this, c, d);
      if (pSigma && sigma != 0.0) NormalizeSigma(this, this, c, mean + d, pSigma[c] / sigma);
    } else if (sigma != 0.0) {
      NormalizeSigma(pSrc, this, c, mean, pSigma[c] / sigma);
    }
  }
  if (bProgress) ShowProgressEnd(0);
}
