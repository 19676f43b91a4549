// What the workflow tests share: both kinds of store, images from sample
// vectors and back, and frame sources over a set of images.
#pragma once
#include <memory>
#include <string>
#include <vector>
#include <gtest/gtest.h>
#include "FrameSource.h"
#include "Synth.h"

namespace qorimg::workflow::test {

enum class Store { WholePlane, Block };
inline std::shared_ptr<CVmManager> MakeManager(Store store) {
  return store == Store::WholePlane ? CreateWholePlaneManager() : CreateBlockManager(1 << 20, 3);
}
inline std::string StoreName(const ::testing::TestParamInfo<Store>& info) {
  return info.param == Store::WholePlane ? "WholePlane" : "Block";
}

inline std::unique_ptr<CLmrImage> FromSamples(const std::shared_ptr<CVmManager>& manager, int w, int h,
                                              const std::vector<float>& samples) {
  return synth::ToImage(synth::Frame{w, h, 0, samples}, manager);
}
inline std::vector<float> Samples(const CLmrImage& image, int plane = 0) {
  std::vector<float> out;
  for (int y = 0; y < image.GetHeight(); ++y) {
    const float* line = image.GetImageAdr(0, y, plane, CImage::ReadOnly);
    out.insert(out.end(), line, line + image.GetWidth());
  }
  return out;
}

// Images and their sources, kept together.
struct FrameSet {
  std::vector<std::unique_ptr<CLmrImage>> images;
  std::vector<std::unique_ptr<ImageSource>> sources;
  void Add(std::unique_ptr<CLmrImage> image, double exposure = 0) {
    sources.push_back(std::make_unique<ImageSource>(*image, exposure, "frame" + std::to_string(images.size())));
    images.push_back(std::move(image));
  }
  std::vector<FrameSource*> Pointers() const {
    std::vector<FrameSource*> out;
    for (const auto& s : sources) out.push_back(s.get());
    return out;
  }
};

}  // namespace qorimg::workflow::test
