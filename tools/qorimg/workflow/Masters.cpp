// Masters combine the frames band by band through the engine's stacker: each
// band of every frame is read, corrected and normalised here, stored without a
// move, and reduced by the median, the sigma clip, the mean or an extreme.
#include "Masters.h"

#include <algorithm>
#include <cmath>
#include <stdexcept>

#include "WorkflowImages.h"
#include "calibrate/CalibrationFrames.h"
#include "composite/ImgMedianComposit.h"

namespace qorimg::workflow {

namespace {

using detail::FramePlane;

// Below this many frames a one-pass 3-sigma clip cannot reject a lone
// outlier: the outlier inflates the deviation it is measured against.
constexpr int kMinSigmaFrames = 9;
// The block store of one band of every frame (values and validity flags).
constexpr std::size_t kBandBudget = std::size_t{256} << 20;

// Samples of a frame are grouped for their statistics by plane, and on a
// mosaic by the 2x2 phase as well.
struct Groups {
  bool cfa;
  int planes;
  int Count() const { return cfa ? planes * 4 : planes; }
  int Of(int p, int x, int y) const { return cfa ? p * 4 + (y & 1) * 2 + (x & 1) : p; }
};

struct Moments {
  std::vector<double> sum, squares;
  std::vector<long long> n;
  explicit Moments(int groups) : sum(groups), squares(groups), n(groups) {}
  double Mean(int g) const { return n[g] ? sum[g] / n[g] : 0.0; }
  double Deviation(int g) const {
    if (!n[g]) return 0.0;
    const double m = Mean(g);
    return std::sqrt(std::max(0.0, squares[g] / n[g] - m * m));
  }
};

class MasterBuilder {
 public:
  MasterBuilder(MasterKind kind, const std::vector<FrameSource*>& frames, const MasterOptions& options,
                const Control& control)
      : kind_(kind), frames_(frames), options_(options), control_(control) {
    if (frames.empty()) throw std::invalid_argument("no frames to combine");
    for (FrameSource* f : frames)
      if (!f) throw std::invalid_argument("a null frame");
    width_ = frames[0]->Width(), height_ = frames[0]->Height(), planes_ = frames[0]->Planes();
    for (FrameSource* f : frames)
      if (f->Width() != width_ || f->Height() != height_ || f->Planes() != planes_)
        throw std::invalid_argument(f->Name() + ": " + std::to_string(f->Width()) + "x" + std::to_string(f->Height()) +
                                    "x" + std::to_string(f->Planes()) + " differs from " + frames[0]->Name() + ": " +
                                    std::to_string(width_) + "x" + std::to_string(height_) + "x" +
                                    std::to_string(planes_));
    if (kind != MasterKind::Bias) detail::CheckCovers(options.bias, width_, height_, planes_, "the bias");
    if (kind == MasterKind::Flat) detail::CheckCovers(options.dark, width_, height_, planes_, "the dark");
    groups_ = Groups{kind == MasterKind::Flat && options.cfa, planes_};
    const std::size_t perRow = frames.size() * static_cast<std::size_t>(width_) * planes_ * 8;
    const std::size_t byBudget = kBandBudget / std::max<std::size_t>(perRow, 1);
    const std::size_t wanted = options.bandRows > 0 ? static_cast<std::size_t>(options.bandRows) : byBudget;
    bandRows_ = static_cast<int>(std::clamp<std::size_t>(wanted, 1, static_cast<std::size_t>(std::max(height_, 1))));
    buffer_.resize(static_cast<std::size_t>(bandRows_) * width_ * planes_);
  }

  int Bands() const { return (height_ + bandRows_ - 1) / bandRows_; }

  // Rows [top, top + rows) of frame f, bias (and dark) removed, plane-major.
  void ReadCorrected(int f, int top, int rows) {
    frames_[f]->ReadRows(top, rows, buffer_.data());
    const CLmrImage* bias = kind_ != MasterKind::Bias ? options_.bias : nullptr;
    const CLmrImage* dark = kind_ == MasterKind::Flat ? options_.dark : nullptr;
    for (const CLmrImage* frame : {bias, dark}) {
      if (!frame) continue;
      for (int p = 0; p < planes_; ++p)
        for (int r = 0; r < rows; ++r) {
          const calibrate::LockedRow line(*frame, 0, top + r, FramePlane(*frame, p), CImage::ReadOnly);
          float* row = Row(p, r, rows);
          // Plain subtraction: a cut at 0 would keep only the upper half of the noise.
          for (int x = 0; x < width_; ++x) row[x] -= line[x];
        }
    }
  }

