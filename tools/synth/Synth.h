// A seeded synthetic deep-sky set with known truth, in memory: light frames of
// one star field placed with known shifts and rotations, and the bias, dark and
// flat frames that calibrate them. Samples are whole uint16 ADU values held in
// floats; mono frames or RGGB mosaics (one plane either way).
//
// A light is bias + Poisson(flat * (sky + stars) * t + dark * t) + read noise,
// then cosmic rays (and in one frame a satellite trail) on top, cut to 0..65535.
// The sky has a gradient fixed to the sensor; the stars (Moffat and Gaussian,
// fluxes drawn from a power law) are fixed to the sky and move with the frame.
// Every frame is drawn from its own stream of the seed, so frames can be made
// in any order.
#pragma once
#include <cstdint>
#include <memory>
#include <vector>
#include "../qorimg/workflow/Register.h"

namespace qorimg::synth {

struct Options {
  int width = 256, height = 192;
  bool bayer = false;  // an RGGB mosaic
  std::uint64_t seed = 1;
  int lights = 4, biases = 3, darks = 3, flats = 3;
  double exposure = 60;      // lights and darks, seconds
  double flatExposure = 2;   // seconds
  double maxShift = 50;      // pixels, each axis
  double maxRotation = 1;    // degrees
  // When not empty: the lights' placements (their number replaces `lights`).
  std::vector<workflow::Placement> placements;
  double biasLevel = 1000, readNoise = 4;  // ADU
  double darkCurrent = 0.05;               // ADU/s
  double hotPixelFraction = 5e-4;
  double sky = 3;           // ADU/s per pixel at the centre
  double gradient = 0.3;    // fraction of the sky across the frame
  double vignetting = 0.3;  // fraction of the light lost at the corners
  double starDensity = 2e-3;  // stars per pixel
  double fwhm = 3;            // pixels, median star
  int cosmicRays = 6;         // per light
  int trailFrame = 1;         // the light with the satellite trail; -1 none
};

struct Point {
  int x, y;
};
struct Star {
  double x, y;   // reference frame, pixels
  double flux;   // ADU/s in all
  double fwhm, beta;
  bool moffat;
  float colour[3];  // response of R, G, B pixels (mosaic)
};
struct Trail {
  int frame = -1;
  double x0 = 0, y0 = 0, x1 = 0, y1 = 0;  // frame pixels, end to end
  double width = 0;                       // Gaussian sigma, pixels
};
struct Truth {
  std::vector<workflow::Placement> placements;  // per light
  std::vector<float> bias;       // ADU per pixel
  std::vector<float> darkRate;   // ADU/s per pixel, hot pixels included
  std::vector<float> flat;       // the pixel's response (vignetting, pixel gain, filter)
  std::vector<Point> hotPixels;
  std::vector<std::vector<Point>> cosmicRays;  // per light, every pixel hit
  Trail trail;
  std::vector<Star> stars;
};

struct Frame {
  int width = 0, height = 0;
  double exposure = 0;
  std::vector<float> data;  // row 0 at the top
};

class Generator {
 public:
  explicit Generator(const Options& options);
  const Options& options() const { return options_; }
  const Truth& truth() const { return truth_; }
  int Lights() const { return static_cast<int>(truth_.placements.size()); }

  Frame Light(int i) const;
  Frame Bias(int i) const;
  Frame Dark(int i) const;
  Frame Flat(int i) const;
  // The noise-free sky and stars of light i in ADU, as a perfect calibration
  // (bias, dark and flat removed) would give them.
  std::vector<float> Signal(int light) const;
  // 0 red, 1 green, 2 blue for a mosaic pixel (RGGB at the top left); 1 for mono.
  int Channel(int x, int y) const;

 private:
  std::vector<double> Sky(const workflow::Placement& placement) const;
  Frame Noisy(std::uint64_t kind, int index, double exposure, const std::vector<double>& photons) const;

  Options options_;
  Truth truth_;
};

// A frame as a float image on `manager`.
std::unique_ptr<CLmrImage> ToImage(const Frame& frame, const std::shared_ptr<CVmManager>& manager);

}  // namespace qorimg::synth
