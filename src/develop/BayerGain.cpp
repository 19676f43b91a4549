// CImgBayerToRgb::GetGain: white balance from the medians of the four phases
// of a mosaic, measured by CImgAutoLevel.
#include "core/LentImage.h"
#include "develop/ImgBayerToRgb.h"
#include "tone/ImgAutoLevel.h"

int CImgBayerToRgb::GetGain(int nPattern, double *pGain) { return GetGain(this, nPattern, pGain); }

// In single precision: G is the greens' mean, the gain G / m of R and B, 1 where
// a median is below 1. A null image or gain array gives 0. The sampled median
// throws std::bad_alloc on frames of 50,001 to 149,999 pixels; that passes.
int CImgBayerToRgb::GetGain(CImage *pImage, int nPattern, double *pGain) {
  if (nPattern < 1 || nPattern > 4 || !pImage || !pGain) return 0;
  float m[4];
  CImgAutoLevel level;
  if (auto *image = dynamic_cast<CLmrImage *>(pImage)) {
    const qorimg::LentImage lent(level, *image);
    level.GetMedianBayer(m, 1);
  } else {
    if (!level.CImage::CopyImage(*pImage, nullptr)) return 0;
    level.GetMedianBayer(m, 1);
  }
  const auto gain = [&](float green, int k) { return m[k] < 1.0f ? 1.0 : static_cast<double>(green / m[k]); };
  if (nPattern == 1 || nPattern == 3) {
    const float g = (m[2] + m[1]) * 0.5f;
    pGain[1] = pGain[2] = 1.0;
    pGain[0] = gain(g, 0);
    pGain[3] = gain(g, 3);
  } else {
    const float g = (m[3] + m[0]) * 0.5f;
    pGain[0] = pGain[3] = 1.0;
    pGain[1] = gain(g, 1);
    pGain[2] = gain(g, 2);
  }
  return 1;
}
