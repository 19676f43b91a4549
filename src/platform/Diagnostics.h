// Message boxes and debug output go to callbacks that the application may set.
// By default a message box is written to standard error and debug output is dropped.
#pragma once
#include <functional>
#include "Export.h"
#include "platform/WinTypes.h"

constexpr UINT MB_OK = 0x0000;
constexpr UINT MB_ICONSTOP = 0x0010;
constexpr UINT MB_ICONEXCLAMATION = 0x0030;
constexpr UINT MB_ICONINFORMATION = 0x0040;
constexpr int IDOK = 1;

using MessageBoxCallback = std::function<int(const wchar_t *text, UINT type)>;
using DebugOutputCallback = std::function<void(const wchar_t *text)>;

namespace qorimg {
// An empty function restores the default.
QORIMG_API void SetMessageBoxCallback(MessageBoxCallback callback);
QORIMG_API void SetDebugOutputCallback(DebugOutputCallback callback);
}  // namespace qorimg

QORIMG_API int AfxMessageBox(const wchar_t *text, UINT type = MB_OK, UINT helpId = 0);
// Shows string resource `id`.
QORIMG_API int AfxMessageBox(UINT id, UINT type = MB_OK, UINT helpId = static_cast<UINT>(-1));
QORIMG_API void OutputDebugStringW(const wchar_t *text);
