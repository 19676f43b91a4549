// Transformed sampling: shift, rotation and magnification about the pivot, the
// range tests of the nearest and bilinear reads and their edge differences.
#include "support/Fixtures.h"

namespace qorimg::test {
namespace {

class TransformedSamplingTest : public RouteTest {};
QORIMG_ALL_ROUTES(TransformedSamplingTest);

float Cell(int x, int y, int p) { return 1.0f + x + 100.0f * y + 10000.0f * p; }

TEST_P(TransformedSamplingTest, ShiftRotationAndMagnificationFindTheSourcePoint) {
  auto img = MakeImage(9, 9, 1, Cell);
  img->SetStdCtr(4, 4);
  int out = -1;
  double sx, sy;
  // Pure shift.
  EXPECT_EQ(img->GetPixelGrayRaw(5, 6, 2.0, 1.0, 1.0, 0.0, 1.0, 0, -7.0, 0, &out, &sx, &sy), Cell(3, 5, 0));
  EXPECT_EQ(out, 0);
  EXPECT_EQ(sx, 3.0);
  EXPECT_EQ(sy, 5.0);
  // 90 degrees (y up) about the pivot: target (x, y) reads (cx + y - cy, cy + cx - x).
  for (int y = 0; y < 9; ++y)
    for (int x = 0; x < 9; ++x)
      EXPECT_FLOAT_EQ(img->GetPixelGrayRaw(x, y, 0.0, 0.0, 0.0, 1.0, 1.0, 0, -7.0, 0, nullptr, nullptr, nullptr),
                      Cell(y, 8 - x, 0));
  // Magnification 2 about the pivot.
  img->GetPixelGrayRaw(5, 4, 0.0, 0.0, 1.0, 0.0, 2.0, 0, -7.0, 0, nullptr, &sx, &sy);
  EXPECT_EQ(sx, 6.0);
  EXPECT_EQ(sy, 4.0);
  // Outside: the outside value and the flag.
  EXPECT_EQ(img->GetPixelGrayRaw(0, 0, 3.0, 0.0, 1.0, 0.0, 1.0, 0, -7.0, 0, &out, nullptr, nullptr), -7.0f);
  EXPECT_EQ(out, 1);
}

TEST_P(TransformedSamplingTest, NearestReadsDifferAtTheEdgesBetweenRawAnd256) {
  auto img = MakeImage(5, 3, 1, Cell);
  img->CImage::SetLevel(0, 0.0, 255.0);
  int out;
  // Source x = -0.4: the raw read rounds first (column 0), the 256 read tests first.
  EXPECT_EQ(img->GetPixelGrayRaw(0, 1, 0.4, 0.0, 1.0, 0.0, 1.0, 0, -1.0, 1, &out, nullptr, nullptr), Cell(0, 1, 0));
  EXPECT_EQ(out, 0);
  EXPECT_EQ(img->GetPixelGray256f(0, 1, 0.4, 0.0, 1.0, 0.0, 1.0, 0, -1.0, 1, &out, nullptr, nullptr), -1.0f);
  EXPECT_EQ(out, 1);
  // Source x = Width - 0.3: outside for the raw read, the last column for the 256 read.
  EXPECT_EQ(img->GetPixelGrayRaw(4, 1, -0.7, 0.0, 1.0, 0.0, 1.0, 0, -1.0, 1, &out, nullptr, nullptr), -1.0f);
  EXPECT_EQ(out, 1);
  EXPECT_FLOAT_EQ(img->GetPixelGray256f(4, 1, -0.7, 0.0, 1.0, 0.0, 1.0, 0, -1.0, 1, &out, nullptr, nullptr),
                  Cell(4, 1, 0));
  // Integer shifts come as ints too.
  EXPECT_FLOAT_EQ(img->GetPixelGray256f(2, 2, 1, 1, 1.0, 0.0, 1.0, 0, -1.0, 0, nullptr, nullptr, nullptr),
                  Cell(1, 1, 0));
}

TEST_P(TransformedSamplingTest, ColourPlaneMinusOneIsBrightnessAndMonoForcesPlaneZero) {
  auto color = MakeImage(4, 4, 3, Cell);
  const double bright = Cell(2, 1, 1) * 0.587 + Cell(2, 1, 0) * 0.299 + Cell(2, 1, 2) * 0.114;
  EXPECT_FLOAT_EQ(color->GetPixelGrayRaw(2, 1, 0.0, 0.0, 1.0, 0.0, 1.0, -1, 0.0, 0, nullptr, nullptr, nullptr),
                  static_cast<float>(bright));
  auto mono = MakeImage(4, 4, 1, Cell);
  EXPECT_EQ(mono->GetPixelGrayRaw(2, 1, 0.0, 0.0, 1.0, 0.0, 1.0, 2, 0.0, 1, nullptr, nullptr, nullptr), Cell(2, 1, 0));

  double r, g, b;
  int out = -1;
  mono->GetPixelRgbRaw(1, 2, 0.5, 0.0, 1.0, 0.0, 0, 1.0, &r, &g, &b, -3.0, &out, nullptr, nullptr);
  EXPECT_EQ(out, 0);
  EXPECT_DOUBLE_EQ(r, (Cell(0, 2, 0) + Cell(1, 2, 0)) / 2.0);
  EXPECT_EQ(r, g);
  EXPECT_EQ(g, b);
  color->GetPixelRgbRaw(9, 9, 0, 0, 1.0, 0.0, 0, 1.0, &r, &g, &b, -3.0, &out, nullptr, nullptr);
  EXPECT_EQ(out, 1);
  EXPECT_EQ(r, -3.0);
  EXPECT_EQ(b, -3.0);
}

TEST_P(TransformedSamplingTest, RgbPairPivotsOnTheCentreOrTheStandardCentre) {
  auto img = MakeImage(8, 8, 3, Cell);
  img->SetStdCtr(2, 2);
  double r, g, b, sx, sy;
  img->GetPixelRgb256f(3, 3, 0.0, 0.0, 1.0, 0.0, 0, 0.5, &r, &g, &b, 0.0, nullptr, &sx, &sy);
  EXPECT_EQ(sx, 3.5);  // about (4, 4)
  img->GetPixelRgb256f(3, 3, 0.0, 0.0, 1.0, 0.0, 1, 0.5, &r, &g, &b, 0.0, nullptr, &sx, &sy);
  EXPECT_EQ(sx, 2.5);  // about the standard centre
  EXPECT_NEAR(g, (img->GetPixelGrayRaw(2.5, 2.5, 1) - 0.0) / 1000.0 * 255.0, 1e-3);
  double a, bb;
  img->GetPixelAb(0, 0, 0.0, 0.0, 1.0, 0.0, 1.0, &a, &bb, -9.0);
  EXPECT_EQ(a, Cell(0, 0, 0));
  EXPECT_EQ(bb, Cell(0, 0, 1));
  EXPECT_EQ(img->GetPixelL(0, 0, 20.0, 0.0, 1.0, 0.0, 1.0, -9.0), -9.0f);
}

}  // namespace
}  // namespace qorimg::test
