// Levels and tone on 6000 x 4000 float frames, on each route, against OpenCV,
// memcpy or std::sort doing the same (or the least) work.
#include <algorithm>
#include <cstring>
#include <numeric>
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>
#include <vector>
#include "BenchSupport.h"
#include "sibling/SimdOverride.h"
#include "tone/ImgAutoLevel.h"
#include "tone/ImgBright.h"
#include "tone/ImgCorrectCurve.h"
#include "tone/ImgCutOff.h"
#include "tone/ImgFalseColor.h"
#include "tone/ImgHstEql.h"
#include "tone/ImgInvert.h"
#include "tone/ImgNormalize.h"
#include "tone/ImgReduceTone.h"
#include "tone/ImgToneCurve.h"

namespace {

struct Route {
  const char *name;
  bool wholePlane;
  unsigned simd;
};
const Route kPlane{"plane", true, 2}, kVector{"vector", false, 2}, kBlock{"block", false, 0};

std::shared_ptr<CVmManager> ManagerFor(const Route &route) {
  return route.wholePlane ? CreateWholePlaneManager() : bench::RoomyBlockManager();
}

// An operator object holding a frame of `planes` planes on the route's store.
template <class Op>
std::unique_ptr<Op> OperatorFrame(const Route &route, int planes) {
  auto op = std::make_unique<Op>();
  op->CopyImage(*bench::MakeFrame(ManagerFor(route), planes));
  return op;
}

cv::Mat PeerPlanes(int planes) {
  auto frame = bench::MakeFrame(CreateWholePlaneManager(), planes);
  std::vector<cv::Mat> split;
  for (int p = 0; p < planes; ++p) {
    cv::Mat m(bench::kHeight, bench::kWidth, CV_32F);
    std::memcpy(m.data, frame->GetImageAdr(0, 0, p, CImage::ReadOnly), m.total() * sizeof(float));
    split.push_back(m);
  }
  cv::Mat merged;
  cv::merge(split, merged);
  return merged;
}

// Registers ours on each route with `body(route)` and compares it with every peer.
void Family(const std::string &name, std::initializer_list<Route> routes, std::initializer_list<const char *> peers,
            const std::function<void(benchmark::State &, const Route &)> &body) {
  for (const Route &route : routes) {
    bench::Register(name + "." + route.name, [=](benchmark::State &state) {
      qorimg::testing::OverrideSIMD(route.simd);
      body(state, route);
      qorimg::testing::ClearSIMDOverride();
    });
    for (const char *peer : peers) bench::Compare(name + "." + route.name + ".vs." + peer, name + "." + route.name, std::string(peer) + "_" + name);
  }
}

void MemcpyPeer(const std::string &name, int planes) {
  bench::Register("memcpy_" + name, [=](benchmark::State &state) {
    const std::size_t count = std::size_t(planes) * bench::kWidth * bench::kHeight;
    std::vector<float> a(count, 1.0f), b(count);
    for (auto _ : state) {
      std::memcpy(b.data(), a.data(), count * sizeof(float));
      benchmark::DoNotOptimize(b.data());
    }
  });
}

void Peer(const std::string &name, int planes, const std::function<void(cv::Mat &)> &body) {
  bench::Register("opencv_" + name, [=](benchmark::State &state) {
    cv::Mat m = PeerPlanes(planes);
    for (auto _ : state) body(m);
  });
}

void AutoLevels() {
  Family("auto_level_mean", {kPlane, kBlock}, {"opencv"}, [](benchmark::State &state, const Route &route) {
    auto op = OperatorFrame<CImgAutoLevel>(route, 1);
    for (auto _ : state) op->DoByMean(1.0, 3.0, 0, nullptr);
  });
  Peer("auto_level_mean", 1, [](cv::Mat &m) {
    cv::Scalar mean, sigma;
    cv::meanStdDev(m, mean, sigma);
    benchmark::DoNotOptimize(sigma);
  });

  Family("auto_level_median", {kPlane, kBlock}, {"opencv"}, [](benchmark::State &state, const Route &route) {
    auto op = OperatorFrame<CImgAutoLevel>(route, 3);
    float median = 0;
    for (auto _ : state) op->GetMedian(&median, 1, 0, 1, nullptr);
  });
  Peer("auto_level_median", 3, [](cv::Mat &m) {
    // Plane 1, cells of 22 x 22 as GetMedian's sampling gives for this size:
    // truncate(sqrt(24000000 / 50000) + 0.5).
    const int n = 22;
    cv::Mat plane, cells;
    cv::extractChannel(m, plane, 1);
    cv::resize(plane(cv::Rect(0, 0, bench::kWidth / n * n, bench::kHeight / n * n)), cells,
               cv::Size(bench::kWidth / n, bench::kHeight / n), 0, 0, cv::INTER_AREA);
    std::vector<float> v(cells.begin<float>(), cells.end<float>());
    std::nth_element(v.begin(), v.begin() + v.size() / 2, v.end());
    benchmark::DoNotOptimize(v[v.size() / 2]);
  });

  Family("auto_level_normal", {kPlane, kBlock}, {"opencv"}, [](benchmark::State &state, const Route &route) {
    auto op = OperatorFrame<CImgAutoLevel>(route, 1);
    for (auto _ : state) op->DoByNormal(0.01, 0.99, 0, nullptr);
  });
  Peer("auto_level_normal", 1, [](cv::Mat &m) {
    double lo, hi;
    cv::minMaxLoc(m, &lo, &hi);
    const int bins = 5000, channel = 0;
    const float range[] = {static_cast<float>(lo), static_cast<float>(hi)};
    const float *ranges[] = {range};
    cv::Mat hist;
    cv::calcHist(&m, 1, &channel, cv::Mat(), hist, 1, &bins, ranges);
  });

  Family("auto_level_mode_bright", {kPlane, kBlock}, {"opencv"}, [](benchmark::State &state, const Route &route) {
    auto op = OperatorFrame<CImgAutoLevel>(route, 3);
    float mode = 0;
    for (auto _ : state) op->GetMode(&mode, nullptr, nullptr, 1, 0, nullptr);
  });
  Peer("auto_level_mode_bright", 3, [](cv::Mat &m) {
    cv::Mat bright, hist;
    cv::transform(m, bright, cv::Matx13f(0.299f, 0.587f, 0.114f));
    double lo, hi;
    cv::minMaxLoc(bright, &lo, &hi);
    const int bins = 5000, channel = 0;
    const float range[] = {static_cast<float>(lo), static_cast<float>(hi)};
    const float *ranges[] = {range};
    cv::calcHist(&bright, 1, &channel, cv::Mat(), hist, 1, &bins, ranges);
  });
}

void ToneCurves() {
  for (int planes : {1, 3}) {
    const std::string name = planes == 1 ? "tone_curve_gray" : "tone_curve_color";
    Family(name, {kPlane, kBlock}, {"memcpy"}, [planes](benchmark::State &state, const Route &route) {
      auto src = bench::MakeFrame(ManagerFor(route), planes);
      CImgToneCurve target;
      target.Create(*src, nullptr);
      std::vector<float> curve(4096);
      for (int i = 0; i < 4096; ++i) curve[i] = std::sqrt(i / 4095.0f);
      float *curves[4] = {curve.data(), curve.data(), curve.data(), curve.data()};
      for (auto _ : state) target.Do(curves, 4096, src.get(), nullptr, 0, 0);
    });
    MemcpyPeer(name, planes);
  }
}

void PointOperators() {
  Family("bright", {kPlane, kVector, kBlock}, {"opencv", "memcpy"}, [](benchmark::State &state, const Route &route) {
    auto src = bench::MakeFrame(ManagerFor(route), 3);
    CImgBright target;
    target.Create(*src, nullptr);
    float bright[3] = {10, 10, 10}, contrast[3] = {40, 40, 40};
    for (auto _ : state) target.Do(bright, contrast, 128.0, src.get(), nullptr, 0);
  });
  Peer("bright", 3, [](cv::Mat &m) {
    cv::Mat out;
    m.convertTo(out, CV_32F, 1.15625, 100.0);
  });
  MemcpyPeer("bright", 3);

  Family("invert", {kPlane, kVector, kBlock}, {"opencv", "memcpy"}, [](benchmark::State &state, const Route &route) {
    auto src = bench::MakeFrame(ManagerFor(route), 3);
    CImgInvert target;
    target.Create(*src, nullptr);
    for (auto _ : state) target.Do(src.get(), nullptr, 0);
  });
  Peer("invert", 3, [](cv::Mat &m) {
    cv::Mat out;
    m.convertTo(out, CV_32F, -1.0, 65535.0);
  });
  MemcpyPeer("invert", 3);

  Family("cut_off", {kBlock}, {"opencv"}, [](benchmark::State &state, const Route &route) {
    auto src = bench::MakeFrame(ManagerFor(route), 3);
    for (int p = 0; p < 3; ++p) src->CImage::SetLevel(p, 800.0, 1400.0);
    CImgCutOff target;
    target.Create(*src, nullptr);
    for (auto _ : state) target.Do(src.get(), 800.0f, 1400.0f, nullptr, 0);
  });
  Peer("cut_off", 3, [](cv::Mat &m) {
    cv::Mat out = cv::min(cv::max(m, 800.0), 1400.0);
    benchmark::DoNotOptimize(out.data);
  });

  Family("reduce_tone", {kBlock}, {"memcpy"}, [](benchmark::State &state, const Route &route) {
    auto src = bench::MakeFrame(ManagerFor(route), 3);
    CImgReduceTone target;
    target.Create(*src, nullptr);
    for (auto _ : state) target.Do(16, src.get(), nullptr, 0);
  });
  MemcpyPeer("reduce_tone", 3);

  Family("normalize", {kBlock}, {"opencv"}, [](benchmark::State &state, const Route &route) {
    auto src = bench::MakeFrame(ManagerFor(route), 3);
    CImgNormalize target;
    target.Create(*src, nullptr);
    float mean[3] = {1000, 1000, 1000}, sigma[3] = {100, 100, 100};
    for (auto _ : state) target.Do(src.get(), mean, sigma, 0);
  });
  Peer("normalize", 3, [](cv::Mat &m) {
    std::vector<cv::Mat> planes;
    cv::split(m, planes);
    for (cv::Mat &p : planes) {
      cv::Scalar mean, sigma;
      cv::meanStdDev(p, mean, sigma);
      cv::Mat out;
      p.convertTo(out, CV_32F, 100.0 / sigma[0], 1000.0 - mean[0] * 100.0 / sigma[0]);
    }
  });

  Family("hist_eql", {kBlock}, {"sort"}, [](benchmark::State &state, const Route &route) {
    auto src = bench::MakeFrame(ManagerFor(route), 1);
    CImgHstEql target;
    target.Create(*src, nullptr);
    for (auto _ : state) target.Do(src.get());
  });
  bench::Register("sort_hist_eql", [](benchmark::State &state) {
    auto frame = bench::MakeFrame(CreateWholePlaneManager(), 1);
    const float *v = frame->GetImageAdr(0, 0, 0, CImage::ReadOnly);
    const std::size_t n = std::size_t(bench::kWidth) * bench::kHeight;
    std::vector<std::pair<float, std::uint32_t>> pairs(n);
    for (auto _ : state) {
      for (std::size_t i = 0; i < n; ++i) pairs[i] = {v[i], static_cast<std::uint32_t>(i)};
      std::sort(pairs.begin(), pairs.end());
      benchmark::DoNotOptimize(pairs.data());
    }
  });

  Family("false_color", {kBlock}, {"opencv"}, [](benchmark::State &state, const Route &route) {
    auto src = bench::MakeFrame(ManagerFor(route), 1);
    auto target = OperatorFrame<CImgFalseColor>(route, 3);
    for (auto _ : state) target->Do(500.0, 1600.0, 0, 0, src.get(), nullptr, 0);
  });
  bench::Register("opencv_false_color", [](benchmark::State &state) {
    cv::Mat m = PeerPlanes(1), bytes, colour;
    for (auto _ : state) {
      m.convertTo(bytes, CV_8U, 255.0 / 1100.0, -500.0 * 255.0 / 1100.0);
      cv::applyColorMap(bytes, colour, cv::COLORMAP_JET);
    }
  });

  Family("correct_curve", {kBlock}, {"opencv"}, [](benchmark::State &state, const Route &route) {
    auto src = bench::MakeFrame(ManagerFor(route), 3);
    for (int p = 0; p < 3; ++p) src->CImage::SetLevel(p, 0.0, 2000.0);
    CImgCorrectCurve target;
    target.Create(*src, nullptr);
    for (auto _ : state) target.Do(2.0, 0.0, 255.0, src.get(), nullptr, 0);
  });
  Peer("correct_curve", 3, [](cv::Mat &m) {
    cv::Mat u = 1.0 - m / 2000.0, a, b;
    cv::pow(u, 2.0, a);
    cv::pow(1.0 - a, 0.5, b);
    benchmark::DoNotOptimize(b.data);
  });
}

}  // namespace

int main(int argc, char **argv) {
  AutoLevels();
  ToneCurves();
  PointOperators();
  return bench::Main(argc, argv);
}
