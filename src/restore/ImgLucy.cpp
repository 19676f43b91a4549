// CImgLucy: the planes of a rectangle through the Richardson-Lucy core.
#include "restore/ImgLucy.h"

#include <cmath>
#include <memory>
#include <new>

#include "platform/Diagnostics.h"
#include "restore/LucyCore.h"
#include "restore/RestoreInternal.h"

float *CImgLucy::MakeGauss(double fSigma, int nWidth, int nHeight) {
  return qorimg::restore::MakeGaussPsf(fSigma, nWidth, nHeight);
}

int CImgLucy::Do(double fSigma, double fAdu, double fNoise, int nIteration, CRect *rect, int bShowProgress) {
  const qorimg::LineRect r = qorimg::ClipRect(*this, rect);
  if (r.IsEmpty()) return 1;
  const int planes = GetPlanes(), w = r.Width(), h = r.Height();
  const std::size_t planeSize = static_cast<std::size_t>(w) * h;
  std::unique_ptr<float[]> buffer, psf;
  try {
    buffer = qorimg::restore::Allocate<float>(planeSize * planes);
    psf.reset(MakeGauss(fSigma, 64, 64));
  } catch (const std::bad_alloc &) {
    return 0;
  }
  // An invalid sigma or gain is reported as the core's failures are.
  if (!psf || !(fAdu > 0.0)) {
    AfxMessageBox(6148);
    return 0;
  }
  for (int p = 0; p < planes; ++p) qorimg::restore::CopyRectOut(*this, p, r, buffer.get() + planeSize * p);
  qorimg::restore::LucyParams params;
  params.nIteration = nIteration;
  params.fAdu = fAdu;
  params.fNoise = fNoise;
  params.pProgress = bShowProgress ? this : nullptr;
  for (int p = 0; p < planes; ++p) {
    params.nPlane = planes == 1 ? 0 : p + 1;
    float *plane = buffer.get() + planeSize * p;
    const int result = qorimg::restore::LucyCore(plane, w, h, psf.get(), 64, 64, params, plane);
    if (result != qorimg::restore::kLucyDone) {
      AfxMessageBox(result == qorimg::restore::kLucyCancelled ? 6149 : 6148);
      return 0;
    }
  }
  for (int p = 0; p < planes; ++p) qorimg::restore::CopyRectIn(*this, p, r, buffer.get() + planeSize * p);
  return 1;
}
