// CMemoryDIB: a display bitmap in memory, a DIB section selected into its own
// memory context, ready to be copied onto a window. Lines are stored bottom-up:
// image line 0 is the last line in memory.
#pragma once
#include "Export.h"
#include "display/BaseDIB.h"
#include "platform/Geometry.h"

class CVmDIB;

class QORIMG_API CMemoryDIB : public CBaseDIB {
public:
  CMemoryDIB() = default;
  ~CMemoryDIB() override;
  CMemoryDIB(const CMemoryDIB &source);
  // The same as CopyImage(&source, nullptr).
  CMemoryDIB &operator=(const CMemoryDIB &source);

  int Create(CWnd *wnd, int w, int h, PALETTEENTRY *const palette, int entries) override;
  // The last argument is kept for the interface; allocation shows no progress.
  int Create(CWnd *wnd, int w, int h, int bProgress) override;
  // A w x h bitmap with the depth, colour table and colour usage of `format`.
  int CreateCompatible(const CBaseDIB &format, int w, int h);
  void Empty() override;
  bool IsEmpty() const override { return Bits == nullptr; }

  int BitBlt(CWnd *wnd, CPaintDC *dc, int x, int y, int w, int h, int srcX, int srcY, DWORD rop) override;
  int StretchBlt(CWnd *wnd, CDC *dc, int x, int y, int w, int h, int srcX, int srcY, int srcW, int srcH,
                 DWORD rop) override;

  unsigned char *GetImageAdr8(int x, int y) override { return LineAddress(x, y, 1); }
  unsigned short *GetImageAdr16(int x, int y) override {
    return reinterpret_cast<unsigned short *>(LineAddress(x, y, 2));
  }
  unsigned char *GetImageAdr24(int x, int y) override { return LineAddress(x, y, 3); }
  unsigned char *GetImageAdr32(int x, int y) override { return LineAddress(x, y, 4); }

  // This bitmap becomes a copy of the source's rectangle (clipped to the source;
  // null: all of it), of the rectangle's size. An empty source is ignored; when
  // the copy cannot be set up this bitmap is left empty.
  void CopyImage(const CMemoryDIB *src, const CRect *rect);
  void CopyImage(CVmDIB *src, const CRect *rect);

  // The bitmap as movable global memory: header, colour table, pixel lines.
  // Null when empty or when the memory cannot be had.
  HDIB CreateHDIB() const;

  HBITMAP GetBitmap() const { return Bitmap; }
  unsigned char *GetBits() const { return Bits; }

private:
  // The header and DIB section of a w x h bitmap at `bits`; `table` (colors
  // entries of 4 bytes) or zeros for the colour table. 0 (and empty) on failure.
  int CreateSection(CWnd *wnd, int bits, int w, int h, int colors, UINT usage, const unsigned char *table);
  unsigned char *LineAddress(int x, int y, int bytesPerPixel) const {
    return Bits + static_cast<long long>(Height - y - 1) * Align + static_cast<long long>(x) * bytesPerPixel;
  }

  HBITMAP Bitmap = nullptr;
  unsigned char *Bits = nullptr;
};
