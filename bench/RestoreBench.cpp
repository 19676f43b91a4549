// Restoration of a 1024 x 1024 mono float frame on each route: the Wiener
// division against the same filter written with cv::dft; one Lucy-Richardson
// iteration (fAdu large, so the chi-square stop never comes) against one plain
// Richardson-Lucy iteration with cv::filter2D and the same 64 x 64 PSF, and
// against the four FFTW transforms of the canvas an iteration needs; one
// maximum-entropy iteration (no library has it) against the same four
// transforms. An iteration of ours is the slope between runs of 1 and
// 1 + kSteps iterations, so the preparation is left out. Every timed run
// starts from the unrestored frame.
#include <fftw3.h>

#include <cmath>
#include <cstdio>
#include <cstring>
#include <string>
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

#include "BenchSupport.h"
#include "restore/ImgLucy.h"
#include "restore/ImgMem.h"
#include "restore/ImgWiener.h"

namespace {

constexpr int kSide = 1024;
constexpr double kRadius = 2.0, kNoise = 0.01, kSigma = 2.0;
constexpr int kSteps = 4;  // iterations added to the base run

std::shared_ptr<CVmManager> ManagerFor(bool wholePlane) {
  return wholePlane ? CreateWholePlaneManager() : bench::RoomyBlockManager();
}

// Times `op` on an operator object of class T over the frame, the frame put
// back (untimed) before each run.
template <class T>
void RegisterOurs(const std::string &name, bool wholePlane, std::function<void(T &)> op) {
  bench::Register(name, [=](benchmark::State &state) {
    auto manager = ManagerFor(wholePlane);
    auto pristine = bench::MakeFrame(manager, 1, kSide, kSide);
    auto frame = bench::MakeFrame(manager, 1, kSide, kSide);
    T target;
    target.Swap(frame.get());
    for (auto _ : state) {
      state.PauseTiming();
      target.PixelBlt(0, 0, kSide, kSide, pristine.get(), 0, 0, 0);
      state.ResumeTiming();
      op(target);
    }
  });
}

cv::Mat PeerFrame() {
  auto frame = bench::MakeFrame(CreateWholePlaneManager(), 1, kSide, kSide);
  return cv::Mat(kSide, kSide, CV_32F, frame->GetImageAdr(0, 0, 0)).clone();
}

// The Wiener filter of CImgWiener with OpenCV: the frame on the 0..255 scale,
// the spectrum of the same Gaussian kernel, F conj(G) / (|G|^2 + noise), back
// to the raw scale.
void WienerPeer(const cv::Mat &frame, cv::Mat &out) {
  const double sigma = kRadius / 1.414213562, gain = 1000.0 * 0.5 / 3.14159;
  cv::Mat scaled, kernel(kSide, kSide, CV_32F), F, G, FG, planes[2];
  frame.convertTo(scaled, CV_32F, 255.0 / 65535.0);
  for (int y = 0; y < kSide; ++y)
    for (int x = 0; x < kSide; ++x) {
      const int i = x > kSide / 2 ? x - kSide : x, j = y > kSide / 2 ? y - kSide : y;
      kernel.at<float>(y, x) = static_cast<float>(gain * std::exp(-(i * i + j * j) / (2.0 * sigma * sigma)));
    }
  cv::dft(scaled, F, cv::DFT_COMPLEX_OUTPUT);
  cv::dft(kernel, G, cv::DFT_COMPLEX_OUTPUT);
  cv::mulSpectrums(F, G, FG, 0, true);
  cv::split(G, planes);
  cv::Mat power = planes[0].mul(planes[0]) + planes[1].mul(planes[1]);
  double largest = 0.0;
  cv::minMaxLoc(power, nullptr, &largest);
  power += largest * kNoise;
  cv::split(FG, planes);
  cv::divide(planes[0], power, planes[0]);
  cv::divide(planes[1], power, planes[1]);
  cv::merge(planes, 2, FG);
  cv::idft(FG, out, cv::DFT_SCALE | cv::DFT_REAL_OUTPUT);
  out.convertTo(out, CV_32F, 65535.0 / 255.0);
}

// One plain Richardson-Lucy step with the 64 x 64 Gaussian PSF applied by
// cv::filter2D (which correlates through the DFT at this kernel size), from
// the flat mean.
void LucyPeer(const cv::Mat &frame, cv::Mat &estimate) {
  static const cv::Mat psf = [] {
    cv::Mat m(64, 64, CV_32F);
    for (int y = 0; y < 64; ++y)
      for (int x = 0; x < 64; ++x)
        m.at<float>(y, x) =
            static_cast<float>(std::exp(-((x - 32) * (x - 32) + (y - 32) * (y - 32)) / (2.0 * kSigma * kSigma)));
    return cv::Mat(m / cv::sum(m)[0]);
  }();
  cv::Mat flipped, blurred, ratio, correction;
  cv::flip(psf, flipped, -1);
  estimate = cv::Mat(frame.size(), CV_32F, cv::mean(frame));
  cv::filter2D(estimate, blurred, CV_32F, psf, cv::Point(-1, -1), 0, cv::BORDER_REFLECT);
  cv::divide(frame, blurred, ratio);
  cv::filter2D(ratio, correction, CV_32F, flipped, cv::Point(-1, -1), 0, cv::BORDER_REFLECT);
  estimate = estimate.mul(correction);
}

// The peer computes our filter: the largest difference over the largest value.
void CheckWienerPeer() {
  auto frame = bench::MakeFrame(CreateWholePlaneManager(), 1, kSide, kSide);
  cv::Mat out;
  WienerPeer(cv::Mat(kSide, kSide, CV_32F, frame->GetImageAdr(0, 0, 0)).clone(), out);
  CImgWiener wiener;
  wiener.Swap(frame.get());
  wiener.Do(kRadius, kNoise, nullptr, 0);
  const cv::Mat ours(kSide, kSide, CV_32F, wiener.GetImageAdr(0, 0, 0));
  std::printf("check wiener.vs.opencv largest difference %.2e of largest value %.4g\n",
              cv::norm(ours, out, cv::NORM_INF), cv::norm(out, cv::NORM_INF));
}

void RegisterPeer(const std::string &name, void (*peer)(const cv::Mat &, cv::Mat &)) {
  bench::Register(name, [peer](benchmark::State &state) {
    const cv::Mat frame = PeerFrame();
    cv::Mat out;
    for (auto _ : state) {
      peer(frame, out);
      benchmark::DoNotOptimize(out.data);
    }
  });
}

// Four in-place complex transforms of the canvas, two threads, FFTW_MEASURE
// planned outside the timing.
void RegisterFftw4() {
  bench::Register("fftw4", [](benchmark::State &state) {
    fftwf_init_threads();
    fftwf_plan_with_nthreads(2);
    auto *data = reinterpret_cast<fftwf_complex *>(fftwf_malloc(sizeof(fftwf_complex) * kSide * kSide));
    fftwf_plan plan = fftwf_plan_dft_2d(kSide, kSide, data, data, FFTW_FORWARD, FFTW_MEASURE);
    const cv::Mat frame = PeerFrame();
    for (int i = 0; i < kSide * kSide; ++i) {
      data[i][0] = frame.at<float>(i / kSide, i % kSide);
      data[i][1] = 0.0f;
    }
    for (auto _ : state)
      for (int k = 0; k < 4; ++k) fftwf_execute(plan);
    fftwf_destroy_plan(plan);
    fftwf_free(data);
  });
}

}  // namespace

