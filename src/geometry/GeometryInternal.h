// What the geometry operators share: the checks of a source that may differ in
// size from the target, the target's new size, the copy of a source that is the
// target itself, and per-thread line scratch.
#pragma once
#include <memory>
#include <vector>
#include <HalideRuntime.h>
#include "core/LmrImage.h"
#include "core/OperatorFrame.h"

namespace qorimg::geometry {

// The invalid-argument exception unless `src` exists, holds float samples and
// has `planes` planes at least. Its size is not asked: the operators that call
// this make the target's size from it.
void CheckSource(const CLmrImage *src, int planes);

// Gives `target` the size width x height, and src's planes and levels, showing
// message 6111 through the store's progress when bProgress is set. An empty
// target, or one of other planes, is made anew on src's store. False, with the
// target unchanged and no progress shown, when a size is below 1 or the memory
// cannot be had.
bool ResizeLike(CLmrImage &target, const CLmrImage &src, int width, int height, int bProgress);

// The operators that assume equal sizes give an empty target src's size first
// (the memory exception when it cannot be had).
void MakeLikeSourceIfEmpty(CLmrImage &target, const CLmrImage *src, int bProgress);

// The source an operator reads: `src` itself, or a copy of it when it is the
// target, so that the result is that of a separate source.
class SourceOf {
public:
  SourceOf(CLmrImage *src, const CLmrImage &target) : image_(src) {
    if (src == &target) {
      copy_ = src->Clone();
      image_ = copy_.get();
    }
  }
  CLmrImage *get() const { return image_; }
  CLmrImage *operator->() const { return image_; }
  CLmrImage &operator*() const { return *image_; }

private:
  std::unique_ptr<CLmrImage> copy_;
  CLmrImage *image_;
};

// The rotate pipeline of an interpolation method (kernels/Geometry.h); null
// for an unknown method.
using RotatePipeline = int (*)(halide_buffer_t *, float, float, float, float, float, float, float, halide_buffer_t *);
RotatePipeline RotatePipelineOf(int nMethod);

// One line of `count` floats for each thread of the parallel loops.
class LineScratch {
public:
  explicit LineScratch(int count);
  float *Line();

private:
  int count_;
  std::vector<std::vector<float>> lines_;
};

}  // namespace qorimg::geometry
