// ToDIB into in-memory bitmaps at every screen depth: the single-precision
// mapping, the formats, the dither and the rectangle rules.
#include <array>
#include <climits>
#include <cstring>
#include "display/DisplaySupport.h"
#include "display/MemoryDIB.h"
#include "display/VmDIB.h"
#include "support/Fixtures.h"

namespace qorimg::test {
namespace {

class ToDibTest : public RouteTest {
protected:
  std::unique_ptr<CLmrImage> MakeSpread(int w, int h, int planes) const {
    return test::MakeSpread(Manager(), w, h, planes);
  }
  // A bitmap of the window's depth with every byte set to `fill`.
  static void MakeDib(CMemoryDIB &dib, int depth, int w, int h, unsigned char fill = 0x5A) {
    CWnd wnd(w, h, depth);
    ASSERT_EQ(dib.Create(&wnd, w, h, 0), 1);
    ASSERT_EQ(dib.GetBitCount(), depth);
    std::memset(dib.GetBits(), fill, static_cast<std::size_t>(dib.GetAlign()) * h);
  }
};
QORIMG_ALL_ROUTES(ToDibTest);

// The float mapping truncates (v - lo) * (float)(255 / range); next to an integer
// it may land one below the double reference, never further.
constexpr int kFloatTolerance = 1;

TEST_P(ToDibTest, EveryDepthWritesTheMappedSamplesInItsFormat) {
  const bool onPipeline = Case().Expected(false) == Route::Plane;
  for (int planes : {1, 3}) {
    auto image = MakeSpread(13, 7, planes);
    CMemoryDIB d8, d16, d24, d32;
    for (auto [dib, depth] : {std::pair{&d8, 8}, {&d16, 16}, {&d24, 24}, {&d32, 32}}) {
      MakeDib(*dib, depth, 13, 7);
      image->ToDIB(dib, nullptr);
    }
    for (int y = 0; y < 7; ++y)
      for (int x = 0; x < 13; ++x) {
        const unsigned char *bgr = d24.GetImageAdr24(x, y);
        for (int c = 0; c < 3; ++c)
          ASSERT_NEAR(bgr[c], ReferenceByte(*image, x, y, planes == 1 ? 0 : 2 - c), kFloatTolerance) << x << "," << y;
        const unsigned char *bgrx = d32.GetImageAdr32(x, y);
        ASSERT_EQ(std::memcmp(bgrx, bgr, 3), 0);
        // The colour pipeline writes whole pixels with the fourth byte 0; the loops leave it.
        ASSERT_EQ(bgrx[3], planes == 3 && onPipeline ? 0 : 0x5A);
        const int b = bgr[0], g = bgr[1], r = bgr[2];
        const unsigned char index = *d8.GetImageAdr8(x, y);
        if (planes == 1)
          ASSERT_EQ(index, b);
        else
          ASSERT_EQ(index, (b & 0xC0) | ((g >> 2) & 0x38) | (r >> 5));  // 2-3-3
        // 5-5-5 with the dither: each channel is the byte, or the byte + 4 (at most 255), over 8,
        // so equal neighbours differ by at most one step.
        const unsigned short v = *d16.GetImageAdr16(x, y);
        const int channels[3] = {(v >> 10) & 31, (v >> 5) & 31, v & 31};
        const int bytes[3] = {r, g, b};
        const bool even = (x + y) % 2 == 0;
        for (int c = 0; c < 3; ++c) ASSERT_EQ(channels[c], std::min(bytes[c] + (even ? 4 : 0), 255) >> 3);
      }
    for (int c = 0; c < 3; ++c) {
      EXPECT_EQ(d24.GetImageAdr24(0, 0)[c], 0);  // at LevelMin
      EXPECT_EQ(d24.GetImageAdr24(1, 0)[c], 255);  // at LevelMax
      EXPECT_EQ(d24.GetImageAdr24(3, 1)[c], 0);  // NaN
    }
  }
}

TEST_P(ToDibTest, RectangleIsClippedToTheBitmapAndOutsidePixelsStay) {
  auto image = MakeSpread(10, 6, 3);
  CMemoryDIB full, dib;
  MakeDib(full, 24, 10, 6);
  image->ToDIB(&full, nullptr);
  auto changed = [&](int x, int y) { return dib.GetImageAdr24(x, y)[0] != 0x77 || dib.GetImageAdr24(x, y)[1] != 0x77; };
  auto check = [&](const CRect &rect, const CRect &expectedArea) {
    MakeDib(dib, 24, 10, 6, 0x77);
    image->ToDIB(&dib, &rect);
    for (int y = 0; y < 6; ++y)
      for (int x = 0; x < 10; ++x) {
        const bool inside = expectedArea.PtInRect(CPoint(x, y));
        if (inside)
          ASSERT_EQ(std::memcmp(dib.GetImageAdr24(x, y), full.GetImageAdr24(x, y), 3), 0) << x << "," << y;
        else
          ASSERT_FALSE(changed(x, y)) << x << "," << y;
      }
  };
  check(CRect(-20, -20, -5, -5), CRect());          // above and left: nothing
  check(CRect(3, 3, 3, 5), CRect());                // empty: nothing
  check(CRect(-5, 2, 3, 4), CRect(0, 2, 3, 4));
  check(CRect(8, 1, 30, 3), CRect(8, 1, 10, 3));
  // Wholly right of or below the bitmap: nothing, not the last column or line.
  check(CRect(15, 1, 30, 3), CRect());
  check(CRect(2, 9, 4, 12), CRect());
  check(CRect(INT_MAX, INT_MIN, INT_MIN, INT_MAX), CRect());
}

TEST_P(ToDibTest, BitmapOfAnotherSizeGetsOnlyWhatTheImageCovers) {
  auto image = MakeSpread(5, 3, 1);
  CMemoryDIB large, small;
  MakeDib(large, 8, 8, 6, 0x77);
  MakeDib(small, 8, 3, 2, 0x77);
  image->ToDIB(&large, nullptr);
  image->ToDIB(&small, nullptr);
  for (int y = 0; y < 6; ++y)
    for (int x = 0; x < 8; ++x) {
      const int v = *large.GetImageAdr8(x, y);
      if (x < 5 && y < 3)
        EXPECT_NEAR(v, ReferenceByte(*image, x, y, 0), kFloatTolerance);
      else
        EXPECT_EQ(v, 0x77);
    }
  for (int y = 0; y < 2; ++y)
    for (int x = 0; x < 3; ++x) EXPECT_EQ(*small.GetImageAdr8(x, y), *large.GetImageAdr8(x, y));
}

// 32-bit colour over a rectangle. Into a memory bitmap every route maps in
// single precision and writes the same colour bytes; the pipeline also zeroes
// the fourth byte of the pixels it writes. Into a store bitmap, a
// whole-plane image on a whole-plane store maps in double: on levels 0..237 the
// sample 79 is exactly 85 in double and 84.99999 in float, so that route shows
// 85 where the line loops show 84.
TEST_P(ToDibTest, ThirtyTwoBitColourRoutesOverARectangle) {
  constexpr int kW = 41, kH = 9;
  auto fill = [](int x, int y, int p) { return x == 5 && y == 4 ? 79.0f : Pattern(x, y, p) * 0.25f; };
  auto image = MakeImage(kW, kH, 3, fill);
  auto reference = test::MakeImage(MakeManager(StoreKind::Block), kW, kH, 3, fill);
  for (CLmrImage *i : {image.get(), reference.get()})
    for (int p = 0; p < 3; ++p) i->CImage::SetLevel(p, 0.0, 237.0);
  const CRect rect(3, 2, 38, 8);

  CMemoryDIB onRoute, byLoops;
  for (CMemoryDIB *dib : {&onRoute, &byLoops}) MakeDib(*dib, 32, kW, kH);
  reference->ToDIB(&byLoops, &rect);
  TakeRuns();  // the reference is on the block store whatever the case
  image->ToDIB(&onRoute, &rect);
  const bool onPipeline = Case().Expected(false) == Route::Plane;
  for (int y = 0; y < kH; ++y)
    for (int x = 0; x < kW; ++x) {
      const unsigned char *got = onRoute.GetImageAdr32(x, y), *want = byLoops.GetImageAdr32(x, y);
      ASSERT_EQ(std::memcmp(got, want, 3), 0) << x << "," << y;
      ASSERT_EQ(got[3], onPipeline && rect.PtInRect(CPoint(x, y)) ? 0 : want[3]) << x << "," << y;
    }
  EXPECT_EQ(byLoops.GetImageAdr32(5, 4)[0], 84);

  CWnd screen(kW, kH, 32);
  CVmDIB stored;
  ASSERT_EQ(stored.Create(Manager(), &screen, kW, kH, 0), 1);
  image->ToDIB(&stored, &rect);
  for (int y = 0; y < kH; ++y)
    for (int x = 0; x < kW; ++x) {
      const unsigned char *got = stored.GetImageAdr24(x, y);
      for (int c = 0; c < 3; ++c) {
        if (!rect.PtInRect(CPoint(x, y)))
          ASSERT_EQ(got[c], 0) << x << "," << y;  // a new store bitmap is zero
        else if (onPipeline)  // maps in double
          ASSERT_EQ(got[c], ReferenceByte(*image, x, y, 2 - c)) << x << "," << y;
        else
          ASSERT_EQ(got[c], byLoops.GetImageAdr32(x, y)[c]) << x << "," << y;
      }
    }
  EXPECT_EQ(stored.GetImageAdr24(5, 4)[0], onPipeline ? 85 : 84);
}

// The pipeline is given the loops' float levels: k = (float)(255.0 / range)
// rather than k from the range rounded to float (on levels 0..70000.3 a step
// apart at 31294.25 and 62588.5, which planes 0 and 1 run through), and the
// maximum rounded to float rather than min + range (on 100.1..70000.3 one float
// step above it, so that a sample at the maximum, in plane 2, gave 254).
TEST_P(ToDibTest, ThirtyTwoBitColourPipelineUsesTheLoopsLevels) {
  auto fill = [](int x, int y, int p) {
    const float i = x + 64.0f * y - 512.0f;
    if (p == 2) return x == 3 && y == 2 ? static_cast<float>(70000.3) : (i + 512.0f) * 68.5f;
    return p == 0 ? 31294.25f + i * 0.25f : 62588.5f + i * 0.25f;
  };
  auto image = MakeImage(64, 16, 3, fill);
  auto reference = test::MakeImage(MakeManager(StoreKind::Block), 64, 16, 3, fill);
  for (CLmrImage *i : {image.get(), reference.get()})
    for (int p = 0; p < 3; ++p) i->CImage::SetLevel(p, p == 2 ? 100.1 : 0.0, 70000.3);
  CMemoryDIB onRoute, byLoops;
  for (CMemoryDIB *dib : {&onRoute, &byLoops}) MakeDib(*dib, 32, 64, 16);
  reference->ToDIB(&byLoops, nullptr);
  TakeRuns();  // the reference is on the block store whatever the case
  image->ToDIB(&onRoute, nullptr);
  for (int y = 0; y < 16; ++y)
    for (int x = 0; x < 64; ++x) ASSERT_EQ(std::memcmp(onRoute.GetImageAdr32(x, y), byLoops.GetImageAdr32(x, y), 3), 0) << x << "," << y;
  EXPECT_EQ(onRoute.GetImageAdr32(3, 2)[0], 255);
}

TEST_P(ToDibTest, ZeroLevelRangeSplitsAtTheLevel) {
  auto image = MakeImage(4, 1, 1, [](int x, int, int) { return std::array<float, 4>{299.0f, 300.0f, 300.5f, NAN}[x]; });
  image->CImage::SetLevel(0, 300.0, 300.0);
  CMemoryDIB dib;
  MakeDib(dib, 8, 4, 1);
  image->ToDIB(&dib, nullptr);
  for (int x = 0; x < 4; ++x) EXPECT_EQ(*dib.GetImageAdr8(x, 0), x == 2 ? 255 : 0) << x;
}

}  // namespace
}  // namespace qorimg::test
