// CImgWavelet on every route: filters, one Haar level by hand, the round trip
// through buffer, decomposition and composition, weights, cancellation.
#include <gtest/gtest.h>

#include <cmath>
#include <stdexcept>
#include "platform/Messages.h"
#include "restore/ImgWavelet.h"
#include "support/Fixtures.h"

namespace {

using qorimg::test::RouteTest;

class OpenWavelet : public CImgWavelet {
public:
  using CImgWavelet::Wavelet1d;
};

class WaveletTest : public RouteTest {};

CArray<float, float> Weights(int count, float value) {
  CArray<float, float> w;
  for (int i = 0; i < count; ++i) w.Add(value);
  return w;
}
QORIMG_ALL_ROUTES(WaveletTest);

TEST(WaveletFilters, DaubechiesOrdersAndOutOfRange) {
  OpenWavelet w;
  CArray<float, float> line;
  line.SetSize(4);
  line[0] = 5.0f;
  w.Wavelet1d(&line);  // nCoef -1: zeros
  EXPECT_EQ(line[0], 0.0f);
  for (int order = 1; order <= 10; ++order) {
    w.SetDaubechyParams(order);
    EXPECT_EQ(w.nCoef, 2 * order);
    float sum = 0.0f;
    for (int i = 0; i < w.nCoef; ++i) sum += w.h[i];
    EXPECT_NEAR(sum, 2.0f, 1e-5f) << order;
    for (int i = 0; i < w.nCoef; ++i) {
      EXPECT_EQ(w.h2[i], 0.5f * w.h[i]);
      EXPECT_EQ(w.g[i], (i % 2 ? -1.0f : 1.0f) * w.h[w.nCoef - 1 - i]);
    }
  }
  w.SetDaubechyParams(2);
  EXPECT_FLOAT_EQ(w.h[0], 0.4829629f * std::sqrt(2.0f));
  EXPECT_FLOAT_EQ(w.h[1], 0.8365163f * std::sqrt(2.0f));
  w.SetDaubechyParams(12);  // keeps the coefficients
  EXPECT_EQ(w.nCoef, 20);
  EXPECT_FLOAT_EQ(w.h[0], 0.4829629f * std::sqrt(2.0f));

  CRect region(3, 4, 103, 54), buffer;
  w.CalcBufferSize(&region, 3, &buffer);
  EXPECT_EQ(buffer, CRect(0, 0, 104, 56));
  CRect tiny(0, 0, 5, 3);
  w.CalcBufferSize(&tiny, 2, &buffer);
  EXPECT_EQ(buffer, CRect(0, 0, 8, 8));
  w.CalcBufferSize(&region, 0, &buffer);
  EXPECT_EQ(buffer, CRect(0, 0, 100, 50));
  w.CalcBufferSize(&region, 40, &buffer);
  EXPECT_TRUE(buffer.IsRectEmpty());
}

// Order 1 is Haar: low is the mean of a pair, high half their difference.
TEST_P(WaveletTest, HaarLevelByHand) {
  CImgWavelet w;
  w.SetDaubechyParams(1);
  auto buffer = MakeImage(4, 4, 1, [](int x, int y, int) { return float(x * x + 3 * y); });
  ASSERT_EQ(w.DoMultiResSubbandDecomposition(buffer.get(), 1, 0), 1);
  // Rows then columns: LL(0,0) = mean of the 2x2 block (0,1,3,4) = 2.
  EXPECT_FLOAT_EQ(buffer->GetPixelGrayRaw(0, 0, 0), 2.0f);
  // Top right (x >= 2): row differences (x0 - x1)/2 averaged over rows 0, 1.
  EXPECT_FLOAT_EQ(buffer->GetPixelGrayRaw(2, 0, 0), -0.5f);
  // Bottom left: column differences (3y0 - 3y1)/2 of the row means.
  EXPECT_FLOAT_EQ(buffer->GetPixelGrayRaw(0, 2, 0), -1.5f);
  EXPECT_NEAR(buffer->GetPixelGrayRaw(2, 2, 0), 0.0f, 1e-6f);  // h is 1/sqrtf(2) sqrtf(2), not exactly 1
}

TEST_P(WaveletTest, RoundTripWeightsAndMidLevel) {
  const int levels = 3;
  auto src = MakeImage(45, 30, 3);
  CImgWavelet w;
  w.SetDaubechyParams(4);
  CRect region(2, 3, 42, 29), size;
  w.CalcBufferSize(&region, levels, &size);
  auto buffer = MakeImage(size.Width(), size.Height(), 3);
  w.CopyToBuffer(buffer.get(), src.get(), &region);
  EXPECT_EQ(buffer->GetPixelGrayRaw(size.Width() - 1, 0, 1), src->GetPixelGrayRaw(41, 3, 1));  // row repeated
  EXPECT_EQ(buffer->GetPixelGrayRaw(5, size.Height() - 1, 2), src->GetPixelGrayRaw(7, 28, 2));  // last row repeated
  CArray<float, float> ones = Weights(levels, 1.0f), zeros = Weights(levels, 0.0f), shortOnes = Weights(1, 1.0f);
  ASSERT_EQ(w.DoMultiResSubbandDecomposition(buffer.get(), levels, 0), 1);
  ASSERT_EQ(w.DoMultiResSubbandComposition(buffer.get(), levels, 1.0f, &ones, &ones, &ones, 0), 1);
  auto dst = MakeImage(45, 30, 3, [](int, int, int) { return -1.0f; });
  w.CopyFromBuffer(dst.get(), &region, buffer.get());
  for (int p = 0; p < 3; ++p)
    for (int y = 3; y < 29; y += 5)
      for (int x = 2; x < 42; x += 3) ASSERT_NEAR(dst->GetPixelGrayRaw(x, y, p), src->GetPixelGrayRaw(x, y, p), 2e-3);
  EXPECT_EQ(dst->GetPixelGrayRaw(1, 3, 0), -1.0f);  // outside the region

  // fLow 0 and every detail weight 0 leave the mid level (levels 0..1000).
  w.CopyToBuffer(buffer.get(), src.get(), &region);
  ASSERT_EQ(w.DoMultiResSubbandDecomposition(buffer.get(), levels, 0), 1);
  ASSERT_EQ(w.DoMultiResSubbandComposition(buffer.get(), levels, 0.0f, &zeros, &zeros, &zeros, 0), 1);
  EXPECT_NEAR(buffer->GetPixelGrayRaw(9, 9, 1), 500.0f, 1e-2);

  // A level beyond a weight array throws, as does a null array.
  EXPECT_THROW(w.DoMultiResSubbandComposition(buffer.get(), levels, 1.0f, &ones, &shortOnes, &ones, 0),
               std::out_of_range);
  EXPECT_THROW(w.DoMultiResSubbandComposition(buffer.get(), levels, 1.0f, nullptr, &ones, &ones, 0), std::out_of_range);
}

// The decomposition is the same bits on every route: compare one route's
// result against the plain block-store walk of the same data.
TEST_P(WaveletTest, RoutesGiveTheSameBits) {
  CImgWavelet w;
  w.SetDaubechyParams(3);
  auto buffer = MakeImage(64, 32, 2);
  auto reference = qorimg::test::MakeImage(qorimg::test::MakeManager(qorimg::test::StoreKind::Block), 64, 32, 2);
  ASSERT_EQ(w.DoMultiResSubbandDecomposition(buffer.get(), 2, 0), 1);
  ASSERT_EQ(w.DoMultiResSubbandDecomposition(reference.get(), 2, 0), 1);
  EXPECT_TRUE(qorimg::test::SamePixels(*buffer, *reference));
}

// ESC with progress on ends the run with 0; without progress it is not seen.
TEST_P(WaveletTest, EscapeCancelsOnlyWithProgress) {
  CImgWavelet w;
  w.SetDaubechyParams(2);
  auto buffer = MakeImage(64, 64, 1);
  qorimg::test::MessageRecorder recorder;
  w.SetProgressHandle(recorder.Window());
  PostMessageW(nullptr, WM_KEYDOWN, VK_ESCAPE, 0);
  EXPECT_EQ(w.DoMultiResSubbandDecomposition(buffer.get(), 2, 0), 1);
  EXPECT_EQ(w.DoMultiResSubbandDecomposition(buffer.get(), 2, 1), 0);
  recorder.Pump();
}

}  // namespace
