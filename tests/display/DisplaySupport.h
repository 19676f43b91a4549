// Shared by the display tests: an independent reference of the display mapping
// and readers of packed bitmaps.
#pragma once
#include <cmath>
#include <cstring>
#include <memory>
#include <vector>
#include "core/LmrImage.h"
#include "platform/Bitmap.h"
#include "platform/GlobalMemory.h"
#include "support/Fixtures.h"

namespace qorimg::test {

// The display mapping written plainly in double: 0 at or below the minimum (and
// for NaN), 255 at or above the maximum, else the scaled value truncated.
inline int ReferenceByte(double v, double min, double max) {
  if (std::isnan(v) || v <= min) return 0;
  if (v >= max) return 255;
  return static_cast<int>(std::floor((v - min) / (max - min) * 255.0));
}

inline int ReferenceByte(const CLmrImage &image, int x, int y, int plane) {
  return ReferenceByte(image.GetPixelGrayRaw(x, y, plane), image.GetLevelMin(plane), image.GetLevelMax(plane));
}

// The fixture's pattern with samples below, inside and above the levels of each
// plane: one exactly at each level, at (0, 0) and (1, 0), and a NaN at (3, 1).
inline std::unique_ptr<CLmrImage> MakeSpread(const std::shared_ptr<CVmManager> &manager, int w, int h, int planes) {
  auto image = MakeImage(manager, w, h, planes);
  for (int p = 0; p < planes; ++p) {
    const double min = 100.0 + 20 * p, max = 600.0 - 30 * p;
    image->CImage::SetLevel(p, min, max);
    image->SetPixelGrayRaw(0, 0, static_cast<float>(min), p);
    image->SetPixelGrayRaw(1, 0, static_cast<float>(max), p);
    image->SetPixelGrayRaw(3, 1, NAN, p);
  }
  return image;
}

// A copy of a packed DIB held by a global handle, which it frees.
struct PackedCopy {
  BITMAPINFOHEADER header{};
  std::vector<RGBQUAD> table;
  std::vector<unsigned char> bits;
  long long stride = 0;

  explicit PackedCopy(HDIB dib) {
    const auto *base = static_cast<const unsigned char *>(GlobalLock(dib));
    std::memcpy(&header, base, sizeof header);
    table.resize(header.biClrUsed);
    if (!table.empty()) std::memcpy(table.data(), base + sizeof header, table.size() * sizeof(RGBQUAD));
    stride = DibStride(header.biWidth, header.biBitCount);
    const unsigned char *start = base + sizeof header + table.size() * sizeof(RGBQUAD);
    bits.assign(start, start + stride * header.biHeight);
    GlobalUnlock(dib);
    GlobalFree(dib);
  }
  // Pixel (x, y) of the image, the lines being bottom-up.
  const unsigned char *At(int x, int y) const {
    return bits.data() + (header.biHeight - 1 - y) * stride + x * (header.biBitCount / 8);
  }
};

}  // namespace qorimg::test
