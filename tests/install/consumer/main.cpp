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
  std::printf("consumer: %g\n", v);
  return v == 15.0f ? 0 : 1;
}
