// The header and pixel setters shared by both display bitmaps.
#include "display/BaseDIB.h"

#include <algorithm>
#include <cstring>

CBaseDIB::~CBaseDIB() = default;

void CBaseDIB::Empty() { MemoryDC.DeleteDC(); }

int CBaseDIB::PaletteEntriesForDepth(int bits) {
  switch (bits) {
    case 1: return 2;
    case 4: return 16;
    case 8: return 256;
    default: return 0;
  }
}

int CBaseDIB::ScreenBits(CWnd *wnd) {
  CPaintDC dc(wnd);
  return dc.GetDeviceCaps(BITSPIXEL);
}

void CBaseDIB::AllocateInfo(int bits, int w, int h, int colors, UINT usage) {
  // At least the size of BITMAPINFO, which declares one colour entry.
  const std::size_t bytes = sizeof(BITMAPINFOHEADER) + sizeof(RGBQUAD) * static_cast<std::size_t>(std::max(colors, 1));
  InfoStorage.reset(new unsigned char[bytes]());
  BIM = reinterpret_cast<BITMAPINFO *>(InfoStorage.get());
  BitCount = bits;
  Width = w;
  Height = h;
  Align = static_cast<int>(DibStride(w, bits));
  PalColors = colors;
  UsageColors = usage;
  BIM->bmiHeader = DibHeader(w, h, bits, colors);
}

void CBaseDIB::SetColorTable(const PALETTEENTRY *palette, int entries) {
  if (!palette || !BIM) return;
  RGBQUAD *table = DibColorTable(BIM);
  const int n = std::min(entries, PalColors);
  for (int i = 0; i < n; ++i) table[i] = RGBQUAD{palette[i].peBlue, palette[i].peGreen, palette[i].peRed, 0};
}

void CBaseDIB::FreeInfo() {
  InfoStorage.reset();
  BIM = nullptr;
  BitCount = 0;
  UsageColors = DIB_RGB_COLORS;
  PalColors = 0;
  Align = 0;
  Width = 0;
  Height = 0;
}

void CBaseDIB::SetPixel(int x, int y, COLORREF c) {
  switch (BitCount) {
    case 8: SetPixel8(x, y, c); break;
    case 16: SetPixel16(GetImageAdr16(x, y), c); break;
    case 24: SetPixel24(x, y, c); break;
    case 32: SetPixel32(x, y, c); break;
    default: break;
  }
}

void CBaseDIB::SetPixel(void *p, COLORREF c) {
  switch (BitCount) {
    case 8: SetPixel8(static_cast<unsigned char *>(p), c); break;
    case 16: SetPixel16(static_cast<unsigned short *>(p), c); break;
    case 24:
    case 32: SetPixel24(static_cast<unsigned char *>(p), c); break;
    default: break;
  }
}
