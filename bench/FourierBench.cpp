// The two-dimensional transform of a 6000 x 4000 frame padded to 8192 x 4096
// (CFftd::Do, both threads) against FFTW's in-place plan (FFTW_MEASURE, two
// threads, planned outside the timing) and cv::dft on the same complex array;
// CImgFourier::Do on each route against cv::dft of the frame; and the
// log-polar map against cv::warpPolar.
#include <fftw3.h>

#include <cstring>
#include <vector>
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>
#include "BenchSupport.h"
#include "restore/Fft.h"
#include "restore/ImgFourier.h"

namespace {

// The frame's plane 0 in the top left of a zeroed complex array.
void FillArray(CFftd &fft, const CLmrImage &frame) {
  fft.Init();
  dcomplex *a = fft.GetImageAdrA();
  for (int y = 0; y < frame.GetHeight(); ++y) {
    const float *line = frame.GetImageAdr(0, y, 0, CImage::ReadOnly);
    for (int x = 0; x < frame.GetWidth(); ++x) a[std::size_t(y) * fft.GetWidth() + x] = {line[x], 0.0f};
  }
}

}  // namespace

int main(int argc, char **argv) {
  bench::Register("fft2d.plane", [](benchmark::State &state) {
    auto frame = bench::MakeFrame(CreateWholePlaneManager(), 1);
    CFftd fft;
    fft.Create(bench::kWidth, bench::kHeight);
    FillArray(fft, *frame);
    for (auto _ : state) fft.Do(0, 0);
  });
  bench::Register("fftw", [](benchmark::State &state) {
    auto frame = bench::MakeFrame(CreateWholePlaneManager(), 1);
    CFftd fft;
    fft.Create(bench::kWidth, bench::kHeight);
    const int w = fft.GetWidth(), h = fft.GetHeight();
    fftwf_init_threads();
    fftwf_plan_with_nthreads(2);
    auto *data = reinterpret_cast<fftwf_complex *>(fftwf_malloc(sizeof(fftwf_complex) * w * h));
    fftwf_plan plan = fftwf_plan_dft_2d(h, w, data, data, FFTW_BACKWARD, FFTW_MEASURE);
    FillArray(fft, *frame);
    std::memcpy(data, fft.GetImageAdrA(), sizeof(fftwf_complex) * w * h);
    for (auto _ : state) fftwf_execute(plan);
    fftwf_destroy_plan(plan);
    fftwf_free(data);
  });
  bench::Register("opencv_dft_complex", [](benchmark::State &state) {
    auto frame = bench::MakeFrame(CreateWholePlaneManager(), 1);
    CFftd fft;
    fft.Create(bench::kWidth, bench::kHeight);
    FillArray(fft, *frame);
    cv::Mat array(fft.GetHeight(), fft.GetWidth(), CV_32FC2, fft.GetImageAdrA()), out;
    for (auto _ : state) cv::dft(array, out, cv::DFT_INVERSE);
  });
  bench::Compare("fft2d.plane.vs.fftw", "fft2d.plane", "fftw");
  bench::Compare("fft2d.plane.vs.opencv", "fft2d.plane", "opencv_dft_complex");

  for (bool whole : {true, false}) {
    const std::string route = whole ? "plane" : "block";
    bench::Register("fourier_do." + route, [whole](benchmark::State &state) {
      auto manager = whole ? CreateWholePlaneManager() : bench::RoomyBlockManager();
      auto frame = bench::MakeFrame(manager, 1);
      CImgFourier fourier;
      fourier.Swap(frame.get());
      auto re = bench::MakeFrame(manager, 1), im = bench::MakeFrame(manager, 1);
      for (auto _ : state) fourier.Do(0, 1, 0, nullptr, re.get(), im.get(), nullptr, 0);
    });
    bench::Compare("fourier_do." + route + ".vs.opencv", "fourier_do." + route, "opencv_dft_frame");
  }
  bench::Register("opencv_dft_frame", [](benchmark::State &state) {
    auto frame = bench::MakeFrame(CreateWholePlaneManager(), 1);
    cv::Mat plane(frame->GetHeight(), frame->GetWidth(), CV_32F, frame->GetImageAdr(0, 0, 0)), out;
    for (auto _ : state) cv::dft(plane, out, cv::DFT_COMPLEX_OUTPUT);
  });

  bench::Register("log_polar.plane", [](benchmark::State &state) {
    auto frame = bench::MakeFrame(CreateWholePlaneManager(), 1);
    CFftd fft;
    fft.Create(bench::kWidth, bench::kHeight);
    FillArray(fft, *frame);
    for (auto _ : state) fft.ToLogPolar(0, 1, 0, 180, 0, 0);
  });
  bench::Register("opencv_warp_polar", [](benchmark::State &state) {
    auto frame = bench::MakeFrame(CreateWholePlaneManager(), 1);
    cv::Mat plane(frame->GetHeight(), frame->GetWidth(), CV_32F, frame->GetImageAdr(0, 0, 0)), out;
    for (auto _ : state)
      cv::warpPolar(plane, out, cv::Size(4096, 8192), cv::Point2f(3000, 2000), 2000,
                    static_cast<int>(cv::INTER_LINEAR) | static_cast<int>(cv::WARP_POLAR_LOG));
  });
  bench::Compare("log_polar.plane.vs.opencv", "log_polar.plane", "opencv_warp_polar");
  return bench::Main(argc, argv);
}
