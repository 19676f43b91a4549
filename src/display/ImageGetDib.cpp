// CLmrImage::GetDib: a packed bitmap for the clipboard or a printer, mapped by
// the levels in double precision, lines bottom-up with zeroed padding.
#include <memory>
#include <new>
#include "core/LmrImage.h"
#include "core/OperatorFrame.h"
#include "display/DibPlaneRoutes.h"
#include "display/DisplayMapping.h"
#include "display/PackedDib.h"
#include "display/PaletteBuilder.h"

namespace qorimg {
namespace {

void GreyTable(PackedDib &dib) {
  RGBQUAD *table = dib.Table();
  for (int i = 0; i < 256; ++i) {
    const BYTE v = static_cast<BYTE>(i);
    table[i] = RGBQUAD{v, v, v, 0};
  }
}

void MonoLines8(const CLmrImage &image, PackedDib &dib) {
  const DoubleLevels map(image, 0);
  const int w = image.GetWidth();
  for (int y = 0; y < image.GetHeight(); ++y) {
    const float *s = image.GetImageAdr(0, y, 0, CImage::ReadOnly);
    unsigned char *d = dib.Line(y);
    for (int x = 0; x < w; ++x) d[x] = map(s[x]);
    dib.ZeroPadding(y, w);
  }
}

void MonoLines24(const CLmrImage &image, PackedDib &dib) {
  const DoubleLevels map(image, 0);
  const int w = image.GetWidth();
  for (int y = 0; y < image.GetHeight(); ++y) {
    const float *s = image.GetImageAdr(0, y, 0, CImage::ReadOnly);
    unsigned char *d = dib.Line(y);
    for (int x = 0; x < w; ++x, d += 3) d[0] = d[1] = d[2] = map(s[x]);
    dib.ZeroPadding(y, 3LL * w);
  }
}

void ColorLines24(const CLmrImage &image, PackedDib &dib) {
  const int pr = ChannelPlane(image, 0), pg = ChannelPlane(image, 1), pb = ChannelPlane(image, 2);
  const DoubleLevels mapR(image, pr), mapG(image, pg), mapB(image, pb);
  const int w = image.GetWidth();
  for (int y = 0; y < image.GetHeight(); ++y) {
    const float *sr = image.GetImageAdr(0, y, pr, CImage::ReadOnly);
    const float *sg = image.GetImageAdr(0, y, pg, CImage::ReadOnly);
    const float *sb = image.GetImageAdr(0, y, pb, CImage::ReadOnly);
    unsigned char *d = dib.Line(y);
    for (int x = 0; x < w; ++x, d += 3) {
      d[0] = mapB(sb[x]);
      d[1] = mapG(sg[x]);
      d[2] = mapR(sr[x]);
    }
    dib.ZeroPadding(y, 3LL * w);
  }
}

}  // namespace
}  // namespace qorimg

HDIB CLmrImage::GetDib(int bits) const {
  if (bits != 8 && bits != 24) return nullptr;
  if (IsEmpty() || GetWidth() <= 0 || GetHeight() <= 0) return nullptr;
  if (bits == 8 && IsColor()) return GetDib8Color();
  qorimg::PackedDib dib(GetWidth(), GetHeight(), bits, bits == 8 ? 256 : 0);
  if (!dib) return nullptr;
  if (bits == 8) {
    qorimg::GreyTable(dib);
    qorimg::MonoLines8(*this, dib);
  } else if (!IsColor()) {
    qorimg::MonoLines24(*this, dib);
  } else if (qorimg::IsWholePlane(*this)) {
    for (int y = 0; y < GetHeight(); ++y) dib.ZeroPadding(y, 3LL * GetWidth());
    qorimg::GetDib24ColorPlanes(*this, dib.Bits(), dib.Stride());
  } else {
    qorimg::ColorLines24(*this, dib);
  }
  return dib.Release();
}

// Two passes over the image: the first counts the colour cells, the second
// writes each pixel's palette slot. All three planes are mapped with the levels
// of plane 0.
HDIB CLmrImage::GetDib8Color() const {
  qorimg::PackedDib dib(GetWidth(), GetHeight(), 8, 256);
  if (!dib) return nullptr;
  std::unique_ptr<qorimg::PaletteBuilder> builder;
  try {
    builder = std::make_unique<qorimg::PaletteBuilder>();
  } catch (const std::bad_alloc &) {
    return nullptr;  // the global memory goes with `dib`
  }
  const qorimg::DoubleLevels map(*this, 0);
  const int pr = qorimg::ChannelPlane(*this, 0), pg = qorimg::ChannelPlane(*this, 1),
            pb = qorimg::ChannelPlane(*this, 2);
  const int w = GetWidth(), h = GetHeight();
  auto eachLine = [&](auto &&perPixel) {
    for (int y = 0; y < h; ++y) {
      const float *sr = GetImageAdr(0, y, pr, CImage::ReadOnly);
      const float *sg = GetImageAdr(0, y, pg, CImage::ReadOnly);
      const float *sb = GetImageAdr(0, y, pb, CImage::ReadOnly);
      perPixel(y, sr, sg, sb);
    }
  };
  eachLine([&](int, const float *sr, const float *sg, const float *sb) {
    for (int x = 0; x < w; ++x) builder->Count(qorimg::PaletteBuilder::CellOf(map(sr[x]), map(sg[x]), map(sb[x])));
  });
  try {
    builder->Build(dib.Table());
  } catch (const std::bad_alloc &) {
    return nullptr;
  }
  eachLine([&](int y, const float *sr, const float *sg, const float *sb) {
    unsigned char *d = dib.Line(y);
    for (int x = 0; x < w; ++x)
      d[x] = builder->SlotOf(qorimg::PaletteBuilder::CellOf(map(sr[x]), map(sg[x]), map(sb[x])));
    dib.ZeroPadding(y, w);
  });
  return dib.Release();
}
