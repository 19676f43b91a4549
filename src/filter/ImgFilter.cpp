// CImgFilter: the small windows, their filters and the mirrored work images.
#include "filter/ImgFilter.h"

#include <algorithm>
#include <cmath>
#include <cstring>

#include "core/OperatorRunner.h"
#include "filter/FilterInternal.h"
#include "filter/RankSelect.h"

using qorimg::LineRect;

namespace {

struct Tap {
  int dy, dx;
};
// The windows row by row; the centre is (0, 0).
constexpr Tap kCross[] = {{-1, 0}, {0, -1}, {0, 0}, {0, 1}, {1, 0}};
constexpr Tap kSquare[] = {{-1, -1}, {-1, 0}, {-1, 1}, {0, -1}, {0, 0}, {0, 1}, {1, -1}, {1, 0}, {1, 1}};
constexpr Tap kRound[] = {{-2, -1}, {-2, 0}, {-2, 1}, {-1, -2}, {-1, -1}, {-1, 0}, {-1, 1}, {-1, 2},
                          {0, -2},  {0, -1}, {0, 0},  {0, 1},   {0, 2},   {1, -2},  {1, -1}, {1, 0},
                          {1, 1},   {1, 2},  {2, -1}, {2, 0},   {2, 1}};

// Column offset dx at column x of a line of `width`: -1 and +1, -2 and +2 take
// their opposites at the edges; where that still leaves the line (planes of one
// or two columns) the column is clamped in. Returned relative to x.
int ColumnOffset(int x, int dx, int width) {
  if (dx == -1 && x == 0) dx = 1;
  else if (dx == 1 && x == width - 1) dx = -1;
  else if (dx == -2 && x <= 1) dx = 2;
  else if (dx == 2 && x >= width - 2) dx = -2;
  return std::clamp(x + dx, 0, std::max(width - 1, 0)) - x;
}

// The samples of window `code` at column x: count, with the centre's index.
struct Samples {
  float v[21];
  int count = 0;
  int centre = 0;
};

const Tap *TapsOf(int code, int &count);

bool Gather(float **rows, int x, int code, int width, Samples &s) {
  int n;
  const Tap *taps = TapsOf(code, n);
  if (!taps) return false;
  const int radius = code == 2 ? 2 : 1;
  for (int i = 0; i < n; ++i) {
    if (taps[i].dx == 0 && taps[i].dy == 0) s.centre = i;
    s.v[i] = rows[radius + taps[i].dy][ColumnOffset(x, taps[i].dx, width)];
  }
  s.count = n;
  return true;
}

// Element `rank` (clamped into the window) of the ascending samples, NaN last;
// the samples are exact in float, so sorting floats gives what doubles give.
bool RankOf(float **rows, int x, int code, int width, int rank, float &value) {
  Samples s;
  if (!Gather(rows, x, code, width, s)) return false;
  value = qorimg::filter::SelectNanLast(s.v, s.count, std::clamp(rank, 0, s.count - 1));
  return true;
}

// Row y - radius + k of the window: above the plane row -r, below it row
// 2h - r - 1; clamped in where that still leaves a short plane.
int WindowRow(int y, int radius, int k, int height) {
  int r = y - radius + k;
  if (r < 0) r = -r;
  if (r >= height) r = 2 * height - r - 1;
  return std::clamp(r, 0, std::max(height - 1, 0));
}

// The rows of the window around y.
std::vector<int> WindowRows(int y, int radius, int height) {
  std::vector<int> rows;
  for (int k = 0; k <= 2 * radius; ++k) rows.push_back(WindowRow(y, radius, k, height));
  return rows;
}

const Tap *TapsOf(int code, int &count) {
  switch (code) {
    case 0: count = 5; return kCross;
    case 1: count = 9; return kSquare;
    case 2: count = 21; return kRound;
    default: count = 0; return nullptr;
  }
}

}  // namespace

CImgFilter::~CImgFilter() = default;

