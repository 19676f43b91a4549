// Histograms of a plane, of the brightness, or of three planes together, with the
// dither that hides the comb of integer camera data, the thinned (culled) sample
// for fast repaints, and the logarithmic and height forms of the result.
#include <algorithm>
#include <cmath>
#include <limits>
#include "core/DitherRandom.h"
#include "core/LmrImage.h"
#include "core/OperatorRunner.h"
#include "core/PixelMath.h"
#include "core/StatisticsRoutes.h"
#include "platform/Exceptions.h"

namespace {

bool DitherApplies(double binsPerUnit) { return binsPerUnit > 0.0 && binsPerUnit <= 1.0; }

double DitherOffset(double binsPerUnit) {
  const double u = qorimg::DitherRandom() / 32767.0 - 0.5;
  return 2 * u * (3.0 / binsPerUnit);
}

// Counts a sample that lies within [fMin, fMax] in its bin, clamped to the last.
struct Binner {
  int *hist;
  int nBins;
  double fMin, fMax, binsPerUnit;
  void Add(double value) const {
    if (!(fMin <= value && value <= fMax)) return;
    const int bin = std::clamp(qorimg::TruncateToInt((value - fMin) * binsPerUnit), 0, nBins - 1);
    ++hist[bin];
  }
};

// Reads the sample of a histogram at one pixel: a raw plane, or the brightness on
// the 0..255 scale from the three planes mapped in single precision.
class SampleReader {
public:
  SampleReader(const CLmrImage &image, int plane) : image_(image), plane_(plane) {
    if (plane_ == -1)
      for (int p = 0; p < 3; ++p) {
        lo_[p] = static_cast<float>(image.GetLevelMin(p));
        scale_[p] = static_cast<float>(255.0 / image.GetLevelRange(p));
      }
  }
  void Line(int y) {
    for (int p = 0; p < (plane_ == -1 ? 3 : 1); ++p)
      line_[p] = image_.GetImageAdr(0, y, plane_ == -1 ? p : plane_, CImage::ReadOnly);
  }
  double At(int x) const {
    if (plane_ != -1) return line_[0][x];
    const float r = (line_[0][x] - lo_[0]) * scale_[0];
    const float g = (line_[1][x] - lo_[1]) * scale_[1];
    const float b = (line_[2][x] - lo_[2]) * scale_[2];
    return g * 0.587 + r * 0.299 + b * 0.114;
  }

private:
  const CLmrImage &image_;
  int plane_;
  const float *line_[3] = {nullptr, nullptr, nullptr};
  float lo_[3] = {0, 0, 0}, scale_[3] = {1, 1, 1};
};

// The rows and columns to visit: the rectangle, or the culled sample (rows as
// listed, columns relative to the rectangle's left). Listed positions outside
// the image are passed over.
struct SamplePattern {
  bool culled = false;
  long long visited = 0;
  std::vector<int> rows, columns;
};

SamplePattern MakePattern(CLmrImage &image, const qorimg::LineRect &r, int bCull) {
  SamplePattern pattern;
  int nX = 0, nY = 0;
  if (bCull && image.IsHistogramCullParam() && image.GetHistogramCull(&nX, &nY) &&
      !(nX == image.GetWidth() && nY == image.GetHeight())) {
    pattern.culled = true;
    const auto &cullX = image.GetHistogramCullXRef();
    const auto &cullY = image.GetHistogramCullYRef();
    nX = std::clamp(nX, 0, static_cast<int>(cullX.size()));
    nY = std::clamp(nY, 0, static_cast<int>(cullY.size()));
    pattern.visited = static_cast<long long>(nX) * nY;
    for (int i = 0; i < nY; ++i)
      if (cullY[i] >= 0 && cullY[i] < image.GetHeight()) pattern.rows.push_back(cullY[i]);
    for (int j = 0; j < nX; ++j) {
      const long long x = static_cast<long long>(r.left) + cullX[j];
      if (x >= 0 && x < image.GetWidth()) pattern.columns.push_back(static_cast<int>(x));
    }
    return pattern;
  }
  for (int y = r.top; y < r.bottom; ++y) pattern.rows.push_back(y);
  return pattern;
}

// Visits every pixel of the pattern line by line: fn(x) after line(y).
template <class LineFn, class PixelFn>
void Visit(CLmrImage &image, const SamplePattern &pattern, const qorimg::LineRect &r, LineFn line, PixelFn pixel) {
  for (int y : pattern.rows) {
    line(y);
    if (pattern.culled)
      for (int x : pattern.columns) pixel(x);
    else
      for (int x = r.left; x < r.right; ++x) pixel(x);
    image.ShowProgress(1);
  }
}

// Scales the counts of a culled sample up to the whole image.
void ScaleCulled(int *hist, int nBins, const CLmrImage &image, long long visited) {
  if (visited <= 0) return;
  const long long pixels = static_cast<long long>(image.GetWidth()) * image.GetHeight();
  for (int i = 0; i < nBins; ++i) {
    const long long scaled = static_cast<long long>(hist[i]) * pixels / visited;
    hist[i] = static_cast<int>(std::min<long long>(scaled, std::numeric_limits<int>::max()));
  }
}

// log10 of each count times 10000; an empty bin gets the most negative int, the
// value the conversion of minus infinity gives on this processor.
void ToLogarithmic(int *hist, int nBins) {
  for (int i = 0; i < nBins; ++i) hist[i] = qorimg::TruncateToInt(std::log10(static_cast<double>(hist[i])) * 10000.0);
}

int FlatHeight(const CLmrImage &image, int nBins) {
  return qorimg::TruncateToInt(2.0 * image.GetHeight() * image.GetWidth() / nBins);
}

}  // namespace

