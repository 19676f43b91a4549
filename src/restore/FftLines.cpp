// The 4-lane (SSE) variant of the grouped line transform and the choice of
// variant.
#include "restore/FftLines.h"

#include "restore/SplitRadix.h"

namespace qorimg::fft {
namespace {

typedef float Lanes4 __attribute__((vector_size(16)));

bool HasAvx() {
  static const bool avx = __builtin_cpu_supports("avx");
  return avx;
}

}  // namespace

int LaneCount() { return HasAvx() ? 8 : 4; }

void TransformGroup(float *const *lines, long stride, int lanes, int n, bool bInverse, const float *w, const int *ip,
                    void *buffer) {
  if (HasAvx())
    TransformGroupAvx(lines, stride, lanes, n, bInverse, w, ip, buffer);
  else
    TransformLanes<Lanes4, 4>(lines, stride, lanes, n, bInverse, w, ip, static_cast<Lanes4 *>(buffer));
}

}  // namespace qorimg::fft
