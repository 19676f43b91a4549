// Shared by the restoration tests: operators made from fixture images, a
// blurred star field, star widths, and the progress and message-box capture.
#pragma once
#include <algorithm>
#include <cmath>
#include <fstream>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "platform/Diagnostics.h"
#include "platform/Messages.h"
#include "platform/StringResources.h"
#include "support/Fixtures.h"

namespace qorimg::test {

// An operator of type Op holding `image`'s pixels (the image is left empty).
template <class Op>
std::unique_ptr<Op> AsOperator(std::unique_ptr<CLmrImage> image) {
  auto op = std::make_unique<Op>();
  op->Swap(image.get());
  return op;
}

// Route tests of operator Op: Make builds one from a fixture image on the case's
// store, OnBlockStore the same on the plain block store (for route agreement).
template <class Op>
class OperatorRouteTest : public RouteTest {
protected:
  std::unique_ptr<Op> Make(int w, int h, int planes, const PixelFunction &fill = nullptr) {
    return AsOperator<Op>(MakeImage(w, h, planes, fill));
  }
  static std::unique_ptr<Op> OnBlockStore(int w, int h, int planes, const PixelFunction &fill = nullptr) {
    return AsOperator<Op>(test::MakeImage(MakeManager(StoreKind::Block), w, h, planes, fill));
  }
};

// Largest |got - want| over the largest |want|.
template <class T>
double RelativeWorst(const std::vector<float> &got, const std::vector<T> &want) {
  double largest = 0, worst = 0;
  for (std::size_t i = 0; i < want.size(); ++i) {
    largest = std::max(largest, std::fabs(double(want[i])));
    worst = std::max(worst, std::fabs(got[i] - double(want[i])));
  }
  return worst / largest;
}

struct Star {
  double x, y, sigma, flux;
};
inline const std::vector<Star> &TestStars() {
  static const std::vector<Star> stars = {{20.3, 22.1, 1.2, 4000}, {45.0, 18.6, 1.0, 2500}, {30.4, 47.2, 1.5, 6000},
                                          {52.7, 50.1, 1.1, 3000}, {12.5, 55.5, 1.3, 3500}};
  return stars;
}
// Background plus Gaussian stars whose widths are sqrt(sigma^2 + blur^2):
// the field blurred by a Gaussian of sigma `blur`, analytically.
inline float StarField(int x, int y, double background, double blur, const std::vector<Star> &stars = TestStars()) {
  double v = background;
  for (const Star &s : stars) {
    const double s2 = s.sigma * s.sigma + blur * blur;
    v += s.flux / (2 * M_PI * s2) * std::exp(-((x - s.x) * (x - s.x) + (y - s.y) * (y - s.y)) / (2 * s2));
  }
  return static_cast<float>(v);
}

// FWHM of the star about (cx, cy) from the second moments of its pixels
// above the background, in a box of half-size `radius`; also its centroid.
struct StarShape {
  double fwhm, x, y, peak;
};
inline StarShape MeasureStar(const std::vector<float> &plane, int w, double cx, double cy, double background,
                             int radius) {
  double s = 0, sx = 0, sy = 0, sxx = 0, peak = -1e30;
  for (int y = int(cy) - radius; y <= int(cy) + radius; ++y)
    for (int x = int(cx) - radius; x <= int(cx) + radius; ++x) {
      const double v = plane[static_cast<std::size_t>(y) * w + x] - background;
      peak = std::max(peak, v + background);
      if (v <= 0) continue;
      s += v;
      sx += v * x;
      sy += v * y;
    }
  const double mx = sx / s, my = sy / s;
  for (int y = int(cy) - radius; y <= int(cy) + radius; ++y)
    for (int x = int(cx) - radius; x <= int(cx) + radius; ++x) {
      const double v = plane[static_cast<std::size_t>(y) * w + x] - background;
      if (v > 0) sxx += v * ((x - mx) * (x - mx) + (y - my) * (y - my));
    }
  return {2.3548 * std::sqrt(sxx / s / 2), mx, my, peak};
}

// Progress messages and message boxes, recorded; at the end the thread's queue
// is drained, so that an ESC posted by `escapeOn` reaches no later test.
class RestoreCapture : public MessageRecorder {
public:
  RestoreCapture() {
    qorimg::SetMessageBoxCallback([this](const wchar_t *text, UINT) {
      boxes.push_back(text ? text : L"");
      return IDOK;
    });
  }
  ~RestoreCapture() {
    qorimg::SetMessageBoxCallback(nullptr);
    MSG msg;
    while (PeekMessageW(&msg, nullptr, 0, 0, PM_REMOVE)) {
    }
  }
  std::vector<std::wstring> boxes;
};

// Raw arrays exchanged with the Python references.
template <class T>
std::vector<T> ReadRaw(const std::string &path, std::size_t n) {
  std::vector<T> v(n);
  std::ifstream in(path, std::ios::binary);
  in.read(reinterpret_cast<char *>(v.data()), static_cast<std::streamsize>(n * sizeof(T)));
  EXPECT_TRUE(in.good()) << path;
  return v;
}
template <class T>
void WriteRaw(const std::string &path, const T *data, std::size_t n) {
  std::ofstream(path, std::ios::binary)
      .write(reinterpret_cast<const char *>(data), static_cast<std::streamsize>(n * sizeof(T)));
}

inline std::wstring Resource(int id) { return FindStringResource(static_cast<UINT>(id)); }

}  // namespace qorimg::test
