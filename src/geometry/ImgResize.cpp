// CImgResize: paste_with_fill_float on whole-plane images, the same rows built
// by a line loop on others.
#include "geometry/ImgResize.h"

#include <algorithm>
#include <cstring>
#include "core/OperatorRunner.h"
#include "geometry/GeometryInternal.h"
#include "kernels/FrameEdits.h"

namespace {

// The offset of the source on one axis: 0, centred (truncating), or at the end.
int AnchorOffset(int place, int size, int sourceSize) {
  return place == 0 ? 0 : place == 1 ? (size - sourceSize) / 2 : size - sourceSize;
}

}  // namespace

int CImgResize::Do(int nWidth, int nHeight, int nAnchor, float *const fFill, CLmrImage *pSrc, int bProgress) {
  using namespace qorimg::geometry;
  CheckSource(pSrc, pSrc ? pSrc->GetPlanes() : 0);
  SourceOf src(pSrc, *this);
  InitStdPtCtr();
  if (!ResizeLike(*this, *src, nWidth, nHeight, bProgress)) return 0;
  const int ws = src->GetWidth(), hs = src->GetHeight(), planes = src->GetPlanes();
  const int anchor = nAnchor >= 0 && nAnchor <= 8 ? nAnchor : 0;
  const int dx = AnchorOffset(anchor % 3, nWidth, ws), dy = AnchorOffset(anchor / 3, nHeight, hs);
  const int x0 = std::max(dx, 0), sx = std::max(-dx, 0), x1 = std::min(x0 + ws - sx, nWidth);
  const int y0 = std::max(dy, 0), sy = std::max(-dy, 0), y1 = std::min(y0 + hs - sy, nHeight);
  auto fillOf = [&](int p) { return fFill ? fFill[p] : 0.0f; };

  qorimg::RouteTable routes;
  routes.pipelineCall = [&](int p) {
    auto output = qorimg::OutputPlane(*this, p);
    return paste_with_fill_float(qorimg::InputPlane(*src, p), fillOf(p), x0, x1, y0, y1, sx, sy, output);
  };
  routes.planeLoop = [&](int p) {
    qorimg::RunLineLoop(
        *this, {0, 0, nWidth, nHeight}, {p, 1},
        [&](int plane, int y) {
          float *out = GetImageAdr(0, y, plane);
          const bool rowInside = y >= y0 && y < y1 && x1 > x0;
          std::fill(out, out + (rowInside ? x0 : nWidth), fillOf(plane));
          if (!rowInside) return;
          std::memcpy(out + x0, src->GetImageAdr(sx, sy + y - y0, plane, CImage::ReadOnly),
                      static_cast<std::size_t>(x1 - x0) * sizeof(float));
          std::fill(out + x1, out + nWidth, fillOf(plane));
        },
        true);
  };
  qorimg::RunOperator({*this, bProgress, 6111, nHeight * planes, {}, {0, planes}},
                      {{this, planes}, {src.get(), planes}}, routes);
  return 1;
}
