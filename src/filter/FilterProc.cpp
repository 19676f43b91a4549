#include "filter/FilterProc.h"

#include <algorithm>
#include <cmath>

#include "core/LmrImage.h"
#include "filter/FilterInternal.h"
#include "filter/FilterMatrix.h"
#include "platform/Exceptions.h"
#include "sibling/QorSys.h"

namespace {

// Non-negative remainder.
int Wrap(int v, int n) {
  const int r = v % n;
  return r < 0 ? r + n : r;
}

// The ring's row rule: above the plane row -k reads row k, below it row
// height-1+k reads row height-k. Rows the rule would leave outside (a one-row
// plane read far away) are clamped in.
int RingRow(int v, int height) {
  const long long period = 2LL * height;
  long long r = v % period;
  if (r < 0) r = -r;
  if (r >= height) r = period - r - 1;
  return static_cast<int>(std::clamp<long long>(r, 0, height - 1));
}

// The window's row rule: reflection about the first and the last row, neither
// repeated; clamped in where a one-row plane leaves it outside.
int BlockRow(int v, int height) {
  const long long period = 2LL * height;
  long long r = std::llabs(static_cast<long long>(v)) % period;
  if (r >= height) r = period - r - 2;
  if (r < 0) r = -r;
  return static_cast<int>(std::clamp<long long>(r, 0, height - 1));
}

}  // namespace

// ---- CFilterProc ----

CFilterProc::CFilterProc() = default;

CFilterProc::CFilterProc(CLmrImage *image, CFilterMatrix *matrix, int nPlane) { MakeBuf(image, matrix, nPlane, 1); }

CFilterProc::CFilterProc(const CFilterProc &) {}

CFilterProc &CFilterProc::operator=(const CFilterProc &other) {
  if (this != &other) Empty();
  return *this;
}

CFilterProc::~CFilterProc() = default;

void CFilterProc::Init() {
  nR = nD = 0;
  image = nullptr;
  matrix = nullptr;
  nBufSize = 0;
  nPlane = 0;
  nWidth = 50;
  nHeight = 0;
  nThreads = 0;
}

void CFilterProc::Empty() {
  filter.clear();
  rings.clear();
  lastY.clear();
  ready.clear();
  Init();
}

int CFilterProc::MakeBuf(CLmrImage *source, CFilterMatrix *m, int plane, int bNormalize) {
  if (!source || !m || !m->GetMtxPtr()) AfxThrowInvalidArgException();
  source->CheckPlane(plane);
  const int threads = std::max(CParallel::GetMaxThreads(), 1);
  const int d = 2 * m->GetR() + 1;
  const int width = source->GetWidth();
  const long long size = static_cast<long long>(d) * width;
  if (size > INT_MAX) throw std::bad_alloc();
  if (size != nBufSize || threads != nThreads || rings.empty()) {
    rings.assign(static_cast<size_t>(threads), std::vector<float>(static_cast<size_t>(size)));
    nBufSize = static_cast<int>(size);
  }
  nThreads = threads;
  lastY.assign(static_cast<size_t>(threads), 0);
  ready.assign(static_cast<size_t>(threads), 0);
  image = source;
  matrix = m;
  nPlane = plane;
  nR = m->GetR();
  nD = d;
  nWidth = width;
  nHeight = source->GetHeight();

  filter.assign(m->GetMtxPtr() + static_cast<size_t>(nR) * nD, m->GetMtxPtr() + static_cast<size_t>(nR + 1) * nD);
  if (bNormalize) {
    float sum = 0.0f;
    for (float w : filter) sum += w;
    for (float &w : filter) w /= sum;
  }
  return 1;
}

int CFilterProc::Thread() const {
  const int t = CParallel::GetThreadNum();
  // A loop with more threads than rings would share one: refuse rather than race.
  if (t < 0 || t >= nThreads) AfxThrowInvalidArgException();
  return t;
}

float *CFilterProc::Slot(int thread, int virtualRow) {
  return rings[static_cast<size_t>(thread)].data() + static_cast<size_t>(Wrap(virtualRow, nD)) * nWidth;
}

void CFilterProc::FilterLine(int ringRow, float *out) const {
  const qorimg::filter::LockedLine line(*image, 0, ringRow, nPlane, true);
  const float *row = line.get();
  const float *f = filter.data();
  const int last = nWidth - 1;
  // Columns whose window stays inside the line go without clamps, the kernel
  // taps outermost so that the loop over columns vectorises; each sum still
  // adds its taps in order.
  const int inFirst = std::min(nR, nWidth), inEnd = std::max(nWidth - nR, inFirst);
  for (int i = inFirst; i < inEnd; ++i) out[i] = 0.0f;
  for (int k = 0; k < nD; ++k) {
    const float w = f[k];
    const float *src = row + k - nR;
    for (int i = inFirst; i < inEnd; ++i) out[i] += w * src[i];
  }
  auto clamped = [&](int i) {
    float acc = 0.0f;
    for (int k = 0; k < nD; ++k) acc += f[k] * row[std::clamp(i - nR + k, 0, last)];
    out[i] = acc;
  };
  for (int i = 0; i < inFirst; ++i) clamped(i);
  for (int i = inEnd; i < nWidth; ++i) clamped(i);
}