  // Per frame and group: the moments of the corrected samples.
  std::vector<Moments> Measure() {
    std::vector<Moments> all;
    for (std::size_t f = 0; f < frames_.size(); ++f) {
      Moments m(groups_.Count());
      for (int top = 0; top < height_; top += bandRows_) {
        const int rows = std::min(bandRows_, height_ - top);
        detail::Step(control_, static_cast<int>(f), static_cast<int>(frames_.size()),
                     0.5 * (f + static_cast<double>(top) / height_) / frames_.size());
        ReadCorrected(static_cast<int>(f), top, rows);
        for (int p = 0; p < planes_; ++p)
          for (int r = 0; r < rows; ++r) {
            const float* row = Row(p, r, rows);
            for (int x = 0; x < width_; ++x) {
              if (!std::isfinite(row[x])) continue;
              const int g = groups_.Of(p, x, top + r);
              m.sum[g] += row[x], m.squares[g] += static_cast<double>(row[x]) * row[x], ++m.n[g];
            }
          }
      }
      all.push_back(std::move(m));
    }
    return all;
  }

  // v -> a v + b per frame and group, from the moments.
  struct Linear {
    std::vector<double> a, b;
  };
  std::vector<Linear> Normalisation(const std::vector<Moments>& moments) const {
    std::vector<Linear> out(frames_.size());
    const int groups = groups_.Count();
    for (std::size_t f = 0; f < frames_.size(); ++f) {
      Linear& l = out[f];
      l.a.assign(groups, 1.0), l.b.assign(groups, 0.0);
      for (int g = 0; g < groups; ++g) {
        const double m = moments[f].Mean(g), m0 = moments[0].Mean(g);
        const double s = moments[f].Deviation(g), s0 = moments[0].Deviation(g);
        if (kind_ == MasterKind::Flat) {
          l.a[g] = m != 0 ? 1.0 / m : 1.0;
        } else if (options_.norm == Normalization::Add) {
          l.b[g] = m0 - m;
        } else if (options_.norm == Normalization::Mul) {
          l.a[g] = m != 0 ? m0 / m : 1.0;
        } else if (options_.norm == Normalization::AddScale) {
          l.a[g] = s != 0 ? s0 / s : 1.0;
          l.b[g] = m0 - l.a[g] * m;
        }
      }
    }
    return out;
  }

  std::unique_ptr<CLmrImage> CombineBands(Combine used, const std::vector<Linear>& linear,
                                     const std::shared_ptr<CVmManager>& manager) {
    auto result = detail::NewImage(manager, width_, height_, planes_);
    auto bandFrame = detail::NewImage(manager, width_, bandRows_, planes_);
    auto bandTarget = detail::NewImage(manager, width_, bandRows_, planes_);
    CImgMedianComposit stacker(bandTarget.get(), 0);
    const int n = static_cast<int>(frames_.size());
    if (!stacker.AllocateStoreBuffer(bandFrame.get(), n, bandRows_ - 1)) throw std::bad_alloc();
    const double start = linear.empty() ? 0.0 : 0.5;
    for (int top = 0, band = 0; top < height_; top += bandRows_, ++band) {
      const int rows = std::min(bandRows_, height_ - top);
      for (int f = 0; f < n; ++f) {
        detail::Step(control_, band, Bands(), start + (1 - start) * (band + static_cast<double>(f) / n) / Bands());
        ReadCorrected(f, top, rows);
        for (int p = 0; p < planes_; ++p)
          for (int r = 0; r < rows; ++r) {
            float* row = Row(p, r, rows);
            float* line = bandFrame->GetImageAdr(0, r, p);
            for (int x = 0; x < width_; ++x) {
              const int g = groups_.Of(p, x, top + r);
              line[x] = linear.empty() ? row[x] : static_cast<float>(linear[f].a[g] * row[x] + linear[f].b[g]);
            }
          }
        stacker.Store(f, bandFrame.get(), 0, rows - 1, 0, 0, 0, 0, 0, nullptr, 1);
      }
      Reduce(stacker, used, rows);
      for (int p = 0; p < planes_; ++p)
        for (int r = 0; r < rows; ++r) {
          const calibrate::LockedRow from(*bandTarget, 0, r, p, CImage::ReadOnly);
          std::copy(from.get(), from.get() + width_, result->GetImageAdr(0, top + r, p));
        }
    }
    return result;
  }

