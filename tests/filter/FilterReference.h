// Double-precision references for the filter tests: planes as OpenCV matrices,
// the two padding rules of the line machinery, and separable and full sums.
#pragma once
#include <gtest/gtest.h>
#include <opencv2/core.hpp>

#include <vector>

#include "core/LmrImage.h"
#include "filter/FilterMatrix.h"

namespace qorimg::test {

// One plane as a CV_64F matrix.
cv::Mat PlaneMat(const CLmrImage &image, int plane);
// The ring rule: rows above reflect without repeat, rows below with repeat,
// columns repeat the edge (needs r < height).
cv::Mat RingPad(const cv::Mat &plane, int r);
// The window rule: rows reflect without repeat at both ends, columns repeat.
cv::Mat BlockPad(const cv::Mat &plane, int r);
// The middle row of m, divided by its float sum as the rings take it.
std::vector<double> NormalisedRow(const CFilterMatrix &m);
// The row along x then along y over a padded plane, in double; the result is
// the unpadded size.
cv::Mat Separable(const cv::Mat &padded, const std::vector<double> &row);
// The whole matrix over a padded plane, in double.
cv::Mat Full(const cv::Mat &padded, const CFilterMatrix &m);
// |a - b| <= tolerance everywhere on the rectangle of `actual` (NaN equals NaN).
::testing::AssertionResult Near(const CLmrImage &actual, int plane, const cv::Mat &expected, double tolerance,
                                cv::Rect area = cv::Rect());

}  // namespace qorimg::test
