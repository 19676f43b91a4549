// CImgAutoLevel on every route against double-precision references computed
// here from the pixels.
#include <algorithm>
#include <cmath>
#include <new>
#include "core/DitherRandom.h"
#include "platform/Exceptions.h"
#include "platform/Messages.h"
#include "platform/StringResources.h"
#include "tone/ImgAutoLevel.h"
#include "tone/ToneTestSupport.h"

namespace qorimg::test {
namespace {

class AutoLevelTest : public RouteTest {
protected:
  std::unique_ptr<CImgAutoLevel> Level(int w, int h, int planes, const PixelFunction &fill = nullptr) {
    return CopyAs<CImgAutoLevel>(*MakeImage(w, h, planes, fill));
  }
};
QORIMG_ALL_ROUTES(AutoLevelTest);

// An image that carries a camera model.
struct ModelImage : CImgAutoLevel {
  void SetModel(const wchar_t *model) {
    Header = std::make_unique<CHeader>();
    Header->SetCameraModel(CString(model));
  }
};

// Integer samples with a sky peak at 100 (+ 10 per plane), a dark flank,
// a tail up to 900 and a few negatives: exact in float sums, and narrow enough
// (< 5000 units) for no dither in 5000 bins.
float Sky(int x, int y, int plane) {
  const int h = (x * 31 + y * 17 + plane * 7) % 97;
  const float shift = static_cast<float>(plane * 10);
  if (h < 40) return 100.0f + shift;
  if (h < 60) return 90.0f + shift + static_cast<float>(h % 10);
  if (h < 90) return 80.0f + shift + static_cast<float>(h);
  return h == 96 ? -20.0f : 900.0f - static_cast<float>(h);
}

// The histogram mode of samples without dither: bins over their range, the
// first fullest bin's lower edge.
struct ModeReference {
  double lo, width;
  int peak;
  std::vector<int> hist;
};
ModeReference ModeOf(const std::vector<double> &v, int bins) {
  ModeReference m;
  m.lo = *std::min_element(v.begin(), v.end());
  const double hi = *std::max_element(v.begin(), v.end());
  m.width = (hi - m.lo) / bins;
  m.hist.assign(static_cast<std::size_t>(bins), 0);
  for (double s : v) ++m.hist[std::min(bins - 1, static_cast<int>((s - m.lo) * (bins / (hi - m.lo))))];
  m.peak = static_cast<int>(std::max_element(m.hist.begin(), m.hist.end()) - m.hist.begin());
  return m;
}

double UpperMiddleOf(std::vector<double> v) {
  std::sort(v.begin(), v.end());
  return v[v.size() / 2];
}

// Over a rectangle, per plane and tied (the whole frame against numpy in
// ToneReference).
TEST_P(AutoLevelTest, MeanLevelsOverARectangleMatchTheReferenceAndReadBack) {
  for (int perPlane : {0, 1}) {
    auto img = Level(41, 23, 3, Sky);
    CRect rect(3, 2, 37, 21);
    img->DoByMean(1.5, 4.0, perPlane, &rect);
    for (int c = 0; c < 3 && perPlane; ++c) {
      const Moments m = MeanSigmaOf(Samples(3, 2, 37, 21, [&](int x, int y) { return img->GetPixelGrayRaw(x, y, c); }));
      EXPECT_NEAR(img->GetLevelMin(c), m.mean - 1.5 * m.sigma, 1e-9 * m.mean) << c;
      EXPECT_NEAR(img->GetLevelMax(c), m.mean + 4.0 * m.sigma, 1e-9 * m.mean) << c;
    }
    if (perPlane) continue;  // GetByMean reads the tied brightness
    double low = 0, high = 0;
    img->Get(low, high, 1, &rect);
    EXPECT_NEAR(low, 1.5, 1e-5);
    EXPECT_NEAR(high, 4.0, 1e-5);
  }
}

TEST_P(AutoLevelTest, MedianIsTheUpperMiddleOfCellSumsAndReadsBack) {
  auto img = Level(503, 401, 3, Sky);  // 501 x 399 cells of 2 x 2 in the rectangle, rest dropped
  CRect rect(1, 1, 503, 400);
  const int n = 2;  // floor(502 * 399 / 50000) = 4, sqrt 2
  for (int brightness : {0, 1}) {
    std::vector<double> cells;
    for (int cy = 0; cy < 399 / n; ++cy)
      for (int cx = 0; cx < 502 / n; ++cx) {
        double s = 0;
        for (int j = 0; j < n; ++j)
          for (int i = 0; i < n; ++i) {
            const int x = 1 + cx * n + i, y = 1 + cy * n + j;
            s += brightness ? RawBright(*img, x, y) : img->GetPixelGrayRaw(x, y, 1);
          }
        cells.push_back(s);
      }
    float median = 0;
    img->GetMedian(&median, 1, brightness, 1, &rect);
    EXPECT_NEAR(median, UpperMiddleOf(cells) / (n * n), brightness ? 1e-4 : 0.0) << brightness;
  }
  // Without sampling every pixel is a cell.
  float whole = 0;
  img->GetMedian(&whole, 0, 0, 2, nullptr);
  EXPECT_EQ(whole, UpperMiddleOf(Samples(0, 0, 503, 401, [&](int x, int y) { return img->GetPixelGrayRaw(x, y, 2); })));

  double low = 0, high = 0;
  img->DoByMedian(2.0, 5.0, 0, &rect);
  img->Get(low, high, 2, &rect);
  EXPECT_NEAR(low, 2.0, 1e-5);
  EXPECT_NEAR(high, 5.0, 1e-5);
}

// Cell sums in double only through the pipeline (one plane of a colour
// whole-plane image); in single precision on the loops and for mono images.
TEST_P(AutoLevelTest, MedianCellPrecisionIsPinnedByRoute) {
  auto big = [](int x, int y, int) { return (x % 2 == 0 && y % 2 == 0) ? 16777216.0f : 1.0f; };
  auto colour = Level(500, 400, 3, big);
  auto mono = Level(500, 400, 1, big);
  float c = 0, m = 0;
  colour->GetMedian(&c, 1, 0, 1, nullptr);
  mono->GetMedian(&m, 1, 0, 0, nullptr);
  EXPECT_EQ(m, 4194304.0f);  // 16777216 + 1 + 1 + 1 in float stays 16777216
  EXPECT_EQ(c, Case().Expected(false) == Route::Plane ? 4194305.0f : 4194304.0f);
}

TEST_P(AutoLevelTest, MosaicMediansTakeOnePhaseEach) {
  const float bayer[4] = {10, 20, 30, 40};
  auto img = Level(800, 600, 1, [&](int x, int y, int) { return bayer[(x & 1) + 2 * (y & 1)] + (x * y % 5); });
  float medians[4];
  img->GetMedianBayer(medians, 1);  // n = trunc(trunc(sqrt(9) + 0.5) * 0.5) = 1
  for (int k = 0; k < 4; ++k) {
    std::vector<double> v;
    for (int y = k / 2; y < 600; y += 2)
      for (int x = k % 2; x < 800; x += 2) v.push_back(img->GetPixelGrayRaw(x, y, 0));
    EXPECT_EQ(medians[k], UpperMiddleOf(v)) << k;
  }
  auto halfBlock = Level(300, 300, 1);  // 90000 pixels: the half block truncates to 0
  EXPECT_THROW(halfBlock->GetMedianBayer(medians, 1), std::bad_alloc);

  // Honeycomb phases (1,0) (0,1) (1,2) (0,3) (3,0) (2,1) (3,2) (2,3) of a 4 x 4 period; the
  // model "FinePix S2Pro" (lowered, without the space) would shift them by the margins.
  const int order[8][2] = {{1, 0}, {0, 1}, {1, 2}, {0, 3}, {3, 0}, {2, 1}, {3, 2}, {2, 3}};
  for (const wchar_t *model : {L"Other", L"FINEPIXS2PRO", L"FinePix S2Pro"}) {
    const bool margins = std::wstring(model) == L"FINEPIXS2PRO";
    auto honey = CopyAs<ModelImage>(*MakeImage(200, 160, 1, [&](int x, int y, int) {
      if (margins) x -= 48, y -= 30;
      return static_cast<float>(10 + (((x % 4) + 4) % 4 + 4 * (((y % 4) + 4) % 4)));
    }));
    honey->SetModel(model);
    double gains[8];
    honey->GetMedianHoneyComb(gains, 0);
    for (int k = 0; k < 8; ++k)
      EXPECT_DOUBLE_EQ(gains[k], 24.0 / (10 + order[k][0] + 4 * order[k][1])) << k;  // largest: (2, 3)
  }
}

// 8-bit sources take 256 bins (a range of 199 units: no dither); all-negative
// data has no sky width; a mono image ignores the plane (5000 bins and the
// sky limits against numpy in ToneReference).
TEST_P(AutoLevelTest, ModeOfBytesAndOfNegativeData) {
  float mode = 0, low = 0;
  auto bytes = Level(50, 20, 1, [](int x, int y, int) { return (x + y) % 3 ? 100.0f : static_cast<float>((x * 7 + y) % 200); });
  bytes->SetOrgBitsPixel(CImage::Source8);
  bytes->GetMode(&mode, nullptr, nullptr, 0, 5, nullptr);
  const ModeReference bytesRef =
      ModeOf(Samples(0, 0, 50, 20, [&](int x, int y) { return bytes->GetPixelGrayRaw(x, y, 0); }), 256);
  EXPECT_EQ(mode, static_cast<float>(bytesRef.peak * bytesRef.width + bytesRef.lo));
  auto negative = Level(20, 10, 1, [](int x, int, int) { return -5.0f - (x % 3); });
  negative->GetMode(&mode, &low, nullptr, 0, 0, nullptr);
  EXPECT_EQ(low, mode);
}

TEST_P(AutoLevelTest, BrightnessModeOpensProgress6168AndIgnoresEscape) {
  auto img = Level(64, 48, 3, Sky);
  MessageRecorder rec;
  img->SetProgressHandle(rec.Window());
  PostMessageW(nullptr, WM_KEYDOWN, VK_ESCAPE, 0);
  float mode = 0;
  img->GetMode(&mode, nullptr, nullptr, 1, 0, nullptr);
  rec.Pump();
  ASSERT_FALSE(rec.entries.empty());
  EXPECT_EQ(rec.entries.front().text, FindStringResource(6168));
  EXPECT_EQ(rec.entries.back().wParam, 2u);
  float again = 0;  // the same without ESC: it ran to the end
  img->GetMode(&again, nullptr, nullptr, 1, 0, nullptr);
  EXPECT_EQ(mode, again);
  // A plane-wise mode and the level readers send nothing.
  rec.Pump();
  rec.entries.clear();
  img->GetMode(&mode, nullptr, nullptr, 0, 1, nullptr);
  double lo, hi;
  img->GetByNormal(lo, hi, nullptr);
  rec.Pump();
  EXPECT_TRUE(rec.entries.empty());
}

// The range of a brightness histogram is the raw brightness range (a pipeline
// on whole-plane images, a loop otherwise); NaN samples are passed over.
TEST_P(AutoLevelTest, BrightnessModeStandsOnTheRawBrightnessRange) {
  auto img = Level(60, 40, 3, [](int x, int y, int p) {
    if (x == 7 && y == 3) return p == 0 ? NAN : 10.0f;
    if (x == 8 && y == 3) return 50.0f;           // the darkest brightness
    if ((x + y) % 7 == 0) return 300.0f + x * 8;  // a tail up to 772
    return 200.0f + (p == 1 ? 2.0f : 0.0f);
  });
  std::vector<double> b;
  for (double v : Samples(0, 0, 60, 40, [&](int x, int y) { return RawBright(*img, x, y); }))
    if (!std::isnan(v)) b.push_back(v);
  const ModeReference ref = ModeOf(b, 5000);
  float mode = 0;
  img->GetMode(&mode, nullptr, nullptr, 1, 0, nullptr);
  EXPECT_NEAR(mode, ref.peak * ref.width + ref.lo, 1e-3);
}

TEST_P(AutoLevelTest, RangeCountsAndDeviations) {
  auto img = Level(33, 17, 3, Sky);
  CRect rect(-5, 2, 30, 99);  // clamped to (0, 2, 30, 17)
  const std::vector<double> v = Samples(0, 2, 30, 17, [&](int x, int y) { return img->GetPixelGrayRaw(x, y, 2); });
  std::vector<double> inside;
  for (double s : v)
    if (s >= 100 && s <= 170) inside.push_back(s);
  int count = -1;
  double std = -1, rms = -1;
  img->GetLevelRangeNum(100, 170, &count, 2, &rect);
  img->GetLevelRangeStd(100, 170, &std, 2, &rect);
  img->GetLevelDoubleRangeStd(100, 170, &rms, 0, 2, &rect);
  EXPECT_EQ(count, static_cast<int>(inside.size()));
  EXPECT_NEAR(std, MeanSigmaOf(inside).sigma, 1e-12);
  const double top = 170;
  EXPECT_NEAR(rms, MeanSigmaOf(inside, &top).sigma, 1e-12);
  // Raw brightness for the double range.
  std::vector<double> bright;
  for (double s : Samples(0, 2, 30, 17, [&](int x, int y) { return RawBright(*img, x, y); }))
    if (s >= 0 && s <= top) bright.push_back(s);
  img->GetLevelDoubleRangeStd(0, 170, &rms, 1, 7, &rect);
  EXPECT_NEAR(rms, MeanSigmaOf(bright, &top).sigma, 1e-9);
  // Nothing inside, a plane the image lacks, an empty rectangle: 0.
  CRect empty(10, 10, 10, 15);
  img->GetLevelRangeStd(5000, 6000, &std, 0, nullptr);
  img->GetLevelRangeNum(0, 1000, &count, 3, nullptr);
  img->GetLevelDoubleRangeStd(0, 1000, &rms, 0, 0, &empty);
  EXPECT_EQ(std, 0.0);
  EXPECT_EQ(count, 0);
  EXPECT_EQ(rms, 0.0);
}

TEST_P(AutoLevelTest, HistogramLevelsPutTheSkyPeakAtItsShareOfTheDisplay) {
  for (int planes : {1, 3}) {
    auto img = Level(97, 61, planes, Sky);
    float m[3], low[3];
    for (int c = 0; c < planes; ++c) img->GetMode(&m[c], &low[c], nullptr, 0, c, nullptr);
    const float S = 1.0f / (3.0f + 1.0f) * 255.0f;
    img->DoByHistogram(1.0, 3.0, 1, 1, nullptr);
    for (int c = 0; c < planes; ++c) {
      EXPECT_FLOAT_EQ(static_cast<float>(img->GetLevelMin(c)), m[c] - (m[c] - low[c])) << c;
      EXPECT_NEAR((m[c] - img->GetLevelMin(c)) / img->GetLevelRange(c) * 255.0, S, 1e-3) << c;
    }
    const std::vector<double> before = img->GetLevelMin();
    img->DoByHistogram(1.0, 3.0, 1, 3, nullptr);  // balance 3: nothing
    img->DoByHistogram(1.0, 3.0, 0, 7, nullptr);  // unknown balance: nothing
    EXPECT_EQ(img->GetLevelMin(), before);
  }
  // Per-plane balance 2 moves plane 0 to 2 Lmin - m and 2 Lmax - m.
  auto img = Level(97, 61, 3, Sky);
  float m0 = 0;
  img->GetMode(&m0, nullptr, nullptr, 0, 0, nullptr);
  img->DoByHistogram(1.0, 3.0, 1, 2, nullptr);
  EXPECT_FLOAT_EQ(static_cast<float>(img->GetLevelMin(0)), 0.0f - m0);
  EXPECT_FLOAT_EQ(static_cast<float>(img->GetLevelMax(0)), 2000.0f - m0);
  // Tied, balance 1: one black point for all planes, each peak at S.
  auto tied = Level(97, 61, 3, Sky);
  float mc[3];
  for (int c = 0; c < 3; ++c) tied->GetMode(&mc[c], nullptr, nullptr, 0, c, nullptr);
  tied->DoByHistogram(0.5, 2.0, 0, 1, nullptr);
  for (int c = 1; c < 3; ++c) EXPECT_EQ(tied->GetLevelMin(c), tied->GetLevelMin(0));
  for (int c = 0; c < 3; ++c)
    EXPECT_NEAR((mc[c] - tied->GetLevelMin(c)) / tied->GetLevelRange(c) * 255.0, 0.5f / 2.5f * 255.0f, 1e-3);
}

// Shares of exactly 0 and 1 take the range itself (the shares between against
// numpy in ToneReference).
TEST_P(AutoLevelTest, NormalLevelsOfTheWholeShareAreTheRange) {
  auto img = Level(40, 25, 1, [](int x, int y, int) { return static_cast<float>((y * 40 + x) * 37 % 1000); });
  double low = 0, high = 0;
  img->DoByNormal(0.0, 1.0, 0, nullptr);
  EXPECT_EQ(img->GetLevelMin(0), 0.0);
  EXPECT_EQ(img->GetLevelMax(0), 999.0);
  img->GetByNormal(low, high, nullptr);
  EXPECT_EQ(low, 0.0);
  EXPECT_EQ(high, 1.0);
}

TEST_P(AutoLevelTest, TiedNormalLevelsOfColourUseBrightnessOnPlaneZerosScale) {
  auto img = Level(40, 25, 3, [](int x, int y, int p) { return static_cast<float>((y * 40 + x) * 37 % 1000 + p); });
  MessageRecorder rec;
  img->SetProgressHandle(rec.Window());
  img->DoByNormal(0.0, 1.0, 0, nullptr);
  rec.Pump();
  ASSERT_FALSE(rec.entries.empty());
  EXPECT_EQ(rec.entries.front().text, FindStringResource(6168));
  // Brightness 256 of (v, v+1, v+2) with levels 0..1000 is (v + 0.815) * 0.255.
  EXPECT_NEAR(img->GetLevelMin(0), 0.815, 1e-4);
  EXPECT_NEAR(img->GetLevelMax(0), 999.815, 1e-3);
}

TEST_P(AutoLevelTest, BadInputGivesTheDefinedResults) {
  auto img = Level(30, 20, 3, Sky);
  CRect empty(5, 5, 5, 9);
  img->DoByMean(1, 1, 0, &empty);
  EXPECT_FALSE(std::isfinite(img->GetLevelMin(0)));
  double low = 0, high = 0;
  img = Level(30, 20, 3, Sky);
  img->GetByMedian(low, high, &empty);
  EXPECT_FALSE(std::isfinite(low));
  float median = 0;
  img->GetMedian(&median, 1, 0, 1, &empty);
  EXPECT_TRUE(std::isnan(median));
  img->GetMedian(&median, 1, 0, 9, nullptr);
  EXPECT_TRUE(std::isnan(median));
  img->DoByMean(0, 0, 0, nullptr);  // fLow + fHigh = 0 elsewhere: no crash, finite here
  img->DoByHistogram(0, 0, 0, 1, nullptr);
  EXPECT_FALSE(std::isfinite(img->GetLevelMax(0)));

  CImgAutoLevel sixteen;
  CLmrImage source(Manager(), CImage::Int16, 8, 8, 1, 1.0, 0.0, 1, std::shared_ptr<lumora::Progress>());
  ASSERT_EQ(sixteen.CopyImage(source), 1);
  EXPECT_THROW(sixteen.GetMedian(&median, 0, 0, 0, nullptr), CInvalidArgException *);
  EXPECT_THROW(sixteen.DoByMean(1, 1, 0, nullptr), CInvalidArgException *);
}

}  // namespace
}  // namespace qorimg::test
