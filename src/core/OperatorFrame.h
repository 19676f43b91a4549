// The frame that every operator's Do shares: the rectangle clipped by a named
// policy, the bound images checked before anything is written, progress opened
// and closed around the work, and the choice of route. OperatorRunner.h runs an
// operator's routes inside this frame.
#pragma once
#include <algorithm>
#include <initializer_list>
#include "core/LmrImage.h"

namespace qorimg {

// A rectangle clipped into an image. Its edges lie in [0, Width] and [0, Height],
// so Width() and Height() never overflow; an inverted rectangle stays inverted
// and loops over it run zero times.
struct LineRect {
  int left = 0, top = 0, right = 0, bottom = 0;
  int Width() const { return right - left; }
  int Height() const { return bottom - top; }
  bool IsEmpty() const { return right <= left || bottom <= top; }
  bool IsWhole(const CImage &image) const {
    return left == 0 && top == 0 && right == image.GetWidth() && bottom == image.GetHeight();
  }
};

// How an operator clips its rectangle (null always means the whole image).
enum class Clip {
  // Every edge clamped into the image (CLmrImage::NormalizeRect).
  Normalized,
  // The statistics members: left and top at least 0, right and bottom at most
  // the image; an inverted result is made empty (right = left, bottom = top),
  // so that its size is 0 and every route leaves its result empty. Edges
  // beyond the other side are clamped too, which changes no loop.
  OneSided,
};

LineRect ClipRect(const CLmrImage &image, const CRect *rect, Clip policy = Clip::Normalized);

// Opens the progress display with the operator's message and closes it when the
// operator is done, on every path. With bProgress 0 nothing is sent at all.
class ProgressFrame {
public:
  ProgressFrame(CLmrImage &target, int bProgress, int idMessage, int total) : target_(target), on_(bProgress) {
    target_.ShowProgressInit(bProgress, idMessage, total);
  }
  ~ProgressFrame() {
    if (on_) target_.ShowProgressEnd(static_cast<const wchar_t *>(nullptr));
  }
  ProgressFrame(const ProgressFrame &) = delete;
  ProgressFrame &operator=(const ProgressFrame &) = delete;

private:
  CLmrImage &target_;
  int on_;
};

// The three routes of an operator.
enum class Route { Plane, Vector, Block };

// True when the image's planes are contiguous (non-zero policy) and the block
// route is not forced by a test.
bool IsWholePlane(const CImage &image);
// The composites ask for policy exactly 1.
bool IsExactlyWholePlane(const CImage &image);

// Pipeline when every bound image is whole-plane, else the vector variant when
// the operator has one and the processor allows it, else the plain loop.
Route ChooseRoute(bool hasVector, std::initializer_list<const CImage *> bound);

// An image an operator reads or writes: it must exist, hold 32-bit float
// samples, cover the clipped rectangle, and have `planes` planes at least.
struct BoundImage {
  const CImage *image;
  int planes;
};

// True when every bound image passes. Coverage is asked only of a non-empty
// rectangle: an empty one reads nothing.
bool BoundImagesFit(std::initializer_list<BoundImage> bound, const LineRect &rect);
// Raises the invalid-argument exception (CInvalidArgException) unless they pass.
void CheckBoundImages(std::initializer_list<BoundImage> bound, const LineRect &rect);

}  // namespace qorimg
