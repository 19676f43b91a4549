// Dark and flat calibration on a 6000 x 4000 float frame, on each route,
// against OpenCV doing the same arithmetic and memcpy of the same traffic.
#include <cstring>
#include <opencv2/core.hpp>
#include "BenchSupport.h"
#include "calibrate/ImgDark.h"

namespace {

struct Route {
  const char *name;
  bool wholePlane;
};
const Route kRoutes[] = {{"plane", true}, {"block", false}};

std::shared_ptr<CVmManager> Store(const Route &route) {
  return route.wholePlane ? CreateWholePlaneManager() : bench::RoomyBlockManager();
}

// Frames as the benchmarks of one operation use them: light, dark, flat.
struct Frames {
  std::unique_ptr<CLmrImage> light, dark, flat;
  explicit Frames(const std::shared_ptr<CVmManager> &manager)
      : light(bench::MakeFrame(manager, 1)), dark(bench::MakeFrame(manager, 1)), flat(bench::MakeFrame(manager, 1)) {}
};

cv::Mat Random(float lo, float hi) {
  cv::Mat m(bench::kHeight, bench::kWidth, CV_32FC1);
  cv::randu(m, lo, hi);
  return m;
}

void RegisterOurs(const std::string &op, const std::function<void(Frames &)> &run) {
  for (const Route &route : kRoutes)
    bench::Register(op + "." + route.name, [=](benchmark::State &state) {
      Frames frames(Store(route));
      for (auto _ : state) run(frames);
    });
}

}  // namespace

int main(int argc, char **argv) {
  RegisterOurs("dark", [](Frames &f) { f.light->DarkClbrtn(f.dark.get(), 0); });
  RegisterOurs("flat", [](Frames &f) { f.light->FlatClbrtn(f.flat.get(), nullptr, 0); });
  RegisterOurs("flat_gamma", [](Frames &f) { f.light->FlatClbrtn(f.flat.get(), 0.0f, 0.8, 0); });
  RegisterOurs("dark_flat", [](Frames &f) {
    float lo = 0, hi = 65535, avr = 30000;
    f.light->DarkFlat(f.light.get(), f.dark.get(), f.flat.get(), &lo, &hi, &avr, 0.0f, 0.0, nullptr, 0);
  });
  bench::Register("dark_interpolate.block", [](benchmark::State &state) {
    Frames frames(bench::RoomyBlockManager());
    CImgDark target;
    target.CopyImage(*frames.light);
    for (auto _ : state) target.DoInterpolateByScore(frames.dark.get(), 0.4, 0.0, 1.0, 0);
  });

  bench::Register("opencv_dark", [](benchmark::State &state) {
    cv::Mat light = Random(0, 65535), dark = Random(0, 1000), out;
    for (auto _ : state) {
      cv::subtract(light, dark, out);
      cv::max(out, 0.0, out);
      benchmark::DoNotOptimize(out.data);
    }
  });
  bench::Register("memcpy_dark", [](benchmark::State &state) {
    const std::size_t n = std::size_t{3} * bench::kWidth * bench::kHeight / 2;  // 1.5 planes
    std::vector<float> a(n, 1.0f), b(n);
    for (auto _ : state) {
      std::memcpy(b.data(), a.data(), n * sizeof(float));
      benchmark::DoNotOptimize(b.data());
    }
  });
  bench::Register("opencv_flat", [](benchmark::State &state) {
    cv::Mat light = Random(0, 65535), flat = Random(20000, 40000), out;
    const double mean = cv::mean(flat)[0];
    for (auto _ : state) {
      cv::divide(light, flat, out, mean);
      benchmark::DoNotOptimize(out.data);
    }
  });
  bench::Register("opencv_flat_gamma", [](benchmark::State &state) {
    cv::Mat light = Random(0, 65535), flat = Random(20000, 40000), curved, out;
    const double mean = cv::mean(flat)[0];
    for (auto _ : state) {
      cv::pow(flat, 0.8, curved);
      cv::divide(light, curved, out, mean);
      benchmark::DoNotOptimize(out.data);
    }
  });
  bench::Register("opencv_dark_flat", [](benchmark::State &state) {
    cv::Mat light = Random(0, 65535), dark = Random(0, 1000), flat = Random(20000, 40000), out;
    for (auto _ : state) {
      cv::subtract(light, dark, out);
      cv::max(out, 0.0, out);
      cv::divide(out, flat, out, 30000.0);
      benchmark::DoNotOptimize(out.data);
    }
  });
  bench::Register("opencv_dark_interpolate", [](benchmark::State &state) {
    cv::Mat a = Random(0, 1000), b = Random(0, 1000), out;
    for (auto _ : state) {
      cv::addWeighted(a, 0.6, b, 0.4, 0.0, out);
      benchmark::DoNotOptimize(out.data);
    }
  });

  for (const char *route : {"plane", "block"}) {
    const std::string r = route;
    bench::Compare("dark." + r + ".vs.opencv", "dark." + r, "opencv_dark");
    bench::Compare("flat." + r + ".vs.opencv", "flat." + r, "opencv_flat");
    bench::Compare("flat_gamma." + r + ".vs.opencv", "flat_gamma." + r, "opencv_flat_gamma");
  }
  bench::Compare("dark.plane.vs.memcpy", "dark.plane", "memcpy_dark");
  bench::Compare("dark_flat.block.vs.opencv", "dark_flat.block", "opencv_dark_flat");
  bench::Compare("dark_interpolate.block.vs.opencv", "dark_interpolate.block", "opencv_dark_interpolate");
  return bench::Main(argc, argv);
}
