// Device-independent bitmap records in their usual binary layout: the info
// header, colour table entries, palette entries and the file header of a .bmp,
// with the constants that go with them. A DIB in memory is the info header, its
// colour table right behind it, and then the pixel lines.
#pragma once
#include <cstddef>
#include <cstdint>
#include "platform/WinTypes.h"

#pragma pack(push, 1)
struct BITMAPINFOHEADER {
  DWORD biSize;
  LONG biWidth;
  LONG biHeight;  // positive: lines bottom-up; negative: top-down
  WORD biPlanes;
  WORD biBitCount;
  DWORD biCompression;
  DWORD biSizeImage;
  LONG biXPelsPerMeter;
  LONG biYPelsPerMeter;
  DWORD biClrUsed;
  DWORD biClrImportant;
};

struct RGBQUAD {
  BYTE rgbBlue;
  BYTE rgbGreen;
  BYTE rgbRed;
  BYTE rgbReserved;
};

// The header and a colour table of one entry; real tables are longer and the
// memory is allocated to fit them.
struct BITMAPINFO {
  BITMAPINFOHEADER bmiHeader;
  RGBQUAD bmiColors[1];
};

struct PALETTEENTRY {
  BYTE peRed;
  BYTE peGreen;
  BYTE peBlue;
  BYTE peFlags;
};

struct BITMAPFILEHEADER {
  WORD bfType;  // "BM"
  DWORD bfSize;
  WORD bfReserved1;
  WORD bfReserved2;
  DWORD bfOffBits;
};
#pragma pack(pop)

static_assert(sizeof(BITMAPINFOHEADER) == 40, "BITMAPINFOHEADER must be 40 bytes");
static_assert(sizeof(RGBQUAD) == 4, "RGBQUAD must be 4 bytes");
static_assert(sizeof(PALETTEENTRY) == 4, "PALETTEENTRY must be 4 bytes");
static_assert(sizeof(BITMAPFILEHEADER) == 14, "BITMAPFILEHEADER must be 14 bytes");

constexpr DWORD BI_RGB = 0;
constexpr DWORD BI_BITFIELDS = 3;

// How a DIB's colour table is read: RGB entries, or 16-bit indexes into the
// palette selected into the device context.
constexpr UINT DIB_RGB_COLORS = 0;
constexpr UINT DIB_PAL_COLORS = 1;

// Raster operations.
constexpr DWORD SRCCOPY = 0x00CC0020;
constexpr DWORD SRCPAINT = 0x00EE0086;
constexpr DWORD SRCAND = 0x008800C6;
constexpr DWORD SRCINVERT = 0x00660046;
constexpr DWORD NOTSRCCOPY = 0x00330008;
constexpr DWORD BLACKNESS = 0x00000042;
constexpr DWORD WHITENESS = 0x00FF0062;

// GetDeviceCaps indexes.
constexpr int BITSPIXEL = 12;
constexpr int PLANES = 14;

// Bytes of one line of `width` pixels at `bits` per pixel, rounded up to a
// multiple of 4.
constexpr long long DibStride(long long width, int bits) { return (width * bits / 8 + 3) & ~3LL; }

// The header of an uncompressed bottom-up bitmap with `colors` table entries.
inline BITMAPINFOHEADER DibHeader(int width, int height, int bits, int colors) {
  BITMAPINFOHEADER header{};
  header.biSize = sizeof(BITMAPINFOHEADER);
  header.biWidth = width;
  header.biHeight = height;
  header.biPlanes = 1;
  header.biBitCount = static_cast<WORD>(bits);
  header.biCompression = BI_RGB;
  header.biSizeImage = static_cast<DWORD>(DibStride(width, bits) * height);
  header.biClrUsed = static_cast<DWORD>(colors);
  return header;
}

// Entries of the colour table of a header: biClrUsed, or all that the depth can
// index when it is 0 (none above 8 bits).
inline int DibColorCount(const BITMAPINFOHEADER &h) {
  if (h.biClrUsed != 0) return static_cast<int>(h.biClrUsed);
  return h.biBitCount <= 8 ? 1 << h.biBitCount : 0;
}

// The colour table right behind the header (biSize bytes from the start).
inline RGBQUAD *DibColorTable(BITMAPINFO *info) {
  return reinterpret_cast<RGBQUAD *>(reinterpret_cast<unsigned char *>(info) + info->bmiHeader.biSize);
}
inline const RGBQUAD *DibColorTable(const BITMAPINFO *info) {
  return reinterpret_cast<const RGBQUAD *>(reinterpret_cast<const unsigned char *>(info) + info->bmiHeader.biSize);
}
