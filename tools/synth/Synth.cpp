#include "Synth.h"

#include <algorithm>
#include <cmath>
#include <numbers>
#include <random>

#include "../qorimg/workflow/WorkflowImages.h"

namespace qorimg::synth {

namespace {

using workflow::Placement;
using workflow::PointD;

enum Stream : std::uint64_t { SceneStream = 1, LightStream, BiasStream, DarkStream, FlatStream };

std::mt19937_64 Random(std::uint64_t seed, std::uint64_t kind, int index) {
  std::seed_seq seq{static_cast<std::uint32_t>(seed), static_cast<std::uint32_t>(seed >> 32),
                    static_cast<std::uint32_t>(kind), static_cast<std::uint32_t>(index)};
  return std::mt19937_64(seq);
}

double Uniform(std::mt19937_64& rng, double lo, double hi) { return std::uniform_real_distribution<double>(lo, hi)(rng); }

// Poisson counts; above a mean of 30 the normal approximation, which is close
// there and much cheaper per pixel.
double Poisson(std::mt19937_64& rng, double mean) {
  if (mean <= 0) return 0;
  if (mean < 30) return std::poisson_distribution<int>(mean)(rng);
  return std::max(0.0, std::round(mean + std::sqrt(mean) * std::normal_distribution<double>()(rng)));
}

// A star's brightness per unit flux at distance^2 r2 from its centre.
double Profile(const Star& s, double r2) {
  if (s.moffat) {
    const double alpha = s.fwhm / (2 * std::sqrt(std::pow(2.0, 1 / s.beta) - 1));
    return (s.beta - 1) / (std::numbers::pi * alpha * alpha) * std::pow(1 + r2 / (alpha * alpha), -s.beta);
  }
  const double sigma = s.fwhm / (2 * std::sqrt(2 * std::log(2.0)));
  return std::exp(-r2 / (2 * sigma * sigma)) / (2 * std::numbers::pi * sigma * sigma);
}

}  // namespace

Generator::Generator(const Options& options) : options_(options) {
  const int w = options.width, h = options.height;
  const std::size_t n = static_cast<std::size_t>(w) * h;
  std::mt19937_64 rng = Random(options.seed, SceneStream, 0);
  std::normal_distribution<double> normal;

  truth_.placements = options.placements;
  if (truth_.placements.empty()) {
    truth_.placements.resize(static_cast<std::size_t>(std::max(options.lights, 0)));
    for (std::size_t i = 1; i < truth_.placements.size(); ++i) {
      Placement& p = truth_.placements[i];
      p.dx = Uniform(rng, -options.maxShift, options.maxShift);
      p.dy = Uniform(rng, -options.maxShift, options.maxShift);
      p.rotationDeg = Uniform(rng, -options.maxRotation, options.maxRotation);
    }
  }

  // Bias with a column pattern, dark current with hot pixels, and the flat:
  // vignetting, a 1 % pixel gain and (on a mosaic) the filters' response.
  truth_.bias.resize(n), truth_.darkRate.resize(n), truth_.flat.resize(n);
  std::vector<double> column(static_cast<std::size_t>(w));
  for (double& c : column) c = 2 * normal(rng);
  const double response[3] = {0.85, 1.0, 0.7};
  const PointD c{(w - 1) * 0.5, (h - 1) * 0.5};
  const double corner2 = c.x * c.x + c.y * c.y;
  for (int y = 0; y < h; ++y)
    for (int x = 0; x < w; ++x) {
      const std::size_t i = static_cast<std::size_t>(y) * w + x;
      truth_.bias[i] = static_cast<float>(options.biasLevel + column[static_cast<std::size_t>(x)]);
      truth_.darkRate[i] = static_cast<float>(options.darkCurrent * (1 + 0.1 * normal(rng)));
      const double r2 = ((x - c.x) * (x - c.x) + (y - c.y) * (y - c.y)) / std::max(corner2, 1.0);
      const double filter = options.bayer ? response[Channel(x, y)] : 1.0;
      truth_.flat[i] = static_cast<float>((1 - options.vignetting * r2) * (1 + 0.01 * normal(rng)) * filter);
    }
  const int hot = static_cast<int>(std::round(options.hotPixelFraction * static_cast<double>(n)));
  for (int k = 0; k < hot; ++k) {
    const Point p{static_cast<int>(rng() % static_cast<std::uint64_t>(w)),
                  static_cast<int>(rng() % static_cast<std::uint64_t>(h))};
    truth_.hotPixels.push_back(p);
    truth_.darkRate[static_cast<std::size_t>(p.y) * w + p.x] = static_cast<float>(Uniform(rng, 2, 40));
  }

  // Stars over the reference frame and a margin that shifted and turned
  // frames see; fluxes from N(>F) ~ 1/F between 5 and 3000 ADU/s.
  const double margin = options.maxShift + 0.02 * std::max(w, h) + 20;
  const int stars = static_cast<int>(options.starDensity * (w + 2 * margin) * (h + 2 * margin));
  for (int k = 0; k < stars; ++k) {
    Star s;
    s.x = Uniform(rng, -margin, w + margin);
    s.y = Uniform(rng, -margin, h + margin);
    s.flux = std::min(3000.0, 5.0 / std::max(1e-9, Uniform(rng, 0, 1)));
    s.fwhm = options.fwhm * Uniform(rng, 0.9, 1.15);
    s.moffat = rng() % 2 == 0;
    s.beta = Uniform(rng, 2.5, 4.5);
    for (float& col : s.colour) col = static_cast<float>(Uniform(rng, 0.6, 1.4));
    s.colour[1] = 1;
    truth_.stars.push_back(s);
  }

  // Cosmic rays: clusters of 1 to 4 pixels per light; one satellite trail.
  for (int i = 0; i < Lights(); ++i) {
    std::vector<Point> hits;
    for (int k = 0; k < options.cosmicRays; ++k) {
      const int x = static_cast<int>(rng() % static_cast<std::uint64_t>(std::max(w - 1, 1)));
      const int y = static_cast<int>(rng() % static_cast<std::uint64_t>(std::max(h - 1, 1)));
      const int size = 1 + static_cast<int>(rng() % 4);
      for (int m = 0; m < size; ++m) hits.push_back({x + (m & 1), y + (m >> 1)});
    }
    truth_.cosmicRays.push_back(std::move(hits));
  }
  if (options.trailFrame >= 0 && options.trailFrame < Lights())
    truth_.trail = {options.trailFrame, 0, Uniform(rng, 0, h), w - 1.0, Uniform(rng, 0, h), 0.8};
}

int Generator::Channel(int x, int y) const {
  if (!options_.bayer) return 1;
  return (x & 1) + (y & 1);  // RGGB: R at (0, 0), G at (1, 0) and (0, 1), B at (1, 1)
}

// Sky and stars of a frame at `placement`, ADU/s per pixel, before the flat.
std::vector<double> Generator::Sky(const Placement& placement) const {
  const int w = options_.width, h = options_.height;
  std::vector<double> rate(static_cast<std::size_t>(w) * h);
  const double skyColour[3] = {0.9, 1.0, 1.1};
  for (int y = 0; y < h; ++y)
    for (int x = 0; x < w; ++x)
      rate[static_cast<std::size_t>(y) * w + x] =
          options_.sky * skyColour[Channel(x, y)] *
          (1 + options_.gradient * ((x - 0.5 * w) / w * 0.8 + (y - 0.5 * h) / h * 0.6));
  for (const Star& s : truth_.stars) {
    const PointD p = workflow::FramePoint(placement, w, h, {s.x, s.y});
    const int reach = static_cast<int>(std::clamp(2 * s.fwhm * (1 + std::log10(s.flux)), 6.0, 40.0));
    const int xc = static_cast<int>(std::lround(p.x)), yc = static_cast<int>(std::lround(p.y));
    for (int y = std::max(0, yc - reach); y <= std::min(h - 1, yc + reach); ++y)
      for (int x = std::max(0, xc - reach); x <= std::min(w - 1, xc + reach); ++x) {
        const double r2 = (x - p.x) * (x - p.x) + (y - p.y) * (y - p.y);
        rate[static_cast<std::size_t>(y) * w + x] += s.flux * s.colour[Channel(x, y)] * Profile(s, r2);
      }
  }
  return rate;
}

std::vector<float> Generator::Signal(int light) const {
  std::vector<double> rate = Sky(truth_.placements.at(static_cast<std::size_t>(light)));
  std::vector<float> out(rate.size());
  for (std::size_t i = 0; i < rate.size(); ++i) out[i] = static_cast<float>(rate[i] * options_.exposure);
  return out;
}

// bias + Poisson(photons + dark * t) + read noise, rounded and cut to 16 bits.
Frame Generator::Noisy(std::uint64_t kind, int index, double exposure, const std::vector<double>& photons) const {
  Frame f{options_.width, options_.height, exposure, std::vector<float>(truth_.bias.size())};
  std::mt19937_64 rng = Random(options_.seed, kind, index);
  std::normal_distribution<double> normal;
  for (std::size_t i = 0; i < f.data.size(); ++i) {
    const double electrons = (photons.empty() ? 0.0 : photons[i]) + truth_.darkRate[i] * exposure;
    const double v = truth_.bias[i] + Poisson(rng, electrons) + options_.readNoise * normal(rng);
    f.data[i] = static_cast<float>(std::clamp(std::round(v), 0.0, 65535.0));
  }
  return f;
}

Frame Generator::Light(int i) const {
  std::vector<double> photons = Sky(truth_.placements.at(static_cast<std::size_t>(i)));
  for (std::size_t k = 0; k < photons.size(); ++k) photons[k] *= truth_.flat[k] * options_.exposure;
  Frame f = Noisy(LightStream, i, options_.exposure, photons);
  const int w = f.width;
  auto add = [&](int x, int y, double v) {
    if (x < 0 || y < 0 || x >= w || y >= f.height) return;
    float& s = f.data[static_cast<std::size_t>(y) * w + x];
    s = static_cast<float>(std::min(65535.0, std::round(s + v)));
  };
  std::mt19937_64 rng = Random(options_.seed, LightStream, 1000000 + i);
  for (const Point& p : truth_.cosmicRays[static_cast<std::size_t>(i)]) add(p.x, p.y, Uniform(rng, 2000, 20000));
  const Trail& t = truth_.trail;
  if (t.frame == i) {
    // A line of Gaussian cross-section, 1500 ADU at its centre.
    const double lx = t.x1 - t.x0, ly = t.y1 - t.y0, len = std::hypot(lx, ly);
    for (int y = 0; y < f.height; ++y)
      for (int x = 0; x < w; ++x) {
        const double d = std::abs((x - t.x0) * ly - (y - t.y0) * lx) / len;
        if (d < 4 * t.width) add(x, y, 1500 * std::exp(-d * d / (2 * t.width * t.width)));
      }
  }
  return f;
}

Frame Generator::Bias(int i) const { return Noisy(BiasStream, i, 0, {}); }
Frame Generator::Dark(int i) const { return Noisy(DarkStream, i, options_.exposure, {}); }

Frame Generator::Flat(int i) const {
  // An even lamp giving about 25000 ADU through the flat.
  std::vector<double> photons(truth_.flat.size());
  for (std::size_t k = 0; k < photons.size(); ++k) photons[k] = 25000.0 * truth_.flat[k];
  return Noisy(FlatStream, i, options_.flatExposure, photons);
}

std::unique_ptr<CLmrImage> ToImage(const Frame& frame, const std::shared_ptr<CVmManager>& manager) {
  auto image = workflow::detail::NewImage(manager, frame.width, frame.height, 1);
  for (int y = 0; y < frame.height; ++y) {
    const float* row = frame.data.data() + static_cast<std::size_t>(y) * frame.width;
    std::copy(row, row + frame.width, image->GetImageAdr(0, y, 0));
  }
  return image;
}

}  // namespace qorimg::synth
