// CImgMem: the planes of a rectangle through the maximum-entropy core.
#include "restore/ImgMem.h"

#include <memory>
#include <new>

#include "platform/Diagnostics.h"
#include "restore/MemCore.h"
#include "restore/RestoreInternal.h"

float *CImgMem::MakeGauss(double fSigma, int nWidth, int nHeight) {
  return qorimg::restore::MakeGaussPsf(fSigma, nWidth, nHeight);
}

int CImgMem::Do(double fSigma, double fNoise, int nIterations, CRect *rect, int bProgress) {
  // The rectangle is clipped (an unclamped one would read outside the image).
  const qorimg::LineRect r = qorimg::ClipRect(*this, rect);
  if (r.IsEmpty()) return 1;
  const int planes = GetPlanes(), w = r.Width(), h = r.Height();
  const std::size_t planeSize = static_cast<std::size_t>(w) * h;
  std::unique_ptr<float[]> source, result, kernel;
  try {
    source = qorimg::restore::Allocate<float>(planeSize * planes);
    result = qorimg::restore::Allocate<float>(planeSize * planes);
    kernel.reset(MakeGauss(fSigma, 63, 63));
  } catch (const std::bad_alloc &) {
    AfxMessageBox(6148);
    return 0;
  }
  if (!kernel) {
    AfxMessageBox(6148);
    return 0;
  }
  for (int p = 0; p < planes; ++p) qorimg::restore::CopyRectOut(*this, p, r, source.get() + planeSize * p);
  for (int p = 0; p < planes; ++p) {
    qorimg::restore::MemParams params;
    params.fVariance = fNoise * fNoise;
    params.fTolerance[3] = nIterations > 0 ? nIterations : 0;
    params.pProgress = bProgress ? this : nullptr;
    params.nPlane = planes > 1 ? p + 1 : 0;
    int code = qorimg::restore::MemCore(source.get() + planeSize * p, w, h, kernel.get(), 63, 63, params,
                                        result.get() + planeSize * p);
    // The lowest non-zero digit tells what failed.
    while (code != 0 && code % 10 == 0) code /= 10;
    if (code != 0) {
      AfxMessageBox(code % 10 == 8 ? 6149 : 6148);
      return 0;
    }
  }
  for (int p = 0; p < planes; ++p) qorimg::restore::CopyRectIn(*this, p, r, result.get() + planeSize * p);
  return 1;
}
