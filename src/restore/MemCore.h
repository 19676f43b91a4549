// The maximum-entropy restoration core (after Myrheim and Rue): among the
// images that, blurred by the kernel, fit the data within the noise, the one
// of greatest entropy against a flat default. Not installed.
#pragma once

class CLmrImage;

namespace qorimg::restore {

// Result digits: 1 bad parameters (variance, kernel size, no flux), 2 too
// few work arrays, 3 a convolution failed, 7 no memory, 8 ESC.
struct MemParams {
  double fVariance = 0.0;
  // Stopping tolerances: rms change, largest change, chi-square change, and
  // the iteration limit (0: none, at most 10,000 main iterations). The values
  // reached at the end are written back.
  double fTolerance[4] = {0.5, 1.0, 0.05, 0.0};
  int nWorkArrays = 5;
  CLmrImage *pProgress = nullptr;
  int nPlane = 0;
  // Filled at the end: chi-square per valid pixel and the iterations run.
  double fChiSqPerPixel = 0.0;
};

// Restores the w x h `data` into `result` (w x h) with the kw x kh kernel.
int MemCore(const float *data, int w, int h, const float *kernel, int kw, int kh, MemParams &params, float *result);

}  // namespace qorimg::restore
