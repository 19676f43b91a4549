// CImgBayerToRgb on both stores: the demosaic against exact scenes and OpenCV,
// the pipelines against the strip loop, the mosaic's phase under flips, the
// edge cases of gains, gamma, bit scaling and the half-size path (numpy checks
// the bulk of them), and the refusals.
#include <cmath>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>
#include "develop/ImgBayerToRgb.h"
#include "platform/StringResources.h"
#include "support/Fixtures.h"

namespace qorimg::test {
namespace {

// The protected steps, for the tests that check one of them alone.
class Bayer : public CImgBayerToRgb {
public:
  using CImgBayerToRgb::GetGain;
  using CImgBayerToRgb::ChangeBitImage;
  using CImgBayerToRgb::GammaCorrect;
  int ProgressTotalSeen() const { return ProgressTotal; }
};

tagBayerStruct Plain(int pattern) {
  tagBayerStruct s{};
  s.nPattern = pattern;
  s.nSrcBits = s.nDstBits = -32;
  s.fGamma = 1.0;
  return s;
}

// Colour c (0 R, 1 G, 2 B) at (x, y) of the uncut mosaic of `pattern`.
int SiteColour(int pattern, int x, int y) {
  const int rx = pattern == 2 || pattern == 3, ry = pattern == 3 || pattern == 4;
  const bool redRow = (y & 1) == ry, redColumn = (x & 1) == rx;
  return redRow && redColumn ? 0 : !redRow && !redColumn ? 2 : 1;
}

using Scene = std::function<float(int x, int y, int c)>;

std::unique_ptr<Bayer> Mosaic(const std::shared_ptr<CVmManager> &manager, int w, int h, int pattern,
                              const Scene &scene) {
  auto image = std::make_unique<Bayer>();
  EXPECT_TRUE(image->CopyImage(*MakeImage(manager, w, h, 1, [&](int x, int y, int) {
    return scene(x, y, SiteColour(pattern, x, y));
  })));
  return image;
}

// Per-channel affine scenes with even slopes: every mean the demosaic takes is
// the scene's value at the centre, also in OpenCV's integer arithmetic.
constexpr float kBase[3] = {600.0f, 900.0f, 300.0f}, kField[3] = {100.0f, 200.0f, 50.0f};
float Affine(int x, int y, int c) { return kBase[c] + static_cast<float>((2 + 2 * c) * x - (4 - 2 * c) * y); }

// Mosaic coordinates at which the strip loop's result is exact: three columns
// from the ends of the even width, and the rows its steps reach (odd y from 3
// to h - 5, none above 1 + 2 (cutTop / 2) or below 2 ((h - cutBottom) / 2) - 1,
// each giving rows y and y + 1).
bool StripInside(int x, int y, int w, int h, int cutTop = 0, int cutBottom = 0) {
  const int first = std::max(3, 1 + 2 * (cutTop / 2));
  const int last = std::min(3 + 2 * ((h - 8) / 2), 2 * ((h - cutBottom) / 2) - 1);
  return x >= 3 && x < (w & ~1) - 3 && y >= first && y <= last + 1;
}

class BayerToRgbTest : public RouteTest {
protected:
  bool Pipeline() const { return Case().Expected(false) == Route::Plane; }
  // Whether (x, y) of an uncut w x h result lies `margin` pixels inside the
  // edge and, on the strip loop, where its result equals the pipeline's.
  bool Inside(int x, int y, int w, int h, int margin) const {
    return x >= margin && y >= margin && x < w - margin && y < h - margin && (Pipeline() || StripInside(x, y, w, h));
  }
};
QORIMG_ALL_ROUTES(BayerToRgbTest);

TEST_P(BayerToRgbTest, UniformColourFieldIsExactEverywhereOnThePipeline) {
  for (int pattern = 1; pattern <= 4; ++pattern) {
    auto img = Mosaic(Manager(), 14, 12, pattern, [](int, int, int c) { return kField[c]; });
    ASSERT_EQ(img->Do(Plain(pattern), 0), 1);
    ASSERT_EQ(img->GetPlanes(), 3);
    EXPECT_FALSE(img->IsBayerImage());
    EXPECT_TRUE(SamplesNear(*img, [](int, int, int c) { return kField[c]; }, 2e-5, 0,
                            [&](int x, int y, int) { return Inside(x, y, 14, 12, 0); }))
        << pattern;
  }
}

// Ours equals an affine scene from 3 pixels inside the edge, OpenCV's bilinear
// and edge-aware codes from 1. OpenCV names the phase by the second row.
TEST_P(BayerToRgbTest, AffineScenesAgainstOpenCV) {
  const int w = 24, h = 18;
  const int codes[4][2] = {{cv::COLOR_BayerRGGB2BGR, cv::COLOR_BayerRGGB2BGR_EA},
                           {cv::COLOR_BayerGRBG2BGR, cv::COLOR_BayerGRBG2BGR_EA},
                           {cv::COLOR_BayerBGGR2BGR, cv::COLOR_BayerBGGR2BGR_EA},
                           {cv::COLOR_BayerGBRG2BGR, cv::COLOR_BayerGBRG2BGR_EA}};
  for (int pattern = 1; pattern <= 4; ++pattern) {
    auto img = Mosaic(Manager(), w, h, pattern, Affine);
    cv::Mat raw(h, w, CV_16UC1);
    for (int y = 0; y < h; ++y)
      for (int x = 0; x < w; ++x) raw.at<uint16_t>(y, x) = static_cast<uint16_t>(img->GetPixelGrayRaw(x, y, 0));
    ASSERT_EQ(img->Do(Plain(pattern), 0), 1);
    for (int code : codes[pattern - 1]) {
      cv::Mat bgr;
      cv::cvtColor(raw, bgr, code);
      for (int y = 1; y < h - 1; ++y)
        for (int x = 1; x < w - 1; ++x)
          for (int c = 0; c < 3; ++c)
            ASSERT_EQ(bgr.at<cv::Vec3w>(y, x)[2 - c], Affine(x, y, c)) << pattern << " " << code << " " << x << "," << y;
    }
    EXPECT_TRUE(SamplesNear(*img, Affine, 1e-3, 0, [&](int x, int y, int) { return Inside(x, y, w, h, 3); }));
  }
}

// A bright pixel at an R site: brightness stays sharp, the colour excess
// spreads over the 3 x 3 block.
TEST_P(BayerToRgbTest, BrightRedPixelSpreadsColourButNotBrightness) {
  auto mono = Mosaic(Manager(), 16, 16, 1, [](int x, int y, int) { return x == 8 && y == 8 ? 900.0f : 0.0f; });
  auto colour = Mosaic(Manager(), 16, 16, 1, [](int x, int y, int) { return x == 8 && y == 8 ? 900.0f : 0.0f; });
  tagBayerStruct s = Plain(1);
  s.bMono = 1;
  ASSERT_EQ(mono->Do(s, 0), 1);
  ASSERT_EQ(colour->Do(Plain(1), 0), 1);
  EXPECT_EQ(mono->GetPlanes(), 1);
  // Y: 900 / 3 at the site; at a G neighbour r = (900 + 0 + 225 + 225) / 4
  // from two raw R and two diagonal means; at a B neighbour r = 225.
  EXPECT_NEAR(mono->GetPixelGrayRaw(8, 8, 0), 300.0f, 1e-3);
  EXPECT_NEAR(mono->GetPixelGrayRaw(9, 8, 0), 112.5f, 1e-3);
  EXPECT_NEAR(mono->GetPixelGrayRaw(9, 9, 0), 75.0f, 1e-3);
  EXPECT_EQ(mono->GetPixelGrayRaw(10, 8, 0), 0.0f);
  // Red: (600 + 4 (450 - 112.5) + 4 (225 - 75)) / 9 + 300; green and blue:
  // (-300 - 4 112.5 - 4 75) / 9 + 300.
  EXPECT_NEAR(colour->GetPixelGrayRaw(8, 8, 0), 300.0f + 2550.0f / 9, 1e-3);
  EXPECT_NEAR(colour->GetPixelGrayRaw(8, 8, 1), 300.0f - 1050.0f / 9, 1e-3);
  EXPECT_NEAR(colour->GetPixelGrayRaw(8, 8, 2), 300.0f - 1050.0f / 9, 1e-3);
  EXPECT_GT(colour->GetPixelGrayRaw(10, 10, 0), 0.0f);
  EXPECT_EQ(colour->GetPixelGrayRaw(11, 11, 0), 0.0f);
}

// A mosaic flipped top to bottom (even height) develops with pattern 1<->4,
// 2<->3 and the vertical cuts swapped into the flipped result; left to right
// (even width) with 1<->2, 3<->4.
TEST_P(BayerToRgbTest, FlippedMosaicWithTheMappedPatternDevelopsToTheFlippedResult) {
  const int w = 20, h = 16;
  const auto scene = [](int x, int y, int c) { return static_cast<float>((x * 37 + y * 91 + c * 53) % 200 + 10 * c); };
  for (int pattern = 1; pattern <= 4; ++pattern)
    for (bool vertical : {true, false}) {
      tagBayerStruct s = Plain(pattern);
      s.nCutTop = 2, s.nCutBottom = 4, s.nCutLeft = 1, s.nCutRight = 3;
      auto img = Mosaic(Manager(), w, h, pattern, scene);
      auto flipped = std::make_unique<Bayer>();
      ASSERT_TRUE(flipped->CopyImage(*img));
      for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x)
          flipped->SetPixelGrayRaw(x, y, img->GetPixelGrayRaw(vertical ? x : w - 1 - x, vertical ? h - 1 - y : y, 0), 0);
      tagBayerStruct f = s;
      f.nPattern = vertical ? std::array{4, 3, 2, 1}[pattern - 1] : std::array{2, 1, 4, 3}[pattern - 1];
      if (vertical) std::swap(f.nCutTop, f.nCutBottom);
      else std::swap(f.nCutLeft, f.nCutRight);
      ASSERT_EQ(img->Do(s, 0), 1);
      ASSERT_EQ(flipped->Do(f, 0), 1);
      const int dw = img->GetWidth(), dh = img->GetHeight();
      const auto fx = [&](int x) { return vertical ? x : dw - 1 - x; };
      const auto fy = [&](int y) { return vertical ? dh - 1 - y : y; };
      // Inside on the strip loop: both rows and columns far from every edge of the mosaic.
      const auto inside = [&](int x, int y, int) {
        return Pipeline() || (StripInside(x + s.nCutLeft, y + s.nCutTop, w, h, s.nCutTop, s.nCutBottom) &&
                              StripInside(fx(x) + f.nCutLeft, fy(y) + f.nCutTop, w, h, f.nCutTop, f.nCutBottom));
      };
      EXPECT_TRUE(SamplesNear(
          *img, [&](int x, int y, int c) { return flipped->GetPixelGrayRaw(fx(x), fy(y), c); }, 1e-3, 0, inside))
          << pattern << (vertical ? " v" : " h");
    }
}

TEST_P(BayerToRgbTest, LevelCutClipsLastAndLetsNaNPass) {
  auto img = Mosaic(Manager(), 12, 12, 2, [](int x, int y, int c) {
    return x == 6 && y == 6 ? NAN : static_cast<float>((x * 131 + y * 71 + c * 17) % 1400) - 200.0f;
  });
  tagBayerStruct s = Plain(2);
  s.bLevelCut = 1;
  ASSERT_EQ(img->Do(s, 0), 1);
  int nan = 0;
  for (int c = 0; c < 3; ++c)
    for (int y = 3; y < 8; ++y)
      for (int x = 2; x < 10; ++x) {
        const float v = img->GetPixelGrayRaw(x, y, c);
        nan += std::isnan(v);
        if (!std::isnan(v)) ASSERT_TRUE(v >= 0.0f && v <= 1000.0f) << v;  // the levels 0..1000
      }
  EXPECT_GT(nan, 0);
}

// The ends numpy's data does not reach: negative samples keep their value
// under gamma, samples beyond 12 bits clamp, a constant frame over its own
// range gives 0.
TEST_P(BayerToRgbTest, GammaAndBitScalingAtTheEnds) {
  auto img = Mosaic(Manager(), 9, 5, 1, [](int x, int y, int) { return static_cast<float>(x * 120 + y * 7) - 50.0f; });
  tagBayerStruct s = Plain(1);
  s.fGamma = 2.2;
  img->SetLevel(0, 0.0, 1000.0);
  ASSERT_EQ(img->GammaCorrect(img.get(), &s), 1);
  EXPECT_EQ(img->GetPixelGrayRaw(0, 2, 0), -36.0f);
  EXPECT_NEAR(img->GetPixelGrayRaw(1, 2, 0), std::pow(0.084, 1 / 2.2) * 1000.0, 1e-3);
  auto bits = Mosaic(Manager(), 6, 6, 1, [](int x, int y, int) { return x == 5 ? 5000.0f : static_cast<float>(x * 800 + y); });
  ASSERT_EQ(bits->ChangeBitImage(bits.get(), 12, 16, 0), 1);
  EXPECT_EQ(bits->GetPixelGrayRaw(5, 0, 0), 65535.0f);
  auto constant = Mosaic(Manager(), 6, 6, 1, [](int, int, int) { return 7.0f; });
  ASSERT_EQ(constant->ChangeBitImage(constant.get(), 12, 16, 1), 1);
  EXPECT_EQ(constant->GetPixelGrayRaw(3, 3, 0), 0.0f);
}

// Odd sizes drop the last column and row (numpy checks every pattern and green
// mode on even ones); an unknown green mode is refused.
TEST_P(BayerToRgbTest, HalfSizeOfOddMosaicsAndUnknownGreenMode) {
  const auto scene = [](int x, int y, int c) { return static_cast<float>(c * 1000 + x * 10 + y); };
  auto half = Mosaic(Manager(), 9, 7, 4, scene);  // GBRG: B at (1, 0), R at (0, 1)
  tagBayerStruct g = Plain(4);
  g.nRoundUp = 1, g.nRoundUpGreen = 2;
  ASSERT_EQ(half->Do(g, 0), 1);
  ASSERT_EQ(half->GetWidth(), 4);
  ASSERT_EQ(half->GetHeight(), 3);
  EXPECT_TRUE(SamplesNear(*half, [&](int x, int y, int c) {
    return c == 0 ? scene(2 * x, 2 * y + 1, 0) : c == 2 ? scene(2 * x + 1, 2 * y, 2)
                  : (scene(2 * x, 2 * y, 1) + scene(2 * x + 1, 2 * y + 1, 1)) * 0.5f;
  }, 0));
  auto img = Mosaic(Manager(), 8, 8, 1, Affine);
  tagBayerStruct s = Plain(1);
  s.nRoundUp = 1, s.nRoundUpGreen = 5;
  EXPECT_EQ(img->Do(s, 0), 0);
  EXPECT_EQ(img->GetWidth(), 8);
}

// Gains of 1 where medians are below 1; the gains of another image, also a
// plain CImage; unknown patterns; the sampled median's failure on frames of
// 50,001 to 149,999 pixels passes through.
TEST_P(BayerToRgbTest, GainsFromPhaseMedians) {
  double gains[4] = {7, 7, 7, 7};
  auto dark = Mosaic(Manager(), 16, 12, 1, [](int, int, int c) { return c == 1 ? 40.0f : 0.5f; });
  ASSERT_EQ(dark->GetGain(1, gains), 1);
  EXPECT_EQ(std::vector<double>(gains, gains + 4), (std::vector<double>{1, 1, 1, 1}));
  auto lit = Mosaic(Manager(), 16, 12, 2, [](int, int, int c) { return std::array{20.0f, 40.0f, 80.0f}[c]; });
  ASSERT_EQ(dark->GetGain(lit.get(), 2, gains), 1);  // GRBG: R at (1, 0), B at (0, 1)
  EXPECT_EQ(std::vector<double>(gains, gains + 4), (std::vector<double>{1, 2, 0.5, 1}));
  CImage plain;
  ASSERT_TRUE(plain.CopyImage(*lit, nullptr));
  ASSERT_EQ(dark->GetGain(&plain, 2, gains), 1);
  EXPECT_EQ(gains[1], 2.0);
  EXPECT_EQ(dark->GetGain(5, gains), 0);
  EXPECT_EQ(dark->GetGain(0, gains), 0);
  auto middling = Mosaic(Manager(), 250, 250, 1, Affine);
  EXPECT_THROW(middling->GetGain(1, gains), std::bad_alloc);
  EXPECT_EQ(middling->GetWidth(), 250);
}

// Refusals: 0, the image untouched, no progress.
TEST_P(BayerToRgbTest, RefusedParametersChangeNothing) {
  double gains[4] = {1, 1, 1, 1};
  std::vector<std::pair<const char *, std::function<void(tagBayerStruct &)>>> bad = {
      {"pattern 0", [](tagBayerStruct &s) { s.nPattern = 0; }},
      {"pattern 5", [](tagBayerStruct &s) { s.nPattern = 5; }},
      {"16 bits", [](tagBayerStruct &s) { s.nSrcBits = 16; }},
      {"12 to float", [](tagBayerStruct &s) { s.nSrcBits = 12; }},
      {"negative cut", [](tagBayerStruct &s) { s.nCutLeft = -1; }},
      {"nothing left", [](tagBayerStruct &s) { s.nCutTop = 5, s.nCutBottom = 5; }},
      {"tone without gains", [](tagBayerStruct &s) { s.bTone = 1; }},
  };
  for (auto &[what, change] : bad) {
    auto img = Mosaic(Manager(), 12, 10, 1, Affine);
    MessageRecorder recorder;
    img->SetProgressHandle(recorder.Window());
    tagBayerStruct s = Plain(1);
    change(s);
    EXPECT_EQ(img->Do(s, 1), 0) << what;
    EXPECT_TRUE(recorder.entries.empty()) << what;
    EXPECT_TRUE(SamePixels(*img, *Mosaic(Manager(), 12, 10, 1, Affine))) << what;
  }
  auto narrow = Mosaic(Manager(), 5, 10, 1, Affine);
  EXPECT_EQ(narrow->Do(Plain(1), 0), 0);
  tagBayerStruct tone = Plain(1);
  tone.bTone = 1, tone.pGain = gains;
  auto ok = Mosaic(Manager(), 12, 10, 1, Affine);
  EXPECT_EQ(ok->Do(tone, 0), 1);
  Bayer target;
  EXPECT_EQ(target.Do(Plain(1), nullptr, 0), 0);
  auto sixteen = std::make_unique<CLmrImage>(Manager(), CImage::Int16, 12, 10, 1, 1.0, 0.0, 1, nullptr);
  EXPECT_THROW(target.Do(Plain(1), sixteen.get(), 0), CInvalidArgException *);
  EXPECT_EQ(target.GetWidth(), 0);
}

TEST_P(BayerToRgbTest, ProgressTotalAndMessages) {
  for (int mono : {0, 1}) {
    auto img = Mosaic(Manager(), 12, 230, 1, Affine);
    MessageRecorder recorder;
    img->SetProgressHandle(recorder.Window());
    tagBayerStruct s = Plain(1);
    s.bMono = mono, s.bGamma = 1, s.fGamma = 2.0, s.nCutTop = 3, s.nCutBottom = 4;
    ASSERT_EQ(img->Do(s, 1), 1);
    EXPECT_EQ(img->ProgressTotalSeen(), 230 - 7 + 10 * 2 + 3 * (230 - 7));
    ASSERT_FALSE(recorder.entries.empty());
    EXPECT_EQ(recorder.entries.front().text, FindStringResource(mono ? 6145 : 6178));
    EXPECT_EQ(recorder.entries.back().wParam, PROGRESS_CLOSE);
  }
}

// The same mosaic on a whole-plane and a block store: inside the strip
// loop's reach both give the same result, for every pattern and form. Run on
// the whole-plane case, and so on every processor variant; the other cases
// would force both stores onto the strip loop.
TEST_P(BayerToRgbTest, PipelinesAgreeWithTheStripLoopInside) {
  if (!Pipeline()) GTEST_SKIP() << "compares the pipelines with the strip loop";
  auto planeStore = MakeManager(StoreKind::WholePlane), blockStore = CreateBlockManager(1 << 20, 2);
  double gains[4] = {1.3, 0.9, 1.1, 2.0};
  const int w = 27, h = 21;
  const auto scene = [](int x, int y, int c) { return static_cast<float>((x * 7919 + y * 104729 + c * 31) % 997); };
  for (int pattern = 1; pattern <= 4; ++pattern)
    for (int form = 0; form < 8; ++form) {
      tagBayerStruct s = Plain(pattern);
      s.bMono = form & 1, s.bLevelCut = (form >> 1) & 1, s.bTone = (form >> 2) & 1, s.pGain = gains;
      s.bMaker = 1, s.nCutLeft = 2, s.nCutTop = 3, s.nCutRight = 1, s.nCutBottom = 2;
      auto a = Mosaic(planeStore, w, h, pattern, scene), b = Mosaic(blockStore, w, h, pattern, scene);
      ASSERT_EQ(a->Do(s, 0), 1);
      ASSERT_EQ(b->Do(s, 0), 1);
      EXPECT_TRUE(SamplesNear(*a, [&](int x, int y, int c) { return b->GetPixelGrayRaw(x, y, c); }, 1e-4, 1e-6,
                              [&](int x, int y, int) { return StripInside(x + 2, y + 3, w, h, 3, 2); }))
          << pattern << " " << form;
      // Rows the strip loop never reaches (mosaic rows 17 and 18) stay 0 there.
      EXPECT_EQ(b->GetPixelGrayRaw(4, b->GetHeight() - 1, 0), 0.0f);
    }
}

// The skimage photograph scaled to 16 bits and mosaicked: PSNR per plane of
// ours and OpenCV's bilinear and edge-aware codes against the original.
TEST(BayerToRgbPhoto, HubbleDeepFieldPsnr) {
  cv::Mat photo = cv::imread("/usr/lib/python3/dist-packages/skimage/data/hubble_deep_field.jpg");
  if (photo.empty()) GTEST_SKIP() << "python3-skimage's sample image is missing";
  const int w = photo.cols & ~1, h = photo.rows & ~1;
  cv::Mat truth;
  photo(cv::Rect(0, 0, w, h)).convertTo(truth, CV_16UC3, 257);
  cv::Mat raw(h, w, CV_16UC1);
  for (int y = 0; y < h; ++y)
    for (int x = 0; x < w; ++x) raw.at<uint16_t>(y, x) = truth.at<cv::Vec3w>(y, x)[2 - SiteColour(1, x, y)];
  auto img = std::make_unique<Bayer>();
  ASSERT_TRUE(img->CopyImage(*MakeImage(MakeManager(StoreKind::WholePlane), w, h, 1,
                                        [&](int x, int y, int) { return static_cast<float>(raw.at<uint16_t>(y, x)); })));
  ASSERT_EQ(img->Do(Plain(1), 0), 1);
  const auto psnr = [&](const std::function<double(int, int, int)> &value, int c) {
    double sum = 0;
    long n = 0;
    for (int y = 4; y < h - 4; ++y)
      for (int x = 4; x < w - 4; ++x, ++n) {
        const double d = value(x, y, c) - truth.at<cv::Vec3w>(y, x)[2 - c];
        sum += d * d;
      }
    return 10 * std::log10(65535.0 * 65535.0 / (sum / n));
  };
  cv::Mat bilinear, ea;
  cv::cvtColor(raw, bilinear, cv::COLOR_BayerRGGB2BGR);
  cv::cvtColor(raw, ea, cv::COLOR_BayerRGGB2BGR_EA);
  for (int c = 0; c < 3; ++c) {
    const double ours = psnr([&](int x, int y, int p) { return std::clamp<double>(img->GetPixelGrayRaw(x, y, p), 0, 65535); }, c);
    const double bl = psnr([&](int x, int y, int p) { return bilinear.at<cv::Vec3w>(y, x)[2 - p]; }, c);
    const double e = psnr([&](int x, int y, int p) { return ea.at<cv::Vec3w>(y, x)[2 - p]; }, c);
    std::printf("psnr plane %d: ours %.1f dB, bilinear %.1f dB, edge-aware %.1f dB\n", c, ours, bl, e);
    EXPECT_GT(ours, bl - 1.0) << c;  // at least about as good as bilinear
  }
}

}  // namespace
}  // namespace qorimg::test
