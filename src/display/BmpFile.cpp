// .bmp files: BITMAPFILEHEADER, then the packed DIB.
#include "display/BmpFile.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <fstream>
#include "display/MemoryDIB.h"
#include "platform/Bitmap.h"
#include "platform/GlobalMemory.h"
#include "platform/String.h"

namespace qorimg {
namespace {

// Bytes of the packed DIB at `base` (header, colour table, lines); 0 when it is
// not a plain one or does not fit in `size`.
std::size_t PackedSize(const unsigned char *base, std::size_t size, std::size_t &bitsOffset) {
  if (size < sizeof(BITMAPINFOHEADER)) return 0;
  BITMAPINFOHEADER h;
  std::memcpy(&h, base, sizeof h);
  const int bits = h.biBitCount;
  const bool depthOk = bits == 1 || bits == 4 || bits == 8 || bits == 16 || bits == 24 || bits == 32;
  if (h.biSize < sizeof h || h.biSize > size || h.biCompression != BI_RGB || !depthOk || h.biWidth <= 0 ||
      h.biHeight == 0 || h.biHeight == INT32_MIN)
    return 0;
  const long long height = h.biHeight > 0 ? h.biHeight : -static_cast<long long>(h.biHeight);
  bitsOffset = h.biSize + static_cast<std::size_t>(std::clamp(DibColorCount(h), 0, 256)) * sizeof(RGBQUAD);
  const unsigned long long total = bitsOffset + static_cast<unsigned long long>(DibStride(h.biWidth, bits)) * height;
  return total <= size ? static_cast<std::size_t>(total) : 0;
}

}  // namespace

bool WriteBmp(const std::string &path, HDIB dib) {
  if (!dib) return false;
  const auto *base = static_cast<const unsigned char *>(GlobalLock(dib));
  if (!base) return false;
  std::size_t bitsOffset = 0;
  const std::size_t bytes = PackedSize(base, GlobalSize(dib), bitsOffset);
  bool ok = false;
  if (bytes != 0) {
    BITMAPFILEHEADER file{};
    file.bfType = 0x4D42;  // "BM"
    file.bfSize = static_cast<DWORD>(sizeof file + bytes);
    file.bfOffBits = static_cast<DWORD>(sizeof file + bitsOffset);
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out.write(reinterpret_cast<const char *>(&file), sizeof file);
    out.write(reinterpret_cast<const char *>(base), static_cast<std::streamsize>(bytes));
    out.close();
    ok = static_cast<bool>(out);
  }
  GlobalUnlock(dib);
  return ok;
}

bool WriteBmp(const wchar_t *path, HDIB dib) { return path && WriteBmp(CString(path).ToUtf8(), dib); }

bool WriteBmp(const std::string &path, const CMemoryDIB &dib) {
  HDIB packed = dib.CreateHDIB();
  if (!packed) return false;
  const bool ok = WriteBmp(path, packed);
  GlobalFree(packed);
  return ok;
}

bool WriteBmp(const wchar_t *path, const CMemoryDIB &dib) { return path && WriteBmp(CString(path).ToUtf8(), dib); }

}  // namespace qorimg
