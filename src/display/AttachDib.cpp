// Taking the pixels of a device-independent bitmap: an uncompressed 8-bit DIB
// with a colour table, or a 24 or 32-bit one, becomes an image of unsigned bytes
// with levels 0..255: one plane when every table colour is a grey, else three
// (red, green, blue). CLmrImage then converts it to float at once.
#include <algorithm>
#include <cstdint>
#include <cstring>
#include "core/LmrImage.h"
#include "platform/Bitmap.h"
#include "platform/GlobalMemory.h"
#include "sibling/Exceptions.h"
#include "sibling/Progress.h"

namespace {

class LockedDib {
public:
  explicit LockedDib(HDIB dib) : dib_(dib), base_(dib ? static_cast<const unsigned char *>(GlobalLock(dib)) : nullptr) {}
  ~LockedDib() {
    if (base_) GlobalUnlock(dib_);
  }
  LockedDib(const LockedDib &) = delete;
  LockedDib &operator=(const LockedDib &) = delete;
  const unsigned char *Base() const { return base_; }

private:
  HDIB dib_;
  const unsigned char *base_;
};

// Where the parts of a packed DIB lie, checked against the memory's size.
struct DibLayout {
  BITMAPINFOHEADER header{};
  int width = 0, height = 0, colors = 0;
  bool bottomUp = true;
  std::size_t tableOffset = 0, bitsOffset = 0;
  long long stride = 0;

  bool Read(const unsigned char *base, std::size_t size) {
    if (size < sizeof(BITMAPINFOHEADER)) return false;
    std::memcpy(&header, base, sizeof header);
    const int bits = header.biBitCount;
    if (header.biSize < sizeof(BITMAPINFOHEADER) || header.biSize > size || header.biPlanes != 1 ||
        header.biCompression != BI_RGB || (bits != 8 && bits != 24 && bits != 32) || header.biWidth <= 0 ||
        header.biHeight == 0 || header.biHeight == INT32_MIN)
      return false;
    width = header.biWidth;
    height = header.biHeight > 0 ? header.biHeight : -header.biHeight;
    bottomUp = header.biHeight > 0;
    colors = std::clamp(DibColorCount(header), 0, 256);
    tableOffset = header.biSize;
    bitsOffset = tableOffset + static_cast<std::size_t>(colors) * sizeof(RGBQUAD);
    stride = DibStride(width, bits);
    return bitsOffset <= size && static_cast<unsigned long long>(stride) * height <= size - bitsOffset;
  }
};

}  // namespace

bool CImage::AttachDIB(const std::shared_ptr<CVmManager> &manager, HDIB dib, HWND hwnd, const wchar_t *caption) {
  if (!dib || !manager) return false;
  const LockedDib locked(dib);
  if (!locked.Base()) return false;
  DibLayout layout;
  if (!layout.Read(locked.Base(), GlobalSize(dib))) return false;

  const int bits = layout.header.biBitCount;
  RGBQUAD table[256] = {};  // indexes beyond the table show black
  std::memcpy(table, locked.Base() + layout.tableOffset, static_cast<std::size_t>(layout.colors) * sizeof(RGBQUAD));
  bool grey = bits == 8;
  for (int i = 0; grey && i < layout.colors; ++i)
    grey = table[i].rgbRed == table[i].rgbGreen && table[i].rgbGreen == table[i].rgbBlue;
  const int planes = grey ? 1 : 3;

  Empty();
  BitsPixel = UInt8;
  Signed = false;
  Bscale = 1.0;
  Bzero = 0.0;
  SetWidth(layout.width);
  SetHeight(layout.height);
  SetPlanes(planes);
  SetOrgBitsPixel(Source8);
  SetOrgPlanes(planes);
  if (!AllocImage(manager, lumora::ProgressWin::Create(hwnd, caption, false))) return false;
  for (int p = 0; p < planes; ++p) SetLevel(p, 0.0, 255.0);

  const int bytesPerPixel = bits / 8;
  for (int y = 0; y < layout.height; ++y) {
    const long long line = layout.bottomUp ? layout.height - 1 - y : y;
    const unsigned char *s = locked.Base() + layout.bitsOffset + line * layout.stride;
    if (grey) {
      unsigned char *d = GetImageAdr(0, y, 0, false, false, nullptr);
      for (int x = 0; x < layout.width; ++x) d[x] = table[s[x]].rgbRed;
      continue;
    }
    unsigned char *r = GetImageAdr(0, y, 0, false, false, nullptr);
    unsigned char *g = GetImageAdr(0, y, 1, false, false, nullptr);
    unsigned char *b = GetImageAdr(0, y, 2, false, false, nullptr);
    for (int x = 0; x < layout.width; ++x) {
      const unsigned char *px = s + static_cast<std::size_t>(x) * bytesPerPixel;
      const RGBQUAD c = bits == 8 ? table[px[0]] : RGBQUAD{px[0], px[1], px[2], 0};
      r[x] = c.rgbRed;
      g[x] = c.rgbGreen;
      b[x] = c.rgbBlue;
    }
  }
  return true;
}

int CLmrImage::AttachDIB(const std::shared_ptr<CVmManager> &manager, HDIB dib) {
  try {
    if (!CImage::AttachDIB(manager, dib, nullptr, nullptr)) return 0;
    GetPixelGrayRawBufInit();  // the cached lines belonged to the old store
    return CImage::ChangeBits(CImage::Float32, true, CImage::ScaleLevel, nullptr) ? 1 : 0;
  } catch (const lumora::CVmMemoryAllocationError &) {
    return 0;
  }
}
