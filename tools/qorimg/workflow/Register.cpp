// Registration: the rotation from the log-polar phase correlation of the
// central power-of-two square, a coarse shift from the phase correlation of
// that square with the rotation undone, then four tiles near the corners of
// the frames' overlap, each correlated with the frame resampled by the
// placement so far. Each tile says which reference point lies at which frame
// point; a least-squares rigid fit of the four gives the new placement, and
// the tiles are measured again on it, so the last round measures shifts of a
// small fraction of a pixel, where the correlation's estimate is best.
#include "Register.h"

#include <algorithm>
#include <cmath>
#include <numbers>
#include <stdexcept>
#include <vector>
#include <cstdio>

#include "WorkflowImages.h"
#include "calibrate/CalibrationFrames.h"
#include "filter/ImgFilter.h"
#include "geometry/Interp.h"
#include "restore/Fft.h"
#include "restore/ImgFourier.h"

namespace qorimg::workflow {

namespace {

constexpr double kDegree = std::numbers::pi / 180.0;
// Below this correlation peak a tile (or the whole square) has found nothing.
constexpr double kMinPeak = 0.02;
// ... and the central square's peak must stand this many deviations of the
// correlation surface above its mean (noise frames reached 4 to 7.7 in our
// trials, star fields 9.6 and more).
constexpr double kMinContrast = 9;
// Tiles whose points the rigid fit leaves further apart than this disagree.
constexpr double kMaxResidual = 1.0;
// A tile further than this from the fit of all is left out of it.
constexpr double kDropResidual = 0.2;
constexpr int kMinTile = 32, kMaxTile = 256;
constexpr int kRounds = 3;


PointD Centre(int w, int h) { return {(w - 1) * 0.5, (h - 1) * 0.5}; }

// A reference point a seen at frame point b.
struct Pair {
  PointD a, b;
};

// The rigid placement that best maps the pairs' reference points onto their
// frame points; with `rotate` false the rotation is kept and only the shift
// fitted.
Placement FitRigid(const std::vector<Pair>& pairs, int w, int h, bool rotate, double rotationDeg) {
  const PointD c = Centre(w, h);
  const double n = static_cast<double>(pairs.size());
  PointD ma, mb;
  for (const Pair& p : pairs) ma.x += p.a.x / n, ma.y += p.a.y / n, mb.x += p.b.x / n, mb.y += p.b.y / n;
  double theta = rotationDeg * kDegree;
  if (rotate && pairs.size() >= 2) {
    // R = [[cos, sin], [-sin, cos]] maximising sum of B . R A over centred points.
    double dot = 0, cross = 0;
    for (const Pair& p : pairs) {
      const double ax = p.a.x - ma.x, ay = p.a.y - ma.y, bx = p.b.x - mb.x, by = p.b.y - mb.y;
      dot += bx * ax + by * ay;
      cross += bx * ay - by * ax;
    }
    theta = std::atan2(cross, dot);
  }
  const double cs = std::cos(theta), sn = std::sin(theta);
  const double ux = ma.x - c.x, uy = ma.y - c.y;
  Placement out;
  out.rotationDeg = theta / kDegree;
  out.dx = mb.x - c.x - (cs * ux + sn * uy);
  out.dy = mb.y - c.y - (-sn * ux + cs * uy);
  return out;
}

double Residual(const std::vector<Pair>& pairs, const Placement& placement, int w, int h) {
  double worst = 0;
  for (const Pair& p : pairs) {
    const PointD m = FramePoint(placement, w, h, p.a);
    worst = std::max(worst, std::hypot(m.x - p.b.x, m.y - p.b.y));
  }
  return worst;
}

// The mean of the planes on `manager`, with lone bright pixels (cosmic rays,
// hot pixels) replaced by the median of their 3x3 neighbourhood. The phase
// correlation weighs every frequency alike, so such pixels in each frame would
// correlate at their offset. A pixel counts as lone when it stands above the
// median by 5 noise deviations and by twice the median's own height above the
// sky; star cores, whose neighbours follow them, keep their value (a median
// of every pixel would move the stars' centres by a fraction of a pixel).
// (A Bayer mosaic's 2x2 pattern needs nothing: it lies at the highest
// frequencies, which the correlation leaves out.)
std::unique_ptr<CLmrImage> Luminance(const CLmrImage& image, const std::shared_ptr<CVmManager>& manager) {
  const int w = image.GetWidth(), h = image.GetHeight(), planes = image.GetPlanes();
  auto out = detail::NewImage(manager, w, h, 1);
  std::vector<float> sample;
  for (int y = 0; y < h; ++y) {
    // Locked rows: a block store may otherwise page one out to fetch another.
    const calibrate::LockedRow target(*out, 0, y, 0, CImage::Write);
    float* line = target.get();
    std::fill(line, line + w, 0.0f);
    for (int p = 0; p < planes; ++p) {
      const calibrate::LockedRow from(image, 0, y, p, CImage::ReadOnly);
      for (int x = 0; x < w; ++x) line[x] += from[x] / planes;
    }
    for (int x = y % 7; x < w; x += 7) sample.push_back(line[x]);
  }
  if (sample.empty()) return out;
  auto quantile = [&](double q) {
    auto at = sample.begin() + static_cast<std::ptrdiff_t>(q * (sample.size() - 1));
    std::nth_element(sample.begin(), at, sample.end());
    return static_cast<double>(*at);
  };
  const double sky = quantile(0.5);
  for (float& v : sample) v = std::abs(v - static_cast<float>(sky));
  const double noise = 1.4826 * quantile(0.5);

  CImgFilter median;
  auto target = detail::NewImage(manager, w, h, 1);
  median.Swap(target.get());
  median.MedianFilter(1, out.get(), nullptr, 0);
  for (int y = 0; y < h; ++y) {
    const calibrate::LockedRow target(*out, 0, y, 0, CImage::Write), m(median, 0, y, 0, CImage::ReadOnly);
    float* line = target.get();
    for (int x = 0; x < w; ++x)
      if (line[x] - m[x] > 5 * noise && line[x] - sky > 3 * (m[x] - sky)) line[x] = m[x];
  }
  return out;
}

class Measurement {
 public:
  Measurement(const CLmrImage& reference, const CLmrImage& frame, const RegisterOptions& options)
      : reference_(reference), frame_(frame), options_(options), w_(frame.GetWidth()), h_(frame.GetHeight()),
        // The frame is only read; the reader's interface takes a mutable image.
        interp_(CInterp::BicubicMethod, const_cast<CLmrImage*>(&frame), 0) {}

