#include "core/DitherRandom.h"

#include <cstdint>

namespace qorimg {
namespace {
thread_local std::uint32_t state = 1;
}

int DitherRandom() {
  state = state * 214013u + 2531011u;
  return static_cast<int>((state >> 16) & 0x7FFF);
}

void SeedDitherRandom(unsigned int seed) { state = seed; }

}  // namespace qorimg
