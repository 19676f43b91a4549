// Window rasters, DIB sections and the copies between them.
#include "platform/DeviceContext.h"

#include <algorithm>
#include <cstring>
#include <new>

struct HBITMAP__ {
  std::vector<unsigned char> info;  // header and colour table
  std::unique_ptr<unsigned char[]> bits;
  UINT usage = DIB_RGB_COLORS;
  int width = 0;
  int height = 0;
  bool bottomUp = true;
  int bitCount = 0;
  long long stride = 0;
  int colors = 0;
};

namespace {

constexpr std::uint32_t kRgbMask = 0x00FFFFFF;

std::uint32_t PackRgb(unsigned r, unsigned g, unsigned b) { return (r << 16) | (g << 8) | b; }

COLORREF ToColorRef(std::uint32_t p) { return RGB((p >> 16) & 0xFF, (p >> 8) & 0xFF, p & 0xFF); }

bool UsesSource(DWORD rop) { return rop != BLACKNESS && rop != WHITENESS; }

bool KnownRop(DWORD rop) {
  switch (rop) {
    case SRCCOPY: case SRCPAINT: case SRCAND: case SRCINVERT: case NOTSRCCOPY: case BLACKNESS: case WHITENESS:
      return true;
    default:
      return false;
  }
}

std::uint32_t Combine(DWORD rop, std::uint32_t dst, std::uint32_t src) {
  switch (rop) {
    case SRCPAINT: return dst | src;
    case SRCAND: return dst & src;
    case SRCINVERT: return dst ^ src;
    case NOTSRCCOPY: return ~src & kRgbMask;
    case BLACKNESS: return 0;
    case WHITENESS: return kRgbMask;
    default: return src;
  }
}

// A 5-bit channel widened to 8 bits by repeating its top bits.
unsigned Widen5(unsigned c) { return (c << 3) | (c >> 2); }

// The colour of table entry `index` of a section.
std::uint32_t TableColor(const HBITMAP__ &s, unsigned index, const CPalette *palette) {
  if (index >= static_cast<unsigned>(s.colors)) return 0;
  const unsigned char *table = s.info.data() + sizeof(BITMAPINFOHEADER);
  if (s.usage == DIB_PAL_COLORS) {
    std::uint16_t slot;
    std::memcpy(&slot, table + 2 * index, sizeof slot);
    if (!palette || slot >= palette->GetEntryCount()) return 0;
    const PALETTEENTRY &e = palette->GetEntries()[slot];
    return PackRgb(e.peRed, e.peGreen, e.peBlue);
  }
  const unsigned char *q = table + 4 * index;  // blue, green, red, reserved
  return PackRgb(q[2], q[1], q[0]);
}

std::uint32_t ReadSection(const HBITMAP__ &s, int x, int y, const CPalette *palette) {
  const long long line = s.bottomUp ? s.height - 1 - y : y;
  const unsigned char *row = s.bits.get() + line * s.stride;
  switch (s.bitCount) {
    case 1: return TableColor(s, (row[x >> 3] >> (7 - (x & 7))) & 1u, palette);
    case 4: return TableColor(s, (row[x >> 1] >> ((x & 1) ? 0 : 4)) & 15u, palette);
    case 8: return TableColor(s, row[x], palette);
    case 16: {
      const unsigned v = row[2 * x] | (row[2 * x + 1] << 8);
      return PackRgb(Widen5((v >> 10) & 31), Widen5((v >> 5) & 31), Widen5(v & 31));
    }
    case 24: return PackRgb(row[3 * x + 2], row[3 * x + 1], row[3 * x]);
    default: return PackRgb(row[4 * x + 2], row[4 * x + 1], row[4 * x]);
  }
}

}  // namespace

// ---- CPalette

BOOL CPalette::CreatePalette(const PALETTEENTRY *entries, int count) {
  if (!entries || count <= 0) return FALSE;
  Entries.assign(entries, entries + count);
  return TRUE;
}

