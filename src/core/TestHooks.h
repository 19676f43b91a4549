// Hooks for tests: force the line loops (and, through SimdOverride.h, the
// vector bit), make temporaries fail, and read which
// route each operator call took. Not installed; tests link the library's
// objects directly.
#pragma once
#include <vector>
#include "core/OperatorFrame.h"
#include "sibling/SimdOverride.h"

namespace qorimg::testing {

// Makes every route decision take the line loops, also on whole-plane images.
void ForceBlockRoute(bool force);
bool BlockRouteForced();

// What one run of an operator did: the route chosen, whether the operator
// offered a vector line and a pipeline, and the plane at which a pipeline route
// went on with the line loop after a failed temporary (-1: it did not).
struct RouteRecord {
  Route chosen;
  bool hadVector;
  bool hadPipeline;
  int resumedAtPlane;
};
// Records of the runs since the last call, oldest first; the log is emptied.
std::vector<RouteRecord> TakeRouteLog();

}  // namespace qorimg::testing

namespace qorimg::kernels::testing {
// The Nth temporary plane from now (0: the next one) and every later one throw
// std::bad_alloc; a negative count makes them succeed again.
void FailTemporaryAllocationsFrom(int n);
}  // namespace qorimg::kernels::testing
