// CImgWiener: the Wiener filter on CFft.
#include "restore/ImgWiener.h"

#include <cmath>
#include <memory>
#include <new>

#include "restore/Fft.h"
#include "restore/RestoreInternal.h"

namespace {

using qorimg::LineRect;

// Plane `plane` of `work` (w x h) into F's real parts on the 0..255 scale,
// with mirrored pad columns and rows; imaginary components zero.
void LoadPlane(CFft &f, const CLmrImage &work, int plane) {
  const int w = work.GetWidth(), h = work.GetHeight(), fw = f.GetWidth(), fh = f.GetHeight();
  const double min = work.GetLevelMin(plane), range = work.GetLevelRange(plane);
  complex *a = f.GetImageAdrA();
  qorimg::restore::ForRectRows(work, plane, LineRect{0, 0, w, h}, false, [&](int y, const float *line) {
    complex *row = a + static_cast<std::size_t>(y) * fw;
    for (int x = 0; x < w; ++x) row[x] = {static_cast<float>((line[x] - min) / range * 255.0), 0.0f};
    // fw < 2 w, so the mirrored column w - 1 - i is inside the image.
    for (int i = 0; w + i < fw; ++i) row[w + i] = row[w - 1 - i];
  });
  for (int j = 0; h + j < fh; ++j)
    std::copy(a + static_cast<std::size_t>(h - 1 - j) * fw, a + static_cast<std::size_t>(h - j) * fw,
              a + static_cast<std::size_t>(h + j) * fw);
}

void StorePlane(CFft &f, CLmrImage &work, int plane) {
  const int fw = f.GetWidth();
  const double min = work.GetLevelMin(plane), range = work.GetLevelRange(plane);
  const complex *a = f.GetImageAdrA();
  qorimg::restore::ForRectRows(work, plane, LineRect{0, 0, work.GetWidth(), work.GetHeight()}, true,
                               [&](int y, float *line) {
                                 const complex *row = a + static_cast<std::size_t>(y) * fw;
                                 for (int x = 0; x < work.GetWidth(); ++x)
                                   line[x] = static_cast<float>(row[x].re / 255.0 * range + min);
                               });
}

}  // namespace

int CImgWiener::Do(double fRadius, double fNoise, CRect *rect, int bShowProgress) {
  const LineRect r = qorimg::ClipRect(*this, rect);
  if (!VmManager()) return 0;
  if (r.IsEmpty() || !(fRadius > 0.0) || !std::isfinite(fRadius)) return 1;
  const int planes = GetPlanes();
  try {
    // A partial rectangle is worked on in an image of its own, with this
    // image's levels.
    std::unique_ptr<CLmrImage> copy;
    CLmrImage *work = this;
    if (!r.IsWhole(*this)) {
      qorimg::ProgressFrame loading(*this, bShowProgress, 6169, 1);
      qorimg::restore::CheckAllocation();
      copy = std::make_unique<CLmrImage>(VmManager(), CImage::Float32, r.Width(), r.Height(), planes, 1.0, 0.0, 0,
                                         std::shared_ptr<lumora::Progress>());
      for (int p = 0; p < planes; ++p) {
        copy->LevelMinRef()[p] = GetLevelMin(p);
        copy->LevelMaxRef()[p] = GetLevelMax(p);
        copy->LevelRangeRef()[p] = GetLevelRange(p);
      }
      copy->PixelBlt(0, 0, r.Width(), r.Height(), this, r.left, r.top, 0);
      work = copy.get();
    }
    CFft f, g;
    if (!f.Create(r.Width(), r.Height()) || !g.Create(r.Width(), r.Height())) return 0;
    qorimg::ProgressFrame progress(*this, bShowProgress, 6104, planes * 100);
    g.SetGauss(fRadius / 1.414213562);
    g.Do(0, 0);
    double gMin = 0.0, gMax = 0.0;
    g.GetMinMax(&gMin, &gMax);
    if (bShowProgress) {
      ShowProgress(5);
      ShowProgress(10);
    }
    ShowProgress(10);
    for (int p = 0; p < planes; ++p) {
      LoadPlane(f, *work, p);
      ShowProgress(5);
      f.Do(0, 0);
      ShowProgress(25);
      f.Convolution(&g, gMax * fNoise);
      ShowProgress(25);
      f.Do(1, 0);
      ShowProgress(25);
      StorePlane(f, *work, p);
      ShowProgress(10);
    }
    if (copy) PixelBlt(r.left, r.top, r.Width(), r.Height(), copy.get(), 0, 0, 0);
  } catch (const std::bad_alloc &) {
    return 0;
  }
  return 1;
}
