// CImgCalculation add and multiply on a 6000 x 4000 RGB float frame, on each
// route, against memcpy of the same bytes and OpenCV's add/multiply by a scalar.
#include <cstring>
#include <opencv2/core.hpp>
#include "BenchSupport.h"
#include "core/ImgCalculation.h"
#include "core/OperatorFrame.h"
#include "sibling/SimdOverride.h"

namespace {

struct Route {
  const char *name;
  bool wholePlane;
  unsigned simd;
};
const Route kRoutes[] = {{"plane", true, 2}, {"vector", false, 2}, {"block", false, 0}};

void RegisterCalculation(const char *op, int mode, double value) {
  for (const Route &route : kRoutes) {
    bench::Register(std::string("calculation_") + op + "." + route.name, [=](benchmark::State &state) {
      auto manager = route.wholePlane ? CreateWholePlaneManager() : bench::RoomyBlockManager();
      auto src = bench::MakeFrame(manager, 3);
      CImgCalculation target;
      target.Create(*src, nullptr);
      qorimg::testing::OverrideSIMD(route.simd);
      for (auto _ : state) target.Do(value, mode, 0, src.get(), nullptr, 0);
      qorimg::testing::ClearSIMDOverride();
    });
    for (const char *peer : {"opencv", "memcpy"})
      bench::Compare(std::string("calculation_") + op + "." + route.name + ".vs." + peer,
                     std::string("calculation_") + op + "." + route.name, std::string(peer) + "_" + op);
  }
  bench::Register(std::string("opencv_") + op, [=](benchmark::State &state) {
    cv::Mat src(bench::kHeight, bench::kWidth, CV_32FC3, cv::Scalar::all(1000.0)), dst;
    cv::randu(src, 0.0, 65535.0);
    for (auto _ : state) {
      if (mode == CImgCalculation::Add) cv::add(src, cv::Scalar::all(value), dst);
      else cv::multiply(src, cv::Scalar::all(value), dst);
      benchmark::DoNotOptimize(dst.data);
    }
  });
  bench::Register(std::string("memcpy_") + op, [](benchmark::State &state) {
    const std::size_t bytes = std::size_t{3} * bench::kWidth * bench::kHeight * sizeof(float);
    std::vector<float> a(bytes / sizeof(float), 1.0f), b(bytes / sizeof(float));
    for (auto _ : state) {
      std::memcpy(b.data(), a.data(), bytes);
      benchmark::DoNotOptimize(b.data());
    }
  });
}

}  // namespace

int main(int argc, char **argv) {
  RegisterCalculation("add", CImgCalculation::Add, 12.5);
  RegisterCalculation("mul", CImgCalculation::Multiply, 1.25);
  return bench::Main(argc, argv);
}
