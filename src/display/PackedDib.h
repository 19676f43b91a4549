// A packed device-independent bitmap being written into movable global memory:
// header, colour table, then the pixel lines bottom-up. The memory is freed
// unless Release() hands the (unlocked) handle out, so no path leaks it.
#pragma once
#include <cstring>
#include "platform/Bitmap.h"
#include "platform/GlobalMemory.h"

namespace qorimg {

class PackedDib {
public:
  // Header filled for w x h at `bits`, a colour table of `colors` entries.
  PackedDib(int w, int h, int bits, int colors)
      : width_(w), height_(h), stride_(DibStride(w, bits)), colors_(colors) {
    const std::size_t tableBytes = static_cast<std::size_t>(colors) * sizeof(RGBQUAD);
    const std::size_t bytes = sizeof(BITMAPINFOHEADER) + tableBytes + static_cast<std::size_t>(stride_) * h;
    handle_ = GlobalAlloc(GMEM_MOVEABLE, bytes);
    if (!handle_) return;
    base_ = static_cast<unsigned char *>(GlobalLock(handle_));
    if (!base_) {
      GlobalFree(handle_);
      handle_ = nullptr;
      return;
    }
    const BITMAPINFOHEADER header = DibHeader(w, h, bits, colors);
    std::memcpy(base_, &header, sizeof header);
    std::memset(base_ + sizeof header, 0, tableBytes);
  }
  ~PackedDib() {
    if (!handle_) return;
    GlobalUnlock(handle_);
    GlobalFree(handle_);
  }
  PackedDib(const PackedDib &) = delete;
  PackedDib &operator=(const PackedDib &) = delete;

  explicit operator bool() const { return handle_ != nullptr; }
  RGBQUAD *Table() { return reinterpret_cast<RGBQUAD *>(base_ + sizeof(BITMAPINFOHEADER)); }
  unsigned char *Bits() { return base_ + sizeof(BITMAPINFOHEADER) + static_cast<std::size_t>(colors_) * sizeof(RGBQUAD); }
  long long Stride() const { return stride_; }
  // Image line y: the lines are stored bottom-up.
  unsigned char *Line(int y) { return Bits() + (height_ - 1 - y) * stride_; }
  // Zeroes the bytes of line y behind `used` bytes.
  void ZeroPadding(int y, long long used) { std::memset(Line(y) + used, 0, static_cast<std::size_t>(stride_ - used)); }

  // The handle, unlocked; this object lets go of it.
  HDIB Release() {
    HDIB out = handle_;
    GlobalUnlock(handle_);
    handle_ = nullptr;
    base_ = nullptr;
    return out;
  }

private:
  int width_;
  int height_;
  long long stride_;
  int colors_;
  HDIB handle_ = nullptr;
  unsigned char *base_ = nullptr;
};

}  // namespace qorimg
