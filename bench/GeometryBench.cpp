// Geometry on a 6000 x 4000 mono float frame, on each route, against OpenCV:
// rotation at 30 degrees (cv::warpAffine), resampling down to 4500 x 3000 and
// up to 7500 x 5000 (cv::resize), soft binning by 2 (INTER_AREA to half size),
// quarter and half turns (cv::rotate), flips (cv::flip), and scrolling against
// memcpy. The copies (CImgCrop, CImgResize's canvas) run on an RGB frame against
// Mat(roi).copyTo into a new matrix and cv::copyMakeBorder. CImgMosaic and
// CImgExpansion read pixel by pixel by design: their ratio against cv::remap on
// precomputed maps is for reporting (ms/Mpx), with no goal.
#include <cmath>
#include <cstring>
#include <memory>
#include <vector>
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>
#include "BenchSupport.h"
#include "geometry/ImgCrop.h"
#include "geometry/ImgExpansion.h"
#include "geometry/ImgFlip.h"
#include "geometry/ImgMosaic.h"
#include "geometry/ImgResize.h"
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

cv::Mat OpenCvColourFrame() {
  cv::Mat frame(bench::kHeight, bench::kWidth, CV_32FC3);
  cv::randu(frame, 0.0, 65535.0);
  return frame;
}

template <class Op, class Body>
void RegisterOp(const std::string &name, const Route &route, Body body, int planes = 1) {
  bench::Register(name + "." + route.name, [=](benchmark::State &state) {
    auto frame = bench::MakeFrame(ManagerOf(route), planes);
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
      RegisterOp<CImgResolution>(std::string("resolution_up_") + m.name, route,
                                 [=](CImgResolution &t, CLmrImage *src) { t.DoChange(src, 7500, 5000, m.code, 0); });
      bench::Compare(std::string("resolution_up_") + m.name + "." + route.name + ".vs.opencv",
                     std::string("resolution_up_") + m.name + "." + route.name,
                     std::string("opencv_resize_up_") + m.name);
    }
    // CImgResolution's own members: Do (bilinear) and Bicubic, down.
    RegisterOp<CImgResolution>("resolution_do", route,
                               [](CImgResolution &t, CLmrImage *src) { t.Do(src, 4500, 3000, 0); });
    RegisterOp<CImgResolution>("resolution_bicubic_member", route,
                               [](CImgResolution &t, CLmrImage *src) { t.Bicubic(src, 4500, 3000, 0); });
    bench::Compare(std::string("resolution_do.") + route.name + ".vs.opencv", std::string("resolution_do.") + route.name,
                   "opencv_resize_bilinear");
    bench::Compare(std::string("resolution_bicubic_member.") + route.name + ".vs.opencv",
                   std::string("resolution_bicubic_member.") + route.name, "opencv_resize_bicubic");
    RegisterOp<CImgCrop>(
        "imgcrop", route, [](CImgCrop &t, CLmrImage *src) { t.Do(CRect(500, 400, 5500, 3400), src, 0); }, 3);
    bench::Compare(std::string("imgcrop.") + route.name + ".vs.opencv", std::string("imgcrop.") + route.name,
                   "opencv_crop_new");
    RegisterOp<CImgResize>(
        "resize_canvas", route,
        [](CImgResize &t, CLmrImage *src) {
          float fill[3] = {1, 2, 3};
          t.Do(bench::kWidth + 400, bench::kHeight + 400, 4, fill, src, 0);
        },
        3);
    bench::Compare(std::string("resize_canvas.") + route.name + ".vs.opencv", std::string("resize_canvas.") + route.name,
                   "opencv_copy_make_border");
    // The mosaic of the frame with itself shifted and turned by 10 degrees, the
    // brighter kept; the expansion of a disc of radius 1900 onto the frame.
    bench::Register(std::string("mosaic.") + route.name, [=](benchmark::State &state) {
      auto a = bench::MakeFrame(ManagerOf(route), 1), b = bench::MakeFrame(ManagerOf(route), 1);
      CImgMosaic target;
      target.Create(*a, nullptr);
      for (auto _ : state) target.Do(a.get(), 100, 50, b.get(), 0.5, 0.25, 10.0, 2, nullptr, nullptr, 0, 0, nullptr, 0);
    });
    bench::Register(std::string("expansion.") + route.name, [=](benchmark::State &state) {
      auto src = bench::MakeFrame(ManagerOf(route), 1);
      CImgExpansion target;
      target.Create(*src, nullptr);
      for (auto _ : state)
        target.Do(src.get(), bench::kWidth * 0.5, bench::kHeight * 0.5, 1900.0, 30.0, 20.0, 0.0, 1, nullptr, 0);
    });
    bench::Compare(std::string("mosaic.") + route.name + ".vs.remap", std::string("mosaic.") + route.name,
                   "opencv_remap_linear");
    bench::Compare(std::string("expansion.") + route.name + ".vs.remap", std::string("expansion.") + route.name,
                   "opencv_remap_linear");
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
    bench::Register(std::string("opencv_resize_up_") + m.name, [=](benchmark::State &state) {
      cv::Mat frame = OpenCvFrame(), out;
      for (auto _ : state) cv::resize(frame, out, cv::Size(7500, 5000), 0, 0, flag);
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
  bench::Register("opencv_crop_new", [](benchmark::State &state) {
    cv::Mat frame = OpenCvColourFrame();
    for (auto _ : state) {
      cv::Mat out;  // a new matrix each time, as CImgCrop makes a new image
      frame(cv::Rect(500, 400, 5000, 3000)).copyTo(out);
      benchmark::DoNotOptimize(out.data);
    }
  });
  bench::Register("opencv_copy_make_border", [](benchmark::State &state) {
    cv::Mat frame = OpenCvColourFrame(), out;
    for (auto _ : state) cv::copyMakeBorder(frame, out, 200, 200, 200, 200, cv::BORDER_CONSTANT, cv::Scalar(1, 2, 3));
  });
  // Bilinear remap of the mono frame through maps made outside the timing (a
  // turn by 10 degrees about the centre).
  bench::Register("opencv_remap_linear", [](benchmark::State &state) {
    cv::Mat frame = OpenCvFrame(), out;
    cv::Mat mapX(bench::kHeight, bench::kWidth, CV_32FC1), mapY(bench::kHeight, bench::kWidth, CV_32FC1);
    const float c = std::cos(10.0f * 3.14159265f / 180), s = std::sin(10.0f * 3.14159265f / 180);
    for (int y = 0; y < bench::kHeight; ++y)
      for (int x = 0; x < bench::kWidth; ++x) {
        const float u = x - bench::kWidth * 0.5f, v = y - bench::kHeight * 0.5f;
        mapX.at<float>(y, x) = c * u - s * v + bench::kWidth * 0.5f;
        mapY.at<float>(y, x) = s * u + c * v + bench::kHeight * 0.5f;
      }
    for (auto _ : state) cv::remap(frame, out, mapX, mapY, cv::INTER_LINEAR);
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
