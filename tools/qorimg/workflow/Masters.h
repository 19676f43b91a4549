// Master calibration frames: a bias, a dark (bias removed) or a flat
// (normalised to mean 1) combined from many raw frames, band by band.
#pragma once
#include <memory>
#include <string>
#include <vector>
#include "FrameSource.h"

namespace qorimg::workflow {

struct MasterOptions {
  Combine combine = Combine::Auto;
  double kappa = 3;
  Normalization norm = Normalization::None;
  const CLmrImage* bias = nullptr;  // subtracted from darks and flats
  const CLmrImage* dark = nullptr;  // a master dark (bias removed) of the flats' exposure, subtracted from flats
  bool cfa = false;                 // flats: a Bayer mosaic, normalised per 2x2 phase
  int bandRows = 0;                 // rows per band; 0: from a 256 MiB budget for the band store
};
struct MasterResult {
  std::unique_ptr<CLmrImage> image;
  Combine used;
  std::string why;
  double exposure = 0;  // mean exposure of the frames
};

// Combines `frames` into a master. Auto takes the median below 9 frames and
// the sigma clip (kappa) from 9 on. Darks and flats have the bias (and flats
// the dark) subtracted with the sign kept, so the noise stays centred. Each
// flat is scaled to mean 1 (per plane, or per CFA phase) before the combine,
// and the master once more after it; `norm` applies to biases and darks
// (each frame matched to the first: Add its mean, Mul its mean by a factor,
// AddScale its mean and deviation).
// Raises std::invalid_argument for no frames or frames of different sizes.
MasterResult BuildMaster(MasterKind kind, const std::vector<FrameSource*>& frames, const MasterOptions& options,
                         const std::shared_ptr<CVmManager>& manager, const Control& control = {});

}  // namespace qorimg::workflow
