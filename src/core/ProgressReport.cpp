// Progress of CLmrImage by window message 1136 to the progress handle, and the
// message pump that lets the application paint and cancel during an operation.
#include "core/LmrImage.h"
#include "core/PixelMath.h"
#include "platform/Messages.h"
#include "platform/StringResources.h"

namespace {
void Send(HWND hwnd, WPARAM code, const wchar_t *text) {
  SendMessageW(hwnd, QORIMG_PROGRESS_MESSAGE, code, reinterpret_cast<LPARAM>(text));
}
}  // namespace

void CLmrImage::ShowProgressInit(int bProgress, int idMessage, int total) {
  ShowProgressInit(bProgress, FindStringResource(static_cast<UINT>(idMessage)), total);
}

void CLmrImage::ShowProgressInit(int bProgress, const wchar_t *text, int total) {
  ProgressActive = bProgress;
  ProgressTotal = total;
  ProgressStep = total / 50 > 1 ? total / 50 : 1;
  ProgressCount.store(0, std::memory_order_relaxed);
  ProgressNext.store(0, std::memory_order_relaxed);
  ProgressDirect = 0;
  if (ProgressActive) Send(ProgressHandle, PROGRESS_OPEN, text);
}

void CLmrImage::ShowProgressInit(int idMessage) {
  ShowProgressInit(FindStringResource(static_cast<UINT>(idMessage)));
}

// Direct mode: ShowProgress(n) posts n itself as the position.
void CLmrImage::ShowProgressInit(const wchar_t *text) {
  ProgressActive = 1;
  ProgressDirect = 1;
  ProgressTotal = ProgressStep = 0;
  ProgressCount.store(0, std::memory_order_relaxed);
  ProgressNext.store(0, std::memory_order_relaxed);
  Send(ProgressHandle, PROGRESS_OPEN, text);
}

// Counts `n` steps and posts the percentage about fifty times per run. Called
// from worker threads too: the counters are relaxed atomics, so concurrent
// updates may post twice or skip one, which only makes the display coarse.
int CLmrImage::ShowProgress(int n) {
  if (!ProgressActive) return 1;
  if (ProgressDirect) {
    PostMessageW(ProgressHandle, QORIMG_PROGRESS_MESSAGE, PROGRESS_UPDATE, n);
  } else {
    const int count = ProgressCount.fetch_add(n, std::memory_order_relaxed) + n;
    if (count > ProgressNext.load(std::memory_order_relaxed)) {
      const double percent = static_cast<double>(count) / ProgressTotal * 100.0;
      PostMessageW(ProgressHandle, QORIMG_PROGRESS_MESSAGE, PROGRESS_UPDATE, qorimg::TruncateToInt(percent));
      ProgressNext.fetch_add(ProgressStep, std::memory_order_relaxed);
    }
  }
  return ShowProgressContinue();
}

int CLmrImage::ShowProgressContinue() {
  MSG msg;
  while (PeekMessageW(&msg, nullptr, WM_KEYDOWN, WM_KEYDOWN, PM_REMOVE))
    if (msg.wParam == VK_ESCAPE) return 0;
  while (PeekMessageW(&msg, nullptr, WM_PAINT, WM_PAINT, PM_REMOVE)) {
    TranslateMessage(&msg);
    DispatchMessageW(&msg);
  }
  while (PeekMessageW(&msg, nullptr, QORIMG_PROGRESS_MESSAGE, QORIMG_PROGRESS_MESSAGE, PM_REMOVE)) {
    TranslateMessage(&msg);
    DispatchMessageW(&msg);
  }
  return 1;
}

void CLmrImage::ShowProgressEnd(int idMessage) { ShowProgressEnd(FindStringResource(static_cast<UINT>(idMessage))); }

void CLmrImage::ShowProgressEnd(const wchar_t *text) {
  if (ProgressActive) Send(ProgressHandle, PROGRESS_CLOSE, text);
  ProgressActive = 0;
}

void CLmrImage::ShowProgressMsg(int idMessage) { ShowProgressMsg(FindStringResource(static_cast<UINT>(idMessage))); }

void CLmrImage::ShowProgressMsg(const wchar_t *text) { Send(ProgressHandle, PROGRESS_TEXT, text); }

void CLmrImage::ShowProgressSetHeader(const wchar_t *text) { Send(ProgressHandle, PROGRESS_SET_HEADER, text); }

void CLmrImage::ShowProgressClearHeader() { Send(ProgressHandle, PROGRESS_CLEAR_HEADER, nullptr); }
