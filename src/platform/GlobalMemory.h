// Global and local memory handles. GMEM_MOVEABLE memory never really moves here;
// a handle still has to be locked to get its address, as callers expect.
#pragma once
#include <cstddef>
#include "Export.h"
#include "platform/WinTypes.h"

constexpr UINT GMEM_FIXED = 0x0000;
constexpr UINT GMEM_MOVEABLE = 0x0002;
constexpr UINT GMEM_ZEROINIT = 0x0040;
constexpr UINT GHND = GMEM_MOVEABLE | GMEM_ZEROINIT;
constexpr UINT LMEM_FIXED = 0x0000;
constexpr UINT LMEM_MOVEABLE = 0x0002;
constexpr UINT LMEM_ZEROINIT = 0x0040;
constexpr UINT LPTR = LMEM_FIXED | LMEM_ZEROINIT;

// Null when the memory cannot be had.
QORIMG_API HGLOBAL GlobalAlloc(UINT flags, std::size_t bytes);
QORIMG_API void *GlobalLock(HGLOBAL handle);
QORIMG_API BOOL GlobalUnlock(HGLOBAL handle);
// Null on success, the handle on failure, as the framework has it.
QORIMG_API HGLOBAL GlobalFree(HGLOBAL handle);
QORIMG_API std::size_t GlobalSize(HGLOBAL handle);

QORIMG_API HLOCAL LocalAlloc(UINT flags, std::size_t bytes);
QORIMG_API void *LocalLock(HLOCAL handle);
QORIMG_API BOOL LocalUnlock(HLOCAL handle);
QORIMG_API HLOCAL LocalFree(HLOCAL handle);
