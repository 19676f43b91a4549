// The filter rings and windows against double-precision references built on
// OpenCV's padding, on both stores.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "FilterReference.h"
#include "core/LineLoops.h"
#include "filter/FilterProc.h"
#include "support/Fixtures.h"

namespace qorimg::test {
namespace {

class FilterProcTest : public RouteTest {};
QORIMG_ALL_ROUTES(FilterProcTest);

class ProcProbe : public CFilterProc {
public:
  using CFilterProc::ProcHorizontal;
  using CFilterProc::ProcVertical;
};

TEST_P(FilterProcTest, RingMatchesItsEdgeRuleInAnyRowOrder) {
  auto image = MakeImage(23, 17, 1);
  CFilterMatrix m;
  m.MakeGaussian(1.5);
  ASSERT_EQ(m.GetR(), 5);
  const cv::Mat expected = Separable(RingPad(PlaneMat(*image, 0), 5), NormalisedRow(m));
  CFilterProc proc(image.get(), &m, 0);
  // Float sums of samples up to 1000: a few ulps of the largest term.
  auto check = [&](int y) {
    for (int x = 0; x < 23; ++x) ASSERT_NEAR(proc.Calc(x, y), expected.at<double>(y, x), 2e-3) << x << ", " << y;
  };
  for (int y = 0; y < 17; ++y) check(y);
  // Backward steps, short forward jumps and long jumps each leave the ring right.
  for (int y : {16, 12, 3, 4, 9, 0, 16, 15}) check(y);
  std::vector<float> row(23);
  proc.CalcRow(0, 7, 23, row.data());
  for (int x = 0; x < 23; ++x) EXPECT_EQ(row[x], proc.Calc(x, 7));
  ProcProbe &probe = static_cast<ProcProbe &>(proc);
  EXPECT_EQ(probe.ProcHorizontal(3, 11), 1);
  EXPECT_EQ(probe.ProcVertical(3), proc.Calc(3, 11));
}

TEST_P(FilterProcTest, RingsAreOnePerThreadAndWiderThanAThousandLines) {
  auto image = MakeImage(64, 40, 1);
  CFilterMatrix m;
  m.MakeGaussian(2.0);
  const cv::Mat expected = Separable(RingPad(PlaneMat(*image, 0), m.GetR()), NormalisedRow(m));
  CFilterProc proc(image.get(), &m, 0);
  std::vector<float> out(64 * 40);
  ParallelLines(0, 40, [&](int y) {
    for (int x = 0; x < 64; ++x) out[y * 64 + x] = proc.Calc(x, y);
  });
  for (int y = 0; y < 40; ++y)
    for (int x = 0; x < 64; ++x) ASSERT_NEAR(out[y * 64 + x], expected.at<double>(y, x), 2e-3);

  // A ring of 1201 lines over 5 rows: every line is filled, so a flat plane stays flat.
  auto flat = MakeImage(9, 5, 1, [](int, int, int) { return 7.0f; });
  CFilterMatrix wide;
  wide.MakeMean(600, 600.0, 1.0);
  CFilterProc big(flat.get(), &wide, 0);
  for (int y : {0, 4, 2})
    for (int x : {0, 8}) EXPECT_NEAR(big.Calc(x, y), 7.0f, 1e-3);
}

TEST_P(FilterProcTest, SetsOnTheImage) {
  auto image = MakeImage(12, 9, 3);
  CLmrImage &host = *image;
  CFilterMatrix g, mean;
  g.MakeGaussian(1.0);
  mean.MakeMean(1, 1.0, 1.0);
  EXPECT_EQ(host.MakeFilterProc(image.get(), &g, 3, 1), 0);
  EXPECT_EQ(host.MakeFilterProc(image.get(), &g, 1, 1), 1);
  const float blurred = host.CalcFilterProc(4, 4, 1);
  // An existing filter is kept: the mean is ignored until ClearFilterProc.
  EXPECT_EQ(host.MakeFilterProc(image.get(), &mean, 1, 1), 1);
  host.SetFilterProcPln(1);
  EXPECT_EQ(host.CalcFilterProc(4, 4), blurred);
  host.SetFilterProcPln(7);  // plane 0, which has no filter
  EXPECT_EQ(host.CalcFilterProc(4, 4), 0.0f);
  EXPECT_EQ(host.CalcFilterProc(4, 4, -2), 0.0f);

  EXPECT_EQ(host.MakeFilterProcEx(6, image.get(), &mean, 0, 1), 0);
  EXPECT_EQ(host.MakeFilterProcEx(5, image.get(), &mean, 2, 1), 1);
  host.SetFilterProcPlnEx(5, 2);
  EXPECT_NE(host.CalcFilterProcEx(5, 4, 4), 0.0f);
  EXPECT_EQ(host.CalcFilterProcEx(5, 4, 4, 2), host.CalcFilterProcEx(5, 4, 4));
  EXPECT_EQ(host.CalcFilterProcEx(-1, 4, 4), 0.0f);

  CLmrImage copy(host);
  EXPECT_EQ(copy.CalcFilterProc(4, 4, 1), 0.0f);
  host.ClearFilterProc();
  EXPECT_EQ(host.CalcFilterProc(4, 4, 1), 0.0f);
  EXPECT_EQ(host.CalcFilterProcEx(5, 4, 4, 2), 0.0f);

  CFilterProcEx ex;
  EXPECT_EQ(ex.Make(image.get(), &g, 2, 0), 1);
  EXPECT_EQ(ex.GetR(2), g.GetR());
  EXPECT_EQ(ex.GetD(2), 2 * g.GetR() + 1);
  EXPECT_EQ(ex.GetFilter(2)[g.GetR()], g.GetPrm(0, 0));  // not normalised
  EXPECT_EQ(ex.GetFilter(), nullptr);
}

TEST_P(FilterProcTest, WindowReflectsRowsWithoutRepeatAndRepeatsColumns) {
  auto image = MakeImage(19, 11, 2);
  image->SetPixelGrayRaw(3, 2, std::numeric_limits<float>::quiet_NaN(), 1);
  CFilterMatrix disc, mask;
  disc.MakeMean(3, 2.5, 0.7);
  mask.MakeMask(1, 1.0);
  const cv::Mat expected = Full(BlockPad(PlaneMat(*image, 0), 3), disc);
  const std::vector<float> plane0 = ReadPlane(*image, 0);
  for (int y = 0; y < 11; ++y) {
    CFilterBlock block(image.get(), 3, 0, y, 0, 2);
    CFilterBlock direct(const_cast<float *>(plane0.data()), 19, 11, 3, 0, y);
    float row[19];
    block.CalcRow(&disc, 0, 19, row);
    for (int x = 0; x < 19; ++x) {
      ASSERT_NEAR(block.Calc(&disc, x), expected.at<double>(y, x), 2e-3) << x << ", " << y;
      ASSERT_EQ(block.Calc(&disc, x), direct.Calc(&disc, x));
      ASSERT_EQ(row[x], block.Calc(&disc, x));
    }
    EXPECT_EQ(block.GetPixel(-1, y), 0.0f);
    EXPECT_EQ(block.GetPixel(0, y + 4), 0.0f);
    EXPECT_EQ(block.GetPixel(5, y - 3), y >= 3 ? image->GetPixelGrayRaw(5, y - 3, 0) : block.GetPixel(5, y - 3));
  }
  // A matrix larger than the window is cut to it; clipping clamps each sample.
  CFilterBlock small(image.get(), 1, 0, 5, 0, 2);
  CFilterMatrix ones;
  ones.MakeMask(2, 2.0);
  float cut = 0;
  for (int j = -1; j <= 1; ++j)
    for (int i = -1; i <= 1; ++i) cut += image->GetPixelGrayRaw(6 + i, 5 + j, 0);
  EXPECT_FLOAT_EQ(small.Calc(&ones, 6), cut);
  EXPECT_EQ(small.CalcClip(&ones, 6, 5.0f, 5.0f), 45.0f);

  // Sorted samples of the cross, NaN last.
  CFilterBlock nanBlock(image.get(), 1, 0, 2, 1, 2);
  const float *s = nanBlock.GetSorted(&mask, 3);
  ASSERT_EQ(nanBlock.GetCount(), 5);
  for (int i = 0; i < 3; ++i) EXPECT_LE(s[i], s[i + 1]);
  EXPECT_TRUE(std::isnan(s[4]));
  EXPECT_EQ(nanBlock.GetSortedAt(&mask, 3, -1), 0.0f);
  EXPECT_EQ(nanBlock.GetSortedAt(&mask, 3, 5), 0.0f);
  CFilterBlock none;
  EXPECT_EQ(none.SetBlock(image.get(), 1, 0, 0, 2, 2), 0);
}

}  // namespace
}  // namespace qorimg::test
