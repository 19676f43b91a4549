// CImgMedianComposit: the band store of moved frames and the per-pixel
// median, sigma clip, maximum and minimum over it.
#include "composite/ImgMedianComposit.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <new>
#include <numbers>
#include <utility>
#include "composite/CompositeInternal.h"
#include "core/LineLoops.h"
#include "core/OperatorRunner.h"
#include "geometry/GeometryInternal.h"
#include "geometry/Interp.h"
#include "kernels/FrameEdits.h"
#include "kernels/Geometry.h"
#include "kernels/Runtime.h"
#include "platform/Exceptions.h"
#include "sibling/QorSys.h"

namespace {

using qorimg::LineRect;

constexpr double kMaxStart = 1.1754943508222875e-38;  // the smallest positive normal float
constexpr double kMinStart = 3.4028234663852886e38;   // the largest float

// A shift kept where integer arithmetic on it stays inside int32.
std::int32_t ShiftToInt(double v) { return static_cast<std::int32_t>(std::clamp(v, -1073741824.0, 1073741824.0)); }

// The median of n sorted values: the middle one, or the two middle ones added
// in float and halved in double.
double SortedMedian(const float *v, int n) {
  if (n % 2) return v[n / 2];
  return static_cast<double>(v[n / 2 - 1] + v[n / 2]) * 0.5;
}

// x brought to the reference's brightness by the frame's item, in double.
double Normalized(double x, double a, double b, double refA, double refB) {
  if (b < 0 || refB < 0) return x;
  if (refB == 0) return refA;
  if (b == 0) return x;
  return (x - a) * (refB / b) + refA;
}

}  // namespace

// ---- CLineData ----

CLineData::CLineData(int count) : m_value(new float[static_cast<std::size_t>(count)]), m_count(count) {
  try {
    m_valid = new int[static_cast<std::size_t>(count)];
  } catch (...) {
    delete[] m_value;
    throw;
  }
}

CLineData::~CLineData() {
  delete[] m_value;
  delete[] m_valid;
}

CLineData::CLineData(CLineData &&other) noexcept
    : m_value(std::exchange(other.m_value, nullptr)),
      m_valid(std::exchange(other.m_valid, nullptr)),
      m_count(std::exchange(other.m_count, 0)) {}

CLineData &CLineData::operator=(CLineData &&other) noexcept {
  if (this != &other) {
    delete[] m_value;
    delete[] m_valid;
    m_value = std::exchange(other.m_value, nullptr);
    m_valid = std::exchange(other.m_valid, nullptr);
    m_count = std::exchange(other.m_count, 0);
  }
  return *this;
}

// ---- Life and set-up ----

CImgMedianComposit::CImgMedianComposit(CLmrImage *pTarget, int nType) : m_pTarget(pTarget) {
  m_nMessage = nType == 1 ? 6186 : nType == 2 ? 6188 : nType == 3 ? 6189 : 6141;
  if (m_pTarget) m_pTarget->ShowProgressInit(m_nMessage);
}

CImgMedianComposit::~CImgMedianComposit() {
  if (m_pTarget) m_pTarget->ShowProgressEnd(0);
}

int CImgMedianComposit::AllocateStoreBuffer(CLmrImage *pImage, int nFrames, int nLastRow) {
  if (!pImage || nFrames < 0 || nLastRow < 0) return 0;
  const long long count = (static_cast<long long>(nLastRow) + 1) * pImage->GetWidth() * pImage->GetPlanes();
  if (count > std::numeric_limits<int>::max()) return 0;
  try {
    if (static_cast<std::size_t>(nFrames) > m_lineData.size()) m_lineData.resize(static_cast<std::size_t>(nFrames));
    for (std::unique_ptr<CLineData> &entry : m_lineData)
      if (!entry) entry = std::make_unique<CLineData>(static_cast<int>(count));
  } catch (const std::bad_alloc &) {
    return 0;
  }
  return 1;
}

void CImgMedianComposit::DeallocateStoreBuffer() { m_lineData.clear(); }

void CImgMedianComposit::AddNormalizeParam(double *pOffset, double *pScale) {
  NormalizeItem item{};
  for (int p = 0; p < 3; ++p) {
    item.offset[p] = pOffset ? pOffset[p] : 0.0;
    item.scale[p] = pScale ? pScale[p] : 0.0;
  }
  m_normalize.push_back(item);
}

void CImgMedianComposit::SetRefNormalizeParam(double *pOffset, double *pScale) {
  for (int p = 0; p < 3; ++p) {
    m_refOffset[p] = pOffset ? pOffset[p] : 0.0;
    m_refScale[p] = pScale ? pScale[p] : 0.0;
  }
}

// ---- Store ----

