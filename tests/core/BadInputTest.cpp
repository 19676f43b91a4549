// Degenerate images, non-finite samples and a store that cannot allocate: each
// gives a defined result or the store's exception, never a crash.
#include <climits>
#include <cmath>
#include "core/ImgCalculation.h"
#include "display/MemoryDIB.h"
#include "platform/Exceptions.h"
#include "platform/GlobalMemory.h"
#include "support/Fixtures.h"

namespace qorimg::test {
namespace {

class BadInputTest : public RouteTest {};
QORIMG_ALL_ROUTES(BadInputTest);

TEST_P(BadInputTest, OnePixelAndOneLineImagesWorkEverywhere) {
  for (auto [w, h] : {std::pair{1, 1}, {1, 7}, {9, 1}}) {
    auto src = MakeImage(w, h, 3);
    auto target = MakeImage(w, h, 3);
    CImgCalculation::Calculate(*target, 2.0, 2, 0, src.get(), nullptr, 0);
    EXPECT_EQ(target->GetPixelGrayRaw(w - 1, h - 1, 2), Pattern(w - 1, h - 1, 2) * 2.0f);
    target->LiftUp(1);
    target->CutOutOfZeroLevel();
    target->ThresholdLessThan(-1, 0.0f, 0.0f);
    target->CalcMinMax();  // (Width - 1) * (Height - 1) is 0 on the line loop: an infinite or NaN average
    target->CalcMinMax(5);
    std::vector<int> hist(10);
    target->GetHistogram(hist.data(), 10, 0.0, 100.0, -1, 1, 1, 0, nullptr, 0, 0);
    int nx, ny;
    target->GetCentroid(nx, ny, nullptr);
    EXPECT_TRUE(nx >= 0 && nx < w && ny >= 0 && ny < h) << nx << "," << ny;
    EXPECT_TRUE(std::isfinite(target->GetPixelGrayRaw(0.3, 0.7, 0)));
    auto crop = target->Crop(CRect(0, 0, w, h));
    ASSERT_TRUE(crop);
    EXPECT_TRUE(SamePixels(*crop, *target));
  }
}

TEST_P(BadInputTest, NonFiniteSamplesPassThroughArithmetic) {
  auto src = MakeImage(7, 2, 1, [](int x, int, int) { return std::array<float, 7>{NAN, INFINITY, -INFINITY, 0, -0.0f, 1e38f, -1e-45f}[x]; });
  auto target = MakeImage(7, 2, 1);
  CImgCalculation::Calculate(*target, 0.0, 2, 0, src.get(), nullptr, 0);  // times zero
  const auto out = ReadPlane(*target, 0);
  EXPECT_TRUE(std::isnan(out[0]) && std::isnan(out[1]) && std::isnan(out[2]));
  EXPECT_EQ(out[5], 0.0f);
  CImgCalculation::Calculate(*target, 10.0, 2, 0, src.get(), nullptr, 0);
  EXPECT_EQ(ReadPlane(*target, 0)[5], INFINITY);  // overflow to infinity, not undefined
}

// Returns, or throws the library's invalid-argument exception or the store's own.
::testing::AssertionResult Clean(const std::function<void()> &call) {
  try {
    call();
  } catch (CInvalidArgException *) {
  } catch (const lumora::CLumoraImageException &) {
  } catch (...) {
    return ::testing::AssertionFailure() << "another exception";
  }
  return ::testing::AssertionSuccess();
}

// Every member over one image that does not name a pixel: edits, statistics,
// records, display.
std::vector<std::function<void()>> Members(CLmrImage &img, CLmrImage &other) {
  static std::vector<int> hist(16);
  static CRect rect(1, 1, 3, 3);
  static int nx, ny;
  static double fx, fy;
  return {
      [&] { CImgCalculation::Calculate(img, 2.0, 0, 0, &other, nullptr, 0); },
      [&] { img.LiftUp(1); }, [&] { img.CutOutOfLevel(); }, [&] { img.CutOutOfZeroLevel(); },
      [&] { img.ThresholdGreaterThan(-1, 1.0f, 0.0f); }, [&] { img.ThresholdEqual(0, 1.0f, 0.0f); },
      [&] { img.SetLevel(-1, 0.0, 10.0); }, [&] { img.Crop(rect); }, [&] { img.Paste(&other, nullptr); },
      [&] { img.PixelBlt(0, 0, 4, 4, &other, 0, 0, 1); }, [&] { img.MakeDirectImage(); },
      [&] { img.CalcMinMax(); }, [&] { img.CalcMinMax(1); }, [&] { img.GetAvrGrayRaw(0); },
      [&] { img.GetAvrGray(0); }, [&] { img.GetAvrGray256f(0); },
      [&] { img.GetHistogram(hist.data(), 16, 0.0, 100.0, -1, 1, 1, 0, nullptr, 0, 0); },
      [&] { img.GetHistogramRGB(hist.data(), hist.data(), hist.data(), 16, 0, 9, nullptr, nullptr, 0, 1, 0, &rect, 0, 0); },
      [&] { img.GetCentroid(fx, fy, nullptr); }, [&] { img.GetCentroid(nx, ny, &rect); },
      [&] { img.GetCentroidRaw(fx, fy, nullptr); }, [&] { img.Get1stBrighterPixel(0, nullptr, 0.0, nx, ny); },
      [&] { img.GetMaxPixel(0, nullptr, nx, ny); }, [&] { img.GetMinPixel(0); }, [&] { img.GetAvrPixel(0); },
      [&] { img.To256(1.0f, 0); }, [&] { img.ToRaw(1.0, 0); }, [&] { img.GetLevelRange(0); },
      [&] { GlobalFree(img.GetDib(24)); }, [&] { GlobalFree(img.GetDib(8)); },
      [&] {
        CWnd wnd(4, 4, 32);
        CMemoryDIB dib;
        if (dib.Create(&wnd, 4, 4, 0)) img.ToDIB(&dib, nullptr);
      },
  };
}

// Not per route: an image without a store always takes the line loops.
TEST(BadInputEmpty, AnImageWithoutPlanesReturnsOrThrowsCleanly) {
  CLmrImage never;
  auto other = MakeImage(MakeManager(StoreKind::Block), 4, 4, 3);
  auto calls = Members(never, *other);
  calls.insert(calls.end(), {[&] { never.GetPixelGrayRaw(0.5, 0.5, 0); }, [&] { never.GetPixelGray256f(0, 0, 0); },
                             [&] { never.GetPixelBright256f(0, 0); }, [&] { never.GetPixelGrayRawBuf(0.5, 0.5, 0); }});
  for (std::size_t i = 0; i < calls.size(); ++i) EXPECT_TRUE(Clean(calls[i])) << "member " << i;
  auto emptied = MakeImage(MakeManager(StoreKind::WholePlane), 4, 4, 3);
  emptied->Empty();
  const auto again = Members(*emptied, *other);
  for (std::size_t i = 0; i < again.size(); ++i) EXPECT_TRUE(Clean(again[i])) << "member " << i;
  EXPECT_THROW(emptied->GetAvrGrayRaw(1), lumora::CLumoraImageException);  // out of the parallel loop
}

// A width or height of 0 does nothing on every route; nothing throws.
TEST_P(BadInputTest, ZeroSizedImagesDoNothing) {
  for (auto [w, h] : {std::pair{0, 5}, {5, 0}, {0, 0}}) {
    auto img = MakeImage(w, h, 3), other = MakeImage(w, h, 3);
    const auto calls = Members(*img, *other);
    for (std::size_t i = 0; i < calls.size(); ++i) EXPECT_NO_THROW(calls[i]()) << w << "x" << h << " member " << i;
  }
}

// Planes the image does not have, and missing arrays or sources, are refused
// with the invalid-argument exception before anything is written; plane -1 of
// SetLevel moves only the planes that exist.
TEST_P(BadInputTest, BadArgumentsAreRefusedAndSizesAre64Bit) {
  auto ab = MakeImage(6, 4, 2), mono = MakeImage(6, 4, 1);
  ab->CalcMinMax();
  float sample = 1.0f;
  int nx, ny;
  std::vector<int> hist(8);
  const std::vector<std::function<void()>> bad = {
      [&] { ab->GetMinPixel(2); }, [&] { ab->GetMaxPixel(-1); }, [&] { mono->GetAvrPixel(1); },
      [&] { ab->GetLevelMin(2); }, [&] { ab->To256(1.0, 2); }, [&] { mono->ToRaw(1.0f, -1); },
      [&] { ab->GetPixelGray256f(&sample, 2); }, [&] { ab->GetPixelGray256(&sample, 3); },
      [&] { ab->SetPixelGray256f(&sample, 1.0f, 2); }, [&] { mono->GetAvrGray(1); },
      [&] { mono->GetAvrGrayRaw(-1); }, [&] { mono->GetPixelGrayRaw(0, 0, 1); },
      [&] { mono->GetMaxPixel(1, nullptr, nx, ny); }, [&] { mono->ThresholdGreaterThan(2, -1e9f, 0.0f); },
      [&] { mono->GetHistogram(hist.data(), 8, 0.0, 9.0, 1, 0, 0, 0, nullptr, 0, 0); },
      [&] { ab->GetHistogram(hist.data(), 8, 0.0, 9.0, -1, 0, 0, 0, nullptr, 0, 0); },
      [&] { ab->GetHistogramRGB(hist.data(), hist.data(), hist.data(), 8, 0, 9, nullptr, nullptr, 0, 0, 0, nullptr, 0, 0); },
      [&] { mono->GetHistogram(nullptr, 8, 0.0, 9.0, 0, 0, 0, 0, nullptr, 0, 0); },
      [&] { mono->Paste(nullptr, nullptr); }, [&] { mono->PixelBlt(0, 0, 2, 2, nullptr, 0, 0, 0); },
  };
  for (std::size_t i = 0; i < bad.size(); ++i) EXPECT_THROW(bad[i](), CInvalidArgException *) << "call " << i;
  EXPECT_EQ(ReadPlane(*mono, 0), ReadPlane(*MakeImage(6, 4, 1), 0));  // nothing was written

  ab->CImage::SetLevel(1, 10.0, 20.0);
  EXPECT_TRUE(ab->SetLevel(-1, 100.0, 1100.0));  // plane 0 moves by a tenth of its range up
  EXPECT_EQ(ab->GetLevelMin(1), 11.0);
  EXPECT_EQ(ab->GetLevelMax(1), 21.0);
  // No bins: the height is 0 and no bin is read.
  EXPECT_EQ(mono->GetHistogram(nullptr, 0, 0.0, 9.0, 0, 0, 1, 0, nullptr, 0, 0), 0);

  CLmrImage huge;
  huge.SetWidth(100000);
  huge.SetHeight(100000);
  huge.SetPlanes(3);
  EXPECT_EQ(huge.GetPixelCount(), 30000000000LL);
  EXPECT_FALSE(huge.SetLevel(-1, 0.0, 1.0));  // three planes without levels: refused, nothing read
}

TEST(BadInputStore, AStoreThatCannotAllocateThrowsItsExceptionAndLeaksNothing) {
  auto small = CreateWholePlaneManager(60000);  // room for three 64 x 64 planes, not four
  EXPECT_THROW(CLmrImage(small, CImage::Float32, 200, 200, 1, 1.0, 0.0, 1, nullptr), lumora::CVmMemoryAllocationError);
  auto fits = MakeImage(small, 64, 64, 1);  // 16 KiB
  EXPECT_THROW(fits->Crop(CRect(0, 0, 64, 200)), lumora::CVmMemoryAllocationError);
  auto another = MakeImage(small, 64, 64, 1);
  auto third = MakeImage(small, 64, 64, 1);
  EXPECT_THROW(fits->CloneWithoutImage(), lumora::CVmMemoryAllocationError);
  third.reset();  // the freed plane can be had again
  EXPECT_TRUE(fits->CloneWithoutImage());
  CLmrImage copy;
  another.reset();
  EXPECT_EQ(copy.CopyImage(*fits, nullptr, nullptr), 1);
  EXPECT_TRUE(SamePixels(copy, *fits));
}

}  // namespace
}  // namespace qorimg::test