int CImgFilter::GetMeanR(int nWindow) {
  switch (nWindow) {
    case 0:
    case 1: return 1;
    case 2: return 2;
    default: return 0;
  }
}

void CImgFilter::CalcRect(int &nLeft, int &nTop, int &nRight, int &nBottom, CRect *rect) {
  const int w = GetWidth(), h = GetHeight();
  if (!rect) {
    nLeft = nTop = 0;
    nRight = w;
    nBottom = h;
    return;
  }
  nLeft = std::clamp(static_cast<int>(rect->left), 0, w);
  nRight = std::clamp(static_cast<int>(rect->right), 0, w);
  nTop = std::clamp(static_cast<int>(rect->top), 0, h);
  nBottom = std::clamp(static_cast<int>(rect->bottom), 0, h);
}

void CImgFilter::CalcShift(int &nX, int &nY, int, CLmrImage *other) {
  if (!other) return;
  if (GetWidth() < other->GetWidth() || GetHeight() < other->GetHeight()) {
    nX = (other->GetWidth() - GetWidth()) / 2;
    nY = (other->GetHeight() - GetHeight()) / 2;
  }
}

void CImgFilter::SetFilterAdr(int x, int y, int nPlane, int nR, float **rows, CImage::Mode mode) {
  const CImage::Mode read = (mode & 2) ? CImage::ReadOnlyLock : CImage::ReadOnly;
  for (int k = 0; k <= 2 * nR; ++k) rows[k] = GetImageAdr(x, WindowRow(y, nR, k, GetHeight()), nPlane, read);
}

// ---- Window values ----

float CImgFilter::GetMeanRaw(float **rows, int x, int nWindow, double fWeight, double *pPlain) {
  Samples s;
  if (!Gather(rows, x, nWindow, GetWidth(), s)) {
    if (pPlain) *pPlain = rows[0][0];
    return rows[0][0];
  }
  float sum = 0.0f;
  for (int i = 0; i < s.count; ++i)
    if (i != s.centre) sum += s.v[i];
  const double c = s.v[s.centre], n = s.count - 1;
  if (pPlain) *pPlain = (sum + c) / (n + 1);
  return static_cast<float>((sum * fWeight + c) / (fWeight * n + 1));
}

float CImgFilter::GetMeanRaw(int x, int y, int nWindow, double fWeight, int nPlane) {
  float *rows[5];
  SetFilterAdr(x, y, nPlane, GetMeanR(nWindow), rows, CImage::ReadOnly);
  return GetMeanRaw(rows, x, nWindow, fWeight, nullptr);
}

float CImgFilter::GetMedianRaw(float **rows, int x, int nWindow) {
  // Index 2, 4 or 10 of 5, 9 or 21 samples.
  float v;
  return RankOf(rows, x, nWindow, GetWidth(), nWindow == 0 ? 2 : nWindow == 1 ? 4 : 10, v) ? v : rows[0][0];
}

float CImgFilter::GetMedianRaw(int x, int y, int nWindow, int nPlane) {
  float *rows[5];
  SetFilterAdr(x, y, nPlane, GetMedianR(nWindow), rows, CImage::ReadOnly);
  return GetMedianRaw(rows, x, nWindow);
}

float CImgFilter::GetMinMaxRaw(float **rows, int x, int nWindow, int nRank) {
  float v;
  return RankOf(rows, x, nWindow, GetWidth(), nRank, v) ? v : rows[0][0];
}

float CImgFilter::GetLaplacianRaw(float **rows, int x, int nWindow, int nPlane) {
  const int w = GetWidth(), l = ColumnOffset(x, -1, w), r = ColumnOffset(x, 1, w);
  const float *top = rows[0], *mid = rows[1], *bottom = rows[2];
  double v;
  switch (nWindow) {
    case 0: v = 4.0 * mid[0] - (static_cast<double>(mid[l]) + top[0] + mid[r] + bottom[0]); break;
    case 1:
      v = 8.0 * mid[0] - (static_cast<double>(top[l]) + top[0] + top[r] + mid[l] + mid[r] + bottom[l] + bottom[0] +
                          bottom[r]);
      break;
    case 2:
      v = static_cast<double>(top[l]) - 2.0 * top[0] + top[r] - 2.0 * mid[l] + 4.0 * mid[0] - 2.0 * mid[r] +
          bottom[l] - 2.0 * bottom[0] + bottom[r];
      break;
    default: v = rows[0][0];
  }
  return static_cast<float>(std::fabs(v) + GetLevelMin(nPlane));
}

