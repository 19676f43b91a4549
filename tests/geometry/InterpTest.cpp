// CInterp: names, kernels, the five methods against double-precision
// references, the edge rules, the line and pixel readers, and the line table on
// both stores.
#include "geometry/Interp.h"

#include <cmath>
#include <limits>
#include <random>
#include <thread>
#include "GeometrySupport.h"
#include "support/Fixtures.h"

namespace qorimg::test {
namespace {

class Probe : public CInterp {
public:
  using CInterp::CInterp;
  using CInterp::Calc;
  using CInterp::KernelBicubic;
  using CInterp::KernelLanczos;
};

TEST(InterpNames, EnglishAndDisplayNamesAndLookup) {
  EXPECT_EQ(CInterp::GetEngString(0), L"Bilinear");
  EXPECT_EQ(CInterp::GetEngString(4), L"NearestNeighbor");
  EXPECT_TRUE(CInterp::GetEngString(5).IsEmpty());
  EXPECT_TRUE(CInterp::GetEngString(-1).IsEmpty());
  EXPECT_EQ(CInterp::GetString(2), L"ランチョス2(4x4)");
  CString bicubic(L"bicubic"), lanczos(L"LANCZOS3"), spline(L"Spline");
  EXPECT_EQ(CInterp::GetMethod(bicubic), 1);
  EXPECT_EQ(CInterp::GetMethod(lanczos), 3);
  EXPECT_EQ(CInterp::GetMethod(spline), -1);
}

TEST(InterpKernels, ValuesAtTheKnotsAndAnUnnormalisedSum) {
  Probe probe(1);
  EXPECT_EQ(probe.KernelBicubic(0, -0.5), 1.0);
  EXPECT_EQ(probe.KernelBicubic(1, -0.5), 0.0);
  EXPECT_EQ(probe.KernelBicubic(2, -0.5), 0.0);
  EXPECT_DOUBLE_EQ(probe.KernelBicubic(-1.5, -0.5), KeysKernel(1.5, -0.5));
  EXPECT_EQ(probe.KernelLanczos(0, 3), 1.0);
  EXPECT_EQ(probe.KernelLanczos(3.5, 3), 0.0);
  EXPECT_NEAR(probe.KernelLanczos(0.7, 2), LanczosKernel(0.7, 2), 1e-15);
  double wy[2] = {0.25, 0.75}, wx[2] = {2.0, 4.0};
  float samples[4] = {1, 2, 3, 4};
  EXPECT_EQ(probe.Calc(wy, samples, wx, 2), static_cast<float>(0.25 * 10 + 0.75 * 22));
}

class InterpTest : public RouteTest {};
QORIMG_ALL_ROUTES(InterpTest);

// Every method at random positions over [0, W] x [0, H], far edge included,
// against the reference in double; the result is rounded to float once.
TEST_P(InterpTest, MethodsMatchDoubleReference) {
  auto image = MakeImage(23, 17, 2);
  std::mt19937 random(7);
  std::uniform_real_distribution<double> ux(0.0, 23.0), uy(0.0, 17.0);
  for (int method = 0; method < 5; ++method) {
    CInterp interp(method, image.get(), 0);
    for (int i = 0; i < 300; ++i) {
      const double x = i == 0 ? 23.0 : ux(random), y = i == 0 ? 17.0 : uy(random);
      const double reference = ReferenceSample(*image, method, 1, x, y);
      EXPECT_NEAR(interp.Do(x, y, 1), reference, 2e-4) << CInterp::GetEngString(method).ToUtf8() << " " << x << "," << y;
    }
  }
}

// Keys' cubic with a = -0.5 reproduces a quadratic exactly away from the edges;
// Lanczos weights are not renormalised, so a flat plane changes between pixels.
TEST_P(InterpTest, BicubicIsExactOnQuadraticsAndLanczosIsNotNormalised) {
  auto quadratic = MakeImage(20, 20, 1, [](int x, int y, int) { return float(x * x + 2 * y * y + 3 * x * y); });
  CInterp bicubic(1, quadratic.get(), 0);
  for (double x = 2.0; x < 17.0; x += 1.37)
    for (double y = 2.0; y < 17.0; y += 1.61)
      EXPECT_NEAR(bicubic.Do(x, y, 0), x * x + 2 * y * y + 3 * x * y, 1e-3) << x << "," << y;

  auto flat = MakeImage(12, 12, 1, [](int, int, int) { return 100.0f; });
  for (int method : {2, 3}) {
    CInterp lanczos(method, flat.get(), 0);
    const int n = method == 2 ? 2 : 3;
    double sum = 0;
    for (int k = 1 - n; k <= n; ++k) sum += LanczosKernel(0.5 - k, n);
    EXPECT_NEAR(lanczos.Do(5.5, 5.5, 0), 100.0 * sum * sum, 1e-3);
    EXPECT_NE(lanczos.Do(5.5, 5.5, 0), 100.0f);
    EXPECT_EQ(lanczos.Do(5.0, 5.0, 0), 100.0f);
  }
}

TEST_P(InterpTest, EdgesNaNMissingPlanesAndUnknownMethods) {
  auto image = MakeImage(9, 7, 1);
  const float last = image->GetPixelGrayRaw(8, 3, 0);
  for (int method = 0; method < 4; ++method) {
    CInterp interp(method, image.get(), 0);
    EXPECT_FLOAT_EQ(interp.Do(9.0, 3.0, 0), last) << method;
    EXPECT_EQ(interp.Do(9.5, 3.0, 0), 0.0f) << method;
    EXPECT_EQ(interp.Do(-0.01, 3.0, 0), 0.0f) << method;
    EXPECT_EQ(interp.Do(3.0, 7.01, 0), 0.0f) << method;
  }
  CInterp nearest(4, image.get(), 0);
  EXPECT_EQ(nearest.Do(9.5, 3.0, 0), last);
  EXPECT_EQ(nearest.Do(-1e300, 1e300, 0), image->GetPixelGrayRaw(0, 6, 0));
  const double nan = std::numeric_limits<double>::quiet_NaN();
  for (int method = 0; method < 5; ++method) {
    CInterp interp(method, image.get(), 0);
    EXPECT_EQ(interp.Do(nan, 1.0, 0), 0.0f);
    EXPECT_EQ(interp.Do(1.0, 2.0, 1), 0.0f) << "a plane the source lacks";
  }
  CInterp unknown(7, image.get(), 0);
  EXPECT_EQ(unknown.Do(1.0, 2.0, 0), 0.0f);
}

// The three modes of the line readers, with the left padding and the b256 rule
// (samples mapped, fOutside written as given).
TEST_P(InterpTest, LineReadersInTheirThreeModes) {
  const int w = 11, h = 8;
  auto image = MakeImage(w, h, 1);
  std::vector<float> line(w + 4);
  CInterp interp(1);
  interp.SetBParam(0, image.get(), -2.0, w - 2, 0, -7.0f, 0, 0.0, 1.0, 1.0, 0);
  interp.GetBLine(3.9, line.data());
  EXPECT_EQ(line[0], -7.0f);
  EXPECT_EQ(line[1], -7.0f);
  for (int i = 2; i < w; ++i) EXPECT_EQ(line[i], image->GetPixelGrayRaw(i - 2, 3, 0));

  interp.SetBParam(1, image.get(), -1.5, w, 1, -7.0f, 0, 0.0, 1.0, 1.0, 0);
  interp.GetBLine(2.25, line.data());
  CInterp direct(1, image.get(), 0);
  for (int i = 0; i < w + 1; ++i) {
    const double x = -1.5 + i;
    const float expected = x < 0 || x >= w ? -7.0f
                                           : static_cast<float>((direct.Do(x, 2.25, 0) - 0.0) / 1000.0 * 255.0);
    EXPECT_FLOAT_EQ(line[i], expected) << i;
  }
  interp.GetBLine(h - 0.5, line.data());
  EXPECT_EQ(line[3], -7.0f) << "a row past height - 1";

  // A quarter turn about (w/2, h/2): output (x, y) reads (cx + (y - cy), cy - (x - cx)).
  interp.SetBParam(2, image.get(), 0.0, w, 0, -7.0f, 0, 1.0, 0.0, 1.0, 0);
  interp.GetBLine(2.0, line.data());
  for (int x = 0; x < w; ++x) {
    const double px = w * 0.5 + (2.0 - h * 0.5), py = h * 0.5 - (x - w * 0.5);
    const bool inside = px >= 0 && px <= w - 1 && py >= 0 && py <= h - 1;
    EXPECT_NEAR(line[x], inside ? direct.Do(px, py, 0) : -7.0f, 1e-3) << x;
  }
}

TEST_P(InterpTest, ColourOutputsBrightnessAndValidity) {
  const int w = 10, h = 6;
  auto image = MakeImage(w, h, 3);
  std::vector<float> r(w), g(w), b(w);
  CInterp interp(0);
  interp.SetBParam(1, image.get(), -3.0, w - 3, 0, 5.0f, -1, 0.0, 1.0, 1.0, 0);
  interp.GetBLine(1.0, r.data(), g.data(), b.data());
  EXPECT_EQ(r[2], 5.0f);
  EXPECT_EQ(g[4], image->GetPixelGrayRaw(1, 1, 1));
  EXPECT_EQ(b[9], image->GetPixelGrayRaw(6, 1, 2));

  interp.SetBParam(1, image.get(), 0.0, w, 1, 5.0f, 0, 0.0, 1.0, 1.0, 0);
  interp.GetBLine(2.0, r.data(), g.data(), b.data());
  auto to256 = [&](int x, int p) { return (image->GetPixelGrayRaw(x, 2, p) - 0.0) / 1000.0 * 255.0; };
  EXPECT_NEAR(r[4], to256(4, 1) * 0.587 + to256(4, 0) * 0.299 + to256(4, 2) * 0.114, 1e-4);

  std::vector<float> lines(3 * w);
  std::vector<int> valid(3 * w, -1);
  interp.SetBParam(1, image.get(), 2.0, w + 2, 0, 9.0f, 3, 0.0, 1.0, 1.0, 0);
  interp.GetBLineMed(4.0, lines.data(), valid.data());
  for (int p = 0; p < 3; ++p) {
    EXPECT_EQ(valid[p * w + 7], 1);
    EXPECT_EQ(lines[p * w + 7], image->GetPixelGrayRaw(9, 4, p));
    EXPECT_EQ(valid[p * w + 8], 0);
    EXPECT_EQ(lines[p * w + 8], 9.0f);
  }
}

TEST_P(InterpTest, PixelReadersMapShiftRotationAndScale) {
  const int w = 16, h = 12;
  auto image = MakeImage(w, h, 3);
  CInterp interp(3);
  interp.SetBParam(image.get(), 2.5, -1.0, 0.0, 1.0, 2.0, 0, -1, -3.0f);
  int outside = -1;
  double sx = 0, sy = 0;
  const float v = interp.GetBPixelGrayRaw(5, 4, &outside, &sx, &sy);
  EXPECT_EQ(outside, 0);
  EXPECT_EQ(sx, 2.5);
  EXPECT_EQ(sy, 5.0);
  auto bright = [&](double x, double y) {
    return ReferenceSample(*image, 0, 1, x, y) * 0.587 + ReferenceSample(*image, 0, 0, x, y) * 0.299 +
           ReferenceSample(*image, 0, 2, x, y) * 0.114;
  };
  EXPECT_NEAR(v, bright(2.5, 5.0), 1e-3) << "bilinear brightness whatever the method";
  EXPECT_EQ(interp.GetBPixelGrayRaw(1, 4, &outside, nullptr, nullptr), -3.0f);
  EXPECT_EQ(outside, 1);
  // The scale counts in GetPixelL only: ((x - cx - sx) z + cx, (y - cy - sy) z + cy).
  EXPECT_NEAR(interp.GetPixelL(9, 5), ReferenceSample(*image, 0, 0, (9 - 8 - 2.5) * 2 + 8, (5 - 6 + 1.0) * 2 + 6),
              1e-3);
  double a = 0, b = 0;
  interp.GetPixelAb(0, 0, &a, &b);
  EXPECT_EQ(a, -3.0);
  EXPECT_EQ(b, -3.0);
}

// On a block store whose budget is below one frame, reads from several threads
// give the serial results, and a copy reads through its own table.
TEST_P(InterpTest, TableOnAnyStoreFromSeveralThreads) {
  auto manager = Case().store == StoreKind::Block ? CreateBlockManager(64 << 10, 4) : Manager();
  auto image = test::MakeImage(manager, 300, 200, 1);  // 240 KB
  CInterp interp(2, image.get(), 0);
  std::vector<float> serial(200), parallel(200);
  for (int y = 0; y < 200; ++y) serial[y] = interp.Do(y * 1.37 + 0.25, y + 0.5, 0);
  std::thread other([&] {
    for (int y = 0; y < 100; ++y) parallel[y] = interp.Do(y * 1.37 + 0.25, y + 0.5, 0);
  });
  for (int y = 100; y < 200; ++y) parallel[y] = interp.Do(y * 1.37 + 0.25, y + 0.5, 0);
  other.join();
  EXPECT_EQ(serial, parallel);
  CInterp copy(interp);
  interp.GetImageYaddress();
  EXPECT_FLOAT_EQ(copy.Do(13.25, 17.5, 0), static_cast<float>(ReferenceSample(*image, 2, 0, 13.25, 17.5)));
}

// Writes the reference picture's samples at rotated and shifted positions for
// the scipy cross-check (tests/reference/interp_crosscheck.py).
TEST(InterpCrossCheck, WritesSamplesForScipy) {
  const std::string dir = CrossCheckDir();
  if (dir.empty()) GTEST_SKIP() << "run by CTest with the cross-check";
  auto image = HubbleGreen(CreateWholePlaneManager(), 320, 240);
  ASSERT_TRUE(image);
  std::vector<float> plane = ReadPlane(*image, 0), positions, bilinear, nearest;
  std::mt19937 random(3);
  std::uniform_real_distribution<double> ux(-2.0, 322.0), uy(-2.0, 242.0);
  CInterp linear(0, image.get(), 0), near(4, image.get(), 0);
  while (positions.size() < 2 * 4000) {
    const double x = ux(random), y = uy(random);
    // The kernel methods refuse positions outside [0, W] x [0, H]; nearest clamps.
    const bool inside = x >= 0 && x <= 320 && y >= 0 && y <= 240;
    if (!inside && positions.size() % 3 != 0) continue;
    positions.push_back(static_cast<float>(y));
    positions.push_back(static_cast<float>(x));
    bilinear.push_back(inside ? linear.Do(positions.back(), positions[positions.size() - 2], 0) : -1.0f);
    nearest.push_back(near.Do(positions.back(), positions[positions.size() - 2], 0));
  }
  WriteNpy(dir + "/interp_plane.npy", plane, {240, 320});
  WriteNpy(dir + "/interp_positions.npy", positions, {4000, 2});
  WriteNpy(dir + "/interp_bilinear.npy", bilinear, {4000});
  WriteNpy(dir + "/interp_nearest.npy", nearest, {4000});
}

}  // namespace
}  // namespace qorimg::test
