// CImgAutoLevel's sampled medians: the frame is summed in square cells of about
// 50000 in all, and the upper middle of the sorted cell sums, divided by the
// cell's pixel count, is the median. The mosaic forms take one cell grid per
// colour phase.
#include <algorithm>
#include <cmath>
#include <cwctype>
#include <new>
#include <string>
#include <vector>
#include "core/PlaneBinding.h"
#include "kernels/Buffers.h"
#include "kernels/Runtime.h"
#include "kernels/Tone.h"
#include "tone/ImgAutoLevel.h"
#include "tone/ToneInternal.h"

using qorimg::LineRect;
using qorimg::tone::SampleKind;
using qorimg::tone::SampleReader;

namespace {

constexpr unsigned kCellTarget = 50000;

// The element at count / 2 of the ascending order (the upper middle for an
// even count), NaN sorted last; NaN when there is no cell.
double UpperMiddle(std::vector<double> &cells) {
  if (cells.empty()) return NAN;
  const auto middle = cells.begin() + static_cast<std::ptrdiff_t>(cells.size() / 2);
  std::nth_element(cells.begin(), middle, cells.end(), [](double a, double b) {
    return a < b || (!std::isnan(a) && std::isnan(b));
  });
  return *middle;
}

// binning_float over the rectangle of one plane: cell sums in double.
void BinPlane(const CLmrImage &image, int plane, const LineRect &r, int n, int nx, int ny,
              std::vector<double> &cells) {
  const halide_dimension_t inputShape[2] = {{0, r.Width(), 1}, {0, r.Height(), image.GetWidth()}};
  qorimg::kernels::KernelBuffer<const float, 2> input(image.GetImageAdr(r.left, r.top, plane, CImage::ReadOnly),
                                                           2, inputShape);
  const halide_dimension_t outputShape[2] = {{0, nx, 1}, {0, ny, nx}};
  qorimg::kernels::KernelBuffer<double, 2> binned(cells.data(), 2, outputShape);
  qorimg::kernels::CheckPipeline(binning_float(input, n, binned));
}

// The same sums accumulated in single precision, cell rows in parallel.
void BinLines(const SampleReader &reader, const LineRect &r, int n, int nx, int ny, std::vector<double> &cells) {
  qorimg::ParallelLines(0, ny, [&](int cy) {
    std::vector<float> sums(static_cast<std::size_t>(nx), 0.0f);
    for (int j = 0; j < n; ++j) {
      const float *s = reader.Line(r.top + cy * n + j, r.left, r.left + nx * n);
      for (int cx = 0; cx < nx; ++cx)
        for (int i = 0; i < n; ++i) sums[static_cast<std::size_t>(cx)] += s[cx * n + i];
    }
    std::copy(sums.begin(), sums.end(), cells.begin() + static_cast<std::ptrdiff_t>(cy) * nx);
  });
}

// The median of one phase of a mosaic on plane 0: cells start at (x0, y0) and
// follow each other `step` apart while below (x0 + extentX, y0 + extentY); a
// cell is the double sum of n x n samples `spacing` apart.
double PhaseMedian(const CLmrImage &image, int x0, int y0, int extentX, int extentY, int step, int spacing, int n,
                   std::size_t capacity) {
  const int columns = extentX > 0 ? (extentX + step - 1) / step : 0;
  const int rows = extentY > 0 ? (extentY + step - 1) / step : 0;
  std::vector<double> cells;
  cells.reserve(capacity);
  cells.resize(static_cast<std::size_t>(columns) * static_cast<std::size_t>(rows));
  qorimg::ParallelLines(0, rows, [&](int row) {
    double *sums = cells.data() + static_cast<std::ptrdiff_t>(row) * columns;
    for (int j = 0; j < n; ++j) {
      const float *line = image.GetImageAdr(0, y0 + row * step + j * spacing, 0, CImage::ReadOnly);
      for (int col = 0; col < columns; ++col)
        for (int i = 0; i < n; ++i) sums[col] += line[x0 + col * step + i * spacing];
    }
  });
  return UpperMiddle(cells) / (static_cast<double>(n) * n);
}

bool NeedsHoneyCombMargins(const CLmrImage &image) {
  const CHeader *header = image.GetHeader();
  if (!header || !header->GetCameraModel()) return false;
  std::wstring model = header->GetCameraModel();
  for (wchar_t &c : model) c = static_cast<wchar_t>(std::towlower(static_cast<wint_t>(c)));
  return model.find(L"finepixs2pro") != std::wstring::npos;
}

}  // namespace

