// Registration of frames against a reference: the rotation by the
// rotation-invariant phase correlation of the log-polar spectra, then shifts
// by phase correlation on distant power-of-two tiles and a least-squares rigid
// fit of them, repeated on tiles resampled by the fit so far.
#pragma once
#include <memory>
#include <string>
#include "FrameSource.h"

namespace qorimg::workflow {

// A frame's placement: frame(p) = reference(R(-rotation) * (p - c - (dx, dy)) + c), i.e. the frame is the
// reference rotated by `rotationDeg` (counter-clockwise on screen, engine rows top-down) about the image
// centre c = ((w - 1) / 2, (h - 1) / 2) and then shifted by (dx, dy) pixels.
struct Placement {
  double dx = 0, dy = 0, rotationDeg = 0, peak = 0;
  bool ok = true;
  std::string reason;
};

struct PointD {
  double x = 0, y = 0;
};
// Where reference point q lies in a frame of `placement` (w x h pixels), and back.
PointD FramePoint(const Placement& placement, int w, int h, PointD q);
PointD ReferencePoint(const Placement& placement, int w, int h, PointD p);

enum class RegisterMethod { Poc, PocRotation };
struct RegisterOptions {
  RegisterMethod method = RegisterMethod::PocRotation;
  // The tiles' size (each side rounded down to a power of two); 0: chosen from
  // the frames' overlap, at most 256.
  int regionW = 0, regionH = 0;
};

// Measures frames against one reference (the mono luminance of it). Poc
// measures shifts only; PocRotation shifts and rotation.
class Registrar {
 public:
  Registrar(const CLmrImage& reference, const RegisterOptions& options, const std::shared_ptr<CVmManager>& manager);
  ~Registrar();
  Registrar(const Registrar&) = delete;
  Registrar& operator=(const Registrar&) = delete;
  // Thread-compatible: one Registrar may serve many frames. A frame of another
  // size, or one without a clear correlation peak (a blank frame), gives
  // ok = false with the reason.
  Placement Measure(const CLmrImage& frame) const;

 private:
  std::unique_ptr<CLmrImage> reference_;
  RegisterOptions options_;
  std::shared_ptr<CVmManager> manager_;
};

}  // namespace qorimg::workflow
