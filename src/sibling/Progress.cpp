// Progress sinks: ProgressWin reports to a window as message 1136, and
// ScopedProgress turns the steps of one operation into percentages.
#include "sibling/Progress.h"

#include <algorithm>
#include <climits>

#include "platform/Messages.h"

namespace lumora {

namespace {
constexpr UINT kProgressMessage = WM_USER + 112;  // 1136
constexpr WPARAM kOpen = 0;
constexpr WPARAM kUpdate = 1;
constexpr WPARAM kClose = 2;
constexpr WPARAM kText = 4;

LPARAM TextParam(const wchar_t *text) { return reinterpret_cast<LPARAM>(text); }
}  // namespace

Progress::~Progress() = default;

// Without a window the sink does nothing at all.
std::shared_ptr<Progress> ProgressWin::Create(HWND hwnd, const wchar_t *caption, bool showCancel) {
  return std::make_shared<ProgressWin>(hwnd, caption, showCancel);
}

ProgressWin::ProgressWin(HWND hwnd, const wchar_t *caption, bool showCancel)
    : Window(hwnd), ShowCancel(showCancel ? 1 : 0), Caption(caption ? caption : L"") {}

void ProgressWin::initialize() {
  if (!Window) return;
  Active = 1;
  LastUpdate = -1;
  SendMessageW(Window, kProgressMessage, kOpen, TextParam(Caption.c_str()));
}

// Posted, not sent, so that the display follows at the pace of the window's
// thread; a repeated percentage is not posted again.
void ProgressWin::update(int percent) {
  if (!Window || !Active || percent == LastUpdate) return;
  LastUpdate = percent;
  PostMessageW(Window, kProgressMessage, kUpdate, percent);
}

void ProgressWin::finalize() {
  if (!Window || !Active) return;
  Active = 0;
  SendMessageW(Window, kProgressMessage, kClose, 0);
}

void ProgressWin::message(const std::wstring &text) {
  if (!Window) return;
  SendMessageW(Window, kProgressMessage, kText, TextParam(text.c_str()));
}

// Takes the key-down messages off the calling thread's queue up to the first ESC,
// as the progress pump of CLmrImage does: other keys pressed during an operation
// are discarded, and the rest of the queue stays.
bool ProgressWin::escape() {
  if (!Window) return false;
  MSG msg;
  while (PeekMessageW(&msg, nullptr, WM_KEYDOWN, WM_KEYDOWN, PM_REMOVE))
    if (msg.wParam == VK_ESCAPE) return true;
  return false;
}

ScopedProgress::ScopedProgress(std::shared_ptr<Progress> sink, int stepTotal)
    : Sink(std::move(sink)), StepTotal(stepTotal) {
  if (Sink) Sink->initialize();
}

ScopedProgress::~ScopedProgress() {
  if (Sink) Sink->finalize();
  Sink.reset();
}

// Computed in 64 bits, so (i + 1) * 100 cannot overflow; the result is the same as
// the int formula wherever that one is defined. A total of zero or less has no
// percentages, and reports nothing.
void ScopedProgress::Step(int i) {
  if (!Sink || StepTotal <= 0) return;
  const long long wide = (static_cast<long long>(i) + 1) * 100 / StepTotal;
  const int percent = static_cast<int>(std::clamp<long long>(wide, INT_MIN, INT_MAX));
  if (percent == LastPercent) return;
  LastPercent = percent;
  Sink->update(percent);
}

}  // namespace lumora
