#include "FilterReference.h"

#include <opencv2/core.hpp>

#include <cmath>

#include "support/Fixtures.h"

namespace qorimg::test {

cv::Mat PlaneMat(const CLmrImage &image, int plane) {
  const std::vector<float> samples = ReadPlane(image, plane);
  cv::Mat m(image.GetHeight(), image.GetWidth(), CV_64F);
  for (int y = 0; y < m.rows; ++y)
    for (int x = 0; x < m.cols; ++x) m.at<double>(y, x) = samples[static_cast<size_t>(y) * m.cols + x];
  return m;
}

cv::Mat RingPad(const cv::Mat &plane, int r) {
  cv::Mat top, both, all;
  cv::copyMakeBorder(plane, top, r, 0, 0, 0, cv::BORDER_REFLECT_101);
  cv::copyMakeBorder(top, both, 0, r, 0, 0, cv::BORDER_REFLECT);
  cv::copyMakeBorder(both, all, 0, 0, r, r, cv::BORDER_REPLICATE);
  return all;
}

cv::Mat BlockPad(const cv::Mat &plane, int r) {
  cv::Mat rows, all;
  cv::copyMakeBorder(plane, rows, r, r, 0, 0, cv::BORDER_REFLECT_101);
  cv::copyMakeBorder(rows, all, 0, 0, r, r, cv::BORDER_REPLICATE);
  return all;
}

std::vector<double> NormalisedRow(const CFilterMatrix &m) {
  const int r = m.GetR();
  float sum = 0.0f;
  for (int x = -r; x <= r; ++x) sum += m.GetPrm(x, 0);
  std::vector<double> row;
  for (int x = -r; x <= r; ++x) row.push_back(m.GetPrm(x, 0) / sum);
  return row;
}

cv::Mat Separable(const cv::Mat &padded, const std::vector<double> &row) {
  const int r = static_cast<int>(row.size()) / 2;
  cv::Mat alongX(padded.rows, padded.cols - 2 * r, CV_64F), out(padded.rows - 2 * r, padded.cols - 2 * r, CV_64F);
  for (int y = 0; y < alongX.rows; ++y)
    for (int x = 0; x < alongX.cols; ++x) {
      double s = 0;
      for (int k = 0; k <= 2 * r; ++k) s += row[static_cast<size_t>(k)] * padded.at<double>(y, x + k);
      alongX.at<double>(y, x) = s;
    }
  for (int y = 0; y < out.rows; ++y)
    for (int x = 0; x < out.cols; ++x) {
      double s = 0;
      for (int k = 0; k <= 2 * r; ++k) s += row[static_cast<size_t>(k)] * alongX.at<double>(y + k, x);
      out.at<double>(y, x) = s;
    }
  return out;
}

cv::Mat Full(const cv::Mat &padded, const CFilterMatrix &m) {
  const int r = m.GetR();
  cv::Mat out(padded.rows - 2 * r, padded.cols - 2 * r, CV_64F);
  for (int y = 0; y < out.rows; ++y)
    for (int x = 0; x < out.cols; ++x) {
      double s = 0;
      for (int j = -r; j <= r; ++j)
        for (int i = -r; i <= r; ++i) s += m.GetPrm(i, j) * padded.at<double>(y + r + j, x + r + i);
      out.at<double>(y, x) = s;
    }
  return out;
}

::testing::AssertionResult Near(const CLmrImage &actual, int plane, const cv::Mat &expected, double tolerance,
                                cv::Rect area) {
  if (area.area() == 0) area = cv::Rect(0, 0, actual.GetWidth(), actual.GetHeight());
  for (int y = area.y; y < area.y + area.height; ++y)
    for (int x = area.x; x < area.x + area.width; ++x) {
      const double a = actual.GetPixelGrayRaw(x, y, plane), e = expected.at<double>(y, x);
      if (std::isnan(a) && std::isnan(e)) continue;
      if (!(std::fabs(a - e) <= tolerance))
        return ::testing::AssertionFailure() << "plane " << plane << " at (" << x << ", " << y << "): " << a
                                             << " vs " << e << " (tolerance " << tolerance << ")";
    }
  return ::testing::AssertionSuccess();
}

}  // namespace qorimg::test
