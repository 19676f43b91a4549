// The demo job: makes synthetic star fields in both store kinds (one larger than
// the block store's memory budget), calibrates them with CImgCalculation (remove
// a pedestal with clipping, then apply a gain) and reports what it did and how
// long each step took.
#include <chrono>
#include <cstdio>
#include <memory>
#include <string>
#include "StarField.h"
#include "core/ImgCalculation.h"
#include "core/OperatorFrame.h"
#include "sibling/VmManager.h"

namespace {

double Seconds(std::chrono::steady_clock::time_point since) {
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - since).count();
}

const char *RouteName(qorimg::Route route) {
  switch (route) {
    case qorimg::Route::Plane: return "kernel pipeline";
    case qorimg::Route::Vector: return "vector line loop";
    case qorimg::Route::Block: return "plain line loop";
  }
  return "?";
}

struct Job {
  std::string name;
  std::shared_ptr<CVmManager> manager;
  int width, height, planes;
};

void Run(const Job &job) {
  std::printf("\n== %s: %d x %d, %d plane(s), %.0f MiB of pixels\n", job.name.c_str(), job.width, job.height,
              job.planes, 4.0 * job.width * job.height * job.planes / (1 << 20));
  auto t0 = std::chrono::steady_clock::now();
  CLmrImage frame(job.manager, CImage::Float32, job.width, job.height, job.planes, 1.0, 0.0, 1,
                  std::shared_ptr<lumora::Progress>());
  demo::PaintStarField(frame, demo::StarFieldSpec{});
  std::printf("  synthetic star field painted in %.3f s\n", Seconds(t0));

  const float before = frame.GetPixelGrayRaw(10, 10, 0);
  CImgCalculation calibrated;
  calibrated.Create(frame, nullptr, nullptr);
  std::printf("  route: %s\n", RouteName(qorimg::ChooseRoute(true, {&calibrated, &frame})));

  t0 = std::chrono::steady_clock::now();
  calibrated.Do(1000.0, CImgCalculation::Subtract, 1, &frame, nullptr, 0);
  std::printf("  pedestal 1000 removed (clip at 0) in %.3f s\n", Seconds(t0));
  t0 = std::chrono::steady_clock::now();
  calibrated.Do(1.25, CImgCalculation::Multiply, 0, &calibrated, nullptr, 0);
  std::printf("  gain 1.25 applied in place in %.3f s\n", Seconds(t0));

  const float after = calibrated.GetPixelGrayRaw(10, 10, 0);
  const float expected = (before - 1000.0f > 0.0f ? before - 1000.0f : 0.0f) * 1.25f;
  std::printf("  check pixel (10, 10): %.3f -> %.3f (expected %.3f) %s\n", before, after, expected,
              after == expected ? "ok" : "MISMATCH");
  std::printf("  store: resident %.1f MiB, peak %.1f MiB", job.manager->GetResidentBytes() / 1048576.0,
              job.manager->GetPeakResidentBytes() / 1048576.0);
  if (job.manager->GetAllocationPolicy() == CVmManager::BlockStored)
    std::printf(", budget %.1f MiB", job.manager->GetResidentBudget() / 1048576.0);
  std::printf("\n");
}

}  // namespace

int main() {
  std::printf("qorimg demo: synthetic star fields through the calibration arithmetic\n");
  Run({"whole-plane store", CreateWholePlaneManager(), 3000, 2000, 3});
  Run({"block store", CreateBlockManager(std::size_t{256} << 20, 16), 3000, 2000, 3});
  Run({"block store, frame 3x its memory budget", CreateBlockManager(std::size_t{32} << 20, 16), 6000, 4000, 1});
  return 0;
}
