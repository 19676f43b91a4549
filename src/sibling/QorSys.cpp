// Processor features for the choice of vector loops, and the OpenMP runtime's
// thread numbers.
#include "sibling/QorSys.h"
#include "sibling/SimdOverride.h"

#include <omp.h>

#include <atomic>

namespace {

// Feature bits of SIMD():
//   bit 0 (1): SSE2
//   bit 1 (2): SSE4.1, the level the 128-bit vector loops of the library are built for
//   bit 2 (4): AVX
//   bit 3 (8): AVX2 with FMA
unsigned int DetectSIMD() {
  __builtin_cpu_init();
  unsigned int bits = 0;
  if (__builtin_cpu_supports("sse2")) bits |= 1;
  if (__builtin_cpu_supports("sse4.1")) bits |= 2;
  if (__builtin_cpu_supports("avx")) bits |= 4;
  if (__builtin_cpu_supports("avx2") && __builtin_cpu_supports("fma")) bits |= 8;
  return bits;
}

// The override as a value above 32 bits, so that "none" needs no second atomic.
constexpr long long kNoOverride = -1;
std::atomic<long long> simdOverride{kNoOverride};

}  // namespace

unsigned int CQorSys::SIMD() {
  const long long forced = simdOverride.load(std::memory_order_relaxed);
  if (forced != kNoOverride) return static_cast<unsigned int>(forced);
  static const unsigned int detected = DetectSIMD();
  return detected;
}

void qorimg::testing::OverrideSIMD(unsigned int bits) { simdOverride.store(bits, std::memory_order_relaxed); }

void qorimg::testing::ClearSIMDOverride() { simdOverride.store(kNoOverride, std::memory_order_relaxed); }

int CParallel::GetMaxThreads() { return omp_get_max_threads(); }

// 0 outside a parallel region, as the runtime has it.
int CParallel::GetThreadNum() { return omp_get_thread_num(); }
