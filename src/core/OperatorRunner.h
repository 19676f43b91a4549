// The one runner of every operator. An operator states what it binds, how it
// clips, what progress it shows, and which functions make up its routes; the
// runner checks the bound images, opens and closes progress, chooses the route,
// runs the planes, resumes a plane whose pipeline temporary could not be had on
// the line loop, raises a pipeline's error status, and records the route taken.
//
//   OperatorCall call{*this, bProgress, 6109, rect.Height() * GetPlanes(), rect, {0, GetPlanes()}};
//   RouteTable routes;
//   routes.line = [&](int p, int y) { ... one line of plane p ... };
//   routes.pipeline = [&](int p, PlaneOutput &out) { return add_scalar_float(InputPlane(*pSrc, p), v, out); };
//   RunOperator(call, {{this, GetPlanes()}, {pSrc, GetPlanes()}}, routes);
#pragma once
#include <functional>
#include <initializer_list>
#include "core/OperatorFrame.h"
#include "core/PlaneBinding.h"

namespace qorimg {

using PlaneOutput = kernels::KernelBuffer<float, 2>;

struct RouteTable {
  // The plain loop: one line y of plane p over the rectangle. Required unless
  // planeLoop is given. The runner calls ShowProgress(1) after each line.
  std::function<void(int plane, int y)> line;
  // Lines of a plane in parallel (static schedule) rather than in order.
  bool parallelLines = false;
  // The vector variant of `line`, run in parallel; the runner fences the
  // non-temporal stores after the last plane. Optional.
  std::function<void(int plane, int y)> vector;
  // A block route that walks a plane in its own order (a sample pattern, a
  // reduction) and reports its own progress; used in place of `line`.
  std::function<void(int plane)> planeLoop;

  // The kernel pipeline of a plane, writing the rectangle of `output` (mins at
  // the rectangle's corner, so inputs are read at image coordinates). The
  // output is the target plane itself for the whole image, else a temporary
  // pasted on the rectangle afterwards. Returns the pipeline's status.
  std::function<int(int plane, PlaneOutput &output)> pipeline;
  // Always through a temporary, also for the whole image (pipelines that must
  // not write the plane they read).
  bool pipelineThroughTemporary = false;
  // The pipeline route shows no progress at all, not even the opening text.
  bool pipelineWithoutProgress = false;
  // A pipeline that binds its own outputs (a histogram, a bitmap); returns its
  // status. Used in place of `pipeline`.
  std::function<int(int plane)> pipelineCall;

  // The vector and pipeline routes do nothing at all for this call (an
  // operation that those routes leave undone, where the plain loop copies).
  bool fastRoutesSkip = false;
};

struct PlaneRange {
  int first = 0;
  int count = 0;
};

struct OperatorCall {
  // The image that receives the result, and the progress messages.
  CLmrImage &target;
  int bProgress;
  // The operator's progress message; 0 for operators that show no progress,
  // whose target's progress state is then not touched at all.
  int idMessage;
  int progressTotal;
  LineRect rect;
  PlaneRange planes;
};

// Checks the bound images (the invalid-argument exception, before anything is
// written or progress opened), then runs the routes. Returns the route chosen.
Route RunOperator(const OperatorCall &call, std::initializer_list<BoundImage> bound, const RouteTable &routes);

// The line loop alone: line(p, y) for every line of `rect` in each plane of
// `planes`, ShowProgress(1) after each line; in parallel or in order.
void RunLineLoop(CLmrImage &target, const LineRect &rect, PlaneRange planes,
                 const std::function<void(int plane, int y)> &line, bool parallel);

// Runs a pipeline so that its output lands on `rect` of the target plane: the
// plane itself for the whole image (unless throughTemporary), else a
// temporary of the rectangle pasted in place. Raises a pipeline's error status;
// throws std::bad_alloc when the temporary cannot be had, before anything is
// written.
void RunPipelineIntoRect(CLmrImage &target, int plane, const LineRect &rect, bool throughTemporary,
                         const std::function<int(PlaneOutput &)> &run);

}  // namespace qorimg