float CImgFilter::HighPassRaw(int x, int y, int nPlane) {
  const int w = GetWidth(), h = GetHeight();
  double sum = 0.0;
  for (int dy = -1; dy <= 1; ++dy)
    for (int dx = -1; dx <= 1; ++dx)
      if (dx || dy) sum += GetPixelGrayRaw(std::clamp(x + dx, 0, w - 1), std::clamp(y + dy, 0, h - 1), nPlane);
  return static_cast<float>(std::fabs(8.0 * GetPixelGrayRaw(x, y, nPlane) - sum));
}

// The 0..255 and above-minimum twins (CLmrImage::To256 maps in double).
namespace {
float AboveMin(const CLmrImage &image, float v, int plane) {
  return static_cast<float>(v - image.GetLevelMin(plane));
}
}  // namespace

float CImgFilter::GetMean256f(float **rows, int x, int nWindow, double fWeight, double *pPlain, int nPlane) {
  return To256(GetMeanRaw(rows, x, nWindow, fWeight, pPlain), nPlane);
}
float CImgFilter::GetMean256f(int x, int y, int nWindow, double fWeight, int nPlane) {
  return To256(GetMeanRaw(x, y, nWindow, fWeight, nPlane), nPlane);
}
float CImgFilter::GetMedian256f(float **rows, int x, int nWindow, int nPlane) {
  return To256(GetMedianRaw(rows, x, nWindow), nPlane);
}
float CImgFilter::GetMedian256f(int x, int y, int nWindow, int nPlane) {
  return To256(GetMedianRaw(x, y, nWindow, nPlane), nPlane);
}
float CImgFilter::GetLaplacian256f(float **rows, int x, int nWindow, int nPlane) {
  return To256(GetLaplacianRaw(rows, x, nWindow, nPlane), nPlane);
}
float CImgFilter::GetMeanGray(float **rows, int x, int nWindow, double fWeight, double *pPlain, int nPlane) {
  return AboveMin(*this, GetMeanRaw(rows, x, nWindow, fWeight, pPlain), nPlane);
}
float CImgFilter::GetMeanGray(int x, int y, int nWindow, double fWeight, int nPlane) {
  return AboveMin(*this, GetMeanRaw(x, y, nWindow, fWeight, nPlane), nPlane);
}
float CImgFilter::GetMedianGray(float **rows, int x, int nWindow, int nPlane) {
  return AboveMin(*this, GetMedianRaw(rows, x, nWindow), nPlane);
}
float CImgFilter::GetMedianGray(int x, int y, int nWindow, int nPlane) {
  return AboveMin(*this, GetMedianRaw(x, y, nWindow, nPlane), nPlane);
}
float CImgFilter::GetLaplacianGray(float **rows, int x, int nWindow, int nPlane) {
  return AboveMin(*this, GetLaplacianRaw(rows, x, nWindow, nPlane), nPlane);
}

// ---- Window filters ----

