// What the calibration operators share: which plane of a calibration frame
// serves a plane of the image, and rows fetched under a lock.
#pragma once
#include "core/LmrImage.h"

namespace qorimg::calibrate {

// A mono calibration frame serves every plane; a colour one serves plane c.
inline int FramePlane(const CImage &frame, int c) { return frame.GetDimension() > 2 ? c : 0; }
// The planes a frame must have to serve `planes` planes of the image (a null
// frame is left to the bound-image check).
inline int FramePlanesRead(const CImage *frame, int planes) {
  return frame && frame->GetDimension() > 2 ? planes : 1;
}

// The zero of the flat's power curve, one flat span below its minimum, in
// single precision.
inline float FlatGm0(float fMin, float fMax) { return fMax - 2.0f * (fMax - fMin); }

// One row of a block-stored frame, locked while it is in use: several workers
// may page the same frame.
class LockedRow {
public:
  LockedRow(const CLmrImage &image, int x, int y, int plane, CImage::Mode mode)
      : image_(image), row_(image.GetImageAdr(x, y, plane, static_cast<CImage::Mode>(mode | CImage::WriteLock),
                                              &handle_)) {}
  ~LockedRow() { image_.Unlock(handle_); }
  LockedRow(const LockedRow &) = delete;
  LockedRow &operator=(const LockedRow &) = delete;
  float *get() const { return row_; }
  float &operator[](int x) const { return row_[x]; }

private:
  const CLmrImage &image_;
  CVmImage::AddressHandle handle_ = -1;
  float *row_;
};

}  // namespace qorimg::calibrate
