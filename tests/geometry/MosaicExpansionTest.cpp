// CImgMosaic against a double reference on linear planes, and CImgExpansion on
// a disc painted with the textbook inverse orthographic projection, on every
// route.
#include <algorithm>
#include <cmath>
#include <limits>
#include <numbers>
#include "GeometrySupport.h"
#include "geometry/ImgExpansion.h"
#include "geometry/ImgMosaic.h"
#include "support/Fixtures.h"

namespace qorimg::test {
namespace {

class MosaicExpansionTest : public RouteTest {};
QORIMG_ALL_ROUTES(MosaicExpansionTest);

constexpr double kDegree = std::numbers::pi / 180.0;

// c + gx x + gy y per plane. The bilinear reader is exact on such a plane up to
// the last column and row and holds their values beyond, so the reference reads
// the formula at the clamped position; integer coefficients keep samples exact.
struct Linear {
  double c, gx, gy;
  double At(double x, double y) const { return c + gx * x + gy * y; }
};
// Per plane, a's red and b's green dominate, so a choice made plane by plane
// would mix the two pixels.
const Linear kA[3] = {{200, 5, 0}, {100, 0, 3}, {50, 1, 1}};
const Linear kB[3] = {{250, 0, -12}, {120, 4, 0}, {80, -1, 1}};

struct MosaicCase {
  int planes, nShiftX, nShiftY;
  double fShiftX, fShiftY, fAngle;
  int nOverlap, b256, bAverage;
  bool fills, partial;
};
const MosaicCase kMosaicCases[] = {
    {3, 3, 2, 0.5, -1.25, 0, 2, 0, 0, true, false},   {3, 1, -1, 0.25, 0.75, 30, 3, 0, 0, false, true},
    {3, 1, 1, 0, 0, 0, 1, 0, 0, true, false},         {3, 2, 0, 0.5, 0.5, -20, 0, 1, 0, true, false},
    {3, 4, 3, 0, 0, 90, 0, 0, 1, true, false},         {1, 2, 1, 0.25, 0.5, 30, 2, 0, 0, false, true},
    {1, 0, 2, -0.5, 0, 0, 7, 0, 0, false, false},      {1, 3, 3, 0.5, 0, 45, 3, 1, 1, true, false},
};

// The sample of an image painted with `f` at (sx, sy) on the scale in use, or false outside.
bool ReadReference(const CLmrImage &image, const Linear *f, int planes, bool b256, double sx, double sy,
                   double *v) {
  if (!(sx >= 0 && sx < image.GetWidth() && sy >= 0 && sy < image.GetHeight())) return false;
  for (int p = 0; p < planes; ++p) {
    v[p] = f[p].At(std::min(sx, image.GetWidth() - 1.0), std::min(sy, image.GetHeight() - 1.0));
    if (b256) v[p] = (v[p] - image.GetLevelMin(p)) / image.GetLevelRange(p) * 255.0;
  }
  return true;
}

TEST_P(MosaicExpansionTest, MosaicMatchesDoubleReference) {
  for (const MosaicCase &k : kMosaicCases) {
    SCOPED_TRACE(&k - kMosaicCases);
    auto a = MakeImage(14, 11, k.planes, [](int x, int y, int p) { return float(kA[p].At(x, y)); });
    auto b = MakeImage(9, 8, k.planes, [](int x, int y, int p) { return float(kB[p].At(x, y)); });
    CImgMosaic mosaic;
    mosaic.CopyImage(*MakeImage(14, 11, k.planes));
    for (int p = 0; p < k.planes; ++p) {
      b->CImage::SetLevel(p, -50.0 + p, 450.0);
      mosaic.CImage::SetLevel(p, -100.0 * p, 300.0);
    }
    auto before = mosaic.Clone();
    float fill[3] = {-7, 8, 9}, back[3] = {214, 128, 81};  // back: b's pixel (2, 3)
    CRect rect(1, 2, 12, 9);
    mosaic.Do(a.get(), k.nShiftX, k.nShiftY, b.get(), k.fShiftX, k.fShiftY, k.fAngle, k.nOverlap, back,
              k.fills ? fill : nullptr, k.b256, k.bAverage, k.partial ? &rect : nullptr, 0);

    const double cs = std::cos(k.fAngle * kDegree), sn = std::sin(k.fAngle * kDegree);
    const double cx = 4.5, cy = 4.0, dx = k.nShiftX + k.fShiftX, dy = k.nShiftY + k.fShiftY;
    const double tolerance = k.b256 ? 1.0 : mosaic.GetLevelRange(0) / 256.0;
    int chose[2] = {0, 0};
    for (int y = 0; y < 11; ++y)
      for (int x = 0; x < 14; ++x) {
        if (k.partial && !rect.PtInRect(CPoint(x, y))) {
          for (int p = 0; p < k.planes; ++p) EXPECT_EQ(mosaic.GetPixelGrayRaw(x, y, p), before->GetPixelGrayRaw(x, y, p));
          continue;
        }
        double va[3], vb[3], mean[3];
        const bool inA = ReadReference(*a, kA, k.planes, k.b256, x - k.nShiftX, y - k.nShiftY, va);
        const double u = x - cx - dx, w = cy - y + dy;
        const bool inB = ReadReference(*b, kB, k.planes, k.b256, u * cs - w * sn + cx, cy - (u * sn + w * cs), vb);
        for (int p = 0; p < k.planes; ++p) {
          if (!inA) va[p] = k.fills ? fill[p] : 0.0;
          if (!inB) vb[p] = k.fills ? fill[p] : 0.0;
          mean[p] = (va[p] + vb[p]) / 2;
        }
        auto bright = [&](const double *v) { return k.planes == 1 ? v[0] : 0.299 * v[0] + 0.587 * v[1] + 0.114 * v[2]; };
        bool takeA = !inB;
        if (inA && inB) {
          double difference = 0;
          for (int p = 0; p < k.planes; ++p) difference += std::fabs(vb[p] - back[p]);
          takeA = k.nOverlap == 1   ? difference < tolerance
                  : k.nOverlap == 2 ? bright(va) > bright(vb)
                  : k.nOverlap == 3 ? bright(vb) > bright(va)
                                    : false;
          ++chose[takeA];
        }
        const double *kept = k.bAverage ? mean : takeA ? va : vb;
        for (int p = 0; p < k.planes; ++p) {
          const double expected = k.b256 ? kept[p] / 255.0 * mosaic.GetLevelRange(p) + mosaic.GetLevelMin(p) : kept[p];
          EXPECT_NEAR(mosaic.GetPixelGrayRaw(x, y, p), expected, 1e-3 * (1 + std::fabs(expected))) << x << "," << y;
        }
      }
    // The rule is exercised both ways where it has two outcomes.
    if (k.nOverlap >= 1 && k.nOverlap <= 3 && !k.bAverage) {
      EXPECT_TRUE(chose[0] > 0 && chose[1] > 0);
    }
  }
}

TEST_P(MosaicExpansionTest, MosaicBadInput) {
  auto a = MakeImage(10, 8, 3), b = MakeImage(6, 6, 3);
  CImgMosaic fresh;  // an empty target is made like a; its progress shows 6135
  MessageRecorder recorder;
  fresh.SetProgressHandle(recorder.Window());
  fresh.Do(a.get(), 0, 0, b.get(), 0, 0, 0, 0, nullptr, nullptr, 0, 0, nullptr, 1);
  ASSERT_EQ(fresh.GetWidth(), 10);
  recorder.Pump();
  EXPECT_TRUE(std::any_of(recorder.entries.begin(), recorder.entries.end(),
                          [](const auto &e) { return e.text == L"モザイク合成中..."; }));
  auto kept = fresh.Clone();
  for (double bad : {std::numeric_limits<double>::quiet_NaN(), std::numeric_limits<double>::infinity()})
    fresh.Do(a.get(), 0, 0, b.get(), bad, 0, 10, 0, nullptr, nullptr, 0, 0, nullptr, 0);
  fresh.Do(a.get(), 0, 0, b.get(), 0, 0, -std::numeric_limits<double>::infinity(), 0, nullptr, nullptr, 0, 0,
           nullptr, 0);
  EXPECT_TRUE(SamePixels(fresh, *kept));
  CLmrImage int16(Manager(), CImage::Int16, 8, 6, 3, 1.0, 0.0, 1, nullptr);
  for (CLmrImage *bad : {static_cast<CLmrImage *>(nullptr), &int16}) {
    EXPECT_THROW(fresh.Do(bad, 0, 0, b.get(), 0, 0, 0, 0, nullptr, nullptr, 0, 0, nullptr, 0), CInvalidArgException *);
    EXPECT_THROW(fresh.Do(a.get(), 0, 0, bad, 0, 0, 0, 0, nullptr, nullptr, 0, 0, nullptr, 0), CInvalidArgException *);
  }
  EXPECT_TRUE(SamePixels(fresh, *kept));
  // a as the target: the result of a separate copy of a.
  CImgMosaic separate;
  separate.Create(*a, nullptr);
  separate.Do(a.get(), 2, 1, b.get(), 0.5, 0, 15, 2, nullptr, nullptr, 0, 0, nullptr, 0);
  fresh.CopyImage(*a);
  fresh.Do(&fresh, 2, 1, b.get(), 0.5, 0, 15, 2, nullptr, nullptr, 0, 0, nullptr, 0);
  EXPECT_TRUE(SamePixels(fresh, separate));
}

// A sphere whose surface value is a smooth function of longitude and latitude,
// plus 50 per plane.
double Surface(double lon, double lat, int p) {
  return 500 + 300 * std::cos(lat) * std::cos(lon) + 200 * std::cos(lat) * std::sin(lon) + 100 * std::sin(lat) + 50 * p;
}

struct ExpansionCase {
  int width, height;
  double azimuth, altitude;
  int grid;
};

// The disc is painted by the inverse orthographic projection (north up, centre
// at longitude `azimuth`, latitude `altitude`); map pixels seen well inside the
// disc must give the surface value, the far side 0. Bilinear reading of the
// painted disc gives the tolerance.
TEST_P(MosaicExpansionTest, ExpansionUnrollsAPaintedDisc) {
  const double cx = 40, cy = 41, radius = 36;
  for (const ExpansionCase &k : {ExpansionCase{72, 40, 30, 20, 0}, ExpansionCase{160, 60, -50, -35, 1}}) {
    SCOPED_TRACE(k.width);
    const double lon0 = k.azimuth * kDegree, lat0 = k.altitude * kDegree;
    auto disc = MakeImage(83, 84, 3, [&](int x, int y, int p) {
      const double q = (x - cx) / radius, r = (cy - y) / radius, rho = std::hypot(q, r);
      if (rho >= 1) return 0.0f;
      if (rho == 0) return float(Surface(lon0, lat0, p));
      const double c = std::asin(rho);
      const double lat = std::asin(std::cos(c) * std::sin(lat0) + r * std::sin(c) * std::cos(lat0) / rho);
      const double lon = lon0 + std::atan2(q * std::sin(c), rho * std::cos(c) * std::cos(lat0) - r * std::sin(c) * std::sin(lat0));
      return float(Surface(lon, lat, p));
    });
    for (int p = 0; p < 3; ++p) disc->CImage::SetLevel(p, -10.0 - p, 900.0);
    auto map = MakeImage(k.width, k.height, 3);
    CImgExpansion expansion;
    expansion.Create(*map, nullptr);
    expansion.Do(disc.get(), cx, cy, radius, k.azimuth, k.altitude, 77.0, k.grid, nullptr, 0);

    const bool flat = k.height < k.width / 2;
    const int pw = flat ? 2 * k.height : k.width, ph = flat ? k.height : k.width / 2;
    const int left = (k.width - pw) / 2, top = (k.height - ph) / 2;
    auto onGrid = [&](int v, int extent, int divisions) {
      for (int i = 0; i <= divisions; ++i)
        if (v == std::min(i * extent / divisions, extent - 1)) return true;
      return false;
    };
    int seen = 0, far = 0;
    for (int p = 0; p < 3; ++p) {
      EXPECT_EQ(expansion.GetLevelMin(p), -10.0 - p);
      for (int y = 0; y < k.height; ++y)
        for (int x = 0; x < k.width; ++x) {
          const float v = expansion.GetPixelGrayRaw(x, y, p);
          if (x < left || x >= left + pw || y < top || y >= top + ph) {
            EXPECT_EQ(v, -10.0f);  // plane 0's level minimum, in every plane
            continue;
          }
          if (k.grid && (onGrid(x - left, pw, 36) || onGrid(y - top, ph, 18))) {
            EXPECT_EQ(v, 900.0f);
            continue;
          }
          const double lon = (double(x - left) / pw * 360 - 180) * kDegree;
          const double lat = (90 - double(y - top) / ph * 180) * kDegree;
          const double cosDistance = std::sin(lat) * std::sin(lat0) + std::cos(lat) * std::cos(lat0) * std::cos(lon - lon0);
          if (cosDistance > 0.5) {
            EXPECT_NEAR(v, Surface(lon, lat, p), 0.5) << x << "," << y;
            ++seen;
          } else if (cosDistance < -0.02) {
            EXPECT_EQ(v, 0.0f) << x << "," << y;
            ++far;
          }
        }
    }
    EXPECT_GT(seen, 300);
    EXPECT_GT(far, 300);
  }
  RejectsNullAndNonFloat<CImgExpansion>(Manager(), [](CImgExpansion &op, CLmrImage *s) {
    op.Do(s, 1, 1, 1, 0, 0, 0, 0, nullptr, 1);
  });
}

}  // namespace
}  // namespace qorimg::test
