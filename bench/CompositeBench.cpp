// Composites of two 6000 x 4000 RGB float frames (integer shift (3, -2)) on
// each route against the same OpenCV arithmetic on ROI views, the average
// against memcpy, the fractional shift and the rotation against
// cv::warpAffine(INTER_CUBIC) + cv::addWeighted, mode 9 (reported in Mpx/s),
// and median and sigma stacks of 16 mono frames in bands of 256 rows.
#include <cstring>
#include <memory>
#include <vector>
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>
#include "BenchSupport.h"
#include "composite/ImgComposit.h"
#include "composite/ImgMedianComposit.h"

namespace {

struct Route {
  const char *name;
  bool wholePlane;
};
const Route kRoutes[] = {{"plane", true}, {"block", false}};

struct Mode {
  const char *name;
  int code;
};
const Mode kModes[] = {{"average", 0}, {"add", 1}, {"weight", 2}, {"sub", 3}, {"mult", 4},
                       {"div", 5},     {"diff", 6}, {"brighter", 7}, {"darker", 8}};

std::shared_ptr<CVmManager> ManagerOf(const Route &route) {
  return route.wholePlane ? CreateWholePlaneManager() : bench::RoomyBlockManager();
}

// The composite of two frames, the target's store made once outside the timing.
void RegisterComposite(const std::string &name, const Route &route, double dx, double dy, double rotation, int mode,
                       int rows = bench::kHeight) {
  bench::Register(name + "." + route.name, [=](benchmark::State &state) {
    CRect rect(0, 0, bench::kWidth, rows);
    auto manager = ManagerOf(route);
    auto a = bench::MakeFrame(manager, 3), b = bench::MakeFrame(manager, 3);
    CImgComposit d;
    d.Create(*a, nullptr);
    for (auto _ : state) d.Do(a.get(), b.get(), dx, dy, rotation, 0, mode, 1, 0.3, 0, 0, 0.95, 0, &rect, 0, -1);
  });
}

// OpenCV's arithmetic for one mode on the three planes: B moved by (3, -2) is
// the view of B at (0, 2) against A's view at (3, 0), the rest is the edge.
void RegisterOpenCv(const Mode &m) {
  bench::Register(std::string("opencv_") + m.name, [m](benchmark::State &state) {
    std::vector<cv::Mat> a(3), b(3), d(3);
    for (int p = 0; p < 3; ++p) {
      a[p].create(bench::kHeight, bench::kWidth, CV_32F), b[p].create(bench::kHeight, bench::kWidth, CV_32F);
      cv::randu(a[p], 1.0, 65535.0), cv::randu(b[p], 1.0, 65535.0);
      d[p].create(bench::kHeight, bench::kWidth, CV_32F);
    }
    const cv::Rect to(3, 0, bench::kWidth - 3, bench::kHeight - 2), from(0, 2, bench::kWidth - 3, bench::kHeight - 2);
    for (auto _ : state)
      for (int p = 0; p < 3; ++p) {
        cv::Mat A = a[p](to), B = b[p](from), D = d[p](to);
        switch (m.code) {
          case 0: cv::addWeighted(A, 0.5, B, 0.5, 0, D); break;
          case 1: cv::add(A, B, D); break;
          case 2: cv::addWeighted(A, 0.7, B, 0.3, 0, D); break;
          case 3: cv::subtract(A, B, D); break;
          case 4: cv::multiply(A, B, D); break;
          case 5: cv::divide(A, B, D); break;
          case 6: cv::absdiff(A, B, D); break;
          case 7: cv::max(A, B, D); break;
          case 8: cv::min(A, B, D); break;
        }
      }
  });
}

// warpAffine with cubic sampling followed by the blend, on the three planes.
void RegisterOpenCvWarp(const std::string &name, double dx, double dy, double degrees) {
  bench::Register(name, [=](benchmark::State &state) {
    std::vector<cv::Mat> a(3), b(3);
    for (int p = 0; p < 3; ++p) {
      a[p].create(bench::kHeight, bench::kWidth, CV_32F), b[p].create(bench::kHeight, bench::kWidth, CV_32F);
      cv::randu(a[p], 1.0, 65535.0), cv::randu(b[p], 1.0, 65535.0);
    }
    cv::Mat turn = cv::getRotationMatrix2D(cv::Point2f(bench::kWidth * 0.5f, bench::kHeight * 0.5f), degrees, 1.0);
    turn.at<double>(0, 2) += dx, turn.at<double>(1, 2) += dy;
    cv::Mat moved, out;
    for (auto _ : state)
      for (int p = 0; p < 3; ++p) {
        cv::warpAffine(b[p], moved, turn, b[p].size(), cv::INTER_CUBIC);
        cv::addWeighted(a[p], 0.5, moved, 0.5, 0, out);
      }
  });
}

// Sixteen registered mono frames (integer shifts up to 8) stacked in bands of
// 256 rows: every Store and the calculation are timed.
void RegisterStack(const std::string &name, const Route &route, bool sigma) {
  bench::Register(name + "." + route.name, [=](benchmark::State &state) {
    auto manager = ManagerOf(route);
    constexpr int frames = 16, band = 256;
    std::vector<std::unique_ptr<CLmrImage>> images;
    for (int f = 0; f < frames; ++f) images.push_back(bench::MakeFrame(manager, 1));
    auto target = bench::MakeFrame(CreateWholePlaneManager(), 1);
    for (auto _ : state) {
      CImgMedianComposit op(target.get(), 0);
      op.AllocateStoreBuffer(target.get(), frames, band - 1);
      for (int top = 0; top < bench::kHeight; top += band) {
        const int bottom = std::min(top + band, bench::kHeight) - 1;
        for (int f = 0; f < frames; ++f)
          op.Store(f, images[f].get(), top, bottom, f % 9 - 4, 8 - f % 9, 0, 0, 0, nullptr, 0);
        if (sigma)
          op.Calc(3.0, top, bottom, 0);
        else
          op.MedianCalc(top, bottom);
      }
    }
  });
}

}  // namespace

