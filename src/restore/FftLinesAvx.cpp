// The 8-lane variant of the grouped line transform, built with -mavx (and
// without fused multiply-add) and called only when the processor has AVX.
#include "restore/FftLines.h"
#include "restore/SplitRadix.h"

namespace qorimg::fft {

typedef float Lanes8 __attribute__((vector_size(32)));

void TransformGroupAvx(float *const *lines, long stride, int lanes, int n, bool bInverse, const float *w,
                       const int *ip, void *buffer) {
  TransformLanes<Lanes8, 8>(lines, stride, lanes, n, bInverse, w, ip, static_cast<Lanes8 *>(buffer));
}

}  // namespace qorimg::fft
