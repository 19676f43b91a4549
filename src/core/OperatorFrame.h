// The frame that every operator's Do shares: the clipped rectangle, progress
// opened and closed around the work, the choice of route, and parallel line
// loops that carry a store exception out to the caller.
#pragma once
#include <atomic>
#include <exception>
#include <initializer_list>
#include <mutex>
#include "Export.h"
#include "core/LmrImage.h"

namespace qorimg {

// A rectangle clipped into an image: each edge clamped, order not repaired, so an
// inverted rectangle stays inverted and loops over it run zero times.
struct LineRect {
  int left = 0, top = 0, right = 0, bottom = 0;
  int Width() const { return right - left; }
  int Height() const { return bottom - top; }
  bool IsEmpty() const { return right <= left || bottom <= top; }
  bool IsWhole(const CImage &image) const {
    return left == 0 && top == 0 && right == image.GetWidth() && bottom == image.GetHeight();
  }
};

inline LineRect ClipRect(const CLmrImage &image, const CRect *rect) {
  LineRect r;
  image.NormalizeRect(rect, r.left, r.top, r.right, r.bottom);
  return r;
}

// Opens the progress display with the operator's message and closes it when the
// operator is done, on every path. With bProgress 0 nothing is sent at all.
class ProgressFrame {
public:
  ProgressFrame(CLmrImage &target, int bProgress, int idMessage, int total) : target_(target), on_(bProgress) {
    target_.ShowProgressInit(bProgress, idMessage, total);
  }
  ~ProgressFrame() {
    if (on_) target_.ShowProgressEnd(static_cast<const wchar_t *>(nullptr));
  }
  ProgressFrame(const ProgressFrame &) = delete;
  ProgressFrame &operator=(const ProgressFrame &) = delete;

private:
  CLmrImage &target_;
  int on_;
};

// The three routes of an operator.
enum class Route { Plane, Vector, Block };

namespace testing {
// Makes every route decision take the line loops, also on whole-plane images.
QORIMG_API void ForceBlockRoute(bool force);
QORIMG_API bool BlockRouteForced();
}  // namespace testing

// True when the image's planes are contiguous (non-zero policy) and the block
// route is not forced.
QORIMG_API bool IsWholePlane(const CImage &image);
// The composites ask for policy exactly 1.
QORIMG_API bool IsExactlyWholePlane(const CImage &image);

// Pipeline when every bound image is whole-plane, else the vector variant when
// the operator has one and the processor allows it, else the plain loop.
QORIMG_API Route ChooseRoute(bool hasVector, std::initializer_list<const CImage *> bound);

// Runs body(y) for y in [top, bottom) as a static parallel-for over lines. An
// exception thrown by a line (a store failure) stops the remaining work and is
// rethrown on the calling thread once the loop has ended.
template <class Body>
void ParallelLines(int top, int bottom, Body &&body) {
  std::exception_ptr failure;
  std::once_flag failed;
  std::atomic<bool> stop{false};
#ifdef _OPENMP
#pragma omp parallel for schedule(static)
#endif
  for (int y = top; y < bottom; ++y) {
    if (stop.load(std::memory_order_relaxed)) continue;
    try {
      body(y);
    } catch (...) {
      std::call_once(failed, [&] { failure = std::current_exception(); });
      stop.store(true, std::memory_order_relaxed);
    }
  }
  if (failure) std::rethrow_exception(failure);
}

}  // namespace qorimg
