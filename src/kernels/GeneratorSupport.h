// What the pipeline generators share: the standard schedules and the few
// expressions whose floating-point behaviour must match the plain loops.
// Included by the generator sources only, never by the library.
#pragma once
#include "Halide.h"

namespace qorimg::kernels::generators {

// Eight floats make one AVX register; the SSE4.1 variant splits them in two.
constexpr int kVectorLanes = 8;
// Rows per parallel task: enough work per task to hide the pool's overhead.
constexpr int kRowsPerTask = 8;

// max(value, 0) as the clipping loops compute it (value > 0 ? value : 0): NaN
// and -0 give +0. Halide marks float operations fast-math (no NaNs, no signed
// zeros) unless they stand under strict_float.
inline Halide::Expr ClipAtZero(const Halide::Expr &value) {
  return Halide::strict_float(Halide::select(value > 0.0f, value, 0.0f));
}

// Row strips in parallel, vectors along x. Both splits guard their tails, so
// planes narrower or shorter than a split work too.
template <typename StageOrFunc>
void ScheduleRowsParallelVectorX(StageOrFunc &&stage, const Halide::VarOrRVar &x, const Halide::VarOrRVar &y,
                                 int lanes = kVectorLanes) {
  using Halide::TailStrategy;
  stage.parallel(y, kRowsPerTask, TailStrategy::GuardWithIf).vectorize(x, lanes, TailStrategy::GuardWithIf);
}

}  // namespace qorimg::kernels::generators
