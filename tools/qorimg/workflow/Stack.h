// Stacking of registered frames: every frame is read band by band, moved onto
// the reference once (inside the stacker, with its placement), brought to the
// reference's brightness and combined pixel by pixel with rejection of
// outliers (cosmic rays, satellite trails, hot pixels that moved with the
// frame). The store of one band of every frame is what bounds the memory.
#pragma once
#include <cstddef>
#include <memory>
#include <string>
#include <vector>
#include "FrameSource.h"
#include "Register.h"

namespace qorimg::workflow {

struct StackOptions {
  Combine combine = Combine::Sigma;  // Auto: the median below 9 frames, else the sigma clip
  double kappa = 3;
  bool discard = false;  // sigma: rejected values left out (true) or replaced by the median (false)
  Normalization norm = Normalization::AddScale;
  Interpolation interp = Interpolation::Bicubic;  // for turned frames; the store shifts bicubically
  int bandRows = 0;              // 0: chosen from memoryBytes
  std::size_t memoryBytes = 0;   // 0: 512 MiB
};

struct StackResult {
  std::unique_ptr<CLmrImage> image;
  double rejectedPercent = 0;
  int frames = 0;
  double liveTime = 0;
  int bandRows = 0;  // the band height the stack used
};

StackResult Stack(const std::vector<FrameSource*>& frames, const std::vector<Placement>& placements,
                  const StackOptions&, const std::shared_ptr<CVmManager>& manager, const Control& = {});

// A frame's brightness brought to the reference's (the first frame's):
// value * scale + offset.
struct FrameNorm {
  double offset = 0, scale = 1;
};
// Measured once from rows sampled across each frame: its median and a robust
// spread (1.4826 times the median absolute deviation), every plane together.
std::vector<FrameNorm> MeasureNormalization(const std::vector<FrameSource*>&, Normalization, const Control& = {});

// Rows [top, top + rows) of the stack (for distributed stacking: one band = one
// task), plane after plane (planes * rows * width floats); normalisation
// parameters passed in (one per frame, from MeasureNormalization over the
// frames that are stacked) so every band uses the same ones. Bit for bit the
// rows of Stack's band [top, top + rows) with the same frames, placements and
// options. Shifted frames (no turn) give the same bits in any bands; a turned
// frame's positions depend on the band in their last float bit.
std::vector<float> StackBand(const std::vector<FrameSource*>& frames, const std::vector<Placement>&,
                             const std::vector<FrameNorm>&, const StackOptions&, int top, int rows);

// The samples a band combined and how many of them the sigma clip rejected.
struct BandCounts {
  long long samples = 0, rejected = 0;
};
std::vector<float> StackBand(const std::vector<FrameSource*>& frames, const std::vector<Placement>&,
                             const std::vector<FrameNorm>&, const StackOptions&, int top, int rows,
                             BandCounts* counts);

// The band height Stack chooses for frames of width x height x planes: as many
// rows as keep the band store, one frame's band read and the resampling's
// temporaries within memoryBytes (at least one row).
int ChooseBandRows(int width, int height, int planes, int frames, const std::vector<Placement>&, const StackOptions&);

}  // namespace qorimg::workflow