void CImgFilter::WindowFilter(int id, int nWindow, int radius, CLmrImage *src, CRect *rect, int bProgress,
                              int firstPlane, int planeCount, const std::function<float(float **rows, int x)> &pixel,
                              int rank) {
  const LineRect r = qorimg::ClipRect(*this, rect);
  const int planesRead = firstPlane + planeCount;
  if (firstPlane < 0) AfxThrowInvalidArgException();
  qorimg::CheckBoundImages({{this, planesRead}, {src, planesRead}}, r);
  const qorimg::filter::SourceCopy source(src, *this);
  // Rank filters take four pixels at a time through a sorting network where
  // every tap of the window stays inside the line (columns 2 .. width - 3).
  int count = 0;
  const Tap *taps = rank >= 0 ? TapsOf(nWindow, count) : nullptr;
  const qorimg::filter::RankNetwork network(std::max(count, 1));
  const int vectorFirst = std::max(r.left, 2), vectorEnd = std::min(r.right, GetWidth() - 2);
  qorimg::RouteTable routes;
  routes.parallelLines = true;
  routes.line = [&](int p, int y) {
    const qorimg::filter::LockedLine dst(*this, r.left, y, p, false);
    const qorimg::filter::LockedRows window(*source.get(), r.left, p, WindowRows(y, radius, GetHeight()));
    float *at[5];
    auto scalar = [&](int x) {
      for (int k = 0; k <= 2 * radius; ++k) at[k] = window.lines()[k] + (x - r.left);
      dst.get()[x - r.left] = pixel(at, x);
    };
    int x = r.left;
    if (taps) {
      for (; x < vectorFirst; ++x) scalar(x);
      __m128 v[32];
      for (; x + 4 <= vectorEnd; x += 4) {
        for (int i = 0; i < count; ++i)
          v[i] = _mm_loadu_ps(window.lines()[radius + taps[i].dy] + (x - r.left) + taps[i].dx);
        network.Select(v, std::clamp(rank, 0, count - 1), dst.get() + (x - r.left));
      }
    }
    for (; x < r.right; ++x) scalar(x);
  };
  qorimg::RunOperator({*this, bProgress, id, r.Height() * GetPlanes(), r, {firstPlane, planeCount}},
                      {{this, planesRead}, {source.get(), planesRead}}, routes);
}

void CImgFilter::MedianFilter(int nWindow, CLmrImage *src, CRect *rect, int bProgress) {
  WindowFilter(6120, nWindow, GetMedianR(nWindow), src, rect, bProgress, 0, GetPlanes(),
               [&](float **rows, int x) { return GetMedianRaw(rows, x, nWindow); },
               nWindow == 0 ? 2 : nWindow == 1 ? 4 : 10);
}

void CImgFilter::MinMaxFilter(int nWindow, int nRank, CLmrImage *src, CRect *rect, int bProgress) {
  WindowFilter(6153, nWindow, GetMinMaxR(nWindow), src, rect, bProgress, 0, GetPlanes(),
               [&](float **rows, int x) { return GetMinMaxRaw(rows, x, nWindow, nRank); }, nRank);
}

void CImgFilter::LaplacianFilter(int nWindow, CLmrImage *src, CRect *rect, int bProgress) {
  // A window of radius 1 for every code, and plane 0's level minimum for all planes.
  WindowFilter(6143, nWindow, 1, src, rect, bProgress, 0, GetPlanes(),
               [&](float **rows, int x) { return GetLaplacianRaw(rows, x, nWindow, 0); }, -1);
}

void CImgFilter::UnSharpMask(double fAmount, int nWindow, double fWeight, double fThreshold, CLmrImage *src,
                             CRect *rect, int bProgress) {
  UnSharpMaskPlanes(fAmount, nWindow, fWeight, fThreshold, src, 0, GetPlanes(), rect, bProgress);
}

void CImgFilter::UnSharpMask(double fAmount, int nWindow, double fWeight, double fThreshold, CLmrImage *src,
                             int nPlane, CRect *rect, int bProgress) {
  UnSharpMaskPlanes(fAmount, nWindow, fWeight, fThreshold, src, nPlane, 1, rect, bProgress);
}

void CImgFilter::UnSharpMaskPlanes(double fAmount, int nWindow, double fWeight, double fThreshold, CLmrImage *src,
                                   int firstPlane, int planeCount, CRect *rect, int bProgress) {
  const int radius = GetMeanR(nWindow);
  WindowFilter(
      6122, nWindow, radius, src, rect, bProgress, firstPlane, planeCount,
      [&](float **rows, int x) {
        double plain = 0.0;
        const double m = GetMeanRaw(rows, x, nWindow, fWeight, &plain), c = rows[radius][0];
        return std::fabs(plain / c - 1.0) >= fThreshold ? static_cast<float>((c - m) * fAmount + c)
                                                         : static_cast<float>(c);
      },
      -1);
}

