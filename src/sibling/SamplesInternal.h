// Conversion between stored samples of every CImage::DataType and doubles.
// Samples are read and written with memcpy, so lines need no alignment.
#pragma once
#include "sibling/Image.h"

namespace store_internal {

// Raw value of one sample; 0 for a type that is not one of CImage::DataType.
double ReadSample(const unsigned char *sample, CImage::DataType type, bool isSigned);

// Raw values of `count` consecutive samples.
void ReadSamples(const unsigned char *line, long long count, CImage::DataType type, bool isSigned, double *out);

// Stores `count` values as samples. Integer types round to nearest (halves away
// from zero) and clamp to the type's range, NaN becomes 0; values beyond the
// float range become infinities. Nothing is written for an unknown type.
void WriteSamples(const double *values, long long count, CImage::DataType type, bool isSigned,
                  unsigned char *line);

}  // namespace store_internal
