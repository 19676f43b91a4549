// A separable Gaussian blur of a float plane, standing in for the blur-filter
// family's GaussianFilter, which the correlation operators are to use once it
// exists (its rims may then differ from this one's). Not installed.
//
// Rows [rowFirst, rowEnd) of dst get the blur of src (w x h, rows of w): taps
// out to ceil(3 sigma), normalised to sum 1, the plane's edge repeated
// beyond it. dst and src must not overlap.
#pragma once

namespace qorimg::fft {

void GaussianBlurRows(const float *src, float *dst, int w, int h, double sigma, int rowFirst, int rowEnd);

}  // namespace qorimg::fft
