// The complex transform of any length for the Lucy-Richardson core: a
// mixed-radix transform after the published FFTPACK package, in single
// precision, with its radix 2, 3, 4, 5 passes and a general pass for any odd
// factor (whose cost grows as n p). Not installed.
//
// cffti fills a work array of 4n + 15 floats: 2n of scratch, 2n of twiddles,
// then the factors. cfftf is the forward transform (kernel e^(-2 pi i jk/n)),
// cfftb the backward one (e^(+...)), both unscaled, in place on n complex
// values stored as float pairs.
#pragma once
#include <cstddef>
#include <vector>

namespace qorimg::fft {

void cffti(int n, float *wsave);
void cfftf(int n, float *c, float *wsave);
void cfftb(int n, float *c, float *wsave);

// The same transform with the scratch apart from the tables, so that threads
// can share one table: `ch` holds 2n floats of scratch per call.
void cfft1(int n, float *c, float *ch, const float *wsave, bool backward);

// Two-dimensional transforms on a W x H array of complex values (rows of W)
// by rows then columns; lines are shared among threads, each with its own
// scratch. Columns go through in groups of adjacent ones.
class CfftPlane {
public:
  // Tables for both sides and the scratch; std::bad_alloc when they cannot
  // be had.
  CfftPlane(int width, int height);
  void Forward(float *array) { Transform(array, false); }
  void Backward(float *array) { Transform(array, true); }

private:
  void Transform(float *array, bool backward);

  int width_, height_;
  std::vector<float> rowTable_, columnTable_;
  int threads_;
  std::size_t scratchPerThread_;
  std::vector<float> scratch_;
};

}  // namespace qorimg::fft
