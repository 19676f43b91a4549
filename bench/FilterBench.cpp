// Filters on a 6000 x 4000 float frame (mono; the Gaussian also RGB) on each
// route against OpenCV with BORDER_REFLECT_101, or memcpy where no peer
// computes the same function; and the block route with a budget of a quarter
// of the frame against the same route with the frames in memory.
#include <cstring>
#include <iostream>
#include <opencv2/imgproc.hpp>

#include "BenchSupport.h"
#include "core/TestHooks.h"
#include "filter/FilterMatrix.h"
#include "filter/ImgFilter.h"
#include "filter/ImgFilterBlur.h"
#include "filter/ImgFilterSpecial.h"

namespace {

using Operation = std::function<void(CLmrImage &target, CLmrImage &src)>;

// The operator object `T` holding a frame of `planes` like the source.
template <class T>
void RegisterOurs(const std::string &name, bool wholePlane, int planes, Operation op) {
  bench::Register(name, [=](benchmark::State &state) {
    auto manager = wholePlane ? CreateWholePlaneManager() : bench::RoomyBlockManager();
    auto src = bench::MakeFrame(manager, planes);
    auto frame = bench::MakeFrame(manager, planes);
    T target;
    target.Swap(frame.get());
    for (auto _ : state) op(target, *src);
  });
}

cv::Mat PeerFrame(int type = CV_32F) {
  cv::Mat m(bench::kHeight, bench::kWidth, type);
  cv::randu(m, 0.0, 65535.0);
  return m;
}

void RegisterPeer(const std::string &name, int type, std::function<void(const cv::Mat &, cv::Mat &)> peer) {
  bench::Register(name, [=](benchmark::State &state) {
    const cv::Mat src = PeerFrame(type);
    cv::Mat dst;
    for (auto _ : state) {
      peer(src, dst);
      benchmark::DoNotOptimize(dst.data);
    }
  });
}

void Compare(const std::string &op, const std::string &route, const std::string &peer, const std::string &peerName) {
  bench::Compare(op + "." + route + ".vs." + peer, op + "." + route, peerName);
}

void GaussianPeer(const cv::Mat &s, cv::Mat &d) { cv::GaussianBlur(s, d, cv::Size(13, 13), 2, 2, cv::BORDER_REFLECT_101); }

void RegisterBlurs() {
  for (bool plane : {true, false}) {
    const std::string route = plane ? "plane" : "block";
    for (int planes : {1, 3}) {
      const std::string op = planes == 1 ? "gaussian" : "gaussian_rgb";
      RegisterOurs<CImgFilterBlur>(op + "." + route, plane, planes, [](CLmrImage &t, CLmrImage &s) {
        static_cast<CImgFilterBlur &>(t).GaussianFilter(2.0, &s, nullptr, 0);
      });
      Compare(op, route, "opencv", planes == 1 ? "opencv_gaussian" : "opencv_gaussian_rgb");
    }
  }
  RegisterPeer("opencv_gaussian", CV_32F, GaussianPeer);
  RegisterPeer("opencv_gaussian_rgb", CV_32FC3, GaussianPeer);
  RegisterOurs<CImgFilterBlur>("gaussian_gated.plane", true, 1, [](CLmrImage &t, CLmrImage &s) {
    static_cast<CImgFilterBlur &>(t).GaussianFilter(2.0, 1, 20.0, 10.0, 1, 200.0, 20.0, &s, nullptr, 0);
  });
  Compare("gaussian_gated", "plane", "opencv", "opencv_gaussian");

  RegisterOurs<CImgFilterBlur>("mean.block", false, 1, [](CLmrImage &t, CLmrImage &s) {
    static_cast<CImgFilterBlur &>(t).MeanFilter(3.0, 1.0, &s, nullptr, 0);
  });
  RegisterPeer("opencv_blur7", CV_32F, [](const cv::Mat &s, cv::Mat &d) {
    cv::blur(s, d, cv::Size(7, 7), cv::Point(-1, -1), cv::BORDER_REFLECT_101);
  });
  Compare("mean", "block", "opencv", "opencv_blur7");
  RegisterOurs<CImgFilterBlur>("mean_gated.block", false, 1, [](CLmrImage &t, CLmrImage &s) {
    static_cast<CImgFilterBlur &>(t).MeanFilter(3.0, 1.0, 0, 0.0, 0.0, 0, 0.0, 0.0, &s, nullptr, 0);
  });
  RegisterPeer("opencv_disc7", CV_32F, [](const cv::Mat &s, cv::Mat &d) {
    const cv::Mat disc = cv::getStructuringElement(cv::MORPH_ELLIPSE, cv::Size(7, 7));
    cv::Mat kernel;
    disc.convertTo(kernel, CV_32F, 1.0 / cv::sum(disc)[0]);
    cv::filter2D(s, d, -1, kernel, cv::Point(-1, -1), 0, cv::BORDER_REFLECT_101);
  });
  Compare("mean_gated", "block", "opencv", "opencv_disc7");
  RegisterOurs<CImgFilterBlur>("median.block", false, 1, [](CLmrImage &t, CLmrImage &s) {
    static_cast<CImgFilterBlur &>(t).MedianFilter(2.9, &s, nullptr, 0);
  });
  RegisterPeer("opencv_median5", CV_32F, [](const cv::Mat &s, cv::Mat &d) { cv::medianBlur(s, d, 5); });
  Compare("median", "block", "opencv", "opencv_median5");

  // No peer computes these: memcpy of the frame is the floor.
  RegisterOurs<CImgFilterBlur>("disc_median.block", false, 1, [](CLmrImage &t, CLmrImage &s) {
    static_cast<CImgFilterBlur &>(t).MedianFilter(2.5, &s, nullptr, 0);
  });
  RegisterOurs<CImgFilterBlur>("mean_without_edge.block", false, 1, [](CLmrImage &t, CLmrImage &s) {
    static_cast<CImgFilterBlur &>(t).MeanWithoutEdgeFilter(3.0, 1.0, &s, nullptr, 0);
  });
  bench::Register("memcpy_frame", [](benchmark::State &state) {
    const std::size_t count = std::size_t{bench::kWidth} * bench::kHeight;
    std::vector<float> a(count, 1.0f), b(count);
    for (auto _ : state) {
      std::memcpy(b.data(), a.data(), count * sizeof(float));
      benchmark::DoNotOptimize(b.data());
    }
  });
  Compare("disc_median", "block", "memcpy", "memcpy_frame");
  Compare("mean_without_edge", "block", "memcpy", "memcpy_frame");
}

void RegisterWindows() {
  RegisterOurs<CImgFilter>("window_median.block", false, 1, [](CLmrImage &t, CLmrImage &s) {
    static_cast<CImgFilter &>(t).MedianFilter(1, &s, nullptr, 0);
  });
  RegisterPeer("opencv_median3", CV_32F, [](const cv::Mat &s, cv::Mat &d) { cv::medianBlur(s, d, 3); });
  Compare("window_median", "block", "opencv", "opencv_median3");
  RegisterOurs<CImgFilter>("minmax.block", false, 1, [](CLmrImage &t, CLmrImage &s) {
    static_cast<CImgFilter &>(t).MinMaxFilter(1, 0, &s, nullptr, 0);
  });
  RegisterPeer("opencv_erode3", CV_32F, [](const cv::Mat &s, cv::Mat &d) {
    cv::erode(s, d, cv::Mat::ones(3, 3, CV_8U), cv::Point(-1, -1), 1, cv::BORDER_REFLECT_101);
  });
  Compare("minmax", "block", "opencv", "opencv_erode3");
  RegisterOurs<CImgFilter>("laplacian.block", false, 1, [](CLmrImage &t, CLmrImage &s) {
    static_cast<CImgFilter &>(t).LaplacianFilter(0, &s, nullptr, 0);
  });
  RegisterPeer("opencv_laplacian", CV_32F, [](const cv::Mat &s, cv::Mat &d) {
    cv::Laplacian(s, d, CV_32F, 1, 1, 0, cv::BORDER_REFLECT_101);
    d = cv::abs(d);
  });
  Compare("laplacian", "block", "opencv", "opencv_laplacian");
}

// The plane filter of sigma 10 that the host makes before a development.
CImgFilterSpecial &Prepared(CLmrImage &t, CLmrImage &s) {
  auto &dev = static_cast<CImgFilterSpecial &>(t);
  CFilterMatrix m;
  m.MakeGaussian(10.0);
  dev.ClearFilterProc();
  dev.MakeFilterProc(&s, &m, 0, 1);
  return dev;
}

void Develop(CLmrImage &t, CLmrImage &s) {
  CImgFilterSpecial &dev = Prepared(t, s);
  int blur[3] = {0, 1, 2};
  float lo[3] = {0, 0, 0}, range[3] = {65535, 65535, 65535}, a[3] = {20, 20, 20}, mul[3] = {120, 120, 120};
  dev.DigitalDvlpOnly(1, &s, 0.8, blur, lo, range, a, mul, nullptr, 0);
}

void RegisterDevelopment() {
  for (bool plane : {true, false}) {
    RegisterOurs<CImgFilterSpecial>(std::string("digital_development.") + (plane ? "plane" : "block"), plane, 1,
                                    Develop);
    Compare("digital_development", plane ? "plane" : "block", "opencv", "opencv_development");
  }
  RegisterPeer("opencv_development", CV_32F, [](const cv::Mat &s, cv::Mat &d) {
    cv::Mat blurred, shifted, ratio;
    const int side = 2 * CFilterMatrix::GetGaussian_nR(10.0) + 1;
    cv::GaussianBlur(s, blurred, cv::Size(side, side), 10, 10, cv::BORDER_REFLECT_101);
    cv::add(blurred, cv::Scalar(20.0), shifted);
    cv::divide(s, shifted, ratio, 120.0);
    cv::addWeighted(ratio, 0.8, s, 0.2, 0.0, d);
  });
  RegisterOurs<CImgFilterSpecial>("digital_development2.block", false, 1, [](CLmrImage &t, CLmrImage &s) {
    CImgFilterSpecial &dev = Prepared(t, s);
    int blur[3] = {0, 1, 2};
    double gamma[3] = {2.2, 2.2, 2.2};
    float lo[3] = {0, 0, 0}, range[3] = {65535, 65535, 65535}, a[3] = {20, 20, 20}, mul[3] = {120, 120, 120};
    dev.DigitalDvlp2(1, gamma, &s, blur, lo, range, a, mul, nullptr, 0);
  });
  Compare("digital_development2", "block", "memcpy", "memcpy_frame");
}

// The block route with a budget of a quarter of the frame, against the same
// route with a budget that holds both frames; prints the store's peak.
void RegisterBudget(const std::string &op, const Operation &run) {
  for (bool tight : {true, false}) {
    const std::string name = op + (tight ? "_4x_budget.block" : ".block_in_memory");
    bench::Register(name, [=](benchmark::State &state) {
      const std::size_t frameBytes = std::size_t{bench::kWidth} * bench::kHeight * sizeof(float);
      auto manager = CreateBlockManager(tight ? frameBytes / 4 : 4 * frameBytes, 16);
      auto src = bench::MakeFrame(manager, 1);
      auto frame = bench::MakeFrame(manager, 1);
      CImgFilterBlur target;
      target.Swap(frame.get());
      for (auto _ : state) run(target, *src);
      if (tight)
        std::cout << "peakmem " << op << "_4x_budget.block " << manager->GetPeakResidentBytes() / 1024
                  << " KiB, bound " << manager->GetResidentBound() / 1024 << " KiB, budget "
                  << manager->GetResidentBudget() / 1024 << " KiB\n";
    });
  }
  bench::Compare(op + "_4x_budget.block.vs.block_in_memory", op + "_4x_budget.block", op + ".block_in_memory");
}

}  // namespace

int main(int argc, char **argv) {
  RegisterBlurs();
  RegisterWindows();
  RegisterDevelopment();
  RegisterBudget("gaussian", [](CLmrImage &t, CLmrImage &s) {
    static_cast<CImgFilterBlur &>(t).GaussianFilter(2.0, &s, nullptr, 0);
  });
  RegisterBudget("mean_gated", [](CLmrImage &t, CLmrImage &s) {
    static_cast<CImgFilterBlur &>(t).MeanFilter(3.0, 1.0, 0, 0.0, 0.0, 0, 0.0, 0.0, &s, nullptr, 0);
  });
  return bench::Main(argc, argv);
}
