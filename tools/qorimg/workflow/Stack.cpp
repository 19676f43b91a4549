// Stacking band by band: for each band of the result, the rows of every frame
// that the band needs are read, moved onto the reference by the engine's
// median composite store, normalised in the store and combined by its
// reductions, which also count what the sigma clip rejects.
#include "Stack.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <new>
#include <numbers>
#include <stdexcept>
#include "composite/ImgMedianComposit.h"
#include "core/LineLoops.h"
#include "geometry/Interp.h"

namespace qorimg::workflow {
namespace {

constexpr std::size_t kDefaultMemory = std::size_t{512} << 20;
// Frame rows read beyond a band's source rows on either side: the widest
// kernel (Lanczos3) reads 2 rows above and 3 below its position, plus one for
// the float rounding of a turned position.
constexpr int kMargin = 4;
// Moves are kept on a 1/1024 pixel grid. With band-relative shifts below 2^13
// pixels every shifted position is then exact in float, so a shifted frame
// gives the same samples whatever band it is read in.
constexpr double kGrid = 1024.0;
// A clip so wide that nothing is rejected: the engine's discarding clip is then
// the plain mean.
constexpr double kMeanKappa = 1e30;
constexpr int kSampledRows = 32;

double OnGrid(double v) { return std::round(v * kGrid) / kGrid; }

// The engine's move of a frame: target q reads the frame at
// c + M (q - shift - c), M the counter-clockwise turn by `degrees` (rows
// top-down). The placement says p = c + M (q - c) + d, so shift = -M^-1 d.
struct EngineMove {
  double dx = 0, dy = 0, degrees = 0, cosine = 1, sine = 0;
};

EngineMove MoveOf(const Placement& p) {
  const double r = p.rotationDeg * std::numbers::pi / 180.0;
  const double c = std::cos(r), s = std::sin(r);
  return {OnGrid(-(c * p.dx - s * p.dy)), OnGrid(-(s * p.dx + c * p.dy)), p.rotationDeg, c, s};
}

// Frame rows [first, last] that rows [top, top + rows) of the result read,
// with the kernel's margin, inside the frame; first > last when none.
struct RowRange {
  int first = 0, last = -1;
};

RowRange SourceRows(const EngineMove& m, int width, int height, int top, int rows) {
  const double cx = (width - 1) / 2.0, cy = (height - 1) / 2.0;
  double lo = INFINITY, hi = -INFINITY;
  for (const double x : {0.0, width - 1.0})
    for (const double y : {double(top), double(top) + rows - 1}) {
      const double a = x - m.dx - cx, b = y - m.dy - cy;
      const double py = cy - m.sine * a + m.cosine * b;
      lo = std::min(lo, py), hi = std::max(hi, py);
    }
  // Far outside positions are clamped before they become rows.
  lo = std::clamp(std::floor(lo) - kMargin, -1.0, double(height));
  hi = std::clamp(std::ceil(hi) + kMargin, -1.0, double(height));
  return {std::max(0, int(lo)), std::min(height - 1, int(hi))};
}

int InterpMethod(Interpolation i) {
  switch (i) {
    case Interpolation::Bilinear: return CInterp::BilinearMethod;
    case Interpolation::Lanczos3: return CInterp::Lanczos3Method;
    case Interpolation::Bicubic: break;
  }
  return CInterp::BicubicMethod;
}

std::unique_ptr<CLmrImage> NewImage(const std::shared_ptr<CVmManager>& manager, int width, int height, int planes) {
  return std::make_unique<CLmrImage>(manager, CImage::Float32, width, height, planes, 1.0, 0.0, 1,
                                     std::shared_ptr<lumora::Progress>());
}

void Report(const Control& control, int item, int count) {
  if (control.progress) control.progress(item, count, count > 0 ? double(item) / count : 1.0);
}

void CheckCancelled(const Control& control) {
  if (control.cancelled && control.cancelled()) throw Cancelled();
}

std::string SizeText(const FrameSource& f) {
  return std::to_string(f.Width()) + " x " + std::to_string(f.Height()) + " x " + std::to_string(f.Planes());
}

// Every frame of the reference's size and planes.
void CheckFrames(const std::vector<FrameSource*>& frames) {
  if (frames.empty() || !frames[0]) throw std::invalid_argument("no frame to stack");
  for (const FrameSource* f : frames) {
    if (!f) throw std::invalid_argument("a frame is missing");
    if (f->Width() != frames[0]->Width() || f->Height() != frames[0]->Height() || f->Planes() != frames[0]->Planes())
      throw std::invalid_argument(f->Name() + ": size " + SizeText(*f) + " differs from " + frames[0]->Name() +
                                  " (" + SizeText(*frames[0]) + ")");
  }
}

// The median composite's band store, with the store's entries reachable for
// normalisation.
class BandStore : public CImgMedianComposit {
public:
  using CImgMedianComposit::CImgMedianComposit;