int main(int argc, char **argv) {
  for (const Route &route : kRoutes) {
    for (const Mode &m : kModes) {
      const std::string name = std::string("composite_") + m.name;
      RegisterComposite(name, route, 3, -2, 0, m.code);
      bench::Compare(name + "." + route.name + ".vs.opencv", name + "." + route.name, std::string("opencv_") + m.name);
    }
    RegisterStack("stack_median", route, false);
    RegisterStack("stack_sigma", route, true);
  }
  for (const Mode &m : kModes) RegisterOpenCv(m);
  bench::Compare("composite_average.plane.vs.memcpy", "composite_average.plane", "memcpy_rgb");
  RegisterComposite("composite_floatshift", kRoutes[0], 3.4, -2.7, 0, 0);
  RegisterComposite("composite_rotate", kRoutes[0], 3, -2, 0.3, 0);
  RegisterOpenCvWarp("opencv_warp_shift", 3.4, -2.7, 0);
  RegisterOpenCvWarp("opencv_warp_rotate", 3, -2, 0.3);
  bench::Compare("composite_floatshift.plane.vs.opencv", "composite_floatshift.plane", "opencv_warp_shift");
  bench::Compare("composite_rotate.plane.vs.opencv", "composite_rotate.plane", "opencv_warp_rotate");
  // Mode 9 is serial by design: 500 rows of the three planes (9 Mpx), for a
  // rate in Mpx/s beside one core's memcpy.
  RegisterComposite("composite_neighbour", kRoutes[0], 3, -2, 0, 9, 500);
  // A's three planes read, D's written: the average moves 1.5 times these bytes.
  bench::Register("memcpy_rgb", [](benchmark::State &state) {
    const std::size_t count = std::size_t{3} * bench::kWidth * bench::kHeight;
    std::vector<float> a(count, 1.0f), b(count);
    for (auto _ : state) {
      std::memcpy(b.data(), a.data(), count * sizeof(float));
      benchmark::DoNotOptimize(b.data());
    }
  });
  return bench::Main(argc, argv);
}
