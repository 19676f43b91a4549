// A small, portable window-message layer with the framework's calls.
//
// A window is an object that the application creates with a procedure; it belongs
// to the thread that created it. SendMessageW calls the procedure at once on the
// calling thread. PostMessageW queues a message to the window's thread, or to the
// calling thread when the window is null. PeekMessageW and DispatchMessageW work on
// the calling thread's queue. An application (or a test) cancels a long operation
// by posting WM_KEYDOWN with VK_ESCAPE to the thread that runs it.
#pragma once
#include <functional>
#include <thread>
#include "Export.h"
#include "platform/WinTypes.h"

constexpr UINT WM_NULL = 0x0000;
constexpr UINT WM_PAINT = 0x000F;
constexpr UINT WM_KEYDOWN = 0x0100;
constexpr UINT WM_KEYUP = 0x0101;
constexpr UINT WM_CHAR = 0x0102;
constexpr UINT WM_USER = 0x0400;
constexpr WPARAM VK_ESCAPE = 0x1B;
constexpr UINT PM_NOREMOVE = 0x0000;
constexpr UINT PM_REMOVE = 0x0001;

struct MSG {
  HWND hwnd = nullptr;
  UINT message = 0;
  WPARAM wParam = 0;
  LPARAM lParam = 0;
};

using WindowProcedure = std::function<LRESULT(HWND, UINT, WPARAM, LPARAM)>;

// Creates a window owned by the calling thread; DestroyWindow forgets it and drops
// the messages queued for it.
QORIMG_API HWND CreateMessageWindow(WindowProcedure procedure);
QORIMG_API BOOL DestroyWindow(HWND hwnd);
QORIMG_API BOOL IsWindow(HWND hwnd);

QORIMG_API LRESULT SendMessageW(HWND hwnd, UINT message, WPARAM wParam, LPARAM lParam);
QORIMG_API BOOL PostMessageW(HWND hwnd, UINT message, WPARAM wParam, LPARAM lParam);
QORIMG_API BOOL PostThreadMessageW(std::thread::id thread, UINT message, WPARAM wParam, LPARAM lParam);
// Looks at the calling thread's queue for the first message of `hwnd` (any window
// when null) numbered filterMin..filterMax (all when both are 0).
QORIMG_API BOOL PeekMessageW(MSG *msg, HWND hwnd, UINT filterMin, UINT filterMax, UINT removeFlags);
QORIMG_API BOOL TranslateMessage(const MSG *msg);
QORIMG_API LRESULT DispatchMessageW(const MSG *msg);