int main(int argc, char **argv) {
  CheckWienerPeer();
  RegisterPeer("opencv_wiener", WienerPeer);
  RegisterPeer("opencv_lucy_iteration", LucyPeer);
  RegisterFftw4();
  for (bool whole : {true, false}) {
    const std::string route = whole ? "plane" : "block";
    RegisterOurs<CImgWiener>("wiener." + route, whole, [](CImgWiener &w) { w.Do(kRadius, kNoise, nullptr, 0); });
    bench::Compare("wiener." + route + ".vs.opencv", "wiener." + route, "opencv_wiener");
    for (int n : {1, 1 + kSteps})
      RegisterOurs<CImgLucy>("lucy." + route + "." + std::to_string(n), whole,
                             [n](CImgLucy &l) { l.Do(kSigma, 1e9, 1.0, n, nullptr, 0); });
    const std::string lucy = "lucy." + route + ".", step = "lucy_iteration." + route;
    bench::CompareStep(step + ".vs.opencv", lucy + std::to_string(1 + kSteps), lucy + "1", kSteps,
                       "opencv_lucy_iteration");
    bench::CompareStep(step + ".vs.fftw4", lucy + std::to_string(1 + kSteps), lucy + "1", kSteps, "fftw4");
  }
  for (int n : {1, 1 + kSteps})
    RegisterOurs<CImgMem>("mem.plane." + std::to_string(n), true,
                          [n](CImgMem &m) { m.Do(kSigma, 1.0, n, nullptr, 0); });
  bench::CompareStep("mem_iteration.plane.vs.fftw4", "mem.plane." + std::to_string(1 + kSteps), "mem.plane.1", kSteps,
                     "fftw4");
  return bench::Main(argc, argv);
}
