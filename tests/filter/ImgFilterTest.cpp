// CImgFilter's small windows on every route against OpenCV's median, erode,
// dilate and Laplacian on the same padding, and the work images.
#include <gtest/gtest.h>
#include <opencv2/imgproc.hpp>

#include <algorithm>
#include <cmath>
#include <vector>

#include "FilterReference.h"
#include "filter/ImgFilter.h"
#include "support/Fixtures.h"

namespace qorimg::test {
namespace {

class WindowTest : public RouteTest {
protected:
  std::unique_ptr<CImgFilter> MakeFilter(int w, int h, int planes) {
    auto image = MakeImage(w, h, planes, [](int, int, int) { return -1.0f; });
    auto f = std::make_unique<CImgFilter>();
    f->Swap(image.get());
    return f;
  }
};
QORIMG_ALL_ROUTES(WindowTest);

class Probe : public CImgFilter {
public:
  using CImgFilter::CalcRect;
  using CImgFilter::CalcShift;
};

// The window rows' rule (above without repeat, below with) and the column
// rule of the +-1 offsets (the opposite neighbour) as OpenCV paddings.
cv::Mat WindowPad(const cv::Mat &plane) {
  cv::Mat top, rows, all;
  cv::copyMakeBorder(plane, top, 1, 0, 0, 0, cv::BORDER_REFLECT_101);
  cv::copyMakeBorder(top, rows, 0, 1, 0, 0, cv::BORDER_REFLECT);
  cv::copyMakeBorder(rows, all, 0, 0, 1, 1, cv::BORDER_REFLECT_101);
  cv::Mat f32;
  all.convertTo(f32, CV_32F);
  return f32;
}

cv::Mat Crop(const cv::Mat &padded) {
  cv::Mat out;
  padded(cv::Rect(1, 1, padded.cols - 2, padded.rows - 2)).convertTo(out, CV_64F);
  return out;
}

TEST_P(WindowTest, MedianRankAndLaplacianMatchOpenCv) {
  auto src = MakeImage(21, 15, 3);
  auto f = MakeFilter(21, 15, 3);
  f->SetLevel(0, 50.0, 1000.0);  // the target's plane 0 offsets the Laplacian
  const cv::Mat kernel8 = (cv::Mat_<float>(3, 3) << -1, -1, -1, -1, 8, -1, -1, -1, -1);
  const cv::Mat kernel4 = (cv::Mat_<float>(3, 3) << 0, -1, 0, -1, 4, -1, 0, -1, 0);
  for (int c = 0; c < 3; ++c) {
    const cv::Mat padded = WindowPad(PlaneMat(*src, c));
    cv::Mat med, lo, hi, lap8, lap4;
    cv::medianBlur(padded, med, 3);
    cv::erode(padded, lo, cv::Mat::ones(3, 3, CV_8U));
    cv::dilate(padded, hi, cv::Mat::ones(3, 3, CV_8U));
    cv::Mat padded64;
    padded.convertTo(padded64, CV_64F);
    cv::filter2D(padded64, lap8, CV_64F, kernel8);
    cv::filter2D(padded64, lap4, CV_64F, kernel4);
    lap8 = cv::abs(lap8) + 50.0;  // plane 0's level minimum on every plane
    lap4 = cv::abs(lap4) + 50.0;
    f->MedianFilter(1, src.get(), nullptr, 0);
    EXPECT_TRUE(Near(*f, c, Crop(med), 0.0));
    f->MinMaxFilter(1, 0, src.get(), nullptr, 0);
    EXPECT_TRUE(Near(*f, c, Crop(lo), 0.0));
    f->MinMaxFilter(1, 99, src.get(), nullptr, 0);  // rank clamped to the last
    EXPECT_TRUE(Near(*f, c, Crop(hi), 0.0));
    f->LaplacianFilter(1, src.get(), nullptr, 0);
    EXPECT_TRUE(Near(*f, c, Crop(lap8), 1e-3));
    f->LaplacianFilter(0, src.get(), nullptr, 0);
    EXPECT_TRUE(Near(*f, c, Crop(lap4), 1e-3));
  }
  f->MedianFilter(3, src.get(), nullptr, 0);  // any other code: the pixel
  EXPECT_TRUE(SamePixels(*f, *src));
  auto flat = MakeImage(21, 15, 3, [](int, int, int) { return 5.0f; });
  f->MedianFilter(2, flat.get(), nullptr, 0);
  EXPECT_TRUE(SamePixels(*f, *flat));
}

TEST_P(WindowTest, RankNetworksAgreeWithSortingWithNaNLast) {
  auto src = MakeImage(23, 9, 1);
  src->SetPixelGrayRaw(10, 4, std::nanf(""), 0);
  src->SetPixelGrayRaw(11, 4, -INFINITY, 0);
  auto f = MakeFilter(23, 9, 1);
  const int rounds[21][2] = {{-2, -1}, {-2, 0}, {-2, 1}, {-1, -2}, {-1, -1}, {-1, 0}, {-1, 1}, {-1, 2}, {0, -2}, {0, -1}, {0, 0},
                             {0, 1},   {0, 2},  {1, -2}, {1, -1}, {1, 0},   {1, 1},   {1, 2},  {2, -1}, {2, 0},  {2, 1}};
  for (int rank : {0, 10, 20}) {
    f->MinMaxFilter(2, rank, src.get(), nullptr, 0);
    for (int y = 2; y < 7; ++y)
      for (int x = 2; x < 21; ++x) {
        std::vector<float> s;
        for (const auto &o : rounds) s.push_back(src->GetPixelGrayRaw(x + o[1], y + o[0], 0));
        std::sort(s.begin(), s.end(), [](float a, float b) { return std::isnan(b) ? !std::isnan(a) : a < b; });
        const float got = f->GetPixelGrayRaw(x, y, 0);
        ASSERT_TRUE(got == s[rank] || (std::isnan(got) && std::isnan(s[rank]))) << rank << " at " << x << ", " << y;
      }
  }
}

TEST_P(WindowTest, UnsharpMaskSkipsFlatAreas) {
  auto src = MakeImage(12, 10, 3, [](int x, int y, int) { return x == 5 && y == 4 ? 1000.0f : 100.0f; });
  auto f = MakeFilter(12, 10, 3);
  f->UnSharpMask(1.0, 1, 1.0, 0.01, src.get(), 1, nullptr, 0);
  // Only plane 1: the spike's mean is 200, so 1000 + (1000 - 200).
  EXPECT_FLOAT_EQ(f->GetPixelGrayRaw(5, 4, 1), 1800.0f);
  EXPECT_EQ(f->GetPixelGrayRaw(0, 0, 1), 100.0f);
  EXPECT_EQ(f->GetPixelGrayRaw(5, 4, 0), -1.0f);
  f->UnSharpMask(1.0, 1, 1.0, 0.01, src.get(), nullptr, 0);
  EXPECT_FLOAT_EQ(f->GetPixelGrayRaw(5, 4, 2), 1800.0f);
  // Its neighbour: c 100, mean (1000 + 700 + 100) / 9 = 200.
  EXPECT_FLOAT_EQ(f->GetPixelGrayRaw(4, 4, 2), 0.0f);
  ExpectRejectsBadSources(Manager(), 8, 5, 3, [](CLmrImage *s, CLmrImage &t) {
    CImgFilter op;
    op.Swap(&t);
    try {
      op.MedianFilter(1, s, nullptr, 0);
    } catch (...) {
      op.Swap(&t);
      throw;
    }
    op.Swap(&t);
  });
}

TEST_P(WindowTest, WorkImagesMirrorTheMargins) {
  auto f = MakeFilter(5, 4, 3);
  FillImage(*f, Pattern);
  std::unique_ptr<CLmrImage> work(f->MakeFilterWork(0, 0));
  ASSERT_TRUE(work);
  ASSERT_EQ(work->GetWidth(), 9);
  ASSERT_EQ(work->GetHeight(), 8);
  auto mirror = [](int i, int n) { return i < 0 ? -i : (i >= n ? 2 * n - i - 1 : i); };
  EXPECT_TRUE(SamplesNear(*work, [&](int x, int y, int c) { return f->GetPixelGrayRaw(mirror(x - 2, 5), mirror(y - 2, 4), c); }, 0));
  std::unique_ptr<CLmrImage> dd(f->MakeDDWork(1, 0));
  ASSERT_TRUE(dd);
  ASSERT_EQ(dd->GetPlanes(), 4);
  const float g0 = f->To256(f->GetPixelGrayRaw(0, 0, 0), 0), g1 = f->To256(f->GetPixelGrayRaw(0, 0, 1), 0),
              g2 = f->To256(f->GetPixelGrayRaw(0, 0, 2), 0);
  EXPECT_FLOAT_EQ(dd->GetPixelGrayRaw(1, 1, 3), static_cast<float>((g0 + g1 + g2) / 3.0 / 255.0 * 1000.0));
  EXPECT_EQ(CImgFilter().MakeFilterWork(2, 0), nullptr);

  Probe probe;
  probe.Swap(f.get());
  int l, t, r, b;
  CRect wide(-3, 1, 40, 3);
  probe.CalcRect(l, t, r, b, &wide);
  EXPECT_EQ(CRect(l, t, r, b), CRect(0, 1, 5, 3));
  int dx = -7, dy = -7;
  probe.CalcShift(dx, dy, 0, work.get());
  EXPECT_EQ(dx, 2);
  EXPECT_EQ(dy, 2);
  EXPECT_FLOAT_EQ(probe.HighPassRaw(0, 0, 0),
                  std::fabs(8.0f * probe.GetPixelGrayRaw(0, 0, 0) -
                            (3 * probe.GetPixelGrayRaw(0, 0, 0) + 2 * probe.GetPixelGrayRaw(1, 0, 0) +
                             2 * probe.GetPixelGrayRaw(0, 1, 0) + probe.GetPixelGrayRaw(1, 1, 0))));
  EXPECT_EQ(probe.GetMedianRaw(2, 2, 7, 0), probe.GetPixelGrayRaw(2, 2, 0));
  probe.Swap(f.get());
}

}  // namespace
}  // namespace qorimg::test