BOOL CPalette::DeleteObject() {
  Entries.clear();
  return TRUE;
}

UINT CPalette::GetPaletteEntries(UINT start, UINT count, PALETTEENTRY *out) const {
  if (!out || start >= Entries.size()) return 0;
  const UINT n = std::min<UINT>(count, static_cast<UINT>(Entries.size()) - start);
  std::copy_n(Entries.begin() + start, n, out);
  return n;
}

// ---- CWnd

CWnd::CWnd(int width, int height, int bitsPixel) {
  SetBitsPixel(bitsPixel);
  SetSize(width, height);
}

bool CWnd::SetBitsPixel(int bits) {
  if (bits != 8 && bits != 16 && bits != 24 && bits != 32) return false;
  BitsPixel = bits;
  return true;
}

void CWnd::SetSize(int width, int height) {
  Width = std::max(width, 0);
  Height = std::max(height, 0);
  Pixels.assign(static_cast<std::size_t>(Width) * Height, 0u);
}

void CWnd::Fill(COLORREF color) {
  std::fill(Pixels.begin(), Pixels.end(), PackRgb(GetRValue(color), GetGValue(color), GetBValue(color)));
}

COLORREF CWnd::GetPixel(int x, int y) const {
  if (x < 0 || y < 0 || x >= Width || y >= Height) return CLR_INVALID;
  return ToColorRef(Pixels[static_cast<std::size_t>(y) * Width + x]);
}

// ---- CDC

CDC::~CDC() { DeleteDC(); }

void CDC::AttachWindow(CWnd *window) {
  DeleteDC();
  Window = window;
  BitsPixel = window ? window->GetBitsPixel() : 32;
  Valid = window != nullptr;
}

BOOL CDC::CreateCompatibleDC(CDC *dc) {
  DeleteDC();
  BitsPixel = dc ? dc->GetDeviceCaps(BITSPIXEL) : 32;
  Valid = true;
  return TRUE;
}

HBITMAP CDC::SelectObject(HBITMAP bitmap) {
  if (!Valid || Window) return nullptr;
  HBITMAP previous = Bitmap;
  Bitmap = bitmap;
  return previous;
}

BOOL CDC::DeleteDC() {
  const BOOL had = Valid ? TRUE : FALSE;
  Valid = false;
  Window = nullptr;
  Bitmap = nullptr;
  Palette = nullptr;
  return had;
}

int CDC::GetDeviceCaps(int index) const {
  switch (index) {
    case BITSPIXEL: return BitsPixel;
    case PLANES: return 1;
    default: return 0;
  }
}

CPalette *CDC::SelectPalette(CPalette *palette, BOOL) {
  CPalette *previous = Palette;
  Palette = palette;
  return previous;
}

UINT CDC::RealizePalette() { return Palette ? static_cast<UINT>(Palette->GetEntryCount()) : 0; }

int CDC::GetWidth() const {
  if (Window) return Window->GetWidth();
  return Bitmap ? Bitmap->width : 0;
}

int CDC::GetHeight() const {
  if (Window) return Window->GetHeight();
  return Bitmap ? Bitmap->height : 0;
}

bool CDC::ReadSource(int x, int y, const CPalette *palette, std::uint32_t &out) const {
  if (x < 0 || y < 0 || x >= GetWidth() || y >= GetHeight()) return false;
  if (Window) {
    out = Window->Raster()[static_cast<std::size_t>(y) * Window->GetWidth() + x];
    return true;
  }
  if (!Bitmap) return false;
  out = ReadSection(*Bitmap, x, y, palette);
  return true;
}

COLORREF CDC::GetPixel(int x, int y) const {
  std::uint32_t p;
  return Valid && ReadSource(x, y, Palette, p) ? ToColorRef(p) : CLR_INVALID;
}

// A copy is a stretch at scale 1: source column sx + (2 dx + 1) w / 2w is sx + dx.
bool CDC::CanBlit(const CDC *src, DWORD rop) const {
  return Valid && Window && KnownRop(rop) && (!UsesSource(rop) || (src && src->Valid));
}

