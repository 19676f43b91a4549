// CVmDIB: a display bitmap whose pixels live in the block store, one plane of
// 8-bit indexes, 16-bit 5-5-5 or 24-bit blue-green-red samples, lines top-down.
// A bitmap of a frame larger than memory can thus be made; it is shown in bands
// of up to 50 lines through a small temporary CMemoryDIB.
#pragma once
#include <memory>
#include "Export.h"
#include "display/BaseDIB.h"
#include "sibling/VmImage.h"
#include "sibling/VmManager.h"

class CMemoryDIB;

class QORIMG_API CVmDIB : public CBaseDIB {
public:
  // Lines of one band when the bitmap is shown.
  static constexpr int kBandLines = 50;

  CVmDIB() = default;
  ~CVmDIB() override;

  // A w x h bitmap in a store on `manager`: samples of 16 bits for a 16-bit
  // screen, 24 bits for 24 and 32-bit screens (the header keeps the screen's
  // depth), else 8-bit indexes. Without palette entries an 8-bit bitmap's colour
  // table indexes the palette given by SetColorPalette. Returns 0 on a zero size
  // or when memory runs out; a store that cannot allocate throws.
  int Create(const std::shared_ptr<CVmManager> &manager, CWnd *wnd, int w, int h, int bProgress);
  int Create(const std::shared_ptr<CVmManager> &manager, CWnd *wnd, int w, int h, PALETTEENTRY *const palette,
             int entries);
  // The base forms use the manager of the last Create (or SetVmManager).
  int Create(CWnd *wnd, int w, int h, PALETTEENTRY *const palette, int entries) override;
  int Create(CWnd *wnd, int w, int h, int bProgress) override;
  void SetVmManager(const std::shared_ptr<CVmManager> &manager) { Manager = manager; }
  std::shared_ptr<CVmManager> GetVmManager() const { return Manager; }

  void Empty() override;
  bool IsEmpty() const override { return !Store; }

  // Copies (srcX, srcY, w, h) onto the context at (x, y) in bands, the palette
  // selected first when one is set. Parts outside the bitmap show black.
  int BitBlt(CWnd *wnd, CPaintDC *dc, int x, int y, int w, int h, int srcX, int srcY, DWORD rop) override;
  // Scales (srcX, srcY, srcW, srcH) onto (x, y, w, h) in bands of source lines.
  // 0 when the store cannot bring a block in.
  int StretchBlt(CWnd *wnd, CDC *dc, int x, int y, int w, int h, int srcX, int srcY, int srcW, int srcH,
                 DWORD rop) override;

  unsigned char *GetImageAdr8(int x, int y) override { return Address(x, y); }
  unsigned short *GetImageAdr16(int x, int y) override { return reinterpret_cast<unsigned short *>(Address(x, y)); }
  unsigned char *GetImageAdr24(int x, int y) override { return Address(x, y); }
  // The store keeps 3 bytes a pixel also at 32-bit depth.
  unsigned char *GetImageAdr32(int x, int y) override { return Address(x, y); }

  void SetColorPalette(CPalette *palette) { Palette = palette; }
  CPalette *GetColorPalette() const { return Palette; }
  int GetSampleBits() const { return SampleBits; }
  int GetPlanes() const { return Planes; }
  CVmImage *GetVmImage() const { return Store.get(); }
  // True when the store keeps each plane contiguous.
  bool IsStoreWholePlane() const;

  // Copies `lines` store lines from (srcX, srcY) into `target`'s lines from
  // `targetY`, target.GetWidth() pixels each, widening 3-byte samples to 4 bytes
  // at 32 bits. Pixels beyond the store come out zero.
  void CopyLinesTo(CMemoryDIB &target, int srcX, int srcY, int lines, int targetY);

private:
  unsigned char *Address(int x, int y) { return Store->GetImageAdr(x, y, 0, false, false, nullptr); }

  std::shared_ptr<CVmManager> Manager;
  std::unique_ptr<CVmImage> Store;
  int SampleBits = 0;
  int Planes = -1;
  CPalette *Palette = nullptr;
};
