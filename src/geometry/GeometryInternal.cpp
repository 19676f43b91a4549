#include "geometry/GeometryInternal.h"

#include <new>
#include "geometry/Interp.h"
#include "kernels/Geometry.h"
#include "platform/Exceptions.h"
#include "sibling/QorSys.h"

namespace qorimg::geometry {

void CheckSource(const CLmrImage *src, int planes) { CheckBoundImages({{src, planes}}, LineRect{}); }

bool ResizeLike(CLmrImage &target, const CLmrImage &src, int width, int height, int bProgress) {
  if (width < 1 || height < 1) return false;
  std::shared_ptr<lumora::Progress> sink;
  CString caption;
  if (bProgress) {
    caption.LoadString(6111);
    sink = lumora::ProgressWin::Create(target.GetProgressHandle(), caption, false);
  }
  const int planes = src.GetPlanes();
  // The store shows nothing while it makes a new store: the sink is opened and
  // closed around the allocation here. A size below 1 has shown nothing.
  struct Announce {
    std::shared_ptr<lumora::Progress> sink;
    explicit Announce(std::shared_ptr<lumora::Progress> s) : sink(std::move(s)) {
      if (sink) sink->initialize();
    }
    ~Announce() {
      if (sink) sink->finalize();
    }
  } announce(sink);
  try {
    if (target.IsEmpty() || target.GetPlanes() != planes || target.GetDataType() != CImage::Float32) {
      CLmrImage fresh(src.VmManager(), CImage::Float32, width, height, planes, 1.0, 0.0, 1, sink);
      target.CImage::Swap(fresh);
    } else if (!target.ChangeSize(width, height, sink)) {
      return false;
    }
  } catch (const std::bad_alloc &) {
    return false;
  } catch (const lumora::CVmMemoryAllocationError &) {
    return false;
  }
  for (int p = 0; p < planes; ++p) target.CImage::SetLevel(p, src.GetLevelMin(p), src.GetLevelMax(p));
  return true;
}

void MakeLikeSourceIfEmpty(CLmrImage &target, const CLmrImage *src, int bProgress) {
  if (!target.IsEmpty() || !src) return;
  CheckSource(src, src->GetPlanes());
  if (!ResizeLike(target, *src, src->GetWidth(), src->GetHeight(), bProgress)) AfxThrowMemoryException();
}

RotatePipeline RotatePipelineOf(int nMethod) {
  switch (nMethod) {
    case CInterp::BilinearMethod: return rotate_bilinear_float;
    case CInterp::BicubicMethod: return rotate_bicubic_float;
    case CInterp::Lanczos2Method: return rotate_lanczos2_float;
    case CInterp::Lanczos3Method: return rotate_lanczos3_float;
    case CInterp::NearestMethod: return rotate_nearest_float;
    default: return nullptr;
  }
}

LineScratch::LineScratch(int count) : count_(count), lines_(static_cast<std::size_t>(CParallel::GetMaxThreads())) {}

float *LineScratch::Line() {
  std::vector<float> &line = lines_.at(static_cast<std::size_t>(CParallel::GetThreadNum()));
  if (line.size() < static_cast<std::size_t>(count_)) line.resize(static_cast<std::size_t>(count_));
  return line.data();
}

}  // namespace qorimg::geometry
