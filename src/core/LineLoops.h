// Line loops that operators share: serial and parallel walks over the lines of a
// rectangle, and the 4-lane walk of the vector variants (scalar head until the
// target is 16-byte aligned, groups of four with non-temporal stores, scalar
// tail). An exception thrown by a line (a store failure) stops the remaining
// lines and reaches the caller on the calling thread.
#pragma once
#include <immintrin.h>

#include <atomic>
#include <cstdint>
#include <exception>
#include <mutex>

namespace qorimg {

// body(y) for y in [top, bottom), in order.
template <class Body>
void ForEachLine(int top, int bottom, Body &&body) {
  for (int y = top; y < bottom; ++y) body(y);
}

// body(y) for y in [top, bottom) as a static parallel-for over lines. No
// exception escapes a worker: the first one is kept and rethrown once the loop
// has ended.
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

// One line of a vector variant: dst[x] := f(src[x]) for x in [0, count). The
// head is found from the target's address rather than from x, so lines of any
// width in any store stay aligned for the stores; every sample gets the same
// arithmetic either way. Callers fence the non-temporal stores (_mm_sfence)
// before the target is read.
template <class Scalar, class Vector>
void VectorLine(float *dst, const float *src, int count, Scalar scalar, Vector vector) {
  int x = 0;
  while (x < count && (reinterpret_cast<std::uintptr_t>(dst + x) & 15) != 0) {
    dst[x] = scalar(src[x]);
    ++x;
  }
  for (; x + 4 <= count; x += 4) _mm_stream_ps(dst + x, vector(_mm_loadu_ps(src + x)));
  for (; x < count; ++x) dst[x] = scalar(src[x]);
}

}  // namespace qorimg
