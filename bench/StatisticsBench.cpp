// Statistics on a 6000 x 4000 float plane, on each route: CalcMinMax against
// cv::minMaxLoc plus cv::mean, GetHistogram (5000 bins) against cv::calcHist.
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>
#include <vector>
#include "BenchSupport.h"
#include "core/OperatorFrame.h"

namespace {

struct Route {
  const char *name;
  bool wholePlane;
};
const Route kRoutes[] = {{"plane", true}, {"block", false}};

cv::Mat PeerPlane() {
  auto frame = bench::MakeFrame(CreateWholePlaneManager(), 1);
  cv::Mat plane(bench::kHeight, bench::kWidth, CV_32F);
  for (int y = 0; y < bench::kHeight; ++y)
    std::copy_n(frame->GetImageAdr(0, y, 0, CImage::ReadOnly), bench::kWidth, plane.ptr<float>(y));
  return plane;
}

}  // namespace

int main(int argc, char **argv) {
  for (const Route &route : kRoutes) {
    bench::Register(std::string("calc_min_max.") + route.name, [=](benchmark::State &state) {
      auto frame = bench::MakeFrame(route.wholePlane ? CreateWholePlaneManager() : bench::RoomyBlockManager(), 1);
      for (auto _ : state) frame->CalcMinMax();
    });
    bench::Compare(std::string("calc_min_max.") + route.name + ".vs.opencv", std::string("calc_min_max.") + route.name,
                   "opencv_min_max_mean");
    bench::Register(std::string("get_histogram.") + route.name, [=](benchmark::State &state) {
      auto frame = bench::MakeFrame(route.wholePlane ? CreateWholePlaneManager() : bench::RoomyBlockManager(), 1);
      std::vector<int> hist(5000);
      // 5000 bins over 0..2000: 2.5 bins per unit, so no dither, as calcHist.
      for (auto _ : state) frame->GetHistogram(hist.data(), 5000, 0.0, 2000.0, 0, 0, 0, 0, nullptr, 0, 0);
    });
    bench::Compare(std::string("get_histogram.") + route.name + ".vs.opencv", std::string("get_histogram.") + route.name,
                   "opencv_calc_hist");
  }
  bench::Register("opencv_min_max_mean", [](benchmark::State &state) {
    cv::Mat plane = PeerPlane();
    for (auto _ : state) {
      double lo, hi;
      cv::minMaxLoc(plane, &lo, &hi);
      benchmark::DoNotOptimize(cv::mean(plane));
    }
  });
  bench::Register("opencv_calc_hist", [](benchmark::State &state) {
    cv::Mat plane = PeerPlane(), hist;
    const int bins = 5000;
    const float range[] = {0.0f, 2000.0f};
    const float *ranges[] = {range};
    const int channel = 0;
    for (auto _ : state) cv::calcHist(&plane, 1, &channel, cv::Mat(), hist, 1, &bins, ranges);
  });
  return bench::Main(argc, argv);
}
