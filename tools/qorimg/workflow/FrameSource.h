// Frames as the workflow reads them: one frame band by band (a FITS file, an
// image in memory), with progress and cancellation for each step, and the
// choices the steps share.
#pragma once
#include <algorithm>
#include <cstddef>
#include <exception>
#include <functional>
#include <string>
#include <utility>
#include "core/LmrImage.h"

namespace qorimg::workflow {

// One frame, read band by band.
class FrameSource {
 public:
  virtual ~FrameSource() = default;
  virtual int Width() const = 0;
  virtual int Height() const = 0;
  virtual int Planes() const = 0;
  virtual double Exposure() const { return 0; }  // seconds, 0 = unknown
  virtual std::string Name() const = 0;          // for messages
  // Rows [top, top + rows), engine order (row 0 at the top), plane after plane
  // into dst (planes * rows * width floats).
  virtual void ReadRows(int top, int rows, float* dst) = 0;
};

// A frame already in memory (tests, Python).
class ImageSource : public FrameSource {
 public:
  explicit ImageSource(const CLmrImage& image, double exposure = 0, std::string name = "image")
      : image_(image), exposure_(exposure), name_(std::move(name)) {}
  int Width() const override { return image_.GetWidth(); }
  int Height() const override { return image_.GetHeight(); }
  int Planes() const override { return image_.GetPlanes(); }
  double Exposure() const override { return exposure_; }
  std::string Name() const override { return name_; }
  void ReadRows(int top, int rows, float* dst) override {
    const std::size_t w = static_cast<std::size_t>(Width());
    for (int p = 0; p < Planes(); ++p)
      for (int r = 0; r < rows; ++r) {
        const float* line = image_.GetImageAdr(0, top + r, p, CImage::ReadOnly);
        std::copy(line, line + w, dst + (static_cast<std::size_t>(p) * rows + r) * w);
      }
  }

 private:
  const CLmrImage& image_;
  double exposure_;
  std::string name_;
};

// Progress and cancellation for one step.
struct Control {
  std::function<void(int item, int count, double fraction)> progress;  // may be empty
  std::function<bool()> cancelled;                                      // may be empty
};
// Thrown between frames and bands when cancelled() says so.
class Cancelled : public std::exception {
 public:
  const char* what() const noexcept override { return "cancelled"; }
};

enum class Combine { Auto, Median, Sigma, Mean, Min, Max };
enum class Normalization { None, Add, Mul, AddScale };
enum class Interpolation { Bilinear, Bicubic, Lanczos3 };
enum class MasterKind { Bias, Dark, Flat };

}  // namespace qorimg::workflow
