// ToDIB of a 6000 x 4000 colour float frame into a 32-bit bitmap, on each route,
// against OpenCV mapping each plane to bytes with convertTo and interleaving
// them with cv::merge.
#include <opencv2/core.hpp>
#include <vector>
#include "BenchSupport.h"
#include "display/MemoryDIB.h"
#include "platform/DeviceContext.h"

namespace {

constexpr double kLevelMin = 1000.0, kLevelMax = 40000.0;

struct Route {
  const char *name;
  bool wholePlane;
};
const Route kRoutes[] = {{"plane", true}, {"block", false}};

void SetLevels(CLmrImage &frame) {
  for (int p = 0; p < 3; ++p) frame.CImage::SetLevel(p, kLevelMin, kLevelMax);
}

}  // namespace

int main(int argc, char **argv) {
  for (const Route &route : kRoutes) {
    const std::string name = std::string("to_dib32.") + route.name;
    bench::Register(name, [=](benchmark::State &state) {
      auto frame = bench::MakeFrame(route.wholePlane ? CreateWholePlaneManager() : bench::RoomyBlockManager(), 3);
      SetLevels(*frame);
      CWnd screen(bench::kWidth, bench::kHeight, 32);
      CMemoryDIB dib;
      if (!dib.Create(&screen, bench::kWidth, bench::kHeight, 0)) {
        state.SkipWithError("no bitmap");
        return;
      }
      for (auto _ : state) frame->ToDIB(&dib, nullptr);
    });
    bench::Compare(name + ".vs.opencv", name, "opencv_convert_merge");
  }
  bench::Register("opencv_convert_merge", [](benchmark::State &state) {
    auto frame = bench::MakeFrame(CreateWholePlaneManager(), 3);
    std::vector<cv::Mat> planes, bytes(3);
    // Blue, green, red, as in the bitmap.
    for (int p = 2; p >= 0; --p)
      planes.emplace_back(bench::kHeight, bench::kWidth, CV_32F, frame->GetImageAdr(0, 0, p));
    const double scale = 255.0 / (kLevelMax - kLevelMin);
    cv::Mat merged;
    for (auto _ : state) {
      for (int c = 0; c < 3; ++c) planes[c].convertTo(bytes[c], CV_8U, scale, -kLevelMin * scale);
      cv::merge(bytes, merged);
    }
  });
  return bench::Main(argc, argv);
}
