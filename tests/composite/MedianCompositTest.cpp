// CImgMedianComposit: the calculations on hand-made bands, Store on every
// route against the moved frame, the rulings on bad input, and the bound on
// memory when frames larger than the store's budget are stacked in bands.
#include "composite/ImgMedianComposit.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include "platform/Exceptions.h"
#include "support/Fixtures.h"

namespace qorimg::test {
namespace {

class MedianCompositTest : public RouteTest {
protected:
  bool KernelRoute() const { return Case().Expected(false) == Route::Plane; }
};
QORIMG_ALL_ROUTES(MedianCompositTest);

// The band store opened for inspection.
struct Open : CImgMedianComposit {
  using CImgMedianComposit::CImgMedianComposit;
  using CImgMedianComposit::m_lineData;
};

auto Flat(float v) {
  return [v](int, int, int) { return v; };
}

// Frames of constant values stored without a move into a 4 x 3 target.
struct Stack {
  std::unique_ptr<CLmrImage> target;
  std::unique_ptr<CImgMedianComposit> op;
  Stack(RouteTest &, const std::shared_ptr<CVmManager> &manager, std::initializer_list<float> values) {
    target = MakeImage(manager, 4, 3, 1, Flat(-1));
    op = std::make_unique<CImgMedianComposit>(target.get(), 0);
    EXPECT_EQ(op->AllocateStoreBuffer(target.get(), static_cast<int>(values.size()), 2), 1);
    int f = 0;
    for (float v : values) {
      auto frame = MakeImage(manager, 4, 3, 1, Flat(v));
      EXPECT_EQ(op->Store(f++, frame.get(), 0, 2, 0, 0, 0, 0, 0, nullptr, 0), 1);
    }
  }
  float At(int x, int y) const { return target->GetPixelGrayRaw(x, y, 0); }
};

TEST_P(MedianCompositTest, CalculationsOnKnownValues) {
  Stack s(*this, Manager(), {1, 2, 100});
  double neutral[3] = {0, 0, 0}, one[3] = {1, 1, 1};
  for (int f = 0; f < 3; ++f) s.op->AddNormalizeParam(neutral, one);
  s.op->SetRefNormalizeParam(neutral, one);
  // Each calculation reports the values it combined and those it rejected.
  auto rejection = [](const CImgMedianComposit &op) {
    long long samples = -1, rejected = -1;
    op.GetRejection(&samples, &rejected);
    return std::pair{samples, rejected};
  };
  s.op->SigmaCalc(1.0, 0, 2);
  EXPECT_FLOAT_EQ(s.At(1, 1), 5.0f / 3);  // 100 rejected and replaced by the median
  EXPECT_EQ(rejection(*s.op), std::pair(36LL, 12LL));
  s.op->Calc(1.0, 0, 2, 0);
  EXPECT_FLOAT_EQ(s.At(1, 1), 5.0f / 3);
  s.op->Calc(1.0, 1, 2, 1);
  EXPECT_FLOAT_EQ(s.At(1, 1), 1.5f);
  EXPECT_EQ(rejection(*s.op), std::pair(24LL, 8LL));
  for (double k : {-1.0, std::numeric_limits<double>::quiet_NaN()}) {
    s.op->Calc(k, 0, 2, 1);  // an empty window gives the median
    EXPECT_EQ(s.At(1, 1), 2.0f);
    EXPECT_EQ(rejection(*s.op), std::pair(36LL, 36LL));
  }
  s.op->MedianCalc(0, 2);
  EXPECT_EQ(s.At(0, 0), 2.0f);
  EXPECT_EQ(rejection(*s.op), std::pair(36LL, 0LL));
  s.op->CalcMax(0, 2);
  EXPECT_EQ(s.At(3, 2), 100.0f);
  s.op->CalcMin(1, 1);
  EXPECT_EQ(s.At(3, 1), 1.0f);
  EXPECT_EQ(s.At(3, 2), 100.0f);  // rows outside the band are not touched

  // Two values: SigmaCalc gives their mean for k >= 1 and 0 below; Calc the
  // median, here their mean. A frame whose scale is negative is not normalised.
  Stack two(*this, Manager(), {1, 2});
  double scaled[3] = {2, 2, 2}, minus[3] = {-1, -1, -1};
  two.op->AddNormalizeParam(neutral, scaled);
  two.op->AddNormalizeParam(neutral, minus);
  two.op->SetRefNormalizeParam(neutral, one);
  two.op->SigmaCalc(1.0, 0, 2);
  EXPECT_EQ(two.At(0, 0), 1.25f);  // 1 * (1 / 2) and 2 unchanged
  two.op->SigmaCalc(0.5, 0, 2);
  EXPECT_EQ(two.At(0, 0), 0.0f);
  two.op->Calc(0.5, 0, 2, 0);
  EXPECT_EQ(two.At(0, 0), 1.5f);

  Stack negative(*this, Manager(), {-3, -4, std::numeric_limits<float>::quiet_NaN()});
  negative.op->CalcMax(0, 2);
  EXPECT_EQ(negative.At(0, 0), 1.1754943508222875e-38f);
  negative.op->MedianCalc(0, 2);  // NaN is not a value: the median of two
  EXPECT_EQ(negative.At(0, 0), -3.5f);
  EXPECT_EQ(rejection(*negative.op), std::pair(24LL, 0LL));
  // A frame without a normalisation item, and a band beyond the entries.
  EXPECT_THROW(negative.op->SigmaCalc(1.0, 0, 2), CInvalidArgException *);
  EXPECT_THROW(negative.op->Calc(0, 3), CInvalidArgException *);
}

// Store moves the frame into the target's geometry with its validity; a pixel
// covered by no frame is 0 in every mode.
TEST_P(MedianCompositTest, StoreMovesFramesOnEveryRoute) {
  auto target = MakeImage(40, 30, 3, Flat(-1));
  auto colour = MakeImage(40, 30, 3);
  auto mono = MakeImage(40, 30, 1, [](int x, int y, int) { return 0.5f * x * x - 0.25f * x * y + 0.125f * y * y + x; });
  Open op(target.get(), 1);
  ASSERT_EQ(op.AllocateStoreBuffer(target.get(), 4, 9), 1);
  float offset[3] = {1000, 2000, 3000};
  ASSERT_EQ(op.Store(0, colour.get(), 10, 19, 3, -2, 0, 0, 1, offset, 0), 1);
  ASSERT_EQ(op.Store(1, mono.get(), 10, 19, 1.5, 2.25, 0, 0, 0, nullptr, 1), 1);
  ASSERT_EQ(op.Store(2, mono.get(), 10, 19, 0, 0, 10.0, 0, 0, nullptr, 1), 1);
  // nInterp 7: no sample on either route, the mask still computed.
  ASSERT_EQ(op.Store(3, mono.get(), 10, 19, 0, 0, 10.0, 0, 0, nullptr, 7), 1);
  for (int y = 10; y < 20; ++y)
    for (int p = 0; p < 3; ++p)
      for (int x = 0; x < 40; ++x) {
        const std::size_t i = static_cast<std::size_t>(y - 10) * 120 + p * 40 + x;
        // The offset cycles with the element, not with the plane.
        const bool inside = x >= 3 && y + 2 < 30;
        ASSERT_EQ(op.m_lineData[0]->m_valid[i], inside ? 1 : 0);
        ASSERT_EQ(op.m_lineData[0]->m_value[i], (inside ? colour->GetPixelGrayRaw(x - 3, y + 2, p) : 0.0f) + offset[i % 3]);
        const double X = x - 1.5, Y = y - 2.25;
        if (X >= 2 && Y >= 2 && X < 36 && Y < 26) {
          ASSERT_EQ(op.m_lineData[1]->m_valid[i], 1);
          ASSERT_NEAR(op.m_lineData[1]->m_value[i], 0.5 * X * X - 0.25 * X * Y + 0.125 * Y * Y + X, 0.02);
        }
        if (x == 0) {
          ASSERT_EQ(op.m_lineData[1]->m_valid[i], 0);
        }
        ASSERT_EQ(op.m_lineData[3]->m_valid[i], op.m_lineData[2]->m_valid[i]);
        ASSERT_EQ(op.m_lineData[3]->m_value[i], 0.0f);
      }
  CImgMedianComposit none(target.get(), 2);
  ASSERT_EQ(none.AllocateStoreBuffer(target.get(), 1, 9), 1);
  none.Store(0, mono.get(), 0, 9, 100, 0, 0, 0, 0, nullptr, 0);
  none.CalcMin(0, 9);
  for (int p = 0; p < 3; ++p) EXPECT_EQ(target->GetPixelGrayRaw(17, 4, p), 0.0f);
}

TEST_P(MedianCompositTest, BadInputsAndProgress) {
  auto target = MakeImage(8, 6, 1);
  auto frame = MakeImage(8, 6, 1);
  MessageRecorder recorder;
  target->SetProgressHandle(recorder.Window());
  {
    CImgMedianComposit op(target.get(), 3);
    EXPECT_EQ(op.AllocateStoreBuffer(target.get(), -1, 5), 0);
    EXPECT_EQ(op.AllocateStoreBuffer(target.get(), 2, -1), 0);
    ASSERT_EQ(op.AllocateStoreBuffer(target.get(), 2, 2), 1);
    EXPECT_EQ(op.Store(2, frame.get(), 0, 2, 0, 0, 0, 0, 0, nullptr, 0), 0);
    EXPECT_EQ(op.Store(-1, frame.get(), 0, 2, 0, 0, 0, 0, 0, nullptr, 0), 0);
    EXPECT_EQ(op.Store(0, nullptr, 0, 2, 0, 0, 0, 0, 0, nullptr, 0), 0);
    EXPECT_EQ(op.Store(0, frame.get(), 0, 3, 0, 0, 0, 0, 0, nullptr, 0), 0);  // larger than the entry
    EXPECT_EQ(op.Store(0, frame.get(), 0, 2, std::nan(""), 0, 0, 0, 0, nullptr, 0), 0);
    EXPECT_EQ(op.Store(0, frame.get(), 0, 2, 0, 0, INFINITY, 0, 0, nullptr, 0), 0);
    ASSERT_EQ(op.Store(0, frame.get(), 3, 5, 0, 0, 0, 0, 0, nullptr, 0), 1);
    ASSERT_EQ(op.Store(1, frame.get(), 3, 5, 0, 0, 0, 0, 0, nullptr, 0), 1);
    op.MedianCalc(3, 5);
    EXPECT_TRUE(SamePixels(*target, *frame));
    op.DeallocateStoreBuffer();
    op.Calc(3, 5);  // no frame: 0 everywhere in the band
    EXPECT_EQ(target->GetPixelGrayRaw(4, 4, 0), 0.0f);
    CImgMedianComposit nothing(nullptr, 0);
    nothing.MedianCalc(0, 5);
    // An entry moves its arrays; copying is not offered.
    CLineData from(4), to(std::move(from));
    EXPECT_EQ(from.m_value, nullptr);
    EXPECT_EQ(to.m_count, 4);
  }
  recorder.Pump();
  ASSERT_GE(recorder.entries.size(), 3u);
  CString text;
  text.LoadString(6189);
  EXPECT_EQ(recorder.entries.front().text, text.str());
  EXPECT_EQ(std::count_if(recorder.entries.begin(), recorder.entries.end(),
                          [](const auto &e) { return e.wParam == PROGRESS_CLOSE; }),
            1);
  bool sawFive = false;  // 5 * 100 / 6 after the band ending on row 5
  for (const auto &e : recorder.entries) sawFive |= e.wParam == PROGRESS_UPDATE && e.lParam == 83;
  EXPECT_TRUE(sawFive);
}

// Eight frames larger than the block store's budget, stacked in bands of 16
// rows: the result equals the whole-plane run bitwise, and the store holds
// little more than its budget.
TEST(MedianCompositBands, BlockStoreStaysWithinBudget) {
  const int w = 1500, h = 700, frames = 8, band = 16;
  auto run = [&](const std::shared_ptr<CVmManager> &manager, bool threaded) {
    std::vector<std::unique_ptr<CLmrImage>> images;
    for (int f = 0; f < frames; ++f)
      images.push_back(MakeImage(manager, w, h, 1, [f](int x, int y, int) { return Pattern(x + f, y * 3 + f, 0) + f; }));
    auto target = MakeImage(CreateWholePlaneManager(), w, h, 1, Flat(0));
    {
      CImgMedianComposit op(target.get(), 0);
      EXPECT_EQ(op.AllocateStoreBuffer(target.get(), frames, band - 1), 1);
      for (int top = 0; top < h; top += band) {
        const int bottom = std::min(top + band, h) - 1;
        for (int f = 0; f < frames; ++f)
          EXPECT_EQ(op.Store(f, images[f].get(), top, bottom, f - 4, 2 - f, 0, 0, 0, nullptr, 0), 1);
        if (threaded)
          op.MedianCalc(top, bottom);
        else
          op.Calc(top, bottom);
      }
    }
    return target;
  };
  auto block = CreateBlockManager(1 << 20, 3);
  auto reference = run(CreateWholePlaneManager(), true);
  auto banded = run(block, false);
  EXPECT_TRUE(SamePixels(*banded, *reference));
  EXPECT_LE(block->GetPeakResidentBytes(), (1u << 20) + (1u << 19));
  RecordProperty("peak_resident_bytes", static_cast<int>(block->GetPeakResidentBytes()));
  testing::TakeRouteLog();
}

}  // namespace
}  // namespace qorimg::test
