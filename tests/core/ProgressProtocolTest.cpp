// The progress protocol by window message, the message pump and ESC.
#include <algorithm>
#include "core/ImgCalculation.h"
#include "platform/Messages.h"
#include "platform/StringResources.h"
#include "support/Fixtures.h"

namespace qorimg::test {
namespace {

TEST(ProgressProtocol, OpenUpdateCloseWithStepFromTotal) {
  MessageRecorder rec;
  CLmrImage img;
  img.SetProgressHandle(rec.Window());
  img.ShowProgressInit(1, 6109, 100);  // step 2
  ASSERT_EQ(rec.entries.size(), 1u);
  EXPECT_EQ(rec.entries[0].wParam, 0u);
  EXPECT_EQ(rec.entries[0].text, FindStringResource(6109));
  for (int i = 0; i < 100; ++i) EXPECT_EQ(img.ShowProgress(1), 1);
  rec.Pump();  // updates are posted to this thread's queue
  EXPECT_EQ(rec.entries[1].lParam, 1);  // the first update comes at count 1
  EXPECT_EQ(rec.Count(PROGRESS_UPDATE), 50);
  img.ShowProgressEnd(L"done");
  EXPECT_EQ(rec.entries.back().wParam, 2u);
  EXPECT_EQ(rec.entries.back().text, L"done");
  const std::size_t n = rec.entries.size();
  img.ShowProgressEnd(L"again");  // no longer active
  EXPECT_EQ(rec.entries.size(), n);
}

TEST(ProgressProtocol, SmallTotalsUpdateEveryStepAndDirectModePostsPositions) {
  MessageRecorder rec;
  CLmrImage img;
  img.SetProgressHandle(rec.Window());
  img.ShowProgressInit(1, L"x", 49);
  for (int i = 0; i < 49; ++i) img.ShowProgress(1);
  rec.Pump();
  EXPECT_EQ(rec.Count(PROGRESS_UPDATE), 49);
  rec.entries.clear();
  img.ShowProgressInit(L"direct");
  img.ShowProgress(17);
  rec.Pump();
  ASSERT_EQ(rec.entries.size(), 2u);
  EXPECT_EQ(rec.entries[1].lParam, 17);
  img.ShowProgressMsg(L"text");
  img.ShowProgressSetHeader(L"head");
  img.ShowProgressClearHeader();
  EXPECT_EQ(rec.entries[2].wParam, 4u);
  EXPECT_EQ(rec.entries[3].wParam, 12u);
  EXPECT_EQ(rec.entries[4].wParam, 13u);
}

TEST(ProgressProtocol, EscapeIsSeenOnceAndOtherMessagesWait) {
  CLmrImage img;
  img.ShowProgressInit(1, L"x", 10);
  PostMessageW(nullptr, WM_USER + 5, 0, 0);
  PostMessageW(nullptr, WM_KEYDOWN, 'A', 0);
  PostMessageW(nullptr, WM_KEYDOWN, VK_ESCAPE, 0);
  EXPECT_EQ(img.ShowProgress(1), 0);
  EXPECT_EQ(img.ShowProgress(1), 1);
  MSG msg;
  EXPECT_FALSE(PeekMessageW(&msg, nullptr, WM_KEYDOWN, WM_KEYDOWN, PM_NOREMOVE));  // keys swallowed
  EXPECT_TRUE(PeekMessageW(&msg, nullptr, WM_USER + 5, WM_USER + 5, PM_REMOVE));   // others stay
  // Inactive progress does not touch the queue.
  img.ShowProgressEnd(static_cast<const wchar_t *>(nullptr));
  PostMessageW(nullptr, WM_KEYDOWN, VK_ESCAPE, 0);
  EXPECT_EQ(img.ShowProgress(1), 1);
  EXPECT_TRUE(PeekMessageW(&msg, nullptr, WM_KEYDOWN, WM_KEYDOWN, PM_REMOVE));
}

TEST(ProgressProtocol, PaintMessagesAreDispatchedDuringWork) {
  MessageRecorder rec;
  CLmrImage img;
  img.ShowProgressInit(1, L"x", 10);
  PostMessageW(rec.Window(), WM_PAINT, 0, 0);
  img.ShowProgress(1);
  ASSERT_EQ(rec.entries.size(), 1u);
  EXPECT_EQ(rec.entries[0].message, WM_PAINT);
}

class OperatorProgressTest : public RouteTest {};
QORIMG_ALL_ROUTES(OperatorProgressTest);

TEST_P(OperatorProgressTest, CalculationOpensAndClosesOnlyWithProgressOnAndIgnoresEscape) {
  MessageRecorder rec;
  auto src = MakeImage(40, 30, 3);
  CImgCalculation target;
  target.Create(*src, nullptr, nullptr);
  target.SetProgressHandle(rec.Window());
  target.Do(1.0, 0, 0, src.get(), nullptr, 0);
  rec.Pump();
  EXPECT_TRUE(rec.entries.empty());

  PostMessageW(nullptr, WM_KEYDOWN, VK_ESCAPE, 0);
  target.Do(2.0, 0, 0, src.get(), nullptr, 1);
  rec.Pump();
  ASSERT_GE(rec.entries.size(), 2u);
  EXPECT_EQ(rec.entries.front().text, FindStringResource(6109));
  // Closed once (updates posted by worker threads may be dispatched after it).
  EXPECT_EQ(std::count_if(rec.entries.begin(), rec.entries.end(), [](auto &e) { return e.wParam == 2; }), 1);
  EXPECT_EQ(target.GetPixelGrayRaw(39, 29, 2), src->GetPixelGrayRaw(39, 29, 2) + 2.0f);  // ran to the end
  // Pipelines report no steps: only the opening and closing messages.
  if (Case().Expected(true) == Route::Plane) {
    EXPECT_EQ(rec.Count(PROGRESS_UPDATE), 0);
  } else {
    EXPECT_GT(rec.Count(PROGRESS_UPDATE), 0);
  }
}

TEST(StringTable, HasEveryIdFrom6100To6205) {
  for (UINT id = 6100; id <= 6205; ++id) EXPECT_NE(FindStringResource(id), nullptr) << id;
  EXPECT_EQ(FindStringResource(6099), nullptr);
  EXPECT_EQ(FindStringResource(6206), nullptr);
  EXPECT_STREQ(FindStringResource(6184), L"%.2f秒");
  EXPECT_STREQ(FindStringResource(6100), L"String Table of QorImg");
}

}  // namespace
}  // namespace qorimg::test
