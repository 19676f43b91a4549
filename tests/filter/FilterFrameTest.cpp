// What every filter operator shares with the frame: its progress message, steps
// only on the line loops, ESC ignored; and a block-stored frame four times the
// store's budget filtered within that budget.
#include <gtest/gtest.h>

#include "filter/FilterMatrix.h"
#include "filter/ImgFilter.h"
#include "filter/ImgFilterBlur.h"
#include "filter/ImgFilterSpecial.h"
#include "platform/Messages.h"
#include "platform/StringResources.h"
#include "support/Fixtures.h"
#include "support/ProcessStatus.h"

namespace qorimg::test {
namespace {

class FilterProgressTest : public RouteTest {};
QORIMG_ALL_ROUTES(FilterProgressTest);

struct Operator {
  int id;
  bool pipeline;  // shows no steps on the whole-plane route
  std::function<void(CLmrImage &target, CLmrImage *src)> run;
};

// Runs `call` on an object of the operator's own class holding the target's
// pixels and progress window (Swap carries both), and gives them back.
template <class Op, class Call>
void RunAs(CLmrImage &target, Call call) {
  Op op;
  op.Swap(&target);
  call(op);
  op.Swap(&target);
}

TEST_P(FilterProgressTest, MessagesStepsAndEscape) {
  CFilterMatrix blur;
  blur.MakeGaussian(1.0);
  const Operator ops[] = {
      {6131, true,
       [](CLmrImage &t, CLmrImage *s) { RunAs<CImgFilterBlur>(t, [&](auto &f) { f.GaussianFilter(1.0, s, nullptr, 1); }); }},
      {6119, false,
       [](CLmrImage &t, CLmrImage *s) { RunAs<CImgFilterBlur>(t, [&](auto &f) { f.MeanFilter(2.0, 1.0, s, nullptr, 1); }); }},
      {6120, false,
       [](CLmrImage &t, CLmrImage *s) { RunAs<CImgFilterBlur>(t, [&](auto &f) { f.MedianFilter(1.0, s, nullptr, 1); }); }},
      {6153, false,
       [](CLmrImage &t, CLmrImage *s) { RunAs<CImgFilter>(t, [&](auto &f) { f.MinMaxFilter(1, 0, s, nullptr, 1); }); }},
      {6143, false,
       [](CLmrImage &t, CLmrImage *s) { RunAs<CImgFilter>(t, [&](auto &f) { f.LaplacianFilter(1, s, nullptr, 1); }); }},
      {6122, false,
       [](CLmrImage &t, CLmrImage *s) {
         RunAs<CImgFilter>(t, [&](auto &f) { f.UnSharpMask(1.0, 1, 1.0, 0.0, s, nullptr, 1); });
       }},
      {6116, true,
       [&](CLmrImage &t, CLmrImage *s) {
         RunAs<CImgFilterSpecial>(t, [&](auto &dev) {
           dev.MakeFilterProc(s, &blur, 0, 1);
           int own[3] = {0, 1, 2};
           float lo[3] = {0, 0, 0}, range[3] = {1000, 1000, 1000}, a[3] = {5, 5, 5}, mul[3] = {50, 50, 50};
           dev.DigitalDvlpOnly(1, s, 1.0, own, lo, range, a, mul, nullptr, 1);
         });
       }},
  };
  auto src = MakeImage(30, 20, 1);
  for (const Operator &op : ops) {
    MessageRecorder rec;
    auto target = MakeImage(30, 20, 1, [](int, int, int) { return -1.0f; });
    target->SetProgressHandle(rec.Window());
    PostMessageW(nullptr, WM_KEYDOWN, VK_ESCAPE, 0);
    op.run(*target, src.get());
    rec.Pump();
    ASSERT_GE(rec.entries.size(), 2u) << op.id;
    EXPECT_EQ(rec.entries.front().text, FindStringResource(op.id));
    const int updates = rec.Count(PROGRESS_UPDATE);
    EXPECT_EQ(rec.Count(PROGRESS_CLOSE), 1) << op.id;
    if (op.pipeline && Case().Expected(false) == Route::Plane)
      EXPECT_EQ(updates, 0) << op.id;
    else
      EXPECT_GT(updates, 0) << op.id;
    EXPECT_NE(target->GetPixelGrayRaw(29, 19, 0), -1.0f) << op.id << ": ESC stopped the loop";
  }
}

// 2048 x 4096 floats (32 MiB) for source and target in a store of 8 MiB.
TEST(FilterBudget, BlockFrameFourTimesTheBudget) {
  constexpr int kW = 2048, kH = 4096;
  constexpr std::size_t kBudget = 8u << 20;
  auto fill = [](int x, int y, int) { return static_cast<float>((x * 13 + y * 7) % 1000); };
  auto roomy = CreateBlockManager(std::size_t{1} << 30, 16);
  auto tight = CreateBlockManager(kBudget, 16);
  auto roomySrc = MakeImage(roomy, kW, kH, 1, fill), tightSrc = MakeImage(tight, kW, kH, 1, fill);
  for (int run = 0; run < 2; ++run) {
    auto op = [run](CImgFilterBlur &target, CLmrImage *src) {
      if (run == 0)
        target.GaussianFilter(2.0, src, nullptr, 0);
      else
        target.MeanFilter(3.0, 1.0, 0, 0.0, 0.0, 0, 0.0, 0.0, src, nullptr, 0);
    };
    CImgFilterBlur inMemory, budget;
    auto a = MakeImage(roomy, kW, kH, 1), b = MakeImage(tight, kW, kH, 1);
    inMemory.Swap(a.get());
    budget.Swap(b.get());
    const long rssBefore = StatusKiB("VmRSS:");
    op(budget, tightSrc.get());
    const long growthKiB = StatusKiB("VmRSS:") - rssBefore;
    op(inMemory, roomySrc.get());
    EXPECT_TRUE(SamePixels(inMemory, budget)) << run;
#if !defined(__SANITIZE_ADDRESS__)
    // At most the budget, the rings (threads x 13 lines x 8 KiB) and 4 MiB of
    // slack: no whole-plane temporary (32 MiB).
    EXPECT_LE(growthKiB, static_cast<long>(kBudget / 1024) + 4 * 13 * 8 + 4 * 1024) << run;
#else
    (void)growthKiB;
#endif
  }
  EXPECT_LE(tight->GetPeakResidentBytes(), std::max(kBudget, tight->GetResidentBound()));
  EXPECT_GE(tight->GetPeakResidentBytes(), kBudget / 2) << "the budget was used";
}

}  // namespace
}  // namespace qorimg::test
