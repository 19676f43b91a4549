// Point records and what the copying operations carry over.
#include "support/Fixtures.h"

namespace qorimg::test {
namespace {

TEST(PointRecords, ValidityTestsDifferAsDocumented) {
  CLmrImage img;
  EXPECT_FALSE(img.IsValidStarPt());  // -100, -100 after Init
  img.SetStarPt(CPoint(-5, 3));
  EXPECT_TRUE(img.IsValidStarPt());   // x >= 0 or y >= 0
  img.SetPickupPt(CPoint(-5, 3));
  EXPECT_FALSE(img.IsValidPickupPt());  // x >= 0 and y >= 0
  img.SetSkyPt(CPoint(-5, 3), 0);
  EXPECT_FALSE(img.IsValidSkyPt());  // radius 0
  img.SetSkyPt(CPoint(-5, 3), 4);
  EXPECT_TRUE(img.IsValidSkyPt());
  img.ClearSkyPt();
  CPoint p;
  int radius = -1;
  img.GetSkyPt(p, radius);
  EXPECT_EQ(p, CPoint(-1, -1));
  EXPECT_EQ(radius, 0);
  img.ClearStarPt();
  EXPECT_EQ(img.GetStarPt(), CPoint(-1, -1));
}

TEST(PointRecords, StandardPointZeroMovesTheCentre) {
  CLmrImage img;
  EXPECT_EQ(img.GetStdPtNum(), 0);
  img.SetStdPt(1, CfPoint(3.5, 4.25));
  EXPECT_FALSE(img.IsValidStdCtr());
  img.SetStdPt(0, CfPoint(7.75, -2.5));
  EXPECT_EQ(img.GetStdCtr().fx, 7.75);
  EXPECT_EQ(img.GetStdCtr().y, -2);  // truncated toward zero
  EXPECT_EQ(img.GetStdPtNum(), 2);
  img.ClearStdPt(1);
  EXPECT_TRUE(img.IsValidStdCtr());  // clearing point 1 leaves the centre alone
  img.ClearStdPt(0);
  EXPECT_FALSE(img.IsValidStdCtr());
}

TEST(PointRecords, BackgroundRectanglesCountOnlyTheFirstTwoSlots) {
  CLmrImage img;
  img.SetBkgRect(2, CRect(0, 0, 5, 5));
  img.SetBkgRect(31, CRect(0, 0, 5, 5));
  img.SetBkgRect(32, CRect(0, 0, 5, 5));  // ignored
  EXPECT_EQ(img.GetBkgRectNum(), 0);
  EXPECT_TRUE(img.IsValidBkgRect(31));
  EXPECT_FALSE(img.IsValidBkgRect(32));
  img.SetBkgRect(1, CRect(2, 2, 3, 3));
  EXPECT_EQ(img.GetBkgRectNum(), 1);
  img.ClearBkgRect(1);
  EXPECT_EQ(img.GetBkgRectNum(), 0);
}

TEST(PointRecords, CopiesCarryStandardPointsButStartOtherRecordsAtZero) {
  auto src = MakeImage(CreateWholePlaneManager(), 4, 3, 1);
  src->SetStdPt(0, CfPoint(1.5, 2.5));
  src->SetStarPt(CPoint(-100, -100));
  src->SetPickupPt(CPoint(2, 2));
  CLmrImage copy(*src);
  EXPECT_EQ(copy.GetStdCtr().fx, 1.5);
  EXPECT_TRUE(copy.IsValidStarPt());  // (0, 0): read as valid, as the copy leaves it
  EXPECT_EQ(copy.GetPickupPt(), CPoint(0, 0));
  EXPECT_TRUE(SamePixels(copy, *src));

  CLmrImage target;
  target.SetPickupPt(CPoint(3, 1));
  ASSERT_EQ(target.CopyImage(*src, nullptr, nullptr), 1);
  EXPECT_EQ(target.GetPickupPt(), CPoint(3, 1));  // CopyImage leaves the target's own records
  EXPECT_EQ(target.GetStdCtr().fx, 1.5);

  auto blank = src->CloneWithoutImage();
  ASSERT_TRUE(blank);
  EXPECT_EQ(blank->GetPixelGrayRaw(2, 1, 0), 0.0f);
  EXPECT_EQ(blank->GetLevelMax(0), src->GetLevelMax(0));

  CLmrImage other;
  other.SetStdPt(0, CfPoint(9, 9));
  other.Swap(src.get());
  EXPECT_EQ(other.GetWidth(), 4);
  EXPECT_EQ(src->GetStdCtr().x, 9);
  EXPECT_TRUE(src->IsEmpty());
}

TEST(PointRecords, SetLevelMinusOneMovesColourPlanesTogether) {
  auto img = MakeImage(CreateWholePlaneManager(), 2, 2, 3);
  img->CImage::SetLevel(0, 100.0, 200.0);
  img->CImage::SetLevel(1, 0.0, 1000.0);
  img->CImage::SetLevel(2, 50.0, 60.0);
  img->SetLevel(-1, 110.0, 180.0);  // dMin = 0.1, dMax = -0.2
  const double want[3][2] = {{110.0, 180.0}, {100.0, 800.0}, {51.0, 58.0}};
  for (int p = 0; p < 3; ++p) {
    EXPECT_DOUBLE_EQ(img->GetLevelMin(p), want[p][0]) << p;
    EXPECT_DOUBLE_EQ(img->GetLevelMax(p), want[p][1]) << p;
  }
  EXPECT_DOUBLE_EQ(img->GetLevelRange(2), 7.0);
  auto mono = MakeImage(CreateWholePlaneManager(), 2, 2, 1);
  mono->SetLevel(-1, 5.0, 6.0);
  EXPECT_DOUBLE_EQ(mono->GetLevelMin(0), 5.0);
}

}  // namespace
}  // namespace qorimg::test
