// Plain integer types, handles and colour helpers in the framework's spelling,
// so that the interface reads the same to callers on every platform.
#pragma once
#include <cstddef>
#include <cstdint>

using BYTE = std::uint8_t;
using WORD = std::uint16_t;
using DWORD = std::uint32_t;
using LONG = std::int32_t;
using UINT = unsigned int;
using BOOL = int;
using WPARAM = std::uintptr_t;
using LPARAM = std::intptr_t;
using LRESULT = std::intptr_t;
using COLORREF = DWORD;

#ifndef TRUE
#define TRUE 1
#define FALSE 0
#endif

// A window: an object that the application registers with a procedure (see Messages.h).
struct HWND__;
using HWND = HWND__ *;

// Movable global memory (see GlobalMemory.h); a device-independent bitmap travels as one.
struct HGLOBAL__;
using HGLOBAL = HGLOBAL__ *;
using HDIB = HGLOBAL;
using HLOCAL = HGLOBAL;

constexpr COLORREF RGB(int r, int g, int b) {
  return static_cast<COLORREF>((r & 0xFF) | ((g & 0xFF) << 8) | ((b & 0xFF) << 16));
}
constexpr BYTE GetRValue(COLORREF c) { return static_cast<BYTE>(c & 0xFF); }
constexpr BYTE GetGValue(COLORREF c) { return static_cast<BYTE>((c >> 8) & 0xFF); }
constexpr BYTE GetBValue(COLORREF c) { return static_cast<BYTE>((c >> 16) & 0xFF); }