  Placement Run() {
    const bool rotate = options_.method == RegisterMethod::PocRotation;
    const int side = CFftd::GetFloorPowerOf2(std::min(w_, h_));
    if (side < kMinTile) return Fail("the frame is too small to register (" + Size(w_, h_) + ")");
    const int left = (w_ - side) / 2, top = (h_ - side) / 2;

    // Rotation candidates: none, and the log-polar correlation's. The latter
    // finds large rotations but is coarse (a column of its map is 180 / side
    // degrees) and on small or sparse frames can be far off; the tiles refine
    // whichever start the central square correlates best with.
    auto centre = Tile(nullptr, left, top, side);
    std::vector<double> starts{0.0};
    if (rotate) {
      auto frameSquare = Tile(nullptr, left, top, side, &frame_);
      double rotation = 0;
      int nw = 0, nh = 0;
      // The correlation gives the turn of the frame's content clockwise on screen.
      if (centre->CalcRotByRIPOC(frameSquare.get(), nullptr, nullptr, nullptr, rotation, nw, nh, 0) &&
          std::isfinite(rotation) && std::abs(rotation) > 0.01)
        starts.push_back(-rotation);
    }
    Placement placement;
    double best = 0, contrast = 0;
    PointD shift;
    for (double start : starts) {
      Placement candidate;
      candidate.rotationDeg = start;
      double peak = 0, c = 0;
      const PointD s = CoarseShift(*centre, candidate, left, top, side, peak, c);
      if (peak > best) best = peak, contrast = c, placement = candidate, shift = s;
    }
    if (!(best >= kMinPeak) || !(contrast >= kMinContrast))
      return Fail("no correlation peak (" + Number(best) + ", " + Number(contrast) + " times the surface's deviation)");
    const PointD q{left + (side - 1) * 0.5, top + (side - 1) * 0.5};
    placement = FitRigid({{{q.x - shift.x, q.y - shift.y}, FramePoint(placement, w_, h_, q)}}, w_, h_, false,
                         placement.rotationDeg);

    // Four tiles in the corners of the overlap, a margin inside for the rotation.
    const double margin = std::abs(std::sin(placement.rotationDeg * kDegree)) * std::max(w_, h_) * 0.5 + 3;
    const double x0 = std::max(0.0, -placement.dx) + margin, x1 = std::min<double>(w_, w_ - placement.dx) - margin;
    const double y0 = std::max(0.0, -placement.dy) + margin, y1 = std::min<double>(h_, h_ - placement.dy) - margin;
    const int tile = options_.regionW > 0 && options_.regionH > 0
                         ? CFftd::GetFloorPowerOf2(std::min(options_.regionW, options_.regionH))
                         : std::min(kMaxTile, CFftd::GetFloorPowerOf2(static_cast<int>(std::min(x1 - x0, y1 - y0) / 2)));
    if (tile < kMinTile || x1 - x0 < tile || y1 - y0 < tile)
      return Fail("the overlap with the reference is too small (" + Number(x1 - x0) + " x " + Number(y1 - y0) + ")");
    const int tx[2] = {static_cast<int>(std::ceil(x0)), static_cast<int>(std::floor(x1)) - tile};
    const int ty[2] = {static_cast<int>(std::ceil(y0)), static_cast<int>(std::floor(y1)) - tile};

    double peak = 0;
    std::vector<Pair> pairs;
    for (int round = 0; round < kRounds; ++round) {
      pairs.clear();
      peak = 1e30;
      for (int j = 0; j < 2; ++j)
        for (int i = 0; i < 2; ++i) {
          auto ref = Tile(nullptr, tx[i], ty[j], tile);
          Correlation c = Correlate(*ref, placement, tx[i], ty[j], tile, round + 1 == kRounds);
          peak = std::min(peak, c.peak);
          pairs.push_back(c.pair);
        }
      if (!(peak >= kMinPeak)) return Fail("no correlation peak on a tile (" + Number(peak) + ")");
      placement = FitRigid(pairs, w_, h_, rotate, placement.rotationDeg);
      // A tile that disagrees with the others (a saturated star, a tile with
      // little in it) is left out, as long as three stay for the fit.
      if (Residual(pairs, placement, w_, h_) > kDropResidual) {
        pairs.erase(std::max_element(pairs.begin(), pairs.end(), [&](const Pair& a, const Pair& b) {
          return Distance(a, placement) < Distance(b, placement);
        }));
        placement = FitRigid(pairs, w_, h_, rotate, placement.rotationDeg);
      }
    }
    const double residual = Residual(pairs, placement, w_, h_);
    if (residual > kMaxResidual) return Fail("the tiles disagree by " + Number(residual) + " px");
    placement.peak = peak;
    return placement;
  }

