// Bitmaps out as .bmp files, read back by OpenCV's decoder, and bitmaps in
// through AttachDIB.
#include <string>
#include <unistd.h>
#include <cstdio>
#include <opencv2/imgcodecs.hpp>
#include "display/BmpFile.h"
#include "display/DisplaySupport.h"
#include "display/MemoryDIB.h"
#include "support/Fixtures.h"

namespace qorimg::test {
namespace {

class BmpFileTest : public RouteTest {
protected:
  std::string TempFile(const char *name) const {
    return ::testing::TempDir() + "qorimg_" + std::to_string(getpid()) + "_" + Case().name + "_" + name + ".bmp";
  }
  std::unique_ptr<CLmrImage> MakeLevelled(int w, int h, int planes) const {
    auto image = MakeImage(w, h, planes);
    for (int p = 0; p < planes; ++p) image->CImage::SetLevel(p, 50.0 * p, 500.0 + 40.0 * p);
    return image;
  }
};
QORIMG_ALL_ROUTES(BmpFileTest);

TEST_P(BmpFileTest, DecodedFileEqualsTheImageThroughItsLevels) {
  // Odd width: the 24-bit lines carry padding that the decoder must skip.
  auto colour = MakeLevelled(31, 17, 3);
  auto mono = MakeLevelled(31, 17, 1);
  const std::string colourPath = TempFile("colour"), monoPath = TempFile("mono");
  HDIB colourDib = colour->GetDib(24), monoDib = mono->GetDib(8);
  ASSERT_TRUE(WriteBmp(colourPath, colourDib));
  ASSERT_TRUE(WriteBmp(monoPath, monoDib));
  GlobalFree(colourDib);
  GlobalFree(monoDib);

  const cv::Mat bgr = cv::imread(colourPath, cv::IMREAD_COLOR);
  const cv::Mat grey = cv::imread(monoPath, cv::IMREAD_GRAYSCALE);
  ASSERT_EQ(bgr.cols, 31);
  ASSERT_EQ(bgr.rows, 17);
  ASSERT_EQ(grey.type(), CV_8UC1);
  for (int y = 0; y < 17; ++y)
    for (int x = 0; x < 31; ++x) {
      const cv::Vec3b px = bgr.at<cv::Vec3b>(y, x);
      for (int p = 0; p < 3; ++p) ASSERT_EQ(px[2 - p], ReferenceByte(*colour, x, y, p)) << x << "," << y;
      ASSERT_EQ(grey.at<unsigned char>(y, x), ReferenceByte(*mono, x, y, 0)) << x << "," << y;
    }
  std::remove(colourPath.c_str());
  std::remove(monoPath.c_str());
}

TEST_P(BmpFileTest, MemoryBitmapWritesAsItIsShown) {
  auto image = MakeLevelled(23, 11, 3);
  CWnd screen(23, 11, 32);
  CMemoryDIB dib;
  ASSERT_EQ(dib.Create(&screen, 23, 11, 0), 1);
  image->ToDIB(&dib, nullptr);
  const std::string path = TempFile("memory");
  ASSERT_TRUE(WriteBmp(path, dib));
  const cv::Mat bgr = cv::imread(path, cv::IMREAD_COLOR);
  ASSERT_EQ(bgr.cols, 23);
  for (int y = 0; y < 11; ++y)
    for (int x = 0; x < 23; ++x)
      for (int c = 0; c < 3; ++c) ASSERT_EQ(bgr.at<cv::Vec3b>(y, x)[c], dib.GetImageAdr32(x, y)[c]);
  std::remove(path.c_str());
  EXPECT_FALSE(WriteBmp(path, static_cast<HDIB>(nullptr)));
}

TEST_P(BmpFileTest, AttachDibTakesTheBytesAsFloatsWithLevelsToTwoHundredFiftyFive) {
  auto colour = MakeLevelled(13, 6, 3);
  auto mono = MakeLevelled(13, 6, 1);
  HDIB colourDib = colour->GetDib(24), monoDib = mono->GetDib(8), paletteDib = colour->GetDib(8);
  PackedCopy rgb(colour->GetDib(24)), grey(mono->GetDib(8)), indexed(colour->GetDib(8));
  CLmrImage fromRgb, fromGrey, fromIndexed;
  ASSERT_EQ(fromRgb.AttachDIB(Manager(), colourDib), 1);
  ASSERT_EQ(fromGrey.AttachDIB(Manager(), monoDib), 1);
  ASSERT_EQ(fromIndexed.AttachDIB(Manager(), paletteDib), 1);
  GlobalFree(colourDib);
  GlobalFree(monoDib);
  GlobalFree(paletteDib);
  ASSERT_EQ(fromRgb.GetPlanes(), 3);
  ASSERT_EQ(fromGrey.GetPlanes(), 1);  // a grey table gives one plane
  ASSERT_EQ(fromIndexed.GetPlanes(), 3);
  for (const CLmrImage *img : {&fromRgb, &fromGrey, &fromIndexed}) {
    EXPECT_EQ(img->GetDataType(), CImage::Float32);
    for (int p = 0; p < img->GetPlanes(); ++p) {
      EXPECT_EQ(img->GetLevelMin(p), 0.0);
      EXPECT_EQ(img->GetLevelMax(p), 255.0);
    }
  }
  for (int y = 0; y < 6; ++y)
    for (int x = 0; x < 13; ++x) {
      const RGBQUAD c = indexed.table[*indexed.At(x, y)];
      const int paletteRgb[3] = {c.rgbRed, c.rgbGreen, c.rgbBlue};
      for (int p = 0; p < 3; ++p) {
        ASSERT_EQ(fromRgb.GetPixelGrayRaw(x, y, p), rgb.At(x, y)[2 - p]);
        ASSERT_EQ(fromIndexed.GetPixelGrayRaw(x, y, p), paletteRgb[p]);
      }
      ASSERT_EQ(fromGrey.GetPixelGrayRaw(x, y, 0), *grey.At(x, y));
    }
  EXPECT_EQ(fromRgb.AttachDIB(Manager(), nullptr), 0);
}

}  // namespace
}  // namespace qorimg::test
