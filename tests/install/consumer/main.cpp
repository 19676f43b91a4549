// A caller of the installed library: makes an image, runs an operator, checks it.
#include <qorimg/qorimg.h>
#include <cstdio>

int main() {
  auto manager = CreateBlockManager(1 << 20, 8);
  CLmrImage src(manager, CImage::Float32, 64, 48, 3, 1.0, 0.0, 1, nullptr);
  for (int p = 0; p < 3; ++p) src.Fill(p, 10.0);
  CImgCalculation target;
  if (!target.Create(src, nullptr)) return 2;
  target.Do(5.0, CImgCalculation::Add, 0, &src, nullptr, 0);
  const float v = target.GetPixelGrayRaw(63, 47, 2);
  // The sum shown as a bitmap: 15 on levels 0..30 is byte 127.
  for (int p = 0; p < 3; ++p) target.SetLevel(p, 0.0, 30.0);
  HDIB dib = target.GetDib(24);
  if (!dib) return 3;
  const auto *bits = static_cast<const unsigned char *>(GlobalLock(dib)) + sizeof(BITMAPINFOHEADER);
  const int blue = bits[0];
  GlobalUnlock(dib);
  GlobalFree(dib);
  std::printf("consumer: %g, byte %d\n", v, blue);
  return v == 15.0f && blue == 127 ? 0 : 1;
}