 private:
  struct Correlation {
    Pair pair;
    double peak = 0;
  };

  // A side x side tile whose pixel (i, j) is reference pixel (x0 + i, y0 + j):
  // copied from `source` (the reference unless given) without a placement, or
  // resampled from the frame at the placement's frame point of that pixel
  // moved by (offset, offset).
  std::unique_ptr<CImgFourier> Tile(const Placement* placement, int x0, int y0, int side,
                                    const CLmrImage* source = nullptr, double offset = 0) {
    auto image = detail::NewImage(CreateWholePlaneManager(), side, side, 1);
    const CLmrImage& from = source ? *source : reference_;
    for (int j = 0; j < side; ++j) {
      float* line = image->GetImageAdr(0, j, 0);
      if (!placement) {
        const float* src = from.GetImageAdr(x0, y0 + j, 0, CImage::ReadOnly);
        std::copy(src, src + side, line);
        continue;
      }
      for (int i = 0; i < side; ++i) {
        PointD p = FramePoint(*placement, w_, h_, {x0 + i + offset, y0 + j + offset});
        // Outside the frame the nearest edge sample stands in, so that no step is correlated.
        p.x = std::clamp(p.x, 0.0, w_ - 1.0), p.y = std::clamp(p.y, 0.0, h_ - 1.0);
        line[i] = interp_.Do(p.x, p.y, 0);
      }
    }
    auto tile = std::make_unique<CImgFourier>();
    tile->Swap(image.get());
    return tile;
  }

  // The whole-pixel shift of the frame's content in the central square, taken
  // at the highest point of the correlation surface within a quarter of the
  // square of no shift: star fields correlate weakly at many offsets, and a
  // far peak of a few bright stars must not win over the frames' overlap.
  PointD CoarseShift(CImgFourier& reference, const Placement& placement, int x0, int y0, int side, double& peak,
                     double& contrast) {
    auto moved = Tile(&placement, x0, y0, side);
    auto surface = detail::NewImage(CreateWholePlaneManager(), side, side, 1);
    double dx = 0, dy = 0;
    int nw = 0, nh = 0;
    peak = contrast = 0;
    if (!reference.CalcShiftByPOC(moved.get(), surface.get(), 0, nullptr, dx, dy, peak, nw, nh, 0)) return {};
    const int reach = side / 4;
    PointD best;
    peak = -1;
    double sum = 0, squares = 0;
    for (int y = 0; y < side; ++y) {
      const float* line = surface->GetImageAdr(0, y, 0, CImage::ReadOnly);
      for (int x = 0; x < side; ++x) {
        sum += line[x], squares += static_cast<double>(line[x]) * line[x];
        if (std::abs(y - side / 2) <= reach && std::abs(x - side / 2) <= reach && line[x] > peak)
          peak = line[x], best = {static_cast<double>(x - side / 2), static_cast<double>(y - side / 2)};
      }
    }
    const double n = static_cast<double>(side) * side, mean = sum / n;
    const double deviation = std::sqrt(std::max(0.0, squares / n - mean * mean));
    contrast = deviation > 0 ? (peak - mean) / deviation : 0.0;
    return best;
  }

