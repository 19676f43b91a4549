// The store-backed bitmap against the in-memory one: filled by ToDIB and shown
// in bands on a window, it must give the same pixels; copies and the packed form.
#include <climits>
#include <cstring>
#include "display/DisplaySupport.h"
#include "display/MemoryDIB.h"
#include "display/VmDIB.h"
#include "support/Fixtures.h"

namespace qorimg::test {
namespace {

class DibBlitTest : public RouteTest {
protected:
  // A memory and a store bitmap for a screen of `depth`, both filled from `image`.
  void MakePair(CLmrImage &image, int depth, CMemoryDIB &memory, CVmDIB &stored) {
    CWnd screen(image.GetWidth(), image.GetHeight(), depth);
    ASSERT_EQ(memory.Create(&screen, image.GetWidth(), image.GetHeight(), 0), 1);
    ASSERT_EQ(stored.Create(Manager(), &screen, image.GetWidth(), image.GetHeight(), 0), 1);
    std::memset(memory.GetBits(), 0, static_cast<std::size_t>(memory.GetAlign()) * image.GetHeight());
    image.ToDIB(&memory, nullptr);
    image.ToDIB(&stored, nullptr);
  }
};
QORIMG_ALL_ROUTES(DibBlitTest);

// The 2-3-3 palette that 8-bit colour bitmaps are drawn with.
std::vector<PALETTEENTRY> Palette233() {
  std::vector<PALETTEENTRY> entries(256);
  for (int i = 0; i < 256; ++i)
    entries[i] = PALETTEENTRY{static_cast<BYTE>((i & 7) << 5), static_cast<BYTE>((i & 0x38) << 2),
                              static_cast<BYTE>(i & 0xC0), 0};
  return entries;
}

::testing::AssertionResult SameRaster(const CWnd &a, const CWnd &b) {
  for (int y = 0; y < a.GetHeight(); ++y)
    for (int x = 0; x < a.GetWidth(); ++x)
      if (a.GetPixel(x, y) != b.GetPixel(x, y))
        return ::testing::AssertionFailure() << "(" << x << ", " << y << "): " << std::hex << a.GetPixel(x, y)
                                             << " vs " << b.GetPixel(x, y);
  return ::testing::AssertionSuccess();
}

// 120 lines: three bands of up to 50.
constexpr int kW = 37, kH = 120;

TEST_P(DibBlitTest, StoreBitmapShowsTheSamePixelsAsTheMemoryBitmapAtEveryDepth) {
  std::vector<PALETTEENTRY> palette = Palette233();
  CPalette logical;
  logical.CreatePalette(palette.data(), 256);
  for (int planes : {1, 3})
    for (int depth : {8, 16, 24, 32}) {
      SCOPED_TRACE(::testing::Message() << planes << " planes at " << depth << " bits");
      auto image = MakeImage(kW, kH, planes);
      for (int p = 0; p < planes; ++p) image->CImage::SetLevel(p, 0.0, 600.0);
      CWnd screen(kW, kH, depth);
      CMemoryDIB memory;
      CVmDIB stored;
      ASSERT_EQ(memory.Create(&screen, kW, kH, palette.data(), 256), 1);
      // Without entries the stored 8-bit bitmap indexes the palette it is given.
      ASSERT_EQ(stored.Create(Manager(), &screen, kW, kH, 0), 1);
      stored.SetColorPalette(&logical);
      EXPECT_EQ(stored.GetBitCount(), depth);
      EXPECT_EQ(stored.GetSampleBits(), depth == 32 ? 24 : depth);
      image->ToDIB(&memory, nullptr);
      image->ToDIB(&stored, nullptr);

      CWnd viaMemory(kW + 4, kH + 4, depth), viaStore(kW + 4, kH + 4, depth);
      for (CWnd *w : {&viaMemory, &viaStore}) w->Fill(RGB(1, 2, 3));
      CPaintDC dcMemory(&viaMemory), dcStore(&viaStore);
      EXPECT_EQ(memory.BitBlt(&viaMemory, &dcMemory, 2, 1, kW - 5, kH - 3, 3, 2, SRCCOPY), 1);
      EXPECT_EQ(stored.BitBlt(&viaStore, &dcStore, 2, 1, kW - 5, kH - 3, 3, 2, SRCCOPY), 1);
      EXPECT_TRUE(SameRaster(viaMemory, viaStore));
      EXPECT_EQ(viaStore.GetPixel(0, 0), RGB(1, 2, 3));  // outside the copy

      // Enlarged twice and halved: nearest-neighbour bands must meet the same source lines.
      for (auto [w, h] : {std::pair{2 * kW, 2 * kH}, std::pair{kW / 2, kH / 2}}) {
        CWnd a(w, h, depth), b(w, h, depth);
        CPaintDC da(&a), db(&b);
        EXPECT_EQ(memory.StretchBlt(&a, &da, 0, 0, w, h, 0, 0, kW, kH, SRCCOPY), 1);
        EXPECT_EQ(stored.StretchBlt(&b, &db, 0, 0, w, h, 0, 0, kW, kH, SRCCOPY), 1);
        EXPECT_TRUE(SameRaster(a, b)) << w << " x " << h;
      }
    }
}

TEST_P(DibBlitTest, CopiesTakeTheRectangleFromEitherKindAndThePackedFormHoldsTheBits) {
  auto image = MakeImage(kW, kH, 3);
  CMemoryDIB memory;
  CVmDIB stored;
  MakePair(*image, 32, memory, stored);

  const CRect rect(5, 60, 30, 200);  // clipped to the bitmap's 120 lines
  CMemoryDIB fromMemory, fromStore;
  fromMemory.CopyImage(&memory, &rect);
  fromStore.CopyImage(&stored, &rect);
  ASSERT_EQ(fromMemory.GetWidth(), 25);
  ASSERT_EQ(fromMemory.GetHeight(), 60);
  ASSERT_EQ(fromStore.GetBitCount(), 32);
  for (int y = 0; y < 60; ++y)
    for (int x = 0; x < 25; ++x) {
      ASSERT_EQ(std::memcmp(fromMemory.GetImageAdr32(x, y), memory.GetImageAdr32(x + 5, y + 60), 4), 0);
      ASSERT_EQ(std::memcmp(fromStore.GetImageAdr32(x, y), memory.GetImageAdr32(x + 5, y + 60), 4), 0);
    }

  CMemoryDIB assigned;
  assigned = memory;
  HDIB packed = assigned.CreateHDIB();
  ASSERT_NE(packed, nullptr);
  PackedCopy copy(packed);
  EXPECT_EQ(copy.header.biBitCount, 32);
  ASSERT_EQ(copy.bits.size(), static_cast<std::size_t>(memory.GetAlign()) * kH);
  EXPECT_EQ(std::memcmp(copy.bits.data(), memory.GetBits(), copy.bits.size()), 0);

  CMemoryDIB empty;
  fromMemory.CopyImage(&empty, nullptr);  // an empty source is ignored
  EXPECT_EQ(fromMemory.GetWidth(), 25);
}

// A block store in plain memory that can be told to fail when a block is asked for.
class FailingStore : public CVmManager {
public:
  bool failing = false;
  std::size_t GetResidentBudget() const override { return SIZE_MAX; }
  std::size_t GetResidentBytes() const override { return 0; }
  AllocationPolicy GetAllocationPolicy() const override { return BlockStored; }
  long long GetLinesPerBlock(long long) const override { return 7; }
  std::size_t GetPeakResidentBytes() const override { return 0; }
  std::shared_ptr<CVmHandle> Allocate(long long blockSize, long long blockCount) override {
    auto handle = std::make_shared<CVmHandle>(blockSize, blockCount, shared_from_this());
    for (long long b = 0; b < blockCount; ++b) blocks.emplace_back(static_cast<std::size_t>(blockSize));
    return handle;
  }
  void Release(CVmHandle &) override {}
  unsigned char *LockBlock(const std::shared_ptr<CVmHandle> &h, long long block, bool readOnly) override {
    return GetBlockOnMemory(h, block, readOnly);
  }
  void UnlockBlock(const CVmHandle &, long long) override {}
  bool IsOnMemory(const CVmHandle &) const override { return true; }
  unsigned char *GetBlockOnMemory(const std::shared_ptr<CVmHandle> &, long long block, bool) override {
    if (failing) throw lumora::CVmMemoryAllocationError("block cannot be brought in");
    return blocks.at(static_cast<std::size_t>(block)).data();
  }

private:
  std::vector<std::vector<unsigned char>> blocks;  // one store only
};

// The source rectangle is intersected with the bitmap first: parts outside it
// leave the window as it was, as with a memory bitmap, and the band is only as
// wide as the bitmap whatever the source width.
TEST_P(DibBlitTest, StretchBltTakesOnlyTheSourceInsideTheBitmap) {
  auto image = MakeImage(20, 20, 3);
  CMemoryDIB memory;
  CVmDIB stored;
  MakePair(*image, 24, memory, stored);
  CWnd a(40, 30, 24), b(40, 30, 24);
  for (CWnd *w : {&a, &b}) w->Fill(RGB(1, 2, 3));
  CPaintDC da(&a), db(&b);
  EXPECT_EQ(memory.StretchBlt(&a, &da, 0, 0, 40, 30, -10, -5, 40, 30, SRCCOPY), 1);
  EXPECT_EQ(stored.StretchBlt(&b, &db, 0, 0, 40, 30, -10, -5, 40, 30, SRCCOPY), 1);
  EXPECT_TRUE(SameRaster(a, b));
  EXPECT_EQ(b.GetPixel(5, 5), RGB(1, 2, 3));
  EXPECT_EQ(stored.StretchBlt(&b, &db, 0, 0, 40, 30, 0, 0, 1 << 30, 1 << 30, SRCCOPY), 1);
  EXPECT_EQ(stored.StretchBlt(&b, &db, 0, 0, 40, 30, INT_MIN, INT_MIN, INT_MAX, INT_MAX, SRCCOPY), 1);
  EXPECT_TRUE(SameRaster(a, b));  // nothing of the bitmap reaches a destination pixel
}

TEST(DibBlitFailureTest, StretchBltReportsAStoreFailureAsZeroAndBitBltPassesItOn) {
  auto store = std::make_shared<FailingStore>();
  CWnd screen(20, 20, 24);
  CPaintDC dc(&screen);
  CVmDIB dib;
  ASSERT_EQ(dib.Create(store, &screen, 20, 20, 0), 1);
  EXPECT_EQ(dib.StretchBlt(&screen, &dc, 0, 0, 20, 20, 0, 0, 20, 20, SRCCOPY), 1);
  store->failing = true;
  EXPECT_EQ(dib.StretchBlt(&screen, &dc, 0, 0, 20, 20, 0, 0, 20, 20, SRCCOPY), 0);
  EXPECT_THROW(dib.BitBlt(&screen, &dc, 0, 0, 20, 20, 0, 0, SRCCOPY), lumora::CVmMemoryAllocationError);
}

TEST_P(DibBlitTest, StoreBitmapCreationFailures) {
  CWnd screen(8, 8, 24);
  CVmDIB dib;
  EXPECT_EQ(dib.Create(Manager(), &screen, 0, 8, 0), 0);
  EXPECT_TRUE(dib.IsEmpty());
  EXPECT_EQ(dib.GetPlanes(), -1);
  // A store that cannot allocate raises its error, and no half-made bitmap stays.
  auto tiny = CreateWholePlaneManager(64);
  EXPECT_THROW(dib.Create(tiny, &screen, 100, 100, 0), lumora::CVmMemoryAllocationError);
  EXPECT_TRUE(dib.IsEmpty());
  EXPECT_EQ(dib.GetBIMPtr(), nullptr);
}

}  // namespace
}  // namespace qorimg::test
