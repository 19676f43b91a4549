// Whole-plane (kernel pipeline) routes of the statistics.
#pragma once
#include "core/LmrImage.h"
#include "core/OperatorFrame.h"

namespace qorimg {

// histogram_antialias_float over the rectangle of `plane`, or for plane -1
// histogram_antialias_brightness_float on the 0..255 scale (fMin and fMax given
// on that scale). Deterministic dither; samples outside [fMin, fMax] go to the
// first or last bin.
void HistogramPlane(const CLmrImage &image, int plane, const LineRect &rect, double fMin, double fMax, int nBins,
                    int *histogram);
void HistogramRgbPlanes(const CLmrImage &image, const LineRect &rect, double fMin, double fMax, int nBins,
                        int *red, int *green, int *blue);
// average_float: the mean over Width * Height, summed in double.
float AveragePlane(const CLmrImage &image, int plane);
// The sums of the centroid on the 0..255 scale (brightness on colour images):
// mean of the floored values, then x * q, y * q and q with q = max(v - mean, 0)^2.
void CentroidPlanes(const CLmrImage &image, const LineRect &rect, double &sumX, double &sumY, double &weight);

}  // namespace qorimg
