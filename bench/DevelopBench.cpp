// Bayer development of a 6000 x 4000 mosaic on each route against OpenCV's
// demosaic (16-bit, as it refuses float) with what an OpenCV user needs for
// float planes, and the tone, gamma and half-size steps against memcpy and
// OpenCV. The mosaic is copied back before each run, outside the timing.
#include <cstring>
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>
#include "BenchSupport.h"
#include "develop/ImgBayerToRgb.h"

namespace {

class Bayer : public CImgBayerToRgb {
public:
  using CImgBayerToRgb::GammaCorrect;
  using CImgBayerToRgb::ToneCurveCorrect;
};

tagBayerStruct Plain() {
  tagBayerStruct s{};
  s.nPattern = 1;
  s.nSrcBits = s.nDstBits = -32;
  s.fGamma = 2.2;
  return s;
}

std::shared_ptr<CVmManager> Store(bool wholePlane) {
  return wholePlane ? CreateWholePlaneManager() : bench::RoomyBlockManager();
}

// Do on a fresh copy of the mosaic each run.
void RegisterDo(const std::string &name, bool wholePlane, tagBayerStruct s) {
  bench::Register(name, [=](benchmark::State &state) {
    auto mosaic = bench::MakeFrame(Store(wholePlane), 1);
    Bayer target;
    for (auto _ : state) {
      state.PauseTiming();
      target.CopyImage(*mosaic);
      state.ResumeTiming();
      if (!target.Do(s, 0)) state.SkipWithError("Do failed");
    }
  });
}

cv::Mat Mosaic16() {
  cv::Mat m(bench::kHeight, bench::kWidth, CV_16UC1);
  cv::randu(m, 0, 65535);
  return m;
}

void RegisterMemcpy(const std::string &name, double planes) {
  bench::Register(name, [planes](benchmark::State &state) {
    const auto n = static_cast<std::size_t>(planes * bench::kWidth * bench::kHeight);
    std::vector<float> a(n, 1.0f), b(n);
    for (auto _ : state) {
      std::memcpy(b.data(), a.data(), n * sizeof(float));
      benchmark::DoNotOptimize(b.data());
    }
  });
}

}  // namespace

int main(int argc, char **argv) {
  RegisterDo("bayer_rgb.plane", true, Plain());
  RegisterDo("bayer_rgb.block", false, Plain());
  tagBayerStruct mono = Plain();
  mono.bMono = 1;
  RegisterDo("bayer_gray.plane", true, mono);
  tagBayerStruct half = Plain();
  half.nRoundUp = 1;
  RegisterDo("bayer_roundup.block", false, half);

  bench::Register("bayer_tone.plane", [](benchmark::State &state) {
    auto manager = CreateWholePlaneManager();
    auto mosaic = bench::MakeFrame(manager, 1);
    Bayer target;
    target.CopyImage(*mosaic);
    double gains[4] = {1.8, 1.0, 1.0, 1.4};
    tagBayerStruct s = Plain();
    s.pGain = gains, s.bMaker = 1, s.bLevelCut = 1;
    for (auto _ : state) target.ToneCurveCorrect(&target, 0, &s, 0.0f, 65535.0f);
  });
  for (bool wholePlane : {true, false})
    bench::Register(std::string("bayer_gamma.") + (wholePlane ? "plane" : "block"), [=](benchmark::State &state) {
      auto frame = bench::MakeFrame(Store(wholePlane), 3);
      Bayer target;
      target.CopyImage(*frame);
      tagBayerStruct s = Plain();
      for (auto _ : state) target.GammaCorrect(&target, &s);
    });

  // The float planes an OpenCV user gets: demosaic, split, convert.
  bench::Register("opencv_rgb", [](benchmark::State &state) {
    cv::Mat raw = Mosaic16(), bgr, planes[3], out[3];
    for (auto _ : state) {
      cv::cvtColor(raw, bgr, cv::COLOR_BayerRGGB2BGR);
      cv::split(bgr, planes);
      for (int c = 0; c < 3; ++c) planes[c].convertTo(out[c], CV_32F);
      benchmark::DoNotOptimize(out[2].data);
    }
  });
  for (auto [name, code] : {std::pair{"opencv_rgb_bare", int(cv::COLOR_BayerRGGB2BGR)},
                            std::pair{"opencv_rgb_ea", int(cv::COLOR_BayerRGGB2BGR_EA)}})
    bench::Register(name, [code = code](benchmark::State &state) {
      cv::Mat raw = Mosaic16(), bgr;
      for (auto _ : state) {
        cv::cvtColor(raw, bgr, code);
        benchmark::DoNotOptimize(bgr.data);
      }
    });
  bench::Register("opencv_rgb_vng8", [](benchmark::State &state) {
    cv::Mat raw(bench::kHeight, bench::kWidth, CV_8UC1), bgr;
    cv::randu(raw, 0, 255);
    for (auto _ : state) {
      cv::cvtColor(raw, bgr, cv::COLOR_BayerRGGB2BGR_VNG);
      benchmark::DoNotOptimize(bgr.data);
    }
  });
  bench::Register("opencv_gray", [](benchmark::State &state) {
    cv::Mat raw = Mosaic16(), gray, out;
    for (auto _ : state) {
      cv::cvtColor(raw, gray, cv::COLOR_BayerRGGB2GRAY);
      gray.convertTo(out, CV_32F);
      benchmark::DoNotOptimize(out.data);
    }
  });
  bench::Register("opencv_gamma", [](benchmark::State &state) {
    cv::Mat frame(bench::kHeight, bench::kWidth, CV_32FC3), out;
    cv::randu(frame, 0.0, 1.0);
    for (auto _ : state) {
      cv::pow(frame, 1 / 2.2, out);
      benchmark::DoNotOptimize(out.data);
    }
  });
  RegisterMemcpy("memcpy_2planes", 2);
  RegisterMemcpy("memcpy_1plane", 1);

  bench::Compare("bayer_rgb.plane.vs.opencv", "bayer_rgb.plane", "opencv_rgb");
  bench::Compare("bayer_rgb.plane.vs.opencv_bare", "bayer_rgb.plane", "opencv_rgb_bare");
  bench::Compare("bayer_rgb.plane.vs.opencv_ea", "bayer_rgb.plane", "opencv_rgb_ea");
  bench::Compare("bayer_rgb.plane.vs.opencv_vng8", "bayer_rgb.plane", "opencv_rgb_vng8");
  bench::Compare("bayer_rgb.plane.vs.memcpy", "bayer_rgb.plane", "memcpy_2planes");
  bench::Compare("bayer_rgb.block.vs.opencv", "bayer_rgb.block", "opencv_rgb");
  bench::Compare("bayer_gray.plane.vs.opencv", "bayer_gray.plane", "opencv_gray");
  bench::Compare("bayer_tone.plane.vs.memcpy", "bayer_tone.plane", "memcpy_1plane");
  bench::Compare("bayer_gamma.plane.vs.opencv", "bayer_gamma.plane", "opencv_gamma");
  bench::Compare("bayer_gamma.block.vs.opencv", "bayer_gamma.block", "opencv_gamma");
  bench::Compare("bayer_roundup.block.vs.memcpy", "bayer_roundup.block", "memcpy_1plane");
  return bench::Main(argc, argv);
}
