// The strip loop of CImgBayerToRgb for block-stored images: each worker takes
// eight mosaic rows at a time into its own strip buffer, computes brightness
// and colour planes there and writes two result rows. Only eight rows per
// worker are ever held, so frames larger than memory can be developed.
#include <algorithm>
#include <atomic>
#include <cstring>
#include <vector>
#include "core/LineLoops.h"
#include "develop/BayerMath.h"
#include "develop/BayerPlanes.h"
#include "develop/ImgBayerToRgb.h"
#include "sibling/QorSys.h"

namespace {

using qorimg::develop::Phase;

// Strip planes: 0 the mosaic, 1 blue, 2 green, 3 red, 4 or 5 brightness.
constexpr int kStripPlanes = 6, kWorkPlanes = 3, kStripRows = 8;
constexpr int kBlue = 1, kGreen = 2, kRed = 3;

int BrightnessPlane(int nSlot) { return nSlot ? 4 : 5; }

// fn(i, x, row) over the strip's inner range: rows 1 to nRows - 2, columns 1
// to w' - 2 with w' the width rounded down to even; i indexes the strip.
template <class Fn>
void ForEachInner(unsigned long w, unsigned long nRows, Fn fn) {
  const long stride = static_cast<long>(w), we = stride & ~1L;
  for (long row = 1; row + 1 < static_cast<long>(nRows); ++row)
    for (long x = 1; x + 1 < we; ++x) fn(row * stride + x, x, row);
}

}  // namespace

// Rows y - 3 to y + 4 of a mosaic plane into the strip. Refuses a plane above
// 1, y below 3, and any y whose last row y + 4 lies outside the mosaic (the
// nearest defined reading of "y above h - 4", which would read row h).
int CImgBayerToRgb::CopyOrgToDisp(CImage *pBayer, float *pStrip, int nPlane, unsigned long y, unsigned long w,
                                  unsigned long h, unsigned long nRows) {
  if (nPlane > 1 || nPlane < 0 || y < 3 || y + 4 >= h || nRows < 8) return 0;
  for (unsigned long r = 0; r < 8; ++r)
    std::memcpy(pStrip + r * w, qorimg::develop::FloatRow(*pBayer, static_cast<int>(y - 3 + r), nPlane),
                sizeof(float) * w);
  return 1;
}

// The brightness of a strip. The work planes take r, g, b: at R and B sites
// from the mosaic and the diagonal and cross means, then at G sites the mean
// of the four neighbours' r and b. Rows 1 to nRows - 2 and columns 1 to
// w' - 2 (w' the width rounded down to even) are filled; elsewhere the raw
// mosaic stands. Strip rows keep the parity of their image rows.
int CImgBayerToRgb::MakeYImage(float *pStrip, float *pWork, tagBayerStruct *s, int nSlot, unsigned long w,
                               unsigned long nRows) {
  using namespace qorimg::develop;
  const Phase phase(s->nPattern);
  const long stride = static_cast<long>(w), size = stride * static_cast<long>(nRows);
  float *r = pWork, *g = pWork + size, *b = pWork + 2 * size;
  for (int k = 0; k < kWorkPlanes; ++k) std::memcpy(pWork + k * size, pStrip, sizeof(float) * size);
  ForEachInner(w, nRows, [&](long i, long x, long row) {
    const float *m = pStrip + i;
    if (phase.IsRed(x, row)) {
      g[i] = Cross(m, stride);
      b[i] = Diagonal(m, stride);
    } else if (phase.IsBlue(x, row)) {
      r[i] = Diagonal(m, stride);
      g[i] = Cross(m, stride);
    }
  });
  ForEachInner(w, nRows, [&](long i, long x, long row) {
    if (!phase.IsGreen(x, row)) return;
    r[i] = Cross(r + i, stride);
    b[i] = Cross(b + i, stride);
  });
  float *y = pStrip + BrightnessPlane(nSlot) * size;
  for (long i = 0; i < size; ++i) y[i] = Brightness(r[i], g[i], b[i]);
  return 1;
}

// The colour planes of a strip by site: R site (m, C, D), B site (D, C, m),
// G in a red row (H, m, V), G in a blue row (V, m, H); same range as the
// brightness, the raw mosaic elsewhere.
int CImgBayerToRgb::MakeRGBImage(float *pStrip, float *pWork, tagBayerStruct *s, int nSlot, unsigned long w,
                                 unsigned long nRows) {
  using namespace qorimg::develop;
  const Phase phase(s->nPattern);
  const long stride = static_cast<long>(w), size = stride * static_cast<long>(nRows);
  for (int k : {kBlue, kGreen, kRed}) std::memcpy(pStrip + k * size, pStrip, sizeof(float) * size);
  float *red = pStrip + kRed * size, *green = pStrip + kGreen * size, *blue = pStrip + kBlue * size;
  ForEachInner(w, nRows, [&](long i, long x, long row) {
    const float *m = pStrip + i;
    if (phase.IsRed(x, row)) {
      green[i] = Cross(m, stride);
      blue[i] = Diagonal(m, stride);
    } else if (phase.IsBlue(x, row)) {
      red[i] = Diagonal(m, stride);
      green[i] = Cross(m, stride);
    } else if (phase.RowHasRed(row)) {
      red[i] = Horizontal(m);
      blue[i] = Vertical(m, stride);
    } else {
      red[i] = Vertical(m, stride);
      blue[i] = Horizontal(m);
    }
  });
  return 1;
}

