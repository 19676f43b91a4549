// GetDib: packed bitmaps in global memory, mapped in double precision, and the
// palette built for 8-bit colour.
#include <algorithm>
#include <array>
#include <random>
#include <set>
#include "display/DisplaySupport.h"
#include "display/UniqueDib.h"
#include "support/Fixtures.h"

namespace qorimg::test {
namespace {

class GetDibTest : public RouteTest {
protected:
  std::unique_ptr<CLmrImage> MakeSpread(int w, int h, int planes) const {
    return test::MakeSpread(Manager(), w, h, planes);
  }
};
QORIMG_ALL_ROUTES(GetDibTest);

TEST_P(GetDibTest, MonoBytesEqualTheDoubleMappingWithGreyTableAndZeroPadding) {
  auto image = MakeSpread(13, 7, 1);
  PackedCopy grey(image->GetDib(8));
  PackedCopy rgb(image->GetDib(24));
  EXPECT_EQ(grey.header.biSize, 40u);
  EXPECT_EQ(grey.header.biPlanes, 1);
  EXPECT_EQ(grey.header.biCompression, BI_RGB);
  EXPECT_EQ(grey.header.biHeight, 7);  // positive: bottom-up
  ASSERT_EQ(grey.table.size(), 256u);
  for (int i = 0; i < 256; ++i) {
    EXPECT_EQ(grey.table[i].rgbRed, i);
    EXPECT_EQ(grey.table[i].rgbBlue, i);
  }
  EXPECT_EQ(grey.stride, 16);
  EXPECT_EQ(rgb.stride, 40);
  for (int y = 0; y < 7; ++y) {
    for (int x = 0; x < 13; ++x) {
      const int expected = ReferenceByte(*image, x, y, 0);
      EXPECT_EQ(*grey.At(x, y), expected) << x << "," << y;
      for (int c = 0; c < 3; ++c) EXPECT_EQ(rgb.At(x, y)[c], expected) << x << "," << y;
    }
    for (int pad = 13; pad < 16; ++pad) EXPECT_EQ(grey.At(pad, y)[0], 0);
    EXPECT_EQ(rgb.At(0, y)[39], 0);
  }
  EXPECT_EQ(*grey.At(0, 0), 0);    // at LevelMin
  EXPECT_EQ(*grey.At(1, 0), 255);  // at LevelMax
  EXPECT_EQ(*grey.At(3, 1), 0);    // NaN
}

TEST_P(GetDibTest, ColourTakesEachPlaneWithItsOwnLevelsInBlueGreenRedOrder) {
  auto image = MakeSpread(17, 9, 3);
  PackedCopy dib(image->GetDib(24));
  for (int y = 0; y < 9; ++y)
    for (int x = 0; x < 17; ++x)
      for (int p = 0; p < 3; ++p) ASSERT_EQ(dib.At(x, y)[2 - p], ReferenceByte(*image, x, y, p)) << x << "," << y;
}

TEST_P(GetDibTest, OnlyEightAndTwentyFourBitsAndOnePixelLinesArePaddedToFour) {
  auto image = MakeImage(1, 5, 1);
  for (int bits : {0, 1, 4, 16, 32}) EXPECT_EQ(image->GetDib(bits), nullptr) << bits;
  HDIB handle = image->GetDib(24);
  ASSERT_NE(handle, nullptr);
  EXPECT_EQ(GlobalSize(handle), 40u + 4u * 5u);
  PackedCopy dib(handle);
  for (int y = 0; y < 5; ++y) EXPECT_EQ(dib.At(0, y)[3], 0);
}

TEST_P(GetDibTest, ZeroLevelRangeSplitsAtTheLevel) {
  auto image = MakeImage(4, 1, 1, [](int x, int, int) { return std::array<float, 4>{299.0f, 300.0f, 300.5f, 1e30f}[x]; });
  image->CImage::SetLevel(0, 300.0, 300.0);
  PackedCopy dib(image->GetDib(8));
  EXPECT_EQ(dib.At(0, 0)[0], 0);
  EXPECT_EQ(dib.At(1, 0)[0], 0);
  EXPECT_EQ(dib.At(2, 0)[0], 255);
  EXPECT_EQ(dib.At(3, 0)[0], 255);
}

// A raw value that maps to byte `v` under levels 0..255 (v + 0.5 truncates to v).
float ByteValue(int v) { return static_cast<float>(v) + 0.5f; }
int CellCentre(int byte) { return (byte & ~7) + 4; }

TEST_P(GetDibTest, FewerThan256CellsAllComeOutExactlyAtTheirCentres) {
  // 200 light cells (lightness class 0, whose share is capped at 30 slots before
  // scaling) and 50 dark ones, at uneven frequencies, each pixel anywhere in its
  // cell. Planes 1 and 2 get other levels, which the palette must not use.
  std::mt19937 random(7);
  std::set<int> cells;
  while (cells.size() < 200) {
    const int r = 24 + random() % 8, g = 24 + random() % 8, b = 24 + random() % 8;
    if ((std::max({r, g, b}) + std::min({r, g, b})) * 4 + 4 >= 224) cells.insert(r << 10 | g << 5 | b);
  }
  while (cells.size() < 250) cells.insert((random() % 8) << 10 | (random() % 8) << 5 | (random() % 8));
  const std::vector<int> list(cells.begin(), cells.end());
  const int w = 40, h = 30;
  std::vector<int> cellOf(w * h);
  for (int i = 0; i < w * h; ++i) cellOf[i] = list[i < 250 ? i : random() % 25];
  std::vector<std::array<int, 3>> bytes(w * h);
  for (int i = 0; i < w * h; ++i) {
    const int shifts[3] = {10, 5, 0};
    for (int c = 0; c < 3; ++c) bytes[i][c] = ((cellOf[i] >> shifts[c]) & 31) * 8 + random() % 8;
  }
  auto image = MakeImage(w, h, 3, [&](int x, int y, int p) { return ByteValue(bytes[y * w + x][p]); });
  image->CImage::SetLevel(0, 0.0, 255.0);
  image->CImage::SetLevel(1, 1000.0, 2000.0);
  image->CImage::SetLevel(2, -500.0, -100.0);
  PackedCopy dib(image->GetDib(8));
  ASSERT_EQ(dib.table.size(), 256u);
  for (int y = 0; y < h; ++y)
    for (int x = 0; x < w; ++x) {
      const RGBQUAD c = dib.table[*dib.At(x, y)];
      const auto &px = bytes[y * w + x];
      ASSERT_EQ(c.rgbRed, CellCentre(px[0])) << x << "," << y;
      ASSERT_EQ(c.rgbGreen, CellCentre(px[1])) << x << "," << y;
      ASSERT_EQ(c.rgbBlue, CellCentre(px[2])) << x << "," << y;
    }
}

TEST_P(GetDibTest, ManyCellsFillAllSlotsWithDistinctCentresAndPixelsTakeTheNearest) {
  std::mt19937 random(11);
  const int w = 64, h = 48;
  std::vector<float> values(w * h * 3);
  for (auto &v : values) v = ByteValue(static_cast<int>(random() % 256));
  auto image = MakeImage(w, h, 3, [&](int x, int y, int p) { return values[(y * w + x) * 3 + p]; });
  for (int p = 0; p < 3; ++p) image->CImage::SetLevel(p, 0.0, 255.0);
  PackedCopy dib(image->GetDib(8));
  std::set<std::array<int, 3>> distinct;
  for (const RGBQUAD &q : dib.table) {
    EXPECT_EQ(q.rgbRed % 8, 4);
    distinct.insert({q.rgbRed, q.rgbGreen, q.rgbBlue});
  }
  EXPECT_EQ(distinct.size(), 256u);
  auto distance = [](const RGBQUAD &q, int r, int g, int b) {
    return (q.rgbRed - r) * (q.rgbRed - r) + (q.rgbGreen - g) * (q.rgbGreen - g) + (q.rgbBlue - b) * (q.rgbBlue - b);
  };
  for (int y = 0; y < h; ++y)
    for (int x = 0; x < w; ++x) {
      const float *v = &values[(y * w + x) * 3];
      const int r = CellCentre(static_cast<int>(v[0])), g = CellCentre(static_cast<int>(v[1])),
                b = CellCentre(static_cast<int>(v[2]));
      const int mine = distance(dib.table[*dib.At(x, y)], r, g, b);
      for (const RGBQUAD &q : dib.table) ASSERT_LE(mine, distance(q, r, g, b)) << x << "," << y;
    }
}

TEST(UniqueDib, OwnsTheHandleOfGetDibUntilReleased) {
  auto image = MakeSpread(CreateWholePlaneManager(), 5, 3, 1);
  HDIB raw = nullptr;
  {
    UniqueDib dib(image->GetDib(8));
    raw = dib.get();
    ASSERT_NE(raw, nullptr);
    UniqueDib moved = std::move(dib);
    EXPECT_EQ(dib.get(), nullptr);
    EXPECT_EQ(moved.get(), raw);
  }
  EXPECT_EQ(GlobalSize(raw), 0u);  // freed once, by the owner it was moved to

  UniqueDib kept(image->GetDib(8));
  raw = kept.release();
  EXPECT_GT(GlobalSize(raw), sizeof(BITMAPINFOHEADER));  // still live
  EXPECT_EQ(GlobalFree(raw), nullptr);
}

}  // namespace
}  // namespace qorimg::test