  void MarkEmpty(int f) { std::fill_n(Entry(f).m_valid, Entry(f).m_count, 0); }

  void Normalize(int f, const FrameNorm& n, int rows, int rowElements) {
    if (n.scale == 1 && n.offset == 0) return;
    CLineData& e = Entry(f);
    ParallelLines(0, rows, [&](int y) {
      const std::size_t from = std::size_t(y) * rowElements;
      for (std::size_t i = from; i < from + rowElements; ++i)
        if (e.m_valid[i]) e.m_value[i] = float(e.m_value[i] * n.scale + n.offset);
    });
  }

  // The values the band's calculation combined and the clip rejected.
  BandCounts Counts() const {
    BandCounts c;
    GetRejection(&c.samples, &c.rejected);
    return c;
  }

private:
  CLineData& Entry(int f) { return *m_lineData[std::size_t(f)]; }
};

// Auto: the median below 9 frames, where a one-pass clip at 3 deviations
// cannot reject a lone outlier (it lies at most n / sqrt(n - 1) deviations out).
Combine CombineOf(const StackOptions& o, int frames) {
  if (o.combine != Combine::Auto) return o.combine;
  return frames >= 9 ? Combine::Sigma : Combine::Median;
}

void Reduce(BandStore& store, const StackOptions& o, int frames, int rows) {
  const int last = rows - 1;
  switch (CombineOf(o, frames)) {
    case Combine::Sigma:
      if (o.discard || o.kappa < 1) {
        store.Calc(o.kappa, 0, last, o.discard ? 1 : 0);
      } else {
        // The threaded clip; values are normalised in the store already, so
        // every frame's item maps a value onto itself.
        double offset[3] = {0, 0, 0}, scale[3] = {1, 1, 1};
        for (int f = 0; f < frames; ++f) store.AddNormalizeParam(offset, scale);
        store.SetRefNormalizeParam(offset, scale);
        store.SigmaCalc(o.kappa, 0, last);
      }
      break;
    case Combine::Mean: store.Calc(kMeanKappa, 0, last, 1); break;
    case Combine::Min: store.CalcMin(0, last); break;
    case Combine::Max: store.CalcMax(0, last); break;
    case Combine::Auto:
    case Combine::Median: store.MedianCalc(0, last); break;
  }
}

// The stacked frames only (placements that registration accepted), with their
// normalisation.
struct Accepted {
  std::vector<FrameSource*> frames;
  std::vector<EngineMove> moves;
  std::vector<FrameNorm> norms;
};

Accepted Accept(const std::vector<FrameSource*>& frames, const std::vector<Placement>& placements,
                const std::vector<FrameNorm>* norms) {
  CheckFrames(frames);
  if (placements.size() != frames.size() || (norms && norms->size() != frames.size()))
    throw std::invalid_argument("one placement and one normalisation per frame");
  Accepted a;
  for (std::size_t i = 0; i < frames.size(); ++i) {
    const Placement& p = placements[i];
    if (!p.ok) continue;
    if (!std::isfinite(p.dx) || !std::isfinite(p.dy) || !std::isfinite(p.rotationDeg))
      throw std::invalid_argument(frames[i]->Name() + ": the placement is not finite");
    a.frames.push_back(frames[i]);
    a.moves.push_back(MoveOf(p));
    if (norms) a.norms.push_back((*norms)[i]);
  }
  if (a.frames.empty()) throw std::invalid_argument("no registered frame to stack");
  return a;
}

std::vector<float> RunBand(const Accepted& a, const StackOptions& o, int top, int rows, BandCounts* counts) {
  const FrameSource& ref = *a.frames[0];
  const int width = ref.Width(), height = ref.Height(), planes = ref.Planes();
  if (top < 0 || rows < 1 || top > height - rows) throw std::invalid_argument("band outside the frame");
  const int frames = int(a.frames.size()), rowElements = width * planes;
  // The band's temporaries are always whole planes, so a band takes the same
  // route (and gives the same bits) whatever store the caller's result uses.
  const std::shared_ptr<CVmManager> manager = CreateWholePlaneManager();
  auto target = NewImage(manager, width, rows, planes);
  BandStore store(target.get(), 0);
  if (!store.AllocateStoreBuffer(target.get(), frames, rows - 1)) throw std::bad_alloc();
  std::vector<float> read;
  for (int f = 0; f < frames; ++f) {
    const EngineMove& m = a.moves[std::size_t(f)];
    const RowRange r = SourceRows(m, width, height, top, rows);
    if (r.first > r.last) {
      store.MarkEmpty(f);
      continue;
    }
    const int count = r.last - r.first + 1;
    read.resize(std::size_t(count) * rowElements);
    a.frames[std::size_t(f)]->ReadRows(r.first, count, read.data());
    auto part = NewImage(manager, width, count, planes);
    for (int p = 0; p < planes; ++p)
      for (int y = 0; y < count; ++y)
        std::memcpy(part->GetImageAdr(0, y, p), read.data() + (std::size_t(p) * count + y) * width,
                    std::size_t(width) * sizeof(float));
    // The frame's centre in the rows read; the band's rows start at 0.
    part->SetStdCtr((width - 1) / 2.0, (height - 1) / 2.0 - r.first);
    if (!store.Store(f, part.get(), 0, rows - 1, m.dx, m.dy + r.first - top, m.degrees, 1, 0, nullptr,
                     InterpMethod(o.interp)))
      throw std::invalid_argument(a.frames[std::size_t(f)]->Name() + ": the placement cannot be applied");
    store.Normalize(f, a.norms[std::size_t(f)], rows, rowElements);
  }
  Reduce(store, o, frames, rows);
  if (counts) *counts = store.Counts();

  std::vector<float> out(std::size_t(rows) * rowElements);
  for (int p = 0; p < planes; ++p)
    for (int y = 0; y < rows; ++y) {
      const float* line = target->GetImageAdr(0, y, p, CImage::ReadOnly);
      std::copy(line, line + width, out.data() + (std::size_t(p) * rows + y) * width);
    }
  return out;
}

// Median and robust spread of rows sampled across a frame, every plane together.
std::pair<double, double> Level(FrameSource& frame) {
  const int width = frame.Width(), height = frame.Height(), planes = frame.Planes();
  const int rows = std::min(height, kSampledRows);
  std::vector<float> line(std::size_t(width) * planes), values;
  values.reserve(line.size() * rows);
  for (int i = 0; i < rows; ++i) {
    frame.ReadRows(int((2LL * i + 1) * height / (2LL * rows)), 1, line.data());
    for (const float v : line)
      if (std::isfinite(v)) values.push_back(v);
  }
  if (values.empty()) return {0, 0};
  auto middle = [](std::vector<float>& v) {
    std::nth_element(v.begin(), v.begin() + v.size() / 2, v.end());
    return double(v[v.size() / 2]);
  };
  const double median = middle(values);
  for (float& v : values) v = float(std::abs(v - median));
  return {median, 1.4826 * middle(values)};
}

}  // namespace

std::vector<FrameNorm> MeasureNormalization(const std::vector<FrameSource*>& frames, Normalization norm,
                                            const Control& control) {
  std::vector<FrameNorm> out(frames.size());
  if (norm == Normalization::None || frames.empty()) return out;
  CheckFrames(frames);
  std::pair<double, double> ref{};
  for (std::size_t i = 0; i < frames.size(); ++i) {
    CheckCancelled(control);
    const auto [median, spread] = Level(*frames[i]);
    if (i == 0) ref = {median, spread};
    FrameNorm& n = out[i];
    switch (norm) {
      case Normalization::Add: n.offset = ref.first - median; break;
      case Normalization::Mul: n.scale = median > 0 && ref.first > 0 ? ref.first / median : 1.0; break;
      case Normalization::AddScale:
        n.scale = spread > 0 && ref.second > 0 ? ref.second / spread : 1.0;
        n.offset = ref.first - median * n.scale;
        break;
      case Normalization::None: break;
    }
    Report(control, int(i) + 1, int(frames.size()));
  }
  return out;
}

int ChooseBandRows(int width, int height, int planes, int frames, const std::vector<Placement>& placements,
                   const StackOptions& o) {
  const double budget = double(o.memoryBytes ? o.memoryBytes : kDefaultMemory);
  double turn = 0;
  for (const Placement& p : placements)
    if (p.ok) turn = std::max(turn, std::abs(std::sin(p.rotationDeg * std::numbers::pi / 180.0)));
  const double plane = double(width) * planes;
  // One frame's read (the rows and their image) spans the band's rows, the
  // turn's slant and the margins.
  const double slant = std::ceil(width * turn) + 2 * kMargin + 2;
  // Per row: the store (value and flag of every frame); the band's result and
  // its copy, one frame's read twice and the resampling's two temporaries.
  // These last are freed and taken again for every frame, and the allocator
  // keeps freed blocks for reuse: they count three times (without that, the
  // peak resident size of a stack of 3000 x 2000 frames came out 16 to 26 %
  // above the budget).
  constexpr double kReuse = 3;
  const double perRow = plane * 8.0 * frames + kReuse * (plane * 16 + 8.0 * width);
  const double rows = std::floor((budget - kReuse * slant * plane * 8) / perRow);
  return int(std::clamp(rows, 1.0, double(std::max(height, 1))));
}

std::vector<float> StackBand(const std::vector<FrameSource*>& frames, const std::vector<Placement>& placements,
                             const std::vector<FrameNorm>& norms, const StackOptions& o, int top, int rows,
                             BandCounts* counts) {
  return RunBand(Accept(frames, placements, &norms), o, top, rows, counts);
}

std::vector<float> StackBand(const std::vector<FrameSource*>& frames, const std::vector<Placement>& placements,
                             const std::vector<FrameNorm>& norms, const StackOptions& o, int top, int rows) {
  return StackBand(frames, placements, norms, o, top, rows, nullptr);
}

StackResult Stack(const std::vector<FrameSource*>& frames, const std::vector<Placement>& placements,
                  const StackOptions& o, const std::shared_ptr<CVmManager>& manager, const Control& control) {
  Accepted a = Accept(frames, placements, nullptr);
  // Cancellation between the frames measured too; progress counts bands only.
  a.norms = MeasureNormalization(a.frames, o.norm, Control{{}, control.cancelled});
  const FrameSource& ref = *a.frames[0];
  const int width = ref.Width(), height = ref.Height(), planes = ref.Planes();
  StackResult result;
  result.frames = int(a.frames.size());
  for (const FrameSource* f : a.frames) result.liveTime += f->Exposure();
  result.bandRows = o.bandRows > 0 ? std::min(o.bandRows, height)
                                   : ChooseBandRows(width, height, planes, result.frames, placements, o);
  result.image = NewImage(manager, width, height, planes);
  const int bands = (height + result.bandRows - 1) / result.bandRows;
  BandCounts total;
  for (int b = 0; b < bands; ++b) {
    CheckCancelled(control);
    const int top = b * result.bandRows, rows = std::min(result.bandRows, height - top);
    BandCounts counts;
    const std::vector<float> band = RunBand(a, o, top, rows, &counts);
    total.samples += counts.samples, total.rejected += counts.rejected;
    for (int p = 0; p < planes; ++p)
      for (int y = 0; y < rows; ++y) {
        const float* line = band.data() + (std::size_t(p) * rows + y) * width;
        std::copy(line, line + width, result.image->GetImageAdr(0, top + y, p));
      }
    Report(control, b + 1, bands);
  }
  result.rejectedPercent = total.samples ? 100.0 * double(total.rejected) / double(total.samples) : 0.0;
  return result;
}

}  // namespace qorimg::workflow
