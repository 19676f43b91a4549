// Ownership of a packed bitmap for C++ callers: CLmrImage::GetDib hands over an
// HDIB that the caller must GlobalFree; a UniqueDib does that when it goes.
//   qorimg::UniqueDib dib(image.GetDib(24));
//   qorimg::WriteBmp("preview.bmp", dib.get());
// Move-only; release() gives the raw handle back to code that frees it itself.
#pragma once
#include <memory>
#include "platform/GlobalMemory.h"
#include "platform/WinTypes.h"

namespace qorimg {

struct DibFree {
  void operator()(HDIB dib) const noexcept { GlobalFree(dib); }
};

using UniqueDib = std::unique_ptr<HGLOBAL__, DibFree>;

}  // namespace qorimg