void CImgAutoLevel::GetMedian(float *pMedian, int bSampling, int bBrightness, int nPlane, CRect *rect) {
  const LineRect r = qorimg::ClipRect(*this, rect);
  qorimg::CheckBoundImages({{this, 1}}, r);
  const int w = r.IsEmpty() ? 0 : r.Width(), h = r.IsEmpty() ? 0 : r.Height();
  const unsigned pixels = static_cast<unsigned>(w) * static_cast<unsigned>(h);
  int n = 1;
  if (bSampling && pixels > kCellTarget) n = static_cast<int>(std::sqrt(static_cast<double>(pixels / kCellTarget)) + 0.5);
  const int nx = w / n, ny = h / n;
  const SampleKind kind = qorimg::tone::KindFor(*this, bBrightness != 0, SampleKind::RawBright, nPlane);
  std::vector<double> cells;
  if (kind != SampleKind::Nothing && nx > 0 && ny > 0) {
    cells.resize(static_cast<std::size_t>(nx) * static_cast<std::size_t>(ny));
    if (IsColor() && !bBrightness && qorimg::IsWholePlane(*this))
      BinPlane(*this, nPlane, r, n, nx, ny, cells);
    else
      BinLines(SampleReader(*this, kind, qorimg::tone::PlaneFor(*this, nPlane)), r, n, nx, ny, cells);
  }
  const float middle = static_cast<float>(UpperMiddle(cells));
  if (pMedian) *pMedian = middle / static_cast<float>(n * n);
}

void CImgAutoLevel::GetMedianBayer(float *pMedian, int bSampling) {
  qorimg::CheckBoundImages({{this, 1}}, qorimg::ClipRect(*this, nullptr));
  const int w = GetWidth(), h = GetHeight();
  const unsigned pixels = static_cast<unsigned>(w) * static_cast<unsigned>(h);
  int n = 1;
  if (bSampling && pixels > kCellTarget)
    n = static_cast<int>(static_cast<int>(std::sqrt(static_cast<double>(pixels / kCellTarget)) + 0.5) * 0.5);
  // Between 50001 and 149999 pixels the half block truncates to 0 and the work
  // array's size, pixels / 4 / n^2, has no finite value: the allocation fails.
  if (n == 0) throw std::bad_alloc();
  const std::size_t capacity = static_cast<std::size_t>(pixels * 0.25 / (static_cast<double>(n) * n));
  const int step = 2 * n;
  const int ex = w / step * step, ey = h / step * step;
  const int phases[4][2] = {{0, 0}, {1, 0}, {0, 1}, {1, 1}};
  for (int k = 0; k < 4; ++k) {
    const float value = static_cast<float>(PhaseMedian(*this, phases[k][0], phases[k][1], ex, ey, step, 2, n, capacity));
    if (pMedian) pMedian[k] = value;
  }
}

void CImgAutoLevel::GetMedianHoneyComb(double *pGain, int bSampling) {
  qorimg::CheckBoundImages({{this, 1}}, qorimg::ClipRect(*this, nullptr));
  int w = GetWidth(), h = GetHeight(), marginX = 0, marginY = 0;
  if (NeedsHoneyCombMargins(*this)) {
    w -= 96;
    h -= 60;
    marginX = 48;
    marginY = 30;
  }
  const double q = static_cast<double>(w) * h * 0.0625;
  int n = 1;
  if (bSampling && qorimg::tone::TruncateOrMin(q) > static_cast<int>(kCellTarget))
    n = static_cast<int>(std::sqrt(q / kCellTarget) + 0.5);
  const std::size_t capacity = q > 0 ? static_cast<std::size_t>(q / (static_cast<double>(n) * n)) : 0;
  const int step = 4 * n;
  const int ex = w / step * step, ey = h / step * step;
  const int phases[8][2] = {{1, 0}, {0, 1}, {1, 2}, {0, 3}, {3, 0}, {2, 1}, {3, 2}, {2, 3}};
  double value[8];
  for (int k = 0; k < 8; ++k)
    value[k] = PhaseMedian(*this, marginX + phases[k][0], marginY + phases[k][1], ex, ey, step, 4, n, capacity);
  double largest = value[0];
  for (int k = 1; k < 8; ++k)
    if (value[k] > largest) largest = value[k];
  if (pGain)
    for (int k = 0; k < 8; ++k) pGain[k] = largest / value[k];
}
