// CImage on every store kind: construction, conversions, copies, statistics.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <random>
#include <vector>

#include "sibling/Image.h"
#include "sibling/StoreKinds.h"

namespace {

const double kNaN = std::numeric_limits<double>::quiet_NaN();

template <typename Sample>
void Put(const CImage &image, int x, int y, int plane, Sample value) {
  std::memcpy(image.GetImageAdr(x, y, plane, false, false, nullptr), &value, sizeof value);
}

class ImageTest : public testing::TestWithParam<StoreKind> {
protected:
  std::shared_ptr<CVmManager> Manager = MakeManager(GetParam());

  CImage MakeFloat(int width, int height, int planes) {
    return CImage(Manager, CImage::Float32, width, height, planes, 1.0, 0.0, true, nullptr);
  }
};

TEST_P(ImageTest, ConstructionSizesLevelsAndReportsTheStore) {
  CImage image(Manager, CImage::Int16, 20, 10, 3, 1.0, 0.0, true, nullptr);
  EXPECT_EQ(image.GetDimension(), 3);
  EXPECT_EQ(image.GetPixelCount(), 600);
  EXPECT_EQ(image.GetImageSize(), 1200);
  EXPECT_EQ(image.GetLevelMax(), std::vector<double>(3, 65535.0));
  EXPECT_EQ(image.GetLevelRange(2), 65535.0);
  EXPECT_EQ(image.GetAllocationPolicy(), Manager->GetAllocationPolicy());
  EXPECT_EQ(image.VmManager(), Manager);
  EXPECT_EQ(image.GetPixel(19, 9, 2), 0.0);
  EXPECT_THROW(image.GetPixel(20, 9, 2), lumora::CLumoraImageException);
  EXPECT_EQ(MakeFloat(4, 4, 1).GetLevelMax(0), 1.0);

  CImage empty;
  EXPECT_TRUE(empty.IsEmpty());
  EXPECT_TRUE(empty.IsOnMemory());
  EXPECT_EQ(empty.GetAllocationPolicy(), 0);
  EXPECT_EQ(empty.GetBlockShape(), std::make_tuple(0LL, 0LL));
  EXPECT_THROW(empty.GetImageAdr(0, 0, 0, true, false, nullptr), lumora::CLumoraImageException);

  // AllocImage takes the geometry written into the fields; no plane count means one.
  empty.SetDataType(CImage::UInt8);
  empty.SetWidth(7);
  empty.SetHeight(5);
  ASSERT_TRUE(empty.AllocImage(Manager, nullptr));
  EXPECT_EQ(empty.GetPlanes(), 1);
  EXPECT_EQ(empty.GetLevelMax(0), 255.0);
}

TEST_P(ImageTest, GetPixelReadsEveryTypeWithScaleAndOffset) {
  auto pixel = [&](CImage::DataType type, bool isSigned, auto sample) {
    CImage image(Manager, type, 3, 2, 1, 2.0, 10.0, isSigned, nullptr);
    Put(image, 2, 1, 0, sample);
    return image.GetPixel(2, 1, 0);
  };
  EXPECT_EQ(pixel(CImage::UInt8, true, std::uint8_t{200}), 410.0);
  EXPECT_EQ(pixel(CImage::Int16, false, std::int16_t{-1234}), -2458.0);  // 16-bit is always signed
  EXPECT_EQ(pixel(CImage::Int32, true, std::int32_t{-5}), 0.0);
  EXPECT_EQ(pixel(CImage::Int32, false, std::int32_t{-5}), 4294967291.0 * 2 + 10);
  EXPECT_EQ(pixel(CImage::Float32, true, 1.25f), 12.5);
  EXPECT_EQ(pixel(CImage::Float64, true, -0.125), 9.75);

  CImage unknown(Manager, CImage::Float32, 2, 2, 1, 2.0, 10.0, true, nullptr);
  Put(unknown, 0, 0, 0, 5.0f);
  unknown.SetDataType(static_cast<CImage::DataType>(12));
  EXPECT_EQ(unknown.GetBytesPixel(), 0);
  EXPECT_EQ(unknown.GetPixel(0, 0, 0), 10.0);
}

TEST_P(ImageTest, ChangePlanesKeepsPlanesAndCopiesPlaneZero) {
  CImage image = MakeFloat(9, 7, 1);
  for (int y = 0; y < 7; ++y) Put(image, 3, y, 0, 1.0f + y);
  image.SetLevel(0, -2.0, 6.0);
  ASSERT_TRUE(image.ChangePlanes(3, nullptr));
  EXPECT_EQ(image.GetDimension(), 3);
  for (int p = 1; p < 3; ++p) {
    EXPECT_EQ(image.GetPixel(3, 6, p), 7.0);
    EXPECT_EQ(image.GetLevelMin(p), -2.0);
    EXPECT_EQ(image.GetLevelRange(p), 8.0);
  }
  Put(image, 0, 0, 1, 42.0f);
  ASSERT_TRUE(image.ChangePlanes(2, nullptr));
  EXPECT_EQ(image.GetPixel(0, 0, 1), 42.0);
  EXPECT_EQ(image.GetLevelMax().size(), 2u);
  ASSERT_TRUE(image.ChangePlanes(1, nullptr));
  EXPECT_EQ(image.GetDimension(), 2);
  EXPECT_FALSE(image.ChangePlanes(0, nullptr));
  EXPECT_FALSE(CImage().ChangePlanes(2, nullptr));
}

TEST_P(ImageTest, ChangeBitsScaleLevelMakesPhysicalFloatsAndKeepsTheDisplay) {
  CImage image(Manager, CImage::Int16, 5, 1, 1, 2.0, 32768.0, true, nullptr);
  const std::int16_t raw[5] = {-32768, -1, 0, 100, 32767};
  for (int x = 0; x < 5; ++x) Put(image, x, 0, 0, raw[x]);
  image.SetLevel(0, -1000.0, 1000.0);
  std::vector<double> displayBefore;
  for (int x = 0; x < 5; ++x)
    displayBefore.push_back((raw[x] - image.GetLevelMin(0)) / image.GetLevelRange(0));

  ASSERT_TRUE(image.ChangeBits(CImage::Float32, true, CImage::ScaleLevel, nullptr));
  EXPECT_EQ(image.GetDataType(), CImage::Float32);
  EXPECT_EQ(image.GetBscale(), 1.0);
  EXPECT_EQ(image.GetBzero(), 0.0);
  EXPECT_EQ(image.GetLevelMin(0), 30768.0);
  EXPECT_EQ(image.GetLevelRange(0), 4000.0);
  for (int x = 0; x < 5; ++x) {
    float stored;
    std::memcpy(&stored, image.GetImageAdr(x, 0, 0, true, false, nullptr), 4);
    EXPECT_EQ(stored, raw[x] * 2.0 + 32768.0);
    EXPECT_DOUBLE_EQ((stored - image.GetLevelMin(0)) / image.GetLevelRange(0), displayBefore[x]);
  }
}

TEST_P(ImageTest, ChangeBitsKeepLevelRoundsAndClampsIntoIntegers) {
  CImage image(Manager, CImage::Float32, 6, 1, 1, 3.0, 1.0, true, nullptr);
  const float values[6] = {-3.6f, 2.5f, -2.5f, 300.2f, static_cast<float>(kNaN), 1e10f};
  for (int x = 0; x < 6; ++x) Put(image, x, 0, 0, values[x]);
  image.SetLevel(0, 0.25, 0.75);
  ASSERT_TRUE(image.ChangeBits(CImage::Int16, true, CImage::KeepLevel, nullptr));
  const double expected[6] = {-4, 3, -3, 300, 0, 32767};  // halves away from zero, NaN to 0
  for (int x = 0; x < 6; ++x) EXPECT_EQ(image.GetPixel(x, 0, 0), expected[x] * 3.0 + 1.0) << x;
  EXPECT_EQ(image.GetLevelMin(0), 0.25);
  EXPECT_EQ(image.GetBscale(), 3.0);
  ASSERT_TRUE(image.ChangeBits(CImage::UInt8, true, CImage::KeepLevel, nullptr));
  EXPECT_EQ(image.GetPixel(0, 0, 0), 0.0 * 3.0 + 1.0);
  EXPECT_EQ(image.GetPixel(3, 0, 0), 255.0 * 3.0 + 1.0);
  EXPECT_FALSE(image.ChangeBits(static_cast<CImage::DataType>(12), true, CImage::KeepLevel, nullptr));
}

TEST_P(ImageTest, CreateCopyCloneAndSwapCarryTheRightParts) {
  CImage source(Manager, CImage::Int32, 11, 6, 2, 0.5, 7.0, false, nullptr);
  source.SetLevel(1, 3.0, 9.0);
  source.SetOrgFileName(L"m42.fits");
  source.SetOrgBitsPixel(CImage::Source14);
  source.SetBayerImage(true);
  source.SetHistogramCull(4, 2);
  Put(source, 10, 5, 1, std::uint32_t{123456});

  CImage created;
  ASSERT_TRUE(created.Create(source, nullptr));
  EXPECT_EQ(created.VmManager(), Manager);
  EXPECT_EQ(created.GetDataType(), CImage::Int32);
  EXPECT_FALSE(created.IsSigned());
  EXPECT_EQ(created.GetLevelMax(1), 9.0);
  EXPECT_EQ(created.GetOrgFileName(), L"m42.fits");
  EXPECT_EQ(created.GetOrgBitsPixel(), CImage::Source14);
  EXPECT_TRUE(created.IsBayerImage());
  EXPECT_EQ(created.GetHistogramCull(), std::make_tuple(4, 2));
  EXPECT_EQ(created.GetPixel(10, 5, 1), 7.0) << "pixels are not copied";
  EXPECT_FALSE(created.Create(CImage(), nullptr));
  EXPECT_FALSE(created.IsEmpty());

  CImage copy;
  ASSERT_TRUE(copy.CopyImage(source, nullptr));
  EXPECT_EQ(copy.GetPixel(10, 5, 1), 123456 * 0.5 + 7.0);
  Put(copy, 10, 5, 1, std::uint32_t{1});
  EXPECT_EQ(source.GetPixel(10, 5, 1), 123456 * 0.5 + 7.0);
  EXPECT_EQ(source.Clone(nullptr)->GetPixel(10, 5, 1), 123456 * 0.5 + 7.0);
  EXPECT_EQ(source.CloneWithoutImage(nullptr)->GetPixel(10, 5, 1), 7.0);

  CImage other = MakeFloat(3, 3, 1);
  other.Swap(source);
  EXPECT_EQ(other.GetWidth(), 11);
  EXPECT_EQ(other.GetPixel(10, 5, 1), 123456 * 0.5 + 7.0);
  EXPECT_EQ(other.GetOrgFileName(), L"m42.fits");
  EXPECT_EQ(source.GetDataType(), CImage::Float32);
  EXPECT_EQ(source.GetLevelMax().size(), 1u);
  EXPECT_FALSE(source.GetHistogramCull().has_value());
}

TEST_P(ImageTest, FillSetLevelAndChangeSize) {
  CImage image(Manager, CImage::Int16, 8, 4, 2, 1.0, 0.0, true, nullptr);
  ASSERT_TRUE(image.Fill(1, 7.6));
  EXPECT_EQ(image.GetPixel(7, 3, 1), 8.0);
  EXPECT_EQ(image.GetPixel(7, 3, 0), 0.0);
  EXPECT_FALSE(image.Fill(2, 1.0));
  ASSERT_TRUE(image.SetLevelMin(1, 100.0));
  ASSERT_TRUE(image.SetLevelMax(1, 400.0));
  EXPECT_EQ(image.GetLevelRange(1), 300.0);
  EXPECT_FALSE(image.SetLevel(2, 0.0, 1.0));
  EXPECT_FALSE(image.SetLevelMin(-1, 0.0));

  ASSERT_TRUE(image.ChangeSize(30, 2, nullptr));
  EXPECT_EQ(image.GetWidth(), 30);
  EXPECT_EQ(image.GetPixel(29, 1, 1), 0.0);
  EXPECT_EQ(image.GetLevelMin(1), 100.0);
  EXPECT_FALSE(image.ChangeSize(-1, 2, nullptr));
}

// Against a plain double-precision pass over the same samples.
TEST_P(ImageTest, StatisticsMatchADoubleReference) {
  CImage image(Manager, CImage::Float32, 157, 61, 3, -0.5, 3.0, true, nullptr);
  std::mt19937 random(7);
  std::normal_distribution<float> sky(1000.0f, 40.0f);
  double min = INFINITY, max = -INFINITY, sum = 0;
  long long count = 0;
  for (int y = 0; y < 61; ++y)
    for (int x = 0; x < 157; ++x) {
      const float v = (x * y) % 97 == 5 ? static_cast<float>(kNaN) : sky(random);
      Put(image, x, y, 1, v);
      Put(image, x, y, 2, static_cast<float>(kNaN));
      if (std::isnan(v)) continue;
      const double physical = v * -0.5 + 3.0;
      min = std::min(min, physical);
      max = std::max(max, physical);
      sum += physical;
      ++count;
    }
  const auto [gotMin, gotMax, gotAverage] = image.GetMinMaxAvr(1);
  EXPECT_EQ(gotMin, min);
  EXPECT_EQ(gotMax, max);
  // Summation orders differ: allow a few ulp of the sum.
  EXPECT_NEAR(gotAverage, sum / count, 1e-12 * std::abs(sum / count));
  EXPECT_EQ(image.GetMinMax(1), std::make_tuple(min, max));

  const auto [nanMin, nanMax, nanAverage] = image.GetMinMaxAvr(2);
  EXPECT_TRUE(std::isnan(nanMin) && std::isnan(nanMax) && std::isnan(nanAverage));
  EXPECT_THROW(image.GetMinMax(3), lumora::CLumoraImageException);

  // Mode: plane 0 is mostly zero with a heap of 5s; with zeros left out the 5s win.
  for (int x = 0; x < 40; ++x) Put(image, x, 0, 0, 5.0f);
  Put(image, 0, 1, 0, 9.0f);
  const auto [modeMin, modeMax, mode] = image.GetMinMaxMode(0, 4, 1);
  EXPECT_EQ(modeMin, 9.0 * -0.5 + 3.0);
  EXPECT_EQ(modeMax, 5.0 * -0.5 + 3.0);
  EXPECT_EQ(mode, (5.0 + 0.5 * (9.0 - 5.0) / 4) * -0.5 + 3.0);  // centre of the first of 4 bins
  EXPECT_EQ(std::get<2>(image.GetMinMaxMode(0, 4, 0)), (0.0 + 0.5 * 9.0 / 4) * -0.5 + 3.0);
}

INSTANTIATE_FOR_ALL_STORES(ImageTest);

}  // namespace
