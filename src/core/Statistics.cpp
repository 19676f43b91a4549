// Minimum, maximum and averages of planes, the centroid of a star in a
// rectangle, and the first or brightest pixel of a region.
#include <algorithm>
#include <cmath>
#include <vector>
#include "core/LineLoops.h"
#include "core/LmrImage.h"
#include "core/OperatorRunner.h"
#include "core/PixelMath.h"
#include "core/StatisticsRoutes.h"

namespace {

// The last step of every centroid: a result whose rounded pixel is not in the
// (unclipped) rectangle, as with no weight at all, becomes its integer middle.
void SettleCentroid(double &fX, double &fY, const qorimg::LineRect &rect) {
  const bool finite = std::isfinite(fX + 0.5) && std::isfinite(fY + 0.5);
  const int px = qorimg::TruncateToInt(fX + 0.5), py = qorimg::TruncateToInt(fY + 0.5);
  if (finite && px >= rect.left && px < rect.right && py >= rect.top && py < rect.bottom) return;
  // In 64 bits: the middle of a far rectangle does not overflow.
  fX = static_cast<double>((static_cast<long long>(rect.left) + rect.right) / 2);
  fY = static_cast<double>((static_cast<long long>(rect.top) + rect.bottom) / 2);
}

qorimg::LineRect Unclipped(const CLmrImage &image, const CRect *rect) {
  if (!rect) return {0, 0, image.GetWidth(), image.GetHeight()};
  return {rect->left, rect->top, rect->right, rect->bottom};
}

}  // namespace

// Block route: each line summed in float, the line sums added in double, divided
// by (Width - 1) * (Height - 1), so averages run slightly high. (One float sum
// over a large frame loses much of it.) Whole-plane route: the store's own
// statistics in physical units, brought back to raw values. An image without
// pixels has nothing to measure and keeps its records.
void CLmrImage::CalcMinMax() {
  const int planes = std::min(GetPlanes(), 3);
  const int width = GetWidth(), height = GetHeight();
  if (!HasArea()) return;
  for (int p = 0; p < planes; ++p) {
    if (qorimg::IsWholePlane(*this)) {
      const auto [lo, hi, avr] = GetMinMaxAvr(p);
      const float a = static_cast<float>((lo - Bzero) / Bscale), b = static_cast<float>((hi - Bzero) / Bscale);
      MinPixel[p] = std::min(a, b);
      MaxPixel[p] = std::max(a, b);
      AvrPixel[p] = static_cast<float>((avr - Bzero) / Bscale);
      continue;
    }
    float min = *GetImageAdr(0, 0, p, CImage::ReadOnly), max = min;
    double sum = 0.0;
    for (int y = 0; y < height; ++y) {
      const float *line = GetImageAdr(0, y, p, CImage::ReadOnly);
      float lineSum = 0.0f;
      for (int x = 0; x < width; ++x) {
        const float v = line[x];
        if (v < min) min = v;
        if (v > max) max = v;
        lineSum += v;
      }
      sum += lineSum;
    }
    MinPixel[p] = min;
    MaxPixel[p] = max;
    AvrPixel[p] = static_cast<float>(sum / static_cast<double>(static_cast<long long>(width - 1) * (height - 1)));
  }
}

// For frames with a blank border: a margin is left out and zero samples do not
// count. With nothing counted the average is 0 / 0. A negative margin counts as
// none, so that the region never starts outside the image.
void CLmrImage::CalcMinMax(int nMargin) {
  const int width = GetWidth(), height = GetHeight();
  if (!HasArea()) return;
  const int margin = std::max(nMargin, 0);
  const int x0 = std::min(width - 1, margin), x1 = std::max(width - margin, 0);
  const int y0 = std::min(height - 1, margin), y1 = std::max(height - margin, 0);
  for (int p = 0; p < std::min(GetPlanes(), 3); ++p) {
    float min = *GetImageAdr(x0, y0, p, CImage::ReadOnly), max = min, sum = 0.0f;
    long long counted = 0;
    for (int y = y0; y < y1; ++y) {
      const float *line = GetImageAdr(0, y, p, CImage::ReadOnly);
      for (int x = x0; x < x1; ++x) {
        const float v = line[x];
        if (v == 0.0f) continue;
        if (v < min) min = v;
        if (v > max) max = v;
        sum += v;
        ++counted;
      }
    }
    MinPixel[p] = min;
    MaxPixel[p] = max;
    AvrPixel[p] = sum / static_cast<float>(counted);
  }
}

