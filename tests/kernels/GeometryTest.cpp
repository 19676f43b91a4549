// The stacking shifts and the rotation mask against plain references, on the
// odd sizes. Shifts are binary fractions, so positions and inside tests are
// exact in float; the bicubic sum is float arithmetic (tolerance relative to
// the sum of the absolute tap contributions). Rotated positions are float
// arithmetic too: the mask is compared where the position is clear of an edge
// by 1e-3, and matched exactly against the rotated plane's outside samples.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>

#include "KernelTestSupport.h"
#include "kernels/Geometry.h"

namespace qorimg::kernels::test {
namespace {

struct Shift {
  double x, y;
};
const Shift kIntShifts[] = {{0, 0}, {3, -2}, {-5, 4}, {40, 0}, {0, -9}, {-1, 37}};
const Shift kFloatShifts[] = {{0.5, 0}, {-1.25, 2.75}, {3.5, -0.25}, {0, 0}, {-36.5, 4.5}, {2, -1}};

bool Inside(double px, double py, int width, int height) { return px >= 0 && py >= 0 && px < width && py < height; }

double Keys(double t) {
  t = std::fabs(t);
  return t <= 1 ? 1.5 * t * t * t - 2.5 * t * t + 1 : t < 2 ? -0.5 * t * t * t + 2.5 * t * t - 4 * t + 2 : 0;
}

TEST(KernelGeometry, IntegerShiftMovesSamplesAndFillsOutside) {
  for (PlaneSize size : kOddSizes) {
    const Plane input = SamplePlane(size.width, size.height, 21);
    for (Shift s : kIntShifts) {
      Plane output(size.width + 2, size.height + 1), expected(size.width + 2, size.height + 1);
      const int sx = int(s.x), sy = int(s.y);
      for (int y = 0; y < expected.height; ++y)
        for (int x = 0; x < expected.width; ++x)
          expected.at(x, y) = Inside(x - sx, y - sy, size.width, size.height) ? input.at(x - sx, y - sy) : -3.5f;
      ASSERT_EQ(translate_intshift_float(input.input(), sx, sy, -3.5f, output.buffer()), 0);
      EXPECT_TRUE(SameSamples(output, expected)) << size.width << "x" << size.height << " by " << sx << "," << sy;
    }
  }
}

TEST(KernelGeometry, FloatShiftIsTheClampedBicubicSample) {
  for (PlaneSize size : kOddSizes) {
    Plane input(size.width, size.height);
    for (int y = 0; y < size.height; ++y)
      for (int x = 0; x < size.width; ++x) input.at(x, y) = float(std::sin(x * 0.7) * 100 + y * 3 - (x * y) % 5);
    for (Shift s : kFloatShifts) {
      Plane output(size.width, size.height);
      ASSERT_EQ(translate_floatshift_bicubic_float(input.input(), float(s.x), float(s.y), -1.0f, output.buffer()), 0);
      for (int y = 0; y < size.height; ++y)
        for (int x = 0; x < size.width; ++x) {
          const double px = x - s.x, py = y - s.y;
          double sum = -1.0, scale = 1.0;
          if (Inside(px, py, size.width, size.height)) {
            const int ix = int(px), iy = int(py);
            sum = 0.0;
            for (int j = -1; j <= 2; ++j)
              for (int i = -1; i <= 2; ++i) {
                const double term = Keys(px - ix - i) * Keys(py - iy - j) *
                                    input.at(std::clamp(ix + i, 0, size.width - 1), std::clamp(iy + j, 0, size.height - 1));
                sum += term, scale += std::fabs(term);
              }
          }
          ASSERT_NEAR(output.at(x, y), sum, 1e-5 * scale) << x << "," << y << " of " << size.width << "x" << size.height;
        }
    }
  }
}

TEST(KernelGeometry, ShiftMasksMarkInsidePositions) {
  for (PlaneSize size : kOddSizes) {
    for (bool integer : {true, false}) {
      const auto &shifts = integer ? kIntShifts : kFloatShifts;
      for (Shift s : shifts) {
        Grid<std::int32_t> mask(size.width + 3, size.height + 2, 7), expected(size.width + 3, size.height + 2);
        for (int y = 0; y < expected.height; ++y)
          for (int x = 0; x < expected.width; ++x) expected.at(x, y) = Inside(x - s.x, y - s.y, size.width, size.height);
        const int status = integer ? translate_intshift_mask(size.width, size.height, int(s.x), int(s.y), mask.buffer())
                                   : translate_floatshift_mask(size.width, size.height, float(s.x), float(s.y), mask.buffer());
        ASSERT_EQ(status, 0);
        EXPECT_EQ(mask.samples, expected.samples) << size.width << "x" << size.height << " by " << s.x << "," << s.y;
      }
    }
  }
}

TEST(KernelGeometry, RotateMaskMarksTheTurnedPlane) {
  const struct {
    float shiftX, shiftY, degrees;
  } turns[] = {{0, 0, 30}, {-3.5f, 2, -75}, {4, -6.25f, 180}, {0.5f, 0.5f, 90}, {0, 0, 0}};
  const float nan = std::numeric_limits<float>::quiet_NaN();
  int compared = 0, total = 0;
  for (PlaneSize size : kOddSizes) {
    Plane input(size.width, size.height, 1.0f);
    for (const auto &t : turns) {
      const double c = std::cos(t.degrees * M_PI / 180), s = std::sin(t.degrees * M_PI / 180);
      const double cx = size.width * 0.5, cy = size.height * 0.5;
      const int w = size.width + 4, h = size.height + 2;
      Grid<std::int32_t> mask(w, h);
      Plane turned(w, h);
      ASSERT_EQ(rotate_mask(size.width, size.height, t.shiftX, t.shiftY, float(cx), float(cy), float(c), float(s),
                            mask.buffer()),
                0);
      ASSERT_EQ(rotate_bilinear_float(input.input(), t.shiftX, t.shiftY, float(cx), float(cy), float(c), float(s), nan,
                                      turned.buffer()),
                0);
      total += w * h;
      for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) {
          ASSERT_EQ(mask.at(x, y), std::isnan(turned.at(x, y)) ? 0 : 1) << x << "," << y;
          const double u = x + t.shiftX - cx, v = cy - (y + t.shiftY);
          const double px = c * u - s * v + cx, py = cy - (s * u + c * v);
          const double margin = std::min({std::fabs(px), std::fabs(py), std::fabs(px - size.width), std::fabs(py - size.height)});
          if (margin < 1e-3) continue;
          ++compared;
          EXPECT_EQ(mask.at(x, y), Inside(px, py, size.width, size.height) ? 1 : 0) << x << "," << y;
        }
    }
  }
  EXPECT_GT(compared, total / 2);  // positions on an edge are few
}

}  // namespace
}  // namespace qorimg::kernels::test
