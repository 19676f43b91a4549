// Levels by the engine's automatic levels, placed on the sky, and digital
// development by the engine's developer.
#include "Stretch.h"

#include <algorithm>
#include <cmath>
#include <stdexcept>
#include "filter/FilterMatrix.h"
#include "filter/ImgFilterSpecial.h"
#include "tone/ImgAutoLevel.h"

namespace qorimg::workflow {
namespace {

// Black 2.5 deviations of the sky below it, white 15 above: the sky then
// shows at 2.5 / 17.5 of full scale (36 of 255), and anything well above the
// sky's noise, a star's core, saturates.
constexpr double kBelowSky = 2.5, kAboveSky = 15.0;
// The histogram's sky width is six one-sided deviations.
constexpr double kHistogramWidth = 6.0;
// Share of the pixels below black for the levels by shares.
constexpr double kNormalLow = 0.01;

std::unique_ptr<CLmrImage> Copy(const CLmrImage& image, const std::shared_ptr<CVmManager>& manager) {
  auto copy = std::make_unique<CLmrImage>(manager, CImage::Float32, image.GetWidth(), image.GetHeight(),
                                          image.GetPlanes(), 1.0, 0.0, 1, std::shared_ptr<lumora::Progress>());
  for (int p = 0; p < image.GetPlanes(); ++p)
    for (int y = 0; y < image.GetHeight(); ++y) {
      const float* line = image.GetImageAdr(0, y, p, CImage::ReadOnly);
      std::copy(line, line + image.GetWidth(), copy->GetImageAdr(0, y, p));
    }
  return copy;
}

// The sky's median and its deviation: the deviation about the mean of the
// samples within 3 deviations of the median, narrowed from all samples down to
// the sky. A colour frame is measured on its green plane.
std::pair<double, double> Sky(CImgAutoLevel& meter) {
  const int plane = meter.GetPlanes() > 1 ? 1 : 0;
  float median = 0;
  meter.GetMedian(&median, 1, 0, plane, nullptr);
  double sigma = 0;
  meter.GetLevelRangeStd(-INFINITY, INFINITY, &sigma, plane, nullptr);
  for (int i = 0; i < 5 && sigma > 0; ++i)
    meter.GetLevelRangeStd(float(median - 3 * sigma), float(median + 3 * sigma), &sigma, plane, nullptr);
  return {median, sigma};
}

// A colour frame's planes shifted so that their skies meet the green plane's:
// one black and white then show a neutral dark grey sky.
void NeutraliseSky(CImgAutoLevel& meter) {
  if (meter.GetPlanes() < 3) return;
  float sky[3] = {0, 0, 0};
  for (int c = 0; c < 3; ++c) meter.GetMedian(&sky[c], 1, 0, c, nullptr);
  for (int c = 0; c < 3; ++c) {
    const float shift = sky[1] - sky[c];
    if (shift == 0 || !std::isfinite(shift)) continue;
    for (int y = 0; y < meter.GetHeight(); ++y) {
      float* line = meter.GetImageAdr(0, y, c);
      for (int x = 0; x < meter.GetWidth(); ++x) line[x] += shift;
    }
  }
}

// The lowest black over the planes.
double LowestBlack(const CLmrImage& image) {
  double black = image.GetLevelMin(0);
  for (int p = 1; p < image.GetPlanes(); ++p) black = std::min(black, image.GetLevelMin(p));
  return black;
}

// Development keeps the sky where the levels put it: with the sky at s on the
// 0..255 scale, v / (blur + a) * (s + a) maps the sky onto itself; a = 4 s
// keeps the sky's noise as the levels show it, while a star's core, several
// times its blurred surroundings, goes to full scale.
void Develop(CLmrImage& image, double sigma, double black, double white, double sky) {
  auto src = std::make_unique<CLmrImage>(image);
  CImgFilterSpecial dev;
  dev.Swap(&image);
  const int planes = dev.GetPlanes();
  CFilterMatrix kernel;
  kernel.MakeGaussian(sigma);
  const float s = float(std::clamp((sky - black) / (white - black), 0.01, 1.0) * 255.0);
  int blur[3] = {0, 1, 2};
  float lo[3], range[3], a[3], mul[3];
  for (int c = 0; c < planes; ++c) {
    dev.SetLevel(c, black, white);
    dev.MakeFilterProc(src.get(), &kernel, c, 1);
    lo[c] = float(black), range[c] = float(white - black), a[c] = 4 * s, mul[c] = 5 * s;
  }
  dev.DigitalDvlpOnly(1, src.get(), 1.0, blur, lo, range, a, mul, nullptr, 0);
  dev.ClearFilterProc();
  image.Swap(&dev);
}

}  // namespace

Stretched Stretch(const CLmrImage& stacked, const StretchOptions& o, const std::shared_ptr<CVmManager>& manager) {
  Stretched out;
  CImgAutoLevel meter;
  {
    auto copy = Copy(stacked, manager);
    meter.Swap(copy.get());
  }
  if (o.levels != LevelsMode::Fixed) NeutraliseSky(meter);
  auto [sky, sigma] = Sky(meter);
  // Each mode finds the sky and the black below it; white then puts the sky at
  // the same dark grey in every mode.
  switch (o.levels) {
    case LevelsMode::Fixed:
      if (!(o.white > o.black)) throw std::invalid_argument("white must lie above black");
      out.black = o.black, out.white = o.white;
      break;
    case LevelsMode::Histogram: {
      meter.DoByHistogram(kBelowSky / kHistogramWidth, kAboveSky / kHistogramWidth, 0, 1, nullptr);
      float mode = 0;
      meter.GetMode(&mode, nullptr, nullptr, meter.IsColor() ? 1 : 0, 0, nullptr);
      sky = mode, out.black = LowestBlack(meter);
      break;
    }
    case LevelsMode::Normal:
      meter.DoByNormal(kNormalLow, 1.0 - kNormalLow, 0, nullptr);
      out.black = LowestBlack(meter);
      break;
    case LevelsMode::Median: out.black = sky - kBelowSky * sigma; break;
  }
  if (o.levels != LevelsMode::Fixed) out.white = out.black + (sky - out.black) * (kBelowSky + kAboveSky) / kBelowSky;
  // A flat frame has no spread: one unit of its value (or 1) above black.
  if (!(out.white > out.black)) out.white = out.black + std::max(1.0, std::abs(out.black));
  auto image = std::make_unique<CLmrImage>();
  image->Swap(&meter);
  if (o.developSigma > 0) Develop(*image, o.developSigma, out.black, out.white, sky);
  for (int p = 0; p < image->GetPlanes(); ++p) image->SetLevel(p, out.black, out.white);
  out.image = std::move(image);
  return out;
}

}  // namespace qorimg::workflow