// Whole-plane route: each sample over Width * Height, summed in double. Block
// route: line sums in double, in parallel, added in line order, over
// (Width - 1) * (Height - 1), the divisor of CalcMinMax; the two routes differ by
// that factor. A failing line (a store error) reaches the caller.
float CLmrImage::GetAvrGrayRaw(int nPlane) {
  CheckPlane(nPlane);
  if (qorimg::IsWholePlane(*this) && HasArea()) return qorimg::AveragePlane(*this, nPlane);
  const int width = GetWidth(), height = GetHeight();
  std::vector<double> lineSums(static_cast<std::size_t>(std::max(height, 0)));
  qorimg::ParallelLines(0, height, [&](int y) {
    const float *line = GetImageAdr(0, y, nPlane, CImage::ReadOnly);
    double lineSum = 0.0;
    for (int x = 0; x < width; ++x) lineSum += line[x];
    lineSums[static_cast<std::size_t>(y)] = lineSum;
  });
  double sum = 0.0;
  for (double s : lineSums) sum += s;
  return static_cast<float>(sum / (width - 1) / (height - 1));
}

float CLmrImage::GetAvrGray(int nPlane) { return GetAvrGrayRaw(nPlane) - static_cast<float>(GetLevelMin(nPlane)); }

float CLmrImage::GetAvrGray256f(int nPlane) {
  return static_cast<float>((GetAvrGrayRaw(nPlane) - LevelMin[nPlane]) / LevelRange[nPlane] * 255.0);
}

// The centroid of what stands above the mean on the 0..255 scale, weighted by the
// square of the excess.
void CLmrImage::GetCentroid(double &fX, double &fY, CRect *rect) {
  const qorimg::LineRect r = qorimg::ClipRect(*this, rect, qorimg::Clip::OneSided);
  const qorimg::LineRect kept = Unclipped(*this, rect);
  double sumX = 0.0, sumY = 0.0, weight = 0.0;
  qorimg::RouteTable routes;
  routes.pipelineCall = [&](int) {
    if (!r.IsEmpty()) qorimg::CentroidPlanes(*this, r, sumX, sumY, weight);
    return 0;
  };
  routes.planeLoop = [&](int) {
    if (r.IsEmpty()) return;
    auto value = [&](const float *const *lines, int x) -> double {
      return IsColor() ? GetPixelBright256f(lines[0] + x, lines[1] + x, lines[2] + x)
                       : GetPixelGray256f(lines[0] + x, 0);
    };
    const float *lines[3] = {nullptr, nullptr, nullptr};
    auto readLine = [&](int y) {
      for (int p = 0; p < (IsColor() ? 3 : 1); ++p) lines[p] = GetImageAdr(0, y, p, CImage::ReadOnly);
    };
    double floorSum = 0.0;
    for (int y = r.top; y < r.bottom; ++y) {
      readLine(y);
      for (int x = r.left; x < r.right; ++x) floorSum += std::max(value(lines, x), 0.0);
    }
    const double mean = floorSum / r.Width() / r.Height();
    for (int y = r.top; y < r.bottom; ++y) {
      readLine(y);
      for (int x = r.left; x < r.right; ++x) {
        const double excess = std::max(value(lines, x) - mean, 0.0);
        const double q = excess * excess;
        sumX += x * q;
        sumY += y * q;
        weight += q;
      }
    }
  };
  qorimg::RunOperator({*this, 0, 0, 0, r, {0, 1}}, {{this, IsColor() ? 3 : 1}}, routes);
  fX = sumX / weight;
  fY = sumY / weight;
  SettleCentroid(fX, fY, kept);
}

