// What the geometry tests share: double-precision reference samplers, the
// reference images, and .npy output for the Python cross-checks.
#pragma once
#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <memory>
#include <type_traits>
#include <cstdint>
#include <fstream>
#include <numbers>
#include <string>
#include <vector>
#include <functional>
#include "core/LmrImage.h"
#include "platform/Exceptions.h"
#include "support/Fixtures.h"

namespace qorimg::test {

// Reference kernels in double, written from their formulas.
inline double KeysKernel(double t, double a) {
  t = std::fabs(t);
  if (t <= 1) return (a + 2) * t * t * t - (a + 3) * t * t + 1;
  if (t < 2) return a * t * t * t - 5 * a * t * t + 8 * a * t - 4 * a;
  return 0;
}
inline double Sinc(double t) { return t == 0 ? 1.0 : std::sin(std::numbers::pi * t) / (std::numbers::pi * t); }
inline double LanczosKernel(double t, int n) { return std::fabs(t) > n ? 0.0 : Sinc(t) * Sinc(t / n); }

// Separable sum over `taps` taps from offset 1 - taps / 2 (0 for two taps), each
// coordinate clamped into the image, weights as given, not normalised.
template <class Weight>
double SeparableSample(const CLmrImage &image, int plane, double x, double y, int taps, Weight weight) {
  const int ix = static_cast<int>(std::floor(x)), iy = static_cast<int>(std::floor(y));
  const int first = taps == 2 ? 0 : 1 - taps / 2;
  double sum = 0;
  for (int j = first; j < first + taps; ++j)
    for (int i = first; i < first + taps; ++i) {
      const int cx = std::clamp(ix + i, 0, image.GetWidth() - 1), cy = std::clamp(iy + j, 0, image.GetHeight() - 1);
      sum += weight(x - ix - i) * weight(y - iy - j) * image.GetPixelGrayRaw(cx, cy, plane);
    }
  return sum;
}

// The reference sample of method 0..4 at (x, y).
inline double ReferenceSample(const CLmrImage &image, int method, int plane, double x, double y) {
  switch (method) {
    case 0: return SeparableSample(image, plane, x, y, 2, [](double t) { return 1 - std::fabs(t); });
    case 1: return SeparableSample(image, plane, x, y, 4, [](double t) { return KeysKernel(t, -0.5); });
    case 2: return SeparableSample(image, plane, x, y, 4, [](double t) { return LanczosKernel(t, 2); });
    case 3: return SeparableSample(image, plane, x, y, 6, [](double t) { return LanczosKernel(t, 3); });
    default: {
      const int cx = std::clamp(static_cast<int>(x + 0.5), 0, image.GetWidth() - 1);
      const int cy = std::clamp(static_cast<int>(y + 0.5), 0, image.GetHeight() - 1);
      return image.GetPixelGrayRaw(cx, cy, plane);
    }
  }
}

// Writes a C-ordered float32 or int32 array as .npy (version 1.0).
template <typename T>
void WriteNpy(const std::string &path, const std::vector<T> &data, const std::vector<int> &shape) {
  static_assert(sizeof(T) == 4, "float32 or int32");
  std::string dims;
  for (int d : shape) dims += std::to_string(d) + ",";
  std::string header = std::string("{'descr': '<") + (std::is_floating_point_v<T> ? "f4" : "i4") +
                       "', 'fortran_order': False, 'shape': (" + dims + "), }";
  header.append(63 - (10 + header.size()) % 64, ' ');
  header += '\n';
  std::ofstream out(path, std::ios::binary);
  out.write("\x93NUMPY\x01\x00", 8);
  const std::uint16_t length = static_cast<std::uint16_t>(header.size());
  out.write(reinterpret_cast<const char *>(&length), 2);
  out << header;
  out.write(reinterpret_cast<const char *>(data.data()), static_cast<std::streamsize>(data.size() * sizeof(T)));
}

// The directory the Python cross-checks read (set by CTest), or empty.
inline std::string CrossCheckDir() {
  const char *dir = std::getenv("QORIMG_CROSSCHECK_DIR");
  return dir ? dir : "";
}

// The green plane of the reference picture of deep sky as a mono float image
// (0..255), cropped to width x height; null when the picture is not installed.
std::unique_ptr<CLmrImage> HubbleGreen(const std::shared_ptr<CVmManager> &manager, int width, int height);

// ExpectRejectsBadSources for an operator class: the operator runs as an
// object of its own made like the fixture's target, with its progress window.
template <class Op>
void RejectsBadSources(const std::shared_ptr<CVmManager> &manager, int width, int height, int planes,
                       const std::function<void(Op &, CLmrImage *)> &call) {
  ExpectRejectsBadSources(manager, width, height, planes, [&](CLmrImage *src, CLmrImage &target) {
    Op op;
    op.Create(target, nullptr);
    op.SetProgressHandle(target.GetProgressHandle());
    call(op, src);
  });
}

// For the operators that size their target from the source: a null source and
// one of 16-bit samples raise the invalid-argument exception and open no progress.
template <class Op>
void RejectsNullAndNonFloat(const std::shared_ptr<CVmManager> &manager, const std::function<void(Op &, CLmrImage *)> &call) {
  CLmrImage int16(manager, CImage::Int16, 8, 6, 1, 1.0, 0.0, 1, nullptr);
  for (CLmrImage *bad : {static_cast<CLmrImage *>(nullptr), &int16}) {
    MessageRecorder recorder;
    Op op;
    op.SetProgressHandle(recorder.Window());
    EXPECT_THROW(call(op, bad), CInvalidArgException *);
    EXPECT_TRUE(recorder.entries.empty());
    EXPECT_TRUE(op.IsEmpty());
  }
}

}  // namespace qorimg::test