  // The reference tile against the frame resampled by `placement`: the frame
  // content is found moved by s, so reference point q - s lies at frame point
  // M(q), q the tile's centre. The shift is measured with the frame resampled a
  // quarter pixel ahead and (when `both`) a quarter behind, and the two
  // estimates averaged: the correlation's sub-pixel estimate is least steady
  // at whole-pixel shifts.
  Correlation Correlate(CImgFourier& reference, const Placement& placement, int x0, int y0, int side, bool both) {
    Correlation out;
    PointD s;
    double least = 1e30;
    const std::vector<double> offsets = both ? std::vector<double>{0.25, -0.25} : std::vector<double>{0.25};
    for (double offset : offsets) {
      auto moved = Tile(&placement, x0, y0, side, nullptr, offset);
      double dx = 0, dy = 0, peak = 0;
      int nw = 0, nh = 0;
      if (!reference.CalcShiftByPOC(moved.get(), nullptr, 0, nullptr, dx, dy, peak, nw, nh, 0) ||
          !std::isfinite(dx) || !std::isfinite(dy))
        return out;
      s.x += (dx + offset) / offsets.size(), s.y += (dy + offset) / offsets.size();
      least = std::min(least, peak);
    }
    const PointD q{x0 + (side - 1) * 0.5, y0 + (side - 1) * 0.5};
    out.pair = {{q.x - s.x, q.y - s.y}, FramePoint(placement, w_, h_, q)};
    out.peak = least;
    return out;
  }

  double Distance(const Pair& p, const Placement& placement) const {
    const PointD m = FramePoint(placement, w_, h_, p.a);
    return std::hypot(m.x - p.b.x, m.y - p.b.y);
  }

  static Placement Fail(std::string reason) {
    Placement p;
    p.ok = false;
    p.reason = std::move(reason);
    return p;
  }
  static std::string Size(int w, int h) { return std::to_string(w) + "x" + std::to_string(h); }
  static std::string Number(double v) {
    char text[32];
    std::snprintf(text, sizeof text, "%.3g", v);
    return text;
  }

  const CLmrImage& reference_;
  const CLmrImage& frame_;
  const RegisterOptions& options_;
  int w_, h_;
  CInterp interp_;
};

}  // namespace

PointD FramePoint(const Placement& placement, int w, int h, PointD q) {
  const PointD c = Centre(w, h);
  const double t = placement.rotationDeg * kDegree, cs = std::cos(t), sn = std::sin(t);
  const double ux = q.x - c.x, uy = q.y - c.y;
  return {c.x + placement.dx + cs * ux + sn * uy, c.y + placement.dy - sn * ux + cs * uy};
}

PointD ReferencePoint(const Placement& placement, int w, int h, PointD p) {
  const PointD c = Centre(w, h);
  const double t = placement.rotationDeg * kDegree, cs = std::cos(t), sn = std::sin(t);
  const double ux = p.x - c.x - placement.dx, uy = p.y - c.y - placement.dy;
  return {c.x + cs * ux - sn * uy, c.y + sn * ux + cs * uy};
}

Registrar::Registrar(const CLmrImage& reference, const RegisterOptions& options,
                     const std::shared_ptr<CVmManager>& manager)
    // The reference is read from many threads: a whole-plane store, whose
    // addresses hold.
    : reference_(Luminance(reference, CreateWholePlaneManager())), options_(options), manager_(manager) {}

Registrar::~Registrar() = default;

Placement Registrar::Measure(const CLmrImage& frame) const {
  if (frame.GetWidth() != reference_->GetWidth() || frame.GetHeight() != reference_->GetHeight()) {
    Placement p;
    p.ok = false;
    p.reason = "the frame is " + std::to_string(frame.GetWidth()) + "x" + std::to_string(frame.GetHeight()) +
               ", the reference " + std::to_string(reference_->GetWidth()) + "x" +
               std::to_string(reference_->GetHeight());
    return p;
  }
  return Measurement(*reference_, *Luminance(frame, manager_), options_).Run();
}

}  // namespace qorimg::workflow