// With no bins there is nothing to read: the height is 0.
int CLmrImage::GetHeightOfHistogram(int *pHist, int nBins) {
  if (nBins < 1 || !pHist) return 0;
  int height = pHist[0];
  for (int i = 1; i < nBins; ++i) height = std::max(height, pHist[i]);
  return height;
}

double CLmrImage::HstAntialias(double fValue, double fBinsPerUnit) {
  if (!DitherApplies(fBinsPerUnit)) return fValue;
  return fValue + DitherOffset(fBinsPerUnit);
}

void CLmrImage::HstAntialias(double r, double g, double b, double &outR, double &outG, double &outB,
                             double fBinsPerUnit) {
  const double offset = DitherApplies(fBinsPerUnit) ? DitherOffset(fBinsPerUnit) : 0.0;
  outR = r + offset;
  outG = g + offset;
  outB = b + offset;
}

int CLmrImage::GetHistogram(int *const pHist, int nBins, double fMin, double fMax, int nPlane, int bLog,
                            int bHeight, int bCull, CRect *rect, int bProgress, int idMessage) {
  if (!IsColor() && nPlane == -1) nPlane = 0;
  CheckPlane(nPlane == -1 ? 2 : nPlane);  // brightness reads planes 0 to 2
  if (!pHist && nBins > 0) AfxThrowInvalidArgException();
  const qorimg::LineRect r = qorimg::ClipRect(*this, rect, qorimg::Clip::OneSided);
  std::fill(pHist, pHist + std::max(nBins, 0), 0);

  if (nPlane == -1) {  // brightness is binned on the 0..255 scale of plane 0's level
    fMin = (fMin - LevelMin[0]) / LevelRange[0] * 255.0;
    fMax = (fMax - LevelMin[0]) / LevelRange[0] * 255.0;
  }
  const Binner binner{pHist, nBins, fMin, fMax, nBins / (fMax - fMin)};
  const SamplePattern pattern = MakePattern(*this, r, bCull);
  const bool counts = nBins >= 1 && !r.IsEmpty();
  qorimg::RouteTable routes;
  routes.planeLoop = [&](int) {
    if (!counts) return;
    SampleReader reader(*this, nPlane);
    Visit(
        *this, pattern, r, [&](int y) { reader.Line(y); },
        [&](int x) { binner.Add(HstAntialias(reader.At(x), binner.binsPerUnit)); });
    if (pattern.culled) ScaleCulled(pHist, nBins, *this, pattern.visited);
  };
  if (!pattern.culled)
    routes.pipelineCall = [&](int) {
      if (counts) qorimg::HistogramPlane(*this, nPlane, r, fMin, fMax, nBins, pHist);
      return 0;
    };
  qorimg::RunOperator({*this, bProgress, idMessage ? idMessage : 6166, r.Height(), r, {0, 1}},
                      {{this, nPlane == -1 ? 3 : nPlane + 1}}, routes);
  if (counts && bLog) ToLogarithmic(pHist, nBins);
  return bHeight ? GetHeightOfHistogram(pHist, nBins) : FlatHeight(*this, nBins);
}