int CImgMedianComposit::Store(int nFrame, CLmrImage *pImage, int nTop, int nBottom, double dx, double dy,
                              double rotation, int bUseStdPtCtr, int bAddOffset, float *const pOffset, int nInterp) {
  if (!m_pTarget || !pImage || nFrame < 0 || static_cast<std::size_t>(nFrame) >= m_lineData.size() ||
      !m_lineData[static_cast<std::size_t>(nFrame)])
    return 0;
  if (!std::isfinite(dx) || !std::isfinite(dy) || !std::isfinite(rotation)) return 0;
  qorimg::CheckBoundImages({{pImage, 1}}, LineRect{});
  CLineData &entry = *m_lineData[static_cast<std::size_t>(nFrame)];
  const int width = m_pTarget->GetWidth(), planes = m_pTarget->GetPlanes();
  const long long rows = static_cast<long long>(nBottom) - nTop + 1;
  const long long elements = rows * width * planes;
  if (rows < 1 || elements > entry.m_count) return 0;
  const double r = rotation * std::numbers::pi / 180.0;
  const double c = std::cos(r), s = std::sin(r);
  const int kind = qorimg::composite::KindOf(dx, dy, rotation);

  qorimg::RouteTable routes;
  if (qorimg::IsExactlyWholePlane(*pImage))
    routes.pipelineCall = [&](int) {
      StoreOnPlanes(entry, *pImage, kind, nTop, static_cast<int>(rows), dx, dy, c, s, bUseStdPtCtr, nInterp);
      return 0;
    };
  routes.planeLoop = [&](int) {
    StoreThroughInterp(entry, *pImage, kind, nTop, static_cast<int>(rows), dx, dy, c, s, bUseStdPtCtr, nInterp);
  };
  qorimg::RunOperator({*m_pTarget, 0, 0, 0, LineRect{}, {0, 1}}, {{pImage, 1}}, routes);

  if (bAddOffset && pOffset)
    for (long long i = 0; i < elements; ++i) entry.m_value[i] += pOffset[i % planes];
  return 1;
}

// The translate and rotate pipelines into two zero-filled W x rows
// temporaries, pasted into columns p W .. (p + 1) W of the band. A frame with
// fewer planes serves its last plane. Throws std::bad_alloc before anything is
// written when a temporary cannot be had.
void CImgMedianComposit::StoreOnPlanes(CLineData &entry, CLmrImage &frame, int kind, int top, int rows, double dx, double dy,
                                       double c, double s, int bUseStdPtCtr, int nInterp) {
  namespace k = qorimg::kernels;
  const int width = m_pTarget->GetWidth(), planes = m_pTarget->GetPlanes();
  const int fw = frame.GetWidth(), fh = frame.GetHeight();
  k::TemporaryPlane values = k::AllocateTemporaryPlane(width, rows);
  k::TemporaryPlane flags = k::AllocateTemporaryPlane(width, rows);
  const std::size_t bytes = static_cast<std::size_t>(width) * static_cast<std::size_t>(rows) * sizeof(float);
  std::memset(values.get(), 0, bytes);
  std::memset(flags.get(), 0, bytes);
  auto valueTemp = k::PlaneBuffer<float>(values.get(), width, rows);
  // The flag temporary is float memory that only the pipelines touch, as 32-bit integers.
  void *flagMemory = flags.get();
  auto maskTemp = k::PlaneBuffer<std::int32_t>(static_cast<std::int32_t *>(flagMemory), width, rows);
  auto maskAsUnsigned = k::PlaneBuffer<std::uint32_t>(static_cast<std::uint32_t *>(flagMemory), width, rows);
  auto bandValues = k::PlaneBuffer<float>(entry.m_value, width * planes, rows);
  auto bandFlags = k::PlaneBuffer<std::uint32_t>(reinterpret_cast<std::uint32_t *>(entry.m_valid), width * planes, rows);
  const CfPoint centre = bUseStdPtCtr ? frame.GetStdCtr() : CfPoint(fw * 0.5, fh * 0.5);
  const float cx = static_cast<float>(centre.fx), cy = static_cast<float>(centre.fy);
  for (int p = 0; p < planes; ++p) {
    auto input = qorimg::InputPlane(frame, std::min(p, frame.GetPlanes() - 1));
    switch (kind) {
      case qorimg::composite::IntShift: {
        const std::int32_t sx = ShiftToInt(std::floor(dx)), sy = ShiftToInt(std::floor(dy) - top);
        k::CheckPipeline(translate_intshift_float(input, sx, sy, 0.0f, valueTemp));
        k::CheckPipeline(translate_intshift_mask(fw, fh, sx, sy, maskTemp));
        break;
      }
      case qorimg::composite::FloatShift: {
        const float sx = static_cast<float>(dx), sy = static_cast<float>(dy - top);
        k::CheckPipeline(translate_floatshift_bicubic_float(input, sx, sy, 0.0f, valueTemp));
        k::CheckPipeline(translate_floatshift_mask(fw, fh, sx, sy, maskTemp));
        break;
      }
      case qorimg::composite::Rotation: {
        const float sx = static_cast<float>(-dx), sy = static_cast<float>(top - dy);
        const float fc = static_cast<float>(c), fs = static_cast<float>(s);
        if (auto pipeline = qorimg::geometry::RotatePipelineOf(nInterp))
          k::CheckPipeline(pipeline(input, sx, sy, cx, cy, fc, fs, 0.0f, valueTemp));
        k::CheckPipeline(rotate_mask(fw, fh, sx, sy, cx, cy, fc, fs, maskTemp));
        break;
      }
    }
    k::CheckPipeline(paste_float(valueTemp, p * width, (p + 1) * width, 0, rows, 0, 0, bandValues));
    k::CheckPipeline(paste_uint32(maskAsUnsigned, p * width, (p + 1) * width, 0, rows, 0, 0, bandFlags));
  }
}

