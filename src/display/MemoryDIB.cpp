// The in-memory display bitmap: creation, copies and the packed form.
#include "display/MemoryDIB.h"

#include <algorithm>
#include <cstring>
#include <new>
#include <vector>
#include "display/PackedDib.h"
#include "display/VmDIB.h"

CMemoryDIB::~CMemoryDIB() { CMemoryDIB::Empty(); }

CMemoryDIB::CMemoryDIB(const CMemoryDIB &source) : CBaseDIB() { CopyImage(&source, nullptr); }

CMemoryDIB &CMemoryDIB::operator=(const CMemoryDIB &source) {
  CopyImage(&source, nullptr);
  return *this;
}

int CMemoryDIB::Create(CWnd *wnd, int w, int h, PALETTEENTRY *const palette, int entries) {
  Empty();
  if (w <= 0 || h <= 0) return 0;
  const int bits = ScreenBits(wnd);
  const int colors = PaletteEntriesForDepth(bits);
  // The entries as blue, green, red, 0; the rest of the table stays zero.
  std::vector<RGBQUAD> table(static_cast<std::size_t>(std::max(colors, 1)), RGBQUAD{0, 0, 0, 0});
  if (palette)
    for (int i = 0; i < std::min(entries, colors); ++i)
      table[i] = RGBQUAD{palette[i].peBlue, palette[i].peGreen, palette[i].peRed, 0};
  return CreateSection(wnd, bits, w, h, colors, DIB_RGB_COLORS, reinterpret_cast<const unsigned char *>(table.data()));
}

int CMemoryDIB::Create(CWnd *wnd, int w, int h, int) {
  Empty();
  if (w <= 0 || h <= 0) return 0;
  const int bits = ScreenBits(wnd);
  return CreateSection(wnd, bits, w, h, PaletteEntriesForDepth(bits), DIB_RGB_COLORS, nullptr);
}

int CMemoryDIB::CreateCompatible(const CBaseDIB &format, int w, int h) {
  const BITMAPINFO *info = format.GetBIMPtr();
  if (!info || w <= 0 || h <= 0) {
    Empty();
    return 0;
  }
  // Read what is needed before emptying: `format` may be this bitmap.
  const int bits = format.GetBitCount(), colors = format.GetPalColors();
  const UINT usage = format.GetUsageColors();
  std::unique_ptr<unsigned char[]> table;
  try {
    table.reset(new unsigned char[static_cast<std::size_t>(std::max(colors, 1)) * sizeof(RGBQUAD)]);
  } catch (const std::bad_alloc &) {
    Empty();
    return 0;
  }
  std::memcpy(table.get(), DibColorTable(info), static_cast<std::size_t>(colors) * sizeof(RGBQUAD));
  Empty();
  return CreateSection(nullptr, bits, w, h, colors, usage, table.get());
}

int CMemoryDIB::CreateSection(CWnd *wnd, int bits, int w, int h, int colors, UINT usage,
                              const unsigned char *table) {
  try {
    AllocateInfo(bits, w, h, colors, usage);
  } catch (const std::bad_alloc &) {
    Empty();
    return 0;
  }
  if (table) std::memcpy(DibColorTable(BIM), table, static_cast<std::size_t>(colors) * sizeof(RGBQUAD));
  CPaintDC screen(wnd);
  void *section = nullptr;
  Bitmap = CreateDIBSection(&screen, BIM, UsageColors, &section);
  if (!Bitmap) {
    Empty();
    return 0;
  }
  Bits = static_cast<unsigned char *>(section);
  MemoryDC.CreateCompatibleDC(&screen);
  MemoryDC.SelectObject(Bitmap);
  return 1;
}

void CMemoryDIB::Empty() {
  CBaseDIB::Empty();
  if (Bitmap) DeleteObject(Bitmap);
  Bitmap = nullptr;
  Bits = nullptr;
  FreeInfo();
}

int CMemoryDIB::BitBlt(CWnd *, CPaintDC *dc, int x, int y, int w, int h, int srcX, int srcY, DWORD rop) {
  if (IsEmpty() || !dc) return 0;
  return dc->BitBlt(x, y, w, h, &MemoryDC, srcX, srcY, rop);
}

int CMemoryDIB::StretchBlt(CWnd *, CDC *dc, int x, int y, int w, int h, int srcX, int srcY, int srcW, int srcH,
                           DWORD rop) {
  if (IsEmpty() || !dc) return 0;
  return dc->StretchBlt(x, y, w, h, &MemoryDC, srcX, srcY, srcW, srcH, rop);
}

void CMemoryDIB::CopyImage(const CMemoryDIB *src, const CRect *rect) {
  if (!src || src->IsEmpty()) return;
  if (src == this) {
    if (!rect) return;
    const CMemoryDIB whole(*this);
    CopyImage(&whole, rect);
    return;
  }
  CRect area(0, 0, src->Width, src->Height);
  if (rect && !area.IntersectRect(area, *rect)) {
    Empty();
    return;
  }
  // Below 8 bits a rectangle would not start on a byte; only whole lines copy.
  const bool wholeWidth = area.left == 0 && area.right == src->Width;
  if (src->BitCount < 8 && !wholeWidth) {
    Empty();
    return;
  }
  if (!CreateCompatible(*src, area.Width(), area.Height())) return;
  const std::size_t lineBytes =
      src->BitCount < 8 ? static_cast<std::size_t>(Align) : static_cast<std::size_t>(area.Width()) * (BitCount / 8);
  for (int y = area.top; y < area.bottom; ++y)
    std::memcpy(LineAddress(0, y - area.top, 1), src->LineAddress(area.left, y, BitCount / 8), lineBytes);
}

void CMemoryDIB::CopyImage(CVmDIB *src, const CRect *rect) {
  if (!src || src->IsEmpty()) return;
  CRect area(0, 0, src->GetWidth(), src->GetHeight());
  if (rect && !area.IntersectRect(area, *rect)) {
    Empty();
    return;
  }
  if (!CreateCompatible(*src, area.Width(), area.Height())) return;
  src->CopyLinesTo(*this, area.left, area.top, area.Height(), 0);
}

HDIB CMemoryDIB::CreateHDIB() const {
  if (IsEmpty()) return nullptr;
  qorimg::PackedDib packed(Width, Height, BitCount, PalColors);
  if (!packed) return nullptr;
  std::memcpy(packed.Table(), DibColorTable(BIM), static_cast<std::size_t>(PalColors) * sizeof(RGBQUAD));
  std::memcpy(packed.Bits(), Bits, static_cast<std::size_t>(Align) * Height);
  return packed.Release();
}