// ---- Work images ----

CLmrImage *CImgFilter::MakeFilterWork(int nR, int bProgress) { return MakeWork(nR, bProgress, false); }

CLmrImage *CImgFilter::MakeDDWork(int nR, int bProgress) { return MakeWork(nR, bProgress, true); }

namespace {
// Index of the work image's margin in the source: negative reads its absolute
// value, beyond the end 2 size - index - 1; clamped in for margins wider than
// the image.
int MirrorIndex(int i, int size) {
  if (i < 0) i = -i;
  if (i >= size) i = 2 * size - i - 1;
  return std::clamp(i, 0, size - 1);
}
}  // namespace

CLmrImage *CImgFilter::MakeWork(int nR, int bProgress, bool development) {
  const int radius = nR == 0 ? 2 : nR;
  const int w = GetWidth(), h = GetHeight(), planes = GetPlanes();
  if (radius < 0 || w <= 0 || h <= 0 || w > INT_MAX - 2 * radius || h > INT_MAX - 2 * radius) return nullptr;
  const int ww = w + 2 * radius, wh = h + 2 * radius;
  const bool brightness = development && planes >= 3;
  const int workPlanes = development ? (brightness ? 4 : 1) : planes;
  try {
    const std::shared_ptr<CVmManager> manager = VmManager();
    if (!manager) return nullptr;
    auto work = std::make_unique<CLmrImage>(manager, CImage::Float32, ww, wh, workPlanes, 1.0, 0.0, 1,
                                            std::shared_ptr<lumora::Progress>());
    const int copied = std::min(workPlanes, planes);
    for (int c = 0; c < workPlanes; ++c) {
      const int from = c < copied ? c : 0;
      work->SetLevel(c, GetLevelMin(from), GetLevelMax(from));
    }
    const qorimg::ProgressFrame progress(*this, bProgress, development ? 6125 : 6126,
                                         2 * wh * copied + (brightness ? wh : 0));
    for (int c = 0; c < copied; ++c)
      for (int y = 0; y < h; ++y) {
        std::memcpy(work->GetImageAdr(radius, y + radius, c), GetImageAdr(0, y, c, CImage::ReadOnly),
                    sizeof(float) * static_cast<size_t>(w));
        ShowProgress(1);
      }
    for (int c = 0; c < copied; ++c)
      for (int y = 0; y < wh; ++y) {
        float *line = work->GetImageAdr(0, y, c);
        const float *from = GetImageAdr(0, MirrorIndex(y - radius, h), c, CImage::ReadOnly);
        const bool middleRow = y >= radius && y < radius + h;
        for (int x = 0; x < ww; ++x)
          if (!middleRow || x < radius || x >= radius + w) line[x] = from[MirrorIndex(x - radius, w)];
        ShowProgress(1);
      }
    if (brightness) {
      const double lo = GetLevelMin(0), range = GetLevelRange(0);
      for (int y = 0; y < wh; ++y) {
        const float *r = work->GetImageAdr(0, y, 0, CImage::ReadOnly), *g = work->GetImageAdr(0, y, 1, CImage::ReadOnly),
                    *b = work->GetImageAdr(0, y, 2, CImage::ReadOnly);
        float *mean = work->GetImageAdr(0, y, 3);
        for (int x = 0; x < ww; ++x) {
          const float g0 = static_cast<float>((r[x] - lo) / range * 255.0);
          const float g1 = static_cast<float>((g[x] - lo) / range * 255.0);
          const float g2 = static_cast<float>((b[x] - lo) / range * 255.0);
          mean[x] = static_cast<float>((g0 + g1 + g2) / 3.0 / 255.0 * range + lo);
        }
        ShowProgress(1);
      }
    }
    return work.release();
  } catch (...) {
    // The host gets null when the store or the memory fails.
    return nullptr;
  }
}