// Result rows y - nCutTop and y - nCutTop + 1 (strip rows 3 and 4), where they
// lie inside the result: each colour is (1/9) of the 3 x 3 sum of (c - Y),
// columns first, plus Y; brightness alone for bMono. Column -1 reads column 1
// and column w' reads w' - 2, as the pipelines' reflection does.
int CImgBayerToRgb::SynthImage(float *pStrip, tagBayerStruct *s, int nMode, unsigned long y, unsigned long nRows,
                               unsigned long w, float fMin, float fMax) {
  using namespace qorimg::develop;
  const long stride = static_cast<long>(w), size = stride * static_cast<long>(nRows);
  const long we = stride & ~1L;
  const float *bright = pStrip + BrightnessPlane(nMode == 2) * size;
  const long right = std::min(stride - s->nCutRight, we), height = GetHeight();
  for (long row = 3; row <= 4; ++row) {
    const long out = static_cast<long>(y) + row - 3 - s->nCutTop;
    if (out < 0 || out >= height) continue;
    const float *yr = bright + row * stride;
    const int planes = s->bMono ? 1 : 3;
    for (int c = 0; c < planes; ++c) {
      float *dst = GetImageAdr(0, static_cast<int>(out), c);
      const float *plane = pStrip + (kRed - c) * size + row * stride;
      auto column = [&](long x) {
        return (plane[x - stride] - yr[x - stride]) + (plane[x] - yr[x]) + (plane[x + stride] - yr[x + stride]);
      };
      for (long x = s->nCutLeft; x < right; ++x) {
        float v = yr[x];
        if (!s->bMono) {
          const long left = x == 0 ? 1 : x - 1, next = x + 1 == we ? we - 2 : x + 1;
          v = (column(left) + column(x) + column(next)) * 0.11111111f + yr[x];
        }
        dst[x - s->nCutLeft] = s->bLevelCut ? LevelCut(v, fMin, fMax) : v;
      }
    }
  }
  return 1;
}

// The loop over odd y from 3 to h - 5, two result rows a step, each worker
// with its own strip and work buffers. The result is zero-filled first, so
// rows that no step reaches are 0. A failed step stops the later ones.
int CImgBayerToRgb::DemosaicByStrips(CImage &bayer, int plane, tagBayerStruct &s, float fMin, float fMax) {
  const int w = bayer.GetWidth(), h = bayer.GetHeight();
  const std::size_t size = static_cast<std::size_t>(w) * kStripRows;
  const int threads = std::max(CParallel::GetMaxThreads(), 1);
  std::vector<std::vector<float>> strips, works;
  for (int t = 0; t < threads; ++t) {
    strips.emplace_back(size * kStripPlanes, 0.0f);
    works.emplace_back(size * kWorkPlanes, 0.0f);
  }
  const int planes = GetPlanes(), dw = GetWidth();
  for (int c = 0; c < planes; ++c)
    qorimg::ParallelLines(0, GetHeight(), [&](int y) { std::fill_n(GetImageAdr(0, y, c), dw, 0.0f); });

  const int nSlot = s.bTone ? 1 : 0, nMode = s.bTone ? 2 : 0;
  const int first = 1 + 2 * (s.nCutTop / 2), last = 2 * ((h - s.nCutBottom) / 2) - 1;
  const int steps = h >= 8 ? (h - 5 - 3) / 2 + 1 : 0;
  std::atomic<int> failed{0};
  qorimg::ParallelLines(0, steps, [&](int i) {
    ShowProgress(2);
    const int y = 3 + 2 * i;
    if (failed.load(std::memory_order_relaxed) || y < first || y > last) return;
    const int t = std::min(std::max(CParallel::GetThreadNum(), 0), threads - 1);
    float *strip = strips[static_cast<std::size_t>(t)].data(), *work = works[static_cast<std::size_t>(t)].data();
    const bool ok = CopyOrgToDisp(&bayer, strip, plane, y, w, h, kStripRows) &&
                    MakeYImage(strip, work, &s, nSlot, w, kStripRows) &&
                    (s.bMono || MakeRGBImage(strip, work, &s, nSlot, w, kStripRows)) &&
                    SynthImage(strip, &s, nMode, y, kStripRows, w, fMin, fMax);
    if (!ok) failed.store(1, std::memory_order_relaxed);
  });
  return failed.load() ? 0 : 1;
}