// Three histograms of the raw planes, read together with one dither offset per
// pixel. A mono image gives -1 and leaves the arrays as they are.
int CLmrImage::GetHistogramRGB(int *const pRed, int *const pGreen, int *const pBlue, int nBins, double fMin,
                               double fMax, double *const, double *const, int bLog, int bHeight, int bCull,
                               CRect *rect, int bProgress, int idMessage) {
  if (!IsColor()) return -1;
  CheckPlane(2);
  if ((!pRed || !pGreen || !pBlue) && nBins > 0) AfxThrowInvalidArgException();
  const qorimg::LineRect r = qorimg::ClipRect(*this, rect, qorimg::Clip::OneSided);
  int *const hists[3] = {pRed, pGreen, pBlue};
  for (int *h : hists) std::fill(h, h + std::max(nBins, 0), 0);
  const double binsPerUnit = nBins / (fMax - fMin);
  const SamplePattern pattern = MakePattern(*this, r, bCull);
  const bool counts = nBins >= 1 && !r.IsEmpty();
  qorimg::RouteTable routes;
  routes.planeLoop = [&](int) {
    if (!counts) return;
    const Binner binners[3] = {{pRed, nBins, fMin, fMax, binsPerUnit},
                               {pGreen, nBins, fMin, fMax, binsPerUnit},
                               {pBlue, nBins, fMin, fMax, binsPerUnit}};
    const float *lines[3] = {nullptr, nullptr, nullptr};
    Visit(
        *this, pattern, r,
        [&](int y) {
          for (int p = 0; p < 3; ++p) lines[p] = GetImageAdr(0, y, p, CImage::ReadOnly);
        },
        [&](int x) {
          double v[3];
          HstAntialias(lines[0][x], lines[1][x], lines[2][x], v[0], v[1], v[2], binsPerUnit);
          for (int p = 0; p < 3; ++p) binners[p].Add(v[p]);
        });
    if (pattern.culled)
      for (int *h : hists) ScaleCulled(h, nBins, *this, pattern.visited);
  };
  if (!pattern.culled)
    routes.pipelineCall = [&](int) {
      if (counts) qorimg::HistogramRgbPlanes(*this, r, fMin, fMax, nBins, pRed, pGreen, pBlue);
      return 0;
    };
  qorimg::RunOperator({*this, bProgress, idMessage ? idMessage : 6166, r.Height(), r, {0, 1}}, {{this, 3}}, routes);
  if (counts && bLog)
    for (int *h : hists) ToLogarithmic(h, nBins);
  int result = FlatHeight(*this, nBins);
  if (bHeight) {
    result = GetHeightOfHistogram(pRed, nBins);
    result = std::max(result, GetHeightOfHistogram(pGreen, nBins));
    result = std::max(result, GetHeightOfHistogram(pBlue, nBins));
  }
  return result;
}
