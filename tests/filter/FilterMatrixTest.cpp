// The kernel makers against their rules and against OpenCV where it builds the
// same kernel.
#include <gtest/gtest.h>
#include <opencv2/imgproc.hpp>

#include <cmath>
#include <new>

#include "filter/FilterMatrix.h"

namespace {

class Probe : public CFilterMatrix {
public:
  using CFilterMatrix::GetIndex;
  using CFilterMatrix::Hokan4;
};

TEST(FilterMatrix, GaussianRadiusTruncatesAndCastsDefined) {
  EXPECT_EQ(CFilterMatrix::GetGaussian_nR(0.0), 1);
  EXPECT_EQ(CFilterMatrix::GetGaussian_nR(1.0), 3);
  EXPECT_EQ(CFilterMatrix::GetGaussian_nR(0.5), 2);
  EXPECT_EQ(CFilterMatrix::GetGaussian_nR(2.0), 6);
  EXPECT_EQ(CFilterMatrix::GetGaussian_nR(std::nan("")), 1);
  EXPECT_EQ(CFilterMatrix::GetGaussian_nR(1e300), 1);
}

TEST(FilterMatrix, GaussianMiddleRowMatchesOpenCv) {
  for (double sigma : {0.7, 1.0, 2.0, 3.5}) {
    CFilterMatrix m;
    ASSERT_EQ(m.MakeGaussian(sigma), 1);
    const int r = m.GetR(), d = 2 * r + 1;
    const cv::Mat ref = cv::getGaussianKernel(d, sigma, CV_64F);
    double sum = 0;
    for (int x = -r; x <= r; ++x) sum += m.GetPrm(x, 0);
    // float cells normalised in double: a few float ulps of the peak.
    for (int x = -r; x <= r; ++x) EXPECT_NEAR(m.GetPrm(x, 0) / sum, ref.at<double>(x + r), 1e-6) << sigma;
  }
  CFilterMatrix lone;
  lone.MakeGaussian(2, 0.0);
  EXPECT_EQ(lone.GetSize(), 25);
  for (int i = 0; i < 25; ++i) EXPECT_EQ(lone.GetPrm(i), i == 12 ? 1.0f : 0.0f);
  CFilterMatrix sigmaIsRadius, explicitSigma;
  sigmaIsRadius.MakeGaussian(3, -1.0);
  explicitSigma.MakeGaussian(3, 3.0);
  for (int i = 0; i < 49; ++i) EXPECT_EQ(sigmaIsRadius.GetPrm(i), explicitSigma.GetPrm(i));
}

TEST(FilterMatrix, DiscsLaplacianAndSharpenKeepTheirRadiusRules) {
  CFilterMatrix m;
  EXPECT_EQ(m.MakeMask(2, 2.0), 13);
  // skimage.morphology.disk(3): 29 cells, the axis ends in, (3, 1) out.
  EXPECT_EQ(m.MakeMask(3, 3.0), 29);
  EXPECT_EQ(m.GetPrm(3, 0), 1.0f);
  EXPECT_EQ(m.GetPrm(3, 1), 0.0f);

  m.MakeLaplacian(1, 1.0);
  const float axis[9] = {0, -1, 0, -1, 4, -1, 0, -1, 0};
  for (int i = 0; i < 9; ++i) EXPECT_EQ(m.GetPrm(i), axis[i]);
  m.MakeLaplacian(1, 2.0);
  for (int i = 0; i < 9; ++i) EXPECT_EQ(m.GetPrm(i), i == 4 ? 8.0f : -1.0f);
  // Unsquared radius: 2 takes squared distances 1 and 2, not the axis at 2.
  m.MakeLaplacian(2, 2.0);
  EXPECT_EQ(m.GetPrm(2, 0), 0.0f);
  EXPECT_EQ(m.GetPrm(0, 0), 8.0f);

  // Negated cv::Laplacian(ksize 1) of a delta is the cross Laplacian.
  cv::Mat delta = cv::Mat::zeros(5, 5, CV_32F), lap;
  delta.at<float>(2, 2) = 1.0f;
  cv::Laplacian(delta, lap, CV_32F, 1, 1, 0, cv::BORDER_CONSTANT);
  m.MakeLaplacian(1, 1.0);
  for (int y = -1; y <= 1; ++y)
    for (int x = -1; x <= 1; ++x) EXPECT_EQ(m.GetPrm(x, y), -lap.at<float>(2 + y, 2 + x));

  m.MakeSharp(1.9, 0.5);
  EXPECT_EQ(m.GetR(), 1);
  double sum = 0;
  for (int i = 0; i < 9; ++i) sum += m.GetPrm(i);
  EXPECT_NEAR(sum, 1.0, 1e-6);
  EXPECT_FLOAT_EQ(m.GetPrm(0, 0), 3.0f);  // 4 * 0.5 + 1, sum already 1
  EXPECT_FLOAT_EQ(m.GetPrm(1, 0), -0.5f);
  EXPECT_EQ(m.GetPrm(1, 1), 0.0f);

  m.MakeMean(2, 1.0, 0.5);
  EXPECT_FLOAT_EQ(m.GetPrm(0, 0), 1.0f / 3.0f);
  EXPECT_FLOAT_EQ(m.GetPrm(0, 1), 0.5f / 3.0f);
  EXPECT_EQ(m.GetPrm(1, 1), 0.0f);
}

TEST(FilterMatrix, CfaMasks) {
  CFilterMatrix m;
  EXPECT_EQ(m.MakeCFAMask(0, 0), 4);
  EXPECT_EQ(m.GetPrm(-2, -2) + m.GetPrm(2, 2) + m.GetPrm(2, -2) + m.GetPrm(-2, 2), 4.0f);
  EXPECT_EQ(m.MakeCFAMask(1, 0), 4);
  EXPECT_EQ(m.GetPrm(0, -2) + m.GetPrm(0, 2) + m.GetPrm(-2, 0) + m.GetPrm(2, 0), 4.0f);
  EXPECT_EQ(m.MakeCFAMask(2, 1), 4);
  EXPECT_EQ(m.GetPrm(0, 2), 1.0f);
  EXPECT_EQ(m.MakeCFAMask(1, 1), 4);
  EXPECT_EQ(m.GetR(), 1);
  EXPECT_EQ(m.GetPrm(1, 1), 1.0f);
  EXPECT_EQ(m.MakeCFAMask(3, 1), 0);
  EXPECT_EQ(m.MakeCFAMask(3, 0), 0);
  EXPECT_EQ(m.GetSize(), 25);
  for (int i = 0; i < 25; ++i) EXPECT_EQ(m.GetPrm(i), 0.0f);
}

TEST(FilterMatrix, GuideErrorCancellerSumsToOneAndFollowsTheAngle) {
  CFilterMatrix m;
  ASSERT_EQ(m.MakeGuideErrorCanceller(3, 2.5, 0.0, 1.0), 1);
  double sum = 0;
  for (int i = 0; i < m.GetSize(); ++i) sum += m.GetPrm(i);
  EXPECT_NEAR(sum, 1.0, 1e-5);
  // Angle 0 turns the horizontal smear upright: the middle column carries it.
  EXPECT_LT(m.GetPrm(0, 2), 0.0f);
  EXPECT_NEAR(m.GetPrm(2, 0), 0.0f, 1e-6);
  // Along the row (angle 90) a length beyond the radius puts its fraction on
  // the left end alone; the right end stays -1.
  m.MakeGuideErrorCanceller(3, 3.5, 90.0, 1.0);
  EXPECT_NEAR(m.GetPrm(-3, 0) / m.GetPrm(3, 0), -0.5, 1e-5);
  m.MakeGuideErrorCanceller(3, 2.5, 90.0, 1.0);
  EXPECT_EQ(m.GetPrm(-3, 0), m.GetPrm(3, 0));
}

TEST(FilterMatrix, StorageRules) {
  CFilterMatrix m;
  EXPECT_EQ(m.GetPrm(0), 0.0f);
  EXPECT_EQ(m.MakeMtx(1, 10, 0), 0);  // above 9 cells: 0, matrix kept and cleared
  EXPECT_EQ(m.GetSize(), 9);
  EXPECT_EQ(m.MakeMtx(-4, 0, 0), 1);
  EXPECT_EQ(m.GetR(), 0);
  EXPECT_THROW(m.MakeMtx(40000, 0, 0), std::bad_alloc);

  double values[12];
  for (int i = 0; i < 12; ++i) values[i] = i + 0.5;
  EXPECT_EQ(m.SetMtx(1, values, 12), 0);
  EXPECT_EQ(m.GetPrm(8), 8.5f);
  EXPECT_EQ(m.SetMtx(1, values, 4), 1);
  EXPECT_EQ(m.GetPrm(3), 3.5f);
  EXPECT_EQ(m.GetPrm(4), 0.0f);
  CFilterMatrix all(1, values, 0);
  EXPECT_EQ(all.GetPrm(8), 8.5f);
  EXPECT_EQ(all.GetPrm(9), 0.0f);
  EXPECT_EQ(all.GetPrm(-1), 0.0f);
  // The range test is on the linear index: x = R+1 reads the next row's first cell.
  EXPECT_EQ(all.GetPrm(2, -1), all.GetPrm(-1, 0));
  EXPECT_EQ(all.GetMtxPtr(2, 1), nullptr);
  CFilterMatrix copy(all);
  EXPECT_EQ(copy.GetPrm(7), 7.5f);

  float zeroSum[9] = {1, -1, 0, 0, 0, 0, 0, 0, 0};
  CFilterMatrix z(1, zeroSum, 9);
  z.Normalize();
  EXPECT_EQ(z.GetPrm(0), 1.0f);

  EXPECT_EQ(Probe::GetIndex(5, -5, 1), 2);
  EXPECT_EQ(Probe::GetIndex(0, 0, 2), 12);
  EXPECT_FLOAT_EQ(Probe::Hokan4(1, 2, 3, 4, 0.25f, 0.5f), 0.375f * 1 + 0.375f * 3 + 0.125f * 2 + 0.125f * 4);
}

}  // namespace
