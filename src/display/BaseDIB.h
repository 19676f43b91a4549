// CBaseDIB: a display bitmap, what the screen shows of an image. It carries the
// bitmap header (depth, colour table, line stride) and a memory device context,
// and writes pixels in the screen's formats: 8-bit indexes, 16-bit 5-5-5 with an
// ordered dither, 24 and 32-bit blue-green-red. CMemoryDIB keeps its pixels in
// memory as a DIB section; CVmDIB keeps them in the block store so that a bitmap
// of a very large frame needs no contiguous memory, and shows itself in bands.
// CLmrImage::ToDIB fills either.
#pragma once
#include <memory>
#include "Export.h"
#include "platform/Bitmap.h"
#include "platform/DeviceContext.h"
#include "platform/Object.h"
#include "platform/WinTypes.h"

class QORIMG_API CBaseDIB : public CObject {
public:
  CBaseDIB() = default;
  ~CBaseDIB() override;
  CBaseDIB(const CBaseDIB &) = delete;
  CBaseDIB &operator=(const CBaseDIB &) = delete;

  // A bitmap of w x h at the depth of the window's paint context; the first form
  // copies `entries` palette entries into the colour table. 0 on failure.
  virtual int Create(CWnd *wnd, int w, int h, PALETTEENTRY *const palette, int entries) = 0;
  virtual int Create(CWnd *wnd, int w, int h, int bProgress) = 0;
  // Deletes the memory device context.
  virtual void Empty();
  virtual bool IsEmpty() const = 0;
  virtual int BitBlt(CWnd *wnd, CPaintDC *dc, int x, int y, int w, int h, int srcX, int srcY, DWORD rop) = 0;
  virtual int StretchBlt(CWnd *wnd, CDC *dc, int x, int y, int w, int h, int srcX, int srcY, int srcW, int srcH,
                         DWORD rop) = 0;
  // Address of pixel (x, y), (0, 0) being the top left of what is shown.
  virtual unsigned char *GetImageAdr8(int x, int y) = 0;
  virtual unsigned short *GetImageAdr16(int x, int y) = 0;
  virtual unsigned char *GetImageAdr24(int x, int y) = 0;
  virtual unsigned char *GetImageAdr32(int x, int y) = 0;

  CDC &GetDC() { return MemoryDC; }
  BITMAPINFO *GetBIMPtr() { return BIM; }
  const BITMAPINFO *GetBIMPtr() const { return BIM; }
  int GetBitCount() const { return BitCount; }
  UINT GetUsageColors() const { return UsageColors; }
  int GetPalColors() const { return PalColors; }
  int GetAlign() const { return Align; }
  int GetWidth() const { return Width; }
  int GetHeight() const { return Height; }

  // Pixel setters. The two SetPixel dispatch on the bit count; at 32 bits the
  // same three bytes as at 24 are written and the fourth is left.
  void SetPixel(int x, int y, COLORREF c);
  void SetPixel(void *p, COLORREF c);
  void SetPixel8(int x, int y, COLORREF c) { SetPixel8(GetImageAdr8(x, y), c); }
  void SetPixel24(int x, int y, COLORREF c) { SetPixel24(GetImageAdr24(x, y), c); }
  void SetPixel32(int x, int y, COLORREF c) { SetPixel24(GetImageAdr32(x, y), c); }
  static void SetPixel8(unsigned char *p, COLORREF c) { *p = static_cast<unsigned char>(c & 0xFF); }
  static void SetPixel24(unsigned char *p, COLORREF c) {
    p[0] = GetBValue(c);
    p[1] = GetGValue(c);
    p[2] = GetRValue(c);
  }
  // 5-5-5, red in the high bits.
  static void SetPixel16(unsigned short *p, COLORREF c) {
    *p = static_cast<unsigned short>((c & 248) << 7 | ((c >> 8) & 248) << 2 | (c >> 16) >> 3);
  }
  static void SetPixel16(unsigned short *p, int r, int g, int b) {
    *p = static_cast<unsigned short>(((r & 248) * 32 | (g & 248)) * 4 | b >> 3);
  }
  // With an ordered dither: where x + y is even, 4 is added to each channel
  // (at most 255) before packing, so that flat areas show the half steps.
  static void SetPixel16(unsigned short *p, int x, int y, int r, int g, int b) {
    if (((x + y) & 1) == 0) {
      r = r + 4 > 255 ? 255 : r + 4;
      g = g + 4 > 255 ? 255 : g + 4;
      b = b + 4 > 255 ? 255 : b + 4;
    }
    SetPixel16(p, r, g, b);
  }

protected:
  // Colour table entries a depth has: 2 at 1 bit, 16 at 4, 256 at 8, else none.
  static int PaletteEntriesForDepth(int bits);
  // The depth a paint context on `wnd` reports (32 for no window).
  static int ScreenBits(CWnd *wnd);
  // A header for w x h at `bits` with a zeroed colour table of `colors` entries,
  // and the fields that mirror it. Throws std::bad_alloc.
  void AllocateInfo(int bits, int w, int h, int colors, UINT usage);
  // Copies up to PalColors entries into the colour table as blue, green, red, 0.
  void SetColorTable(const PALETTEENTRY *palette, int entries);
  void FreeInfo();

  CDC MemoryDC;
  std::unique_ptr<unsigned char[]> InfoStorage;  // header and colour table
  BITMAPINFO *BIM = nullptr;
  int BitCount = 0;
  UINT UsageColors = DIB_RGB_COLORS;
  int PalColors = 0;
  int Align = 0;
  int Width = 0;
  int Height = 0;
};
