// The operator runner: bound-image checks, progress, route choice, the plane
// loop with its resume after a failed temporary, and the route log for tests.
#include "core/OperatorRunner.h"

#include <immintrin.h>

#include <mutex>
#include <optional>
#include <new>
#include "core/LineLoops.h"
#include "core/TestHooks.h"
#include "kernels/FrameEdits.h"
#include "kernels/Runtime.h"
#include "sibling/QorSys.h"

namespace qorimg {
namespace {

std::mutex routeLogMutex;
std::vector<testing::RouteRecord> routeLog;

void Record(const testing::RouteRecord &record) {
  std::lock_guard<std::mutex> lock(routeLogMutex);
  // Bounded, so that a program that never reads the log does not grow it.
  if (routeLog.size() < 4096) routeLog.push_back(record);
}

void RunBlock(const OperatorCall &call, const RouteTable &routes, int first, int end) {
  if (routes.planeLoop) {
    for (int p = first; p < end; ++p) routes.planeLoop(p);
    return;
  }
  RunLineLoop(call.target, call.rect, {first, end - first}, routes.line, routes.parallelLines);
}

}  // namespace

void RunLineLoop(CLmrImage &target, const LineRect &rect, PlaneRange planes,
                 const std::function<void(int plane, int y)> &line, bool parallel) {
  if (rect.IsEmpty()) return;
  for (int p = planes.first; p < planes.first + planes.count; ++p) {
    auto body = [&](int y) {
      line(p, y);
      target.ShowProgress(1);
    };
    if (parallel)
      ParallelLines(rect.top, rect.bottom, body);
    else
      ForEachLine(rect.top, rect.bottom, body);
  }
}

std::vector<testing::RouteRecord> testing::TakeRouteLog() {
  std::lock_guard<std::mutex> lock(routeLogMutex);
  std::vector<RouteRecord> taken;
  taken.swap(routeLog);
  return taken;
}

void RunPipelineIntoRect(CLmrImage &target, int plane, const LineRect &rect, bool throughTemporary,
                         const std::function<int(PlaneOutput &)> &run) {
  if (!throughTemporary && rect.IsWhole(target)) {
    auto output = OutputPlane(target, plane);
    kernels::CheckPipeline(run(output));
    return;
  }
  kernels::TemporaryPlane temporary = kernels::AllocateTemporaryPlane(rect.Width(), rect.Height());
  auto output = kernels::RectangleBuffer<float>(temporary.get(), rect.left, rect.top, rect.right, rect.bottom);
  kernels::CheckPipeline(run(output));
  output.set_min(0, 0);
  auto whole = OutputPlane(target, plane);
  kernels::CheckPipeline(paste_float(output, rect.left, rect.right, rect.top, rect.bottom, 0, 0, whole));
}

Route RunOperator(const OperatorCall &call, std::initializer_list<BoundImage> bound, const RouteTable &routes) {
  CheckBoundImages(bound, call.rect);

  const bool hasPipeline = routes.pipeline || routes.pipelineCall || routes.fastRoutesSkip;
  const bool hasVector = static_cast<bool>(routes.vector) || routes.fastRoutesSkip;
  bool wholePlane = true;
  for (const BoundImage &b : bound)
    if (!IsWholePlane(*b.image)) wholePlane = false;
  const bool vectorAllowed = hasVector && (CQorSys::SIMD() & 2);
  const Route route = wholePlane && hasPipeline ? Route::Plane : vectorAllowed ? Route::Vector : Route::Block;
  testing::RouteRecord record{route, hasVector, hasPipeline, -1};
  std::optional<ProgressFrame> progress;
  if (call.idMessage != 0 && !(route == Route::Plane && routes.pipelineWithoutProgress))
    progress.emplace(call.target, call.bProgress, call.idMessage, call.progressTotal);
  const int first = call.planes.first, end = call.planes.first + call.planes.count;

  if (routes.fastRoutesSkip && route != Route::Block) {
    Record(record);
    return route;
  }
  switch (route) {
    case Route::Plane: {
      int p = first;
      try {
        for (; p < end; ++p) {
          if (routes.pipelineCall)
            kernels::CheckPipeline(routes.pipelineCall(p));
          else if (!call.rect.IsEmpty())
            RunPipelineIntoRect(call.target, p, call.rect, routes.pipelineThroughTemporary,
                                [&](PlaneOutput &output) { return routes.pipeline(p, output); });
        }
      } catch (const std::bad_alloc &) {
        // A temporary could not be had for plane p; it and the planes after it
        // take the line loop. Nothing of plane p was written.
        record.resumedAtPlane = p;
        Record(record);
        RunBlock(call, routes, p, end);
        return route;
      }
      break;
    }
    case Route::Vector:
      RunLineLoop(call.target, call.rect, call.planes, routes.vector, true);
      // Non-temporal stores are weakly ordered: fence them before the caller reads.
      _mm_sfence();
      break;
    case Route::Block: RunBlock(call, routes, first, end); break;
  }
  Record(record);
  return route;
}

}  // namespace qorimg
