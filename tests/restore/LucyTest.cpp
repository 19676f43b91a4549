// CImgLucy on every route: the numpy double reference of the core, flux,
// skimage's Richardson-Lucy as a floor, the PSF's normalisation, edge cases,
// and progress, ESC and failures.
#include <string>
#include <unistd.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include "restore/ImgLucy.h"
#include "restore/RestoreInternal.h"
#include "RestoreTestSupport.h"

namespace {

using namespace qorimg::test;
using qorimg::restore::FormatResource;
using LucyTest = OperatorRouteTest<CImgLucy>;
QORIMG_ALL_ROUTES(LucyTest);

std::string Reference(const std::string &args) {
  return "/usr/bin/python3 " QORIMG_REFERENCE_DIR "/lucy_reference.py " + args + " > /dev/null";
}

std::unique_ptr<float[]> Psf(double sigma, int w = 64, int h = 64) {
  return std::unique_ptr<float[]>(qorimg::restore::MakeGaussPsf(sigma, w, h));
}

// The preparation and two iterations on a 64 x 64 frame (canvas = frame)
// against tests/reference/lucy_reference.py in double: 1e-3 of the peak.
TEST_P(LucyTest, MatchesDoubleReference) {
  const std::string dir = ::testing::TempDir() + "lucy_core_" + std::to_string(getpid()) + "_" + Case().name;
  std::system(("mkdir -p " + dir).c_str());
  auto op = Make(64, 64, 1, [](int x, int y, int) { return StarField(x, y, 50.0, 1.5); });
  const auto data = ReadPlane(*op, 0);
  const auto psf = Psf(2.0);
  WriteRaw(dir + "/data.f32", data.data(), data.size());
  WriteRaw(dir + "/psf.f32", psf.get(), 64 * 64);
  for (int iterations : {1, 2}) {
    ASSERT_EQ(std::system(Reference("core " + dir + " " + std::to_string(iterations) + " 2 5").c_str()), 0);
    const auto reference = ReadRaw<double>(dir + "/reference.f64", 64 * 64);
    auto run = Make(64, 64, 1, [&](int x, int y, int) { return data[y * 64 + x]; });
    ASSERT_EQ(run->Do(2.0, 2.0, 5.0, iterations, nullptr, 0), 1);
    EXPECT_LT(RelativeWorst(ReadPlane(*run, 0), reference), 1e-3) << iterations << " iterations";
  }
}

// fNoise 0 on a non-negative frame of at least 64 x 64: mask and norm are 1
// and every step keeps the flux. Also: the routes give the same bits.
TEST_P(LucyTest, KeepsFluxAndRoutesAgree) {
  auto fill = [](int x, int y, int p) { return StarField(x, y, 10.0 + p, 1.8); };
  auto op = Make(80, 70, 2, fill);
  ASSERT_EQ(op->Do(1.8, 1.0, 0.0, 5, nullptr, 0), 1);
  for (int p = 0; p < 2; ++p) {
    double in = 0, out = 0;
    for (int y = 0; y < 70; ++y)
      for (int x = 0; x < 80; ++x) in += fill(x, y, p), out += op->GetPixelGrayRaw(x, y, p);
    EXPECT_NEAR(out / in, 1.0, 1e-5) << p;
  }
  auto block = OnBlockStore(80, 70, 2, fill);
  ASSERT_EQ(block->Do(1.8, 1.0, 0.0, 5, nullptr, 0), 1);
  EXPECT_TRUE(SamePixels(*op, *block));
}

// A blurred star field with Poisson noise: after n accelerated iterations a
// star's peak is at least what skimage's plain Richardson-Lucy reaches.
TEST(LucyAgainstSkimage, PeakAtLeastSkimages) {
  const std::string dir = ::testing::TempDir() + "lucy_skimage_" + std::to_string(getpid());
  std::system(("mkdir -p " + dir).c_str());
  const auto psf = Psf(2.0);
  WriteRaw(dir + "/psf.f32", psf.get(), 64 * 64);
  const int n = 10;
  ASSERT_EQ(std::system(Reference("skimage " + dir + " " + std::to_string(n)).c_str()), 0);
  const auto data = ReadRaw<float>(dir + "/data.f32", 128 * 128);
  const auto sk = ReadRaw<double>(dir + "/skimage.f64", 128 * 128);
  auto op = AsOperator<CImgLucy>(
      MakeImage(MakeManager(StoreKind::WholePlane), 128, 128, 1, [&](int x, int y, int) { return data[y * 128 + x]; }));
  // fAdu large: chi-square never stops the n iterations.
  ASSERT_EQ(op->Do(2.0, 1e6, 0.0, n, nullptr, 0), 1);
  const auto ours = ReadPlane(*op, 0);
  for (auto [x, y] : {std::pair{40, 40}, std::pair{85, 50}, std::pair{60, 90}, std::pair{100, 100}}) {
    double peakOurs = 0, peakSk = 0;
    for (int j = y - 2; j <= y + 2; ++j)
      for (int i = x - 2; i <= x + 2; ++i) {
        peakOurs = std::max(peakOurs, double(ours[j * 128 + i]));
        peakSk = std::max(peakSk, sk[j * 128 + i]);
      }
    EXPECT_GE(peakOurs, peakSk) << x << "," << y;
    std::printf("lucy star (%d, %d): peak %.1f, skimage %.1f after %d iterations\n", x, y, peakOurs, peakSk, n);
  }
}

// The PSF: the first element alone divided by the sum once per element while
// that stays finite and below the peak; beyond, every element divided once.
TEST(LucyPsf, NormalisationAndInvalidSigma) {
  for (double sigma : {0.0, -1.0, std::nan(""), HUGE_VAL}) EXPECT_EQ(Psf(sigma), nullptr) << sigma;
  for (double sigma : {1.0, 5.0, 9.0, 10.0, 13.0, 30.0})
    for (int size : {63, 64}) {
      const auto psf = Psf(sigma, size, size);
      double sum = 0, raw = 0, peak = 0;
      for (int i = 0; i < size * size; ++i) {
        ASSERT_TRUE(std::isfinite(psf[i])) << sigma;
        sum += psf[i];
        peak = std::max(peak, double(psf[i]));
      }
      const double a = size * 0.5, s2 = sigma * sigma;
      for (int j = 0; j < size; ++j)
        for (int i = 0; i < size; ++i) {
          const double d2 = (i - a) * (i - a) + (j - a) * (j - a);
          raw += static_cast<float>(std::exp(-d2 / (2 * s2)) / (6.28318 * s2));
        }
      const int c = size / 2;  // the centre element (i - size/2 = 0 on 64)
      EXPECT_LE(psf[0], peak) << sigma << " " << size;
      if (sigma <= 9.0) {
        // The classic form: everything but the first element unscaled.
        EXPECT_EQ(psf[c * size + c], static_cast<float>(std::exp(-(size == 63 ? 0.5 : 0.0) / (2 * s2)) / (6.28318 * s2)));
      } else {
        EXPECT_NEAR(sum, 1.0, 1e-4) << sigma << " " << size;
        EXPECT_NEAR(psf[c * size + c] * raw, static_cast<float>(std::exp(-(size == 63 ? 0.5 : 0.0) / (2 * s2)) / (6.28318 * s2)), 1e-6);
      }
    }
}

TEST_P(LucyTest, EdgeCases) {
  RestoreCapture capture;
  // nIteration <= 0 writes the flat mean of the rectangle; outside untouched.
  auto op = Make(90, 70, 1, [](int x, int y, int) { return 100.0f + (x * 7 + y * 3) % 50; });
  const auto before = ReadPlane(*op, 0);
  CRect rect(10, 5, 100, 66);  // clipped to (10, 5)-(90, 66)
  ASSERT_EQ(op->Do(2.0, 1.0, 1.0, 0, &rect, 0), 1);
  double mean = 0;
  for (int y = 5; y < 66; ++y)
    for (int x = 10; x < 90; ++x) mean += before[y * 90 + x];
  mean /= 80.0 * 61.0;
  EXPECT_NEAR(op->GetPixelGrayRaw(50, 30, 0), mean, 1e-4 * mean);
  EXPECT_EQ(op->GetPixelGrayRaw(9, 30, 0), before[30 * 90 + 9]);
  // A negative mean starts at 1.0.
  auto negative = Make(70, 64, 1, [](int, int, int) { return -0.5f; });
  ASSERT_EQ(negative->Do(2.0, 1.0, 100.0, -3, nullptr, 0), 1);
  EXPECT_EQ(negative->GetPixelGrayRaw(3, 3, 0), 1.0f);
  // Small images are centred on a 64 x 64 canvas; 1 x 1 too; non-finite
  // samples are left out of the mean and get a restored value.
  auto small = Make(5, 3, 1, [](int x, int, int) { return x == 2 ? std::nanf("") : 100.0f; });
  ASSERT_EQ(small->Do(1.0, 1.0, 1.0, 3, nullptr, 0), 1);
  for (float v : ReadPlane(*small, 0)) EXPECT_TRUE(std::isfinite(v));
  auto one = Make(1, 1, 1, [](int, int, int) { return 42.0f; });
  ASSERT_EQ(one->Do(1.0, 1.0, 1.0, 2, nullptr, 0), 1);  // chi-square's divisor 0: IEEE, the loop goes on
  // Empty rectangles change nothing; bad sigma or gain: 6148 and 0.
  const auto kept = ReadPlane(*op, 0);
  CRect outside(100, 0, 120, 10);
  EXPECT_EQ(op->Do(2.0, 1.0, 1.0, 3, &outside, 0), 1);
  EXPECT_TRUE(capture.boxes.empty());
  EXPECT_EQ(op->Do(0.0, 1.0, 1.0, 3, nullptr, 0), 0);
  EXPECT_EQ(op->Do(2.0, 0.0, 1.0, 3, nullptr, 0), 0);
  EXPECT_EQ(ReadPlane(*op, 0), kept);
  EXPECT_EQ(capture.boxes, (std::vector<std::wstring>{Resource(6148), Resource(6148)}));
}

// Titles, every tick, the chi-square stop, ESC in plane 2 leaving plane 1
// unchanged, and the failures.
TEST_P(LucyTest, ProgressCancelAndFailures) {
  RestoreCapture capture;
  auto op = Make(64, 64, 2, [](int x, int y, int p) { return StarField(x, y, 30.0 + p, 1.5); });
  op->SetProgressHandle(capture.Window());
  const auto before0 = ReadPlane(*op, 0), before1 = ReadPlane(*op, 1);
  // fAdu 1e6 keeps chi-square high: both iterations run.
  ASSERT_EQ(op->Do(1.5, 1e6, 0.0, 2, nullptr, 1), 1);
  const std::wstring prep2 = FormatResource(6155, 2);
  const std::wstring iter2 = FormatResource(6157, 2, 2);
  EXPECT_EQ(capture.Titles(), (std::vector<std::wstring>{FormatResource(6155, 1), FormatResource(6157, 1, 1),
                                                         FormatResource(6157, 1, 2), prep2, FormatResource(6157, 2, 1),
                                                         iter2}));
  EXPECT_EQ(capture.Ticks(prep2), (std::vector<long long>{5, 20, 40, 60, 80, 100}));
  EXPECT_EQ(capture.Ticks(iter2), (std::vector<long long>{0, 20, 40, 65, 100}));
  EXPECT_EQ(capture.Count(0), capture.Count(2));
  EXPECT_TRUE(capture.boxes.empty());

  // A one-plane image: titles without the plane; a small fAdu makes
  // chi-square <= 1 at once, so one iteration of the ten runs.
  auto mono = Make(64, 64, 1, [](int x, int y, int) { return StarField(x, y, 30.0, 1.5); });
  mono->SetProgressHandle(capture.Window());
  capture.entries.clear();
  ASSERT_EQ(mono->Do(1.5, 1e-6, 0.0, 10, nullptr, 1), 1);
  EXPECT_EQ(capture.Titles(), (std::vector<std::wstring>{Resource(6154), FormatResource(6156, 1)}));

  // Any tick cancels: ESC when plane 2's preparation or an iteration opens.
  op->Swap(MakeImage(64, 64, 2, [&](int x, int y, int p) { return (p ? before1 : before0)[y * 64 + x]; }).get());
  op->SetProgressHandle(capture.Window());
  for (const std::wstring &title : {prep2, iter2}) {
    capture.escapeOn = title;
    EXPECT_EQ(op->Do(1.5, 1e6, 0.0, 2, nullptr, 1), 0);
    EXPECT_EQ(ReadPlane(*op, 0), before0);
    EXPECT_EQ(capture.boxes.back(), Resource(6149));
  }
  capture.escapeOn.clear();
  // Do's own two allocations fail silently; the core's with 6148.
  const std::size_t boxes = capture.boxes.size();
  for (int n : {0, 1}) {
    qorimg::restore::testing::FailAllocationsFrom(n);
    EXPECT_EQ(op->Do(1.5, 1e6, 0.0, 2, nullptr, 1), 0);
  }
  EXPECT_EQ(capture.boxes.size(), boxes);
  qorimg::restore::testing::FailAllocationsFrom(5);
  EXPECT_EQ(op->Do(1.5, 1e6, 0.0, 2, nullptr, 1), 0);
  qorimg::restore::testing::FailAllocationsFrom(-1);
  EXPECT_EQ(capture.boxes.back(), Resource(6148));
  EXPECT_EQ(ReadPlane(*op, 1), before1);
  EXPECT_EQ(capture.Count(0), capture.Count(2));
}

}  // namespace
