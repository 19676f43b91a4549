// Route decisions shared by all operators.
#include "core/OperatorFrame.h"

#include <atomic>
#include "sibling/QorSys.h"

namespace qorimg {
namespace {
std::atomic<bool> blockRouteForced{false};
}

void testing::ForceBlockRoute(bool force) { blockRouteForced.store(force); }
bool testing::BlockRouteForced() { return blockRouteForced.load(); }

bool IsWholePlane(const CImage &image) {
  return image.GetAllocationPolicy() != 0 && !testing::BlockRouteForced();
}

bool IsExactlyWholePlane(const CImage &image) {
  return image.GetAllocationPolicy() == 1 && !testing::BlockRouteForced();
}

Route ChooseRoute(bool hasVector, std::initializer_list<const CImage *> bound) {
  bool wholePlane = true;
  for (const CImage *image : bound)
    if (image && !IsWholePlane(*image)) wholePlane = false;
  if (wholePlane) return Route::Plane;
  if (hasVector && (CQorSys::SIMD() & 2)) return Route::Vector;
  return Route::Block;
}

}  // namespace qorimg
