// CFftd::ToLogPolar: the log tone and the log-polar map of the real parts, by
// the Fourier-family pipelines (the arrays are always contiguous).
#include <algorithm>
#include <cmath>
#include <cstring>
#include <vector>

#include "kernels/Fourier.h"
#include "kernels/Runtime.h"
#include "restore/Fft.h"
#include "restore/FftBuffers.h"
#include "restore/FftInternal.h"

void CFftd::ToLogPolar(int nRhoMin, int bInscribed, int nThetaStart, int nThetaEnd, int bLogTone, int nArray) {
  dcomplex *a = Array(nArray);
  if (!a) return;
  const int w = m_nWidth, h = m_nHeight;
  const std::size_t elements = qorimg::fft::ArrayElements(w, h);
  auto array = qorimg::fft::ComplexBuffer(a, w, w, h);

  const double rho0 = std::log(nRhoMin + 1.0);
  const double m = bInscribed ? static_cast<double>(std::min(w, h)) : std::sqrt(double(w) * w + double(h) * h);
  const double rho1 = std::log(std::trunc(m * 0.5) - 0.5);
  const float rhoStart = static_cast<float>(rho0);
  const float deltaRho = static_cast<float>((rho1 - rho0) / h);
  const float thetaStart = static_cast<float>(nThetaStart * 3.1415927 / 180);
  const float deltaTheta = static_cast<float>((double(nThetaEnd) - nThetaStart) * 3.1415927 / 180 / w);

  if (bLogTone) {
    float rmin = 0.0f;
    auto result = qorimg::kernels::KernelBuffer<float, 0>::make_scalar(&rmin);
    qorimg::kernels::CheckPipeline(remin_float(array, result));
    qorimg::kernels::CheckPipeline(log_tone_float(array, rmin, array));
  }
  // A mapping with non-finite steps (nRhoMin <= -1, a side of 1) would send
  // NaN coordinates to the indices: it gives 0 throughout instead.
  if (!std::isfinite(rhoStart) || !std::isfinite(deltaRho) || !std::isfinite(thetaStart) ||
      !std::isfinite(deltaTheta)) {
    std::memset(static_cast<void *>(a), 0, elements * sizeof(dcomplex));
    return;
  }
  std::vector<dcomplex> copy(a, a + elements);
  auto source = qorimg::fft::ComplexBuffer(copy.data(), w, w, h);
  qorimg::kernels::CheckPipeline(to_log_polar_float(source, rhoStart, deltaRho, thetaStart, deltaTheta, array));
}
