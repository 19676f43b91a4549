// CImgFourier: pixel movers between image planes and transform arrays, the
// image-level transforms, and translation and rotation by phase-only
// correlation.
#include "restore/ImgFourier.h"

#include <cmath>
#include <limits>
#include <memory>
#include <vector>

#include "core/LentImage.h"
#include "core/OperatorRunner.h"
#include "core/PlaneBinding.h"
#include "filter/ImgFilterBlur.h"
#include "kernels/Fourier.h"
#include "kernels/Runtime.h"
#include "restore/FftBuffers.h"
#include "restore/FftInternal.h"

namespace {

using qorimg::BoundImage;
using qorimg::LineRect;

}  // namespace

struct CImgFourier::Region {
  LineRect rect;
  int width = 0;
  int height = 0;
};

namespace {

CImgFourier::Region TransformRegion(const CLmrImage &image, const CRect *rect) {
  CImgFourier::Region r{qorimg::ClipRect(image, rect)};
  if (r.rect.IsEmpty()) return r;
  r.width = rect ? CFftd::GetFloorPowerOf2(r.rect.Width()) : CFftd::GetCeilPowerOf2(image.GetWidth());
  r.height = rect ? CFftd::GetFloorPowerOf2(r.rect.Height()) : CFftd::GetCeilPowerOf2(image.GetHeight());
  return r;
}

// Inputs must cover the rectangle; outputs (any size) only exist with the
// planes they get and float samples.
bool Fits(std::initializer_list<BoundImage> inputs, std::initializer_list<BoundImage> outputs, const LineRect &rect) {
  if (!qorimg::BoundImagesFit(inputs, rect)) return false;
  for (const BoundImage &b : outputs)
    if (b.image && !qorimg::BoundImagesFit({b}, LineRect{})) return false;
  return true;
}

// The first largest value of rows [rowFirst, rowEnd), from the first pixel
// with strict comparison; NaN is skipped.
void FindMaximum(const std::vector<float> &plane, int w, int rowFirst, int rowEnd, int &x, int &y) {
  float best = -std::numeric_limits<float>::infinity();
  x = 0;
  y = rowFirst;
  for (int j = rowFirst; j < rowEnd; ++j)
    for (int i = 0; i < w; ++i) {
      const float v = plane[static_cast<std::size_t>(j) * w + i];
      if (v > best) {
        best = v;
        x = i;
        y = j;
      }
    }
}

// Both arrays windowed, transformed, to amplitude and phase, and mapped to
// log-polar over the half circle with the log tone (the rotation's inputs).
void LogPolarSpectra(CFftd &fft, int nRhoMin) {
  for (int n = 0; n < 2; ++n) {
    fft.Windowing(n);
    fft.Do(0, n);
    fft.ToAmpPhase(n);
    fft.ToLogPolar(nRhoMin, 1, 0, 180, 1, n);
  }
}

}  // namespace

void CImgFourier::PutImage(CFftd &fft, int nArray, const CLmrImage &re, const CLmrImage *pIm, int plane,
                           const CRect *rect) {
  dcomplex *a = nArray == 0 ? fft.GetImageAdrA() : fft.GetImageAdrB();
  const int w = fft.GetWidth(), h = fft.GetHeight();
  const LineRect r = qorimg::ClipRect(re, rect);
  qorimg::RouteTable routes;
  routes.planeLoop = [&](int) {
    const int rows = std::min(r.Height(), h), columns = std::min(r.Width(), w);
    for (int y = 0; y < rows; ++y) {
      const float *sre = re.GetImageAdr(r.left, r.top + y, plane, CImage::ReadOnly);
      const float *sim = pIm ? pIm->GetImageAdr(r.left, r.top + y, plane, CImage::ReadOnly) : nullptr;
      dcomplex *row = a + static_cast<std::size_t>(y) * w;
      for (int x = 0; x < columns; ++x) row[x] = {sre[x], sim ? sim[x] : 0.0f};
      ShowProgress(1);
    }
  };
  // The pipeline moves a whole real plane; a rectangle or an imaginary part
  // takes the row loop.
  if (!rect && !pIm)
    routes.pipelineCall = [&](int) {
      auto array = qorimg::fft::ComplexBuffer(a, w, re.GetWidth(), re.GetHeight());
      return put_fft_real_float(qorimg::InputPlane(re, plane), array);
    };
  if (pIm)
    qorimg::RunOperator({*this, 0, 0, 0, r, {0, 1}}, {{&re, plane + 1}, {pIm, plane + 1}}, routes);
  else
    qorimg::RunOperator({*this, 0, 0, 0, r, {0, 1}}, {{&re, plane + 1}}, routes);
}

