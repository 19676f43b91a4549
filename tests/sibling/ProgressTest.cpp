#include <climits>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "platform/Messages.h"
#include "sibling/Progress.h"

namespace {

using Events = std::vector<std::pair<WPARAM, std::wstring>>;

void DrainQueue() {
  MSG msg;
  while (PeekMessageW(&msg, nullptr, 0, 0, PM_REMOVE)) {}
}

// A window that records message 1136 as (wParam, text or number).
struct ProgressWindow {
  Events events;
  HWND hwnd = CreateMessageWindow([this](HWND, UINT m, WPARAM w, LPARAM l) {
    const auto *text = reinterpret_cast<const wchar_t *>(l);
    if (m == WM_USER + 112) events.emplace_back(w, w == 1 ? std::to_wstring(l) : text ? text : L"<null>");
    return LRESULT{0};
  });
  ~ProgressWindow() { DestroyWindow(hwnd); }
  void Pump() {
    MSG msg;
    while (PeekMessageW(&msg, hwnd, 0, 0, PM_REMOVE)) DispatchMessageW(&msg);
  }
};

TEST(ProgressWin, SpeaksTheProgressMessageProtocol) {
  DrainQueue();
  ProgressWindow window;
  auto sink = lumora::ProgressWin::Create(window.hwnd, L"\u51e6\u7406\u4e2d", false);
  sink->initialize();
  sink->update(10);
  sink->update(10);  // unchanged: not posted again
  sink->message(L"next");
  EXPECT_EQ(window.events, (Events{{0, L"\u51e6\u7406\u4e2d"}, {4, L"next"}}));  // sent at once
  window.Pump();                                                                // updates are posted
  sink->update(55);
  sink->finalize();
  sink->finalize();
  sink->update(60);  // after close: nothing
  window.Pump();
  EXPECT_EQ(window.events, (Events{{0, L"\u51e6\u7406\u4e2d"}, {4, L"next"}, {1, L"10"}, {2, L"<null>"}, {1, L"55"}}));
}

TEST(ProgressWin, EscapeTakesKeysUpToTheFirstEscape) {
  DrainQueue();
  ProgressWindow window;
  auto sink = lumora::ProgressWin::Create(window.hwnd, L"", false);
  auto silent = lumora::ProgressWin::Create(nullptr, nullptr, false);
  PostMessageW(window.hwnd, WM_PAINT, 0, 0);
  PostMessageW(nullptr, WM_KEYDOWN, 'A', 0);
  PostMessageW(window.hwnd, WM_KEYDOWN, VK_ESCAPE, 0);
  PostMessageW(nullptr, WM_KEYDOWN, 'B', 0);
  EXPECT_FALSE(silent->escape());  // without a window nothing is looked at
  EXPECT_TRUE(sink->escape());
  std::vector<WPARAM> rest;
  MSG msg;
  while (PeekMessageW(&msg, nullptr, 0, 0, PM_REMOVE)) rest.push_back(msg.message == WM_PAINT ? 0 : msg.wParam);
  EXPECT_EQ(rest, (std::vector<WPARAM>{0, 'B'}));  // 'A' and ESC taken, the rest kept
  PostMessageW(nullptr, WM_KEYDOWN, 'C', 0);
  EXPECT_FALSE(sink->escape());
  EXPECT_FALSE(PeekMessageW(&msg, nullptr, 0, 0, PM_NOREMOVE));  // other keys are discarded
}

struct RecordingSink : lumora::Progress {
  int initialized = 0, finalized = 0;
  std::vector<int> updates;
  void initialize() override { ++initialized; }
  void update(int percent) override { updates.push_back(percent); }
  void finalize() override { ++finalized; }
  void message(const std::wstring &) override {}
  bool escape() override { return false; }
};

std::vector<int> PercentsReported(int total, std::vector<int> steps) {
  auto sink = std::make_shared<RecordingSink>();
  {
    lumora::ScopedProgress progress(sink, total);
    EXPECT_EQ(sink->initialized, 1);
    for (int i : steps) progress.Step(i);
    EXPECT_EQ(sink->finalized, 0);
  }
  EXPECT_EQ(sink->finalized, 1);
  return sink->updates;
}

TEST(ScopedProgress, ReportsEachIntegerPercentOnce) {
  EXPECT_EQ(PercentsReported(3, {0, 1, 2}), (std::vector<int>{33, 66, 100}));
  // Step 0 of 200 gives 0 percent, which differs from the initial -1: 101 reports.
  std::vector<int> steps(200), percents(101);
  for (int i = 0; i < 200; ++i) steps[i] = i;
  for (int p = 0; p <= 100; ++p) percents[p] = p;
  EXPECT_EQ(PercentsReported(200, steps), percents);
  EXPECT_TRUE(PercentsReported(0, {0, 1}).empty());
  EXPECT_TRUE(PercentsReported(-5, {0}).empty());
  // (i + 1) * 100 exceeds int here; the answer is still the exact one.
  EXPECT_EQ(PercentsReported(INT_MAX, {INT_MAX / 2, INT_MAX - 1}), (std::vector<int>{50, 100}));
  lumora::ScopedProgress none(nullptr, 10);
  none.Step(3);
}

}  // namespace
