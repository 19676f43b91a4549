// The display bitmap in the block store, and its showing in bands.
#include "display/VmDIB.h"

#include <algorithm>
#include <cstring>
#include <new>
#include "display/MemoryDIB.h"
#include "platform/Exceptions.h"
#include "sibling/Exceptions.h"
#include "sibling/Progress.h"

namespace {

// Selects and realizes a palette into a context for a scope, when there is one.
class PaletteSelection {
public:
  PaletteSelection(CDC &dc, CPalette *palette) : dc_(dc), on_(palette != nullptr) {
    if (!on_) return;
    previous_ = dc_.SelectPalette(palette, FALSE);
    dc_.RealizePalette();
  }
  ~PaletteSelection() {
    if (on_) dc_.SelectPalette(previous_, FALSE);
  }
  PaletteSelection(const PaletteSelection &) = delete;
  PaletteSelection &operator=(const PaletteSelection &) = delete;

private:
  CDC &dc_;
  bool on_;
  CPalette *previous_ = nullptr;
};

}  // namespace

CVmDIB::~CVmDIB() { CVmDIB::Empty(); }

int CVmDIB::Create(const std::shared_ptr<CVmManager> &manager, CWnd *wnd, int w, int h, int) {
  return Create(manager, wnd, w, h, nullptr, 0);
}

int CVmDIB::Create(const std::shared_ptr<CVmManager> &manager, CWnd *wnd, int w, int h, PALETTEENTRY *const palette,
                   int entries) {
  Empty();
  if (w <= 0 || h <= 0 || !manager) return 0;
  try {
    const int screen = ScreenBits(wnd);
    const int sample = screen == 16 ? 16 : (screen == 24 || screen == 32) ? 24 : 8;
    const int bits = sample == 8 ? 8 : screen;
    const int colors = PaletteEntriesForDepth(bits);
    // 8-bit indexes without entries of their own go through the palette set by
    // SetColorPalette: the colour table is then the identity of 16-bit indexes.
    const UINT usage = sample == 8 && !palette ? DIB_PAL_COLORS : DIB_RGB_COLORS;
    AllocateInfo(bits, w, h, colors, usage);
    if (usage == DIB_PAL_COLORS) {
      unsigned char *table = reinterpret_cast<unsigned char *>(DibColorTable(BIM));
      for (int i = 0; i < colors; ++i) {
        const std::uint16_t index = static_cast<std::uint16_t>(i);
        std::memcpy(table + 2 * i, &index, sizeof index);
      }
    } else {
      SetColorTable(palette, entries);
    }
    Store = std::make_unique<CVmImage>(manager, sample, w, h, 1, lumora::ProgressWin::Create(nullptr, nullptr, false));
    Manager = manager;
    SampleBits = sample;
    Planes = 1;
    CPaintDC screenDc(wnd);
    MemoryDC.CreateCompatibleDC(&screenDc);
    return 1;
  } catch (CMemoryException *e) {
    e->Delete();
    Empty();
    return 0;
  } catch (const std::bad_alloc &) {
    Empty();
    return 0;
  } catch (...) {
    // A store failure goes on to the caller, leaving no half-made bitmap.
    Empty();
    throw;
  }
}

int CVmDIB::Create(CWnd *wnd, int w, int h, PALETTEENTRY *const palette, int entries) {
  const std::shared_ptr<CVmManager> manager = Manager;
  return Create(manager, wnd, w, h, palette, entries);
}

int CVmDIB::Create(CWnd *wnd, int w, int h, int bProgress) {
  const std::shared_ptr<CVmManager> manager = Manager;
  return Create(manager, wnd, w, h, bProgress);
}

void CVmDIB::Empty() {
  CBaseDIB::Empty();
  Store.reset();
  SampleBits = 0;
  Planes = -1;
  FreeInfo();
}

bool CVmDIB::IsStoreWholePlane() const {
  if (!Store) return false;
  const std::shared_ptr<CVmManager> manager = Store->VmManager();
  return manager && manager->GetAllocationPolicy() != CVmManager::BlockStored;
}