void CImgFourier::GetImage(CFftd &fft, int nArray, CLmrImage &out, int part, int plane) {
  dcomplex *a = nArray == 0 ? fft.GetImageAdrA() : fft.GetImageAdrB();
  const int w = fft.GetWidth(), h = fft.GetHeight();
  qorimg::RouteTable routes;
  routes.planeLoop = [&](int) {
    for (int y = 0; y < out.GetHeight(); ++y) {
      float *line = out.GetImageAdr(0, y, plane);
      const dcomplex *row = a + static_cast<std::size_t>(y) * w;
      for (int x = 0; x < out.GetWidth(); ++x) line[x] = y < h && x < w ? (part == 0 ? row[x].re : row[x].im) : 0.0f;
      ShowProgress(1);
    }
  };
  routes.pipelineCall = [&](int) {
    auto array = qorimg::fft::ComplexBuffer(a, w, w, h);
    auto output = qorimg::OutputPlane(out, plane);
    return part == 0 ? get_fft_real_float(array, output) : get_fft_imaginary_float(array, output);
  };
  qorimg::RunOperator({*this, 0, 0, 0, qorimg::ClipRect(out, nullptr), {0, 1}}, {{&out, plane + 1}}, routes);
}

std::vector<float> CImgFourier::BlurredSurface(CFftd &fft, double fSigma, int rowFirst, int rowEnd) {
  const int w = fft.GetWidth(), h = fft.GetHeight();
  auto temporary = [&] {
    return std::make_unique<CLmrImage>(VmManager(), CImage::Float32, w, h, 1, 1.0, 0.0, 0,
                                       std::shared_ptr<lumora::Progress>());
  };
  const std::unique_ptr<CLmrImage> surface = temporary(), target = temporary();
  GetImage(fft, 0, *surface, 0, 0);
  {
    CImgFilterBlur blur;
    const qorimg::LentImage lent(blur, *target);
    CRect band(0, rowFirst, w, rowEnd);
    blur.GaussianFilter(fSigma, surface.get(), &band, 0);
  }
  std::vector<float> blurred(qorimg::fft::ArrayElements(w, h), 0.0f);
  for (int y = rowFirst; y < rowEnd; ++y) {
    const float *line = target->GetImageAdr(0, y, 0, CImage::ReadOnly);
    std::copy(line, line + w, blurred.begin() + static_cast<std::ptrdiff_t>(y) * w);
  }
  return blurred;
}

bool CImgFourier::CanCompare(const Region &region, CLmrImage *pOther, CLmrImage *pOut1, CLmrImage *pOut2,
                             int &nWidth, int &nHeight) {
  if (!Fits({{this, 1}, {pOther, 1}}, {{pOut1, 1}, {pOut2, 1}}, region.rect)) return false;
  if (region.width >= 1 && region.height >= 1) return true;
  nWidth = nHeight = 0;
  return false;
}

bool CImgFourier::LoadComparison(CFftd &fft, const Region &region, const CLmrImage &other, const CRect *rect,
                                 int &nWidth, int &nHeight) {
  fft.SetProgressImg(this);
  if (!fft.Create(region.width, region.height)) {
    nWidth = region.width;
    nHeight = region.height;
    return false;
  }
  PutImage(fft, 0, *this, nullptr, 0, rect);
  PutImage(fft, 1, other, nullptr, 0, rect);
  return true;
}

int CImgFourier::CalcShiftByPOC(CLmrImage *pOther, CLmrImage *pOutPoc, double fSigma, CRect *rect, double &dx,
                                double &dy, double &peak, int &nWidth, int &nHeight, int bShowProgress) {
  const Region region = TransformRegion(*this, rect);
  if (!CanCompare(region, pOther, pOutPoc, nullptr, nWidth, nHeight)) return 0;
  const int w = region.width, h = region.height;
  qorimg::ProgressFrame progress(*this, bShowProgress, 6150, static_cast<int>(h * (fSigma > 0 ? 19.5 : 18.5)));
  CFftd fft;
  if (!LoadComparison(fft, region, *pOther, rect, nWidth, nHeight)) return 0;
  fft.Windowing(0);
  fft.Windowing(1);
  fft.Do(0, 0);
  fft.Do(0, 1);
  fft.CalcPOC();
  fft.Do(1, 0);
  fft.Swap(0);

  if (fSigma > 0) {
    // The estimate, too, runs on the blurred surface.
    const std::vector<float> blurred = BlurredSurface(fft, fSigma, 0, h);
    dcomplex *a = fft.GetImageAdrA();
    for (std::size_t i = 0; i < blurred.size(); ++i) a[i].re = blurred[i];
    fft.PeakOfPOC(nullptr, nullptr, dx, dy, peak);
  } else {
    // The blur only guards the search; the estimate uses the sharp surface.
    const std::vector<float> blurred = BlurredSurface(fft, 1.0, 0, h);
    int x = 0, y = 0;
    FindMaximum(blurred, w, 0, h, x, y);
    fft.PeakOfPOC(&x, &y, dx, dy, peak);
  }
  if (pOutPoc) GetImage(fft, 0, *pOutPoc, 0, 0);
  return 1;
}