int CFilterProc::ProcHorizontal(int, int y) {
  const int t = Thread();
  const size_t ts = static_cast<size_t>(t);
  if (ready[ts] && lastY[ts] == y) return 1;
  // A forward step shorter than the ring filters only the new lines; any other
  // move refills the whole ring.
  int first = y - nR, count = nD;
  if (ready[ts] && y > lastY[ts] && y - lastY[ts] < nD) {
    first = lastY[ts] + nR + 1;
    count = y - lastY[ts];
  }
  ready[ts] = 0;
  for (int v = first; v < first + count; ++v) FilterLine(RingRow(v, nHeight), Slot(t, v));
  lastY[ts] = y;
  ready[ts] = 1;
  return 1;
}

float CFilterProc::ProcVertical(int x) {
  const int t = Thread();
  const int top = lastY[static_cast<size_t>(t)] - nR;
  float acc = 0.0f;
  for (int k = 0; k < nD; ++k) acc += filter[static_cast<size_t>(k)] * Slot(t, top + k)[x];
  return acc;
}

float CFilterProc::Calc(int x, int y) {
  if (IsEmpty() || nHeight <= 0 || x < 0 || x >= nWidth) return 0.0f;
  ProcHorizontal(x, y);
  return ProcVertical(x);
}

void CFilterProc::CalcRow(int x0, int y, int count, float *out) {
  if (IsEmpty() || nHeight <= 0) {
    std::fill(out, out + count, 0.0f);
    return;
  }
  ProcHorizontal(x0, y);
  const int t = Thread();
  const int top = lastY[static_cast<size_t>(t)] - nR;
  for (int i = 0; i < count; ++i) out[i] = 0.0f;
  for (int k = 0; k < nD; ++k) {
    const float w = filter[static_cast<size_t>(k)];
    const float *line = Slot(t, top + k) + x0;
    for (int i = 0; i < count; ++i) out[i] += w * line[i];
  }
}

// ---- CFilterProcEx ----

int CFilterProcEx::Make(CLmrImage *image, CFilterMatrix *matrix, int nPlane, int bNormalize) {
  if (nPlane < 0 || nPlane > 2) return 0;
  CFilterProc &proc = procs[nPlane];
  if (!proc.IsEmpty()) return 1;
  return proc.MakeBuf(image, matrix, nPlane, bNormalize);
}

void CFilterProcEx::Clear() {
  for (CFilterProc &proc : procs) proc.Empty();
  current = 0;
}

// ---- CFilterBlock ----

CFilterBlock::CFilterBlock() = default;

CFilterBlock::CFilterBlock(CLmrImage *source, int radius, int x, int y, int plane, int nMode) {
  SetBlock(source, radius, x, y, plane, nMode);
}

CFilterBlock::CFilterBlock(float *base, int width, int height, int radius, int x, int y) {
  SetBlock(base, width, height, radius, x, y);
}

CFilterBlock::~CFilterBlock() { Release(); }

void CFilterBlock::Release() {
  if (image)
    for (long long &h : handles)
      if (h >= 0) {
        image->Unlock(h);
        h = -1;
      }
}

int CFilterBlock::WindowRow(int k) const { return BlockRow(nY - nR + k, nHeight); }

int CFilterBlock::SetBlock(CLmrImage *source, int radius, int x, int y, int nPlane, int nMode) {
  Release();
  if (!source || nPlane < 0 || nPlane >= source->GetPlanes()) return 0;
  image = source;
  plane = nullptr;
  nR = std::max(radius, 0);
  nX = x;
  nY = y;
  nWidth = source->GetWidth();
  nHeight = source->GetHeight();
  const size_t count = static_cast<size_t>(2 * nR + 1);
  rows.resize(count);
  handles.assign(count, -1);
  const bool lock = (nMode & 2) != 0;
  for (size_t k = 0; k < count; ++k)
    rows[k] = source->GetImageAdr(nX, WindowRow(static_cast<int>(k)), nPlane,
                                  lock ? CImage::ReadOnlyLock : CImage::ReadOnly, lock ? &handles[k] : nullptr);
  return 1;
}

