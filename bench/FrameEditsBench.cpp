// Crop and Paste of a 5000 x 3000 region of a 6000 x 4000 RGB float frame, on
// each route, against cv::Mat::copyTo of the same region and memcpy of its
// bytes: into new memory for Crop, which makes a new image, and into existing
// memory for Paste.
#include <cstring>
#include <memory>
#include <vector>
#include <opencv2/core.hpp>
#include "BenchSupport.h"
#include "core/OperatorFrame.h"

namespace {

const CRect kRegion(500, 400, 5500, 3400);

struct Route {
  const char *name;
  bool wholePlane;
};
const Route kRoutes[] = {{"plane", true}, {"block", false}};

}  // namespace

int main(int argc, char **argv) {
  for (const Route &route : kRoutes) {
    bench::Register(std::string("crop.") + route.name, [=](benchmark::State &state) {
      auto frame = bench::MakeFrame(route.wholePlane ? CreateWholePlaneManager() : bench::RoomyBlockManager(), 3);
      for (auto _ : state) benchmark::DoNotOptimize(frame->Crop(kRegion));
    });
    bench::Register(std::string("paste.") + route.name, [=](benchmark::State &state) {
      auto manager = route.wholePlane ? CreateWholePlaneManager() : bench::RoomyBlockManager();
      auto src = bench::MakeFrame(manager, 3), target = bench::MakeFrame(manager, 3);
      CRect rect = kRegion;
      for (auto _ : state) target->Paste(src.get(), &rect);
    });
    // Crop makes a new image, so its peer copies into a new matrix each time;
    // Paste writes into an existing image, as copyTo into an existing matrix.
    bench::Compare(std::string("crop.") + route.name + ".vs.opencv", std::string("crop.") + route.name,
                   "opencv_copy_region_new");
    bench::Compare(std::string("paste.") + route.name + ".vs.opencv", std::string("paste.") + route.name,
                   "opencv_copy_region");
    bench::Compare(std::string("crop.") + route.name + ".vs.memcpy", std::string("crop.") + route.name,
                   "memcpy_region_new");
    bench::Compare(std::string("paste.") + route.name + ".vs.memcpy", std::string("paste.") + route.name,
                   "memcpy_region");
  }
  const std::size_t regionFloats = std::size_t{3} * kRegion.Width() * kRegion.Height();
  bench::Register("memcpy_region", [=](benchmark::State &state) {
    std::vector<float> a(regionFloats, 1.0f), b(regionFloats);
    for (auto _ : state) {
      std::memcpy(b.data(), a.data(), regionFloats * sizeof(float));
      benchmark::DoNotOptimize(b.data());
    }
  });
  bench::Register("memcpy_region_new", [=](benchmark::State &state) {
    std::vector<float> a(regionFloats, 1.0f);
    for (auto _ : state) {
      std::unique_ptr<float[]> b(new float[regionFloats]);
      std::memcpy(b.get(), a.data(), regionFloats * sizeof(float));
      benchmark::DoNotOptimize(b.get());
    }
  });
  bench::Register("opencv_copy_region_new", [](benchmark::State &state) {
    cv::Mat frame(bench::kHeight, bench::kWidth, CV_32FC3);
    cv::randu(frame, 0.0, 65535.0);
    const cv::Rect roi(kRegion.left, kRegion.top, kRegion.Width(), kRegion.Height());
    for (auto _ : state) {
      cv::Mat region;
      frame(roi).copyTo(region);
      benchmark::DoNotOptimize(region.data);
    }
  });
  bench::Register("opencv_copy_region", [](benchmark::State &state) {
    cv::Mat frame(bench::kHeight, bench::kWidth, CV_32FC3), region(kRegion.Height(), kRegion.Width(), CV_32FC3);
    cv::randu(frame, 0.0, 65535.0);
    const cv::Rect roi(kRegion.left, kRegion.top, kRegion.Width(), kRegion.Height());
    for (auto _ : state) {
      frame(roi).copyTo(region);
      benchmark::DoNotOptimize(region.data);
    }
  });
  return bench::Main(argc, argv);
}
