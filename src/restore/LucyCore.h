// The Richardson-Lucy core: iterative restoration of one plane on a canvas
// of max(image, PSF) with a noise model, a chi-square stop, a turbo
// (conjugate-direction) acceleration and a Newton line search along each
// direction. The canvas's transforms are the any-length FFT of FftPack.h.
// Not installed.
#pragma once

class CLmrImage;

namespace qorimg::restore {

struct LucyParams {
  int nIteration = 0;  // upper bound: chi-square <= fLimitChiSq ends earlier
  double fAdu = 1.0;
  double fNoise = 0.0;
  double fLimitChiSq = 1.0;
  double fSigmaClip = 5.0;
  int nAcceleration = 2;  // 2: turbo with line search; 0: plain steps
  // Progress titles and ticks in direct mode, each tested for ESC; null: none.
  CLmrImage *pProgress = nullptr;
  int nPlane = 0;  // 0: titles 6154 and 6156, else 6155 and 6157 with it
};

enum LucyResult { kLucyDone = 0, kLucyNoMemory = 1, kLucyCancelled = 2 };

// Restores the w x h `data` (read before anything is written) into `result`
// (may be the same array) with the pw x ph PSF (not changed).
int LucyCore(const float *data, int w, int h, const float *psf, int pw, int ph, const LucyParams &params,
             float *result);

}  // namespace qorimg::restore
