// CLmrImage::ToDIB: the repaint path. Each sample is mapped to a byte with the
// float levels (one multiplication) and written in the bitmap's format; a line
// loop per format, each taking one address per line from image and bitmap.
#include <algorithm>
#include "core/LmrImage.h"
#include "core/OperatorRunner.h"
#include "display/BaseDIB.h"
#include "display/DibPlaneRoutes.h"
#include "display/DisplayMapping.h"
#include "display/VmDIB.h"

namespace qorimg {
namespace {

// The rectangle in the bitmap's coordinates: left and top clamped to
// 0..size - 1, right and bottom to 0..size. A rectangle that starts wholly right
// of or below the bitmap gives nothing (rather than the last column or line).
// It is then also kept inside the image, which is not read beyond its edges
// when the two differ in size.
LineRect ClipToDib(const CBaseDIB &dib, const CRect *rect, const CImage &image) {
  const int w = dib.GetWidth(), h = dib.GetHeight();
  LineRect r{0, 0, w, h};
  if (rect) {
    if (rect->left >= w || rect->top >= h) return {};
    r.left = std::clamp(rect->left, 0, w - 1);
    r.top = std::clamp(rect->top, 0, h - 1);
    r.right = std::clamp(rect->right, 0, w);
    r.bottom = std::clamp(rect->bottom, 0, h);
  }
  r.right = std::min(r.right, image.GetWidth());
  r.bottom = std::min(r.bottom, image.GetHeight());
  return r;
}

void MonoLines(const CLmrImage &image, CBaseDIB &dib, const LineRect &r, int pixelBytes32) {
  const FloatLevels map(image, 0);
  const int n = r.Width();
  for (int y = r.top; y < r.bottom; ++y) {
    const float *s = image.GetImageAdr(r.left, y, 0, CImage::ReadOnly);
    switch (dib.GetBitCount()) {
      case 8: {
        unsigned char *d = dib.GetImageAdr8(r.left, y);
        for (int i = 0; i < n; ++i) d[i] = map(s[i]);
        break;
      }
      case 16: {
        unsigned short *d = dib.GetImageAdr16(r.left, y);
        for (int i = 0; i < n; ++i) {
          const int v = map(s[i]);
          CBaseDIB::SetPixel16(d + i, r.left + i, y, v, v, v);
        }
        break;
      }
      case 24:
      case 32: {
        const int step = dib.GetBitCount() == 24 ? 3 : pixelBytes32;
        unsigned char *d = dib.GetBitCount() == 24 ? dib.GetImageAdr24(r.left, y) : dib.GetImageAdr32(r.left, y);
        for (int i = 0; i < n; ++i, d += step) d[0] = d[1] = d[2] = map(s[i]);
        break;
      }
      default:
        return;
    }
  }
}

void ColorLines(const CLmrImage &image, CBaseDIB &dib, const LineRect &r, int pixelBytes32) {
  const int pr = ChannelPlane(image, 0), pg = ChannelPlane(image, 1), pb = ChannelPlane(image, 2);
  const FloatLevels mapR(image, pr), mapG(image, pg), mapB(image, pb);
  const int n = r.Width();
  for (int y = r.top; y < r.bottom; ++y) {
    const float *sr = image.GetImageAdr(r.left, y, pr, CImage::ReadOnly);
    const float *sg = image.GetImageAdr(r.left, y, pg, CImage::ReadOnly);
    const float *sb = image.GetImageAdr(r.left, y, pb, CImage::ReadOnly);
    switch (dib.GetBitCount()) {
      case 8: {
        // The 2-3-3 code: two bits of blue, three of green, three of red. The
        // palette given at Create has to match it.
        unsigned char *d = dib.GetImageAdr8(r.left, y);
        for (int i = 0; i < n; ++i)
          d[i] = static_cast<unsigned char>((mapB(sb[i]) & 0xC0) | ((mapG(sg[i]) >> 2) & 0x38) | (mapR(sr[i]) >> 5));
        break;
      }
      case 16: {
        unsigned short *d = dib.GetImageAdr16(r.left, y);
        for (int i = 0; i < n; ++i) CBaseDIB::SetPixel16(d + i, r.left + i, y, mapR(sr[i]), mapG(sg[i]), mapB(sb[i]));
        break;
      }
      case 24:
      case 32: {
        const int step = dib.GetBitCount() == 24 ? 3 : pixelBytes32;
        unsigned char *d = dib.GetBitCount() == 24 ? dib.GetImageAdr24(r.left, y) : dib.GetImageAdr32(r.left, y);
        for (int i = 0; i < n; ++i, d += step) {
          d[0] = mapB(sb[i]);
          d[1] = mapG(sg[i]);
          d[2] = mapR(sr[i]);
        }
        break;
      }
      default:
        return;
    }
  }
}

}  // namespace
}  // namespace qorimg

void CLmrImage::ToDIB(CBaseDIB *dib, const CRect *rect) const {
  if (!dib || dib->IsEmpty() || IsEmpty()) return;
  const qorimg::LineRect r = qorimg::ClipToDib(*dib, rect, *this);
  if (r.IsEmpty()) return;
  const CVmDIB *vmDib = dynamic_cast<const CVmDIB *>(dib);
  // A CVmDIB keeps 3 bytes a pixel also at 32-bit depth.
  const int pixelBytes32 = vmDib ? 3 : 4;
  qorimg::RouteTable routes;
  routes.planeLoop = [&](int) {
    if (IsColor())
      qorimg::ColorLines(*this, *dib, r, pixelBytes32);
    else
      qorimg::MonoLines(*this, *dib, r, pixelBytes32);
  };
  if (IsColor() && dib->GetBitCount() == 32 && (!vmDib || vmDib->IsStoreWholePlane()))
    routes.pipelineCall = [&](int) {
      qorimg::ToDib32ColorPlanes(*this, *dib, r);
      return 0;
    };
  // No progress and only reads: the image is not changed, though the runner
  // takes it as its target.
  CLmrImage &image = const_cast<CLmrImage &>(*this);
  qorimg::RunOperator({image, 0, 0, 0, r, {0, 1}}, {{this, IsColor() ? 3 : 1}}, routes);
}
