#include "kernels/Buffers.h"

#include "core/TestHooks.h"

#include <atomic>
#include <cstddef>
#include <new>

namespace qorimg::kernels {
namespace {

constexpr std::align_val_t kPlaneAlignment{64};
// Temporaries still to be granted before they start failing; negative: never fail.
std::atomic<int> g_allocationsBeforeFailure{-1};

}  // namespace

void TemporaryPlaneDeleter::operator()(float *plane) const noexcept {
  ::operator delete[](plane, kPlaneAlignment);
}

TemporaryPlane AllocateTemporaryPlane(int width, int height) {
  if (width < 0 || height < 0) throw std::bad_alloc();
  int left = g_allocationsBeforeFailure.load(std::memory_order_relaxed);
  while (left > 0 && !g_allocationsBeforeFailure.compare_exchange_weak(left, left - 1)) {
  }
  if (left == 0) throw std::bad_alloc();
  // Two ints and the float size fit a 64-bit size_t without wrapping.
  static_assert(sizeof(std::size_t) >= 8);
  const std::size_t count = std::size_t(width) * std::size_t(height);
  void *memory = ::operator new[](count * sizeof(float), kPlaneAlignment);
  return TemporaryPlane(static_cast<float *>(memory));
}

namespace testing {
void FailTemporaryAllocationsFrom(int n) { g_allocationsBeforeFailure.store(n < 0 ? -1 : n); }
}  // namespace testing

}  // namespace qorimg::kernels