void CVmDIB::CopyLinesTo(CMemoryDIB &target, int srcX, int srcY, int lines, int targetY) {
  const int width = target.GetWidth();
  const int storeBytes = SampleBits / 8;
  const int targetBytes = target.GetBitCount() / 8;
  // Columns of the target that the store has: [first, last).
  const int first = std::clamp(-srcX, 0, width);
  const int last = std::clamp(Width - srcX, first, width);
  for (int i = 0; i < lines; ++i) {
    const int ty = targetY + i;
    if (ty < 0 || ty >= target.GetHeight()) continue;
    unsigned char *out = target.GetImageAdr8(0, ty);
    std::memset(out, 0, static_cast<std::size_t>(target.GetAlign()));
    const int sy = srcY + i;
    if (sy < 0 || sy >= Height || first >= last || targetBytes == 0) continue;
    const unsigned char *in = Store->GetImageAdr(srcX + first, sy, 0, true, false, nullptr);
    unsigned char *o = out + static_cast<std::size_t>(first) * targetBytes;
    const int n = last - first;
    if (targetBytes == storeBytes) {
      std::memcpy(o, in, static_cast<std::size_t>(n) * storeBytes);
    } else if (targetBytes == 4 && storeBytes == 3) {
      for (int x = 0; x < n; ++x) {
        o[4 * x] = in[3 * x];
        o[4 * x + 1] = in[3 * x + 1];
        o[4 * x + 2] = in[3 * x + 2];
      }
    }
  }
}

int CVmDIB::BitBlt(CWnd *, CPaintDC *dc, int x, int y, int w, int h, int srcX, int srcY, DWORD rop) {
  if (IsEmpty() || !dc || w <= 0 || h <= 0) return 0;
  CMemoryDIB band;
  if (!band.CreateCompatible(*this, w, std::min(h, kBandLines))) return 0;
  const PaletteSelection selection(*dc, Palette);
  int ok = 1;
  for (int top = 0; top < h && ok; top += kBandLines) {
    const int lines = std::min(kBandLines, h - top);
    CopyLinesTo(band, srcX, srcY + top, lines, 0);
    ok = dc->BitBlt(x, y + top, w, lines, &band.GetDC(), 0, 0, rop) ? 1 : 0;
  }
  return ok;
}

int CVmDIB::StretchBlt(CWnd *, CDC *dc, int x, int y, int w, int h, int srcX, int srcY, int srcW, int srcH,
                       DWORD rop) {
  if (IsEmpty() || !dc || w <= 0 || h <= 0 || srcW <= 0 || srcH <= 0) return 0;
  // Only the part of the source rectangle that lies in the bitmap is shown, on
  // the destination columns and lines it scales to; the band is thus never wider
  // than the bitmap whatever the sizes. Offsets count from the source corner, in
  // 64 bits.
  using qorimg::geometry::Saturate;
  const long long first = std::clamp(-static_cast<long long>(srcX), 0LL, static_cast<long long>(srcW));
  const long long last = std::clamp(static_cast<long long>(Width) - srcX, first, static_cast<long long>(srcW));
  const long long topLine = std::clamp(-static_cast<long long>(srcY), 0LL, static_cast<long long>(srcH));
  const long long endLine = std::clamp(static_cast<long long>(Height) - srcY, topLine, static_cast<long long>(srcH));
  const long long left = first * w / srcW, right = last * w / srcW;
  if (right <= left || endLine <= topLine) return 1;  // nothing of the bitmap reaches the destination
  const int bandWidth = static_cast<int>(last - first);
  int ok = 1;
  try {
    CMemoryDIB band;
    const int bandLines = static_cast<int>(std::min<long long>(endLine - topLine, kBandLines));
    if (!band.CreateCompatible(*this, bandWidth, bandLines)) return 0;
    const PaletteSelection selection(*dc, Palette);
    for (long long top = topLine; top < endLine && ok; top += bandLines) {
      const int lines = static_cast<int>(std::min<long long>(bandLines, endLine - top));
      CopyLinesTo(band, static_cast<int>(srcX + first), static_cast<int>(srcY + top), lines, 0);
      // The band's destination lines, scaled from its source lines.
      const long long from = top * h / srcH, to = (top + lines) * h / srcH;
      if (to > from)
        ok = dc->StretchBlt(Saturate(x + left), Saturate(y + from), static_cast<int>(right - left),
                            static_cast<int>(to - from), &band.GetDC(), 0, 0, bandWidth, lines, rop)
                 ? 1
                 : 0;
    }
  } catch (const lumora::CVmMemoryAllocationError &) {
    ok = 0;
  }
  return ok;
}
