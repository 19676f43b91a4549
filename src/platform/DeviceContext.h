// Drawing surfaces in memory, in place of a windowing system's device contexts.
// A window (CWnd) is a 32-bit BGRX raster with the colour depth that its paint
// context reports; the application shows the raster with its own toolkit and
// tests read it back pixel by pixel. A memory context draws from a DIB section
// (CreateDIBSection), whose bits are read through its header and colour table.
// Only what the display bitmaps need is here: BitBlt, nearest-neighbour
// StretchBlt, palettes as tables, and the depth query.
#pragma once
#include <cstdint>
#include <memory>
#include <vector>
#include "Export.h"
#include "platform/Bitmap.h"
#include "platform/Object.h"
#include "platform/WinTypes.h"

// A DIB section: a copy of its header and colour table, and its zeroed bits.
struct HBITMAP__;
using HBITMAP = HBITMAP__ *;

// A logical palette: a table of colours.
class QORIMG_API CPalette : public CObject {
public:
  BOOL CreatePalette(const PALETTEENTRY *entries, int count);
  BOOL DeleteObject();
  int GetEntryCount() const { return static_cast<int>(Entries.size()); }
  UINT GetPaletteEntries(UINT start, UINT count, PALETTEENTRY *out) const;
  const PALETTEENTRY *GetEntries() const { return Entries.data(); }

private:
  std::vector<PALETTEENTRY> Entries;
};

// A window's client area: a raster of 0x00RRGGBB words (bytes blue, green, red,
// 0), black when made, and the depth that a paint context on it reports.
class QORIMG_API CWnd : public CObject {
public:
  explicit CWnd(int width = 0, int height = 0, int bitsPixel = 32);
  // 8, 16, 24 or 32; any other value is refused (false) and the depth stays.
  bool SetBitsPixel(int bits);
  int GetBitsPixel() const { return BitsPixel; }
  // A new, black raster.
  void SetSize(int width, int height);
  int GetWidth() const { return Width; }
  int GetHeight() const { return Height; }
  void Fill(COLORREF color);
  // The colour at (x, y); CLR_INVALID outside.
  COLORREF GetPixel(int x, int y) const;

  std::uint32_t *Raster() { return Pixels.data(); }
  const std::uint32_t *Raster() const { return Pixels.data(); }

private:
  int Width = 0;
  int Height = 0;
  int BitsPixel = 32;
  std::vector<std::uint32_t> Pixels;
};

constexpr COLORREF CLR_INVALID = 0xFFFFFFFF;

// A device context: on a window's raster (CPaintDC), or a memory context with a
// DIB section selected. Pixels are written only to a window's raster; a DIB
// section is a source. Colours of a DIB_PAL_COLORS section are resolved through
// the palette selected into the destination context when it is drawn (black
// without one).
class QORIMG_API CDC : public CObject {
public:
  CDC() = default;
  ~CDC() override;
  CDC(const CDC &) = delete;
  CDC &operator=(const CDC &) = delete;

  // A memory context with the depth of `dc` (32 bits when null) and nothing selected.
  BOOL CreateCompatibleDC(CDC *dc);
  // Selects a DIB section as the surface; returns the one selected before.
  HBITMAP SelectObject(HBITMAP bitmap);
  BOOL DeleteDC();
  bool IsValid() const { return Valid; }

  int GetDeviceCaps(int index) const;
  CPalette *SelectPalette(CPalette *palette, BOOL forceBackground);
  // Number of entries of the selected palette.
  UINT RealizePalette();

  // Copies w x h pixels from (sx, sy) of `src` to (x, y), combined by `rop`.
  // Parts outside either surface are left out. FALSE when this context has no
  // raster, `src` has no surface, or the raster operation is unknown.
  BOOL BitBlt(int x, int y, int w, int h, CDC *src, int sx, int sy, DWORD rop);
  // Scales sw x sh source pixels onto w x h, each target pixel taking the source
  // pixel under its centre. Sizes must be positive.
  BOOL StretchBlt(int x, int y, int w, int h, CDC *src, int sx, int sy, int sw, int sh, DWORD rop);

  // The colour at (x, y) of the surface; CLR_INVALID outside or without one.
  COLORREF GetPixel(int x, int y) const;
  int GetWidth() const;
  int GetHeight() const;

protected:
  void AttachWindow(CWnd *window);

private:
  // The source colour at (x, y) as 0x00RRGGBB, with `palette` for DIB_PAL_COLORS.
  bool ReadSource(int x, int y, const CPalette *palette, std::uint32_t &out) const;
  // A drawable target, a known operation, and a valid source where it reads one.
  bool CanBlit(const CDC *src, DWORD rop) const;

  bool Valid = false;
  CWnd *Window = nullptr;
  HBITMAP Bitmap = nullptr;
  int BitsPixel = 32;
  CPalette *Palette = nullptr;
};

// A context for painting a window: its raster and its depth.
class QORIMG_API CPaintDC : public CDC {
public:
  explicit CPaintDC(CWnd *window);
};

// A DIB section for `info` (header and colour table): zeroed bits of
// stride * |height| bytes, their address in *bits. Null (and *bits null) when
// the header is not a plain uncompressed 1, 4, 8, 16, 24 or 32-bit one or the
// memory cannot be had.
QORIMG_API HBITMAP CreateDIBSection(CDC *dc, const BITMAPINFO *info, UINT usage, void **bits);
QORIMG_API BOOL DeleteObject(HBITMAP bitmap);