// CInterp's line reader with a validity mask, row by row in parallel; a frame
// with fewer planes (a mono one) serves its last plane for the others.
void CImgMedianComposit::StoreThroughInterp(CLineData &entry, CLmrImage &frame, int kind, int top, int rows, double dx,
                                            double dy, double c, double s, int bUseStdPtCtr, int nInterp) {
  const int width = m_pTarget->GetWidth(), planes = m_pTarget->GetPlanes();
  const int fw = frame.GetWidth(), planesRead = std::min(planes, frame.GetPlanes());
  CInterp interp(nInterp);
  interp.SetBParam(kind, &frame, -dx, width - dx, 0, 0.0f, planes, s, c, 1.0, bUseStdPtCtr);
  // The reader lays its planes at the frame's width: a row of them, then the flags.
  const int span = (planesRead - 1) * fw + width;
  qorimg::geometry::LineScratch scratch(2 * span);
  qorimg::ParallelLines(0, rows, [&](int y) {
    float *line = scratch.Line();
    int *valid = reinterpret_cast<int *>(line + span);
    std::fill(line, line + 2 * span, 0.0f);  // 0.0f and integer 0 share their bits
    interp.GetBLineMed(top + y - dy, line, valid);
    const std::size_t row = static_cast<std::size_t>(y) * width * planes;
    for (int p = 0; p < planes; ++p) {
      const std::size_t from = static_cast<std::size_t>(std::min(p, planesRead - 1)) * fw;
      const std::size_t to = row + static_cast<std::size_t>(p) * width;
      std::memcpy(entry.m_value + to, line + from, static_cast<std::size_t>(width) * sizeof(float));
      std::memcpy(entry.m_valid + to, valid + from, static_cast<std::size_t>(width) * sizeof(int));
    }
  });
}

// ---- Calculations ----

void CImgMedianComposit::MedianCalc(int nTop, int nBottom) { Reduce(Reduction::Median, 0, nTop, nBottom, 0, true); }
void CImgMedianComposit::Calc(int nTop, int nBottom) { Reduce(Reduction::Median, 0, nTop, nBottom, 0, false); }
void CImgMedianComposit::Calc(double fSigma, int nTop, int nBottom, int bDiscard) {
  Reduce(Reduction::Sigma, fSigma, nTop, nBottom, bDiscard, false);
}
void CImgMedianComposit::SigmaCalc(double fSigma, int nTop, int nBottom) {
  Reduce(Reduction::SigmaNormalized, fSigma, nTop, nBottom, 0, true);
}
void CImgMedianComposit::CalcMax(int nTop, int nBottom) { Reduce(Reduction::Max, 0, nTop, nBottom, 0, false); }
void CImgMedianComposit::CalcMin(int nTop, int nBottom) { Reduce(Reduction::Min, 0, nTop, nBottom, 0, false); }

void CImgMedianComposit::GetRejection(long long *pSamples, long long *pRejected) const {
  if (pSamples) *pSamples = m_samples;
  if (pRejected) *pRejected = m_rejected;
}