BOOL CDC::BitBlt(int x, int y, int w, int h, CDC *src, int sx, int sy, DWORD rop) {
  if (w <= 0 || h <= 0) return CanBlit(src, rop);
  return StretchBlt(x, y, w, h, src, sx, sy, w, h, rop);
}

BOOL CDC::StretchBlt(int x, int y, int w, int h, CDC *src, int sx, int sy, int sw, int sh, DWORD rop) {
  if (!CanBlit(src, rop) || w <= 0 || h <= 0 || sw <= 0 || sh <= 0) return FALSE;
  const bool needsSource = UsesSource(rop);
  // A copy within one raster reads from a snapshot, so overlapping areas come out right.
  CWnd snapshot;
  const CDC *source = src;
  CDC snapshotDc;
  if (needsSource && src->Window == Window) {
    snapshot = *Window;
    snapshotDc.AttachWindow(&snapshot);
    source = &snapshotDc;
  }
  std::uint32_t *raster = Window->Raster();
  const int width = Window->GetWidth(), height = Window->GetHeight();
  for (int dy = 0; dy < h; ++dy) {
    const int ty = y + dy;
    if (ty < 0 || ty >= height) continue;
    const int syy = sy + static_cast<int>((2LL * dy + 1) * sh / (2LL * h));
    for (int dx = 0; dx < w; ++dx) {
      const int tx = x + dx;
      if (tx < 0 || tx >= width) continue;
      const int sxx = sx + static_cast<int>((2LL * dx + 1) * sw / (2LL * w));
      std::uint32_t s = 0;
      if (needsSource && !source->ReadSource(sxx, syy, Palette, s)) continue;
      std::uint32_t &d = raster[static_cast<std::size_t>(ty) * width + tx];
      d = Combine(rop, d, s);
    }
  }
  return TRUE;
}

CPaintDC::CPaintDC(CWnd *window) { AttachWindow(window); }

// ---- DIB sections

HBITMAP CreateDIBSection(CDC *, const BITMAPINFO *info, UINT usage, void **bits) {
  if (bits) *bits = nullptr;
  if (!info || !bits) return nullptr;
  const BITMAPINFOHEADER &h = info->bmiHeader;
  const int depth = h.biBitCount;
  const bool depthOk = depth == 1 || depth == 4 || depth == 8 || depth == 16 || depth == 24 || depth == 32;
  if (h.biSize != sizeof(BITMAPINFOHEADER) || h.biPlanes != 1 || h.biCompression != BI_RGB || !depthOk ||
      h.biWidth <= 0 || h.biHeight == 0 || h.biHeight == INT32_MIN)
    return nullptr;
  if (usage != DIB_RGB_COLORS && usage != DIB_PAL_COLORS) return nullptr;
  int colors = std::clamp(DibColorCount(h), 0, 256);
  if (depth <= 8) colors = std::min(colors, 1 << depth);
  try {
    auto section = std::make_unique<HBITMAP__>();
    section->width = h.biWidth;
    section->height = h.biHeight > 0 ? h.biHeight : -h.biHeight;
    section->bottomUp = h.biHeight > 0;
    section->bitCount = depth;
    section->stride = DibStride(h.biWidth, depth);
    section->usage = usage;
    section->colors = colors;
    const std::size_t tableBytes = static_cast<std::size_t>(colors) * (usage == DIB_PAL_COLORS ? 2 : 4);
    const auto *raw = reinterpret_cast<const unsigned char *>(info);
    section->info.assign(raw, raw + sizeof(BITMAPINFOHEADER) + tableBytes);
    section->bits.reset(new unsigned char[static_cast<std::size_t>(section->stride * section->height)]());
    *bits = section->bits.get();
    return section.release();
  } catch (const std::bad_alloc &) {
    return nullptr;
  }
}

BOOL DeleteObject(HBITMAP bitmap) {
  if (!bitmap) return FALSE;
  delete bitmap;
  return TRUE;
}
