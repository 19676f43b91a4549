#include <atomic>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "platform/Messages.h"

namespace {

void DrainQueue() {
  MSG msg;
  while (PeekMessageW(&msg, nullptr, 0, 0, PM_REMOVE)) {}
}

// A window on the calling thread that records the wParam and thread of each call.
struct RecordingWindow {
  std::vector<std::pair<WPARAM, std::thread::id>> calls;
  HWND hwnd = CreateMessageWindow([this](HWND, UINT m, WPARAM w, LPARAM) {
    calls.emplace_back(w, std::this_thread::get_id());
    return static_cast<LRESULT>(m + w);
  });
  ~RecordingWindow() { DestroyWindow(hwnd); }
};

TEST(Messages, PostReachesTheWindowsThreadAndSendRunsOnTheCaller) {
  DrainQueue();
  RecordingWindow window;
  std::thread([&] {
    EXPECT_TRUE(PostMessageW(window.hwnd, WM_USER, 7, 0));
    // Send runs the procedure at once, on this thread, whoever owns the window.
    EXPECT_EQ(SendMessageW(window.hwnd, WM_USER, 1, 0), static_cast<LRESULT>(WM_USER + 1));
    MSG msg;
    EXPECT_FALSE(PeekMessageW(&msg, nullptr, 0, 0, PM_NOREMOVE));  // not the poster's queue
  }).join();
  ASSERT_EQ(window.calls.size(), 1u);
  EXPECT_NE(window.calls[0].second, std::this_thread::get_id());

  MSG msg;
  ASSERT_TRUE(PeekMessageW(&msg, nullptr, 0, 0, PM_REMOVE));
  EXPECT_EQ(msg.hwnd, window.hwnd);
  EXPECT_EQ(DispatchMessageW(&msg), static_cast<LRESULT>(WM_USER + 7));
  EXPECT_EQ(window.calls.back(), std::make_pair(WPARAM{7}, std::this_thread::get_id()));
}

TEST(Messages, PeekFiltersByWindowAndRangeInPostingOrder) {
  DrainQueue();
  RecordingWindow a, b;
  PostMessageW(a.hwnd, WM_PAINT, 1, 0);
  PostMessageW(b.hwnd, WM_KEYDOWN, 2, 0);
  PostMessageW(nullptr, WM_USER + 112, 3, 0);
  PostMessageW(a.hwnd, WM_KEYDOWN, 4, 0);
  MSG msg;
  ASSERT_TRUE(PeekMessageW(&msg, nullptr, WM_KEYDOWN, WM_KEYDOWN, PM_NOREMOVE));
  EXPECT_EQ(msg.wParam, 2u);
  ASSERT_TRUE(PeekMessageW(&msg, a.hwnd, WM_KEYDOWN, WM_KEYUP, PM_REMOVE));
  EXPECT_EQ(msg.wParam, 4u);
  ASSERT_TRUE(PeekMessageW(&msg, nullptr, WM_USER, WM_USER + 200, PM_REMOVE));
  EXPECT_EQ(msg.wParam, 3u);
  EXPECT_FALSE(PeekMessageW(&msg, b.hwnd, WM_PAINT, WM_PAINT, PM_REMOVE));
  std::vector<WPARAM> rest;
  while (PeekMessageW(&msg, nullptr, 0, 0, PM_REMOVE)) rest.push_back(msg.wParam);
  EXPECT_EQ(rest, (std::vector<WPARAM>{1, 2}));
}

TEST(Messages, DestroyedWindowsAndEndedThreadsTakeTheirMessages) {
  DrainQueue();
  RecordingWindow keep;
  HWND gone = CreateMessageWindow([](HWND, UINT, WPARAM, LPARAM) { return LRESULT{1}; });
  PostMessageW(gone, WM_PAINT, 1, 0);
  PostMessageW(keep.hwnd, WM_PAINT, 2, 0);
  EXPECT_TRUE(DestroyWindow(gone));
  EXPECT_FALSE(IsWindow(gone));
  EXPECT_FALSE(PostMessageW(gone, WM_PAINT, 3, 0));
  EXPECT_EQ(SendMessageW(gone, WM_PAINT, 0, 0), 0);
  MSG msg;
  ASSERT_TRUE(PeekMessageW(&msg, nullptr, 0, 0, PM_REMOVE));
  EXPECT_EQ(msg.wParam, 2u);
  EXPECT_FALSE(PeekMessageW(&msg, nullptr, 0, 0, PM_REMOVE));

  HWND orphan = nullptr;
  std::thread::id ended;
  std::thread([&] {
    orphan = CreateMessageWindow([](HWND, UINT, WPARAM, LPARAM) { return LRESULT{0}; });
    ended = std::this_thread::get_id();
  }).join();
  EXPECT_FALSE(IsWindow(orphan));
  EXPECT_FALSE(PostThreadMessageW(ended, WM_USER, 0, 0));
  EXPECT_TRUE(PostThreadMessageW(std::this_thread::get_id(), WM_USER, 0, 0));
  DrainQueue();
}

// Many posters at once: nothing is lost, each poster's messages stay in order.
TEST(Messages, ConcurrentPostsAllArriveInOrder) {
  DrainQueue();
  RecordingWindow window;
  constexpr int kThreads = 4, kEach = 2000;
  std::vector<std::thread> posters;
  for (int t = 0; t < kThreads; ++t)
    posters.emplace_back([&, t] {
      for (int i = 0; i < kEach; ++i) PostMessageW(window.hwnd, WM_USER, static_cast<WPARAM>(t), i);
    });
  std::vector<LPARAM> next(kThreads, 0);
  int received = 0;
  MSG msg;
  while (received < kThreads * kEach)
    if (PeekMessageW(&msg, window.hwnd, WM_USER, WM_USER, PM_REMOVE)) {
      ASSERT_EQ(msg.lParam, next[msg.wParam]++);
      ++received;
    }
  for (std::thread &t : posters) t.join();
}

}  // namespace