int CFilterBlock::SetBlock(float *base, int width, int height, int radius, int x, int y) {
  Release();
  image = nullptr;
  plane = base;
  nR = std::max(radius, 0);
  nX = x;
  nY = y;
  nWidth = width;
  nHeight = height;
  const size_t count = static_cast<size_t>(2 * nR + 1);
  rows.resize(count);
  handles.clear();
  for (size_t k = 0; k < count; ++k)
    rows[k] = base + (nX + static_cast<long long>(width) * WindowRow(static_cast<int>(k)));
  return 1;
}

float CFilterBlock::At(int k, int x) const {
  return rows[static_cast<size_t>(k)][std::clamp(x, 0, nWidth - 1) - nX];
}

float CFilterBlock::GetPixel(int x, int y) const {
  const long long k = static_cast<long long>(y) - nY + nR;
  if (rows.empty() || k < 0 || k > 2LL * nR || x < 0 || x >= nWidth) return 0.0f;
  return rows[static_cast<size_t>(k)][x - nX];
}

float CFilterBlock::Calc(const CFilterMatrix *m, int x) const {
  const int r = m->GetR(), b = nR;
  if (r == b && x - b >= 0 && x + b < nWidth) {
    const float *w = m->GetMtxPtr();
    float acc = 0.0f;
    for (int j = 0; j <= 2 * b; ++j) {
      const float *line = rows[static_cast<size_t>(j)] + (x - b - nX);
      for (int i = 0; i <= 2 * b; ++i) acc += *w++ * line[i];
    }
    return acc;
  }
  const int q = std::min(r, b);
  if (q == 0) return 0.0f;
  float acc = 0.0f;
  for (int j = -q; j <= q; ++j)
    for (int i = -q; i <= q; ++i) acc += m->GetPrm(i, j) * At(b + j, x + i);
  return acc;
}

void CFilterBlock::CalcRow(const CFilterMatrix *m, int x0, int count, float *out) const {
  const int b = nR;
  // Pixels whose window lies inside the line take the direct sum, cell by cell
  // across the row so that it vectorises; each pixel still adds its cells in
  // row-major order. The rest go through Calc.
  const int first = std::max(x0, b), end = std::min(x0 + count, nWidth - b);
  if (m->GetR() != b || first >= end) {
    for (int i = 0; i < count; ++i) out[i] = Calc(m, x0 + i);
    return;
  }
  for (int x = x0; x < first; ++x) out[x - x0] = Calc(m, x);
  for (int x = end; x < x0 + count; ++x) out[x - x0] = Calc(m, x);
  float *inner = out + (first - x0);
  const int n = end - first;
  for (int i = 0; i < n; ++i) inner[i] = 0.0f;
  const float *w = m->GetMtxPtr();
  for (int j = 0; j <= 2 * b; ++j) {
    const float *line = rows[static_cast<size_t>(j)] + (first - b - nX);
    for (int c = 0; c <= 2 * b; ++c, ++w) {
      const float weight = *w;
      const float *samples = line + c;
      for (int i = 0; i < n; ++i) inner[i] += weight * samples[i];
    }
  }
}

float CFilterBlock::CalcClip(const CFilterMatrix *m, int x, float fLow, float fHigh) const {
  const int q = std::min(m->GetR(), nR);
  if (q == 0) return 0.0f;
  float acc = 0.0f;
  for (int j = -q; j <= q; ++j)
    for (int i = -q; i <= q; ++i) {
      float v = At(nR + j, x + i);
      v = v < fLow ? fLow : (v > fHigh ? fHigh : v);
      acc += m->GetPrm(i, j) * v;
    }
  return acc;
}

float *CFilterBlock::GetSorted(const CFilterMatrix *m, int x) {
  const int q = std::min(m->GetR(), nR);
  if (q == 0) return sorted.empty() ? nullptr : sorted.data();
  if (sorted.size() != static_cast<size_t>(m->GetSize())) sorted.resize(static_cast<size_t>(m->GetSize()));
  nCount = 0;
  for (int j = -q; j <= q; ++j)
    for (int i = -q; i <= q; ++i)
      if (m->GetPrm(i, j) == 1.0f) sorted[static_cast<size_t>(nCount++)] = At(nR + j, x + i);
  // Ascending with NaN last, so that a NaN sample cannot break the order.
  float nan = 0.0f;
  const int numbers = qorimg::filter::NumbersFirst(sorted.data(), nCount, &nan);
  std::sort(sorted.begin(), sorted.begin() + numbers);
  return sorted.data();
}

float CFilterBlock::GetSortedAt(const CFilterMatrix *m, int x, int n) {
  const float *s = GetSorted(m, x);
  return (s && n >= 0 && n < nCount) ? s[n] : 0.0f;
}
