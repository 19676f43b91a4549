// The frame edits that move whole lines or blocks: crop, flip, scroll and soft
// binning.
#include <algorithm>
#include <cstring>
#include "core/OperatorRunner.h"
#include "geometry/GeometryInternal.h"
#include "geometry/ImgCrop.h"
#include "geometry/ImgFlip.h"
#include "geometry/ImgScroll.h"
#include "geometry/ImgSoftBinning.h"
#include "kernels/FrameEdits.h"
#include "kernels/Geometry.h"

using namespace qorimg::geometry;
using qorimg::LineRect;

int CImgCrop::Do(CRect rect, CLmrImage *pSrc, int bProgress) {
  CheckSource(pSrc, pSrc ? pSrc->GetPlanes() : 0);
  const bool inside = rect.left >= 0 && rect.top >= 0 && rect.right <= pSrc->GetWidth() &&
                      rect.bottom <= pSrc->GetHeight() && rect.right > rect.left && rect.bottom > rect.top;
  if (!inside) return 0;
  SourceOf src(pSrc, *this);
  InitStdPtCtr();
  const int width = rect.Width(), height = rect.Height(), planes = src->GetPlanes();
  if (!ResizeLike(*this, *src, width, height, bProgress)) return 0;
  qorimg::RouteTable routes;
  routes.pipelineCall = [&](int p) {
    auto output = qorimg::OutputPlane(*this, p);
    return crop_float(qorimg::InputPlane(*src, p), rect.left, rect.top, output);
  };
  routes.line = [&](int p, int y) {
    std::memcpy(GetImageAdr(0, y, p), src->GetImageAdr(rect.left, y + rect.top, p, CImage::ReadOnly),
                static_cast<std::size_t>(width) * sizeof(float));
  };
  qorimg::RunOperator({*this, bProgress, 6172, height * planes, {0, 0, width, height}, {0, planes}},
                      {{this, planes}, {src.get(), planes}}, routes);
  return 1;
}

void CImgFlip::Do(int nDirection, CLmrImage *pSrc, int bProgress) {
  MakeLikeSourceIfEmpty(*this, pSrc, bProgress);
  const int planes = GetPlanes(), width = GetWidth(), height = GetHeight();
  const LineRect whole{0, 0, width, height};
  qorimg::CheckBoundImages({{this, planes}, {pSrc, planes}}, whole);
  InitStdPtCtr();
  const int id = 6127 + (nDirection != 0 ? 1 : 0);
  if (nDirection != 0 && nDirection != 1) {
    qorimg::ProgressFrame progress(*this, bProgress, id, height * planes);  // the display only
    return;
  }
  SourceOf src(pSrc, *this);
  qorimg::RouteTable routes;
  routes.parallelLines = true;
  routes.line = [&](int p, int y) {
    if (nDirection == 0) {
      std::memcpy(GetImageAdr(0, y, p), src->GetImageAdr(0, height - 1 - y, p, CImage::ReadOnly),
                  static_cast<std::size_t>(width) * sizeof(float));
    } else {
      const float *from = src->GetImageAdr(0, y, p, CImage::ReadOnly);
      std::reverse_copy(from, from + width, GetImageAdr(0, y, p));
    }
  };
  qorimg::RunOperator({*this, bProgress, id, height * planes, whole, {0, planes}},
                      {{this, planes}, {src.get(), planes}}, routes);
}

// Destination column x takes source column (x + W - n) % W with n = nAmount % W
// (a truncating remainder, so a negative n scrolls the other way); rows alike.
void CImgScroll::Do(int nAmount, int bHorizontal, CLmrImage *pSrc, int bProgress) {
  MakeLikeSourceIfEmpty(*this, pSrc, bProgress);
  const int planes = GetPlanes(), width = GetWidth(), height = GetHeight();
  if (width <= 0 || height <= 0) return;
  const LineRect whole{0, 0, width, height};
  qorimg::CheckBoundImages({{this, planes}, {pSrc, planes}}, whole);
  SourceOf src(pSrc, *this);
  InitStdPtCtr();
  const long long n = bHorizontal ? nAmount % width : nAmount % height;
  qorimg::RouteTable routes;
  routes.parallelLines = true;
  routes.line = [&](int p, int y) {
    float *out = GetImageAdr(0, y, p);
    if (!bHorizontal) {
      const long long from = (y + height - n) % height;
      std::memcpy(out, src->GetImageAdr(0, from, p, CImage::ReadOnly), static_cast<std::size_t>(width) * sizeof(float));
      return;
    }
    // Two copies: the tail of the source row to the front, then its head.
    const float *row = src->GetImageAdr(0, y, p, CImage::ReadOnly);
    const long long first = (width - n) % width;  // source column of destination column 0
    std::memcpy(out, row + first, static_cast<std::size_t>(width - first) * sizeof(float));
    std::memcpy(out + (width - first), row, static_cast<std::size_t>(first) * sizeof(float));
  };
  qorimg::RunOperator({*this, bProgress, 6146, height * planes, whole, {0, planes}},
                      {{this, planes}, {src.get(), planes}}, routes);
}

int CImgSoftBinning::Do(int nBinX, int nBinY, int bCeil, int bScaleLevels, CLmrImage *pSrc, int bProgress) {
  CheckSource(pSrc, pSrc ? pSrc->GetPlanes() : 0);
  if (nBinX < 1 || nBinY < 1) return 0;
  SourceOf src(pSrc, *this);
  InitStdPtCtr();
  const int ws = src->GetWidth(), hs = src->GetHeight(), planes = src->GetPlanes();
  const int wd = bCeil ? (ws + nBinX - 1) / nBinX : ws / nBinX;
  const int hd = bCeil ? (hs + nBinY - 1) / nBinY : hs / nBinY;
  if (!ResizeLike(*this, *src, wd, hd, bProgress)) return 0;
  if (bScaleLevels) {
    const double factor = static_cast<double>(nBinX) * nBinY;
    for (int p = 0; p < planes; ++p)
      CImage::SetLevel(p, src->GetLevelMin(p) * factor, src->GetLevelMax(p) * factor);
  }
  qorimg::RouteTable routes;
  routes.pipelineCall = [&](int p) {
    auto output = qorimg::OutputPlane(*this, p);
    return binning2f_float(qorimg::InputPlane(*src, p), nBinX, nBinY, output);
  };
  routes.parallelLines = true;
  routes.line = [&](int p, int y) {
    float *out = GetImageAdr(0, y, p);
    std::fill(out, out + wd, 0.0f);
    const int rowEnd = std::min(hs, (y + 1) * nBinY);
    for (int sy = y * nBinY; sy < rowEnd; ++sy) {
      const float *row = src->GetImageAdr(0, sy, p, CImage::ReadOnly);
      for (int x = 0; x < wd; ++x) {
        const int columnEnd = std::min(ws, (x + 1) * nBinX);
        for (int sx = x * nBinX; sx < columnEnd; ++sx) out[x] += row[sx];
      }
    }
  };
  qorimg::RunOperator({*this, bProgress, 6132, hd * planes, {0, 0, wd, hd}, {0, planes}},
                      {{this, planes}, {src.get(), planes}}, routes);
  return 1;
}