// Rows, then planes, then columns; for each pixel the valid values of the
// frames in order. Threads only on a whole-plane target, each with its own
// scratch; the result of a pixel does not depend on the thread.
void CImgMedianComposit::Reduce(Reduction kind, double fSigma, int nTop, int nBottom, int bDiscard, bool parallel) {
  m_samples = m_rejected = 0;
  if (!m_pTarget) return;
  CLmrImage &target = *m_pTarget;
  const int width = target.GetWidth(), height = target.GetHeight(), planes = target.GetPlanes();
  if (nBottom < nTop) return;
  const LineRect band{0, nTop, width, nBottom + 1};
  if (nTop < 0) AfxThrowInvalidArgException();
  const long long elements = static_cast<long long>(nBottom - nTop + 1) * width * planes;
  for (const std::unique_ptr<CLineData> &entry : m_lineData)
    if (!entry || entry->m_count < elements) AfxThrowInvalidArgException();
  const int frames = static_cast<int>(m_lineData.size());
  const bool threads = parallel && target.GetAllocationPolicy() != 0;
  const int slots = threads ? CParallel::GetMaxThreads() : 1;
  std::vector<float> scratch(static_cast<std::size_t>(slots) * static_cast<std::size_t>(frames));
  // Values combined and rejected, per plane and row, added up in order after
  // the rows are made, so that the totals do not depend on the threads.
  struct Tally {
    long long samples = 0, rejected = 0;
  };
  const int bandRows = nBottom - nTop + 1;
  std::vector<Tally> tally(static_cast<std::size_t>(planes) * static_cast<std::size_t>(bandRows));

  auto pixel = [&](std::size_t index, int p, float *v, Tally &t) -> float {
    int n = 0;
    double sum = 0.0, extreme = kind == Reduction::Max ? kMaxStart : kMinStart;
    for (int f = 0; f < frames; ++f) {
      const CLineData &entry = *m_lineData[static_cast<std::size_t>(f)];
      if (!entry.m_valid[index]) continue;
      const float x = entry.m_value[index];
      if (std::isnan(x)) continue;
      switch (kind) {
        case Reduction::Max: extreme = std::max(extreme, static_cast<double>(x)), ++n; break;
        case Reduction::Min: extreme = std::min(extreme, static_cast<double>(x)), ++n; break;
        case Reduction::SigmaNormalized: {
          if (static_cast<std::size_t>(f) >= m_normalize.size()) AfxThrowInvalidArgException();
          const NormalizeItem &item = m_normalize[static_cast<std::size_t>(f)];
          const int q = std::min(p, 2);
          const double u = Normalized(x, item.offset[q], item.scale[q], m_refOffset[q], m_refScale[q]);
          if (std::isnan(u)) break;
          v[n++] = static_cast<float>(u);
          sum += u;
          break;
        }
        default: v[n++] = x, sum += x; break;
      }
    }
    t.samples += n;
    if (n == 0) return 0.0f;
    if (kind == Reduction::Max || kind == Reduction::Min) return static_cast<float>(extreme);
    if (n == 1) return v[0];
    if (kind == Reduction::SigmaNormalized && n == 2) return fSigma >= 1 ? (v[0] + v[1]) / 2 : 0.0f;
    std::sort(v, v + n);
    const double m = SortedMedian(v, n);
    if (kind == Reduction::Median) return static_cast<float>(m);
    const double mean = sum / n;
    double squares = 0.0;
    for (int i = 0; i < n; ++i) squares += (v[i] - mean) * (v[i] - mean);
    const double deviation = std::sqrt(squares / n);
    const double lo = m - fSigma * deviation, hi = m + fSigma * deviation;
    double kept = 0.0;
    int count = 0;
    for (int i = 0; i < n; ++i)
      if (lo <= v[i] && v[i] <= hi) kept += v[i], ++count;
    t.rejected += n - count;
    if (count == 0) kept = m, count = 1;
    if (kind == Reduction::Sigma && bDiscard) return static_cast<float>(kept / count);
    return static_cast<float>((kept + (n - count) * m) / n);
  };

  qorimg::RouteTable routes;
  routes.planeLoop = [&](int p) {
    auto row = [&](int y) {
      // Only the band is read while the row is made: its address holds.
      float *out = target.GetImageAdr(0, y, p);
      float *v = scratch.data() + static_cast<std::size_t>(threads ? CParallel::GetThreadNum() : 0) * frames;
      const std::size_t base = static_cast<std::size_t>(y - nTop) * width * planes + static_cast<std::size_t>(p) * width;
      Tally &t = tally[static_cast<std::size_t>(p) * bandRows + static_cast<std::size_t>(y - nTop)];
      t = Tally{};
      for (int x = 0; x < width; ++x) out[x] = pixel(base + static_cast<std::size_t>(x), p, v, t);
    };
    if (threads)
      qorimg::ParallelLines(nTop, nBottom + 1, row);
    else
      qorimg::ForEachLine(nTop, nBottom + 1, row);
  };
  qorimg::RunOperator({target, 0, 0, 0, band, {0, planes}}, {{&target, planes}}, routes);
  for (const Tally &t : tally) m_samples += t.samples, m_rejected += t.rejected;
  if (height > 0) {
    target.ShowProgressInit(m_nMessage);
    target.ShowProgress(static_cast<int>(static_cast<long long>(nBottom) * 100 / height));
  }
}
