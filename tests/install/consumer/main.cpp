// A caller of the installed library: makes an image, runs an operator, shows it
// as a bitmap, and catches the store's exception by its type.
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
  qorimg::UniqueDib dib(target.GetDib(24));
  if (!dib) return 3;
  const auto *bits = static_cast<const unsigned char *>(GlobalLock(dib.get())) + sizeof(BITMAPINFOHEADER);
  const int blue = bits[0];
  GlobalUnlock(dib.get());

  // A store capped at 1 KiB cannot hold a 64 x 48 float plane.
  bool caught = false;
  try {
    CLmrImage tooBig(CreateWholePlaneManager(1024), CImage::Float32, 64, 48, 1, 1.0, 0.0, 1, nullptr);
  } catch (const lumora::CVmMemoryAllocationError &) {
    caught = true;
  }
  std::printf("consumer: %g, byte %d, allocation error caught %d\n", v, blue, caught);
  return v == 15.0f && blue == 127 && caught ? 0 : 1;
}