void CLmrImage::GetCentroid(int &nX, int &nY, CRect *rect) {
  double fX, fY;
  GetCentroid(fX, fY, rect);
  nX = qorimg::TruncateToInt(fX + 0.5);
  nY = qorimg::TruncateToInt(fY + 0.5);
}

// The centroid of the raw values (brightness on colour images), with no mean and
// no floor, on every kind of image.
void CLmrImage::GetCentroidRaw(double &fX, double &fY, CRect *rect) {
  const qorimg::LineRect r = qorimg::ClipRect(*this, rect, qorimg::Clip::OneSided);
  double sumX = 0.0, sumY = 0.0, weight = 0.0;
  for (int y = r.top; y < r.bottom; ++y) {
    const float *line[3];
    for (int p = 0; p < (IsColor() ? 3 : 1); ++p) line[p] = GetImageAdr(0, y, p, CImage::ReadOnly);
    for (int x = r.left; x < r.right; ++x) {
      const double q = IsColor() ? 0.299 * line[0][x] + 0.587 * line[1][x] + 0.114 * line[2][x] : line[0][x];
      sumX += x * q;
      sumY += y * q;
      weight += q;
    }
  }
  fX = sumX / weight;
  fY = sumY / weight;
  SettleCentroid(fX, fY, Unclipped(*this, rect));
}

void CLmrImage::GetCentroidRaw(int &nX, int &nY, CRect *rect) {
  double fX, fY;
  GetCentroidRaw(fX, fY, rect);
  nX = qorimg::TruncateToInt(fX + 0.5);
  nY = qorimg::TruncateToInt(fY + 0.5);
}

float CLmrImage::Get1stBrighterPixel(int nPlane, CRect *rect, double fThreshold, int &nX, int &nY) {
  const qorimg::LineRect r = qorimg::ClipRect(*this, rect);
  nX = nY = -1;
  for (int y = r.top; y < r.bottom; ++y) {
    const float *line[3];
    for (int p = 0; p < (IsColor() ? 3 : 1); ++p) line[p] = GetImageAdr(0, y, IsColor() ? p : std::max(nPlane, 0), CImage::ReadOnly);
    for (int x = r.left; x < r.right; ++x) {
      const double v = IsColor() ? 0.299 * line[0][x] + 0.587 * line[1][x] + 0.114 * line[2][x] : line[0][x];
      if (v > fThreshold) {
        nX = x;
        nY = y;
        return static_cast<float>(v);
      }
    }
  }
  return 0.0f;
}

// The brightest raw sample of a region. Its top-left pixel starts as the best with
// coordinates -1, -1, so a region whose first pixel is the brightest (or whose
// pixels are all equal) reports -1, -1 with the right value. A region whose
// corner lies outside the image has no first pixel: 0.0 and -1, -1.
float CLmrImage::GetMaxPixel(int nPlane, CRect *rect, int &nX, int &nY) {
  const qorimg::LineRect r = qorimg::ClipRect(*this, rect);
  nX = nY = -1;
  if (!IsColor()) nPlane = std::max(nPlane, 0);
  CheckPlane(nPlane);
  if (r.left >= GetWidth() || r.top >= GetHeight()) return 0.0f;
  float best = *GetImageAdr(r.left, r.top, nPlane, CImage::ReadOnly);
  for (int y = r.top; y < r.bottom; ++y) {
    const float *line = GetImageAdr(0, y, nPlane, CImage::ReadOnly);
    for (int x = r.left; x < r.right; ++x)
      if (line[x] > best) {
        best = line[x];
        nX = x;
        nY = y;
      }
  }
  return best;
}