int CImgFourier::CalcRotByRIPOC(CLmrImage *pOther, CLmrImage *pOutA, CLmrImage *pOutB, CRect *rect,
                                double &rotation, int &nWidth, int &nHeight, int bShowProgress) {
  const Region region = TransformRegion(*this, rect);
  if (!CanCompare(region, pOther, pOutA, pOutB, nWidth, nHeight)) return 0;
  const int w = region.width, h = region.height;
  qorimg::ProgressFrame progress(*this, bShowProgress, 6151, static_cast<int>(h * 28.5));
  CFftd fft;
  if (!LoadComparison(fft, region, *pOther, rect, nWidth, nHeight)) return 0;
  LogPolarSpectra(fft, 0);
  if (pOutA) GetImage(fft, 0, *pOutA, 0, 0);
  if (pOutB) GetImage(fft, 1, *pOutB, 0, 0);
  for (int n = 0; n < 2; ++n) {
    fft.Windowing(n);
    fft.Do(0, n);
  }
  fft.CalcPOC();
  fft.Do(1, 0);
  fft.Swap(0);

  // A rotation without change of scale keeps the peak near the centre row:
  // only rows H/2 - 20 .. H/2 + 19 (clamped into the array) are searched,
  // on a copy blurred with sigma 1.
  const int first = std::max(0, h / 2 - 20), end = std::min(h, h / 2 + 20);
  const std::vector<float> blurred = BlurredSurface(fft, 1.0, first, end);
  int x = 0, y = 0;
  FindMaximum(blurred, w, first, end, x, y);
  double dTheta = 0.0, dRho = 0.0, peak = 0.0;
  fft.PeakOfPOC(&x, &y, dTheta, dRho, peak);
  rotation = dTheta * 180.0 / w;
  return 1;
}

int CImgFourier::CalcRotByRIPOC_1D(CLmrImage *pOther, CLmrImage *pOutA, CLmrImage *pOutB, CRect *rect,
                                   double &rotation, int &nWidth, int &nHeight, int bShowProgress) {
  const Region region = TransformRegion(*this, rect);
  if (!CanCompare(region, pOther, pOutA, pOutB, nWidth, nHeight)) return 0;
  const int w = region.width, h = region.height;
  qorimg::ProgressFrame progress(*this, bShowProgress, 6151, h * 23);
  CFftd fft;
  if (!LoadComparison(fft, region, *pOther, rect, nWidth, nHeight)) return 0;
  LogPolarSpectra(fft, h / 16);
  for (int n = 0; n < 2; ++n) {
    fft.Windowing(n);
    fft.Do1D(0, n);
  }
  if (pOutA) GetImage(fft, 0, *pOutA, 0, 0);
  fft.CalcPOC1D();
  fft.Do1D(1, 0);
  fft.SwapX(0);
  double dx = 0.0;  // stays 0 when the array has 40 rows or fewer
  fft.PeakOfPOC1D(dx);
  if (pOutB) GetImage(fft, 0, *pOutB, 0, 0);
  rotation = dx * 180.0 / w;
  return 1;
}

int CImgFourier::Do(int bInverse, int bReIm, int bWindow, CLmrImage *pInIm, CLmrImage *pOutRe, CLmrImage *pOutIm,
                    CRect *rect, int bShowProgress) {
  const Region region = TransformRegion(*this, rect);
  const int planes = GetPlanes();
  if (!Fits({{this, planes}, {pInIm ? pInIm : this, planes}}, {{pOutRe, planes}, {pOutIm, planes}}, region.rect) ||
      !pOutRe)
    return 0;
  if (region.width < 1 || region.height < 1) return 0;
  qorimg::ProgressFrame progress(*this, bShowProgress, 6190, planes * 100);
  CFftd fft;
  if (!fft.Create(region.width, region.height)) return 0;
  for (int p = 0; p < planes; ++p) {
    fft.Init();
    PutImage(fft, 0, *this, pInIm, p, rect);
    if (bInverse && !bReIm) fft.ToReIm(0);
    if (bWindow) fft.Windowing(0);
    fft.Do(bInverse != 0, 0);
    if (!bInverse && !bReIm) fft.ToAmpPhase(0);
    GetImage(fft, 0, *pOutRe, 0, p);
    if (pOutIm) GetImage(fft, 0, *pOutIm, 1, p);
    ShowProgress(100);
  }
  return 1;
}

int CImgFourier::DoLogPolar(CLmrImage *pOut, CRect *rect, int bLogTone, int bShowProgress) {
  const Region region = TransformRegion(*this, rect);
  const int planes = GetPlanes();
  if (!pOut || !Fits({{this, planes}}, {{pOut, planes}}, region.rect)) return 0;
  if (region.width < 1 || region.height < 1) return 0;
  qorimg::ProgressFrame progress(*this, bShowProgress, 6190, planes * 100);
  CFftd fft;
  if (!fft.Create(region.width, region.height)) return 0;
  for (int p = 0; p < planes; ++p) {
    fft.Init();
    PutImage(fft, 0, *this, nullptr, p, rect);
    fft.ToLogPolar(region.height / 16, 1, 0, 180, bLogTone, 0);
    GetImage(fft, 0, *pOut, 0, p);
    ShowProgress(100);
  }
  return 1;
}