  // The flat master scaled to mean 1 per group.
  void NormaliseFlat(CLmrImage& image) const {
    Moments m(groups_.Count());
    for (int p = 0; p < planes_; ++p)
      for (int y = 0; y < height_; ++y) {
        const float* line = image.GetImageAdr(0, y, p, CImage::ReadOnly);
        for (int x = 0; x < width_; ++x)
          if (std::isfinite(line[x])) m.sum[groups_.Of(p, x, y)] += line[x], ++m.n[groups_.Of(p, x, y)];
      }
    for (int p = 0; p < planes_; ++p)
      for (int y = 0; y < height_; ++y) {
        float* line = image.GetImageAdr(0, y, p);
        for (int x = 0; x < width_; ++x) {
          const double mean = m.Mean(groups_.Of(p, x, y));
          if (mean != 0) line[x] = static_cast<float>(line[x] / mean);
        }
      }
  }

 private:
  float* Row(int p, int r, int rows) {
    return buffer_.data() + (static_cast<std::size_t>(p) * rows + r) * static_cast<std::size_t>(width_);
  }

  void Reduce(CImgMedianComposit& stacker, Combine used, int rows) const {
    const int bottom = rows - 1;
    switch (used) {
      case Combine::Sigma: stacker.Calc(options_.kappa, 0, bottom, 1); break;
      // A clip no sample can fail: the mean of all.
      case Combine::Mean: stacker.Calc(1e30, 0, bottom, 1); break;
      case Combine::Min: stacker.CalcMin(0, bottom); break;
      case Combine::Max: stacker.CalcMax(0, bottom); break;
      default: stacker.MedianCalc(0, bottom); break;
    }
  }

  MasterKind kind_;
  const std::vector<FrameSource*>& frames_;
  const MasterOptions& options_;
  const Control& control_;
  int width_ = 0, height_ = 0, planes_ = 0, bandRows_ = 1;
  Groups groups_{false, 1};
  std::vector<float> buffer_;
};

const char* CombineName(Combine c) {
  switch (c) {
    case Combine::Median: return "median";
    case Combine::Sigma: return "sigma clip";
    case Combine::Mean: return "mean";
    case Combine::Min: return "minimum";
    case Combine::Max: return "maximum";
    default: return "auto";
  }
}

}  // namespace

MasterResult BuildMaster(MasterKind kind, const std::vector<FrameSource*>& frames, const MasterOptions& options,
                         const std::shared_ptr<CVmManager>& manager, const Control& control) {
  MasterBuilder builder(kind, frames, options, control);
  const int n = static_cast<int>(frames.size());
  MasterResult result;
  result.used = options.combine;
  if (options.combine == Combine::Auto) {
    result.used = n < kMinSigmaFrames ? Combine::Median : Combine::Sigma;
    result.why = n < kMinSigmaFrames
                     ? "median of " + std::to_string(n) + " frames: below " + std::to_string(kMinSigmaFrames) +
                           " frames a one-pass 3-sigma clip cannot reject a lone outlier"
                     : "sigma clip of " + std::to_string(n) + " frames";
  } else {
    result.why = std::string(CombineName(options.combine)) + " of " + std::to_string(n) + " frames, as asked";
  }
  const bool normalise = kind == MasterKind::Flat || options.norm != Normalization::None;
  const auto linear = normalise ? builder.Normalisation(builder.Measure()) : std::vector<MasterBuilder::Linear>{};
  result.image = builder.CombineBands(result.used, linear, manager);
  if (kind == MasterKind::Flat) builder.NormaliseFlat(*result.image);
  for (FrameSource* f : frames) result.exposure += f->Exposure() / n;
  if (control.progress) control.progress(n, n, 1.0);
  return result;
}

}  // namespace qorimg::workflow
