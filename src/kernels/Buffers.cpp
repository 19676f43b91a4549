#include "kernels/Buffers.h"

#include <atomic>
#include <cstddef>
#include <new>

namespace qorimg::kernels {
namespace {

constexpr std::align_val_t kPlaneAlignment{64};
std::atomic<bool> g_failAllocations{false};

}  // namespace

void TemporaryPlaneDeleter::operator()(float *plane) const noexcept {
  ::operator delete[](plane, kPlaneAlignment);
}

TemporaryPlane AllocateTemporaryPlane(int width, int height) {
  if (g_failAllocations.load(std::memory_order_relaxed) || width < 0 || height < 0) throw std::bad_alloc();
  // Two ints and the float size fit a 64-bit size_t without wrapping.
  static_assert(sizeof(std::size_t) >= 8);
  const std::size_t count = std::size_t(width) * std::size_t(height);
  void *memory = ::operator new[](count * sizeof(float), kPlaneAlignment);
  return TemporaryPlane(static_cast<float *>(memory));
}

namespace testing {
void FailTemporaryAllocations(bool fail) { g_failAllocations.store(fail, std::memory_order_relaxed); }
}  // namespace testing

}  // namespace qorimg::kernels
