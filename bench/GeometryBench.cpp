// Geometry on a 6000 x 4000 mono float frame, on each route, against OpenCV:
// rotation at 30 degrees (cv::warpAffine), resampling to 4500 x 3000
// (cv::resize), soft binning by 2 (INTER_AREA to half size), quarter and half
// turns (cv::rotate), flips (cv::flip), and scrolling against memcpy.
#include <cstring>
#include <memory>
#include <vector>
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>
#include "BenchSupport.h"
#include "geometry/ImgFlip.h"
#include "geometry/ImgResolution.h"
#include "geometry/ImgRotate.h"
#include "geometry/ImgScroll.h"
#include "geometry/ImgSoftBinning.h"

namespace {

struct Route {
  const char *name;
  bool wholePlane;
};
const Route kRoutes[] = {{"plane", true}, {"block", false}};

struct Method {
  const char *name;
  int code;
  int opencv;
};
const Method kMethods[] = {{"bilinear", 0, cv::INTER_LINEAR},
                           {"bicubic", 1, cv::INTER_CUBIC},
                           {"lanczos3", 3, cv::INTER_LANCZOS4},
                           {"nearest", 4, cv::INTER_NEAREST}};

std::shared_ptr<CVmManager> ManagerOf(const Route &route) {
  return route.wholePlane ? CreateWholePlaneManager() : bench::RoomyBlockManager();
}

cv::Mat OpenCvFrame() {
  cv::Mat frame(bench::kHeight, bench::kWidth, CV_32FC1);
  cv::randu(frame, 0.0, 65535.0);
  return frame;
}

template <class Op, class Body>
void RegisterOp(const std::string &name, const Route &route, Body body) {
  bench::Register(name + "." + route.name, [=](benchmark::State &state) {
    auto frame = bench::MakeFrame(ManagerOf(route), 1);
    Op target;
    body(target, frame.get());  // the target's store made once, outside the timing
    for (auto _ : state) body(target, frame.get());
  });
}

}  // namespace

int main(int argc, char **argv) {
  for (const Route &route : kRoutes) {
    for (const Method &m : kMethods) {
      RegisterOp<CImgRotate>(std::string("rotate_") + m.name, route,
                             [=](CImgRotate &t, CLmrImage *src) { t.Do(30.0, 0, src, 0, m.code, 0); });
      RegisterOp<CImgResolution>(std::string("resolution_") + m.name, route,
                                 [=](CImgResolution &t, CLmrImage *src) { t.DoChange(src, 4500, 3000, m.code, 0); });
      bench::Compare(std::string("rotate_") + m.name + "." + route.name + ".vs.opencv",
                     std::string("rotate_") + m.name + "." + route.name, std::string("opencv_rotate_") + m.name);
      bench::Compare(std::string("resolution_") + m.name + "." + route.name + ".vs.opencv",
                     std::string("resolution_") + m.name + "." + route.name,
                     std::string("opencv_resize_") + m.name);
    }
    RegisterOp<CImgSoftBinning>("softbinning", route,
                                [](CImgSoftBinning &t, CLmrImage *src) { t.Do(2, 2, 0, 0, src, 0); });
    bench::Compare(std::string("softbinning.") + route.name + ".vs.opencv", std::string("softbinning.") + route.name,
                   "opencv_area_half");
  }
  const Route block = kRoutes[1];
  RegisterOp<CImgRotate>("rotate90", block, [](CImgRotate &t, CLmrImage *src) { t.Do90(0, src, 0); });
  RegisterOp<CImgRotate>("rotate180", block, [](CImgRotate &t, CLmrImage *src) { t.Do180(src, 0); });
  RegisterOp<CImgFlip>("flip_vertical", block, [](CImgFlip &t, CLmrImage *src) { t.Do(0, src, 0); });
  RegisterOp<CImgFlip>("flip_horizontal", block, [](CImgFlip &t, CLmrImage *src) { t.Do(1, src, 0); });
  RegisterOp<CImgScroll>("scroll", block, [](CImgScroll &t, CLmrImage *src) { t.Do(1234, 1, src, 0); });
  bench::Compare("rotate90.block.vs.opencv", "rotate90.block", "opencv_rotate90");
  bench::Compare("rotate180.block.vs.opencv", "rotate180.block", "opencv_rotate180");
  bench::Compare("flip_vertical.block.vs.opencv", "flip_vertical.block", "opencv_flip_vertical");
  bench::Compare("flip_horizontal.block.vs.opencv", "flip_horizontal.block", "opencv_flip_horizontal");
  bench::Compare("scroll.block.vs.memcpy", "scroll.block", "memcpy_frame");

  for (const Method &m : kMethods) {
    const int flag = m.opencv;
    bench::Register(std::string("opencv_rotate_") + m.name, [=](benchmark::State &state) {
      cv::Mat frame = OpenCvFrame(), out;
      const cv::Mat turn = cv::getRotationMatrix2D(cv::Point2f(bench::kWidth * 0.5f, bench::kHeight * 0.5f), 30.0, 1.0);
      for (auto _ : state) cv::warpAffine(frame, out, turn, frame.size(), flag);
    });
    bench::Register(std::string("opencv_resize_") + m.name, [=](benchmark::State &state) {
      cv::Mat frame = OpenCvFrame(), out;
      for (auto _ : state) cv::resize(frame, out, cv::Size(4500, 3000), 0, 0, flag);
    });
  }
  bench::Register("opencv_area_half", [](benchmark::State &state) {
    cv::Mat frame = OpenCvFrame(), out;
    for (auto _ : state) cv::resize(frame, out, cv::Size(bench::kWidth / 2, bench::kHeight / 2), 0, 0, cv::INTER_AREA);
  });
  const struct {
    const char *name;
    int code;
  } turns[] = {{"opencv_rotate90", cv::ROTATE_90_COUNTERCLOCKWISE}, {"opencv_rotate180", cv::ROTATE_180}};
  for (const auto &t : turns)
    bench::Register(t.name, [code = t.code](benchmark::State &state) {
      cv::Mat frame = OpenCvFrame(), out;
      for (auto _ : state) cv::rotate(frame, out, code);
    });
  for (int code : {0, 1})
    bench::Register(code == 0 ? "opencv_flip_vertical" : "opencv_flip_horizontal", [code](benchmark::State &state) {
      cv::Mat frame = OpenCvFrame(), out;
      for (auto _ : state) cv::flip(frame, out, code);
    });
  bench::Register("memcpy_frame", [](benchmark::State &state) {
    const std::size_t count = std::size_t{bench::kWidth} * bench::kHeight;
    std::vector<float> a(count, 1.0f), b(count);
    for (auto _ : state) {
      std::memcpy(b.data(), a.data(), count * sizeof(float));
      benchmark::DoNotOptimize(b.data());
    }
  });
  return bench::Main(argc, argv);
}
