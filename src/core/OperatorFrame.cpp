// Clipping, bound-image checks and route decisions shared by all operators.
#include "core/OperatorFrame.h"

#include <atomic>
#include "core/TestHooks.h"
#include "platform/Exceptions.h"
#include "sibling/QorSys.h"

namespace qorimg {
namespace {
std::atomic<bool> blockRouteForced{false};
}

void testing::ForceBlockRoute(bool force) { blockRouteForced.store(force); }
bool testing::BlockRouteForced() { return blockRouteForced.load(); }

LineRect ClipRect(const CLmrImage &image, const CRect *rect, Clip policy) {
  LineRect r;
  if (policy == Clip::Normalized || !rect) {
    image.NormalizeRect(rect, r.left, r.top, r.right, r.bottom);
    return r;
  }
  const int width = image.GetWidth(), height = image.GetHeight();
  r.left = std::clamp(rect->left, 0, width);
  r.top = std::clamp(rect->top, 0, height);
  r.right = std::max(r.left, std::clamp(rect->right, 0, width));
  r.bottom = std::max(r.top, std::clamp(rect->bottom, 0, height));
  return r;
}

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

bool BoundImagesFit(std::initializer_list<BoundImage> bound, const LineRect &rect) {
  for (const BoundImage &b : bound) {
    if (!b.image || b.image->GetDataType() != CImage::Float32 || b.image->GetPlanes() < b.planes) return false;
    if (!rect.IsEmpty() && (b.image->GetWidth() < rect.right || b.image->GetHeight() < rect.bottom)) return false;
  }
  return true;
}

void CheckBoundImages(std::initializer_list<BoundImage> bound, const LineRect &rect) {
  if (!BoundImagesFit(bound, rect)) AfxThrowInvalidArgException();
}

}  // namespace qorimg
